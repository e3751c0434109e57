#pragma once

// Threads that work behind a session: signals are for the program's own threads, which know what to do with
// them.

#include <signal.h>

namespace nvadmin::engine {

// While it lives no signal reaches this thread, nor ever a thread that is begun meanwhile.
class SignalsBlocked {
 public:
  SignalsBlocked() noexcept {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_;
};

}  // namespace nvadmin::engine

#include "host/PasswordPrompt.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iostream>

#include <fmt/format.h>

#include "engine/CodePage.h"
#include "host/Passwords.h"
#include "host/TclSession.h"

namespace nvadmin::host {

namespace {

// The terminal without echo, for a scope. A signal that would end the program waits until the echo is back;
// Ctrl-Z means nothing meanwhile.
class QuietTerminal {
 public:
  QuietTerminal() {
    sigset_t ending;
    sigemptyset(&ending);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaddset(&ending, number);
    pthread_sigmask(SIG_BLOCK, &ending, &maskBefore_);
    signals_ = signalfd(-1, &ending, SFD_CLOEXEC);

    tcgetattr(STDIN_FILENO, &before_);
    termios quiet = before_;
    quiet.c_lflag = (quiet.c_lflag & ~static_cast<tcflag_t>(ECHO)) | ECHONL;
    quiet.c_cc[VSUSP] = _POSIX_VDISABLE;
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  }
  ~QuietTerminal() {
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
    if (signals_ >= 0) close(signals_);
    pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr);
  }
  QuietTerminal(const QuietTerminal&) = delete;
  QuietTerminal& operator=(const QuietTerminal&) = delete;

  // One line of input; nothing at its end or when a signal waits.
  std::optional<std::string> ReadLine() const {
    std::string line;
    for (;;) {
      pollfd sources[] = {{STDIN_FILENO, POLLIN, 0}, {signals_, POLLIN, 0}};
      if (poll(sources, std::size(sources), -1) < 0 && errno != EINTR) return std::nullopt;
      if (sources[1].revents != 0) return std::nullopt;
      if (sources[0].revents == 0) continue;
      char letter = 0;
      if (read(STDIN_FILENO, &letter, 1) != 1) return std::nullopt;
      if (letter == '\n') return line;
      line += letter;
    }
  }

 private:
  sigset_t maskBefore_{};
  termios before_{};
  int signals_ = -1;
};

std::optional<std::string> AskAtTerminal(std::string_view prompt) {
  // Quiet before the question: who answers it at once would be seen, and lose what came before.
  const QuietTerminal terminal;
  fmt::print(stderr, "{}", prompt);
  return terminal.ReadLine();
}

std::optional<std::string> AskTwice(std::string_view user) {
  std::optional<std::string> password = AskAtTerminal(
      fmt::format("New password of {}, {} to {} characters: ", user, kShortestPassword, kLongestPassword));
  if (!password) {
    Complain("no password was given");
    return std::nullopt;
  }
  if (AskAtTerminal("The same again: ") == password) return password;
  Complain("the two passwords differ; try again");
  return std::nullopt;
}

std::optional<std::string> ReadFromInput() {
  std::string line;
  if (std::getline(std::cin, line)) {
    if (line.ends_with('\r')) line.pop_back();
    return line;
  }
  Complain("no password was given: it is read from standard input, one line");
  return std::nullopt;
}

std::optional<std::string> InCodePage(const std::optional<std::string>& typed) {
  if (!typed) return std::nullopt;
  std::string password;
  std::string refused;
  if (engine::FromUtf8(*typed, password, refused)) return password;
  Complain("the password has a character that is not in the code page Windows-1252");
  return std::nullopt;
}

}  // namespace

std::optional<std::string> AskNewPassword(std::string_view user) {
  return InCodePage(isatty(STDIN_FILENO) != 0 ? AskTwice(user) : ReadFromInput());
}

std::optional<std::string> AskStorePassword(std::string_view user, std::string_view database) {
  if (isatty(STDIN_FILENO) != 0) {
    std::optional<std::string> password = AskAtTerminal(fmt::format(
        "Password of {} for database {}, empty for none: ", engine::ToUtf8(user), engine::ToUtf8(database)));
    if (!password) Complain("no password was given");
    return password;
  }
  std::string line;
  std::getline(std::cin, line);
  if (line.ends_with('\r')) line.pop_back();
  return line;
}

}  // namespace nvadmin::host

// A port from a file to a file, and a TCL session on one.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "host/StreamPort.h"
#include "host/TclSession.h"
#include "session/SessionState.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::host {

class FilePort {
 public:
  explicit FilePort(std::string_view input)
      : input_(open(folder_.Put("in", input).c_str(), O_RDONLY)),
        output_(open((folder_ / "out").c_str(), O_WRONLY | O_CREAT, 0600)) {}
  ~FilePort() {
    close(input_);
    close(output_);
  }

  StreamPort& operator*() { return port_; }
  StreamPort* operator->() { return &port_; }
  std::string Output() const { return folder_.Text("out"); }

 private:
  TemporaryFolder folder_;
  int input_;
  int output_;
  StreamPort port_{input_, output_};
};

struct SessionRun {
  std::string output;
  ExitCode exitCode = ExitCode::kFine;
  std::string addInKnows;  // account and datastore word at the session's end
};

inline TclSettings Given(std::vector<std::string> sentences) {
  TclSettings settings;
  settings.sentences = std::move(sentences);
  return settings;
}

// A session on a thread of its own.
inline SessionRun RunSession(engine::Home& home, std::string_view account, TclSettings settings,
                             std::string_view input = "") {
  FilePort port(input);
  settings.account = account;
  settings.user = "tester";
  TclSession session(home, *port, std::move(settings));
  SessionRun run;
  std::thread([&] {
    run.exitCode = session.Run();
    run.addInKnows = Session().CurrentAccount + " " + Session().DatastoreKind;
  }).join();
  run.output = port.Output();
  return run;
}

}  // namespace nvadmin::host

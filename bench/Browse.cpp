// Plays a browser on the engine: serves one sentence, or a form of the Admin Menu, and writes what the
// browser gets to standard output. Pages and terminal text take the same road, so their times can be
// compared.
//   bench_browse HOME page SENTENCE        as a page
//   bench_browse HOME terminal SENTENCE    as terminal text, page prompts answered
//   bench_browse HOME export FILE          all items of the file through the form
//   bench_browse HOME load NAME            a transfer file through the form, its tables made anew
#include <cstdio>
#include <deque>
#include <exception>
#include <string>
#include <string_view>

#include "engine/EngineSession.h"
#include "engine/Home.h"
#include "engine/Port.h"
#include "platform/TransferObserver.h"
#include "session/BP.h"

namespace nvadmin {
namespace {

class BrowserPort final : public engine::Port {
 public:
  explicit BrowserPort(bool showsPages) : showsPages_(showsPages) {}

  // Planned replies first, then empty lines; progress answers itself.
  engine::InputResult ReadLine(std::string& line, std::int32_t /*length*/, bool /*echoLineEnd*/) override {
    Flush();
    line.clear();
    if (!isProgress_ && !replies.empty()) {
      line = replies.front();
      replies.pop_front();
    }
    return engine::InputResult::kLine;
  }
  void Write(std::string_view text, bool lineEnd) override {
    isProgress_ = lineEnd && text.ends_with(engine::kProgressWord);
    gathered_.append(text);
    if (lineEnd) gathered_.append("\r\n");
    if (gathered_.size() >= kWriteBytes) Flush();
  }
  void Flush() override {
    std::fwrite(gathered_.data(), 1, gathered_.size(), stdout);
    gathered_.clear();
  }
  bool ShowsPages() const override { return showsPages_; }
  std::string CursorString(std::int32_t /*column*/, std::int32_t /*row*/) override { return {}; }

  std::deque<std::string> replies;

 private:
  static constexpr std::size_t kWriteBytes = 65'536;
  bool showsPages_;
  bool isProgress_ = false;
  std::string gathered_;
};

void Browse(const char* folder, std::string_view what, const std::string& argument) {
  engine::Home home(folder);
  BrowserPort port(what != "terminal");
  engine::EngineSession session(home, port, {"BENCH", "bench", "bench"});
  BP bp;
  bp.CallBack(&session);
  if (what == "load") {
    platform::ObserverOfTransfers() = {[&](std::string_view path) { session.BeginLoad(path); },
                                       [&] { session.EndLoad(); }};
    port.replies = {"", "mx4|", "fx1|" + argument, "fx3|2", "bx1|", "", "bx2|"};
    bp.UMenu();
    for (const std::string& line : session.LastLoad().Report()) std::fprintf(stderr, "%s\n", line.c_str());
  } else if (what == "export") {
    port.replies = {"", "mx3|", "fx3|" + argument, "bx1|", "Y", "bx2|", "bx2|"};
    bp.UMenu();
  } else {
    session.BeginTypedSentence(argument);
    bp.CmdSentence(argument);
    bp.Query();
    session.EndTypedSentence();
  }
  port.Flush();
  bp.CallBackClose();
}

}  // namespace
}  // namespace nvadmin

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("usage: bench_browse HOME page|terminal|export|load SENTENCE|FILE|NAME\n", stderr);
    return 2;
  }
  try {
    nvadmin::Browse(argv[1], argv[2], argv[3]);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "bench_browse: %s\n", failure.what());
    return 1;
  }
}

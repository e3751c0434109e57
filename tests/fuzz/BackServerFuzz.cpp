// Fuzz target of the back server. An input is what a client sends, a line each, with ^ ] \ as marks; when it
// is used up the client says EXIT or, behind an odd number of lines, is gone.
//
// Every conversation ends; whatever goes out is a whole frame, but around a sentence; and requests that come
// in two lines each get the same answers as in one.
//
// The corpus runs among the tests. To search for new inputs, build fuzz_backserver as QueryFuzz.cpp tells.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "mv/EngineHooks.h"
#include "session/BP.h"
#include "session/SessionState.h"
#include "session/Text.h"
#include "tests/support/ScriptedEngine.h"

namespace nvadmin::test {
namespace {

constexpr int kMostReads = 10'000;

void Require(bool holds, const std::string& what) {
  if (holds) return;
  std::fprintf(stderr, "%s\n", what.c_str());
  std::abort();
}

// Knows one file with its dictionary, and answers any sentence. It can halve the lines of requests, though
// not those that only let a transfer go on: whether one runs is told by the frames, and an input that could
// write the texts of those into an item isn't halved.
class FuzzEngine final : public ScriptedEngine {
 public:
  FuzzEngine(std::deque<std::string> lines, bool halves)
      : lines_(std::move(lines)),
        halves_(halves),
        last_(lines_.size() % 2 == 0 ? "EXIT</TXB>" : "<&PORT_DISCONNECT>") {
    for (int row = 1; row <= 44; ++row) File("F")[std::to_string(row)] = Dyn("a]b]c^" + std::to_string(row));
    File("F")[Dyn("1^2^3")] = "";
    File("DICT F") = {{"1", Dyn("A^1^One^^^^MD2^^R^5")},
                      {"2", Dyn("D^2^D4/^Two^10L")},
                      {"3", Dyn("I^MCU^^Three")},
                      {"A", Dyn("S^0^Id^^^^^CUSTOMA;1;:;2;*;0]MD2")}};
    Answer("WHO", "1 DEMO");
    Answer("SYSTEM DATASTORE", "MVON");
    Grid keys = NumberedKeys(44);
    keys.push_back({Dyn("1^2^3")});
    Answer("SELECT F", Dyn("x^y"), std::move(keys));
  }

  std::string answers;  // all that went out, without the frames that ask for more lines

  bool ReadInput(std::string& target, std::int32_t, bool, float) override {
    Require(++reads_ < kMostReads, "the conversation doesn't end");
    if (lines_.empty()) lines_.push_back(last_);
    target = lines_.front();
    lines_.pop_front();
    const bool isHalf = std::exchange(halfIsNext_, false);
    if (!halves_ || isHalf || inTransfer_ || target.find("&PORT") != std::string::npos) return true;
    const std::size_t half = std::min(FindInAnyCase(target, "</TXB>"), target.size()) / 2;
    lines_.push_front(target.substr(half));
    target.resize(half);
    halfIsNext_ = true;
    return true;
  }
  void WriteOutput(std::string_view text, bool lineEnd) override {
    const bool isPart = text == "<TXA>" || text == "</TXA>" || text == "<TXC>" || text == "</TXC>";
    Require(isPart || (text.starts_with("<TXA>") && text.ends_with("</TXA>")), std::string(text));
    if (text == "<TXA>ROWSET START</TXA>") inTransfer_ = true;
    if (text == "<TXA>ROWSET EXIT</TXA>" || text.starts_with("<TXA><ERROR>[914]")) inTransfer_ = false;
    if (text != "<TXA><NEXT></TXA>") answers.append(text).append(lineEnd ? "\n" : "|");
  }
  std::string ExecuteSentence(std::string_view sentence) override {
    const bool isPlanned = sentence == "WHO" || sentence == "SYSTEM DATASTORE" || sentence == "SELECT F";
    return isPlanned ? ScriptedEngine::ExecuteSentence(sentence) : Dyn("some^text");
  }
  VariantBool OpenFile(std::string_view name, std::string& fileVar) override {
    return name == "F" || name == "DICT F" ? ScriptedEngine::OpenFile(name, fileVar) : kFalse;
  }

 private:
  std::deque<std::string> lines_;
  bool halves_ = false;
  std::string last_;
  bool halfIsNext_ = false;
  bool inTransfer_ = false;
  int reads_ = 0;
};

std::string Converse(const std::deque<std::string>& lines, bool halves) {
  FuzzEngine engine(lines, halves);
  mv::Hooks().sendToClient = [&engine](std::string_view text) { engine.WriteOutput(text, true); };
  Session() = {};
  BP bp;
  bp.CallBack(&engine);
  bp.CmdSentence("NV.BACKSRV");
  try {
    bp.Query();
    Require(engine.answers.ends_with("<TXA><END></TXA>\n"), "ended without EXIT");
  } catch (const EngineFailure&) {
    Require(Session().Engine == nullptr, "ended with a port");
  } catch (const std::length_error&) {
    engine.answers += "the engine refused to write attribute sixteen million";
  }
  return engine.answers;
}

}  // namespace
}  // namespace nvadmin::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace nvadmin::test;
  const std::string input = Dyn({reinterpret_cast<const char*>(data), size});
  std::deque<std::string> lines;
  std::istringstream stream(input);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  const std::string whole = Converse(lines, /*halves=*/false);
  if (input.find("ROWSET ") != std::string::npos || input.find("[914]") != std::string::npos) return 0;
  const std::string halved = Converse(lines, /*halves=*/true);
  Require(whole == halved, whole + "--- in halves:\n" + halved);
  return 0;
}

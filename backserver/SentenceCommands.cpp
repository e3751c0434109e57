#include "backserver/SentenceCommands.h"

#include <algorithm>

#include "backserver/Frames.h"
#include "session/basNvFunctions.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

void KeepValue(ServerRun& run, std::string& value, std::string_view text) {
  value = text;
  SendFrame(run, {kDoneText});
}

// --- The words of EXECUTEPS ---

// The account is asked for afresh each time: it may have changed.
void SendAccount(ServerRun& run) { SendFrame(run, {EExecute("SYSTEM ACCOUNT")}); }
void SendWho(ServerRun& run) { SendFrame(run, {run.WhoText}); }

// Words that stand alone.
struct LoneWord {
  std::string_view word;
  void (*serve)(ServerRun& run);
};
constexpr LoneWord kLoneWords[] = {{"ACCOUNT", SendAccount}, {"WHO", SendWho}};

// Words behind SYSTEM: without a third word their value is sent, with one it is kept.
struct SystemWord {
  std::string_view word;
  std::string ServerRun::*value;
};
constexpr SystemWord kSystemWords[] = {{"USERINST", &ServerRun::UserInst},
                                       {"LOCKTIMEOUT", &ServerRun::LockTimeout}};

// The row of that word, letter case apart; the table's end when there is none.
template <typename Table>
auto FindWord(const Table& table, std::string_view word) {
  return std::find_if(std::begin(table), std::end(table),
                      [word](const auto& row) { return CCompare(word, "=", row.word); });
}

void ServeSystemWord(ServerRun& run, std::string_view sentence) {
  const auto found = FindWord(kSystemWords, FField(sentence, " ", 2));
  if (found == std::end(kSystemWords)) return;
  std::string& value = run.*found->value;
  const std::string given = FField(sentence, " ", 3);
  if (given.empty()) {
    SendFrame(run, {value});
  } else {
    KeepValue(run, value, given);
  }
}

}  // namespace

void ServeExecute(ServerRun& run) { EExecute(Argument(run, kFirstArgument)); }

void ServeTcl(ServerRun& run) {
  PPrint("<TXC>", /*lineEnd=*/false);
  EExecute(Argument(run, kFirstArgument));
  PPrint("</TXC>", /*lineEnd=*/true);
}

void ServeCapturing(ServerRun& run) { SendFrame(run, {EExecute(Argument(run, kFirstArgument))}); }

void RunExecutePs(ServerRun& run) {
  const std::string_view sentence = Argument(run, kFirstArgument);
  const auto found = FindWord(kLoneWords, sentence);
  if (found != std::end(kLoneWords)) return found->serve(run);
  if (CCompare(FField(sentence, " ", 1), "=", "SYSTEM")) return ServeSystemWord(run, sentence);

  PPrint(kFrameStart, /*lineEnd=*/false);
  EExecute(sentence);
  PPrint(kFrameEnd, /*lineEnd=*/false);
}

void ServePick(ServerRun& run) { KeepValue(run, run.PickMode, Argument(run, kFirstArgument)); }

void ServeFlavour(ServerRun& run) { KeepValue(run, run.Flavour, Argument(run, kFirstArgument)); }

void ServeUltPlus(ServerRun& run) {
  const std::string_view value = Argument(run, kFirstArgument);
  KeepValue(run, run.UltPlus, value.empty() ? "1" : value);
}

}  // namespace nvadmin

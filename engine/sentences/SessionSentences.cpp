// Sentences about the session itself: who it is, where it is, and how to go elsewhere.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <ctime>

#include "engine/query/Text.h"
#include "engine/query/Words.h"
#include "engine/sentences/Arguments.h"
#include "engine/sentences/Printout.h"
#include "engine/sentences/VerbGroups.h"

namespace nvadmin::engine {

namespace {

SentenceResult Who(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  if (!arguments.End()) return arguments.Refusal();
  return {true, fmt::format("{} {} {}", session.PortNumber(), session.CurrentAccount().name, session.User())};
}

SentenceResult ShowAccount(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  if (!arguments.End()) return arguments.Refusal();
  return {true, session.CurrentAccount().name};
}

SentenceResult ShowUser(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  int number = 0;
  if (!arguments.TakeNumber("number", 0, 0, number) || !arguments.End()) return arguments.Refusal();
  return {true, session.User()};
}

struct SystemWord {
  std::string_view word;
  std::string (*answer)(EngineSession& session);
};

constexpr std::array<SystemWord, 4> kSystemWords = {{
    {"DATASTORE", [](EngineSession& session) { return session.CurrentAccount().datastore; }},
    {"PATH", [](EngineSession& session) { return session.SystemHome().SystemPath(); }},
    {"ACCOUNT", [](EngineSession& session) { return session.CurrentAccount().name; }},
    {"USERINST", [](EngineSession& session) { return std::to_string(session.PortNumber()); }},
}};

SentenceResult ShowSystem(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  std::string_view word;
  if (!arguments.Take("word", word) || !arguments.End()) return arguments.Refusal();
  const auto row = std::find_if(kSystemWords.begin(), kSystemWords.end(),
                                [word](const SystemWord& known) { return SameWord(known.word, word); });
  if (row != kSystemWords.end()) return {true, row->answer(session)};
  return {false, fmt::format("SYSTEM knows nothing of {}; it is written: {}", Quoted(word),
                             FindVerb("SYSTEM")->usage)};
}

SentenceResult LogTo(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  std::string_view account;
  if (!arguments.Take("account", account) || !arguments.End()) return arguments.Refusal();
  std::string error;
  if (!session.EnterAccount(account, error)) return {false, error};
  return {true, "OK"};
}

SentenceResult ShowTime(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  if (!arguments.End()) return arguments.Refusal();
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char text[32];
  const std::size_t length = std::strftime(text, sizeof text, "%H:%M:%S %d %b %Y", &local);
  Printout printout(session);
  printout.Line(std::string_view(text, length));
  return printout.Done();
}

// The prompt ends the session by itself; here the word came in the middle of another sentence.
SentenceResult RefuseOff(EngineSession& /*session*/, std::string_view /*sentence*/) {
  return {false, "OFF works at the prompt only: end what is running first"};
}

constexpr std::array<Verb, 7> kVerbs = {{
    {"WHO", VerbKind::kAnswers, Who, "WHO", "Show the port number, the account and the user."},
    {"SYSTEM", VerbKind::kAnswers, ShowSystem, "SYSTEM DATASTORE | PATH | ACCOUNT | USERINST",
     "Show the kind of store, the home folder, the account or the session's number."},
    {"USER", VerbKind::kAnswers, ShowUser, "USER 0", "Show the user of this session."},
    {"ACCOUNT", VerbKind::kAnswers, ShowAccount, "ACCOUNT", "Show the account."},
    {"LOGTO", VerbKind::kAnswers, LogTo, "LOGTO account", "Go to another account."},
    {"TIME", VerbKind::kPrints, ShowTime, "TIME", "Show the time and the date."},
    {"OFF", VerbKind::kPrompt, RefuseOff, "OFF", "End the session."},
}};

}  // namespace

std::span<const Verb> SessionVerbs() { return kVerbs; }

}  // namespace nvadmin::engine

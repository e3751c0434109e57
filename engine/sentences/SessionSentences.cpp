// Sentences about the session itself: who it is, where it is, and how to go elsewhere.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <initializer_list>
#include <utility>

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

// As the machine's clock shows it.
std::string ShownTime(std::time_t moment, const char* form) {
  std::tm local{};
  localtime_r(&moment, &local);
  char text[32];
  return {text, std::strftime(text, sizeof text, form, &local)};
}

SentenceResult ShowTime(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  if (!arguments.End()) return arguments.Refusal();
  Printout printout(session);
  printout.Line(ShownTime(std::time(nullptr), "%H:%M:%S %d %b %Y"));
  return printout.Done();
}

std::string ShownSince(std::int64_t milliseconds) {
  return ShownTime(static_cast<std::time_t>(milliseconds / 1000), "%d %b %H:%M:%S");
}

// Cells side by side, each at least so many bytes wide: a byte of the code page is a character.
std::string ListRow(std::initializer_list<std::pair<std::string_view, std::size_t>> cells) {
  std::string row;
  std::size_t end = 0;
  for (const auto& [text, width] : cells) {
    row.resize(std::max(row.size(), end), ' ');
    if (!row.empty()) row += ' ';
    end = row.size() + width;
    row += text;
  }
  return row;
}

SentenceResult ListSessions(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  if (!arguments.End()) return arguments.Refusal();
  const auto row = [](std::string_view port, std::string_view user, std::string_view account,
                      std::string_view from, std::string_view since, std::string_view locks) {
    return ListRow({{port, 5}, {user, 13}, {account, 14}, {from, 22}, {since, 15}, {locks, 5}});
  };
  Printout printout(session);
  printout.Line(row(" Port", "User", "Account", "From", "Since", "Locks"));
  for (const ListedSession& listed : session.ItemLocks().AllSessions()) {
    const char mark = listed.number == session.PortNumber() ? '*' : ' ';
    printout.Line(row(fmt::format("{}{:4}", mark, listed.number), listed.user, listed.account, listed.from,
                      ShownSince(listed.since), fmt::format("{:5}", listed.locks)));
  }
  return printout.Done();
}

SentenceResult ListLocks(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  std::string file, table;
  const bool ofFile = !arguments.AtEnd();
  if (ofFile && (!arguments.TakeFile(file) || !arguments.End())) return arguments.Refusal();
  TableHandle handle = 0;
  std::string error;
  Store& store = session.CurrentStore();
  if (ofFile && !store.OpenTable(file, handle, error)) return {false, session.UnknownFile(file, error)};
  if (ofFile) table = store.Describe(handle).name;

  const auto isShown = [&](const ListedLock& lock) {
    return ofFile ? lock.account == session.CurrentAccount().name && lock.table == table
                  : session.MayEnter(lock.account);
  };
  const auto row = [](std::string_view account, std::string_view fileName, std::string_view id,
                      std::string_view holder, std::string_view since) {
    return ListRow({{account, 11}, {fileName, 13}, {id, 13}, {holder, 23}, {since, 15}});
  };
  Printout printout(session);
  std::size_t shown = 0;
  std::vector<std::string> unseen;
  for (const ListedLock& lock : session.ItemLocks().AllLocks(unseen)) {
    if (!isShown(lock)) continue;
    if (shown++ == 0) printout.Line(row("Account", "File", "Item ID", "Holder", "Since"));
    printout.Line(row(lock.account, lock.table, lock.id.value_or("(all)"),
                      fmt::format("{} at {}", lock.user, lock.from), ShownSince(lock.since)));
  }
  for (const std::string& reason : unseen) printout.Line(reason);
  if (shown == 0 && unseen.empty()) printout.Line("nothing is locked");
  return printout.Done();
}

// The prompt serves these by itself; here the word came in the middle of another sentence.
SentenceResult RefuseBesideOther(EngineSession& /*session*/, std::string_view sentence) {
  return {false,
          fmt::format("{} works at the prompt only: end what is running first", FindVerb(sentence)->word)};
}

constexpr std::array<Verb, 11> kVerbs = {{
    {"WHO", VerbKind::kAnswers, Who, "WHO", "Show the port number, the account and the user."},
    {"SYSTEM", VerbKind::kAnswers, ShowSystem, "SYSTEM DATASTORE | PATH | ACCOUNT | USERINST",
     "Show the kind of store, the home folder, the account or the session's number."},
    {"USER", VerbKind::kAnswers, ShowUser, "USER 0", "Show the user of this session."},
    {"ACCOUNT", VerbKind::kAnswers, ShowAccount, "ACCOUNT", "Show the account."},
    {"LOGTO", VerbKind::kAnswers, LogTo, "LOGTO account", "Go to another account."},
    {"TIME", VerbKind::kPrints, ShowTime, "TIME", "Show the time and the date."},
    {"LISTU", VerbKind::kPrints, ListSessions, "LISTU",
     "List the sessions: who, where, since when, with how many locks."},
    {"LIST-LOCKS", VerbKind::kPrints, ListLocks, "LIST-LOCKS [[DICT] file]",
     "List the locked items, of a file or of all accounts that you may enter."},
    {"MENU", VerbKind::kPrompt, RefuseBesideOther, "MENU", "Show the Admin Menu; needs a browser."},
    {"NV.BACKSRV", VerbKind::kPrompt, RefuseBesideOther, "NV.BACKSRV",
     "Serve a client program on this line until it sends EXIT."},
    {"OFF", VerbKind::kPrompt, RefuseBesideOther, "OFF", "End the session."},
}};

}  // namespace

std::span<const Verb> SessionVerbs() { return kVerbs; }

}  // namespace nvadmin::engine

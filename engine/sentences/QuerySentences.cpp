// The select family, which leaves its keys in the result grid, and the lists that are kept of it.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <array>

#include "engine/Marks.h"
#include "engine/query/RunQuery.h"
#include "engine/query/Words.h"
#include "engine/sentences/Arguments.h"
#include "engine/sentences/Printout.h"
#include "engine/sentences/Sql.h"
#include "engine/sentences/VerbGroups.h"

namespace nvadmin::engine {

namespace {

SentenceResult SelectItems(EngineSession& session, std::string_view sentence) {
  std::string reply;
  std::string error;
  const ResultGrid* list = session.ActiveListFor(sentence);
  const GridContents contents =
      session.WantsReportCells() ? GridContents::kKeysAndCells : GridContents::kKeys;
  if (!RunQuery(sentence, session.CurrentStore(), list, session.Grid(), reply, error, contents))
    return {false, error};
  return {true, reply};
}

// At the prompt the keys are for the next sentence, as those of the select verbs that the add-in serves.
SentenceResult SelectAndKeep(EngineSession& session, std::string_view sentence) {
  SentenceResult result = SelectItems(session, sentence);
  if (result.ok && session.IsTypedSentence(sentence)) session.KeepList();
  return result;
}

SentenceResult Select(EngineSession& session, std::string_view sentence) {
  return IsSql(sentence) ? RunSqlSentence(session, sentence) : SelectItems(session, sentence);
}

// Counts beside the grid, so that a list that is being walked stays.
SentenceResult Count(EngineSession& session, std::string_view sentence) {
  ResultGrid counted;
  std::string reply;
  std::string error;
  if (!RunQuery(sentence, session.CurrentStore(), session.ActiveListFor(sentence), counted, reply, error)) {
    return {false, std::move(error)};
  }
  Printout printout(session);
  printout.Line(Counted(counted.HighestRow(), "item") + " counted");
  return printout.Done();
}

SentenceResult SaveList(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  const bool isNamed = !arguments.AtEnd();
  std::string_view name;
  if (isNamed && (!arguments.Take("list", name) || !arguments.End())) return arguments.Refusal();

  const ResultGrid* list = isNamed && session.IsTypedSentence(sentence) ? session.KeptList() : nullptr;
  if (list == nullptr) list = &session.Grid();
  if (list->HighestColumn() < 0) return {false, "there is no list to save; SELECT makes one"};
  if (isNamed) {
    session.SystemHome().SaveList(session.CurrentAccount().name, name, *list);
  } else {
    session.KeepList();
  }
  return {true, "OK"};
}

SentenceResult UnknownList(EngineSession& session, std::string_view name) {
  const std::string& account = session.CurrentAccount().name;
  const std::vector<std::string> names = session.SystemHome().ListNames(account);
  constexpr std::size_t kMostNamed = 20;
  const auto shown = std::span(names).first(std::min(names.size(), kMostNamed));
  const std::string saved =
      names.empty() ? "none is; SAVE-LIST and a name saves one"
                    : fmt::format("saved {}: {}{}", names.size() == 1 ? "is" : "are", fmt::join(shown, ", "),
                                  names.size() > kMostNamed ? " ..." : "");
  return {false, fmt::format("list {} is not saved in account {}; {}", Quoted(name), account, saved)};
}

SentenceResult GetList(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  std::string_view name;
  if (!arguments.Take("list", name) || !arguments.End()) return arguments.Refusal();
  ResultGrid list;
  if (!session.SystemHome().LoadList(session.CurrentAccount().name, name, list))
    return UnknownList(session, name);
  session.Grid() = std::move(list);
  if (session.IsTypedSentence(sentence)) session.KeepList();
  const std::int32_t count = session.Grid().HighestRow();
  return {true, fmt::format("{}{}item {} in list {}", count, kAttributeMark, count == 1 ? "ID" : "IDs",
                            Quoted(name))};
}

SentenceResult DeleteList(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  std::string_view name;
  if (!arguments.Take("list", name) || !arguments.End()) return arguments.Refusal();
  if (!session.SystemHome().DeleteList(session.CurrentAccount().name, name))
    return UnknownList(session, name);
  Printout printout(session);
  printout.Line(fmt::format("list {} deleted", Quoted(name)));
  return printout.Done();
}

constexpr std::array<Verb, 10> kVerbs = {{
    {"LIST", VerbKind::kAddIn, SelectItems,
     "LIST [DICT] file ['id' ...] [WITH field [op] value ...] [BY field ...] [column ...] [ID-SUPP]",
     "Show items as a report."},
    {"SORT", VerbKind::kAddIn, SelectItems,
     "SORT [DICT] file ['id' ...] [WITH field [op] value ...] [BY field ...] [column ...] [ID-SUPP]",
     "Show items as a report, in order of their IDs or of BY fields."},
    {"SELECT", VerbKind::kAddIn, Select,
     "SELECT [DICT] file ['id' ...] [WITH field [op] value ...] [BY field ...], or an SQL SELECT ... FROM "
     "...",
     "Select items for the next sentence, or query tables in SQL."},
    {"SSELECT", VerbKind::kAddIn, SelectItems,
     "SSELECT [DICT] file ['id' ...] [WITH field [op] value ...] [BY field ...]",
     "Select items in order of their IDs or of BY fields."},
    {"PSELECT", VerbKind::kAddIn, SelectItems,
     "PSELECT [DICT] file ['id' ...] [WITH field [op] value ...] [BY field ...]",
     "Select items, as SELECT does."},
    {"QSELECT", VerbKind::kSelects, SelectAndKeep, "QSELECT [DICT] file id ['id' ...] [attribute]",
     "Select the values that stand in items; with a list, in its items."},
    {"COUNT", VerbKind::kPrints, Count, "COUNT [DICT] file ['id' ...] [WITH field [op] value ...]",
     "Count items."},
    {"SAVE-LIST", VerbKind::kAnswers, SaveList, "SAVE-LIST [name]",
     "Keep the selected list for the next sentence, or save it under a name."},
    {"GET-LIST", VerbKind::kSelects, GetList, "GET-LIST name", "Take a saved list for the next sentence."},
    {"DELETE-LIST", VerbKind::kPrints, DeleteList, "DELETE-LIST name", "Delete a saved list."},
}};

}  // namespace

std::span<const Verb> QueryVerbs() { return kVerbs; }

}  // namespace nvadmin::engine

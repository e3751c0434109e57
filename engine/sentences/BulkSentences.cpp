// Sentences about transfer files: what the last load did, and files of the account as a new one.
#include <fmt/format.h>

#include <array>
#include <vector>

#include "engine/BulkSave.h"
#include "engine/query/Words.h"
#include "engine/sentences/Arguments.h"
#include "engine/sentences/Printout.h"
#include "engine/sentences/VerbGroups.h"

namespace nvadmin::engine {

namespace {

constexpr std::string_view kEveryFile = "*";

SentenceResult ReportLoad(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  if (!arguments.End()) return arguments.Refusal();
  Printout printout(session);
  for (const std::string& line : session.LastLoad().Report()) printout.Line(line);
  return printout.Done();
}

// The tables to be saved, in the order of the sentence: of a file its dictionary first.
class Selection {
 public:
  explicit Selection(EngineSession& session) : session_(session), store_(session.CurrentStore()) {}

  // "file" takes its dictionary along, "DICT file" is that alone.
  bool Add(const std::string& file, std::string& error) {
    TableHandle table = 0;
    std::string why, ignored;
    if (!store_.OpenTable(file, table, why)) {
      error = session_.UnknownFile(file, why);
      return false;
    }
    const TableDescription& description = store_.Describe(table);
    if (description.layout == Layout::kBuiltIn) {
      error = fmt::format("file {} is built in; it is wherever its dictionary is", Quoted(file));
      return false;
    }
    TableHandle dictionary = 0;
    const bool hasDictionary = store_.OpenTable("DICT " + description.name, dictionary, ignored) &&
                               store_.Describe(dictionary).layout != Layout::kBuiltIn;
    if (hasDictionary) tables_.push_back(dictionary);
    tables_.push_back(table);
    return true;
  }

  bool AddAll(std::string& error) {
    for (const std::string& name : store_.TableNames(/*withDictionaries=*/true)) {
      TableHandle table = 0;
      if (!store_.OpenTable(name, table, error)) return false;
      tables_.push_back(table);
    }
    return true;
  }

  const std::vector<TableHandle>& Tables() const { return tables_; }

 private:
  EngineSession& session_;
  Store& store_;
  std::vector<TableHandle> tables_;
};

bool TakeFiles(Arguments& arguments, Selection& selection, SentenceResult& refusal) {
  if (arguments.TakeIf(kEveryFile)) {
    refusal.text = arguments.End() ? "" : arguments.Refusal().text;
    return refusal.text.empty() && selection.AddAll(refusal.text);
  }
  do {
    std::string file;
    if (!arguments.TakeFile(file)) {
      refusal = arguments.Refusal();
      return false;
    }
    if (!selection.Add(file, refusal.text)) return false;
  } while (!arguments.AtEnd());
  return true;
}

SavedTable SaveTable(BulkSave& save, EngineSession& session, TableHandle table, Printout& printout) {
  Store& store = session.CurrentStore();
  const std::string name = store.Describe(table).name;
  const bool keepsWholeItems =
      store.Describe(table).layout == Layout::kItem && !session.CurrentAccount().IsNative();
  const SavedTable saved = save.Add(store, table, keepsWholeItems, [&](std::int64_t items) {
    printout.Line(fmt::format("{}: {} so far", name, Counted(static_cast<std::size_t>(items), "item")));
  });
  printout.Line(fmt::format("{}: {}", name, Counted(static_cast<std::size_t>(saved.items), "item")));
  if (saved.tooLong > 0) {
    printout.Line(fmt::format("{}: tables made by a load take item IDs of {} characters at most; {} longer",
                              name, BulkSave::kLongestLoadedId,
                              saved.tooLong == 1 ? "1 is" : fmt::format("{} are", saved.tooLong)));
  }
  return saved;
}

SentenceResult SaveFiles(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  SentenceResult refusal{false, {}};
  std::string_view name;
  if (!arguments.Take("name of the transfer file", name)) return arguments.Refusal();
  if (!NewTransferFile::IsName(name, refusal.text)) return refusal;
  session.CommitWrites();
  Selection selection(session);
  if (!TakeFiles(arguments, selection, refusal)) return refusal;

  BulkSave save(BulkFolder(session.SystemHome()), name);
  for (const TableHandle table : selection.Tables()) {
    if (!save.CanAdd(session.CurrentStore().Describe(table), refusal.text)) return refusal;
  }
  Printout printout(session);
  std::int64_t leftOut = 0;
  for (const TableHandle table : selection.Tables())
    leftOut += SaveTable(save, session, table, printout).leftOut;
  const std::int64_t length = save.Finish();
  printout.Line(fmt::format("transfer file {} written, {} bytes", Quoted(name), length));
  if (leftOut == 0) return printout.Done();
  refusal.text = fmt::format(
      "the transfer file lacks {}: an item ID that begins like a line of the format, such "
      "as <FILE_DATA>, can't be carried",
      Counted(static_cast<std::size_t>(leftOut), "item"));
  return refusal;
}

constexpr std::array<Verb, 2> kVerbs = {{
    {"BULK-SAVE", VerbKind::kPrints, SaveFiles, "BULK-SAVE name [DICT] file ... | *",
     "Write files and their dictionaries to the transfer file of that name."},
    {"LOAD-REPORT", VerbKind::kPrints, ReportLoad, "LOAD-REPORT",
     "Show what the last load of a transfer file wrote and refused."},
}};

}  // namespace

std::span<const Verb> BulkVerbs() { return kVerbs; }

}  // namespace nvadmin::engine

// Sentences on whole files. A file that another session holds an item of is neither cleared nor deleted.
#include <fmt/format.h>

#include <array>

#include "engine/Marks.h"
#include "engine/query/Words.h"
#include "engine/sentences/Arguments.h"
#include "engine/sentences/Printout.h"
#include "engine/sentences/VerbGroups.h"

namespace nvadmin::engine {

namespace {

constexpr std::int32_t kDictionaryColumns = 15;
constexpr int kMostColumns = 10000;

// The dictionary of a file, or nothing for a file that is a dictionary itself or has none of its own.
bool FindDictionary(EngineSession& session, std::string_view file, std::string& dictionary) {
  if (file.starts_with("DICT ")) return false;
  dictionary = fmt::format("DICT {}", file);
  TableHandle table = 0;
  std::string error;
  Store& store = session.CurrentStore();
  return store.OpenTable(dictionary, table, error) && store.Describe(table).layout != Layout::kBuiltIn;
}

// A file that is to lose its items: while the claim lives no other session can lock or write one.
class FileClaim {
 public:
  explicit FileClaim(EngineSession& session) : session_(session) {}
  ~FileClaim() {
    if (table_.empty()) return;
    // What can't be released goes with the session.
    try {
      session_.ItemLocks().ReleaseTable(account_, table_);
    } catch (const StoreFailure&) {
    }
  }
  FileClaim(const FileClaim&) = delete;
  FileClaim& operator=(const FileClaim&) = delete;

  // False, with the reason, when the file isn't there or another session holds an item of it. What the
  // session holds itself is no hindrance, and is released with the claim.
  bool Take(std::string_view file, SentenceResult& refusal) {
    session_.CommitWrites();
    TableHandle table = 0;
    std::string error;
    refusal.ok = false;
    if (!session_.CurrentStore().OpenTable(file, table, error)) {
      refusal.text = session_.UnknownFile(file, error);
      return false;
    }
    const std::string name = session_.CurrentStore().Describe(table).name;
    account_ = session_.CurrentAccount().name;
    if (!session_.ItemLocks().TakeTable(account_, name, refusal.text)) return false;
    table_ = name;
    return true;
  }

 private:
  EngineSession& session_;
  std::string account_;
  std::string table_;  // empty: none claimed
};

SentenceResult ListFiles(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  if (!arguments.End()) return arguments.Refusal();
  const std::vector<std::string> names = session.CurrentStore().TableNames(/*withDictionaries=*/false);
  return {true, fmt::format("{}", fmt::join(names, std::string_view(&kAttributeMark, 1)))};
}

// Tells how the store made a file; a native one makes no columns.
void PrintCreated(Store& store, const std::string& file, Printout& printout) {
  TableHandle table = 0;
  std::string error;
  if (!store.OpenTable(file, table, error)) return printout.Line(error);
  const TableDescription& made = store.Describe(table);
  printout.Line(made.layout == Layout::kItem ? fmt::format("file {} created, an item a row", Quoted(file))
                                             : fmt::format("file {} created with {}", Quoted(file),
                                                           Counted(made.limits.size() - 1, "column")));
}

SentenceResult CreateFile(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  std::string file, dictionary;
  int columns = 0;
  if (!arguments.TakeFile(file)) return arguments.Refusal();
  const bool hasColumns = !arguments.AtEnd();
  if (hasColumns && !arguments.TakeNumber("number of columns", 1, kMostColumns, columns))
    return arguments.Refusal();
  if (!arguments.End()) return arguments.Refusal();

  const bool isDictionary = file.starts_with("DICT ");
  if (isDictionary && !hasColumns) columns = kDictionaryColumns;
  session.CommitWrites();
  SentenceResult result{false, {}};
  Store& store = session.CurrentStore();
  if (!store.CreateTable(file, columns, result.text)) return result;

  Printout printout(session);
  PrintCreated(store, file, printout);
  if (isDictionary) return printout.Done();
  if (FindDictionary(session, file, dictionary)) {
    printout.Line(fmt::format("file {} was there already and stays", Quoted(dictionary)));
    return printout.Done();
  }
  if (!store.CreateTable(dictionary, kDictionaryColumns, result.text)) {
    result.text = fmt::format("the file was created, its dictionary was not: {}", result.text);
    return result;
  }
  PrintCreated(store, dictionary, printout);
  return printout.Done();
}

SentenceResult ClearFile(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  std::string file;
  if (!arguments.TakeFile(file) || !arguments.End()) return arguments.Refusal();
  SentenceResult refusal;
  FileClaim claim(session);
  if (!claim.Take(file, refusal)) return refusal;
  if (!session.CurrentStore().ClearTable(file, refusal.text)) return refusal;
  Printout printout(session);
  printout.Line(fmt::format("file {} cleared", Quoted(file)));
  return printout.Done();
}

SentenceResult DeleteFile(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  std::string file, dictionary;
  if (!arguments.TakeFile(file) || !arguments.End()) return arguments.Refusal();
  const bool hasDictionary = FindDictionary(session, file, dictionary);
  SentenceResult refusal;
  FileClaim claim(session), dictionaryClaim(session);
  if (!claim.Take(file, refusal)) return refusal;
  if (hasDictionary && !dictionaryClaim.Take(dictionary, refusal)) return refusal;

  Store& store = session.CurrentStore();
  if (!store.DropTable(file, refusal.text)) return refusal;
  Printout printout(session);
  printout.Line(fmt::format("file {} deleted", Quoted(file)));
  // A store may have dropped the dictionary with its file.
  if (!FindDictionary(session, file, dictionary)) return printout.Done();
  if (!store.DropTable(dictionary, refusal.text)) return refusal;
  printout.Line(fmt::format("file {} deleted", Quoted(dictionary)));
  return printout.Done();
}

constexpr std::array<Verb, 4> kVerbs = {{
    {"LISTF", VerbKind::kAnswers, ListFiles, "LISTF", "List the files of the account."},
    {"CREATE-FILE", VerbKind::kPrints, CreateFile, "CREATE-FILE [DICT] file [columns]",
     "Make a file and its dictionary, with a column for so many attributes."},
    {"DELETE-FILE", VerbKind::kPrints, DeleteFile, "DELETE-FILE [DICT] file",
     "Delete a file and its dictionary."},
    {"CLEAR-FILE", VerbKind::kPrints, ClearFile, "CLEAR-FILE [DICT] file", "Delete all items of a file."},
}};

}  // namespace

std::span<const Verb> FileVerbs() { return kVerbs; }

}  // namespace nvadmin::engine

#include "engine/stores/NativeStore.h"

#include <fmt/format.h>

#include <algorithm>

#include "engine/stores/StoredText.h"

namespace nvadmin::engine {

namespace {

constexpr std::int64_t kApplicationId = 0x4E764D76;  // "NvMv", in the file's head
constexpr std::size_t kLongestItem = 900'000'000;    // with its ID below SQLite's limit of a row
constexpr std::string_view kDictionaryKey = "dict ";

// `key` is the name's folded form, `mapped` the one that it has in a relational account.
constexpr const char* kMakeCatalogue =
    "CREATE TABLE files (number INTEGER PRIMARY KEY AUTOINCREMENT, name BLOB NOT NULL, key BLOB NOT NULL "
    "UNIQUE, mapped BLOB NOT NULL);"
    "CREATE INDEX files_by_mapped ON files (mapped)";

// First words that say what a statement does only together with their second.
constexpr std::string_view kOpeningWords[] = {"CREATE", "DROP", "ALTER", "INSERT", "REPLACE", "DELETE"};

// "SELECT", "CREATE INDEX": how a refusal names a statement.
std::string NameStatement(const std::vector<SqlToken>& tokens) {
  const bool opens = std::any_of(std::begin(kOpeningWords), std::end(kOpeningWords),
                                 [&](std::string_view word) { return IsSqlWord(tokens[0], word); });
  const bool hasSecond = opens && tokens.size() > 1 && tokens[1].kind == SqlTokenKind::kWord;
  std::string name(tokens[0].text);
  if (hasSecond) name.append(" ").append(tokens[1].text);
  std::transform(name.begin(), name.end(), name.begin(), [](char letter) {
    return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 32) : letter;
  });
  return name;
}

}  // namespace

std::string NativeStore::CataloguedFile::Table() const { return fmt::format("main.file_{}", number); }

NativeStore::NativeStore(const std::filesystem::path& file, std::string_view account)
    : ItemTables(file, account,
                 {.noun = "a native account",
                  .applicationId = kApplicationId,
                  .keepsBytes = true,
                  .longestItem = kLongestItem,
                  .makeCatalogue = kMakeCatalogue}),
      findByKey_(Connection(), "SELECT number, name FROM files WHERE key = ?1"),
      findByMapped_(Connection(), "SELECT key, name FROM files WHERE mapped = ?1 ORDER BY name LIMIT 2"),
      listFiles_(Connection(), "SELECT key, name FROM files ORDER BY name"),
      insert_(Connection(), "INSERT INTO files (name, key, mapped) VALUES (?1, ?2, ?3) RETURNING number"),
      erase_(Connection(), "DELETE FROM files WHERE number = ?1") {}

// ---- Names

bool NativeStore::FindByKey(std::string_view key, CataloguedFile& file) {
  const ResetAtEnd reset(findByKey_);
  findByKey_.BindBlob(1, key);
  if (!findByKey_.Step()) return false;
  file.number = findByKey_.Integer(0);
  file.name = StoredColumn(findByKey_.Handle(), 1).bytes;
  return true;
}

// The files of which a name is the mapped form, two at most. A file that is there under its own name never
// has the dictionary of another.
std::vector<ItemTables::TableKey> NativeStore::FindMapped(const NativeName& read) {
  const std::string folded = FoldTableName(read.owner);
  const bool mayBeMapped = read.dictionaryOf <= 2 && MapTableName(read.owner) == folded;
  CataloguedFile owner;
  if (!mayBeMapped || FindByKey(folded, owner)) return {};

  // The dictionary of a dictionary isn't in the catalogue: it follows from the dictionary.
  const bool isBuiltIn = read.dictionaryOf == 2;
  const std::string mapped = folded + (read.dictionaryOf > 0 ? "_dict" : "");
  const ResetAtEnd reset(findByMapped_);
  findByMapped_.BindBlob(1, mapped);
  std::vector<TableKey> found;
  while (findByMapped_.Step()) {
    TableKey& file = found.emplace_back();
    file.key = StoredColumn(findByMapped_.Handle(), 0).bytes;
    file.shown = StoredColumn(findByMapped_.Handle(), 1).bytes;
    if (isBuiltIn) file = {std::string(kDictionaryKey) + file.key, "DICT " + file.shown};
  }
  return found;
}

// The name itself, and the one file of which it is the mapped form.
std::vector<ItemTables::TableKey> NativeStore::KeysOf(std::string_view name) {
  const NativeName read = ReadNativeName(name);
  std::vector<TableKey> keys = {{read.Key(), read.Shown()}};
  std::vector<TableKey> mapped = FindMapped(read);
  if (mapped.size() == 1 && mapped[0].key != keys[0].key) keys.push_back(std::move(mapped[0]));
  return keys;
}

std::string NativeStore::NoSuchTable(std::string_view name) {
  const std::vector<TableKey> mapped = FindMapped(ReadNativeName(name));
  if (mapped.size() < 2) return ItemTables::NoSuchTable(name);
  return fmt::format("{} could be {} or {}", name, mapped[0].shown, mapped[1].shown);
}

bool NativeStore::FindTable(const std::string& key, FoundTable& found) {
  CataloguedFile file;
  TableDescription& description = found.description;
  if (FindByKey(key, file)) {
    description.layout = Layout::kItem;
    description.limits = {0, 0};
    description.name = file.name;
    found.sqlName = file.Table();
    return true;
  }
  const std::string_view described =
      std::string_view(key).substr(std::min(key.size(), kDictionaryKey.size()));
  const bool isBuiltIn =
      key.starts_with(kDictionaryKey) && described.starts_with(kDictionaryKey) && FindByKey(described, file);
  if (!isBuiltIn) return false;
  description.layout = Layout::kBuiltIn;
  description.name = "DICT " + file.name;
  return true;
}

std::vector<std::string> NativeStore::TableNames(bool withDictionaries) {
  std::vector<std::string> names;
  while (listFiles_.Step()) {
    const bool isDictionary = StoredColumn(listFiles_.Handle(), 0).bytes.starts_with(kDictionaryKey);
    if (withDictionaries || !isDictionary) names.emplace_back(StoredColumn(listFiles_.Handle(), 1).bytes);
  }
  return names;
}

bool NativeStore::FindByName(std::string_view name, CataloguedFile& file) {
  const std::vector<TableKey> keys = KeysOf(name);
  return std::any_of(keys.begin(), keys.end(), [&](const TableKey& key) { return FindByKey(key.key, file); });
}

bool NativeStore::FindExisting(std::string_view name, CataloguedFile& file, std::string& error) {
  if (FindByName(name, file)) return true;
  const NativeName read = ReadNativeName(name);
  error = read.dictionaryOf == 2 ? BuiltInRefusal(read.Shown()) : NoSuchTable(read.Shown());
  return false;
}

// ---- Files

// Runs a change of files as one transaction, on disk afterwards. When it answers false nothing has changed.
bool NativeStore::ChangeFiles(const std::function<bool()>& change) {
  Commit();
  bool isDone = false;
  try {
    WriteTransaction transaction(Connection());
    isDone = change();
    if (isDone) transaction.Commit();
  } catch (const StoreFailure&) {
    ForgetTables();  // SQLite may have met a new schema before it failed
    throw;
  }
  SchemaChanged();
  return isDone;
}

bool NativeStore::CreateTable(std::string_view name, std::int32_t /*columns*/, std::string& error) {
  return ChangeFiles([&] { return AddFile(ReadNativeName(name), error); });
}

bool NativeStore::MakeTable(const NewTable& table, std::string& error) {
  return CreateTable(table.name, /*columns=*/0, error);
}

// A dictionary takes the spelling of its file.
bool NativeStore::AddFile(NativeName name, std::string& error) {
  if (!IsFileName(name.owner, error)) return false;
  if (name.dictionaryOf > 1) {
    error = BuiltInRefusal(name.Shown());
    return false;
  }
  CataloguedFile existing;
  const std::string asGiven = name.Shown();
  if (name.dictionaryOf == 1 && FindByName(name.owner, existing)) name.owner = existing.name;
  if (FindByName(asGiven, existing) || FindByKey(name.Key(), existing)) {
    error = fmt::format("{} is there already", asGiven);
    if (existing.name != asGiven) error += fmt::format(", as {}", existing.name);
    return false;
  }
  const std::string shown = name.Shown();
  const std::string key = name.Key();
  const std::string mapped = MapTableName(shown);
  insert_.BindBlob(1, shown).BindBlob(2, key).BindBlob(3, mapped);
  CataloguedFile added;
  insert_.Step();
  added.number = insert_.Integer(0);
  insert_.Reset();
  Connection().Execute(
      fmt::format("CREATE TABLE {} (A0 BLOB NOT NULL PRIMARY KEY, ITEM BLOB NOT NULL)", added.Table())
          .c_str());
  return true;
}

bool NativeStore::DropTable(std::string_view name, std::string& error) {
  return ChangeFiles([&] {
    CataloguedFile file;
    if (!FindExisting(name, file, error)) return false;
    erase_.BindInteger(1, file.number).Run();
    Connection().Execute(("DROP TABLE " + file.Table()).c_str());
    return true;
  });
}

bool NativeStore::ClearTable(std::string_view name, std::string& error) {
  return ChangeFiles([&] {
    CataloguedFile file;
    if (!FindExisting(name, file, error)) return false;
    Connection().Execute(("DELETE FROM " + file.Table()).c_str());
    return true;
  });
}

// ---- SQL

bool NativeStore::DropIfThere(std::string_view candidate, bool& isThere, std::string& error) {
  CataloguedFile file;
  isThere = FindByName(candidate, file);
  return isThere && DropTable(candidate, error);
}

bool NativeStore::RunOtherSql(std::string_view /*statement*/, const std::vector<SqlToken>& tokens,
                              ResultGrid& /*grid*/, bool& /*isQuery*/, std::string& /*message*/,
                              std::string& error) {
  error = SqlRefusal(NameStatement(tokens),
                     fmt::format("the files of account {} are no tables, and of SQL it takes the CREATE "
                                 "TABLE and DROP TABLE of a file alone; LIST and SELECT show and find items",
                                 AccountName()));
  return false;
}

}  // namespace nvadmin::engine

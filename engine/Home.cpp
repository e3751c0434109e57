#include "engine/Home.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <system_error>

#include "engine/CodePage.h"
#include "engine/stores/Sqlite.h"

namespace nvadmin::engine {

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::milliseconds kPatience{10'000};
constexpr std::size_t kLongestName = 64;
constexpr mode_t kFolderMode = 0700;

// Tells a catalogue of ours from any other database; the version is that of the tables below.
constexpr std::int64_t kApplicationId = 0x4E764164;
constexpr std::int64_t kCatalogueVersion = 2;
constexpr const char* kMakeTables =
    "CREATE TABLE accounts(name TEXT PRIMARY KEY NOT NULL, datastore TEXT NOT NULL, store TEXT NOT NULL,"
    " synchronous TEXT NOT NULL DEFAULT 'FULL') WITHOUT ROWID;"
    "CREATE TABLE lists(account TEXT NOT NULL, name TEXT NOT NULL, keys BLOB NOT NULL,"
    " PRIMARY KEY(account, name));"
    "PRAGMA application_id = 1316372836;"
    "PRAGMA user_version = 2;";
// From version 1, which had no such setting.
constexpr const char* kBringUpToDate =
    "ALTER TABLE accounts ADD COLUMN synchronous TEXT NOT NULL DEFAULT 'FULL';"
    "PRAGMA user_version = 2;";
static_assert(kApplicationId == 1316372836);

constexpr const char* kHowToMake = "make one with 'nvadmin demo' or 'nvadmin account add'";
constexpr std::string_view kDatastores[] = {"JET", "MSSQL", "MYSQL", "ORACLE"};
constexpr std::string_view kNativeDatastore = "MV";
constexpr const char* kSubfolders[] = {"accounts", "TransferItem", "TransferBulk"};

std::string SystemReason(int number) { return std::generic_category().message(number); }
std::string PathText(const fs::path& path) { return ForeignText(path.native()); }

std::string UpperCase(std::string_view text) {
  std::string upper(text);
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return upper;
}

bool IsLetterOrDigit(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

bool IsName(std::string_view text) {
  const auto fits = [](char c) { return IsLetterOrDigit(c) || c == '_' || c == '-' || c == '.'; };
  return !text.empty() && text.size() <= kLongestName && IsLetterOrDigit(text.front()) &&
         std::all_of(text.begin(), text.end(), fits);
}

bool IsDatastore(std::string_view word) {
  return std::find(std::begin(kDatastores), std::end(kDatastores), word) != std::end(kDatastores) ||
         (IsName(word) && word.starts_with(kNativeDatastore));
}

// The form under which the home keeps its folder: absolute, without a separator at its end.
fs::path PlainFolder(const fs::path& folder) {
  const fs::path plain = fs::absolute(folder).lexically_normal();
  return plain.has_filename() || !plain.has_relative_path() ? plain : plain.parent_path();
}

std::string PathInCodePage(const fs::path& folder) {
  std::string path;
  std::string refused;
  if (!FromUtf8(folder.native(), path, refused)) {
    throw EngineFailure(fmt::format(
        "{} can't be a system home: its name has {}, which the code page Windows-1252 doesn't know; "
        "choose another folder with --home",
        PathText(folder), ForeignText(refused)));
  }
  if (!path.ends_with('/')) path += '/';
  return path;
}

bool IsFolder(const fs::path& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

void MakeFolder(const fs::path& folder) {
  if (mkdir(folder.c_str(), kFolderMode) == 0) return;
  const int number = errno;
  if (number == EEXIST && IsFolder(folder)) return;
  throw EngineFailure(fmt::format("the folder {} can't be made ({}); choose another with --home",
                                  PathText(folder), SystemReason(number == EEXIST ? ENOTDIR : number)));
}

void MakeParents(const fs::path& folder) {
  std::error_code error;
  fs::create_directories(folder.parent_path(), error);
  if (!error) return;
  throw EngineFailure(fmt::format("the folder {} can't be made ({}); choose another with --home",
                                  PathText(folder.parent_path()), error.message()));
}

// Whoever makes a home holds its folder for that time, so that nobody completes what another is making.
class FolderHold {
 public:
  explicit FolderHold(const fs::path& folder)
      : handle_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    while (handle_ >= 0 && flock(handle_, LOCK_EX) != 0) {
      if (errno == EINTR) continue;
      Fail(folder, errno);
    }
    if (handle_ < 0) Fail(folder, errno);
  }
  ~FolderHold() { close(handle_); }
  FolderHold(const FolderHold&) = delete;
  FolderHold& operator=(const FolderHold&) = delete;

 private:
  [[noreturn]] void Fail(const fs::path& folder, int number) {
    if (handle_ >= 0) close(handle_);
    throw EngineFailure(fmt::format("the folder {} can't be opened ({}); give this user all rights for it",
                                    PathText(folder), SystemReason(number)));
  }

  int handle_;
};

std::int64_t NumberOf(Database& database, std::string_view query) {
  Statement statement(database, query);
  ResetAtEnd reset(statement);
  return statement.Step() ? statement.Integer(0) : 0;
}

enum class CatalogueKind { kOurs, kEmpty, kForeign };

CatalogueKind KindOf(Database& catalogue) {
  const std::int64_t id = NumberOf(catalogue, "PRAGMA application_id");
  if (id == kApplicationId) return CatalogueKind::kOurs;
  const bool empty = id == 0 && NumberOf(catalogue, "SELECT count(*) FROM sqlite_schema") == 0;
  return empty ? CatalogueKind::kEmpty : CatalogueKind::kForeign;
}

[[noreturn]] void RefuseForeign(const fs::path& file) {
  throw EngineFailure(
      fmt::format("{} is no catalogue of this system; choose another folder with --home", PathText(file)));
}

// Brings an older catalogue up to date; refuses one of a newer program.
void RequireVersion(Database& catalogue, const fs::path& file) {
  if (NumberOf(catalogue, "PRAGMA user_version") == kCatalogueVersion) return;
  WriteTransaction transaction(catalogue);
  const std::int64_t version = NumberOf(catalogue, "PRAGMA user_version");
  if (version == kCatalogueVersion) return;
  if (version == 1) {
    catalogue.Execute(kBringUpToDate);
    return transaction.Commit();
  }
  throw EngineFailure(
      fmt::format("{} has version {} and this program knows version {}; use the program that made it",
                  PathText(file), version, kCatalogueVersion));
}

void RequireHomeFolder(const fs::path& folder) {
  struct stat status;
  const int number = stat(folder.c_str(), &status) == 0 ? 0 : errno;
  if (number == ENOENT) {
    throw EngineFailure(fmt::format("there is no system home at {}; {}", PathText(folder), kHowToMake));
  }
  if (number == 0 && !S_ISDIR(status.st_mode)) {
    throw EngineFailure(fmt::format("{} is no folder; choose a system home with --home", PathText(folder)));
  }
  if (number != 0 || access(folder.c_str(), R_OK | W_OK | X_OK) != 0) {
    throw EngineFailure(
        fmt::format("the system home {} can't be used ({}); give this user all rights for the folder",
                    PathText(folder), SystemReason(number != 0 ? number : errno)));
  }
}

// The keys of a list in the form in which the catalogue keeps them, each as "LENGTH:KEY,": any byte may stand
// in a key.
std::string PackKeys(const ResultGrid& grid) {
  std::string packed;
  for (std::int32_t row = 1; row <= grid.HighestRow(); ++row) {
    const std::string_view key = grid.Cell(0, row);
    char length[20];
    const auto written = std::to_chars(std::begin(length), std::end(length), key.size());
    packed.append(length, written.ptr);
    packed += ':';
    packed += key;
    packed += ',';
  }
  return packed;
}

// False when `packed` isn't whole.
bool UnpackKeys(std::string_view packed, ResultGrid& grid) {
  grid.Start(1);
  while (!packed.empty()) {
    std::size_t length = 0;
    const char* const end = packed.data() + packed.size();
    const auto read = std::from_chars(packed.data(), end, length);
    const auto room = static_cast<std::size_t>(end - read.ptr);
    if (read.ec != std::errc() || room < 2 || length > room - 2 || *read.ptr != ':' ||
        read.ptr[length + 1] != ',') {
      return false;
    }
    grid.AppendCell({read.ptr + 1, length});
    packed.remove_prefix(static_cast<std::size_t>(read.ptr + length + 2 - packed.data()));
  }
  return true;
}

constexpr std::string_view WordOf(Synchronous synchronous) {
  return synchronous == Synchronous::kNormal ? "NORMAL" : "FULL";
}

// Catalogue text is UTF-8 in the file, the code page here.
Account AccountOf(const Statement& row) {
  return {ForeignText(row.Text(0)), ForeignText(row.Text(1)), ForeignText(row.Text(2)),
          row.Text(3) == WordOf(Synchronous::kNormal) ? Synchronous::kNormal : Synchronous::kFull};
}

}  // namespace

struct Home::Catalogue {
  explicit Catalogue(const fs::path& path) : file(path), database(path, OpenMode::kExisting, kPatience) {}

  std::optional<Account> FindAccount(std::string_view name) {
    Statement statement(database, "SELECT name, datastore, store, synchronous FROM accounts WHERE name = ?1");
    const std::string key = ToUtf8(UpperCase(name));
    ResetAtEnd reset(statement);
    if (!statement.BindText(1, key).Step()) return std::nullopt;
    return AccountOf(statement);
  }

  fs::path file;
  std::mutex mutex;  // held by every routine of the home that uses the database
  Database database;
};

fs::path Home::DefaultFolder() {
  // The environment's rules: a relative XDG_DATA_HOME counts as none.
  const char* data = std::getenv("XDG_DATA_HOME");
  if (data != nullptr && *data == '/') return fs::path(data) / "nvadmin";
  const char* user = std::getenv("HOME");
  if (user != nullptr && *user != '\0') return fs::path(user) / ".local/share/nvadmin";
  throw EngineFailure("no system home: neither XDG_DATA_HOME nor HOME is set; choose a folder with --home");
}

Home::Home(const fs::path& folder) : folder_(PlainFolder(folder)), systemPath_(PathInCodePage(folder_)) {
  RequireHomeFolder(folder_);
  const fs::path file = folder_ / "catalogue.sqlite";
  if (access(file.c_str(), F_OK) != 0 && errno == ENOENT) {
    throw EngineFailure(
        fmt::format("{} is no system home, it has no catalogue.sqlite; {}", PathText(folder_), kHowToMake));
  }
  catalogue_ = std::make_unique<Catalogue>(file);
  Database& database = catalogue_->database;
  switch (KindOf(database)) {
    case CatalogueKind::kOurs:
      RequireVersion(database, file);
      break;
    case CatalogueKind::kEmpty:
      throw EngineFailure(
          fmt::format("the system home {} isn't complete; complete it with 'nvadmin demo' or "
                      "'nvadmin account add'",
                      PathText(folder_)));
    case CatalogueKind::kForeign:
      RefuseForeign(file);
  }
  database.Execute("PRAGMA synchronous = FULL");
}

Home::~Home() = default;

void Home::Make(const fs::path& folder) {
  const fs::path home = PlainFolder(folder);
  PathInCodePage(home);
  MakeParents(home);
  MakeFolder(home);
  const FolderHold hold(home);
  for (const char* subfolder : kSubfolders) MakeFolder(home / subfolder);

  const fs::path file = home / "catalogue.sqlite";
  Database catalogue(file, OpenMode::kMake, kPatience);
  catalogue.Execute("PRAGMA synchronous = FULL");
  switch (KindOf(catalogue)) {
    case CatalogueKind::kOurs:
      RequireVersion(catalogue, file);
      return;
    case CatalogueKind::kForeign:
      RefuseForeign(file);
    case CatalogueKind::kEmpty:
      break;
  }
  // The mode is set before the tables: a catalogue that has its tables is complete.
  catalogue.Execute("PRAGMA journal_mode = WAL");
  WriteTransaction transaction(catalogue);
  catalogue.Execute(kMakeTables);
  transaction.Commit();
}

fs::path Home::LocksFile() const { return folder_ / "locks.sqlite"; }

fs::path Home::DatabaseFile(const Account& account) const {
  return folder_ / "accounts" / (account.name + ".sqlite");
}

fs::path Home::PasswordFile(const Account& account) const {
  return folder_ / "accounts" / (account.name + ".password");
}

std::vector<Account> Home::Accounts() const {
  const std::lock_guard guard(catalogue_->mutex);
  Statement statement(catalogue_->database,
                      "SELECT name, datastore, store, synchronous FROM accounts ORDER BY name");
  std::vector<Account> accounts;
  while (statement.Step()) accounts.push_back(AccountOf(statement));
  return accounts;
}

std::optional<Account> Home::FindAccount(std::string_view name) const {
  const std::lock_guard guard(catalogue_->mutex);
  return catalogue_->FindAccount(name);
}

bool Home::AddAccount(const Account& account, std::string& error) {
  if (!IsName(account.name)) {
    error = fmt::format(
        "'{}' can't be an account name; use 1 to {} letters, digits, '_', '-' and '.', the first a "
        "letter or digit",
        account.name, kLongestName);
    return false;
  }
  const std::string datastore = UpperCase(account.datastore);
  if (!IsDatastore(datastore)) {
    error = fmt::format("'{}' is no datastore word; use {} or a word that begins with {}", account.datastore,
                        fmt::join(kDatastores, ", "), kNativeDatastore);
    return false;
  }

  const std::string name = UpperCase(account.name);
  const std::string store = ToUtf8(account.store);
  const std::lock_guard guard(catalogue_->mutex);
  Statement insert(catalogue_->database,
                   "INSERT INTO accounts(name, datastore, store, synchronous) VALUES(?1, ?2, ?3, ?4)"
                   " ON CONFLICT DO NOTHING");
  insert.BindText(1, name).BindText(2, datastore).BindText(3, store);
  insert.BindText(4, WordOf(account.synchronous)).Run();
  if (catalogue_->database.Changes() == 1) return true;
  error = fmt::format("there is an account {} already; choose another name, or remove it first", name);
  return false;
}

bool Home::SetSynchronous(std::string_view name, Synchronous synchronous) {
  const std::string key = ToUtf8(UpperCase(name));
  const std::lock_guard guard(catalogue_->mutex);
  Statement update(catalogue_->database, "UPDATE accounts SET synchronous = ?2 WHERE name = ?1");
  update.BindText(1, key).BindText(2, WordOf(synchronous)).Run();
  return catalogue_->database.Changes() == 1;
}

bool Home::RemoveAccount(std::string_view name) {
  const std::lock_guard guard(catalogue_->mutex);
  Database& database = catalogue_->database;
  WriteTransaction transaction(database);
  const std::optional<Account> account = catalogue_->FindAccount(name);
  if (!account) return false;
  Statement(database, "DELETE FROM lists WHERE account = ?1").BindText(1, account->name).Run();
  Statement(database, "DELETE FROM accounts WHERE name = ?1").BindText(1, account->name).Run();

  // The files go before the catalogue forgets them: an account added later never finds another's data.
  if (account->store.empty()) RemoveDatabase(DatabaseFile(*account));
  std::error_code ignored;
  fs::remove(PasswordFile(*account), ignored);
  transaction.Commit();
  return true;
}

void Home::SaveList(std::string_view account, std::string_view name, const ResultGrid& grid) {
  const std::string accountName = UpperCase(account);
  const std::string utf8Name = ToUtf8(name);
  const std::string keys = PackKeys(grid);
  const std::lock_guard guard(catalogue_->mutex);
  Statement insert(catalogue_->database,
                   "INSERT INTO lists(account, name, keys) SELECT name, ?2, ?3 FROM accounts WHERE name = ?1"
                   " ON CONFLICT(account, name) DO UPDATE SET keys = excluded.keys");
  insert.BindText(1, accountName).BindText(2, utf8Name).BindBlob(3, keys).Run();
  if (catalogue_->database.Changes() == 1) return;
  throw EngineFailure(fmt::format("the list {} can't be saved: there is no account {} in {}", name, account,
                                  PathText(catalogue_->file)));
}

bool Home::LoadList(std::string_view account, std::string_view name, ResultGrid& grid) const {
  const std::string accountName = UpperCase(account);
  const std::string utf8Name = ToUtf8(name);
  const std::lock_guard guard(catalogue_->mutex);
  Statement statement(catalogue_->database, "SELECT keys FROM lists WHERE account = ?1 AND name = ?2");
  ResetAtEnd reset(statement);
  if (!statement.BindText(1, accountName).BindText(2, utf8Name).Step()) return false;
  ResultGrid loaded;
  if (!UnpackKeys(statement.Text(0), loaded)) {
    throw EngineFailure(fmt::format("the list {} of account {} in {} is damaged; delete it and save it anew",
                                    name, account, PathText(catalogue_->file)));
  }
  grid = std::move(loaded);
  return true;
}

bool Home::DeleteList(std::string_view account, std::string_view name) {
  const std::string accountName = UpperCase(account);
  const std::string utf8Name = ToUtf8(name);
  const std::lock_guard guard(catalogue_->mutex);
  Statement statement(catalogue_->database, "DELETE FROM lists WHERE account = ?1 AND name = ?2");
  statement.BindText(1, accountName).BindText(2, utf8Name).Run();
  return catalogue_->database.Changes() > 0;
}

std::vector<std::string> Home::ListNames(std::string_view account) const {
  const std::string accountName = UpperCase(account);
  const std::lock_guard guard(catalogue_->mutex);
  Statement statement(catalogue_->database, "SELECT name FROM lists WHERE account = ?1");
  statement.BindText(1, accountName);
  std::vector<std::string> names;
  while (statement.Step()) names.push_back(ForeignText(statement.Text(0)));
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace nvadmin::engine

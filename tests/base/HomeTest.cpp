// The system home: making it, alone and with others; what it refuses; accounts and saved lists.
#include "engine/Home.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <set>
#include <thread>

#include "engine/stores/Sqlite.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::engine {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

using Texts = std::vector<std::string>;

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

ResultGrid ListOf(const Texts& keys) {
  ResultGrid grid;
  grid.Start(1);
  for (const std::string& key : keys) grid.AppendCell(key);
  return grid;
}

// The keys of a saved list. One that isn't there leaves the grid alone.
Texts KeysOf(const Home& home, std::string_view account, std::string_view list) {
  ResultGrid grid = ListOf({"no list"});
  const bool isThere = home.LoadList(account, list, grid);
  Texts keys;
  for (std::int32_t row = 1; row <= grid.HighestRow(); ++row) keys.emplace_back(grid.Cell(0, row));
  EXPECT_EQ(isThere, keys != Texts{"no list"});
  EXPECT_EQ(grid.HighestColumn(), 0);
  return keys;
}

// The names in order, a blank behind each.
std::string NamesOf(const Home& home) {
  std::string names;
  for (const Account& account : home.Accounts()) names += account.name + " ";
  return names;
}

// The reason for which the account can't be added; empty when it was.
std::string AddTo(Home& home, const Account& account) {
  std::string error;
  const bool isAdded = home.AddAccount(account, error);
  EXPECT_EQ(isAdded, error.empty());
  return error;
}

class HomeTest : public testing::Test {
 protected:
  HomeTest() {
    Home::Make(path_);
    home_.emplace(path_);
  }
  std::string Add(const std::string& name, const std::string& datastore = "JET",
                  const std::string& store = "") {
    return AddTo(*home_, {name, datastore, store});
  }

  const TemporaryFolder folder_;
  const fs::path path_ = folder_ / "deep/down/home";
  const fs::path catalogue_ = path_ / "catalogue.sqlite";
  std::optional<Home> home_;
};

TEST_F(HomeTest, MakingAgainLeavesWhatIsThere) {
  const auto modeOf = [](const fs::path& path) { return static_cast<int>(fs::status(path).permissions()); };
  for (const char* inside : {"", "accounts", "TransferItem", "TransferBulk"})
    EXPECT_EQ(modeOf(path_ / inside), 0700) << inside;
  ASSERT_EQ(Add("SALES"), "");
  chmod(path_.c_str(), 0750);
  fs::remove(path_ / "TransferItem");
  Home::Make(path_);
  EXPECT_EQ(NamesOf(Home(path_)), "SALES ");
  EXPECT_EQ(modeOf(path_), 0750);
  EXPECT_TRUE(fs::is_directory(path_ / "TransferItem"));
}

TEST(Home, SeveralProgramsMakeItAtOnce) {
  for (int round = 0; round < 5; ++round) {
    const TemporaryFolder folder;
    for (int program = 0; program < 6; ++program) {
      if (fork() != 0) continue;
      EXPECT_EQ(FailureOf([&] {
                  Home::Make(folder / "home");
                  Home home(folder / "home");
                  EXPECT_EQ(AddTo(home, {"P" + std::to_string(program), "JET", ""}), "");
                }),
                "");
      _exit(testing::Test::HasFailure());
    }
    for (int status = 0; wait(&status) > 0;) EXPECT_EQ(status, 0);
    EXPECT_EQ(NamesOf(Home(folder / "home")), "P0 P1 P2 P3 P4 P5 ");
  }
}

TEST_F(HomeTest, ThreadsShareIt) {
  std::vector<std::jthread> users;
  for (int n = 0; n < 4; ++n) {
    users.emplace_back([this, name = "T" + std::to_string(n)] {
      EXPECT_EQ(Add(name), "");
      for (int round = 0; round < 20; ++round) {
        home_->SaveList(name, "L", ListOf({name}));
        EXPECT_EQ(KeysOf(*home_, name, "L"), Texts{name});
        EXPECT_TRUE(home_->FindAccount(name));
      }
    });
  }
  users.clear();
  EXPECT_EQ(NamesOf(*home_), "T0 T1 T2 T3 ");
}

TEST(Home, FoldersThatCantBeUsedAreRefusedByName) {
  const TemporaryFolder folder;
  const auto run = [](const fs::path& path, const char* sql) {
    Database(path / "catalogue.sqlite", OpenMode::kMake, 0ms).Execute(sql);
  };
  const struct {
    const char* name;
    std::function<void(const fs::path&)> prepare;
    std::string failure;               // of opening and reading
    bool isHome = true, made = false;  // whether a home is there before, and whether making helps
  } kCases[] = {
      {"missing", [](auto& path) { fs::remove(path); },
       "there is no system home at {}; make one with 'nvadmin demo' or 'nvadmin account add'", false, true},
      {"a file", [&](auto& path) { fs::remove(path), folder.Put(path, "x"); },
       "{} is no folder; choose a system home with --home", false},
      {"strange", [&](auto& path) { folder.Put(path / "letter.txt", "Dear"); },
       "{} is no system home, it has no catalogue.sqlite; make one with", false, true},
      {"begun, with an empty file", [&](auto& path) { folder.Put(path / "catalogue.sqlite", ""); },
       "the system home {} isn't complete; complete it with 'nvadmin demo'", false, true},
      {"begun, without tables yet", [&](auto& path) { run(path, "PRAGMA journal_mode = WAL"); },
       "the system home {} isn't complete; complete it with 'nvadmin demo'", false, true},
      {"foreign", [&](auto& path) { run(path, "CREATE TABLE songs(title)"); },
       "{}/catalogue.sqlite is no catalogue of this system; choose another folder with --home", false},
      {"marked by another", [&](auto& path) { run(path, "PRAGMA application_id = 77"); },
       "{}/catalogue.sqlite is no catalogue of this system", false},
      {"newer", [&](auto& path) { run(path, "PRAGMA user_version = 3"); },
       "{}/catalogue.sqlite has version 3 and this program knows version 2"},
      {"damaged behind its head",
       [](auto& path) {
         std::fstream(path / "catalogue.sqlite", std::ios::binary | std::ios::in | std::ios::out).seekp(4096)
             << std::string(40'000, '\x7F');
       },
       "{}/catalogue.sqlite is damaged"},
      {"read only, also for root, who turns into nobody",
       [&](auto& path) {
         for (const fs::path& open : {folder.Path(), path}) fs::permissions(open, fs::perms::all);
         fs::permissions(path / "catalogue.sqlite", fs::perms{0444});
         EXPECT_EQ(seteuid(geteuid() == 0 ? 65534 : geteuid()), 0);
       },
       "{}/catalogue.sqlite is read only; give this user write permission"},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.name);
    const fs::path path = folder / row.name;
    fs::create_directory(path);
    if (row.isHome) Home::Make(path);
    row.prepare(path);
    std::string want = row.failure;
    want.replace(want.find("{}"), 2, path.string());
    const auto use = [&] { Home(path).Accounts(); };
    EXPECT_EQ(FailureOf(use).substr(0, want.size()), want);
    FailureOf([&] { Home::Make(path); });
    EXPECT_EQ(FailureOf(use).empty(), row.made);
    EXPECT_EQ(seteuid(getuid()), 0);
  }
}

TEST_F(HomeTest, AnOlderCatalogueIsBroughtUpToDate) {
  ASSERT_EQ(Add("SALES"), "");
  home_.reset();
  Database(catalogue_, OpenMode::kExisting, 0ms)
      .Execute("ALTER TABLE accounts DROP COLUMN synchronous; PRAGMA user_version = 1");
  // Two programs at once, and one that makes what is missing.
  Home one(path_), two(path_);
  Home::Make(path_);
  EXPECT_EQ(one.FindAccount("SALES")->synchronous, Synchronous::kFull);
  EXPECT_TRUE(one.SetSynchronous("sales", Synchronous::kNormal));
  EXPECT_FALSE(one.SetSynchronous("NONE", Synchronous::kNormal));
  EXPECT_EQ(two.Accounts().at(0).synchronous, Synchronous::kNormal);
  EXPECT_EQ(AddTo(two, {"FAST", "JET", "", Synchronous::kNormal}), "");
  EXPECT_EQ(one.FindAccount("FAST")->synchronous, Synchronous::kNormal);
}

TEST_F(HomeTest, AccountNamesAndWordsHaveRules) {
  const std::string longest(64, 'N');
  const std::pair<std::string, const char*> allowed[] = {
      {"sales", "jet"}, {"A.b-c_9", "Mysql"}, {"2024", "mssql"}, {"nat", "mvBase"}, {longest, "ORACLE"}};
  for (const auto& [name, word] : allowed) EXPECT_EQ(Add(name, word), "");
  for (const std::string& name : Texts{longest + "N", "", "a b", "a/b", "..", "-a", "caf\xE9"}) {
    EXPECT_TRUE(
        Contains(Add(name), "can't be an account name; use 1 to 64 letters, digits, '_', '-' and '.'"))
        << name;
  }
  for (const char* word : {"", "JETS", "AMV", "MV\xFE"}) {
    EXPECT_TRUE(
        Contains(Add("x", word), "is no datastore word; use JET, MSSQL, MYSQL, ORACLE or a word that"))
        << word;
  }
  EXPECT_TRUE(Contains(Add("Sales", "ORACLE"), "there is an account SALES already"));
  std::string found;
  for (const Account& account : home_->Accounts()) found += account.name + " " + account.datastore + ";";
  EXPECT_EQ(found, "2024 MSSQL;A.B-C_9 MYSQL;NAT MVBASE;" + longest + " ORACLE;SALES JET;");
  EXPECT_EQ(home_->DatabaseFile(*home_->FindAccount("a.b-c_9")), path_ / "accounts/A.B-C_9.sqlite");
  EXPECT_FALSE(home_->FindAccount("SALE"));
}

TEST_F(HomeTest, ARemovedAccountTakesItsFilesAndListsAlong) {
  for (const char* name : {"OLD", "OLDER"}) {
    ASSERT_EQ(Add(name), "");
    home_->SaveList(name, "L", ListOf({"1"}));
  }
  ASSERT_EQ(Add("FAR", "MYSQL", "mysql://h\xE9l/db"), "");
  EXPECT_EQ(home_->FindAccount("far")->store, "mysql://h\xE9l/db");
  for (const char* name : {"OLD.sqlite", "OLD.sqlite-wal", "OLD.sqlite-shm", "OLD.sqlite-journal",
                           "OLD.sqlite-gate", "OLDER.sqlite", "FAR.sqlite"})
    folder_.Put(path_ / "accounts" / name, "x");

  EXPECT_TRUE(home_->RemoveAccount("old") && home_->RemoveAccount("FAR"));
  EXPECT_FALSE(home_->RemoveAccount("old"));
  std::set<std::string> left;
  for (const auto& entry : fs::directory_iterator(path_ / "accounts")) left.insert(entry.path().filename());
  EXPECT_EQ(left, (std::set<std::string>{"OLD.sqlite-gate", "OLDER.sqlite", "FAR.sqlite"}));
  ASSERT_EQ(Add("OLD"), "");
  EXPECT_TRUE(home_->ListNames("OLD").empty());
  EXPECT_EQ(home_->ListNames("OLDER").size(), 1U);

  // What can't be removed keeps its account, so that no later one finds it.
  fs::create_directories(path_ / "accounts/OLD.sqlite/inside");
  const std::string failure = FailureOf([this] { home_->RemoveAccount("OLD"); });
  EXPECT_TRUE(Contains(failure, (path_ / "accounts/OLD.sqlite can't be removed").string())) << failure;
  EXPECT_TRUE(home_->FindAccount("OLD"));
}

TEST_F(HomeTest, ListsKeepEveryKeyAsItIs) {
  for (const char* account : {"A", "B"}) ASSERT_EQ(Add(account), "");
  std::string every;
  for (int byte = 0; byte < 256; ++byte) every += static_cast<char>(byte);
  const Texts keys = {"1", "", "3:x,", every, std::string(100'000, '9'), ","};
  home_->SaveList("A", "mine", ListOf({"replaced"}));
  home_->SaveList("a", "Mine", ListOf(keys));
  home_->SaveList("A", "mine", ListOf({}));
  home_->SaveList("B", "Mine", ListOf({"b"}));
  EXPECT_EQ(KeysOf(Home(path_), "A", "Mine"), keys);
  EXPECT_EQ(KeysOf(*home_, "A", "MINE"), Texts{"no list"});
  EXPECT_EQ(KeysOf(*home_, "A", "mine"), Texts{});

  // Byte order, which isn't that of the characters: 0x80 is U+20AC.
  for (const char* name : {"\xA0", "\x80"}) home_->SaveList("A", name, ListOf({}));
  EXPECT_EQ(home_->ListNames("a"), (Texts{"Mine", "mine", "\x80", "\xA0"}));

  EXPECT_TRUE(home_->DeleteList("A", "Mine"));
  EXPECT_FALSE(home_->DeleteList("A", "Mine"));
  EXPECT_EQ(KeysOf(*home_, "A", "Mine"), Texts{"no list"});
  EXPECT_EQ(KeysOf(*home_, "B", "Mine"), Texts{"b"});
  EXPECT_EQ(FailureOf([&] { home_->SaveList("GONE", "L", ListOf(keys)); }),
            "the list L can't be saved: there is no account GONE in " + catalogue_.string());
}

TEST_F(HomeTest, AListThatWasTamperedWithFails) {
  ASSERT_EQ(Add("A"), "");
  home_->SaveList("A", "L", ListOf({}));
  Database other(catalogue_, OpenMode::kExisting, 1000ms);
  for (const char* packed : {"1:a", "2:a,", "1:ab", "x", ":a,", "18446744073709551615:a,", "1"}) {
    Statement(other, "UPDATE lists SET keys = ?1").BindBlob(1, packed).Run();
    EXPECT_TRUE(Contains(FailureOf([this] { KeysOf(*home_, "A", "L"); }), "the list L of account A in"))
        << packed;
  }
}

TEST(Home, PathsAreGivenInTheCodePage) {
  const TemporaryFolder folder;
  const fs::path path = folder / "caf\xC3\xA9";
  Home::Make(path);
  for (const fs::path& spelling : {path, path / "", fs::relative(folder / "x/../caf\xC3\xA9")})
    EXPECT_EQ(Home(spelling).SystemPath(), folder.Path().string() + "/caf\xE9/");
  EXPECT_EQ(Home(path).LocksFile(), path / "locks.sqlite");

  const fs::path polish = folder / "wa\xC5\x82";
  const std::string failure = FailureOf([&] { Home::Make(polish); });
  EXPECT_TRUE(Contains(failure, "wa? can't be a system home: its name has U+0142")) << failure;
  EXPECT_FALSE(fs::exists(polish));
}

TEST(Home, TheDefaultFolderFollowsTheEnvironment) {
  const struct {
    const char *data, *user, *want;
  } kCases[] = {
      {"/data", "/home/anna", "/data/nvadmin"},
      {"relative", "/home/anna", "/home/anna/.local/share/nvadmin"},
      {nullptr, nullptr,
       "no system home: neither XDG_DATA_HOME nor HOME is set; choose a folder with --home"},
  };
  for (const auto& row : kCases) {
    const std::string answer = RunInChild([&row] {
      row.data != nullptr ? setenv("XDG_DATA_HOME", row.data, 1) : unsetenv("XDG_DATA_HOME");
      row.user != nullptr ? setenv("HOME", row.user, 1) : unsetenv("HOME");
      return Home::DefaultFolder().string();
    });
    EXPECT_EQ(answer, row.want);
  }
}

}  // namespace
}  // namespace nvadmin::engine

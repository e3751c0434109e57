// The system home: making it, alone and with others; what it refuses; accounts and saved lists.
#include "engine/Home.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <functional>
#include <iostream>
#include <set>
#include <thread>

#include "engine/stores/Sqlite.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::engine {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace std::string_literals;

mode_t ModeOf(const fs::path& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

ResultGrid ListOf(std::initializer_list<std::string_view> keys) {
  ResultGrid grid;
  grid.Start(1);
  for (const std::string_view key : keys) grid.AppendCell(key);
  return grid;
}

std::vector<std::string> KeysOf(const ResultGrid& grid) {
  std::vector<std::string> keys;
  for (std::int32_t row = 1; row <= grid.HighestRow(); ++row) keys.emplace_back(grid.Cell(0, row));
  return keys;
}

// The names in order, a blank behind each.
std::string NamesOf(const Home& home) {
  std::string names;
  for (const Account& account : home.Accounts()) names += account.name + " ";
  return names;
}

// The reason for which the account can't be added; empty when it was.
std::string Add(Home& home, const std::string& name, const std::string& datastore = "JET",
                const std::string& store = "") {
  std::string error;
  const bool added = home.AddAccount({name, datastore, store}, error);
  EXPECT_EQ(added, error.empty());
  return error;
}

// A home of its own for a test, with these accounts.
class TestHome : public TemporaryFolder {
 public:
  explicit TestHome(std::initializer_list<const char*> accounts = {}) {
    Home::Make(path);
    home.emplace(path);
    for (const char* account : accounts) EXPECT_EQ(Add(*home, account), "");
  }
  Home* operator->() { return &*home; }

  const fs::path path = Path() / "home";
  const fs::path catalogue = path / "catalogue.sqlite";
  std::optional<Home> home;
};

TEST(Home, MakingAgainLeavesWhatIsThere) {
  const TemporaryFolder folder;
  const fs::path path = folder / "deep/down/home";
  Home::Make(path);
  for (const char* inside : {"", "accounts", "TransferItem", "TransferBulk"})
    EXPECT_EQ(ModeOf(path / inside), 0700U);
  Home home(path);
  ASSERT_EQ(Add(home, "SALES"), "");
  chmod(path.c_str(), 0750);
  fs::remove(path / "TransferItem");
  Home::Make(path);
  EXPECT_EQ(NamesOf(Home(path)), "SALES ");
  EXPECT_EQ(ModeOf(path), 0750U);
  EXPECT_TRUE(fs::is_directory(path / "TransferItem"));
}

TEST(Home, SeveralProgramsMakeItAtOnce) {
  for (int round = 0; round < 5; ++round) {
    const TemporaryFolder folder;
    for (int program = 0; program < 6; ++program) {
      if (fork() != 0) continue;
      const std::string failure = FailureOf([&] {
        Home::Make(folder / "home");
        Home home(folder / "home");
        EXPECT_EQ(Add(home, "P" + std::to_string(program)), "");
      });
      std::cerr << failure;
      _exit(!failure.empty() || testing::Test::HasFailure());
    }
    for (int status = 0; wait(&status) > 0;) EXPECT_EQ(status, 0);
    EXPECT_EQ(NamesOf(Home(folder / "home")), "P0 P1 P2 P3 P4 P5 ");
  }
}

TEST(Home, ThreadsShareIt) {
  TestHome home;
  std::vector<std::jthread> users;
  for (int n = 0; n < 4; ++n) {
    users.emplace_back([&home, name = "T" + std::to_string(n)] {
      EXPECT_EQ(Add(*home.home, name), "");
      for (int round = 0; round < 20; ++round) {
        home->SaveList(name, "L", ListOf({name}));
        ResultGrid grid;
        EXPECT_TRUE(home->LoadList(name, "L", grid) && home->FindAccount(name));
        EXPECT_EQ(KeysOf(grid), std::vector<std::string>{name});
      }
    });
  }
  users.clear();
  EXPECT_EQ(NamesOf(*home.home), "T0 T1 T2 T3 ");
}

TEST(Home, FoldersThatCantBeUsedAreRefusedByName) {
  const auto run = [](const fs::path& path, const char* sql) {
    Database(path / "catalogue.sqlite", OpenMode::kMake, 0ms).Execute(sql);
  };
  const struct {
    const char* name;
    std::function<void(const TemporaryFolder&, const fs::path&)> prepare;
    std::string failure;               // of opening and reading
    bool isHome = true, made = false;  // whether a home is there before, and whether making helps
  } kCases[] = {
      {"missing", [](auto&, auto& path) { fs::remove(path); },
       "there is no system home at {}; make one with 'nvadmin demo' or 'nvadmin account add'", false, true},
      {"a file", [](auto& folder, auto& path) { fs::remove(path), folder.Put(path, "x"); },
       "{} is no folder; choose a system home with --home", false},
      {"strange", [](auto& folder, auto& path) { folder.Put(path / "letter.txt", "Dear"); },
       "{} is no system home, it has no catalogue.sqlite; make one with", false, true},
      {"begun, with an empty file",
       [](auto& folder, auto& path) { folder.Put(path / "catalogue.sqlite", ""); },
       "the system home {} isn't complete; complete it with 'nvadmin demo'", false, true},
      {"begun, without tables yet", [&](auto&, auto& path) { run(path, "PRAGMA journal_mode = WAL"); },
       "the system home {} isn't complete; complete it with 'nvadmin demo'", false, true},
      {"foreign", [&](auto&, auto& path) { run(path, "CREATE TABLE songs(title)"); },
       "{}/catalogue.sqlite is no catalogue of this system; choose another folder with --home", false},
      {"marked by another", [&](auto&, auto& path) { run(path, "PRAGMA application_id = 77"); },
       "{}/catalogue.sqlite is no catalogue of this system", false},
      {"newer", [&](auto&, auto& path) { run(path, "PRAGMA user_version = 2"); },
       "{}/catalogue.sqlite has version 2 and this program knows version 1"},
      {"cut", [](auto&, auto& path) { fs::resize_file(path / "catalogue.sqlite", 4000); },
       "{}/catalogue.sqlite is damaged"},
      {"damaged behind its head",
       [](auto&, auto& path) {
         std::fstream(path / "catalogue.sqlite", std::ios::binary | std::ios::in | std::ios::out).seekp(4096)
             << std::string(40'000, '\x7F');
       },
       "{}/catalogue.sqlite is damaged"},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.name);
    const TemporaryFolder folder;
    const fs::path path = folder / "home";
    if (row.isHome) {
      Home::Make(path);
    } else {
      fs::create_directory(path);
    }
    row.prepare(folder, path);
    std::string want = row.failure;
    want.replace(want.find("{}"), 2, path.string());
    const auto use = [&] { Home(path).Accounts(); };
    EXPECT_EQ(FailureOf(use).substr(0, want.size()), want);
    FailureOf([&] { Home::Make(path); });
    EXPECT_EQ(FailureOf(use).empty(), row.made);
  }
}

void LimitFileSize(rlim_t bytes) {
  signal(SIGXFSZ, SIG_IGN);
  struct rlimit limit;
  getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = bytes;
  setrlimit(RLIMIT_FSIZE, &limit);
}

// A limit on file sizes stands for the full disk.
TEST(Home, AFullDiskIsToldAndLosesNothing) {
  const TemporaryFolder folder;
  const fs::path path = folder / "home";
  const std::string texts = RunInChild([&] {
    LimitFileSize(3000);
    std::string told = FailureOf([&] { Home::Make(path); }) + "\n";
    LimitFileSize(RLIM_INFINITY);
    Home::Make(path);
    Home home(path);
    EXPECT_EQ(Add(home, "A"), "");
    home.SaveList("A", "L", ListOf({"old"}));
    LimitFileSize(100'000);
    told += FailureOf([&] { home.SaveList("A", "L", ListOf({std::string(300'000, 'x')})); }) + "\n";
    LimitFileSize(RLIM_INFINITY);
    home.SaveList("A", "M", ListOf({"new"}));
    for (const char* list : {"L", "M"}) {
      ResultGrid grid;
      home.LoadList("A", list, grid);
      told.append(grid.Cell(0, 1)).append("\n");
    }
    return told;
  });
  const std::string full = (path / "catalogue.sqlite").string() +
                           " can't grow: the disk is full (File too large); free some space and try again\n";
  EXPECT_EQ(texts, full + full + "old\nnew\n");
}

TEST(Home, AccountNamesAndWordsHaveRules) {
  TestHome home;
  const std::string longest(64, 'N');
  const struct {
    std::string name, datastore, inCapitals, wordInCapitals;
  } kAllowed[] = {
      {"sales", "jet", "SALES", "JET"},       {"A.b-c_9", "Mysql", "A.B-C_9", "MYSQL"},
      {"2024", "mssql", "2024", "MSSQL"},     {"nat", "mvBase", "NAT", "MVBASE"},
      {longest, "ORACLE", longest, "ORACLE"},
  };
  for (const auto& row : kAllowed) {
    EXPECT_EQ(Add(*home.home, row.name, row.datastore), "");
    const Account found = home->FindAccount(row.name).value_or(Account{});
    EXPECT_EQ(found.name + " " + found.datastore, row.inCapitals + " " + row.wordInCapitals);
    EXPECT_EQ(home->DatabaseFile(found), home.path / "accounts" / (row.inCapitals + ".sqlite"));
  }
  for (const std::string& name : {longest + "N", std::string(), "a b"s, "a/b"s, ".."s, "-a"s, "caf\xE9"s}) {
    const std::string error = Add(*home.home, name);
    EXPECT_TRUE(Contains(error, "can't be an account name; use 1 to 64 letters, digits, '_', '-' and '.'"))
        << name;
  }
  for (const char* word : {"", "JETS", "AMV", "MV\xFE"}) {
    EXPECT_TRUE(Contains(Add(*home.home, "x", word),
                         "is no datastore word; use JET, MSSQL, MYSQL, ORACLE or a word that begins with MV"))
        << word;
  }
  EXPECT_TRUE(Contains(Add(*home.home, "Sales", "ORACLE"), "there is an account SALES already"));
  EXPECT_FALSE(home->FindAccount("SALE"));
  EXPECT_EQ(NamesOf(*home.home), "2024 A.B-C_9 NAT " + longest + " SALES ");
}

TEST(Home, ARemovedAccountTakesItsFilesAndListsAlong) {
  TestHome home({"OLD", "OLDER"});
  ASSERT_EQ(Add(*home.home, "FAR", "MYSQL", "mysql://h\xE9l/db"), "");
  EXPECT_EQ(home->FindAccount("far")->store, "mysql://h\xE9l/db");
  for (const char* name :
       {"OLD.sqlite", "OLD.sqlite-wal", "OLD.sqlite-shm", "OLD.sqlite-journal", "OLDER.sqlite", "FAR.sqlite"})
    home.Put(home.path / "accounts" / name, "x");
  for (const char* account : {"OLD", "OLDER"}) home->SaveList(account, "L", ListOf({"1"}));

  EXPECT_TRUE(home->RemoveAccount("old") && home->RemoveAccount("FAR"));
  EXPECT_FALSE(home->RemoveAccount("old"));
  std::set<std::string> left;
  for (const auto& entry : fs::directory_iterator(home.path / "accounts"))
    left.insert(entry.path().filename());
  EXPECT_EQ(left, (std::set<std::string>{"OLDER.sqlite", "FAR.sqlite"}));
  ASSERT_EQ(Add(*home.home, "OLD"), "");
  EXPECT_TRUE(home->ListNames("OLD").empty());
  EXPECT_EQ(home->ListNames("OLDER").size(), 1U);

  // What can't be removed keeps its account, so that no later one finds it.
  fs::create_directories(home.path / "accounts/OLD.sqlite/inside");
  const std::string failure = FailureOf([&] { home->RemoveAccount("OLD"); });
  EXPECT_TRUE(Contains(failure, (home.path / "accounts/OLD.sqlite").string() + " can't be removed"))
      << failure;
  EXPECT_TRUE(home->FindAccount("OLD"));
}

TEST(Home, ListsKeepEveryKeyAsItIs) {
  TestHome home({"A", "B"});
  std::string every;
  for (int byte = 0; byte < 256; ++byte) every += static_cast<char>(byte);
  const ResultGrid keys = ListOf({"1", "", "3:x,", every, std::string(100'000, '9'), ","});
  home->SaveList("A", "mine", ListOf({"replaced"}));
  home->SaveList("a", "Mine", keys);
  home->SaveList("A", "mine", ListOf({}));
  home->SaveList("B", "Mine", ListOf({"b"}));

  ResultGrid grid;
  EXPECT_TRUE(Home(home.path).LoadList("A", "Mine", grid));
  EXPECT_FALSE(home->LoadList("A", "MINE", grid));
  EXPECT_EQ(KeysOf(grid), KeysOf(keys)) << "a list that isn't there leaves the grid alone";
  EXPECT_TRUE(home->LoadList("A", "mine", grid));
  EXPECT_EQ(grid.HighestRow(), 0);
  EXPECT_EQ(grid.HighestColumn(), 0);

  // Byte order, which isn't that of the characters: 0x80 is U+20AC.
  for (const char* name : {"\xA0", "\x80"}) home->SaveList("A", name, ListOf({}));
  EXPECT_EQ(home->ListNames("a"), (std::vector<std::string>{"Mine", "mine", "\x80", "\xA0"}));

  EXPECT_TRUE(home->DeleteList("A", "Mine"));
  EXPECT_FALSE(home->DeleteList("A", "Mine") || home->LoadList("A", "Mine", grid));
  EXPECT_TRUE(home->LoadList("B", "Mine", grid));
  EXPECT_EQ(FailureOf([&] { home->SaveList("GONE", "L", keys); }),
            "the list L can't be saved: there is no account GONE in " + home.catalogue.string());
}

TEST(Home, AListThatWasTamperedWithFails) {
  TestHome home({"A"});
  Database other(home.catalogue, OpenMode::kExisting, 1000ms);
  for (const char* packed : {"1:a", "2:a,", "1:ab", "x", ":a,", "18446744073709551615:a,", "1"}) {
    home->SaveList("A", "L", ListOf({"kept"}));
    Statement(other, "UPDATE lists SET keys = ?1").BindBlob(1, packed).Run();
    ResultGrid grid;
    EXPECT_TRUE(Contains(FailureOf([&] { home->LoadList("A", "L", grid); }), "the list L of account A in"))
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
  EXPECT_TRUE(
      Contains(FailureOf([&] { Home::Make(polish); }), "wa? can't be a system home: its name has U+0142"));
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

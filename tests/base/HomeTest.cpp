// The system home: making it, alone and with others; what it refuses; accounts and saved lists.
#include "engine/Home.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <set>
#include <thread>

#include "engine/stores/Sqlite.h"
#include "tests/base/TemporaryFolder.h"

namespace nvadmin::engine {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr uid_t kNobody = 65534;

void WriteFile(const fs::path& file, const std::string& bytes) {
  std::ofstream(file, std::ios::binary) << bytes;
}

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

std::vector<std::string> NamesOf(const Home& home) {
  std::vector<std::string> names;
  for (const Account& account : home.Accounts()) names.push_back(account.name);
  return names;
}

bool Add(Home& home, const std::string& name, const std::string& datastore = "JET",
         const std::string& store = "") {
  std::string error;
  const bool added = home.AddAccount({name, datastore, store}, error);
  EXPECT_EQ(added, error.empty()) << error;
  return added;
}

TEST(Home, MakingAgainLeavesWhatIsThere) {
  const TemporaryFolder folder;
  const fs::path path = folder / "deep/down/home";
  Home::Make(path);
  EXPECT_EQ(ModeOf(path), 0700U);
  for (const char* inside : {"accounts", "TransferItem", "TransferBulk"})
    EXPECT_EQ(ModeOf(path / inside), 0700U);
  {
    Home home(path);
    EXPECT_TRUE(home.Accounts().empty());
    ASSERT_TRUE(Add(home, "SALES"));
    chmod(path.c_str(), 0750);
    fs::remove(path / "TransferItem");
    Home::Make(path);
    EXPECT_EQ(NamesOf(home), std::vector<std::string>{"SALES"});
  }
  EXPECT_EQ(NamesOf(Home(path)), std::vector<std::string>{"SALES"});
  EXPECT_EQ(ModeOf(path), 0750U);
  EXPECT_TRUE(fs::is_directory(path / "TransferItem"));
}

// What was begun and not finished: an empty file, or a database without tables yet.
TEST(Home, MakingCompletesWhatWasBegun) {
  for (const bool hasHead : {false, true}) {
    const TemporaryFolder folder;
    WriteFile(folder / "catalogue.sqlite", "");
    if (hasHead)
      Database(folder / "catalogue.sqlite", OpenMode::kExisting, 0ms).Execute("PRAGMA journal_mode = WAL");
    EXPECT_TRUE(Contains(FailureOf([&] { Home home(folder.Path()); }),
                         "isn't complete; complete it with 'nvadmin demo'"));
    Home::Make(folder.Path());
    Home home(folder.Path());
    EXPECT_TRUE(Add(home, "A"));
  }
}

TEST(Home, SeveralProgramsMakeItAtOnce) {
  constexpr int kPrograms = 6;
  for (int round = 0; round < 5; ++round) {
    const TemporaryFolder folder;
    const fs::path path = folder / "home";
    int results[2];
    ASSERT_EQ(pipe(results), 0);
    for (int program = 0; program < kPrograms; ++program) {
      if (fork() != 0) continue;
      const std::string failure = FailureOf([&] {
        Home::Make(path);
        Home home(path);
        std::string error;
        if (!home.AddAccount({"P" + std::to_string(program), "JET", ""}, error)) throw EngineFailure(error);
      });
      const std::string line = failure + "\n";
      _exit(write(results[1], line.data(), line.size()) < 0);
    }
    close(results[1]);
    for (int status = 0; wait(&status) > 0;) EXPECT_EQ(status, 0);
    std::string lines(4096, '\0');
    lines.resize(static_cast<std::size_t>(read(results[0], lines.data(), lines.size())));
    close(results[0]);
    EXPECT_EQ(lines, std::string(kPrograms, '\n'));
    EXPECT_EQ(Home(path).Accounts().size(), std::size_t{kPrograms});
  }
}

TEST(Home, ThreadsMakeAndShareIt) {
  const TemporaryFolder folder;
  const fs::path path = folder / "home";
  std::vector<std::jthread> makers;
  for (int n = 0; n < 4; ++n)
    makers.emplace_back([&path] { EXPECT_EQ(FailureOf([&] { Home::Make(path); }), ""); });
  makers.clear();

  Home home(path);
  std::vector<std::jthread> users;
  for (int n = 0; n < 4; ++n) {
    users.emplace_back([&home, n] {
      const std::string name = "T" + std::to_string(n);
      EXPECT_TRUE(Add(home, name));
      for (int round = 0; round < 20; ++round) {
        home.SaveList(name, "L", ListOf({name}));
        ResultGrid grid;
        EXPECT_TRUE(home.LoadList(name, "L", grid));
        EXPECT_EQ(KeysOf(grid), std::vector<std::string>{name});
        EXPECT_TRUE(home.FindAccount(name));
      }
    });
  }
  users.clear();
  EXPECT_EQ(home.Accounts().size(), 4U);
}

TEST(Home, FoldersThatCantBeUsedAreRefusedByName) {
  const struct {
    const char* name;
    std::function<void(const fs::path&)> prepare;
    std::string failure;  // of opening
    bool made;            // whether making helps
  } kCases[] = {
      {"missing", [](const fs::path&) {},
       "there is no system home at {}; make one with 'nvadmin demo' or 'nvadmin account add'", true},
      {"file", [](const fs::path& path) { WriteFile(path, "x"); },
       "{} is no folder; choose a system home with --home", false},
      {"strange",
       [](const fs::path& path) { fs::create_directory(path), WriteFile(path / "letter.txt", "Dear"); },
       "{} is no system home, it has no catalogue.sqlite; make one with", true},
      {"foreign",
       [](const fs::path& path) {
         fs::create_directory(path);
         Database(path / "catalogue.sqlite", OpenMode::kMake, 0ms).Execute("CREATE TABLE songs(title)");
       },
       "{}/catalogue.sqlite is no catalogue of this system; choose another folder with --home", false},
      {"marked",
       [](const fs::path& path) {
         fs::create_directory(path);
         Database(path / "catalogue.sqlite", OpenMode::kMake, 0ms).Execute("PRAGMA application_id = 77");
       },
       "{}/catalogue.sqlite is no catalogue of this system", false},
      {"newer",
       [](const fs::path& path) {
         Home::Make(path);
         Database(path / "catalogue.sqlite", OpenMode::kExisting, 0ms).Execute("PRAGMA user_version = 2");
       },
       "{}/catalogue.sqlite has version 2 and this program knows version 1", false},
      {"scribbled",
       [](const fs::path& path) {
         Home::Make(path);
         WriteFile(path / "catalogue.sqlite", std::string(8192, '#'));
       },
       "{}/catalogue.sqlite is damaged or no database; end all programs that use it", false},
      {"cut",
       [](const fs::path& path) {
         Home::Make(path);
         fs::resize_file(path / "catalogue.sqlite", 4000);
       },
       "{}/catalogue.sqlite is damaged", false},
  };
  for (const auto& row : kCases) {
    const TemporaryFolder folder;
    const fs::path path = folder / row.name;
    row.prepare(path);
    std::string want = row.failure;
    want.replace(want.find("{}"), 2, path.string());
    std::string failure = FailureOf([&] { Home home(path); });
    EXPECT_EQ(failure.substr(0, want.size()), want);
    EXPECT_EQ(FailureOf([&] { Home::Make(path); }).empty(), row.made) << row.name;
    EXPECT_EQ(FailureOf([&] { Home home(path); }).empty(), row.made) << row.name;
  }
}

// The head of the catalogue is whole, its tables aren't.
TEST(Home, DamageFurtherInShowsWhenItIsRead) {
  const TemporaryFolder folder;
  const fs::path path = folder / "home";
  Home::Make(path);
  const fs::path file = path / "catalogue.sqlite";
  {
    Home home(path);
    ASSERT_TRUE(Add(home, "A"));
  }
  std::fstream stream(file, std::ios::binary | std::ios::in | std::ios::out);
  stream.seekp(4096);
  stream << std::string(static_cast<std::size_t>(fs::file_size(file)) - 4096, '\x7F');
  stream.close();
  const std::string failure = FailureOf([&] { Home(path).Accounts(); });
  EXPECT_TRUE(Contains(failure, file.string() + " is damaged")) << failure;
}

TEST(Home, AFolderThatMayNotBeWrittenIsRefused) {
  const TemporaryFolder folder;
  const fs::path path = folder / "home";
  Home::Make(path);
  chmod(folder.Path().c_str(), 0755);
  chmod(path.c_str(), 0555);
  const std::string texts = RunInChild([&] {
    if (geteuid() == 0 && setuid(kNobody) != 0) return std::string("still root");
    return FailureOf([&] { Home home(path); }) + "\n" + FailureOf([&] { Home::Make(path / "inside"); }) +
           "\n";
  });
  chmod(path.c_str(), 0700);
  if (texts == "still root") GTEST_SKIP() << "root may write everything, and can't be given up here";
  EXPECT_EQ(texts, "the system home " + path.string() +
                       " can't be used (Permission denied); give this user all rights for the folder\n"
                       "the folder " +
                       (path / "inside").string() +
                       " can't be made (Permission denied); choose another with --home\n");
}

TEST(Home, ACatalogueThatMayNotBeWrittenIsRefused) {
  const TemporaryFolder folder;
  const fs::path path = folder / "home";
  Home::Make(path);
  chmod(folder.Path().c_str(), 0755);
  chmod(path.c_str(), 0777);
  chmod((path / "catalogue.sqlite").c_str(), 0444);
  const std::string text = RunInChild([&] {
    if (geteuid() == 0 && setuid(kNobody) != 0) return std::string("still root");
    return FailureOf([&] { Home home(path); });
  });
  if (text == "still root") GTEST_SKIP() << "root may write everything, and can't be given up here";
  EXPECT_EQ(text, (path / "catalogue.sqlite").string() +
                      " is read only; give this user write permission for the file and its folder");
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
    std::string error;
    home.AddAccount({"A", "JET", ""}, error);
    home.SaveList("A", "L", ListOf({"old"}));

    LimitFileSize(100'000);
    told += FailureOf([&] { home.SaveList("A", "L", ListOf({std::string(300'000, 'x')})); }) + "\n";
    LimitFileSize(RLIM_INFINITY);
    ResultGrid grid;
    home.LoadList("A", "L", grid);
    told += std::string(grid.Cell(0, 1)) + "\n";
    home.SaveList("A", "M", ListOf({"new"}));
    home.LoadList("A", "M", grid);
    return told + std::string(grid.Cell(0, 1)) + "\n";
  });
  const std::string full = (path / "catalogue.sqlite").string() +
                           " can't grow: the disk is full (File too large); free some space and try again\n";
  EXPECT_EQ(texts, full + full + "old\nnew\n");
}

TEST(Home, AccountNamesAndWordsHaveRules) {
  const TemporaryFolder folder;
  Home::Make(folder / "home");
  Home home(folder / "home");
  const std::string longest(64, 'n');
  const char* const kName = "can't be an account name; use 1 to 64 letters, digits, '_', '-' and '.'";
  const char* const kWord =
      "is no datastore word; use JET, MSSQL, MYSQL, ORACLE or a word that begins with MV";
  const struct {
    const char* name;
    const char* datastore;
    const char* want;  // the account's name, or a part of the refusal
    const char* wantWord;
  } kCases[] = {
      {"sales", "jet", "SALES", "JET"},
      {"Sales", "ORACLE", "there is an account SALES already", nullptr},
      {"A.b-c_9", "Mysql", "A.B-C_9", "MYSQL"},
      {"2024", "mssql", "2024", "MSSQL"},
      {"nat", "mvBase", "NAT", "MVBASE"},
      {"nat2", "MV", "NAT2", "MV"},
      {longest.c_str(), "ORACLE", "NNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNNN",
       "ORACLE"},
      {"", "JET", kName, nullptr},
      {"a b", "JET", kName, nullptr},
      {"../up", "JET", kName, nullptr},
      {"a/b", "JET", kName, nullptr},
      {"..", "JET", kName, nullptr},
      {"-a", "JET", kName, nullptr},
      {"caf\xE9", "JET", kName, nullptr},
      {"x", "", kWord, nullptr},
      {"x", "SQLITE", kWord, nullptr},
      {"x", "JETS", kWord, nullptr},
      {"x", "AMV", kWord, nullptr},
      {"x", "MV\xFE", kWord, nullptr},
  };
  for (const auto& row : kCases) {
    std::string error;
    const bool added = home.AddAccount({row.name, row.datastore, ""}, error);
    ASSERT_EQ(added, row.wantWord != nullptr) << row.name << " " << row.datastore << ": " << error;
    if (added) {
      const std::optional<Account> found = home.FindAccount(row.name);
      ASSERT_TRUE(found) << row.name;
      EXPECT_EQ(found->name, row.want);
      EXPECT_EQ(found->datastore, row.wantWord);
      EXPECT_EQ(home.DatabaseFile(*found), folder / "home/accounts" / (found->name + ".sqlite"));
    } else {
      EXPECT_TRUE(Contains(error, row.want)) << error;
    }
  }
  std::string error;
  EXPECT_FALSE(home.AddAccount({longest + "n", "JET", ""}, error));
  EXPECT_TRUE(home.FindAccount("sALES"));
  EXPECT_FALSE(home.FindAccount("SALE"));
  EXPECT_EQ(NamesOf(home),
            (std::vector<std::string>{"2024", "A.B-C_9", "NAT", "NAT2", std::string(64, 'N'), "SALES"}));
}

TEST(Home, ARemovedAccountTakesItsFilesAndListsAlong) {
  const TemporaryFolder folder;
  const fs::path path = folder / "home";
  Home::Make(path);
  Home home(path);
  ASSERT_TRUE(Add(home, "OLD") && Add(home, "OLDER") && Add(home, "FAR", "MYSQL", "mysql://h\xE9l/db"));
  EXPECT_EQ(home.FindAccount("far")->store, "mysql://h\xE9l/db");
  for (const char* name : {"OLD.sqlite", "OLD.sqlite-wal", "OLD.sqlite-shm", "OLDER.sqlite", "FAR.sqlite"}) {
    WriteFile(path / "accounts" / name, "x");
  }
  home.SaveList("OLD", "L", ListOf({"1"}));
  home.SaveList("OLDER", "L", ListOf({"2"}));

  EXPECT_TRUE(home.RemoveAccount("old"));
  EXPECT_FALSE(home.RemoveAccount("old"));
  EXPECT_TRUE(home.RemoveAccount("FAR"));
  std::set<std::string> left;
  for (const auto& entry : fs::directory_iterator(path / "accounts")) left.insert(entry.path().filename());
  EXPECT_EQ(left, (std::set<std::string>{"OLDER.sqlite", "FAR.sqlite"}));
  ASSERT_TRUE(Add(home, "OLD"));
  EXPECT_TRUE(home.ListNames("OLD").empty());
  EXPECT_EQ(home.ListNames("OLDER").size(), 1U);

  // What can't be removed keeps its account, so that no later one finds it.
  fs::create_directories(path / "accounts/OLD.sqlite/inside");
  const std::string failure = FailureOf([&] { home.RemoveAccount("OLD"); });
  EXPECT_TRUE(Contains(failure, (path / "accounts/OLD.sqlite").string() + " can't be removed")) << failure;
  EXPECT_TRUE(home.FindAccount("OLD"));
}

TEST(Home, ListsKeepEveryKeyAsItIs) {
  const TemporaryFolder folder;
  Home::Make(folder / "home");
  Home home(folder / "home");
  ASSERT_TRUE(Add(home, "A") && Add(home, "B"));
  std::string every;
  for (int byte = 0; byte < 256; ++byte) every += static_cast<char>(byte);
  const ResultGrid keys = ListOf({"1", "", "3:x,", every, std::string(100'000, '9'), ","});
  home.SaveList("a", "Mine", keys);
  home.SaveList("A", "mine", ListOf({}));
  home.SaveList("B", "Mine", ListOf({"b"}));

  ResultGrid grid = ListOf({"stays"});
  ASSERT_TRUE(Home(folder / "home").LoadList("A", "Mine", grid));
  EXPECT_EQ(KeysOf(grid), KeysOf(keys));
  ASSERT_TRUE(home.LoadList("A", "mine", grid));
  EXPECT_EQ(grid.HighestRow(), 0);
  EXPECT_EQ(grid.HighestColumn(), 0);
  home.SaveList("A", "mine", ListOf({"again"}));
  ASSERT_TRUE(home.LoadList("A", "mine", grid));
  EXPECT_FALSE(home.LoadList("A", "MINE", grid));
  EXPECT_EQ(KeysOf(grid), std::vector<std::string>{"again"})
      << "a list that isn't there leaves the grid alone";

  // Byte order, which isn't that of the characters: 0x80 is U+20AC.
  home.SaveList("A", "\xA0", ListOf({}));
  home.SaveList("A", "\x80", ListOf({}));
  EXPECT_EQ(home.ListNames("a"), (std::vector<std::string>{"Mine", "mine", "\x80", "\xA0"}));

  EXPECT_TRUE(home.DeleteList("A", "Mine"));
  EXPECT_FALSE(home.DeleteList("A", "Mine"));
  EXPECT_FALSE(home.LoadList("A", "Mine", grid));
  EXPECT_TRUE(home.LoadList("B", "Mine", grid));
  EXPECT_EQ(FailureOf([&] { home.SaveList("GONE", "L", keys); }),
            "the list L can't be saved: there is no account GONE in " +
                (folder / "home/catalogue.sqlite").string());
}

TEST(Home, AListThatWasTamperedWithFails) {
  const TemporaryFolder folder;
  Home::Make(folder / "home");
  Home home(folder / "home");
  ASSERT_TRUE(Add(home, "A"));
  Database other(folder / "home/catalogue.sqlite", OpenMode::kExisting, 1000ms);
  for (const char* packed :
       {"1:a", "2:a,", "1:ab", "x", ":a,", "9999999999999999999999:a,", "18446744073709551615:a,", "1"}) {
    home.SaveList("A", "L", ListOf({"kept"}));
    Statement(other, "UPDATE lists SET keys = ?1").BindBlob(1, packed).Run();
    ResultGrid grid;
    EXPECT_TRUE(Contains(FailureOf([&] { home.LoadList("A", "L", grid); }), "the list L of account A in"))
        << packed;
  }
}

TEST(Home, PathsAreGivenInTheCodePage) {
  const TemporaryFolder folder;
  Home::Make(folder / "caf\xC3\xA9");
  const std::string want = folder.Path().string() + "/caf\xE9/";
  EXPECT_EQ(Home(folder / "caf\xC3\xA9").SystemPath(), want);
  EXPECT_EQ(Home(folder / "caf\xC3\xA9/").SystemPath(), want);
  EXPECT_EQ(Home(fs::relative(folder / "x/../caf\xC3\xA9")).SystemPath(), want);
  EXPECT_EQ(Home(folder / "caf\xC3\xA9").LocksFile(), folder / "caf\xC3\xA9/locks.sqlite");

  const fs::path polish = folder / "wa\xC5\x82";
  EXPECT_TRUE(
      Contains(FailureOf([&] { Home::Make(polish); }), "wa? can't be a system home: its name has U+0142"));
  EXPECT_FALSE(fs::exists(polish));
}

TEST(Home, TheDefaultFolderFollowsTheEnvironment) {
  const struct {
    const char* data;
    const char* user;
    const char* want;
  } kCases[] = {
      {"/data", "/home/anna", "/data/nvadmin"},
      {"relative", "/home/anna", "/home/anna/.local/share/nvadmin"},
      {"", "/home/anna", "/home/anna/.local/share/nvadmin"},
      {nullptr, "/home/anna", "/home/anna/.local/share/nvadmin"},
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

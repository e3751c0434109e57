// What comes from outside, for each kind of store that keeps a file of its own: other sessions that make and
// drop files, kills, a full disk, and files that are damaged or somebody else's.
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "StoreKinds.h"
#include "engine/stores/NativeStore.h"
#include "engine/stores/OpenStore.h"
#include "engine/stores/SqliteStore.h"

// The system's calls that put a file on its disk, counted on their way.
static std::atomic<int> flushes = 0;
static int Flush(long call, int file) {
  ++flushes;
  return static_cast<int>(syscall(call, file));
}
extern "C" int fdatasync(int file) { return Flush(SYS_fdatasync, file); }
extern "C" int fsync(int file) { return Flush(SYS_fsync, file); }

namespace nvadmin::engine {
namespace {

class StoreTrouble : public StoreTest {};

INSTANTIATE_TEST_SUITE_P(Files, StoreTrouble, testing::Values("JET", kNative));

class StoreOfSessions : public StoreTest {};

INSTANTIATE_TEST_SUITE_P(All, StoreOfSessions, testing::Values("JET", kNative, kServer));

// Another session makes a table anew under handles, statements and scans that were prepared for the old one.
TEST_P(StoreOfSessions, NoticesTablesMadeAnewByOthers) {
  const std::unique_ptr<Store> other = account_.Open();
  MakeTable(*other, "t", 8);
  const TableHandle table = MustOpen(*store_, "t");
  std::string item, second, error;
  std::vector<BatchItem> batch;
  const auto attribute = [&](std::int32_t number) {
    std::string value;
    return store_->ReadAttribute(table, "1", number, value) ? value : "(none)";
  };
  const std::function<void()> operations[] = {
      [&] { EXPECT_EQ(ItemOf(*store_, table, "1"), item); },
      [&] { EXPECT_EQ(attribute(2), second); },
      [&] { EXPECT_EQ(attribute(8), ""); },
      [&] {
        store_->ReadBatch(table, std::vector<std::string_view>{"1", "1"}, batch);
        EXPECT_EQ(batch[1].item, item);
      },
      [&] { EXPECT_EQ(Scanned(*store_, table, kWholeItem), "1," + item + ";"); },
      [&] { EXPECT_EQ(Scanned(*store_, table, {{2}}), "1," + second + ";"); },
      [&] {
        MustWrite(*store_, table, "1", item);
        store_->Commit();
      },
      [&] { EXPECT_GT(store_->Describe(table).limits.size(), 1U); },
      [&] { EXPECT_TRUE(IsNative() || Sql(*store_, "SELECT A0 FROM t") == "1;"); },
      [&] { EXPECT_EQ(store_->TableNames(true).size(), 1U); },
  };
  // Columns, the item, and its second attribute.
  const std::tuple<std::int32_t, const char*, const char*> shapes[] = {
      {8, "a^b", "b"}, {0, "c^d^e", "d"}, {2, "f^g", "g"}, {9, "h^i", "i"}, {9, "j", ""}};
  for (const std::function<void()>& first : operations) {
    for (const auto& [columns, shown, itsSecond] : shapes) {
      SCOPED_TRACE("first operation " + std::to_string(&first - operations) + ", then " + shown);
      item = Dyn(shown);
      second = itsSecond;
      EXPECT_TRUE(other->DropTable("t", error)) << error;
      MustWrite(*other, MakeTable(*other, "t", columns), "1", item);
      other->Commit();
      first();
      for (const std::function<void()>& next : operations) next();
      EXPECT_EQ(store_->Describe(table).layout,
                columns == 0 || IsNative() ? Layout::kItem : Layout::kColumns);
    }
  }
  // Gone, with another in its place.
  EXPECT_TRUE(other->DropTable("t", error));
  const TableHandle neighbour = MakeTable(*other, "u", 1);
  MustWrite(*other, neighbour, "1", "not yours");
  other->Commit();
  EXPECT_EQ(RefusalOfWrite(*store_, table, "1", "a"), "there is no table t in account TEST");
  store_->Commit();
  EXPECT_EQ(ItemOf(*store_, table, "1"), "(none)");
  EXPECT_EQ(ItemOf(*other, neighbour, "1"), "not yours");
}

TEST_P(StoreTrouble, DropWaitsForNobodyInTheMiddleOfAScan) {
  const std::unique_ptr<Store> other = account_.Open();
  const TableHandle table = MakeTable(*store_, "t", 1);
  for (int id = 0; id < 1000; ++id) MustWrite(*store_, table, std::to_string(id), "a");
  store_->Commit();
  int seen = 0;
  store_->Scan(table, {{1}}, [&](std::string_view, auto values) {
    std::string error;
    EXPECT_TRUE(++seen != 10 || other->DropTable("t", error)) << error;
    return values[0] == "a";
  });
  EXPECT_EQ(seen, 1000) << "the scan's state of the database is the one that it began with";
  EXPECT_THROW(Scanned(*store_, table), StoreFailure);
}

TEST_P(StoreTrouble, SessionsOpenANewFileTogether) {
  store_.reset();
  std::filesystem::remove(account_.File());
  std::vector<std::jthread> sessions;
  for (int session = 0; session < 4; ++session) {
    sessions.emplace_back([this, session] {
      EXPECT_EQ(FailureOf([&] { MakeTable(*account_.Open(), "t" + std::to_string(session), 1); }), "");
    });
  }
  sessions.clear();
  EXPECT_EQ(account_.Open()->TableNames(true).size(), 4U);
}

// A program that writes, makes and drops files is killed at various moments: what it had committed is there,
// what it hadn't isn't, each file is there whole or not at all, and the database is sound.
TEST_P(StoreTrouble, SurvivesAKill) {
  store_.reset();
  for (int round = 0; round < 6; ++round) {
    std::filesystem::remove(account_.File());
    ChildProgram writer([this](const auto& tell) {
      const std::unique_ptr<Store> store = account_.Open();
      const TableHandle table = MakeTable(*store, "t", 2);
      std::string error;
      for (int step = 0;; ++step) {
        for (int at = 0; at < 10; ++at)
          MustWrite(*store, table, std::to_string(step * 10 + at), std::string(200, 'x') + Dyn("^a"));
        store->Commit();
        tell();
        MakeTable(*store, "f" + std::to_string(step), 2);
        if (step > 2) store->DropTable("f" + std::to_string(step - 2), error);
      }
    });
    writer.Await(10);
    std::this_thread::sleep_for(std::chrono::microseconds(300) * round);
    const int committed = writer.Kill();
    ASSERT_GE(committed, 10);

    const std::unique_ptr<Store> store = account_.Open();
    int items = 0;
    store->Scan(MustOpen(*store, "t"), {}, [&](auto, auto) { return ++items > 0; });
    EXPECT_GE(items, committed * 10);
    EXPECT_EQ(items % 10, 0);
    const std::vector<std::string> names = store->TableNames(true);
    EXPECT_GE(names.size(), 3U);
    for (const std::string& name : names) MustWrite(*store, MustOpen(*store, name), "new", "a");
    store->Commit();
    Database check(account_.File(), OpenMode::kExisting, std::chrono::seconds(1));
    Statement sound(check,
                    "SELECT integrity_check, (SELECT count(*) FROM sqlite_schema WHERE type = 'table' AND "
                    "name <> 'files' AND name NOT LIKE 'sqlite%') FROM pragma_integrity_check");
    ASSERT_TRUE(sound.Step());
    EXPECT_EQ(sound.Text(0), "ok");
    EXPECT_EQ(sound.Integer(1), static_cast<std::int64_t>(names.size()));
  }
}

TEST_P(StoreTrouble, TellsOfAFullDiskAndGoesOn) {
  const auto limitFiles = [](rlim_t bytes) {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = std::min(bytes, limit.rlim_max);
    setrlimit(RLIMIT_FSIZE, &limit);
  };
  const std::string told = RunInChild([&] {
    signal(SIGXFSZ, SIG_IGN);
    const TableHandle table = MakeTable(*store_, "t", 0);
    MustWrite(*store_, table, "kept", "a");
    store_->Commit();
    const auto fill = [&] {
      std::string error;
      store_->BeginWrites();
      for (int at = 0; at < 300; ++at)
        store_->Write(table, std::to_string(at), std::string(10'000, 'x'), error);
      store_->Commit();
    };
    limitFiles(1 << 20);
    std::string failure = FailureOf(fill);
    EXPECT_FALSE(store_->HasOpenWrites());
    failure += "; " + ItemOf(*store_, table, "kept") + ItemOf(*store_, table, "0");
    limitFiles(RLIM_INFINITY);
    failure += FailureOf(fill);
    return failure + ItemOf(*store_, table, "299").substr(0, 3);
  });
  EXPECT_TRUE(told.starts_with(account_.File().string() + " can't grow: the disk is full (File too large)"))
      << told;
  EXPECT_TRUE(told.ends_with("the writes since the last commit are lost; a(none)xxx")) << told;
}

TEST_P(StoreTrouble, TellsOfADamagedFile) {
  const TableHandle written = MakeTable(*store_, "t", 1);
  for (int id = 0; id < 5000; ++id) MustWrite(*store_, written, std::to_string(id), std::string(100, 'x'));
  store_->Commit();
  store_.reset();
  const std::string name = account_.File().string();
  const std::uintmax_t size = std::filesystem::file_size(name);
  const int sound = 4096 * (IsNative() ? 6 : 3);  // the catalogue
  std::fstream file(name, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(sound) << std::string(size - static_cast<std::uintmax_t>(sound), '\x5A');
  file.close();
  store_ = account_.Open();
  const TableHandle table = MustOpen(*store_, "t");
  const std::string failures[] = {
      FailureOf([&] { Scanned(*store_, table); }),
      FailureOf([&] { ItemOf(*store_, table, "77"); }),
      FailureOf([&] { IsNative() ? Scanned(*store_, table) : Sql(*store_, "SELECT count(*) FROM t"); }),
  };
  for (const std::string& failure : failures)
    EXPECT_TRUE(failure.starts_with(name + " is damaged")) << failure;
  EXPECT_EQ(store_->TableNames(true).size(), 1U) << "the session lives on";
}

TEST(StoreFiles, ACommitIsOnTheDiskUnlessTheAccountSaysOtherwise) {
  for (const std::string_view datastore : {std::string_view("JET"), kNative}) {
    for (const Synchronous synchronous : {Synchronous::kFull, Synchronous::kNormal}) {
      const TemporaryFolder folder;
      Home::Make(folder / "home");
      const auto store = OpenStore(Home(folder / "home"), {"T", std::string(datastore), "", synchronous});
      const TableHandle table = MakeTable(*store, "t", 1);
      const int before = flushes;
      for (const char* id : {"1", "2", "3"}) {
        MustWrite(*store, table, id, "x");
        store->Commit();
      }
      EXPECT_EQ(flushes - before, synchronous == Synchronous::kFull ? 3 : 0) << datastore;
    }
  }
}

TEST(StoreFiles, OnlyTheirOwnAreOpened) {
  const TemporaryFolder folder;
  const auto openTables = [&](const std::filesystem::path& file) { SqliteStore(file, "ACC", "JET"); };
  const auto openNative = [&](const std::filesystem::path& file) { NativeStore(file, "ACC"); };
  const std::filesystem::path tables = folder / "tables.sqlite", native = folder / "native.sqlite";
  for (int twice = 0; twice < 2; ++twice) openTables(tables), openNative(native);
  const std::filesystem::path foreign = folder / "foreign.sqlite", newer = folder / "newer.sqlite";
  Database(foreign, OpenMode::kMake, {}).Execute("CREATE TABLE x (y)");
  std::filesystem::copy_file(tables, newer);
  Database(newer, OpenMode::kMake, {}).Execute("PRAGMA user_version = 2");
  const std::filesystem::path text = folder.Put("text.sqlite", std::string(5000, 'x'));

  const std::string wayOut = "; move it away, and account ACC starts anew";
  const struct {
    const std::filesystem::path& file;
    std::function<void(const std::filesystem::path&)> open;
    std::string want;
  } kCases[] = {
      {foreign, openTables, " is a database, but not of an account" + wayOut},
      {native, openTables, " is a database, but not of an account" + wayOut},
      {tables, openNative, " is a database, but not of a native account" + wayOut},
      {newer, openTables, " is of format 2, made by a newer version of this program; use that one"},
      {text, openTables, " is damaged or no database"},
  };
  for (const auto& row : kCases) {
    const std::string failure = FailureOf([&] { row.open(row.file); });
    EXPECT_TRUE(failure.starts_with(row.file.string() + row.want)) << failure;
  }
}

}  // namespace
}  // namespace nvadmin::engine

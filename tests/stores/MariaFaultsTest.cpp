// What happens to a MariaDB server and on the way to it: connections that are cut at every kind of step, a
// server that is killed and comes back, others' locks, a replica. Nothing that was answered may be missing,
// nothing may be pretended, and the same store goes on when it can.
#include <fmt/format.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <chrono>
#include <thread>

#include "StoreKinds.h"
#include "engine/stores/Maria.h"
#include "engine/stores/OpenStore.h"
#include "tests/support/SocketProxy.h"

namespace nvadmin::engine {
namespace {

constexpr std::string_view kLost = "the writes since the last commit are lost";
constexpr std::string_view kInTheWay =
    "what another session or program reads or writes at a stretch is in the way, and has been for 10 s; try "
    "again (Lock wait timeout";
constexpr std::string_view kUnknownTable = "; whether the change of the table is done is not known: look";
constexpr std::string_view kUnknown = "whether the writes since the last commit are there is not known";

class MariaFaultsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!MariaDatabase::IsThere()) GTEST_SKIP() << MariaDatabase::kSkipped;
    database_ = std::make_unique<MariaDatabase>();
    Home::Make(folder_ / "home");
    proxy_ = std::make_unique<SocketProxy>((folder_ / "proxy").string(), MariaDatabase::Socket());
    ASSERT_TRUE(proxy_->IsThere());
    store_ = Open((folder_ / "proxy").string());
    table_ = MakeTable(*store_, "t", 2);
    Write("kept", "a");
    store_->Commit();
  }
  std::unique_ptr<Store> Open(const std::string& socket) const {
    return OpenStore(Home(folder_ / "home"),
                     {"TEST", "MYSQL", "mariadb://root@/" + database_->Name() + "?socket=" + socket});
  }
  void Write(std::string_view id, std::string_view item) { MustWrite(*store_, table_, id, item); }
  // What is in the table, as another program sees it.
  std::string There() const {
    const std::unique_ptr<Store> other = Open(MariaDatabase::Socket());
    return Scanned(*other, MustOpen(*other, "t"));
  }

  const TemporaryFolder folder_;
  std::unique_ptr<MariaDatabase> database_;
  std::unique_ptr<SocketProxy> proxy_;
  std::unique_ptr<Store> store_;
  TableHandle table_ = -1;
};

TEST_F(MariaFaultsTest, TellsWhatACutLeft) {
  const auto write = [this] { Write("new", "b"); };
  const auto commit = [this] { store_->Commit(); };
  const auto writeAndCommit = [&] { write(), commit(); };
  const auto writeAndRead = [&] { write(), ItemOf(*store_, table_, "kept"); };
  const auto eraseAndCommit = [this] {
    std::string error;
    store_->BeginWrites();
    store_->Erase(table_, "kept", error);
    store_->Commit();
  };
  // On a connection where that isn't prepared, so that its text goes over the wire.
  const auto writeAnew = [&] {
    store_ = Open((folder_ / "proxy").string());
    table_ = MustOpen(*store_, "t");
    writeAndCommit();
  };
  const auto createTable = [this] {
    std::string error;
    store_->CreateTable("other", 1, error);
  };
  const struct {
    const char* name;
    const char* text;  // of what the client sends
    SocketProxy::Cut cut;
    std::function<void()> action;
    std::string_view failure;  // a piece of it; empty: none
    const char* there;
  } kCases[] = {
      {"before the commit", "COMMIT", SocketProxy::Cut::kBefore, writeAndCommit, kUnknown, "kept;"},
      {"behind the commit", "COMMIT", SocketProxy::Cut::kBehind, writeAndCommit, kUnknown, "kept;new;"},
      {"before the writes", "new", SocketProxy::Cut::kBefore, writeAndCommit, kLost, "kept;"},
      {"behind the writes", "new", SocketProxy::Cut::kBehind, writeAndCommit, kLost, "kept;"},
      {"a read within writes", "kept", SocketProxy::Cut::kBehind, writeAndRead, kLost, "kept;"},
      {"behind an erase", "kept", SocketProxy::Cut::kBehind, eraseAndCommit, kLost, "kept;"},
      {"before writes begin", "START TRANSACTION", SocketProxy::Cut::kBefore, writeAndCommit, "",
       "kept;new;"},
      {"when the turn is taken", "FOR UPDATE", SocketProxy::Cut::kBehind, writeAnew, "account TEST at",
       "kept;"},
      {"before a read", "kept", SocketProxy::Cut::kBefore,
       [this] { EXPECT_EQ(ItemOf(*store_, table_, "kept"), "a"); }, "", "kept;"},
      {"behind a read", "kept", SocketProxy::Cut::kBehind,
       [this] { EXPECT_EQ(ItemOf(*store_, table_, "kept"), "a"); }, "", "kept;"},
      {"a scan", "LIMIT", SocketProxy::Cut::kBehind, [this] { Scanned(*store_, table_); }, "account TEST at",
       "kept;"},
      {"a scan's start", "SNAPSHOT", SocketProxy::Cut::kBefore, [this] { Scanned(*store_, table_); }, "",
       "kept;"},
      {"a new table", "CREATE TABLE", SocketProxy::Cut::kBefore, createTable, kUnknownTable, "kept;"},
      {"a table by SQL", "CREATE TABLE", SocketProxy::Cut::kBehind,
       [this] { Sql(*store_, "CREATE TABLE bySql (A0 TEXT)"); }, kUnknownTable, "kept;"},
      {"an SQL change", "UPDATE t", SocketProxy::Cut::kBehind,
       [this] { Sql(*store_, "UPDATE t SET A1 = 'z'"); }, kLost, "kept;"},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.name);
    ItemOf(*store_, table_, "x");  // whatever is prepared is
    store_->BeginWrites();
    store_->Rollback();
    proxy_->CutAt(row.text, row.cut);
    const std::string failure = FailureOf(row.action);
    EXPECT_TRUE(proxy_->HasCut());
    proxy_->CutAt("", SocketProxy::Cut::kBefore);
    EXPECT_EQ(failure.empty(), row.failure.empty()) << failure;
    EXPECT_NE(failure.find(row.failure), std::string::npos) << failure;
    EXPECT_FALSE(store_->HasOpenWrites());
    EXPECT_EQ(There(), row.there);
    EXPECT_EQ(ItemOf(*store_, table_, "kept"), "a") << "the store goes on";
    std::string error;
    store_->BeginWrites();
    store_->Erase(table_, "new", error);
    store_->Commit();
  }
}

// A connection that ended while nobody used it is nobody's loss, whatever comes first.
TEST_F(MariaFaultsTest, GoesOnBehindAKilledConnection) {
  store_ = Open(MariaDatabase::Socket());
  table_ = MustOpen(*store_, "t");
  const std::function<void()> actions[] = {
      [this] { EXPECT_EQ(Sql(*store_, "CREATE OR REPLACE VIEW v AS SELECT A0 FROM t"), "view v created"); },
      [this] { EXPECT_EQ(ItemOf(*store_, table_, "kept"), "a"); },
      [this] { EXPECT_EQ(ItemOf(*store_, MustOpen(*store_, "t"), "kept"), "a"); },
      [this] { EXPECT_EQ(Scanned(*store_, table_), "kept;"); },
      [this] {
        EXPECT_EQ(Scanned(*store_, table_, {{2, 1}}), "kept,,a;");
      },
      [this] { EXPECT_EQ(store_->TableNames(false).size(), 1U); },
      [this] { EXPECT_EQ(store_->Describe(table_).limits.size(), 3U); },
      [this] { EXPECT_EQ(Sql(*store_, "SELECT A1 FROM t"), "a;"); },
      [this] { Write("kept", "a"), store_->Commit(); },
      [this] {
        std::vector<BatchItem> items;
        store_->ReadBatch(table_, std::vector<std::string_view>{"kept", "1", "2", "3", "4"}, items);
        EXPECT_EQ(items[0].item, "a");
      },
      [this] {
        std::string error;
        MakeTable(*store_, "other", 1);
        EXPECT_TRUE(store_->DropTable("other", error)) << error;
      },
  };
  for (const auto& action : actions) {
    for (const char* prepared : {"not prepared", "prepared"}) {
      SCOPED_TRACE("action " + std::to_string(&action - actions) + ", " + prepared);
      database_->KillConnections();
      EXPECT_EQ(FailureOf(action), "");
    }
  }
}

// A walk that loses its server is no short list.
TEST_F(MariaFaultsTest, AScanNeverEndsEarly) {
  for (int id = 0; id < 500; ++id) Write(std::to_string(id), "a");
  store_->Commit();
  int seen = 0;
  const std::string failure = FailureOf([&] {
    store_->Scan(table_, {{1}}, [&](auto, auto) {
      if (++seen == 10) proxy_->CutAt("LIMIT", SocketProxy::Cut::kBefore);
      return true;
    });
  });
  EXPECT_NE(failure.find("account TEST at this machine: Lost connection"), std::string::npos) << failure;
  EXPECT_LT(seen, 500);
  // A read between that connects anew doesn't hide it: the snapshot is gone.
  seen = 0;
  EXPECT_NE(FailureOf([&] {
              store_->Scan(table_, {{1}}, [&](auto, auto) {
                if (++seen == 10) proxy_->CutAt("kept", SocketProxy::Cut::kBefore);
                if (seen == 10) FailureOf([&] { ItemOf(*store_, table_, "kept"); });
                if (seen == 20) ItemOf(*store_, table_, "kept");
                return true;
              });
            }).find("the connection was lost in the middle of a scan"),
            std::string::npos);
  seen = 0;
  store_->Scan(table_, {{1}}, [&](auto, auto) { return ++seen > 0; });
  EXPECT_EQ(seen, 501);
}

TEST_F(MariaFaultsTest, ALockWaitAndADeadlockEnd) {
  MariaAddress address;
  std::string error;
  ASSERT_TRUE(ReadMariaAddress(database_->Address(), address, error)) << error;
  for (int id = 0; id < 50; ++id) Write(std::to_string(id), "a");
  store_->Commit();
  MariaConnection foreign(address, "", "foreign");
  // Who has done more is spared: the foreigner has changed fifty rows.
  foreign.Execute("SET SESSION tx_isolation = 'READ-COMMITTED'", IfLost::kFail);  // locks what it changes
  foreign.Execute("START TRANSACTION", IfLost::kFail);
  foreign.Execute("UPDATE t SET A2 = 'theirs' WHERE A0 <> 'kept'", IfLost::kFail);
  Write("kept", "ours");
  ItemOf(*store_, table_, "x");  // sends it
  std::jthread waiting([&] {
    FailureOf([&] { foreign.Execute("UPDATE t SET A2 = 'theirs' WHERE A0 = 'kept'", IfLost::kFail); });
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  const std::string failure = FailureOf([&] {
    Write("1", "ours");
    store_->Commit();
  });
  waiting.join();
  EXPECT_NE(failure.find("another program's transaction was in the way, and the server let that go on; try "
                         "again (Deadlock"),
            std::string::npos)
      << failure;
  EXPECT_TRUE(failure.ends_with(kLost)) << failure;
  EXPECT_FALSE(store_->HasOpenWrites());
  foreign.Execute("ROLLBACK", IfLost::kFail);
  EXPECT_EQ(ItemOf(*store_, table_, "kept"), "a");

  // Who waits for a row, and who waits for that one's turn to end, are told so after 10 s.
  foreign.Execute("START TRANSACTION", IfLost::kFail);
  foreign.Execute("UPDATE t SET A2 = 'theirs' WHERE A0 = 'kept'", IfLost::kFail);
  const std::unique_ptr<Store> other = Open(MariaDatabase::Socket());
  MustWrite(*other, MustOpen(*other, "t"), "kept", "ours");
  const auto begin = std::chrono::steady_clock::now();
  std::string waited;
  std::jthread forTheRow([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    waited = FailureOf([&] { other->Commit(); });
  });
  EXPECT_EQ(FailureOf([&] { store_->BeginWrites(); }),
            "account TEST is being written to by another session, and has been for 10 s; try again");
  forTheRow.join();
  EXPECT_NE(waited.find(fmt::format("table t: {}", kInTheWay)), std::string::npos) << waited;
  EXPECT_TRUE(waited.ends_with(kLost)) << waited;
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15));
  foreign.Execute("ROLLBACK", IfLost::kFail);
  Write("1", "ours");
  store_->Commit();
}

TEST_F(MariaFaultsTest, ATableIsNotDroppedUnderWhoReadsIt) {
  for (const char* id : {"1", "2"}) Write(id, "a");
  store_->Commit();
  const std::unique_ptr<Store> other = Open(MariaDatabase::Socket());
  std::string error;
  int seen = 0;
  store_->Scan(table_, {}, [&](auto, auto) {
    if (++seen > 1) return true;
    const std::string failure = FailureOf([&] { other->DropTable("t", error); });
    EXPECT_NE(failure.find(kInTheWay), std::string::npos) << failure;
    return true;
  });
  EXPECT_EQ(seen, 3);
  EXPECT_TRUE(other->DropTable("t", error)) << error;
}

// Two sessions that each change an attribute of their own lose nothing of one another.
TEST_F(MariaFaultsTest, WritersTakeTurns) {
  constexpr int kRounds = 50;
  const auto count = [this](Store& store, std::int32_t attribute) {
    const TableHandle table = MustOpen(store, "t");
    for (int round = 1; round <= kRounds; ++round) {
      store.BeginWrites();
      std::string first, second, error;
      store.ReadAttribute(table, "kept", 1, first);
      store.ReadAttribute(table, "kept", 2, second);
      (attribute == 1 ? first : second) = std::to_string(round);
      EXPECT_TRUE(store.Write(table, "kept", first + "\xFE" + second, error)) << error;
      store.Commit();
    }
  };
  std::jthread other([&] { count(*Open(MariaDatabase::Socket()), 2); });
  count(*store_, 1);
  other.join();
  EXPECT_EQ(ItemOf(*store_, table_, "kept"), Dyn("50^50"));
}

TEST(MariaServerTest, GoesOnWhenTheServerIsBack) {
  if (!MariaDatabase::IsThere()) GTEST_SKIP() << MariaDatabase::kSkipped;
  const TemporaryFolder folder;
  const std::string flushed = "--innodb-flush-log-at-trx-commit=1";
  const OwnMariaServer server((folder / "server").string(), flushed);
  ASSERT_TRUE(server.IsThere());
  const auto asRoot = [&](const std::string& sql) { return MariaDatabase::AsRoot(sql, server.Socket()); };
  ASSERT_EQ(asRoot("CREATE DATABASE d CHARACTER SET latin1 COLLATE latin1_nopad_bin"), "");
  Home::Make(folder / "home");
  const std::unique_ptr<Store> store =
      OpenStore(Home(folder / "home"),
                {"TEST", "MYSQL", "mariadb://root@/d?connect-timeout=2&socket=" + server.Socket()});
  const TableHandle table = MakeTable(*store, "t", 1);
  MustWrite(*store, table, "answered", "a");
  store->Commit();
  MustWrite(*store, table, "open", "b");
  ASSERT_TRUE(server.Do("kill"));
  EXPECT_TRUE(FailureOf([&] { store->Commit(); }).ends_with(kLost));
  for (int tries = 0; tries < 2; ++tries) {
    EXPECT_NE(FailureOf([&] { ItemOf(*store, table, "answered"); }).find("the store is unavailable"),
              std::string::npos);
    EXPECT_NE(FailureOf([&] { store->BeginWrites(); }).find("the store is unavailable"), std::string::npos);
  }
  ASSERT_TRUE(server.Do("resume", flushed));
  EXPECT_EQ(Scanned(*store, table), "answered;");
  MustWrite(*store, table, "later", "c");
  store->Commit();

  ASSERT_EQ(asRoot("SET GLOBAL read_only = 1"), "");
  EXPECT_EQ(Scanned(*store, table), "answered;later;");
  EXPECT_NE(
      FailureOf([&] { store->BeginWrites(); }).find("at this machine: the server is read-only, a replica"),
      std::string::npos);
  EXPECT_FALSE(store->HasOpenWrites());
  ASSERT_EQ(asRoot("SET GLOBAL read_only = 0"), "");
  MustWrite(*store, table, "last", "d");
  store->Commit();
  EXPECT_EQ(Scanned(*store, table), "answered;last;later;");
}

// A server that stands still, as one does whose machine has lost its power, and a statement that takes too
// long.
TEST(MariaServerTest, AnswersWithinTheTimeOut) {
  if (!MariaDatabase::IsThere()) GTEST_SKIP() << MariaDatabase::kSkipped;
  const TemporaryFolder folder;
  const OwnMariaServer server((folder / "server").string(), "");
  ASSERT_TRUE(server.IsThere());
  MariaDatabase::AsRoot("CREATE DATABASE d CHARACTER SET latin1 COLLATE latin1_nopad_bin", server.Socket());
  Home::Make(folder / "home");
  const std::unique_ptr<Store> store =
      OpenStore(Home(folder / "home"),
                {"TEST", "MYSQL", "mariadb://root@/d?timeout=3&connect-timeout=1&socket=" + server.Socket()});
  const TableHandle table = MakeTable(*store, "t", 1);
  MustWrite(*store, table, "1", "a");
  store->Commit();
  const std::string tooLong = FailureOf([&] {
    Sql(*store,
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT count(*) FROM n a, n b, n c");
  });
  EXPECT_NE(tooLong.find("it took longer than is allowed; give the account's address a larger timeout="),
            std::string::npos)
      << tooLong;
  const std::string_view unavailable = "the store is unavailable: no server answers at this machine";
  const struct {
    std::function<void()> before, action;
    std::string_view failure;
  } kCases[] = {
      {[] {}, [&] { ItemOf(*store, table, "1"); }, unavailable},
      {[] {}, [&] { Scanned(*store, table); }, unavailable},
      {[] {}, [&] { Sql(*store, "SELECT A1 FROM t"); }, unavailable},
      {[&] { store->BeginWrites(); }, [&] { MustWrite(*store, table, "2", "b"), store->Commit(); }, kLost},
      {[&] { MustWrite(*store, table, "1", "a"), ItemOf(*store, table, "1"); }, [&] { store->Commit(); },
       kUnknown},
  };
  for (const auto& [before, action, failure] : kCases) {
    EXPECT_EQ(Scanned(*store, table, {{1}}), "1,a;");
    before();
    ASSERT_TRUE(server.Do("pause"));
    const auto begin = std::chrono::steady_clock::now();
    const std::string got = FailureOf(action);
    EXPECT_NE(got.find(failure), std::string::npos) << got;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15));
    ASSERT_TRUE(server.Do("continue"));
  }
}

// A file system of a few megabytes, gone with it.
class SmallFileSystem {
 public:
  explicit SmallFileSystem(std::string folder) : folder_(std::move(folder)) {
    isThere_ = mount("none", folder_.c_str(), "tmpfs", 0, "size=20m") == 0;
  }
  ~SmallFileSystem() {
    if (isThere_) umount2(folder_.c_str(), MNT_DETACH);
  }
  SmallFileSystem(const SmallFileSystem&) = delete;
  SmallFileSystem& operator=(const SmallFileSystem&) = delete;
  bool IsThere() const { return isThere_; }

 private:
  std::string folder_;
  bool isThere_ = false;
};

// Where nothing more can be written, what was committed is all there, and nothing else; when there is room
// again, it goes on.
TEST(MariaServerTest, FullDisk) {
  if (!MariaDatabase::IsThere()) GTEST_SKIP() << MariaDatabase::kSkipped;
  const TemporaryFolder folder;
  const OwnMariaServer server((folder / "server").string(), "");
  ASSERT_TRUE(server.IsThere());
  MariaDatabase::AsRoot("CREATE DATABASE d CHARACTER SET latin1 COLLATE latin1_nopad_bin", server.Socket());
  // The folder of the database alone: the server's own files have room.
  const SmallFileSystem disk((folder / "server/data/d").string());
  if (!disk.IsThere()) GTEST_SKIP() << "Skipped: this user can't mount a small file system to fill";
  Home::Make(folder / "home");
  const std::unique_ptr<Store> store =
      OpenStore(Home(folder / "home"), {"TEST", "MYSQL", "mariadb://root@/d?socket=" + server.Socket()});
  const TableHandle table = MakeTable(*store, "t", 1);
  constexpr int kItems = 50;  // of a commit
  const auto id = [](int commit, int item) { return fmt::format("{}-{}", commit, item); };
  int committed = 0;
  std::string failure;
  for (; failure.empty() && committed < 1000; ++committed) {
    failure = FailureOf([&] {
      for (int item = 0; item < kItems; ++item)
        MustWrite(*store, table, id(committed, item), std::string(3000, 'x'));
      store->Commit();
    });
  }
  --committed;
  EXPECT_NE(failure.find("account TEST at this machine: The table 't' is full"), std::string::npos)
      << failure;
  EXPECT_TRUE(failure.ends_with(kLost)) << failure;
  EXPECT_FALSE(store->HasOpenWrites());
  EXPECT_GT(committed, 10);
  EXPECT_EQ(ItemOf(*store, table, id(committed, 0)), "(none)");
  EXPECT_EQ(ItemOf(*store, table, id(committed - 1, kItems - 1)), std::string(3000, 'x'));
  EXPECT_EQ(Sql(*store, "SELECT count(*) FROM t"), std::to_string(kItems * committed) + ";");
  std::string error;
  ASSERT_TRUE(store->ClearTable("t", error)) << error;
  MustWrite(*store, table, "1", "there is room again");
  store->Commit();
  EXPECT_EQ(ItemOf(*store, table, "1"), "there is room again");
}

}  // namespace
}  // namespace nvadmin::engine

// What is a MariaDB store's own: its address, its limits, what it refuses of SQL, and tables that somebody
// changed.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <functional>
#include <thread>

#include "StoreKinds.h"
#include "engine/Home.h"
#include "engine/stores/MariaAddress.h"
#include "engine/stores/OpenStore.h"

namespace nvadmin::engine {
namespace {

std::string Shown(std::string_view text) {
  MariaAddress address;
  std::string error;
  if (!ReadMariaAddress(text, address, error)) return error.substr(0, error.find("; the form is"));
  std::string hosts;
  for (const MariaHost& host : address.hosts) hosts += " " + host.Shown();
  constexpr const char* kTls[] = {"off", "on", "verify"};
  return address.user + " @" + hosts + " / " + address.database + " tls " +
         kTls[static_cast<int>(address.tls)] + (address.socket.empty() ? "" : " socket " + address.socket);
}

TEST(MariaAddressTest, IsReadOrRefusedWithTheReason) {
  const struct {
    const char *text, *want;
  } kCases[] = {
      {"mariadb://ann@db1,db2:3307,[::1]:9/sales", "ann @ db1:3306 db2:3307 [::1]:9 / sales tls verify"},
      {"mariadb://ann@localhost/s?tls=on", "ann @ localhost:3306 / s tls on"},
      {"mariadb://a%40b@/s%2F1?socket=/run/a%20b", "a@b @ this machine / s/1 tls off socket /run/a b"},
      {"mariadb://a@h/s?timeout=9&connect-timeout=1&tls-ca=/x&password-file=/y", "a @ h:3306 / s tls verify"},
      {"mysql://a@h/s", "'mysql://a@h/s' is no address of a database: it doesn't begin with mariadb://"},
      {"mariadb://h/s", "'mariadb://h/s' is no address of a database: it names no user"},
      {"mariadb://a@h", "'mariadb://a@h' is no address of a database: it names no database"},
      {"mariadb://a@/s",
       "'mariadb://a@/s' is no address of a database: it names neither a host nor a socket"},
      {"mariadb://a@h:0/s",
       "'mariadb://a@h:0/s' is no address of a database: '0' is no port; use 1 to 65535"},
      {"mariadb://a@h:1x/s",
       "'mariadb://a@h:1x/s' is no address of a database: '1x' is no port; use 1 to 65535"},
      {"mariadb://a@h/s?x=1", "'mariadb://a@h/s?x=1' is no address of a database: there is no option 'x'"},
      {"mariadb://a@h,/s", "'mariadb://a@h,/s' is no address of a database: a host has no name"},
      {"mariadb://a@,h/s", "'mariadb://a@,h/s' is no address of a database: a host has no name"},
      {"mariadb://a@[]:1/s", "'mariadb://a@[]:1/s' is no address of a database: a host has no name"},
      {"mariadb://a@h:/s", "'mariadb://a@h:/s' is no address of a database: '' is no port; use 1 to 65535"},
      {"mariadb://a@h:65536/s",
       "'mariadb://a@h:65536/s' is no address of a database: '65536' is no port; use 1 to 65535"},
      {"mariadb://a@h/s/t",
       "'mariadb://a@h/s/t' is no address of a database: a '/' in a database's name is written %2F"},
      {"mariadb://a@h/s%00",
       "'mariadb://a@h/s%00' is no address of a database: a '%' in it stands before no two hexadecimal "
       "digits, or for a character 0"},
      {"mariadb://a@h/s?socket",
       "'mariadb://a@h/s?socket' is no address of a database: '' is no value of the option socket"},
      {"mariadb://a@/s?socket=run/x",
       "'mariadb://a@/s?socket=run/x' is no address of a database: 'run/x' is no value of the option socket"},
      {"mariadb://a@h/s?timeout=3601",
       "'mariadb://a@h/s?timeout=3601' is no address of a database: '3601' is no value of the option "
       "timeout"},
      {"mariadb://a@h/s?socket=/x",
       "'mariadb://a@h/s?socket=/x' is no address of a database: it names a host and a socket"},
      {"mariadb://a@h/s?tls=on&tls=off",
       "'mariadb://a@h/s?tls=on&tls=off' is no address of a database: the option tls is given twice"},
      {"mariadb:a:top@h/s", "what was given is no address of a database: it doesn't begin with mariadb://"},
      {"mariadb://a@h/s?password=top",
       "what was given is no address of a database: there is no option 'password'"},
      {"mariadb://a@corp:top@h/s", "what was given is no address of a database: a part of it can't be read"},
      {"mariadb://a@h;i/s", "'mariadb://a@h;i/s' is no address of a database: 'h;i' is no name of a host"},
      {"mariadb://a@localhost/s?tls-ca=/x", "a @ localhost:3306 / s tls verify"},
      {"mariadb://a@localhost/s?tls-ca=/x&tls=off", "a @ localhost:3306 / s tls off"},
      {"", "'' is no address of a database: it doesn't begin with mariadb://"},
      {"mariadb://a@[::1/s", "'mariadb://a@[::1/s' is no address of a database: a bracket never ends"},
      {"mariadb://a@h/s?tls=maybe",
       "'mariadb://a@h/s?tls=maybe' is no address of a database: 'maybe' is no value of the option tls"},
      {"mariadb://a@h/s?timeout=0",
       "'mariadb://a@h/s?timeout=0' is no address of a database: '0' is no value of the option timeout"},
      {"mariadb://a%2@h/s",
       "'mariadb://a%2@h/s' is no address of a database: a '%' in it stands before no two hexadecimal "
       "digits, or for a character 0"},
      {"mariadb://a:top@h/s",
       "what was given is no address of a database: a password has no place in it: give it by the "
       "environment, a file "
       "or at the question"},
  };
  for (const auto& row : kCases) EXPECT_EQ(Shown(row.text), row.want);
}

int Listen(const std::string& path) {
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  EXPECT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(listen(listener, 8), 0);
  return listener;
}

class MariaStoreTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!MariaDatabase::IsThere()) GTEST_SKIP() << MariaDatabase::kSkipped;
    store_ = account_.Open();
  }
  // What the store says when it is opened at this address.
  std::string Opening(const std::string& address) {
    return FailureOf([&] { OpenStore(Home(account_.Folder() / "home"), {"ACC", "MYSQL", address}); });
  }

  const TestAccount account_{kServer};
  std::unique_ptr<Store> store_;
};

// Every attribute filled with more than a row of the server could hold of each, and read back in all ways.
TEST_F(MariaStoreTest, KeepsWideTables) {
  for (const std::int32_t columns : {150, 151, 254, 700, 1200, 1999}) {
    SCOPED_TRACE(columns);
    const std::string name = "W" + std::to_string(columns);
    const TableHandle table = MakeTable(*store_, name, columns);
    std::string item, sparse = std::string(static_cast<std::size_t>(columns) - 1, '\xFE') + "last";
    for (std::int32_t attribute = 1; attribute <= columns; ++attribute)
      item += (attribute > 1 ? "\xFE" : "") + std::to_string(attribute) + std::string(60, 'x');
    MustWrite(*store_, table, std::string(3072, 'k'), item);
    MustWrite(*store_, table, "2", sparse);
    MustWrite(*store_, table, "3", "short");
    MustWrite(*store_, table, "3", "shorter");
    store_->Commit();
    EXPECT_EQ(ItemOf(*store_, table, std::string(3072, 'k')), item);
    EXPECT_EQ(Scanned(*store_, table, kWholeItem),
              "2," + sparse + ";3,shorter;" + std::string(3072, 'k') + "," + item + ";");
    EXPECT_EQ(Scanned(*store_, table, {{columns, 1, columns + 1, columns - 1}}),
              "2,last,,,;3,,shorter,,;" + std::string(3072, 'k') + "," + std::to_string(columns) +
                  std::string(60, 'x') + ",1" + std::string(60, 'x') + ",," + std::to_string(columns - 1) +
                  std::string(60, 'x') + ";");
    std::string value;
    EXPECT_TRUE(store_->ReadAttribute(table, "2", columns, value));
    EXPECT_EQ(value, "last");
    EXPECT_EQ(RefusalOfWrite(*store_, table, "4", sparse + "\xFEx"),
              "table w" + std::to_string(columns) + ", item '4': the table has columns for " +
                  std::to_string(columns) + " attributes, the item has " + std::to_string(columns + 1));
    store_->Commit();
  }
  EXPECT_TRUE(Sql(*store_, "SELECT A151 FROM w254").starts_with("ERROR Unknown column 'A151'"));
  EXPECT_EQ(RefusalOfWrite(*store_, MustOpen(*store_, "w254"), std::string(3073, 'k'), "a").substr(0, 12),
            "table w254, ");
}

TEST_F(MariaStoreTest, KeepsKeysAndNamesExact) {
  const TableHandle table = MakeTable(*store_, "t", 1);
  std::string all;
  for (const char* id : {"A", "A ", "AE", "a", "a\t", "e", "\xC4", "\xC6", "\xE4", "\xE9"}) {
    MustWrite(*store_, table, id, id);
    all.append(id).append(",").append(id).append(";");
  }
  EXPECT_EQ(Scanned(*store_, table, kWholeItem), all);
  EXPECT_EQ(ItemOf(*store_, table, "\xC9"), "(none)");
  store_->Commit();
  MakeTable(*store_, "\xE4", 1);
  MakeTable(*store_, "a\"b/c.. d`\x80", 1);
  std::string error;
  EXPECT_FALSE(
      store_->CreateTable("\xC4"
                          "x ",
                          1, error));
  EXPECT_EQ(error, "the name of table '\xC4x ' ends in a blank, which this store doesn't take");
  EXPECT_FALSE(store_->CreateTable(std::string(65, 'n'), 1, error));
  EXPECT_EQ(error.substr(66),
            std::string(5, 'n') + " would have a name of 65 characters; 64 is the most on this store");
  EXPECT_FALSE(store_->CreateTable("NVADMIN.LOCKS", 1, error));
  MakeTable(*store_, std::string(64, 'n'), 1);
  EXPECT_EQ(store_->TableNames(true).size(), 4U);
  TableHandle none = -1;
  EXPECT_FALSE(store_->OpenTable("a\xCC", none, error) || store_->OpenTable("nvadmin_state", none, error));
}

TEST_F(MariaStoreTest, RunsSqlWithinTheAccountOnly) {
  Sql(*store_, "CREATE TABLE t (A0 VARCHAR(5) PRIMARY KEY, A1 TEXT NOT NULL)");
  const std::string outside = " is not allowed in a sentence: it reaches outside the account";
  Sql(*store_, "SELECT A0 FROM t x WHERE x.A0 = 1");
  const std::string names[] = {"later", "`la\"ter`"};
  for (const std::string& name : names) MariaDatabase::AsRoot("CREATE DATABASE IF NOT EXISTS " + name);
  const struct {
    const char* statement;
    std::string want;
  } kCases[] = {
      {"INSERT INTO t VALUES ('1', 'a\\b'), ('2', '\xE9')", "2 row(s) changed"},
      {"UPDATE t SET A1 = A1 WHERE A0 = '2'", "1 row(s) changed"},
      {"SELECT A1 || 'x' FROM t ORDER BY A0;", "a\\bx;\xE9x;"},
      {"SELECT \"A0\" FROM t -- all of it", "1;2;"},
      {"SELECT 1--1", "1;"},
      {"CREATE INDEX i ON t (A1(20))", "index i created"},
      {"CREATE VIEW v AS SELECT A0 FROM t", "view v created"},
      {"DROP VIEW v", "view v dropped"},
      {"CREATE TABLE x (a INT)", "table x created"},
      {"SELECT 1 /*!, load_file('/etc/passwd') */", "1;"},
      {"SELECT 1 --,load_file('/etc/passwd')", "1;"},
      {"SELECT load_file ('/etc/passwd')", "ERROR load_file" + outside},
      {"SELECT A0 FROM t INTO OUTFILE '/tmp/x'", "ERROR OUTFILE" + outside},
      {"SELECT * FROM mysql.user", "ERROR database mysql" + outside},
      {"SELECT * FROM \"information_schema\" . TABLES", "ERROR database information_schema" + outside},
      {"SELECT @@datadir", "ERROR a variable (@)" + outside},
      {"CREATE TABLE y (a INT) ENGINE=CSV", "ERROR ENGINE" + outside},
      {"SELECT * FROM nvadmin_state",
       "ERROR nvadmin_state is not allowed in a sentence: it is this store's own"},
      {"DELETE FROM t WHERE A0 = '1' RETURNING A1",
       "ERROR RETURNING is not allowed in a sentence: a change tells how many rows it changed; read them "
       "behind it"},
      {"SELECT sleep(9)", "ERROR sleep is not allowed in a sentence: it holds up the server"},
      {"SELECT 1 # '\n, load_file('/etc/passwd') # '",
       "ERROR a comment behind # is not allowed in a sentence: write it behind --"},
      {"SELECT load_file\xA0('/etc/passwd')",
       "ERROR a no-break blank outside quotes is not allowed in a sentence: type a blank"},
      {"SELECT * FROM mysql\v.user",
       "ERROR a control character outside quotes is not allowed in a sentence: type a blank"},
      {"CREATE TABLE y (a INT) AVG_ROW_LENGTH=5.ENGINE=CSV",
       "ERROR 5.ENGINE is not allowed in a sentence: a number ends in a digit; a name that begins with one "
       "stands in quotes"},
      {"SELECT .5 + 1e-1 + 0x1F + 1.5E1 + 1.", "47.6;"},
      {"SELECT '\xA0#\v' = \"A0\" FROM t -- # \xA0\v\n LIMIT 1", "0;"},
      {"SELECT x.A1 FROM t x WHERE x.A0 = '2'", "\xE9;"},
      {"SELECT * FROM later.t", "ERROR database later" + outside},
      {"SELECT * FROM \"la\"\"ter\".t", "ERROR database la\"ter" + outside},
      {"ALTER TABLE t RENAME TO later.t", "ERROR database later" + outside},
      {"SELECT 1; SELECT 2", "ERROR a sentence is one SQL statement; a second one begins with SELECT"},
      {"BEGIN", "ERROR BEGIN is not allowed in a sentence: the engine opens and ends transactions itself"},
      {"INSERT INTO t VALUES ('1', 'twice')", "ERROR Duplicate entry '1' for key 'PRIMARY'"},
      {"SELECT 'never", "ERROR the statement's 'never never ends"},
  };
  for (const auto& row : kCases)
    EXPECT_EQ(Sql(*store_, row.statement).substr(0, 200), row.want) << row.statement;
  for (const std::string& name : names) MariaDatabase::AsRoot("DROP DATABASE " + name);
  for (const char* statement : {"GRANT ALL ON x TO y",
                                "CALL p()",
                                "CREATE USER u",
                                "HANDLER t OPEN",
                                "SHUTDOWN",
                                "DROP DATABASE x",
                                "PREPARE p FROM 'SELECT 1'",
                                "EXECUTE IMMEDIATE 'SELECT 1'",
                                "DEALLOCATE PREPARE p",
                                "DO sleep(1)",
                                "CREATE FUNCTION f() RETURNS INT RETURN 1",
                                "CREATE OR REPLACE PROCEDURE p() SELECT 1",
                                "KILL 1",
                                "CREATE TRIGGER g BEFORE INSERT ON t FOR EACH ROW SET NEW.A1 = ''",
                                "XA START 'x'",
                                "FLUSH TABLES",
                                "CREATE TEMPORARY TABLE x (a INT)",
                                "CREATE DEFINER = root@localhost VIEW v AS SELECT 1",
                                "SHOW TABLES",
                                "CREATE EVENT e ON SCHEDULE EVERY 1 DAY DO DROP TABLE t",
                                "TRUNCATE TABLE mysql.user",
                                "ANALYZE TABLE t"})
    EXPECT_NE(Sql(*store_, statement).find("is not allowed in a sentence: a sentence is SELECT"),
              std::string::npos)
        << statement;
  for (const char* statement :
       {"LOAD DATA INFILE '/etc/passwd' INTO TABLE t", "SET GLOBAL read_only = 1",
        "SET STATEMENT max_statement_time = 0 FOR SELECT 1", "USE mysql", "LOCK TABLES t READ",
        "UNLOCK TABLES", "START TRANSACTION", "SAVEPOINT s", "/*! SET */ SET sql_mode = ''"})
    EXPECT_NE(Sql(*store_, statement).find(" is not allowed in a sentence: "), std::string::npos)
        << statement;
  EXPECT_EQ(ItemOf(*store_, MustOpen(*store_, "t"), "2"), "\xE9");
}

TEST_F(MariaStoreTest, InterruptsAStatement) {
  Sql(*store_, "CREATE TABLE n (A0 VARCHAR(5) PRIMARY KEY, A1 TEXT NOT NULL)");
  for (int row = 0; row < 200; ++row) MustWrite(*store_, MustOpen(*store_, "n"), std::to_string(row), "a");
  store_->Commit();
  std::jthread other([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    store_->Interrupt();
  });
  EXPECT_EQ(FailureOf([&] {
              Sql(*store_, "SELECT count(*) FROM n a, n b, n c, n d, n e WHERE a.A1 < b.A1 || c.A1");
            }),
            "interrupted");
  other.join();
  store_->Interrupt();  // nothing runs: it stops nothing
  EXPECT_EQ(Sql(*store_, "SELECT count(*) FROM n"), "200;");
}

// Under the store's feet, as by another program.
TEST_F(MariaStoreTest, SeesTablesChangedByHand) {
  const struct {
    const char *change, *fault;
  } kCases[] = {
      {"ALTER TABLE t DROP COLUMN A2", "it lacks column A2"},
      {"ALTER TABLE t DROP COLUMN A111", "it lacks column A111"},
      {"ALTER TABLE t DROP COLUMN `A+`", "it lacks column A+"},
      {"ALTER TABLE t MODIFY A1 INT NOT NULL",
       "its column A1 is int, but must be text of the collation latin1_nopad_bin"},
      {"ALTER TABLE t MODIFY A0 VARCHAR(9) COLLATE latin1_swedish_ci",
       "its column A0 is varchar of the collation latin1_swedish_ci"},
      {"ALTER TABLE t DROP PRIMARY KEY", "its primary key must be A0 alone"},
      {"ALTER TABLE t ADD COLUMN ITEM TEXT COLLATE latin1_nopad_bin", "it has both ITEM and A1"},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.change);
    const TableHandle table = MakeTable(*store_, "t", 200);
    MustWrite(*store_, table, "1", "7");
    store_->Commit();
    EXPECT_EQ(account_.Server()->Run(row.change), "");
    store_.reset();
    store_ = account_.Open();
    TableHandle none = -1;
    std::string error;
    EXPECT_FALSE(store_->OpenTable("t", none, error));
    EXPECT_EQ(error.find(std::string("table t can't be used as a file: ") + row.fault), 0U) << error;
    EXPECT_TRUE(error.ends_with(
        "; somebody changed the table by hand: change it back, or remove it with DROP TABLE \"t\""))
        << error;
    EXPECT_TRUE(store_->DropTable("t", error)) << error;
  }
  // One made by hand refuses by its own constraint; what was written before stays.
  account_.Server()->Run(
      "CREATE TABLE h (A0 VARCHAR(9) PRIMARY KEY, A1 VARCHAR(3), A2 TEXT, CHECK (A1 <> 'no'))");
  const TableHandle hand = MustOpen(*store_, "h");
  EXPECT_EQ(store_->Describe(hand).limits, (std::vector<std::int64_t>{9, 3, 65535}));
  MustWrite(*store_, hand, "1", "yes");
  EXPECT_NE(RefusalOfWrite(*store_, hand, "2", "no").find("table h, item '2': CONSTRAINT"),
            std::string::npos);
  store_->Commit();
  account_.Server()->Run("INSERT INTO h VALUES ('3', NULL, 'x')");
  EXPECT_EQ(Scanned(*store_, hand, kWholeItem), "1,yes;3," + Dyn("^x") + ";");
  EXPECT_EQ(Scanned(*store_, hand, {{1, 2}}), "1,yes,;3,,x;");
}

// The same, while the table is open: every routine tells it, and the next use knows.
TEST_F(MariaStoreTest, SeesAnOpenTableChangedByHand) {
  const struct {
    const char *change, *read, *written, *next;  // what each says; empty: nothing
  } kCases[] = {
      {"ALTER TABLE t DROP COLUMN A2", "it lacks column A2; a file has", "Unknown column 'A2'",
       "it lacks column A2"},
      {"ALTER TABLE t DROP COLUMN A2, DROP COLUMN A1, ADD COLUMN x INT", "it has neither ITEM nor A1",
       "Unknown column 'A1'", "it has neither ITEM nor A1"},
      {"ALTER TABLE t MODIFY A1 INT NOT NULL", "", "Incorrect integer value: 'written'",
       "its column A1 is int"},
      {"ALTER TABLE t MODIFY A1 VARCHAR(3) NOT NULL", "", "Data too long for column 'A1'",
       "column A1 holds 3 characters, the text has 7"},
      {"ALTER TABLE t ADD COLUMN due INT NOT NULL", "", "Field 'due' doesn't have a default value",
       "table t, item '2': Field 'due' doesn't have a default value"},
      {"ALTER TABLE t ADD CONSTRAINT short CHECK (length(A1) < 5)", "", "CONSTRAINT `short` failed",
       "table t, item '2': CONSTRAINT `short` failed"},
      {"CREATE TRIGGER stop BEFORE INSERT ON t FOR EACH ROW SIGNAL SQLSTATE '45000' SET MESSAGE_TEXT = 'not "
       "today'",
       "", "not today", "table t, item '2': not today"},
      {"RENAME TABLE t TO u", "(none)", "doesn't exist", "there is no table t in account TEST"},
      {"DROP TABLE t", "(none)", "doesn't exist", "there is no table t in account TEST"},
  };
  std::string error;
  for (const auto& row : kCases) {
    for (const std::string then : {"read", "read within open writes", "written to"}) {
      SCOPED_TRACE(row.change + (", then " + then));
      store_->DropTable("t", error);
      store_->DropTable("u", error);
      const TableHandle table = MakeTable(*store_, "t", 2);
      MustWrite(*store_, table, "1", "7");
      store_->Commit();
      EXPECT_EQ(account_.Server()->Run(row.change), "");
      const std::string wanted = row.read;
      if (then != "written to") {
        if (then != "read") store_->BeginWrites();
        std::string item;
        const std::string failure = FailureOf([&] { item = ItemOf(*store_, table, "1"); });
        if (wanted.empty() || wanted == "(none)") {
          EXPECT_EQ(failure, "");
          EXPECT_EQ(item, wanted.empty() ? "7" : wanted);
        } else {
          EXPECT_NE(failure.find(wanted), std::string::npos) << failure;
        }
        store_->Rollback();
      } else {
        const std::string failure = FailureOf([&] {
          MustWrite(*store_, table, "2", "written");
          store_->Commit();
        });
        EXPECT_NE(failure.find(row.written), std::string::npos) << failure;
        EXPECT_TRUE(failure.starts_with("table t: ")) << failure;
        EXPECT_TRUE(failure.ends_with("; the writes since the last commit are lost")) << failure;
        EXPECT_FALSE(store_->HasOpenWrites());
        EXPECT_NE(RefusalOfWrite(*store_, table, "2", "written").find(row.next), std::string::npos)
            << RefusalOfWrite(*store_, table, "2", "written");
        store_->Commit();
      }
    }
  }
  account_.Server()->Run("CREATE TABLE p (A0 VARCHAR(9) PRIMARY KEY, A1 TEXT)");
  const TableHandle keyless = MustOpen(*store_, "p");
  account_.Server()->Run("ALTER TABLE p DROP PRIMARY KEY");
  EXPECT_NE(FailureOf([&] { ItemOf(*store_, keyless, "1"); }).find("its primary key must be A0 alone"),
            std::string::npos);
  // A refused item costs itself alone, once that is known.
  account_.Server()->Run("CREATE TABLE c (A0 VARCHAR(9) PRIMARY KEY, A1 TEXT, UNIQUE (A1(9)))");
  const TableHandle table = MustOpen(*store_, "c");
  MustWrite(*store_, table, "1", "a");
  EXPECT_EQ(RefusalOfWrite(*store_, table, "2", "a"),
            "table c, item '2': Column 'A0' cannot be null (another item may have the value that an index of "
            "the table "
            "allows once)");
  MustWrite(*store_, table, "3", "b");
  store_->Commit();
  EXPECT_EQ(Scanned(*store_, table, kWholeItem), "1,a;3,b;");
  const TableHandle made = MakeTable(*store_, "made", 2);
  MustWrite(*store_, made, "1", "a");
  store_->Commit();
  account_.Server()->Run("CREATE UNIQUE INDEX once ON made (A1(9))");
  MustWrite(*store_, made, "2", "a");
  EXPECT_NE(FailureOf([&] { store_->Commit(); }), "");
  EXPECT_EQ(Scanned(*store_, made, kWholeItem), "1,a;") << "another item was changed";
}

// Our own table gone or emptied: every routine fails with the reason, none takes it for a missing item.
TEST_F(MariaStoreTest, MissesItsOwnTables) {
  const TableHandle table = MakeTable(*store_, "t", 2);
  MustWrite(*store_, table, "1", "a");
  store_->Commit();
  std::string error, text;
  std::vector<BatchItem> items;
  const std::vector<std::string_view> ids = {"1"};
  const std::function<void()> uses[] = {
      [&] { store_->Read(table, "1", text); },
      [&] { store_->ReadAttribute(table, "1", 1, text); },
      [&] { store_->ReadBatch(table, ids, items); },
      [&] { Scanned(*store_, table); },
      [&] { store_->BeginWrites(); },
      [&] { store_->CreateTable("x", 1, error); },
      [&] { MustOpen(*store_, "t"); },
  };
  const struct {
    const char *change, *want, *opening;
  } kChanges[] = {
      {"DELETE FROM nvadmin_state", "somebody emptied the table nvadmin_state; restore it, or make the",
       "somebody emptied the table nvadmin_state"},
      {"DROP TABLE nvadmin_state", "a table of this program's own is gone; restore it",
       "holds tables, but isn't an account's"}};
  for (const auto& [change, want, opening] : kChanges) {
    EXPECT_EQ(account_.Server()->Run(change), "");
    EXPECT_NE(Opening(account_.Server()->Address()).find(opening), std::string::npos) << change;
    for (const std::function<void()>& use : uses) {
      const std::string failure = FailureOf(use);
      EXPECT_NE(failure.find(want), std::string::npos) << &use - uses << ": " << failure;
      EXPECT_FALSE(store_->HasOpenWrites());
    }
  }
}

// What tells how a file was made isn't guessed when it is gone, and serves the copies that SQL makes of it.
TEST_F(MariaStoreTest, KnowsHowFilesWereMade) {
  std::string error;
  const std::string wide = "1" + std::string(199, '\xFE') + "200";
  const TableHandle table = MakeTable(*store_, "t", 200);
  MustWrite(*store_, table, "1", wide);
  EXPECT_EQ(Sql(*store_, "CREATE TABLE copy LIKE t"), "table copy created");
  EXPECT_EQ(Sql(*store_, "INSERT INTO copy SELECT * FROM t"), "1 row(s) changed");
  EXPECT_EQ(ItemOf(*store_, MustOpen(*store_, "copy"), "1"), wide);
  EXPECT_TRUE(store_->DropTable("copy", error)) << error;
  store_ = account_.Open();
  EXPECT_EQ(ItemOf(*store_, MustOpen(*store_, "t"), "1"), wide);
  for (const char* change :
       {"UPDATE nvadmin_files SET declaration = ''", "UPDATE nvadmin_files SET declaration = 'C 150'",
        "UPDATE nvadmin_files SET declaration = 'C 9 1 1'",
        "UPDATE nvadmin_files SET declaration = 'C -1 1 1 1'", "DELETE FROM nvadmin_files"}) {
    EXPECT_EQ(account_.Server()->Run(change), "");
    store_ = account_.Open();
    TableHandle none = -1;
    EXPECT_FALSE(store_->OpenTable("t", none, error)) << change;
    EXPECT_EQ(error.find("table t can't be used as a file: how it was made is no longer to be read in row "),
              0U)
        << error;
  }
  EXPECT_TRUE(store_->DropTable("t", error)) << error;
}

// What only the programs share is made anew by the next that opens the account; what tells how the files were
// declared isn't.
TEST_F(MariaStoreTest, MakesWhatProgramsShareAnew) {
  MustWrite(*store_, MakeTable(*store_, "t", 2), "1", "a");
  store_->Commit();
  for (const char* change : {"DROP TABLE nvadmin_locks", "DROP TABLE nvadmin_programs"}) {
    EXPECT_EQ(account_.Server()->Run(change), "");
    const std::unique_ptr<Store> next = account_.Open();
    EXPECT_EQ(ItemOf(*next, MustOpen(*next, "t"), "1"), "a") << change;
    EXPECT_EQ(account_.Server()->Run("SELECT count(*) FROM nvadmin_locks, nvadmin_programs"), "0\n");
  }
  EXPECT_EQ(account_.Server()->Run("DROP TABLE nvadmin_files"), "");
  EXPECT_NE(Opening(account_.Server()->Address()).find("lacks the table nvadmin_files, which tells how"),
            std::string::npos);
}

TEST_F(MariaStoreTest, RefusesItemsBeyondTheServersPacket) {
  const TableHandle table = MakeTable(*store_, "t", 0);
  const std::string most = MariaDatabase::AsRoot("SELECT @@max_allowed_packet - 65536");
  const std::string large(std::stoul(most), 'x');
  MustWrite(*store_, table, "1", large);
  EXPECT_NE(RefusalOfWrite(*store_, table, "2", large + "x")
                .find("is the most that the server's max_allowed_packet"),
            std::string::npos);
  store_->Commit();
  // Neither a long ID nor a long sentence costs the connection.
  std::vector<BatchItem> items;
  const std::vector<std::string_view> ids = {"1", large, "2"};
  store_->ReadBatch(table, ids, items);
  EXPECT_TRUE(items[0].found && !items[1].found && !items[2].found);
  std::string text, error;
  EXPECT_FALSE(store_->Read(table, large, text));
  store_->BeginWrites();
  EXPECT_FALSE(store_->Erase(table, large + large, error));
  EXPECT_NE(error.find("is the most that the server's max_allowed_packet"), std::string::npos) << error;
  const std::string tooLong = "ERROR the statement has ";
  for (const char* sql : {"SELECT '", "UPDATE t SET ITEM = '", "CREATE TABLE x (a TEXT DEFAULT '"})
    EXPECT_EQ(Sql(*store_, sql + large + large + "'").substr(0, tooLong.size()), tooLong) << sql;
  EXPECT_FALSE(store_->HasOpenWrites());
  EXPECT_EQ(ItemOf(*store_, table, "1"), large);
  EXPECT_EQ(Scanned(*store_, table), "1;");
}

TEST_F(MariaStoreTest, OpensAnAccountsDatabasesOnly) {
  const std::string socket = "?connect-timeout=1&socket=" + MariaDatabase::Socket();
  const MariaDatabase wide("CHARACTER SET utf8mb4"), taken;
  taken.Run("CREATE TABLE bills (x INT)");
  MariaDatabase::AsRoot("CREATE OR REPLACE USER nobody@localhost IDENTIFIED BY 'right'; GRANT ALL ON " +
                        taken.Name() + ".* TO nobody@localhost");
  // A server that takes connections and says nothing.
  const std::string silent = (account_.Folder() / "silent").string();
  const int listener = Listen(silent);
  const struct {
    std::string address, want;
  } kCases[] = {
      {"mariadb://root@/nv_none" + socket,
       "it has no database nv_none; make it with CREATE DATABASE nv_none CHARACTER SET latin1"},
      {wide.Address(),
       "collation utf8mb4_general_ci, under which item IDs aren't exact; change it with ALTER DATABASE"},
      {taken.Address(), "holds tables, but isn't an account's; an account needs a database of its own"},
      {"mariadb://nobody@/" + taken.Name() + socket,
       "it refuses user nobody: the user name or the password is wrong"},
      {"mariadb://root@/x?connect-timeout=1&socket=" + silent,
       "the store is unavailable: no server answers at this machine"},
      {"mariadb://root@127.0.0.1:1,[::1]:1/x?tls=off", "no server answers at 127.0.0.1:1 ("},
      {"mariadb://root@/x?password-file=/none&socket=/x", "the password can't be read from /none"},
  };
  for (const auto& row : kCases) {
    const auto begin = std::chrono::steady_clock::now();
    const std::string failure = Opening(row.address);
    EXPECT_NE(failure.find(row.want), std::string::npos) << row.address << ": " << failure;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4)) << row.address;
  }
  close(listener);
  taken.Run(
      "CREATE TABLE nvadmin_state (id TINYINT, format INT, version BIGINT); INSERT INTO nvadmin_state VALUES "
      "(1, 2, 1)");
  EXPECT_NE(Opening(taken.Address()).find("is of format 2, made by a newer version of this program"),
            std::string::npos);
  EXPECT_NE(FailureOf([&] {
              OpenStore(Home(account_.Folder() / "home"), {"ACC", "JET", wide.Address()});
            }).find("the datastore word JET has no store at an address"),
            std::string::npos);
}

}  // namespace
}  // namespace nvadmin::engine

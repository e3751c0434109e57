// Servers that are not as the tests' usual one: with settings of other people's, over TLS, with a small
// packet, too old; and what is told of a database before an account lies there.
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "StoreKinds.h"
#include "engine/Home.h"
#include "engine/stores/CheckStore.h"
#include "engine/stores/OpenStore.h"

namespace nvadmin::engine {
namespace {

class MariaServersTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!MariaDatabase::IsThere()) GTEST_SKIP() << MariaDatabase::kSkipped;
    Home::Make(folder_ / "home");
  }
  std::unique_ptr<Store> Open(const std::string& address) const {
    return OpenStore(Home(folder_ / "home"), {"TEST", "MYSQL", address});
  }
  // Lines "word: text", and whether an account can be there.
  std::string Check(const std::string& address) const {
    bool isFit = false;
    std::string text;
    for (const auto& [word, line] :
         CheckStore(FindStorePlace(Home(folder_ / "home"), {"TEST", "MYSQL", address}), isFit))
      text.append(word).append(": ").append(line).append("\n");
    return text + (isFit ? "fit" : "unfit");
  }

  const TemporaryFolder folder_;
};

// A port of this machine that nobody listens at.
int FreePort() {
  const int holder = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  EXPECT_EQ(bind(holder, reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(getsockname(holder, reinterpret_cast<sockaddr*>(&address), &size), 0);
  close(holder);
  return ntohs(address.sin_port);
}

// Takes one connection, calls itself a server of that version, and lets everybody in.
class FakeServer {
 public:
  FakeServer(std::string path, std::string version) : path_(std::move(path)), version_(std::move(version)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(listener_, 1), 0);
    thread_ = std::thread([this] { Serve(); });
  }
  ~FakeServer() {
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
    unlink(path_.c_str());
  }

 private:
  void Serve() const {
    using namespace std::string_literals;
    const int client = accept(listener_, nullptr, nullptr);
    if (client < 0) return;
    // Protocol 10, thread, scramble, capabilities, character set, state, plugin.
    const std::string greeting = "\x0A"s + version_ + "\0\1\0\0\0abcdefgh\0\xFF\xF7\x08\2\0\x0F\x80\x15"s +
                                 std::string(10, '\0') + "ijklmnopqrst\0mysql_native_password\0"s;
    Send(client, 0, greeting);
    char answer[4096];
    if (recv(client, answer, sizeof answer, 0) > 0) Send(client, 2, "\0\0\0\2\0\0\0"s);
    while (recv(client, answer, sizeof answer, 0) > 0) {
    }
    close(client);
  }
  static void Send(int client, char number, const std::string& payload) {
    const std::string packet = std::string{static_cast<char>(payload.size()), '\0', '\0', number} + payload;
    EXPECT_EQ(send(client, packet.data(), packet.size(), MSG_NOSIGNAL), std::ssize(packet));
  }

  std::string path_, version_;
  int listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::thread thread_;
};

TEST_F(MariaServersTest, ThatAreTooOldAreRefused) {
  const std::pair<const char*, const char*> versions[] = {{"5.5.5-10.1.48-MariaDB", "10.1.48-MariaDB"},
                                                          {"5.5.5-10.5.99-MariaDB", "10.5.99-MariaDB"},
                                                          {"8.0.36", "8.0.36"}};
  for (const auto& [version, shown] : versions) {
    const std::string path = (folder_ / "old").string();
    const FakeServer server(path, version);
    EXPECT_EQ(FailureOf([&] { Open("mariadb://root@/d?timeout=5&socket=" + path); }),
              "account TEST at this machine: the server is " + std::string(shown) +
                  ", which is too old or not MariaDB; use MariaDB 10.6 or later");
  }
}

// Nothing is sent in plain text where the address asks for encryption.
TEST_F(MariaServersTest, WithoutEncryptionAreRefused) {
  const OwnMariaServer server((folder_ / "plain").string(), "--skip-ssl");
  ASSERT_TRUE(server.IsThere());
  MariaDatabase::AsRoot("CREATE DATABASE d CHARACTER SET latin1 COLLATE latin1_nopad_bin", server.Socket());
  const std::string address = "mariadb://root@/d?socket=" + server.Socket();
  EXPECT_EQ(FailureOf([&] { Open(address); }), "");
  for (const char* tls : {"&tls=on", "&tls=verify", "&tls-ca=/etc/hostname"})
    EXPECT_NE(FailureOf([&] { Open(address + tls); }).find("can't be encrypted as the address asks ("),
              std::string::npos)
        << tls;
}

// Everything at once that another's configuration may bring.
TEST_F(MariaServersTest, OfOtherSettingsServeAlike) {
  const auto file = [&](const char* name) { return (folder_ / name).string(); };
  const std::string shell =
      "cd " + folder_.Path().string() +
      " && openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=authority -keyout ca.key -out ca.pem "
      "&& cp ca.pem other.pem && openssl req -newkey rsa:2048 -nodes -subj /CN=server -keyout server.key "
      "-out "
      "server.csr && echo subjectAltName=DNS:localhost >names && openssl x509 -req -in server.csr -CA ca.pem "
      "-CAkey ca.key -CAcreateserial -days 2 -extfile names -out server.pem && openssl req -x509 -newkey "
      "rsa:2048 -nodes -days 2 -subj /CN=another -keyout other.key -out other.pem";
  ASSERT_EQ(std::system(("(" + shell + ") >" + file("openssl.log") + " 2>&1").c_str()), 0)
      << folder_.Text("openssl.log");
  const std::string port = std::to_string(FreePort());
  const OwnMariaServer server(
      file("server"),
      "--skip-networking=0 --bind-address=127.0.0.1 --port=" + port + " --ssl-ca=" + file("ca.pem") +
          " --ssl-cert=" + file("server.pem") + " --ssl-key=" + file("server.key") +
          " --max-allowed-packet=1M --skip-character-set-client-handshake "
          "--character-set-server=utf8mb4 --sql-mode=ANSI --default-storage-engine=MyISAM "
          "--transaction-isolation=READ-UNCOMMITTED --transaction-read-only=1 --max-join-size=5 "
          "--autocommit=0 --lower-case-table-names=0");
  ASSERT_TRUE(server.IsThere());
  const auto asRoot = [&](const std::string& sql) {
    return MariaDatabase::AsRoot("SET autocommit = 1, tx_read_only = 0; " + sql, server.Socket());
  };
  EXPECT_EQ(asRoot("CREATE DATABASE d CHARACTER SET latin1 COLLATE latin1_nopad_bin;"
                   "SET GLOBAL init_connect = 'SET NAMES utf8mb4, sql_select_limit = 3';"
                   "CREATE USER ann@localhost IDENTIFIED BY 'so secret' REQUIRE SSL;"
                   "GRANT ALL ON d.* TO ann@localhost; CREATE USER few@localhost; GRANT SELECT ON d.* TO "
                   "few@localhost"),
            "");
  folder_.Put("password", "so secret\r\n");
  const std::string user = "mariadb://ann@localhost:" + port + "/d?password-file=" + file("password");
  const std::string verified = user + "&tls=verify&tls-ca=" + file("ca.pem");

  const std::pair<std::string, const char*> refused[] = {
      {user, "it refuses user ann: the user name or the password is wrong"},  // not encrypted
      {user + "&tls=verify&tls-ca=" + file("other.pem"),
       "the connection can't be encrypted as the address asks ("},
      {user + "&tls=verify&tls-ca=" + file("none"),
       "the connection can't be encrypted as the address asks ("},
      {"mariadb://ann@127.0.0.1:" + port + "/d?tls=verify&tls-ca=" + file("ca.pem"),
       "the connection can't be encrypted as the address asks ("},  // not the certificate's name
      {"mariadb://few@localhost:" + port + "/d", "CREATE command denied to user 'few'@'localhost'"},
  };
  for (const auto& [address, want] : refused) {
    const std::string failure = FailureOf([&, &place = address] { Open(place); });
    EXPECT_NE(failure.find(want), std::string::npos) << address << ": " << failure;
  }
  const std::string few = Check("mariadb://few@localhost:" + port + "/d");
  EXPECT_TRUE(
      few.ends_with("database: user few lacks rights on database d: INSERT, UPDATE, DELETE, CREATE, DROP; "
                    "give them with GRANT ALL ON d.* TO few@localhost\nunfit"))
      << few;
  const std::string told = Check(verified);
  for (const char* want :
       {"server: 10.", ("-MariaDB"), "connection: TLS, ", "character set: latin1, collation latin1_nopad_bin",
        "engine: tables are made as InnoDB; the server's own default is MyISAM",
        "limits: items of 983040 bytes", "rights: GRANT USAGE ON",
        "GRANT ALL PRIVILEGES ON \"d\".* TO \"ann\"@\"localhost\"", "database: d can hold an account\nfit"})
    EXPECT_NE(told.find(want), std::string::npos) << want << " in:\n" << told;
  EXPECT_EQ(told.find("so secret"), std::string::npos);

  std::string everyByte;
  for (int byte = 0; byte < 256; ++byte) everyByte += static_cast<char>(byte);
  const std::string key = everyByte.substr(128, 126);
  const std::unique_ptr<Store> store = Open(verified);
  EXPECT_EQ(Sql(*store, "SELECT '\\' || 'x'"), "\\x;");
  for (const std::int32_t attributes : {0, 200}) {
    const std::string name = attributes == 0 ? "whole" : "cols";
    const std::string item = attributes == 0 ? everyByte : everyByte.substr(0, 254);
    const TableHandle table = MakeTable(*store, name, attributes);
    MustWrite(*store, table, key, item);
    // Batches that are larger than the packet, by their bytes and by their number of parameters.
    for (int id = 0; id < 20; ++id)
      MustWrite(*store, table, "l" + std::to_string(id), std::string(60'000, 'x'));
    for (int id = 0; id < 1000; ++id) MustWrite(*store, table, std::to_string(id), "x");
    MustWrite(*store, table, "longest", std::string(983'040, 'x'));
    EXPECT_EQ(RefusalOfWrite(*store, table, "2", std::string(983'041, 'x')),
              "table " + name +
                  ", item '2': the item has 983041 characters, 983040 is the most that the server's "
                  "max_allowed_packet lets through");
    store->Commit();
    EXPECT_EQ(ItemOf(*store, table, key), item);
    EXPECT_EQ(ItemOf(*store, table, "l19"), std::string(60'000, 'x'));
    EXPECT_EQ(ItemOf(*store, table, "longest").size(), 983'040U);
    int items = 0;
    store->Scan(table, kWholeItem, [&](auto, auto) { return ++items > 0; });
    EXPECT_EQ(items, 1022);
  }
  const std::unique_ptr<Store> unverified = Open(user + "&tls=on");
  EXPECT_EQ(ItemOf(*unverified, MustOpen(*unverified, "whole"), key), everyByte);
  // Written while the packet was larger: told, and never taken for empty or missing.
  EXPECT_EQ(asRoot("USE d; UPDATE cols SET A1 = REPEAT('y', 600000), A2 = REPEAT('y', 600000) "
                   "WHERE A0 = '7'"),
            "");
  const TableHandle table = MustOpen(*store, "cols");
  const std::string tooLarge =
      "table cols, item '7': the item is larger than the server hands out; raise its max_allowed_packet";
  std::string value;
  std::vector<BatchItem> items;
  const std::vector<std::string_view> ids = {"6", "7"};
  EXPECT_EQ(FailureOf([&] { ItemOf(*store, table, "7"); }), tooLarge);
  EXPECT_EQ(FailureOf([&] { store->ReadBatch(table, ids, items); }), tooLarge);
  EXPECT_EQ(FailureOf([&] { Scanned(*store, table, kWholeItem); }), tooLarge);
  EXPECT_NE(Scanned(*store, table, {{2}}).find("7," + std::string(600'000, 'y') + ";"), std::string::npos);

  // An encrypted connection ends in ways of its own.
  for (const char* sql : {"SELECT count(*) FROM whole", "SELECT count(A0) FROM whole"}) {
    for (const char* first : {"SQL", "an item"}) {
      EXPECT_EQ(asRoot("KILL USER ann@localhost"), "");
      if (first == std::string("an item")) {
        EXPECT_EQ(ItemOf(*store, MustOpen(*store, "whole"), "1"), "x");
      }
      EXPECT_EQ(Sql(*store, sql), "1022;") << first << " first";
    }
  }
}

}  // namespace
}  // namespace nvadmin::engine

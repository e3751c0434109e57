// An account on a server that is far away: how often its session goes there, counted on the way, and what it
// makes of a way that ends in the middle of a walk.
#include <fstream>

#include "session/BP.h"
#include "tests/engine/Workshop.h"
#include "tests/support/SocketProxy.h"

namespace nvadmin::engine {
namespace {

constexpr int kItems = 1000;
constexpr int kShownOnAPage = 500;
constexpr char kMark = '\xFE';

std::string Dyn(std::string_view text) {
  std::string item(text);
  std::replace(item.begin(), item.end(), '^', kMark);
  return item;
}

// ORDERS of kItems items, each with a customer and a second one of its own, and CUSTOMERS.
class Distance : public testing::Test {
 protected:
  void SetUp() override {
    if (!MariaDatabase::IsThere()) GTEST_SKIP() << MariaDatabase::kSkipped;
    database_ = std::make_unique<MariaDatabase>();
    proxy_ = MakeProxy();
    Home::Make(folder_ / "home");
    home_ = std::make_unique<Home>(folder_ / "home");
    std::string error;
    const std::string address =
        "mariadb://root@/" + database_->Name() + "?connect-timeout=2&socket=" + Socket();
    ASSERT_TRUE(home_->AddAccount({"FAR", "MYSQL", address}, error)) << error;
    Begin();
    Type(*session_, "CREATE-FILE ORDERS 5");
    Type(*session_, "CREATE-FILE CUSTOMERS 2");
    Fill("DICT ORDERS", {{"NAME", "A^1^^^^^^^L^20"},
                         {"AMOUNT", "A^2^^^^^MD2^^R^10"},
                         {"SHOWN", "A^3^^^^^TCUSTOMERS;X;;1^^L^20"},
                         {"KNOWN", "A^3^^^^^^TCUSTOMERS;X;;1^L^20"},
                         {"SECOND", "A^5^^^^^^A;5(TCUSTOMERS;X;;1):\"!\"^L^20"},
                         {"NOWHERE", "A^3^^^^^^TNOWHERE;C;;1^L^20"}});
    std::vector<std::pair<std::string, std::string>> orders, customers;
    for (int number = 0; number < kItems; ++number) {
      const std::string id = std::to_string(number);
      const std::string first = "c" + std::to_string(number * 7 % kItems);
      const std::string second = "c" + std::to_string((number * 3 + 1) % kItems);
      orders.push_back({id, Dyn("Order " + id + "^" + id + "^" + first + "^x^" + second)});
      customers.push_back({"c" + id, Dyn("Customer " + id)});
    }
    Fill("ORDERS", orders);
    Fill("CUSTOMERS", customers);
    Begin();
  }

  std::string Socket() const { return (folder_ / "proxy").string(); }
  std::unique_ptr<SocketProxy> MakeProxy() const {
    return std::make_unique<SocketProxy>(Socket(), MariaDatabase::Socket());
  }
  // A session anew, which knows nothing of the files yet.
  void Begin() {
    session_.reset();
    port_ = std::make_unique<ScriptedPort>();
    session_ = std::make_unique<EngineSession>(*home_, *port_, SessionSettings{"FAR", "anna", "desk 1"});
  }
  void Fill(std::string_view name, const std::vector<std::pair<std::string, std::string>>& items) {
    std::string file;
    ASSERT_EQ(session_->OpenFile(name, file), kTrue) << session_->GetErrorDetail();
    for (const auto& [id, item] : items)
      EXPECT_TRUE(session_->WriteItem(Dyn(item), file, id)) << session_->GetErrorDetail();
    session_->WriteOutput("", true);
  }
  // Serves a sentence as at the prompt, or the Admin Menu for an empty one.
  void Serve(const std::string& sentence) {
    BP bp;
    bp.CallBack(session_.get());
    session_->BeginTypedSentence(sentence);
    if (sentence.empty()) {
      bp.UMenu();
    } else {
      bp.CmdSentence(sentence);
      bp.Query();
    }
    session_->EndTypedSentence();
    bp.CallBackClose();
  }
  void Answer(std::string_view line, int times) {
    for (int time = 0; time < times; ++time) port_->input.emplace_back(line);
  }
  void MakeTransferFile() const {
    std::ofstream file(folder_ / "home/TransferBulk/LOADED", std::ios::binary);
    file << "<FILE_DATA>LOADED\r\n";
    for (int number = 0; number < kItems; ++number)
      file << number << Dyn("^Item ") << number << Dyn("^x\r\n");
    file << "</FILE_DATA>\r\n<FILE_STATISTICS>\r\n"
         << Dyn("LOADED^1000^1000^2\xFD"
                "2\xFD"
                "2^9\xFD"
                "1^\xFD^4\r\n</FILE_STATISTICS>\r\n");
  }

  const TemporaryFolder folder_;
  std::unique_ptr<MariaDatabase> database_;
  std::unique_ptr<SocketProxy> proxy_;
  std::unique_ptr<Home> home_;
  std::unique_ptr<ScriptedPort> port_;
  std::unique_ptr<EngineSession> session_;
};

std::size_t Count(std::string_view text, std::string_view piece) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(piece, at)) != std::string_view::npos; at += piece.size()) ++count;
  return count;
}

TEST_F(Distance, AnItemCostsNoMoreThanATenthOfAnExchange) {
  const auto serve = [this](const char* sentence) { return [this, sentence] { Serve(sentence); }; };
  const auto page = [this](const char* sentence) {
    return [this, sentence] {
      port_->showsPages = true;
      Serve(sentence);
    };
  };
  const auto byPages = [this] {
    Answer("", kItems);
    Serve("LIST ORDERS NAME AMOUNT");
  };
  const auto rowset = [this](std::string columns) {
    return [this, columns] {
      port_->input.emplace_back(Dyn("ROWSET^ORDERS^SELECT ORDERS^" + columns + "</TXB>"));
      port_->beforeLine = [this] {
        const bool isOver = port_->output.ends_with("ROWSET EXIT</TXA>\n");
        if (port_->input.empty()) port_->input.emplace_back(isOver ? "EXIT</TXB>" : "GO");
      };
      Serve("NV.BACKSRV");
    };
  };
  const auto fill = [this](std::initializer_list<const char*> replies) {
    return [this, replies = std::vector<std::string>(replies.begin(), replies.end())] {
      port_->showsPages = true;
      MakeTransferFile();
      port_->input.assign(replies.begin(), replies.end());
      port_->whenEmpty = InputResult::kLost;
      port_->beforeLine = [this] {
        if (port_->output.ends_with("<AUTORX>\n")) port_->input.emplace_front();  // answers itself
      };
      Serve("");
    };
  };
  const auto type = [this](std::string sentence) {
    return [this, sentence] {
      const std::string text = Type(*session_, sentence);
      EXPECT_NE(text, "ERROR") << session_->GetErrorDetail();
    };
  };
  std::string every;
  for (int number = 0; number < kItems; ++number) every += " '" + std::to_string(number) + "'";
  const auto walk = [this] {
    Type(*session_, "SSELECT ORDERS");
    std::string orders, item;
    session_->OpenFile("ORDERS", orders);
    for (int row = 1; row <= kItems; ++row)
      EXPECT_TRUE(session_->ReadItem(item, orders, session_->GetResultCell(0, row)));
  };

  const struct {
    const char* name;
    std::function<void()> act;
    const char* shown;  // stands there once for each item; empty: nothing is shown of an item
    int items = kItems;
  } kCases[] = {
      {"LIST into a file", serve("LIST ORDERS NAME AMOUNT"), "Order "},
      {"LIST, page after page", byPages, "Order "},
      {"LIST as an HTML page", page("LIST ORDERS NAME AMOUNT"), "Order ", kShownOnAPage},
      {"LIST with a conversion that translates", serve("LIST ORDERS SHOWN"), "Customer "},
      {"LIST with a correlative that translates", page("LIST ORDERS KNOWN"), "Customer ", kShownOnAPage},
      {"LIST with a correlative of a missing file", serve("LIST ORDERS NAME NOWHERE"), "Order "},
      {"SORT by a translated column", serve("SORT ORDERS BY KNOWN NAME SECOND"), "Order "},
      {"SELECT with criteria", type("SELECT ORDERS WITH AMOUNT > \"5\" AND NAME = \"]1]\""), ""},
      {"SELECT by what is translated", type("SELECT ORDERS WITH KNOWN = \"]1]\" AND SECOND # \"x\""), ""},
      {"SSELECT by two columns", type("SSELECT ORDERS BY NAME BY AMOUNT"), ""},
      {"SELECT of many items", type("SELECT ORDERS" + every + " WITH KNOWN # \"x\""), ""},
      {"SQL", serve("SELECT A0, A1 FROM orders;"), "Order "},
      {"a walk", walk, ""},
      {"ROWSET", rowset("LIST ORDERS NAME AMOUNT"), "Order "},
      {"ROWSET of item IDs", rowset("0"), ""},
      {"export",
       [&] {
         fill({"", "mx3|", "fx3|ORDERS", "bx1|", "Y", "bx2|", "bx2|"})();
         EXPECT_NE(port_->output.find("1000 Items/Records exported."), std::string::npos) << port_->output;
       },
       ""},
      {"bulk load",
       [&] {
         fill({"", "mx4|", "fx1|LOADED", "fx3|2", "bx1|", "", "bx2|"})();
         EXPECT_EQ(Type(*session_, "COUNT LOADED"), "1000 items counted");
       },
       ""},
      {"BULK-SAVE", type("BULK-SAVE SAVED ORDERS"), ""},
  };
  for (const auto& row : kCases) {
    Begin();
    const std::int64_t before = proxy_->Exchanges();
    row.act();
    const std::int64_t exchanges = proxy_->Exchanges() - before;
    EXPECT_TRUE(*row.shown == '\0' || Count(port_->output, row.shown) == std::size_t(row.items)) << row.name;
    EXPECT_LE(exchanges, row.items / 10) << row.name;
    EXPECT_GT(exchanges, 1) << row.name << " is counted";
  }
}

// A store that is lost in the middle of a walk fails the read of an item; one that answers again over a new
// connection goes on with it.
TEST_F(Distance, AWalkNeverEndsEarly) {
  std::string orders, item;
  ASSERT_EQ(session_->OpenFile("ORDERS", orders), kTrue);
  const auto walk = [&](int lostBehind, const std::function<void()>& lose) {
    Type(*session_, "SSELECT ORDERS");
    int row = 0;
    try {
      while (++row <= kItems) {
        if (row == lostBehind) lose();
        EXPECT_TRUE(session_->ReadItem(item, orders, session_->GetResultCell(0, row)))
            << row << ": " << session_->GetErrorDetail();
        EXPECT_EQ(item.substr(0, item.find(kMark)), "Order " + session_->GetResultCell(0, row));
      }
    } catch (const EngineFailure& failure) {
      EXPECT_NE(std::string_view(failure.what()).find("the store is unavailable"), std::string_view::npos)
          << failure.what();
    }
    return row - 1;
  };
  const auto cut = [this] { proxy_->CutAt("SELECT", SocketProxy::Cut::kBefore); };
  const auto lose = [this] { proxy_.reset(); };
  for (const int lostBehind : {1, 2, 300}) {
    EXPECT_EQ(walk(lostBehind, cut), kItems) << lostBehind;
    const int served = walk(lostBehind, lose);
    EXPECT_GE(served, lostBehind - 1);
    EXPECT_LT(served, kItems);
    proxy_ = MakeProxy();
    EXPECT_EQ(walk(lostBehind, [] {}), kItems) << "the session goes on";
  }
  // A report that loses it leaves with the failure, too.
  Answer("", 10);
  port_->beforeLine = [&] {
    if (port_->input.size() == 5) lose();
  };
  EXPECT_THROW(Serve("LIST ORDERS NAME"), EngineFailure);
  EXPECT_LT(Count(port_->output, "Order "), 200U);
  EXPECT_GT(Count(port_->output, "Order "), 20U);
}

}  // namespace
}  // namespace nvadmin::engine

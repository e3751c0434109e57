// Sessions that share a home, in one program and in two: locks and their ends, the lists of sessions and
// locks, accounts that aren't for everybody, and who is told of refused writes.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/engine/Workshop.h"

namespace nvadmin::engine {
namespace {

// Anna's and ben's program, and the home under another name, whose sessions count as another program's.
class SharedHome : public testing::Test, public TwoSessions {
 protected:
  SharedHome() : TwoSessions("JETS") {
    std::filesystem::create_directory_symlink(folder.home, folder.folder / "elsewhere");
    elsewhere.emplace(folder.folder / "elsewhere");
    Do("CREATE-FILE CUSTOMERS 3");
    Do("CREATE-FILE NOTES 3");
  }

  // Another session on the home. Its port lives as long as the test.
  std::unique_ptr<EngineSession> Begin(Home& where, std::string user, SessionSettings settings = {}) {
    settings.account = "JETS";
    settings.user = std::move(user);
    settings.from = "desk 3";
    return std::make_unique<EngineSession>(where, port, std::move(settings));
  }

  std::optional<Home> elsewhere;
  ScriptedPort port;
};

// What each way out leaves locked of two customers and a note, as a session here and one elsewhere see it.
TEST_F(SharedHome, LocksEndForAllSessionsAlike) {
  struct Holder {
    EngineSession* session;
    std::string customers, notes;
  };
  const struct {
    const char* name;
    std::function<void(Holder&)> end;
    std::string left;
  } kWays[] = {
      {"nothing", [](Holder&) {}, "C1 C2 N1 "},
      {"an item", [](Holder& h) { h.session->ReleaseItem(h.customers, "1"); }, "C2 N1 "},
      {"a file", [](Holder& h) { h.session->ReleaseItem(h.customers, ""); }, "N1 "},
      {"all", [](Holder& h) { h.session->ReleaseItem("", ""); }, ""},
      {"a write", [](Holder& h) { h.session->WriteItem("x", h.customers, "1"); }, "C2 N1 "},
      {"a write that keeps", [](Holder& h) { h.session->WriteItemKeepLock("x", h.customers, "1"); },
       "C1 C2 N1 "},
      {"a delete", [](Holder& h) { h.session->DeleteItem(h.customers, "1"); }, "C2 N1 "},
      {"clearing the file", [](Holder& h) { Type(*h.session, "CLEAR-FILE CUSTOMERS"); }, "N1 "},
      {"going elsewhere", [](Holder& h) { Type(*h.session, "LOGTO NAT"); }, "C1 C2 N1 "},
      {"the end", [](Holder& h) { delete std::exchange(h.session, nullptr); }, ""},
  };
  for (Home* const holdersHome : {&home, &*elsewhere}) {
    for (const auto& way : kWays) {
      Holder holder{Begin(*holdersHome, "carl").release(), {}, {}};
      holder.customers = Open(*holder.session, "CUSTOMERS");
      holder.notes = Open(*holder.session, "NOTES");
      std::string item;
      for (const auto& [file, id] :
           {std::pair(holder.customers, "1"), {holder.customers, "2"}, {holder.notes, "1"}})
        holder.session->ReadItemLocked(item, file, id);
      way.end(holder);
      if (holder.session != nullptr) holder.session->WriteOutput("", true);

      std::string left;
      for (const auto& [name, file, id] :
           {std::tuple("C1 ", "CUSTOMERS", "1"), {"C2 ", "CUSTOMERS", "2"}, {"N1 ", "NOTES", "1"}}) {
        ben.ReadItemLocked(item, Open(ben, file), id);
        if (!ben.GetErrorDetail().empty()) left += name;
        EXPECT_TRUE(ben.GetErrorDetail().empty() ||
                    ben.GetErrorDetail().ends_with(" is locked by carl at desk 3"))
            << ben.GetErrorDetail();
      }
      EXPECT_EQ(left, way.left) << way.name << (holdersHome == &home ? " here" : " elsewhere");
      ben.ReleaseItem("", "");
      ben.WriteOutput("", true);
      delete holder.session;
    }
  }
}

// Clearing asks for the file as it is then: an item that isn't there yet counts, and so does a claim.
TEST_F(SharedHome, AFileIsClaimedWhole) {
  const std::unique_ptr<EngineSession> carl = Begin(*elsewhere, "carl");
  for (EngineSession* other : {&ben, carl.get()}) {
    std::string item, refusal;
    const std::string file = Open(*other, "CUSTOMERS");
    other->ReadItemLocked(item, file, "not there");
    other->WriteOutput("", true);
    for (const char* sentence : {"CLEAR-FILE CUSTOMERS", "DELETE-FILE CUSTOMERS"}) {
      EXPECT_TRUE(Refusal(sentence).starts_with("[920] an item of customers is locked by ")) << sentence;
    }
    other->ReleaseItem("", "");

    ASSERT_TRUE(anna.ItemLocks().TakeTable("JETS", "customers", refusal)) << refusal;
    EXPECT_FALSE(other->ItemLocks().TakeTable("JETS", "customers", refusal));
    EXPECT_FALSE(other->ReadItemLocked(item, file, "1"));
    EXPECT_EQ(other->GetErrorDetail(), "[920] item '1' of customers is locked by anna at desk 1");
    EXPECT_FALSE(other->WriteItem("x", file, "1"));
    EXPECT_TRUE(other->WriteItem("x", Open(*other, "NOTES"), "1")) << other->GetErrorDetail();
    other->WriteOutput("", true);
    EXPECT_TRUE(anna.ItemLocks().Take("JETS", "customers", "1", refusal)) << "the claim is one's own";
    anna.ItemLocks().ReleaseTable("JETS", "customers");
    EXPECT_TRUE(other->WriteItem("x", file, "1")) << other->GetErrorDetail();
    other->WriteOutput("", true);
    Do("CLEAR-FILE CUSTOMERS");
  }
}

TEST_F(SharedHome, SessionsAndLocksAreListed) {
  // "12 Mar 09:41:07" becomes "<moment>".
  const auto withoutTimes = [](std::string text) {
    for (std::size_t colon = 0; (colon = text.find(':', colon)) != std::string::npos;)
      text.replace(colon - 9, 15, "<moment>");
    return text;
  };
  std::unique_ptr<EngineSession> carl = Begin(*elsewhere, "carl");
  SessionSettings settings;
  settings.mayEnter = [](std::string_view account) { return account == "JETS"; };
  const std::unique_ptr<EngineSession> dora = Begin(home, "dora", settings);
  std::string item;
  ben.ReadItemLocked(item, Open(ben, "NOTES"), "b\xE9");
  ben.WriteOutput("", true);
  carl->ReadItemLocked(item, Open(*carl, "CUSTOMERS"), "7");
  carl->WriteOutput("", true);
  Type(*carl, "LOGTO NAT");
  Type(*carl, "CREATE-FILE CUSTOMERS");
  carl->ReadItemLocked(item, Open(*carl, "CUSTOMERS"), "7");
  carl->WriteOutput("", true);

  EXPECT_EQ(withoutTimes(Do("LISTU")),
            " Port User          Account        From                   Since           Locks\r\n"
            "*   1 anna          JETS           desk 1                 <moment>     0\r\n"
            "    2 ben           JETS           desk 2                 <moment>     1\r\n"
            "    3 carl          NAT            desk 3                 <moment>     2\r\n"
            "    4 dora          JETS           desk 3                 <moment>     0");
  const std::string heading = "Account     File          Item ID       Holder                  Since\r\n";
  const std::string annas = "JETS        customers     7             carl at desk 3          <moment>";
  const std::string bens = "JETS        notes         b\xE9            ben at desk 2           <moment>";
  EXPECT_EQ(withoutTimes(Do("LIST-LOCKS CUSTOMERS")), heading + annas);
  EXPECT_EQ(withoutTimes(Do("LIST-LOCKS")),
            heading + annas + "\r\n" + bens + "\r\n" +
                "NAT         CUSTOMERS     7             carl at desk 3          <moment>");
  EXPECT_EQ(withoutTimes(Type(*dora, "LIST-LOCKS")), heading + annas + "\r\n" + bens)
      << "an account that isn't hers is none of her business";
  EXPECT_EQ(Do("LIST-LOCKS DICT NOTES"), "nothing is locked");
  EXPECT_TRUE(Refusal("LIST-LOCKS NOWHERE").starts_with("file 'NOWHERE' is not in account JETS"));

  // Numbers are used again, and never two at once.
  carl.reset();
  EXPECT_EQ(Begin(*elsewhere, "emil")->PortNumber(), 3);
  EXPECT_EQ(Do("LISTU").find("carl"), std::string::npos);
}

TEST_F(SharedHome, AnAccountThatIsntOnesOwnLooksAsIfItWasNotThere) {
  SessionSettings settings;
  settings.mayEnter = [](std::string_view account) { return account == "JETS" || account == "MS"; };
  const std::unique_ptr<EngineSession> carl = Begin(home, "carl", settings);
  for (const char* account : {"NAT", "nat", "NOWHERE"}) {
    EXPECT_EQ(Type(*carl, fmt::format("LOGTO {}", account)), "ERROR");
    EXPECT_EQ(carl->GetErrorDetail(), fmt::format("user carl has no account '{}'; the command 'nvadmin user "
                                                  "accounts' sets a user's accounts",
                                                  account));
  }
  EXPECT_EQ(Type(*carl, "LOGTO ms"), "OK");
  settings.mayEnter = [](std::string_view) { return false; };
  EXPECT_THROW(Begin(home, "carl", settings), EngineFailure);
}

TEST_F(SharedHome, RefusedWritesAreTold) {
  std::string told, item;
  SessionSettings settings;
  settings.onRefusedWrite = [&told](const RefusedWrite& write) {
    told = fmt::format("{}/{}/{}: {}", write.account, write.table, write.id, write.reason);
  };
  const std::unique_ptr<EngineSession> carl = Begin(home, "carl", settings);
  const std::string customers = Open(*carl, "CUSTOMERS");
  const std::string builtIn = Open(*carl, "customers_dict_dict");
  anna.ReadItemLocked(item, Open(anna, "CUSTOMERS"), "1");
  anna.WriteOutput("", true);
  Type(*carl, "LOGTO MS");

  const std::string locked = "JETS/customers/1: [920] item '1' of customers is locked by anna at desk 1";
  const struct {
    const char* name;
    std::function<bool()> change;
    std::string told;  // its beginning; empty: nothing is told
  } kCases[] = {
      {"a write", [&] { return carl->WriteItem("x", customers, "1"); }, locked},
      {"a keeping write", [&] { return carl->WriteItemKeepLock("x", customers, "1"); }, locked},
      {"a delete", [&] { return carl->DeleteItem(customers, "1"); }, locked},
      {"no ID", [&] { return carl->WriteItem("x", customers, ""); }, "JETS/customers/: an item of table"},
      {"attribute 0", [&] { return carl->WriteAttribute("x", customers, "2", 0); },
       "JETS/customers/2: attribute 0"},
      {"an attribute without end", [&] { return carl->WriteAttribute("x", customers, "2", 2'000'000'000); },
       "JETS/customers/2: attribute 2000000000 of item '2' of table customers can't be written: attributes "
       "count "
       "from 1 to 16777216"},
      {"too many attributes", [&] { return carl->WriteItem("\xFE\xFE\xFE\xFE!", customers, "2"); },
       "JETS/customers/2: "},
      {"read only", [&] { return carl->WriteItem("x", builtIn, "A0"); }, "JETS/customers_dict_dict/A0: "},
      {"no file", [&] { return carl->WriteItem("x", "", "2"); }, "MS//2: the FileVar is empty"},
      {"nothing to delete", [&] { return carl->DeleteItem(customers, "2"); }, ""},
      {"a write that goes well", [&] { return !carl->WriteItem("x", customers, "2"); }, ""},
  };
  for (const auto& row : kCases) {
    told.clear();
    EXPECT_FALSE(row.change()) << row.name;
    EXPECT_EQ(told.substr(0, row.told.size()), row.told) << row.name;
    EXPECT_EQ(told.empty(), row.told.empty()) << row.name << ": " << told;
    EXPECT_EQ(told.find('!'), std::string::npos) << "no item contents";
  }
  EXPECT_EQ((RefusedWrite{"A", "t", "1", "[920] item '1' of t is locked"}.Text()),
            "account A: [920] item '1' of t is locked");
  EXPECT_EQ((RefusedWrite{"A", "t", "1", "t is built in"}.Text()),
            "account A, file t, item '1': t is built in");
}

// Each session asks again at once when it was refused, and none comes too short.
TEST_F(SharedHome, ACounterUnderALockCountsEveryStep) {
  constexpr int kSessions = 12, kSteps = 20;
  ASSERT_TRUE(anna.WriteItem("0", Open(anna, "NOTES"), "n"));
  anna.WriteOutput("", true);
  std::vector<std::jthread> threads;
  for (int number = 0; number < kSessions; ++number) {
    threads.emplace_back([this, number] {
      ScriptedPort ownPort;
      EngineSession session(number % 2 == 0 ? home : *elsewhere, ownPort, {"JETS", "counter", "desk"});
      const std::string notes = Open(session, "NOTES");
      std::string item;
      for (int step = 0; step < kSteps;) {
        if (!session.ReadItemLocked(item, notes, "n")) continue;
        EXPECT_TRUE(session.WriteItem(std::to_string(std::stoi(item) + 1), notes, "n"));
        session.WriteOutput("", true);
        ++step;
      }
    });
  }
  threads.clear();
  EXPECT_EQ(SeenByBen("NOTES", "n"), std::to_string(kSessions * kSteps));
}

}  // namespace
}  // namespace nvadmin::engine

// Who may log in, where, and how long those wait who shouldn't.
#include "host/Users.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <optional>
#include <thread>
#include <vector>

#include "host/ClientAddress.h"
#include "host/LogInDelays.h"
#include "host/LogInDesk.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::host {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Names = std::vector<std::string>;

constexpr std::string_view kPassword = "correct horse";

class UsersOfAHome : public testing::Test {
 protected:
  void SetUp() override {
    engine::Home::Make(folder / "home");
    home.emplace(folder / "home");
    std::string error;
    for (const char* account : {"SHOP", "BOOKS", "FARM"})
      ASSERT_TRUE(home->AddAccount({account, "JET", ""}, error));
    users.emplace(*home);
  }
  // "NAME: ACCOUNT ACCOUNT; ..." as another program finds them.
  std::string Listed() {
    std::string listed;
    for (const User& user : Users(*home).All()) {
      listed += user.name + ":";
      for (const std::string& account : user.accounts) listed += " " + account;
      listed += "; ";
    }
    return listed;
  }

  TemporaryFolder folder;
  std::optional<engine::Home> home;
  std::optional<Users> users;
};

TEST_F(UsersOfAHome, AreKeptAsTheyWereGiven) {
  const std::string longest(64, 'n');
  std::string error;
  EXPECT_TRUE(users->IsEmpty());
  EXPECT_TRUE(users->Add("Anna", {"shop", "BOOKS", "Shop"}, kPassword, error)) << error;
  EXPECT_TRUE(users->Add(longest, {"*"}, std::string(1024, 'p'), error)) << error;
  EXPECT_EQ(Listed(), "Anna: BOOKS SHOP; " + longest + ": *; ");
  EXPECT_TRUE(users->SetAccounts("ANNA", {"farm"}, error) && users->SetPassword("aNNa", "eightby\xE9", error))
      << error;
  EXPECT_TRUE(users->Remove(longest, error)) << error;
  EXPECT_EQ(Listed(), "Anna: FARM; ");
  EXPECT_FALSE(users->IsEmpty());

  struct stat status;
  ASSERT_EQ(stat((folder / "home/users.sqlite").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  const std::string hash = users->Find("anna")->passwordHash;
  EXPECT_TRUE(hash.starts_with("$argon2id$v=19$m=65536,t=2,p=1$")) << hash;
}

TEST_F(UsersOfAHome, RefusalsTellTheWayOut) {
  std::string error;
  ASSERT_TRUE(users->Add("anna", {"SHOP"}, kPassword, error)) << error;
  const struct {
    std::string name;
    Names accounts;
    std::string password, told;
  } kAdds[] = {
      {"",
       {"SHOP"},
       "correct horse",
       "'' can't be a user's name; use 1 to 64 letters, digits, '_', '-' and '.'"},
      {std::string(65, 'n'), {"SHOP"}, "correct horse", "can't be a user's name"},
      {"a b", {"SHOP"}, "correct horse", "'a b' can't be a user's name"},
      {"zo\xC3\xAB", {"SHOP"}, "correct horse", "can't be a user's name"},
      {"ben", {}, "correct horse", "give at least one account, or '*' for every account"},
      {"ben", {"SHOP", "*"}, "correct horse", "'*' stands for every account; give it alone"},
      {"ben",
       {"SHOP", "sea", "sky"},
       "correct horse",
       "there is no account sea, sky; 'nvadmin account list' shows"},
      {"ben", {"SHOP"}, "7 bytes", "the password has 7 characters; use 8 to 1024"},
      {"ben", {"SHOP"}, std::string(1025, 'p'), "the password has 1025 characters"},
      {"ANNA",
       {"SHOP"},
       "correct horse",
       "there is a user ANNA already; 'nvadmin user passwd ANNA' sets the "
       "password, 'nvadmin user accounts ANNA --account A,B' the accounts"},
  };
  for (const auto& row : kAdds) {
    EXPECT_FALSE(users->Add(row.name, row.accounts, row.password, error)) << row.told;
    EXPECT_NE(error.find(row.told), std::string::npos) << error;
  }
  const std::string unknown = "there is no user ben; 'nvadmin user list' shows the users";
  EXPECT_TRUE(!users->SetPassword("ben", kPassword, error) && error == unknown) << error;
  EXPECT_TRUE(!users->SetAccounts("ben", {"SHOP"}, error) && error == unknown) << error;
  EXPECT_TRUE(!users->Remove("ben", error) && error == unknown) << error;
  EXPECT_EQ(Listed(), "anna: SHOP; ");
}

class Desk : public UsersOfAHome {
 protected:
  void SetUp() override {
    UsersOfAHome::SetUp();
    std::string error;
    ASSERT_TRUE(users->Add("Anna", {"SHOP"}, kPassword, error)) << error;
    ASSERT_TRUE(users->Add("ben", {"SHOP", "BOOKS"}, std::string(1024, 'p'), error)) << error;
    ASSERT_TRUE(users->Add("root", {"*"}, "another password", error)) << error;
    desk.emplace(*home, *users);
  }
  // "USER ACCOUNT", or "no".
  std::string LogIn(std::string_view user, std::string_view password, std::string_view account = "",
                    std::string_view address = "here") {
    const std::optional<LoggedIn> in = desk->LogIn(user, password, account, address, [] { return false; });
    return in ? in->user + " " + in->account : "no";
  }
  std::chrono::duration<double> TimeOf(std::string_view user, std::string_view address) {
    const Clock::time_point start = Clock::now();
    LogIn(user, "a wrong one", "", address);
    return Clock::now() - start;
  }

  std::optional<LogInDesk> desk;
};

TEST_F(Desk, LetsInWhoBelongsThere) {
  const std::string bens(1024, 'p');
  const struct {
    std::string user, password, account, want;
  } kCases[] = {
      {"anna", "correct horse", "", "Anna SHOP"},
      {"ANNA", "correct horse", "shop", "Anna SHOP"},
      {"Anna", "correct horse", "BOOKS", "no"},
      {"Anna", "Correct horse", "", "no"},
      {"ben", bens, "", "no"},  // of two accounts one has to be named
      {"ben", bens, "books", "ben BOOKS"},
      {"ben", bens + "p", "books", "no"},
      {"root", "another password", "farm", "root FARM"},
      {"root", "another password", "", "no"},
      {"root", "another password", "*", "no"},
      {"nobody", "correct horse", "SHOP", "no"},
      {"", "", "", "no"},
      {std::string(100'000, 'x'), std::string(100'000, 'x'), std::string(100'000, 'x'), "no"},
  };
  int number = 0;
  for (const auto& row : kCases)
    EXPECT_EQ(LogIn(row.user, row.password, row.account, std::to_string(++number)), row.want) << number;

  // A session goes on as it began; the next log-in finds what has changed.
  const std::optional<LoggedIn> anna = desk->LogIn("anna", kPassword, "", "there", {});
  ASSERT_TRUE(anna);
  std::string error;
  ASSERT_TRUE(Users(*home).SetAccounts("anna", {"FARM"}, error));
  EXPECT_TRUE(anna->mayEnter("SHOP") && !anna->mayEnter("FARM"));
  EXPECT_EQ(LogIn("anna", kPassword), "Anna FARM");

  // A removed account is nobody's, also when there is another of its name.
  users->ForgetAccount("farm");
  ASSERT_TRUE(home->RemoveAccount("FARM") && home->AddAccount({"FARM", "JET", ""}, error));
  EXPECT_EQ(LogIn("anna", kPassword, "FARM", "elsewhere"), "no");
  EXPECT_EQ(LogIn("root", "another password", "FARM", "elsewhere"), "root FARM");
}

TEST_F(Desk, TheTimeDoesntTellWhoIsAUser) {
  std::chrono::duration<double> user = 1h, nobody = 1h;
  for (int round = 0; round < 3; ++round) {
    user = std::min(user, TimeOf("anna", "u" + std::to_string(round)));
    nobody = std::min(nobody, TimeOf("nobody" + std::to_string(round), "n" + std::to_string(round)));
  }
  EXPECT_LT(user / nobody, 4);
  EXPECT_LT(nobody / user, 4);
}

TEST_F(Desk, WaitsAfterFailuresOfAUserOrAnAddress) {
  Clock::time_point thirdFailure;
  for (int failure = 0; failure < 3; ++failure) {
    thirdFailure = Clock::now();
    TimeOf("anna", "a" + std::to_string(failure));
    TimeOf("nobody" + std::to_string(failure), "bad address");
  }
  std::atomic<int> waited = 0;
  const auto logInLate = [&](std::string_view user, std::string_view password, std::string_view address) {
    EXPECT_NE(LogIn(user, password, "SHOP", address), "no");
    EXPECT_GE(Clock::now() - thirdFailure, 1s) << user;
    ++waited;
  };
  std::jthread byName(logInLate, "ANNA", kPassword, "annas address");
  std::jthread byAddress(logInLate, "root", "another password", "bad address");
  EXPECT_FALSE(desk->LogIn("anna", kPassword, "", "x", [] { return true; })) << "who gave up doesn't wait";
  EXPECT_EQ(LogIn("root", "another password", "SHOP", "another address"), "root SHOP");
  EXPECT_EQ(waited, 0) << "others don't wait";
  byName.join();
  byAddress.join();

  // Success clears the user's failures: one more costs nothing yet.
  TimeOf("anna", "b");
  const Clock::time_point again = Clock::now();
  EXPECT_EQ(LogIn("anna", kPassword), "Anna SHOP");
  EXPECT_LT(Clock::now() - again, 1500ms);
}

TEST_F(Desk, GuessesSideBySideAreFew) {
  constexpr int kVisits = 24;
  const auto addressOf = [](int number) { return "2001:db8::" + std::to_string(number); };
  for (int failure = 0; failure < 4; ++failure) TimeOf("anna", addressOf(failure));  // the next waits 2 s
  std::atomic<int> in = 0;
  std::string inElsewhere;
  std::atomic<int> waitingStrangers = 0;
  {
    std::vector<std::jthread> threads;
    for (int number = 0; number < kVisits; ++number)
      threads.emplace_back([&, number] { in += LogIn("anna", kPassword, "", addressOf(number)) != "no"; });
    threads.emplace_back([&] { inElsewhere = LogIn("anna", kPassword, "", "192.0.2.1"); });
    std::this_thread::sleep_for(200ms);
    for (int number = 0; number < kVisits; ++number) {
      threads.emplace_back([&, number] {
        int asked = 0;  // who is refused at once isn't asked whether to give up
        desk->LogIn("nobody" + std::to_string(number), "guess", "", addressOf(number),
                    [&asked] { return ++asked == 5; });
        waitingStrangers += asked > 0;
      });
    }
  }
  EXPECT_EQ(in, LogInDesk::kMostWaitingOfUser);
  EXPECT_EQ(inElsewhere, "Anna SHOP");
  EXPECT_EQ(waitingStrangers, LogInDesk::kMostWaitingOfAddress - LogInDesk::kMostWaitingOfUser);
  EXPECT_EQ(LogIn("anna", kPassword, "", addressOf(0)), "Anna SHOP") << "places are given back";
}

TEST(ClientAddress, CountsWhatOneOwnerHasAsOne) {
  const struct {
    const char *address, *counted;
  } kCases[] = {
      {"192.0.2.5", "192.0.2.5"},
      {"::ffff:192.0.2.5", "192.0.2.5"},
      {"2001:db8:1:2:3:4:5:6", "2001:db8:1:2::/64"},
      {"2001:db8:1:3:3:4:5:6", "2001:db8:1:3::/64"},
      {"fe80::1%eth0", "fe80::/64"},
      {"::1", "::/64"},
      {"no address", "no address"},
  };
  for (const auto& row : kCases) EXPECT_EQ(CountedAddress(row.address), row.counted);
}

TEST_F(Desk, ManyAtOnceAllGetIn) {
  std::atomic<int> in = 0;
  {
    std::vector<std::jthread> threads;
    for (int number = 0; number < 8; ++number)
      threads.emplace_back([&] { in += LogIn("anna", kPassword) == "Anna SHOP" ? 1 : 0; });
  }
  EXPECT_EQ(in, 8);
}

TEST(LogInDelays, GrowAndEnd) {
  LogInDelays delays;
  const Clock::time_point start = Clock::now();
  const std::chrono::seconds kWaits[] = {0s, 0s, 1s, 2s, 4s, 8s, 16s, 30s, 30s, 30s};
  Clock::time_point now = start;
  for (const std::chrono::seconds wait : kWaits) {
    delays.Failed("anna", now);
    EXPECT_EQ(delays.ReadyAt("anna"), now + wait) << wait.count();
    now += wait;
  }
  now += LogInDelays::kMemory + 1s;
  delays.Failed("anna", now);
  EXPECT_EQ(delays.ReadyAt("anna"), now) << "long ago is forgotten";

  // Strangers fill the table and push out the oldest of their own.
  for (int number = 0; number < 3; ++number) delays.Failed("old", start);
  for (std::size_t number = 0; number < LogInDelays::kMostKeys; ++number)
    delays.Failed(std::to_string(number), now + 1s);
  EXPECT_LT(delays.ReadyAt("old"), start);
}

}  // namespace
}  // namespace nvadmin::host

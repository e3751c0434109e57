// The demo accounts in homes of their own: made whole, made once, made again after a kill, and left to its
// users.
#include "samples/Demo.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include "engine/query/RunQuery.h"
#include "engine/stores/OpenStore.h"
#include "engine/stores/Store.h"
#include "mv/DynamicArray.h"
#include "mv/EngineHooks.h"
#include "samples/Dictionaries.h"
#include "samples/SampleFiles.h"

namespace nvadmin::samples {
namespace {

using engine::Account;
using engine::Home;
using engine::Store;
using engine::TableHandle;

using Contents = std::map<std::string, std::string>;

class Demo : public testing::Test {
 protected:
  void SetUp() override {
    static int count = 0;
    folder_ = std::filesystem::temp_directory_path() /
              ("nvadmin-demo-" + std::to_string(getpid()) + "-" + std::to_string(++count));
    std::filesystem::remove_all(folder_);
    Home::Make(folder_);
  }
  void TearDown() override {
    mv::Hooks() = {};
    unsetenv("NVADMIN_ISO_CODES");
    std::filesystem::remove_all(folder_);
  }

  // Makes the demo accounts and gives back what it told.
  std::string Make() const {
    Home home(folder_);
    std::ostringstream progress;
    MakeDemoAccounts(home, progress);
    return progress.str();
  }

  std::unique_ptr<Store> Open(std::string_view name = kDemoAccount) const {
    const Home home(folder_);
    const std::optional<Account> account = home.FindAccount(name);
    EXPECT_TRUE(account);
    return engine::OpenStore(home, *account);
  }

  // Runs the making in a process of its own and kills it after a time; true when it had ended before.
  bool MakeAndKill(std::chrono::microseconds delay) const {
    const pid_t child = fork();
    if (child == 0) {
      Make();
      _exit(0);
    }
    std::this_thread::sleep_for(delay);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status);
  }

  std::filesystem::path folder_;
};

constexpr std::string_view kBothAccounts[] = {kDemoAccount, kNativeDemoAccount};

// How often the making told of a file of an account.
int LinesOf(const std::string& told, std::string_view account, const SampleFile& file) {
  std::istringstream lines(told);
  int count = 0;
  for (std::string line, name, made; std::getline(lines, line);) {
    std::istringstream(line) >> name >> made;
    count += name == account && made == file.name ? 1 : 0;
  }
  return count;
}

TableHandle OpenFile(Store& store, std::string_view name) {
  TableHandle table = 0;
  std::string error;
  EXPECT_TRUE(store.OpenTable(name, table, error)) << error;
  return table;
}

Contents Read(Store& store, std::string_view name) {
  Contents contents;
  store.Scan(OpenFile(store, name), {{}, true},
             [&contents](std::string_view id, std::span<const std::string_view> values) {
               contents.emplace(id, values[0]);
               return true;
             });
  return contents;
}

// Every file and dictionary, as they should be.
std::map<std::string, Contents> Expected() {
  std::map<std::string, Contents> files;
  const IsoCodes codes = ReadIsoCodes("/usr/share/iso-codes/json");
  for (const SampleFile& file : SampleFiles()) {
    Contents& data = files[std::string(file.name)];
    for (Item& item : file.make(codes)) data.emplace(item.id, item.body);
    Contents& dictionary = files["DICT " + std::string(file.name)];
    for (Item& item : MakeDictionary(WordsOf(file.name))) dictionary.emplace(item.id, item.body);
  }
  for (const SampleFile& file : SampleFiles()) {
    const std::size_t count =
        file.name == kAboutFile ? SampleFiles().size() : files[std::string(file.name)].size();
    const Item item = MakeAboutItem(file, count);
    files[std::string(kAboutFile)].emplace(item.id, item.body);
  }
  return files;
}

void ExpectComplete(Store& store) {
  static const std::map<std::string, Contents> expected = Expected();
  for (const auto& [name, contents] : expected) EXPECT_TRUE(Read(store, name) == contents) << name;
}

void Change(Store& store, std::string_view file, std::string_view id, std::string_view item) {
  std::string error;
  store.BeginWrites();
  if (item.empty()) {
    EXPECT_TRUE(store.Erase(OpenFile(store, file), id, error)) << error;
  } else {
    EXPECT_TRUE(store.Write(OpenFile(store, file), id, item, error)) << error;
  }
  store.Commit();
}

TEST_F(Demo, HoldsAllFilesInEveryLayout) {
  const std::string told = Make();
  for (const std::string_view account : kBothAccounts) {
    for (const SampleFile& file : SampleFiles()) EXPECT_EQ(LinesOf(told, account, file), 1) << told;
    ExpectComplete(*Open(account));
  }
  const std::unique_ptr<Store> store = Open();
  EXPECT_EQ(store->TableNames(/*withDictionaries=*/false).size(), SampleFiles().size());
  EXPECT_EQ(store->Describe(OpenFile(*store, "ORDERS")).layout, engine::Layout::kColumns);
  EXPECT_EQ(store->Describe(OpenFile(*store, "LANGUAGES")).layout, engine::Layout::kItem);
  const Home home(folder_);
  EXPECT_EQ(home.FindAccount(kDemoAccount)->datastore, "JET");
  EXPECT_EQ(home.FindAccount(kNativeDemoAccount)->datastore, "MVDEMO");
  const std::unique_ptr<Store> native = Open(kNativeDemoAccount);
  EXPECT_EQ(native->Describe(OpenFile(*native, "orders")).name, "ORDERS");
  EXPECT_EQ(native->Describe(OpenFile(*native, "orders_dict")).name, "DICT ORDERS");
}

TEST_F(Demo, LeavesToItsUsersWhatTheyMadeOfIt) {
  Make();
  std::unique_ptr<Store> store = Open();
  std::string error;
  Change(*store, "ORDERS", "10001", "mine");
  Change(*store, "ORDERS", "10002", "");
  Change(*store, "DICT ORDERS", "NOTE", Join({"A", "12"}));
  EXPECT_TRUE(store->DropTable("PRODUCTS", error)) << error;
  const Contents before = Read(*store, "ORDERS");
  store.reset();

  EXPECT_EQ(Make(), "") << "a complete account needs nothing";
  store = Open();
  EXPECT_EQ(Read(*store, "ORDERS"), before);
  EXPECT_EQ(Read(*store, "DICT ORDERS").count("NOTE"), 1u);
  TableHandle products = 0;
  EXPECT_FALSE(store->OpenTable("PRODUCTS", products, error)) << "a file that a user deleted came back";
}

TEST_F(Demo, WritesOnlyMissingItemsIntoAFileThatAboutDoesNotTellOf) {
  Make();
  std::unique_ptr<Store> store = Open();
  Change(*store, "ORDERS", "10001", "mine");
  Change(*store, "ORDERS", "10002", "");
  Change(*store, "DICT ORDERS", "QTY", Join({"A", "5", "Pieces"}));
  Change(*store, "ABOUT", "ORDERS", "");
  store.reset();

  EXPECT_NE(Make().find("ORDERS"), std::string::npos);
  store = Open();
  Contents orders = Read(*store, "ORDERS");
  EXPECT_EQ(orders.size(), 2000u);
  EXPECT_EQ(orders["10001"], "mine");
  EXPECT_NE(orders["10002"], "");
  EXPECT_EQ(Read(*store, "DICT ORDERS")["QTY"], Join({"A", "5", "Pieces"}));
  EXPECT_EQ(Read(*store, "ABOUT").count("ORDERS"), 1u);
}

TEST_F(Demo, RefusesAFileOfAnotherShapeAndLosesNothingOfIt) {
  {
    Home home(folder_);
    std::string error;
    ASSERT_TRUE(home.AddAccount({std::string(kDemoAccount), "JET", ""}, error)) << error;
    const std::unique_ptr<Store> store = Open();
    ASSERT_TRUE(store->CreateTable("CURRENCIES", 1, error)) << error;
    Change(*store, "CURRENCIES", "EUR", "mine");
  }
  try {
    Make();
    ADD_FAILURE() << "an item with two attributes went into a table with one column";
  } catch (const EngineFailure& failure) {
    EXPECT_NE(std::string(failure.what()).find("currencies"), std::string::npos) << failure.what();
  }
  EXPECT_EQ(Read(*Open(), "CURRENCIES"), (Contents{{"EUR", "mine"}}));
}

TEST_F(Demo, IsMadeWholeAfterAKillAtAnyMoment) {
  const auto start = std::chrono::steady_clock::now();
  Make();
  const auto whole =
      std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);
  int killed = 0;
  for (const int eighths : {1, 3, 4, 5, 6, 7}) {
    std::filesystem::remove_all(folder_);
    Home::Make(folder_);
    if (!MakeAndKill(whole * eighths / 8)) ++killed;
    Make();
    for (const std::string_view account : kBothAccounts) ExpectComplete(*Open(account));
  }
  EXPECT_GT(killed, 0) << "every run had ended before its kill";
}

TEST_F(Demo, CanBeMadeByTwoProgramsAtOnce) {
  std::string told[2];
  std::thread other([&] { told[1] = Make(); });
  told[0] = Make();
  other.join();
  for (const std::string_view account : kBothAccounts) {
    ExpectComplete(*Open(account));
    for (const SampleFile& file : SampleFiles()) {
      EXPECT_EQ(LinesOf(told[0], account, file) + LinesOf(told[1], account, file), 1) << file.name << "\n"
                                                                                      << told[0] << "--\n"
                                                                                      << told[1];
    }
  }
}

TEST_F(Demo, MakesNothingWithoutTheReferenceData) {
  const std::filesystem::path nowhere = folder_ / "nowhere";
  setenv("NVADMIN_ISO_CODES", nowhere.c_str(), 1);
  try {
    Make();
    ADD_FAILURE() << "made without iso-codes";
  } catch (const EngineFailure& failure) {
    const std::string text = failure.what();
    EXPECT_NE(text.find((nowhere / "iso_3166-1.json").string()), std::string::npos) << text;
    EXPECT_NE(text.find("apt-get install iso-codes"), std::string::npos) << text;
  }
  EXPECT_FALSE(Home(folder_).FindAccount(kDemoAccount));

  unsetenv("NVADMIN_ISO_CODES");
  Make();
  setenv("NVADMIN_ISO_CODES", nowhere.c_str(), 1);
  EXPECT_EQ(Make(), "") << "a complete account doesn't need the package";
}

TEST_F(Demo, AnswersTheSentencesThatAboutProposes) {
  Make();
  const std::unique_ptr<Store> store = Open();
  mv::Hooks().readItem = [&store](std::string_view file, std::string_view id, std::string& item) {
    return store->Read(OpenFile(*store, file), id, item);
  };
  int words = 0;
  for (const SampleFile& file : SampleFiles()) {
    for (int n = 1; n <= mv::Count(file.tries, "\xFD"); ++n) {
      const std::string sentence(mv::Field(file.tries, "\xFD", n));
      EXPECT_LE(sentence.size(), 66u) << sentence;
      engine::ResultGrid grid;
      std::string reply;
      std::string error;
      ASSERT_TRUE(engine::RunQuery(sentence, *store, nullptr, grid, reply, error))
          << sentence << ": " << error;
      EXPECT_GT(grid.HighestRow(), 0) << sentence;
      const std::string_view columns = mv::Extract(reply, 3);
      for (int column = 1; column <= mv::Count(columns, "\xFD"); ++column) {
        ++words;
        std::string item;
        const std::string word(mv::Extract(columns, 1, column));
        EXPECT_TRUE(store->Read(OpenFile(*store, "DICT " + std::string(file.name)), word, item))
            << sentence << ": " << word;
      }
    }
  }
  EXPECT_GE(words, 30) << "the replies name no columns";
}

}  // namespace
}  // namespace nvadmin::samples

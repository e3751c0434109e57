// The demo accounts in homes of their own: made whole, made once, made again after a kill, and left to its
// users.
#include "samples/Demo.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <map>
#include <sstream>
#include <thread>

#include "engine/stores/OpenStore.h"
#include "mv/DynamicArray.h"
#include "samples/Dictionaries.h"
#include "samples/SampleFiles.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::samples {
namespace {

using engine::Home;
using engine::Store;
using engine::TableHandle;

using Contents = std::map<std::string, std::string>;

TableHandle OpenFile(Store& store, std::string_view name) {
  TableHandle table = 0;
  std::string error;
  EXPECT_TRUE(store.OpenTable(name, table, error)) << error;
  return table;
}

Contents Read(Store& store, std::string_view name) {
  Contents contents;
  store.Scan(OpenFile(store, name), {{}, true}, [&contents](std::string_view id, auto values) {
    return contents.emplace(id, values[0]).second;
  });
  return contents;
}

// Writes the item, or deletes it when it is empty.
void Change(Store& store, std::string_view file, std::string_view id, std::string_view item) {
  std::string error;
  const TableHandle table = OpenFile(store, file);
  store.BeginWrites();
  EXPECT_TRUE(item.empty() ? store.Erase(table, id, error) : store.Write(table, id, item, error)) << error;
  store.Commit();
}

// Every file and dictionary, as they should be.
std::map<std::string, Contents> Expected() {
  std::map<std::string, Contents> files;
  const IsoCodes codes = ReadIsoCodes("/usr/share/iso-codes/json");
  const auto put = [](Contents& contents, const Item& item) { contents.emplace(item.id, item.body); };
  for (const SampleFile& file : SampleFiles()) {
    Contents& data = files[std::string(file.name)];
    for (const Item& item : file.make(codes)) put(data, item);
    for (const Item& item : MakeDictionary(WordsOf(file.name)))
      put(files["DICT " + std::string(file.name)], item);
    const bool isAbout = file.name == kAboutFile;
    put(files[std::string(kAboutFile)], MakeAboutItem(file, isAbout ? SampleFiles().size() : data.size()));
  }
  return files;
}

class Demo : public testing::Test {
 protected:
  ~Demo() override { unsetenv("NVADMIN_ISO_CODES"); }

  // Makes the demo accounts and gives back what it told.
  std::string Make() const {
    Home::Make(path_);
    Home home(path_);
    std::ostringstream progress;
    MakeDemoAccounts(home, progress);
    return progress.str();
  }
  std::unique_ptr<Store> Open(std::string_view name = kDemoAccount) const {
    const Home home(path_);
    return engine::OpenStore(home, home.FindAccount(name).value());
  }
  void ExpectComplete() const {
    static const std::map<std::string, Contents> expected = Expected();
    for (const std::string_view account : {kDemoAccount, kNativeDemoAccount}) {
      const std::unique_ptr<Store> store = Open(account);
      for (const auto& [name, contents] : expected) EXPECT_TRUE(Read(*store, name) == contents) << name;
      EXPECT_EQ(store->TableNames(/*withDictionaries=*/true).size(), expected.size());
    }
  }

  const TemporaryFolder folder_;
  const std::filesystem::path path_ = folder_ / "home";
};

TEST_F(Demo, IsMadeOnceByTwoProgramsInEveryLayout) {
  std::string told[2];
  std::thread other([&] { told[1] = Make(); });
  told[0] = Make();
  other.join();
  ExpectComplete();
  const std::string both = told[0] + told[1];
  EXPECT_EQ(std::count(both.begin(), both.end(), '\n'), 2 * std::ssize(SampleFiles())) << both;
  const std::unique_ptr<Store> store = Open();
  EXPECT_EQ(store->Describe(OpenFile(*store, "ORDERS")).layout, engine::Layout::kColumns);
  EXPECT_EQ(store->Describe(OpenFile(*store, "LANGUAGES")).layout, engine::Layout::kItem);
  EXPECT_EQ(Home(path_).FindAccount(kDemoAccount)->datastore, "JET");
  EXPECT_EQ(Home(path_).FindAccount(kNativeDemoAccount)->datastore, "MVDEMO");
  const std::unique_ptr<Store> native = Open(kNativeDemoAccount);
  EXPECT_EQ(native->Describe(OpenFile(*native, "orders_dict")).name, "DICT ORDERS");
}

TEST_F(Demo, LeavesToItsUsersWhatTheyMadeOfIt) {
  Make();
  const std::string quantity = Join({"A", "5", "Pieces"});
  std::unique_ptr<Store> store = Open();
  std::string error;
  Change(*store, "ORDERS", "10001", "mine");
  Change(*store, "ORDERS", "10002", "");
  Change(*store, "DICT ORDERS", "QTY", quantity);
  EXPECT_TRUE(store->DropTable("PRODUCTS", error)) << error;
  const Contents before = Read(*store, "ORDERS");
  store.reset();
  EXPECT_EQ(Make(), "") << "a complete account needs nothing";
  store = Open();
  EXPECT_EQ(Read(*store, "ORDERS"), before);
  TableHandle products = 0;
  EXPECT_FALSE(store->OpenTable("PRODUCTS", products, error)) << "a file that a user deleted came back";

  // In a file that ABOUT doesn't tell of, only what is missing is written.
  Change(*store, "ABOUT", "ORDERS", "");
  store.reset();
  EXPECT_NE(Make().find("ORDERS"), std::string::npos);
  store = Open();
  Contents orders = Read(*store, "ORDERS");
  EXPECT_EQ(orders.size(), 2000u);
  EXPECT_EQ(orders["10001"], "mine");
  EXPECT_EQ(Read(*store, "DICT ORDERS")["QTY"], quantity);
  EXPECT_EQ(Read(*store, "ABOUT").count("ORDERS"), 1u);
}

TEST_F(Demo, RefusesAFileOfAnotherShapeAndLosesNothingOfIt) {
  Home::Make(path_);
  Home home(path_);
  std::string error;
  ASSERT_TRUE(home.AddAccount({std::string(kDemoAccount), "JET", ""}, error)) << error;
  const std::unique_ptr<Store> store = Open();
  ASSERT_TRUE(store->CreateTable("CURRENCIES", 1, error)) << error;
  Change(*store, "CURRENCIES", "EUR", "mine");
  const std::string failure = FailureOf([&] { Make(); });
  EXPECT_NE(failure.find("currencies"), std::string::npos) << failure;
  EXPECT_EQ(Read(*store, "CURRENCIES"), (Contents{{"EUR", "mine"}}));
}

// The kills are spread over the whole making.
TEST_F(Demo, IsMadeWholeAfterAKillAtAnyMoment) {
  const auto start = std::chrono::steady_clock::now();
  Make();
  const auto whole = std::chrono::steady_clock::now() - start;
  int killed = 0;
  for (const int eighths : {1, 4, 6}) {
    std::filesystem::remove_all(path_);
    ChildProgram maker([&](const auto& tell) {
      Make();
      tell();
    });
    std::this_thread::sleep_for(whole * eighths / 8);
    killed += maker.Kill() == 0 ? 1 : 0;
    Make();
    ExpectComplete();
  }
  EXPECT_GT(killed, 0) << "every run had ended before its kill";
}

TEST_F(Demo, MakesNothingWithoutTheReferenceData) {
  const std::filesystem::path nowhere = folder_ / "nowhere";
  setenv("NVADMIN_ISO_CODES", nowhere.c_str(), 1);
  const std::string failure = FailureOf([&] { Make(); });
  EXPECT_NE(failure.find((nowhere / "iso_3166-1.json").string()), std::string::npos) << failure;
  EXPECT_FALSE(Home(path_).FindAccount(kDemoAccount));

  unsetenv("NVADMIN_ISO_CODES");
  Make();
  setenv("NVADMIN_ISO_CODES", nowhere.c_str(), 1);
  EXPECT_EQ(Make(), "") << "a complete account doesn't need the package";
}

}  // namespace
}  // namespace nvadmin::samples

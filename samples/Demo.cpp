#include "samples/Demo.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "engine/BulkSave.h"
#include "engine/stores/OpenStore.h"
#include "engine/stores/Store.h"
#include "samples/Dictionaries.h"
#include "samples/IsoCodes.h"
#include "samples/SampleFiles.h"

namespace nvadmin::samples {
namespace {

using engine::Account;
using engine::Home;
using engine::Store;
using engine::TableHandle;

struct DemoAccount {
  std::string_view name;
  std::string_view datastore;
};
constexpr DemoAccount kAccounts[] = {{kDemoAccount, "JET"}, {kNativeDemoAccount, "MVDEMO"}};

constexpr const char* kIsoCodesFolder = "/usr/share/iso-codes/json";

std::filesystem::path IsoCodesFolder() {
  const char* chosen = std::getenv("NVADMIN_ISO_CODES");
  return chosen != nullptr && *chosen != '\0' ? chosen : kIsoCodesFolder;
}

[[noreturn]] void Refuse(std::string_view what, std::string_view why) {
  throw EngineFailure(fmt::format("a demo account's {} can't be made: {}", what, why));
}

// The account's entry in the catalogue; another program may add it at the same moment.
Account FindOrAddAccount(Home& home, const DemoAccount& demo) {
  const Account wanted{std::string(demo.name), std::string(demo.datastore), ""};
  std::string error;
  if (!home.FindAccount(demo.name)) home.AddAccount(wanted, error);
  const std::optional<Account> account = home.FindAccount(demo.name);
  if (!account) Refuse(fmt::format("entry {} in the catalogue", demo.name), error);
  return *account;
}

std::string DictionaryOf(std::string_view file) { return fmt::format("DICT {}", file); }

// The table of a file, made when it is missing; another program may make it at the same moment.
TableHandle OpenOrCreate(Store& store, const std::string& name, std::int32_t columns) {
  TableHandle table = 0;
  std::string error;
  if (store.OpenTable(name, table, error)) return table;
  std::string whyNotCreated;
  store.CreateTable(name, columns, whyNotCreated);
  if (!store.OpenTable(name, table, error)) Refuse(name, whyNotCreated.empty() ? error : whyNotCreated);
  return table;
}

bool IsMade(Store& store, TableHandle about, const SampleFile& file) {
  std::string item;
  return store.Read(about, file.name, item);
}

bool IsComplete(Store& store) {
  TableHandle about = 0;
  std::string error;
  return store.OpenTable(kAboutFile, about, error) &&
         std::all_of(SampleFiles().begin(), SampleFiles().end(),
                     [&](const SampleFile& file) { return IsMade(store, about, file); });
}

// An account that lacks files; without a store as long as it isn't in the catalogue.
struct Incomplete {
  const DemoAccount* demo = nullptr;
  std::unique_ptr<Store> store;
  TableHandle about = 0;
};

std::vector<Incomplete> FindIncomplete(const Home& home) {
  std::vector<Incomplete> incomplete;
  for (const DemoAccount& demo : kAccounts) {
    Incomplete found;
    found.demo = &demo;
    const std::optional<Account> account = home.FindAccount(demo.name);
    if (account) found.store = engine::OpenStore(home, *account);
    if (!found.store || !IsComplete(*found.store)) incomplete.push_back(std::move(found));
  }
  return incomplete;
}

void Write(Store& store, TableHandle table, const Item& item) {
  std::string error;
  if (store.Write(table, item.id, item.body, error)) return;
  store.Rollback();
  Refuse(fmt::format("item '{}'", item.id), error);
}

// Leaves the items that are there already.
void WriteMissing(Store& store, TableHandle table, const std::vector<Item>& items) {
  std::unordered_set<std::string> present;
  store.Scan(table, {}, [&present](std::string_view id, std::span<const std::string_view>) {
    present.emplace(id);
    return true;
  });
  for (const Item& item : items) {
    if (present.count(item.id) == 0) Write(store, table, item);
  }
}

// Dictionary, data and the item of ABOUT in one transaction. False: another program was faster.
bool MakeFile(Store& store, TableHandle about, const SampleFile& file, const std::vector<Item>& items,
              std::size_t itemCount) {
  const TableHandle data = OpenOrCreate(store, std::string(file.name), file.columns);
  const TableHandle dictionary = OpenOrCreate(store, DictionaryOf(file.name), /*columns=*/0);
  store.BeginWrites();
  if (IsMade(store, about, file)) {
    store.Rollback();
    return false;
  }
  WriteMissing(store, dictionary, MakeDictionary(WordsOf(file.name)));
  WriteMissing(store, data, items);
  Write(store, about, MakeAboutItem(file, itemCount));
  store.Commit();
  return true;
}

// All of the account as a transfer file, so that the load form has something to load.
void SaveTransferFile(const Home& home, Store& store) {
  engine::BulkSave save(engine::BulkFolder(home), kDemoTransferFile);
  for (const SampleFile& file : SampleFiles()) {
    for (const std::string& name : {DictionaryOf(file.name), std::string(file.name)}) {
      TableHandle table = 0;
      std::string error;
      if (!store.OpenTable(name, table, error)) continue;  // deleted by its users
      if (!save.CanAdd(store.Describe(table), error)) Refuse("transfer file", error);
      const bool keepsWholeItems = store.Describe(table).layout == engine::Layout::kItem;
      save.Add(store, table, keepsWholeItems, [](std::int64_t) {});
    }
  }
  save.Finish();
}

}  // namespace

void MakeDemoAccounts(Home& home, std::ostream& progress) {
  std::vector<Incomplete> incomplete = FindIncomplete(home);
  if (incomplete.empty()) return;
  const IsoCodes codes = ReadIsoCodes(IsoCodesFolder());
  for (Incomplete& account : incomplete) {
    if (!account.store) account.store = engine::OpenStore(home, FindOrAddAccount(home, *account.demo));
    account.about = OpenOrCreate(*account.store, std::string(kAboutFile), SampleFiles().front().columns);
  }
  for (const SampleFile& file : SampleFiles()) {
    const std::vector<Item> items = file.make(codes);
    const std::size_t itemCount = file.name == kAboutFile ? SampleFiles().size() : items.size();
    for (const Incomplete& account : incomplete) {
      if (IsMade(*account.store, account.about, file)) continue;
      if (!MakeFile(*account.store, account.about, file, items, itemCount)) continue;
      progress << fmt::format("{:<8} {:<12} {:>5} items\n", account.demo->name, file.name, itemCount);
    }
  }
  for (const Incomplete& account : incomplete) {
    if (account.demo->name == kDemoAccount) SaveTransferFile(home, *account.store);
  }
}

}  // namespace nvadmin::samples

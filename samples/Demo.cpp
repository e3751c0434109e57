#include "samples/Demo.h"

#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <unordered_set>
#include <vector>

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

constexpr std::string_view kDatastore = "JET";
constexpr const char* kIsoCodesFolder = "/usr/share/iso-codes/json";

std::filesystem::path IsoCodesFolder() {
  const char* chosen = std::getenv("NVADMIN_ISO_CODES");
  return chosen != nullptr && *chosen != '\0' ? chosen : kIsoCodesFolder;
}

[[noreturn]] void Refuse(std::string_view what, std::string_view why) {
  throw EngineFailure(fmt::format("the demo account's {} can't be made: {}", what, why));
}

// The account's entry in the catalogue; another program may add it at the same moment.
Account FindOrAddAccount(Home& home) {
  const Account wanted{std::string(kDemoAccount), std::string(kDatastore), ""};
  std::string error;
  if (!home.FindAccount(kDemoAccount)) home.AddAccount(wanted, error);
  const std::optional<Account> account = home.FindAccount(kDemoAccount);
  if (!account) Refuse("entry in the catalogue", error);
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

std::vector<const SampleFile*> FilesToMake(Store& store) {
  std::vector<const SampleFile*> missing;
  TableHandle about = 0;
  std::string error;
  const bool hasAbout = store.OpenTable(kAboutFile, about, error);
  for (const SampleFile& file : SampleFiles()) {
    if (!hasAbout || !IsMade(store, about, file)) missing.push_back(&file);
  }
  return missing;
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

}  // namespace

void MakeDemoAccount(Home& home, std::ostream& progress) {
  std::unique_ptr<Store> store;
  std::optional<Account> account = home.FindAccount(kDemoAccount);
  if (account) {
    store = engine::OpenStore(home, *account);
    if (FilesToMake(*store).empty()) return;
  }
  const IsoCodes codes = ReadIsoCodes(IsoCodesFolder());
  if (!store) store = engine::OpenStore(home, FindOrAddAccount(home));

  const TableHandle about = OpenOrCreate(*store, std::string(kAboutFile), SampleFiles().front().columns);
  for (const SampleFile* file : FilesToMake(*store)) {
    const std::vector<Item> items = file->make(codes);
    const std::size_t itemCount = file->name == kAboutFile ? SampleFiles().size() : items.size();
    if (!MakeFile(*store, about, *file, items, itemCount)) continue;
    progress << fmt::format("{:<12} {:>5} items\n", file->name, itemCount);
  }
}

}  // namespace nvadmin::samples

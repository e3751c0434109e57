// Makes the file that the comparisons read: items of eight single-valued attributes, always the same for the
// same number.
//   bench_items HOME ITEMS     makes account BENCH in HOME with the files ITEMS and its dictionary
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>

#include "engine/Home.h"
#include "engine/Marks.h"
#include "engine/stores/OpenStore.h"

namespace nvadmin::engine {
namespace {

constexpr std::array<std::string_view, 8> kCities = {"Leeds", "York",  "Hull",   "Bath",
                                                     "Derby", "Truro", "Oxford", "Wells"};
constexpr std::array<std::string_view, 4> kStates = {"open", "sent", "paid", "held"};

struct Word {
  std::string_view name, attribute, heading, conversion, justification, width;
};
constexpr std::array<Word, 8> kWords = {{{"NAME", "1", "Name", "", "L", "20"},
                                         {"CITY", "2", "City", "", "L", "10"},
                                         {"DATE", "3", "Date ", "D2/", "R", "9"},
                                         {"AMOUNT", "4", "Amount ", "MD2,", "R", "12"},
                                         {"STATE", "5", "State", "", "L", "6"},
                                         {"PHONE", "6", "Phone", "", "L", "12"},
                                         {"ORDERS", "7", "Orders ", "", "R", "6"},
                                         {"REMARK", "8", "Remark", "", "L", "30"}}};

// A small generator of our own, so that every machine makes the same items.
class Random {
 public:
  std::uint32_t Below(std::uint32_t limit) {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<std::uint32_t>((state_ >> 33) % limit);
  }

 private:
  std::uint64_t state_ = 20221003;
};

void Join(std::string& item, std::string_view attribute) {
  if (!item.empty()) item += kAttributeMark;
  item += attribute;
}

std::string MakeItem(Random& random, int number) {
  std::string item;
  Join(item, "Customer " + std::to_string(random.Below(1'000'000)));
  Join(item, kCities[random.Below(kCities.size())]);
  Join(item, std::to_string(19'000 + random.Below(1'500)));
  Join(item, std::to_string(random.Below(10'000'000)));
  Join(item, kStates[random.Below(kStates.size())]);
  Join(item, "0113 " + std::to_string(100'000 + random.Below(900'000)));
  Join(item, std::to_string(random.Below(500)));
  Join(item, "made as number " + std::to_string(number));
  return item;
}

void Must(bool ok, const std::string& error) {
  if (!ok) throw std::runtime_error(error);
}

void Put(Store& store, TableHandle table, std::string_view id, std::string_view item) {
  std::string error;
  Must(store.Write(table, id, item, error), error);
}

void MakeDictionary(Store& store) {
  std::string error;
  TableHandle table = 0;
  Must(store.CreateTable("items_dict", 10, error), error);
  Must(store.OpenTable("items_dict", table, error), error);
  store.BeginWrites();
  const std::string mark(1, kAttributeMark);
  for (const Word& word : kWords) {
    std::string item = "A";
    for (std::string_view piece : {word.attribute, word.heading}) item.append(mark).append(piece);
    item.append(4, kAttributeMark).append(word.conversion).append(2, kAttributeMark);
    item.append(word.justification).append(mark).append(word.width);
    Put(store, table, word.name, item);
  }
  store.Commit();
}

void MakeFile(Store& store, int items) {
  std::string error;
  TableHandle table = 0;
  Must(store.CreateTable("items", kWords.size(), error), error);
  Must(store.OpenTable("items", table, error), error);
  Random random;
  store.BeginWrites();
  for (int number = 1; number <= items; ++number)
    Put(store, table, std::to_string(number), MakeItem(random, number));
  store.Commit();
}

void Make(const char* folder, int items, const char* address) {
  Home::Make(folder);
  Home home(folder);
  std::string error;
  Must(home.AddAccount({"BENCH", *address == 0 ? "MSSQL" : "MYSQL", address}, error), error);
  const auto store = OpenStore(home, *home.FindAccount("BENCH"));
  MakeDictionary(*store);
  MakeFile(*store, items);
}

}  // namespace
}  // namespace nvadmin::engine

int main(int argc, char** argv) {
  const int items = argc >= 3 ? std::atoi(argv[2]) : 0;
  if (items < 1) {
    std::fputs("usage: bench_items HOME ITEMS [ADDRESS]\n", stderr);
    return 2;
  }
  try {
    nvadmin::engine::Make(argv[1], items, argc > 3 ? argv[3] : "");
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "bench_items: %s\n", failure.what());
    return 1;
  }
}

#include "samples/Trade.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <string>
#include <string_view>

#include "mv/DynamicArray.h"
#include "samples/Random.h"

namespace nvadmin::samples {
namespace {

constexpr std::uint64_t kCustomerSeed = 1967;
constexpr std::uint64_t kOrderSeed = 20220101;
constexpr std::int32_t kCustomerCount = 200;
constexpr std::int32_t kOrderCount = 2000;
constexpr std::int32_t kFirstOrderId = 10001;

struct Product {
  std::string_view code;  // group, "-", number
  std::string_view name;
  std::string_view category;
  std::int32_t priceCents;
  std::int32_t stock;
  std::int32_t reorderLevel;
  std::int32_t grams;
};

constexpr Product kProducts[] = {
    {"BRW-101", "Harbour kettle 1.2 l", "Brewing", 4950, 84, 25, 1180},
    {"BRW-102", "Pour-over stand, ash", "Brewing", 3200, 41, 15, 640},
    {"BRW-103", "Glass dripper, two cups", "Brewing", 1850, 120, 40, 310},
    {"BRW-104", "Paper filters, 100", "Brewing", 490, 930, 300, 150},
    {"BRW-105", "Hand mill Larch", "Brewing", 8900, 23, 10, 720},
    {"BRW-106", "Thermos can 0.7 l", "Brewing", 3675, 66, 20, 585},
    {"BRW-107", "Tea strainer, fine", "Brewing", 780, 212, 60, 45},
    {"BRW-108", "Cast teapot Pebble", "Brewing", 7425, 18, 8, 1950},
    {"CUT-201", "Paring knife Wren", "Cutlery", 1995, 95, 30, 75},
    {"CUT-202", "Cook's knife Heron 20 cm", "Cutlery", 6850, 37, 12, 235},
    {"CUT-203", "Bread knife Heron 24 cm", "Cutlery", 5400, 44, 12, 210},
    {"CUT-204", "Whetstone, two sides", "Cutlery", 3990, 51, 15, 890},
    {"CUT-205", "Table set Linden, 24 pieces", "Cutlery", 14900, 14, 5, 2300},
    {"CUT-206", "Salad servers, olive", "Cutlery", 2250, 73, 20, 120},
    {"CUT-207", "Cheese plane", "Cutlery", 1640, 88, 25, 95},
    {"CUT-208", "Peeler, swivel blade", "Cutlery", 690, 305, 90, 60},
    {"GDN-301", "Hand trowel Badger", "Garden", 1475, 132, 40, 330},
    {"GDN-302", "Pruning shears Badger", "Garden", 3380, 58, 20, 260},
    {"GDN-303", "Watering can 5 l, zinc", "Garden", 2990, 47, 15, 1250},
    {"GDN-304", "Jute twine 150 m", "Garden", 540, 410, 120, 400},
    {"GDN-305", "Seed tray, 12 cells", "Garden", 380, 640, 200, 110},
    {"GDN-306", "Cold frame, cedar", "Garden", 18900, 9, 4, 9400},
    {"GDN-307", "Leaf rake, bamboo", "Garden", 2175, 62, 20, 780},
    {"GDN-308", "Kneeling mat, cork", "Garden", 1890, 77, 25, 520},
    {"LGT-401", "Storm lantern Quay", "Lighting", 4480, 39, 15, 860},
    {"LGT-402", "Beeswax candles, 6", "Lighting", 1320, 268, 80, 420},
    {"LGT-403", "Reading lamp Crane", "Lighting", 9750, 21, 8, 1640},
    {"LGT-404", "Cord set, 3 m, linen", "Lighting", 1150, 143, 50, 205},
    {"LGT-405", "Lamp shade, paper", "Lighting", 2640, 55, 15, 180},
    {"LGT-406", "Pocket torch Firefly", "Lighting", 1780, 164, 60, 90},
    {"STN-501", "Notebook A5, dotted", "Stationery", 895, 520, 150, 240},
    {"STN-502", "Field book, waterproof", "Stationery", 1240, 310, 100, 130},
    {"STN-503", "Brass pencil", "Stationery", 2460, 92, 30, 35},
    {"STN-504", "Ink, river blue, 50 ml", "Stationery", 1375, 118, 40, 165},
    {"STN-505", "Letter tray, beech", "Stationery", 3150, 34, 12, 940},
    {"STN-506", "Paper knife, horn", "Stationery", 1590, 49, 15, 40},
    {"TXT-601", "Linen towel, striped", "Textiles", 1290, 276, 80, 140},
    {"TXT-602", "Wool blanket Moor", "Textiles", 11900, 26, 10, 1700},
    {"TXT-603", "Apron, waxed cotton", "Textiles", 4250, 63, 20, 460},
    {"TXT-604", "Market bag, canvas", "Textiles", 1680, 189, 60, 220},
};

struct Market {
  std::string_view country;
  std::string_view cities[5];
};

constexpr Market kMarkets[] = {
    {"AT", {"Wien", "Graz", "Linz", "Salzburg", "Villach"}},
    {"AU", {"Hobart", "Perth", "Adelaide", "Geelong", "Cairns"}},
    {"BE", {"Gent", "Li\xE8ge", "Namur", "Leuven", "Oostende"}},
    {"CA", {"Halifax", "Trois-Rivi\xE8res", "Winnipeg", "Victoria", "Regina"}},
    {"CH", {"Basel", "Bern", "Gen\xE8ve", "Lugano", "Chur"}},
    {"DE", {"Hamburg", "K\xF6ln", "Leipzig", "Bremen", "Kassel"}},
    {"DK", {"Odense", "Aarhus", "Esbjerg", "Ribe", "Helsing\xF8r"}},
    {"ES", {"M\xE1laga", "Bilbao", "Cuenca", "Vigo", "Gij\xF3n"}},
    {"FR", {"Lyon", "Nantes", "Besan\xE7on", "Brest", "Dijon"}},
    {"GB", {"Leeds", "York", "Bristol", "Dundee", "Swansea"}},
    {"IE", {"Cork", "Galway", "Sligo", "Kilkenny", "Waterford"}},
    {"IT", {"Torino", "Bari", "Lecce", "Trieste", "Parma"}},
    {"JP", {"Kobe", "Nara", "Sendai", "Matsue", "Otaru"}},
    {"NL", {"Utrecht", "Delft", "Zwolle", "Haarlem", "Breda"}},
    {"NO", {"Bergen", "Troms\xF8", "Molde", "Hamar", "Stavanger"}},
    {"NZ", {"Dunedin", "Napier", "Nelson", "Taupo", "Picton"}},
    {"PT", {"Porto", "Braga", "\xC9vora", "Faro", "Coimbra"}},
    {"SE", {"Malm\xF6", "Uppsala", "Kalmar", "V\xE4xj\xF6", "Lund"}},
    {"US", {"Portland", "Duluth", "Savannah", "Boise", "Albany"}},
    {"ZA", {"Durban", "Knysna", "Paarl", "George", "Upington"}},
};

constexpr std::string_view kTradeNames[] = {"Alder",   "Amber",  "Birch",     "Brook",      "Clover",
                                            "Cobble",  "Copper", "Cypress",   "Drift",      "Ember",
                                            "Fennel",  "Gable",  "Hazel",     "Juniper",    "Kestrel",
                                            "Lantern", "Meadow", "Mill Lane", "North Pier", "Orchard"};
constexpr std::string_view kTradeKinds[] = {"Household", "Kitchens", "Outfitters", "Pantry",   "Provisions",
                                            "Stores",    "Supply",   "Trading",    "Workshop", "& Daughters"};
static_assert(std::size(kTradeNames) * std::size(kTradeKinds) == kCustomerCount,
              "every customer has a name of its own");

constexpr std::string_view kFirstNames[] = {"ada",    "bruno", "clara", "david", "elena", "frank", "greta",
                                            "hugo",   "iris",  "jonas", "karin", "leo",   "marta", "nils",
                                            "olivia", "paul",  "rosa",  "simon", "tessa", "victor"};
constexpr std::string_view kLastNames[] = {
    "abbott", "brandt",  "costa",  "dahl",  "ellis", "ferrari", "garcia", "hansen", "ibsen",   "jansen",
    "keller", "lambert", "moreau", "novak", "owens", "pereira", "quinn",  "rossi",  "schmidt", "tanaka"};

constexpr std::string_view kRemarks[] = {
    "Gift wrap, card enclosed", "Deliver to the rear entrance", "Call before delivery",
    "Part delivery agreed",     "Replaces a damaged parcel",    "Invoice to head office",
    "No deliveries on Mondays", "First order: welcome sample",  "Pallet exchange",
    "Customer collects",        "Keep away from frost",         "Ask for the new catalogue",
};

// What a product cost in a year: prices rose, in steps of 5 cents.
std::int32_t PriceIn(const Product& product, int year) {
  constexpr std::int32_t kPercent[] = {92, 96, 100};
  const std::int32_t price = product.priceCents * kPercent[std::clamp(year - 2022, 0, 2)] / 100;
  return price - price % 5;
}

// The names of all customers in an order that doesn't look like a list.
std::vector<std::string> ShuffledTradeNames(Random& random) {
  std::vector<std::string> names;
  for (const std::string_view name : kTradeNames) {
    for (const std::string_view kind : kTradeKinds) names.push_back(fmt::format("{} {}", name, kind));
  }
  for (std::size_t i = names.size() - 1; i > 0; --i) {
    std::swap(names[i], names[random.Between(0, static_cast<std::int32_t>(i))]);
  }
  return names;
}

// The domain of a trade name: its letters.
std::string DomainOf(std::string_view name) {
  std::string domain;
  std::copy_if(name.begin(), name.end(), std::back_inserter(domain),
               [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); });
  return domain + ".EXAMPLE";
}

struct OrderLines {
  std::string products;
  std::string quantities;
  std::string pricesInCents;
  std::int64_t amountInCents = 0;
};

OrderLines MakeLines(Random& random, int year) {
  OrderLines lines;
  // Few orders are long ones.
  const std::int32_t longest = random.Between(1, 7);
  const std::int32_t count = random.Between(1, longest);
  std::vector<bool> taken(std::size(kProducts), false);
  for (std::int32_t line = 0; line < count; ++line) {
    const std::int32_t index = random.Between(0, static_cast<std::int32_t>(std::size(kProducts)) - 1);
    if (taken[index]) continue;
    taken[index] = true;
    const Product& product = kProducts[index];
    const std::int32_t price = PriceIn(product, year);
    const std::int32_t quantity = price > 5000 ? random.Between(1, 6) : random.Between(1, 24);
    AppendValue(lines.products, product.code);
    AppendValue(lines.quantities, std::to_string(quantity));
    AppendValue(lines.pricesInCents, std::to_string(price));
    lines.amountInCents += static_cast<std::int64_t>(quantity) * price;
  }
  return lines;
}

std::string MakeRemarks(Random& random) {
  std::string remarks;
  if (!random.Chance(22)) return remarks;
  const std::int32_t first = random.Between(0, static_cast<std::int32_t>(std::size(kRemarks)) - 1);
  AppendValue(remarks, kRemarks[first]);
  if (random.Chance(25)) AppendValue(remarks, kRemarks[(first + 5) % std::size(kRemarks)]);
  return remarks;
}

struct Progress {
  std::string_view status;
  std::string shipDate;  // empty: not shipped
};

// How far an order has come on the last day of the books.
Progress MakeProgress(Random& random, std::int32_t orderDay, std::int32_t lastDay) {
  const std::int32_t shipDay = orderDay + random.Between(1, 21);
  const bool cancelled = random.Chance(3);
  if (cancelled) return {"Cancelled", ""};
  if (shipDay > lastDay) return {"Open", ""};
  return {shipDay + 30 > lastDay ? "Shipped" : "Paid", std::to_string(shipDay)};
}

}  // namespace

std::int32_t DayNumber(int year, unsigned month, unsigned day) {
  using namespace std::chrono;
  constexpr sys_days kDayZero{1967y / December / 31};
  return static_cast<std::int32_t>((sys_days(std::chrono::year(year) / month / day) - kDayZero).count());
}

std::vector<Item> MakeProducts() {
  std::vector<Item> items;
  for (const Product& product : kProducts) {
    items.push_back(
        {std::string(product.code), Join({product.name, product.category, std::to_string(product.priceCents),
                                          std::to_string(product.stock), std::to_string(product.reorderLevel),
                                          std::to_string(product.grams)})});
  }
  return items;
}

std::vector<Item> MakeCustomers() {
  Random random(kCustomerSeed);
  const std::vector<std::string> names = ShuffledTradeNames(random);
  const std::int32_t firstDay = DayNumber(2012, 1, 1);
  const std::int32_t lastDay = DayNumber(2021, 12, 31);
  std::vector<Item> items;
  for (std::int32_t number = 1; number <= kCustomerCount; ++number) {
    const std::string& name = names[number - 1];
    const Market& market = random.Pick(kMarkets);
    const std::string_view city = random.Pick(market.cities);
    const std::string_view firstName = random.Pick(kFirstNames);
    const std::string_view lastName = random.Pick(kLastNames);
    const std::string telephone = fmt::format("555{:07}", random.Between(100000, 9999999));
    const std::string since = std::to_string(random.Between(firstDay, lastDay));
    const std::string creditLimit = std::to_string(random.Between(2, 50) * 50000);
    items.push_back({fmt::format("C{:03}", number),
                     Join({name, city, market.country, fmt::format("{} {}", firstName, lastName), telephone,
                           since, creditLimit, fmt::format("{}@{}", lastName, DomainOf(name))})});
  }
  return items;
}

std::vector<Item> MakeOrders() {
  Random random(kOrderSeed);
  const std::vector<Item> customers = MakeCustomers();
  const std::int32_t firstDay = DayNumber(2022, 1, 1);
  const std::int32_t lastDay = DayNumber(2024, 12, 31);
  const std::int32_t newYear2023 = DayNumber(2023, 1, 1);
  const std::int32_t newYear2024 = DayNumber(2024, 1, 1);
  std::vector<Item> items;
  items.reserve(kOrderCount);
  for (std::int32_t i = 0; i < kOrderCount; ++i) {
    const std::int32_t day = firstDay + i * (lastDay - firstDay + 1) / kOrderCount;
    const int year = day >= newYear2024 ? 2024 : day >= newYear2023 ? 2023 : 2022;
    // A few customers give many of the orders.
    const Item& customer = customers[random.Between(0, random.Between(0, kCustomerCount - 1))];
    const OrderLines lines = MakeLines(random, year);
    const Progress progress = MakeProgress(random, day, lastDay);
    const std::string remarks = MakeRemarks(random);
    const std::string entered = std::to_string(random.Between(7 * 3600, 18 * 3600));
    items.push_back({std::to_string(kFirstOrderId + i),
                     Join({std::to_string(day), customer.id, mv::Extract(customer.body, 3), lines.products,
                           lines.quantities, lines.pricesInCents, std::to_string(lines.amountInCents),
                           progress.status, progress.shipDate, remarks, entered})});
  }
  return items;
}

}  // namespace nvadmin::samples

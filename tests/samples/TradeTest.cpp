#include "samples/Trade.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>

#include "mv/DynamicArray.h"

namespace nvadmin::samples {
namespace {

// FNV-1a over all IDs and bodies.
std::uint64_t ChecksumOf(const std::vector<Item>& items) {
  std::uint64_t sum = 0xCBF29CE484222325u;
  for (const Item& item : items) {
    for (const char c : item.id + "=" + item.body + "\n") {
      sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001B3u;
    }
  }
  return sum;
}

std::map<std::string, std::string, std::less<>> ById(const std::vector<Item>& items) {
  std::map<std::string, std::string, std::less<>> bodies;
  for (const Item& item : items) bodies.emplace(item.id, item.body);
  return bodies;
}

int NumberIn(const Item& item, int attribute) {
  return std::stoi(std::string(mv::Extract(item.body, attribute)));
}

TEST(Trade, IsTheSameOnEveryMachine) {
  EXPECT_EQ(DayNumber(1968, 1, 1), 1);
  EXPECT_EQ(ChecksumOf(MakeProducts()), 0xD0A2BFD96139FECAu);
  EXPECT_EQ(ChecksumOf(MakeCustomers()), 0xE4AF3AD7E38911Du);
  EXPECT_EQ(ChecksumOf(MakeOrders()), 0x2D4BC3AAB0B45679u);
}

TEST(Trade, KeepsOrdersCustomersAndProductsTogether) {
  const auto customers = ById(MakeCustomers());
  const auto products = ById(MakeProducts());
  const std::vector<Item> orders = MakeOrders();
  EXPECT_EQ(customers.size(), 200u);
  EXPECT_EQ(products.size(), 40u);
  EXPECT_EQ(orders.size(), 2000u);
  std::map<std::string, int, std::less<>> statuses;
  int lastDate = DayNumber(2022, 1, 1);
  for (const Item& order : orders) {
    SCOPED_TRACE(order.id);
    EXPECT_GE(NumberIn(order, 1), lastDate);
    lastDate = NumberIn(order, 1);
    const auto customer = customers.find(mv::Extract(order.body, 2));
    ASSERT_NE(customer, customers.end());
    EXPECT_EQ(mv::Extract(order.body, 3), mv::Extract(customer->second, 3));
    EXPECT_LE(std::stoi(std::string(mv::Extract(customer->second, 6))), lastDate)
        << "ordered before being a customer";

    const std::string_view codes = mv::Extract(order.body, 4);
    const int lines = mv::Count(codes, "\xFD");
    EXPECT_GE(lines, 1);
    for (const int attribute : {5, 6})
      EXPECT_EQ(mv::Count(mv::Extract(order.body, attribute), "\xFD"), lines);
    for (int n = 1; n <= lines; ++n) EXPECT_EQ(products.count(mv::Extract(codes, 1, n)), 1u);

    const std::string_view shipped = mv::Extract(order.body, 9);
    const std::string_view status = mv::Extract(order.body, 8);
    ++statuses[std::string(status)];
    EXPECT_EQ(shipped.empty(), status == "Open" || status == "Cancelled");
    EXPECT_TRUE(shipped.empty() || NumberIn(order, 9) > lastDate) << "shipped before it was ordered";
  }
  EXPECT_EQ(lastDate, DayNumber(2024, 12, 31));
  EXPECT_EQ(statuses.size(), 4u) << "every status has its orders";
}

}  // namespace
}  // namespace nvadmin::samples

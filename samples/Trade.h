// A small invented trading house: its products, its customers, and their orders of three years.
// Made by a seeded generator: every call on every machine gives the same items, byte for byte.
#pragma once

#include <cstdint>
#include <vector>

#include "samples/Item.h"

namespace nvadmin::samples {

// The internal number of a date: days since 31 December 1967. Requires a date of the calendar.
std::int32_t DayNumber(int year, unsigned month, unsigned day);

// Attributes: name, category, price in cents, stock, reorder level, weight in grams.
std::vector<Item> MakeProducts();

// Attributes: name, city, country code, contact, telephone digits, customer since, credit limit in cents,
// e-mail.
std::vector<Item> MakeCustomers();

// In order of date. Attributes: date, customer, country code; one value a line of the order: product,
// quantity, unit price in cents; then amount in cents, status, ship date, remarks (a value each), time of
// entry in seconds.
std::vector<Item> MakeOrders();

}  // namespace nvadmin::samples

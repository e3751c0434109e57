#include "samples/SampleFiles.h"

#include <string>
#include <unordered_map>

#include "samples/Trade.h"

namespace nvadmin::samples {
namespace {

constexpr std::string_view kIsoSource = "Debian's package iso-codes";
constexpr std::string_view kInvented = "invented, the same on every machine";

struct Divisions {
  std::size_t count = 0;
  std::string codes;
  std::string types;
};

// Attributes: name, official name, common name, alpha-3, number, count of subdivisions; then the
// subdivisions, a value each: code, type.
std::vector<Item> MakeCountries(const IsoCodes& codes) {
  std::unordered_map<std::string, Divisions> byCountry;
  for (const Subdivision& subdivision : codes.subdivisions) {
    Divisions& divisions = byCountry[subdivision.country];
    ++divisions.count;
    AppendValue(divisions.codes, subdivision.code);
    AppendValue(divisions.types, subdivision.type);
  }
  std::vector<Item> items;
  items.reserve(codes.countries.size());
  for (const Country& country : codes.countries) {
    const Divisions& divisions = byCountry[country.code];
    items.push_back({country.code, Join({country.name, country.officialName, country.commonName,
                                         country.alpha3, country.numeric, std::to_string(divisions.count),
                                         divisions.codes, divisions.types})});
  }
  return items;
}

std::vector<Item> MakeSubdivisions(const IsoCodes& codes) {
  std::vector<Item> items;
  items.reserve(codes.subdivisions.size());
  for (const Subdivision& subdivision : codes.subdivisions) {
    items.push_back({subdivision.code,
                     Join({subdivision.name, subdivision.type, subdivision.country, subdivision.parent})});
  }
  return items;
}

std::vector<Item> MakeLanguages(const IsoCodes& codes) {
  std::vector<Item> items;
  items.reserve(codes.languages.size());
  for (const Language& language : codes.languages) {
    items.push_back({language.code, Join({language.name, language.alpha2, language.scope, language.type,
                                          language.invertedName, language.bibliographicCode})});
  }
  return items;
}

std::vector<Item> MakeCurrencies(const IsoCodes& codes) {
  std::vector<Item> items;
  items.reserve(codes.currencies.size());
  for (const Currency& currency : codes.currencies) {
    items.push_back({currency.code, Join({currency.name, currency.numeric})});
  }
  return items;
}

constexpr SampleFile kFiles[] = {
    {kAboutFile, 4, "The files of this account", "the demo itself", "LIST ABOUT TRY",
     [](const IsoCodes&) { return std::vector<Item>(); }},
    {"COUNTRIES", 8, "Countries of the world and their codes", kIsoSource,
     "LIST COUNTRIES NAME ALPHA3 NUMERIC\xFD"
     "SORT COUNTRIES BY-DSND DIVISIONS NAME DIVISIONS\xFD"
     "LIST COUNTRIES 'IE' NAME DIVISION DIVISION.NAME",
     MakeCountries},
    {"SUBDIVISIONS", 4, "Provinces, counties, states of the countries", kIsoSource,
     "SORT SUBDIVISIONS WITH COUNTRY = \"NZ\" BY NAME NAME TYPE\xFD"
     "LIST SUBDIVISIONS WITH PARENT.NAME = \"Wales]\" LOCAL.CODE NAME",
     MakeSubdivisions},
    {"LANGUAGES", 0, "Languages of the world", kIsoSource,
     "SORT LANGUAGES WITH TYPE = \"Constructed\" BY NAME\xFD"
     "LIST LANGUAGES WITH ALPHA2 NAME ALPHA2 INVERTED.NAME",
     MakeLanguages},
    {"CURRENCIES", 2, "Currencies", kIsoSource, "SORT CURRENCIES BY NAME NAME NUMERIC COUNTRY.NAME",
     MakeCurrencies},
    {"PRODUCTS", 6, "What the trading house sells", kInvented,
     "SORT PRODUCTS BY CATEGORY BREAK-ON CATEGORY TOTAL STOCK.VALUE\xFD"
     "LIST PRODUCTS WITH STOCK < 20 NAME STOCK REORDER.LEVEL",
     [](const IsoCodes&) { return MakeProducts(); }},
    {"CUSTOMERS", 8, "Who buys from the trading house", kInvented,
     "SORT CUSTOMERS BY NAME NAME CITY COUNTRY.NAME\xFD"
     "LIST CUSTOMERS WITH CREDIT.LIMIT > 20000 NAME CREDIT.LIMIT SINCE",
     [](const IsoCodes&) { return MakeCustomers(); }},
    {"ORDERS", 11, "Orders of 2022 to 2024", kInvented,
     "SORT ORDERS BY ORDER.DATE ORDER.DATE CUSTOMER TOTAL EXTENDED\xFD"
     "SORT ORDERS BY COUNTRY BREAK-ON COUNTRY TOTAL AMOUNT\xFD"
     "LIST ORDERS WITH STATUS = \"Open\" CUSTOMER.NAME PRODUCT.NAME QTY",
     [](const IsoCodes&) { return MakeOrders(); }},
};

}  // namespace

std::span<const SampleFile> SampleFiles() { return kFiles; }

Item MakeAboutItem(const SampleFile& file, std::size_t itemCount) {
  return {std::string(file.name), Join({file.title, std::to_string(itemCount), file.source, file.tries})};
}

}  // namespace nvadmin::samples

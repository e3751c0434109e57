#include "samples/Dictionaries.h"

#include <string>

namespace nvadmin::samples {
namespace {

// Numbered words are the columns of a LIST that names none; they and the item ID fill up to 79 columns.

constexpr Word kAbout[] = {
    // word, type, attribute, heading, conversion, correlative, justification, width
    {"@ID", 'A', "0", "File", "", "", 'L', 12},
    {"TITLE", 'A', "1", "What it holds", "", "", 'L', 50},
    {"SIZE", 'A', "2", "Size", "MD0,", "", 'R', 7},
    {"SOURCE", 'A', "3", "Where it comes from", "", "", 'L', 50},
    {"TRY", 'A', "4", "Sentences to try", "", "", 'L', 66},
    {"1", 'A', "1", "What it holds", "", "", 'L', 50},
    {"2", 'A', "2", "Size", "MD0,", "", 'R', 7},
};

constexpr Word kCountries[] = {
    {"@ID", 'A', "0", "Code", "", "", 'L', 4},
    {"NAME", 'A', "1", "Country", "", "", 'L', 44},
    {"OFFICIAL.NAME", 'A', "2", "Official name", "", "", 'L', 52},
    {"COMMON.NAME", 'A', "3", "Common name", "", "", 'L', 12},
    {"ALPHA3", 'A', "4", "Alpha-3", "", "", 'L', 7},
    {"NUMERIC", 'A', "5", "Numeric", "", "", 'R', 7},
    {"DIVISIONS", 'A', "6", "Divisions", "MD0,", "", 'R', 9},
    {"DIVISION", 'A', "7", "Division", "", "", 'L', 8},
    {"DIVISION.TYPE", 'A', "8", "Type of division", "", "", 'L', 26},
    {"DIVISION.NAME", 'S', "7", "Name of division", "", "TSUBDIVISIONS;X;;1", 'L', 34},
    {"NAME.CAPS", 'S', "1", "Country", "MCU", "", 'L', 44},
    {"INITIAL", 'S', "1", "Initial", "", "T1,1\xFDMCU", 'L', 7},
    {"DIVISION.LIST", 'I', "", "Divisions", "", "TCOUNTRIES;X;;7", 'L', 9},
    {"1", 'A', "1", "Country", "", "", 'L', 38},
    {"2", 'A', "4", "Alpha-3", "", "", 'L', 7},
    {"3", 'A', "5", "Numeric", "", "", 'R', 7},
    {"4", 'A', "6", "Divisions", "MD0,", "", 'R', 9},
};

constexpr Word kSubdivisions[] = {
    {"@ID", 'A', "0", "Code", "", "", 'L', 6},
    {"NAME", 'A', "1", "Subdivision", "", "", 'L', 34},
    {"TYPE", 'A', "2", "Type", "", "", 'L', 22},
    {"COUNTRY", 'A', "3", "Country", "", "", 'L', 7},
    {"PARENT", 'A', "4", "Part of", "", "", 'L', 7},
    {"COUNTRY.NAME", 'S', "3", "Country", "", "TCOUNTRIES;X;;1", 'L', 30},
    {"PARENT.NAME", 'S', "4", "Part of", "", "TSUBDIVISIONS;X;;1", 'L', 30},
    {"LOCAL.CODE", 'S', "0", "Code", "", "G1-1", 'L', 5},
    {"TYPE.CAPS", 'S', "2", "Type", "MCU", "", 'L', 22},
    {"COUNTRY.OF.CODE", 'I', "", "Country", "", "G0-1\xFDTCOUNTRIES;X;;1", 'L', 30},
    {"1", 'A', "1", "Subdivision", "", "", 'L', 30},
    {"2", 'A', "2", "Type", "", "", 'L', 26},
    {"3", 'A', "3", "Country", "", "", 'L', 7},
};

constexpr Word kLanguages[] = {
    {"@ID", 'A', "0", "Code", "", "", 'L', 4},
    {"NAME", 'A', "1", "Language", "", "", 'L', 40},
    {"ALPHA2", 'A', "2", "Alpha-2", "", "", 'L', 7},
    {"SCOPE", 'A', "3", "Scope", "", "", 'L', 13},
    {"TYPE", 'A', "4", "Type", "", "", 'L', 11},
    {"INVERTED.NAME", 'A', "5", "Name, inverted", "", "", 'L', 44},
    {"BIBLIOGRAPHIC", 'A', "6", "Library", "", "", 'L', 7},
    {"TYPE.LETTER", 'S', "4", "Type", "", "T1,1", 'L', 4},
    {"FAMILY.NAME", 'S', "5", "Family", "", "G0,1\xFDMCU", 'L', 24},
    {"INITIAL", 'S', "1", "Initial", "", "T1,1\xFDMCU", 'L', 7},
    {"1", 'A', "1", "Language", "", "", 'L', 30},
    {"2", 'A', "2", "Alpha-2", "", "", 'L', 7},
    {"3", 'A', "3", "Scope", "", "", 'L', 13},
    {"4", 'A', "4", "Type", "", "", 'L', 11},
};

constexpr Word kCurrencies[] = {
    {"@ID", 'A', "0", "Code", "", "", 'L', 4},
    {"NAME", 'A', "1", "Currency", "", "", 'L', 40},
    {"NUMERIC", 'A', "2", "Numeric", "", "", 'R', 7},
    {"COUNTRY", 'S', "0", "Country", "", "T1,2", 'L', 7},
    {"COUNTRY.NAME", 'S', "0", "Country", "", "T1,2\xFDTCOUNTRIES;X;;1", 'L', 25},
    {"NAME.CAPS", 'S', "1", "Currency", "MCU", "", 'L', 40},
    {"1", 'A', "1", "Currency", "", "", 'L', 32},
    {"2", 'A', "2", "Numeric", "", "", 'R', 7},
    {"3", 'S', "0", "Country", "", "T1,2\xFDTCOUNTRIES;X;;1", 'L', 24},
};

constexpr Word kCustomers[] = {
    {"@ID", 'A', "0", "Customer", "", "", 'L', 8},
    {"NAME", 'A', "1", "Name", "", "", 'L', 26},
    {"CITY", 'A', "2", "City", "", "", 'L', 14},
    {"COUNTRY", 'A', "3", "Country", "", "", 'L', 7},
    {"COUNTRY.NAME", 'S', "3", "Country", "", "TCOUNTRIES;X;;1", 'L', 20},
    {"CONTACT", 'A', "4", "Contact", "MCT", "", 'L', 20},
    {"FIRST.NAME", 'S', "4", "First name", "MCT", "G0 1", 'L', 10},
    {"LAST.NAME", 'S', "4", "Last name", "MCT", "G1 1", 'L', 10},
    {"PHONE", 'A', "5", "Telephone", "ML(###-###-####)", "", 'L', 13},
    {"SINCE", 'A', "6", "Since", "D2/", "", 'R', 9},
    {"CREDIT.LIMIT", 'A', "7", "Credit limit", "MD2,$", "", 'R', 13},
    {"EMAIL", 'A', "8", "E-mail", "MCL", "", 'L', 36},
    {"SINCE.ISO", 'D', "6", "Since", "D4-YMD", "", 'L', 10},
    {"1", 'A', "1", "Name", "", "", 'L', 26},
    {"2", 'A', "2", "City", "", "", 'L', 14},
    {"3", 'A', "3", "Country", "", "", 'L', 7},
    {"4", 'A', "7", "Credit limit", "MD2,$", "", 'R', 13},
};

constexpr Word kProducts[] = {
    {"@ID", 'A', "0", "Product", "", "", 'L', 8},
    {"NAME", 'A', "1", "Name", "", "", 'L', 28},
    {"CATEGORY", 'A', "2", "Category", "", "", 'L', 11},
    {"GROUP", 'S', "0", "Group", "", "G0-1", 'L', 5},
    {"PRICE", 'A', "3", "Cents", "", "", 'R', 8},
    {"UNIT.PRICE", 'A', "3", "Unit price", "MD2", "", 'R', 10},
    {"STOCK", 'A', "4", "Stock", "", "", 'R', 6},
    {"STOCK.VALUE", 'S', "4", "Stock value", "MD2,$", "A;N(STOCK)*N(PRICE)", 'R', 13},
    {"REORDER.LEVEL", 'A', "5", "Reorder at", "", "", 'R', 10},
    {"WEIGHT", 'A', "6", "Kilograms", "MD3", "", 'R', 9},
    {"NAME.CAPS", 'S', "1", "Name", "MCU", "", 'L', 28},
    {"1", 'A', "1", "Name", "", "", 'L', 28},
    {"2", 'A', "2", "Category", "", "", 'L', 11},
    {"3", 'A', "3", "Unit price", "MD2", "", 'R', 10},
    {"4", 'A', "4", "Stock", "", "", 'R', 6},
};

constexpr Word kOrders[] = {
    {"@ID", 'A', "0", "Order", "", "", 'L', 6},
    {"ORDER.DATE", 'A', "1", "Date", "D2/", "", 'R', 9},
    {"ORDER.DAY", 'A', "1", "Date", "D", "", 'R', 12},
    {"WEEKDAY", 'S', "1", "Weekday", "DWA", "", 'L', 9},
    {"MONTH", 'S', "1", "Month", "", "D4-YM", 'L', 7},
    {"QUARTER", 'S', "1", "Quarter", "", "DQ", 'R', 7},
    {"YEAR", 'S', "1", "Year", "", "DY", 'R', 5},
    {"CUSTOMER", 'A', "2", "Customer", "", "", 'L', 8},
    {"CUSTOMER.NAME", 'S', "2", "Customer", "", "TCUSTOMERS;X;;1", 'L', 24},
    {"CITY", 'S', "2", "City", "", "TCUSTOMERS;X;;2", 'L', 14},
    {"COUNTRY", 'A', "3", "Country", "", "", 'L', 7},
    {"COUNTRY.NAME", 'S', "3", "Country", "", "TCOUNTRIES;X;;1", 'L', 20},
    {"PRODUCT", 'A', "4", "Product", "", "", 'L', 8},
    {"PRODUCT.NAME", 'S', "4", "Product", "", "TPRODUCTS;X;;1", 'L', 28},
    {"PRODUCT.GROUP", 'S', "4", "Group", "", "G0-1", 'L', 5},
    {"QTY", 'A', "5", "Qty", "", "", 'R', 5},
    {"PRICE", 'A', "6", "Cents", "", "", 'R', 8},
    {"UNIT.PRICE", 'A', "6", "Unit price", "MD2", "", 'R', 10},
    {"EXTENDED", 'S', "5", "Extended", "MD2", "A;N(QTY)*N(PRICE)", 'R', 11},
    {"AMOUNT", 'A', "7", "Amount", "MD2", "", 'R', 11},
    {"INVOICED", 'A', "7", "Invoiced", "MD2,$", "", 'R', 14},
    {"STATUS", 'A', "8", "Status", "", "", 'L', 9},
    {"STATUS.CAPS", 'S', "8", "Status", "MCU", "", 'L', 9},
    {"SHIP.DATE", 'A', "9", "Shipped", "D2/", "", 'R', 9},
    {"REMARK", 'A', "10", "Remark", "", "", 'L', 30},
    {"ENTERED", 'A', "11", "Entered", "MTS", "", 'R', 9},
    {"DATE.ISO", 'D', "1", "Date", "D4-YMD", "", 'L', 10},
    {"CITY.OF.ORDER", 'I', "", "City", "", "TORDERS;X;;2\xFDTCUSTOMERS;X;;2", 'L', 14},
    {"1", 'A', "1", "Date", "D2/", "", 'R', 9},
    {"2", 'S', "2", "Customer", "", "TCUSTOMERS;X;;1", 'L', 24},
    {"3", 'A', "3", "Country", "", "", 'L', 7},
    {"4", 'A', "7", "Amount", "MD2", "", 'R', 11},
    {"5", 'A', "8", "Status", "", "", 'L', 9},
};

struct Dictionary {
  std::string_view file;
  std::span<const Word> words;
};

constexpr Dictionary kDictionaries[] = {
    {"ABOUT", kAbout},         {"COUNTRIES", kCountries},   {"SUBDIVISIONS", kSubdivisions},
    {"LANGUAGES", kLanguages}, {"CURRENCIES", kCurrencies}, {"CUSTOMERS", kCustomers},
    {"PRODUCTS", kProducts},   {"ORDERS", kOrders},
};

}  // namespace

std::span<const Word> WordsOf(std::string_view file) {
  for (const Dictionary& dictionary : kDictionaries) {
    if (dictionary.file == file) return dictionary.words;
  }
  return {};
}

Item MakeDictionaryItem(const Word& word) {
  const std::string type(1, word.type);
  const std::string justification(1, word.justification);
  const std::string width = std::to_string(word.width);
  std::string body;
  if (word.type == 'D') {
    body = Join({type, word.attribute, word.conversion, word.heading, width + justification});
  } else if (word.type == 'I') {
    body = Join({type, word.correlative, word.conversion, word.heading, width + justification});
  } else {
    // A report sets headings without a blank between them: one on the right edge brings its own.
    const std::string heading = std::string(word.heading) + (word.justification == 'R' ? " " : "");
    body = Join(
        {type, word.attribute, heading, "", "", "", word.conversion, word.correlative, justification, width});
  }
  return {std::string(word.word), std::move(body)};
}

std::vector<Item> MakeDictionary(std::span<const Word> words) {
  std::vector<Item> items;
  items.reserve(words.size());
  for (const Word& word : words) items.push_back(MakeDictionaryItem(word));
  return items;
}

}  // namespace nvadmin::samples

// The tables of docs/conversions.md: every row of them is run.
#include <fstream>
#include <map>
#include <vector>

#include "mv/EngineHooks.h"
#include "tests/mv/Notation.h"

namespace nvadmin::mv {
namespace {

struct Table {
  std::string_view heading;
  std::string (*run)(std::string_view value, std::string_view code);
  int fewestRows;  // the tests of conversions leave these examples to the document
};

constexpr Table kTables[] = {
    {"| value | code | result |", ShownAsOconv, 175},
    {"| value | mask | result |", ShownAsFmt, 25},
    {"| typed | code | stored |", StoredByIconv, 30},
};

// The cells of a row, without the quotes of code and the word for the empty text.
std::vector<std::string> Cells(std::string_view row) {
  constexpr std::string_view kBorder = " | ";
  std::vector<std::string> cells;
  for (row = row.substr(2, row.size() - 4);; row.remove_prefix(row.find(kBorder) + kBorder.size())) {
    std::string cell(row.substr(0, row.find(kBorder)));
    if (cell.size() > 2 && cell.front() == '`' && cell.back() == '`') cell = cell.substr(1, cell.size() - 2);
    cells.push_back(cell == "*empty*" ? "" : cell);
    if (row.find(kBorder) == std::string_view::npos) return cells;
  }
}

bool ReadTown(std::string_view file, std::string_view id, std::string& item) {
  if (file != "TOWNS" || (id != "LD" && id != "HX")) return false;
  item = Bytes(id == "LD" ? "Leeds^North]Mill" : "^East");
  return true;
}

TEST(Document, TablesShowWhatConversionsDo) {
  Hooks().readItem = ReadTown;
  std::ifstream document(NVADMIN_SOURCE_DIR "/docs/conversions.md", std::ios::binary);
  const Table* table = nullptr;
  std::map<const Table*, int> rows;
  std::string line;
  for (int number = 1; std::getline(document, line); ++number) {
    if (!line.starts_with("| ")) {
      if (!line.starts_with("|-")) table = nullptr;
      continue;
    }
    if (table == nullptr) {
      for (const Table& candidate : kTables) {
        if (line == candidate.heading) table = &candidate;
      }
      continue;
    }
    const std::vector<std::string> cells = Cells(line);
    ASSERT_EQ(cells.size(), 3U) << "line " << number << ": " << line;
    EXPECT_EQ(table->run(cells[0], cells[1]), cells[2]) << "line " << number << ": " << line;
    ++rows[table];
  }
  Hooks().readItem = nullptr;
  for (const Table& candidate : kTables) {
    EXPECT_GE(rows[&candidate], candidate.fewestRows) << candidate.heading;
  }
}

}  // namespace
}  // namespace nvadmin::mv

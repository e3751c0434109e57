// Bounds, unfinished rows, descriptions, and the memory of a long list.
#include "engine/ResultGrid.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdint>
#include <string>

#include "tests/support/TemporaryFolder.h"

namespace nvadmin::engine {
namespace {

ResultGrid GridOf(std::int32_t columns, std::initializer_list<std::string_view> cells) {
  ResultGrid grid;
  grid.Start(columns);
  for (const std::string_view cell : cells) grid.AppendCell(cell);
  return grid;
}

TEST(ResultGrid, BoundsAndCells) {
  const ResultGrid none;
  const ResultGrid empty = GridOf(3, {});
  const ResultGrid keys = GridOf(1, {"A", "", "C"});
  const ResultGrid rows = GridOf(2, {"a1", "b1", std::string_view("\0x", 2), "b2", "cut"});
  ResultGrid described = GridOf(2, {"a1", "b1"});
  described.Describe(1, "NAME");
  ResultGrid cleared = described;
  cleared.Clear();
  ResultGrid restarted = described;
  restarted.Start(2);

  constexpr const char* kFails = "!";
  const struct {
    const char* name;
    const ResultGrid& grid;
    std::int32_t highestColumn, highestRow, column, row;
    std::string want;
  } kCases[] = {
      {"no columns", none, -1, 0, 0, 1, kFails},
      {"no rows", empty, 2, 0, 0, 1, kFails},
      {"empty key between", keys, 0, 3, 0, 2, ""},
      {"last key", keys, 0, 3, 0, 3, "C"},
      {"after the last", keys, 0, 3, 0, 4, kFails},
      {"row below the descriptions", described, 1, 1, 0, -1, kFails},
      {"no descriptions", keys, 0, 3, 0, 0, kFails},
      {"NUL in a cell", rows, 1, 2, 0, 2, std::string("\0x", 2)},
      {"unfinished row", rows, 1, 2, 0, 3, kFails},
      {"highest row", keys, 0, 3, 0, INT32_MAX, kFails},
      {"column beyond", rows, 1, 2, 2, 1, kFails},
      {"column -1", rows, 1, 2, -1, 1, kFails},
      {"described", described, 1, 1, 1, 0, "NAME"},
      {"not described, but its neighbour", described, 1, 1, 0, 0, ""},
      {"cleared", cleared, -1, 0, 1, 0, kFails},
      {"started again: no old description", restarted, 1, 0, 1, 0, kFails},
  };
  for (const auto& row : kCases) {
    EXPECT_EQ(row.grid.HighestColumn(), row.highestColumn) << row.name;
    EXPECT_EQ(row.grid.HighestRow(), row.highestRow) << row.name;
    std::string_view found = kFails;
    EXPECT_EQ(row.grid.FindCell(row.column, row.row, found), row.want != kFails) << row.name;
    EXPECT_EQ(found, row.want) << row.name;
    EXPECT_EQ(FailureOf([&] { EXPECT_EQ(row.grid.Cell(row.column, row.row), row.want); }).empty(),
              row.want != kFails)
        << row.name;
  }
}

TEST(ResultGrid, ACellMayBeAppendedToItsOwnGrid) {
  ResultGrid grid = GridOf(1, {"0123456789"});
  for (std::int32_t row = 1; row <= 100; ++row) grid.AppendCell(grid.Cell(0, row));
  EXPECT_EQ(grid.HighestRow(), 101);
  EXPECT_EQ(grid.Cell(0, 101), "0123456789");
}

TEST(ResultGrid, ALongListGivesItsMemoryBack) {
  const auto bytesInUse = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
  constexpr std::size_t kKeys = 1 << 20;
  const std::size_t before = bytesInUse();
  ResultGrid grid = GridOf(1, {});
  for (std::size_t key = 0; key < kKeys; ++key) grid.AppendCell("12345678");
  EXPECT_LT(bytesInUse(), before + 28 * kKeys) << "less than a list of strings, room to grow included";
  grid.Clear();
  EXPECT_LT(bytesInUse(), before + 100'000);
}

}  // namespace
}  // namespace nvadmin::engine

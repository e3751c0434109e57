// Totals and breaks of a report: what TOTAL sums and BREAK-ON watches, on stored values before any output
// conversion. Sums are fixed-point numbers of 64 bits with four decimal places, so that no binary fraction
// ever shows.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "reports/Columns.h"

namespace nvadmin {

enum class TotalRow { kGrand, kSub };

class Totals {
 public:
  explicit Totals(std::size_t columnCount) : totalsTable_(columnCount), breakValues_(columnCount) {}

  // Takes the stored cell of column `index` (from 0) of item number `itemCount` (from 1). True when a
  // sub-total line is due now, before the lines of this item: at the first change of a break column, and
  // never again. Fails, naming the column's heading, when a sum leaves its range of
  // -922,337,203,685,477.5808 to
  // 922,337,203,685,477.5807.
  bool Take(const ReportColumn& column, std::size_t index, std::string_view cell, std::int64_t itemCount);

  bool SubTotalWritten() const { return subTotalWritten_; }

  // What a total line shows for a column: the sum under the column's output conversion. Reading a sub-total
  // sets it to zero.
  std::string Show(TotalRow row, const ReportColumn& column, std::size_t index);

 private:
  struct Sums {
    std::int64_t grand = 0;
    std::int64_t sub = 0;
  };
  std::vector<Sums> totalsTable_;  // in ten-thousandths
  std::vector<std::string> breakValues_;
  bool subTotalWritten_ = false;
};

}  // namespace nvadmin

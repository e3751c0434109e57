#include "reports/Totals.h"

#include "session/EngineCallBack.h"
#include "session/Marks.h"
#include "session/Text.h"
#include "session/Values.h"
#include "session/basNvFunctions.h"

namespace nvadmin {

namespace {

constexpr int kDecimals = 4;
constexpr std::int64_t kOne = 10'000;

// Appends a digit to a number that is kept negative, whose range is the wider one. False when it leaves the
// range.
bool AppendDigit(std::int64_t& negative, int digit) {
  return !__builtin_mul_overflow(negative, 10, &negative) &&
         !__builtin_sub_overflow(negative, digit, &negative);
}

// The leading number of a text in ten-thousandths, rounded half away from zero. False when it leaves the
// range.
bool ReadFixedPoint(std::string_view text, std::int64_t& number) {
  std::string_view digits = LeadingNumber(text);
  const bool isNegative = digits.starts_with('-');
  if (isNegative || digits.starts_with('+')) digits.remove_prefix(1);
  const std::size_t point = digits.find('.');
  const std::string_view fraction = point == std::string_view::npos ? "" : digits.substr(point + 1);
  number = 0;
  for (char digit : digits.substr(0, point)) {
    if (!AppendDigit(number, digit - '0')) return false;
  }
  for (std::size_t place = 0; place < kDecimals; ++place) {
    if (!AppendDigit(number, place < fraction.size() ? fraction[place] - '0' : 0)) return false;
  }
  const bool roundsAway = fraction.size() > kDecimals && fraction[kDecimals] >= '5';
  if (roundsAway && __builtin_sub_overflow(number, 1, &number)) return false;
  return isNegative || !__builtin_sub_overflow(0, number, &number);
}

std::string FixedPointText(std::int64_t number) {
  const bool negative = number < 0;
  const std::uint64_t magnitude =
      negative ? 0 - static_cast<std::uint64_t>(number) : static_cast<std::uint64_t>(number);
  std::string text = std::to_string(magnitude / kOne);
  std::string fraction = std::to_string(kOne + magnitude % kOne).substr(1);
  fraction.erase(fraction.find_last_not_of('0') + 1);
  if (!fraction.empty()) text += "." + fraction;
  return negative ? "-" + text : text;
}

}  // namespace

bool Totals::Take(const ReportColumn& column, std::size_t index, std::string_view cell,
                  std::int64_t itemCount) {
  if (column.isTotalled && !cell.empty()) {
    Sums& sums = totalsTable_[index];
    PartWalk values = WalkValues(cell);
    while (!values.AtEnd()) {
      std::int64_t number = 0;
      if (!ReadFixedPoint(values.Next(), number) || __builtin_add_overflow(sums.grand, number, &sums.grand) ||
          __builtin_add_overflow(sums.sub, number, &sums.sub)) {
        throw EngineFailure(
            Concat({"the total of column '", column.heading,
                    "' leaves its range, -922,337,203,685,477.5808 to 922,337,203,685,477.5807"}));
      }
    }
  }
  if (!column.isBreak) return false;
  std::string& last = breakValues_[index];
  const bool isDue = cell != last && itemCount >= 2 && !subTotalWritten_;
  if (isDue) subTotalWritten_ = true;
  last = cell;
  return isDue;
}

std::string Totals::Show(TotalRow row, const ReportColumn& column, std::size_t index) {
  Sums& sums = totalsTable_[index];
  std::string text = FixedPointText(row == TotalRow::kGrand ? sums.grand : sums.sub);
  if (row == TotalRow::kSub) sums.sub = 0;
  return column.conversion.empty() ? text : OOConv(text, column.conversion);
}

}  // namespace nvadmin

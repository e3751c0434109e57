// MT: times, as seconds since midnight. Hours run on beyond a day, unless a 12-hour clock is asked for.
#include <array>

#include "mv/ConversionRoutines.h"
#include "mv/Decimal.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

constexpr unsigned kSecondsPerHour = 3600;
constexpr unsigned kSecondsPerDay = 24 * kSecondsPerHour;
constexpr std::size_t kMaxTypedHourDigits = 9;

struct TimeCode {
  bool twelveHours = false;
  bool seconds = false;
  char separator = ':';
};

bool ParseTimeCode(std::string_view rest, TimeCode& code) {
  code.twelveHours = TakeCharacter(rest, 'H');
  code.seconds = TakeCharacter(rest, 'S');
  if (!code.twelveHours) code.twelveHours = TakeCharacter(rest, 'H');
  if (rest.empty()) return true;
  code.separator = rest.front();
  return rest.size() == 1 && !IsLetter(code.separator) && !IsDigit(code.separator);
}

// Divides digits of any length; `quotient` receives digits without leading zeros.
unsigned DivideDigits(std::string_view digits, unsigned divisor, std::string& quotient) {
  unsigned remainder = 0;
  for (const char digit : digits) {
    remainder = remainder * 10 + static_cast<unsigned>(digit - '0');
    if (!quotient.empty() || remainder >= divisor)
      quotient.push_back(static_cast<char>('0' + remainder / divisor));
    remainder %= divisor;
  }
  return remainder;
}

// What a user typed as a clock time: up to three numbers, and the half of the day.
struct TypedTime {
  std::array<unsigned, 3> numbers = {};
  bool morning = false;
  bool afternoon = false;
};

bool TakeTypedNumber(std::string_view& rest, unsigned& number) {
  const std::size_t before = rest.size();
  std::size_t taken = 0;
  if (!TakeNumber(rest, taken) || before - rest.size() > kMaxTypedHourDigits) return false;
  number = static_cast<unsigned>(taken);
  return true;
}

bool ParseTypedTime(std::string_view rest, char separator, TypedTime& time) {
  rest = TrimBlanks(rest);
  if (!TakeTypedNumber(rest, time.numbers[0])) return false;
  for (std::size_t at = 1; at < time.numbers.size() && !rest.empty(); ++at) {
    if (rest.front() != ':' && rest.front() != separator) break;
    rest.remove_prefix(1);
    if (!TakeTypedNumber(rest, time.numbers[at]) || time.numbers[at] > 59) return false;
  }
  rest = TrimBlanks(rest);
  time.morning = IsWord(rest, "AM");
  time.afternoon = IsWord(rest, "PM");
  return rest.empty() || time.morning || time.afternoon;
}

}  // namespace

bool ConvertTime(const Conversion& conversion, std::string& result) {
  TimeCode code;
  NumberText number;
  if (!ParseTimeCode(conversion.code, code) || !ParseNumber(conversion.value, number)) return false;
  if (number.negative && !number.IsZero()) return false;

  std::string quotient;
  unsigned inHour = 0;
  unsigned hourOfDay = 0;
  if (code.twelveHours) {
    const unsigned inDay = DivideDigits(number.whole, kSecondsPerDay, quotient);
    inHour = inDay % kSecondsPerHour;
    hourOfDay = inDay / kSecondsPerHour;
    AppendTwoDigits((hourOfDay + 11) % 12 + 1, result);
  } else {
    inHour = DivideDigits(number.whole, kSecondsPerHour, quotient);
    if (quotient.size() < 2) result.append(2 - quotient.size(), '0');
    result.append(quotient);
  }
  result.push_back(code.separator);
  AppendTwoDigits(inHour / 60, result);
  if (code.seconds) {
    result.push_back(code.separator);
    AppendTwoDigits(inHour % 60, result);
  }
  if (code.twelveHours) result.append(hourOfDay < 12 ? "AM" : "PM");
  return true;
}

bool ReadTime(std::string_view typed, std::string_view codeText, std::string& stored) {
  TimeCode code;
  TypedTime time;
  if (!ParseTimeCode(codeText, code) || !ParseTypedTime(typed, code.separator, time)) return false;
  unsigned long long hours = time.numbers[0];
  if (time.morning || time.afternoon) {
    if (hours < 1 || hours > 12) return false;
    hours = hours % 12 + (time.afternoon ? 12 : 0);
  }
  stored = std::to_string(hours * kSecondsPerHour + time.numbers[1] * 60 + time.numbers[2]);
  return true;
}

}  // namespace nvadmin::mv

// D: dates. Day 0 is 31 December 1967 in the Gregorian
// calendar, which runs both ways over the years 1 to 9999.
#include <algorithm>
#include <array>
#include <chrono>
#include <optional>

#include "mv/ConversionRoutines.h"
#include "mv/Decimal.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

using std::chrono::sys_days;
using std::chrono::year;
using std::chrono::year_month_day;
using DayNumber = std::chrono::days::rep;

constexpr sys_days kDayZero{year{1967} / 12 / 31};
constexpr DayNumber kFirstDay = (sys_days{year{1} / 1 / 1} - kDayZero).count();
constexpr DayNumber kLastDay = (sys_days{year{9999} / 12 / 31} - kDayZero).count();

// Two-digit years up to this one belong to 2000.
constexpr int kLastYearOf2000 = 29;

constexpr std::array<std::string_view, 12> kMonths = {"JANUARY",   "FEBRUARY", "MARCH",    "APRIL",
                                                      "MAY",       "JUNE",     "JULY",     "AUGUST",
                                                      "SEPTEMBER", "OCTOBER",  "NOVEMBER", "DECEMBER"};
constexpr std::array<std::string_view, 7> kWeekdays = {"MONDAY", "TUESDAY",  "WEDNESDAY", "THURSDAY",
                                                       "FRIDAY", "SATURDAY", "SUNDAY"};
constexpr std::size_t kMonthAbbreviation = 3;

struct DateCode {
  bool readsDate = false;  // DI
  bool european = false;
  int yearDigits = 4;
  char separator = 0;  // 0: none
  // Letters behind the separator, in capitals: an order of parts, or one part alone.
  std::array<char, 3> letters = {};
  std::size_t letterCount = 0;

  std::string_view Letters() const { return {letters.data(), letterCount}; }
};

struct Day {
  explicit Day(DayNumber number) : days(kDayZero + std::chrono::days(number)), date(days) {}

  int Year() const { return static_cast<int>(date.year()); }
  unsigned Month() const { return static_cast<unsigned>(date.month()); }
  unsigned DayOfMonth() const { return static_cast<unsigned>(date.day()); }
  unsigned Weekday() const { return std::chrono::weekday(days).iso_encoding(); }
  DayNumber DayOfYear() const { return (days - sys_days{date.year() / 1 / 1}).count() + 1; }

  sys_days days;
  year_month_day date;
};

// The last digits of the year, with zeros in front.
void AppendYear(int number, int digits, std::string& result) {
  const std::size_t start = result.size();
  result.append(static_cast<std::size_t>(digits), '0');
  for (std::size_t at = result.size(); at-- > start; number /= 10)
    result[at] = static_cast<char>('0' + number % 10);
}

void AppendPart(char letter, const Day& day, const DateCode& code, std::string& result) {
  if (letter == 'Y') {
    AppendYear(day.Year(), code.yearDigits, result);
  } else {
    AppendTwoDigits(letter == 'D' ? day.DayOfMonth() : day.Month(), result);
  }
}

// Numeric parts in an order such as "YMD". A year of no digits takes its separator with it.
void AppendInOrder(std::string_view order, const Day& day, const DateCode& code, std::string& result) {
  bool first = true;
  for (const char letter : order) {
    if (letter == 'Y' && code.yearDigits == 0) continue;
    if (!first) result.push_back(code.separator == 0 ? ' ' : code.separator);
    first = false;
    AppendPart(letter, day, code, result);
  }
}

void AppendInWords(const Day& day, const DateCode& code, std::string& result) {
  AppendTwoDigits(day.DayOfMonth(), result);
  result.append(1, ' ').append(kMonths[day.Month() - 1].substr(0, kMonthAbbreviation));
  if (code.yearDigits == 0) return;
  result.push_back(' ');
  AppendYear(day.Year(), code.yearDigits, result);
}

struct SinglePart {
  std::string_view letters;
  void (*append)(const Day& day, const DateCode& code, std::string& result);
};

void AppendNumberOf(DayNumber number, std::string& result) { result.append(std::to_string(number)); }

void AppendDayAlone(const Day& day, const DateCode&, std::string& result) {
  AppendNumberOf(day.DayOfMonth(), result);
}

void AppendMonthAlone(const Day& day, const DateCode&, std::string& result) {
  AppendNumberOf(day.Month(), result);
}

void AppendYearAlone(const Day& day, const DateCode& code, std::string& result) {
  AppendYear(day.Year(), code.yearDigits, result);
}

void AppendQuarter(const Day& day, const DateCode&, std::string& result) {
  AppendNumberOf((day.Month() + 2) / 3, result);
}

void AppendDayOfYear(const Day& day, const DateCode&, std::string& result) {
  AppendNumberOf(day.DayOfYear(), result);
}

void AppendWeekday(const Day& day, const DateCode&, std::string& result) {
  AppendNumberOf(day.Weekday(), result);
}

void AppendMonthName(const Day& day, const DateCode&, std::string& result) {
  result.append(kMonths[day.Month() - 1]);
}

void AppendWeekdayName(const Day& day, const DateCode&, std::string& result) {
  result.append(kWeekdays[day.Weekday() - 1]);
}

constexpr SinglePart kSingleParts[] = {
    {"D", AppendDayAlone},  {"M", AppendMonthAlone}, {"Y", AppendYearAlone},  {"Q", AppendQuarter},
    {"J", AppendDayOfYear}, {"W", AppendWeekday},    {"MA", AppendMonthName}, {"WA", AppendWeekdayName},
};

const SinglePart* FindSinglePart(std::string_view letters) {
  for (const SinglePart& part : kSingleParts) {
    if (part.letters == letters) return &part;
  }
  return nullptr;
}

// Two or three of the letters D, M and Y, none of them twice.
bool IsOrder(std::string_view letters) {
  if (letters.size() < 2 || letters.find_first_not_of("DMY") != std::string_view::npos) return false;
  for (std::size_t at = 1; at < letters.size(); ++at) {
    if (letters.find(letters[at]) != at) return false;
  }
  return true;
}

bool ParseDateCode(std::string_view rest, DateCode& code) {
  code.readsDate = TakeCharacter(rest, 'I');
  if (code.readsDate) {
    code.european = TakeCharacter(rest, 'E');
    return rest.empty();
  }
  TakeDigit(rest, code.yearDigits);
  while (!rest.empty()) {
    const char next = ToUpper(rest.front());
    rest.remove_prefix(1);
    if (next == 'E' && !code.european) {
      code.european = true;
    } else if (IsLetter(next) && code.letterCount < code.letters.size()) {
      code.letters[code.letterCount++] = next;
    } else if (IsDigit(next) && code.Letters() == "Y") {
      code.yearDigits = next - '0';
      if (!rest.empty()) return false;
    } else if (!IsLetter(next) && !IsDigit(next) && code.separator == 0 && code.letterCount == 0) {
      code.separator = next;
    } else {
      return false;
    }
  }
  const std::string_view letters = code.Letters();
  return code.yearDigits <= 4 && (letters.empty() || FindSinglePart(letters) != nullptr || IsOrder(letters));
}

// The whole part of a number within the calendar.
std::optional<DayNumber> ParseDayNumber(std::string_view value) {
  constexpr std::size_t kMaxDayDigits = 8;
  NumberText number;
  if (!ParseNumber(value, number) || number.whole.size() > kMaxDayDigits) return std::nullopt;
  DayNumber day = 0;
  for (const char digit : number.whole) day = day * 10 + (digit - '0');
  if (number.negative) day = -day;
  if (day < kFirstDay || day > kLastDay) return std::nullopt;
  return day;
}

// A day, month or year as it is typed.
struct TypedPart {
  bool isName = false;
  std::size_t length = 0;
  int number = 0;
};

// The month whose name begins with the word, which has three letters or more.
bool FindMonth(std::string_view word, int& month) {
  if (word.size() < kMonthAbbreviation) return false;
  for (std::size_t at = 0; at < kMonths.size(); ++at) {
    if (word.size() > kMonths[at].size() || !IsWord(word, kMonths[at].substr(0, word.size()))) continue;
    month = static_cast<int>(at + 1);
    return true;
  }
  return false;
}

bool TakeTypedPart(std::string_view& rest, TypedPart& part) {
  constexpr std::size_t kMaxDigits = 4;
  part.isName = IsLetter(rest.front());
  while (part.length < rest.size() &&
         (part.isName ? IsLetter(rest[part.length]) : IsDigit(rest[part.length]))) {
    ++part.length;
  }
  const std::string_view piece = rest.substr(0, part.length);
  rest.remove_prefix(part.length);
  if (part.isName) return FindMonth(piece, part.number);
  for (const char digit : piece.substr(0, kMaxDigits)) part.number = part.number * 10 + (digit - '0');
  return part.length <= kMaxDigits;
}

// Exactly three parts with anything printable between them, such as the separator of a code. Marks and
// control characters are no separators.
bool ParseTypedParts(std::string_view rest, std::array<TypedPart, 3>& parts) {
  std::size_t count = 0;
  while (!rest.empty()) {
    const char next = rest.front();
    if (!IsLetter(next) && !IsDigit(next)) {
      if (IsMark(next) || IsControl(next)) return false;
      rest.remove_prefix(1);
    } else if (count == parts.size() || !TakeTypedPart(rest, parts[count++])) {
      return false;
    }
  }
  return count == parts.size();
}

// The order in which the parts were typed: a month's name settles it, else the one that the code asks for.
std::string_view OrderOfParts(const std::array<TypedPart, 3>& parts, std::string_view asked) {
  if (parts[0].isName) return "MDY";
  if (parts[1].isName) return asked.front() == 'Y' ? "YMD" : "DMY";
  return asked;
}

std::optional<DayNumber> FindTypedDay(const std::array<TypedPart, 3>& parts, std::string_view order) {
  const TypedPart& dayPart = parts[order.find('D')];
  const TypedPart& monthPart = parts[order.find('M')];
  const TypedPart& yearPart = parts[order.find('Y')];
  if (dayPart.isName || yearPart.isName) return std::nullopt;
  int yearNumber = yearPart.number;
  if (yearPart.length <= 2) yearNumber += yearNumber <= kLastYearOf2000 ? 2000 : 1900;
  // The calendar's types keep eight bits of a month or day, so what is too large for them is refused here.
  if (yearNumber < 1 || monthPart.number > 12 || dayPart.number > 31) return std::nullopt;
  const year_month_day date{year{yearNumber}, std::chrono::month{static_cast<unsigned>(monthPart.number)},
                            std::chrono::day{static_cast<unsigned>(dayPart.number)}};
  if (!date.ok()) return std::nullopt;
  return (sys_days{date} - kDayZero).count();
}

bool ReadTypedDate(std::string_view typed, std::string_view order, std::string& stored) {
  std::array<TypedPart, 3> parts;
  if (!ParseTypedParts(typed, parts)) return false;
  const std::optional<DayNumber> day = FindTypedDay(parts, OrderOfParts(parts, order));
  if (!day) return false;
  stored = std::to_string(*day);
  return true;
}

}  // namespace

bool IsDateCode(std::string_view code) {
  DateCode ignored;
  return ParseDateCode(code, ignored);
}

std::string DayNumberText(int yearNumber, int month, int day) {
  return std::to_string((sys_days{year{yearNumber} / month / day} - kDayZero).count());
}

bool ConvertDate(const Conversion& conversion, std::string& result) {
  DateCode code;
  if (!ParseDateCode(conversion.code, code)) return false;
  if (code.readsDate) return ReadTypedDate(conversion.value, code.european ? "DMY" : "MDY", result);
  const std::optional<DayNumber> number = ParseDayNumber(conversion.value);
  if (!number) return false;
  const Day day(*number);
  const std::string_view letters = code.Letters();
  if (const SinglePart* part = FindSinglePart(letters); part != nullptr) {
    part->append(day, code, result);
  } else if (!letters.empty()) {
    AppendInOrder(letters, day, code, result);
  } else if (code.separator != 0) {
    AppendInOrder(code.european ? "DMY" : "MDY", day, code, result);
  } else {
    AppendInWords(day, code, result);
  }
  return true;
}

bool ReadDate(std::string_view typed, std::string_view codeText, std::string& stored) {
  DateCode code;
  if (!ParseDateCode(codeText, code) || code.readsDate) return false;
  // A year typed first, as in 2022-10-03, can't be a day or a month, so it is understood under every order; a
  // code that shows it first itself says what stands behind it.
  const std::string_view trimmed = TrimBlanks(typed);
  const bool yearFirst = trimmed.size() > 2 && std::all_of(trimmed.begin(), trimmed.begin() + 3, IsDigit);
  std::string_view order = code.european ? "DMY" : "MDY";
  if (code.letterCount == 3) order = code.Letters();
  if (yearFirst && order.front() != 'Y') order = "YMD";
  return ReadTypedDate(typed, order, stored);
}

}  // namespace nvadmin::mv

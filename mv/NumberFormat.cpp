#include "mv/NumberFormat.h"

#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

constexpr SignStyle kLeadingMinus = {0, "-", "", ""};
constexpr SignStyle kSignStyles[] = {
    {'-', "", "-", " "},   {'M', "", "-", " "},   {'<', "<", ">", " "}, {'E', "<", ">", " "},
    {'C', "", "CR", "  "}, {'D', "", "  ", "DB"}, {'+', "", "-", "+"},  {'N', "", "", ""},
};

struct OptionLetter {
  char letter;
  bool NumberFormat::*option;
};

constexpr OptionLetter kOptionLetters[] = {
    {'Z', &NumberFormat::zeroIsEmpty},  {',', &NumberFormat::commas},
    {'$', &NumberFormat::currency},     {'P', &NumberFormat::pointStopsScaling},
    {'T', &NumberFormat::cutsDecimals},
};

void AppendWithCommas(std::string_view whole, std::string& result) {
  std::size_t group = (whole.size() + 2) % 3 + 1;
  result.append(whole.substr(0, group));
  for (; group < whole.size(); group += 3) result.append(1, ',').append(whole.substr(group, 3));
}

}  // namespace

const SignStyle& FindSignStyle(char code) {
  for (const SignStyle& style : kSignStyles) {
    if (style.code == code) return style;
  }
  return kLeadingMinus;
}

bool TakeNumberOptions(std::string_view& rest, std::string_view options, std::string_view signCodes,
                       NumberFormat& format) {
  const std::size_t before = rest.size();
  for (; !rest.empty(); rest.remove_prefix(1)) {
    const char letter = ToUpper(rest.front());
    if (options.find(letter) != std::string_view::npos) {
      for (const OptionLetter& row : kOptionLetters) {
        if (row.letter == letter) format.*row.option = true;
      }
    } else if (format.sign == 0 && signCodes.find(letter) != std::string_view::npos) {
      format.sign = letter;
    } else {
      break;
    }
  }
  return rest.size() < before;
}

std::size_t AppendNumber(const NumberText& number, const NumberFormat& format, std::string& result) {
  const bool isZero = number.IsZero();
  if (format.zeroIsEmpty && isZero) return 0;
  const std::size_t places = format.places == NumberFormat::kAsTheyAre
                                 ? number.fraction.size()
                                 : static_cast<std::size_t>(format.places);
  const int shift = format.pointStopsScaling && number.hasPoint ? 0 : format.shift;
  std::string digits;
  ScaleDigits(number, shift, places, format.cutsDecimals ? Rounding::kCut : Rounding::kHalfAwayFromZero,
              digits);

  const SignStyle& style = FindSignStyle(format.sign);
  const bool negative = number.negative && digits.find_first_not_of('0') != std::string::npos;
  const std::size_t start = result.size();
  if (negative) result.append(style.beforeNegative);
  if (format.currency) result.push_back('$');
  // A minus stands with the number, unless a "$" parts them.
  const bool staysLeft = format.currency || (negative && style.beforeNegative == "<");
  const std::size_t leftPart = staysLeft ? result.size() - start : 0;

  const std::string_view whole = std::string_view(digits).substr(0, digits.size() - places);
  if (format.commas) {
    AppendWithCommas(whole, result);
  } else {
    result.append(whole);
  }
  if (places > 0) result.append(1, '.').append(digits, whole.size(), places);
  result.append(negative ? style.behindNegative : style.behindOther);
  return leftPart;
}

}  // namespace nvadmin::mv

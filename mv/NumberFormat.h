// How a number is written: decimals, scale, commas, currency
// and sign. Shared by the MD, ML and MR codes and by FMT.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "mv/Decimal.h"

namespace nvadmin::mv {

// What a sign code puts before and behind a negative number, and behind any other.
struct SignStyle {
  char code;
  std::string_view beforeNegative;
  std::string_view behindNegative;
  std::string_view behindOther;
};

// The style of a sign code in capitals; of a leading minus for anything else.
const SignStyle& FindSignStyle(char code);

struct NumberFormat {
  static constexpr int kAsTheyAre = -1;

  int places = kAsTheyAre;  // decimals
  int shift = 0;            // the number is divided by ten to this
  bool zeroIsEmpty = false;
  bool commas = false;
  bool currency = false;
  bool pointStopsScaling = false;
  bool cutsDecimals = false;
  char sign = 0;  // sign code, 0 for none
};

// Takes option letters and at most one sign code off the front of `rest`, each only if it stands among those
// allowed. Returns whether there was any.
bool TakeNumberOptions(std::string_view& rest, std::string_view options, std::string_view signCodes,
                       NumberFormat& format);

// Appends the number in its format. Returns the length of the
// part ("$", "<") that stays to the left of a fill.
std::size_t AppendNumber(const NumberText& number, const NumberFormat& format, std::string& result);

}  // namespace nvadmin::mv

// What the conversion routines of this folder share: the arguments of one conversion, the routine of each
// code family, and the limits that keep every answer bounded. A routine gets the code behind its letters,
// puts its answer into `result` (which is empty when it is called and never aliases the value) and returns
// true; false means "####".
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "mv/Conversions.h"

namespace nvadmin::mv {

// A mask, a width, an expression or a replacement may make a text of at most this many characters.
inline constexpr std::size_t kMaxResultBytes = std::size_t{4} << 20;

struct Conversion {
  std::string_view value;
  std::string_view code;
  const ConversionContext& context;
};

// One value under a code or a chain of codes. False for "####"; `result` then holds nothing of use.
bool ConvertChain(const Conversion& conversion, std::string& result);

// Output routines.
bool ConvertDate(const Conversion& conversion, std::string& result);                // D
bool ConvertTime(const Conversion& conversion, std::string& result);                // MT
bool ConvertMaskedDecimal(const Conversion& conversion, std::string& result);       // MD
bool ConvertLeftMaskedDecimal(const Conversion& conversion, std::string& result);   // ML
bool ConvertRightMaskedDecimal(const Conversion& conversion, std::string& result);  // MR
bool ConvertCharacters(const Conversion& conversion, std::string& result);          // MC
bool ConvertToHexadecimal(const Conversion& conversion, std::string& result);       // MX
bool ConvertToOctal(const Conversion& conversion, std::string& result);             // MO
bool ConvertToBinary(const Conversion& conversion, std::string& result);            // MB
bool ExtractGroup(const Conversion& conversion, std::string& result);               // G
bool ExtractTextOrTranslate(const Conversion& conversion, std::string& result);     // T
bool TranslateThroughFile(const Conversion& conversion, std::string& result);  // T and no text extraction
bool FilterByLength(const Conversion& conversion, std::string& result);        // L
bool FilterByRange(const Conversion& conversion, std::string& result);         // R
bool FilterByPattern(const Conversion& conversion, std::string& result);       // P
bool SubstituteOrSoundex(const Conversion& conversion, std::string& result);   // S
bool Concatenate(const Conversion& conversion, std::string& result);           // C
bool EvaluateAlgebra(const Conversion& conversion, std::string& result);       // A
bool EvaluateStack(const Conversion& conversion, std::string& result);         // F

// Whether the text behind a D makes a date code.
bool IsDateCode(std::string_view code);

// The day number of a date that exists.
std::string DayNumberText(int year, int month, int day);

// Input routines: what a user typed under the code behind its letters, brought to its stored form.
bool ReadDate(std::string_view typed, std::string_view code, std::string& stored);
bool ReadTime(std::string_view typed, std::string_view code, std::string& stored);
bool ReadMaskedDecimal(std::string_view typed, std::string_view code, std::string& stored);       // MD
bool ReadLeftMaskedDecimal(std::string_view typed, std::string_view code, std::string& stored);   // ML
bool ReadRightMaskedDecimal(std::string_view typed, std::string_view code, std::string& stored);  // MR

}  // namespace nvadmin::mv

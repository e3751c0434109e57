// The wrappers of the multivalue helper: they convert their arguments and add nothing. All other code of the
// add-in reaches the helper through them. Positions count from 1. Without a helper (before the first
// CallBack) each one fails.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace nvadmin {

// Number of delimited parts; 0 for empty text.
std::int32_t DDCount(std::string_view text, std::string_view delimiter);
// That part; empty when there is none.
std::string FField(std::string_view text, std::string_view delimiter, std::int32_t occurrence);
// Position of that occurrence, 0 when absent.
std::int32_t IIndex(std::string_view text, std::string_view substring, std::int32_t occurrence);
// 0 in value or subvalue: the whole enclosing part.
std::string EExtract(std::string_view text, std::int32_t attribute, std::int32_t value,
                     std::int32_t subvalue);
// The changed text. The last argument is the new content, those before it attribute, value and subvalue;
// attribute -1 appends a new attribute.
std::string RReplace(std::string_view text, std::int32_t attribute, std::string_view content);
std::string RReplace(std::string_view text, std::int32_t attribute, std::int32_t value,
                     std::string_view content);
std::string RReplace(std::string_view text, std::int32_t attribute, std::int32_t value, std::int32_t subvalue,
                     std::string_view content);
// LLocate(value, "IN", text, "SETTING", position): whether an attribute of `text` equals `value`. On a hit
// `position` receives its number; after a miss nobody may rely on it. The two words stand as in the system's
// own language.
bool LLocate(std::string_view value, std::string_view in, std::string_view text, std::string_view setting,
             std::int32_t& position);
bool NNot(std::string_view value);
// Operators "=", "<>", ">", ">=", "<", "<="; "=" doesn't tell letter case apart.
bool CCompare(std::string_view left, std::string_view op, std::string_view right);
bool TTrue(std::string_view value);
// "####" when the value can't be converted.
std::string OOConv(std::string_view value, std::string_view code);
std::string FFmt(std::string_view value, std::string_view mask);

}  // namespace nvadmin

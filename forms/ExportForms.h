// What the two export forms share: the fields that name the source, and the words for what went wrong.
#pragma once

#include <string_view>
#include <vector>

#include "forms/FormExchange.h"

namespace nvadmin {

inline constexpr FieldColumns kExportFrom = {1, 18, 20};
inline constexpr std::string_view kOtherFileAdvice = "  Please try another one.";

// The head, "From:", and the fields of account and file.
void AddExportSource(std::vector<FormElement>& elements);
// Tells that an item or a list can't be read.
void TellReadFailed(std::string_view reason);

}  // namespace nvadmin

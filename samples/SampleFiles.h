// The files of the demo accounts: one table of names, what they hold and how their items are made.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "samples/IsoCodes.h"
#include "samples/Item.h"

namespace nvadmin::samples {

// The file that tells about the others: an item a file, under the file's name.
inline constexpr std::string_view kAboutFile = "ABOUT";

struct SampleFile {
  std::string_view name;
  std::int32_t columns;     // attributes of a Type-C table; 0: a Type-N table; native files have none
  std::string_view title;   // what it holds
  std::string_view source;  // where that comes from
  std::string_view tries;   // sentences to try, a value each
  std::vector<Item> (*make)(const IsoCodes& codes);
};

// ABOUT first, then in the order in which they are made.
std::span<const SampleFile> SampleFiles();

// The item of ABOUT for a file with that many items.
Item MakeAboutItem(const SampleFile& file, std::size_t itemCount);

}  // namespace nvadmin::samples

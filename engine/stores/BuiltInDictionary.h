// The dictionary of every dictionary: describes the attributes of a dictionary item, so that reports and
// queries run over dictionaries too. Its items stand under their numbers, which is what a report without
// column words shows, and under names.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "engine/stores/Store.h"

namespace nvadmin::engine {

struct BuiltInItem {
  std::string id;
  std::string item;
};

// In byte order of the IDs.
std::span<const BuiltInItem> BuiltInDictionary();

// The store's reads of the built-in dictionary; as there, false is a missing item.
bool ReadBuiltIn(std::string_view id, std::string& item);
bool ReadBuiltInAttribute(std::string_view id, std::int32_t attribute, std::string& value);
void ScanBuiltIn(const Projection& projection, const ScanVisitor& visitor);

}  // namespace nvadmin::engine

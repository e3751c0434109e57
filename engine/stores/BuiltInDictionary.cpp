#include "engine/stores/BuiltInDictionary.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "mv/DynamicArray.h"

namespace nvadmin::engine {

namespace {

struct DictionaryAttribute {
  std::int32_t number;
  std::string_view name;  // its item ID and its heading
  char justification;
  std::int32_t width;
};

constexpr DictionaryAttribute kAttributes[] = {
    {1, "TYPE", 'L', 4},  {2, "LOC", 'R', 4},  {3, "HEADING", 'L', 20}, {7, "CONV", 'L', 12},
    {8, "CORR", 'L', 20}, {9, "JUST", 'L', 4}, {10, "WIDTH", 'R', 5},
};

// An A item: type, attribute number, heading, then justification and width as its attributes 9 and 10. A
// heading on the right has a blank behind it, so that it doesn't run into the next one.
std::string MakeItem(const DictionaryAttribute& attribute) {
  return fmt::format("A\xFE{}\xFE{}{}\xFE\xFE\xFE\xFE\xFE\xFE{}\xFE{}", attribute.number, attribute.name,
                     attribute.justification == 'R' ? " " : "", attribute.justification, attribute.width);
}

std::vector<BuiltInItem> MakeItems() {
  std::vector<BuiltInItem> items;
  for (const DictionaryAttribute& attribute : kAttributes) {
    items.push_back({fmt::format("{}", attribute.number), MakeItem(attribute)});
    items.push_back({std::string(attribute.name), MakeItem(attribute)});
  }
  std::sort(items.begin(), items.end(),
            [](const BuiltInItem& left, const BuiltInItem& right) { return left.id < right.id; });
  return items;
}

std::string_view AttributeOf(std::string_view item, std::int32_t attribute) {
  return attribute < 1 ? std::string_view() : mv::Extract(item, attribute);
}

}  // namespace

std::span<const BuiltInItem> BuiltInDictionary() {
  static const std::vector<BuiltInItem> items = MakeItems();
  return items;
}

bool ReadBuiltIn(std::string_view id, std::string& item) {
  for (const BuiltInItem& builtIn : BuiltInDictionary()) {
    if (builtIn.id != id) continue;
    item = builtIn.item;
    return true;
  }
  item.clear();
  return false;
}

bool ReadBuiltInAttribute(std::string_view id, std::int32_t attribute, std::string& value) {
  std::string item;
  const bool isFound = ReadBuiltIn(id, item);
  value = AttributeOf(item, attribute);
  return isFound;
}

void ScanBuiltIn(const Projection& projection, const ScanVisitor& visitor) {
  std::vector<std::string_view> values;
  for (const BuiltInItem& builtIn : BuiltInDictionary()) {
    values.clear();
    if (projection.wholeItem) values.push_back(builtIn.item);
    for (std::size_t at = 0; at < projection.attributes.size() && !projection.wholeItem; ++at) {
      values.push_back(AttributeOf(builtIn.item, projection.attributes[at]));
    }
    if (!visitor(builtIn.id, values)) return;
  }
}

}  // namespace nvadmin::engine

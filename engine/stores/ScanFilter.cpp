#include "engine/stores/ScanFilter.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

namespace nvadmin::engine {

namespace {

// Longer texts hardly exclude more.
constexpr std::size_t kLongestRun = 100;

bool IsPlain(char letter) {
  const auto byte = static_cast<unsigned char>(letter);
  return byte > 0 && byte < 0x80 && letter != '?';
}

std::string_view LongestPlainRun(std::string_view text) {
  std::string_view longest;
  while (!text.empty()) {
    const auto end = std::find_if_not(text.begin(), text.end(), IsPlain);
    const auto length = static_cast<std::size_t>(end - text.begin());
    if (length > longest.size()) longest = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
  }
  return longest.substr(0, kLongestRun);
}

std::string SqlText(std::string_view text, bool asBytes) {
  std::string sql(asBytes ? "x'" : "'");
  for (const char letter : text) {
    if (asBytes) {
      sql += fmt::format("{:02x}", static_cast<unsigned char>(letter));
    } else {
      sql.append(letter == '\'' ? 2 : 1, letter);
    }
  }
  return sql + '\'';
}

// An alternative as an SQL expression.
std::string Expression(const TableDescription& table, const ScanAlternative& alternative, bool keepsBytes) {
  const bool isItem = table.layout == Layout::kItem && alternative.attribute > 0;
  const std::size_t column = isItem ? 1 : static_cast<std::size_t>(std::max(alternative.attribute, 0));
  if (column >= table.limits.size()) return "0";
  const std::string name = isItem ? "ITEM" : fmt::format("A{}", column);
  // A column declared by hand may compare in an order of its own.
  if (alternative.text.empty()) return name + " <> '' COLLATE BINARY";
  const std::string_view run = LongestPlainRun(alternative.text);
  if (run.empty()) return "1";
  return fmt::format("instr({}, {})", name, SqlText(run, keepsBytes));
}

}  // namespace

std::string ScanFilter(const TableDescription& table, std::span<const ScanCondition> conditions,
                       bool keepsBytes) {
  std::string filter;
  for (const ScanCondition& condition : conditions) {
    std::string any;
    for (const ScanAlternative& alternative : condition) {
      any += (any.empty() ? "" : " OR ") + Expression(table, alternative, keepsBytes);
    }
    if (!any.empty()) filter += (filter.empty() ? " WHERE (" : " AND (") + any + ')';
  }
  return filter;
}

}  // namespace nvadmin::engine

// One pass over the text each: many marks are counted off in blocks, few are looked for with memchr, and
// nothing is copied but by Replace, which knows the length of its result before it allocates it.
#include "mv/DynamicArray.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "mv/Decimal.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

constexpr std::array<char, 3> kMarks = {kAttributeMark, kValueMark, kSubvalueMark};

// A substring up to this length is compared anew at each place where its first character stands.
constexpr std::size_t kShortSubstring = 16;

// Where the next `mark` stands at or behind `begin`, else `end`.
std::size_t FindMark(std::string_view text, std::size_t begin, std::size_t end, char mark) {
  if (begin >= end) return end;
  const void* hit = std::memchr(text.data() + begin, mark, end - begin);
  return hit == nullptr ? end : static_cast<std::size_t>(static_cast<const char*>(hit) - text.data());
}

// A block of this size and kind is counted with vector instructions. A byte can hold the count.
constexpr std::size_t kBlockBytes = 128;

std::int32_t CountInBlock(const char* block, char mark) {
  unsigned char count = 0;
  for (std::size_t at = 0; at < kBlockBytes; ++at)
    count = static_cast<unsigned char>(count + (block[at] == mark ? 1 : 0));
  return count;
}

// Moves `begin` over whole blocks and takes their marks off `marks`, as long as one and more remain.
void SkipBlocks(std::string_view text, std::size_t& begin, std::size_t end, char mark, std::int32_t& marks) {
  constexpr std::int32_t kFewMarks = 4;  // found as fast one by one
  for (; marks > kFewMarks && begin + kBlockBytes <= end; begin += kBlockBytes) {
    const std::int32_t here = CountInBlock(text.data() + begin, mark);
    if (here >= marks) return;
    marks -= here;
  }
}

// The part of that number, from 1, between marks; empty when there are fewer.
std::string_view PartAt(std::string_view text, char mark, std::int32_t position) {
  std::size_t begin = 0;
  std::int32_t marks = position - 1;
  SkipBlocks(text, begin, text.size(), mark, marks);
  for (; marks > 0; --marks) {
    begin = FindMark(text, begin, text.size(), mark) + 1;
    if (begin > text.size()) return {};
  }
  return text.substr(begin, FindMark(text, begin, text.size(), mark) - begin);
}

// For each place of a long substring, how much of its beginning
// also ends there: by this a search never looks back.
std::vector<std::size_t> Borders(std::string_view substring) {
  std::vector<std::size_t> borders(substring.size(), 0);
  for (std::size_t at = 1, border = 0; at < substring.size(); ++at) {
    while (border > 0 && substring[at] != substring[border]) border = borders[border - 1];
    if (substring[at] == substring[border]) ++border;
    borders[at] = border;
  }
  return borders;
}

enum class Overlap { kAllowed, kExcluded };

// Calls `found` with the start of each occurrence until it answers false. Time grows with the text alone.
template <class Found>
void EachOccurrence(std::string_view text, std::string_view substring, Overlap overlap, Found found) {
  if (substring.size() <= kShortSubstring) {
    const std::size_t step = overlap == Overlap::kAllowed ? 1 : substring.size();
    std::size_t at = text.find(substring);
    while (at != std::string_view::npos && found(at)) at = text.find(substring, at + step);
    return;
  }
  const std::vector<std::size_t> borders = Borders(substring);
  std::size_t matched = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    while (matched > 0 && text[at] != substring[matched]) matched = borders[matched - 1];
    if (text[at] == substring[matched]) ++matched;
    if (matched < substring.size()) continue;
    if (!found(at + 1 - substring.size())) return;
    matched = overlap == Overlap::kAllowed ? borders[matched - 1] : 0;
  }
}

int CompareInCapitals(std::string_view left, std::string_view right) {
  const std::size_t common = std::min(left.size(), right.size());
  for (std::size_t at = 0; at < common; ++at) {
    const auto l = static_cast<unsigned char>(ToUpper(left[at]));
    const auto r = static_cast<unsigned char>(ToUpper(right[at]));
    if (l != r) return l < r ? -1 : 1;
  }
  if (left.size() == right.size()) return 0;
  return left.size() < right.size() ? -1 : 1;
}

struct ComparisonOperator {
  std::string_view word;
  bool below, equal, above;
};

constexpr ComparisonOperator kComparisonOperators[] = {
    {"=", false, true, false}, {"<>", true, false, true}, {">", false, false, true},
    {">=", false, true, true}, {"<", true, false, false}, {"<=", true, true, false},
};

}  // namespace

std::int32_t Count(std::string_view text, std::string_view delimiter) {
  if (text.empty()) return 0;
  if (delimiter.empty()) return static_cast<std::int32_t>(text.size() + 1);
  std::int32_t count = 1;
  if (delimiter.size() == 1) {
    std::size_t at = 0;
    for (; at + kBlockBytes <= text.size(); at += kBlockBytes)
      count += CountInBlock(text.data() + at, delimiter.front());
    return count + static_cast<std::int32_t>(std::count(text.begin() + static_cast<std::ptrdiff_t>(at),
                                                        text.end(), delimiter.front()));
  }
  EachOccurrence(text, delimiter, Overlap::kExcluded, [&](std::size_t) {
    ++count;
    return true;
  });
  return count;
}

std::string_view Field(std::string_view text, std::string_view delimiter, std::int32_t occurrence) {
  return delimiter.empty() ? text : PartAt(text, delimiter.front(), occurrence);
}

std::int32_t Index(std::string_view text, std::string_view substring, std::int32_t occurrence) {
  if (occurrence < 1) return 0;
  if (substring.empty()) return occurrence;
  std::int32_t position = 0;
  EachOccurrence(text, substring, Overlap::kAllowed, [&](std::size_t at) {
    if (--occurrence == 0) position = static_cast<std::int32_t>(at + 1);
    return occurrence > 0;
  });
  return position;
}

std::string_view Extract(std::string_view text, std::int32_t attribute, std::int32_t value,
                         std::int32_t subvalue) {
  if (attribute < 0 || value < 0 || subvalue < 0) return {};
  if (attribute == 0 && value == 0 && subvalue == 0) return {};
  text = PartAt(text, kAttributeMark, attribute);
  if (value == 0 && subvalue == 0) return text;
  text = PartAt(text, kValueMark, value);
  return subvalue == 0 ? text : PartAt(text, kSubvalueMark, subvalue);
}

std::string Replace(std::string_view text, std::int32_t attribute, std::int32_t value, std::int32_t subvalue,
                    std::string_view content) {
  const std::array<std::int32_t, 3> positions = {attribute, value, subvalue};
  const std::size_t levels = subvalue != 0 ? 3 : value != 0 ? 2 : attribute != 0 ? 1 : 0;
  if (levels == 0) return std::string(text);

  // Narrow [begin, end) level by level to the element; marks that it takes to reach it are counted.
  std::size_t begin = 0;
  std::size_t end = text.size();
  std::array<std::size_t, 3> added = {};
  for (std::size_t level = 0; level < levels; ++level) {
    if (positions[level] < 0) {
      added[level] = begin < end ? 1 : 0;
      begin = end;
      continue;
    }
    std::int32_t behind = positions[level] - 1;
    SkipBlocks(text, begin, end, kMarks[level], behind);
    for (; behind > 0; --behind) {
      const std::size_t mark = FindMark(text, begin, end, kMarks[level]);
      if (mark == end) break;
      begin = mark + 1;
    }
    if (behind > 0) {
      added[level] = static_cast<std::size_t>(behind);
      begin = end;
    } else {
      end = FindMark(text, begin, end, kMarks[level]);
    }
  }

  const std::size_t addedMarks = added[0] + added[1] + added[2];
  if (addedMarks > kMostAddedMarks) {
    throw std::length_error("Replace: position " + std::to_string(attribute) + "," + std::to_string(value) +
                            "," + std::to_string(subvalue) + " lies " + std::to_string(addedMarks) +
                            " marks beyond the text; at most " + std::to_string(kMostAddedMarks) +
                            " are added");
  }
  std::string result;
  result.reserve(begin + addedMarks + content.size() + (text.size() - end));
  result.append(text, 0, begin);
  for (std::size_t level = 0; level < levels; ++level) result.append(added[level], kMarks[level]);
  result.append(content);
  result.append(text, end, std::string_view::npos);
  return result;
}

std::int32_t Locate(std::string_view value, std::string_view list) {
  if (list.empty()) return 0;
  std::int32_t position = 1;
  for (std::size_t begin = 0;; ++position) {
    const std::size_t end = FindMark(list, begin, list.size(), kAttributeMark);
    if (list.substr(begin, end - begin) == value) return position;
    if (end == list.size()) return 0;
    begin = end + 1;
  }
}

bool IsNumeric(std::string_view text) {
  NumberText number;
  return ParseNumber(text, number);
}

bool Truth(std::string_view value) {
  if (value.empty()) return false;
  NumberText number;
  return !ParseNumber(value, number) || !number.IsZero();
}

int CompareNumbers(std::string_view left, std::string_view right) {
  NumberText l;
  NumberText r;
  ParseNumber(left, l);
  ParseNumber(right, r);
  return CompareNumberTexts(l, r);
}

bool Compare(std::string_view left, std::string_view op, std::string_view right) {
  for (const ComparisonOperator& row : kComparisonOperators) {
    if (row.word != op) continue;
    NumberText l;
    NumberText r;
    const bool numbers = ParseNumber(left, l) && ParseNumber(right, r);
    const int order = numbers ? CompareNumberTexts(l, r) : CompareInCapitals(left, right);
    return order < 0 ? row.below : order == 0 ? row.equal : row.above;
  }
  return false;
}

}  // namespace nvadmin::mv

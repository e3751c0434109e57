#include "engine/stores/TableNames.h"

#include <algorithm>

namespace nvadmin::engine {

namespace {

constexpr std::string_view kDictionaryWord = "dict ";
constexpr std::string_view kDictionaryEnding = "_dict";

char FoldAscii(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter;
}

std::string_view TrimBlanks(std::string_view text) {
  const std::size_t start = text.find_first_not_of(' ');
  if (start == std::string_view::npos) return {};
  return text.substr(start, text.find_last_not_of(' ') - start + 1);
}

}  // namespace

std::string FoldTableName(std::string_view name) {
  std::string folded(name);
  std::transform(folded.begin(), folded.end(), folded.begin(), FoldAscii);
  return folded;
}

std::string MapTableName(std::string_view name) {
  std::string mapped = FoldTableName(name);
  std::replace_if(
      mapped.begin(), mapped.end(), [](char letter) { return letter == '.' || letter == '-'; }, '_');
  while (mapped.starts_with(kDictionaryWord)) {
    mapped = std::string(TrimBlanks(std::string_view(mapped).substr(kDictionaryWord.size())))
                 .append(kDictionaryEnding);
  }
  if (mapped == "table" || mapped == "key") mapped += "_nv";
  return mapped;
}

bool IsDictionaryName(std::string_view mappedName) {
  return mappedName.size() > kDictionaryEnding.size() && mappedName.ends_with(kDictionaryEnding);
}

bool IsDictionaryOfDictionary(std::string_view mappedName, std::string& dictionary) {
  if (!IsDictionaryName(mappedName)) return false;
  const std::string_view owner = mappedName.substr(0, mappedName.size() - kDictionaryEnding.size());
  if (!IsDictionaryName(owner)) return false;
  dictionary = owner;
  return true;
}

std::string NativeName::Shown() const {
  std::string shown;
  for (int dictionary = 0; dictionary < dictionaryOf; ++dictionary) shown += "DICT ";
  return shown + owner;
}

NativeName ReadNativeName(std::string_view name) {
  NativeName read;
  for (; FoldTableName(name.substr(0, kDictionaryWord.size())) == kDictionaryWord; ++read.dictionaryOf)
    name = TrimBlanks(name.substr(kDictionaryWord.size()));
  for (; IsDictionaryName(FoldTableName(name)); ++read.dictionaryOf)
    name.remove_suffix(kDictionaryEnding.size());
  read.owner = name;
  return read;
}

std::string QuoteSqlName(std::string_view name) {
  std::string quoted = "\"";
  for (const char letter : name) {
    if (letter == '"') quoted += '"';
    quoted += letter;
  }
  return quoted + '"';
}

}  // namespace nvadmin::engine

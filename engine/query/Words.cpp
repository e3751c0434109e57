#include "engine/query/Words.h"

#include <fmt/format.h>

#include <algorithm>

namespace nvadmin::engine {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kQuotes = "'\"\\";
constexpr std::string_view kSigns = "=<>";
constexpr std::string_view kSignPairs[] = {"<>", "><", "<=", "=<", ">=", "=>"};
constexpr std::size_t kLongestShownText = 60;

bool IsOneOf(char character, std::string_view set) { return set.find(character) != std::string_view::npos; }

// Length of the operator sign at the start of `rest`; 0 when there is none. `wordStart`: a # alone counts.
std::size_t SignLength(std::string_view rest, bool wordStart) {
  if (IsOneOf(rest[0], kSigns)) {
    const bool isPair =
        std::find(std::begin(kSignPairs), std::end(kSignPairs), rest.substr(0, 2)) != std::end(kSignPairs);
    return isPair ? 2 : 1;
  }
  const bool beforeQuote = rest.size() > 1 && IsOneOf(rest[1], kQuotes);
  return rest[0] == '#' && (wordStart || beforeQuote) ? 1 : 0;
}

bool EndsBareWord(std::string_view rest) {
  return IsOneOf(rest[0], kBlanks) || rest[0] == '(' || rest[0] == ')' ||
         SignLength(rest, /*wordStart=*/false) > 0;
}

}  // namespace

bool CutWords(std::string_view sentence, std::vector<Word>& words, std::string& error) {
  std::size_t at = 0;
  while (at < sentence.size()) {
    const char first = sentence[at];
    if (IsOneOf(first, kBlanks)) {
      ++at;
      continue;
    }
    Word word{sentence.substr(at, 1), at + 1, WordKind::kBare};
    if (IsOneOf(first, kQuotes)) {
      const std::size_t end = sentence.find(first, at + 1);
      if (end == std::string_view::npos) {
        error = fmt::format("the quote {} at position {} has no partner", first, word.position);
        return false;
      }
      word.text = sentence.substr(at + 1, end - at - 1);
      word.kind = WordKind::kQuoted;
      at = end + 1;
    } else if (first == '(' || first == ')') {
      word.kind = first == '(' ? WordKind::kOpenBracket : WordKind::kCloseBracket;
      ++at;
    } else if (const std::size_t length = SignLength(sentence.substr(at), /*wordStart=*/true); length > 0) {
      word.text = sentence.substr(at, length);
      word.kind = WordKind::kOperator;
      at += length;
    } else {
      std::size_t end = at + 1;
      while (end < sentence.size() && !EndsBareWord(sentence.substr(end))) ++end;
      word.text = sentence.substr(at, end - at);
      at = end;
    }
    words.push_back(word);
  }
  return true;
}

std::string Quoted(std::string_view text) {
  if (text.size() <= kLongestShownText) return fmt::format("'{}'", text);
  return fmt::format("'{}...'", text.substr(0, kLongestShownText));
}

std::string Placed(const Word& word) {
  return fmt::format("{} at position {}", Quoted(word.text), word.position);
}

}  // namespace nvadmin::engine

#include "engine/sentences/Arguments.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "engine/query/Text.h"
#include "engine/query/Words.h"

namespace nvadmin::engine {

namespace {

constexpr std::string_view kQuotes = "'\"\\";
constexpr std::string_view kWordEnds = " \t\r\n";

}  // namespace

std::string_view FirstWord(std::string_view sentence) {
  const std::size_t start = sentence.find_first_not_of(kWordEnds);
  if (start == std::string_view::npos) return {};
  return sentence.substr(start, sentence.find_first_of(kWordEnds, start) - start);
}

void BlankTabs(std::string& sentence) {
  if (sentence.find('\t') == std::string::npos) return;
  bool behindLetter = false;
  for (std::size_t at = 0; at < sentence.size(); ++at) {
    const char letter = sentence[at];
    const bool isQuote = !behindLetter && kQuotes.find(letter) != std::string_view::npos;
    const std::size_t close = isQuote ? sentence.find(letter, at + 1) : std::string::npos;
    if (close != std::string::npos) at = close;
    if (letter == '\t') sentence[at] = ' ';
    behindLetter = IsDigit(letter) || (Capital(letter) >= 'A' && Capital(letter) <= 'Z') ||
                   static_cast<unsigned char>(letter) >= 0x80;
  }
}

std::string Counted(std::size_t number, std::string_view noun) {
  return fmt::format("{} {}{}", number, noun, number == 1 ? "" : "s");
}

Arguments::Arguments(std::string_view sentence) : sentence_(sentence) {
  const std::string_view verb = FirstWord(sentence);
  position_ =
      verb.empty() ? sentence.size() : static_cast<std::size_t>(verb.data() + verb.size() - sentence.data());
  SkipBlanks();
}

void Arguments::SkipBlanks() {
  position_ = std::min(sentence_.find_first_not_of(kWordEnds, position_), sentence_.size());
}

bool Arguments::Refuse(std::string text) {
  const Verb* verb = FindVerb(sentence_);
  refusal_ = std::move(text);
  if (verb != nullptr) refusal_ += fmt::format("; it is written: {}", verb->usage);
  return false;
}

bool Arguments::AtEnd() const { return position_ == sentence_.size(); }

bool Arguments::Take(std::string_view what, std::string_view& word) {
  if (AtEnd()) return Refuse(fmt::format("the {} is missing", what));
  const char first = sentence_[position_];
  if (kQuotes.find(first) == std::string_view::npos) {
    const std::size_t end = std::min(sentence_.find_first_of(kWordEnds, position_), sentence_.size());
    word = sentence_.substr(position_, end - position_);
    position_ = end;
  } else {
    const std::size_t close = sentence_.find(first, position_ + 1);
    if (close == std::string_view::npos) {
      return Refuse(fmt::format("the quote {} at character {} isn't closed", first, position_ + 1));
    }
    word = sentence_.substr(position_ + 1, close - position_ - 1);
    position_ = close + 1;
  }
  SkipBlanks();
  return true;
}

bool Arguments::TakeFile(std::string& name) {
  const bool dictionary = TakeIf("DICT");
  std::string_view word;
  if (!Take("file", word)) return false;
  name = dictionary ? "DICT " : "";
  name += word;
  return true;
}

bool Arguments::TakeNumber(std::string_view what, int lowest, int highest, int& number) {
  std::string_view word;
  if (!Take(what, word)) return false;
  const auto [end, failure] = std::from_chars(word.data(), word.data() + word.size(), number);
  const bool isNumber = failure == std::errc() && end == word.data() + word.size();
  if (isNumber && number >= lowest && number <= highest) return true;
  return Refuse(fmt::format("the {} {} is not a number from {} to {}", what, Quoted(word), lowest, highest));
}

bool Arguments::TakeIf(std::string_view word) {
  const std::size_t end = std::min(sentence_.find_first_of(kWordEnds, position_), sentence_.size());
  if (!SameWord(sentence_.substr(position_, end - position_), word)) return false;
  position_ = end;
  SkipBlanks();
  return true;
}

bool Arguments::TakeRest(std::string_view what, std::string_view& rest) {
  if (AtEnd()) return Refuse(fmt::format("the {} is missing", what));
  rest = sentence_.substr(position_);
  position_ = sentence_.size();
  const bool quoted =
      rest.size() >= 2 && rest.front() == rest.back() && kQuotes.find(rest.front()) != std::string_view::npos;
  if (quoted) rest = rest.substr(1, rest.size() - 2);
  return true;
}

bool Arguments::End() {
  if (AtEnd()) return true;
  const std::size_t start = position_;
  std::string_view word;
  if (!Take("word", word)) return false;
  return Refuse(fmt::format("{} at character {} is one word too many", Quoted(word), start + 1));
}

}  // namespace nvadmin::engine

// The words of a sentence that is no query, taken one by one.
// Words are parted by blanks. A word that begins with ' " or \ goes to the next sign of the same kind, and
// may hold blanks; a sign inside a word is a letter like any other.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "engine/sentences/Verbs.h"

namespace nvadmin::engine {

// The first word of a sentence, ended by a blank, tab or line end; quotes mean nothing in it.
std::string_view FirstWord(std::string_view sentence);

// Turns the tabs of a sentence into blanks, but for those in quotes: a quote begins where no letter or digit
// stands before it, and goes to the next one of its kind.
void BlankTabs(std::string& sentence);

// "1 item", "2 items".
std::string Counted(std::size_t number, std::string_view noun);

// Takes the words behind the verb one by one. The takers answer false when the word isn't there or isn't
// right; Refusal then says which, where, and how the verb is written. Views point into the sentence.
class Arguments {
 public:
  explicit Arguments(std::string_view sentence);

  bool AtEnd() const;
  // `what` names the word in a refusal.
  bool Take(std::string_view what, std::string_view& word);
  // "file" or "DICT file", the second as "DICT " and the name.
  bool TakeFile(std::string& name);
  bool TakeNumber(std::string_view what, int lowest, int highest, int& number);
  // Takes the next word if it is `word`, in any letter case and without quotes.
  bool TakeIf(std::string_view word);
  // All that is left of the line, without the quotes around it.
  bool TakeRest(std::string_view what, std::string_view& rest);
  // False when a word is left over.
  bool End();

  SentenceResult Refusal() const { return {false, refusal_}; }

 private:
  bool Refuse(std::string text);
  void SkipBlanks();

  std::string_view sentence_;
  std::size_t position_ = 0;
  std::string refusal_;
};

}  // namespace nvadmin::engine

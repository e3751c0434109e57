// The TCL verbs: one table of words, routines and help lines.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace nvadmin::engine {

class EngineSession;

enum class VerbKind {
  kAnswers,  // returns its text and prints nothing; the prompt prints the text, an attribute a line
  kSelects,  // returns a select reply and keeps its list when typed; the prompt prints the reply on one line
  kPrints,   // prints while it runs, and returns the same text
  kAddIn,    // the add-in serves it at the prompt; executed as a sentence it selects and answers
  kPrompt,   // the prompt itself serves it (OFF, MENU, NV.BACKSRV); elsewhere it is refused
};

// `ok` false: `text` is why, and becomes the error detail.
struct SentenceResult {
  bool ok = true;
  std::string text;
};

struct Verb {
  std::string_view word;
  VerbKind kind;
  SentenceResult (*run)(EngineSession& session, std::string_view sentence);
  std::string_view usage;  // the words, for instance "COUNT [DICT] file [WITH ...]"
  std::string_view help;   // one line
};

std::span<const Verb> Verbs();
// The verb of a sentence's first word, in any letter case; null when there is none.
const Verb* FindVerb(std::string_view sentence);

}  // namespace nvadmin::engine

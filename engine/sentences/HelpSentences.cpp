// HELP: what the verbs are and how they are written, told from their table.
#include <fmt/format.h>

#include <array>

#include "engine/query/Parse.h"
#include "engine/query/QueryHelp.h"
#include "engine/query/Text.h"
#include "engine/query/Words.h"
#include "engine/sentences/Arguments.h"
#include "engine/sentences/Printout.h"
#include "engine/sentences/VerbGroups.h"

namespace nvadmin::engine {

namespace {

SentenceResult Help(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  Printout printout(session);
  if (arguments.AtEnd()) {
    for (const Verb& verb : Verbs()) printout.Line(fmt::format("{:<12} {}", verb.word, verb.help));
    printout.Line(
        "HELP and a verb shows how it is written. SQL (SELECT ... FROM ..., INSERT, UPDATE ...) goes to the "
        "store.");
    return printout.Done();
  }
  std::string_view word;
  if (!arguments.Take("verb", word) || !arguments.End()) return arguments.Refusal();
  if (SameWord(word, "QUERY")) {
    for (const std::string_view line : QueryHelp()) printout.Line(line);
    return printout.Done();
  }
  const Verb* verb = FindVerb(word);
  if (verb == nullptr) return {false, fmt::format("{} is no verb; HELP lists the verbs", Quoted(word))};
  printout.Line(verb->usage);
  printout.Line(verb->help);
  if (FindQueryVerb(verb->word) != nullptr) printout.Line("HELP QUERY shows the whole language.");
  return printout.Done();
}

constexpr std::array<Verb, 1> kVerbs = {{
    {"HELP", VerbKind::kPrints, Help, "HELP [verb|QUERY]",
     "List the verbs, or show how one or the query language is written."},
}};

}  // namespace

std::span<const Verb> HelpVerbs() { return kVerbs; }

}  // namespace nvadmin::engine

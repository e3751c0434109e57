#include "engine/sentences/RunSentence.h"

#include <fmt/format.h>

#include "engine/query/Words.h"
#include "engine/sentences/Arguments.h"
#include "engine/sentences/Sql.h"

namespace nvadmin::engine {

SentenceResult RunSentence(EngineSession& session, std::string_view sentence) {
  if (const Verb* verb = FindVerb(sentence)) return verb->run(session, sentence);
  if (IsSql(sentence)) return RunSqlSentence(session, sentence);
  const std::string_view word = FirstWord(sentence);
  if (word.empty()) return {false, "the sentence is empty; HELP lists the verbs"};
  return {false, fmt::format("{} is no verb; HELP lists the verbs", Quoted(word))};
}

}  // namespace nvadmin::engine

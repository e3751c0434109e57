#include "engine/sentences/Verbs.h"

#include <algorithm>
#include <vector>

#include "engine/query/Text.h"
#include "engine/sentences/Arguments.h"
#include "engine/sentences/VerbGroups.h"

namespace nvadmin::engine {

std::span<const Verb> Verbs() {
  static const std::vector<Verb> verbs = [] {
    std::vector<Verb> all;
    for (const auto group : {QueryVerbs(), ItemVerbs(), FileVerbs(), BulkVerbs(), SessionVerbs(), HelpVerbs()}) {
      all.insert(all.end(), group.begin(), group.end());
    }
    return all;
  }();
  return verbs;
}

const Verb* FindVerb(std::string_view sentence) {
  const std::string_view word = FirstWord(sentence);
  const std::span<const Verb> verbs = Verbs();
  const auto verb =
      std::find_if(verbs.begin(), verbs.end(), [word](const Verb& row) { return SameWord(row.word, word); });
  return verb == verbs.end() ? nullptr : &*verb;
}

}  // namespace nvadmin::engine

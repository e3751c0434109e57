// From words to a query. The first words name the file; the rest can be read only with the file's dictionary
// at hand, since it decides what an unquoted word may be. Hence two calls.
//
// Words of the language, in any letter case:
//   clauses      WITH WITHOUT AND OR BY BY-DSND BY-EXP BY-EXP-DSND TOTAL BREAK-ON ID-SUPP HEADING FOOTING
//                SAVING [UNIQUE] SAMPLE
//   operators    = EQ   # <> >< NE NOT   < LT BEFORE   > GT AFTER   <= =< LE   >= => GE   BETWEEN
//                LIKE MATCHES   UNLIKE
//   quantifiers  EVERY EACH NO, behind WITH (WITHOUT is WITH NO)
//   thrown away  A AN ANY ARE FILE FOR IN ITEM ITEMS OF THAT THE
// Clause and operator words are reserved: as a field of WITH, BY, TOTAL and BREAK-ON they can still name a
// column that the dictionary has, elsewhere they can't. A throw-away or quantifier word that the dictionary
// has as a column is that column (a quantifier when another field follows it).
//
// Criteria. AND binds tighter than OR, and both tighter than a second WITH, which narrows what the first one
// left. Behind AND and OR the field may be left out (QTY > 5 AND < 10; CITY = 'LEEDS' OR 'YORK'; QTY = 5 OR
// 10). Values. A quoted text is a value. Directly behind an operator (behind BETWEEN twice) an unquoted word
// is one, whatever the dictionary holds. Elsewhere behind a field or an unquoted value it is one if it is a
// number, or begins with a digit and the dictionary has no such column. Of other words that the dictionary
// lacks one directly behind the field is a value if no further value follows, so that no misspelt operator
// becomes one; a throw-away word there could mean either and is refused. Behind a quoted value an unquoted
// word never is a value. What is none goes on as a column. Several values mean any of them; for # and UNLIKE
// they mean none of them, so that these are always the opposite of = and LIKE.
//
// Later additions: a clause is a row of kClauses in Parse.cpp with its routine; an operator a row of
// kOperators, an Operator, and its case in Criteria.cpp.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "engine/query/Query.h"
#include "engine/query/Words.h"

namespace nvadmin::engine {

// Whether the file's dictionary has a column of that word.
using Vocabulary = std::function<bool(std::string_view word)>;

// The verb of a word in any letter case; null for another.
const QueryVerb* FindQueryVerb(std::string_view word);

// Reads verb, DICT and file word. False: the verb is none of a query, or no file word follows.
bool ParseFile(std::span<const Word> words, Query& query, std::string& error);

// Reads the rest into a query that ParseFile began and that knows whether a list restricts it. `words` are
// all of `sentence`. Takes time in line with the length of the sentence, however deep its brackets are.
bool ParseClauses(std::string_view sentence, std::span<const Word> words, const Vocabulary& vocabulary,
                  Query& query, std::string& error);

}  // namespace nvadmin::engine

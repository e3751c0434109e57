#include "engine/query/Parse.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <limits>
#include <utility>

#include "engine/Marks.h"
#include "engine/query/Text.h"
#include "mv/DynamicArray.h"

namespace nvadmin::engine {
namespace {

constexpr QueryVerb kVerbs[] = {
    {"SELECT", Answer::kSelected, /*sortsById=*/false},  {"SSELECT", Answer::kSelected, /*sortsById=*/true},
    {"PSELECT", Answer::kSelected, /*sortsById=*/false}, {"QSELECT", Answer::kValues, /*sortsById=*/false},
    {"COUNT", Answer::kCounted, /*sortsById=*/false},    {"LIST", Answer::kReport, /*sortsById=*/false},
    {"SORT", Answer::kReport, /*sortsById=*/true},
};

struct OperatorWord {
  std::string_view word;
  Operator op;
};
constexpr OperatorWord kOperators[] = {
    {"=", Operator::kEqual},           {"EQ", Operator::kEqual},
    {"#", Operator::kNotEqual},        {"<>", Operator::kNotEqual},
    {"><", Operator::kNotEqual},       {"NE", Operator::kNotEqual},
    {"NOT", Operator::kNotEqual},      {"<", Operator::kLess},
    {"LT", Operator::kLess},           {"BEFORE", Operator::kLess},
    {">", Operator::kGreater},         {"GT", Operator::kGreater},
    {"AFTER", Operator::kGreater},     {"<=", Operator::kLessOrEqual},
    {"=<", Operator::kLessOrEqual},    {"LE", Operator::kLessOrEqual},
    {">=", Operator::kGreaterOrEqual}, {"=>", Operator::kGreaterOrEqual},
    {"GE", Operator::kGreaterOrEqual}, {"BETWEEN", Operator::kBetween},
    {"LIKE", Operator::kLike},         {"MATCHES", Operator::kLike},
    {"UNLIKE", Operator::kUnlike},
};

struct QuantifierWord {
  std::string_view word;
  Quantifier quantifier;
};
constexpr QuantifierWord kQuantifiers[] = {
    {"EVERY", Quantifier::kEvery}, {"EACH", Quantifier::kEvery}, {"NO", Quantifier::kNone}};

struct ThrowAwayWord {
  std::string_view word;
};
constexpr ThrowAwayWord kThrowAwayWords[] = {{"A"},  {"AN"},   {"ANY"},   {"ARE"}, {"FILE"}, {"FOR"},
                                             {"IN"}, {"ITEM"}, {"ITEMS"}, {"OF"},  {"THAT"}, {"THE"}};

// The row of a word in one of the tables, in any letter case; null when it has none.
template <typename Row, std::size_t rows>
const Row* FindRow(const Row (&table)[rows], std::string_view word) {
  const Row* row = std::find_if(std::begin(table), std::end(table),
                                [word](const Row& candidate) { return SameWord(candidate.word, word); });
  return row == std::end(table) ? nullptr : row;
}

// Of an unquoted word: a number, or a date, time or ID that begins as one.
bool IsNumber(const Word& word) {
  return mv::IsNumeric(word.text) || (!word.text.empty() && IsDigit(word.text[0]));
}

bool IsConnective(const Word& word) { return SameWord(word.text, "AND") || SameWord(word.text, "OR"); }

class ClauseParser {
 public:
  ClauseParser(std::string_view sentence, std::span<const Word> words, const Vocabulary& vocabulary,
               Query& query, std::string& error)
      : sentence_(sentence), words_(words), vocabulary_(vocabulary), query_(query), error_(error) {}

  bool ParseClauses();
  bool ParseItems();

  // The clause routines, each called behind its word.
  bool ParseWith(const Word& word);
  bool ParseWithout(const Word& word);
  bool RefuseConnective(const Word& word);
  bool ParseBy(const Word& word);
  bool ParseSaving(const Word& word);
  bool ParseSample(const Word& word);
  bool ParseTotal(const Word& word);
  bool ParseBreak(const Word& word);
  bool ParseIdSuppress(const Word& word);
  bool ParsePageText(const Word& word);

 private:
  // How a pending operator binds, weakest first; a bracket holds what stands before it.
  enum class Join { kBracket, kPhrase, kOr, kAnd };
  struct Pending {
    Join join;
    std::size_t at;  // the skip step that waits for its target; of a bracket its position in the sentence
  };

  const Word* Next() const { return at_ < words_.size() ? &words_[at_] : nullptr; }
  bool NextIs(WordKind kind) const { return at_ < words_.size() && words_[at_].kind == kind; }
  const Word* NextBare() const { return NextIs(WordKind::kBare) ? &words_[at_] : nullptr; }
  bool TakeBare(std::string_view text);
  bool Refuse(std::string message);

  bool ParseClause(const Word& word);
  bool AddId(const Word& word);
  bool AddColumn(const Word& word);
  bool AddOptions(std::size_t position, std::string_view text);
  bool ParseOptions(const Word& bracket);
  bool CheckReplyText(const Word& word);
  bool CheckShowsColumns(const Word& clause);
  bool TakeNamed(const Word& lead, const char* wanted, Word& named);
  bool NextQualifiesField() const;

  bool ParseCriteria(const Word& lead, Quantifier quantifier);
  bool ParseCriterion(const Word& lead, Quantifier quantifier);
  bool TakeField(const Word& lead, Criterion& criterion);
  bool TakeConnective(const Word*& lead, Quantifier& quantifier);
  const QuantifierWord* TakeQuantifier();
  bool NextContinuesCriterion(const Word& lead) const;
  const Word* TakeOperator(Operator& op);
  const OperatorWord* FindOperator(std::size_t& at) const;
  bool IsValueAt(std::size_t at) const;
  bool ReadBareWord(const Word& word, bool behindField, bool& isValue);
  bool TakeValues(const Word* operatorWord, Criterion& criterion);
  bool IsReserved(const Word& word) const;
  void SkipThrowAwayWords();
  // A throw-away word that the dictionary lacks.
  bool MeansNothing(const Word& word) const {
    return FindRow(kThrowAwayWords, word.text) != nullptr && !vocabulary_(word.text);
  }

  void Connect(Join join);
  void SettlePending(Join weakest);
  void CloseBracket();
  bool RefuseOpenBracket();

  std::string_view sentence_;
  std::span<const Word> words_;
  const Vocabulary& vocabulary_;
  Query& query_;
  std::string& error_;
  std::size_t at_ = 0;
  std::vector<Pending> pending_;
  std::size_t openBrackets_ = 0;
};

struct Clause {
  std::string_view word;
  bool (ClauseParser::*parse)(const Word& word);
};
constexpr Clause kClauses[] = {
    {"WITH", &ClauseParser::ParseWith},
    {"WITHOUT", &ClauseParser::ParseWithout},
    {"AND", &ClauseParser::RefuseConnective},
    {"OR", &ClauseParser::RefuseConnective},
    {"BY", &ClauseParser::ParseBy},
    {"BY-DSND", &ClauseParser::ParseBy},
    {"BY-EXP", &ClauseParser::ParseBy},
    {"BY-EXP-DSND", &ClauseParser::ParseBy},
    {"SAVING", &ClauseParser::ParseSaving},
    {"SAMPLE", &ClauseParser::ParseSample},
    {"TOTAL", &ClauseParser::ParseTotal},
    {"BREAK-ON", &ClauseParser::ParseBreak},
    {"ID-SUPP", &ClauseParser::ParseIdSuppress},
    {"HEADING", &ClauseParser::ParsePageText},
    {"FOOTING", &ClauseParser::ParsePageText},
};

bool ClauseParser::Refuse(std::string message) {
  error_ = std::move(message);
  return false;
}

bool ClauseParser::TakeBare(std::string_view text) {
  const Word* word = NextBare();
  if (word == nullptr || !SameWord(word->text, text)) return false;
  ++at_;
  return true;
}

bool ClauseParser::IsReserved(const Word& word) const {
  return FindRow(kClauses, word.text) != nullptr || FindRow(kOperators, word.text) != nullptr;
}

void ClauseParser::SkipThrowAwayWords() {
  for (const Word* word = NextBare(); word != nullptr && MeansNothing(*word); word = NextBare()) ++at_;
}

bool ClauseParser::CheckReplyText(const Word& word) {
  if (std::none_of(word.text.begin(), word.text.end(), IsMark)) return true;
  return Refuse(
      fmt::format("{} holds a mark (byte 252 to 254), which parts columns and values", Placed(word)));
}

// The word behind TOTAL, BREAK-ON, BY or a word that begins a criterion. A reserved word counts if it is a
// column as well.
bool ClauseParser::TakeNamed(const Word& lead, const char* wanted, Word& named) {
  SkipThrowAwayWords();
  const Word* word = Next();
  if (word == nullptr) {
    return Refuse(fmt::format("{} needs {} behind it, but the sentence ends", Placed(lead), wanted));
  }
  if (word->kind == WordKind::kOperator) {
    return Refuse(fmt::format("stray operator {}: {} needs {} first", Placed(*word), Placed(lead), wanted));
  }
  if (word->kind != WordKind::kBare || (IsReserved(*word) && !vocabulary_(word->text))) {
    return Refuse(fmt::format(
        "{} needs {} behind it, not {}{}", Placed(lead), wanted, Placed(*word),
        word->kind == WordKind::kOpenBracket ? "; a bracket stands behind WITH, AND and OR alone" : ""));
  }
  named = *word;
  ++at_;
  return true;
}

// ---- Clauses ----

bool ClauseParser::ParseClauses() {
  while (at_ < words_.size()) {
    const Word& word = words_[at_++];
    if (!ParseClause(word)) return false;
  }
  SettlePending(Join::kPhrase);
  return true;
}

bool ClauseParser::ParseClause(const Word& word) {
  switch (word.kind) {
    case WordKind::kQuoted:
      return AddId(word);
    case WordKind::kOpenBracket:
      return ParseOptions(word);
    case WordKind::kCloseBracket:
      return Refuse(fmt::format("stray bracket {}: none was opened", Placed(word)));
    case WordKind::kOperator:
      return Refuse(fmt::format("stray operator {}: it stands behind no field of WITH", Placed(word)));
    case WordKind::kBare:
      break;
  }
  if (const Clause* clause = FindRow(kClauses, word.text)) return (this->*clause->parse)(word);
  if (MeansNothing(word)) return true;
  if (FindRow(kOperators, word.text) != nullptr && !vocabulary_(word.text)) {
    return Refuse(fmt::format("stray operator {}: it stands behind no field of WITH", Placed(word)));
  }
  return AddColumn(word);
}

bool ClauseParser::AddId(const Word& word) {
  if (word.text.empty()) return Refuse(fmt::format("the item ID at position {} is empty", word.position));
  query_.ids.push_back(word);
  return true;
}

bool ClauseParser::AddColumn(const Word& word) {
  if (query_.verb->answer != Answer::kReport) {
    return Refuse(fmt::format(
        "{} belongs to no WITH or BY, and {} shows no columns; a value of several words stands in quotes",
        Placed(word), query_.verb->word));
  }
  if (!CheckReplyText(word)) return false;
  query_.columns.push_back(word.text);
  return true;
}

bool ClauseParser::ParseBy(const Word& word) {
  SortField field;
  field.lead = word;
  field.descending = SameWord(word.text, "BY-DSND") || SameWord(word.text, "BY-EXP-DSND");
  field.explodes = SameWord(word.text, "BY-EXP") || SameWord(word.text, "BY-EXP-DSND");
  if (!TakeNamed(word, "a field", field.field)) return false;
  query_.sortFields.push_back(field);
  return true;
}

bool ClauseParser::ParseSaving(const Word& word) {
  if (query_.verb->answer != Answer::kSelected) {
    return Refuse(fmt::format("{} belongs to SELECT, SSELECT and PSELECT; {} keeps no list", Placed(word),
                              query_.verb->word));
  }
  if (!query_.outcome.saved.text.empty()) {
    return Refuse(fmt::format("{} stands behind SAVING {}; a select list is of one column", Placed(word),
                              query_.outcome.saved.text));
  }
  if (const Word* unique = NextBare();
      unique != nullptr && SameWord(unique->text, "UNIQUE") && NextQualifiesField()) {
    query_.outcome.unique = true;
    ++at_;
  }
  return TakeNamed(word, "a field", query_.outcome.saved);
}

bool ClauseParser::ParseSample(const Word& word) {
  const Word* count = Next();
  if (count == nullptr || count->kind != WordKind::kBare ||
      !std::all_of(count->text.begin(), count->text.end(), IsDigit) ||
      count->text.find_first_not_of('0') == std::string_view::npos) {
    return Refuse(fmt::format("{} needs a whole number above 0 behind it{}", Placed(word),
                              count == nullptr ? std::string() : ", not " + Placed(*count)));
  }
  ++at_;
  query_.outcome.most = std::numeric_limits<std::size_t>::max();
  std::from_chars(count->text.data(), count->text.data() + count->text.size(), query_.outcome.most);
  return true;
}

// A clause that shows a column, of a verb that shows none.
bool ClauseParser::CheckShowsColumns(const Word& clause) {
  if (query_.verb->answer == Answer::kReport) return true;
  return Refuse(
      fmt::format("{} belongs to LIST and SORT; {} shows no columns", Placed(clause), query_.verb->word));
}

bool ClauseParser::ParseTotal(const Word& word) {
  Word column;
  if (!CheckShowsColumns(word) || !TakeNamed(word, "a column", column) || !AddColumn(column)) return false;
  query_.modifiers.emplace_back("TOTAL");
  query_.modifiers.emplace_back(column.text);
  return true;
}

bool ClauseParser::ParseBreak(const Word& word) {
  Word column;
  if (!CheckShowsColumns(word) || !TakeNamed(word, "a column", column) || !AddColumn(column)) return false;
  std::string phrase(column.text);
  phrase += kSubvalueMark;
  if (NextIs(WordKind::kQuoted)) {
    const Word& text = words_[at_++];
    if (!CheckReplyText(text)) return false;
    phrase += text.text;
  }
  query_.modifiers.emplace_back("BREAK-ON");
  query_.modifiers.push_back(std::move(phrase));
  return true;
}

bool ClauseParser::ParsePageText(const Word& word) {
  if (!NextIs(WordKind::kQuoted))
    return Refuse(fmt::format("{} needs a quoted text behind it", Placed(word)));
  const Word& text = words_[at_++];
  if (!CheckReplyText(text)) return false;
  query_.modifiers.emplace_back(SameWord(word.text, "HEADING") ? "HEADING" : "FOOTING");
  query_.modifiers.emplace_back(text.text);
  return true;
}

bool ClauseParser::ParseIdSuppress(const Word& word) { return AddOptions(word.position, "ID-SUPP"); }

// What stands between this bracket and its partner, or the end of the sentence.
bool ClauseParser::ParseOptions(const Word& bracket) {
  std::size_t depth = 1;
  std::size_t end = sentence_.size();
  while (depth > 0 && at_ < words_.size()) {
    const Word& word = words_[at_++];
    if (word.kind == WordKind::kOpenBracket) ++depth;
    if (word.kind == WordKind::kCloseBracket && --depth == 0) end = word.position - 1;
  }
  return AddOptions(bracket.position, Trimmed(sentence_.substr(bracket.position, end - bracket.position)));
}

bool ClauseParser::AddOptions(std::size_t position, std::string_view text) {
  if (!CheckReplyText({text, position, WordKind::kBare})) return false;
  if (!query_.options.empty() && !text.empty()) query_.options += ' ';
  query_.options += text;
  return true;
}

bool ClauseParser::RefuseConnective(const Word& word) {
  return Refuse(fmt::format("{} joins nothing: it stands behind no criterion of WITH", Placed(word)));
}

// ---- Criteria ----

bool ClauseParser::ParseWith(const Word& word) { return ParseCriteria(word, Quantifier::kAny); }
bool ClauseParser::ParseWithout(const Word& word) { return ParseCriteria(word, Quantifier::kNone); }

bool ClauseParser::ParseCriteria(const Word& with, Quantifier quantifier) {
  if (!query_.steps.empty()) Connect(Join::kPhrase);
  const Word* lead = &with;
  for (;;) {
    for (; NextIs(WordKind::kOpenBracket) && quantifier == Quantifier::kAny; ++at_, ++openBrackets_) {
      pending_.push_back({Join::kBracket, words_[at_].position});
    }
    if (!ParseCriterion(*lead, quantifier)) return false;
    for (; openBrackets_ > 0 && NextIs(WordKind::kCloseBracket); ++at_) CloseBracket();
    if (!TakeConnective(lead, quantifier)) return openBrackets_ == 0 || RefuseOpenBracket();
  }
}

// Takes AND, OR, and WITH or WITHOUT behind them; inside brackets also WITH alone. False: the criteria end
// here.
bool ClauseParser::TakeConnective(const Word*& lead, Quantifier& quantifier) {
  const Word* word = Next();
  quantifier = Quantifier::kAny;
  if (TakeBare("AND")) {
    Connect(Join::kAnd);
  } else if (TakeBare("OR")) {
    Connect(Join::kOr);
  } else if (openBrackets_ > 0 && word != nullptr && word->kind == WordKind::kBare &&
             (SameWord(word->text, "WITH") || SameWord(word->text, "WITHOUT"))) {
    Connect(Join::kPhrase);
  } else {
    return false;
  }
  const Word* with = Next();
  lead = word;
  if (TakeBare("WITH")) {
    lead = with;
  } else if (TakeBare("WITHOUT")) {
    lead = with;
    quantifier = Quantifier::kNone;
  }
  return true;
}

bool ClauseParser::ParseCriterion(const Word& lead, Quantifier quantifier) {
  Criterion criterion;
  criterion.behindConnective = IsConnective(lead);
  criterion.quantifier = quantifier;
  criterion.firstLiteral = query_.literals.size();
  SkipThrowAwayWords();
  if (NextContinuesCriterion(lead)) {
    const Criterion& before = query_.criteria.back();
    criterion.field = before.field;
    criterion.quantifier = before.quantifier;
    criterion.op = before.op == Operator::kNotEmpty ? Operator::kEqual : before.op;
  } else {
    if (!TakeField(lead, criterion)) return false;
    criterion.op = Operator::kEqual;
  }

  const Word* operatorWord = TakeOperator(criterion.op);
  criterion.hasOperator = operatorWord != nullptr;
  if (!TakeValues(operatorWord, criterion)) return false;
  if (criterion.literalCount == 0) criterion.op = Operator::kNotEmpty;

  query_.steps.push_back({CriteriaStep::Kind::kTest, query_.criteria.size()});
  query_.criteria.push_back(criterion);
  return true;
}

// Takes the field of a criterion, and the quantifier before it.
bool ClauseParser::TakeField(const Word& lead, Criterion& criterion) {
  if (const QuantifierWord* word = TakeQuantifier()) {
    const Word& quantifier = words_[at_ - 1];
    if (criterion.quantifier != Quantifier::kAny) {
      return Refuse(fmt::format("{} can't stand behind WITHOUT", Placed(quantifier)));
    }
    criterion.quantifier = word->quantifier;
    return TakeNamed(quantifier, "a field", criterion.field);
  }
  if (!TakeNamed(lead, "a field", criterion.field)) return false;
  std::size_t at = at_;
  if (!IsConnective(lead) || !IsNumber(criterion.field) || FindOperator(at) != nullptr) return true;
  return Refuse(fmt::format("{} could be a value or a column; put it in quotes if it is the value",
                            Placed(criterion.field)));
}

// Behind AND and OR themselves: an operator, a quoted value or a number goes on with the field before.
bool ClauseParser::NextContinuesCriterion(const Word& lead) const {
  const Word* word = Next();
  if (word == nullptr || query_.criteria.empty() || !IsConnective(lead)) return false;
  if (word->kind == WordKind::kOperator || word->kind == WordKind::kQuoted) return true;
  if (word->kind != WordKind::kBare || vocabulary_(word->text)) return false;
  std::size_t behind = at_ + 1;
  return FindRow(kOperators, word->text) != nullptr || (IsNumber(*word) && FindOperator(behind) == nullptr);
}

// Whether a field stands behind the next word, which can then be something else than the field.
bool ClauseParser::NextQualifiesField() const {
  return at_ + 1 < words_.size() && words_[at_ + 1].kind == WordKind::kBare && !IsReserved(words_[at_ + 1]);
}

// EVERY, EACH and NO, when a field follows or the dictionary has no such word; otherwise the word is the
// field.
const QuantifierWord* ClauseParser::TakeQuantifier() {
  const Word* word = NextBare();
  const QuantifierWord* row = word == nullptr ? nullptr : FindRow(kQuantifiers, word->text);
  if (row == nullptr || (!NextQualifiesField() && vocabulary_(word->text))) return nullptr;
  ++at_;
  return row;
}

// The operator behind a field, null when there is none. A throw-away word may stand before it (VALUES ARE >
// 5).
const Word* ClauseParser::TakeOperator(Operator& op) {
  std::size_t at = at_;
  const OperatorWord* row = FindOperator(at);
  if (row == nullptr) return nullptr;
  op = row->op;
  at_ = at + 1;
  return &words_[at];
}

// The operator that stands at a word or behind it, which `at` then tells; null when there is none.
const OperatorWord* ClauseParser::FindOperator(std::size_t& at) const {
  if (at < words_.size() && words_[at].kind == WordKind::kBare && MeansNothing(words_[at])) ++at;
  if (at >= words_.size()) return nullptr;
  const WordKind kind = words_[at].kind;
  if (kind != WordKind::kOperator && kind != WordKind::kBare) return nullptr;
  return FindRow(kOperators, words_[at].text);
}

// Whether a word is a value where it can be one.
bool ClauseParser::IsValueAt(std::size_t at) const {
  if (at >= words_.size()) return false;
  const Word& word = words_[at];
  if (word.kind != WordKind::kBare) return word.kind == WordKind::kQuoted;
  return !IsReserved(word) && (mv::IsNumeric(word.text) || !vocabulary_(word.text));
}

// Whether the next word, an unquoted one directly behind a field or behind an unquoted value, is a value.
// False when it is to be refused.
bool ClauseParser::ReadBareWord(const Word& word, bool behindField, bool& isValue) {
  isValue = mv::IsNumeric(word.text);
  if (isValue || vocabulary_(word.text)) return true;
  if (MeansNothing(word)) {
    return Refuse(
        fmt::format("{} could be a value or a word without meaning; quote it or leave it out", Placed(word)));
  }
  isValue = behindField || IsNumber(word);
  if (!isValue || IsNumber(word) || !IsValueAt(at_ + 1)) return true;
  return Refuse(
      fmt::format("{} is no operator; one of several values, and a value of several words, stands in quotes",
                  Placed(word)));
}

// The values behind a field; `operatorWord` is null when it has no operator.
bool ClauseParser::TakeValues(const Word* operatorWord, Criterion& criterion) {
  const std::size_t needed = criterion.op == Operator::kBetween ? 2 : 1;
  bool behindQuoted = false;
  for (const Word* word = Next(); word != nullptr; word = Next()) {
    if (word->kind != WordKind::kQuoted && word->kind != WordKind::kBare) break;
    const bool behindOperator = operatorWord != nullptr && criterion.literalCount < needed;
    if (word->kind == WordKind::kBare && IsReserved(*word)) break;
    if (word->kind == WordKind::kBare && !behindOperator) {
      if (behindQuoted) break;
      bool isValue = false;
      if (!ReadBareWord(*word, criterion.literalCount == 0, isValue)) return false;
      if (!isValue) break;
    }
    behindQuoted = word->kind == WordKind::kQuoted;
    query_.literals.push_back(*word);
    ++criterion.literalCount;
    ++at_;
  }
  if (criterion.literalCount > 0 && criterion.literalCount % needed != 0) {
    const Word& last = query_.literals.back();
    return Refuse(fmt::format(
        "{} is the start of a range without an end; BETWEEN takes values in pairs{}", Placed(last),
        Next() != nullptr && SameWord(Next()->text, "AND") ? ", without AND between them" : ""));
  }
  if (criterion.literalCount > 0 || operatorWord == nullptr) return true;
  const Word* word = Next();
  if (word == nullptr) {
    return Refuse(fmt::format("operator {} has no value behind it", Placed(*operatorWord)));
  }
  return Refuse(fmt::format(
      "operator {} has no value behind it: {} is a word of the language (quote it if it is the value)",
      Placed(*operatorWord), Placed(*word)));
}

// Puts a connective behind the criteria read so far: what binds tighter is complete, and a skip waits for
// what follows.
void ClauseParser::Connect(Join join) {
  SettlePending(join);
  const auto kind = join == Join::kOr ? CriteriaStep::Kind::kSkipIfTrue : CriteriaStep::Kind::kSkipIfFalse;
  pending_.push_back({join, query_.steps.size()});
  query_.steps.push_back({kind, 0});
}

void ClauseParser::SettlePending(Join weakest) {
  while (!pending_.empty() && pending_.back().join != Join::kBracket && pending_.back().join >= weakest) {
    query_.steps[pending_.back().at].target = query_.steps.size();
    pending_.pop_back();
  }
}

void ClauseParser::CloseBracket() {
  SettlePending(Join::kPhrase);
  pending_.pop_back();
  --openBrackets_;
}

bool ClauseParser::RefuseOpenBracket() {
  const auto bracket = std::find_if(pending_.rbegin(), pending_.rend(),
                                    [](const Pending& pending) { return pending.join == Join::kBracket; });
  const Word* word = Next();
  if (word == nullptr)
    return Refuse(fmt::format("the bracket ( at position {} is never closed", bracket->at));
  return Refuse(fmt::format("{} can't stand inside the bracket ( of position {}; close it with ) first",
                            Placed(*word), bracket->at));
}

// ---- QSELECT ----

// One item ID as it comes, further ones in quotes, then at most one unquoted word, the attribute. Where a
// list names the items, a word alone is the attribute.
bool ClauseParser::ParseItems() {
  const bool takesBareId = !query_.behindList || words_.size() > 1;
  while (at_ < words_.size()) {
    const Word& word = words_[at_++];
    const bool isBareId = word.kind == WordKind::kBare && query_.ids.empty() && takesBareId;
    const bool isId = word.kind == WordKind::kQuoted || isBareId;
    const bool isAttribute = word.kind == WordKind::kBare && !isId && query_.attribute.text.empty();
    if (!isId && !isAttribute) {
      return Refuse(
          fmt::format("{} has no meaning: QSELECT takes a file, item IDs and one attribute", Placed(word)));
    }
    if (isAttribute) query_.attribute = word;
    if (isId && !AddId(word)) return false;
  }
  return true;
}

}  // namespace

const QueryVerb* FindQueryVerb(std::string_view word) { return FindRow(kVerbs, word); }

bool ParseFile(std::span<const Word> words, Query& query, std::string& error) {
  const QueryVerb* verb = words.empty() ? nullptr : FindQueryVerb(words[0].text);
  if (verb == nullptr) {
    error = words.empty() ? std::string("the sentence is empty")
                          : fmt::format("{} is no verb of the query language", Placed(words[0]));
    return false;
  }
  query.verb = verb;
  std::size_t at = 1;
  if (at < words.size() && words[at].kind == WordKind::kBare && SameWord(words[at].text, "DICT")) {
    query.ofDictionary = true;
    ++at;
  }
  if (at >= words.size()) {
    error = fmt::format("{} needs a file behind it, but the sentence ends", Placed(words[at - 1]));
    return false;
  }
  // A report's file is read from the sentence by the add-in as well, which knows no quotes.
  const bool isQuotedName = words[at].kind == WordKind::kQuoted && !words[at].text.empty();
  if (words[at].kind != WordKind::kBare && !(isQuotedName && verb->answer != Answer::kReport)) {
    error = fmt::format("{} needs a file behind it, not {}{}", Placed(words[at - 1]), Placed(words[at]),
                        isQuotedName ? "; the file of a report stands without quotes" : "");
    return false;
  }
  query.file = words[at];
  if (at + 1 == words.size() || words[at].kind != WordKind::kBare) return true;
  // The add-in takes for the file all that goes up to the next blank.
  const Word& behind = words[at + 1];
  if (behind.position > words[at].position + words[at].text.size()) return true;
  error = fmt::format("{} needs a blank before {}", Placed(words[at]), Placed(behind));
  return false;
}

bool ParseClauses(std::string_view sentence, std::span<const Word> words, const Vocabulary& vocabulary,
                  Query& query, std::string& error) {
  const std::size_t head = query.ofDictionary ? 3 : 2;
  ClauseParser parser(sentence, words.subspan(head), vocabulary, query, error);
  return query.verb->answer == Answer::kValues ? parser.ParseItems() : parser.ParseClauses();
}

}  // namespace nvadmin::engine

#include "engine/sentences/Sql.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "engine/EngineSession.h"
#include "engine/Marks.h"
#include "engine/query/Text.h"
#include "engine/sentences/Arguments.h"

namespace nvadmin::engine {

namespace {

struct SqlForm {
  std::string_view first;
  std::string_view second;  // empty: any word or none
  bool isQuery;
};

constexpr std::array<SqlForm, 14> kSqlForms = {{
    {"SELECT", "", true},
    {"WITH", "", true},
    {"INSERT", "", false},
    {"UPDATE", "", false},
    {"DELETE", "FROM", false},
    {"REPLACE", "INTO", false},
    {"CREATE", "TABLE", false},
    {"CREATE", "INDEX", false},
    {"CREATE", "UNIQUE", false},
    {"CREATE", "VIEW", false},
    {"DROP", "TABLE", false},
    {"DROP", "INDEX", false},
    {"DROP", "VIEW", false},
    {"ALTER", "TABLE", false},
}};

const SqlForm* FindForm(std::string_view sentence) {
  const std::string_view first = FirstWord(sentence);
  const std::string_view second = FirstWord(sentence.substr(first.data() + first.size() - sentence.data()));
  const auto matches = [&](const SqlForm& form) {
    return SameWord(form.first, first) && (form.second.empty() || SameWord(form.second, second));
  };
  const auto form = std::find_if(kSqlForms.begin(), kSqlForms.end(), matches);
  return form == kSqlForms.end() ? nullptr : &*form;
}

bool HoldsFrom(std::string_view sentence) {
  constexpr std::string_view kFrom = " FROM ";
  for (std::size_t at = sentence.find(' '); at != std::string_view::npos; at = sentence.find(' ', at + 1)) {
    if (SameWord(sentence.substr(at, kFrom.size()), kFrom)) return true;
  }
  return false;
}

}  // namespace

bool IsSql(std::string_view sentence) {
  if (SameWord(FirstWord(sentence), "SELECT")) return sentence.ends_with(';') || HoldsFrom(sentence);
  return !FirstWord(sentence).empty() && FindForm(sentence) != nullptr;
}

SentenceResult RunSqlSentence(EngineSession& session, std::string_view sentence) {
  session.CommitWrites();
  const bool isLoad = session.LastLoad().IsUnderWay();
  session.CurrentStore().ExpectSentencesBy(isLoad ? SentenceBy::kProgram : SentenceBy::kUser);
  const SqlForm* form = FindForm(sentence);
  SentenceResult result;
  bool isQuery = false;
  std::string message;
  try {
    result.ok = session.CurrentStore().RunSql(sentence, session.Grid(), isQuery, message, result.text);
  } catch (...) {
    if (form->isQuery) session.Grid().Clear();
    throw;
  }
  if (!result.ok) {
    if (form->isQuery) session.Grid().Clear();
    return result;
  }
  const std::int32_t rows = session.Grid().HighestRow();
  result.text =
      isQuery ? fmt::format("{}{}{}", rows, kAttributeMark, rows == 1 ? "row" : "rows") : std::move(message);
  return result;
}

}  // namespace nvadmin::engine

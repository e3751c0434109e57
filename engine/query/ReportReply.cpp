#include "engine/query/ReportReply.h"

#include <fmt/format.h>

#include "engine/Marks.h"

namespace nvadmin::engine {
namespace {

std::string MakeReportReply(const Query& query, std::int32_t columns, std::int32_t rows) {
  std::string reply = fmt::format("{}{}{}{}", columns, kAttributeMark, rows, kAttributeMark);
  for (std::size_t column = 0; column < query.columns.size(); ++column) {
    if (column > 0) reply += kValueMark;
    reply += query.columns[column];
  }
  reply += kAttributeMark;
  reply += kAttributeMark;
  reply += query.options;
  reply += kAttributeMark;
  reply += query.verb->word;
  for (const std::string& modifier : query.modifiers) {
    reply += kValueMark;
    reply += modifier;
  }
  return reply;
}

}  // namespace

std::string MakeReply(const Query& query, std::int32_t columns, std::int32_t rows) {
  const char* items = rows == 1 ? "item" : "items";
  switch (query.verb->answer) {
    case Answer::kReport:
      return MakeReportReply(query, columns, rows);
    case Answer::kCounted:
      return fmt::format("{}{}{} counted", rows, kAttributeMark, items);
    case Answer::kSelected:
    case Answer::kValues:
      break;
  }
  return fmt::format("{}{}{} selected", rows, kAttributeMark, items);
}

}  // namespace nvadmin::engine

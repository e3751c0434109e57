#include "tests/support/ScriptedEngine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <type_traits>

#include "mv/DynamicArray.h"

namespace nvadmin::test {

namespace {

constexpr std::size_t kTailCharacters = 1500;

struct ShownByte {
  char byte;
  char typed;
  std::string_view word;
};
constexpr ShownByte kMarks[] = {{'\xFE', '^', "{AM}"},
                                {'\xFD', ']', "{VM}"},
                                {'\xFC', '\\', "{SM}"},
                                {'\xFB', 0, "{SSM}"},
                                {'\xFA', 0, "{CPM}"}};

struct CursorWord {
  std::int32_t column;
  std::int32_t row;
  std::string_view word;
};
constexpr CursorWord kCursorWords[] = {{-1, -1, "[CLEAR]"}, {-3, -1, "[CLEAR DOWN]"}, {0, 0, "[HOME]"}};

std::string LockName(std::string_view fileVar, std::string_view id) {
  return std::string(fileVar).append(" ").append(id);
}

// The planned element of that name, or null.
template <typename Map>
auto* Find(Map& map, std::string_view name) {
  const auto found = map.find(name);
  return found == map.end() ? nullptr : &found->second;
}

}  // namespace

std::string Dyn(std::string_view text) {
  std::string result(text);
  for (const ShownByte& mark : kMarks) {
    if (mark.typed != 0) std::replace(result.begin(), result.end(), mark.typed, mark.byte);
  }
  return result;
}

std::string Shown(std::string_view text) {
  constexpr std::string_view kHexadecimal = "0123456789ABCDEF";
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    const auto* mark = std::find_if(std::begin(kMarks), std::end(kMarks),
                                    [c](const ShownByte& row) { return row.byte == c; });
    if (text.substr(at, 2) == "\r\n") {
      result += "{CRLF}\n";
      ++at;
    } else if (mark != std::end(kMarks)) {
      result += mark->word;
    } else if (c < ' ' || c > '~') {
      const auto byte = static_cast<unsigned char>(c);
      result.append("{").append(1, kHexadecimal[byte / 16]).append(1, kHexadecimal[byte % 16]).append("}");
    } else {
      result += c;
    }
  }
  return result;
}

Grid Keys(std::initializer_list<std::string_view> keys) {
  Grid grid;
  for (std::string_view key : keys) grid.push_back({std::string(key)});
  return grid;
}

Grid NumberedKeys(int count) {
  Grid grid;
  for (int key = 1; key <= count; ++key) grid.push_back({std::to_string(key)});
  return grid;
}

// --- Planning ---

Items& ScriptedEngine::File(std::string_view name, std::string_view fileVar) {
  if (PlannedFile* file = Find(files_, name)) return file->items;
  std::string filled(fileVar);
  if (filled.empty()) {
    std::string table(name);
    std::replace_if(
        table.begin(), table.end(), [](char c) { return c == '.' || c == ' '; }, '_');
    filled = "test." + table + "." + std::to_string(files_.size() + 1);
  }
  return files_.emplace(name, PlannedFile{filled, {}}).first->second.items;
}

std::string ScriptedEngine::FileVar(std::string_view name) const {
  const PlannedFile* file = Find(files_, name);
  std::string fileVar = file == nullptr ? "" : file->fileVar;
  std::erase(fileVar, ' ');
  return fileVar;
}

void ScriptedEngine::RefuseFile(std::string_view name, std::string_view detail) {
  refusedFiles_.insert_or_assign(std::string(name), detail);
}

void ScriptedEngine::Answer(std::string_view sentence, std::string_view reply, std::optional<Grid> rows,
                            GridRow rowZero) {
  PlanAnswer(sentence, {std::string(reply), {}, std::move(rows), std::move(rowZero)});
}

void ScriptedEngine::RefuseSentence(std::string_view sentence, std::string_view detail) {
  PlanAnswer(sentence, {"ERROR", std::string(detail), Grid{}, {}});
}

void ScriptedEngine::PlanAnswer(std::string_view sentence, PlannedAnswer answer) {
  std::deque<PlannedAnswer>& answers = answers_[std::string(sentence)];
  if (!answers.empty() && answers.front().used) answers.pop_front();
  answers.push_back(std::move(answer));
}

void ScriptedEngine::Type(std::initializer_list<std::string_view> lines) {
  input_.insert(input_.end(), lines.begin(), lines.end());
}

void ScriptedEngine::LockByOther(std::string_view file, std::string_view id) {
  locksOfOthers_.insert(LockName(FileVar(file), id));
}

void ScriptedEngine::NextCalls(std::string_view operation, std::initializer_list<Outcome> outcomes) {
  std::deque<Outcome>& planned = outcomes_[std::string(operation)];
  planned.insert(planned.end(), outcomes.begin(), outcomes.end());
}

int ScriptedEngine::CallCount(std::string_view operation) const {
  const int* count = Find(callCounts_, operation);
  return count == nullptr ? 0 : *count;
}

void ScriptedEngine::Forget() {
  calls_.clear();
  screen_.clear();
  callCounts_.clear();
}

// --- The steps that operations share ---

// Writes down the call and takes its planned outcome.
Outcome ScriptedEngine::Start(std::string_view operation, std::initializer_list<std::string_view> arguments) {
  ++callCounts_[std::string(operation)];
  calls_.append(operation).append("(");
  bool first = true;
  for (std::string_view argument : arguments) {
    calls_.append(first ? "" : ", ").append(Shown(argument));
    first = false;
  }
  calls_.append(")");

  Outcome outcome;
  std::deque<Outcome>* planned = Find(outcomes_, operation);
  if (planned != nullptr && !planned->empty()) {
    outcome = std::move(planned->front());
    planned->pop_front();
  }
  if (operation != "GetErrorDetail") errorDetail_ = outcome.detail;
  if (!outcome.fails) return outcome;
  calls_.append(" fails\n");
  throw EngineFailure(outcome.detail);
}

// Writes down the answer.
template <typename Result>
Result ScriptedEngine::End(Result result) {
  if constexpr (std::is_same_v<Result, bool>) {
    calls_.append(result ? " true\n" : " false\n");
  } else if constexpr (std::is_arithmetic_v<Result>) {
    calls_.append(" ").append(std::to_string(result)).append("\n");
  } else {
    calls_.append(" '").append(Shown(result)).append("'\n");
  }
  return result;
}

void ScriptedEngine::FailUnplanned(std::string_view why) {
  const std::size_t from = calls_.size() > kTailCharacters ? calls_.size() - kTailCharacters : 0;
  ADD_FAILURE() << "unplanned call: " << why << "; the last calls were\n" << calls_.substr(from);
  calls_.append(" unplanned\n");
  throw EngineFailure(std::string("unplanned call: ").append(why));
}

Items& ScriptedEngine::ItemsOf(std::string_view fileVar) {
  for (auto& [name, file] : files_) {
    if (FileVar(name) == fileVar) return file.items;
  }
  FailUnplanned("no file has this FileVar");
}

bool ScriptedEngine::IsRefused(std::string_view fileVar, std::string_view id) {
  if (!locksOfOthers_.contains(LockName(fileVar, id))) return false;
  errorDetail_ = "[920] locked by port 9";
  return true;
}

bool ScriptedEngine::Read(const ReadKind& kind, std::string& target, std::string_view fileVar,
                          std::string_view id) {
  const std::string number = kind.attribute ? std::to_string(*kind.attribute) : "";
  const Outcome outcome =
      kind.attribute ? Start(kind.operation, {fileVar, id, number}) : Start(kind.operation, {fileVar, id});
  const std::string* item = Find(ItemsOf(fileVar), id);
  if (outcome.answer.value_or(kTrue) != kTrue) return End(false);
  if (kind.locks) {
    if (IsRefused(fileVar, id)) return End(false);
    locks_.insert(LockName(fileVar, id));
  }
  if (item == nullptr) {
    if (!kind.locks) errorDetail_ = std::string("no item '").append(id).append("'");
    return End(false);
  }
  target = kind.attribute ? std::string(mv::Extract(*item, *kind.attribute)) : *item;
  return End(true);
}

bool ScriptedEngine::Write(const WriteKind& kind, std::string_view text, std::string_view fileVar,
                           std::string_view id) {
  const std::string number = kind.attribute ? std::to_string(*kind.attribute) : "";
  const Outcome outcome = kind.attribute ? Start(kind.operation, {text, fileVar, id, number})
                                         : Start(kind.operation, {text, fileVar, id});
  Items& items = ItemsOf(fileVar);
  if (outcome.answer.value_or(kTrue) != kTrue || IsRefused(fileVar, id)) return End(false);
  std::string& item = items[std::string(id)];
  item = kind.attribute ? mv::Replace(item, *kind.attribute, 0, 0, text) : std::string(text);
  if (kind.keepsLock) {
    locks_.insert(LockName(fileVar, id));
  } else {
    locks_.erase(LockName(fileVar, id));
  }
  return End(true);
}

// --- The border ---

std::shared_ptr<SharedDictionary> ScriptedEngine::GetSharedDictionary() {
  Start("GetSharedDictionary", {});
  calls_.append("\n");
  return std::make_shared<SharedDictionary>();
}

std::string ScriptedEngine::GetOutputMode() {
  Start("GetOutputMode", {});
  return End(outputMode_);
}

std::string ScriptedEngine::GetResultCell(std::int32_t column, std::int32_t row) {
  Start("GetResultCell", {std::to_string(column), std::to_string(row)});
  const GridRow* cells = nullptr;
  if (row == 0 && !rowZero_.empty()) cells = &rowZero_;
  if (row > 0 && static_cast<std::size_t>(row) <= grid_.size()) cells = &grid_[row - 1];
  if (cells == nullptr || column < 0 || static_cast<std::size_t>(column) >= cells->size()) {
    calls_.append(" outside the grid\n");
    throw EngineFailure("outside the grid");
  }
  return End((*cells)[column]);
}

std::int32_t ScriptedEngine::GetResultBound(std::int32_t dimension) {
  Start("GetResultBound", {std::to_string(dimension)});
  if (dimension == 2) return End(static_cast<std::int32_t>(grid_.size()));
  std::size_t columns = std::max<std::size_t>(rowZero_.size(), 1);
  for (const GridRow& row : grid_) columns = std::max(columns, row.size());
  return End(static_cast<std::int32_t>(columns - 1));
}

std::string ScriptedEngine::GetErrorDetail() {
  Start("GetErrorDetail", {});
  return End(errorDetail_);
}

bool ScriptedEngine::ReadInput(std::string& target, std::int32_t length, bool lineEnd, float wait) {
  Start("ReadInput", {std::to_string(length), lineEnd ? "true" : "false", std::to_string(wait)});
  if (input_.empty()) {
    target = "<&PORT_DISCONNECT>";
  } else {
    target = std::move(input_.front());
    input_.pop_front();
  }
  screen_.append("[IN ").append(Shown(target)).append("]\n");
  End(target);
  return true;
}

void ScriptedEngine::WriteOutput(std::string_view text, bool lineEnd) {
  Start("WriteOutput", {text, lineEnd ? "true" : "false"});
  calls_.append("\n");
  screen_.append(Shown(text)).append(lineEnd ? "$\n" : "");
}

std::string ScriptedEngine::CursorString(std::int32_t column, std::int32_t row) {
  Start("CursorString", {std::to_string(column), std::to_string(row)});
  for (const CursorWord& known : kCursorWords) {
    if (known.column == column && known.row == row) return End(std::string(known.word));
  }
  return End("[AT " + std::to_string(column) + "," + std::to_string(row) + "]");
}

std::string ScriptedEngine::ExecuteSentence(std::string_view sentence) {
  const Outcome outcome = Start("ExecuteSentence", {sentence});
  std::deque<PlannedAnswer>* answers = Find(answers_, sentence);
  if (answers == nullptr) FailUnplanned("no answer to this sentence");
  if (answers->front().used && answers->size() > 1) answers->pop_front();
  PlannedAnswer& answer = answers->front();
  answer.used = true;
  if (!answer.detail.empty()) errorDetail_ = answer.detail;
  if (answer.rows) {
    grid_ = *answer.rows;
    rowZero_ = answer.rowZero;
  }
  return End(answer.reply);
}

VariantBool ScriptedEngine::OpenFile(std::string_view name, std::string& fileVar) {
  const Outcome outcome = Start("OpenFile", {name});
  if (outcome.answer.value_or(kTrue) != kTrue) return End(*outcome.answer);
  if (const std::string* detail = Find(refusedFiles_, name)) {
    errorDetail_ = *detail;
    return End(kFalse);
  }
  const PlannedFile* file = Find(files_, name);
  if (file == nullptr) FailUnplanned("no file of this name");
  fileVar = file->fileVar;
  return End(kTrue);
}

bool ScriptedEngine::ReadItem(std::string& item, std::string_view fileVar, std::string_view id) {
  return Read({"ReadItem", std::nullopt, false}, item, fileVar, id);
}

bool ScriptedEngine::ReadAttribute(std::string& value, std::string_view fileVar, std::string_view id,
                                   std::int32_t attribute) {
  return Read({"ReadAttribute", attribute, false}, value, fileVar, id);
}

bool ScriptedEngine::ReadItemLocked(std::string& item, std::string_view fileVar, std::string_view id) {
  return Read({"ReadItemLocked", std::nullopt, true}, item, fileVar, id);
}

bool ScriptedEngine::ReadAttributeLocked(std::string& value, std::string_view fileVar, std::string_view id,
                                         std::int32_t attribute) {
  return Read({"ReadAttributeLocked", attribute, true}, value, fileVar, id);
}

bool ScriptedEngine::WriteItem(std::string_view item, std::string_view fileVar, std::string_view id) {
  return Write({"WriteItem", std::nullopt, false}, item, fileVar, id);
}

bool ScriptedEngine::WriteItemKeepLock(std::string_view item, std::string_view fileVar, std::string_view id) {
  return Write({"WriteItemKeepLock", std::nullopt, true}, item, fileVar, id);
}

bool ScriptedEngine::WriteAttribute(std::string_view value, std::string_view fileVar, std::string_view id,
                                    std::int32_t attribute) {
  return Write({"WriteAttribute", attribute, false}, value, fileVar, id);
}

bool ScriptedEngine::WriteAttributeKeepLock(std::string_view value, std::string_view fileVar,
                                            std::string_view id, std::int32_t attribute) {
  return Write({"WriteAttributeKeepLock", attribute, true}, value, fileVar, id);
}

bool ScriptedEngine::DeleteItem(std::string_view fileVar, std::string_view id) {
  const Outcome outcome = Start("DeleteItem", {fileVar, id});
  Items& items = ItemsOf(fileVar);
  if (outcome.answer.value_or(kTrue) != kTrue || IsRefused(fileVar, id)) return End(false);
  locks_.erase(LockName(fileVar, id));
  if (items.erase(std::string(id)) == 0) {
    errorDetail_ = std::string("no item '").append(id).append("'");
    return End(false);
  }
  return End(true);
}

void ScriptedEngine::ReleaseItem(std::string_view fileVar, std::string_view id) {
  Start("ReleaseItem", {fileVar, id});
  calls_.append("\n");
  if (!id.empty()) {
    locks_.erase(LockName(fileVar, id));
  } else {
    std::erase_if(locks_, [start = LockName(fileVar, ""), fileVar](const std::string& lock) {
      return fileVar.empty() || lock.starts_with(start);
    });
  }
}

}  // namespace nvadmin::test

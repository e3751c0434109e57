#include "tests/support/ScriptedEngine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <type_traits>

#include "mv/DynamicArray.h"

namespace nvadmin::test {

namespace {

constexpr std::size_t kTailCharacters = 1500;

struct ShownByte {
  char byte, typed;
  std::string_view word;
};
constexpr ShownByte kMarks[] = {{'\xFE', '^', "{AM}"},
                                {'\xFD', ']', "{VM}"},
                                {'\xFC', '\\', "{SM}"},
                                {'\xFB', 0, "{SSM}"},
                                {'\xFA', 0, "{CPM}"}};

const std::map<std::pair<std::int32_t, std::int32_t>, std::string> kCursorWords = {
    {{-1, -1}, "[CLEAR]"}, {{-3, -1}, "[CLEAR DOWN]"}, {{0, 0}, "[HOME]"}};

// How an argument or an answer is written down.
std::string Written(bool value) { return value ? "true" : "false"; }
std::string Written(std::string_view value) { return Shown(value); }
std::string Written(const std::string& value) { return Shown(value); }
template <typename Number>
std::string Written(Number value) {
  return std::to_string(value);
}

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

void ScriptedEngine::PlanAnswer(std::string_view sentence, PlannedAnswer answer) {
  std::deque<PlannedAnswer>& answers = answers_[std::string(sentence)];
  if (!answers.empty() && answers.front().used) answers.pop_front();
  answers.push_back(std::move(answer));
}

void ScriptedEngine::NextCalls(std::string_view operation, std::initializer_list<Outcome> outcomes) {
  std::deque<Outcome>& planned = outcomes_[std::string(operation)];
  planned.insert(planned.end(), outcomes.begin(), outcomes.end());
}

void ScriptedEngine::Forget() {
  calls_.clear();
  screen_.clear();
  callCounts_.clear();
}

// --- The steps that operations share ---

// Writes down the call and takes its planned outcome.
template <typename... Arguments>
Outcome ScriptedEngine::Start(std::string_view operation, const Arguments&... arguments) {
  ++callCounts_[std::string(operation)];
  calls_.append(operation).append("(");
  std::string_view between;
  ((calls_.append(between).append(Written(arguments)), between = ", "), ...);
  calls_.append(")");

  Outcome outcome;
  if (std::deque<Outcome>* planned = Find(outcomes_, operation); planned != nullptr && !planned->empty()) {
    outcome = std::move(planned->front());
    planned->pop_front();
  }
  if (operation != "GetErrorDetail") errorDetail_ = outcome.detail;
  if (!outcome.fails) return outcome;
  calls_.append(" fails\n");
  throw EngineFailure(outcome.detail);
}

// Writes down the answer; texts stand in quotes.
template <typename Result>
Result ScriptedEngine::End(Result result) {
  const std::string_view quote = std::is_arithmetic_v<Result> ? "" : "'";
  calls_.append(" ").append(quote).append(Written(result)).append(quote).append("\n");
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

// Whether a planned outcome, or a lock of somebody else, stops the operation.
bool ScriptedEngine::IsRefused(const Outcome& outcome, std::string_view lock) {
  if (outcome.answer.value_or(kTrue) != kTrue) return true;
  if (!locksOfOthers_.contains(lock)) return false;
  errorDetail_ = "[920] locked by port 9";
  return true;
}

bool ScriptedEngine::Read(Text operation, std::string& target, Text fileVar, Text id, Position attribute) {
  const Outcome outcome =
      attribute ? Start(operation, fileVar, id, *attribute) : Start(operation, fileVar, id);
  const std::string* item = Find(ItemsOf(fileVar), id);
  const bool isLocked = operation.ends_with("Locked");
  if (IsRefused(outcome, isLocked ? LockName(fileVar, id) : "")) return End(false);
  if (isLocked) locks_.insert(LockName(fileVar, id));
  if (item == nullptr) {
    if (!isLocked) errorDetail_ = std::string("no item '").append(id).append("'");
    return End(false);
  }
  target = attribute ? std::string(mv::Extract(*item, *attribute)) : *item;
  return End(true);
}

bool ScriptedEngine::Write(Text operation, Text text, Text fileVar, Text id, Position attribute) {
  const Outcome outcome =
      attribute ? Start(operation, text, fileVar, id, *attribute) : Start(operation, text, fileVar, id);
  Items& items = ItemsOf(fileVar);
  const std::string lock = LockName(fileVar, id);
  if (IsRefused(outcome, lock)) return End(false);
  std::string& item = items[std::string(id)];
  item = attribute ? mv::Replace(item, *attribute, 0, 0, text) : std::string(text);
  locks_.erase(lock);
  if (operation.ends_with("KeepLock")) locks_.insert(lock);
  return End(true);
}

// --- The border ---

std::shared_ptr<SharedDictionary> ScriptedEngine::GetSharedDictionary() {
  Start("GetSharedDictionary");
  calls_.append("\n");
  return std::make_shared<SharedDictionary>();
}

std::string ScriptedEngine::GetOutputMode() {
  Start("GetOutputMode");
  return End(outputMode_);
}

std::string ScriptedEngine::GetResultCell(std::int32_t column, std::int32_t row) {
  Start("GetResultCell", column, row);
  const GridRow* cells = row == 0 ? &rowZero_ : nullptr;
  if (row > 0 && static_cast<std::size_t>(row) <= grid_.size()) cells = &grid_[row - 1];
  if (cells != nullptr && static_cast<std::uint32_t>(column) < cells->size()) return End((*cells)[column]);
  calls_.append(" outside the grid\n");
  throw EngineFailure("outside the grid");
}

std::int32_t ScriptedEngine::GetResultBound(std::int32_t dimension) {
  Start("GetResultBound", dimension);
  std::size_t columns = std::max<std::size_t>(rowZero_.size(), 1);
  for (const GridRow& row : grid_) columns = std::max(columns, row.size());
  return End(static_cast<std::int32_t>(dimension == 2 ? grid_.size() : columns - 1));
}

std::string ScriptedEngine::GetErrorDetail() {
  Start("GetErrorDetail");
  return End(errorDetail_);
}

bool ScriptedEngine::ReadInput(std::string& target, std::int32_t length, bool lineEnd, float wait) {
  Start("ReadInput", length, lineEnd, wait);
  target = "<&PORT_DISCONNECT>";
  if (!input_.empty()) {
    target = input_.front();
    input_.pop_front();
  }
  screen_.append("[IN ").append(Shown(target)).append("]\n");
  End(target);
  return true;
}

void ScriptedEngine::WriteOutput(std::string_view text, bool lineEnd) {
  Start("WriteOutput", text, lineEnd);
  calls_.append("\n");
  screen_.append(Shown(text)).append(lineEnd ? "$\n" : "");
}

std::string ScriptedEngine::CursorString(std::int32_t column, std::int32_t row) {
  Start("CursorString", column, row);
  if (const auto word = kCursorWords.find({column, row}); word != kCursorWords.end())
    return End(word->second);
  return End("[AT " + std::to_string(column) + "," + std::to_string(row) + "]");
}

std::string ScriptedEngine::ExecuteSentence(std::string_view sentence) {
  Start("ExecuteSentence", sentence);
  std::deque<PlannedAnswer>* answers = Find(answers_, sentence);
  if (answers == nullptr) FailUnplanned("no answer to this sentence");
  if (answers->front().used && answers->size() > 1) answers->pop_front();
  PlannedAnswer& answer = answers->front();
  answer.used = true;
  errorDetail_ += answer.detail;
  if (answer.rows) {
    grid_ = *answer.rows;
    rowZero_ = answer.rowZero;
  }
  return End(answer.reply);
}

VariantBool ScriptedEngine::OpenFile(std::string_view name, std::string& fileVar) {
  const Outcome outcome = Start("OpenFile", name);
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

bool ScriptedEngine::DeleteItem(Text fileVar, Text id) {
  const Outcome outcome = Start("DeleteItem", fileVar, id);
  Items& items = ItemsOf(fileVar);
  if (IsRefused(outcome, LockName(fileVar, id))) return End(false);
  locks_.erase(LockName(fileVar, id));
  if (items.erase(std::string(id)) == 1) return End(true);
  errorDetail_ = std::string("no item '").append(id).append("'");
  return End(false);
}

void ScriptedEngine::ReleaseItem(Text fileVar, Text id) {
  Start("ReleaseItem", fileVar, id);
  calls_.append("\n");
  std::erase_if(locks_, [&, start = LockName(fileVar, "")](const std::string& lock) {
    return !id.empty() ? lock == LockName(fileVar, id) : fileVar.empty() || lock.starts_with(start);
  });
}

}  // namespace nvadmin::test

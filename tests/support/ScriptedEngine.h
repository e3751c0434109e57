// An engine for tests. A test plans files with their items, the answers to sentences and the lines that a
// user types; the engine plays its part and writes down every call.
//
// Two records: Calls() has one line a call, with its arguments and its answer; Screen() is what a user sees,
// "$" at each line end, "[IN text]" for a typed line, cursor strings as [CLEAR], [HOME], [CLEAR DOWN] and
// [AT column,row]. Both show marks as {AM} {VM} {SM} {SSM} {CPM} and other unprintable bytes as {E9}.
//
// It is as strict as the border allows: a call that wasn't planned (a sentence without an answer, a file of
// an unknown name, a FileVar never handed out) fails the test with the last calls, and the error detail is
// gone with the next operation. Without planned input the port is lost.
#pragma once

#include <cstdint>
#include <deque>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "session/EngineCallBack.h"

namespace nvadmin::test {

// A dynamic array as tests write it: "^" attribute mark, "]" value mark, "\" subvalue mark.
std::string Dyn(std::string_view text);
// The text with its marks and unprintable bytes in words; CR LF is {CRLF} and a new line.
std::string Shown(std::string_view text);

using Items = std::map<std::string, std::string, std::less<>>;
using GridRow = std::vector<std::string>;
using Grid = std::vector<GridRow>;

// A select list of these keys, and one of the keys 1 to `count`.
Grid Keys(std::initializer_list<std::string_view> keys);
Grid NumberedKeys(int count);

// What one call of an operation does other than planned by files, locks and answers.
struct Outcome {
  std::optional<VariantBool> answer =
      std::nullopt;         // instead of its own; anything but kTrue also does nothing
  std::string detail = {};  // what GetErrorDetail holds after it
  bool fails = false;       // throws EngineFailure with the detail
};

class ScriptedEngine : public EngineCallBack {
 public:
  // --- Planning ---

  // The items of a file, to fill and to look at. The first use makes the file: it opens under exactly this
  // name, and its FileVar is "test.NAME.n" with "_" for each "." and blank of the name, unless one is given.
  Items& File(std::string_view name, std::string_view fileVar = {});
  // The FileVar of a file as the add-in hands it back: without blanks.
  std::string FileVar(std::string_view name) const;
  // A file that doesn't open.
  void RefuseFile(std::string_view name, std::string_view detail) {
    refusedFiles_.insert_or_assign(std::string(name), detail);
  }
  // The answer to a sentence. Several answers come in turn, and the last one stays. With rows, the sentence
  // fills the result grid; row 0 describes the columns.
  void Answer(std::string_view sentence, std::string_view reply, std::optional<Grid> rows = std::nullopt,
              GridRow rowZero = {}) {
    PlanAnswer(sentence, {std::string(reply), {}, std::move(rows), std::move(rowZero)});
  }
  // The same for a sentence that fails.
  void RefuseSentence(std::string_view sentence, std::string_view detail) {
    PlanAnswer(sentence, {"ERROR", std::string(detail), Grid{}, {}});
  }
  // Lines that will be typed, in order.
  void Type(std::initializer_list<std::string_view> lines) {
    input_.insert(input_.end(), lines.begin(), lines.end());
  }
  void OutputMode(std::string_view mode) { outputMode_ = mode; }
  // Somebody else holds the lock: locked reads, writes and deletes are refused with "[920]".
  void LockByOther(std::string_view file, std::string_view id) {
    locksOfOthers_.insert(FileVar(file).append(" ").append(id));
  }
  // The next calls of an operation, named as in the border, one outcome each. Under no name: nothing.
  void NextCalls(std::string_view operation, std::initializer_list<Outcome> outcomes);

  // --- What happened since the last Forget ---

  const std::string& Calls() const { return calls_; }
  const std::string& Screen() const { return screen_; }
  int CallCount(std::string_view operation) const {
    const auto count = callCounts_.find(operation);
    return count == callCounts_.end() ? 0 : count->second;
  }
  void Forget();
  // Locks held, as "FileVar ID".
  const std::set<std::string>& Locks() const { return locks_; }

  // --- The border ---

  std::shared_ptr<SharedDictionary> GetSharedDictionary() override;
  std::string GetOutputMode() override;
  std::string GetResultCell(std::int32_t column, std::int32_t row) override;
  std::int32_t GetResultBound(std::int32_t dimension) override;
  std::string GetErrorDetail() override;
  bool ReadInput(std::string& target, std::int32_t length, bool lineEnd, float wait) override;
  void WriteOutput(std::string_view text, bool lineEnd) override;
  std::string CursorString(std::int32_t column, std::int32_t row) override;
  std::string ExecuteSentence(std::string_view sentence) override;
  VariantBool OpenFile(std::string_view name, std::string& fileVar) override;
  using Text = std::string_view;
  bool ReadItem(std::string& item, Text file, Text id) override { return Read("ReadItem", item, file, id); }
  bool ReadAttribute(std::string& value, Text file, Text id, std::int32_t at) override {
    return Read("ReadAttribute", value, file, id, at);
  }
  bool ReadItemLocked(std::string& item, Text file, Text id) override {
    return Read("ReadItemLocked", item, file, id);
  }
  bool ReadAttributeLocked(std::string& value, Text file, Text id, std::int32_t at) override {
    return Read("ReadAttributeLocked", value, file, id, at);
  }
  bool WriteItem(Text item, Text file, Text id) override { return Write("WriteItem", item, file, id); }
  bool WriteItemKeepLock(Text item, Text file, Text id) override {
    return Write("WriteItemKeepLock", item, file, id);
  }
  bool WriteAttribute(Text value, Text file, Text id, std::int32_t at) override {
    return Write("WriteAttribute", value, file, id, at);
  }
  bool WriteAttributeKeepLock(Text value, Text file, Text id, std::int32_t at) override {
    return Write("WriteAttributeKeepLock", value, file, id, at);
  }
  bool DeleteItem(Text fileVar, Text id) override;
  void ReleaseItem(Text fileVar, Text id) override;

 private:
  struct PlannedFile {
    std::string fileVar;
    Items items;
  };
  struct PlannedAnswer {
    std::string reply, detail;
    std::optional<Grid> rows;
    GridRow rowZero;
    bool used = false;
  };

  template <typename... Arguments>
  Outcome Start(std::string_view operation, const Arguments&... arguments);
  template <typename Result>
  Result End(Result result);
  [[noreturn]] void FailUnplanned(std::string_view why);
  Items& ItemsOf(std::string_view fileVar);
  bool IsRefused(const Outcome& outcome, std::string_view lock);
  void PlanAnswer(std::string_view sentence, PlannedAnswer answer);
  // What an operation does to locks is told by its name.
  using Position = std::optional<std::int32_t>;  // of the attribute; none: the whole item
  bool Read(Text operation, std::string& target, Text fileVar, Text id, Position attribute = std::nullopt);
  bool Write(Text operation, Text text, Text fileVar, Text id, Position attribute = std::nullopt);

  std::map<std::string, PlannedFile, std::less<>> files_;
  std::map<std::string, std::string, std::less<>> refusedFiles_;  // name, detail
  std::map<std::string, std::deque<PlannedAnswer>, std::less<>> answers_;
  std::map<std::string, std::deque<Outcome>, std::less<>> outcomes_;
  std::deque<std::string> input_;
  std::string outputMode_;
  std::set<std::string, std::less<>> locksOfOthers_;

  Grid grid_;
  GridRow rowZero_;
  std::set<std::string> locks_;
  std::string errorDetail_, calls_, screen_;
  std::map<std::string, int, std::less<>> callCounts_;
};

}  // namespace nvadmin::test

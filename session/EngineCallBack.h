// The engine's side of the border: what the host engine lends to the add-in.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace nvadmin {

// Truth as it crosses the border: -1 is true, 0 is false, and only exactly -1 counts as success of OpenFile.
using VariantBool = std::int16_t;
inline constexpr VariantBool kTrue = -1;
inline constexpr VariantBool kFalse = 0;

// A failed operation of the engine or of its helper, as opposed to a false answer. Nothing in the add-in
// catches it but RReadNext; it leaves Query or UMenu and reaches the engine.
struct EngineFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The dictionary object that an engine may offer; the add-in holds it and calls nothing on it.
struct SharedDictionary {
  virtual ~SharedDictionary() = default;
};

// What an engine lends to the add-in: input, output, files and sentences of one session, all used on the
// session's thread.
//
// All strings hold one character per byte of the single-byte code page (Windows-1252). Arguments may alias
// each other. A failed operation throws (EngineFailure, or whatever the engine throws), and the failure
// leaves the add-in through the member that the engine called. An expected no is a false answer, and
// GetErrorDetail tells why: it is empty after every success, and every false write or delete leaves a text.
// Operations stand in interface order.
class EngineCallBack {
 public:
  virtual ~EngineCallBack() = default;

  // May be null.
  virtual std::shared_ptr<SharedDictionary> GetSharedDictionary() = 0;
  // "HTML", exactly, means a browser; any other answer a terminal.
  virtual std::string GetOutputMode() = 0;
  // One cell of the result grid: columns from 0, rows from 1 (row 0 describes columns on a native store).
  // Throws outside the grid, row -1 and an empty grid included, and for no other reason: this is how the end
  // of a list shows, so the keys of a list and the rows of an SQL result are complete before ExecuteSentence
  // returns. A description on a native store is: heading, justification with the width behind it, conversion
  // and, if the engine can tell, the word by which the sentence named the column, parted by character 250.
  // Without the fourth piece the heading serves.
  virtual std::string GetResultCell(std::int32_t column, std::int32_t row) = 0;
  // dimension 1: highest column; 2: highest row.
  virtual std::int32_t GetResultBound(std::int32_t dimension) = 0;
  // Text of the last error, empty after a success; begins with "[920]" when a lock was refused.
  virtual std::string GetErrorDetail() = 0;
  // Waits for one line, without its end; all that was written before is out by then. "<&PORT_DISCONNECT>"
  // once the port is gone. length -1: no limit.
  virtual bool ReadInput(std::string& target, std::int32_t length, bool lineEnd, float wait) = 0;
  // lineEnd true ends the line.
  virtual void WriteOutput(std::string_view text, bool lineEnd) = 0;
  // What to print to move the cursor, column first, both from 0; (-1, -1) clears the screen, (-3, -1) clears
  // from the cursor on.
  virtual std::string CursorString(std::int32_t column, std::int32_t row) = 0;
  // Runs a TCL or SQL sentence. The result text; exactly "ERROR" on failure, exactly "OK" from LOGTO and
  // SAVE-LIST. A select-family sentence that leaves a list answers with two or more attributes. What it
  // prints goes where WriteOutput goes.
  virtual std::string ExecuteSentence(std::string_view sentence) = 0;
  // Only exactly -1 is success; fileVar is filled then and left alone otherwise. The second "."-delimited
  // word of a FileVar is the table's name; it holds no blank, and stays good for the whole session.
  virtual VariantBool OpenFile(std::string_view name, std::string& fileVar) = 0;
  // A missing item is false, with an empty item and a text in GetErrorDetail.
  virtual bool ReadItem(std::string& item, std::string_view fileVar, std::string_view id) = 0;
  virtual bool ReadAttribute(std::string& value, std::string_view fileVar, std::string_view id,
                             std::int32_t attribute) = 0;
  // The locked reads lock the ID, also of an item that doesn't exist, which leaves no text; a refused lock
  // does.
  virtual bool ReadItemLocked(std::string& item, std::string_view fileVar, std::string_view id) = 0;
  virtual bool ReadAttributeLocked(std::string& value, std::string_view fileVar, std::string_view id,
                                   std::int32_t attribute) = 0;
  // A plain write or delete by the holder releases its lock; by anybody else, while the item is locked, it is
  // refused.
  virtual bool WriteItem(std::string_view item, std::string_view fileVar, std::string_view id) = 0;
  virtual bool WriteItemKeepLock(std::string_view item, std::string_view fileVar, std::string_view id) = 0;
  virtual bool WriteAttribute(std::string_view value, std::string_view fileVar, std::string_view id,
                              std::int32_t attribute) = 0;
  virtual bool WriteAttributeKeepLock(std::string_view value, std::string_view fileVar, std::string_view id,
                                      std::int32_t attribute) = 0;
  virtual bool DeleteItem(std::string_view fileVar, std::string_view id) = 0;
  // Empty id: all locks of the file; both empty: all locks of the session.
  virtual void ReleaseItem(std::string_view fileVar, std::string_view id) = 0;
};

}  // namespace nvadmin

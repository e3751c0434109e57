// What becomes of the items of a transfer file: counts and times for each table, and a file of those that
// were refused. The session tells it of each write between the file's opening and its closing.
//
// The refused items lie in rejected/NAME below the folder of the transfer file NAME, each in a section of its
// own behind a line with the reason: the loader passes over the reasons and takes the items, once the file is
// moved up. It is replaced by the first refusal of a later load of NAME; while another program writes it, the
// name goes on with "-2" and so on. A refusal file that can't be written stops no load: the report tells why.
#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace nvadmin::engine {

class LoadRecord {
 public:
  // `folder`: where transfer files lie. `onEnd` takes a line about each load that handed something over.
  LoadRecord(std::filesystem::path folder, std::function<void(std::string_view line)> onEnd);
  ~LoadRecord();
  LoadRecord(const LoadRecord&) = delete;
  LoadRecord& operator=(const LoadRecord&) = delete;

  // A transfer file was opened: its record takes the place of the last one.
  void Begin(std::string_view path);
  bool IsUnderWay() const { return isUnderWay_; }
  // It was closed. The record is complete when what was queued is settled.
  void End();

  // An item is handed over for a file; `file` tells files apart. Then one of the two: the store has it,
  // though not on disk yet, or it was refused.
  void HandOver(std::int32_t file, std::string_view account, std::string_view table);
  void Queue() { ++tables_[current_].queued; }
  void Refuse(std::string_view id, std::string_view item, std::string_view reason);
  // What was queued is on disk now, or it is lost.
  void Settle(bool isKept);

  // The last load, in lines.
  std::vector<std::string> Report() const;

 private:
  using Clock = std::chrono::steady_clock;

  struct TableLoad {
    std::string account, table;
    std::int64_t handedOver = 0;
    std::int64_t queued = 0;
    std::int64_t written = 0;
    std::int64_t refused = 0;
    Clock::duration time{};  // while it was the table that items were handed over for
  };

  TableLoad Total() const;
  void EnterTable(std::int32_t file, std::string_view account, std::string_view table);
  void LeaveTable(Clock::time_point now);
  void OpenRejected();
  void WriteRejected();
  void CloseRejected();
  std::string TellRefused(const TableLoad& total) const;

  std::filesystem::path folder_;
  std::function<void(std::string_view)> onEnd_;

  std::string name_;           // of the transfer file; empty: none yet
  bool isOfRejected_ = false;  // it is itself a file of refused items, which isn't written while it is read
  std::time_t startedAt_ = 0;
  Clock::time_point started_, ended_;
  bool isUnderWay_ = false;
  bool isTold_ = true;
  std::vector<TableLoad> tables_;  // in the order of their first items
  std::unordered_map<std::int32_t, std::size_t> tableByFile_;
  std::int32_t currentFile_ = -1;
  std::size_t current_ = 0;  // in tables_
  Clock::time_point entered_;

  std::string rejectedName_;   // in the folder of the refused; empty: none was made
  std::string rejectedFault_;  // why it couldn't be written
  int rejected_ = -1;
  std::string rejectedLines_;  // whole ones
};

}  // namespace nvadmin::engine

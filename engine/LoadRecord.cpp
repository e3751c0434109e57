#include "engine/LoadRecord.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "engine/CodePage.h"
#include "engine/TransferFile.h"

namespace nvadmin::engine {

namespace {

constexpr std::string_view kRejectedFolder = "rejected";
constexpr int kMostRejectedFiles = 100;  // that other programs may be writing under one name
constexpr std::size_t kGatheredBytes = 65'536;

double Seconds(std::chrono::steady_clock::duration time) {
  return std::chrono::duration<double>(time).count();
}

std::string ReportRow(std::string_view account, std::string_view table, std::string_view handedOver,
                      std::string_view written, std::string_view refused, std::string_view seconds,
                      std::string_view rate) {
  return fmt::format("{:<12} {:<24} {:>11} {:>11} {:>9} {:>9} {:>9}", account, table, handedOver, written,
                     refused, seconds, rate);
}

// Opens a file for this program alone, and empties it. -1, with errno: it can't be had.
int OpenAlone(const std::filesystem::path& path) {
  // Without O_NONBLOCK a pipe that lies there would keep the session waiting.
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
  if (file < 0) return file;
  struct stat state {};
  const bool isPlain = fstat(file, &state) == 0 && S_ISREG(state.st_mode);
  if (!isPlain) errno = EINVAL;
  if (isPlain && flock(file, LOCK_EX | LOCK_NB) == 0 && ftruncate(file, 0) == 0) return file;
  const int number = errno;
  close(file);
  errno = number;
  return -1;
}

}  // namespace

LoadRecord::LoadRecord(std::filesystem::path folder, std::function<void(std::string_view line)> onEnd)
    : folder_(std::move(folder)), onEnd_(std::move(onEnd)) {}

LoadRecord::~LoadRecord() { CloseRejected(); }

void LoadRecord::Begin(std::string_view path) {
  CloseRejected();
  const std::size_t nameStart = path.find_last_of("/\\") + 1;
  name_ = path.substr(nameStart);
  isOfRejected_ = nameStart > 0 && path.substr(0, nameStart - 1).ends_with(kRejectedFolder);
  startedAt_ = std::time(nullptr);
  started_ = Clock::now();
  isUnderWay_ = true;
  isTold_ = false;
  tables_.clear();
  tableByFile_.clear();
  currentFile_ = -1;
  rejectedName_.clear();
  rejectedFault_.clear();
}

void LoadRecord::End() {
  isUnderWay_ = false;
  ended_ = Clock::now();
  LeaveTable(ended_);
}

// --- Items

void LoadRecord::HandOver(std::int32_t file, std::string_view account, std::string_view table) {
  if (file != currentFile_) EnterTable(file, account, table);
  ++tables_[current_].handedOver;
}

void LoadRecord::EnterTable(std::int32_t file, std::string_view account, std::string_view table) {
  const Clock::time_point now = Clock::now();
  LeaveTable(now);
  const auto [known, isNew] = tableByFile_.try_emplace(file, tables_.size());
  if (isNew) {
    TableLoad& load = tables_.emplace_back();
    load.account = account;
    load.table = table;
  }
  currentFile_ = file;
  current_ = known->second;
  entered_ = now;
}

void LoadRecord::LeaveTable(Clock::time_point now) {
  if (currentFile_ >= 0) tables_[current_].time += now - entered_;
  currentFile_ = -1;
}

void LoadRecord::Refuse(std::string_view id, std::string_view item, std::string_view reason) {
  TableLoad& load = tables_[current_];
  ++load.refused;
  if (rejectedName_.empty() && rejectedFault_.empty()) OpenRejected();
  if (rejected_ < 0) return;
  const TransferSection section = SectionOf(load.table);
  AppendLine(rejectedLines_, fmt::format("refused: {}", reason));
  AppendOpening(rejectedLines_, section);
  AppendItem(rejectedLines_, id, item);
  AppendClosing(rejectedLines_, section);
  if (rejectedLines_.size() >= kGatheredBytes) WriteRejected();
}

void LoadRecord::Settle(bool isKept) {
  for (TableLoad& load : tables_) {
    const std::int64_t queued = std::exchange(load.queued, 0);
    if (isKept) load.written += queued;
  }
  if (isUnderWay_ || std::exchange(isTold_, true)) return;
  CloseRejected();
  const TableLoad total = Total();
  if (total.handedOver == 0 || !onEnd_) return;
  onEnd_(fmt::format("load of {}: {} items handed over, {} written, {} refused, {:.1f} s{}", name_,
                     total.handedOver, total.written, total.refused, Seconds(ended_ - started_),
                     total.refused > 0 ? "; " + TellRefused(total) : ""));
}

// --- The file of the refused

void LoadRecord::OpenRejected() {
  const std::filesystem::path folder = folder_ / kRejectedFolder;
  const std::string onDisk = ToUtf8(name_);
  bool isTaken = mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST;
  for (int number = isOfRejected_ ? 2 : 1; isTaken && number <= kMostRejectedFiles; ++number) {
    const std::string ending = number == 1 ? "" : fmt::format("-{}", number);
    rejected_ = OpenAlone(folder / (onDisk + ending));
    isTaken = rejected_ < 0 && errno == EWOULDBLOCK;
    if (rejected_ >= 0) rejectedName_ = name_ + ending;
  }
  if (rejected_ < 0) rejectedFault_ = std::generic_category().message(errno);
}

void LoadRecord::WriteRejected() {
  for (std::string_view rest = rejectedLines_; !rest.empty() && rejected_ >= 0;) {
    const ssize_t wrote = write(rejected_, rest.data(), rest.size());
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote < 0) {
      rejectedFault_ = std::generic_category().message(errno);
      close(std::exchange(rejected_, -1));
      break;
    }
    rest.remove_prefix(static_cast<std::size_t>(wrote));
  }
  rejectedLines_.clear();
}

void LoadRecord::CloseRejected() {
  WriteRejected();
  if (rejected_ >= 0) close(std::exchange(rejected_, -1));
}

// --- The report

LoadRecord::TableLoad LoadRecord::Total() const {
  TableLoad total;
  for (const TableLoad& load : tables_) {
    total.handedOver += load.handedOver;
    total.written += load.written;
    total.refused += load.refused;
    total.time += load.time;
  }
  return total;
}

std::string LoadRecord::TellRefused(const TableLoad& total) const {
  std::string told;
  if (!rejectedName_.empty())
    told = fmt::format("the refused stand in TransferBulk/{}/{}", kRejectedFolder, rejectedName_);
  if (!rejectedFault_.empty()) {
    told +=
        fmt::format("{}not all of the {} refused could be written to TransferBulk/{}: {}",
                    told.empty() ? "" : "; ", total.refused, kRejectedFolder, ForeignText(rejectedFault_));
  }
  return told;
}

std::vector<std::string> LoadRecord::Report() const {
  if (name_.empty()) return {"no transfer file was loaded in this session"};
  std::tm local{};
  localtime_r(&startedAt_, &local);
  char moment[32];
  std::strftime(moment, sizeof moment, "%d %b %Y %H:%M:%S", &local);
  const Clock::time_point end = isUnderWay_ ? Clock::now() : ended_;

  std::vector<std::string> lines;
  lines.push_back(fmt::format("{} at {}, {:.1f} s", name_, moment, Seconds(end - started_)));
  if (tables_.empty()) {
    lines.push_back("no items were handed over");
    return lines;
  }
  lines.push_back(ReportRow("Account", "File", "Handed over", "Written", "Refused", "Seconds", "Items/s"));
  const auto addRow = [&lines](const TableLoad& load) {
    const double seconds = Seconds(load.time);
    const double rate = seconds > 0 ? static_cast<double>(load.handedOver) / seconds : 0;
    lines.push_back(ReportRow(load.account, load.table, std::to_string(load.handedOver),
                              std::to_string(load.written), std::to_string(load.refused),
                              fmt::format("{:.2f}", seconds), fmt::format("{:.0f}", rate)));
  };
  std::for_each(tables_.begin(), tables_.end(), addRow);
  TableLoad total = Total();
  total.account = "Total";
  addRow(total);
  if (total.refused > 0) lines.push_back(TellRefused(total));
  const std::int64_t lost = total.handedOver - total.written - total.refused;
  if (lost > 0) lines.push_back(fmt::format("{} were lost with the failure that ended the load", lost));
  return lines;
}

}  // namespace nvadmin::engine

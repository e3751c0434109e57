// One connection to a MariaDB database: statements that the server prepares and keeps, and what they answer.
// It knows hosts, statements and failures; nothing of items. Texts are bytes of the code page both ways: the
// connection's character set is the server's latin1, which maps all 256 bytes.
//
// Invariants: (1) An answer is fetched whole before a routine returns, so the connection is always free for
// the next statement. (2) Nothing is sent twice that may have had an effect: a routine connects anew, and
// says the same again, only where its caller allows that. (3) A connection that failed is closed at once; the
// next routine makes another, to the first host that answers and is in step with its cluster, if it is of
// one.
//
// Not for several threads at once, Interrupt apart.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/stores/MariaAddress.h"
#include "engine/stores/Store.h"

struct st_mysql;

namespace nvadmin::engine {

// The code is the server's or the client library's.
class MariaFailure : public StoreFailure {
 public:
  // `place` is what the text of the failure begins with.
  MariaFailure(std::string_view reason, unsigned code, std::string_view place = {})
      : StoreFailure(std::string(place).append(reason)), code_(code), reason_(reason) {}
  unsigned Code() const { return code_; }
  const std::string& Reason() const { return reason_; }
  // The connection is gone, or the server can't answer now.
  bool IsLost() const;
  // The server means the statement, not its own state.
  bool IsRefusal() const;

 private:
  unsigned code_;
  std::string reason_;
};

namespace maria_error {
inline constexpr unsigned kNotReady = 1047, kNull = 1048, kUnknownColumn = 1054, kNoSuchTable = 1146,
                          kNoSuchIndex = 1176, kTableChanged = 1412, kUnknownTable = 1109,
                          kResultTooLarge = 1104, kDeadlock = 1213, kLockWait = 1205, kDuringCommit = 1180,
                          kInterrupted = 1317, kReadOnly = 1290, kTooLarge = 1301, kTooLong = 1969;
}

// A name as SQL that a message gives takes it.
std::string QuoteIfNeeded(std::string_view name);

inline constexpr const char* kReadOnlyServer =
    "the server is read-only, a replica perhaps; name the one that takes writes in the account's address";

// Rows of an answer, all of them.
class MariaRows {
 public:
  std::size_t Count() const { return columns_ == 0 ? 0 : cells_.size() / columns_; }
  std::size_t Columns() const { return columns_; }
  // Valid as long as the rows. NULL is an empty text.
  std::string_view Text(std::size_t row, std::size_t column) const;
  bool IsNull(std::size_t row, std::size_t column) const { return CellAt(row, column).isNull; }
  std::int64_t Integer(std::size_t row, std::size_t column) const;
  std::size_t Bytes() const { return bytes_.size(); }

 private:
  friend class MariaConnection;
  struct Cell {
    std::size_t start;
    std::uint32_t size;
    bool isNull;
  };
  const Cell& CellAt(std::size_t row, std::size_t column) const { return cells_[row * columns_ + column]; }

  std::size_t columns_ = 0;
  std::vector<Cell> cells_;
  std::string bytes_;
};

enum class IfLost {
  kFail,
  kAgain,  // once, over a new connection
};

class MariaConnection {
 public:
  // Connects with the first statement. `name` is what messages call the database.
  MariaConnection(MariaAddress address, std::string password, std::string name);
  ~MariaConnection();
  MariaConnection(const MariaConnection&) = delete;
  MariaConnection& operator=(const MariaConnection&) = delete;

  const MariaAddress& Address() const { return address_; }
  void Connect();
  void Close() noexcept;
  // False: the next statement connects, which may take as long as all hosts together may.
  bool IsOpen() const { return handle_ != nullptr; }
  // Counts the connections made.
  std::uint64_t Generation() const { return generation_; }
  // The server that answers now.
  std::string Server() const;
  // Whether it is a node of a cluster; as of the last connection. Each read on it sees what was committed on
  // any node before.
  bool IsClustered() const { return node_ != NodeState::kAlone; }
  // In bytes, that a statement can hold beside what belongs to it; as of the last connection.
  std::size_t LargestText() const { return largestText_; }
  // That `what` is larger than that.
  std::string TooLarge(std::string_view what, std::size_t size) const;

  // A statement that the server prepares, at its first use on this connection. Parameters are texts.
  MariaRows Query(const std::string& sql, std::span<const std::string_view> parameters, IfLost ifLost);
  // The number of rows that it met, those included that were already as it makes them.
  std::uint64_t Change(const std::string& sql, std::span<const std::string_view> parameters, IfLost ifLost);
  // The same statement for several rows of parameters, in one message. parameters[row * width + column].
  void ChangeMany(const std::string& sql, std::size_t width, std::span<const std::string_view> parameters);
  // A statement as it stands.
  void Execute(std::string_view sql, IfLost ifLost);
  // A statement as it stands, interruptible; its rows are handed out one by one. False from `row` ends it.
  // Returns the number of rows it met. `startRows` is told the number of columns when there are any.
  template <typename Start, typename Row>
  std::uint64_t Run(std::string_view sql, const Start& startRows, const Row& row);

  // While it lives, Interrupt ends the statement under way.
  class Interruptible;
  void Interrupt() noexcept;

 private:
  struct Prepared;
  // Busy: it takes statements, but catches up with the other nodes or hands its state to one.
  enum class NodeState { kBusy, kSynced, kAlone };

  bool ConnectTo(const MariaHost& host, std::string& failure, unsigned& code);
  bool ConnectToFirst(NodeState least, std::string& failures, bool& isBusyThere);
  void SetUpSession();
  void LearnNode();
  Prepared* FindPrepared(const std::string& sql);
  Prepared& AddPrepared(const std::string& sql);
  Prepared& Prepare(const std::string& sql);
  Prepared& ExecutePrepared(const std::string& sql, std::span<const std::string_view> parameters);
  void Forget(const Prepared& prepared);
  MariaRows Fetch(Prepared& prepared);
  void RefuseLarge(std::size_t size) const;
  [[noreturn]] void Fail(unsigned code, std::string_view text);
  [[noreturn]] void FailStatement(Prepared& prepared);
  template <typename Action>
  auto Attempt(IfLost ifLost, const Action& action);
  std::uint64_t StartRun(std::string_view sql, std::size_t& columns);
  bool NextOfRun(std::vector<std::string_view>& cells);
  void EndRun() noexcept;

  MariaAddress address_;
  std::string password_;
  std::string name_;
  st_mysql* handle_ = nullptr;
  void* result_ = nullptr;  // of a Run
  std::uint64_t generation_ = 0;
  std::size_t host_ = 0;  // the last that answered
  std::size_t largestText_ = 0;
  NodeState node_ = NodeState::kAlone;
  std::list<std::unique_ptr<Prepared>> prepared_;  // the last used first
  int interruptSignal_ = -1;                       // an eventfd
};

// Opens a second connection when it must end a statement.
class MariaConnection::Interruptible {
 public:
  explicit Interruptible(MariaConnection& connection);
  ~Interruptible();
  Interruptible(const Interruptible&) = delete;
  Interruptible& operator=(const Interruptible&) = delete;

 private:
  struct Watch;
  std::unique_ptr<Watch> watch_;
};

template <typename Start, typename Row>
std::uint64_t MariaConnection::Run(std::string_view sql, const Start& startRows, const Row& row) {
  std::size_t columns = 0;
  const std::uint64_t changed = StartRun(sql, columns);
  if (columns == 0) return changed;
  struct End {
    MariaConnection& connection;
    ~End() { connection.EndRun(); }
  } const end{*this};
  startRows(columns);
  std::vector<std::string_view> cells(columns);
  while (NextOfRun(cells) && row(cells)) {
  }
  return 0;
}

}  // namespace nvadmin::engine

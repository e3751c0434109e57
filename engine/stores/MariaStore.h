// The store of an account whose data lie in a MariaDB database.
//
// A file is a table: Type-C (A0, A1 ... An, further attributes joined in one column) or Type-N (A0, ITEM);
// what holds of its columns is in engine/stores/MariaCatalogue.h. Texts lie there as the bytes of the code
// page.
//
// A round trip costs as much as a hundred reads from a file, so: a batch is one statement; a scan fetches
// keys and values in chunks, within one snapshot; writes are gathered and sent together, before anything is
// read and at the commit. Only tables that can't refuse an item that fits are gathered for: those made here,
// unless somebody gave them a constraint or a trigger. The others are written to at once.
//
// Invariants: (1) One session of all on the database writes at a time: who has its row in nvadmin_state
// locked, from BeginWrites to Commit. So nobody meets a deadlock, and what is read in between can be written
// back. In a cluster the row lock is of one node, so there each changes the row as well: of two sessions that
// write on two nodes at a time, the cluster lets one commit. (2) Descriptions belong to a version of the
// tables, which comes along with every read: what is outdated is forgotten and read again. (3) A read is sent
// anew over a new connection, if the old one is lost; nothing is while a transaction is open: its writes are
// lost then, and every routine says so.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engine/stores/Maria.h"
#include "engine/stores/MariaCatalogue.h"
#include "engine/stores/SentenceStore.h"

namespace nvadmin::engine {

class MariaStore final : public SentenceStore {
 public:
  // Connects, and makes what the database lacks to be an account's. `account` is shown in messages.
  MariaStore(MariaAddress address, std::string password, std::string_view account);
  ~MariaStore() override;

  bool OpenTable(std::string_view name, TableHandle& table, std::string& error) override;
  const TableDescription& Describe(TableHandle table) override;
  std::vector<std::string> TableNames(bool withDictionaries) override;
  bool Read(TableHandle table, std::string_view id, std::string& item) override;
  bool ReadAttribute(TableHandle table, std::string_view id, std::int32_t attribute,
                     std::string& value) override;
  void ReadBatch(TableHandle table, std::span<const std::string_view> ids,
                 std::vector<BatchItem>& items) override;
  void LeaveOutMissing(TableHandle table, std::vector<std::string_view>& ids) override;
  void Scan(TableHandle table, const Projection& projection, const ScanVisitor& visitor) override;
  void BeginWrites() override;
  bool HasOpenWrites() const override { return writesAreOpen_; }
  void Commit() override;
  void Rollback() override;
  bool Write(TableHandle table, std::string_view id, std::string_view item, std::string& error) override;
  bool Erase(TableHandle table, std::string_view id, std::string& error) override;
  bool CreateTable(std::string_view name, std::int32_t columns, std::string& error) override;
  bool DropTable(std::string_view name, std::string& error) override;
  bool ClearTable(std::string_view name, std::string& error) override;
  bool RunSql(std::string_view statement, ResultGrid& grid, bool& isQuery, std::string& message,
              std::string& error) override;
  void Interrupt() noexcept override { connection_.Interrupt(); }

 private:
  struct OpenedTable;
  struct ScanPlan;
  class Snapshot;

  static constexpr std::string_view kLostWrites = "the writes since the last commit are lost";

  // Gathered writes to one table: rows of parameters.
  struct Gathered {
    OpenedTable* table = nullptr;
    std::string bytes;
    std::vector<std::size_t> ends;  // of the parameters, in `bytes`
    std::size_t rows = 0;

    // They point into this.
    std::vector<std::string_view> Parameters() const;
  };

  IfLost Again() const { return writesAreOpen_ || scans_ > 0 ? IfLost::kFail : IfLost::kAgain; }
  // Runs what talks to the server; what fails within open writes takes them along, and says so.
  template <typename Action>
  auto Guarded(const Action& action) {
    try {
      return action();
    } catch (const MariaFailure& failure) {
      const bool isRolledBack = failure.IsLost() || failure.Code() == maria_error::kDeadlock;
      if (!writesAreOpen_ || !isRolledBack) throw;
      writesAreOpen_ = false;
      gathered_ = {};
      throw StoreFailure(std::string(failure.what()).append("; ").append(kLostWrites));
    }
  }

  void NoteVersion(std::int64_t version);
  void ForgetTables();
  OpenedTable& Use(TableHandle table);
  OpenedTable& UseToRead(TableHandle table);
  void Refresh(OpenedTable& opened);
  bool OpenKey(const std::string& key, TableHandle& table, std::string& error);
  bool FindExisting(std::string_view name, MariaCatalogue::Found& found, std::string& error);

  // False: the table isn't what it was described as, which is forgotten.
  template <typename Action>
  bool ReadAsDescribed(const Action& action);
  bool ReadRows(OpenedTable& opened, const std::string& values, std::span<const std::string_view> ids,
                MariaRows& rows);
  bool FindRow(TableHandle table, std::string_view id, const std::string& (*values)(OpenedTable&),
               std::string& value);
  ScanPlan MakePlan(const OpenedTable& opened, const Projection& projection) const;
  bool ReadChunk(const ScanPlan& plan, const std::string* behind, std::size_t rows, MariaRows& chunk);
  bool RunScan(const ScanPlan& plan, const ScanVisitor& visitor);

  // Runs a change of whole tables, which the server commits by itself, when it is this session's turn to
  // write.
  template <typename Change>
  bool ChangeTables(const Change& change);
  bool IsWritable(const OpenedTable& opened, std::string& error) const;
  void Gather(OpenedTable& opened, std::string_view id);
  void SendGathered();
  bool SendOne(const OpenedTable& opened, std::string_view id, std::string& error);

  bool MakeTable(const NewTable& table, std::string& error) override;
  bool DropIfThere(std::string_view candidate, bool& isThere, std::string& error) override;
  bool RunOtherSql(std::string_view statement, const std::vector<SqlToken>& tokens, ResultGrid& grid,
                   bool& isQuery, std::string& message, std::string& error) override;
  std::string NoSuchTable(std::string_view name) override;
  std::string RefuseReach(const std::vector<SqlToken>& tokens);
  std::string RefuseDatabases(const std::vector<SqlToken>& tokens);
  std::uint64_t FillGrid(std::string_view sql, ResultGrid& grid);

  std::string account_;
  MariaConnection connection_;
  MariaCatalogue catalogue_{connection_};
  std::int64_t knownVersion_ = -1;

  std::vector<std::unique_ptr<OpenedTable>> tables_;
  std::unordered_map<std::string, TableHandle> handles_;  // by name in small letters
  bool writesAreOpen_ = false;
  std::int32_t scans_ = 0;  // under way, one within the other
  Gathered gathered_;
  std::vector<std::string_view> columns_;  // kept for its memory
};

}  // namespace nvadmin::engine

// Items in the tables of one SQLite file: what the stores of an embedded account share, whatever their files
// are called and however their tables are declared. Opens and claims the file, keeps tables and statements,
// reads, scans, writes, and takes SQL as far as all stores agree on it.
//
// A table has the key A0 and either A1 ... An or ITEM. Its texts lie there in one of two forms: as UTF-8, a
// character for each byte of the code page, or as the bytes themselves.
//
// Invariants: (1) Descriptions and statements belong to one version of the schema. Another session may change
// it at any time: it is compared at the start of each write transaction, and after a read whenever SQLite had
// to prepare the statement anew. What is outdated is then forgotten and the operation done again. So a store
// changes what a table is called, or how it is declared, together with the schema only. (2) No statement
// holds the database between two calls.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engine/stores/SentenceStore.h"
#include "engine/stores/Sqlite.h"

namespace nvadmin::engine {

class ScanClauses;

class ItemTables : public SentenceStore {
 public:
  ~ItemTables() override;

  // From now on a commit is answered before it is on the disk (Synchronous::kNormal).
  void RelaxCommits() { database_.Execute("PRAGMA synchronous=NORMAL"); }

  bool OpenTable(std::string_view name, TableHandle& table, std::string& error) override;
  const TableDescription& Describe(TableHandle table) override;
  bool Read(TableHandle table, std::string_view id, std::string& item) override;
  bool ReadAttribute(TableHandle table, std::string_view id, std::int32_t attribute,
                     std::string& value) override;
  void ReadBatch(TableHandle table, std::span<const std::string_view> ids,
                 std::vector<BatchItem>& items) override;
  void LeaveOutMissing(TableHandle table, std::vector<std::string_view>& ids) override;
  void Scan(TableHandle table, const Projection& projection, const ScanVisitor& visitor) override;
  bool ScanInOrder(TableHandle table, const Projection& projection, const ScanOrder& order,
                   const ScanVisitor& visitor) override;
  void BeginWrites() override;
  bool HasOpenWrites() const override { return writesAreOpen_; }
  void Commit() override;
  void Rollback() override;
  bool Write(TableHandle table, std::string_view id, std::string_view item, std::string& error) override;
  bool Erase(TableHandle table, std::string_view id, std::string& error) override;
  bool RunSql(std::string_view statement, ResultGrid& grid, bool& isQuery, std::string& message,
              std::string& error) override;
  void Interrupt() noexcept override;

 protected:
  // What tells the stores apart.
  struct Kind {
    std::string_view noun;           // "an account", "a native account"
    std::int64_t applicationId = 0;  // in the file's head
    bool keepsBytes = false;         // texts are blobs of the code page
    std::size_t longestItem = 0;     // in bytes, within SQLite's limit of a row
    const char* makeCatalogue = "";  // SQL for a new file
  };
  // A table by what tables_ knows it under: two names with one key are one table.
  struct TableKey {
    std::string key;
    std::string shown;  // the name for the message that there is none
  };
  // What a store tells of a table.
  struct FoundTable {
    TableDescription description;
    std::string sqlName;  // in UTF-8
    std::string fault;    // why it can't be used as a file; empty: it can
  };

  // Opens the file, or makes it. Fails when it is damaged, or a database that isn't of this kind.
  ItemTables(const std::filesystem::path& file, std::string_view account, const Kind& kind);

  // The keys that a name may stand for, the best first; at least one.
  virtual std::vector<TableKey> KeysOf(std::string_view name) = 0;
  // Looks for the table of a key, within a read transaction, and reads from the file before anything else:
  // that makes SQLite look at the file's schema, not at the one that this connection has seen before. False:
  // there is none.
  virtual bool FindTable(const std::string& key, FoundTable& found) = 0;
  // True when the schema isn't the one that descriptions and statements belong to; they are then forgotten.
  bool SchemaChanged();
  void ForgetTables();
  std::string NoSuchTable(std::string_view name) override;

  // Holds one state of the database for several reads, unless a transaction holds it already.
  class ReadTransaction;

  const std::string& AccountName() const { return account_; }
  Database& Connection() { return database_; }
  const Database& Connection() const { return database_; }

  std::string refusal_;  // what the connection's authorizer refused of the statement under way
  std::atomic<bool> interrupted_ = false;  // since the user's statement came

 private:
  struct OpenedTable;
  struct ScanPlan;
  class ScanRow;
  enum class Row { kFound, kNone, kOutdated };

  void ClaimFile(const std::filesystem::path& file);

  OpenedTable& Use(TableHandle table);
  void Refresh(OpenedTable& opened);
  bool OpenKey(const TableKey& key, TableHandle& table, std::string& error);

  Row StepToRow(Statement& statement);
  bool PrepareRead(Statement& statement, const std::string& sql);
  Row FindRow(OpenedTable& opened, std::size_t slot, std::string_view id);
  ScanPlan TakePlan(OpenedTable& opened, const Projection& projection, const ScanClauses& clauses);
  bool RunScan(ScanPlan& plan, bool isSorted, const ScanVisitor& visitor);
  bool ScanTable(TableHandle table, const Projection& projection, const ScanOrder* order,
                 const ScanVisitor& visitor);

  void CheckOpenWrites();
  void BindKey(Statement& statement, std::string_view id);
  void BindColumn(Statement& statement, int parameter, std::string_view stored) const;
  void ConvertColumns();
  static std::string WriteSql(const OpenedTable& opened);
  bool PrepareChange(Statement& statement, const std::string& sql, const OpenedTable& opened,
                     std::string_view id, std::string& error);
  bool IsWritable(const OpenedTable& opened, std::string& error) const;
  bool StepChange(Statement& statement, const OpenedTable& opened, std::string_view id, std::string& error);

  std::string account_;
  Kind kind_;
  Database database_;
  Statement schemaVersion_;
  Statement beginRead_;
  Statement endRead_;
  std::int64_t knownSchema_ = 0;
  std::uint64_t generation_ = 0;  // goes up whenever the tables are forgotten

  std::vector<std::unique_ptr<OpenedTable>> tables_;
  std::unordered_map<std::string, TableHandle> handles_;  // by key
  bool writesAreOpen_ = false;
  std::uint64_t changes_ = 0;  // goes up with each write and erase

  // Kept for their memory.
  std::string keyText_;
  std::string columnText_;
  std::vector<std::string_view> columns_;
  std::vector<std::size_t> columnEnds_;
};

class ItemTables::ReadTransaction {
 public:
  explicit ReadTransaction(ItemTables& store);
  ~ReadTransaction();
  ReadTransaction(const ReadTransaction&) = delete;
  ReadTransaction& operator=(const ReadTransaction&) = delete;

 private:
  ItemTables& store_;
  bool isOurs_;
};

}  // namespace nvadmin::engine

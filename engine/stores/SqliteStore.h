// The store of an embedded account: one SQLite file, for the relational datastore words.
//
// A file is a table: Type-C (A0, A1 ... An; WITHOUT ROWID, as its rows are short) or Type-N (A0, ITEM). Text
// is kept as UTF-8, a character for each byte of the code page, so that other tools read it and LIKE and
// substr count right. Which layout and which limits a table has is read from its declaration alone, so that
// tables made by hand with SQL are files as well.
//
// Invariants: (1) Descriptions and statements belong to one version of the schema. Another session may change
// it at any time: it is compared at the start of each write transaction, and after a read whenever SQLite had
// to prepare the statement anew. What is outdated is then forgotten and the operation done again. (2) No
// statement holds the database between two calls. (3) What a user's SQL may do is decided by the connection's
// authorizer, also inside views and triggers.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engine/stores/SqlText.h"
#include "engine/stores/Sqlite.h"
#include "engine/stores/Store.h"

namespace nvadmin::engine {

class SqliteStore final : public Store {
 public:
  // Opens the file, or makes it. Fails when it is damaged, or a database that isn't an account's.
  // `account` is shown in messages; `datastore` is the account's word, which chooses the dialect of RunSql.
  SqliteStore(const std::filesystem::path& file, std::string_view account, std::string_view datastore);
  ~SqliteStore() override;

  bool OpenTable(std::string_view name, TableHandle& table, std::string& error) override;
  const TableDescription& Describe(TableHandle table) override;
  std::vector<std::string> TableNames(bool withDictionaries) override;
  bool Read(TableHandle table, std::string_view id, std::string& item) override;
  bool ReadAttribute(TableHandle table, std::string_view id, std::int32_t attribute,
                     std::string& value) override;
  void ReadBatch(TableHandle table, std::span<const std::string_view> ids,
                 std::vector<BatchItem>& items) override;
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
  void Interrupt() noexcept override;

 private:
  struct OpenedTable;
  struct ScanPlan;
  class ScanRow;
  class ReadTransaction;
  enum class Row { kFound, kNone, kOutdated };

  void ClaimFile(const std::filesystem::path& file);

  bool SchemaChanged();
  void ForgetTables();
  OpenedTable& Use(TableHandle table);
  bool FindTable(std::string_view folded, std::string& spelling, std::string& type);
  void Refresh(OpenedTable& opened);
  void DescribeColumns(OpenedTable& opened, std::string_view spelling);
  bool OpenCandidate(const std::string& folded, TableHandle& table, std::string& error);

  Row StepToRow(Statement& statement);
  bool PrepareRead(Statement& statement, const std::string& sql);
  Row FindRow(OpenedTable& opened, std::size_t slot, std::string_view id);
  ScanPlan TakePlan(OpenedTable& opened, const Projection& projection);
  bool RunScan(ScanPlan& plan, const ScanVisitor& visitor);

  void CheckOpenWrites();
  void ConvertColumns();
  static std::string WriteSql(const TableDescription& table);
  bool PrepareChange(Statement& statement, const std::string& sql, const OpenedTable& opened,
                     std::string_view id, std::string& error);
  bool IsWritable(const OpenedTable& opened, std::string& error) const;
  bool StepChange(Statement& statement, const OpenedTable& opened, std::string_view id, std::string& error);

  bool RunOwnStatement(const std::string& sql, std::string& error);
  bool FindExisting(std::string_view name, std::string& spelling, std::string& error);
  bool MakeTable(const NewTable& table, std::string& error);

  static int Authorize(void* store, int action, const char* first, const char* second, const char* database,
                       const char* inner);
  bool RunSentence(std::string_view statement, const std::vector<SqlToken>& tokens, ResultGrid& grid,
                   bool& isQuery, std::string& message, std::string& error);
  bool DropBareName(std::string_view name, bool& isOurs, std::string& message, std::string& error);
  bool RunPreparedSql(std::string_view statement, const std::vector<SqlToken>& tokens, ResultGrid& grid,
                      bool& isQuery, std::string& message, std::string& error);
  bool FillGrid(sqlite3_stmt* statement, ResultGrid& grid, int& code);
  bool SqlFailed(int code, const RewrittenSql& rewritten, std::string_view utf8, std::string& error) const;

  std::string account_;
  bool hasTop_ = false;  // the dialect knows SELECT TOP
  Database database_;
  Statement schemaVersion_;
  Statement beginRead_;
  Statement endRead_;
  Statement findTable_;
  Statement listColumns_;
  Statement listTables_;
  std::int64_t knownSchema_ = 0;
  std::uint64_t generation_ = 0;  // goes up whenever the tables are forgotten

  std::vector<std::unique_ptr<OpenedTable>> tables_;
  std::unordered_map<std::string, TableHandle> handles_;  // by folded name
  bool writesAreOpen_ = false;
  std::uint64_t changes_ = 0;  // goes up with each write and erase
  bool isGuarded_ = false;     // a user's SQL is being prepared or run
  std::string refusal_;        // what the authorizer refused of it
  std::string noted_;          // what it makes or drops, as a message

  // Kept for their memory.
  std::string keyText_;
  std::string columnText_;
  std::vector<std::string_view> columns_;
  std::vector<std::size_t> columnEnds_;
};

}  // namespace nvadmin::engine

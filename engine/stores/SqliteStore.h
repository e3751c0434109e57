// The store of an embedded account with a relational datastore word.
//
// A file is a table: Type-C (A0, A1 ... An; WITHOUT ROWID, as its rows are short) or Type-N (A0, ITEM). Text
// is kept as UTF-8, a character for each byte of the code page, so that other tools read it and LIKE and
// substr count right. Which layout and which limits a table has is read from its declaration alone, so that
// tables made by hand with SQL are files as well. What a user's SQL may do is decided by the connection's
// authorizer, also inside views and triggers.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "engine/stores/ItemTables.h"

namespace nvadmin::engine {

class SqliteStore final : public ItemTables {
 public:
  // Opens the file, or makes it. Fails when it is damaged, or a database that isn't such an account's.
  // `account` is shown in messages; `datastore` is the account's word, which chooses the dialect of RunSql.
  SqliteStore(const std::filesystem::path& file, std::string_view account, std::string_view datastore);

  std::vector<std::string> TableNames(bool withDictionaries) override;
  bool CreateTable(std::string_view name, std::int32_t columns, std::string& error) override;
  bool DropTable(std::string_view name, std::string& error) override;
  bool ClearTable(std::string_view name, std::string& error) override;

 private:
  std::vector<TableKey> KeysOf(std::string_view name) override;
  bool FindTable(const std::string& key, FoundTable& found) override;
  bool MakeTable(const NewTable& table, std::string& error) override;
  bool DropIfThere(std::string_view candidate, bool& isThere, std::string& error) override;
  bool RunOtherSql(std::string_view statement, const std::vector<SqlToken>& tokens, ResultGrid& grid,
                   bool& isQuery, std::string& message, std::string& error) override;

  bool FindSpelling(std::string_view folded, std::string& spelling, std::string& type);
  void DescribeColumns(std::string_view spelling, FoundTable& found);
  bool FindExisting(std::string_view name, std::string& spelling, std::string& error);
  bool RunOwnStatement(const std::string& sql, std::string& error);

  static int Authorize(void* store, int action, const char* first, const char* second, const char* database,
                       const char* inner);
  bool FillGrid(sqlite3_stmt* statement, ResultGrid& grid, int& code);
  bool SqlFailed(int code, const RewrittenSql& rewritten, std::string_view utf8, std::string& error) const;

  bool hasTop_ = false;  // the dialect knows SELECT TOP
  Statement findTable_;
  Statement listColumns_;
  Statement listTables_;
  bool isGuarded_ = false;  // a user's SQL is being prepared or run
  std::string noted_;       // what it makes or drops, as a message
};

}  // namespace nvadmin::engine

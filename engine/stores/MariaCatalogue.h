// What a MariaDB database knows of the files in it. The database is an account's when it has our own tables:
//
// 1. nvadmin_state: one row. Who has it locked is the one that writes; its version goes up with each
//    change of a table.
// 2. nvadmin_files: how the tables made here were declared.
// 3. nvadmin_programs, nvadmin_locks: engine/ServerLocks.h.
//
// A server's row holds some 8,000 bytes, of a long text at least 40. So a table made here has its A-columns
// as LONGTEXT, kMostRealColumns of them at most, and keeps further attributes joined in one column more,
// kRestColumn. What was declared stands in nvadmin_files, under the number in the table's comment: a table
// made by hand, also under the name of one that is gone, has none and is described by its real columns.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/stores/Maria.h"
#include "engine/stores/SqlText.h"

namespace nvadmin::engine {

inline constexpr std::int32_t kMostRealColumns = 150;
inline constexpr std::string_view kRestColumn = "A+";
// Behind what was lost while the server changed a table.
inline constexpr std::string_view kUnknownChange =
    "whether the change of the table is done is not known: look";

class MariaCatalogue {
 public:
  struct Found {
    TableDescription description;
    std::string sqlName;           // quoted
    bool isTable = false;          // not a view, and not built in
    std::string fault;             // why it can't be used as a file; empty: it can
    std::int64_t number = 0;       // in nvadmin_files; 0: made by hand
    std::int32_t realColumns = 0;  // A1 and up, or 1 for ITEM
    bool hasRest = false;          // attributes beyond realColumns lie in kRestColumn
    bool hasOthers = false;        // columns that are none of a file's
    bool mayRefuse = true;         // an item that fits, for a constraint, trigger or column by hand
    std::vector<bool> mayBeNull;   // of A1 and up, or ITEM
  };

  explicit MariaCatalogue(MariaConnection& connection) : connection_(connection) {}

  // Makes our own tables where they are missing. Fails with FindObstacle's text.
  void Claim();
  // Why the database can't be an account's, with the way out: it holds others' tables, has another character
  // set, or has lost what its files can't do without; empty: it can.
  std::string FindObstacle();

  // Of the tables: the first column of an answer in which it comes along. Fails when there is none, since the
  // database is no account's any more.
  std::int64_t VersionIn(const MariaRows& rows) const;
  std::int64_t Version();
  // False: there is no table of that name in small letters.
  bool Find(std::string_view folded, Found& found);
  // All that may be files, as they are spelled, in no order.
  std::vector<std::string> Names();
  // Each is on disk when it returns, and the first two raise the version. What the server refuses is in
  // `error`.
  bool Make(const NewTable& table, std::string& error);
  bool Drop(const Found& found, std::string& error);
  bool Clear(const Found& found, std::string& error);
  // Behind a change of tables: what sessions know of them they read anew.
  void RaiseVersion();

 private:
  bool IsWhole();
  std::string EmptyState() const;
  bool FindSpelling(std::string_view folded, std::string& spelling, std::string& type, std::int64_t& number);
  std::string ReadColumns(std::string_view spelling, Found& found);
  std::string TakeDeclared(std::string_view spelling, Found& found);
  bool RunOwn(const std::string& sql, std::string& error);

  MariaConnection& connection_;
};

// Our own tables, which are no files.
bool IsReservedName(std::string_view folded);

}  // namespace nvadmin::engine

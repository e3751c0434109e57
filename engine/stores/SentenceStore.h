// What all stores do alike with an SQL sentence before their database sees it: refuse what no sentence may
// do, and read CREATE TABLE and DROP TABLE of a file, whose names are bare. The rest is the store's own.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "engine/stores/SqlText.h"
#include "engine/stores/Store.h"

namespace nvadmin::engine {

class SentenceStore : public Store {
 protected:
  // The two SQL statements about whole files. `candidate` is a name as the sentence holds it; `isThere` tells
  // whether it is a file's.
  virtual bool MakeTable(const NewTable& table, std::string& error) = 0;
  virtual bool DropIfThere(std::string_view candidate, bool& isThere, std::string& error) = 0;
  // Any other statement that isn't refused on every store. As RunSql, but that it needn't clear the grid.
  virtual bool RunOtherSql(std::string_view statement, const std::vector<SqlToken>& tokens, ResultGrid& grid,
                           bool& isQuery, std::string& message, std::string& error) = 0;
  // Why a name opens no table.
  virtual std::string NoSuchTable(std::string_view name) = 0;

  // As RunSql.
  bool RunSentence(std::string_view statement, ResultGrid& grid, bool& isQuery, std::string& message,
                   std::string& error);

  // Whether a new file can have that name.
  static bool IsFileName(std::string_view name, std::string& error);
  // Whether something stands behind the statement's end; then `error` tells of it.
  static bool HasSecondStatement(std::string_view behindFirst, std::string& error);

  static constexpr std::string_view kNoStatement = "there is no SQL statement";

 private:
  bool TakeSentence(std::string_view statement, const std::vector<SqlToken>& tokens, ResultGrid& grid,
                    bool& isQuery, std::string& message, std::string& error);
  bool DropBareName(std::string_view name, bool& isOurs, std::string& message, std::string& error);
};

// "x is built in and can't be changed".
std::string BuiltInRefusal(std::string_view name);

}  // namespace nvadmin::engine

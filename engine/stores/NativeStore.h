// The store of an embedded account with a native datastore word (MV...).
//
// A catalogue lists the files under their names as they were given (MY.FILE-1, DICT CUSTOMERS); letter case
// keeps no two apart. The items of a file lie whole, byte for byte, in a table whose name is made of a number
// that is never used again, so no file name reaches SQL. Nothing limits attributes, texts or item IDs.
//
// A file is also found under the name that it would have in a relational account (my_file_1, customers_dict,
// in any letters), unless that is a file's own name or could mean several: an add-in whose account changed
// under it goes on asking so. For the same reason the CREATE TABLE and DROP TABLE of a file are taken, of
// whatever layout; all other SQL is refused.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/stores/ItemTables.h"
#include "engine/stores/TableNames.h"

namespace nvadmin::engine {

class NativeStore final : public ItemTables {
 public:
  // Opens the file, or makes it. Fails when it is damaged, or a database that isn't a native account's.
  // `account` is shown in messages.
  NativeStore(const std::filesystem::path& file, std::string_view account);

  std::vector<std::string> TableNames(bool withDictionaries) override;
  // Takes no notice of `columns`.
  bool CreateTable(std::string_view name, std::int32_t columns, std::string& error) override;
  bool DropTable(std::string_view name, std::string& error) override;
  bool ClearTable(std::string_view name, std::string& error) override;

 private:
  struct CataloguedFile {
    std::int64_t number = 0;
    std::string name;

    std::string Table() const;
  };

  std::vector<TableKey> FindMapped(const NativeName& read);
  std::vector<TableKey> KeysOf(std::string_view name) override;
  std::string NoSuchTable(std::string_view name) override;
  bool FindTable(const std::string& key, FoundTable& found) override;
  bool MakeTable(const NewTable& table, std::string& error) override;
  bool DropIfThere(std::string_view candidate, bool& isThere, std::string& error) override;
  bool RunOtherSql(std::string_view statement, const std::vector<SqlToken>& tokens, ResultGrid& grid,
                   bool& isQuery, std::string& message, std::string& error) override;

  bool FindByKey(std::string_view key, CataloguedFile& file);
  bool FindByName(std::string_view name, CataloguedFile& file);
  bool FindExisting(std::string_view name, CataloguedFile& file, std::string& error);
  bool ChangeFiles(const std::function<bool()>& change);
  bool AddFile(NativeName name, std::string& error);

  Statement findByKey_;
  Statement findByMapped_;
  Statement listFiles_;
  Statement insert_;
  Statement erase_;
};

}  // namespace nvadmin::engine

// The kinds of store that the common test body runs over. A kind makes an account of its own for each test;
// opening it again is what a second session, or the next start of the program, does.
#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "engine/stores/Store.h"

namespace nvadmin::engine {

class TestAccount {
 public:
  virtual ~TestAccount() = default;
  virtual std::unique_ptr<Store> Open() const = 0;
};

struct StoreKind {
  std::string name;
  std::unique_ptr<TestAccount> (*make)();
  bool isNative = false;  // files keep the names that they were given, and items lie whole

  // How the store spells a file that was made under that name.
  std::string Spelling(std::string_view file) const;
};

inline std::ostream& operator<<(std::ostream& out, const StoreKind& kind) { return out << kind.name; }

const std::vector<StoreKind>& StoreKinds();
std::vector<StoreKind> RelationalKinds();

// Opens a table that must be there.
TableHandle MustOpen(Store& store, std::string_view name);
// Writes that must succeed; the transaction stays open.
void MustWrite(Store& store, TableHandle table, std::string_view id, std::string_view item);

}  // namespace nvadmin::engine

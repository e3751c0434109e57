// Accounts on a store of their own, the datastore words that the common bodies run over, and what all tests
// of stores do with one.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "engine/stores/Store.h"
#include "tests/support/MariaServer.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::engine {

inline constexpr std::string_view kNative = "MVTEST";
// Not a word, but what the tests call an account on a server.
inline constexpr std::string_view kServer = "MariaDB";
inline const Projection kWholeItem = {{}, true};

// The account TEST in a home of its own. Opening it again is what a second session does, or the next start
// of the program.
class TestAccount {
 public:
  explicit TestAccount(std::string_view datastore);
  std::unique_ptr<Store> Open() const;
  std::filesystem::path File() const;
  const TemporaryFolder& Folder() const { return folder_; }
  // On the server, if it is there.
  const MariaDatabase* Server() const { return server_.get(); }

 private:
  TemporaryFolder folder_;
  std::string datastore_;
  std::unique_ptr<MariaDatabase> server_;
};

// The fixture of a body that runs over several kinds of stores. Without a server those on one are skipped.
class StoreTest : public testing::TestWithParam<std::string_view> {
 protected:
  void SetUp() override {
    if (!CanRun()) GTEST_SKIP() << MariaDatabase::kSkipped;
  }
  static bool CanRun() { return GetParam() != kServer || MariaDatabase::IsThere(); }
  bool IsNative() const { return GetParam() == kNative; }
  // How the store spells a file that was made under that name.
  std::string Spelling(std::string_view file) const;

  const TestAccount account_{GetParam()};
  std::unique_ptr<Store> store_ = CanRun() ? account_.Open() : nullptr;
};

// A dynamic array as tests write it: "^" attribute mark, "]" value mark.
std::string Dyn(std::string text);

// These three must succeed; a write leaves the transaction open.
TableHandle MakeTable(Store& store, std::string_view name, std::int32_t columns);
TableHandle MustOpen(Store& store, std::string_view name);
void MustWrite(Store& store, TableHandle table, std::string_view id, std::string_view item);

std::string RefusalOfWrite(Store& store, TableHandle table, std::string_view id, std::string_view item);
// The item, or "(none)".
std::string ItemOf(Store& store, TableHandle table, std::string_view id);
// What a scan hands out: of each item "ID,value,value;".
std::string Scanned(Store& store, TableHandle table, const Projection& projection = {});

// Runs a sentence: the cells of its rows ("1,a;2,b;"), or its message, or "ERROR " and the error. What the
// grid holds then, whatever becomes of the sentence, is checked.
std::string Sql(Store& store, std::string_view statement);

}  // namespace nvadmin::engine

// Opens the store of an account: which kind it is follows from its datastore word and its store address.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "engine/Home.h"
#include "engine/stores/MariaAddress.h"
#include "engine/stores/Store.h"

namespace nvadmin::engine {

// Fails, naming account or file and the way out, when the database can't be opened, is damaged or isn't of an
// account of this kind. The account's file is made when it is missing; a database at an address is not, but
// gets the tables that it lacks.
std::unique_ptr<Store> OpenStore(const Home& home, const Account& account);

// The environment variable that may hold the password of a database.
inline constexpr const char* kStorePasswordVariable = "NVADMIN_STORE_PASSWORD";

// Where the data of an account lie that has a store address. Fails when the address can't be read or the
// account's datastore word has none.
struct StorePlace {
  MariaAddress address;
  std::string password;
};
StorePlace FindStorePlace(const Home& home, const Account& account);

}  // namespace nvadmin::engine

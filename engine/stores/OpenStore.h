// Opens the store of an account: which kind it is follows from its datastore word and its store address.
#pragma once

#include <memory>

#include "engine/Home.h"
#include "engine/stores/Store.h"

namespace nvadmin::engine {

// Fails, naming account or file and the way out, when the database can't be opened, is damaged or isn't of an
// account of this kind, and for any store address, since none is supported. The account's file is made when
// it is missing.
std::unique_ptr<Store> OpenStore(const Home& home, const Account& account);

}  // namespace nvadmin::engine

// What an operator wants to know of a database at an address before, and while, an account lies there.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "engine/stores/OpenStore.h"

namespace nvadmin::engine {

// Lines of a word and what it stands for: server, character set, engine, rights, and what is to be done.
// `isFit`: an account can be there. Fails when the database can't be reached. Changes nothing.
std::vector<std::pair<std::string, std::string>> CheckStore(const StorePlace& place, bool& isFit);

}  // namespace nvadmin::engine

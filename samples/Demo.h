// The demo accounts: public reference data and the orders of an invented trading house, to try every verb on.
// Two accounts hold the same files, one in tables and one in native files, so that the two kinds can be seen
// side by side.
#pragma once

#include <iosfwd>
#include <string_view>

#include "engine/Home.h"

namespace nvadmin::samples {

inline constexpr std::string_view kDemoAccount = "DEMO";  // datastore word JET
// The files of DEMO as one that the load form brings into other accounts.
inline constexpr std::string_view kDemoTransferFile = "DEMO";
inline constexpr std::string_view kNativeDemoAccount = "DEMO.MV";  // datastore word MVDEMO

// Adds the accounts when they are missing and makes the files that they lack, telling `progress` a line a
// file. A file that the file ABOUT tells of is complete and stays as its users left it, also when it was
// changed or deleted since; in a file that ABOUT doesn't tell of, only items that are missing are written. A
// complete account costs a few reads. Each file is one transaction, so a run that was killed is made whole by
// the next one, and several programs can do this at once. When DEMO lacked something, its files are then
// saved as the transfer file, too. The reference data are read from /usr/share/iso-codes/json, or from the
// folder that the environment variable NVADMIN_ISO_CODES names; without them nothing is made, and the
// EngineFailure tells how to get them.
void MakeDemoAccounts(engine::Home& home, std::ostream& progress);

}  // namespace nvadmin::samples

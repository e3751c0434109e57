// The commands of the program, behind its command line. Each tells on standard error what went wrong, with
// what, and the way out, and answers with the program's exit code.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/Home.h"
#include "host/Serve.h"
#include "host/TclSession.h"

namespace nvadmin::host {

struct CommandSettings {
  std::filesystem::path home;   // empty: the default one
  std::string account;          // empty: the only one, or the demo account
  std::filesystem::path trace;  // empty: no trace
};

// Sentences in UTF-8; without them standard input gives them.
using GivenSentences = std::optional<std::vector<std::string>>;

// A session at the TCL prompt.
ExitCode RunTcl(const CommandSettings& settings, const GivenSentences& sentences);
// Makes the home and the demo account where they are missing, then as RunTcl.
ExitCode RunDemo(const CommandSettings& settings, const GivenSentences& sentences);

struct NewAccount {
  std::string name;
  std::string datastore;
  std::string store;  // the address of its database; empty: a file in the home
  engine::Synchronous synchronous = engine::Synchronous::kFull;  // of the file
  bool checkOnly = false;                                        // tells of the database, and adds nothing
};
// Makes the home where it is missing. The password of a database at an address comes from a file that the
// address names, from the environment, or is asked for and kept in the home.
ExitCode AddAccount(const CommandSettings& settings, const NewAccount& account);
// Asks for the password of an account's database anew, and keeps it.
ExitCode SetStorePassword(const CommandSettings& settings, std::string_view name);
// Holds for who enters the account from then on.
ExitCode SetSynchronous(const CommandSettings& settings, std::string_view name,
                        engine::Synchronous synchronous);
ExitCode ListAccounts(const CommandSettings& settings);
ExitCode RemoveAccount(const CommandSettings& settings, std::string_view name);

// Who may log in to a server on the home. AddUser and SetPassword ask for the password.
ExitCode AddUser(const CommandSettings& settings, std::string_view name,
                 const std::vector<std::string>& accounts);
ExitCode SetPassword(const CommandSettings& settings, std::string_view name);
ExitCode SetUserAccounts(const CommandSettings& settings, std::string_view name,
                         const std::vector<std::string>& accounts);
ExitCode ListUsers(const CommandSettings& settings);
ExitCode RemoveUser(const CommandSettings& settings, std::string_view name);

// Makes the home and the demo account where there is no home. Serves it until a signal ends it: SIGTERM or
// SIGINT lets what runs end, for ten seconds at most; a second one ends at once.
ExitCode RunServe(const CommandSettings& settings, const ServeSettings& serve);

}  // namespace nvadmin::host

// The system home: the folder that holds all that the engine keeps. It knows accounts and saved lists by
// name; what lies inside an account's database is the store's.
//
//   catalogue.sqlite   accounts, saved select lists
//   accounts/NAME.sqlite   one database per embedded account
//   accounts/NAME.password   of the database that an account has at an address
//   users.sqlite   who may log in to a server; the host's
//   locks.sqlite, locks.sqlite-gate   sessions and item locks of all programs on this home; nothing lasting
//   TransferItem/, TransferBulk/   the add-in's transfer folders
//
// Account names are 1 to 64 letters, digits, "_", "-" and "." and begin with a letter or digit; letter case
// doesn't tell two apart. What a routine here has answered is on disk. Every routine that fails throws
// EngineFailure with a text that names the folder or file and the way out. The sessions of a program share
// one Home: its routines may be called from any thread.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/ResultGrid.h"

namespace nvadmin::engine {

// When a commit of an embedded account is on the disk: SQLite's words.
enum class Synchronous {
  kFull,    // before it is answered
  kNormal,  // soon after: a power cut or a crash of the system may lose the last ones, never half of one; a
            // program that dies loses nothing
};

struct Account {
  std::string name;       // in capitals
  std::string datastore;  // "JET", "MSSQL", "MYSQL", "ORACLE" or a word that begins with "MV", in capitals
  std::string store;      // address of the store; empty: the account's own file in the home
  Synchronous synchronous = Synchronous::kFull;  // of a file in the home; a server has its own setting

  bool IsNative() const { return datastore.starts_with("MV"); }
};

class Home {
 public:
  // $XDG_DATA_HOME/nvadmin, or ~/.local/share/nvadmin. Fails when the environment names neither.
  static std::filesystem::path DefaultFolder();

  // Opens a home that exists. A folder that is missing, isn't a home, can't be written, has a name with
  // characters outside the code page, or whose catalogue is damaged is a failure.
  explicit Home(const std::filesystem::path& folder);
  // Makes the folder (mode 0700), its subfolders and the catalogue where they are missing; leaves what is
  // there. Several programs may do it at once. One that was stopped halfway is completed by the next.
  static void Make(const std::filesystem::path& folder);
  ~Home();
  Home(const Home&) = delete;
  Home& operator=(const Home&) = delete;

  const std::filesystem::path& Folder() const { return folder_; }
  // The folder with its trailing separator, in code page bytes: what the sentence SYSTEM PATH answers.
  const std::string& SystemPath() const { return systemPath_; }
  std::filesystem::path LocksFile() const;
  std::filesystem::path DatabaseFile(const Account& account) const;
  // Where the password of a database at an address is kept, if the account's was given to be kept.
  std::filesystem::path PasswordFile(const Account& account) const;

  std::vector<Account> Accounts() const;  // in order of name
  std::optional<Account> FindAccount(std::string_view name) const;
  // Name and word may come in any letter case. False, with the reason in `error`: a name or word that isn't
  // allowed, or a name that is taken. The store makes the account's database when it is first opened.
  bool AddAccount(const Account& account, std::string& error);
  // Holds for who opens the account from then on. False when there is no such account.
  bool SetSynchronous(std::string_view name, Synchronous synchronous);
  // Removes the account, its saved lists and its database files. False when there is no such account. No
  // session may be in it. An account at a store address of its own leaves what lies there.
  bool RemoveAccount(std::string_view name);

  // Saved select lists, by account and name (letter case of the name counts): the keys of column 0 of `grid`.
  // SaveList replaces a list of the same name; it fails when there is no such account.
  void SaveList(std::string_view account, std::string_view name, const ResultGrid& grid);
  // Fills `grid` with one column. False, and the grid is left alone, when there is no such list.
  bool LoadList(std::string_view account, std::string_view name, ResultGrid& grid) const;
  bool DeleteList(std::string_view account, std::string_view name);
  std::vector<std::string> ListNames(std::string_view account) const;  // in byte order

 private:
  struct Catalogue;
  std::filesystem::path folder_;
  std::string systemPath_;
  std::unique_ptr<Catalogue> catalogue_;
};

}  // namespace nvadmin::engine

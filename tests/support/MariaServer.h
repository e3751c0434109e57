// Databases on the MariaDB server that ctest starts for the tests (tests/support/mariadb-server.sh). Its
// socket is in the environment; the user is root, without a password.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

namespace nvadmin {

// A server of a test's own, with settings of its own; its user is root, without a password.
class OwnMariaServer {
 public:
  OwnMariaServer(const std::string& folder, const std::string& options) : folder_(folder) {
    isThere_ = Do("start", options);
  }
  ~OwnMariaServer() { Do("stop"); }
  OwnMariaServer(const OwnMariaServer&) = delete;
  OwnMariaServer& operator=(const OwnMariaServer&) = delete;

  bool IsThere() const { return isThere_; }
  std::string Socket() const { return folder_ + "/socket"; }
  // An action of the script; false when it fails.
  bool Do(const std::string& action, const std::string& options = "") const {
    const std::string command = "bash " NVADMIN_SOURCE_DIR "/tests/support/mariadb-server.sh " + action +
                                " " + folder_ + " " + options;
    return std::system(command.c_str()) == 0;
  }

 private:
  std::string folder_;
  bool isThere_ = false;
};

// A database that is there as long as the test.
class MariaDatabase {
 public:
  static constexpr std::string_view kSkipped =
      "Skipped: no MariaDB server; install mariadb-server-core and run the tests through ./test or ctest";

  static bool IsThere() { return !Socket().empty(); }
  static std::string Socket() {
    const char* socket = getenv("NVADMIN_TEST_MARIADB");
    return socket == nullptr ? "" : socket;
  }
  // Runs SQL as the server's root and returns what it prints, columns apart by tabs.
  static std::string AsRoot(const std::string& sql, const std::string& socket = Socket()) {
    const std::string command = "mariadb --no-defaults -uroot -N --default-character-set=latin1 -S '" +
                                socket + "' 2>&1 <<'END'\n" + sql + "\nEND";
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string printed;
    for (int letter = 0; (letter = fgetc(pipe.get())) != EOF;) printed += static_cast<char>(letter);
    return printed;
  }

  explicit MariaDatabase(std::string_view options = "CHARACTER SET latin1 COLLATE latin1_nopad_bin") {
    static int count = 0;
    name_ = "nv_" + std::to_string(getpid()) + "_" + std::to_string(++count);
    AsRoot("CREATE DATABASE " + name_ + " " + std::string(options));
  }
  ~MariaDatabase() { AsRoot("DROP DATABASE IF EXISTS " + name_); }
  MariaDatabase(const MariaDatabase&) = delete;
  MariaDatabase& operator=(const MariaDatabase&) = delete;

  const std::string& Name() const { return name_; }
  std::string Address() const { return "mariadb://root@/" + name_ + "?socket=" + Socket(); }
  std::string Run(const std::string& sql) const { return AsRoot("USE " + name_ + ";\n" + sql); }
  // Ends those that others have to it, as its administrator can.
  void KillConnections() const {
    const std::string which = "FROM information_schema.processlist WHERE db = '" + name_ + "'";
    AsRoot(AsRoot("SELECT concat('KILL ', id, ';') " + which));
    while (AsRoot("SELECT count(*) " + which) != "0\n") usleep(1000);
  }

 private:
  std::string name_;
};

}  // namespace nvadmin

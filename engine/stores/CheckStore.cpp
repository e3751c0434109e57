#include "engine/stores/CheckStore.h"

#include <fmt/format.h>

#include "engine/stores/Maria.h"
#include "engine/stores/MariaCatalogue.h"

namespace nvadmin::engine {

namespace {

// The rights that an account needs and the user hasn't, "CREATE, DROP". Empty, too, when they may come from a
// role, or from what all users may, of which the server doesn't tell in these tables.
std::string LackingRights(MariaConnection& connection, const MariaRows& grants) {
  for (std::size_t row = 0; row < grants.Count(); ++row) {
    if (grants.Text(row, 0).ends_with(" TO PUBLIC")) return {};
  }
  constexpr std::string_view kNeeded[] = {"SELECT", "INSERT", "UPDATE", "DELETE", "CREATE", "DROP"};
  const MariaRows rights = connection.Query(
      "SELECT PRIVILEGE_TYPE, CURRENT_ROLE() FROM (SELECT GRANTEE, PRIVILEGE_TYPE FROM "
      "information_schema.USER_PRIVILEGES UNION ALL SELECT GRANTEE, PRIVILEGE_TYPE FROM "
      "information_schema.SCHEMA_PRIVILEGES WHERE DATABASE() LIKE TABLE_SCHEMA ESCAPE '\\') rights WHERE "
      "GRANTEE = "
      "CONCAT('''', SUBSTRING_INDEX(CURRENT_USER(), '@', 1), '''@''', SUBSTRING_INDEX(CURRENT_USER(), '@', "
      "-1), '''')",
      {}, IfLost::kAgain);
  if (rights.Count() == 0 || !rights.IsNull(0, 1)) return {};
  std::string lacking;
  for (const std::string_view needed : kNeeded) {
    bool isThere = false;
    for (std::size_t row = 0; row < rights.Count(); ++row) isThere = isThere || rights.Text(row, 0) == needed;
    if (!isThere) lacking.append(lacking.empty() ? "" : ", ").append(needed);
  }
  return lacking;
}

// "user@host", as the server tells it, for a statement.
std::string QuoteAccount(std::string_view account) {
  const std::size_t at = account.rfind('@');
  return fmt::format("{}@{}", QuoteIfNeeded(account.substr(0, at)), QuoteIfNeeded(account.substr(at + 1)));
}

}  // namespace

std::vector<std::pair<std::string, std::string>> CheckStore(const StorePlace& place, bool& isFit) {
  MariaConnection connection(place.address, place.password,
                             fmt::format("database {}", place.address.database));
  const auto ask = [&](const char* sql) { return connection.Query(sql, {}, IfLost::kAgain); };
  std::vector<std::pair<std::string, std::string>> lines;
  const MariaRows server = ask(
      "SELECT VERSION(), @@character_set_database, @@collation_database, @@default_storage_engine, "
      "@@max_connections, @@global.read_only, @@innodb_flush_log_at_trx_commit, CURRENT_USER(), "
      "(SELECT VARIABLE_VALUE FROM information_schema.SESSION_STATUS WHERE VARIABLE_NAME = 'Ssl_cipher')");
  lines.emplace_back("server", fmt::format("{} at {}{}", server.Text(0, 0), connection.Server(),
                                           server.Integer(0, 5) != 0 ? ", read-only" : ""));
  lines.emplace_back("connection",
                     server.Text(0, 8).empty() ? "not encrypted" : fmt::format("TLS, {}", server.Text(0, 8)));
  lines.emplace_back("character set", fmt::format("{}, collation {}", server.Text(0, 1), server.Text(0, 2)));
  lines.emplace_back(
      "engine", fmt::format("tables are made as InnoDB; the server's own default is {}", server.Text(0, 3)));
  lines.emplace_back("limits", fmt::format("items of {} bytes, {} connections", connection.LargestText(),
                                           server.Text(0, 4)));
  lines.emplace_back(
      "durability",
      fmt::format("innodb_flush_log_at_trx_commit = {}{}", server.Text(0, 6),
                  server.Text(0, 6) == "1" ? ": what was answered is on disk"
                                           : ": a power cut can take what was answered; set it to 1"));
  const MariaRows grants = ask("SHOW GRANTS");
  for (std::size_t row = 0; row < grants.Count(); ++row) {
    // The hash of the password is nobody's business.
    const std::string_view grant = grants.Text(row, 0);
    lines.emplace_back(row == 0 ? "rights" : "", grant.substr(0, grant.find(" IDENTIFIED ")));
  }
  std::string fault = MariaCatalogue(connection).FindObstacle();
  const std::string lacking = LackingRights(connection, grants);
  if (fault.empty() && !lacking.empty()) {
    fault = fmt::format(
        "user {0} lacks rights on database {1}: {2}; give them with GRANT ALL ON {1}.* TO {3}",
        place.address.user, QuoteIfNeeded(place.address.database), lacking, QuoteAccount(server.Text(0, 7)));
  }
  if (fault.empty() && server.Integer(0, 5) != 0) {
    fault = fmt::format("{}: {}", connection.Server(), kReadOnlyServer);
  }
  isFit = fault.empty();
  lines.emplace_back("database",
                     fault.empty() ? fmt::format("{} can hold an account", place.address.database) : fault);
  return lines;
}

}  // namespace nvadmin::engine

#include "engine/stores/Maria.h"

#include <errmsg.h>
#include <fmt/format.h>
#include <mysql.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <mutex>
#include <numeric>
#include <thread>
#include <utility>

#include "engine/CodePage.h"
#include "engine/SignalsBlocked.h"

namespace nvadmin::engine {

namespace {

constexpr unsigned long kOldestServer = 100600;  // 10.6
constexpr std::string_view kOldestServerName = "10.6";
// So many statements a connection keeps on the server, which has a limit for all connections together.
constexpr std::size_t kMostPrepared = 12;
constexpr std::size_t kStatementOverhead = 64u << 10;
constexpr std::string_view kSyncedState = "4";   // of a node of a cluster
constexpr std::uint32_t kSecondsForRefusal = 5;  // less than the wait for an answer

// Beside a text of the largest size, its key and its place fit.
constexpr std::size_t kBesideText = kStatementOverhead / 2;

constexpr unsigned kLost[] = {1040, 1047, 1053, 1152, 1158, 1159, 1160, 1161, 1927, 2002, 2003,
                              2005, 2006, 2012, 2013, 2014, 2026, 2027, 2055, 5013, 5014};
// What is wrong with the server, or with what else happens on it, rather than with the statement.
constexpr unsigned kTrouble[] = {1021, 1030, 1037, 1038, 1041, 1114, 1153, 1180, 1194, 1195,
                                 1205, 1213, 1290, 1317, 1461, 1792, 1836, 1969, 3024};
// Statements that the server no longer knows by their number, though the connection stands.
constexpr unsigned kForgotten[] = {1243, 1615};

bool IsOneOf(std::span<const unsigned> codes, unsigned code) {
  return std::find(codes.begin(), codes.end(), code) != codes.end();
}

struct KnownRefusal {
  unsigned code;
  const char* text;  // {0} user, {1} database, {2} what the client library says
};
constexpr KnownRefusal kRefusals[] = {
    {1045,
     "it refuses user {0}: the user name or the password is wrong; the password comes from the file that the "
     "address names, from NVADMIN_STORE_PASSWORD, or from 'nvadmin account password'"},
    {1698, "it refuses user {0}: that user can't log in over this kind of connection"},
    {1044,
     "user {0} has no rights on database {1}, or there is none; give them with GRANT ALL ON {1}.* TO the "
     "user "
     "as the server names it here: {2}"},
    {1049,
     "it has no database {1}; make it with CREATE DATABASE {1} CHARACTER SET latin1 COLLATE "
     "latin1_nopad_bin"},
    {1040,
     "it takes no more connections ({2}); a session takes two, a program one more: raise max_connections"},
    {1203,
     "it takes no more connections of user {0} ({2}); a session takes two, a program one more: raise "
     "max_user_connections"},
    {1226,
     "it takes no more connections of user {0} ({2}); a session takes two, a program one more: raise "
     "max_user_connections"},
    {1130, "it lets user {0} in from other machines only; see to it with CREATE USER {0}@..."},
    {CR_SSL_CONNECTION_ERROR,
     "the connection can't be encrypted as the address asks ({2}); give it tls-ca with the certificate of "
     "the one who signed the server's, or another value of tls"},
};

// What the server says of a statement that isn't at fault, in the user's words.
struct KnownTrouble {
  unsigned code;
  const char* mark;  // in the server's text
  const char* text;  // {0} the server's
};
constexpr KnownTrouble kTroubles[] = {
    {maria_error::kNotReady, "",
     "the store is unavailable: the node is cut off from its cluster, or joins it just now ({0})"},
    {maria_error::kLockWait, "",
     "what another session or program reads or writes at a stretch is in the way, and has been for 10 s; try "
     "again ({0})"},
    {maria_error::kTooLong, "",
     "it took longer than is allowed; give the account's address a larger timeout= ({0})"},
    {maria_error::kDeadlock, "",
     "another program's transaction was in the way, and the server let that go on; try again ({0})"},
    {maria_error::kNoSuchTable, ".nvadmin_",
     "a table of this program's own is gone; restore it, or enter the account anew, which makes what can be "
     "made ({0})"},
    {maria_error::kReadOnly, "read-only", kReadOnlyServer},
    {1792, "", kReadOnlyServer},
    {1836, "", kReadOnlyServer},
};

MYSQL* Handle(st_mysql* handle) { return handle; }

}  // namespace

std::string QuoteIfNeeded(std::string_view name) {
  const bool isPlain =
      std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; });
  return isPlain ? std::string(name) : fmt::format("`{}`", name);
}

bool MariaFailure::IsLost() const { return IsOneOf(kLost, code_); }

bool MariaFailure::IsRefusal() const {
  const bool isOfServer = code_ >= 1000 && code_ < 5000 && code_ / 1000 != 2;
  return isOfServer && !IsLost() && !IsOneOf(kTrouble, code_);
}

// ---- Rows

std::string_view MariaRows::Text(std::size_t row, std::size_t column) const {
  const Cell& cell = CellAt(row, column);
  return std::string_view(bytes_).substr(cell.start, cell.size);
}

std::int64_t MariaRows::Integer(std::size_t row, std::size_t column) const {
  const std::string_view text = Text(row, column);
  std::int64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// ---- The connection

struct MariaConnection::Prepared {
  explicit Prepared(MYSQL_STMT* given) : statement(given) {}
  ~Prepared() { mysql_stmt_close(statement); }
  Prepared(const Prepared&) = delete;
  Prepared& operator=(const Prepared&) = delete;

  void Bind(std::span<const std::string_view> parameters);

  std::string sql;
  MYSQL_STMT* statement;
  std::vector<MYSQL_BIND> binds;  // of the parameters
  std::vector<unsigned long> lengths;
  std::vector<const char*> texts;
};

MariaConnection::MariaConnection(MariaAddress address, std::string password, std::string name)
    : address_(std::move(address)),
      password_(std::move(password)),
      name_(std::move(name)),
      interruptSignal_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  static std::once_flag once;
  std::call_once(once, [] { mysql_library_init(0, nullptr, nullptr); });
  if (interruptSignal_ < 0) throw StoreFailure(fmt::format("{}: the system has no open files left", name_));
}

MariaConnection::~MariaConnection() {
  Close();
  close(interruptSignal_);
}

void MariaConnection::Close() noexcept {
  EndRun();
  prepared_.clear();
  if (handle_ != nullptr) mysql_close(std::exchange(handle_, nullptr));
}

std::string MariaConnection::Server() const { return address_.hosts[host_].Shown(); }

std::string MariaConnection::TooLarge(std::string_view what, std::size_t size) const {
  return fmt::format("{} has {} characters, {} is the most that the server's max_allowed_packet lets through",
                     what, size, largestText_);
}

// The server ends a connection on which more comes than it takes.
void MariaConnection::RefuseLarge(std::size_t size) const {
  if (size > largestText_ + kBesideText)
    throw MariaFailure(TooLarge("the statement", size), maria_error::kTooLarge,
                       fmt::format("{} at {}: ", name_, Server()));
}

void MariaConnection::Fail(unsigned code, std::string_view text) {
  std::string reason(text);
  // The wait for what was committed on other nodes ends so, too, where the node has lost them.
  if (code == maria_error::kLockWait && IsClustered()) LearnNode();
  for (const KnownTrouble& trouble : kTroubles) {
    if (trouble.code == code && text.find(trouble.mark) != std::string_view::npos)
      reason = fmt::format(fmt::runtime(trouble.text), text);
  }
  if (IsClustered() && code == maria_error::kDeadlock)
    reason = fmt::format("another node of the cluster was written to at the same time ({})", text);
  const MariaFailure failure(reason, code, fmt::format("{} at {}: ", name_, Server()));
  if (failure.IsLost()) Close();
  throw failure;
}

// One host; false and why when it doesn't answer as it should.
bool MariaConnection::ConnectTo(const MariaHost& host, std::string& failure, unsigned& code) {
  handle_ = mysql_init(nullptr);
  MYSQL* handle = Handle(handle_);
  const unsigned int protocol = host.name.empty() ? MYSQL_PROTOCOL_SOCKET : MYSQL_PROTOCOL_TCP;
  const my_bool isOn = 1;
  const my_bool verifies = address_.tls == TlsUse::kVerify ? 1 : 0;
  const unsigned int isOff = 0;
  mysql_options(handle, MYSQL_OPT_LOCAL_INFILE, &isOff);
  mysql_options(handle, MYSQL_OPT_PROTOCOL, &protocol);
  mysql_options(handle, MYSQL_SET_CHARSET_NAME, "latin1");
  mysql_options(handle, MYSQL_OPT_CONNECT_TIMEOUT, &address_.connectSeconds);
  mysql_options(handle, MYSQL_OPT_READ_TIMEOUT, &address_.answerSeconds);
  mysql_options(handle, MYSQL_OPT_WRITE_TIMEOUT, &address_.answerSeconds);
  if (address_.tls != TlsUse::kOff) {
    mysql_options(handle, MYSQL_OPT_SSL_ENFORCE, &isOn);
    const std::pair<mysql_option, const std::string*> kFiles[] = {{MYSQL_OPT_SSL_CA, &address_.tlsCa},
                                                                  {MYSQL_OPT_SSL_CERT, &address_.tlsCert},
                                                                  {MYSQL_OPT_SSL_KEY, &address_.tlsKey}};
    for (const auto& [option, file] : kFiles) {
      if (!file->empty()) mysql_options(handle, option, ToUtf8(*file).c_str());
    }
  }
  mysql_options(handle, MYSQL_OPT_SSL_VERIFY_SERVER_CERT, &verifies);
  const std::string socket = ToUtf8(address_.socket);
  bool isThere =
      mysql_real_connect(handle, host.name.empty() ? nullptr : host.name.c_str(), address_.user.c_str(),
                         password_.c_str(), address_.database.c_str(), host.port,
                         socket.empty() ? nullptr : socket.c_str(), CLIENT_FOUND_ROWS) != nullptr;
  code = mysql_errno(handle);
  failure = mysql_error(handle);
  // The library goes on without, where the server offers none.
  if (isThere && address_.tls != TlsUse::kOff && mysql_get_ssl_cipher(handle) == nullptr) {
    isThere = false;
    code = CR_SSL_CONNECTION_ERROR;
    failure = "the server offers no encryption";
  }
  if (!isThere) Close();
  return isThere;
}

// The first host that answers as it should. False and why when none does.
bool MariaConnection::ConnectToFirst(NodeState least, std::string& failures, bool& isBusyThere) {
  failures.clear();
  for (std::size_t host = 0; host < address_.hosts.size(); ++host) {
    host_ = host;
    std::string failure;
    unsigned code = 0;
    if (ConnectTo(address_.hosts[host], failure, code)) {
      try {
        SetUpSession();
        if (node_ >= least) return true;
        isBusyThere = true;
        Close();
        failure = "it isn't in step with its cluster";
      } catch (const MariaFailure& unready) {
        Close();
        if (!unready.IsLost()) throw;
        failure = unready.Reason();
      } catch (...) {
        Close();
        throw;
      }
    }
    for (const KnownRefusal& refusal : kRefusals) {
      if (refusal.code != code) continue;
      failure = fmt::format(fmt::runtime(refusal.text), QuoteIfNeeded(address_.user),
                            QuoteIfNeeded(address_.database), failure);
      if (!MariaFailure("", code).IsLost()) Fail(code, failure);
    }
    if (MariaFailure(failure, code).IsRefusal())
      Fail(code, fmt::format("it refuses user {}: {}", address_.user, failure));
    failures += fmt::format("{}{} ({})", failures.empty() ? "" : ", ", address_.hosts[host].Shown(), failure);
  }
  return false;
}

void MariaConnection::Connect() {
  if (handle_ != nullptr) return;
  std::string failures;
  bool isBusyThere = false;
  // A busy node serves where no other does.
  if (ConnectToFirst(NodeState::kSynced, failures, isBusyThere) ||
      (isBusyThere && ConnectToFirst(NodeState::kBusy, failures, isBusyThere))) {
    ++generation_;
    return;
  }
  throw MariaFailure(fmt::format("{}: the store is unavailable: no server answers at {}", name_, failures),
                     CR_CONN_HOST_ERROR);
}

void MariaConnection::SetUpSession() {
  const unsigned long version = mysql_get_server_version(handle_);
  if (!mariadb_connection(handle_) || version < kOldestServer) {
    throw StoreFailure(
        fmt::format("{} at {}: the server is {}, which is too old or not MariaDB; use MariaDB {} or later",
                    name_, Server(), mysql_get_server_info(handle_), kOldestServerName));
  }
  // The character set, too: a server may be told to ignore what the client asked for.
  Execute(fmt::format(
              "SET SESSION character_set_client = latin1, character_set_results = latin1, "
              "collation_connection = 'latin1_nopad_bin', sql_mode = 'ANSI_QUOTES,PIPES_AS_CONCAT,"
              "NO_BACKSLASH_ESCAPES,STRICT_TRANS_TABLES,NO_ENGINE_SUBSTITUTION', autocommit = 1, "
              "tx_isolation = 'REPEATABLE-READ', innodb_lock_wait_timeout = 10, lock_wait_timeout = 10, "
              "idle_transaction_timeout = 60, tx_read_only = 0, sql_select_limit = 18446744073709551615, "
              "sql_big_selects = 1, max_statement_time = {}",
              address_.answerSeconds > kSecondsForRefusal ? address_.answerSeconds - kSecondsForRefusal : 1),
          IfLost::kFail);
  bool isClustered = false;
  Run(
      "SHOW VARIABLES WHERE Variable_name IN ('max_allowed_packet', 'wsrep_on')", [](std::size_t) {},
      [&](const std::vector<std::string_view>& cells) {
        std::size_t packet = 0;
        std::from_chars(cells[1].data(), cells[1].data() + cells[1].size(), packet);
        isClustered = isClustered || cells[1] == "ON";
        if (packet > 0) largestText_ = packet - std::min(packet, kStatementOverhead);
        return true;
      });
  node_ = NodeState::kAlone;
  if (isClustered) LearnNode();
}

// Of a node of a cluster. One that lost the greater part of the others takes connections, but no statements.
void MariaConnection::LearnNode() {
  bool isReady = false;
  Execute("SET SESSION wsrep_sync_wait = 0", IfLost::kFail);
  node_ = NodeState::kBusy;
  Run(
      "SHOW STATUS WHERE Variable_name IN ('wsrep_ready', 'wsrep_local_state')", [](std::size_t) {},
      [&](const std::vector<std::string_view>& cells) {
        isReady = isReady || cells[1] == "ON";
        if (cells[1] == kSyncedState) node_ = NodeState::kSynced;
        return true;
      });
  if (!isReady) Fail(maria_error::kNotReady, "wsrep_ready is OFF");
  Execute("SET SESSION wsrep_sync_wait = 1", IfLost::kFail);
}

// Runs `action` on a connection that stands.
template <typename Action>
auto MariaConnection::Attempt(IfLost ifLost, const Action& action) {
  const bool stood = handle_ != nullptr;
  Connect();
  try {
    return action();
  } catch (const MariaFailure& failure) {
    const bool again =
        IsOneOf(kForgotten, failure.Code()) || (failure.IsLost() && stood && ifLost == IfLost::kAgain);
    if (!again) throw;
  }
  Connect();
  return action();
}

// ---- Prepared statements

void MariaConnection::Prepared::Bind(std::span<const std::string_view> parameters) {
  binds.assign(parameters.size(), MYSQL_BIND{});
  lengths.resize(parameters.size());
  for (std::size_t at = 0; at < parameters.size(); ++at) {
    MYSQL_BIND& bind = binds[at];
    lengths[at] = parameters[at].size();
    bind.buffer_type = MYSQL_TYPE_STRING;
    // Without a buffer it would be NULL.
    bind.buffer = const_cast<char*>(parameters[at].data() == nullptr ? "" : parameters[at].data());
    bind.length = &lengths[at];
    bind.buffer_length = parameters[at].size();
  }
}

// Null: it isn't prepared.
MariaConnection::Prepared* MariaConnection::FindPrepared(const std::string& sql) {
  const auto known = std::find_if(prepared_.begin(), prepared_.end(),
                                  [&](const std::unique_ptr<Prepared>& kept) { return kept->sql == sql; });
  if (known == prepared_.end()) return nullptr;
  prepared_.splice(prepared_.begin(), prepared_, known);
  return prepared_.front().get();
}

// A statement to prepare.
MariaConnection::Prepared& MariaConnection::AddPrepared(const std::string& sql) {
  while (prepared_.size() >= kMostPrepared) prepared_.pop_back();
  prepared_.push_front(std::make_unique<Prepared>(mysql_stmt_init(handle_)));
  prepared_.front()->sql = sql;
  return *prepared_.front();
}

MariaConnection::Prepared& MariaConnection::Prepare(const std::string& sql) {
  if (Prepared* known = FindPrepared(sql)) return *known;
  Prepared& made = AddPrepared(sql);
  if (mysql_stmt_prepare(made.statement, sql.data(), sql.size()) != 0) FailStatement(made);
  return made;
}

// What isn't prepared yet is prepared and executed in one round trip.
MariaConnection::Prepared& MariaConnection::ExecutePrepared(const std::string& sql,
                                                            std::span<const std::string_view> parameters) {
  RefuseLarge(std::accumulate(parameters.begin(), parameters.end(), sql.size(),
                              [](std::size_t sum, std::string_view text) { return sum + text.size(); }));
  Prepared* known = FindPrepared(sql);
  Prepared& prepared = known != nullptr ? *known : AddPrepared(sql);
  MYSQL_STMT* statement = prepared.statement;
  const auto count = static_cast<unsigned int>(parameters.size());
  prepared.Bind(parameters);
  if (known == nullptr) mysql_stmt_attr_set(statement, STMT_ATTR_PREBIND_PARAMS, &count);
  const bool isBound = count == 0 || !mysql_stmt_bind_param(statement, prepared.binds.data());
  const bool isDone =
      isBound && (known != nullptr ? mysql_stmt_execute(statement)
                                   : mariadb_stmt_execute_direct(statement, sql.data(), sql.size())) == 0;
  if (!isDone) FailStatement(prepared);
  return prepared;
}

void MariaConnection::Forget(const Prepared& prepared) {
  prepared_.remove_if([&](const std::unique_ptr<Prepared>& kept) { return kept.get() == &prepared; });
}

void MariaConnection::FailStatement(Prepared& prepared) {
  // Of a failure between two rows the statement knows nothing, only the connection.
  const bool isOfStatement = mysql_stmt_errno(prepared.statement) != 0;
  const unsigned code = isOfStatement ? mysql_stmt_errno(prepared.statement) : mysql_errno(handle_);
  const std::string text = isOfStatement ? mysql_stmt_error(prepared.statement) : mysql_error(handle_);
  Forget(prepared);
  Fail(code, text);
}

MariaRows MariaConnection::Fetch(Prepared& prepared) {
  MYSQL_STMT* statement = prepared.statement;
  MariaRows rows;
  rows.columns_ = mysql_stmt_field_count(statement);
  std::vector<MYSQL_BIND> binds(rows.columns_);
  std::vector<unsigned long> lengths(rows.columns_);
  std::vector<my_bool> nulls(rows.columns_);
  for (std::size_t column = 0; column < rows.columns_; ++column) {
    binds[column].buffer_type = MYSQL_TYPE_STRING;
    binds[column].length = &lengths[column];
    binds[column].is_null = &nulls[column];
  }
  if (mysql_stmt_bind_result(statement, binds.data())) FailStatement(prepared);
  for (;;) {
    const int code = mysql_stmt_fetch(statement);
    if (code == MYSQL_NO_DATA) break;
    if (code == 1) FailStatement(prepared);
    for (std::size_t column = 0; column < rows.columns_; ++column) {
      const std::size_t start = rows.bytes_.size();
      const bool isNull = nulls[column] != 0;
      const std::size_t size = isNull ? 0 : lengths[column];
      rows.cells_.push_back({start, static_cast<std::uint32_t>(size), isNull});
      if (size == 0) continue;
      rows.bytes_.resize(start + size);
      MYSQL_BIND cell{};
      unsigned long length = 0;
      my_bool cellIsNull = 0;
      cell.buffer_type = MYSQL_TYPE_STRING;
      cell.buffer = rows.bytes_.data() + start;
      cell.buffer_length = size;
      cell.length = &length;
      cell.is_null = &cellIsNull;
      if (mysql_stmt_fetch_column(statement, &cell, static_cast<unsigned>(column), 0) != 0)
        FailStatement(prepared);
    }
  }
  mysql_stmt_free_result(statement);
  return rows;
}

MariaRows MariaConnection::Query(const std::string& sql, std::span<const std::string_view> parameters,
                                 IfLost ifLost) {
  return Attempt(ifLost, [&] { return Fetch(ExecutePrepared(sql, parameters)); });
}

std::uint64_t MariaConnection::Change(const std::string& sql, std::span<const std::string_view> parameters,
                                      IfLost ifLost) {
  return Attempt(ifLost, [&] {
    return static_cast<std::uint64_t>(mysql_stmt_affected_rows(ExecutePrepared(sql, parameters).statement));
  });
}

void MariaConnection::ChangeMany(const std::string& sql, std::size_t width,
                                 std::span<const std::string_view> parameters) {
  Attempt(IfLost::kFail, [&] {
    Prepared& prepared = Prepare(sql);
    const auto rows = static_cast<unsigned int>(parameters.size() / width);
    // A parameter of all rows after another.
    prepared.texts.resize(parameters.size());
    prepared.lengths.resize(parameters.size());
    prepared.binds.assign(width, MYSQL_BIND{});
    for (std::size_t column = 0; column < width; ++column) {
      for (std::size_t row = 0; row < rows; ++row) {
        const std::string_view text = parameters[row * width + column];
        prepared.texts[column * rows + row] = text.data() == nullptr ? "" : text.data();
        prepared.lengths[column * rows + row] = text.size();
      }
      MYSQL_BIND& bind = prepared.binds[column];
      bind.buffer_type = MYSQL_TYPE_STRING;
      bind.buffer = &prepared.texts[column * rows];
      bind.length = &prepared.lengths[column * rows];
    }
    mysql_stmt_attr_set(prepared.statement, STMT_ATTR_ARRAY_SIZE, &rows);
    if (mysql_stmt_bind_param(prepared.statement, prepared.binds.data()) ||
        mysql_stmt_execute(prepared.statement) != 0) {
      FailStatement(prepared);
    }
    return 0;
  });
}

// ---- Statements as they stand

void MariaConnection::Execute(std::string_view sql, IfLost ifLost) {
  const auto send = [&] {
    if (mysql_real_query(handle_, sql.data(), sql.size()) != 0)
      Fail(mysql_errno(handle_), mysql_error(handle_));
    return 0;
  };
  // The session is set up by it, too.
  if (handle_ != nullptr && ifLost == IfLost::kFail) {
    send();
  } else {
    Attempt(ifLost, send);
  }
}

std::uint64_t MariaConnection::StartRun(std::string_view sql, std::size_t& columns) {
  Connect();
  RefuseLarge(sql.size());
  if (mysql_real_query(handle_, sql.data(), sql.size()) != 0)
    Fail(mysql_errno(handle_), mysql_error(handle_));
  columns = mysql_field_count(handle_);
  if (columns == 0) return mysql_affected_rows(handle_);
  result_ = mysql_use_result(handle_);
  if (result_ == nullptr) Fail(mysql_errno(handle_), mysql_error(handle_));
  return 0;
}

bool MariaConnection::NextOfRun(std::vector<std::string_view>& cells) {
  auto* result = static_cast<MYSQL_RES*>(result_);
  const MYSQL_ROW row = mysql_fetch_row(result);
  if (row == nullptr) {
    if (mysql_errno(handle_) != 0) {
      const unsigned code = mysql_errno(handle_);
      const std::string text = mysql_error(handle_);
      EndRun();
      Fail(code, text);
    }
    return false;
  }
  const unsigned long* lengths = mysql_fetch_lengths(result);
  for (std::size_t column = 0; column < cells.size(); ++column)
    cells[column] =
        row[column] == nullptr ? std::string_view() : std::string_view(row[column], lengths[column]);
  return true;
}

void MariaConnection::EndRun() noexcept {
  if (result_ != nullptr) mysql_free_result(static_cast<MYSQL_RES*>(std::exchange(result_, nullptr)));
}

// ---- Interrupts

void MariaConnection::Interrupt() noexcept {
  const std::uint64_t once = 1;
  [[maybe_unused]] const ssize_t written = write(interruptSignal_, &once, sizeof once);
}

struct MariaConnection::Interruptible::Watch {
  explicit Watch(MariaConnection& watched)
      : connection(watched), address(watched.address_), over(eventfd(0, EFD_CLOEXEC)) {
    address.hosts.assign(1, watched.address_.hosts[watched.host_]);
  }
  ~Watch() { close(over); }

  void Run(unsigned long statement) const {
    pollfd signals[] = {{connection.interruptSignal_, POLLIN, 0}, {over, POLLIN, 0}};
    while (poll(signals, std::size(signals), -1) < 0 && errno == EINTR) {
    }
    if ((signals[0].revents & POLLIN) == 0) return;
    try {
      MariaConnection second(address, connection.password_, connection.name_);
      second.Execute(fmt::format("KILL QUERY {}", statement), IfLost::kFail);
    } catch (const StoreFailure&) {
      // What can't be ended so ends by its time limit.
    }
  }

  MariaConnection& connection;
  MariaAddress address;  // of the server that it is connected to
  int over;
  std::thread thread;
};

MariaConnection::Interruptible::Interruptible(MariaConnection& connection) {
  std::uint64_t stale = 0;
  [[maybe_unused]] const ssize_t drained = read(connection.interruptSignal_, &stale, sizeof stale);
  connection.Connect();
  watch_ = std::make_unique<Watch>(connection);
  const SignalsBlocked blocked;
  watch_->thread =
      std::thread([watch = watch_.get(), id = mysql_thread_id(connection.handle_)] { watch->Run(id); });
}

MariaConnection::Interruptible::~Interruptible() {
  const std::uint64_t once = 1;
  [[maybe_unused]] const ssize_t written = write(watch_->over, &once, sizeof once);
  watch_->thread.join();
}

}  // namespace nvadmin::engine

#include "host/Commands.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <fmt/format.h>
#include <pthread.h>
#include <pwd.h>
#include <unistd.h>

#include "engine/CodePage.h"
#include "engine/Home.h"
#include "engine/stores/CheckStore.h"
#include "engine/stores/OpenStore.h"
#include "engine/stores/Store.h"
#include "host/PasswordPrompt.h"
#include "host/ScreenText.h"
#include "host/ServerLog.h"
#include "host/StreamPort.h"
#include "host/TerminalPort.h"
#include "host/Users.h"
#include "samples/Demo.h"

namespace nvadmin::host {

namespace {

// The session's thread tells the waiting one with it that the session is over.
constexpr int kSessionOver = SIGUSR1;

std::filesystem::path HomeFolder(const CommandSettings& settings) {
  return settings.home.empty() ? engine::Home::DefaultFolder() : settings.home;
}

std::string UserName() {
  const uid_t number = geteuid();
  std::array<char, 16384> text{};
  passwd entry{};
  passwd* found = nullptr;
  getpwuid_r(number, &entry, text.data(), text.size(), &found);
  return found != nullptr ? found->pw_name : fmt::format("uid{}", number);
}

// Where the user of this program sits: the terminal, or the process where there is none.
std::string Seat() {
  constexpr std::string_view kDevices = "/dev/";
  std::array<char, 256> name{};
  if (ttyname_r(STDIN_FILENO, name.data(), name.size()) != 0) return fmt::format("process {}", getpid());
  std::string_view terminal = name.data();
  if (terminal.starts_with(kDevices)) terminal.remove_prefix(kDevices.size());
  return fmt::format("terminal {}", engine::ForeignText(terminal));
}

// The account to enter, as the user or its being the only one says; empty, with the complaint made, when that
// is open.
std::string ChooseAccount(const engine::Home& home, const CommandSettings& settings) {
  if (!settings.account.empty()) return settings.account;
  const std::vector<engine::Account> accounts = home.Accounts();
  if (accounts.size() == 1) return accounts.front().name;
  if (home.FindAccount(samples::kDemoAccount)) return std::string(samples::kDemoAccount);
  if (accounts.empty()) {
    Complain(
        "the home has no account: make one with 'nvadmin account add NAME --datastore WORD', or run 'nvadmin "
        "demo'");
    return {};
  }
  std::string names;
  for (const engine::Account& account : accounts) names += " " + account.name;
  Complain("which account? Choose with --account NAME:" + names);
  return {};
}

// The trace file as a channel. It holds item text, so others can't read it; control bytes are escaped.
std::function<void(std::string_view)> OpenTrace(const std::filesystem::path& file) {
  if (file.empty()) return {};
  const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (descriptor < 0) {
    throw EngineFailure(fmt::format("can't write the trace file {}: {}", engine::ForeignText(file.string()),
                                    std::generic_category().message(errno)));
  }
  // Open for the life of the program.
  return [descriptor, screen = ScreenText(/*hasCursor=*/false)](std::string_view line) mutable {
    std::string shown;
    screen.Append(shown, line, /*lineEnd=*/true);
    [[maybe_unused]] const ssize_t written = write(descriptor, shown.data(), shown.size());
  };
}

// Runs the session on a thread of its own while this one waits. The signals that a terminal takes go to it.
ExitCode RunOnOwnThread(TclSession& session, TerminalPort* terminal) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, kSessionOver);
  if (terminal != nullptr) {
    for (const int signal : TerminalPort::kSignals) sigaddset(&signals, signal);
  }
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  ExitCode exitCode = ExitCode::kFine;
  const pthread_t waiting = pthread_self();
  std::thread thread([&] {
    exitCode = session.Run();
    pthread_kill(waiting, kSessionOver);
  });
  for (int signal = 0; sigwait(&signals, &signal) == 0 && signal != kSessionOver;) {
    terminal->Notify(signal);  // first, so that a sentence that begins just now learns of it
    const bool stopsSentence = signal == SIGINT || signal == SIGHUP || signal == SIGTERM;
    if (stopsSentence) session.Interrupt();
  }
  thread.join();
  return exitCode;
}

ExitCode RunSession(engine::Home& home, const CommandSettings& settings, const GivenSentences& sentences) {
  TclSettings session;
  session.account = ChooseAccount(home, settings);
  if (session.account.empty()) return ExitCode::kNoEntry;
  session.user = UserName();
  session.from = Seat();
  session.sentences = sentences;
  session.trace = OpenTrace(settings.trace);

  const bool typed = isatty(STDIN_FILENO) != 0;
  const bool seen = isatty(STDOUT_FILENO) != 0;
  session.prompts = typed && !sentences;
  if (typed && seen) {
    TerminalPort port(home.Folder() / "history");
    TclSession tcl(home, port, std::move(session));
    return RunOnOwnThread(tcl, &port);
  }
  // Pages that nobody sees can't be answered by who types.
  const bool waitsAreAnswered = !sentences || !typed;
  StreamPort port(waitsAreAnswered ? STDIN_FILENO : kNoInput, STDOUT_FILENO);
  TclSession tcl(home, port, std::move(session));
  return RunOnOwnThread(tcl, nullptr);
}

// Readable by this user alone, from its first moment; one that was kept before stays until this one is whole.
void KeepPassword(const std::filesystem::path& file, std::string_view password) {
  const std::string beside = file.string() + ".new";
  unlink(beside.c_str());
  const int descriptor = open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  const std::string line = std::string(password) + '\n';
  const bool isKept = descriptor >= 0 &&
                      write(descriptor, line.data(), line.size()) == static_cast<ssize_t>(line.size()) &&
                      fsync(descriptor) == 0 && rename(beside.c_str(), file.c_str()) == 0;
  const int number = errno;
  if (descriptor >= 0) close(descriptor);
  if (isKept) return;
  unlink(beside.c_str());
  throw EngineFailure(fmt::format("can't keep the password in {}: {}", engine::ForeignText(file.string()),
                                  std::generic_category().message(number)));
}

// Keeps the new account's password, if there is one to be kept, and opens its store once, which makes its
// database.
bool CanBeEntered(engine::Home& home, std::string_view name, std::string_view password, std::string& error) {
  try {
    const engine::Account account = home.FindAccount(name).value();
    if (!password.empty()) KeepPassword(home.PasswordFile(account), password);
    engine::OpenStore(home, account);
    return true;
  } catch (const EngineFailure& failure) {
    error = failure.what();
    return false;
  }
}

// Finds out whether the account's database will do, and asks for its password if nothing else gives it.
// False, with the complaint made, if it won't.
bool PrepareStore(const engine::Home& home, const engine::Account& account, bool tells,
                  std::string& password) {
  engine::StorePlace place = engine::FindStorePlace(home, account);
  const bool isGiven =
      !place.address.passwordFile.empty() || std::getenv(engine::kStorePasswordVariable) != nullptr;
  if (!isGiven) {
    const std::optional<std::string> answer = AskStorePassword(place.address.user, place.address.database);
    if (!answer) return false;
    password = place.password = *answer;
  }
  bool isFit = false;
  const auto lines = engine::CheckStore(place, isFit);
  for (const auto& [word, text] : lines) {
    if (tells) fmt::print("{:<14} {}\n", word, engine::ToUtf8(text));
  }
  if (!isFit && !tells) Complain(lines.back().second);
  return isFit;
}

// Runs what needs the home; what fails on the way there is told.
template <typename Action>
ExitCode WithHome(const CommandSettings& settings, bool makeHome, const Action& action) {
  try {
    const std::filesystem::path folder = HomeFolder(settings);
    if (makeHome) engine::Home::Make(folder);
    std::error_code ignored;
    if (!std::filesystem::exists(folder, ignored)) {
      throw EngineFailure(
          fmt::format("there is no home at {}: make one with 'nvadmin account add NAME --datastore WORD', "
                      "or run 'nvadmin demo'",
                      engine::ForeignText(folder.string())));
    }
    engine::Home home(folder);
    return action(home);
  } catch (const std::exception& failure) {
    Complain(failure.what());
    return ExitCode::kNoEntry;
  }
}

// Runs what changes the users; a refusal is told.
template <typename Change>
ExitCode ChangeUsers(const CommandSettings& settings, const Change& change) {
  return WithHome(settings, /*makeHome=*/false, [&](engine::Home& home) {
    Users users(home);
    std::string error;
    if (change(users, error)) return ExitCode::kFine;
    if (!error.empty()) Complain(error);
    return ExitCode::kFailed;
  });
}

}  // namespace

ExitCode RunTcl(const CommandSettings& settings, const GivenSentences& sentences) {
  return WithHome(settings, /*makeHome=*/false,
                  [&](engine::Home& home) { return RunSession(home, settings, sentences); });
}

ExitCode RunDemo(const CommandSettings& settings, const GivenSentences& sentences) {
  return WithHome(settings, /*makeHome=*/true, [&](engine::Home& home) {
    samples::MakeDemoAccounts(home, std::cerr);
    CommandSettings inDemo = settings;
    if (inDemo.account.empty()) inDemo.account = samples::kDemoAccount;
    return RunSession(home, inDemo, sentences);
  });
}

ExitCode RunServe(const CommandSettings& settings, const ServeSettings& serve) {
  std::error_code ignored;
  const bool isNew = !std::filesystem::exists(HomeFolder(settings), ignored);
  return WithHome(settings, isNew, [&](engine::Home& home) {
    if (isNew) {
      LogEvent(fmt::format("there was no home at {}: it is made now, with the account {}",
                           engine::ForeignText(home.Folder().string()), samples::kDemoAccount));
      samples::MakeDemoAccounts(home, std::cerr);
    }
    return Serve(home, serve, OpenTrace(settings.trace));
  });
}

ExitCode AddAccount(const CommandSettings& settings, const NewAccount& given) {
  return WithHome(settings, /*makeHome=*/true, [&](engine::Home& home) {
    engine::Account account;
    account.name = given.name;
    account.datastore = given.datastore;
    account.synchronous = given.synchronous;
    std::string error;
    std::string refused;
    if (!engine::FromUtf8(given.store, account.store, refused))
      throw EngineFailure(
          fmt::format("the address has {}, which is not in the code page Windows-1252", refused));
    std::string password;
    if (!account.store.empty() && !PrepareStore(home, account, given.checkOnly, password))
      return ExitCode::kFailed;
    if (given.checkOnly) return ExitCode::kFine;
    if (home.AddAccount(account, error)) {
      if (CanBeEntered(home, given.name, password, error)) return ExitCode::kFine;
      home.RemoveAccount(given.name);
    }
    Complain(error);
    return ExitCode::kFailed;
  });
}

ExitCode SetStorePassword(const CommandSettings& settings, std::string_view name) {
  return WithHome(settings, /*makeHome=*/false, [&](engine::Home& home) {
    const std::optional<engine::Account> account = home.FindAccount(name);
    if (!account || account->store.empty()) {
      Complain(fmt::format(
          "there is no account {} with a database at an address; 'nvadmin account list' shows them",
          engine::ForeignText(name)));
      return ExitCode::kFailed;
    }
    engine::StorePlace place = engine::FindStorePlace(home, *account);
    if (!place.address.passwordFile.empty()) {
      Complain(fmt::format("account {} takes its password from {}, as its address says; change it there",
                           account->name, place.address.passwordFile));
      return ExitCode::kFailed;
    }
    if (std::getenv(engine::kStorePasswordVariable) != nullptr) {
      Complain(fmt::format("{} is set and goes before what is kept: unset it first",
                           engine::kStorePasswordVariable));
      return ExitCode::kFailed;
    }
    const std::optional<std::string> answer = AskStorePassword(place.address.user, place.address.database);
    if (!answer) return ExitCode::kFailed;
    place.password = *answer;
    bool isFit = false;
    engine::CheckStore(place, isFit);
    KeepPassword(home.PasswordFile(*account), place.password);
    return ExitCode::kFine;
  });
}

ExitCode SetSynchronous(const CommandSettings& settings, std::string_view name,
                        engine::Synchronous synchronous) {
  return WithHome(settings, /*makeHome=*/false, [&](engine::Home& home) {
    const std::optional<engine::Account> account = home.FindAccount(name);
    if (account && account->store.empty() && home.SetSynchronous(name, synchronous)) return ExitCode::kFine;
    Complain(fmt::format("there is no account {} in a file of the home; 'nvadmin account list' shows them",
                         engine::ForeignText(name)));
    return ExitCode::kFailed;
  });
}

ExitCode ListAccounts(const CommandSettings& settings) {
  return WithHome(settings, /*makeHome=*/false, [](engine::Home& home) {
    for (const engine::Account& account : home.Accounts()) {
      const bool isRelaxed = account.synchronous == engine::Synchronous::kNormal;
      fmt::print("{:<20} {}{}{}{}\n", account.name, account.datastore, account.store.empty() ? "" : "  ",
                 engine::ToUtf8(account.store), isRelaxed ? "  synchronous NORMAL" : "");
    }
    return ExitCode::kFine;
  });
}

ExitCode RemoveAccount(const CommandSettings& settings, std::string_view name) {
  return WithHome(settings, /*makeHome=*/false, [&](engine::Home& home) {
    Users(home).ForgetAccount(name);
    if (home.RemoveAccount(name)) return ExitCode::kFine;
    Complain(fmt::format("there is no account {}; 'nvadmin account list' shows the accounts",
                         engine::ForeignText(name)));
    return ExitCode::kFailed;
  });
}

ExitCode AddUser(const CommandSettings& settings, std::string_view name,
                 const std::vector<std::string>& accounts) {
  return ChangeUsers(settings, [&](Users& users, std::string& error) {
    if (!users.CanAdd(name, accounts, error)) return false;
    const std::optional<std::string> password = AskNewPassword(name);
    return password && users.Add(name, accounts, *password, error);
  });
}

ExitCode SetPassword(const CommandSettings& settings, std::string_view name) {
  return ChangeUsers(settings, [&](Users& users, std::string& error) {
    if (!users.Has(name, error)) return false;
    const std::optional<std::string> password = AskNewPassword(name);
    return password && users.SetPassword(name, *password, error);
  });
}

ExitCode SetUserAccounts(const CommandSettings& settings, std::string_view name,
                         const std::vector<std::string>& accounts) {
  return ChangeUsers(
      settings, [&](Users& users, std::string& error) { return users.SetAccounts(name, accounts, error); });
}

ExitCode ListUsers(const CommandSettings& settings) {
  return WithHome(settings, /*makeHome=*/false, [](engine::Home& home) {
    for (const User& user : Users(home).All())
      fmt::print("{:<20} {}\n", user.name, fmt::join(user.accounts, ","));
    return ExitCode::kFine;
  });
}

ExitCode RemoveUser(const CommandSettings& settings, std::string_view name) {
  return ChangeUsers(settings, [&](Users& users, std::string& error) { return users.Remove(name, error); });
}

}  // namespace nvadmin::host

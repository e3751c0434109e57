// The program's command line.
#include <csignal>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "host/Commands.h"

namespace {

using nvadmin::host::CommandSettings;
using nvadmin::host::ExitCode;
using nvadmin::host::GivenSentences;

constexpr char kVersion[] = "nvadmin " NVADMIN_VERSION;
constexpr char kExitCodes[] =
    "Exit codes: 0 fine; 1 a sentence or command failed; 2 the command line is wrong; 3 lines were refused;\n"
    "4 the home or account can't be opened, or a server's address not be taken.";

struct Given {
  CommandSettings settings;
  std::vector<std::string> sentences;
  std::string account;
  nvadmin::host::NewAccount newAccount;
  std::string user;
  std::vector<std::string> userAccounts;
  nvadmin::host::ServeSettings serve;
  std::function<ExitCode()> run;  // of the command chosen
};

void AddSentencesOption(CLI::App& command, Given& given) {
  command.add_option("-c", given.sentences, "Run this sentence and end; may be given more than once")
      ->type_name("SENTENCE")
      ->allow_extra_args(false);
}

GivenSentences Sentences(const CLI::App& command, const Given& given) {
  return command.count("-c") > 0 ? GivenSentences(given.sentences) : std::nullopt;
}

void AddSessionCommands(CLI::App& app, Given& given) {
  CLI::App* tcl = app.add_subcommand("tcl", "The TCL prompt; sentences from a pipe are run without prompts");
  AddSentencesOption(*tcl, given);
  tcl->callback([tcl, &given] {
    given.run = [tcl, &given] { return nvadmin::host::RunTcl(given.settings, Sentences(*tcl, given)); };
  });
  CLI::App* demo =
      app.add_subcommand("demo", "Make the home and the demo account if missing, then the TCL prompt in it");
  AddSentencesOption(*demo, given);
  demo->callback([demo, &given] {
    given.run = [demo, &given] { return nvadmin::host::RunDemo(given.settings, Sentences(*demo, given)); };
  });
}

CLI::Option* AddSynchronousOption(CLI::App& command, Given& given) {
  const auto read = [&given](const std::string& word) {
    given.newAccount.synchronous =
        word == "NORMAL" ? nvadmin::engine::Synchronous::kNormal : nvadmin::engine::Synchronous::kFull;
  };
  return command
      .add_option_function<std::string>(
          "--synchronous", read,
          "FULL: what is answered is on the disk. NORMAL: soon after; many small writes are faster, and a "
          "power cut may lose the last ones")
      ->transform(CLI::IsMember({"FULL", "NORMAL"}, CLI::ignore_case))
      ->type_name("WORD");
}

void AddAccountCommands(CLI::App& app, Given& given) {
  CLI::App* account =
      app.add_subcommand("account", "Add, change, list and remove accounts")->require_subcommand(1);
  CLI::App* add = account->add_subcommand("add", "Add an account; makes the home if it is missing");
  add->add_option("NAME", given.newAccount.name, "Letters, digits, \"_\", \"-\" and \".\"")->required();
  add->add_option("--datastore", given.newAccount.datastore,
                  "JET, MSSQL, MYSQL, ORACLE, or a word that begins with MV")
      ->type_name("WORD")
      ->required();
  CLI::Option* store = add->add_option("--store", given.newAccount.store,
                                       "Keep its files in a MariaDB database: "
                                       "mariadb://USER@HOST:PORT,HOST2:PORT/DATABASE?OPTION=VALUE")
                           ->type_name("ADDRESS")
                           ->check([](const std::string& address) {
                             return std::string(address.empty() ? "the address is empty" : "");
                           });
  AddSynchronousOption(*add, given)->excludes(store);
  add->add_flag("--check", given.newAccount.checkOnly, "Tell of the database, and add nothing")->needs(store);
  add->footer(
      "The password of the database is the first line of the file that the address names "
      "(password-file=PATH), or the\n"
      "environment variable NVADMIN_STORE_PASSWORD; else it is asked for, or read from standard input, and "
      "kept in the\n"
      "home. Other options of an address: socket, tls, tls-ca, tls-cert, tls-key, connect-timeout, timeout.");
  add->callback([&given] {
    given.run = [&given] { return nvadmin::host::AddAccount(given.settings, given.newAccount); };
  });
  CLI::App* password =
      account->add_subcommand("password", "Ask for the password of an account's database anew");
  password->add_option("NAME", given.account, "The account")->required();
  password->callback([&given] {
    given.run = [&given] { return nvadmin::host::SetStorePassword(given.settings, given.account); };
  });
  CLI::App* set = account->add_subcommand("set", "Change a setting of an account in a file of the home");
  set->add_option("NAME", given.account, "The account")->required();
  AddSynchronousOption(*set, given)->required();
  set->callback([&given] {
    given.run = [&given] {
      return nvadmin::host::SetSynchronous(given.settings, given.account, given.newAccount.synchronous);
    };
  });
  account->add_subcommand("list", "List the accounts and their datastore words")->callback([&given] {
    given.run = [&given] { return nvadmin::host::ListAccounts(given.settings); };
  });
  CLI::App* remove = account->add_subcommand("remove", "Remove an account with all its files; of one on a server the database stays");
  remove->add_option("NAME", given.account, "The account")->required();
  remove->callback([&given] {
    given.run = [&given] { return nvadmin::host::RemoveAccount(given.settings, given.account); };
  });
}

CLI::App* AddUserCommand(CLI::App& user, Given& given, const char* word, const char* help) {
  CLI::App* command = user.add_subcommand(word, help);
  command->add_option("NAME", given.user, "The user; letter case doesn't matter")->required();
  return command;
}

void AddUserAccountsOption(CLI::App& command, Given& given) {
  command.add_option("--account", given.userAccounts, "The accounts to enter; '*' is every account")
      ->type_name("A,B")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->required();
}

void AddUserCommands(CLI::App& app, Given& given) {
  CLI::App* user = app.add_subcommand("user", "Add, change, list and remove the users of a server");
  user->require_subcommand(1);
  user->footer("A password is asked for at the terminal, else read from standard input, one line.");
  CLI::App* add = AddUserCommand(*user, given, "add", "Add a user; asks for the password");
  AddUserAccountsOption(*add, given);
  add->callback([&given] {
    given.run = [&given] { return nvadmin::host::AddUser(given.settings, given.user, given.userAccounts); };
  });
  AddUserCommand(*user, given, "passwd", "Ask for a new password")->callback([&given] {
    given.run = [&given] { return nvadmin::host::SetPassword(given.settings, given.user); };
  });
  CLI::App* accounts = AddUserCommand(*user, given, "accounts", "Set the accounts that a user may enter");
  AddUserAccountsOption(*accounts, given);
  accounts->callback([&given] {
    given.run = [&given] {
      return nvadmin::host::SetUserAccounts(given.settings, given.user, given.userAccounts);
    };
  });
  user->add_subcommand("list", "List the users and their accounts")->callback([&given] {
    given.run = [&given] { return nvadmin::host::ListUsers(given.settings); };
  });
  AddUserCommand(*user, given, "remove", "Remove a user; sessions under way go on")->callback([&given] {
    given.run = [&given] { return nvadmin::host::RemoveUser(given.settings, given.user); };
  });
}

// A number of something, in the unit that the option's text tells.
template <typename Duration>
CLI::Option* AddSeconds(CLI::App& command, const char* name, Duration& seconds, const char* help) {
  return command
      .add_option_function<std::int64_t>(
          name, [&seconds](const std::int64_t& number) { seconds = Duration(number); }, help)
      ->type_name("SECONDS")
      ->check(CLI::Range(std::int64_t{1}, std::int64_t{10'000'000}))
      ->default_str(std::to_string(seconds.count()));
}

CLI::Option* AddCount(CLI::App& command, const char* name, std::size_t& count, const char* help) {
  return command.add_option(name, count, help)
      ->type_name("NUMBER")
      ->check(CLI::Range(std::size_t{1}, std::size_t{1} << 40))
      ->capture_default_str();
}

void AddServeCommand(CLI::App& app, Given& given) {
  CLI::App* serve = app.add_subcommand(
      "serve",
      "Serve browsers, terminals and client programs over the network (alone: --web 127.0.0.1:8080)");
  nvadmin::host::ServeSettings& settings = given.serve;
  const auto isAddress = [](const std::string& text) {
    return nvadmin::host::IsAddress(text) ? "" : "write HOST:PORT, for instance 127.0.0.1:7023";
  };
  serve
      ->add_option("--line", settings.line,
                   "The address for terminals and client programs; port 0 takes one that is free")
      ->type_name("HOST:PORT")
      ->check(isAddress);
  serve->add_option("--web", settings.web, "The address for browsers")
      ->type_name("HOST:PORT")
      ->check(isAddress);
  serve
      ->add_option(
          "--web-name", settings.webNames,
          "A name by which browsers may know the server, https://NAME behind a proxy that speaks TLS; "
          "may be given more than once")
      ->type_name("NAME")
      ->check([](const std::string& text) {
        return nvadmin::host::IsWebName(text) ? "" : "write NAME or https://NAME, without a port";
      })
      ->allow_extra_args(false);
  CLI::Option* certificate =
      serve->add_option("--tls-cert", settings.certificate, "Serve under TLS: the certificate chain, PEM")
          ->type_name("FILE");
  CLI::Option* key = serve->add_option("--tls-key", settings.key, "Its private key, PEM")
                         ->type_name("FILE")
                         ->needs(certificate);
  certificate->needs(key);
  serve->add_flag("--insecure", settings.insecure, "Allow plain text beyond this machine");
  AddCount(*serve, "--max-line", settings.lineLimits.lineBytes,
           "Longest line that a client may send, in bytes");
  AddCount(*serve, "--max-request", settings.lineLimits.requestBytes,
           "Longest request over all of its lines, in bytes");
  AddSeconds(*serve, "--idle", settings.lineLimits.idle, "End a session that waits this long for a line");
  AddSeconds(*serve, "--stall", settings.lineLimits.stall,
             "End a session whose client takes nothing for this long");
  AddSeconds(*serve, "--resume", settings.resume,
             "Keep the session of a page that lost its connection this long");
  AddSeconds(*serve, "--log-in", settings.logIn, "Time for a log-in");
  AddSeconds(*serve, "--logged-in", settings.loggedIn, "End a browser's log-in this long after its last use");
  AddCount(*serve, "--max-sessions", settings.sessionLimits.all, "Most sessions at once");
  AddCount(*serve, "--max-sessions-per-address", settings.sessionLimits.perAddress,
           "Most sessions at once from one address");
  serve->footer(
      "SIGTERM or SIGINT ends the server: what runs may end within ten seconds; a second one ends at once.");
  serve->callback(
      [&given] { given.run = [&given] { return nvadmin::host::RunServe(given.settings, given.serve); }; });
}

}  // namespace

int main(int argc, char** argv) {
  // A write that can't be done is a failure with a text, not the end of the program.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);

  CLI::App app("NvAdmin: accounts, files, reports and queries of a multivalue database.", "nvadmin");
  Given given;
  app.set_version_flag("--version", kVersion);
  app.footer(kExitCodes);
  app.fallthrough();
  app.require_subcommand(1);
  app.add_option("--home", given.settings.home,
                 "The folder that holds all accounts (default: ~/.local/share/nvadmin)")
      ->type_name("DIR");
  app.add_option("--account", given.settings.account,
                 "The account to enter (default: the only one, else DEMO)")
      ->type_name("NAME");
  app.add_option("--trace", given.settings.trace,
                 "Append the debug trace, which holds item text, to this file")
      ->type_name("FILE");
  AddSessionCommands(app, given);
  AddAccountCommands(app, given);
  AddUserCommands(app, given);
  AddServeCommand(app, given);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return static_cast<int>(app.exit(error) == 0 ? ExitCode::kFine : ExitCode::kUsage);
  }
  const ExitCode exitCode = given.run();
  const bool shown = std::fflush(stdout) == 0;
  return static_cast<int>(exitCode == ExitCode::kFine && !shown ? ExitCode::kFailed : exitCode);
}

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
    "4 the home or account can't be opened.";

struct Given {
  CommandSettings settings;
  std::vector<std::string> sentences;
  std::string account;
  std::string datastore;
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

void AddAccountCommands(CLI::App& app, Given& given) {
  CLI::App* account = app.add_subcommand("account", "Add, list and remove accounts")->require_subcommand(1);
  CLI::App* add = account->add_subcommand("add", "Add an account; makes the home if it is missing");
  add->add_option("NAME", given.account, "Letters, digits, \"_\", \"-\" and \".\"")->required();
  add->add_option("--datastore", given.datastore, "JET, MSSQL, MYSQL, ORACLE, or a word that begins with MV")
      ->type_name("WORD")
      ->required();
  add->callback([&given] {
    given.run = [&given] {
      return nvadmin::host::AddAccount(given.settings, given.account, given.datastore);
    };
  });
  account->add_subcommand("list", "List the accounts and their datastore words")->callback([&given] {
    given.run = [&given] { return nvadmin::host::ListAccounts(given.settings); };
  });
  CLI::App* remove = account->add_subcommand("remove", "Remove an account with all its files");
  remove->add_option("NAME", given.account, "The account")->required();
  remove->callback([&given] {
    given.run = [&given] { return nvadmin::host::RemoveAccount(given.settings, given.account); };
  });
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
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return static_cast<int>(app.exit(error) == 0 ? ExitCode::kFine : ExitCode::kUsage);
  }
  const ExitCode exitCode = given.run();
  const bool shown = std::fflush(stdout) == 0;
  return static_cast<int>(exitCode == ExitCode::kFine && !shown ? ExitCode::kFailed : exitCode);
}

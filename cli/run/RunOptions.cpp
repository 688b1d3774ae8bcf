#include "cli/run/RunOptions.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "cli/base/Numbers.h"
#include "cli/run/CheckCommand.h"
#include "cli/run/RunCommand.h"

namespace pimbsr::cli {

static constexpr char const* defaultFile = "/etc/pimbsr/pimbsr.toml";

static constexpr char const* aboutRun = "Run a Bootstrap Router on this host's interfaces";

static constexpr char const* footRun =
    "Speaks PIM Hello, Bootstrap and Candidate-RP-Advertisement messages on the interfaces that\n"
    "the configuration file names. It is no candidate for anything that the file doesn't ask\n"
    "for. It stays in the foreground and logs to the standard error stream.\n"
    "\n"
    "It needs root, or CAP_NET_RAW. Once its sockets are open it gives up every other\n"
    "capability, and filters its own system calls.\n"
    "\n"
    "SIGHUP, or 'pimbsr reload', has the file read again. SIGTERM or SIGINT ends it: it gives up\n"
    "its candidacies and sends goodbye Hellos.\n"
    "\n"
    "Examples:\n"
    "  sudo pimbsr run\n"
    "  sudo pimbsr run --config pimbsr.toml\n"
    "  sudo pimbsr run --on-change /usr/local/sbin/install-rp-set\n"
    "\n"
    "Exit status: 0 if a signal ended it; 1 if it can't start; 2 for a wrong argument.\n";

static constexpr char const* aboutCheck = "Check a configuration file without running it";

static constexpr char const* footCheck =
    "Every error is printed with its line and column, what was read and what would be valid; and,\n"
    "as warnings, what is legal but unwise.\n"
    "\n"
    "Examples:\n"
    "  pimbsr check examples/pimbsr.toml\n"
    "  pimbsr check --json examples/pimbsr.toml\n"
    "  pimbsr check --rewrite pimbsr.toml\n"
    "\n"
    "Exit status: 0 if it can be run, also with warnings; 1 if it has an error or can't be read;\n"
    "2 for a wrong argument.\n";

/// Why a text is no number of a range; empty if it is. CLI11's own ranges let "nan" through.
static std::string rangeError(std::string const& text, double low, double high) {
  std::optional<double> number = numberOf<double>(text);
  if (number && *number >= low && *number <= high) return {};
  return fmt::format("'{}' is no number from {} to {}", text, low, high);
}

static void addChangeOptions(CLI::App& command, agent::RunOptions& run) {
  CLI::Option* change = command.add_option(
      "--on-change", run.changeCommand,
      "Run a shell command with the RP set as JSON on its standard input after each\n"
      "change of it, and once after the start: once for changes close together, and never\n"
      "two at a time. It runs with the rights that this command was started with");
  change->type_name("COMMAND");
  change->check([](std::string const& text) -> std::string {
    bool isEmpty = text.find_first_not_of(" \t\n") == std::string::npos;
    return isEmpty ? "the command is empty; leave the option out for none" : "";
  });
  command
      .add_option("--on-change-timeout", run.changeTimeLimit,
                  "Seconds after which a run of that command is ended, 1 to 3600")
      ->type_name("SECONDS")
      ->check([](std::string const& text) { return rangeError(text, 1, 3600); })
      ->capture_default_str()
      ->needs(change);
}

static void addRun(CLI::App& app, RunChoice& choice) {
  CLI::App& command = *app.add_subcommand("run", aboutRun);
  command.footer(footRun);
  choice.run.file = defaultFile;
  command.add_option("--config", choice.run.file, "The configuration file")
      ->type_name("FILE")
      ->capture_default_str();
  addChangeOptions(command, choice.run);
  command.add_flag("--unprivileged-check", choice.run.privilegeCheck,
                   "Start as usual, print which privileges are held then, and end");
  command
      .add_option("--clock-rate", choice.run.clockRate,
                  "For labs only: let the clock run N times as fast, 1 to 1000. Neighbors must do\n"
                  "the same")
      ->type_name("N")
      ->check([](std::string const& text) { return rangeError(text, 1, 1000); });
  command.add_flag_callback(
      "--without-sandbox", [&choice] { choice.run.sandbox = false; },
      "For debuggers and leak checks only: don't filter system calls");
  command.final_callback([&choice] {
    choice.chosen = [&choice](std::ostream& out, std::ostream& err) {
      return runAgent(choice.run, out, err);
    };
  });
}

static void addCheck(CLI::App& app, RunChoice& choice) {
  CLI::App& command = *app.add_subcommand("check", aboutCheck);
  command.footer(footCheck);
  command.add_option("FILE", choice.checkFile, "The configuration file")->type_name("")->required();
  command.add_flag("--json", choice.checkJson, "Print one JSON document, and nothing else");
  command.add_flag("--rewrite", choice.checkRewrite,
                   "First write the file anew with the names that keys have now; comments and layout\n"
                   "stay");
  command.final_callback([&choice] {
    choice.chosen = [&choice](std::ostream& out, std::ostream& err) {
      if (choice.checkRewrite) return rewriteConfig(choice.checkFile, choice.checkJson, out, err);
      return checkConfig(choice.checkFile, choice.checkJson, out, err);
    };
  });
}

void addRunCommands(CLI::App& app, RunChoice& choice) {
  addRun(app, choice);
  addCheck(app, choice);
}

}  // namespace pimbsr::cli

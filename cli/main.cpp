#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <functional>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "agent/base/Version.h"
#include "cli/base/CorrectionsOption.h"
#include "cli/base/Errors.h"
#include "cli/base/LimitOption.h"
#include "cli/complete/Complete.h"
#include "cli/replay/ReplayCommand.h"
#include "cli/replay/ReplayOptions.h"
#include "cli/run/RunOptions.h"
#include "cli/show/ControlOptions.h"
#include "cli/sim/RandomCommand.h"
#include "cli/sim/SimCommand.h"
#include "cli/web/WebCommand.h"
#include "host/Configuration.keys.h"

namespace pimbsr::cli {

static constexpr char const* about =
    "pimbsr: a Bootstrap Router for PIM (RFC 5059, IPv4).\n"
    "\n"
    "Bootstrap Routers inform every PIM router of a domain which rendezvous points (RPs)\n"
    "serve which multicast groups.";

static constexpr char const* foot =
    "docs/operations.md walks through set-up and tables, docs/troubles.md through troubles, from\n"
    "the first look to the cause. The package has both in /usr/share/doc/pimbsr.\n";

static constexpr char const* aboutReplay = "Play a capture and print what a router learned, and when";

static constexpr char const* footReplay =
    "The capture is played through a router that is no candidate anywhere. The output has each\n"
    "Bootstrap Message, accepted or dropped, each change of a zone's BSR, each RP added,\n"
    "updated, removed or expired, and at the end the BSR and the RP set of each zone and the\n"
    "counters. Hellos and other PIM messages are counted and not listed.\n"
    "\n"
    "The file is pcap or pcapng, of Ethernet (also with VLAN tags), Linux cooked, raw IP or\n"
    "BSD loopback. Time is virtual and follows the packets' stamps; a packet stamped before\n"
    "the one ahead of it is played at that one's time. The router starts with the first\n"
    "packet.\n"
    "\n"
    "Examples:\n"
    "  pimbsr replay examples/two-scopes.pcap\n"
    "  pimbsr replay --json --until 1500 examples/two-scopes.pcap\n"
    "  pimbsr replay --rpf 198.51.100.1=192.0.2.1 examples/two-scopes.pcap\n"
    "  pimbsr replay --trace Pim::Bsr::NonCandidateSm:8 examples/two-scopes.pcap\n"
    "\n"
    "Exit status: 0 if the capture was played to its end, also if there is no PIM in it;\n"
    "1 if it can't be read, or is cut short: then what is before the cut is printed,\n"
    "but nothing with --json; 2 for a wrong argument.\n";

static constexpr char const* helpTrace =
    "Print the engine's trace on stderr, of one handle and from level 0 up to LEVEL:\n"
    "1 has drops, 4 accepted messages, 8 every change, 9 every function;\n"
    "may be given for several handles. A wrong handle lists all";

/// A capture or scenario is one argument, so an option that may be given again takes one value at a time.
static void addRepeatable(CLI::App& command, std::string const& name, std::string const& value,
                          std::string const& help, std::function<void(std::string const&)> const& take) {
  auto takeAll = [take](std::vector<std::string> const& all) {
    for (std::string const& one : all) take(one);
  };
  command.add_option_function<std::vector<std::string>>(name, takeAll, help)
      ->type_name(value)
      ->allow_extra_args(false);
}

static constexpr char const* helpLimit =
    "Set a bound on what a router keeps and does, named as in the table limits of the\n"
    "configuration file, 0 for no bound; or \"none\" for no bounds at all. May be repeated;\n"
    "the bounds are at first those of \"pimbsr run\"";

static void addLimit(CLI::App& command, host::IngressSettings& limits) {
  addRepeatable(command, "--limit", "KEY=N", helpLimit, [&](auto& text) { parseLimit(text, limits); });
}

static constexpr char const* helpCorrections =
    "Use these corrections and no others, named as in the table corrections of the\n"
    "configuration file, with commas between them; or \"all\", as at first, or \"none\"";

static void addCorrections(CLI::App& command, host::IngressSettings& ingress,
                           host::CorrectionSettings& corrections) {
  auto parse = [&](std::string const& text) { parseCorrections(text, corrections); };
  CLI::Option* list = command.add_option_function<std::string>("--corrections", parse, helpCorrections)
                          ->type_name("NAME,...");
  command
      .add_flag_callback(
          "--exact", [&] { exactIs(ingress, corrections); },
          "Play the machines without corrections and checks of packets. The bounds stay: with\n"
          "\"--limit none\" too, the machines are as they are")
      ->excludes(list);
}

/// Rejects an option that has another name now; the message has the new name.
static void addFormer(CLI::App& command, std::string const& former, std::string const& now) {
  auto reject = [=](std::string const&) { throw UsageError(former + " is now called " + now); };
  command.add_option_function<std::string>(former, reject)->group("");
}

/// `source` names the argument that may be a saved document then.
static void addPage(CLI::App& command, Delivery& delivery, char const* source) {
  std::string help = std::string("Write a page for browsers, with all data in it. ") + source +
                     " may be\na saved document of --json then";
  command.add_option("--html", delivery.page, help)->type_name("PAGE");
}

/// The range and the default of a key, as a help text shows them.
static std::string rangeText(host::ConfigKey const& key) {
  return fmt::format("{} to {}\n(default {})", key.least, key.most, key.fallback);
}

static void addReplay(CLI::App& app, ReplayOptions& options) {
  CLI::App& command = *app.add_subcommand("replay", aboutReplay);
  command.footer(footReplay);
  command.add_option("FILE", options.file, "The capture")->type_name("")->required();
  command.add_flag("--json", options.delivery.json,
                   "Print one JSON document: the messages with their verdicts and contents, and\n"
                   "the learned state at the end");
  addPage(command, options.delivery, "FILE");
  auto addTime = [&](std::string const& name, std::string const& help,
                     std::function<void(std::string const&)> const& take) {
    command.add_option_function<std::string>(name, take, help)->type_name("SECONDS");
  };
  addTime("--until",
          fmt::format("Run the clock on for so long after the last packet: 0 to {}\n(default 0)", maxUntil),
          [&](auto& text) { options.until = parseUntil(text); });
  addTime("--bs-timeout",
          "Give up a BSR that has not been heard for so long: " + rangeText(host::TimeoutsKeys::bsTimeout),
          [&](auto& text) { options.router.bsTimeout = parseBsTimeout(text); });
  addTime("--sz-timeout",
          "Forget a scoped zone that has had no BSR for so long: " + rangeText(host::TimeoutsKeys::szTimeout),
          [&](auto& text) { options.router.szTimeout = parseSzTimeout(text); });
  addFormer(command, "--hold-time", "--bs-timeout");
  addFormer(command, "--zone-timeout", "--sz-timeout");
  addRepeatable(command, "--rpf", "BSR=NEIGHBOR",
                "The RPF neighbor towards a BSR; may be given for several BSRs. For the others\n"
                "it is the source of the first message with the No-Forward bit clear",
                [&](auto& text) { parseRpf(text, options); });
  addLimit(command, options.router.ingress);
  addCorrections(command, options.router.ingress, options.router.corrections);
  addRepeatable(command, "--trace", "HANDLE:LEVEL", helpTrace,
                [&](auto& text) { options.traces.push_back(parseTraceRequest(text)); });
}

static constexpr char const* aboutSim = "Play a scenario of many routers in virtual time";

static constexpr char const* footSim =
    "The output has a line for each event, tables where the scenario asks for them, and at\n"
    "the end the learned state of each router. The statements of a scenario are in docs/scenarios.md.\n"
    "The same scenario with the same seed prints the same, byte for byte.\n"
    "\n"
    "Examples:\n"
    "  pimbsr sim examples/five-routers.sim\n"
    "  pimbsr sim --seed 7 --json examples/five-routers.sim\n"
    "  pimbsr sim --pcap /tmp/links examples/five-routers.sim\n"
    "  pimbsr sim --random 1000 --routers 10-50\n"
    "\n"
    "Exit status: 0 if the scenario was played to its end, or all random networks agreed; 1 if\n"
    "one did not, or the output or a capture can't be written; 2 for a wrong argument or a\n"
    "scenario with an error, which is printed with its line.\n";

/// Networks drawn from seeds, in place of a scenario.
static void addRandom(CLI::App& command, CLI::Option& scenario, RandomOptions& options) {
  CLI::Option* random =
      command
          .add_option_function<std::string>(
              "--random", [&](auto& text) { options.trials = parseTrials(text); },
              "Play N random networks with faults, one per seed from that of --seed on, and\n"
              "check packets all the time, that all routers agree once all has healed, and\n"
              "the outages of one change after that")
          ->type_name("N")
          ->excludes(&scenario);
  for (char const* other : {"--html", "--json", "--limit", "--load", "--pcap", "--trace"})
    random->excludes(command.get_option(other));
  command
      .add_option_function<std::string>(
          "--routers", [&](auto& text) { parseRouters(text, options); },
          "Routers of a random network: 2 to 2000, or a span (default 10-50)")
      ->type_name("R")
      ->needs(random);
}

static CLI::App& addSim(CLI::App& app, SimOptions& options, RandomOptions& random) {
  CLI::App& command = *app.add_subcommand("sim", aboutSim);
  command.footer(footSim);
  CLI::Option* scenario = command.add_option("SCENARIO", options.file, "The scenario")->type_name("");
  command.add_flag("--json", options.delivery.json, "Print one JSON document at the end, and nothing else");
  addPage(command, options.delivery, "SCENARIO");
  command
      .add_option_function<std::string>(
          "--load", [&](auto& text) { options.linkLoad = parseLoad(text); },
          "With --json: how many packets each link carried in the course of time, too")
      ->type_name("links")
      ->needs("--json");
  command
      .add_option_function<std::string>(
          "--seed", [&](auto& text) { options.seed = random.firstSeed = parseSeed(text); },
          "Seed of the random numbers: 0 to 18446744073709551615 (default 1)")
      ->type_name("N");
  command.add_option("--pcap", options.pcapFolder, "Write what each link carries to DIR/<link>.pcap")
      ->type_name("DIR");
  addLimit(command, options.ingress);
  addCorrections(command, options.ingress, options.corrections);
  addRepeatable(command, "--trace", "HANDLE:LEVEL", helpTrace,
                [&](auto& text) { options.traces.push_back(parseTraceRequest(text)); });
  addRandom(command, *scenario, random);
  return command;
}

/// Plays a scenario, or random networks with the same bounds and corrections.
static ExitCode runSim(SimOptions const& options, RandomOptions random) {
  if (options.file.empty() && random.trials == 0) {
    std::cerr << "pimbsr: sim: SCENARIO or --random is required\n";
    return exitUsage;
  }
  random.ingress = options.ingress;
  random.corrections = options.corrections;
  if (random.trials != 0) return simulateRandom(random, std::cout, std::cerr);
  return simulate(options, std::cout, std::cerr);
}

static int run(int argc, char** argv) {
  CLI::App app(about, "pimbsr");
  app.set_version_flag("--version", std::string("pimbsr ") + agent::version, "Print the version");
  app.set_help_flag("-h,--help", "Print this help");
  app.require_subcommand(0, 1);  // the parser accepts none, so that the message names a wrong one
  app.footer(foot);
  RunChoice runChoice;
  addRunCommands(app, runChoice);
  ControlOptions control;
  addControlCommands(app, control);
  ReplayOptions options;
  addReplay(app, options);
  SimOptions simOptions;
  RandomOptions randomOptions;
  CLI::App& sim = addSim(app, simOptions, randomOptions);
  WebOptions webOptions;
  CLI::App& web = addWeb(app, webOptions);
  if (argc > 1 && std::string_view(argv[1]) == "__complete")  // no command of its own, so that help has none
    return complete(app, {argv + 2, argv + argc}, std::cout, std::cerr);
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& end) {
    return app.exit(end) == 0 ? exitOk : exitUsage;
  } catch (UsageError const& error) {
    std::cerr << "pimbsr: " << error.what() << '\n';
    return exitUsage;
  }
  if (app.get_subcommands().empty()) {
    std::cerr << "pimbsr: a subcommand is required\n" << app.help();
    return exitUsage;
  }
  if (runChoice.chosen) return runChoice.chosen(std::cout, std::cerr);
  if (control.run) return control.run(std::cout, std::cerr);
  if (web.parsed()) return serveWeb(webOptions, std::cout, std::cerr);
  if (sim.parsed()) return runSim(simOptions, randomOptions);
  return replay(options, std::cout, std::cerr);
}

}  // namespace pimbsr::cli

int main(int argc, char** argv) { return pimbsr::cli::run(argc, argv); }

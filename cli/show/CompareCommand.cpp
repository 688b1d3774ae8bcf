#include "cli/show/CompareCommand.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <ostream>
#include <utility>

#include "agent/control/ControlClient.h"
#include "cli/show/ShowParts.h"
#include "view/Json.h"

namespace pimbsr::cli {

// Asking ----------------------------------------------------------------------------------------------

template <class View>
static void ask(NamedSocket const& from, char const* what, View& answer) {
  answer = view::readView<View>(agent::ask(from.path, {{"command", "show"}, {"what", what}}));
}

view::AgentState stateOf(NamedSocket const& from) {
  view::AgentState state{.name = from.name};
  auto fail = [&](char const* why) { state = {.name = from.name, .error = why}; };
  try {
    ask(from, "bsr", state.bsr);
    ask(from, "borders", state.borders);
    ask(from, "neighbors", state.neighbors);
    ask(from, "drops", state.drops);
  } catch (agent::ClientError const& error) {
    fail(error.what());
  } catch (agent::RequestError const& error) {
    fail(error.what());
  } catch (Json::exception const&) {
    fail("its answer is not understood; is it of this version?");
  } catch (view::ReadError const&) {
    fail("its answer is not understood; is it of this version?");
  }
  return state;
}

// Tables ----------------------------------------------------------------------------------------------

static void writeZone(std::ostream& out, view::ComparedZone const& zone) {
  out << fmt::format("Zone {}: {}\n", view::cellOf(zone.zone, "-"),
                     zone.agree ? "all agree" : "not all agree");
  tableOf(zone.routers).write(out, 2);
}

static void write(std::ostream& out, view::Comparison const& comparison) {
  if (comparison.zones.empty()) out << "No zone is known.\n";
  bool isFirst = true;
  for (view::ComparedZone const& zone : comparison.zones) {
    if (!std::exchange(isFirst, false)) out << '\n';
    writeZone(out, zone);
  }
  if (comparison.silent.empty()) return;
  out << "\nAgents that do not answer\n";
  tableOf(comparison.silent).write(out, 2);
}

ExitCode compareAgents(CompareOptions const& options, std::ostream& out, std::ostream& err) {
  std::vector<view::AgentState> states;
  try {
    for (NamedSocket const& from : parseNamedSockets(options.agents)) states.push_back(stateOf(from));
  } catch (UsageError const& error) {
    err << "pimbsr: " << error.what() << '\n';
    return exitUsage;
  }
  view::Comparison comparison = view::compare(states);
  if (options.json) {
    out << jsonOf(comparison).dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
  } else {
    write(out, comparison);
  }
  ExitCode written = finish(out, err);
  return comparison.agree ? written : exitFailed;
}

// The command -----------------------------------------------------------------------------------------

static constexpr char const* aboutCompare = "Show which agents have learned the same, and why others haven't";

static constexpr char const* footCompare =
    "Each AGENT is a control socket, or NAME=SOCKET. Agents with the same letter have the same\n"
    "BSR and the same RPs of a zone; the digest is the one of 'pimbsr show bsr', so that it can\n"
    "be compared with a router that has no socket here. Sockets of other systems are reached\n"
    "by 'ssh -L'.\n"
    "\n"
    "Example:\n"
    "  pimbsr compare r1=/run/pimbsr/r1.sock r2=/run/pimbsr/r2.sock\n"
    "\n"
    "Exit status: 0 if all agents answer and agree; 1 if not; 2 for a wrong argument.\n";

CLI::App& addCompare(CLI::App& app, CompareOptions& options) {
  CLI::App& command = *app.add_subcommand("compare", aboutCompare);
  command.footer(footCompare);
  command.add_option("AGENT", options.agents, "Agents to compare")->type_name("...")->required();
  command.add_flag("--json", options.json, "Print JSON in place of tables");
  return command;
}

}  // namespace pimbsr::cli

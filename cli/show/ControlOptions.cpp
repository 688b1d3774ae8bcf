#include "cli/show/ControlOptions.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include "agent/config/Settings.h"
#include "agent/control/ControlProtocol.h"
#include "cli/base/Color.h"

namespace pimbsr::cli {

static constexpr char const* exitStatus =
    "\n"
    "Exit status: 0 if the agent did as asked; 1 if it denied that, can't be reached, or the\n"
    "output can't be written; 2 for a wrong argument.\n";

static constexpr char const* aboutShow = "Show the learned state of a running agent, and why";

static constexpr char const* footShow =
    "WHAT is one of\n"
    "  bsr          the Bootstrap Router of each zone, and the state of this router there\n"
    "  rp-set       the rendezvous points (RPs) of each zone; with a ZONE of that one, with a\n"
    "               RANGE those of the ranges that cover it or lie within\n"
    "  candidates   this router's own candidacies, as BSR and as RP\n"
    "  rp GROUP     which RP serves a multicast group, and how it was chosen\n"
    "  neighbors    PIM neighbors and Designated Routers\n"
    "  interfaces   the interfaces that speak PIM\n"
    "  borders      the scope zones that end at an interface\n"
    "  filter       whose advertisements and Bootstrap Messages are taken\n"
    "  counters     messages by kind and outcome\n"
    "  drops        messages dropped, by reason, and the last of each\n"
    "  corrections  what is corrected of the machines, and how often\n"
    "  history      the last elections and changes of RP sets\n"
    "  config       the configuration that is followed\n"
    "  control      the clients of the control sockets, and what their limits ended\n"
    "  on-change    the command that --on-change runs, and how its last run ended\n"
    "  tree         the entities and machines of the router by name; with a PATH those in it\n"
    "  all          all of these but rp and tree, for a support case\n"
    "Times are the time left, unless said otherwise. On a terminal headings are bold and troubles\n"
    "red, unless NO_COLOR is set.\n"
    "\n"
    "Examples:\n"
    "  pimbsr show bsr\n"
    "  pimbsr show rp 239.1.1.1\n"
    "  pimbsr show rp-set 239.1.0.0/16 --json\n"
    "  pimbsr show neighbors --watch 2\n"
    "  pimbsr show tree status --depth 2\n";

static constexpr char const* aboutGet = "Print what a path of a running agent's model names";

static constexpr char const* footGet =
    "PATH is a root and then names of attributes, each after a slash. The key of a member is in\n"
    "brackets, and all but numbers in single quotes, in which a slash is part of the key.\n"
    "'pimbsr show tree' prints all paths, and --json the type and unit of each.\n"
    "\n"
    "Examples:\n"
    "  pimbsr get status/bsTimeout\n"
    "  pimbsr get \"status/bootstrapRouter['224.0.0.0/4']/priority\"\n";

static constexpr char const* aboutWatch =
    "Print the changes of a running agent, or of a value, as they happen";

static constexpr char const* footWatch =
    "Each change is one line of JSON, as in 'pimbsr show history --json', but without its age;\n"
    "and each RP has a line of its own, where the history makes one entry of several RPs of a\n"
    "zone that change at once. The stream lasts until it is interrupted, or the agent ends, or\n"
    "lines are not taken fast enough.\n"
    "With a PATH, as in 'pimbsr get', its value is a line at once, and then each time it is\n"
    "another one after an event; a path that names nothing any more is gone, until it does.\n"
    "\n"
    "Examples:\n"
    "  pimbsr watch\n"
    "  pimbsr watch \"status/bootstrapRouter['224.0.0.0/4']/ipAddr\"\n"
    "\n"
    "Exit status: 1 if the agent ended the stream or can't be reached, or the output can't be\n"
    "written; 2 for a wrong argument.\n";

static constexpr char const* aboutClear = "Have a running agent count from zero on, or forget learned state";

static constexpr char const* footClear =
    "WHAT is one of\n"
    "  counters     messages by kind and outcome\n"
    "  drops        messages dropped, by reason\n"
    "  history      elections and changes of RP sets\n"
    "  bsr          the BSR of ZONE, or of all, with its RP set; a candidate there takes part in a\n"
    "               new election; an elected BSR denies it\n"
    "  rp-set       the RP set of ZONE, or of all; the BSR stays\n"
    "  neighbors    the PIM neighbors on INTERFACE, or on all, those that never expire too\n"
    "Cleared entries are learned again from the next messages: set a filter before, where that\n"
    "is not to happen.\n"
    "\n"
    "Examples:\n"
    "  pimbsr clear drops\n"
    "  pimbsr clear bsr 239.1.0.0/16\n";

static constexpr char const* aboutReload = "Have a running agent read its configuration file again";

static constexpr char const* footReload =
    "What is gone from the file ends first, then what changed is changed, then what is new\n"
    "begins; what is the same is not touched. With an error in the file nothing is changed, and\n"
    "every error is printed. SIGHUP does the same, and writes to the agent's standard error.\n"
    "\n"
    "Example:\n"
    "  pimbsr reload\n"
    "\n"
    "Exit status: 0 if the file is followed now; 1 if it has an error, or the agent can't be\n"
    "reached; 2 for a wrong argument.\n";

static constexpr char const* aboutTrace = "Have a running agent trace its engine";

static constexpr char const* footTrace =
    "The agent writes the trace of HANDLE from level 0 up to LEVEL to its standard error (under\n"
    "systemd the journal): 1 has drops, 4 accepted messages, 8 every change, 9 every function;\n"
    "off ends it. A wrong handle lists all.\n"
    "\n"
    "Examples:\n"
    "  pimbsr trace Pim::Bsr::NonCandidateSm 8\n"
    "  pimbsr trace Pim::Bsr::NonCandidateSm off\n";

static constexpr char const* aboutMetrics = "Print the metrics of a running agent for Prometheus";

static constexpr char const* footMetrics =
    "The text is that of the exposition format, as a textfile collector takes it.\n"
    "\n"
    "Example:\n"
    "  pimbsr metrics\n";

enum class Access { full, reading };

static std::string aboutSocket(Access access) {
  agent::Settings const defaults;
  std::string text =
      fmt::format("The agent's control socket (default: PIMBSR_SOCKET of the environment,\nelse {}",
                  defaults.controlSocket);
  if (access == Access::reading)
    text += fmt::format(";\nwithout permission to open that, {}", defaults.readOnlySocket);
  return text + ")";
}

/// A command to a running agent: all of them take the socket.
static CLI::App& add(CLI::App& app, std::string const& name, char const* about, std::string const& foot,
                     Access access, std::string& socket, std::function<void()> const& choose) {
  CLI::App& command = *app.add_subcommand(name, about);
  command.footer(foot);
  command.add_option("--socket", socket, aboutSocket(access))->type_name("PATH");
  command.callback(choose);
  return command;
}

static void addShow(CLI::App& app, ControlOptions& options) {
  ShowOptions& show = options.show;
  CLI::App& command = add(app, "show", aboutShow, std::string(footShow) + exitStatus, Access::reading,
                          show.socket, [&options] {
                            options.run = [&](auto& out, auto& err) {
                              options.show.color = takesColor(out);
                              options.show.refresh = takesRefresh(out);
                              return cli::show(options.show, out, err);
                            };
                          });
  command.add_option("WHAT", show.what, "What to show; see below")->type_name("")->required();
  command
      .add_option("SUBJECT", show.subject,
                  "With rp: a multicast group such as 239.1.1.1; with rp-set: a zone or a group\n"
                  "range; with tree: a path")
      ->type_name("");
  command.add_option("--depth", show.depth, "With tree: how many steps below the path; else all")
      ->type_name("N");
  command.add_flag("--json", show.json, "Print JSON in place of tables");
  command.add_option("--watch", show.watch, "Show it again every N seconds, until it is interrupted")
      ->type_name("N")
      ->check(CLI::Range(1, 86400));
}

static void addGet(CLI::App& app, ControlOptions& options) {
  PathOptions& get = options.get;
  CLI::App& command = add(
      app, "get", aboutGet, std::string(footGet) + exitStatus, Access::reading, get.socket,
      [&options] { options.run = [&](auto& out, auto& err) { return cli::get(options.get, out, err); }; });
  command.add_option("PATH", get.path, "A path of the model")->type_name("")->required();
  command.add_flag("--json", get.json, "Print JSON, with type and unit");
}

static void addWatch(CLI::App& app, ControlOptions& options) {
  PathOptions& watch = options.watch;
  CLI::App& command = add(app, "watch", aboutWatch, footWatch, Access::reading, watch.socket, [&options] {
    options.run = [&](auto& out, auto& err) { return cli::watch(options.watch, out, err); };
  });
  command.add_option("PATH", watch.path, "A path of the model; without one all changes")->type_name("");
  command.add_flag("--json", watch.json, "Print JSON for each value of PATH");
}

static void addClear(CLI::App& app, ControlOptions& options) {
  ClearOptions& clear = options.clear;
  CLI::App& command = add(
      app, "clear", aboutClear, std::string(footClear) + exitStatus, Access::full, clear.socket, [&options] {
        options.run = [&](auto& out, auto& err) { return cli::clear(options.clear, out, err); };
      });
  command.add_option("WHAT", clear.what, "What to clear; see below")->type_name("")->required();
  command.add_option("SUBJECT", clear.subject, "A zone such as 239.1.0.0/16, or an interface")->type_name("");
}

static void addTrace(CLI::App& app, ControlOptions& options) {
  TraceOptions& trace = options.trace;
  CLI::App& command = add(
      app, "trace", aboutTrace, std::string(footTrace) + exitStatus, Access::full, trace.socket, [&options] {
        options.run = [&](auto& out, auto& err) { return cli::trace(options.trace, out, err); };
      });
  command.add_option("HANDLE", trace.handle, "A trace handle")->type_name("")->required();
  command.add_option("LEVEL", trace.level, "0 to 9, or off")->type_name("")->required();
}

void addControlCommands(CLI::App& app, ControlOptions& options) {
  addShow(app, options);
  addGet(app, options);
  addWatch(app, options);
  addClear(app, options);
  add(app, "reload", aboutReload, footReload, Access::full, options.reloadSocket, [&options] {
    options.run = [&](auto& out, auto& err) { return reload(options.reloadSocket, out, err); };
  });
  addTrace(app, options);
  add(app, "metrics", aboutMetrics, std::string(footMetrics) + exitStatus, Access::reading,
      options.metricsSocket, [&options] {
        options.run = [&](auto& out, auto& err) { return metrics(options.metricsSocket, out, err); };
      });
  addCompare(app, options.compare).callback([&options] {
    options.run = [&](auto& out, auto& err) { return compareAgents(options.compare, out, err); };
  });
}

}  // namespace pimbsr::cli

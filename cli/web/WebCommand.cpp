#include "cli/web/WebCommand.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <fstream>
#include <ostream>
#include <system_error>

#include "agent/base/Loop.h"
#include "agent/config/Settings.h"
#include "agent/process/Privileges.h"
#include "cli/web/HostName.h"
#include "cli/web/WebServer.h"
#include "cli/web/WebSocket.h"

namespace pimbsr::cli {

// Settings --------------------------------------------------------------------------------------------

static constexpr std::size_t minToken = 16;

/// The first line of the file. Throws UsageError for one that others may read, or that is too short.
static std::string readToken(std::string const& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) throw UsageError("--token-file: cannot read " + path);
  if ((status.st_mode & (S_IROTH | S_IWOTH)) != 0)
    throw UsageError(fmt::format("--token-file: others may read or write {}; chmod o= it", path));
  std::ifstream file(path);
  std::string token;
  std::getline(file, token);
  if (token.ends_with('\r')) token.pop_back();
  if (token.size() < minToken)
    throw UsageError(
        fmt::format("--token-file: the first line of {} has less than {} characters", path, minToken));
  return token;
}

/// Browsers take "." and ".." out of a path.
static bool isPathPart(std::string const& name) {
  return isAgentName(name) && name.find('/') == name.npos && name != "." && name != "..";
}

/// An agent's name is a part of paths here.
static std::vector<NamedSocket> agentsOf(WebOptions const& options) {
  if (options.agents.empty()) return {{"local", agent::Settings().readOnlySocket}};
  std::vector<NamedSocket> agents = parseNamedSockets(options.agents);
  for (NamedSocket const& agent : agents)
    if (!isPathPart(agent.name) || agent.name == "compare")
      throw UsageError(fmt::format("--agent: '{}' is no name here; write NAME=SOCKET", agent.name));
  return agents;
}

static WebSocket socketOf(WebOptions const& options) {
  if (!options.listen.empty()) return WebSocket(options.listen);
  return WebSocket::isPassed() ? WebSocket::passed() : WebSocket(defaultListen);
}

static WebSettings settingsOf(WebOptions const& options, WebSocket const& socket) {
  // A tunnel leads from localhost on another system to any address of this one.
  WebSettings settings{.agents = agentsOf(options), .hosts = {"localhost", "127.0.0.1", "[::1]"}};
  for (std::string const& host : options.hosts) settings.hosts.insert(nameOfHost(host));
  settings.metricsOnly = options.metricsOnly;
  settings.idleExit = options.idleExit;
  if (!options.tokenFile.empty()) settings.token = readToken(options.tokenFile);
  if (!socket.isLocal() && settings.token.empty())
    throw UsageError(
        fmt::format("{} can be reached from other systems: --token-file is needed", socket.place()));
  return settings;
}

// Serving ---------------------------------------------------------------------------------------------

static void serve(WebOptions const& options, std::ostream& out, std::ostream& err) {
  WebSocket socket = socketOf(options);
  WebSettings settings = settingsOf(options, socket);
  if (!socket.isLocal())
    err << "pimbsr: nothing is encrypted: others on the way read all pages, and the token\n" << std::flush;
  agent::dropPrivileges(agent::RawSockets::none);
  agent::Loop loop;
  agent::LoopSignal terminate(loop, SIGTERM, [&] { loop.stop(); });
  agent::LoopSignal interrupt(loop, SIGINT, [&] { loop.stop(); });
  WebServer server(loop, socket.fd(), std::move(settings));
  out << "Serving " << socket.place() << std::endl;
  loop.run();
}

ExitCode serveWeb(WebOptions const& options, std::ostream& out, std::ostream& err) {
  try {
    std::signal(SIGPIPE, SIG_IGN);
    serve(options, out, err);
    return exitOk;
  } catch (UsageError const& error) {
    err << "pimbsr: " << error.what() << '\n';
    return exitUsage;
  } catch (std::system_error const& error) {
    err << "pimbsr: " << error.what() << '\n';
  } catch (agent::ControlError const& error) {
    err << "pimbsr: " << error.what() << '\n';
  }
  return exitFailed;
}

// The command -----------------------------------------------------------------------------------------

static constexpr char const* aboutWeb = "Serve a live page, the views and the metrics of running agents";

static constexpr char const* footWeb =
    "The page is that of 'pimbsr sim --html', live. /metrics has the metrics of all agents with\n"
    "the label agent, /metrics?agent=NAME those of one, /api/AGENT/VIEW the views of 'pimbsr\n"
    "show' as JSON, and /api/compare what 'pimbsr compare' shows. The read-only socket is\n"
    "enough. Agents of other systems are reached by sockets of 'ssh -L'.\n"
    "\n"
    "Nothing is encrypted. An address that other systems reach needs a token; a browser asks\n"
    "for it as a password of any user, and Prometheus sends it as bearer token.\n"
    "\n"
    "Examples:\n"
    "  pimbsr web\n"
    "  pimbsr web --agent r1=/run/r1.sock --agent r2=/run/r2.sock --listen unix:/run/web.sock\n"
    "\n"
    "Exit status: 0 after SIGTERM or SIGINT; 1 if it can't listen; 2 for a wrong argument.\n";

CLI::App& addWeb(CLI::App& app, WebOptions& options) {
  CLI::App& command = *app.add_subcommand("web", aboutWeb);
  command.footer(footWeb);
  auto addMany = [&](char const* name, std::vector<std::string>& values, char const* type, char const* help) {
    command.add_option(name, values, help)->type_name(type)->allow_extra_args(false);
  };
  addMany("--agent", options.agents, "NAME=SOCKET",
          "An agent by its control socket; may be given for several agents (default: the\n"
          "read-only socket of this system)");
  command
      .add_option("--listen", options.listen,
                  "Where to listen: ADDRESS:PORT, or unix:PATH (default: the socket of the service\n"
                  "manager, else 127.0.0.1:9743)")
      ->type_name("PLACE");
  command
      .add_option("--token-file", options.tokenFile,
                  "A file with the token that clients must have, of 16 characters at least")
      ->type_name("FILE");
  addMany("--host", options.hosts, "NAME",
          "A further name of this server in the header Host, with any port, such as that of a\n"
          "proxy; may be repeated (always: localhost, and the address that was reached)");
  command.add_flag("--metrics-only", options.metricsOnly, "Serve /metrics and nothing else");
  command
      .add_option("--idle-exit", options.idleExit,
                  "End after so many seconds without a request; for activation by a socket")
      ->type_name("SECONDS")
      ->check(CLI::Range(1, 86400));
  return command;
}

}  // namespace pimbsr::cli

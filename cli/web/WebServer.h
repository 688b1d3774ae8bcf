#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "cli/web/AgentClient.h"
#include "cli/web/HttpServer.h"
#include "view/Comparison.h"

namespace pimbsr::cli {

/// What a web server serves, and to whom.
struct WebSettings {
  std::vector<NamedSocket> agents;
  std::set<std::string> hosts;  ///< names of this server in the header Host, as nameOfHost() has them
  std::string token;            ///< empty for none
  bool metricsOnly = false;
  double idleExit = 0;  ///< seconds without a request after which the loop is stopped; 0 for never
};

/// The live page of several agents, their views as JSON, their changes as a stream, and their metrics. It
/// keeps nothing of an agent: what it shows is asked for, so that one that is gone has no old values.
class WebServer final : private HttpRouter, private AgentWatch::Listener {
 public:
  /// `socket` listens and outlives the server.
  WebServer(agent::Loop& loop, int socket, WebSettings settings, HttpLimits const& limits = {});

 private:
  /// An agent with the watch that all streams share.
  struct Upstream {
    std::unique_ptr<AgentClient> client;
    std::unique_ptr<AgentWatch> watch;
  };
  using Results = std::map<std::string, AgentAnswer>;
  /// The answers of all agents to some requests.
  struct Gathering {
    using Done = std::function<void(std::map<std::string, Results> const&)>;

    std::map<std::string, Results> results;  ///< by agent and request
    std::size_t missing = 0;
    Done done;  ///< null once it was called
    std::unique_ptr<agent::LoopTimer> timer;

    void add(std::string const& agent, std::string const& request, AgentAnswer const& answer);
    void finish();
  };

  bool hasHost(std::string const& name, std::string const& local) const override;
  bool isAllowed(std::string const& token) const override;
  void route(Exchange const& exchange) override;
  void onAgent(std::string const& name, bool isUp) override;
  void onChange(std::string const& name, std::string const& change) override;

  void routeApi(Exchange const& exchange, std::string const& path);
  void serveMetrics(Exchange const& exchange);
  void serveMetricsOf(Exchange const& exchange, std::string const& name);
  void serveAgents(Exchange const& exchange) const;
  void serveView(Exchange const& exchange, std::string const& name, std::string const& what);
  void serveComparison(Exchange const& exchange);
  void serveStream(Exchange const& exchange);
  void askAll(std::vector<std::string> const& requests, Gathering::Done done);
  Upstream* find(std::string const& name);
  void restartIdle();

  agent::Loop& loop_;
  WebSettings const settings_;
  std::vector<Upstream> upstreams_;  ///< in the order of the settings
  std::shared_ptr<std::string const> page_;
  agent::LoopTimer idle_;
  HttpServer http_;
};

}  // namespace pimbsr::cli

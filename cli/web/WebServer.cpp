#include "cli/web/WebServer.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

#include "agent/base/Version.h"
#include "cli/base/Numbers.h"
#include "cli/page/Page.h"
#include "cli/web/MetricsText.h"
#include "view/Answers.h"
#include "view/Json.h"
#include "view/View.h"
#include "view/Web.h"

namespace pimbsr::cli {

using Json = nlohmann::ordered_json;

static constexpr char const* metricsRequest = "metrics";  // among the requests of a gathering
static constexpr double gatherTime = 3;  // seconds for all agents; a scrape has 10 s by default
static constexpr char const* jsonType = "application/json";
static constexpr char const* metricsType = "text/plain; version=0.0.4; charset=utf-8";

/// As text; bytes that are no UTF-8, from a command line or an agent, are replaced.
static std::string dumped(Json const& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

static std::string requestOf(std::string const& what) {
  return Json{{"command", "show"}, {"what", what}}.dump(-1, ' ', true, Json::error_handler_t::replace);
}

/// With the members that a query has. A depth that is no number stays a text, which the parser rejects.
static std::string requestOf(std::string const& what, HttpExchange const& exchange) {
  Json request = {{"command", "show"}, {"what", what}};
  for (char const* name : {"group", "prefix", "path", "from"})
    if (std::string value = exchange.argument(name); !value.empty()) request[name] = value;
  if (std::string depth = exchange.argument("depth"); !depth.empty()) {
    std::optional<unsigned> number = numberOf<unsigned>(depth);
    request["depth"] = number ? Json(*number) : Json(depth);
  }
  return request.dump(-1, ' ', true, Json::error_handler_t::replace);
}

static HttpResponse made(std::string type, std::string body, unsigned status = 200) {
  return {status, std::move(type), std::make_shared<std::string const>(std::move(body))};
}

static HttpResponse jsonError(unsigned status, std::string const& error) {
  return made(jsonType, dumped(jsonOf(view::WebError{.error = error})), status);
}

WebServer::WebServer(agent::Loop& loop, int socket, WebSettings settings, HttpLimits const& limits)
    : loop_(loop),
      settings_(std::move(settings)),
      idle_(loop, [this] { restartIdle(); }),
      http_(loop, socket, *this, limits) {
  AgentWatch::Listener& listener = *this;
  for (NamedSocket const& agent : settings_.agents)
    upstreams_.push_back(
        {std::make_unique<AgentClient>(loop, agent), std::make_unique<AgentWatch>(loop, agent, listener)});
  std::ostringstream page;
  writeLivePage(page);
  page_ = std::make_shared<std::string const>(page.str());
  http_.onStreams = [this](bool hasStreams) {
    for (Upstream& upstream : upstreams_) upstream.watch->isWanted(hasStreams);
  };
  if (settings_.idleExit > 0) idle_.startIn(settings_.idleExit);
}

WebServer::Upstream* WebServer::find(std::string const& name) {
  auto matches = [&](Upstream const& upstream) { return upstream.client->name() == name; };
  auto found = std::find_if(upstreams_.begin(), upstreams_.end(), matches);
  return found == upstreams_.end() ? nullptr : &*found;
}

/// Each request starts the time anew; at its end a request may still be served.
void WebServer::restartIdle() {
  if (http_.exchanges() == 0) return loop_.stop();
  idle_.startIn(settings_.idleExit);
}

// Requests --------------------------------------------------------------------------------------------

/// The address that a client has reached can't be a name that another's DNS has rebound to it.
bool WebServer::hasHost(std::string const& name, std::string const& local) const {
  return settings_.hosts.contains(name) || (!name.empty() && name == local);
}

/// Takes as long for any text of the same length, so that the time shows nothing of the token.
bool WebServer::isAllowed(std::string const& token) const {
  if (settings_.token.empty()) return true;
  unsigned difference = token.size() == settings_.token.size() ? 0 : 1;
  for (std::size_t i = 0; i < token.size(); ++i)
    difference |= static_cast<unsigned char>(token[i] ^ settings_.token[i % settings_.token.size()]);
  return difference == 0;
}

void WebServer::route(Exchange const& exchange) {
  if (settings_.idleExit > 0) idle_.startIn(settings_.idleExit);
  std::string const& path = exchange->path();
  static constexpr std::string_view api = "/api";
  if (path == "/metrics") return serveMetrics(exchange);
  if (settings_.metricsOnly) return exchange->respond(textResponse(404, "there is /metrics alone"));
  if (path == "/") return exchange->respond({.type = "text/html; charset=utf-8", .body = page_});
  if (path == "/favicon.ico") return exchange->respond({.status = 204});
  if (path == "/events") return serveStream(exchange);
  if (path == api || path.starts_with("/api/")) return routeApi(exchange, path.substr(api.size()));
  exchange->respond(textResponse(404, "there are /, /metrics, /events and /api"));
}

void WebServer::routeApi(Exchange const& exchange, std::string const& path) {
  if (path.empty() || path == "/") return serveAgents(exchange);
  if (path == "/compare") return serveComparison(exchange);
  std::size_t slash = path.find('/', 1);
  if (slash == path.npos)
    return exchange->respond(jsonError(404, "there are /api, /api/compare and /api/AGENT/VIEW"));
  serveView(exchange, path.substr(1, slash - 1), path.substr(slash + 1));
}

// Metrics ---------------------------------------------------------------------------------------------

/// The text in the result of a request for metrics; nothing if there is none.
static std::optional<std::string> textOf(AgentAnswer const& answer) {
  if (!answer.result) return std::nullopt;
  try {
    return view::readView<view::Metrics>(Json::parse(*answer.result)).text;
  } catch (std::exception const&) {
    return std::nullopt;
  }
}

void WebServer::serveMetrics(Exchange const& exchange) {
  std::string name = exchange->argument("agent");
  if (!name.empty()) return serveMetricsOf(exchange, name);
  askAll({metricsRequest}, [exchange](auto const& results) {
    std::vector<AgentMetrics> all;
    all.reserve(results.size());
    for (auto const& [agent, answers] : results) all.emplace_back(agent, textOf(answers.begin()->second));
    exchange->respond(made(metricsType, mergedMetrics(all)));
  });
}

void WebServer::serveMetricsOf(Exchange const& exchange, std::string const& name) {
  Upstream* upstream = find(name);
  if (upstream == nullptr) return exchange->respond(textResponse(404, "there is no agent of this name"));
  upstream->client->askMetrics([exchange](AgentAnswer const& answer) {
    std::optional<std::string> text = textOf(answer);
    exchange->respond(text ? made(metricsType, *text) : textResponse(503, "no answer: " + answer.error));
  });
}

// Views -----------------------------------------------------------------------------------------------

void WebServer::serveAgents(Exchange const& exchange) const {
  view::WebIndex index{.version = agent::version};
  for (Upstream const& upstream : upstreams_) index.agents.push_back(upstream.client->name());
  for (std::string_view view : agent::viewNames()) index.views.emplace_back(view);
  exchange->respond(made(jsonType, dumped(jsonOf(index))));
}

void WebServer::serveView(Exchange const& exchange, std::string const& name, std::string const& what) {
  Upstream* upstream = find(name);
  if (upstream == nullptr) return exchange->respond(jsonError(404, "there is no agent of this name"));
  std::string request = requestOf(what, *exchange);
  if (request.size() >= agent::maxRequest) return exchange->respond(jsonError(400, "the query is too long"));
  try {
    agent::parseRequest(request);
  } catch (agent::RequestError const& error) {
    return exchange->respond(jsonError(400, error.what()));
  }
  upstream->client->ask(request, [exchange](AgentAnswer const& answer) {
    if (answer.result) return exchange->respond({.type = jsonType, .body = answer.result});
    exchange->respond(jsonError(answer.isRejected ? 400 : 503, answer.error));
  });
}

void WebServer::Gathering::add(std::string const& agent, std::string const& request,
                               AgentAnswer const& answer) {
  if (!done) return;
  results[agent][request] = answer;
  if (--missing == 0) finish();
}

void WebServer::Gathering::finish() {
  timer.reset();
  Done const whenDone = std::exchange(done, nullptr);
  whenDone(results);
}

/// Asks each agent each request, and calls `done` with the answers by agent and request once all are there,
/// or with errors for those that are not after the time for all.
void WebServer::askAll(std::vector<std::string> const& requests, Gathering::Done done) {
  auto gathering = std::make_shared<Gathering>();
  gathering->done = std::move(done);
  gathering->missing = upstreams_.size() * requests.size();
  std::weak_ptr<Gathering> weak = gathering;  // the questions own it
  gathering->timer = std::make_unique<agent::LoopTimer>(loop_, [weak] {
    if (auto waiting = weak.lock()) waiting->finish();
  });
  gathering->timer->startIn(gatherTime);
  for (Upstream const& upstream : upstreams_)
    for (std::string const& request : requests)
      gathering->results[upstream.client->name()][request] = {.error = "it did not answer in time"};
  for (Upstream const& upstream : upstreams_) {
    for (std::string const& request : requests) {
      auto take = [gathering, request, name = upstream.client->name()](AgentAnswer const& answer) {
        gathering->add(name, request, answer);
      };
      if (request == metricsRequest) {
        upstream.client->askMetrics(take);
      } else {
        upstream.client->ask(request, take);
      }
    }
  }
}

template <class View>
static void read(AgentAnswer const& answer, view::AgentState& state, View& view) {
  if (!answer.result) {
    state.error = answer.error;
    return;
  }
  try {
    view = view::readView<View>(Json::parse(*answer.result));
  } catch (std::exception const&) {
    state.error = "its answer is not understood; is it of this version?";
  }
}

void WebServer::serveComparison(Exchange const& exchange) {
  static std::vector<std::string> const requests = {requestOf("bsr"), requestOf("borders"),
                                                    requestOf("neighbors"), requestOf("drops")};
  askAll(requests, [this, exchange](std::map<std::string, Results> const& results) {
    std::vector<view::AgentState> states;
    for (NamedSocket const& agent : settings_.agents) {
      Results const& answers = results.at(agent.name);
      view::AgentState state{.name = agent.name};
      read(answers.at(requests[0]), state, state.bsr);
      read(answers.at(requests[1]), state, state.borders);
      read(answers.at(requests[2]), state, state.neighbors);
      read(answers.at(requests[3]), state, state.drops);
      if (!state.error.empty()) state = {.name = state.name, .error = state.error};
      states.push_back(std::move(state));
    }
    exchange->respond(made(jsonType, dumped(jsonOf(view::compare(states)))));
  });
}

// Changes ---------------------------------------------------------------------------------------------

static std::string eventText(char const* name, std::string const& data) {
  return fmt::format("event: {}\ndata: {}\n\n", name, data);
}

void WebServer::serveStream(Exchange const& exchange) {
  view::WebAgents all;
  for (Upstream const& upstream : upstreams_)
    all.agents.push_back({.agent = upstream.client->name(), .up = upstream.watch->isUp()});
  exchange->beginStream("retry: 2000\n" + eventText("agents", dumped(jsonOf(all))));
}

void WebServer::onAgent(std::string const& name, bool isUp) {
  http_.publish(eventText("agent", dumped(jsonOf(view::WebAgent{.agent = name, .up = isUp}))));
}

/// A view::WebChange. The change is passed on as the agent wrote it, with members of later versions too.
void WebServer::onChange(std::string const& name, std::string const& change) {
  std::string data = fmt::format("{{\"agent\":{},\"change\":{}}}", dumped(name), change);
  http_.publish(eventText("change", data));
}

}  // namespace pimbsr::cli

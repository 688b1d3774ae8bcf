#include "cli/show/ControlCommands.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <sstream>
#include <thread>

#include "agent/config/Settings.h"
#include "agent/control/ControlClient.h"
#include "agent/control/ControlProtocol.h"
#include "cli/base/Color.h"
#include "cli/show/ShowTables.h"
#include "cli/show/SubjectErrors.h"
#include "view/All.h"
#include "view/Answers.h"
#include "view/History.h"
#include "view/Json.h"
#include "view/Tree.h"
#include "view/Zones.h"

namespace pimbsr::cli {

using Json = nlohmann::ordered_json;

/// The socket given, else that of the environment, else empty.
static std::string chosenSocket(std::string const& given) {
  if (!given.empty()) return given;
  char const* fromEnvironment = std::getenv("PIMBSR_SOCKET");
  return fromEnvironment == nullptr ? "" : fromEnvironment;
}

std::string controlSocket(std::string const& given) {
  std::string chosen = chosenSocket(given);
  return chosen.empty() ? agent::Settings().controlSocket : chosen;
}

std::vector<std::string> readingSockets(std::string const& given) {
  std::vector<std::string> sockets = {controlSocket(given)};
  if (chosenSocket(given).empty()) sockets.push_back(agent::Settings().readOnlySocket);
  return sockets;
}

/// Parses a request as the agent does, so that one with an error is not sent. `explanation` is the error in
/// the words of the command; if it is empty, the request's own is thrown, which has names of the protocol.
static void check(Json const& request, std::string const& explanation) {
  try {
    agent::parseRequest(request.dump(-1, ' ', false, Json::error_handler_t::replace));
  } catch (agent::RequestError const& error) {
    throw UsageError(explanation.empty() ? error.what() : explanation);
  }
}

static Json ask(std::string const& socket, Json const& request, std::string const& explanation = "") {
  check(request, explanation);
  return agent::ask(controlSocket(socket), request);
}

static Json askReading(std::string const& socket, Json const& request, std::string const& explanation = "") {
  check(request, explanation);
  Json result;
  agent::tryInTurn(readingSockets(socket),
                   [&](std::string const& path) { result = agent::ask(path, request); });
  return result;
}

static ExitCode fail(std::ostream& out, std::ostream& err, char const* text, ExitCode code) {
  out.flush();
  err << "pimbsr: " << text << '\n';
  return code;
}

static constexpr char const* notUnderstood = "the agent's answer is not understood; is it of this version?";

/// Runs a command to its end: `act` writes, and returns false where it has written why it failed.
template <class Act>
static ExitCode run(std::ostream& out, std::ostream& err, Act const& act) {
  try {
    if (!act()) return exitFailed;
  } catch (UsageError const& error) {
    return fail(out, err, error.what(), exitUsage);
  } catch (agent::RequestError const& error) {
    return fail(out, err, error.what(), exitFailed);
  } catch (agent::ClientError const& error) {
    return fail(out, err, error.what(), exitFailed);
  } catch (Json::exception const&) {
    return fail(out, err, notUnderstood, exitFailed);
  } catch (view::ReadError const&) {
    return fail(out, err, notUnderstood, exitFailed);
  }
  return finish(out, err);
}

/// As JSON a number is one, but other text stays as it was written, for the message.
static Json numberOrText(std::string const& text) {
  unsigned number = 0;
  auto const* end = text.data() + text.size();
  auto [stop, error] = std::from_chars(text.data(), end, number);
  return stop == end && error == std::errc() ? Json(number) : Json(text);
}

/// The member of the request that the subject of a view is.
static char const* subjectMember(std::string const& what) {
  if (what == "rp-set") return "prefix";
  return what == "tree" ? "path" : "group";
}

static Json requestOf(std::string const& what, std::string const& subject) {
  Json request{{"command", "show"}, {"what", what}};
  if (subject.empty()) return request;
  bool isGroup = what == "rp-set" && subject.find('/') == std::string::npos;
  request[subjectMember(what)] = isGroup ? subject + "/32" : subject;
  return request;
}

static Json requestOf(ShowOptions const& options) {
  Json request = requestOf(options.what, options.subject);
  if (!options.depth.empty()) request["depth"] = numberOrText(options.depth);
  return request;
}

static void writeView(std::ostream& out, std::string const& what, Json const& view, bool json) {
  if (json) {
    out << view.dump(2) << '\n';
  } else {
    writeShow(out, what, view);
  }
}

template <auto member>
static void readPart(Json const& json, view::All& all) {
  readJson(json, all.*member);
}

/// A view, and what reads its answer into the member of `show all`.
struct PartOfAll {
  char const* what;
  void (*read)(Json const& json, view::All& all);
};

static constexpr PartOfAll partsOfAll[] = {{"bsr", readPart<&view::All::bsr>},
                                           {"rp-set", readPart<&view::All::rpSet>},
                                           {"candidates", readPart<&view::All::candidates>},
                                           {"neighbors", readPart<&view::All::neighbors>},
                                           {"interfaces", readPart<&view::All::interfaces>},
                                           {"borders", readPart<&view::All::borders>},
                                           {"filter", readPart<&view::All::filter>},
                                           {"counters", readPart<&view::All::counters>},
                                           {"drops", readPart<&view::All::drops>},
                                           {"corrections", readPart<&view::All::corrections>},
                                           {"history", readPart<&view::All::history>},
                                           {"config", readPart<&view::All::config>},
                                           {"control", readPart<&view::All::control>},
                                           {"on-change", readPart<&view::All::onChange>}};

/// All views that need no subject, for a support case; the version first.
static void writeAll(ShowOptions const& options, std::ostream& out) {
  view::All all;
  readJson(askReading(options.socket, {{"command", "version"}}), all.version);
  std::ostringstream tables;
  for (PartOfAll const& part : partsOfAll) {
    Json view = askReading(options.socket, requestOf(part.what, ""));
    part.read(view, all);
    tables << fmt::format("\n## pimbsr show {}\n\n", part.what);
    writeShow(tables, part.what, view);
  }
  if (options.json) {
    out << jsonOf(all).dump(2) << '\n';
  } else {
    out << "pimbsr " << all.version.version << '\n' << tables.str();
  }
}

/// Asks for page after page, since one answer has a part of a large tree alone.
template <class Take>
static void eachPage(ShowOptions const& options, Take const& take) {
  Json request = requestOf(options);
  std::optional<std::string> from;
  do {
    auto page = view::readView<view::Tree>(askReading(options.socket, request));
    if (page.next && page.next == from)
      throw agent::ClientError("the agent gives the same part of the tree twice");
    from = page.next;
    request["from"] = from.value_or("");
    if (!take(std::move(page))) return;
  } while (from);
}

static void showTree(ShowOptions const& options, std::ostream& out) {
  view::Tree whole;
  eachPage(options, [&](view::Tree&& page) {
    if (!options.json) {
      writeShow(out, options.what, view::jsonOf(page));
    } else {
      std::move(page.entries.begin(), page.entries.end(), std::back_inserter(whole.entries));
    }
    return out.good();
  });
  if (options.json) out << view::jsonOf(whole).dump(2) << '\n';
}

static bool hasRps(Json const& view) {
  auto const set = view::readView<view::RpSet>(view);
  return std::any_of(set.zones.begin(), set.zones.end(), [](auto const& zone) { return zone.rps != 0; });
}

static void writeOnce(ShowOptions const& options, std::ostream& out) {
  if (options.what == "all") {
    if (!options.subject.empty()) throw UsageError(showErrorOf("all", options.subject));
    return writeAll(options, out);
  }
  if (options.what == "tree") return showTree(options, out);
  std::string explanation = options.depth.empty() ? showErrorOf(options.what, options.subject) : "";
  Json view = askReading(options.socket, requestOf(options), explanation);
  if (!options.json && options.what == "rp-set" && !options.subject.empty() && !hasRps(view)) {
    out << fmt::format(
        "No RP is known for {}: neither in a zone of that name nor in a range around or within it.\n",
        options.subject);
  } else {
    writeView(out, options.what, view, options.json);
  }
}

ExitCode show(ShowOptions const& options, std::ostream& out, std::ostream& err) {
  static constexpr char const* homeAndErase = "\x1b[H\x1b[J";
  return run(out, err, [&] {
    if (options.what == "tree" && options.watch == 0) {  // each page as it comes
      showTree(options, out);
      return true;
    }
    for (bool isFirst = true; isFirst || options.watch > 0; isFirst = false) {
      std::ostringstream text;
      writeOnce(options, text);
      bool isRefreshed = options.refresh && !options.json;
      if (!isFirst && !isRefreshed) out << '\n';
      if (options.watch > 0 && isRefreshed) out << homeAndErase;
      out << (options.color && !options.json ? colored(text.str()) : text.str()) << std::flush;
      if (!out) break;
      if (options.watch > 0) std::this_thread::sleep_for(std::chrono::seconds(options.watch));
    }
    return true;
  });
}

static std::string withUnit(std::string const& value, std::optional<std::string> const& unit) {
  return unit ? value + " " + *unit : value;
}

ExitCode get(PathOptions const& options, std::ostream& out, std::ostream& err) {
  return run(out, err, [&] {
    Json answer = askReading(options.socket, {{"command", "get"}, {"path", options.path}});
    auto entry = view::readView<view::ModelValue>(answer);
    out << (options.json ? answer.dump(2) : withUnit(entry.value, entry.unit)) << '\n';
    return true;
  });
}

/// A line of a watch as text.
static std::string textOfValue(std::string_view line) {
  auto watched = view::readView<view::WatchedValue>(Json::parse(line));
  std::string text = watched.value ? withUnit(*watched.value, watched.unit)
                                   : "gone: " + watched.missing.value_or("it names nothing");
  return view::localTime(watched.time) + "  " + text;
}

ExitCode watch(PathOptions const& options, std::ostream& out, std::ostream& err) {
  return run(out, err, [&] {
    bool const isText = !options.path.empty() && !options.json;
    auto write = [&](std::string_view line) {
      return (out << (isText ? textOfValue(line) : std::string(line)) << std::endl).good();
    };
    if (!options.path.empty()) check({{"command", "watch"}, {"path", options.path}}, "");
    agent::tryInTurn(readingSockets(options.socket),
                     [&](std::string const& path) { agent::watch(path, write, options.path); });
    return true;
  });
}

ExitCode clear(ClearOptions const& options, std::ostream& out, std::ostream& err) {
  return run(out, err, [&] {
    Json request{{"command", "clear"}, {"what", options.what}};
    bool isOfInterface = options.what == "neighbors";
    if (!options.subject.empty()) request[isOfInterface ? "interface" : "zone"] = options.subject;
    ask(options.socket, request, clearErrorOf(options.what, options.subject));
    std::string of = options.subject.empty() ? "" : (isOfInterface ? " on " : " of ") + options.subject;
    out << options.what << of << " cleared\n";
    return true;
  });
}

static void writeLines(std::ostream& out, std::vector<std::string> const& lines, char const* after = "") {
  for (std::string const& line : lines) out << line << after << '\n';
}

ExitCode reload(std::string const& socket, std::ostream& out, std::ostream& err) {
  return run(out, err, [&] {
    auto result = view::readView<view::Reload>(ask(socket, {{"command", "reload"}}));
    writeLines(err, result.errors);
    writeLines(err, result.warnings);
    writeLines(out, result.needsRestart, " takes effect at the next start");
    if (result.applied) {
      out << "the configuration file was read again and is followed\n";
    } else {
      err << "pimbsr: the configuration file is rejected; the former configuration stays in use\n";
    }
    return result.applied;
  });
}

ExitCode trace(TraceOptions const& options, std::ostream& out, std::ostream& err) {
  return run(out, err, [&] {
    Json level = numberOrText(options.level);
    ask(options.socket, {{"command", "trace"}, {"handle", options.handle}, {"level", level}});
    if (level == "off") {
      out << options.handle << ": off\n";
    } else {
      out << fmt::format("{}: on up to level {}, on the agent's standard error\n", options.handle,
                         options.level);
    }
    return true;
  });
}

ExitCode metrics(std::string const& socket, std::ostream& out, std::ostream& err) {
  return run(out, err, [&] {
    out << view::readView<view::Metrics>(askReading(socket, {{"command", "metrics"}})).text;
    return true;
  });
}

}  // namespace pimbsr::cli

#include "agent/control/ControlProtocol.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <functional>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <set>

#include "runtime/Exceptions.h"
#include "view/Answers.h"
#include "view/Json.h"

namespace pimbsr::agent {

using Json = nlohmann::ordered_json;
using Names = std::span<std::string_view const>;

static constexpr std::string_view views[] = {
    "bsr",      "rp-set", "candidates",  "rp",      "neighbors", "interfaces", "borders",   "filter",
    "counters", "drops",  "corrections", "history", "config",    "control",    "on-change", "tree"};
static constexpr std::string_view clearable[] = {"counters", "drops",  "history",
                                                 "bsr",      "rp-set", "neighbors"};

Names viewNames() { return views; }
Names clearNames() { return clearable; }

// Members of each command ----------------------------------------------------------------------------------

struct Form {
  std::string_view name;
  Command command;
  bool isReading;
  Names members;
};

static constexpr std::string_view showMembers[] = {"what", "group", "prefix", "path", "depth", "from"};
static constexpr std::string_view pathMembers[] = {"path"};
static constexpr std::string_view clearMembers[] = {"what", "zone", "interface"};
static constexpr std::string_view traceMembers[] = {"handle", "level"};

static constexpr Form forms[] = {
    {"show", Command::show, true, showMembers},   {"get", Command::get, true, pathMembers},
    {"watch", Command::watch, true, pathMembers}, {"clear", Command::clear, false, clearMembers},
    {"reload", Command::reload, false, {}},       {"trace", Command::trace, false, traceMembers},
    {"metrics", Command::metrics, true, {}},      {"version", Command::version, true, {}}};

static Form const& formOf(Command command) {
  auto matches = [&](Form const& form) { return form.command == command; };
  return *std::find_if(std::begin(forms), std::end(forms), matches);
}

std::string_view nameOf(Command command) { return formOf(command).name; }
bool isReading(Command command) { return formOf(command).isReading; }

// Texts -----------------------------------------------------------------------------------------------------

static constexpr char const* example = R"({"command":"version"})";

/// A value as it was read: in ASCII, since it may go to a terminal, and cut short.
static std::string asRead(Json const& value) {
  constexpr std::size_t maxLength = 60;
  std::string text = value.dump(-1, ' ', true, Json::error_handler_t::replace);
  if (text.size() <= maxLength) return text;
  return text.substr(0, maxLength) + "...";
}

static std::string listOf(Names names) {
  std::string all;
  for (std::string_view name : names) all += fmt::format("{}\"{}\"", all.empty() ? "" : ", ", name);
  return all;
}

static std::string commandNames() {
  std::array<std::string_view, std::size(forms)> names;
  std::transform(std::begin(forms), std::end(forms), names.begin(),
                 [](Form const& form) { return form.name; });
  return listOf(names);
}

[[noreturn]] static void reject(std::string_view member, std::string_view read, std::string_view valid) {
  throw RequestError(fmt::format("\"{}\" {}; valid is {}", member, read, valid));
}

// Reading ---------------------------------------------------------------------------------------------------

/// Rejects nested values, and repeated members, of which the parser would keep the last alone.
class FlatObject {
 public:
  bool operator()(int depth, Json::parse_event_t event, Json& parsed) {
    using Event = Json::parse_event_t;
    bool opens = event == Event::object_start || event == Event::array_start;
    if (opens && depth > 0) {
      throw RequestError(
          fmt::format("the request holds something nested; valid is a flat object such as {}", example));
    }
    if (event == Event::key && !keys_.insert(parsed.get<std::string>()).second) {
      throw RequestError(fmt::format("the member {} is given twice; valid is once", asRead(parsed)));
    }
    return true;
  }

 private:
  std::set<std::string> keys_;
};

static Json objectOf(std::string_view line) {
  Json request;
  FlatObject check;
  try {
    request = Json::parse(line.begin(), line.end(), std::ref(check));
  } catch (Json::parse_error const& error) {
    throw RequestError(
        fmt::format("the request is no JSON from byte {} on; valid is one object on one line, such as {}",
                    error.byte, example));
  } catch (Json::exception const&) {
    throw RequestError("the request holds a number that is too large");
  }
  if (request.is_object()) return request;
  throw RequestError(
      fmt::format("the request is {}; valid is an object such as {}", asRead(request), example));
}

static Json const& member(Json const& request, std::string_view name, std::string_view valid) {
  auto found = request.find(name);
  if (found == request.end()) reject(name, "is missing", valid);
  return *found;
}

static std::string text(Json const& request, std::string_view name, std::string_view valid) {
  Json const& value = member(request, name, valid);
  if (!value.is_string()) reject(name, "is " + asRead(value), valid);
  return value.get<std::string>();
}

static std::string oneOf(Json const& request, std::string_view name, Names names) {
  std::string valid = "one of " + listOf(names);
  std::string value = text(request, name, valid);
  if (std::find(names.begin(), names.end(), value) == names.end()) {
    reject(name, "is " + asRead(value), valid);
  }
  return value;
}

static Form const& formOf(Json const& request) {
  std::string valid = "one of " + commandNames();
  std::string name = text(request, "command", valid);
  auto hasName = [&](Form const& form) { return form.name == name; };
  auto const* form = std::find_if(std::begin(forms), std::end(forms), hasName);
  if (form == std::end(forms)) reject("command", "is " + asRead(name), valid);
  return *form;
}

static void checkMembers(Json const& request, Form const& form) {
  for (auto const& item : request.items()) {
    bool known = std::find(form.members.begin(), form.members.end(), item.key()) != form.members.end();
    if (known || item.key() == "command") continue;
    throw RequestError(fmt::format("{} is no member of \"{}\"; valid is {}", asRead(item.key()), form.name,
                                   form.members.empty() ? "none" : listOf(form.members)));
  }
}

static Lanet::IpAddr groupOf(Json const& request) {
  constexpr char const* valid = "a multicast group such as \"239.1.1.1\"";
  std::string value = text(request, "group", valid);
  try {
    Lanet::IpAddr group = Lanet::IpAddr::parse(Zet::String8(value));
    if (group.isMulticast()) return group;
  } catch (Zet::Exception const&) {
    // no address at all
  }
  reject("group", "is " + asRead(value), valid);
}

/// A prefix as a zone has it: of multicast groups, and without bits beyond its length.
static Lanet::IpGenPrefix zoneOf(Json const& request, std::string_view name) {
  constexpr char const* valid = "a prefix of multicast groups such as \"239.1.0.0/16\"";
  std::string value = text(request, name, valid);
  try {
    Lanet::IpGenPrefix zone = Lanet::IpGenPrefix::parse(Zet::String8(value));
    if (!zone.isEmpty() && Lanet::allGroups().contains(zone)) return zone;
  } catch (Zet::Exception const&) {
    // no prefix at all
  }
  reject(name, "is " + asRead(value), valid);
}

static std::optional<int> levelOf(Json const& request) {
  constexpr char const* valid = "a whole number from 0 to 9, or \"off\"";
  Json const& value = member(request, "level", valid);
  if (value == "off") return std::nullopt;
  bool inRange = value.is_number_unsigned() && value.get<std::uint64_t>() <= 9;
  if (!inRange) reject("level", "is " + asRead(value), valid);
  return value.get<int>();
}

/// A member that makes sense for some values of "what" alone.
static bool has(Json const& json, Request const& request, std::string_view name,
                std::initializer_list<std::string_view> whats) {
  if (!json.contains(name)) return false;
  if (std::find(whats.begin(), whats.end(), request.what) != whats.end()) return true;
  reject(name, fmt::format("is given for \"{}\"", request.what),
         fmt::format("to give it for \"{}\" alone", fmt::join(whats, "\" and \"")));
}

static constexpr char const* validPath = "a path of the model such as \"status/bootstrapRouter\"";

static std::string pathOf(Json const& request, std::string_view name) {
  std::string path = text(request, name, validPath);
  if (path.empty()) reject(name, "is empty", validPath);
  return path;
}

static int depthOf(Json const& request) {
  Json const& value = request["depth"];
  bool inRange = value.is_number_unsigned() && value.get<std::uint64_t>() <= host::maxTreeDepth;
  if (!inRange) {
    reject("depth", "is " + asRead(value), fmt::format("a whole number from 0 to {}", host::maxTreeDepth));
  }
  return value.get<int>();
}

static void readShow(Json const& json, Request& request) {
  request.what = oneOf(json, "what", views);
  if (has(json, request, "prefix", {"rp-set"})) request.zone = zoneOf(json, "prefix");
  has(json, request, "group", {"rp"});
  if (request.what == "rp") request.group = groupOf(json);
  if (has(json, request, "path", {"tree"})) request.path = pathOf(json, "path");
  if (has(json, request, "depth", {"tree"})) request.tree.depth = depthOf(json);
  if (has(json, request, "from", {"tree"})) request.tree.from = pathOf(json, "from");
}

static void readClear(Json const& json, Request& request) {
  request.what = oneOf(json, "what", clearable);
  if (has(json, request, "zone", {"bsr", "rp-set"})) request.zone = zoneOf(json, "zone");
  if (!has(json, request, "interface", {"neighbors"})) return;
  constexpr char const* valid = "the name of an interface such as \"eth0\"";
  request.interface = text(json, "interface", valid);
  if (request.interface.empty()) reject("interface", "is empty", valid);
}

static void readTrace(Json const& json, Request& request) {
  constexpr char const* valid = "the name of a trace handle such as \"Pim::Bsr::NonCandidateSm\"";
  request.handle = text(json, "handle", valid);
  if (request.handle.empty()) reject("handle", "is empty", valid);
  request.level = levelOf(json);
}

Request parseRequest(std::string_view line) {
  Json json = objectOf(line);
  Form const& form = formOf(json);
  checkMembers(json, form);
  Request request{.command = form.command};
  if (form.command == Command::show) readShow(json, request);
  if (form.command == Command::get) request.path = pathOf(json, "path");
  if (form.command == Command::watch && json.contains("path")) request.path = pathOf(json, "path");
  if (form.command == Command::clear) readClear(json, request);
  if (form.command == Command::trace) readTrace(json, request);
  return request;
}

// Writing ---------------------------------------------------------------------------------------------------

static std::string dumped(Json const& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

/// The result is not copied into a view first: an RP set takes some megabytes.
std::string answerLine(Json const& result) { return std::string(granted) + dumped(result) + "}\n"; }

std::string errorLine(std::string_view error) {
  return dumped(jsonOf(view::Answer{.ok = false, .error = std::string(error)})) + "\n";
}

// Lines -----------------------------------------------------------------------------------------------------

std::optional<std::string> LineBuffer::next() {
  std::size_t end = bytes_.find('\n');
  if (std::min(end, bytes_.size()) >= maxLength_) {
    throw RequestError(fmt::format("a request is longer than {} bytes, its newline included", maxLength_));
  }
  if (end == bytes_.npos) return std::nullopt;
  std::string line = bytes_.substr(0, end);
  bytes_.erase(0, end + 1);
  return line;
}

bool LineBuffer::isReady() const { return bytes_.size() >= maxLength_ || bytes_.find('\n') != bytes_.npos; }

}  // namespace pimbsr::agent

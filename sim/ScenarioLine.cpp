#include "sim/ScenarioLine.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <optional>

#include "host/Configuration.keys.h"
#include "runtime/Exceptions.h"
#include "sim/ScenarioError.h"

namespace pimbsr::sim {

using Lanet::IpAddr;
using Lanet::IpGenPrefix;

// Words -----------------------------------------------------------------------------------------------

ScenarioLine::ScenarioLine(std::string_view text, std::string where, ScenarioNames& names)
    : where_(std::move(where)), names_(names) {
  constexpr std::string_view blank = " \t\r";
  std::size_t at = text.find_first_not_of(blank);
  while (at != text.npos && text[at] != '#') {
    std::size_t end = std::min(text.find_first_of(blank, at), text.size());
    words_.push_back(text.substr(at, end - at));
    at = text.find_first_not_of(blank, end);
  }
}

void ScenarioLine::fail(std::string const& text) const {
  throw ScenarioError(fmt::format("{}: {}", where_, text));
}

void ScenarioLine::failUnknown(std::string_view word, std::string_view kind,
                               std::vector<std::string> const& valid) const {
  if (valid.empty()) fail(fmt::format("there is no {} '{}'; none has been made yet", kind, word));
  fail(fmt::format("there is no {} '{}'; valid are {}", kind, word, fmt::join(valid, ", ")));
}

std::string_view ScenarioLine::word(std::string_view what) {
  if (atEnd()) fail(fmt::format("{} is missing; the statement is '{}'", what, form_));
  return words_[next_++];
}

bool ScenarioLine::take(std::string_view word) {
  if (peek() != word || atEnd()) return false;
  ++next_;
  return true;
}

void ScenarioLine::end() {
  if (!atEnd()) fail(fmt::format("'{}' is too much; the statement is '{}'", peek(), form_));
}

std::string ScenarioLine::rest() const {
  return fmt::format("{}", fmt::join(words_.begin() + static_cast<std::ptrdiff_t>(next_), words_.end(), " "));
}

/// The name that an option has now where one of its former names is given; else empty.
static std::string_view renamed(std::string_view former, std::initializer_list<std::string_view> valid) {
  using host::ConfigKey;
  ConfigKey const* const keys[] = {&host::TimeoutsKeys::bsTimeout, &host::TimeoutsKeys::szTimeout,
                                   &host::BsrTermsKeys::bsPeriod, &host::RpAdvertisingKeys::cRpAdvPeriod};
  for (ConfigKey const* key : keys) {
    bool isValid = std::find(valid.begin(), valid.end(), key->name) != valid.end();
    if (isValid && key->former == former) return key->name;
  }
  return {};
}

std::string_view ScenarioLine::option(std::initializer_list<std::string_view> valid) {
  std::string_view key = word("an option");
  if (std::string_view now = renamed(key, valid); !now.empty())
    fail(fmt::format("'{}' is now called '{}'", key, now));
  if (std::find(valid.begin(), valid.end(), key) == valid.end()) {
    failUnknown(key, "option", {valid.begin(), valid.end()});
  }
  if (!options_.insert(key).second) fail(fmt::format("'{}' is given twice", key));
  return key;
}

U32 ScenarioLine::oneOf(std::string_view kind, std::span<std::string_view const> valid) {
  std::string_view found = word(fmt::format("a {}", kind));
  auto at = std::find(valid.begin(), valid.end(), found);
  if (at == valid.end()) failUnknown(found, kind, {valid.begin(), valid.end()});
  return static_cast<U32>(at - valid.begin());
}

// Numbers and times -----------------------------------------------------------------------------------

/// The number at the start of a text, which is cut off from it; nothing if there is none.
template <class Number>
static std::optional<Number> takeNumber(std::string_view& text) {
  Number number{};
  auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
  return number;
}

U64 ScenarioLine::number(std::string_view what, U64 low, U64 high) {
  std::string_view text = word(what);
  std::string_view left = text;
  std::optional<U64> number = takeNumber<U64>(left);
  if (number && left.empty() && *number >= low && *number <= high) return *number;
  fail(fmt::format("{}: '{}' is no whole number from {} to {}", what, text, low, high));
}

/// Cuts a unit off a time; gives how many seconds it has, 0 if there is none.
static double takeUnit(std::string_view& text) {
  constexpr std::pair<std::string_view, double> units[] = {
      {"ms", 0.001}, {"us", 0.000001}, {"h", 3600}, {"m", 60}, {"s", 1}};
  for (auto const& [unit, seconds] : units) {
    if (!text.starts_with(unit)) continue;
    text.remove_prefix(unit.size());
    return seconds;
  }
  return 0;
}

/// A time such as 90, 1m30s or 250ms in seconds; nothing for another text.
static std::optional<double> secondsOf(std::string_view text) {
  double sum = 0;
  for (bool isFirst = true; isFirst || !text.empty(); isFirst = false) {
    std::optional<double> number = takeNumber<double>(text);
    if (!number || !(*number >= 0 && *number <= 1e9)) return std::nullopt;
    if (isFirst && text.empty()) return number;
    double unit = takeUnit(text);
    if (unit == 0) return std::nullopt;
    sum += *number * unit;
  }
  return sum;
}

double ScenarioLine::seconds(std::string_view what) {
  std::string_view text = word(what);
  if (std::optional<double> seconds = secondsOf(text)) return *seconds;
  fail(fmt::format("{}: '{}' is no time such as 90, 1m30s or 250ms", what, text));
}

double ScenarioLine::signedSeconds(std::string_view what) {
  bool isNegative = peek().starts_with('-');
  if (isNegative) words_[next_].remove_prefix(1);
  double time = seconds(what);
  return isNegative ? -time : time;
}

double ScenarioLine::share(std::string_view what) {
  std::string_view text = word(what);
  std::string_view left = text;
  std::optional<double> number = takeNumber<double>(left);
  if (number && left == "%") return *number / 100;
  if (number && left.empty()) return *number;
  fail(fmt::format("{}: '{}' is no share such as 0.05 or 5%", what, text));
}

double ScenarioLine::probability(std::string_view what) {
  std::string_view text = peek();
  double number = share(what);
  if (number >= 0 && number <= 1) return number;
  fail(fmt::format("{}: '{}' is no probability from 0 to 1 or 0% to 100%", what, text));
}

// Addresses -------------------------------------------------------------------------------------------

IpAddr ScenarioLine::anyAddress(std::string_view what) {
  std::string_view text = word(what);
  try {
    return IpAddr::parse(Zet::String8(text));
  } catch (Zet::RangeException const&) {
    fail(fmt::format("{}: '{}' is no IPv4 address", what, text));
  }
}

IpAddr ScenarioLine::address(std::string_view what) {
  std::string_view text = peek();
  IpAddr address = anyAddress(what);
  if (!address.isMulticast() && address != IpAddr()) return address;
  fail(fmt::format("{}: '{}' is no unicast address", what, text));
}

IpAddr ScenarioLine::group(std::string_view what) {
  std::string_view text = peek();
  IpAddr address = anyAddress(what);
  if (address.isMulticast()) return address;
  fail(fmt::format("{}: '{}' is no multicast group", what, text));
}

static std::optional<Lanet::Prefix> prefixOf(std::string_view text) {
  try {
    return Lanet::Prefix::parse(Zet::String8(text));
  } catch (Zet::RangeException const&) {
    return std::nullopt;
  }
}

Lanet::Prefix ScenarioLine::prefix(std::string_view what) {
  std::string_view text = word(what);
  if (std::optional<Lanet::Prefix> prefix = prefixOf(text)) return *prefix;
  fail(fmt::format("{}: '{}' is no IPv4 prefix such as 10.1.2.0/24", what, text));
}

IpGenPrefix ScenarioLine::range(std::string_view what) {
  std::string_view text = word(what);
  if (text == "global") return Lanet::allGroups();
  std::optional<Lanet::Prefix> prefix = prefixOf(text);
  if (prefix && Lanet::allGroups().contains(*prefix)) return *prefix;
  fail(fmt::format("{}: '{}' is no range of multicast groups such as 239.1.0.0/16, and not 'global'", what,
                   text));
}

bool ScenarioLine::isRangeNext() const {
  return peek() == "global" || peek().find('/') != std::string_view::npos;
}

// Names -----------------------------------------------------------------------------------------------

template <class Named>
static std::vector<std::string> namesOf(NameTable<Named> const& all) {
  std::vector<std::string> names;
  for (Named const& one : all) names.push_back(one.name);
  return names;
}

U32 ScenarioLine::link() {
  std::string_view name = word("a link");
  std::optional<U32> number = names_.links.find(name);
  if (!number) failUnknown(name, "link", namesOf(names_.links));
  return *number;
}

U32 ScenarioLine::router() {
  std::string_view name = word("a router");
  std::optional<U32> number = names_.routers.find(name);
  if (!number) failUnknown(name, "router", namesOf(names_.routers));
  return *number;
}

U32 ScenarioLine::interface(U32 router) {
  std::string_view name = peek();
  U32 wanted = link();
  auto const& owner = names_.routers[router];
  std::vector<std::string> valid;
  for (U32 number = 0; number < owner.interfaces.size(); ++number) {
    if (owner.interfaces[number].link == wanted) return number;
    valid.push_back(names_.links[owner.interfaces[number].link].name);
  }
  failUnknown(name, fmt::format("interface of {} to link", owner.name), valid);
}

std::string ScenarioLine::newName(std::string_view what) {
  std::string name(word(what));
  bool isGood = name.size() <= 15 && std::all_of(name.begin(), name.end(), [](unsigned char c) {
                  return std::isalnum(c) != 0 || c == '-' || c == '_' || c == '.';
                });
  if (isGood && name.front() != '-' && name.front() != '.') return name;
  fail(fmt::format("{}: '{}' is no name of at most 15 letters, digits, '-', '_' and '.'", what, name));
}

}  // namespace pimbsr::sim

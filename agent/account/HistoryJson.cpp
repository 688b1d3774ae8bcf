#include "agent/account/HistoryJson.h"

#include <algorithm>
#include <array>
#include <limits>
#include <stdexcept>

#include "agent/base/Json.h"
#include "agent/base/Names.h"

namespace pimbsr::agent {

using host::BsrView;
using host::MessageKind;
using host::RpView;

static constexpr std::array<std::string_view, 10> kindNames = {
    "bsrElected", "bsrChanged", "bsrLost",       "rpAdded",      "rpUpdated",
    "rpRemoved",  "rpExpired",  "zoneForgotten", "rpSetChanged", "candidateState"};
static constexpr std::array<std::string_view, 6> causeNames = {"start",         "message", "timer",
                                                               "configuration", "kernel",  "stop"};

std::string_view keyOf(HistoryKind kind) { return kindNames[static_cast<std::size_t>(kind)]; }
std::string_view keyOf(CauseKind kind) { return causeNames[static_cast<std::size_t>(kind)]; }

// Writing -----------------------------------------------------------------------------------------------

static Json jsonOf(BsrView const& bsr) {
  return {{"address", jsonOf(bsr.address)}, {"priority", bsr.priority}, {"hashMaskLen", bsr.hashMaskLen}};
}

static Json jsonOf(RpView const& rp) {
  return {{"range", jsonOf(rp.range)},
          {"address", jsonOf(rp.address)},
          {"priority", rp.priority},
          {"holdTime", rp.holdTime},
          {"bidirectional", rp.mode == Routing::Pim::Mode::bidir}};
}

static Json jsonOf(RpCounts const& counts) {
  return {{"added", counts.added},
          {"updated", counts.updated},
          {"removed", counts.removed},
          {"expired", counts.expired}};
}

static Json jsonOf(std::vector<Lanet::IpGenAddr> const& addresses) {
  Json json = Json::array();
  for (Lanet::IpGenAddr const& address : addresses) json.push_back(jsonOf(address));
  return json;
}

static Json jsonOf(Cause const& cause) {
  Json json = {{"kind", keyOf(cause.kind)}};
  if (cause.kind != CauseKind::message) return json;
  json["message"] = keyOf(cause.message);
  json["sender"] = jsonOf(cause.sender);
  json["interface"] = cause.intf;
  return json;
}

Json jsonOf(HistoryEntry const& entry) {
  Json json = {{"time", jsonOfTime(entry.time)}, {"event", keyOf(entry.kind)}, {"zone", jsonOf(entry.zone)}};
  if (!entry.bsr.address.isEmpty()) {
    json["bsr"] = jsonOf(entry.bsr);
    json["own"] = entry.own;
  }
  if (!entry.formerBsr.address.isEmpty()) {
    json["formerBsr"] = jsonOf(entry.formerBsr);
    json["formerOwn"] = entry.formerOwn;
  }
  if (!entry.rp.address.isEmpty()) json["rp"] = jsonOf(entry.rp);
  if (!entry.formerRp.address.isEmpty()) json["formerRp"] = jsonOf(entry.formerRp);
  if (entry.kind == HistoryKind::rpSetChanged) {
    json["rps"] = jsonOf(entry.rps);
    json["firstRps"] = jsonOf(entry.firstRps);
    json["moreRps"] = entry.moreRps;
  }
  if (entry.kind == HistoryKind::candidateState) {
    json["state"] = jsonOfState(entry.state);
    json["formerState"] = jsonOfState(entry.formerState);
  }
  json["cause"] = jsonOf(entry.cause);
  return json;
}

// Reading -----------------------------------------------------------------------------------------------

/// The kind that a name stands for; throws if it is none.
template <class Kind, std::size_t n>
static Kind kindOf(std::array<std::string_view, n> const& names, std::string const& name) {
  auto at = std::find(names.begin(), names.end(), name);
  if (at == names.end()) throw std::invalid_argument("no such kind");
  return static_cast<Kind>(at - names.begin());
}

/// Throws if the text is none of the type.
template <class Value>
static Value valueOf(Json const& json) {
  return Value::parse(Zet::String8(json.get<std::string>().c_str()));
}

template <class Number>
static Number numberOf(Json const& json) {
  U64 number = json.is_number_unsigned() ? json.get<U64>() : throw std::invalid_argument("no number");
  if (number > std::numeric_limits<Number>::max()) throw std::out_of_range("too large a number");
  return static_cast<Number>(number);
}

static BsrView bsrOf(Json const& json) {
  return {.address = valueOf<Lanet::IpGenAddr>(json.at("address")),
          .priority = numberOf<Zet::U16>(json.at("priority")),
          .hashMaskLen = numberOf<Zet::U32>(json.at("hashMaskLen"))};
}

static RpView rpOf(Json const& json) {
  bool bidir = json.at("bidirectional").get<bool>();
  return {.range = valueOf<Lanet::IpGenPrefix>(json.at("range")),
          .address = valueOf<Lanet::IpGenAddr>(json.at("address")),
          .priority = numberOf<Zet::U32>(json.at("priority")),
          .holdTime = numberOf<Zet::U16>(json.at("holdTime")),
          .mode = bidir ? Routing::Pim::Mode::bidir : Routing::Pim::Mode::sparse};
}

static RpCounts countsOf(Json const& json) {
  return {.added = numberOf<U64>(json.at("added")),
          .updated = numberOf<U64>(json.at("updated")),
          .removed = numberOf<U64>(json.at("removed")),
          .expired = numberOf<U64>(json.at("expired"))};
}

/// Throws for more than an entry names.
static std::vector<Lanet::IpGenAddr> addressesOf(Json const& json) {
  bool isList = json.is_array() && json.size() <= mostNamedRps;
  if (!isList) throw std::invalid_argument("no list of RPs");
  std::vector<Lanet::IpGenAddr> addresses;
  for (Json const& address : json) addresses.push_back(valueOf<Lanet::IpGenAddr>(address));
  return addresses;
}

static std::string stateOf(Json const& json) { return json.is_null() ? "-" : json.get<std::string>(); }

static MessageKind messageOf(std::string const& name) {
  auto at =
      std::find_if(messageKinds.begin(), messageKinds.end(), [&](auto kind) { return keyOf(kind) == name; });
  return at == messageKinds.end() ? throw std::invalid_argument("no such message") : *at;
}

static Cause causeOf(Json const& json) {
  Cause cause{.kind = kindOf<CauseKind>(causeNames, json.at("kind"))};
  if (cause.kind != CauseKind::message) return cause;
  cause.message = messageOf(json.at("message"));
  if (!json.at("sender").is_null()) cause.sender = valueOf<Lanet::IpGenAddr>(json.at("sender"));
  cause.intf = json.at("interface");
  return cause;
}

/// Throws for what is no time of this or the next thousand years.
static double timeOf(Json const& json) {
  constexpr double latest = 1e11;
  auto seconds = json.get<double>();
  bool isTime = seconds >= 0 && seconds <= latest;
  return isTime ? seconds : throw std::out_of_range("no time");
}

static HistoryEntry entryOf(Json const& json) {
  HistoryEntry entry{.time = timeOf(json.at("time")),
                     .kind = kindOf<HistoryKind>(kindNames, json.at("event")),
                     .cause = causeOf(json.at("cause")),
                     .zone = valueOf<Lanet::IpGenPrefix>(json.at("zone"))};
  if (json.contains("bsr")) {
    entry.bsr = bsrOf(json["bsr"]);
    entry.own = json.at("own").get<bool>();
  }
  if (json.contains("formerBsr")) {
    entry.formerBsr = bsrOf(json["formerBsr"]);
    entry.formerOwn = json.at("formerOwn").get<bool>();
  }
  if (json.contains("rp")) entry.rp = rpOf(json["rp"]);
  if (json.contains("formerRp")) entry.formerRp = rpOf(json["formerRp"]);
  if (entry.kind == HistoryKind::rpSetChanged) {
    entry.rps = countsOf(json.at("rps"));
    entry.firstRps = addressesOf(json.at("firstRps"));
    entry.moreRps = json.at("moreRps").get<bool>();
  }
  if (entry.kind == HistoryKind::candidateState) {
    entry.state = stateOf(json.at("state"));
    entry.formerState = stateOf(json.at("formerState"));
  }
  return entry;
}

/// Whatever is wrong with a line, only its entry is lost by it.
std::optional<HistoryEntry> readHistoryEntry(std::string_view line) {
  try {
    return entryOf(Json::parse(line));
  } catch (std::exception const&) {
    return std::nullopt;
  }
}

std::string linesOf(History const& history) {
  std::string text;
  for (HistoryEntry const& entry : history.entries())
    text += jsonOf(entry).dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
  return text;
}

std::size_t prependLines(History& history, std::string_view text) {
  std::deque<HistoryEntry> entries;
  std::size_t damaged = 0;
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (auto entry = readHistoryEntry(line)) {
      entries.push_back(*entry);
    } else {
      ++damaged;
    }
  }
  history.prepend(std::move(entries));
  return damaged;
}

}  // namespace pimbsr::agent

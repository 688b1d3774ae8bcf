#include "agent/config/ConfigFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>

#include "agent/base/TraceLevel.h"
#include "agent/config/ConfigBlock.h"
#include "host/Limits.h"
#include "runtime/Exceptions.h"

namespace pimbsr::agent {

using Lanet::IpAddr;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Sort = ConfigValue::Sort;

// Values of texts -------------------------------------------------------------------------------------

/// Reads a value that the model reads; none if the model refuses it.
template <class Value>
static std::optional<Value> parsed(std::string_view text) {
  // The unset value has an empty text, and would be read.
  if (text.empty()) return std::nullopt;
  try {
    return Value::parse(Zet::String8(text));
  } catch (Zet::RangeException const&) {
    return std::nullopt;
  }
}

static std::string textOf(IpGenPrefix const& prefix) { return std::string(prefix.stringValue().view()); }

// The reader ------------------------------------------------------------------------------------------

namespace {

/// Reads the values of one file into settings, table by table.
class Reader {
 public:
  explicit Reader(ConfigReading& reading) : reading_(reading) {}

  void read(ConfigValue const& root);

 private:
  using Read = void (Reader::*)(ConfigValue const& value);

  void readInterfaces(ConfigValue const& value);
  void readInterface(std::string const& name, ConfigValue const& value);
  void readCandidateBsrs(ConfigValue const& value) {
    forEachTable("candidate-bsr", value, &Reader::readCandidateBsr);
  }
  void readCandidateBsr(ConfigValue const& value);
  void readCandidateRps(ConfigValue const& value) {
    forEachTable("candidate-rp", value, &Reader::readCandidateRp);
  }
  void readCandidateRp(ConfigValue const& value);
  void readFilter(ConfigValue const& value);
  void readLists(ConfigValue const& value);
  void readList(std::string const& name, ConfigValue const& value);
  std::optional<U64> sequenceOf(ConfigBlock& block, std::optional<U64> const& last);
  std::optional<Acl::IpFilter> filterOf(ConfigBlock& block);
  std::optional<Acl::IpFilter> maskedFilterOf(ConfigBlock& block);
  void readTimers(ConfigValue const& value);
  void readChecks(ConfigValue const& value);
  void readLimits(ConfigValue const& value);
  void readControl(ConfigValue const& value);
  void readState(ConfigValue const& value) {
    block(value, "state").take("directory", settings().stateDirectory);
  }
  void readTraces(ConfigValue const& value);

  void forEachTable(char const* name, ConfigValue const& list, Read readOne);
  bool isTable(ConfigValue const& value, std::string_view path);
  template <class Terms>
  void readRanges(ConfigBlock& block, std::string const& place, host::ByRange<Terms>& ranges,
                  Terms const& terms, char const* groups = "groups", char const* lists = "lists");
  std::optional<IpGenPrefix> prefixOf(ConfigBlock& block, std::string_view name, PlacedText const& read);
  void refuse(ConfigBlock& block, std::string_view name, PlacedText const& read) {
    block.refuseItem(name, {.sort = Sort::text, .at = read.at, .text = read.text});
  }
  /// Notes where a part of the settings stands; false, with a fault, if that was written before.
  bool isFirst(ConfigBlock& block, std::string_view name, std::string const& place, PlacedText const& what);
  /// Notes where the keys of a block stand that describe a part of the settings; where they don't, the block.
  void notePlaces(ConfigBlock const& block, std::string const& place,
                  std::initializer_list<std::string_view> names);

  ConfigBlock block(ConfigValue const& value, std::string_view section) {
    return {value, section, std::string(section), reading_.faults};
  }
  void fault(TextPlace at, std::string const& text) { reading_.faults.push_back({at, text}); }
  Settings& settings() { return reading_.settings; }
  host::Configuration& router() { return reading_.settings.router; }

  ConfigReading& reading_;
  std::map<std::string, TextPlace> written_;
};

void Reader::read(ConfigValue const& root) {
  static constexpr std::pair<std::string_view, Read> tables[] = {
      {"interface", &Reader::readInterfaces},
      {"candidate-bsr", &Reader::readCandidateBsrs},
      {"candidate-rp", &Reader::readCandidateRps},
      {"filter", &Reader::readFilter},
      {"access-list", &Reader::readLists},
      {"timers", &Reader::readTimers},
      {"checks", &Reader::readChecks},
      {"limits", &Reader::readLimits},
      {"control", &Reader::readControl},
      {"state", &Reader::readState},
      {"trace", &Reader::readTraces}};
  for (ConfigEntry const& entry : root.entries) {
    auto isIt = [&](auto const& table) { return table.first == entry.key; };
    auto found = std::find_if(std::begin(tables), std::end(tables), isIt);
    if (found == std::end(tables)) {
      fault(entry.at, fmt::format("{}: {}", tomlKey(entry.key), unknownKeyText("", entry.key)));
    } else {
      (this->*found->second)(entry.value);
    }
  }
}

// Tables ----------------------------------------------------------------------------------------------

bool Reader::isTable(ConfigValue const& value, std::string_view path) {
  if (value.sort == Sort::table) return true;
  fault(value.at, fmt::format("{}: read {}; valid is a table", path, describe(value)));
  return false;
}

void Reader::forEachTable(char const* name, ConfigValue const& list, Read readOne) {
  if (list.sort != Sort::list) {
    return fault(list.at, fmt::format("{0}: read {1}; valid are tables that begin with [[{0}]]", name,
                                      describe(list)));
  }
  for (ConfigValue const& table : list.items) (this->*readOne)(table);
}

bool Reader::isFirst(ConfigBlock& block, std::string_view name, std::string const& place,
                     PlacedText const& what) {
  reading_.places.add(place, what.at);
  auto [at, first] = written_.try_emplace(place, what.at);
  if (!first) {
    block.fault(what.at, fmt::format("{}.{}: {} stands in line {}, column {} already", block.path(), name,
                                     what.text, at->second.line, at->second.column));
  }
  return first;
}

void Reader::notePlaces(ConfigBlock const& block, std::string const& place,
                        std::initializer_list<std::string_view> names) {
  for (std::string_view name : names)
    reading_.places.add(fmt::format("{}, {}", place, name), block.placeOf(name));
}

// Ranges ----------------------------------------------------------------------------------------------

std::optional<IpGenPrefix> Reader::prefixOf(ConfigBlock& block, std::string_view name,
                                            PlacedText const& read) {
  std::optional<IpGenPrefix> prefix = parsed<IpGenPrefix>(read.text);
  if (!prefix) {
    refuse(block, name, read);
    return std::nullopt;
  }
  auto address = parsed<IpGenAddr>(std::string_view(read.text).substr(0, read.text.find('/')));
  if (address && *address != prefix->address()) {
    reading_.remarks.push_back(
        {read.at, fmt::format("{}.{}: {} has bits behind its length, and is read as {}", block.path(), name,
                              read.text, textOf(*prefix))});
  }
  return prefix;
}

template <class Terms>
void Reader::readRanges(ConfigBlock& block, std::string const& place, host::ByRange<Terms>& ranges,
                        Terms const& terms, char const* groups, char const* lists) {
  for (PlacedText const& read : block.texts(groups)) {
    std::optional<IpGenPrefix> range = prefixOf(block, groups, read);
    if (!range) continue;
    std::string where = fmt::format("{}, group {}", place, textOf(*range));
    if (!isFirst(block, groups, where, {read.at, textOf(*range)})) continue;
    ranges.groups[*range] = terms;
    notePlaces(block, where, {"priority", "hash-mask-length", "interval"});
  }
  for (PlacedText const& read : block.texts(lists)) {
    std::string where = fmt::format("{}, access list {}", place, read.text);
    if (!isFirst(block, lists, where, read)) continue;
    ranges.lists[read.text] = terms;
    notePlaces(block, where, {"priority", "hash-mask-length", "interval"});
  }
}

/// The list of groups of a candidate that names neither groups nor lists.
static constexpr char const* allGroups = "224.0.0.0/4";

static bool namesNoRanges(ConfigBlock const& block) {
  return block.value("groups") == nullptr && block.value("lists") == nullptr;
}

// Interfaces and candidates ---------------------------------------------------------------------------

void Reader::readInterfaces(ConfigValue const& value) {
  if (!isTable(value, "interface")) return;
  for (ConfigEntry const& entry : value.entries) {
    if (isInterfaceName(entry.key)) {
      readInterface(entry.key, entry.value);
    } else {
      fault(entry.at, fmt::format("interface.{}: no interface can have this name; valid is {}",
                                  inQuotes(entry.key), validText(configKey("candidate-bsr", "interface"))));
    }
  }
}

void Reader::readInterface(std::string const& name, ConfigValue const& value) {
  ConfigBlock block(value, "interface.NAME", "interface." + tomlKey(name), reading_.faults);
  InterfaceSettings speaks;
  bool pim = true;
  block.take("pim", pim);
  block.take("hello", speaks.hello);
  block.take("dr-priority", speaks.drPriority);
  block.take("hello-interval", speaks.helloInterval);
  if (pim) settings().interfaces[name] = speaks;
  reading_.places.add("interface " + name, block.at());
  if (block.value("border") == nullptr && block.value("border-lists") == nullptr) return;
  reading_.places.add("border " + name,
                      block.placeOf(block.value("border") != nullptr ? "border" : "border-lists"));
  readRanges(block, "border " + name, router().borders[name], host::Present(), "border", "border-lists");
}

void Reader::readCandidateBsr(ConfigValue const& value) {
  ConfigBlock block = this->block(value, "candidate-bsr");
  std::optional<PlacedText> intf = block.text("interface");
  host::BsrTerms terms;
  block.take("priority", terms.priority);
  block.take("hash-mask-length", terms.hashMaskLen);
  block.take("interval", terms.interval);
  std::string place = "candidate-bsr " + (intf ? intf->text : "");
  host::ByRange<host::BsrTerms> ofNobody;
  auto& ranges = intf ? router().candidateBsrs[intf->text] : ofNobody;
  reading_.places.add(place, block.at());
  notePlaces(block, place, {"interface"});
  readRanges(block, place, ranges, terms);
  if (!namesNoRanges(block)) return;
  std::string where = fmt::format("{}, group {}", place, allGroups);
  if (!isFirst(block, "groups", where, {block.at(), allGroups})) return;
  ranges.groups[IpGenPrefix::parse(allGroups)] = terms;
  notePlaces(block, where, {"priority", "hash-mask-length", "interval"});
}

void Reader::readCandidateRp(ConfigValue const& value) {
  ConfigBlock block = this->block(value, "candidate-rp");
  std::optional<PlacedText> intf = block.text("interface");
  U64 priority = 192;
  block.take("priority", priority);
  std::string place = "candidate-rp " + (intf ? intf->text : "");
  host::RpTerms ofNobody;
  host::RpTerms& terms = intf ? router().candidateRps[intf->text] : ofNobody;
  reading_.places.add(place, block.at());
  notePlaces(block, place, {"interface"});
  readRanges(block, place, terms.ranges, std::optional<U64>(priority));
  std::string where = fmt::format("{}, group {}", place, allGroups);
  if (namesNoRanges(block) && isFirst(block, "groups", where, {block.at(), allGroups})) {
    terms.ranges.groups[IpGenPrefix::parse(allGroups)] = priority;
    notePlaces(block, where, {"priority"});
  }
  std::optional<U64> interval = block.number("interval");
  if (!interval) return;
  auto [first, isNew] = written_.try_emplace(place + ", interval", block.placeOf("interval"));
  if (isNew) {
    terms.interval = *interval;
    reading_.places.add(place + ", interval", first->second);
  } else if (*interval != terms.interval && intf) {
    block.fault(
        block.placeOf("interval"),
        fmt::format("candidate-rp.interval: read {}; all that {} offers has one interval, and that is {} "
                    "in line {}",
                    *interval, intf->text, terms.interval, first->second.line));
  }
}

// Lists -----------------------------------------------------------------------------------------------

void Reader::readFilter(ConfigValue const& value) {
  ConfigBlock block = this->block(value, "filter");
  for (PlacedText const& read : block.texts("sender-lists")) {
    isFirst(block, "sender-lists", "senders, access list " + read.text, read);
    router().senderLists.insert(read.text);
  }
  for (PlacedText const& read : block.texts("rp-lists")) {
    isFirst(block, "rp-lists", "preferred-rps, access list " + read.text, read);
    router().rpLists.insert(read.text);
  }
}

void Reader::readLists(ConfigValue const& value) {
  if (!isTable(value, "access-list")) return;
  for (ConfigEntry const& entry : value.entries) {
    reading_.places.add("access-list " + entry.key, entry.value.at);
    if (isListName(entry.key)) {
      readList(entry.key, entry.value);
    } else {
      fault(entry.at, fmt::format("access-list.{}: no list can have this name; valid are 1 to 64 letters, "
                                  "digits, '-', '_', '.' and ':'",
                                  inQuotes(entry.key)));
    }
  }
}

void Reader::readList(std::string const& name, ConfigValue const& value) {
  std::string path = "access-list." + tomlKey(name);
  ConfigBlock block(value, "access-list.NAME", path, reading_.faults);
  host::AccessList& list = router().accessLists[name];
  std::optional<U64> last;
  for (ConfigValue const* table : block.tables("rules")) {
    ConfigBlock rule(*table, "access-list.NAME.rules", path + ".rules", reading_.faults);
    std::optional<PlacedText> action = rule.text("action");
    std::optional<Acl::IpFilter> filter = filterOf(rule);
    std::optional<U64> sequence = sequenceOf(rule, last);
    if (!sequence) continue;
    last = sequence;
    std::string place = fmt::format("access-list {}, rule {}", name, *sequence);
    bool first = isFirst(rule, "seq", place, {rule.placeOf("seq"), std::to_string(*sequence)});
    if (!first || !action || !filter) continue;
    auto does = action->text == "permit" ? Acl::Action::permit : Acl::Action::deny;
    list[static_cast<U32>(*sequence)] = {does, *filter};
  }
}

/// A rule without a number stands behind the one written before it.
std::optional<U64> Reader::sequenceOf(ConfigBlock& block, std::optional<U64> const& last) {
  if (block.value("seq") != nullptr) return block.number("seq");
  U64 next = last.value_or(0) + 10;
  ConfigKey const& key = configKey("access-list.NAME.rules", "seq");
  if (next <= key.most) return next;
  block.fault(block.at(), fmt::format("{}.seq: not there, and {} would be too much; valid is {}",
                                      block.path(), next, validText(key)));
  return std::nullopt;
}

static Acl::IpFilter filterOf(IpAddr address, IpAddr mask) {
  Acl::IpFilter filter;
  filter.source = IpAddr::fromNet(address.netWord() & mask.netWord());
  filter.sourceMask = mask;
  return filter;
}

std::optional<Acl::IpFilter> Reader::filterOf(ConfigBlock& block) {
  if (block.value("address") != nullptr || block.value("mask") != nullptr) return maskedFilterOf(block);
  std::optional<PlacedText> read = block.text("prefix");
  if (!read) return block.value("prefix") == nullptr ? std::optional(Acl::IpFilter()) : std::nullopt;
  std::optional<IpGenPrefix> prefix = prefixOf(block, "prefix", *read);
  if (!prefix) return std::nullopt;
  if (prefix->af() != Lanet::AddressFamily::ipv4) {
    refuse(block, "prefix", *read);
    return std::nullopt;
  }
  U32 length = prefix->length();
  return agent::filterOf(prefix->address().v4Addr(),
                         IpAddr::fromHost(length == 0 ? 0 : ~0u << (32 - length)));
}

std::optional<Acl::IpFilter> Reader::maskedFilterOf(ConfigBlock& block) {
  std::optional<IpAddr> parts[2];
  char const* names[] = {"address", "mask"};
  for (int i : {0, 1}) {
    std::optional<PlacedText> read = block.text(names[i]);
    if (read && !(parts[i] = parsed<IpAddr>(read->text))) refuse(block, names[i], *read);
    if (block.value(names[i]) == nullptr) {
      block.fault(block.placeOf(names[1 - i]), fmt::format("{}.{}: stands without {}; both are needed",
                                                           block.path(), names[1 - i], names[i]));
    }
  }
  if (block.value("prefix") != nullptr) {
    block.fault(
        block.placeOf("prefix"),
        fmt::format("{}.prefix: stands beside an address with its mask; one of both is valid", block.path()));
    return std::nullopt;
  }
  if (!parts[0] || !parts[1]) return std::nullopt;
  return agent::filterOf(*parts[0], *parts[1]);
}

// The rest --------------------------------------------------------------------------------------------

void Reader::readTimers(ConfigValue const& value) {
  ConfigBlock block = this->block(value, "timers");
  block.take("hold-time", router().holdTime);
  block.take("zone-timeout", router().zoneTimeout);
  if (block.value("hold-time") != nullptr) reading_.places.add("hold-time", block.placeOf("hold-time"));
  if (block.value("zone-timeout") != nullptr) {
    reading_.places.add("zone-timeout", block.placeOf("zone-timeout"));
  }
}

void Reader::readChecks(ConfigValue const& value) {
  ConfigBlock block = this->block(value, "checks");
  block.take("link-local-ttl", settings().screening.linkLocalTtl);
  block.take("on-subnet", settings().screening.onSubnet);
  block.take("from-neighbors", settings().screening.fromNeighbors);
  block.take("not-own-bsr", settings().screening.notOwnBsr);
  notePlaces(block, "checks", {"link-local-ttl", "on-subnet", "from-neighbors", "not-own-bsr"});
}

void Reader::readLimits(ConfigValue const& value) {
  ConfigBlock block = this->block(value, "limits");
  for (host::Limit const& limit : host::limits()) {
    block.take(limit.name, settings().screening.*limit.value);
    notePlaces(block, "limits", {limit.name});
  }
}

/// The path of the second control socket where the file has none: a name of its own for each first socket, so
/// that agents whose sockets share a folder don't collide. Empty without a first one, and where it would be
/// too long for a socket.
static std::string readOnlySocketOf(std::string const& socket) {
  static constexpr std::string_view ending = ".sock";
  static constexpr std::size_t maxLength = 107;
  std::string_view stem = socket;
  if (stem.ends_with(ending)) stem.remove_suffix(ending.size());
  std::string path = fmt::format("{}-read-only{}", stem, ending);
  return socket.empty() || path.size() > maxLength ? "" : path;
}

void Reader::readControl(ConfigValue const& value) {
  ConfigBlock block = this->block(value, "control");
  Settings& wanted = settings();
  block.take("socket", wanted.controlSocket);
  wanted.readOnlySocket = readOnlySocketOf(wanted.controlSocket);
  block.take("read-only-socket", wanted.readOnlySocket);
  block.take("read-only-group", wanted.readOnlyGroup);
  if (wanted.controlSocket.empty() || wanted.controlSocket != wanted.readOnlySocket) return;
  block.fault(block.placeOf("read-only-socket"),
              "control.read-only-socket: the path of control.socket; valid is a path of its own, or \"\" for "
              "none");
}

/// Every handle is a key of its own, so that no row of the table has its name.
void Reader::readTraces(ConfigValue const& value) {
  if (!isTable(value, "trace")) return;
  ConfigKey const& key = configKey("trace", "HANDLE");
  std::vector<std::string> handles = traceHandles();
  std::vector<std::string_view> names(handles.begin(), handles.end());
  for (auto const& [handle, at, level] : value.entries) {
    std::string path = "trace." + tomlKey(handle);
    if (std::find(names.begin(), names.end(), handle) == names.end()) {
      std::string_view meant = closest(handle, names);
      fault(at, meant.empty() ? fmt::format("{}: no such handle; valid are {}", path, fmt::join(names, ", "))
                              : fmt::format("{}: no such handle; did you mean {}?", path, meant));
    } else if (level.sort == Sort::integer && level.number >= 0 &&
               static_cast<U64>(level.number) <= key.most) {
      settings().traces[handle] = static_cast<int>(level.number);
    } else {
      fault(level.at, fmt::format("{}: read {}; valid is {}", path, describe(level), validText(key)));
    }
  }
}

}  // namespace

// Files -----------------------------------------------------------------------------------------------

ConfigReading readConfig(std::string_view text, std::string const& file) {
  ConfigReading reading;
  reading.file = file;
  ParsedText parsed = parseConfigText(text);
  reading.faults = parsed.faults;
  if (!reading.isSound()) return reading;
  Reader(reading).read(parsed.root);
  for (host::ConfigFault const& fault : host::check(reading.settings.router)) {
    reading.faults.push_back({reading.places.find(fault.place), keyOf(fault.place) + ": " + fault.text});
  }
  auto byPlace = [](ConfigFinding const& a, ConfigFinding const& b) { return a.at < b.at; };
  std::stable_sort(reading.faults.begin(), reading.faults.end(), byPlace);
  return reading;
}

static ConfigReading unreadable(std::string const& path, std::string const& why) {
  ConfigReading reading;
  reading.file = path;
  reading.faults.push_back({{}, "cannot be read: " + why});
  return reading;
}

/// What is no regular file may give its bytes late or never, which a router can't wait for.
ConfigReading readConfigFile(std::string const& path) {
  std::error_code error;
  std::filesystem::file_status status = std::filesystem::status(path, error);
  if (error) return unreadable(path, error.message());
  if (!std::filesystem::is_regular_file(status)) return unreadable(path, "no regular file");
  std::ifstream in(path, std::ios::binary);
  if (!in) return unreadable(path, std::strerror(errno));
  std::string text(longestConfigText + 1, '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (in.bad()) return unreadable(path, std::strerror(errno));
  text.resize(static_cast<std::size_t>(in.gcount()));
  return readConfig(text, path);
}

std::string textOf(std::string const& file, TextPlace at) {
  return at == TextPlace() ? file : fmt::format("{}:{}:{}", file, at.line, at.column);
}

std::vector<std::string> needRestart(Settings const& from, Settings const& to) {
  std::vector<std::string> keys;
  if (from.controlSocket != to.controlSocket) keys.emplace_back("control.socket");
  if (from.readOnlySocket != to.readOnlySocket) keys.emplace_back("control.read-only-socket");
  if (from.readOnlyGroup != to.readOnlyGroup) keys.emplace_back("control.read-only-group");
  if (from.stateDirectory != to.stateDirectory) keys.emplace_back("state.directory");
  return keys;
}

}  // namespace pimbsr::agent

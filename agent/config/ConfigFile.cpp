#include "agent/config/ConfigFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>

#include "agent/base/TraceLevel.h"
#include "agent/config/ConfigBlock.h"
#include "agent/config/ConfigTable.h"
#include "agent/config/Settings.keys.h"
#include "host/Configuration.keys.h"
#include "host/Corrections.keys.h"
#include "host/IngressSettings.keys.h"

namespace pimbsr::agent {

using host::ConfigPart;
using host::ConfigPlace;
using Lanet::IpAddr;
using Sort = ConfigValue::Sort;

// The reader ------------------------------------------------------------------------------------------

namespace {

/// The ranges that a table names, and the keys that name them.
struct RangesRead {
  file::GroupRanges groups;
  file::ListNames lists;
  ConfigKey const& groupsKey;
  ConfigKey const& listsKey;
};

/// Reads the values of one file into settings, table by table. The keys and their types are declared; their
/// meaning is here.
class Reader {
 public:
  explicit Reader(ConfigReading& reading) : reading_(reading) {}

  void read(ConfigValue const& root);

 private:
  using Read = void (Reader::*)(ConfigValue const& value);
  /// A table of the top of the file and what reads it.
  struct Table {
    ConfigSection const& section;
    Read read;
  };

  void readInterfaces(ConfigValue const& value);
  void readInterface(std::string const& name, ConfigValue const& value);
  void readCandidateBsrs(ConfigValue const& value) {
    forEachTable(file::CandidateBsrKeys::sectionRow, value, &Reader::readCandidateBsr);
  }
  void readCandidateBsr(ConfigValue const& value);
  void readCandidateRps(ConfigValue const& value) {
    forEachTable(file::CandidateRpKeys::sectionRow, value, &Reader::readCandidateRp);
  }
  void readCandidateRp(ConfigValue const& value);
  void readAdvPeriod(ConfigBlock& block, ConfigPlace const& place, file::CandidateRp const& table,
                     host::RpTerms& terms);
  void readFilter(ConfigValue const& value);
  void readLists(ConfigValue const& value);
  void readList(std::string const& name, ConfigValue const& value);
  std::optional<U32> sequenceOf(ConfigBlock& block, file::AccessRule const& rule,
                                std::optional<U32> const& last);
  std::optional<Acl::IpFilter> filterOf(ConfigBlock& block, file::AccessRule const& rule);
  std::optional<Acl::IpFilter> maskedFilterOf(ConfigBlock& block, file::AccessRule const& rule);
  void readTimers(ConfigValue const& value) {
    readPart<file::TimersKeys>(value, router(), {.part = ConfigPart::timers});
  }
  void readChecks(ConfigValue const& value) {
    readPart<host::ChecksKeys>(value, settings().ingress, {.part = ConfigPart::checks});
  }
  void readLimits(ConfigValue const& value) {
    readPart<host::LimitsKeys>(value, settings().ingress, {.part = ConfigPart::limits});
  }
  void readCorrections(ConfigValue const& value) {
    readPart<host::CorrectionsKeys>(value, settings().corrections, {.part = ConfigPart::corrections});
  }
  void readControl(ConfigValue const& value);
  void readState(ConfigValue const& value) {
    ConfigBlock state = block(value, file::StateKeys::sectionRow);
    readKeys<file::StateKeys>(state, settings());
  }
  void readTraces(ConfigValue const& value);

  void forEachTable(ConfigSection const& section, ConfigValue const& list, Read readOne);
  bool isTable(ConfigValue const& value, std::string_view path);
  template <class Keys, class Struct>
  void readPart(ConfigValue const& value, Struct& into, ConfigPlace const& place);
  /// Notes where a candidate's table and its interface are.
  template <class Keys>
  void noteCandidate(ConfigBlock const& block, ConfigPlace const& place) {
    reading_.places.add(place, block.at());
    reading_.places.add(place.at(Keys::interface.name), block.placeOf(Keys::interface));
  }
  template <class Keys, class Terms>
  void addRanges(ConfigBlock& block, ConfigPlace const& place, RangesRead const& read,
                 host::ByRange<Terms>& ranges, Terms const& terms);
  /// Notes the place of a part of the settings; false, with an error, if it was given before.
  bool isFirst(ConfigBlock& block, ConfigKey const& key, ConfigPlace const& place,
               Placed<std::string> const& what);
  /// Notes where the numbers of a block are that describe a part of the settings; where they aren't, the
  /// block.
  template <class Keys>
  void notePlaces(ConfigBlock const& block, ConfigPlace const& place);

  ConfigBlock block(ConfigValue const& value, ConfigSection const& section) {
    return {value, section, std::string(section.name), notes()};
  }
  void addError(TextPlace at, std::string const& text) { reading_.errors.push_back({at, text}); }
  ConfigNotes notes() { return {reading_.errors, reading_.remarks, reading_.renames}; }
  Settings& settings() { return reading_.settings; }
  host::Configuration& router() { return reading_.settings.router; }

  ConfigReading& reading_;
  std::map<ConfigPlace, TextPlace> written_;
};

/// The first word of the name of a table.
std::string_view wordOf(ConfigSection const& section) {
  return section.name.substr(0, section.name.find('.'));
}

void Reader::read(ConfigValue const& root) {
  static constexpr Table tables[] = {{file::InterfaceKeys::sectionRow, &Reader::readInterfaces},
                                     {file::CandidateBsrKeys::sectionRow, &Reader::readCandidateBsrs},
                                     {file::CandidateRpKeys::sectionRow, &Reader::readCandidateRps},
                                     {host::FilterListsKeys::sectionRow, &Reader::readFilter},
                                     {file::AccessListKeys::sectionRow, &Reader::readLists},
                                     {file::TimersKeys::sectionRow, &Reader::readTimers},
                                     {host::ChecksKeys::sectionRow, &Reader::readChecks},
                                     {host::LimitsKeys::sectionRow, &Reader::readLimits},
                                     {host::CorrectionsKeys::sectionRow, &Reader::readCorrections},
                                     {file::ControlKeys::sectionRow, &Reader::readControl},
                                     {file::StateKeys::sectionRow, &Reader::readState},
                                     {file::TraceKeys::sectionRow, &Reader::readTraces}};
  for (ConfigEntry const& entry : root.entries) {
    auto matches = [&](Table const& table) { return wordOf(table.section) == entry.key; };
    auto found = std::find_if(std::begin(tables), std::end(tables), matches);
    if (found == std::end(tables)) {
      addError(entry.at, fmt::format("{}: {}", tomlKey(entry.key), unknownKeyText("", entry.key)));
    } else {
      (this->*found->read)(entry.value);
    }
  }
}

// Tables ----------------------------------------------------------------------------------------------

bool Reader::isTable(ConfigValue const& value, std::string_view path) {
  if (value.sort == Sort::table) return true;
  addError(value.at, fmt::format("{}: read {}; valid is a table", path, describe(value)));
  return false;
}

void Reader::forEachTable(ConfigSection const& section, ConfigValue const& list, Read readOne) {
  if (list.sort != Sort::list) {
    return addError(list.at, fmt::format("{}: read {}; valid are tables that begin with {}", section.name,
                                         describe(list), section.header));
  }
  for (ConfigValue const& table : list.items) (this->*readOne)(table);
}

/// Reads a table whose keys are members of the settings.
template <class Keys, class Struct>
void Reader::readPart(ConfigValue const& value, Struct& into, ConfigPlace const& place) {
  ConfigBlock block = this->block(value, Keys::sectionRow);
  readKeys<Keys>(block, into);
  Keys::forEach([&](ConfigKey const& key, auto) {
    if (block.has(key)) reading_.places.add(place.at(key.name), block.placeOf(key));
  });
  if (place.part != ConfigPart::timers) reading_.places.add(place, block.at());
}

bool Reader::isFirst(ConfigBlock& block, ConfigKey const& key, ConfigPlace const& place,
                     Placed<std::string> const& what) {
  reading_.places.add(place, what.at);
  auto [at, first] = written_.try_emplace(place, what.at);
  if (!first) {
    block.addError(
        what.at, key,
        fmt::format("{} is in line {}, column {} already", what.value, at->second.line, at->second.column));
  }
  return first;
}

template <class Keys>
void Reader::notePlaces(ConfigBlock const& block, ConfigPlace const& place) {
  Keys::forEach([&](ConfigKey const& key, auto) {
    if (key.type == KeyType::integer) reading_.places.add(place.at(key.name), block.placeOf(key));
  });
}

// Ranges ----------------------------------------------------------------------------------------------

template <class Keys, class Terms>
void Reader::addRanges(ConfigBlock& block, ConfigPlace const& place, RangesRead const& read,
                       host::ByRange<Terms>& ranges, Terms const& terms) {
  for (auto const& [at, range] : read.groups) {
    ConfigPlace where = place.group(range);
    if (!isFirst(block, read.groupsKey, where, {at, where.entry.name})) continue;
    ranges.groups[range] = terms;
    notePlaces<Keys>(block, where);
  }
  for (auto const& [at, name] : read.lists) {
    ConfigPlace where = place.list(name);
    if (!isFirst(block, read.listsKey, where, {at, name})) continue;
    ranges.lists[name] = terms;
    notePlaces<Keys>(block, where);
  }
}

/// The ranges of a candidate; all groups if it names neither groups nor lists.
template <class Keys, class Table>
static RangesRead rangesOf(ConfigBlock const& block, Table const& table) {
  RangesRead read{table.groups, table.lists, Keys::groups, Keys::lists};
  if (!block.has(Keys::groups) && !block.has(Keys::lists))
    read.groups.push_back({block.at(), Lanet::allGroups()});
  return read;
}

// Interfaces and candidates ---------------------------------------------------------------------------

void Reader::readInterfaces(ConfigValue const& value) {
  if (!isTable(value, wordOf(file::InterfaceKeys::sectionRow))) return;
  for (ConfigEntry const& entry : value.entries) {
    if (isInterfaceName(entry.key)) {
      readInterface(entry.key, entry.value);
    } else {
      addError(entry.at, fmt::format("interface.{}: no interface can have this name; valid is {}",
                                     inQuotes(entry.key), validText(file::CandidateBsrKeys::interface)));
    }
  }
}

void Reader::readInterface(std::string const& name, ConfigValue const& value) {
  using Keys = file::InterfaceKeys;
  ConfigBlock block(value, Keys::sectionRow, "interface." + tomlKey(name), notes());
  file::Interface table;
  readKeys<Keys>(block, table);
  if (table.pim) settings().interfaces[name] = table;
  reading_.places.add({.part = ConfigPart::interface, .name = name}, block.at());
  if (table.exactBorders) router().exactBorders.insert(name);
  if (!block.has(Keys::border) && !block.has(Keys::borderLists)) return;
  ConfigPlace place{.part = ConfigPart::border, .name = name};
  reading_.places.add(place, block.placeOf(block.has(Keys::border) ? Keys::border : Keys::borderLists));
  addRanges<Keys>(block, place, {table.border, table.borderLists, Keys::border, Keys::borderLists},
                  router().borders[name], host::Present());
}

void Reader::readCandidateBsr(ConfigValue const& value) {
  using Keys = file::CandidateBsrKeys;
  ConfigBlock block = this->block(value, Keys::sectionRow);
  file::CandidateBsr table;
  readKeys<Keys>(block, table);
  ConfigPlace place{.part = ConfigPart::candidateBsr, .name = table.interface};
  host::ByRange<host::BsrTerms> discarded;
  auto& ranges = table.interface.empty() ? discarded : router().candidateBsrs[table.interface];
  noteCandidate<Keys>(block, place);
  addRanges<Keys>(block, place, rangesOf<Keys>(block, table), ranges, host::BsrTerms(table));
}

void Reader::readCandidateRp(ConfigValue const& value) {
  using Keys = file::CandidateRpKeys;
  ConfigBlock block = this->block(value, Keys::sectionRow);
  file::CandidateRp table;
  readKeys<Keys>(block, table);
  ConfigPlace place{.part = ConfigPart::candidateRp, .name = table.interface};
  host::RpTerms discarded;
  host::RpTerms& terms = table.interface.empty() ? discarded : router().candidateRps[table.interface];
  noteCandidate<Keys>(block, place);
  addRanges<Keys>(block, place, rangesOf<Keys>(block, table), terms.ranges,
                  std::optional<U64>(table.priority));
  if (block.hasNumber(Keys::cRpAdvPeriod))
    readAdvPeriod(block, place.at(Keys::cRpAdvPeriod.name), table, terms);
}

/// All tables of an interface have one period.
void Reader::readAdvPeriod(ConfigBlock& block, ConfigPlace const& place, file::CandidateRp const& table,
                           host::RpTerms& terms) {
  ConfigKey const& key = file::CandidateRpKeys::cRpAdvPeriod;
  auto [first, isNew] = written_.try_emplace(place, block.placeOf(key));
  if (isNew) {
    terms.cRpAdvPeriod = table.cRpAdvPeriod;
    reading_.places.add(place, first->second);
  } else if (table.cRpAdvPeriod != terms.cRpAdvPeriod && !table.interface.empty()) {
    block.addError(block.placeOf(key), key,
                   fmt::format("read {}; all that {} offers has one period, and that is {} in line {}",
                               table.cRpAdvPeriod, table.interface, terms.cRpAdvPeriod, first->second.line));
  }
}

// Lists -----------------------------------------------------------------------------------------------

void Reader::readFilter(ConfigValue const& value) {
  ConfigBlock block = this->block(value, host::FilterListsKeys::sectionRow);
  host::FilterListsKeys::forEach([&](ConfigKey const& key, auto member) {
    ConfigPlace const place{.part = ConfigPart::filter, .name = std::string(key.name)};
    file::ListNames names;
    block.take(key, names);
    for (auto const& name : names) {
      isFirst(block, key, place.list(name.value), name);
      (router().*member).insert(name.value);
    }
  });
}

void Reader::readLists(ConfigValue const& value) {
  if (!isTable(value, wordOf(file::AccessListKeys::sectionRow))) return;
  for (ConfigEntry const& entry : value.entries) {
    reading_.places.add({.part = ConfigPart::accessList, .name = entry.key}, entry.value.at);
    if (isListName(entry.key)) {
      readList(entry.key, entry.value);
    } else {
      addError(entry.at, fmt::format("access-list.{}: no list can have this name; valid are 1 to 64 letters, "
                                     "digits, '-', '_', '.' and ':'",
                                     inQuotes(entry.key)));
    }
  }
}

void Reader::readList(std::string const& name, ConfigValue const& value) {
  std::string path = "access-list." + tomlKey(name);
  ConfigBlock block(value, file::AccessListKeys::sectionRow, path, notes());
  file::AccessList table;
  readKeys<file::AccessListKeys>(block, table);
  host::AccessList& list = router().accessLists[name];
  std::optional<U32> last;
  for (ConfigValue const* item : table.rules) {
    ConfigBlock of(*item, file::AccessRuleKeys::sectionRow, path + ".rules", notes());
    file::AccessRule rule;
    readKeys<file::AccessRuleKeys>(of, rule);
    std::optional<Acl::IpFilter> filter = filterOf(of, rule);
    std::optional<U32> sequence = sequenceOf(of, rule, last);
    if (!sequence) continue;
    last = sequence;
    ConfigPlace place = ConfigPlace{.part = ConfigPart::accessList, .name = name}.rule(*sequence);
    ConfigKey const& key = file::AccessRuleKeys::seq;
    bool first = isFirst(of, key, place, {of.placeOf(key), place.entry.name});
    if (first && rule.action && filter) list[*sequence] = {*rule.action, *filter};
  }
}

/// A rule without a number is after the one written before it.
std::optional<U32> Reader::sequenceOf(ConfigBlock& block, file::AccessRule const& rule,
                                      std::optional<U32> const& last) {
  ConfigKey const& key = file::AccessRuleKeys::seq;
  if (block.has(key)) return rule.seq;
  U64 next = U64{last.value_or(0)} + 10;
  if (next <= key.most) return static_cast<U32>(next);
  block.addError(block.at(), key,
                 fmt::format("not there, and {} would be too much; valid is {}", next, validText(key)));
  return std::nullopt;
}

static Acl::IpFilter matching(IpAddr address, IpAddr mask) {
  Acl::IpFilter filter;
  filter.source = IpAddr::fromNet(address.netWord() & mask.netWord());
  filter.sourceMask = mask;
  return filter;
}

/// None if what the rule matches isn't valid.
std::optional<Acl::IpFilter> Reader::filterOf(ConfigBlock& block, file::AccessRule const& rule) {
  using Keys = file::AccessRuleKeys;
  if (block.has(Keys::address) || block.has(Keys::mask)) return maskedFilterOf(block, rule);
  if (!rule.prefix) return block.has(Keys::prefix) ? std::nullopt : std::optional(Acl::IpFilter());
  U32 length = rule.prefix->length();
  return matching(rule.prefix->address().v4Addr(), IpAddr::fromHost(length == 0 ? 0 : ~0u << (32 - length)));
}

std::optional<Acl::IpFilter> Reader::maskedFilterOf(ConfigBlock& block, file::AccessRule const& rule) {
  using Keys = file::AccessRuleKeys;
  auto needBoth = [&](ConfigKey const& key, ConfigKey const& other) {
    if (block.has(key)) return;
    block.addError(block.placeOf(other), other,
                   fmt::format("is there without {}; both are needed", key.name));
  };
  needBoth(Keys::address, Keys::mask);
  needBoth(Keys::mask, Keys::address);
  if (block.has(Keys::prefix)) {
    block.addError(block.placeOf(Keys::prefix), Keys::prefix,
                   "is there beside an address with its mask; one of both is valid");
    return std::nullopt;
  }
  if (!rule.address || !rule.mask) return std::nullopt;
  return matching(*rule.address, *rule.mask);
}

// The rest --------------------------------------------------------------------------------------------

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
  using Keys = file::ControlKeys;
  ConfigBlock block = this->block(value, Keys::sectionRow);
  file::Control& control = settings();
  readKeys<Keys>(block, control);
  if (!block.has(Keys::readOnlySocket)) control.readOnlySocket = readOnlySocketOf(control.controlSocket);
  if (control.controlSocket.empty() || control.controlSocket != control.readOnlySocket) return;
  block.addError(block.placeOf(Keys::readOnlySocket), Keys::readOnlySocket,
                 "the path of control.socket; valid is a path of its own, or \"\" for none");
}

/// Every handle is a key of its own, so that no row has its name.
void Reader::readTraces(ConfigValue const& value) {
  if (!isTable(value, file::TraceKeys::sectionRow.name)) return;
  ConfigKey const& key = file::TraceKeys::level;
  std::vector<std::string> handles = traceHandles();
  std::vector<std::string_view> names(handles.begin(), handles.end());
  for (auto const& [handle, at, level] : value.entries) {
    std::string path = "trace." + tomlKey(handle);
    if (std::find(names.begin(), names.end(), handle) == names.end()) {
      std::string_view meant = closest(handle, names);
      addError(at, meant.empty()
                       ? fmt::format("{}: no such handle; valid are {}", path, fmt::join(names, ", "))
                       : fmt::format("{}: no such handle; did you mean {}?", path, meant));
    } else if (level.sort == Sort::integer && level.number >= 0 &&
               static_cast<U64>(level.number) <= key.most) {
      settings().traces[handle] = static_cast<int>(level.number);
    } else {
      addError(level.at, fmt::format("{}: read {}; valid is {}", path, describe(level), validText(key)));
    }
  }
}

}  // namespace

// Files -----------------------------------------------------------------------------------------------

ConfigReading readConfig(std::string_view text, std::string const& file) {
  ConfigReading reading;
  reading.file = file;
  ParsedText parsed = parseConfigText(text);
  reading.errors = parsed.errors;
  if (!reading.isSound()) return reading;
  Reader(reading).read(parsed.root);
  for (host::ConfigError const& error : host::check(reading.settings.router)) {
    reading.errors.push_back({reading.places.find(error.place), keyOf(error.place) + ": " + error.text});
  }
  auto byPlace = [](ConfigFinding const& a, ConfigFinding const& b) { return a.at < b.at; };
  std::stable_sort(reading.errors.begin(), reading.errors.end(), byPlace);
  return reading;
}

static ConfigReading unreadable(std::string const& path, std::string const& why) {
  ConfigReading reading;
  reading.file = path;
  reading.errors.push_back({{}, "cannot be read: " + why});
  return reading;
}

/// Only regular files are read, since reading a pipe or a device could block.
ConfigReading readConfigFile(std::string const& path) {
  std::error_code error;
  std::filesystem::file_status status = std::filesystem::status(path, error);
  if (error) return unreadable(path, error.message());
  if (!std::filesystem::is_regular_file(status)) return unreadable(path, "no regular file");
  std::ifstream in(path, std::ios::binary);
  if (!in) return unreadable(path, std::strerror(errno));
  std::string text(maxConfigTextLength + 1, '\0');
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
  addChangedAtRestart<file::ControlKeys>(from, to, keys);
  addChangedAtRestart<file::StateKeys>(from, to, keys);
  return keys;
}

}  // namespace pimbsr::agent

#include "agent/config/ConfigWriter.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <nlohmann/json.hpp>
#include <vector>

#include "agent/config/ConfigTable.h"
#include "agent/config/ConfigText.h"
#include "agent/config/Settings.keys.h"
#include "host/Configuration.keys.h"
#include "host/Corrections.keys.h"
#include "host/IngressSettings.keys.h"

namespace pimbsr::agent {

using host::ByRange;
using host::Present;
using Json = nlohmann::ordered_json;
using Lanet::IpGenPrefix;

namespace {

// Blocks of ranges with the same terms ----------------------------------------------------------------

/// Ranges and lists that have the same terms, and are written as one table.
template <class Terms>
struct NamedBlock {
  Terms terms;
  file::GroupRanges groups;
  file::ListNames lists;
};

template <class Terms>
NamedBlock<Terms>& blockOf(std::vector<NamedBlock<Terms>>& blocks, Terms const& terms) {
  auto hasTerms = [&](auto const& block) { return block.terms == terms; };
  auto found = std::find_if(blocks.begin(), blocks.end(), hasTerms);
  if (found != blocks.end()) return *found;
  blocks.push_back({terms, {}, {}});
  return blocks.back();
}

/// One block at least, since an interface is a candidate also without ranges.
template <class Terms>
std::vector<NamedBlock<Terms>> blocksOf(ByRange<Terms> const& ranges, Terms const& usual) {
  std::vector<NamedBlock<Terms>> blocks;
  for (auto const& [range, terms] : ranges.groups) blockOf(blocks, terms).groups.push_back({{}, range});
  for (auto const& [name, terms] : ranges.lists) blockOf(blocks, terms).lists.push_back({{}, name});
  if (blocks.empty()) blocks.push_back({usual, {}, {}});
  return blocks;
}

using RpPriorities = ByRange<std::optional<U64>>;

/// A range without a priority, or with the unset one, is not advertised.
std::vector<NamedBlock<std::optional<U64>>> blocksOf(host::RpTerms const& terms) {
  RpPriorities said;
  auto isSaid = [](auto const& entry) {
    return entry.second && *entry.second <= host::RpRangeTermsKeys::priority.most;
  };
  std::copy_if(terms.ranges.groups.begin(), terms.ranges.groups.end(),
               std::inserter(said.groups, said.groups.end()), isSaid);
  std::copy_if(terms.ranges.lists.begin(), terms.ranges.lists.end(),
               std::inserter(said.lists, said.lists.end()), isSaid);
  return blocksOf(said, std::optional<U64>(host::RpRangeTerms().priority));
}

// Settings as tables of the file ----------------------------------------------------------------------

/// The interfaces that have a table: those that speak PIM and those with a border.
std::map<std::string, file::Interface> interfacesOf(Settings const& settings) {
  std::map<std::string, file::Interface> tables;
  for (auto const& [name, speaks] : settings.interfaces)
    static_cast<InterfaceSettings&>(tables[name]) = speaks;
  for (auto const& [name, ranges] : settings.router.borders) {
    auto block = blocksOf(ranges, Present()).front();
    tables[name].border = block.groups;
    tables[name].borderLists = block.lists;
    tables[name].exactBorders = settings.router.exactBorders.contains(name);
  }
  for (auto& [name, table] : tables) table.pim = settings.interfaces.contains(name);
  return tables;
}

std::vector<file::CandidateBsr> candidateBsrsOf(host::Configuration const& router) {
  std::vector<file::CandidateBsr> tables;
  for (auto const& [intf, ranges] : router.candidateBsrs) {
    for (auto const& [terms, groups, lists] : blocksOf(ranges, host::BsrTerms()))
      tables.push_back({terms, intf, groups, lists});
  }
  return tables;
}

std::vector<file::CandidateRp> candidateRpsOf(host::Configuration const& router) {
  std::vector<file::CandidateRp> tables;
  for (auto const& [intf, terms] : router.candidateRps) {
    for (auto const& [priority, groups, lists] : blocksOf(terms))
      tables.push_back({{*priority}, {terms.cRpAdvPeriod}, intf, groups, lists});
  }
  return tables;
}

/// What a rule matches: a prefix, or an address and a mask with holes.
file::AccessRule ruleOf(U32 sequence, Acl::IpRuleConfig const& rule) {
  file::AccessRule table{.seq = sequence, .action = rule.action};
  U32 mask = rule.filter.sourceMask.hostWord();
  auto length = static_cast<U32>(std::popcount(mask));
  if (static_cast<U32>(std::countl_one(mask)) == length) {
    table.prefix = IpGenPrefix(rule.filter.source, length);
  } else {
    table.address = rule.filter.source;
    table.mask = rule.filter.sourceMask;
  }
  return table;
}

/// A rule without an action has no form in a file.
std::vector<file::AccessRule> rulesOf(host::AccessList const& list) {
  std::vector<file::AccessRule> tables;
  for (auto const& [sequence, rule] : list) {
    if (rule.action != Acl::Action::unset) tables.push_back(ruleOf(sequence, rule));
  }
  return tables;
}

// TOML ------------------------------------------------------------------------------------------------

std::string tableText(std::string const& header, std::vector<std::string> const& lines) {
  std::string out = fmt::format("\n{}\n", header);
  for (std::string const& line : lines) out += line + '\n';
  return out;
}

template <class Keys, class Struct>
std::string tableText(Struct const& table) {
  return tableText(std::string(Keys::sectionRow.header), tomlOf<Keys>(table));
}

/// The keys of Hellos are written for interfaces that speak PIM, the border for those that have one.
std::vector<std::string> linesOf(file::Interface const& table, bool hasBorder) {
  return tomlOf<file::InterfaceKeys>(table, [&](ConfigKey const& key) {
    if (key.name == file::InterfaceKeys::pim.name) return !table.pim;
    return isKeyOf<InterfaceSettingsKeys>(key) ? table.pim : hasBorder;
  });
}

std::string interfacesText(Settings const& settings) {
  std::string out;
  for (auto const& [name, table] : interfacesOf(settings)) {
    out += tableText(fmt::format("[interface.{}]", tomlKey(name)),
                     linesOf(table, settings.router.borders.contains(name)));
  }
  return out;
}

std::string candidatesText(host::Configuration const& router) {
  std::string out;
  for (auto const& table : candidateBsrsOf(router)) out += tableText<file::CandidateBsrKeys>(table);
  for (auto const& table : candidateRpsOf(router)) out += tableText<file::CandidateRpKeys>(table);
  return out;
}

std::string listsText(host::Configuration const& router) {
  std::string out = tableText<host::FilterListsKeys>(router);
  for (auto const& [name, list] : router.accessLists) {
    std::vector<std::string> lines = {fmt::format("{} = [", file::AccessListKeys::rules.name)};
    for (file::AccessRule const& rule : rulesOf(list))
      lines.push_back(fmt::format("  {{{}}},", fmt::join(tomlOf<file::AccessRuleKeys>(rule), ", ")));
    lines.emplace_back("]");
    out += tableText(fmt::format("[access-list.{}]", tomlKey(name)), lines);
  }
  return out;
}

std::string restText(Settings const& settings) {
  std::string out =
      tableText<file::TimersKeys>(settings.router) + tableText<host::ChecksKeys>(settings.ingress) +
      tableText<host::LimitsKeys>(settings.ingress) + tableText<host::CorrectionsKeys>(settings.corrections) +
      tableText<file::ControlKeys>(settings) + tableText<file::StateKeys>(settings);
  if (settings.traces.empty()) return out;
  std::vector<std::string> lines;
  for (auto const& [handle, level] : settings.traces)
    lines.push_back(fmt::format("{} = {}", tomlKey(handle), level));
  return out + tableText(std::string(file::TraceKeys::sectionRow.header), lines);
}

// Sections ----------------------------------------------------------------------------------------------

/// Values by key, from lines "key = value".
std::map<std::string, std::string> valuesOf(std::vector<std::string> const& lines) {
  static constexpr std::string_view sign = " = ";
  std::map<std::string, std::string> values;
  for (std::string line : lines) {
    std::erase(line, '\n');
    std::size_t at = line.find(sign);
    values[line.substr(0, at)] = line.substr(at + sign.size());
  }
  return values;
}

template <class Keys, class Struct>
WrittenTable sectionOf(Struct const& table) {
  std::string_view header = Keys::sectionRow.header;
  std::size_t begin = header.find_first_not_of('[');
  std::string name(header.substr(begin, header.find(']') - begin));
  return {.name = name, .item = {}, .values = valuesOf(tomlOf<Keys>(table))};
}

template <class Keys, class Table>
void addCandidate(std::vector<WrittenTable>& sections, Table const& table) {
  WrittenTable section = sectionOf<Keys>(table);
  section.name += ' ' + table.interface;
  section.values.erase(std::string(Keys::interface.name));
  if (!table.groups.empty()) {
    section.item = table.groups.front().value.stringValue().view();
  } else if (!table.lists.empty()) {
    section.item = table.lists.front().value;
  }
  sections.push_back(std::move(section));
}

void addInterfaces(std::vector<WrittenTable>& sections, Settings const& settings) {
  for (auto const& [name, table] : interfacesOf(settings)) {
    bool hasBorder = settings.router.borders.contains(name);
    sections.push_back(
        {.name = "interface " + name, .item = {}, .values = valuesOf(linesOf(table, hasBorder))});
  }
}

void addLists(std::vector<WrittenTable>& sections, host::Configuration const& router) {
  for (auto const& [name, list] : router.accessLists) {
    WrittenTable& section = sections.emplace_back();
    section.name = "access-list " + name;
    for (file::AccessRule const& rule : rulesOf(list)) {
      section.values[fmt::format("rule {}", rule.seq.value_or(0))] =
          fmt::format("{{{}}}", fmt::join(tomlOf<file::AccessRuleKeys>(rule), ", "));
    }
  }
}

void addTraces(std::vector<WrittenTable>& sections, Settings const& settings) {
  WrittenTable& section = sections.emplace_back();
  section.name = "trace";
  for (auto const& [handle, level] : settings.traces) section.values[handle] = fmt::to_string(level);
}

// JSON ------------------------------------------------------------------------------------------------

Json interfacesJson(Settings const& settings) {
  Json out = Json::object();
  for (auto const& [name, table] : interfacesOf(settings)) {
    auto isWritten = [pim = table.pim](ConfigKey const& key) {
      return pim || !isKeyOf<InterfaceSettingsKeys>(key);
    };
    out[name] = jsonOf<file::InterfaceKeys>(table, isWritten);
  }
  return out;
}

template <class Keys>
std::string memberOf() {
  return std::string(Keys::sectionRow.member);
}

template <class Keys, class Tables>
Json jsonOfTables(Tables const& tables) {
  Json out = Json::array();
  for (auto const& table : tables) out.push_back(jsonOf<Keys>(table));
  return out;
}

Json accessListsJson(host::Configuration const& router) {
  Json out = Json::object();
  for (auto const& [name, list] : router.accessLists)
    out[name] = jsonOfTables<file::AccessRuleKeys>(rulesOf(list));
  return out;
}

}  // namespace

std::string writeToml(Settings const& settings) {
  std::string text = interfacesText(settings) + candidatesText(settings.router) + listsText(settings.router) +
                     restText(settings);
  return text.substr(1);
}

std::vector<WrittenTable> sectionsOf(Settings const& settings) {
  host::Configuration const& router = settings.router;
  std::vector<WrittenTable> sections;
  addInterfaces(sections, settings);
  for (auto const& table : candidateBsrsOf(router)) addCandidate<file::CandidateBsrKeys>(sections, table);
  for (auto const& table : candidateRpsOf(router)) addCandidate<file::CandidateRpKeys>(sections, table);
  sections.push_back(sectionOf<host::FilterListsKeys>(router));
  addLists(sections, router);
  sections.push_back(sectionOf<file::TimersKeys>(router));
  sections.push_back(sectionOf<host::ChecksKeys>(settings.ingress));
  sections.push_back(sectionOf<host::LimitsKeys>(settings.ingress));
  sections.push_back(sectionOf<host::CorrectionsKeys>(settings.corrections));
  sections.push_back(sectionOf<file::ControlKeys>(settings));
  sections.push_back(sectionOf<file::StateKeys>(settings));
  addTraces(sections, settings);
  return sections;
}

Json writeJson(Settings const& settings) {
  host::Configuration const& router = settings.router;
  Json out;
  out[memberOf<file::InterfaceKeys>()] = interfacesJson(settings);
  out[memberOf<file::CandidateBsrKeys>()] = jsonOfTables<file::CandidateBsrKeys>(candidateBsrsOf(router));
  out[memberOf<file::CandidateRpKeys>()] = jsonOfTables<file::CandidateRpKeys>(candidateRpsOf(router));
  out.update(jsonOf<host::FilterListsKeys>(router));
  out[memberOf<file::AccessListKeys>()] = accessListsJson(router);
  out.update(jsonOf<file::TimersKeys>(router));
  out[memberOf<host::ChecksKeys>()] = jsonOf<host::ChecksKeys>(settings.ingress);
  out[memberOf<host::LimitsKeys>()] = jsonOf<host::LimitsKeys>(settings.ingress);
  out[memberOf<host::CorrectionsKeys>()] = jsonOf<host::CorrectionsKeys>(settings.corrections);
  out.update(jsonOf<file::ControlKeys>(settings));
  out.update(jsonOf<file::StateKeys>(settings));
  out[memberOf<file::TraceKeys>()] = settings.traces;
  return out;
}

}  // namespace pimbsr::agent

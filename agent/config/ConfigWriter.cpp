#include "agent/config/ConfigWriter.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "agent/config/ConfigText.h"
#include "host/Limits.h"

namespace pimbsr::agent {

using host::ByRange;
using host::Present;
using Json = nlohmann::ordered_json;
using Lanet::IpGenPrefix;

namespace {

// Blocks of ranges with the same terms ----------------------------------------------------------------

/// Texts of the ranges, or names of the lists, that stand in one table of the file.
struct Names {
  std::vector<std::string> groups;
  std::vector<std::string> lists;
};

template <class Terms>
struct NamedBlock {
  Terms terms;
  Names names;
};

std::string textOf(IpGenPrefix const& prefix) { return std::string(prefix.stringValue().view()); }

template <class Terms>
Names& namesOf(std::vector<NamedBlock<Terms>>& blocks, Terms const& terms) {
  auto hasTerms = [&](auto const& block) { return block.terms == terms; };
  auto found = std::find_if(blocks.begin(), blocks.end(), hasTerms);
  if (found != blocks.end()) return found->names;
  blocks.push_back({terms, {}});
  return blocks.back().names;
}

/// One block at least, since an interface is a candidate also without ranges.
template <class Terms>
std::vector<NamedBlock<Terms>> blocksOf(ByRange<Terms> const& ranges, Terms const& usual) {
  std::vector<NamedBlock<Terms>> blocks;
  for (auto const& [range, terms] : ranges.groups) namesOf(blocks, terms).groups.push_back(textOf(range));
  for (auto const& [name, terms] : ranges.lists) namesOf(blocks, terms).lists.push_back(name);
  if (blocks.empty()) blocks.push_back({usual, {}});
  return blocks;
}

using RpPriorities = ByRange<std::optional<U64>>;

/// A range without a priority, or with the one that stands for none, is not advertised.
std::vector<NamedBlock<std::optional<U64>>> blocksOf(host::RpTerms const& terms) {
  RpPriorities said;
  auto isSaid = [](auto const& entry) { return entry.second && *entry.second <= 255; };
  std::copy_if(terms.ranges.groups.begin(), terms.ranges.groups.end(),
               std::inserter(said.groups, said.groups.end()), isSaid);
  std::copy_if(terms.ranges.lists.begin(), terms.ranges.lists.end(),
               std::inserter(said.lists, said.lists.end()), isSaid);
  return blocksOf(said, std::optional<U64>(192));
}

Names borderNames(ByRange<Present> const& ranges) { return blocksOf(ranges, Present()).front().names; }

/// What a rule matches, as the keys of the file have it: a prefix, or an address and a mask with holes.
std::vector<std::pair<char const*, std::string>> matchOf(Acl::IpFilter const& filter) {
  U32 mask = filter.sourceMask.hostWord();
  auto length = static_cast<U32>(std::popcount(mask));
  bool isPrefix = static_cast<U32>(std::countl_one(mask)) == length;
  if (isPrefix) return {{"prefix", textOf(IpGenPrefix(filter.source, length))}};
  return {{"address", std::string(filter.source.stringValue().view())},
          {"mask", std::string(filter.sourceMask.stringValue().view())}};
}

char const* nameOf(Acl::Action action) { return action == Acl::Action::permit ? "permit" : "deny"; }

bool isSaid(Acl::IpRuleConfig const& rule) { return rule.action != Acl::Action::unset; }

// TOML ------------------------------------------------------------------------------------------------

template <class Texts>
std::string listText(Texts const& texts) {
  std::vector<std::string> written;
  for (std::string const& text : texts) written.push_back(tomlText(text));
  return fmt::format("[{}]", fmt::join(written, ", "));
}

/// The interfaces that have a table: those that speak PIM and those with a border.
std::set<std::string> interfacesOf(Settings const& settings) {
  std::set<std::string> names;
  for (auto const& [name, speaks] : settings.interfaces) names.insert(name);
  for (auto const& [name, ranges] : settings.router.borders) names.insert(name);
  return names;
}

std::string interfacesText(Settings const& settings) {
  std::string out;
  for (std::string const& name : interfacesOf(settings)) {
    out += fmt::format("\n[interface.{}]\n", tomlKey(name));
    auto speaks = settings.interfaces.find(name);
    if (speaks == settings.interfaces.end()) {
      out += "pim = false\n";
    } else {
      out += fmt::format("hello = {}\ndr-priority = {}\nhello-interval = {}\n", speaks->second.hello,
                         speaks->second.drPriority, speaks->second.helloInterval);
    }
    auto ranges = settings.router.borders.find(name);
    if (ranges == settings.router.borders.end()) continue;
    Names border = borderNames(ranges->second);
    out += fmt::format("border = {}\nborder-lists = {}\n", listText(border.groups), listText(border.lists));
  }
  return out;
}

std::string blockText(char const* header, std::string const& intf, Names const& names) {
  return fmt::format("\n[[{}]]\ninterface = {}\ngroups = {}\nlists = {}\n", header, tomlText(intf),
                     listText(names.groups), listText(names.lists));
}

std::string candidatesText(host::Configuration const& router) {
  std::string out;
  for (auto const& [intf, ranges] : router.candidateBsrs) {
    for (auto const& [terms, names] : blocksOf(ranges, host::BsrTerms())) {
      out += blockText("candidate-bsr", intf, names) +
             fmt::format("priority = {}\nhash-mask-length = {}\ninterval = {}\n", terms.priority,
                         terms.hashMaskLen, terms.interval);
    }
  }
  for (auto const& [intf, terms] : router.candidateRps) {
    for (auto const& [priority, names] : blocksOf(terms)) {
      out += blockText("candidate-rp", intf, names) +
             fmt::format("priority = {}\ninterval = {}\n", *priority, terms.interval);
    }
  }
  return out;
}

std::string listsText(host::Configuration const& router) {
  std::string out = fmt::format("\n[filter]\nsender-lists = {}\nrp-lists = {}\n",
                                listText(router.senderLists), listText(router.rpLists));
  for (auto const& [name, list] : router.accessLists) {
    out += fmt::format("\n[access-list.{}]\nrules = [\n", tomlKey(name));
    for (auto const& [sequence, rule] : list) {
      if (!isSaid(rule)) continue;
      out += fmt::format("  {{seq = {}, action = \"{}\"", sequence, nameOf(rule.action));
      for (auto const& [key, text] : matchOf(rule.filter))
        out += fmt::format(", {} = {}", key, tomlText(text));
      out += "},\n";
    }
    out += "]\n";
  }
  return out;
}

std::string limitsText(host::Screening const& screening) {
  std::string out = "\n[limits]\n";
  for (host::Limit const& limit : host::limits())
    out += fmt::format("{} = {}\n", limit.name, screening.*limit.value);
  return out;
}

std::string restText(Settings const& settings) {
  host::Screening const& screening = settings.screening;
  std::string out =
      fmt::format("\n[timers]\nhold-time = {}\nzone-timeout = {}\n", settings.router.holdTime,
                  settings.router.zoneTimeout) +
      fmt::format("\n[checks]\nlink-local-ttl = {}\non-subnet = {}\nfrom-neighbors = {}\nnot-own-bsr = {}\n",
                  screening.linkLocalTtl, screening.onSubnet, screening.fromNeighbors, screening.notOwnBsr) +
      limitsText(screening) + fmt::format("\n[control]\nsocket = {}\n", tomlText(settings.controlSocket)) +
      fmt::format("read-only-socket = {}\nread-only-group = {}\n", tomlText(settings.readOnlySocket),
                  tomlText(settings.readOnlyGroup)) +
      fmt::format("\n[state]\ndirectory = {}\n", tomlText(settings.stateDirectory));
  if (!settings.traces.empty()) out += "\n[trace]\n";
  for (auto const& [handle, level] : settings.traces) out += fmt::format("{} = {}\n", tomlKey(handle), level);
  return out;
}

// JSON ------------------------------------------------------------------------------------------------

Json interfacesJson(Settings const& settings) {
  Json out = Json::object();
  for (std::string const& name : interfacesOf(settings)) {
    auto speaks = settings.interfaces.find(name);
    bool pim = speaks != settings.interfaces.end();
    Json entry = {{"pim", pim}};
    if (pim) {
      entry["hello"] = speaks->second.hello;
      entry["drPriority"] = speaks->second.drPriority;
      entry["helloInterval"] = speaks->second.helloInterval;
    }
    auto ranges = settings.router.borders.find(name);
    Names border = ranges == settings.router.borders.end() ? Names() : borderNames(ranges->second);
    entry["border"] = border.groups;
    entry["borderLists"] = border.lists;
    out[name] = entry;
  }
  return out;
}

Json blockJson(std::string const& intf, Names const& names) {
  return {{"interface", intf}, {"groups", names.groups}, {"lists", names.lists}};
}

Json candidateBsrsJson(host::Configuration const& router) {
  Json out = Json::array();
  for (auto const& [intf, ranges] : router.candidateBsrs) {
    for (auto const& [terms, names] : blocksOf(ranges, host::BsrTerms())) {
      Json block = blockJson(intf, names);
      block["priority"] = terms.priority;
      block["hashMaskLen"] = terms.hashMaskLen;
      block["interval"] = terms.interval;
      out.push_back(block);
    }
  }
  return out;
}

Json candidateRpsJson(host::Configuration const& router) {
  Json out = Json::array();
  for (auto const& [intf, terms] : router.candidateRps) {
    for (auto const& [priority, names] : blocksOf(terms)) {
      Json block = blockJson(intf, names);
      block["priority"] = *priority;
      block["interval"] = terms.interval;
      out.push_back(block);
    }
  }
  return out;
}

Json accessListsJson(host::Configuration const& router) {
  Json out = Json::object();
  for (auto const& [name, list] : router.accessLists) {
    Json rules = Json::array();
    for (auto const& [sequence, rule] : list) {
      if (!isSaid(rule)) continue;
      Json entry = {{"seq", sequence}, {"action", nameOf(rule.action)}};
      for (auto const& [key, text] : matchOf(rule.filter)) entry[key] = text;
      rules.push_back(entry);
    }
    out[name] = rules;
  }
  return out;
}

}  // namespace

std::string writeToml(Settings const& settings) {
  std::string text = interfacesText(settings) + candidatesText(settings.router) + listsText(settings.router) +
                     restText(settings);
  return text.substr(1);
}

Json writeJson(Settings const& settings) {
  host::Screening const& screening = settings.screening;
  return {{"interfaces", interfacesJson(settings)},
          {"candidateBsrs", candidateBsrsJson(settings.router)},
          {"candidateRps", candidateRpsJson(settings.router)},
          {"senderLists", settings.router.senderLists},
          {"rpLists", settings.router.rpLists},
          {"accessLists", accessListsJson(settings.router)},
          {"holdTime", settings.router.holdTime},
          {"zoneTimeout", settings.router.zoneTimeout},
          {"checks",
           {{"linkLocalTtl", screening.linkLocalTtl},
            {"onSubnet", screening.onSubnet},
            {"fromNeighbors", screening.fromNeighbors},
            {"notOwnBsr", screening.notOwnBsr}}},
          {"limits",
           {{"packetsPerSecond", screening.packetsPerSecond},
            {"hellosPerSecond", screening.hellosPerSecond},
            {"advertisementsPerSecond", screening.advertisementsPerSecond},
            {"neighborsPerInterface", screening.neighborsPerInterface},
            {"learnedZones", screening.learnedZones},
            {"fragmentRps", screening.fragmentRps},
            {"rps", screening.rps},
            {"rangesPerZone", screening.rangesPerZone},
            {"rpsPerRange", screening.rpsPerRange},
            {"rpsPerSender", screening.rpsPerSender},
            {"rangesPerSender", screening.rangesPerSender}}},
          {"controlSocket", settings.controlSocket},
          {"readOnlySocket", settings.readOnlySocket},
          {"readOnlyGroup", settings.readOnlyGroup},
          {"stateDirectory", settings.stateDirectory},
          {"traces", settings.traces}};
}

}  // namespace pimbsr::agent

#include "sim/trial/Configured.h"

#include <algorithm>
#include <bit>

namespace pimbsr::sim {

using Lanet::IntfId;
using Lanet::IpAddr;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Lanet::Prefix;

// Access lists ----------------------------------------------------------------------------------------

static Prefix prefixOf(Acl::IpRuleConfig const& rule) {
  auto length = static_cast<U32>(std::countl_one(rule.filter.sourceMask.hostWord()));
  return {rule.filter.source, length};
}

/// Adds what is permitted of a block; whether that is all of it, and then nothing is added.
static bool addPermitted(host::AccessList const& list, Prefix const& block, std::vector<IpGenPrefix>& added) {
  auto matches = [&](auto const& entry) {
    Prefix prefix = prefixOf(entry.second);
    return prefix.contains(block) || block.contains(prefix);
  };
  auto first = std::find_if(list.begin(), list.end(), matches);
  if (first == list.end()) return false;
  if (prefixOf(first->second).contains(block)) return first->second.action == Acl::Action::permit;
  U32 length = block.length() + 1;
  Prefix low(block.address(), length);
  Prefix high(IpAddr::fromHost(block.address().hostWord() | U32{1} << (32 - length)), length);
  std::size_t before = added.size();
  bool isLow = addPermitted(list, low, added);
  if (isLow) added.emplace_back(low);
  bool isHigh = addPermitted(list, high, added);
  if (isLow && isHigh) added.resize(before);
  if (!isLow && isHigh) added.emplace_back(high);
  return isLow && isHigh;
}

std::vector<IpGenPrefix> permittedBy(host::AccessList const& list, Prefix const& all) {
  std::vector<IpGenPrefix> permitted;
  if (addPermitted(list, all, permitted)) permitted.emplace_back(all);
  return permitted;
}

/// What one of a router's lists permits; nothing if it isn't there.
static std::vector<IpGenPrefix> permittedBy(Node const& node, std::string const& name, Prefix const& all) {
  auto list = node.config().accessLists.find(name);
  return list == node.config().accessLists.end() ? std::vector<IpGenPrefix>()
                                                 : permittedBy(list->second, all);
}

static std::vector<IpGenPrefix> groupsOf(Node const& node, std::string const& list) {
  return permittedBy(node, list, Lanet::allGroups().v4Prefix());
}

// A router --------------------------------------------------------------------------------------------

static void addBsrs(Node const& node, std::map<IpGenPrefix, host::BsrCandidacy>& bsrs) {
  for (auto const& [zone, candidacy] : node.config().candidateBsrs) {
    if (!candidacy.address.isEmpty()) bsrs[zone] = candidacy;
  }
  for (auto const& [use, terms] : node.config().bsrLists) {
    IntfId intfId(use.first.c_str());
    IpGenAddr address = node.primaryAddress(intfId);
    if (address.isEmpty()) continue;
    for (IpGenPrefix const& zone : groupsOf(node, use.second))
      bsrs[zone] = {address, intfId, static_cast<U16>(terms.priority), static_cast<U32>(terms.hashMaskLen),
                    static_cast<U32>(terms.bsPeriod)};
  }
}

/// C_RP_Adv_Period is that of the interface's address; a list's counts where ranges have another.
static void addRps(Node const& node, std::map<RpKey, host::RpCandidacy>& rps) {
  for (auto const& [key, candidacy] : node.config().candidateRps) {
    if (!candidacy.address.isEmpty()) rps[key] = candidacy;
  }
  for (auto const& [use, terms] : node.config().rpLists) {
    host::RpCandidacy candidacy = terms;
    candidacy.address = node.primaryAddress(candidacy.intfId);
    if (candidacy.address.isEmpty()) continue;
    for (IpGenPrefix const& range : groupsOf(node, use.second)) rps[{range, candidacy.address}] = candidacy;
    for (auto& [key, other] : rps) {
      if (other.intfId == candidacy.intfId) other.cRpAdvPeriod = candidacy.cRpAdvPeriod;
    }
  }
}

static void addBorders(Node const& node, std::set<std::pair<IpGenPrefix, U32>>& borders) {
  borders = node.config().borders;
  for (auto const& [intf, list] : node.config().borderLists) {
    U32 number = node.interfaceNumber(IntfId(intf.c_str()));
    for (IpGenPrefix const& zone : groupsOf(node, list)) borders.insert({zone, number});
  }
}

static void addPermits(Node const& node, std::vector<IpGenPrefix>& permits) {
  host::AccessList single;
  for (IpGenPrefix const& senders : node.config().permits)
    single[static_cast<U32>(single.size())] = permitting(senders.v4Prefix());
  permits = permittedBy(single, Prefix());
  for (std::string const& list : node.config().senderLists) {
    std::vector<IpGenPrefix> more = permittedBy(node, list, Prefix());
    permits.insert(permits.end(), more.begin(), more.end());
  }
}

Configured::Configured(Node const& node) {
  addBsrs(node, candidateBsrs);
  addRps(node, candidateRps);
  addBorders(node, borders);
  addPermits(node, permits);
}

bool Configured::permitsSender(IpGenAddr const& sender) const {
  auto covers = [&sender](IpGenPrefix const& senders) { return senders.contains(sender); };
  return permits.empty() || std::any_of(permits.begin(), permits.end(), covers);
}

bool isBorder(Node const& node, IpGenPrefix const& zone, U32 intf) {
  if (node.config().borders.contains({zone, intf})) return true;
  std::set<std::pair<IpGenPrefix, U32>> borders;
  if (!node.config().borderLists.empty()) addBorders(node, borders);
  return borders.contains({zone, intf});
}

bool isClosed(Node const& node, IpGenPrefix const& zone, U32 intf) {
  if (isBorder(node, zone, intf)) return true;
  if (!node.corrections().coveringBorder) return false;
  std::set<std::pair<IpGenPrefix, U32>> borders;
  addBorders(node, borders);
  auto covers = [&](auto const& border) { return border.second == intf && border.first.contains(zone); };
  return std::any_of(borders.begin(), borders.end(), covers);
}

}  // namespace pimbsr::sim

#include "sim/trial/Checkers.h"

#include <algorithm>
#include <numeric>

#include "host/RpMap.h"
#include "host/Zones.h"
#include "sim/trial/StatusChecks.h"
#include "wire/Wire.h"

namespace pimbsr::sim {

using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Routing::Pim::Packet::BootstrapMessage;
using Zet::Ptr;

// Parts of a zone -------------------------------------------------------------------------------------

ZoneParts::ZoneParts(Network const& network, std::vector<Configured> const& configured,
                     IpGenPrefix const& zone)
    : zone_(zone), partOf_(network.nodeCount(), none) {
  join(network, configured);
  elect(configured);
}

/// Joins the routers of each link, by union and find over routers and then links.
void ZoneParts::join(Network const& network, std::vector<Configured> const& configured) {
  std::vector<U32> root(network.nodeCount() + network.linkCount());
  std::iota(root.begin(), root.end(), 0);
  auto find = [&root](U32 at) {
    while (root[at] != at) at = root[at] = root[root[at]];
    return at;
  };
  for (U32 link = 0; link < network.linkCount(); ++link) {
    if (!network.link(link).up) continue;
    for (Attachment const& at : network.link(link).attached) {
      Node const& node = network.node(at.node);
      if (node.isRunning() && !configured[at.node].borders.contains({zone_, at.intf}))
        root[find(at.node)] = find(network.nodeCount() + link);
    }
  }
  std::map<U32, U32> parts;
  for (U32 node = 0; node < network.nodeCount(); ++node) {
    if (!network.node(node).isRunning()) continue;
    partOf_[node] = parts.try_emplace(find(node), parts.size()).first->second;
    if (partOf_[node] == parts_.size()) parts_.emplace_back();
    parts_[partOf_[node]].push_back(node);
  }
}

void ZoneParts::elect(std::vector<Configured> const& configured) {
  auto rank = [](host::BsrCandidacy const& c) { return std::pair(c.priority, c.address); };
  leaders_.resize(parts_.size());
  for (U32 part = 0; part < parts_.size(); ++part) {
    for (U32 node : parts_[part]) {
      auto const& candidacies = configured[node].candidateBsrs;
      auto at = candidacies.find(zone_);
      if (at == candidacies.end()) continue;
      host::BsrCandidacy const*& best = leaders_[part].candidacy;
      if (best == nullptr || rank(*best) < rank(at->second)) leaders_[part] = {node, &at->second};
    }
  }
}

host::BsrCandidacy const* ZoneParts::bsrOf(U32 node) const {
  return partOf_[node] == none ? nullptr : leaders_[partOf_[node]].candidacy;
}

U32 ZoneParts::bsrNodeOf(U32 node) const { return leaders_[partOf_[node]].node; }

// Expected state --------------------------------------------------------------------------------------

Expectation::Expectation(Network const& network) : network_(network) {
  for (U32 node = 0; node < network.nodeCount(); ++node) configured_.emplace_back(network.node(node));
  findZones();
  findRps();
}

void Expectation::findZones() {
  std::set<IpGenPrefix> zones;
  for (U32 number = 0; number < network_.nodeCount(); ++number) {
    Node const& node = network_.node(number);
    for (auto const& [zone, candidacy] : configured_[number].candidateBsrs) zones.insert(zone);
    if (!node.isRunning()) continue;
    for (auto at = node.router()->status()->bootstrapRouterIterator(); at; ++at) zones.insert(at->zone());
  }
  for (IpGenPrefix const& zone : zones) zones_.emplace_back(network_, configured_, zone);
}

ZoneParts const* Expectation::partsOf(IpGenPrefix const& zone) const {
  auto isZone = [&](ZoneParts const& at) { return at.zone() == zone; };
  auto at = std::find_if(zones_.begin(), zones_.end(), isZone);
  return at == zones_.end() ? nullptr : &*at;
}

/// The longest zone with a BSR in a router's part that covers a range; null if there is none.
ZoneParts const* Expectation::zoneFor(U32 node, IpGenPrefix const& range) const {
  ZoneParts const* best = nullptr;
  for (ZoneParts const& zone : zones_) {
    if (!zone.zone().contains(range) || zone.bsrOf(node) == nullptr) continue;
    if (best == nullptr || best->zone().length() < zone.zone().length()) best = &zone;
  }
  return best;
}

bool Expectation::hasBsr(U32 node, IpGenPrefix const& zone) const {
  ZoneParts const* parts = partsOf(zone);
  return parts != nullptr && parts->bsrOf(node) != nullptr;
}

/// Three times the interval of its advertisements, and three times the BSR's where that is less than two and
/// a half of those.
static U32 holdtimeOf(host::RpCandidacy const& rp, host::BsrCandidacy const& bsr) {
  U32 holdtime = U32{3} * rp.cRpAdvPeriod;
  return 2 * holdtime > 5 * bsr.bsPeriod ? holdtime : 3 * bsr.bsPeriod;
}

/// A candidate RP advertises a range to the BSR of the longest zone that it knows itself. The BSR takes it
/// into the longest zone that it knows, if the address written to is its own in that zone too.
void Expectation::findRps() {
  for (U32 number = 0; number < network_.nodeCount(); ++number) {
    Node const& node = network_.node(number);
    if (!node.isRunning()) continue;
    for (auto const& [key, candidacy] : configured_[number].candidateRps) {
      auto const& [range, address] = key;
      ZoneParts const* zone = zoneFor(number, range);
      if (zone == nullptr) continue;
      U32 bsr = zone->bsrNodeOf(number);
      ZoneParts const* taken = zoneFor(bsr, range);
      bool isForIt =
          taken->bsrNodeOf(bsr) == bsr && taken->bsrOf(bsr)->address == zone->bsrOf(number)->address;
      if (!isForIt || !configured_[bsr].permitsSender(address)) continue;
      U32 holdtime = holdtimeOf(candidacy, *taken->bsrOf(bsr));
      rps_[{taken->zone(), bsr}].insert({range, address, candidacy.priority, holdtime});
    }
  }
}

// Learned state ---------------------------------------------------------------------------------------

static std::set<KnownRp> knownRps(Node const& node, IpGenPrefix const& zone) {
  std::set<KnownRp> rps;
  auto held = node.router()->status()->crpStatus(zone);
  if (!held || !held->status()) return rps;
  for (auto set = held->status()->crpSetIterator(); set; ++set) {
    for (auto rp = set->rpIterator(); rp; ++rp) {
      rps.insert({set->prefix(), rp->address(), rp->priority().value(), rp->holdTime().value()});
    }
  }
  return rps;
}

static std::string textOf(KnownRp const& rp) {
  return fmt::format("RP {} for {} with priority {} and holdtime {} s", std::get<1>(rp), std::get<0>(rp),
                     std::get<2>(rp), std::get<3>(rp));
}

/// False if the router has another BSR than it must have: then its RP set is another one too.
bool Expectation::checkBsr(ZoneParts const& zone, U32 number, Findings& findings) const {
  Node const& node = network_.node(number);
  auto entry = node.router()->status()->bootstrapRouter(zone.zone());
  host::BsrCandidacy const* bsr = zone.bsrOf(number);
  IpGenAddr learned = entry ? entry->ipAddr() : IpGenAddr();
  IpGenAddr wanted = bsr != nullptr ? bsr->address : IpGenAddr();
  if (learned == wanted) return true;
  auto text = [](IpGenAddr const& a) { return a.isEmpty() ? "no router" : fmt::format("{}", a); };
  findings.push_back(fmt::format("{} takes {} for the BSR of zone {}, and must take {}", node.name(),
                                 text(learned), zone.zone(), text(wanted)));
  return false;
}

std::set<KnownRp> const& Expectation::rpsOf(ZoneParts const& zone, U32 node) const {
  static std::set<KnownRp> const none;
  auto at = zone.bsrOf(node) == nullptr ? rps_.end() : rps_.find({zone.zone(), zone.bsrNodeOf(node)});
  return at == rps_.end() ? none : at->second;
}

/// Notes what only the first of two RP sets has.
static void noteDifference(std::set<KnownRp> const& first, std::set<KnownRp> const& second,
                           std::string const& who, IpGenPrefix const& zone, Findings& findings) {
  for (KnownRp const& rp : first) {
    if (!second.contains(rp)) findings.push_back(fmt::format("{} {} in zone {}", who, textOf(rp), zone));
  }
}

void Expectation::checkRps(ZoneParts const& zone, U32 number, Extra extra, Findings& findings) const {
  Node const& node = network_.node(number);
  std::set<KnownRp> known = knownRps(node, zone.zone());
  noteDifference(rpsOf(zone, number), known, node.name() + " misses", zone.zone(), findings);
  if (extra == Extra::found)
    noteDifference(known, rpsOf(zone, number), node.name() + " still holds", zone.zone(), findings);
}

// The RPs that PIM reads ------------------------------------------------------------------------------

void Expectation::checkHash(ZoneParts const& zone, U32 number, Findings& findings) const {
  Node const& node = network_.node(number);
  host::BsrCandidacy const* bsr = zone.bsrOf(number);
  auto held = node.router()->status()->crpStatus(zone.zone());
  if (bsr == nullptr || !held || !held->status()) return;
  for (auto set = held->status()->crpSetIterator(); set; ++set) {
    for (auto rp = set->rpIterator(); rp; ++rp) {
      U32 length = rp->hashMaskLen().value();
      if (length == bsr->hashMaskLen) continue;
      findings.push_back(fmt::format("{} has hash mask length {} for RP {} of zone {}, and its BSR has {}",
                                     node.name(), length, rp->address(), zone.zone(), bsr->hashMaskLen));
    }
  }
}

/// What is known of the BSR beside its address. The Bootstrap Timer runs for BS_Timeout at most, at the BSR
/// itself for BS_Period (RFC 5059 section 5).
void Expectation::checkBsrTerms(ZoneParts const& zone, U32 number, Findings& findings) const {
  Node const& node = network_.node(number);
  auto bsr = node.router()->status()->bootstrapRouter(zone.zone());
  host::BsrCandidacy const* wanted = zone.bsrOf(number);
  if (!bsr || wanted == nullptr) return;
  if (bsr->priority() != wanted->priority || bsr->hashMaskLen() != wanted->hashMaskLen) {
    findings.push_back(
        fmt::format("{} has priority {} and hash mask length {} of the BSR of zone {}, which "
                    "has {} and {}",
                    node.name(), bsr->priority(), bsr->hashMaskLen(), zone.zone(), wanted->priority,
                    wanted->hashMaskLen));
  }
  double now = node.localTime(network_.now());
  double left = bsr->expiryTime() - now;
  bool isOwn = zone.bsrNodeOf(number) == number;
  double most = isOwn ? wanted->bsPeriod : static_cast<double>(node.config().bsTimeout);
  if (left < 0 || left > most) {
    findings.push_back(fmt::format("{} has {:.3f} s left on the Bootstrap Timer of zone {}, of {} s",
                                   node.name(), left, zone.zone(), most));
  }
  double since = now - bsr->setupTime();
  if (since >= 0 && since <= network_.now() * 1.01) return;
  findings.push_back(fmt::format("{} has the BSR of zone {} for {:.3f} s", node.name(), zone.zone(), since));
}

/// No RP stays for longer than its holdtime.
void Expectation::checkExpiry(ZoneParts const& zone, U32 number, Findings& findings) const {
  Node const& node = network_.node(number);
  auto held = node.router()->status()->crpStatus(zone.zone());
  if (!held || !held->status()) return;
  double now = node.localTime(network_.now());
  for (auto set = held->status()->crpSetIterator(); set; ++set) {
    for (auto rp = set->rpIterator(); rp; ++rp) {
      double left = rp->expires() - now;
      if (left >= 0 && left <= rp->holdTime().value()) continue;
      findings.push_back(fmt::format("{} has RP {} for {} for {:.3f} s, and its holdtime is {} s",
                                     node.name(), rp->address(), set->prefix(), left,
                                     rp->holdTime().value()));
    }
  }
}

/// The RPs of a range in a router's longest zone with a BSR that covers it; null if it has none.
static Ptr<Routing::Pim::RpCandidateSet> bestSet(Routing::Pim::Bsr::Status const& status,
                                                 IpGenPrefix const& range) {
  IpGenPrefix best;
  for (auto at = status.bootstrapRouterIterator(); at; ++at) {
    bool isLonger = best.isEmpty() || at->zone().length() > best.length();
    if (at->zone().contains(range) && isLonger) best = at->zone();
  }
  auto held = best.isEmpty() ? nullptr : status.crpStatus(best);
  return held && held->status() ? held->status()->crpSet(range) : nullptr;
}

static bool isSame(Routing::Pim::RpCandidate const& a, Routing::Pim::RpCandidate const& b) {
  return a.priority() == b.priority() && a.hashMaskLen() == b.hashMaskLen() && a.holdTime() == b.holdTime() &&
         a.pimMode() == b.pimMode();
}

/// Both ways: what PIM reads must be in the best zone's set, and what is there must be read.
void Expectation::checkRead(U32 number, Findings& findings) const {
  Node const& node = network_.node(number);
  Routing::Pim::Bsr::Status const& status = *node.router()->status();
  auto read = node.router()->rpCandidateStatus();
  auto note = [&](char const* what, IpGenAddr const& rp, IpGenPrefix const& range) {
    findings.push_back(fmt::format("{} {} RP {} for {}", node.name(), what, rp, range));
  };
  double now = node.localTime(network_.now());
  for (auto set = read->crpSetIterator(); set; ++set) {
    auto best = bestSet(status, set->prefix());
    for (auto rp = set->rpIterator(); rp; ++rp) {
      auto held = best ? best->rp(rp->address()) : nullptr;
      bool isOver = rp->expires() <= now;
      if (!isOver && !(held && isSame(*held, *rp))) note("lets PIM read", rp->address(), set->prefix());
    }
  }
  for (auto zone = status.crpStatusIterator(); zone; ++zone) {
    for (auto set = zone->status()->crpSetIterator(); set; ++set) {
      if (bestSet(status, set->prefix()) != set.ptr()) continue;
      auto shown = read->crpSet(set->prefix());
      for (auto rp = set->rpIterator(); rp; ++rp) {
        if (!shown || !shown->rp(rp->address())) note("hides from PIM", rp->address(), set->prefix());
      }
    }
  }
}

/// Counts the routers that are the elected BSR in their own state; the others may have learned another one.
void Expectation::checkElected(ZoneParts const& zone, Findings& findings) const {
  for (std::vector<U32> const& part : zone.parts()) {
    std::string elected;
    U32 count = 0;
    for (U32 number : part) {
      Node const& node = network_.node(number);
      auto candidate = node.router()->status()->cbsr(zone.zone());
      if (!candidate || !candidate->elected()) continue;
      elected += (count++ == 0 ? "" : ", ") + node.name();
    }
    if (count > 1) {
      findings.push_back(
          fmt::format("{} are all elected in one part of zone {}: {}", count, zone.zone(), elected));
    }
  }
}

Findings Expectation::check() const {
  Findings findings;
  for (ZoneParts const& zone : zones_) {
    checkElected(zone, findings);
    for (std::vector<U32> const& part : zone.parts()) {
      for (U32 node : part) {
        if (checkBsr(zone, node, findings)) checkRps(zone, node, Extra::found, findings);
        checkHash(zone, node, findings);
        checkBsrTerms(zone, node, findings);
        checkExpiry(zone, node, findings);
      }
    }
  }
  for (U32 node = 0; node < network_.nodeCount(); ++node) {
    if (network_.node(node).isRunning()) checkStatus(node, findings);
  }
  return findings;
}

void Expectation::checkStatus(U32 number, Findings& findings) const {
  Node const& node = network_.node(number);
  checkRead(number, findings);
  for (Findings const& more : {checkConfigured(node, configured_[number]), checkCounters(node)})
    findings.insert(findings.end(), more.begin(), more.end());
}

Findings Expectation::checkLearned(U32 node, std::span<IpGenPrefix const> zones) const {
  Findings findings;
  for (IpGenPrefix const& zone : zones) {
    ZoneParts const* parts = partsOf(zone);
    if (parts != nullptr && checkBsr(*parts, node, findings))
      checkRps(*parts, node, Extra::leftOut, findings);
  }
  return findings;
}

// Group ranges without an RP --------------------------------------------------------------------------

static std::vector<IpGenPrefix> emptyRanges(Routing::Pim::RpCandidateStatus const& rps) {
  std::vector<IpGenPrefix> ranges;
  for (auto set = rps.crpSetIterator(); set; ++set) {
    if (set->rpCount() == 0) ranges.push_back(set->prefix());
  }
  return ranges;
}

static void checkEmpty(Node const& node, Findings& findings) {
  for (auto zone = node.router()->status()->crpStatusIterator(); zone; ++zone) {
    if (!zone->status()) continue;
    for (IpGenPrefix const& range : emptyRanges(*zone->status()))
      findings.push_back(
          fmt::format("{} holds range {} without an RP in zone {}", node.name(), range, zone->zone()));
  }
  for (IpGenPrefix const& range : emptyRanges(*node.router()->rpCandidateStatus()))
    findings.push_back(fmt::format("{} lets PIM read range {} without an RP", node.name(), range));
}

Findings Expectation::checkRanges() const {
  Findings findings;
  for (U32 node = 0; node < network_.nodeCount(); ++node) {
    if (network_.node(node).isRunning()) checkEmpty(network_.node(node), findings);
  }
  return findings;
}

// Which RP serves a group -----------------------------------------------------------------------------

/// By a computation of its own, from the RPs that are expected: of the longest range that covers the group,
/// the lowest priority, then the highest hash, then the highest address.
IpGenAddr Expectation::rpOf(U32 node, Lanet::IpAddr group) const {
  std::tuple<U32, U32, U32, U32> best{};
  IpGenAddr found;
  for (ZoneParts const& zone : zones_) {
    host::BsrCandidacy const* bsr = zone.bsrOf(node);
    std::set<KnownRp> const& rps = rpsOf(zone, node);
    if (rps.empty()) continue;
    U32 mask = bsr->hashMaskLen == 0 ? 0 : ~U32{0} << (32 - bsr->hashMaskLen);
    for (auto const& [range, address, priority, holdtime] : rps) {
      if (!range.contains(IpGenAddr(group)) || zoneFor(node, range) != &zone) continue;
      U32 rp = address.v4Addr().hostWord();
      U32 hash = (1103515245 * ((1103515245 * (group.hostWord() & mask) + 12345) ^ rp) + 12345) & 0x7fffffff;
      std::tuple rank(range.length(), ~priority, hash, rp);
      if (!found.isEmpty() && rank <= best) continue;
      best = rank;
      found = address;
    }
  }
  return found;
}

std::set<RangeRp> Expectation::rpsFor(U32 node, Lanet::IpAddr group) const {
  std::set<RangeRp> found;
  for (ZoneParts const& zone : zones_) {
    for (auto const& [range, address, priority, holdtime] : rpsOf(zone, node))
      if (range.contains(IpGenAddr(group)) && zoneFor(node, range) == &zone) found.emplace(range, address);
  }
  return found;
}

Findings Expectation::checkServed(std::span<Lanet::IpAddr const> groups) const {
  Findings findings;
  auto text = [](IpGenAddr const& rp) { return rp.isEmpty() ? "no RP" : fmt::format("{}", rp); };
  for (U32 number = 0; number < network_.nodeCount(); ++number) {
    Node const& node = network_.node(number);
    if (!node.isRunning()) continue;
    for (Lanet::IpAddr group : groups) {
      IpGenAddr used = servingRp(network_, node, group);
      IpGenAddr expected = rpOf(number, group);
      if (used == expected) continue;
      findings.push_back(fmt::format("{} uses {} for group {}, and must use {}", node.name(), text(used),
                                     IpGenAddr(group), text(expected)));
    }
  }
  return findings;
}

RangeRp usedRp(Network const& network, Node const& node, Lanet::IpAddr group) {
  host::RpMap rps(node.router()->rpCandidateStatus());
  host::RpAnswer answer = rps.lookup(group, node.localTime(network.now()));
  return {answer.range, answer.rp};
}

IpGenAddr servingRp(Network const& network, Node const& node, Lanet::IpAddr group) {
  return usedRp(network, node, group).second;
}

// Learning at a restart -------------------------------------------------------------------------------

/// Whether a neighbor of the router on one of its links is DR there and can send it a message of a zone.
static bool canLearnFrom(Network const& network, Link const& link, IpGenPrefix const& zone, U32 node) {
  auto isNode = [node](Attachment const& at) { return at.node == node; };
  auto own = std::find_if(link.attached.begin(), link.attached.end(), isNode);
  if (!link.up || own == link.attached.end() || isBorder(network.node(node), zone, own->intf)) return false;
  for (Attachment const& at : link.attached) {
    Node const& other = network.node(at.node);
    if (at.node == node || !other.isRunning() || isBorder(other, zone, at.intf)) continue;
    auto intf = other.router()->pimStatus()->pimIntf(other.interfaces()[at.intf].intfId);
    if (intf && intf->iAmDr() && other.router()->status()->bootstrapRouter(zone)) return true;
  }
  return false;
}

std::vector<IpGenPrefix> zonesToLearn(Expectation const& expectation, Network const& network, U32 node) {
  std::vector<IpGenPrefix> zones;
  for (ZoneParts const& zone : expectation.zones()) {
    if (expectation.configured(node).candidateBsrs.contains(zone.zone())) continue;
    for (U32 link = 0; link < network.linkCount(); ++link) {
      if (!canLearnFrom(network, network.link(link), zone.zone(), node)) continue;
      zones.push_back(zone.zone());
      break;
    }
  }
  return zones;
}

// Packets ---------------------------------------------------------------------------------------------

void SizeWatch::onLoss(Network const& network, Node const* node, Loss loss, Bytes packet) {
  auto ip = wire::parseIpv4(packet);
  bool isOwn = node != nullptr && (!ip || node->isOwnAddress(ip->source));
  if (loss != Loss::tooBig || !isOwn) return;
  findings_.push_back(fmt::format("{} sends {} bytes, more than the MTU of the link, at {:.3f} s",
                                  node->name(), packet.size(), network.now()));
}

// Borders ---------------------------------------------------------------------------------------------

void BorderWatch::validate(Network const& network, Node const& node, NodeInterface const& intf,
                           BootstrapMessage const& message, char const* verb) {
  if (!message.groupRpData()) return;
  IpGenPrefix zone = host::zoneOf(message);
  auto number = static_cast<U32>(&intf - node.interfaces().data());
  if (!isClosed(node, zone, number)) return;
  findings_.push_back(fmt::format("{} {} a message of zone {} over its border {} at {:.3f} s", node.name(),
                                  verb, zone, intf.intfId.stringValue().view(), network.now()));
}

void BorderWatch::onSent(Network const& network, Node const& node, NodeInterface const& intf,
                         BootstrapMessage const& message) {
  validate(network, node, intf, message, "sends");
}

void BorderWatch::onReception(Network const& network, Node const& node, NodeInterface const& intf,
                              host::Reception const& reception) {
  if (reception.kind != host::MessageKind::bootstrap || !reception.accepted()) return;
  validate(network, node, intf, static_cast<BootstrapMessage const&>(*reception.message), "accepts");
}

}  // namespace pimbsr::sim

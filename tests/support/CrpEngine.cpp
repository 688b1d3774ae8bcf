#include "tests/support/CrpEngine.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <utility>

namespace test {

using Routing::Pim::Packet::CrpAdvMessage;
using Routing::Pim::Packet::CrpGroupData;
using Routing::Pim::Packet::GroupFlags;
using Zet::Ptr;

Ptr<CrpAdvMessage> make(Adv const& given) {
  auto message = Zet::make<CrpAdvMessage>();
  message->srcAddrIs(addr(given.source));
  message->dstAddrIs(addr(given.bsr));
  message->prefixCountIs(static_cast<Zet::U8>(given.groups.size()));
  message->priorityIs(given.priority);
  message->holdtimeIs(given.holdtime);
  message->rpAddressIs(addr(given.rp));
  auto groups = Zet::make<CrpGroupData>();
  for (Range const& range : given.groups) {
    groups->groupInfoIs(prefix(range.prefix))->groupFlagsIs(GroupFlags(range.flags));
  }
  message->groupDataIs(groups);
  return message;
}

std::string show(CrpAdvMessage const& message) {
  std::set<std::string> ranges;
  for (auto group = message.groupData()->groupInfoIterator(); group; ++group) {
    std::ostringstream out;
    out << ' ' << group->prefix();
    if (group->groupFlags().value != 0) out << '+' << int{group->groupFlags().value};
    ranges.insert(out.str());
  }
  std::ostringstream out;
  out << message.srcAddr() << " > " << message.dstAddr() << " rp " << message.rpAddress() << " priority "
      << int{message.priority()} << " holdtime " << message.holdtime() << " count "
      << int{message.prefixCount()} << ':';
  for (std::string const& range : ranges) out << range;
  return out.str();
}

void CrpEngine::openGate() {
  crpGate = Bsr::crpMessageSmFactory(manager, status, crpMsgStatus, crpMsgInfo, routes);
}

void CrpEngine::addRoute(std::string const& range, Slosh::Fib::RouteType type) {
  Slosh::Fib::Route route;
  route.type = type;
  routes->routeIs(Lanet::Prefix::parse(range.c_str()), route);
}

void CrpEngine::receive(Ptr<CrpAdvMessage> const& message) {
  crpMsgInfo->intfIdIs(intf("eth0"));
  crpMsgInfo->messageIs(message);
  crpMsgInfo->countInc(1);
}

Ptr<CrpAdvMessage> CrpEngine::receive(Adv const& given) {
  Ptr<CrpAdvMessage> message = make(given);
  receive(message);
  return message;
}

Ptr<Bsr::BsrCandidateSm> CrpEngine::electUs(std::string const& zone, std::string const& address,
                                            Zet::U32 period) {
  auto candidate = status->cbsrIs(prefix(zone));
  candidate->electedIs(true);
  candidate->priorityIs(64);
  candidate->hashMaskLenIs(30);
  candidate->bsPeriodIs(period);
  candidate->addressIs(addr(address));
  return root->candidateSm(prefix(zone));
}

void CrpEngine::electOther(std::string const& zone, std::string const& address) {
  status->bootstrapRouterIs(prefix(zone))->ipAddrIs(addr(address));
}

Ptr<Bsr::RpCandidate> CrpEngine::addCrp(std::string const& address, Zet::U32 interval) {
  auto crp = status->crpIs(addr(address));
  crp->intervalIs(interval);
  return crp;
}

void CrpEngine::addRange(std::string const& address, std::string const& range, Zet::U32 priority) {
  auto crp = status->crp(addr(address));
  crp->prefixSetIs(prefix(range), true);
  crp->prefixOptionsIs(prefix(range))->priorityIs(priority);
}

void CrpEngine::delRange(std::string const& address, std::string const& range) {
  auto crp = status->crp(addr(address));
  crp->prefixSetDel(prefix(range));
  crp->prefixOptionsDel(prefix(range));
}

Ptr<Bsr::RpCandidateSm> CrpEngine::advertiser(std::string const& address, Zet::U32 priority) const {
  return root->rpCandidateSm(Bsr::CrpOptions(addr(address), priority));
}

std::string CrpEngine::advSets(std::string const& address, Zet::U32 priority) const {
  std::set<std::string> sets;
  for (auto set = advertiser(address, priority)->crpAdvSetIterator(); set; ++set) {
    std::set<std::string> ranges;
    for (auto range = set->prefixSetIterator(); range; ++range) {
      ranges.insert(" " + std::string(range.key().stringValue().view()));
    }
    std::string text = std::string(set->zone().stringValue().view()) + ":";
    for (std::string const& range : ranges) text += range;
    sets.insert(text);
  }
  std::string all;
  for (std::string const& set : sets) all += (all.empty() ? "" : "; ") + set;
  return all;
}

std::vector<std::string> CrpEngine::takeAdvs() {
  std::vector<std::string> advs;
  for (Sent const& one : std::exchange(outbox->sent, {})) {
    if (auto* adv = dynamic_cast<CrpAdvMessage*>(one.message.ptr())) advs.push_back(show(*adv));
  }
  std::sort(advs.begin(), advs.end());
  return advs;
}

std::vector<int> CrpEngine::advTimes(int seconds) {
  std::vector<int> times;
  takeAdvs();
  for (int at = static_cast<int>(elapsed()); at <= seconds; ++at) {
    runTo(at);
    times.insert(times.end(), takeAdvs().size(), at);
  }
  return times;
}

CrpTest::CrpTest() {
  engine.permit("0.0.0.0/0");
  engine.openGate();
  engine.start();
  engine.addIntf("eth0");
}

}  // namespace test

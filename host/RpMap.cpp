#include "host/RpMap.h"

#include <algorithm>

namespace pimbsr::host {

using Lanet::IpAddr;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Zet::Ptr;

IpGenPrefix const& linkLocalGroups() {
  static IpGenPrefix const groups = Lanet::Prefix(Lanet::firstGroup, 24);
  return groups;
}

U32 rpHash(IpAddr group, U32 hashMaskLen, IpAddr rp) {
  U32 mask = hashMaskLen == 0 ? 0 : ~U32{0} << (32 - std::min<U32>(hashMaskLen, 32));
  U32 inner = 1103515245u * (group.hostWord() & mask) + 12345u;
  return (1103515245u * (inner ^ rp.hostWord()) + 12345u) & 0x7fffffffu;
}

/// Whether `a` is chosen before `b`.
static bool better(RpChoice const& a, RpChoice const& b) {
  if (a.priority != b.priority) return a.priority < b.priority;
  if (a.hash != b.hash) return a.hash > b.hash;
  return b.address < a.address;
}

static std::vector<RpChoice> liveRps(Routing::Pim::RpCandidateSet const& set, IpAddr group, double now) {
  std::vector<RpChoice> choices;
  for (auto rp = set.rpIterator(); rp; ++rp) {
    if (rp->expires() <= now) continue;
    U32 maskLen = rp->hashMaskLen().value();
    choices.push_back(
        {rp->address(), rp->priority().value(), maskLen, rpHash(group, maskLen, rp->address().v4Addr())});
  }
  std::sort(choices.begin(), choices.end(), better);
  return choices;
}

static RpTieBreak tieBreak(std::vector<RpChoice> const& choices) {
  if (choices.empty()) return RpTieBreak::noRp;
  if (choices.size() == 1) return RpTieBreak::onlyOne;
  if (choices[0].priority != choices[1].priority) return RpTieBreak::priority;
  return choices[0].hash != choices[1].hash ? RpTieBreak::hash : RpTieBreak::address;
}

RpAnswer RpMap::lookup(IpAddr group, double now) const {
  RpAnswer answer;
  for (int length = 32; length >= 0; --length) {
    IpGenPrefix range(IpGenAddr(group), static_cast<U32>(length));
    Ptr<Routing::Pim::RpCandidateSet> set = rpSet_->crpSet(range);
    if (!set) continue;
    answer.ranges.push_back(range);
    if (!answer.choices.empty()) continue;
    answer.choices = liveRps(*set, group, now);
    if (!answer.choices.empty()) answer.range = range;
  }
  answer.tieBreak = tieBreak(answer.choices);
  if (!answer.choices.empty()) answer.rp = answer.choices.front().address;
  return answer;
}

}  // namespace pimbsr::host

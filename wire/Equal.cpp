#include "wire/Wire.h"

namespace pimbsr::wire {

using Routing::Pim::Packet::BootstrapGroupData;
using Routing::Pim::Packet::BootstrapMessage;
using Routing::Pim::Packet::BootstrapOptionalData;
using Routing::Pim::Packet::BootstrapRpData;
using Routing::Pim::Packet::CrpAdvMessage;
using Routing::Pim::Packet::CrpGroupData;
using Routing::Pim::Packet::CrpGroupInfo;

namespace {

// Steps two walks together; true if they are equally long and equal member by member. Keyed collections walk
// in an order that their keys fix, so equal collections walk alike.
template <class Iterator, class Same>
bool sameWalk(Iterator a, Iterator b, Same same) {
  for (; a && b; ++a, ++b) {
    if (!same(*a, *b)) return false;
  }
  return !a && !b;
}

bool sameRp(BootstrapRpData const& a, BootstrapRpData const& b) {
  return a.rpAddress() == b.rpAddress() && a.rpHoldtime() == b.rpHoldtime() &&
         a.rpPriority() == b.rpPriority();
}

bool sameGroup(BootstrapGroupData const& a, BootstrapGroupData const& b) {
  return a.prefix() == b.prefix() && a.groupFlags() == b.groupFlags() && a.rpCount() == b.rpCount() &&
         a.fragRpCount() == b.fragRpCount() && sameWalk(a.rpListIterator(), b.rpListIterator(), sameRp);
}

bool sameInfo(CrpGroupInfo const& a, CrpGroupInfo const& b) {
  return a.prefix() == b.prefix() && a.groupFlags() == b.groupFlags();
}

// The data, or data without groups in place of a null.
template <class Data>
Zet::Ptr<Data> orEmpty(Zet::Ptr<Data> data) {
  return data ? data : Zet::make<Data>();
}

}  // namespace

bool equal(BootstrapMessage const& a, BootstrapMessage const& b) {
  auto aData = orEmpty(a.groupRpData());
  auto bData = orEmpty(b.groupRpData());
  return a.srcAddr() == b.srcAddr() && a.dstAddr() == b.dstAddr() && a.forward() == b.forward() &&
         a.fragmentTag() == b.fragmentTag() && a.hashMaskLen() == b.hashMaskLen() &&
         a.bsrPriority() == b.bsrPriority() && a.bsrAddress() == b.bsrAddress() &&
         sameWalk(aData->groupDataIterator(), bData->groupDataIterator(), sameGroup);
}

bool equal(CrpAdvMessage const& a, CrpAdvMessage const& b) {
  auto aData = orEmpty(a.groupData());
  auto bData = orEmpty(b.groupData());
  return a.srcAddr() == b.srcAddr() && a.dstAddr() == b.dstAddr() && a.prefixCount() == b.prefixCount() &&
         a.priority() == b.priority() && a.holdtime() == b.holdtime() && a.rpAddress() == b.rpAddress() &&
         sameWalk(aData->groupInfoIterator(), bData->groupInfoIterator(), sameInfo);
}

}  // namespace pimbsr::wire

#include "host/Admission.h"

#include <algorithm>
#include <map>
#include <optional>
#include <vector>

#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"
#include "runtime/Meter.h"

namespace pimbsr::host {

namespace Packet = Routing::Pim::Packet;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Packet::BootstrapGroupData;
using Packet::BootstrapMessage;
using Zet::Ptr;

static constexpr U16 maxHoldtime = 40958;
static constexpr U8 maxHashMaskLen = 32;

/// Whether a record enters the fragment store: it names RPs, and not all of its range.
static bool isFragment(BootstrapGroupData const& group) {
  return group.fragRpCount() != 0 && group.rpCount() != group.fragRpCount();
}

static bool hasLongHoldtime(BootstrapGroupData const& group) {
  for (auto rp = group.rpListIterator(); rp; ++rp) {
    if (rp->rpHoldtime() > maxHoldtime) return true;
  }
  return false;
}

namespace {

/// The RPs named for the ranges that come in fragments in one message, there and wherever else its fragment
/// tag is known; and the least number announced for each. It is made once for a message, however many ranges
/// there are, with one walk of the zones: a comparison of tags for each. Peers can't make that long, since
/// only as many zones are learned as the settings grant, and only neighbors' messages come here.
class Named {
 public:
  Named(BootstrapMessage const& message, Routing::Pim::Bsr::PimBsrSm const& root) {
    Ptr<Packet::BootstrapOptionalData> groups = message.groupRpData();
    for (auto group = groups->groupDataIterator(); group; ++group) {
      if (isFragment(*group)) ranges_[group->prefix()].add(group->rpCount(), group->rpListIterator());
    }
    addStored(root.bsmRxFragments(message.fragmentTag()));
    addKept(message.fragmentTag(), root.nonCandidateSmIterator());
    addKept(message.fragmentTag(), root.candidateSmIterator());
  }

  bool overflows(IpGenPrefix const& prefix) { return ranges_.at(prefix).overflows(); }

 private:
  class Range {
   public:
    template <class RpWalk>
    void add(U8 announced, RpWalk rps) {
      announced_ = std::min(announced_, announced);
      for (; rps; ++rps) addresses_.push_back(rps->rpAddress());
    }

    bool overflows() {
      Zet::Meter::visit(addresses_.size());
      std::sort(addresses_.begin(), addresses_.end());
      addresses_.erase(std::unique(addresses_.begin(), addresses_.end()), addresses_.end());
      return addresses_.size() > announced_;
    }

   private:
    std::vector<IpGenAddr> addresses_;
    U8 announced_ = 255;
  };

  void addStored(Ptr<Routing::Pim::Bsr::PimBsrRxFragments> const& stored) {
    if (!stored) return;
    for (auto& [prefix, range] : ranges_) {
      Zet::Meter::visit();
      if (auto held = stored->groupRpData(prefix)) range.add(held->rpCount(), held->rpIterator());
    }
  }

  template <class MachineWalk>
  void addKept(U16 tag, MachineWalk machines) {
    for (; machines; ++machines) {
      Zet::Meter::visit();
      Ptr<BootstrapMessage> kept = machines->lastBsm();
      if (kept && kept->fragmentTag() == tag) addGroups(*kept);
    }
  }

  void addGroups(BootstrapMessage const& kept) {
    Ptr<Packet::BootstrapOptionalData> groups = kept.groupRpData();
    for (auto group = groups->groupDataIterator(); group; ++group) {
      Zet::Meter::visit();
      if (!isFragment(*group)) continue;
      auto range = ranges_.find(group->prefix());
      if (range != ranges_.end()) range->second.add(group->rpCount(), group->rpListIterator());
    }
  }

  std::map<IpGenPrefix, Range> ranges_;
};

}  // namespace

DropReason Admission::validate(BootstrapMessage const& message) const {
  if (port_.isOwnAddress(message.srcAddr())) return DropReason::ownAddress;
  if (message.hashMaskLen() > maxHashMaskLen) return DropReason::hashMaskLength;
  std::optional<Named> named;
  Ptr<Packet::BootstrapOptionalData> groups = message.groupRpData();
  for (auto group = groups->groupDataIterator(); group; ++group) {
    Zet::Meter::visit();
    if (hasLongHoldtime(*group)) return DropReason::holdtime;
    if (!isFragment(*group)) continue;
    if (!named) named.emplace(message, root_);
    if (named->overflows(group->prefix())) return DropReason::fragmentOverflow;
  }
  return DropReason::none;
}

DropReason Admission::validate(Packet::CrpAdvMessage const& message) const {
  if (message.dstAddr().v4Addr().isMulticast()) return DropReason::multicastAdvertisement;
  return message.holdtime() > maxHoldtime ? DropReason::holdtime : DropReason::none;
}

}  // namespace pimbsr::host

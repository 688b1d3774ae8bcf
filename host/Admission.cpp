#include "host/Admission.h"

#include <algorithm>
#include <map>
#include <optional>
#include <vector>

#include "host/Fragment.h"
#include "host/KeptFragments.h"
#include "runtime/Meter.h"
#include "wire/Wire.h"

namespace pimbsr::host {

namespace Packet = Routing::Pim::Packet;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Packet::BootstrapGroupData;
using Packet::BootstrapMessage;
using Zet::Ptr;

static constexpr U16 maxHoldtime = Routing::Pim::CrpHoldTimeRange::high;
static constexpr U8 maxHashMaskLen = 32;

static bool hasLongHoldtime(BootstrapGroupData const& group) {
  for (auto rp = group.rpListIterator(); rp; ++rp) {
    if (rp->rpHoldtime() > maxHoldtime) return true;
  }
  return false;
}

namespace {

/// The RPs named for the ranges that come in fragments in one message, there and wherever else its fragment
/// tag is known; and the least number announced for each. It is made once for a message: O(log n) for each of
/// its RPs, and a comparison for each zone.
class Named {
 public:
  Named(BootstrapMessage const& message, Routing::Pim::Bsr::PimBsrSm const& root, KeptFragments& kept) {
    Ptr<Packet::BootstrapOptionalData> groups = message.groupRpData();
    for (auto group = groups->groupDataIterator(); group; ++group) {
      if (isFragment(*group)) ranges_[group->prefix()].add(group->rpCount(), group->rpListIterator());
    }
    addStored(root.bsmRxFragments(message.fragmentTag()));
    kept.update();
    for (auto& [prefix, range] : ranges_) range.close(kept.find(message.fragmentTag(), prefix));
  }

  bool overflows(IpGenPrefix const& prefix) const { return ranges_.at(prefix).overflows(); }

 private:
  class Range {
   public:
    template <class RpWalk>
    void add(U8 announced, RpWalk rps) {
      announced_ = std::min(announced_, announced);
      for (; rps; ++rps) addresses_.push_back(rps->rpAddress());
    }

    /// Counts the different RPs; `kept` is what is known besides, or null.
    void close(KeptRange const* kept) {
      Zet::Meter::visit(addresses_.size());
      std::sort(addresses_.begin(), addresses_.end());
      addresses_.erase(std::unique(addresses_.begin(), addresses_.end()), addresses_.end());
      rpCount_ = addresses_.size();
      if (kept == nullptr) return;
      announced_ = std::min(announced_, kept->announced());
      auto isKept = [&](IpGenAddr const& rp) { return kept->names(rp); };
      rpCount_ += kept->rpCount() - std::count_if(addresses_.begin(), addresses_.end(), isKept);
    }

    bool overflows() const { return rpCount_ > announced_; }

   private:
    std::vector<IpGenAddr> addresses_;
    size_t rpCount_ = 0;
    U8 announced_ = wire::maxRpCount;
  };

  void addStored(Ptr<Routing::Pim::Bsr::PimBsrRxFragments> const& stored) {
    if (!stored) return;
    for (auto& [prefix, range] : ranges_) {
      Zet::Meter::visit();
      if (auto held = stored->groupRpData(prefix)) range.add(held->rpCount(), held->rpIterator());
    }
  }

  std::map<IpGenPrefix, Range> ranges_;
};

}  // namespace

Admission::Admission(Routing::Pim::Bsr::PimBsrSm const& root, pim::Port const& port)
    : root_(root), port_(port), kept_(std::make_unique<KeptFragments>(root)) {}

Admission::~Admission() = default;

DropReason Admission::validate(BootstrapMessage const& message) {
  if (port_.isOwnAddress(message.srcAddr())) return DropReason::ownAddress;
  if (message.hashMaskLen() > maxHashMaskLen) return DropReason::hashMaskLength;
  std::optional<Named> named;
  Ptr<Packet::BootstrapOptionalData> groups = message.groupRpData();
  for (auto group = groups->groupDataIterator(); group; ++group) {
    Zet::Meter::visit();
    if (hasLongHoldtime(*group)) return DropReason::holdtime;
    if (!isFragment(*group)) continue;
    if (!named) named.emplace(message, root_, *kept_);
    if (named->overflows(group->prefix())) return DropReason::fragmentOverflow;
  }
  return DropReason::none;
}

DropReason Admission::validate(Packet::CrpAdvMessage const& message) const {
  if (message.dstAddr().v4Addr().isMulticast()) return DropReason::multicastAdvertisement;
  return message.holdtime() > maxHoldtime ? DropReason::holdtime : DropReason::none;
}

}  // namespace pimbsr::host

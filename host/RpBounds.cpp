#include "host/RpBounds.h"

#include <algorithm>
#include <vector>

#include "host/Limits.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
namespace Packet = Routing::Pim::Packet;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Packet::CrpAdvMessage;
using Routing::Pim::RpCandidateSet;
using Routing::Pim::RpCandidateStatus;
using Zet::Ptr;

RpBounds::RpBounds(Ptr<Bsr::PimBsrSm> const& root, Ptr<Bsr::CrpMessageSm> const& gate,
                   IngressSettings const& settings)
    : root_(root), gate_(gate), settings_(settings), places_(*root, settings), ledger_(*root, settings) {
  notifierIs(root->crpMsgStatus());
}

void RpBounds::stop() {
  notifierIs(nullptr);
  gate_ = nullptr;
  root_ = nullptr;
}

// An advertisement ----------------------------------------------------------------------------------------

static bool hasRanges(CrpAdvMessage const& message) {
  return message.groupData() && message.groupData()->groupInfoCount() != 0;
}

namespace {

/// A copy of an advertisement with some of its ranges. It is made at the first range that is dropped, since
/// most messages lose none.
class Reduced {
 public:
  explicit Reduced(CrpAdvMessage& message) : message_(message) {}

  void pass(Packet::CrpGroupInfo const& group) {
    if (copy_) add(group);
  }

  /// The ranges before the first one that is dropped have passed.
  void drop(IpGenPrefix const& range) {
    if (copy_) return;
    make();
    for (auto group = message_.groupData()->groupInfoIterator(); group; ++group) {
      if (group->prefix() == range) return;
      add(*group);
    }
  }

  Ptr<CrpAdvMessage> result() {
    if (!copy_) return Ptr<CrpAdvMessage>(&message_);
    U32 count = copy_->groupData()->groupInfoCount();
    copy_->prefixCountIs(static_cast<U8>(count));
    return count == 0 ? nullptr : copy_;
  }

 private:
  void make() {
    copy_ = Zet::make<CrpAdvMessage>();
    copy_->srcAddrIs(message_.srcAddr());
    copy_->dstAddrIs(message_.dstAddr());
    copy_->priorityIs(message_.priority());
    copy_->holdtimeIs(message_.holdtime());
    copy_->rpAddressIs(message_.rpAddress());
    copy_->groupDataIs(Zet::make<Packet::CrpGroupData>());
  }

  void add(Packet::CrpGroupInfo const& group) {
    copy_->groupData()->groupInfoIs(group.prefix())->groupFlagsIs(group.groupFlags());
  }

  CrpAdvMessage& message_;
  Ptr<CrpAdvMessage> copy_;
};

}  // namespace

/// A withdrawal adds nothing, and a message of a sender that isn't permitted is dropped by the gate.
RpBounds::Verdict RpBounds::check(CrpAdvMessage& message) {
  Verdict verdict{.passed = Ptr<CrpAdvMessage>(&message)};
  if (!hasLimits(settings_) || message.holdtime() == 0 || !isPermitted(message.srcAddr())) return verdict;
  isPrepared_ = false;
  newRanges_ = 0;
  auto note = [&](DropReason reason) {
    if (reason == DropReason::none) return false;
    if (verdict.dropped++ == 0) verdict.reason = reason;
    return true;
  };
  if (!hasRanges(message)) {
    if (note(checkRange(message, gate_->globalZone()))) verdict.passed = nullptr;
    return verdict;
  }
  Reduced reduced(message);
  for (auto group = message.groupData()->groupInfoIterator(); group; ++group) {
    if (note(checkRange(message, group->prefix()))) {
      reduced.drop(group->prefix());
    } else {
      reduced.pass(*group);
    }
  }
  verdict.passed = reduced.result();
  return verdict;
}

bool RpBounds::isPermitted(IpGenAddr const& sender) const {
  return !gate_->crpPermitTrie()->longestMatch(IpGenPrefix(sender)).isEmpty();
}

/// Whether the engine takes advertisements of a zone that were sent to this address.
bool RpBounds::isElected(IpGenPrefix const& zone, IpGenAddr const& bsr) const {
  Ptr<Bsr::ElectedBsrStatus> elected = root_->bsrStatus()->bootstrapRouter(zone);
  if (!elected || elected->ipAddr() != bsr) return false;
  Ptr<Bsr::BsrCandidate> candidate = root_->bsrStatus()->cbsr(zone);
  return candidate && candidate->address() == bsr;
}

DropReason RpBounds::checkRange(CrpAdvMessage const& message, IpGenPrefix const& range) {
  IpGenPrefix zone = root_->bsrTrie()->longestMatch(range);
  if (!isElected(zone, message.dstAddr())) return DropReason::none;
  Ptr<Bsr::PimBsrRpCandidateStatus> zoneStatus = root_->bsrStatus()->crpStatus(zone);
  Ptr<RpCandidateStatus> sets = zoneStatus ? zoneStatus->status() : nullptr;
  Ptr<RpCandidateSet> set = sets ? sets->crpSet(range) : nullptr;
  if (Ptr<Routing::Pim::RpCandidate> rp = set ? set->rp(message.rpAddress()) : nullptr)
    return places_.checkRenewal(range, *rp);
  bool isPreferred = places_.preferred().contains(message.rpAddress());
  if (!set && isZoneFull(sets ? sets->crpSetCount() : 0, isPreferred)) return DropReason::zoneRanges;
  DropReason reason = admit(message, {range, zone, message.rpAddress(), message.priority(), set});
  if (!set && reason == DropReason::none) ++newRanges_;
  return reason;
}

/// The new ranges of the message are counted with those that the zone holds, whichever zone they are of.
bool RpBounds::isZoneFull(U32 held, bool isPreferred) const {
  if (settings_.rangesPerZone == 0) return false;
  bool isWhole = isPreferred || places_.preferred().isEmpty();
  U32 bound = isWhole ? settings_.rangesPerZone : (settings_.rangesPerZone + 1) / 2;
  return U64{held} + newRanges_ >= bound;
}

/// An RP that its range doesn't hold. The sender's bounds come first, so that a message beyond them displaces
/// no RP.
DropReason RpBounds::admit(CrpAdvMessage const& message, RangePlaces::Request const& request) {
  bool isPreferred = places_.preferred().contains(request.rp);
  SenderLedger::Addition addition{message.srcAddr(), request.rp, request.range, isPreferred};
  if (!isPrepared_) ledger_.prepare(addition, hasRanges(message) ? message.groupData()->groupInfoCount() : 1);
  isPrepared_ = true;
  DropReason reason = ledger_.check(addition);
  if (reason == DropReason::none) reason = places_.request(request);
  if (reason == DropReason::none) ledger_.record(addition);
  return reason;
}

// This router's own advertisements ------------------------------------------------------------------------

/// They take the engine's own path, which no check can stop. The ranges in which the RP has to wait for a
/// place are taken out of the message. One without ranges would be for all groups; with holdtime 0 it
/// withdraws the RP from ranges that don't hold it, which has no effect.
void RpBounds::onTxCrpMsg() {
  Ptr<CrpAdvMessage> message = notifier()->txCrpMsg();
  if (!message || message->holdtime() == 0 || !hasRanges(*message)) return;
  std::vector<IpGenPrefix> waiting;
  for (auto group = message->groupData()->groupInfoIterator(); group; ++group) {
    if (!mayEnter(*message, group->prefix())) waiting.push_back(group->prefix());
  }
  if (waiting.empty()) return;
  if (waiting.size() == message->groupData()->groupInfoCount()) return message->holdtimeIs(0);
  for (IpGenPrefix const& range : waiting) message->groupData()->groupInfoDel(range);
  U32 count = std::min<U32>(message->groupData()->groupInfoCount(), message->prefixCount());
  message->prefixCountIs(static_cast<U8>(count));
}

bool RpBounds::mayEnter(CrpAdvMessage const& message, IpGenPrefix const& range) {
  IpGenPrefix zone = root_->bsrTrie()->longestMatch(range);
  if (!isElected(zone, message.dstAddr())) return true;
  Ptr<RpCandidateSet> set = rpSetOf(*root_, range);
  if (!set || set->rp(message.rpAddress())) return true;
  return places_.requestOwn({range, zone, message.rpAddress(), message.priority(), set});
}

}  // namespace pimbsr::host

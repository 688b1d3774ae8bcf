#include "host/MessageFit.h"

#include <algorithm>

#include "host/BsmCutter.h"
#include "runtime/Context.h"

namespace pimbsr::host {

namespace Packet = Routing::Pim::Packet;
using Zet::Ptr;

static constexpr U16 maxHoldtime = Routing::Pim::CrpHoldTimeRange::high;

// Values --------------------------------------------------------------------------------------------------

wire::LeftOutRps* MessageFit::leftOut() {
  leftOut_.clear();
  return correction_.isOn() ? &leftOut_ : nullptr;
}

void MessageFit::clamp(Message& message) {
  if (!correction_.isOn()) return;
  for (auto group = message.groupRpData()->groupDataIterator(); group; ++group) {
    for (auto rp = group->rpListIterator(); rp; ++rp) {
      if (rp->rpHoldtime() <= maxHoldtime) continue;
      rp->rpHoldtimeIs(maxHoldtime);
      correction_.noteAct();
    }
  }
}

void MessageFit::clamp(Packet::CrpAdvMessage& message) {
  if (!correction_.isOn() || message.holdtime() <= maxHoldtime) return;
  message.holdtimeIs(maxHoldtime);
  correction_.noteAct();
}

// Ranges in fragments -------------------------------------------------------------------------------------

void MessageFit::drop(std::map<Key, Range>::iterator at) {
  count_ -= at->second.size();
  byAge_.erase(at->second.place);
  ranges_.erase(at);
}

void MessageFit::dropOld() {
  while (!byAge_.empty()) {
    auto oldest = ranges_.find(byAge_.front());
    if (Zet::now() < oldest->second.startedAt + root_.fragmentTimeout()) return;
    drop(oldest);
  }
}

void MessageFit::handleSwitch() {
  if (correction_.isOn()) return;
  ranges_.clear();
  byAge_.clear();
  count_ = 0;
}

bool MessageFit::isLeftOutOf(std::size_t record) const {
  return std::any_of(leftOut_.begin(), leftOut_.end(),
                     [&](wire::LeftOutRp const& rp) { return rp.record == record; });
}

/// What is known of a range together with a record; alone with the record where that announces another
/// number.
MessageFit::Range MessageFit::collected(Key const& key, Group const& group, std::size_t record) const {
  Range range{.announced = group.rpCount(), .startedAt = Zet::now()};
  if (auto pending = pending_.find(key); pending != pending_.end()) {
    range = pending->second;
  } else if (auto at = ranges_.find(key); at != ranges_.end() && at->second.announced == group.rpCount()) {
    range = at->second;
  }
  for (auto rp = group.rpListIterator(); rp; ++rp)
    range.rps[rp->rpAddress()] = {rp->rpHoldtime(), rp->rpPriority()};
  for (wire::LeftOutRp const& rp : leftOut_) {
    if (rp.record == record) range.leftOut.emplace(rp.address, rp.repetition);
  }
  return range;
}

/// The whole range as one record; one without RPs before it is complete, which changes nothing.
Ptr<MessageFit::Group> MessageFit::recordOf(Group const& group, Range const& range) const {
  auto record = Zet::make<Group>(group.prefix());
  record->groupFlagsIs(group.groupFlags());
  if (!range.isComplete()) return record;
  for (auto const& [address, terms] : range.rps) {
    Ptr<Packet::BootstrapRpData> rp = record->rpListIs(address);
    rp->rpHoldtimeIs(terms.holdtime);
    rp->rpPriorityIs(terms.priority);
  }
  record->rpCountIs(static_cast<U8>(range.rps.size()));
  record->fragRpCountIs(record->rpCount());
  return record;
}

/// Takes what the machines hold of a range out of their store, as they do themselves once it is complete:
/// they never see two numbers announced for it.
void MessageFit::forgetFragments(Key const& key) {
  auto const& [sender, tag, range] = key;
  Ptr<Routing::Pim::Bsr::PimBsrRxFragments> fragments = root_.bsmRxFragments(tag);
  if (!fragments || !fragments->groupRpData(range)) return;
  fragments->groupRpDataDel(range);
  if (fragments->groupRpDataCount() == 0) root_.bsmRxFragmentsDel(tag);
}

/// Whether a record, as it was before RPs were left out of it, names a part of its range.
bool MessageFit::isPart(Group const& group, std::size_t record) const {
  bool namesRps = group.fragRpCount() != 0 || isLeftOutOf(record);
  return namesRps && group.fragRpCount() != group.rpCount();
}

bool MessageFit::hasParts(Message const& message) const {
  std::size_t record = 0;
  for (auto group = message.groupRpData()->groupDataIterator(); group; ++group, ++record) {
    if (isPart(*group, record)) return true;
  }
  return false;
}

MessageFit::Verdict MessageFit::prepare(Message& message) {
  pending_.clear();
  if (!leftOut_.empty()) correction_.noteAct();
  if (!correction_.isOn() || !hasParts(message)) return {.passed = Ptr<Message>(&message)};
  dropOld();
  Ptr<Message> passed = headerOf(message);
  passed->srcAddrIs(message.srcAddr());
  passed->dstAddrIs(message.dstAddr());
  std::size_t record = 0;
  for (auto group = message.groupRpData()->groupDataIterator(); group; ++group, ++record) {
    Ptr<Group> given = group.ptr();
    if (isPart(*group, record)) {
      Key key(message.srcAddr(), message.fragmentTag(), group->prefix());
      Range range = collected(key, *group, record);
      if (range.size() > range.announced) return {.reason = DropReason::fragmentOverflow};
      if (!range.leftOut.empty()) given = recordOf(*group, range);
      pending_[key] = range;
    }
    passed->groupRpData()->groupDataEnq(given);
  }
  bool isWithheld = withhold();
  return {.passed = isWithheld ? passed : Ptr<Message>(&message)};
}

/// Takes ranges with left out RPs out of the machines' store, and those that begin anew with another number;
/// whether there are any of the former.
bool MessageFit::withhold() {
  bool isWithheld = false;
  for (auto const& [key, range] : pending_) {
    auto at = ranges_.find(key);
    bool isRestarted = at != ranges_.end() && at->second.announced != range.announced;
    if (isRestarted || !range.leftOut.empty()) forgetFragments(key);
    isWithheld = isWithheld || !range.leftOut.empty();
  }
  return isWithheld;
}

/// A range that is complete without a missing RP is the machines' own business again.
void MessageFit::handleAccepted() {
  for (auto& [key, range] : pending_) {
    auto at = ranges_.find(key);
    auto place = at == ranges_.end() ? byAge_.insert(byAge_.end(), key) : at->second.place;
    if (at != ranges_.end()) count_ -= at->second.size();
    count_ += range.size();
    range.place = place;
    ranges_[key] = std::move(range);
    at = ranges_.find(key);
    bool isDone = at->second.isComplete() && at->second.leftOut.empty();
    bool hasRoom = settings_.fragmentRps == 0 || count_ <= settings_.fragmentRps;
    if (isDone || !hasRoom) drop(at);
  }
  pending_.clear();
}

}  // namespace pimbsr::host

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

bool MessageFit::clamp(Message& message) {
  if (!correction_.isOn()) return false;
  for (auto group = message.groupRpData()->groupDataIterator(); group; ++group) {
    for (auto rp = group->rpListIterator(); rp; ++rp) {
      if (rp->rpHoldtime() <= maxHoldtime) continue;
      rp->rpHoldtimeIs(maxHoldtime);
      correction_.noteAct();
    }
  }
  return true;
}

bool MessageFit::clamp(Packet::CrpAdvMessage& message) {
  if (!correction_.isOn()) return false;
  message.holdtimeIs(maxHoldtime);
  correction_.noteAct();
  return true;
}

// Ranges in fragments -------------------------------------------------------------------------------------

void MessageFit::drop(std::map<Key, Range, Less>::iterator at) {
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

/// They are kept in the order of their records.
MessageFit::LeftOutOfRecord MessageFit::leftOutOf(std::size_t record) const {
  auto isBefore = [](wire::LeftOutRp const& rp, std::size_t number) { return rp.record < number; };
  auto begin = std::lower_bound(leftOut_.begin(), leftOut_.end(), record, isBefore);
  return {begin, std::lower_bound(begin, leftOut_.end(), record + 1, isBefore)};
}

/// That of the message so far; where it names the range for the first time, one without RPs. It is alone
/// where former messages announced another number.
MessageFit::Addition& MessageFit::additionOf(Key const& key, Group const& group) {
  auto [at, isFirst] = pending_.try_emplace(key);
  Addition& addition = at->second;
  if (!isFirst) return addition;
  addition.announced = group.rpCount();
  auto range = ranges_.find(key);
  if (range != ranges_.end() && range->second.announced == group.rpCount())
    addition.collected = &range->second;
  return addition;
}

/// Adds the RPs of a record.
void MessageFit::add(Addition& addition, Group const& group, std::size_t record) const {
  Range const* collected = addition.collected;
  for (auto rp = group.rpListIterator(); rp; ++rp) {
    Terms const terms{rp->rpHoldtime(), rp->rpPriority()};
    bool isNew = addition.taken.insert_or_assign(rp->rpAddress(), terms).second;
    if (isNew && (collected == nullptr || !collected->taken.contains(rp->rpAddress()))) ++addition.fresh;
  }
  auto [at, end] = leftOutOf(record);
  for (; at != end; ++at) {
    std::pair const rp(at->address, at->repetition);
    bool isNew = addition.leftOut.insert(rp).second;
    if (isNew && (collected == nullptr || !collected->leftOut.contains(rp))) ++addition.fresh;
  }
}

static void put(Packet::BootstrapGroupData& record, Lanet::IpGenAddr const& address, U16 holdtime,
                U8 priority) {
  Ptr<Packet::BootstrapRpData> rp = record.rpListIs(address);
  rp->rpHoldtimeIs(holdtime);
  rp->rpPriorityIs(priority);
}

/// The whole range as one record, once: one without RPs before it is complete, which changes nothing, and one
/// with the RPs of this record alone after it was.
Ptr<MessageFit::Group> MessageFit::recordOf(Group const& group, Addition const& addition,
                                            bool wasComplete) const {
  auto record = Zet::make<Group>(group.prefix());
  record->groupFlagsIs(group.groupFlags());
  if (!addition.isComplete()) return record;
  if (wasComplete) {
    for (auto rp = group.rpListIterator(); rp; ++rp)
      put(*record, rp->rpAddress(), rp->rpHoldtime(), rp->rpPriority());
  } else {
    if (addition.collected != nullptr) {
      for (auto const& [rp, terms] : addition.collected->taken)
        put(*record, rp, terms.holdtime, terms.priority);
    }
    for (auto const& [rp, terms] : addition.taken) put(*record, rp, terms.holdtime, terms.priority);
  }
  record->rpCountIs(static_cast<U8>(record->rpListCount()));
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
  auto [begin, end] = leftOutOf(record);
  bool namesRps = group.fragRpCount() != 0 || begin != end;
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
      Addition& addition = additionOf(key, *group);
      bool wasComplete = addition.isComplete();
      add(addition, *group, record);
      if (addition.total() > addition.announced) return {.reason = DropReason::fragmentOverflow};
      if (addition.lacksRps()) given = recordOf(*group, addition, wasComplete);
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
  for (auto const& [key, addition] : pending_) {
    bool isRestarted = addition.collected == nullptr && ranges_.contains(key);
    if (isRestarted || addition.lacksRps()) forgetFragments(key);
    isWithheld = isWithheld || addition.lacksRps();
  }
  return isWithheld;
}

/// Adds to what is collected of a range, or begins it anew. A range that is complete without a missing RP is
/// the machines' own business again.
void MessageFit::collect(Key const& key, Addition& addition) {
  auto at = ranges_.find(key);
  if (at != ranges_.end() && addition.collected == nullptr) {
    drop(at);
    at = ranges_.end();
  }
  if (at == ranges_.end()) {
    at = ranges_.try_emplace(key).first;
    at->second.announced = addition.announced;
    at->second.startedAt = Zet::now();
    at->second.place = byAge_.insert(byAge_.end(), key);
  }
  Range& range = at->second;
  for (auto const& [rp, terms] : addition.taken) range.taken.insert_or_assign(rp, terms);
  range.leftOut.merge(addition.leftOut);
  count_ += addition.fresh;
  bool isDone = range.size() == range.announced && range.leftOut.empty();
  bool hasRoom = settings_.fragmentRps == 0 || count_ <= settings_.fragmentRps;
  if (isDone || !hasRoom) drop(at);
}

void MessageFit::handleAccepted() {
  for (auto& [key, addition] : pending_) collect(key, addition);
  pending_.clear();
}

}  // namespace pimbsr::host

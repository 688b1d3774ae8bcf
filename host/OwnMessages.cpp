#include "host/OwnMessages.h"

#include <algorithm>
#include <optional>
#include <tuple>
#include <vector>

#include "host/BsmCutter.h"
#include "host/Zones.h"
#include "wire/Wire.h"

namespace pimbsr::host {

namespace Packet = Routing::Pim::Packet;
using Packet::BootstrapGroupData;
using Packet::BootstrapMessage;
using Packet::BootstrapRpData;
using Zet::Ptr;

OwnMessages::Message OwnMessages::correct(Message const& own) {
  Zone& zone = zones_[zoneOf(*own)];
  if (zone.last != own) {
    zone.last = own;
    Message message = rangeFull_.isOn() ? announceFewer(own) : own;
    if (repeatWithdrawal_.isOn()) message = repeat(zone, message);
    zone.corrected = message == own ? nullptr : message;
  }
  if (!zone.corrected) return own;
  zone.corrected->forwardIs(own->forward());
  return zone.corrected;
}

void OwnMessages::repeatWithdrawal(Lanet::IpGenPrefix const& zone, Lanet::IpGenPrefix const& range,
                                   Lanet::IpGenAddr const& rp) {
  if (repeatWithdrawal_.isOn()) zones_[zone].withdrawn[{range, rp}] = repetitions;
}

void OwnMessages::forgetWithdrawals(Lanet::IpGenPrefix const& zone) {
  auto at = zones_.find(zone);
  if (at != zones_.end()) at->second.withdrawn.clear();
}

static void copyRp(BootstrapGroupData& to, BootstrapRpData const& rp) {
  Zet::Meter::visit();
  Ptr<BootstrapRpData> copy = to.rpListIs(rp.rpAddress());
  copy->rpHoldtimeIs(rp.rpHoldtime());
  copy->rpPriorityIs(rp.rpPriority());
}

static void countsAre(BootstrapGroupData& group) {
  auto count = static_cast<Zet::U8>(group.rpListCount());
  group.rpCountIs(count);
  group.fragRpCountIs(count);
}

/// A copy with its own groups, so that the machine's message stays as it is.
static Ptr<BootstrapGroupData> copyOf(BootstrapGroupData const& group) {
  auto copy = Zet::make<BootstrapGroupData>(group.prefix());
  copy->groupFlagsIs(group.groupFlags());
  for (auto rp = group.rpListIterator(); rp; ++rp) copyRp(*copy, *rp);
  countsAre(*copy);
  return copy;
}

// Too many RPs --------------------------------------------------------------------------------------------

/// RPs that are withdrawn, since this is the message that says so; then the lowest priority value, then the
/// highest address, as the hash's tie-break has it (RFC 7761 section 4.7.2). An RP that is left out lives on
/// at followers until its holdtime ends, three BS_Periods. One place is kept for an RP that stays, since a
/// range of withdrawn RPs alone is lost.
static Ptr<BootstrapGroupData> bestOf(BootstrapGroupData const& group, U32 count) {
  std::vector<Ptr<BootstrapRpData>> rps;
  for (auto rp = group.rpListIterator(); rp; ++rp) rps.push_back(rp.ptr());
  auto rank = [](Ptr<BootstrapRpData> const& rp) {
    return std::tuple(rp->rpHoldtime() != 0, rp->rpPriority(), ~rp->rpAddress().v4Addr().hostWord());
  };
  std::sort(rps.begin(), rps.end(), [&](auto const& a, auto const& b) { return rank(a) < rank(b); });
  auto stays = std::find_if(rps.begin(), rps.end(), [](auto const& rp) { return rp->rpHoldtime() != 0; });
  if (stays != rps.end() && stays >= rps.begin() + count) std::swap(rps[count - 1], *stays);
  auto best = Zet::make<BootstrapGroupData>(group.prefix());
  best->groupFlagsIs(group.groupFlags());
  for (U32 i = 0; i < count; ++i) copyRp(*best, *rps[i]);
  countsAre(*best);
  return best;
}

OwnMessages::Message OwnMessages::announceFewer(Message const& message) {
  Ptr<Packet::BootstrapOptionalData> groups = message->groupRpData();
  U32 overfull = 0;
  for (auto group = groups->groupDataIterator(); group; ++group)
    overfull += group->rpListCount() > wire::maxRpCount ? 1 : 0;
  if (overfull == 0) return message;
  rangeFull_.noteAct();
  Message fewer = headerOf(*message);
  for (auto group = groups->groupDataIterator(); group; ++group) {
    bool isOverfull = group->rpListCount() > wire::maxRpCount;
    fewer->groupRpData()->groupDataEnq(isOverfull ? bestOf(*group, wire::maxRpCount) : group.ptr());
  }
  return fewer;
}

// Withdrawals ---------------------------------------------------------------------------------------------

/// An RP that is back is named no more, and one that is withdrawn now is named as often as any.
void OwnMessages::noteWithdrawals(Zone& zone, BootstrapMessage const& message) const {
  for (auto group = message.groupRpData()->groupDataIterator(); group; ++group) {
    for (auto rp = group->rpListIterator(); rp; ++rp) {
      RpKey key(group->prefix(), rp->rpAddress());
      if (rp->rpHoldtime() == 0) {
        zone.withdrawn[key] = repetitions + 1;
      } else if (!zone.withdrawn.empty()) {
        zone.withdrawn.erase(key);
      }
    }
  }
}

namespace {

/// A copy of a message to which withdrawn RPs are added.
class Repeating {
 public:
  explicit Repeating(BootstrapMessage const& message) : copy_(headerOf(message)) {
    for (auto group = message.groupRpData()->groupDataIterator(); group; ++group) add(copyOf(*group));
  }

  /// O(log n) of the ranges. A range has no more RPs than RP Count can announce.
  void withdraw(Lanet::IpGenPrefix const& range, Lanet::IpGenAddr const& rp) {
    auto at = records_.find(range);
    Ptr<BootstrapGroupData> record =
        at == records_.end() ? add(Zet::make<BootstrapGroupData>(range)) : at->second;
    if (record->rpListCount() >= wire::maxRpCount) return;
    record->rpListIs(rp);
    countsAre(*record);
  }

  OwnMessages::Message const& message() const { return copy_; }

 private:
  Ptr<BootstrapGroupData> add(Ptr<BootstrapGroupData> const& group) {
    copy_->groupRpData()->groupDataEnq(group);
    records_.emplace(group->prefix(), group);
    return group;
  }

  OwnMessages::Message copy_;
  std::map<Lanet::IpGenPrefix, Ptr<BootstrapGroupData>, Zet::Meter::Less> records_;  ///< the first of a range
};

}  // namespace

OwnMessages::Message OwnMessages::repeat(Zone& zone, Message const& message) {
  noteWithdrawals(zone, *message);
  std::optional<Repeating> repeating;
  for (auto at = zone.withdrawn.begin(); at != zone.withdrawn.end();) {
    auto& [key, left] = *at;
    if (left <= repetitions) {
      if (!repeating) repeating.emplace(*message);
      repeating->withdraw(key.first, key.second);
    }
    at = --left == 0 ? zone.withdrawn.erase(at) : std::next(at);
  }
  if (!repeating) return message;
  repeatWithdrawal_.noteAct();
  return repeating->message();
}

}  // namespace pimbsr::host

#include "host/Advertisements.h"

#include <algorithm>
#include <utility>

#include "wire/Wire.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
namespace Packet = Routing::Pim::Packet;
using Lanet::IpGenPrefix;
using Packet::CrpAdvMessage;
using Zet::Ptr;

Advertisements::Advertisements(Ptr<Bsr::PimBsrSm> const& root, Mtus const& mtus, CorrectionSwitch& allRanges)
    : root_(root), mtus_(mtus), allRanges_(allRanges) {
  notifierIs(root->crpMsgStatus());
}

void Advertisements::stop() {
  notifierIs(nullptr);
  root_ = nullptr;
}

/// The IP header takes 20 bytes, the message 14 and each range 8 (RFC 5059 section 4.2).
U32 Advertisements::maxRanges() const {
  return std::min(wire::maxPrefixCount, (mtus_.least() - 20 - 14) / 8);
}

static void fill(CrpAdvMessage& message, std::span<IpGenPrefix const> ranges, Packet::GroupFlags flags) {
  auto groups = Zet::make<Packet::CrpGroupData>();
  for (IpGenPrefix const& range : ranges) groups->groupInfoIs(range)->groupFlagsIs(flags);
  message.groupDataIs(groups);
  message.prefixCountIs(static_cast<Zet::U8>(ranges.size()));
}

static Packet::GroupFlags flagsOf(CrpAdvMessage const& message) {
  auto first = message.groupData()->groupInfoIterator();
  return first ? first->groupFlags() : Packet::GroupFlags();
}

void Advertisements::send(CrpAdvMessage const& like, std::span<IpGenPrefix const> ranges) {
  Packet::GroupFlags flags = flagsOf(like);
  isSending_ = true;
  for (U32 max = maxRanges(); !ranges.empty();
       ranges = ranges.subspan(std::min<std::size_t>(max, ranges.size()))) {
    auto message = Zet::make<CrpAdvMessage>();
    message->priorityIs(like.priority());
    message->holdtimeIs(like.holdtime());
    message->rpAddressIs(like.rpAddress());
    message->srcAddrIs(like.srcAddr());
    message->dstAddrIs(like.dstAddr());
    fill(*message, ranges.first(std::min<std::size_t>(max, ranges.size())), flags);
    notifier()->txCrpMsgIs(message);
    notifier()->writeCountInc(1);
  }
  isSending_ = false;
}

void Advertisements::withdraw(Bsr::RpCandidateSm const& machine, IpGenPrefix const& zone,
                              std::span<IpGenPrefix const> ranges) {
  Ptr<Bsr::ElectedBsrStatus> elected = root_->bsrStatus()->bootstrapRouter(zone);
  if (!elected) return;
  CrpAdvMessage like;
  like.priorityIs(static_cast<Zet::U8>(machine.crpOptions().priority().value()));
  like.rpAddressIs(machine.crpOptions().rpAddress());
  like.srcAddrIs(machine.crpOptions().rpAddress());
  like.dstAddrIs(elected->ipAddr());
  like.groupDataIs(Zet::make<Packet::CrpGroupData>());
  send(like, ranges);
}

// A machine's advertisement -------------------------------------------------------------------------------

/// The ranges of which a machine sends a message; null for a message that no machine sends.
Ptr<Bsr::RpCandidatePrefixSet> Advertisements::advertised(CrpAdvMessage const& message) const {
  auto first = message.groupData() ? message.groupData()->groupInfoIterator()
                                   : Packet::CrpGroupData::GroupInfoIterator();
  Ptr<Bsr::RpCandidateSm> machine =
      root_->rpCandidateSm(Bsr::CrpOptions(message.rpAddress(), U32{message.priority()}));
  if (!machine || !first) return nullptr;
  for (auto set = machine->crpAdvSetIterator(); set; ++set) {
    if (set->prefixSet(first->prefix())) return set.ptr();
  }
  return nullptr;
}

void Advertisements::onTxCrpMsg() {
  Ptr<CrpAdvMessage> message = notifier()->txCrpMsg();
  if (!message || isSending_ || !allRanges_.isOn()) return;
  Ptr<Bsr::RpCandidatePrefixSet> set = advertised(*message);
  if (!set || set->prefixSetCount() <= maxRanges()) return;
  std::vector<IpGenPrefix> ranges;
  for (auto range = set->prefixSetIterator(); range; ++range) ranges.push_back(range.key());
  fill(*message, std::span(ranges).first(maxRanges()), flagsOf(*message));
  following_.assign(ranges.begin() + maxRanges(), ranges.end());
}

void Advertisements::onWriteCount() {
  if (isSending_ || following_.empty()) return;
  std::vector<IpGenPrefix> ranges = std::exchange(following_, {});
  allRanges_.noteAct();
  Ptr<CrpAdvMessage> first = notifier()->txCrpMsg();
  send(*first, ranges);
}

}  // namespace pimbsr::host

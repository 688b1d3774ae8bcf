#include "cli/replay/ReplayViews.h"

#include <algorithm>
#include <variant>

#include "view/Fill.h"
#include "wire/Wire.h"

namespace pimbsr::cli {

namespace Packet = Routing::Pim::Packet;
using host::Change;
using host::MessageKind;
using host::Reception;
using Zet::U32;
using Zet::U8;

// Content ---------------------------------------------------------------------------------------------

/// Decoding ignores trailing bytes of an accepted message, and encoding it again leaves them out.
static U32 trailingBytes(std::size_t received, std::vector<U8> const& written) {
  return static_cast<U32>(received - written.size());
}

static view::DecodedRange rangeOf(Packet::BootstrapGroupData const& group) {
  view::DecodedRange made{.range = group.prefix(),
                          .adminScope = group.groupFlags().scoped(),
                          .bidirectional = group.groupFlags().bidir(),
                          .rpCount = group.rpCount(),
                          .fragmentRpCount = group.fragRpCount()};
  for (auto rp = group.rpListIterator(); rp; ++rp)
    made.rps.push_back({rp->rpAddress(), rp->rpHoldtime(), rp->rpPriority()});
  std::ranges::sort(made.rps, {}, &view::DecodedRp::address);
  return made;
}

static view::DecodedBootstrap contentOf(Packet::BootstrapMessage const& bsm, std::size_t received) {
  view::DecodedBootstrap made{.noForward = !bsm.forward(),
                              .fragmentTag = bsm.fragmentTag(),
                              .hashMaskLen = bsm.hashMaskLen(),
                              .bsrPriority = bsm.bsrPriority(),
                              .bsrAddress = bsm.bsrAddress()};
  for (auto group = bsm.groupRpData()->groupDataIterator(); group; ++group)
    made.ranges.push_back(rangeOf(*group));
  std::vector<U8> written;
  if (wire::encodeBootstrap(bsm, written)) made.trailingBytes = trailingBytes(received, written);
  return made;
}

static view::DecodedCrpAdv contentOf(Packet::CrpAdvMessage const& adv, std::size_t received) {
  view::DecodedCrpAdv made{.prefixCount = adv.prefixCount(),
                           .priority = adv.priority(),
                           .holdtime = adv.holdtime(),
                           .rpAddress = adv.rpAddress()};
  for (auto info = adv.groupData()->groupInfoIterator(); info; ++info)
    made.ranges.push_back({info->prefix(), info->groupFlags().scoped(), info->groupFlags().bidir()});
  std::ranges::sort(made.ranges, {}, &view::EncodedGroup::range);
  std::vector<U8> written;
  if (wire::encodeCrpAdv(adv, written)) made.trailingBytes = trailingBytes(received, written);
  return made;
}

static view::DecodedHello contentOf(wire::HelloMessage const& hello) {
  view::DecodedHello made;
  fillDecodedHello(made, hello);
  return made;
}

/// Decodes the packet once more: processing removes content from a message.
static void addContent(wire::Ipv4Packet const& ip, view::ReplayMessage& made) {
  auto decoded = wire::decodeMessage(ip.payload, ip.source, ip.destination);
  if (!decoded) return;
  if (auto const* bsm = std::get_if<Zet::Ptr<Packet::BootstrapMessage>>(&*decoded)) {
    made.bootstrap = contentOf(**bsm, ip.payload.size());
  } else if (auto const* adv = std::get_if<Zet::Ptr<Packet::CrpAdvMessage>>(&*decoded)) {
    made.crpAdv = contentOf(**adv, ip.payload.size());
  } else if (auto const* hello = std::get_if<wire::HelloMessage>(&*decoded)) {
    made.hello = contentOf(*hello);
  }
}

// Messages --------------------------------------------------------------------------------------------

static view::Verdict verdictOf(Reception const& reception) {
  if (reception.accepted()) return view::Verdict::accepted;
  return reception.dropped() ? view::Verdict::dropped : view::Verdict::partlyAccepted;
}

static void addVerdict(Reception const& reception, view::ReplayMessage& made) {
  made.verdict = keyOf(verdictOf(reception));
  if (!reception.accepted()) made.reason = reception.reason;
  if (reception.droppedRanges != 0) made.droppedRanges = reception.droppedRanges;
}

static view::ReplayMessage messageOf(PlayedMessage const& played) {
  Reception const& reception = played.reception;
  view::ReplayMessage made{.message = std::string(view::keyOf(reception.kind)),
                           .sender = reception.source,
                           .destination = reception.destination};
  addVerdict(reception, made);
  if (reception.kind == MessageKind::bootstrap) {
    made.zone = played.zone;
    made.rpfNeighbor = played.rpfNeighbor;
  }
  if (played.betterBsr) made.preferredBsr = view::termsOf(*played.betterBsr);
  if (auto ip = wire::parseIpv4(played.packet)) addContent(*ip, made);
  return made;
}

// Changes ---------------------------------------------------------------------------------------------

static view::ReplayChange changeOf(Change const& change) {
  view::ReplayChange made{.event = std::string(keyOf(view::kindOf(change.kind)))};
  view::fillChange(made, change);
  return made;
}

view::ReplayEvent eventOf(double time, std::span<Change const> changes) {
  view::ReplayEvent made{.time = time};
  for (Change const& change : changes) made.changes.push_back(changeOf(change));
  return made;
}

view::ReplayEvent eventOf(PlayedMessage const& played, std::span<Change const> changes) {
  view::ReplayEvent made = eventOf(played.time, changes);
  made.received = messageOf(played);
  return made;
}

}  // namespace pimbsr::cli

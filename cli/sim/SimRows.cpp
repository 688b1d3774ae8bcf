#include "cli/sim/SimRows.h"

#include <ostream>
#include <variant>
#include <vector>

#include "host/Machines.h"
#include "runtime/Log.h"
#include "wire/Wire.h"

namespace pimbsr::cli {

namespace Packet = Routing::Pim::Packet;
using host::Change;
using host::ChangeKind;
using host::MessageKind;
using Lanet::IpGenAddr;
using Routing::Pim::Bsr::BsrCandidateState;

std::string_view nameOf(sim::PacketKind kind) {
  constexpr std::string_view names[] = {"Hello", "BSM", "C-RP-Adv", "packet"};
  return names[static_cast<std::size_t>(kind)];
}

// Changes ---------------------------------------------------------------------------------------------

/// Who is followed, and why; a candidate that follows itself has been elected.
static TimelineRow rowOfBsr(sim::Node const& node, Change const& change) {
  host::BsrView const& bsr = change.bsr;
  host::BsrView const& former = change.formerBsr;
  bool own = node.isOwnAddress(bsr.address);
  TimelineRow row{
      .event = own ? "elected" : "follows", .where = textOf(change.zone), .who = textOf(bsr.address)};
  row.details = fmt::format("{}priority {}", own ? "own candidacy, " : "", bsr.priority);
  if (change.kind == ChangeKind::bsrElected) return row;
  if (former.address != bsr.address) {
    row.details += fmt::format("; was {} ({})", textOf(former.address), former.priority);
    return row;
  }
  row.event = "BSR changed";
  if (former.hashMaskLen != bsr.hashMaskLen) {
    row.details += fmt::format(", hash mask length {}", bsr.hashMaskLen);
  } else {
    row.details += fmt::format("; was {}", former.priority);
  }
  return row;
}

/// What an update changed, one thing or several.
static std::string differenceOf(host::RpView const& rp, host::RpView const& former) {
  std::vector<std::string> parts;
  if (rp.priority != former.priority) {
    parts.push_back(fmt::format("priority {}, was {}", rp.priority, former.priority));
  }
  if (rp.holdTime != former.holdTime) {
    parts.push_back(fmt::format("holdtime {} s, was {} s", rp.holdTime, former.holdTime));
  }
  if (rp.mode != former.mode) {
    parts.emplace_back(rp.mode == Routing::Pim::Mode::bidir ? "now bidirectional" : "no more bidirectional");
  }
  return fmt::format("{}", fmt::join(parts, "; "));
}

TimelineRow rowOf(sim::Node const& node, Change const& change) {
  bool hasBsr = change.kind == ChangeKind::bsrElected || change.kind == ChangeKind::bsrChanged;
  if (hasBsr) return rowOfBsr(node, change);
  Change shown = change;
  auto const* router = node.router();
  bool isGlobal = router != nullptr && change.zone == router->globalZone();
  // Only a scoped zone is shown.
  if (isGlobal && !change.rp.address.isEmpty()) shown.zone = change.rp.range;
  TimelineRow row = rowOf(shown, "");
  if (change.kind == ChangeKind::rpUpdated) row.details = differenceOf(change.rp, change.formerRp);
  bool gaveUp = change.kind == ChangeKind::bsrLost && node.isOwnAddress(change.bsr.address);
  if (gaveUp) row.event = "steps down";
  return row;
}

// Messages --------------------------------------------------------------------------------------------

static std::string detailsOf(Packet::BootstrapMessage const& bsm) {
  return fmt::format("priority {}, tag {:#06x}{}", bsm.bsrPriority(), bsm.fragmentTag(),
                     bsm.forward() ? "" : ", No-Forward");
}

static std::string detailsOf(Packet::CrpAdvMessage const& adv) {
  return fmt::format("priority {}, holdtime {} s, prefix count {}", adv.priority(), adv.holdtime(),
                     adv.prefixCount());
}

TimelineRow rowOf(sim::NodeInterface const& intf, host::Reception const& reception) {
  std::string_view verdict = reception.accepted() ? "accepted" : "dropped";
  TimelineRow row{.where = textOf(reception.source)};
  if (reception.kind == MessageKind::bootstrap) {
    auto const& bsm = static_cast<Packet::BootstrapMessage const&>(*reception.message);
    row.event = fmt::format("BSM {}", verdict);
    row.who = textOf(bsm.bsrAddress());
    row.details = detailsOf(bsm);
  } else if (reception.kind == MessageKind::crpAdv) {
    auto const& adv = static_cast<Packet::CrpAdvMessage const&>(*reception.message);
    row.event = fmt::format("Adv {}", verdict);
    row.who = textOf(adv.rpAddress());
    row.details = detailsOf(adv);
  } else {
    row.event = fmt::format("{} {}", reception.kind == MessageKind::hello ? "Hello" : "PIM", verdict);
    row.details = "on " + std::string(intf.intfId.stringValue().view());
  }
  if (!reception.accepted()) row.details = reception.reason;
  return row;
}

/// The content of a packet.
static TimelineRow rowOfPacket(sim::Bytes packet) {
  TimelineRow row;
  wire::Outcome<wire::Ipv4Packet> ip = wire::parseIpv4(packet);
  if (!ip) return row;
  row.where = textOf(IpGenAddr(ip->destination));
  auto decoded = wire::decodeMessage(ip->payload, ip->source, ip->destination);
  if (!decoded) return row;
  if (auto const* bsm = std::get_if<Zet::Ptr<Packet::BootstrapMessage>>(&*decoded)) {
    row.who = textOf((*bsm)->bsrAddress());
    row.details = detailsOf(**bsm);
  } else if (auto const* adv = std::get_if<Zet::Ptr<Packet::CrpAdvMessage>>(&*decoded)) {
    row.who = textOf((*adv)->rpAddress());
    row.details = detailsOf(**adv);
  } else if (auto const* hello = std::get_if<wire::HelloMessage>(&*decoded)) {
    row.details = fmt::format("holdtime {} s", hello->holdtime);
  }
  return row;
}

TimelineRow rowOfSent(sim::Link const& link, sim::Bytes packet) {
  TimelineRow row = rowOfPacket(packet);
  row.event = fmt::format("{} sent", nameOf(sim::kindOf(packet)));
  row.where = link.options.name;
  return row;
}

TimelineRow rowOfLoss(sim::Link const* link, sim::Loss loss, sim::Bytes packet) {
  TimelineRow row = rowOfPacket(packet);
  row.event = fmt::format("{} lost", nameOf(sim::kindOf(packet)));
  row.details = sim::textOf(loss);
  if (link != nullptr) row.where = link->options.name;
  return row;
}

// Neighbors and states --------------------------------------------------------------------------------

TimelineRow rowOfNeighbor(sim::Link const& link, IpGenAddr const& neighbor, bool up) {
  return {.event = up ? "neighbor" : "neighbor gone", .where = link.options.name, .who = textOf(neighbor)};
}

TimelineRow rowOfDr(sim::Node const& node, sim::Link const& link, IpGenAddr const& dr) {
  std::string_view own = node.isOwnAddress(dr) ? "this router" : "";
  return {.event = "DR", .where = link.options.name, .who = textOf(dr), .details = std::string(own)};
}

TimelineRow rowOfState(Lanet::IpGenPrefix const& zone, BsrCandidateState state) {
  return {.event = "state", .where = textOf(zone), .details = std::string(host::nameOf(state))};
}

// Trace -----------------------------------------------------------------------------------------------

void writeTrace(std::ostream& out, sim::Node const& node, Zet::TraceLine const& line) {
  out << fmt::format("{:>9}  {}  {}:{} {}: {}\n", textOfTime(node.network().now()), node.name(), line.handle,
                     line.level, line.sourceBlock, line.text);
}

void writeLog(std::ostream& out, sim::Node const& node, Zet::LogHandle const& handle,
              std::string const& text) {
  out << fmt::format("{:>9}  {}  {}: {}\n", textOfTime(node.network().now()), node.name(), handle.name(),
                     text);
}

}  // namespace pimbsr::cli

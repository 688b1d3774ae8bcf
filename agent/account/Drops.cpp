#include "agent/account/Drops.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace pimbsr::agent {

namespace Packet = Routing::Pim::Packet;
using host::MessageKind;
using host::Reception;
using Lanet::IpGenPrefix;

/// The zone of a message is that of its first range if that is scoped (RFC 5059 section 3.1.1).
static IpGenPrefix zoneOf(Packet::BootstrapMessage const& message) {
  auto first = message.groupRpData() ? message.groupRpData()->groupDataFirst() : nullptr;
  return first && first->groupFlags().scoped() ? first->prefix() : Lanet::allGroups();
}

static IpGenPrefix zoneOf(Reception const& reception) {
  if (reception.kind != MessageKind::bootstrap || !reception.message) return {};
  return zoneOf(static_cast<Packet::BootstrapMessage const&>(*reception.message));
}

static DroppedMessage noteOf(Reception const& reception, double now) {
  DroppedMessage note{.time = now, .sender = reception.source, .destination = reception.destination};
  note.dropped = reception.droppedRanges;
  if (!reception.message) return note;
  if (reception.kind == MessageKind::bootstrap) {
    auto const& bsm = static_cast<Packet::BootstrapMessage const&>(*reception.message);
    note.about = bsm.bsrAddress();
    note.priority = bsm.bsrPriority();
    note.hashMaskLen = bsm.hashMaskLen();
    note.fragmentTag = bsm.fragmentTag();
    note.forward = bsm.forward();
    note.groups = bsm.groupRpData() ? static_cast<Zet::U32>(bsm.groupRpData()->groupDataCount()) : 0;
  } else if (reception.kind == MessageKind::crpAdv) {
    auto const& adv = static_cast<Packet::CrpAdvMessage const&>(*reception.message);
    note.about = adv.rpAddress();
    note.priority = adv.priority();
    note.holdTime = adv.holdtime();
    note.groups = adv.prefixCount();
  }
  return note;
}

void TopSenders::note(Lanet::IpGenAddr const& sender) {
  if (sender.isEmpty()) return;
  auto matches = [&](Sender const& each) { return each.address == sender; };
  auto at = std::find_if(senders_.begin(), senders_.end(), matches);
  if (at == senders_.end()) {
    if (senders_.size() < max) senders_.emplace_back();
    at = std::prev(senders_.end());
    at->address = sender;
  }
  ++at->count;
  for (; at != senders_.begin() && std::prev(at)->count < at->count; --at) std::iter_swap(at, std::prev(at));
}

void Drops::note(std::string const& intf, Reception const& reception, double now) {
  if (reception.accepted()) return;
  DropKey key{reception.reason, reception.kind, intf, zoneOf(reception)};
  auto at = rows_.find(key);
  if (at == rows_.end() && rows_.size() >= maxRows_) {
    key.zone = {};
    key.others = true;
  }
  DropRow& row = at == rows_.end() ? rows_[key] : at->second;
  ++row.count;
  row.sentence = reception.sentence;
  row.senders.note(reception.source);
  row.last = noteOf(reception, now);
}

static std::string textOf(Lanet::IpGenAddr const& address) {
  return std::string(address.stringValue().view());
}

static std::string rangesOf(DroppedMessage const& message) {
  std::string all = fmt::format("{} group range{}", message.groups, message.groups == 1 ? "" : "s");
  return message.dropped == 0 ? all : fmt::format("{} of {} dropped", message.dropped, all);
}

std::string summaryOf(MessageKind kind, DroppedMessage const& message) {
  switch (kind) {
    case MessageKind::bootstrap:
      if (message.about.isEmpty()) return "BSM";
      return fmt::format("BSM of {}, priority {}, hash mask length {}, tag {:#06x}, {}{}",
                         textOf(message.about), message.priority, message.hashMaskLen, message.fragmentTag,
                         rangesOf(message), message.forward ? "" : ", No-Forward");
    case MessageKind::crpAdv:
      if (message.about.isEmpty()) return "C-RP-Adv";
      return fmt::format("C-RP-Adv of {}, priority {}, holdtime {} s, {}", textOf(message.about),
                         message.priority, message.holdTime, rangesOf(message));
    case MessageKind::hello:
      return "Hello";
    case MessageKind::other:
      return "PIM message of another type";
    case MessageKind::malformed:
      return "PIM message that can't be read";
    case MessageKind::unread:
      return "packet that was not looked at";
    default:
      return "packet";
  }
}

}  // namespace pimbsr::agent

#include "tests/attack/Frames.h"

#include <algorithm>
#include <array>
#include <random>
#include <stdexcept>
#include <string>

#include "tests/attack/ChosenKeys.h"
#include "wire/Checksum.h"
#include "wire/Wire.h"

namespace attack {

namespace {

constexpr U32 rpsOfMessage = 130;    // RPs of one range that an Ethernet frame holds
constexpr U32 fewZones = 32;         // that a router follows beside others
constexpr U32 rangesOfMessage = 60;  // ranges with one RP each that it holds
constexpr U8 scopedFlag = 0x01;      // RFC 5059 section 4.1: an admin scope zone
enum Type : U8 { hello = 0x20, bootstrap = 0x24, advertisement = 0x28 };

/// A PIM message that is being written.
class Message {
 public:
  explicit Message(U8 type, U8 flags = 0) : bytes_{type, flags, 0, 0} {}

  Message& u8(U32 value) {
    bytes_.push_back(static_cast<U8>(value));
    return *this;
  }
  Message& u16(U32 value) { return u8(value >> 8).u8(value); }
  Message& u32(U32 value) { return u16(value >> 16).u16(value); }
  Message& unicast(IpAddr address) { return u16(0x0100).u32(address.hostWord()); }
  Message& group(Prefix const& range, U8 flags) {
    return u16(0x0100).u8(flags).u8(range.length()).u32(range.address().hostWord());
  }
  Message& rp(IpAddr address, U16 holdtime, U32 priority) {
    return unicast(address).u16(holdtime).u8(priority).u8(0);
  }
  /// The bytes with their checksum.
  std::vector<U8> finish() {
    U16 const sum = pimbsr::wire::checksum(bytes_);
    bytes_[2] = static_cast<U8>(sum >> 8);
    bytes_[3] = static_cast<U8>(sum);
    return bytes_;
  }

 private:
  std::vector<U8> bytes_;
};

IpAddr after(IpAddr first, U32 steps) { return IpAddr::fromHost(first.hostWord() + steps); }

Frame frameOf(Plan const& plan, IpAddr source, std::vector<U8> const& pim) {
  std::vector<U8> packet;
  bool const isMulticast = plan.destination.isMulticast();
  pimbsr::wire::Ipv4Header const header{
      .source = source, .destination = plan.destination, .ttl = static_cast<U8>(isMulticast ? 1 : 64)};
  if (!pimbsr::wire::encodeIpv4(header, pim, packet)) throw std::invalid_argument("a message is too long");
  Frame frame(plan.mac);
  frame.insert(frame.end(), {2, 0, 0, 0, 0, 1, 8, 0});
  frame.insert(frame.end(), packet.begin(), packet.end());
  return frame;
}

/// The source of message number `n`.
IpAddr sourceOf(Plan const& plan, U32 n) { return after(plan.source, n % std::max<U32>(1, plan.sources)); }

Frame frameOf(Plan const& plan, U32 n, Message& message) {
  return frameOf(plan, sourceOf(plan, n), message.finish());
}

// Hellos ----------------------------------------------------------------------------------------------

Message helloOf(U16 holdtime, U32 generation) {
  Message message(hello);
  message.u16(1).u16(2).u16(holdtime).u16(19).u16(4).u32(1).u16(20).u16(4).u32(generation);
  return message;
}

/// One Hello of each source.
std::vector<Frame> hellos(Plan const& plan) {
  std::vector<Frame> frames;
  for (U32 n = 0; n < plan.sources; ++n) {
    Message message = helloOf(plan.holdtime, 7);
    frames.push_back(frameOf(plan, n, message));
  }
  return frames;
}

/// Hellos of which each has another Generation ID than the one before: a neighbor that restarts.
std::vector<Frame> restarts(Plan const& plan) {
  std::vector<Frame> frames;
  for (U32 n = 0; n < plan.count; ++n) {
    Message message = helloOf(plan.holdtime, n + 1);
    frames.push_back(frameOf(plan, n, message));
  }
  return frames;
}

/// Each source comes, and goes with a goodbye Hello.
std::vector<Frame> goodbyes(Plan const& plan) {
  std::vector<Frame> frames;
  for (U32 n = 0; n < plan.sources; ++n) {
    for (U16 holdtime : {plan.holdtime, U16{0}}) {
      Message message = helloOf(holdtime, 7);
      frames.push_back(frameOf(plan, n, message));
    }
  }
  return frames;
}

// Bootstrap Messages ----------------------------------------------------------------------------------

Message bootstrapOf(Plan const& plan, U32 tag, U8 flags = 0) {
  Message message(bootstrap, flags);
  message.u16(tag).u8(30).u8(plan.priority).unicast(plan.bsr);
  return message;
}

U8 scopeOf(Prefix const& range) { return range.length() > 4 ? scopedFlag : U8{0}; }

/// One RP in one range, message after message with another fragment tag.
std::vector<Frame> bootstraps(Plan const& plan) {
  std::vector<Frame> frames;
  for (U32 n = 0; n < plan.count; ++n) {
    Message message = bootstrapOf(plan, n);
    message.group(plan.range, scopeOf(plan.range)).u8(1).u8(1).u16(0).rp(plan.rp, plan.holdtime, 192);
    frames.push_back(frameOf(plan, n, message));
  }
  return frames;
}

/// All RPs in the plan's range, as many in a message as it holds.
std::vector<Frame> rpsOf(Plan const& plan, std::vector<IpAddr> const& rps, U16 holdtime) {
  std::vector<Frame> frames;
  for (U32 first = 0; first < rps.size(); first += rpsOfMessage) {
    U32 const here = std::min<U32>(rpsOfMessage, static_cast<U32>(rps.size()) - first);
    Message message = bootstrapOf(plan, first / rpsOfMessage);
    message.group(plan.range, scopeOf(plan.range)).u8(here).u8(here).u16(0);
    for (U32 n = first; n < first + here; ++n) message.rp(rps[n], holdtime, 192);
    frames.push_back(frameOf(plan, first / rpsOfMessage, message));
  }
  return frames;
}

/// The plan's RP in each range, as many ranges in a message as it holds.
std::vector<Frame> rangesOf(Plan const& plan, std::vector<Prefix> const& ranges) {
  std::vector<Frame> frames;
  for (U32 first = 0; first < ranges.size(); first += rangesOfMessage) {
    U32 const end = std::min<U32>(first + rangesOfMessage, static_cast<U32>(ranges.size()));
    Message message = bootstrapOf(plan, first / rangesOfMessage);
    for (U32 n = first; n < end; ++n)
      message.group(ranges[n], 0).u8(1).u8(1).u16(0).rp(plan.rp, plan.holdtime, 192);
    frames.push_back(frameOf(plan, first / rangesOfMessage, message));
  }
  return frames;
}

std::vector<IpAddr> addressesInARow(IpAddr first, U32 count) {
  std::vector<IpAddr> addresses;
  for (U32 n = 0; n < count; ++n) addresses.push_back(after(first, n));
  return addresses;
}

std::vector<Frame> chosenRps(Plan const& plan) {
  return rpsOf(plan, chosenAddresses(plan.count, plan.bits), plan.holdtime);
}

std::vector<Frame> ordinaryRps(Plan const& plan) {
  return rpsOf(plan, addressesInARow(plan.rp, plan.count), plan.holdtime);
}

std::vector<Frame> chosenRangesKind(Plan const& plan) {
  return rangesOf(plan, chosenRanges(plan.count, plan.bits));
}

std::vector<Frame> ordinaryRanges(Plan const& plan) {
  std::vector<Prefix> ranges;
  for (U32 n = 0; n < plan.count; ++n) ranges.push_back(Prefix(IpAddr::fromHost(0xe1000000 + (n << 8)), 24));
  return rangesOf(plan, ranges);
}

/// RPs that are added and withdrawn, over and over.
std::vector<Frame> rpChurn(Plan const& plan) {
  std::vector<IpAddr> const rps = addressesInARow(plan.rp, plan.count);
  std::vector<Frame> frames = rpsOf(plan, rps, plan.holdtime);
  std::vector<Frame> const withdrawn = rpsOf(plan, rps, 0);
  frames.insert(frames.end(), withdrawn.begin(), withdrawn.end());
  return frames;
}

Prefix zoneNumber(U32 n) { return Prefix(IpAddr::fromHost(0xef000000 + (n << 8)), 24); }

/// Each message names another scope zone.
std::vector<Frame> zones(Plan const& plan) {
  std::vector<Frame> frames;
  for (U32 n = 0; n < plan.count; ++n) {
    Plan one = plan;
    one.range = zoneNumber(n);
    Message message = bootstrapOf(one, n);
    message.group(one.range, scopedFlag).u8(1).u8(1).u16(0).rp(plan.rp, plan.holdtime, 192);
    frames.push_back(frameOf(plan, n, message));
  }
  return frames;
}

/// First fragments of messages whose rest never comes: each announces 255 RPs of a range and names 100 of
/// them. A router holds the fragments of one tag for each zone, so many ranges share a tag.
std::vector<Frame> fragments(Plan const& plan) {
  constexpr U32 named = 100, rangesOfTag = 64;
  std::vector<Frame> frames;
  for (U32 n = 0; n < plan.count; ++n) {
    Message message = bootstrapOf(plan, n / rangesOfTag);
    message.group(plan.range, scopeOf(plan.range)).u8(0).u8(0).u16(0);
    Prefix const range(after(plan.range.address(), n % rangesOfTag), 32);
    message.group(range, 0).u8(255).u8(named).u16(0);
    for (U32 rp = 0; rp < named; ++rp) message.rp(after(plan.rp, n * named + rp), plan.holdtime, 192);
    frames.push_back(frameOf(plan, n, message));
  }
  return frames;
}

/// Messages of a few zones. The first ones bring 252 of 255 RPs of a range, and the others name the first of
/// these as often as an MTU holds.
std::vector<Frame> repeats(Plan const& plan) {
  constexpr U32 brought = 84, records = 65;
  constexpr U8 announced = 255;
  std::vector<Frame> frames;
  for (U32 n = 0; n < plan.count; ++n) {
    Message message = bootstrapOf(plan, 7);
    message.group(zoneNumber(n % fewZones), scopedFlag).u8(0).u8(0).u16(0);
    if (n < 3) {
      message.group(plan.range, 0).u8(announced).u8(brought).u16(0);
      for (U32 i = 0; i < brought; ++i) message.rp(after(plan.rp, n * brought + i), plan.holdtime, 192);
    } else {
      for (U32 i = 0; i < records; ++i)
        message.group(plan.range, 0).u8(announced).u8(1).u16(0).rp(plan.rp, plan.holdtime, 192);
    }
    frames.push_back(frameOf(plan, n, message));
  }
  return frames;
}

/// The pieces of one message of each of a few zones, with one tag: each has another range of its zone.
std::vector<Frame> pieces(Plan const& plan) {
  std::vector<Frame> frames;
  for (U32 n = 0; n < plan.count; ++n) {
    Prefix const zone = zoneNumber(n % fewZones);
    Message message = bootstrapOf(plan, 7);
    message.group(zone, scopedFlag).u8(0).u8(0).u16(0);
    message.group(Prefix(after(zone.address(), n / fewZones), 32), 0).u8(1).u8(1).u16(0);
    message.rp(plan.rp, plan.holdtime, 192);
    frames.push_back(frameOf(plan, n, message));
  }
  return frames;
}

// Advertisements --------------------------------------------------------------------------------------

/// One advertisement of each of the RPs, whose address is also its source. Where `other` differs from the
/// plan's priority, a second round has it: each RP goes from one priority to the other.
std::vector<Frame> advertise(Plan const& plan, U8 other) {
  std::vector<Frame> frames;
  for (U8 priority : {plan.priority, other}) {
    for (U32 n = 0; n < plan.count; ++n) {
      Message message(advertisement);
      IpAddr const rp = after(plan.rp, n);
      message.u8(1).u8(priority).u16(plan.holdtime).unicast(rp).group(plan.range, 0);
      frames.push_back(frameOf(plan, rp, message.finish()));
    }
    if (other == plan.priority) break;
  }
  return frames;
}

std::vector<Frame> advertisements(Plan const& plan) { return advertise(plan, plan.priority); }

std::vector<Frame> alternatingAdvertisements(Plan const& plan) {
  return advertise(plan, 255 - plan.priority);
}

// Frames without a message ----------------------------------------------------------------------------

/// Writes the checksum of a frame's PIM message, if it is long enough to have one.
void writeChecksum(Frame& frame) {
  constexpr std::size_t at = 14 + 20;
  if (frame.size() < at + 4) return;
  frame[at + 2] = frame[at + 3] = 0;
  U16 const sum = pimbsr::wire::checksum(std::span(frame).subspan(at));
  frame[at + 2] = static_cast<U8>(sum >> 8);
  frame[at + 3] = static_cast<U8>(sum);
}

/// Real messages with one to four bytes of the PIM message changed; nine in ten have a right checksum.
std::vector<Frame> mutations(Plan const& plan) {
  std::vector<Frame> real;
  for (std::string_view kind : {"bootstraps", "fragments", "hellos", "rp-churn", "zones"}) {
    for (Frame& frame : framesOf(kind, plan)) real.push_back(std::move(frame));
  }
  std::mt19937_64 random(plan.seed);
  std::vector<Frame> frames;
  for (U32 n = 0; n < plan.count; ++n) {
    Frame frame = real[random() % real.size()];
    for (U64 changes = 1 + random() % 4; changes != 0; --changes)
      frame[34 + random() % (frame.size() - 34)] = static_cast<U8>(random());
    if (random() % 10 != 0) writeChecksum(frame);
    frames.push_back(std::move(frame));
  }
  return frames;
}

/// Random bytes after a right IP header, of random length.
std::vector<Frame> garbage(Plan const& plan) {
  std::mt19937_64 random(plan.seed);
  std::vector<Frame> frames;
  for (U32 n = 0; n < plan.count; ++n) {
    std::vector<U8> pim(random() % 200);
    for (U8& byte : pim) byte = static_cast<U8>(random());
    frames.push_back(frameOf(plan, sourceOf(plan, n), pim));
  }
  return frames;
}

struct Kind {
  std::string_view name;
  std::vector<Frame> (*frames)(Plan const&);
};

constexpr Kind table[] = {
    {"advertisements", advertisements},
    {"alternating-advertisements", alternatingAdvertisements},
    {"bootstraps", bootstraps},
    {"chosen-ranges", chosenRangesKind},
    {"chosen-rps", chosenRps},
    {"fragments", fragments},
    {"garbage", garbage},
    {"goodbyes", goodbyes},
    {"hellos", hellos},
    {"mutations", mutations},
    {"ordinary-ranges", ordinaryRanges},
    {"ordinary-rps", ordinaryRps},
    {"pieces", pieces},
    {"repeats", repeats},
    {"restarts", restarts},
    {"rp-churn", rpChurn},
    {"zones", zones},
};

}  // namespace

std::vector<std::string_view> kinds() {
  std::vector<std::string_view> names;
  for (Kind const& kind : table) names.push_back(kind.name);
  return names;
}

std::vector<Frame> framesOf(std::string_view kind, Plan const& plan) {
  auto const* at =
      std::find_if(std::begin(table), std::end(table), [&](Kind const& k) { return k.name == kind; });
  if (at == std::end(table)) throw std::invalid_argument("no kind " + std::string(kind));
  return at->frames(plan);
}

}  // namespace attack

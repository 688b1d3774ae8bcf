#include "cli/replay/Reassembly.h"

#include <algorithm>

#include "runtime/Assert.h"

namespace pimbsr::cli {

using wire::Bytes;
using wire::Reader;

static constexpr std::size_t blockSize = 8;  // the unit of the fragment offset
static constexpr std::size_t headerSize = 20;
static constexpr U16 moreFragments = 0x2000;
static constexpr U16 offsetMask = 0x1fff;

// Fragments -------------------------------------------------------------------------------------------

struct Reassembly::Fragment {
  explicit Fragment(Bytes packet);

  std::size_t end() const { return offset + data.size(); }
  std::size_t firstBlock() const { return offset / blockSize; }
  std::size_t endBlock() const { return (end() + blockSize - 1) / blockSize; }
  /// Whether it can be a part of a packet: all of its bytes were captured, and only the last one ends
  /// anywhere.
  bool isUsable() const {
    return isWhole && !data.empty() && (isLast || data.size() % blockSize == 0) &&
           end() <= wire::maxPacketLength - headerSize;
  }

  wire::Ipv4Header header;
  bool isLast = false;
  bool isWhole = false;
  std::size_t offset = 0;
  Bytes data;
};

Reassembly::Fragment::Fragment(Bytes packet) {
  Reader in(packet);
  std::size_t ownHeader = std::size_t{4} * (in.u8() & 0x0f);
  header.tos = in.u8();
  std::size_t total = in.u16();
  header.identification = in.u16();
  U16 flagsAndOffset = in.u16();
  header.ttl = in.u8();
  in.bytes(3);  // protocol and checksum
  header.source = Lanet::IpAddr::fromHost(in.u32());
  header.destination = Lanet::IpAddr::fromHost(in.u32());
  ZET_ASSERT(in.ok() && ownHeader <= packet.size() && ownHeader <= total, "the header was read before");
  isLast = (flagsAndOffset & moreFragments) == 0;
  isWhole = total <= packet.size();
  offset = blockSize * (flagsAndOffset & offsetMask);
  data = packet.first(std::min(total, packet.size())).subspan(ownHeader);
}

// Packets ---------------------------------------------------------------------------------------------

Reassembly::Packet::Packet(double arrival, Fragment const& fragment, Bytes bytes)
    : time(arrival), first(bytes.begin(), bytes.end()), header(fragment.header) {}

bool Reassembly::Packet::matches(Fragment const& fragment) const {
  wire::Ipv4Header const& other = fragment.header;
  return header.source == other.source && header.destination == other.destination &&
         header.identification == other.identification;
}

/// A fragment that repeats bytes is no contradiction: a capture of all interfaces of a host may have each
/// packet twice.
bool Reassembly::Packet::contradicts(Fragment const& fragment) const {
  if (size != 0 && (fragment.end() > size || (fragment.isLast && fragment.end() != size))) return true;
  if (fragment.isLast && payload.size() > fragment.end()) return true;
  auto from = blocks.begin() + static_cast<std::ptrdiff_t>(std::min(fragment.firstBlock(), blocks.size()));
  auto to = blocks.begin() + static_cast<std::ptrdiff_t>(std::min(fragment.endBlock(), blocks.size()));
  auto repeated = std::count(from, to, true);
  if (repeated == 0) return false;
  if (static_cast<std::size_t>(repeated) != fragment.endBlock() - fragment.firstBlock()) return true;
  return fragment.end() > payload.size() ||
         !std::equal(fragment.data.begin(), fragment.data.end(),
                     payload.begin() + static_cast<std::ptrdiff_t>(fragment.offset));
}

void Reassembly::Packet::copy(Fragment const& fragment) {
  if (payload.size() < fragment.end()) payload.resize(fragment.end());
  if (blocks.size() < fragment.endBlock()) blocks.resize(fragment.endBlock());
  if (blocks[fragment.firstBlock()]) return;
  std::copy(fragment.data.begin(), fragment.data.end(),
            payload.begin() + static_cast<std::ptrdiff_t>(fragment.offset));
  std::fill(blocks.begin() + static_cast<std::ptrdiff_t>(fragment.firstBlock()),
            blocks.begin() + static_cast<std::ptrdiff_t>(fragment.endBlock()), true);
  held += fragment.data.size();
}

void Reassembly::Packet::put(Fragment const& fragment) {
  isBroken = isBroken || !fragment.isUsable() || contradicts(fragment);
  if (isBroken) {
    payload = {};
    blocks = {};
    return;
  }
  copy(fragment);
  if (fragment.isLast) size = fragment.end();
  // The fragment with the start of the payload has the header that counts.
  if (fragment.offset == 0) header = fragment.header;
}

// The whole -------------------------------------------------------------------------------------------

/// The packet of a fragment, which is made if there is none.
Reassembly::Packet& Reassembly::packetOf(double time, Fragment const& fragment, Bytes bytes) {
  auto at = std::find_if(packets_.begin(), packets_.end(),
                         [&](Packet const& packet) { return packet.matches(fragment); });
  return at != packets_.end() ? *at : packets_.emplace_back(time, fragment, bytes);
}

std::vector<U8> Reassembly::add(double time, Bytes bytes) {
  Fragment fragment(bytes);
  Packet& packet = packetOf(time, fragment, bytes);
  packet.put(fragment);
  std::vector<U8> whole;
  if (!packet.isComplete()) return whole;
  bool fits = wire::encodeIpv4(packet.header, packet.payload, whole);
  ZET_ASSERT(fits, "no fragment reached beyond the longest packet");
  packets_.erase(packets_.begin() + (&packet - packets_.data()));
  return whole;
}

std::optional<std::vector<U8>> Reassembly::takeOldest() {
  if (packets_.empty()) return std::nullopt;
  std::vector<U8> fragment = std::move(packets_.front().first);
  packets_.erase(packets_.begin());
  return fragment;
}

std::optional<Reassembly::Lost> Reassembly::takeLost(double time) {
  if (packets_.empty()) return std::nullopt;
  double over = packets_.front().time + maxAge;
  if (over > time && packets_.size() <= maxPackets) return std::nullopt;
  return Lost{.time = std::min(over, time), .fragment = *takeOldest()};
}

}  // namespace pimbsr::cli

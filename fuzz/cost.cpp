// The work of a packet, in visits of nodes, buckets and words as the meter counts them: whatever a peer
// sends, a packet costs what it names, times the logarithm of what the router keeps. A path whose cost grows
// with what is kept, or with the square of what a packet names, fails here long before it can be felt as
// time.
//
// Work that is due to many packets together, such as the resize of a table, may fall on one of them. So each
// packet and each timer earns a credit, and it is the sum of the visits that stays within the sum of credits.
//
// The input is read as steps: one byte of control, then a packet. The control byte's low bits say how many
// seconds pass first, its high bit that the packet is a short form, whose keys are searched for here: a
// fuzzer finds no hash collisions by itself.

#include <algorithm>
#include <bit>
#include <cstdint>
#include <span>
#include <vector>

#include "agent/Settings.h"
#include "host/Router.h"
#include "runtime/Assert.h"
#include "runtime/Meter.h"
#include "wire/Checksum.h"
#include "wire/Wire.h"

namespace {

namespace Packet = Routing::Pim::Packet;
using Lanet::IpAddr;
using Lanet::IpGenAddr;
using Zet::U32;
using Zet::U64;
using Zet::U8;

static_assert(Zet::Meter::isOn, "this target is built with the meter");

constexpr U32 neighbor = 0xc0000201;  // 192.0.2.1
constexpr U32 own = 0xc0000209;       // 192.0.2.9

class Port : public pimbsr::pim::Port {
 public:
  bool send(Lanet::IntfId const&, std::span<U8 const>) override { return true; }
  IpGenAddr primaryAddress(Lanet::IntfId const&) const override { return IpAddr::fromHost(own); }
  bool isOwnAddress(IpGenAddr const& address) const override {
    return address == IpGenAddr(IpAddr::fromHost(own));
  }
};

class Rpf : public Routing::Pim::PimRpfTable {
 public:
  Routing::Pim::RpfLookupResult doLookup(IpGenAddr const&, IpGenAddr const&) override {
    return {IpAddr::fromHost(neighbor)};
  }
};

class Context : public Zet::Context {
 public:
  void trace(Zet::TraceLine const&) override {}
};

// Packets ---------------------------------------------------------------------------------------------

std::vector<U8> packetOf(std::vector<U8> pim) {
  if (pim.size() >= 4) {
    pim[2] = pim[3] = 0;
    Zet::U16 const sum = pimbsr::wire::checksum(pim);
    pim[2] = static_cast<U8>(sum >> 8);
    pim[3] = static_cast<U8>(sum);
  }
  std::vector<U8> packet;
  pimbsr::wire::Ipv4Header const header{.source = IpAddr::fromHost(neighbor),
                                        .destination = IpAddr::fromHost(0xe000000d)};
  if (!pimbsr::wire::encodeIpv4(header, pim, packet)) packet.clear();
  return packet;
}

/// Addresses whose hash begins with the same 12 bits, by number.
std::vector<U32> const& chosenAddresses() {
  static std::vector<U32> const found = [] {
    std::vector<U32> words;
    for (U32 word = 0x0a000000; words.size() < 2048; ++word) {
      if (Lanet::rhash(IpGenAddr(IpAddr::fromHost(word))) >> 20 == 0xfff) words.push_back(word);
    }
    return words;
  }();
  return found;
}

/// A short form names up to 255 chosen RPs of one range: number of the first, count, range and holdtime.
std::vector<U8> shortForm(std::span<U8 const, 5> form) {
  auto message = Zet::make<Packet::BootstrapMessage>();
  message->bsrAddressIs(IpAddr::fromHost(0xc6336401));
  message->bsrPriorityIs(10);
  message->groupRpDataIs(Zet::make<Packet::BootstrapOptionalData>());
  auto group =
      Zet::make<Packet::BootstrapGroupData>(Lanet::Prefix(IpAddr::fromHost(0xe1000000 + (form[3] << 8)), 24));
  U32 const first = static_cast<U32>(form[0] << 8 | form[1]);
  for (U32 i = 0; i < form[2]; ++i) {
    U32 const word = chosenAddresses()[(first + i) % chosenAddresses().size()];
    group->rpListIs(IpAddr::fromHost(word))->rpHoldtimeIs(static_cast<Zet::U16>(form[4]));
  }
  group->rpCountIs(form[2]);
  group->fragRpCountIs(form[2]);
  message->groupRpData()->groupDataEnq(group);
  std::vector<U8> pim;
  if (!pimbsr::wire::encodeBootstrap(*message, pim)) pim.clear();
  return packetOf(pim);
}

// Credit ----------------------------------------------------------------------------------------------

/// What a router has earned and spent.
class Account {
 public:
  /// Records of 8 bytes at least, each of which is looked for, stored, mirrored, timed and forwarded.
  void earnPacket(std::size_t bytes, U64 kept) { earn(bytes / 8 + 1, kept); }
  void earn(U64 operations, U64 kept) {
    U64 const depth = static_cast<U64>(std::bit_width(kept));
    credit_ += fixed + operations * (perRecord + perRecordAndLevel * depth);
  }
  void check() const {
    U64 const spent = Zet::Meter::visited - start_;
    ZET_ASSERT(spent <= credit_, "the work of packets is within their credit");
  }

 private:
  static constexpr U64 fixed = 5000;  ///< of a packet without records, its zone and its forwarding
  static constexpr U64 perRecord = 200;
  static constexpr U64 perRecordAndLevel = 40;  ///< times the logarithm of what is kept

  U64 const start_ = Zet::Meter::visited;
  U64 credit_ = 20'000;  ///< of making the router
};

class Play {
 public:
  Play() {
    router_.screeningIs(pimbsr::agent::defaultScreening);
    router_.interfaceIs(eth0_, 1500);
    router_.pimStatus()->pimIntf(eth0_)->neighborIs(IpAddr::fromHost(neighbor));
  }

  void step(double seconds, std::vector<U8> const& packet) {
    runTo(context_.now() + seconds);
    account_.earnPacket(packet.size(), kept());
    router_.receive(eth0_, packet);
    account_.check();
  }

  void runTo(double end) {
    while (router_.nextExpiry() <= end) {
      context_.nowIs(router_.nextExpiry());
      U64 const before = kept();
      router_.advance();
      account_.earn(before - std::min(before, kept()) + 1, before);
      earnSweep(before);
      account_.check();
    }
    context_.nowIs(end);
  }

  /// Long enough for all that is kept to run out.
  void finish() { runTo(context_.now() + 3000); }

 private:
  /// Once in a minute all that is kept may be looked at.
  void earnSweep(U64 kept) {
    if (context_.now() < swept_ + 60) return;
    swept_ = context_.now();
    account_.earn(kept, 1);
  }

  /// Timers, of which each RP has one: so a measure of what is kept that costs no walk.
  U64 kept() const { return router_.timerWheel()->armed(); }

  Context context_;
  Port port_;
  pimbsr::host::Router router_{context_, port_, {.rpf = Zet::make<Rpf>()}};
  Lanet::IntfId const eth0_{"eth0"};
  Account account_;
  double swept_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::span<U8 const> rest(data, size);
  chosenAddresses();
  Play play;
  for (int steps = 0; steps < 64 && !rest.empty(); ++steps) {
    U8 const control = rest[0];
    rest = rest.subspan(1);
    if ((control & 0x80) != 0) {
      if (rest.size() < 5) break;
      play.step(control & 0x7f, shortForm(rest.first<5>()));
      rest = rest.subspan(5);
      continue;
    }
    if (rest.size() < 2) break;
    std::size_t const length = std::min<std::size_t>(rest[0] << 8 | rest[1], rest.size() - 2);
    auto const pim = rest.subspan(2, length);
    play.step(control, packetOf({pim.begin(), pim.end()}));
    rest = rest.subspan(2 + length);
  }
  play.finish();
  return 0;
}

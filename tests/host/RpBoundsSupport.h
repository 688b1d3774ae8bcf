#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/PreferredRps.h"
#include "tests/host/IngressSupport.h"

namespace test {

using pimbsr::host::PreferredRps;
using pimbsr::host::standardLimits;
using Zet::Ptr;
using BsmPtr = Ptr<Routing::Pim::Packet::BootstrapMessage>;

inline std::string const all = "224.0.0.0/4";
inline std::string const range = "239.1.0.0/16";

/// 203.0.`block`.`number`.
inline std::string rpNamed(int block, int number) {
  return numbered(numbered("203.0.", block) + ".", number);
}

/// The RPs of 10.0.0.0/8.
inline PreferredRps listed() {
  pimbsr::host::Configuration configuration;
  Acl::IpFilter filter;
  filter.source = addr("10.0.0.0").v4Addr();
  filter.sourceMask = addr("255.0.0.0").v4Addr();
  configuration.accessLists["rps"][10] = {Acl::Action::permit, filter};
  return {configuration, {"rps"}};
}

/// An advertisement for one range or several, from its RP unless a sender is named.
struct Offer {
  std::string rp;
  U8 priority = 100;
  std::vector<std::string> ranges = {range};
  std::string sender = "";
  U16 holdtime = 150;
};

/// One Bootstrap Message that the BSR sent, its fragments put together.
struct SentMessage {
  double time = 0;
  std::map<std::string, std::map<std::string, int>> holdtimes;  ///< by range and RP
  std::map<std::string, int> rpCounts;                          ///< RP Count by range
};

/// An elected BSR on eth0, 192.0.2.9, and a follower that hears what it sends there.
class RpBoundsTest : public testing::Test {
 protected:
  explicit RpBoundsTest(U32 mtu = 9000) {
    for (Router* router : {&bsr, &follower}) router->interfaceIs(intf("eth0"), mtu, {});
    bsr.ingressSettingsIs(standardLimits);
    bsr.routeIs(prefix("192.0.2.9/32").v4Prefix(), {.type = Slosh::Fib::RouteType::local});
    followerRpf->neighbors[addr("192.0.2.9")] = addr("192.0.2.9");
    followerPort.addresses = {{"eth0", "192.0.2.1"}};
    HelloMessage hello{.holdtime = 65535, .generationId = 1};
    bsr.receive(intf("eth0"), packetOf(bytesOf(hello), {.source = "192.0.2.1"}));
    bsr.candidateBsrIs(prefix(all), {.address = addr("192.0.2.9"), .intfId = intf("eth0")});
    run(200);
  }
  void SetUp() override { ASSERT_TRUE(bsr.status()->cbsr(prefix(all))->elected()); }
  void TearDown() override { EXPECT_EQ(context.notificationExceptions(), 0u); }

  /// Moves the clock, with all that is due on the way.
  void run(double seconds) {
    double end = context.now() + seconds;
    for (;;) {
      Router& first = bsr.nextExpiry() <= follower.nextExpiry() ? bsr : follower;
      if (first.nextExpiry() > end) break;
      context.nowIs(first.nextExpiry());
      first.advance();
      deliver();
    }
    context.nowIs(end);
  }

  /// Hands what the BSR sent to the follower.
  void deliver() {
    for (RecordingPort::Packet const& packet : std::exchange(port.sent, {})) {
      auto ip = pimbsr::wire::parseIpv4(packet.bytes);
      auto decoded = pimbsr::wire::decodeMessage(ip->payload, ip->source, ip->destination);
      ASSERT_TRUE(decoded);
      if (auto const* bsm = std::get_if<BsmPtr>(&*decoded)) note(**bsm);
      follower.receive(intf("eth0"), packet.bytes);
    }
    followerPort.sent.clear();
  }

  void note(Routing::Pim::Packet::BootstrapMessage const& message) {
    bool isNew = sent.empty() || sent.back().time != context.now() || lastTag != message.fragmentTag();
    if (isNew) sent.push_back({.time = context.now()});
    lastTag = message.fragmentTag();
    for (auto group = message.groupRpData()->groupDataIterator(); group; ++group) {
      std::string name(group->prefix().stringValue().view());
      sent.back().rpCounts[name] = group->rpCount();
      for (auto rp = group->rpListIterator(); rp; ++rp)
        sent.back().holdtimes[name][std::string(rp->rpAddress().stringValue().view())] = rp->rpHoldtime();
    }
  }

  Reception receive(Offer const& offer) {
    std::vector<Range> ranges;
    for (std::string const& one : offer.ranges) ranges.push_back({one});
    Adv adv{.groups = ranges, .rp = offer.rp, .holdtime = offer.holdtime, .priority = offer.priority};
    std::string sender = offer.sender.empty() ? offer.rp : offer.sender;
    return bsr.receive(intf("eth0"), packetOf(bytesOf(adv), {sender, "192.0.2.9", 60}));
  }
  std::string reasonFor(Offer const& offer) { return std::string(receive(offer).reason); }

  /// Lets RPs 203.0.`block`.1 and on advertise.
  void fill(int block, int count, U8 priority = 100) {
    for (int i = 1; i <= count; ++i) EXPECT_EQ(reasonFor({rpNamed(block, i), priority}), "") << i;
  }

  static Ptr<Routing::Pim::RpCandidateSet> setOf(Router const& router, std::string const& name) {
    auto zone = router.status()->crpStatus(prefix(all));
    return zone ? zone->status()->crpSet(prefix(name)) : nullptr;
  }
  bool has(std::string const& rp, std::string const& name = range) const {
    auto set = setOf(bsr, name);
    return set && set->rp(addr(rp));
  }
  U32 count(std::string const& name = range) const {
    auto set = setOf(bsr, name);
    return set ? set->rpCount() : 0;
  }
  int holdtime(std::string const& rp) const { return setOf(bsr, range)->rp(addr(rp))->holdTime().value(); }
  /// Runs until the BSR sends its next message.
  void runToMessage() {
    std::size_t before = sent.size();
    for (int i = 0; i < 1000 && sent.size() == before; ++i) run(1);
    ASSERT_GT(sent.size(), before);
  }
  void offerOwn(std::string const& name) {
    bsr.candidateRpIs(prefix(name), {.address = addr("192.0.2.9"), .intfId = intf("eth0"), .priority = 200});
  }

  TestContext context;
  RecordingPort port;
  RecordingPort followerPort;
  Ptr<RpfTable> followerRpf = Zet::make<RpfTable>();
  Router bsr{context, port};
  Router follower{context, followerPort, {.rpf = followerRpf}};
  std::vector<SentMessage> sent;
  int lastTag = -1;
};

}  // namespace test

#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "host/Router.h"
#include "tests/support/CrpEngine.h"
#include "tests/support/RecordingPort.h"
#include "wire/Wire.h"

namespace test {

using pimbsr::host::Reception;
using pimbsr::host::Router;
using pimbsr::wire::HelloMessage;
using Zet::U16;
using Zet::U32;
using Zet::U8;

/// A router's outside with one subnet per interface, 192.0.2.0/24 on eth0 and 198.51.100.0/24 on eth1.
class SubnetPort : public RecordingPort {
 public:
  bool send(Lanet::IntfId const&, std::span<U8 const>) override {
    ++sends;
    return true;
  }
  bool isOnSubnet(Lanet::IntfId const& intfId, Lanet::IpGenAddr const& address) const override {
    return prefix(intfId == intf("eth0") ? "192.0.2.0/24" : "198.51.100.0/24").contains(address);
  }
  int sends = 0;
};

/// How a packet is addressed, and with which TTL.
struct PacketPath {
  std::string source = "192.0.2.1";
  std::string destination = "224.0.0.13";
  U8 ttl = 1;
};

inline std::vector<U8> packetOf(std::vector<U8> const& pim, PacketPath const& path) {
  std::vector<U8> packet;
  EXPECT_TRUE(pimbsr::wire::encodeIpv4(
      {.source = addr(path.source).v4Addr(), .destination = addr(path.destination).v4Addr(), .ttl = path.ttl},
      pim, packet));
  return packet;
}

inline std::vector<U8> bytesOf(Bsm const& message) {
  std::vector<U8> pim;
  EXPECT_TRUE(pimbsr::wire::encodeBootstrap(*make(message), pim));
  return pim;
}

inline std::vector<U8> bytesOf(Adv const& message) {
  std::vector<U8> pim;
  EXPECT_TRUE(pimbsr::wire::encodeCrpAdv(*make(message), pim));
  return pim;
}

inline std::vector<U8> bytesOf(HelloMessage const& message) {
  std::vector<U8> pim;
  pimbsr::wire::encodeHello(message, pim);
  return pim;
}

inline std::string numbered(std::string const& start, int number) { return start + std::to_string(number); }

/// RPs 203.0.113.`first` and on.
inline std::vector<Rp> someRps(int first, int count) {
  std::vector<Rp> rps;
  for (int i = 0; i < count; ++i) rps.push_back({numbered("203.0.113.", first + i)});
  return rps;
}

/// A router with Hello on eth0 and eth1, where 192.0.2.1 is the RPF neighbor towards the BSR 10.0.0.1.
class FilteredRouterTest : public testing::Test {
 protected:
  FilteredRouterTest() {
    rpf->neighbors[addr("10.0.0.1")] = addr("192.0.2.1");
    for (char const* name : {"eth0", "eth1"}) router.interfaceIs(intf(name), 1500, {});
  }
  void TearDown() override { EXPECT_EQ(context.notificationExceptions(), 0u); }

  template <class Message>
  Reception offer(Message const& message, PacketPath const& path = {}) {
    return router.receive(intf("eth0"), packetOf(bytesOf(message), path));
  }
  template <class Message>
  std::string reasonFor(Message const& message, PacketPath const& path = {}) {
    return std::string(offer(message, path).reason);
  }
  void receiveHello(std::string const& source, std::vector<Lanet::IpGenAddr> const& others = {}) {
    EXPECT_EQ(reasonFor(HelloMessage{.generationId = 1, .addressList = others}, {source}), "");
  }
  void run(double seconds) {
    double end = context.now() + seconds;
    for (double next = router.nextExpiry(); next <= end; next = router.nextExpiry()) {
      context.nowIs(next);
      router.advance();
    }
    context.nowIs(end);
  }
  U32 neighbors() const { return router.pimStatus()->pimIntf(intf("eth0"))->neighborCount(); }
  /// The RPs that PIM reads of a range.
  std::vector<std::string> read(std::string const& range = "239.1.0.0/16") const {
    std::vector<std::string> found;
    auto set = router.rpCandidateStatus()->crpSet(prefix(range));
    if (!set) return found;
    for (auto rp = set->rpIterator(); rp; ++rp) found.emplace_back(rp->address().stringValue().view());
    std::sort(found.begin(), found.end());
    return found;
  }
  void lead() {
    router.routeIs(prefix("192.0.2.9/32").v4Prefix(), {.type = Slosh::Fib::RouteType::local});
    router.candidateBsrIs(prefix("224.0.0.0/4"), {.address = addr("192.0.2.9"), .intfId = intf("eth0")});
    run(200);
    ASSERT_TRUE(router.status()->cbsr(prefix("224.0.0.0/4"))->elected());
  }

  TestContext context;
  SubnetPort port;
  Zet::Ptr<RpfTable> rpf = Zet::make<RpfTable>();
  Router router{context, port, {.rpf = rpf}};
};

inline Bsm const ordinary{.groups = {{"224.0.0.0/4", {{"203.0.113.1"}}}}};

inline Bsm scoped(std::string const& zone) { return {.groups = {{zone, {}, scopedFlag}}}; }

}  // namespace test

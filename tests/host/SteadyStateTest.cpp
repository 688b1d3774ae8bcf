// A message that repeats what is known is what a router handles all day: it must not allocate.

#include <cstdlib>
#include <new>

#include "host/Router.h"
#include "tests/support/Engine.h"
#include "tests/support/Messages.h"
#include "wire/Wire.h"

static int allocations = 0;

void* operator new(std::size_t size) {
  ++allocations;
  void* memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace test {
namespace {

namespace wire = pimbsr::wire;
using Zet::Ptr;
using Zet::U8;

/// Counts what is sent.
class CountingPort : public pimbsr::pim::Port {
 public:
  bool send(Lanet::IntfId const&, std::span<U8 const>) override {
    ++sent;
    return true;
  }
  Lanet::IpGenAddr primaryAddress(Lanet::IntfId const&) const override { return own_; }
  bool isOwnAddress(Lanet::IpGenAddr const& address) const override { return address == own_; }

  int sent = 0;

 private:
  Lanet::IpGenAddr own_ = addr("192.0.2.9");
};

/// Two ranges of the global zone, and five of a scoped one.
Bsm const global{.groups = {{"224.0.0.0/4", {{"203.0.113.1"}, {"203.0.113.2"}}},
                            {"232.0.0.0/8", {{"203.0.113.1", 200, 7}}, bidirFlag}}};
Bsm const scoped{.groups = {{"239.0.0.0/8", {}, scopedFlag},
                            {"239.1.0.0/16", {{"203.0.113.1"}}},
                            {"239.2.0.0/16", {{"203.0.113.2"}}},
                            {"239.3.0.0/16", {{"203.0.113.3"}}},
                            {"239.4.0.0/16", {{"203.0.113.4"}}}}};

class SteadyStateTest : public testing::Test {
 protected:
  SteadyStateTest() {
    rpf->neighbors[addr("10.0.0.1")] = addr("192.0.2.1");
    for (char const* name : {"eth0", "eth1"}) {
      router.interfaceIs(intf(name), 1500);
      router.pimStatus()->pimIntf(intf(name))->neighborIs(addr("192.0.2.1"));
    }
  }
  void TearDown() override { EXPECT_EQ(context.notificationExceptions(), 0u); }

  /// Moves the clock on, so that each expiry and each hold timer does change.
  void later() { context.nowIs(context.now() + 1); }
  double expires(Lanet::IpGenPrefix const& range) const {
    return router.rpCandidateStatus()->crpSet(range)->rp(addr("203.0.113.1"))->expires();
  }

  Zet::Context context;
  CountingPort port;
  Ptr<RpfTable> rpf = Zet::make<RpfTable>();
  pimbsr::host::Router router{context, port, rpf};
};

std::vector<U8> packetOf(Bsm const& told) {
  std::vector<U8> pim;
  std::vector<U8> packet;
  EXPECT_TRUE(wire::encodeBootstrap(*make(told), pim));
  EXPECT_TRUE(wire::encodeIpv4({addr(told.source).v4Addr(), addr(told.destination).v4Addr()}, pim, packet));
  return packet;
}

template <class Action>
int allocationsOf(Action const& action) {
  int const before = allocations;
  action();
  return allocations - before;
}

TEST_F(SteadyStateTest, CountSeesAllocations) {
  EXPECT_EQ(allocationsOf([] { Zet::make<Routing::Pim::Packet::BootstrapMessage>(); }), 1);
}

TEST_F(SteadyStateTest, RefreshOfStoredRpsAllocatesNothing) {
  Lanet::IntfId const eth0 = intf("eth0");
  Lanet::IpGenPrefix const range = prefix("232.0.0.0/8");
  router.receive(eth0, packetOf(global));
  double const expired = expires(range);
  Ptr<Routing::Pim::Packet::BootstrapMessage> const repeated = make(global);
  later();
  Zet::Context::Scope scope(context);
  Lanet::IpGenPrefix const zone = prefix("224.0.0.0/4");
  EXPECT_EQ(allocationsOf([&] { router.root()->storeRpSet(zone, repeated, false); }), 0);
  EXPECT_EQ(expires(range), expired + 1);
}

/// From the bytes in to the bytes out, of two interfaces.
TEST_F(SteadyStateTest, RepeatedMessageAllocatesItsRecordsAndNothingElse) {
  Lanet::IntfId const eth0 = intf("eth0");
  for (Bsm const& told : {global, scoped}) {
    std::vector<U8> const packet = packetOf(told);
    Lanet::IpGenPrefix const range = prefix(told.groups[1].prefix);
    auto receive = [&] { EXPECT_TRUE(router.receive(eth0, packet).accepted()); };
    auto decode = [&] {
      auto ip = wire::parseIpv4(packet);
      EXPECT_TRUE(wire::decodeMessage(ip->payload, ip->source, ip->destination));
    };
    receive();
    receive();
    later();
    double const expired = expires(range);
    int const sent = port.sent;
    EXPECT_EQ(allocationsOf(receive), allocationsOf(decode));
    EXPECT_EQ(expires(range), expired + 1);
    EXPECT_EQ(port.sent, sent + 2);
  }
}

}  // namespace
}  // namespace test

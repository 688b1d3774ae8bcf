// What a router does all day must allocate no more with all corrections than the machines do by themselves.

#include "host/Corrections.h"
#include "tests/host/IngressSupport.h"
#include "tests/support/Allocations.h"

namespace test {
namespace {

using pimbsr::host::allCorrections;
using pimbsr::host::CorrectionSettings;

constexpr int rounds = 5;  // after which nothing is new
constexpr double bsPeriod = 60;

/// An outside that allocates nothing itself.
class SteadyPort final : public pimbsr::pim::Port {
 public:
  bool send(Lanet::IntfId const&, std::span<U8 const>) override {
    ++sends;
    return true;
  }
  Lanet::IpGenAddr primaryAddress(Lanet::IntfId const&) const override { return own_; }
  bool isOwnAddress(Lanet::IpGenAddr const& address) const override { return address == own_; }

  int sends = 0;

 private:
  Lanet::IpGenAddr const own_ = addr("192.0.2.9");
};

/// A router with traces off, as an operator has it, and a neighbor on each of its interfaces.
class SteadyRouter {
 public:
  explicit SteadyRouter(CorrectionSettings const& corrections) {
    rpf->neighbors[addr("10.0.0.1")] = addr("192.0.2.1");
    for (char const* name : {"eth0", "eth1"}) {
      router.interfaceIs(intf(name), 1500);
      router.pimStatus()->pimIntf(intf(name))->neighborIs(addr("192.0.2.1"));
    }
    router.correctionsAre(corrections);
  }

  /// The allocations of an accepted packet.
  int receive(std::vector<U8> const& packet) {
    Lanet::IntfId const eth0 = intf("eth0");
    bool isAccepted = false;
    int const made = allocationsOf([&] { isAccepted = router.receive(eth0, packet).accepted(); });
    EXPECT_TRUE(isAccepted);
    return made;
  }
  /// The allocations of the timers that expire meanwhile.
  int run(double seconds) {
    double const end = context.now() + seconds;
    int const made = allocationsOf([&] {
      for (double next = router.nextExpiry(); next <= end; next = router.nextExpiry()) {
        context.nowIs(next);
        router.advance();
      }
    });
    context.nowIs(end);
    return made;
  }
  void lead() {
    router.routeIs(prefix("192.0.2.9/32").v4Prefix(), {.type = Slosh::Fib::RouteType::local});
    router.candidateBsrIs(prefix("224.0.0.0/4"), {.address = addr("192.0.2.9"), .intfId = intf("eth0")});
    run(2 * bsPeriod);
  }

  Zet::Context context;
  SteadyPort port;
  Zet::Ptr<RpfTable> rpf = Zet::make<RpfTable>();
  Router router{context, port, {.rpf = rpf}};
};

// A follower ----------------------------------------------------------------------------------------------

struct Repeated {
  std::string name;
  std::vector<Bsm> fragments;  ///< of one message, which the BSR sends again and again
};

class SteadyFollower : public testing::TestWithParam<Repeated> {
 protected:
  /// The allocations of one message, of which all RPs are known.
  static int allocations(CorrectionSettings const& corrections) {
    SteadyRouter router(corrections);
    int made = 0;
    for (int round = 1; round <= rounds; ++round) {
      made = router.run(bsPeriod);
      for (Bsm fragment : GetParam().fragments) {
        fragment.tag = static_cast<U16>(round);
        made += router.receive(packetOf(bytesOf(fragment), {}));
      }
    }
    EXPECT_GT(router.port.sends, 0);
    return made;
  }
};

TEST_P(SteadyFollower, AllocatesNoMoreForARepeatedMessageThanTheMachinesAlone) {
  EXPECT_LE(allocations(allCorrections), allocations({}));
}

Repeated const repeated[] = {
    {"ofTheGlobalZone", {{.groups = {{"239.1.0.0/16", someRps(1, 5)}, {"232.0.0.0/8", someRps(1, 2)}}}}},
    {"ofAScopedZone", {{.groups = {{"239.0.0.0/8", {}, scopedFlag}, {"239.1.0.0/16", someRps(1, 5)}}}}},
    {"ofBidirectionalRanges", {{.groups = {{"239.1.0.0/16", someRps(1, 5), bidirFlag}}}}},
    {"inFragments",
     {{.groups = {{"239.1.0.0/16", someRps(1, 5)}}},
      {.groups = {{"239.2.0.0/16", someRps(1, 5)}}},
      {.groups = {{"239.3.0.0/16", someRps(1, 5)}}}}},
};
INSTANTIATE_TEST_SUITE_P(Messages, SteadyFollower, testing::ValuesIn(repeated),
                         [](auto const& message) { return message.param.name; });

// A BSR ---------------------------------------------------------------------------------------------------

TEST(SteadyBsr, AllocatesNoMoreInAPeriodThanTheMachinesAlone) {
  Adv const adv{.groups = {{"239.1.0.0/16"}, {"239.2.0.0/16"}}, .bsr = "192.0.2.9"};
  std::vector<U8> const packet =
      packetOf(bytesOf(adv), {.source = "203.0.113.1", .destination = "192.0.2.9", .ttl = 9});
  auto allocations = [&](CorrectionSettings const& corrections) {
    SteadyRouter router(corrections);
    router.lead();
    int made = 0;
    for (int round = 1; round <= rounds; ++round) {
      int const sends = router.port.sends;
      made = router.receive(packet) + router.run(bsPeriod);
      EXPECT_GT(router.port.sends, sends);
    }
    return made;
  };
  EXPECT_LE(allocations(allCorrections), allocations({}));
}

}  // namespace
}  // namespace test

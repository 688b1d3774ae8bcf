#include "host/Quotas.h"
#include "host/RouterParts.h"

#include <string>
#include <vector>

#include "tests/host/IngressSupport.h"

namespace test {
namespace {

class QuotasTest : public FilteredRouterTest {};

// Neighbors ---------------------------------------------------------------------------------------------

TEST_F(QuotasTest, NeighborBeyondTheQuotaIsDroppedAndKnownOnesStay) {
  router.ingressSettingsIs({.neighborsPerInterface = 3});
  for (int i = 1; i <= 3; ++i) receiveHello(numbered("192.0.2.", i));
  EXPECT_EQ(reasonFor(HelloMessage{}, {"192.0.2.4"}), "neighbor-quota");
  EXPECT_EQ(neighbors(), 3u);
  for (int i = 1; i <= 3; ++i) receiveHello(numbered("192.0.2.", i));
  EXPECT_EQ(reasonFor(HelloMessage{.holdtime = 0}, {"192.0.2.4"}), "");
  EXPECT_EQ(reasonFor(HelloMessage{.holdtime = 0}, {"192.0.2.2"}), "");
  receiveHello("192.0.2.4");
  EXPECT_EQ(neighbors(), 3u);
}

TEST_F(QuotasTest, FurtherAddressesCountAsNeighborsDo) {
  router.ingressSettingsIs({.neighborsPerInterface = 4});
  receiveHello("192.0.2.1", {addr("192.0.2.51"), addr("192.0.2.52")});
  receiveHello("192.0.2.2");
  HelloMessage more{.addressList = {addr("192.0.2.61")}};
  EXPECT_EQ(reasonFor(more, {"192.0.2.2"}), "neighbor-quota");
  EXPECT_EQ(reasonFor(more, {"192.0.2.3"}), "neighbor-quota");
  receiveHello("192.0.2.1", {addr("192.0.2.51"), addr("192.0.2.53")});
  receiveHello("192.0.2.1", {addr("192.0.2.51"), addr("192.0.2.53"), addr("192.0.2.1")});
  receiveHello("192.0.2.1", {addr("192.0.2.51")});
  receiveHello("192.0.2.2", {addr("192.0.2.61")});
}

TEST_F(QuotasTest, BoundOfNeighborsIsOfEachInterface) {
  router.ingressSettingsIs({.neighborsPerInterface = 1});
  receiveHello("192.0.2.1");
  EXPECT_EQ(router.receive(intf("eth1"), packetOf(bytesOf(HelloMessage{}), {"198.51.100.1"})).reason, "");
}

// A full table of neighbors -----------------------------------------------------------------------------

/// A table that is full of neighbors which never expire, as forged Hellos can make it.
class FullTableTest : public FilteredRouterTest {
 protected:
  static constexpr int max = 256;

  FullTableTest() {
    router.ingressSettingsIs({.neighborsPerInterface = max});
    for (int i = 0; i < max; ++i) EXPECT_EQ(hear(other(i)), "");
    EXPECT_EQ(neighbors(), static_cast<U32>(max));
  }
  static std::string other(int i) { return numbered("10.0.", i / 128) + numbered(".", 1 + i % 128); }
  std::string hear(std::string const& source, std::vector<Lanet::IpGenAddr> const& others = {}) {
    return reasonFor(HelloMessage{.holdtime = 0xffff, .generationId = 1, .addressList = others}, {source});
  }
  bool isNeighbor(std::string const& address) const {
    return router.pimStatus()->pimIntf(intf("eth0"))->neighbor(addr(address)) != nullptr;
  }
};

TEST_F(FullTableTest, NewNeighborDisplacesOneThatIsSilentForMoreThan105SecondsWhateverItsHoldtime) {
  struct Case {
    double wait;  ///< seconds since the case before
    char const* reason;
  };
  for (Case const& c : {Case{0, "neighbor-quota"}, {104, "neighbor-quota"}, {1, "neighbor-quota"}, {1, ""}}) {
    run(c.wait);
    EXPECT_EQ(hear("192.0.2.1"), c.reason) << c.wait;
    EXPECT_EQ(isNeighbor("192.0.2.1"), *c.reason == '\0');
  }
  EXPECT_EQ(neighbors(), static_cast<U32>(max));
}

TEST_F(FullTableTest, NeighborsThatKeepSendingStayAndTheOneSilentForLongestIsDisplaced) {
  for (int round = 0; round < 4; ++round) {
    run(30);
    for (int i = 0; i < max; ++i) {
      bool isSilent = i == 17 || (i == 5 && round > 0);
      EXPECT_EQ(isSilent ? "" : hear(other(i)), "");
    }
  }
  EXPECT_EQ(hear("192.0.2.1"), "");
  EXPECT_FALSE(isNeighbor(other(17)));
  EXPECT_EQ(hear("192.0.2.2"), "neighbor-quota") << "the other is silent for 90 seconds";
  run(16);
  EXPECT_EQ(hear("192.0.2.2"), "");
  EXPECT_FALSE(isNeighbor(other(5)));
  EXPECT_EQ(hear("192.0.2.3"), "neighbor-quota");
  EXPECT_EQ(neighbors(), static_cast<U32>(max));
}

TEST_F(FullTableTest, HelloWithSeveralAddressesDisplacesAsManyOrNone) {
  run(100);
  for (int i = 2; i < max; ++i) EXPECT_EQ(hear(other(i)), "");
  run(6);
  std::vector<Lanet::IpGenAddr> const more = {addr("192.0.2.51"), addr("192.0.2.52")};
  EXPECT_EQ(hear("192.0.2.1", more), "neighbor-quota");
  EXPECT_EQ(neighbors(), static_cast<U32>(max));
  EXPECT_EQ(hear("192.0.2.1", {more[0]}), "");
  EXPECT_EQ(neighbors(), static_cast<U32>(max - 1));
  for (int i : {0, 1}) EXPECT_FALSE(isNeighbor(other(i)));
}

TEST_F(FullTableTest, KnownNeighborThatListsMoreAddressesDisplacesOthersAndNotItself) {
  run(106);
  EXPECT_EQ(hear(other(0), {addr("192.0.2.51")}), "");
  EXPECT_TRUE(isNeighbor(other(0)));
  EXPECT_FALSE(isNeighbor(other(1)));
  EXPECT_EQ(neighbors(), static_cast<U32>(max - 1));
}

TEST_F(FullTableTest, HelloThatMakesNoNeighborDisplacesNone) {
  run(106);
  for (char const* source : {"0.0.0.0", "224.0.0.5", "192.0.2.9"}) hear(source);
  EXPECT_EQ(reasonFor(HelloMessage{.holdtime = 0}, {"192.0.2.1"}), "");
  for (int i = 0; i < max; ++i) EXPECT_TRUE(isNeighbor(other(i)));
}

TEST_F(FullTableTest, TableBeyondALoweredBoundDoesNotGrow) {
  router.ingressSettingsIs({.neighborsPerInterface = 3});
  EXPECT_EQ(hear("192.0.2.1"), "neighbor-quota");
  run(106);
  EXPECT_EQ(hear("192.0.2.1"), "");
  EXPECT_EQ(neighbors(), static_cast<U32>(max));
}

TEST_F(FullTableTest, TableWithoutABoundDisplacesNone) {
  router.ingressSettingsIs({});
  run(106);
  EXPECT_EQ(hear("192.0.2.1"), "");
  EXPECT_EQ(neighbors(), static_cast<U32>(max + 1));
}

TEST_F(FullTableTest, InterfaceThatIsMadeLaterHasTheSameBound) {
  router.interfaceDel(intf("eth0"));
  router.interfaceIs(intf("eth0"), 1500, {});
  for (int i = 0; i < max; ++i) EXPECT_EQ(hear(other(i)), "");
  EXPECT_EQ(hear("192.0.2.1"), "neighbor-quota");
}

// Zones -------------------------------------------------------------------------------------------------

TEST_F(QuotasTest, ZoneBeyondTheQuotaIsDroppedAndKnownOnesStay) {
  router.ingressSettingsIs({.learnedZones = 2});
  EXPECT_EQ(reasonFor(scoped("239.1.0.0/16")), "");
  EXPECT_EQ(reasonFor(scoped("239.2.0.0/16")), "");
  EXPECT_EQ(reasonFor(scoped("239.3.0.0/16")), "zone-quota");
  EXPECT_EQ(reasonFor(scoped("239.1.0.0/16")), "");
  EXPECT_EQ(reasonFor(scoped("239.2.0.0/16")), "");
  EXPECT_FALSE(router.status()->bootstrapRouter(prefix("239.3.0.0/16")));
}

TEST_F(QuotasTest, GlobalZoneAndOwnCandidaciesAreNoLearnedZones) {
  router.ingressSettingsIs({.learnedZones = 1});
  router.candidateBsrIs(prefix("239.9.0.0/16"), {.address = addr("192.0.2.9"), .intfId = intf("eth0")});
  EXPECT_EQ(reasonFor(ordinary), "");
  EXPECT_EQ(reasonFor(scoped("239.9.0.0/16")), "");
  EXPECT_EQ(reasonFor(scoped("239.1.0.0/16")), "");
  EXPECT_EQ(reasonFor(scoped("239.2.0.0/16")), "zone-quota");
  EXPECT_EQ(reasonFor(ordinary), "");
}

TEST_F(QuotasTest, ForgottenZoneMakesRoomAndLeavesNoState) {
  router.ingressSettingsIs({.learnedZones = 1});
  for (int i = 1; i <= 5; ++i) {
    EXPECT_EQ(reasonFor(scoped(numbered("239.", i) + ".0.0/16")), "");
    EXPECT_EQ(reasonFor(scoped("239.77.0.0/16")), "zone-quota");
    run(130 + 1299);
    EXPECT_EQ(reasonFor(scoped("239.77.0.0/16")), "zone-quota");
    run(2);
  }
  EXPECT_LE(pimbsr::host::partsOf(router).gate->lastBsmCount(), 1u);
}

TEST_F(QuotasTest, MessageThatTheEngineDropsLearnsNoZone) {
  router.ingressSettingsIs({.learnedZones = 1});
  for (int i = 1; i <= 9; ++i) {
    EXPECT_EQ(reasonFor(scoped(numbered("239.", i) + ".0.0/16"), {"192.0.2.2"}), "not-rpf-neighbor");
  }
  EXPECT_EQ(reasonFor(scoped("239.1.0.0/16")), "");
}

// Fragments ---------------------------------------------------------------------------------------------

/// One fragment that names some RPs of `announced` of a range, under a tag.
Bsm fragment(U16 tag, std::vector<Rp> const& rps, int announced, std::string const& range = "224.0.0.0/4") {
  return {.groups = {{range, rps, 0, announced, static_cast<int>(rps.size())}}, .tag = tag};
}

TEST_F(QuotasTest, FragmentBeyondTheQuotaIsDropped) {
  router.ingressSettingsIs({.fragmentRps = 6});
  EXPECT_EQ(reasonFor(fragment(1, someRps(1, 4), 5)), "");
  EXPECT_EQ(reasonFor(fragment(1, someRps(1, 3), 5, "239.0.0.0/8")), "fragment-quota");
  EXPECT_EQ(reasonFor(fragment(1, someRps(1, 2), 5, "239.0.0.0/8")), "");
  EXPECT_EQ(reasonFor(fragment(1, someRps(1, 1), 5, "238.0.0.0/8")), "fragment-quota");
}

TEST_F(QuotasTest, NextMessageOfTheBsrFreesTheFragmentsOfTheOneBefore) {
  router.ingressSettingsIs({.fragmentRps = 4});
  EXPECT_EQ(reasonFor(fragment(1, someRps(1, 4), 5)), "");
  EXPECT_EQ(reasonFor(fragment(2, someRps(1, 4), 5)), "fragment-quota");
  EXPECT_EQ(reasonFor(fragment(2, someRps(1, 4), 5)), "");
}

TEST_F(QuotasTest, KnownFragmentAndWholeMessagePassAtTheBound) {
  router.ingressSettingsIs({.fragmentRps = 4});
  EXPECT_EQ(reasonFor(fragment(1, someRps(1, 4), 5)), "");
  EXPECT_EQ(reasonFor(fragment(1, someRps(1, 4), 5)), "");
  EXPECT_EQ(reasonFor(fragment(1, someRps(1, 2), 5)), "");
  EXPECT_EQ(reasonFor(Bsm{.groups = {{"224.0.0.0/4", someRps(1, 9)}}}), "");
}

TEST_F(QuotasTest, FragmentsThatAgedOutMakeRoom) {
  router.ingressSettingsIs({.fragmentRps = 4});
  EXPECT_EQ(reasonFor(fragment(1, someRps(1, 4), 5)), "");
  EXPECT_EQ(reasonFor(fragment(2, someRps(1, 1), 5)), "fragment-quota");
  run(40);
  EXPECT_EQ(reasonFor(fragment(2, someRps(1, 4), 5)), "");
}

// RPs ---------------------------------------------------------------------------------------------------

TEST_F(QuotasTest, RpBeyondTheQuotaIsDroppedAndKnownOnesAreRenewed) {
  router.ingressSettingsIs({.rps = 5});
  Bsm full{.groups = {{"224.0.0.0/4", someRps(1, 3)}, {"239.0.0.0/8", someRps(1, 2)}}};
  Bsm over = full;
  over.groups[1].rps = someRps(1, 3);
  EXPECT_EQ(reasonFor(over), "rp-quota");
  EXPECT_EQ(reasonFor(full), "");
  for (int second = 0; second < 200; second += 50) {
    run(50);
    EXPECT_EQ(reasonFor(over), "rp-quota");
    EXPECT_EQ(reasonFor(full), "");
  }
  EXPECT_EQ(router.rpCandidateStatus()->crpSet(prefix("239.0.0.0/8"))->rpCount(), 2u);
}

TEST_F(QuotasTest, RepeatingWhatIsKnownNeverReachesTheQuota) {
  router.ingressSettingsIs({.rps = 10});
  Bsm full{.groups = {{"224.0.0.0/4", someRps(1, 9)}}};
  for (int i = 0; i < 100; ++i) ASSERT_EQ(reasonFor(full), "") << i;
  EXPECT_EQ(reasonFor(Bsm{.groups = {{"224.0.0.0/4", someRps(10, 1)}}}), "");
  EXPECT_EQ(reasonFor(Bsm{.groups = {{"224.0.0.0/4", someRps(11, 1)}}}), "rp-quota");
}

TEST_F(QuotasTest, WithdrawnRpMakesRoomWithinASecond) {
  router.ingressSettingsIs({.rps = 3});
  EXPECT_EQ(reasonFor(Bsm{.groups = {{"224.0.0.0/4", someRps(1, 3)}}}), "");
  Bsm other{.groups = {{"224.0.0.0/4", someRps(4, 1)}}};
  EXPECT_EQ(reasonFor(other), "rp-quota");
  EXPECT_EQ(reasonFor(Bsm{.groups = {{"224.0.0.0/4", {{"203.0.113.1", 0}}}}}), "");
  run(1);
  EXPECT_EQ(reasonFor(other), "");
  EXPECT_EQ(reasonFor(Bsm{.groups = {{"224.0.0.0/4", someRps(5, 1)}}}), "rp-quota");
}

TEST_F(QuotasTest, RangeWithoutRpsCostsAsMuchAsOneRp) {
  router.ingressSettingsIs({.rps = 2});
  auto withdrawal = [](int i) {
    return Bsm{.groups = {{numbered("239.", i) + ".0.0/16", {{"203.0.113.1", 0}}}}};
  };
  EXPECT_EQ(reasonFor(withdrawal(1)), "");
  EXPECT_EQ(reasonFor(withdrawal(2)), "");
  EXPECT_EQ(reasonFor(withdrawal(3)), "rp-quota");
  EXPECT_EQ(reasonFor(withdrawal(2)), "");
  EXPECT_EQ(router.status()->crpStatus(prefix("224.0.0.0/4"))->status()->crpSetCount(), 2u);
}

TEST_F(QuotasTest, FragmentThatCompletesARangeBringsItsWholeRange) {
  router.ingressSettingsIs({.rps = 5});
  EXPECT_EQ(reasonFor(fragment(1, someRps(1, 3), 6)), "");
  EXPECT_EQ(reasonFor(fragment(1, someRps(4, 3), 6)), "rp-quota");
  EXPECT_EQ(reasonFor(fragment(2, someRps(1, 3), 5)), "");
  EXPECT_EQ(reasonFor(fragment(2, someRps(4, 2), 5)), "");
  EXPECT_EQ(router.rpCandidateStatus()->crpSet(prefix("224.0.0.0/4"))->rpCount(), 5u);
  EXPECT_EQ(reasonFor(fragment(3, someRps(1, 3), 5)), "");
  EXPECT_EQ(reasonFor(fragment(3, someRps(4, 2), 5)), "");
}

TEST_F(QuotasTest, StoredFragmentsCountOnceHoweverManyRecordsNameTheirRange) {
  router.ingressSettingsIs({.rps = 12});
  EXPECT_EQ(reasonFor(fragment(1, someRps(1, 4), 6)), "");
  Bsm again = fragment(1, someRps(1, 1), 6);
  for (int i = 0; i < 4; ++i) again.groups.push_back(again.groups.front());
  EXPECT_EQ(reasonFor(again), "");
  EXPECT_EQ(reasonFor(fragment(1, someRps(5, 2), 6)), "");
  EXPECT_EQ(router.rpCandidateStatus()->crpSet(prefix("224.0.0.0/4"))->rpCount(), 6u);
}

/// RPs of a range of a scoped zone.
Bsm inZone(std::string const& zone, std::vector<Rp> const& rps) {
  return {.groups = {{zone + ".0.0.0/8", {}, scopedFlag}, {zone + ".1.0.0/16", rps}}};
}

TEST_F(QuotasTest, AllZonesShareTheQuotaOfRps) {
  router.ingressSettingsIs({.rps = 3});
  EXPECT_EQ(reasonFor(Bsm{.groups = {{"224.0.0.0/4", someRps(1, 2)}}}), "");
  EXPECT_EQ(reasonFor(inZone("239", someRps(1, 2))), "rp-quota");
  EXPECT_EQ(reasonFor(inZone("239", someRps(1, 1))), "");
}

TEST_F(QuotasTest, ScopedZonesTogetherFillHalfOfTheQuotaOfRps) {
  router.ingressSettingsIs({.rps = 7});
  EXPECT_EQ(reasonFor(inZone("238", someRps(1, 5))), "rp-quota");
  EXPECT_EQ(reasonFor(inZone("238", someRps(1, 3))), "");
  EXPECT_EQ(reasonFor(inZone("239", someRps(1, 2))), "rp-quota");
  EXPECT_EQ(reasonFor(inZone("239", someRps(1, 1))), "");
  EXPECT_EQ(reasonFor(inZone("238", someRps(1, 3))), "") << "known RPs are renewed";
  EXPECT_EQ(reasonFor(Bsm{.groups = {{"224.0.0.0/4", someRps(1, 3)}}}), "") << "the global zone has its half";
  EXPECT_EQ(reasonFor(Bsm{.groups = {{"224.0.0.0/4", someRps(1, 4)}}}), "rp-quota");
}

TEST_F(QuotasTest, GlobalZoneMayFillTheWholeQuotaOfRps) {
  router.ingressSettingsIs({.rps = 4});
  EXPECT_EQ(reasonFor(Bsm{.groups = {{"224.0.0.0/4", someRps(1, 4)}}}), "");
  EXPECT_EQ(reasonFor(inZone("239", someRps(1, 1))), "rp-quota");
}

TEST_F(QuotasTest, RpsThatLeaveScopedZonesGiveTheirPlacesBack) {
  router.ingressSettingsIs({.rps = 4});
  EXPECT_EQ(reasonFor(inZone("239", someRps(1, 2))), "");
  EXPECT_EQ(reasonFor(inZone("239", someRps(3, 2))), "rp-quota");
  EXPECT_EQ(reasonFor(inZone("239", {{"203.0.113.1", 0}, {"203.0.113.2", 0}})), "");
  run(2);
  EXPECT_EQ(reasonFor(inZone("239", someRps(3, 2))), "");
}

TEST_F(QuotasTest, AdvertisementsToTheElectedBsrCountToo) {
  router.ingressSettingsIs({.rps = 3});
  lead();
  auto advertise = [this](std::string const& rp, std::vector<Range> const& ranges, U16 holdtime = 150) {
    return reasonFor(Adv{.groups = ranges, .rp = rp, .holdtime = holdtime},
                     {.source = rp, .destination = "192.0.2.9", .ttl = 60});
  };
  std::vector<Range> const two = {{"224.0.0.0/4"}, {"239.0.0.0/8"}};
  EXPECT_EQ(advertise("203.0.113.1", two), "");
  EXPECT_EQ(advertise("203.0.113.2", two), "rp-quota");
  EXPECT_EQ(advertise("203.0.113.2", {}), "");
  EXPECT_EQ(advertise("203.0.113.3", {}), "rp-quota");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(advertise("203.0.113.1", two), "");
  EXPECT_EQ(advertise("203.0.113.9", two, 0), "");
  EXPECT_EQ(advertise("203.0.113.1", two, 0), "");
}

TEST_F(QuotasTest, OfRangesBeyondTheBoundThoseThatFitAreTaken) {
  router.ingressSettingsIs({.rangesPerZone = 2});
  auto ofRanges = [](std::vector<int> const& numbers) {
    Bsm message;
    message.groups.clear();
    for (int i : numbers) message.groups.push_back({numbered("239.", i) + ".0.0/16", someRps(1, 1)});
    return message;
  };
  EXPECT_EQ(reasonFor(ofRanges({1, 2, 3})), "zone-ranges");
  EXPECT_TRUE(router.rpCandidateStatus()->crpSet(prefix("239.1.0.0/16")));
  EXPECT_FALSE(router.rpCandidateStatus()->crpSet(prefix("239.3.0.0/16")));
  EXPECT_EQ(reasonFor(ofRanges({1, 2})), "");
  EXPECT_EQ(reasonFor(ofRanges({2, 3})), "zone-ranges");
  run(500);
  EXPECT_EQ(reasonFor(ofRanges({2, 3})), "");
}

/// A bound, and what is beyond it in each message of a BSR that names one RP of 224.0.0.0/4 besides.
struct Beyond {
  char const* name;
  pimbsr::host::IngressSettings bounds;
  Group excess;
};

Beyond const beyond[] = {
    {"Rps", {.rps = 1}, {"224.0.0.0/4", someRps(1, 2)}},
    {"RpsOfAnotherRange", {.rps = 1}, {"239.0.0.0/8", someRps(1, 2)}},
    {"Ranges", {.rangesPerZone = 1}, {"239.0.0.0/8", someRps(1, 2)}},
    {"Fragments", {.fragmentRps = 1}, {"239.0.0.0/8", someRps(1, 2), 0, 5, 2}},
    {"FragmentsOfTheKnownRange", {.fragmentRps = 1}, {"224.0.0.0/4", someRps(1, 2), 0, 5, 2}},
};

class QuotaBeyond : public QuotasTest, public testing::WithParamInterface<Beyond> {
 protected:
  Zet::Ptr<Routing::Pim::RpCandidateSet> set() const {
    return router.rpCandidateStatus()->crpSet(prefix("224.0.0.0/4"));
  }
};

TEST_P(QuotaBeyond, MessagesRenewTheBsrAndTheRpsThatAreKnown) {
  Bsm message{.groups = {{"224.0.0.0/4", someRps(1, 1)}}};
  router.ingressSettingsIs(GetParam().bounds);
  EXPECT_EQ(reasonFor(message), "");
  bool isOfKnownRange = GetParam().excess.prefix == "224.0.0.0/4";
  if (isOfKnownRange) message.groups.clear();
  message.groups.push_back(GetParam().excess);
  for (int second = 0; second < 500; second += 50) {
    run(50);
    EXPECT_NE(reasonFor(message), "") << second;
    EXPECT_TRUE(router.status()->bootstrapRouter(prefix("224.0.0.0/4"))) << second;
    ASSERT_TRUE(set()) << second;
    EXPECT_EQ(set()->rpCount(), 1u) << second;
  }
}

TEST_P(QuotaBeyond, WithdrawalsPass) {
  router.ingressSettingsIs(GetParam().bounds);
  EXPECT_EQ(reasonFor(Bsm{.groups = {{"224.0.0.0/4", someRps(1, 1)}}}), "");
  Bsm message{.groups = {{"224.0.0.0/4", {{"203.0.113.1", 0}}}, GetParam().excess}};
  if (GetParam().excess.prefix == "224.0.0.0/4") {
    message.groups.erase(message.groups.begin());
    message.groups[0].rps[0].holdtime = 0;
  }
  reasonFor(message);
  EXPECT_FALSE(set() && set()->rp(addr("203.0.113.1")));
}

INSTANTIATE_TEST_SUITE_P(Each, QuotaBeyond, testing::ValuesIn(beyond),
                         [](auto const& each) { return std::string(each.param.name); });

TEST_F(QuotasTest, RecordOfAScopedZoneStaysWithoutItsRps) {
  router.ingressSettingsIs({.rps = 1});
  EXPECT_EQ(reasonFor(Bsm{.groups = {{"224.0.0.0/4", someRps(1, 1)}}}), "");
  EXPECT_EQ(reasonFor(Bsm{.groups = {{"239.0.0.0/8", someRps(1, 2), scopedFlag}}}), "rp-quota");
  EXPECT_TRUE(router.status()->bootstrapRouter(prefix("239.0.0.0/8")));
  EXPECT_FALSE(router.status()->crpStatus(prefix("239.0.0.0/8")));
}

TEST_F(QuotasTest, LoweredBoundKeepsKnownRps) {
  Bsm full{.groups = {{"224.0.0.0/4", someRps(1, 9)}}};
  EXPECT_EQ(reasonFor(full), "");
  router.ingressSettingsIs({.rps = 4});
  EXPECT_EQ(reasonFor(full), "");
  EXPECT_EQ(reasonFor(Bsm{.groups = {{"224.0.0.0/4", someRps(20, 1)}}}), "rp-quota");
  EXPECT_EQ(router.rpCandidateStatus()->crpSet(prefix("224.0.0.0/4"))->rpCount(), 9u);
}

TEST(QuotasOfASecondRun, CountsWhatAFormerRunLeft) {
  TestContext context;
  SubnetPort port;
  auto rpf = Zet::make<RpfTable>();
  rpf->neighbors[addr("10.0.0.1")] = addr("192.0.2.1");
  auto offer = [&](Router& router, std::vector<Rp> const& rps) {
    return router.receive(intf("eth0"), packetOf(bytesOf(Bsm{.groups = {{"224.0.0.0/4", rps}}}), {})).reason;
  };
  pimbsr::host::RouterOptions options{.rpf = rpf, .ingress = {.rps = 4}};
  {
    Router former(context, port, options);
    EXPECT_EQ(offer(former, someRps(1, 3)), "");
    options.status = former.status();
    options.rpCandidateStatus = former.rpCandidateStatus();
  }
  Router router(context, port, options);
  EXPECT_EQ(offer(router, someRps(4, 2)), "rp-quota");
  EXPECT_EQ(offer(router, someRps(4, 1)), "");
}

}  // namespace
}  // namespace test

#include "host/MessageFit.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <numeric>

#include "host/RouterParts.h"
#include "tests/host/IngressSupport.h"
#include "wire/Checksum.h"
#include "wire/Message.h"

namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Zet::Ptr;

constexpr char const* placeholder = "203.0.113.200";

/// The bytes of a message with the placeholder replaced, as no encoder writes it.
std::vector<U8> withAddress(Bsm const& message, std::string const& address) {
  std::vector<U8> pim = bytesOf(message);
  auto bytes = [](std::string const& text) {
    U32 host = addr(text).v4Addr().hostWord();
    return std::vector<U8>{static_cast<U8>(host >> 24), static_cast<U8>(host >> 16),
                           static_cast<U8>(host >> 8), static_cast<U8>(host)};
  };
  std::vector<U8> from = bytes(placeholder);
  std::vector<U8> to = bytes(address);
  for (auto at = pim.begin(); (at = std::search(at, pim.end(), from.begin(), from.end())) != pim.end();)
    at = std::copy(to.begin(), to.end(), at);
  pim[2] = pim[3] = 0;
  pimbsr::wire::writeChecksum(pim);
  return pim;
}

class MessageFitTest : public FilteredRouterTest {
 protected:
  MessageFitTest() {
    router.correctionsAre({.fit = true});
    receiveHello("192.0.2.1");
  }
  Reception take(std::vector<U8> const& pim) { return router.receive(intf("eth0"), packetOf(pim, {})); }
  Ptr<Routing::Pim::RpCandidate> rpOf(std::string const& rp) const {
    return router.rpCandidateStatus()->crpSet(prefix("239.1.0.0/16"))->rp(addr(rp));
  }
  U32 holdtime(std::string const& rp) const { return rpOf(rp)->holdTime().value(); }
  double expires(std::string const& rp) const { return rpOf(rp)->expires(); }
};

TEST_F(MessageFitTest, AHoldtimeAboveItsRangeIsSetToTheEndOfIt) {
  EXPECT_EQ(
      reasonFor(Bsm{.groups = {{"239.1.0.0/16",
                                {{"203.0.113.1", 40958}, {"203.0.113.2", 40959}, {"203.0.113.3", 65535}}}}}),
      "");
  for (char const* rp : {"203.0.113.1", "203.0.113.2", "203.0.113.3"}) EXPECT_EQ(holdtime(rp), 40958u) << rp;
}

TEST_F(MessageFitTest, AnAdvertisementWithSuchAHoldtimeIsTaken) {
  lead();
  Adv adv{.groups = {{"239.1.0.0/16"}}, .holdtime = 65535, .bsr = "192.0.2.9"};
  EXPECT_EQ(reasonFor(adv, {"203.0.113.1", "192.0.2.9"}), "");
  EXPECT_EQ(holdtime("203.0.113.1"), 40958u);
}

TEST_F(MessageFitTest, AnRpThatCannotBeTakenIsLeftOutAndTheRestIsTaken) {
  Bsm message{.groups = {{"239.1.0.0/16", {{"203.0.113.1"}, {placeholder}, {"203.0.113.2"}}},
                         {"239.2.0.0/16", {{placeholder}}},
                         {"239.3.0.0/16", {{"203.0.113.3"}}}}};
  for (char const* bad : {"127.0.0.1", "0.0.0.0", "224.0.0.5", "255.255.255.255", "203.0.113.1"}) {
    ++message.tag;
    EXPECT_EQ(take(withAddress(message, bad)).reason, "") << bad;
    EXPECT_THAT(read(), ElementsAre("203.0.113.1", "203.0.113.2")) << bad;
    EXPECT_THAT(read("239.3.0.0/16"), ElementsAre("203.0.113.3")) << bad;
  }
  EXPECT_EQ(router.corrections().of(&pimbsr::host::CorrectionSettings::fit).acts(), 5u);
}

TEST_F(MessageFitTest, TurnedOffSuchMessagesAreDropped) {
  router.correctionsAre({});
  Bsm message{.groups = {{"239.1.0.0/16", {{"203.0.113.1"}, {placeholder}}}}};
  EXPECT_EQ(take(withAddress(message, "127.0.0.1")).reason, "rp-not-unicast");
  EXPECT_EQ(take(withAddress(message, "203.0.113.1")).reason, "rp-twice");
  EXPECT_EQ(reasonFor(Bsm{.groups = {{"239.1.0.0/16", {{"203.0.113.1", 40959}}}}}), "holdtime");
}

// Ranges in fragments -----------------------------------------------------------------------------------

/// Four fragments with two RPs each, of which the second of one is the placeholder.
std::vector<Bsm> fragmentsWith(U32 bad, U16 tag) {
  std::vector<Bsm> fragments;
  for (U32 i = 0; i < 4; ++i) {
    std::string first = numbered("203.0.113.", static_cast<int>(2 * i + 1));
    std::string second = i == bad ? placeholder : numbered("203.0.113.", static_cast<int>(2 * i + 2));
    fragments.push_back({.groups = {{"239.0.0.0/8", {}, scopedFlag},
                                    {"239.1.0.0/16", {{first}, {second}}, 0, 8, 2},
                                    {numbered("239.2.", static_cast<int>(i)) + ".0/24", {{"203.0.113.50"}}}},
                         .tag = tag});
  }
  return fragments;
}

/// Takes all of these RPs away.
Bsm withdrawal(U16 tag) {
  Group all{"239.1.0.0/16", {}};
  for (int i = 1; i <= 8; ++i) all.rps.push_back({numbered("203.0.113.", i), 0});
  return {.groups = {{"239.0.0.0/8", {}, scopedFlag}, all}, .tag = tag};
}

TEST_F(MessageFitTest, InEveryOrderOfFragmentsWithTheBadRecordInEachTheOthersAreTaken) {
  U16 tag = 0;
  for (char const* address : {"127.0.0.1", "twice"}) {
    for (U32 bad = 0; bad < 4; ++bad) {
      std::vector<U32> order(4);
      std::iota(order.begin(), order.end(), 0);
      do {
        EXPECT_EQ(reasonFor(withdrawal(++tag)), "");
        std::vector<Bsm> fragments = fragmentsWith(bad, ++tag);
        std::string own = numbered("203.0.113.", static_cast<int>(2 * bad + 1));
        std::string replaced = address == std::string("twice") ? own : address;
        for (U32 i = 0; i < 4; ++i) {
          EXPECT_THAT(read(), IsEmpty());
          EXPECT_EQ(take(withAddress(fragments[order[i]], replaced)).reason, "");
          if (i != 1) continue;
          EXPECT_EQ(take(withAddress(fragments[order[i]], replaced)).reason, "") << "sent twice";
        }
        ASSERT_EQ(read().size(), 7u) << testing::PrintToString(order) << bad << address;
        EXPECT_THAT(read("239.2.3.0/24"), ElementsAre("203.0.113.50")) << "other ranges come through";
      } while (std::next_permutation(order.begin(), order.end()));
    }
  }
  EXPECT_EQ(context.notificationExceptions(), 0u);
}

TEST_F(MessageFitTest, AFragmentThatComesAfterItsRangeIsCompleteBringsItsOwnRpsAlone) {
  std::vector<Bsm> const fragments = fragmentsWith(0, 1);
  for (Bsm const& fragment : fragments) EXPECT_EQ(take(withAddress(fragment, "127.0.0.1")).reason, "");
  std::vector<std::string> const rps = read();
  ASSERT_EQ(rps.size(), 7u);
  std::vector<double> former;
  for (std::string const& rp : rps) former.push_back(expires(rp));
  run(5);
  EXPECT_EQ(take(withAddress(fragments[2], "127.0.0.1")).reason, "");
  for (std::size_t i = 0; i < rps.size(); ++i) {
    bool isRenewed = rps[i] == "203.0.113.5" || rps[i] == "203.0.113.6";
    EXPECT_DOUBLE_EQ(expires(rps[i]), former[i] + (isRenewed ? 5 : 0)) << rps[i];
  }
}

TEST_F(MessageFitTest, WhatIsCollectedIsBoundedAndEndsAfterTheTimeOfFragments) {
  router.ingressSettingsIs({.fragmentRps = 6});
  for (U16 tag = 1; tag <= 20; ++tag) {
    Bsm message = fragmentsWith(0, tag)[0];
    take(withAddress(message, "127.0.0.1"));
  }
  EXPECT_LE(partsOf(router).correctors->fit().count(), 6u);
  EXPECT_GE(partsOf(router).correctors->fit().count(), 4u);
  run(26);
  take(withAddress(fragmentsWith(0, 100)[0], "127.0.0.1"));
  EXPECT_EQ(partsOf(router).correctors->fit().count(), 2u);
}

TEST_F(MessageFitTest, MoreRpsThanAnnouncedDropTheMessage) {
  Bsm message{.groups = {{"239.1.0.0/16", {{"203.0.113.1"}, {placeholder}}, 0, 3, 2}}};
  EXPECT_EQ(take(withAddress(message, "127.0.0.1")).reason, "");
  message.groups[0].rps = {{"203.0.113.2"}, {"203.0.113.3"}};
  EXPECT_EQ(take(bytesOf(message)).reason, "fragment-overflow");
  EXPECT_THAT(read(), IsEmpty());
}

TEST_F(MessageFitTest, AMessageOfAnotherSenderChangesNothing) {
  receiveHello("192.0.2.2");
  std::vector<Bsm> fragments = fragmentsWith(9, 1);
  for (U32 i = 0; i < 3; ++i) EXPECT_EQ(reasonFor(fragments[i]), "");
  Bsm forged = fragmentsWith(3, 1)[3];
  EXPECT_EQ(router.receive(intf("eth0"), packetOf(withAddress(forged, "127.0.0.1"), {"192.0.2.2"})).reason,
            "not-rpf-neighbor");
  EXPECT_EQ(reasonFor(fragments[3]), "");
  EXPECT_EQ(read().size(), 8u);
}

}  // namespace
}  // namespace test

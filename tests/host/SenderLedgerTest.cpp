#include "host/RouterParts.h"
#include "host/SenderLedger.h"

#include <string>
#include <vector>

#include "tests/host/RpBoundsSupport.h"

namespace test {
namespace {

using pimbsr::DropReason;
using pimbsr::host::IngressSettings;
using pimbsr::host::SenderLedger;

class SenderBounds : public RpBoundsTest {};

// Additions of senders ------------------------------------------------------------------------------------

TEST_F(SenderBounds, SenderAddsSoManyRpsAndRenewsThemForGood) {
  bsr.ingressSettingsIs({.rpsPerSender = 3});
  auto reason = [this](int i) { return reasonFor({.rp = rpNamed(1, i), .sender = "203.0.113.7"}); };
  for (int i = 1; i <= 3; ++i) EXPECT_EQ(reason(i), "");
  EXPECT_EQ(reason(4), "sender-rps");
  for (int i = 1; i <= 3; ++i) EXPECT_EQ(reason(i), "");
  EXPECT_EQ(reasonFor({.rp = rpNamed(1, 1), .ranges = {"239.2.0.0/16"}, .sender = "203.0.113.7"}), "");
  EXPECT_EQ(reasonFor({rpNamed(1, 4)}), "") << "another sender";
  EXPECT_EQ(reason(4), "") << "known by now";
}

TEST_F(SenderBounds, SenderAddsSoManyRangesOfAllItsRps) {
  bsr.ingressSettingsIs({.rangesPerSender = 4});
  auto ask = [this](int rp, int first, int number) {
    Offer offer{.rp = rpNamed(1, rp), .ranges = {}, .sender = "203.0.113.7"};
    for (int i = 0; i < number; ++i) offer.ranges.push_back(numbered("239.", first + i) + ".0.0/16");
    return receive(offer);
  };
  EXPECT_EQ(ask(1, 1, 3).reason, "");
  Reception reception = ask(2, 1, 3);
  EXPECT_EQ(reception.reason, "sender-ranges");
  EXPECT_EQ(reception.droppedRanges, 2u);
  EXPECT_EQ(ask(1, 1, 3).reason, "");
  EXPECT_EQ(ask(1, 4, 1).reason, "sender-ranges");
}

TEST_F(SenderBounds, RpsThatHaveLeftMakeRoomForTheirSender) {
  bsr.ingressSettingsIs({.rpsPerSender = 2, .rangesPerSender = 2});
  auto reason = [this](int i) { return reasonFor({.rp = rpNamed(1, i), .sender = "203.0.113.7"}); };
  for (int i = 1; i <= 2; ++i) EXPECT_EQ(reason(i), "");
  EXPECT_EQ(reason(3), "sender-rps");
  run(250);
  EXPECT_EQ(count(), 0u);
  EXPECT_EQ(reason(3), "");
  EXPECT_EQ(reason(4), "");
  EXPECT_EQ(reason(5), "sender-rps");
}

TEST_F(SenderBounds, SenderBeyondItsBoundsDisplacesNone) {
  bsr.ingressSettingsIs({.rpsPerRange = 1, .rpsPerSender = 1});
  fill(1, 1);
  std::string const sender = "203.0.113.7";
  EXPECT_EQ(reasonFor({.rp = "203.0.2.1", .ranges = {all}, .sender = sender}), "");
  EXPECT_EQ(reasonFor({.rp = "203.0.2.2", .priority = 0, .sender = sender}), "sender-rps");
  EXPECT_NE(holdtime("203.0.1.1"), 0);
}

// RPs with an account of their own ------------------------------------------------------------------------

/// What a forger sends from one address, and what must enter after it nevertheless.
struct Forgery {
  std::string name;
  int rps = 0;     ///< of others
  int ranges = 1;  ///< of each
  std::string sender = "203.0.113.7";
  Offer honest;
};

class ForgedSender : public RpBoundsTest, public testing::WithParamInterface<Forgery> {};

TEST_P(ForgedSender, KeepsNoRpWithItsOwnAccountOut) {
  Forgery const& forgery = GetParam();
  bsr.preferredRpsIs(listed());
  bsr.ingressSettingsIs({.rpsPerSender = 3, .rangesPerSender = 4});
  for (int rp = 1; rp <= forgery.rps; ++rp) {
    Offer offer{.rp = rpNamed(1, rp), .ranges = {}, .sender = forgery.sender, .holdtime = 40000};
    for (int i = 1; i <= forgery.ranges; ++i) offer.ranges.push_back(numbered("239.", i) + ".0.0/16");
    EXPECT_EQ(reasonFor(offer), "") << rp;
  }
  Offer another{.rp = rpNamed(1, 99), .ranges = {"239.77.0.0/16"}, .sender = forgery.sender};
  EXPECT_NE(reasonFor(another), "");
  EXPECT_EQ(reasonFor(forgery.honest), "");
}

std::vector<std::string> const fourRanges = {"239.11.0.0/16", "239.12.0.0/16", "239.13.0.0/16",
                                             "239.14.0.0/16"};
Forgery const forgeries[] = {
    {"ofRpsAgainstTheirSender", 3, 1, "203.0.113.7", {.rp = "203.0.113.7", .ranges = fourRanges}},
    {"ofRangesAgainstTheirSender", 1, 4, "203.0.113.7", {.rp = "203.0.113.7", .ranges = fourRanges}},
    {"ofRpsAgainstAPreferredRp",
     3,
     1,
     "203.0.113.7",
     {.rp = "10.0.0.1", .ranges = fourRanges, .sender = "203.0.113.7"}},
    {"ofRangesAgainstAPreferredRp",
     1,
     4,
     "203.0.113.7",
     {.rp = "10.0.0.1", .ranges = fourRanges, .sender = "203.0.113.7"}},
};
INSTANTIATE_TEST_SUITE_P(Attacker, ForgedSender, testing::ValuesIn(forgeries),
                         [](auto const& forgery) { return forgery.param.name; });

TEST_F(SenderBounds, RpWithItsOwnAccountHasABoundOfRangesForAllSenders) {
  bsr.preferredRpsIs(listed());
  bsr.ingressSettingsIs({.rpsPerSender = 1, .rangesPerSender = 2});
  auto ask = [this](std::string const& rp, int number, std::string const& sender) {
    return reasonFor({.rp = rp, .ranges = {numbered("239.", number) + ".0.0/16"}, .sender = sender});
  };
  for (std::string rp : {"203.0.1.1", "10.0.0.1"}) {
    EXPECT_EQ(ask(rp, 1, rp), "");
    EXPECT_EQ(ask(rp, 2, rp), "");
    EXPECT_EQ(ask(rp, 3, rp), "sender-ranges");
  }
  EXPECT_EQ(ask("10.0.0.1", 3, "203.0.113.8"), "sender-ranges");
}

// Size ----------------------------------------------------------------------------------------------------

class SenderLedgerTest : public RpBoundsTest {
 protected:
  static Lanet::IpGenAddr senderNamed(int number) {
    return Lanet::IpGenAddr(Lanet::IpAddr::fromHost(0x0a000000u + static_cast<U32>(number)));
  }
  DropReason add(Lanet::IpGenAddr const& sender, Lanet::IpGenAddr const& rp) {
    Zet::Context::Scope scope(context);
    Lanet::IpGenPrefix const added = prefix(range);
    SenderLedger::Addition addition{sender, rp, added};
    ledger.prepare(addition, 1);
    DropReason reason = ledger.check(addition);
    if (reason == DropReason::none) ledger.record(addition);
    return reason;
  }

  IngressSettings const settings{.rpsPerSender = 128, .rangesPerSender = 128};
  SenderLedger ledger{*pimbsr::host::partsOf(bsr).root, settings};
};

TEST_F(SenderLedgerTest, ForgetsWhatNeverCameOrHasLeft) {
  for (int i = 0; i < 20000; ++i) {
    ASSERT_EQ(add(senderNamed(i), senderNamed(i)), DropReason::none);
    ASSERT_LE(ledger.size(), 1024u);
    ASSERT_LE(ledger.accountCount(), 1024u);
  }
}

TEST_F(SenderLedgerTest, RpIsInTheAccountOfItsLastSenderAlone) {
  fill(1, 100);
  for (int i = 0; i < 1000; ++i) {
    for (int rp = 1; rp <= 100; ++rp) ASSERT_EQ(add(senderNamed(i), addr(rpNamed(1, rp))), DropReason::none);
    ASSERT_EQ(ledger.size(), 100u);
    ASSERT_EQ(ledger.accountCount(), 1u);
  }
}

TEST_F(SenderLedgerTest, SweepKeepsItWithinTwiceTheRpsOfTheSets) {
  bsr.ingressSettingsIs({});
  for (int block = 0; block < 8; ++block) fill(block, 250);
  U32 const held = count();
  ASSERT_EQ(held, 2000u);
  for (int i = 0; i < 20000; ++i) {
    ASSERT_EQ(add(senderNamed(i), senderNamed(i)), DropReason::none);
    int rp = i % 2000;
    ASSERT_EQ(add(senderNamed(i), addr(rpNamed(rp / 250, 1 + rp % 250))), DropReason::none);
    ASSERT_LE(ledger.size(), 2 * held + 1024);
  }
}

}  // namespace
}  // namespace test

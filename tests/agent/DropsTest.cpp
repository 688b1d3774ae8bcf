#include "agent/account/Drops.h"
#include "tests/agent/ObservedRouter.h"

namespace test {
namespace {

using pimbsr::agent::DropKey;
using pimbsr::agent::DropRow;
using pimbsr::agent::Drops;
using pimbsr::agent::summaryOf;
using pimbsr::host::MessageKind;
using pimbsr::host::Reception;

class DropsTest : public ObservedRouter {
 protected:
  DropRow const* row(std::string const& reason, std::string const& zone,
                     std::string const& name = "eth0") const {
    for (auto const& [key, counted] : drops.rows()) {
      bool matches = key.reason == reason && key.zone == prefix(zone) && key.intf == name && !key.others;
      if (matches) return &counted;
    }
    return nullptr;
  }
};

/// A message from an own address, for a scoped zone.
Bsm ownEcho(std::string const& zone) {
  return {.groups = {{zone, {{"10.0.0.2"}}, scopedFlag}}, .source = "192.0.2.9"};
}

TEST_F(DropsTest, DroppedMessagesAreCountedByReasonZoneAndInterface) {
  receive(packetOf(ownEcho("239.1.0.0/16")));
  receive(packetOf(ownEcho("239.1.0.0/16")));
  receive(packetOf(ownEcho("239.2.0.0/16")));
  receive("eth1", packetOf(ownEcho("239.1.0.0/16")));
  ASSERT_EQ(drops.rows().size(), 3u);
  ASSERT_TRUE(row("own-address", "239.1.0.0/16"));
  EXPECT_EQ(row("own-address", "239.1.0.0/16")->count, 2u);
  EXPECT_EQ(row("own-address", "239.2.0.0/16")->count, 1u);
  EXPECT_EQ(row("own-address", "239.1.0.0/16", "eth1")->count, 1u);
}

TEST_F(DropsTest, UnscopedMessageIsOfTheGlobalZone) {
  receive(packetOf(Bsm{.groups = {{"239.1.0.0/16", {{"10.0.0.2"}}}}, .source = "192.0.2.9"}));
  receive(packetOf(Bsm{.source = "192.0.2.9"}));
  ASSERT_TRUE(row("own-address", "224.0.0.0/4"));
  EXPECT_EQ(row("own-address", "224.0.0.0/4")->count, 2u);
}

TEST_F(DropsTest, MalformedMessageHasNoZone) {
  receive(brokenPacket());
  ASSERT_TRUE(row("checksum", ""));
  EXPECT_EQ(row("checksum", "")->count, 1u);
}

TEST_F(DropsTest, TheLastMessageIsKept) {
  receive(brokenPacket("192.0.2.1"));
  run(10);
  receive(brokenPacket("192.0.2.2"));
  ASSERT_TRUE(row("checksum", ""));
  EXPECT_EQ(row("checksum", "")->last.sender, addr("192.0.2.2"));
  EXPECT_EQ(row("checksum", "")->last.destination, addr("224.0.0.13"));
  EXPECT_EQ(row("checksum", "")->last.time, context.now());
  EXPECT_FALSE(row("checksum", "")->sentence.empty());
}

/// The counts of senders, "address count, ..." in their order.
std::string sendersOf(DropRow const& row) {
  std::string text;
  for (auto const& one : row.senders.list()) {
    text += text.empty() ? "" : ", ";
    text += std::string(one.address.stringValue().view()) + " " + std::to_string(one.count);
  }
  return text;
}

TEST_F(DropsTest, FewSendersAreCountedExactlyTheMostFrequentFirst) {
  for (char const* sender : {"192.0.2.1", "192.0.2.2", "192.0.2.3", "192.0.2.3", "192.0.2.2", "192.0.2.3"})
    receive(brokenPacket(sender));
  EXPECT_EQ(sendersOf(*row("checksum", "")), "192.0.2.3 3, 192.0.2.2 2, 192.0.2.1 1");
}

TEST_F(DropsTest, SenderOfMoreThanAQuarterIsNamedAmongAnyNumberOfOthers) {
  for (int i = 0; i < 300; ++i) {
    receive(brokenPacket("198.51.100." + std::to_string(i % 250)));
    if (i % 2 == 0) receive(brokenPacket("192.0.2.7"));
  }
  auto const& senders = row("checksum", "")->senders.list();
  ASSERT_EQ(senders.size(), pimbsr::agent::TopSenders::max);
  EXPECT_EQ(senders[0].address, addr("192.0.2.7"));
  EXPECT_GE(senders[0].count, 150u) << "a count is an upper estimate";
}

TEST_F(DropsTest, AcceptedMessageIsNotNoted) {
  helloFromNeighbor();
  EXPECT_TRUE(drops.rows().empty());
}

TEST_F(DropsTest, ZonesBeyondTheBoundShareARow) {
  drops = Drops(2);
  for (int i = 0; i < 9; ++i) receive(packetOf(ownEcho("239." + std::to_string(i) + ".0.0/16")));
  receive("eth1", packetOf(ownEcho("239.9.0.0/16")));
  receive(packetOf(ownEcho("239.1.0.0/16")));
  ASSERT_EQ(drops.rows().size(), 4u);
  EXPECT_EQ(row("own-address", "239.0.0.0/16")->count, 1u);
  EXPECT_EQ(row("own-address", "239.1.0.0/16")->count, 2u);
  std::map<std::string, Zet::U64> others;
  for (auto const& [key, counted] : drops.rows()) {
    if (key.others) others[key.intf] = counted.count;
  }
  EXPECT_EQ(others, (std::map<std::string, Zet::U64>{{"eth0", 7}, {"eth1", 1}}));
}

TEST_F(DropsTest, ClearForgetsAll) {
  receive(brokenPacket());
  drops.clear();
  EXPECT_TRUE(drops.rows().empty());
}

TEST_F(DropsTest, SummaryNamesWhatTheMessageSaid) {
  Bsm bsm{.priority = 64, .groups = {{"239.1.0.0/16", {{"10.0.0.2"}}}}, .tag = 0x12ab, .source = "192.0.2.9"};
  receive(packetOf(bsm));
  bsm.forward = false;
  bsm.groups.push_back({"239.2.0.0/16", {{"10.0.0.2"}}});
  receive("eth1", packetOf(bsm));
  receive(packetOf(Adv{.holdtime = 40959, .bsr = "192.0.2.9"}));
  receive(brokenPacket());
  std::multiset<std::string> summaries;
  for (auto const& [key, counted] : drops.rows()) summaries.insert(summaryOf(key.kind, counted.last));
  EXPECT_EQ(summaries,
            (std::multiset<std::string>{
                "BSM of 10.0.0.1, priority 64, hash mask length 30, tag 0x12ab, 1 group range",
                "BSM of 10.0.0.1, priority 64, hash mask length 30, tag 0x12ab, 2 group ranges, No-Forward",
                "C-RP-Adv of 203.0.113.1, priority 0, holdtime 40959 s, 1 group range",
                "PIM message that can't be read"}));
}

TEST_F(DropsTest, SummaryOfAMessageAcceptedInPartCountsTheDroppedRanges) {
  pimbsr::agent::DroppedMessage message{.about = addr("203.0.113.1"), .groups = 3, .dropped = 1};
  EXPECT_EQ(summaryOf(MessageKind::crpAdv, message),
            "C-RP-Adv of 203.0.113.1, priority 0, holdtime 0 s, 1 of 3 group ranges dropped");
}

TEST_F(DropsTest, MessageDroppedBeforeDecodingIsNamedByItsKind) {
  for (auto [kind, text] : {std::pair{MessageKind::bootstrap, "BSM"},
                            {MessageKind::crpAdv, "C-RP-Adv"},
                            {MessageKind::hello, "Hello"},
                            {MessageKind::other, "PIM message of another type"},
                            {MessageKind::unread, "packet that was not looked at"},
                            {MessageKind::notPim, "packet"}}) {
    Drops one;
    one.note("eth0", Reception{.kind = kind, .reason = "rate"}, 1);
    ASSERT_EQ(one.rows().size(), 1u);
    EXPECT_EQ(summaryOf(kind, one.rows().begin()->second.last), text);
  }
}

}  // namespace
}  // namespace test

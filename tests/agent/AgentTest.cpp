#include "agent/Agent.h"
#include "host/RouterParts.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <optional>
#include <set>
#include <system_error>

#include "agent/base/RequestError.h"
#include "host/RateLimit.h"
#include "tests/agent/RecordingLog.h"
#include "tests/support/CrpEngine.h"
#include "tests/support/Messages.h"
#include "tests/support/TestContext.h"
#include "wire/Wire.h"

namespace test {
namespace {

namespace agent = pimbsr::agent;
using agent::HistoryEntry;
using agent::HistoryKind;
using agent::KernelLink;
using ::Slosh::Fib::RouteType;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// A platform whose kernel tables a test sets.
class FakePlatform final : public agent::Platform {
 public:
  agent::KernelView const& kernel() const override { return view; }
  void open(KernelLink const& link) override {
    if (failsToOpen) throw std::system_error(ENOBUFS, std::generic_category(), "joining");
    opened.insert(link.name);
    ++openings;
  }
  void close(std::string const& name) override { opened.erase(name); }
  void neighborsChanged(std::string const& name) override { ++neighborChanges[name]; }
  void advertisersChanged() override { ++advertiserChanges; }
  agent::LinkReports linkReports() override { return reports; }
  void clearReports() override { reports.clear(); }
  bool send(Lanet::IntfId const& intfId, std::span<Zet::U8 const> packet) override {
    auto ip = pimbsr::wire::parseIpv4(packet);
    auto hello = pimbsr::wire::decodeHello(ip->payload, ip->source, ip->destination);
    if (hello && hello->holdtime == 0) goodbyes.emplace_back(intfId.stringValue().view());
    return true;
  }
  Lanet::IpGenAddr primaryAddress(Lanet::IntfId const& intfId) const override {
    auto at = view.links.find(std::string(intfId.stringValue().view()));
    if (at == view.links.end() || at->second.addresses.empty()) return {};
    return Lanet::IpGenAddr(at->second.addresses.front().address);
  }
  bool isOwnAddress(Lanet::IpGenAddr const& address) const override { return own.contains(address); }
  std::optional<::Slosh::Fib::Route> routeTo(Lanet::IpGenAddr const& address) const override {
    auto at = routes.find(address);
    return at == routes.end() ? ::Slosh::Fib::Route() : at->second;
  }

  KernelLink& link(std::string const& name, std::string const& address = "") {
    KernelLink& link = view.links[name];
    if (link.name.empty()) link = {.index = ++lastIndex, .name = name, .up = true};
    if (!address.empty()) link.addresses = {{addr(address).v4Addr(), 24}};
    return link;
  }

  agent::KernelView view;
  std::set<std::string> opened;
  std::vector<std::string> goodbyes;
  agent::LinkReports reports;
  std::set<Lanet::IpGenAddr> own;  ///< addresses of this system
  std::map<Lanet::IpGenAddr, ::Slosh::Fib::Route> routes;
  std::map<std::string, int> neighborChanges;
  int advertiserChanges = 0;
  int openings = 0;
  int lastIndex = 0;
  bool failsToOpen = false;
};

class AgentTest : public testing::Test, public agent::AgentListener {
 protected:
  AgentTest() {
    platform.link("eth0", "192.0.2.9");
    settings.interfaces["eth0"] = {};
    agent.kernelChanged();
    follow();
  }
  void onChanges(std::vector<HistoryEntry> const& changes) override {
    for (HistoryEntry const& change : changes) kinds.push_back(change.kind);
  }
  void follow() { EXPECT_THAT(agent.settingsIs(settings), IsEmpty()); }
  Zet::Ptr<Routing::Pim::Intf> pimIntf(std::string const& name) {
    return agent.router().pimStatus()->pimIntf(intf(name));
  }
  bool speaksPim(std::string const& name) { return pimIntf(name) && platform.opened.contains(name); }
  /// Addresses of this router's candidacies as BSR.
  std::vector<Lanet::IpGenAddr> candidacies() {
    std::vector<Lanet::IpGenAddr> all;
    for (auto at = agent.router().status()->cbsrIterator(); at; ++at) all.push_back(at->address());
    return all;
  }
  void beCandidate(std::string const& name) {
    settings.router.candidateBsrs[name].groups[prefix("224.0.0.0/4")] = {};
    follow();
  }
  /// Makes this router the elected BSR of 224.0.0.0/4.
  void becomeBsr() {
    platform.own = {addr("192.0.2.9")};
    beCandidate("eth0");
    while (!agent.router().status()->cbsr(prefix("224.0.0.0/4"))->elected()) {
      if (agent.nextExpiry() <= clock.now()) agent.advance();
    }
  }
  /// A packet to this router.
  static std::vector<Zet::U8> advertisement(Adv const& adv) {
    std::vector<Zet::U8> payload;
    std::vector<Zet::U8> packet;
    EXPECT_TRUE(pimbsr::wire::encodeCrpAdv(*make(adv), payload));
    EXPECT_TRUE(pimbsr::wire::encodeIpv4(
        {.source = addr(adv.source).v4Addr(), .destination = addr("192.0.2.9").v4Addr(), .ttl = 60}, payload,
        packet));
    return packet;
  }

  Zet::U64 dropsFor(std::string_view reason) {
    Zet::U64 count = 0;
    for (auto const& [key, row] : agent.observed().drops.rows()) {
      if (key.reason == reason) count += row.count;
    }
    return count;
  }
  static auto linesOf(RecordingLog const& sink, std::string_view event) {
    return std::count_if(sink.records.begin(), sink.records.end(),
                         [&](agent::LogRecord const& record) { return record.event.name == event; });
  }

  FakePlatform platform;
  agent::Clock clock{1000};
  agent::Traffic traffic;
  agent::Settings settings;
  std::vector<HistoryKind> kinds;
  agent::Agent agent{clock, platform, traffic, *this};
};

TEST_F(AgentTest, InterfaceSpeaksPimWhileItIsConfiguredAndThereAndUp) {
  EXPECT_TRUE(speaksPim("eth0"));
  platform.link("eth1", "198.51.100.9");
  agent.kernelChanged();
  EXPECT_FALSE(speaksPim("eth1")) << "it is not configured";
  settings.interfaces["eth1"] = {};
  follow();
  EXPECT_TRUE(speaksPim("eth1"));
  platform.link("eth1").up = false;
  agent.kernelChanged();
  EXPECT_FALSE(speaksPim("eth1"));
  platform.link("eth1").up = true;
  agent.kernelChanged();
  EXPECT_TRUE(speaksPim("eth1"));
  platform.view.links.erase("eth1");
  agent.kernelChanged();
  EXPECT_FALSE(speaksPim("eth1"));
  EXPECT_TRUE(speaksPim("eth0"));
  EXPECT_THAT(platform.goodbyes, IsEmpty()) << "a link that is down carries none";
}

TEST_F(AgentTest, InterfaceThatIsConfiguredNoMoreSendsAGoodbye) {
  settings.interfaces.clear();
  follow();
  EXPECT_FALSE(speaksPim("eth0"));
  EXPECT_THAT(platform.goodbyes, ElementsAre("eth0"));
}

TEST_F(AgentTest, LinkThatWasMadeAnewUnderItsNameIsOpenedAnew) {
  EXPECT_EQ(platform.openings, 1);
  agent.kernelChanged();
  EXPECT_EQ(platform.openings, 1);
  platform.link("eth0").index = 99;
  agent.kernelChanged();
  EXPECT_EQ(platform.openings, 2);
  EXPECT_TRUE(speaksPim("eth0"));
}

TEST_F(AgentTest, LinkThatCannotBeOpenedIsTriedAgainAtTheNextChangeOfTheKernel) {
  platform.failsToOpen = true;
  platform.link("eth1", "198.51.100.9");
  settings.interfaces["eth1"] = {};
  follow();
  EXPECT_FALSE(pimIntf("eth1"));
  EXPECT_TRUE(speaksPim("eth0"));
  platform.failsToOpen = false;
  agent.kernelChanged();
  EXPECT_TRUE(speaksPim("eth1"));
}

TEST_F(AgentTest, SettingsOfAnInterfaceAreFollowedWithoutLosingItsNeighbors) {
  pimIntf("eth0")->neighborIs(addr("192.0.2.1"));
  settings.interfaces["eth0"] = {.drPriority = 7, .helloInterval = 10};
  follow();
  auto const options = agent.router().helloState(intf("eth0"))->options;
  EXPECT_EQ(options.drPriority, 7u);
  EXPECT_EQ(options.period, 10);
  EXPECT_EQ(options.holdtime, 35);
  EXPECT_EQ(pimIntf("eth0")->neighborCount(), 1u);
}

TEST_F(AgentTest, CandidateFollowsTheAddressOfItsInterfaceAlsoOfOneWithoutPim) {
  platform.link("lo", "10.255.0.1");
  agent.kernelChanged();
  beCandidate("lo");
  EXPECT_THAT(candidacies(), ElementsAre(addr("10.255.0.1")));
  platform.link("lo", "10.255.0.2");
  agent.kernelChanged();
  EXPECT_THAT(candidacies(), ElementsAre(addr("10.255.0.2")));
  platform.view.links.erase("lo");
  agent.kernelChanged();
  EXPECT_THAT(candidacies(), IsEmpty());
  platform.link("lo", "10.255.0.3");
  agent.kernelChanged();
  EXPECT_THAT(candidacies(), ElementsAre(addr("10.255.0.3")));
}

TEST_F(AgentTest, RouteToABsrIsThatOfTheSystemAtThatTime) {
  pimIntf("eth0")->neighborIs(addr("192.0.2.1"));
  auto rpf = [&] {
    return pimbsr::host::partsOf(agent.router()).gate->rpfTable()->doLookup(addr("10.1.0.1"), {}).rpfNeighbor;
  };
  EXPECT_TRUE(rpf().isEmpty());
  platform.routes[addr("10.1.0.1")] = {
      .type = RouteType::remote, .intfId = intf("eth0"), .nextHop = addr("192.0.2.1")};
  EXPECT_EQ(rpf(), addr("192.0.2.1"));
  EXPECT_EQ(agent.router().rpfPath(addr("10.1.0.1")).route.nextHop, addr("192.0.2.1"));
  platform.routes.clear();
  EXPECT_TRUE(rpf().isEmpty());
}

TEST_F(AgentTest, OwnAddressesAreLocalToTheEngine) {
  auto isLocal = [&](char const* address) {
    auto routes = pimbsr::host::partsOf(agent.router()).crpGate->ucastRouteStatus();
    return routes->bestRoute(addr(address)).type == RouteType::local;
  };
  EXPECT_TRUE(isLocal("192.0.2.9"));
  platform.link("lo", "10.255.0.1");
  agent.kernelChanged();
  EXPECT_TRUE(isLocal("10.255.0.1"));
  platform.link("eth0", "192.0.2.10");
  agent.kernelChanged();
  EXPECT_FALSE(isLocal("192.0.2.9"));
  EXPECT_TRUE(isLocal("192.0.2.10"));
}

TEST_F(AgentTest, InvalidSettingsChangeNothing) {
  agent::Settings invalid = settings;
  invalid.interfaces.clear();
  invalid.router.candidateBsrs["eth0"].groups[prefix("224.0.0.0/4")] = {.priority = 300};
  EXPECT_EQ(agent.settingsIs(invalid).size(), 1u);
  EXPECT_EQ(agent.settings(), settings);
  EXPECT_TRUE(speaksPim("eth0"));
}

TEST_F(AgentTest, ChangesArePublishedAtTheEndOfTheirEvent) {
  beCandidate("eth0");
  EXPECT_THAT(kinds, ElementsAre(HistoryKind::candidateState));
  auto elected = [&] { return std::count(kinds.begin(), kinds.end(), HistoryKind::bsrElected); };
  while (elected() == 0) {
    if (agent.nextExpiry() <= clock.now()) agent.advance();
  }
  EXPECT_EQ(agent.observed().history.entries().back().cause.kind, agent::CauseKind::timer);
  EXPECT_GT(agent.observed().timerLatency.count(), 0u);
}

TEST_F(AgentTest, PacketIsCountedAndADroppedOneNoted) {
  std::vector<Zet::U8> packet(40);
  packet[0] = 0x45;
  packet[9] = 103;
  agent.receive("eth0", packet);
  auto observed = agent.observed();
  EXPECT_EQ(observed.traffic.byInterface().at("eth0").at(pimbsr::host::MessageKind::malformed).dropped, 1u);
  EXPECT_EQ(observed.drops.rows().size(), 1u);
  agent.clearCounters();
  EXPECT_TRUE(observed.traffic.byInterface().empty());
  EXPECT_EQ(observed.timerLatency.count(), 0u);
  agent.clearDrops();
  EXPECT_TRUE(observed.drops.rows().empty());
}

TEST_F(AgentTest, ClearedNeighborIsLoggedAsSuch) {
  pimIntf("eth0")->neighborIs(addr("192.0.2.1"));
  follow();
  RecordingLog sink;
  agent.clearNeighbors("eth0");
  ASSERT_EQ(sink.records.size(), 1u);
  EXPECT_EQ(sink.records[0].text, "interface eth0: neighbor 192.0.2.1 is down: it was cleared");
}

TEST_F(AgentTest, ClearedStateIsPublishedAndWhatCannotBeClearedIsExplained) {
  auto errorOf = [&](auto const& clear) -> std::string {
    try {
      clear();
    } catch (agent::RequestError const& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_THAT(errorOf([&] { agent.clearBsr(prefix("239.1.0.0/16")); }),
              HasSubstr("there is no zone 239.1.0.0/16; none is known"));
  EXPECT_THAT(errorOf([&] { agent.clearNeighbors("eth1"); }),
              HasSubstr("interface eth1 speaks no PIM; valid are eth0"));
  agent.router().status()->bootstrapRouterIs(prefix("239.1.0.0/16"))->ipAddrIs(addr("10.0.0.1"));
  agent.clearNeighbors("");
  kinds.clear();
  agent.clearBsr({});
  EXPECT_THAT(kinds, ElementsAre(HistoryKind::bsrLost));
  EXPECT_EQ(agent.observed().history.entries().back().cause.kind, agent::CauseKind::command);
  beCandidate("eth0");
  auto elected = [&] { return std::count(kinds.begin(), kinds.end(), HistoryKind::bsrElected); };
  while (elected() == 0) {
    if (agent.nextExpiry() <= clock.now()) agent.advance();
  }
  for (Lanet::IpGenPrefix const& zone : {Lanet::IpGenPrefix(), prefix("224.0.0.0/4")}) {
    EXPECT_THAT(errorOf([&] { agent.clearBsr(zone); }),
                HasSubstr("this router is the elected BSR of zone 224.0.0.0/4"));
  }
  EXPECT_THAT(errorOf([&] { agent.clearRpSet(prefix("239.2.0.0/16")); }), HasSubstr("known are 224.0.0.0/4"));
  agent.clearRpSet({});
}

TEST_F(AgentTest, AddressesOfNeighborsReachTheSystemOnceTheyChange) {
  auto neighborsOf = [&](std::string const& name) {
    std::vector<std::string> texts;
    for (Lanet::IpAddr one : agent.neighborsOf(name)) texts.emplace_back(one.stringValue().view());
    return texts;
  };
  auto hear = [&](char const* source, Zet::U16 holdtime, std::vector<Lanet::IpGenAddr> const& secondary) {
    std::vector<Zet::U8> payload;
    pimbsr::wire::encodeHello({.holdtime = holdtime, .generationId = 7, .addressList = secondary}, payload);
    std::vector<Zet::U8> bytes;
    ASSERT_TRUE(
        pimbsr::wire::encodeIpv4({addr(source).v4Addr(), addr("224.0.0.13").v4Addr()}, payload, bytes));
    agent.receive("eth0", bytes);
  };
  hear("192.0.2.7", 105, {addr("192.0.2.1")});
  hear("192.0.2.5", 105, {});
  EXPECT_THAT(neighborsOf("eth0"), ElementsAre("192.0.2.5", "192.0.2.7", "192.0.2.1"));
  int changes = platform.neighborChanges["eth0"];
  EXPECT_GT(changes, 0);
  hear("192.0.2.7", 105, {addr("192.0.2.1")});
  hear("192.0.2.5", 50, {});
  EXPECT_EQ(platform.neighborChanges["eth0"], changes) << "a Hello that changes no address costs nothing";
  hear("192.0.2.7", 105, {addr("192.0.2.2")});
  EXPECT_EQ(platform.neighborChanges["eth0"], changes + 1);
  EXPECT_THAT(neighborsOf("eth0"), ElementsAre("192.0.2.5", "192.0.2.7", "192.0.2.2"));
  hear("192.0.2.7", 0, {});
  EXPECT_THAT(neighborsOf("eth0"), ElementsAre("192.0.2.5"));
  platform.link("eth0").index = 99;
  agent.kernelChanged();
  EXPECT_THAT(neighborsOf("eth0"), IsEmpty()) << "an interface that is opened anew has no neighbors yet";
}

TEST_F(AgentTest, InterfaceOnceClosedToBootstrapMessagesDropsWhatItTookBefore) {
  std::vector<Zet::U8> payload;
  std::vector<Zet::U8> bytes;
  pimbsr::wire::encodeHello({.holdtime = 105, .generationId = 7}, payload);
  auto const header = pimbsr::wire::Ipv4Header{addr("192.0.2.1").v4Addr(), addr("224.0.0.13").v4Addr()};
  ASSERT_TRUE(pimbsr::wire::encodeIpv4(header, payload, bytes));
  agent.receive("eth0", bytes);
  payload.clear();
  bytes.clear();
  ASSERT_TRUE(pimbsr::wire::encodeBootstrap(*make(Bsm{}), payload));
  ASSERT_TRUE(pimbsr::wire::encodeIpv4(header, payload, bytes));
  platform.routes[addr("10.0.0.1")] = {
      .type = RouteType::remote, .intfId = intf("eth0"), .nextHop = addr("192.0.2.1")};
  agent.receive("eth0", bytes);
  auto elected = [this] { return agent.router().status()->bootstrapRouter(prefix("224.0.0.0/4")); };
  ASSERT_TRUE(elected());
  settings.interfaces["eth0"].bsm = false;
  follow();
  while (elected()) {
    if (agent.nextExpiry() <= clock.now()) agent.advance();
  }
  agent.receive("eth0", bytes);
  EXPECT_FALSE(elected());
  EXPECT_EQ(dropsFor("bsm-off"), 1u);
}

TEST_F(AgentTest, SendersOfAcceptedAdvertisementsReachTheSystemOnceTheyChange) {
  becomeBsr();
  std::vector<Zet::U8> const packet = advertisement({.rp = "203.0.113.1", .holdtime = 40000});
  agent.receive("eth0", packet);
  EXPECT_THAT(agent.advertisers(256), IsEmpty());
  double const later = clock.now() + pimbsr::host::Advertisers::probation;
  while (clock.now() < later) {
  }
  agent.receive("eth0", packet);
  EXPECT_THAT(agent.advertisers(256), ElementsAre(addr("203.0.113.1").v4Addr()));
  EXPECT_EQ(platform.advertiserChanges, 1);
  agent.receive("eth0", packet);
  EXPECT_EQ(platform.advertiserChanges, 1) << "a renewal changes nothing";
}

TEST_F(AgentTest, AdvertisementsWithTheZoneBitAreAFewLinesWhateverRpTheyName) {
  RecordingLog sink;
  becomeBsr();
  sink.records.clear();
  for (int i = 0; i < 1000; ++i) {
    std::string const rp = "203.0." + std::to_string(i / 250) + "." + std::to_string(1 + i % 250);
    agent.receive("eth0", advertisement({.groups = {{"224.0.0.0/4", scopedFlag}}, .rp = rp}));
  }
  ASSERT_THAT(sink.records, testing::SizeIs(testing::AllOf(testing::Ge(1u), testing::Le(6u))));
  EXPECT_EQ(sink.records[0].event.name, "PIMBSR_MESSAGE_CRP_ZONE");
  EXPECT_EQ(sink.records[0].text, "C-RP advertisement received from 203.0.0.1 with Zone bit set.");
  EXPECT_THAT(sink.records[0].subject,
              ElementsAre(testing::Pair("INTERFACE", "eth0"), testing::Pair("SENDER", "203.0.113.1")));
}

TEST_F(AgentTest, SenderOfAdvertisementsWithTheZoneBitHidesNoOtherSender) {
  RecordingLog sink;
  becomeBsr();
  sink.records.clear();
  Adv adv{.groups = {{"224.0.0.0/4", scopedFlag}}, .source = "203.0.113.7"};
  for (int i = 0; i < 100; ++i) agent.receive("eth0", advertisement(adv));
  adv.source = adv.rp = "203.0.113.8";
  agent.receive("eth0", advertisement(adv));
  ASSERT_FALSE(sink.records.empty());
  EXPECT_EQ(sink.records.back().text, "C-RP advertisement received from 203.0.113.8 with Zone bit set.");
}

/// The time of the log runs by the real clock, so that a second may go by.
TEST_F(AgentTest, AdvertisementsWithTheZoneBitFromManySendersAreBoundedTogether) {
  RecordingLog sink;
  becomeBsr();
  sink.records.clear();
  for (int i = 0; i < 1000; ++i) {
    std::string const source = "203.0." + std::to_string(i / 250) + "." + std::to_string(1 + i % 250);
    agent.receive("eth0", advertisement({.groups = {{"224.0.0.0/4", scopedFlag}}, .source = source}));
  }
  EXPECT_THAT(sink.records, testing::SizeIs(testing::AllOf(testing::Ge(20u), testing::Le(80u))));
}

TEST_F(AgentTest, FullRangesHideNoOtherRange) {
  RecordingLog sink;
  settings.ingress.rpsPerRange = 1;
  becomeBsr();
  sink.records.clear();
  for (int i = 0; i < 12; ++i) {
    std::string const range = "239." + std::to_string(i) + ".0.0/16";
    for (auto const& [rp, priority] : {std::pair("203.0.113.1", 9), {"203.0.113.2", 5}}) {
      Adv adv{.groups = {{range}}, .rp = rp};
      adv.priority = static_cast<Zet::U8>(priority);
      agent.receive("eth0", advertisement(adv));
    }
  }
  EXPECT_EQ(linesOf(sink, "PIMBSR_RANGE_FULL"), 12);
  EXPECT_EQ(linesOf(sink, "PIMBSR_RP_DISPLACED"), 12);
  EXPECT_EQ(sink.records.back().text,
            "Group range 239.11.0.0/16 loses RP 203.0.113.1 to 203.0.113.2, since the range is full.");
  EXPECT_THAT(sink.records.back().subject,
              ElementsAre(testing::Pair("INTERFACE", "eth0"), testing::Pair("RANGE", "239.11.0.0/16")));
}

TEST_F(AgentTest, DuplicateAddressIsCountedAndLoggedOnceInAMinute) {
  RecordingLog sink;
  Lanet::IpAddr const address = addr("192.0.2.9").v4Addr();
  agent::Clock slow{1};
  agent::Agent other(slow, platform, traffic, *this);
  other.kernelChanged();
  EXPECT_THAT(other.settingsIs(settings), IsEmpty());
  sink.records.clear();
  for (int i = 0; i < 10; ++i) other.duplicateAddress("eth0", address, "02:00:00:00:00:09", 3);
  ASSERT_THAT(sink.records, testing::SizeIs(1));
  EXPECT_EQ(sink.records[0].text,
            "interface eth0: 192.0.2.9 is also the address of another system with hardware address "
            "02:00:00:00:00:09, which has sent PIM packets: 3 since the last such line");
  EXPECT_EQ(traffic.duplicates("eth0"), 30u);
  other.clearCounters();
  EXPECT_EQ(traffic.duplicates("eth0"), 0u);
}

TEST_F(AgentTest, DuplicateAddressIsLoggedAgainAfterAMinute) {
  RecordingLog sink;
  for (int i = 0; i < 2; ++i) {
    agent.duplicateAddress("eth0", addr("192.0.2.9").v4Addr(), "", 1);
    double const later = clock.now() + 60;
    while (clock.now() < later) {
    }
  }
  ASSERT_THAT(sink.records, testing::SizeIs(2));
  EXPECT_THAT(sink.records[1].text,
              testing::EndsWith("which has sent PIM packets: 1 since the last such line"));
}

TEST_F(AgentTest, PacketBeyondTheRateEndsTheBudgetOfItsSender) {
  settings.ingress.packetsPerSecond = 2;
  follow();
  std::vector<Zet::U8> const packet(20);
  EXPECT_TRUE(agent.receive("eth0", packet));
  EXPECT_TRUE(agent.receive("eth0", packet)) << "what is malformed is no reason to rest";
  EXPECT_FALSE(agent.receive("eth0", packet));
}

TEST_F(AgentTest, AgentsThatStartInTheSameSecondHaveTheirOwnRng) {
  std::set<Zet::U32> generations;
  for (int i = 0; i < 3; ++i) {
    agent::Agent other(clock, platform, traffic, *this);
    other.kernelChanged();
    EXPECT_THAT(other.settingsIs(settings), IsEmpty());
    generations.insert(other.router().helloState(intf("eth0"))->generationId);
  }
  EXPECT_EQ(generations.size(), 3u);
}

TEST_F(AgentTest, GoodbyeEndsCandidaciesAndIsSentOnEveryInterface) {
  beCandidate("eth0");
  while (agent.router().helloState(intf("eth0"))->next <= clock.now() + 5) {
    if (agent.nextExpiry() <= clock.now()) agent.advance();
  }
  agent.sendGoodbyes();
  EXPECT_THAT(candidacies(), IsEmpty());
  EXPECT_THAT(platform.goodbyes, ElementsAre("eth0"));
}

}  // namespace
}  // namespace test

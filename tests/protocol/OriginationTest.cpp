#include "protocol/BsmOrigination.h"

#include "tests/protocol/CandidateSupport.h"

namespace test {
namespace {

using Routing::Pim::RpCandidateSet;
using Routing::Pim::RpCandidateStatus;
using Routing::Pim::Packet::BootstrapMessage;
using Zet::Ptr;

class Origination : public CandidateTest {
 public:
  /// Has the machine send, and gives what left.
  std::string originate(bool shutDown = false, std::string const& zone = globalZone) {
    machine(zone)->doSendBsm(shutDown);
    return lastSent();
  }
};

std::string const header = "forward tag 1 bsr 10.0.0.5 priority 10 mask 30";

// The fields ------------------------------------------------------------------------------------------

TEST_F(Origination, HeaderCarriesTheCandidacyCutToBytes) {
  struct {
    Candidacy given;
    bool shutDown;
    char const* message;
  } const table[] = {
      {{}, false, "forward tag 1 bsr 10.0.0.5 priority 10 mask 30"},
      {{}, true, "forward tag 2 bsr 10.0.0.5 priority 0 mask 30"},
      {{"10.0.0.6", 255, 32}, false, "forward tag 3 bsr 10.0.0.6 priority 255 mask 32"},
      {{"10.0.0.7", 266, 286}, false, "forward tag 4 bsr 10.0.0.7 priority 10 mask 30"},
      {{"10.0.0.7", 266, 286}, true, "forward tag 5 bsr 10.0.0.7 priority 0 mask 30"},
  };
  for (auto const& row : table) {
    restart([&] { configure(row.given); });
    EXPECT_EQ(originate(row.shutDown), row.message);
  }
  EXPECT_EQ(context.traced(" ( shutdown=True )"), 2);
  EXPECT_EQ(context.traced(" ( shutdown=False )"), 3);
}

TEST_F(Origination, TagIsTheLowerHalfOfEachDraw) {
  configure();
  context.randoms = {0x12345678, 0x10000, 0xffff};
  for (unsigned tag : {0x5678u, 0u, 0xffffu}) {
    originate();
    EXPECT_EQ(machine()->lastBsm()->fragmentTag(), tag);
  }
}

TEST_F(Origination, MessageThatLeftIsKept) {
  configure();
  originate();
  EXPECT_EQ(machine()->lastBsm(), engine.outbox->sent.back().message);
}

TEST_F(Origination, MachineThatWaitsSendsNothingAndDrawsNoTag) {
  configure({.priority = 256});
  machine()->doSendBsm(true);
  EXPECT_EQ(sent(), 0u);
  EXPECT_FALSE(machine()->lastBsm());
  EXPECT_EQ(context.traced(" ( shutdown=True )"), 1);
  candidate()->priorityIs(10);
  EXPECT_EQ(originate(), header);
}

TEST_F(Origination, RpRecordAnnouncesTheHoldtimeAsAdvertised) {
  configure();
  Ptr<Routing::Pim::RpCandidate> rp = putRp("203.0.113.1");
  rp->holdTimeIs(180);
  rp->expiresIs(Zet::now() + 4);
  rp->priorityIs(256);
  engine.runTo(3);
  EXPECT_EQ(originate(), header + " | 224.0.0.0/4 flags 0 count 1 frag 1 203.0.113.1/180/0");
  EXPECT_EQ(engine.since(rp->expires()), 4);
}

TEST_F(Origination, BidirectionalRangesGoOutWithoutTheirFlag) {
  configure();
  putRp("203.0.113.1")->pimModeIs(Routing::Pim::Mode::bidir);
  EXPECT_EQ(originate(), header + " | 224.0.0.0/4 flags 0 count 1 frag 1 203.0.113.1/1000/7");
}

// The groups ------------------------------------------------------------------------------------------

struct Holding {
  char const* name;
  char const* zone;
  void (*fill)(Origination&);
  char const* groups;
};

void fillNothing(Origination&) {}

void fillZoneWithoutSet(Origination& test) {
  test.engine.status->crpStatusIs(prefix(globalZone));
  test.engine.status->crpStatusIs(prefix(orgZone));
}

void fillSetWithoutRange(Origination& test) {
  fillZoneWithoutSet(test);
  test.engine.status->crpStatus(prefix(globalZone))->statusIs("");
  test.engine.status->crpStatus(prefix(orgZone))->statusIs("");
}

void fillZoneItself(Origination& test) {
  test.putRp("203.0.113.1");
  test.putRp("203.0.113.2", orgZone, orgZone);
}

void fillPartOfTheZone(Origination& test) { test.putRp("203.0.113.3", "239.1.0.0/16", orgZone); }

void fillEmptyRange(Origination& test) {
  auto rpSet = test.engine.status->crpStatusIs(prefix(orgZone))->statusIs("");
  rpSet->crpSetIs(prefix(orgZone));
  rpSet->crpSetIs(prefix("239.1.0.0/16"));
}

class OriginatedGroups : public Origination, public testing::WithParamInterface<Holding> {};

TEST_P(OriginatedGroups, FollowTheRpSet) {
  configure({}, GetParam().zone);
  GetParam().fill(*this);
  EXPECT_EQ(originate(false, GetParam().zone), header + GetParam().groups);
}

Holding const holdings[] = {
    {"GlobalNothing", globalZone, fillNothing, ""},
    {"GlobalZoneWithoutSet", globalZone, fillZoneWithoutSet, ""},
    {"GlobalSetWithoutRange", globalZone, fillSetWithoutRange, ""},
    {"GlobalZoneItself", globalZone, fillZoneItself,
     " | 224.0.0.0/4 flags 0 count 1 frag 1 203.0.113.1/1000/7"},
    {"ScopedNothing", orgZone, fillNothing, " | 239.0.0.0/8 flags 1 count 0 frag 0"},
    {"ScopedZoneWithoutSet", orgZone, fillZoneWithoutSet, " | 239.0.0.0/8 flags 1 count 0 frag 0"},
    {"ScopedSetWithoutRange", orgZone, fillSetWithoutRange, " | 239.0.0.0/8 flags 1 count 0 frag 0"},
    {"ScopedZoneItself", orgZone, fillZoneItself, " | 239.0.0.0/8 flags 1 count 1 frag 1 203.0.113.2/1000/7"},
    {"ScopedPartOfTheZone", orgZone, fillPartOfTheZone,
     " | 239.0.0.0/8 flags 1 count 0 frag 0 | 239.1.0.0/16 flags 0 count 1 frag 1 203.0.113.3/1000/7"},
    {"ScopedEmptyRange", orgZone, fillEmptyRange,
     " | 239.0.0.0/8 flags 1 count 0 frag 0 | 239.1.0.0/16 flags 0 count 0 frag 0"},
};

std::string nameOf(testing::TestParamInfo<Holding> const& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(Of, OriginatedGroups, testing::ValuesIn(holdings), nameOf);

/// The ranges of a set in walk order, and the RPs of a range.
std::vector<std::string> ranges(RpCandidateStatus const& rpSet) {
  std::vector<std::string> all;
  for (auto set = rpSet.crpSetIterator(); set; ++set) all.emplace_back(set->prefix().stringValue().view());
  return all;
}

std::vector<std::string> ranges(BootstrapMessage const& message) {
  std::vector<std::string> all;
  for (auto group = message.groupRpData()->groupDataIterator(); group; ++group) {
    all.emplace_back(group->prefix().stringValue().view());
  }
  return all;
}

TEST_F(Origination, ScopedZoneComesFirstAndTheOthersInWalkOrder) {
  configure({}, orgZone);
  for (int i = 0; i < 20; ++i) putRp("203.0.113.1", "239." + std::to_string(i) + ".0.0/16", orgZone);
  putRp("203.0.113.2", orgZone, orgZone);
  std::vector<std::string> expected = ranges(*engine.status->crpStatus(prefix(orgZone))->status());
  ASSERT_NE(expected.front(), orgZone) << "the walk itself must not begin with the zone";
  std::erase(expected, orgZone);
  expected.insert(expected.begin(), orgZone);
  originate(false, orgZone);
  EXPECT_EQ(ranges(*machine(orgZone)->lastBsm()), expected);
  auto group = machine(orgZone)->lastBsm()->groupRpData()->groupDataIterator();
  for (++group; group; ++group) EXPECT_EQ(group->groupFlags().value, 0);
}

TEST_F(Origination, GlobalZoneHasNoPlaceOfItsOwn) {
  configure();
  for (int i = 0; i < 20; ++i)
    putRp("203.0.113.1", std::to_string(225 + i % 10) + ".0.0.0/" + std::to_string(8 + i));
  putRp("203.0.113.2");
  originate();
  EXPECT_EQ(ranges(*machine()->lastBsm()), ranges(*engine.status->crpStatus(prefix(globalZone))->status()));
}

TEST_F(Origination, EachRecordIsTraced) {
  configure({}, orgZone);
  putRp("203.0.113.3", "239.1.0.0/16", orgZone);
  context.traces.clear();
  originate(false, orgZone);
  EXPECT_EQ(context.traced("Adding Zone 239.0.0.0/8 in BSM"), 1);
  EXPECT_EQ(context.traced("Adding CRP prefix 239.1.0.0/16 in BSM"), 1);
  EXPECT_EQ(context.traced("RP count in BSM is 0"), 1);
  EXPECT_EQ(context.traced("RP count in BSM is 1"), 1);
  EXPECT_EQ(context.traced("No zone or CRP set"), 0);
}

TEST_F(Origination, GlobalZoneWithoutRpsIsTraced) {
  configure();
  originate();
  EXPECT_EQ(context.traced("No zone or CRP set"), 1);
  EXPECT_EQ(context.tracedPrefix("RP count in BSM is"), 0);
}

// Shutdown and withdrawal -----------------------------------------------------------------------------

TEST_F(Origination, ShutdownKeepsTheGroups) {
  configure({}, orgZone);
  fillZoneItself(*this);
  fillPartOfTheZone(*this);
  std::string usual = originate(false, orgZone);
  EXPECT_EQ(originate(true, orgZone),
            "forward tag 2 bsr 10.0.0.5 priority 0 mask 30" + usual.substr(header.size()));
}

TEST_F(Origination, WithdrawnRpGoesOutOnceAndThenGoes) {
  toElected();
  putRp("203.0.113.1");
  Ptr<Routing::Pim::RpCandidate> withdrawn = putRp("203.0.113.2");
  withdrawn->holdTimeIs(0);
  engine.runTo(15);
  EXPECT_EQ(engine.since(withdrawn->expires()), 15);
  EXPECT_EQ(context.traced("RP 203.0.113.2 to expire now since holdtime is 0"), 1);
  std::string sent = lastSent();
  EXPECT_NE(sent.find("count 2 frag 2"), std::string::npos) << sent;
  EXPECT_NE(sent.find(" 203.0.113.2/0/7"), std::string::npos) << sent;
  EXPECT_EQ(engine.rpSet(globalZone), "224.0.0.0/4: 203.0.113.1/1000/7");
  EXPECT_EQ(engine.mirror(), engine.rpSet(globalZone));
  engine.runTo(75);
  EXPECT_EQ(lastSent(),
            "forward tag 3 bsr 10.0.0.5 priority 10 mask 30 | 224.0.0.0/4 flags 0 count 1 frag 1 "
            "203.0.113.1/1000/7");
}

TEST_F(Origination, WithdrawnRpStaysUntilTheTimerWheelTurns) {
  configure();
  Ptr<Routing::Pim::RpCandidate> withdrawn = putRp("203.0.113.2");
  withdrawn->holdTimeIs(0);
  engine.runTo(2);
  EXPECT_EQ(originate(), header + " | 224.0.0.0/4 flags 0 count 1 frag 1 203.0.113.2/0/7");
  EXPECT_EQ(engine.since(withdrawn->expires()), 2);
  EXPECT_TRUE(engine.rp(globalZone, globalZone, "203.0.113.2"));
  engine.runTo(2);
  EXPECT_FALSE(engine.rp(globalZone, globalZone, "203.0.113.2"));
}

// Counts ----------------------------------------------------------------------------------------------

TEST_F(Origination, CountsAreCutToAByteButAllRpsAreThere) {
  configure();
  struct {
    int rps, count;
  } const table[] = {{255, 255}, {256, 0}, {300, 44}};
  int put = 0;
  for (auto const& row : table) {
    for (; put < row.rps; ++put)
      putRp("203.0." + std::to_string(put / 250) + "." + std::to_string(put % 250));
    auto message = Zet::make<BootstrapMessage>();
    message->groupRpDataIs(Zet::make<Routing::Pim::Packet::BootstrapOptionalData>());
    Bsr::addZoneGroups(*message, engine.status->crpStatus(prefix(globalZone))->status(), prefix(globalZone),
                       false);
    auto group = message->groupRpData()->groupDataFirst();
    EXPECT_EQ(group->rpCount(), row.count);
    EXPECT_EQ(group->fragRpCount(), row.count);
    EXPECT_EQ(static_cast<int>(group->rpListCount()), row.rps);
  }
}

TEST_F(Origination, RecordNeedsASetOrAFlag) {
  struct {
    Zet::U8 flags;
    unsigned records;
  } const table[] = {{0, 0}, {1, 1}};
  for (auto const& row : table) {
    auto message = Zet::make<BootstrapMessage>();
    message->groupRpDataIs(Zet::make<Routing::Pim::Packet::BootstrapOptionalData>());
    Bsr::doAddGroupData(*message, Ptr<RpCandidateSet>(), prefix(orgZone), row.flags);
    EXPECT_EQ(message->groupRpData()->groupDataCount(), row.records);
  }
}

}  // namespace
}  // namespace test

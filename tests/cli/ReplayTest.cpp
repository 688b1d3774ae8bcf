#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "cli/capture/Capture.h"
#include "cli/replay/Replay.h"
#include "cli/replay/ReplayCommand.h"
#include "model/Counters.h"
#include "tests/cli/CliSupport.h"
#include "wire/Wire.h"

namespace pimbsr::cli {
namespace {

using nlohmann::json;
using test::addr;
using test::Bsm;
using test::CaptureFile;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

/// The timeline of a replay: rows as "time event where who", with single blanks, without details.
std::vector<std::string> timeline(std::string const& text) {
  std::vector<std::string> rows;
  std::istringstream lines(text);
  std::string line;
  for (int head = 0; head < 3; ++head) std::getline(lines, line);
  while (std::getline(lines, line) && !line.empty()) {
    std::istringstream words(line.substr(0, 67));
    std::string row;
    for (std::string word; words >> word;) row += (row.empty() ? "" : " ") + word;
    rows.push_back(row);
  }
  return rows;
}

ReplayOptions optionsFor(CaptureFile const& file) {
  ReplayOptions options;
  options.file = file.path();
  return options;
}

std::vector<std::string> timelineOf(ReplayOptions const& options) {
  test::RunResult run = test::replay(options);
  EXPECT_EQ(run.code, exitOk);
  EXPECT_EQ(run.err, "");
  return timeline(run.out);
}

json documentOf(ReplayOptions options) {
  options.delivery.json = true;
  test::RunResult run = test::replay(options);
  EXPECT_EQ(run.err, "");
  return json::parse(run.out);
}

/// The counts of the drops in a document, by reason.
json dropsOf(json const& document) {
  json counts = json::object();
  for (json const& drop : document["drops"]) counts[drop["reason"].get<std::string>()] = drop["count"];
  return counts;
}

/// Counters by name; one with parts has those.
json byName(json const& counters) {
  json values = json::object();
  for (json const& counter : counters) {
    json& value = values[counter["name"].get<std::string>()];
    value = counter.contains("parts") ? byName(counter["parts"]) : counter["value"];
  }
  return values;
}

Bsm global(std::string const& source = "192.0.2.1") {
  return {.bsr = "198.51.100.1",
          .groups = {{.prefix = "224.0.0.0/4", .rps = {{"203.0.113.1"}}}},
          .source = source};
}

Bsm scoped() {
  Bsm bsm = global();
  bsm.groups = {{.prefix = "239.255.0.0/16", .rps = {{"203.0.113.1"}}, .flags = test::scopedFlag}};
  return bsm;
}

// Forms of captures -----------------------------------------------------------------------------------

TEST(ReplayTest, EveryFormOfACaptureIsPlayedAlike) {
  std::vector<std::string> expected = timeline(test::replay(test::capture("few-ethernet.pcap")).out);
  ASSERT_EQ(expected.size(), 11u);
  for (char const* name :
       {"few-ethernet.pcapng", "few-big-endian.pcap", "few-nanosecond.pcap", "few-vlan.pcap",
        "few-cooked.pcap", "few-cooked-2.pcap", "few-raw-ip.pcap", "starts-near-zero.pcap"}) {
    test::RunResult run = test::replay(test::capture(name));
    EXPECT_EQ(run.code, exitOk) << name;
    EXPECT_EQ(timeline(run.out), expected) << name;
  }
}

TEST(ReplayTest, HeadHasTheDateOfTheFirstPacketWhereItIsReal) {
  EXPECT_THAT(
      test::replay(test::capture("few-vlan.pcap")).out,
      StartsWith("few-vlan.pcap: first packet at 2026-01-15 09:00:00.000 UTC; times are seconds after"));
  EXPECT_THAT(test::replay(test::capture("starts-near-zero.pcap")).out,
              StartsWith("starts-near-zero.pcap: first packet without a date; times are seconds after it"));
}

TEST(ReplayTest, CutPacketsCountAsMalformed) {
  ReplayOptions options;
  options.file = test::capture("few-snapped.pcap");
  json document = documentOf(options);
  json messages = document["messages"];
  EXPECT_EQ(messages["malformed"], 4);
  EXPECT_EQ(dropsOf(document), json({{"truncated", 4}}));
  EXPECT_EQ(messages["bsm"], 0) << "a malformed message counts as that alone";
}

// Fragments -------------------------------------------------------------------------------------------

/// An advertisement with so many ranges, as a packet for the BSR.
test::Bytes advertisementOf(int ranges) {
  Routing::Pim::Packet::CrpAdvMessage adv;
  adv.rpAddressIs(addr("203.0.113.1"));
  adv.holdtimeIs(150);
  adv.prefixCountIs(static_cast<Zet::U8>(ranges));
  adv.groupDataIs(Zet::make<Routing::Pim::Packet::CrpGroupData>());
  for (int i = 0; i < ranges; ++i)
    adv.groupData()->groupInfoIs(test::prefix("239.1." + std::to_string(i) + ".0/24"));
  test::Bytes pim;
  EXPECT_TRUE(wire::encodeCrpAdv(adv, pim));
  return test::ipv4Of(pim, "203.0.113.1", "198.51.100.1");
}

class ReplayOfFragments : public testing::Test {
 protected:
  test::Bytes whole = advertisementOf(200);
  test::Bytes first = test::fragmentOf(whole, {0, 1480});
  test::Bytes second = test::fragmentOf(whole, {1480, whole.size() - 1500, false});
  CaptureFile file;
};

TEST_F(ReplayOfFragments, PacketIsPlayedWhenItsLastFragmentArrives) {
  file.add(0, second).add(0.5, first);
  json document = documentOf(optionsFor(file));
  EXPECT_EQ(document["messages"]["crpAdv"], 1);
  EXPECT_EQ(document["messages"]["pim"], 1);
  EXPECT_EQ(dropsOf(document), json::object());
  json event = document["timeline"][0];
  EXPECT_EQ(event["time"], 0.5);
  EXPECT_EQ(event["received"]["sender"], "203.0.113.1");
  EXPECT_EQ(event["received"]["crpAdv"]["ranges"].size(), 200u);
}

TEST_F(ReplayOfFragments, IncompletePacketIsDroppedOnceWhenItsTimeIsOver) {
  file.add(0, first).add(1, first).add(31, global());
  EXPECT_THAT(
      timelineOf(optionsFor(file)),
      testing::IsSupersetOf({"30.000 PIM malformed -", "31.000 BSM accepted 192.0.2.1 198.51.100.1"}));
  json document = documentOf(optionsFor(file));
  EXPECT_EQ(dropsOf(document), json({{"ip-fragment", 1}}));
  EXPECT_EQ(document["messages"]["malformed"], 1);
  EXPECT_EQ(document["messages"]["pim"], 2);
}

TEST_F(ReplayOfFragments, PacketThatIsIncompleteAtTheEndIsDroppedThen) {
  file.add(0, second).add(2, test::Bytes());
  ReplayOptions options = optionsFor(file);
  options.until = 100;
  EXPECT_THAT(timelineOf(options), ElementsAre("2.000 PIM malformed -", "102.000 end"));
}

TEST_F(ReplayOfFragments, OldestOfTooManyIncompletePacketsIsDroppedAtOnce) {
  for (std::size_t i = 0; i <= Reassembly::maxPackets; ++i) {
    test::Bytes other = test::ipv4Of(test::Bytes(3000), "192.0.2.1", "224.0.0.13", static_cast<Zet::U16>(i));
    file.add(1, test::fragmentOf(other, {0, 1480}));
  }
  file.add(2, test::Bytes());
  json document = documentOf(optionsFor(file));
  EXPECT_EQ(document["timeline"][0]["time"], 0);
  EXPECT_EQ(document["timeline"][1]["time"], 1);
  EXPECT_EQ(dropsOf(document), json({{"ip-fragment", Reassembly::maxPackets + 1}}));
}

// Time ------------------------------------------------------------------------------------------------

TEST(ReplayTest, TimeThatRunsBackIsPlayedAtTheClock) {
  EXPECT_THAT(timeline(test::replay(test::capture("time-runs-back.pcap")).out),
              ElementsAre("0.000 BSM accepted 192.0.2.1 198.51.100.1", "BSR elected 224.0.0.0/4 198.51.100.1",
                          "RP added 224.0.0.0/4 203.0.113.1", "RP added 224.0.0.0/4 203.0.113.2",
                          "RP added 233.252.0.0/24 203.0.113.3", "0.000 BSM accepted 192.0.2.1 198.51.100.1",
                          "60.000 BSM accepted 192.0.2.1 198.51.100.1", "60.000 last packet"));
}

TEST(ReplayTest, TimersRunAtTheirOwnTimesBeforeTheNextPacket) {
  CaptureFile file;
  file.add(0, global()).add(500.25, global());
  EXPECT_THAT(
      timelineOf(optionsFor(file)),
      ElementsAre("0.000 BSM accepted 192.0.2.1 198.51.100.1", "BSR elected 224.0.0.0/4 198.51.100.1",
                  "RP added 224.0.0.0/4 203.0.113.1", "130.000 BSR expired 224.0.0.0/4 198.51.100.1",
                  "280.000 RP expired 224.0.0.0/4 203.0.113.1", "500.250 BSM accepted 192.0.2.1 198.51.100.1",
                  "BSR elected 224.0.0.0/4 198.51.100.1", "RP added 224.0.0.0/4 203.0.113.1",
                  "500.250 last packet"));
}

TEST(ReplayTest, TimerAtTheVeryTimeOfAPacketRunsFirst) {
  CaptureFile file;
  file.add(0, global()).add(130, global());
  EXPECT_THAT(timelineOf(optionsFor(file)),
              testing::IsSupersetOf(
                  {"130.000 BSR expired 224.0.0.0/4 198.51.100.1", "BSR elected 224.0.0.0/4 198.51.100.1"}));
}

TEST(ReplayTest, PacketsThatAreNoPimMoveTheClockToo) {
  CaptureFile file;
  file.add(0, global()).add(200, test::Bytes{0x45, 0});
  EXPECT_THAT(timelineOf(optionsFor(file)),
              testing::IsSupersetOf({"130.000 BSR expired 224.0.0.0/4 198.51.100.1", "200.000 last packet"}));
}

TEST(ReplayTest, ClockRunsOnAfterTheLastPacketForAsLongAsAsked) {
  CaptureFile file;
  file.add(0, scoped());
  ReplayOptions options = optionsFor(file);
  options.until = 129.5;
  EXPECT_THAT(timelineOf(options), Not(testing::Contains(HasSubstr("expired"))));
  options.until = 1430;
  EXPECT_THAT(
      timelineOf(options),
      ElementsAre("0.000 BSM accepted 192.0.2.1 198.51.100.1", "BSR elected 239.255.0.0/16 198.51.100.1",
                  "RP added 239.255.0.0/16 203.0.113.1", "130.000 BSR expired 239.255.0.0/16 198.51.100.1",
                  "280.000 RP expired 239.255.0.0/16 203.0.113.1", "1430.000 zone forgotten 239.255.0.0/16",
                  "1430.000 end"));
  EXPECT_EQ(documentOf(options)["zones"], json::array());
  EXPECT_THAT(test::replay(options).out, HasSubstr("1430.000 s after the last packet"));
}

TEST(ReplayTest, BsTimeoutAndSzTimeoutAreThoseAsked) {
  CaptureFile file;
  file.add(0, scoped());
  ReplayOptions options = optionsFor(file);
  options.until = 1000;
  options.router = {.bsTimeout = 12, .szTimeout = 120};
  EXPECT_THAT(timelineOf(options), testing::IsSupersetOf({"12.000 BSR expired 239.255.0.0/16 198.51.100.1",
                                                          "132.000 zone forgotten 239.255.0.0/16",
                                                          "162.000 RP expired 239.255.0.0/16 203.0.113.1"}));
}

TEST(ReplayTest, NoForwardMessageIsTakenInTheFirstMinuteOfTheCaptureOnly) {
  Bsm bsm = global();
  bsm.forward = false;
  CaptureFile early;
  early.add(0, test::Bytes()).add(60, bsm);
  EXPECT_THAT(timelineOf(optionsFor(early)), testing::Contains(StartsWith("60.000 BSM accepted")));
  CaptureFile late;
  late.add(0, test::Bytes()).add(60.001, bsm);
  EXPECT_THAT(timelineOf(optionsFor(late)), testing::Contains(StartsWith("60.001 BSM dropped")));
}

// RPF neighbors ---------------------------------------------------------------------------------------

TEST(ReplayTest, FirstSourceOfABsrIsItsRpfNeighbor) {
  Bsm other = global("192.0.2.2");
  other.bsr = "198.51.100.2";
  other.priority = 200;
  CaptureFile file;
  file.add(0, global()).add(1, global("192.0.2.2")).add(2, other);
  EXPECT_THAT(timelineOf(optionsFor(file)),
              testing::IsSupersetOf({"0.000 BSM accepted 192.0.2.1 198.51.100.1",
                                     "1.000 BSM dropped 192.0.2.2 198.51.100.1",
                                     "2.000 BSM accepted 192.0.2.2 198.51.100.2"}));
  EXPECT_THAT(test::replay(file.path()).out,
              HasSubstr("not-rpf-neighbor: The Bootstrap Message is not from the RPF neighbor towards its "
                        "BSR. That is 192.0.2.1."));
}

TEST(ReplayTest, NoForwardMessageSaysNothingOfTheRpfNeighbor) {
  Bsm noForward = global("192.0.2.2");
  noForward.forward = false;
  CaptureFile file;
  file.add(0, noForward).add(1, global("192.0.2.1")).add(2, global("192.0.2.2"));
  EXPECT_THAT(timelineOf(optionsFor(file)),
              testing::IsSupersetOf({"0.000 BSM accepted 192.0.2.2 198.51.100.1",
                                     "1.000 BSM accepted 192.0.2.1 198.51.100.1",
                                     "2.000 BSM dropped 192.0.2.2 198.51.100.1"}));
}

TEST(ReplayTest, MessageThatTheGateDropsForItsDestinationSetsTheRpfNeighbor) {
  Bsm unicast = global("192.0.2.2");
  unicast.destination = "192.0.2.9";
  CaptureFile file;
  file.add(0, unicast).add(1, global("192.0.2.1")).add(2, global("192.0.2.2"));
  EXPECT_THAT(timelineOf(optionsFor(file)),
              testing::IsSupersetOf({"0.000 BSM dropped 192.0.2.2 198.51.100.1",
                                     "1.000 BSM dropped 192.0.2.1 198.51.100.1",
                                     "2.000 BSM accepted 192.0.2.2 198.51.100.1"}));
}

TEST(ReplayTest, MessageThatDoesNotReachTheGateSaysNothingOfTheRpfNeighbor) {
  Bsm wrong = global("192.0.2.2");
  wrong.hashMaskLen = 33;
  CaptureFile file;
  file.add(0, wrong).add(1, global("192.0.2.1"));
  EXPECT_THAT(timelineOf(optionsFor(file)),
              testing::IsSupersetOf(
                  {"0.000 BSM dropped 192.0.2.2 198.51.100.1", "1.000 BSM accepted 192.0.2.1 198.51.100.1"}));
}

TEST(ReplayTest, GivenRpfNeighborStays) {
  CaptureFile file;
  file.add(0, global("192.0.2.1")).add(1, global("192.0.2.2"));
  ReplayOptions options = optionsFor(file);
  options.rpf[addr("198.51.100.1")] = addr("192.0.2.2");
  EXPECT_THAT(timelineOf(options), testing::IsSupersetOf({"0.000 BSM dropped 192.0.2.1 198.51.100.1",
                                                          "1.000 BSM accepted 192.0.2.2 198.51.100.1"}));
}

// Output ----------------------------------------------------------------------------------------------

TEST(ReplayTest, RpsAreListedInTheOrderOfTheirNumbers) {
  Bsm bsm = global();
  bsm.groups[0].rps = {{"203.0.113.100"}, {"203.0.113.20"}, {"203.0.113.3"}};
  CaptureFile file;
  file.add(0, bsm);
  EXPECT_THAT(timelineOf(optionsFor(file)),
              ElementsAre("0.000 BSM accepted 192.0.2.1 198.51.100.1", "BSR elected 224.0.0.0/4 198.51.100.1",
                          "RP added 224.0.0.0/4 203.0.113.3", "RP added 224.0.0.0/4 203.0.113.20",
                          "RP added 224.0.0.0/4 203.0.113.100", "0.000 last packet"));
  json rps = documentOf(optionsFor(file))["zones"][0]["rpSet"][0]["rps"];
  ASSERT_EQ(rps.size(), 3u);
  EXPECT_EQ(rps[0], json({{"address", "203.0.113.3"},
                          {"priority", 0},
                          {"holdtime", 150},
                          {"bidirectional", false},
                          {"expiresIn", 150.0}}));
  EXPECT_EQ(rps[2]["address"], "203.0.113.100");
}

TEST(ReplayTest, ZonesAndRangesAreListedInTheOrderOfTheirNumbers) {
  Bsm bsm = global();
  bsm.groups = {{.prefix = "239.0.0.0/8", .rps = {{"203.0.113.1"}}},
                {.prefix = "224.0.0.0/4", .rps = {{"203.0.113.1"}}},
                {.prefix = "224.0.0.0/24", .rps = {{"203.0.113.1"}}}};
  CaptureFile file;
  file.add(0, scoped()).add(1, bsm);
  json zones = documentOf(optionsFor(file))["zones"];
  ASSERT_EQ(zones.size(), 2u);
  EXPECT_EQ(zones[0]["zone"], "224.0.0.0/4");
  EXPECT_EQ(zones[1]["zone"], "239.255.0.0/16");
  ASSERT_EQ(zones[0]["rpSet"].size(), 3u);
  EXPECT_EQ(zones[0]["rpSet"][0]["range"], "224.0.0.0/4");
  EXPECT_EQ(zones[0]["rpSet"][1]["range"], "224.0.0.0/24");
  EXPECT_EQ(zones[0]["rpSet"][2]["range"], "239.0.0.0/8");
}

TEST(ReplayTest, ZoneWithoutABsrIsListedWhileItHasAMachineOrRps) {
  CaptureFile file;
  file.add(0, scoped());
  ReplayOptions options = optionsFor(file);
  options.until = 200;
  json zones = documentOf(options)["zones"];
  ASSERT_EQ(zones.size(), 1u);
  EXPECT_TRUE(zones[0]["bsr"].is_null());
  EXPECT_EQ(zones[0]["rpSet"].size(), 1u);
  options.until = 1000;
  EXPECT_EQ(documentOf(options)["zones"],
            json::parse(R"([{"zone": "239.255.0.0/16", "bsr": null, "rpSet": []}])"));
}

TEST(ReplayTest, BidirectionalRangeIsMarked) {
  Bsm bsm = global();
  bsm.groups[0].flags = test::bidirFlag;
  CaptureFile file;
  file.add(0, bsm);
  std::string out = test::replay(file.path()).out;
  EXPECT_THAT(out, HasSubstr("priority 0, holdtime 150 s, bidirectional\n"));
  EXPECT_THAT(out, HasSubstr("150.000  bidirectional\n"));
}

TEST(ReplayTest, EveryDeclaredCounterIsListedByItsName) {
  CaptureFile file;
  file.add(0, global()).add(1, global("192.0.2.2"));
  json counters = byName(documentOf(optionsFor(file))["counters"]);
  std::size_t declared = 0;
  for (Zet::AttributeRow const& row : Routing::Pim::Bsr::PimBsrCounters::_fwkType().rows) {
    if (row.kind == Zet::AttributeKind::constructor) continue;
    ++declared;
    EXPECT_TRUE(counters.contains(row.name)) << row.name;
  }
  EXPECT_EQ(counters.size(), declared);
  EXPECT_EQ(counters["rx"], 2);
  EXPECT_EQ(counters["rxBsmSuccess"], 1);
  EXPECT_EQ(counters["tx"], 0);
  json errors = {{"rxFilter", 0},     {"rxNbrRpfCheck", 1},   {"rxNoForwardBsm", 0},
                 {"rxUnicastBsm", 0}, {"rxScopeMismatch", 0}, {"rxInvalid", 0}};
  EXPECT_EQ(counters["errCounters"], errors);
}

TEST(ReplayTest, JsonHasItsMembersInOrderAndNothingElseIsPrinted) {
  ReplayOptions options;
  options.file = test::capture("few-ethernet.pcap");
  options.delivery.json = true;
  test::RunResult run = test::replay(options);
  auto document = nlohmann::ordered_json::parse(run.out);
  std::vector<std::string> names;
  for (auto const& [name, value] : document.items()) names.push_back(name);
  for (auto const& [name, value] : document["messages"].items()) names.push_back(name);
  for (auto const& [name, value] : document["zones"][0].items()) names.push_back(name);
  EXPECT_THAT(names, ElementsAre("end", "timeline", "messages", "drops", "zones", "counters", "pim", "bsm",
                                 "crpAdv", "hello", "other", "malformed", "zone", "bsr", "rpSet"));
}

TEST(ReplayTest, MessagesOverIpv6AreOther) {
  test::Bytes packet(44, 0);
  packet[0] = 0x60;
  packet[6] = 103;
  CaptureFile file;
  file.add(0, packet);
  json messages = documentOf(optionsFor(file))["messages"];
  EXPECT_EQ(messages["pim"], 1);
  EXPECT_EQ(messages["other"], 1);
}

TEST(ReplayTest, EachDropIsCountedByItsReason) {
  test::Bytes noSuchVersion{0x14, 0, 0, 0};
  Bsm tooLong = global();
  tooLong.groups[0].rps[0].holdtime = 40959;
  Bsm toHosts = global();
  toHosts.destination = "224.0.0.1";
  CaptureFile file;
  file.add(0, test::ipv4Of(noSuchVersion)).add(1, tooLong).add(2, tooLong).add(3, toHosts);
  ReplayOptions options = optionsFor(file);
  options.router.corrections = {};  // none, so that no holdtime is corrected
  json document = documentOf(options);
  json messages = document["messages"];
  EXPECT_EQ(messages["pim"], 4);
  EXPECT_EQ(messages["bsm"], 3);
  EXPECT_EQ(messages["malformed"], 1);
  EXPECT_EQ(dropsOf(document), json({{"version", 1}, {"holdtime", 2}, {"bootstrap-destination", 1}}));
}

// Trace -----------------------------------------------------------------------------------------------

TEST(ReplayTest, TraceGoesToStderrWithItsTime) {
  CaptureFile file;
  file.add(0, test::Bytes()).add(2.5, global()).add(3, global("192.0.2.2"));
  ReplayOptions options = optionsFor(file);
  std::string quiet = test::replay(options).out;
  options.traces = {{"Pim::Bsr::IO", 4}};
  test::RunResult run = test::replay(options);
  EXPECT_EQ(run.out, quiet);
  EXPECT_THAT(
      run.err,
      AllOf(HasSubstr("     2.500  Pim::Bsr::IO:4 BootstrapMessageSm: RX - Accepted BSM from 192.0.2.1\n"),
            HasSubstr("     3.000  Pim::Bsr::IO:1 BootstrapMessageSm: RX - Error - Dropping BSM"),
            Not(HasSubstr("Pim::Bsr::Sm"))));
  options.traces = {{"Pim::Bsr::IO", 3}};
  EXPECT_THAT(test::replay(options).err, Not(HasSubstr("Accepted")));
}

// Errors ----------------------------------------------------------------------------------------------

TEST(ReplayTest, CaptureWithoutPimSaysSoAndIsNoError) {
  struct Case {
    char const* file;
    char const* text;
  };
  Case const cases[] = {
      {"no-pim.pcap", "There is no PIM in no-pim.pcap: 1 packet, none of them PIM.\n"},
      {"header-only.pcap", "There is no PIM in header-only.pcap: 0 packets, none of them PIM.\n"},
  };
  for (Case const& one : cases) {
    test::RunResult run = test::replay(test::capture(one.file));
    EXPECT_EQ(run.code, exitOk);
    EXPECT_EQ(run.out, one.text);
    EXPECT_EQ(run.err, "");
    ReplayOptions options;
    options.file = test::capture(one.file);
    json document = documentOf(options);
    EXPECT_EQ(document["zones"], json::array());
    EXPECT_EQ(document["messages"]["pim"], 0);
    EXPECT_EQ(dropsOf(document), json::object());
    EXPECT_EQ(byName(document["counters"])["rx"], 0);
  }
}

TEST(ReplayTest, FileThatCannotBeReadIsAnError) {
  for (char const* name :
       {"zero-bytes.pcap", "not-a-capture.txt", "unknown-link-type.pcap", "there-is-none.pcap"}) {
    test::RunResult run = test::replay(test::capture(name));
    EXPECT_EQ(run.code, exitFailed) << name;
    EXPECT_EQ(run.out, "") << name;
    EXPECT_THAT(run.err, AllOf(StartsWith("pimbsr: "), HasSubstr(name))) << name;
  }
}

TEST(ReplayTest, CaptureCutShortIsPlayedToTheCutAndIsAnError) {
  ReplayOptions options;
  options.file = test::capture("cut-short.pcap");
  options.until = 1000;
  test::RunResult run = test::replay(options);
  EXPECT_EQ(run.code, exitFailed);
  EXPECT_THAT(timeline(run.out).back(), testing::Eq("3.000 cut short")) << "the clock doesn't run on";
  EXPECT_THAT(run.err, HasSubstr("cut-short.pcap is cut short in the middle of packet 6"));
  options.delivery.json = true;
  run = test::replay(options);
  EXPECT_EQ(run.code, exitFailed);
  EXPECT_EQ(run.out, "") << "half a truth would look whole to a program";
}

TEST(ReplayTest, OutputThatCannotBeWrittenIsAnError) {
  ReplayOptions options;
  options.file = test::capture("few-ethernet.pcap");
  std::ostream nowhere(nullptr);
  std::ostringstream err;
  EXPECT_EQ(replay(options, nowhere, err), exitFailed);
  EXPECT_EQ(err.str(), "pimbsr: cannot write the output\n");
}

/// Keeps the result alone.
class Keeper final : public ReplayReport {
 public:
  void onEnd(ReplayResult const& given) override { result = given; }
  ReplayResult result;
};

TEST(ReplayTest, NothingThatAPeerSendsRaisesInsideTheEngine) {
  for (char const* name : {"examples/two-scopes.pcap", "tests/cli/captures/few-snapped.pcap",
                           "tests/cli/captures/time-runs-back.pcap"}) {
    ReplayOptions options;
    options.until = 5000;
    Keeper keeper;
    std::ostringstream trace;
    Capture capture(test::sourceFile(name));
    Replay(options, keeper, trace).play(capture);
    EXPECT_EQ(keeper.result.exceptions, 0u) << name;
  }
}

}  // namespace
}  // namespace pimbsr::cli

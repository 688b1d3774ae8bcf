#include "cli/replay/ReplayJson.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/cli/CliSupport.h"
#include "wire/Wire.h"

namespace pimbsr::cli {
namespace {

using nlohmann::json;
using test::Bsm;
using test::Bytes;
using test::CaptureFile;

json timelineOf(CaptureFile const& file, double until = 0) {
  ReplayOptions options;
  options.file = file.path();
  options.delivery.json = true;
  options.until = until;
  test::RunResult run = test::replay(options);
  EXPECT_EQ(run.err, "");
  return json::parse(run.out)["timeline"];
}

Bsm const bsm = {.bsr = "198.51.100.1",
                 .priority = 9,
                 .groups = {{.prefix = "239.1.0.0/16", .flags = test::scopedFlag, .rpCount = 0},
                            {.prefix = "239.1.2.0/24",
                             .rps = {{"203.0.113.2", 0, 7}, {"203.0.113.1", 150, 0}},
                             .flags = test::bidirFlag,
                             .rpCount = 3}},
                 .tag = 513,
                 .forward = false,
                 .hashMaskLen = 20};

json const bsmContent = json::parse(R"({
  "noForward": true, "fragmentTag": 513, "hashMaskLen": 20, "bsrPriority": 9, "bsrAddress": "198.51.100.1",
  "ranges": [
    {"range": "239.1.0.0/16", "adminScope": true, "bidirectional": false, "rpCount": 0, "fragmentRpCount": 0,
     "rps": []},
    {"range": "239.1.2.0/24", "adminScope": false, "bidirectional": true, "rpCount": 3, "fragmentRpCount": 2,
     "rps": [{"address": "203.0.113.1", "holdtime": 150, "priority": 0},
             {"address": "203.0.113.2", "holdtime": 0, "priority": 7}]}],
  "trailingBytes": 0})");

/// The PIM bytes of a message with some more after it, and a checksum that covers them too.
Bytes withTrailing(Bytes pim, std::size_t count) {
  pim.resize(pim.size() + count, 0);
  pim[2] = pim[3] = 0;
  Zet::U32 sum = 0;
  for (std::size_t i = 0; i < pim.size(); ++i) sum += i % 2 == 0 ? Zet::U32{pim[i]} << 8 : pim[i];
  while (sum > 0xffff) sum = (sum & 0xffff) + (sum >> 16);
  pim[2] = static_cast<Zet::U8>(~sum >> 8);
  pim[3] = static_cast<Zet::U8>(~sum);
  return pim;
}

Bytes advertisement() {
  auto adv = Zet::make<Routing::Pim::Packet::CrpAdvMessage>();
  adv->prefixCountIs(2);
  adv->priorityIs(5);
  adv->holdtimeIs(150);
  adv->rpAddressIs(test::addr("203.0.113.9"));
  auto data = Zet::make<Routing::Pim::Packet::CrpGroupData>();
  data->groupInfoIs(test::prefix("239.2.0.0/16"))->groupFlagsIs(test::bidirFlag);
  data->groupInfoIs(test::prefix("239.1.0.0/16"))->groupFlagsIs(test::scopedFlag);
  adv->groupDataIs(data);
  Bytes pim;
  EXPECT_TRUE(wire::encodeCrpAdv(*adv, pim));
  return pim;
}

TEST(ReplayJsonTest, BootstrapMessageIsShownWithVerdictContentAndChanges) {
  CaptureFile file;
  file.add(0, bsm);
  json timeline = timelineOf(file);
  ASSERT_EQ(timeline.size(), 1u);
  EXPECT_EQ(timeline[0]["time"], 0.0);
  EXPECT_EQ(timeline[0]["received"], json({{"message", "bsm"},
                                           {"sender", "192.0.2.1"},
                                           {"destination", "224.0.0.13"},
                                           {"verdict", "accepted"},
                                           {"zone", "239.1.0.0/16"},
                                           {"rpfNeighbor", nullptr},
                                           {"bootstrap", bsmContent}}));
  EXPECT_EQ(timeline[0]["changes"], json::parse(R"([
    {"event": "bsrElected", "zone": "239.1.0.0/16",
     "bsr": {"address": "198.51.100.1", "priority": 9, "hashMaskLen": 20}}])"));
}

TEST(ReplayJsonTest, TrailingBytesOfAMessageAreCounted) {
  for (std::size_t count : {0u, 1u, 11u, 40u}) {
    Bytes pim;
    ASSERT_TRUE(wire::encodeBootstrap(*test::make(bsm), pim));
    CaptureFile file;
    file.add(0, test::ipv4Of(withTrailing(pim, count)));
    file.add(1, test::ipv4Of(withTrailing(advertisement(), count)));
    json timeline = timelineOf(file);
    EXPECT_EQ(timeline[0]["received"]["bootstrap"]["trailingBytes"], count);
    EXPECT_EQ(timeline[1]["received"]["crpAdv"]["trailingBytes"], count);
  }
}

TEST(ReplayJsonTest, AdvertisementIsShownWithItsContent) {
  CaptureFile file;
  file.add(0, test::ipv4Of(advertisement(), "192.0.2.7", "192.0.2.1"));
  json message = timelineOf(file)[0]["received"];
  EXPECT_EQ(message["message"], "crpAdv");
  EXPECT_EQ(message["sender"], "192.0.2.7");
  EXPECT_EQ(message["destination"], "192.0.2.1");
  EXPECT_EQ(message["crpAdv"], json::parse(R"({
    "prefixCount": 2, "priority": 5, "holdtime": 150, "rpAddress": "203.0.113.9", "trailingBytes": 0,
    "ranges": [{"range": "239.1.0.0/16", "adminScope": true, "bidirectional": false},
               {"range": "239.2.0.0/16", "adminScope": false, "bidirectional": true}]})"));
}

TEST(ReplayJsonTest, HelloIsShownWithItsOptions) {
  Bytes all;
  wire::encodeHello({.holdtime = 0,
                     .drPriority = 3,
                     .generationId = 77,
                     .addressList = {test::addr("192.0.2.9"), test::addr("192.0.2.8")}},
                    all);
  Bytes none = withTrailing({0x20, 0, 0, 0}, 0);
  CaptureFile file;
  file.add(0, test::ipv4Of(all)).add(1, test::ipv4Of(none));
  json timeline = timelineOf(file);
  EXPECT_EQ(timeline[0]["received"]["message"], "hello");
  EXPECT_EQ(timeline[0]["received"]["verdict"], "accepted");
  EXPECT_EQ(timeline[0]["received"]["hello"], json::parse(R"({
    "holdtime": 0, "drPriority": 3, "generationId": 77, "addressList": ["192.0.2.9", "192.0.2.8"]})"));
  EXPECT_EQ(timeline[1]["received"]["hello"], json::parse(R"({
    "holdtime": 105, "drPriority": null, "generationId": null, "addressList": []})"));
}

TEST(ReplayJsonTest, DroppedMessageHasItsReasonAndItsContentIfItWasDecoded) {
  Bsm global = {.bsr = "198.51.100.1", .groups = {{.prefix = "224.0.0.0/4", .rps = {{"203.0.113.1"}}}}};
  Bsm elsewhere = global;
  elsewhere.source = "192.0.2.2";
  Bytes cut;
  ASSERT_TRUE(wire::encodeBootstrap(*test::make(global), cut));
  cut.resize(10);
  CaptureFile file;
  file.add(0, global).add(1, elsewhere).add(2, test::ipv4Of(cut));
  json timeline = timelineOf(file);
  EXPECT_EQ(timeline[0]["received"]["rpfNeighbor"], "192.0.2.1");
  EXPECT_FALSE(timeline[0]["received"].contains("reason"));
  EXPECT_EQ(timeline[1]["received"]["verdict"], "dropped");
  EXPECT_EQ(timeline[1]["received"]["reason"], "not-rpf-neighbor");
  EXPECT_EQ(timeline[1]["received"]["rpfNeighbor"], "192.0.2.1");
  EXPECT_EQ(timeline[1]["received"]["bootstrap"], timeline[0]["received"]["bootstrap"]);
  EXPECT_FALSE(timeline[1].contains("changes"));
  EXPECT_EQ(timeline[2]["received"]["message"], "malformed");
  EXPECT_EQ(timeline[2]["received"]["verdict"], "dropped");
  EXPECT_FALSE(timeline[2]["received"].contains("bootstrap"));
}

TEST(ReplayJsonTest, TimersAreShownWithoutAMessage) {
  Bsm global = {.bsr = "198.51.100.1", .groups = {{.prefix = "224.0.0.0/4", .rps = {{"203.0.113.1"}}}}};
  CaptureFile file;
  file.add(0, global);
  json timeline = timelineOf(file, 500);
  ASSERT_EQ(timeline.size(), 3u);
  EXPECT_FALSE(timeline[1].contains("received"));
  EXPECT_EQ(timeline[1]["time"], 130.0);
  EXPECT_EQ(timeline[1]["changes"][0]["event"], "bsrLost");
  EXPECT_EQ(timeline[2]["time"], 280.0);
  EXPECT_EQ(timeline[2]["changes"][0]["event"], "rpExpired");
}

TEST(ReplayJsonTest, WeakerBsrIsShownWithTheOneThatIsPreferred) {
  Bsm strong = {.bsr = "198.51.100.1", .priority = 9, .groups = {{.prefix = "224.0.0.0/4"}}};
  Bsm weak = strong;
  weak.bsr = "198.51.100.2";
  weak.priority = 8;
  CaptureFile file;
  file.add(0, strong).add(1, weak);
  json timeline = timelineOf(file);
  EXPECT_FALSE(timeline[0]["received"].contains("preferredBsr"));
  EXPECT_EQ(timeline[1]["received"]["preferredBsr"],
            json::parse(R"({"address": "198.51.100.1", "priority": 9, "hashMaskLen": 30})"));
}

}  // namespace
}  // namespace pimbsr::cli

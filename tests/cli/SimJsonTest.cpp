#include "cli/sim/SimJson.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "sim/trial/RandomScenario.h"
#include "tests/cli/CliSupport.h"

namespace pimbsr::cli {
namespace {

using nlohmann::json;
using sim::RandomScenario;

std::string textOf(std::string const& scenario, bool linkBins = false) {
  std::ostringstream out;
  std::ostringstream trace;
  SimJson report(out, trace, linkBins);
  sim::Simulation simulation(1, report);
  simulation.execute(scenario);
  simulation.end();
  return out.str();
}

json documentOf(std::string const& scenario, bool linkBins = false) {
  return json::parse(textOf(scenario, linkBins));
}

std::string const lan =
    "link lan prefix 192.0.2.0/24 mtu 1400 delay 2ms jitter 3ms\nlink far prefix 10.0.0.0/8\n"
    "router r1 loopback 203.0.113.1\nrouter r2 stopped\ninterface r1 lan 192.0.2.1 dr-priority 7\n"
    "interface r2 lan 192.0.2.2 name wan\ninterface r1 far 10.0.0.1\n";

// Topology --------------------------------------------------------------------------------------------

TEST(SimJsonTest, TopologyHasLinksAndInterfaces) {
  json topology = documentOf(lan + "border r1 far 239.1.0.0/16\naddress r2 lan none")["topology"];
  EXPECT_EQ(topology["links"], json::parse(R"([
    {"name": "lan", "prefix": "192.0.2.0/24", "mtu": 1400, "delay": 0.002, "jitter": 0.003},
    {"name": "far", "prefix": "10.0.0.0/8", "mtu": 1500, "delay": 0.001, "jitter": 0.0}])"));
  EXPECT_EQ(topology["routers"], json::parse(R"([
    {"name": "r1", "loopback": "203.0.113.1", "candidateBsrs": [], "candidateRps": [], "interfaces": [
      {"name": "eth0", "link": "lan", "address": "192.0.2.1", "drPriority": 7, "borders": []},
      {"name": "eth1", "link": "far", "address": "10.0.0.1", "drPriority": 1, "borders": ["239.1.0.0/16"]}]},
    {"name": "r2", "loopback": null, "candidateBsrs": [], "candidateRps": [], "interfaces": [
      {"name": "wan", "link": "lan", "address": null, "drPriority": 1, "borders": []}]}])"));
}

TEST(SimJsonTest, TopologyHasCandidaciesAsConfiguredAtTheEnd) {
  json router = documentOf(
      lan +
      "access-list r1 groups permit 239.2.0.0/16\n"
      "candidate-bsr r1 global priority 9 hash-mask-length 20 bs-period 30\n"
      "candidate-bsr r1 list groups\ncandidate-rp r1 list groups priority 3\n"
      "candidate-rp r1 239.1.0.0/16 address 10.0.0.1 c-rp-adv-period 20\n"
      "border r1 far list groups\n"
      "run 1\nno candidate-rp r1 list groups\ncandidate-bsr r1 global priority 8")["topology"]["routers"][0];
  EXPECT_EQ(router["candidateBsrs"], json::parse(R"([
    {"zone": "224.0.0.0/4", "interface": "loopback", "address": "203.0.113.1",
     "priority": 8, "hashMaskLen": 30, "bsPeriod": 60},
    {"list": "groups", "interface": "loopback", "address": "203.0.113.1",
     "priority": 64, "hashMaskLen": 30, "bsPeriod": 60}])"));
  EXPECT_EQ(router["candidateRps"], json::parse(R"([
    {"range": "239.1.0.0/16", "interface": "eth1", "address": "10.0.0.1",
     "priority": 192, "cRpAdvPeriod": 20}])"));
  EXPECT_EQ(router["interfaces"][1]["borderLists"], json({"groups"}));
}

// Spans -----------------------------------------------------------------------------------------------

TEST(SimJsonTest, SpansHaveRoutersAndLinksUpAndDown) {
  json spans = documentOf(lan + "at 10 down far\nat 20.5 start r2\nrun 30")["spans"];
  EXPECT_EQ(spans["links"], json::parse(R"([
    {"link": "lan", "up": [{"start": 0.0, "end": 30.0, "up": true}]},
    {"link": "far", "up": [{"start": 0.0, "end": 10.0, "up": true},
                           {"start": 10.0, "end": 30.0, "up": false}]}])"));
  EXPECT_EQ(spans["routers"], json::parse(R"([
    {"router": "r1", "zones": [], "up": [{"start": 0.0, "end": 30.0, "up": true}]},
    {"router": "r2", "zones": [], "up": [{"start": 0.0, "end": 20.5, "up": false},
                                         {"start": 20.5, "end": 30.0, "up": true}]}])"));
}

TEST(SimJsonTest, SpansHaveStatesAndBsrWhateverTheScenarioReports) {
  json spans = documentOf("quiet all\n" + lan + "candidate-bsr r1 global\nat 100 crash r1\nrun 120")["spans"];
  json zone = spans["routers"][0]["zones"][0];
  ASSERT_EQ(spans["routers"][0]["zones"].size(), 1u);
  ASSERT_EQ(zone["states"].size(), 2u);
  json elected = zone["states"][1]["start"];
  EXPECT_EQ(zone,
            json({{"zone", "224.0.0.0/4"},
                  {"bsr", {{{"start", elected}, {"end", 100.0}, {"bsr", "203.0.113.1"}, {"own", true}}}},
                  {"states",
                   {{{"start", 0.0}, {"end", elected}, {"state", "Pending-BSR"}},
                    {{"start", elected}, {"end", 100.0}, {"state", "Elected-BSR"}}}}}));
}

// Load ------------------------------------------------------------------------------------------------

TEST(SimJsonTest, LoadCountsPacketsByKindAndBinAndLink) {
  std::string text =
      "quiet all\nlink a prefix 10.1.0.0/24\nlink b prefix 10.2.0.0/24\nrun 1\n"
      "inject a hello from 10.1.0.9\ninject a hello from 10.1.0.8\nrun 2\n"
      "inject b bsm from 10.2.0.9\nrun 0.5";
  json load = documentOf(text)["load"];
  EXPECT_EQ(load, json::parse(R"({
    "binLength": 1.0, "binCount": 4, "bins": {"hello": [0, 2, 0, 0], "bsm": [0, 0, 0, 1]},
    "links": [{"link": "a", "packets": {"hello": 2, "bsm": 0, "crpAdv": 0, "other": 0}},
              {"link": "b", "packets": {"hello": 0, "bsm": 1, "crpAdv": 0, "other": 0}}]})"));
  json withLinks = documentOf(text, true)["load"];
  EXPECT_EQ(withLinks["links"][0]["bins"], json::parse(R"({"hello": [0, 2, 0, 0]})"));
  EXPECT_EQ(withLinks["links"][1]["bins"], json::parse(R"({"bsm": [0, 0, 0, 1]})"));
  EXPECT_EQ(withLinks["bins"], load["bins"]);
}

TEST(SimJsonTest, LoadOfALongRunHasAtMost360Bins) {
  json load = documentOf(lan + "run 5000")["load"];
  EXPECT_EQ(load["binLength"], 16.0);
  EXPECT_EQ(load["binCount"], 313);
  EXPECT_EQ(load["bins"]["hello"].size(), 313u);
}

// Size ------------------------------------------------------------------------------------------------

/// A random network until its faults have come and gone.
std::string randomNetwork(Zet::U32 routers) {
  RandomScenario random(1, routers, sim::Domain::exact);
  return random.network() + random.faults() + random.healing() + "run until 620\n";
}

/// Bytes of one member of a document, indented as it is in the document, per router.
std::size_t bytesOf(json const& document, char const* member, std::size_t routers) {
  return json({{member, document[member]}}).dump(2).size() / routers;
}

/// The sizes are in the test's properties: --gtest_output=json:FILE.
TEST(SimJsonTest, DocumentGrowsInProportionToTheRouters) {
  struct Case {
    Zet::U32 routers;
    std::size_t document, topology, spans, load;
  };
  for (auto const& [routers, whole, topology, spans, load] :
       {Case{10, 24000, 1450, 1460, 1590}, Case{50, 10100, 1310, 1560, 560},
        Case{500, 9100, 1320, 1040, 330}}) {
    std::string text = textOf(randomNetwork(routers));
    json document = json::parse(text);
    EXPECT_EQ(document["routers"].size(), routers);
    std::pair<char const*, std::size_t> limits[] = {{"topology", topology}, {"spans", spans}, {"load", load}};
    for (auto const& [member, limit] : limits) {
      std::size_t bytes = bytesOf(document, member, routers);
      RecordProperty(member + std::to_string(routers), std::to_string(bytes));
      EXPECT_LE(bytes, limit) << member << " of " << routers;
    }
    RecordProperty("document" + std::to_string(routers), std::to_string(text.size() / routers));
    EXPECT_LE(text.size() / routers, whole) << routers;
  }
}

// Options ---------------------------------------------------------------------------------------------

TEST(SimJsonTest, LoadTakesLinksAloneAndNeedsJson) {
  for (auto const& [arguments, text] : {std::pair("sim --json --load routers FILE", "valid is links"),
                                        {"sim --load links FILE", "--load requires --json"},
                                        {"sim --load links --random 1", "--load"}}) {
    test::RunResult run = test::command(arguments);
    EXPECT_EQ(run.code, 2) << arguments;
    EXPECT_THAT(run.err, testing::HasSubstr(text)) << arguments;
  }
}

}  // namespace
}  // namespace pimbsr::cli

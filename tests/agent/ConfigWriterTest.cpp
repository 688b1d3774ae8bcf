#include "agent/config/ConfigWriter.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <random>

#include "agent/base/TraceLevel.h"
#include "agent/config/ConfigFile.h"
#include "agent/config/ConfigKeys.h"
#include "tests/support/Messages.h"

namespace test {
namespace {

using pimbsr::agent::ConfigReading;
using pimbsr::agent::readConfig;
using pimbsr::agent::Settings;
using pimbsr::agent::writeJson;
using pimbsr::agent::writeToml;
using pimbsr::host::ByRange;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Zet::U32;
using Zet::U64;

/// Draws settings that a file can say, from a seed.
class AnySettings {
 public:
  explicit AnySettings(unsigned seed) : random_(seed) {}

  Settings draw() {
    Settings s;
    for (U64 i = below(4); i > 0; --i)
      s.interfaces[intf()] = {
          .hello = below(2) == 0, .drPriority = any(), .helloInterval = in(1, 18724), .bsm = flip()};
    for (U64 i = below(3); i > 0; --i) fill(s.router.borders[intf()], pimbsr::host::Present());
    for (auto const& [name, ranges] : s.router.borders) {
      if (below(2) == 0) s.router.exactBorders.insert(name);
    }
    for (U64 i = below(3); i > 0; --i) drawBsr(s);
    for (U64 i = below(3); i > 0; --i) drawRp(s);
    for (U64 i = below(3); i > 0; --i) s.router.senderLists.insert(list());
    for (U64 i = below(3); i > 0; --i) s.router.rpLists.insert(list());
    for (U64 i = below(3); i > 0; --i) s.router.bsrLists.insert(list());
    for (U64 i = below(4); i > 0; --i) drawList(s);
    for (auto const& row : pimbsr::host::corrections()) s.corrections.*row.isOn = flip();
    s.router.bsTimeout = in(12, 1073741823);
    s.router.szTimeout = in(120, 4294967295);
    s.ingress = {.linkLocalTtl = flip(),
                 .onSubnet = flip(),
                 .fromNeighbors = flip(),
                 .notOwnBsr = flip(),
                 .packetsPerSecond = any(),
                 .hellosPerSecond = any(),
                 .advertisementsPerSecond = any(),
                 .advertisementSenders = any(),
                 .neighborsPerInterface = any(),
                 .learnedZones = any(),
                 .fragmentRps = any(),
                 .bsmBytes = any(),
                 .rps = any(),
                 .rangesPerZone = any(),
                 .rpsPerRange = static_cast<Zet::U32>(below(256)),
                 .rpsPerSender = any(),
                 .rangesPerSender = any()};
    if (flip()) s.controlSocket = flip() ? "" : "/run/a \"b\\c\" \xc3\xa4.sock";
    if (flip()) s.readOnlySocket = flip() ? "" : "/run/b \"c\".sock";
    if (flip()) s.readOnlyGroup = "pimbsr-read";
    if (flip()) s.controlClients = in(8, 1024);
    if (flip()) s.userWatches = in(1, 1024);
    if (flip()) s.stateDirectory = flip() ? "" : "/" + std::string(below(4000), 'x');
    for (std::string const& handle : pimbsr::agent::traceHandles()) {
      if (flip()) s.traces[handle] = static_cast<int>(below(10));
    }
    return s;
  }

 private:
  U64 below(U64 end) { return std::uniform_int_distribution<U64>(0, end - 1)(random_); }
  bool flip() { return below(2) == 0; }
  U32 in(U64 least, U64 most) { return static_cast<U32>(least + below(most - least + 1)); }
  U32 any() { return in(0, 4294967295); }
  std::string pick(std::vector<std::string> const& from) { return from[below(from.size())]; }
  std::string intf() { return pick({"eth0", "eth0.100", "\"q\"", "b\\r", "\xc3\xa4th", "lo"}); }
  std::string list() { return pick({"a", "b.c", "-", "inner:1", std::string(64, 'z')}); }
  Lanet::IpGenPrefix range() {
    return Lanet::IpGenPrefix(Lanet::IpAddr::fromHost(0xe0000000 | in(0, 0x0fffffff)), in(4, 32));
  }

  template <class Terms>
  void fill(ByRange<Terms>& ranges, Terms const& terms) {
    for (U64 i = below(4); i > 0; --i) ranges.groups.try_emplace(range(), terms);
    for (U64 i = below(3); i > 0; --i) ranges.lists.try_emplace(list(), terms);
  }

  /// One interface, since no other may have the same list.
  void drawBsr(Settings& s) {
    fill(s.router.candidateBsrs["eth0"],
         {.priority = below(256), .hashMaskLen = below(33), .bsPeriod = in(10, 13652)});
  }

  void drawRp(Settings& s) {
    auto& terms = s.router.candidateRps[intf()];
    fill(terms.ranges, std::optional<U64>(below(256)));
    fill(terms.ranges, std::optional<U64>(below(256)));
    terms.cRpAdvPeriod = in(1, 13652);
  }

  void drawList(Settings& s) {
    auto& rules = s.router.accessLists[list()];
    for (U64 i = below(5); i > 0; --i) {
      U32 mask = flip() ? any() : ~U32{0} << in(0, 31);
      Acl::IpFilter filter;
      filter.source = Lanet::IpAddr::fromHost(any() & mask);
      filter.sourceMask = Lanet::IpAddr::fromHost(mask);
      rules[any()] = {flip() ? Acl::Action::permit : Acl::Action::deny, filter};
    }
  }

  std::mt19937 random_;
};

TEST(ConfigWriterTest, WhatIsWrittenReadsBackEqual) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    Settings settings = AnySettings(seed).draw();
    std::string text = writeToml(settings);
    ConfigReading reading = readConfig(text, "written");
    ASSERT_THAT(reading.errors, IsEmpty()) << "seed " << seed << "\n"
                                           << reading.errors[0].text << "\n"
                                           << text;
    ASSERT_THAT(reading.remarks, IsEmpty()) << "seed " << seed;
    ASSERT_EQ(reading.settings, settings) << "seed " << seed << "\n" << text;
    ASSERT_EQ(writeToml(reading.settings), text) << "seed " << seed;
  }
}

TEST(ConfigWriterTest, EveryKeyOfTheTableIsWritten) {
  std::string text;
  for (unsigned seed = 0; seed < 50; ++seed) text += writeToml(AnySettings(seed).draw());
  for (auto const& key : pimbsr::agent::configKeys()) {
    if (key.name == "HANDLE") continue;
    EXPECT_THAT(text, HasSubstr(std::string(key.name) + " = ")) << key.section;
  }
}

TEST(ConfigWriterTest, RangesOfTheSameTermsAreInOneTable) {
  Settings settings;
  auto& ranges = settings.router.candidateBsrs["eth0"];
  ranges.groups = {{prefix("239.1.0.0/16"), {.priority = 1}},
                   {prefix("239.2.0.0/16"), {.priority = 2}},
                   {prefix("239.3.0.0/16"), {.priority = 1}}};
  ranges.lists["inner"] = {.priority = 2};
  EXPECT_THAT(
      writeToml(settings),
      HasSubstr("[[candidate-bsr]]\ninterface = \"eth0\"\ngroups = [\"239.1.0.0/16\", \"239.3.0.0/16\"]\n"
                "lists = []\npriority = 1\nhash-mask-length = 30\nbs-period = 60\n\n"
                "[[candidate-bsr]]\ninterface = \"eth0\"\ngroups = [\"239.2.0.0/16\"]\n"
                "lists = [\"inner\"]\npriority = 2\n"));
}

TEST(ConfigWriterTest, LongListsAreBrokenIntoLinesThatAreRead) {
  Settings settings;
  for (U32 i = 0; i < 5000; ++i)
    settings.router.borders["eth0"]
        .groups[Lanet::IpGenPrefix(Lanet::IpAddr::fromHost(0xe1000000 + i), 32)] = {};
  for (U32 i = 0; i < 100; ++i)
    settings.router.senderLists.insert(std::string(60, '.') + std::to_string(1000 + i));
  settings.stateDirectory = "/" + std::string(4000, '.');
  std::string text = writeToml(settings);
  ConfigReading reading = readConfig(text, "written");
  ASSERT_THAT(reading.errors, IsEmpty()) << reading.errors[0].text;
  EXPECT_EQ(reading.settings.stateDirectory, settings.stateDirectory);
  EXPECT_EQ(reading.settings.router, settings.router);
}

TEST(ConfigWriterTest, WhatNoFileSaysIsLeftOut) {
  Settings settings;
  settings.router.candidateRps["eth0"].ranges.groups = {
      {prefix("239.1.0.0/16"), std::nullopt}, {prefix("239.2.0.0/16"), 256}, {prefix("239.3.0.0/16"), 5}};
  settings.router.accessLists["a"][10] = {};
  std::string text = writeToml(settings);
  EXPECT_THAT(text, HasSubstr("groups = [\"239.3.0.0/16\"]\nlists = []\npriority = 5\n"));
  EXPECT_THAT(text, HasSubstr("[access-list.a]\nrules = [\n]\n"));
  EXPECT_THAT(text, Not(HasSubstr("239.1.0.0")));
  EXPECT_THAT(text, Not(HasSubstr("239.2.0.0")));
  EXPECT_TRUE(readConfig(text, "written").isSound());
}

TEST(ConfigWriterTest, JsonSaysTheSame) {
  ConfigReading reading = readConfig(
      "[interface.eth0]\ndr-priority = 7\nborder = [\"239.1.0.0/16\"]\n[interface.eth1]\npim = false\n"
      "border-lists = [\"a\"]\n[[candidate-bsr]]\ninterface = \"eth0\"\npriority = 9\n"
      "[[candidate-rp]]\ninterface = \"lo\"\nlists = [\"a\"]\nc-rp-adv-period = 30\n[filter]\nsender-lists = "
      "[\"b\"]\nrp-lists = [\"c\"]\nbsr-lists = [\"d\"]\n"
      "[access-list.a]\nrules = [{action = \"deny\", address = \"239.0.0.1\", mask = \"255.0.0.1\"},\n"
      "{action = \"permit\"}]\n[trace]\n\"Pim::Bsr::Sm\" = 4\n",
      "f");
  ASSERT_TRUE(reading.isSound());
  auto json = writeJson(reading.settings);
  EXPECT_EQ(json["interfaces"].dump(),
            R"({"eth0":{"pim":true,"hello":true,)"
            R"("drPriority":7,"helloInterval":30,"bsm":true,)"
            R"("border":["239.1.0.0/16"],"borderLists":[],"exactBorders":false},)"
            R"("eth1":{"pim":false,"border":[],"borderLists":["a"],"exactBorders":false}})");
  EXPECT_EQ(json["candidateBsrs"].dump(),
            R"([{"interface":"eth0","groups":["224.0.0.0/4"],"lists":[],"priority":9,"hashMaskLen":30,)"
            R"("bsPeriod":60}])");
  EXPECT_EQ(json["candidateRps"].dump(),
            R"([{"interface":"lo","groups":[],"lists":["a"],"priority":192,"cRpAdvPeriod":30}])");
  EXPECT_EQ(json["senderLists"].dump(), R"(["b"])");
  EXPECT_EQ(json["rpLists"].dump(), R"(["c"])");
  EXPECT_EQ(json["bsrLists"].dump(), R"(["d"])");
  EXPECT_EQ(json["accessLists"].dump(),
            R"({"a":[{"seq":10,"action":"deny","address":"239.0.0.1","mask":"255.0.0.1"},)"
            R"({"seq":20,"action":"permit","prefix":"0.0.0.0/0"}]})");
  EXPECT_EQ(json["bsTimeout"], 130);
  EXPECT_EQ(json["szTimeout"], 1300);
  EXPECT_EQ(json["checks"].dump(),
            R"({"linkLocalTtl":true,"onSubnet":true,"fromNeighbors":true,"notOwnBsr":true})");
  EXPECT_EQ(json["limits"].dump(),
            R"({"packetsPerSecond":1000,"hellosPerSecond":200,"advertisementsPerSecond":1000,)"
            R"("advertisementSenders":4096,"neighborsPerInterface":256,"learnedZones":64,"fragmentRps":4096,)"
            R"("bsmBytes":16384,"rps":20000,"rangesPerZone":4096,"rpsPerRange":255,"rpsPerSender":64,)"
            R"("rangesPerSender":1024})");
  EXPECT_EQ(json["corrections"]["electedOnly"], true);
  EXPECT_EQ(json["controlSocket"], "/run/pimbsr/control.sock");
  EXPECT_EQ(json["readOnlySocket"], "/run/pimbsr/control-read-only.sock");
  EXPECT_EQ(json["readOnlyGroup"], "");
  EXPECT_EQ(json["controlClients"], 32);
  EXPECT_EQ(json["userWatches"], 12);
  EXPECT_EQ(json["stateDirectory"], "/var/lib/pimbsr");
  EXPECT_EQ(json["traces"].dump(), R"({"Pim::Bsr::Sm":4})");
}

}  // namespace
}  // namespace test

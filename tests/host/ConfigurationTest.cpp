#include "host/Configuration.h"

#include <gmock/gmock.h>

#include "runtime/Exceptions.h"
#include "tests/host/ConfigSupport.h"

namespace test {
namespace {

using pimbsr::host::AccessList;
using pimbsr::host::check;
using pimbsr::host::ConfigError;
using pimbsr::host::Configuration;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/// A configuration that names one of everything, without an error.
Configuration sound() {
  Configuration c;
  c.accessLists["groups"] = AccessList();
  c.accessLists["senders"] = AccessList();
  c.candidateBsrs["eth0"].groups[prefix("224.0.0.0/4")] = {};
  c.candidateBsrs["eth0"].lists["groups"] = {};
  c.candidateRps["eth1"].ranges.groups[prefix("239.1.0.0/16")] = 10;
  c.candidateRps["eth1"].ranges.lists["groups"] = std::nullopt;
  c.borders["eth2"].groups[prefix("239.1.0.0/16")] = {};
  c.borders["eth2"].lists["groups"] = {};
  c.senderLists.insert("senders");
  return c;
}

struct InvalidCase {
  char const* name;
  void (*change)(Configuration& c);
  char const* place;
  char const* text;
};

/// Each error as its place and its text.
std::vector<std::pair<std::string, std::string>> textsOf(std::vector<ConfigError> const& errors) {
  std::vector<std::pair<std::string, std::string>> texts;
  for (ConfigError const& error : errors) texts.emplace_back(textOf(error.place), error.text);
  return texts;
}

class InvalidConfiguration : public testing::TestWithParam<InvalidCase> {};

TEST_P(InvalidConfiguration, IsNamedWithItsPlace) {
  Configuration c = sound();
  GetParam().change(c);
  EXPECT_THAT(textsOf(check(c)), ElementsAre(Pair(GetParam().place, GetParam().text)));
}

pimbsr::host::BsrTerms& bsr(Configuration& c) {
  return c.candidateBsrs["eth0"].groups[prefix("224.0.0.0/4")];
}
std::optional<Zet::U64>& rp(Configuration& c) {
  return c.candidateRps["eth1"].ranges.groups[prefix("239.1.0.0/16")];
}

/// A rule whose number is invalid, and which keeps it.
void rule(Configuration& c, void (Acl::IpFilterBase::*set)(Zet::U32)) {
  EXPECT_THROW((c.accessLists["groups"][10].filter.*set)(1 << 24), Zet::RangeException);
}

#define BSR_PLACE "candidate-bsr eth0, group 224.0.0.0/4"
#define RP_PLACE "candidate-rp eth1, group 239.1.0.0/16"

InvalidCase const invalidCases[] = {
    {"BsTimeoutTooShort", [](auto& c) { c.bsTimeout = 11; }, "bs-timeout",
     "11: Config::holdTime < 12 or > 1073741823 not allowed"},
    {"BsTimeoutTooLong", [](auto& c) { c.bsTimeout = 1073741824; }, "bs-timeout",
     "1073741824: Config::holdTime < 12 or > 1073741823 not allowed"},
    {"SzTimeoutTooShort", [](auto& c) { c.szTimeout = 119; }, "sz-timeout",
     "119: Config::szTimeout < 120 or > 0xFFFFFFFF not allowed"},
    {"SzTimeoutOfMoreThan32Bits", [](auto& c) { c.szTimeout = 4294967296; }, "sz-timeout",
     "4294967296: at most 4294967295 is valid"},
    {"RuleOfAnImpossibleNetwork", [](auto& c) { rule(c, &Acl::IpFilterBase::tniIs); },
     "access-list groups, rule 10, tni", "16777216: IpFilterBase::tni < 0 or > 16777215 not allowed"},
    {"RuleOfAnotherImpossibleNetwork", [](auto& c) { rule(c, &Acl::IpFilterBase::vniIs); },
     "access-list groups, rule 10, vni", "16777216: IpFilterBase::vni < 0 or > 16777215 not allowed"},
    {"BsrPriorityTooHigh", [](auto& c) { bsr(c).priority = 257; }, BSR_PLACE ", priority",
     "257: BsrCandidateGroup::priority < 0 or > 256 not allowed"},
    {"HashMaskLongerThanAnAddress", [](auto& c) { bsr(c).hashMaskLen = 33; }, BSR_PLACE ", hash-mask-length",
     "33: IPv4 has no more bits; at most 32 is valid"},
    {"HashMaskTooLong", [](auto& c) { bsr(c).hashMaskLen = 129; }, BSR_PLACE ", hash-mask-length",
     "129: BsrCandidateGroup::hashMaskLen < 0 or > 128 not allowed"},
    {"BsmIntervalTooShort", [](auto& c) { bsr(c).bsPeriod = 9; }, BSR_PLACE ", bs-period",
     "9: BsrCandidateGroup::interval < BsrCandidateGroup::minInterval or > 536870906 not allowed"},
    {"BsmIntervalOfAnInvalidHoldtime", [](auto& c) { bsr(c).bsPeriod = 13653; }, BSR_PLACE ", bs-period",
     "13653: three times that is a holdtime that receivers reject; at most 13652 is valid"},
    {"RpPriorityTooHigh", [](auto& c) { rp(c) = 257; }, RP_PLACE ", priority",
     "257: RpPriority::value < 0 or > 256 not allowed"},
    {"AdvertisementIntervalZero", [](auto& c) { c.candidateRps["eth1"].cRpAdvPeriod = 0; },
     "candidate-rp eth1, c-rp-adv-period", "0: CrpAdvInterval::value < 1 or > 16383 not allowed"},
    {"AdvertisementIntervalOfAnInvalidHoldtime", [](auto& c) { c.candidateRps["eth1"].cRpAdvPeriod = 13653; },
     "candidate-rp eth1, c-rp-adv-period",
     "13653: three times that is a holdtime that receivers reject; at most 13652 is valid"},
    {"RangeOfIp6", [](auto& c) { c.borders["eth2"].groups[prefix("ff00::/8")] = {}; },
     "border eth2, group ff00::/8", "not of IPv4, which alone is served"},
    {"RangeOfUnicastAddresses", [](auto& c) { c.borders["eth2"].groups[prefix("10.0.0.0/8")] = {}; },
     "border eth2, group 10.0.0.0/8", "no range of multicast groups; a part of 224.0.0.0/4 is valid"},
    {"RangeOnTwoInterfaces", [](auto& c) { c.candidateBsrs["eth1"].groups[prefix("224.0.0.0/4")] = {}; },
     "candidate-bsr eth1, group 224.0.0.0/4", "claimed by eth0 already; one interface may claim it"},
    {"ListOnTwoInterfaces", [](auto& c) { c.candidateBsrs["eth1"].lists["groups"] = {}; },
     "candidate-bsr eth1, access list groups", "claimed by eth0 already; one interface may claim it"},
    {"ZoneOfAListAndOfARange",
     [](auto& c) {
       c.accessLists["scopes"] = permitting({"239.7.0.0/16", "224.0.0.0/4"});
       c.candidateBsrs["eth1"].lists["scopes"] = {};
     },
     "candidate-bsr eth1, access list scopes",
     "permits 224.0.0.0/4, which candidate-bsr eth0, group 224.0.0.0/4 claims already; one interface may "
     "claim it"},
    {"ZoneOfTwoLists",
     [](auto& c) {
       c.accessLists["groups"] = c.accessLists["scopes"] = permitting({"239.7.0.0/16"});
       c.candidateBsrs["eth1"].lists["scopes"] = {};
     },
     "candidate-bsr eth1, access list scopes",
     "permits 239.7.0.0/16, which candidate-bsr eth0, access list groups claims already; one interface may "
     "claim it"},
};

INSTANTIATE_TEST_SUITE_P(Each, InvalidConfiguration, testing::ValuesIn(invalidCases),
                         [](auto const& one) { return std::string(one.param.name); });

TEST(ConfigurationTest, OneOfEverythingHasNoError) { EXPECT_THAT(check(sound()), IsEmpty()); }

TEST(ConfigurationTest, EmptyOneHasNoError) { EXPECT_THAT(check(Configuration()), IsEmpty()); }

TEST(ConfigurationTest, EndsOfTheRangesAreValid) {
  Configuration c = sound();
  c.bsTimeout = 1073741823;
  c.szTimeout = 4294967295;
  bsr(c) = {.priority = 255, .hashMaskLen = 32, .bsPeriod = 13652};
  rp(c) = 255;
  c.candidateRps["eth1"].cRpAdvPeriod = 13652;
  EXPECT_THAT(check(c), IsEmpty());
  bsr(c).priority = 256;
  bsr(c).hashMaskLen = 128;
  rp(c) = 256;
  EXPECT_THAT(check(c), IsEmpty()) << "unknown values leave a candidate waiting";
  c.bsTimeout = 12;
  c.szTimeout = 120;
  bsr(c) = {.priority = 0, .hashMaskLen = 0, .bsPeriod = 10};
  rp(c) = 0;
  c.candidateRps["eth1"].cRpAdvPeriod = 1;
  EXPECT_THAT(check(c), IsEmpty());
}

TEST(ConfigurationTest, ListMayBeNamedBeforeItExists) {
  Configuration c = sound();
  c.candidateBsrs["eth0"].lists["later"] = {};
  c.candidateRps["eth1"].ranges.lists["later"] = 1;
  c.borders["eth2"].lists["later"] = {};
  c.senderLists.insert("later");
  EXPECT_THAT(check(c), IsEmpty());
}

TEST(ConfigurationTest, ListThatDoesNotExistIsClaimedAllTheSame) {
  Configuration c = sound();
  c.candidateBsrs["eth0"].lists["later"] = {};
  c.candidateBsrs["eth1"].lists["later"] = {};
  EXPECT_THAT(textsOf(check(c)), ElementsAre(Pair("candidate-bsr eth1, access list later",
                                                  "claimed by eth0 already; one interface may claim it")));
}

TEST(ConfigurationTest, AllErrorsAreReported) {
  Configuration c = sound();
  c.bsTimeout = 1;
  bsr(c) = {.priority = 999, .hashMaskLen = 999, .bsPeriod = 1};
  rp(c) = 999;
  EXPECT_EQ(check(c).size(), 5u);
}

}  // namespace
}  // namespace test

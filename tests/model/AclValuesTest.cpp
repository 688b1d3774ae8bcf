// The texts and the equality of the values of access lists.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "model/AclValues.h"
#include "model/Values.h"
#include "runtime/Strep.h"
#include "tests/support/RangeError.h"

namespace {

using Routing::Pim::Bsr::CrpOptions;
using Routing::Pim::Bsr::PimBsrWeight;
using testing_support::rangeErrorOf;
using testing_support::streamed;

TEST(AclValuesTest, AStreamHasTheTextThatIsReadBack) {
  EXPECT_EQ(streamed(Acl::UniqueId(7)), "7");
  Acl::IpFilter filter;
  filter.destinationPort = 179;
  std::string const text = streamed(filter);
  EXPECT_EQ(text,
            "Value('Acl::IpFilter', ** {'tni': 0, 'vni': 0, 'source': '0.0.0.0', 'sourceMask': '0.0.0.0', "
            "'protocol': 0, 'sourcePort': 0, 'destinationPort': 179})");
  EXPECT_EQ(Zet::strepToValue<Acl::IpFilter>(text.c_str()), filter);
}

TEST(AclValuesTest, AnUnknownAttributeIsNamed) {
  EXPECT_EQ(rangeErrorOf<Acl::IpFilter>("Value('Acl::IpFilter', ** {'port': 1})"),
            "IpFilter has no such attribute: port");
  EXPECT_EQ(rangeErrorOf<Acl::IpRuleConfig>("Value('Acl::IpRuleConfig', ** {'port': 1})"),
            "IpRuleConfig has no such attribute: port");
}

TEST(AclValuesTest, EqualityIsThatOfAllMembers) {
  Acl::IpFilter const any;
  std::vector<Acl::IpFilter> others(7);
  others[0].tniIs(1);
  others[1].vniIs(1);
  others[2].source = Lanet::IpAddr::parse("10.0.0.1");
  others[3].sourceMask = Lanet::IpAddr::parse("255.0.0.0");
  others[4].protocol = 6;
  others[5].sourcePort = 1;
  others[6].destinationPort = 1;
  for (Acl::IpFilter const& other : others) {
    EXPECT_FALSE(any == other) << other;
    EXPECT_FALSE(Acl::IpRuleConfig(Acl::Action::permit, any) ==
                 Acl::IpRuleConfig(Acl::Action::permit, other));
  }
  EXPECT_FALSE(Acl::IpRuleConfig(Acl::Action::permit, any) == Acl::IpRuleConfig(Acl::Action::deny, any));
}

TEST(AclValuesTest, EqualityOfCandidatesIsThatOfAddressAndPriority) {
  Lanet::IpGenAddr const one(Lanet::IpAddr::parse("10.0.0.1")), other(Lanet::IpAddr::parse("10.0.0.2"));
  EXPECT_FALSE(CrpOptions(one, 3) == CrpOptions(other, 3));
  EXPECT_FALSE(CrpOptions(one, 3) == CrpOptions(one, 4));
  EXPECT_FALSE(PimBsrWeight(3, one) == PimBsrWeight(3, other));
  EXPECT_FALSE(PimBsrWeight(3, one) == PimBsrWeight(4, one));
}

}  // namespace

#include <gtest/gtest.h>

#include <string>

#include "model/AclValues.h"
#include "model/Values.h"
#include "runtime/Reflection.h"
#include "tests/support/Messages.h"
#include "tests/support/RangeError.h"

/// Descriptors of values and enumerations.
namespace test {
namespace {

namespace Bsr = Routing::Pim::Bsr;
using testing_support::rangeError;
using Zet::AttributeKind;

/// "name=text" of each row of a type, read from an object.
std::string readAll(Zet::PtrInterface const& object) {
  std::string all;
  for (Zet::AttributeRow const& row : object.fwkType().rows) {
    all += std::string(all.empty() ? "" : " ") + row.name + "=" +
           std::string(Zet::GenericIf(object.fwkType()).read(object, row.name).view());
  }
  return all;
}
template <class T>
std::string readValue(T const& value) {
  return readAll(*Zet::make<Zet::ValueObject<T>>(value));
}

TEST(Types, AValueTypeListsItsFieldsByName) {
  EXPECT_EQ(readValue(Bsr::PimBsrWeight(7, addr("10.0.0.1"))), "priority=7 ipAddr='10.0.0.1'");
  EXPECT_EQ(readValue(Bsr::CrpOptions(addr("10.0.0.1"), 9)), "rpAddress='10.0.0.1' priority=9");
  EXPECT_EQ(readValue(Bsr::CrpAdvInterval(61)), "value=61 intervalDefault=60");
  EXPECT_EQ(readValue(Routing::Pim::CrpHoldTime(150)), "value=150");
  EXPECT_EQ(readValue(prefix("10.0.0.0/8")), "address='10.0.0.0' length=8");
  EXPECT_EQ(readValue(addr("::1")), "af='ipv6' stringValue='::1'");
  EXPECT_EQ(readValue(intf("eth0")), "stringValue='eth0'");
  EXPECT_EQ(readValue(Routing::Pim::Packet::GroupFlags(129)), "value=129");
  EXPECT_EQ(readValue(Acl::UniqueId(5)), "value=5");
  EXPECT_EQ(readValue(Bsr::PimBsrErrorCounters()),
            "rxFilter=0 rxNbrRpfCheck=0 rxNoForwardBsm=0 rxUnicastBsm=0 rxScopeMismatch=0 rxInvalid=0");
  EXPECT_EQ(readValue(Acl::IpFilter()),
            "tni=0 vni=0 source='0.0.0.0' sourceMask='0.0.0.0' protocol=0 sourcePort=0 destinationPort=0");
}

TEST(Types, AFieldIsWrittenByNameAndReadsTheSame) {
  Bsr::PimBsrWeight weight;
  Bsr::PimBsrWeight::GenericIf_ const weightIf;
  weightIf.write(weight, "priority", "200");
  weightIf.write(weight, "ipAddr", "'10.0.0.9'");
  EXPECT_EQ(weight, Bsr::PimBsrWeight(200, addr("10.0.0.9")));
  EXPECT_EQ(weightIf.read(weight, "ipAddr"), "'10.0.0.9'");
  Bsr::CrpAdvInterval interval;
  EXPECT_EQ(rangeError([&] { Bsr::CrpAdvInterval::GenericIf_().write(interval, "value", "0"); }),
            "CrpAdvInterval::value < 1 or > 16383 not allowed");
  EXPECT_EQ(interval.value(), 60u);
}

TEST(Types, AConstantOfAValueTypeIsReadByNameAndRejectsWrites) {
  Bsr::CrpAdvInterval interval(77);
  Bsr::CrpAdvInterval::GenericIf_ const intervalIf;
  EXPECT_EQ(intervalIf.read(interval, "intervalDefault"), "60");
  EXPECT_THROW(intervalIf.write(interval, "intervalDefault", "1"), Zet::OpNotSupportedException);
}

TEST(Types, AnEnumerationListsItsNamesWithTheirNumbers) {
  Zet::ZetType const& type = fwkType(Bsr::BsrCandidateState::cBsr);
  EXPECT_STREQ(type.name, "Routing::Pim::Bsr::BsrCandidateState");
  EXPECT_STREQ(type.kind, "enumeration");
  EXPECT_EQ(&type, Zet::zetType("Routing::Pim::Bsr::BsrCandidateState"));
  std::string names;
  for (Zet::AttributeRow const& row : type.rows) {
    EXPECT_EQ(row.kind, AttributeKind::constant);
    names += std::string(row.name) + "=" +
             std::string(Bsr::BsrCandidateStateGenericIf_().read(Bsr::BsrCandidateState{}, row.name).view()) +
             " ";
  }
  EXPECT_EQ(names, "noInfoBsr=0 cBsr=1 pBsr=2 eBsr=3 ");
}

TEST(Types, EveryValueTypeIsKnownByItsName) {
  for (Zet::ZetType const* type : {&Bsr::PimBsrWeight().fwkType(),
                                   &Bsr::PimBsrErrorCounters().fwkType(),
                                   &Bsr::CrpOptions().fwkType(),
                                   &Bsr::CrpAdvInterval().fwkType(),
                                   &Routing::Pim::RpPriority().fwkType(),
                                   &Routing::Pim::RpHashMaskLen().fwkType(),
                                   &Routing::Pim::CrpHoldTime().fwkType(),
                                   &Routing::Pim::Packet::GroupFlags().fwkType(),
                                   &Lanet::IpAddr().fwkType(),
                                   &Lanet::Ip6Addr().fwkType(),
                                   &Lanet::IpGenAddr().fwkType(),
                                   &Lanet::Prefix().fwkType(),
                                   &Lanet::IpGenPrefix().fwkType(),
                                   &Lanet::IntfId().fwkType(),
                                   &Acl::UniqueId().fwkType(),
                                   &Acl::IpFilter().fwkType(),
                                   &Acl::IpRuleConfig().fwkType(),
                                   &fwkType(Bsr::Scope{}),
                                   &fwkType(Bsr::BsrNonCandidateState{}),
                                   &fwkType(Routing::Pim::Mode{}),
                                   &fwkType(Routing::Pim::RpType{}),
                                   &fwkType(Lanet::AddressFamily{}),
                                   &fwkType(Acl::Action{})}) {
    EXPECT_EQ(Zet::zetType(type->name), type) << type->name;
    EXPECT_STRNE(type->sentence, "") << type->name;
  }
}

}  // namespace
}  // namespace test

#include "tests/runtime/ModelSamples.h"

#include <gtest/gtest.h>

#include <cctype>
#include <limits>
#include <map>
#include <regex>

#include "config/ConfigRecords.h"
#include "model/Acl.h"
#include "model/Config.h"
#include "model/IO.h"
#include "model/Interface.h"
#include "model/MessageCounters.h"
#include "model/MsgStatus.h"
#include "model/Pim.h"
#include "model/SourceIntf.h"
#include "model/Status.h"
#include "model/TrieGen.h"
#include "protocol/Fragments.h"
#include "tests/support/ConfigEngine.h"
#include "tests/support/Messages.h"

namespace test {

namespace Packet = Routing::Pim::Packet;
using Zet::AttributeKind;
using Zet::AttributeRow;
using Zet::GenericIf;
using Zet::Ptr;
using Zet::PtrInterface;
using Zet::String8;
using Zet::U16;
using Zet::U32;
using Zet::U64;
using Zet::U8;
using Zet::ZetType;

namespace {

template <class T>
SampleTexts textsOf(std::vector<T> const& values) {
  SampleTexts texts;
  for (T const& value : values) texts.push_back(Zet::strep(value));
  return texts;
}
template <class T>
SampleTexts ends() {
  return textsOf<T>({0, std::numeric_limits<T>::max()});
}

/// SampleTexts of values of each type, both ends of its range among them.
std::map<std::string, SampleTexts> const& sampleTexts() {
  using Lanet::IpGenAddr, Lanet::IpGenPrefix, Lanet::IntfId;
  Bsr::PimBsrErrorCounters most;
  most.rxFilter = most.rxNbrRpfCheck = most.rxNoForwardBsm = most.rxUnicastBsm = 0xffffffff;
  most.rxScopeMismatch = most.rxInvalid = 0xffffffff;
  String8 const odd("it's [a/b]\\\n\xff");
  static std::map<std::string, SampleTexts> const samples{
      {"bool", {"True", "False"}},
      {"U8", ends<U8>()},
      {"U16", ends<U16>()},
      {"U32", ends<U32>()},
      {"U64", ends<U64>()},
      {"double", textsOf<double>({0, 0.1, -2.5, std::numeric_limits<double>::max(),
                                  std::numeric_limits<double>::infinity()})},
      {"String8", textsOf<String8>({"", odd})},
      {"Name", textsOf<String8>({"", odd})},
      {"IpAddr", textsOf<Lanet::IpAddr>({{}, Lanet::IpAddr::fromHost(0xffffffff)})},
      {"IpGenAddr", textsOf<IpGenAddr>({{}, addr("10.1.2.3"), addr("2001:db8::ff")})},
      {"IpGenPrefix", textsOf<IpGenPrefix>({{}, prefix("0.0.0.0/0"), prefix("239.1.2.3/32")})},
      {"IntfId", textsOf<IntfId>({{}, IntfId(odd)})},
      {"RpPriority", textsOf<Routing::Pim::RpPriority>({0, 256})},
      {"RpHashMaskLen", textsOf<Routing::Pim::RpHashMaskLen>({0, 128})},
      {"CrpHoldTime", textsOf<Routing::Pim::CrpHoldTime>({0, 40958})},
      {"CrpAdvInterval", textsOf<Bsr::CrpAdvInterval>({1, 16383})},
      {"GroupFlags", textsOf<Packet::GroupFlags>({0, 0xff})},
      {"PimBsrErrorCounters", textsOf<Bsr::PimBsrErrorCounters>({{}, most})},
      {"UniqueId", textsOf<Acl::UniqueId>({Acl::UniqueId(0), Acl::UniqueId(~U64{0})})},
      {"IpFilter", textsOf<Acl::IpFilter>({{}, aclRule("permit 10.0.0.0/8").filter})},
      {"IpRuleConfig",
       textsOf<Acl::IpRuleConfig>({aclRule("permit 10.0.0.0/8"), aclRule("deny 0.0.0.0/0")})}};
  return samples;
}

void addRows(ZetType const& type, std::vector<AttributeRow const*>& rows) {
  if (type.base != nullptr) addRows(*type.base, rows);
  for (AttributeRow const& row : type.rows) rows.push_back(&row);
}

/// The bound in the text of a range: a number, or a constant of the class by its name.
U64 boundOf(PtrInterface const& object, std::string const& text) {
  if (std::isdigit(static_cast<unsigned char>(text[0])) != 0) return std::stoull(text, nullptr, 0);
  String8 const number = GenericIf(object.fwkType()).read(object, String8(bareName(text)));
  return std::stoull(std::string(number.view()));
}

}  // namespace

std::string bareName(std::string const& type) { return type.substr(type.find_last_of(':') + 1); }

SampleTexts samplesOf(std::string const& type) {
  auto found = sampleTexts().find(bareName(type));
  if (found != sampleTexts().end()) return found->second;
  SampleTexts names;
  for (ZetType const* each : Zet::zetTypes()) {
    if (std::string(each->kind) != "enumeration" || bareName(each->name) != bareName(type)) continue;
    for (AttributeRow const& row : each->rows) names.push_back(Zet::strep(String8(row.name)));
  }
  EXPECT_FALSE(names.empty()) << "no value of " << type;
  return names;
}

Objects everyRecord() {
  namespace IO = Routing::Pim::IO;
  auto const zone = prefix("239.0.0.0/8");
  auto const host = addr("10.0.0.1");
  auto const eth = intf("eth0");
  return {Acl::aclSubConfigFactory(),
          Acl::aclConfigFactory("a"),
          Acl::aclTypeConfigFactory("ip"),
          Bsr::intfConfigFactory("eth0"),
          Bsr::bsrCandidateGroupFactory(zone),
          Bsr::bsrCandidateAclFactory("a"),
          Bsr::bsrCandidateConfigFactory("eth0", eth),
          Bsr::rpCandidateAclEntryOptionsFactory("a"),
          Bsr::rpCandidateConfigFactory("eth0", eth),
          Bsr::configFactory("bsr"),
          Bsr::clearConfigFactory("bsr"),
          Bsr::pimBsrCountersFactory("bsr"),
          IO::messageInfoFactory(),
          IO::pamCounterFactory(),
          IO::pamManagerFactory(),
          Interface::intfStatusFactory(eth),
          Interface::allIntfStatusDirFactory("all"),
          Routing::Pim::Slosh::messageCountersFactory("pim"),
          Bsr::pimBsmStatusFactory(),
          Bsr::pimCrpMsgStatusFactory(),
          Packet::messageFactory(),
          Packet::bootstrapRpDataFactory(host),
          Packet::bootstrapGroupDataFactory(zone),
          Packet::bootstrapOptionalDataFactory(),
          Packet::bootstrapMessageFactory(),
          Packet::crpGroupInfoFactory(zone),
          Packet::crpGroupDataFactory(),
          Packet::crpAdvMessageFactory(),
          Routing::Pim::neighborFactory(host),
          Routing::Pim::intfFactory(eth),
          Routing::Pim::statusFactory("pim"),
          Routing::Pim::rpCandidateFactory(host),
          Routing::Pim::rpCandidateSetFactory(zone),
          Routing::Pim::rpCandidateStatusFactory("set"),
          Ip::SourceIntf::sourceIntfFactory(eth),
          Ip::SourceIntf::sourceIntfSmFactory(),
          Bsr::bsrCandidateFactory(zone),
          Bsr::rpCandidateGroupEntryOptionsFactory(zone),
          Bsr::rpCandidateFactory(host),
          Bsr::electedBsrStatusFactory(zone),
          Bsr::pimBsrBorderFactory("239.0.0.0/8", zone),
          Bsr::pimBsrRpCandidateStatusFactory("zone", zone),
          Bsr::rpCandidatePrefixSetFactory(zone),
          Bsr::statusFactory("bsr"),
          Routing::trieGenFactory("trie", Lanet::AddressFamily::ipv4),
          Bsr::bsrConfigAclFactory("a"),
          Bsr::bsrBorderPrefixRefCountFactory(eth),
          Bsr::bsrCandidatePrefixRefCountFactory(eth),
          Bsr::rpCandidatePrefixRefCountFactory(eth),
          Bsr::pimBsrRxFragmentFactory(zone),
          Bsr::pimBsrRxFragmentsFactory(7),
          Bsr::pimBsrTxFragmentFactory(),
          Bsr::pimBsrTxFragmentsFactory(1500)};
}

bool isOfKind(ZetType const& type, std::string const& kind) {
  return type.kind == kind && bareName(type.name) != "Entity" && bareName(type.name) != "Machine";
}

std::set<std::string> namesOfKind(std::string const& kind) {
  std::set<std::string> names;
  for (ZetType const* type : Zet::zetTypes()) {
    if (isOfKind(*type, kind)) names.insert(type->name);
  }
  return names;
}

std::vector<AttributeRow const*> rowsOf(PtrInterface const& object) {
  std::vector<AttributeRow const*> rows;
  addRows(object.fwkType(), rows);
  return rows;
}

std::pair<U64, U64> rangeOf(PtrInterface const& object, AttributeRow const& row) {
  std::smatch parts;
  std::string const text = row.range;
  EXPECT_TRUE(std::regex_search(text, parts, std::regex("< (\\S+) or > (\\w+) not allowed"))) << text;
  return {boundOf(object, parts[1]), boundOf(object, parts[2])};
}

}  // namespace test

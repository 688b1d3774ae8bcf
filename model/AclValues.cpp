#include "model/AclValues.h"

#include "runtime/Bits.h"
#include "runtime/Exceptions.h"

namespace Acl {

using Zet::String8;
using Pos = String8::IteratorConst;

Zet::EnumText const& enumText(Action) {
  static constexpr char const* names[] = {"unset", "permit", "deny"};
  static constexpr Zet::EnumText text{"Action", names, "Acl",
                                      "What a rule does with the packets that it matches"};
  return text;
}

UniqueId::UniqueId(Pos& cur, Pos end) : value(Zet::readUnsigned(cur, end)) {}

String8 valueToStrep(UniqueId id) { return Zet::valueToStrep(id.value); }

std::ostream& operator<<(std::ostream& out, UniqueId id) { return out << id.value; }

U32 rhash(UniqueId key) {
  return Zet::bitReverse(Zet::mixHash(static_cast<U32>(key.value) ^ Zet::mixHash(key.value >> 32)));
}

void IpFilterBase::tniIs(U32 tni) {
  tni_ = tni;
  if (tni > most) Zet::throwRangeException("IpFilterBase::tni < 0 or > 16777215 not allowed");
}

void IpFilterBase::vniIs(U32 vni) {
  vni_ = vni;
  if (vni > most) Zet::throwRangeException("IpFilterBase::vni < 0 or > 16777215 not allowed");
}

static constexpr char const* filterType = "Acl::IpFilter";

IpFilter::IpFilter(Pos& cur, Pos end) {
  Zet::readStructured(cur, end, filterType, [this](String8 const& name, Pos& at, Pos stop) {
    if (name == "tni") {
      tniIs(Zet::readNumber<U32>(at, stop));
    } else if (name == "vni") {
      vniIs(Zet::readNumber<U32>(at, stop));
    } else if (name == "source") {
      source = Lanet::IpAddr(at, stop);
    } else if (name == "sourceMask") {
      sourceMask = Lanet::IpAddr(at, stop);
    } else if (name == "protocol") {
      protocol = Zet::readNumber<U8>(at, stop);
    } else if (name == "sourcePort") {
      sourcePort = Zet::readNumber<U16>(at, stop);
    } else if (name == "destinationPort") {
      destinationPort = Zet::readNumber<U16>(at, stop);
    } else {
      return false;
    }
    return true;
  });
}

String8 valueToStrep(IpFilter const& filter) {
  return Zet::StructuredText(filterType)
      .attr("tni", Zet::valueToStrep(filter.tni()))
      .attr("vni", Zet::valueToStrep(filter.vni()))
      .attr("source", valueToStrep(filter.source))
      .attr("sourceMask", valueToStrep(filter.sourceMask))
      .attr("protocol", Zet::valueToStrep(filter.protocol))
      .attr("sourcePort", Zet::valueToStrep(filter.sourcePort))
      .attr("destinationPort", Zet::valueToStrep(filter.destinationPort))
      .text();
}

std::ostream& operator<<(std::ostream& out, IpFilter const& filter) { return out << valueToStrep(filter); }

static constexpr char const* ruleType = "Acl::IpRuleConfig";

IpRuleConfig::IpRuleConfig(Pos& cur, Pos end) {
  Zet::readStructured(cur, end, ruleType, [this](String8 const& name, Pos& at, Pos stop) {
    if (name == "action") {
      action = Zet::readStrep<Action>(at, stop);
    } else if (name == "filter") {
      filter = IpFilter(at, stop);
    } else {
      return false;
    }
    return true;
  });
}

String8 valueToStrep(IpRuleConfig const& rule) {
  return Zet::StructuredText(ruleType)
      .attr("action", valueToStrep(rule.action))
      .attr("filter", valueToStrep(rule.filter))
      .text();
}

std::ostream& operator<<(std::ostream& out, IpRuleConfig const& rule) { return out << valueToStrep(rule); }

Zet::ZetType const& UniqueId::_fwkType() {
  return Zet::valueType<UniqueId>("Acl::UniqueId", "Names a rule within its list");
}

Zet::ZetType const& IpFilter::_fwkType() {
  return Zet::valueType<IpFilter>("Acl::IpFilter", "The packets that a rule matches");
}

Zet::ZetType const& IpRuleConfig::_fwkType() {
  return Zet::valueType<IpRuleConfig>("Acl::IpRuleConfig", "One rule of a list");
}

[[maybe_unused]] static bool const areTypesKnown =
    Zet::zetTypeIs(_fwkType(Action{})) && Zet::zetTypeIs(UniqueId::_fwkType()) &&
    Zet::zetTypeIs(IpFilter::_fwkType()) && Zet::zetTypeIs(IpRuleConfig::_fwkType());

}  // namespace Acl

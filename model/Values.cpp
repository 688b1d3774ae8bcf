#include "model/Values.h"

#include "runtime/Bits.h"

using Zet::String8;
using Pos = String8::IteratorConst;

namespace Routing::Pim {

Zet::EnumText const& enumText(Mode) {
  static constexpr char const* names[] = {"unset", "sparse", "bidir"};
  static constexpr Zet::EnumText text{"Mode", names, "Routing::Pim", "How a group range is served"};
  return text;
}

Zet::EnumText const& enumText(RpType) {
  static constexpr char const* names[] = {"unset", "configured", "bsr"};
  static constexpr Zet::EnumText text{"RpType", names, "Routing::Pim", "Where an RP set comes from"};
  return text;
}

Zet::ZetType const& RpPriorityRange::fwkType() { return Zet::valueType<RpPriority>(name, sentence); }

Zet::ZetType const& RpHashMaskLenRange::fwkType() { return Zet::valueType<RpHashMaskLen>(name, sentence); }

Zet::ZetType const& CrpHoldTimeRange::fwkType() { return Zet::valueType<CrpHoldTime>(name, sentence); }

[[maybe_unused]] static bool const areTypesKnown =
    Zet::zetTypeIs(_fwkType(Mode{})) && Zet::zetTypeIs(_fwkType(RpType{})) &&
    Zet::zetTypeIs(RpPriority::_fwkType()) && Zet::zetTypeIs(RpHashMaskLen::_fwkType()) &&
    Zet::zetTypeIs(CrpHoldTime::_fwkType());

}  // namespace Routing::Pim

namespace Routing::Pim::Packet {

GroupFlags::GroupFlags(Pos& cur, Pos end) : value(Zet::readNumber<U8>(cur, end)) {}

String8 valueToStrep(GroupFlags flags) { return Zet::valueToStrep(flags.value); }

std::ostream& operator<<(std::ostream& out, GroupFlags flags) { return out << valueToStrep(flags); }

Zet::ZetType const& GroupFlags::_fwkType() {
  return Zet::valueType<GroupFlags>("Routing::Pim::Packet::GroupFlags",
                                    "The flag byte of an Encoded-Group Address");
}

[[maybe_unused]] static bool const areTypesKnown = Zet::zetTypeIs(GroupFlags::_fwkType());

}  // namespace Routing::Pim::Packet

namespace Routing::Pim::Bsr {

Zet::EnumText const& enumText(Scope) {
  static constexpr char const* names[] = {"global", "admin"};
  static constexpr Zet::EnumText text{"Scope", names, "Routing::Pim::Bsr", "Kind of a zone"};
  return text;
}

Zet::EnumText const& enumText(BsrCandidateState) {
  static constexpr char const* names[] = {"noInfoBsr", "cBsr", "pBsr", "eBsr"};
  static constexpr Zet::EnumText text{"BsrCandidateState", names, "Routing::Pim::Bsr",
                                      "State of a candidate BSR in one zone"};
  return text;
}

Zet::EnumText const& enumText(BsrNonCandidateState) {
  static constexpr char const* names[] = {"noInfo", "acceptAny", "acceptPreferred"};
  static constexpr Zet::EnumText text{"BsrNonCandidateState", names, "Routing::Pim::Bsr",
                                      "State in one zone of a router that is no candidate BSR there"};
  return text;
}

static constexpr char const* weightType = "Routing::Pim::Bsr::PimBsrWeight";

PimBsrWeight::PimBsrWeight(Pos& cur, Pos end) {
  Zet::readStructured(cur, end, weightType, [this](String8 const& name, Pos& at, Pos stop) {
    if (name == "priority") {
      priority_ = static_cast<U8>(Zet::readInteger(at, stop));
    } else if (name == "ipAddr") {
      ipAddr_ = Lanet::IpGenAddr(at, stop);
    } else {
      return false;
    }
    return true;
  });
}

U32 PimBsrWeight::hash() const { return Zet::mixHash(ipAddr_.v4Addr().hash() ^ priority_); }

String8 valueToStrep(PimBsrWeight const& weight) {
  return Zet::StructuredText(weightType)
      .attr("priority", Zet::valueToStrep(weight.priority()))
      .attr("ipAddr", valueToStrep(weight.ipAddr()))
      .text();
}

std::ostream& operator<<(std::ostream& out, PimBsrWeight const& weight) {
  return out << valueToStrep(weight);
}

struct ErrorCounterField {
  char const* name;
  U32 PimBsrErrorCounters::*counter;
};

static constexpr ErrorCounterField errorCounterFields[] = {
    {"rxFilter", &PimBsrErrorCounters::rxFilter},
    {"rxNbrRpfCheck", &PimBsrErrorCounters::rxNbrRpfCheck},
    {"rxNoForwardBsm", &PimBsrErrorCounters::rxNoForwardBsm},
    {"rxUnicastBsm", &PimBsrErrorCounters::rxUnicastBsm},
    {"rxScopeMismatch", &PimBsrErrorCounters::rxScopeMismatch},
    {"rxInvalid", &PimBsrErrorCounters::rxInvalid},
};

static constexpr char const* errorCountersType = "Routing::Pim::Bsr::PimBsrErrorCounters";

PimBsrErrorCounters::PimBsrErrorCounters(Pos& cur, Pos end) {
  Zet::readStructured(cur, end, errorCountersType, [this](String8 const& name, Pos& at, Pos stop) {
    for (ErrorCounterField const& field : errorCounterFields) {
      if (!(name == field.name)) continue;
      this->*field.counter = static_cast<U32>(Zet::readInteger(at, stop));
      return true;
    }
    return false;
  });
}

String8 valueToStrep(PimBsrErrorCounters const& counters) {
  Zet::StructuredText text(errorCountersType);
  for (ErrorCounterField const& field : errorCounterFields) {
    text.attr(field.name, Zet::valueToStrep(counters.*field.counter));
  }
  return text.text();
}

std::ostream& operator<<(std::ostream& out, PimBsrErrorCounters const& counters) {
  return out << valueToStrep(counters);
}

static constexpr char const* crpOptionsType = "Routing::Pim::Bsr::CrpOptions";

CrpOptions::CrpOptions(Pos& cur, Pos end) {
  Zet::readStructured(cur, end, crpOptionsType, [this](String8 const& name, Pos& at, Pos stop) {
    if (name == "rpAddress") {
      rpAddress_ = Lanet::IpGenAddr(at, stop);
    } else if (name == "priority") {
      priority_ = RpPriority(at, stop);
    } else {
      return false;
    }
    return true;
  });
}

String8 CrpOptions::pretty() const {
  bool hasAddress = rpAddress_.v4Addr() != Lanet::IpAddr();
  return (hasAddress ? rpAddress_.stringValue() : String8("*")) + "," + valueToStrep(priority_);
}

String8 valueToStrep(CrpOptions const& options) {
  return Zet::StructuredText(crpOptionsType)
      .attr("rpAddress", valueToStrep(options.rpAddress()))
      .attr("priority", valueToStrep(options.priority()))
      .text();
}

std::ostream& operator<<(std::ostream& out, CrpOptions const& options) {
  return out << valueToStrep(options);
}

U32 rhash(CrpOptions const& key) { return Zet::bitReverse(key.hash()); }

Zet::ZetType const& CrpAdvIntervalRange::fwkType() {
  static constexpr Zet::AttributeRow initialRow{.id = 1,
                                                .name = "intervalDefault",
                                                .kind = Zet::AttributeKind::constant,
                                                .type = "U32",
                                                .start = "60",
                                                .unit = unit,
                                                .sentence = "The number that it starts with"};
  static_assert(CrpAdvInterval::intervalDefault() == 60);
  return Zet::valueType<CrpAdvInterval>(name, sentence, initialRow);
}

Zet::ZetType const& PimBsrWeight::_fwkType() {
  return Zet::valueType<PimBsrWeight>("Routing::Pim::Bsr::PimBsrWeight",
                                      "The weight of a BSR in the election");
}

Zet::ZetType const& PimBsrErrorCounters::_fwkType() {
  return Zet::valueType<PimBsrErrorCounters>("Routing::Pim::Bsr::PimBsrErrorCounters",
                                             "How many received messages were dropped, by reason");
}

Zet::ZetType const& CrpOptions::_fwkType() {
  return Zet::valueType<CrpOptions>("Routing::Pim::Bsr::CrpOptions", "The identity of a candidate RP");
}

[[maybe_unused]] static bool const areTypesKnown =
    Zet::zetTypeIs(_fwkType(Scope{})) && Zet::zetTypeIs(_fwkType(BsrCandidateState{})) &&
    Zet::zetTypeIs(_fwkType(BsrNonCandidateState{})) && Zet::zetTypeIs(CrpAdvInterval::_fwkType()) &&
    Zet::zetTypeIs(PimBsrWeight::_fwkType()) && Zet::zetTypeIs(PimBsrErrorCounters::_fwkType()) &&
    Zet::zetTypeIs(CrpOptions::_fwkType());

}  // namespace Routing::Pim::Bsr

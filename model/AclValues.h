#pragma once

#include <ostream>

#include "model/Lanet.h"
#include "runtime/EnumText.h"
#include "runtime/Strep.h"
#include "runtime/ValueType.h"

/// The values of an IP access list: what a rule is called, which packets it speaks of and what becomes of
/// them. All are copied by value and have a text form that valueToStrep writes and that they read back.
namespace Acl {

using Zet::U16;
using Zet::U32;
using Zet::U64;
using Zet::U8;

/// What a rule does with the packets that it matches; a rule that is unset does nothing.
enum class Action : U32 { unset = 0, permit = 1, deny = 2 };
ZET_ENUM_TEXT(Action)

/// Names a rule within its list, whatever its place there. The text form is the decimal number.
struct PIMBSR_API UniqueId {
  U64 value = 0;

  constexpr UniqueId() = default;
  constexpr explicit UniqueId(U64 number) : value(number) {}
  UniqueId(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"value", "The number", &UniqueId::value});
  }
  static Zet::ZetType const& _fwkType();
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  using GenericIf_ = Zet::GenericIfOf<UniqueId>;

  friend constexpr auto operator<=>(UniqueId, UniqueId) = default;
};

PIMBSR_API Zet::String8 valueToStrep(UniqueId id);
PIMBSR_API std::ostream& operator<<(std::ostream& out, UniqueId id);
/// The bit-reversed hash by which a Zet::HashMap orders members of that key.
PIMBSR_API U32 rhash(UniqueId key);

/// The virtual networks that a filter is limited to. Both numbers have 24 bits, and 0 is no limit.
///
/// A setter stores before it tests, as all setters with a range do, so a number out of range stays stored; a
/// copy of such a filter raises the same text.
class PIMBSR_API IpFilterBase {
 public:
  static constexpr U32 most = 16777215;

  IpFilterBase() = default;
  IpFilterBase(IpFilterBase const& other) { copy(other); }
  IpFilterBase& operator=(IpFilterBase const& other) {
    copy(other);
    return *this;
  }

  U32 tni() const { return tni_; }
  void tniIs(U32 tni);
  U32 vni() const { return vni_; }
  void vniIs(U32 vni);

  friend bool operator==(IpFilterBase const&, IpFilterBase const&) = default;

 private:
  void copy(IpFilterBase const& other) {
    tniIs(other.tni_);
    vniIs(other.vni_);
  }

  U32 tni_ = 0;
  U32 vni_ = 0;
};

/// The packets that a rule speaks of; by default every IPv4 packet.
struct PIMBSR_API IpFilter : IpFilterBase {
  Lanet::IpAddr source;      ///< compared where the bits of sourceMask are set
  Lanet::IpAddr sourceMask;  ///< 255.255.255.0 for a /24; 0 compares nothing, so matches every source
  U8 protocol = 0;           ///< IP protocol; 0 for any
  U16 sourcePort = 0;        ///< 0 for any
  U16 destinationPort = 0;   ///< 0 for any

  IpFilter() = default;
  IpFilter(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);

  static constexpr auto zetFields() {
    return std::tuple(
        Zet::Field{"tni", "A virtual network; 0 is no limit", &IpFilter::tni, &IpFilter::tniIs},
        Zet::Field{"vni", "A virtual network; 0 is no limit", &IpFilter::vni, &IpFilter::vniIs},
        Zet::Field{"source", "Compared where the bits of sourceMask are set", &IpFilter::source},
        Zet::Field{"sourceMask", "255.255.255.0 for a /24; 0 matches every source", &IpFilter::sourceMask},
        Zet::Field{"protocol", "IP protocol; 0 for any", &IpFilter::protocol},
        Zet::Field{"sourcePort", "0 for any", &IpFilter::sourcePort},
        Zet::Field{"destinationPort", "0 for any", &IpFilter::destinationPort});
  }
  static Zet::ZetType const& _fwkType();
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  using GenericIf_ = Zet::GenericIfOf<IpFilter>;

  friend bool operator==(IpFilter const&, IpFilter const&) = default;
};

PIMBSR_API Zet::String8 valueToStrep(IpFilter const& filter);
PIMBSR_API std::ostream& operator<<(std::ostream& out, IpFilter const& filter);

/// One rule of a list; by default one that does nothing.
struct PIMBSR_API IpRuleConfig {
  Action action = Action::unset;
  IpFilter filter;

  IpRuleConfig() = default;
  IpRuleConfig(Action does, IpFilter const& matches) : action(does), filter(matches) {}
  IpRuleConfig(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"action", "What it does", &IpRuleConfig::action},
                      Zet::Field{"filter", "The packets that it matches", &IpRuleConfig::filter});
  }
  static Zet::ZetType const& _fwkType();
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  using GenericIf_ = Zet::GenericIfOf<IpRuleConfig>;

  friend bool operator==(IpRuleConfig const&, IpRuleConfig const&) = default;
};

PIMBSR_API Zet::String8 valueToStrep(IpRuleConfig const& rule);
PIMBSR_API std::ostream& operator<<(std::ostream& out, IpRuleConfig const& rule);

}  // namespace Acl

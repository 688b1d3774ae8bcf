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
enum class Action : U32 {
  unset = 0,   ///< nothing; the packets go on to the next rule
  permit = 1,  ///< lets them pass
  deny = 2     ///< keeps them out
};
ZET_ENUM_TEXT(Action)

/// Names a rule within its list, whatever its place there. The text form is the decimal number.
struct PIMBSR_API UniqueId {
  U64 value = 0;  ///< the number; no number has a meaning of its own

  constexpr UniqueId() = default;
  /// The name of that number.
  constexpr explicit UniqueId(U64 number) : value(number) {}
  /// Reads a decimal number from `cur` on, which moves past it.
  UniqueId(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"value", "The number", &UniqueId::value});
  }
  /// The descriptor of UniqueId.
  static Zet::ZetType const& _fwkType();
  /// The same as _fwkType(), for a value at hand.
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  /// Reads and writes the number by name.
  using GenericIf_ = Zet::GenericIfOf<UniqueId>;

  friend constexpr auto operator<=>(UniqueId, UniqueId) = default;
};

/// The text form: the decimal number.
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
  /// The highest number of a virtual network.
  static constexpr U32 most = 16777215;

  IpFilterBase() = default;
  /// Copies both numbers; raises RangeException where one is out of range.
  IpFilterBase(IpFilterBase const& other) { copy(other); }
  IpFilterBase& operator=(IpFilterBase const& other) {
    copy(other);
    return *this;
  }

  /// The first number; 0 is no limit. The machines don't read it.
  U32 tni() const { return tni_; }
  /// Stores the first number, then raises RangeException if it is above `most`.
  void tniIs(U32 tni);
  /// The second number; 0 is no limit. The machines don't read it.
  U32 vni() const { return vni_; }
  /// Stores the second number, then raises RangeException if it is above `most`.
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
  /// Reads the text form from `cur` on, which moves past it. An attribute that isn't there has its default.
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
  /// The descriptor of IpFilter.
  static Zet::ZetType const& _fwkType();
  /// The same as _fwkType(), for a value at hand.
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  /// Reads and writes each attribute by name; a write out of range raises and changes nothing.
  using GenericIf_ = Zet::GenericIfOf<IpFilter>;

  friend bool operator==(IpFilter const&, IpFilter const&) = default;
};

/// The text form, with all attributes.
PIMBSR_API Zet::String8 valueToStrep(IpFilter const& filter);
PIMBSR_API std::ostream& operator<<(std::ostream& out, IpFilter const& filter);

/// One rule of a list; by default one that does nothing.
struct PIMBSR_API IpRuleConfig {
  Action action = Action::unset;  ///< what it does
  IpFilter filter;                ///< the packets that it matches

  IpRuleConfig() = default;
  /// A rule that does this with the packets that the filter matches.
  IpRuleConfig(Action does, IpFilter const& matches) : action(does), filter(matches) {}
  /// Reads the text form from `cur` on, which moves past it. An attribute that isn't there has its default.
  IpRuleConfig(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"action", "What it does", &IpRuleConfig::action},
                      Zet::Field{"filter", "The packets that it matches", &IpRuleConfig::filter});
  }
  /// The descriptor of IpRuleConfig.
  static Zet::ZetType const& _fwkType();
  /// The same as _fwkType(), for a value at hand.
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  /// Reads and writes action and filter by name.
  using GenericIf_ = Zet::GenericIfOf<IpRuleConfig>;

  friend bool operator==(IpRuleConfig const&, IpRuleConfig const&) = default;
};

/// The text form, with action and filter.
PIMBSR_API Zet::String8 valueToStrep(IpRuleConfig const& rule);
PIMBSR_API std::ostream& operator<<(std::ostream& out, IpRuleConfig const& rule);

}  // namespace Acl

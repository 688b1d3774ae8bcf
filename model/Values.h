#pragma once

#include <ostream>

#include "model/Lanet.h"
#include "model/Values.zet.h"
#include "runtime/EnumText.h"
#include "runtime/Exceptions.h"
#include "runtime/Export.h"
#include "runtime/Strep.h"
#include "runtime/String8.h"
#include "runtime/Types.h"
#include "runtime/ValueType.h"

/// The small values of the protocol: quantities with a range, states, the election weight and the identity of
/// a candidate RP. All are copied by value, have a text form that valueToStrep writes and that they read
/// back, and raise RangeException with a fixed text for what isn't a value of theirs; none clamps.

namespace Routing::Pim {

/// A whole number with a range, which raises when it is made from a number outside. `Range`, made from its
/// declaration, gives its bounds, the number that it starts with, the text that it raises and its descriptor.
/// The text form is the decimal number.
template <class Range>
class Bounded {
 public:
  using Rep = typename Range::Rep;

  constexpr Bounded() = default;
  constexpr Bounded(U32 number) : value_(checked(number)) {}
  Bounded(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end)
      : value_(checked(Zet::readInteger(cur, end))) {}

  constexpr Rep value() const { return value_; }

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"value", "The number", &Bounded::value, &Bounded::valueIs});
  }
  static Zet::ZetType const& _fwkType() { return Range::fwkType(); }
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  using GenericIf_ = Zet::GenericIfOf<Bounded>;

  friend constexpr auto operator<=>(Bounded, Bounded) = default;
  friend Zet::String8 valueToStrep(Bounded number) { return Zet::valueToStrep(number.value_); }
  friend std::ostream& operator<<(std::ostream& out, Bounded number) { return out << valueToStrep(number); }

 private:
  static constexpr Rep checked(S64 number) {
    if (number < Range::low || number > Range::high) Zet::throwRangeException(Range::rangeError);
    return static_cast<Rep>(number);
  }

  void valueIs(Rep number) { value_ = checked(number); }

  Rep value_ = Range::initial;
};

/// Priority of a candidate RP, lower is preferred. 256, above what a message can carry, means none was set.
using RpPriority = Bounded<RpPriorityRange>;

/// Bits of a group address that go into the choice of an RP (RFC 5059 section 4.1). 128 means unknown.
using RpHashMaskLen = Bounded<RpHashMaskLenRange>;

/// Seconds for which a candidate RP is kept without a new advertisement; 0 withdraws it.
using CrpHoldTime = Bounded<CrpHoldTimeRange>;

/// How a group range is served: by shared and source trees, or by bidirectional trees.
enum class Mode : U32 { unset = 0, sparse = 1, bidir = 2 };
ZET_ENUM_TEXT(Mode)

/// Where an RP set comes from.
enum class RpType : U32 { unset = 0, configured = 1, bsr = 2 };
ZET_ENUM_TEXT(RpType)

}  // namespace Routing::Pim

namespace Routing::Pim::Packet {

/// The flag byte of an Encoded-Group Address (RFC 7761 section 4.9.1, RFC 5059 section 4.1).
struct PIMBSR_API GroupFlags {
  U8 value = 0;

  constexpr GroupFlags() = default;
  constexpr GroupFlags(U8 flags) : value(flags) {}
  GroupFlags(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);

  /// The range is an administratively scoped zone (Z).
  constexpr bool scoped() const { return (value & 0x01) != 0; }
  /// The range is served by bidirectional trees (B).
  constexpr bool bidir() const { return (value & 0x80) != 0; }

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"value", "The byte", &GroupFlags::value});
  }
  static Zet::ZetType const& _fwkType();
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  using GenericIf_ = Zet::GenericIfOf<GroupFlags>;

  friend constexpr bool operator==(GroupFlags, GroupFlags) = default;
};

PIMBSR_API Zet::String8 valueToStrep(GroupFlags flags);
PIMBSR_API std::ostream& operator<<(std::ostream& out, GroupFlags flags);

}  // namespace Routing::Pim::Packet

namespace Routing::Pim::Bsr {

/// Kind of a zone (RFC 5059 section 1.3).
enum class Scope : U32 { global = 0, admin = 1 };
ZET_ENUM_TEXT(Scope)

/// State of a candidate BSR in one zone (RFC 5059 section 3.1.1).
enum class BsrCandidateState : U32 { noInfoBsr = 0, cBsr = 1, pBsr = 2, eBsr = 3 };
ZET_ENUM_TEXT(BsrCandidateState)

/// State in one zone of a router that is no candidate BSR there (RFC 5059 section 3.1.2).
enum class BsrNonCandidateState : U32 { noInfo = 0, acceptAny = 1, acceptPreferred = 2 };
ZET_ENUM_TEXT(BsrNonCandidateState)

/// Seconds between two advertisements of a candidate RP.
class PIMBSR_API CrpAdvInterval : public Bounded<CrpAdvIntervalRange> {
 public:
  /// The number that it starts with.
  static constexpr U32 intervalDefault() { return CrpAdvIntervalRange::initial; }

  using GenericIf_ = Zet::GenericIfOf<CrpAdvInterval>;
  using Bounded::Bounded;
  constexpr CrpAdvInterval() = default;
  /// Only the low 32 bits of the number in the text are used.
  CrpAdvInterval(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end)
      : Bounded(static_cast<U32>(Zet::readInteger(cur, end))) {}
};

/// Relations that follow from T's operator< alone, and operator! for the default value.
template <class T>
struct OrderedByLess {
  friend bool operator>=(T const& a, T const& b) { return !(a < b); }
  friend bool operator<=(T const& a, T const& b) { return !(b < a); }
  friend bool operator>(T const& a, T const& b) { return !(a <= b); }
  friend bool operator!(T const& a) { return a == T(); }
  friend constexpr bool operator==(OrderedByLess, OrderedByLess) { return true; }
};

/// The weight of a BSR in the election (RFC 5059 section 3.1): a higher priority is preferred, and a higher
/// address among equal priorities. Equality compares the whole address, but the order and the hash only its
/// IPv4 view.
class PIMBSR_API PimBsrWeight : public OrderedByLess<PimBsrWeight> {
 public:
  PimBsrWeight() = default;
  PimBsrWeight(U8 priority, Lanet::IpGenAddr const& ipAddr) : ipAddr_(ipAddr), priority_(priority) {}
  /// A priority beyond a byte keeps its low 8 bits.
  PimBsrWeight(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);

  U8 priority() const { return priority_; }
  void priorityIs(U8 priority) { priority_ = priority; }
  Lanet::IpGenAddr const& ipAddr() const { return ipAddr_; }
  void ipAddrIs(Lanet::IpGenAddr const& ipAddr) { ipAddr_ = ipAddr; }
  U32 hash() const;

  static constexpr auto zetFields() {
    return std::tuple(
        Zet::Field{"priority", "The BSR priority of a Bootstrap Message, higher wins",
                   &PimBsrWeight::priority, &PimBsrWeight::priorityIs},
        Zet::Field{"ipAddr", "The address of the BSR", &PimBsrWeight::ipAddr, &PimBsrWeight::ipAddrIs});
  }
  static Zet::ZetType const& _fwkType();
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  using GenericIf_ = Zet::GenericIfOf<PimBsrWeight>;

  friend bool operator==(PimBsrWeight const&, PimBsrWeight const&) = default;
  friend bool operator<(PimBsrWeight const& a, PimBsrWeight const& b) {
    return a.priority_ != b.priority_ ? a.priority_ < b.priority_ : a.ipAddr_.v4Addr() < b.ipAddr_.v4Addr();
  }

 private:
  Lanet::IpGenAddr ipAddr_;
  U8 priority_ = 0;
};

PIMBSR_API Zet::String8 valueToStrep(PimBsrWeight const& weight);
PIMBSR_API std::ostream& operator<<(std::ostream& out, PimBsrWeight const& weight);

/// How many received messages were dropped, by reason.
struct PIMBSR_API PimBsrErrorCounters {
  U32 rxFilter = 0;         ///< advertisements of candidate RPs that the filter doesn't permit
  U32 rxNbrRpfCheck = 0;    ///< not from the RPF neighbor towards the BSR
  U32 rxNoForwardBsm = 0;   ///< No-Forward messages that were not to be accepted
  U32 rxUnicastBsm = 0;     ///< Bootstrap Messages sent to a unicast address
  U32 rxScopeMismatch = 0;  ///< over a border of the zone, or of another zone
  U32 rxInvalid = 0;        ///< otherwise not acceptable

  PimBsrErrorCounters() = default;
  /// A number beyond 32 bits keeps its low 32.
  PimBsrErrorCounters(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);

  static constexpr auto zetFields() {
    using C = PimBsrErrorCounters;
    return std::tuple(
        Zet::Field{"rxFilter", "Advertisements that the filter doesn't permit", &C::rxFilter},
        Zet::Field{"rxNbrRpfCheck", "Not from the RPF neighbor towards the BSR", &C::rxNbrRpfCheck},
        Zet::Field{"rxNoForwardBsm", "No-Forward messages that were not to be accepted", &C::rxNoForwardBsm},
        Zet::Field{"rxUnicastBsm", "Bootstrap Messages sent to a unicast address", &C::rxUnicastBsm},
        Zet::Field{"rxScopeMismatch", "Over a border of the zone, or of another zone", &C::rxScopeMismatch},
        Zet::Field{"rxInvalid", "Otherwise not acceptable", &C::rxInvalid});
  }
  static Zet::ZetType const& _fwkType();
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  using GenericIf_ = Zet::GenericIfOf<PimBsrErrorCounters>;

  friend bool operator==(PimBsrErrorCounters const&, PimBsrErrorCounters const&) = default;
};

PIMBSR_API Zet::String8 valueToStrep(PimBsrErrorCounters const& counters);
PIMBSR_API std::ostream& operator<<(std::ostream& out, PimBsrErrorCounters const& counters);

/// The identity of a candidate RP, ordered by the IPv4 view of the address first and the priority second.
class PIMBSR_API CrpOptions : public OrderedByLess<CrpOptions> {
 public:
  CrpOptions() = default;
  CrpOptions(Lanet::IpGenAddr const& rpAddress, RpPriority priority)
      : rpAddress_(rpAddress), priority_(priority) {}
  CrpOptions(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);

  Lanet::IpGenAddr const& rpAddress() const { return rpAddress_; }
  void rpAddressIs(Lanet::IpGenAddr const& rpAddress) { rpAddress_ = rpAddress; }
  RpPriority priority() const { return priority_; }
  void priorityIs(RpPriority priority) { priority_ = priority; }
  U32 hash() const { return rpAddress_.v4Addr().hostWord() ^ priority_.value(); }
  /// "address,priority", with "*" for an address whose IPv4 view is 0.
  Zet::String8 pretty() const;

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"rpAddress", "The address of the candidate RP", &CrpOptions::rpAddress,
                                 &CrpOptions::rpAddressIs},
                      Zet::Field{"priority", "Its priority, lower wins; 256 is unknown",
                                 &CrpOptions::priority, &CrpOptions::priorityIs});
  }
  static Zet::ZetType const& _fwkType();
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  using GenericIf_ = Zet::GenericIfOf<CrpOptions>;

  friend bool operator==(CrpOptions const&, CrpOptions const&) = default;
  friend bool operator<(CrpOptions const& a, CrpOptions const& b) {
    Lanet::IpAddr aAddr = a.rpAddress_.v4Addr();
    Lanet::IpAddr bAddr = b.rpAddress_.v4Addr();
    return aAddr != bAddr ? aAddr < bAddr : a.priority_ < b.priority_;
  }

 private:
  Lanet::IpGenAddr rpAddress_;
  RpPriority priority_;
};

PIMBSR_API Zet::String8 valueToStrep(CrpOptions const& options);
PIMBSR_API std::ostream& operator<<(std::ostream& out, CrpOptions const& options);
/// The bit-reversed hash by which a Zet::HashMap orders members of that key.
PIMBSR_API U32 rhash(CrpOptions const& key);

}  // namespace Routing::Pim::Bsr

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
  /// The type of the number, which the declaration gives.
  using Rep = typename Range::Rep;

  /// The number that the declaration starts with.
  constexpr Bounded() = default;
  /// This number; raises RangeException where it is outside the range.
  constexpr Bounded(U32 number) : value_(checked(number)) {}
  /// Reads a decimal number from `cur` on, which moves past it; raises RangeException where it is outside the
  /// range.
  Bounded(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end)
      : value_(checked(Zet::readInteger(cur, end))) {}

  /// The number, always in the range.
  constexpr Rep value() const { return value_; }

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"value", "The number", &Bounded::value, &Bounded::valueIs});
  }
  /// The descriptor, which the declaration names.
  static Zet::ZetType const& _fwkType() { return Range::fwkType(); }
  /// The same as _fwkType(), for a value at hand.
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  /// Reads and writes the number by name; a number outside the range raises RangeException.
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
enum class Mode : U32 {
  unset = 0,   ///< not known; nothing here sets it
  sparse = 1,  ///< shared and source trees (RFC 7761)
  bidir = 2    ///< bidirectional trees (RFC 5015)
};
ZET_ENUM_TEXT(Mode)

/// Where an RP set comes from.
enum class RpType : U32 {
  unset = 0,       ///< not known
  configured = 1,  ///< from configuration; nothing here sets it
  bsr = 2          ///< learned by the mechanism of RFC 5059
};
ZET_ENUM_TEXT(RpType)

}  // namespace Routing::Pim

namespace Routing::Pim::Packet {

/// The flag byte of an Encoded-Group Address (RFC 7761 section 4.9.1, RFC 5059 section 4.1).
struct PIMBSR_API GroupFlags {
  U8 value = 0;  ///< the byte as on the wire, with the bits that have no meaning here

  constexpr GroupFlags() = default;
  /// From the byte as on the wire; any byte is one.
  constexpr GroupFlags(U8 flags) : value(flags) {}
  /// Reads a decimal number from `cur` on, which moves past it; raises RangeException above 255.
  GroupFlags(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);

  /// The range is an administratively scoped zone (Z).
  constexpr bool scoped() const { return (value & 0x01) != 0; }
  /// The range is served by bidirectional trees (B).
  constexpr bool bidir() const { return (value & 0x80) != 0; }

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"value", "The byte", &GroupFlags::value});
  }
  /// The descriptor of GroupFlags.
  static Zet::ZetType const& _fwkType();
  /// The same as _fwkType(), for a value at hand.
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  /// Reads and writes the byte by name.
  using GenericIf_ = Zet::GenericIfOf<GroupFlags>;

  friend constexpr bool operator==(GroupFlags, GroupFlags) = default;
};

/// The text form: the byte as a decimal number.
PIMBSR_API Zet::String8 valueToStrep(GroupFlags flags);
PIMBSR_API std::ostream& operator<<(std::ostream& out, GroupFlags flags);

}  // namespace Routing::Pim::Packet

namespace Routing::Pim::Bsr {

/// Kind of a zone (RFC 5059 section 1.3).
enum class Scope : U32 {
  global = 0,  ///< the zone of all groups, 224.0.0.0/4
  admin = 1    ///< an administratively scoped zone
};
ZET_ENUM_TEXT(Scope)

/// State of a candidate BSR in one zone (RFC 5059 section 3.1.1).
enum class BsrCandidateState : U32 {
  noInfoBsr = 0,  ///< no state of the RFC: the candidacy lacks its address or a term
  cBsr = 1,       ///< Candidate-BSR: another BSR is preferred
  pBsr = 2,       ///< Pending-BSR: the candidate is elected unless a preferred BSR is heard in time
  eBsr = 3        ///< Elected-BSR
};
ZET_ENUM_TEXT(BsrCandidateState)

/// State in one zone of a router that is no candidate BSR there (RFC 5059 section 3.1.2).
enum class BsrNonCandidateState : U32 {
  noInfo = 0,          ///< NoInfo: nothing is known of the zone; the global zone has no such state
  acceptAny = 1,       ///< Accept Any: there is no BSR, and the first one heard is taken
  acceptPreferred = 2  ///< Accept Preferred: there is a BSR, and only its messages and preferred ones count
};
ZET_ENUM_TEXT(BsrNonCandidateState)

/// Seconds between two advertisements of a candidate RP.
class PIMBSR_API CrpAdvInterval : public Bounded<CrpAdvIntervalRange> {
 public:
  /// The number that it starts with.
  static constexpr U32 intervalDefault() { return CrpAdvIntervalRange::initial; }

  /// Reads and writes the number by name, and reads intervalDefault.
  using GenericIf_ = Zet::GenericIfOf<CrpAdvInterval>;
  /// From a number, as Bounded; raises RangeException below 1 or above 16383.
  using Bounded::Bounded;
  /// 60 seconds.
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
  /// The weight of a BSR with this priority, as a Bootstrap Message has it, and address.
  PimBsrWeight(U8 priority, Lanet::IpGenAddr const& ipAddr) : ipAddr_(ipAddr), priority_(priority) {}
  /// Reads the text form from `cur` on, which moves past it. A priority beyond a byte keeps its low 8 bits.
  PimBsrWeight(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);

  /// BSR priority, 0 to 255; higher wins.
  U8 priority() const { return priority_; }
  /// Sets the priority; any byte is one.
  void priorityIs(U8 priority) { priority_ = priority; }
  /// Address of the BSR; unset for none.
  Lanet::IpGenAddr const& ipAddr() const { return ipAddr_; }
  /// Sets the address, of any family.
  void ipAddrIs(Lanet::IpGenAddr const& ipAddr) { ipAddr_ = ipAddr; }
  /// Hash of the priority and the IPv4 view of the address.
  U32 hash() const;

  static constexpr auto zetFields() {
    return std::tuple(
        Zet::Field{"priority", "The BSR priority of a Bootstrap Message, higher wins",
                   &PimBsrWeight::priority, &PimBsrWeight::priorityIs},
        Zet::Field{"ipAddr", "The address of the BSR", &PimBsrWeight::ipAddr, &PimBsrWeight::ipAddrIs});
  }
  /// The descriptor of PimBsrWeight.
  static Zet::ZetType const& _fwkType();
  /// The same as _fwkType(), for a value at hand.
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  /// Reads and writes priority and address by name.
  using GenericIf_ = Zet::GenericIfOf<PimBsrWeight>;

  friend bool operator==(PimBsrWeight const&, PimBsrWeight const&) = default;
  friend bool operator<(PimBsrWeight const& a, PimBsrWeight const& b) {
    return a.priority_ != b.priority_ ? a.priority_ < b.priority_ : a.ipAddr_.v4Addr() < b.ipAddr_.v4Addr();
  }

 private:
  Lanet::IpGenAddr ipAddr_;
  U8 priority_ = 0;
};

/// The text form, with priority and address.
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
  /// Reads the text form from `cur` on, which moves past it. A number beyond 32 bits keeps its low 32.
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
  /// The descriptor of PimBsrErrorCounters.
  static Zet::ZetType const& _fwkType();
  /// The same as _fwkType(), for a value at hand.
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  /// Reads and writes each counter by name.
  using GenericIf_ = Zet::GenericIfOf<PimBsrErrorCounters>;

  friend bool operator==(PimBsrErrorCounters const&, PimBsrErrorCounters const&) = default;
};

/// The text form, with all counters.
PIMBSR_API Zet::String8 valueToStrep(PimBsrErrorCounters const& counters);
PIMBSR_API std::ostream& operator<<(std::ostream& out, PimBsrErrorCounters const& counters);

/// The identity of a candidate RP, ordered by the IPv4 view of the address first and the priority second.
class PIMBSR_API CrpOptions : public OrderedByLess<CrpOptions> {
 public:
  CrpOptions() = default;
  /// The candidate RP with this address and priority.
  CrpOptions(Lanet::IpGenAddr const& rpAddress, RpPriority priority)
      : rpAddress_(rpAddress), priority_(priority) {}
  /// Reads the text form from `cur` on, which moves past it. An attribute that isn't there has its default.
  CrpOptions(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);

  /// Address of the candidate RP; unset for none.
  Lanet::IpGenAddr const& rpAddress() const { return rpAddress_; }
  /// Sets the address, of any family.
  void rpAddressIs(Lanet::IpGenAddr const& rpAddress) { rpAddress_ = rpAddress; }
  /// Priority of the candidate RP; lower wins, and 256 is unknown.
  RpPriority priority() const { return priority_; }
  /// Sets the priority.
  void priorityIs(RpPriority priority) { priority_ = priority; }
  /// The IPv4 view of the address in host byte order, combined with the priority by exclusive or.
  U32 hash() const { return rpAddress_.v4Addr().hostWord() ^ priority_.value(); }
  /// "address,priority", with "*" for an address whose IPv4 view is 0.
  Zet::String8 pretty() const;

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"rpAddress", "The address of the candidate RP", &CrpOptions::rpAddress,
                                 &CrpOptions::rpAddressIs},
                      Zet::Field{"priority", "Its priority, lower wins; 256 is unknown",
                                 &CrpOptions::priority, &CrpOptions::priorityIs});
  }
  /// The descriptor of CrpOptions.
  static Zet::ZetType const& _fwkType();
  /// The same as _fwkType(), for a value at hand.
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  /// Reads and writes address and priority by name.
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

/// The text form, with address and priority.
PIMBSR_API Zet::String8 valueToStrep(CrpOptions const& options);
PIMBSR_API std::ostream& operator<<(std::ostream& out, CrpOptions const& options);
/// The bit-reversed hash by which a Zet::HashMap orders members of that key.
PIMBSR_API U32 rhash(CrpOptions const& key);

}  // namespace Routing::Pim::Bsr

#pragma once

#include <array>
#include <bit>
#include <compare>
#include <concepts>
#include <ostream>

#include "runtime/EnumText.h"
#include "runtime/Export.h"
#include "runtime/Strep.h"
#include "runtime/String8.h"
#include "runtime/Types.h"
#include "runtime/ValueType.h"

namespace Zet::NboAttrLog {
class In;
class Out;
}  // namespace Zet::NboAttrLog

/// The network values: addresses, prefixes and interface identifiers, all small and copied by value.
///
/// Each is written by valueToStrep as its quoted stringValue, '' when empty, and reads that back; streaming
/// writes the bare stringValue. A text that is no value of the type raises RangeException. Addresses are held
/// in network byte order and ordered by number.
///
/// In the attribute log an IPv4 address is its 4 bytes and an IPv6 address its 16; an address of either
/// family is the U32 of its family and all 16 bytes, of which the last 12 are zero for IPv4; a prefix is its
/// address and the U32 of its length; an interface is its name.
namespace Lanet {

enum class AddressFamily : U32 { unset = 0, ipv4 = 1, ipv6 = 2 };
ZET_ENUM_TEXT(AddressFamily)

/// A 32-bit word taken from host to network byte order, or back.
constexpr U32 networkOrder(U32 word) {
  return std::endian::native == std::endian::little ? __builtin_bswap32(word) : word;
}

/// An IPv4 address; 0.0.0.0 by default.
class PIMBSR_API IpAddr {
 public:
  constexpr IpAddr() = default;
  IpAddr(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);
  /// From a number in host byte order, or one that lies in memory as on the wire.
  static constexpr IpAddr fromHost(U32 word) { return fromNet(networkOrder(word)); }
  static constexpr IpAddr fromNet(U32 word) {
    IpAddr addr;
    addr.net_ = word;
    return addr;
  }
  /// Reads a dotted quad without leading zeros.
  static IpAddr parse(Zet::String8 const& text);

  constexpr U32 hostWord() const { return networkOrder(net_); }
  constexpr U32 netWord() const { return net_; }
  /// Whether it is a multicast group.
  constexpr bool isMulticast() const;
  /// Maps the addresses to the 32-bit numbers one to one, so that no two addresses collide.
  U32 hash() const;
  Zet::String8 stringValue() const;
  void handleInitialized(Zet::String8 const& text) { *this = parse(text); }

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"stringValue", "Its text", &IpAddr::stringValue});
  }
  static Zet::ZetType const& _fwkType();
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  using GenericIf_ = Zet::GenericIfOf<IpAddr>;
  void zetPut(Zet::NboAttrLog::Out& out) const;
  static IpAddr zetGet(Zet::NboAttrLog::In& in);

  friend constexpr bool operator==(IpAddr, IpAddr) = default;
  friend constexpr std::strong_ordering operator<=>(IpAddr a, IpAddr b) {
    return a.hostWord() <=> b.hostWord();
  }

 private:
  U32 net_ = 0;
};

/// An IPv6 address; :: by default.
class PIMBSR_API Ip6Addr {
 public:
  using Bytes = std::array<U8, 16>;

  constexpr Ip6Addr() = default;
  constexpr explicit Ip6Addr(Bytes const& bytes) : bytes_(bytes) {}
  Ip6Addr(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);
  /// Reads the forms of RFC 4291 section 2.2; a text with a zone is malformed.
  static Ip6Addr parse(Zet::String8 const& text);

  constexpr Bytes const& bytes() const { return bytes_; }
  /// In ff00::/8.
  constexpr bool isMulticast() const { return bytes_[0] == 0xff; }
  /// Depends on all 16 bytes; where the last 12 are zero it is IpAddr::hash() of the first 4.
  U32 hash() const;
  Zet::String8 stringValue() const;
  void handleInitialized(Zet::String8 const& text) { *this = parse(text); }

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"stringValue", "Its text", &Ip6Addr::stringValue});
  }
  static Zet::ZetType const& _fwkType();
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  using GenericIf_ = Zet::GenericIfOf<Ip6Addr>;
  void zetPut(Zet::NboAttrLog::Out& out) const;
  static Ip6Addr zetGet(Zet::NboAttrLog::In& in);

  friend constexpr auto operator<=>(Ip6Addr const&, Ip6Addr const&) = default;

 private:
  Bytes bytes_{};
};

/// An address of either family, or the unset address, of family 0. The unset address and 0.0.0.0 are two
/// values. Ordered by family first.
class PIMBSR_API IpGenAddr {
 public:
  constexpr IpGenAddr() = default;
  IpGenAddr(IpAddr addr);
  constexpr IpGenAddr(Ip6Addr const& addr) : family_(2), bytes_(addr.bytes()) {}
  IpGenAddr(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);
  /// Reads an address of either family; the empty text is the unset address.
  static IpGenAddr parse(Zet::String8 const& text);

  constexpr AddressFamily af() const { return static_cast<AddressFamily>(family_); }
  constexpr bool isEmpty() const { return family_ == 0; }
  /// The first 4 bytes, whatever the family: the address itself if it is IPv4, 0.0.0.0 if it is unset.
  IpAddr v4Addr() const;
  /// All 16 bytes; an IPv4 address is in the first 4, zeros follow.
  constexpr Ip6Addr v6Addr() const { return Ip6Addr(bytes_); }
  bool isMulticast() const;
  /// Hash of the 16 bytes, without the family.
  U32 hash() const;
  Zet::String8 stringValue() const;
  void handleInitialized(Zet::String8 const& text) { *this = parse(text); }

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"af", "Its family", &IpGenAddr::af},
                      Zet::Field{"stringValue", "Its text", &IpGenAddr::stringValue});
  }
  static Zet::ZetType const& _fwkType();
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  using GenericIf_ = Zet::GenericIfOf<IpGenAddr>;
  void zetPut(Zet::NboAttrLog::Out& out) const;
  static IpGenAddr zetGet(Zet::NboAttrLog::In& in);

  friend constexpr auto operator<=>(IpGenAddr const&, IpGenAddr const&) = default;

 private:
  U32 family_ = 0;
  Ip6Addr::Bytes bytes_{};
};

/// An IPv4 prefix whose host bits are zero; 0.0.0.0/0 by default. Ordered by address first.
class PIMBSR_API Prefix {
 public:
  constexpr Prefix() = default;
  /// Clears the host bits; raises on a length above 32.
  Prefix(IpAddr addr, U32 length);
  Prefix(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);
  /// Reads "address/length".
  static Prefix parse(Zet::String8 const& text);

  constexpr IpAddr address() const { return address_; }
  constexpr U32 length() const { return length_; }
  bool contains(IpAddr addr) const;
  bool contains(Prefix other) const { return length_ <= other.length_ && contains(other.address_); }
  U32 hash() const;
  Zet::String8 stringValue() const;
  void handleInitialized(Zet::String8 const& text) { *this = parse(text); }

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"address", "The first address", &Prefix::address},
                      Zet::Field{"length", "Number of leading bits that count", &Prefix::length});
  }
  static Zet::ZetType const& _fwkType();
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  using GenericIf_ = Zet::GenericIfOf<Prefix>;
  void zetPut(Zet::NboAttrLog::Out& out) const;
  static Prefix zetGet(Zet::NboAttrLog::In& in);

  friend constexpr auto operator<=>(Prefix const&, Prefix const&) = default;

 private:
  IpAddr address_;
  U32 length_ = 0;
};

/// A prefix of either family whose host bits are zero, or the empty prefix, of family 0, which contains
/// nothing. The empty prefix and 0.0.0.0/0 are two values. Ordered by family, then address, then length.
class PIMBSR_API IpGenPrefix {
 public:
  constexpr IpGenPrefix() = default;
  /// The prefix of one host; of the unset address, the empty prefix.
  explicit IpGenPrefix(IpGenAddr const& host);
  IpGenPrefix(Prefix const& prefix);
  /// Clears the host bits; raises on a length above that of the family.
  IpGenPrefix(IpGenAddr const& addr, U32 length);
  IpGenPrefix(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);
  /// Reads "address/length" of either family; the empty text is the empty prefix.
  static IpGenPrefix parse(Zet::String8 const& text);

  constexpr IpGenAddr const& address() const { return address_; }
  constexpr U32 length() const { return length_; }
  constexpr AddressFamily af() const { return address_.af(); }
  constexpr bool isEmpty() const { return address_.isEmpty(); }
  /// Whether the address lies within; never one of another family.
  bool contains(IpGenAddr const& addr) const;
  /// Whether every address of `other` lies within; a prefix contains itself.
  bool contains(IpGenPrefix const& other) const;
  /// This prefix as an IPv4 one; 0.0.0.0/0 unless the family is IPv4.
  Prefix v4Prefix() const;
  U32 hash() const;
  Zet::String8 stringValue() const;
  void handleInitialized(Zet::String8 const& text) { *this = parse(text); }

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"address", "The first address", &IpGenPrefix::address},
                      Zet::Field{"length", "Number of leading bits that count", &IpGenPrefix::length});
  }
  static Zet::ZetType const& _fwkType();
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  using GenericIf_ = Zet::GenericIfOf<IpGenPrefix>;
  void zetPut(Zet::NboAttrLog::Out& out) const;
  static IpGenPrefix zetGet(Zet::NboAttrLog::In& in);

  friend constexpr auto operator<=>(IpGenPrefix const&, IpGenPrefix const&) = default;

 private:
  IpGenAddr address_;
  U32 length_ = 0;
};

/// An interface, known by its name; empty by default. Ordered by the bytes of the name.
class PIMBSR_API IntfId {
 public:
  IntfId() = default;
  explicit IntfId(Zet::String8 const& name) : name_(name) {}
  IntfId(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);

  bool isEmpty() const { return name_.empty(); }
  U32 hash() const { return name_.hash(); }
  Zet::String8 const& stringValue() const { return name_; }
  void handleInitialized(Zet::String8 const& text) { name_ = text; }

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"stringValue", "Its text", &IntfId::stringValue});
  }
  static Zet::ZetType const& _fwkType();
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  using GenericIf_ = Zet::GenericIfOf<IntfId>;
  void zetPut(Zet::NboAttrLog::Out& out) const;
  static IntfId zetGet(Zet::NboAttrLog::In& in);

  friend bool operator==(IntfId const&, IntfId const&) = default;
  friend bool operator<(IntfId const& a, IntfId const& b) { return a.name_ < b.name_; }

 private:
  Zet::String8 name_;
};

/// ALL-PIM-ROUTERS, 224.0.0.13, where PIM routers listen (RFC 7761 section 4.9).
inline constexpr IpAddr allPimRouters = IpAddr::fromHost(0xe000000d);
/// The bounds of all IPv4 multicast groups.
inline constexpr IpAddr firstGroup = IpAddr::fromHost(0xe0000000);
inline constexpr IpAddr lastGroup = IpAddr::fromHost(0xefffffff);

constexpr bool IpAddr::isMulticast() const { return firstGroup <= *this && *this <= lastGroup; }

/// All IPv4 multicast groups, 224.0.0.0/4, which is the range of the global zone.
PIMBSR_API IpGenPrefix const& allGroups();

/// The network values that share one text form.
template <class T>
concept NetworkValue = std::same_as<T, IpAddr> || std::same_as<T, Ip6Addr> || std::same_as<T, IpGenAddr> ||
    std::same_as<T, Prefix> || std::same_as<T, IpGenPrefix> || std::same_as<T, IntfId>;

Zet::String8 valueToStrep(NetworkValue auto const& value) { return Zet::valueToStrep(value.stringValue()); }

std::ostream& operator<<(std::ostream& out, NetworkValue auto const& value) {
  return out << value.stringValue();
}

/// The bit-reversed hash by which a Zet::HashMap orders members of that key.
PIMBSR_API U32 rhash(IpAddr key);
PIMBSR_API U32 rhash(Prefix const& key);
PIMBSR_API U32 rhash(IpGenAddr const& key);
PIMBSR_API U32 rhash(IpGenPrefix const& key);
PIMBSR_API U32 rhash(IntfId const& key);

}  // namespace Lanet

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

/// The family of an address or prefix.
enum class AddressFamily : U32 {
  unset = 0,  ///< of the unset address and the empty prefix
  ipv4 = 1,   ///< 32 bits
  ipv6 = 2    ///< 128 bits
};
ZET_ENUM_TEXT(AddressFamily)

/// A 32-bit word taken from host to network byte order, or back.
constexpr U32 networkOrder(U32 word) {
  return std::endian::native == std::endian::little ? __builtin_bswap32(word) : word;
}

/// An IPv4 address; 0.0.0.0 by default.
class PIMBSR_API IpAddr {
 public:
  constexpr IpAddr() = default;
  /// Reads a dotted quad in single quotes from `cur` on, which moves past it.
  IpAddr(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);
  /// From a number in host byte order, such as 0x0a000001 for 10.0.0.1.
  static constexpr IpAddr fromHost(U32 word) { return fromNet(networkOrder(word)); }
  /// From a word that lies in memory as on the wire.
  static constexpr IpAddr fromNet(U32 word) {
    IpAddr addr;
    addr.net_ = word;
    return addr;
  }
  /// Reads a dotted quad without leading zeros.
  static IpAddr parse(Zet::String8 const& text);

  /// The number in host byte order, by which addresses are ordered.
  constexpr U32 hostWord() const { return networkOrder(net_); }
  /// The word in network byte order, as it lies in memory and on the wire.
  constexpr U32 netWord() const { return net_; }
  /// Whether it is a multicast group, of 224.0.0.0/4.
  constexpr bool isMulticast() const;
  /// Maps the addresses to the 32-bit numbers one to one, so that no two addresses collide.
  U32 hash() const;
  /// The dotted quad, without leading zeros.
  Zet::String8 stringValue() const;
  /// Becomes the value that parse() reads; stays as it is where that raises.
  void handleInitialized(Zet::String8 const& text) { *this = parse(text); }

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"stringValue", "Its text", &IpAddr::stringValue});
  }
  /// The descriptor of IpAddr.
  static Zet::ZetType const& _fwkType();
  /// The same as _fwkType(), for a value at hand.
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  /// Reads the text by name; a write raises OpNotSupportedException.
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
  /// The address in network byte order.
  using Bytes = std::array<U8, 16>;

  constexpr Ip6Addr() = default;
  /// From 16 bytes in network byte order; all bytes make an address.
  constexpr explicit Ip6Addr(Bytes const& bytes) : bytes_(bytes) {}
  /// Reads an IPv6 address in single quotes from `cur` on, which moves past it.
  Ip6Addr(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);
  /// Reads the forms of RFC 4291 section 2.2; a text with a zone is malformed.
  static Ip6Addr parse(Zet::String8 const& text);

  /// The 16 bytes in network byte order.
  constexpr Bytes const& bytes() const { return bytes_; }
  /// In ff00::/8.
  constexpr bool isMulticast() const { return bytes_[0] == 0xff; }
  /// Depends on all 16 bytes; where the last 12 are zero it is IpAddr::hash() of the first 4.
  U32 hash() const;
  /// The text of RFC 5952 section 4, without an IPv4 part.
  Zet::String8 stringValue() const;
  /// Becomes the value that parse() reads; stays as it is where that raises.
  void handleInitialized(Zet::String8 const& text) { *this = parse(text); }

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"stringValue", "Its text", &Ip6Addr::stringValue});
  }
  /// The descriptor of Ip6Addr.
  static Zet::ZetType const& _fwkType();
  /// The same as _fwkType(), for a value at hand.
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  /// Reads the text by name; a write raises OpNotSupportedException.
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
  /// An IPv4 address, 0.0.0.0 too, which isn't the unset address.
  IpGenAddr(IpAddr addr);
  /// An IPv6 address, :: too, which isn't the unset address.
  constexpr IpGenAddr(Ip6Addr const& addr) : family_(2), bytes_(addr.bytes()) {}
  /// Reads an address in single quotes from `cur` on, which moves past it; '' is the unset address.
  IpGenAddr(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);
  /// Reads an address of either family; the empty text is the unset address.
  static IpGenAddr parse(Zet::String8 const& text);

  /// The family; AddressFamily::unset for the unset address.
  constexpr AddressFamily af() const { return static_cast<AddressFamily>(family_); }
  /// Whether it is the unset address.
  constexpr bool isEmpty() const { return family_ == 0; }
  /// The first 4 bytes, whatever the family: the address itself if it is IPv4, 0.0.0.0 if it is unset.
  IpAddr v4Addr() const;
  /// All 16 bytes; an IPv4 address is in the first 4, zeros follow.
  constexpr Ip6Addr v6Addr() const { return Ip6Addr(bytes_); }
  /// Whether it is in 224.0.0.0/4 or ff00::/8; the unset address is not.
  bool isMulticast() const;
  /// Hash of the 16 bytes, without the family.
  U32 hash() const;
  /// The text of the address; empty for the unset address.
  Zet::String8 stringValue() const;
  /// Becomes the value that parse() reads; stays as it is where that raises.
  void handleInitialized(Zet::String8 const& text) { *this = parse(text); }

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"af", "Its family", &IpGenAddr::af},
                      Zet::Field{"stringValue", "Its text", &IpGenAddr::stringValue});
  }
  /// The descriptor of IpGenAddr.
  static Zet::ZetType const& _fwkType();
  /// The same as _fwkType(), for a value at hand.
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  /// Reads family and text by name; a write raises OpNotSupportedException.
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
  /// Reads "address/length" in single quotes from `cur` on, which moves past it.
  Prefix(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);
  /// Reads "address/length".
  static Prefix parse(Zet::String8 const& text);

  /// The first address of the prefix.
  constexpr IpAddr address() const { return address_; }
  /// Number of leading bits that count, 0 to 32.
  constexpr U32 length() const { return length_; }
  /// Whether the address lies within; each does for the length 0.
  bool contains(IpAddr addr) const;
  /// Whether every address of `other` lies within; a prefix contains itself.
  bool contains(Prefix other) const { return length_ <= other.length_ && contains(other.address_); }
  /// Hash of address and length. Prefixes that differ can have the same hash.
  U32 hash() const;
  /// The text "address/length".
  Zet::String8 stringValue() const;
  /// Becomes the value that parse() reads; stays as it is where that raises.
  void handleInitialized(Zet::String8 const& text) { *this = parse(text); }

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"address", "The first address", &Prefix::address},
                      Zet::Field{"length", "Number of leading bits that count", &Prefix::length});
  }
  /// The descriptor of Prefix.
  static Zet::ZetType const& _fwkType();
  /// The same as _fwkType(), for a value at hand.
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  /// Reads address and length by name; a write raises OpNotSupportedException.
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
  /// An IPv4 prefix, 0.0.0.0/0 too, which isn't the empty prefix.
  IpGenPrefix(Prefix const& prefix);
  /// Clears the host bits; raises on a length above that of the family.
  IpGenPrefix(IpGenAddr const& addr, U32 length);
  /// Reads "address/length" in single quotes from `cur` on, which moves past it; '' is the empty prefix.
  IpGenPrefix(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);
  /// Reads "address/length" of either family; the empty text is the empty prefix.
  static IpGenPrefix parse(Zet::String8 const& text);

  /// The first address of the prefix; the unset address for the empty prefix.
  constexpr IpGenAddr const& address() const { return address_; }
  /// Number of leading bits that count, 0 to 32 or 0 to 128; 0 for the empty prefix.
  constexpr U32 length() const { return length_; }
  /// The family; AddressFamily::unset for the empty prefix.
  constexpr AddressFamily af() const { return address_.af(); }
  /// Whether it is the empty prefix.
  constexpr bool isEmpty() const { return address_.isEmpty(); }
  /// Whether the address lies within; never one of another family.
  bool contains(IpGenAddr const& addr) const;
  /// Whether every address of `other` lies within; a prefix contains itself.
  bool contains(IpGenPrefix const& other) const;
  /// This prefix as an IPv4 one; 0.0.0.0/0 unless the family is IPv4.
  Prefix v4Prefix() const;
  /// Prefix::hash() for IPv4, else the hash of the first address without the length; 0 for the empty prefix.
  U32 hash() const;
  /// The text "address/length"; empty for the empty prefix.
  Zet::String8 stringValue() const;
  /// Becomes the value that parse() reads; stays as it is where that raises.
  void handleInitialized(Zet::String8 const& text) { *this = parse(text); }

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"address", "The first address", &IpGenPrefix::address},
                      Zet::Field{"length", "Number of leading bits that count", &IpGenPrefix::length});
  }
  /// The descriptor of IpGenPrefix.
  static Zet::ZetType const& _fwkType();
  /// The same as _fwkType(), for a value at hand.
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  /// Reads address and length by name; a write raises OpNotSupportedException.
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
  /// The interface of that name, which isn't checked; the empty name is the empty value.
  explicit IntfId(Zet::String8 const& name) : name_(name) {}
  /// Reads a name in single quotes from `cur` on, which moves past it; '' is the empty value.
  IntfId(Zet::String8::IteratorConst& cur, Zet::String8::IteratorConst end);

  /// Whether the name is empty: no interface.
  bool isEmpty() const { return name_.empty(); }
  /// Hash of the name.
  U32 hash() const { return name_.hash(); }
  /// The name as given; empty for no interface.
  Zet::String8 const& stringValue() const { return name_; }
  /// Takes the text as the name; any text is one.
  void handleInitialized(Zet::String8 const& text) { name_ = text; }

  static constexpr auto zetFields() {
    return std::tuple(Zet::Field{"stringValue", "Its text", &IntfId::stringValue});
  }
  /// The descriptor of IntfId.
  static Zet::ZetType const& _fwkType();
  /// The same as _fwkType(), for a value at hand.
  Zet::ZetType const& fwkType() const { return _fwkType(); }
  /// Reads the text by name; a write raises OpNotSupportedException.
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
/// The lowest IPv4 multicast group, 224.0.0.0.
inline constexpr IpAddr firstGroup = IpAddr::fromHost(0xe0000000);
/// The highest IPv4 multicast group, 239.255.255.255.
inline constexpr IpAddr lastGroup = IpAddr::fromHost(0xefffffff);

constexpr bool IpAddr::isMulticast() const { return firstGroup <= *this && *this <= lastGroup; }

/// All IPv4 multicast groups, 224.0.0.0/4, which is the range of the global zone.
PIMBSR_API IpGenPrefix const& allGroups();

/// The network values that share one text form.
template <class T>
concept NetworkValue = std::same_as<T, IpAddr> || std::same_as<T, Ip6Addr> || std::same_as<T, IpGenAddr> ||
    std::same_as<T, Prefix> || std::same_as<T, IpGenPrefix> || std::same_as<T, IntfId>;

/// The text form: stringValue() in single quotes.
Zet::String8 valueToStrep(NetworkValue auto const& value) { return Zet::valueToStrep(value.stringValue()); }

std::ostream& operator<<(std::ostream& out, NetworkValue auto const& value) {
  return out << value.stringValue();
}

/// The bit-reversed hash by which a Zet::HashMap orders members whose key is an IPv4 address.
PIMBSR_API U32 rhash(IpAddr key);
/// The same for a key that is an IPv4 prefix.
PIMBSR_API U32 rhash(Prefix const& key);
/// The same for a key that is an address of either family.
PIMBSR_API U32 rhash(IpGenAddr const& key);
/// The same for a key that is a prefix of either family.
PIMBSR_API U32 rhash(IpGenPrefix const& key);
/// The same for a key that is an interface.
PIMBSR_API U32 rhash(IntfId const& key);

}  // namespace Lanet

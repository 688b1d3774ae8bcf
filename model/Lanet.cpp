#include "model/Lanet.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "runtime/Bits.h"
#include "runtime/Exceptions.h"
#include "runtime/NboAttrLog.h"

namespace Lanet {

using Zet::String8;
using Pos = String8::IteratorConst;

static_assert(sizeof(IpGenAddr) == 20 && std::is_trivially_copyable_v<IpGenAddr>);
static_assert(sizeof(IpGenPrefix) == 24 && std::is_trivially_copyable_v<IpGenPrefix>);

Zet::EnumText const& enumText(AddressFamily) {
  static constexpr char const* names[] = {"unset", "ipv4", "ipv6"};
  static constexpr Zet::EnumText text{"AddressFamily", names, "Lanet", "Family of an address"};
  return text;
}

[[noreturn]] static void throwNotA(char const* what, String8 const& text) {
  Zet::throwRangeException(Zet::format("'%s' is no %s", text.charPtr(), what).view());
}

/// Whether `digits` is a number from 0 to `most` and nothing else.
static bool readNumber(std::string_view digits, int base, U32 most, U32& out) {
  auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), out, base);
  return error == std::errc() && stop == digits.data() + digits.size() && out <= most;
}

/// The same for a decimal number. Leading zeros are an error, since some programs read them as octal.
static bool readDecimal(std::string_view digits, U32 most, U32& out) {
  bool hasLeadingZero = digits.size() > 1 && digits.front() == '0';
  return !hasLeadingZero && readNumber(digits, 10, most, out);
}

/// Cuts off the text before the first separator; all of it if there is none.
static std::string_view cutPart(std::string_view& rest, char separator) {
  std::size_t at = rest.find(separator);
  std::string_view part = rest.substr(0, at);
  rest = at == std::string_view::npos ? std::string_view() : rest.substr(at + 1);
  return part;
}

static std::optional<IpAddr> readIpv4(std::string_view text) {
  if (std::count(text.begin(), text.end(), '.') != 3) return std::nullopt;
  U32 word = 0;
  for (int part = 0; part < 4; ++part) {
    U32 octet = 0;
    if (!readDecimal(cutPart(text, '.'), 255, octet)) return std::nullopt;
    word = word << 8 | octet;
  }
  return IpAddr::fromHost(word);
}

/// Appends the 16-bit groups of a part without "::"; false if it is malformed. The part may end in an IPv4
/// address.
static bool readGroups(std::string_view text, bool isLast, std::vector<U32>& groups) {
  if (text.empty()) return true;
  if (text.back() == ':') return false;
  while (!text.empty()) {
    bool isLastGroup = isLast && text.find(':') == std::string_view::npos;
    std::string_view part = cutPart(text, ':');
    U32 group = 0;
    if (part.size() <= 4 && readNumber(part, 16, 0xffff, group)) {
      groups.push_back(group);
    } else if (std::optional<IpAddr> v4 = isLastGroup ? readIpv4(part) : std::nullopt) {
      groups.push_back(v4->hostWord() >> 16);
      groups.push_back(v4->hostWord() & 0xffff);
    } else {
      return false;
    }
  }
  return true;
}

static std::optional<Ip6Addr> readIpv6(std::string_view text) {
  std::size_t gap = text.find("::");
  bool hasGap = gap != std::string_view::npos;
  std::vector<U32> head;
  std::vector<U32> tail;
  if (!readGroups(text.substr(0, gap), !hasGap, head)) return std::nullopt;
  if (hasGap && !readGroups(text.substr(gap + 2), true, tail)) return std::nullopt;
  std::size_t given = head.size() + tail.size();
  if (hasGap ? given > 7 : given != 8) return std::nullopt;
  head.resize(8 - tail.size());
  head.insert(head.end(), tail.begin(), tail.end());
  Ip6Addr::Bytes bytes{};
  for (std::size_t at = 0; at < 8; ++at) {
    bytes[2 * at] = static_cast<U8>(head[at] >> 8);
    bytes[2 * at + 1] = static_cast<U8>(head[at]);
  }
  return Ip6Addr(bytes);
}

struct Run {
  std::size_t start = 0;
  std::size_t length = 0;
};

/// The longest run of zero groups, the first among equals.
static Run maxZeroRun(std::array<U32, 8> const& groups) {
  Run longest;
  Run run;
  for (std::size_t at = 0; at < groups.size(); ++at) {
    run = groups[at] != 0 ? Run{at + 1, 0} : Run{run.start, run.length + 1};
    if (run.length > longest.length) longest = run;
  }
  return longest;
}

IpAddr::IpAddr(Pos& cur, Pos end) : IpAddr(parse(Zet::readQuoted(cur, end))) {}

IpAddr IpAddr::parse(String8 const& text) {
  std::optional<IpAddr> addr = readIpv4(text.view());
  if (!addr) throwNotA("IPv4 address", text);
  return *addr;
}

U32 IpAddr::hash() const { return Zet::mixHash(hostWord()); }

/// Views of thousands of RPs are made of such texts, so no format is read.
String8 IpAddr::stringValue() const {
  std::array<char, 15> text{};
  char* end = text.data();
  for (U32 shift = 32; shift > 0; shift -= 8) {
    if (shift < 32) *end++ = '.';
    end = std::to_chars(end, text.data() + text.size(), (hostWord() >> (shift - 8)) & 0xff).ptr;
  }
  return String8(std::string_view(text.data(), static_cast<std::size_t>(end - text.data())));
}

Ip6Addr::Ip6Addr(Pos& cur, Pos end) : Ip6Addr(parse(Zet::readQuoted(cur, end))) {}

Ip6Addr Ip6Addr::parse(String8 const& text) {
  std::optional<Ip6Addr> addr = readIpv6(text.view());
  if (!addr) throwNotA("IPv6 address", text);
  return *addr;
}

// Odd factors map each of the later words one to one, and leave a zero at zero.
U32 Ip6Addr::hash() const {
  std::array<U32, 4> words{};
  std::memcpy(words.data(), bytes_.data(), bytes_.size());
  U32 folded = networkOrder(words[0]);
  folded ^= networkOrder(words[1]) * 0x9e3779b1U;
  folded ^= networkOrder(words[2]) * 0x85ebca77U;
  folded ^= networkOrder(words[3]) * 0xc2b2ae3dU;
  return Zet::mixHash(folded);
}

// The form of RFC 5952 section 4: the longest run of zero groups is left out, but a single one never.
String8 Ip6Addr::stringValue() const {
  std::array<U32, 8> groups{};
  for (std::size_t at = 0; at < 8; ++at) groups[at] = U32{bytes_[2 * at]} << 8 | bytes_[2 * at + 1];
  Run gap = maxZeroRun(groups);
  std::string text;
  for (std::size_t at = 0; at < 8; ++at) {
    if (gap.length > 1 && at == gap.start) {
      text += "::";
      at += gap.length - 1;
    } else {
      if (!text.empty() && text.back() != ':') text += ':';
      text += Zet::format("%x", groups[at]).view();
    }
  }
  return String8(text);
}

IpGenAddr::IpGenAddr(IpAddr addr) : family_(1) {
  U32 word = addr.netWord();
  std::memcpy(bytes_.data(), &word, sizeof word);
}

IpGenAddr::IpGenAddr(Pos& cur, Pos end) : IpGenAddr(parse(Zet::readQuoted(cur, end))) {}

IpGenAddr IpGenAddr::parse(String8 const& text) {
  if (text.empty()) return {};
  if (std::optional<IpAddr> addr = readIpv4(text.view())) return *addr;
  if (std::optional<Ip6Addr> addr = readIpv6(text.view())) return *addr;
  throwNotA("IP address", text);
}

IpAddr IpGenAddr::v4Addr() const {
  U32 word = 0;
  std::memcpy(&word, bytes_.data(), sizeof word);
  return IpAddr::fromNet(word);
}

bool IpGenAddr::isMulticast() const {
  return family_ == 2 ? v6Addr().isMulticast() : family_ == 1 && v4Addr().isMulticast();
}

U32 IpGenAddr::hash() const { return v6Addr().hash(); }

String8 IpGenAddr::stringValue() const {
  if (family_ == 0) return {};
  return family_ == 1 ? v4Addr().stringValue() : v6Addr().stringValue();
}

/// The number of bits in an address of the family.
static U32 widthOf(AddressFamily af) {
  return af == AddressFamily::ipv4 ? 32 : af == AddressFamily::ipv6 ? 128 : 0;
}

static U32 checkedLength(U32 length, U32 width) {
  if (length > width) {
    Zet::throwRangeException(Zet::format("prefix length %u is above %u", length, width).view());
  }
  return length;
}

static U32 netmask(U32 length) { return length == 0 ? 0 : ~U32{0} << (32 - length); }

static IpGenAddr masked(IpGenAddr const& addr, U32 length) {
  if (addr.af() == AddressFamily::ipv4) return IpAddr::fromHost(addr.v4Addr().hostWord() & netmask(length));
  if (addr.isEmpty()) return addr;
  Ip6Addr::Bytes bytes = addr.v6Addr().bytes();
  for (U32 at = length; at < 128; ++at) bytes[at / 8] &= static_cast<U8>(~(0x80U >> at % 8));
  return Ip6Addr(bytes);
}

struct AddressAndLength {
  String8 address;
  U32 length;
};

static AddressAndLength splitPrefix(String8 const& text, char const* what) {
  std::string_view length = text.view();
  std::string_view address = cutPart(length, '/');
  U32 bits = 0;
  if (address.empty() || !readDecimal(length, ~U32{0}, bits)) throwNotA(what, text);
  return {address, bits};
}

Prefix::Prefix(IpAddr addr, U32 length)
    : address_(IpAddr::fromHost(addr.hostWord() & netmask(checkedLength(length, 32)))), length_(length) {}

Prefix::Prefix(Pos& cur, Pos end) : Prefix(parse(Zet::readQuoted(cur, end))) {}

Prefix Prefix::parse(String8 const& text) {
  auto [address, length] = splitPrefix(text, "IPv4 prefix");
  return Prefix(IpAddr::parse(address), length);
}

bool Prefix::contains(IpAddr addr) const {
  return (addr.hostWord() & netmask(length_)) == address_.hostWord();
}

U32 Prefix::hash() const { return Zet::mixHash(address_.hostWord() ^ length_); }

String8 Prefix::stringValue() const {
  return Zet::format("%s/%u", address_.stringValue().charPtr(), length_);
}

IpGenPrefix::IpGenPrefix(IpGenAddr const& host) : address_(host), length_(widthOf(host.af())) {}

IpGenPrefix::IpGenPrefix(Prefix const& prefix) : address_(prefix.address()), length_(prefix.length()) {}

IpGenPrefix::IpGenPrefix(IpGenAddr const& addr, U32 length)
    : address_(masked(addr, checkedLength(length, widthOf(addr.af())))), length_(length) {}

IpGenPrefix::IpGenPrefix(Pos& cur, Pos end) : IpGenPrefix(parse(Zet::readQuoted(cur, end))) {}

IpGenPrefix IpGenPrefix::parse(String8 const& text) {
  if (text.empty()) return {};
  auto [address, length] = splitPrefix(text, "IP prefix");
  return IpGenPrefix(IpGenAddr::parse(address), length);
}

bool IpGenPrefix::contains(IpGenAddr const& addr) const {
  return !isEmpty() && addr.af() == af() && masked(addr, length_) == address_;
}

bool IpGenPrefix::contains(IpGenPrefix const& other) const {
  return length_ <= other.length_ && contains(other.address_);
}

Prefix IpGenPrefix::v4Prefix() const {
  return af() == AddressFamily::ipv4 ? Prefix(address_.v4Addr(), length_) : Prefix();
}

U32 IpGenPrefix::hash() const {
  if (af() == AddressFamily::ipv4) return v4Prefix().hash();
  return isEmpty() ? 0 : address_.v6Addr().hash();
}

String8 IpGenPrefix::stringValue() const {
  return isEmpty() ? String8() : Zet::format("%s/%u", address_.stringValue().charPtr(), length_);
}

IntfId::IntfId(Pos& cur, Pos end) : name_(Zet::readQuoted(cur, end)) {}

IpGenPrefix const& allGroups() {
  static IpGenPrefix const groups =
      Prefix(firstGroup, std::countl_zero(firstGroup.hostWord() ^ lastGroup.hostWord()));
  return groups;
}

U32 rhash(IpAddr key) { return Zet::bitReverse(key.hash()); }
U32 rhash(Prefix const& key) { return Zet::bitReverse(key.hash()); }
U32 rhash(IpGenAddr const& key) { return Zet::bitReverse(key.hash()); }
U32 rhash(IpGenPrefix const& key) { return Zet::bitReverse(key.hash()); }
U32 rhash(IntfId const& key) { return Zet::bitReverse(key.hash()); }

// Attribute log -----------------------------------------------------------------------------------------

using Zet::NboAttrLog::In;
using Zet::NboAttrLog::Out;

void IpAddr::zetPut(Out& out) const { Zet::NboAttrLog::putNumber(out, hostWord()); }

IpAddr IpAddr::zetGet(In& in) { return fromHost(Zet::NboAttrLog::getNumber<U32>(in)); }

void Ip6Addr::zetPut(Out& out) const { std::memcpy(out.add(bytes_.size()), bytes_.data(), bytes_.size()); }

Ip6Addr Ip6Addr::zetGet(In& in) {
  Bytes bytes;
  std::memcpy(bytes.data(), in.take(bytes.size()).data(), bytes.size());
  return Ip6Addr(bytes);
}

void IpGenAddr::zetPut(Out& out) const {
  Zet::NboAttrLog::putNumber(out, family_);
  v6Addr().zetPut(out);
}

IpGenAddr IpGenAddr::zetGet(In& in) {
  auto const family = Zet::NboAttrLog::get<AddressFamily>(in);
  IpGenAddr addr(Ip6Addr::zetGet(in));
  if (family == AddressFamily::ipv6) return addr;
  IpGenAddr const made = family == AddressFamily::ipv4 ? IpGenAddr(addr.v4Addr()) : IpGenAddr();
  if (made.bytes_ != addr.bytes_) Zet::throwRangeException("IpGenAddr: bytes after the address");
  return made;
}

/// The prefix of an address and a length as they come; one with host bits isn't a prefix.
template <class P, class A>
static P getPrefix(In& in) {
  A const addr = A::zetGet(in);
  P const prefix(addr, Zet::NboAttrLog::getNumber<U32>(in));
  if (prefix.address() != addr) Zet::throwRangeException("prefix with host bits");
  return prefix;
}

void Prefix::zetPut(Out& out) const {
  address_.zetPut(out);
  Zet::NboAttrLog::putNumber(out, length_);
}

Prefix Prefix::zetGet(In& in) { return getPrefix<Prefix, IpAddr>(in); }

void IpGenPrefix::zetPut(Out& out) const {
  address_.zetPut(out);
  Zet::NboAttrLog::putNumber(out, length_);
}

IpGenPrefix IpGenPrefix::zetGet(In& in) { return getPrefix<IpGenPrefix, IpGenAddr>(in); }

void IntfId::zetPut(Out& out) const { Zet::NboAttrLog::put(out, name_); }

IntfId IntfId::zetGet(In& in) { return IntfId(Zet::NboAttrLog::get<String8>(in)); }

Zet::ZetType const& IpAddr::_fwkType() { return Zet::valueType<IpAddr>("Lanet::IpAddr", "An IPv4 address"); }

Zet::ZetType const& Ip6Addr::_fwkType() {
  return Zet::valueType<Ip6Addr>("Lanet::Ip6Addr", "An IPv6 address");
}

Zet::ZetType const& IpGenAddr::_fwkType() {
  return Zet::valueType<IpGenAddr>("Lanet::IpGenAddr", "An address of either family, or the unset address");
}

Zet::ZetType const& Prefix::_fwkType() { return Zet::valueType<Prefix>("Lanet::Prefix", "An IPv4 prefix"); }

Zet::ZetType const& IpGenPrefix::_fwkType() {
  return Zet::valueType<IpGenPrefix>("Lanet::IpGenPrefix", "A prefix of either family, or the empty prefix");
}

Zet::ZetType const& IntfId::_fwkType() {
  return Zet::valueType<IntfId>("Lanet::IntfId", "An interface, known by its name");
}

[[maybe_unused]] static bool const areTypesKnown =
    Zet::zetTypeIs(_fwkType(AddressFamily{})) && Zet::zetTypeIs(IpAddr::_fwkType()) &&
    Zet::zetTypeIs(Ip6Addr::_fwkType()) && Zet::zetTypeIs(IpGenAddr::_fwkType()) &&
    Zet::zetTypeIs(Prefix::_fwkType()) && Zet::zetTypeIs(IpGenPrefix::_fwkType()) &&
    Zet::zetTypeIs(IntfId::_fwkType());

}  // namespace Lanet

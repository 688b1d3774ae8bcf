#include "wire/DropReason.h"

#include <array>
#include <cstddef>
#include <iterator>

#include "runtime/Assert.h"

namespace pimbsr::wire {

namespace {

struct Row {
  DropReason reason;
  std::string_view name;
  std::string_view sentence;
};

constexpr Row rows[] = {
    {DropReason::ipHeader, "ip-header", "The IPv4 header has a wrong version, length or checksum."},
    {DropReason::ipProtocol, "ip-protocol", "The IPv4 packet carries another protocol than PIM."},
    {DropReason::ipFragment, "ip-fragment", "The packet is a fragment of an IPv4 packet."},
    {DropReason::truncated, "truncated", "The packet ends before what it announces."},
    {DropReason::version, "version", "The PIM version is not 2."},
    {DropReason::type, "type", "The PIM message is of another type than the one asked for."},
    {DropReason::checksum, "checksum", "The PIM checksum is wrong."},
    {DropReason::addressFamily, "address-family", "An encoded address is not of the IPv4 family."},
    {DropReason::encoding, "encoding", "An encoded address has another encoding type than the native one."},
    {DropReason::prefixLength, "prefix-length", "A group range has a mask length above 32."},
    {DropReason::groupNotMulticast, "group-not-multicast", "A group range lies not within 224.0.0.0/4."},
    {DropReason::bsrNotUnicast, "bsr-not-unicast", "The BSR address cannot be the address of a router."},
    {DropReason::rpNotUnicast, "rp-not-unicast", "An RP address cannot be the address of a router."},
    {DropReason::rpTwice, "rp-twice", "One group record names the same RP twice."},
    {DropReason::fragRpCount, "frag-rp-count", "A group record has more RPs than it announces in all."},
    {DropReason::prefixCount, "prefix-count",
     "An advertisement holds fewer group prefixes than it announces."},
    {DropReason::prefixTwice, "prefix-twice", "An advertisement names the same group prefix twice."},
    {DropReason::helloOption, "hello-option", "A Hello option has a wrong length or a wrong value."},
};

constexpr auto reasons = [] {
  std::array<DropReason, std::size(rows)> all{};
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = rows[i].reason;
  return all;
}();

static_assert(
    [] {
      for (std::size_t i = 0; i < std::size(rows); ++i) {
        if (static_cast<std::size_t>(rows[i].reason) != i) return false;
      }
      return true;
    }(),
    "a reason's number is the index of its row");

Row const& row(DropReason reason) {
  auto index = static_cast<std::size_t>(reason);
  ZET_ASSERT(index < std::size(rows), "drop reason has a row");
  return rows[index];
}

}  // namespace

std::string_view name(DropReason reason) { return row(reason).name; }

std::string_view sentence(DropReason reason) { return row(reason).sentence; }

std::span<DropReason const> dropReasons() { return reasons; }

}  // namespace pimbsr::wire

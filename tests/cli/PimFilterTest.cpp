#include "cli/capture/PimFilter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/cli/CliSupport.h"

namespace pimbsr::cli {
namespace {

using test::Bytes;

Bytes ipv4(U8 protocol) {
  Bytes packet(24, 0);
  packet[0] = 0x45;
  packet[9] = protocol;
  return packet;
}

/// An IPv6 packet whose header names `next`, with `rest` after it.
Bytes ipv6(U8 next, Bytes const& rest = {}) {
  Bytes packet(40, 0);
  packet[0] = 0x60;
  packet[6] = next;
  packet.insert(packet.end(), rest.begin(), rest.end());
  return packet;
}

TEST(PimFilterTest, Ipv4PacketIsPimByItsProtocol) {
  EXPECT_TRUE(isPim({4, ipv4(103)}));
  EXPECT_FALSE(isPim({4, ipv4(17)}));
}

TEST(PimFilterTest, PacketCutBeforeItsProtocolIsNone) {
  Bytes packet = ipv4(103);
  packet.resize(10);
  EXPECT_TRUE(isPim({4, packet})) << "cut after it, it is a PIM packet that can't be read";
  packet.resize(9);
  EXPECT_FALSE(isPim({4, packet}));
  Bytes packet6 = ipv6(103);
  packet6.resize(39);
  EXPECT_FALSE(isPim({6, packet6}));
}

TEST(PimFilterTest, FrameWithoutIpIsNone) { EXPECT_FALSE(isPim({0, {}})); }

TEST(PimFilterTest, Ipv6PacketIsPimAfterItsExtensionHeaders) {
  struct Case {
    char const* what;
    U8 next;
    Bytes rest;
    bool isPim;
  };
  Case const cases[] = {
      {"plain", 103, {}, true},
      {"UDP", 17, {}, false},
      {"hop-by-hop options", 0, {103, 0, 0, 0, 0, 0, 0, 0}, true},
      {"long destination options", 60, {103, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, true},
      {"routing, then UDP", 43, {17, 0, 0, 0, 0, 0, 0, 0}, false},
      {"first fragment", 44, {103, 0, 0, 1, 0, 0, 0, 0}, true},
      {"later fragment, whatever its bytes", 44, {103, 0, 0, 9, 0, 0, 0, 0, 103, 0, 0, 0, 0, 0, 0, 0}, false},
      {"authentication of 16 bytes", 51, {103, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, true},
      {"two in a row", 0, {60, 0, 0, 0, 0, 0, 0, 0, 103, 0, 0, 0, 0, 0, 0, 0}, true},
      {"cut extension", 0, {103, 0, 0, 0}, false},
      {"extension longer than the packet", 0, {103, 9, 0, 0, 0, 0, 0, 0}, false},
      {"no next header", 59, {}, false},
  };
  for (Case const& one : cases) {
    Bytes packet = ipv6(one.next, one.rest);
    EXPECT_EQ(isPim({6, packet}), one.isPim) << one.what;
  }
}

}  // namespace
}  // namespace pimbsr::cli

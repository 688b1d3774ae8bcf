#include "cli/capture/LinkLayer.h"

#include <gmock/gmock.h>
#include <pcap/pcap.h>

#include <string>
#include <vector>

#include "tests/cli/CliSupport.h"

namespace pimbsr::cli {
namespace {

using test::Bytes;
using testing::ElementsAre;
using testing::ElementsAreArray;

Bytes operator+(Bytes head, Bytes const& tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

Bytes const packet4{0x45, 1, 2, 3};
Bytes const packet6{0x60, 1, 2, 3};
Bytes const macs(12, 0xee);
Bytes const typeIpv4{0x08, 0x00};
Bytes const typeIpv6{0x86, 0xdd};

struct Case {
  char const* what;
  int linkType;
  Bytes head;
  int version;
};

TEST(LinkLayerTest, FindsTheIpPacketAfterTheHeaderOfEachLink) {
  Case const cases[] = {
      {"Ethernet", DLT_EN10MB, macs + typeIpv4, 4},
      {"Ethernet", DLT_EN10MB, macs + typeIpv6, 6},
      {"one VLAN tag", DLT_EN10MB, macs + Bytes{0x81, 0x00, 0, 42} + typeIpv4, 4},
      {"provider tag and VLAN tag", DLT_EN10MB, macs + Bytes{0x88, 0xa8, 0, 7, 0x81, 0x00, 0, 42} + typeIpv6,
       6},
      {"old provider tag", DLT_EN10MB, macs + Bytes{0x91, 0x00, 0, 7, 0x81, 0x00, 0, 42} + typeIpv4, 4},
      {"Linux cooked", DLT_LINUX_SLL, Bytes(14, 0xee) + typeIpv4, 4},
      {"Linux cooked with a tag", DLT_LINUX_SLL, Bytes(14, 0xee) + Bytes{0x81, 0x00, 0, 42} + typeIpv6, 6},
      {"Linux cooked 2", DLT_LINUX_SLL2, typeIpv6 + Bytes(18, 0xee), 6},
      {"raw IP", DLT_RAW, {}, 4},
      {"raw IP", DLT_RAW, {}, 6},
      {"raw IPv4", DLT_IPV4, {}, 4},
      {"raw IPv6", DLT_IPV6, {}, 6},
      {"BSD loopback, little-endian host", DLT_NULL, {2, 0, 0, 0}, 4},
      {"BSD loopback, big-endian host", DLT_NULL, {0, 0, 0, 2}, 4},
      {"BSD loopback, IPv6 of one system", DLT_NULL, {30, 0, 0, 0}, 6},
      {"BSD loopback, IPv6 of another", DLT_NULL, {24, 0, 0, 0}, 6},
      {"OpenBSD loopback", DLT_LOOP, {0, 0, 0, 24}, 6},
  };
  for (Case const& one : cases) {
    SCOPED_TRACE(one.what);
    Bytes const& carried = one.version == 4 ? packet4 : packet6;
    Bytes frame = one.head + carried;
    IpPacket found = ipPacketOf(one.linkType, frame);
    EXPECT_EQ(found.version, one.version);
    EXPECT_THAT(found.bytes, ElementsAreArray(carried));
  }
}

TEST(LinkLayerTest, FrameThatCarriesNoIpOrEndsInItsHeadGivesNone) {
  Case const cases[] = {
      {"ARP", DLT_EN10MB, macs + Bytes{0x08, 0x06, 0x45, 0, 0, 0}, 0},
      {"length instead of a type", DLT_EN10MB, macs + Bytes{0x00, 0x26, 0x45, 0, 0, 0}, 0},
      {"only MAC addresses", DLT_EN10MB, macs, 0},
      {"half a type", DLT_EN10MB, macs + Bytes{0x08}, 0},
      {"half a VLAN tag", DLT_EN10MB, macs + Bytes{0x81, 0x00, 0}, 0},
      {"VLAN tags without an end", DLT_EN10MB, macs + Bytes{0x81, 0x00, 0, 1, 0x81, 0x00, 0, 1, 0x81, 0x00},
       0},
      {"short cooked head", DLT_LINUX_SLL, Bytes(15, 0x08), 0},
      {"short cooked head", DLT_LINUX_SLL2, typeIpv4 + Bytes(17, 0), 0},
      {"neither version", DLT_RAW, {0x50, 0, 0, 0}, 0},
      {"nothing", DLT_RAW, {}, 0},
      {"another family", DLT_NULL, {7, 0, 0, 0, 0x45}, 0},
      {"short loopback head", DLT_NULL, {2, 0, 0}, 0},
      {"link type that nothing is known of", DLT_USER0, macs + typeIpv4 + packet4, 0},
  };
  for (Case const& one : cases) {
    SCOPED_TRACE(one.what);
    IpPacket found = ipPacketOf(one.linkType, one.head);
    EXPECT_EQ(found.version, 0);
    EXPECT_TRUE(found.bytes.empty());
  }
}

TEST(LinkLayerTest, EachTypeInTheMessageIsKnown) {
  std::string text = knownLinkTypes();
  for (char const* name : {"EN10MB", "LINUX_SLL", "LINUX_SLL2", "RAW", "IPV4", "IPV6", "NULL", "LOOP"}) {
    EXPECT_NE(text.find(name), text.npos) << name;
    EXPECT_TRUE(isLinkTypeKnown(pcap_datalink_name_to_val(name))) << name;
  }
  EXPECT_FALSE(isLinkTypeKnown(DLT_USER0));
}

}  // namespace
}  // namespace pimbsr::cli

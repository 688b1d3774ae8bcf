#include <gtest/gtest.h>

#include <set>

#include "tests/wire/WireSupport.h"

namespace pimbsr::wire::test {
namespace {

using Read = std::optional<DropReason> (*)(Bytes);

std::optional<DropReason> asIpv4(Bytes bytes) { return dropReason(parseIpv4(bytes)); }
std::optional<DropReason> asMessage(Bytes bytes) { return dropReason(readMessage(bytes)); }
std::optional<DropReason> asBootstrap(Bytes bytes) { return dropReason(readBootstrap(bytes)); }
std::optional<DropReason> asCrpAdv(Bytes bytes) { return dropReason(readCrpAdv(bytes)); }
std::optional<DropReason> asHello(Bytes bytes) { return dropReason(readHello(bytes)); }

struct Malformed {
  char const* label;
  Read read;
  Buffer bytes;
  DropReason reason;
};

// Heads of good messages, and a good group record, after which the cases go on.
std::string const bootstrapHead = "2400 0000 04b0 1e 40 0100 01010101";
std::string const oneOfTwo = bootstrapHead + "0100 00 08 ef000000 02 01 0000";
std::string const twoOfTwo = bootstrapHead + "0100 00 08 ef000000 02 02 0000";
std::string const goodRp = "0100 02020202 0096 c0 00";
std::string const advertisementHead = "2800 0000 02 c0 0096 0100 03030303";
std::string const goodGroup = "0100 00 08 ef000000";
std::string const helloHead = "2000 0000";

using enum DropReason;

std::vector<Malformed> malformedIpv4() {
  return {
      {"no packet", asIpv4, {}, truncated},
      {"a header of 19 bytes", asIpv4, hex("45c0 0014 0000 0000 0167 0000 0a000005 e00000"), truncated},
      {"options that are cut", asIpv4, hex("46c0 0018 0000 0000 0167 0000 0a000005 e000000d 9404"),
       truncated},
      {"a payload that is cut", asIpv4, hex("45c0 0018 0000 0000 0167 0000 0a000005 e000000d dead"),
       truncated},
      {"version 6", asIpv4, hex("65c0 0014 0000 0000 0167 0000 0a000005 e000000d"), ipHeader},
      {"a header shorter than the shortest", asIpv4, hex("44c0 0014 0000 0000 0167 0000 0a000005 e000000d"),
       ipHeader},
      {"a total length within the header", asIpv4, hex("45c0 0013 0000 0000 0167 0000 0a000005 e000000d"),
       ipHeader},
      {"a wrong checksum", asIpv4, hex("45c0 0014 0000 0000 0167 ceb2 0a000005 e000000d"), ipHeader},
      {"a checksum that leaves out the options", asIpv4,
       hex("46c0 0018 0000 0000 0167 cdad 0a000005 e000000d 94040000"), ipHeader},
      {"IGMP", asIpv4, hex("45c0 0014 0000 0000 0102 0000 0a000005 e000000d"), ipProtocol},
      {"a wrong checksum in another protocol", asIpv4, hex("45c0 0014 0000 0000 0111 0001 0a000005 e000000d"),
       ipProtocol},
      {"a fragment of another protocol", asIpv4, hex("45c0 0014 0000 2000 0111 0000 0a000005 e000000d"),
       ipProtocol},
      {"a first fragment", asIpv4, hex("45c0 0014 0000 2000 0167 0000 0a000005 e000000d"), ipFragment},
      {"a last fragment", asIpv4, hex("45c0 0014 0000 0001 0167 0000 0a000005 e000000d"), ipFragment},
  };
}

std::vector<Malformed> malformedHeaders() {
  return {
      {"no message", asMessage, {}, truncated},
      {"three bytes", asMessage, hex("240000"), truncated},
      {"three bytes of another version", asMessage, hex("140000"), truncated},
      {"version 1", asMessage, message("1400 0000 04b0 1e 40 0100 01010101"), version},
      {"version 3 of an unknown type with a wrong checksum", asMessage, hex("3f00 0000"), version},
      {"a wrong checksum in a Bootstrap message", asMessage, hex("2400 e411 04b0 0000 0100 01010101"),
       checksum},
      {"a wrong checksum in an advertisement", asMessage, hex("2800 ee5f 0000 0096 0100 03030303"), checksum},
      {"a wrong checksum in a Hello", asMessage, hex("2000 0000 0001 0002 0069"), checksum},
      {"a checksum of zero is no promise", asMessage, hex("2400 0000 04b0 0000 0100 01010101"), checksum},
      {"bytes after the message that its checksum does not cover", asMessage,
       hex("2400 e410 04b0 00 00 0100 01010101 0100 00 04 e0000000 02 02 0000 0100 02020202 0096 00 00"
           "0100 03030303 0096 00 00 01"),
       checksum},
      {"a Hello where a Bootstrap message is asked for", asBootstrap, message("2000 0000"), type},
      {"a Hello with a wrong checksum, too", asBootstrap, hex("2000 0000"), type},
      {"a Bootstrap message where an advertisement is asked for", asCrpAdv, hex(twoRpBootstrap), type},
      {"an advertisement where a Hello is asked for", asHello, hex(oneGroupAdvertisement), type},
  };
}

std::vector<Malformed> malformedBootstraps() {
  auto bsr = [](std::string const& encoded) { return message("2400 0000 04b0 1e 40 " + encoded); };
  auto group = [](std::string const& rest) { return message(bootstrapHead + rest); };
  return {
      {"no BSR address", asBootstrap, message("2400 0000 04b0 1e 40"), truncated},
      {"half a BSR address", asBootstrap, bsr("0100 0101"), truncated},
      {"an IPv6 BSR", asBootstrap, bsr("0200 20010db8000000000000000000000001"), addressFamily},
      {"a BSR of no family", asBootstrap, bsr("0000 01010101"), addressFamily},
      {"a BSR in an unknown encoding", asBootstrap, bsr("0101 01010101"), encoding},
      {"BSR 0.0.0.0", asBootstrap, bsr("0100 00000000"), bsrNotUnicast},
      {"a multicast BSR", asBootstrap, bsr("0100 e0000001"), bsrNotUnicast},
      {"the last multicast BSR", asBootstrap, bsr("0100 efffffff"), bsrNotUnicast},
      {"a loopback BSR", asBootstrap, bsr("0100 7f000001"), bsrNotUnicast},
      {"a BSR in the reserved block", asBootstrap, bsr("0100 f0000000"), bsrNotUnicast},
      {"a broadcast BSR", asBootstrap, bsr("0100 ffffffff"), bsrNotUnicast},
      {"an IPv6 group", asBootstrap, group("0200 00 08 ef000000 02 00 0000"), addressFamily},
      {"a group in an unknown encoding", asBootstrap, group("0101 00 08 ef000000 02 00 0000"), encoding},
      {"a mask length of 33", asBootstrap, group("0100 00 21 ef000000 02 00 0000"), prefixLength},
      {"a mask length of 33 outside of multicast", asBootstrap, group("0100 00 21 0a000000 02 00 0000"),
       prefixLength},
      {"a mask length of 3", asBootstrap, group("0100 00 03 e0000000 02 00 0000"), groupNotMulticast},
      {"a mask length of 0", asBootstrap, group("0100 00 00 00000000 02 00 0000"), groupNotMulticast},
      {"a unicast group", asBootstrap, group("0100 00 08 0a000000 02 00 0000"), groupNotMulticast},
      {"a group in the reserved block", asBootstrap, group("0100 00 08 f0000000 02 00 0000"),
       groupNotMulticast},
      {"more RPs here than in all", asBootstrap, group("0100 00 08 ef000000 01 02 0000" + goodRp + goodRp),
       fragRpCount},
      {"more RPs here than in all, and none of them there", asBootstrap,
       group("0100 00 08 ef000000 00 01 0000"), fragRpCount},
      {"no RP where one is announced", asBootstrap, message(oneOfTwo), truncated},
      {"half an RP address", asBootstrap, message(oneOfTwo + "0100 02"), truncated},
      {"an RP without its last byte", asBootstrap, message(oneOfTwo + "0100 02020202 0096 c0"), truncated},
      {"the second RP missing", asBootstrap, message(twoOfTwo + goodRp), truncated},
      {"an IPv6 RP", asBootstrap, message(oneOfTwo + "0200 02020202 0096 c0 00"), addressFamily},
      {"an RP in an unknown encoding", asBootstrap, message(oneOfTwo + "0107 02020202 0096 c0 00"), encoding},
      {"RP 0.0.0.0", asBootstrap, message(oneOfTwo + "0100 00000000 0096 c0 00"), rpNotUnicast},
      {"a multicast RP", asBootstrap, message(oneOfTwo + "0100 e8000001 0096 c0 00"), rpNotUnicast},
      {"a loopback RP", asBootstrap, message(oneOfTwo + "0100 7fffffff 0096 c0 00"), rpNotUnicast},
      {"the same RP twice", asBootstrap, message(twoOfTwo + goodRp + "0100 02020202 0001 00 00"), rpTwice},
      {"a bad record after a good one", asBootstrap,
       message(oneOfTwo + goodRp + "0100 00 21 ef000000 00 00 0000"), prefixLength},
      {"a long rest that is not padding", asBootstrap, group("000000000000 000000000001"), addressFamily},
  };
}

std::vector<Malformed> malformedAdvertisements() {
  auto rp = [](std::string const& encoded) { return message("2800 0000 00 c0 0096 " + encoded); };
  auto groups = [](std::string const& rest) { return message(advertisementHead + rest); };
  return {
      {"a header alone", asCrpAdv, message("2800 0000"), truncated},
      {"half an RP address", asCrpAdv, rp("0100 0303"), truncated},
      {"an IPv6 RP", asCrpAdv, rp("0200 03030303"), addressFamily},
      {"an RP in an unknown encoding", asCrpAdv, rp("01ff 03030303"), encoding},
      {"a multicast RP", asCrpAdv, rp("0100 e0000001"), rpNotUnicast},
      {"RP 0.0.0.0", asCrpAdv, rp("0100 00000000"), rpNotUnicast},
      {"two groups announced and none there", asCrpAdv, groups(""), prefixCount},
      {"two groups announced and one there", asCrpAdv, groups(goodGroup), prefixCount},
      {"two groups announced and most of two there", asCrpAdv, groups(goodGroup + "0100 00 08 ee0000"),
       prefixCount},
      {"an IPv6 group", asCrpAdv, groups("0200 00 08 ef000000" + goodGroup), addressFamily},
      {"a group in an unknown encoding", asCrpAdv, groups("0180 00 08 ef000000" + goodGroup), encoding},
      {"a mask length of 255", asCrpAdv, groups("0100 00 ff ef000000" + goodGroup), prefixLength},
      {"a unicast group", asCrpAdv, groups("0100 00 08 df000000" + goodGroup), groupNotMulticast},
      {"all addresses as a group", asCrpAdv, groups(goodGroup + "0100 00 00 e0000000"), groupNotMulticast},
      {"the same group twice", asCrpAdv, groups(goodGroup + goodGroup), prefixTwice},
      {"the same group after other flags and host bits", asCrpAdv, groups(goodGroup + "0100 81 08 ef010203"),
       prefixTwice},
  };
}

std::vector<Malformed> malformedHellos() {
  auto options = [](std::string const& rest) { return message(helloHead + rest); };
  return {
      {"an option that goes beyond the end", asHello, options("0001 0002 00"), truncated},
      {"an unknown option that goes beyond the end", asHello, options("fde9 ffff 0000"), truncated},
      {"a holdtime of one byte", asHello, options("0001 0001 69"), helloOption},
      {"a holdtime of four bytes", asHello, options("0001 0004 00000069"), helloOption},
      {"a holdtime of no bytes", asHello, options("0001 0000"), helloOption},
      {"a DR priority of two bytes", asHello, options("0013 0002 0001"), helloOption},
      {"a generation ID of five bytes", asHello, options("0014 0005 0102030405"), helloOption},
      {"an address list with half an address", asHello, options("0018 0008 0100 0a000001 0100"), helloOption},
      {"an address list with a group in it", asHello, options("0018 0006 0100 e0000001"), helloOption},
      {"an address list in an unknown encoding", asHello, options("0018 0006 0101 0a000001"), helloOption},
      {"an address list of two families", asHello, options("0018 000c 0100 0a000001 0200 0a000002"),
       helloOption},
      {"a bad option after good ones", asHello, options("0001 0002 0069 0014 0003 010203"), helloOption},
  };
}

std::vector<Malformed> allMalformed() {
  std::vector<Malformed> all;
  for (auto const& some : {malformedIpv4(), malformedHeaders(), malformedBootstraps(),
                           malformedAdvertisements(), malformedHellos()}) {
    all.insert(all.end(), some.begin(), some.end());
  }
  return all;
}

TEST(Malformed, EachPacketIsDroppedForItsOwnReason) {
  for (Malformed const& packet : allMalformed()) {
    auto reason = packet.read(cut(packet.bytes, packet.bytes.size()));
    EXPECT_EQ(nameOf(reason), name(packet.reason)) << packet.label;
  }
}

TEST(Malformed, EveryReasonIsGivenByAPacket) {
  std::set<DropReason> given;
  for (Malformed const& packet : allMalformed()) {
    if (auto reason = packet.read(packet.bytes)) given.insert(*reason);
  }
  // The reasons of this module are the first of the catalogue.
  for (DropReason reason : allDropReasons()) {
    EXPECT_TRUE(reason > DropReason::helloOption || given.contains(reason)) << name(reason);
  }
}

TEST(Malformed, AMessageOfUnknownTypeIsDroppedAsItsOwnReaderDropsIt) {
  for (Malformed const& packet : allMalformed()) {
    if (packet.read == asIpv4 || packet.reason == DropReason::type) continue;
    EXPECT_EQ(nameOf(asMessage(packet.bytes)), name(packet.reason)) << packet.label;
  }
}

}  // namespace
}  // namespace pimbsr::wire::test

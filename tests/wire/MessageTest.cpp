#include <gtest/gtest.h>

#include "tests/wire/WireSupport.h"

namespace pimbsr::wire::test {
namespace {

using Routing::Pim::Packet::BootstrapMessage;
using Routing::Pim::Packet::CrpAdvMessage;

TEST(Message, IsReadAsWhatItsTypeSays) {
  auto bootstrap = readMessage(hex(twoRpBootstrap));
  ASSERT_TRUE(bootstrap);
  auto const* record = std::get_if<Zet::Ptr<BootstrapMessage>>(&*bootstrap);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ((*record)->fragmentTag(), 0x04b0);

  auto advertisement = readMessage(hex(oneGroupAdvertisement));
  ASSERT_TRUE(advertisement);
  auto const* crpAdv = std::get_if<Zet::Ptr<CrpAdvMessage>>(&*advertisement);
  ASSERT_NE(crpAdv, nullptr);
  EXPECT_EQ((*crpAdv)->prefixCount(), 1);

  auto hello = readMessage(message("2000 0000 0001 0002 0014"));
  ASSERT_TRUE(hello);
  ASSERT_TRUE(std::holds_alternative<HelloMessage>(*hello));
  EXPECT_EQ(std::get<HelloMessage>(*hello).holdtime, 20);
}

TEST(Message, OfAnyOtherTypeIsOtherWhateverFollowsItsHeader) {
  for (int type : {1, 2, 3, 5, 6, 7, 9, 10, 11, 12, 13, 14, 15}) {
    auto bytes =
        hex("2000 dead");  // a Register's checksum covers its first bytes only, so none is verified here
    bytes[0] = static_cast<U8>(0x20 | type);
    auto other = readMessage(bytes);
    ASSERT_TRUE(other) << type << ": " << nameOf(dropReason(other));
    ASSERT_TRUE(std::holds_alternative<OtherMessage>(*other)) << type;
    EXPECT_EQ(std::get<OtherMessage>(*other).type, type);
  }
}

}  // namespace
}  // namespace pimbsr::wire::test

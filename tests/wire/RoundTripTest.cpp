#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/wire/WireSupport.h"
#include "wire/Writer.h"

namespace pimbsr::wire::test {
namespace {

using Routing::Pim::Packet::BootstrapGroupData;
using Routing::Pim::Packet::BootstrapMessage;
using Routing::Pim::Packet::BootstrapOptionalData;
using Routing::Pim::Packet::CrpAdvMessage;
using Routing::Pim::Packet::CrpGroupData;
using Routing::Pim::Packet::GroupFlags;

constexpr int rounds = 2000;

// Messages at random, the same in every run: only the engine is used, since the library's distributions
// differ.
class Generator {
 public:
  explicit Generator(U32 seed) : random_(seed) {}

  U32 any() { return static_cast<U32>(random_()); }
  U32 below(U32 bound) { return any() % bound; }
  U8 byte() { return static_cast<U8>(any()); }
  U16 word() { return static_cast<U16>(any()); }

  Lanet::IpAddr routerAddress() {
    return Lanet::IpAddr::fromHost((1 + below(126)) << 24 | (any() & 0x00ffffff));
  }
  Lanet::IpGenPrefix range() {
    return {Lanet::IpGenAddr(Lanet::IpAddr::fromHost(0xe0000000 | (any() >> 4))), 4 + below(29)};
  }
  GroupFlags flags() {
    constexpr U8 known[] = {0x00, 0x01, 0x80, 0x81};
    return GroupFlags(known[below(4)]);
  }

  Zet::Ptr<BootstrapMessage> bootstrap() {
    auto message = Zet::make<BootstrapMessage>();
    message->srcAddrIs(sender());
    message->dstAddrIs(receiver());
    message->forwardIs(below(2) == 0);
    message->fragmentTagIs(word());
    message->hashMaskLenIs(byte());
    message->bsrPriorityIs(byte());
    message->bsrAddressIs(routerAddress());
    message->groupRpDataIs(Zet::make<BootstrapOptionalData>());
    for (U32 n = below(6); n > 0; --n) message->groupRpData()->groupDataEnq(group());
    return message;
  }

  Zet::Ptr<CrpAdvMessage> crpAdv() {
    auto message = Zet::make<CrpAdvMessage>();
    message->srcAddrIs(sender());
    message->dstAddrIs(receiver());
    message->priorityIs(byte());
    message->holdtimeIs(word());
    message->rpAddressIs(routerAddress());
    message->groupDataIs(Zet::make<CrpGroupData>());
    for (U32 n = below(12); n > 0; --n) message->groupData()->groupInfoIs(range())->groupFlagsIs(flags());
    message->prefixCountIs(static_cast<U8>(message->groupData()->groupInfoCount()));
    return message;
  }

  HelloMessage hello() {
    HelloMessage message{.srcAddr = sender(), .dstAddr = receiver(), .holdtime = word()};
    if (below(2) == 0) message.drPriority = any();
    if (below(2) == 0) message.generationId = any();
    for (U32 n = below(4); n > 0; --n) message.addressList.push_back(routerAddress());
    return message;
  }

 private:
  Zet::Ptr<BootstrapGroupData> group() {
    auto made = Zet::make<BootstrapGroupData>(range());
    made->groupFlagsIs(flags());
    for (U32 n = below(10); n > 0; --n) {
      auto rp = made->rpListIs(routerAddress());
      rp->rpHoldtimeIs(word());
      rp->rpPriorityIs(byte());
    }
    made->fragRpCountIs(static_cast<U8>(made->rpListCount()));
    made->rpCountIs(static_cast<U8>(made->rpListCount() + (below(2) == 0 ? below(200) : 0)));
    return made;
  }

  std::mt19937 random_;
};

// The message as another router might send it: RPs in any order, noise in the bits without a meaning, bytes
// after.
Buffer noisy(BootstrapMessage const& message, Generator& random) {
  Buffer out;
  Writer writer(out);
  auto unicast = [&](Lanet::IpGenAddr const& address) {
    writer.u16(0x0100);
    writer.u32(address.v4Addr().hostWord());
  };
  writer.u8(0x24);
  writer.u8(static_cast<U8>((message.forward() ? 0 : 0x80) | random.below(0x80)));
  writer.u16(0);
  writer.u16(message.fragmentTag());
  writer.u8(message.hashMaskLen());
  writer.u8(message.bsrPriority());
  unicast(message.bsrAddress());
  for (auto group = message.groupRpData()->groupDataIterator(); group; ++group) {
    writer.u16(0x0100);
    writer.u8(static_cast<U8>(group->groupFlags().value | (random.byte() & 0x7e)));
    writer.u8(static_cast<U8>(group->prefix().length()));
    U32 hostBits = group->prefix().length() == 32 ? 0 : random.any() >> group->prefix().length();
    writer.u32(group->prefix().address().v4Addr().hostWord() | hostBits);
    writer.u8(group->rpCount());
    writer.u8(group->fragRpCount());
    writer.u16(random.word());
    std::vector<Lanet::IpGenAddr> rps;
    for (auto rp = group->rpListIterator(); rp; ++rp) rps.push_back(rp->rpAddress());
    for (std::size_t i = rps.size(); i > 1; --i)
      std::swap(rps[i - 1], rps[random.below(static_cast<U32>(i))]);
    for (auto const& address : rps) {
      unicast(address);
      writer.u16(group->rpList(address)->rpHoldtime());
      writer.u8(group->rpList(address)->rpPriority());
      writer.u8(random.byte());
    }
  }
  for (U32 n = random.below(12); n > 0; --n) writer.u8(random.byte());
  return checksummed(out);
}

TEST(RoundTrip, BootstrapMessagesComeBackAsTheyWere) {
  Generator random(1);
  for (int i = 0; i < rounds; ++i) {
    auto message = random.bootstrap();
    Buffer const bytes = written(*message);
    auto again = readBootstrap(bytes);
    ASSERT_TRUE(again) << i << ": " << nameOf(dropReason(again));
    ASSERT_TRUE(equal(**again, *message)) << i;
    ASSERT_EQ(written(**again), bytes) << i;
  }
}

TEST(RoundTrip, ForeignBootstrapMessagesAreUnderstoodAndWrittenInOurWay) {
  Generator random(2);
  for (int i = 0; i < rounds; ++i) {
    auto message = random.bootstrap();
    auto read = readBootstrap(noisy(*message, random));
    ASSERT_TRUE(read) << i << ": " << nameOf(dropReason(read));
    ASSERT_TRUE(equal(**read, *message)) << i;
    ASSERT_EQ(written(**read), written(*message)) << i;
  }
}

TEST(RoundTrip, AdvertisementsComeBackAsTheyWere) {
  Generator random(3);
  for (int i = 0; i < rounds; ++i) {
    auto message = random.crpAdv();
    Buffer const bytes = written(*message);
    auto again = readCrpAdv(bytes);
    ASSERT_TRUE(again) << i << ": " << nameOf(dropReason(again));
    ASSERT_TRUE(equal(**again, *message)) << i;
    ASSERT_EQ(written(**again), bytes) << i;
  }
}

TEST(RoundTrip, HellosComeBackAsTheyWere) {
  Generator random(4);
  for (int i = 0; i < rounds; ++i) {
    auto message = random.hello();
    Buffer const bytes = written(message);
    auto again = readHello(bytes);
    ASSERT_TRUE(again) << i << ": " << nameOf(dropReason(again));
    ASSERT_EQ(*again, message) << i;
    ASSERT_EQ(written(*again), bytes) << i;
  }
}

// One to four bytes changed and the checksum corrected: whatever is still accepted must come back as it was
// read.
template <class Read, class Record>
int acceptedAfterDamage(Generator& random, Buffer bytes, Read read, Record record) {
  for (U32 n = 1 + random.below(4); n > 0; --n)
    bytes[random.below(static_cast<U32>(bytes.size()))] = random.byte();
  auto first = read(checksummed(bytes));
  if (!first) return 0;
  auto second = read(written(record(first)));
  EXPECT_TRUE(second && equal(record(first), record(second))) << nameOf(dropReason(second));
  return 1;
}

TEST(RoundTrip, EveryAcceptedPacketIsWrittenAsItWasRead) {
  Generator random(5);
  auto record = [](auto const& outcome) -> auto const& { return **outcome; };
  int accepted = 0;
  for (int i = 0; i < rounds; ++i) {
    accepted += acceptedAfterDamage(random, written(*random.bootstrap()), readBootstrap, record);
    accepted += acceptedAfterDamage(random, written(*random.crpAdv()), readCrpAdv, record);
  }
  EXPECT_GT(accepted, rounds / 4) << "too few to say anything";
  EXPECT_LT(accepted, rounds * 2) << "too many to have been damaged";
}

}  // namespace
}  // namespace pimbsr::wire::test

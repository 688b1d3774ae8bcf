#include "agent/queues/PacketFilter.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "agent/control/ControlSocket.h"
#include "wire/Wire.h"

namespace test {
namespace {

namespace agent = pimbsr::agent;
using agent::FilterProgram;
using Lanet::IpAddr;
using Lanet::Prefix;
using Zet::U32;
using Zet::U8;

/// A pair of local sockets: the kernel runs a filter over each datagram that goes from one to the other.
class FilterRun {
 public:
  explicit FilterRun(FilterProgram program) {
    std::array<int, 2> ends{};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, ends.data()), 0);
    in_ = agent::FileDescriptor(ends[0]);
    out_ = agent::FileDescriptor(ends[1]);
    sock_fprog filter{.len = static_cast<unsigned short>(program.size()), .filter = program.data()};
    EXPECT_EQ(setsockopt(out_.get(), SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter), 0);
  }

  /// Whether a packet passes, and whole.
  bool passes(std::vector<U8> const& packet) {
    EXPECT_EQ(write(in_.get(), packet.data(), packet.size()), static_cast<ssize_t>(packet.size()));
    std::vector<U8> read(packet.size() + 1);
    ssize_t size = recv(out_.get(), read.data(), read.size(), 0);
    EXPECT_TRUE(size < 0 || static_cast<std::size_t>(size) == packet.size()) << "it was cut";
    return size >= 0;
  }

 private:
  agent::FileDescriptor in_;
  agent::FileDescriptor out_;
};

IpAddr address(std::string const& text) { return IpAddr::parse(text.c_str()); }

std::vector<IpAddr> addresses(std::vector<std::string> const& texts) {
  std::vector<IpAddr> all;
  for (std::string const& text : texts) all.push_back(address(text));
  std::sort(all.begin(), all.end());
  return all;
}

std::vector<Prefix> subnets(std::vector<char const*> const& texts) {
  std::vector<Prefix> all;
  for (char const* text : texts) all.push_back(Prefix::parse(text));
  return all;
}

std::vector<U8> packet(IpAddr source, U8 type, std::string const& destination = "224.0.0.13") {
  std::vector<U8> bytes;
  std::vector<U8> payload = {type, 0, 0, 0, 1, 2, 3};
  EXPECT_TRUE(pimbsr::wire::encodeIpv4({.source = source, .destination = address(destination), .ttl = 1},
                                       payload, bytes));
  return bytes;
}

constexpr U8 hello = 0x20;
constexpr U8 bootstrap = 0x24;
constexpr U8 crpAdv = 0x28;

TEST(PacketFilterTest, TypesOfABootstrapRouterPassAndWhatIsNoPimOfVersion2) {
  IpAddr sender = address("10.0.0.1");
  FilterRun pim(agent::passPim());
  FilterRun senders(agent::passSenders({sender}));
  FilterRun others(agent::passOthers({}, {}));
  FilterRun nothing(agent::passNothing());
  for (unsigned type = 0; type < 256; ++type) {
    auto bytes = packet(sender, static_cast<U8>(type));
    bool wanted = type == hello || type == bootstrap || type == crpAdv || type >> 4 != 2;
    EXPECT_EQ(pim.passes(bytes), wanted) << type;
    EXPECT_EQ(senders.passes(bytes), wanted) << type;
    EXPECT_EQ(others.passes(bytes), wanted) << type;
    EXPECT_FALSE(nothing.passes(bytes)) << type;
  }
}

TEST(PacketFilterTest, TypeIsFoundAfterIpOptions) {
  std::vector<U8> bytes = packet(address("10.0.0.1"), hello);
  bytes[0] = 0x46;
  bytes.insert(bytes.begin() + 20, {0x94, 4, 0, 0});
  FilterRun hellos(agent::passHellos(subnets({"10.0.0.0/24"}), {}));
  EXPECT_TRUE(hellos.passes(bytes));
  bytes[24] = bootstrap;
  EXPECT_FALSE(hellos.passes(bytes));
}

TEST(PacketFilterTest, PacketWithoutPayloadIsDropped) {
  std::vector<U8> bytes = packet(address("10.0.0.1"), hello);
  bytes.resize(20);
  EXPECT_FALSE(FilterRun(agent::passPim()).passes(bytes));
  EXPECT_FALSE(FilterRun(agent::passOthers({}, {})).passes(bytes));
}

TEST(PacketFilterTest, UnicastProgramLeavesGroupsOut) {
  FilterRun unicast(agent::passUnicast());
  IpAddr sender = address("10.0.0.1");
  for (char const* to : {"224.0.0.0", "224.0.0.13", "239.255.255.255"})
    EXPECT_FALSE(unicast.passes(packet(sender, crpAdv, to))) << to;
  for (char const* to : {"10.0.0.2", "223.255.255.255", "240.0.0.0", "255.255.255.255"})
    EXPECT_TRUE(unicast.passes(packet(sender, crpAdv, to))) << to;
  EXPECT_FALSE(unicast.passes(packet(sender, 0x23, "10.0.0.2")));
}

TEST(PacketFilterTest, EachUnicastPacketPassesEitherTheProgramOfSomeSendersOrThatOfAllOthers) {
  std::vector<IpAddr> const known = addresses({"10.0.0.1", "10.0.0.3", "200.0.0.1"});
  FilterRun senders(agent::passUnicastFrom(known));
  FilterRun others(agent::passUnicast(known));
  for (char const* from : {"10.0.0.0", "10.0.0.1", "10.0.0.2", "10.0.0.3", "200.0.0.1", "200.0.0.2"}) {
    bool isKnown = std::binary_search(known.begin(), known.end(), address(from));
    EXPECT_EQ(senders.passes(packet(address(from), crpAdv, "10.0.0.9")), isKnown) << from;
    EXPECT_EQ(others.passes(packet(address(from), crpAdv, "10.0.0.9")), !isKnown) << from;
    for (FilterRun* run : {&senders, &others}) {
      EXPECT_FALSE(run->passes(packet(address(from), crpAdv))) << from;
      EXPECT_FALSE(run->passes(packet(address(from), 0x23, "10.0.0.9"))) << from;
    }
  }
}

struct SubnetCase {
  char const* sender;
  U8 type;
  bool asHello;
  bool asOther;
};

TEST(PacketFilterTest, EachPacketOfStrangersPassesEitherTheHelloProgramOrTheOther) {
  auto links = subnets({"10.0.0.0/24", "192.168.4.4/31", "200.0.0.0/8", "203.0.113.7/32"});
  FilterRun hellos(agent::passHellos(links, addresses({"10.0.0.7"})));
  FilterRun others(agent::passOthers(links, addresses({"10.0.0.7"})));
  SubnetCase const cases[] = {
      {"10.0.0.0", hello, true, false},      {"10.0.0.255", hello, true, false},
      {"10.0.1.0", hello, false, true},      {"9.255.255.255", hello, false, true},
      {"192.168.4.5", hello, true, false},   {"192.168.4.6", hello, false, true},
      {"200.255.0.1", hello, true, false},   {"201.0.0.0", hello, false, true},
      {"203.0.113.7", hello, true, false},   {"203.0.113.6", hello, false, true},
      {"10.0.0.1", bootstrap, false, true},  {"8.8.8.8", bootstrap, false, true},
      {"10.0.0.7", bootstrap, false, false}, {"10.0.0.7", hello, false, false},
      {"10.0.0.1", 0x11, false, true},       {"10.0.0.1", 0x23, false, false},
  };
  for (SubnetCase const& one : cases) {
    auto bytes = packet(address(one.sender), one.type);
    EXPECT_EQ(hellos.passes(bytes), one.asHello) << one.sender << ' ' << int{one.type};
    EXPECT_EQ(others.passes(bytes), one.asOther) << one.sender << ' ' << int{one.type};
  }
}

TEST(PacketFilterTest, WithoutSubnetsAllHellosAreOthers) {
  auto bytes = packet(address("10.0.0.1"), hello);
  EXPECT_FALSE(FilterRun(agent::passHellos({}, {})).passes(bytes));
  EXPECT_TRUE(FilterRun(agent::passOthers({}, {})).passes(bytes));
}

TEST(PacketFilterTest, SubnetsBeyondTheBoundAreLeftToTheOthers) {
  std::vector<Prefix> links;
  for (U32 i = 0; i <= agent::maxFilterSubnets; ++i) links.emplace_back(IpAddr::fromHost(i << 24), 8);
  FilterRun hellos(agent::passHellos(links, {}));
  FilterRun others(agent::passOthers(links, {}));
  for (U32 i = 0; i <= agent::maxFilterSubnets; ++i) {
    auto bytes = packet(IpAddr::fromHost(i << 24 | 1), hello);
    EXPECT_EQ(hellos.passes(bytes), i < agent::maxFilterSubnets) << i;
    EXPECT_EQ(others.passes(bytes), i == agent::maxFilterSubnets) << i;
  }
}

/// Every third address, around the middle of the address range, where the sign of a word changes.
std::vector<IpAddr> spread(std::size_t count) {
  std::vector<IpAddr> all;
  for (std::size_t i = 0; i < count; ++i)
    all.push_back(IpAddr::fromHost(0x80000000u - 3 * static_cast<U32>(count) / 2 + 3 * static_cast<U32>(i)));
  return all;
}

TEST(PacketFilterTest, SendersAreFoundAtAnyNumberOfThem) {
  for (std::size_t count : {0, 1, 2, 7, 8, 9, 16, 17, 33, 100, 255, 256}) {
    std::vector<IpAddr> known = spread(count);
    FilterRun senders(agent::passSenders(known));
    FilterRun others(agent::passOthers({}, known));
    FilterRun hellos(agent::passHellos(subnets({"0.0.0.0/0"}), known));
    U32 first = 0x80000000u - 3 * static_cast<U32>(count) / 2 - 3;
    for (U32 at = first; at < first + 3 * count + 6; ++at) {
      IpAddr sender = IpAddr::fromHost(at);
      bool isKnown = std::binary_search(known.begin(), known.end(), sender);
      auto bytes = packet(sender, hello);
      ASSERT_EQ(senders.passes(bytes), isKnown) << count << ' ' << at;
      ASSERT_EQ(others.passes(bytes), !isKnown) << count << ' ' << at;
      ASSERT_EQ(hellos.passes(bytes), !isKnown) << count << ' ' << at;
    }
  }
}

/// Two programs of the greatest size must fit in 20,480 bytes, at two eBPF instructions of 8 bytes for
/// each step that compares with an address from 128.0.0.0 on.
TEST(PacketFilterTest, GreatestProgramFitsTwiceIntoTheSmallestDefaultOfTheKernel) {
  std::vector<Prefix> links(agent::maxFilterSubnets, Prefix::parse("200.0.0.0/8"));
  FilterProgram greatest = agent::passOthers(links, spread(agent::maxFilterAddresses));
  std::size_t bytes = 0;
  for (sock_filter const& one : greatest) bytes += BPF_CLASS(one.code) == BPF_JMP ? 16 : 8;
  EXPECT_LT(2 * bytes, 20480u - 1024u);
}

}  // namespace
}  // namespace test

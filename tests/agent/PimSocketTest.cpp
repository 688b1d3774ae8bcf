#include "agent/queues/PimSocket.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <optional>
#include <system_error>
#include <vector>

#include "model/Lanet.h"
#include "tests/agent/InChild.h"
#include "tests/agent/NetworkLab.h"
#include "wire/Wire.h"

namespace test {
namespace {

using pimbsr::agent::ListenSocket;
using pimbsr::agent::PimSocket;
using pimbsr::agent::PimSocketBase;
using pimbsr::agent::Received;
using pimbsr::agent::UnicastSocket;
using Zet::U8;

constexpr char const* allPimRouters = "224.0.0.13";

struct Sent {
  std::string source;
  std::string destination = allPimRouters;
  std::vector<U8> payload = {0x24, 0, 0, 0};
  U8 ttl = 1;
};

std::vector<U8> packet(Sent const& sent) {
  std::vector<U8> bytes;
  EXPECT_TRUE(pimbsr::wire::encodeIpv4({.source = Lanet::IpAddr::parse(sent.source.c_str()),
                                        .destination = Lanet::IpAddr::parse(sent.destination.c_str()),
                                        .ttl = sent.ttl},
                                       sent.payload, bytes));
  return bytes;
}

bool send(PimSocketBase& socket, Sent const& sent) { return socket.send(packet(sent)); }

/// A packet as it came in.
struct Arrived {
  int interfaceIndex = 0;
  std::string source;
  std::string destination;
  int ttl = 0;
  int tos = 0;
  std::vector<U8> payload;
};

/// The next packet, for which it waits a while.
std::optional<Arrived> arrival(PimSocketBase& socket) {
  static Received received;
  if (!becomesReadable(socket.fd(), 5) || !socket.receive(received)) return {};
  auto parsed = pimbsr::wire::parseIpv4(received.packet);
  if (!parsed) return {};
  return Arrived{.interfaceIndex = received.interfaceIndex,
                 .source = std::string(parsed->source.stringValue().view()),
                 .destination = std::string(parsed->destination.stringValue().view()),
                 .ttl = parsed->ttl,
                 .tos = parsed->tos,
                 .payload = {parsed->payload.begin(), parsed->payload.end()}};
}

/// The first byte of the payload of each packet until one with `last` came.
std::vector<int> arrivalsUntil(PimSocketBase& socket, U8 last) {
  std::vector<int> numbers;
  while (numbers.empty() || numbers.back() != last) {
    auto one = arrival(socket);
    if (!one) break;
    numbers.push_back(one->payload.at(0));
  }
  return numbers;
}

std::vector<U8> longPayload(std::size_t size) {
  std::vector<U8> bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<U8>(i * 7 + i / 256);
  return bytes;
}

/// Three systems in a row: left is 10.0.1.1, middle 10.0.1.2 and 10.0.2.2 and forwards, right 10.0.2.3. The
/// indexes are 8 for "left", 7 and 9 for "m1" and "m2" of the middle, and 10 for "right".
class PimSocketTest : public NetworkTest {
 protected:
  void SetUp() override {
    NetworkTest::SetUp();
    if (HasFatalFailure() || IsSkipped()) return;
    left = std::make_unique<NetworkNamespace>();
    middle = std::make_unique<NetworkNamespace>();
    right = std::make_unique<NetworkNamespace>();
    Inside inside(*middle);
    ipAll({"link add name m1 index 7 type veth peer name left index 8 netns " + left->path(),
           "link add name m2 index 9 type veth peer name right index 10 netns " + right->path(),
           "address add 10.0.1.2/24 dev m1", "address add 10.0.2.2/24 dev m2", "link set m1 up",
           "link set m2 up"});
    setting("ipv4/ip_forward", "1");
    end(*left, "left", "10.0.1.1", "10.0.1.2");
    end(*right, "right", "10.0.2.3", "10.0.2.2");
    awaitRunning("m1");
    awaitRunning("m2");
  }

  static void end(NetworkNamespace const& network, std::string const& link, std::string const& address,
                  std::string const& gateway) {
    Inside inside(network);
    ipAll({"link set lo up", "address add " + address + "/24 dev " + link, "link set " + link + " up",
           "route add default via " + gateway});
    awaitRunning(link);
  }

  /// Makes a socket in a namespace.
  template <class Socket, class... Args>
  static std::unique_ptr<Socket> in(NetworkNamespace const& network, Args... args) {
    Inside inside(network);
    return std::make_unique<Socket>(args...);
  }

  static void mtu(NetworkNamespace const& network, std::string const& link, int bytes) {
    Inside inside(network);
    ip("link set " + link + " mtu " + std::to_string(bytes));
  }

  std::unique_ptr<NetworkNamespace> left;
  std::unique_ptr<NetworkNamespace> middle;
  std::unique_ptr<NetworkNamespace> right;
};

TEST_F(PimSocketTest, PacketsToAllPimRoutersGoAlongTheLinkAsRoutingTraffic) {
  auto a = in<PimSocket>(*left, "left", 8);
  auto b = in<PimSocket>(*middle, "m1", 7);
  ASSERT_TRUE(send(*a, {.source = "10.0.1.1"}));
  auto got = arrival(*b);
  ASSERT_TRUE(got);
  EXPECT_EQ(got->source, "10.0.1.1");
  EXPECT_EQ(got->destination, "224.0.0.13");
  EXPECT_EQ(got->ttl, 1);
  EXPECT_EQ(got->tos, 0xc0);
  EXPECT_EQ(got->interfaceIndex, 7);
  EXPECT_EQ(got->payload, (std::vector<U8>{0x24, 0, 0, 0}));
  ASSERT_TRUE(send(*b, {.source = "10.0.1.2"}));
  ASSERT_TRUE(got = arrival(*a));
  EXPECT_EQ(got->source, "10.0.1.2");
  EXPECT_EQ(got->interfaceIndex, 8);
}

TEST_F(PimSocketTest, EachKindOfSocketTakesItsOwnPacketsOnce) {
  auto a = in<PimSocket>(*left, "left", 8);
  auto groups = in<PimSocket>(*middle, "m1", 7);
  auto elsewhere = in<PimSocket>(*middle, "m2", 9);
  auto addresses = in<UnicastSocket>(*middle);
  for (U8 i = 0; i < 6; ++i) {
    ASSERT_TRUE(send(*a, {"10.0.1.1", i % 2 == 0 ? allPimRouters : "10.0.1.2", {i}}));
  }
  EXPECT_EQ(arrivalsUntil(*groups, 4), (std::vector{0, 2, 4}));
  EXPECT_EQ(arrivalsUntil(*addresses, 5), (std::vector{1, 3, 5}));
  EXPECT_FALSE(becomesReadable(groups->fd(), 0));
  EXPECT_FALSE(becomesReadable(addresses->fd(), 0));
  EXPECT_FALSE(becomesReadable(elsewhere->fd(), 0));
}

TEST_F(PimSocketTest, OtherGroupsAreNotTaken) {
  auto a = in<PimSocket>(*left, "left", 8);
  auto groups = in<PimSocket>(*middle, "m1", 7);
  auto addresses = in<UnicastSocket>(*middle);
  for (char const* group : {"224.0.0.1", "255.255.255.255"}) send(*a, {"10.0.1.1", group, {1}});
  ASSERT_TRUE(send(*a, {"10.0.1.1", allPimRouters, {2}}));
  ASSERT_TRUE(send(*a, {"10.0.1.1", "10.0.1.2", {3}}));
  EXPECT_EQ(arrivalsUntil(*groups, 2), (std::vector{2}));
  EXPECT_EQ(arrivalsUntil(*addresses, 3), (std::vector{3}));
}

TEST_F(PimSocketTest, MessagesOfOtherTypesDoNotWakeTheReceiver) {
  auto a = in<PimSocket>(*left, "left", 8);
  auto groups = in<PimSocket>(*middle, "m1", 7);
  auto addresses = in<UnicastSocket>(*middle);
  for (char const* to : {allPimRouters, "10.0.1.2"}) {
    for (int type = 0; type < 16; ++type) {
      ASSERT_TRUE(send(*a, {"10.0.1.1", to, {static_cast<U8>(0x20 | type), 0, 0, 0}}));
    }
    ASSERT_TRUE(send(*a, {"10.0.1.1", to, {0x13, 0, 0, 0}})) << "version 1 is to be counted";
  }
  EXPECT_EQ(arrivalsUntil(*groups, 0x13), (std::vector{0x20, 0x24, 0x28, 0x13}));
  EXPECT_EQ(arrivalsUntil(*addresses, 0x13), (std::vector{0x20, 0x24, 0x28, 0x13}));
}

TEST_F(PimSocketTest, PacketToAllPimRoutersIsNotReceivedByItsSender) {
  auto a = in<PimSocket>(*left, "left", 8);
  auto sibling = in<PimSocket>(*left, "left", 8);
  auto b = in<PimSocket>(*middle, "m1", 7);
  ASSERT_TRUE(send(*a, {"10.0.1.1", allPimRouters, {1}}));
  EXPECT_EQ(arrivalsUntil(*b, 1), (std::vector{1}));
  ASSERT_TRUE(send(*b, {"10.0.1.2", allPimRouters, {2}}));
  EXPECT_EQ(arrivalsUntil(*a, 2), (std::vector{2}));
  EXPECT_EQ(arrivalsUntil(*sibling, 2), (std::vector{2}));
}

TEST_F(PimSocketTest, AdvertisementGoesByTheRoutesOverAHop) {
  auto a = in<UnicastSocket>(*left);
  auto b = in<UnicastSocket>(*right);
  ASSERT_TRUE(send(*a, {.source = "10.0.1.1", .destination = "10.0.2.3", .ttl = 64}));
  auto got = arrival(*b);
  ASSERT_TRUE(got);
  EXPECT_EQ(got->source, "10.0.1.1");
  EXPECT_EQ(got->destination, "10.0.2.3");
  EXPECT_EQ(got->ttl, 63);
  EXPECT_EQ(got->tos, 0xc0);
  EXPECT_EQ(got->interfaceIndex, 10);
}

TEST_F(PimSocketTest, MessageLongerThanTheMtuArrivesWhole) {
  auto a = in<PimSocket>(*left, "left", 8);
  auto b = in<PimSocket>(*middle, "m1", 7);
  auto near = in<UnicastSocket>(*left);
  auto far = in<UnicastSocket>(*right);
  for (int bytes : {1500, 576}) {
    mtu(*left, "left", bytes);
    mtu(*middle, "m1", bytes);
    for (std::size_t size : {std::size_t{5038}, std::size_t{65515}}) {
      std::vector<U8> payload = longPayload(size);
      ASSERT_TRUE(send(*a, {"10.0.1.1", allPimRouters, payload}));
      auto got = arrival(*b);
      ASSERT_TRUE(got);
      EXPECT_EQ(got->payload, payload);
      ASSERT_TRUE(send(*near, {"10.0.1.1", "10.0.2.3", payload, 64}));
      ASSERT_TRUE(got = arrival(*far));
      EXPECT_EQ(got->payload, payload);
    }
  }
}

TEST_F(PimSocketTest, SourceIsWhatTheHeaderSays) {
  {
    Inside inside(*left);
    ip("address add 10.9.9.9/32 dev lo");
  }
  auto a = in<PimSocket>(*left, "left", 8);
  auto b = in<PimSocket>(*middle, "m1", 7);
  ASSERT_TRUE(send(*a, {.source = "10.9.9.9"}));
  auto got = arrival(*b);
  ASSERT_TRUE(got);
  EXPECT_EQ(got->source, "10.9.9.9");
}

TEST_F(PimSocketTest, GoodbyeStillLeavesFromAnAddressThatIsGone) {
  auto a = in<PimSocket>(*left, "left", 8);
  auto b = in<PimSocket>(*middle, "m1", 7);
  {
    Inside inside(*left);
    ip("address change 10.0.1.77/24 dev left");
    ip("address del 10.0.1.1/24 dev left");
  }
  ASSERT_TRUE(send(*a, {.source = "10.0.1.1"})) << a->lastError();
  auto got = arrival(*b);
  ASSERT_TRUE(got);
  EXPECT_EQ(got->source, "10.0.1.1");
}

TEST_F(PimSocketTest, SocketStaysWithItsLinkWhenThatIsRenamedOrGoesDownAndUp) {
  auto a = in<PimSocket>(*left, "left", 8);
  auto b = in<PimSocket>(*middle, "m1", 7);
  {
    Inside inside(*middle);
    ipAll({"link set m1 down", "link set m1 name uplink", "link set uplink up"});
    awaitRunning("uplink");
  }
  {
    Inside inside(*left);
    awaitRunning("left");
  }
  ASSERT_TRUE(send(*b, {"10.0.1.2", allPimRouters, {1}}));
  EXPECT_EQ(arrivalsUntil(*a, 1), (std::vector{1}));
  ASSERT_TRUE(send(*a, {"10.0.1.1", allPimRouters, {2}}));
  EXPECT_EQ(arrivalsUntil(*b, 2), (std::vector{2}));
}

TEST_F(PimSocketTest, FailedSendIsReportedWithTheReason) {
  auto a = in<PimSocket>(*left, "left", 8);
  auto routed = in<UnicastSocket>(*left);
  EXPECT_EQ(a->lastError(), "");
  {
    Inside inside(*left);
    ip("link set left down");
  }
  EXPECT_FALSE(send(*a, {.source = "10.0.1.1"}));
  EXPECT_EQ(a->lastError(), "Network is unreachable");
  EXPECT_FALSE(send(*routed, {.source = "10.0.1.1", .destination = "10.0.2.3", .ttl = 64}));
  EXPECT_EQ(routed->lastError(), "Network is unreachable");
  {
    Inside inside(*left);
    ip("link set left up");
  }
  EXPECT_TRUE(send(*a, {.source = "10.0.1.1"}));
  EXPECT_EQ(a->lastError(), "Network is unreachable") << "it explains the count of failed packets";
}

TEST_F(PimSocketTest, SocketOfASenderReceivesFromThatSenderAlone) {
  auto a = in<PimSocket>(*left, "left", 8);
  auto all = in<PimSocket>(*middle, "m1", 7);
  auto one = in<ListenSocket>(*middle, "m1", 7, Lanet::IpAddr::parse("10.0.1.1"));
  auto other = in<ListenSocket>(*middle, "m1", 7, Lanet::IpAddr::parse("10.0.1.9"));
  auto foreign = in<ListenSocket>(*middle, "m1", 7, Lanet::IpAddr::parse("192.0.2.1"));
  ASSERT_TRUE(send(*a, {"10.0.1.9", allPimRouters, {1}}));
  ASSERT_TRUE(send(*a, {"10.0.1.1", allPimRouters, {2}}));
  ASSERT_TRUE(send(*a, {"192.0.2.1", allPimRouters, {3}}));
  ASSERT_TRUE(send(*a, {"10.0.1.1", allPimRouters, {4}}));
  EXPECT_EQ(arrivalsUntil(*all, 4), (std::vector{1, 2, 3, 4}));
  EXPECT_EQ(arrivalsUntil(*one, 4), (std::vector{2, 4}));
  EXPECT_EQ(arrivalsUntil(*other, 1), (std::vector{1}));
  EXPECT_EQ(arrivalsUntil(*foreign, 3), (std::vector{3})) << "no route leads back there by this link";
}

TEST_F(PimSocketTest, CopiesOfAPacketHaveOneTime) {
  auto a = in<PimSocket>(*left, "left", 8);
  auto all = in<PimSocket>(*middle, "m1", 7);
  auto one = in<ListenSocket>(*middle, "m1", 7, Lanet::IpAddr::parse("10.0.1.1"));
  Received first;
  Received second;
  Zet::U64 former = 0;
  usleep(100'000);  // the kernel begins to note times a moment after it is first asked for them
  for (U8 i = 0; i < 3; ++i) {
    ASSERT_TRUE(send(*a, {"10.0.1.1", allPimRouters, {i}}));
    ASSERT_TRUE(becomesReadable(one->fd(), 5));
    ASSERT_TRUE(becomesReadable(all->fd(), 5));
    std::optional<Zet::U64> next = one->nextTime();
    ASSERT_TRUE(one->receive(first));
    ASSERT_TRUE(all->receive(second));
    EXPECT_EQ(next, first.time);
    EXPECT_EQ(first.time, second.time);
    EXPECT_GT(first.time, former);
    former = first.time;
  }
  EXPECT_FALSE(one->nextTime());
}

TEST_F(PimSocketTest, LostPacketsAreCountedAndThoseThatDoNotPassAreNot) {
  auto a = in<PimSocket>(*left, "left", 8);
  auto all = in<PimSocket>(*middle, "m1", 7);
  auto other = in<ListenSocket>(*middle, "m1", 7, Lanet::IpAddr::parse("10.0.1.9"));
  auto hellos = in<ListenSocket>(*middle, "m1", 7,
                                 pimbsr::agent::passHellos({Lanet::Prefix::parse("10.0.1.0/24")}, {}));
  int small = 4096;
  ASSERT_EQ(setsockopt(all->fd(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small), 0);
  for (int i = 0; i < 10; ++i) ASSERT_TRUE(send(*a, {"10.0.1.1", allPimRouters, {0x23, 0, 0, 0}}));
  for (int i = 0; i < 200; ++i) ASSERT_TRUE(send(*a, {"10.0.1.1", allPimRouters, {0x24, 0, 0, 0}}));
  ASSERT_TRUE(send(*a, {"10.0.1.1", allPimRouters, {0x20, 0, 0, 0}}));
  ASSERT_TRUE(arrival(*hellos));
  Zet::U32 received = 0;
  Received buffer;
  while (all->receive(buffer)) ++received;
  EXPECT_GT(received, 0u);
  EXPECT_EQ(all->lost(), 201 - received);
  EXPECT_EQ(other->lost(), 0u);
  EXPECT_EQ(hellos->lost(), 0u);
}

TEST_F(PimSocketTest, CountOfLostPacketsStaysWhenTheKernelDoesNotAnswer) {
  auto a = in<PimSocket>(*left, "left", 8);
  auto all = in<PimSocket>(*middle, "m1", 7);
  EXPECT_EQ(all->lost(), 0u);
  int small = 4096;
  ASSERT_EQ(setsockopt(all->fd(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small), 0);
  for (int i = 0; i < 200; ++i) ASSERT_TRUE(send(*a, {"10.0.1.1", allPimRouters, {0x24, 0, 0, 0}}));
  Zet::U32 before = all->lost();
  EXPECT_GT(before, 0u);
  pimbsr::agent::FileDescriptor noSocket(open("/dev/null", O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(dup2(noSocket.get(), all->fd()), all->fd());
  EXPECT_EQ(all->lost(), before);
}

/// An ICMP message "port unreachable" about a PIM packet of 224.0.0.13 to 10.0.1.1, as a forger would send
/// it.
void forgeIcmpError() {
  std::vector<U8> inner;
  EXPECT_TRUE(pimbsr::wire::encodeIpv4({.source = Lanet::IpAddr::parse("224.0.0.13"),
                                        .destination = Lanet::IpAddr::parse("10.0.1.1"),
                                        .ttl = 1},
                                       std::vector<U8>(8), inner));
  std::vector<U8> icmp = {3, 2, 0, 0, 0, 0, 0, 0};
  icmp.insert(icmp.end(), inner.begin(), inner.end());
  unsigned sum = 0;
  for (std::size_t i = 0; i + 1 < icmp.size(); i += 2) sum += icmp[i] << 8 | icmp[i + 1];
  while (sum >> 16 != 0) sum = (sum & 0xffff) + (sum >> 16);
  icmp[2] = static_cast<U8>(~sum >> 8);
  icmp[3] = static_cast<U8>(~sum);
  pimbsr::agent::FileDescriptor raw(socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP));
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_addr.s_addr = Lanet::IpAddr::parse("10.0.1.2").netWord();
  EXPECT_EQ(sendto(raw.get(), icmp.data(), icmp.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to),
            static_cast<ssize_t>(icmp.size()));
}

TEST_F(PimSocketTest, IcmpErrorsStopNoSocket) {
  auto a = in<PimSocket>(*left, "left", 8);
  auto all = in<PimSocket>(*middle, "m1", 7);
  auto one = in<ListenSocket>(*middle, "m1", 7, Lanet::IpAddr::parse("10.0.1.1"));
  {
    Inside inside(*left);
    forgeIcmpError();
  }
  ASSERT_TRUE(becomesReadable(one->fd(), 5)) << "the error arrived";
  EXPECT_FALSE(one->nextTime());
  {
    Inside inside(*left);
    forgeIcmpError();
  }
  ASSERT_TRUE(send(*a, {"10.0.1.1", allPimRouters, {7}}));
  ASSERT_TRUE(arrival(*all));
  auto got = arrival(*one);
  ASSERT_TRUE(got);
  EXPECT_EQ(got->payload, std::vector<U8>{7});
}

TEST_F(PimSocketTest, FilterIsExchangedWhileASocketReceives) {
  auto a = in<PimSocket>(*left, "left", 8);
  auto all = in<PimSocket>(*middle, "m1", 7);
  ASSERT_TRUE(send(*a, {"10.0.1.1", allPimRouters, {1}}));
  ASSERT_TRUE(becomesReadable(all->fd(), 5));
  all->filterIs(pimbsr::agent::passOthers({}, {Lanet::IpAddr::parse("10.0.1.1")}));
  ASSERT_TRUE(send(*a, {"10.0.1.1", allPimRouters, {2}}));
  ASSERT_TRUE(send(*a, {"10.0.1.9", allPimRouters, {3}}));
  EXPECT_EQ(arrivalsUntil(*all, 3), (std::vector{1, 3}));
}

TEST_F(PimSocketTest, SenderThatCanBeNoneIsNamed) {
  try {
    in<ListenSocket>(*middle, "m1", 7, Lanet::IpAddr::parse("10.0.1.255"));
    FAIL() << "it opened";
  } catch (std::system_error const& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("receiving from 10.0.1.255 on m1"));
  }
}

TEST_F(PimSocketTest, NothingWaitsAtFirst) {
  auto a = in<PimSocket>(*left, "left", 8);
  Received received;
  EXPECT_FALSE(a->receive(received));
}

TEST_F(PimSocketTest, MoreLinksCanBeJoinedThanOneSocketCould) {
  NetworkNamespace network;
  Inside inside(network);
  std::vector<std::string> commands;
  for (int i = 0; i < 25; ++i) {
    std::string n = std::to_string(i);
    commands.push_back("link add name a" + n + " index " + std::to_string(100 + i) +
                       " up type veth peer name b" + n);
  }
  ipAll(commands);
  std::vector<std::unique_ptr<PimSocket>> sockets;
  for (int i = 0; i < 25; ++i) {
    sockets.push_back(std::make_unique<PimSocket>("a" + std::to_string(i), 100 + i));
  }
}

TEST_F(PimSocketTest, LinkThatIsNotThereIsNamed) {
  NetworkNamespace network;
  Inside inside(network);
  try {
    PimSocket socket("eth7", 77);
    FAIL() << "it opened";
  } catch (std::system_error const& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("eth7: No such device"));
  }
}

TEST_F(PimSocketTest, ErrorWithoutPrivilegesNamesTheNeededOnes) {
  std::string text = inChild([] {
    if (setuid(65534) != 0) return std::string("not another user");
    UnicastSocket socket;
    return std::string("opened");
  });
  EXPECT_EQ(text,
            "threw opening a raw socket for PIM, which needs root or CAP_NET_RAW: Operation not permitted");
}

}  // namespace
}  // namespace test

// The correction quick-relearn answers a neighbor that has restarted with the RP set, in No-Forward messages
// (RFC 5059 section 3.5).

#include <map>
#include <string>
#include <vector>

#include "host/Corrections.h"
#include "tests/host/IngressSupport.h"

namespace test {
namespace {

using pimbsr::host::CorrectionSettings;

/// Notes when No-Forward Bootstrap Messages leave, by interface.
class NoForwardPort : public RecordingPort {
 public:
  bool send(Lanet::IntfId const& intfId, std::span<U8 const> packet) override {
    auto ip = pimbsr::wire::parseIpv4(packet);
    auto decoded = pimbsr::wire::decodeMessage(ip->payload, ip->source, ip->destination);
    auto const* bsm = std::get_if<Zet::Ptr<Routing::Pim::Packet::BootstrapMessage>>(&*decoded);
    bool isNoForward = bsm != nullptr && !(*bsm)->forward();
    if (isNoForward) times[std::string(intfId.stringValue().view())].push_back(Zet::now());
    return true;
  }
  std::map<std::string, std::vector<double>> times;
};

/// A router that follows the BSR 10.0.0.1 in one zone, so that a set is one message. It is the DR on eth0; on
/// eth1 its neighbor is, whenever it is known.
class QuickRelearnTest : public testing::Test {
 protected:
  QuickRelearnTest() {
    rpf->neighbors[addr("10.0.0.1")] = addr("192.0.2.1");
    for (auto const& [name, neighbor] : neighbors) router.interfaceIs(intf(name), 1500, {});
    restartNeighbors();
    run(10);
    Bsm const bsm{.groups = {{"239.1.0.0/16", {{"203.0.113.1"}}}}};
    EXPECT_EQ(router.receive(intf("eth0"), packetOf(bytesOf(bsm), {})).reason, "");
    run(10);
    port.times.clear();
  }

  /// Each neighbor sends a Hello with a Generation ID that is new.
  void restartNeighbors() {
    HelloMessage const hello{.holdtime = 65535, .generationId = ++generation};
    for (auto const& [name, neighbor] : neighbors)
      ASSERT_EQ(router.receive(intf(name), packetOf(bytesOf(hello), {neighbor})).reason, "");
  }
  void run(double seconds) {
    double const end = context.now() + seconds;
    for (double next = router.nextExpiry(); next <= end; next = router.nextExpiry()) {
      context.nowIs(next);
      router.advance();
    }
    context.nowIs(end);
  }
  Zet::U64 acts() const { return router.corrections().of(&CorrectionSettings::quickRelearn).acts(); }

  std::map<std::string, std::string> const neighbors = {{"eth0", "192.0.2.1"}, {"eth1", "198.51.100.200"}};
  double const triggeredDelay = pimbsr::pim::HelloOptions().triggeredDelay;
  U32 generation = 0;
  Zet::Context context;
  NoForwardPort port;
  Zet::Ptr<RpfTable> rpf = Zet::make<RpfTable>();
  Router router{context, port, {.rpf = rpf, .corrections = {.quickRelearn = true}}};
};

TEST_F(QuickRelearnTest, AThousandRestartsASecondCostOneSetPerInterfaceInTheTriggeredDelay) {
  constexpr int restarts = 15000;
  for (int i = 0; i < restarts; ++i) {
    restartNeighbors();
    run(0.001);
  }
  EXPECT_EQ(acts(), restarts * neighbors.size());
  for (auto const& [name, neighbor] : neighbors) {
    std::vector<double> const& times = port.times[name];
    EXPECT_GE(times.size(), 3u) << name;
    EXPECT_LE(times.size(), 1 + restarts / 1000 / triggeredDelay) << name;
    for (std::size_t i = 1; i < times.size(); ++i)
      EXPECT_GE(times[i] - times[i - 1], triggeredDelay) << name << ", set " << i;
  }
}

}  // namespace
}  // namespace test

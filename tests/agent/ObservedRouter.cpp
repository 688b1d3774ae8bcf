#include "tests/agent/ObservedRouter.h"

#include "host/HoldOver.h"
#include "wire/Wire.h"

namespace test {

using pimbsr::agent::Cause;
using pimbsr::agent::CauseKind;
using pimbsr::host::Reception;
using pimbsr::host::Router;
using Slosh::Fib::RouteType;
using Zet::U8;

ObservedRouter::ObservedRouter()
    : router(std::make_unique<Router>(context, port,
                                      pimbsr::host::RouterOptions{.config = tree.config(),
                                                                  .clearConfig = tree.clearConfig(),
                                                                  .accessLists = tree.accessLists()})),
      observer(std::make_unique<pimbsr::host::Observer>(*router, history)),
      startTime(context.now()) {
  kernel.links["eth0"] = {.index = 2, .name = "eth0", .up = true};
  kernel.links["eth0"].addresses = {{addr("192.0.2.9").v4Addr(), 24}};
  kernel.links["eth1"] = {.index = 3, .name = "eth1", .up = true, .mtu = 9000};
  kernel.links["eth1"].addresses = {{addr("198.51.100.9").v4Addr(), 24},
                                    {addr("198.51.100.10").v4Addr(), 24, true}};
  settings.interfaces = {{"eth0", {}}, {"eth1", {.drPriority = 7}}};
  call({.kind = CauseKind::start}, [&] {
    router->interfaceIs(intf("eth0"), 1500, {});
    router->interfaceIs(intf("eth1"), 9000, {.drPriority = 7});
    router->routeIs(prefix("192.0.2.9/32").v4Prefix(), {.type = RouteType::local});
    router->routeIs(prefix("192.0.2.0/24").v4Prefix(), {RouteType::connected, intf("eth0"), {}, 0});
    router->routeIs(prefix("10.0.0.0/8").v4Prefix(), {RouteType::remote, intf("eth0"), addr("192.0.2.1"), 1});
  });
}

template <class Act>
void ObservedRouter::call(Cause const& cause, Act const& act) {
  history.causeIs(cause, context.now());
  act();
  observer->flush();
  history.noteStates(*router);
}

void ObservedRouter::run(double seconds) {
  double end = context.now() + seconds;
  for (double next = router->nextExpiry(); next <= end; next = router->nextExpiry()) {
    context.nowIs(next);
    call({.kind = CauseKind::timer}, [&] { router->advance(); });
  }
  context.nowIs(end);
}

void ObservedRouter::configure() {
  call({.kind = CauseKind::configuration},
       [&] { EXPECT_TRUE(tree.apply(context, settings.router).empty()); });
}

Reception ObservedRouter::receive(std::string const& intfName, std::vector<U8> const& packet) {
  Reception reception;
  call({.kind = CauseKind::message, .intf = intfName}, [&] {
    observer->messageInHand();
    reception = router->receive(intf(intfName), packet);
    history.senderIs(reception);
    traffic.noteReceived(intfName, reception);
    drops.note(intfName, reception, context.now());
  });
  return reception;
}

void ObservedRouter::lead(std::string const& zone) {
  settings.router.candidateBsrs["eth0"].groups[prefix(zone)] = {};
  configure();
  run(200);
  ASSERT_TRUE(router->status()->cbsr(prefix(zone))->elected());
}

void ObservedRouter::helloFromNeighbor() { EXPECT_TRUE(receive(helloFrom("192.0.2.1", 7)).accepted()); }

pimbsr::agent::Observed ObservedRouter::observed() {
  return {.router = *router,
          .settings = settings,
          .kernel = kernel,
          .traffic = traffic,
          .drops = drops,
          .history = history,
          .timerLatency = timerLatency,
          .links = links,
          .startTime = startTime,
          .historyFile = historyFile};
}

// Packets ---------------------------------------------------------------------------------------------

static std::vector<U8> ipPacket(std::string const& source, std::string const& destination,
                                std::vector<U8> const& pim) {
  std::vector<U8> packet;
  EXPECT_TRUE(pimbsr::wire::encodeIpv4({addr(source).v4Addr(), addr(destination).v4Addr()}, pim, packet));
  return packet;
}

std::vector<U8> packetOf(Bsm const& wanted) {
  std::vector<U8> pim;
  EXPECT_TRUE(pimbsr::wire::encodeBootstrap(*make(wanted), pim));
  return ipPacket(wanted.source, wanted.destination, pim);
}

std::vector<U8> packetOf(Adv const& wanted) {
  std::vector<U8> pim;
  EXPECT_TRUE(pimbsr::wire::encodeCrpAdv(*make(wanted), pim));
  return ipPacket(wanted.source, wanted.bsr, pim);
}

std::vector<U8> helloFrom(std::string const& source, Zet::U32 generation, Zet::U16 holdtime) {
  std::vector<U8> pim;
  pimbsr::wire::encodeHello({.holdtime = holdtime, .drPriority = 1, .generationId = generation}, pim);
  return ipPacket(source, "224.0.0.13", pim);
}

std::vector<U8> brokenPacket(std::string const& source) {
  std::vector<U8> packet = helloFrom(source, 7);
  packet.back() ^= 0xff;
  return packet;
}

}  // namespace test

// Views of interfaces, neighbors, borders and filters.
#include <gmock/gmock.h>

#include "tests/agent/ShownRouter.h"

namespace test {
namespace {

class InterfaceViewsTest : public ShownRouter {};

TEST_F(InterfaceViewsTest, NeighborsAreShownByInterfaceAndAddress) {
  receive("eth1", helloFrom("198.51.100.200", 0xabcdef12, 0xffff));
  receive(helloFrom("192.0.2.20", 8));
  helloFromNeighbor();
  run(5);
  expect(view("neighbors"), R"({"neighbors": [
    {"interface": "eth0", "address": "192.0.2.1", "drPriority": 1, "dr": false, "generationId": 7,
     "expiresIn": 100.0, "secondaryAddresses": []},
    {"interface": "eth0", "address": "192.0.2.20", "drPriority": 1, "dr": true, "generationId": 8,
     "expiresIn": 100.0, "secondaryAddresses": []},
    {"interface": "eth1", "address": "198.51.100.200", "drPriority": 1, "dr": false,
     "generationId": 2882400018, "expiresIn": null, "secondaryAddresses": []}]})");
}

TEST_F(InterfaceViewsTest, InterfaceIsShownWithItsLinkAndItsPackets) {
  using pimbsr::agent::QueueKind;
  receive("eth1", helloFrom("198.51.100.200", 1));
  run(6);
  links["eth1"] = {
      .queues = {{QueueKind::neighbor, {.queues = 1, .received = 1, .lost = 2}}, {QueueKind::shared, {}}},
      .sendError = "Network is down"};
  Json eth1 = view("interfaces")["interfaces"][1];
  Zet::U32 generation = router->helloState(intf("eth1"))->generationId;
  EXPECT_GT(eth1["nextHello"], 0.0);
  eth1.erase("nextHello");
  expect(
      eth1,
      R"({"interface": "eth1", "state": "up", "address": "198.51.100.9",
    "addresses": ["198.51.100.9/24", "198.51.100.10/24"], "mtu": 9000, "drPriority": 7, "helloInterval": 30,
    "dr": "198.51.100.9", "ownDr": true, "neighbors": 1, "generationId": )" +
          std::to_string(generation) +
          R"(, "bsm": true, "traffic": {"hello": {"received": 1, "dropped": 0, "sent": 0, "sendFailed": 0}},
    "queues": [{"kind": "neighbor", "queues": 1, "received": 1, "lost": 2},
               {"kind": "shared", "queues": 0, "received": 0, "lost": 0}],
    "lastSendError": "Network is down", "duplicates": 0})");
}

TEST_F(InterfaceViewsTest, QueueOfPacketsToSingleAddressesBelongsToNoInterface) {
  using pimbsr::agent::QueueKind;
  links[""].queues[QueueKind::unicast] = {.queues = 1, .received = 3, .lost = 4};
  links["eth0"].queues[QueueKind::other] = {.queues = 1, .lost = 5};
  expect(view("interfaces")["unicast"], R"({"queues": [{"kind": "unicast", "queues": 1, "received": 3,
    "lost": 4}], "lastSendError": null})");
  EXPECT_EQ(view("drops")["kernelLost"], 9);
}

TEST_F(InterfaceViewsTest, InterfaceThatIsNotThereIsMissingAndOneWithoutCarrierIsDown) {
  settings.interfaces["eth7"];
  kernel.links["eth1"].up = false;
  kernel.links["eth0"].addresses.clear();
  Json shown = view("interfaces")["interfaces"];
  EXPECT_EQ(shown[0]["state"], "no address");
  EXPECT_EQ(shown[0]["nextHello"], nullptr);
  EXPECT_EQ(shown[1]["state"], "down");
  EXPECT_EQ(shown[2]["state"], "missing");
}

TEST_F(InterfaceViewsTest, BordersOfRangesAndListsAreShown) {
  settings.router.accessLists["sites"][10] = {Acl::Action::permit, {}};
  settings.router.accessLists["sites"][10].filter.source = addr("239.5.0.0").v4Addr();
  settings.router.accessLists["sites"][10].filter.sourceMask = addr("255.255.0.0").v4Addr();
  settings.router.borders["eth1"].groups[prefix("239.255.0.0/16")] = {};
  settings.router.borders["eth1"].lists = {{"sites", {}}, {"nolist", {}}};
  configure();
  expect(view("borders"),
         R"({"borders": [{"interface": "eth1", "ranges": ["239.255.0.0/16"], "lists": ["nolist", "sites"],
    "absentLists": ["nolist"], "blocked": ["239.5.0.0/16", "239.255.0.0/16"]}]})");
}

TEST_F(InterfaceViewsTest, FilterShowsPermittedSendersAndCountsDrops) {
  expect(view("filter"), R"({"lists": [], "absentLists": [], "permitted": ["0.0.0.0/0"],
    "permitsAll": true, "dropped": 0, "bsrLists": [], "absentBsrLists": [], "permitsAllBsrs": true,
    "droppedBsms": 0, "closed": [], "droppedAtClosed": 0, "borders": [], "droppedAtBorders": 0})");
  settings.router.accessLists["senders"][10] = {Acl::Action::permit, {}};
  settings.router.accessLists["senders"][10].filter.source = addr("10.0.0.0").v4Addr();
  settings.router.accessLists["senders"][10].filter.sourceMask = addr("255.0.0.0").v4Addr();
  settings.router.senderLists = {"nolist", "senders"};
  lead();
  EXPECT_EQ(receive(packetOf(Adv{.bsr = "192.0.2.9"})).reason, "sender-filter");
  expect(view("filter"),
         R"({"lists": ["nolist", "senders"], "absentLists": ["nolist"], "permitted": ["10.0.0.0/8"],
    "permitsAll": false, "dropped": 1, "bsrLists": [], "absentBsrLists": [], "permitsAllBsrs": true,
    "droppedBsms": 0, "closed": [], "droppedAtClosed": 0, "borders": [], "droppedAtBorders": 0})");
}

TEST_F(InterfaceViewsTest, FilterShowsTheListsOfBsrsAndCountsTheirDrops) {
  settings.router.accessLists["bsrs"][10] = {Acl::Action::permit, {}};
  settings.router.accessLists["bsrs"][10].filter.source = addr("10.9.0.0").v4Addr();
  settings.router.accessLists["bsrs"][10].filter.sourceMask = addr("255.255.0.0").v4Addr();
  settings.router.bsrLists = {"bsrs", "nolist"};
  router->bsmPolicyIs({.bsrs = pimbsr::host::AddressLists(settings.router, settings.router.bsrLists)});
  helloFromNeighbor();
  EXPECT_EQ(receive(packetOf(Bsm{})).reason, "bsr-filter");
  Json shown = view("filter");
  EXPECT_EQ(shown["bsrLists"].dump(), R"(["bsrs","nolist"])");
  EXPECT_EQ(shown["absentBsrLists"].dump(), R"(["nolist"])");
  EXPECT_EQ(shown["permitsAllBsrs"], false);
  EXPECT_EQ(shown["droppedBsms"], 1);
}

TEST_F(InterfaceViewsTest, FilterNamesInterfacesThatBootstrapMessagesDoNotCross) {
  settings.router.borders["eth0"].groups[prefix("239.255.0.0/16")] = {};
  configure();
  helloFromNeighbor();
  Bsm scoped{.bsr = "10.0.0.7", .groups = {{"239.255.0.0/16", {}, scopedFlag}}};
  EXPECT_EQ(receive(packetOf(scoped)).reason, "border");
  settings.interfaces["eth0"].bsm = false;
  router->bsmPolicyIs({.closed = {intf("eth0")}});
  EXPECT_EQ(receive(packetOf(scoped)).reason, "bsm-off");
  EXPECT_EQ(receive(packetOf(Bsm{})).reason, "bsm-off");
  Json shown = view("filter");
  EXPECT_EQ(shown["closed"].dump(), R"(["eth0"])");
  EXPECT_EQ(shown["droppedAtClosed"], 2);
  EXPECT_EQ(shown["borders"].dump(), R"(["eth0"])");
  EXPECT_EQ(shown["droppedAtBorders"], 1);
}

}  // namespace
}  // namespace test

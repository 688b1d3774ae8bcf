#include "agent/views/Views.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "agent/account/HistoryJson.h"
#include "agent/base/RequestError.h"
#include "agent/control/ControlProtocol.h"
#include "tests/agent/ShownRouter.h"
#include "tests/support/Answers.h"
#include "view/Json.h"

namespace test {
namespace {

using pimbsr::agent::RequestError;
class ViewsTest : public ShownRouter {
 protected:
  /// The BSR 10.0.0.1 of the global zone with two RPs for a range, and 10.0.0.7 of a scoped zone.
  void learn() {
    helloFromNeighbor();
    Bsm global{.groups = {{"239.1.0.0/16", {{"10.0.0.2", 150, 5}, {"10.0.0.3", 150, 5}}},
                          {"224.0.0.0/4", {{"10.0.0.4", 90, 1}}, bidirFlag}}};
    ASSERT_TRUE(receive(packetOf(global)).accepted());
    Bsm scoped{.bsr = "10.0.0.7", .groups = {{"239.255.0.0/16", {}, scopedFlag}}};
    ASSERT_TRUE(receive(packetOf(scoped)).accepted());
  }
};

TEST_F(ViewsTest, EveryNamedViewIsShownAndOthersAreErrors) {
  for (std::string_view what : pimbsr::agent::viewNames())
    EXPECT_TRUE(view(std::string(what)).is_object()) << what;
  try {
    view("bsrs");
    FAIL() << "\"bsrs\" was shown";
  } catch (RequestError const& error) {
    EXPECT_STREQ(
        error.what(),
        "there is no view \"bsrs\"; valid are bsr, rp-set, candidates, rp, neighbors, interfaces, borders, "
        "filter, counters, drops, corrections, history, config, control, on-change, tree");
  }
}

TEST_F(ViewsTest, ReloadOfAFileWithAnErrorAppliesNothing) {
  auto reload = [](char const* text) {
    namespace agent = pimbsr::agent;
    agent::Settings inUse;
    Json answer = jsonOf(agent::reloadOf(agent::readConfig(text, "f"), inUse));
    keepAnswer("reload", answer);
    return answer;
  };
  expect(reload("[checks]\non-subnet = 1"), R"({"applied": false,
    "errors": ["f:2:13: error: checks.on-subnet: read 1; valid is true or false"], "warnings": [],
    "needsRestart": []})");
  expect(reload("[state]\ndirectory = '/var/lib/x'\n[checks]\non-subnet = false"),
         R"({"applied": true,
    "errors": [],
    "warnings": [
      "f: warning: no interface speaks PIM, so that nothing is heard )"
         R"(and nothing sent; [interface.NAME] makes one",
      "f:4:13: warning: checks.on-subnet: off, messages can be forged from farther away"],
    "needsRestart": ["state.directory"]})");
}

// Zones -----------------------------------------------------------------------------------------------

TEST_F(ViewsTest, RouterThatHasHeardNothingHasNoZone) { expect(view("bsr"), R"({"zones": []})"); }

TEST_F(ViewsTest, GlobalZoneThatLostItsBsrAcceptsAny) {
  learn();
  run(2000);
  expect(view("bsr"), R"({"zones": [{"zone": "224.0.0.0/4", "scoped": false, "candidate": false,
    "state": "Accept Any", "bsr": null, "bootstrapTimer": null, "scopeZoneTimer": null, "nextMessage": null,
    "ranges": 0, "rps": 0, "digest": "16fdff0f",
     "learnedFrom": null, "rpf": null}]})");
}

TEST_F(ViewsTest, LearnedBsrIsShownWithItsTimers) {
  learn();
  run(12.3456);
  expect(view("bsr"), R"({"zones": [
    {"zone": "224.0.0.0/4", "scoped": false, "candidate": false, "state": "Accept Preferred",
     "bsr": {"address": "10.0.0.1", "priority": 10, "hashMaskLen": 30, "own": false, "uptime": 12.346,
             "expiresIn": 117.654},
     "bootstrapTimer": 117.654, "scopeZoneTimer": null, "nextMessage": null, "ranges": 2, "rps": 3,
     "digest": "73db7a80",
     "learnedFrom": {"neighbor": "192.0.2.1", "interface": "eth0", "fragmentTag": 1, "noForward": false,
                     "ago": 12.346},
     "rpf": {"neighbor": "192.0.2.1", "interface": "eth0", "nextHop": "192.0.2.1"}},
    {"zone": "239.255.0.0/16", "scoped": true, "candidate": false, "state": "Accept Preferred",
     "bsr": {"address": "10.0.0.7", "priority": 10, "hashMaskLen": 30, "own": false, "uptime": 12.346,
             "expiresIn": 117.654},
     "bootstrapTimer": 117.654, "scopeZoneTimer": null, "nextMessage": null, "ranges": 0, "rps": 0,
     "digest": "6fe7a3f1",
     "learnedFrom": {"neighbor": "192.0.2.1", "interface": "eth0", "fragmentTag": 1, "noForward": false,
                     "ago": 12.346},
     "rpf": {"neighbor": "192.0.2.1", "interface": "eth0", "nextHop": "192.0.2.1"}}]})");
}

TEST_F(ViewsTest, PathToABsrNamesWhatIsMissing) {
  learn();
  auto rpf = [&] { return view("bsr")["zones"][0]["rpf"].dump(); };
  receive(helloFrom("192.0.2.1", 7, 0));
  EXPECT_EQ(rpf(), R"({"neighbor":null,"interface":"eth0","nextHop":"192.0.2.1"})");
  router->routeDel(prefix("10.0.0.0/8").v4Prefix());
  EXPECT_EQ(rpf(), R"({"neighbor":null,"interface":null,"nextHop":null})");
}

TEST_F(ViewsTest, ThisRouterAsBsrIsLearnedFromNowhere) {
  learn();
  lead();
  Json zone = view("bsr")["zones"][0];
  EXPECT_EQ(zone["learnedFrom"], nullptr);
  EXPECT_EQ(zone["rpf"], nullptr);
}

TEST_F(ViewsTest, BsrIsTakenUpWhenItComesInPlaceOfAnother) {
  lead();
  learn();
  run(40);
  ASSERT_TRUE(receive(packetOf(Bsm{.bsr = "10.0.0.8", .priority = 200})).accepted());
  run(7);
  Json bsr = view("bsr")["zones"][0]["bsr"];
  EXPECT_EQ(bsr["address"], "10.0.0.8");
  EXPECT_EQ(bsr["uptime"], 7.0);
  run(300);
  Json own = view("bsr")["zones"][0]["bsr"];
  EXPECT_EQ(own["own"], true);
  EXPECT_GT(own["uptime"], 100.0);
  EXPECT_LT(own["uptime"], 300.0 - 130.0);
}

TEST_F(ViewsTest, ZoneWithoutAMachineHasNoState) {
  learn();
  settings.router.candidateBsrs["eth0"].groups[prefix("239.255.0.0/16")] = {};
  configure();
  settings.router.candidateBsrs.clear();
  configure();
  Json zones = view("bsr")["zones"];
  ASSERT_EQ(zones.size(), 2u);
  EXPECT_EQ(zones[1]["state"], nullptr);
  EXPECT_EQ(zones[1]["bsr"]["uptime"], 0.0);
}

TEST_F(ViewsTest, ScopedZoneWithoutBsrWaitsToBeForgotten) {
  learn();
  run(150);
  Json zone = view("bsr")["zones"][1];
  EXPECT_EQ(zone["state"], "Accept Any");
  EXPECT_EQ(zone["bsr"], nullptr);
  EXPECT_EQ(zone["scopeZoneTimer"], 1280.0);
}

TEST_F(ViewsTest, ElectedBsrShowsItsNextMessage) {
  lead();
  Json zone = view("bsr")["zones"][0];
  EXPECT_EQ(zone["state"], "Elected-BSR");
  EXPECT_EQ(zone["candidate"], true);
  EXPECT_EQ(zone["bsr"]["own"], true);
  EXPECT_EQ(zone["bsr"]["expiresIn"], nullptr);
  EXPECT_EQ(zone["nextMessage"], zone["bootstrapTimer"]);
  EXPECT_GT(zone["nextMessage"], 0.0);
  EXPECT_LE(zone["nextMessage"], 60.0);
}

TEST_F(ViewsTest, RpSetIsShownByZoneAndRange) {
  learn();
  run(10);
  expect(view("rp-set"), R"({"zones": [
    {"zone": "224.0.0.0/4", "bsr": {"address": "10.0.0.1", "priority": 10, "hashMaskLen": 30}, "rpSet": [
      {"range": "224.0.0.0/4", "rps": [
        {"address": "10.0.0.4", "priority": 1, "holdtime": 90, "bidirectional": true, "expiresIn": 80.0,
         "uptime": 10.0}]},
      {"range": "239.1.0.0/16", "rps": [
        {"address": "10.0.0.2", "priority": 5, "holdtime": 150, "bidirectional": false, "expiresIn": 140.0,
         "uptime": 10.0},
        {"address": "10.0.0.3", "priority": 5, "holdtime": 150, "bidirectional": false,
         "expiresIn": 140.0, "uptime": 10.0}]}], "rps": 3},
    {"zone": "239.255.0.0/16", "bsr": {"address": "10.0.0.7", "priority": 10, "hashMaskLen": 30}, "rpSet": [],
     "rps": 0}]})");
}

TEST_F(ViewsTest, RpSetIsRestrictedToAZoneOrToRangesThatOverlap) {
  learn();
  auto ranges = [&](char const* asked) {
    std::string all;
    Json const view = pimbsr::agent::show(observed(), "rp-set", {}, prefix(asked));
    for (Json const& zone : view["zones"]) {
      all += zone["zone"].get<std::string>() + ":";
      for (Json const& range : zone["rpSet"]) all += " " + range["range"].get<std::string>();
      all += ";";
    }
    return all;
  };
  EXPECT_EQ(ranges("224.0.0.0/4"), "224.0.0.0/4: 224.0.0.0/4 239.1.0.0/16;");
  EXPECT_EQ(ranges("239.255.0.0/16"), "239.255.0.0/16:;") << "a zone is asked for";
  EXPECT_EQ(ranges("239.255.1.0/24"), "224.0.0.0/4: 224.0.0.0/4;");
  EXPECT_EQ(ranges("239.1.2.3/32"), "224.0.0.0/4: 224.0.0.0/4 239.1.0.0/16;");
  EXPECT_EQ(ranges("239.0.0.0/8"), "224.0.0.0/4: 224.0.0.0/4 239.1.0.0/16;");
  EXPECT_EQ(ranges("238.0.0.0/8"), "224.0.0.0/4: 224.0.0.0/4;");
}

// The RP of a group -----------------------------------------------------------------------------------

TEST_F(ViewsTest, ChoiceOfAnRpIsExplained) {
  learn();
  expect(viewOfGroup("239.1.2.3"), R"({"group": "239.1.2.3", "rp": "10.0.0.2", "range": "239.1.0.0/16",
    "decidedBy": "hash", "because": "the highest hash among the lowest priority",
    "ranges": [{"range": "239.1.0.0/16", "zones": ["224.0.0.0/4"], "rps": 2, "live": 2, "chosen": true},
               {"range": "224.0.0.0/4", "zones": ["224.0.0.0/4"], "rps": 1, "live": 1, "chosen": false}],
    "candidates": [{"address": "10.0.0.2", "priority": 5, "hashMaskLen": 30, "hash": 2080802136},
                   {"address": "10.0.0.3", "priority": 5, "hashMaskLen": 30, "hash": 977286891}]})");
}

TEST_F(ViewsTest, RangeWithoutALiveRpIsPassedOver) {
  learn();
  router->rpCandidateStatus()
      ->crpSetIs(prefix("239.1.2.0/24"))
      ->rpIs(addr("10.0.0.9"))
      ->expiresIs(context.now());
  Json shown = viewOfGroup("239.1.2.3");
  EXPECT_EQ(shown["ranges"][0],
            Json::parse(R"({"range": "239.1.2.0/24", "zones": [], "rps": 1, "live": 0, "chosen": false})"));
  EXPECT_EQ(shown["range"], "239.1.0.0/16");
}

TEST_F(ViewsTest, GroupWithoutRpIsSaidToHaveNone) {
  expect(viewOfGroup("239.1.2.3"), R"({"group": "239.1.2.3", "rp": null, "range": null, "decidedBy": "noRp",
    "because": "no group range with a live RP covers it", "ranges": [], "candidates": []})");
}

TEST_F(ViewsTest, RangeOfTwoZonesNamesBoth) {
  learn();
  Bsm scoped{.bsr = "10.0.0.7", .groups = {{"239.255.0.0/16", {{"10.0.0.5"}}, scopedFlag}}};
  ASSERT_TRUE(receive(packetOf(scoped)).accepted());
  Bsm global{.groups = {{"239.255.0.0/16", {{"10.0.0.2"}}}}, .tag = 2};
  ASSERT_TRUE(receive(packetOf(global)).accepted());
  EXPECT_EQ(viewOfGroup("239.255.1.1")["ranges"][0]["zones"],
            Json::parse(R"(["224.0.0.0/4", "239.255.0.0/16"])"));
}

TEST_F(ViewsTest, LinkLocalGroupIsServedByNoRp) {
  learn();
  for (char const* group : {"224.0.0.0", "224.0.0.255"}) {
    expect(viewOfGroup(group), R"({"group": ")" + std::string(group) +
                                   R"(", "rp": null, "range": null, "decidedBy": "noRp",
    "because": "groups of 224.0.0.0/24 stay on their link, and no RP serves them", "ranges": [],
    "candidates": []})");
  }
  EXPECT_EQ(viewOfGroup("224.0.1.0")["rp"], "10.0.0.4");
}

// Candidacies -----------------------------------------------------------------------------------------

TEST_F(ViewsTest, CandidaciesAreShownWithTheirBsr) {
  settings.router.candidateRps["eth0"].ranges.groups = {{prefix("239.8.0.0/16"), 10},
                                                        {prefix("239.9.0.0/16"), {}}};
  lead();
  Json shown = view("candidates");
  Json bsr = shown["bsr"][0];
  EXPECT_EQ(bsr["state"], "Elected-BSR");
  EXPECT_GT(bsr["nextMessage"], 0.0);
  EXPECT_EQ(bsr["priority"], 64);
  EXPECT_EQ(bsr["bsPeriod"], 60);
  Json rp = shown["rp"][0];
  EXPECT_EQ(rp["address"], "192.0.2.9");
  EXPECT_EQ(rp["ranges"][0]["bsr"], "192.0.2.9");
  EXPECT_EQ(rp["ranges"][0]["zone"], "224.0.0.0/4");
  EXPECT_GT(rp["ranges"][0]["nextAdvertisement"], 0.0);
  EXPECT_EQ(rp["ranges"][1],
            Json::parse(R"({"range": "239.9.0.0/16", "priority": null, "zone": null, "bsr": null,
    "nextAdvertisement": null})"));
  EXPECT_TRUE(shown["idleBsr"].empty());
  EXPECT_TRUE(shown["idleRp"].empty());
}

TEST_F(ViewsTest, RangeThatNoZoneWithABsrCoversIsAdvertisedNowhere) {
  settings.router.candidateRps["eth0"].ranges.groups = {{prefix("239.8.0.0/16"), 10}};
  configure();
  run(10);
  expect(view("candidates")["rp"],
         R"([{"interface": "eth0", "address": "192.0.2.9", "cRpAdvPeriod": 60, "ranges": [
    {"range": "239.8.0.0/16", "priority": 10, "zone": null, "bsr": null, "nextAdvertisement": null}]}])");
}

TEST_F(ViewsTest, CandidacyWithoutEffectHasItsReason) {
  kernel.links["eth3"] = {.name = "eth3", .up = false};
  kernel.links["eth4"] = {.name = "eth4", .up = true};
  for (char const* name : {"eth3", "eth4", "eth7"}) {
    settings.router.candidateRps[name].ranges.groups[prefix("239.8.0.0/16")] = 10;
  }
  kernel.links["lo"] = {.name = "lo", .up = true};
  kernel.links["lo"].addresses = {{addr("127.0.0.1").v4Addr(), 8}};
  settings.router.candidateRps["lo"].ranges.lists["empty"] = 10;
  settings.router.accessLists["empty"] = {};
  settings.router.candidateBsrs["eth0"].lists["empty"] = {};
  configure();
  Json shown = view("candidates");
  expect(shown["idleBsr"], R"([{"interface": "eth0", "because": "its lists permit no group range: empty"}])");
  expect(shown["idleRp"], R"([{"interface": "eth3", "because": "the interface is down"},
    {"interface": "eth4", "because": "the interface has no IPv4 address"},
    {"interface": "eth7", "because": "there is no such interface"},
    {"interface": "lo", "because":
     "the interface has no IPv4 address but those of 127.0.0.0/8, which no other router reaches"}])");
}

TEST_F(ViewsTest, CandidacyNamesListsThatDoNotExist) {
  settings.router.accessLists["empty"] = {};
  settings.router.candidateBsrs["eth0"].lists = {{"empty", {}}, {"nolist", {}}};
  settings.router.candidateRps["eth0"].ranges.groups[prefix("239.8.0.0/16")] = 10;
  settings.router.candidateRps["eth0"].ranges.lists = {{"empty", 10}, {"later", 10}};
  configure();
  Json shown = view("candidates");
  expect(shown["idleBsr"],
         R"x([{"interface": "eth0",
    "because": "its lists permit no group range: empty, nolist (not there)"}])x");
  EXPECT_EQ(shown["rp"][0]["ranges"].size(), 1u);
  expect(shown["idleRp"], R"x([{"interface": "eth0", "because": "list later (not there)"}])x");
}

// Counts ----------------------------------------------------------------------------------------------

TEST_F(ViewsTest, CountersShowMessagesPacketsAndTimers) {
  learn();
  run(10);
  traffic.noteSent("", packetOf(Adv{}), true);
  timerLatency.note(0.25);
  timerLatency.note(0.75);
  Json shown = view("counters");
  EXPECT_EQ(shown["uptime"], 10.0);
  EXPECT_EQ(shown["counters"][0],
            Json::parse(R"({"name": "rx", "value": 2, "sentence": "Messages that arrived"})"));
  EXPECT_EQ(shown["counters"].back()["parts"].size(), 6u);
  EXPECT_EQ(shown["traffic"][0]["interface"], nullptr);
  EXPECT_EQ(shown["traffic"][1]["packets"]["bsm"]["received"], 2);
  EXPECT_EQ(shown["timers"]["armed"], router->armedTimers());
  EXPECT_EQ(shown["timers"]["served"], 2);
  EXPECT_EQ(shown["timers"]["meanLateness"], 0.5);
  EXPECT_EQ(shown["timers"]["worstLateness"], 0.75);
  EXPECT_EQ(shown["notificationExceptions"], 0);
}

TEST_F(ViewsTest, DropsShowTheLastMessage) {
  receive(packetOf(Bsm{.groups = {{"239.1.0.0/16", {{"10.0.0.2"}}, scopedFlag}}, .source = "192.0.2.9"}));
  run(3.5);
  expect(view("drops"), R"({"drops": [{"reason": "own-address",
    "sentence": "The message was sent from one of this router's own addresses.", "count": 1,
    "message": "bsm", "interface": "eth0", "zone": "239.1.0.0/16",
    "senders": [{"sender": "192.0.2.9", "count": 1}], "last": {"ago": 3.5, "sender": "192.0.2.9",
    "destination": "224.0.0.13",
    "summary": "BSM of 10.0.0.1, priority 10, hash mask length 30, tag 0x0001, 1 group range"}}],
    "kernelLost": 0})");
}

TEST_F(ViewsTest, DropsBeyondTheBoundAreOfOtherZones) {
  drops = pimbsr::agent::Drops(0);
  receive(brokenPacket());
  EXPECT_EQ(view("drops")["drops"][0]["zone"], "other");
}

TEST_F(ViewsTest, HistoryShowsTheOldestFirst) {
  learn();
  run(7);
  Json shown = view("history");
  ASSERT_EQ(shown["entries"].size(), 3u);
  expect(shown["entries"][0], R"({"time": 1000000000.0, "event": "bsrElected", "zone": "224.0.0.0/4",
    "bsr": {"address": "10.0.0.1", "priority": 10, "hashMaskLen": 30}, "own": false,
    "cause": {"kind": "message", "message": "bsm", "sender": "192.0.2.1", "interface": "eth0"},
    "ago": 7.0})");
  EXPECT_EQ(shown["entries"][1]["rps"],
            Json::parse(R"({"added": 3, "updated": 0, "removed": 0, "expired": 0})"));
  EXPECT_EQ(shown["maxEntries"], 256);
  EXPECT_EQ(shown["wasCleared"], false);
  history.clear();
  EXPECT_EQ(view("history")["wasCleared"], true);
}

TEST_F(ViewsTest, EntryOfAClockThatWasAheadHasNoAge) {
  learn();
  std::string text = linesOf(history.store());
  history.clear();
  text.replace(text.find("1000000000.0"), 12, "2000000000.0");
  ASSERT_EQ(restoreLines(history.store(), text).damaged, 0u);
  Json entries = view("history")["entries"];
  EXPECT_FALSE(entries[0].contains("ago"));
  EXPECT_EQ(entries[1]["ago"], 0.0);
}

TEST_F(ViewsTest, HistoryShowsWhetherItsFileHasAll) {
  EXPECT_TRUE(view("history")["file"].is_null());
  historyFile = {.path = "/x/history.jsonl", .error = "No space left on device", .unsaved = 3};
  EXPECT_EQ(view("history")["file"], "/x/history.jsonl");
  EXPECT_EQ(view("history")["fileError"], "No space left on device");
  EXPECT_EQ(view("history")["unsaved"], 3);
}

TEST_F(ViewsTest, ConfigurationIsShownAsFileAndAsValues) {
  Json shown = view("config");
  EXPECT_THAT(shown["file"].get<std::string>(), testing::HasSubstr("\ndr-priority = 7\n"));
  EXPECT_EQ(shown["settings"]["interfaces"]["eth1"]["drPriority"], 7);
}

// Corrections -----------------------------------------------------------------------------------------

TEST_F(ViewsTest, EachCorrectionIsShownWithItsActs) {
  router->correctionsAre({.quickRelearn = true});
  receive(helloFrom("192.0.2.1", 7));
  receive(helloFrom("192.0.2.1", 8));
  Json shown = view("corrections")["corrections"];
  EXPECT_EQ(shown.size(), pimbsr::host::corrections().size());
  for (Json const& one : shown) {
    bool isOn = one["correction"] == "quick-relearn";
    EXPECT_EQ(one["on"], isOn) << one;
    EXPECT_EQ(one["acts"], isOn ? 1 : 0) << one;
    EXPECT_NE(one["engine"], "");
    EXPECT_NE(one["instead"], "");
  }
}

// The change command ----------------------------------------------------------------------------------

TEST_F(ViewsTest, ChangeCommandShowsItsRunsAndHowTheLastOneEnded) {
  EXPECT_TRUE(view("on-change")["command"].is_null());
  pimbsr::agent::Observed seen = observed();
  seen.changeRuns = {.command = "install",
                     .timeLimit = 30,
                     .runningFor = 1.5,
                     .waiting = true,
                     .succeeded = 4,
                     .failed = 2,
                     .timedOut = 1,
                     .last = {{.ago = 7, .duration = 0.25, .status = 3 << 8}}};
  expect(kept("on-change", pimbsr::agent::show(seen, "on-change")),
         R"({"command": "install", "timeLimit": 30.0,
    "runningFor": 1.5, "waiting": true, "succeeded": 4, "failed": 2, "timedOut": 1, "lastRun": {"ago": 7.0,
    "duration": 0.25, "outcome": "failed", "status": 3, "signal": null}, "helperRestarts": 0,
    "helperEnded": false})");
  seen.changeRuns.last = {.ago = 7, .duration = 30, .status = 15, .timedOut = true};
  expect(pimbsr::agent::show(seen, "on-change")["lastRun"], R"({"ago": 7.0, "duration": 30.0,
    "outcome": "timedOut", "status": null, "signal": 15})");
}

// Control sockets -------------------------------------------------------------------------------------

TEST_F(ViewsTest, ControlShowsEachSocketWithItsCountsAndUsers) {
  pimbsr::agent::Observed seen = observed();
  seen.controls = {{.path = "/run/a.sock",
                    .readOnly = true,
                    .counts = {.clients = 3,
                               .watchers = 1,
                               .requests = 9,
                               .rejected = 2,
                               .rejectedRequests = 8,
                               .gaveWay = 4,
                               .slow = 5,
                               .silent = 6,
                               .failed = 7},
                    .users = {{.uid = 1001, .clients = 3, .watchers = 1, .unread = 2}}}};
  expect(kept("control", pimbsr::agent::show(seen, "control")),
         R"({"sockets": [{"socket": "/run/a.sock", "readOnly": true,
    "clients": 3, "watchers": 1, "requests": 9, "rejected": 2, "rejectedRequests": 8, "gaveWay": 4, "slow": 5,
    "silent": 6, "failed": 7, "users": [{"uid": 1001, "clients": 3, "watchers": 1, "unread": 2}]}]})");
}

}  // namespace
}  // namespace test

#include "cli/show/ShowTables.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/show/ShowParts.h"

namespace pimbsr::cli {
namespace {

std::string shown(std::string const& what, std::string const& view) {
  std::ostringstream out;
  out << '\n';
  writeShow(out, what, Json::parse(view));
  return out.str();
}

// Values ----------------------------------------------------------------------------------------------

TEST(ShowTablesTest, SpansAreShownByTheirSize) {
  std::vector<std::pair<std::optional<double>, std::string>> cases = {
      {{}, "-"},          {0.0, "0.0 s"},       {95.44, "95.4 s"},   {99.94, "99.9 s"},
      {99.96, "1m 40s"},  {996.3, "16m 36s"},   {1300.0, "21m 40s"}, {3599.4, "59m 59s"},
      {3599.6, "1h 00m"}, {86399.0, "23h 59m"}, {86400, "1d 00h"},   {40 * 86400, "40d 00h"}};
  for (auto const& [seconds, text] : cases) EXPECT_EQ(view::cellOf(seconds, "-"), text);
}

TEST(ShowTablesTest, ViewOfAnotherVersionIsWrittenAsItCame) {
  EXPECT_EQ(shown("moods", R"({"mood": "good"})"), "\n{\n  \"mood\": \"good\"\n}\n");
}

TEST(ShowTablesTest, ViewThatLacksWhatIsShownIsRejected) {
  for (char const* what : {"bsr", "rp-set", "rp", "candidates", "neighbors", "interfaces", "borders",
                           "filter", "counters", "drops", "corrections", "history", "config"}) {
    EXPECT_THROW(shown(what, "{}"), nlohmann::json::exception) << what;
  }
}

// Zones -----------------------------------------------------------------------------------------------

/// The line of a zone's block that begins with a name.
std::string factOf(std::string const& name, std::string const& members) {
  std::string text = shown("bsr", R"({"zones": [{"zone": "239.1.0.0/16", "scoped": true, "candidate": false,
    "state": "Accept Preferred", "bsr": {"address": "10.0.0.7", "own": false, "priority": 200,
    "hashMaskLen": 4, "uptime": 12.0, "expiresIn": 117.7}, "bootstrapTimer": 117.7, "scopeZoneTimer": null,
    "nextMessage": null, "ranges": 1, "rps": 1, )" +
                                      members + "}]}");
  std::size_t at = text.find("\n  " + name);
  return at == std::string::npos ? "" : text.substr(at + 1, text.find('\n', at + 1) - at - 1);
}

TEST(ShowTablesTest, AZoneNamesFromWhereItIsLearnedAndThePathToItsBsr) {
  std::string from = R"("learnedFrom": {"neighbor": "10.0.1.2", "interface": "eth0", "fragmentTag": 77,
    "noForward": false, "ago": 12.0}, "rpf": null)";
  EXPECT_EQ(factOf("learned from", from), "  learned from      10.0.1.2 on eth0, tag 77, 12.0 s ago");
  std::string noForward = R"("learnedFrom": {"neighbor": "10.0.1.2", "interface": "eth0", "fragmentTag": 7,
    "noForward": true, "ago": 1.0}, "rpf": null)";
  EXPECT_EQ(factOf("learned from", noForward),
            "  learned from      10.0.1.2 on eth0, tag 7, No-Forward, 1.0 s ago");
  struct Case {
    char const* rpf;
    char const* text;
  };
  Case const cases[] = {
      {R"({"neighbor": "10.0.1.2", "interface": "eth0", "nextHop": "10.0.1.2"})", "10.0.1.2 on eth0"},
      {R"({"neighbor": null, "interface": null, "nextHop": null})", "none: no route to the BSR"},
      {R"({"neighbor": null, "interface": "eth0", "nextHop": "10.0.1.9"})",
       "none: the next hop 10.0.1.9 is no PIM neighbor on eth0"},
      {R"({"neighbor": null, "interface": "eth0", "nextHop": null})",
       "none: the BSR is on eth0, and no PIM neighbor there"},
  };
  for (Case const& c : cases)
    EXPECT_EQ(factOf("RPF", std::string(R"("rpf": )") + c.rpf), std::string("  RPF neighbor      ") + c.text);
}

TEST(ShowTablesTest, EachZoneHasABlockOfItsBsr) {
  EXPECT_EQ(shown("bsr", R"({"zones": [
    {"zone": "224.0.0.0/4", "scoped": false, "candidate": true, "state": "Elected-BSR",
     "bsr": {"address": "192.0.2.9", "own": true, "priority": 64, "hashMaskLen": 30, "uptime": 11045.0,
             "expiresIn": null},
     "bootstrapTimer": 12.345, "scopeZoneTimer": null, "nextMessage": 12.345, "ranges": 2, "rps": 3,
     "digest": "7f8c5d15"},
    {"zone": "239.1.0.0/16", "scoped": true, "candidate": false, "state": "Accept Preferred",
     "bsr": {"address": "10.0.0.7", "own": false, "priority": 200, "hashMaskLen": 4, "uptime": 12.0,
             "expiresIn": 117.7},
     "bootstrapTimer": 117.7, "scopeZoneTimer": null, "nextMessage": null, "ranges": 1, "rps": 1},
    {"zone": "239.2.0.0/16", "scoped": true, "candidate": false, "state": "Accept Any", "bsr": null,
     "bootstrapTimer": null, "scopeZoneTimer": 1280.0, "nextMessage": null, "ranges": 0, "rps": 0}]})"),
            R"(
Zone 224.0.0.0/4, global
  BSR               192.0.2.9, this router
  priority          64 (higher wins)
  hash mask length  30
  state             Elected-BSR
  elected for       3h 04m
  next message in   12.3 s
  RP set            3 entries in 2 group ranges
  digest            7f8c5d15

Zone 239.1.0.0/16, scoped
  BSR               10.0.0.7
  priority          200 (higher wins)
  hash mask length  4
  state             Accept Preferred
  known for         12.0 s
  expires in        1m 58s
  RP set            1 entry in 1 group range

Zone 239.2.0.0/16, scoped
  BSR               none
  state             Accept Any
  forgotten in      21m 20s
  RP set            empty
)");
}

TEST(ShowTablesTest, NoBsrIsASentence) {
  EXPECT_EQ(shown("bsr", R"({"zones": []})"), "\nNo BSR is known in any zone.\n");
  EXPECT_EQ(shown("bsr", R"({"zones": [{"zone": "224.0.0.0/4", "scoped": false, "candidate": true,
    "state": "Pending-BSR", "bsr": null, "bootstrapTimer": 5.0, "scopeZoneTimer": null, "nextMessage": null,
    "ranges": 0, "rps": 0}]})"),
            R"(
Zone 224.0.0.0/4, global
  BSR               none
  state             Pending-BSR
  decides in        5.0 s
  RP set            empty
)");
}

TEST(ShowTablesTest, RpSetIsATablePerZone) {
  EXPECT_EQ(shown("rp-set", R"({"zones": [
    {"zone": "224.0.0.0/4", "bsr": {"address": "10.0.0.1", "priority": 10, "hashMaskLen": 30}, "rps": 3,
     "rpSet": [
      {"range": "224.0.0.0/4", "rps": [
        {"address": "10.0.0.4", "priority": 1, "holdtime": 90, "expiresIn": 80.0, "uptime": 30.0,
         "bidirectional": true}]},
      {"range": "239.1.0.0/16", "rps": [
        {"address": "10.0.0.2", "priority": 5, "holdtime": 150, "expiresIn": 140.0, "bidirectional": false},
        {"address": "10.0.0.30", "priority": 192, "holdtime": 0, "expiresIn": 0.0,
         "bidirectional": false}]}]},
    {"zone": "239.2.0.0/16", "bsr": {"address": "10.0.0.7", "priority": 10, "hashMaskLen": 30}, "rps": 0,
     "rpSet": []},
    {"zone": "239.255.0.0/16", "bsr": null, "rps": 1, "rpSet": [
      {"range": "239.255.0.0/16", "rps": [
        {"address": "10.0.0.2", "priority": 5, "holdtime": 150, "expiresIn": 40.0,
         "bidirectional": false}]}]}]})"),
            R"(
Zone 224.0.0.0/4, BSR 10.0.0.1, 3 entries (lower priority wins)
  group range   RP         priority  holdtime  expires in  uptime  mode
  224.0.0.0/4   10.0.0.4          1      90 s  80.0 s      30.0 s  bidirectional
  239.1.0.0/16  10.0.0.2          5     150 s  2m 20s           -  sparse
                10.0.0.30       192       0 s  withdrawn        -  sparse

Zone 239.255.0.0/16, no BSR, 1 entry (lower priority wins)
  group range     RP        priority  holdtime  expires in  uptime  mode
  239.255.0.0/16  10.0.0.2         5     150 s      40.0 s       -  sparse
)");
  EXPECT_EQ(shown("rp-set", R"({"zones": []})"), "\nNo RP is known in any zone.\n");
}

TEST(ShowTablesTest, ChoiceOfAnRpIsExplained) {
  EXPECT_EQ(
      shown("rp", R"({"group": "239.1.2.3", "rp": "10.0.0.2", "range": "239.1.0.0/16", "decidedBy": "hash",
    "because": "the highest hash among the lowest priority",
    "ranges": [{"range": "239.1.2.0/24", "zones": [], "rps": 1, "live": 0, "chosen": false},
               {"range": "239.1.0.0/16", "zones": ["224.0.0.0/4", "239.1.0.0/16"], "rps": 2, "live": 2,
                "chosen": true},
               {"range": "224.0.0.0/4", "zones": ["224.0.0.0/4"], "rps": 1, "live": 1, "chosen": false}],
    "candidates": [{"address": "10.0.0.2", "priority": 5, "hashMaskLen": 30, "hash": 2080802136},
                   {"address": "10.0.0.3", "priority": 5, "hashMaskLen": 30, "hash": 977286891}]})"),
      R"(
Group 239.1.2.3 is served by RP 10.0.0.2, the highest hash among the lowest priority.

Group ranges that cover it, the longest first
  group range   zone                       RPs  live
  239.1.2.0/24  -                            1     0  passed over: none is live
  239.1.0.0/16  224.0.0.0/4, 239.1.0.0/16    2     2  chosen
  224.0.0.0/4   224.0.0.0/4                  1     1  a longer one is chosen

Live RPs of 239.1.0.0/16: the lowest priority wins, then the highest hash, then the highest address
  RP        priority        hash  hash mask length
  10.0.0.2         5  2080802136                30  chosen
  10.0.0.3         5   977286891                30
)");
}

TEST(ShowTablesTest, GroupWithoutRpIsSaidToHaveNone) {
  EXPECT_EQ(shown("rp", R"({"group": "239.1.2.3", "rp": null, "range": null, "decidedBy": "noRp",
    "because": "the agent says so", "ranges": [], "candidates": []})"),
            "\nGroup 239.1.2.3 has no RP: the agent says so.\n");
  EXPECT_EQ(shown("rp", R"({"group": "239.1.2.3", "rp": null, "range": null, "decidedBy": "noRp",
    "because": "no group range with a live RP covers it",
    "ranges": [{"range": "239.1.2.0/24", "zones": ["224.0.0.0/4"], "rps": 1, "live": 0, "chosen": false}],
    "candidates": []})"),
            R"(
Group 239.1.2.3 has no RP: no group range with a live RP covers it.

Group ranges that cover it, the longest first
  group range   zone         RPs  live
  239.1.2.0/24  224.0.0.0/4    1     0  passed over: none is live
)");
}

// Candidacies -----------------------------------------------------------------------------------------

TEST(ShowTablesTest, CandidaciesAreTwoTables) {
  EXPECT_EQ(shown("candidates", R"({"bsr": [
    {"zone": "224.0.0.0/4", "interface": "eth0", "address": "192.0.2.9", "priority": 64, "hashMaskLen": 30,
     "bsPeriod": 60, "state": "Elected-BSR", "elected": true, "nextMessage": 5.0},
    {"zone": "239.4.0.0/16", "interface": "eth0", "address": "192.0.2.9", "priority": 9, "hashMaskLen": 4,
     "bsPeriod": 100, "state": "Candidate-BSR", "elected": false, "nextMessage": null}],
    "idleBsr": [{"interface": "eth7", "because": "there is no such interface"}],
    "rp": [{"interface": "eth0", "address": "192.0.2.9", "cRpAdvPeriod": 60, "ranges": [
      {"range": "239.8.0.0/16", "priority": 10, "zone": "224.0.0.0/4", "bsr": "10.0.0.1",
       "nextAdvertisement": 48.0},
      {"range": "239.9.0.0/16", "priority": null, "zone": null, "bsr": null, "nextAdvertisement": null},
      {"range": "239.10.0.0/16", "priority": 10, "zone": null, "bsr": null, "nextAdvertisement": null}]}],
    "idleRp": []})"),
            R"(
Candidate BSR (higher priority wins)
  zone          interface  address    priority  hash mask length  BS_Period  state          next message
  224.0.0.0/4   eth0       192.0.2.9        64                30       60 s  Elected-BSR           5.0 s
  239.4.0.0/16  eth0       192.0.2.9         9                 4      100 s  Candidate-BSR             -
  eth7 waits: there is no such interface

Candidate RP (lower priority wins)
  interface  address    C_RP_Adv_Period  group range    priority  next advertisement  to BSR
  eth0       192.0.2.9             60 s  239.8.0.0/16         10              48.0 s  10.0.0.1
                                         239.9.0.0/16          -                   -  none: it has no priority
                                         239.10.0.0/16        10                   -  none known
)");
}

TEST(ShowTablesTest, NoCandidacyIsASentence) {
  EXPECT_EQ(shown("candidates", R"({"bsr": [], "idleBsr": [], "rp": [], "idleRp": []})"),
            "\nThis router is no candidate BSR.\n\nThis router is no candidate RP.\n");
  EXPECT_EQ(shown("candidates", R"({"bsr": [], "idleBsr": [], "rp": [],
    "idleRp": [{"interface": "eth7", "because": "the interface is down"}]})"),
            "\nThis router is no candidate BSR.\n\nCandidate RP (lower priority wins)\n"
            "  eth7 waits: the interface is down\n");
}

// Interfaces ------------------------------------------------------------------------------------------

TEST(ShowTablesTest, NeighborsAreATable) {
  EXPECT_EQ(shown("neighbors", R"({"neighbors": [
    {"interface": "eth0", "address": "192.0.2.1", "drPriority": null, "dr": false, "generationId": 7,
     "expiresIn": 100.0, "secondaryAddresses": ["192.0.2.2", "192.0.2.3"]},
    {"interface": "eth1", "address": "198.51.100.200", "drPriority": 4294967295, "dr": true,
     "generationId": 2882400018, "expiresIn": null, "secondaryAddresses": []}]})"),
            R"(
PIM neighbors (the highest DR priority wins, then the highest address)
  interface  address         DR priority  DR   generation ID  expires in  other addresses
  eth0       192.0.2.1       not sent     no   0x00000007     1m 40s      192.0.2.2, 192.0.2.3
  eth1       198.51.100.200  4294967295   yes  0xabcdef12     never       none
)");
  EXPECT_EQ(shown("neighbors", R"({"neighbors": []})"), "\nNo PIM neighbor is known on any interface.\n");
}

TEST(ShowTablesTest, InterfacesAreShownWithTheirPackets) {
  EXPECT_EQ(shown("interfaces", R"({"interfaces": [
    {"interface": "eth0", "state": "up", "address": "192.0.2.9", "addresses": ["192.0.2.9/24"], "mtu": 1500,
     "drPriority": 1, "helloInterval": 30, "dr": "192.0.2.9", "ownDr": true, "neighbors": 1,
     "nextHello": 18.0, "generationId": 65538, "bsm": true, "traffic": {
       "bsm": {"received": 3, "dropped": 1, "sent": 7, "sendFailed": 2},
       "hello": {"received": 10, "dropped": 0, "sent": 5, "sendFailed": 0}}},
    {"interface": "eth7", "state": "missing", "address": null, "addresses": [], "mtu": null, "drPriority": 1,
     "helloInterval": 30, "dr": null, "ownDr": false, "neighbors": 0, "nextHello": null, "generationId": null,
     "bsm": false, "traffic": {}, "duplicates": 12}]})"),
            R"(
Interfaces that speak PIM (the highest DR priority wins, then the highest address)
)"
            "  interface  state    address     MTU  DR                   "
            "    own DR priority  neighbors  next Hello  BSM  duplicates\n"
            "  eth0       up       192.0.2.9  1500  192.0.2.9 (this route"
            "r)                1          1      18.0 s  on            0\n"
            "  eth7       missing  -             -  -                    "
            "                  1          0           -  off          12\n"
            R"(
Packets
  interface  received  dropped  sent  not sent
  eth0             13        1    12         2
  eth7              0        0     0         0
)");
  EXPECT_EQ(shown("interfaces", R"({"interfaces": []})"), "\nNo interface is configured to speak PIM.\n");
}

TEST(ShowTablesTest, InterfacesShowTheirReceiveQueuesAndWhatCouldNotBeSent) {
  EXPECT_EQ(shown("interfaces", R"({"interfaces": [
    {"interface": "eth0", "state": "up", "address": "192.0.2.9", "addresses": ["192.0.2.9/24"], "mtu": 1500,
     "drPriority": 1, "helloInterval": 30, "dr": "192.0.2.9", "ownDr": true, "neighbors": 1,
     "nextHello": 18.0, "generationId": 65538, "bsm": true, "traffic": {},
     "queues": [{"kind": "neighbor", "queues": 2, "received": 70, "lost": 0},
                {"kind": "other", "queues": 1, "received": 9, "lost": 12345}],
     "lastSendError": "Network is unreachable"}],
    "unicast": {"queues": [{"kind": "unicast", "queues": 1, "received": 5, "lost": 0}],
     "lastSendError": null}})"),
            R"(
Interfaces that speak PIM (the highest DR priority wins, then the highest address)
)"
            "  interface  state  address     MTU  DR                     "
            "  own DR priority  neighbors  next Hello  BSM  duplicates\n"
            "  eth0       up     192.0.2.9  1500  192.0.2.9 (this router)"
            "                1          1      18.0 s  on            0\n"
            R"(
Packets
  interface  received  dropped  sent  not sent
  eth0              0        0     0         0

Receive queues
  interface  queue     open  received  lost in the kernel
  eth0       neighbor     2        70                   0
             other        1         9               12345
  any        unicast      1         5                   0

Packets not sent
  interface  last error
  eth0       Network is unreachable
)");
}

TEST(ShowTablesTest, BordersAreShownByInterface) {
  EXPECT_EQ(shown("borders", R"({"borders": [
    {"interface": "eth1", "ranges": ["239.255.0.0/16"], "lists": ["sites", "lab"],
     "absentLists": ["lab"], "blocked": ["239.5.0.0/16", "239.255.0.0/16"]},
    {"interface": "eth2", "ranges": [], "lists": [], "absentLists": [], "blocked": []}]})"),
            R"(
Group ranges whose Bootstrap Messages don't cross an interface
  interface  group range                  access lists
  eth1       239.5.0.0/16                 sites, lab (not there)
             239.255.0.0/16
  eth2       none: its lists permit none  none
)");
  EXPECT_EQ(shown("borders", R"({"borders": []})"), "\nNo interface is a border.\n");
}

// Counts ----------------------------------------------------------------------------------------------

TEST(ShowTablesTest, FilterNamesWhoIsPermitted) {
  EXPECT_EQ(shown("filter",
                  R"({"lists": ["a", "b"], "absentLists": ["a"], "permitted": ["10.0.0.0/8", "192.0.2.0/24"],
    "permitsAll": false, "dropped": 1, "bsrLists": ["c", "d"], "absentBsrLists": ["d"],
    "permitsAllBsrs": false, "droppedBsms": 2, "closed": ["eth1", "eth2"], "droppedAtClosed": 3,
    "borders": ["eth3"], "droppedAtBorders": 1})"),
            R"(
Candidate-RP-Advertisements are taken from senders in
  10.0.0.0/8
  192.0.2.0/24
Sender lists: a (not there), b. Dropped since the last clear: 1 advertisement.
Bootstrap Messages are taken from the BSRs that these lists permit.
BSR lists: c, d (not there). Dropped since the last clear: 2 messages.
Closed to Bootstrap Messages (bsm = false): eth1, eth2. Dropped since the last clear: 3 messages.
Borders, which 'pimbsr show borders' lists: eth3. Dropped since the last clear: 1 message.
)");
  EXPECT_EQ(
      shown("filter", R"({"lists": [], "absentLists": [], "permitted": ["0.0.0.0/0"], "permitsAll": true,
    "dropped": 0, "bsrLists": [], "absentBsrLists": [], "permitsAllBsrs": true, "droppedBsms": 0})"),
      "\nCandidate-RP-Advertisements are taken from every sender.\n"
      "Sender lists: none. Dropped since the last clear: 0 advertisements.\n"
      "Bootstrap Messages are taken from every BSR.\n"
      "BSR lists: none. Dropped since the last clear: 0 messages.\n");
}

TEST(ShowTablesTest, CountersAreShownWithoutThoseThatAre0) {
  EXPECT_EQ(shown("counters", R"({"uptime": 93784.0, "counters": [
    {"name": "rx", "value": 12, "sentence": "Messages that arrived"},
    {"name": "tx", "value": 0, "sentence": "Messages sent"},
    {"name": "errCounters", "value": 3, "sentence": "Drops by cause", "parts": [
      {"name": "rxFilter", "value": 0}, {"name": "rxInvalid", "value": 3}]}],
    "traffic": [
      {"interface": null, "packets": {"crpAdv": {"received": 0, "dropped": 0, "sent": 4, "sendFailed": 1}}},
      {"interface": "eth0", "packets": {
        "bsm": {"received": 100, "dropped": 1, "sent": 0, "sendFailed": 0},
        "notPim": {"received": 2, "dropped": 0, "sent": 0, "sendFailed": 0},
        "unread": {"received": 9, "dropped": 9, "sent": 0, "sendFailed": 0}}}],
    "timers": {"armed": 1, "served": 77, "meanLateness": 0.0, "worstLateness": 0.25},
    "notificationExceptions": 2})"),
            R"(
Up for 1d 02h. 1 timer armed; timers were served 77 times, 0.000 s late in the mean and 0.250 s at worst.
The engine caught 2 exceptions inside; that is a defect of this program.

Bootstrap messages and advertisements, without those that are 0
  counter            count  what it counts
  rx                    12  Messages that arrived
  Dropped, by cause      3  Drops by cause
    rxInvalid            3

Packets
  interface  kind           received  dropped  sent  not sent
  by route   C-RP-Adv              0        0     4         1
  eth0       BSM                 100        1     0         0
             not PIM               2        0     0         0
             not looked at         9        9     0         0
)");
}

TEST(ShowTablesTest, QuietAgentHasNoTables) {
  EXPECT_EQ(shown("counters", R"({"uptime": 1.0, "counters": [], "traffic": [],
    "timers": {"armed": 0, "served": 0, "meanLateness": 0.0, "worstLateness": 0.0},
    "notificationExceptions": 0})"),
            R"(
Up for 1.0 s. 0 timers armed; timers were served 0 times, 0.000 s late in the mean and 0.000 s at worst.

Bootstrap messages and advertisements: none yet

Packets: none yet
)");
}

TEST(ShowTablesTest, DropsAreShownWithTheirMeaning) {
  EXPECT_EQ(shown("drops", R"({"drops": [
    {"reason": "checksum", "sentence": "The PIM checksum is wrong.", "message": "malformed",
     "interface": "eth0", "zone": null, "count": 12, "senders": [{"sender": "10.0.0.7", "count": 8},
     {"sender": "10.0.0.1", "count": 4}], "last": {"ago": 12.0, "sender": "192.0.2.1",
     "destination": "224.0.0.13", "summary": "Hello"}},
    {"reason": "own-address", "sentence": "It is our own.", "message": "bsm", "interface": "eth0",
     "zone": "239.1.0.0/16", "count": 1, "last": {"ago": 3600, "sender": "192.0.2.9",
     "destination": "224.0.0.13", "summary": "BSM"}},
    {"reason": "own-address", "sentence": "It is our own.", "message": "bsm", "interface": "eth0",
     "zone": "other", "count": 1, "last": {"ago": 1, "sender": "192.0.2.9",
     "destination": "224.0.0.13", "summary": "BSM"}}]})"),
            R"(
Dropped messages
  reason       interface  zone          count  senders                     last        from       last message
  checksum     eth0       -                12  10.0.0.7 (8), 10.0.0.1 (4)  12.0 s ago  192.0.2.1  Hello
  own-address  eth0       239.1.0.0/16      1                              1h 00m ago  192.0.2.9  BSM
  own-address  eth0       other             1                              1.0 s ago   192.0.2.9  BSM

Why
  reason       meaning
  checksum     The PIM checksum is wrong.
  own-address  It is our own.
)");
  EXPECT_EQ(shown("drops", R"({"drops": [], "kernelLost": 1})"),
            "\nThe kernel lost 1 packet whose receive buffer was full; \"pimbsr show interfaces\" has the "
            "queues.\nNo message was dropped since the last clear.\n");
  EXPECT_EQ(shown("drops", R"({"drops": []})"), "\nNo message was dropped since the last clear.\n");
}

TEST(ShowTablesTest, Corrections) {
  EXPECT_EQ(shown("corrections", R"({"corrections": [
      {"correction": "elected-only", "on": true, "acts": 12, "engine": "E", "instead": "I",
       "source": "RFC 5059 section 3.1.1"},
      {"correction": "kept-status", "on": false, "acts": 0, "engine": "E", "instead": "I",
       "source": "a reason"}]})"),
            R"(
Corrections
  correction    in use  acts  by
  elected-only  yes       12  RFC 5059 section 3.1.1
  kept-status   no         0  a reason
)");
}

// History ---------------------------------------------------------------------------------------------

/// The details and the cause of one entry, as the last two columns say them.
std::string detailsOf(std::string const& members) {
  std::string text =
      shown("history", R"({"maxEntries": 256, "wasCleared": false, "entries": [{"time": 1000000000, "ago": 1,
    "zone": "239.0.0.0/8", )" +
                           members + "}]}");
  std::string line = text.substr(0, text.size() - 1);
  line = line.substr(line.rfind('\n') + 1);
  return line.substr(line.find("  239.0.0.0/8  ") + 15);
}

TEST(ShowTablesTest, HistoryIsATable) {
  setenv("TZ", "UTC", 1);
  EXPECT_EQ(shown("history", R"({"maxEntries": 256, "wasCleared": false, "entries": [
    {"time": 1000000000.25, "event": "bsrLost", "zone": "224.0.0.0/4",
     "bsr": {"address": "10.0.0.1", "priority": 10, "hashMaskLen": 30}, "own": false,
     "cause": {"kind": "message", "message": "bsm", "sender": "192.0.2.1", "interface": "eth0"},
     "ago": 90061.0},
    {"time": 1000090061.0, "event": "rpSetChanged", "zone": "239.255.0.0/16",
     "rps": {"added": 7, "updated": 0, "removed": 0, "expired": 0}, "firstRps": ["10.0.0.2"],
     "moreRps": true, "cause": {"kind": "timer"}, "ago": 0.5}]})"),
            R"(
The last 2 changes, the newest at the end (at most 256 of elections, of RPs, of zones and of runs)
  local time              ago  zone            event     details                 cause
  2001-09-09 01:46:40  1d 01h  224.0.0.0/4     BSR lost  10.0.0.1                BSM from 192.0.2.1 on eth0
  2001-09-10 02:47:41   0.5 s  239.255.0.0/16  RP set    7 added: 10.0.0.2, ...  timer
)");
  EXPECT_EQ(shown("history", R"({"maxEntries": 256, "wasCleared": false, "entries": []})"),
            "\nNothing has happened yet.\n");
  EXPECT_EQ(shown("history", R"({"maxEntries": 256, "wasCleared": true, "entries": []})"),
            "\nNothing has happened since the last clear.\n");
}

TEST(ShowTablesTest, EntryOfAClockThatWasAheadAndOneThatWasRepeatedSaySo) {
  setenv("TZ", "UTC", 1);
  EXPECT_EQ(
      shown("history", R"({"maxEntries": 256, "wasCleared": false, "fileError": "disk full", "entries": [
    {"time": 2000000000, "event": "agentStarted", "zone": null, "orderly": false, "cause": {"kind": "start"}},
    {"time": 1000000030, "event": "bsrLost", "zone": "224.0.0.0/4", "count": 12, "firstTime": 1000000000,
     "bsr": {"address": "10.0.0.1", "priority": 10, "hashMaskLen": 30}, "own": false,
     "cause": {"kind": "timer"}, "ago": 1.0}]})"),
      R"(
Not all of it is in the file: disk full.
The last 2 changes, the newest at the end (at most 256 of elections, of RPs, of zones and of runs)
  local time           ago        zone         event          details                               cause
  2033-05-18 03:33:20  in future  -            agent started  the run before was killed or crashed  start
  2001-09-09 01:47:10  1.0 s      224.0.0.0/4  BSR lost       10.0.0.1; 12 times in 30.0 s          timer
)");
}

TEST(ShowTablesTest, ChangeCommandIsDescribed) {
  EXPECT_EQ(shown("on-change", R"({"command": null, "timeLimit": null, "runningFor": null, "waiting": false,
    "succeeded": 0, "failed": 0, "timedOut": 0, "lastRun": null})"),
            "\nNo change command runs: the agent was started without --on-change.\n");
  EXPECT_EQ(shown("on-change", R"({"command": "install", "timeLimit": 30, "runningFor": 2, "waiting": true,
    "succeeded": 1, "failed": 2, "timedOut": 3,
    "lastRun": {"ago": 7, "duration": 30, "outcome": "timedOut", "status": null, "signal": 15}})"),
            R"(
Change command: install
1 run succeeded, 2 failed, 3 took longer than 30.0 s and were ended.
The last run ended 7.0 s ago after 30.0 s: timed out, by signal 15.
A run has lasted for 2.0 s.
A change waits to be handed to it.
)");
  EXPECT_EQ(
      shown("on-change", R"({"command": "install", "timeLimit": 30, "runningFor": null, "waiting": false,
    "succeeded": 2, "failed": 0, "timedOut": 1, "lastRun": null, "helperRestarts": 1, "helperEnded": true})"),
      R"(
Change command: install
2 runs succeeded, 0 failed, 1 took longer than 30.0 s and was ended.
Its helper process has died and was started again: 1 time.
Its helper process has ended: it does not run any more; restart the agent.
)");
}

TEST(ShowTablesTest, EachKindOfChangeHasItsWords) {
  std::string const bsr =
      R"("bsr": {"address": "10.0.0.1", "priority": 10, "hashMaskLen": 30}, "own": true, )";
  std::string const former =
      R"("formerBsr": {"address": "10.0.0.9", "priority": 9, "hashMaskLen": 4}, "formerOwn": false, )";
  std::string const same =
      R"("formerBsr": {"address": "10.0.0.1", "priority": 9, "hashMaskLen": 30}, "formerOwn": true, )";
  std::string const other =
      R"("formerBsr": {"address": "10.0.0.1", "priority": 10, "hashMaskLen": 30}, "formerOwn": false, )";
  std::string const ours =
      R"("formerBsr": {"address": "10.0.0.9", "priority": 10, "hashMaskLen": 30}, "formerOwn": true, )";
  std::string const taken =
      R"("bsr": {"address": "10.0.0.1", "priority": 10, "hashMaskLen": 30}, "own": false, )";
  std::string const rp = R"("rp": {"range": "239.1.0.0/16", "address": "10.0.0.2", "priority": 5,
    "holdtime": 150, "bidirectional": true}, )";
  std::string const formerRp = R"("formerRp": {"range": "239.1.0.0/16", "address": "10.0.0.2", "priority": 6,
    "holdtime": 150, "bidirectional": false}, )";
  std::string const timer = R"("cause": {"kind": "timer"})";
  std::vector<std::pair<std::string, std::string>> cases = {
      {R"("event": "bsrChanged", )" + bsr + former + timer,
       "BSR changed  10.0.0.1 (this router), priority 10, hash mask length 30; was 10.0.0.9, priority 9, "
       "hash "
       "mask length 4  timer"},
      {R"("event": "bsrChanged", )" + bsr + same + timer,
       "BSR changed  10.0.0.1 (this router), priority 10; was priority 9  timer"},
      {R"("event": "bsrChanged", )" + bsr + other + timer,
       "BSR changed  10.0.0.1 (this router), priority 10; was another router  timer"},
      {R"("event": "bsrChanged", )" + taken + ours + timer,
       "BSR changed  10.0.0.1, priority 10; was 10.0.0.9 (this router)  timer"},
      {R"("event": "bsrChanged", )" + taken + same + timer,
       "BSR changed  10.0.0.1, priority 10; was this router, priority 9  timer"},
      {R"("event": "bsrElected", )" + taken + timer, "BSR elected  10.0.0.1, priority 10  timer"},
      {R"("event": "bsrLost", )" + bsr + timer, "BSR lost  10.0.0.1 (this router)  timer"},
      {R"("event": "rpAdded", )" + rp + timer,
       "RP added  10.0.0.2 for 239.1.0.0/16, priority 5, holdtime 150 s, bidirectional  timer"},
      {R"("event": "rpUpdated", )" + rp + formerRp + timer,
       "RP updated  10.0.0.2 for 239.1.0.0/16, priority 5, holdtime 150 s, bidirectional; was priority 6, "
       "holdtime 150 s  timer"},
      {R"("event": "rpRemoved", )" + rp + timer, "RP removed  10.0.0.2 for 239.1.0.0/16  timer"},
      {R"("event": "rpExpired", )" + rp + timer, "RP expired  10.0.0.2 for 239.1.0.0/16  timer"},
      {R"("event": "rpSetChanged", "rps": {"added": 12, "updated": 0, "removed": 3, "expired": 0},
        "firstRps": ["10.0.0.2", "10.0.0.3"], "moreRps": false, )" +
           timer,
       "RP set  12 added, 3 removed: 10.0.0.2, 10.0.0.3  timer"},
      {R"("event": "candidateState", "state": "Pending-BSR", "formerState": null,
        "cause": {"kind": "configuration"})",
       "state  Pending-BSR  configuration"},
      {R"("event": "candidateState", "state": "Elected-BSR", "formerState": "Pending-BSR", )" + timer,
       "state  Elected-BSR; was Pending-BSR  timer"},
      {R"("event": "candidateState", "state": null, "formerState": "Elected-BSR", "cause": {"kind": "stop"})",
       "state  candidacy ended; was Elected-BSR  stop"},
      {R"("event": "later", "cause": {"kind": "kernel"})", "later           interfaces or routes"}};
  for (auto const& [members, text] : cases) EXPECT_EQ(detailsOf(members), text);
}

// The configuration -----------------------------------------------------------------------------------

TEST(ShowTablesTest, ConfigurationIsTheFile) {
  EXPECT_EQ(shown("config", R"({"file": "[timers]\nbs-timeout = 130\n", "settings": {}})"),
            "\n[timers]\nbs-timeout = 130\n");
}

}  // namespace
}  // namespace pimbsr::cli

"""Scenario tests of routers on the real kernel, each in namespaces of its own.

Usage: lab_test.py PIMBSR [SCENARIO...]. Where no lab can run it exits with 77, or, where
PIMBSR_LAB_REQUIRED requires it (tests/support/needs.py), with 1."""

import json
import os
import pathlib
import re
import select
import signal
import subprocess
import sys
import unittest

from lab import TYPES, Lab, LabError, run, wait_until, why_not
from relay import Relay, flood

for _folder in ("support", "view"):
    sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / _folder))
from needs import end_without  # noqa: E402  found by the lines before
from schema_test import validators  # noqa: E402

GLOBAL = "224.0.0.0/4"
SCOPED = "239.1.0.0/16"
COMMAND = ""
# Access lists of zones and senders, for what a router has with them alone.
LISTS = """[filter]
sender-lists = ["all"]
[access-list.all]
rules = [{action = "permit", prefix = "0.0.0.0/0"}]
[access-list.zones]
rules = [{action = "permit", prefix = "239.3.0.0/16"}]
"""


def candidate_bsr(interface="lo", groups=(GLOBAL,), **terms):
    return candidate("candidate-bsr", interface, groups, terms)


def candidate_rp(interface="lo", groups=(GLOBAL,), **terms):
    return candidate("candidate-rp", interface, groups, terms)


def candidate(kind, interface, groups, terms):
    lines = [f"[[{kind}]]", f'interface = "{interface}"', f"groups = {json.dumps(list(groups))}"]
    return "\n".join(lines + [f"{key.replace('_', '-')} = {value}" for key, value in terms.items()]) + "\n"


def zone(router, name=GLOBAL):
    return next((one for one in router.show("bsr")["zones"] if one["zone"] == name), None)


def bsr_of(router, name=GLOBAL):
    """Address of the BSR that a router has elected; None without one."""
    found = zone(router, name)
    return found["bsr"]["address"] if found and found["bsr"] else None


def rps_of(router, name=GLOBAL):
    """The RP set of a zone as {range: [addresses]}."""
    for one in router.show("rp-set")["zones"]:
        if one["zone"] == name:
            return {each["range"]: sorted(rp["address"] for rp in each["rps"]) for each in one["rpSet"]}
    return {}


def neighbors_of(router):
    return sorted(one["address"] for one in router.show("neighbors")["neighbors"])


def received_by(router, interface, kind):
    """How many messages of a kind have come in by an interface."""
    found = next(one for one in router.show("interfaces")["interfaces"] if one["interface"] == interface)
    return found["traffic"].get(kind, {}).get("received", 0)


def compared(*routers):
    """What the command says of several routers."""
    words = [COMMAND, "compare", "--json", *(f"{router.name}={router.socket}" for router in routers)]
    return json.loads(subprocess.run(words, capture_output=True, text=True, check=False).stdout)


def drops_of(router):
    """Dropped messages by reason."""
    counts = {}
    for row in router.show("drops")["drops"]:
        counts[row["reason"]] = counts.get(row["reason"], 0) + row["count"]
    return counts


def wait_all(routers, reader, expected, what, seconds=20):
    """Waits until `reader` finds the same with each router."""
    def holds():
        return all(reader(router) == expected for router in routers)
    try:
        wait_until(holds, what, seconds)
    except LabError as error:
        found = {router.name: reader(router) for router in routers}
        raise LabError(f"{error}: expected {expected}, found {found}") from None


def events_until(stream, wanted, seconds=20):
    """Reads lines of JSON until one reports an event; returns all events."""
    return members_until(stream, "event", wanted, seconds)


def members_until(stream, name, wanted, seconds=20):
    """Reads lines of JSON until one has a member; returns that member of all. It reads the received lines
    before it waits for more: several lines may come at once."""
    text = b""
    while True:
        events = [json.loads(line)[name] for line in text.split(b"\n")[:-1]]
        if wanted in events:
            return events
        if not select.select([stream], [], [], seconds)[0]:
            raise LabError(f"waited {seconds} s in vain for {wanted} after {events}")
        text += os.read(stream.fileno(), 65536)


class LabTest(unittest.TestCase):
    def lab(self, records=True, **options):
        """A lab that ends with its scenario. Its packets are recorded from the first start of a
        router on and checked in the end, unless a scenario sends malformed packets itself."""
        lab = Lab(COMMAND, records=records, **options)
        self.addCleanup(self.end, lab)
        return lab

    def end(self, lab):
        failed = any(error for _, error in self._outcome.result.failures + self._outcome.result.errors)
        try:
            if failed:
                lab.report()
            elif lab.records:
                self.check_packets(lab.packets())
        finally:
            lab.close()

    def check_packets(self, rows):
        """The dissector has nothing to say against any packet, and each is marked as it must be."""
        for source, destination, ttl, tos, kind, checksum, malformed, complaint in rows:
            row = (source, destination, kind)
            self.assertIn(kind, TYPES, row)
            self.assertEqual(("1", "", ""), (checksum, malformed, complaint), row)
            self.assertEqual("0xc0", tos, row)
            if destination == "224.0.0.13":
                self.assertEqual("1", ttl, row)

    # Elections and RP sets ---------------------------------------------------------------------------

    def test_chain(self):
        """Along a chain all learn the same RP set; every packet is read without a complaint."""
        lab = self.lab()
        (r1, r2, r3), links = lab.chain("r1", "r2", "r3")
        r1.config(candidate_bsr(priority=100))
        r2.config(candidate_bsr(priority=50) + candidate_rp(priority=10))
        r3.config(candidate_rp(priority=20))
        lab.start()
        wait_all((r1, r2, r3), bsr_of, "10.255.0.1", "all follow r1")
        wait_all((r1, r2, r3), rps_of, {GLOBAL: ["10.255.0.2", "10.255.0.3"]}, "all know both RPs")
        self.assertEqual("Elected-BSR", zone(r1)["state"])
        self.assertEqual("Candidate-BSR", zone(r2)["state"])
        self.assertEqual("Accept Preferred", zone(r3)["state"])
        for router in (r1, r2, r3):
            self.assertEqual("10.255.0.2", router.show("rp", "239.9.9.9")["rp"])
        self.assertEqual(set(TYPES), {row[4] for row in lab.packets()})

    def test_distant_rp(self):
        """Advertisements of a candidate RP two hops away reach the BSR by the routes, and end with it."""
        lab = self.lab()
        (r1, r2, r3), links = lab.chain("r1", "r2", "r3")
        r1.config(candidate_bsr())
        r3.config(candidate_rp(groups=[SCOPED, "239.2.0.0/16"], c_rp_adv_period=10))
        lab.start()
        ranges = {SCOPED: ["10.255.0.3"], "239.2.0.0/16": ["10.255.0.3"]}
        wait_all((r1, r2), rps_of, ranges, "r3's offer has come back")
        self.assertGreater(received_by(r1, "eth-r2", "crpAdv"), 0)
        r3.stop()
        wait_all((r1, r2), rps_of, {}, "the RP that stopped has gone")

    def test_lan(self):
        """On a LAN the DR sends newcomers the RP set, and another one does so when it has gone."""
        lab = self.lab()
        a, b, c, d = (lab.router(name) for name in "abcd")
        lab.lan(a, b, c, d)
        a.config(candidate_bsr("lan", priority=9, bs_period=600) + candidate_rp("lan"))
        for router, priority in ((b, 5), (c, 4), (d, 3)):
            router.config()
            router.amend("lan", f"dr-priority = {priority}")
        lab.start(a, b, c)
        def dr(router):
            return router.show("interfaces")["interfaces"][0]["dr"]
        wait_all((a, b, c), dr, "10.0.1.2", "b is DR")
        wait_all((a, b, c), bsr_of, "10.0.1.1", "all follow a")
        b.kill()
        wait_all((a, c), dr, "10.0.1.3", "c is DR, since b was silent")
        d.start()
        wait_all((d,), bsr_of, "10.0.1.1", "d learned the BSR, long before its next message")
        wait_all((d,), rps_of, {GLOBAL: ["10.0.1.1"]}, "d learned the RP set at once")
        b.start()
        wait_all((a, b, c, d), dr, "10.0.1.2", "b is DR again")

    def test_scopes(self):
        """A scope zone ends at its border and has a BSR on each side; the global zone has one."""
        lab = self.lab()
        (r1, r2, r3), links = lab.chain("r1", "r2", "r3")
        r1.config(candidate_bsr(groups=[GLOBAL, SCOPED], priority=100) + candidate_rp(groups=[SCOPED]))
        r2.config()
        r2.amend("eth-r3", f'border = ["{SCOPED}"]')
        r3.config(candidate_bsr(groups=[GLOBAL, SCOPED], priority=50) + candidate_rp(groups=[SCOPED]))
        lab.start()
        wait_all((r1, r2, r3), bsr_of, "10.255.0.1", "all follow r1 in the global zone")
        wait_all((r1, r2), lambda router: bsr_of(router, SCOPED), "10.255.0.1", "r1 leads before the border")
        wait_all((r3,), lambda router: bsr_of(router, SCOPED), "10.255.0.3", "r3 leads beyond the border")
        wait_all((r1, r2), lambda router: rps_of(router, SCOPED), {SCOPED: ["10.255.0.1"]}, "r1's zone")
        wait_all((r3,), lambda router: rps_of(router, SCOPED), {SCOPED: ["10.255.0.3"]}, "r3's zone")
        wait_until(lambda: "border" in drops_of(r2), "r2 has dropped what came over the border")

    # Failures ----------------------------------------------------------------------------------------

    def test_takeover(self):
        """When the BSR is killed, the next candidate takes over; when it is back, so is its rule."""
        lab = self.lab()
        (r1, r2, r3), links = lab.chain("r1", "r2", "r3")
        r1.config(candidate_bsr(priority=100))
        r2.config(candidate_bsr(priority=50) + candidate_rp())
        r3.config()
        lab.start()
        wait_all((r1, r2, r3), bsr_of, "10.255.0.1", "all follow r1")
        wait_all((r3,), rps_of, {GLOBAL: ["10.255.0.2"]}, "r3 knows the RP")
        r1.kill()
        wait_all((r2, r3), bsr_of, "10.255.0.2", "r2 has taken over")
        wait_all((r3,), rps_of, {GLOBAL: ["10.255.0.2"]}, "the new BSR announces the RP as well")
        r1.start()
        wait_all((r1, r2, r3), bsr_of, "10.255.0.1", "r1 leads again")
        wait_until(lambda: zone(r1)["state"] == "Elected-BSR", "r1 is the BSR of the others")
        causes = [entry["event"] for entry in r3.show("history")["entries"]]
        self.assertGreaterEqual(causes.count("bsrChanged") + causes.count("bsrElected"), 3)

    def test_stop_and_restart(self):
        """A router ends within a second and says so; one that was killed learns anew from its neighbors."""
        lab = self.lab()
        (r1, r2), links = lab.chain("r1", "r2")
        r1.config(candidate_bsr() + candidate_rp())
        lab.start()
        wait_all((r2,), rps_of, {GLOBAL: ["10.255.0.1"]}, "r2 knows the RP")
        history = r2.folder / "history.jsonl"
        wait_until(lambda: history.exists() and "bsrElected" in history.read_text(),
                   "r2 has kept its history")
        r2.kill()
        r2.start()
        wait_all((r2,), rps_of, {GLOBAL: ["10.255.0.1"]}, "r2 has learned anew")
        entries = [entry for entry in r2.show("history")["entries"] if entry["event"] == "bsrElected"]
        elections = sum(entry.get("count", 1) for entry in entries)
        self.assertGreaterEqual(elections, 2, "the kept one and the new one, which may be one entry")
        self.assertLess(r2.stop(), 1 if not lab.wrapper else 10)
        wait_all((r1,), neighbors_of, [], "r2 has sent its goodbye")
        self.assertFalse(r2.socket.exists())

    def test_link_down_and_up(self):
        """Routers beyond a link that is down expire, and come back with the link."""
        lab = self.lab()
        (r1, r2, r3), (near, far) = lab.chain("r1", "r2", "r3")
        r1.config(candidate_bsr() + candidate_rp())
        lab.start()
        wait_all((r2, r3), rps_of, {GLOBAL: ["10.255.0.1"]}, "all know the RP")
        near.set(r1, "down")
        wait_all((r2,), neighbors_of, ["10.0.2.2"], "r2 has lost r1")
        wait_all((r2, r3), bsr_of, None, "the BSR has expired")
        wait_all((r2, r3), rps_of, {}, "the RP set has expired")
        near.set(r1, "up")
        wait_all((r2, r3), bsr_of, "10.255.0.1", "the BSR is back")
        wait_all((r2, r3), rps_of, {GLOBAL: ["10.255.0.1"]}, "the RP set is back")

    def test_address_changed(self):
        """Candidates follow the address of their interface."""
        lab = self.lab()
        (r1, r2, r3), links = lab.chain("r1", "r2", "r3")
        r1.config(candidate_bsr("eth-r2") + candidate_rp("eth-r2"))
        lab.start()
        wait_all((r2, r3), rps_of, {GLOBAL: ["10.0.1.1"]}, "all know the RP by its first address")
        r1.ip("addr", "add", "10.0.1.77/24", "dev", "eth-r2")
        r1.ip("addr", "del", "10.0.1.1/24", "dev", "eth-r2")
        r1.ip("addr", "replace", "10.0.1.77/24", "dev", "eth-r2")
        r1.addresses["eth-r2"] = "10.0.1.77/24"
        lab.write_routes()
        wait_all((r1, r2, r3), bsr_of, "10.0.1.77", "all follow the new address")
        wait_all((r1, r2, r3), rps_of, {GLOBAL: ["10.0.1.77"]}, "the RP has its new address alone")
        wait_all((r2,), neighbors_of, ["10.0.1.77", "10.0.2.2"], "the former address has sent its goodbye")

    def test_small_mtu(self):
        """An RP set that no packet holds crosses links of 576 bytes in fragments that all fit."""
        lab = self.lab()
        r1, r2, r3 = (lab.router(name) for name in ("r1", "r2", "r3"))
        for number, router in enumerate((r1, r2, r3), 1):
            router.loopback(f"10.255.0.{number}")
        lab.link(r1, r2, mtu=576)
        lab.link(r2, r3, mtu=576)
        lab.write_routes()
        groups = [f"239.{n}.0.0/16" for n in range(1, 121)]
        r1.config(candidate_bsr())
        r2.config(candidate_rp(groups=groups))
        r3.config(candidate_rp(groups=groups))
        lab.start()
        expected = {group: ["10.255.0.2", "10.255.0.3"] for group in groups}
        wait_all((r1, r2, r3), rps_of, expected, "all know 120 ranges with two RPs each")
        lab.packets()
        for link in lab.links:
            longest = run("tshark", "-n", "-r", link.capture, "-T", "fields", "-e", "ip.len").split()
            self.assertLessEqual(max(map(int, longest)), 576)
            self.assertGreater(max(map(int, longest)), 400)

    def test_bad_wire(self):
        """A wire that drops, repeats, reorders and corrupts delays agreement and prevents nothing."""
        lab = self.lab(records=False)
        (r1, r2), links = lab.chain("r1", "r2")
        r3 = lab.router("r3")
        r3.loopback("10.255.0.3")
        relay = Relay(lab, r2, r3, seed=7)
        self.addCleanup(relay.close)
        lab.write_routes()
        r1.config(candidate_bsr(bs_period=10) + candidate_rp(c_rp_adv_period=10))
        lab.start()
        wait_all((r2, r3), bsr_of, "10.255.0.1", "r3 follows r1", 60)
        wait_all((r2, r3), rps_of, {GLOBAL: ["10.255.0.1"]}, "r3 knows the RP", 60)
        wait_until(lambda: drops_of(r3).get("checksum"), "corrupted packets were counted", 60)
        wait_until(lambda: min(relay.counts().values()) > 0, "the relay has done all it can", 60)

    def test_flood(self):
        """A flood of random PIM packets costs bounded memory, and no timer waits for it."""
        lab = self.lab(records=False, clock_rate=10)
        (r1, r2), links = lab.chain("r1", "r2")
        r1.config(candidate_bsr(bs_period=10) + candidate_rp(c_rp_adv_period=10))
        r2.config()
        lab.start()
        wait_all((r2,), rps_of, {GLOBAL: ["10.255.0.1"]}, "r2 knows the RP")
        before = memory_of(r2)
        sent = flood(r1, "eth-r2", seconds=3, seed=11)
        self.assertGreater(sent, 5000)
        self.assertTrue(r2.agent.is_running())
        self.assertLess(memory_of(r2) - before, 64 << 20)
        self.assertGreater(sum(drops_of(r2).values()), 1000)
        limited = [count for reason, count in drops_of(r2).items() if reason.endswith("rate-limit")]
        self.assertGreater(sum(limited) + drops_of(r2).get("checksum", 0), 1000)
        self.assertLess(r2.show("counters")["timers"]["worstLateness"], 1)
        wait_all((r2,), bsr_of, "10.255.0.1", "r2 still follows r1")

    # Operation ---------------------------------------------------------------------------------------

    def test_reload(self):
        """Another configuration takes effect while messages flow; one with an error changes nothing."""
        lab = self.lab()
        (r1, r2, r3), links = lab.chain("r1", "r2", "r3")
        r1.config(candidate_bsr(groups=[SCOPED]) + candidate_bsr("eth-r2", priority=10) + candidate_rp())
        lab.start()
        wait_all((r2, r3), bsr_of, "10.0.1.1", "all follow the interface's address")
        wait_all((r2, r3), lambda router: bsr_of(router, SCOPED), "10.255.0.1", "the zone has its BSR")
        # The ranges change places: each is released before it is claimed.
        r1.config(candidate_bsr("eth-r2", groups=[SCOPED]) + candidate_bsr(priority=20)
                  + candidate_rp(groups=[GLOBAL, "239.5.0.0/16"]))
        r1.command("reload")
        wait_all((r1, r2, r3), bsr_of, "10.255.0.1", "all follow the loopback's address")
        wait_all((r1, r2, r3), lambda router: bsr_of(router, SCOPED), "10.0.1.1", "the zone has moved")
        wait_all((r2, r3), rps_of, {GLOBAL: ["10.255.0.1"], "239.5.0.0/16": ["10.255.0.1"]}, "a new range")

        before = r1.command("show", "config")
        r1.file.write_text(r1.file.read_text() + '[[candidate-rp]]\ninterface = "lo"\npriority = 300\n')
        words = [COMMAND, "reload", "--socket", str(r1.socket)]
        failed = subprocess.run(words, capture_output=True, text=True)
        self.assertEqual(1, failed.returncode)
        self.assertIn("pimbsr.toml:", failed.stdout + failed.stderr)
        self.assertIn("300", failed.stdout + failed.stderr)
        self.assertEqual(before, r1.command("show", "config"))

        r1.config(candidate_bsr(priority=20))
        r1.agent.process.send_signal(signal.SIGHUP)
        wait_all((r2, r3), rps_of, {}, "the candidate RP was withdrawn")
        wait_all((r2, r3), lambda router: bsr_of(router, SCOPED), None, "the zone has no BSR any more")

    def test_tables(self):
        """Every view is printed as a table and as JSON, and shows the present state."""
        lab = self.lab()
        (r1, r2), links = lab.chain("r1", "r2")
        r1.config(candidate_bsr() + candidate_rp())
        lab.start()
        wait_all((r2,), rps_of, {GLOBAL: ["10.255.0.1"]}, "r2 knows the RP")
        shown = {"bsr": "Accept Preferred", "rp-set": "10.255.0.1", "candidates": "no",
                 "neighbors": "10.0.1.1", "interfaces": "eth-r1", "borders": "no", "filter": "every sender",
                 "counters": "bsm", "drops": "", "history": "10.255.0.1", "config": "[interface.eth-r1]"}
        for what, text in shown.items():
            self.assertIn(text.lower(), r2.command("show", what).lower(), what)
            self.assertTrue(r2.show(what), what)
        self.assertIn("10.255.0.1", r2.command("show", "rp", "239.1.1.1"))
        self.assertIn("lower priority wins", r2.command("show", "rp-set"))
        self.assertIn("higher wins", r2.command("show", "bsr"))

    def test_compare(self):
        """Routers that agree have one digest; one that is cut off has another, and the reason is named."""
        lab = self.lab()
        (r1, r2, r3), (_, far) = lab.chain("r1", "r2", "r3")
        r1.config(candidate_bsr() + candidate_rp())
        lab.start()
        wait_all((r2, r3), rps_of, {GLOBAL: ["10.255.0.1"]}, "all know the RP")
        digests = {zone(router)["digest"] for router in (r1, r2, r3)}
        self.assertEqual([8], [len(digest) for digest in digests])
        same = compared(r1, r2, r3)
        self.assertTrue(same["agree"])
        schemas = pathlib.Path(COMMAND).resolve().parent / "zet" / "schema"
        validators(schemas)["compare"].validate(same)
        far.set(r3, "down")
        wait_all((r3,), bsr_of, None, "r3 has lost the BSR")
        found = compared(r1, r2, r3)
        self.assertFalse(found["agree"])
        rows = {one["router"]: (one["group"], one["why"]) for one in found["zones"][0]["routers"]}
        self.assertEqual({"r1": ("A", ""), "r2": ("A", ""), "r3": ("B", "no BSR: no neighbor")}, rows)

    def test_reload_without_interface(self):
        """A candidacy that goes together with its interface is withdrawn all the same."""
        lab = self.lab(clock_rate=20)
        (r1, r2), links = lab.chain("r1", "r2")
        r1.config(candidate_bsr(priority=100))
        r2.config(candidate_bsr(priority=50))
        lab.start()
        wait_all((r1, r2), bsr_of, "10.255.0.1", "all follow r1")
        r1.file.write_text(r1.file.read_text().replace("[interface.eth-r2]", "").split("[[")[0])
        r1.command("reload")
        wait_until(lambda: r2.show("interfaces")["interfaces"][0]["neighbors"] == 0, "r1 has gone")
        wait_until(lambda: (zone(r2)["bsr"] or {}).get("own"), "r2 leads before BS_Timeout is over", 4)

    def test_lost_log(self):
        """A standard error stream that is not read, or that takes nothing, blocks nothing."""
        lab = self.lab()
        (r1, r2), links = lab.chain("r1", "r2")
        reading, writing = os.pipe()
        self.addCleanup(os.close, reading)
        for router, log in ((r1, writing), (r2, os.open("/dev/full", os.O_WRONLY))):
            router.config(candidate_bsr())
            router.start(log=log)
            os.close(log)
            for handle in ("Pim::Bsr::IO", "Pim::Bsr::CandidateSm", "Pim::Bsr::Sm", "Zet"):
                router.command("trace", handle, "9", check=False)
        wait_all((r1, r2), bsr_of, "10.255.0.2", "all follow r2")
        for router in (r1, r2):
            router.agent.process.send_signal(signal.SIGHUP)
            self.assertTrue(router.show("bsr")["zones"])
            self.assertLess(router.stop(), 1)

    def test_watch(self):
        """A watcher gets a line of JSON for each change, and traces and counters obey."""
        lab = self.lab()
        (r1, r2), links = lab.chain("r1", "r2")
        r1.config(candidate_bsr() + candidate_rp())
        r2.start()
        watch = self.watch(r2)
        r2.command("trace", "Pim::Bsr::IO", "9")
        r1.start()
        self.assertIn("bsrElected", events_until(watch.stdout, "rpAdded"))
        wait_until(lambda: "trace Pim::Bsr::IO" in r2.log.read_text(), "traces are written")
        r2.command("trace", "Pim::Bsr::IO", "off")
        self.assertIn('pimbsr_rp_set_rps{zone="224.0.0.0/4"} 1', r2.command("metrics"))
        r2.command("clear", "history")
        self.assertEqual([], r2.show("history")["entries"])
        known = validators(pathlib.Path(COMMAND).resolve().parent / "zet" / "schema")
        for name in ("version", "metrics", "reload"):
            self.assertEqual([], [error.message for error in known[name].iter_errors(r2.ask(name))])

    def watch(self, router, *words):
        """A running `pimbsr watch`."""
        words = [COMMAND, "watch", *words, "--socket", str(router.socket)]
        watch = subprocess.Popen(words, stdout=subprocess.PIPE)
        self.addCleanup(watch.wait)
        self.addCleanup(watch.kill)
        self.addCleanup(watch.stdout.close)
        return watch

    def test_model(self):
        """The tree of a router has all its entities and machines, and get takes each path of it."""
        lab = self.lab()
        (r1, r2), links = lab.chain("r1", "r2")
        zones = '["zones"]'
        r1.config(candidate_bsr(groups=[GLOBAL, SCOPED], lists=zones, priority=100)
                  + candidate_rp(lists=zones, priority=10) + LISTS)
        r1.amend("eth-r2", 'border = ["239.2.0.0/16"]\nborder-lists = ["zones"]')
        r2.config(candidate_bsr(groups=[GLOBAL, "239.4.0.0/16"], priority=50) + candidate_rp(groups=[SCOPED]))
        lab.start()
        wait_all((r1, r2), bsr_of, "10.255.0.1", "all follow r1")
        wait_all((r1, r2), lambda router: bsr_of(router, "239.4.0.0/16"), "10.255.0.2", "r2 leads a zone")
        wait_all((r1, r2), lambda router: GLOBAL in rps_of(router), True, "all know the RP")
        for router in (r1, r2):
            entries = json.loads(router.command("show", "tree", "--json"))["entries"]
            if router is r1:
                self.assertEqual(set(), classes_of_model() - classes_in(entries))
            wait_until(lambda router=router: get_takes_each_path(router), "get takes each path of the tree")
        path = f"status/bootstrapRouter['{GLOBAL}']/priority"
        self.assertEqual("100\n", r2.command("get", path))
        self.assertIn(f"{path} = 100\n", r2.command("show", "tree", "status/bootstrapRouter"))
        self.assertIsNone(r2.command("get", "status/bootstrapRuoter", check=False))

    def test_watch_path(self):
        """A watched value follows the router; a name that goes is reported, and its return."""
        lab = self.lab()
        (r1, r2), links = lab.chain("r1", "r2")
        r1.config(candidate_bsr(priority=100) + candidate_rp())
        lab.start()
        wait_all((r1, r2), bsr_of, "10.255.0.1", "all follow r1")
        priority = self.watch(r2, "--json", f"status/bootstrapRouter['{GLOBAL}']/priority")
        address = self.watch(r1, "--json", "status/crp['10.255.0.1']/address")
        self.assertEqual(["100"], members_until(priority.stdout, "value", "100"))
        self.assertEqual(["'10.255.0.1'"], members_until(address.stdout, "value", "'10.255.0.1'"))
        r1.config(candidate_bsr(priority=60))
        r1.command("reload")
        # The candidacy ends before the other begins, so that the zone may have no BSR for a moment.
        self.assertIn(members_until(priority.stdout, "value", "60"), (["60"], [None, "60"]))
        self.assertEqual([None], members_until(address.stdout, "value", None))
        r1.config(candidate_bsr(priority=60) + candidate_rp())
        r1.command("reload")
        members_until(address.stdout, "value", "'10.255.0.1'")

    def test_change_command(self):
        """The change command gets the RP set on its standard input, once for changes close together."""
        lab = self.lab()
        (r1, r2), links = lab.chain("r1", "r2")
        r1.config(candidate_bsr() + candidate_rp(groups=["239.1.0.0/16", "239.2.0.0/16"]))
        r1.start()
        result = r2.folder / "rp-set"
        r2.start("--on-change", f"cat > {result}.new && mv {result}.new {result}")
        seen = wait_until(lambda: result.exists() and json.loads(result.read_text()), "the command has run")
        def ranges():
            return len(json.loads(result.read_text())["zones"][0]["rpSet"])
        wait_until(lambda: ranges() == 2, "both ranges were reported")
        self.assertEqual(GLOBAL, seen["zones"][0]["zone"])

    def test_privileges(self):
        """A running router holds CAP_NET_RAW and nothing else, and can't get more."""
        lab = self.lab()
        r1 = lab.router("r1")
        r1.loopback("10.255.0.1")
        r1.start()
        status = status_of(r1)
        net_raw = f"{1 << 13:016x}"
        self.assertEqual([net_raw, net_raw], [status["CapEff"], status["CapPrm"]])
        self.assertEqual(f"{0:016x}", status["CapAmb"])
        self.assertEqual(["1", "2"], [status["NoNewPrivs"], status["Seccomp"]])
        r1.stop()
        held = run("ip", "netns", "exec", r1.namespace, COMMAND, "run", "--config", r1.file,
                   "--unprivileged-check")
        self.assertIn("net_raw", held)
        self.assertNotIn("net_admin", held)


def get_takes_each_path(router):
    """Whether get answers each path of the tree alike; packets may change some in between."""
    entries = json.loads(router.command("show", "tree", "--json"))["entries"]
    answers = router.answers([{"command": "get", "path": entry["path"]} for entry in entries])
    return all(answer["ok"] and all(answer["result"][key] == entry[key] for key in ("path", "type", "unit"))
               for entry, answer in zip(entries, answers, strict=True))


def classes_of_model():
    """All machines and entities, as the reference page has them."""
    page = (pathlib.Path(__file__).resolve().parents[2] / "docs" / "model.md").read_text()
    return set(re.findall(r"^## (\S+)\n\n(?:Machine|Entity)\.", page, re.MULTILINE))


def classes_in(entries):
    """The classes of which a tree has an object with its attributes."""
    paths = {entry["path"] for entry in entries}
    own = ("isNondestructing", "zetFwkActivity")
    return {entry["type"] for entry in entries if any(f"{entry['path']}/{name}" in paths for name in own)}


def status_of(router):
    pid = router.agent.process.pid
    lines = pathlib.Path(f"/proc/{pid}/status").read_text().splitlines()
    return {key: value.strip() for key, value in (line.split(":", 1) for line in lines)}


def memory_of(router):
    """Bytes that a router's process holds."""
    return int(status_of(router)["VmRSS"].split()[0]) << 10


def end_for(number, frame):
    """Ends as on an interrupt, so that labs are taken down."""
    sys.exit(f"ended by signal {number}")


def play(tests):
    """Plays the scenarios of a class that the command line names, after the command, or all of them."""
    global COMMAND
    signal.signal(signal.SIGTERM, end_for)
    COMMAND = sys.argv[1]
    if reason := why_not():
        end_without(reason, "PIMBSR_LAB_REQUIRED")
    scenarios = [f"{tests}.test_{scenario}" for scenario in sys.argv[2:]]
    unittest.main(argv=[sys.argv[0], *scenarios], verbosity=2)


if __name__ == "__main__":
    play("LabTest")

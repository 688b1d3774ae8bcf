"""Ten troubles of operation on the real kernel. Each is planted, and its cause is found with `pimbsr show`,
`pimbsr check` and the log alone, as docs/troubles.md describes.

Usage: trouble_test.py PIMBSR [SCENARIO...]. Where no lab can run it exits with 77, or, if
PIMBSR_LAB_REQUIRED is 1, with 1."""

import subprocess
import time
import unittest

import lab_test
from lab import run, wait_until
from lab_test import (GLOBAL, bsr_of, candidate_bsr, candidate_rp, drops_of, neighbors_of, rps_of, wait_all)


class TroubleTest(unittest.TestCase):
    lab, end, check_packets = lab_test.LabTest.lab, lab_test.LabTest.end, lab_test.LabTest.check_packets

    def chain_of(self, *names, **options):
        lab = self.lab(records=False, **options)
        return lab, *lab.chain(*names)

    def shows(self, router, what, text):
        """Waits until a view of a router has a text."""
        wait_until(lambda: text in router.command("show", *what.split()),
                   f"'{text}' in show {what} of {router.name}")

    def test_trouble_no_route(self):
        """A router without a route to the BSR drops its messages; show bsr names that."""
        lab, (r1, r2), links = self.chain_of("r1", "r2")
        r1.config(candidate_bsr())
        lab.start()
        wait_all((r2,), bsr_of, "10.255.0.1", "r2 follows r1")
        self.shows(r2, "bsr", "RPF neighbor      10.0.1.1 on eth-r1")
        r2.ip("route", "del", "10.255.0.1/32")
        self.shows(r2, "bsr", "RPF neighbor      none: no route to the BSR")
        self.shows(r2, "drops", "no-rpf-neighbor")
        wait_all((r2,), bsr_of, None, "r2 gives the BSR up")
        self.assertIn("BSR lost: 10.255.0.1", r2.log.read_text())

    def test_trouble_border(self):
        """A border keeps a zone out; drops and borders name interface and zone."""
        lab, (r1, r2), links = self.chain_of("r1", "r2")
        r1.config(candidate_bsr(groups=["239.1.0.0/16"]))
        r2.config()
        r2.amend("eth-r1", 'border = ["239.0.0.0/8"]')
        lab.start()
        wait_until(lambda: drops_of(r2).get("border"), "r2 drops at its border")
        self.assertIsNone(bsr_of(r2, "239.1.0.0/16"))
        self.assertRegex(r2.command("show", "borders"), r"eth-r1 +239\.0\.0\.0/8")
        self.assertRegex(r2.command("show", "filter"), r"Borders, .*: eth-r1\. Dropped .*: [1-9]")

    def test_trouble_filter(self):
        """A BSR that does not permit a candidate RP counts its advertisements and shows the sender."""
        lab, (r1, r2), links = self.chain_of("r1", "r2")
        r1.config(candidate_bsr() + '[filter]\nsender-lists = ["rps"]\n'
                  '[access-list.rps]\nrules = [{action = "permit", prefix = "192.0.2.0/24"}]\n')
        r2.config(candidate_rp())
        lab.start()
        wait_until(lambda: drops_of(r1).get("sender-filter"), "r1 drops the advertisements")
        self.assertEqual({}, rps_of(r2))
        self.assertIn("192.0.2.0/24", r1.command("show", "filter"))
        row = next(one for one in r1.show("drops")["drops"] if one["reason"] == "sender-filter")
        self.assertEqual("10.255.0.2", row["last"]["sender"])
        self.shows(r2, "candidates", "10.255.0.1")

    def test_trouble_wrong_address(self):
        """An address of another subnet is named by the neighbor's drops, and a candidate without a usable
        address by its own view."""
        lab, (r1, r2), links = self.chain_of("r1", "r2")
        r2.config(candidate_bsr())
        r2.ip("addr", "flush", "dev", "eth-r1")
        r2.ip("addr", "add", "10.99.0.2/24", "dev", "eth-r1")
        r2.ip("addr", "flush", "dev", "lo", "scope", "global")
        lab.start()
        wait_until(lambda: drops_of(r1).get("foreign-subnet"), "r1 drops what r2 sends")
        row = next(one for one in r1.show("drops")["drops"] if one["reason"] == "foreign-subnet")
        self.assertEqual("10.99.0.2", row["last"]["sender"])
        self.assertEqual([], neighbors_of(r1))
        self.shows(r2, "candidates", "lo waits: the interface has no IPv4 address")

    def test_trouble_flapping_link(self):
        """A link that flaps is in the log with its cause, and in the history as entries with counts."""
        lab, (r1, r2), links = self.chain_of("r1", "r2", clock_rate=20)
        r1.config(candidate_bsr(bs_period=10))
        r2.config("[timers]\nbs-timeout = 25\n")
        lab.start()
        wait_all((r2,), bsr_of, "10.255.0.1", "r2 follows r1")
        for _ in range(2):  # further lines about the interface are limited
            links[0].set(r2, "down")
            wait_until(lambda: not bsr_of(r2), "r2 has no BSR")
            wait_until(lambda: not neighbors_of(r2), "r2 has no neighbor")
            links[0].set(r2, "up")
            wait_until(lambda: neighbors_of(r2), "r2 has a neighbor")
            wait_all((r2,), bsr_of, "10.255.0.1", "r2 follows r1 again")
        wait_until(lambda: r2.log.read_text().count("interface eth-r1: down: the link is down") == 2,
                   "the log has each time")
        self.assertIn("interface eth-r1: up, with 10.0.1.2", r2.log.read_text())
        counts = {one["event"]: one["count"] for one in r2.show("history")["entries"] if "count" in one}
        self.assertEqual({"bsrLost": 2, "bsrElected": 3}, counts)

    def test_trouble_two_bsrs(self):
        """Two routers with two BSRs: a border lies between them, and the path on each side shows it."""
        lab, (r1, r2, r3), links = self.chain_of("r1", "r2", "r3")
        r1.config(candidate_bsr(priority=10))
        r3.config(candidate_bsr(priority=20))
        r2.config()
        r2.amend("eth-r3", f'border = ["{GLOBAL}"]')
        lab.start()
        wait_all((r2,), bsr_of, "10.255.0.1", "r2 follows r1")
        wait_all((r3,), bsr_of, "10.255.0.3", "r3 is its own BSR")
        self.shows(r2, "bsr", "learned from      10.0.1.1 on eth-r1")
        self.shows(r2, "borders", "eth-r3")
        wait_until(lambda: drops_of(r2).get("border"), "r2 drops what r3 announces")

    def test_trouble_rogue_bsr(self):
        """A BSR that none knows: show bsr names the neighbor and interface from which it comes; a list of
        BSRs and clear bsr remove it for good."""
        lab, (r1, r2, r3), links = self.chain_of("r1", "r2", "r3")
        permitted = '[filter]\nbsr-lists = ["bsrs"]\n[access-list.bsrs]\nrules = [{action = "permit", ' \
                    'prefix = "10.255.0.1/32"}]\n'
        r1.config(candidate_bsr(priority=10) + permitted)
        r3.config(candidate_bsr(priority=255))
        lab.start()
        wait_all((r2,), bsr_of, "10.255.0.3", "r2 follows the rogue BSR")
        self.shows(r2, "bsr", "learned from      10.0.2.2 on eth-r3")
        r2.config(permitted)
        r2.command("reload")
        r2.command("clear", "bsr")
        wait_all((r2,), bsr_of, "10.255.0.1", "r2 follows r1")
        wait_until(lambda: drops_of(r2).get("bsr-filter"), "r2 drops what the rogue BSR announces")
        self.assertIn("Bootstrap Messages are taken from the BSRs that these lists permit",
                      r2.command("show", "filter"))
        self.assertEqual("10.255.0.1", bsr_of(r2))

    def test_trouble_mtu(self):
        """A link whose ends have different MTUs loses long messages: both are neighbors, and the MTUs of
        their interfaces differ."""
        lab = self.lab(records=False)
        r1, r2 = lab.router("r1"), lab.router("r2")
        r1.loopback("10.255.0.1")
        lab.link(r1, r2)
        lab.write_routes()
        r2.ip("link", "set", "eth-r1", "mtu", 600)
        ranges = [f"239.1.{number}.0/24" for number in range(40)]
        r1.config(candidate_bsr() + candidate_rp(groups=ranges))
        lab.start()
        wait_all((r1,), lambda router: len(rps_of(router)), 40, "r1 has all RPs")
        wait_until(lambda: neighbors_of(r2) == ["10.0.1.1"], "both are neighbors")
        self.assertNotEqual(40, len(rps_of(r2)))
        mtus = [router.show("interfaces")["interfaces"][0]["mtu"] for router in (r1, r2)]
        self.assertEqual([1500, 600], mtus)
        self.assertRegex(r2.command("show", "interfaces"), r"eth-r1 +up +10\.0\.1\.2 +600")
        r2.ip("link", "set", "eth-r1", "mtu", 1500)
        wait_all((r2,), lambda router: len(rps_of(router)), 40, "r2 has all RPs")

    def test_trouble_duplicate_address(self):
        """Another system with the address of an interface is counted there, and the log names its hardware
        address."""
        lab, (r1, r2), links = self.chain_of("r1", "r2", clock_rate=1)
        r1.ip("address", "flush", "dev", "eth-r2")
        r1.ip("address", "add", "10.0.1.2/24", "dev", "eth-r2")
        r1.ip("link", "set", "eth-r2", "address", "02:00:00:00:00:09")
        r1.config()
        r1.amend("eth-r2", "hello-interval = 1")  # the first one may come before r2 listens
        lab.start()
        wait_until(lambda: r2.show("interfaces")["interfaces"][0]["duplicates"] > 0, "it is counted")
        text = ("interface eth-r1: 10.0.1.2 is also the address of another system with hardware address "
                "02:00:00:00:00:09")
        wait_until(lambda: text in r2.log.read_text(), "it is logged")
        self.assertEqual([], neighbors_of(r2))
        time.sleep(2)
        self.assertEqual(1, r2.log.read_text().count(text), "it is logged once")

    def test_trouble_dead_hook(self):
        """A change command that fails is shown with its status, and logged."""
        lab, (r1, r2), links = self.chain_of("r1", "r2")
        r1.config(candidate_bsr() + candidate_rp())
        r1.start()
        r2.start("--on-change", "exit 3")
        wait_all((r2,), rps_of, {GLOBAL: ["10.255.0.1"]}, "r2 knows the RP")
        self.shows(r2, "on-change", "failed, with status 3")
        wait_until(lambda: "the change command" in r2.log.read_text(), "it is logged")

    def test_trouble_full_disk(self):
        """A disk without space is named by show history and the log, and nothing else suffers."""
        lab, (r1, r2), links = self.chain_of("r1", "r2")
        state = r2.folder / "state"
        state.mkdir()
        run("mount", "-t", "tmpfs", "-o", "size=16k", "tmpfs", state)
        self.addCleanup(run, "umount", "-l", state)
        r2.config()
        text = r2.file.read_text()
        r2.file.write_text(text.replace(f'directory = "{r2.folder}"', f'directory = "{state}"'))
        r1.config(candidate_bsr())
        r2.start()
        r1.start()
        wait_all((r2,), bsr_of, "10.255.0.1", "r2 follows r1")
        r2.command("clear", "history")
        time.sleep(2)  # the writer has written what was left
        with (state / "filler").open("wb", buffering=0) as file:
            try:
                while file.write(b"x" * 512):
                    pass
            except OSError:
                pass
        r1.stop()
        self.shows(r2, "history", "No space left")
        wait_until(lambda: "the history is not kept" in r2.log.read_text(), "it is logged")

    def test_trouble_seen_before(self):
        """What will not work is named by check before it is applied: a list that is not there, a border of a
        closed interface."""
        lab, (r1, r2), links = self.chain_of("r1", "r2")
        r1.config('[filter]\nbsr-lists = ["none"]\n')
        r1.amend("eth-r2", 'bsm = false\nborder = ["239.0.0.0/8"]')
        done = subprocess.run([str(lab.command), "check", str(r1.file)], capture_output=True, text=True)
        for text in ("filter.bsr-lists: none: there is no such list yet", "its borders are of no use",
                     "bsm is false on every interface"):
            self.assertIn(text, done.stdout + done.stderr)


if __name__ == "__main__":
    lab_test.play("TroubleTest")

"""The live page of `pimbsr web` in a headless Chromium, over routers in network namespaces.

Usage: live_test.py PIMBSR [FOLDER]: the built command, and a folder for screenshots. Exits with 77 where
Chromium is not installed or no lab can run, unless PIMBSR_WEB_REQUIRED or PIMBSR_LAB_REQUIRED is set."""

import os
import pathlib
import subprocess
import sys
import unittest

from browser import Browser, find_chromium

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "lab"))
from lab import Lab, wait_until, why_not  # noqa: E402  found by the line before

PIMBSR = pathlib.Path(sys.argv[1]).resolve()
SHOTS = pathlib.Path(sys.argv[2]) if len(sys.argv) > 2 else None
BSR = '[[candidate-bsr]]\ninterface = "lo"\npriority = {}\n'
RP = '[[candidate-rp]]\ninterface = "lo"\npriority = {}\n'


def rps_of(router):
    zones = router.show("bsr")["zones"]
    return zones[0]["rps"] if zones and zones[0]["bsr"] else None


class LiveTest(unittest.TestCase):
    def setUp(self):
        self.lab = Lab(PIMBSR)
        self.addCleanup(self.lab.close)
        (self.r1, self.r2), (self.link,) = self.lab.chain("r1", "r2")
        self.r1.config(BSR.format(100) + RP.format(20))
        self.r2.config(RP.format(10))
        self.lab.start()
        for router in (self.r1, self.r2):
            wait_until(lambda: rps_of(router) == 2, f"{router.name} knows both RPs")  # pylint: disable=W0640
        words = [PIMBSR, "web", "--listen", "127.0.0.1:0"]
        for router in (self.r1, self.r2):
            words += ["--agent", f"{router.name}={router.socket}"]
        self.server = subprocess.Popen(words, stdout=subprocess.PIPE, text=True)
        self.addCleanup(self.end_server)
        self.url = self.server.stdout.readline().split()[1]
        self.browser = Browser().__enter__()
        self.addCleanup(self.browser.__exit__)

    def end_server(self):
        self.server.terminate()
        self.server.wait(10)
        self.server.stdout.close()

    def shot(self, name):
        if SHOTS:
            self.browser.screenshot(SHOTS / f"{name}.png")

    def until_text(self, selector, wanted, seconds=30):
        text = f"document.querySelector('{selector}').innerText"
        self.browser.until(f"{text}.includes('{wanted}')", seconds)

    def show(self, router):
        self.browser.run(f"pimbsr.show({{router: '{router}'}})")

    def expect_quiet(self):
        """No error, and no request to outside."""
        self.assertEqual(self.browser.errors, [])
        self.assertEqual({url for url in self.browser.requests if not url.startswith(self.url)}, set())

    def test_changes_are_seen_while_they_happen(self):
        self.browser.visit(self.url)
        self.until_text("#legend", "10.255.0.1 (r1)")
        self.until_text("#comparison", "All agree on 224.0.0.0/4")
        self.assertEqual(self.browser.run("pimbsr.app.model.links.map((link) => link.name)"), ["10.0.1.0/24"])
        self.show("r1")
        self.until_text("#panel", "10.255.0.2")
        self.assertEqual(self.browser.run("document.getElementById('clock').textContent"), "now")
        self.shot("live")
        # The RP of r2 is withdrawn while the page looks.
        self.r2.config("")
        self.r2.command("reload")
        self.until_text("#panel", "RP expired: 10.255.0.2")
        self.browser.until("!pimbsr.app.routers.get('r1').rps.has('224.0.0.0/4 224.0.0.0/4 10.255.0.2')")
        self.shot("withdrawn")
        self.expect_quiet()

    def test_agents_that_differ_or_are_gone_are_seen(self):
        self.browser.expected = "503"  # of a view of an agent that is about to go
        self.browser.visit(self.url)
        self.until_text("#comparison", "All agree")
        self.link.set(self.r1, "down")
        self.until_text("#comparison", "Not all agree", 60)
        self.until_text("#panel", "no BSR: no neighbor", 60)
        self.shot("cut")
        self.link.set(self.r1, "up")
        self.until_text("#comparison", "All agree", 60)
        self.r2.stop()
        self.until_text("#legend", "stopped: 1")
        self.shot("gone")
        self.r2.start()
        self.browser.until("!document.getElementById('legend').innerText.includes('stopped')", 60)
        self.expect_quiet()


if __name__ == "__main__":
    if not find_chromium():
        print("chromium is not installed; scripts/setup --tests installs it")
        sys.exit(1 if os.environ.get("PIMBSR_WEB_REQUIRED") else 77)
    if reason := why_not():
        print(f"skipped: {reason}")
        sys.exit(1 if os.environ.get("PIMBSR_LAB_REQUIRED") else 77)
    unittest.main(argv=sys.argv[:1])

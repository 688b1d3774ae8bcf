"""The live page of `pimbsr web` in a headless Chromium, over routers in network namespaces.

Usage: live_test.py PIMBSR [FOLDER]: the built command, and a folder for screenshots. Exits with 77 where
Chromium is not installed or no lab can run, unless PIMBSR_WEB_REQUIRED or PIMBSR_LAB_REQUIRED is 1."""

import json
import os
import pathlib
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.parse
import urllib.request

from agents import GLOBAL, FakeAgent, bsr_view
from browser import Browser, find_chromium

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "lab"))
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
from lab import Lab, run, wait_until, why_not  # noqa: E402  found by the lines before
from needs import end_without  # noqa: E402

PIMBSR = pathlib.Path(sys.argv[1]).resolve()
SHOTS = pathlib.Path(sys.argv[2]) if len(sys.argv) > 2 else None
BSR = '[[candidate-bsr]]\ninterface = "lo"\npriority = {}\n'
RP = '[[candidate-rp]]\ninterface = "lo"\npriority = {}\n'


def rps_of(router):
    zones = router.show("bsr")["zones"]
    return zones[0]["rps"] if zones and zones[0]["bsr"] else None


class PageOfAgentsTest(unittest.TestCase):
    """The page over agents that only answer."""

    def start(self, count):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        paths = [pathlib.Path(folder.name) / f"r{number}.sock" for number in range(1, count + 1)]
        self.agents = [FakeAgent(path) for path in paths]
        words = [word for path in paths for word in ("--agent", f"{path.stem}={path}")]
        self.server = subprocess.Popen([PIMBSR, "web", "--listen", "127.0.0.1:0", *words],
                                       stdout=subprocess.PIPE, text=True)
        self.addCleanup(self.end_server)
        self.url = self.server.stdout.readline().split()[1]
        self.browser = Browser().__enter__()
        self.addCleanup(self.browser.__exit__)

    def end_server(self):
        for agent in self.agents:
            agent.delay.set()
        self.server.terminate()
        self.server.wait(10)
        self.server.stdout.close()

    def until_legend(self, text, seconds=10):
        legend = "document.getElementById('legend').innerText.replace(/\\n/g, '')"
        self.browser.until(f"{legend}.includes('{text}')", seconds)

    def test_agent_that_hangs_delays_no_other(self):
        self.start(8)
        for agent in self.agents[2:]:
            agent.delay.clear()
        self.browser.expected = "503"
        start = time.monotonic()
        self.browser.visit(self.url)
        self.until_legend("10.0.0.1: 2", 20)  # six agents that hang would take 30 seconds in turn
        self.assertLess(time.monotonic() - start, 20)
        start = time.monotonic()
        self.agents[0].answers["bsr"] = bsr_view("10.0.0.9")
        self.agents[0].publish({"event": "bsrChanged", "zone": GLOBAL, "time": 1.0,
                                "bsr": {"address": "10.0.0.9", "priority": 1, "hashMaskLen": 30}})
        self.until_legend("10.0.0.9: 1", 20)
        self.assertLess(time.monotonic() - start, 20)
        for agent in self.agents:
            agent.delay.set()
        self.until_legend("10.0.0.1: 7", 40)

    def test_agent_without_a_first_answer_is_asked(self):
        self.start(2)
        for agent in self.agents:
            agent.delay.clear()
        self.browser.expected = "503"
        self.browser.visit(self.url)
        self.until_legend("asked: 2")
        status = "pimbsr.app.lens.at(pimbsr.app.routers.get('r1'), pimbsr.app.model.end)"
        self.assertEqual(self.browser.run(status),
                         {"stopped": True, "asked": True, "unknown": False, "item": None, "own": False,
                          "kept": False})
        self.browser.run("pimbsr.show({router: 'r1'})")
        self.assertIn("asked", self.browser.run("document.querySelector('#panel p').innerText"))
        self.until_legend("does not answer: 2", 20)
        legend = self.browser.run("document.getElementById('legend').innerText")
        self.assertNotIn("asked", legend)
        for agent in self.agents:
            agent.delay.set()
        self.until_legend("10.0.0.1: 2", 40)

    def test_rp_that_an_agent_keeps_is_marked(self):
        self.start(1)
        rp = {"address": "10.0.0.4", "priority": 10, "holdtime": 180, "bidirectional": False,
              "expiresIn": 90.0, "kept": True}
        self.agents[0].answers["rp-set"] = {
            "zones": [{"zone": GLOBAL, "rpSet": [{"range": GLOBAL, "rps": [rp]}]}]}
        self.browser.visit(self.url)
        self.until_legend("10.0.0.1: 1")
        self.browser.run("pimbsr.show({router: 'r1'})")
        self.browser.until("document.getElementById('panel').innerText.includes('180 s, kept')", 10)
        self.browser.run(f"pimbsr.show({{range: '{GLOBAL}'}})")
        self.until_legend("kept of a former BSR: 1")

    def test_comparison_is_asked_once_for_all_agents(self):
        self.start(12)
        self.browser.visit(self.url)
        self.until_legend("10.0.0.1: 12", 20)
        time.sleep(15)
        self.browser.run("1")
        asked = [url for url in self.browser.requests if url.endswith("api/compare")]
        views = [url for url in self.browser.requests if url.endswith("/bsr")]
        self.assertTrue(1 <= len(asked) <= 8, len(asked))
        # Without a change only what no change reports is asked for again.
        self.assertLessEqual(len(views), 2 * 12)

    def test_hidden_page_has_no_stream(self):
        self.start(1)
        self.browser.visit(self.url)
        self.until_legend("10.0.0.1: 1")
        wait_until(lambda: self.agents[0].watchers, "a watch")
        see = """Object.defineProperty(document, 'hidden', {{ value: {}, configurable: true }});
            document.dispatchEvent(new Event('visibilitychange'));"""
        self.browser.run(see.format("true"))
        wait_until(lambda: not self.agents[0].watchers, "no watch", 40)
        self.agents[0].answers["bsr"] = bsr_view("10.0.0.9")
        self.browser.run(see.format("false"))
        self.until_legend("10.0.0.9: 1")
        wait_until(lambda: self.agents[0].watchers, "a watch")

    def test_rejected_stream_is_asked_for_again(self):
        self.start(1)
        self.browser.expected = "503"
        port = int(self.url.split(":")[2].strip("/"))
        streams = [socket.create_connection(("127.0.0.1", port), timeout=10) for _ in range(100)]
        for stream in streams:
            stream.sendall(b"GET /events HTTP/1.1\r\nHost: localhost\r\n\r\n")
            self.assertIn(b" 200 ", stream.recv(100))
        self.browser.visit(self.url)
        clock = "getComputedStyle(document.getElementById('clock'), '::after').content"
        self.browser.until(f"{clock}.includes('disconnected')")
        for stream in streams:
            stream.close()
        self.browser.until(f"!{clock}.includes('disconnected')", 40)

    def test_times_are_those_of_the_day_and_packets_are_counted(self):
        self.start(1)
        self.agents[0].answers["interfaces"] = {"interfaces": [
            {"interface": "eth0", "addresses": ["10.0.0.2/24"], "traffic": {"bsm": {"received": 5}}}]}
        self.browser.visit(self.url)
        self.until_legend("10.0.0.1: 1")
        self.assertRegex(self.browser.run("document.getElementById('panel').innerText"),
                         r"\d\d:\d\d:\d\d\s+this page was opened")
        self.agents[0].answers["interfaces"]["interfaces"][0]["traffic"]["bsm"]["received"] = 12
        counts = "pimbsr.app.model.load.series.find((one) => one.key === 'bsm').counts"
        self.browser.until(f"{counts}.includes(7)", 20)


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
        text = f"(document.querySelector('{selector}') || {{ innerText: '' }}).innerText"
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

    def test_tree_is_read_page_by_page(self):
        def paths(query):
            found, pages = [], 0
            while True:
                address = f"{self.url}api/r1/tree?{urllib.parse.urlencode(query)}"
                with urllib.request.urlopen(address) as answer:
                    page = json.load(answer)
                found += [entry["path"] for entry in page["entries"]]
                pages += 1
                if page["next"] is None:
                    return found, pages
                query = {**query, "from": page["next"]}

        for path, query in ((), {}), (("status",), {"path": "status"}):
            shown = json.loads(self.r1.command("show", "tree", *path, "--json"))["entries"]
            found, pages = paths(query)
            self.assertEqual(found, [entry["path"] for entry in shown])
            self.assertEqual(pages, (len(found) + 999) // 1000)
        self.assertEqual(paths({"path": "status", "depth": "0"}), (["status"], 1))

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
        self.until_text("#legend", "does not answer: 1")
        self.assertIn("Not all agree", self.browser.run("document.getElementById('comparison').innerText"))
        self.shot("gone")
        self.r2.start()
        self.browser.until("!document.getElementById('legend').innerText.includes('does not answer')", 60)
        self.expect_quiet()


CLIENT = """import socket, sys
clients = []
for _ in range({count}):
    client = socket.create_connection(("10.9.9.1", 80), timeout=10)
    clients.append(client)
    client.sendall(b"GET {path} HTTP/1.1\\r\\nHost: 10.9.9.1\\r\\n"
                   b"Authorization: Bearer 0123456789abcdef\\r\\n\\r\\n")
    try:
        print(len(client.recv(100)) > 0, flush=True)
    except OSError:
        print(False, flush=True)
sys.stdin.read()
"""


class FarClientTest(unittest.TestCase):
    """A client on another system, which a link connects."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.agent = FakeAgent(pathlib.Path(folder.name) / "r1.sock")
        token = pathlib.Path(folder.name) / "token"
        token.write_text("0123456789abcdef\n")
        token.chmod(0o600)
        self.spaces = [f"pimbsr-web-{os.getpid()}-{end}" for end in "ab"]
        for space in self.spaces:
            run("ip", "netns", "add", space)
            self.addCleanup(run, "ip", "netns", "del", space)
        run("ip", "link", "add", "v0", "netns", self.spaces[0], "type", "veth", "peer", "name", "v1",
            "netns", self.spaces[1])
        for space, link, address in zip(self.spaces, ("v0", "v1"), ("10.9.9.1/24", "10.9.9.2/24")):
            run("ip", "-n", space, "addr", "add", address, "dev", link)
            run("ip", "-n", space, "link", "set", link, "up")
        server = self.start(self.spaces[0], PIMBSR, "web", "--listen", "10.9.9.1:80", "--token-file", token,
                            "--agent", f"r1={self.agent.path}")
        self.assertIn("Serving", server.stdout.readline())

    def start(self, space, *words):
        process = subprocess.Popen(["ip", "netns", "exec", space, *map(str, words)], text=True,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)

        def end():
            process.kill()
            process.wait()
            process.stdin.close()
            process.stdout.close()

        self.addCleanup(end)
        return process

    def client(self, path, count):
        """The answers, as True or False, of a client that keeps its connections."""
        process = self.start(self.spaces[1], sys.executable, "-c", CLIENT.format(path=path, count=count))
        return [process.stdout.readline().strip() == "True" for _ in range(count)]

    def test_one_address_has_a_part_of_the_connections(self):
        self.assertEqual(self.client("/api", 40), [True] * 32 + [False] * 8)

    def test_stream_of_a_client_that_vanished_ends(self):
        self.assertEqual(self.client("/events", 1), [True])
        wait_until(lambda: self.agent.watchers, "a watch")
        run("ip", "-n", self.spaces[1], "link", "set", "v1", "down")
        # A heartbeat after 15 s at most, and 30 s without an acknowledgment of it.
        wait_until(lambda: not self.agent.watchers, "no watch", 70)


class ChainTest(unittest.TestCase):
    """What scripts/lab runs."""

    def test_namespaces_are_removed_however_it_is_ended(self):
        chain = pathlib.Path(__file__).resolve().parents[1] / "lab/chain.py"
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            lab = subprocess.Popen([sys.executable, "-B", chain, PIMBSR, "--web", "--listen", "127.0.0.1:0"],
                                   stdout=subprocess.PIPE, text=True, start_new_session=True)
            lines = []
            while not lines or not lines[-1].startswith("Serving"):
                lines.append(lab.stdout.readline())
                self.assertTrue(lines[-1], lines)
            names = [line.split()[-1] for line in lines if "is in the namespace" in line]
            self.assertEqual(len(names), 3)
            if number == signal.SIGINT:  # of a terminal, to all that run in it
                os.killpg(lab.pid, number)
            else:
                lab.send_signal(number)
            lab.wait(60)
            lab.stdout.close()
            namespaces = subprocess.run(["ip", "netns"], capture_output=True, text=True, check=True).stdout
            self.assertEqual([name for name in names if name in namespaces], [], number)


if __name__ == "__main__":
    if not find_chromium():
        end_without("chromium is not installed; scripts/setup --tests installs it", "PIMBSR_WEB_REQUIRED")
    if reason := why_not():
        end_without(reason, "PIMBSR_LAB_REQUIRED")
    unittest.main(argv=sys.argv[:1])

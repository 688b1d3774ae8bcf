"""A real Prometheus scrapes `pimbsr web` over routers in network namespaces: each query of the dashboard
returns data, and the alert for an agent that is gone fires.

Usage: scrape_test.py PIMBSR: the built command. Exits with 77 where Prometheus is not installed or no lab can
run, unless PIMBSR_WEB_REQUIRED or PIMBSR_LAB_REQUIRED is 1."""

import json
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import unittest
import urllib.error
import urllib.parse
import urllib.request

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/lab"))
sys.path.insert(0, str(ROOT / "tests/support"))
from lab import Lab, wait_until, why_not  # noqa: E402  found by the lines before
from needs import end_without  # noqa: E402

PIMBSR = pathlib.Path(sys.argv[1]).resolve()
PACKAGING = ROOT / "packaging/prometheus"
BSR = '[[candidate-bsr]]\ninterface = "lo"\npriority = {}\n'
RP = '[[candidate-rp]]\ninterface = "lo"\npriority = {}\n'
# The job is not called pimbsr, and the rules hold at once in place of after a minute.
CONFIG = """
global: {{scrape_interval: 1s, evaluation_interval: 1s}}
scrape_configs:
  - job_name: multicast
    static_configs: [{{targets: ["{target}"]}}]
rule_files: ["{rules}"]
"""


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as server:
        return server.getsockname()[1]


def queries():
    """(where, query) of each target of a panel, as a browser asks it with all jobs, instances and agents."""
    for panel in json.loads((PACKAGING / "pimbsr-dashboard.json").read_text())["panels"]:
        for target in panel["targets"]:
            query = target["expr"]
            for name in ("job", "instance", "agent"):
                query = query.replace(f"${name}", ".*")
            yield f"{panel['title']} {target['refId']}", query


class ScrapeTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.lab = Lab(PIMBSR)
        self.addCleanup(self.lab.close)
        self.routers, _ = self.lab.chain("r1", "r2", "r3")
        texts = (BSR.format(100), BSR.format(50) + RP.format(10), RP.format(20))
        for router, text in zip(self.routers, texts):
            router.config(text)
        self.lab.start()
        self.web = self.start_web()
        self.url = f"http://127.0.0.1:{free_port()}"
        self.start_prometheus()

    def start(self, *words, **how):
        process = subprocess.Popen([str(word) for word in words], **how)

        def end():
            process.send_signal(signal.SIGTERM)
            process.wait(20)
            if process.stdout:
                process.stdout.close()

        self.addCleanup(end)
        return process

    def start_web(self):
        agents = [word for router in self.routers for word in ("--agent", f"{router.name}={router.socket}")]
        web = self.start(PIMBSR, "web", "--listen", "127.0.0.1:0", *agents, stdout=subprocess.PIPE, text=True)
        self.target = web.stdout.readline().split("/")[2]
        return web

    def start_prometheus(self):
        rules = self.folder / "rules.yml"
        rules.write_text((PACKAGING / "pimbsr.rules.yml").read_text().replace("for: 1m", "for: 1s"))
        config = self.folder / "prometheus.yml"
        config.write_text(CONFIG.format(target=self.target, rules=rules))
        with (self.folder / "log").open("w") as log:
            self.start("prometheus", f"--config.file={config}", f"--storage.tsdb.path={self.folder}/data",
                       f"--web.listen-address={self.url[7:]}", stdout=subprocess.DEVNULL, stderr=log)

    def get(self, path, **arguments):
        url = f"{self.url}/api/v1/{path}?{urllib.parse.urlencode(arguments)}"
        try:
            with urllib.request.urlopen(url, timeout=10) as answer:
                return json.load(answer)["data"]
        except urllib.error.HTTPError as error:
            if error.code != 503:
                raise AssertionError(f"{arguments}: {error.read().decode()}") from error
        except OSError:
            pass
        return {}  # it has only just started

    def query(self, query):
        return self.get("query", query=query).get("result", [])

    def alerts(self):
        return [(alert["labels"]["alertname"], alert["labels"].get("agent", ""))
                for alert in self.get("alerts").get("alerts", []) if alert["state"] == "firing"]

    def test_panels_have_data_and_an_agent_that_is_gone_is_named(self):
        wait_until(lambda: len(self.query("pimbsr_bsr_known == 1")) == 3, "three agents have a BSR", 90)
        # Rates need two samples.
        wait_until(lambda: self.query("rate(pimbsr_messages_received_total[5m]) > 0"), "rates", 60)
        for where, query in queries():
            with self.subTest(where=where):
                self.assertTrue(self.query(query), query)
        scraped = {one["metric"]["agent"] for one in self.query("pimbsr_build_info")}
        self.assertEqual(scraped, {"r1", "r2", "r3"})
        self.assertNotIn("PimbsrAgentDown", [name for name, _ in self.alerts()])
        self.routers[2].stop()
        wait_until(lambda: ("PimbsrAgentDown", "r3") in self.alerts(), "the alert for r3", 60)
        answering = dict(queries())["Agents that answer A"]
        self.assertEqual({(one["metric"].get("agent", ""), one["value"][1]) for one in self.query(answering)},
                         {("r1", "1"), ("r2", "1"), ("r3", "0"), ("", "1")})
        self.web.send_signal(signal.SIGKILL)
        wait_until(lambda: ("PimbsrAgentDown", "") in self.alerts(), "the alert for pimbsr web", 60)


if __name__ == "__main__":
    if not shutil.which("prometheus"):
        end_without("prometheus is not installed; scripts/setup --tests installs it", "PIMBSR_WEB_REQUIRED")
    if reason := why_not():
        end_without(reason, "PIMBSR_LAB_REQUIRED")
    unittest.main(argv=sys.argv[:1])

"""Alert rules and dashboard of the package: promtool checks the rules and plays their cases, and each query
is held against the text that an agent exposes.

Usage: prometheus_test.py TEST_AGENT: the built tests of the agent, which keep the text that they compare.
Without promtool it ends with 77, for skipped, unless PIMBSR_WEB_REQUIRED is 1."""

import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
from needs import end_without  # noqa: E402  found by the line before

ROOT = pathlib.Path(__file__).resolve().parents[2]
RULES = ROOT / "packaging/prometheus/pimbsr.rules.yml"
DASHBOARD = ROOT / "packaging/prometheus/pimbsr-dashboard.json"
CASES = ROOT / "tests/prometheus/rules_test.yml"
# Not the agent's: pimbsr web has the first, and Prometheus the second.
OTHERS = {"pimbsr_up", "up"}


def exposed(text):
    """The labels of each series by its name, of which a histogram has three."""
    series = {}
    for line in text.splitlines():
        if match := re.match(r"(\w+)(?:\{(.*)\})? ", line):
            series.setdefault(match[1], set()).update(re.findall(r'(\w+)="', match[2] or ""))
    return series


def names_in(query):
    return set(re.findall(r"\b(?:pimbsr_\w+|up)\b(?!\s*=[^=])", re.sub(r'"[^"]*"', "", query)))


def matchers_in(query):
    """(name, label) of each label that a query selects by."""
    return {(name, label) for name, inner in re.findall(r"\b(pimbsr_\w+)\{([^}]*)\}", query)
            for label in re.findall(r"(\w+)\s*[=!]", re.sub(r'"[^"]*"', "", inner))}


def queries():
    """(where, query) of each panel and each alert."""
    for panel in json.loads(DASHBOARD.read_text())["panels"]:
        for target in panel["targets"]:
            yield f"panel {panel['title']}", target["expr"]
    # YAML of this one form: a line, or a block of deeper lines.
    for block in re.split(r"^ +- alert: ", RULES.read_text(), flags=re.M)[1:]:
        match = re.search(r"^ +expr: (?:\|\n((?:          .*\n)+)|(.*)\n)", block, re.M)
        yield f"alert {block.split()[0]}", match[1] or match[2]


def text_of_agent(test_agent):
    """A text in which each metric has a series."""
    with tempfile.TemporaryDirectory() as folder:
        command = [test_agent, "--gtest_filter=MetricsTest.*", "--gtest_brief=1"]
        subprocess.run(command, check=True, capture_output=True, env={**os.environ, "PIMBSR_ANSWERS": folder})
        return json.loads((pathlib.Path(folder) / "metrics.jsonl").read_text())["text"]


def promtool(*words, text=None):
    return subprocess.run(["promtool", *map(str, words)], input=text, capture_output=True, text=True,
                          timeout=120, check=False)


class PrometheusTest(unittest.TestCase):
    metrics = ""

    def test_each_query_names_series_that_the_agent_exposes(self):
        series = exposed(self.metrics)
        for where, query in queries():
            with self.subTest(where=where):
                self.assertTrue(names_in(query))
                self.assertEqual(names_in(query) - set(series) - OTHERS, set())
                scrape = {"job", "instance", "agent"}  # the last by pimbsr web
                self.assertEqual({(name, label) for name, label in matchers_in(query)
                                  if name in series and label not in series[name] | scrape}, set())

    def test_rules_are_accepted(self):
        done = promtool("check", "rules", RULES)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_rules_fire_as_their_cases_say(self):
        done = promtool("test", "rules", CASES)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_each_alert_has_a_case_that_fires(self):
        alerts = set(re.findall(r"- alert: (\w+)", RULES.read_text()))
        cases = re.split(r"alertname: ", CASES.read_text())[1:]
        fired = {re.match(r"\w+", case)[0] for case in cases if "exp_labels" in case}
        self.assertEqual(alerts, fired)

    def test_the_text_of_an_agent_has_no_lint(self):
        done = promtool("check", "metrics", text=self.metrics)
        self.assertEqual((done.returncode, done.stdout + done.stderr), (0, ""))


if __name__ == "__main__":
    if not shutil.which("promtool"):
        end_without("promtool is not installed; scripts/setup --tests installs it", "PIMBSR_WEB_REQUIRED")
    PrometheusTest.metrics = text_of_agent(sys.argv[1])
    unittest.main(argv=sys.argv[:1])

"""Each correction has an event that scripts/outages plays, docs/corrections.md shows them all, and they count
what they say.

Usage: outages_test.py PIMBSR: the built command."""

import argparse
import importlib.machinery
import pathlib
import re
import sys
import types
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "scripts"))
outages = types.ModuleType("outages")
importlib.machinery.SourceFileLoader("outages", str(ROOT / "scripts/outages")).exec_module(outages)

COMMAND = sys.argv[1]


def medians(name):
    """What is counted at half of the routers in one network: of the engine, and with all corrections."""
    arguments = argparse.Namespace(networks=1, routers=6, seed=1, jobs=2, command=COMMAND)
    values, = outages.measured(arguments, [event for event in outages.EVENTS if event.name == name])
    return [outages.percentile(values[way], 0.5) for way in outages.WAYS]


class OutagesTest(unittest.TestCase):
    def test_each_correction_has_an_event(self):
        keys = re.findall(r"^  key (\w+) :", (ROOT / "host/Corrections.zet").read_text(), re.M)
        names = {re.sub(r"[A-Z]", lambda letter: "-" + letter[0].lower(), key) for key in keys}
        self.assertEqual(names | {"not-own-bsr"}, {event.correction for event in outages.EVENTS})

    def test_the_page_and_the_plots_show_each_event(self):
        page = (ROOT / "docs/corrections.md").read_text()
        plots = (ROOT / "docs/outages.svg").read_text()
        for event in outages.EVENTS:
            self.assertIn(f"| {event.name} | `{event.correction}` | {event.measure.text} | ", page)
            self.assertIn(f">{event.name}</text>", plots)

    def test_what_is_counted_at_half_of_the_routers(self):
        for name, engine, corrections in [("a range is taken from an RP", (500, 500), (1, 11)),
                                          ("a holdtime of 65535 s", (150, 350), (0, 0)),
                                          ("the BSR stops in order", (60, 150), (5, 25)),
                                          ("a candidacy ends, then its BSR crashes", (500, 500), (70, 130)),
                                          ("the only BSR restarts", (10, 70), (0, 0)),
                                          ("a border ends a leak: its router", (150, 310), (0, 0))]:
            with self.subTest(name):
                for counted, (least, most) in zip(medians(name), (engine, corrections)):
                    self.assertLessEqual(least, counted)
                    self.assertLessEqual(counted, most)

    def test_claims_are_counted(self):
        span = {"state": "Elected-BSR", "start": 400}
        early, pending = dict(span, start=5), dict(span, state="Pending-BSR")
        net = argparse.Namespace(zone="224.0.0.0/4", at=300, asked=[1])
        zones = [{"zone": net.zone, "states": [early, span, pending, span]},
                 {"zone": "239.0.0.0/8", "states": [span]}]
        routers = [{"router": f"r{number}", "zones": zones} for number in (1, 2)]
        self.assertEqual([2], list(outages.claims(net, {"spans": {"routers": routers}})))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

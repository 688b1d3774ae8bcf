"""Tests of what lanes, panel and legend of the page show besides the BSR or RP of a router."""

import pathlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
GLOBAL, SCOPED = "224.0.0.0/4", "239.1.0.0/16"


class LaneMarks:
    """Mixed into the test case that opens pages."""

    def test_rp_that_is_kept_of_a_former_bsr_is_marked(self):
        """The RP of e2 is kept from the election of w1 until w1 names its range."""
        self.open(self.page("sim", ROOT / "examples/two-regions.sim"), f"#t=10&zone={GLOBAL}&router=e2")
        self.show(range=GLOBAL)
        spans = self.browser.run("""pimbsr.app.lens.spansOf(pimbsr.app.routers.get('e2'))
            .map(({ start, end, kept }) => [start, end, kept])""")
        self.assertEqual(spans[:2], [[5.002, 5.004, False], [5.004, 15.004, True]])
        for time, isKept in ((5.003, False), (10, True), (15.5, False)):
            with self.subTest(time=time):
                self.show(time=time)
                self.assertEqual("180 s, kept" in self.text("#panel"), isKept)
                self.assertEqual("kept of a former BSR: 1" in self.text("#legend"), isKept)
        self.show(time=10)
        self.zoom(0.01, 10)
        marked = self.lane_at("e2", 10.5, 11.5)
        self.assertGreater(len(marked), 1, "lines across the color")
        self.assertEqual(len(self.lane_at("e2", 15.5, 16.5)), 1, "the color alone")
        self.shot("kept")

    def test_zone_that_a_router_never_learned_is_no_lost_bsr(self):
        """a is the BSR of a zone, whose border keeps it from c, and crashes; b loses it by timeout."""
        lines = ["link ab prefix 10.0.1.0/24", "link bc prefix 10.0.2.0/24", "router a loopback 10.0.0.1",
                 "router b loopback 10.0.0.2", "router c loopback 10.0.0.3", "interface a ab 10.0.1.1",
                 "interface b ab 10.0.1.2", "interface b bc 10.0.2.2", "interface c bc 10.0.2.3",
                 f"border b bc {SCOPED}", f"candidate-bsr a {SCOPED}", "candidate-bsr a global",
                 "at 200 crash a", "run until 500"]
        scenario = self.path("border.sim")
        scenario.write_text("\n".join([*lines, ""]))
        self.open(self.page("sim", scenario), f"#t=450&zone={SCOPED}")
        statuses = """Object.fromEntries(pimbsr.app.model.routers.map((router) => {
            const { unknown, stopped, item } = pimbsr.app.lens.at(router, pimbsr.app.state.get('time'));
            return [router.name, unknown ? '?' : stopped ? 'x' : item ? item.address : '-']; }))"""
        cases = ((1, SCOPED, {"a": "-", "b": "?", "c": "?"}),
                 (190, SCOPED, {"a": "10.0.0.1", "b": "10.0.0.1", "c": "?"}),
                 (450, SCOPED, {"a": "x", "b": "-", "c": "?"}), (450, GLOBAL, {"a": "x", "b": "-", "c": "-"}))
        for time, zone, expected in cases:
            with self.subTest(time=time, zone=zone):
                self.show(zone=zone)
                self.show(time=time)
                self.assertEqual(self.browser.run(statuses), expected)
                unknown = list(expected.values()).count("?")
                self.assertEqual(f"zone not known: {unknown}" in self.text("#legend"), unknown > 0)
        self.show(zone=SCOPED)
        self.assertGreater(len(self.lane_at("b", 440, 449)), 1, "hatched")
        self.assertEqual(len(self.lane_at("c", 440, 449)), 1, "blank")
        hints = [self.browser.run(f"(() => {{ const {{ lanes }} = pimbsr.app.timeline; const place = lanes."
                                  f"placeOf(pimbsr.app.routers.get('{router}')); return lanes.textAt("
                                  f"lanes.x(445), place.top + 3); }})()") for router in "bc"]
        self.assertEqual(hints, ["b: no BSR", "c: zone not known"])
        self.shot("unknown")

    def lane_at(self, router, start, end):
        """The colors in the lane of a router between two times, at the top where no letter is."""
        colors = self.browser.run(f"""(() => {{
            const {{ lanes }} = pimbsr.app.timeline;
            const {{ top }} = lanes.placeOf(pimbsr.app.routers.get('{router}'));
            const [left, right] = [lanes.x({start}), lanes.x({end})].map(Math.ceil);
            const {{ data }} = lanes.canvas.getContext('2d').getImageData(left, top + 1, right - left, 2);
            const found = [];
            for (let at = 0; at < data.length; at += 4) found.push(data.slice(at, at + 4).join(' '));
            return found; }})()""")
        return set(colors)

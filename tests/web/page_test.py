"""The page of `pimbsr sim --html` and `replay --html` in a headless Chromium.

Usage: page_test.py PIMBSR ROOT [FOLDER]: the built command, the source tree, and a folder for screenshots.
Exits with 77 if Chromium is not installed, unless PIMBSR_WEB_REQUIRED is 1."""

import json
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

import networks
from browser import Browser, find_chromium
from lane_marks import GLOBAL, SCOPED, LaneMarks

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
from needs import end_without  # noqa: E402  found by the line before

PIMBSR, ROOT = (pathlib.Path(one).resolve() for one in sys.argv[1:3])
SHOTS = pathlib.Path(sys.argv[3]) if len(sys.argv) > 3 else None
HOSTILE = "</script><img src=x onerror=alert(1)>"


def contrast(*colors):
    """The contrast of two colors such as #0072b2, from 1 to 21."""
    def luminance(color):
        parts = [int(color[at:at + 2], 16) / 255 for at in (1, 3, 5)]
        parts = [part / 12.92 if part <= 0.04045 else ((part + 0.055) / 1.055) ** 2.4 for part in parts]
        return sum(part * weight for part, weight in zip(parts, (0.2126, 0.7152, 0.0722)))

    dark, light = sorted(luminance(color) for color in colors)
    return (light + 0.05) / (dark + 0.05)


def busy_time(browser):
    """Seconds for which the main thread of the page has used a CPU."""
    metrics = browser.call("Performance.getMetrics")["metrics"]
    return next(one["value"] for one in metrics if one["name"] == "TaskDuration")


class PageTest(LaneMarks, unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.pages = {}
        cls.browser = Browser().__enter__()
        cls.browser.expected = "willReadFrequently"  # of tests that look at pixels

    @classmethod
    def tearDownClass(cls):
        cls.browser.__exit__()
        cls.folder.cleanup()

    def path(self, name):
        return pathlib.Path(self.folder.name) / name

    def pimbsr(self, *arguments):
        return subprocess.run([PIMBSR, *arguments], capture_output=True, text=True, check=False)

    def page(self, *arguments):
        """The path of a page that the command made; made once for the same arguments."""
        if arguments not in self.pages:
            page = self.path(f"page{len(self.pages)}.html")
            done = self.pimbsr(arguments[0], "--html", page, *arguments[1:])
            self.assertEqual(done.returncode, 0, done.stderr)
            self.pages[arguments] = page
        return self.pages[arguments]

    def open(self, page, fragment=""):
        self.browser.open(page, fragment)
        self.addCleanup(self.expect_quiet, page)

    def expect_quiet(self, page):
        self.assertEqual(self.browser.errors, [])
        self.assertEqual({url.split("#")[0] for url in self.browser.requests}, {page.resolve().as_uri()})

    def shot(self, name):
        if SHOTS:
            self.browser.screenshot(SHOTS / f"{name}.png")

    def show(self, **values):
        return self.browser.run(f"pimbsr.show({json.dumps(values)})")

    def shown(self):
        return self.browser.run("({...pimbsr.app.state.values})")

    def text(self, selector):
        return self.browser.run(f"document.querySelector({json.dumps(selector)}).innerText")

    # Five routers ----------------------------------------------------------------------------------------

    def test_five_routers_show_bsr_and_rp_at_the_cursor(self):
        self.open(self.page("sim", ROOT / "examples/five-routers.sim"))
        for time, legend in ((60, ["no BSR: 4", "stopped: 1"]),
                             (290, ["10.0.0.1 (r1): 4", "stopped: 1"]),
                             (400, ["10.0.0.1 (r1): 1", "no BSR: 2", "stopped: 2"]),
                             (420, ["10.0.0.2 (r2): 3", "stopped: 2"])):
            self.show(time=time)
            for entry in legend:
                self.assertIn(entry, self.text("#legend").replace("\n", ""), time)
        self.show(time=530, router="r5", zone=GLOBAL)
        panel = self.text("#panel")
        for part in ("r5 at 530 s", "10.0.0.2 (r2)", "10.0.0.4", "180 s", "224.1.1.1"):
            self.assertIn(part, panel)
        self.shot("five")

    def test_hash_of_the_page_is_that_of_the_engine(self):
        scenario = ROOT / "examples/five-routers.sim"
        self.open(self.page("sim", scenario))
        found = self.browser.run("pimbsr.choices('r5', '224.1.2.3', 530).map((rp) => [rp.rp, rp.hash])")
        text = self.pimbsr("sim", scenario).stdout
        printed = re.findall(r"^(10\.0\.0\.\d)\s+\d+\s+30\s+(\d+)$", text, re.M)
        self.assertEqual(len(printed), 2)
        self.assertEqual(found, [[rp, int(value)] for rp, value in printed])

    def test_deep_link_selects_time_zone_and_router_and_follows_them(self):
        page = self.page("sim", ROOT / "examples/five-routers.sim")
        self.open(page, f"#t=420.5&zone={SCOPED}&router=r3")
        self.assertEqual(self.shown(), {"time": 420.5, "zone": SCOPED, "router": "r3", "range": ""})
        self.assertEqual(self.browser.run("({...document.body.dataset}).router"), "r3")
        self.show(time=100, router="r4")
        self.browser.until("location.hash.includes('t=100&') && location.hash.includes('router=r4')")
        self.open(page, "#t=99999&zone=1.2.3.0/24&router=nosuch")
        self.assertEqual(self.shown(), {"time": 530, "zone": GLOBAL, "router": "", "range": ""})

    def test_keys_and_mouse_move_the_cursor_and_select(self):
        self.open(self.page("sim", ROOT / "examples/five-routers.sim"), "#t=300")
        press = self.browser.key
        press("ArrowRight")
        self.browser.until("document.body.dataset.time > 390 && document.body.dataset.time < 392")
        press("ArrowLeft")
        self.browser.until("document.body.dataset.time == 300")
        press("ArrowDown")
        self.browser.until("document.body.dataset.router === 'r1'")
        press("z")
        self.browser.until(f"document.body.dataset.zone === '{SCOPED}'")
        press("Escape")
        self.browser.until("document.body.dataset.router === ''")
        press(" ")
        self.browser.until("document.body.dataset.time > 310 && pimbsr.app.player.isPlaying")
        press(" ")
        place = self.browser.run("""(() => { const lanes = pimbsr.app.timeline.lanes;
            const box = lanes.canvas.getBoundingClientRect(); const row = lanes.placeOf(lanes.rows[3]);
            return [box.left + lanes.x(200), box.top + row.top + row.height / 2]; })()""")
        self.browser.click(*place)
        self.browser.until("Math.abs(document.body.dataset.time - 200) < 1 && "
                           "document.body.dataset.router === 'r4'")

    def test_click_on_the_graph_and_search_select_a_router(self):
        self.open(self.page("sim", ROOT / "examples/five-routers.sim"))
        place = self.browser.run("""(() => { const graph = pimbsr.app.graph;
            const box = graph.canvas.getBoundingClientRect(); const node = graph.graph.nodes[1];
            return [box.left + node.px, box.top + node.py]; })()""")
        self.browser.click(*place)
        self.browser.until("document.body.dataset.router === 'r2'")
        self.browser.key("/")
        self.browser.until("document.activeElement.id === 'search'")
        self.browser.call("Input.insertText", text="10.0.45.5")
        self.browser.key("Enter")
        self.browser.until("document.body.dataset.router === 'r5'")

    def test_set_of_many_rps_has_its_first_hundred(self):
        lines = ["link l prefix 10.0.0.0/24", "router a loopback 172.16.0.1", "router b loopback 172.16.0.2",
                 "interface a l 10.0.0.1", "interface b l 10.0.0.2", "candidate-bsr a global priority 10"]
        lines += [f"candidate-rp b 239.{number >> 8}.{number & 255}.0/24" for number in range(600)]
        scenario = self.path("ranges.sim")
        scenario.write_text("\n".join([*lines, "run until 300", ""]))
        self.open(self.page("sim", scenario), "#t=250&router=a")
        panel = self.text("#panel")
        self.assertIn("and 500 more RPs", panel)
        self.assertIn("239.0.99.0/24", panel)
        self.assertNotIn("239.0.100.0/24", panel)
        self.assertEqual(self.browser.run("pimbsr.choices('a', '239.2.87.1', 250).map((rp) => rp.range)"),
                         ["239.2.87.0/24"])

    def test_what_does_not_change_keeps_its_place_focus_and_clicks(self):
        self.open(self.page("sim", ROOT / "examples/five-routers.sim"), "#t=420&router=r3")
        kept = """(() => {
            const button = document.querySelector('#panel button');
            const heading = document.querySelector('#panel h2');
            button.focus();
            pimbsr.show({ time: 421 });
            return [document.activeElement === button, button.isConnected, heading.isConnected,
              heading.innerText]; })()"""
        self.assertEqual(self.browser.run(kept), [True, True, True, "r3 at 421 s"])
        # The same text, but of another zone: the click is the new one.
        self.show(router="r4", time=530)
        self.browser.run("[...document.querySelectorAll('#panel button')].find("
                         f"(one) => one.innerText === '{SCOPED}').click()")
        self.browser.until(f"document.body.dataset.zone === '{SCOPED}'")

    def test_colors_that_repeat_have_another_shape_and_letters_are_readable(self):
        lines = []
        for number in range(20):
            lines += [f"link l{number} prefix 10.0.{number}.0/24",
                      f"router r{number} loopback 172.16.0.{number + 1}",
                      f"interface r{number} l{number} 10.0.{number}.1",
                      f"candidate-bsr r{number} global priority 10"]
        scenario = self.path("islands.sim")
        scenario.write_text("\n".join([*lines, "run until 300", ""]))
        self.open(self.page("sim", scenario))
        items = self.browser.run("[...pimbsr.app.names.bsrs.values()]")
        self.assertEqual(len({(item["color"], item["shape"]) for item in items}), 20)
        for item in items:
            self.assertGreater(contrast(item["color"], item["ink"]), 4.5, item)
        for scheme in ("light", "dark"):
            ink, faint, paper = self.browser.run(f"""(() => {{ pimbsr.app.setScheme('{scheme}');
                const style = getComputedStyle(document.documentElement);
                return ['ink', 'faint', 'paper']
                  .map((name) => style.getPropertyValue('--' + name).trim()); }})()""")
            self.assertGreater(contrast(ink, paper), 4.5)
            self.assertGreater(contrast(faint, paper), 4.5)

    def test_keys_work_after_a_click_on_a_button(self):
        self.open(self.page("sim", ROOT / "examples/five-routers.sim"), "#t=300")
        self.browser.run("document.getElementById('scheme').focus()")
        self.browser.key("ArrowRight")
        self.browser.until("document.body.dataset.time > 390 && document.body.dataset.time < 392")
        self.browser.key("Home")
        self.browser.until("document.body.dataset.time == 0")

    # The area of the lanes -------------------------------------------------------------------------------

    def drawn(self, canvas, left, right, top=0):
        """How many pixels of a canvas are drawn on from a column to another, and a sum over their colors."""
        return self.browser.run(f"""(() => {{
            const canvas = document.getElementById('{canvas}');
            const image = canvas.getContext('2d')
              .getImageData({left}, {top}, {right} - {left}, canvas.height - {top});
            return [image.data.filter((value, at) => at % 4 === 3 && value !== 0).length,
              image.data.reduce((sum, value) => (sum * 31 + value) % 4294967296, 0)]; }})()""")

    def area(self):
        """The first column right of the names, the last one of the lanes, and the width of the canvas."""
        return self.browser.run("""[...pimbsr.app.timeline.lanes.x.range(),
            document.getElementById('lanes').width]""")

    def zoom(self, factor, time):
        """Zooms around a time, which may leave the cursor out of view."""
        self.browser.run(f"""(() => {{ const {{ timeline, state }} = pimbsr.app;
            timeline.axis.zoom({factor}, {time}); timeline.drawAll(state.get('time'), null); }})()""")

    def expect_nothing_outside(self):
        axis = 18  # height of the labels of times, which may be wider than the lanes
        left, right, width = self.area()
        names = self.drawn("lanes", 0, left), self.drawn("chart", 0, left - 6, axis)
        end = self.browser.run("pimbsr.app.model.end")
        for time in (0, end / 3, end / 2, end):
            with self.subTest(time=time):
                self.show(time=end / 3)
                self.zoom(0.1, time)
                self.assertEqual((self.drawn("lanes", 0, left), self.drawn("chart", 0, left - 6, axis)),
                                 names)
                self.assertGreater(self.drawn("lanes", left, right)[0], 0)
                self.assertEqual(self.drawn("lanes", right, width)[0], 0)
                # The mark of a statement is a triangle around its time.
                self.assertEqual(self.drawn("chart", right + 7, width, axis)[0], 0)
                self.assertEqual(self.drawn("cursor", right + 4, width)[0], 0)
                self.zoom(100, time)

    def test_zoomed_time_draws_nothing_outside_lanes_with_names(self):
        self.open(self.page("sim", ROOT / "examples/two-regions.sim"))
        self.expect_nothing_outside()

    def test_zoomed_time_draws_nothing_outside_lanes_of_few_pixels(self):
        self.open(self.network(200))
        self.expect_nothing_outside()

    def test_mark_and_cursor_right_of_the_zoomed_time_are_not_drawn(self):
        self.open(self.page("sim", ROOT / "examples/two-regions.sim"), "#t=300")
        left, right, width = self.area()
        # The statement at 300 s and the cursor are 10 pixels right of the lanes, on their canvases.
        self.browser.run(f"""(() => {{ const {{ timeline, state }} = pimbsr.app;
            timeline.axis.moveTo(200 - 1000 / ({right} - {left}), 100);
            timeline.drawAll(state.get('time'), null); }})()""")
        self.assertAlmostEqual(self.browser.run("pimbsr.app.timeline.lanes.x(300)"), right + 10, delta=0.1)
        for canvas in ("chart", "cursor"):
            self.assertEqual(self.drawn(canvas, right + 2, width, 18)[0], 0, canvas)

    def test_span_that_ended_before_the_zoomed_time_leaves_no_mark(self):
        self.open(self.page("sim", ROOT / "examples/five-routers.sim"))
        self.zoom(0.01, 529)
        colors = self.browser.run("""(() => { const { lanes } = pimbsr.app.timeline;
            const { top, height } = lanes.placeOf(pimbsr.app.routers.get('r5'));
            const [left] = lanes.x.range();
            return [0, 1].map((right) => [...lanes.canvas.getContext('2d')
              .getImageData(left + right, top + height / 2, 1, 1).data]); })()""")
        self.assertEqual(colors[0], colors[1], "r5 was stopped until 520 s")

    def test_cursor_that_leaves_the_zoomed_time_takes_it_along(self):
        self.open(self.page("sim", ROOT / "examples/five-routers.sim"), "#t=300")
        self.zoom(0.1, 300)
        shown = "pimbsr.app.timeline.lanes.x.domain()"
        before = self.browser.run(shown)
        self.browser.key("ArrowRight")
        self.browser.until("document.body.dataset.time > 390")
        lanes, axis = self.browser.run(
            f"[{shown}, [pimbsr.app.timeline.axis.start, pimbsr.app.timeline.axis.stop]]")
        self.assertNotEqual(lanes, before)
        self.assertEqual(lanes, axis, "the lanes show what the cursor is drawn over")
        left, right, _ = self.area()
        self.assertGreater(self.drawn("cursor", left, right)[0], 0)

    def frame(self):
        """The first and the last row of pixels of the frame, the cursor apart; None without one."""
        return self.browser.run("""(() => {
            const { lanes, axis, time } = pimbsr.app.timeline;
            const canvas = document.getElementById('cursor');
            const x = Math.round(lanes.x(time));
            const { data } = canvas.getContext('2d').getImageData(0, 0, x - 8, canvas.height);
            const rows = [];
            const rowOf = (at) => Math.floor(at / 4 / (x - 8));
            data.forEach((value, at) => { if (at % 4 === 3 && value) rows.push(rowOf(at)); });
            return rows.length ? [rows[0], rows[rows.length - 1]] : null; })()""")

    def test_frame_is_around_the_lane_of_the_selected_router(self):
        self.open(self.network(60))
        self.assertIsNone(self.frame())
        self.browser.run("document.getElementById('overview').click()")
        place = """(() => { const { lanes } = pimbsr.app.timeline;
            const { top, height } = lanes.placeOf(pimbsr.app.selected());
            const chart = document.getElementById('chart').clientHeight;
            return [chart + top, chart + top + height, chart]; })()"""
        for row in (0, 10, 30, 59):
            self.browser.run(f"""(() => {{ const {{ app, show }} = pimbsr;
                app.pick(app.timeline.lanes.rows[{row}]); show({{}}); }})()""")
            top, bottom, _ = self.browser.run(place)
            # Two pixels before the lane and two after what it draws, which are the gaps between lanes.
            self.assertEqual(self.frame(), [top - 2, bottom - 1], row)
        self.shot("frame")
        scroll = """document.getElementById('pane').scrollTop += {};
            new Promise((next) => requestAnimationFrame(() => requestAnimationFrame(next)))"""
        self.browser.run("pimbsr.app.pick(pimbsr.app.timeline.lanes.rows[20]); pimbsr.show({})")
        top, _, chart = self.browser.run(place)
        self.browser.run(scroll.format(top - chart + 9))
        top, bottom, _ = self.browser.run(place)
        self.assertLess(top, chart)
        self.assertEqual(self.frame(), [chart - 2, bottom - 1], "the chart covers a part of the lane")
        self.browser.run(scroll.format(40))
        self.assertIsNone(self.frame())

    def expect_tables_to_fit(self):
        wide = self.browser.run("""(() => { const panel = document.getElementById('panel');
            return [panel.scrollWidth, panel.clientWidth]; })()""")
        self.assertLessEqual(wide[0], wide[1])

    def test_narrow_window_has_the_panel_below_the_graph(self):
        self.browser.call("Emulation.setDeviceMetricsOverride", width=390, height=800, deviceScaleFactor=1,
                          mobile=False)
        self.addCleanup(self.browser.call, "Emulation.clearDeviceMetricsOverride")
        self.open(self.page("sim", ROOT / "examples/five-routers.sim"), "#t=420&router=r3")
        graph, panel, timeline, width = self.browser.run("""[
            ...['graph', 'panel', 'timeline'].map((id) => document.getElementById(id).getBoundingClientRect())
              .map(({ top, bottom, width }) => ({ top, bottom, width })),
            document.documentElement.scrollWidth]""")
        self.assertLessEqual(width, 390)
        self.assertEqual([graph["width"], panel["width"]], [390, 390])
        self.assertLessEqual(graph["bottom"], panel["top"])
        self.assertLessEqual(panel["bottom"], timeline["top"])
        self.expect_tables_to_fit()
        self.shot("narrow")

    # The example of the document --------------------------------------------------------------------------

    def open_complaint(self, title):
        """Opens the page of the example where docs/see.md says that it shows a complaint."""
        text = (ROOT / "docs/see.md").read_text()
        fragment = re.search(rf"\*\*{title}\*\*: `(#[^`]+)`", text)[1]
        self.open(self.page("sim", ROOT / "examples/two-regions.sim"), fragment)

    def items(self):
        """The letter of the BSR or RP of each router at the cursor."""
        return self.browser.run("""Object.fromEntries(pimbsr.app.model.routers.map((router) => {
            const { stopped, item } = pimbsr.app.lens.at(router, pimbsr.app.state.get('time'));
            return [router.name, stopped ? 'x' : item ? item.letter : '-']; }))""")

    def links_that_are_down(self):
        return self.browser.run("""pimbsr.app.model.links.filter(({ up }) => {
            const time = pimbsr.app.state.get('time');
            return !up.some((span) => span.up && span.start <= time && time < span.end);
          }).map((link) => link.name)""")

    def test_documented_router_without_a_bsr_is_cut_off(self):
        self.open_complaint("A router has no BSR")
        self.assertEqual({name for name, letter in self.items().items() if letter == "-"}, {"b1", "b2"})
        self.assertEqual(self.links_that_are_down(), ["uplink"])
        self.browser.key("ArrowLeft")
        self.browser.until("document.body.dataset.time == 996.017")
        self.browser.key("ArrowLeft")
        self.browser.until("document.body.dataset.time == 900")
        self.assertIn("down uplink", self.browser.run(
            "pimbsr.app.model.marks.find((mark) => mark.time === 900).text"))
        self.shot("complaint-none")

    def test_documented_bsr_that_is_gone_is_followed_until_its_timeout(self):
        self.open_complaint("Routers follow a BSR that is gone")
        others = {"w2": "A", "w3": "A", "e1": "A", "e2": "A", "e3": "A", "b1": "A", "b2": "A"}
        self.assertEqual(self.items(), {"w1": "x", **others})
        self.shot("complaint-gone")
        spans = self.browser.run("pimbsr.app.lens.spansOf(pimbsr.app.selected()).slice(-2)")
        expired, followed = spans[0]["end"], spans[1]["start"]
        self.assertEqual([round(expired - 1200), round(followed - expired)], [96, 18])
        self.assertEqual([span["item"]["letter"] for span in spans], ["A", "B"])
        self.assertEqual(self.browser.run("pimbsr.app.names.bsrs.get('10.0.0.5').owner"), "e2")
        states = self.browser.run(
            "pimbsr.app.lens.statesOf(pimbsr.app.routers.get('e2')).map((one) => one.state)")
        self.assertEqual(states[-2:], ["Pending-BSR", "Elected-BSR"])

    def test_documented_regions_use_different_rps(self):
        self.open_complaint("Two routers use different RPs")
        west, east = {name: "b" for name in ("w1", "w2", "w3")}, {name: "a" for name in ("e1", "e2", "e3")}
        self.assertEqual(self.items(), {**west, **east, "b1": "a", "b2": "a"})
        owners = self.browser.run(
            "[...pimbsr.app.names.rps.values()].map((item) => [item.letter, item.owner])")
        self.assertEqual(owners, [["a", "e3"], ["b", "w2"]])
        self.shot("complaint-rps")
        self.show(range="")
        self.show(zone=GLOBAL)
        self.assertEqual(set(self.items().values()), {"A", "B"})
        self.assertEqual(self.links_that_are_down(), ["wan"])

    # Saved documents, hostile names ----------------------------------------------------------------------

    def test_page_of_a_saved_document_is_the_same(self):
        for command, source in ("sim", "examples/five-routers.sim"), ("replay", "examples/two-scopes.pcap"):
            page = self.page(command, ROOT / source).read_bytes()
            saved = self.path(f"saved-{command}.json")
            saved.write_text(self.pimbsr(command, "--json", ROOT / source).stdout)
            self.assertEqual(self.page(command, saved).read_bytes(), page, command)

    def test_document_of_something_else_is_rejected(self):
        saved = self.path("saved.json")
        for command, text in ("sim", "{"), ("sim", '{"seed": 1, "end": "x"}'), ("replay", '{"seed": 1}'):
            saved.write_text(text)
            done = self.pimbsr(command, "--html", self.path("none.html"), saved)
            self.assertEqual(done.returncode, 2, text)
            self.assertIn(f"is no document of {command} --json", done.stderr)

    def test_document_that_is_nested_deeply_is_rejected(self):
        deep = '{"deep": ' + "[" * 200_000 + "]" * 200_000 + ", "
        for command, source in ("sim", "examples/five-routers.sim"), ("replay", "examples/two-scopes.pcap"):
            document = self.pimbsr(command, "--json", ROOT / source).stdout
            saved = self.path(f"deep-{command}.json")
            saved.write_text(document.replace("{", deep, 1))
            done = self.pimbsr(command, "--html", self.path("none.html"), saved)
            self.assertEqual(done.returncode, 2, command)
            self.assertIn("nested deeper than 64", done.stderr)

    def test_texts_of_a_document_are_never_markup(self):
        document = json.loads(self.pimbsr("sim", "--json", ROOT / "examples/five-routers.sim").stdout)
        text = json.dumps(document).replace('"r3"', json.dumps(HOSTILE))
        saved = self.path("hostile.json")
        saved.write_text(text)
        page = self.page("sim", saved)
        self.assertNotIn(HOSTILE, page.read_text())
        self.open(page)
        self.show(router=HOSTILE)
        self.assertIn(HOSTILE, self.text("#panel"))
        self.assertEqual(self.browser.run("document.querySelectorAll('img').length"), 0)
        # The direction of writing of a name ends with it.
        self.assertEqual(self.browser.run("document.querySelector('#panel h2 bdi').innerText"), HOSTILE)

    def test_policy_allows_the_script_and_the_style_of_the_page_alone(self):
        page = self.page("sim", ROOT / "examples/five-routers.sim").read_text()
        self.assertRegex(page, r"default-src 'none'; script-src 'sha256-[^' ]+'; style-src 'sha256-[^' ]+';")
        self.assertNotRegex(page, r"(src|href)=[\"']?http")

    # 200 and 2,000 routers -------------------------------------------------------------------------------

    def network(self, routers):
        scenario = self.path(f"{routers}.sim")
        scenario.write_text(networks.Network(routers).scenario())
        return self.page("sim", scenario)

    def test_partition_of_200_routers_shows_in_graph_lanes_and_legend(self):
        page = self.network(200)
        self.open(page, f"#t=600&zone={GLOBAL}")
        legend = self.text("#legend").replace("\n", "")
        self.assertIn("172.16.0.1 (r0): 100", legend)
        self.assertIn("172.16.101.1 (r101): 100", legend)
        # The statement names half of the routers, and the controls are in one row.
        self.assertRegex(self.text("#panel"), r"partition r100 r101 .* … and \d\d more\n")
        self.assertLess(self.browser.run("document.querySelector('header').clientHeight"), 45)
        self.shot("partition")
        # Rows of one course are next to each other, so that each region is one block.
        runs = self.browser.run("""(() => { const { lanes } = pimbsr.app.timeline;
            const letters = lanes.rows.map((router) => (lanes.lens.at(router, 600).item || {}).letter);
            return letters.filter((letter, i) => letter !== letters[i - 1]).length; })()""")
        self.assertLessEqual(runs, 6)
        self.assertLess(self.browser.run("pimbsr.crossings()"), 60)
        places = "JSON.stringify(pimbsr.app.graph.graph.nodes.map((node) => [node.x, node.y]))"
        first = self.browser.run(places)
        self.open(page)
        self.assertEqual(self.browser.run(places), first, "the layout is the same each time")
        self.show(zone=SCOPED, time=600)
        self.assertIn("(r103): ", self.text("#legend").replace("\n", ""))
        inside = self.browser.run("""pimbsr.app.model.routers.filter(
            (router) => pimbsr.app.lens.at(router, 600).item).map((router) => router.index)""")
        self.assertLessEqual(set(inside), set(range(103, 136)), "the zone stays within its border")
        self.assertGreater(len(inside), 1)
        self.shot("zone")

    def test_lanes_of_a_range_show_the_rp_that_serves_it(self):
        self.open(self.network(60), f"#t=250&zone={GLOBAL}&range={GLOBAL}&router=r5")
        def serving(router, time):
            shown = f"pimbsr.app.lens.at(pimbsr.app.routers.get('r{router}'), {time})"
            return self.browser.run(f"{shown}.item.address")

        self.assertEqual(serving(5, 250), serving(40, 250))
        self.assertNotEqual(serving(5, 690), serving(40, 690))
        self.show(time=690)
        self.shot("range")

    def test_page_of_2000_routers_is_small_ready_and_smooth(self):
        page = self.network(2000)
        self.assertLess(page.stat().st_size, 5_000_000)
        # Time of the CPU, since other tests run beside this one; no sanitizer slows the browser down.
        with Browser() as browser:
            browser.call("Performance.enable", timeDomain="threadTicks")
            start = busy_time(browser)
            browser.open(page)
            ready = busy_time(browser)
            self.assertLess(ready - start, 5)
            browser.run("""(async () => {
                for (let i = 1; i <= 40; ++i) {
                  pimbsr.show({ time: (1100 * i) / 40 });
                  await new Promise((next) => requestAnimationFrame(next));
                } })()""")
            self.assertLess((busy_time(browser) - ready) / 40, 0.05)
            self.assertEqual(browser.errors, [])
            if SHOTS:
                browser.screenshot(SHOTS / "2000.png")

    # Replay ----------------------------------------------------------------------------------------------

    def test_replay_shows_messages_verdicts_and_the_learned_state(self):
        self.open(self.page("replay", "--until", "300", ROOT / "examples/two-scopes.pcap"),
                  "#t=420&router=router")
        self.assertIn("198.51.100.2: 1", self.text("#legend").replace("\n", ""))
        for part in ("239.192.0.0/14", "203.0.113.5", "BSM from 192.0.2.1 accepted",
                     "Drops of the whole run"):
            self.assertIn(part, self.text("#panel"))
        self.expect_tables_to_fit()
        self.browser.run("pimbsr.app.setScheme('dark'); pimbsr.app.drawAll()")
        self.shot("replay")
        # An RP that is no router of the capture.
        zone = self.shown()["zone"]
        self.browser.key("/")
        self.browser.until("document.activeElement.id === 'search'")
        self.browser.call("Input.insertText", text="203.0.113.5")
        self.browser.key("Enter")
        self.browser.until("document.body.dataset.range !== ''")
        self.show(range="", zone=zone)
        self.show(time=1200)
        self.assertIn("no BSR: 1", self.text("#legend").replace("\n", ""))


if __name__ == "__main__":
    if not find_chromium():
        end_without("chromium is not installed; scripts/setup --tests installs it", "PIMBSR_WEB_REQUIRED")
    unittest.main(argv=sys.argv[:1])

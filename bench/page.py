"""How soon a page of `pimbsr sim --html` is ready in a headless Chromium, and how smooth dragging is.

Usage: page.py PIMBSR [FOLDER]. With a folder, screenshots are left there. Fails beyond a limit. Times are of
the wall clock: run it while nothing else runs."""

import pathlib
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "web"))

from browser import Browser, find_chromium  # noqa: E402
from networks import Network  # noqa: E402

LIMITS = {200: 2, 2000: 5}  # seconds until a page of so many routers is ready
MAX_SIZE = 5_000_000        # bytes
MIN_RATE = 20               # frames a second
FRAMES = 60
# Events as those of a mouse that moves once in each frame; returns the seconds from the first frame on.
DRAG = """(async () => {{
  const frame = () => new Promise((next) => requestAnimationFrame(next));
  const target = document.getElementById('{target}');
  const box = target.getBoundingClientRect();
  const send = (receiver, kind, share) => receiver.dispatchEvent(new {event}(kind, {{
    buttons: 1, button: 0, bubbles: true, view: window, clientX: box.left + 110 + share * (box.width - 150),
    clientY: box.top + box.height / 2 }}));
  if ('{press}') send(target, '{press}', 0);
  const start = await frame();
  for (let number = 1; number <= {frames}; ++number) {{
    send({receiver}, '{move}', number / {frames});
    await frame();
  }}
  const seconds = (await frame() - start) / 1000;
  if ('{press}') send({receiver}, 'mouseup', 1);
  return seconds; }})()"""
SHOWN = "[document.body.dataset.time, pimbsr.app.graph.graph.nodes[0].px]"
DRAGS = {"the cursor": {"target": "lanes", "event": "PointerEvent", "press": "", "move": "pointermove",
                        "receiver": "target"},
         "the graph": {"target": "graph", "event": "MouseEvent", "press": "mousedown", "move": "mousemove",
                       "receiver": "window"}}


def page_of(command, routers, folder):
    scenario, page = (pathlib.Path(folder) / f"{routers}.{kind}" for kind in ("sim", "html"))
    scenario.write_text(Network(routers).scenario())
    subprocess.run([command, "sim", "--html", page, scenario], check=True,
                   stdout=subprocess.DEVNULL)
    return page


def shown_after(browser, page):
    """Seconds from the request of a page until it is ready and was painted."""
    start = time.monotonic()
    browser.open(page)
    browser.run("new Promise((next) => requestAnimationFrame(() => setTimeout(next)))")
    return time.monotonic() - start


def measure(command, folder, shots):
    """Whether all limits are kept."""
    kept = []
    for routers, limit in LIMITS.items():
        page = page_of(command, routers, folder)
        size = page.stat().st_size
        with Browser() as browser:
            ready = min(shown_after(browser, page) for _ in range(3))
            print(f"{routers:5} routers  {size / 1e6:5.1f} MB  ready in {ready:5.2f} s, at most {limit}")
            kept += [ready <= limit, size <= MAX_SIZE]
            for name, drag in DRAGS.items():
                before = browser.run(SHOWN)
                rate = FRAMES / browser.run(DRAG.format(frames=FRAMES, **drag))
                kept.append(browser.run(SHOWN) != before)  # else nothing was dragged
                print(f"{rate:19.1f} frames a second while {name} is dragged, at least {MIN_RATE}")
                kept.append(rate >= MIN_RATE)
            if shots:
                browser.screenshot(pathlib.Path(shots) / f"{routers}.png")
    return all(kept)


if __name__ == "__main__":
    if not find_chromium():
        sys.exit("bench/page.py: chromium is not installed; scripts/setup --tests installs it")
    with tempfile.TemporaryDirectory() as scratch:
        sys.exit(0 if measure(pathlib.Path(sys.argv[1]).absolute(), scratch, *(sys.argv[2:] or [""])) else 1)

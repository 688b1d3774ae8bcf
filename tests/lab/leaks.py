"""A lab under valgrind: routers that live through elections, a reload, requests and an orderly end.

Usage: leaks.py PIMBSR, of a build without sanitizers. Exits with 77 where no lab can run, unless
PIMBSR_LAB_REQUIRED is 1."""

import json
import pathlib
import sys

from lab import Lab, LabError, wait_until, why_not

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
from needs import end_without  # noqa: E402  found by the line before

VALGRIND = ["valgrind", "--quiet", "--leak-check=full", "--errors-for-leak-kinds=definite,indirect,possible",
            "--show-leak-kinds=definite,indirect,possible", "--error-exitcode=9"]
CANDIDATES = """[[candidate-bsr]]
interface = "lo"
groups = ["224.0.0.0/4", "239.1.0.0/16"]
priority = {}
[[candidate-rp]]
interface = "lo"
groups = ["224.0.0.0/4", "239.1.0.0/16"]
"""
VIEWS = ("bsr", "rp-set", "candidates", "neighbors", "interfaces", "borders", "filter", "counters", "drops",
         "history", "config")


def answer(router, *words):
    """What the router answers. Under valgrind, beside other work, it may answer after the command has ended
    with an error: then the command asks again."""
    what = f"{router.name} answers {' '.join(words)}"
    return wait_until(lambda: router.command(*words, check=False), what, 120)


def knows(router, address):
    zones = json.loads(answer(router, "show", "bsr", "--json"))["zones"]
    return len(zones) == 2 and all(zone["bsr"] and zone["bsr"]["address"] == address and zone["rps"]
                                   for zone in zones)


def live(lab):
    (r1, r2), _ = lab.chain("r1", "r2")
    r1.config(CANDIDATES.format(100))
    r2.config(CANDIDATES.format(50))
    lab.start()
    for router in (r1, r2):
        wait_until(lambda: knows(router, "10.255.0.1"), f"{router.name} follows r1", 120)
        for view in VIEWS:
            answer(router, "show", view)
        answer(router, "show", "rp", "239.1.1.1")
        answer(router, "metrics")
    r1.config()
    answer(r1, "reload")
    for router in (r1, r2):
        wait_until(lambda: knows(router, "10.255.0.2"), f"{router.name} follows r2", 120)
    for router in (r1, r2):
        router.stop()
        print(router.log.read_text(), end="")


if __name__ == "__main__":
    if reason := why_not():
        end_without(reason, "PIMBSR_LAB_REQUIRED")
    try:
        with Lab(pathlib.Path(sys.argv[1]).absolute(), VALGRIND, 10, ["--without-sandbox"]) as lab:
            live(lab)
    except LabError as error:
        sys.exit(f"tests/lab/leaks.py: {error}")
    print("no leak")

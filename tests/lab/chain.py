"""Three routers in a chain: r1 and r2 are candidate BSRs, r2 and r3 candidate RPs.

Usage: chain.py PIMBSR [--web [OPTION...]]. Prints each router's `show bsr` and `show rp-set`; with --web it
shows them live in a browser until it is interrupted, with further options of `pimbsr web`."""

import pathlib
import signal
import subprocess
import sys

from lab import Lab, LabError, wait_until, why_not

BSR = '[[candidate-bsr]]\ninterface = "lo"\npriority = {}\n'
RP = '[[candidate-rp]]\ninterface = "lo"\npriority = {}\n'
RPS = 2


def knows_all(router):
    zones = router.show("bsr")["zones"]
    return zones and zones[0]["bsr"] and zones[0]["rps"] == RPS


def show(routers):
    for router in routers:
        for what in ("bsr", "rp-set"):
            print(f"\n{router.name}$ pimbsr show {what}\n{router.command('show', what)}", end="")


def show_live(command, routers, options):
    agents = [word for router in routers for word in ("--agent", f"{router.name}={router.socket}")]
    print("Open the page in a browser; stop or change something with `ip netns exec`. Ctrl-C ends all:")
    for router in routers:
        print(f"  {router.name} is in the namespace {router.namespace}", flush=True)
    try:
        subprocess.run([command, "web", *agents, *options], check=False)
    except KeyboardInterrupt:
        pass


def main(command, *options):
    with Lab(pathlib.Path(command).absolute()) as lab:
        (r1, r2, r3), _ = lab.chain("r1", "r2", "r3")
        r1.config(BSR.format(100))
        r2.config(BSR.format(50) + RP.format(10))
        r3.config(RP.format(20))
        print("r1 -- r2 -- r3, with the loopbacks 10.255.0.1 to 10.255.0.3; "
              f"clocks run {lab.clock_rate} times as fast")
        lab.start()
        for router in (r1, r2, r3):
            wait_until(lambda: knows_all(router), f"{router.name} knows the BSR and {RPS} RPs")
        if options[:1] == ("--web",):
            show_live(lab.command, (r1, r2, r3), options[1:])
        else:
            show((r1, r2, r3))


if __name__ == "__main__":
    if reason := why_not():
        sys.exit(f"scripts/lab: {reason}; it needs root and network namespaces")
    # The end of a session removes the namespaces too.
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda received, _: sys.exit(128 + received))
    try:
        main(*sys.argv[1:])
    except LabError as error:
        sys.exit(f"scripts/lab: {error}")

"""How many Bootstrap Messages an agent takes from one interface, and how late its timers are meanwhile.

Usage: agent.py PIMBSR [MESSAGES_PER_SECOND [SECONDS]]. Each message names 20 RPs and repeats the one before
it but for its fragment tag, as those of a BSR do. The rate limit is off, and the clock runs as clocks do.
Needs root."""

import os
import pathlib
import socket
import struct
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "lab"))

from lab import Lab, run, wait_until, why_not  # noqa: E402
from relay import checksum, open_link  # noqa: E402

RPS = 20
BURST = 100  # messages that leave at once


def packet(pim):
    """A frame to 224.0.0.13 from 10.0.1.2 with a PIM message, whose checksum is filled in."""
    pim = pim[:2] + struct.pack("!H", checksum(pim)) + pim[4:]
    head = struct.pack("!BBHHHBBH", 0x45, 0xc0, 20 + len(pim), 0, 0, 1, 103, 0)
    head += bytes([10, 0, 1, 2]) + bytes([224, 0, 0, 13])
    head = head[:10] + struct.pack("!H", checksum(head)) + head[12:]
    return bytes([1, 0, 0x5e, 0, 0, 13]) + bytes([2, 0, 0, 0, 0, 1]) + b"\x08\x00" + head + pim


def hello():
    return packet(bytes([0x20, 0, 0, 0]) + struct.pack("!HHH", 1, 2, 0xffff) + struct.pack("!HHI", 20, 4, 7))


def bootstrap(tag):
    """A message of the BSR 10.0.1.2 that names RPS RPs for all groups."""
    message = bytes([0x24, 0, 0, 0]) + struct.pack("!HBB", tag, 30, 64) + bytes([1, 0, 10, 0, 1, 2])
    message += bytes([1, 0, 0, 4, 224, 0, 0, 0]) + bytes([RPS, RPS, 0, 0])
    for number in range(1, RPS + 1):
        message += bytes([1, 0, 10, 9, 0, number]) + struct.pack("!HBB", 150, number, 0)
    return packet(message)


def send(interface, rate, seconds):
    """Sends at an even pace; prints how many messages left."""
    link = open_link(interface)
    link.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 1 << 22)
    frames = [bootstrap(tag) for tag in range(1000)]
    start, sent = time.monotonic(), 0
    while sent < rate * seconds:
        for _ in range(BURST):
            link.send(frames[sent % len(frames)])
            sent += 1
        time.sleep(max(0.0, start + sent / rate - time.monotonic()))
    print(sent, time.monotonic() - start)


def cpu_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def counter(router, name):
    return next(one["value"] for one in router.show("counters")["counters"] if one["name"] == name)


def accepted(router):
    return counter(router, "rxBsmSuccess")


def inside(router, *words):
    return run("ip", "netns", "exec", router.namespace, sys.executable, "-B", __file__, *words)


def measure(command, rate, seconds):
    with Lab(command, clock_rate=1) as lab:
        router, sender = lab.router("router"), lab.router("sender")
        lab.link(router, sender)
        router.config("[limits]\npackets-per-second = 0\n")
        router.start()
        interface = "eth-router"
        inside(sender, "hello", interface)
        wait_until(lambda: router.show("neighbors")["neighbors"], "the sender is a neighbor")
        inside(sender, "send", interface, 1000, 1)
        router.command("clear", "counters")
        before = cpu_seconds(router.agent.process.pid)
        sent, took = inside(sender, "send", interface, rate, seconds).split()
        wait_until(lambda: accepted(router) >= int(sent) or not moves(router), "all were taken")
        cpu = cpu_seconds(router.agent.process.pid) - before
        late = router.show("counters")["timers"]["worstLateness"]
        print(f"sent              {int(sent):9} messages of {RPS} RPs in {float(took):.1f} s")
        print(f"accepted          {accepted(router):9} ({accepted(router) / float(took):.0f} a second)")
        share = 100 * cpu / float(took)
        print(f"time of the agent {1e6 * cpu / int(sent):9.1f} us a message ({share:.0f} % of a core)")
        print(f"timers            {1e3 * late:9.1f} ms late at most")
        return 0 if accepted(router) == int(sent) and late < 0.1 else 1


def moves(router):
    before = accepted(router)
    time.sleep(0.2)
    return accepted(router) != before


if __name__ == "__main__":
    if sys.argv[1] == "hello":
        open_link(sys.argv[2]).send(hello())
    elif sys.argv[1] == "send":
        send(sys.argv[2], int(sys.argv[3]), int(sys.argv[4]))
    elif reason := why_not():
        sys.exit(f"bench/agent.py: {reason}; it needs root and network namespaces")
    else:
        rates = [int(word) for word in sys.argv[2:]] + [10000, 10][len(sys.argv) - 2:]
        sys.exit(measure(pathlib.Path(sys.argv[1]).absolute(), *rates))

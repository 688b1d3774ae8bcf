"""What the attacks share: senders of packets, clients of the control socket, and the costs for a router.

Run as a program, it prints the table of the rows in a file: attack.py ROWS."""

import json
import os
import pathlib
import re
import subprocess
import sys
import time

LAB = pathlib.Path(__file__).resolve().parents[1] / "lab"
sys.path.insert(0, str(LAB))

from lab import LabError  # noqa: E402

CLIENTS = pathlib.Path(__file__).with_name("clients.py")
FORWARDED = pathlib.Path(__file__).with_name("forwarded.py")
COLUMNS = (("attack", "attack", "{}"), ("rate", "packets/s", "{:,.0f}"), ("megabytes", "MB", "{:,.1f}"),
           ("cpu", "CPU %", "{:.0f}"), ("rss", "RSS +MiB", "{:.1f}"), ("late", "timers late ms", "{:.1f}"),
           ("over", "by over 20 ms", "{}"),
           ("systemLate", "system late ms", "{:.1f}"), ("backlog", "backlog drops", "{:,}"),
           ("lost", "honest lost", "{}"), ("note", "note", "{}"))


class Bounds:
    """What an attack may cost at most. A sanitized build is several times slower and keeps freed memory."""

    def __init__(self, command):
        self.sanitized = b"__asan_init" in pathlib.Path(command).read_bytes()
        self.lateness = 0.5 if self.sanitized else 0.02  # seconds, besides what the system delays
        self.gone = 2.5 if self.sanitized else 0.25  # seconds, while thousands of RPs leave at once
        self.view = 1 if self.sanitized else 0.1  # seconds, while a view of thousands of RPs is made
        self.answer = (256 if self.sanitized else 16) << 20  # bytes, for a view of thousands of RPs
        is_full = os.environ.get("PIMBSR_ATTACK") == "full"
        self.system = 0.1 if is_full else 1  # seconds that the system may be late; beyond, nothing is shown

    def growth(self, attack):
        """Bytes by which memory may grow during one attack: those that fill the RP sets need more. The
        sanitizer alone keeps up to 256 MiB that were freed."""
        if self.sanitized:
            return 320 << 20
        fills = attack.startswith(("chosen", "mixed"))
        return 32 << 20 if fills else 8 << 20


class Flood:
    """A sender in the namespace of a router, which has prepared its packets when this returns."""

    program = ""

    def __init__(self, router, interface, kind, **options):
        words = ["ip", "netns", "exec", router.namespace, self.program, interface, kind]
        for name, value in options.items():
            words += [f"--{name}", str(value)]
        self.process = subprocess.Popen(words, stdout=subprocess.PIPE, text=True)
        if not self.process.stdout.readline():
            raise LabError(f"{' '.join(words)} ended with {self.process.wait()}")

    def result(self):
        """Waits for the end; returns `packets`, `bytes`, `seconds` and `worstLateness`."""
        output, _ = self.process.communicate()
        if self.process.returncode != 0:
            raise LabError(f"a sender ended with {self.process.returncode}")
        return json.loads(output)

    def close(self):
        end(self.process)


class Clients:
    """Clients of a control socket that belong to a user, 0 for root, for so many seconds."""

    def __init__(self, path, kind, count, seconds, user=0):
        words = [sys.executable, "-B", CLIENTS, path, kind, count, seconds, user]
        self.process = subprocess.Popen(list(map(str, words)), stdout=subprocess.PIPE, text=True)
        self.process.stdout.readline()

    def result(self):
        """Waits for the end; returns what clients of the kind `ask` have found."""
        output, _ = self.process.communicate()
        return json.loads(output)

    def close(self):
        end(self.process)


class Forwarded:
    """Counts Bootstrap Messages of a BSR that a router forwards to a neighbor, from the construction on, for
    so many seconds at most. `peer` is the neighbor; `address` that of the router on their link."""

    def __init__(self, peer, interface, address, bsr, seconds):
        words = ["ip", "netns", "exec", peer.namespace, sys.executable, "-B", str(FORWARDED), interface,
                 address, bsr, str(seconds)]
        self.process = subprocess.Popen(words, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        if not self.process.stdout.readline():
            raise LabError(f"{' '.join(words)} ended with {self.process.wait()}")

    def result(self, sent):
        """Ends it once the router has forwarded so many, or forwards no more; returns how many it has
        forwarded."""
        output, _ = self.process.communicate(f"{sent}\n")
        return json.loads(output)["forwarded"]

    def close(self):
        end(self.process)
        self.process.stdin.close()


def end(process):
    """Ends a process that may have ended already."""
    process.kill()
    process.wait()
    process.stdout.close()


def cpu_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def rss_of(pid):
    lines = pathlib.Path(f"/proc/{pid}/status").read_text().splitlines()
    return next(int(line.split()[1]) << 10 for line in lines if line.startswith("VmRSS:"))


def backlog_drops():
    """Packets that the kernel dropped before any socket, since a CPU's backlog was full."""
    text = pathlib.Path("/proc/net/softnet_stat").read_text()
    return sum(int(line.split()[1], 16) for line in text.splitlines())


def timers_late(router):
    """How many of the timers served since the counters were cleared were more than 20 ms late."""
    text = router.command("metrics")
    within = int(re.search(r'^pimbsr_timer_lateness_seconds_bucket\{le="0.02"\} (\d+)$', text, re.M)[1])
    served = int(re.search(r"^pimbsr_timer_lateness_seconds_count (\d+)$", text, re.M)[1])
    return f"{served - within:,} of {served:,}"


class Meter:
    """What an attack costs a router, from the construction to `row`. A sender that sends nothing measures how
    late the system itself wakes a process meanwhile."""

    def __init__(self, router, seconds):
        self.router, self.pid = router, router.agent.process.pid
        router.command("clear", "counters")
        self.idle = Flood(router, "lo", "none", seconds=seconds)
        self.start, self.cpu, self.rss = time.monotonic(), cpu_seconds(self.pid), rss_of(self.pid)
        self.backlog = backlog_drops()

    def row(self, name, sent=(), lost=None, note=""):
        """The costs as a row of the table. `sent` holds results of senders."""
        took = time.monotonic() - self.start
        cpu, rss = cpu_seconds(self.pid) - self.cpu, rss_of(self.pid) - self.rss
        late = self.router.show("counters")["timers"]["worstLateness"]
        return {"attack": name, "rate": sum(one["packets"] / one["seconds"] for one in sent),
                "megabytes": sum(one["bytes"] for one in sent) / 1e6, "cpu": 100 * cpu / took,
                "rss": rss / (1 << 20), "late": 1e3 * late,
                "over": timers_late(self.router),
                "systemLate": 1e3 * self.idle.result()["worstLateness"],
                "backlog": backlog_drops() - self.backlog, "lost": "" if lost is None else lost, "note": note}


def table_of(rows):
    """The rows as text, a line each below the titles."""
    cells = [[title for _, title, _ in COLUMNS]]
    for row in rows:
        cells.append([pattern.format(row[key]) for key, _, pattern in COLUMNS])
    widths = [max(map(len, column)) for column in zip(*cells)]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip()
                     for line in cells)


def counter(router, name):
    return next(one["value"] for one in router.show("counters")["counters"] if one["name"] == name)


def traffic_of(router, interface):
    """Packets of an interface, by kind of message."""
    found = next(one for one in router.show("interfaces")["interfaces"] if one["interface"] == interface)
    return found["traffic"]


def queue_of(router, kind):
    """Counts of the receive queues of a kind for packets to addresses of a router; empty if it has none."""
    queues = router.show("interfaces")["unicast"]["queues"]
    return next((queue for queue in queues if queue["kind"] == kind), {})


def mac_of(router, interface):
    return json.loads(router.ip("-j", "link", "show", interface))[0]["address"]


if __name__ == "__main__":
    LINES = pathlib.Path(sys.argv[1]).read_text().splitlines()
    print(table_of([json.loads(line) for line in LINES]))

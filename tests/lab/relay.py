"""What a good wire doesn't do: a relay that drops, repeats, reorders and corrupts, and a flood."""

import os
import random
import select
import signal
import socket
import struct
import subprocess
import sys
import time

from lab import Link, run

PIM = 103
FAULTS = ("passed", "dropped", "repeated", "reordered", "corrupted")


def inside(namespace):
    """Words that run this file in a namespace."""
    return ["ip", "netns", "exec", namespace, sys.executable, "-B", __file__]


class Relay:
    """A wire between two routers through a namespace of its own, where a process passes frames on badly."""

    def __init__(self, lab, one, other, seed):
        self.namespace = f"{lab.prefix}-relay"
        number = len(lab.links) + 1
        lab.namespace(self.namespace)
        for end, (router, peer) in enumerate(((one, other), (other, one)), 1):
            run("ip", "link", "add", f"eth-{peer.name}", "netns", router.namespace, "type", "veth",
                "peer", "name", f"end{end}", "netns", self.namespace)
            run("ip", "-n", self.namespace, "link", "set", f"end{end}", "up", "promisc", "on")
            lab.attach(router, f"eth-{peer.name}", f"10.0.{number}.{end}/24")
        ends = [(one, f"eth-{other.name}"), (other, f"eth-{one.name}")]
        lab.links.append(Link(lab, "relay", ends))
        self.file = lab.folder / "relay-counts"
        self.process = subprocess.Popen([*inside(self.namespace), "relay", str(seed), str(self.file)])

    def counts(self):
        """How often each fault was done."""
        words = self.file.read_text().split() if self.file.exists() else []
        return dict(zip(FAULTS, map(int, words))) if words else {fault: 0 for fault in FAULTS}

    def close(self):
        self.process.kill()
        self.process.wait()


def open_link(name):
    link = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x0003))
    link.bind((name, 0))
    return link


def is_pim(frame):
    return frame[12:14] == b"\x08\x00" and len(frame) > 34 and frame[23] == PIM


def pass_badly(seed, file):
    """Passes frames between end1 and end2 until it is killed. Frames of other protocols pass unharmed."""
    rng = random.Random(seed)
    links = [open_link("end1"), open_link("end2")]
    counts, held = dict.fromkeys(FAULTS, 0), None
    while True:
        for link in select.select(links, [], [])[0]:
            frame, (_, _, kind, *_) = link.recvfrom(65536)
            if kind == socket.PACKET_OUTGOING:
                continue
            other = links[1 - links.index(link)]
            fault = rng.choice(FAULTS + ("passed",) * 3) if is_pim(frame) else "passed"
            counts[fault] += 1
            if fault == "reordered" and held is None:
                held = (other, frame)
                continue
            if fault == "repeated":
                other.send(frame)
            if fault == "corrupted":
                at = rng.randrange(34, len(frame))
                frame = frame[:at] + bytes([frame[at] ^ 1 << rng.randrange(8)]) + frame[at + 1:]
            if fault != "dropped":
                other.send(frame)
            if held is not None:
                held[0].send(held[1])
                held = None
            with open(file + ".new", "w") as out:
                out.write(" ".join(str(counts[name]) for name in FAULTS))
            os.rename(file + ".new", file)


def checksum(data):
    if len(data) % 2:
        data += b"\0"
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xffff) + (total >> 16)
    return ~total & 0xffff


def random_packet(rng):
    """An IPv4 packet of PIM: noise, or a head that is right and trailing noise."""
    kind = rng.choice((0, 4, 4, 4, 8, rng.randrange(16)))
    body = rng.randbytes(rng.randrange(120))
    if kind == 4 and rng.random() < 0.7:  # a Bootstrap Message of some BSR, for some zone
        bsr = bytes([1, 0, 10, 99, rng.randrange(256), rng.randrange(256)])
        group = bytes([1, 0, rng.randrange(2), rng.randrange(4, 33), 239, *rng.randbytes(3)])
        rp = bytes([1, 0, 10, 99, *rng.randbytes(2)]) + struct.pack("!HBB", 150, rng.randrange(256), 0)
        head = rng.randbytes(2) + bytes([30, rng.randrange(256)])
        body = head + bsr + group + bytes([1, 1, 0, 0]) + rp
    pim = bytes([0x20 | kind, rng.choice((0, 0x80)), 0, 0]) + body
    if rng.random() < 0.9:
        pim = pim[:2] + struct.pack("!H", checksum(pim)) + pim[4:]
    source = bytes([10, 0, 1, rng.choice((1, rng.randrange(256)))])
    head = struct.pack("!BBHHHBBH", 0x45, 0xc0, 20 + len(pim), 0, 0, rng.choice((1, 1, 1, 64)), PIM, 0)
    head += source + bytes([224, 0, 0, 13])
    return head[:10] + struct.pack("!H", checksum(head)) + head[12:] + pim


def send_flood(interface, seconds, seed):
    rng = random.Random(seed)
    link = open_link(interface)
    frame_head = bytes([1, 0, 0x5e, 0, 0, 13]) + bytes([2, 0, 0, 0, 0, 1]) + b"\x08\x00"
    packets = [frame_head + random_packet(rng) for _ in range(5000)]
    end, sent = time.monotonic() + seconds, 0
    while time.monotonic() < end:
        try:
            link.send(rng.choice(packets))
            sent += 1
        except OSError:
            time.sleep(0.001)
    print(sent)


def flood(router, interface, seconds, seed):
    """Sends random packets along a router's interface; returns how many."""
    return int(run(*inside(router.namespace), "flood", interface, seconds, seed))


if __name__ == "__main__":
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    if sys.argv[1] == "relay":
        pass_badly(int(sys.argv[2]), sys.argv[3])
    else:
        send_flood(sys.argv[2], float(sys.argv[3]), int(sys.argv[4]))

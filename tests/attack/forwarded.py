"""Counts the Bootstrap Messages of one BSR that a router forwards along a link: each that it accepted leaves
it once more (RFC 5059 section 3.4).

Usage: forwarded.py INTERFACE ROUTER BSR SECONDS, in the namespace of a neighbor. ROUTER is the address of
the router on the link of INTERFACE. A line of its standard input has the number of messages that were sent.
Counts until as many were forwarded, or none for QUIET seconds after that line, for SECONDS at most, and then
prints as JSON how many were `forwarded`. No-Forward messages are left out: these repeat what the router
holds."""

import json
import math
import select
import socket
import sys
import time

ETHERNET_IPV4 = 0x0800
ETHERNET_HEADER = 14
PIM = 103
BOOTSTRAP = 0x24  # version 2, type 4
NO_FORWARD = 0x80
BSR_OFFSET = 10  # of the BSR address in a Bootstrap Message (RFC 5059 section 4.1)
QUIET = 2  # seconds in which a slow router forwards what it has still to read
BUFFER = 16 << 20  # bytes of the receive buffer
SO_RCVBUFFORCE = 33


def is_forwarded(frame, router, bsr):
    packet = frame[ETHERNET_HEADER:]
    if packet[9] != PIM or packet[12:16] != router:
        return False
    pim = packet[4 * (packet[0] & 15):]
    return pim[0] == BOOTSTRAP and not pim[1] & NO_FORWARD and pim[BSR_OFFSET:BSR_OFFSET + 4] == bsr


def count(interface, router, bsr, end):
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETHERNET_IPV4)) as link:
        link.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, BUFFER)
        link.bind((interface, ETHERNET_IPV4))
        print("ready", flush=True)
        found, sent, readers = 0, math.inf, [link, sys.stdin]
        while found < sent and time.monotonic() < end:
            ready, _, _ = select.select(readers, [], [], 0.2)
            forwarded = link in ready and is_forwarded(link.recv(2048), router, bsr)
            found += forwarded
            if sys.stdin in ready:
                readers.remove(sys.stdin)
                sent = int(sys.stdin.readline())
            if sys.stdin in ready or (forwarded and sys.stdin not in readers):
                end = min(end, time.monotonic()) + QUIET
        return found


if __name__ == "__main__":
    INTERFACE, ROUTER, BSR, SECONDS = sys.argv[1:]
    END = time.monotonic() + float(SECONDS)
    FOUND = count(INTERFACE, socket.inet_aton(ROUTER), socket.inet_aton(BSR), END)
    print(json.dumps({"forwarded": FOUND}))

#!/usr/bin/env python3
"""Write the example capture and the small captures of the command's tests.

    make_capture.py            write every file into the tree
    make_capture.py --check    say which files differ from what would be written; exit 1 if any does

The example shows a quarter of an hour on a LAN where a router listens that is no candidate anywhere. Nothing
was recorded: every byte is built here, from RFC 5059 section 4 and RFC 7761 section 4.9, and two runs write
the same bytes.
"""

import argparse
import ipaddress
import itertools
import pathlib
import struct
import sys
from datetime import datetime, timezone
from typing import NamedTuple

ROOT = pathlib.Path(__file__).resolve().parent.parent
START = int(datetime(2026, 1, 15, 9, 0, 0, tzinfo=timezone.utc).timestamp())

ALL_PIM_ROUTERS = "224.0.0.13"
ALL_SYSTEMS = "224.0.0.1"
ALL_PIM_ROUTERS_V6 = "ff02::d"

IPV4, IPV6 = 0x0800, 0x86DD
PROTOCOL_UDP, PROTOCOL_PIM = 17, 103
HELLO, JOIN_PRUNE, BOOTSTRAP, CRP_ADV = 0, 3, 4, 8
NO_FORWARD = 0x80  # in the byte after version and type, RFC 5059 section 4.1
ADMIN_SCOPE = 0x01  # the Z bit of an encoded group
RPT_JOIN = 0x07  # the S, W and R bits of an encoded source: a join towards the RP


# --------------------------------------------------------------------------------------------------
# What the messages say
# --------------------------------------------------------------------------------------------------


class Host(NamedTuple):
    """One station on the LAN."""

    ip: str
    mac: str


class Rp(NamedTuple):
    """One RP record. A holdtime of 0 withdraws the RP."""

    address: str
    holdtime: int = 150
    priority: int = 10


class Range(NamedTuple):
    """One group record with the RPs of this fragment; rp_count is given where other fragments carry more."""

    prefix: str
    rps: tuple = ()
    flags: int = 0
    rp_count: int = None


class Bsm(NamedTuple):
    """One Bootstrap Message, or one fragment of it."""

    bsr: str
    bsr_priority: int
    tag: int
    ranges: tuple
    hash_mask_len: int = 30
    no_forward: bool = False


class Packet(NamedTuple):
    """A network packet, its time in seconds after the start, and the stations between which it goes."""

    time: float
    src_mac: str
    dst_mac: str
    ethertype: int
    payload: bytes


# --------------------------------------------------------------------------------------------------
# From messages to packets
# --------------------------------------------------------------------------------------------------


def address_bytes(address):
    return ipaddress.ip_address(address).packed


def mac_bytes(mac):
    return bytes.fromhex(mac.replace(":", ""))


def checksum(data):
    """The Internet checksum: the complement of the one's complement sum of all 16-bit words."""
    if len(data) % 2:
        data += b"\0"
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def encoded_unicast(address):
    return struct.pack("!BB", 1, 0) + address_bytes(address)


def encoded_group(prefix, flags=0):
    network = ipaddress.ip_network(prefix)
    return struct.pack("!BBBB", 1, 0, flags, network.prefixlen) + network.network_address.packed


def pim(kind, body, flags=0, pseudo_header=b""):
    """A PIM message. Only IPv6 has a pseudo header in its checksum."""
    message = struct.pack("!BBH", 0x20 | kind, flags, 0) + body
    return message[:2] + struct.pack("!H", checksum(pseudo_header + message)) + message[4:]


def bootstrap(bsm):
    body = struct.pack("!HBB", bsm.tag, bsm.hash_mask_len, bsm.bsr_priority) + encoded_unicast(bsm.bsr)
    for group in bsm.ranges:
        held = len(group.rps)
        total = held if group.rp_count is None else group.rp_count
        body += encoded_group(group.prefix, group.flags) + struct.pack("!BBH", total, held, 0)
        for rp in group.rps:
            body += encoded_unicast(rp.address) + struct.pack("!HBB", rp.holdtime, rp.priority, 0)
    return pim(BOOTSTRAP, body, NO_FORWARD if bsm.no_forward else 0)


def candidate_rp_advertisement(rp, prefixes):
    body = struct.pack("!BBH", len(prefixes), rp.priority, rp.holdtime) + encoded_unicast(rp.address)
    return pim(CRP_ADV, body + b"".join(encoded_group(prefix) for prefix in prefixes))


def hello_body(generation_id):
    """The options that every router sends: holdtime, DR priority, generation ID."""
    return struct.pack("!HHH HHI HHI", 1, 2, 105, 19, 4, 1, 20, 4, generation_id)


def shared_tree_join(upstream, group, rp):
    body = encoded_unicast(upstream) + struct.pack("!BBH", 0, 1, 210)
    body += encoded_group(f"{group}/32") + struct.pack("!HH", 1, 0)
    return pim(JOIN_PRUNE, body + struct.pack("!BBBB", 1, 0, RPT_JOIN, 32) + address_bytes(rp))


def ipv4(source, destination, protocol, body, ttl):
    header = struct.pack("!BBHHHBBH", 0x45, 0xC0, 20 + len(body), 0, 0, ttl, protocol, 0)
    header += address_bytes(source) + address_bytes(destination)
    return header[:10] + struct.pack("!H", checksum(header)) + header[12:] + body


def ipv6_hello(source, generation_id):
    addresses = address_bytes(source) + address_bytes(ALL_PIM_ROUTERS_V6)
    body = hello_body(generation_id)
    pseudo_header = addresses + struct.pack("!II", 4 + len(body), PROTOCOL_PIM)
    message = pim(HELLO, body, pseudo_header=pseudo_header)
    return struct.pack("!IHBB", 0x6C000000, len(message), PROTOCOL_PIM, 1) + addresses + message


def mac_of_multicast(address):
    return "01:00:5e:%02x:%02x:%02x" % (address_bytes(address)[1] & 0x7F, *address_bytes(address)[2:])


def to_group(time, sender, message, group=ALL_PIM_ROUTERS):
    """What a neighbor sends to a multicast group of the link."""
    packet = ipv4(sender.ip, group, PROTOCOL_PIM, message, ttl=1)
    return Packet(time, sender.mac, mac_of_multicast(group), IPV4, packet)


def to_host(time, sender, receiver, message):
    """What a neighbor sends to one station of the link."""
    packet = ipv4(sender.ip, receiver.ip, PROTOCOL_PIM, message, ttl=1)
    return Packet(time, sender.mac, receiver.mac, IPV4, packet)


def advertisement(time, last_hop, next_hop, bsr, candidate):
    """What a candidate RP for all groups sends to a BSR, as it crosses the link from router to router."""
    message = candidate_rp_advertisement(candidate, ["224.0.0.0/4"])
    packet = ipv4(candidate.address, bsr, PROTOCOL_PIM, message, ttl=62)
    return Packet(time, last_hop.mac, next_hop.mac, IPV4, packet)


def hello(time, sender, generation_id):
    return to_group(time, sender, pim(HELLO, hello_body(generation_id)))


# --------------------------------------------------------------------------------------------------
# The course of events. Times are in seconds after the first packet.
# --------------------------------------------------------------------------------------------------

# The link: two neighbors, and the router that listens.
EAST = Host("192.0.2.1", "00:00:5e:00:53:01")
WEST = Host("192.0.2.2", "00:00:5e:00:53:02")
LISTENER = Host("192.0.2.9", "00:00:5e:00:53:09")

EAST_GENERATION = 0x5EED0001
WEST_GENERATION = 0x5EED0002
WEST_RESTARTED = 0x5EED0003
RESTART = 172.200

# The zones. A scoped zone names itself, with the Z bit, in the first record of each of its messages.
GLOBAL = "224.0.0.0/4"
REGION = "239.192.0.0/14"
SITE = "239.255.0.0/16"

# The bootstrap routers: the first two contend for the global zone.
BSR_OLD, BSR_NEW = "198.51.100.1", "198.51.100.2"
BSR_REGION = "198.51.100.3"
BSR_SITE = "198.51.100.4"


def rp(last_byte, **values):
    return Rp(f"203.0.113.{last_byte}", **values)


def every_minute(first, last):
    """The times of a BSR's periodic messages."""
    return [round(first + 60 * n, 3) for n in range(round((last - first) / 60) + 1)]


def hellos():
    """Each neighbor sends a Hello every 30 seconds; the western one restarts once, with a new ID."""
    packets = [hello(30.0 * n, EAST, EAST_GENERATION) for n in range(31)]
    packets += [hello(0.7 + 30 * n, WEST, WEST_GENERATION) for n in range(6)]
    packets += [hello(RESTART + 30 * n, WEST, WEST_RESTARTED) for n in range(25)]
    return packets


# What the first BSR of the global zone says. It has two RPs for all groups and one for a small range.
SMALL_RANGE = Range("233.252.0.0/24", (rp(3, priority=5),))
ALL_THREE = (Range(GLOBAL, (rp(1), rp(2, priority=20))), SMALL_RANGE)
# Then the second RP withdraws itself.
ONE_WITHDRAWN = (Range(GLOBAL, (rp(1), rp(2, holdtime=0, priority=20))), SMALL_RANGE)
# From then on the second RP isn't named, nor is the third one, which was not withdrawn: it has to expire.
ONE_LEFT = (Range(GLOBAL, (rp(1),)),)


def old_bsm(number, ranges=ALL_THREE, **values):
    return Bsm(BSR_OLD, 64, 0x0100 + number, ranges, **values)


def first_global_bsr():
    """The BSR that the listener finds when it comes up. Its messages come by way of the eastern neighbor."""
    return [
        # The neighbor has heard the listener's first Hello and hands it what is known.
        to_group(1.500, EAST, bootstrap(old_bsm(0, no_forward=True))),
        to_group(10.110, EAST, bootstrap(old_bsm(1))),
        to_group(70.110, EAST, bootstrap(old_bsm(2))),
        to_group(130.110, EAST, bootstrap(old_bsm(3, ONE_WITHDRAWN))),
        to_group(190.110, EAST, bootstrap(old_bsm(4, ONE_LEFT))),
        to_group(250.110, EAST, bootstrap(old_bsm(5, ONE_LEFT))),
        to_group(310.110, EAST, bootstrap(old_bsm(6, ONE_LEFT))),
        # This one crosses the first message of the better BSR, and is the last that this BSR sends.
        to_group(370.110, EAST, bootstrap(old_bsm(7, ONE_LEFT))),
    ]


def second_global_bsr():
    """A BSR of higher priority appears beyond the western neighbor, with one old RP and one of its own."""
    packets = []
    for number, time in enumerate(every_minute(369.630, 849.630), start=1):
        kept = rp(1) if time < 600 else rp(1, priority=1)
        bsm = Bsm(BSR_NEW, 128, 0x0200 + number, (Range(GLOBAL, (kept, rp(4, priority=5))),))
        packets.append(to_group(time, WEST, bootstrap(bsm)))
    return packets


def region_fragments(number):
    """Two fragments of one message: five RPs of one range as 2 + 3. Both begin with the zone's own record."""
    split = [rp(last_byte) for last_byte in (11, 12, 13, 14, 15)]
    fragments = (
        (Range(REGION, (rp(5),), ADMIN_SCOPE), Range("239.194.0.0/16", tuple(split[:2]), rp_count=5)),
        (Range(REGION, (), ADMIN_SCOPE, rp_count=1), Range("239.194.0.0/16", tuple(split[2:]), rp_count=5)),
    )
    return [bootstrap(Bsm(BSR_REGION, 10, 0x0300 + number, ranges)) for ranges in fragments]


def region_zone():
    """A scoped zone that stays. One fragment is lost on the way, and once the second overtakes the first."""
    packets = []
    for number, time in enumerate(every_minute(20.240, 860.240), start=1):
        first, second = region_fragments(number)
        if number == 5:
            packets.append(to_group(time, EAST, first))
            continue
        if number == 6:
            first, second = second, first
        packets += [to_group(time, EAST, first), to_group(round(time + 0.004, 3), EAST, second)]
    return packets


def site_zone():
    """A scoped zone whose BSR is heard four times and then never again."""
    ranges = (Range(SITE, (rp(21), rp(22, holdtime=100)), ADMIN_SCOPE),)
    return [
        to_group(time, WEST, bootstrap(Bsm(BSR_SITE, 0, 0x0400 + number, ranges)))
        for number, time in enumerate(every_minute(30.350, 210.350), start=1)
    ]


def candidate_rps():
    """Candidate RPs advertise themselves to the BSR, across the link. The listener has no use for that."""
    leaving = rp(2, holdtime=0, priority=20)
    return [
        advertisement(40.500, WEST, EAST, BSR_OLD, rp(1)),
        advertisement(125.500, WEST, EAST, BSR_OLD, leaving),
        advertisement(400.500, EAST, WEST, BSR_NEW, rp(1)),
    ]


def damaged(message):
    """The message with one bit of its BSR priority flipped on the way: the checksum no longer holds."""
    return message[:7] + bytes([message[7] ^ 0x40]) + message[8:]


def strays():
    """Messages that a follower has to drop, and messages that don't concern it."""
    return [
        to_group(45.000, WEST, shared_tree_join(EAST.ip, "233.252.0.7", rp(3).address)),
        Packet(50.000, EAST.mac, "33:33:00:00:00:0d", IPV6, ipv6_hello("fe80::1", EAST_GENERATION)),
        # The same message as 20 ms before, forwarded by the neighbor that isn't the way to the BSR.
        to_group(70.130, WEST, bootstrap(old_bsm(2))),
        to_group(95.000, EAST, bootstrap(old_bsm(2)), group=ALL_SYSTEMS),
        to_host(100.000, EAST, LISTENER, bootstrap(old_bsm(2, no_forward=True))),
        # The western neighbor has restarted, so the eastern one hands it, not the listener, what is known.
        to_group(RESTART + 0.7, EAST, bootstrap(old_bsm(3, ONE_WITHDRAWN, no_forward=True))),
        to_group(215.000, EAST, bootstrap(old_bsm(4, ONE_LEFT, hash_mask_len=33))),
        to_group(255.000, EAST, damaged(bootstrap(old_bsm(5, ONE_LEFT)))),
    ]


def two_scopes():
    chapters = (hellos, first_global_bsr, second_global_bsr, region_zone, site_zone, candidate_rps, strays)
    packets = itertools.chain.from_iterable(chapter() for chapter in chapters)
    return sorted(packets, key=lambda packet: packet.time)


# --------------------------------------------------------------------------------------------------
# From packets to link layers and capture files
# --------------------------------------------------------------------------------------------------

ETHERNET, RAW_IP, LINUX_COOKED, USER_0, LINUX_COOKED_2 = 1, 101, 113, 147, 276
ARPHRD_ETHER, COOKED_MULTICAST = 1, 2


def ethernet(packet):
    """A frame, padded to the least length of Ethernet, as a receiver sees it."""
    frame = mac_bytes(packet.dst_mac) + mac_bytes(packet.src_mac) + struct.pack("!H", packet.ethertype)
    return (frame + packet.payload).ljust(60, b"\0")


def vlan(packet):
    addresses = mac_bytes(packet.dst_mac) + mac_bytes(packet.src_mac)
    frame = addresses + struct.pack("!HHH", 0x8100, 42, packet.ethertype)
    return (frame + packet.payload).ljust(64, b"\0")


def raw_ip(packet):
    return packet.payload


def linux_cooked(packet):
    header = struct.pack("!HHH", COOKED_MULTICAST, ARPHRD_ETHER, 6) + mac_bytes(packet.src_mac) + b"\0\0"
    return header + struct.pack("!H", packet.ethertype) + packet.payload


def linux_cooked_2(packet):
    header = struct.pack("!HHIHBB", packet.ethertype, 0, 7, ARPHRD_ETHER, COOKED_MULTICAST, 6)
    return header + mac_bytes(packet.src_mac) + b"\0\0" + packet.payload


def pcap(packets, link_type=ETHERNET, frame=ethernet, start=START, nano=False, order="<", snap_length=65535):
    """A classic capture file, stamped in microseconds or in nanoseconds."""
    magic, unit = (0xA1B23C4D, 1_000_000_000) if nano else (0xA1B2C3D4, 1_000_000)
    file = struct.pack(order + "IHHiIII", magic, 2, 4, 0, 0, snap_length, link_type)
    for packet in packets:
        data = frame(packet)
        ticks = start * unit + round(packet.time * 1_000_000) * (unit // 1_000_000)
        kept = data[:snap_length]
        file += struct.pack(order + "IIII", ticks // unit, ticks % unit, len(kept), len(data)) + kept
    return file


def pcapng_block(kind, body):
    body += b"\0" * (-len(body) % 4)
    length = struct.pack("<I", 12 + len(body))
    return struct.pack("<I", kind) + length + body + length


def pcapng(packets):
    """The newer capture format: a section header, one interface, and a block for each packet."""
    file = pcapng_block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1))
    file += pcapng_block(1, struct.pack("<HHI", ETHERNET, 0, 65535))
    for packet in packets:
        data = ethernet(packet)
        ticks = START * 1_000_000 + round(packet.time * 1_000_000)
        head = struct.pack("<IIIII", 0, ticks >> 32, ticks & 0xFFFFFFFF, len(data), len(data))
        file += pcapng_block(6, head + data)
    return file


# --------------------------------------------------------------------------------------------------
# The small captures of the command's tests
# --------------------------------------------------------------------------------------------------


def few():
    """A Hello, a message of each of two zones and a copy from the wrong side, an advertisement, a Join."""
    site = (Range(SITE, (rp(21),), ADMIN_SCOPE),)
    return [
        hello(0.0, EAST, EAST_GENERATION),
        to_group(1.0, EAST, bootstrap(old_bsm(1))),
        to_group(1.02, WEST, bootstrap(old_bsm(1))),
        to_group(2.0, WEST, bootstrap(Bsm(BSR_SITE, 0, 0x0401, site))),
        advertisement(3.0, WEST, EAST, BSR_OLD, rp(1)),
        to_group(4.0, WEST, shared_tree_join(EAST.ip, "233.252.0.7", rp(3).address)),
    ]


def time_runs_back():
    """Three messages of one BSR; the second is stamped 40 seconds before the first."""
    times = (100.0, 60.0, 160.0)
    return [to_group(time, EAST, bootstrap(old_bsm(number))) for number, time in enumerate(times, start=1)]


def no_pim():
    """One UDP datagram."""
    text = b"no PIM here"
    datagram = struct.pack("!HHHH", 49152, 9, 8 + len(text), 0) + text
    pseudo_header = address_bytes(EAST.ip) + address_bytes(LISTENER.ip)
    pseudo_header += struct.pack("!HH", PROTOCOL_UDP, len(datagram))
    datagram = datagram[:6] + struct.pack("!H", checksum(pseudo_header + datagram)) + datagram[8:]
    packet = ipv4(EAST.ip, LISTENER.ip, PROTOCOL_UDP, datagram, ttl=64)
    return [Packet(0.0, EAST.mac, LISTENER.mac, IPV4, packet)]


def small_captures():
    return {
        # The same packets in every form that a capture may have.
        "few-ethernet.pcap": pcap(few()),
        "few-ethernet.pcapng": pcapng(few()),
        "few-big-endian.pcap": pcap(few(), order=">"),
        "few-nanosecond.pcap": pcap(few(), nano=True),
        "few-vlan.pcap": pcap(few(), frame=vlan),
        "few-cooked.pcap": pcap(few(), LINUX_COOKED, linux_cooked),
        "few-cooked-2.pcap": pcap(few(), LINUX_COOKED_2, linux_cooked_2),
        "few-raw-ip.pcap": pcap(few(), RAW_IP, raw_ip),
        "few-snapped.pcap": pcap(few(), snap_length=64),
        # Clocks that a virtual clock has to be careful with.
        "starts-near-zero.pcap": pcap(few(), start=0),
        "time-runs-back.pcap": pcap(time_runs_back()),
        # Captures that hold nothing for us, and files that are no captures.
        "no-pim.pcap": pcap(no_pim()),
        "header-only.pcap": pcap([]),
        "unknown-link-type.pcap": pcap(few(), USER_0),
        "cut-short.pcap": pcap(few())[:-30],
        "zero-bytes.pcap": b"",
        "not-a-capture.txt": b"This is a text, and no capture of anything.\n",
    }


# --------------------------------------------------------------------------------------------------


def all_files():
    """Every file that this script is the author of, by its path, with its bytes."""
    files = {ROOT / "examples" / "two-scopes.pcap": pcap(two_scopes())}
    for name, data in small_captures().items():
        files[ROOT / "tests" / "cli" / "captures" / name] = data
    return files


def stale(files):
    return [path for path, data in files.items() if not path.is_file() or path.read_bytes() != data]


def main():
    parser = argparse.ArgumentParser(description="Write the example capture and the captures of the tests.")
    parser.add_argument("--check", action="store_true", help="write nothing; exit 1 if a file differs")
    arguments = parser.parse_args()
    files = all_files()
    if arguments.check:
        differing = stale(files)
        for path in differing:
            print(f"{path.relative_to(ROOT)} is not what examples/make_capture.py writes", file=sys.stderr)
        return 1 if differing else 0
    for path, data in files.items():
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)
    return 0


if __name__ == "__main__":
    sys.exit(main())

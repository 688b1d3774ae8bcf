"""The events that scripts/outages plays: networks, what happens in them, and what is counted."""

import re
from collections import namedtuple

# The event comes within a BS_Period from EARLIEST on; then all timers have time to end.
EARLIEST, BS_PERIOD, LENGTH = 300, 60, 500
GROUP = "239.1.1.1"
RANGE = "239.1.0.0/16"
GLOBAL = "224.0.0.0/4"

# What is counted: which answer of a router is looked at (its RP of a group, its BSR of a zone, or how often
# it claims the zone), and whether to have none counts. Addresses in Network.wrong count always.
Measure = namedtuple("Measure", "text answer none_counts")
NO_RP = Measure("without RP", "rp", True)
NO_LIVE_RP = Measure("without live RP", "rp", True)
WRONG_RP = Measure("with a wrong RP", "rp", False)
NO_BSR = Measure("without live BSR", "bsr", True)
WRONG_BSR = Measure("with a wrong BSR", "bsr", False)
CLAIMS = Measure("claims of the zone", "claims", False)


class Network:
    """Routers with two candidate BSRs, an RP, a second one that has yet to become an RP, and others. Each has
    links to three others, so that two that fail part no others."""

    def __init__(self, rng, count):
        self.rng, self.count, self.links = rng, count, 0
        self.address_on = [{} for _ in range(count + 1)]
        self.lines = ["quiet all"]
        for router in range(count):
            self.lines.append(f"router r{router} loopback {loopback(router)}")
        for router in range(1, count):
            for other in rng.sample(range(router), min(3, router)):
                self.join(router, other)
        self.bsr, self.backup, self.rp, self.second, self.follower = rng.sample(range(count), 5)
        self.candidates = [(self.bsr, 100), (self.backup, 50)]
        self.add(f"candidate-rp r{self.rp} {RANGE} priority 10")
        self.at = EARLIEST + rng.randrange(BS_PERIOD)
        self.asked = list(range(count))
        self.groups, self.zone, self.wrong = [GROUP], GLOBAL, set()

    def add(self, *lines):
        self.lines += lines

    def join(self, router, other):
        link = self.links
        self.links += 1
        self.add(f"link l{link} prefix 10.0.{link}.0/24 delay {self.rng.randint(1, 20)}ms")
        for place, one in enumerate((router, other), 1):
            self.address_on[one][link] = f"10.0.{link}.{place}"
            self.add(f"interface r{one} l{link} 10.0.{link}.{place} dr-priority {self.rng.randrange(3)}")
        return link

    def change(self, begin, pattern, text):
        """Changes the statements that begin so."""
        self.lines = [re.sub(pattern, text, line) if line.startswith(begin) else line for line in self.lines]

    def large_links(self):
        """No message needs fragments."""
        self.change("link ", "$", " mtu 9000")

    def beyond(self):
        """A router outside the domain, and the follower's link to it."""
        self.add(f"router r{self.count} loopback {loopback(self.count)}")
        self.wrong = {loopback(self.count)}
        return self.count, self.join(self.count, self.follower)

    def second_preferred(self, ranges=RANGE):
        """The second RP serves the group from the start; its service after the event is wrong."""
        self.add(f"candidate-rp r{self.second} {ranges} priority 1")
        self.wrong = {loopback(self.second)}

    def crash(self, *routers):
        """Routers that lose their power, and are asked no more."""
        self.asked = [router for router in self.asked if router not in routers]
        return [f"crash r{router}" for router in routers]

    def scenario(self, statements):
        bsrs = [f"candidate-bsr r{router} global priority {priority}" for router, priority in self.candidates]
        return self.lines + bsrs + [f"run until {self.at}"] + statements


def loopback(router):
    return f"172.16.0.{router + 1}"


def restart(router):
    return [f"crash r{router}", f"start r{router}"]


def ranges_from(first, count):
    return [f"239.{number // 256}.{number % 256}.0/24" for number in range(first, first + count)]


def groups_of(rng, ranges, count=4):
    return [re.sub(r"0/24$", "1", prefix) for prefix in rng.sample(ranges, count)]


# The BSR and those that follow it ---------------------------------------------------------------------------

def crash_bsr(net):
    return net.crash(net.bsr)


def better_bsr(net):
    return [f"candidate-bsr r{net.backup} global priority 200"]


def return_bsr(net):
    """The BSR has been gone, and the backup is BSR."""
    net.asked.remove(net.bsr)
    net.add(f"at {net.at - 200} crash r{net.bsr}")
    return [f"start r{net.bsr}"]


def readdress_bsr(net):
    address = net.address_on[net.bsr][min(net.address_on[net.bsr])]
    return [f"candidate-bsr r{net.bsr} global priority 100 address {address}"]


def crash_bsr_and_rp(net):
    net.second_preferred()
    return net.crash(net.bsr, net.second)


def end_candidacy(net):
    return [f"no candidate-bsr r{net.bsr} global"]


def stop_bsr(net):
    net.asked.remove(net.bsr)
    net.wrong = {loopback(net.bsr)}
    return [f"stop r{net.bsr}"]


def restart_only_bsr(net):
    net.candidates.pop()
    return restart(net.bsr)


def contend(net):
    """A fourth candidate comes. Where a link takes longer than the way around it, a claim arrives after the
    BSR's answer to it."""
    net.change("link ", r"\d+ms", lambda _: f"{net.rng.choice((1, 50))}ms")
    net.candidates.append((net.second, 50))
    net.asked = [net.backup, net.second, net.follower]
    return [f"candidate-bsr r{net.follower} global priority 50"]


def crash_beside_two(net):
    """The BSR of three candidates crashes, and the weakest one may be BSR beside the next."""
    net.candidates.append((net.second, 20))
    net.asked, net.wrong = [net.second], {loopback(net.second)}
    return net.crash(net.bsr)


def raise_priority(net):
    """In a new zone the backup's priority is raised above the other's before its first election."""
    net.zone, net.wrong = RANGE, {loopback(net.bsr)}
    return [f"candidate-bsr r{net.bsr} {RANGE} priority 50",
            f"at {net.at + 3} candidate-bsr r{net.backup} {RANGE} priority 10",
            f"at {net.at + 4} candidate-bsr r{net.backup} {RANGE} priority 100"]


def end_then_crash(net):
    net.asked, net.wrong = [net.backup], {loopback(net.bsr)}
    return [f"no candidate-bsr r{net.backup} global", f"crash r{net.bsr}"]


def restart_after_expiry(net):
    """The only BSR has been gone for longer than BS_Timeout when a router starts."""
    net.candidates.pop()
    net.add(f"at {net.at - 200} crash r{net.bsr}")
    net.asked, net.wrong = [net.follower], {loopback(net.bsr)}
    return restart(net.follower)


# Routers that start -----------------------------------------------------------------------------------------

def restart_dr(net):
    net.change(f"interface r{net.follower} ", r"\d+$", "9")
    net.asked = [net.follower]
    return restart(net.follower)


def restart_among_fragments(net):
    net.add(f"candidate-rp r{net.rp} {' '.join(ranges_from(512, 200))} priority 10")
    net.asked = [net.follower]
    return restart(net.follower)


def restart_keeping_state(net):
    """The BSR starts with what it knew of an RP that is gone."""
    net.second_preferred()
    return [*net.crash(net.second), f"restart r{net.bsr} keeping state"]


# RPs --------------------------------------------------------------------------------------------------------

def replace_rp(net):
    """The only RP of a range ends when the BSR has heard of the next one."""
    return [f"candidate-rp r{net.second} {RANGE} priority 10",
            f"at {net.at + 4} no candidate-rp r{net.rp} {RANGE}"]


def become_bidirectional(net):
    """The only RP of a range, on a link of the BSR, advertises itself again as bidirectional."""
    net.groups = ["239.6.1.1"]
    link = min(net.address_on[net.bsr])
    for time in range(60, net.at + LENGTH, 60):
        mode = " bidir" if time > net.at else ""
        net.add(f"at {time} inject l{link} crp-adv from 10.0.{link}.99 to {loopback(net.bsr)} holdtime 150 "
                f"group 239.6.0.0/16{mode}")
    return []


def withdraw_range(net):
    net.second_preferred(f"{RANGE} 239.2.0.0/16")
    return [f"no candidate-rp r{net.second} {RANGE}"]


def lose_withdrawal(net):
    """All links of the BSR lose packets while it withdraws an RP."""
    net.second_preferred()
    lossy = [f"at {net.at + 5} faults loss 100% on l{link}" for link in net.address_on[net.bsr]]
    sound = [f"at {net.at + 20} faults none on l{link}" for link in net.address_on[net.bsr]]
    return [f"no candidate-rp r{net.second} {RANGE}", *lossy, *sound]


def many_ranges(net):
    ranges = ranges_from(512, net.rng.randint(100, 200))
    net.groups = groups_of(net.rng, ranges)
    net.add(f"candidate-rp r{net.second} {' '.join(ranges)}")
    return []


def too_many_ranges(net):
    """More than one advertisement can have."""
    ranges = ranges_from(512, 300)
    net.large_links()
    net.groups = groups_of(net.rng, ranges)
    net.add(f"candidate-rp r{net.second} {' '.join(ranges)}")
    return []


def fill_range(net):
    """A range gets a 256th RP."""
    net.large_links()
    net.add("limits rps-per-range 0")
    net.groups, net.asked = ["239.6.1.1"], [net.rp, net.second, net.follower]
    link = min(net.address_on[net.bsr])
    adverts = [f"inject l{link} crp-adv from 10.77.0.{number} to {loopback(net.bsr)} priority {number % 7} "
               "holdtime 150 group 239.6.0.0/16" for number in range(256)]
    for time in range(60, net.at + LENGTH, 60):
        net.add(*(f"at {time} {advert}" for advert in (adverts[:-1] if time <= net.at else adverts)))
    return []


def long_holdtime(net):
    """A BSR names an RP with a holdtime that no router keeps, beside a sound one. It is made up: it has the
    address of a router that is a candidate RP alone, so that there are routes to it."""
    net.add(f"candidate-rp r{net.second} 239.3.0.0/16")
    net.asked.remove(net.second)
    net.groups = ["239.4.1.1"]
    sound = f"group 239.4.0.0/16 rp {loopback(net.rp)}"
    for time in range(120, net.at + LENGTH, 60):
        long = f" group 239.5.0.0/16 rp {loopback(net.rp)} holdtime 65535" if time >= net.at else ""
        for link, address in net.address_on[net.second].items():
            net.add(f"at {time} inject l{link} bsm from {address} bsr {loopback(net.second)} priority 200 "
                    f"tag {time} {sound}{long}")
    return []


# Borders ----------------------------------------------------------------------------------------------------

def zone_within_border(net):
    """Beyond a border of 239.0.0.0/8 a zone within that comes up."""
    beyond, link = net.beyond()
    net.add(f"border r{net.follower} l{link} 239.0.0.0/8")
    return [f"candidate-bsr r{beyond} {RANGE}", f"at {net.at + 30} candidate-rp r{beyond} {RANGE} priority 1"]


def leak(net):
    """A zone from beyond leaks until the follower gets a border for it."""
    beyond, link = net.beyond()
    net.add(f"candidate-bsr r{beyond} {RANGE}", f"at 60 candidate-rp r{beyond} {RANGE} priority 1")
    return [f"border r{net.follower} l{link} {RANGE}"]


def leak_at_border(net):
    statements = leak(net)
    net.asked = [net.follower]
    return statements


def leak_within(net):
    statements = leak(net)
    net.asked.remove(net.follower)
    return statements


Event = namedtuple("Event", "name correction measure play")
EVENTS = [
    Event("a range is taken from an RP", "withdraw-range", WRONG_RP, withdraw_range),
    Event("an RP takes another's place", "withdrawals-last", NO_RP, replace_rp),
    Event("an RP becomes bidirectional", "withdrawals-last", NO_RP, become_bidirectional),
    Event("a range gets a 256th RP", "range-full", NO_RP, fill_range),
    Event("an RP has 100 to 200 ranges", "cut-by-size", NO_RP, many_ranges),
    Event("a router restarts among 201 ranges", "cut-by-size", NO_RP, restart_among_fragments),
    Event("an RP has 300 ranges", "all-ranges", NO_RP, too_many_ranges),
    Event("a DR restarts", "quick-relearn", NO_RP, restart_dr),
    Event("the BSR crashes", "hold-over", NO_RP, crash_bsr),
    Event("a better BSR comes", "hold-over", NO_RP, better_bsr),
    Event("a BSR that crashed returns", "hold-over", NO_RP, return_bsr),
    Event("the BSR gets another address", "hold-over", NO_RP, readdress_bsr),
    Event("the BSR's candidacy ends", "hold-over", NO_RP, end_candidacy),
    Event("BSR and preferred RP crash", "hold-over", NO_LIVE_RP, crash_bsr_and_rp),
    Event("a holdtime of 65535 s", "fit", NO_RP, long_holdtime),
    Event("a fourth candidate BSR comes", "elected-only", CLAIMS, contend),
    Event("the BSR of three candidates crashes", "elected-only", WRONG_BSR, crash_beside_two),
    Event("the BSR stops in order", "lowered-bsr", NO_BSR, stop_bsr),
    Event("a priority rises before the election", "candidacy-changes", WRONG_BSR, raise_priority),
    Event("a candidacy ends, then its BSR crashes", "candidacy-changes", WRONG_BSR, end_then_crash),
    Event("a router starts after the BSR's end", "expired-bsr", WRONG_BSR, restart_after_expiry),
    Event("a withdrawal is lost", "repeat-withdrawal", WRONG_RP, lose_withdrawal),
    Event("a zone comes up beyond a border", "covering-border", WRONG_RP, zone_within_border),
    Event("a border ends a leak: its router", "forget-leak", WRONG_RP, leak_at_border),
    Event("a border ends a leak: other routers", "forget-leak", WRONG_RP, leak_within),
    Event("the BSR restarts with kept state", "kept-status", WRONG_RP, restart_keeping_state),
    Event("the only BSR restarts", "not-own-bsr", NO_BSR, restart_only_bsr),
]

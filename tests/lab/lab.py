"""Routers on the real kernel: network namespaces, the links between them, an agent in each, and captures.

A lab makes its namespaces under a prefix of its own and removes them at its end, also after an error. Both
ends of each link are in them."""

import collections
import json
import os
import pathlib
import random
import signal
import socket
import subprocess
import tempfile
import time

CLOCK_RATE = 50
TYPES = {"0": "Hello", "4": "Bootstrap", "8": "Candidate-RP-Advertisement"}


class LabError(Exception):
    """An error of the lab itself, or an expected event that did not occur in time."""


def run(*words, check=True):
    done = subprocess.run([str(part) for part in words], capture_output=True, text=True)
    if check and done.returncode != 0:
        raise LabError(f"{' '.join(map(str, words))}: {done.stderr.strip()}")
    return done.stdout


def why_not():
    """The reason why no lab can run here; None if one can. Entering a namespace is tried too: in some
    containers and chroots mounting /sys in it fails."""
    if os.geteuid() != 0:
        return "not root"
    name = f"pimbsr-try-{os.getpid()}"
    try:
        run("ip", "netns", "add", name)
        try:
            run("ip", "netns", "exec", name, "true")
        finally:
            run("ip", "netns", "del", name)
    except (OSError, LabError) as error:
        return f"no network namespaces: {error}"
    return None


def wait_until(holds, what, seconds=20):
    """Waits until `holds` returns something true, and returns that."""
    end = time.monotonic() + seconds
    while True:
        if result := holds():
            return result
        if time.monotonic() > end:
            raise LabError(f"waited {seconds} s in vain until {what}")
        time.sleep(0.02)


class Agent:
    """A process in a namespace, which writes to a log."""

    def __init__(self, namespace, words, log):
        self.process = subprocess.Popen(["ip", "netns", "exec", namespace, *map(str, words)],
                                        stdin=subprocess.DEVNULL, stdout=log, stderr=log)

    def is_running(self):
        return self.process.poll() is None

    def end(self, number=signal.SIGTERM, seconds=10):
        """Sends a signal and waits for the end: returns its exit status and how long that took."""
        start = time.monotonic()
        self.process.send_signal(number)
        status = self.process.wait(seconds)
        return status, time.monotonic() - start


class Router:
    """A router of a lab: a namespace with interfaces, and the agent in it while one runs."""

    def __init__(self, lab, name):
        self.lab, self.name, self.namespace = lab, name, f"{lab.prefix}-{name}"
        self.folder = lab.folder / name
        self.folder.mkdir()
        self.socket = self.folder / "control.sock"
        self.file = self.folder / "pimbsr.toml"
        self.log = self.folder / "log"
        self.addresses = {}  # by interface, "10.0.0.1/24"
        self.agent = None
        lab.namespace(self.namespace)
        self.ip("link", "set", "lo", "up")

    def ip(self, *words):
        return run("ip", "-n", self.namespace, *words)

    def sysctl(self, setting):
        run("ip", "netns", "exec", self.namespace, "sh", "-c",
            "echo {1} > /proc/sys/{0}".format(*setting.split("=")))

    def loopback(self, address):
        """Gives the router an address that is on no link."""
        self.ip("addr", "add", f"{address}/32", "dev", "lo")
        self.addresses["lo"] = f"{address}/32"

    def route(self, prefix, via):
        self.ip("route", "replace", prefix, "via", via)

    def config(self, text=""):
        """Writes the configuration file: PIM on all interfaces but lo, and what is given."""
        interfaces = "".join(f"[interface.{name}]\n" for name in self.addresses if name != "lo")
        self.file.write_text(f'{interfaces}[control]\nsocket = "{self.socket}"\n'
                             f'[state]\ndirectory = "{self.folder}"\n{text}\n')

    def amend(self, interface, line):
        """Adds a line to an interface of the configuration file."""
        header = f"[interface.{interface}]\n"
        self.file.write_text(self.file.read_text().replace(header, header + line + "\n"))

    def start(self, *options, log=None):
        """Starts the agent and waits until it answers. `log` is a descriptor in place of the file."""
        if not self.file.exists():
            self.config()
        self.lab.record()
        words = [*self.lab.wrapper, self.lab.command, "run", "--config", self.file,
                 "--clock-rate", self.lab.clock_rate, *self.lab.run_options, *options]
        with self.log.open("ab") as file:
            self.agent = Agent(self.namespace, words, log or file)
        wait_until(lambda: self.is_answering() or not self.agent.is_running(), f"{self.name} answers", 60)
        if not self.agent.is_running():
            raise LabError(f"{self.name} ended at once:\n{self.log.read_text()}")

    def is_answering(self):
        if not self.socket.exists():
            return False
        return self.command("show", "interfaces", check=False) is not None

    def stop(self):
        """Ends the agent in order; returns how long that took."""
        status, seconds = self.agent.end(seconds=60 if self.lab.wrapper else 10)
        if status != 0:
            raise LabError(f"{self.name} ended with {status}:\n{self.log.read_text()}")
        self.agent = None
        return seconds

    def kill(self):
        self.agent.end(signal.SIGKILL)
        self.agent = None

    def command(self, *words, check=True):
        """Output of a control command; None if it failed and need not succeed."""
        done = subprocess.run([str(self.lab.command), *map(str, words), "--socket", str(self.socket)],
                              capture_output=True, text=True)
        if done.returncode == 0:
            return done.stdout
        if check:
            raise LabError(f"{self.name}: {' '.join(map(str, words))}: {done.stdout}{done.stderr}")
        return None

    def show(self, *what):
        return json.loads(self.command("show", *what, "--json"))

    def ask(self, command):
        """The result of a request of one word over the control socket."""
        return next(self.answers([{"command": command}]))["result"]

    def answers(self, requests):
        """The answer to each request, all over one connection."""
        with socket.socket(socket.AF_UNIX) as client:
            client.settimeout(20)
            client.connect(str(self.socket))
            with client.makefile() as lines:
                for request in requests:
                    client.sendall(json.dumps(request).encode() + b"\n")
                    yield json.loads(lines.readline())


class Link:
    """A link between routers; its packets are captured where its first end is."""

    def __init__(self, lab, name, ends):
        self.lab, self.name, self.ends = lab, name, ends
        self.capture = None

    def set(self, router, state):
        interface = next(interface for end, interface in self.ends if end is router)
        router.ip("link", "set", interface, state)
        if state == "up":
            self.lab.write_routes()


class Lab:
    def __init__(self, command, wrapper=(), clock_rate=CLOCK_RATE, run_options=(), records=False):
        self.command, self.wrapper = command, list(wrapper)
        self.clock_rate, self.run_options = clock_rate, list(run_options)
        self.prefix = f"pb{os.getpid()}{random.randrange(1000)}"
        self.temporary = tempfile.TemporaryDirectory(prefix="pimbsr-lab-")
        self.folder = pathlib.Path(self.temporary.name)
        self.routers, self.links, self.subnets = {}, [], {}
        self.namespaces, self.captures, self.records = [], [], records

    def __enter__(self):
        return self

    def __exit__(self, kind, error, trace):
        try:
            if kind is not None:
                self.report()
        finally:  # also where the report is not read
            self.close()

    def report(self):
        """Prints what the routers had to say, for one who looks into a failure."""
        for router in self.routers.values():
            if router.log.exists():
                print(f"--- {router.name}\n{router.log.read_text()[-4000:]}")
            if router.agent and router.agent.is_running():
                for what in ("bsr", "rp-set", "neighbors", "drops", "history"):
                    print(router.command("show", what, check=False) or f"no answer to show {what}")

    def close(self):
        for process in self.captures:
            process.kill()
            process.wait()
        for router in self.routers.values():
            if router.agent and router.agent.is_running():
                router.agent.process.kill()
                router.agent.process.wait()
        for namespace in self.namespaces:
            run("ip", "netns", "del", namespace, check=False)
        self.temporary.cleanup()

    # Building ----------------------------------------------------------------------------------------

    def namespace(self, name):
        """Makes a network namespace that goes with the lab, also if the lab can't be completed."""
        self.namespaces.append(name)
        run("ip", "netns", "add", name)

    def router(self, name):
        self.routers[name] = Router(self, name)
        return self.routers[name]

    def chain(self, *names):
        """Routers in a chain, with a loopback address 10.255.0.N each and routes to all."""
        routers = [self.router(name) for name in names]
        for number, router in enumerate(routers, 1):
            router.loopback(f"10.255.0.{number}")
        links = [self.link(a, b) for a, b in zip(routers, routers[1:])]
        self.write_routes()
        return routers, links

    def link(self, one, other, mtu=1500):
        """A link of two routers: eth-<peer> at each end, 10.0.N.1 and 10.0.N.2."""
        number = len(self.links) + 1
        names = f"eth-{other.name}", f"eth-{one.name}"
        run("ip", "link", "add", names[0], "netns", one.namespace, "mtu", mtu, "type", "veth",
            "peer", "name", names[1], "netns", other.namespace, "mtu", mtu)
        for end, (router, interface) in enumerate(((one, names[0]), (other, names[1])), 1):
            self.attach(router, interface, f"10.0.{number}.{end}/24")
        self.links.append(Link(self, f"{one.name}-{other.name}", [(one, names[0]), (other, names[1])]))
        return self.links[-1]

    def lan(self, *routers):
        """A link of several routers over a bridge in a namespace: interface lan, 10.0.N.1 and on."""
        number = len(self.links) + 1
        bridge = f"{self.prefix}-lan{number}"
        self.namespace(bridge)
        run("ip", "-n", bridge, "link", "add", "lan", "type", "bridge", "mcast_snooping", 0)
        run("ip", "-n", bridge, "link", "set", "lan", "up")
        for end, router in enumerate(routers, 1):
            run("ip", "link", "add", "lan", "netns", router.namespace, "type", "veth",
                "peer", "name", f"port{end}", "netns", bridge)
            run("ip", "-n", bridge, "link", "set", f"port{end}", "master", "lan", "up")
            self.attach(router, "lan", f"10.0.{number}.{end}/24")
        self.links.append(Link(self, f"lan{number}", [(router, "lan") for router in routers]))
        return self.links[-1]

    def attach(self, router, interface, address):
        router.addresses[interface] = address
        router.ip("addr", "add", address, "dev", interface)
        router.ip("link", "set", interface, "up")
        router.sysctl("net/ipv4/ip_forward=1")

    def write_routes(self):
        """Shortest routes from each router to every link and loopback that it is not on."""
        for start in self.routers.values():
            for prefix, via in self.next_hops(start).items():
                start.route(prefix, via)

    def next_hops(self, start):
        found, seen, waiting = {}, {start.name}, collections.deque([(start, None)])
        own = {subnet_of(address) for address in start.addresses.values()}
        while waiting:
            router, first = waiting.popleft()
            for address in router.addresses.values():
                if first and (prefix := subnet_of(address)) not in own:
                    found.setdefault(prefix, first)
            for link in self.links:
                if not any(end is router for end, _ in link.ends):
                    continue
                for peer, interface in link.ends:
                    if peer.name not in seen:
                        seen.add(peer.name)
                        waiting.append((peer, first or peer.addresses[interface].split("/")[0]))
        return found

    def start(self, *routers):
        for router in routers or self.routers.values():
            router.start()

    # Captures ----------------------------------------------------------------------------------------

    def record(self):
        """Captures all PIM of the links from here on, if this lab records and doesn't yet."""
        for link in self.links if self.records else ():
            if link.capture:
                continue
            router, interface = link.ends[0]
            link.capture = self.folder / f"{link.name}.pcap"
            words = ["ip", "netns", "exec", router.namespace, "dumpcap", "-q", "-P", "-i", interface,
                     "-f", "ip proto 103", "-w", str(link.capture)]
            self.captures.append(subprocess.Popen(words, stderr=subprocess.DEVNULL))
            wait_until(lambda: link.capture.exists() and link.capture.stat().st_size > 0, "dumpcap has begun")

    def packets(self):
        """Ends the captures and returns what an independent dissector reads in them, as rows: source,
        destination, TTL, type of service, type, status of the checksum, malformed, complaint. A packet in
        fragments, as a long advertisement is, is one row."""
        for process in self.captures:
            process.send_signal(signal.SIGINT)
            process.wait(10)
        self.captures = []
        fields = ["ip.src", "ip.dst", "ip.ttl", "ip.dsfield", "pim.type", "pim.cksum.status", "_ws.malformed",
                  "_ws.expert.message"]
        rows = []
        for link in self.links:
            if link.capture:
                words = ["tshark", "-n", "-r", link.capture, "-Y", "pim", "-T", "fields", "-E", "separator=|"]
                for field in fields:
                    words += ["-e", field]
                rows += [line.split("|") for line in run(*words).splitlines()]
        return rows


def subnet_of(address):
    host, length = address.split("/")
    number = int.from_bytes(map(int, host.split(".")), "big") >> 32 - int(length) << 32 - int(length)
    return ".".join(map(str, number.to_bytes(4, "big"))) + "/" + length

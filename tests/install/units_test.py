"""The command of each service unit runs under the restrictions of system calls that its unit sets, as the
user that the unit gives it, with no more capabilities.

Usage: units_test.py PIMBSR. Exits with 77, for skipped, if it can't run here, unless PIMBSR_LAB_REQUIRED is
1, with 1."""

import functools
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import unittest

TESTS = pathlib.Path(__file__).resolve().parents[1]
for folder in ("support", "lab", "web"):
    sys.path.insert(0, str(TESTS / folder))
from agents import FakeAgent  # noqa: E402  found by the lines before
from lab import Lab, wait_until, why_not  # noqa: E402
from needs import end_without  # noqa: E402

BUILT = pathlib.Path(sys.argv[1]).resolve()
PACKAGING = TESTS.parent / "packaging"
SERVICE_USER = 65534
EPERM, EAFNOSUPPORT = 1, 97
MAX_FAMILIES = 46  # AF_MAX of the kernel's headers
# Further settings of units that forbid system calls, by systemd.exec(5).
FORBIDDING = {"ProtectClock": ["@clock"], "PrivateDevices": ["@raw-io"], "ProtectKernelModules": ["@module"],
              "ProtectKernelLogs": ["syslog"], "ProtectHostname": ["sethostname", "setdomainname"]}


@functools.lru_cache
def call_sets():
    """The calls and sets of each set of systemd."""
    listed = subprocess.run(["systemd-analyze", "syscall-filter"], capture_output=True, text=True, check=True)
    sets, current = {}, None
    for line in listed.stdout.splitlines():
        if line.startswith("@"):
            current = sets.setdefault(line.strip(), [])
        elif not line.startswith(" "):
            current = []  # calls that are in no set follow
        elif line.strip() and not line.strip().startswith("#"):
            current.append(line.strip())
    return sets


def calls_of(name):
    """The calls of a set, or the call of this name alone."""
    if not name.startswith("@"):
        return {name}
    return set().union(*map(calls_of, call_sets()[name]))


class Unit:
    """A service unit: its settings, each with its values in order."""

    def __init__(self, path):
        self.settings = {}
        for line in path.read_text(encoding="utf-8").splitlines():
            if found := re.match(r"(\w+)=(.*)", line):
                self.settings.setdefault(found[1], []).append(found[2])

    def words(self, name):
        return " ".join(self.settings.get(name, [])).split()

    def command(self, program):
        """What it executes, with another program in place of the installed one."""
        return [str(program), *shlex.split(self.settings["ExecStart"][0])[1:]]

    def filters(self):
        """The filters for as_service.py, that of the allowed calls last, since it forbids more filters."""
        forbidden = [[EPERM, call, None] for name, sets in FORBIDDING.items()
                     if self.settings.get(name) == ["yes"] for one in sets for call in sorted(calls_of(one))]
        families = {getattr(socket, name) for name in self.words("RestrictAddressFamilies")}
        forbidden += [[EAFNOSUPPORT, "socket", number] for number in range(MAX_FAMILIES)
                      if number not in families]
        found = [{"default": "allow", "rules": forbidden}]
        if allowed := self.allowed():
            rules = [["allow", call, None] for call in sorted(allowed)]
            found.append({"default": "kill", "rules": rules})
        return found

    def allowed(self):
        """The calls of SystemCallFilter=; none if the unit has no such setting."""
        allowed = calls_of("@default") if "SystemCallFilter" in self.settings else set()
        for value in self.settings.get("SystemCallFilter", []):
            calls = set().union(*map(calls_of, value.lstrip("~").split()))
            allowed = allowed - calls if value.startswith("~") else allowed | calls
        return allowed

    def prefix(self):
        """The words before a command that start it as the service manager starts the unit's."""
        names = [name.removeprefix("CAP_").lower() for name in self.words("CapabilityBoundingSet")]
        terms = {"user": SERVICE_USER, "capabilities": names, "filters": self.filters()}
        return [sys.executable, "-B", str(TESTS / "install" / "as_service.py"), json.dumps(terms)]


class UnitsTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="pimbsr-units-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.folder.chmod(0o755)
        # The user of the services may not be able to read the folder of the build.
        self.program = self.folder / "pimbsr"
        shutil.copy(BUILT, self.program)
        for library in BUILT.parent.glob("libpimbsr*.so*"):
            shutil.copy(library, self.folder)
            os.environ["LD_LIBRARY_PATH"] = str(self.folder)

    def test_web_services_answer_under_their_filters(self):
        for name in ("pimbsr-web.service", "pimbsr-metrics.service"):
            with self.subTest(unit=name):
                unit = Unit(PACKAGING / name)
                self.assertNotIn("capset", unit.allowed())
                self.assertIn('pimbsr_uptime_seconds{agent="r1"} 7', self.metrics_of(unit, name))

    def metrics_of(self, unit, name):
        """What a service serves at /metrics, on a socket that the service manager has opened."""
        agent = FakeAgent(self.folder / f"{name}.sock")
        agent.path.chmod(0o666)
        listener = socket.create_server(("127.0.0.1", 0))
        words = [*unit.prefix(), *unit.command(self.program), "--agent", f"r1={agent.path}"]
        process = subprocess.Popen(["sh", "-c", f'exec "$@" 3<&{listener.fileno()}', "sh", *words],
                                   pass_fds=[listener.fileno()], stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT, text=True)
        try:
            line = process.stdout.readline()
            self.assertIn("Serving", line, "" if line else f"it ended with {process.wait(10)}")
            text = answer_of(listener.getsockname(), "/metrics")
        finally:
            process.terminate()
            status = process.wait(10)
            process.stdout.close()
            listener.close()
            agent.stop()
        self.assertEqual(0, status)
        return text

    def test_agent_service_starts_its_state_writer_again_under_its_filters(self):
        """The agent and its helper processes live, and a state writer that dies is replaced."""
        unit = Unit(PACKAGING / "pimbsr.service")
        with Lab(self.program, wrapper=unit.prefix(), clock_rate=1) as lab:
            lab.folder.chmod(0o755)
            router = lab.router("r1")
            router.loopback("10.255.0.1")
            os.chown(router.folder, SERVICE_USER, SERVICE_USER)
            router.start()
            agent = router.agent.process.pid
            starter = wait_until(lambda: helpers_of(agent, "pimbsr-starter"), "the starter runs")
            first = self.writers_of(agent)
            for writer in first:
                os.kill(writer, signal.SIGKILL)
            wait_until(lambda: not first & self.writers_of(agent), "other writers run")
            self.assertEqual(starter, helpers_of(agent, "pimbsr-starter"))
            wait_until(lambda: "kept again" in router.log.read_text(), "the new writer has written")
            self.assertRegex(router.command("metrics"), r"\npimbsr_state_writer_restarts_total [1-9]")
            router.stop()
            history = router.folder / "history.jsonl"
            wait_until(lambda: "agentStopped" in history.read_text(), "the new writer has written the end")

    def writers_of(self, agent):
        """The process that holds the lock of the state directory and the one that writes, once both run."""
        return wait_until(lambda: found if len(found := helpers_of(agent, "pimbsr-state")) == 2 else None,
                          "two processes write the state")


def answer_of(address, path):
    with socket.create_connection(address, timeout=10) as client:
        client.sendall(f"GET {path} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n".encode())
        with client.makefile() as answer:
            return answer.read()


def helpers_of(agent, name):
    """The processes of a name that descend from an agent."""
    parents, found = {}, set()
    for folder in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            text = (folder / "stat").read_text()
        except OSError:
            continue  # it has ended meanwhile
        parents[int(folder.name)] = int(text.rpartition(")")[2].split()[1])
        if text[text.index("(") + 1:text.rindex(")")] == name:
            found.add(int(folder.name))
    return {process for process in found if descends(process, agent, parents)}


def descends(process, ancestor, parents):
    while process and process != ancestor:
        process = parents.get(process)
    return process == ancestor


if __name__ == "__main__":
    if not shutil.which("systemd-analyze"):
        end_without("systemd-analyze is not installed; scripts/setup --tests installs it",
                    "PIMBSR_LAB_REQUIRED")
    if reason := why_not():
        end_without(reason, "PIMBSR_LAB_REQUIRED")
    unittest.main(argv=sys.argv[:1])

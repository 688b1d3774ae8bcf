"""Attacks of members of the control group on the control sockets."""

import subprocess
import time

from attack import rss_of
from lab import wait_until
from lab_test import neighbors_of, zone
from plans import BAD, seconds_of


class ControlAttacks:
    """The tests of AttackTest that attack the control sockets."""

    def play_control(self, attack, kind, count):
        """Clients of one user misbehave: another user and root get each answer within a second."""
        lab, seconds = self.lab(), seconds_of(attack)
        r1 = lab.router("r1")
        r1.loopback("10.255.0.1")
        r1.start()
        for folder in (lab.folder, r1.folder):
            folder.chmod(0o755)
        meter = self.meter(r1, seconds)
        self.clients(r1.socket, kind, count, seconds + 15, user=5001)
        time.sleep(0.3)
        others = [self.clients(r1.socket, "ask", 1, seconds, user=user) for user in (0, 5002)]
        found = [other.result() for other in others]
        self.running[1].close()
        time.sleep(0.2)
        worst, asked = max(one["worst"] for one in found), sum(one["asked"] for one in found)
        failures = [f"user {user}: {text}" for user, one in zip((0, 5002), found) for text in one["failures"]]
        ended = self.ended_clients(r1)
        note = f"{len(failures)} of {asked} failed, the latest after {worst:.3f} s, {ended} ended"
        self.report(meter.row(attack, note=note))
        if kind != "connect":
            self.assertGreater(ended, 0, "connections that were ended or rejected at a limit")
        self.assertEqual([], failures, "requests of others that were not answered")
        self.assertLess(worst, 1)

    @staticmethod
    def ended_clients(router):
        """Connections that the agent has ended, or not accepted, since they were too many, slow or silent."""
        sockets = router.show("control")["sockets"]
        return sum(one[reason] for one in sockets for reason in ("gaveWay", "rejected", "slow", "silent"))

    def test_control_idle(self):
        """40 connections that send nothing."""
        self.play_control("control_idle", "idle", 40)

    def test_control_half(self):
        """40 connections that send half a request."""
        self.play_control("control_half", "half", 40)

    def test_control_unread(self):
        """40 connections that read no answer."""
        self.play_control("control_unread", "unread", 40)

    def test_control_watch(self):
        """40 connections that watch and read nothing."""
        self.play_control("control_watch", "watch", 40)

    def test_control_connect(self):
        """Connections that are closed at once, as fast as possible."""
        self.play_control("control_connect", "connect", 40)

    def test_control_views(self):
        """Clients of one user ask for views of 16,000 RPs, one after the other: others get their answers, and
        timers are late by the time of one such answer at most. The memory that the first answer takes stays
        with the allocator, and all further ones use it again."""
        seconds = seconds_of("control_views")
        _, r2 = self.routers_of_many_rps(seconds)
        before = rss_of(r2.agent.process.pid)
        r2.show("rp-set")
        answer = rss_of(r2.agent.process.pid) - before
        self.assertLess(answer, self.bounds.answer, "memory of one answer")
        meter = self.meter(r2, seconds)
        views = [self.clients(r2.socket, "views", 1, seconds, user=5001) for _ in range(4)]
        other = self.clients(r2.socket, "ask", 1, seconds, user=5002).result()
        views_read = sum(one.result()["asked"] for one in views)
        note = f"{views_read} views, {answer >> 20} MiB for one, others waited for {other['worst']:.3f} s"
        self.report(meter.row("control_views", note=note), self.bounds.view)
        self.assertEqual([], other["failures"], "requests of another user that were not answered")
        self.assertGreater(views_read, 0)
        self.assertLess(other["worst"], 10 * self.bounds.view)

    def test_control_paths(self):
        """Clients read the model over the read-only socket: two of one user pages of the tree of 16,000 RPs,
        one of another paths that name nothing, as long as a request may be. Others watch the number of these
        RPs, for which each look walks over all, while every packet is an event. All get their answers, a
        third user in time, and timers are late by the time of one page at most."""
        seconds = seconds_of("control_paths")
        r1, r2 = self.routers_of_many_rps(seconds)
        socket = r2.socket.with_name("control-read-only.sock")
        self.clients(socket, "count", 8, seconds + 15, user=5001)
        wait_until(lambda: sum(one["watchers"] for one in r2.show("control")["sockets"]) > 0, "it is watched")
        self.flood(r1, "eth-r2", "garbage", rate=1000, count=8000, seconds=seconds)
        meter = self.meter(r2, seconds)
        readers = [self.clients(socket, kind, 1, seconds, user=user)
                   for kind, user in (("tree", 5001), ("tree", 5001), ("odd", 5003))]
        other = self.clients(socket, "ask", 1, seconds, user=5002).result()
        found = [one.result() for one in readers]
        asked = sum(one["asked"] for one in found)
        note = f"{asked} answers, others waited for {other['worst']:.3f} s"
        self.report(meter.row("control_paths", note=note), self.bounds.view)
        self.assertEqual([], sum((one["failures"] for one in [other, *found]), []), "unexpected answers")
        self.assertTrue(all(one["asked"] > 0 for one in found), found)
        self.assertLess(other["worst"], 10 * self.bounds.view)

    def routers_of_many_rps(self, seconds):
        """Two routers; the second holds 16,000 RPs of one range, and users can enter its folders."""
        lab, count = self.lab(), 16000
        (r1, r2), _ = lab.chain("r1", "r2")
        r1.config()
        r2.config()
        r2.amend("eth-r1", "hello-interval = 1")
        lab.start()
        self.neighbor(r1, "eth-r2", BAD, seconds + 60)
        wait_until(lambda: BAD in neighbors_of(r2), "the attacker is a neighbor")
        self.flood(r1, "eth-r2", "ordinary-rps", source=BAD, bsr=BAD, priority=200, count=count,
                   holdtime=40000, rate=100, seconds=3).result()
        wait_until(lambda: zone(r2) and zone(r2)["rps"] == count, "all RPs are held")
        for folder in (lab.folder, r2.folder):
            folder.chmod(0o755)
        return r1, r2

    def test_read_only_socket(self):
        """A client of the read-only socket reads, and can neither clear, reload nor trace."""
        lab = self.lab()
        r1 = lab.router("r1")
        r1.loopback("10.255.0.1")
        r1.start()
        socket = r1.socket.with_name("control-read-only.sock")
        cases = ((["show", "bsr"], 0), (["metrics"], 0), (["show", "tree", "--depth", "1"], 0),
                 (["get", "status/bsTimeout"], 0), (["clear", "drops"], 1), (["clear", "bsr"], 1),
                 (["clear", "rp-set"], 1), (["clear", "neighbors"], 1), (["reload"], 1),
                 (["trace", "Zet", "9"], 1))
        for words, status in cases:
            done = subprocess.run([self.command, *words, "--socket", socket], capture_output=True, text=True)
            self.assertEqual(status, done.returncode, (words, done.stderr))
            if status != 0:
                self.assertIn(str(r1.socket), done.stdout + done.stderr, "the error names the other socket")

"""`pimbsr web` over agents that answer, are slow, are gone and come back, and for clients of all kinds.

Usage: web_test.py PIMBSR."""

import base64
import concurrent.futures
import http.client
import json
import os
import pathlib
import random
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.parse

from agents import GLOBAL, FakeAgent, bsr_view, memory_of

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
from needs import is_required  # noqa: E402  found by the line before

PIMBSR = pathlib.Path(sys.argv[1]).resolve()


def wait_until(holds, seconds=10):
    end = time.monotonic() + seconds
    while not (result := holds()):
        if time.monotonic() > end:
            raise AssertionError(f"not within {seconds} s")
        time.sleep(0.02)
    return result


class Stream:
    """A client of /events, with an address of this system."""

    def __init__(self, port, address="127.0.0.1"):
        self.socket = socket.create_connection(("127.0.0.1", port), timeout=10, source_address=(address, 0))
        self.socket.sendall(b"GET /events HTTP/1.1\r\nHost: localhost\r\n\r\n")
        self.text = b""

    def status(self):
        self.until(b"\r\n")
        return int(self.text.split()[1])

    def until(self, wanted, seconds=10):
        end = time.monotonic() + seconds
        while wanted not in self.text:
            self.socket.settimeout(max(0.01, end - time.monotonic()))
            data = self.socket.recv(65536)
            if not data:
                raise AssertionError(f"the stream has ended: {self.text[-200:]}")
            self.text += data
        return self.text

    def has_ended(self):
        """Whether the server has ended it, by a last chunk (RFC 9112 section 7.1) or with its connection."""
        self.socket.settimeout(0.01)
        try:
            while data := self.socket.recv(65536):
                self.text += data
            return True
        except TimeoutError:
            return self.text.endswith(b"\r\n0\r\n\r\n")

    def close(self):
        self.socket.close()


class WebTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.agents = [self.agent("r1"), self.agent("r2")]
        self.process = self.port = None

    def agent(self, name):
        agent = FakeAgent(self.folder / f"{name}.sock")
        self.addCleanup(lambda: agent.path.exists() and agent.stop())
        return agent

    def serve(self, *options, listen="127.0.0.1:0", **how):
        """Starts the server; returns its first line."""
        words = [PIMBSR, "web", *(["--listen", listen] if listen else []), *options]
        for agent in self.agents:
            words += ["--agent", f"{agent.path.stem}={agent.path}"]
        # Freed memory must not wait long for the sanitizer, since some tests bound what is held.
        sanitizer = os.environ.get("ASAN_OPTIONS", "") + ":quarantine_size_mb=8"
        self.process = subprocess.Popen(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                        env={**os.environ, "ASAN_OPTIONS": sanitizer}, **how)
        self.addCleanup(self.end)
        line = self.process.stdout.readline()
        self.memory = memory_of(self.process.pid) if line else 0
        if match := re.search(r":(\d+)/", line):
            self.port = int(match[1])
        return line

    def end(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        self.process.wait(10)
        self.process.stdout.close()
        self.process.stderr.close()

    def get(self, path, method="GET", host="localhost", headers=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=20)
        connection.putrequest(method, path, skip_host=True)
        if host:
            connection.putheader("Host", host)
        for name, value in (headers or {}).items():
            connection.putheader(name, value)
        connection.endheaders()
        answer = connection.getresponse()
        body = answer.read().decode()
        connection.close()
        return answer.status, body, answer.headers

    def status(self, *arguments, **how):
        return self.get(*arguments, **how)[0]

    def json(self, path):
        status, body, _ = self.get(path)
        self.assertEqual(status, 200, body)
        return json.loads(body)

    # Pages and views -------------------------------------------------------------------------------------

    def test_page_may_connect_to_its_server_alone(self):
        self.serve()
        status, body, headers = self.get("/")
        self.assertEqual((status, headers["X-Frame-Options"]), (200, "DENY"))
        self.assertRegex(body, r"content=\"default-src 'none'; connect-src 'self'; script-src 'sha256-")

    def test_each_view_is_the_agents_own_json(self):
        self.serve()
        self.assertEqual(self.json("/api")["agents"], ["r1", "r2"])
        self.agents[1].answers["bsr"] = bsr_view("10.0.0.9")
        self.assertEqual(self.json("/api/r2/bsr"), bsr_view("10.0.0.9"))
        for path, status in (("/api/r3/bsr", 404), ("/api/r1/moods", 400), ("/api/r1/rp", 400),
                             ("/api/r1/config", 400), ("/api/r1", 404), ("/nothing", 404)):
            self.assertEqual(self.status(path), status, path)

    def test_part_of_a_view_is_asked_with_the_words_of_the_protocol(self):
        self.serve()
        for view in ("tree", "rp", "rp-set"):
            self.agents[0].answers[view] = lambda request: {"asked": request}
        key = "status/bootstrapRouter['224.0.0.0/4']"
        for query, members in (
                ({}, {}), ({"path": key, "depth": "2"}, {"path": key, "depth": 2}),
                ({"depth": "0", "from": f"{key}/a&b=c"}, {"depth": 0, "from": f"{key}/a&b=c"})):
            asked = self.json(f"/api/r1/tree?{urllib.parse.urlencode(query)}")["asked"]
            self.assertEqual(asked, {"command": "show", "what": "tree", **members})
        asked = self.json("/api/r1/rp-set?prefix=239.1.0.0/16")["asked"]
        self.assertEqual(asked["prefix"], "239.1.0.0/16")
        count = len(self.agents[0].asked)
        for query in ("tree?depth=25", "tree?depth=-1", "tree?depth=x", "tree?group=239.1.1.1",
                      "bsr?path=status", "rp-set?prefix=10.0.0.0/8", f"tree?path={'a' * 5000}"):
            status, body, _ = self.get(f"/api/r1/{query}")
            self.assertEqual(status, 400, body)
        self.assertEqual(len(self.agents[0].asked), count, "what is wrong never reaches the agent")

    def test_comparison_has_both(self):
        self.serve()
        self.assertTrue(self.json("/api/compare")["agree"])
        self.agents[1].answers["bsr"] = bsr_view("10.0.0.9", "11111111")
        compared = self.json("/api/compare")
        self.assertEqual([one["why"] for one in compared["zones"][0]["routers"]],
                         ["", "another BSR: no neighbor"])
        self.agents[1].stop()
        self.assertEqual([one["router"] for one in self.json("/api/compare")["silent"]], ["r2"])

    # Metrics ---------------------------------------------------------------------------------------------

    def test_metrics_of_one_agent_fail_when_it_is_gone(self):
        self.serve()
        self.assertEqual(self.get("/metrics?agent=r1")[:2], (200, self.agents[0].text))
        self.agents[0].stop()
        self.assertEqual(self.status("/metrics?agent=r1"), 503)
        self.assertEqual(self.status("/metrics?agent=r3"), 404)
        self.agents[0].start()
        self.assertEqual(self.status("/metrics?agent=r1"), 200)

    def test_metrics_of_all_have_nothing_old_of_one_that_is_gone(self):
        self.serve()
        text = self.get("/metrics")[1]
        for line in ('pimbsr_up{agent="r1"} 1', 'pimbsr_uptime_seconds{agent="r2"} 7',
                     'pimbsr_neighbors{agent="r1",interface="eth0"} 2'):
            self.assertIn(line + "\n", text)
        self.agents[0].stop()
        lines = [line for line in self.get("/metrics")[1].splitlines() if 'agent="r1"' in line]
        self.assertEqual(lines, ['pimbsr_up{agent="r1"} 0'])

    def test_metrics_of_all_are_a_valid_text(self):
        if not shutil.which("promtool"):
            self.assertFalse(is_required("PIMBSR_WEB_REQUIRED"))
            return
        self.serve()
        done = subprocess.run(["promtool", "check", "metrics"], input=self.get("/metrics")[1], text=True,
                              capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stdout + done.stderr), (0, ""))

    def test_equal_requests_at_a_time_are_one_to_the_agent(self):
        self.serve()
        self.agents[0].delay.clear()
        with concurrent.futures.ThreadPoolExecutor(50) as pool:
            answers = [pool.submit(self.status, "/metrics?agent=r1") for _ in range(50)]
            wait_until(lambda: self.agents[0].asked)
            time.sleep(0.5)
            self.agents[0].delay.set()
            self.assertEqual({answer.result() for answer in answers}, {200})
        self.assertLess(len(self.agents[0].asked), 5)

    def test_agent_that_hangs_delays_no_other(self):
        self.serve()
        self.agents[0].delay.clear()
        with concurrent.futures.ThreadPoolExecutor(1) as pool:
            hung = pool.submit(self.status, "/metrics?agent=r1")
            start = time.monotonic()
            self.assertEqual(self.status("/metrics?agent=r2"), 200)
            self.assertLess(time.monotonic() - start, 2)
            self.assertEqual(hung.result(), 503)

    def timed(self, path):
        start = time.monotonic()
        status, body, _ = self.get(path)
        return time.monotonic() - start, status, body

    def test_views_of_an_agent_that_hangs_delay_no_metrics(self):
        self.serve()
        self.agents[0].delay.clear()
        with concurrent.futures.ThreadPoolExecutor(20) as pool:
            views = [pool.submit(self.timed, f"/api/r1/{view}") for view in self.agents[0].answers]
            time.sleep(0.5)
            for path in ("/metrics", "/api/compare", "/metrics"):
                seconds, status, body = self.timed(path)
                self.assertLess(seconds, 4, path)
                self.assertEqual(status, 200)
                self.assertTrue('pimbsr_up{agent="r1"} 0' in body or '"silent":[{"router":"r1"' in body, body)
                self.assertTrue('pimbsr_up{agent="r2"} 1' in body or '"agree":' in body, body)
            for seconds, status, body in (view.result() for view in views):
                self.assertEqual(status, 503)
                self.assertIn("in time", body)
                self.assertLess(seconds, 6.5)
        # It is known to hang now, and is asked again after some seconds.
        self.assertLess(self.timed("/api/r1/bsr")[0], 1)
        self.agents[0].delay.set()
        wait_until(lambda: self.status("/api/r1/bsr") == 200)

    def test_metrics_wait_for_no_view(self):
        self.serve()
        self.agents[0].slow = {"bsr", "rp-set", "neighbors", "interfaces"}
        with concurrent.futures.ThreadPoolExecutor(20) as pool:
            views = [pool.submit(self.status, f"/api/r1/{view}") for view in sorted(self.agents[0].slow)]
            wait_until(lambda: self.agents[0].asked)
            self.assertEqual(self.timed("/metrics?agent=r1")[1], 200)
            self.assertFalse(any(view.done() for view in views))
            self.agents[0].slow = set()
            self.assertEqual({view.result() for view in views}, {200})

    # Requests that are not served ------------------------------------------------------------------------

    def test_methods_but_get_are_rejected(self):
        self.serve()
        for method in ("POST", "PUT", "DELETE", "HEAD", "OPTIONS"):
            status, _, headers = self.get("/api/r1/bsr", method, headers={"Content-Length": "0"})
            self.assertEqual((status, headers["Allow"]), (405, "GET"), method)
        self.assertEqual(self.agents[0].asked, [])

    def test_other_hosts_are_rejected(self):
        self.serve("--host", "bsr.example")
        for host, status in (("localhost", 200), (f"127.0.0.1:{self.port}", 200), ("bsr.example", 200),
                             ("LOCALHOST", 200), ("[::1]:8080", 200), ("BSR.example:443", 200),
                             (f"localhost:{self.port + 1}", 200), ("evil.example", 421),
                             ("evil.example:localhost", 421), ("localhost:evil", 421), ("10.0.0.1", 421),
                             ("localhost.evil.example", 421), ("[::1", 421), (":", 421), ("", 400)):
            self.assertEqual(self.status("/api", host=host), status, host)

    def test_reached_address_is_a_host_of_a_wildcard(self):
        token = self.folder / "token"
        token.write_text("0123456789abcdef\n")
        token.chmod(0o600)
        self.serve("--token-file", token, listen="0.0.0.0:0")
        for address in ("127.0.0.1", "127.0.0.7"):
            for host, status in ((f"{address}:{self.port}", 200), ("127.0.0.9", 421), ("0.0.0.0", 421)):
                with socket.create_connection((address, self.port), timeout=10) as client:
                    client.sendall(f"GET /api HTTP/1.0\r\nHost: {host}\r\n"
                                   "Authorization: Bearer 0123456789abcdef\r\n\r\n".encode())
                    self.assertEqual(int(client.makefile("rb").readline().split()[1]), status, host)

    def test_garbage_ends_nothing(self):
        self.serve()
        source = random.Random(1)
        cases = [bytes(source.randrange(256) for _ in range(2000)) for _ in range(30)]
        cases += [b"GET / HTTP/1.1\r\nHost: localhost\r\nX: " + b"x" * 100000 + b"\r\n\r\n",
                  b"GET /" + b"a" * 100000 + b" HTTP/1.1\r\n\r\n",
                  b"GET /%00%zz HTTP/1.1\r\nHost: localhost\r\n\r\n",
                  b"POST / HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n",
                  b"GET / HTTP/9.9\r\n\r\n", b"\r\n" * 5000, b"GET /api/../../etc/passwd HTTP/1.0\r\n\r\n"]
        for case in cases:
            with socket.create_connection(("127.0.0.1", self.port), timeout=10) as client:
                try:
                    client.sendall(case)
                    client.shutdown(socket.SHUT_WR)
                    client.recv(4096)
                except OSError:
                    pass
        self.assertEqual(self.status("/api"), 200)
        self.assertLess(memory_of(self.process.pid) - self.memory, 60)

    # Clients ---------------------------------------------------------------------------------------------

    def test_clients_share_one_watch_and_are_bounded(self):
        self.serve()
        streams = [Stream(self.port) for _ in range(120)]
        states = [stream.status() for stream in streams]
        self.assertEqual((states.count(200), states.count(503)), (100, 20))
        wait_until(lambda: self.agents[0].watchers)
        self.agents[0].publish({"event": "bsrLost", "zone": GLOBAL, "time": 1.0})
        for stream, status in zip(streams, states):
            if status == 200:
                stream.until(b'event: change\ndata: {"agent":"r1","change":{"event": "bsrLost"')
        self.assertEqual(len(self.agents[0].watchers), 1)
        self.assertEqual(self.status("/api/r1/bsr"), 200)
        self.assertLess(memory_of(self.process.pid) - self.memory, 60)
        for stream in streams:
            stream.close()
        # The next heartbeat finds that they are gone; without a stream there is no watch.
        wait_until(lambda: not self.agents[0].watchers, 40)
        self.assertEqual(Stream(self.port).status(), 200)

    def test_one_client_can_not_take_all_streams(self):
        self.serve()
        hog = [Stream(self.port) for _ in range(128)]
        self.assertEqual([stream.status() for stream in hog], [200] * 100 + [503] * 28)
        others = [Stream(self.port, "127.0.0.2") for _ in range(50)]
        self.assertEqual([stream.status() for stream in others], [200] * 50)
        self.assertEqual(Stream(self.port, "127.0.0.2").status(), 503, "it has half of them")
        self.assertTrue(all(stream.has_ended() for stream in hog[:50]), "the oldest ones gave way")
        self.assertFalse(any(stream.has_ended() for stream in [*hog[50:100], *others]))
        for stream in [*hog, *others]:
            stream.close()

    def test_bursts_of_short_connections_end_nothing(self):
        self.serve()
        for _ in range(5):
            clients = [socket.create_connection(("127.0.0.1", self.port), timeout=10) for _ in range(1000)]
            for client in clients:
                client.close()
            start = time.monotonic()
            self.assertEqual(self.status("/metrics"), 200)
            self.assertLess(time.monotonic() - start, 3)

    def test_requests_that_drip_end_in_time(self):
        self.serve()
        clients = [socket.create_connection(("127.0.0.1", self.port), timeout=10) for _ in range(300)]
        end = time.monotonic() + 25
        ended = set()
        for client in clients:
            client.setblocking(False)
            client.sendall(b"GET / HTTP/1.1\r\nHost: localhost\r\nX: ")
        start = time.monotonic()
        with concurrent.futures.ThreadPoolExecutor(1) as pool:
            answer = pool.submit(self.status, "/metrics")
            while time.monotonic() < end and not (answer.done() and len(ended) >= 200):
                for client in clients:
                    try:
                        client.send(b"x")
                    except OSError:
                        ended.add(client)
                time.sleep(0.5)
            self.assertEqual(answer.result(), 200)
        self.assertLess(time.monotonic() - start, 20)
        self.assertGreaterEqual(len(ended), 200)
        for client in clients:
            client.close()

    def test_connection_without_a_request_ends_after_the_time_for_one(self):
        self.serve()
        idle = http.client.HTTPConnection("127.0.0.1", self.port, timeout=20)
        for _ in range(2):
            idle.request("GET", "/api", headers={"Host": "localhost"})
            self.assertEqual(idle.getresponse().read()[:1], b"{")
        start = time.monotonic()
        self.assertEqual(idle.sock.recv(1), b"")
        self.assertTrue(8 < time.monotonic() - start < 14)
        idle.close()

    def test_body_of_a_request_is_not_waited_for(self):
        self.serve()
        for header in ({"Content-Length": "1000000"}, {"Transfer-Encoding": "chunked"}):
            self.assertEqual(self.status("/api", headers=header), 400, header)

    def test_slow_readers_delay_no_other_and_lose_their_stream(self):
        self.serve()
        self.agents[0].answers["rp-set"] = {"zones": [], "text": "x" * 8_000_000}
        slow = []
        for path in ("/api/r1/rp-set", "/api/r1/rp-set", "/events"):
            client = socket.socket()
            client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            client.connect(("127.0.0.1", self.port))
            client.sendall(f"GET {path} HTTP/1.1\r\nHost: localhost\r\n\r\n".encode())
            slow.append(client)
        wait_until(lambda: self.agents[0].watchers)
        start = time.monotonic()
        for _ in range(100):
            self.agents[0].publish({"event": "rpAdded", "text": "y" * 60000})
        self.assertEqual(self.status("/api/r2/bsr"), 200)
        self.assertLess(time.monotonic() - start, 5)
        self.assertLess(memory_of(self.process.pid) - self.memory, 100)
        wait_until(lambda: not self.agents[0].watchers, 40)
        for client in slow:
            client.close()

    def test_agents_that_restart_are_found_again(self):
        self.serve()
        stream = Stream(self.port)
        stream.until(b'event: agent\ndata: {"agent":"r1","up":true}')
        self.agents[0].stop()
        stream.until(b'event: agent\ndata: {"agent":"r1","up":false}')
        stream.text = b""
        self.agents[0].start()
        stream.until(b'event: agent\ndata: {"agent":"r1","up":true}')
        wait_until(lambda: self.agents[0].watchers)
        self.agents[0].publish({"event": "bsrLost"})
        stream.until(b"bsrLost")
        stream.close()

    # Listening --------------------------------------------------------------------------------------------

    def test_address_that_others_reach_needs_a_token(self):
        self.serve(listen="0.0.0.0:0")
        self.assertEqual(self.process.wait(10), 2)
        self.assertIn("--token-file is needed", self.process.stderr.read())

    def test_token_opens_the_server(self):
        token = self.folder / "token"
        token.write_bytes(b"0123456789abcdef\r\n")  # of an editor of another system
        token.chmod(0o640)
        self.serve("--token-file", token, listen="0.0.0.0:0")
        self.assertEqual(self.status("/api"), 401)
        basic = base64.b64encode(b"anyone:0123456789abcdef").decode()
        for value, status in (("Bearer 0123456789abcdef", 200), (f"Basic {basic}", 200),
                              ("Bearer 0123456789abcdeg", 401), ("Bearer", 401), ("Basic !!", 401)):
            self.assertEqual(self.status("/api", headers={"Authorization": value}), status, value)
        self.end_and_expect("nothing is encrypted")

    def end_and_expect(self, text):
        self.process.send_signal(signal.SIGTERM)
        self.assertEqual(self.process.wait(10), 0)
        self.assertIn(text, self.process.stderr.read())

    def test_token_that_others_may_read_is_rejected(self):
        token = self.folder / "token"
        token.write_text("0123456789abcdef\n")
        token.chmod(0o644)
        self.serve("--token-file", token)
        self.assertEqual(self.process.wait(10), 2)

    def test_unix_socket_is_closed_to_others(self):
        path = self.folder / "web.sock"
        self.assertIn(str(path), self.serve(listen=f"unix:{path}"))
        self.assertEqual(path.stat().st_mode & 0o777, 0o660)
        with socket.socket(socket.AF_UNIX) as client:
            client.connect(str(path))
            client.sendall(b"GET /api HTTP/1.0\r\nHost: localhost:8080\r\n\r\n")  # of 'ssh -L 8080:PATH'
            self.assertIn(b'"agents":["r1","r2"]', client.makefile("rb").read())
        self.end_and_expect("")
        self.assertFalse(path.exists())

    def test_socket_of_the_service_manager_is_served_until_no_request_comes(self):
        with socket.create_server(("127.0.0.1", 0)) as listener:
            self.port = listener.getsockname()[1]
            words = ["sh", "-c", 'LISTEN_PID=$$ LISTEN_FDS=1 exec "$@"', "sh", PIMBSR, "web",
                     "--metrics-only", "--idle-exit", "1", "--agent", f"r1={self.agents[0].path}"]
            # pylint: disable-next=subprocess-popen-preexec-fn
            self.process = subprocess.Popen(words, preexec_fn=lambda: os.dup2(listener.fileno(), 3),
                                            close_fds=False, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                            text=True)
            self.addCleanup(self.end)
            self.assertEqual(self.status("/metrics"), 200)
            self.assertEqual(self.status("/api"), 404)
            self.assertEqual(self.process.wait(10), 0)

    def test_wrong_arguments_are_explained(self):
        for options, text in ((["--listen", "here"], "neither ADDRESS:PORT"),
                              (["--listen", "127.0.0.1:70000"], "neither ADDRESS:PORT"),
                              (["--agent", "/run/x.sock"], "write NAME=SOCKET"),
                              (["--agent", 'a"b'], "write NAME=SOCKET"),
                              (["--agent", ".=/run/x.sock"], "is no name here"),
                              (["--agent", "..=/run/x.sock"], "is no name here"),
                              (["--agent", "a=x", "--agent", "a=y"], "two agents are called"),
                              (["--token-file", "/nowhere"], "cannot read")):
            listen = [] if "--listen" in options else ["--listen", "127.0.0.1:0"]
            done = subprocess.run([PIMBSR, "web", *listen, *options], capture_output=True, text=True,
                                  timeout=10, check=False)
            self.assertEqual(done.returncode, 2, options)
            self.assertIn(text, done.stderr, options)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

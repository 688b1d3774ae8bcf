"""What the attacks rest on: lengths, the table of costs, and clients that misbehave as they are asked to."""

import json
import pathlib
import re
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

import attack
import attack_test
import forwarded

SHORT_TOTAL = 60  # seconds of attack in one run of all tests
SECURITY = pathlib.Path(__file__).resolve().parents[2] / "docs/security.md"


class Server:
    """A control socket that answers each line, or none; counts connections and keeps what was sent."""

    def __init__(self, path, answers):
        self.answers, self.connections, self.received = answers, 0, []
        self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.listener.bind(path)
        self.listener.listen(64)
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        kept = []
        while True:
            try:
                client, _ = self.listener.accept()
            except OSError:
                return
            kept.append(client)
            self.connections += 1
            threading.Thread(target=self.answer, args=(client,), daemon=True).start()

    def answer(self, client):
        try:
            while data := client.recv(65536):
                self.received.append(data)
                if self.answers:
                    client.sendall(b'{"ok":true,"result":{}}\n')
        except OSError:
            pass


class AttackUnitTest(unittest.TestCase):
    def play(self, kind, count, seconds, answers=True):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        path = str(pathlib.Path(folder.name) / "socket")
        server = Server(path, answers)
        self.addCleanup(server.listener.close)
        words = [sys.executable, "-B", str(attack.CLIENTS), path, kind, str(count), str(seconds)]
        done = subprocess.run(words, capture_output=True, text=True, timeout=60)
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        time.sleep(0.05)
        return server, done.stdout

    def test_the_short_form_takes_a_minute_of_attack_and_the_full_one_is_longer(self):
        self.assertEqual(SHORT_TOTAL, sum(short for short, _ in attack_test.LENGTHS.values()))
        for name, (short, full) in attack_test.LENGTHS.items():
            self.assertGreater(full, short, name)

    def test_each_attack_has_a_length(self):
        names = unittest.TestLoader().getTestCaseNames(attack_test.AttackTest)
        tests = {name.removeprefix("test_") for name in names} - {"other_floods", "read_only_socket"}
        self.assertEqual(set(attack_test.LENGTHS), tests | set(attack_test.OTHER_FLOODS))

    def test_both_tables_of_the_documentation_name_each_attack_and_a_length_that_it_has(self):
        section = SECURITY.read_text().split("\n## Attacks and their costs\n")[1].split("\n## ")[0]
        tables = section.split("| attack |")[1:]
        self.assertEqual(2, len(tables))
        for table in tables:
            cells = [line.split("|")[1] for line in table.splitlines() if line.startswith("| ")]
            names = [re.findall(r"`([a-z_]+)`", cell) for cell in cells]
            self.assertEqual(set(attack_test.LENGTHS), {name for row in names for name in row})
            for cell, row in zip(cells, names):
                for seconds in re.findall(r"`, ([\d,]+) s\b", cell):
                    lengths = {length for name in row for length in attack_test.LENGTHS[name]}
                    self.assertIn(int(seconds.replace(",", "")), lengths, cell)

    def test_a_table_has_a_line_for_each_row(self):
        row = {"attack": "slow_flood", "rate": 2000.4, "megabytes": 1.25, "cpu": 3.0, "rss": 0.0, "late": 1.0,
               "over": "0 of 70", "systemLate": 0.5, "backlog": 12, "lost": "0 of 50", "note": ""}
        lines = attack.table_of([row, row]).split("\n")
        self.assertEqual(3, len(lines))
        cells = ["slow_flood", "2,000", "1.2", "3", "0.0", "1.0", "0", "of", "70", "0.5", "12", "0", "of",
                 "50"]
        self.assertEqual(cells, lines[1].split())

    def test_a_forwarded_message_is_one_of_the_bsr_from_the_router_without_the_no_forward_bit(self):
        router, bsr = bytes([10, 0, 1, 2]), bytes([10, 0, 1, 50])
        other = bytes([10, 0, 1, 3])
        cases = (("forwarded", router, 103, 0x24, 0, bsr, True),
                 ("No-Forward", router, 103, 0x24, 0x80, bsr, False),
                 ("a Hello", router, 103, 0x20, 0, bsr, False), ("no PIM", router, 17, 0x24, 0, bsr, False),
                 ("of another router", other, 103, 0x24, 0, bsr, False),
                 ("of another BSR", router, 103, 0x24, 0, other, False))
        for name, source, protocol, kind, flags, address, expected in cases:
            with self.subTest(name):
                header = bytes([0x45, 0, 0, 40, 0, 0, 0, 0, 1, protocol, 0, 0]) + source + bytes(4)
                pim = bytes([kind, flags, 0, 0, 0, 1, 30, 64, 1, 0]) + address
                self.assertEqual(expected, forwarded.is_forwarded(bytes(14) + header + pim, router, bsr))

    def test_clients_send_what_their_kind_says_over_as_many_connections(self):
        for kind, count, sent in (("idle", 5, b""), ("half", 4, b'{"command":"show"' * 4),
                                  ("watch", 3, b'{"command":"watch"}\n' * 3)):
            with self.subTest(kind):
                server, _ = self.play(kind, count, 0.3)
                self.assertEqual(count, server.connections)
                self.assertEqual(sent, b"".join(server.received))

    def test_clients_that_connect_keep_connecting(self):
        server, _ = self.play("connect", 5, 0.3)
        self.assertGreater(server.connections, 50)

    def test_a_client_that_asks_counts_answers_and_failures(self):
        _, output = self.play("ask", 1, 0.3)
        found = json.loads(output.split("\n")[1])
        self.assertGreater(found["asked"], 2)
        self.assertEqual([], found["failures"])
        _, output = self.play("ask", 1, 0.1, answers=False)
        found = json.loads(output.split("\n")[1])
        self.assertEqual(1, found["asked"])
        self.assertEqual(["[Errno 11] Resource temporarily unavailable"], found["failures"])
        self.assertGreater(found["worst"], 4)


if __name__ == "__main__":
    unittest.main()

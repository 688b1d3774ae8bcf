"""What the simulated routers send, as an independent dissector reads it.

Usage: dissector_test.py PIMBSR SCENARIO
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

GOOD = "1"
TYPES = {"0": "Hello", "4": "Bootstrap", "8": "Candidate-RP-Advertisement"}
COMMAND, SCENARIO = sys.argv[1], sys.argv[2]


def dissect(capture):
    """The packets of a capture as rows: source, type, checksum status, malformed, complaint."""
    fields = ["ip.src", "pim.type", "pim.cksum.status", "_ws.malformed", "_ws.expert.message"]
    command = ["tshark", "-n", "-r", str(capture), "-T", "fields", "-E", "separator=|"]
    for field in fields:
        command += ["-e", field]
    printed = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    return [line.split("|") for line in printed.splitlines()]


class DissectorTest(unittest.TestCase):
    def test_every_packet_is_read_without_a_complaint(self):
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run([COMMAND, "sim", "--pcap", folder, SCENARIO], check=True, capture_output=True)
            captures = sorted(pathlib.Path(folder).glob("*.pcap"))
            rows = [row for capture in captures for row in dissect(capture)]
        self.assertGreater(len(captures), 1)
        for row in rows:
            self.assertIn(row[1], TYPES, row)
            self.assertEqual([GOOD, "", ""], row[2:], row)
        self.assertEqual(set(TYPES), {row[1] for row in rows}, "the scenario sends messages of every type")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

"""What the printers of scripts/gdb-printers.py show of each value in a stopped program.

Usage: gdb_test.py PROGRAM [TEST...]: the build of tests/gdb/program."""

import os
import pathlib
import re
import subprocess
import sys
import unittest

PRINTERS = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "gdb-printers.py"
VALUES = [
    ("null", "null"),
    ("text", r'"a \"quoted\" text"'),
    ("emptyText", '""'),
    ("name", '"eth0"'),
    ("v4", "192.0.2.1"),
    ("v6", "2001:db8::1"),
    ("general", "192.0.2.1"),
    ("general6", "2001:db8::1"),
    ("unset", "unset"),
    ("prefix", "239.1.0.0/16"),
    ("zone", "239.1.0.0/16"),
    ("noZone", "unset"),
    ("intf", '"eth0"'),
    ("noIntf", "unset"),
    ("maps.empty", "0 members"),
    ("maps.few", "1 members = {[192.0.2.1] = 7}"),
]
# Values with an address of the process.
PATTERNS = [
    ("object", r"\((.*::)?Derived \*\) 0x[0-9a-f]+"),
    ("valid", r"\((.*::)?Derived \*\) 0x[0-9a-f]+"),
    ("walk", r"\{map_ = 0x[0-9a-f]+, at_ = \(Zet::ValueMember<int, Lanet::IpGenAddr> \*\) 0x[0-9a-f]+\}"),
    ("entity", r"\(Routing::Pim::Bsr::RpCandidate \*\) 0x[0-9a-f]+"),
    ("entity.object_.prefixOptions_", r"1 members = \{\[239\.1\.0\.0/16\] = 0x[0-9a-f]+\}"),
]


class PrintersTest(unittest.TestCase):
    program = ""

    @classmethod
    def setUpClass(cls):
        names = [name for name, _ in VALUES] + [name for name, _ in PATTERNS] + ["maps.many", "maps.chain"]
        outputs = [word for name in names for word in (f"echo \\n{name}:\\040", f"output {name}")]
        prints = [word for output in outputs for word in ("-ex", output)]
        command = ["gdb", "-nx", "-batch", "-ex", "set debuginfod enabled off", "-ex", f"source {PRINTERS}",
                   "-ex", "break stop", "-ex", "run", "-ex", "up", *prints, "-ex", "kill", cls.program]
        environment = dict(os.environ, ASAN_OPTIONS="detect_leaks=0")
        done = subprocess.run(command, capture_output=True, text=True, check=False,
                              env=environment)
        cls.output = done.stdout + done.stderr
        cls.shown = dict(re.findall(r"^([\w.]+): (.*)$", done.stdout, re.M))

    def test_no_printer_fails(self):
        self.assertNotIn("Python Exception", self.output)

    def test_each_value_is_shown_by_value(self):
        for name, expected in VALUES:
            with self.subTest(name):
                self.assertEqual(self.shown.get(name, self.output), expected)

    def test_pointers_walks_and_members_show_type_and_address(self):
        for name, expected in PATTERNS:
            with self.subTest(name):
                self.assertRegex(self.shown.get(name, self.output), f"^{expected}$")

    def test_all_buckets_of_a_map_are_walked(self):
        self.assertTrue(self.shown["maps.many"].startswith("20 members = {["))
        pairs = re.findall(r"\[(192\.0\.2\.\d+)\] = (\d+)", self.shown["maps.many"])
        self.assertEqual(sorted(pairs), sorted((f"192.0.2.{i}", str(i)) for i in range(20)))

    def test_a_chain_with_an_index_is_walked(self):
        pairs = re.findall(r"\[\{number = (\d+)\}\] = (\d+)", self.shown["maps.chain"])
        self.assertEqual(pairs, [(str(i), str(i)) for i in range(20)])


if __name__ == "__main__":
    PrintersTest.program = sys.argv[1]
    del sys.argv[1]
    unittest.main()

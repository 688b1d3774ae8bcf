"""What the lab itself does where network namespaces don't work: an `ip` of our own plays the system."""

import os
import pathlib
import stat
import tempfile
import unittest
from unittest import mock

from lab import Lab, LabError, why_not

FAKE_IP = """#!/bin/sh
# Keeps the namespaces as files, and fails at what FAIL names.
case "$*" in *"$FAIL"*) echo "mount of /sys failed: Operation not permitted" >&2; exit 1 ;; esac
case "$1 $2" in
  "netns add") : > "$STATE/$3" ;;
  "netns del") rm "$STATE/$3" ;;
esac
"""


class LabUnitTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.state = pathlib.Path(folder.name) / "state"
        self.state.mkdir()
        program = pathlib.Path(folder.name) / "ip"
        program.write_text(FAKE_IP)
        program.chmod(program.stat().st_mode | stat.S_IXUSR)
        patch = mock.patch.dict(os.environ, PATH=f"{folder.name}:{os.environ['PATH']}",
                                STATE=str(self.state), FAIL="no such word")
        patch.start()
        self.addCleanup(patch.stop)
        root = mock.patch("os.geteuid", return_value=0)
        root.start()
        self.addCleanup(root.stop)

    def namespaces(self):
        return [path.name for path in self.state.iterdir()]

    def test_a_lab_can_run_where_a_namespace_can_be_made_and_entered(self):
        self.assertIsNone(why_not())
        self.assertEqual([], self.namespaces())

    def test_a_namespace_that_cannot_be_entered_is_a_reason_and_is_removed(self):
        for failing in ("netns add", "netns exec"):
            os.environ["FAIL"] = failing
            self.assertIn("mount of /sys failed", why_not())
            self.assertEqual([], self.namespaces())

    def test_a_lab_that_fails_while_it_is_made_leaves_no_namespace(self):
        for failing in ("link set lo up", "link add"):
            os.environ["FAIL"] = failing
            with self.assertRaises(LabError), Lab("pimbsr") as lab:
                lab.link(lab.router("r1"), lab.router("r2"))
            self.assertEqual([], self.namespaces())


if __name__ == "__main__":
    unittest.main()

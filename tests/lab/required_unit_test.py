"""A test that can't run here ends as skipped, with the reason, or as failed where the environment requires
it."""

import os
import pathlib
import stat
import subprocess
import sys
import tempfile
import unittest

TESTS = pathlib.Path(__file__).resolve().parents[1]
LAB, WEB = "PIMBSR_LAB_REQUIRED", "PIMBSR_WEB_REQUIRED"
# In place of the system's: no namespace can be entered, and the rest is there.
NO_ENTRY = '#!/bin/sh\ncase "$*" in "netns exec"*) echo "mount of /sys failed" >&2; exit 1 ;; esac\n'
PROGRAMS = {"ip": NO_ENTRY,
            "unshare": "#!/bin/sh\nexit 1\n", "prometheus": "#!/bin/sh\n", "chromium": "#!/bin/sh\n",
            "systemd-analyze": "#!/bin/sh\n"}
NO_LAB = "no network namespaces: .*mount of /sys failed|not root|no namespaces or no overlay"
LABS = ("attack/attack_test.py", "install/package.sh", "install/units_test.py", "lab/lab_test.py",
        "lab/leaks.py", "lab/operator_test.py", "lab/trouble_test.py", "prometheus/scrape_test.py",
        "web/live_test.py")
# What a script lacks.
OTHERS = {"prometheus/prometheus_test.py": "promtool", "prometheus/scrape_test.py": "prometheus",
          "web/live_test.py": "chromium", "web/page_test.py": "chromium"}
VALUES = {None: 77, "": 77, "0": 77, "1": 1, "yes": 1}


class RequiredTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def install(self, name, text):
        program = self.folder / name
        program.write_text(text)
        program.chmod(program.stat().st_mode | stat.S_IXUSR)

    def end_of(self, script, path, environment):
        """The exit status and the output of a test."""
        words = [sys.executable, "-B"] if script.endswith(".py") else []
        rest = {name: value for name, value in os.environ.items() if name not in (LAB, WEB)}
        done = subprocess.run([*words, str(TESTS / script), "/bin/true", "/bin/true"], capture_output=True,
                              text=True, timeout=60, env={**rest, **environment, "PATH": path})
        return done.returncode, done.stdout + done.stderr

    def check(self, script, variable, path, reason):
        for value, status in VALUES.items():
            with self.subTest(script=script, variable=variable, value=value):
                environment = {} if value is None else {variable: value}
                ended, output = self.end_of(script, path, environment)
                self.assertRegex(output, reason)
                self.assertEqual(status, ended, output)
                is_said = f"failed, since {variable} is set" in output
                self.assertEqual(status == 1 and script.endswith(".py"), is_said)

    def test_every_test_that_needs_a_lab_is_checked(self):
        scripts = [path for path in TESTS.glob("*/*") if path.suffix in (".py", ".sh")]
        found = {str(path.relative_to(TESTS)) for path in scripts if LAB in path.read_text(encoding="utf-8")}
        self.assertEqual(set(LABS), found - {"support/needs.py", "lab/required_unit_test.py"})

    def test_a_lab_that_cannot_run_is_skipped_or_fails(self):
        for name, text in PROGRAMS.items():
            self.install(name, text)
        for script in LABS:
            self.check(script, LAB, f"{self.folder}:{os.environ['PATH']}", NO_LAB)

    def test_a_program_that_is_not_installed_skips_or_fails(self):
        for script, program in OTHERS.items():
            self.check(script, WEB, str(self.folder), f"{program} is not installed")
        self.check("install/units_test.py", LAB, str(self.folder), "systemd-analyze is not installed")

    def test_a_variable_requires_its_own_tests_alone(self):
        for name, text in PROGRAMS.items():
            self.install(name, text)
        path = f"{self.folder}:{os.environ['PATH']}"
        self.assertEqual(77, self.end_of("lab/lab_test.py", path, {WEB: "1"})[0])
        self.assertEqual(77, self.end_of("web/page_test.py", "/nowhere", {LAB: "1"})[0])


if __name__ == "__main__":
    unittest.main()

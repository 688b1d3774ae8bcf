"""Tests of the completion of command lines in bash, zsh and fish, each by the shell itself.

Usage: completion_test.py PIMBSR"""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

FOLDER = pathlib.Path(__file__).resolve().parents[2] / "packaging" / "completion"

BASH = """
source "$FILE"
COMP_LINE=$LINE COMP_POINT=${#LINE}
_pimbsr
printf '%s\\n' "${COMPREPLY[@]}"
complete -p pimbsr >/dev/null
"""
# The function reads what the completion system of zsh sets, and calls what it offers.
ZSH = """
compadd() { print -l -- ${(P)2} }
_files() { print FILES }
words=(${(s: :)LINE})
[[ $LINE == *" " ]] && words+=("")
CURRENT=$#words
source "$FILE"
"""
FISH = """
source "$FILE"
complete -C "$LINE" | string split -f 1 \\t
true  # string split fails where there is no description
"""
SHELLS = {"bash": (["bash", "-c"], BASH, "pimbsr.bash"),
          "zsh": (["zsh", "-fc"], ZSH, "_pimbsr"),
          "fish": (["fish", "--no-config", "-c"], FISH, "pimbsr.fish")}


class CompletionTest(unittest.TestCase):
    def completed(self, shell, line):
        """The words that a shell offers for a command line."""
        command, script, name = SHELLS[shell]
        with tempfile.TemporaryDirectory() as home:
            environment = {**os.environ, "PATH": f"{COMMAND.parent}:{os.environ['PATH']}", "HOME": home,
                           "FILE": str(FOLDER / name), "LINE": line, "PIMBSR_SOCKET": f"{home}/none"}
            done = subprocess.run([*command, script], capture_output=True, text=True, env=environment,
                                  timeout=60, cwd=home)
        self.assertEqual(0, done.returncode, f"{shell}: {done.stderr}")
        return sorted(word for word in done.stdout.split("\n") if word)

    def test_words_are_completed_in_each_shell(self):
        for line, expected in (("pimbsr sh", ["show"]),
                               ("pimbsr show rp", ["rp", "rp-set"]),
                               ("pimbsr clear ne", ["neighbors"]),
                               ("pimbsr show bsr --w", ["--watch"])):
            for shell in SHELLS:
                with self.subTest(shell=shell, line=line):
                    self.assertEqual(expected, self.completed(shell, line))

    def test_all_words_are_offered_before_one_is_begun(self):
        for shell in SHELLS:
            with self.subTest(shell=shell):
                words = self.completed(shell, "pimbsr ")
                for word in ("check", "clear", "replay", "run", "show", "sim", "trace", "watch"):
                    self.assertIn(word, words)
                self.assertNotIn("__complete", words)

    def test_trace_handles_with_their_colons(self):
        self.assertEqual(["IO"], self.completed("bash", "pimbsr trace Pim::Bsr::IO"))
        for shell in ("zsh", "fish"):
            with self.subTest(shell=shell):
                self.assertEqual(["Pim::Bsr::IO"], self.completed(shell, "pimbsr trace Pim::Bsr::IO"))

    def test_where_a_file_follows_the_shell_completes_it(self):
        self.assertEqual([], self.completed("bash", "pimbsr replay "))
        self.assertEqual(["FILES"], self.completed("zsh", "pimbsr replay "))


if __name__ == "__main__":
    COMMAND = pathlib.Path(sys.argv.pop(1)).resolve()
    unittest.main()

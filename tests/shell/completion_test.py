"""Tests of the completion of command lines in bash, zsh and fish, each by the shell itself.

Usage: completion_test.py PIMBSR"""

import os
import pathlib
import pty
import select
import signal
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "web"))
from agents import FakeAgent  # noqa: E402  found by the line before

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
PREFIX=$words[CURRENT]
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


# What a shell that is interactive begins with.
TERMINALS = {
    "bash": ["bash", "--norc", "--noprofile", "-i"],
    "zsh": ["zsh", "-f", "-i"],
    "fish": ["fish", "--no-config", "-i", "-C", "source {folder}/pimbsr.fish"]}
BEGINS = {"bash": "source {folder}/pimbsr.bash",
          "zsh": "fpath=({folder} $fpath); autoload -U compinit; compinit -u -D", "fish": "true"}
# Completes as the built command does, and writes down what it is called with otherwise.
RECORDER = """#!/bin/sh
[ "$1" = __complete ] && exec {command} "$@"
printf '%s\\n' "$@" >{home}/called.new && mv {home}/called.new {home}/called
"""
MEMBER = "status/bootstrapRouter['224.0.0.0/4']"
BELOW = {"": ["status"], "status": ["status/bsTimeout", "status/bootstrapRouter"],
         "status/bootstrapRouter": [MEMBER], MEMBER: [f"{MEMBER}/ipAddr", f"{MEMBER}/priority"]}


def tree(request):
    """A small model: what is at a path and one step below it; the root for none."""
    path = request.get("path", "")
    paths = [path] * (path != "") + BELOW.get(path, [])
    return {"entries": [{"path": one, "type": "U32", "value": "1", "unit": None} for one in paths],
            "next": None}


class Terminal:
    """An interactive shell on a terminal of its own."""

    def __init__(self, command, environment, home):
        self.process, self.file = pty.fork()
        if self.process == 0:
            os.chdir(home)
            os.execvpe(command[0], command, environment)

    def type(self, text):
        """Types a text, and waits until the shell has nothing more to write."""
        os.write(self.file, text.encode())
        end = time.monotonic() + 10
        while time.monotonic() < end and select.select([self.file], [], [], 0.6)[0]:
            try:
                os.read(self.file, 65536)
            except OSError:
                return

    def close(self):
        os.kill(self.process, signal.SIGKILL)
        os.waitpid(self.process, 0)
        os.close(self.file)


class PathTest(unittest.TestCase):
    """Paths of a running agent's model, typed step by step in each shell itself."""

    def called(self, shell, steps):
        """The arguments of the command line that a completion after each step makes."""
        with tempfile.TemporaryDirectory() as name:
            home = pathlib.Path(name)
            agent = FakeAgent(home / "control.sock")
            agent.answers["tree"] = tree
            recorder = home / "pimbsr"
            recorder.write_text(RECORDER.format(command=COMMAND, home=home))
            recorder.chmod(0o755)
            environment = {**os.environ, "PATH": f"{home}:{os.environ['PATH']}", "HOME": name, "TERM": "dumb",
                           "PIMBSR_SOCKET": str(agent.path), "INPUTRC": "/dev/null", "COLUMNS": "200"}
            terminal = Terminal([word.format(folder=FOLDER) for word in TERMINALS[shell]], environment, name)
            try:
                terminal.type("")
                terminal.type(BEGINS[shell].format(folder=FOLDER) + "\r")
                for step in steps:
                    terminal.type(step)
                    terminal.type("\t")
                terminal.type("\r")
                end = time.monotonic() + 10
                while not (home / "called").exists() and time.monotonic() < end:
                    time.sleep(0.05)
                return (home / "called").read_text().splitlines()
            finally:
                terminal.close()
                agent.stop()

    def test_path_is_completed_step_by_step_with_and_without_quotes(self):
        for shell in SHELLS:
            for steps in (['pimbsr get "status/boot', "[", "/p"], ["pimbsr get status/boot", "\\[", "/p"]):
                with self.subTest(shell=shell, steps=steps):
                    self.assertEqual(["get", f"{MEMBER}/priority"], self.called(shell, steps))

    def test_path_without_a_key_needs_no_quotes(self):
        for shell in SHELLS:
            with self.subTest(shell=shell):
                self.assertEqual(["show", "tree", "status/bsTimeout"],
                                 self.called(shell, ["pimbsr show tree status/bs"]))


if __name__ == "__main__":
    COMMAND = pathlib.Path(sys.argv.pop(1)).resolve()
    unittest.main()

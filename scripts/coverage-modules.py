#!/usr/bin/env python3
"""Prints for each module the lines and branches that tests reached, from the counts of gcov, and compares
both with docs/coverage.md: fails if its list lacks a line or branch that is not reached or has one that is,
or if its table has other shares.

Usage: coverage-modules.py [--sums] [--least PERCENT] ROOT BUILD MODULE...

--sums compares nothing. --least is how many of the branches of each module must be reached, 0 unless given.

A branch is a way out of a condition. These are none: the edges of exceptions, the choice of a handler, the
code that only exceptions reach on a line with other code (destructors), the failure of a ZET_ASSERT, the
guard of a static variable, whether a ZET_TRACE is written, lines of braces, and functions that the compiler
writes. A line or branch of a template is reached if an instantiation reaches it."""

import argparse
import collections
import os
import pathlib
import re
import struct
import sys

FUNCTION, BLOCKS, ARCS, LINES, COUNTS = 0x01000000, 0x01410000, 0x01430000, 0x01450000, 0x01a10000
ON_TREE, FAKE, FALLTHROUGH = 1, 2, 4
ENTRY, EXIT = 0, 1
PAGE = "docs/coverage.md"

Arc = collections.namedtuple("Arc", "source target flags")


class Function:
    """The graph of one compiled function, and how often each of its arcs was taken."""

    def __init__(self, file, start, is_artificial):
        self.file, self.start, self.is_artificial = file, start, is_artificial
        self.arcs, self.counters, self.lines = [], [], {}
        self.blocks = 0

    def solve(self):
        """Sets taken[arc] and executed[block]. gcov counts the arcs that are not on a spanning tree."""
        arcs = sorted(self.arcs, key=lambda arc: arc.source)
        counted = [arc for arc in arcs if not arc.flags & ON_TREE]
        counters = self.counters or [0] * len(counted)
        self.taken = dict(zip(counted, counters))
        self.into, self.out = ([[] for _ in range(self.blocks)] for _ in range(2))
        for arc in self.arcs:
            self.out[arc.source].append(arc)
            self.into[arc.target].append(arc)
        self.executed = {}
        waiting = set(range(self.blocks))
        while waiting:
            block = waiting.pop()
            waiting |= {other for arc in self.learn(block) for other in (arc.source, arc.target)}
        self.find_exceptions()

    def learn(self, block):
        """What the counts around a block imply; the arcs that became known, or all if the block did."""
        sides = [arcs for arcs, end in ((self.into[block], ENTRY), (self.out[block], EXIT)) if block != end]
        learned = []
        if block not in self.executed:
            for arcs in sides:
                if all(arc in self.taken for arc in arcs):
                    self.executed[block] = sum(self.taken[arc] for arc in arcs)
                    learned = self.into[block] + self.out[block]
                    break
        for arcs in sides if block in self.executed else []:
            unknown = [arc for arc in arcs if arc not in self.taken]
            if len(unknown) == 1:
                rest = sum(self.taken[arc] for arc in arcs if arc in self.taken)
                self.taken[unknown[0]] = self.executed[block] - rest
                learned.append(unknown[0])
        return learned

    def is_call(self, block):
        return any(arc.flags & FAKE for arc in self.out[block])

    def find_exceptions(self):
        """Sets usual: the blocks that are reached without an exception."""
        self.usual, todo = set(), [ENTRY]
        while todo:
            block = todo.pop()
            if block in self.usual:
                continue
            self.usual.add(block)
            call = self.is_call(block)
            todo += [arc.target for arc in self.out[block]
                     if not arc.flags & FAKE and (arc.flags & FALLTHROUGH or not call)]

    def decisions(self):
        """(line, arcs) of each condition."""
        usual_lines = {line for block in self.usual for line in self.lines.get(block, [])}
        for block in range(self.blocks):
            arcs = self.out[block]
            lines = self.lines.get(block)
            if len(arcs) < 2 or not lines or self.is_call(block):
                continue
            if block in self.usual or lines[-1] not in usual_lines:
                yield lines[-1], arcs

    def ends(self, block):
        """Whether a block ends in a call that doesn't return."""
        return self.is_call(block) and not any(arc.flags & FALLTHROUGH for arc in self.out[block])


def text_at(data, at):
    """(string, next position)."""
    size, = struct.unpack_from("<I", data, at)
    return data[at + 4:at + 4 + size].rstrip(b"\0").decode(), at + 4 + size


def records(path, begin):
    """(tag, content) of each record of a file of gcov 12; the content is None where all counts are 0."""
    data = path.read_bytes()
    at = begin
    while at + 8 <= len(data):
        tag, size = struct.unpack_from("<Ii", data, at)
        if tag == 0:
            return
        yield tag, None if size < 0 else data[at + 8:at + 8 + size]
        at += 8 + max(size, 0)


def read_function(data):
    """(identity, function) of a record that begins a function."""
    _, at = text_at(data, 12)
    is_artificial, = struct.unpack_from("<I", data, at)
    file, at = text_at(data, at + 4)
    line, column = struct.unpack_from("<II", data, at)
    return struct.unpack_from("<III", data), Function(file, (line, column), is_artificial)


def read_lines(function, data):
    """Notes the lines of a block. Where a call is inlined its file differs, and its lines are left out."""
    block, = struct.unpack_from("<I", data)
    at, file = 4, function.file
    while at < len(data):
        line, = struct.unpack_from("<I", data, at)
        at += 4
        if line == 0:
            file, at = text_at(data, at)
            if not file:
                return
        elif file == function.file:
            function.lines.setdefault(block, []).append(line)


def read_graphs(notes):
    """(working folder, functions by identity) of a notes file."""
    folder, at = text_at(notes.read_bytes(), 16)
    functions, function = {}, None
    for tag, data in records(notes, at + 4):
        if tag == FUNCTION:
            identity, function = read_function(data)
            functions[identity] = function
        elif tag == BLOCKS:
            function.blocks, = struct.unpack("<I", data)
        elif tag == ARCS:
            words = struct.unpack(f"<{len(data) // 4}I", data)
            function.arcs += [Arc(words[0], *pair) for pair in zip(words[1::2], words[2::2])]
        elif tag == LINES:
            read_lines(function, data)
    return folder, functions


def read_counts(counts, functions):
    function = None
    for tag, data in records(counts, 16):
        if tag == FUNCTION:
            function = functions.get(struct.unpack("<III", data)) if data else None
            if data and not function:
                raise SystemExit(f"{counts} is of another build")
        elif tag == COUNTS and function and data:
            function.counters = struct.unpack(f"<{len(data) // 8}Q", data)


class Source:
    """A source file: the lines with code, and of each line the conditions of all instantiations."""

    def __init__(self, text):
        self.text = [""] + text.split("\n")
        self.lines = collections.Counter()
        self.branches = {}

    def has_code(self, line):
        return re.fullmatch(r"[\s{}();]*(else)?[\s{]*(//.*)?", self.text[line]) is None

    def is_assertion(self, line):
        """Whether a line is in a ZET_ASSERT, which may begin on a line before."""
        while line > 0:
            if "ZET_ASSERT(" in self.text[line]:
                return True
            line -= 1
            if self.text[line].rstrip().endswith((";", "{", "}", ":")):
                return False
        return False

    def is_left_out(self, line, function, arcs):
        text = self.text[line]
        is_guard = re.match(r"\s*static ", text) and not re.search(r"\)[ a-z]* \{", text)
        fails = self.is_assertion(line) and any(function.ends(arc.target) for arc in arcs)
        return is_guard or fails or "catch (" in text

    def add(self, function):
        for block, lines in function.lines.items():
            for line in lines:
                self.lines[line] += function.executed.get(block, 0)
        by_line = collections.defaultdict(list)
        traces = set()
        for line, arcs in function.decisions():
            if "ZET_TRACE" in self.text[line] and line not in traces:
                traces.add(line)  # whether it is written; the conditions of its text follow
            elif self.has_code(line) and not self.is_left_out(line, function, arcs):
                by_line[line].append([function.taken.get(arc, 0) > 0 for arc in arcs])
        for line, conditions in by_line.items():
            shape = tuple(len(taken) for taken in conditions)
            known = self.branches.setdefault((line, function.start), {}).setdefault(shape, conditions)
            for before, taken in zip(known, conditions):
                before[:] = [a or b for a, b in zip(before, taken)]

    def all_branches(self):
        """(line, whether it was taken) of each branch."""
        for (line, _), shapes in sorted(self.branches.items()):
            for conditions in shapes.values():
                yield from ((line, taken) for condition in conditions for taken in condition)

    def code(self, line):
        """The text of a line without the comment that follows it, which may change and the code not."""
        return re.sub(r"\s+//.*", "", self.text[line]).strip()

    def missing(self):
        """Each line and branch that was not reached, as the list has it."""
        for line, count in sorted(self.lines.items()):
            if count == 0 and self.has_code(line):
                yield f"line: {self.code(line)}"
        branches = collections.Counter(line for line, taken in self.all_branches() if not taken)
        for line, count in sorted(branches.items()):
            if self.lines[line]:
                yield f"branches {count}: {self.code(line)}"


def read(root, build, modules):
    """The sources of the modules, by path."""
    sources = {}
    for counts in sorted(build.rglob("*.gcda")):
        notes = counts.with_suffix(".gcno")
        folder, functions = read_graphs(notes)
        read_counts(counts, functions)
        for function in functions.values():
            path = os.path.relpath(os.path.join(folder, function.file), root)
            if function.is_artificial or path.split("/")[0] not in modules:
                continue
            if (root / path).stat().st_mtime > notes.stat().st_mtime:
                raise SystemExit(f"{path} was changed after it was built: build it anew")
            if path not in sources:
                sources[path] = Source((root / path).read_text(encoding="utf-8"))
            function.solve()
            sources[path].add(function)
    return sources


class Share:
    """How many of some lines or branches are reached."""

    def __init__(self, reached):
        self.reached, self.all = sum(reached), len(reached)
        self.percent = f"{100 * self.reached / max(self.all, 1):.1f} %"

    def __str__(self):
        return f"{self.reached:6}/{self.all:<6}{self.percent:>8}"


def sums(sources, modules):
    """The shares of lines and of branches that are reached, by module."""
    found = {}
    for module in modules:
        lines, branches = [], []
        for path, source in sources.items():
            if path.split("/")[0] == module:
                lines += [count > 0 for line, count in source.lines.items() if source.has_code(line)]
                branches += [taken for _, taken in source.all_branches()]
        found[module] = (Share(lines), Share(branches))
    return found


def print_sums(found, least):
    """Prints a row for each module; returns whether so many percent of the branches of each are reached."""
    print(f"{'module':12}{'lines':^22}{'branches':^22}")
    for module, (lines, branches) in found.items():
        print(f"{module:12}{lines} {branches}")
    enough = all(100 * branches.reached >= least * branches.all for _, branches in found.values())
    if not enough:
        print(f"a module has less than {least:g} % of its branches reached")
    return enough


def listed(page, modules):
    """What the page lists of the modules, with how often."""
    blocks = re.findall(r"^```text\n(.*?)^```$", page, re.M | re.S)
    return collections.Counter(line for block in blocks for line in block.splitlines()
                               if line.split("/")[0] in modules)


def is_as_shown(page, found):
    """Whether the table of the page has the shares that were found."""
    shown = {row[0]: row[1:] for row in re.findall(r"^\| `(\w+)` \| (.*?) \| (.*?) \|$", page, re.M)}
    same = True
    for module, shares in found.items():
        if shown.get(module) != tuple(share.percent for share in shares):
            print(f"not the row of {PAGE}: | `{module}` | {shares[0].percent} | {shares[1].percent} |")
            same = False
    return same


def is_as_listed(page, sources, modules):
    found = collections.Counter(f"{path}: {text}" for path, source in sorted(sources.items())
                                for text in source.missing())
    known = listed(page, modules)
    for line in (found - known).elements():
        print(f"not reached, and not in {PAGE}: {line}")
    for line in (known - found).elements():
        print(f"in {PAGE}, and reached: {line}")
    return found == known


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--sums", action="store_true", help="compare nothing")
    parser.add_argument("--least", type=float, default=0, metavar="PERCENT",
                        help="branches of each module that must be reached")
    parser.add_argument("root", type=pathlib.Path)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("modules", nargs="+")
    arguments = parser.parse_args()
    root = arguments.root.resolve()
    sources = read(root, arguments.build, arguments.modules)
    found = sums(sources, arguments.modules)
    passes = [print_sums(found, arguments.least)]
    if not arguments.sums:
        page = (root / PAGE).read_text(encoding="utf-8")
        passes += [is_as_listed(page, sources, arguments.modules), is_as_shown(page, found)]
    return all(passes)


if __name__ == "__main__":
    sys.exit(0 if main() else 1)

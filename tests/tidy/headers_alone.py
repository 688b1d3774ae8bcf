"""Every header compiles alone: it includes what it uses.

Usage: headers_alone.py COMPILE_COMMANDS. Takes the compiler, include paths and definitions from the database
of the build and checks the syntax of each header of the tree with these, as many at a time as there are
processors. To be quick it parses the usual headers of the standard library once, ahead of all; so a second
check compares each header with the library headers that it reaches: one that names std::string must reach
<string>. A header and one that it includes are one compilation. Where ccache is installed, what compiled
before is not compiled again."""

import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

import graph

ROOT = pathlib.Path(__file__).resolve().parents[2]
OUTER = re.compile(r"^[ \t]*#[ \t]*include[ \t]*<([^>]*)>", re.M)
# Parsed once: most headers reach these.
AHEAD = ("algorithm", "array", "deque", "functional", "iosfwd", "limits", "map", "memory", "optional",
         "ostream", "set", "span", "string", "string_view", "utility", "vector")

# Where what a header names is declared, besides std::X in <X>; any of these headers will do.
DECLARED_IN = {
    "std::function": ("functional",), "std::unique_ptr": ("memory",), "std::shared_ptr": ("memory",),
    "std::multimap": ("map",), "std::multiset": ("set",), "std::pair": ("utility", "map"),
    "std::ostream": ("ostream", "iosfwd", "sstream", "iostream"), "std::runtime_error": ("stdexcept",),
    "std::ostringstream": ("sstream",), "nlohmann::": ("nlohmann/json.hpp", "nlohmann/json_fwd.hpp"),
    "fmt::": ("fmt/format.h", "fmt/core.h", "fmt/ranges.h"),
} | {f"std::{name}": (name,) for name in (
    "array", "atomic", "deque", "map", "optional", "set", "span", "string", "string_view", "tuple",
    "unordered_map", "variant", "vector")}


def options(database):
    """The compiler of a database, and the include paths and definitions of all its commands."""
    found = {}
    for entry in database:
        words = iter(shlex.split(entry["command"]))
        for word in words:
            if word in ("-I", "-isystem", "-D"):
                word += next(words)
            if re.match(r"-(I|isystem|D)", word) and not word.endswith("_EXPORTS"):
                found[re.sub(r"^-isystem ?", "-I", word)] = None
    compilers = {shlex.split(entry["command"])[0] for entry in database}
    return sorted(compilers)[0], list(found)


def reached(header, texts):
    """The headers that a header includes, itself or over others: those of the tree, with itself, and those of
    libraries."""
    seen, outer, waiting = {header}, set(), [header]
    while waiting:
        text = texts.get(waiting.pop(), "")
        outer |= set(OUTER.findall(text))
        for target in re.findall(r'^[ \t]*#[ \t]*include[ \t]*"([^"]*)"', text, re.M):
            beside = str(pathlib.PurePath(header).parent / target)
            target = target if target in texts else beside
            if target not in seen:
                seen.add(target)
                waiting.append(target)
    return seen, outer


def chains(own, texts):
    """All headers, in lists of which each is one compilation. A header reaches the one before it in its list,
    so it finds nothing there that it would not find alone, as its includes come first (`late_include`)."""
    reach = {header: reached(header, texts)[0] & set(own) for header in own}
    left = set(own)
    for header in sorted(own, key=lambda one: (-len(reach[one]), one)):
        chain = []
        while header in left:
            chain.insert(0, header)
            left.remove(header)
            header = max(reach[header] & left, key=lambda one: (len(reach[one]), one), default=None)
        if chain:
            yield chain


def late_include(text):
    """The line of the first include after code; 0 if there is none."""
    code = re.sub(r"//[^\n]*|/\*.*?\*/", lambda comment: "\n" * comment[0].count("\n"), text, flags=re.S)
    first = re.search(r"^[ \t]*[^#\s]", code, re.M)
    late = first and re.compile(r"^[ \t]*#[ \t]*include\b", re.M).search(code, first.end())
    return graph.line_of(code, late.start()) if late else 0


def missing(header, texts):
    """The first library header that a header names something of and doesn't reach; "" if it reaches all."""
    code = re.sub(r"//[^\n]*|/\*.*?\*/", "", texts[header], flags=re.S)
    _, outer = reached(header, texts)
    for name, places in DECLARED_IN.items():
        named = re.search(rf"\b{name}" + ("" if name.endswith(":") else r"\b(?!::)"), code)
        if named and not outer & set(places):
            return places[0]
    return ""


def headers_of(folder):
    """The headers of a folder, by their paths: the tracked ones, and those that a build has made."""
    if (folder / ".git").exists():
        git = ["git", "-c", "safe.directory=*", "-C", str(folder), "ls-files", "-z", "-co"]
        done = subprocess.run([*git, "--exclude-standard", "*.h"], check=True, capture_output=True)
        names = done.stdout.decode().split("\0")
    else:
        names = (str(p.relative_to(folder)) for p in folder.rglob("*.h"))
    return {name: (folder / name).read_text() for name in sorted(names)
            if (folder / name).is_file() and not name.startswith("build/")}


class Compiler:
    """Compiles headers, with a compiler's words, in a folder that has the same path each time: the cache
    compares paths. A cache of compilations takes no check of syntax, so that objects are made for it."""

    def __init__(self, command, folder, cache=shutil.which("ccache")):
        self.command = [cache, *command] if cache else command
        self.folder = folder
        self.has_cache = bool(cache)
        # The headers that are parsed ahead come from the same commands, and name no time of the day.
        self.environment = os.environ | {"CCACHE_SLOPPINESS": "pch_defines,time_macros"}
        self.ahead = folder / "ahead.h"

    def run(self, words):
        return subprocess.run([*self.command, *words], capture_output=True, text=True, env=self.environment)

    def compile_ahead(self):
        """Makes the compiled header of the library headers that are parsed once."""
        self.folder.mkdir(exist_ok=True)
        self.ahead.write_text("".join(f"#include <{name}>\n" for name in AHEAD))
        self.run(["-x", "c++-header", "-c", self.ahead, "-o", f"{self.ahead}.gch"]).check_returncode()

    def check(self, headers):
        """What the compiler says of headers, one after the other; "" if they compile."""
        source = self.folder / (re.sub(r"\W", "-", str(headers[-1])) + f"-{len(headers)}.cpp")
        source.write_text("".join(f'#include "{header}"\n' for header in headers))
        words = ["-include", self.ahead, "-c", source]
        made = source.with_suffix(".o")
        words += ["-fpch-preprocess", "-o", made] if self.has_cache else ["-fsyntax-only"]
        done = self.run(words)
        return done.stderr if done.returncode else ""


def errors(root, made, compiler):
    """A text for each header that doesn't compile alone. The folders `made` have those that a build makes."""
    own = headers_of(root)
    texts = own | {name: text for folder in made for name, text in headers_of(folder).items()}
    for header in own:
        if place := missing(header, texts):
            yield f"{header}:1: reaches no <{place}>"
    for header in texts:
        if line := late_include(texts[header]):
            yield f"{header}:{line}: an include comes after code"
    compiler.compile_ahead()

    def wrong(chain):
        """What is wrong with each header of a chain: they are compiled one by one if not together."""
        if compiler.check([root / header for header in chain]):
            return [(header, text) for header in chain if (text := compiler.check([root / header]))]
        return []
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        found = sorted(sum(pool.map(wrong, chains(own, texts)), []))
    yield from (f"{header}:1: doesn't compile alone\n{text}" for header, text in found)


if __name__ == "__main__":
    database = pathlib.Path(sys.argv[1])
    name, flags = options(json.loads(database.read_text()))
    folders = [pathlib.Path(flag[2:]) for flag in flags if flag.startswith("-I") and flag.endswith("/zet")]
    alone = Compiler([name, "-std=c++20", "-O0", *flags], database.parent / "headers-alone")
    found = list(errors(ROOT, folders, alone))
    print("\n".join(found) or "every header compiles alone")
    sys.exit(bool(found))

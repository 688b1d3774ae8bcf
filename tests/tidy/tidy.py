"""Rules of the project that no compiler checks: which module includes which, cycles, lengths and words.

Usage: tidy.py [ROOT]. Prints "path:line: what is wrong" for each error and fails if there is one."""

import ast
import collections
import os
import pathlib
import re
import subprocess
import sys

import face
import graph
import ranges
import uses
import words
from graph import line_of

MAX_LINE = 110
MAX_FILE = 600
MAX_FOLDER = 20  # files of a folder of agent/ and cli/
MAX_FUNCTION = 40
MAX_TEST_FUNCTION = 70  # with a table of cases in it
CPP = (".h", ".cpp")
CODE = CPP + (".zet", ".py", ".cmake", ".sh", ".js")
CODE_FOLDERS = ("scripts/", ".ci/")

# The modules, each with those it uses; it may use all that these use. A module within another is named by
# its path.
ARROWS = {
    "runtime": [],
    "model": ["runtime"],
    "protocol": ["model"],
    "crp": ["model"],
    "config": ["model"],
    "wire": ["model"],
    "pim": ["wire"],
    "host": ["protocol", "crp", "config", "pim"],
    "view": ["host"],
    "agent/base": ["view"],
    "agent/config": ["agent/base"],
    "agent/account": ["agent/base"],
    "agent/queues": ["agent/base"],
    "agent/kernel": ["agent/account", "agent/queues"],
    "agent/control": ["agent/base"],
    "agent/process": ["agent/base"],
    "agent/helpers": ["agent/process"],
    "agent/views": ["agent/account", "agent/config", "agent/control", "agent/kernel"],
    "agent": ["agent/helpers", "agent/views"],
    "sim": ["host"],
    "cli/base": ["agent/config"],
    "cli/page": ["cli/base"],
    "cli/capture": ["wire"],
    "cli/replay": ["cli/capture", "cli/page"],
    "cli/run": ["cli/base", "agent"],
    "cli/show": ["cli/base", "agent/config", "agent/control"],
    "cli/complete": ["cli/show"],
    "cli/sim": ["cli/page", "sim"],
    "cli/web": ["cli/page", "agent/control", "agent/process"],
    "cli": ["cli/complete", "cli/replay", "cli/run", "cli/show", "cli/sim", "cli/web"],
}
# Machines of these two modules own each other: their sources may include across, their headers may not.
KNOWN_PAIR = {"protocol", "crp"}
# Headers that may: (header, included header), with the reason.
KNOWN_HEADERS = {
    ("protocol/PimBsrSm.h", "crp/PimBsrTrieBuilder.h"):
        "the root machine holds the builder of the zones' trie, which uses model/ alone",
}
# The modules with an interface to the system; the others use neither these libraries nor files and sockets.
OUTER_MODULES = {"view", "agent", "sim", "cli"}
OUTER_HEADER = re.compile(
    r"(fmt|CLI|nlohmann|pcap|sys|net|netinet|linux|libmnl|toml\+\+|prometheus)/"
    r"|(pcap|unistd|fcntl|uv|cap-ng|seccomp|microhttpd)\.h$"
    r"|(fstream|filesystem|thread|mutex)$")

# The version of the program; the list of changes has former ones too.
VERSION_FILE = "agent/base/Version.h"

# A member of a JSON document is read by its name in a declared view (view/*.zet), and not by a text.
BY_TEXT = re.compile(r'\.(at|value)\("')
BY_TEXT_ALLOWED = {"agent/EventLog.cpp": "reads JSON Patches, whose members RFC 6902 names"}

# The tree must explain itself to one who has it alone. Pieced together, so that this file does not hold them.
FORBIDDEN = [
    (r"\b(TO" r"DO|FIX" r"ME|XX" r"X)\b", 0, "unfinished work"),
    (r"\bsp" r"ec(s|ifications?)?\b", re.I, "word for another document"),
    (r"\bdesign" r"\.md\b", re.I, "names another document"),
    (r"\bPar" r"ts?\s+\d+\.\d+", 0, "names a chapter of another document"),
    (r"\.\./sha" r"red\b|\bwork/sha" r"red\b|\bsha" r"red/captures\b", 0, "names a folder outside the tree"),
    (r"\biss" r"ues?\s+#?\d+", re.I, "names a ticket"),
]
FORBIDDEN = [(re.compile(pattern, flags), text) for pattern, flags, text in FORBIDDEN]


def reachable(module):
    modules = {module}
    for below in ARROWS[module]:
        modules |= reachable(below)
    return modules


def module_of(path):
    """The innermost module of a file, "" outside of all."""
    folders = path.split("/")[:-1]
    modules = ("/".join(folders[:depth]) for depth in range(len(folders), 0, -1))
    return next((module for module in modules if module in ARROWS), "")


def tree_files(root):
    """All files that are tracked or could be, as paths relative to root."""
    git = ["git", "-c", "safe.directory=*", "-C", str(root), "ls-files", "-z", "-co", "--exclude-standard"]
    if (root / ".git").exists():
        names = subprocess.run(git, check=True, capture_output=True).stdout.decode().split("\0")
        return sorted({n for n in names if n and (root / n).is_file()})
    return sorted(str(p.relative_to(root)) for p in root.rglob("*")
                  if p.is_file() and p.relative_to(root).parts[0] != "build")


def check_includes(path, text):
    module = module_of(path)
    if not module:
        return
    if module.split("/")[0] not in OUTER_MODULES:
        for match in re.finditer(r"^[ \t]*#[ \t]*include[ \t]*<([^>]*)>", text, re.M):
            if OUTER_HEADER.match(match[1]):
                yield line_of(text, match.start()), f"{module}/ must not include <{match[1]}>"
    for edge in graph.edges(path, text):
        target = module_of(edge.target)
        across = not edge.in_header and {module, target} == KNOWN_PAIR
        known = across or (edge.source, edge.target) in KNOWN_HEADERS
        if not target:
            yield edge.line, f'"{edge.target}" does not start with a module'
        elif target not in reachable(module) and not known:
            yield edge.line, f"{module}/ must not include {target}/"
        elif edge.target.endswith(".zet.h"):
            yield edge.line, f'only {edge.target.removesuffix(".zet.h")}.h includes "{edge.target}"'


NOISE = re.compile(
    r'R"([^(\s]*)\(.*?\)\1"'  # raw string
    r'|"(?:\\.|[^"\\\n])*"'
    r"|(?<![0-9A-Za-z_])'(?:\\.|[^'\\\n])+'"  # a character, not a separator of digits
    r"|//[^\n]*|/\*.*?\*/"
    r"|^[ \t]*#(?:\\\n|[^\n])*",  # a directive
    re.S | re.M)
SCOPE = re.compile(r"\b(namespace|class|struct|union|enum)\b[^()]*$|\bextern\s*$")


def brace_kind(head):
    """What a brace opens outside of functions, by the code before it back to the last ; { or }."""
    head = head.strip()
    if SCOPE.search(head):
        return "scope"
    if head.endswith("=") or (head and ")" not in head and not head.endswith("]")):
        return "value"
    return "function"


def cpp_functions(text):
    """(first line, last line) of each function's body."""
    text = NOISE.sub(lambda m: re.sub(r"[^\n]", " ", m.group()), text)
    opened = []
    function_depth = None
    head_start = 0
    for match in re.finditer(r"[;{}]", text):
        if match.group() == "{":
            kind = brace_kind(text[head_start:match.start()])
            if function_depth is None and kind == "function":
                function_depth = len(opened)
            opened.append(line_of(text, match.start()))
        elif match.group() == "}" and opened:
            first = opened.pop()
            if function_depth == len(opened):
                function_depth = None
                yield first, line_of(text, match.start())
        head_start = match.end()


def python_functions(text):
    for node in ast.walk(ast.parse(text)):
        if isinstance(node, (ast.FunctionDef, ast.AsyncFunctionDef)):
            yield node.lineno, node.end_lineno


def check_lengths(path, text):
    is_code = path.endswith(CODE) or path.startswith(CODE_FOLDERS) or path.endswith("CMakeLists.txt")
    if not is_code:
        return
    lines = text.split("\n")
    for number, line in enumerate(lines, 1):
        if len(line) > MAX_LINE:
            yield number, f"line of {len(line)} characters, at most {MAX_LINE}"
    count = len(text.splitlines())
    if count > MAX_FILE and not path.endswith("Sm.cpp"):
        yield count, f"file of {count} lines, at most {MAX_FILE}"
    functions = cpp_functions if path.endswith(CPP) else python_functions if path.endswith(".py") else None
    most = MAX_FUNCTION if module_of(path) else MAX_TEST_FUNCTION
    for first, last in functions(text) if functions else ():
        if last - first + 1 > most:
            yield first, f"function of {last - first + 1} lines, at most {most}"


def check_members(path, text):
    if not path.startswith(("agent/", "cli/")) or not path.endswith(CPP) or path in BY_TEXT_ALLOWED:
        return
    for match in BY_TEXT.finditer(text):
        yield line_of(text, match.start()), "a member is read by a text: read the view that declares it"


def check_folders(paths):
    """Folders of agent/ and cli/ with more sources than a reader can overlook."""
    counts = collections.Counter(path.rpartition("/")[0] for path in paths
                                 if path.startswith(("agent/", "cli/")) and path.endswith(CPP + (".zet",)))
    for folder, count in sorted(counts.items()):
        if count > MAX_FOLDER:
            yield f"{folder}/: {count} sources, at most {MAX_FOLDER}; split it by what its files are for"


def check_version(texts):
    """The version in another file than the one that defines it."""
    found = re.search(r'version = "([^"]+)"', texts.get(VERSION_FILE, ""))
    version = re.compile(rf"(?<![\d.]){re.escape(found[1])}(?![\d.])") if found else None
    for path, text in texts.items() if version else ():
        if path not in (VERSION_FILE, "CHANGELOG.md"):
            for match in version.finditer(text):
                line = line_of(text, match.start())
                yield path, line, f"{match[0]} is the version: {VERSION_FILE} alone has it"


def check_words(path, text):
    for pattern, meaning in FORBIDDEN:
        if match := pattern.search(path):
            yield 0, f'"{match.group()}" in the name: {meaning}'
        for match in pattern.finditer(text):
            yield line_of(text, match.start()), f'"{match.group()}": {meaning}'


def errors(root):
    """All errors of the tree, as lines of text."""
    found, texts = [], {}
    for path in tree_files(root):
        data = (root / path).read_bytes()
        if b"\0" in data:
            continue
        text = texts[path] = data.decode("utf-8", errors="replace")
        if (text.startswith("#!") or path.startswith(CODE_FOLDERS)) and not os.access(root / path, os.X_OK):
            found.append(f"{path}:1: script that is not executable")
        for check in (check_includes, check_lengths, check_members, check_words, words.check):
            found += [f"{path}:{line}: {error}" for line, error in check(path, text)]
    found += check_folders(texts)
    over_all = [*graph.check(texts, module_of), *check_version(texts), *ranges.check(texts),
                *uses.check(texts), *face.check(texts)]
    return found + [f"{path}:{line}: {error}" for path, line, error in over_all]


if __name__ == "__main__":
    start = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parents[2]
    messages = errors(start)
    print("\n".join(messages) if messages else "tidy")
    sys.exit(1 if messages else 0)

"""What README.md, CONTRIBUTING.md and docs/*.md name is there, and what they show is what the command does.

Usage: docs_test.py PIMBSR ROOT: the built command, with its build's CTestTestfile.cmake beside it, and the
source tree. Prints "page:line: what is wrong" for each error and fails if there is one."""

import os
import pathlib
import re
import subprocess
import sys

# Heading of the part of docs/model.md that test-runtime makes, of types that are declared in C++ headers.
VALUE_TYPES = "\n# Value types and enumerations\n"

# Commands that are not run here: each by its pattern, with the test that runs it or the reason.
ELSEWHERE = [
    (r"(sudo )?scripts/setup\b.*", "reason: installs packages of the system"),
    (r"cmake --preset \w+", "test: presets-test"),
    (r"cmake --build build/test --target (test-\w+)", r"test: \1"),
    (r"(?:PIMBSR_REWRITE=1 )?build/test/(test-\w+)( .*)?", r"test: \1"),
    (r"python3 -B tests/tidy/(tidy|clones)\.py", r"test: \1"),
    (r"python3 -B tests/zetc/(\w+)_test\.py --rewrite", r"test: zetc-\1-test"),
    (r"scripts/format", "test: format-check"),
    (r"scripts/docs", "test: docs-site"),
    (r"scripts/coverage\b.*", "reason: builds all tests once more, for gcov"),
    (r"ctest --test-dir build/test\b.*", "reason: runs this test"),
    (r"(FUZZ_SECONDS=\d+ )?scripts/test", "reason: runs this test"),
    (r"scripts/demo", "reason: builds the release, and then runs what is run and compared here"),
    (r"pimbsr sim --random 1000 .*", "test: sim-random"),
    (r"scripts/outages\b.*", "test: outages"),
    (r"scripts/(random-networks|mutants)\b.*", "reason: plays networks for many minutes"),
    (r"(sudo )?scripts/lab", "reason: builds the release, and then shows what lab-chain looks at"),
    (r"scripts/package\b.*", "reason: builds the release; scripts/test does, and tries the package"),
    (r"sudo (apt-get|systemctl) .*", "reason: changes the system; tests/install/package.sh does it"),
    (r"(sudo )?pimbsr run --unprivileged-check\b.*", "test: lab-privileges"),
    (r"(sudo )?pimbsr run --on-change\b.*", "test: lab-change_command"),
    (r"(sudo )?pimbsr run\b.*", "test: lab-chain"),
    (r"pimbsr (reload|clear)\b.*", "test: lab-reload"),
    (r"pimbsr (get\b.*|(show tree|watch \").*)", "test: lab-model"),
    (r"pimbsr show\b.*", "test: lab-tables"),
    (r"pimbsr (watch|trace|metrics)\b.*", "test: lab-watch"),
    (r"(sudo )?scripts/soak\b.*", "reason: attacks for an hour; scripts/test plays the short form"),
    (r"pimbsr web\b.*", "test: web-server"),
    (r"pimbsr compare\b.*", "test: lab-compare"),
    (r"mv /var/lib/prometheus/.*", "reason: a collector's folder"),
    (r"scripts/(machines|clang-tidy)\b.*", "reason: builds for many minutes; scripts/soak calls it"),
    (r"scripts/bench\b.*", "reason: measures for minutes; bench-ratios-test tries what it prints"),
    (r"g\+\+ .*pkg-config --cflags --libs pimbsr-host.*", "test: install-embed"),
    (r"pkg-config --cflags --libs pimbsr(-host|-engine)?", "test: install-embed"),
]
# Code that is in a page and in a file, the same in both.
COPIES = [("README.md", "cpp", "examples/embed/embed.cpp"),
          ("docs/corrections.md", "text", "examples/exact-borders.toml")]
# Numbers of the code that a page has: the page with the words around one, and the file with those there.
NUMBERS = [
    ("docs/security.md", r"(\d+) connections, ", "cli/web/HttpServer.h", r"connections = (\d+);"),
    ("docs/security.md", r" connections, (\d+) of an", "cli/web/HttpServer.h", r"perAddress = (\d+);"),
    ("docs/security.md", r"(\d+) streams, ", "cli/web/HttpServer.h", r"streams = (\d+);"),
    ("docs/see.md", r"(\d+) from one address", "cli/web/HttpServer.h", r"perAddress = (\d+);"),
    ("docs/performance.md", r"at most (\d+) s at 200,", "bench/page.py", r"LIMITS = {200: (\d+),"),
    ("docs/performance.md", r"(\d+) s at 2,000 ", "bench/page.py", r"LIMITS = {.*2000: (\d+)}"),
]
SOURCES = (".h", ".cpp", ".zet", ".py", ".cmake", ".txt", ".in", ".sh", ".js")
LANGUAGES = {"sh", "console", "cpp", "cmake", "text", "zet"}


class Page:
    """A page: its fenced blocks as (line, language, text), and its prose with the blocks blanked out."""

    def __init__(self, root, path):
        self.root, self.path, self.name = root, path, str(path.relative_to(root))
        self.blocks, prose, opened = [], [], None
        for number, line in enumerate(path.read_text().split("\n"), 1):
            if line.startswith("```"):
                if opened:
                    self.blocks.append((opened[0], opened[1], "".join(opened[2])))
                opened = None if opened else (number, line[3:].strip(), [])
                line = ""
            elif opened is not None:
                opened[2].append(line + "\n")
                line = ""
            prose.append(line)
        self.prose = prose
        self.words = self.names_of_examples()

    def names_of_examples(self):
        """The names that declarations of the page have, and the C++ that is generated from them."""
        examples = [text for _, language, text in self.blocks if language in ("zet", "cpp")]
        declares = any(language == "zet" for _, language, _ in self.blocks)
        return set(re.findall(r"\w+", " ".join(examples))) if declares else set()

    def error(self, line, text):
        return f"{self.name}:{line}: {text}"


class Tree:
    """The source tree, as the pages may name it."""

    def __init__(self, root, tests):
        self.root, self.tests = root, tests
        self.words = set()
        for path in root.rglob("*"):
            own = path.relative_to(root).parts
            if own[0] in (".git", "build") or not path.is_file():
                continue
            if path.suffix in SOURCES or own[0] == "scripts":
                self.words |= set(re.findall(r"\w+", path.read_text(errors="replace")))

    def is_path(self, text):
        return "/" in text[1:] and not text.startswith("/") and (self.root / text.split("/")[0]).exists()


def has_name(path, name):
    """Whether a file has a test Suite.Name, or a function, class or declared attribute of that name."""
    word = re.escape(name.split("::")[-1])
    if "." in name:
        suite, test = (re.escape(part) for part in name.split("."))
        pattern = rf"^TEST(_F|_P)?\({suite},\s*{test}\)"
    elif path.suffix == ".zet":
        pattern = rf"^ *(bounded|const|counter|members|method|pointer|value|values|watch) {word}\b"
    else:
        pattern = rf"\b{word}\(|\b(class|struct) (PIMBSR_API )?{word}\b"
    return re.search(pattern, path.read_text(), re.M) is not None


def headings(path):
    """The anchors of a page's headings."""
    titles = re.findall(r"^#+ (.*)$", path.read_text(), re.M)
    return {re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-") for title in titles}


def link_error(page, target):
    file, _, anchor = target.partition("#")
    path = page.path.parent / file if file else page.path
    if not path.exists():
        return f"link to {target}, which is not there"
    if anchor and anchor not in headings(path):
        return f"link to {target}, a heading that is not there"
    return None


def named_errors(tree, page, quoted):
    """Errors of one text in backticks: `file: name, name`, a path, or names."""
    if match := re.fullmatch(r"([\w./-]+\.\w+): (.+)", quoted):
        path = tree.root / match[1]
        if not path.is_file():
            return [f"{match[1]} is not there"]
        return [f"{match[1]} has no {name}" for name in match[2].split(", ") if not has_name(path, name)]
    if tree.is_path(quoted) or (tree.root / quoted).is_file():
        inside = quoted.startswith("build/") or (tree.root / quoted).exists()
        return [] if inside else [f"{quoted} is not there"]
    names = re.fullmatch(r"[\w:.-]+(\(.*\))?", quoted)
    missing = set(re.findall(r"[A-Za-z_]\w*", quoted if names else "")) - tree.words - page.words
    return [f"{name} is not a name of this tree" for name in sorted(missing)]


def check_names(page, tree):
    for number, line in enumerate(page.prose, 1):
        for target in re.findall(r"\]\(([^)\s]+)\)", line):
            if "://" not in target and (error := link_error(page, target)):
                yield page.error(number, error)
        for quoted in re.findall(r"`([^`]+)`", line):
            yield from (page.error(number, error) for error in named_errors(tree, page, quoted))


def check_map(page):
    """Each row of the map of the RFC has its code, and a test or a departure."""
    for number, line in enumerate(page.prose, 1):
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if not line.startswith("|") or cells[0] in ("asks", "---"):
            continue
        departs = re.search(r"\bdeparts: \w", cells[1]) if len(cells) == 3 else None
        if len(cells) != 3 or not re.search(r"`\S+: \S", cells[1]):
            yield page.error(number, "a row is: what is asked, `file: function`, `file: Suite.Name`")
        elif not departs and not re.search(r"`tests/\S+: \w+\.\w", cells[2]):
            yield page.error(number, "a row without test and without deviation")


def key_names(declarations):
    """The names in the configuration file of the keys that a text declares."""
    declared = re.findall(r"^  key (\w+) :", declarations, re.M)
    return {re.sub(r"[A-Z]", lambda letter: "-" + letter[0].lower(), name) for name in declared}


def check_limits(page, tree):
    """Each key of [limits] is named where attacks and structures have their bounds."""
    _, _, limits = (tree.root / "host/IngressSettings.zet").read_text().partition("config Limits ")
    quoted = set(re.findall(r"`([a-z-]+)`", "\n".join(page.prose)))
    for name in sorted(key_names(limits) - quoted):
        yield page.error(1, f"the bound {name} of [limits] is not named")


def check_corrections(page, tree):
    """Each correction has one row in the table, with scenarios and suites of tests that are there."""
    missing = key_names((tree.root / "host/Corrections.zet").read_text())
    suites = set()
    for path in (tree.root / "tests").glob("*/*.cpp"):
        suites |= set(re.findall(r"^TEST(?:_F|_P)?\((\w+),", path.read_text(), re.M))
    for number, line in enumerate(page.prose, 1):
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if len(cells) != 5 or not (name := re.fullmatch(r"`([\w-]+)`", cells[0])):
            continue
        if name[1] not in missing:
            yield page.error(number, f"{name[1]} is no correction, or has a row before this one")
        missing.discard(name[1])
        tests = re.findall(r"`([\w-]+)`", cells[4])
        scenarios = {test for test in tests
                     if (tree.root / f"tests/scenarios/corrected/{test}.txt").is_file()}
        if not tests:
            yield page.error(number, f"{name[1]} has no test")
        for test in sorted(set(tests) - scenarios - suites):
            yield page.error(number, f"{test} is neither a scenario of a correction nor a suite of tests")
    for name in sorted(missing):
        yield page.error(1, f"{name} has no row")


def check_numbers(page, tree):
    """Limits are those of the code."""
    for name, words, source, declared in NUMBERS:
        if name != page.name:
            continue
        expected = re.search(declared, (tree.root / source).read_text())[1]
        found = [(number, match[1]) for number, line in enumerate(page.prose, 1)
                 if (match := re.search(words, line))]
        if len(found) != 1:
            yield page.error(1, f"{words} is on {len(found)} lines")
        for number, shown in found:
            if shown != expected:
                yield page.error(number, f"{shown} is {expected} in {source}")


def commands(language, text):
    """The commands of a block, each with the output that is shown, or None where none is."""
    if language == "sh":
        for line in text.replace("\\\n", " ").split("\n"):
            if command := re.sub(r"(^|\s+)#.*", "", line).strip():
                yield command, None
        return
    for part in re.split(r"^\$ ", text, flags=re.M)[1:]:
        command, _, output = part.partition("\n")
        yield command.strip(), output


def matches(shown, printed):
    """Whether a command printed what is shown, in which a line "..." stands for any lines."""
    lines = shown.rstrip("\n").split("\n")
    pattern = "".join(r"(?:.*\n)*?" if line.strip() == "..." else re.escape(line.rstrip()) + r"[ ]*\n"
                      for line in lines)
    return re.fullmatch(pattern, printed.rstrip("\n") + "\n") is not None


def command_error(tree, pimbsr, command, shown):
    for pattern, answer in ELSEWHERE:
        if match := re.fullmatch(pattern, command):
            kind, _, value = match.expand(answer).partition(": ")
            known = kind == "reason" or re.search(rf"^add_test\((\[=\[)?{value}\b", tree.tests, re.M)
            return None if known else f"{command}: there is no test {value}"
    if not re.match(r"(pimbsr|python3 -B tests/web/networks\.py)( |$)", command):
        return f"{command}: neither run here nor said to be run elsewhere"
    environment = dict(os.environ, PATH=f"{pimbsr.parent}:{os.environ['PATH']}")
    run = subprocess.run(["bash", "-c", command], cwd=tree.root, env=environment, capture_output=True,
                         text=True, timeout=120)
    if run.returncode != 0:
        return f"{command}: exit status {run.returncode}\n{run.stderr}"
    if shown is not None and not matches(shown, run.stdout):
        return f"{command}: prints something else than is shown:\n{run.stdout}"
    return None


def check_blocks(page, tree, pimbsr):
    for number, (before, line) in enumerate(zip([""] + page.prose, page.prose), 1):
        if re.match(r" {4}\S", line) and not before.strip():
            yield page.error(number, "a block that is indented and not fenced, so that it is never run")
    for number, language, text in page.blocks:
        if language not in LANGUAGES:
            yield page.error(number, f"a block of {language or 'no language'}")
        if language in ("sh", "console"):
            for command, shown in commands(language, text):
                if error := command_error(tree, pimbsr, command, shown):
                    yield page.error(number, error)
        for name, copied, file in COPIES:
            if (page.name, language) == (name, copied) and text != (tree.root / file).read_text():
                yield page.error(number, f"differs from {file}")


def errors(pimbsr, root):
    tree = Tree(root, (pimbsr.parent / "CTestTestfile.cmake").read_text())
    for path in [root / "README.md", root / "CONTRIBUTING.md", *sorted((root / "docs").glob("*.md"))]:
        page = Page(root, path)
        yield from check_names(page, tree)
        yield from check_blocks(page, tree, pimbsr)
        yield from check_numbers(page, tree)
        if page.name == "docs/rfc5059.md":
            yield from check_map(page)
        if page.name == "docs/security.md":
            yield from check_limits(page, tree)
        if page.name == "docs/corrections.md":
            yield from check_corrections(page, tree)
    version = re.search(r'version = "([0-9.]+)"', (root / "agent/base/Version.h").read_text())[1]
    newest = re.search(r"^## (.*)", (root / "CHANGELOG.md").read_text(), re.M)[1]
    if newest != version:
        yield f"CHANGELOG.md:1: the newest version is {newest}, that of agent/base/Version.h is {version}"
    for name, page in (("views.md", "views.md"), ("reference.md", "model.md")):
        made = pimbsr.parent / "zet" / name
        text = (root / "docs" / page).read_text()
        if made.read_text() != (text.partition(VALUE_TYPES)[0] if page == "model.md" else text):
            yield f"docs/{page}:1: differs from the declarations; {made} is the page"


if __name__ == "__main__":
    found = list(errors(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve()))
    print("\n".join(found) if found else "all as it is written")
    sys.exit(1 if found else 0)

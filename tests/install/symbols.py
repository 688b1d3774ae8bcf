"""Compares the names that the libraries of a release build export with the files of cmake/symbols.

Usage: symbols.py BUILD [--rewrite]. A name that is gone breaks programs (docs/embedding.md); a new one is
promised from now on. Weak names and instances of others' templates are the compiler's choice and left out, so
the files hold for g++ on amd64: on another machine, or for a BUILD of another compiler, it ends with status
77 and compares nothing."""

import pathlib
import platform
import re
import subprocess
import sys

FOLDER = pathlib.Path(__file__).resolve().parents[2] / "cmake" / "symbols"
LIBRARIES = ("libpimbsr", "libpimbsr-host")


def exported(library):
    listed = subprocess.run(["nm", "-D", "--defined-only", library],
                            capture_output=True, text=True, check=True)
    pairs = [line.split()[1:] for line in listed.stdout.splitlines()]
    names = [name for kind, name in pairs if kind not in "WwuiA"]
    shown = subprocess.run(["c++filt"], input="\n".join(names), capture_output=True, text=True, check=True)
    foreign = re.compile(r"(^|for )(std|__gnu_cxx|boost)::")
    return sorted({text for text in shown.stdout.splitlines() if not foreign.search(text)})


def is_of_gcc(build):
    cache = (pathlib.Path(build) / "CMakeCache.txt").read_text(encoding="utf-8")
    compiler = re.search(r"^CMAKE_CXX_COMPILER:\w+=(.+)$", cache, re.M)[1]
    version = subprocess.run([compiler, "--version"], capture_output=True, text=True, check=True).stdout
    return "Free Software Foundation" in version  # c++ may be any compiler


def main(build, *options):
    if platform.machine() != "x86_64" or not is_of_gcc(build):
        print("cmake/symbols holds for g++ on amd64 alone")
        return 77
    found = 0
    for library in LIBRARIES:
        names = exported(pathlib.Path(build) / f"{library}.so")
        page = FOLDER / f"{library}.txt"
        if "--rewrite" in options:
            page.write_text("\n".join(names) + "\n", encoding="utf-8")
            continue
        known = set(page.read_text(encoding="utf-8").splitlines())
        for name in sorted(known - set(names)):
            print(f"{library}: gone: {name}")
        for name in sorted(set(names) - known):
            print(f"{library}: new: {name}")
        found += len(known ^ set(names))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))

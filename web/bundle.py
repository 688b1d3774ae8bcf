"""Makes the page without its data: bundles web/src, and fills script, style and their hashes into page.html.

Usage: bundle.py ESBUILD MODULES OUT [--cpp]. MODULES is the folder that has the d3 modules. With --cpp OUT is
a C++ source with the page as a text in three pieces: before the place of the policy where a page that is
served permits to connect, from there to the data, and after the data."""

import base64
import hashlib
import os
import pathlib
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
PIECE = 4000  # characters of a string literal; some compilers reject long ones


def bundled(esbuild, modules):
    command = [esbuild, str(HERE / "src/app.js"), "--bundle", "--minify", "--charset=utf8", "--target=es2020",
               "--log-level=warning"]
    return subprocess.run(command, check=True, capture_output=True, text=True,
                          env={**os.environ, "NODE_PATH": modules}).stdout


def hash_of(text):
    return "sha256-" + base64.b64encode(hashlib.sha256(text.encode()).digest()).decode()


def page(script, style):
    """The page; "@data@" is where the data belongs, "@connect@" what the policy permits besides."""
    # An end tag within the script would end it.
    script = script.replace("</", "<\\/")
    text = (HERE / "page.html").read_text()
    for name, value in (("script-hash", hash_of(script)), ("style-hash", hash_of(style)), ("style", style),
                        ("script", script)):
        text = text.replace(f"@{name}@", value)
    return text


def literals(text):
    pieces = [text[start:start + PIECE] for start in range(0, len(text), PIECE)]
    return "\n".join(f'R"~~({piece})~~"' for piece in pieces)


def source(text):
    before_connect, rest = text.split("@connect@")
    before, after = rest.split("@data@")
    return ("// Made by web/bundle.py.\n#include \"cli/page/PageText.h\"\n\nnamespace pimbsr::cli {\n\n"
            f"std::string_view const pageBeforeConnect =\n{literals(before_connect)};\n\n"
            f"std::string_view const pageBeforeData =\n{literals(before)};\n\n"
            f"std::string_view const pageAfterData =\n{literals(after)};\n\n}}  // namespace pimbsr::cli\n")


def main(esbuild, modules, out, *options):
    text = page(bundled(esbuild, modules), (HERE / "style.css").read_text())
    pathlib.Path(out).write_text(source(text) if "--cpp" in options else text)


if __name__ == "__main__":
    main(*sys.argv[1:])

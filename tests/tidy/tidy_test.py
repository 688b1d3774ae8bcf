"""Each rule of tidy.py, tried on small trees that keep it or break it."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

import graph
import tidy

ROOT = pathlib.Path(__file__).resolve().parents[2]
FACES = "set(host_face_host Router)\nset(host_face_pim Port)\nset(host_face_wire Wire)\n"


def lines(count, line="x();\n"):
    return line * count


class TidyTest(unittest.TestCase):
    def errors(self, files, executable=()):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            for name, content in {"cmake/Face.cmake": FACES, **files}.items():
                file = root / name
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_bytes(content if isinstance(content, bytes) else content.encode())
                file.chmod(0o755 if name in executable else 0o644)
            return tidy.errors(root)

    def assert_error(self, name, content, error):
        found = self.errors({name: content})
        self.assertEqual([f"{name}:{error}"], found)

    def assert_tidy(self, name, content, **options):
        self.assertEqual([], self.errors({name: content}, **options))

    def test_an_include_points_downward(self):
        for path, target in [("model/A.h", "runtime/Ptr.h"), ("host/A.cpp", "wire/Decode.h"),
                             ("cli/A.cpp", "runtime/Ptr.h"), ("crp/A.h", "crp/B.h")]:
            self.assert_tidy(path, f'#include "{target}"\n')

    def test_an_include_that_points_upward_is_found(self):
        for path, module in [("runtime/A.h", "model"), ("model/A.cpp", "wire"), ("wire/A.h", "crp"),
                           ("protocol/A.cpp", "host"), ("pim/A.h", "protocol"), ("sim/A.h", "agent"),
                           ("host/A.cpp", "cli")]:
            self.assert_error(path, f'\n#include "{module}/B.h"\n',
                              f"2: {path.split('/')[0]}/ must not include {module}/")

    def test_the_known_pair_meets_in_sources_only(self):
        self.assert_tidy("protocol/A.cpp", '#include "crp/B.h"\n')
        self.assert_tidy("crp/A.cpp", '#include "protocol/B.h"\n')
        self.assert_error("protocol/A.h", '#include "crp/B.h"\n', "1: protocol/ must not include crp/")
        self.assert_error("config/A.cpp", '#include "crp/B.h"\n', "1: config/ must not include crp/")

    def test_an_include_without_module_is_found(self):
        self.assert_error("model/A.cpp", '# include "A.h"\n', '1: "A.h" does not start with a module')
        self.assert_error("model/A.cpp", '#include "tests/support/A.h"\n',
                          '1: "tests/support/A.h" does not start with a module')
        self.assert_tidy("tests/model/A.cpp", '#include "Fixture.h"\n')

    def test_a_use_of_a_declaration_is_an_include(self):
        self.assert_tidy("model/A.zet", "use runtime/B\n")
        self.assert_error("model/A.zet", "use runtime/B\nuse host/B\n", "2: model/ must not include host/")
        self.assert_error("protocol/A.zet", "use crp/B\n", "1: protocol/ must not include crp/")
        self.assert_tidy("protocol/A.zet", "later crp/B\n")
        self.assert_error("config/A.zet", "later crp/B\n", "1: config/ must not include crp/")

    def test_a_known_header_may_include_across(self):
        for header, target in tidy.KNOWN_HEADERS:
            self.assert_tidy(header, f'#include "{target}"\n')
            self.assert_tidy(header.replace(".h", ".zet"), f"use {target.removesuffix('.h')}\n")

    def test_a_cycle_of_headers_is_found(self):
        self.assertEqual(["model/A.h:1: cycle of headers: model/A.h, model/B.h, model/C.h",
                          "model/A:1: cycle of units: model/A, model/B, model/C"],
                         self.errors({"model/A.h": '#include "model/B.h"\n', "model/B.zet": "use model/C\n",
                                      "model/C.h": '#include "model/A.h"\n',
                                      "model/D.h": '#include "model/A.h"\n'}))

    def test_a_cycle_of_units_is_found(self):
        for second in [{"model/B.cpp": '#include "model/A.h"\n'}, {"model/B.zet": "later model/A\n"}]:
            self.assertEqual(["model/A:1: cycle of units: model/A, model/B"],
                             self.errors({"model/A.h": '#include "model/B.h"\n', **second}))
        self.assertEqual([], self.errors({"model/A.cpp": '#include "model/A.h"\n#include "model/B.h"\n',
                                          "tests/A.h": '#include "tests/B.h"\n',
                                          "tests/B.h": '#include "tests/A.h"\n'}))

    def test_only_the_named_cycles_of_units_are_allowed(self):
        for members, reason in graph.ALLOWED_CYCLES:
            self.assertTrue(reason)
            ring = sorted(members)
            files = {f"{a}.cpp": f'#include "{b}.h"\n' for a, b in zip(ring, ring[1:] + ring[:1])}
            self.assertEqual([], self.errors(files))
            self.assertNotEqual([], self.errors(files | {f"{ring[0]}.zet": "later runtime/A\n",
                                                         "runtime/A.cpp": f'#include "{ring[0]}.h"\n'}))

    def test_an_allowed_cycle_that_is_gone_is_found(self):
        for members, _ in graph.ALLOWED_CYCLES:
            chain = sorted(members)
            self.assertTrue(all((ROOT / f"{unit}.h").exists() for unit in chain), chain)
            files = {f"{a}.cpp": f'#include "{b}.h"\n' for a, b in zip(chain, chain[1:])}
            gone = " are no cycle: remove it from ALLOWED_CYCLES of tests/tidy/graph.py"
            self.assertEqual([f"{chain[0]}:0: " + ", ".join(chain) + gone],
                             self.errors({**files, f"{chain[-1]}.cpp": "\n"}))

    def test_a_word_of_the_list_is_found(self):
        self.assert_error("model/A.h", "// It is told.\n",
                          '1: "told": use report, log, notify, publish; of a message: received')
        self.assert_tidy("model/A.h", "U32 longestMatch;\n")

    def test_a_generated_header_is_included_by_its_own_header_only(self):
        self.assert_tidy("model/Status.h", '#include "model/Status.zet.h"\n')
        for path in ["model/Status.cpp", "model/Other.h", "protocol/Status.h"]:
            self.assert_error(path, '#include "model/Status.zet.h"\n',
                              '1: only model/Status.h includes "model/Status.zet.h"')

    def test_outer_libraries_and_the_system_stay_in_outer_modules(self):
        for header in ["fmt/core.h", "nlohmann/json.hpp", "CLI/CLI.hpp", "pcap/pcap.h", "pcap.h", "unistd.h",
                       "sys/socket.h", "fstream", "thread"]:
            self.assert_tidy("cli/A.cpp", f"#include <{header}>\n")
            self.assert_error("wire/A.cpp", f"#include <{header}>\n", f"1: wire/ must not include <{header}>")
        self.assert_tidy("runtime/A.h", "#include <string>\n#include <system_error>\n"
                                      "#include <arpa/inet.h>\n")

    def test_a_long_function_is_found(self):
        for opening, line in [("void f() {\n", 1), ("namespace a {\nvoid f() {\n", 2),
                              ("template <class T>\nvoid f(T t) const noexcept {\n", 2),
                              ("struct A {\n  A() : a_{1}, b_(2) {\n", 2), ("A::A() : a_{1} {\n", 1),
                              ("auto f = [](int a) {\n", 1), ("auto f = [] {\n", 1),
                              ("int main() try {\n", 1), ("TEST(A, b) {\n", 1),
                              ("auto f() -> std::vector<int> {\n", 1)]:
            closing = "}\n" * (2 if opening.startswith(("namespace", "struct")) else 1)
            self.assert_tidy("model/A.cpp", opening + lines(38) + closing)
            self.assert_error("model/A.cpp", opening + lines(39) + closing,
                              f"{line}: function of 41 lines, at most 40")

    def test_braces_that_are_no_code_do_not_count(self):
        for text in ["// {", "/* {\n{ */", 'auto a = "{";', "auto a = '{';", 'auto a = R"x(\n{)x";',
                     "#define A {\\\n{", "auto a = 1'000; auto b = '{'; auto c = '\\'';"]:
            self.assert_error("model/A.cpp", "void f() {\n" + text + "\n" + lines(39) + "}\nvoid g() {}\n",
                              f"1: function of {42 + text.count(chr(10))} lines, at most 40")

    def test_only_functions_are_short(self):
        for opening in ["namespace {\n", "class A : public B {\n", "enum class A {\n", "int const a[] = {\n",
                        'extern "C" {\n', "template <class T>\nstruct PIMBSR_API A final : B<T> {\n"]:
            self.assert_tidy("model/A.cpp", opening + lines(100, "a,\n") + "};\n")

    def test_a_long_python_function_is_found(self):
        self.assert_tidy("runtime/zetc/a.py", "def f():\n" + lines(39, "    x()\n"))
        self.assert_error("runtime/zetc/a.py", "\ndef f():\n" + lines(40, "    x()\n"),
                          "2: function of 41 lines, at most 40")
        self.assert_tidy("tests/model/a.py", "def f():\n" + lines(69, "    x()\n"))
        self.assert_error("tests/model/a.py", "def f():\n" + lines(70, "    x()\n"),
                          "1: function of 71 lines, at most 70")

    def test_a_long_file_is_found(self):
        for path in ["model/A.h", "model/A.zet", "tests/zetc/a.py", "cmake/A.cmake"]:
            self.assert_tidy(path, lines(600, "x = 1\n"))
            self.assert_error(path, lines(601, "x = 1\n"), "601: file of 601 lines, at most 600")
        self.assert_tidy("protocol/PimBsrSm.cpp", lines(900, "int x;\n"))
        self.assert_tidy("docs/long.md", lines(900, "x\n"))

    def test_a_folder_of_agent_and_cli_has_a_bound(self):
        def paths(folder, count, suffix):
            return [f"{folder}/A{number}{suffix}" for number in range(count)]

        full = paths("cli/show", 10, ".h") + paths("cli/show", 9, ".cpp") + paths("cli/show", 1, ".zet")
        others = paths("cli/show", 5, ".txt") + paths("cli/show/rp", 20, ".h") + paths("host", 21, ".h")
        self.assertEqual([], list(tidy.check_folders(full + others)))
        for folder in ["cli/show", "agent", "agent/control"]:
            self.assertEqual([f"{folder}/: 21 sources, at most 20; split it by what its files are for"],
                             list(tidy.check_folders(paths(folder, 21, ".cpp"))))

    def test_a_member_that_is_read_by_a_text_is_found(self):
        for line in ['json.at("zone")', 'view.value("text", "")']:
            for path in ["cli/show/A.cpp", "agent/A.h"]:
                self.assert_error(path, f"\nauto a = {line};\n",
                                  "2: a member is read by a text: read the view that declares it")
            for path in ["host/A.cpp", "agent/EventLog.cpp", "tests/cli/ATest.cpp"]:
                self.assert_tidy(path, f"auto a = {line};\n")
        self.assert_tidy("cli/A.cpp", "auto a = places.at(name); b.value(); c.at(0);\n")

    def test_the_version_is_in_one_file(self):
        version = {"agent/base/Version.h": 'inline constexpr char const* version = "1.2.3";\n'}
        for text in ["a_1.2.3_b.deb", "1.2.3"]:
            self.assertEqual(["docs/a.md:2: 1.2.3 is the version: agent/base/Version.h alone has it"],
                             self.errors({**version, "docs/a.md": "\n" + text}))
        for path, text in [("CHANGELOG.md", "1.2.3"), ("docs/a.md", "11.2.3 10.1.2.3/8 1.2.3.4 1.2")]:
            self.assertEqual([], self.errors({**version, path: text}))

    def test_a_long_line_is_found(self):
        for path in ["model/A.h", "model/A.zet", "a.py", "cmake/A.cmake", "CMakeLists.txt"]:
            self.assert_tidy(path, "#" + "ä" * 109 + "\n")
            self.assert_error(path, "\n#" + "ä" * 110 + "\n", "2: line of 111 characters, at most 110")
        self.assert_tidy("docs/table.md", "|" * 200)

    def test_a_forbidden_word_is_found(self):
        # Pieced together for the same reason as the patterns.
        for word, meaning in [("TO" "DO", "unfinished work"), ("XX" "X", "unfinished work"),
                              ("sp" "ec", "word for another document"),
                              ("Sp" "ecification", "word for another document"),
                              ("design" ".md", "names another document"),
                              ("Par" "t 3.2", "names a chapter of another document"),
                              ("../sha" "red", "names a folder outside the tree"),
                              ("iss" "ue #2", "names a ticket"), ("Iss" "ue 12", "names a ticket")]:
            for path in ["model/A.h", "README.md", "tests/scenarios/a.txt"]:
                self.assert_error(path, f"\n// see {word}, a\n", f'2: "{word}": {meaning}')
        self.assert_error("docs/sp" "ec.md", "", '0: "sp' 'ec" in the name: word for another document')

    def test_words_that_only_look_forbidden_pass(self):
        self.assert_tidy("README.md", "specific, inspect, std::shared_ptr, a shared library, part 2,\n"
                                      "an issue, mktemp XX" "XXXX, RFC 5059 section 3.1.2\n")

    def test_binary_files_are_passed_over(self):
        self.assert_tidy("examples/a.pcap", b"\0 TO" b"DO")

    def test_a_script_is_executable(self):
        for path in ["scripts/test", ".ci/run", "tests/install/a.sh"]:
            content = "#!/bin/sh\ntrue\n"
            self.assert_error(path, content, "1: script that is not executable")
            self.assert_tidy(path, content, executable=[path])

    def test_the_command_fails_on_an_error(self):
        for content, code in [("int x;\n", 0), ("int x;  // TO" "DO\n", 1)]:
            with tempfile.TemporaryDirectory() as folder:
                (pathlib.Path(folder) / "a.h").write_text(content)
                run = subprocess.run([sys.executable, "-B", tidy.__file__, folder], capture_output=True)
                self.assertEqual(code, run.returncode, run.stdout)

    def test_in_a_repository_ignored_files_are_passed_over_and_new_ones_are_not(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            subprocess.run(["git", "init", "-q", folder], check=True)
            (root / ".gitignore").write_text("/out/\n")
            (root / "out").mkdir()
            (root / "out" / "a.h").write_text("// TO" "DO\n")
            (root / "b.h").write_text("// TO" "DO\n")
            self.assertEqual(["b.h:1: \"TO" "DO\": unfinished work"], tidy.errors(root))


if __name__ == "__main__":
    unittest.main()

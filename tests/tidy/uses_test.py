"""A function that only tests call is found, and none that the product calls."""

import unittest

import uses

HEADER = """/// Returns chosen(), as a test may.
int chosen(int value);
class Store {
 public:
  std::size_t sizeOf() const { return held(); }
  void onChange() override;
};
PIMBSR_API void offered();
"""
SOURCE = """int chosen(int value) { return value; }
std::size_t Store::sizeOf() const { return "chosen()"; }
"""
TEST = "EXPECT_EQ(chosen(1), store.sizeOf()); store.onChange(); offered();"


class UsesTest(unittest.TestCase):
    def found(self, *sources):
        texts = {"agent/A.h": HEADER, "agent/A.cpp": SOURCE, **dict(sources)}
        return [(line, text) for path, line, text in uses.check(texts) if path == "agent/A.h"]

    def test_a_function_and_a_method_that_tests_alone_use_are_found(self):
        self.assertEqual([(2, "chosen: only tests use it"), (5, "sizeOf: only tests use it")],
                         self.found(("tests/agent/ATest.cpp", TEST)))

    def test_a_function_without_any_use_is_found(self):
        self.assertEqual([(2, "chosen: it has no use"), (5, "sizeOf: it has no use")], self.found())

    def test_a_call_in_the_product_a_declaration_or_the_generator_is_a_use(self):
        call = "static int two() {\n  return chosen(2) + store.sizeOf();\n}\n"
        for path in ["agent/A.cpp", "cli/B.cpp", "bench/C.cpp", "view/A.zet", "runtime/zetc/a.py"]:
            self.assertEqual([], self.found((path, SOURCE + call)), path)

    def test_a_call_in_a_text_or_a_comment_is_none(self):
        for text in ["// chosen() and sizeOf()\n", 'auto text = "chosen() sizeOf()";\n',
                     "/* chosen\nsizeOf */\n"]:
            self.assertEqual(2, len(self.found(("cli/B.cpp", text))), text)

    def test_an_allowance_has_a_reason_and_is_needed(self):
        self.assertTrue(all(uses.ALLOWED.values()))
        name = next(iter(uses.ALLOWED))
        self.assertIn(("tests/tidy/uses.py", 0, f"{name} is used: remove it from ALLOWED"),
                      list(uses.check({"cli/A.cpp": f"static int a() {{\n  return {name}();\n}}\n"})))


if __name__ == "__main__":
    unittest.main()

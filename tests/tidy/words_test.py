"""The word list finds what it names, and nothing else."""

import re
import unittest

import words


class WordsTest(unittest.TestCase):
    def found(self, line, path="docs/a.md"):
        return [text.split('"')[1] for _, text in words.check(path, line)]

    def test_a_planted_word_is_found_in_comments_messages_documents_and_names(self):
        for line, path, word in [("// A signal tells of it.", "model/A.h", "tells"),
                                 ('throwNeeded("bytes behind it");', "wire/A.cpp", "behind"),
                                 ("It says farewell.", "docs/a.md", "farewell"),
                                 ("void sayFarewell();", "pim/A.h", "farewell"),
                                 ("reply-road = 1", "examples/a.toml", "road"),
                                 ("def test_a_fault_is_shown(self):", "tests/lab/a.py", "fault"),
                                 ("TEST(A, ARefusedValueStays) {", "tests/model/A.cpp", "refused"),
                                 ("PIM neighbours", "README.md", "neighbours"),
                                 ("the hold time", "model/A.zet", "hold time"),
                                 ("zone-timeout = 1", "docs/a.md", "zone timeout"),
                                 ("// Birth -------", "crp/A.cpp", "birth"),
                                 ("// Birth and end -------", "crp/A.cpp", "birth"),
                                 ("this router stands for election", "host/A.h", "stands for election"),
                                 ("# r1 and r2 stand for the global zone", "examples/a.sim",
                                  "stand for the global zone"),
                                 ("## Arrival", "docs/a.md", "arrival"),
                                 ("for people", "docs/a.md", "people")]:
            with self.subTest(line):
                self.assertEqual([word], self.found(line, path))

    def test_every_rule_fires_on_one_of_its_words(self):
        plants = {words.SUBJECT: "An end. {} a thing", words.OPENING: "{} a thing",
                  words.WORDS: "a {} b", words.FIRST_OF_NAME: "{}Value", words.HEADING: "// {} ---",
                  words.NAME: "a {} b"}
        for rule in words.RULES:
            first = re.sub(r"\(([^|)]*)[^)]*\)\??", r"\1", rule.words).split("|")[0].replace("?", "")
            path = rule.paths.replace("*", "A.h")
            plant = plants[rule.kind].format(first)
            with self.subTest(plant):
                self.assertTrue(words.find(rule, plant), path)

    def test_a_bound_is_a_name_of_its_own(self):
        for line, word in [("U32 mostRanges = 4096;", "most"), ("leastValue", "least"),
                           ("longest_run", "longest")]:
            self.assertEqual([word], self.found(line, "model/A.h"))
        for line in ["trie.longestMatch(prefix)", "a longest-match trie", "at most one", "the least of them",
                     "almostAll", "T most;"]:
            self.assertEqual([], self.found(line, "model/A.h"))

    def test_the_period_of_a_candidacy_has_the_name_of_the_rfc(self):
        for line in ["  U32 interval = 60;", "U16 interval;", "rp.interval * 3", "bsr->interval;",
                     ".interval = 5"]:
            for path in ["agent/views/A.cpp", "cli/sim/A.cpp", "host/A.h", "sim/A.cpp"]:
                with self.subTest(line, path=path):
                    self.assertEqual(["interval"], [word.split(" ")[-1] for word in self.found(line, path)])
        for line, path in [("candidate.interval()", "agent/A.cpp"), ('former "interval"', "host/A.zet"),
                           ("double interval = 10;", "agent/A.h"), ("U32 interval;", "model/A.h")]:
            self.assertEqual([], self.found(line, path), line)

    def test_words_are_found_whole_only(self):
        for line in ["default", "standard", "understand", "standalone", "broad", "household", "mushroom",
                     "history", "recommend", "screenplay", "agreeting", "dicey", "adjudge", "refuser"]:
            self.assertEqual([], self.found(line), line)

    def test_a_sentence_begins_with_its_subject(self):
        for line, word in [("It has a bound. What exceeds it is dropped.", "What"),
                           ("(see there). Whatever goes wrong is repaired.", "Whatever"),
                           ("- What fits none is in a heap.", "What"),
                           ("It ends. Whoever asks waits.", "Whoever"),
                           ('"Printed are a line and a table"', "Printed are"),
                           ("It plays it. Printed are the changes", "Printed are"),
                           ("/// Kept is the last one.", "Kept is"), ("Sent were two.", "Sent were")]:
            self.assertEqual([word], self.found(line), line)
        for line in ["What made a change.", "| `a` | What it is. |", "## What a change touches",
                     "It is what a host asks.", "Indeed is one of them.", "Printed text is long.",
                     "a key; what it has is kept", "a file. What?", "Speed is measured."]:
            self.assertEqual([], self.found(line), line)

    def test_a_free_relative_is_found_wherever_it_begins(self):
        for line, path, word in [("/// Whoever makes this object has nothing", "agent/A.cpp", "Whoever"),
                                 ("// Whatever fails, a change lacks", "runtime/A.cpp", "Whatever"),
                                 ('"""Whoever watches gets a line."""', "tests/lab/a.py", "Whoever"),
                                 ("| Whatever is well-formed is taken. |", "docs/a.md", "Whatever"),
                                 ("TEST_F(A, WhoeverLeavesIsServed) {", "tests/agent/A.cpp",
                                  "WhoeverLeavesIsServed"),
                                 ("TEST(A, SentToWhoeverReads) {", "tests/agent/A.cpp", "SentToWhoeverReads"),
                                 ("TEST(A, WhateverIsReadIsKept) {", "tests/wire/A.cpp",
                                  "WhateverIsReadIsKept"),
                                 ("/// What is removed by a BSR is not kept.", "host/A.h",
                                  "What is removed by a BSR is"),
                                 ("/// What went by a command was cleared.", "agent/A.cpp",
                                  "What went by a command was"),
                                 ("// What was set up before may be old.", "agent/A.cpp",
                                  "What was set up before may")]:
            with self.subTest(line):
                self.assertEqual([word], self.found(line, path))
        for line in ["may be renewed, whatever the bounds", "TEST(A, MayUseItWhateverTheMask) {",
                     "/// What is wrong with what was read; nothing",
                     "/// What is kept of a user while it has one",
                     "/// What is done when a reactor is bound",
                     "/// What is done about a copy that may differ", "/// What was changed, and is sent"]:
            self.assertEqual([], self.found(line, "agent/A.h"), line)

    def test_fixed_names_of_tests_have_no_word_for_a_place(self):
        for line, word in [("TEST_F(A, WhatIsSentIsNotHeardAtHome) {", "WhatIsSentIsNotHeardAtHome"),
                           ("bool isAtHome();", "isAtHome"), ("TEST(A, ElectionIsATimersDoing) {",
                                                              "ElectionIsATimersDoing"),
                           ("TEST_F(A, TheClientOfThisRoomIsServed) {", "room"), ("the room for it", "room")]:
            self.assertEqual([word], self.found(line, "tests/agent/A.cpp"), line)

    def test_senses_outside_the_rule_stay(self):
        for line in ["a page fault", "BSR stands for Bootstrap Router", "the kernel refused the connection",
                     "connection refused", "a refused configuration", "make room for it", "there is no room",
                     "there is room for it", "makeRoom(1)"]:
            self.assertEqual([], self.found(line), line)

    def test_fixed_names_and_texts_stay(self):
        for line in ["config->holdTimeIs(5);", "CrpHoldTime", '"BSR Hold Time is 130"', "void onHoldTime()",
                     '"Scoped Zone timeout is "', '"Fragment 0 to house prefix 239.0.0.0/8"']:
            self.assertEqual([], self.found(line, "config/A.cpp"), line)

    def test_only_the_fixed_names_of_holdtimes_stay(self):
        for name in ["maxHoldTime", "holdTimeOf", "HoldTime", "HoldTime150", "rpHoldTime", "CrpHoldTimes"]:
            self.assertEqual(1, len(self.found(name, "config/A.cpp")), name)

    def test_each_allowance_has_a_reason(self):
        for pattern, paths, reason in words.ALLOWED:
            self.assertTrue(re.compile(pattern) and paths and reason)

    def test_of_a_fenced_block_of_a_document_only_comments_count(self):
        text = "told\n```{}\nwhat is told {} told\nwhat is told\n```\ntold"
        inside, outside = [1, 3, 6], [1, 6]
        for language, mark, found in [("text", "#", outside), ("", "#", outside), ("sh", "//", outside),
                                      ("sh", "#", inside), ("toml", "#", inside), ("cpp", "//", inside),
                                      ("zet", "#", inside), ("cmake", "#", inside)]:
            with self.subTest(language=language, mark=mark):
                block = text.format(language, mark)
                self.assertEqual(found, [line for line, _ in words.check("docs/a.md", block)])
        page = text.format("sh", "#")
        self.assertEqual([1, 3, 4, 6], [line for line, _ in words.check("docs/a.txt", page)])

    def test_the_name_of_a_file_counts(self):
        self.assertEqual([(0, '"refusal": use packets: drop, drop reason; values: reject')],
                         list(words.check("tests/support/Refusal.h", "")))


if __name__ == "__main__":
    unittest.main()

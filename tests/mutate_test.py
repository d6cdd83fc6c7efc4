"""What scripts/mutate.py changes, and what it says of it; the building and testing is played.

    mutate_test.py SCRIPTS-FOLDER
"""

import contextlib
import io
import os
import pathlib
import sys
import tempfile
import unittest

sys.path.insert(0, sys.argv.pop(1))
import mutate  # noqa: E402


class Played(mutate.Tests):
    """Tests that notice a text, hang at another, and call a third no change."""

    def notice(self, relative):
        text = (self.tree / relative).read_text()
        if "true" in text:
            return mutate.NOTICED
        if ">" in text:
            return mutate.HUNG
        return None if "!=" in text else mutate.SURVIVED

    def know_all(self, relative):
        pass


def said(function, *arguments):
    text = io.StringIO()
    with contextlib.redirect_stdout(text):
        function(*arguments)
    return text.getvalue()


class Changes(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.tree = pathlib.Path(folder.name)
        (self.tree / "devserver").mkdir()
        self.write("A.cpp", "return false;\n")
        self.tests = Played(self.tree)

    def write(self, name, text):
        (self.tree / "devserver" / name).write_text(text)

    def places(self):
        return {source.name for source, *_ in mutate.candidates(self.tree, "devserver")}

    def test_sources_and_headers_are_changed_and_tests_are_not(self):
        for name in ("Limits.h", "LimitsTest.h", "LimitsTest.cpp", "main.cpp", "page.css"):
            self.write(name, "constexpr int kMost = 256;\n")
        self.assertEqual(self.places(), {"A.cpp", "Limits.h"})

    def test_a_change_by_hand_says_what_became_of_it(self):
        for old, new, verdict in (("false", "true", "noticed"), ("false", "a > b", "too slow"),
                                  ("false", "b", "SURVIVED"),
                                  ("false", "a != b", "does not compile, or changes nothing"),
                                  ("absent", "b", '"absent" stands 0 times')):
            text = said(mutate.by_hand, self.tests, "devserver/A.cpp", old, new)
            self.assertTrue(text.startswith(verdict), text)
            self.assertEqual((self.tree / "devserver/A.cpp").read_text(), "return false;\n")

    def test_the_score_tells_the_slow_ones_apart(self):
        self.write("B.h", "if (a < b)\n")  # one bound moved and one condition turned round
        text = said(mutate.sample, self.tests, "devserver", "10", "1")
        self.assertIn("1 of 3 changes were noticed (33 %), 0 of them by", text)
        self.write("B.h", "const bool isLess = a >= b;\n")
        text = said(mutate.sample, self.tests, "devserver", "10", "1")
        self.assertIn("2 of 2 changes were noticed (100 %), 1 of them by", text)

    def test_the_same_seed_makes_the_same_changes(self):
        self.write("B.h", "int a = 1, b = 2, c = 3, d = 4;\n")
        texts = {said(mutate.sample, self.tests, "devserver", "3", "7") for _ in range(3)}
        self.assertEqual(len(texts), 1)


class Verdicts(unittest.TestCase):
    def verdict(self, status, ends):
        """With a ctest that ends so and tells of tests that ended so."""
        with tempfile.TemporaryDirectory() as folder:
            program = pathlib.Path(folder) / "ctest"
            lines = "".join(f"\\t{7 + at} - A.B ({end})\\n" for at, end in enumerate(ends))
            program.write_text(f"#!/bin/sh\nprintf '{lines}'\nexit {status}\n")
            program.chmod(0o700)
            path = os.environ["PATH"]
            os.environ["PATH"] = f"{folder}:{path}"
            try:
                return mutate.Tests(pathlib.Path(folder)).fail({"A"})
            finally:
                os.environ["PATH"] = path

    def test_a_time_out_is_no_failure(self):
        self.assertEqual(self.verdict(0, []), mutate.SURVIVED)
        self.assertEqual(self.verdict(0, ["Skipped"]), mutate.SURVIVED)
        self.assertEqual(self.verdict(8, ["Failed"]), mutate.NOTICED)
        self.assertEqual(self.verdict(8, ["SEGFAULT"]), mutate.NOTICED)
        self.assertEqual(self.verdict(8, ["Timeout"]), mutate.HUNG)
        self.assertEqual(self.verdict(8, ["Timeout", "Skipped"]), mutate.HUNG)
        self.assertEqual(self.verdict(8, ["Timeout", "Failed"]), mutate.NOTICED)


if __name__ == "__main__":
    unittest.main()

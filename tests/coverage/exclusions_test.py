#!/usr/bin/env python3
"""Tries what scripts/coverage.py does with its list of exclusions, and that the
list fits the sources as they are.

    exclusions_test.py
"""

import importlib.util
import pathlib
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]

sys.dont_write_bytecode = True
description = importlib.util.spec_from_file_location("coverage", ROOT / "scripts/coverage.py")
coverage = importlib.util.module_from_spec(description)
description.loader.exec_module(coverage)

SOURCE = """int f(bool a) {
  if (a) {
    return 1;
  }
  delete a;
  return 0;
}
"""

ENTRY = """# A comment.

src/f.cpp: 1 lines, 1 branches
    if (a) {
    return 1;
Never true.
"""


def line(number, count, *branches):
    return {
        "line_number": number,
        "count": count,
        "branches": [{"count": branch} for branch in branches],
    }


class Exclusions(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.addCleanup(setattr, coverage, "ROOT", coverage.ROOT)
        coverage.ROOT = pathlib.Path(directory.name)
        (coverage.ROOT / "src").mkdir()
        (coverage.ROOT / "src/f.cpp").write_text(SOURCE)
        self.lines = [line(1, 5), line(2, 5, 0, 5), line(3, 0), line(5, 5, 5, 0), line(6, 5)]

    def exclude(self, text):
        """What is wrong, and then what is missed: lines and branches."""
        path = coverage.ROOT / "excluded.txt"
        path.write_text(text)
        entries = list(coverage.read_exclusions(path))
        wrong = coverage.exclude({"src/f.cpp": {"lines": self.lines}}, entries)
        counted = [entry for entry in self.lines if not entry.get("gcovr/noncode")]
        lines = sum(entry["count"] == 0 for entry in counted)
        branches = sum(branch["count"] == 0 for entry in counted for branch in entry["branches"])
        return wrong, lines, branches

    def test_without_entries_everything_missed_counts(self):
        self.assertEqual(self.exclude("# Nothing.\n"), ([], 1, 2))

    def test_an_entry_takes_its_lines_and_branches_out(self):
        self.assertEqual(self.exclude(ENTRY), ([], 0, 1))

    def test_an_entry_for_other_numbers_is_wrong(self):
        for amount in ("2 lines, 1 branches", "1 lines, 0 branches", "0 lines, 2 branches"):
            with self.subTest(amount):
                wrong, _, _ = self.exclude(ENTRY.replace("1 lines, 1 branches", amount))
                self.assertEqual(len(wrong), 1)

    def test_an_entry_for_what_is_run_is_wrong(self):
        self.lines = [line(1, 5), line(2, 5, 2, 3), line(3, 2), line(6, 3)]
        wrong, _, _ = self.exclude(ENTRY)
        self.assertEqual(len(wrong), 1)

    def test_at_most_allows_fewer_and_no_more(self):
        self.assertEqual(self.exclude(ENTRY.replace("1 lines", "at most 9 lines")), ([], 0, 1))
        self.setUp()
        wrong, _, _ = self.exclude(ENTRY.replace("1 lines", "at most 0 lines"))
        self.assertEqual(len(wrong), 1)

    def test_an_entry_for_lines_that_are_not_there_once_is_wrong(self):
        for text in ("return 2;", "}"):
            with self.subTest(text):
                entry = f"src/f.cpp: 0 lines, 0 branches\n    {text}\nSo it is.\n"
                wrong, _, _ = self.exclude(entry)
                self.assertEqual(len(wrong), 1)
        wrong, _, _ = self.exclude(ENTRY.replace("f.cpp", "g.cpp"))
        self.assertEqual(len(wrong), 1)

    def test_a_pattern_takes_branches_out_wherever_it_fits(self):
        text = "everywhere:\n    delete \\w+;\nNever null.\n"
        self.assertEqual(self.exclude(text), ([], 1, 1))
        wrong, _, _ = self.exclude(text)  # there are none any more
        self.assertEqual(len(wrong), 1)

    def test_an_entry_without_numbers_lines_or_reason_is_refused(self):
        for text in (
            "src/f.cpp\n    if (a) {\nNever true.\n",
            "src/f.cpp: 1 lines\n    if (a) {\nNever true.\n",
            "src/f.cpp: 1 lines, 1 branches\nNever true.\n",
            "src/f.cpp: 1 lines, 1 branches\n    if (a) {\n",
            "everywhere:\n    if (a) {\n",
        ):
            with self.subTest(text), self.assertRaises(coverage.Trouble):
                self.exclude(text)


class Table(unittest.TestCase):
    def test_says_100_of_a_whole_only(self):
        self.assertEqual(coverage.percent(9999, 10000), "99.9 %")
        self.assertEqual(coverage.percent(10000, 10000), "100.0 %")

    def test_one_branch_too_few_misses_the_share(self):
        count = coverage.Count()
        for _ in range(19):
            count.add(line(1, 1, 1, 1))
        self.assertTrue(count.reaches(100, 100))
        count.add(line(1, 1, 0, 1))
        self.assertFalse(count.reaches(100, 100))
        self.assertTrue(count.reaches(100, 95))
        count.add(line(1, 0))
        self.assertFalse(count.reaches(100, 95))


class List(unittest.TestCase):
    def test_quotes_the_sources_as_they_are(self):
        for where, file, _, _, _, text in coverage.read_exclusions(coverage.EXCLUDED):
            if file is not None:
                with self.subTest(where):
                    coverage.find(where, file, text)


if __name__ == "__main__":
    unittest.main()

"""docs/dm-features.md names tests that exist, and at least one for each feature that is done."""

import glob
import os
import re
import unittest

TESTS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
TABLE = os.path.join(TESTS, "..", "docs", "dm-features.md")


def _read(file):
    with open(file, encoding="utf-8") as stream:
        return stream.read()


def unit_tests():
    names = set()
    for file in glob.glob(os.path.join(TESTS, "unit", "*", "*_test.cpp")):
        names.update(f"{suite}.{test}" for suite, test in
                     re.findall(r"^TEST(?:_F|_P)?\((\w+),\s*(\w+)\)", _read(file), re.MULTILINE))
    return names


def python_tests():
    names = set()
    for file in glob.glob(os.path.join(TESTS, "integration", "*", "*_test.py")):
        module = os.path.basename(file)[:-len(".py")]
        names.update(f"{module}.{test}"
                     for test in re.findall(r"^    def (test_\w+)\(", _read(file), re.MULTILINE))
    return names


def features():
    """(feature, done, tests) of each row."""
    for line in _read(TABLE).splitlines():
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if line.startswith("|") and len(cells) > 3 and cells[-2] in ("yes", "no"):
            yield cells[0], cells[-2] == "yes", re.findall(r"`([^`]+)`", cells[-1])


class FeatureTableTest(unittest.TestCase):
    def test_every_row_is_read(self):
        rows = [line for line in _read(TABLE).splitlines()
                if line.startswith("|") and not re.match(r"\|[-: |]+\||\| (feature|status|short) ",
                                                         line)]
        documents = 10
        self.assertEqual(len(list(features())), len(rows) - documents)

    def test_what_is_done_is_tested(self):
        for feature, is_done, tests in features():
            self.assertTrue(tests or not is_done, f"{feature}: no test")

    def test_every_test_that_is_named_exists(self):
        known = unit_tests() | python_tests()
        self.assertGreater(len(known), 500)
        for feature, _, tests in features():
            for test in tests:
                self.assertTrue(test in known, f"{feature}: {test} is in no file")


if __name__ == "__main__":
    unittest.main()

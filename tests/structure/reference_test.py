"""What doxygen does not miss in the headers of platform/: the page of a file, and values of enumerations."""

import pathlib
import re
import unittest

PLATFORM = pathlib.Path(__file__).resolve().parents[2] / "platform"


class ReferenceTest(unittest.TestCase):
    def test_each_header_has_a_page_without_which_its_functions_and_macros_have_none(self):
        headers = list(PLATFORM.rglob("*.h"))
        self.assertGreater(len(headers), 5)
        for header in headers:
            self.assertRegex(header.read_text(encoding="utf-8"), r"\A/// @file\n/// \w", header)

    def test_each_value_of_an_enumeration_has_a_text(self):
        values = []
        for header in PLATFORM.rglob("*.h"):
            for body in re.findall(r"\benum\b[^;{}]*\{([^}]*)\}", header.read_text(encoding="utf-8")):
                values += [(header.name, line) for line in re.findall(r"^ *\w+(?: =|,|$).*", body, re.MULTILINE)]
        self.assertGreater(len(values), 20)
        self.assertEqual([value for value in values if not re.search(r"///< \w", value[1])], [])


if __name__ == "__main__":
    unittest.main()

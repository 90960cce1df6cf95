"""Every include of the product's sources is one that the table in docs/architecture.md allows."""

import pathlib
import re
import unittest

SOURCES = pathlib.Path(__file__).resolve().parents[2]
FLOORS = ("platform", "support", "hostplatform", "commandline", "plugin", "client", "tools",
          "kit")
HEADING = "## Who may include whom"


def allowed_folders():
    """The table: folder -> folders whose headers its files may include, beside its own."""
    section = (SOURCES / "docs/architecture.md").read_text(encoding="utf-8").split(HEADING)[1]
    rows = re.findall(r"^\| `([^`]+)/` \|(.*)\|$", section.split("\n## ")[0], re.MULTILINE)
    return {folder: set(re.findall(r"`([^`]+)/`", names)) for folder, names in rows}


def room(path, rooms):
    """The innermost folder of the table that holds a file; none where no row is for it."""
    names = [parent.relative_to(SOURCES).as_posix() for parent in path.parents if parent != SOURCES
             and SOURCES in parent.parents]
    return next((name for name in names if name in rooms), None)


class IncludeTableTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.allowed = allowed_folders()
        self.files = [path for floor in FLOORS for path in sorted((SOURCES / floor).rglob("*"))
                      if path.suffix in (".h", ".cpp", ".c")]
        self.headers = {}
        for path in self.files:
            self.headers.setdefault(path.name, []).append(path)

    def included(self, path, name):
        """The file that the compiler finds: beside the including one, else by its path's end."""
        beside = path.parent / name
        if beside in self.files:
            return beside
        found = [header for header in self.headers.get(pathlib.Path(name).name, [])
                 if header.as_posix().endswith("/" + name)]
        self.assertEqual(len(found), 1, f"{path}: {name} is not the name of exactly one header")
        return found[0]

    def test_each_folder_with_sources_has_a_row_of_its_own(self):
        folders = {path.parent.relative_to(SOURCES).as_posix() for path in self.files}
        without = {folder for folder in folders if not folder.startswith("platform/")}
        self.assertEqual(without - set(self.allowed), set())

    def arrows(self):
        """Yields for each include that leaves its folder: file, folder, folder that it leads to."""
        for path in self.files:
            here = room(path, self.allowed)
            for name in re.findall(r'^ *# *include "([^"]+)"', path.read_text(), re.MULTILINE):
                there = room(self.included(path, name), self.allowed)
                if there != here:
                    yield path.relative_to(SOURCES).as_posix(), here, there

    def test_no_file_includes_what_its_row_does_not_name(self):
        refused = [(path, there) for path, here, there in self.arrows()
                   if there not in self.allowed[here]]
        self.assertEqual(refused, [])

    def test_no_row_names_what_its_files_do_not_include(self):
        used = {(here, there) for _, here, there in self.arrows()}
        named = {(here, there) for here, names in self.allowed.items() for there in names}
        self.assertEqual(named - used, set())

    def test_the_rows_make_no_circle(self):
        left = {folder: set(uses) for folder, uses in self.allowed.items()}
        while free := {folder for folder, uses in left.items() if not uses & set(left)}:
            left = {folder: uses for folder, uses in left.items() if folder not in free}
        self.assertEqual(sorted(left), [])


if __name__ == "__main__":
    unittest.main()

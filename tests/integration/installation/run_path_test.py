"""Where the built programs and libraries look for the libraries that they are linked with."""

import os
import re
import subprocess
import unittest

BUILD = os.environ["BUILD"]


def linked_files():
    """Every program and shared library beneath the build folder."""
    for folder, _, names in os.walk(BUILD):
        for name in names:
            path = os.path.join(folder, name)
            if os.path.islink(path) or not os.path.isfile(path):
                continue
            with open(path, "rb") as file:
                head = file.read(18)
            # e_type follows the 16 bytes of e_ident: 2 is a program, 3 a shared object.
            if head[:4] == b"\x7fELF" and head[16] in (2, 3):
                yield path


def run_path(path):
    """The elements of the file's RPATH and RUNPATH."""
    dynamic = subprocess.run(["readelf", "-dW", path], capture_output=True, text=True, check=True,
                             env={**os.environ, "LC_ALL": "C"}).stdout
    return [element
            for value in re.findall(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]", dynamic)
            for element in value.split(":")]


class RunPathTest(unittest.TestCase):
    def test_no_built_file_looks_anywhere_but_beside_itself_and_in_the_lib_folder(self):
        with_run_path = set()
        for path in linked_files():
            for element in run_path(path):
                with_run_path.add(os.path.basename(path))
                # An empty or relative element would be the folder that somebody happens to be in.
                self.assertIn(element, ("$ORIGIN", "$ORIGIN/../lib"), path)
        self.assertLessEqual({"dmclient", "napictl", "libkubdmnapipluginlib.so.1"}, with_run_path)


if __name__ == "__main__":
    unittest.main()

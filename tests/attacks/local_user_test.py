"""What another user of the same device may try, and what must hold."""

import os
import subprocess
import tempfile
import unittest

from handset import DMCLIENT, NAPICTL, Handset


class LibraryInTheCurrentFolderTest(unittest.TestCase):
    """Lays files under the names of the programs' libraries into a folder and waits for somebody to
    run a program there."""

    def test_no_program_loads_a_library_from_the_folder_that_it_is_run_in(self):
        """Every library comes from the system or from beside the program."""
        handset = Handset()
        self.addCleanup(handset.close)
        for program in (DMCLIENT, NAPICTL):
            with self.subTest(program=program), tempfile.TemporaryDirectory() as folder:
                for library in self.libraries_of(program):
                    # The loader ends a program at a file that is not a library.
                    with open(os.path.join(folder, library), "w", encoding="ascii") as file:
                        file.write("planted")
                result = subprocess.run([program, "list" if program == NAPICTL else "tree"],
                                        env=handset.environment(), cwd=folder,
                                        capture_output=True, text=True)
                self.assertEqual(result.returncode, 0, result.stderr)

    @staticmethod
    def libraries_of(program):
        """The names of everything that the loader loads for the program, the plug-in's part too."""
        plugin = os.environ["PLUGIN"]
        lines = subprocess.run(["ldd", program, plugin], check=True, capture_output=True,
                               text=True).stdout.splitlines()
        return {line.split("=>")[0].strip() for line in lines if "=>" in line} | {
            os.path.basename(plugin)}


if __name__ == "__main__":
    unittest.main()

"""The build for a handset, as README.md has it."""

import json
import os
import re
import shlex
import subprocess
import tempfile
import unittest

SOURCE = os.environ["SOURCE"]


def documented_commands():
    """The commands below the sentence about handsets."""
    with open(os.path.join(SOURCE, "README.md"), encoding="utf-8") as file:
        section = file.read().split("To build for a handset")[1]
    return re.search(r"^```\n(.*?)^```$", section, re.MULTILINE | re.DOTALL)[1].splitlines()


class HandsetBuildTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.build = folder.name
        configure = documented_commands()[0]
        self.assertIn(" -B build/target ", configure)
        words = [word.replace("=DIR", f"={SOURCE}/platform")
                 for word in shlex.split(configure.replace("build/target", self.build))]
        environment = {name: value for name, value in os.environ.items()
                       if name not in ("CMAKE_BUILD_TYPE", "CXXFLAGS", "CFLAGS")}
        subprocess.run(words, cwd=SOURCE, env=environment, check=True, capture_output=True)
        with open(os.path.join(self.build, "compile_commands.json"), encoding="utf-8") as file:
            self.compiled = json.load(file)
        self.assertTrue(self.compiled)

    def test_only_the_plug_in_is_built_and_it_is_optimised_with_debug_information(self):
        for one in self.compiled:
            self.assertTrue(one["file"].startswith(os.path.join(SOURCE, "plugin", "")), one["file"])
            options = shlex.split(one["command"])
            self.assertIn("-O2", options)
            self.assertIn("-g", options)

    def test_a_warning_of_another_compiler_does_not_stop_it(self):
        for one in self.compiled:
            self.assertNotIn("-Werror", one["command"])
        with open(os.path.join(self.build, "build.ninja"), encoding="utf-8") as file:
            self.assertNotIn("--fatal-warnings", file.read())


if __name__ == "__main__":
    unittest.main()

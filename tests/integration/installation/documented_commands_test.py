"""The commands that README.md shows, as somebody types them who has just built."""

import json
import os
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.environ["SOURCE"]
PROGRAMS = os.path.join(os.environ["BUILD"], "bin")
SCENARIO = os.path.join(SOURCE, "tests", "dmserver", "scenarios", "profiles.json")
SERVER = os.path.join(SOURCE, "tests", "dmserver", "dmserver.py")


def read(*path):
    with open(os.path.join(SOURCE, *path), encoding="utf-8") as file:
        return file.read()


def by_hand():
    """The three blocks of commands below "By hand": packages, first steps, and a session."""
    section = read("README.md").split("## By hand\n")[1].split("\n## ")[0]
    return re.findall(r"^```\n(.*?)^```$", section, re.MULTILINE | re.DOTALL)


class DocumentedCommandsTest(unittest.TestCase):
    def setUp(self):
        home = tempfile.TemporaryDirectory()
        self.addCleanup(home.cleanup)
        self.home = home.name
        self.environment = {name: value for name, value in os.environ.items()
                            if not name.startswith(("KUB_", "XDG_"))}
        self.environment.update(HOME=self.home, PATH=f"{PROGRAMS}:{os.environ['PATH']}")

    def type(self, commands, standard_input=""):
        """The commands, one after the other in one shell that ends at the first that fails."""
        result = subprocess.run(["bash", "-ec", commands], input=standard_input, cwd=SOURCE,
                                env=self.environment, capture_output=True, text=True, timeout=120)
        self.assertEqual(result.returncode, 0,
                         f"{commands}\n{result.stdout[-1000:]}{result.stderr}")
        return result.stdout

    def start_server(self, *settings):
        """The address of a scripted server, and its process."""
        options = [word for setting in settings for word in ("--set", setting)]
        server = subprocess.Popen([sys.executable, "-B", SERVER, "--scenario", SCENARIO, *options],
                                  stdout=subprocess.PIPE, text=True)
        self.addCleanup(server.stdout.close)
        self.addCleanup(server.wait)
        self.addCleanup(server.kill)
        return server.stdout.readline().split()[-1]

    def without_build(self, commands):
        """The commands after the one that builds: this test has a build of its own."""
        build, rest = commands.split("\n", 1)
        preset = re.fullmatch(r"cmake --preset (\S+) && cmake --build --preset (\S+)", build)
        self.assertTrue(preset and preset[1] == preset[2], build)
        presets = json.loads(read("CMakePresets.json"))["configurePresets"]
        chosen = next(one for one in presets if one["name"] == preset[1])
        self.assertEqual(chosen["cacheVariables"]["BUILD_TESTING"], "OFF",
                         "the packages have nothing for tests")
        put_first, rest = rest.split("\n", 1)
        self.assertEqual(put_first, f"export PATH=$PWD/build/{preset[1]}/bin:$PATH")
        return rest

    def test_readme_names_the_packages_that_the_build_takes(self):
        packages, _, _ = by_hand()
        named = packages.replace("\\\n", " ").split("--no-install-recommends")[1].split()
        needed = self.type('source .ci/install-packages; echo "${KUB_BUILD_PACKAGES[@]}"').split()
        self.assertEqual(sorted(named), sorted(needed))

    def test_readmes_first_steps_work_one_after_the_other(self):
        _, first_steps, _ = by_hand()
        output = self.type(self.without_build(first_steps))
        self.assertIn("Vodafone", output)
        self.assertTrue(output.endswith("</SyncML>\n"), output[-200:])
        self.assertEqual(set(re.findall(r"<Cmd>Get</Cmd>.*?<Data>(\d+)</Data>", output, re.DOTALL)),
                         {"200"})

    def test_readmes_session_works_after_its_first_steps(self):
        _, first_steps, session = by_hand()
        self.type(self.without_build(first_steps))
        url = self.start_server("client_auth=md5", "client_name=me")
        self.assertIn("https://dm.example/", session)
        # The variable of the first steps is still set in the shell of somebody who types on.
        self.environment["KUB_STATE_DIR"] = os.path.join(self.home, "handset")
        output = self.type(session.replace("https://dm.example/", url), "OhBehave\n")
        self.assertRegex(output, r"Session completed \(\d+ messages, 16 commands, 0 refused, 1 different\)\n\Z")

    def test_no_document_or_demo_has_a_secret_among_the_words_of_a_command(self):
        for file in ("README.md", "demo", "docs/man/dmclient.1", "docs/man/dmclient-session.7"):
            for secret in re.findall(r"(?:-|\\-)secret=(\S+)", read(file)):
                self.assertIn(secret, ("-", "\\-"), file)


if __name__ == "__main__":
    unittest.main()

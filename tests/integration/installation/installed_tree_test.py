"""What "cmake --install" lays down works without the folder that it was built in."""

import glob
import os
import re
import shutil
import subprocess
import tempfile
import unittest

BUILD = os.environ["BUILD"]
CMAKE = os.environ["CMAKE"]
SOURCE = os.environ["SOURCE"]


def install_patterns(file):
    """What debhelper takes into a package, as it is called in a tree whose libraries are all in lib."""
    with open(file, encoding="utf-8") as lines:
        for line in lines:
            words = line.partition("#")[0].split()
            if words:
                yield re.sub(r"^usr/lib/\*/(kub-dm/)?", "usr/lib/", words[0])


class InstalledTreeTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.prefix = os.path.join(folder.name, "usr")
        subprocess.run([CMAKE, "--install", BUILD, "--prefix", self.prefix],
                       check=True, capture_output=True)

    def run_installed(self, program, *arguments):
        return subprocess.run([os.path.join(self.prefix, "bin", program), *arguments],
                              env={**os.environ, "KUB_STATE_DIR": os.path.join(self.folder, "state")},
                              cwd=self.folder, capture_output=True, text=True)

    def assert_installed_tree_works(self):
        made = self.run_installed("napictl", "create", "Office", "gprs.address=internet.example")
        self.assertEqual(made.returncode, 0, made.stderr)
        tree = self.run_installed("dmclient", "tree")
        self.assertEqual(tree.returncode, 0, tree.stderr)
        self.assertIn("internet.example", tree.stdout)
        session = self.run_installed("dmclient", "session", "http://127.0.0.1:1/")
        self.assertEqual(session.returncode, 4, session.stderr) # refused, by nobody
        with open(os.path.join(self.folder, "record.jsonl"), "w", encoding="utf-8") as record:
            record.write('{"t":0,"event":"run","format":1}\n')
        report = self.run_installed("dmclient", "report", "record.jsonl", "-o", "-")
        self.assertEqual(report.returncode, 0, report.stderr)

    def loaded_from(self, program):
        """The project's libraries that the loader finds for an installed program."""
        file = os.path.join(self.prefix, program)
        lines = subprocess.run(["ldd", file], check=True, capture_output=True, text=True).stdout
        ours = ("libdmnative", "libnapi", "libkubappbase", "libaplog")
        return [os.path.realpath(line.split("=>")[1].split("(")[0].strip())
                for line in lines.splitlines() if line.strip().startswith(ours)]

    def test_programs_find_the_installed_plug_in_and_libraries(self):
        self.assert_installed_tree_works()
        for file in ("bin/dmclient", "bin/napictl", "lib/libkubdmnapipluginlib.so.1"):
            found = self.loaded_from(file)
            self.assertTrue(found, file)
            for library in found:
                self.assertTrue(library.startswith(os.path.realpath(self.prefix)), library)

    def test_manuals_and_completions_are_where_man_and_the_shells_look(self):
        for file in ("man/man1/dmclient.1", "man/man1/napictl.1", "man/man7/dmclient-session.7",
                     "man/man7/dmclient-surprises.7",
                     *(file.format(program) for program in ("dmclient", "napictl", "dmclientd", "dm-plugin-check")
                       for file in ("bash-completion/completions/{}", "zsh/vendor-completions/_{}",
                                    "fish/vendor_completions.d/{}.fish"))):
            self.assertTrue(os.path.isfile(os.path.join(self.prefix, "share", file)), file)

    def test_the_service_is_where_systemd_and_the_bus_look(self):
        for file in ("bin/dmclientd", "lib/systemd/system/dmclientd.service",
                     "lib/systemd/user/dmclient-agent.service",
                     "share/dbus-1/system.d/org.kub.DmClient1.conf", "share/man/man8/dmclientd.8"):
            self.assertTrue(os.path.isfile(os.path.join(self.prefix, file)), file)
        version = self.run_installed("dmclientd", "--version")
        self.assertEqual(version.returncode, 0, version.stderr)

    def test_each_file_is_in_exactly_one_debian_package(self):
        places = {} # of installed files; the packages that take them
        for folder, _, names in os.walk(self.prefix):
            for name in names:
                places[os.path.relpath(os.path.join(folder, name), self.folder)] = []
        for file in glob.glob(os.path.join(SOURCE, "packaging", "debian", "*.install")):
            for pattern in install_patterns(file):
                # One that begins with usr is for what was installed, another for the sources.
                found = glob.glob(pattern, root_dir=self.folder) or glob.glob(pattern, root_dir=SOURCE)
                self.assertTrue(found, f"{file}: nothing is {pattern}")
                for place, packages in places.items():
                    if any(place == one or place.startswith(one + "/") for one in found):
                        packages.append(os.path.basename(file))
        self.assertGreater(len(places), 20)
        self.assertEqual({place: packages for place, packages in places.items() if len(packages) != 1}, {})

    def test_the_tree_may_be_moved(self):
        moved = os.path.join(self.folder, "elsewhere")
        shutil.move(self.prefix, moved)
        self.prefix = moved
        self.assert_installed_tree_works()


if __name__ == "__main__":
    unittest.main()

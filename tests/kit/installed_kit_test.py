"""What "cmake --install" lays down for authors of plug-ins: they build against it, from any place."""

import json
import os
import shutil
import subprocess
import tempfile
import unittest

BUILD = os.environ["BUILD"]
CMAKE = os.environ["CMAKE"]


def run(*words, **options):
    result = subprocess.run(words, capture_output=True, text=True, **options)
    if result.returncode != 0:
        raise AssertionError(f"{words}: {result.returncode}\n{result.stdout[-2000:]}{result.stderr}")
    return result.stdout


class InstalledKitTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = folder.name
        run(CMAKE, "--install", BUILD, "--prefix", os.path.join(cls.folder, "first"))
        # Whatever remembers the place that it was installed to does not work any more.
        cls.prefix = os.path.join(cls.folder, "prefix")
        shutil.move(os.path.join(cls.folder, "first"), cls.prefix)
        cls.source = os.path.join(cls.folder, "source")
        shutil.copytree(os.path.join(cls.prefix, "share/kub-dm/example"), cls.source)

    def assert_answers(self, library):
        """A client has the library's nodes."""
        plugins = tempfile.mkdtemp(dir=self.folder)
        with open(os.path.join(self.source, "vendor-example.json"), encoding="utf-8") as file:
            description = json.load(file)
        with open(os.path.join(plugins, "example.json"), "w", encoding="utf-8") as file:
            json.dump(description | {"library": library}, file)
        environment = {**os.environ, "KUB_STATE_DIR": tempfile.mkdtemp(dir=self.folder)}
        client = (os.path.join(self.prefix, "bin/dmclient"), "--plugins", plugins)
        run(*client, "add", "./Vendor/Example/Settings/Colour", "green", env=environment)
        self.assertIn("green", run(*client, "tree", "./Vendor", env=environment))

    def test_the_example_is_built_with_find_package(self):
        build = os.path.join(self.folder, "build")
        run(CMAKE, "-S", self.source, "-B", build, "-G", "Ninja",
            f"-DCMAKE_PREFIX_PATH={self.prefix}", "-DCMAKE_BUILD_TYPE=Debug")
        run(CMAKE, "--build", build)
        self.assert_answers(os.path.join(build, "libkubvendorexample.so.1"))

    def test_the_example_is_built_with_pkg_config(self):
        environment = {**os.environ,
                       "PKG_CONFIG_PATH": os.path.join(self.prefix, "lib/pkgconfig")}
        library = os.path.join(self.folder, "example.so")
        run("sh", "-ec", "g++ -std=c++20 -shared -fPIC -Wl,--no-undefined -o \"$0\" "
            "vendor_example.cpp $(pkg-config --cflags --libs kub-dm-settings)",
            library, cwd=self.source, env=environment)
        self.assert_answers(library)

    def test_another_major_version_is_refused(self):
        project = os.path.join(self.folder, "newer")
        os.mkdir(project)
        with open(os.path.join(project, "CMakeLists.txt"), "w", encoding="utf-8") as file:
            file.write("cmake_minimum_required(VERSION 3.25)\nproject(newer LANGUAGES NONE)\n"
                       "find_package(KubDmEngine 2 REQUIRED)\n")
        refused = subprocess.run([CMAKE, "-S", project, "-B", os.path.join(project, "build"), "-G", "Ninja",
                                  f"-DCMAKE_PREFIX_PATH={self.prefix}"],
                                 capture_output=True, text=True)
        self.assertNotEqual(refused.returncode, 0)
        self.assertIn("KubDmEngineConfig.cmake, version: 1.0.0", refused.stderr)

    def test_headers_see_nothing_but_each_other(self):
        headers = os.path.join(self.prefix, "include/kub-dm")
        run("g++", "-std=c++20", "-fsyntax-only", "-I", headers, "-x", "c++", "-",
            input='#include "dmnative/dmt_plugin_api.h"\n#include "aplog.h"\n')


if __name__ == "__main__":
    unittest.main()

"""The files that make dmclientd a service of the system."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree as xml

from bus import POLICY, SERVICE, SOURCES

SYSUSERS = os.path.realpath(os.path.join(SOURCES, "packaging", "sysusers", "kub-dm.conf"))
UNIT = os.path.join(SOURCES, "packaging", "systemd", "dmclientd.service")


class UnitTest(unittest.TestCase):
    @unittest.skipUnless(shutil.which("systemd-analyze"), "systemd-analyze is not installed")
    def test_systemd_rates_its_exposure_as_ok(self):
        rated = subprocess.run(["systemd-analyze", "security", "--offline=true", "--no-pager", UNIT],
                               capture_output=True, text=True, check=False)
        exposure = re.search(r"Overall exposure level for \S+: ([\d.]+) (\w+)", rated.stdout)
        self.assertTrue(exposure, rated.stdout + rated.stderr)
        self.assertEqual(exposure[2], "OK", rated.stdout)
        self.assertLess(float(exposure[1]), 2.5)

    def test_systemd_hears_from_it_and_makes_its_state_directory(self):
        with open(UNIT, encoding="ascii") as file:
            settings = dict(line.split("=", 1) for line in file.read().splitlines()
                            if re.match(r"\w+=", line))
        self.assertEqual(settings["Type"], "notify")
        self.assertGreater(int(settings["WatchdogSec"]), 0)
        self.assertEqual(settings["StateDirectoryMode"], "0700")
        self.assertIn("--state=%S/" + settings["StateDirectory"], settings["ExecStart"].split())

    def test_a_device_has_its_settings_in_a_file_that_need_not_be_there(self):
        with open(UNIT, encoding="ascii") as file:
            lines = file.read().splitlines()
        self.assertIn("EnvironmentFile=-/etc/default/dmclientd", lines)
        self.assertIn("ExecStart=dmclientd --state=%S/kub-dm $DMCLIENTD_OPTIONS", lines)

    @unittest.skipUnless(shutil.which("systemd-sysusers"), "systemd-sysusers is not installed")
    def test_the_group_that_the_policy_names_is_made(self):
        groups = {policy.get("group") for policy in xml.parse(POLICY).getroot()} - {None}
        with tempfile.TemporaryDirectory() as root:
            os.mkdir(os.path.join(root, "etc"))
            made = subprocess.run(["systemd-sysusers", f"--root={root}", SYSUSERS],
                                  capture_output=True, text=True, check=False)
            self.assertEqual(made.returncode, 0, made.stderr)
            with open(os.path.join(root, "etc", "group"), encoding="ascii") as file:
                self.assertEqual({line.split(":")[0] for line in file}, groups)

    def test_nobody_but_root_may_be_the_service(self):
        root = xml.parse(POLICY).getroot()
        owners = [policy.attrib for policy in root for rule in policy
                  if rule.tag == "allow" and rule.get("own") == SERVICE]
        self.assertEqual(owners, [{"user": "root"}])


if __name__ == "__main__":
    unittest.main()

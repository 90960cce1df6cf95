#!/usr/bin/python3
"""A password that is easy to recognise is written in every way there is, and then looked for.

It may be where a server or a person asks for its value, and in the profile store. It may not be in
any other output, in a message, in the plug-in's log or in any other file of the state directory.
"""
import functools
import glob
import json
import os
import unittest

import stored_profiles
from commands import add, get, package_of, replace
from handset import CONN, PROXY, HandsetTest

SECRET = "Kub-s3cret-to-be-found"
PASSWORD_LEAF = CONN + "/Office/Auth/PAP/AuthPw"


class PasswordTest(HandsetTest):
    PROFILES = stored_profiles.PROFILES

    def silent(self, result):
        """A command that may not say the password."""
        self.assertNotIn(SECRET, result.stdout + result.stderr, result.args)
        return result

    def tell(self, result):
        """A command that has to say it, on standard output alone."""
        self.assertIn(SECRET, result.stdout, result.args)
        self.assertNotIn(SECRET, result.stderr, result.args)

    def look_through_files(self):
        for path in glob.glob(self.handset.path("**"), recursive=True):
            if os.path.isfile(path) and not os.path.basename(path).startswith("profiles.db"):
                with open(path, "rb") as file:
                    self.assertNotIn(SECRET.encode(), file.read(), path)

    def test_the_clients_commands_do_not_repeat_it(self):
        client = functools.partial(self.handset.run, "dmclient")
        written = [
            ("replace", PASSWORD_LEAF, SECRET),
            ("replace", CONN + "/Office/Auth/PAP", "AuthPw=" + SECRET, "AuthId=user"),
            ("replace", CONN + "/Modem/Auth/PAP/AuthPw", SECRET),
            ("replace", CONN + "/Second/Auth/PAP/AuthPw", SECRET),
            ("copy", PASSWORD_LEAF, CONN + "/Modem/Auth/PAP/AuthPw"),
        ]
        for command in written:
            self.assertEqual(self.silent(client(*command)).returncode, 0, command)
        refused = [
            ("replace", CONN + "/Gone/Auth/PAP/AuthPw", SECRET),
            ("replace", CONN + "/Office/Auth/PAP/Missing", SECRET),
            ("replace", CONN + "/Office/Auth/PAP", SECRET),
            ("replace", CONN + "/Office/Auth/PAP", "Missing=" + SECRET),
            ("add", PASSWORD_LEAF, SECRET),
            ("add", CONN + "/Gone/Auth/PAP/AuthPw", SECRET),
            ("replace", CONN + "/Office/Linger", SECRET),
            ("replace", CONN + "/Office/Bearer", SECRET),
            ("replace", CONN + "/Office/Speed", SECRET),
            ("replace", CONN + "/Office/LineType", SECRET),
            ("replace", PROXY + "/Office/UserEditable", SECRET),
            ("add", CONN + "/Office/Auth/PAP/AuthPw", SECRET, "--format", "int"),
        ]
        for command in refused:
            self.assertNotEqual(self.silent(client("--verbose", *command)).returncode, 0, command)
        # A new leaf of that name with another format, whose parser refuses the text.
        self.silent(self.handset.run("dmclient", "--verbose", "shell", stdin="\n".join(
            f"add {CONN}/New{rest}" for rest in
            ("", "/Auth", "/Auth/PAP", f"/Auth/PAP/AuthPw {SECRET} --format int",
             f"/Auth/PAP/AuthPw {SECRET} --format bool")) + "\n"))
        self.silent(client("tree"))
        self.silent(client("tree", "--json"))
        self.silent(client("--verbose", "rename", CONN + "/Office", "Work"))
        self.silent(client("--verbose", "delete", CONN + "/Second"))
        self.silent(client("get", PASSWORD_LEAF))
        self.tell(client("get", "--show-secrets", PASSWORD_LEAF))
        self.tell(client("tree", "--show-secrets"))
        self.look_through_files()

    def test_a_move_to_another_bearer_says_nothing(self):
        self.silent(self.handset.run("dmclient", "replace", PASSWORD_LEAF, SECRET))
        for bearer in ("GSM-CSD", "GSM-CSD2", "GSM-GPRS", "bogus"):
            self.silent(self.handset.run("dmclient", "--verbose", "replace", CONN + "/Office/Bearer",
                                         bearer))
            self.tell(self.handset.run("dmclient", "get", "--show-secrets", PASSWORD_LEAF))
        self.look_through_files()

    def test_one_mount_with_everything_says_it_once(self):
        result = self.handset.run("dmclient", "--verbose", "shell", stdin="\n".join([
            f"replace {PASSWORD_LEAF} {SECRET}", f"add {CONN}/New", f"add {CONN}/New/Auth",
            f"add {CONN}/New/Auth/PAP", f"add {CONN}/New/Auth/PAP/AuthPw {SECRET}",
            f"replace {CONN}/Missing {SECRET}", "tree", f"rename {CONN}/New Newer",
            f"delete {CONN}/Newer", f"get {PASSWORD_LEAF}",
            f"get --show-secrets {PASSWORD_LEAF}"]) + "\n")
        self.assertEqual(result.stdout.count(SECRET), 1, result.stdout)
        self.assertNotIn(SECRET, result.stderr)
        self.look_through_files()

    def test_a_servers_package_is_answered_without_it(self):
        write = package_of(replace(PASSWORD_LEAF, SECRET), replace(CONN + "/Gone/X", SECRET),
                           add(PASSWORD_LEAF, SECRET),
                           replace(CONN + "/Office/Linger", SECRET, format="int"))
        self.silent(self.handset.run("dmclient", "--verbose", "process", "-", stdin=write))
        broken = write.replace("</SyncBody>", "")
        self.silent(self.handset.run("dmclient", "--verbose", "process", "-", stdin=broken))
        read = package_of(get(PASSWORD_LEAF))
        self.tell(self.handset.run("dmclient", "--verbose", "process", "-", stdin=read))
        self.look_through_files()

    def test_the_services_command_masks_it(self):
        napictl = functools.partial(self.handset.run, "napictl")
        for part in ("gprs", "csd", "csd2"):
            self.silent(napictl("set", "Office", f"{part}.authPassword={SECRET}"))
        self.silent(napictl("show", "Office"))
        self.silent(napictl("show", "Office", "--json"))
        self.silent(napictl("export"))
        self.silent(napictl("list"))
        self.silent(napictl("check"))
        self.silent(napictl("set", "Office", f"gprs.authPassword={SECRET}" + "x" * 100))
        self.silent(napictl("set", "Gone", f"gprs.authPassword={SECRET}"))
        self.silent(napictl("create", "Office", f"gprs.authPassword={SECRET}"))
        profile = {"name": "New", "gprs": {"address": "a", "authPassword": SECRET}}
        self.silent(napictl("import", "-", stdin=json.dumps(profile)))
        self.silent(napictl("import", "-", stdin=json.dumps(profile)))
        for wrong in ({"authPassword": [SECRET]}, {"authPassword": SECRET * 10},
                      {"authPassword": SECRET, "linger": "x"}):
            self.silent(napictl("import", "-", stdin=json.dumps({"name": "Wrong", "gprs": wrong})))
        self.silent(napictl("import", "-", stdin=json.dumps(profile)[:-3]))
        self.tell(napictl("show", "Office", "--show-secrets"))
        self.tell(napictl("export", "--show-secrets"))
        self.silent(napictl("delete", "Office", "New"))
        self.look_through_files()

    def test_a_damaged_store_is_reported_without_it(self):
        self.silent(self.handset.run("napictl", "set", "Office", f"gprs.authPassword={SECRET}"))
        with open(self.handset.path("profiles.db"), "r+b") as store:
            data = store.read()
            store.seek(0)
            store.write(data.replace(b"internet", b"\xFF\xFE\xFF\xFE\xFF\xFE\xFF\xFE"))
        self.silent(self.handset.run("napictl", "check"))
        self.silent(self.handset.run("dmclient", "--verbose", "tree"))
        self.look_through_files()


if __name__ == "__main__":
    unittest.main()

"""The example plug-in at work: what a server does with its nodes, and what is there at the next mount."""

import json
import os
import shutil
import unittest

from commands import add, delete, execute, get, package_of, rename, replace
from handset import CONN, DMCLIENT, HandsetTest

SUCCESS, REFUSED = range(2)
SERVER = "vendor.example"
ROOT = "./Vendor/Example"
SETTINGS = ROOT + "/Settings"
COLOUR = SETTINGS + "/Colour"
SHARE = os.path.join(os.path.dirname(os.path.dirname(DMCLIENT)), "share", "kub-dm")


class ExamplePluginTest(HandsetTest):
    def setUp(self):
        super().setUp()
        self.folder = self.handset.path("..", "plugins")
        os.mkdir(self.folder)
        for described in ("plugins/10-network-profiles.json", "example-plugins/vendor-example.json"):
            shutil.copy(os.path.join(SHARE, described), self.folder)
        self.file = self.handset.path("settings", "vendor_example.cfg")

    def client(self, *arguments, stdin=None):
        result = self.handset.dmclient("--plugins", self.folder, *arguments, stdin=stdin)
        return result.returncode, result.stdout.decode(), result.stderr.decode()

    def asked(self, *commands, server=SERVER):
        """What a server that sends these gets, an object a command."""
        _, printed, _ = self.client("process", "--json", "--server-id", server, "-",
                                    stdin=package_of(*commands))
        return [json.loads(line) for line in printed.splitlines()]

    def statuses(self, *commands, server=SERVER):
        return [answer["status"] for answer in self.asked(*commands, server=server)]

    def settings(self):
        """What the next mount shows."""
        status, printed, _ = self.client("get", SETTINGS)
        self.assertEqual(status, SUCCESS)
        return {name: self.client("get", f"{SETTINGS}/{name}")[1].rstrip("\n")
                for name in printed.splitlines()}

    # ---- What a server does ----------------------------------------------------------------------

    def test_a_server_adds_changes_renames_and_deletes_and_the_next_mount_shows_it(self):
        self.assertEqual(self.statuses(add(COLOUR, "green"), add(SETTINGS + "/Size", "")), [200, 200])
        self.assertEqual(self.settings(), {"Colour": "green", "Size": ""})
        self.assertEqual(self.statuses(replace(COLOUR, "blue & bright")), [200])
        self.assertEqual(self.settings()["Colour"], "blue & bright")
        self.assertEqual(self.statuses(rename(COLOUR, "Paint")), [200])
        self.assertEqual(self.settings(), {"Paint": "blue & bright", "Size": ""})
        self.assertEqual(self.statuses(delete(SETTINGS + "/Paint")), [200])
        self.assertEqual(self.settings(), {"Size": ""})

    def test_executing_reset_forgets_all_settings(self):
        self.statuses(add(COLOUR, "green"), add(SETTINGS + "/Size", "9"))
        self.assertEqual(self.statuses(execute(ROOT + "/Reset"), get(COLOUR)), [200, 404])
        self.assertEqual(self.settings(), {})
        self.assertEqual(self.statuses(add(COLOUR, "red")), [200])
        self.assertEqual(self.settings(), {"Colour": "red"})

    def test_every_server_manages_the_settings_and_none_the_nodes_above_them(self):
        self.statuses(add(COLOUR, "green"))
        self.assertEqual(self.statuses(replace(COLOUR, "red"), server="other.example"), [200])
        self.assertEqual(self.statuses(delete(ROOT), delete(SETTINGS), rename(SETTINGS, "Mine"),
                                       server="other.example"), [405, 405, 405])
        self.assertEqual(self.settings(), {"Colour": "red"})

    def test_it_is_there_beside_the_profiles(self):
        self.statuses(add(COLOUR, "green"))
        status, printed, errors = self.client("get", COLOUR, CONN + "/Office/Addr")
        self.assertEqual((status, printed, errors), (SUCCESS, "green\ninternet\n", ""))

    # ---- What is refused -------------------------------------------------------------------------

    def test_what_it_does_not_take_is_refused_and_changes_nothing(self):
        self.statuses(add(COLOUR, "green"), add(SETTINGS + "/Size", "9"))
        before = self.settings()
        for command, status in ((add(COLOUR, "red"), 418), (add(ROOT + "/Other", "x"), 405),
                                (add(SETTINGS + "/Sub"), 405), (add(COLOUR + "/Shade", "x"), 405),
                                (add(SETTINGS + "/N", "1", "int"), 415), (delete(SETTINGS), 405),
                                (rename(COLOUR, "Size"), 418), (execute(COLOUR), 425),
                                (replace(ROOT + "/Reset", "x"), 405)):
            self.assertEqual(self.statuses(command), [status], command)
        self.assertEqual(self.settings(), before)

    def test_a_setting_that_cannot_be_written_is_refused_with_the_reason_and_is_not_there(self):
        os.makedirs(os.path.join(self.file, "in the way"), mode=0o700)
        answer, found = self.asked(add(COLOUR, "green"), get(COLOUR))
        self.assertEqual((answer["status"], found["status"]), (500, 404))
        self.assertIn("the settings cannot be written", answer["reason"])

    def test_names_that_no_node_can_have_are_left_in_the_file(self):
        self.statuses(add(COLOUR, "red"))
        with open(self.file, "w", encoding="utf-8") as file:
            os.chmod(self.file, 0o600)
            file.write("[Settings]\nColour=green\nA/B=x\n=y\n")
        self.assertEqual(self.settings(), {"Colour": "green"})

    # ---- What is seen of it ----------------------------------------------------------------------

    def test_a_record_has_what_it_wrote(self):
        record = self.handset.path("..", "record.jsonl")
        self.client("--record", record, "add", COLOUR, "green")
        with open(record, encoding="utf-8") as file:
            calls = [event for event in map(json.loads, file)
                     if event["event"] == "setting-call" and event["function"] == "setSettingInfo"]
        self.assertEqual([(call["file"], call["group"], call["key"], call["after"]) for call in calls],
                         [("vendor_example.cfg", "Settings", "Colour", "green")])


if __name__ == "__main__":
    unittest.main()

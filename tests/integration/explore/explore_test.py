"""The handset behind the page of dmclient explore: what is run, mounted again, and put back."""

import base64
import os
import signal
import sys
import unittest

from commands import add, get, package_of, rename, replace
from dmserver import DmServer
from explorer import Explorer
from handset import CONN, PROXY, SECRET, HandsetTest
from sessions import scenario

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "record"))
import records  # noqa: E402, pylint: disable=wrong-import-position

LINGER = CONN + "/Office/Linger"
CONN_MAPPING = "kub_napdef_profilemapping.cfg"


class ExploreTest(HandsetTest):
    def setUp(self):
        super().setUp()
        self.explorer = Explorer(self.handset)
        self.addCleanup(self.explorer.end)
        self.events = self.explorer.events()

    def run_package(self, *commands):
        """Runs commands; the statuses that the record has for them."""
        self.assertEqual(self.explorer.post("package", xml=package_of(*commands)), (200, {}))
        return [event["status"] for event in self.answered() if event["event"] == "command"]

    def answered(self):
        """The events of the record up to, and with, the next message that is sent."""
        told = self.events.wait_for(lambda event: event.get("recorded", {}).get("direction") == "sent")
        return [event["recorded"] for event in told if "recorded" in event]

    def names_beneath(self, uri):
        """As the handset behind the page lists them."""
        self.explorer.post("package", xml=package_of(get(uri)))
        results, = [command for command in self.answered()[-1]["decoded"]["commands"]
                    if command["name"] == "Results"]
        return results["items"][0]["data"].split("/")

    def test_package_is_run_and_everything_beneath_it_is_told(self):
        self.assertEqual(self.run_package(replace(LINGER, "70000")), [200])
        self.assertEqual(self.handset.profile("Office")["gprs"]["linger"], 4464)
        told = self.explorer.events().wait_for(
            lambda event: event.get("recorded", {}).get("event") == "command")
        changes = [event["recorded"]["changes"] for event in told
                   if event.get("recorded", {}).get("function") == "NAPI_ModifyProfile"]
        self.assertEqual(changes, [[{"field": "gprsLinger", "offset": 320, "size": 2,
                                     "before": "30", "after": "4464"}]])

    def test_page_that_is_opened_later_is_told_what_was_before(self):
        self.run_package(replace(LINGER, "5"))
        first = self.explorer.events().wait_for(lambda event: event.get("recorded", {}).get("event") == "command")
        second = self.explorer.events().wait_for(lambda event: event.get("recorded", {}).get("event") == "command")
        self.assertEqual(first, second)
        self.assertEqual(first[0], {"mounted": 1, "snapshots": 1})
        self.assertEqual([event["recorded"]["event"] for event in first if "recorded" in event][0], "run")

    def test_mounting_again_shows_what_goes_with_a_mount(self):
        self.assertEqual(self.run_package(add(CONN + "/Office/Foo", "x")), [200])
        self.assertIn("Foo", self.names_beneath(CONN + "/Office"))
        self.assertEqual(self.explorer.post("mount"), (200, {}))
        self.events.wait_for(lambda event: event.get("mounted") == 2)
        self.assertNotIn("Foo", self.names_beneath(CONN + "/Office"))

    def test_snapshot_is_gone_back_to(self):
        self.run_package(replace(LINGER, "5"))
        self.assertEqual(self.explorer.post("snapshot"), (200, {"snapshot": 1}))
        self.run_package(replace(LINGER, "6"), add(CONN + "/Added"), add(CONN + "/Added/Bearer", "GSM-GPRS"))
        self.assertIn("Added", self.handset.export())
        self.assertEqual(self.explorer.post("undo", snapshot=1), (200, {}))
        self.assertEqual(self.handset.profile("Office")["gprs"]["linger"], 5)
        self.assertNotIn("Added", self.handset.export())
        self.assertEqual(self.explorer.post("undo", snapshot=0), (200, {}))
        self.assertEqual(self.handset.profile("Office")["gprs"]["linger"], 30)
        self.assertEqual(self.run_package(replace(LINGER, "7")), [200])

    def test_going_back_leaves_accounts_as_they_are(self):
        """A nonce that was used would let in who has recorded the proof with it."""
        before = self.handset.client_file("accounts.json")
        with open(before, "w", encoding="ascii") as file:
            file.write('{"accounts": {}, "mark": "newer"}')
        os.chmod(before, 0o600)
        self.assertEqual(self.explorer.post("undo", snapshot=0)[0], 200)
        with open(before, encoding="ascii") as file:
            self.assertIn("newer", file.read())

    def test_session_is_held_and_arrives(self):
        with DmServer(scenario("profiles")) as server:
            self.assertEqual(self.explorer.post("session", server=server.url), (200, {}))
            self.events.printed("Session completed")
            self.assertEqual(server.session.report()["faults"], [])
        missing = {"request", "response", "message", "command", "profile-call", "printed"}

        def is_all(event):
            missing.discard(event.get("recorded", {}).get("event"))
            if "Session completed" in event.get("printed", ""):
                missing.discard("printed")
            return not missing
        self.explorer.events().wait_for(is_all)  # what is printed and what is recorded come on two ways

    # ---- What is stored for a node ----

    def mount(self):
        """The page asks for the tree when it is opened, and the handset mounts."""
        self.run_package(get(CONN), get(PROXY))

    def stored(self, uri):
        """What the record says is stored for a node, which has to be as the schema has it."""
        self.assertEqual(self.explorer.post("stored", uri=uri), (200, {}))
        told = self.events.wait_for(lambda event: event.get("recorded", {}).get("event") == "stored")
        besides = {event["recorded"]["event"] for event in told[:-1] if "recorded" in event}
        self.assertLessEqual(besides, {"tree"}, "nothing is asked of the plug-in, nor told as its calls")
        event = told[-1]["recorded"]
        self.assertEqual(event["uri"], uri)
        records.EVENT_SCHEMAS["stored"].validate(event)
        return event

    def linger_of(self, event):
        record = base64.b64decode(event["record"])
        self.assertEqual(len(record), 1168)
        return int.from_bytes(record[320:322], "little")

    def test_what_is_stored_for_a_node_is_told_as_it_is_now_and_the_plugin_is_not_asked(self):
        self.mount()
        event = self.stored(LINGER)
        self.assertEqual((event["profile"], self.linger_of(event), event["reason"]), ("Office", 30, None))
        self.handset.napictl("set", "Office", "gprs.linger=77")
        for uri in (LINGER, CONN + "/Office", PROXY + "/Office/Ph1/Addr"):
            self.assertEqual(self.linger_of(self.stored(uri)), 77, uri)

    def test_both_mapping_files_are_told_as_they_are_now(self):
        self.mount()
        self.run_package(rename(CONN + "/Home", "Flat"))
        files = {file["file"]: file for file in self.stored(CONN)["files"]}
        self.assertEqual({file["reason"] for file in files.values()}, {None})
        conn = {entry["key"]: entry["value"] for entry in files[CONN_MAPPING]["entries"]}
        self.assertIn("Flat", conn.values())
        self.assertNotIn("Home", conn.values())
        groups = {entry["group"] for entry in files["kub_proxy_profilemapping.cfg"]["entries"]}
        self.assertEqual(groups, {"PROXY_Profile", "PROXY_Conn"})

    def test_node_of_no_profile_says_so(self):
        self.mount()
        for uri in ("./DevInfo", CONN, CONN + "/Nobody"):
            event = self.stored(uri)
            self.assertTrue(event["reason"], uri)
            self.assertNotIn("record", event)

    def test_profile_that_went_meanwhile_is_said_to_be_gone(self):
        self.mount()
        self.handset.napictl("delete", "Office")
        event = self.stored(LINGER)
        self.assertRegex(event["reason"], r"profile \d+ is not stored any more")
        self.assertNotIn("record", event)

    def test_secrets_of_what_is_stored_are_masked_until_they_are_asked_for(self):
        self.mount()
        self.assertNotIn(SECRET.encode(), base64.b64decode(self.stored(LINGER)["record"]))
        self.explorer.post("mount", showSecrets=True)
        self.events.wait_for(lambda event: event.get("mounted") == 2)
        self.mount()
        self.assertIn(SECRET.encode(), base64.b64decode(self.stored(LINGER)["record"]))

    def test_damaged_mapping_file_is_told_with_what_can_be_read_of_it(self):
        self.mount()
        with open(self.handset.path("settings", CONN_MAPPING), "ab") as file:
            file.write(b"\xff\xfe no entry\n")
        event = self.stored(LINGER)
        self.assertEqual(self.linger_of(event), 30)
        damaged, other = event["files"]
        self.assertIn(CONN_MAPPING, damaged["reason"])
        self.assertIn("Office", [entry["value"] for entry in damaged["entries"]])
        self.assertIsNone(other["reason"])

    def test_profile_of_a_hostile_name_is_found(self):
        names = ["O'Brien \"$(id)\" `x`", "-rf; quit #", "\\'\\"]
        for name in names:
            self.handset.add([{"name": name, "gprs": {"address": "x", "linger": 5}}])
        self.explorer.post("mount")
        self.events.wait_for(lambda event: event.get("mounted") == 2)
        self.mount()
        for name in names:
            event = self.stored(f"{CONN}/{name}/Linger")
            self.assertEqual((event["profile"], self.linger_of(event)), (name, 5))

    def test_address_that_no_line_of_the_shell_can_hold_is_refused(self):
        for uri in ("", "./A\nquit", "./A\u0000", "--help", None, 7):
            self.assertEqual(self.explorer.post("stored", uri=uri),
                             (400, {"problem": "that is not the address of a node"}), uri)

    def test_handset_that_dies_is_said_and_begins_again(self):
        self.events.recorded("run")
        children = f"/proc/{self.explorer.pid}/task/{self.explorer.pid}/children"
        with open(children, encoding="ascii") as file:
            os.kill(int(file.read().split()[0]), signal.SIGKILL)
        self.events.wait_for(lambda event: "failed" in event)
        self.assertEqual(self.explorer.post("mount"), (200, {}))
        self.assertEqual(self.run_package(replace(LINGER, "7")), [200])


if __name__ == "__main__":
    unittest.main()

"""The handset behind the page of dmclient explore: what is run, mounted again, and put back."""

import os
import signal
import unittest

from commands import add, get, package_of, replace
from dmserver import DmServer
from explorer import Explorer
from handset import CONN, HandsetTest
from sessions import scenario

LINGER = CONN + "/Office/Linger"


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
        told = self.explorer.events().wait_for(lambda event: "Session completed" in event.get("printed", ""))
        kinds = {event["recorded"]["event"] for event in told if "recorded" in event}
        self.assertLessEqual({"request", "response", "message", "command", "profile-call"}, kinds)

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

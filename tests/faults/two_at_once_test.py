#!/usr/bin/python3
"""Two programs on one state directory at the same time."""
import subprocess
import unittest

import stored_profiles
from handset import CONN, PROGRAMS, PROXY, HandsetTest, Shell


class TwoAtOnceTest(HandsetTest):
    PROFILES = stored_profiles.PROFILES

    def mounted(self):
        shell = Shell(self.handset)
        self.addCleanup(lambda: shell.is_running() and shell.close())
        return shell

    def test_a_second_client_is_told_that_the_first_is_there(self):
        shell = self.mounted()
        shell.ask(f"get {CONN}/Office/Addr")
        second = self.handset.run("dmclient", "tree")
        self.assertEqual(second.returncode, 3)
        self.assertIn(self.handset.state, second.stderr)
        self.assertEqual(shell.ask(f"get {CONN}/Office/Addr")[0], "internet")
        self.assertEqual(shell.close(), 0)
        self.handset.succeed("dmclient", "tree")

    def test_a_change_beside_the_client_is_read_at_once(self):
        shell = self.mounted()
        self.assertEqual(shell.ask(f"get {CONN}/Office/Addr")[0], "internet")
        self.handset.napictl("set", "Office", "gprs.address=other")
        self.assertEqual(shell.ask(f"get {CONN}/Office/Addr")[0], "other")

    def test_a_write_keeps_what_was_changed_beside_the_client(self):
        shell = self.mounted()
        shell.ask(f"get {CONN}/Office/Addr")
        self.handset.napictl("set", "Office", "gprs.authId=other")
        shell.ask(f"replace {CONN}/Office/Addr mine")
        office = self.handset.export()["Office"]["gprs"]
        self.assertEqual((office["address"], office["authId"]), ("mine", "other"))

    def test_a_profile_that_is_deleted_beside_the_client_fails_alone(self):
        shell = self.mounted()
        shell.ask(f"get {CONN}/Office/Addr")
        self.handset.napictl("delete", "Office")
        for command in (f"get {CONN}/Office/Addr", f"replace {CONN}/Office/Addr x",
                        f"replace {CONN}/Office/Bearer GSM-CSD", f"replace {CONN}/Office Addr=x",
                        f"replace {PROXY}/Office/Ph1/Conn Modem", f"delete {CONN}/Office"):
            self.assertRegex(shell.ask(command)[-1], r": 500\b", command)
        self.assertEqual(shell.ask(f"get {CONN}/Modem/Addr")[0], "+49172")
        self.assertNotIn("Office", self.handset.export())
        shell.close()
        self.handset.succeed("dmclient", "tree")

    def test_a_profile_that_comes_back_gets_a_new_id_and_the_old_node_stays_dead(self):
        shell = self.mounted()
        shell.ask(f"get {CONN}/Office/Addr")
        self.handset.napictl("delete", "Office")
        self.handset.add([{"name": "Office", "gprs": {"address": "again"}}])
        self.assertRegex(shell.ask(f"get {CONN}/Office/Addr")[-1], r": 500\b")
        shell.close()
        self.assertEqual(self.handset.run("dmclient", "get", CONN + "/Office/Addr").stdout, "again\n")

    def test_writers_of_different_profiles_do_not_disturb_each_other(self):
        shell = self.mounted()
        rounds = 20
        shell.ask(f"get {CONN}/Office/Addr")
        for number in range(rounds):
            beside = subprocess.Popen(
                [*PROGRAMS["napictl"], "set", "Second", f"csd2.linger={number}"],
                env=self.handset.environment())
            self.assertRegex(shell.ask(f"replace {CONN}/Office/Linger {number}")[-1], r": 200\b")
            self.assertEqual(beside.wait(60), 0)
        profiles = self.handset.export()
        self.assertEqual(profiles["Office"]["gprs"]["linger"], rounds - 1)
        self.assertEqual(profiles["Second"]["csd2"]["linger"], rounds - 1)
        self.handset.napictl("check")


if __name__ == "__main__":
    unittest.main()

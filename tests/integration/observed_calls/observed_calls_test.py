#!/usr/bin/python3
"""What the host libraries tell their observer is what a witness between the plug-in and them sees."""
import os
import subprocess
import unittest

from handset import PLUGIN, HandsetTest

PROGRAM = os.environ["OBSERVED_CALLS"]
WITNESS = os.environ["CALL_WITNESS"]

# Every call of the two interfaces that the plug-in makes.
USED = {"NAPI_CreateProfile", "NAPI_DeleteProfile", "NAPI_GetMaxProfiles", "NAPI_GetProfileIDByName",
        "NAPI_GetProfileNameByID", "NAPI_IsProfileValid", "NAPI_ListAllProfile", "NAPI_ModifyProfile",
        "NAPI_ReadProfile", "flush", "getEntryKeyList", "getSettingInfo", "open", "removeEntry",
        "setSettingInfo"}


class ObservedCallsTest(HandsetTest):
    PLANTS_FILES = True

    maxDiff = None

    def lines(self, name):
        with open(self.handset.path(name), encoding="utf-8") as file:
            return file.read().splitlines()

    def test_the_observer_is_told_what_a_witness_sees_in_the_same_order(self):
        environment = self.handset.environment(
            LD_PRELOAD=WITNESS, KUB_NAPI_MAX="4", KUB_CALL_WITNESS=self.handset.path("witness"),
            KUB_CALL_OBSERVER=self.handset.path("observer"))
        done = subprocess.run([PROGRAM, PLUGIN], env=environment, capture_output=True, timeout=120,
                              check=False)
        self.assertEqual(done.returncode, 0, done.stderr)
        witness = self.lines("witness")
        self.assertEqual(self.lines("observer"), witness)
        self.assertEqual({line.split(" ")[0] for line in witness}, USED)


if __name__ == "__main__":
    unittest.main()

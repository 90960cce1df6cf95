"""dm-plugin-check beneath a sanitizer and valgrind: what only they find, and nothing in good plug-ins."""

import os
import unittest

import plugin_check_test
from handset import PROFILES, Handset
from plugin_check_test import CONN, EXAMPLE, FAULTY, FINDINGS, INT_PROFS, PRODUCT, ROOT

FAULTY_WITH_ASAN = os.environ["FAULTY_WITH_ASAN"]
OVERRUN = "heap-block-overrun"


class MemoryTest(unittest.TestCase):
    setUp = plugin_check_test.PluginCheckTest.setUp
    check = plugin_check_test.PluginCheckTest.check
    assert_good = plugin_check_test.PluginCheckTest.assert_good

    def assert_overrun_is_found(self, finding, *words):
        status, printed, _ = self.check(*words, "--root", ROOT, fault=OVERRUN)
        self.assertEqual(status, FINDINGS, printed)
        self.assertRegex(printed, rf"(?m)^FAILED   references {ROOT}")
        self.assertIn(finding, printed)

    def test_overrun_is_found_by_a_sanitizer(self):
        self.assert_overrun_is_found("heap-buffer-overflow", FAULTY_WITH_ASAN)

    def test_overrun_is_found_by_valgrind(self):
        self.assert_overrun_is_found("Invalid write of size 1", "--valgrind", FAULTY)

    def test_a_good_plug_in_has_no_findings(self):
        self.assert_good(FAULTY_WITH_ASAN, "--root", ROOT)
        self.assert_good("--valgrind", FAULTY, "--root", ROOT)
        self.assert_good("--valgrind", EXAMPLE, "--root", "./Vendor/Example")

    def test_the_plug_in_of_the_profiles_has_no_findings(self):
        handset = Handset(PROFILES[:1])
        self.addCleanup(handset.close)
        self.assert_good("--valgrind", PRODUCT, "--root", CONN, "--root", INT_PROFS, "--state", handset.state,
                         "--timeout", "120")


if __name__ == "__main__":
    unittest.main()

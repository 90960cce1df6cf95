"""dm-plugin-check: each faulty plug-in is found by the check that is meant for it, and no good one."""

import os
import re
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree as xml

from handset import PROFILES, Handset

CHECK = os.environ["DM_PLUGIN_CHECK"]
FAULTY = os.environ["FAULTY"]
WITHOUT_VERSION = os.environ["WITHOUT_VERSION"]
EXAMPLE = os.environ["EXAMPLE"]
PRODUCT = os.environ["PLUGIN"]
ROOT = "./Vendor/Faulty"
COLOUR = ROOT + "/Settings/Colour"
CONN = "./DevDetail/Ext/Conf/Conn/Profiles"
INT_PROFS = "./DevDetail/Ext/Conf/IntProfs/Profiles"
NOTHING, FINDINGS, WRONG_USAGE, UNUSABLE = range(4)

# Fault: the one check that finds it, and a finding, as an expression.
FAULTS = {
    "wrong-version": ("exports", "GetAPIVersion: expected 0x10001; came 0x10002"),
    "near-miss-root": ("near-miss-roots", f'"{ROOT}x": expected status 406 and no tree; '
                       "came status 0 and a tree"),
    "root-refused-as-failure": ("near-miss-roots", "came status 1"),
    "no-tree": ("mount", "expected status 0 and a tree; came no tree"),
    "text-leaked-by-mount": ("mount", r"2 blocks are left, from dmstring:\d+ \(1\), faulty_plugin:\d+"),
    "tree-never-dropped": ("mount", "the engine's memory is given back; came"),
    "empty-slot": ("tables",
                   f"{ROOT}: slot 29, GetParameter: expected a function; came null"),
    "unset-output": ("read", f'{COLOUR}: GetNodeName: expected status 0 and "Colour"; came status 0'),
    "output-changed-by-failure": ("read", 'GetValue: expected the output as it was, with status 500; '
                                  'came "half"'),
    "file-written-by-read": ("read", f"{COLOUR}: reading: expected no file that changes"),
    "crash-on-read": ("references",
                      f"{COLOUR}: GetValue: expected the call returns; came killed by SIGABRT"),
    "exit-on-read": ("references",
                     "GetValue: expected the call returns; came the process ended with status 0"),
    "reference-leaked-by-read": ("references", f"{COLOUR}: GetValue: expected a node with the "
                                 r"\d+ references that it had; came \d+"),
    "reference-dropped-by-read": ("references", f"{COLOUR}: GetValue: expected a node with the "
                                  r"\d+ references that it had; came \d+"),
    "text-leaked-by-read": ("references", f"{COLOUR}: GetValue: expected as many live blocks of the "
                            "engine's memory as before; came 2 more, from "),
    "tree-leaked-by-read": ("references", f"{COLOUR}: GetValue: expected a tree with the \\d+ references"),
    "text-leaked-by-execute": ("statuses", r"2 blocks are left, from dmstring:\d+ \(1\), faulty_plugin:\d+"),
    "mount-spoilt-by-value": ("hostile-values", "GetPluginTree: expected status 0 and a tree; came status 1"),
    "block-given-back-twice": ("references",
                               f"{COLOUR}: GetValue: expected each block is given back once"),
    "unknown-status": ("statuses",
                       f"{ROOT}/Empty: Execute: expected 0, 1 or a refusal of the DM protocol; "
                       "came status 299"),
    "value-cut-by-write": ("write", 'expected status 0 and "green"; came status 0 and "gr"'),
    "node-missing-after-add": ("add", f"{ROOT}/AddedLeaf: CreateLeafNode: expected a node with status 0"),
    "value-lost-by-rename": ("rename", f'{ROOT}/Settings/Renamed: GetValue after RenameNode with status 0: '
                             'expected "green"; came ""'),
    "node-left-by-delete": ("delete", "expected no node after DeleteNode with status 0; came a node"),
    "crash-on-empty-name": ("hostile-names",
                            f'{ROOT}: GetChildNode "": expected the call returns; came killed by SIGSEGV'),
    "hang-on-value": ("hostile-values",
                      f'{COLOUR}: SetValue "nan": expected the call returns; came it has not returned '
                      "within 1 s"),
    "ignored-allocation-failure": ("allocations",
                                   f"{COLOUR}: GetValue without allocation 0: expected the call returns; "
                                   "came killed by SIGSEGV"),
}


class PluginCheckTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def check(self, *words, fault=""):
        """Exit status, what is printed, and standard error."""
        environment = {**os.environ, "KUB_FAULT": fault, "TMPDIR": self.folder}
        result = subprocess.run([CHECK, *words], env=environment, capture_output=True, text=True,
                                timeout=300)
        return result.returncode, result.stdout, result.stderr

    def assert_good(self, *words):
        status, printed, errors = self.check(*words)
        self.assertEqual((status, errors), (NOTHING, ""), printed + errors)
        self.assertRegex(printed, r"\A(ok       .*\n){14,}Nothing found\.\n\Z")

    def test_each_fault_is_found_by_its_check_alone(self):
        for fault, (check, finding) in FAULTS.items():
            with self.subTest(fault):
                patience = ("--timeout", "1") if fault == "hang-on-value" else ()
                status, printed, errors = self.check(FAULTY, "--root", ROOT, *patience, fault=fault)
                self.assertEqual((status, errors), (FINDINGS, ""), printed)
                self.assertEqual(set(re.findall(r"^FAILED   ([\w-]+)", printed, re.MULTILINE)), {check}, printed)
                self.assertRegex(printed, finding)

    def test_a_function_that_is_not_exported_is_named_and_nothing_else_is_called(self):
        status, printed, _ = self.check(WITHOUT_VERSION, "--root", ROOT)
        self.assertEqual(status, FINDINGS)
        self.assertIn("DMT_PluginLib_GetAPIVersion: expected an exported function; came none\n", printed)
        self.assertEqual(printed.count("(because of exports)\n"), 13)

    def test_good_plug_ins_have_no_findings(self):
        self.assert_good(FAULTY, "--root", ROOT)

    def test_the_example_has_no_findings(self):
        self.assert_good(EXAMPLE, "--root", "./Vendor/Example")
        state = os.path.join(self.folder, "state")
        os.makedirs(os.path.join(state, "settings"), mode=0o700)
        with open(os.path.join(state, "settings", "vendor_example.cfg"), "w", encoding="utf-8") as file:
            os.chmod(file.name, 0o600)
            file.write("[Settings]\nColour=green\nSize=9\n")
        self.assert_good(EXAMPLE, "--root", "./Vendor/Example", "--state", state)

    def test_the_plug_in_of_the_profiles_has_no_findings(self):
        handset = Handset(PROFILES[:1])
        self.addCleanup(handset.close)
        before = handset.export()
        self.assert_good(PRODUCT, "--root", CONN, "--root", INT_PROFS, "--state", handset.state)
        self.assertEqual(handset.export(), before)

    def test_each_process_begins_with_a_copy_of_the_state(self):
        state = os.path.join(self.folder, "state")
        os.mkdir(state)
        with open(os.path.join(state, "reads"), "w", encoding="utf-8") as file:
            file.write("before\n")
        words = (FAULTY, "--root", ROOT, "--state", state)
        # It gives no tree to whoever has this file.
        status, printed, _ = self.check(*words, fault="no-tree-after-reads")
        self.assertEqual(status, FINDINGS)
        self.assertIn("expected status 0 and a tree; came no tree", printed)
        self.check(*words, fault="file-written-by-read")
        with open(os.path.join(state, "reads"), encoding="utf-8") as file:
            self.assertEqual(file.read(), "before\n")

    def test_nothing_is_left_behind(self):
        self.check(FAULTY, "--root", ROOT, "--timeout", "1", fault="hang-on-value")
        self.assertEqual(os.listdir(self.folder), [])

    # ---- Reports ---------------------------------------------------------------------------------

    def test_junit_has_a_case_for_each_check(self):
        report = os.path.join(self.folder, "report.xml")
        self.check(FAULTY, "--root", ROOT, "--junit", report, fault="value-cut-by-write")
        suite = xml.parse(report).getroot()
        self.assertEqual((suite.get("tests"), suite.get("failures"), suite.get("skipped")), ("14", "1", "0"))
        failed = [case for case in suite if case.find("failure") is not None]
        self.assertEqual([case.get("name") for case in failed], [f"write {ROOT}"])
        self.assertIn(COLOUR, failed[0].find("failure").text)

    def test_junit_tells_what_was_skipped_and_why(self):
        report = os.path.join(self.folder, "report.xml")
        self.check(FAULTY, "--root", ROOT, "--junit", report, fault="no-tree")
        skipped = [case.find("skipped").get("message") for case in xml.parse(report).getroot()
                   if case.find("skipped") is not None]
        self.assertEqual(skipped, ["because of mount"] * 11)

    # ---- The command line ------------------------------------------------------------------------

    def test_wrong_usage(self):
        for words in ([], [FAULTY], ["--root", ROOT], [FAULTY, "--root", ""], [FAULTY, FAULTY, "--root", ROOT],
                      [FAULTY, "--root", ROOT, "--timeout", "0"], [FAULTY, "--root", ROOT, "--other"],
                      [FAULTY, "--root", ROOT, "--state", "/nowhere"]):
            with self.subTest(words):
                status, printed, errors = self.check(*words)
                self.assertEqual((status, printed), (WRONG_USAGE, ""))
                self.assertRegex(errors, r"\Adm-plugin-check: .*\n\Z")

    def test_a_library_that_cannot_be_loaded(self):
        for library in ("/nowhere/lib.so", __file__):
            status, printed, errors = self.check(library, "--root", ROOT)
            self.assertEqual((status, printed), (UNUSABLE, ""))
            self.assertIn("cannot load the plug-in", errors)

    def test_a_report_that_cannot_be_written(self):
        status, _, errors = self.check(FAULTY, "--root", ROOT, "--junit", "/nowhere/report.xml")
        self.assertEqual(status, UNUSABLE)
        self.assertIn("cannot write /nowhere/report.xml", errors)


if __name__ == "__main__":
    unittest.main()

"""Whole transcripts of dmclient's process and shell, compared with the ones kept in golden/.

KUB_REGENERATE_GOLDEN=1 writes them again; the change is then reviewed like any other.
"""

import difflib
import os
import shlex
import unittest

from handset import CONN, PROXY, HandsetTest

FOLDER = os.path.dirname(os.path.abspath(__file__))
REGENERATE = os.environ.get("KUB_REGENERATE_GOLDEN") == "1"

LIFE_OF_A_PROFILE = f"""
# A profile is added leaf by leaf.
add {CONN}/Travel
add {CONN}/Travel/Bearer GSM-CSD
add {CONN}/Travel/Addr +491700000
add {CONN}/Travel/LineType Isdn
add {CONN}/Travel/Speed 9600 --format int
add {CONN}/Travel/Auth
add {CONN}/Travel/Auth/PAP
add {CONN}/Travel/Auth/PAP/AuthId traveller
add {CONN}/Travel/Auth/PAP/AuthPw 'p w'
tree {CONN}/Travel
tree {CONN}/Travel --show-secrets
# It is renamed, and only the new name leads to it.
rename {CONN}/Travel 'On the road'
get {CONN}/Travel
get '{CONN}/On the road' --prop Name
# It moves through all bearers, and back.
replace '{CONN}/On the road/Bearer' GSM-GPRS
get '{CONN}/On the road/Addr'
replace '{CONN}/On the road/Bearer' GSM-CSD2
replace "{CONN}/On the road" Addr=+491711111 Speed=14400 LineType=V.110
get '{CONN}/On the road/Speed' '{CONN}/On the road/LineType'
replace '{CONN}/On the road/Bearer' GSM-CSD
get {CONN}/On\\ the\\ road/Addr
# It goes.
delete '{CONN}/On the road'
get {CONN}
"""

PROXIES = f"""
tree {PROXY}/Office
replace {PROXY}/Office/Ph1 Addr=new.example Conn=Home
replace {PROXY}/Office/Ph1/Port/PortNbr 3129
replace {PROXY}/Office/UserEditable false
copy {PROXY}/Office/Ph1/Addr {PROXY}/Office/Ph2/Addr
copy {PROXY}/Office/Ph3/Port/PortNbr {PROXY}/Office/Ph2/Port/PortNbr
tree {PROXY}/Office
"""

REFUSALS = f"""
frobnicate
rename {CONN}/Office
get 'unfinished
get ./Nowhere
get ./DevInfo?list=Struct
add {CONN}/Nobody/Addr x
add {CONN}/Office/Speed 9600 --format int
add {CONN}/Office/Extra 1 --format float
replace {CONN}/Office/Linger soon
replace {CONN}/Office/Speed 1200
replace {CONN}/Office Addr=a Nothing=b
replace {CONN}/Office just-a-value
replace ./DevInfo/Man me
rename {CONN}/Office/Addr Host
rename {CONN}/Office Home
rename {CONN} Other
delete {CONN}
delete .
copy {CONN}/Office {CONN}/Other
process -
process /nonexistent
quit now
quit
get ./DevInfo/DmV
"""


class GoldenTest(HandsetTest):
    maxDiff = None

    def setUp(self):
        super().setUp()
        self.transcript = []

    def note(self, text):
        for secret in (self.handset.state, self.handset.home):
            text = text.replace(secret, "STATE")
        self.transcript.append(text)

    def run_client(self, *arguments, stdin=None, shown=None):
        result = self.handset.dmclient(*arguments, stdin=stdin)
        self.note(f"$ {shown or shlex.join(['dmclient', *arguments])}\n")
        self.note(result.stdout.decode())
        self.note(result.stderr.decode())
        self.note(f"[exit {result.returncode}]\n\n")

    def run_shell(self, lines):
        self.note("--- lines ---" + lines + "--- answers ---\n")
        self.run_client("shell", stdin=lines)

    def run_napictl(self, *arguments):
        self.note(f"$ {shlex.join(['napictl', *arguments])}\n{self.handset.napictl(*arguments)}\n")

    def process(self, package, *options):
        with open(os.path.join(FOLDER, "packages", package), "rb") as file:
            content = file.read()
        words = shlex.join(["dmclient", "process", *options, "-"])
        self.run_client("process", *options, "-", stdin=content, shown=f"{words} < {package}")

    def compare(self, name):
        path = os.path.join(FOLDER, "golden", name + ".txt")
        actual = "".join(self.transcript)
        if REGENERATE:
            with open(path, "w", encoding="utf-8") as file:
                file.write(actual)
            return
        expected = ""
        if os.path.exists(path):
            with open(path, encoding="utf-8") as file:
                expected = file.read()
        if actual != expected:
            difference = "".join(difflib.unified_diff(
                expected.splitlines(True), actual.splitlines(True), f"golden/{name}.txt", "now"))
            self.fail(f"the transcript has changed:\n{difference}\nIf it should have: "
                      "KUB_REGENERATE_GOLDEN=1 ctest -R dmclient_golden")

    def test_a_server_reads(self):
        self.process("read.xml")
        self.compare("process_read")

    def test_a_server_changes_profiles(self):
        self.process("change.xml")
        self.run_napictl("list")
        self.run_napictl("show", "Office")
        self.run_napictl("show", "Home")
        self.run_napictl("show", "Field")
        self.compare("process_change")

    def test_an_atomic_that_fails_leaves_everything_as_it_was(self):
        before = self.handset.napictl("export", "--show-secrets")
        self.process("atomic.xml")
        self.run_napictl("show", "Field")
        self.handset.napictl("delete", "Field")
        self.assertEqual(self.handset.napictl("export", "--show-secrets"), before)
        self.compare("process_atomic")

    def test_a_server_meets_access_control_lists(self):
        self.process("rights.xml", "--server-id", "dm.example")
        self.compare("process_rights")

    def test_life_of_a_profile(self):
        self.run_shell(LIFE_OF_A_PROFILE)
        self.run_napictl("list")
        self.compare("shell_life_of_a_profile")

    def test_proxies(self):
        self.run_shell(PROXIES)
        self.run_napictl("show", "Office")
        self.compare("shell_proxies")

    def test_refusals(self):
        self.run_shell(REFUSALS)
        self.run_napictl("list")
        self.compare("shell_refusals")


if __name__ == "__main__":
    unittest.main()

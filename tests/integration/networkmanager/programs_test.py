"""napictl and dmclient on the connections of a private NetworkManager, with nmcli as the witness."""

import json
import os
import select
import subprocess
import unittest

from handset import CONN, PROGRAMS, HandsetTest

OK, FAILED, USAGE, UNUSABLE, DIFFERENT = 0, 1, 2, 3, 5


class ProgramsTest(HandsetTest):
    PROFILES = []

    def setUp(self):
        self.assertIn("PRIVATE_NETWORKMANAGER", os.environ)
        super().setUp()
        self.addCleanup(self.delete_connections)

    def run_program(self, program, *arguments, expected=OK, **environment):
        result = self.handset.run(program, *arguments, **environment)
        self.assertEqual(result.returncode, expected, result.stdout + result.stderr)
        return result

    def nmcli(self, *arguments):
        return subprocess.run(["nmcli", *arguments], env=self.handset.environment(), check=True,
                              capture_output=True, encoding="utf-8", timeout=60).stdout.rstrip("\n")

    def delete_connections(self):
        uuids = self.nmcli("-g", "uuid", "connection", "show").split()
        if uuids:
            self.nmcli("connection", "delete", *uuids)

    def add_connection(self, *properties):
        self.nmcli("connection", "add", "type", "gsm", "con-name", "Hand", "ifname", "*", *properties)

    def shown(self, name, name_of_property):
        """nmcli now and then shows no secret of a connection that has just been changed, although the
        daemon hands it out. It shows none that is not there, so the longest of a few answers counts."""
        return max((self.nmcli("-s", "-g", name_of_property, "connection", "show", "id", name)
                    for _ in range(5)), key=len)

    def test_the_option_chooses_networkmanager(self):
        self.add_connection("apn", "hand.apn")
        self.assertIn("Hand", self.run_program("napictl", "--backend", "networkmanager", "list").stdout)
        self.assertNotIn("Hand", self.run_program("napictl", "list").stdout)
        get = ["get", CONN + "/Hand/Addr"]
        self.assertEqual(self.run_program("dmclient", "--backend", "networkmanager", *get).stdout,
                         "hand.apn\n")
        self.run_program("dmclient", *get, expected=FAILED)

    def test_the_option_goes_before_the_environment(self):
        self.add_connection("apn", "hand.apn")
        listed = self.run_program("napictl", "--backend", "sqlite", "list",
                                  KUB_NAPI_BACKEND="networkmanager").stdout
        self.assertNotIn("Hand", listed)
        listed = self.run_program("napictl", "list", KUB_NAPI_BACKEND="networkmanager").stdout
        self.assertIn("Hand", listed)

    def test_a_server_changes_the_connection_of_a_person(self):
        self.add_connection("apn", "hand.apn", "gsm.pin", "1234")
        self.run_program("dmclient", "--backend", "networkmanager", "replace", CONN + "/Hand",
                         "Addr=new.apn", "DNS1=10.0.0.1")
        self.assertEqual(self.shown("Hand", "gsm.apn"), "new.apn")
        self.assertEqual(self.shown("Hand", "ipv4.dns"), "10.0.0.1")
        self.assertEqual(self.shown("Hand", "gsm.pin"), "1234")

    def test_a_refused_value_is_named(self):
        self.add_connection("apn", "hand.apn")
        result = self.run_program("napictl", "--backend", "networkmanager", "set", "Hand",
                                  "gprs.address=two words", expected=FAILED)
        self.assertIn("gprs.address is refused: gsm.apn", result.stderr)
        self.assertEqual(self.shown("Hand", "gsm.apn"), "hand.apn")

    def test_networkmanagers_own_reason_stands_after_the_status_of_a_command(self):
        self.add_connection("apn", "hand.apn")
        result = self.run_program("dmclient", "--backend", "networkmanager", "replace",
                                  CONN + "/Hand/Addr", "two words", expected=FAILED)
        self.assertIn("500 Command Failed: NetworkManager: gprs.address is refused: gsm.apn: 'two words' ",
                      result.stderr)
        self.assertEqual(result.stderr.count("gsm.apn"), 1, result.stderr)
        self.assertEqual(self.shown("Hand", "gsm.apn"), "hand.apn")

    def client(self, *words, stdin=None, expected=OK):
        result = self.handset.run("dmclient", "--backend", "networkmanager", *words, stdin=stdin)
        self.assertEqual(result.returncode, expected, result.stdout + result.stderr)
        self.assertEqual([name for name in os.listdir(self.handset.client_file("")) if "scratch" in name], [])
        return (result.stdout + result.stderr).splitlines()

    def test_properties_follow_the_connection_that_nmcli_renames(self):
        self.add_connection("apn", "hand.apn")
        hand, team = CONN + "/Hand", CONN + "/Team"
        self.client("replace", hand + "?prop=ACL", "Get=*")
        self.client("replace", hand + "?prop=Title", "Ours")
        self.nmcli("connection", "modify", "Hand", "connection.id", "Team")
        self.add_connection("apn", "another.apn")
        self.assertEqual(self.client("get", team + "/Addr"), ["hand.apn"])
        self.assertEqual(self.client("get", team, "--prop", "ACL"), ["Get=*"])
        self.assertEqual(self.client("get", team, "--prop", "Title"), ["Ours"])
        self.assertEqual(self.client("get", hand + "/Addr"), ["another.apn"])
        self.assertNotEqual(self.client("get", hand, "--prop", "ACL"), ["Get=*"])
        self.assertEqual(self.client("get", hand, "--prop", "Title"), [""])

    def test_the_maximum_is_kept_with_the_connections(self):
        self.add_connection("apn", "hand.apn")
        create = ["napictl", "--backend", "networkmanager", "create"]
        self.run_program(*create, "Second", KUB_NAPI_MAX="2")
        full = self.run_program(*create, "Third", expected=FAILED)
        self.assertIn("the profile store is full", full.stderr)
        self.run_program("napictl", "create", "Third")  # the other store has its own
        self.run_program(*create, "Third", KUB_NAPI_MAX="3")

    def test_what_the_next_mount_says_is_told_after_the_run(self):
        self.add_connection("apn", "hand.apn", "ipv4.dns", "10.0.0.1")
        hand = CONN + "/Hand"
        for words, told in (
                (["replace", hand + "/Addr", "new.apn"], None),
                (["replace", hand + "/DNS1", "300.1.1.1"], "reads 10.0.0.1 at the next mount"),
                (["replace", hand + "/Linger", "70000"], "reads 4464 at the next mount"),
                (["add", hand + "/Foo", "x"], "gone at the next mount: a profile has no such node"),
                (["add", CONN + "/Empty"], "gone at the next mount: no leaf of the profile is set, and it still "
                                           "counts among the profiles that can be stored"),
                (["rename", hand, "Team"], "Hand again at the next mount"),
                (["delete", hand], None)):
            with self.subTest(words):
                lines = [f"dmclient: {words[0]} {words[1]}: 200 OK, but {told}"] if told else []
                self.assertEqual(self.client(*words), lines)

    def test_the_next_mount_is_told_of_all_lines_of_a_shell(self):
        self.add_connection("apn", "hand.apn")
        hand = CONN + "/Hand"
        lines = (f"replace {hand}/Linger 70000\nreplace {hand}/Linger 7\nrename {hand} Team\n"
                 f"replace {CONN}/Team/Linger 65537\n")
        self.assertEqual(self.client("shell", stdin=lines), [
            f"replace {hand}/Linger: 200 OK", f"replace {hand}/Linger: 200 OK", f"rename {hand}: 200 OK",
            f"replace {CONN}/Team/Linger: 200 OK",
            f"Replace {hand}?prop=Name: 200 OK, but Hand again at the next mount",
            f"Replace {CONN}/Team/Linger: 200 OK, but reads 1 at the next mount"])
        self.client("--strict", "shell", stdin=lines, expected=DIFFERENT)

    def test_a_daemon_that_is_gone_leaves_the_answer_and_is_told(self):
        self.add_connection("apn", "hand.apn")
        shell = subprocess.Popen([*PROGRAMS["dmclient"], "--backend", "networkmanager", "shell"], text=True,
                                 bufsize=1, env=self.handset.environment(), stdin=subprocess.PIPE,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        shell.stdin.write(f"replace {CONN}/Hand/Linger 70000\n")
        self.assertEqual(shell.stdout.readline(), f"replace {CONN}/Hand/Linger: 200 OK\n")
        subprocess.run([os.environ["PRIVATE_NETWORKMANAGER"], "stop"], check=True)
        try:
            said, _ = shell.communicate(timeout=120)
        finally:
            subprocess.run([os.environ["PRIVATE_NETWORKMANAGER"], "start"], check=True)
        self.assertEqual(shell.returncode, OK, said)
        self.assertRegex(said, r"^no second look: .*did not mount")

    def test_profiles_can_be_carried_from_one_store_to_the_other(self):
        self.run_program("napictl", "create", "Office", "gprs.address=office.apn",
                         "gprs.authPassword=secret", "csd.address=+4930", "csd.speed=9600",
                         "proxy1.address=proxy.example", "proxy1.port=8080", "editable=false")
        exported = self.run_program("napictl", "export", "--show-secrets").stdout
        file = os.path.join(self.handset.home, "profiles.json")
        with open(file, "w", encoding="utf-8") as output:
            output.write(exported)
        self.run_program("napictl", "--backend", "networkmanager", "import", file)
        self.assertEqual(self.shown("Office", "gsm.password"), "secret")
        self.assertEqual(
            self.run_program("napictl", "--backend", "networkmanager", "export", "--show-secrets").stdout,
            exported)
        self.run_program("napictl", "--backend", "networkmanager", "check")

    def napictl(self, *words, stdin=None, expected=OK):
        result = self.handset.run("napictl", "--backend", "networkmanager", *words, stdin=stdin)
        self.assertEqual(result.returncode, expected, result.stdout + result.stderr)
        return result

    def connections(self):
        return sorted(self.nmcli("-g", "name", "connection", "show").split())

    def test_a_clone_is_a_connection_with_what_the_profile_has(self):
        self.add_connection("apn", "hand.apn", "gsm.password", "secret", "ipv4.dns", "10.0.0.1", "gsm.pin", "1234")
        self.napictl("set", "Hand", "csd.address=+4930", "csd.authPassword=other")
        self.napictl("clone", "Hand", "Copy")
        self.assertEqual(self.shown("Copy", "gsm.pin,gsm.password,gsm.apn,ipv4.dns").split("\n"),
                         ["", "secret", "hand.apn", "10.0.0.1"])
        hand, copy = json.loads(self.napictl("show", "Hand", "Copy", "--json", "--show-secrets").stdout)
        self.assertEqual(copy, {**hand, "name": "Copy"})
        self.assertEqual(len(set(self.nmcli("-g", "uuid", "connection", "show").split())), 2)

    def test_diff_and_import_compare_a_file_with_the_connections(self):
        self.add_connection("apn", "hand.apn", "gsm.password", "secret", "gsm.pin", "1234")
        exported = self.napictl("export", "--show-secrets").stdout
        self.assertEqual(self.napictl("diff", "-", stdin=exported).stdout, "")
        self.nmcli("connection", "modify", "Hand", "gsm.apn", "new.apn", "gsm.password", "another",
                   "gsm.pin", "1234")  # nmcli drops the secrets that it is not given when it is given one
        self.nmcli("connection", "clone", "Hand", "Late")
        self.assertEqual(self.napictl("diff", "-", stdin=exported, expected=DIFFERENT).stdout,
                         "Only in the store: Late\nHand:\n- gprs.address=new.apn\n+ gprs.address=hand.apn\n"
                         "- gprs.authPassword=********\n+ gprs.authPassword=******** (changed)\n")
        lines = "replace Hand\nremove Late\n"
        self.assertEqual(self.napictl("import", "-", "--replace", "--prune", "--dry-run", stdin=exported).stdout, lines)
        self.assertEqual(self.nmcli("-g", "gsm.apn", "connection", "show", "Hand"), "new.apn")
        self.assertEqual(self.connections(), ["Hand", "Late"])
        self.assertEqual(self.napictl("import", "-", "--replace", "--prune", stdin=exported).stdout, lines)
        self.assertEqual(self.shown("Hand", "gsm.pin,gsm.password,gsm.apn").split(), ["1234", "secret", "hand.apn"])
        self.assertEqual(self.connections(), ["Hand"])

    def test_an_import_stops_at_a_value_that_is_refused(self):
        self.add_connection("apn", "hand.apn")
        profiles = [{"name": name, "gprs": {"address": address}}
                    for name, address in (("First", "first.apn"), ("Web", "two words"), ("Last", "last.apn"))]
        result = self.napictl("import", "-", "--prune", stdin=json.dumps(profiles), expected=FAILED)
        self.assertEqual(result.stdout, "create First\n")
        self.assertIn("napictl: stopped at Web, after 1 of 4 profiles; ", result.stderr)
        self.assertEqual(self.connections(), ["First", "Hand"])

    def test_a_pattern_deletes_no_connection_of_another_type(self):
        self.nmcli("connection", "add", "type", "ethernet", "con-name", "Hardwired", "ifname", "x0")
        for name in ("Hand", "Heart", "Team"):
            self.napictl("create", name, "gprs.address=x.apn")
        self.napictl("delete", "H*", "Hardwired", expected=FAILED)
        self.assertEqual(self.connections(), ["Hand", "Hardwired", "Heart", "Team"])
        self.napictl("delete", "H*")
        self.assertEqual(self.connections(), ["Hardwired", "Team"])

    def test_the_map_of_a_connection_masks_its_password(self):
        self.add_connection("apn", "hand.apn", "gsm.password", "secret")
        raw = self.napictl("show", "Hand", "--raw").stdout
        self.assertIn("gprsAddress       68 61 6e 64 2e 61 70 6e  hand.apn\n", raw)
        self.assertIn("gprsAuthPassword  masked                   ********\n", raw)
        self.assertIn("73 65 63 72 65 74 00 00  secret..\n",
                      self.napictl("show", "Hand", "--raw", "--show-secrets").stdout)

    def test_monitor_tells_what_nmcli_does(self):
        self.add_connection("apn", "hand.apn")
        with subprocess.Popen([*PROGRAMS["napictl"], "--backend", "networkmanager", "monitor"], text=True,
                              env=self.handset.environment(), stdout=subprocess.PIPE) as monitor:
            self.addCleanup(monitor.kill)
            changes = 0
            while not select.select([monitor.stdout], [], [], 0.1)[0]:  # nothing is told of what is before it
                changes += 1
                self.nmcli("connection", "modify", "Hand", "gsm.apn", f"{changes}.apn")
            self.assertEqual(monitor.stdout.readline(), "changed Hand, ID 1: gprs.address\n")
            monitor.kill()

    def test_an_access_point_that_is_refused_does_not_keep_the_others_out(self):
        file = os.path.join(self.handset.home, "providers.xml")
        providers = "".join(
            f"<provider><name>{name}</name><gsm><apn value='{apn}'/></gsm></provider>"
            for name, apn in (("First", "first.apn"), ("Web", "http://apn"), ("Last", "last.apn")))
        with open(file, "w", encoding="utf-8") as output:
            output.write(f"<serviceproviders format='2.0'><country code='xx'>{providers}</country>"
                         "</serviceproviders>")
        result = self.run_program("napictl", "--backend", "networkmanager", "provision", "--country", "xx",
                                  "--database", file, expected=FAILED)
        self.assertEqual(result.stdout, "Stored: 2, already there: 0\n")
        self.assertIn("Web: the profile store does not take a value of it", result.stderr)
        self.assertEqual(self.shown("Last", "gsm.apn"), "last.apn")

    def test_without_the_daemon_the_store_is_unusable(self):
        subprocess.run([os.environ["PRIVATE_NETWORKMANAGER"], "stop"], check=True)
        try:
            result = self.run_program("napictl", "--backend", "networkmanager", "list",
                                      expected=UNUSABLE)
            self.assertIn("NetworkManager is not running", result.stderr)
            result = self.run_program("dmclient", "--backend", "networkmanager", "tree",
                                      expected=UNUSABLE)
            self.assertIn("NetworkManager is not running", result.stderr)
        finally:
            subprocess.run([os.environ["PRIVATE_NETWORKMANAGER"], "start"], check=True)

    def test_an_unknown_backend_is_wrong_usage(self):
        for program in ("napictl", "dmclient"):
            result = self.run_program(program, "--backend", "paper", "list", expected=USAGE)
            self.assertIn("sqlite or networkmanager", result.stderr)
        result = self.run_program("napictl", "list", expected=UNUSABLE, KUB_NAPI_BACKEND="paper")
        self.assertIn("KUB_NAPI_BACKEND is 'paper', it can be sqlite or networkmanager", result.stderr)


if __name__ == "__main__":
    unittest.main()

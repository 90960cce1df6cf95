"""napictl from end to end: every command, every exit status, on a store of its own for each test."""

import json
import os
import pty
import re
import select
import signal
import sqlite3
import subprocess
import time
import unittest

from handset import NAPICTL, SECRET, HandsetTest
from terminal import Terminal

MANUAL = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..", "docs", "man",
                      "napictl.1")
DATABASE = "/usr/share/mobile-broadband-provider-info/serviceproviders.xml"

OK, FAILED, USAGE, UNUSABLE, DIFFERENT = 0, 1, 2, 3, 5

OFFICE = {
    "name": "Office",
    "editable": True,
    "gprs": {"address": "internet", "authId": "u", "authPassword": SECRET, "dns1": "10.0.0.1",
             "dns2": "0.0.0.0", "linger": 30},
    "csd": {"address": "+491720000", "authId": "", "authPassword": "", "dns1": "0.0.0.0",
            "dns2": "0.0.0.0", "linger": 0, "lineType": "Isdn", "speed": 9600},
    "csd2": {},
    "proxy1": {"address": "proxy.example", "port": 8080},
    "proxy2": {},
}
OFFICE_FIELDS = [
    "gprs.address=internet", "gprs.authId=u", "gprs.authPassword=" + SECRET, "gprs.dns1=10.0.0.1",
    "gprs.linger=30", "csd.address=+491720000", "csd.lineType=Isdn", "csd.speed=9600",
    "proxy1.address=proxy.example", "proxy1.port=8080",
]


class NapictlTest(HandsetTest):
    PROFILES = []

    def setUp(self):
        super().setUp()
        self.directory = self.handset.home
        self.state = self.handset.state
        self.store = self.handset.path("profiles.db")

    def run_napictl(self, *arguments, state=None, stdin=None, maximum=None, **options):
        if state:
            options["KUB_STATE_DIR"] = state
        if maximum:
            options["KUB_NAPI_MAX"] = str(maximum)
        return self.handset.run("napictl", *arguments, stdin=stdin, **options)

    def napictl(self, *arguments, **options):
        """Runs a command that has to succeed in silence; returns what it printed."""
        result = self.run_napictl(*arguments, **options)
        self.assertEqual((result.returncode, result.stderr), (OK, ""))
        return result.stdout

    def refused(self, status, *arguments, says=(), **options):
        """Runs a command that has to fail with that status and name all of what it is about."""
        result = self.run_napictl(*arguments, **options)
        self.assertEqual(result.returncode, status, result)
        for part in says:
            self.assertIn(part, result.stderr)
        self.assertNotIn(SECRET, result.stdout + result.stderr)
        return result

    def show(self, name, **options):
        return json.loads(self.napictl("show", name, "--json", "--show-secrets", **options))

    def export(self, **options):
        return json.loads(self.napictl("export", "--show-secrets", **options))

    def names(self, **options):
        return [profile["name"] for profile in self.export(**options)]

    def write(self, name, content):
        path = os.path.join(self.directory, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(content if isinstance(content, str) else json.dumps(content))
        return path


class ProfilesTest(NapictlTest):
    def test_created_profile_is_shown_as_json(self):
        self.assertEqual(self.napictl("create", "Office", *OFFICE_FIELDS), "")
        self.assertEqual(self.show("Office"), OFFICE)

    def test_json_of_a_profile_has_its_parts_in_the_documented_order(self):
        self.napictl("create", "Office", *OFFICE_FIELDS)
        shown = json.loads(self.napictl("show", "Office", "--json"))
        self.assertEqual(list(shown), list(OFFICE))
        for part in ("gprs", "csd", "proxy1"):
            self.assertEqual(list(shown[part]), list(OFFICE[part]))

    def test_profile_is_shown_to_people_with_its_password_masked(self):
        self.napictl("create", "Office", *OFFICE_FIELDS)
        shown = self.napictl("show", "Office")
        for line in ("name            Office", "id              1", "editable        yes",
                     "gprs: packet data (GSM-GPRS)", "  address       internet",
                     "  authPassword  ********", "  linger        30 s", "  speed         9600 bit/s",
                     "  lineType      Isdn", "  port          8080"):
            self.assertIn(line + "\n", shown)
        self.assertNotIn(SECRET, shown)
        self.assertNotIn("csd2", shown)
        self.assertNotIn("proxy2", shown)

    def test_secrets_are_shown_only_on_request(self):
        self.napictl("create", "Office", *OFFICE_FIELDS)
        for command in (["show", "Office"], ["show", "Office", "--json"], ["export"], ["list"]):
            self.assertNotIn(SECRET, self.napictl(*command))
            if command != ["list"]:
                self.assertIn(SECRET, self.napictl(*command, "--show-secrets"))

    def test_empty_password_is_not_masked(self):
        self.napictl("create", "Office", "gprs.address=internet")
        self.assertEqual(json.loads(self.napictl("show", "Office", "--json"))["gprs"]["authPassword"],
                         "")
        self.assertNotIn("***", self.napictl("show", "Office"))

    def test_list_as_json_has_an_object_a_profile(self):
        self.assertEqual(json.loads(self.napictl("list", "--json")), [])
        self.napictl("create", "Zebra", "csd2.address=1", "proxy2.address=p")
        self.napictl("create", "همراه اول", "gprs.address=mcinet",
                     f"gprs.authPassword={SECRET}")
        self.napictl("create", "nothing in it")
        listed = self.napictl("list", "--json")
        self.assertEqual(json.loads(listed), [
            {"id": 1, "name": "Zebra", "parts": ["csd2", "proxy2"]},
            {"id": 2, "name": "همراه اول", "parts": ["gprs"]},
            {"id": 3, "name": "nothing in it", "parts": []}])
        self.assertNotIn(SECRET, listed)

    def test_list_shows_ids_and_parts_in_order(self):
        self.assertEqual(self.napictl("list").splitlines()[1:], [])
        self.napictl("create", "Zebra", "csd2.address=1", "proxy2.address=p")
        self.napictl("create", "همراه اول", "gprs.address=mcinet")
        self.napictl("create", "nothing in it")
        rows = [line.split(None, 2) for line in self.napictl("list").splitlines()]
        self.assertEqual(rows, [["ID", "PARTS", "NAME"], ["1", "csd2,proxy2", "Zebra"],
                                ["2", "gprs", "همراه اول"], ["3", "-", "nothing in it"]])

    def test_set_changes_the_named_fields_only(self):
        self.napictl("create", "Office", *OFFICE_FIELDS)
        self.napictl("set", "Office", "gprs.address=other", "editable=false", "csd.speed=14400")
        expected = json.loads(json.dumps(OFFICE))
        expected["gprs"]["address"] = "other"
        expected["editable"] = False
        expected["csd"]["speed"] = 14400
        self.assertEqual(self.show("Office"), expected)

    def test_set_keeps_bytes_that_no_field_names(self):
        self.napictl("create", "Office", "gprs.address=internet")
        pattern = bytearray(range(256)) * 4 + bytearray(144)
        with sqlite3.connect(self.store) as database:
            database.execute("UPDATE profile SET record = ?", (bytes(pattern),))
        database.close()
        self.napictl("set", "Office", "gprs.linger=258")
        pattern[0x140:0x142] = b"\x02\x01"
        with sqlite3.connect(self.store) as database:
            self.assertEqual(database.execute("SELECT record FROM profile").fetchone()[0], pattern)
        database.close()

    def test_a_record_that_is_created_says_so(self):
        self.napictl("create", "Office")
        with sqlite3.connect(self.store) as database:
            record = database.execute("SELECT record FROM profile").fetchone()[0]
        database.close()
        self.assertEqual(record, b"\0\1" + bytes(1166))

    def test_set_changes_all_or_nothing(self):
        self.napictl("create", "Office", *OFFICE_FIELDS)
        self.refused(FAILED, "set", "Office", "gprs.address=other", "gprs.dns1=1.2.3",
                     says=["Office: gprs.dns1:", "IPv4"])
        self.assertEqual(self.show("Office"), OFFICE)

    def test_refused_values_are_named(self):
        cases = [
            ("gprs.linger=65536", "65535"), ("gprs.linger=", "65535"), ("gprs.linger=-1", "65535"),
            ("gprs.linger=+1", "65535"), ("gprs.linger=1 ", "65535"), ("proxy1.port=http", "65535"),
            ("proxy2.port=99999999999", "65535"),
            ("gprs.dns1=256.0.0.1", "IPv4"), ("gprs.dns1=1.2.3.4 ", "IPv4"), ("gprs.dns2=::1", "IPv4"),
            ("csd.dns1=1", "IPv4"), ("csd2.dns2=0x7f.0.0.1", "IPv4"), ("gprs.dns1=", "IPv4"),
            ("csd.speed=1200", "14400"), ("csd.lineType=isdn", "V.110"), ("editable=maybe", "true"),
            ("csd.lineType=Isdn", "speed"),
            ("gprs.address=" + "x" * 101, "101 bytes long, at most 100"),
            ("csd.authId=" + "é" * 33, "66 bytes long, at most 64"),
            ("csd2.address=" + "1" * 45, "45 bytes long, at most 44"),
        ]
        self.napictl("create", "Office")
        for assignment, reason in cases:
            with self.subTest(assignment):
                self.refused(FAILED, "set", "Office", assignment,
                             says=[assignment.split("=")[0] + ": ", reason])
        self.assertEqual(self.show("Office")["gprs"], {})

    def test_text_may_fill_its_array(self):
        self.napictl("create", "Office", "csd.address=" + "1" * 44, "csd.authId=" + "é" * 32)
        self.assertEqual(self.show("Office")["csd"]["address"], "1" * 44)
        self.assertEqual(self.show("Office")["csd"]["authId"], "é" * 32)

    def test_line_type_goes_with_the_speed_in_either_order(self):
        self.napictl("create", "one", "csd.lineType=Isdn", "csd.speed=4800", "csd2.speed=2400",
                     "csd2.lineType=Isdn")
        shown = self.show("one")
        self.assertEqual((shown["csd"]["lineType"], shown["csd"]["speed"]), ("Isdn", 4800))
        self.assertEqual((shown["csd2"]["lineType"], shown["csd2"]["speed"]), ("Isdn", 2400))
        self.napictl("set", "one", "csd.speed=14400")
        self.assertEqual(self.show("one")["csd"]["lineType"], "Isdn")
        self.napictl("set", "one", "csd.lineType=V.110")
        self.assertEqual(self.show("one")["csd"]["lineType"], "ANALOG-MODEM")
        self.assertEqual(self.show("one")["csd"]["speed"], 14400)

    def test_secrets_stay_out_of_messages(self):
        self.napictl("create", "Office")
        long_secret = SECRET * 20
        self.refused(FAILED, "set", "Office", "gprs.authPassword=" + long_secret,
                     says=["gprs.authPassword", "220", "100"])
        self.refused(USAGE, "set", "Office", "gprs.authPassword", SECRET, says=["argument 1"])
        self.refused(USAGE, "set", "Office", "gprs.authPasword=" + SECRET, says=["gprs.authPasword"])
        profile = {"name": "x", "gprs": {"authPassword": [SECRET]}}
        self.refused(USAGE, "import", "-", stdin=json.dumps(profile), says=["gprs.authPassword"])
        profile = {"name": "x", "gprs": {"authPassword": long_secret}}
        self.refused(FAILED, "import", "-", stdin=json.dumps(profile), says=["gprs.authPassword"])

    def test_control_characters_do_not_reach_the_terminal(self):
        self.napictl("create", "a\x1b[2Jb", "gprs.address=\x07\x9b")
        for command in (["list"], ["show", "a\x1b[2Jb"]):
            shown = self.napictl(*command)
            self.assertIn("a\\x1b[2Jb", shown)
            self.assertEqual(re.findall(r"[\x00-\x09\x0b-\x1f\x7f-\x9f]", shown), [])
        self.assertNotIn("\x1b", self.refused(FAILED, "delete", "\x1b[2J").stderr)

    def test_names_are_taken_literally(self):
        names = ["-dash", "a~b", "a=b", " ", "%41", "x" * 63, "é" * 31]
        for name in names:
            self.napictl("create", "--", name)
        self.assertEqual(self.names(), names)
        self.napictl("delete", "--", *names)
        self.assertEqual(self.names(), [])

    def test_bad_names_are_refused(self):
        for name in ("", "x" * 64, "é" * 32):
            self.refused(FAILED, "create", name, says=["63 bytes"])
        for name in ("/", "Office/Home", ".", "..", "*"):
            profile = json.dumps({"name": name})
            refusal = (f"napictl: {name}: a name has 1 to 63 bytes of UTF-8 and no slash, and is "
                       "not . or .. or *")
            self.refused(FAILED, "create", name, says=[refusal])
            self.refused(FAILED, "import", "-", stdin=profile, says=[refusal])
            self.refused(FAILED, "import", "--replace", "-", stdin=profile, says=[refusal])
        self.assertEqual(self.names(), [])

    def test_unknown_and_taken_names_are_refused(self):
        self.napictl("create", "Office")
        self.refused(FAILED, "create", "Office", says=["Office: there is a profile"])
        self.refused(FAILED, "show", "Home", says=["Home: there is no such profile"])
        self.refused(FAILED, "set", "Home", "editable=true", says=["Home: there is no such profile"])

    def test_full_store_refuses(self):
        self.napictl("create", "one", maximum=1)
        self.refused(FAILED, "create", "two", maximum=1, says=["two: the profile store is full"])


class TransferTest(NapictlTest):
    def test_export_with_secrets_imports_into_another_store_without_loss(self):
        other = os.path.join(self.directory, "other")
        self.napictl("create", "Office", *OFFICE_FIELDS)
        self.napictl("create", "Vidéotron \U0001f4f1", "editable=false", "gprs.address=a\"b\\c\td",
                     "csd2.address=1", "csd2.speed=2400", "proxy2.address=p", "proxy2.port=65535")
        exported = self.napictl("export", "--show-secrets")
        self.assertEqual(self.napictl("import", "-", stdin=exported, state=other),
                         "create Office\ncreate Vidéotron \U0001f4f1\n")
        self.assertEqual(self.napictl("export", "--show-secrets", state=other), exported)

    def test_one_profile_or_an_array_is_imported(self):
        self.napictl("import", self.write("one.json", OFFICE))
        self.napictl("import", self.write("two.json", [{"name": "a"}, {"name": "b"}]))
        self.assertEqual(self.names(), ["Office", "a", "b"])
        self.assertEqual(self.show("Office"), OFFICE)
        self.napictl("import", self.write("none.json", []))

    def test_missing_fields_have_the_values_of_a_new_profile(self):
        self.napictl("import", self.write("one.json", {"name": "a", "gprs": {"address": "x"}}))
        self.napictl("create", "b", "gprs.address=x")
        one, other = self.show("a"), self.show("b")
        del one["name"], other["name"]
        self.assertEqual(one, other)

    def test_import_of_a_taken_name_changes_nothing(self):
        self.napictl("create", "Office")
        file = self.write("some.json", [{"name": "new"}, OFFICE])
        self.refused(FAILED, "import", file, says=["Office: there is a profile", "--replace"])
        self.assertEqual(self.names(), ["Office"])

    def test_replace_overwrites_and_keeps_the_id(self):
        self.napictl("create", "Office", "gprs.address=old", "gprs.authId=old", "editable=false",
                     "csd2.address=old", "csd2.speed=2400")
        before = self.napictl("list").split()[3]
        self.napictl("import", "--replace", self.write("one.json", [OFFICE, {"name": "new"}]))
        self.assertEqual(self.show("Office"), OFFICE)
        self.assertEqual(self.napictl("list").split()[3], before)
        self.assertEqual(self.names(), ["Office", "new"])

    def test_masked_export_is_refused_for_a_new_profile(self):
        self.napictl("create", "Office", *OFFICE_FIELDS)
        masked = self.napictl("export")
        self.refused(FAILED, "import", "-", stdin=masked, state=os.path.join(self.directory, "b"),
                     says=["Office: gprs.authPassword", "--show-secrets"])

    def test_masked_export_keeps_the_stored_password_on_replace(self):
        self.napictl("create", "Office", *OFFICE_FIELDS)
        masked = self.napictl("export").replace("internet", "changed")
        self.napictl("import", "--replace", "-", stdin=masked)
        self.assertEqual(self.show("Office")["gprs"]["authPassword"], SECRET)
        self.assertEqual(self.show("Office")["gprs"]["address"], "changed")

    def test_faulty_files_are_refused_with_place_and_reason(self):
        cases = [
            ("", ["line 1", "JSON"]),
            ("[\n{\"name\": \"a\"},\n{\"name\" \"b\"}]", ["line 3", "JSON"]),
            ("{\"name\": \"a\"} x", ["JSON"]),
            ("[[" * 5000, ["JSON"]),
            ([{"name": "a"}, 5], ["profile 2: expected an object"]),
            ({"gprs": {}}, ["profile 1", "name"]),
            ({"name": 5}, ["profile 1", "name"]),
            ([{"name": "a"}, {"name": "a"}], ["profile 2 (a)", "twice"]),
            ({"name": "a", "gprs": {"adress": "x"}}, ["gprs.adress: there is no such field"]),
            ({"name": "a", "gprs.address": "x"}, ["gprs.address"]),
            ({"name": "a", "color": "x"}, ["color: there is no such field"]),
            ({"name": "a", "gprs": []}, ["gprs: expected an object"]),
            ({"name": "a", "editable": "yes"}, ["editable: expected true or false"]),
            ({"name": "a", "gprs": {"linger": "30"}}, ["gprs.linger: expected a whole number"]),
            ({"name": "a", "gprs": {"linger": 1.5}}, ["gprs.linger: expected a whole number"]),
            ({"name": "a", "proxy1": {"port": 1e30}}, ["proxy1.port"]),
            ({"name": "a", "gprs": {"dns1": 1}}, ["gprs.dns1: expected a text"]),
            ({"name": "a", "gprs": {"address": None}}, ["gprs.address: expected a text"]),
        ]
        for content, reasons in cases:
            with self.subTest(content=str(content)[:60]):
                result = self.refused(USAGE, "import", self.write("bad.json", content), says=reasons)
                self.assertEqual(result.stdout, "")
        self.assertEqual(self.names(), [])

    def test_profiles_of_a_file_that_the_store_would_not_take_are_named(self):
        cases = [
            ({"name": "a", "gprs": {"linger": 65536}}, ["a: gprs.linger", "65535"]),
            ({"name": "a", "csd": {"speed": 1200}}, ["a: csd.speed"]),
            ({"name": "a", "gprs": {"address": "a\0b"}}, ["gprs.address", "NUL"]),
            ({"name": "a", "gprs": {"address": "\ud800"}}, ["gprs.address"]),
            ({"name": "a\0b"}, ["63 bytes"]),
            ({"name": ""}, ["63 bytes"]),
            ([{"name": "fine"}, {"name": "x" * 64}], ["63 bytes"]),
        ]
        for content, reasons in cases:
            with self.subTest(content=str(content)[:60]):
                self.refused(FAILED, "import", self.write("bad.json", content), says=reasons)
        self.assertEqual(self.names(), [])

    def test_unreadable_files_are_refused(self):
        missing = os.path.join(self.directory, "missing.json")
        self.refused(USAGE, "import", missing, says=[f"cannot read {missing}: No such file"])
        self.refused(USAGE, "import", self.directory, says=[self.directory])

    def test_import_that_does_not_fit_stores_nothing(self):
        file = self.write("three.json", [{"name": str(number)} for number in range(3)])
        self.refused(FAILED, "import", file, maximum=2, says=["3 new profiles do not fit"])
        self.assertEqual(self.names(), [])

    def test_record_that_json_cannot_hold_is_not_exported(self):
        self.napictl("create", "Office")
        with sqlite3.connect(self.store) as database:
            record = bytearray(database.execute("SELECT record FROM profile").fetchone()[0])
            record[8:10] = b"\xff\xfe"
            database.execute("UPDATE profile SET record = ?", (bytes(record),))
        database.close()
        result = self.refused(FAILED, "export", says=["Office", "gprs.address", "UTF-8"])
        self.assertEqual(result.stdout, "")


class ProvisionTest(NapictlTest):
    def setUp(self):
        super().setUp()
        if not os.path.exists(DATABASE):
            self.skipTest("the package mobile-broadband-provider-info is not installed")

    def small_database(self, *providers):
        body = "".join(f"<provider>{provider}</provider>" for provider in providers)
        return self.write("small.xml", "<?xml version='1.0'?><serviceproviders format='2.0'>"
                          f"<country code='aq'>{body}</country></serviceproviders>")

    def provision(self, *providers, arguments=("--country", "aq"), **options):
        return self.napictl("provision", *arguments, "--database", self.small_database(*providers),
                            **options)

    def test_every_access_point_of_the_real_database_is_stored(self):
        output = self.napictl("provision", "--all", maximum=2000)
        self.assertEqual(output, "Stored: 1304, already there: 0\n")
        profiles = self.export()
        self.assertEqual(len(profiles), 1304)
        self.assertTrue(all(1 <= len(profile["name"].encode()) <= 63 for profile in profiles))
        self.assertEqual(len({profile["gprs"]["address"] for profile in profiles}), 921)
        for count, part, field, empty in (
                (458, "gprs", "authId", ""), (439, "gprs", "authPassword", ""),
                (241, "gprs", "dns1", "0.0.0.0"), (210, "gprs", "dns2", "0.0.0.0"),
                (312, "proxy1", "address", None)):
            found = sum(1 for profile in profiles if profile[part].get(field, empty) not in (empty, ""))
            self.assertEqual((part, field, found), (part, field, count))
        self.assertEqual(self.napictl("check"), "Profiles: 1304, faults: 0\n")
        again = self.napictl("provision", "--all", maximum=2000)
        self.assertEqual(again, "Stored: 0, already there: 1304\n")

    def test_country_gives_one_profile_for_each_operator(self):
        self.napictl("provision", "--country", "DE")
        names = self.names()
        self.assertIn("Vodafone", names)
        self.assertIn("O2", names)
        self.assertEqual(self.show("Congstar")["gprs"]["address"], "internet.t-mobile")
        self.assertEqual(len(names), len(set(names)))

    def test_provider_is_found_by_a_part_of_its_name(self):
        self.napictl("provision", "--country", "ca", "--provider", "VIDÉO")
        self.assertEqual(self.names(), ["Vidéotron"])

    def test_slash_in_a_published_name_becomes_a_hyphen(self):
        self.provision("<name>A1/Telekom</name><gsm><apn value='i'><usage type='internet'/></apn></gsm>")
        self.assertEqual(self.names(), ["A1-Telekom"])

    def test_more_than_the_maximum_is_not_begun(self):
        self.refused(FAILED, "provision", "--all", says=["1304 new profiles do not fit", "127"])
        self.assertEqual(self.names(), [])

    def test_access_point_for_the_internet_is_preferred(self):
        self.provision("<name>A</name><gsm><apn value='m'><usage type='mms'/></apn>"
                       "<apn value='i'><usage type='internet'/></apn>"
                       "<apn value='j'><usage type='internet'/></apn></gsm>",
                       "<name>B</name><gsm><apn value='m'><usage type='mms'/></apn>"
                       "<apn value='w'><usage type='wap'/></apn></gsm>",
                       "<name>C</name><cdma/>")
        self.assertEqual([(p["name"], p["gprs"]["address"]) for p in self.export()],
                         [("A", "i"), ("B", "m")])

    def test_everything_of_an_access_point_is_taken_over(self):
        self.provision("<name>A</name><gsm><apn value=' i '><name>N</name><username>u</username>"
                       f"<password>{SECRET}</password><dns>10.0.0.1</dns><dns>10.0.0.2</dns>"
                       "<dns>10.0.0.3</dns><mmsproxy>host:81</mmsproxy></apn></gsm>",
                       "<name>B</name><gsm><apn value='b'><mmsproxy>10.1.1.1</mmsproxy></apn></gsm>")
        profile = self.show("A")
        self.assertEqual(profile["gprs"], {"address": "i", "authId": "u", "authPassword": SECRET,
                                           "dns1": "10.0.0.1", "dns2": "10.0.0.2", "linger": 0})
        self.assertEqual(profile["proxy1"], {"address": "host", "port": 81})
        self.assertEqual(self.show("B")["proxy1"], {"address": "10.1.1.1", "port": 0})

    def test_names_are_made_unique(self):
        one = "<gsm><apn value='a'/></gsm>"
        several = ("<gsm><apn value='a'><name>MMS</name></apn><apn value='b'><name>MMS</name></apn>"
                   "<apn value='c'/><apn value='d'><name>beta extra</name></apn></gsm>")
        self.napictl("create", "Alpha", "gprs.address=mine")
        self.provision("<name>Alpha</name>" + one, "<name>Beta</name>" + several,
                       "<name>Gamma\n\t Delta</name>" + one, "<name>Alpha</name>" + several,
                       arguments=["--all"])
        self.assertEqual(self.names(), [
            "Alpha", "Alpha a", "Beta MMS", "Beta MMS 2", "Beta c", "beta extra", "Gamma Delta",
            "Alpha MMS", "Alpha MMS 2", "Alpha c", "Alpha beta extra"])
        self.assertEqual(self.show("Alpha")["gprs"]["address"], "mine")

    def test_long_names_are_cut_at_a_character_with_all_only(self):
        long_name = "é" * 40
        provider = f"<name>{long_name}</name><gsm><apn value='a'/></gsm>"
        self.refused(FAILED, "provision", "--country", "aq", "--database",
                     self.small_database(provider), says=[long_name, "63 bytes"])
        self.assertEqual(self.names(), [])
        self.provision(provider, provider.replace("'a'", "'b'"), arguments=["--all"])
        self.assertEqual(self.names(), ["é" * 31, "é" * 30 + " 2"])

    def test_values_that_do_not_fit_are_refused_and_the_rest_is_stored(self):
        result = self.refused(
            FAILED, "provision", "--all", "--database", self.small_database(
                "<name>A</name><gsm><apn value='a'><dns>1.2.3</dns></apn><apn value=''/>"
                f"<apn value='{'x' * 101}'/><apn value='c'><mmsproxy>h:x</mmsproxy></apn>"
                "<apn value='good'/></gsm>"),
            says=["A, access point a: gprs.dns1", "it has no APN", "101 bytes long, at most 100",
                  "proxy1.port"])
        self.assertEqual(result.stdout, "Stored: 1, already there: 0\n")
        self.assertEqual(self.names(), ["A good"])

    def test_nothing_that_matches_is_a_failure(self):
        self.refused(FAILED, "provision", "--country", "xx", says=["no provider"])
        self.refused(FAILED, "provision", "--country", "de", "--provider", "nobody",
                     says=["no provider"])

    def test_damaged_databases_are_refused(self):
        for content, reason in (
                ("", "line 1"), ("no XML", "line 1"), ("<serviceproviders format='2.0'>", "line 1"),
                ("<serviceproviders format='3.0'/>", "format 2.0"), ("<html/>", "service providers"),
                ("<!DOCTYPE a [<!ENTITY x 'yyyyyyyyyy'>" + "".join(
                    f"<!ENTITY x{i} '{'&x' + str(i - 1 if i else '') + ';'}'>".replace("&x;", "&x;" * 9)
                    for i in range(9)) + "]><serviceproviders format='2.0'><country>&x8;"
                 "</country></serviceproviders>", "line")):
            with self.subTest(content=content[:40]):
                file = self.write("bad.xml", content)
                self.refused(USAGE, "provision", "--all", "--database", file, says=[file])
        missing = os.path.join(self.directory, "missing.xml")
        self.refused(USAGE, "provision", "--all", "--database", missing, says=[missing])

    def test_progress_is_shown_on_a_terminal(self):
        controller, terminal = pty.openpty()
        environment = self.handset.environment(KUB_NAPI_MAX="2000")
        with subprocess.Popen([NAPICTL, "provision", "--all"], env=environment,
                              stdout=subprocess.PIPE, stderr=terminal) as process:
            os.close(terminal)
            output = process.stdout.read()
        shown = b""
        try:
            while chunk := os.read(controller, 65536):
                shown += chunk
        except OSError:  # the other end of the terminal is closed
            pass
        os.close(controller)
        self.assertEqual(process.returncode, OK)
        self.assertTrue(shown.startswith(b"\rStoring profiles: 20 of 1304\r"), shown[:80])
        self.assertTrue(shown.rstrip().endswith(b"Storing profiles: 1304 of 1304"), shown[-80:])
        self.assertEqual(output, b"Stored: 1304, already there: 0\n")


class CheckTest(NapictlTest):
    def change_record(self, name, offset, content):
        with sqlite3.connect(self.store) as database:
            record = bytearray(database.execute("SELECT record FROM profile WHERE name = ?",
                                                (name,)).fetchone()[0])
            record[offset:offset + len(content)] = content
            database.execute("UPDATE profile SET record = ? WHERE name = ?", (bytes(record), name))
        database.close()

    def test_sound_store_has_no_faults(self):
        self.assertEqual(self.napictl("check"), "Profiles: 0, faults: 0\n")
        self.napictl("create", "Office", *OFFICE_FIELDS)
        self.assertEqual(self.napictl("check"), "Profiles: 1, faults: 0\n")

    def test_faults_of_records_are_named(self):
        self.napictl("create", "good")
        self.napictl("create", "bad")
        self.change_record("bad", 0x06C, b"\xc3(")
        self.change_record("bad", 0x23B, b"\x05")
        self.change_record("bad", 0x2F7, b"\xff")
        result = self.run_napictl("check")
        self.assertEqual((result.returncode, result.stderr), (FAILED, ""))
        self.assertEqual(result.stdout.splitlines(), [
            "bad: gprs.authId: the text is not UTF-8", "bad: csd.speed: the speed code 0x05 is unknown",
            "bad: csd2.speed: the speed code 0xff is unknown", "Profiles: 2, faults: 3"])

    def lose_index_entry_of_home(self):
        with open(self.store, "rb") as file:
            content = file.read()
        # The name stands in the table and, with the ID after it, in the index of names.
        index_entry = content.find(b"Home\x02")
        self.assertGreater(index_entry, 0)
        with open(self.store, "wb") as file:
            file.write(content[:index_entry] + b"Hole\x02" + content[index_entry + 5:])

    def test_index_that_lost_a_name_is_found(self):
        self.napictl("create", "Office")
        self.napictl("create", "Home")
        self.lose_index_entry_of_home()
        result = self.run_napictl("check")
        self.assertNotEqual(result.returncode, OK)
        self.assertIn("Home: no ID for the name", result.stdout)

    def test_delete_goes_on_after_a_failure_of_the_store(self):
        for name in ("Office", "Home", "last"):
            self.napictl("create", name)
        self.lose_index_entry_of_home()
        result = self.refused(FAILED, "delete", "*")
        self.assertEqual(result.stderr, "napictl: Home: there is no such profile\n")
        self.assertEqual(self.napictl("list", "-t", "-f", "name"), "")

    def test_damaged_store_is_unusable_and_left_alone(self):
        self.napictl("provision", "--country", "de")
        with open(self.store, "rb") as file:
            content = file.read()
        for name, damaged in (("truncated", content[:len(content) // 2]), ("foreign", b"x" * 9000)):
            with self.subTest(name):
                with open(self.store, "wb") as file:
                    file.write(damaged)
                self.refused(UNUSABLE, "check", says=[self.store, "damaged"])
                with open(self.store, "rb") as file:
                    self.assertEqual(file.read(), damaged)


class ChosenFieldsTest(NapictlTest):
    """What --fields and --terse make of list and show."""

    def setUp(self):
        super().setUp()
        self.napictl("create", "Office", *OFFICE_FIELDS)
        self.napictl("create", "a:b\\c\x1b\nd", "gprs.address=x:y", "editable=false")

    def test_list_has_the_fields_in_the_order_that_is_asked_for(self):
        self.assertEqual(self.napictl("list", "--fields", "gprs.address,name,gprs.linger,editable,id"),
                         "GPRS.ADDRESS  NAME          GPRS.LINGER  EDITABLE  ID\n"
                         "internet      Office        30 s         yes       1\n"
                         "x:y           a:b\\c\\x1b\\nd  0 s          no        2\n")

    def test_terse_list_can_be_split_at_colons(self):
        lines = self.napictl("list", "-t", "-f", "name,gprs.address,gprs.linger,editable").splitlines()
        self.assertEqual(lines, ["Office:internet:30:true", r"a\:b\\c\x1b\nd:x\:y:0:false"])

    def test_terse_list_has_the_usual_columns(self):
        self.assertEqual(self.napictl("list", "--terse").splitlines(),
                         ["1:gprs,csd,proxy1:Office", r"2:gprs:a\:b\\c\x1b\nd"])
        self.napictl("delete", "*")
        self.assertEqual(self.napictl("list", "--terse"), "")

    def test_show_has_the_chosen_fields_beneath_each_other(self):
        self.assertEqual(self.napictl("show", "Office", "-f", "name,csd.speed,csd2.address"),
                         "name          Office\ncsd.speed     9600 bit/s\ncsd2.address\n")
        self.assertEqual(self.napictl("show", "Office", "-t", "-f", "id,csd.speed,csd2.address"),
                         "id:1\ncsd.speed:9600\ncsd2.address:\n")

    def test_terse_show_has_every_field(self):
        named = [line.split(":")[0] for line in self.napictl("show", "-t", "Office").splitlines()]
        fields = self.napictl("set", "--help").split("Fields:\n")[1].split("\n\n")[0].split()
        self.assertEqual(named, ["id", "name", "parts", *fields])
        self.assertEqual(self.napictl("show", "-t", "-f", "all", "Office"), self.napictl("show", "-t", "Office"))

    def test_a_mask_stands_for_a_password_unless_it_is_asked_for(self):
        for form in (["--terse"], ["-f", "all"], ["-t", "-f", "gprs.authPassword"]):
            masked = self.napictl("show", "Office", *form)
            self.assertIn("********", masked)
            self.assertNotIn(SECRET, masked)
            self.assertIn(SECRET, self.napictl("show", "Office", "--show-secrets", *form))
        for form in (["-f", "gprs.authPassword"], ["-t", "-f", "gprs.authPassword"]):
            listed = self.napictl("list", *form).splitlines()
            self.assertIn("********", listed)
            self.assertEqual(listed[-1], "")

    def test_what_cannot_be_shown_so_is_wrong_usage(self):
        for command in (["list"], ["show", "Office"]):
            self.refused(USAGE, *command, "-f", "name,gprs.adress", says=["gprs.adress", "did you mean gprs.address?"])
            self.refused(USAGE, *command, "-f", "", says=["there are id, name, parts, editable"])
            self.refused(USAGE, *command, "--json", "--terse", says=["--json"])
            self.refused(USAGE, *command, "--json", "-f", "id", says=["--json"])


class RawRecordTest(NapictlTest):
    """show --raw."""

    def setUp(self):
        super().setUp()
        self.napictl("create", "Office", *OFFICE_FIELDS)

    def put(self, record):
        with sqlite3.connect(self.store) as database:
            database.execute("UPDATE profile SET record = ?", (record,))
        database.close()

    @staticmethod
    def bytes_of(shown):
        """The record that the map says; bytes that it does not show are 0."""
        record = bytearray(1168)
        for place, data in re.findall(r"^0x([0-9a-f]{3})  .{22}  ((?:[0-9a-f]{2} ?)+)", shown, re.MULTILINE):
            data = bytes.fromhex(data)
            record[int(place, 16):int(place, 16) + len(data)] = data
        return bytes(record)

    def test_map_has_every_byte_in_its_place(self):
        for record in (bytes(range(256)) * 4 + bytes(range(144)), b"\xff" * 1168, bytes(1168),
                       bytes(1167) + b"\1", bytes(0x10) + b"9" + bytes(1151)):
            self.put(record)
            self.assertEqual(self.bytes_of(self.napictl("show", "Office", "--raw", "--show-secrets")), record)

    def test_line_says_what_the_bytes_mean(self):
        shown = self.napictl("show", "Office", "--raw").splitlines()
        self.assertEqual(shown[:2], ["Office, ID 1",
                                     "PLACE  SIZE  FIELD             BYTES                    VALUE"])
        for line in ("0x001     1  creation          01                       1",
                     "0x138     4  gprsDns1          01 00 00 0a              10.0.0.1",
                     "0x140     2  gprsLinger        1e 00                    30",
                     "0x17d    44  csdAddress        2b 34 39 31 37 32 30 30  +4917200",
                     "0x185                          30 30 00 00 00 00 00 00  00......",
                     "0x35c     2  proxy1Port        90 1f                    8080"):
            self.assertIn(line, shown)
        self.assertLess(max(map(len, shown)), 80)

    def test_passwords_and_what_is_left_of_longer_ones_are_masked(self):
        maps = set()
        for secret in (b"x", b"y" * 100, b"\0left", b"new\0left"):
            record = bytearray(1168)
            record[0xD0:0xD0 + len(secret)] = secret
            self.put(bytes(record))
            maps.add(self.napictl("show", "Office", "--raw"))
        [masked] = maps
        self.assertIn("0x0d0   100  gprsAuthPassword  masked                   ********\n0x134", masked)
        self.assertIn("  csdAuthPassword   00 00 00 00 00 00 00 00  ........\n*\n", masked)
        shown = self.napictl("show", "Office", "--raw", "--show-secrets")
        self.assertIn("6e 65 77 00 6c 65 66 74  new.left\n", shown)

    def test_nothing_in_it_steers_a_terminal(self):
        self.put(bytes(range(128, 256)) * 9 + bytes(16))
        self.assertRegex(self.napictl("show", "Office", "--raw"), r"\A[ -~\n]*\Z")

    def test_it_is_a_form_of_its_own(self):
        for other in ("--json", "--terse", "--fields=id"):
            self.refused(USAGE, "show", "Office", "--raw", other, says=["--raw has a form of its own"])


class PatternTest(NapictlTest):
    """Arguments that stand for several profiles."""

    def setUp(self):
        super().setUp()
        for name in ("Vodafone", "Telekom", "Voice*", "Voice2", "voda"):
            self.napictl("create", name)

    def shown(self, *arguments):
        text = self.napictl("show", "-t", "-f", "name", *arguments)
        return [line.split(":", 1)[1] for line in text.splitlines() if line]

    def test_pattern_means_the_profiles_that_it_matches_in_their_order(self):
        self.assertEqual(self.shown("Vo*"), ["Vodafone", "Voice*", "Voice2"])
        self.assertEqual(self.shown("?oda*"), ["Vodafone", "voda"])
        self.assertEqual(self.shown("[Tv]*"), ["Telekom", "voda"])
        self.assertEqual(self.shown("*"), ["Vodafone", "Telekom", "Voice*", "Voice2", "voda"])

    def test_name_of_a_profile_is_no_pattern(self):
        self.assertEqual(self.shown("Voice*"), ["Voice*"])

    def test_pattern_that_is_not_complete_matches_nothing(self):
        for pattern in ("[V", "Vo[", "[]", "[!"):
            result = self.refused(FAILED, "show", pattern, says=[pattern + ": there is no profile of such"])
            self.assertEqual(len(result.stderr.splitlines()), 1)

    def test_profile_that_is_meant_twice_is_shown_once(self):
        self.assertEqual(self.shown("voda", "V*", "Vodafone", "voda"), ["voda", "Vodafone", "Voice*", "Voice2"])

    def test_several_profiles_are_one_json_array_and_one_is_an_object(self):
        self.assertEqual(json.loads(self.napictl("show", "voda", "--json"))["name"], "voda")
        for arguments, names in ((["voda", "Telekom"], ["voda", "Telekom"]), (["Tele*"], ["Telekom"])):
            shown = json.loads(self.napictl("show", "--json", *arguments))
            self.assertEqual([profile["name"] for profile in shown], names)

    def test_blank_line_stands_between_profiles(self):
        self.assertEqual(self.napictl("show", "-f", "name", "v*", "Tele*"), "name  voda\n\nname  Telekom\n")

    def test_what_means_no_profile_is_told_and_the_rest_is_shown(self):
        result = self.refused(FAILED, "show", "-t", "-f", "name", "X*", "voda", "none",
                              says=["X*: there is no profile of such a name", "none: there is no such profile"])
        self.assertEqual(result.stdout, "name:voda\n")

    def test_nothing_is_deleted_when_an_argument_means_no_profile(self):
        before = self.names()
        for missing in (["X*"], ["none"], ["X*", "none", "Y?"], [""], ["a/b"]):
            result = self.refused(FAILED, "delete", "voda", *missing, "Vo*")
            self.assertEqual([line.split(": ")[1] for line in result.stderr.splitlines()], missing)
        self.assertEqual(self.names(), before)

    def test_matching_profiles_are_deleted(self):
        self.napictl("delete", "Vo?*e*")
        self.assertEqual(self.names(), ["Telekom", "voda"])


class NewNameTest(NapictlTest):
    """rename and clone."""

    def setUp(self):
        super().setUp()
        self.napictl("create", "Office", *OFFICE_FIELDS)
        self.napictl("create", "Home")

    def records(self):
        with sqlite3.connect(self.store) as database:
            rows = database.execute("SELECT id, name, record FROM profile ORDER BY id").fetchall()
        database.close()
        return rows

    def test_renamed_profile_keeps_its_id_and_its_record(self):
        (number, _, record), home = self.records()
        self.assertEqual(self.napictl("rename", "Office", "Headquarters"), "")
        self.assertEqual(self.records(), [(number, "Headquarters", record), home])

    def test_clone_has_all_that_the_profile_has_and_an_id_of_its_own(self):
        office, home = self.records()
        self.assertEqual(self.napictl("clone", "Office", "Branch"), "")
        self.assertEqual(self.records(), [office, home, (3, "Branch", office[2])])
        self.assertEqual(self.show("Branch"), {**OFFICE, "name": "Branch"})

    def test_clone_of_a_record_that_does_not_say_that_it_was_created_does(self):
        with sqlite3.connect(self.store) as database:
            database.execute("UPDATE profile SET record = zeroblob(1168) WHERE name = 'Office'")
        database.close()
        self.napictl("clone", "Office", "Branch")
        self.assertEqual(self.records()[2][2], b"\0\1" + bytes(1166))

    def test_refusals_name_the_name_that_they_are_about_and_change_nothing(self):
        before = self.records()
        for command in ("rename", "clone"):
            for names, refusal in ((("none", "x"), "none: there is no such profile"),
                                   (("Office", "Home"), "Home: there is a profile of that name already"),
                                   (("Office", "Office"), "Office: there is a profile of that name already"),
                                   (("Office", "a/b"), "a/b: a name has 1 to 63 bytes"),
                                   (("Office", ""), ": a name has 1 to 63 bytes"),
                                   (("Office", "x" * 64), "x: a name has 1 to 63 bytes"),
                                   (("*", "x"), "*: a name has 1 to 63 bytes")):
                with self.subTest(command=command, names=names):
                    self.refused(FAILED, command, *names, says=[refusal])
        self.assertEqual(self.records(), before)

    def test_full_store_takes_no_clone_and_lets_profiles_be_renamed(self):
        self.refused(FAILED, "clone", "Office", "Branch", maximum=2, says=["Branch: the profile store is full"])
        self.napictl("rename", "Office", "Branch", maximum=2)
        self.assertEqual(self.names(), ["Branch", "Home"])

    def test_profile_under_a_substitute_name_can_have_one_of_its_own(self):
        with sqlite3.connect(self.store) as database:
            database.execute("UPDATE profile SET name = 'a/b' WHERE name = 'Home'")
        database.close()
        self.assertEqual(self.names(), ["Office", "a-b~2"])
        self.refused(FAILED, "rename", "Office", "a-b~2", says=["a-b~2: there is a profile"])
        self.napictl("rename", "a-b~2", "Home")
        self.assertEqual([row[:2] for row in self.records()], [(1, "Office"), (2, "Home")])


class PlannedImportTest(NapictlTest):
    """import --prune and --dry-run, and diff."""

    def setUp(self):
        super().setUp()
        self.napictl("create", "Office", *OFFICE_FIELDS)
        self.napictl("create", "Old")
        self.napictl("create", "Older")

    def change(self, **gprs):
        office = json.loads(json.dumps(OFFICE))
        office["gprs"].update(gprs)
        return office

    def test_prune_removes_what_the_file_does_not_have(self):
        file = self.write("f", [OFFICE, {"name": "New"}, {"name": "Older"}])
        self.assertEqual(self.napictl("import", file, "--replace", "--prune"),
                         "replace Office\ncreate New\nreplace Older\nremove Old\n")
        self.assertEqual(self.names(), ["Office", "Older", "New"])
        self.napictl("import", self.write("e", []), "--prune")
        self.assertEqual(self.names(), [])

    def test_nothing_is_removed_when_something_in_the_file_is_wrong(self):
        before = self.export()
        for faulty in (self.change(dns1="x"), OFFICE, {"name": "a/b"},
                       {"name": "New", "gprs": {"authPassword": "********"}}):
            self.refused(FAILED, "import", self.write("f", [{"name": "Newer"}, faulty]), "--prune")
            self.assertEqual(self.export(), before)

    def test_removal_makes_no_room_for_what_is_new(self):
        file = self.write("f", [{"name": "a"}, {"name": "b"}])
        result = self.refused(FAILED, "import", file, "--prune", maximum=4, says=["2 new profiles do not fit"])
        self.assertEqual(result.stdout, "")
        self.assertEqual(self.names(), ["Office", "Old", "Older"])

    def test_what_is_stored_is_told_when_the_disk_is_full(self):
        limited = ["sh", "-c", "trap '' XFSZ; ulimit -f 200; exec \"$@\"", "sh"]  # blocks of 512 bytes
        profiles = [{"name": f"%1 {number}"} for number in range(100)]
        file = self.write("f", profiles)
        result = self.refused(UNUSABLE, "import", file, "--prune", prefix=limited)
        done = [f"%1 {number}" for number in range(result.stdout.count("\n"))]
        self.assertTrue(done)
        self.assertEqual(result.stdout, "".join(f"create {name}\n" for name in done))
        self.assertEqual(self.names(), ["Office", "Old", "Older", *done])
        self.assertIn(f"stopped at %1 {len(done)}, after {len(done)} of 103 profiles; ", result.stderr)
        self.assertEqual(self.napictl("import", file, "--prune", "--replace").splitlines()[len(done)],
                         f"create %1 {len(done)}")
        self.assertEqual(self.names(), [profile["name"] for profile in profiles])

    def test_profiles_are_stored_although_nobody_reads_the_lines(self):
        read, write = os.pipe()
        os.close(read)
        result = subprocess.run([NAPICTL, "import", self.write("f", [{"name": "a"}, {"name": "b"}])], check=False,
                                stdout=write, stderr=subprocess.PIPE, env=self.handset.environment(), text=True)
        os.close(write)
        self.assertEqual((result.returncode, result.stderr),
                         (UNUSABLE, "napictl: cannot write the output: Broken pipe\n"))
        self.assertEqual(self.names(), ["Office", "Old", "Older", "a", "b"])

    def test_dry_run_says_what_would_be_done_and_does_nothing(self):
        before = self.export()
        file = self.write("f", [{"name": "New\x1b"}, self.change(linger=1)])
        planned = self.napictl("import", file, "--replace", "--prune", "--dry-run")
        self.assertEqual(planned, "create New\\x1b\nreplace Office\nremove Old\nremove Older\n")
        self.assertEqual(self.export(), before)
        self.refused(FAILED, "import", file, "--dry-run", says=["Office: there is a profile"])
        self.refused(FAILED, "import", file, "--dry-run", "--replace", maximum=3, says=["do not fit"])
        self.assertEqual(self.napictl("import", file, "--replace", "--prune", maximum=4), planned)

    def test_diff_of_what_is_the_same_is_empty(self):
        for form in (["export"], ["export", "--show-secrets"]):
            self.assertEqual(self.napictl("diff", "-", stdin=self.napictl(*form)), "")

    def test_diff_tells_what_is_on_one_side_only_and_what_is_not_the_same(self):
        file = self.write("f", [self.change(address="o\x1bther", linger=1), {"name": "Old"}, {"name": "New"}])
        result = self.refused(DIFFERENT, "diff", file)
        self.assertEqual(result.stdout, "Only in the store: Older\n"
                         "Office:\n"
                         "- gprs.address=internet\n+ gprs.address=o\\x1bther\n"
                         "- gprs.linger=30\n+ gprs.linger=1\n"
                         "Only in the file: New\n")

    def test_diff_shows_passwords_only_on_request(self):
        file = self.write("f", [self.change(authPassword="new"), {"name": "Old"}, {"name": "Older"}])
        self.assertEqual(self.refused(DIFFERENT, "diff", file).stdout,
                         "Office:\n- gprs.authPassword=********\n+ gprs.authPassword=******** (changed)\n")
        shown = self.run_napictl("diff", file, "--show-secrets")
        self.assertEqual((shown.returncode, shown.stdout),
                         (DIFFERENT, f"Office:\n- gprs.authPassword={SECRET}\n+ gprs.authPassword=new\n"))
        gone = self.write("g", [self.change(authPassword=""), {"name": "Old"}, {"name": "Older"}])
        self.assertIn("+ gprs.authPassword=\n", self.refused(DIFFERENT, "diff", gone).stdout)

    def test_diff_of_what_cannot_be_stored_is_a_failure(self):
        self.refused(FAILED, "diff", self.write("f", [self.change(dns1="x")]), says=["Office: gprs.dns1"])
        self.refused(USAGE, "diff", self.write("f", "{"), says=["line 1"])


class EditTest(NapictlTest):
    """edit, with editors that do what a person would."""

    def setUp(self):
        super().setUp()
        self.napictl("create", "Office", *OFFICE_FIELDS)
        self.temporary = os.path.join(self.directory, "temporary")
        os.mkdir(self.temporary)

    def start(self, *words, environment=None, **options):
        return subprocess.Popen([NAPICTL, *words], env=self.handset.environment(**environment), **options)

    def editor(self, script):
        """The command of an editor that runs a script of a shell with the file as $1."""
        return f"sh {self.write('editor', script)}"

    def edit(self, script, *options, name="Office"):
        return self.run_napictl("edit", name, *options, VISUAL=self.editor(script), TMPDIR=self.temporary)

    def kept_text(self, result):
        """The text of an edit that was refused, from the file that it names."""
        path = re.search(r"nothing was stored; the text is in (\S+)", result.stderr)[1]
        with open(path, encoding="utf-8") as file:
            return file.read()

    def assert_nothing_is_left(self):
        self.assertEqual(os.listdir(self.temporary), [])

    def test_what_was_edited_is_stored_and_the_rest_stays(self):
        result = self.edit("sed -i 's/\"linger\": 30/\"linger\": 31/' $1")
        self.assertEqual((result.returncode, result.stdout, result.stderr), (OK, "", ""))
        expected = json.loads(json.dumps(OFFICE))
        expected["gprs"]["linger"] = 31
        self.assertEqual(self.show("Office"), expected)
        self.assert_nothing_is_left()

    def test_text_is_the_profile_with_its_passwords_masked(self):
        copy = os.path.join(self.directory, "copy")
        self.assertEqual(self.edit(f"cp $1 {copy}").returncode, OK)
        with open(copy, encoding="utf-8") as file:
            self.assertEqual(file.read(), self.napictl("show", "Office", "--json"))
        self.assertEqual(self.edit(f"cp $1 {copy}", "--show-secrets").returncode, OK)
        with open(copy, encoding="utf-8") as file:
            self.assertEqual(json.load(file), OFFICE)
        self.assertEqual(self.show("Office"), OFFICE)

    def test_password_can_be_changed_and_taken_away(self):
        for password in ("new", ""):
            self.edit(f"sed -i 's/\\*\\*\\*\\*\\*\\*\\*\\*/{password}/' $1")
            self.assertEqual(self.show("Office")["gprs"]["authPassword"], password)

    def guards(self):
        """Process IDs of what keeps watch over a text."""
        return [pid for pid in filter(str.isdecimal, os.listdir("/proc"))
                if self.temporary.encode() in self.command_line(pid)]

    @staticmethod
    def command_line(pid):
        try:
            with open(f"/proc/{pid}/cmdline", "rb") as file:
                command = file.read()
        except OSError:
            return b""  # it has ended meanwhile
        return command if b"profile.json" in command and b"rm -rf" in command else b""

    def wait_until(self, is_so):
        limit = time.monotonic() + 60
        while not is_so():
            self.assertLess(time.monotonic(), limit)
            time.sleep(0.02)

    def begin_to_edit(self, script="", *options):
        """An editor that has the text, runs the script and waits until `done` is there."""
        ready = os.path.join(self.directory, "ready")
        script = f"{script}\ntouch {ready}; while [ -d {self.directory} -a ! -e {self.directory}/done ]; do sleep 0.02; done"
        # Whoever runs the tests may ignore hang-ups, which programs inherit.
        process = self.start("edit", "Office", *options, start_new_session=True,
                             preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_DFL),
                             environment={"VISUAL": self.editor(script), "TMPDIR": self.temporary})
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        self.addCleanup(self.end_editor)
        self.wait_until(lambda: os.path.exists(ready))
        os.remove(ready)
        return process

    def end_editor(self):
        self.write("done", "")

    def test_text_is_gone_however_the_program_ends(self):
        for number in (signal.SIGTERM, signal.SIGHUP, signal.SIGKILL):
            with self.subTest(number):
                process = self.begin_to_edit("", "--show-secrets")
                process.send_signal(number)
                self.assertEqual(process.wait(60), -number)
                time.sleep(0.1)  # for a guard that does not wait for the editor
                [folder] = os.listdir(self.temporary)
                with open(os.path.join(self.temporary, folder, "profile.json"), encoding="utf-8") as file:
                    self.assertEqual(json.load(file), OFFICE, "the editor goes on, and has its file")
                self.end_editor()
                self.wait_until(lambda: not os.listdir(self.temporary) and not self.guards())
                os.remove(os.path.join(self.directory, "done"))

    def test_text_is_gone_when_everything_of_the_terminal_is_killed(self):
        for number in (signal.SIGHUP, signal.SIGKILL):
            process = self.begin_to_edit()
            os.killpg(process.pid, number)
            self.wait_until(lambda: not os.listdir(self.temporary) and not self.guards())

    def test_folder_without_a_text_is_gone_when_the_program_is_killed(self):
        process = self.begin_to_edit("rm $1")
        process.kill()
        self.end_editor()
        self.wait_until(lambda: not os.listdir(self.temporary))

    def test_text_that_was_worked_on_stays_when_the_program_is_killed(self):
        process = self.begin_to_edit("echo >> $1")
        process.kill()
        self.end_editor()
        self.wait_until(lambda: not self.guards())
        [folder] = os.listdir(self.temporary)
        path = os.path.join(self.temporary, folder, "profile.json")
        with open(path, encoding="utf-8") as file:
            self.assertEqual(file.read(), self.napictl("show", "Office", "--json") + "\n")
        self.assertEqual((os.stat(path).st_mode & 0o777, os.stat(os.path.dirname(path)).st_mode & 0o777),
                         (0o600, 0o700))

    def test_nothing_keeps_watch_over_a_text_that_is_gone(self):
        self.edit("")
        self.wait_until(lambda: not self.guards())

    def test_what_a_link_beside_the_text_leads_to_stays(self):
        self.write("theirs", "theirs")
        planted = f"ln -s {self.directory} $(dirname $1)/link; touch $1~"
        self.edit(planted)
        process = self.begin_to_edit(planted)
        process.kill()
        self.end_editor()
        self.wait_until(lambda: not os.listdir(self.temporary))
        self.assertIn("theirs", os.listdir(self.directory))

    def test_nobody_else_can_read_the_text(self):
        modes = os.path.join(self.directory, "modes")
        self.edit(f"stat -c %a $1 $(dirname $1) > {modes}")
        with open(modes, encoding="ascii") as file:
            self.assertEqual(file.read(), "600\n700\n")

    def test_text_that_cannot_be_stored_is_kept(self):
        for script, refusal in (("echo no JSON > $1", "line 1"),
                                ("echo '[]' > $1", "expected one profile"),
                                ("echo '{\"name\": \"Home\"}' > $1", "Office: its name is not to be edited"),
                                ("sed -i 's/10.0.0.1/10.0.0.256/' $1", "Office: gprs.dns1: expected an IPv4"),
                                ("echo >> $1; exit 3", "the editor"),
                                (f"{NAPICTL} delete Office; echo >> $1", "Office: somebody else changed it"),):
            with self.subTest(script):
                result = self.edit(script)
                self.assertEqual(result.returncode, FAILED)
                self.assertIn(refusal, result.stderr)
                self.assertNotEqual(self.kept_text(result), "")
        self.assertEqual(self.names(), [])

    def test_change_of_somebody_else_is_not_overwritten(self):
        result = self.edit(f"{NAPICTL} set Office gprs.address=theirs; sed -i 's/internet/mine/' $1")
        self.assertEqual(result.returncode, FAILED)
        self.assertIn("Office: somebody else changed it meanwhile", result.stderr)
        self.assertIn('"address": "mine"', self.kept_text(result))
        self.assertEqual(self.show("Office")["gprs"]["address"], "theirs")

    def test_text_that_nobody_worked_on_is_not_kept(self):
        for script, status in (("exit 0", OK), ("exit 1", FAILED), ("kill -9 $$", FAILED)):
            result = self.edit(script)
            self.assertEqual(result.returncode, status)
            self.assertNotIn("the text is in", result.stderr)
            self.assert_nothing_is_left()

    def test_editor_is_visual_or_else_editor_with_their_options(self):
        one, other = self.editor("sed -i s/internet/one/ $1"), self.write("other", "sed -i s/$1/two/ $2")
        self.run_napictl("edit", "Office", VISUAL="", EDITOR=f"sh {other} internet")
        self.assertEqual(self.show("Office")["gprs"]["address"], "two")
        self.napictl("set", "Office", "gprs.address=internet")
        self.run_napictl("edit", "Office", VISUAL=one, EDITOR=f"sh {other} internet")
        self.assertEqual(self.show("Office")["gprs"]["address"], "one")

    def test_folder_with_any_name_can_have_the_text(self):
        self.temporary = os.path.join(self.directory, "a b'\"$(touch x)")
        os.mkdir(self.temporary)
        self.assertEqual(self.edit("sed -i s/internet/one/ \"$1\"").returncode, OK)
        self.assertEqual(self.show("Office")["gprs"]["address"], "one")
        self.assertFalse(os.path.exists("x"))

    def test_text_that_cannot_be_written_is_told(self):
        self.refused(UNUSABLE, "edit", "Office", VISUAL="true", TMPDIR="/dev/null/folder",
                     says=["cannot write a text to edit"])

    def test_record_that_json_cannot_hold_is_not_edited(self):
        with sqlite3.connect(self.store) as database:
            database.execute("UPDATE profile SET record = ?", (b"\xff" * 1168,))
        database.close()
        self.refused(FAILED, "edit", "Office", VISUAL="false", says=["Office cannot be edited without loss"])

    def test_terminal_asks_whether_to_edit_again(self):
        counted = self.editor("echo x >> \"$0.runs\"\n"
                              "if [ $(wc -l < \"$0.runs\") -lt 3 ]; then echo wrong > $1;\n"
                              "else echo '{\"name\": \"Office\", \"editable\": false}' > $1; fi")
        terminal = Terminal(self, "edit", "Office", environment={"VISUAL": counted, "TMPDIR": self.temporary})
        terminal.answer("Edit it again? [Y/n]", "\n")
        terminal.answer("Edit it again? [Y/n]", "y\n")
        self.assertEqual(terminal.end()[0], OK)
        self.assertFalse(self.show("Office")["editable"])
        self.assert_nothing_is_left()

    def test_whoever_does_not_edit_again_keeps_the_text(self):
        for answer in ("n\n", "\x04"):
            terminal = Terminal(self, "edit", "Office",
                                environment={"VISUAL": self.editor("echo wrong > $1"), "TMPDIR": self.temporary})
            terminal.answer("Edit it again? [Y/n]", answer)
            status, screen = terminal.end()
            self.assertEqual(status, FAILED)
            self.assertIn("nothing was stored; the text is in", screen)
        self.assertEqual(self.show("Office"), OFFICE)

    def test_ctrl_c_is_the_editors(self):
        ready = os.path.join(self.directory, "ready")
        script = f"trap 'sed -i s/internet/caught/ $1; exit 0' INT; touch {ready}; while :; do sleep 0.05; done"
        # Whoever runs the tests in the background has the shells ignore the signal.
        process = self.start("edit", "Office", environment={"VISUAL": self.editor(script), "TMPDIR": self.temporary},
                             start_new_session=True,
                             preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))
        while not os.path.exists(ready):
            self.assertIsNone(process.poll())
        os.killpg(process.pid, signal.SIGINT)
        self.assertEqual(process.wait(60), OK)
        self.assertEqual(self.show("Office")["gprs"]["address"], "caught")


class MonitorTest(NapictlTest):
    """monitor, while somebody changes profiles."""

    def setUp(self):
        super().setUp()
        self.napictl("create", "Office", *OFFICE_FIELDS)
        self.napictl("create", "Old")

    def start(self, stdout=subprocess.PIPE):
        process = subprocess.Popen([NAPICTL, "monitor"], env=self.handset.environment(), encoding="utf-8",
                                   stdout=stdout, stderr=subprocess.PIPE, bufsize=1)
        for stream in filter(None, (process.stdout, process.stderr)):
            self.addCleanup(stream.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def started(self):
        """A monitor that has had its first look, before which it does not know of any change."""
        monitor = self.start()
        linger = 100
        while not select.select([monitor.stdout], [], [], 0.2)[0]:
            linger += 1
            self.napictl("set", "Old", f"gprs.linger={linger}")
        while select.select([monitor.stdout], [], [], 1.5)[0]:
            self.assertEqual(monitor.stdout.readline(), "changed Old, ID 2: gprs.linger\n")
        return monitor

    def test_changes_of_anybody_are_told(self):
        monitor = self.started()
        for command, lines in (
                (["create", "New\x1b"], ["added New\\x1b, ID {}"]),
                (["set", "Office", f"gprs.authPassword={SECRET}2", "gprs.linger=5"],
                 ["changed Office, ID 1: gprs.authPassword, gprs.linger"]),
                (["rename", "Office", "HQ"], ["renamed Office, ID 1: HQ"]),
                (["delete", "Old"], ["removed Old, ID 2"])):
            self.napictl(*command)
            for line in lines:
                self.assertEqual(monitor.stdout.readline(), line.format(3) + "\n")
        monitor.terminate()
        self.assertEqual(monitor.wait(60), -signal.SIGTERM)
        self.assertEqual(monitor.stdout.read() + monitor.stderr.read(), "")

    def test_lost_output_ends_it(self):
        with open("/dev/full", "w", encoding="utf-8") as full:
            monitor = self.start(stdout=full)
            for linger in range(1000):
                self.napictl("set", "Old", f"gprs.linger={linger}")
                try:
                    monitor.wait(0.3)
                    break
                except subprocess.TimeoutExpired:
                    pass
        self.assertEqual((monitor.returncode, monitor.stderr.read()),
                         (UNUSABLE, "napictl: cannot write the output: No space left on device\n"))

    def test_store_that_is_locked_for_a_moment_does_not_end_it(self):
        monitor = self.started()
        self.napictl("create", "one")
        first = monitor.stdout.readline()
        database = sqlite3.connect(self.store, isolation_level=None)
        self.addCleanup(database.close)
        database.execute("BEGIN EXCLUSIVE")
        database.execute("UPDATE profile SET name = 'two' WHERE name = 'one'")
        database.execute("COMMIT")
        self.assertEqual([first, monitor.stdout.readline()], ["added one, ID 3\n", "renamed one, ID 3: two\n"])

    def test_store_that_is_damaged_ends_it(self):
        monitor = self.started()
        with sqlite3.connect(self.store) as database:
            database.execute("PRAGMA ignore_check_constraints = ON")
            database.execute("UPDATE profile SET record = zeroblob(5)")
        database.close()
        self.assertEqual(monitor.wait(60), UNUSABLE)
        self.assertIn("the profile store is damaged", monitor.stderr.read())


class CommandLineTest(NapictlTest):
    COMMANDS = ["list", "show", "create", "set", "edit", "rename", "clone", "delete", "import", "diff",
                "export", "provision", "monitor", "check"]

    def test_wrong_usage_is_refused(self):
        for arguments in ([], ["frobnicate"], ["--frobnicate"], ["list", "extra"], ["show"],
                          ["show", "a", "--frobnicate"], ["create"], ["set"],
                          ["set", "Office"], ["edit"], ["edit", "a", "b"], ["monitor", "x"], ["rename", "Office"], ["clone"], ["delete"], ["import"], ["import", "a", "b"], ["diff"],
                          ["export", "file"], ["list", "--jso"], ["--state"], ["check", "x"],
                          ["--state", "", "list"], ["list", "--state="]):
            with self.subTest(arguments):
                result = self.refused(USAGE, *arguments)
                self.assertRegex(result.stderr, "^napictl: .*\n$")
                self.assertEqual(result.stdout, "")
        self.refused(USAGE, "provision", says=["--country"])
        self.refused(USAGE, "provision", "--provider", "x", says=["--country"])
        self.refused(USAGE, "create", "Office", "color=red", says=["color"])
        self.assertFalse(os.path.exists(self.state))

    def test_arguments_have_to_be_utf8(self):
        result = subprocess.run([NAPICTL, "create", b"\xff\xfe"], capture_output=True, check=False,
                                env=self.handset.environment())
        self.assertEqual(result.returncode, USAGE)
        self.assertIn(b"argument 2 is not UTF-8", result.stderr)

    def test_every_command_has_help(self):
        overview = self.napictl("--help")
        self.assertEqual(self.napictl("-h"), overview)
        listed = overview.split("Commands:\n")[1].split("\n\n")[0]
        self.assertEqual(re.findall(r"^  (\w+) ", listed, re.MULTILINE), [*self.COMMANDS, "help"])
        for command in self.COMMANDS:
            text = self.napictl(command, "--help")
            self.assertTrue(text.startswith(f"Usage: napictl {command}"), text)
        self.assertIn("csd2.lineType", self.napictl("set", "--help"))
        self.assertFalse(os.path.exists(self.state))

    def test_state_option_chooses_the_store_before_or_after_the_command(self):
        for arguments in (["--state", self.directory + "/a", "create", "x"],
                          ["create", "x", "--state", self.directory + "/b"],
                          ["create", "--state=" + self.directory + "/ü", "x"]):
            self.napictl(*arguments)
        for directory in ("a", "b", "ü"):
            self.assertTrue(os.path.exists(os.path.join(self.directory, directory, "profiles.db")))
        self.assertFalse(os.path.exists(self.state))

    def test_backend_option_chooses_the_store_before_or_after_the_command(self):
        self.napictl("--backend", "sqlite", "create", "x")
        self.assertIn("x", self.napictl("list", "--backend=sqlite"))
        for arguments in (["--backend", "paper", "list"], ["list", "--backend", ""]):
            self.refused(USAGE, *arguments, says=["sqlite or networkmanager"])

    def test_unusable_stores_are_told_apart_from_failed_operations(self):
        os.makedirs(self.store)
        for arguments in (["list"], ["show", "x"], ["create", "x"], ["set", "x", "editable=true"],
                          ["delete", "x"], ["edit", "x"], ["monitor"], ["rename", "x", "y"], ["clone", "x", "y"], ["delete", "*"], ["export"], ["check"],
                          ["provision", "--country", "de"]):
            with self.subTest(arguments):
                self.refused(UNUSABLE, *arguments, says=[self.store, "directory"])
        for command in (["import", "-"], ["import", "-", "--prune"], ["diff", "-"]):
            self.refused(UNUSABLE, *command, stdin="[{\"name\": \"x\"}]", says=[self.store])

    def test_full_disk_is_an_unusable_store(self):
        limited = ["sh", "-c", "trap '' XFSZ; ulimit -f 128; exec \"$@\"", "sh"]  # blocks of 512 bytes
        self.refused(UNUSABLE, "provision", "--country", "de", prefix=limited, says=["full"])

    def test_locked_store_is_reported(self):
        self.napictl("create", "one")
        database = sqlite3.connect(self.store, isolation_level=None)
        self.addCleanup(database.close)
        database.execute("BEGIN IMMEDIATE")
        self.refused(UNUSABLE, "create", "two", says=["locked"])

    def test_output_that_cannot_be_written_is_a_failure(self):
        with open("/dev/full", "w", encoding="utf-8") as full:
            result = subprocess.run([NAPICTL, "list"], stdout=full, stderr=subprocess.PIPE, check=False,
                                    env=self.handset.environment(), encoding="utf-8")
        self.assertEqual((result.returncode, result.stderr),
                         (UNUSABLE, "napictl: cannot write the output: No space left on device\n"))

    def test_locale_does_not_matter(self):
        for locale in ("C", "POSIX", "nowhere"):
            environment = self.handset.environment(LC_ALL=locale, LANG=locale)
            result = subprocess.run([NAPICTL, "show", "همراه"], env=environment, check=False,
                                    capture_output=True, encoding="utf-8")
            self.assertEqual(result.stderr, "napictl: همراه: there is no such profile\n")


class ManualTest(NapictlTest):
    """The manual names the same fields as the program."""

    def test_fields_are_the_same(self):
        with open(MANUAL, encoding="utf-8") as file:
            section = re.search(r"^\.SH FIELDS\n(.*?)^\.SH ", file.read(), re.MULTILINE | re.DOTALL)[1]
        heads = re.findall(r"^\.TP\n\.\w+ (.*)$", section, re.MULTILINE)
        in_manual = re.findall(r"[a-z0-9]+\.[a-zA-Z0-9]+|^editable", "\n".join(heads), re.MULTILINE)
        in_program = self.napictl("set", "--help").split("Fields:\n")[1].split("\n\n")[0].split()
        self.assertEqual(sorted(in_manual), sorted(in_program))


if __name__ == "__main__":
    unittest.main()

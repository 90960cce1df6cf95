"""Properties, access control and the device description, seen through dmclient."""

import json
import os
import stat
import unittest
from xml.etree import ElementTree

from handset import CONN
from program_test import REFUSED, SUCCESS, USAGE, DmclientTest

ROOT_FOLDER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..")
OFFICE = CONN + "/Office"

REPLACE_ADDRESS = """<SyncML xmlns="SYNCML:SYNCML1.2"><SyncHdr><VerDTD>1.2</VerDTD>
<VerProto>DM/1.2</VerProto><SessionID>1</SessionID><MsgID>1</MsgID>
<Target><LocURI>urn:test:handset</LocURI></Target><Source><LocURI>http://dm.example/</LocURI></Source>
</SyncHdr><SyncBody><Replace><CmdID>2</CmdID><Item><Target><LocURI>%s</LocURI></Target>
<Data>changed.example</Data></Item></Replace><Final/></SyncBody></SyncML>"""


class PropertiesTest(DmclientTest):
    def prop(self, name, uri=OFFICE):
        return self.succeed("get", uri, "--prop", name).rstrip("\n")

    def kept(self):
        with open(self.handset.client_file("properties.json"), encoding="utf-8") as file:
            return json.load(file)

    def test_every_property_is_printed(self):
        self.assertEqual([self.prop(name, OFFICE + "/Addr") for name in
                          ("ACL", "Format", "Name", "Size", "Title", "TStamp", "Type", "VerNo")],
                         ["", "chr", "Addr", "8", "", "", "text/plain", "0"])

    def test_a_property_is_replaced_and_kept_for_the_next_run(self):
        self.assertEqual(self.succeed("replace", OFFICE + "?prop=Title", "Our office"), "")
        self.assertEqual(self.prop("Title"), "Our office")
        self.assertEqual(self.prop("VerNo"), "1")
        self.assertRegex(self.prop("TStamp"), r"^\d{8}T\d{6}Z$")
        mode = os.stat(self.handset.client_file("properties.json")).st_mode
        self.assertEqual(stat.S_IMODE(mode), 0o600)

    def test_a_read_only_property_is_refused(self):
        status, _, errors = self.run_client("replace", OFFICE + "?prop=Size", "1")
        self.assertEqual(status, REFUSED)
        self.assertIn("405", errors)
        self.assertEqual(self.run_client("replace", OFFICE + "?prop=Nonsense", "1")[0], REFUSED)
        self.assertEqual(self.run_client("replace", OFFICE + "?prop=Title", "1", "2")[0], USAGE)
        self.assertEqual(self.run_client("replace", CONN + "/Nobody?prop=Title", "1")[0], REFUSED)

    def test_a_renamed_node_has_its_properties_under_the_name_of_the_next_mount(self):
        self.succeed("shell", stdin=f"replace {OFFICE}?prop=ACL Get=*\nrename {OFFICE} Team\n"
                                    f"replace {CONN}/Team/Addr web.example\n")
        self.assertEqual(self.prop("ACL"), "Get=*")
        self.assertEqual(self.prop("VerNo", OFFICE + "/Addr"), "1")

    def test_a_deleted_node_takes_its_properties_along(self):
        self.succeed("replace", OFFICE + "?prop=Title", "Our office")
        self.assertEqual(self.run_client("delete", OFFICE)[0], SUCCESS)
        self.assertEqual(list(self.kept()), [CONN])

    def test_each_line_of_a_shell_is_kept(self):
        self.succeed("shell", stdin=f"replace {OFFICE}?prop=Title one\nquit\n")
        self.assertEqual(self.kept()[CONN + "/#1"]["title"], "one")  # the profile by its number

    def test_a_broken_file_is_named_and_left_alone(self):
        path = self.handset.client_file("properties.json")
        with open(path, "w", encoding="utf-8") as file:
            file.write('{"./DevInfo": {"acl": "Get"}}')
        status, _, errors = self.run_client("get", OFFICE)
        self.assertEqual(status, SUCCESS)
        self.assertIn(f'{path}: ./DevInfo: acl: "Get" does not begin with', errors)
        with open(path, encoding="utf-8") as file:
            self.assertEqual(file.read(), '{"./DevInfo": {"acl": "Get"}}')

    def test_a_file_that_cannot_be_written_is_named(self):
        os.mkdir(self.handset.client_file("properties.json"))
        status, _, errors = self.run_client("get", OFFICE)
        self.assertEqual(status, SUCCESS)
        self.assertIn("cannot use", errors)


class AccessControlTest(DmclientTest):
    def process(self, *options):
        status, printed, errors = self.run_client(
            "process", *options, "-", stdin=REPLACE_ADDRESS % (OFFICE + "/Addr"))
        return status, "<Data>425</Data>" in printed, errors

    def test_a_package_runs_for_the_owner_or_for_the_server_that_is_named(self):
        self.succeed("replace", OFFICE + "?prop=ACL", "Get=*&Replace=dm.example")
        self.assertEqual(self.process("--server-id", "other.example"), (REFUSED, True, ""))
        self.assertEqual(self.process("--server-id", "dm.example"), (SUCCESS, False, ""))
        self.assertEqual(self.process(), (SUCCESS, False, ""))

    def test_what_cannot_stand_in_a_list_is_no_server_identifier(self):
        for word in ("", "*", "a b", "a+b"):
            status, _, errors = self.process("--server-id", word)
            self.assertEqual(status, USAGE)
            self.assertIn(f'"{word}" is not a Server Identifier', errors)


class DescriptionTest(DmclientTest):
    def test_it_is_printed_without_a_handset(self):
        with open(os.path.join(ROOT_FOLDER, "docs", "ddf", "kub-dm.xml"), encoding="utf-8") as file:
            self.assertEqual(self.succeed("ddf", plugin="/nonexistent"), file.read())

    def test_it_says_of_every_mounted_node_what_the_node_is(self):
        self.succeed("account", "add", "one", "address=https://dm.example/", "server-id=dm.example",
                     "client-auth=basic", "client-name=c", "client-secret=s", "server-auth=md5",
                     "server-name=s", "server-secret=s")
        compared = 0
        for top in ElementTree.fromstring(self.succeed("ddf")).findall("Node"):
            uri = top.findtext("Path") + "/" + top.findtext("NodeName")
            compared += self.compare(json.loads(self.succeed("tree", uri, "--json")), top)
        self.assertGreater(compared, 100)

    def compare(self, node, description):
        """Compares a node and everything beneath it; returns how many nodes these are."""
        self.assertEqual(node["format"], description.find("DFProperties/DFFormat")[0].tag, node["uri"])
        compared = 1
        for child in node.get("children", []):
            if child["uri"] == "./DevDetail/Ext":
                continue  # its described parts stand for themselves
            described = [entry for entry in description.findall("Node")
                         if (entry.findtext("NodeName") or child["name"]) == child["name"]]
            self.assertEqual(len(described), 1, child["uri"])
            compared += self.compare(child, described[0])
        required = {entry.findtext("NodeName") for entry in description.findall("Node")
                    if entry.find("DFProperties/Occurrence/One") is not None}
        present = {child["name"] for child in node.get("children", [])}
        self.assertLessEqual(required - {""}, present, node["uri"])
        return compared


if __name__ == "__main__":
    unittest.main()

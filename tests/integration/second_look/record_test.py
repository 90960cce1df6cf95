"""What a record says the tree was and is, against what mounts of the same state say."""

import functools
import json
import os
import unittest

from handset import CONN, PROXY, SECRET, Handset
from sessions import ENCODINGS, DmServer, SessionTest, scenario, scenario_names
from surprises import PROFILES

NEED_A_USER = {"questions"}


def listed(node, nodes=None):
    """The nodes of tree --json by address: format, and the value as a text."""
    nodes = {} if nodes is None else nodes
    value = node.get("value")
    if isinstance(value, bool):
        value = "true" if value else "false"
    nodes[node["uri"]] = (node["format"], "" if value is None else str(value))
    for child in node.get("children", []):
        listed(child, nodes)
    return nodes


def applied(events, tree=None):
    """The tree that the events make, by address as above."""
    tree = dict(tree or {})
    for event in events:
        for uri in event.get("went", []):
            del tree[uri]
        for node in event.get("appeared", []):
            assert node["uri"] not in tree, node
        for node in event.get("appeared", []) + event.get("changed", []):
            assert node in event.get("appeared", []) or node["uri"] in tree, node
            tree[node["uri"]] = (node["format"], node.get("value", ""))
    return tree


def read(path):
    with open(path, encoding="utf-8") as file:
        return [json.loads(line) for line in file]


class TruthTest(SessionTest):
    def mounted_tree(self):
        return listed(json.loads(self.handset.dmclient("tree", "--json").stdout))

    def check(self, record, before):
        """Compares the record with the tree before the run and with the one of the next mount."""
        events = read(record)
        trees = [event for event in events if event["event"] == "tree"]
        self.assertEqual(applied(trees[:1]), before)
        self.assertTrue("mount" in trees[0])
        commands = {event["command"] for event in events if event["event"] == "command"}
        self.assertLessEqual({tree["command"] for tree in trees if "command" in tree}, commands)
        self.assertEqual([i for i, tree in enumerate(trees) if "next" in tree],
                         [len(trees) - 1] if "next" in trees[-1] else [])
        self.assertEqual(applied(trees), self.mounted_tree())
        notes = [event for event in events if event["event"] == "read-back"]
        self.assertEqual(events[-1]["differences"], len(notes))
        return events

    def run_scenario(self, name, encoding, record):
        """The events of a session, and the tree before it."""
        has_account = name == "accounts"
        proof = {"client_auth": "md5", "server_auth": "md5"} if has_account else {}
        with DmServer(scenario(name, **proof)) as server:
            if has_account:
                self.add_account(server.url, **proof)
            before = self.mounted_tree()
            self.handset.dmclient("--record", record, "session", "Test" if has_account else server.url,
                                  "--encoding", encoding)
            if name not in NEED_A_USER:
                self.assertEqual(server.session.report()["faults"], [])
        return read(record), before

    def test_of_each_scenario_in_both_encodings(self):
        with_trees = set()
        for name in scenario_names():
            seen = []
            for encoding in ENCODINGS:
                with self.subTest(scenario=name, encoding=encoding):
                    self.handset.close()
                    self.setUp()
                    record = os.path.join(self.handset.home, "record")
                    events, before = self.run_scenario(name, encoding, record)
                    if not any(event["event"] == "tree" for event in events):
                        self.assertEqual(self.mounted_tree(), before)
                        continue
                    with_trees.add(name)
                    events = self.check(record, before)
                    seen.append([{key: value for key, value in event.items() if key != "t"}
                                 for event in events if event["event"] in ("tree", "read-back")])
            self.assertTrue(len(seen) != 1, name)
            self.assertTrue(not seen or seen[0] == seen[1], name)
        self.assertLessEqual({"profiles", "commands"}, with_trees)

    def test_of_an_account_that_its_server_changes_along_with_a_profile(self):
        changes = [{"replace": "./DMAcc/Test/Name", "data": "New"},
                   {"replace": "./DMAcc/Test?prop=Title", "data": "Title"},
                   {"replace": CONN + "/Office/Linger", "format": "int", "data": "70000"},
                   {"replace": "./DMAcc/Test/Name", "data": "Newer"}]
        for encoding in ENCODINGS:
            with self.subTest(encoding):
                self.handset.close()
                self.setUp()
                record = os.path.join(self.handset.home, "record")
                with DmServer(scenario("accounts", packages=[{"commands": changes}])) as server:
                    self.add_account(server.url)
                    before = self.mounted_tree()
                    self.handset.dmclient("--record", record, "session", "Test", "--encoding", encoding)
                    self.assertEqual(server.session.report()["faults"], [])
                self.assertEqual(self.mounted_tree()["./DMAcc/Test/Name"], ("chr", "Newer"))
                self.check(record, before)

    def test_of_changes_that_reach_other_profiles(self):
        self.handset.close()
        self.handset = Handset(PROFILES)
        before = self.mounted_tree()
        record = os.path.join(self.handset.home, "record")
        result = self.handset.dmclient("--record", record, "shell", stdin="\n".join((
            f"replace {PROXY}/Office/Ph1/Conn Home", f"rename {CONN}/Home House",
            f"replace {CONN}/Office/Bearer GSM-CSD", f"replace {CONN}/Office/Linger 70000",
            f"add {CONN}/New", f"add {CONN}/New/Bearer GSM-GPRS", f"delete {CONN}/House",
            f"replace {CONN}/Office/Auth/PAP/AuthPw {SECRET}")))
        self.assertEqual(result.returncode, 0)
        with open(record, encoding="utf-8") as file:
            self.assertNotIn(SECRET, file.read())
        self.check(record, before)

    def test_of_many_profiles(self):
        self.handset.close()
        profiles = [{**PROFILES[0], "name": f"Office {number}"} for number in range(200)]
        self.handset = Handset([])
        self.handset.environment = functools.partial(self.handset.environment, KUB_NAPI_MAX="200")
        self.handset.add(profiles)
        before = self.mounted_tree()
        self.assertGreater(len(before), 5000)
        record = os.path.join(self.handset.home, "record")
        result = self.handset.dmclient("--record", record, "shell", stdin="\n".join((
            f"replace {CONN}/Office%20199/Linger 70000", f"rename {CONN}/Office%200 Team")))
        self.assertEqual(result.returncode, 0)
        events = self.check(record, before)
        self.assertEqual([event.get("command") for event in events if event["event"] == "tree"],
                         [None, 1, 2, None])


if __name__ == "__main__":
    unittest.main()

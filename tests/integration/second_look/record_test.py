"""What a record says the tree was and is, against what mounts of the same state say."""

import functools
import json
import os
import unittest

from handset import CONN, PROXY, SECRET, Handset
from sessions import ENCODINGS, DmServer, SessionTest, scenario, scenario_names
from surprises import PROFILES

# The values of accounts change with every session, and secrets are masked.
CHANGING = ("./DMAcc",)
ON_THEIR_OWN = {"questions", "accounts"}


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


def unchanging(nodes):
    return {uri: seen for uri, seen in nodes.items() if not uri.startswith(CHANGING)}


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
    return unchanging(tree)


def read(path):
    with open(path, encoding="utf-8") as file:
        return [json.loads(line) for line in file]


class TruthTest(SessionTest):
    def mounted_tree(self):
        return unchanging(listed(json.loads(self.handset.dmclient("tree", "--json").stdout)))

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

    def test_of_each_scenario_in_both_encodings(self):
        for name in scenario_names():
            if name in ON_THEIR_OWN:
                continue
            seen = []
            for encoding in ENCODINGS:
                with self.subTest(scenario=name, encoding=encoding):
                    self.handset.close()
                    self.setUp()
                    before = self.mounted_tree()
                    record = os.path.join(self.handset.home, "record")
                    with DmServer(scenario(name)) as server:
                        self.handset.dmclient("--record", record, "session", server.url,
                                              "--encoding", encoding)
                        self.assertEqual(server.session.report()["faults"], [])
                    if not any(event["event"] == "tree" for event in read(record)):
                        self.assertEqual(self.mounted_tree(), before)
                        continue
                    events = self.check(record, before)
                    seen.append([{key: value for key, value in event.items() if key != "t"}
                                 for event in events if event["event"] in ("tree", "read-back")])
            self.assertTrue(len(seen) < 2 or seen[0] == seen[1], name)

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
        self.assertEqual([event["event"] for event in events].count("tree"), 4)


if __name__ == "__main__":
    unittest.main()

"""A handset with a plug-in whose nodes take long to execute, and servers that have it do so."""

import json
import os

from handset import PLUGIN
from sessions import DmServer, SessionTest, scenario

BUSY_PLUGIN = os.environ["BUSY_PLUGIN"]
ROOT = "./Vendor/Busy"
TYPE = "Reversed-Domain-Name: org.example.done"
NODES = 20


def run(number):
    return f"{ROOT}/Run{number}"


class LateExecFixture(SessionTest):
    def setUp(self):
        super().setUp()
        self.folder = self.handset.path("..", "plugins")
        os.mkdir(self.folder)
        self.describe("10-network-profiles", PLUGIN, [f"./DevDetail/Ext/Conf/{name}/Profiles"
                                                      for name in ("Conn", "IntProfs")])
        self.describe("20-busy", BUSY_PLUGIN, [ROOT],
                      longExec={run(number): TYPE for number in range(NODES)})
        self.log = self.handset.path("..", "log")
        self.file = self.handset.client_file("late-operations.json")
        self.trace = ""

    def describe(self, name, library, roots, **members):
        with open(os.path.join(self.folder, name + ".json"), "w", encoding="utf-8") as file:
            json.dump({"library": library, "roots": roots, **members}, file)

    def asking(self, *commands, **changes):
        """A server's session in which it asks for these."""
        packages = [{"commands": list(commands)}] if commands else []
        return scenario("profiles", packages=packages, **changes)

    def session(self, *commands, account="Test", words=(), **changes):
        """Exit status, printed lines and report of a session with an account, whose address becomes
        that of the server; the trace is kept."""
        trace = self.handset.path("..", "trace")
        with DmServer(self.asking(*commands, **changes)) as server:
            if account in self.accounts():
                self.handset.dmclient("account", "set", account, f"address={server.url}")
            else:
                self.add_account(server.url)
            result = self.handset.dmclient("--plugins", self.folder, "session", account,
                                           "--trace", trace, *words, BUSY_LOG=self.log)
            report = server.session.report()
        with open(trace, encoding="utf-8") as file:
            self.trace = file.read()
        self.last_session = f"\n{result.stdout.decode()}{result.stderr.decode()}{report}\n"
        return result.returncode, result.stdout.decode().splitlines(), report

    def accounts(self):
        listed = self.handset.dmclient("account", "list")
        return listed.stdout.decode().split()

    def calls(self):
        """What the plug-in was asked to do, a line each."""
        if not os.path.exists(self.log):
            return []
        with open(self.log, encoding="utf-8") as file:
            return file.read().splitlines()

    def kept(self):
        """What is kept of operations: target, stage and status of each."""
        if not os.path.exists(self.file):
            return []
        with open(self.file, encoding="utf-8") as file:
            return [(one["target"], one["stage"], one["status"])
                    for one in json.load(file)["operations"]]

    def assert_result(self, *texts):
        """The first message has one result, with these texts in it."""
        self.assertEqual(self.trace.count("<Data>1226</Data>"), 1, self.trace)
        begin = self.trace.rindex("<Alert>", 0, self.trace.index("<Data>1226</Data>"))
        alert = self.trace[begin:self.trace.index("</Alert>", begin)]
        for text in (TYPE, "<Format>int</Format>", *texts):
            self.assertIn(text, alert)

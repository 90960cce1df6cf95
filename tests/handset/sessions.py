"""A handset and a scripted server, for tests of whole sessions."""

import glob
import os
import subprocess

import dmserver
import scenario as scenarios
from dmserver import DmServer
from handset import DMCLIENT, PLUGIN, HandsetTest

SERVER_FOLDER = os.path.dirname(os.path.abspath(dmserver.__file__))
CERTIFICATES = os.path.join(SERVER_FOLDER, "..", "unit", "session")
SUCCESS, REFUSED, USAGE, UNUSABLE, SESSION_FAILED, DIFFERENT = range(6)
SECRETS = {"client-secret": "OhBehave", "server-secret": "ServerSecret"}
ENCODINGS = ("xml", "wbxml")
KINDS = ("none", "basic", "md5", "hmac")  # of proofs
CERTIFICATE = os.path.join(CERTIFICATES, "localhost.pem")
KEY = os.path.join(CERTIFICATES, "localhost.key")


def scenario(name, **changes):
    file = os.path.join(SERVER_FOLDER, "scenarios", name + ".json")
    return scenarios.check({**scenarios.load(file), **changes})


def scenario_names():
    files = glob.glob(os.path.join(SERVER_FOLDER, "scenarios", "*.json"))
    return sorted(os.path.basename(file)[:-len(".json")] for file in files)


class SessionTest(HandsetTest):
    last_session = ""  # what client and server said; a failed assertion shows it

    def _formatMessage(self, msg, standardMsg):
        return super()._formatMessage(msg, standardMsg) + self.last_session

    def add_account(self, url, client_auth="none", server_auth="none", **fields):
        """The account Test, complete for these kinds of proof."""
        fields = {"address": url, "server-id": "dm.example", "client-auth": client_auth,
                  "client-name": "Bruce2", "server-auth": server_auth,
                  "server-name": "dm.example", **SECRETS, **fields}
        words = [f"{name}={value}" for name, value in fields.items()]
        result = self.handset.dmclient("account", "add", "Test", *words)
        self.assertEqual(result.returncode, SUCCESS, result.stderr.decode())

    def start(self, *words, program=(DMCLIENT, "--plugin", PLUGIN), environment=None, **streams):
        """A dmclient that runs on while the test does other things."""
        process = subprocess.Popen([*program, *words],
                                   env=self.handset.environment(**(environment or {})),
                                   **streams)
        self.addCleanup(process.kill)
        return process

    def play(self, played, *options, account=True, before=None, certificate=None, **kinds):
        """One session. Returns exit status, printed lines and the server's report."""
        with DmServer(played, certificate=certificate) as server:
            if before:
                before(server)
            target = server.url
            if account:
                self.handset.dmclient("account", "remove", "Test")
                self.add_account(server.url, **kinds)
                target = "Test"
            result = self.handset.dmclient("session", target, *options)
            report = server.session.report()
        self.last_server_session = server.session
        self.stderr = result.stderr.decode()
        self.last_session = (f"\n-- exit status {result.returncode} of the session, which printed:\n"
                             f"{result.stdout.decode()}{self.stderr}-- the server:\n"
                             + "\n".join(report["lines"]))
        return result.returncode, result.stdout.decode().splitlines(), report

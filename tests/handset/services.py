"""dmclientd on a bus of its own, and dmclient beside it."""

import json
import os
import subprocess
import time

from bus import PrivateBus
from sessions import PLUGIN, SUCCESS, DmServer, SessionTest, scenario

DMCLIENT = os.environ["DMCLIENT"]
DMCLIENTD = os.environ["DMCLIENTD"]
PATIENCE = 60  # seconds; what takes longer never happens
HAS_JOURNAL = os.path.exists("/run/systemd/journal/socket")


class ServiceFixture(SessionTest):
    def setUp(self):
        super().setUp()
        self.bus = PrivateBus()
        self.addCleanup(self.bus.close)
        self.service = None

    def environment(self):
        return self.handset.environment(DBUS_SYSTEM_BUS_ADDRESS=self.bus.address)

    def start_service(self, *words):
        self.service = subprocess.Popen([DMCLIENTD, "--plugin", PLUGIN, *words],
                                        env=self.environment(), stderr=subprocess.PIPE)
        self.addCleanup(self.service.stderr.close)
        self.addCleanup(self.service.wait)
        self.addCleanup(self.service.kill)
        self.wait_until(lambda: self.client("status").returncode == SUCCESS)

    def wait_until(self, condition):
        end = time.monotonic() + PATIENCE
        while not (result := condition()):
            self.assertLess(time.monotonic(), end, "it does not happen")
            time.sleep(0.02)
        return result

    def client(self, *words):
        return subprocess.run([DMCLIENT, *words], env=self.environment(), capture_output=True,
                              text=True, timeout=PATIENCE, check=False)

    def start_client(self, *words):
        process = subprocess.Popen([DMCLIENT, *words], env=self.environment(),
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        for cleanup in (process.stdout.close, process.stderr.close, process.wait, process.kill):
            self.addCleanup(cleanup)
        return process

    def status(self):
        result = self.client("status", "--json")
        self.assertEqual(result.returncode, SUCCESS, result.stderr)
        return json.loads(result.stdout)

    def serve(self, name="profiles", **changes):
        """A server with an account of the handset; sessions with it leave their report behind."""
        played = scenario(name, **changes)
        server = DmServer(played)
        server.__enter__()
        self.addCleanup(server.__exit__, None, None, None)
        self.add_account(server.url, played["client_auth"], played["server_auth"])
        return server

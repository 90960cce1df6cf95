"""A device that gets its first server by SMS: bootstrap messages that the service keeps."""

import base64
import json
import os

from modem_manager import IMSI, ModemManager
from provisioning import (CONNECTIVITY_XML, access_point, application, characteristic, document,
                          half_octets, parm, push)
from services import DMCLIENT, ServiceFixture
from sessions import SECRETS, SUCCESS, UNUSABLE, DmServer, scenario
from terminal import Terminal

ZEROS = "0x00000000"
NONCE = base64.b64encode(ZEROS.encode()).decode()
PIN = "4711"


def credentials(level, name, secret):
    return characteristic("APPAUTH", parm("AAUTHLEVEL", level), parm("AAUTHTYPE", "DIGEST"),
                          parm("AAUTHNAME", name), parm("AAUTHSECRET", secret),
                          parm("AAUTHDATA", NONCE))


class BootstrapFixture(ServiceFixture):
    """A device without accounts, its modem, and the server that it will get to know."""

    def setUp(self):
        super().setUp()
        self.server = DmServer(scenario("several_messages", client_auth="md5", server_auth="md5",
                                        client_nonce=ZEROS, server_nonce=ZEROS))
        self.server.__enter__()
        self.addCleanup(self.server.__exit__, None, None, None)
        self.modems = ModemManager(self.bus.address)
        self.addCleanup(self.modems.close)

    def document(self, server="dm.example", point="Operator"):
        return document(
            access_point(point),
            application(server, self.server.url,
                        credentials("APPSRV", "Bruce2", SECRETS["client-secret"]),
                        credentials("CLIENT", server, SECRETS["server-secret"])))

    def by_network(self, body=None, imsi=IMSI):
        return push(body or self.document(), "NETWPIN", half_octets(imsi), CONNECTIVITY_XML)

    def by_pin(self, body=None, pin=PIN):
        return push(body or self.document(), "USERPIN", pin.encode(), CONNECTIVITY_XML)

    def agent(self):
        terminal = Terminal(self, "agent", program=[DMCLIENT],
                            environment={"DBUS_SYSTEM_BUS_ADDRESS": self.bus.address})
        terminal.wait_for("servers may ask here")
        return terminal

    def pending(self):
        result = self.client("bootstrap", "--pending", "--json")
        self.assertEqual(result.returncode, SUCCESS, result.stderr)
        return json.loads(result.stdout)

    def waits(self, number=1):
        """What waits, as soon as there is so much."""
        return self.wait_until(lambda: len(self.pending()) == number and self.pending())

    def owner(self, *words):
        """The owner works with what waits, as soon as the service does not."""
        results = []

        def is_free():
            results.append(self.client("bootstrap", "--pending", *words))
            return results[-1].returncode != UNUSABLE
        self.wait_until(is_free)
        return results[-1]

    def is_free(self):
        """Whether nobody works with the device."""
        return self.client("get", "./DevInfo/DmV").returncode == SUCCESS

    def accounts(self):
        """Those of the device, as soon as the service does not work with it."""
        listed = self.wait_until(
            lambda: (result := self.client("account", "list", "--json")).returncode != UNUSABLE and result)
        return json.loads(listed.stdout)

    def files(self):
        folder = os.path.join(self.handset.state, "client", "bootstrap")
        return sorted(os.listdir(folder)) if os.path.isdir(folder) else []

    def assert_session_follows(self):
        [result] = self.wait_until(lambda: self.status()["LastResults"])
        self.assertEqual((result["account"], result["cause"], result["session"]),
                         ("dm.example", "bootstrap", "completed"), result)
        self.assertEqual(self.server.session.report()["faults"], [])

    def assert_untouched(self):
        self.assertEqual(self.accounts(), [])
        self.assertNotIn("Operator", self.handset.export())

    def wait_for_deletion(self, *paths):
        self.wait_until(lambda: set(self.modems.deleted()) >= set(paths))

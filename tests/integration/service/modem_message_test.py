"""Short messages that dmclientd takes from ModemManager."""

import unittest

import dbus
import notifications
from modem_manager import STATUS_REPORT, ModemManager
from notification_test import SECRET, SERVER
from notifications import INTERACTIVE, ZERO_TEXT
from services import ServiceFixture

MMS = bytes.fromhex("0106226170706c69636174696f6e2f766e642e7761702e6d6d732d6d65737361676500")


class ModemFixture(ServiceFixture):
    """A server that asks for sessions by short messages."""

    def setUp(self):
        super().setUp()
        zeros = ZERO_TEXT.decode()
        self.server = self.serve("several_messages", client_auth="md5", server_auth="md5",
                                 client_nonce=zeros, server_nonce=zeros)

    def start_modems(self, **options):
        modems = ModemManager(self.bus.address, **options)
        self.addCleanup(modems.close)
        return modems

    def genuine(self, session_id, **fields):
        return notifications.push(
            notifications.package0(SERVER, SECRET, ZERO_TEXT, session_id, **fields))

    def results(self):
        return self.status()["LastResults"]

    def sessions(self, number):
        """Waits until so many have been held."""
        return self.wait_until(lambda: len(self.results()) >= number and self.results())

    def assert_deleted(self, modems, *paths):
        self.wait_until(lambda: set(modems.deleted()) >= set(paths))
        self.assertEqual(set(modems.deleted()), set(paths))


class ModemMessageTest(ModemFixture):
    def test_a_notification_by_sms_is_followed_by_its_session(self):
        modems = self.start_modems()
        self.start_service()
        sent = modems.send_sms(self.genuine(0x4D2))
        [result] = self.sessions(1)
        self.assertEqual((result["account"], result["cause"], result["session"]),
                         ("Test", "notification", "completed"), result)
        self.assertEqual(self.server.session.session_id, "4D2")
        self.assert_deleted(modems, sent)
        self.assertEqual(modems.messages(), [])

    def test_what_is_on_the_modem_at_the_start_is_read(self):
        modems = self.start_modems()
        sent = modems.send_sms(self.genuine(7))
        self.start_service()
        self.sessions(1)
        self.assert_deleted(modems, sent)

    def test_a_modem_that_comes_later_is_read(self):
        modems = self.start_modems(modems=0)
        self.start_service()
        modem = modems.add_modem(announced=False)
        sent = modems.send_sms(self.genuine(7), announced=False)
        modems.remove_modem(modem)
        modems.add_modem()
        sent = modems.send_sms(self.genuine(8))
        self.sessions(1)
        self.assertEqual(self.server.session.session_id, "8")
        self.assert_deleted(modems, sent)

    def test_a_modem_manager_that_comes_later_and_again_is_read(self):
        self.start_service()
        modems = self.start_modems()
        modems.send_sms(self.genuine(7))
        self.sessions(1)
        modems.stop()
        modems.start()
        sent = modems.send_sms(self.genuine(8))
        self.sessions(2)
        self.assert_deleted(modems, sent)

    def test_a_message_is_read_when_its_last_part_has_come(self):
        modems = self.start_modems()
        self.start_service()
        whole = self.genuine(7)
        parts = modems.send_sms(complete=False)
        later = modems.send_sms(self.genuine(8))
        self.sessions(1)
        self.assertEqual(self.server.session.session_id, "8")
        self.assert_deleted(modems, later)
        modems.complete(parts, whole)
        self.sessions(2)
        self.assert_deleted(modems, later, parts)

    def test_a_message_whose_last_part_comes_while_it_is_read_is_read_again(self):
        modems = self.start_modems()
        self.start_service()
        sent = modems.send_sms_whose_answer_is_late(self.genuine(7))
        self.sessions(1)
        self.assert_deleted(modems, sent)

    def test_what_is_not_for_this_client_stays(self):
        modems = self.start_modems()
        self.start_service()
        for other in ({"text": "Hello"}, {"data": MMS}, {"data": b""}, {"data": b"\x01"},
                      {"data": self.genuine(5), "PduType": dbus.UInt32(STATUS_REPORT)}):
            modems.send_sms(**other)
        last = modems.send_sms(self.genuine(8))
        self.sessions(1)
        self.assert_deleted(modems, last)
        self.assertEqual(len(modems.messages()), 5)
        self.assertEqual(self.server.session.session_id, "8")

    def test_a_forged_notification_is_deleted_and_does_nothing(self):
        modems = self.start_modems()
        self.start_service()
        forged = modems.send_sms(notifications.push(
            notifications.package0(SERVER, b"guessed", ZERO_TEXT, 5)))
        damaged = modems.send_sms(self.genuine(6)[:-1])
        sent = modems.send_sms(self.genuine(8))
        self.sessions(1)
        self.assert_deleted(modems, forged, damaged, sent)
        self.assertEqual(self.server.session.session_id, "8")

    def test_one_that_wants_the_user_asked_stays(self):
        modems = self.start_modems()
        self.start_service()
        asking = modems.send_sms(self.genuine(6, ui_mode=INTERACTIVE))
        sent = modems.send_sms(self.genuine(8))
        self.sessions(1)
        self.assert_deleted(modems, sent)
        self.assertEqual(modems.messages(), [asking])

    def test_one_that_cannot_be_deleted_is_obeyed_once(self):
        modems = self.start_modems()
        modems.refuse_deletions()
        self.start_service()
        modems.send_sms(self.genuine(7))
        self.sessions(1)
        self.wait_until(modems.deleted)
        self.service.terminate()
        self.assertEqual(self.service.wait(60), 0)
        self.start_service()
        self.wait_until(lambda: len(modems.deleted()) == 2)
        self.assertEqual(len(self.results()), 1)


if __name__ == "__main__":
    unittest.main()

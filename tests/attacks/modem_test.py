"""What somebody may try who can send short messages to the device, and what a modem may say that is
not a good one."""

import ctypes
import glob
import os
import shutil
import signal
import subprocess
import time
import unittest

import dbus
import notifications
from modem_manager import DELIVER, MESSAGING, MODEM, OBJECTS, PATH, RECEIVED, SIM, SMS
from provisioning import CONNECTIVITY_XML, access_point, document, push
from services import HAS_JOURNAL
from sessions import REFUSED, SUCCESS
from waiting_bootstraps import PIN, BootstrapFixture

NEW_MOUNT_NAMESPACE = 0x00020000
OTHER_USER = 65534


def memory_of(process):
    """In KiB, without what it shares."""
    with open(f"/proc/{process.pid}/status", encoding="ascii") as file:
        return int(file.read().split("RssAnon:")[1].split()[0])


class ModemAttack(BootstrapFixture):
    PLANTS_FILES = True

    def said(self):
        """What the service wrote until now; it is ended."""
        self.service.terminate()
        self.service.wait(60)
        return self.service.stderr.read().decode()

    def assert_serves(self):
        """It still takes what comes by SMS."""
        sent = self.modems.send_sms(self.by_network(self.document(point="Last")))
        self.wait_for_deletion(sent)
        self.wait_until(lambda: [one for one in self.pending() if one["proof"] == "NETWPIN"])


class SenderTest(ModemAttack):
    """Somebody who knows the number of the device, and no secret."""

    def test_a_flood_costs_a_few_lines_and_no_place_of_what_waits(self):
        """Notifications and bootstrap messages, forged and broken."""
        self.start_service()
        self.modems.send_sms(self.by_network())
        self.waits(1)
        forged = notifications.push(
            notifications.package0(b"dm.example", b"guessed", notifications.ZERO_TEXT, 7))
        unproved = push(self.document(), media_type=CONNECTIVITY_XML)
        for number in range(60):
            self.modems.send_sms(forged + bytes([number]))
            self.modems.send_sms(unproved + b" " * number)
            if number % 10 == 0:
                self.modems.send_sms(self.by_network(self.document() + b" " * number,
                                                     imsi="310170987654321"))
        self.wait_until(lambda: not self.modems.messages())
        self.wait_until(lambda: len(self.pending()) == 1)
        said = self.said()
        if not HAS_JOURNAL:
            self.assertLess(len(said.splitlines()), 12, said)

    def test_what_cannot_be_checked_without_the_user_is_bounded(self):
        """Nobody knows whether a PIN is right before somebody types one. What comes too much stays in
        the modem, and what came first is not lost."""
        self.start_service()
        self.modems.send_sms(self.by_pin())
        first = self.waits(1)[0]["id"]
        for number in range(40):
            self.modems.send_sms(self.by_pin(self.document() + b" " * number, pin="0"))
        self.wait_until(lambda: len(self.modems.messages()) == 25)
        self.assertEqual(len(self.pending()), 16)
        self.assertEqual(self.pending()[0]["id"], first)

    def test_no_document_without_a_proof_changes_anything(self):
        """Nor one whose proof nobody could give."""
        self.start_service()
        agent = self.agent()
        for sent in (push(self.document(), media_type=CONNECTIVITY_XML),
                     push(self.document(), "USERPINMAC", PIN.encode(), CONNECTIVITY_XML),
                     push(self.document(), "USERPIN", media_type=CONNECTIVITY_XML, mac="AB")):
            self.modems.send_sms(sent)
        agent.answer("your answer: ", PIN + "\n", hidden=True)
        agent.answer("your answer: ", PIN + "\n", hidden=True)
        agent.answer("your answer: ", PIN + "\n", hidden=True)
        self.wait_until(lambda: not self.modems.messages())
        self.wait_until(self.is_free)
        self.assert_untouched()

    def test_texts_of_a_document_steer_no_terminal(self):
        """The agent shows what would be set up to its user."""
        self.start_service()
        agent = self.agent()
        hostile = document(access_point("Oper\u202eator"))
        self.modems.send_sms(self.by_network(hostile))
        shown = agent.wait_for("yes or no: ")
        self.assertIn("Oper", shown)
        self.assertNotIn("\u202e", shown)


class LyingModemTest(ModemAttack):
    """A ModemManager whose words cannot be relied on."""

    def test_wrong_types_are_skipped(self):
        """Of signals, of properties, and of what is asked for."""
        self.start_service()
        modem = self.modems.modems[0]
        whole = dbus.Array(self.by_pin(), signature="y")
        for lie in ({"State": "3"}, {"State": dbus.Int32(RECEIVED)}, {"PduType": "1"},
                    {"PduType": dbus.UInt64(DELIVER)}, {"Data": "text"},
                    {"Data": dbus.Array(["a"], signature="s")},
                    {"Data": dbus.Dictionary({"a": 1}, signature="su")}):
            sent = self.modems.send_sms(complete=False)
            self.modems.complete(sent, **{"data": whole, **lie} if "Data" not in lie else {})
            self.modems.lie(sent, SMS, **lie)
            self.modems.announce(sent)
        mock = self.modems.object(modem)
        for name, signature, arguments in (
                ("Added", "s", ["x"]), ("Added", "ss", ["x", "y"]), ("Added", "", []),
                ("Deleted", "s", ["x"]), ("Deleted", "u", [dbus.UInt32(5)])):
            mock.EmitSignal(MESSAGING, name, signature, arguments)
        mock.EmitSignal(dbus.PROPERTIES_IFACE, "PropertiesChanged", "s", [SMS])
        self.modems.object(PATH).EmitSignal(OBJECTS, "InterfacesAdded", "s", ["x"])
        self.modems.object(PATH).EmitSignal(OBJECTS, "InterfacesRemoved", "u", [dbus.UInt32(1)])
        self.assert_serves()

    def test_a_list_of_messages_that_is_none_is_skipped(self):
        """Of any type, when the service begins."""
        for lie in ("path", dbus.UInt32(7), dbus.Array(["not a path"], signature="s"),
                    dbus.Dictionary({"a": "b"}, signature="ss")):
            self.modems.lie(self.modems.modems[0], MESSAGING, Messages=lie)
            self.start_service()
            self.said()
        self.modems.lie(self.modems.modems[0], MESSAGING, Messages=dbus.Array([], signature="o"))
        self.start_service()
        self.assert_serves()

    def test_objects_that_are_none_are_skipped(self):
        """The list of all modems is something else."""
        self.modems.object(PATH).AddMethod(OBJECTS, "GetManagedObjects", "", "s", "ret = 'none'")
        self.start_service()
        self.assert_serves()

    def test_a_card_that_is_none_is_no_card(self):
        """The message waits for its owner."""
        self.start_service()
        modem = self.modems.modems[0]
        card = str(self.modems.object(modem, dbus.PROPERTIES_IFACE).Get(MODEM, "Sim"))
        for number, imsi in enumerate((dbus.UInt32(5), "not digits", "1" * 100_000, "\u0663" * 15)):
            self.modems.lie(card, SIM, Imsi=imsi)
            self.modems.send_sms(self.by_network(self.document() + b" " * number))
        for number, path in enumerate((dbus.ObjectPath("/gone"), "text", dbus.UInt32(1))):
            self.modems.lie(modem, MODEM, Sim=path)
            self.modems.send_sms(self.by_network(self.document() + b"\n" * (number + 1)))
        self.waits(7)
        self.wait_until(self.is_free)
        self.assert_untouched()

    def test_large_vanishing_and_endless_messages_leave_nothing_behind(self):
        """A megabyte of data, paths without an object, and parts that never come."""
        self.start_service()
        self.assert_serves()
        # What a burst takes of the heap while it lasts is there for the next one.
        self.burst(b"")
        before = memory_of(self.service)
        self.burst(b" ")
        self.assertLess(memory_of(self.service) - before, 8 * 1024)

    def burst(self, rest):
        for _ in range(3):
            self.modems.send_sms(bytes(1024 * 1024))
        # All at once, more than are waited for.
        self.service.send_signal(signal.SIGSTOP)
        for number in range(1500):
            self.modems.announce(f"{PATH}/SMS/gone{number}")
        last = self.modems.send_sms(self.by_pin(self.document() + rest))
        self.service.send_signal(signal.SIGCONT)
        for _ in range(280):
            self.modems.send_sms(complete=False)
        self.wait_for_deletion(last)

    def test_one_that_does_not_answer_holds_nobody_up(self):
        """The service answers others meanwhile, and ends when it is asked to."""
        self.start_service()
        self.modems.send_sms(b"x", complete=False)
        mock = self.modems._process
        mock.send_signal(signal.SIGSTOP)
        self.addCleanup(mock.send_signal, signal.SIGCONT)
        self.status()
        self.service.terminate()
        self.assertEqual(self.service.wait(60), 0)


class InterruptionTest(ModemAttack):
    """Something ends or fails in the middle."""

    def test_what_was_begun_is_not_applied_again(self):
        """The process that applies a message is killed at any moment after the user's yes."""
        applied = 0
        for number, delay in enumerate((0, 0.01, 0.02, 0.03, 0.05, 0.08, 0.15)):
            with self.subTest(delay=delay):
                point = f"Point{number}"
                self.start_service()
                agent = self.agent()
                self.modems.send_sms(self.by_network(document(access_point(point))))
                agent.answer("yes or no: ", "yes\n")
                time.sleep(delay)
                self.service.send_signal(signal.SIGSTOP)  # or it begins one that is not seen
                for child in self.children(self.service.pid):
                    os.kill(child, signal.SIGKILL)
                self.service.kill()
                self.service.wait()
                agent.process.kill()
                agent.process.wait()
                self.wait_until(self.is_free)
                was = [name for name in self.handset.export() if name.startswith(point)]
                left = [one for one in self.pending() if not one["set-aside"]]
                aside = [one for one in self.pending() if one["set-aside"]]
                self.assertFalse(was and left, "it would be applied once more")
                for one in aside:
                    again = self.owner(one["id"], "--yes")
                    self.assertEqual(again.returncode, REFUSED if was else SUCCESS, again.stderr)
                    self.owner("--discard", one["id"])
                for one in left:
                    self.owner("--discard", one["id"])
                now = [name for name in self.handset.export() if name.startswith(point)]
                self.assertLessEqual(len(now), 1)
                applied += len(was)
        self.assertGreater(applied, 0, "every kill came too early")

    @staticmethod
    def children(pid):
        with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
            return [int(word) for word in file.read().split()]

    def test_another_user_reads_nothing_of_what_waits(self):
        """Somewhere in it there is a secret."""
        if os.geteuid() != 0:
            self.skipTest("needs root, to act as a second user")
        self.start_service()
        self.modems.send_sms(self.by_pin())
        self.waits(1)
        [file] = glob.glob(self.handset.client_file("bootstrap/*.json"))
        self.assertEqual(os.stat(file).st_mode & 0o777, 0o600)
        self.assertEqual(os.stat(os.path.dirname(file)).st_mode & 0o777, 0o700)
        read = subprocess.run(["cat", file], user=OTHER_USER, group=OTHER_USER, extra_groups=[],
                              capture_output=True, check=False)
        self.assertNotEqual(read.returncode, 0)

    def test_a_full_disk_leaves_the_message_in_the_modem(self):
        """It is read again when there is room, after the next start."""
        if os.geteuid() != 0 or ctypes.CDLL(None).unshare(NEW_MOUNT_NAMESPACE) != 0:
            self.skipTest("needs root, and mounts of one's own")
        subprocess.run(["mount", "--make-rprivate", "/"], check=True)
        folder = self.handset.client_file("")
        shutil.move(folder, folder.rstrip("/") + ".kept")
        os.mkdir(folder)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=128k,mode=700", "tmpfs", folder],
                       check=True)
        self.addCleanup(subprocess.run, ["umount", "--lazy", folder], check=True)
        shutil.copytree(folder.rstrip("/") + ".kept", folder, dirs_exist_ok=True)
        self.start_service()
        filler = os.path.join(folder, "filler")
        with open(filler, "wb", buffering=0) as file:
            with self.assertRaises(OSError):
                while True:
                    file.write(bytes(4096))
        sent = self.modems.send_sms(self.by_network())
        # What comes after it is looked at later: its turn is over then.
        later = self.modems.send_sms(push(self.document(), media_type=CONNECTIVITY_XML))
        self.wait_for_deletion(later)
        self.assertEqual(self.modems.messages(), [sent])
        said = self.said()
        if not HAS_JOURNAL:
            self.assertIn("No space left on device", said)
        os.unlink(filler)
        self.start_service()
        self.waits(1)
        self.wait_for_deletion(sent)


if __name__ == "__main__":
    unittest.main()

"""What a disk without room does at the worst moment, and what must hold."""

import ctypes
import json
import os
import shutil
import subprocess
import unittest

from handset import CONN, Handset, HandsetTest
from sessions import (REFUSED, SESSION_FAILED, SUCCESS, UNUSABLE, DmServer, SessionTest,
                      scenario)

LINGER = CONN + "/Office/Linger"
NEW_MOUNT_NAMESPACE = 0x00020000
SET_TITLE = {"packages": [{"commands": [
    {"replace": "./DevDetail/Ext/Conf/Conn/Profiles/Office?prop=Title", "data": "New"}]}]}


def setUpModule():
    """Mounts that nobody else sees, and that go with this process."""
    if os.geteuid() != 0:
        raise unittest.SkipTest("needs root, to mount a file system that is full")
    if ctypes.CDLL(None).unshare(NEW_MOUNT_NAMESPACE) != 0:
        raise unittest.SkipTest("this machine does not allow mounts of one's own")
    subprocess.run(["mount", "--make-rprivate", "/"], check=True)


class FullDisk(SessionTest):
    """The file system of the client's files is full to the last page when they are written."""
    PLANTS_FILES = True

    def setUp(self):
        super().setUp()
        self.add_account("http://127.0.0.1:9/", title="Old")
        self.assertEqual(self.replace_title("Old").returncode, SUCCESS)
        self.folder = os.path.join(self.handset.state, "client")
        self.filler = os.path.join(self.folder, "filler")

    def fill(self):
        kept = self.folder + ".kept"
        os.rename(self.folder, kept)
        os.mkdir(self.folder)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=128k,mode=700", "tmpfs", self.folder],
                       check=True)
        self.addCleanup(subprocess.run, ["umount", self.folder], check=True)
        shutil.copytree(kept, self.folder, dirs_exist_ok=True)
        with open(self.filler, "wb", buffering=0) as file:
            try:
                while True:
                    file.write(bytes(4096))
            except OSError:
                pass

    def make_room(self):
        os.unlink(self.filler)

    def replace_title(self, title):
        return self.handset.dmclient("replace", "./DevDetail?prop=Title", title)

    def title(self):
        result = self.handset.dmclient("get", "./DevDetail?prop=Title")
        self.assertEqual(result.returncode, SUCCESS, result.stderr)
        return result.stdout.decode().strip()

    def account(self, *words):
        return self.handset.dmclient("account", *words)

    def assert_says_that_it_is_not_kept(self, result, file, status=UNUSABLE):
        said = (result.stdout + result.stderr).decode()
        self.assertIn(f"cannot write {self.handset.client_file(file)}: No space left on device",
                      said)
        self.assertEqual(result.returncode, status, said)

    def assert_everything_is_as_before(self):
        self.make_room()
        self.assertEqual(self.account("list").stdout, b"Test  http://127.0.0.1:9/\n")
        self.assertIn(b"title=Old\n", self.account("show", "Test").stdout)
        self.assertEqual(self.title(), "Old")

    def test_accounts_that_cannot_be_stored_leave_the_old_ones(self):
        """Adding, changing and removing an account fail and say why; the accounts are as before."""
        self.fill()
        for words in (("add", "New", "address=http://127.0.0.1:8/", "server-id=new"),
                      ("set", "Test", "title=New"), ("remove", "Test")):
            self.assert_says_that_it_is_not_kept(self.account(*words), "accounts.json")
        self.assert_everything_is_as_before()

    def test_properties_that_cannot_be_stored_leave_the_old_ones(self):
        """A Title typed on the command line or in the shell, or taken from a package."""
        package = ("<SyncML xmlns='SYNCML:SYNCML1.2'><SyncHdr><VerDTD>1.2</VerDTD>"
                   "<VerProto>DM/1.2</VerProto><SessionID>1</SessionID><MsgID>1</MsgID>"
                   "<Target><LocURI>x</LocURI></Target><Source><LocURI>y</LocURI></Source></SyncHdr>"
                   "<SyncBody><Replace><CmdID>1</CmdID><Item><Target><LocURI>"
                   "./DevDetail?prop=Title</LocURI></Target><Data>New</Data></Item></Replace><Final/>"
                   "</SyncBody></SyncML>")
        self.fill()
        for result in (self.replace_title("New"),
                       self.handset.dmclient("shell", stdin="replace ./DevDetail?prop=Title New\n"),
                       self.handset.dmclient("process", "-", stdin=package)):
            self.assert_says_that_it_is_not_kept(result, "properties.json")
        self.assert_everything_is_as_before()

    def test_a_report_that_does_not_fit_leaves_the_one_before(self):
        """A page of a session that is larger than what is left of the disk, whatever is left."""
        record = os.path.join(self.handset.home, "record")
        self.handset.dmclient("--record", record, "get", "./DevInfo/Man")
        page = os.path.join(self.folder, "page.html")
        self.fill()
        self.make_room()
        for room in (0, 4096, 20_000, 60_000):
            with self.subTest(room=room):
                with open(page, "wb") as file:
                    file.write(b"")
                free = shutil.disk_usage(self.folder).free
                with open(self.filler, "wb", buffering=0) as file:
                    file.write(bytes(max(0, free - room)))
                result = self.handset.dmclient("report", record, "-o", page)
                self.assertEqual(result.returncode, UNUSABLE)
                self.assertIn(f"cannot write {page}: No space left on device",
                              result.stderr.decode())
                self.assertEqual(os.path.getsize(page), 0)
                self.assertEqual([name for name in os.listdir(self.folder) if "page" in name],
                                 ["page.html"])
                self.make_room()

    def test_a_session_whose_nonces_are_lost_is_no_success(self):
        """A server gives nonces for the next session: that they are lost is said, and the session
        ends before the two ends have different ones."""
        with DmServer(scenario("profiles", client_auth="md5", server_auth="md5")) as server:
            words = ("client-auth=md5", "server-auth=md5", "client-name=Bruce2",
                     "client-secret=OhBehave", "server-name=dm.example",
                     "server-secret=ServerSecret", "address=" + server.url, "title=Old")
            self.assertEqual(self.account("set", "Test", *words).returncode, SUCCESS)
            before = self.account("show", "Test").stdout
            self.fill()
            result = self.handset.dmclient("session", "Test")
        self.assertIn(b"the nonce of the next proof cannot be kept", result.stdout)
        self.assert_says_that_it_is_not_kept(result, "accounts.json", SESSION_FAILED)
        self.assertNotIn(b" 200 OK", result.stdout)
        self.make_room()
        self.assertEqual(self.account("show", "Test").stdout, before)

    def test_a_session_that_sets_properties_says_that_they_are_lost(self):
        """A server restricts a node and is told 200: the device says that it will not remember."""
        with DmServer(scenario("profiles", **SET_TITLE)) as server:
            self.account("set", "Test", "address=" + server.url)
            self.fill()
            result = self.handset.dmclient("session", "Test", "--json")
        notes = [json.loads(line).get("note", "") for line in result.stdout.splitlines()]
        self.assertTrue(any("are not kept: cannot write" in note for note in notes), notes)
        self.assert_says_that_it_is_not_kept(result, "properties.json")

    def test_a_server_hears_that_its_change_of_the_account_is_not_stored(self):
        """A server replaces the title of its account: 510, and not 200."""
        change = {"packages": [{"commands": [{"replace": "./DMAcc/Test/Name", "data": "New"}]}]}
        with DmServer(scenario("profiles", **change)) as server:
            self.account("set", "Test", "address=" + server.url)
            self.fill()
            result = self.handset.dmclient("session", "Test")
        self.assertIn(b"Replace ./DMAcc/Test/Name: 510", result.stdout)
        self.assertEqual(result.returncode, REFUSED)
        self.make_room()
        self.assertIn(b"title=Old\n", self.account("show", "Test").stdout)

    def test_an_identity_that_cannot_be_stored_is_not_left_empty(self):
        """The first use makes the device's identifier: it fails, and the next one has room."""
        os.unlink(self.handset.client_file("device-id"))
        self.fill()
        self.assert_says_that_it_is_not_kept(self.handset.dmclient("tree"), "device-id")
        self.make_room()
        self.assertEqual(self.handset.dmclient("tree").returncode, SUCCESS)

    def test_an_endless_series_of_failures_leaves_no_other_files(self):
        """What was begun aside is taken away, so that the disk does not fill up with it."""
        self.fill()
        before = sorted(os.listdir(self.folder))
        for _ in range(3):
            self.account("set", "Test", "title=New")
            self.replace_title("New")
        self.assertEqual(sorted(os.listdir(self.folder)), before)


class FewFiles(HandsetTest):
    """A file system on which only some more files can be made."""

    def replace(self, left, has_second_look):
        """Exit status, what was said, and the value afterwards, of a command that can make so many."""
        folder = os.path.join(self.handset.home, "mount")
        os.mkdir(folder)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=16m,nr_inodes=400,mode=700", "tmpfs",
                        folder], check=True)
        try:
            copy = Handset(state=os.path.join(folder, "state"))
            shutil.copytree(self.handset.state, copy.state)
            if not has_second_look:
                with open(copy.path("large"), "wb") as file:
                    file.truncate(1 << 42)  # what no copy has room for
            fillers = [os.path.join(folder, str(number))
                       for number in range(os.statvfs(folder).f_ffree - left)]
            for filler in fillers:
                os.mkdir(filler)
            result = copy.dmclient("replace", LINGER, "70000")
            self.assertEqual([name for name in os.listdir(copy.client_file("")) if "scratch" in name], [])
            for filler in fillers:
                os.rmdir(filler)
            linger = copy.profile("Office")["gprs"]["linger"]
            copy.close()
        finally:
            subprocess.run(["umount", folder], check=True)
            os.rmdir(folder)
        return result.returncode, result.stderr.decode(), linger

    def test_what_a_second_look_makes_is_never_what_a_command_then_lacks(self):
        """With the last files that can be made a command does what it does without a second look."""
        self.handset.dmclient("tree")
        for left, status in ((0, UNUSABLE), (3, SUCCESS), (5, SUCCESS), (8, SUCCESS), (13, SUCCESS)):
            with self.subTest(left):
                alone, _, value = self.replace(left, has_second_look=False)
                looked, said, same_value = self.replace(left, has_second_look=True)
                self.assertEqual((looked, same_value), (alone, value), said)
                self.assertEqual(looked, status, said)
                if status == SUCCESS:
                    self.assertIn("no second look: too little room", said)
        self.assertIn("but reads 4464", self.replace(200, has_second_look=True)[1])


class EditedText(HandsetTest):
    """The disk on which napictl has a text edited has room for the folder, and for nothing in it."""

    def test_nothing_is_edited_that_could_not_be_written(self):
        folder = os.path.join(self.handset.home, "small")
        os.mkdir(folder)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=4k,mode=700", "tmpfs", folder], check=True)
        self.addCleanup(subprocess.run, ["umount", folder], check=True)
        with open(os.path.join(folder, "filling"), "wb") as filling:
            filling.write(bytes(4096))
        seen = os.path.join(self.handset.home, "seen")
        result = self.handset.run("napictl", "edit", "Office", VISUAL=f"touch {seen}; true", TMPDIR=folder)
        self.assertEqual(result.returncode, 3, result.stderr)
        self.assertIn("cannot write a text to edit", result.stderr)
        self.assertIn("No space left on device", result.stderr)
        self.assertFalse(os.path.exists(seen))
        self.assertEqual(os.listdir(folder), ["filling"])


if __name__ == "__main__":
    unittest.main()

"""The second look where something stands in its way: it is told, and changes nothing."""

import json
import os
import pwd
import resource
import signal
import subprocess
import time
import unittest

from handset import CONN, DMCLIENT, PLUGIN, PROXY, SECRET, HandsetTest

SUCCESS, UNUSABLE = 0, 3
QUOTA = 256 * 1024
LINGER = CONN + "/Office/Linger"


def children(process):
    with open(f"/proc/{process}/task/{process}/children", encoding="ascii") as file:
        return [int(word) for word in file.read().split()]


class AttacksTest(HandsetTest):
    PLANTS_FILES = True

    def scratch(self):
        return [name for name in os.listdir(self.handset.client_file(""))
                if name.startswith("scratch-")]

    def wait_until(self, condition):
        deadline = time.monotonic() + 60
        while not condition():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.01)

    def shell(self):
        """A client that has looked at one change."""
        process = subprocess.Popen([DMCLIENT, "--plugin", PLUGIN, "shell"], text=True, bufsize=1,
                                   env=self.handset.environment(), stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.addCleanup(self.end, process)
        self.assertEqual(self.ask(process, f"replace {LINGER} 70000"),
                         f"replace {LINGER}: 200 OK, but reads 4464\n")
        return process

    @staticmethod
    def end(process):
        process.kill()
        process.wait()
        process.stdin.close()
        process.stdout.close()

    @staticmethod
    def ask(process, line):
        process.stdin.write(line + "\n")
        process.stdin.flush()
        return process.stdout.readline()

    def assert_told(self, text, *words):
        result = self.handset.dmclient(*words)
        self.assertEqual(result.returncode, SUCCESS)
        self.assertIn("no second look: ", result.stderr.decode())
        self.assertIn(text, result.stderr.decode())
        self.assertEqual(self.scratch(), [])

    # ---- The copy --------------------------------------------------------------------------------

    def test_the_copy_is_its_owners_only(self):
        process = self.shell()
        [name] = self.scratch()
        for folder, _, files in os.walk(self.handset.client_file(name)):
            self.assertEqual(os.stat(folder).st_mode & 0o777, 0o700, folder)
            for file in files:
                self.assertEqual(os.stat(os.path.join(folder, file)).st_mode & 0o077, 0, file)
        process.stdin.close()
        self.assertEqual(process.wait(), SUCCESS)
        self.assertEqual(self.scratch(), [])

    def test_no_copy_outlives_a_client_that_is_killed(self):
        for number in (signal.SIGKILL, signal.SIGINT, signal.SIGTERM):
            with self.subTest(number):
                process = self.shell()
                process.send_signal(number)
                process.wait()
                self.wait_until(lambda: not self.scratch())

    def test_a_copy_that_was_left_goes_with_the_next_run(self):
        process = self.shell()
        [look] = children(process.pid)
        os.kill(process.pid, signal.SIGSTOP)  # so that it does not tidy up itself
        os.kill(look, signal.SIGKILL)
        process.kill()
        process.wait()
        self.assertEqual(len(self.scratch()), 1)
        self.assertEqual(self.handset.dmclient("get", "./DevInfo/Man").returncode, SUCCESS)
        self.assertEqual(self.scratch(), [])

    def test_nothing_but_such_a_copy_is_removed(self):
        outside = os.path.join(self.handset.home, "outside")
        os.mkdir(outside, 0o700)
        with open(os.path.join(outside, "mine"), "w", encoding="ascii") as file:
            file.write("x")
        os.symlink(outside, self.handset.client_file("scratch-link"))
        with open(self.handset.client_file("scratch-file"), "w", encoding="ascii") as file:
            file.write("x")
        os.mkdir(self.handset.client_file("scratch-open"), 0o755)
        os.mkdir(self.handset.client_file("scratch-foreign"), 0o700)
        expected = {"scratch-link", "scratch-file", "scratch-open"}
        if os.geteuid() == 0:
            os.chown(self.handset.client_file("scratch-foreign"), pwd.getpwnam("nobody").pw_uid, -1)
            expected.add("scratch-foreign")
        self.handset.dmclient("replace", LINGER, "7")
        self.assertEqual(set(self.scratch()), expected)
        self.assertEqual(os.listdir(outside), ["mine"])

    def test_the_process_removes_no_other_folder(self):
        for name in ("outside", "scratch-open"):
            outside = os.path.join(self.handset.home, name)
            os.mkdir(outside, 0o755)
            for stdin in (b"", b"\xff" * 64, b"\x04\0\0\0\0\0\0\0"):
                subprocess.run([DMCLIENT, "--second-look", outside], input=stdin, check=False,
                               capture_output=True, timeout=60)
            self.assertTrue(os.path.isdir(outside))

    # ---- What stands in its way ------------------------------------------------------------------

    def test_a_mapping_file_that_cannot_be_copied(self):
        path = self.handset.path("settings", "kub_proxy_profilemapping.cfg")
        self.handset.dmclient("get", CONN)
        if os.path.exists(path):
            os.unlink(path)
        os.symlink("/etc/passwd", path)
        self.assert_told(path, "replace", LINGER, "70000")
        self.assertEqual(self.handset.profile("Office")["gprs"]["linger"], 4464)

    def test_a_state_directory_without_room_for_a_copy(self):
        with open(self.handset.path("large"), "wb") as file:
            file.truncate(1 << 42)
        self.assert_told("too little room", "replace", LINGER, "70000")
        self.assertEqual(self.handset.profile("Office")["gprs"]["linger"], 4464)

    def test_a_copy_that_cannot_be_written_to_its_end(self):
        """A quota keeps the copy of one file from being written, when others were."""
        path = self.handset.client_file("properties.json")
        self.assertEqual(self.handset.dmclient("replace", "./DevDetail?prop=Title", "x").returncode, SUCCESS)
        with open(path, encoding="utf-8") as file:
            properties = file.read()
        with open(path, "w", encoding="utf-8") as file:
            file.write(properties + " " * QUOTA)

        def limited():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (QUOTA, QUOTA))
        result = subprocess.run([DMCLIENT, "--plugin", PLUGIN, "replace", LINGER, "70000"],
                                env=self.handset.environment(), preexec_fn=limited, timeout=120,
                                check=False, capture_output=True, text=True)
        self.assertEqual((result.returncode, result.stdout), (SUCCESS, ""))
        self.assertRegex(result.stderr, fr"^dmclient: replace {LINGER}: no second look: cannot write "
                                        r"\S*/scratch-\w+/client/properties.json: File too large\n$")
        self.assertEqual(self.scratch(), [])
        self.assertEqual(self.handset.profile("Office")["gprs"]["linger"], 4464)

    @unittest.skipIf(os.geteuid() != 0, "needs root, to become somebody else")
    def test_a_folder_that_cannot_be_written(self):
        self.handset.dmclient("get", LINGER)  # what a handset has that is in use
        subprocess.run(["chown", "-R", "nobody", self.handset.home], check=True)
        os.chmod(self.handset.client_file(""), 0o500)
        result = self.handset.run("dmclient", "replace", LINGER, "70000",
                                  prefix=["setpriv", "--reuid=nobody", "--clear-groups"])
        folder = self.handset.client_file("")[:-1]
        self.assertEqual(result.stderr.splitlines(),
                         [f"dmclient: replace {LINGER}: no second look: cannot make a folder in {folder}: "
                          "Permission denied",
                          f"dmclient: cannot write {folder}/properties.json: Permission denied"])
        self.assertEqual((result.returncode, result.stdout), (UNUSABLE, ""))
        subprocess.run(["chown", "-R", "root", self.handset.home], check=True)
        self.assertEqual(self.handset.profile("Office")["gprs"]["linger"], 4464)

    def test_a_record_says_that_there_was_no_second_look(self):
        with open(self.handset.path("large"), "wb") as file:
            file.truncate(1 << 42)
        record = os.path.join(self.handset.home, "record")
        self.assert_told("too little room", "--record", record, "replace", LINGER, "70000")
        with open(record, encoding="utf-8") as file:
            notes = [event["text"] for event in map(json.loads, file) if event["event"] == "note"]
        self.assertEqual(len(notes), 1)
        self.assertIn("no second look: too little room", notes[0])

    def test_a_process_that_is_killed(self):
        process = self.shell()
        for look in children(process.pid):
            os.kill(look, signal.SIGKILL)
        self.assertEqual(self.ask(process, f"replace {LINGER} 70001"), f"replace {LINGER}: 200 OK\n")
        self.assertEqual(process.stdout.readline(),
                         f"replace {LINGER}: no second look: its process has ended\n")
        self.assertEqual(self.ask(process, f"replace {LINGER} 70002"), f"replace {LINGER}: 200 OK\n")
        process.stdin.close()
        self.assertEqual(process.wait(), SUCCESS)
        self.assertEqual((process.stdout.read(), self.scratch()), ("", []))
        self.assertEqual(self.handset.profile("Office")["gprs"]["linger"], 70002 - 65536)

    def test_a_device_that_goes_another_way(self):
        process = self.shell()
        self.handset.napictl("delete", "Home")
        self.assertIn("Home: 500 ", self.ask(process, f"delete {CONN}/Home"))
        answers = [self.ask(process, f"replace {LINGER} 9"), process.stdout.readline()]
        self.assertTrue(any("no second look: it went another way at Delete" in answer
                            for answer in answers), answers)

    # ---- What the device is asked ----------------------------------------------------------------

    def test_the_profiles_are_what_they_are_without_a_second_look(self):
        lines = "\n".join((f"replace {LINGER} 70000", f"rename {CONN}/Office Team",
                           f"replace {CONN}/Team/Bearer GSM-CSD", f"add {CONN}/Empty",
                           f"delete {PROXY}/Home", f"replace {CONN}/Team/Auth/PAP/AuthPw {SECRET}x"))
        looked = self.handset.dmclient("shell", stdin=lines)
        exported = self.handset.napictl("export", "--show-secrets")
        self.handset.close()
        self.setUp()
        with open(self.handset.path("large"), "wb") as file:
            file.truncate(1 << 42)  # no room for a copy
        alone = self.handset.dmclient("shell", stdin=lines)
        self.assertIn(b"no second look", alone.stdout)
        self.assertEqual(self.handset.napictl("export", "--show-secrets"), exported)

        def answers(result):
            return [line.split(", but ")[0] for line in result.stdout.decode().splitlines()
                    if line[0].islower() and "no second look" not in line]
        self.assertEqual(answers(looked), answers(alone))


if __name__ == "__main__":
    unittest.main()

"""The records of sessions that a state directory keeps."""

import json
import os
import shutil
import signal
import subprocess
import unittest

import records
from handset import CONN, DMCLIENT, PLUGIN
from sessions import DIFFERENT, REFUSED, SUCCESS, UNUSABLE, USAGE, SessionTest, scenario


class KeptRecordTest(SessionTest):
    def setUp(self):
        super().setUp()
        self.folder = self.handset.client_file("records")

    def names(self):
        return sorted(os.listdir(self.folder))

    def run_record(self, *words, status=SUCCESS):
        result = self.handset.run("dmclient", "record", *words)
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        return result

    def fail_session(self):
        self.play(scenario("profiles", misbehave=["garbage"]))

    def plant(self, count, size=0):
        """Older records of sessions, each of that size at least."""
        os.makedirs(self.folder, mode=0o700, exist_ok=True)
        for number in range(count):
            path = os.path.join(self.folder, f"20200101T0000{number:02}-{number:016x}.jsonl")
            with open(path, "w", encoding="ascii") as file:
                file.write("x" * size)

    def test_every_session_is_kept_for_its_owner_alone(self):
        self.play(scenario("profiles"))
        (name,) = self.names()
        self.assertRegex(name, "^[0-9]{8}T[0-9]{6}-[0-9a-f]{16}[.]jsonl$")
        path = os.path.join(self.folder, name)
        self.assertEqual([os.stat(file).st_mode & 0o777 for file in (self.folder, path)],
                         [0o700, 0o600])
        events = records.load(path)
        self.assertEqual(records.faults(events), [])
        self.assertEqual(events[-1]["kind"], "completed")
        self.assertIn(events[0]["run"], name)

    def test_a_session_that_is_recorded_elsewhere_is_kept_as_well(self):
        path = os.path.join(self.handset.home, "record.jsonl")
        self.play(scenario("profiles"), "--record", path)
        self.assertEqual(records.load(path),
                         records.load(os.path.join(self.folder, self.names()[0])))

    def test_a_session_of_a_recorded_shell_stands_in_its_record_only(self):
        path = os.path.join(self.handset.home, "record.jsonl")
        lines = "get ./DevInfo/Man\nsession http://127.0.0.1:1/\n"
        self.handset.dmclient("shell", "--record", path, stdin=lines)
        self.assertEqual(len(records.of(records.load(path), "request")), 3)
        self.assertFalse(os.path.exists(self.folder))
        self.handset.dmclient("shell", stdin=lines)
        self.assertEqual(len(self.names()), 1)

    def test_the_end_has_the_exit_status_of_the_program(self):
        linger = f"{CONN}/Office/Linger"
        played = scenario("profiles", packages=[{"commands": [{"replace": linger, "data": "70000",
                                                               "format": "int"}]}])
        for options, wanted in (((), SUCCESS), (("--strict",), DIFFERENT)):
            with self.subTest(options=options):
                status, _, _ = self.play(played, *options)
                newest = json.loads(self.run_record("list", "--json").stdout)[-1]
                self.assertEqual((status, newest["status"]), (wanted, wanted))

    def test_other_commands_are_not_kept(self):
        self.handset.dmclient("get", "./DevInfo/Man")
        self.assertFalse(os.path.exists(self.folder))

    def test_the_oldest_go_when_there_are_too_many(self):
        self.plant(25)
        self.fail_session()
        names = self.names()
        self.assertEqual(len(names), 20)
        self.assertEqual(names[0], "20200101T000006-0000000000000006.jsonl")

    def test_the_oldest_go_when_they_are_too_large(self):
        self.plant(6, 10 * 1024 * 1024)
        self.fail_session()
        self.assertEqual(len(self.names()), 5)
        self.assertLessEqual(sum(os.path.getsize(os.path.join(self.folder, name))
                                 for name in self.names()), 50 * 1024 * 1024)

    def test_other_files_in_the_folder_stay(self):
        self.plant(25)
        other = os.path.join(self.folder, "00000101T000000-mine.jsonl")
        with open(other, "w", encoding="ascii"):
            pass
        self.fail_session()
        self.assertTrue(os.path.exists(other))

    def test_a_folder_that_cannot_be_used_keeps_no_session_from_running(self):
        with open(self.folder, "w", encoding="ascii"):
            pass
        status, lines, _ = self.play(scenario("profiles"))
        self.assertEqual(status, SUCCESS)
        self.assertIn("session completed", lines[-1].lower())
        self.assertEqual(self.stderr.count("the session is not recorded"), 1)

    def test_a_link_in_the_place_of_the_folder_is_not_followed(self):
        target = os.path.join(self.handset.home, "elsewhere")
        os.mkdir(target, 0o700)
        os.symlink(target, self.folder)
        status, _, _ = self.play(scenario("profiles"))
        self.assertEqual((status, os.listdir(target)), (SUCCESS, []))
        self.assertIn("symbolic link", self.stderr)

    def test_records_behind_a_link_or_in_a_folder_of_everybody_are_left_alone(self):
        self.play(scenario("profiles"))
        [name] = self.names()
        target = os.path.join(self.handset.home, "elsewhere")
        client = os.path.dirname(self.folder)
        page = os.path.join(self.handset.home, "page.html")

        def assert_refused(reason):
            for words in (("record", "list"), ("record", "show"), ("record", "show", name),
                          ("record", "remove", name), ("record", "remove", "--all"),
                          ("report", "-o", page), ("report", name, "-o", page)):
                result = self.handset.dmclient(*words)
                self.assertNotEqual(result.returncode, SUCCESS, words)
                self.assertIn(reason, result.stderr.decode(), words)
                self.assertEqual(result.stdout, b"")
            self.assertFalse(os.path.exists(page))

        os.rename(self.folder, target)
        os.symlink(target, self.folder)
        assert_refused("it is a symbolic link")
        self.assertEqual(os.listdir(target), [name])
        os.remove(self.folder)
        os.rename(target, self.folder)
        for folder in (self.folder, client, os.path.dirname(client)):
            os.chmod(folder, 0o777)
            assert_refused("other users can write to it")
            os.chmod(folder, 0o700)
        self.assertEqual(self.names(), [name])

    # ---- record list, show, remove ---------------------------------------------------------------

    def test_list_has_a_line_for_each_record(self):
        self.play(scenario("profiles"))
        self.fail_session()
        first, second = self.run_record("list").stdout.splitlines()
        self.assertRegex(first, r"session .*Test: completed \(6 messages, 16 commands, 0 refused\)")
        self.assertRegex(second, "session .*Test: failed")
        listed = json.loads(self.run_record("list", "--json").stdout)
        self.assertEqual(sorted(record["name"] for record in listed), self.names())

    def test_show_tells_of_the_newest_or_the_named_record(self):
        self.play(scenario("profiles"))
        name = self.names()[0]
        self.fail_session()
        self.assertIn("failed", self.run_record("show").stdout)
        text = self.run_record("show", name).stdout
        self.assertEqual(text, self.run_record("show", name.removesuffix(".jsonl")).stdout)
        self.assertIn("gprsAddress (byte 8, size 100)", text)
        path = os.path.join(self.folder, name)
        with open(path, encoding="utf-8") as file:
            self.assertEqual(self.run_record("show", name, "--json").stdout, file.read())
        self.assertEqual(self.run_record("show", path).stdout, text)

    def test_show_names_line_and_reason_of_what_is_not_a_record(self):
        os.makedirs(self.folder, mode=0o700)
        run = json.dumps({"t": 0, "event": "run", "format": 1})
        for content, reason in ((b"", "a record begins with a run"),
                                (b"{\n", "line 1: byte"),
                                (b'{"t":0,"event":"note"}\n', "line 1: a record begins with a run"),
                                (run.replace("1}", "2}").encode() + b"\n", "format other than 1"),
                                (run.encode() + b'\n{"t":0}\n', "line 2: it is not an event"),
                                (run.encode() + b"\n" + b"[" * 5000 + b"\n", "line 2: byte"),
                                (run.encode() + b"\n" + b" " * (41 << 20) + b"\n",
                                 "line 2: it is longer than")):
            with self.subTest(content=content[:80]):
                path = os.path.join(self.folder, "20200101T000000-0000000000000000.jsonl")
                with open(path, "wb") as file:
                    file.write(content)
                result = self.run_record("show", status=UNUSABLE)
                self.assertIn(reason, result.stderr)
                self.assertIn(path, result.stderr)

    def test_a_last_line_that_is_not_whole_is_left_out(self):
        path = os.path.join(self.handset.home, "record.jsonl")
        with open(path, "w", encoding="ascii") as file:
            file.write('{"t":0,"event":"run","format":1}\n{"t":1,"event":"note","text":"one"}\n{"t":2')
        lines = self.run_record("show", path).stdout.splitlines()
        self.assertIn("note: one", lines[-1])

    def test_a_file_that_is_too_large_or_no_file_is_not_read(self):
        path = os.path.join(self.handset.home, "record.jsonl")
        with open(path, "wb") as file:
            file.truncate(300 << 20)
        self.assertIn("larger than", self.run_record("show", path, status=UNUSABLE).stderr)
        os.remove(path)
        os.mkfifo(path)
        self.assertIn("not a regular file", self.run_record("show", path, status=UNUSABLE).stderr)

    def test_a_link_among_the_records_is_not_followed(self):
        self.fail_session()
        path = os.path.join(self.folder, self.names()[0])
        moved = os.path.join(self.handset.home, "moved")
        os.rename(path, moved)
        os.symlink(moved, path)
        self.assertIn("symbolic link", self.run_record("show", status=UNUSABLE).stderr)

    def test_a_record_is_named_in_one_way_for_every_command(self):
        self.fail_session()
        name = self.names()[0]
        path = os.path.join(self.handset.home, "there.jsonl")
        shutil.copy(os.path.join(self.folder, name), path)
        for command in (("record", "show"), ("report", "-o", "-"), ("replay",)):
            outputs = set()
            for word in (name, name.removesuffix(".jsonl"), path):
                with self.subTest(command=command, word=word):
                    result = self.handset.run("dmclient", *command, word)
                    self.assertEqual(result.returncode, SUCCESS, result.stderr)
                    outputs.add(result.stdout)
            self.assertEqual(len(outputs), 1)
            missing = self.handset.run("dmclient", *command, "nobody")
            self.assertIn(f"there is neither a record nobody in {self.folder} nor a file nobody",
                          missing.stderr)

    def test_remove_takes_away_the_named_records_or_all(self):
        self.plant(3)
        self.run_record("remove", "20200101T000001-0000000000000001")
        self.assertEqual(len(self.names()), 2)
        missing = self.run_record("remove", "../accounts.json", status=REFUSED)
        self.assertIn("there is no record ../accounts.json", missing.stderr)
        self.run_record("remove", status=USAGE)
        self.run_record("remove", "--all")
        self.assertEqual(self.names(), [])

    # ---- A run that is killed --------------------------------------------------------------------

    def test_a_killed_run_leaves_whole_lines(self):
        path = os.path.join(self.handset.home, "record.jsonl")
        sizes = set()
        for lines in (1, 2, 5, 20, 60, 150):
            shell = subprocess.Popen([DMCLIENT, "--plugin", PLUGIN, "--record", path, "shell"],
                                     env=self.handset.environment(), stdin=subprocess.PIPE,
                                     stdout=subprocess.PIPE)
            shell.stdin.write(b"tree\n" * 1000)
            shell.stdin.flush()
            for _ in range(lines):
                shell.stdout.readline()
            shell.send_signal(signal.SIGKILL)
            shell.communicate()
            with open(path, "rb") as file:
                content = file.read()
            sizes.add(len(content))
            whole = content[:content.rfind(b"\n") + 1].splitlines()
            self.assertLess(len(content) - content.rfind(b"\n"), 1 << 16)
            for line in whole:
                json.loads(line)
            self.run_record("show", path)
        self.assertGreater(len(sizes), 1)


if __name__ == "__main__":
    unittest.main()

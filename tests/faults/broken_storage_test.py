#!/usr/bin/python3
"""Storage that is full, cannot be written, is gone or is damaged: a clear error, and nothing lost."""
import os
import shlex
import shutil
import subprocess
import unittest

import stored_profiles
from handset import CONN, NAPICTL, PROGRAMS, PROXY, Handset, HandsetTest, Shell

NAPDEF_FILE = "kub_napdef_profilemapping.cfg"
NOBODY = 65534


def shell_line(program, *arguments):
    return shlex.join([*PROGRAMS[program], *arguments])


class BrokenStorageTest(HandsetTest):
    PROFILES = stored_profiles.PROFILES

    def setUp(self):
        super().setUp()
        self.handset.succeed("dmclient", "tree")
        self.before = self.handset.export()

    def assert_fails_clearly(self, result, about, statuses=(1, 3)):
        said = result.stdout + result.stderr
        self.assertIn(result.returncode, statuses, said)
        self.assertIn(about, said)
        self.assertNotIn("terminate called", said)

    def assert_nothing_lost(self):
        self.handset.napictl("check")
        self.assertEqual(self.handset.export(), self.before)
        self.handset.succeed("dmclient", "tree")

    # ---- Full ------------------------------------------------------------------------------------

    def on_full_disk(self, *commands):
        """Runs commands on a copy of the state on a full file system, then makes room and exports."""
        mount_point = os.path.join(os.path.dirname(self.handset.state), "full")
        os.mkdir(mount_point)
        full = Handset(state=os.path.join(mount_point, "state"))
        self.addCleanup(full.close)
        lines = ["set -e", f"mount -t tmpfs -o size=1m tmpfs '{mount_point}'",
                 f"cp -r '{self.handset.state}' '{full.state}'",
                 f"dd if=/dev/zero of='{mount_point}/filler' bs=4096 2>/dev/null || true", "set +e"]
        for command in commands:
            lines.append(shell_line(*command))
            lines.append('echo "exit status $?"')
        lines += [f"rm '{mount_point}/filler'", "echo ROOM"]
        for command in (("napictl", "check"), ("dmclient", "tree"),
                        ("napictl", "export", "--show-secrets")):
            lines.append(shell_line(*command) + " || exit 9")
        names = ["--mount"] if os.geteuid() == 0 else ["--mount", "--user", "--map-root-user"]
        result = subprocess.run(["unshare", *names, "sh", "-c", "\n".join(lines)], text=True,
                                env=full.environment(), stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, timeout=60)
        if "ROOM" not in result.stdout:
            self.skipTest("no file system of its own here: " + result.stdout)
        self.assertEqual(result.returncode, 0, result.stdout)
        return result.stdout.split("ROOM")

    def test_a_full_disk_fails_the_write_and_keeps_the_profiles(self):
        said, after = self.on_full_disk(("napictl", "set", "Office", "gprs.address=" + "x" * 90),
                                        ("dmclient", "replace", CONN + "/Office/Addr", "x" * 90))
        self.assertEqual(said.count("exit status 0"), 0, said)
        self.assertRegex(said.lower(), "full|no space")
        self.assertIn('"address": "internet"', after)

    # ---- Not writable ----------------------------------------------------------------------------

    def as_ordinary_user(self):
        """Words in front of a command that may not write what root may."""
        if os.geteuid() != 0:
            return []
        words = ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups"]
        folder = os.path.dirname(self.handset.state)
        subprocess.run(["chown", "-R", f"{NOBODY}:{NOBODY}", folder], check=True)
        probe = subprocess.run([*words, NAPICTL, "--help"],
                               capture_output=True, check=False)
        if probe.returncode != 0:
            self.skipTest("an ordinary user cannot run the programs here")
        return words

    def test_a_read_only_directory_is_named_and_left_as_it_is(self):
        prefix = self.as_ordinary_user()
        for folder, _, files in os.walk(self.handset.state):
            for name in files:
                os.chmod(os.path.join(folder, name), 0o400)
            os.chmod(folder, 0o500)
        self.assert_fails_clearly(
            self.handset.run("napictl", "set", "Office", "gprs.address=x", prefix=prefix),
            self.handset.state)
        self.assert_fails_clearly(
            self.handset.run("dmclient", "replace", CONN + "/Office/Addr", "x", prefix=prefix),
            self.handset.state)
        subprocess.run(["chmod", "-R", "u+rwX", self.handset.state], check=True)
        subprocess.run(["chown", "-R", str(os.geteuid()), os.path.dirname(self.handset.state)],
                       check=True)
        self.assert_nothing_lost()

    # ---- Gone ------------------------------------------------------------------------------------

    def test_a_directory_that_is_removed_under_a_client_fails_its_commands(self):
        shell = Shell(self.handset)
        shell.ask(f"get {CONN}/Office/Addr")
        kept = self.handset.state + ".kept"
        os.rename(self.handset.state, kept)
        # References need the mapping file, whose folder is gone.
        self.assertRegex(shell.ask(f"replace {PROXY}/Office/Ph1/Conn Modem")[-1], r": 500\b")
        self.assertRegex(shell.ask(f"rename {CONN}/Office Work")[-1], r": 500\b")
        shell.close()
        shutil.rmtree(self.handset.state, ignore_errors=True)
        os.rename(kept, self.handset.state)
        self.assert_nothing_lost()

    # ---- Damaged ---------------------------------------------------------------------------------

    def damage(self, offset, data):
        path = self.handset.path("profiles.db")
        for suffix in ("-wal", "-shm"):
            if os.path.exists(path + suffix):
                os.unlink(path + suffix)
        with open(path, "r+b") as file:
            file.seek(offset)
            file.write(data)
        with open(path, "rb") as file:
            return file.read()

    def test_a_file_that_is_no_database_is_refused_and_kept(self):
        bytes_before = self.damage(0, b"this is not a database" * 10)
        self.assert_fails_clearly(self.handset.run("dmclient", "tree"), "profiles.db", (3,))
        self.assert_fails_clearly(self.handset.run("napictl", "list"), "profiles.db")
        with open(self.handset.path("profiles.db"), "rb") as file:
            self.assertEqual(file.read(), bytes_before)

    def test_damage_inside_the_database_is_found(self):
        size = os.path.getsize(self.handset.path("profiles.db"))
        self.damage(4096, b"\xA5" * (size - 4096))
        self.assert_fails_clearly(self.handset.run("napictl", "check"), "profiles.db")
        self.assert_fails_clearly(self.handset.run("dmclient", "tree"), "profiles.db", (3,))

    def test_a_cut_off_database_is_found(self):
        path = self.handset.path("profiles.db")
        os.truncate(path, os.path.getsize(path) // 2)
        for suffix in ("-wal", "-shm"):
            if os.path.exists(path + suffix):
                os.unlink(path + suffix)
        self.assert_fails_clearly(self.handset.run("napictl", "check"), "profiles.db")

    def test_a_folder_in_place_of_a_mapping_file_is_named(self):
        path = self.handset.path("settings", NAPDEF_FILE)
        os.unlink(path)
        os.mkdir(path)
        result = self.handset.run("dmclient", "tree")
        self.assert_fails_clearly(result, path, (3,))
        os.rmdir(path)
        self.assert_nothing_lost()


if __name__ == "__main__":
    unittest.main()

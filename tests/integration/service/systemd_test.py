"""The unit under a systemd of its own: process 1 of namespaces, in a copy of the system that is gone
with them.

The unit's seconds are shortened by a drop-in, and it says nothing else. Where such namespaces are not
allowed the test is skipped: exit status 77, and the reason.
"""

import os
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

from bus import POLICY, SERVICE, OBJECT, SOURCES

DMCLIENTD = os.environ["DMCLIENTD"]
PACKAGING = os.path.realpath(os.path.join(SOURCES, "packaging"))
PATIENCE = 30  # seconds; what takes longer never happens
SKIPPED = 77

NEEDED = ("systemd", "systemctl", "systemd-sysusers", "dbus-daemon", "busctl", "unshare", "nsenter",
          "setpriv", "mount")

# $1 is a folder for the upper layer of the copy, and $2 that of the files that it gets.
BOOT = r"""
set -e
mount --make-rprivate /
mount -t tmpfs tmpfs "$1"
mkdir "$1/upper" "$1/work" "$1/root"
mount -t overlay overlay -o "lowerdir=/,upperdir=$1/upper,workdir=$1/work" "$1/root"
cd "$1/root"
mount -t proc proc proc
mount -t sysfs -o ro sysfs sys
mount -t cgroup2 cgroup2 sys/fs/cgroup
for folder in run tmp dev; do mount -t tmpfs -o mode=755 tmpfs "$folder"; done
chmod 1777 tmp
for node in null zero full random urandom tty; do
    touch "dev/$node"
    mount --bind "/dev/$node" "dev/$node"
done
ln -s /proc/self/fd dev/fd
ln -s pts/ptmx dev/ptmx
# Nothing is started but what the test asks for, and what that needs.
rm -rf usr/lib/systemd/system/*.wants etc/systemd/system var/lib/kub-dm etc/default/dmclientd
mkdir -p etc/systemd/system
cp -r "$2/." .
systemd-sysusers --root="$PWD" "$2"/usr/lib/sysusers.d/*.conf
export container=other
exec chroot . "$(command -v systemd)" --system --unit=test.target --log-target=null
"""

TARGET = """[Unit]
Requires=dbus.service
After=dbus.service
"""
SHORT = f"""[Service]
WatchdogSec=2
RestartSec=100ms
"""
USERS = """u member -
u stranger -
m member kub-dm
"""


def why_not():
    """Why there can be no such systemd here; empty when there can."""
    if os.geteuid() != 0:
        return "it needs root"
    missing = [name for name in NEEDED if not shutil.which(name)]
    if missing:
        return f"not installed: {', '.join(missing)}"
    with tempfile.TemporaryDirectory() as folder:
        tried = subprocess.run(
            ["unshare", "--pid", "--mount", "--cgroup", "--uts", "--ipc", "--net", "--fork", "sh", "-ec",
             'mount --make-rprivate /; mount -t tmpfs tmpfs "$1"; mkdir "$1/a" "$1/b" "$1/c"; '
             'mount -t overlay overlay -o "lowerdir=/,upperdir=$1/a,workdir=$1/b" "$1/c"; '
             'mount -t cgroup2 cgroup2 "$1/a"', "sh", folder],
            capture_output=True, text=True, check=False)
    return tried.stderr.strip()


class SystemdTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        layer, files = (os.path.join(folder.name, name) for name in ("layer", "files"))
        os.mkdir(layer)
        cls.install(files)
        cls.machine = subprocess.Popen(
            ["unshare", "--pid", "--mount", "--cgroup", "--uts", "--ipc", "--net", "--fork",
             "--kill-child", "sh", "-c", BOOT, "sh", layer, files],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        cls.addClassCleanup(cls.machine.stderr.close)
        cls.addClassCleanup(cls.machine.wait)
        cls.addClassCleanup(cls.machine.kill)
        cls.wait_until(cls.is_up)

    @staticmethod
    def install(files):
        """What an installation has, where a package would put it."""
        for source, place in (
                (DMCLIENTD, "usr/local/bin"),
                (os.path.join(PACKAGING, "systemd", "dmclientd.service"), "usr/lib/systemd/system"),
                (POLICY, "usr/share/dbus-1/system.d"),
                (os.path.join(PACKAGING, "sysusers", "kub-dm.conf"), "usr/lib/sysusers.d")):
            os.makedirs(os.path.join(files, place))
            shutil.copy(source, os.path.join(files, place))
        for name, text in (("etc/systemd/system/test.target", TARGET),
                           ("etc/systemd/system/dmclientd.service.d/short.conf", SHORT),
                           ("usr/lib/sysusers.d/test-users.conf", USERS)):
            file = os.path.join(files, name)
            os.makedirs(os.path.dirname(file), exist_ok=True)
            with open(file, "w", encoding="ascii") as stream:
                stream.write(text)

    @classmethod
    def run_inside(cls, *words):
        # The systemd is the only child of unshare, the process in whose namespaces it is.
        children = f"/proc/{cls.machine.pid}/task/{cls.machine.pid}/children"
        with open(children, encoding="ascii") as file:
            inside = file.read().split()[0]
        return subprocess.run(["nsenter", f"--target={inside}", "--all", "--root", "--wd=/", *words],
                              stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=PATIENCE, check=False)

    @classmethod
    def is_up(cls):
        if cls.machine.poll() is not None:
            raise AssertionError(f"the systemd is gone: {cls.machine.stderr.read()}")
        try:
            # In a system that is itself beneath a changed root, systemctl ends well without a word.
            return cls.run_inside("systemctl", "is-active", "dbus").stdout == "active\n"
        except IndexError:
            return False  # there is none yet

    @classmethod
    def wait_until(cls, condition):
        end = time.monotonic() + PATIENCE
        while not condition():
            if time.monotonic() > end:
                raise AssertionError("it does not happen: "
                                     + cls.run_inside("systemctl", "status", "dmclientd").stdout)
            time.sleep(0.05)

    def systemctl(self, *words):
        result = self.run_inside("systemctl", *words)
        self.assertEqual(result.returncode, 0, result.stderr)
        return result.stdout

    def property(self, name):
        return self.systemctl("show", "dmclientd", "--value", "--property=" + name).strip()

    def call(self, user, *words):
        return self.run_inside("setpriv", f"--reuid={user}", f"--regid={user}", "--init-groups",
                               "busctl", *words)

    def setUp(self):
        self.systemctl("start", "dmclientd")
        self.addCleanup(self.run_inside, "systemctl", "stop", "dmclientd")
        self.addCleanup(self.run_inside, "systemctl", "reset-failed", "dmclientd")

    def test_it_is_started_when_it_is_ready(self):
        # By Type=notify the start is over when the service has said so, and it is on the bus by then.
        self.assertEqual(self.property("ActiveState"), "active")
        owner = self.run_inside("busctl", "status", SERVICE)
        self.assertIn(f"PID={self.property('MainPID')}\n", owner.stdout, owner.stderr)

    def test_it_has_a_state_directory_that_only_root_sees_and_no_capability(self):
        listed = self.run_inside("stat", "--format=%a %U", "/var/lib/kub-dm",
                                 "/var/lib/kub-dm/service/lock")
        self.assertEqual(listed.stdout, "700 root\n600 root\n", listed.stderr)
        status = self.run_inside("cat", f"/proc/{self.property('MainPID')}/status").stdout
        self.assertIn("CapEff:\t0000000000000000\n", status)
        self.assertIn("NoNewPrivs:\t1\n", status)
        self.assertIn("Seccomp:\t2\n", status)

    def test_it_answers_the_watchdog_and_is_started_again_when_it_does_not(self):
        first = self.property("WatchdogTimestampMonotonic")
        main = self.property("MainPID")
        self.wait_until(lambda: self.property("WatchdogTimestampMonotonic") != first)
        self.assertEqual(self.property("NRestarts"), "0")
        self.run_inside("kill", "-STOP", main)
        self.wait_until(lambda: self.property("NRestarts") == "1"
                        and self.property("ActiveState") == "active")
        self.assertNotEqual(self.property("MainPID"), main)

    def test_it_is_started_again_when_it_was_killed(self):
        main = self.property("MainPID")
        self.run_inside("kill", "-KILL", main)
        self.wait_until(lambda: self.property("NRestarts") == "1"
                        and self.property("ActiveState") == "active")
        self.assertNotEqual(self.property("MainPID"), main)

    def test_a_restart_is_a_good_end_and_a_new_start(self):
        main = self.property("MainPID")
        self.systemctl("restart", "dmclientd")
        self.assertEqual(self.property("ActiveState"), "active")
        self.assertNotEqual(self.property("MainPID"), main)
        self.assertEqual(self.property("NRestarts"), "0")
        self.systemctl("stop", "dmclientd")
        self.assertEqual((self.property("ActiveState"), self.property("Result")),
                         ("inactive", "success"))

    def test_members_of_its_group_may_have_sessions_and_others_may_look(self):
        start = ("call", SERVICE, OBJECT, SERVICE, "StartSession", "sa{sv}", "Nobody", "0")
        self.assertRegex(self.call("member", *start).stderr, "no account Nobody")
        self.assertRegex(self.call("stranger", *start).stderr, "Access denied|AccessDenied")
        for user in ("member", "stranger"):
            seen = self.call(user, "get-property", SERVICE, OBJECT, SERVICE, "State")
            self.assertEqual(seen.stdout, 's "idle"\n', seen.stderr)


if __name__ == "__main__":
    reason = why_not()
    if reason:
        print(f"skipped: no systemd of its own can be had: {reason}", file=sys.stderr)
        sys.exit(SKIPPED)
    unittest.main()

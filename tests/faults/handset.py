"""A simulated handset for the tests that run the real programs: a state directory and its commands."""
import json
import os
import shutil
import subprocess
import tempfile

CONN = "./DevDetail/Ext/Conf/Conn/Profiles/"
INT_PROFS = "./DevDetail/Ext/Conf/IntProfs/Profiles/"

PROFILES = [
    {"name": "Office", "gprs": {"address": "internet", "authId": "user", "dns1": "10.0.0.1"},
     "proxy1": {"address": "proxy.example", "port": 8080}},
    {"name": "Modem", "csd": {"address": "+49172", "lineType": "Isdn", "speed": 9600}},
    {"name": "Second", "csd2": {"address": "+49173"}},
    {"name": "Büro", "gprs": {"address": "intranet"}, "csd": {"address": "+49174"}},
]


class Handset:
    def __init__(self, programs, state=None):
        self.programs = programs
        self._folder = None if state else tempfile.TemporaryDirectory()
        self.state = state or os.path.join(self._folder.name, "state")

    def close(self):
        if self._folder:
            self._folder.cleanup()

    def path(self, *names):
        return os.path.join(self.state, *names)

    def command(self, program, *arguments):
        return [os.path.join(self.programs, program), "--state", self.state, *arguments]

    def run(self, program, *arguments, text="", prefix=(), **options):
        """Runs a command to its end. Standard output, standard error and exit status in the result."""
        return subprocess.run([*prefix, *self.command(program, *arguments)], input=text, text=True,
                              capture_output=True, timeout=60, **options)

    def napictl(self, *arguments, **options):
        return self.run("napictl", *arguments, **options)

    def dmclient(self, *arguments, **options):
        return self.run("dmclient", *arguments, **options)

    def shell(self, commands, **options):
        return self.run("dmclient", "shell", text="".join(line + "\n" for line in commands), **options)

    def provision(self, profiles=None):
        result = self.napictl("import", "-", text=json.dumps(profiles or PROFILES))
        assert result.returncode == 0, result.stderr

    def export(self):
        """Every profile by name."""
        result = self.napictl("export", "--show-secrets")
        assert result.returncode == 0, result.stderr
        return {profile["name"]: profile for profile in json.loads(result.stdout)}

    def check(self):
        result = self.napictl("check")
        assert result.returncode == 0, result.stdout + result.stderr

    def mounts(self):
        result = self.dmclient("tree")
        assert result.returncode == 0, result.stdout + result.stderr

    def copy_from(self, other):
        shutil.rmtree(self.state, ignore_errors=True)
        shutil.copytree(other, self.state)


class Shell:
    """A client that stays mounted while a test does something beside it."""

    def __init__(self, handset):
        self._process = subprocess.Popen(handset.command("dmclient", "shell"),
                                         stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                         stderr=subprocess.STDOUT, text=True, bufsize=1)

    def ask(self, command):
        """Sends a DM command and returns the lines up to the one with its status."""
        self._process.stdin.write(command + "\n")
        self._process.stdin.flush()
        lines = []
        while True:
            line = self._process.stdout.readline()
            assert line, f"the client ended behind {command!r}: {lines}"
            lines.append(line.rstrip("\n"))
            if line.startswith(command.split()[0] + " ./"):
                return lines

    def close(self):
        self._process.stdin.close()
        status = self._process.wait(60)
        self._process.stdout.close()
        return status

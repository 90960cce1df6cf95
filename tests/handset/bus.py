"""A system bus of a test's own."""

import os
import subprocess
import tempfile

SOURCES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
POLICY = os.path.realpath(os.path.join(SOURCES, "packaging", "dbus", "org.kub.DmClient1.conf"))
SERVICE = "org.kub.DmClient1"
OBJECT = "/org/kub/DmClient1"

HEAD = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path={socket}</listen>
  <auth>EXTERNAL</auth>
"""
OPEN = """  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="false"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
"""
# As a distribution's bus is, where nothing may be called that no file allows.
GUARDED = """  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus"/>
  </policy>
  <include>{policy}</include>
</busconfig>
"""


class PrivateBus:
    """A dbus-daemon that ends with the object."""

    def __init__(self, guarded=False):
        """A guarded one lets those do something who may by the installed policy."""
        self._folder = tempfile.TemporaryDirectory()
        os.chmod(self._folder.name, 0o755)
        socket = os.path.join(self._folder.name, "bus")
        configuration = os.path.join(self._folder.name, "bus.conf")
        with open(configuration, "w", encoding="ascii") as file:
            file.write((HEAD + (GUARDED if guarded else OPEN)).format(socket=socket, policy=POLICY))
        self.address = f"unix:path={socket}"
        self._daemon = subprocess.Popen(
            ["dbus-daemon", "--nofork", "--print-address", f"--config-file={configuration}"],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        assert self._daemon.stdout.readline(), "the bus does not start"

    def close(self):
        self._daemon.kill()
        self._daemon.wait()
        self._daemon.stdout.close()
        self._folder.cleanup()

    def call(self, method, *arguments, interface=SERVICE, **options):
        """Calls the service; the result has returncode, stdout and stderr."""
        return subprocess.run(
            ["dbus-send", f"--bus={self.address}", "--print-reply", f"--dest={SERVICE}", OBJECT,
             f"{interface}.{method}", *arguments],
            capture_output=True, text=True, timeout=60, check=False, **options)

    def get(self, name, **options):
        return self.call("Get", f"string:{SERVICE}", f"string:{name}",
                         interface="org.freedesktop.DBus.Properties", **options)

    def start_session(self, account):
        """The same of the method with options, which dbus-send cannot write."""
        return subprocess.run(
            ["busctl", f"--address={self.address}", "call", SERVICE, OBJECT, SERVICE,
             "StartSession", "sa{sv}", account, "0"],
            capture_output=True, text=True, timeout=60, check=False)

"""A stand-in for ModemManager on a test's bus, upon python3-dbusmock.

    modems = ModemManager(bus.address)          # one modem with a SIM card
    path = modems.send_sms(push)                # a received message, announced before it is whole
    modems.deleted()                            # paths of the messages that somebody has deleted
    modems.close()

Every object can be reached with object(path, interface), by dbusmock's own interface too. docs/testing.md says what of a real ModemManager it lacks."""

import subprocess
import sys
import time

import dbus
import dbus.bus
import dbusmock

NAME = "org.freedesktop.ModemManager1"
PATH = "/org/freedesktop/ModemManager1"
MODEM = NAME + ".Modem"
MESSAGING = MODEM + ".Messaging"
SIM = NAME + ".Sim"
SMS = NAME + ".Sms"
OBJECTS = "org.freedesktop.DBus.ObjectManager"
RECEIVING, RECEIVED = 2, 3
DELIVER, SUBMIT, STATUS_REPORT = 1, 2, 3
IMSI = "310170123456789"

# Run by the mocked modem: as ModemManager does, with the words of its errors.
DELETE = f"""
path = str(args[0])
if getattr(self, "refuses", None):
    raise dbus.exceptions.DBusException(self.refuses, name="{NAME}.Error.Core.Unauthorized")
left = list(self.props["{MESSAGING}"]["Messages"])
if path not in left:
    raise dbus.exceptions.DBusException("No SMS found", name="{NAME}.Error.Core.NotFound")
left.remove(path)
self.UpdateProperties("{MESSAGING}", {{"Messages": dbus.Array(left, signature="o")}})
self.RemoveObject(path)
self.EmitSignal("{MESSAGING}", "Deleted", "o", [dbus.ObjectPath(path)])
"""
REFUSE = "self.refuses = str(args[0])"
LIE = ("Lie", "sa{sv}", "", "self.props[str(args[0])].update(args[1])")
# Whoever reads it is told first that its last part has come, and then how it was before.
BE_LATE = f"""
class Late(dict):
    def __getitem__(late, interface):
        now = dict.__getitem__(late, interface)
        before = dict(now)
        if interface == "{SMS}" and now["State"] == {RECEIVING}:
            now["State"] = dbus.UInt32({RECEIVED})
            late.mock.EmitSignal("org.freedesktop.DBus.Properties", "PropertiesChanged", "sa{{sv}}as",
                                 ["{SMS}", {{"State": now["State"]}}, dbus.Array([], signature="s")])
        return before
self.props = Late(self.props)
self.props.mock = self
"""
# In one step, since somebody may delete another one meanwhile.
LIST = f"""
listed = [*self.props["{MESSAGING}"]["Messages"], args[0]]
self.UpdateProperties("{MESSAGING}", {{"Messages": dbus.Array(listed, signature="o")}})
"""


class ModemManager:
    def __init__(self, address, imsi=IMSI, modems=1):
        """On the bus of that address; with the SIM cards of a subscriber."""
        self._bus = dbus.bus.BusConnection(address)
        self._address = address
        self._imsi = imsi
        self._number = 0
        self._process = None
        self.start(modems)

    def start(self, modems=1):
        """As after a boot of the device: nothing is left of what was there before."""
        self._process = subprocess.Popen(
            [sys.executable, "-m", "dbusmock", "--system", "--is-object-manager", NAME, PATH, NAME],
            env={"DBUS_SYSTEM_BUS_ADDRESS": self._address}, stdout=subprocess.DEVNULL)
        end = time.monotonic() + 60
        while not self._bus.name_has_owner(NAME):
            assert time.monotonic() < end and self._process.poll() is None, "no ModemManager"
            time.sleep(0.01)
        self.modems = []
        self._deleted = []
        self._proxies = {}
        for _ in range(modems):
            self.add_modem()

    def stop(self):
        """It is gone from the bus when this returns."""
        for modem in self.modems:
            self._note_deletions(modem)
        self._process.kill()
        self._process.wait()
        while self._bus.name_has_owner(NAME):
            time.sleep(0.01)

    def close(self):
        self._process.kill()
        self._process.wait()
        self._bus.close()

    def object(self, path, interface=dbusmock.MOCK_IFACE):
        if path not in self._proxies:
            self._proxies[path] = self._bus.get_object(NAME, path)
        return dbus.Interface(self._proxies[path], interface)

    # ---- Modems

    def add_modem(self, announced=True):
        """Returns its path. One that is not announced was there when somebody looks for modems."""
        self._number += 1
        modem = f"{PATH}/Modem/{self._number}"
        sim = f"{PATH}/SIM/{self._number}"
        self.object(PATH).AddObject(sim, SIM, {"Imsi": self._imsi}, [LIE])
        properties = {"Messages": dbus.Array([], signature="o")}
        self.object(PATH).AddObject(modem, MESSAGING, properties,
                                    [("Delete", "o", "", DELETE), ("Refuse", "s", "", REFUSE),
                                     ("ListMessage", "o", "", LIST), LIE])
        self.object(modem).AddProperties(MODEM, {"Sim": dbus.ObjectPath(sim)})
        self.modems.append(modem)
        if announced:
            self.object(PATH).EmitSignal(
                OBJECTS, "InterfacesAdded", "oa{sa{sv}}",
                [dbus.ObjectPath(modem),
                 dbus.Dictionary({MESSAGING: dbus.Dictionary(properties, signature="sv")},
                                 signature="sa{sv}")])
        return modem

    def remove_modem(self, modem):
        """With its messages."""
        for message in self.messages(modem):
            self.object(PATH).RemoveObject(message)
        self._note_deletions(modem)
        self.object(PATH).RemoveObject(modem)
        self.modems.remove(modem)
        self.object(PATH).EmitSignal(
            OBJECTS, "InterfacesRemoved", "oas",
            [dbus.ObjectPath(modem), dbus.Array([MESSAGING], signature="s")])

    def lie(self, path, interface, **properties):
        """What an object says from now on, of any type and untold."""
        own = {SMS: SMS, SIM: SIM}.get(interface, MESSAGING)
        self.object(path, own).Lie(interface, properties)

    def refuse_deletions(self, reason="PolicyKit authorization failed: not authorized"):
        for modem in self.modems:
            self.object(modem, MESSAGING).Refuse(reason)

    # ---- Messages

    def send_sms(self, data=b"", modem=None, complete=True, announced=True, text="", **properties):
        """A message that comes from the network: announced with its first part, then whole, unless
        it is not to be complete. Returns its path. Other properties replace what is usual."""
        modem = modem or self.modems[0]
        self._number += 1
        path = f"{PATH}/SMS/{self._number}"
        self.object(PATH).AddObject(
            path, SMS, {"State": dbus.UInt32(RECEIVING), "PduType": dbus.UInt32(DELIVER),
                        "Data": dbus.ByteArray(b""), "Text": "", "Number": "+15550100",
                        **properties}, [LIE])
        self.object(modem, MESSAGING).ListMessage(path)
        if announced:
            self.announce(path, modem)
        if complete:
            self.complete(path, data, text, **properties)
        return path

    def send_sms_whose_answer_is_late(self, data):
        """It is whole, as the service is told before it is answered how the message was."""
        path = self.send_sms(complete=False, announced=False, Data=dbus.Array(data, signature="y"))
        self.object(path).AddMethod("", "BeLate", "", "", BE_LATE)
        self.object(path, SMS).BeLate()
        self.announce(path)
        return path

    def announce(self, path, modem=None):
        self.object(modem or self.modems[0]).EmitSignal(
            MESSAGING, "Added", "ob", [dbus.ObjectPath(path), True])

    def complete(self, path, data=b"", text="", **properties):
        """The last part has come."""
        self.object(path).UpdateProperties(
            SMS, {"Data": dbus.Array(data, signature="y"), "Text": text,
                  "State": dbus.UInt32(RECEIVED), **properties})

    def messages(self, modem=None):
        """Paths of those that a modem has, or that all have."""
        paths = []
        for one in [modem] if modem else self.modems:
            paths += self.object(one, dbus.PROPERTIES_IFACE).Get(MESSAGING, "Messages")
        return [str(path) for path in paths]

    def deleted(self):
        """Paths, in their order for each modem, since the last start; refused ones included."""
        return self._deleted + [path for modem in self.modems for path in self._asked(modem)]

    def _asked(self, modem):
        return [str(arguments[0]) for _, arguments in self.object(modem).GetMethodCalls("Delete")]

    def _note_deletions(self, modem):
        self._deleted += self._asked(modem)

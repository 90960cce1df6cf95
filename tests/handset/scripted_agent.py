"""A program on a test's bus that registers as an agent and answers as the test has it.

    agent = ScriptedAgent(bus.address)
    question = agent.question()                 # the next one that dmclientd puts
    agent.reply(question, "b", True)            # or what no agent should say
    agent.close()

Upon python3-dbus, which comes with python3-dbusmock. Nothing is received but in question()."""

import time

import dbus.bus
import dbus.lowlevel
from bus import OBJECT, SERVICE
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

PATIENCE = 60  # seconds; what takes longer never happens
PATH = "/agent"


class ScriptedAgent:
    def __init__(self, address, path=PATH):
        self._bus = dbus.bus.BusConnection(address, mainloop=DBusGMainLoop())
        self._bus.add_message_filter(self._take)
        self._calls = []
        self.cancelled = 0  # questions that were taken back
        self.register(path)

    def close(self):
        self._bus.close()

    def _take(self, _, message):
        if not isinstance(message, dbus.lowlevel.MethodCallMessage):
            return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED
        if message.get_member() == "Cancel":
            self.cancelled += 1
        else:
            self._calls.append(message)
        return dbus.lowlevel.HANDLER_RESULT_HANDLED

    def _manage(self, method, path):
        self._bus.call_blocking(SERVICE, OBJECT, SERVICE, method, "o", (path,))

    def register(self, path=PATH):
        """Raises dbus.DBusException when the service refuses it."""
        self._manage("RegisterAgent", path)

    def unregister(self, path=PATH):
        self._manage("UnregisterAgent", path)

    def question(self):
        """The call of the service; get_member(), get_path() and get_args_list() tell what it is."""
        context = GLib.MainContext.default()
        end = time.monotonic() + PATIENCE
        while not self._calls:
            assert time.monotonic() < end, "nobody asks"
            if not context.iteration(False):
                time.sleep(0.01)
        return self._calls.pop(0)

    def reply(self, question, signature="", *values):
        message = dbus.lowlevel.MethodReturnMessage(question)
        message.append(*values, signature=signature)
        self._send(message)

    def fail(self, question, error):
        self._send(dbus.lowlevel.ErrorMessage(question, error, "it does not work"))

    def _send(self, message):
        self._bus.send_message(message)
        self._bus.flush()

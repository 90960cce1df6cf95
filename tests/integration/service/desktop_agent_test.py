"""The user of a device at a desktop, asked by notifications."""

import subprocess
import time
import unittest

import dbus
import dbus.bus
import dbusmock
from bus import PrivateBus
from services import DMCLIENT, ServiceFixture
from sessions import UNUSABLE, DmServer, scenario

NAME = "org.freedesktop.Notifications"
PATH = "/org/freedesktop/Notifications"
ACTIONS = "body actions"
DISMISSED = 2


class Desktop:
    """The session bus of a desktop, whose notifications a test looks at and answers."""

    def __init__(self, capabilities=ACTIONS):
        self._bus = PrivateBus()
        self.address = self._bus.address
        self._service = subprocess.Popen(
            ["/usr/bin/python3", "-m", "dbusmock", "--session", "-t", "notification_daemon", "-p",
             f'{{"capabilities": "{capabilities}"}}'],
            env={"DBUS_SESSION_BUS_ADDRESS": self.address}, stdout=subprocess.DEVNULL)
        self._connection = dbus.bus.BusConnection(self.address)
        while not self._connection.name_has_owner(NAME):
            time.sleep(0.01)

    def close(self):
        self.end_service()
        self._connection.close()
        self._bus.close()

    def end_service(self):
        self._service.kill()
        self._service.wait()

    def _mock(self):
        return dbus.Interface(self._connection.get_object(NAME, PATH), dbusmock.MOCK_IFACE)

    def notifications(self):
        """[number, body, labels of the buttons] of each."""
        return [(number, str(call[4]), [str(label) for label in call[5][1::2]])
                for number, (_, call) in enumerate(self._mock().GetMethodCalls("Notify"), 1)]

    def closed(self):
        return [int(call[0]) for _, call in self._mock().GetMethodCalls("CloseNotification")]

    def press(self, number, button):
        self._mock().EmitSignal(NAME, "ActionInvoked", "us", [dbus.UInt32(number), str(button)])

    def dismiss(self, number):
        self._mock().EmitSignal(NAME, "NotificationClosed", "uu",
                                [dbus.UInt32(number), dbus.UInt32(DISMISSED)])


class DesktopAgentTest(ServiceFixture):
    def desktop(self, **options):
        desktop = Desktop(**options)
        self.addCleanup(desktop.close)
        return desktop

    def start_agent(self, desktop):
        agent = self.start("agent", "--desktop", program=[DMCLIENT],
                           environment={"DBUS_SYSTEM_BUS_ADDRESS": self.bus.address,
                                        "DBUS_SESSION_BUS_ADDRESS": desktop.address},
                           stderr=subprocess.PIPE, text=True)
        self.addCleanup(agent.stderr.close)
        self.assertIn("servers may ask here", agent.stderr.readline())
        return agent

    def begin(self, *alerts, **options):
        """A session in which the server asks that. Returns the server's side, and the desktop."""
        server = DmServer(scenario("questions", packages=[{"commands": list(alerts)}]))
        server.__enter__()
        self.addCleanup(server.__exit__)
        self.add_account(server.url)
        self.start_service()
        desktop = self.desktop(**options)
        self.start_agent(desktop)
        started = self.bus.start_session("Test")
        self.assertEqual(started.returncode, 0, started.stderr)
        return server.session, desktop

    def shown(self, desktop, number):
        self.wait_until(lambda: len(desktop.notifications()) >= number)
        return desktop.notifications()[number - 1]

    def assert_held(self, session):
        self.wait_until(lambda: self.status()["LastResults"])
        self.assertEqual(self.status()["LastResults"][-1]["session"], "completed")
        self.assertEqual(session.report()["faults"], [])

    def test_texts_questions_and_choices_are_notifications(self):
        session, desktop = self.begin(
            {"alert": 1100, "items": ["", "Settings are being updated"]},
            {"alert": 1101, "items": ["", "Delete everything?"], "expect": 304},
            {"alert": 1101, "items": ["", "Go on?"], "expect": 200},
            {"alert": 1103, "items": ["", "Which one?", "red", "blue"], "answer": ["2"]})
        self.assertEqual(self.shown(desktop, 1), (1, "Test: Settings are being updated", []))
        self.assertEqual(self.shown(desktop, 2),
                         (2, "Test: Delete everything?", ["Yes", "No"]))
        desktop.press(1, 1)  # no answer to this question
        desktop.press(2, 3)  # nor is this
        desktop.press(2, 2)
        self.shown(desktop, 3)
        desktop.press(3, 1)
        self.assertEqual(self.shown(desktop, 4), (4, "Test: Which one?", ["red", "blue"]))
        desktop.press(4, 2)
        self.assert_held(session)
        self.assertEqual(desktop.closed(), [2, 3, 4])

    def test_a_question_that_is_waved_away_is_cancelled(self):
        session, desktop = self.begin({"alert": 1101, "items": ["", "Go on?"], "expect": 214})
        self.shown(desktop, 1)
        desktop.dismiss(1)
        self.assert_held(session)

    def test_a_question_goes_away_with_its_time(self):
        session, desktop = self.begin({"alert": 1101, "items": ["MAXDT=1", "Go on?"], "expect": 408})
        self.assert_held(session)
        self.wait_until(lambda: desktop.closed() == [1])

    def test_a_question_goes_away_with_its_session(self):
        _, desktop = self.begin({"alert": 1101, "items": ["", "Go on?"]})
        self.shown(desktop, 1)
        cancelled = self.bus.call("CancelSession", "string:Test")
        self.assertEqual(cancelled.returncode, 0, cancelled.stderr)
        self.wait_until(lambda: desktop.closed() == [1])

    def test_what_no_notification_can_ask_is_answered_as_the_protocol_has_it(self):
        session, desktop = self.begin(
            {"alert": 1102, "items": ["", "Your name?"], "expect": 416},
            {"alert": 1104, "items": ["", "Which ones?", "red", "blue"], "expect": 416},
            {"alert": 1101, "items": ["", "x" * 2000], "expect": 416},
            {"alert": 1103, "items": ["", "Which?", *"abcdefg"], "expect": 416})
        self.assert_held(session)
        self.assertEqual(desktop.notifications(), [])

    def test_a_text_of_the_server_is_neither_markup_nor_a_trick(self):
        _, desktop = self.begin({"alert": 1101, "items": ["", "<a href='x'>&\u202eno\u0085</a>"]},
                                capabilities="body actions body-markup")
        self.assertEqual(self.shown(desktop, 1)[1],
                         "Test: &lt;a href='x'&gt;&amp;\\xe2\\x80\\xaeno\\xc2\\x85&lt;/a&gt;")

    def test_a_desktop_that_goes_away_leaves_a_question_that_cannot_be_shown(self):
        session, desktop = self.begin({"alert": 1101, "items": ["", "Go on?"], "expect": 416})
        self.shown(desktop, 1)
        desktop.end_service()
        self.assert_held(session)

    def test_a_desktop_without_buttons_or_none_at_all_is_told(self):
        self.start_service()
        desktop = self.desktop(capabilities="body")
        for address, reason in ((desktop.address, "have no buttons"),
                                ("unix:path=/nowhere", "there is no desktop")):
            agent = self.start("agent", "--desktop", program=[DMCLIENT],
                               environment={"DBUS_SYSTEM_BUS_ADDRESS": self.bus.address,
                                            "DBUS_SESSION_BUS_ADDRESS": address},
                               stderr=subprocess.PIPE, text=True)
            self.assertIn(reason, agent.communicate(timeout=60)[1])
            self.assertEqual(agent.returncode, UNUSABLE)


if __name__ == "__main__":
    unittest.main()

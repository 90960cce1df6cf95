"""Bootstrap messages that come by SMS: kept, proved, asked about, applied, and followed by a session."""

import unittest

import dbus
from modem_manager import IMSI, MODEM, SIM
from sessions import REFUSED, SECRETS, SUCCESS, USAGE
from terminal import Terminal
from waiting_bootstraps import PIN, BootstrapFixture


class BootstrapMessageTest(BootstrapFixture):
    def test_one_of_the_network_is_applied_when_its_user_agrees(self):
        self.start_service()
        agent = self.agent()
        sent = self.modems.send_sms(self.by_network())
        shown = agent.answer("yes or no: ", "yes\n")
        self.assertIn("would set up on this device", shown)
        self.assertIn("dm.example", shown)
        self.assertIn("Operator", shown)
        for secret in SECRETS.values():
            self.assertNotIn(secret, shown)
        self.assert_session_follows()
        self.assertIn("Operator", self.handset.export())
        self.wait_for_deletion(sent)
        self.wait_until(lambda: self.pending() == [])

    def test_one_with_a_pin_asks_for_it(self):
        self.start_service()
        agent = self.agent()
        self.modems.send_sms(self.by_pin())
        agent.answer("your answer: ", "1111\n", hidden=True)
        again = agent.answer("your answer: ", PIN + "\n", hidden=True)
        self.assertIn("The PIN is wrong", again)
        self.assertNotIn("1111", again)
        self.assertNotIn(PIN, agent.answer("yes or no: ", "yes\n"))
        self.assert_session_follows()

    def test_what_the_user_does_not_want_is_discarded(self):
        self.start_service()
        agent = self.agent()
        self.modems.send_sms(self.by_network())
        agent.answer("yes or no: ", "no\n")
        self.wait_until(lambda: self.pending() == [] and self.files())
        self.assert_untouched()
        # The network repeats it.
        sent = self.modems.send_sms(self.by_network())
        self.wait_for_deletion(sent)
        self.assertEqual(self.pending(), [])

    def test_without_an_agent_it_waits_for_one(self):
        self.start_service()
        sent = self.modems.send_sms(self.by_network())
        self.wait_for_deletion(sent)
        [waiting] = self.waits()
        self.assertEqual((waiting["proof"], waiting["set-aside"]), ("NETWPIN", False))
        self.assert_untouched()
        self.agent().answer("yes or no: ", "yes\n")
        self.assert_session_follows()

    def test_its_owner_applies_it_on_a_terminal(self):
        self.start_service()
        self.modems.send_sms(self.by_network())
        [waiting] = self.waits()
        listed = self.client("bootstrap", "--pending").stdout
        self.assertRegex(listed, rf"\A{waiting['id']}  .* bytes, NETWPIN\n\Z")
        asked = self.owner(waiting["id"])
        self.assertEqual(asked.returncode, REFUSED)
        self.assertIn("nobody can be asked", asked.stderr)
        self.assert_untouched()
        applied = self.owner(waiting["id"], "--yes")
        self.assertEqual(applied.returncode, SUCCESS, applied.stderr)
        self.assertIn("next: dmclient session 'dm.example'", applied.stdout)
        self.assertEqual(self.pending(), [])
        self.assertIn("Operator", self.handset.export())

    def test_its_owner_discards_it(self):
        self.start_service()
        self.modems.send_sms(self.by_network())
        [waiting] = self.waits()
        self.assertEqual(self.owner("--discard", waiting["id"]).returncode, SUCCESS)
        self.assertEqual(self.pending(), [])
        gone = self.owner(waiting["id"])
        self.assertEqual((gone.returncode, gone.stderr),
                         (REFUSED, f"dmclient: bootstrap: no message {waiting['id']} waits\n"))

    def test_a_pin_may_be_tried_three_times_over_all_restarts(self):
        self.start_service()
        self.modems.send_sms(self.by_pin())
        [waiting] = self.waits()

        def attempt(pin):
            self.wait_until(self.is_free)
            terminal = Terminal(self, "bootstrap", "--pending", waiting["id"])
            terminal.answer("PIN: ", pin + "\n", hidden=True)
            terminal.wait_for("the PIN is wrong")
            terminal.process.kill()
            terminal.process.wait()

        attempt("1111")
        attempt("2222")
        self.assertEqual(self.waits()[0]["pin-tries"], 2)
        self.service.terminate()
        self.assertEqual(self.service.wait(60), 0)
        self.start_service()
        agent = self.agent()
        agent.answer("your answer: ", "3333\n", hidden=True)
        self.wait_until(lambda: self.pending() == [])
        self.assert_untouched()

    def test_a_message_of_another_card_is_discarded_unasked(self):
        self.start_service()
        sent = self.modems.send_sms(self.by_network(imsi="310170987654321"))
        self.wait_for_deletion(sent)
        self.wait_until(lambda: self.pending() == [] and self.files())
        self.assert_untouched()

    def test_without_the_cards_identity_it_waits_for_its_owner_to_say_it(self):
        sim = str(self.modems.object(self.modems.modems[0], dbus.PROPERTIES_IFACE).Get(
            MODEM, "Sim"))
        self.modems.object(sim).UpdateProperties(SIM, {"Imsi": ""})
        self.start_service()
        self.modems.send_sms(self.by_network())
        [waiting] = self.waits()
        lacking = self.owner(waiting["id"], "--yes")
        self.assertEqual(lacking.returncode, USAGE)
        self.assertIn("--imsi", lacking.stderr)
        wrong = self.owner(waiting["id"], "--yes", "--imsi",
                            "310170987654321")
        self.assertEqual(wrong.returncode, REFUSED)
        applied = self.owner(waiting["id"], "--yes", "--imsi", IMSI)
        self.assertEqual(applied.returncode, SUCCESS, applied.stderr)

    def test_what_is_there_is_never_overwritten_and_its_owner_told(self):
        self.add_account("https://dm.example/")
        self.start_service()
        agent = self.agent()
        self.modems.send_sms(self.by_network())
        waiting = self.wait_until(lambda: [one for one in self.pending()
                                           if one["set-aside"]])[0]
        self.assertIn("not applied so far", self.client("bootstrap", "--pending").stdout)
        refused = self.owner(waiting["id"], "--yes")
        self.assertEqual(refused.returncode, REFUSED)
        self.assertEqual(len(self.accounts()), 1)
        self.assertNotIn("Operator", self.handset.export())
        self.assertNotIn("yes or no", agent.screen)

    def test_wrong_usage_is_told(self):
        for words in (["--discard"], ["--pending", "--discard"], [],
                      ["--questions", "file"], ["--pending", "--questions"]):
            result = self.client("bootstrap", *words)
            self.assertEqual(result.returncode, USAGE, result.stderr)


if __name__ == "__main__":
    unittest.main()

"""Servers that do not behave."""

import signal
import subprocess
import unittest

from sessions import SESSION_FAILED, SUCCESS, DmServer, SessionTest, scenario

OFFICE = "./DevDetail/Ext/Conf/Conn/Profiles/Office/Addr"


class MisbehaviourTest(SessionTest):
    def misbehave(self, *words, name="several_messages", **kinds):
        changes = {key: value for key, value in kinds.items() if key.endswith("_auth")}
        return self.play(scenario(name, misbehave=list(words), **changes), **changes)

    def assert_completed(self, outcome):
        status, lines, report = outcome
        self.assertEqual((status, report["faults"]), (SUCCESS, []), "\n".join(lines))

    def assert_failed(self, outcome, reason):
        status, lines, _ = outcome
        self.assertEqual(status, SESSION_FAILED, "\n".join(lines))
        self.assertRegex(lines[-1], f"^Session (failed|aborted): .*{reason}")

    # ---- What a client lives with ----------------------------------------------------------------

    def test_elements_in_another_order(self):
        self.assert_completed(self.misbehave("wrong_order"))

    def test_the_same_cmdid_for_all_commands(self):
        played = scenario("profiles", misbehave=["duplicate_cmdid"], packages=[{"commands": [
            {"get": "./DevInfo/Man"}, {"replace": OFFICE, "data": "new.example"},
            {"get": OFFICE, "results": {OFFICE: "new.example"}}]}])
        status, lines, report = self.play(played)
        self.assertEqual(status, SUCCESS)
        # All answers refer to one command, so the server can tell them apart by their order only.
        self.assertEqual([line for line in report["lines"] if OFFICE in line or "Man" in line],
                         ["Get ./DevInfo/Man 200", "  ./DevInfo/Man = kub",
                          f"Replace {OFFICE} 200", f"Get {OFFICE} 200",
                          f"  {OFFICE} = new.example"], "\n".join(lines))

    def test_cmdids_that_begin_anew(self):
        self.assert_completed(self.misbehave("cmdid_restarts"))

    def test_a_late_answer(self):
        self.assert_completed(self.misbehave("slow=0.2"))

    def test_one_redirect(self):
        self.assert_completed(self.misbehave("redirect"))

    def test_a_busy_server_is_asked_again(self):
        self.assert_completed(self.misbehave("busy_once"))

    def test_a_server_that_breaks_off_is_asked_again(self):
        self.assert_completed(self.misbehave("break_off_once"))

    def test_a_stale_nonce(self):
        for kind in ("md5", "hmac"):
            with self.subTest(proof=kind):
                status, _, report = self.misbehave("wrong_nonce", client_auth=kind)
                self.assertEqual((status, report["faults"]), (SUCCESS, []))
                self.assertIn("the client proves nothing", report["lines"])

    # ---- What ends the session -------------------------------------------------------------------

    def test_half_an_answer(self):
        self.assert_failed(self.misbehave("truncated_body"), "Connection closed|closed")

    def test_half_a_message(self):
        self.assert_failed(self.misbehave("truncated_message"),
                           "the server's message cannot be read: line")

    def test_a_web_page(self):
        self.assert_failed(self.misbehave("garbage"), "the server's message cannot be read")

    def test_a_huge_answer(self):
        self.assert_failed(self.misbehave("huge"), "the answer is larger than 4194304 bytes")

    def test_an_http_error(self):
        self.assert_failed(self.misbehave("http_error"), "HTTP 500")

    def test_redirects_without_end(self):
        self.assert_failed(self.misbehave("redirect_loop"), "redirects again and again")

    def test_a_session_without_end(self):
        status, lines, report = self.misbehave("endless")
        self.assertEqual(status, SESSION_FAILED)
        self.assertRegex(lines[-1], "no end after 1000 messages")
        self.assertEqual(report["lines"][-1], "the client aborts the session")

    def test_nobody_there(self):
        with DmServer(scenario("profiles")) as server:
            url = server.url
        result = self.handset.dmclient("session", url)
        self.assertEqual(result.returncode, SESSION_FAILED)
        self.assertIn("Connection refused", result.stdout.decode())

    # ---- Proofs ----------------------------------------------------------------------------------

    def test_a_wrong_secret_of_the_client(self):
        for kind in ("basic", "md5", "hmac"):
            with self.subTest(proof=kind):
                outcome = self.play(scenario("several_messages", client_auth=kind,
                                             client_secret="another", client_gives_up=True),
                                    client_auth=kind)
                self.assert_failed(outcome, "the server does not accept the client's credentials")
                self.assertEqual(outcome[2]["faults"], [])
                self.assertLessEqual(outcome[2]["requests"], 3)

    def test_a_server_that_cannot_prove_itself_changes_nothing(self):
        for kind in ("basic", "md5", "hmac"):
            for wrong in ({"server_secret": "another"}, {"server_auth": "none"}):
                with self.subTest(proof=kind, wrong=wrong):
                    played = scenario("profiles", client_gives_up=True, **{
                        "server_auth": kind, **wrong,
                        "packages": [{"commands": [{"replace": OFFICE, "data": "evil.example",
                                                    "expect": 401}]}] * 5})
                    status, lines, _ = self.play(played, server_auth=kind)
                    self.assertEqual(status, SESSION_FAILED)
                    self.assertRegex(lines[-1], "the server (could|did) not prove who it is")
                    self.assertRegex(lines[0], f"^Replace {OFFICE}: 40[17] ")
                    value = self.handset.dmclient("get", OFFICE).stdout.decode()
                    self.assertEqual(value, "internet\n")

    def test_a_server_with_a_wrong_nonce_is_given_up(self):
        self.assert_failed(self.misbehave("wrong_server_nonce", name="profiles", server_auth="md5"),
                           "the server could not prove who it is")

    def test_a_server_that_wants_the_password_itself(self):
        outcome = self.play(scenario("profiles", client_auth="basic", client_gives_up=True),
                            client_auth="md5")
        self.assert_failed(outcome, "the server asks for the password itself")

    # ---- Signals ---------------------------------------------------------------------------------

    def test_an_interrupted_session_is_ended_in_good_order(self):
        office = OFFICE.rsplit("/", 1)[0]
        change = {"commands": [{"replace": office + "?prop=Title", "data": "kept"}]}
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(signal=number.name):
                played = scenario("profiles", misbehave=["endless"], packages=[change])
                with DmServer(played) as server:
                    self.handset.dmclient("replace", office + "?prop=Title", "old")
                    process = self.start("session", server.url, stdout=subprocess.PIPE)
                    process.stdout.readline()
                    process.send_signal(number)
                    output, _ = process.communicate(timeout=60)
                    self.assertEqual(process.returncode, SESSION_FAILED)
                    self.assertIn("Session aborted: aborted by the user", output.decode())
                    # The request that was cut may get its turn at the server after it.
                    self.assertIn("the client aborts the session", server.session.lines)
                title = self.handset.dmclient("get", office, "--prop", "Title").stdout
                self.assertEqual(title, b"kept\n")

    def test_a_hangup_that_is_ignored_from_the_start_ends_nothing(self):
        played = scenario("several_messages", misbehave=["slow=0.5"])
        with DmServer(played) as server:
            process = self.start("session", server.url, stdout=subprocess.PIPE,
                                 preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
            process.stdout.readline()
            process.send_signal(signal.SIGHUP)
            output, _ = process.communicate(timeout=60)
        self.assertEqual(process.returncode, SUCCESS, output.decode())

    def test_an_ended_session_leaves_the_nonces_that_the_server_has(self):
        changes = {"client_auth": "md5", "server_auth": "md5"}
        for number in (signal.SIGKILL, signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(signal=number.name):
                self.handset.dmclient("account", "remove", "Test")
                with DmServer(scenario("several_messages", **changes)) as server:
                    self.add_account(server.url, "md5", "md5")
                    ended = server.session
                    sent = []

                    def end_when_the_nonce_is_known(answer, misbehaviour, spoil=ended.spoil):
                        # The client waits for this answer, to the message that carried its nonce.
                        if ended.server_accepted and not sent:
                            sent.append(number)
                            process.send_signal(number)
                            if number == signal.SIGKILL:
                                process.wait()
                        return spoil(answer, misbehaviour)

                    ended.spoil = end_when_the_nonce_is_known
                    process = self.start("session", "Test", stdout=subprocess.DEVNULL)
                    process.wait(timeout=60)
                    self.assertEqual(process.returncode, -number if number == signal.SIGKILL
                                     else SESSION_FAILED)
                with DmServer(scenario("several_messages", **changes)) as server:
                    server.session.client_nonce = ended.client_nonce
                    server.session.server_nonce = ended.server_nonce
                    self.handset.dmclient("account", "set", "Test", f"address={server.url}")
                    result = self.handset.dmclient("session", "Test")
                    report = server.session.report()
                self.assertEqual((result.returncode, report["faults"]), (SUCCESS, []))
                self.assertEqual(server.session.client_failures, 0)
                self.assertEqual(server.session.server_challenges, 0)


if __name__ == "__main__":
    unittest.main()

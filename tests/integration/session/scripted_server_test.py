"""The scripted server as a program: what people and scripts get from it."""

import json
import os
import re
import socket
import subprocess
import sys
import tempfile
import unittest

from sessions import SERVER_FOLDER, SUCCESS, SessionTest

PROGRAM = os.path.join(SERVER_FOLDER, "dmserver.py")
SCENARIO = os.path.join(SERVER_FOLDER, "scenarios", "profiles.json")


class ScriptedServerTest(SessionTest):
    def server(self, *options):
        process = subprocess.Popen([sys.executable, "-B", PROGRAM, "--scenario", SCENARIO, *options],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.kill)
        return process

    def play_with(self, process, address_line):
        """One session with the server that says where it listens. Returns the rest of its output."""
        address = re.fullmatch(r"listening on (http://127\.0\.0\.1:\d+/)\n", address_line)
        self.assertTrue(address, address_line)
        result = self.handset.dmclient("session", address[1])
        self.assertEqual(result.returncode, SUCCESS, result.stderr.decode())
        output, errors = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 0, output + errors)
        return output, errors

    def test_standard_output_is_json_and_nothing_else_when_json_is_asked_for(self):
        process = self.server("--json")
        output, errors = self.play_with(process, process.stderr.readline())
        report = json.loads(output)
        self.assertEqual(report["faults"], [])
        self.assertEqual(errors, "")

    def test_standard_output_begins_with_the_address_for_people(self):
        process = self.server()
        output, errors = self.play_with(process, process.stdout.readline())
        self.assertTrue(output.endswith("everything was as expected\n"), output)
        self.assertEqual(errors, "")

    def refusal(self, *options):
        output, errors = self.server(*options).communicate(timeout=60)
        self.assertEqual(output, "")
        return errors

    def test_a_port_that_is_taken_is_one_line(self):
        with socket.create_server(("127.0.0.1", 0)) as other:
            port = other.getsockname()[1]
            for options in ([], ["--json"]):
                self.assertEqual(self.refusal("--port", str(port), *options),
                                 f"dmserver.py: cannot listen on port {port}: "
                                 "Address already in use\n")

    def test_an_impossible_port_is_one_line(self):
        self.assertRegex(self.refusal("--port", "80800"),
                         r"\Admserver\.py: cannot listen on port 80800: .*0-65535.*\n\Z")

    def test_a_certificate_that_cannot_be_read_is_one_line(self):
        self.assertRegex(self.refusal("--certificate", "/nowhere.pem"),
                         r"\Admserver\.py: /nowhere\.pem: No such file or directory\n\Z")
        with tempfile.NamedTemporaryFile() as empty:
            self.assertRegex(self.refusal("--certificate", empty.name),
                             r"\Admserver\.py: .+: .+\n\Z")


if __name__ == "__main__":
    unittest.main()

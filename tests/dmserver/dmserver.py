#!/usr/bin/python3
"""A small scripted DM server: for tests, for the demo, and to try a client by hand.

    python3 tests/dmserver/dmserver.py --scenario tests/dmserver/scenarios/profiles.json --port 0

It prints "listening on http://127.0.0.1:PORT/", has one session as the scenario says, prints what it
saw, and ends: with 0 when everything was as the scenario expects, with 1 when it was not, with 2 when
it cannot start. It listens on 127.0.0.1 only. README.md says what a scenario can hold.
"""

import argparse
import http.server
import json
import signal
import socket
import ssl
import sys
import threading
import time

sys.dont_write_bytecode = True

import scenario as scenarios
import session as sessions

LARGEST_REQUEST = 16 * 1024 * 1024  # bytes


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "dmserver"
    wbufsize = -1  # headers and body in one packet: the next one would wait for its receipt

    def do_POST(self):
        length = int(self.headers.get("Content-Length", 0))
        if length > LARGEST_REQUEST:
            self.send_error(413)
            return
        body = self.rfile.read(length)
        with self.server.lock:
            answer = self.server.session.receive(body, self.headers, self.path)
        self.answer(answer)
        if answer.is_last:
            self.server.ended.set()

    def answer(self, answer):
        if answer.delay:
            time.sleep(answer.delay)
        if answer.breaks_off:
            self.connection.shutdown(socket.SHUT_RDWR)
            self.close_connection = True
            return
        self.send_response(answer.status)
        for name, value in answer.headers.items():
            self.send_header(name, value)
        self.send_header("Content-Length", str(answer.length or len(answer.body)))
        if answer.length or answer.is_last:
            self.send_header("Connection", "close")
            self.close_connection = True
        self.end_headers()
        try:
            self.wfile.write(answer.body)
            self.wfile.flush()
        except ConnectionError:
            pass  # the client has enough of it

    def log_message(self, *_):
        pass


class CannotStart(Exception):
    """Says why in one line."""


def tls_context(certificate):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    try:
        context.load_cert_chain(certificate)
    except OSError as error:
        raise CannotStart(f"{certificate}: {error.strerror or error}") from error
    return context


class DmServer(http.server.ThreadingHTTPServer):
    """Serves one scenario on 127.0.0.1. Raises CannotStart."""

    daemon_threads = True

    def __init__(self, scenario, port=0, certificate=None, log=None):
        tls = tls_context(certificate) if certificate else None
        try:
            super().__init__(("127.0.0.1", port), Handler)
        except (OSError, OverflowError) as error:
            reason = getattr(error, "strerror", None) or error
            raise CannotStart(f"cannot listen on port {port}: {reason}") from error
        scheme = "http"
        if tls:
            self.socket = tls.wrap_socket(self.socket, server_side=True)
            scheme = "https"
        self.lock = threading.Lock()
        self.changed = threading.Condition()  # of these two
        self.connections = 0
        self.open_connections = 0
        self.ended = threading.Event()
        self.url = f"{scheme}://127.0.0.1:{self.server_address[1]}/"
        self.session = sessions.Session(scenario, self.url, log)

    def begin_session(self, scenario):
        """The next session with the same client, with the nonces that the last one left."""
        self.hear_out()
        last = self.session
        self.session = sessions.Session(scenario, self.url, last.log)
        self.session.client_nonce = last.client_nonce
        self.session.server_nonce = last.server_nonce

    def hear_out(self):
        """Waits until what clients have sent that are gone by now is in the session."""
        known = self.connections
        # Whoever waits to be let in is let in before this one.
        socket.create_connection(self.server_address).close()
        with self.changed:
            heard = self.changed.wait_for(
                lambda: self.connections > known and self.open_connections == 0, timeout=60)
        assert heard, "a client has not hung up"

    def process_request(self, request, client_address):
        with self.changed:
            self.connections += 1
            self.open_connections += 1
        super().process_request(request, client_address)

    def shutdown_request(self, request):
        super().shutdown_request(request)
        with self.changed:
            self.open_connections -= 1
            self.changed.notify_all()

    def handle_error(self, request, client_address):
        """A client that hangs up in the middle is part of the scenarios."""
        if not isinstance(sys.exc_info()[1], (ConnectionError, ssl.SSLError)):
            super().handle_error(request, client_address)

    def __enter__(self):
        self.thread = threading.Thread(target=self.serve_forever, kwargs={"poll_interval": 0.02})
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.shutdown()
        self.thread.join()
        self.server_close()


def print_line(text, stream=sys.stdout):
    print(text, file=stream, flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--scenario", required=True, metavar="FILE", help="JSON file to play")
    parser.add_argument("--port", type=int, default=0, help="0 takes a free one (default)")
    parser.add_argument("--set", action="append", default=[], metavar="NAME=VALUE",
                        help="change a setting of the scenario, such as encoding=wbxml")
    parser.add_argument("--certificate", metavar="FILE",
                        help="PEM file with certificate and key: HTTPS instead of HTTP")
    parser.add_argument("--json", action="store_true", help="print the report as JSON; where the server listens goes to standard error")
    arguments = parser.parse_args()

    try:
        scenario = scenarios.load(arguments.scenario, dict(
            pair.split("=", 1) for pair in arguments.set))
    except (OSError, ValueError) as error:
        parser.error(f"{arguments.scenario}: {error}")
    log = None if arguments.json else print_line
    try:
        dm_server = DmServer(scenario, arguments.port, arguments.certificate, log)
    except CannotStart as error:
        parser.exit(2, f"{parser.prog}: {error}\n")
    with dm_server as server:
        for number in (signal.SIGINT, signal.SIGTERM):
            signal.signal(number, lambda *_: server.ended.set())
        print_line(f"listening on {server.url}", sys.stderr if arguments.json else sys.stdout)
        server.ended.wait()
    report = server.session.report()
    if arguments.json:
        print_line(json.dumps(report, indent=2))
    else:
        for fault in report["faults"]:
            print_line(f"FAULT: {fault}")
        print_line("everything was as expected" if not report["faults"]
                   else f"{len(report['faults'])} faults")
    return 1 if report["faults"] else 0


if __name__ == "__main__":
    sys.exit(main())

"""A server that says what a test tells it to, right or wrong."""

import http.server
import threading

import proofs
import xmlcodec
from elements import Element as E


class Request:
    """One message of the client."""

    def __init__(self, body, headers, path):
        self.body = body
        self.headers = headers
        self.path = path
        self.message = xmlcodec.decode(body)
        self.session_id = self.message.find("SyncHdr").text("SessionID")
        self.cred = self.message.find("SyncHdr", "Cred")
        self.hmac = headers.get("x-syncml-hmac")

    def commands(self, name):
        return self.message.find("SyncBody").all(name)

    def alerts(self):
        return [alert.text("Data") for alert in self.commands("Alert")]

    def statuses(self):
        """Status of the header, then of each command."""
        return [int(status.text("Data")) for status in self.commands("Status")]

    def nonce(self):
        """Base64 of the nonce that the client gives to the server; None when it gives none."""
        for status in self.commands("Status"):
            if status.text("Cmd") == "SyncHdr":
                return status.text("Chal", "Meta", "NextNonce")
        return None


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    wbufsize = -1

    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        request = Request(body, self.headers, self.path)
        with self.server.lock:
            number = len(self.server.requests)
            self.server.requests.append(request)
            self.server.has_request.set()
        replies = self.server.replies
        reply = replies[min(number, len(replies) - 1)] if replies else b""
        answer = reply(request) if callable(reply) else reply
        if answer is None:  # as if there were no answer, ever
            self.server.is_over.wait()
            self.close_connection = True
            return
        body, headers = answer if isinstance(answer, tuple) else (answer, {})
        self.send_response(200)
        self.send_header("Content-Type", xmlcodec.CONTENT_TYPE)
        self.send_header("Content-Length", str(len(body)))
        for name, value in headers.items():
            self.send_header(name, value)
        self.end_headers()
        self.wfile.write(body)
        self.wfile.flush()

    def log_message(self, *_):
        pass


class HostileServer(http.server.ThreadingHTTPServer):
    """Answers the client's messages one after another, the last answer for ever.

    An answer is the bytes of a body, or a function that makes it from the request, or a pair of
    body and HTTP headers; None is silence.
    """

    daemon_threads = True

    def __init__(self, *replies):
        super().__init__(("127.0.0.1", 0), Handler)
        self.replies = list(replies)
        self.requests = []
        self.has_request = threading.Event()
        self.is_over = threading.Event()
        self.lock = threading.Lock()
        self.url = f"http://127.0.0.1:{self.server_address[1]}/"

    def handle_error(self, request, client_address):
        pass  # a client that hangs up is what many of the tests want

    def __enter__(self):
        threading.Thread(target=self.serve_forever, kwargs={"poll_interval": 0.02},
                         daemon=True).start()
        return self

    def __exit__(self, *_):
        self.is_over.set()
        self.shutdown()
        self.server_close()


# ---- What a server can say -----------------------------------------------------------------------

def message(session_id, msg_id, *commands, header=(), version="DM/1.2"):
    return xmlcodec.encode(E(
        "SyncML",
        E("SyncHdr", E("VerDTD", "1.2"), E("VerProto", version), E("SessionID", session_id),
          E("MsgID", msg_id), E("Target", E("LocURI", "urn:test:handset")),
          E("Source", E("LocURI", "dm.example")), *header),
        E("SyncBody", *commands, E("Final"))))


def says(msg_id, *commands, **options):
    """An answer in the session of the request."""
    return lambda request: message(request.session_id, msg_id, *commands, **options)


def chal(kind, nonce="bm9uY2U="):
    given = [] if nonce is None else [E("NextNonce", nonce)]
    return E("Chal", E("Meta", E("Format", "b64"), E("Type", proofs.TYPES[kind]), *given))


def header_status(code, challenge=None):
    return E("Status", E("CmdID", "1"), E("MsgRef", "1"), E("CmdRef", "0"), E("Cmd", "SyncHdr"),
             *([challenge] if challenge else []), E("Data", code))


def replace(uri, data, cmd_id="2"):
    return E("Replace", E("CmdID", cmd_id),
             E("Item", E("Target", E("LocURI", uri)), E("Data", data)))


def get(uri, cmd_id="3"):
    return E("Get", E("CmdID", cmd_id), E("Item", E("Target", E("LocURI", uri))))


def alert(code, cmd_id="4"):
    return E("Alert", E("CmdID", cmd_id), E("Data", code))


def basic_cred():
    """The server's own password, as account Test expects it."""
    return E("Cred", E("Meta", E("Format", "b64"), E("Type", proofs.TYPES["basic"])),
             E("Data", proofs.basic("dm.example", "ServerSecret")))

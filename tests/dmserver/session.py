"""One session of the scripted server."""

import base64
import os
import re
from dataclasses import dataclass, field

import proofs
import scenario as scenarios
import wbxmlcodec
import xmlcodec
from elements import Element as E, order_fault

CODECS = {"xml": xmlcodec, "wbxml": wbxmlcodec}
UNANSWERED = {"Status", "Results"}


@dataclass
class Answer:
    """What goes back over HTTP."""

    body: bytes = b""
    status: int = 200
    headers: dict = field(default_factory=dict)
    length: int = 0           # Content-Length when it is not that of the body
    delay: float = 0          # seconds
    breaks_off: bool = False  # the connection is closed without an answer
    is_last: bool = False


@dataclass
class Sent:
    """A command that waits for its status."""

    name: str
    uris: list
    script: dict
    statuses: list = field(default_factory=list)  # (code, targets, texts of the items)
    results: dict = field(default_factory=dict)   # URI to bytes


class Session:
    """Plays a scenario, and notes everything that the client does wrong."""

    def __init__(self, scenario, url, log=None):
        self.scenario = scenario
        self.url = url
        self.log = log or (lambda line: None)
        self.faults = []
        self.lines = []
        self.requests = 0
        self.encodings = set()
        self.saved = {}

        self.session_id = None
        self.device = None
        self.client_msg_id = 0
        self.msg_id = 0
        self.cmd_id = 0
        self.package = -1            # index of the one that was sent last
        self.messages = []           # of the current package, still to be sent
        self.waiting = {}            # CmdID to Sent, of the last message
        self.results = {}            # URI to bytes, of all commands
        self.object = None           # URI and bytes of an object that comes in chunks
        self.largest_message = 0     # bytes, as the client announced
        self.is_over = False

        self.client_accepted = scenario["client_auth"] == "none"
        self.client_nonce = scenario["client_nonce"].encode() or os.urandom(16)
        self.client_failures = 0
        self.server_accepted = scenario["server_auth"] == "none"
        self.server_nonce = scenario["server_nonce"].encode()
        self.server_challenges = 0
        # Of the nonces for the next session: whether the client must still have them, however this one
        # ends, since it has answered what brought one, or has given one for a proof.
        self.client_nonce_is_heard = False
        self.server_nonce_is_agreed = False

    # ---- What is noted ---------------------------------------------------------------------------

    def fault(self, text):
        self.faults.append(f"message {self.client_msg_id}: {text}")

    def say(self, text):
        self.lines.append(text)
        self.log(text)

    def report(self):
        faults = list(self.faults)
        if not self.is_over and not self.scenario["client_gives_up"]:
            faults.append("the session did not come to its end")
        if self.is_over and self.scenario["client_gives_up"]:
            faults.append("the client was expected to give up")
        return {"faults": faults, "lines": self.lines, "requests": self.requests,
                "encodings": sorted(self.encodings),
                "results": {uri: data.decode("utf-8", "replace")
                            for uri, data in self.results.items()},
                "client_accepted": self.client_accepted, "server_accepted": self.server_accepted}

    # ---- One message of the client ---------------------------------------------------------------

    def receive(self, body, headers, path):
        self.requests += 1
        misbehaviour = self.misbehaviour()
        early = self.before_reading(misbehaviour, path)
        if early:
            return early
        encoding = "wbxml" if body[:1] in (b"\1", b"\2", b"\3") else "xml"
        self.encodings.add(encoding)
        if headers.get("Content-Type", "").split(";")[0] != CODECS[encoding].CONTENT_TYPE:
            self.fault(f"{encoding} as {headers.get('Content-Type')}")
        for name in ("Accept", "User-Agent", "Cache-Control"):
            if name not in headers:
                self.fault(f"no HTTP header {name}")
        if self.scenario["max_msg_size"] and self.requests > 1:
            if len(body) > self.scenario["max_msg_size"]:
                self.fault(f"a message of {len(body)} bytes")
        try:
            message = CODECS[encoding].decode(body)
        except xmlcodec.CodecError as error:
            self.fault(str(error))
            return Answer(status=400)
        disorder = order_fault(message)
        if disorder:
            self.fault(f"order of the DTD: {disorder}")
        if self.scenario["encoding"] != "same":
            encoding = self.scenario["encoding"]
        return self.answer(message, body, headers, CODECS[encoding], misbehaviour)

    def answer(self, message, body, headers, codec, misbehaviour):
        self.check_header(message)
        header, commands = message.find("SyncHdr"), message.find("SyncBody").children
        if any(c.name == "Alert" and c.text("Data") == "1223" for c in commands):
            self.say("the client aborts the session")
            self.is_over = False
            return Answer(is_last=True)

        status, chal = self.check_client(header, body, headers)
        self.read_own_status(commands)
        self.read_answers(commands)
        is_final = message.find("SyncBody", "Final") is not None
        statuses = [self.status("0", "SyncHdr", status, chal,
                                [header.text("Target", "LocURI")],
                                [header.text("Source", "LocURI")])]
        accepted = status < 300
        for command in commands:
            if command.name not in UNANSWERED and command.name != "Final":
                statuses.append(self.status(command.text("CmdID"), command.name,
                                            200 if accepted else status, None, [], []))
        if not accepted:
            return self.reply(statuses, True, codec, misbehaviour)
        asks_for_more = any(c.name == "Alert" and c.text("Data") == "1222" for c in commands)
        if not is_final and not asks_for_more:
            return self.reply(statuses + self.request_for_more(), False, codec, misbehaviour)
        return self.next_message(statuses, codec, misbehaviour)

    def next_message(self, statuses, codec, misbehaviour):
        if not self.messages:
            self.check_answered()
            self.begin_package()
        if not self.messages:
            self.is_over = True
            self.say("the session is over")
            if self.scenario["end"] == "empty":
                answer = Answer(is_last=True)
                self.add_hmac(answer)
                return answer
            answer = self.reply(statuses, True, codec, [])
            answer.is_last = True
            return answer
        commands, is_final = self.messages.pop(0)
        return self.reply(statuses + commands, is_final, codec, misbehaviour)

    # ---- Header and proofs -----------------------------------------------------------------------

    def check_header(self, message):
        header = message.find("SyncHdr")
        if (header.text("VerDTD"), header.text("VerProto")) != ("1.2", "DM/1.2"):
            self.fault("wrong version")
        if self.session_id is None:
            self.session_id = header.text("SessionID")
            self.device = header.text("Source", "LocURI")
            names = [c.name for c in message.find("SyncBody").children]
            if names[:2] != ["Alert", "Replace"]:
                self.fault(f"the first package holds {names}")
            self.say(f"session {self.session_id} with {self.device}")
        if header.text("SessionID") != self.session_id:
            self.fault("another SessionID")
        if header.text("MsgID") != str(self.client_msg_id + 1):
            self.fault(f"MsgID {header.text('MsgID')} after {self.client_msg_id}")
        self.client_msg_id += 1
        if header.text("Source", "LocURI") != self.device:
            self.fault("another device")
        size = header.text("Meta", "MaxMsgSize")
        self.largest_message = int(size) if size else self.largest_message
        dev_id = self.dev_id(message)
        if dev_id is not None and dev_id != self.device:
            self.fault(f"DevId is {dev_id}")

    @staticmethod
    def dev_id(message):
        for replace in message.find("SyncBody").all("Replace"):
            for item in replace.all("Item"):
                if item.text("Source", "LocURI") == "./DevInfo/DevId":
                    return item.text("Data")
        return None

    def check_client(self, header, body, headers):
        """The status of the client's header, and the challenge in it."""
        kind = self.scenario["client_auth"]
        if kind == "none" or (self.client_accepted and kind != "hmac"
                              and not self.scenario["per_message"]):
            if kind != "none" and header.find("Cred") is not None:
                self.fault("credentials after 212")
            self.client_nonce_is_heard = True
            return (200 if kind == "none" else 212), None
        given = self.given_proof(kind, header, headers)
        expected = self.expected_proof(kind, body)
        if "wrong_nonce" in self.scenario["misbehave"] and self.client_failures < 1:
            expected = b"never"
        self.client_accepted = given == expected
        if self.client_accepted:
            self.client_nonce = os.urandom(16)
            per_message = kind == "hmac" or self.scenario["per_message"]
            return (200 if per_message else 212), self.challenge(kind)
        self.client_failures += 1
        self.say("the client's proof is wrong" if given else "the client proves nothing")
        self.client_nonce = os.urandom(16)
        return (401 if given else 407), self.challenge(kind)

    def given_proof(self, kind, header, headers):
        if kind == "hmac":
            name, mac = proofs.parse_hmac_header(headers.get("x-syncml-hmac", ""))
            return mac if name == self.scenario["client_name"] else None
        if header.find("Cred") is None:
            return None
        if header.text("Cred", "Meta", "Type") != proofs.TYPES[kind]:
            return b"of another type"
        if kind == "md5" and header.text("Source", "LocName") != self.scenario["client_name"]:
            self.fault("no user name in Source/LocName")
        return header.find("Cred", "Data").data

    def expected_proof(self, kind, body):
        name, secret = self.scenario["client_name"], self.scenario["client_secret"]
        if kind == "basic":
            return proofs.basic(name, secret)
        if kind == "md5":
            return proofs.md5(name, secret, self.client_nonce)
        return proofs.hmac(name, secret, self.client_nonce, body)

    def challenge(self, kind):
        nonce = [] if kind == "basic" else [E("NextNonce", base64.b64encode(self.client_nonce))]
        return E("Chal", E("Meta", E("Format", "b64"), E("Type", proofs.TYPES[kind]), *nonce))

    def read_own_status(self, commands):
        """What the client thinks of the server's proof."""
        for status in commands:
            if status.name != "Status" or status.text("Cmd") != "SyncHdr":
                continue
            code = int(status.text("Data"))
            nonce = status.text("Chal", "Meta", "NextNonce")
            if nonce:
                self.server_nonce = base64.b64decode(nonce)
                self.server_nonce_is_agreed = code < 300
            if code == 212 or (code == 200 and self.scenario["server_auth"] == "hmac"):
                self.server_accepted = True
            if code in (401, 407):
                self.server_challenges += 1
                self.say(f"the client asks who the server is ({code})")
                self.resend_package()
            elif code >= 300:
                self.fault(f"the header was answered with {code}")

    def resend_package(self):
        if self.package >= 0:
            self.package -= 1
        self.messages = []
        self.waiting = {}

    # ---- What the client answers -----------------------------------------------------------------

    def read_answers(self, commands):
        for command in commands:
            if command.name == "Status" and command.text("Cmd") != "SyncHdr":
                self.read_status(command)
            elif command.name == "Results":
                self.read_results(command)
            elif command.name == "Alert":
                self.say(f"alert {command.text('Data')}")
            if command.name in UNANSWERED and command.text("MsgRef") is None:
                self.fault(f"{command.name} without MsgRef")

    def read_status(self, status):
        sent = self.waiting.get(status.text("CmdRef"))
        code = int(status.text("Data"))
        targets = [ref.data.decode() for ref in status.all("TargetRef")]
        for uri in targets or [""]:
            self.say(f"{status.text('Cmd')} {uri} {code}".replace("  ", " "))
        if sent is None:
            if code not in (401, 407):
                self.fault(f"a status for the unknown command {status.text('CmdRef')}")
            return
        if status.text("Cmd") != sent.name:
            self.fault(f"{sent.name} answered as {status.text('Cmd')}")
        items = [item.find("Data").data.decode() for item in status.all("Item")]
        sent.statuses.append((code, targets, items))

    def read_results(self, results):
        sent = self.waiting.get(results.text("CmdRef"))
        if sent is not None and not sent.statuses:
            self.fault("Results before their Status")
        for item in results.all("Item"):
            uri = item.text("Source", "LocURI")
            data = item.find("Data").data if item.find("Data") is not None else b""
            if self.object and self.object[0] == uri:
                data = self.object[1] + data
            elif self.object:
                self.fault("another object before the end of a large one")
            if item.find("MoreData") is not None:
                self.object = (uri, data)
                continue
            self.object = None
            self.results[uri] = data
            if sent is not None:
                sent.results[uri] = data
            self.say(f"  {uri} = {self.shown(uri, data)}")

    @staticmethod
    def shown(uri, data):
        if re.search("AuthPw|AAuthSecret", uri):
            return "********"
        return data.decode("utf-8", "replace") if len(data) <= 200 else f"({len(data)} bytes)"

    def check_answered(self):
        """Compares the statuses and results of the last package with what is expected."""
        for cmd_id, sent in self.waiting.items():
            if not sent.statuses:
                self.fault(f"no status for {sent.name} {cmd_id}")
                continue
            self.check_statuses(sent)
            for uri, expected in sent.script.get("results", {}).items():
                actual = sent.results.get(uri, b"missing").decode("utf-8", "replace")
                if not re.fullmatch(expected, actual, re.DOTALL):
                    self.fault(f"{uri} is {actual!r} instead of {expected!r}")
            if "save" in sent.script:
                found = sent.results.get(sent.uris[0], b"")
                self.saved[sent.script["save"]] = found.decode("utf-8", "replace")
        self.waiting = {}

    def check_statuses(self, sent):
        expected = sent.script.get("expect", 200)
        codes = [code for code, targets, _ in sent.statuses for _ in targets or [""]]
        wanted = expected if isinstance(expected, list) else [expected] * len(codes)
        if codes != wanted:
            self.fault(f"{sent.name} {' '.join(sent.uris)}: {codes} instead of {wanted}")
        items = [item for _, _, answered in sent.statuses for item in answered]
        if items != sent.script.get("answer", []):
            self.fault(f"{sent.name}: items {items} instead of {sent.script.get('answer', [])}")
        targets = [uri for _, refs, _ in sent.statuses for uri in refs]
        if sent.uris and targets and targets != sent.uris:
            self.fault(f"{sent.name}: TargetRef {targets} instead of {sent.uris}")

    # ---- What the server says --------------------------------------------------------------------

    def begin_package(self):
        endless = "endless" in self.scenario["misbehave"]
        if self.package + 1 >= len(self.scenario["packages"]):
            if not endless:
                return
            self.package = -1
        self.package += 1
        package = self.scenario["packages"][self.package]
        script = scenarios.fill_in(package.get("commands", []), self.saved)
        if package.get("note"):
            self.say(f"-- {package['note']}")
        commands = [command for entry in script for command in self.build(entry)]
        self.messages = self.split(commands, package.get("final", True))
        if "duplicate_cmdid" in self.misbehaviour():
            for command in commands:
                command.find("CmdID").data = commands[0].find("CmdID").data

    def split(self, commands, is_final):
        """One message a chunk: nothing follows a chunk that is not the last."""
        messages, current = [], []
        for command in commands:
            current.append(command)
            if command.find("Item", "MoreData") is not None:
                messages.append((current, False))
                current = []
        if current:
            messages.append((current, is_final))
        return messages

    def new_cmd_id(self):
        self.cmd_id += 1
        return str(self.cmd_id)

    def build(self, script):
        """The elements of one scripted command: several for a value in chunks."""
        name = next(iter(scenarios.COMMANDS & script.keys()))
        return getattr(self, "build_" + name)(script)

    def wait_for(self, element, uris, script):
        self.waiting[element.text("CmdID")] = Sent(element.name, uris, script)
        return [element]

    def build_get(self, script):
        uris = script["get"] if isinstance(script["get"], list) else [script["get"]]
        items = [E("Item", E("Target", E("LocURI", uri))) for uri in uris]
        return self.wait_for(E("Get", E("CmdID", self.new_cmd_id()), *items), uris, script)

    def build_add(self, script):
        return self.build_value("Add", script["add"], script)

    def build_replace(self, script):
        return self.build_value("Replace", script["replace"], script)

    def build_rename(self, script):
        uri = script["rename"] + "?prop=Name"
        return self.build_value("Replace", uri, {**script, "data": script["name"]})

    def build_value(self, name, uri, script):
        text, times = script["repeat"] if "repeat" in script else (script.get("data"), 1)
        data = None if text is None else text.encode() * times
        chunk = self.scenario["chunk"] or (self.largest_message - 2000 if self.largest_message else 0)
        pieces = [data]
        if data and chunk > 0 and len(data) > chunk:
            pieces = [data[i:i + chunk] for i in range(0, len(data), chunk)]
        elements = []
        for number, piece in enumerate(pieces):
            size = len(data) if len(pieces) > 1 and number == 0 else None
            more = number + 1 < len(pieces)
            content = [E("Target", E("LocURI", uri)), *self.meta(script, size)]
            content += [] if piece is None else [E("Data", piece)]
            content += [E("MoreData")] if more else []
            element = E(name, E("CmdID", self.new_cmd_id()), E("Item", *content))
            self.wait_for(element, [uri], {"expect": 213} if more else script)
            elements.append(element)
        return elements

    @staticmethod
    def meta(script, size):
        content = []
        if "format" in script:
            content.append(E("Format", script["format"]))
        if "type" in script:
            content.append(E("Type", script["type"]))
        if size is not None:
            content.append(E("Size", size))
        return [E("Meta", *content)] if content else []

    def build_delete(self, script):
        element = E("Delete", E("CmdID", self.new_cmd_id()),
                    E("Item", E("Target", E("LocURI", script["delete"]))))
        return self.wait_for(element, [script["delete"]], script)

    def build_exec(self, script):
        content = [E("Correlator", script["correlator"])] if "correlator" in script else []
        data = [E("Data", script["data"])] if "data" in script else []
        element = E("Exec", E("CmdID", self.new_cmd_id()), *content,
                    E("Item", E("Target", E("LocURI", script["exec"])), *data))
        return self.wait_for(element, [script["exec"]], script)

    def build_copy(self, script):
        element = E("Copy", E("CmdID", self.new_cmd_id()),
                    E("Item", E("Target", E("LocURI", script["to"])),
                      E("Source", E("LocURI", script["copy"]))))
        return self.wait_for(element, [script["to"]], script)

    def build_sequence(self, script):
        return self.build_block("Sequence", script["sequence"], script)

    def build_atomic(self, script):
        return self.build_block("Atomic", script["atomic"], script)

    def build_block(self, name, scripts, script):
        cmd_id = E("CmdID", self.new_cmd_id())
        inner = [element for entry in scripts for element in self.build(entry)]
        return self.wait_for(E(name, cmd_id, *inner), [], script)

    def build_alert(self, script):
        items = [E("Item", E("Data", text)) for text in script.get("items", [])]
        element = E("Alert", E("CmdID", self.new_cmd_id()), E("Data", script["alert"]), *items)
        return self.wait_for(element, [], script)

    def request_for_more(self):
        return self.wait_for(E("Alert", E("CmdID", self.new_cmd_id()), E("Data", "1222")), [], {})

    def status(self, cmd_ref, name, code, chal, targets, sources):
        return E("Status", E("CmdID", self.new_cmd_id()), E("MsgRef", self.client_msg_id),
                 E("CmdRef", cmd_ref), E("Cmd", name),
                 *(E("TargetRef", uri) for uri in targets),
                 *(E("SourceRef", uri) for uri in sources),
                 *([chal] if chal else []), E("Data", code))

    def reply(self, commands, is_final, codec, misbehaviour):
        self.msg_id += 1
        header = [E("VerDTD", "1.2"), E("VerProto", "DM/1.2"), E("SessionID", self.session_id),
                  E("MsgID", self.msg_id), E("Target", E("LocURI", self.device)),
                  E("Source", E("LocURI", self.url))]
        if "respuri" in misbehaviour:
            header.append(E("RespURI", self.url + f"session/{self.session_id}"))
        if "respuri_elsewhere" in misbehaviour:
            header.append(E("RespURI", "http://127.0.0.1:1/"))
        header += self.own_cred() + self.own_limits()
        message = E("SyncML", E("SyncHdr", *header),
                    E("SyncBody", *commands, *([E("Final")] if is_final else [])))
        if "wrong_order" in misbehaviour:
            for status in message.find("SyncBody").all("Status"):
                status.children.reverse()
        answer = Answer(codec.encode(message), headers={"Content-Type": codec.CONTENT_TYPE,
                                                         "Cache-Control": "no-store"})
        self.cmd_id = 0 if "cmdid_restarts" in self.scenario["misbehave"] else self.cmd_id
        self.add_hmac(answer)
        return self.spoil(answer, misbehaviour)

    def own_cred(self):
        kind = self.scenario["server_auth"]
        if kind not in ("basic", "md5") or self.server_accepted:
            return []
        name, secret = self.scenario["server_name"], self.scenario["server_secret"]
        if kind == "md5" and not self.server_nonce:
            return []
        data = (proofs.basic(name, secret) if kind == "basic"
                else proofs.md5(name, secret, self.own_nonce()))
        return [E("Cred", E("Meta", E("Format", "b64"), E("Type", proofs.TYPES[kind])),
                  E("Data", data))]

    def add_hmac(self, answer):
        if self.scenario["server_auth"] != "hmac" or not self.server_nonce:
            return
        answer.headers["x-syncml-hmac"] = proofs.hmac_header(
            self.scenario["server_name"], self.scenario["server_secret"], self.own_nonce(),
            answer.body)

    def own_nonce(self):
        return b"wrong" if "wrong_server_nonce" in self.scenario["misbehave"] else self.server_nonce

    def own_limits(self):
        content = []
        if self.scenario["max_msg_size"]:
            content.append(E("MaxMsgSize", self.scenario["max_msg_size"]))
        if self.scenario["max_obj_size"]:
            content.append(E("MaxObjSize", self.scenario["max_obj_size"]))
        return [E("Meta", *content)] if content else []

    # ---- Misbehaviour ----------------------------------------------------------------------------

    def misbehaviour(self):
        """What goes wrong with the answer to the request that is being handled."""
        packages = self.scenario["packages"]
        following = self.package + 1
        own = packages[following].get("misbehave", []) if following < len(packages) else []
        current = packages[self.package].get("misbehave", []) if self.package >= 0 else []
        return self.scenario["misbehave"] + own + [kind for kind in current if kind not in own]

    def before_reading(self, misbehaviour, path):
        """Answers that need not look at the message."""
        first = self.requests == 1
        if "redirect" in misbehaviour and path == "/":
            self.requests -= 1
            return Answer(status=307, headers={"Location": "/moved"})
        if "redirect_loop" in misbehaviour:
            return Answer(status=302, headers={"Location": "/again"})
        if "busy_once" in misbehaviour and first:
            return Answer(status=503)
        if "break_off_once" in misbehaviour and first:
            return Answer(breaks_off=True)
        if "http_error" in misbehaviour:
            return Answer(status=500)
        return None

    @staticmethod
    def spoil(answer, misbehaviour):
        if "truncated_body" in misbehaviour:
            answer.length = len(answer.body)
            answer.body = answer.body[:len(answer.body) // 2]
        if "truncated_message" in misbehaviour:
            answer.body = answer.body[:len(answer.body) // 2]
        if "garbage" in misbehaviour:
            answer.body = b"<html><body>It works!</body></html>"
        if "huge" in misbehaviour:
            answer.body += b" " * (5 * 1024 * 1024)
        for kind in misbehaviour:
            if kind.startswith("slow="):
                answer.delay = float(kind.split("=")[1])
        return answer

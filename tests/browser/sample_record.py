"""Records as dmclient writes them, made by hand: for what no session of a test leads to."""

import base64
import json

RECORD_SIZE = 1168
OFFICE = "./DevDetail/Ext/Conf/Conn/Profiles/Office"


def line(t, event, **fields):
    return {"t": t, "event": event, **fields}


def package(commands):
    """A package of a server, XML, with these elements in its body."""
    return ("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<SyncML><SyncHdr><VerDTD>1.2</VerDTD>"
            "<VerProto>DM/1.2</VerProto><SessionID>1</SessionID><MsgID>1</MsgID></SyncHdr>"
            f"<SyncBody>{commands}<Final/></SyncBody></SyncML>").encode()


def run(**changes):
    return line(0, "run", **{**dict(
        format=1, run="9f3a000011112222", time="2026-11-22T18:56:28.123Z", program="dmclient",
        version="1.0.0", qt="6.4.2", plugin="/usr/lib/libkubdmnapipluginlib.so.1", backend="sqlite",
        state="/home/somebody/handset", arguments=["session", "Operator"], showsSecrets=False),
        **changes})


def received(t, message, content, decoded=None, **more):
    return line(t, "message", **{**dict(
        message=message, direction="received", exchange=message, msgId=str(message), encoding="xml",
        size=len(content), bytes=base64.b64encode(content).decode(), decoded=decoded, fault=None), **more})


def command(t, number, **changes):
    return line(t, "command", **{**dict(
        command=number, message=2, cmdId=str(number), item=0, name="Replace", target=OFFICE + "/Linger",
        format="int", value="30", status=200, meaning="OK", reason=None, began=t - 50, us=50), **changes})


def stored(**fields):
    """The bytes of a profile's record with texts and numbers at offsets: stored(_8=b"internet")."""
    record = bytearray(RECORD_SIZE)
    for place, content in fields.items():
        offset = int(place[1:])
        record[offset:offset + len(content)] = content
    return bytes(record)


def modified(t, number, before, after, changes, **more):
    return line(t, "profile-call", call=number, function="NAPI_ModifyProfile", profile="Office", id=3, result=0,
                reason=None, us=3, before=base64.b64encode(before).decode(), after=base64.b64encode(after).decode(),
                changes=changes, **more)


def session():
    """A session in which a speed is refused, a linger and an address are cut, and a node goes."""
    before = stored(_8=b"internet", _381=b"+491720000", _568=bytes([30, 0]))
    lingers = stored(_8=b"internet", _381=b"+491720000", _568=(4464).to_bytes(2, "little"))
    number = b"9" * 120
    cut = bytearray(lingers)
    cut[381:425] = number[:44]
    content = package(
        f"<Replace><CmdID>3</CmdID><Item><Target><LocURI>{OFFICE}/Linger</LocURI></Target><Data>70000</Data></Item>"
        f"</Replace><Replace><CmdID>4</CmdID><Item><Target><LocURI>{OFFICE}/Speed</LocURI></Target><Data>1200</Data>"
        "</Item></Replace>")
    header = {"verDtd": "1.2", "verProto": "DM/1.2", "sessionId": "1", "msgId": "1", "target": "urn:test:handset",
              "source": "dm.example"}
    decoded = {"header": header, "final": True, "commands": [
        {"name": "Status", "cmdId": "1", "cmd": "SyncHdr", "data": "407",
         "chal": {"type": "syncml:auth-md5", "format": "b64"}},
        {"name": "Replace", "cmdId": "3"}, {"name": "Replace", "cmdId": "4"}, {"name": "Replace", "cmdId": "5"},
        {"name": "Add", "cmdId": "6"}]}
    leaves = [("Addr", "chr", "internet"), ("Linger", "int", "30"), ("Speed", "int", "9600")]
    root = OFFICE.rsplit("/", 1)[0]
    sent = package("<Alert><CmdID>1</CmdID><Data>1201</Data></Alert>")
    tls = {"version": "TLS 1.3", "cipher": "TLS_AES_256_GCM_SHA384", "subject": "CN=dm.example", "issuer": "CN=Test",
           "sha256": "ab" * 32, "until": "2030-01-01"}
    return [
        run(),
        received(1000, 1, sent, {"header": header, "commands": [{"name": "Alert", "cmdId": "1", "data": "1201"}], "final": True},
                 direction="sent"),
        line(1100, "request", exchange=1, attempt=1, message=1, method="POST", url="https://dm.example/",
             headers=[["Content-Type", "application/vnd.syncml.dm+xml"]], size=len(sent)),
        line(40000, "response", exchange=1, attempt=1, us=38900, status=503, headers=[["Retry-After", "1"]], size=0,
             tls=tls, failure=None),
        line(40100, "wait", exchange=1, us=1000000, reason="HTTP 503"),
        line(1040200, "request", exchange=1, attempt=2, message=1, method="POST", url="https://dm.example/",
             headers=[["Content-Type", "application/vnd.syncml.dm+xml"]], size=len(sent)),
        line(1061000, "response", exchange=1, attempt=2, us=20800, status=200,
             headers=[["Content-Type", "application/vnd.syncml.dm+xml"]], size=len(content), tls=tls, failure=None),
        received(1061400, 2, content, decoded, exchange=1),
        line(1062000, "mount", mount=1, root=root, command=1),
        line(1062100, "profile-call", call=1, mount=1, function="NAPI_ListAllProfile", result=0, count=1,
             reason=None, us=9),
        line(1062200, "setting-call", call=2, mount=1, function="setSettingInfo",
             file="kub_napdef_profilemapping.cfg", group="NAPIDEF_Profile", key="3Ph2DC1", before=None, after="Office", result=True),
        line(1063000, "mounted", mount=1, us=1000, nodes=5, messages=1, fault=None),
        line(1063000, "plugin-message", mount=1, place="DM_Napi_PluginTree.cpp:77", text="1 profile"),
        line(1063100, "tree", mount=1, changed=[], went=[], appeared=[
            {"uri": root, "format": "node"}, {"uri": OFFICE, "format": "node"},
            *({"uri": f"{OFFICE}/{name}", "format": kind, "value": value} for name, kind, value in leaves)]),
        modified(1064000, 3, before, lingers,
                 [{"field": "csdLinger", "offset": 568, "size": 2, "before": "30", "after": "4464"}], command=1),
        command(1064100, 1, value="70000", cmdId="3"),
        line(1064150, "tree", command=1, appeared=[], changed=[{"uri": OFFICE + "/Linger", "value": "4464"}], went=[]),
        line(1064900, "profile-call", call=4, command=2, function="NAPI_ReadProfile", profile="Office", id=3, result=0,
             reason=None, us=2, after=base64.b64encode(lingers).decode()),
        line(1064940, "plugin-message", command=2, place="DM_Napi_PluginNode.cpp:574", level=8, text="Enter: SetValue()!"),
        line(1064945, "plugin-message", command=2, place="DM_Napi_PluginNode.cpp:595", level=8,
             text="Enter: SetValueInternal()! NodeName = <b>Speed</b>"),
        line(1064950, "plugin-message", command=2, place="DM_Napi_PluginNode.cpp:612", text="Speed illegal!"),
        command(1065000, 2, target=OFFICE + "/Speed", value="1200", status=500, meaning="Command failed",
                reason="Speed illegal!", cmdId="4"),
        modified(1066000, 5, lingers, bytes(cut),
                 [{"field": "csdAddress", "offset": 381, "size": 44, "before": "+491720000", "after": "9" * 44}],
                 command=3),
        command(1066100, 3, target=OFFICE + "/Addr", format="chr", value="9" * 120, cmdId="5"),
        line(1066150, "tree", command=3, appeared=[], changed=[{"uri": OFFICE + "/Addr", "value": "9" * 44}], went=[]),
        command(1067000, 4, name="Add", target=OFFICE + "/Foo", format="chr", value="x", cmdId="6"),
        line(1067100, "tree", command=4, appeared=[{"uri": OFFICE + "/Foo", "format": "chr", "value": "x"}],
             changed=[], went=[]),
        received(1068000, 3, b"\x02\xa4\x01\x6a\x00\x6d\x6c\x71\xc3\x03\x31\x2e\x32\x01\x01\x6b\x12\x01\x01", None,
                 direction="sent", exchange=2, encoding="wbxml"),
        line(1068100, "request", exchange=2, attempt=1, message=3, method="POST", url="https://dm.example/", headers=[],
             size=19),
        line(1090000, "response", exchange=2, attempt=1, us=21900, headers=[], size=0,
             failure="connection refused"),
        line(1091000, "note", text="the server asked for nothing more"),
        line(1092000, "read-back", command=1, note="reads 4464", reads="4464", when="now"),
        line(1092100, "read-back", command=3, note="reads " + "9" * 44, reads="9" * 44, when="now"),
        line(1092200, "read-back", command=4, note="gone at the next mount", when="next mount"),
        line(1092300, "tree", next=True, appeared=[], changed=[], went=[OFFICE + "/Foo"]),
        line(1093000, "end", kind="completed", reason="", messages=3, commands=4, refused=1, differences=3, status=1),
    ]


def text(events):
    return "".join(json.dumps(event, ensure_ascii=False) + "\n" for event in events)

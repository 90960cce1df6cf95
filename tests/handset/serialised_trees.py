"""Serialised trees and the DM messages that bring them, in both encodings, made without a line of the
client's.

A tree is a list of nodes; a node is a dict of "name" and "nodes" or "value", and maybe "path", "acl",
"format" and "id", its Management Object id."""

import base64
from xml.sax.saxutils import escape

from provisioning import uintvar

XML_TYPE = "application/vnd.syncml.dmtnds+xml"
WBXML_TYPE = "application/vnd.syncml.dmtnds+wbxml"
DM_WBXML = 0x42
DM_XML = 0x43
ACCOUNT_ID = "urn:oma:mo:oma-dm-dmacc:1.0"
ACCESS_POINTS = "./DevDetail/Ext/Conf/Conn/Profiles"

TREE_TOKENS = {"ACL": 0x06, "b64": 0x08, "bin": 0x09, "bool": 0x0A, "chr": 0x0B, "DDFName": 0x11,
               "Format": 0x1C, "int": 0x1E, "MgmtTree": 0x20, "MIME": 0x21, "Node": 0x24, "node": 0x25,
               "NodeName": 0x26, "Path": 0x2C, "RTProperties": 0x2F, "Type": 0x35, "Value": 0x36,
               "VerDTD": 0x37}
MESSAGE_TOKENS = {"Add": 0x05, "CmdID": 0x0B, "Data": 0x0F, "Final": 0x12, "Item": 0x14,
                  "LocURI": 0x17, "MsgID": 0x1B, "SessionID": 0x25, "Source": 0x27, "SyncBody": 0x2B,
                  "SyncHdr": 0x2C, "SyncML": 0x2D, "Target": 0x2E, "VerDTD": 0x31, "VerProto": 0x32}


def leaf(name, value, form="chr", **more):
    return {"name": name, "value": value, "format": form, **more}


def interior(name, *nodes, **more):
    return {"name": name, "nodes": nodes, **more}


def credentials(name, level, user, secret, nonce, kind="DIGEST"):
    return interior(name, leaf("AAuthLevel", level), leaf("AAuthType", kind), leaf("AAuthName", user),
                    leaf("AAuthSecret", secret),
                    leaf("AAuthData", base64.b64encode(nonce).decode(), "bin"))


def account(server="com.example.dm", address="https://dm.example.com/dm", name="Example DM", *more,
            **properties):
    """The account of the Client Provisioning vector, as an object."""
    return interior("Srv1", leaf("AppID", "w7"), leaf("ServerID", server), leaf("Name", name),
                    leaf("PrefConRef", "./Inbox/Net1"),
                    interior("AppAddr", interior("1", leaf("Addr", address), leaf("AddrType", "URI"),
                                                 interior("Port", interior("1", leaf("PortNbr", "443"))))),
                    interior("AppAuth", credentials("1", "CLCRED", "dev1", "devpw", b"nonce1"),
                             credentials("2", "SRVCRED", server, "srvpw", b"nonce2")),
                    *more, **{"id": ACCOUNT_ID, **properties})


def access_point(name="Net1", *more):
    return interior(name, leaf("Addr", "internet.example"), leaf("Bearer", "GSM-GPRS"),
                    leaf("Linger", "300", "int"), *more, path=ACCESS_POINTS)


def elements_of(node):
    """The Node as (name, content): a content is a text, or a list of elements."""
    is_leaf = "value" in node
    properties = [("ACL", node["acl"])] if "acl" in node else []
    properties += [("Format", [(node.get("format", "node"), [])]),
                   ("Type", [("MIME", "text/plain") if is_leaf else ("DDFName", node.get("id", ""))])]
    return ("Node", [("NodeName", node["name"]), *([("Path", node["path"])] if "path" in node else []),
                     ("RTProperties", properties),
                     *([("Value", node["value"])] if is_leaf else map(elements_of, node["nodes"]))])


def tree_of(nodes):
    return ("MgmtTree", [("VerDTD", "1.2"), *map(elements_of, nodes)])


def xml(element):
    name, content = element
    return f"<{name}>" + (escape(content) if isinstance(content, str)
                          else "".join(map(xml, content))) + f"</{name}>"


def wbxml(element, tokens):
    name, content = element
    if not content:
        return bytes([tokens[name]])
    inner = (b"\x03" + content.encode() + b"\0" if isinstance(content, str)
             else b"".join(wbxml(child, tokens) for child in content))
    return bytes([tokens[name] | 0x40]) + inner + b"\x01"


def tree_wbxml(nodes):
    public_id = b"-//OMA//DTD-DM-DDF 1.2//EN\0"
    return (b"\x02\x00\x00\x6A" + uintvar(len(public_id)) + public_id + b"\x00\x02"
            + wbxml(tree_of(nodes), TREE_TOKENS))


def message_xml(*nodes):
    """A bootstrap message of the DM profile in XML, with the tree in XML."""
    return (f"""<SyncML xmlns="SYNCML:SYNCML1.2"><SyncHdr><VerDTD>1.2</VerDTD><VerProto>DM/1.2</VerProto>
<SessionID>0</SessionID><MsgID>0</MsgID><Target><LocURI>IMEI:1</LocURI></Target>
<Source><LocURI>https://dm.example.com/dm</LocURI></Source></SyncHdr><SyncBody><Add><CmdID>1</CmdID>
<Item><Target><LocURI>./Inbox</LocURI></Target><Meta><Format xmlns="syncml:metinf">xml</Format>
<Type xmlns="syncml:metinf">{XML_TYPE}</Type></Meta><Data>{escape(xml(tree_of(nodes)))}</Data></Item></Add>
<Final/></SyncBody></SyncML>""").encode()


def message_wbxml(*nodes):
    """The same in WBXML, with the tree as an opaque document in WBXML."""
    def element(name, *content):
        if not content:
            return bytes([MESSAGE_TOKENS[name]])
        return (bytes([MESSAGE_TOKENS[name] | 0x40])
                + b"".join(b"\x03" + part.encode() + b"\0" if isinstance(part, str) else part
                           for part in content) + b"\x01")
    meta = (b"\x5A\x00\x01\x47\x03bin\0\x01\x53\x03" + WBXML_TYPE.encode() + b"\0\x01\x00\x00\x01")
    tree = tree_wbxml(nodes)
    return b"\x02\xA4\x01\x6A\x00" + element(
        "SyncML",
        element("SyncHdr", element("VerDTD", "1.2"), element("VerProto", "DM/1.2"),
                element("SessionID", "0"), element("MsgID", "0"),
                element("Target", element("LocURI", "IMEI:1")),
                element("Source", element("LocURI", "https://dm.example.com/dm"))),
        element("SyncBody",
                element("Add", element("CmdID", "1"),
                        element("Item", element("Target", element("LocURI", "./Inbox")), meta,
                                element("Data", b"\xC3" + uintvar(len(tree)) + tree))),
                element("Final")))

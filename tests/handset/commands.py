"""DM commands that a server sends a handset in one package, and what answers them."""

import subprocess
from xml.etree import ElementTree
from xml.sax.saxutils import escape

from handset import DMCLIENT, PLUGIN

NAMESPACE = "{SYNCML:SYNCML1.2}"
PACKAGE = """<SyncML xmlns="SYNCML:SYNCML1.2"><SyncHdr><VerDTD>1.2</VerDTD>
<VerProto>DM/1.2</VerProto><SessionID>1</SessionID><MsgID>1</MsgID>
<Target><LocURI>urn:test:handset</LocURI></Target><Source><LocURI>http://dm.example/</LocURI></Source>
</SyncHdr><SyncBody>%s<Final/></SyncBody></SyncML>"""


def _command(name, *items):
    return f"<{name}><CmdID/>{''.join(items)}</{name}>"


def _item(uri, data=None, format=None, source=None):
    meta = f'<Meta><Format xmlns="syncml:metinf">{format}</Format></Meta>' if format else ""
    return ("<Item>" + (f"<Target><LocURI>{escape(uri)}</LocURI></Target>" if uri else "")
            + (f"<Source><LocURI>{escape(source)}</LocURI></Source>" if source else "") + meta
            + (f"<Data>{escape(data)}</Data>" if data is not None else "") + "</Item>")


def get(*uris):
    return _command("Get", *(_item(uri) for uri in uris))


def replace(uri, data, format=None):
    return _command("Replace", _item(uri, data, format))


def rename(uri, name):
    return replace(uri + "?prop=Name", name)


def set_acl(uri, acl):
    return replace(uri + "?prop=ACL", acl)


def delete(uri):
    return _command("Delete", _item(uri))


def copy(source, target):
    return _command("Copy", _item(target, source=source))


def execute(uri):
    return _command("Exec", _item(uri))


def add(uri, data=None, format=None):
    return _command("Add", _item(uri, data, format or ("node" if data is None else "chr")))


class Answers:
    """Statuses in the order of the commands, the values of the Results by address, and the whole
    answer as text."""

    def __init__(self, message):
        self.text = message.decode()
        body = ElementTree.fromstring(message).find(NAMESPACE + "SyncBody")
        self.statuses = [int(status.findtext(NAMESPACE + "Data"))
                         for status in body.findall(NAMESPACE + "Status")
                         if status.findtext(NAMESPACE + "CmdRef") != "0"]
        self.values = {item.findtext(f"{NAMESPACE}Source/{NAMESPACE}LocURI"):
                       item.findtext(NAMESPACE + "Data")
                       for item in body.iter(NAMESPACE + "Item")
                       if item.find(NAMESPACE + "Source") is not None}


def package_of(*commands):
    return PACKAGE % "".join(command.replace("<CmdID/>", f"<CmdID>{number}</CmdID>", 1)
                             for number, command in enumerate(commands, 1))


def run_package(handset, package, server=None, prefix=()):
    """Has the client answer a package, for a server or for the device's owner, after a command that
    limits it."""
    options = ["--server-id", server] if server else []
    result = subprocess.run([*prefix, DMCLIENT, "--plugin", PLUGIN, "process", *options, "-"],
                            env=handset.environment(), input=package.encode(), capture_output=True,
                            timeout=600, check=False)
    if not result.stdout:
        raise AssertionError(f"exit status {result.returncode}: {result.stderr.decode()}")
    return Answers(result.stdout)


def run(handset, *commands, server=None):
    """Has the client run the commands, for a server or for the device's owner."""
    return run_package(handset, package_of(*commands), server)

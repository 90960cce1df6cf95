"""The elements of a DM message, and what the DTD says about their order."""

import re

SYNCML = "SYNCML:SYNCML1.2"
METINF = "syncml:metinf"


class Element:
    """An element with either children or the bytes of a text."""

    def __init__(self, name, *content):
        self.name = name
        self.children = [item for item in content if isinstance(item, Element)]
        texts = [item for item in content if not isinstance(item, Element)]
        self.data = b"".join(item if isinstance(item, bytes) else str(item).encode()
                             for item in texts)

    def find(self, *path):
        """The first descendant at a path of names, or None."""
        if not path:
            return self
        for child in self.children:
            if child.name == path[0]:
                found = child.find(*path[1:])
                if found is not None:
                    return found
        return None

    def all(self, name):
        return [child for child in self.children if child.name == name]

    def text(self, *path):
        """The text of a descendant without outer white space, or None when it is missing."""
        found = self.find(*path)
        return None if found is None else found.data.decode("utf-8", "replace").strip()

    def __eq__(self, other):
        return (self.name, self.children, self.data) == (other.name, other.children, other.data)

    def __repr__(self):
        return f"{self.name}({', '.join(map(repr, self.children or [self.data]))})"


META_CHILDREN = ("Format Type Mark Size Anchor Version NextNonce MaxMsgSize MaxObjSize EMI Mem "
                 "MetInf FreeID FreeMem Last Next SharedMem FieldLevel").split()

_ITEM_COMMAND = "CmdID (NoResp )?(Cred )?(Meta )?(Item )+"
_INNER = "((Add|Alert|Atomic|Copy|Delete|Exec|Get|Map|Replace|Sequence|Sync) )+"

# Content models over the names of the children, each followed by a blank.
MODELS = {
    "SyncML": "SyncHdr SyncBody ",
    "SyncHdr": "VerDTD VerProto SessionID MsgID Target Source (RespURI )?(NoResp )?(Cred )?(Meta )?",
    "SyncBody": "((Alert|Atomic|Copy|Exec|Get|Map|Put|Results|Search|Sequence|Status|Sync|Add|Move|"
                "Replace|Delete) )+(Final )?",
    "Target": "LocURI (LocName )?(Filter )?",
    "Source": "LocURI (LocName )?",
    "Cred": "(Meta )?Data ",
    "Chal": "Meta ",
    "Meta": "(Format )?(Type )?(Mark )?(Size )?(Anchor )?(Version )?(NextNonce )?(MaxMsgSize )?"
            "(MaxObjSize )?(EMI )*(Mem )?",
    "Item": "(Target )?(Source )?(SourceParent )?(TargetParent )?(Meta )?(Data )?(MoreData )?",
    "Add": _ITEM_COMMAND,
    "Copy": _ITEM_COMMAND,
    "Replace": _ITEM_COMMAND,
    "Delete": "CmdID (NoResp )?(Archive )?(SftDel )?(Cred )?(Meta )?(Item )+",
    "Get": "CmdID (NoResp )?(Lang )?(Cred )?(Meta )?(Item )+",
    "Exec": "CmdID (NoResp )?(Cred )?(Meta )?(Correlator )?Item ",
    "Alert": "CmdID (NoResp )?(Cred )?(Data )?(Correlator )?(Item )*",
    "Atomic": "CmdID (NoResp )?(Meta )?" + _INNER,
    "Sequence": "CmdID (NoResp )?(Meta )?" + _INNER,
    "Status": "CmdID MsgRef CmdRef Cmd (TargetRef )*(SourceRef )*(Cred )?(Chal )?Data (Item )*",
    "Results": "CmdID (MsgRef )?CmdRef (Meta )?(TargetRef )?(SourceRef )?(Item )+",
}


def order_fault(element):
    """What breaks the DTD in an element or beneath it; None when nothing does."""
    names = "".join(child.name + " " for child in element.children)
    if not re.fullmatch(MODELS.get(element.name, ""), names):
        return f"{element.name} holds: {names or 'nothing'}"
    for child in element.children:
        fault = order_fault(child)
        if fault:
            return fault
    return None

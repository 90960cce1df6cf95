"""DM messages as WBXML."""

from elements import Element
from xmlcodec import CodecError

CONTENT_TYPE = "application/vnd.syncml.dm+wbxml"

PUBLIC_ID = 0x1201
UTF_8 = 0x6A
SWITCH_PAGE, END, ENTITY, STR_I, STR_T, OPAQUE = 0x00, 0x01, 0x02, 0x03, 0x83, 0xC3
HAS_CONTENT, HAS_ATTRIBUTES = 0x40, 0x80

PAGES = {
    0: dict(enumerate(
        "Add Alert Archive Atomic Chal Cmd CmdID CmdRef Copy Cred Data Delete Exec Final Get Item "
        "Lang LocName LocURI Map MapItem Meta MsgID MsgRef NoResp NoResults Put Replace RespURI "
        "Results Search Sequence SessionID SftDel Source SourceRef Status Sync SyncBody SyncHdr "
        "SyncML Target TargetRef Reserved VerDTD VerProto NumberOfChanges MoreData Field Filter "
        "Record FilterType SourceParent TargetParent Move Correlator".split(), 5)),
    1: dict(enumerate(
        "Anchor EMI Format FreeID FreeMem Last Mark MaxMsgSize Mem MetInf Next NextNonce SharedMem "
        "Size Type Version MaxObjSize FieldLevel".split(), 5)),
}
CODES = {name: (page, code) for page, tags in PAGES.items() for code, name in tags.items()}


# ---- Reading -----------------------------------------------------------------------------------


class _Reader:
    def __init__(self, data):
        self.data = data
        self.position = 0
        self.page = 0
        self.strings = b""

    def byte(self):
        if self.position >= len(self.data):
            raise CodecError("the message ends too early")
        self.position += 1
        return self.data[self.position - 1]

    def number(self):
        value = 0
        for _ in range(5):
            byte = self.byte()
            value = value << 7 | byte & 0x7F
            if byte < 0x80:
                return value
        raise CodecError("a number of more than five bytes")

    def take(self, length):
        taken = self.data[self.position:self.position + length]
        if len(taken) < length:
            raise CodecError("the message ends too early")
        self.position += length
        return taken

    def inline_string(self):
        end = self.data.find(b"\0", self.position)
        if end < 0:
            raise CodecError("a string without an end")
        text = self.data[self.position:end]
        self.position = end + 1
        return text

    def table_string(self):
        offset = self.number()
        if offset >= len(self.strings):
            raise CodecError("a string beyond the string table")
        return self.strings[offset:].split(b"\0", 1)[0]

    def tag(self):
        """The next tag, page switches before it read."""
        byte = self.byte()
        while byte == SWITCH_PAGE:
            self.page = self.byte()
            byte = self.byte()
        return byte

    def element(self, tag):
        if tag & HAS_ATTRIBUTES:
            raise CodecError("an element with attributes")
        name = PAGES.get(self.page, {}).get(tag & 0x3F)
        if name is None:
            raise CodecError(f"no tag {tag & 0x3F:#x} in code page {self.page}")
        return Element(name, *self.content()) if tag & HAS_CONTENT else Element(name)

    def content(self):
        readers = {STR_I: self.inline_string, STR_T: self.table_string,
                   OPAQUE: lambda: self.take(self.number()),
                   ENTITY: lambda: chr(self.number()).encode()}
        while True:
            token = self.tag()
            if token == END:
                return
            yield readers[token]() if token in readers else self.element(token)


def decode(data):
    reader = _Reader(data)
    if reader.byte() >> 4:
        raise CodecError("no WBXML 1.x")
    if reader.number() == 0:
        reader.number()  # the public id is a text of the string table
    if reader.number() != UTF_8:
        raise CodecError("not in UTF-8")
    reader.strings = reader.take(reader.number())
    message = reader.element(reader.tag())
    if reader.position != len(data):
        raise CodecError("bytes after the end")
    return message


# ---- Writing -----------------------------------------------------------------------------------


def _number(value):
    digits = [value & 0x7F]
    while value > 0x7F:
        value >>= 7
        digits.append(value & 0x7F | 0x80)
    return bytes(reversed(digits))


class _Writer:
    def __init__(self):
        self.bytes = bytearray([0x03]) + _number(PUBLIC_ID) + bytes([UTF_8, 0])
        self.page = 0

    def element(self, element):
        page, code = CODES[element.name]
        if page != self.page:
            self.bytes += bytes([SWITCH_PAGE, page])
            self.page = page
        if not element.children and not element.data:
            self.bytes.append(code)
            return
        self.bytes.append(code | HAS_CONTENT)
        for child in element.children:
            self.element(child)
        if element.data:
            self.text(element)
        self.bytes.append(END)

    def text(self, element):
        # Long values and those with a NUL are opaque, short ones strings: both occur in the field.
        if b"\0" in element.data or (element.name == "Data" and len(element.data) > 64):
            self.bytes += bytes([OPAQUE]) + _number(len(element.data)) + element.data
        else:
            self.bytes += bytes([STR_I]) + element.data + b"\0"


def encode(element):
    writer = _Writer()
    writer.element(element)
    return bytes(writer.bytes)

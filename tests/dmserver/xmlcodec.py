"""DM messages as XML, on the parser of the standard library."""

import xml.etree.ElementTree as ElementTree
from xml.sax.saxutils import escape

from elements import META_CHILDREN, METINF, SYNCML, Element

CONTENT_TYPE = "application/vnd.syncml.dm+xml"


class CodecError(Exception):
    """A message that cannot be read."""


def decode(data):
    try:
        return _read(ElementTree.fromstring(data), False)
    except ElementTree.ParseError as error:
        raise CodecError(f"no well-formed XML: {error}") from error


def _read(node, in_meta):
    namespace, _, name = node.tag[1:].partition("}") if node.tag.startswith("{") else ("", "", node.tag)
    expected = METINF if in_meta else SYNCML
    if namespace != expected:
        raise CodecError(f"{name} has the namespace {namespace!r} instead of {expected!r}")
    if len(node) == 0:
        return Element(name, (node.text or "").encode())
    return Element(name, *(_read(child, in_meta or name == "Meta") for child in node))


def encode(element):
    return b'<?xml version="1.0" encoding="UTF-8"?>\n' + _write(element, True)


def _write(element, is_root):
    namespace = f' xmlns="{SYNCML}"' if is_root else ""
    if element.name in META_CHILDREN:
        namespace = f' xmlns="{METINF}"'
    content = b"".join(_write(child, False) for child in element.children)
    if not element.children:
        text = element.data.decode("utf-8", "surrogateescape")
        content = escape(text, {"\r": "&#13;"}).encode("utf-8", "surrogateescape")
    name = element.name.encode()
    if not content:
        return b"<" + name + namespace.encode() + b"/>"
    return b"<" + name + namespace.encode() + b">" + content + b"</" + name + b">"

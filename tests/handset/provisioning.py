"""Bootstrap messages as an operator would send them, made without a line of the client's."""

import hashlib
import os

VECTORS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "unit", "bootstrap",
                       "vectors")
SECURITY = {"NETWPIN": 0, "USERPIN": 1, "USERNETWPIN": 2, "USERPINMAC": 3, "NETWORKID": 0,
            "USERPIN_NETWORKID": 2}
CONNECTIVITY_WBXML = 0x36
CONNECTIVITY_XML = 0x35


def vector(name):
    with open(os.path.join(VECTORS, name), "rb") as file:
        return file.read()


def hmac_sha1(key, body):
    """RFC 2104."""
    block = key if len(key) <= 64 else hashlib.sha1(key).digest()
    block = block.ljust(64, b"\0")
    inner = hashlib.sha1(bytes(byte ^ 0x36 for byte in block) + body).digest()
    return hashlib.sha1(bytes(byte ^ 0x5C for byte in block) + inner).hexdigest().upper()


def half_octets(imsi):
    """An IMSI as a SIM card has it, without its length."""
    digits = "9" + imsi if len(imsi) % 2 else "1" + imsi + "F"
    return bytes(int(digits[i + 1] + digits[i], 16) for i in range(0, len(digits), 2))


def uintvar(number):
    groups = [number & 0x7F]
    while number > 0x7F:
        number >>= 7
        groups.insert(0, number & 0x7F | 0x80)
    return bytes(groups)


def counted(value):
    return (bytes([len(value)]) if len(value) <= 30 else b"\x1F" + uintvar(len(value))) + value


def push(body, security=None, key=b"", media_type=CONNECTIVITY_WBXML, mac=None):
    """A push of a document; with a security method its MAC, or another one."""
    content = bytes([0x80 | media_type])
    if security:
        mac = hmac_sha1(key, body) if mac is None else mac
        content += bytes([0x91, 0x80 | SECURITY[security], 0x92]) + mac.encode() + b"\0"
    header = (counted(content) if security else content) + b"\xAF\x82"
    return b"\x01\x06" + uintvar(len(header)) + header + body


def parm(name, value):
    return f'<parm name="{name}" value="{value}"/>'


def characteristic(kind, *parts):
    return f'<characteristic type="{kind}">{"".join(parts)}</characteristic>'


def access_point(name, *parts):
    return characteristic("NAPDEF", parm("NAPID", name), parm("BEARER", "GSM-GPRS"),
                          parm("NAP-ADDRESS", "internet.example"), *parts)


def application(server, address, *parts):
    return characteristic("APPLICATION", parm("APPID", "w7"), parm("PROVIDER-ID", server),
                          parm("ADDR", address), *parts)


def document(*characteristics):
    return ("<wap-provisioningdoc>" + "".join(characteristics)
            + "</wap-provisioningdoc>").encode()

"""Notifications as a DM server sends them, made without a line of the client's."""

import base64
import hashlib
import struct

ZERO_TEXT = b"0x00000000"
ZERO_OCTETS = bytes(4)
BACKGROUND, INFORMATIVE, INTERACTIVE = 1, 2, 3
PUSH_HEADER = bytes.fromhex("010603c4af87")


def digest(server_id, secret, nonce, trigger):
    """H(B64(H(server:secret)):nonce:B64(H(trigger)))"""
    def hashed(data):
        return base64.b64encode(hashlib.md5(data).digest())
    return hashlib.md5(hashed(server_id + b":" + secret) + b":" + nonce + b":"
                       + hashed(trigger)).digest()


def trigger(server_id, session_id, ui_mode=BACKGROUND, initiator=1, version=11, body=b""):
    bits = version << 30 | ui_mode << 28 | initiator << 27
    return (bits.to_bytes(5, "big") + struct.pack(">HB", session_id, len(server_id)) + server_id
            + body)


def package0(server_id, secret, nonce, session_id, **fields):
    """Without a push around it."""
    said = trigger(server_id, session_id, **fields)
    return digest(server_id, secret, nonce, said) + said


def push(package):
    return PUSH_HEADER + package

"""Proofs of who somebody is: basic, MD5 and HMAC."""

import base64
import hashlib
import re

TYPES = {"basic": "syncml:auth-basic", "md5": "syncml:auth-md5", "hmac": "syncml:auth-MAC"}


def _digest(data):
    return base64.b64encode(hashlib.md5(data).digest())


def basic(name, secret):
    return base64.b64encode(f"{name}:{secret}".encode())


def md5(name, secret, nonce):
    return _digest(_digest(f"{name}:{secret}".encode()) + b":" + nonce)


def hmac(name, secret, nonce, body):
    return _digest(_digest(f"{name}:{secret}".encode()) + b":" + nonce + b":" + _digest(body))


def hmac_header(name, secret, nonce, body):
    return f'algorithm=MD5, username="{name}", mac={hmac(name, secret, nonce, body).decode()}'


def parse_hmac_header(value):
    """Name and mac of the header."""
    name = re.search(r'username="([^"]*)"', value)
    mac = re.search(r"mac=([^,\s]*)", value)
    return name and name.group(1), mac and mac.group(1).encode()

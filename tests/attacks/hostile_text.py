"""Texts that would steer a terminal, reorder what is shown or begin a line of their own."""

import re

HOSTILE = "a\u009b31m\u202eb\u2066\u2028\x7fc"
_HARMFUL = re.compile("[\x00-\x08\x0b-\x1f\x7f-\x9f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069]")


def harmful_in(output):
    """What is in the bytes that must not reach a terminal; line breaks and tabs may."""
    return _HARMFUL.findall(output.decode("utf-8", "replace").replace("\ufffd", "\x00"))

"""Scenarios: what the server says, and what it expects to hear."""

import json
import re

# Every setting with its default. --set and tests change them by name.
SETTINGS = {
    "description": "",
    "server_id": "dm.example",
    "encoding": "same",            # xml, wbxml, or same: as the client's
    "client_auth": "none",         # none, basic, md5 or hmac
    "client_name": "Bruce2",
    "client_secret": "OhBehave",
    "client_nonce": "",            # of the client's first proof; unknown to it when empty
    "per_message": False,          # basic and md5: 200 instead of 212, so proofs in every message
    "server_auth": "none",
    "server_name": "dm.example",
    "server_secret": "ServerSecret",
    "server_nonce": "",            # of the server's first proof; empty: wait for a challenge
    "max_msg_size": 0,             # bytes, announced to the client; 0: not announced
    "max_obj_size": 0,
    "chunk": 0,                    # bytes of a value from which on it is sent in chunks
    "end": "statuses",             # last message: statuses, or empty: an empty body
    "misbehave": [],               # for the whole session, see README.md
    "client_gives_up": False,      # the client is expected to end the session early
    "packages": [],
}

COMMANDS = {"get", "add", "replace", "delete", "copy", "exec", "rename", "sequence", "atomic",
            "alert"}
MEMBERS = {"data", "format", "type", "to", "name", "items", "expect", "results", "answer", "save",
           "repeat", "correlator"}
PACKAGE_MEMBERS = {"commands", "misbehave", "final", "note"}


def _check_command(command):
    names = COMMANDS & command.keys()
    if len(names) != 1:
        raise ValueError(f"a command has one of {', '.join(sorted(COMMANDS))}: {command}")
    unknown = command.keys() - names - MEMBERS
    if unknown:
        raise ValueError(f"unknown members {', '.join(sorted(unknown))}: {command}")
    for inner in command.get("sequence", []) + command.get("atomic", []):
        _check_command(inner)


def check(settings):
    """Fills in the defaults. ValueError names what is wrong."""
    unknown = settings.keys() - SETTINGS.keys()
    if unknown:
        raise ValueError(f"unknown settings {', '.join(sorted(unknown))}")
    for package in settings.get("packages", []):
        if package.keys() - PACKAGE_MEMBERS:
            raise ValueError(f"unknown members of a package: {package}")
        for command in package.get("commands", []):
            _check_command(command)
    return {**SETTINGS, **settings}


def load(file, changes=None):
    """Reads a JSON file. Changes are texts by name, converted to the type of the default."""
    with open(file, encoding="utf-8") as stream:
        settings = json.load(stream)
    for name, text in (changes or {}).items():
        default = SETTINGS.get(name, "")
        settings[name] = text if isinstance(default, str) else json.loads(text)
    return check(settings)


def fill_in(value, saved):
    """Replaces {name} and {name[2]} in all texts by what was saved under the name."""
    if isinstance(value, dict):
        return {key: fill_in(entry, saved) for key, entry in value.items()}
    if isinstance(value, list):
        return [fill_in(entry, saved) for entry in value]
    if not isinstance(value, str):
        return value

    def saved_text(match):
        name, index = match.group(1), match.group(2)
        if name not in saved:
            return match.group(0)
        return saved[name] if index is None else saved[name].split("/")[int(index)]

    return re.sub(r"\{(\w+)(?:\[(\d+)\])?\}", saved_text, value)

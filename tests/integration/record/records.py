"""Records that dmclient has written, for tests."""

import base64
import collections
import json
import os

import jsonschema

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..")
with open(os.path.join(ROOT, "docs", "record.schema.json"), encoding="utf-8") as file:
    SCHEMA = json.load(file)
EVENT_SCHEMAS = {name: jsonschema.Draft202012Validator({**schema, "$defs": SCHEMA["$defs"]})
                 for name, schema in SCHEMA["$defs"].items()
                 if "event" in schema.get("properties", {})}

# Which number each of these events is the first to have.
NUMBERS = {"mount": "mount", "message": "message", "command": "command", "profile-call": "call",
           "setting-call": "call"}


def load(path):
    """The events; each line has to be whole."""
    with open(path, "rb") as record:
        content = record.read()
    assert content.endswith(b"\n"), content[-200:]
    return [json.loads(line) for line in content.splitlines()]


def faults(events):
    """What in the record is not as the schema has it, or does not tie."""
    found = []
    numbers = collections.defaultdict(set)
    time = 0
    for event in events:
        found += [f"{event['event']} at {event['t']}: {fault.message[:300]}"
                  for fault in EVENT_SCHEMAS[event["event"]].iter_errors(event)]
        if event["t"] < time:
            found.append(f"{event['event']} at {event['t']}, after {time}")
        time = event["t"]
        kind = NUMBERS.get(event["event"])
        if kind:
            if event[kind] in numbers[kind]:
                found.append(f"{kind} {event[kind]} twice")
            numbers[kind].add(event[kind])
    if events[0]["event"] != "run":
        found.append("no run")
    for event in events:
        for kind in ("mount", "message", "command"):
            if event.get(kind, 0) and event[kind] not in numbers[kind]:
                found.append(f"{event['event']} at {event['t']} refers to {kind} {event[kind]}")
        if "exchange" in event and event["event"] in ("request", "response", "wait"):
            sent = [other for other in events if other["event"] == "message"
                    and other["direction"] == "sent" and other["exchange"] == event["exchange"]]
            if len(sent) != 1:
                found.append(f"{event['event']} at {event['t']} is of no message")
    for kind in ("call", "message", "command", "mount"):
        if numbers[kind] != set(range(1, len(numbers[kind]) + 1)):
            found.append(f"the numbers of {kind} have gaps")
    return found


def kinds(events):
    return collections.Counter(event["event"] for event in events)


def of(events, kind, **fields):
    return [event for event in events if event["event"] == kind
            and all(event.get(name) == value for name, value in fields.items())]


def forms(secret):
    """How a secret could stand in a record."""
    data = secret.encode()
    found = {secret, json.dumps(secret)[1:-1], data.hex(), data.hex().upper()}
    for shift in range(3):
        digits = base64.b64encode(b"x" * shift + data).decode().rstrip("=")
        found.add(digits[(shift * 8 + 5) // 6:(shift + len(data)) * 8 // 6])
    return found


def leaks(path, secrets):
    """The secrets that stand in a record in some form: as they are, or in something in base64."""
    with open(path, encoding="utf-8") as record:
        texts = [record.read()]
    for event in load(path):
        for field in ("bytes", "before", "after"):
            if event["event"] != "setting-call" and event.get(field):
                texts.append(base64.b64decode(event[field]).decode("latin-1"))
    return [secret for secret in secrets
            if any(form in text for form in forms(secret) for text in texts)]

"""The commands that are answered 200 and do something else, as the manual page has them."""

from handset import CONN, EMPTY_CSD, PROXY

PROFILES = [
    {"name": "Office", "editable": True,
     "gprs": {"address": "internet", "authId": "", "authPassword": "", "dns1": "10.0.0.1",
              "dns2": "0.0.0.0", "linger": 30},
     "csd": {**EMPTY_CSD, "address": "+491720000", "lineType": "Isdn", "speed": 9600},
     "csd2": {}, "proxy1": {"address": "proxy.example", "port": 8080}, "proxy2": {}},
    {"name": "Home", "editable": True, "gprs": {},
     "csd": {**EMPTY_CSD, "address": "+4930123", "speed": 4800},
     "csd2": {}, "proxy1": {}, "proxy2": {}},
]

# A row: the words of the command, and why the handset does what it does.
ROWS = [
    (["replace", CONN + "/Office/Linger", "70000"],
     "The record has 16 bits for Linger, and what is above them is cut off."),
    (["replace", "--", PROXY + "/Office/Ph1/Port/PortNbr", "-1"],
     "The same holds for a port."),
    (["replace", CONN + "/Office/DNS1", "300.1.1.1"],
     "What is not an IPv4 address leaves the address that is there."),
    (["replace", CONN + "/Home/Addr", "0123456789" * 12],
     "A text is cut to its place in the record: 100 bytes for an access point name, 44 for a number "
     "that is dialled, without a word."),
    (["replace", CONN + "/Home/LineType", "V.110"],
     "Line type and speed are one code in the record. V.110 has the codes of ANALOG-MODEM, and a code "
     "is read as the first line type that has it."),
    (["replace", CONN + "/Office/Bearer", "GSM-CSD"],
     "The settings of the old bearer move to the place of the new one, and overwrite what is there."),
    (["add", CONN + "/Office/Foo", "x"],
     "A node is added whatever its name is; what a profile has no place for is gone with the mount."),
    (["add", CONN + "/Empty"],
     "A profile is stored at once, and shown by a mount when it has settings for a bearer. One "
     "without them takes one of the places all the same; napictl lists and deletes it."),
    (["rename", CONN + "/Office", "Team"],
     "A server gives a name to a node, not to the profile: the name lives as long as the mount."),
    (["replace", PROXY + "/Office/Ph1/Conn", "Home"],
     "The connection that a proxy belongs to is that of its profile; another name in its place "
     "lives as long as the mount."),
    (["delete", CONN + "/Office"],
     "Deleting a profile's node deletes the settings of the bearer that it shows. The profile stays "
     "while it has another bearer or proxies."),
]

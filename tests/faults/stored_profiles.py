"""Profiles of each kind, one of them with all that a series of commands may change."""

PROFILES = [
    {"name": "Office", "gprs": {"address": "internet", "authId": "user", "dns1": "10.0.0.1"},
     "proxy1": {"address": "proxy.example", "port": 8080}},
    {"name": "Modem", "csd": {"address": "+49172", "lineType": "Isdn", "speed": 9600}},
    {"name": "Second", "csd2": {"address": "+49173"}},
    {"name": "Büro", "gprs": {"address": "intranet"}, "csd": {"address": "+49174"}},
]

#!/usr/bin/python3
"""The mobile network of a phone on the bus that DBUS_SYSTEM_BUS_ADDRESS names, and the operator who
sends it short messages. Its modem is a stand-in. Each line of standard input sends one:

    bootstrap URL PIN     sets the phone up: an access point, and the account of the DM server there
    notify SESSION        the server asks for a session of that number

and each is answered with a line when the phone has it. Ends with its input."""

import os
import sys

sys.dont_write_bytecode = True

import notifications
from modem_manager import ModemManager
from provisioning import CONNECTIVITY_XML, characteristic, document, parm, push

SERVER_ID = "dm.example"
SERVER_SECRET = "ServerSecret"
CLIENT_NAME, CLIENT_SECRET = "Bruce2", "OhBehave"


def credentials(level, name, secret):
    return characteristic("APPAUTH", parm("AAUTHLEVEL", level), parm("AAUTHTYPE", "DIGEST"),
                          parm("AAUTHNAME", name), parm("AAUTHSECRET", secret))


def bootstrap(url, pin):
    access_point = characteristic(
        "NAPDEF", parm("NAPID", "NAP1"), parm("NAME", "Example Internet"),
        parm("BEARER", "GSM-GPRS"), parm("NAP-ADDRESS", "internet.example"))
    server = characteristic(
        "APPLICATION", parm("APPID", "w7"), parm("PROVIDER-ID", SERVER_ID),
        parm("NAME", "Example Operator"), parm("ADDR", url),
        credentials("APPSRV", CLIENT_NAME, CLIENT_SECRET),
        credentials("CLIENT", SERVER_ID, SERVER_SECRET))
    return push(document(access_point, server), "USERPIN", pin.encode(), CONNECTIVITY_XML)


def notification(session):
    """From a server that has lost what it agreed on: it proves itself with the nonce for that."""
    return notifications.push(notifications.package0(
        SERVER_ID.encode(), SERVER_SECRET.encode(), notifications.ZERO_TEXT, int(session)))


def main():
    modems = ModemManager(os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
    messages = {"bootstrap": bootstrap, "notify": notification}
    print("there is a network", flush=True)
    for line in sys.stdin:
        kind, *details = line.split()
        message = messages[kind](*details)
        modems.send_sms(message)
        print(f"a short message of {len(message)} bytes", flush=True)
    modems.close()


if __name__ == "__main__":
    main()

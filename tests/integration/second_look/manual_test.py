"""The manual page of surprises is what the commands in it say.

KUB_REGENERATE_GOLDEN=1 writes it again; the change is then reviewed like any other.
"""

import os
import shlex
import unittest

from handset import Handset
from surprises import PROFILES, ROWS

FOLDER = os.path.dirname(os.path.abspath(__file__))
PAGE = os.path.join(FOLDER, "..", "..", "..", "docs", "man", "dmclient-surprises.7")

HEAD = r""".TH DMCLIENT\-SURPRISES 7 "" "kub\-dm" "Miscellaneous Information"
.SH NAME
dmclient\-surprises \- what a handset does that you do not expect
.SH DESCRIPTION
A handset can answer a command with 200 OK and do something else than it was asked to.
.BR dmclient (1)
takes a second look after each change, at what the tree says now and at what the next mount will say, and tells
each difference.
With
.B \-\-strict
one is an exit status of its own, 5.
.PP
Each command below is run on a handset with two profiles:
.BR Office ,
with packet data, circuit\-switched data and a proxy, and
.BR Home ,
with circuit\-switched data.
After it stands what the client says.
.SH SURPRISES
"""
TAIL = r""".SH "THE SECOND LOOK"
It is taken on a copy of the state, by a process of its own, when the command has been answered: neither the
plug\-in nor the profile service is asked anything more on behalf of a server.
The copy is a folder
.I client/scratch\-*
of the state directory that nobody but its owner can read, and goes with the command, however that ends.
.PP
Profiles that NetworkManager keeps are not copied.
There the client mounts them once more when the command is over, and says what the next mount says.
.PP
When there is no second look, for want of room or because something goes wrong with it, that is told as "no second
look" with the reason, and nothing else changes.
.SH "SEE ALSO"
.BR dmclient (1),
.BR dmclient\-session (7),
.BR napictl (1)
"""


def escaped(text):
    return text.replace("\\", "\\\\").replace("-", "\\-")


class ManualTest(unittest.TestCase):
    maxDiff = None

    @staticmethod
    def entry(words, explanation):
        handset = Handset(PROFILES)
        try:
            result = handset.dmclient(*words)
        finally:
            handset.close()
        if result.returncode != 0:
            raise AssertionError(result.stderr)
        said = result.stderr.decode().removeprefix("dmclient: ").rstrip("\n")
        return (f".PP\n.nf\n.RS\n{escaped(shlex.join(['dmclient', *words]))}\n"
                f"{escaped(said.split(': ', 1)[1])}\n.RE\n.fi\n.PP\n{escaped(explanation)}\n")

    def test_the_page_is_what_the_commands_say(self):
        page = HEAD + "".join(self.entry(*row) for row in ROWS) + TAIL
        self.assertEqual(page.count("200 OK, but "), len(ROWS))
        if os.environ.get("KUB_REGENERATE_GOLDEN") == "1":
            with open(PAGE, "w", encoding="utf-8") as file:
                file.write(page)
        with open(PAGE, encoding="utf-8") as file:
            self.assertEqual(file.read(), page,
                             "KUB_REGENERATE_GOLDEN=1 ctest -R second_look_manual writes it again")


if __name__ == "__main__":
    unittest.main()

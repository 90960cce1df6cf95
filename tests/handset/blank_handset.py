"""A handset that nobody has used, and that gets bootstrap messages."""

import json
import os

from handset import Handset
from sessions import REFUSED, SUCCESS, SessionTest


class BlankHandsetTest(SessionTest):
    """On a handset that nobody has used."""

    def setUp(self):
        self.handset = Handset(profiles=[])
        self.addCleanup(self.handset.close)

    def message(self, content):
        file = os.path.join(self.handset.home, "message")
        with open(file, "wb") as stream:
            stream.write(content)
        return file

    def bootstrap(self, content, *options, status=SUCCESS, stdin=None, **environment):
        """Returns what was printed: results, and everything else."""
        result = self.handset.dmclient("bootstrap", self.message(content), *options, stdin=stdin,
                                       **environment)
        printed = result.stdout.decode(), result.stderr.decode()
        self.assertEqual(result.returncode, status, "".join(printed))
        return printed

    def refused(self, reason, *arguments, status=REFUSED, **options):
        """The message is refused for that reason, and leaves nothing."""
        self.assertIn(reason, self.bootstrap(*arguments, status=status, **options)[1])
        self.assert_untouched()

    def assert_untouched(self):
        self.assertEqual(self.handset.export(), {})
        self.assertEqual(self.accounts(), [])

    def accounts(self):
        return json.loads(self.handset.dmclient("account", "list", "--json").stdout)

    def get(self, *words):
        return self.handset.dmclient("get", *words).stdout.decode().splitlines()

"""The manual pages tell of each variable of the environment that the sources read, and of no other."""

import pathlib
import re
import unittest

TOP = pathlib.Path(__file__).resolve().parents[2]
PRODUCT = ("plugin", "hostplatform", "support", "commandline", "client", "tools", "kit")
# What reads a variable: functions of the libraries, and of the project those that hand a name on.
CALL = re.compile(r"\b(?:getenv|qgetenv|qEnvironmentVariable(?:IsEmpty|IsSet|IntValue)?|environment|takeVariable)"
                  r"\(([^(),]+)[,)]")
HANDED_ON = {"variable", "name", "const char *variable", "const char *name"}


def sources():
    for folder in PRODUCT:
        for kind in ("*.cpp", "*.h"):
            yield from sorted((TOP / folder).rglob(kind))


def variables_read():
    texts = {path: path.read_text(encoding="utf-8") for path in sources()}
    constants = dict(re.findall(r"\bchar (\w+)\[\] = \"(\w+)\";", "\n".join(texts.values())))
    read = {}
    for path, text in texts.items():
        for argument in (match[1].strip() for match in CALL.finditer(text)):
            if argument in HANDED_ON:
                continue
            name = argument.strip('"') if argument.startswith('"') else constants.get(argument)
            read[name or f"the constant {argument}"] = path.relative_to(TOP)
    return read


def variables_told():
    told = set()
    for page in sorted((TOP / "docs" / "man").glob("*.[18]")):
        section = re.search(r"^\.SH ENVIRONMENT\n(.*?)(?=^\.SH)", page.read_text(encoding="utf-8"),
                            re.MULTILINE | re.DOTALL)
        for heading in re.findall(r"^\.TP\n\.B ([A-Z_, ]+)$", section[1] if section else "", re.MULTILINE):
            told.update(heading.split(", "))
    return told


class EnvironmentTest(unittest.TestCase):
    def test_pages_tell_of_the_variables_that_are_read(self):
        read = variables_read()
        told = variables_told()
        self.assertEqual({name: str(path) for name, path in read.items() if name not in told}, {})
        self.assertEqual(told - set(read), set())


if __name__ == "__main__":
    unittest.main()

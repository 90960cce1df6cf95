#!/usr/bin/python3
"""Prints the sizes and virtual tables of the classes that meet at the engine's boundary.

    class_layout.py COMPILER SOURCE [COMPILER_OPTION...]          prints them
    class_layout.py --check FILE COMPILER SOURCE [OPTION...]      compares them with the file

They are what the compiler itself lays out (-fdump-lang-class of GCC), without addresses. A slot of a
destructor of an abstract class shows as 0, one of a pure virtual function as __cxa_pure_virtual.
"""
import difflib
import os
import re
import subprocess
import sys
import tempfile

CLASSES = re.compile(r"(Dmt\w+|DM_NAPI_\w+|DMString|JemRefCounted|SETUP_SET_Manager|NAP_PROFILE_S"
                     r"|ProfileInfo)$")


def dump(compiler, source, options):
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "classes")
        subprocess.run([compiler, *options, "-fsyntax-only", f"-fdump-lang-class={path}", source],
                       check=True)
        with open(path, encoding="utf-8") as file:
            return file.read()


def layout(text):
    lines = []
    for block in text.split("\n\n"):
        head, *rest = block.split("\n")
        kind, _, name = head.partition(" ")
        if kind == "Class" and CLASSES.match(name):
            lines.append(f"{head}: {rest[0].strip()}")
        elif kind == "Vtable" and CLASSES.match(name[len("for "):]):
            lines.append(head)
            for entry in rest[1:]:
                offset, _, function = entry.partition(" ")
                if not offset.isdigit():
                    continue
                slot = int(offset) // 8 - 2  # after the offset to the top and the type
                function = re.sub(r"\(int \(\*\)\(\.\.\.\)\)", "", function).strip()
                if slot >= 0:
                    lines.append(f"  {slot:2} {function}")
    return "".join(line + "\n" for line in lines)


def main():
    arguments = sys.argv[1:]
    expected = None
    if arguments[:1] == ["--check"]:
        with open(arguments[1], encoding="utf-8") as file:
            expected = file.read()
        arguments = arguments[2:]
    if len(arguments) < 2:
        sys.exit(__doc__)
    found = layout(dump(arguments[0], arguments[1], arguments[2:]))
    if expected is None:
        print(found, end="")
    elif found != expected:
        sys.stderr.writelines(difflib.unified_diff(expected.splitlines(True), found.splitlines(True),
                                                   "published", "compiled"))
        sys.exit(1)


if __name__ == "__main__":
    main()

"""How many instructions a program needs, which no machine and no load changes."""

import re
import shutil
import subprocess

from handset import DMCLIENT, NAPICTL, PLUGIN, SANITIZED

CALLGRIND = None if SANITIZED else shutil.which("valgrind")
PROGRAMS = {"napictl": [NAPICTL], "dmclient": [DMCLIENT, "--plugin", PLUGIN]}


def instructions(handset, program, *arguments):
    result = subprocess.run([CALLGRIND, "--tool=callgrind", "--callgrind-out-file=/dev/null",
                             *PROGRAMS[program], *arguments], env=handset.environment(),
                            stdin=subprocess.DEVNULL, capture_output=True, check=False)
    counted = re.search(rb"Collected : (\d+)", result.stderr)
    assert counted, result.stderr
    return int(counted.group(1))


def times_as_many(handset, empty, short, long):
    """What the long input costs as a multiple of what the short one costs, beyond what the command
    costs without an input. Each is a program with its arguments."""
    base, few, many = (instructions(handset, *command) for command in (empty, short, long))
    # As little as this is the noise of another name in the environment.
    return (many - base) / max(few - base, 100_000)

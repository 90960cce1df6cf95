"""Every parser takes a number of steps that grows with its input, and no faster.

    linear_parsing_test.py PARSING_COSTS

Counts the instructions that each parser needs for an input and for one of four times the size.
"""
import glob
import os
import re
import subprocess
import sys
import tempfile

SIZE = 8_000
FACTOR = 4
# Room for sorting, whose steps grow with n log n, and for a buffer that is copied when it grows.
LARGEST_RATIO = 5
# So few instructions for each unit of the size are a look at the bytes or a copy of them, which the
# library does in other ways when they are more.
FEWEST = 4


def instructions(program):
    """Instructions by parser and size."""
    with tempfile.TemporaryDirectory() as folder:
        dumps = os.path.join(folder, "dump")
        run = subprocess.run(
            ["valgrind", "--tool=callgrind", "--collect-atstart=no",
             "--callgrind-out-file=" + dumps, program, str(SIZE), str(SIZE * FACTOR)],
            capture_output=True, text=True, check=False)
        if run.returncode:
            sys.exit(f"{run.stdout}{run.stderr}{program} ends with {run.returncode}")
        counts = {}
        for name in glob.glob(dumps + "*"):
            with open(name, encoding="utf-8") as dump:
                text = dump.read()
            what = re.search(r"^desc: Trigger: Client Request: (\S+) (\d+)$", text, re.M)
            total = re.search(r"^(?:totals|summary): (\d+)", text, re.M)
            if what and total:
                counts.setdefault(what.group(1), {})[int(what.group(2))] = int(total.group(1))
        return counts


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    counts = instructions(sys.argv[1])
    if not counts:
        sys.exit("no parser was counted")
    failed = []
    for parser, steps in sorted(counts.items()):
        ratio = steps[SIZE * FACTOR] / steps[SIZE]
        print(f"{parser}: {steps[SIZE]:,} instructions, {ratio:.2f} times as many for "
              f"{FACTOR} times as much")
        if ratio > LARGEST_RATIO and steps[SIZE * FACTOR] > FEWEST * SIZE * FACTOR:
            failed.append(parser)
    if failed:
        sys.exit("more steps than the input is longer: " + ", ".join(failed))


if __name__ == "__main__":
    main()

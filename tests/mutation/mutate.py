#!/usr/bin/python3
"""Changes the plug-in's sources a little, one change at a time, and sees whether a unit test notices.

    cmake --preset dev && cmake --build --preset dev --target plugin_unit_tests plugin_trace_tests
    tests/mutation/mutate.py build/dev [--count N] [--workers N] [--seed N] [--only TEXT]

The build folder has to be built and is only read: each worker compiles the changed source into a
folder of its own and links the test programs again, with the commands of that build. The changes are
spread evenly over the functions; the same seed makes the same ones. A change that does not compile
does not count. Survivors are printed at the end; survivors.md explains those that are known.

Kinds of changes: a constant, a field of the record, a comparison, a condition, a boolean operator,
a flag, a status that is returned, a dropped statement, a character of a text.
"""
import argparse
import concurrent.futures
import json
import os
import random
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import threading

SOURCES = ["DM_Napi_Plugin.cpp", "DM_Napi_PluginNode.cpp", "DM_Napi_PluginTree.cpp"]
PROGRAMS = ["plugin_unit_tests", "plugin_trace_tests"]
OBJECTS = {"plugin_unit_tests": "plugin_objects", "plugin_trace_tests": "plugin_objects_traced"}
TIMEOUT_SECONDS = 300

TEXT = re.compile(r'"((?:[^"\\]|\\.)*)"')
CHARACTER = re.compile(r"'(?:[^'\\]|\\.)+'")

# What is written in place of what, in code outside of texts and comments.
REPLACEMENTS = [
    ("comparison", r"==", "!="), ("comparison", r"!=", "=="),
    ("comparison", r" < ", " <= "), ("comparison", r" > ", " >= "),
    ("comparison", r" >= ", " > "), ("comparison", r" <= ", " < "),
    ("operator", r" && ", " || "), ("operator", r" \|\| ", " && "),
    ("operator", r" \+ ", " - "), ("operator", r" - ", " + "),
    ("condition", r"\bif \(!", "if ("), ("condition", r"\bif \((?!const|!)", "if (!"),
    ("condition", r"&& !", "&& "), ("condition", r"\|\| !", "|| "),
    ("flag", r"\btrue\b", "false"), ("flag", r"\bfalse\b", "true"),
    ("status", r"return DMT_OK;", "return DMT_FAILED;"),
    ("status", r"return DMT_FAILED;", "return DMT_OK;"),
    ("status", r"return DMT_ALREADY_EXISTS;", "return DMT_FAILED;"),
    ("status", r"return DMT_FEATURE_NOT_SUPPORTED;", "return DMT_FAILED;"),
    ("status", r"return DMT_COMMAND_FAILED;", "return DMT_OK;"),
    ("status", r"return status;", "return DMT_OK;"),
    ("status", r"return status;", "return DMT_COMMAND_FAILED;"),
    ("field", r"\bdns1\b", "dns2"), ("field", r"\bdns2\b", "dns1"),
    ("field", r"\bauthId\b", "authPassword"), ("field", r"\bauthPassword\b", "authId"),
    ("field", r"\bgprs(?=[A-Z])", "csd"), ("field", r"\bcsd(?=[A-Z])", "csd2"),
    ("field", r"\bcsd2(?=[A-Z])", "csd"), ("field", r"\bproxy1", "proxy2"),
    ("field", r"\bproxy2", "proxy1"), ("field", r"Dns1\b", "Dns2"), ("field", r"Dns2\b", "Dns1"),
    ("field", r"AuthId\b", "AuthPassword"), ("field", r"AuthPassword\b", "AuthId"),
    ("field", r"\bPROXY_FILE\b", "NAPDEF_FILE"), ("field", r"\bNAPDEF_FILE\b", "PROXY_FILE"),
    ("field", r"\bbIsCSD2\b", "bIsCSD"), ("field", r"\bbIsGPRS\b", "bIsCSD"),
    ("field", r"\bCONN_GROUP\b", "m_groupName"), ("field", r"\boldName\b", "newName"),
    ("level", r"LOG_FAILURE\(", "LOG_TRACE("), ("level", r"LOG_TRACE\(", "LOG_FAILURE("),
]
NUMBER = re.compile(r"(?<![\w.])(0x[0-9A-Fa-f]+|\d+)(?![\w.])")
STATEMENT = re.compile(r"^\s+(?!return\b|break\b|case\b|const\b|using\b|friend\b|\}|else\b|for\b|if\b"
                       r"|static|constexpr|auto\b|int \w|char \w|bool \w|unsigned|std::\S+ \w"
                       r"|DM\w+ \w|NAP_\w+ \w|Jem\w+<.*> \w|Dmt\w+ \w|QString \w|goto\b)"
                       r"[\w:*!&(].*;\s*(//.*)?$")
FUNCTION = re.compile(r"^[\w:<>*&,\s~]*?(~?\w+(?:::~?\w+)?)\([^;]*$")


def code_spans(line):
    """Parts of a line that are code: no comment, no text, no character."""
    comment = re.search(r"//(?=(?:[^\"]*\"[^\"]*\")*[^\"]*$)", line)
    end = comment.start() if comment else len(line)
    taken = [match.span() for match in TEXT.finditer(line[:end])]
    taken += [match.span() for match in CHARACTER.finditer(line[:end])]
    return end, taken


def is_code(position, end, taken):
    return position < end and not any(start <= position < stop for start, stop in taken)


def mutants_of_line(line, rng):
    """Yields (kind, changed line)."""
    end, taken = code_spans(line)
    for kind, pattern, text in REPLACEMENTS:
        for match in re.finditer(pattern, line):
            if is_code(match.start(), end, taken):
                yield kind, line[:match.start()] + text + line[match.end():]
    for match in NUMBER.finditer(line):
        if is_code(match.start(), end, taken):
            number = int(match.group(1), 0)
            yield "constant", line[:match.start()] + str(number + 1) + line[match.end():]
    for match in TEXT.finditer(line[:end]):
        places = [i for i in range(match.start(1), match.end(1))
                  if line[i] not in "\\%\"" and line[i - 1] not in "\\%"]
        if places:
            place = rng.choice(places)
            other = "_" if line[place] == " " else " " if line[place] == "_" else \
                line[place].swapcase() if line[place].isalpha() else "?"
            yield "text", line[:place] + other + line[place + 1:]
    if STATEMENT.match(line):
        yield "statement", re.sub(r"\S.*$", ";", line)


def all_mutants(folder, rng):
    mutants = []
    for name in SOURCES:
        with open(os.path.join(folder, name), encoding="utf-8") as source:
            lines = source.read().split("\n")
        function = "(file)"
        for number, line in enumerate(lines):
            if line[:1] not in (" ", "\t", "", "}", "#", "/"):
                match = FUNCTION.match(line)
                if match:
                    function = match.group(1)
            stripped = line.strip()
            if stripped.startswith(("//", "#", "///", "static_assert", "ASSERT_", "*")) or \
                    "static_assert" in line or "is_same_v" in line:
                continue
            for kind, changed in mutants_of_line(line, rng):
                if changed != line:
                    mutants.append({"file": name, "line": number + 1, "function": function,
                                    "kind": kind, "was": stripped, "is": changed.strip(),
                                    "text": changed})
    return mutants


def spread(mutants, count, rng):
    """Takes from each function in turn, and within a function from each kind in turn."""
    by_function = {}
    for mutant in mutants:
        key = (mutant["file"], mutant["function"])
        by_function.setdefault(key, {}).setdefault(mutant["kind"], []).append(mutant)
    queues = []
    for key in sorted(by_function):
        kinds = [by_function[key][kind] for kind in sorted(by_function[key])]
        for kind in kinds:
            rng.shuffle(kind)
        rng.shuffle(kinds)
        queue = []
        while any(kinds):
            queue += [kind.pop() for kind in kinds if kind]
        queues.append(queue)
    rng.shuffle(queues)
    while any(queues):
        for queue in queues:
            if queue:
                yield queue.pop(0)


def commands_of(build):
    """The compile command of each source and the link command, for each test program."""
    with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as database:
        entries = json.load(database)
    commands = {}
    for program in PROGRAMS:
        marker = f"/{OBJECTS[program]}.dir/"
        compile_commands = {
            os.path.basename(entry["file"]): shlex.split(entry["command"])
            for entry in entries
            if marker in entry["command"] and os.path.basename(entry["file"]) in SOURCES}
        listed = subprocess.run(["ninja", "-C", build, "-t", "commands", f"bin/{program}"],
                                check=True, capture_output=True, text=True).stdout
        link = next(line for line in reversed(listed.splitlines()) if f"-o bin/{program} " in line)
        link = link.split("&&")[1].strip() if link.startswith(": &&") else link
        commands[program] = (compile_commands, shlex.split(link))
    return commands


def without_dependency_files(command):
    kept, skip = [], 0
    for word in command:
        if skip:
            skip -= 1
        elif word in ("-MF", "-MT"):
            skip = 1
        elif word != "-MD":
            kept.append(word)
    return kept


def build_program(build, commands, program, source, folder):
    """Compiles the changed source and links the program. Returns its path, or None."""
    compile_commands, link = commands[program]
    command = without_dependency_files(compile_commands[os.path.basename(source)])
    original_object = command[command.index("-o") + 1]
    new_object = os.path.join(folder, f"{program}.o")
    command[command.index("-o") + 1] = new_object
    command[command.index("-c") + 1] = source
    if subprocess.run(command, cwd=build, capture_output=True).returncode != 0:
        return None
    path = os.path.join(folder, program)
    link = [new_object if word == original_object else word for word in link]
    link[link.index("-o") + 1] = path
    subprocess.run(link, cwd=build, check=True, capture_output=True)
    return path


def outcome(build, folder, sources, commands, mutant):
    with open(os.path.join(sources, mutant["file"]), encoding="utf-8") as source:
        lines = source.read().split("\n")
    lines[mutant["line"] - 1] = mutant["text"]
    changed = os.path.join(folder, mutant["file"])
    with open(changed, "w", encoding="utf-8") as target:
        target.write("\n".join(lines))
    for program in PROGRAMS:
        path = build_program(build, commands, program, changed, folder)
        if path is None:
            return "does not compile"
        try:
            run = subprocess.run([path, "--gtest_fail_fast", "--gtest_brief=1"], cwd=folder,
                                 capture_output=True, timeout=TIMEOUT_SECONDS)
        except subprocess.TimeoutExpired:
            return "killed"
        if run.returncode != 0:
            return "killed"
    return "survived"


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", help="a built folder of the dev preset")
    parser.add_argument("--count", type=int, default=200, help="changes that compile")
    parser.add_argument("--workers", type=int, default=2)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--only", default="", help="only changes whose old or new line has this")
    options = parser.parse_args()
    build = os.path.abspath(options.build)
    root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    rng = random.Random(options.seed)
    commands = commands_of(build)
    results = {"killed": [], "survived": [], "does not compile": []}

    with tempfile.TemporaryDirectory() as folder:
        sources = os.path.join(folder, "sources")  # as they are now, whatever happens to them later
        shutil.copytree(os.path.join(root, "plugin"), sources)
        queue = spread([mutant for mutant in all_mutants(sources, rng)
                        if options.only in mutant["was"] + mutant["is"]], options.count, rng)

        lock = threading.Lock()

        def work(worker):
            own = os.path.join(folder, str(worker))
            os.mkdir(own)
            while len(results["killed"]) + len(results["survived"]) < options.count:
                with lock:
                    mutant = next(queue, None)
                if mutant is None:
                    return
                mutant["outcome"] = outcome(build, own, sources, commands, mutant)
                results[mutant["outcome"]].append(mutant)
                print(f"{mutant['outcome']:>16}  {mutant['file']}:{mutant['line']} "
                      f"{mutant['function']} ({mutant['kind']})", flush=True)

        with concurrent.futures.ThreadPoolExecutor(options.workers) as pool:
            for done in [pool.submit(work, worker) for worker in range(options.workers)]:
                done.result()

    print("\nSurvivors:\n")
    for mutant in sorted(results["survived"], key=lambda m: (m["file"], m["line"])):
        print(f"{mutant['file']}:{mutant['line']} {mutant['function']} ({mutant['kind']})\n"
              f"  was {mutant['was']}\n   is {mutant['is']}")
    made = len(results["killed"]) + len(results["survived"])
    functions = {(m["file"], m["function"]) for m in results["killed"] + results["survived"]}
    print(f"\nseed {options.seed}: {made} mutants in {len(functions)} functions, "
          f"{len(results['killed'])} killed, {len(results['survived'])} survived; "
          f"{len(results['does not compile'])} more did not compile")
    return 0


if __name__ == "__main__":
    sys.exit(main())

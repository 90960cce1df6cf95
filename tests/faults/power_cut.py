#!/usr/bin/python3
"""Kills a DM client that runs random commands, at random moments.

After each kill the store passes its check, the profiles are as they were after one of the changes
(so each holds its old or its new record, and none a part of both), and the next client mounts. A
command makes one change of a record; one that writes several leaves makes one for each of them. The
state directory of a failure is kept.

KUB_POWER_CUTS is how often, and KUB_POWER_CUT_SEED repeats the commands of an earlier run.
"""
import os
import random
import shutil
import subprocess
import sys
import tempfile
import time

from handset import CONN, PROGRAMS, PROXY, Handset
from stored_profiles import PROFILES

COMMANDS_IN_A_SERIES = 60
KILLS_OF_A_SERIES = 50


def random_command(rng, number):
    profile = rng.choice([profile["name"] for profile in PROFILES] + ["New 1", "New 2"])
    conn, proxies = f"{CONN}/{profile}", f"{PROXY}/{profile}"
    return rng.choice([
        f"replace '{conn}/Addr' addr{number}",
        f"replace '{conn}/Auth/PAP/AuthPw' password{number}",
        f"replace '{conn}/DNS1' 10.0.0.{number}",
        f"replace '{conn}/Linger' {number}",
        f"replace '{conn}' Addr=bulk{number} Linger={number}",
        f"replace '{conn}/Bearer' {rng.choice(['GSM-GPRS', 'GSM-CSD', 'GSM-CSD2'])}",
        f"replace '{proxies}/Ph1/Addr' proxy{number}",
        f"replace '{proxies}/Ph2/Port/PortNbr' {number}",
        f"replace '{proxies}/UserEditable' {rng.choice(['true', 'false'])}",
        f"replace '{proxies}/Ph1/Conn' {rng.choice(['Office', 'Modem'])}",
        f"add '{conn}'",
        f"add '{conn}/Bearer' GSM-CSD2",
        f"add '{conn}/Addr' new{number}",
        f"rename '{conn}' 'Renamed {number}'",
        f"delete '{conn}'",
        f"delete '{proxies}'",
    ])


def leaf_by_leaf(command):
    """The command, and before it the same with fewer of its leaves if it writes several."""
    if command.count("=") > 1:
        yield from leaf_by_leaf(command.rsplit(" ", 1)[0])
    yield command


def states_of(handset, start, commands):
    """What the profiles are at the start and after each of the changes."""
    series = [[]]
    for count, command in enumerate(commands):
        series += [commands[:count] + [change] for change in leaf_by_leaf(command)]
    states = []
    for changes in series:
        handset.copy_from(start.state)
        handset.run("dmclient", "shell", stdin="".join(change + "\n" for change in changes))
        states.append(handset.export())
    return states


def start_series(handset, script):
    """Starts the series and waits for the answer to its first command, after the mounts."""
    with open(script, encoding="utf-8") as commands:
        process = subprocess.Popen([*PROGRAMS["dmclient"], "shell"], stdin=commands,
                                   env=handset.environment(), stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL)
    process.stdout.readline()
    return process


def kill_during(handset, script, delay):
    """Kills the series a while after its first command. False when it had ended before."""
    process = start_series(handset, script)
    try:
        process.wait(delay)
        return False
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
        return True
    finally:
        process.stdout.close()


def problem_after_kill(handset, states):
    try:
        handset.napictl("check")
        if handset.export() not in states:
            return "the profiles are as after none of the changes"
        handset.succeed("dmclient", "tree")
    except AssertionError as error:
        return str(error)
    return None


def main():
    wanted = int(os.environ.get("KUB_POWER_CUTS", "50"))
    seed = int(os.environ.get("KUB_POWER_CUT_SEED", random.randrange(1 << 30)))
    print(f"seed {seed}", flush=True)
    rng = random.Random(seed)
    folder = tempfile.mkdtemp(prefix="kub-power-cut-")
    start = Handset(PROFILES)
    handset = Handset(state=os.path.join(folder, "state"))
    script = os.path.join(folder, "commands")
    kills = between = 0
    while kills < wanted:
        commands = [random_command(rng, number) for number in range(COMMANDS_IN_A_SERIES)]
        with open(script, "w", encoding="utf-8") as file:
            file.write("".join(command + "\n" for command in commands))
        states = states_of(handset, start, commands)
        handset.copy_from(start.state)
        with start_series(handset, script) as process:
            begin = time.monotonic()
            process.stdout.read()
        duration = time.monotonic() - begin
        for _ in range(min(KILLS_OF_A_SERIES, wanted - kills)):
            handset.copy_from(start.state)
            while not kill_during(handset, script, rng.uniform(0, duration)):
                handset.copy_from(start.state)
            kills += 1
            between += handset.export() not in (states[0], states[-1])
            problem = problem_after_kill(handset, states)
            if problem:
                sys.exit(f"kill {kills} of seed {seed}: {problem}\n"
                         f"commands in {script}, state in {handset.state}")
    start.close()
    shutil.rmtree(folder)
    print(f"{kills} kills survived, {between} of them between the first and the last change")


if __name__ == "__main__":
    main()

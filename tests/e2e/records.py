#!/usr/bin/python3
"""The records of runs with an update.toml that are killed at a system call, or find no room for them:
status.json is whole and names a phase that is true, the history has whole lines, one a run, and no
record keeps an update from its end. With --all every system call is taken, else a sample."""

import json
import os
import re
import sys
from collections.abc import Iterator

import jsonschema

from faults import inside, lines, prepared, trace, traced
from harness import Case, Outcome, Place, Run, main, read, write
from settings import DATABASE, PAST, SCHEMA

FILE, STATE = "/etc/qd/update.{}.toml", "/var/lib/qd/update.{}/"
# The phases that are true once a command was called, by the last one that was.
TRUE = {"": ("check", "fetch", "verify", "prepare", "stop"), "systemctl stop": ("stop", "install"),
        "dpkg -i": ("install", "start"), "systemctl start": ("start", "done")}


def state(run: Run, name: str) -> str:
    return run.own(STATE.format(run.env["QD_AGENT_INSTANCE"]) + name)


def set_up(run: Run) -> None:
    write(run.own(FILE.format(run.env["QD_AGENT_INSTANCE"])), "")
    write(state(run, "status.json"), json.dumps(PAST))
    write(state(run, "history.jsonl"), json.dumps(PAST) + "\n")
    write(run.side("installed"), "ii |7.2.0.1\n")
    for name, body in DATABASE.items():
        run.command(name, body)


def wrong(run: Run, calls: list[str] | None) -> Iterator[str]:
    """What must not be in the records of a run that called these commands and was killed then; None:
    that came to its end in the end."""
    history = read(state(run, "history.jsonl"))
    if not history.endswith("\n"):
        yield f"half a line: {history}"
    status, *told = [json.loads(text) for text in (read(state(run, "status.json")), *lines(history))]
    for record in (status, *told):
        jsonschema.validate(record, SCHEMA)
    runs = [record["run"] for record in told]
    if len(set(runs)) != len(runs):
        yield f"a run has two lines: {history}"
    if calls is None:
        return
    last = [call for call in TRUE if call and any(line.startswith(call) for line in calls)][-1:]
    if status["phase"] not in TRUE[(last or [""])[0]] and status["run"] != PAST["run"]:
        yield f"phase {status['phase']} after {calls}"
    if status["run"] == PAST["run"] and calls:
        yield f"no record of {calls}"


def killed(call: str, number: int) -> Case:
    def case(place: Place) -> Iterator[str]:
        with prepared(place, {}) as run:
            set_up(run)
            outcome = traced(run, f"-e trace={call} -e inject={call}:signal=KILL:when={number}")
            if outcome.status != "SIGKILL":
                return
            yield from wrong(run, outcome.calls)
            begun = json.loads(read(state(run, "status.json")))["run"]
            run.first = ""
            if (again := run.go("-D", run.texts["H"], "7.2.0.1")).status != 0:
                yield f"the next run: {again}"
            yield from wrong(run, again.calls)
            if begun not in [json.loads(line)["run"] for line in
                             lines(read(state(run, "history.jsonl")))]:
                yield "the run that was killed is not in the history"
    return case


def without_room(options: str, files: int) -> Case:
    """The folder of the records has room for the old ones and so many files more, all small."""
    def case(place: Place) -> Iterator[str]:
        with prepared(place, {}) as run:
            set_up(run)
            folder = STATE.format(run.env["QD_AGENT_INSTANCE"])
            run.first = f"""mkdir /tmp/old && cp {folder}* /tmp/old
                mount -t tmpfs -o mode=755,size=16k,nr_inodes={files} tmpfs {folder}
                cp /tmp/old/* {folder} && head -c {options} /dev/zero >{folder}filling || true
                "$@"; status=$?
                cp {folder}status.json {run.side("status.json")}
                cp {folder}history.jsonl {run.side("history.jsonl")}
                exit $status""".replace("/tmp/old", run.side("old"))
            outcome = run.go("-D", run.texts["H"], "7.2.0.1")
            if outcome.status != 0 or not any("Cannot write" in line for line in outcome.log):
                yield f"ended with {outcome.status}: {outcome.log}"
            for name in ("status.json", "history.jsonl"):
                for line in lines(read(run.side(name)).replace("\n ", "").replace("\n}", "}")):
                    jsonschema.validate(json.loads(line), SCHEMA)
    return case


def system_calls(run: Run, outcome: Outcome, begin: str) -> Iterator[tuple[str, int]]:
    """The program's system calls in a good run that was traced, from the line with the text on."""
    if outcome.status not in (0, 26):
        sys.exit(f"the good run fails: {outcome}")
    counts: dict[str, int] = {}
    begun = False
    for line in lines(trace(run)):
        name = line.partition("(")[0]
        begun = begun or begin in line
        if re.fullmatch(r"\w+", name) and name != "exit_group":
            counts[name] = counts.get(name, 0) + 1
            if begun:
                yield name, counts[name]


def cases(place: Place, everything: bool) -> dict[str, Case]:
    with prepared(place, {}) as run:
        set_up(run)
        points = list(system_calls(run, traced(run, "-s 200"), "/etc/qd/update."))[
            :: 1 if everything else 11]
    full = {f"no room: {options} bytes, {files} files": without_room(options, files)
            for options, files in (("100000", 10), ("0", 4), ("0", 5))}
    return {f"killed at {call} {number}": killed(call, number) for call, number in points} | full


if __name__ == "__main__":
    sys.exit(main(__doc__, cases) if "QD_FAULTS_INSIDE" in os.environ else inside())

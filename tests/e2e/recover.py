#!/usr/bin/python3
"""A run with [health] that is killed at a system call from the stop of the agent to its own end, and `qd-update
recover` killed in turn: afterwards `recover` leaves an agent that runs, old or new, whole, no window, and records
of which each run has one. With --all every system call is taken, else a sample."""

import hashlib
import json
import os
import sys
from collections.abc import Iterator

from faults import inside, prepared
from harness import Case, Outcome, Place, Run, lines, main, read, write
from harness.linux import PACKAGE
from records import FILE, STATE, set_up, state, system_calls, wrong
from settings import PAST

FORMER, NEW = "7.2.0.1", "7.2.1.15"
AGENT = """agent="$tmp/../agent"
case "$*" in
"start qdagent") echo active >"$agent" ;;
"stop qdagent") echo inactive >"$agent" ;;
show*) [ ! -e "$agent.ails" ] || ! grep -q 7.2.1.15 "$tmp/../installed" || echo failed >"$agent"
  printf 'Type=notify\\nActiveState=%s\\nSubState=running\\nMainPID=7\\nNRestarts=0\\n' $(cat "$agent") ;;
*is-active*qdagent) grep -qx active "$agent" || exit 3 ;;
*is-active*) exit 3 ;;
esac"""
DPKG = """for file; do :; done
case "$*" in
*--no-act*) ;;
*--configure*) sed -i 's/^i[UF]./ii /' "$tmp/../installed" ;;
*-i*) case $file in */keep/*) version=7.2.0.1 ;; *) version=7.2.1.15 ;; esac
  for state in iHR "iU " "ii "; do echo "$state|$version" >"$tmp/../installed"; sleep 0.01; done ;;
esac"""


def equipped(run: Run) -> None:
    """A machine with the former version's package kept."""
    set_up(run)
    write(run.own(FILE.format(run.env["QD_AGENT_INSTANCE"])), "health = {settle = '1s', timeout = '9s'}")
    run.command("systemctl", AGENT)
    run.command("dpkg", DPKG)
    write(run.side("agent"), "active\n")
    os.makedirs(state(run, "keep"), 0o700)
    write(state(run, "keep/7.2.0.1.deb"), "former", 0o600)
    kept = {"version": FORMER, "file": "7.2.0.1.deb", "sha256": hashlib.sha256(b"former").hexdigest(),
            "md5": "", "rollback": True, "since": "2026-03-01T14:05:09Z"}
    write(state(run, "keep/kept.json"), json.dumps([kept]), 0o600)


def recover(run: Run, place: Place) -> Outcome:
    run.first, run.program = "", place.program("qd-update")
    return run.go("recover")


def at_an_end(run: Run, place: Place) -> Iterator[str]:
    """What must not be after `recover` has seen to it."""
    stood = os.path.exists(state(run, "window.json"))
    outcome = recover(run, place)
    if outcome.status not in (0, 11, 26):
        yield f"recover: {outcome}"
    if os.path.exists(state(run, "window.json")):
        yield "there is still a window"
    if read(run.side("agent")) != "active\n":
        yield f"the agent does not run: {outcome}"
    whole = [f"ii |{FORMER}\n", f"ii |{NEW}\n"][: 1 if os.path.exists(run.side("agent.ails")) else 2]
    if read(run.side("installed")) not in whole:
        yield f"not whole, or not the right one: {read(run.side('installed'))}: {outcome}"
    if stood and json.loads(read(state(run, "status.json")))["outcome"] == "running":
        yield "no outcome is told"
    yield from wrong(run, None)
    before = read(state(run, "history.jsonl"))
    if (again := recover(run, place)).status != 0 or read(state(run, "history.jsonl")) != before:
        yield f"once more: {again}"


def traced(run: Run, options: str, *args: str) -> Outcome:
    run.first = f'set -- strace -qq -o "$QD_CALLS.trace" {options} "$@"'
    return run.go(*args)


def half_done(run: Run) -> None:
    """What a run leaves that died with dpkg."""
    equipped(run)
    write(run.side("agent"), "inactive\n")
    write(run.side("installed"), f"iU |{NEW}\n")
    record = PAST | {"run": "1" * 32, "phase": "install", "outcome": "running", "ended": None}
    write(state(run, "status.json"), json.dumps(record))
    os.makedirs(state(run, "partial"), 0o700)
    write(state(run, "partial/setup.deb"), PACKAGE, 0o600)
    window = {"schema": 1, "run": "1" * 32, "step": "install", "kind": "deb", "from": FORMER, "to": NEW,
              "package": f"/var/lib/qd/update.{run.env['QD_AGENT_INSTANCE']}/partial/setup.deb",
              "sha256": hashlib.sha256(PACKAGE).hexdigest(), "md5": "", "since": "2026-03-01T14:05:09Z",
              "failed_before": [], "ailment": "", "may_return": True, "no_way_back": ""}
    write(state(run, "window.json"), json.dumps(window))


def ailing(run: Run) -> None:
    equipped(run)
    write(run.side("agent.ails"), "")


# What is killed: the preparation, the program, its arguments, and where in a trace of it killing begins.
KILLED = {"run": (equipped, "update", ("-D", "{H}", FORMER), "window.json."),
          "rollback": (ailing, "update", ("-D", "{H}", FORMER), "window.json."),
          "recover": (half_done, "qd-update", ("recover",), "window.json")}


def good(place: Place, kind: str, options: str) -> Iterator[tuple[Run, Outcome]]:
    prepare, program, args, _ = KILLED[kind]
    with prepared(place, {}) as run:
        prepare(run)
        run.program = place.program(program)
        yield run, traced(run, options, *(arg.format(**run.texts) for arg in args))


def killed(kind: str, call: str, number: int) -> Case:
    def case(place: Place) -> Iterator[str]:
        for run, outcome in good(place, kind, f"-e trace={call} -e inject={call}:signal=KILL:when={number}"):
            if outcome.status == "SIGKILL":
                yield from at_an_end(run, place)
    return case


# What a dead run left, by the state of the package and what its window says besides, or instead; what that comes
# to: a status, the version that is there, and the versions that are bad then.
LEFT = {
    "dpkg has not configured it": (f"iU |{NEW}", {}, 0, NEW, []),
    "dpkg cannot complete it": (f"iHR|{NEW}", {}, 26, FORMER, []),
    "nor is there a way back": (f"iHR|{NEW}", {"no_way_back": "none"}, 0, NEW, []),
    "nor is the package whole": (f"iHR|{NEW}", {"no_way_back": "none", "sha256": "0" * 64}, 13, NEW, []),
    "there is no agent any more": ("un |", {}, 26, FORMER, []),
    "dpkg has not begun": (f"ii |{FORMER}", {}, 11, FORMER, []),
    "it was rolling back": (f"ii |{NEW}", {"step": "rollback", "ailment": "ails"}, 26, FORMER, [NEW]),
    "it was putting back what was cut off": (f"ii |{NEW}", {"step": "rollback"}, 26, FORMER, []),
    "somebody has installed another": ("ii |7.2.0.9", {}, 11, "7.2.0.9", []),
    "half a window": (f"iU |{NEW}", '{"schema": 1, "run"', 11, NEW, []),
}


def left(installed: str, window: dict | str, status: int, version: str, bad: list[str]) -> Case:
    def case(place: Place) -> Iterator[str]:
        with prepared(place, {}) as run:
            half_done(run)
            write(run.side("installed"), installed + "\n")
            told = json.loads(read(state(run, "window.json")))
            write(state(run, "window.json"), window if isinstance(window, str) else json.dumps(told | window))
            outcome = recover(run, place)
            record = json.loads(read(state(run, "status.json")))
            seen = [outcome.status, record["status"], read(run.side("installed"))[4:-1], record["bad"],
                    read(run.side("agent")), os.path.exists(state(run, "window.json"))]
            if seen != [status, status, version, bad, "active\n", False]:
                yield f"{seen}: {outcome}"
    return case


def run_lives(place: Place) -> Iterator[str]:
    with prepared(place, {}) as run:
        half_done(run)
        run.first = f"exec 9>{STATE.format(run.env['QD_AGENT_INSTANCE'])}lock; flock 9"
        run.program = place.program("qd-update")
        if (outcome := run.go("recover")).status != 12 or outcome.calls or outcome.out:
            yield f"{outcome}"


def next_run(place: Place) -> Iterator[str]:
    """Where neither timer nor boot came, the next run begins with it, and finds the version that is there then."""
    with prepared(place, {}) as run:
        half_done(run)
        outcome = run.go("-D", run.texts["H"], FORMER)
        told = [json.loads(line) for line in lines(read(state(run, "history.jsonl")))]
        ends = [(record["run"], record["outcome"]) for record in told[:-1]] + [told[-1]["outcome"]]
        if outcome.status != 0 or ends != [(PAST["run"], "updated"), ("1" * 32, "updated"), "up-to-date"]:
            yield f"{ends}: {outcome}"


def cases(place: Place, everything: bool) -> dict[str, Case]:
    found = {name: left(*what) for name, what in LEFT.items()} | {"the run lives": run_lives, "the next run": next_run}
    for kind in KILLED:
        for run, outcome in good(place, kind, "-s 200"):
            points = list(system_calls(run, outcome, KILLED[kind][3]))[:: 1 if everything else 31]
        found |= {f"{kind} killed at {call} {number}": killed(kind, call, number) for call, number in points}
    return found


if __name__ == "__main__":
    sys.exit(main(__doc__, cases) if "QD_FAULTS_INSIDE" in os.environ else inside())

#!/usr/bin/python3
"""Runs with an update.toml that are killed at a system call from the reading of that file to their own end, and
`qd-update recover` killed in turn: the records are whole, name a phase that is true, and have one line a run; and
afterwards `recover` leaves an agent that runs, old or new, whole, and no window. Records without room keep no
update from its end. With --all every system call is taken, else a sample."""

import hashlib
import json
import os
import sys
from collections.abc import Callable, Iterator

from faults import inside, prepared, system_calls, traced
from harness import STATE, Case, Outcome, Place, Run, main, read, state, write
from harness.linux import PACKAGE
from settings import DATABASE, PAST, told

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
# The phases that are true once a command was called, by the last one that was.
TRUE = {"": ("check", "fetch", "verify", "prepare", "stop"),
        "systemctl stop qdagent": ("stop", "install", "rollback"),
        "dpkg -i": ("install", "start"), "dpkg --force": ("rollback",),
        "systemctl start qdagent": ("start", "health", "rollback", "done")}


def folder(run: Run) -> str:
    """That of the records, as the program sees it."""
    return STATE.replace("{I}", run.env["QD_AGENT_INSTANCE"])


def plain(run: Run) -> None:
    """A machine with records of a former run."""
    write(run.config(), "")
    write(state(run), json.dumps(PAST))
    write(state(run, "history.jsonl"), json.dumps(PAST) + "\n")
    write(run.side("installed"), f"ii |{FORMER}\n")
    write(run.side("agent"), "active\n")
    for name, body in (DATABASE | {"systemctl": AGENT}).items():
        run.command(name, body)


def equipped(run: Run) -> None:
    """A machine with the former version's package kept, too."""
    plain(run)
    write(run.config(), "health = {settle = '0s', timeout = '90s'}")
    run.command("dpkg", DPKG)
    os.makedirs(state(run, "keep"), 0o700)
    write(state(run, "keep/7.2.0.1.deb"), "former", 0o600)
    kept = {"version": FORMER, "file": "7.2.0.1.deb", "sha256": hashlib.sha256(b"former").hexdigest(),
            "md5": "", "rollback": True, "since": "2026-03-01T14:05:09Z"}
    write(state(run, "keep/kept.json"), json.dumps([kept]), 0o600)


def ailing(run: Run) -> None:
    equipped(run)
    write(run.side("agent.ails"), "")


def half_done(run: Run) -> None:
    """What a run leaves that died with dpkg."""
    equipped(run)
    write(run.side("agent"), "inactive\n")
    write(run.side("installed"), f"iU |{NEW}\n")
    record = PAST | {"run": "1" * 32, "phase": "install", "outcome": "running", "ended": None}
    write(state(run), json.dumps(record))
    os.makedirs(state(run, "partial"), 0o700)
    write(state(run, "partial/setup.deb"), PACKAGE, 0o600)
    write(state(run, "partial/setup.deb.from"), "http://127.0.0.1/setup.deb\n\n", 0o600)
    window = {"schema": 1, "run": "1" * 32, "step": "install", "kind": "deb", "from": FORMER, "to": NEW,
              "package": f"{folder(run)}/partial/setup.deb",
              "sha256": hashlib.sha256(PACKAGE).hexdigest(), "md5": "", "since": "2026-03-01T14:05:09Z",
              "failed_before": [], "ailment": "", "may_return": True, "no_way_back": ""}
    write(state(run, "window.json"), json.dumps(window))


def update(run: Run, place: Place) -> Outcome:
    run.first, run.program = "", place.program("update")
    return run.go("-D", run.texts["H"], FORMER)


def recover(run: Run, place: Place) -> Outcome:
    run.first, run.program = "", place.program("qd-update")
    return run.go("recover")


# --- killed at a system call

def records(run: Run) -> Iterator[str]:
    """What must not be in the records, whenever the run ended."""
    if not (history := read(state(run, "history.jsonl"))).endswith("\n"):
        yield f"half a line: {history}"
    runs = [record["run"] for record in told(run)[1:]]
    if len(set(runs)) != len(runs):
        yield f"a run has two lines: {history}"


def untrue(run: Run, calls: list[str]) -> Iterator[str]:
    """What is not so in the record of a run that was killed when it had called these commands."""
    record = json.loads(read(state(run)))
    last = [name for call in calls for name in TRUE if name and call.startswith(name)][-1:] or [""]
    if record["run"] != PAST["run"] and record["phase"] not in TRUE[last[0]]:
        yield f"phase {record['phase']} after {calls}"
    if record["run"] == PAST["run"] and calls:
        yield f"no record of {calls}"


def at_an_end(run: Run, place: Place) -> Iterator[str]:
    """What must not be after `recover` has seen to it, or, where no window stood, the next run."""
    yield from records(run)
    dead = json.loads(read(state(run)))["run"]
    stood = os.path.exists(state(run, "window.json"))
    outcome = recover(run, place) if stood else update(run, place)
    if outcome.status not in (0, 11, 25, 26):
        yield f"afterwards: {outcome}"
    if os.path.exists(state(run, "window.json")):
        yield "there is still a window"
    if read(run.side("agent")) != "active\n":
        yield f"the agent does not run: {outcome}"
    whole = [f"ii |{FORMER}\n", f"ii |{NEW}\n"][: 1 if os.path.exists(run.side("agent.ails")) else 2]
    if read(run.side("installed")) not in whole:
        yield f"not whole, or not the right one: {read(run.side('installed'))}: {outcome}"
    yield from records(run)
    if dead not in [record["run"] for record in told(run)[1:]]:
        yield "the run that was killed is not in the history"
    before = read(state(run, "history.jsonl"))
    if (again := recover(run, place)).status != 0 or read(state(run, "history.jsonl")) != before:
        yield f"once more: {again}"


# What is killed: the preparation, the program, its arguments, and where in a trace of it killing begins.
RUN = ("update", "-D", "{H}", FORMER)
KILLED = {"run": (equipped, *RUN), "rollback": (ailing, *RUN), "recover": (half_done, "qd-update", "recover")}
BEGIN = {"run": "/etc/qd/update.", "rollback": "Rolling back", "recover": "window.json"}


def started(place: Place, kind: str, options: str) -> Iterator[tuple[Run, Outcome]]:
    prepare, program, *args = KILLED[kind]
    with prepared(place, {}) as run:
        prepare(run)
        run.program = place.program(program)
        yield run, traced(run, options, *(arg.format(**run.texts) for arg in args))


def killed(kind: str, call: str, number: int) -> Case:
    def case(place: Place) -> Iterator[str]:
        for run, outcome in started(place, kind, f"-e trace={call} -e inject={call}:signal=KILL:when={number}"):
            if outcome.status == "SIGKILL":
                yield from untrue(run, outcome.calls) if kind != "recover" else ()
                yield from at_an_end(run, place)
    return case


# --- what a dead run left

# By the state of the package and what its window says besides, or instead; what that comes to: a status, the
# version that is there, and the versions that are bad then.
LEFT = {
    "dpkg has not configured it": (f"iU |{NEW}", {}, 0, NEW, []),
    "dpkg cannot complete it": (f"iHR|{NEW}", {}, 26, FORMER, []),
    "nor is there a way back": (f"iHR|{NEW}", {"no_way_back": "none"}, 0, NEW, []),
    "nor is the package whole": (f"iHR|{NEW}", {"no_way_back": "none", "sha256": "0" * 64}, 13, NEW, []),
    "there is no agent any more": ("un |", {}, 26, FORMER, []),
    "its window is another system's": (f"iU |{NEW}", {"kind": "dmg"}, 0, NEW, []),
    "dpkg has not begun": (f"ii |{FORMER}", {}, 11, FORMER, []),
    "it was rolling back": (f"ii |{NEW}", {"step": "rollback", "ailment": "ails"}, 26, FORMER, [NEW]),
    "it was putting back what was cut off": (f"ii |{NEW}", {"step": "rollback"}, 26, FORMER, []),
    "somebody has installed another": ("ii |7.2.0.9", {}, 11, "7.2.0.9", []),
    "half a window": (f"iU |{NEW}", '{"schema": 1, "run"', 11, NEW, []),
}


def left(installed: str, window: dict | str, *expected) -> Case:
    def fault(run: Run, place: Place) -> Iterator[str]:
        write(run.side("installed"), installed + "\n")
        run.env["TMPDIR"] = "/gone"
        former = json.loads(read(state(run, "window.json")))
        write(state(run, "window.json"), window if isinstance(window, str) else json.dumps(former | window))
        outcome = recover(run, place)
        record = told(run)[0]
        seen = (record["status"], read(run.side("installed"))[4:-1], record["bad"])
        ends = (outcome.status, read(run.side("agent")), os.path.exists(state(run, "window.json")),
                len(os.listdir(state(run, "partial"))))
        # A later run goes on with a package that was not tried.
        if (seen, ends) != (expected, (expected[0], "active\n", False, 0 if expected[0] in (0, 26) else 2)):
            yield f"{seen}, {ends}: {outcome}"
    return on(half_done, fault)


def run_lives(run: Run, place: Place) -> Iterator[str]:
    run.first, run.program = f"exec 9>{folder(run)}/lock; flock 9", place.program("qd-update")
    if (outcome := run.go("recover")).status != 12 or outcome.calls or outcome.out:
        yield f"{outcome}"


def next_run(run: Run, place: Place) -> Iterator[str]:
    """Where neither timer nor boot came, the next run begins with it, and finds the version that is there then."""
    outcome = update(run, place)
    ends = [record["outcome"] for record in told(run)[1:]]
    if outcome.status != 0 or ends != ["updated", "updated", "up-to-date"]:
        yield f"{ends}: {outcome}"


def without_room(filling: str, files: int) -> Case:
    """The folder of the records has room for the old ones and so many files more, all small."""
    def fault(run: Run, place: Place) -> Iterator[str]:
        run.first = f"""cd {folder(run)}; mkdir /tmp/old && cp * /tmp/old
            mount -t tmpfs -o mode=755,size=16k,nr_inodes={files} tmpfs . && cd {folder(run)}
            cp /tmp/old/* . && head -c {filling} /dev/zero >filling || true
            "$@"; status=$?
            cp status.json history.jsonl {os.path.dirname(state(run))}
            exit $status""".replace("/tmp/old", run.side("old"))
        outcome = run.go("-D", run.texts["H"], FORMER)
        if outcome.status != 0 or not any("Cannot write" in line for line in outcome.log):
            yield f"ended with {outcome.status}: {outcome.log}"
        yield from records(run)
    return on(plain, fault)


def on(prepare: Callable[[Run], None], fault: Callable[[Run, Place], Iterator[str]]) -> Case:
    """A case on a machine that is prepared so."""
    def case(place: Place) -> Iterator[str]:
        with prepared(place, {}) as run:
            prepare(run)
            yield from fault(run, place)
    return case


def cases(place: Place, everything: bool) -> dict[str, Case]:
    found = {name: left(*what) for name, what in LEFT.items()}
    found |= {"the run lives": on(half_done, run_lives), "the next run": on(half_done, next_run)}
    found |= {f"no room: {filling} bytes, {files} files": without_room(filling, files)
              for filling, files in (("100000", 10), ("0", 4), ("0", 5))}
    for kind, begin in BEGIN.items():
        for run, outcome in started(place, kind, "-s 200"):
            if outcome.status not in (0, 26):
                sys.exit(f"the good run fails: {outcome}")
            points = list(system_calls(run, begin))[:: 1 if everything else 41]
        found |= {f"{kind} killed at {call} {number}": killed(kind, call, number) for call, number, _ in points}
    return found


if __name__ == "__main__":
    sys.exit(main(__doc__, cases) if "QD_FAULTS_INSIDE" in os.environ else inside())

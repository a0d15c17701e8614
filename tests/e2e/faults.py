#!/usr/bin/env python3
"""Whole updates with one thing going wrong in each: the program is ended at a system call, a system
call fails, memory, descriptors or the disk run out, folders vanish, a signal comes. Whatever it is:
the exit status is one of the program's, what went wrong is told, the lock is whole, the agent is not
left stopped, and nothing but the verified package is installed. With --all every point is taken,
else a sample."""

import os
import re
import shutil
import subprocess
import sys
from collections.abc import Callable, Iterable, Iterator
from contextlib import contextmanager
from functools import partial

from harness import Case, Outcome, Place, Run, Server, lines, main, read, write
from harness.linux import CONF, DEFINITION, DIGEST, NAMES, PACKAGE, entry

VERSION, DEB = "/linux/version_long.txt", "/linux/setup.deb"
ENTRY = entry("setup.deb", "/linux", version="version_long.txt", digest="setup.deb.md5")
GOOD = {DEFINITION: f"[{ENTRY}]", VERSION: "7.2.1.15\n", DEB: PACKAGE, DEB + ".md5": DIGEST + " "}
STATUSES = {0, 1, 2, 3, 4, 5, 6, 7, 9, 11}
STOP, INSTALL, START = "systemctl stop qdagent", "dpkg -i {}", "systemctl start qdagent"
COMPARE = 'cmp -s "$2" "$tmp/../package" || echo "another package" >> "$calls"'
COUNT = """read -r _ _ _ _ group _ < /proc/$$/stat
[ "$1" != start ] || ls /proc/$group/fd | wc -l > "$calls.descriptors" """
# What a call may say; the others say EIO. What cannot fail is left out.
ERRORS = dict.fromkeys(["read", "write", "recvfrom", "poll", "wait4"], ["EIO", "EINTR"]) | {
    "flock": ["EAGAIN", "ENOLCK"], "openat": ["EACCES", "EMFILE"],
} | dict.fromkeys("brk futex getpid gettid getuid geteuid umask uname rt_sigreturn".split(), [])
Fault = Callable[[Run], Iterable[str]]  # one run or more; yields what must not be
Point = tuple[str, int, bool]  # a system call, the how manieth of its name, while the agent is down


# --- a run, and what must hold after it

@contextmanager
def prepared(place: Place, script: dict) -> Iterator[Run]:
    run = place.run()
    run.command("dpkg", COMPARE)
    run.command("systemctl", COUNT)
    run.env["ASAN_OPTIONS"] = "detect_leaks=0:verify_asan_link_order=0"
    write(run.side("package"), PACKAGE)
    with Server(GOOD | script, NAMES, run) as server:
        run.texts["H"] = server.url.encode().hex()
        try:
            yield run
        finally:
            if os.path.ismount(run.temp()):
                subprocess.run(["umount", "--lazy", run.temp()], check=True)


def case(fault: Fault, **script) -> Case:
    def tried(place: Place) -> Iterator[str]:
        with prepared(place, script) as run:
            yield from fault(run)
    return tried


def go(run: Run, first: str = "", *args: str, **env: str) -> Outcome:
    exports = "".join(f"export {name}={value}\n" for name, value in env.items())
    run.first = f"ulimit -c 0\n{exports}{first}"  # not in the environment of the shell itself
    return run.go(*(args or ("-D", run.texts["H"], "7.2.0.1")))


def traced(run: Run, options: str, *args: str) -> Outcome:
    return go(run, f'set -- strace -qq -o "$QD_CALLS.trace" {options} "$@"', *args)


def trace(run: Run) -> str:
    return read(run.calls() + ".trace")


def log(run: Run) -> str:
    return read(run.temp("agent_upd.log"))


def complete(run: Run, outcome: Outcome) -> bool:
    calls = list(dict.fromkeys(outcome.calls))  # a command may be given another attempt
    return outcome.status == 0 and calls == [STOP, INSTALL.format(run.temp("setup.deb")), START]


def told(run: Run, outcome: Outcome) -> bool:
    """Whether log, standard output or standard error say that something went wrong."""
    said = log(run) + outcome.out
    return bool(outcome.err or re.search(r":(ERR|WRN) - |^[^\[\n]", said, re.MULTILINE))


def wrong(run: Run, outcome: Outcome, signals: Iterable[str] = (), descriptors: int = 5):
    """What must not be, but for an end by one of the signals."""
    lock = read(run.temp("upgrade_ovt.lock"))
    if outcome.status not in STATUSES and outcome.status not in signals:
        yield f"ended with {outcome.status}"
    if re.search("terminate called|Sanitizer|runtime error", outcome.err):
        yield "crashed: " + outcome.err
    if "another package" in outcome.calls:
        yield "installed what was not verified"
    if os.path.lexists(run.temp("upgrade_ovt.lock")) and not re.fullmatch(r"-?\d+\n", lock):
        yield f"the lock is {lock!r}"
    if outcome.status == "SIGKILL":
        return
    if STOP in outcome.calls and START not in outcome.calls:
        yield "the agent is left stopped"
    if int(read(run.calls() + ".descriptors") or 0) > descriptors:
        yield f"more than {descriptors} descriptors are open at the end"
    if outcome.status in STATUSES and not complete(run, outcome) and not told(run, outcome):
        yield "nothing was told"


def held(run: Run, outcome: Outcome):
    """What must not be after a run that nothing keeps from its end."""
    yield from wrong(run, outcome)
    if not complete(run, outcome):
        yield f"ended with {outcome.status} after {outcome.calls}: {log(run)}{outcome.out}"


def an_hour_later(run: Run):
    if lock := read(run.temp("upgrade_ovt.lock")):
        write(run.temp("upgrade_ovt.lock"), f"{int(lock) - 3600001}\n")
    yield from held(run, go(run))


# --- points of a good run

def good(place: Place, go: Callable[[Run], Outcome]) -> tuple[Run, Outcome]:
    with prepared(place, {}) as run:
        outcome = go(run)
        if not complete(run, outcome) or list(wrong(run, outcome)):
            sys.exit(f"the good run fails: {outcome}")
    return run, outcome


def system_calls(run: Run, begin: str) -> Iterator[Point]:
    """The program's system calls in a run that was traced, from the line with the text on."""
    counts: dict[str, int] = {}
    begun = stopped = False
    for line in lines(trace(run)):
        name = line.partition("(")[0]
        begun = begun or begin in line
        if re.fullmatch(r"\w+", name) and name != "exit_group":
            counts[name] = counts.get(name, 0) + 1
            if begun:
                yield name, counts[name], stopped
        stopped = stopped or "Agent Stopping" in line


def injected(run: Run, call: str, number: int, what: str) -> Outcome:
    return traced(run, f"-e trace={call} -e inject={call}:{what}:when={number}")


# --- kinds of faults, each yields names and cases

def killed(call: str, number: int, run: Run):
    outcome = injected(run, call, number, "signal=KILL")
    if len(re.findall(rf"^{call}\(", trace(run), re.MULTILINE)) < number:
        return
    yield from wrong(run, outcome, {"SIGKILL"})
    last = ["", *lines(log(run))][-1]
    down = outcome.calls and outcome.calls[-1] != START
    if down and not re.search("Agent (Stopp|Inst)|Upgrading", last):
        yield f"the agent is left stopped, and the log ends with {last}"
    yield from an_hour_later(run)


def failing(call: str, number: int, error: str, run: Run):
    # One that could not be closed; and without a group there is no finding its leader.
    open_then = {"close": 6, "setpgid": 99}.get(call, 5)
    yield from wrong(run, injected(run, call, number, f"error={error}"), descriptors=open_then)


def signalled(call: str, number: int, name: str, run: Run):
    yield from wrong(run, injected(run, call, number, f"signal={name}"), {"SIG" + name})


def without_memory(shim: str, number: int, count: int, run: Run):
    yield from wrong(run, go(run, LD_PRELOAD=shim, QD_FAULT=f"memory:{number}:{count}"))


def named(fault, *points: tuple):
    """For each point the fault's case there, with a name."""
    return [(" ".join(map(str, point)), case(partial(fault, *point))) for point in points]


def mounted(run: Run, options: str) -> None:
    subprocess.run(["mount", "-t", "tmpfs", "-o", options, "tmpfs", run.temp()], check=True)


def small_disk(limit: str, run: Run):
    mounted(run, limit)
    yield from wrong(run, go(run))
    mounted(run, "remount,rw,size=1m,nr_inodes=99")
    yield from an_hour_later(run)


def larger_package(run: Run):
    mounted(run, "size=1m")
    outcome = go(run)
    yield from wrong(run, outcome)
    room = os.statvfs(run.temp())
    if outcome.status != 2 or room.f_bavail * 20 < room.f_blocks:
        yield f"ended with {outcome.status}, {room.f_bavail} of {room.f_blocks} blocks free"


def few_descriptors(most: int, run: Run):
    yield from wrong(run, go(run, f"ulimit -n {most}"))


def vanish(request, run: Run):
    shutil.rmtree(run.texts["goes"], ignore_errors=True)
    return GOOD[request.line.partition(" ")[2]]


def vanished_log(run: Run):
    run.texts["goes"] = run.side("data/UpdLogs")
    os.mkdir(run.side("data"))
    write(run.own(f"{CONF}.x/dbdir.cfg"), run.side("data"))
    yield from held(run, go(run, QD_AGENT_INSTANCE="x"))


def vanished(run: Run):
    run.texts["goes"] = run.temp()
    yield from wrong(run, go(run))


def cases(place: Place, everything: bool) -> dict[str, Case]:
    shim = place.program("shim")
    run, _ = good(place, lambda run: traced(run, "-s 200"))
    points = list(system_calls(run, "setpgid("))
    _, outcome = good(place, lambda run: go(run, LD_PRELOAD=shim, QD_FAULT="count"))
    kinds = {  # the cases, and which of them are the sample
        "killed at a system call": (named(killed, *(point[:2] for point in points)), 13),
        "a system call fails": (named(failing, *(
            (call, number, error) for call, number, _ in points for error in ERRORS.get(call, ["EIO"]))), 17),
        "memory runs out": (named(partial(without_memory, shim), *(
            (number, count) for number in range(1, int(outcome.err) + 1)
            for count in [1] + [1000000] * (number % 16 == 1))), 401),
        "a signal comes": (named(signalled, *(
            (call, number, name) for name in ("TERM", "HUP", "INT", "QUIT", "PIPE", "USR1", "XFSZ")
            for call, number, stopped in points if stopped or everything)), 15),
        "the disk is full": ([("larger package", case(larger_package, **{DEB: bytes(2 << 20)})), *named(
            small_disk, ("ro",), *((f"nr_inodes={count}",) for count in range(6, 0, -1)),
            *((f"size={4 * pages}k",) for pages in range(13, 0, -1)))], 5),
        "descriptors run out": (named(few_descriptors, *((most,) for most in range(4, 14))), 3),
        "folders vanish": ([(f"{fault.__name__} at {path}", case(fault, **{path: vanish}))
                            for fault in (vanished_log, vanished) for path in (DEFINITION, DEB)], 1),
    }
    return {f"{kind}: {name}": case for kind, (found, step) in kinds.items()
            for name, case in list(found)[:: 1 if everything else step]}


def inside() -> int:
    """Starts this again where mounts are its own."""
    unshare = ["unshare", "--mount"] + ["--map-root-user"] * (os.geteuid() != 0)
    tried = subprocess.run([*unshare, "strace", "-o", "/dev/null", "mount", "-t", "tmpfs", "tmpfs",
                            "/mnt"], capture_output=True)
    if tried.returncode:
        print("needs strace, mount namespaces and ptrace")
        return 77
    os.environ["QD_FAULTS_INSIDE"] = "1"
    os.execvp("unshare", [*unshare, sys.executable, *sys.argv])


if __name__ == "__main__":
    sys.exit(main(__doc__, cases) if "QD_FAULTS_INSIDE" in os.environ else inside())

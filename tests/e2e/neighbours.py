#!/usr/bin/env python3
"""The temporary folder is everybody's: what another user puts there must not be followed, written
to, waited for or installed, and a run that dies there must not block those after it."""

import fcntl
import os
import re
import signal
import stat
import subprocess
import sys
import time
from functools import partial

from harness import Outcome, Row, Run, difference, logged, main, read, records, write
from harness.linux import PACKAGE
from procedure import trace

CANARY = "1\nthe canary\n"  # as a lock it would be an old one
LOG, LOCK, DEB = "agent_upd.log", "upgrade_ovt.lock", "setup.deb"
OUR_FILES = {LOG: 0o600, LOCK: 0o644, DEB: 0o600}
updated = partial(Row, calls="{commands}", connections=2)


# --- what is in the way; what else could be is the unit's, osal_ownfile

OBSTACLES = {
    "link": lambda path, canary: os.symlink(canary, path),
    "file that others may write to": lambda path, canary: write(path, CANARY, 0o666),
}


def our_own(path: str, mode: int):
    found = os.lstat(path)
    seen = [stat.filemode(found.st_mode), str(found.st_uid), str(found.st_nlink)]
    yield from difference(path, seen, [stat.filemode(stat.S_IFREG | mode), str(os.geteuid()), "1"])


def obstacle(target: str, name: str) -> Row:
    """It is neither followed nor used. A log of our own is kept, from now on out of reach."""
    kept_log = (target, name) == (LOG, "file that others may write to")

    def prepare(run: Run) -> None:
        path, canary = run.temp(target), run.side("canary")
        write(canary, CANARY)
        OBSTACLES[name](path, canary)
        # A neighbour who keeps the file open could change it after it was verified.
        run.held = os.open(path, os.O_RDWR) if name != "link" else -1

    def check(run: Run, _: Outcome):
        path, canary = run.temp(target), run.side("canary")
        yield from our_own(path, 0o644 if kept_log else OUR_FILES[target])
        if run.held >= 0:
            if os.path.samestat(os.fstat(run.held), os.stat(path)) != kept_log:
                yield "kept what is in the way" if not kept_log else "did not keep the log"
            os.close(run.held)
        if read(canary) != CANARY:
            yield "the canary has been touched"
    return updated(f"{name} at {target}", prepare=prepare, check=check)


def folder(name: str, status: int, echoed: str, calls: str = "{commands}") -> Row:
    """A folder in the way costs that file only."""
    def check(run: Run, outcome: Outcome):
        if echoed not in records(outcome.out):
            yield outcome.out
        if not os.path.isdir(run.temp(name) + "/inner"):
            yield "the folder is gone"
    return Row(f"folder at {name}", option="-D", status=status, check=check, calls=calls,
               prepare=lambda run: os.makedirs(run.temp(name) + "/inner"))


def full_log(run: Run) -> None:
    write(run.side("canary"), CANARY)
    write(run.temp(LOG), "x" * 0x500000, 0o600)
    os.symlink(run.side("canary"), run.temp("agent_upd.bak"))


def rolled(run: Run, _: Outcome):
    if read(run.side("canary")) != CANARY or os.path.getsize(run.temp("agent_upd.bak")) != 0x500000:
        yield "the backup of the log is not a file of its own"


def opened(run: Run, _: Outcome):
    """Whatever somebody does between two calls, no link is followed, nothing waited for or taken for new."""
    traced = re.findall(rf'^open\w+\(.*?"{run.temp()}/(.+?)", (\S+)', read(run.calls() + ".trace"), re.MULTILINE)
    if not {*OUR_FILES} <= {name for name, _ in traced}:
        yield f"not traced: {traced}"
    for name, flags in traced:
        if "O_EXCL" not in flags and ("O_CREAT" in flags or not {"O_NOFOLLOW", "O_NONBLOCK"} <= {*flags.split("|")}):
            yield f"{name}: {flags}"


IN_THE_WAY = [
    *(obstacle(target, name) for target in OUR_FILES for name in OBSTACLES),
    updated("nothing that comes in between is used", prepare=lambda run: trace(run) or write(run.temp(LOCK), "1\n"),
            check=opened, needs=["strace -o /dev/null true"]),
    updated("new files are our own", first="umask 0", check=lambda run, _: (
        wrong for name, mode in OUR_FILES.items() for wrong in our_own(run.temp(name), mode))),
    folder(LOG, 0, "NFY Agent Update done"),
    folder(LOCK, 0, "ERR Failed to open lock file"),
    folder(DEB, 2, "ERR 'Fail to download setup file: [-1]", calls=""),
    updated("backup of the log is not followed", prepare=full_log, log="{update}", check=rolled),
]


# --- the verified package is the installed one

CHANGE = "printf X | dd status=none conv=notrunc "
SWAPS = {  # shell text; the package is $1
    "another file of its size and time":
        f'cp -p "$1" "$1.new"; {CHANGE}of="$1.new"; touch -r "$1" "$1.new"; mv "$1.new" "$1"',
    "link to another file": 'printf evil > "$1.new"; ln -sf "$1.new" "$1"',
    "changed in place": f'{CHANGE}of="$1"',
    "removed": 'rm "$1"',
}


def swapped(name: str, moment: str) -> Row:
    """After a swap the next attempt brings the good package."""
    def drive(run: Run, args: list[str]) -> Outcome:
        run.start(*args)
        os.waitid(os.P_PID, run.process.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)
        time.sleep(0.02)  # the clock of files has coarse ticks
        subprocess.run(["sh", "-ec", SWAPS[name], "sh", run.temp(DEB)], check=True)
        run.process.send_signal(signal.SIGCONT)
        return run.finish()

    def check(run: Run, outcome: Outcome):
        yield from logged("WRN Re-download setup file because current one has a wrong hash: ")(run, outcome)
        with open(run.side("installed"), "rb") as file:
            if file.read() != PACKAGE:
                yield "another package was installed"
    shim = {"LD_PRELOAD": "{shim}", "QD_FAULT": "stop:" + moment, "ASAN_OPTIONS": "verify_asan_link_order=0"}
    return updated(f"{name} after '{moment}'", drive=drive, check=check, env=shim,
                   commands={"dpkg": 'cp "$2" "$tmp/../installed"'})


def locked_by_another(run: Run) -> None:
    write(run.temp(DEB), "of the other run", 0o600)
    run.held = os.open(run.temp(DEB), os.O_RDONLY)
    fcntl.flock(run.held, fcntl.LOCK_EX)


def left_alone(run: Run, _: Outcome):
    os.close(run.held)
    yield from difference("package", [read(run.temp(DEB))], ["of the other run"])


PACKAGES = [
    *(swapped(name, moment) for moment in ("Setup downloaded", "Computed md5 is") for name in SWAPS),
    updated("locked until it is installed", commands={
        "dpkg": 'flock -n "$2" echo unlocked >> "$calls"; true', "systemctl":
        '[ "$1" = start ] || flock -n "$tmp/setup.deb" echo unlocked >> "$calls"; true'}),
    Row("locked by another run", prepare=locked_by_another, status=2, calls="", check=left_alone,
        has="ERR 'Fail to download setup file: [-1]"),
]


# --- the lock is written whole

def unwritable(trap: str, status: int | str, before: str, after: list[str]) -> Row:
    """The first write to a file fails, which is the lock's; what is left blocks no other run."""
    def prepare(run: Run) -> None:
        os.mkdir(run.temp(LOG))  # no log
        if before:
            write(run.temp(LOCK), before)

    def check(run: Run, _: Outcome):
        left = [read(path) for path in [run.temp(LOCK)] if os.path.lexists(path)]
        yield from difference("lock", left, after)
    return Row(f"lock with {before!r} before: {trap}", prepare=prepare, first=f"{trap}; ulimit -f 0", status=status,
               check=check)


LOCKS = [unwritable(trap, status, before, after) for trap, status, before, after in (
    ("trap - XFSZ", "SIGXFSZ", "", []), ("trap - XFSZ", "SIGXFSZ", "1\n", ["1\n"]),
    ("trap '' XFSZ", 2, "", []), ("trap '' XFSZ", 2, "1\n", []))]

if __name__ == "__main__":
    sys.exit(main(__doc__, IN_THE_WAY + PACKAGES + LOCKS))

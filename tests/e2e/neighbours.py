#!/usr/bin/env python3
"""The temporary folder is everybody's: what another user puts there must not be followed, written
to, waited for or installed, and a run that dies there must not block those after it."""

import contextlib
import fcntl
import os
import re
import stat
import subprocess
import sys
import time
from functools import partial

from harness import (NOBODY, Gate, Outcome, Row, Run, Skip, difference, fill, logged, main,
                     read, records, write)
from harness.linux import PACKAGE

CANARY = "1\nthe canary\n"  # as a lock it would be an old one
LOG, LOCK, DEB = "agent_upd.log", "upgrade_ovt.lock", "setup.deb"
OUR_FILES = {LOG: 0o600, LOCK: 0o644, DEB: 0o600}
updated = partial(Row, calls="{commands}", connections=2)


# --- what is in the way

def other_users_file(path: str, canary: str) -> None:
    if os.geteuid() == 0:
        write(path, CANARY)
        os.chown(path, NOBODY, NOBODY)


OBSTACLES = {
    "link": lambda path, canary: os.symlink(canary, path),
    "dangling link": lambda path, canary: os.symlink(canary + ".new", path),
    "link to a device that never ends": lambda path, canary: os.symlink("/dev/zero", path),
    "hard link": lambda path, canary: os.link(canary, path),
    "fifo": lambda path, canary: os.mkfifo(path),
    "socket": lambda path, canary: os.mknod(path, stat.S_IFSOCK | 0o666),
    "file of another user": other_users_file,
    "file that others may write to": lambda path, canary: write(path, CANARY, 0o666),
}


def state(path: str) -> tuple[str, int, int]:
    found = os.lstat(path)
    return read(path), found.st_mode, found.st_mtime_ns


def our_own(path: str, mode: int):
    found = os.lstat(path)
    seen = [stat.filemode(found.st_mode), str(found.st_uid), str(found.st_nlink)]
    yield from difference(path, seen, [stat.filemode(stat.S_IFREG | mode), str(os.geteuid()), "1"])


def obstacle(target: str, name: str) -> Row:
    """It is neither followed nor used. A log of our own is kept, from now on out of reach."""
    kept_log = (target, name) == (LOG, "file that others may write to")

    def prepare(run: Run) -> None:
        run.timeout = 20
        path, canary = run.temp(target), run.side("canary")
        write(canary, CANARY)
        run.before = state(canary)
        OBSTACLES[name](path, canary)
        # A neighbour who keeps the file open could change it after it was verified.
        plain = os.path.lexists(path) and stat.S_ISREG(os.lstat(path).st_mode)
        run.held = os.open(path, os.O_RDWR) if plain else -1

    def check(run: Run, _: Outcome):
        path, canary = run.temp(target), run.side("canary")
        yield from our_own(path, 0o644 if kept_log else OUR_FILES[target])
        if run.held >= 0:
            if os.path.sameopenfile(run.held, os.open(path, os.O_RDONLY)) != kept_log:
                yield "kept what is in the way" if not kept_log else "did not keep the log"
            os.close(run.held)
        if state(canary) != run.before or os.path.exists(canary + ".new"):
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


IN_THE_WAY = [
    *(obstacle(target, name) for target in OUR_FILES for name in OBSTACLES),
    updated("new files are our own", first="umask 0", check=lambda run, _: (
        wrong for name, mode in OUR_FILES.items() for wrong in our_own(run.temp(name), mode))),
    folder(LOG, 0, "NFY Agent Update done"),
    folder(LOCK, 0, "ERR Failed to open lock file"),
    folder(DEB, 2, "ERR 'Fail to download setup file: [-1]", calls=""),
    updated("backup of the log is not followed", prepare=full_log, log="{update}", check=rolled),
]


# --- the verified package is the installed one

SWAPS = {  # shell text; the package is $1
    "another file": 'printf evil > "$1.new"; mv "$1.new" "$1"',
    "another file of its size and time":
        'cp -p "$1" "$1.new"; {change}of="$1.new"; touch -r "$1" "$1.new"; mv "$1.new" "$1"',
    "link to another file": 'printf evil > "$1.new"; ln -sf "$1.new" "$1"',
    "changed in place": '{change}of="$1"',
    "longer": 'truncate -s 30000 "$1"',
    "removed": 'rm "$1"',
}
CHANGE = "printf X | dd status=none conv=notrunc "


def swapped(name: str, moment: str) -> Row:
    """After a swap the next attempt brings the good package."""
    def drive(run: Run, args: list[str]) -> Outcome:
        gate = Gate(run)
        run.start(*args)
        gate.hold_at(moment)
        time.sleep(0.02)  # the clock of files has coarse ticks
        swap = fill(SWAPS[name], {"change": CHANGE})
        subprocess.run(["sh", "-ec", swap, "sh", run.temp(DEB)], check=True)
        gate.release()
        return run.finish()

    def check(run: Run, outcome: Outcome):
        yield from logged("WRN Re-download setup file because current one has a wrong hash: ")(
            run, outcome)
        with open(run.side("installed"), "rb") as file:
            if file.read() != PACKAGE:
                yield "another package was installed"
    return updated(f"{name} after '{moment}'", option="-D", drive=drive, check=check,
                   commands={"dpkg": 'cp "$2" "$tmp/../installed"'})


# Puts everything in the way that another user can, over and over.
DISTURB = """
import os, sys
parent = os.getppid()
user = int(sys.argv.pop(1))
os.setgroups([])
os.setgid(user)
os.setuid(user)
canary, *names = sys.argv[1:]
own = names[0] + ".own"
def spoil(name):
    fd = os.open(name, os.O_RDWR | os.O_CREAT | os.O_NONBLOCK, 0o666)
    try:
        os.write(fd, b"evil")
        os.fchmod(fd, 0o644)
    finally:
        os.close(fd)
while os.getppid() == parent:
    for name in names:
        for act, *args in ((spoil, name), (os.unlink, name), (os.symlink, canary, own),
                           (os.rename, own, name), (os.link, name, own), (os.rename, own, name),
                           (os.mkfifo, name), (os.unlink, name), (os.unlink, own)):
            try:
                act(*args)
            except OSError:
                pass
"""


def remove(path: str) -> None:
    with contextlib.suppress(FileNotFoundError):
        os.unlink(path)


def disturbed(run: Run, args: list[str]) -> Outcome:
    if os.geteuid() != 0:
        raise Skip("needs root, to be another user, too")
    write(run.side("canary"), CANARY)
    write(run.side("good"), PACKAGE)
    run.command("dpkg", 'cmp "$2" "$tmp/../good" || echo evil >> "$calls"')
    names = [run.temp(name) for name in OUR_FILES]
    neighbour = subprocess.Popen([sys.executable, "-c", DISTURB, str(NOBODY), run.side("canary"),
                                  *names])
    try:
        for _ in range(12):
            for name in names:
                remove(name)
            while not any(map(os.path.lexists, names)) and neighbour.poll() is None:
                time.sleep(0.001)
            outcome = run.go(*args)
            assert outcome.status in (0, 2, 6, 7, 11), outcome
            assert "evil" not in outcome.calls, outcome
            assert read(run.side("canary")) == CANARY
        assert neighbour.poll() is None, "the neighbour has ended"
    finally:
        neighbour.kill()
        neighbour.wait()
    return Outcome(0, [], "", "", [], [])


def locked_by_another(run: Run) -> None:
    write(run.temp(DEB), "of the other run", 0o600)
    run.held = os.open(run.temp(DEB), os.O_RDONLY)
    fcntl.flock(run.held, fcntl.LOCK_EX)


def left_alone(run: Run, _: Outcome):
    os.close(run.held)
    yield from difference("package", [read(run.temp(DEB))], ["of the other run"])


PACKAGES = [
    *(swapped(name, moment) for moment in ("NFY Setup downloaded", "NFY Computed md5 is")
      for name in SWAPS),
    Row("installed or not whatever another user does", drive=disturbed, connections=99),
    updated("locked until it is installed", commands={
        "dpkg": 'flock -n "$2" echo unlocked >> "$calls"; true', "systemctl":
        '[ "$1" = start ] || flock -n "$tmp/setup.deb" echo unlocked >> "$calls"; true'}),
    Row("locked by another run", prepare=locked_by_another, status=2, calls="", check=left_alone,
        has="ERR 'Fail to download setup file: [-1]"),
]


# --- the lock is written whole

def unwritable(name: str, trap: str, status: int | str, before: str, after: str) -> Row:
    """The first write to a file fails. The next run is not blocked by what this one left."""
    def drive(run: Run, args: list[str]) -> Outcome:
        if before:
            write(run.temp(LOCK), before)
        os.mkdir(run.temp(LOG))  # no log: the lock is written first
        run.first = f"{trap}; ulimit -f 0"
        outcome = run.go(*args)
        left = read(run.temp(LOCK)) if os.path.lexists(run.temp(LOCK)) else "none"
        assert (outcome.status, left) == (status, after), (outcome, left)
        run.first = ""
        return run.go(*args)

    def check(run: Run, _: Outcome):
        if not re.fullmatch(r"\d{13}\n", read(run.temp(LOCK))):
            yield f"the lock is {read(run.temp(LOCK))!r}"
    return updated(name, drive=drive, check=check)


KILLED, FULL = "trap - XFSZ", "trap '' XFSZ"
LOCKS = [
    unwritable("killed with no lock before", KILLED, "SIGXFSZ", "", "none"),
    unwritable("killed with a stale lock before", KILLED, "SIGXFSZ", "1\n", "1\n"),
    unwritable("disk full with no lock before", FULL, 2, "", "none"),
    unwritable("disk full with a stale lock before", FULL, 2, "1\n", "none"),
]

if __name__ == "__main__":
    sys.exit(main(__doc__, IN_THE_WAY + PACKAGES + LOCKS))

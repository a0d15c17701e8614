"""Suites: rows that are run side by side, each in a folder of its own."""

import argparse
import concurrent.futures
import difflib
import fnmatch
import itertools
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import traceback
from collections.abc import Callable, Iterable, Iterator
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from . import linux
from .run import MAPPED, Outcome, Run, Skip, read, write
from .server import Server
from .texts import fill, items
from .tls import context

TOP = Path(__file__).resolve().parents[3]
PROGRAMS = {name: f"{TOP}/build/default/{name}" for name in ("update", "qd-update", "qd-repo", "qd-tuf")} | {
    family: f"{TOP}/build/{family}/update" for family in ("macos", "synology")} | {
    "shim": f"{TOP}/build/default/tests/e2e/libqd_fault_shim.so"}


class Place:
    """Where a case works: a folder of its own and the programs."""

    def __init__(self, folder: str, programs: dict[str, str]):
        self.folder, self.programs = folder, programs
        self.numbers = itertools.count(1)
        os.mkdir(folder)

    def program(self, name: str) -> str:
        if not os.path.exists(self.programs[name]):
            raise Skip(f"not built: {self.programs[name]}")
        return self.programs[name]

    def run(self, program: str = "update") -> Run:
        return Run(self.program(program), f"{self.folder}/run{next(self.numbers)}")


Case = Callable[[Place], Iterable[str]]  # yields what is not as it must be


def difference(what: str, seen: list[str], expected: list[str]) -> Iterator[str]:
    if seen != expected:
        diff = difflib.unified_diff(expected, seen, lineterm="")
        yield "\n".join([f"{what} (- expected, + found):", *itertools.islice(diff, 2, None)])


def logged(part: str) -> Callable[[Run, Outcome], Iterator[str]]:
    """A Row's check that the part is in some record of the log."""
    def check(run: Run, outcome: Outcome) -> Iterator[str]:
        if not any(fill(part, run.texts) in record for record in outcome.log):
            yield "\n".join([f"no record has '{fill(part, run.texts)}':", *outcome.log])
    return check


@dataclass
class Row:
    """One run from its arguments to everything that it leaves.

    What is expected is a text as `items` takes it, with {names} of `blocks` and `texts`, and {S}
    the server's address, {H} the same in hexadecimal digits, {T} the temporary folder, {V} the
    version that is installed, {I} the agent's instance, {shim} the preloaded library. What is None
    is not looked at; the log is compared without the progress of downloads.
    """

    name: str
    script: dict[str, Any] = field(default_factory=dict)  # laid over the good server's
    log: str | None = None
    status: int | str = 0
    requests: str | None = None
    calls: str | None = None
    files: str | None = None
    has: str = ""  # records that are in the log
    out: str | None = None  # lines of standard output; {echo} is the log as it is
    err: str | None = None
    check: Callable[[Run, Outcome], Iterable[str]] | None = None  # yields what else is wrong
    connections: int = 1  # at most
    most: int = 0  # MiB of memory, where it is looked at
    version: str = "7.2.0.1"
    option: str = ""
    args: list[str] | None = None  # in place of option, address and version
    tls: str = ""  # the server has a certificate for this host, as tls.context takes it: {ca}, {key}
    config: str | None = None  # the content of update.toml, in an /etc of the run's own
    needs: list[str] = field(default_factory=list)  # shell commands that must work here
    user: int = 0
    first: str = ""  # as Run.first
    env: dict[str, str] = field(default_factory=dict)
    commands: dict[str, str] = field(default_factory=dict)
    prepare: Callable[[Run], None] | None = None
    drive: Callable[[Run, list[str]], Outcome] = lambda run, args: run.go(*args)
    texts: dict[str, str] = field(default_factory=dict)
    program: str = "update"
    good: dict[str, Any] = field(default_factory=lambda: linux.GOOD)
    blocks: dict[str, str] = field(default_factory=lambda: linux.BLOCKS)
    package: bytes = linux.PACKAGE  # what setup.deb must be when it is installed

    def __call__(self, place: Place) -> Iterator[str]:
        for command in self.needs:
            words = ["unshare", *MAPPED, "sh", "-c", command]
            if subprocess.run(words, capture_output=True).returncode:
                raise Skip(f"needs: {command}")
        run = place.run(self.program)
        run.user, run.first = self.user, self.first
        if self.most and b"__asan_init" not in Path(run.program).read_bytes():
            run.most = self.most
        run.texts = {**self.blocks, "V": self.version, "T": run.temp(), "ca": run.side("cert.pem"),
                     "key": run.side("key.pem"),
                     **{name: place.programs[name] for name in ("shim", "qd-update")}, **self.texts}
        for name, body in self.commands.items():
            run.command(name, body)
        tls = context(run.folder, self.tls) if self.tls else None
        with Server(self.good | self.script, run.texts, run, tls) as server:
            run.texts |= {"S": server.url, "H": server.url.encode().hex()}
            run.env |= {name: fill(value, run.texts) for name, value in self.env.items()}
            run.texts["I"] = run.env["QD_AGENT_INSTANCE"]
            if self.config is not None:
                write(run.config(), fill(self.config, run.texts))
            if self.prepare:
                self.prepare(run)
            usual = [*filter(None, [self.option]), "{H}", "{V}"]
            args = usual if self.args is None else self.args
            outcome = self.drive(run, [fill(arg, run.texts) for arg in args])
            outcome.requests = server.requests
        yield from self.compare(run, outcome, server)

    def compare(self, run: Run, outcome: Outcome, server: Server) -> Iterator[str]:
        log = [record for record in outcome.log if not record.startswith("NFY Loading ")]
        yield from difference("status", [str(outcome.status)], [str(self.status)])
        for what, seen, expected in (
                ("log", log, self.log), ("commands", outcome.calls, self.calls),
                ("requests", [request.line for request in outcome.requests], self.requests),
                ("files", outcome.files, self.files)):
            if expected is not None:
                wanted = items(expected, run.texts)
                yield from difference(what, seen, sorted(wanted) if what == "files" else wanted)
        texts = run.texts | {"echo": read(run.temp("agent_upd.log"))}
        for what, text, expected in (("output", outcome.out, self.out), ("errors", outcome.err, self.err)):
            if expected is not None:
                yield from difference(what, text.split("\n"), [*items(expected, texts), ""])
        if missing := [record for record in items(self.has, run.texts) if record not in log]:
            yield from difference("log, of which one is missing", log, missing)
        if server.connections > self.connections:
            yield f"{server.connections} connections"
        if "Log error" in outcome.err:
            yield outcome.err
        if f"dpkg -i {run.temp('setup.deb')}" in outcome.calls:
            if Path(run.temp("setup.deb")).read_bytes() != self.package:
                yield "another package was installed"
        if self.check:
            yield from self.check(run, outcome)


def why_no_root() -> str:
    """Why programs cannot be run here with user id 0; empty when they can."""
    tried = subprocess.run(["unshare", *MAPPED, "true"], capture_output=True)
    return "needs root or a user namespace" if tried.returncode else ""


def attempt(case: Case, folder: str, programs: dict[str, str]) -> tuple[list[str], str]:
    """What is wrong, and why it was skipped."""
    try:
        wrong = list(case(Place(folder, programs)))
    except Skip as skip:
        return [], str(skip)
    except Exception:
        return [traceback.format_exc()], ""
    if not wrong:
        shutil.rmtree(folder, ignore_errors=True)
    return wrong, ""


def installed(program: str, copy: str) -> str:
    """A copy where every user reaches it; the program's own path where there is none."""
    return shutil.copy(program, copy) if os.path.exists(program) else program


def run_all(cases: dict[str, Case], folder: str, programs: dict[str, str], jobs: int) -> int:
    failed = skipped = 0
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        results = {name: pool.submit(attempt, case, f"{folder}/{number}", programs)
                   for number, (name, case) in enumerate(cases.items())}
        for name, result in results.items():
            wrong, why = result.result()
            failed += bool(wrong)
            skipped += bool(why)
            if why:
                print(f"skipped: {name}: {why}")
            if wrong:
                print("\n  ".join([f"FAILED: {name}", *"\n".join(wrong).splitlines()]))
    print(f"{len(cases)} cases, {failed} failed, {skipped} skipped")
    return 1 if failed or not cases else 77 if skipped == len(cases) else 0


def main(description: str, cases: list[Row] | Callable[[Place, bool], dict[str, Case]]) -> int:
    """The suite as a program. Its status: 0 all held, 1 not all did, 77 nothing could be run.

    The cases are rows, or a function that makes the cases, by name; it is told whether all are
    wanted or a sample is enough.
    """
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("-a", "--all", action="store_true", help="not only a sample of the cases")
    parser.add_argument("-j", "--jobs", type=int, default=2 + (os.cpu_count() or 1))
    parser.add_argument("words", nargs="*", metavar="NAME=PROGRAM | CASE",
                        help=f"programs ({', '.join(PROGRAMS)}); the cases that are wanted, as "
                             "patterns of the shell")
    options = parser.parse_args()
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGTERM):
        if signal.getsignal(number) == signal.SIG_IGN:  # by nohup, for one; programs inherit it
            signal.signal(number, signal.SIG_DFL)
    sys.stdout.reconfigure(errors="backslashreplace")  # type: ignore[union-attr]
    if why := why_no_root() or ("" if "A" in linux.NAMES else "no packages for this machine"):
        print(why)
        return 77
    top = tempfile.mkdtemp(prefix="qd-e2e.")
    os.chmod(top, 0o755)
    try:
        programs = PROGRAMS | dict(word.split("=", 1) for word in options.words if "=" in word)
        programs = {name: installed(program, f"{top}/{name}") for name, program in programs.items()}
        named = ({row.name: row for row in cases} if isinstance(cases, list)
                 else cases(Place(f"{top}/cases", programs), options.all))
        assert not isinstance(cases, list) or len(named) == len(cases), "two rows of one name"
        wanted = [word for word in options.words if "=" not in word] or ["*"]
        chosen = {name: case for name, case in named.items()
                  if any(fnmatch.fnmatchcase(name, pattern) for pattern in wanted)}
        return run_all(chosen, top, programs, options.jobs)
    except Skip as skip:
        print(skip)
        return 77
    finally:
        shutil.rmtree(top, ignore_errors=True)

#!/usr/bin/python3
"""The administrator's program: what it prints, on a terminal and elsewhere, and what it leaves."""

import fcntl
import json
import os
import re
import signal
import struct
import sys
import termios
import threading
import time
from functools import partial

import pyte

from harness import Answer, Outcome, Row, blocks, difference, items, main, read, state, write
from harness.linux import BLOCKS, DEB, DIGEST, PACKAGE, SUM, VERSION
from settings import BLOCKS_WITH_FILE, DATABASE, PAST, bad, both, drop_in, installed, lock, tells

DIED = PAST | {"phase": "install", "outcome": "running", "ended": None, "started": "2026-03-02T14:05:09Z"}
FAILED = PAST | {"phase": "fetch", "outcome": "failed", "status": 2, "cause": "transfer",
                 "message": "Fail to get HEAD for http://updates.example.com/setup.deb: [404 ]"}


def records(status: dict | None, *history: dict):
    def prepare(run):
        run.env["TZ"] = "UTC"
        if status:
            write(state(run), json.dumps(status))
        write(state(run, "history.jsonl"), "".join(json.dumps(line) + "\n" for line in history))
    return prepare


def leaves_nothing(run, _):
    if os.path.exists(run.side("own/var/lib/qd")):
        yield "there is a state folder"


class Terminal:
    """A run in a terminal of so many columns, as a person would see it."""

    def __init__(self, columns: int, no_colour: str = ""):
        self.no_colour, self.bytes, self.missed = no_colour, b"", []
        self.screen = pyte.HistoryScreen(columns, 30)
        self.stream = pyte.ByteStream(self.screen)
        self.master, self.slave = os.openpty()
        self.resize(columns)

    def resize(self, columns: int) -> None:
        fcntl.ioctl(self.slave, termios.TIOCSWINSZ, struct.pack("HHHH", 30, columns, 0, 0))
        self.screen.resize(30, columns)

    def drive(self, run, args) -> Outcome:
        run.env |= {"TERM": "xterm", "NO_COLOR": self.no_colour}
        run.stdout, run.terminal = self.slave, self
        run.start(*args)
        reader = threading.Thread(target=self.follow)
        reader.start()
        outcome = run.finish()
        os.close(self.slave)
        reader.join()
        outcome.out = self.seen()
        return outcome

    def seen(self) -> str:
        return "\n".join(line.rstrip() for line in self.screen.display).rstrip()

    def follow(self) -> None:
        try:
            while piece := os.read(self.master, 4096):
                self.bytes += piece
                self.stream.feed(piece)
        except OSError:  # the other end is closed
            pass


def paced(happenings):
    """The package in ten pieces, and what happens after some of them, by their numbers."""
    def after(run, piece):
        time.sleep(0.25)
        happenings.get(piece, lambda run: None)(run)
    return Answer(PACKAGE, paced=after)


def sees(text: str):
    """Waits until this is all that is to be seen of the terminal, figures left out."""
    def wait(run) -> None:
        wanted, seen = items(text, run.texts), []
        for _ in range(1200):
            seen = re.sub(r"\[=+> *\]  \d+ %  [\d.]+ K?i?B/s(  \d+:\d\d left)?", "BAR", run.terminal.seen())
            seen = re.sub(r"[\d.]+ KiB of 19.5 KiB", "BYTES", seen)
            seen = re.sub(r"\d\d:\d\d:\d\d", "TIME", seen).splitlines()
            if seen == wanted:
                return
            time.sleep(0.05)
        run.terminal.missed += difference("during the download", seen, wanted)
    return wait


def interrupt(run) -> None:
    run.process.send_signal(signal.SIGINT)


def on_terminal(name: str, columns: int, out: str, args=("run",), no_colour: str = "", **others) -> Row:
    terminal = Terminal(columns, no_colour)

    def shown(run, outcome):
        seen = re.sub(r" in \d+:\d\d", " in TIME", outcome.out).splitlines()
        yield from difference("screen", seen, items(out, run.texts))
        yield from terminal.missed
        if bool(no_colour) == (b"\x1b[3" in terminal.bytes) and "run" in args:
            yield f"colours: {terminal.bytes}"
    return row(name, args=[*args], drive=terminal.drive, check=shown, **others)


row = partial(Row, config="server = '{S}'", commands=DATABASE, prepare=installed(),
              program="qd-update", blocks=BLOCKS | BLOCKS_WITH_FILE | blocks("""
[found] Installed   {V} | Available   7.2.1.15   from {S}
[zeros] 00000000000000000000000000000000
[why] Fail to get HEAD for http://updates.example.com/setup.deb: [404 ]
[whole] Downloaded 19.5 KiB in TIME | {ended}
[begun] Checking for an update | Downloading 7.2.1.15
[ended] Verifying the package | Preparing the installation | Stopping the agent | {rest}
[rest] Installing 7.2.1.15 | Starting the agent | Updated from 7.2.0.1 to 7.2.1.15.
"""))

CHECK = [
    row("CheckFindsAnUpdate", args=["check"], env={"LANG": "not_HERE.UTF-8"}, status=100, files="",
        requests="{GET version} | GET {folder}/{hash file}", calls="{ask} | {ask} | dpkg-query --listfiles qdagent",
        check=leaves_nothing,
        err="", out="{found} | An update is available. `qd-update run` would install it now."),
    row("CheckFindsNothingNewer", args=["check", "--installed", "7.2.1.15"], version="7.2.1.15", calls="",
        prepare=both(records(PAST), drop_in("hooks/Before", "")), err="", out="{found} | Last run    2026-03-01 14:06, "
        "updated | Passed over for its name, neither before-... nor after-... : {own}/hooks/Before | "
        "The installed version is up to date."),
    row("CheckPrintsJson", args=["check", "--json", "-v"], status=100,
        config="server = '{S}'\ninstall.reserve = '900000GiB'", prepare=both(
            installed("hi |7.2.0.1"), lock(-1000, "1")), check=lambda _, outcome: difference("found", [
                re.sub("(at|by) .*", "", text) for text in json.loads(outcome.out)["obstacles"]], [
                "the package is on hold", "a run began less than an hour ago, ", "not enough room "])),
    row("CheckFails", {VERSION: 404}, args=["check"], status=2, check=leaves_nothing, out="Installed   7.2.0.1",
        err="cannot get {F}/version_long.txt: the server answers 404"),
    row("CheckMissesTheDigest", {SUM: 404}, args=["check"], status=100, err="", out="{found} | An update is available. "
        "`qd-update run` would not install it now: without a digest nothing is installed: there is none at "
        "{F}/setup.deb.md5."),
    row("CheckKnowsABadVersion", args=["check"], status=25, prepare=both(installed(), bad(DIGEST)), out="{found}",
        err="7.2.1.15 is known as bad here since 2026-03-01T14:05:09Z: why; qd-update forgive 7.2.1.15 ends that"),
    row("ForgivesAVersion", args=["forgive", "7.2.1.15"], requests="", calls="", prepare=bad(DIGEST),
        err="", out="7.2.1.15 is forgiven: the next run may install it again.", check=lambda run, _:
            difference("bad", [read(state(run, "bad.json"))], ["[]\n"])),
    row("ForgivesWhatIsBadAlone", args=["forgive", "7.2.1.1"], status=64, prepare=bad(DIGEST),
        out="", err="7.2.1.1 is not known as bad here"),
    row("CheckNeedsAServer", config="", args=["check"], status=20, requests="", calls="", check=leaves_nothing,
        out="", err='{file}: names no server; set "server" to the address that the updates come from'),
    row("CheckKnowsNoAgent", args=["check"], status=4, requests="", prepare=None, commands={"dpkg-query": "exit 1"},
        out="", err="the package manager knows no installed agent, or does not answer; --installed says its version"),
]

RUN = [
    row("RunIsQuiet", args=["run", "--quiet"], out="", err="", has="{update}"),
    row("RunSaysWhyItFailed", {VERSION: 404}, args=["run", "-q"], status=2, calls="{ask}",
        out="", err="Failed: cannot get {F}/version_long.txt: the server answers 404"),
    row("NamesWhatItDoesNotKnow", args=["bogus"], status=64, requests="", calls="", out="",
        err="The following argument was not expected: bogus | Run with --help for more information."),
    row("RunPrintsItsRecord", args=["run", "--json"], check=lambda run, outcome: difference(
        "output", [outcome.out], [read(state(run))])),
    row("RunIsInterrupted", {DEB: paced({3: interrupt})}, args=["run", "-q"], status=29, calls="{ask} | {ask}",
        check=tells({"cause": "interrupted", "phase": "fetch", "to": "7.2.1.15",
                     "message": "interrupted; nothing was changed"})),
    row("RunIsInterruptedTooLate", args=["run", "-q"], check=tells({"outcome": "updated"}),
        commands=DATABASE | {"systemctl": "kill -INT $(cut -d' ' -f4 /proc/$PPID/stat)"},
        has="WRN An interrupt came when the agent was being replaced: the run went on"),
    row("InterruptLetsDpkgFinish", args=["run", "-q"], status=29, commands=DATABASE | {
        "dpkg": '[ "$1" != --configure ] || { kill -INT $PPID; sleep 0.2; echo finished >>"$calls"; }'},
        prepare=both(installed(), lambda run: write(run.own("/var/lib/dpkg/updates/0001"), "")),
        check=lambda run, outcome: difference("end", outcome.calls[-1:], ["finished"])),
    on_terminal("RunOnANarrowTerminal", 40, "{begun} | {whole}", no_colour="1"),
    on_terminal("TerminalBecomesNarrower", 80, "{begun} | {whole}",
                script={DEB: paced({5: sees("{begun} | BAR  BYTES"), 6: lambda run: run.terminal.resize(40),
                                    8: sees("{begun} | BAR")})}),
    *(on_terminal(f"{name.title()}OnATerminalTellsOfRetries", 80, out, [name], status=status, script={
        VERSION: [503, lambda _, run: sees(run.texts["retry"])(run) or "7.2.1.15", "7.2.1.15"]}, texts={
            "retry": begun + "Again at TIME: the server answers 503"})
      for name, begun, status, out in (("run", "Checking for an update | ", 0, "{begun} | {whole}"), (
          "check", "", 100, "{found} | An update is available. `qd-update run` would install it now."))),
    on_terminal("RunOnATerminalIsInterrupted", 80, status=29, script={DEB: paced({4: interrupt})},
                out="{begun} | Deferred: interrupted; nothing was changed"),
]

STATUS = [
    row("StatusOfNoRun", args=["status"], commands={}, check=leaves_nothing, err="",
        out="No run has left a record in /var/lib/qd/update.{I}. | Agent       runs"),
    row("StatusOfAnUnknownRecord", args=["status"], commands={}, out="", status=11, prepare=lambda run: write(
        state(run), '{"schema": 2}'), err="/var/lib/qd/update.{I}/status.json: is no record that this program can "
        "read; the next run writes it anew"),
    row("StatusOfARunThatDied", args=["status"], prepare=records(DIED), commands={"systemctl": "exit 3"}, err="",
        out="Started     2026-03-02 14:05 | From        7.2.0.1 | To          7.2.1.15 | "
            "Agent       does not run | Run         {zeros} | It died in phase install. See that "
            "the agent is whole and starts: `qd-update run` tries again."),
    row("History", args=["history", "-n", "2"], prepare=records(None, FAILED, PAST, FAILED), err="",
        out="Started           Outcome  Status  From     To        Message | "
            "2026-03-01 14:05  updated  0       7.2.0.1  7.2.1.15 | "
            "2026-03-01 14:05  failed   2       7.2.0.1  7.2.1.15  {why}"),
    on_terminal("HistoryOnANarrowTerminal", 40, "Started           Outcome  To | 2026-03-01 14:05  "
                "updated  7.2.1.15 | 2026-03-01 14:05  failed   7.2.1.15", args=["history"],
                prepare=records(None, PAST, FAILED)),
]

if __name__ == "__main__":
    sys.exit(main(__doc__, [*CHECK, *RUN, *STATUS]))

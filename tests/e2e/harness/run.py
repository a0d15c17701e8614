"""One run of a program as a process, with stand-ins for the system's commands, and what it left."""

import functools
import os
import re
import select
import signal
import subprocess
import tempfile
import time
from dataclasses import dataclass, field

from .server import Request

NOBODY = 65534
SYSTEM_PATH = "/usr/sbin:/usr/bin:/sbin:/bin"
COMMANDS = ("systemctl", "systemd-run", "dpkg", "dpkg-deb", "apt-get", "rpm", "dnf", "hdiutil", "installer", "launchctl",
            "synopkg", "arch")
STAND_IN = """#!/bin/sh
calls=$QD_CALLS
tmp='{side}/tmp'
printf '%s\\n' "{name} $*" >>"$calls"
{body}
"""
OWN = ("/etc", "/var/lib")
STATE = "/var/lib/qd/update.{I}"  # the folder of the records
OVERLAY = "mount -t overlay -o lowerdir={top},upperdir={upper},workdir={scratch} overlay {top}"
# Makes a user namespace where this user is root, when it is not already.
MAPPED = ["--map-root-user"] * (os.geteuid() != 0)
RECORD = re.compile(r"\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\] - ([A-Z]{4}):([A-Z0-9]{3}) - \[ \([\w.]+:\d+\)\] - ")


def read(path: str) -> str:
    """The content of a file, empty when there is none."""
    try:
        with open(path, encoding="utf-8", errors="surrogateescape", newline="") as file:
            return file.read()
    except (FileNotFoundError, NotADirectoryError, IsADirectoryError):
        return ""


def write(path: str, content: str | bytes, mode: int = 0o644) -> None:
    with open(path, "wb") as file:
        file.write(content.encode() if isinstance(content, str) else content)
    os.chmod(path, mode)


def lines(text: str) -> list[str]:
    return text.removesuffix("\n").split("\n") if text else []


def records(log: str) -> list[str]:
    """The lines of a log without stamp and place: "NFY text" for module ROOT, "EXCP:ERR text" for
    the others; a line of another form stays as it is."""
    def short(line: str) -> str:
        if not (stamp := RECORD.match(line)):
            return line
        module = "" if stamp[1] == "ROOT" else stamp[1] + ":"
        return f"{module}{stamp[2]} {line[stamp.end():]}"
    return [short(line) for line in lines(log)]


def end_tree(pid: int) -> None:
    """Ends a process with all that it started, those in groups of their own, too."""
    for child in read(f"/proc/{pid}/task/{pid}/children").split():
        end_tree(int(child))
    os.kill(pid, signal.SIGKILL)


def memory(pid: int) -> int:
    """MiB that a process has taken at most so far."""
    found = re.search(r"VmHWM:\s+(\d+) kB", read(f"/proc/{pid}/status"))
    return int(found[1]) >> 10 if found else 0


def state(run: "Run", name: str = "status.json") -> str:
    """Where a file among its records lies."""
    return run.own(STATE.replace("{I}", run.env["QD_AGENT_INSTANCE"]) + "/" + name)


class Skip(Exception):
    """A case cannot be run here; its text says why."""


@functools.cache
def why_no_overlay() -> str:
    with tempfile.TemporaryDirectory() as folder:
        for name in ("upper", "scratch"):
            os.mkdir(f"{folder}/{name}")
        command = OVERLAY.format(top="/etc", upper=f"{folder}/upper", scratch=f"{folder}/scratch")
        words = ["unshare", "--mount", *MAPPED, "sh", "-ec", command]
        tried = subprocess.run(words, capture_output=True, text=True)
    return tried.stderr.strip() if tried.returncode else ""


@dataclass
class Outcome:
    """What a finished run left."""

    status: int | str  # of its exit, else the name of the signal or why it was ended
    log: list[str]  # as `records`
    out: str
    err: str
    calls: list[str]  # the commands with their arguments, in order
    files: list[str]  # in the temporary folder, and "work/" + those in the working folder
    requests: list[Request] = field(default_factory=list)  # that its server got, in order


class Run:
    """A program that is to be run, with a folder of its own, open to every user.

    The system's commands are replaced by stand-ins, first in the PATH, which note how they were
    called. All that is set here may be changed before the start; a run may be started again.
    """

    def __init__(self, program: str, folder: str):
        self.program = program
        self.folder = folder
        for name in ("", "tmp", "bin", "work"):
            os.mkdir(f"{folder}/{name}")
        os.chmod(self.temp(), 0o1777)
        for name in COMMANDS:
            self.command(name, "")
        self.env = {"PATH": f"{folder}/bin:{SYSTEM_PATH}", "TMPDIR": self.temp(),
                    "QD_AGENT_INSTANCE": os.path.basename(folder)}
        self.env |= {name: os.environ[name]
                     for name in ("TZ", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS") if name in os.environ}
        self.texts: dict[str, str] = {}  # what {names} stand for in what is expected
        self.user = 0
        self.first = ""  # shell text, run by the process before it becomes the program
        self.stdin: int = subprocess.DEVNULL
        self.stdout: int | None = None  # in place of the file whose content is the outcome's
        self.timeout = 300
        self.most = 0  # MiB of memory; when it is seen to take more, it is ended
        self.starts = 0

    def side(self, name: str) -> str:
        """A place for the test's own files, out of the program's way."""
        return f"{self.folder}/{name}"

    def temp(self, name: str = "") -> str:
        return f"{self.folder}/tmp/{name}".rstrip("/")

    def command(self, name: str, body: str) -> None:
        """What the stand-in does after noting its call: shell text, with "$tmp" for the temporary
        folder and "$calls" for the file of the calls."""
        write(self.side(f"bin/{name}"), STAND_IN.format(side=self.folder, name=name, body=body), 0o755)

    def own(self, path: str) -> str:
        """Where the file lies that the program finds at this path below /etc or /var/lib. From now
        on these are the run's own: what is written there changes nothing on this machine."""
        if why := why_no_overlay():
            raise Skip(why)
        for top in OWN:
            os.makedirs(self.side(f"scratch{top}"), exist_ok=True)
            os.makedirs(self.side(f"own{top}"), exist_ok=True)
        os.makedirs(os.path.dirname(self.side(f"own{path}")), exist_ok=True)
        return self.side(f"own{path}")

    def config(self) -> str:
        """Where its update.toml lies."""
        return self.own(f"/etc/qd/update.{self.env['QD_AGENT_INSTANCE']}.toml")

    def start(self, *args: str) -> None:
        self.starts += 1  # commands of an earlier run that was ended may still note their calls
        words = [self.program, *args]
        if self.first:
            words = ["/bin/sh", "-c", f'{self.first}\nexec "$@"', "sh", *words]
        identity = {}
        if os.path.isdir(self.side("own")):
            mounts = [OVERLAY.format(top=top, upper=self.side(f"own{top}"),
                                     scratch=self.side(f"scratch{top}")) for top in OWN]
            words = ["unshare", "--mount", *MAPPED, "sh", "-ec", "; ".join([*mounts, 'exec "$@"']), "sh", *words]
        elif MAPPED and self.user == 0:
            words = ["unshare", *MAPPED, *words]
        elif not MAPPED and self.user != 0:
            identity = {"user": self.user, "group": self.user, "extra_groups": []}
        with open(self.side(f"out{self.starts}"), "ab") as out, open(self.side(f"err{self.starts}"), "ab") as err:
            self.process = subprocess.Popen(
                words, cwd=self.side("work"), env={**self.env, "QD_CALLS": self.calls()},
                stdin=self.stdin, stdout=out if self.stdout is None else self.stdout, stderr=err, **identity)

    def calls(self) -> str:
        return self.side(f"calls{self.starts}")

    def finish(self) -> Outcome:
        ends = time.monotonic() + self.timeout
        ended, stopped = os.pidfd_open(self.process.pid), ""
        while not select.select([ended], [], [], 0.01 if self.most else self.timeout)[0]:
            if self.most and memory(self.process.pid) > self.most:
                stopped = f"took more than {self.most} MiB"
            elif time.monotonic() > ends:
                stopped = "timed out"
            if stopped:
                end_tree(self.process.pid)
                break
        os.close(ended)
        status: int | str = self.process.wait()
        if status < 0:
            status = stopped or signal.Signals(-status).name
        files = os.listdir(self.temp()) if os.path.isdir(self.temp()) else []
        files += [f"work/{name}" for name in os.listdir(self.side("work"))]
        return Outcome(status, records(read(self.temp("agent_upd.log"))),
                       read(self.side(f"out{self.starts}")), read(self.side(f"err{self.starts}")),
                       lines(read(self.calls())), sorted(files))

    def go(self, *args: str) -> Outcome:
        self.start(*args)
        return self.finish()

#!/usr/bin/env python3
"""The program as a process: its arguments, what it inherits and passes on, signals, and its log."""

import os
import signal
import sys
from functools import partial

from harness import NOBODY, Answer, Row, difference, fill, logged, main, read, records, write
from harness.linux import CONF, DEB, PACKAGE

USAGE = "Usage : \nupdate [-D] <url> <version>\n"
DEAD = "http://127.0.0.1:9"
updated = partial(Row, calls="{commands}")


# --- arguments

def wrong(name: str, *args: str) -> Row:
    return Row("Wrong:" + name, args=list(args), status=1, out=USAGE, err="", files="", user=NOBODY)


def decoded(name: str, encode) -> Row:
    """`encode` returns, for the server's address, the argument and what that stands for."""
    def asked(run, _):
        argument, run.texts["address"] = encode(run.texts["S"])
        return run.go(argument, "7.2.0.1")
    return Row("Address:" + name, good={}, drive=asked, status=2, has="NFY Udpate server : {address}",
               check=logged("ERR Request {address}/agent_setup_def.json failed : ["))


def hexa(text: str) -> str:
    return text.encode().hex()


def told_on_output(run, outcome):
    if "temp_directory_path" not in outcome.out or outcome.out.endswith("\n"):
        yield f"output: {outcome.out}"


ARGUMENTS = [
    wrong("no version", hexa(DEAD)),
    wrong("one more", "-D", hexa(DEAD), "7.2.0.1", "more"),
    *(wrong(option, option, hexa(DEAD), "7.2.0.1") for option in ("-X", "-d", "", "-DS")),
    decoded("two slashes at the end", lambda url: (hexa(url + "//"), url + "/")),
    decoded("capital and odd digits", lambda url: (hexa(url).upper() + "2", url)),
    decoded("up to what is no digit", lambda url: (hexa(url) + "/2f2f", url)),
    decoded("up to NUL", lambda url: (hexa(url) + "002f", url)),
    decoded("longest", lambda url: (hexa((url + "/").ljust(4095, "a")), (url + "/").ljust(4095, "a"))),
    decoded("plain text", lambda url: (url, "")),
    Row("AddressOf4096", args=["-D", hexa(DEAD.ljust(4096, "a")), "{V}"], status=1,
        out="{echo}" + USAGE, log="EXCP:ERR NET: convertHexStrNullToBin: Buffer too small"),
    updated("NoOptionNoEcho", out=""),
    updated("EchoIsTheLog", option="-D", out="{echo}"),
    Row("NoTemporaryFolderIsToldOnOutput", env={"TMPDIR": "/nowhere"}, check=told_on_output, connections=0, files=""),
]


# --- what is inherited, and what the commands get

def start(name: str, probe: str, expected: str, first: str = "", **more) -> Row:
    """A good update whose installing command prints what `probe` does, whatever was inherited."""
    def probed(run, outcome):
        texts = {"bin": run.side("bin"), "pid": str(run.process.pid)}
        yield from difference("probe", read(run.side("seen")).split(), fill(expected, texts).split())
    return updated("Start:" + name, option="-D", first=first, check=probed, log="{update}",
                   commands={"systemctl": "echo noise; echo noise >&2",
                             "dpkg": f'{{ {probe}; }} > "$tmp/../seen"'}, **more)


def mask(process: str, line: str, *signals: signal.Signals) -> str:
    """Prints the bits of the signals in a mask of /proc, of the command or of the program. Whoever
    starts a command blocks signals until it runs: bits that are set are looked at for 10 s."""
    bits = sum(1 << number - 1 for number in signals)
    return (f"{GROUP}; for n in $(seq 200); do mask=$((0x$(sed -n 's/{line}:[[:space:]]*//p' "
            f"/proc/{process}/status) & {bits})); [ $mask = 0 ] && break; sleep 0.05; done; echo $mask")


GROUP = "read -r _ _ _ _ group _ < /proc/$$/stat"
IGNORED = mask("$$", "SigIgn", signal.SIGCHLD, signal.SIGPIPE)
BLOCKED = mask("$group", "SigBlk", signal.SIGHUP, signal.SIGINT, signal.SIGTERM, signal.SIGPIPE)
OPEN = "for n in 0 1 2; do [ -e /proc/$$/fd/$n ] || echo no $n; done; echo noise >&2; echo all there"
STARTS = [
    start("signals ignored", IGNORED, "0", 'set -- env --ignore-signal=CHLD --ignore-signal=PIPE "$@"'),
    start("signals blocked", BLOCKED, "0", 'set -- env --block-signal "$@"'),
    start("PATH without sbin", 'echo "$PATH"', "{bin}:/bin:/usr/sbin2:/usr/bin:/usr/sbin:/sbin",
          'PATH=${PATH%%:*}:/bin:/usr/sbin2:/usr/bin'),
    start("no frontend chosen", 'echo "$DEBIAN_FRONTEND $DPKG_FORCE"',
          "noninteractive security-mac,downgrade,confdef,confold"),
    start("frontend chosen", 'echo "$DEBIAN_FRONTEND $DPKG_FORCE"', "readline confnew",
          env={"DEBIAN_FRONTEND": "readline", "DPKG_FORCE": "confnew"}),
    start("a shell's start-up files", 'echo "${ENV-none} ${BASH_ENV-none}"', "none none",
          "export ENV=/nowhere BASH_ENV=/nowhere"),
    start("group of its own", f"{GROUP}; echo $group", "{pid}"),
    start("nothing of ours is passed on", "ls /proc/self/fd", "0 1 2 3"),
    *(start(f"descriptors closed: {closed}", OPEN, "all there",
            "exec " + " ".join(f"{n}>&-" for n in range(3) if closed >> n & 1))
      for closed in (1, 6, 7)),
]


# --- signals, and outputs that nobody reads any more

def reader_gone(run) -> None:
    read_end, run.stdout = os.pipe()
    os.close(read_end)


def signalled(name: str, ended: int | str, during: str, whom: str = "$group") -> Row:
    """A signal between the stop and the start leaves the agent running."""
    body = f"{GROUP}; kill -{name} {whom}"
    if during == "systemctl":
        body = f'[ "$1" = start ] || {{ {body}; }}'
    return updated(f"{name}During:{during}{'Group' * (whom == '0')}", commands={during: body},
                   status=ended, has="NFY Agent Started")


def terminate(run, _piece) -> None:
    os.kill(run.process.pid, signal.SIGTERM)


SIGNALS = [
    updated("EchoWhoseReaderIsGone", option="-D", prepare=reader_gone, log="{update}",
            commands=dict.fromkeys(("dpkg", "systemctl"), "echo noise; exit 0")),
    *(signalled(name, status, during) for during in ("systemctl", "dpkg")
      for name, status in (("TERM", "SIGTERM"), ("HUP", "SIGHUP"), ("PIPE", 0))),
    signalled("TERM", "SIGTERM", "dpkg", "0"),  # the command itself goes, too
    signalled("INT", 0, "dpkg", "0"),  # while it waits for a command, system() ignores SIGINT
    *(signalled(name, "SIG" + name, "dpkg") for name in ("ALRM", "USR1", "XFSZ")),
    Row("TermBeforeTheStopEndsTheRunAtOnce", {"GET " + DEB: Answer(PACKAGE, paced=terminate)},
        status="SIGTERM", calls=""),
]


# --- the agent's own unit, and where the log is

def own_unit(run) -> None:
    write(run.side("groups"), "0::/system.slice/qdagent.service\n")
    run.own("/etc/")
    run.first = (f"mount --bind {run.side('groups')} /proc/$$/cgroup && "
                 "mount -t tmpfs tmpfs /sys/fs/cgroup || exit 99")


def busctl_alone(run, outcome):
    if len(outcome.calls) != 1 or not outcome.calls[0].startswith("busctl "):
        yield f"commands: {outcome.calls}"
    ends = ["WRN Cannot leave the agent's unit : busctl ended with 1",
            "ERR Cannot stop the agent from within its own unit"]
    yield from difference("first and last record", [outcome.log[0], outcome.log[-1]], ends)


def log_in(name: str, instance: str | None, folder: str, log: str) -> Row:
    """The configuration folder that ends in `folder` has the data folder's name."""
    def configure(run) -> None:
        os.mkdir(run.side("data"))
        write(run.own(f"{CONF}{folder}/dbdir.cfg"), run.side("data"))
        run.own(CONF + ".x/")
        if instance is None:
            del run.env["QD_AGENT_INSTANCE"]

    def is_there(run, outcome):
        if "NFY Check Update" not in records(read(run.side(log))):
            yield f"no log {log}"
    return Row("Log:" + name, args=["", "none"], status=4, prepare=configure, check=is_there,
               env={"QD_AGENT_INSTANCE": instance or ""})


LOGS = [
    Row("AgentUnitIsNotStoppedByWhomItWouldTakeAlong", prepare=own_unit, status=11,
        commands={"busctl": "exit 1"}, check=busctl_alone),
    log_in("no instance", None, "", "data/UpdLogs/agent_upd.log"),
    log_in("instance", "a2", ".a2", "data/UpdLogs/agent_upd.log"),
    log_in("other instance", "a3", ".a2", "tmp/agent_upd.log"),
    log_in("instance elsewhere", "x/../../conf", "", "tmp/agent_upd.log"),
]

if __name__ == "__main__":
    sys.exit(main(__doc__, ARGUMENTS + STARTS + SIGNALS + LOGS))

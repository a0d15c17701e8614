#!/usr/bin/python3
"""Runs with [trust] and [rollout], against repositories that qd-repo made."""

import functools
import os
import subprocess
import sys
import tempfile
import time

from fetch import part
from harness import Answer, Place, Row, Server, Skip, difference, fill, main, read, write
from harness.suite import PROGRAMS, logged
from qd_repo import Publisher, files
from settings import STATE, both, drop_in, installed, row as settings_row, state, tells

HOME = tempfile.TemporaryDirectory(prefix="qd-trust.")
ARCH = subprocess.run(["dpkg", "--print-architecture"], capture_output=True, text=True).stdout.strip()
TARGET = f"/targets/linux/{ARCH}/"
DATABASE = {"dpkg-query": 'cat "$tmp/../installed"', "dpkg-deb": 'exec /usr/bin/dpkg-deb "$@"',
            "dpkg": 'for file; do :; done; case $* in *"-i /"*) echo "ii |$(/usr/bin/dpkg-deb -f "$file" Version)" '
                    '>"$tmp/../installed";; esac'}


@functools.cache
def publisher(name: str) -> Publisher:
    programs = PROGRAMS | dict(word.split("=", 1) for word in sys.argv if "=" in word)
    return Publisher(Place(f"{HOME.name}/{name}", programs))


@functools.cache
def repositories() -> dict[str, dict]:
    """What a server has at several moments of a repository's life, by name."""
    ours = publisher("ours")
    made = {"empty": files(ours.repo)}
    for name, line, *versions in (
            ("good", "publish repo --channel stable", "7.2.1.15"),
            ("halted", "halt repo 7.2.1.15"),
            ("resumed", "resume repo 7.2.1.15"),
            ("nobody", "publish repo --channel stable --percent 0", "7.2.1.16"),
            ("older", "publish repo --channel stable", "7.2.0.1"),
            ("former", "publish repo --channel stable --no-rollback", "7.2.0.2"),
            ("final", "publish repo --channel stable --no-rollback", "7.2.1.17")):
        ours(line, *(ours.package(version, ARCH) for version in versions))
        made[name] = files(ours.repo)
    assert not ours.wrong, ours.wrong
    made["forged"] = {path: b"X" + body[1:] if path.startswith(TARGET) else body
                      for path, body in made["good"].items()}
    made["longer"] = {path: body + b"X" if path.startswith(TARGET) else body for path, body in made["good"].items()}
    stamp = "/metadata/timestamp.json"
    made["tired"] = made["good"] | {stamp: [503, made["good"][stamp]]}
    made["guarded"] = {path: lambda request, run, give=part(body, '"t"'): give(request, run) if "authorization" in
                       request.headers else 401 for path, body in made["good"].items()}
    made |= {f"slow {name}": made[name] | {path: Answer(body, paced=lambda *_: time.sleep(3)) for path, body in
             made[name].items() if TARGET in path or name == "good"} for name in ("good", "forged", "former")}
    made["busy"] = {path: 503 if path.startswith(TARGET) else body for path, body in made["good"].items()}
    made["edited"] = {path: body.replace(b'"7.2.1.15"', b'"7.2.1.16"') for path, body in made["good"].items()}
    return made


CONFIG = '[install]\nrehearse = false\n[trust]\nroot = "/etc/qd/update-root.json"\n'


def before(run) -> None:
    installed()(run)
    write(run.own("/etc/qd/update-root.json"), repositories()["empty"]["/metadata/1.root.json"])


def then(name: str, *args: str):
    """A second run, for which the server has become another."""
    def drive(run, words):
        run.go(*words)
        with Server(repositories()[name], run.texts, run) as server:
            again = [words[0], server.url.encode().hex(), *words[2:]] if words[0] == "-D" else \
                [server.url.encode().hex(), *(args or words[1:])]
            outcome = run.go(*again)
            run.texts["again"] = " | ".join(request.line for request in server.requests)
        return outcome
    return drive


def asked(expected: str):
    def check(run, _):
        yield from difference("requests", run.texts["again"].split(" | "), expected.split(" | "))
    return check


def clock(years: int):
    """The run's clock is ahead by years, or behind."""
    def prepare(run) -> None:
        before(run)
        run.env |= {"LD_PRELOAD": run.texts["shim"], "QD_FAULT": f"clock:{years * 31557600}"}
    return prepare


def set_right(run, words):
    run.go(*words)
    del run.env["QD_FAULT"]
    return run.go(*words)


def closed() -> str:
    """A window that opens in two hours."""
    opens = time.localtime(time.time() + 7200)
    return f'[rollout]\nwindow = ["{opens.tm_hour:02}:00-{opens.tm_hour:02}:59"]\n'


def row(name: str, server: str = "good", config: str = "", status: int = 0, message: str = "",
        outcome: str = "", **more) -> Row:
    usual = {0: "updated", 21: "deferred", 24: "refused", 25: "refused", 26: "rolled-back"}.get(status, "failed")
    said = {"status": status, "outcome": outcome or usual} | ({"message": message} if message else {})
    more.setdefault("calls", "" if status else None)
    checks = [tells(said, more.pop("history", 1)), *more.pop("checks", [])]
    return settings_row(name, repositories()[server], config=CONFIG + config, commands=DATABASE, good={},
                        prepare=more.pop("prepare", before), status=status, connections=9,
                        check=lambda run, outcome: [wrong for check in checks for wrong in check(run, outcome)],
               **more)


AILS = {"status": 27, "calls": None, "config": "[health]\nsettle = '0s'\ntimeout = '9s'\n", "prepare": both(
    before, drop_in("health/x", "[ $QD_UPDATE_PHASE != health ]"))}


HASTE = "[fetch]\ndeadline = '16s'\n"


def target(version: str) -> str:
    """The package under its SHA-256; the other name is its SHA-512."""
    return next(path for path in sorted(repositories()["final"], key=len)
                if TARGET in path and path.endswith(f"_{version}.deb"))


def rows() -> list[Row]:
    file = target("7.2.1.15")
    refresh = "GET /metadata/2.root.json | GET /metadata/timestamp.json"
    first = refresh + " | GET /metadata/{}.snapshot.json | GET /metadata/{}.targets.json"
    late = "7.2.1.15 is inhibited here by backup"
    return [
        row("Updates", requests=first.format(2, 2) + f" | GET {file}"),
        row("AsksTwiceWhereNothingIsNew", drive=then("good", "7.2.1.15"), calls="", history=2,
            checks=[asked(refresh)], outcome="up-to-date"),
        row("ComesBackToATiredServer", "tired"),
        *(row("RefusesPackage" + name, name, status=24, calls="{ask}") for name in ("forged", "longer")),
        row("RefusesEditedMetadata", "edited", status=24),
        row("RefusesAnOlderRepository", "halted", drive=then("good"), status=24, history=2),
        row("HaltedIsDeferred", "halted", status=21, message="7.2.1.15 is halted by its publisher"),
        row("NobodysShareIsDeferred", "nobody", version="7.2.1.15", status=21,
            message="7.2.1.16 is not for this machine's share of the roll-out yet"),
        row("PinHoldsBack", config='[rollout]\npin = "7.1.*"\n', status=21,
            message="7.2.1.15 is outside the pin 7.1.*"),
        row("WindowHoldsBack", config=closed(), status=21),
        row("MarkHoldsBack", prepare=both(before, drop_in("inhibit/backup", "")), status=21, message=late),
        row("WhatAiledIsNotAskedForAgain", drive=then("good"), history=2, checks=[asked(refresh)], **AILS | {
            "status": 25, "config": AILS["config"] + "rollback = false\n"}),
        row("FetchesTheWayBack", "former", **AILS | {"status": 26}, requests=first.format(7, 7) +
            f" | GET {target('7.2.0.1')} | GET {target('7.2.1.15')}"),
        *(row(name, server, **AILS, version=version, has=f"WRN No way back : {why}")
          for name, server, version, why in (
            ("ComesWithoutAWayBack", "final", "7.2.0.1", "7.2.1.17 is released without a way back"),
            ("MayNotGoBack", "former", "7.2.0.2", "no machine may go back to 7.2.0.2, as its release says"))),
        *(row(f"ClockIsWrongBy{years}Years", prepare=clock(years), status=status)
          for years, status in ((-30, 21), (-1, 21), (1, 24), (11, 24))),
        *(row(f"ClockWasWrongBy{years}Years", prepare=clock(years), drive=set_right, history=2) for years in (-30, 11)),
        row("NeedsItsFirstRoot", prepare=installed(), status=20, requests=""),
        *(row("TrustsNo" + name, status=20, requests="", prepare=both(before, lambda run, path=path: os.chmod(
            run.own(fill(path, run.texts)), 0o777)))
          for name, path in (("RootOfOthers", "/etc/qd/update-root.json"), ("MetadataOfOthers", STATE + "/tuf/"))),
        row("TriesTheMirrors", "guarded", drive=mirrored),
        row("TriesTheMirrorsBeforeItWaits", "guarded", drive=functools.partial(mirrored, name="busy"), checks=[
            lambda _, outcome: ["waited"] * any("again in" in line for line in outcome.log)]),
        *(row(name, "guarded", config=HASTE, drive=functools.partial(mirrored, name=first), checks=[
            logged("Resuming the download at")])
          for name, first in (("LeavesASlowServer", "slow good"), ("LeavesASlowServerThatLies", "slow forged"))),
        row("LeavesASlowServerOfTheWayBack", "former", drive=functools.partial(mirrored, name="slow former"),
            **AILS | {"status": 26, "config": AILS["config"] + HASTE}),
        row("FindsNoSuchChannel", config='channel = "other"\n', outcome="up-to-date", calls="",
            message="the repository has no release for this machine in the channel other"),
        settings_row("TrustsRootsThatFollow", {}, program="qd-update", config=CONFIG, drive=trusts, args=[], good={},
                     requests="", status=24, check=lambda run, _: filter(None, [run.texts.get("amiss")])),
    ]


ANOTHER = "Nothing was changed: another root is trusted already, and this one does not follow from it; " \
    "--replace begins anew\n"
ROOTS = [  # what is trusted one after the other, how it ends, and what is said of it
    ("first", 24, "Nobody can be asked here; --yes takes the root as it is shown.\nNothing was changed.\n"),
    ("first --yes", 0, ""), ("other --yes", 24, ANOTHER), ("second --yes", 0, ""), ("first --yes", 24, ANOTHER),
    ("other --yes --replace", 0, ""), ("other --yes --replace", 0, ""), ("first --yes", 24, ANOTHER)]


def trusts(run, _):
    """Roots from the command line, the last of which went back in time."""
    for name, text in roots().items():
        write(run.side(name), text)
    for words, status, said in ROOTS:
        name, *options = words.split()
        write(state(run, "tuf/timestamp.json"), "{}")
        outcome = run.go("trust", run.side(name), *options)
        forgets = not os.path.exists(state(run, "tuf/timestamp.json"))
        end = len(outcome.err) - len(said)
        kept = read(state(run, "tuf/root.json")) == roots()[name].decode()
        gone = "--replace" in words or name == "second"  # its timestamp has another key
        if (outcome.status, outcome.err[end:], kept, forgets) != (status, said, status == 0, gone):
            run.texts["amiss"] = f"{words}: {outcome}"
            break
    return outcome


@functools.cache
def roots() -> dict[str, bytes]:
    ours, first = publisher("ours"), repositories()["empty"]["/metadata/1.root.json"]
    ours.key("stamp")
    ours(f"rotate repo timestamp --add keys/stamp.pub --remove {ours.key_of('timestamp')}")
    second = (ours.repo / "metadata/2.root.json").read_bytes()
    other = (publisher("other").repo / "metadata/1.root.json").read_bytes()
    return {"first": first, "second": second, "other": other}


def mirrored(run, words, name=""):
    """The server that is asked first has nothing, or no package, and the mirror asks for a password."""
    path = run.own(fill("/etc/qd/update.{I}.toml", run.texts))
    write(path, f'mirrors = ["{run.texts["S"]}"]\n'.replace("//", "//u:pw@") + read(path), 0o600)
    with Server(repositories().get(name, {}), run.texts, run) as first:
        return run.go(first.url.encode().hex(), *words[1:])


if __name__ == "__main__":
    try:
        repositories()
    except Skip as missing:
        print(missing)
        sys.exit(77)
    sys.exit(main(__doc__, rows()))

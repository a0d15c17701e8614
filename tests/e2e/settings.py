#!/usr/bin/python3
"""Whole runs with an update.toml: statuses, records, hooks, lock, and what is told of faults."""

import hashlib
import json
import os
import re
import subprocess
import sys
import time
from functools import partial
from pathlib import Path

import jsonschema

from harness import STATE, Row, blocks, difference, fill, main, read, state, write
from harness.linux import BLOCKS, DEB, DIGEST, PACKAGE, VERSION, WRONG

TOP = Path(__file__).resolve().parents[2]
SCHEMA = json.loads((TOP / "share/status.schema.json").read_text())
# What dpkg-query says of the agent is in the file "installed".
QUERY = 'cat "$tmp/../installed"'
INSTALL = 'printf "Reading 5%%\\rUnpacking\\n"; echo "ii |7.2.1.15" >"$tmp/../installed"'
PLAN = "Inst qdagent [7.2.0.1] (7.2.1.15 local [all])"
BACK = 'echo "ii |7.2.0.1" >"$tmp/../installed"'


def dpkg(install: str = INSTALL, query: str = QUERY, field: str = "Package: qdagent",
         plan: str = PLAN, back: str = BACK) -> dict[str, str]:
    """Stand-ins of a package manager: `install` is what an installation does, `back` a roll-back."""
    return {"dpkg-query": query, "dpkg-deb": f'echo "{field}"', "apt-get": f'echo "{plan}"',
            "dpkg": f'case $1 in -i) {install};; --force-downgrade) {back};; esac'}


DATABASE = dpkg()
DEAF = DATABASE | {"systemctl": '[ "$1" != start ]'}
GOOD = {"status": 0, "outcome": "updated", "phase": "done", "cause": "", "message": "",
        "from": "7.2.0.1", "to": "7.2.1.15", "bytes": len(PACKAGE), "size": len(PACKAGE), "attempts": 1}

PAST = {"schema": 1, "run": "0" * 32, "program": "1.1.0", "from": "7.2.0.1", "to": "7.2.1.15",
        "phase": "done", "outcome": "updated", "status": 0, "cause": "", "message": "",
        "started": "2026-03-01T14:05:09Z", "ended": "2026-03-01T14:06:00Z", "bytes": 1, "size": 1,
        "attempts": 1, "rolled_back_from": None, "deferred_until": None, "bad": []}


def told(run) -> list[dict]:
    """status.json and the lines of the history, each of which fits the schema."""
    records = [json.loads(read(state(run)))]
    records += [json.loads(line) for line in read(state(run, "history.jsonl")).splitlines()]
    for record in records:
        jsonschema.validate(record, SCHEMA)
    return records


def tells(expected: dict, history: int = 1):
    """That the record says so, the history's last line the same, and that it has so many lines."""
    def check(run, _):
        status, *lines = told(run)
        seen = {name: status[name] for name in expected}
        yield from difference("record", [str(seen)], [fill(str(expected), run.texts)])
        if len(lines) != history or lines[-1:] != [status]:
            yield f"history: {lines}"
        for name in ("status.json", "history.jsonl"):
            if os.stat(state(run, name)).st_mode & 0o777 != 0o644:
                yield f"mode of {name}"
    return check


def faulty(name: str, said: str, text: str = "", prepare=lambda run: None) -> Row:
    """A configuration of which a person is told so, and which ends the run before any request."""
    needs = ["grep -q 4294967295 /proc/self/uid_map"] if "{foreign}" in said else []
    return row(name, needs=needs, config=text, prepare=prepare, err=said, status=20, requests="", calls="",
               check=tells({"status": 20, "cause": "configuration", "message": said, "phase": "check",
                            "outcome": "failed"}))


def drop_in(path: str, text: str, mode: int = 0o755, owner: int = 0):
    def prepare(run):
        file = run.own(f"/etc/qd/update.d/{path}")
        write(file, fill("#!/bin/sh\n" + text, run.texts), mode)
        if owner:
            os.chown(file, owner, -1)
    return prepare


def installed(version: str = "ii |7.2.0.1"):
    return lambda run: write(run.side("installed"), version + "\n")


def both(*steps):
    """Preparations, or checks, one after the other."""
    return lambda *args: [wrong for step in steps for wrong in step(*args) or ()]


def lock(milliseconds: int, note: str = ""):
    """A lock of the former kind, and what the lock beside the records says of it."""
    def prepare(run):
        taken = str(int(time.time() * 1000) + milliseconds)
        write(run.temp("upgrade_ovt.lock"), taken + "\n")
        write(state(run, "lock"), note or taken, 0o600)
    return prepare


BLOCKS_WITH_FILE = blocks("""
[path] {folder of downloads}/{P}
[folder of downloads] /var/lib/qd/update.{I}/partial
[opening] {identified} | NFY tempdir is [{folder of downloads}] | NFY arch  is [{M}]
[file] /etc/qd/update.{I}.toml
[own] /etc/qd/update.d
[foreign] belongs to user 7, not to root: somebody else could change it; see to its content, then chown root
[others] others than root may write to it; see to its content, then chmod go-w
[before] NFY Hook before-1 | NFY before-1: {V} 7.2.1.15 prepare running 0
[ask] dpkg-query --show --showformat=${db:Status-Abbrev}|${Version}\\n qdagent
[fits] dpkg-deb --field {path} Package Version Installed-Size Pre-Depends Depends | dpkg-query --listfiles qdagent
dpkg-query --show --showformat=${db:Status-Status}\\n | dpkg --no-act -i {path}
apt-get -q --simulate --no-install-recommends --allow-downgrades install {path}
[show] systemctl show --property=Type,ActiveState,SubState,MainPID,NRestarts,ActiveEnterTimestampMonotonic qdagent
[its files] dpkg-query --show --showformat=${Conffiles}\\n qdagent
[fits back] {its files}
dpkg-deb --field {keep} Package Version Installed-Size Pre-Depends Depends
[keep] /var/lib/qd/update.{I}/keep/7.2.0.1.deb
[brings] --description=Bring an interrupted update of the backup agent to an end --on-active=20s --on-unit-active=20s
[once] --timer-property=AccuracySec=1s --property=Type=oneshot --property=KillMode=mixed
[given] --setenv=QD_AGENT_INSTANCE={I} --setenv=TMPDIR={T} --setenv=DPKG_FORCE=security-mac,downgrade,confdef,confold
[timer] systemd-run --quiet --collect --unit=qd-update-window-{I}.timer {brings} {once} --property=TimeoutStopSec=infinity
[has timer] {timer} --property=SuccessExitStatus=12 {given} {qd-update} recover
[ends timer] systemctl stop qd-update-window-{I}.timer
[put back] dpkg --force-downgrade -i {keep} | {its files} | systemctl daemon-reload | systemctl reset-failed qdagent
""")
row = partial(Row, config="", commands=DATABASE, prepare=installed(), blocks=BLOCKS | BLOCKS_WITH_FILE)

RUNS = [
    row("Updates", calls="{ask} | {fits} | {ask} | {stop} | {install} | {start} | {ask}", files="agent_upd.log",
        has="NFY Unpacking | NFY Remove lock file", check=both(
            tells(GOOD), lambda run, _: difference("partial", os.listdir(state(run, "partial")), []))),
    row("FindsNothingNewer", version="7.2.1.15", status=0, calls="", check=tells(
        {"outcome": "up-to-date", "status": 0, "phase": "done", "to": "7.2.1.15", "message": ""})),
    row("InstallationThatFailed", status=13, has="NFY no space", check=tells(
        {"cause": "install-failed", "phase": "start",
         "message": "the installation failed: no space; there is now: 7.2.0.1"}),
        commands=dpkg("echo no space >&2; exit 2")),
    row("InstallationThatOnlySeemedToWork", status=13, check=tells(
        {"message": "the installation failed; there is now: 7.2.1.15 (iF)"}),
        commands=dpkg('echo "iF |7.2.1.15" >"$tmp/../installed"')),
    row("AgentThatDoesNotStart", status=14, commands=DEAF, check=tells(
        {"cause": "start-failed", "bad": [], "message": "the agent could not be started; there is now: 7.2.1.15"})),
    row("ServersTextIsOneLine", {VERSION: b"\x1b[2\xc2\x9bJ\n" + b"x" * 2000}, status=5, check=tells(
        {"message": "Invalid version_long.txt  [2  J " + "x" * 968 + "..."})),
    row("SecretsAreInNoRecord", {"GET " + DEB: 403}, status=2, calls="{ask}", drive=lambda run, args: run.go(
        run.texts["S"].replace("//", "//u:pw@").encode().hex(), args[1]), check=tells(
            {"outcome": "failed", "cause": "transfer", "phase": "fetch", "bytes": 0, "attempts": 1,
             "message": "cannot get {F}/setup.deb: the server answers 403"})),
    row("HookRefuses", status=28, calls="{ask} | {fits}", prepare=both(installed(), drop_in(
        "hooks/before-1", 'echo $QD_UPDATE_FROM $QD_UPDATE_TO $QD_UPDATE_PHASE $QD_UPDATE_OUTCOME '
        '$QD_UPDATE_STATUS; exit 3'), drop_in("hooks/before-2", "touch $TMPDIR/ran"),
        drop_in("inhibit/no.mark", ""), drop_in("hooks/Before-1", "")), has="WRN Passed over for its name, "
        "not of letters, digits, _ and - alone : {own}/inhibit/no.mark | WRN Passed over for its name, neither "
        "before-... nor after-... : {own}/hooks/Before-1 | {before} | WRN hook before-1 ended with 3",
        files="agent_upd.log", check=tells({"cause": "hook-refused", "phase": "prepare", "outcome": "refused",
                     "message": "hook before-1 ended with 3"})),
    row("HookExchangesThePackage", status=7, calls="{ask} | {fits}", prepare=both(
        installed(), drop_in("hooks/before-1", "echo >>{path}")),
        check=tells({"message": "the package was exchanged after its verification"})),
    row("HookAfterwardsIsOnlyRecorded", {DEB: [PACKAGE, WRONG]}, status=7, prepare=both(
        installed(), drop_in("hooks/after-1", 'echo $QD_UPDATE_STATUS $QD_UPDATE_CAUSE; exit 1')),
        has="NFY after-1: 7 wrong-digest | WRN hook after-1 ended with 1"),
    row("LockOfARunThatDied", prepare=both(installed(), lock(-1000)), check=tells(GOOD)),
    row("LockOfARunWithoutSettings", status=12, calls="", requests="", prepare=both(
        installed(), lock(-1000, "1")), check=tells({"cause": "locked", "outcome": "deferred"})),
]

FITS = [
    row("OnHold", status=21, calls="{ask}", requests="{GET version}", prepare=installed("hi |7.2.0.1"),
        check=tells({"cause": "deferred", "outcome": "deferred", "message":
                     "the package qdagent is on hold; apt-mark unhold qdagent ends that"})),
    row("OnHoldSinceItBegan", status=21, calls="{ask} | {fits} | {ask}", prepare=both(installed(), drop_in(
        "hooks/before-1", 'echo "hi |7.2.0.1" >$TMPDIR/../installed'))),
    row("LibrariesWaitForTheLock", version="7.2.0.0", prepare=installed(), commands=DATABASE | {
        "apt-get": f'case "$*" in *simul*) echo "{PLAN}";; *-o*Lock::Timeout=*) ;; *) exit 9; esac'},
        has="NFY Install xcb dependencies0"),
    row("NoRoomForTheDownload", config="install.reserve = '900000GiB'", status=22, calls="{ask}",
        requests="{HEAD}", check=tells({"cause": "no-room"})),
    row("NoRoomForTheInstallation", commands=dpkg(field="Package: qdagent\nInstalled-Size: 99999999999999"),
        status=22, check=tells({"phase": "prepare"})),
    *(row(name, commands=dpkg(**what), status=13, check=tells(
        {"cause": "rehearsal", "phase": "prepare", "message": "the installation would fail, so nothing "
         f"was stopped: {why}; there is now: 7.2.0.1"})) for name, what, why in [
            ("PlanRemovesAPackage", {"plan": "Remv other [1]"}, "it would remove other"),
            ("PlanInstallsMore", {"plan": "Inst other (1 x [all])"}, "it would install other, too"),
            ("PlanIsEmpty", {"plan": ""}, "the package is not in the plan"),
            ("OlderThanTold", {"field": "Package: qdagent\nVersion: 7.1.0.0"},
             "the package is qdagent 7.1.0.0, not qdagent 7.2.1.15")]),
]

HEALTH = partial(row, status=27, config="health = {rollback = false, settle = '1s', timeout = '90s'}")


def unit(*states: str, database: dict[str, str] = DATABASE) -> dict[str, str]:
    """systemctl that shows these states of the unit one after the other, the last for good."""
    cases = " ".join(f"{number}) echo '{state}';;" for number, state in enumerate(states[:-1]))
    return database | {"systemctl": f'[ "$1" = show ] || exit 0; n=$(cat "$tmp/../n" || echo 0); '
                       f"""echo $((n + 1)) >"$tmp/../n"; case $n in {cases} *) echo '{states[-1]}';; esac"""}


def ails(why: str):
    return tells({"cause": "unhealthy", "outcome": "failed", "phase": "health", "bad": ["7.2.1.15"], "message":
                  f"the agent is unhealthy: {why}; the former version was not put back, since "
                  "health.rollback is false; there is now: 7.2.1.15"})


def bad(digest: str, version: str = "7.2.1.15"):
    entry = {"version": version, "sha256": "", "md5": digest, "since": "2026-03-01T14:05:09Z", "cause": "why"}
    return lambda run: write(state(run, "bad.json"), json.dumps([entry]))


def is_bad(run, _):
    """That the version that ailed is in the list, which all can read, by its digest."""
    entry, = json.loads(read(state(run, "bad.json")))
    yield from difference("bad", [entry["version"], entry["md5"], entry["cause"]],
                          ["7.2.1.15", DIGEST, "its unit is failed (failed)"])


RUNNING = "ActiveState=active\nSubState=running\nMainPID=7\nNRestarts=0"
HEALTHS = [
    HEALTH("Healthy", status=0, commands=unit("ActiveState=activating", RUNNING), check=tells(GOOD),
           prepare=both(installed(), drop_in("health/x", "echo $QD_UPDATE_PHASE $QD_UPDATE_TO")),
           has="NFY x: prepare 7.2.1.15 | NFY x: health 7.2.1.15 | NFY The agent is healthy"),
    HEALTH("UpToDateIsDown", version="7.2.1.15", status=0, commands={"systemctl": "exit 3"}, check=tells(
        {"outcome": "up-to-date", "message": "the agent does not run"}), has="WRN The agent does not run"),
    HEALTH("DiesWhileItSettles", commands=unit(RUNNING, "ActiveState=failed\nSubState=failed"),
           check=both(ails("its unit is failed (failed)"), is_bad)),
    HEALTH("CheckThatFailedBefore", status=0, commands=unit(RUNNING), check=tells(GOOD),
           prepare=both(installed(), drop_in("health/x", "exit 3")), has="WRN check x ended with 3"),
    HEALTH("DatabaseThatOnceDoesNotAnswer", status=0, check=tells(GOOD), commands=unit(RUNNING, database=dpkg(
        INSTALL + '; >"$tmp/../busy"', query='rm "$tmp/../busy" 2>/dev/null && exit 2; ' + QUERY))),
    HEALTH("BadVersion", status=25, calls="systemctl is-active --quiet qdagent",
           requests="{GET version} | GET {folder}/{hash file}", prepare=both(installed(), bad(DIGEST)),
           commands={"systemctl": "exit 3"}, check=tells(
               {"cause": "known-bad", "outcome": "refused", "bad": ["7.2.1.15"], "message":
                "7.2.1.15 is known as bad here since 2026-03-01T14:05:09Z: why; qd-update forgive 7.2.1.15 ends that; "
                "the agent does not run"})),
    row("BadVersionPackagedAnew", requests="{requests}",
        prepare=both(installed(), bad("0" * 32)), check=tells(GOOD | {"bad": ["7.2.1.15"]})),
    HEALTH("AilsWithoutStarting", status=14, commands=DEAF,
           check=tells({"cause": "start-failed", "bad": ["7.2.1.15"]})),
]

FAILED = "ActiveState=failed\nSubState=failed"
BROKEN = "its unit is failed (failed)"
LEFT = "; there is now: 7.2.1.15; the agent runs; install a version that works by hand"
BACK_TO = partial(row, status=27, commands=unit(FAILED, RUNNING), prepare=installed(),
                  config="health = {settle = '0s', timeout = '90s'}")


def keep(run, name: str = "") -> str:
    return state(run, f"keep/{name}")


def kept(content: str | bytes = PACKAGE):
    """A package of the version that runs is kept, and another; by the list their content was PACKAGE."""
    def prepare(run):
        entries = [{"version": version, "file": version + ".deb", "md5": "", "rollback": True, "since": "then",
                    "sha256": hashlib.sha256(PACKAGE).hexdigest()} for version in ("7.2.0.1", "7.2.0.0")]
        write(keep(run, "kept.json"), json.dumps(entries))
        for entry in entries:
            write(keep(run, entry["file"]), content)
    return prepare


def keeps(*versions: str):
    """That these packages are kept, for root's eyes only, and nothing besides but the saved configuration."""
    def check(run, _):
        yield from difference("kept", sorted({*os.listdir(keep(run))} - {"configuration.tar"}),
                              sorted(version + ".deb" for version in versions) + ["kept.json"])
        yield from difference("list", [e["version"] for e in json.loads(read(keep(run, "kept.json")))], [*versions])
        yield from difference("mode", [oct(os.stat(keep(run)).st_mode & 0o777)], ["0o700"])
    return check


def stays(why: str, ailment: str = BROKEN):
    return tells({"cause": "unhealthy", "rolled_back_from": None, "bad": ["7.2.1.15"], "message":
                  f"the agent is unhealthy: {ailment}; the former version was not put back, since {why}{LEFT}"})


BACK_AGAIN = {"status": 26, "cause": "rolled-back", "outcome": "rolled-back", "phase": "rollback", "from": "7.2.0.1",
              "to": "7.2.1.15", "rolled_back_from": "7.2.1.15", "bad": ["7.2.1.15"],
              "message": f"7.2.1.15 ails: {BROKEN}; 7.2.0.1 was put back, and is healthy"}
NOTHING = "no package of 7.2.0.1 that could be verified was found"
ROLLBACKS = [
    BACK_TO("RollsBack", status=26, prepare=both(installed(), kept()), check=both(keeps("7.2.0.1", "7.2.0.0"), tells(
        BACK_AGAIN)), calls="{ask} | {fits} | {fits back} | {ask} | {has timer} | {stop} | {install} | {start} | "
            "{ask} | {show} | {stop} | {put back} | {start} | {ask} | {show} | {ends timer}"),
    *(BACK_TO(f"KeepsAtMost{most}", status=0, commands=unit(RUNNING), prepare=both(installed(), kept()),
              config=f"health = {{settle = '0s', keep = {most}}}", check=keeps(*versions))
      for most, versions in ((0, ["7.2.1.15"]), (2, ["7.2.1.15", "7.2.0.1"]))),
    BACK_TO("PutsNothingDamagedBack", prepare=both(installed(), kept(b"x")), check=stays(NOTHING),
            has=f"WRN the kept package of 7.2.0.1 is damaged | WRN No way back : {NOTHING}"),
    BACK_TO("RollBackFails", prepare=both(installed(), kept()), check=stays("no space"),
            commands=unit(FAILED, RUNNING, database=dpkg(back="echo no space; exit 2"))),
    BACK_TO("InstallsNothing", status=13, prepare=both(installed(), kept()), commands=unit(
        RUNNING, database=dpkg("echo no; exit 1")), check=tells({"rolled_back_from": None, "bad": []})),
]

METRICS = """qd_update_last_run_timestamp_seconds TIME
qd_update_last_success_timestamp_seconds {success}
qd_update_status {status}
qd_update_outcome{outcome="up-to-date"} 0
qd_update_outcome{outcome="updated"} {updated}
qd_update_outcome{outcome="deferred"} 0
qd_update_outcome{outcome="refused"} 0
qd_update_outcome{outcome="failed"} {failed}
qd_update_outcome{outcome="rolled-back"} 0
qd_update_version_info{installed="{left}",available="7.2.1.15",channel=""} 1
qd_update_bad_versions 0
qd_update_downloaded_bytes 20000"""


def metrics(**expected: str):
    """The metrics, whose form promtool accepts, of which the figures of time are left out."""
    def check(run, _):
        text = read(run.side("metrics/qd_update.prom"))
        tried = subprocess.run(["promtool", "check", "metrics"], input=text, text=True, capture_output=True)
        if tried.returncode or tried.stdout or tried.stderr:
            yield f"promtool: {tried}"
        seen = [line for line in text.splitlines() if line[0] != "#" and "_duration_" not in line]
        seen = [re.sub(r" (?!1772373960)\d{10}$", " TIME", line) for line in seen]
        yield from difference("metrics", seen, fill(METRICS, expected).splitlines())
        if text.count("\nqd_update_duration_seconds{phase=") != 9:
            yield text
    return check


def metrics_folder(run) -> None:
    os.mkdir(run.side("metrics"))
    write(state(run, "history.jsonl"), json.dumps(PAST, separators=(",", ":")) + "\n")


LONG = (json.dumps(PAST) + "\n") * 11
REPORT = partial(row, config="[report]\ntextfile = '{T}/../metrics'", prepare=both(installed(), metrics_folder))
REPORTS = [
    REPORT("MetricsOfAnUpdate", check=metrics(success="TIME", status="0", updated="1", failed="0", left="7.2.1.15")),
    REPORT("MetricsOfAFailure", status=14, commands=DEAF, check=metrics(
        success="1772373960", status="14", updated="0", failed="1", left="7.2.1.15")),
    row("HistoryIsRolled", config="[report]\nhistory = 4096", prepare=both(installed(), lambda run:
        write(state(run, "history.jsonl"), LONG + "{half a line")), check=both(tells(GOOD), lambda
            run, _: difference("history.jsonl.1", [read(state(run, "history.jsonl.1"))], [LONG]))),
]

FAULTY = [
    faulty("UnknownKey", '{file}:3:1: unknown key "fetch.prox"; did you mean "fetch.proxy"?', "\n[fetch]\nprox = 1"),
    faulty("WritableByOthers", "{file}: {others}", prepare=lambda run: os.chmod(run.config(), 0o664)),
    faulty("PasswordForAll", "{file}: holds a password that others can read; chmod 600 it, and change the password "
           "if others may have read it", "fetch.proxy = 'u:p@h'"),
    faulty("HookOfAUser", "{own}/hooks/before-1: {foreign}", prepare=drop_in("hooks/before-1", "", owner=7)),
    faulty("LinkToNowhere", "{own}/inhibit: a link to nowhere", prepare=both(
        drop_in("hooks/before-1", ""), lambda run: os.symlink("/gone", run.own("/etc/qd/update.d/inhibit")))),
    faulty("FolderOfHooksForAll", "{own}: {others}", prepare=both(
        drop_in("hooks/before-1", ""), lambda run: os.chmod(run.side("own/etc/qd/update.d"), 0o775))),
    faulty("FaultyBadVersions", f"{STATE}/bad.json: is no list of bad versions; see to its content, then remove it",
           prepare=lambda run: write(state(run, "bad.json"), "{")),
    faulty("CheckThatCannotRun", "{own}/health/x: is not executable; chmod +x it, or remove it",
           prepare=drop_in("health/x", "", 0o644)),
]

if __name__ == "__main__":
    sys.exit(main(__doc__, [*RUNS, *FITS, *HEALTHS, *ROLLBACKS, *REPORTS, *FAULTY]))

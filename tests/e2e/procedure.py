#!/usr/bin/env python3
"""Whole runs of the program against a server that follows a script: log, exit status, requests,
commands and files."""

import re
import sys
import time
from functools import partial

from harness import NOBODY, Answer, Row, blocks, difference, fill, items, main, read, redirect, write
from harness.linux import BLOCKS, DEB, DEFINITION, DIGEST, PACKAGE, SUM, VERSION, WRONG, entry

GET, HEAD = "GET " + DEB, "HEAD " + DEB
SHORT = PACKAGE[1:]
HOUR = 3600000

row = partial(Row, blocks=BLOCKS | blocks("""
[another] NFY Another instance of has been launched less than one hour ago
[found] DBG Lock file is [{lock file}]
[held] {greeting} | {found} | {another} {lock time} : lock file location is {lock file}
[lock unreadable] {greeting} | {found} | ERR checkLockFile error : stoll
[other sum] 0123456789abcdef0123456789abcdef
[other] {downloaded} | {rejected} {computed} vs {other sum}
[computed] {D}
[told] {until version} | NFY Downloaded md5 is {other sum} | {size}
[other three times] {told} | {other} | {other} | {other} | ERR Invalid setup md5
[unverified] {downloaded} | {installed}
[with x11] {until stop} | {stopped} | {upgrading} | NFY installXCBDeps ...
[as usual] NFY Agent Installed | {started}
[faulty] ERR Exception : Fail to parse agent_setup_def file
[apt-get] apt-get install -y libxrender1 libxcb1 {xcb} libxcb-image0 libxcb-util1 libxcb-cursor0 {others}
[xcb] libxcb-render0 libxcb-render-util0 libxcb-shape0 {randr} libxcb-icccm4 libxcb-keysyms1
[randr] libxcb-randr0 libxcb-xfixes0 libxcb-xkb1 libxcb-sync1 libxcb-shm0
[others] libxkbcommon0 libxkbcommon-x11-0 libfontconfig1 libfreetype6 libxext6 libx11-xcb1 libsm6 libice6
[paths]
/dev/null | /etc/localtime | /etc/os-release | /etc/qd/conf.{I}/dbdir.cfg | /proc/self/cgroup | /usr/bin/dpkg
/usr/lib/ssl/openssl.cnf
{T} | {T}/agent_upd.log | {T}/setup.deb | {T}/upgrade_ovt.lock | {T}/upgrade_ovt.lock.NEW
"""))


# --- what is added to the program is off without a configuration: nothing of a run may change

def trace(run) -> None:
    run.env.pop("TZ", None)
    run.env["ASAN_OPTIONS"] = "detect_leaks=0"  # which cannot look while it is traced itself
    run.first = 'set -- strace -qq -s 4096 -e trace=%file -o "$QD_CALLS.trace" "$@"'


def nothing_else(run, outcome):
    """Headers of the requests, and the paths from main's first call on: all of them."""
    for request in outcome.requests:
        host = run.texts["S"].removeprefix("http://")
        expected = {"host": host, "user-agent": "Updater/1.0.0", "accept": "*/*"}
        yield from difference(request.line, [str(request.headers)], [str(expected)])
    traced = read(run.calls() + ".trace").partition('"/dev/null"')
    paths = [path for line in "".join(traced[1:]).split("\n") if not line.startswith("---")
             for path in re.findall(r'"(.+?)"', line)]
    configuration = fill("/etc/qd/update.{I}.toml", run.texts)
    if configuration in paths:  # may be looked for once
        paths.remove(configuration)
    paths = sorted({re.sub(r"(upgrade_ovt.lock)\.\w+", r"\1.NEW", path) for path in paths})
    yield from difference("paths", paths, sorted(items("{paths}", run.texts)))


VERSIONS = [
    row("WithoutConfigurationNothingIsNew", log="{update}", requests="{requests}", calls="{commands}", files="{kept}",
        out="", err="", prepare=trace, check=nothing_else, needs=["strace -o /dev/null true"]),
    row("UpToDate", version="7.2.1.15", log="{until version} | {nothing to do}",
        requests="{GET version}", files="{locked}"),
    row("InvalidArgumentVersion", version="7.2.1", status=4, log="{identified} | ERR Invalid current version 7.2.1"),
    row("InvalidServerVersion", {VERSION: "7.2.2"},
        "{until parameters} | ERR Invalid version_long.txt 7.2.2", status=5),
    row("NoVersionFile", {VERSION: 404}, "{until parameters} | ERR Request {F}/version_long.txt "
        "failed : [404] | ERR Failed to download version:  [404] | {unlock}", status=2, files="agent_upd.log"),
    row("AgentTooOldForX11AndNoX11Here", version="7.1.5.2", log="{with x11} | NFY X11 not found | "
        "{as usual}", calls="{stop} | dpkg -S libX11 | {install} | {start}",
        commands={"dpkg": '[ "$1" != -S ] || { echo noise; echo noise >&2; exit 1; }'}),
    row("AgentTooOldForX11", version="7.2.0.0", commands={"apt-get": "exit 100"},
        log="{with x11} | NFY Found x11 | NFY Install xcb dependencies25600 | {as usual}",
        calls="{stop} | dpkg -S libX11 | {apt-get} | {install} | {start}"),
    row("OtherProcessor", first='set -- setarch i686 "$@"', status=3, requests="", calls="",
        log="{identified} | NFY tempdir is [{T}] | ERR Invalid architecture", files="{locked}"),
]


def without_md5(run) -> None:
    write(run.side("openssl.cnf"), "openssl_conf = init\n[init]\nalg_section = algorithms\n"
                                   "[algorithms]\ndefault_properties = fips=yes\n")
    run.env["OPENSSL_CONF"] = run.side("openssl.cnf")


PACKAGES = [
    row("NoDigest", {SUM: 404}, "{until version} | ERR Request {F}/setup.deb.md5 failed : [404] | "
        "ERR No file signature available (skip verification): [404] | {size} | {unverified}"),
    row("DigestWithoutBlank", {SUM: "{other sum}\tx\n"}, "{until version} | {size} | {unverified}"),
    row("DigestStartsWithBlank", {SUM: " {other sum}\n"},
        "{until version} | NFY Downloaded md5 is{blank} | {size} | {unverified}"),
    row("ShortPackageThreeTimes", {GET: SHORT}, "{until download} | {short} | {short} | {short} | "
        "ERR Invalid setup size", status=6, requests="{HEAD} | {GET} | {GET} | {GET}", files="{kept}"),
    row("WrongDigestThreeTimes", {SUM: "{other sum} *setup.deb\n"}, "{other three times}",
        status=7, requests="{HEAD} | {GET} | {GET} | {GET}", files="{locked}"),
    row("DigestOfZerosAndNoMd5InOpenSsl", {SUM: "{other sum} x"}, "{other three times}", status=7,
        prepare=without_md5, texts={"other sum": "0" * 32, "computed": ""}, calls=""),
    row("WrongDigestOnce", {GET: [WRONG, PACKAGE]},
        "{until download} | {wrong} | {verified} | {installed}", requests="{requests} | {GET}"),
    row("LastAttemptNamesTheFault", {GET: [WRONG, WRONG, SHORT]},
        "{until download} | {wrong} | {wrong} | {short} | ERR Invalid setup size", status=6),
    row("NoLengthHeader", {HEAD: Answer(length=None)},
        "{until version} | {digest} | ERR Fail to determine file size", status=7),
    row("LowerCaseLengthWins", {HEAD: Answer(headers={"content-length": "  20000 "}, length="7")}, "{update}"),
    row("PackageMissing", {DEB: 404}, "{until version} | {digest} | ERR Request {F}/setup.deb failed : [404] | ERR "
        "Fail to get HEAD for {F}/setup.deb: [404 ] | {unlock}", status=2, files="agent_upd.log"),
    row("PackageGoneAfterTheSizeQuery", {GET: 503}, "{until download} | ERR Request {F}/setup.deb failed : [503] | "
        "ERR 'Fail to download setup file: [503] | {unlock}", status=2, files="agent_upd.log | setup.deb"),
    row("AnswersInChunks", {GET: Answer(PACKAGE, chunked=True),
                            VERSION: Answer("7.2.1.15", chunked=True)}, "{update}"),
    row("EverythingMovedTwice", {VERSION: redirect("{S}/a"), "/a": redirect("/v"), "/v": "7.2.1.15",
                                 DEB: redirect("/p"), "/p": PACKAGE}, "{update}",
        requests="{GET version} | GET /a | GET /v | {GET}.md5 | HEAD {deb} | HEAD /p | {GET} | GET /p",
        texts={"deb": DEB}),
]


def definition(name, script, record="") -> Row:
    """A definition file that ends the run, and the record of why (none when nothing fits)."""
    return row(name, {DEFINITION: script}, f"{{opening}} | {record} | {{faulty}}", status=11,
               requests="{GET definition}", files="{locked}")


CHOSEN = [entry("off.deb", enable="false"), entry("other.deb", arch="{Other}"), entry("agent.rpm"),
          entry("agent.deb", "/here", os=2, version="now.txt", digest="sum",
                enable='true, "further": 1'), '{"name": "too late"}']
PARSING = "ERR Parsing error : [json.exception."
DEFINITIONS = [
    row("FirstFittingEntryIsChosen", {
        DEFINITION: f"[{', '.join(CHOSEN)}]", "/here/now.txt": "7.2.1.15 of today\n",
        "/here/sum": DIGEST + " agent.deb", "/here/agent.deb": PACKAGE}, "{update}",
        requests="{requests}", calls="{commands}", files="{kept}", texts={
            "definition": "{use definition}", "folder": "/here", "P": "agent.deb",
            "version file": "now.txt", "hash file": "sum"}),
    row("RefusedDefinitionMeansBuiltInParameters", {DEFINITION: 500}, "{update}", texts={
        "definition": BLOCKS["no definition"].replace("404", "500")}),
    definition("NoEntryFits", f"[{entry('agent.DEB')}]"),
    definition("OtherMachine", f"[{entry('agent.deb', arch='{Other}')}]"),
    definition("Nothing", "", PARSING + "parse_error.101] parse error at line 1, column 1: syntax "
               "error while parsing value - unexpected end of input; expected '[', '{', or a literal"),
    definition("KeyMissing", '[{"path": "/p"}]', PARSING + "out_of_range.403] key 'name' not found"),
    definition("FaultyEntryBeforeTheGoodOne", f"""[{{"name": 1}}, {entry('agent.deb')}]""",
               PARSING + "type_error.302] type must be string, but is number"),
]

COMMANDS = [
    row("StopFails", commands={"systemctl": '[ "$1" != stop ] || exit 5'}, calls="{commands}",
        log="{until stop} | NFY Agent Stopping .... | ERR Fail to stop agent: [1280] | {upgraded} | {started}"),
    row("InstallFails", commands={"dpkg": "exit 1"}, log="{until stop} | {stopped} | {upgrading} | "
        "ERR Fail to install agent : [256] | {started}"),
    row("StartFails", commands={"systemctl": '[ "$1" != start ] || exit 3'},
        log="{until stop} | {stopped} | {upgraded} | ERR Fail to re-start agent : [768] | NFY Agent Update done"),
    row("OnlyRestart", option="-S", log="{until stop} | {stopped} | {started} | {unlock}",
        calls="{stop} | {start}", files="agent_upd.log | setup.deb"),
    row("OnlyRestartWithNothingNew", option="-S", version="7.3.0.0",
        log="{until version} | {nothing to do} | {unlock}", files="agent_upd.log"),
]


def lock(name, content, log, around=("", "\n"), **more) -> Row:
    """A run that finds a lock with this content, or from so many milliseconds ago."""
    def prepare(run):
        at = int(time.time() * 1000) - content if isinstance(content, int) else 0
        run.texts["lock time"] = time.strftime("%d-%m-%Y %H:%M:%S", time.localtime(at // 1000))
        write(run.temp("upgrade_ovt.lock"), str(at).join(around) if at else content)
    return row(name, log=log, prepare=prepare, **more)


def endless_line(run) -> None:
    write(run.temp("upgrade_ovt.lock"), "")
    with open(run.temp("upgrade_ovt.lock"), "r+b") as file:
        file.truncate(1 << 40)


STALE = {"lock": "{found}"}
LOCKS = [
    lock("Held", 1000, "{held}", files="{locked}"),
    lock("HeldByTheFuture", -HOUR, "{held}", around=(" \t", "")),
    lock("HeldIsLeftAloneByOnlyRestart", 1000, "{held}", option="-S", around=("", " \nmore\n"), files="{locked}"),
    lock("Stale", HOUR + 1, "{update}", texts=STALE, files="{kept}"),
    lock("Empty", "", "{lock unreadable}", files="{locked}"),
    lock("BeyondNumbers", "9" * 20, "{lock unreadable}"),
    row("LineWithoutEnd", prepare=endless_line, log="{lock unreadable}", files="{locked}"),
    row("NotRoot", user=NOBODY, status=1, files="agent_upd.log",
        log="{identified} | ERR Need priveledged user or root user | {unlock}"),
]

if __name__ == "__main__":
    sys.exit(main(__doc__, VERSIONS + PACKAGES + DEFINITIONS + COMMANDS + LOCKS))

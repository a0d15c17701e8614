#!/usr/bin/env python3
"""Whole runs of the program built for the macOS family, and of the one built for Synology, with
stand-ins for the tools of those systems."""

import hashlib
import os
import sys
from functools import partial

from harness import Answer, Row, Skip, blocks, main
from harness.linux import BLOCKS, DEFINITION, DIGEST, MACHINE, NAMES, PACKAGE, entry

FOLDERS = ["/macosx/{Mac}"] + ["/macosx-arm64"] * (NAMES.get("Mac") == "arm64")  # before "/macosx"
DMG, PKG = "/macosx/TideKeeper.dmg", "/macosx/{Mac}/setup.pkg"
# Servers with the last and with the first of the candidates only.
LAST = {"/macosx/version_long.txt": "7.2.1.15\n", DMG: PACKAGE, DMG + ".md5": DIGEST + " a.dmg\n"}
FIRST = {"/macosx/{Mac}/version_long.txt": "7.2.1.15\n", PKG: PACKAGE, PKG + ".md5": DIGEST + " "}

mac = partial(Row, program="macos", good=LAST, blocks=BLOCKS | {
    "no special folder": " | ".join(f"ERR Request {{S}}{folder}/version_long.txt failed : [404]"
                                    for folder in FOLDERS),
    "GET special folders": " | ".join(f"GET {folder}/version_long.txt" for folder in FOLDERS),
    "evil": hashlib.md5(b"evil").hexdigest(),
} | blocks("""
[P] TideKeeper.dmg
[folder] /macosx
[system] NFY OS is [Macosx]
[stop] launchctl unload /Library/LaunchDaemons/com.qdagent.plist
[start] launchctl load /Library/LaunchDaemons/com.qdagent.plist
[install] installer -target / -pkg{blank}
[not the first four]
ERR Request {F}/setup.pkg failed : [404] | ERR Request {F}/setup.dmg failed : [404]
ERR Request {F}/Kesa_{Kesa}.pkg failed : [404] | ERR Request {F}/Kesa_{Kesa}.dmg failed : [404]
[definition] {no definition} | {no special folder} | {not the first four}
[no setup] Failed to get any correct setup paths
[none] ERR {no setup} | ERR Exception : {no setup}
[cannot attach] ERR Unable to attach setup
[devices] DBG Mounted device is /dev/disk4 | DBG Mounted device is /dev/disk4s1
[attached] {devices} | DBG PKG path is {volume}/TideKeeper.pkg
[swapped] {attached} | {rejected} {evil} vs {D}
[GET versions] {GET definition} | {GET special folders} | GET /macosx/version_long.txt
[HEAD two] HEAD /macosx/setup.pkg | HEAD /macosx/setup.dmg
[HEAD four] {HEAD two} | HEAD /macosx/Kesa_{Kesa}.pkg | HEAD /macosx/Kesa_{Kesa}.dmg
[search] {GET versions} | {HEAD four} | HEAD /macosx/TideKeeper.dmg
[searches] {search} | GET /macosx/TideKeeper.dmg.md5 | {GET}
[volume] /Volumes/Tide Keeper
[attach] hdiutil attach {path} -nobrowse
[detach] hdiutil detach /dev/disk4s1
[installer] installer -target / -pkg
[commands] {attach} | {stop} | {installer} {volume}/TideKeeper.pkg | {detach} | {start}
"""))

# As the real one it attaches no image that somebody else has locked, and keeps its own lock as long
# as the image is attached.
ATTACH = r"""if [ "$1" = detach ]; then rm -f "$calls.attached"; exit; fi
exec 9< "$2" && flock -n -s 9 || exit 1
touch "$calls.attached"
(while [ -e "$calls.attached" ]; do sleep 0.1; done) > /dev/null 2>&1 &
printf '%s\t%s\n%s\t%s\t\t%s \n' /dev/disk4 GUID_partition_scheme \
  /dev/disk4s1 Apple_HFS '/Volumes/Tide Keeper'"""
NEVER_DETACH = '[ "$1" = attach ] || exit 1\n' + ATTACH
SWAP = ATTACH + '; [ "$1" = detach ] || { printf evil > "$tmp/new"; mv "$tmp/new" "$2"; }'
TWICE = '"$@"; rm "$TMPDIR/upgrade_ovt.lock"'
HOSTILE = r"""[ "$1" = detach ] || printf '%s\t%s\n' '/dev/disk4;touch pwned' \
  '/Volumes/$(touch pwned)`touch pwned`"\\'"""
COUNT = r"""printf '%s\n' "$#" >> "$calls" """
FROM_FIRST = {"folder": "/macosx/{Mac}", "P": "setup.pkg", "definition": "{no definition}",
              "install": '{prefix}installer -target / -pkg "{path}"', "prefix": ""}


def emulate(run) -> None:
    """The kernel is an arm64 one's, as a program for x86-64 sees it that runs translated."""
    if MACHINE != "x86_64":
        raise Skip("needs a machine that could be emulated")
    run.env |= {"LD_PRELOAD": run.texts["shim"], "QD_FAULT": "kernel:RELEASE_ARM64_T6000"}


def terminal(run) -> None:
    """A shell leads session and foreground; the program's own group is in the background."""
    _, run.stdin = os.openpty()
    run.timeout = 60
    run.first = """exec setsid --ctty /bin/sh -c '"$@"; exit $?' sh "$@" """


DISCOVERY = [
    mac("FirstCandidate", FIRST, "{until stop} | {installed}", texts=FROM_FIRST, files="{kept}",
        requests="{GET version} | HEAD {pkg} | GET {pkg}.md5 | GET {pkg}".replace("{pkg}", PKG),
        calls="{stop} | {installer} {path} | {start}"),
    mac("Emulated", FIRST, "{until stop} | {installed}", prepare=emulate,
        texts=FROM_FIRST | {"Mac": "arm64", "M": "arm64", "prefix": "arch -arch arm64 "},
        calls="{stop} | arch -arch arm64 {installer} {path} | {start}"),
    mac("LastCandidate", {}, "{until stop} | {attached} | {installed}", files="{kept}",
        commands={"hdiutil": ATTACH}, requests="{searches}", calls="{commands}"),
    mac("NoFolder", {"/macosx/version_long.txt": 404}, "{opening} | {no definition} | {no special "
        "folder} | ERR Request {F}/version_long.txt failed : [404] | {none}", status=11, requests="{GET versions}"),
    mac("NoLengthOfTheCandidate", {"HEAD " + DMG: Answer(length=None)},
        "{opening} | {definition} | {none}", status=11),
    mac("NoPackage", {DMG: 404}, "{opening} | {definition} | ERR Request {F}/TideKeeper.dmg failed "
        ": [404] | {parameters} | {available} | ERR Request {F}/.md5 failed : [404] | ERR No file "
        "signature available (skip verification): [404] | ERR Request {F}/ failed : [404] | "
        "ERR Fail to get HEAD for {F}/: [404 ] | {unlock}", status=2, files="agent_upd.log",
        requests="{search} | GET /macosx/.md5 | HEAD /macosx/", texts={"P": "", "path": "{T}"}),
]


DEFINED = {"definition": "{use definition}", "folder": "/i", "version file": "v", "hash file": "h"}
AWKWARD, QUOTED = 'a"$(touch${IFS}pwned)`.pkg', r'a\"\$(touch\${IFS}pwned)\`.pkg'
IMAGES = [
    mac("AttachFails", {}, "{until stop} | {cannot attach}", status=9, calls="{attach}",
        commands={"hdiutil": "echo /dev/disk4; exit 1"}),
    mac("DeviceWithoutVolumeIsDetached", {}, "{until stop} | DBG Mounted device is /dev/disk4 | "
        "{cannot attach}", status=9, calls="{attach} | hdiutil detach /dev/disk4",
        commands={"hdiutil": '[ "$1" = detach ] && exit 1; echo /dev/disk4'}),
    mac("EverythingAfterAttachingFails", {}, "{until stop} | {attached} | NFY Agent Stopping .... "
        "| ERR Fail to stop agent: [256] | {upgrading} | ERR Fail to install agent : [512] | "
        "ERR Fail to re-start agent : [256] | NFY Agent Update done", calls="{commands}",
        commands={"hdiutil": NEVER_DETACH, "launchctl": "exit 1", "installer": "exit 2"}),
    mac("StillAttachedByTheRunBefore", {}, "{whole} | {whole}", first=TWICE, connections=2,
        texts={"whole": "{until stop} | {attached} | {installed}"}, files="{kept}",
        commands={"hdiutil": NEVER_DETACH}, calls="{commands} | {commands}"),
    mac("TerminalOfTheForegroundIsNotWaitedFor", {}, prepare=terminal, calls="{commands}",
        commands={"hdiutil": "head -n 1; " + ATTACH}),
    mac("ImageFromTheDefinitionFile", {
        DEFINITION: f"[{entry('a.b.dmg', '/i', os=2)}]", "/i/v": "7.2.1.15", "/i/h": DIGEST + " ",
        "/i/a.b.dmg": PACKAGE}, "{until stop} | {devices} | DBG PKG path is {volume}/a.b.pkg | "
        "{installed}", texts=DEFINED | {"P": "a.b.dmg"}, commands={"hdiutil": ATTACH}, files="{kept}"),
    mac("NamesInTheImageRunNothing", {}, "{until stop} | DBG Mounted device is /dev/disk4;touch "
        "pwned | DBG PKG path is {volume}/TideKeeper.pkg | {installed}",
        commands={"hdiutil": HOSTILE, "installer": COUNT}, files="{kept}",
        calls="{attach} | {stop} | {installer} {volume}/TideKeeper.pkg | 4 | hdiutil detach "
              "/dev/disk4;touch pwned | {start}", texts={"volume": r'/Volumes/$(touch pwned)`touch pwned`"\\'}),
    mac("SwappedWhileItIsAttached", {}, "{until stop} | {swapped} | {verified} | {swapped} | "
        "{verified} | {swapped} | ERR Invalid setup md5", status=7, commands={"hdiutil": SWAP},
        connections=3, files="{locked}", requests="{searches} | {GET} | {GET}",
        calls="{attach} | {detach} | {attach} | {detach} | {attach} | {detach}"),
    mac("PackageFromTheDefinitionFile", {
        DEFINITION: "[" + entry(AWKWARD.replace('"', r'\"'), "/i", os=2) + "]", "/i/v": "7.2.1.15",
        "/i/h": DIGEST + " ", "/i/" + AWKWARD: PACKAGE}, "{until stop} | {installed}", files=AWKWARD + " | {locked}",
        commands={"installer": COUNT}, texts=DEFINED | {"P": AWKWARD, "install": f'{{installer}} "{{T}}/{QUOTED}"'},
        calls="{stop} | {installer} {path} | 4 | {start}"),
]

synology = partial(Row, program="synology", blocks=BLOCKS | blocks("""
[system] NFY OS is [Linux] | NFY distrib is [spk]
[stop] synopkg stop kesa
[start] synopkg start kesa
[install] synopkg install {path}
[no privilege file] ERR Fail to run post install command: [512]
"""))
OFFERED = {DEFINITION: f"[{entry('agent.spk', '/i')}]", "/i/v": "7.2.1.15", "/i/h": DIGEST + " ",
           "/i/agent.spk": PACKAGE}
SYNOLOGY = [
    synology("SynologyHasNoBuiltInParameters", {}, "{opening} | {no definition} | "
             "ERR Exception : Unsupported distribution", status=11),
    synology("SynologyIsNotRolledBack", OFFERED, config="health = {timeout = '1s'}", status=13, texts=DEFINED,
             has="WRN No way back : this system's tools put no former version back"),
    synology("SynologyFromTheDefinitionFile", OFFERED, "{until stop} | {stopped} | {upgraded} | "
             "{no privilege file} | {started}", texts=DEFINED | {"P": "agent.spk"}, requests="{requests}",
             calls="{commands}"),
]

if __name__ == "__main__":
    sys.exit(main(__doc__, DISCOVERY + IMAGES + SYNOLOGY))

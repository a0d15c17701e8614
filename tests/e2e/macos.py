#!/usr/bin/env python3
"""Whole runs of the program built for the macOS family, and of the one built for Synology, with
stand-ins for the tools of those systems."""

import hashlib
import sys
from functools import partial

from harness import NOBODY, Answer, Row, Skip, blocks, main
from harness.linux import COMMON, DEFINITION, DIGEST, MACHINE, NAMES, PACKAGE, entry

FOLDERS = ["/macosx/{Mac}"] + ["/macosx-arm64"] * (NAMES.get("Mac") == "arm64")  # before "/macosx"
DMG, PKG = "/macosx/TideKeeper.dmg", "/macosx/{Mac}/setup.pkg"
# Servers with the last and with the first of the candidates only.
LAST = {"/macosx/version_long.txt": "7.2.1.15\n", DMG: PACKAGE, DMG + ".md5": DIGEST + " a.dmg\n"}
FIRST = {"/macosx/{Mac}/version_long.txt": "7.2.1.15\n", PKG: PACKAGE, PKG + ".md5": DIGEST + " "}

TEXTS = COMMON | {
    "no special folder": "\n".join(f"ERR Request {{S}}{folder}/version_long.txt failed : [404]"
                                   for folder in FOLDERS),
    "GET special folders": "\n".join(f"GET {folder}/version_long.txt" for folder in FOLDERS),
    "evil": hashlib.md5(b"evil").hexdigest(),
} | blocks("""
[identified]
NFY Check Update
NFY Current version : {V}
NFY Udpate server : {S}
NFY Lock file is [{T}/upgrade_ovt.lock]
NFY OS is [Macosx]
[opening]
{identified}
NFY tempdir is [{T}]
NFY arch  is [{M}]
{definition}
[no definition]
ERR Request {S}/agent_setup_def.json failed : [404]
WRN Failed to get agent setup definition file - use legacy definition
[definition]
{no definition}
[parameters]
NFY version url = {F}/version_long.txt
NFY setup url   = {F}/{P}
NFY setup path  = {local}
NFY hash url    = {F}/{P}.md5
{commands known}
[commands known]
NFY star cmd    = {load}
NFY stop cmd    = {unload}
NFY install cmd = {install}
[F]
{S}/macosx
[P]
TideKeeper.dmg
[local]
{T}/{P}
[install]
installer -target / -pkg{blank}
[not the first four]
ERR Request {F}/setup.pkg failed : [404]
ERR Request {F}/setup.dmg failed : [404]
ERR Request {F}/Kesa_{Kesa}.pkg failed : [404]
ERR Request {F}/Kesa_{Kesa}.dmg failed : [404]
[searched]
{opening}
{no special folder}
{not the first four}
[available]
NFY Available version is 7.2.1.15
[fetched]
{available}
NFY Downloaded md5 is {D}
NFY File size for {F}/{P} is {B} bytes
{verified}
[until download]
{parameters}
{fetched}
[verified]
NFY Setup downloaded [{B} bytes]
NFY Computed md5 is {D}
[to the last candidate]
{searched}
{until download}
[devices]
DBG Mounted device is /dev/disk4
DBG Mounted device is /dev/disk4s1
[attached]
{devices}
DBG PKG path is /Volumes/Tide Keeper/TideKeeper.pkg
[swapped]
{attached}
WRN Re-download setup file because current one has a wrong hash: {evil} vs {D}
[stopped]
NFY Agent Stopping ....
NFY Agent Stopped
[started]
NFY Agent Started
NFY Agent Update done
[installed]
{stopped}
NFY Upgrading agent ...'
NFY Agent Installed
{started}
[defined]
{opening}
NFY version url = {F}/v
NFY setup url   = {F}/{P}
NFY setup path  = {T}/{P}
NFY hash url    = {F}/h
{commands known}
{fetched}
[GET versions]
GET /agent_setup_def.json
{GET special folders}
GET /macosx/version_long.txt
[search]
{GET versions}
HEAD /macosx/setup.pkg
HEAD /macosx/setup.dmg
HEAD /macosx/Kesa_{Kesa}.pkg
HEAD /macosx/Kesa_{Kesa}.dmg
HEAD /macosx/TideKeeper.dmg
[requests]
{search}
GET /macosx/TideKeeper.dmg.md5
GET /macosx/TideKeeper.dmg
[unload]
launchctl unload /Library/LaunchDaemons/com.qdagent.plist
[load]
launchctl load /Library/LaunchDaemons/com.qdagent.plist
[attach]
hdiutil attach {T}/TideKeeper.dmg -nobrowse
[detach]
hdiutil detach /dev/disk4s1
[commands]
{attach}
{unload}
installer -target / -pkg /Volumes/Tide Keeper/TideKeeper.pkg
{detach}
{load}
[locked]
agent_upd.log
upgrade_ovt.lock
[kept]
TideKeeper.dmg
{locked}
""")
mac = partial(Row, program="macos", good=LAST, blocks=TEXTS)

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
  '/Volumes/$(touch pwned)`touch pwned`"\'"""
COUNT = r"""printf '%s\n' "$#" >> "$calls" """
FROM_FIRST = {"F": "{S}/macosx/{Mac}", "P": "setup.pkg",
              "install": '{prefix}installer -target / -pkg "{T}/setup.pkg"', "prefix": ""}


def emulate(run) -> None:
    """The kernel is an arm64 one's, as a program for x86-64 sees it that runs translated."""
    if MACHINE != "x86_64":
        raise Skip("needs a machine that could be emulated")
    run.env |= {"LD_PRELOAD": run.texts["shim"], "QD_FAULT": "kernel:RELEASE_ARM64_T6000"}


DISCOVERY = [
    mac("FirstCandidate", FIRST, "{opening} | {until download} | {installed}", texts=FROM_FIRST,
        requests="GET /agent_setup_def.json | GET /macosx/{Mac}/version_long.txt | HEAD {pkg} | "
                 "GET {pkg}.md5 | GET {pkg}".replace("{pkg}", PKG),
        calls="{unload} | installer -target / -pkg {T}/setup.pkg | {load}",
        files="agent_upd.log | setup.pkg | upgrade_ovt.lock"),
    mac("Emulated", FIRST, "{opening} | {until download} | {installed}", prepare=emulate,
        texts=FROM_FIRST | {"Mac": "arm64", "M": "arm64", "prefix": "arch -arch arm64 "},
        calls="{unload} | arch -arch arm64 installer -target / -pkg {T}/setup.pkg | {load}"),
    mac("LastCandidate", {}, "{to the last candidate} | {attached} | {installed}",
        commands={"hdiutil": ATTACH}, requests="{requests}", calls="{commands}", files="{kept}"),
    mac("UpToDate", {}, "{searched} | {parameters} | {available} | NFY Current version is up to "
        "date. Nothing to do", version="7.2.1.15", files="{locked}"),
    mac("NoFolder", {"/macosx/version_long.txt": 404},
        "{opening} | {no special folder} | ERR Request {F}/version_long.txt failed : [404] | "
        "ERR {none} | ERR Exception : {none}", status=11, requests="{GET versions}",
        texts={"none": "Failed to get any correct setup paths"}),
    mac("NoLengthOfTheCandidate", {"HEAD " + DMG: Answer(length=None)},
        "{searched} | ERR {none} | ERR Exception : {none}", status=11,
        texts={"none": "Failed to get any correct setup paths"}),
    mac("NoPackage", {DMG: 404}, "{searched} | ERR Request {F}/TideKeeper.dmg failed : [404] | "
        "{parameters} | {available} | ERR Request {F}/.md5 failed : [404] | ERR No file signature "
        "available (skip verification): [404] | ERR Request {F}/ failed : [404] | "
        "ERR Fail to get HEAD for {F}/: [404 ] | NFY Remove lock file", status=2,
        requests="{search} | GET /macosx/.md5 | HEAD /macosx/", texts={"P": "", "local": "{T}"},
        files="agent_upd.log"),
    mac("NotRoot", user=NOBODY, status=1, log="{identified} | ERR Need priveledged user or root "
        "user | NFY Remove lock file", files="agent_upd.log"),
]


def defined(in_json: str, name: str) -> dict:
    """A definition file with one entry for this machine, and its files."""
    return {DEFINITION: f"[{entry(in_json, '/i', os=2)}]", "/i/v": "7.2.1.15",
            "/i/h": DIGEST + " ", "/i/" + name: PACKAGE}


DEFINED = {"definition": "DBG Use agent setup definition file", "F": "{S}/i"}
AWKWARD = 'a"$(touch${IFS}pwned)`.pkg'
QUOTED = r'a\"\$(touch\${IFS}pwned)\`.pkg'
IMAGES = [
    mac("AttachFails", {}, "{to the last candidate} | ERR Unable to attach setup", status=9,
        commands={"hdiutil": "echo /dev/disk4; exit 1"}, calls="{attach}"),
    mac("NoDevice", {}, "{to the last candidate} | ERR Unable to attach setup", status=9,
        commands={"hdiutil": "echo hello"}),
    mac("DeviceWithoutVolumeIsDetached", {}, "{to the last candidate} | DBG Mounted device is "
        "/dev/disk4 | ERR Unable to attach setup", status=9, calls="{attach} | hdiutil detach "
        "/dev/disk4", commands={"hdiutil": '[ "$1" = detach ] && exit 1; echo /dev/disk4'}),
    mac("EverythingAfterAttachingFails", {}, "{to the last candidate} | {attached} | NFY Agent "
        "Stopping .... | ERR Fail to stop agent: [256] | NFY Upgrading agent ...' | ERR Fail to "
        "install agent : [512] | ERR Fail to re-start agent : [256] | NFY Agent Update done",
        commands={"hdiutil": NEVER_DETACH, "launchctl": "exit 1", "installer": "exit 2"},
        calls="{commands}"),
    mac("StillAttachedByTheRunBefore", {}, "{whole} | {whole}", first=TWICE, connections=2,
        texts={"whole": "{to the last candidate}\n{attached}\n{installed}"}, files="{kept}",
        commands={"hdiutil": NEVER_DETACH}, calls="{commands} | {commands}"),
    mac("OnlyRestart", {}, "{to the last candidate} | {attached} | {stopped} | {started} | "
        "NFY Remove lock file", option="-S", commands={"hdiutil": ATTACH}, files="TideKeeper.dmg | "
        "agent_upd.log", calls="{attach} | {unload} | {detach} | {load}"),
    mac("NamesInTheImageRunNothing", {}, "{to the last candidate} | DBG Mounted device is "
        "/dev/disk4;touch pwned | DBG PKG path is {volume}/TideKeeper.pkg | {installed}",
        commands={"hdiutil": HOSTILE, "installer": COUNT}, files="{kept}",
        calls="{attach} | {unload} | installer -target / -pkg {volume}/TideKeeper.pkg | 4 | "
              "hdiutil detach /dev/disk4;touch pwned | {load}",
        texts={"volume": r'/Volumes/$(touch pwned)`touch pwned`"' + "\\"}),
    mac("SwappedWhileItIsAttached", {}, "{to the last candidate} | {swapped} | {verified} | "
        "{swapped} | {verified} | {swapped} | ERR Invalid setup md5", status=7,
        commands={"hdiutil": SWAP}, connections=3, files="{locked}",
        requests="{requests} | GET /macosx/TideKeeper.dmg | GET /macosx/TideKeeper.dmg",
        calls="{attach} | {detach} | {attach} | {detach} | {attach} | {detach}"),
    mac("ImageFromTheDefinitionFile", defined("a.b.dmg", "a.b.dmg"), "{defined} | {devices} | "
        "DBG PKG path is {pkg} | {installed}",
        texts=DEFINED | {"P": "a.b.dmg", "pkg": "/Volumes/Tide Keeper/a.b.pkg"},
        commands={"hdiutil": ATTACH}, files="a.b.dmg | {locked}",
        requests="GET /agent_setup_def.json | GET /i/v | GET /i/h | HEAD /i/{P} | GET /i/{P}",
        calls="hdiutil attach {T}/a.b.dmg -nobrowse | {unload} | installer -target / -pkg {pkg} | "
              "{detach} | {load}"),
    mac("PackageFromTheDefinitionFile", defined(AWKWARD.replace('"', r'\"'), AWKWARD),
        "{defined} | {installed}", commands={"installer": COUNT}, files=AWKWARD + " | {locked}",
        texts=DEFINED | {"P": AWKWARD, "install": f'installer -target / -pkg "{{T}}/{QUOTED}"'},
        calls="{unload} | installer -target / -pkg {T}/{P} | 4 | {load}"),
]

NAS = TEXTS | blocks("""
[opening]
NFY Check Update
NFY Current version : {V}
NFY Udpate server : {S}
NFY Lock file is [{T}/upgrade_ovt.lock]
NFY OS is [Linux]
NFY distrib is [spk]
NFY tempdir is [{T}]
NFY arch  is [{M}]
[update]
{opening}
DBG Use agent setup definition file
NFY version url = {S}/s/v
NFY setup url   = {S}/s/agent.spk
NFY setup path  = {T}/agent.spk
NFY hash url    = {S}/s/h
NFY star cmd    = synopkg start kesa
NFY stop cmd    = synopkg stop kesa
NFY install cmd = synopkg install {T}/agent.spk
{available}
NFY Downloaded md5 is {D}
NFY File size for {S}/s/agent.spk is {B} bytes
{verified}
{stopped}
NFY Upgrading agent ...'
NFY Agent Installed
ERR Fail to run post install command: [512]
NFY Agent Started
NFY Agent Update done
""")
synology = partial(Row, program="synology", blocks=NAS)
SYNOLOGY = [
    synology("SynologyHasNoBuiltInParameters", {}, "{opening} | {no definition} | "
             "ERR Exception : Unsupported distribution", status=11),
    # The command after the installation finds no privilege file on this machine.
    synology("SynologyFromTheDefinitionFile", {
        DEFINITION: f"[{entry('agent.spk', '/s')}]", "/s/v": "7.2.1.15", "/s/h": DIGEST + " ",
        "/s/agent.spk": PACKAGE}, "{update}",
        requests="GET /agent_setup_def.json | GET /s/v | GET /s/h | HEAD {spk} | GET {spk}",
        calls="synopkg stop kesa | synopkg install {T}/agent.spk | synopkg start kesa",
        texts={"spk": "/s/agent.spk"}),
]

if __name__ == "__main__":
    sys.exit(main(__doc__, DISCOVERY + IMAGES + SYNOLOGY))

"""A good server for this machine's own program, and what a good update leaves."""

import hashlib
import platform

from .texts import blocks

MACHINE = platform.machine()
# The machine's folders on servers of Linux and of macOS packages, the ending of the latter's names,
# its number in definition files and that of another, and the machine as uname names it.
NAMES = {
    "x86_64": {"A": "amd64", "Mac": "amd64", "Kesa": "x64", "N": "1", "Other": "2"},
    "aarch64": {"A": "aarch64", "Mac": "arm64", "Kesa": "ARM64", "N": "2", "Other": "1"},
}.get(MACHINE, {}) | {"M": MACHINE}

PACKAGE = bytes(i * i % 251 for i in range(20000))
DIGEST = hashlib.md5(PACKAGE).hexdigest()
WRONG = b"X" + PACKAGE[1:]

CONF = "/etc/qd/conf"  # the folder of the agent's configuration strings
DEFINITION = "/agent_setup_def.json"
VERSION = "/linux/{A}/version_long.txt"
DEB = "/linux/{A}/setup.deb"
SUM = DEB + ".md5"
GOOD = {VERSION: "7.2.1.15\n", DEB: PACKAGE, SUM: DIGEST + "  setup.deb\n"}



def entry(setup: str, path: str = "/p", arch: str = "{N}", enable: str = "true", os: int = 3,
          version: str = "v", digest: str = "h") -> str:
    """An entry of a definition file; what is given is JSON text."""
    return (f'{{"name": "", "path": "{path}", "setup": "{setup}", "version": "{version}", '
            f'"hash": "{digest}", "os": {os}, "arch": {arch}, "enable": {enable}}}')


COMMON = NAMES | {"D": DIGEST, "B": str(len(PACKAGE)), "blank": " ",
                  "X": hashlib.md5(WRONG).hexdigest()}
BLOCKS = COMMON | blocks("""
[F]
{S}/linux/{A}
[greeting]
NFY Check Update
NFY Current version : {V}
NFY Udpate server : {S}
[system]
NFY OS is [Linux]
NFY distrib is [deb]
[machine]
NFY tempdir is [{T}]
NFY arch  is [{M}]
[identified]
{greeting}
NFY Lock file is [{T}/upgrade_ovt.lock]
{system}
[opening]
{identified}
{machine}
[no definition]
ERR Request {S}/agent_setup_def.json failed : [404]
WRN Failed to get agent setup definition file - use legacy definition
[parameters]
NFY version url = {F}/version_long.txt
NFY setup url   = {F}/setup.deb
NFY setup path  = {T}/setup.deb
NFY hash url    = {F}/setup.deb.md5
NFY star cmd    = systemctl start qdagent
NFY stop cmd    = systemctl stop qdagent
NFY install cmd = dpkg -i {T}/setup.deb
[legacy]
{no definition}
{parameters}
[available]
NFY Available version is 7.2.1.15
[nothing to do]
NFY Current version is up to date. Nothing to do
[digest]
NFY Downloaded md5 is {D}
[size]
NFY File size for {F}/setup.deb is {B} bytes
[downloaded]
NFY Setup downloaded [{B} bytes]
[short]
NFY Setup downloaded [19999 bytes]
WRN Downloaded size is 19999 bytes. Expected size is {B} bytes - try again
[wrong]
{downloaded}
WRN Re-download setup file because current one has a wrong hash: {X} vs {D}
[verified]
{downloaded}
NFY Computed md5 is {D}
[stopped]
NFY Agent Stopping ....
NFY Agent Stopped
[upgraded]
NFY Upgrading agent ...'
NFY Agent Installed
[started]
NFY Agent Started
NFY Agent Update done
[installed]
{stopped}
{upgraded}
{started}
[unlock]
NFY Remove lock file
[until parameters]
{opening}
{legacy}
[until version]
{until parameters}
{available}
[until download]
{until version}
{digest}
{size}
[until stop]
{until download}
{verified}
[update]
{until stop}
{installed}
[GET version]
GET /agent_setup_def.json
GET /linux/{A}/version_long.txt
[HEAD]
{GET version}
GET /linux/{A}/setup.deb.md5
HEAD /linux/{A}/setup.deb
[GET]
GET /linux/{A}/setup.deb
[requests]
{HEAD}
{GET}
[stop]
systemctl stop qdagent
[start]
systemctl start qdagent
[dpkg]
dpkg -i {T}/setup.deb
[commands]
{stop}
{dpkg}
{start}
[locked]
agent_upd.log
upgrade_ovt.lock
[kept]
agent_upd.log
setup.deb
upgrade_ovt.lock
""")

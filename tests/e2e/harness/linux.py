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


# What a good update leaves, in blocks that rows take apart, or change by another text for a name.
BLOCKS = NAMES | {"D": DIGEST, "B": str(len(PACKAGE)), "blank": " ",
                  "X": hashlib.md5(WRONG).hexdigest()} | blocks("""
[P] setup.deb
[version file] version_long.txt
[hash file] {P}.md5
[folder] /linux/{A}
[F] {S}{folder}
[path] {T}/{P}
[lock file] {T}/upgrade_ovt.lock
[stop] systemctl stop qdagent
[install] dpkg -i {path}
[start] systemctl start qdagent
[greeting] NFY Check Update | NFY Current version : {V} | NFY Udpate server : {S}
[lock] NFY Lock file is [{lock file}]
[system] NFY OS is [Linux] | NFY distrib is [deb]
[identified] {greeting} | {lock} | {system}
[opening] {identified} | NFY tempdir is [{T}] | NFY arch  is [{M}]
[no definition]
ERR Request {S}/agent_setup_def.json failed : [404]
WRN Failed to get agent setup definition file - use legacy definition
[definition] {no definition}
[use definition] DBG Use agent setup definition file
[parameters]
NFY version url = {F}/{version file}
NFY setup url   = {F}/{P}
NFY setup path  = {path}
NFY hash url    = {F}/{hash file}
NFY star cmd    = {start}
NFY stop cmd    = {stop}
NFY install cmd = {install}
[until parameters] {opening} | {definition} | {parameters}
[available] NFY Available version is 7.2.1.15
[until version] {until parameters} | {available}
[nothing to do] NFY Current version is up to date. Nothing to do
[digest] NFY Downloaded md5 is {D}
[size] NFY File size for {F}/{P} is {B} bytes
[until download] {until version} | {digest} | {size}
[downloaded] NFY Setup downloaded [{B} bytes]
[try again] WRN Downloaded size is 19999 bytes. Expected size is {B} bytes - try again
[short] NFY Setup downloaded [19999 bytes] | {try again}
[rejected] WRN Re-download setup file because current one has a wrong hash:
[wrong] {downloaded} | {rejected} {X} vs {D}
[verified] {downloaded} | NFY Computed md5 is {D}
[until stop] {until download} | {verified}
[stopped] NFY Agent Stopping .... | NFY Agent Stopped
[upgrading] NFY Upgrading agent ...'
[upgraded] {upgrading} | NFY Agent Installed
[started] NFY Agent Started | NFY Agent Update done
[installed] {stopped} | {upgraded} | {started}
[update] {until stop} | {installed}
[unlock] NFY Remove lock file
[GET definition] GET /agent_setup_def.json
[GET version] {GET definition} | GET {folder}/{version file}
[HEAD] {GET version} | GET {folder}/{hash file} | HEAD {folder}/{P}
[GET] GET {folder}/{P}
[requests] {HEAD} | {GET}
[commands] {stop} | {install} | {start}
[locked] agent_upd.log | upgrade_ovt.lock
[kept] agent_upd.log | {P} | upgrade_ovt.lock
""")

#!/usr/bin/env python3
"""Servers that redirect, pace and secure their answers, and those that are faulty or hostile."""

import re
import sys
import time
from functools import partial
from itertools import chain
from urllib.parse import quote

from harness import Answer, Row, Server, logged, main, read, records, redirect
from harness.linux import DEB, DEFINITION, DIGEST, NAMES, PACKAGE, SUM, VERSION, entry

GET, HEAD = "GET " + DEB, "HEAD " + DEB
ZEROS = "a981130cf2b7e09f4686dc273cf7187e"  # the MD5 of 2 GiB of them


# --- requests, connections and progress

def until_logged(run, tenth: int) -> None:
    """The next tenth is sent when the one before has been logged."""
    for _ in range(2000):
        if f"NFY Loading {tenth}0%" in records(read(run.temp("agent_upd.log"))):
            return
        time.sleep(0.002)


def tens(run, outcome):
    progress = re.findall(r"^NFY Loading (.*)%$", "\n".join(outcome.log), re.MULTILINE)
    if progress != [str(ten) for ten in range(10, 101, 10)]:
        yield f"progress: {progress}"


def moved_to_https(run, args):
    plain = {path: redirect(run.texts["S"] + path.format(**NAMES)) for path in (VERSION, DEB)}
    with Server(plain, run.texts, run) as server:
        return run.go(server.url.encode().hex(), args[1])


UNKNOWN = "http://updates.invalid"
FAILED_VERSION = "ERR Failed to download version:  [-1]"
CONNECTIONS = [
    Row("CertificateOfAnotherHostSignedByItself", tls="elsewhere.example", log="{update}", requests="{requests}"),
    Row("RedirectsFromHttpToHttps", tls="127.0.0.1", drive=moved_to_https, calls="{commands}",
        requests="GET {folder}/{version file} | HEAD {folder}/{P} | {GET}"),
    Row("PackageOfTwoGibibytesNeedsNoMemory", {
        DEB: Answer(bytes(1 << 20), length=str(2 << 30), endless=True), SUM: ZEROS + " setup.deb"},
        most=32, has="NFY Computed md5 is " + ZEROS, package=b"", connections=3,
        needs=['[ $(df --output=avail "${TMPDIR:-/tmp}" | tail -n 1) -gt 4194304 ]'],
        commands={"dpkg": 'stat -c %s "$2" >> "$calls"; : > "$2"'},
        calls="{stop} | {install} | 2147483648 | {start}"),
    Row("ProgressIsLoggedInTens", {GET: Answer(PACKAGE, paced=until_logged)}, calls="{commands}", check=tens),
    Row("ProxyOfTheEnvironment", {UNKNOWN + VERSION: "7.2.0.1"},
        args=[UNKNOWN.encode().hex(), "{V}"], env={"http_proxy": "{S}"}, has="{nothing to do}"),
    Row("NameThatNobodyResolvesEndsTheRun", status=2, first='set -- unshare --net "$@"', needs=["unshare --net true"],
        args=[UNKNOWN.encode().hex(), "{V}"], has=FAILED_VERSION, requests=""),
]
WHOLE = b"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n7.2.1.15\n"
# Without a length only the end of the connection ends a body, and a cut can't be told from it.
CUTS = [
    Row(f"Cut{what}AfterByte{size}", {line: Answer(raw=WHOLE[:size])}, status=2, has=record, calls="", connections=9)
    for what, line, record, most in (
        ("Version", VERSION, FAILED_VERSION, len(WHOLE)),
        ("Package", GET, "ERR 'Fail to download setup file: [-1]", len(WHOLE)),
        ("Size", HEAD, "ERR Fail to get HEAD for {F}/setup.deb: [-1 ]", WHOLE.index(b"7.2")))
    for size in range(most)
]


# --- faulty and hostile answers

def fault(name, script, status, record) -> Row:
    return Row(name, script, status=status, has=record, calls="{commands}" if status == 0 else "",
               most=64, connections=9)


ENDLESS = Answer("7" * (1 << 20), length=None, endless=True)
HEADERS = {f"X-{number}": "more" for number in range(1200)}
FLOOD = Answer("".join(f"{name}: more\r\n" for name in HEADERS), endless=True, raw=b"HTTP/1.1 200 OK\r\n")
SPLIT = "[" + entry("a.deb", path=r"/p HTTP/1.1\r\nX: y") + "]"
REQUEST = "ERR Request {F}/"
SIZE = "NFY File size for {F}/setup.deb is "
FAULTS = [
    fault("EndlessVersion", {VERSION: ENDLESS}, 2, REQUEST + "version_long.txt failed : [23] -> "
          "Failed writing received data to disk/application"),
    fault("EndlessDefinition", {DEFINITION: ENDLESS}, 0,
          "WRN Failed to get agent setup definition file - use legacy definition"),
    fault("EndlessPackage", {GET: ENDLESS}, 2, "ERR 'Fail to download setup file: [-1]"),
    fault("PackageLargerThanTold", {GET: PACKAGE + b"!"}, 6,
          "WRN Downloaded size is 20001 bytes. Expected size is 20000 bytes - try again"),
    fault("PackageThatEndsWithItsConnection", {GET: Answer(PACKAGE, length=None)}, 0, "NFY Agent Update done"),
    fault("RedirectLoop", {VERSION: redirect(VERSION)}, 2, REQUEST + "version_long.txt failed : "
          "[47] -> Number of redirects hit maximum amount"),
    fault("OtherSuccess", {VERSION: Answer("7.2.1.15", status=203)}, 2, "ERR Failed to download version:  [203]"),
    fault("VersionWithLineFeed", {VERSION: "bad\x1b[31m\nNFY forged"}, 5, "ERR Invalid version_long.txt bad\x1b[31m"),
    *(fault(name, script, 2, FAILED_VERSION) for name, script in (
        ("HeaderFlood", {VERSION: FLOOD}), ("NotHttp", {VERSION: Answer(raw=b"7.2.1.15\n")}),
        ("StatusOfZeros", {VERSION: Answer(raw=b"HTTP/1.1 000 OK\r\n\r\n7.2.1.15")}),
        ("PathThatBreaksTheRequest", {DEFINITION: SPLIT}))),
    *(fault("Size:" + name, {HEAD: answer, "/p": Answer(length=None)}, status, record)
      for name, answer, status, record in (
        ("NoNumber", Answer(length="many"), 2, REQUEST + "setup.deb failed : [8] -> Weird server reply"),
        ("BeyondNumbers", Answer(length="9" * 20), 11, "ERR Exception : stoull"),
        ("Largest", Answer(length="9223372036854775807"), 6, SIZE + "9223372036854775807 bytes"),
        ("BehindTooManyHeaders", Answer(headers=HEADERS, length="20000"), 7, "ERR Fail to determine file size"),
        ("InCapitals", Answer(headers={"CONTENT-LENGTH": "9"}, length=None), 7, "ERR Fail to determine file size"),
        ("OfARedirectBeforeNone", Answer(status=302, headers={"Location": "/p"}, length="7"), 6, SIZE + "7 bytes"),
        ("Twice", Answer(raw=b"HTTP/1.1 200 OK\r\nContent-Length: 7\r\nContent-Length: 20000\r\n\r\n"), 0,
         SIZE + "20000 bytes"),
        ("List", Answer(length="5, 5"), 6, SIZE + "5 bytes"))),
]


# --- other schemes

def schemes(scheme: str) -> list[Row]:
    def elsewhere(run) -> str:
        return scheme + "://" + ("/nowhere" if scheme == "file" else run.texts["S"].partition("//")[2])

    refused = partial(Row, status=2, check=logged("failed : [1] -> Unsupported protocol"), calls="")
    return [refused(f"Scheme:{scheme}", connections=0,
                    drive=lambda run, args: run.go(elsewhere(run).encode().hex(), args[1])),
            refused(f"RedirectToScheme:{scheme}", {VERSION: lambda _, run: redirect(elsewhere(run) + "/nowhere")})]


SCHEMES = ("file", "ftp", "scp", "smb", "gopher", "dict", "imap", "ldap", "telnet", "tftp")


# --- names and numbers of the definition file

def refused_name(name: str) -> Row:
    return Row(f"NameIsRefused:{name}", {DEFINITION: f"[{entry(name)}]"}, status=11, calls="",
               has="ERR Parsing error : invalid setup name", requests="GET /agent_setup_def.json", files="{locked}")


def plain_name(name: str) -> Row:
    """The name reaches the command as it is, one word, and runs nothing."""
    in_json = name.replace('"', r'\"').replace("ü", r"\u00fc")
    asked = "/p/" + re.sub("[^\0-\x7f]", lambda letter: quote(letter[0]).lower(), name)
    good = {DEFINITION: f"[{entry(in_json)}]", "/p/v": "7.2.1.15", "/p/h": DIGEST + " ", asked: PACKAGE}
    return Row(f"NameIsPlainText:{name}", good, calls="{stop} | dpkg -i {T}/" + name + " | 2 | {start}",
               files=f"{name} | {{locked}}", commands={"dpkg": r"""printf '%s\n' "$#" >> "$calls" """})


DEFINITIONS = [
    *map(refused_name, (
        "../x.deb", "/etc/x.deb", r"a\\b.deb", "--root=x.deb", ".x.deb", r"a\nb.deb",
        r"a\u0000.deb", r"a\u001f.deb", r"a\u007f.deb")),
    *map(plain_name, (
        "a;touch${IFS}pwned;.deb", "$(touch${IFS}pwned).deb", "`touch${IFS}pwned`.deb",
        "a'&touch${IFS}pwned&'.deb", 'a"|touch${IFS}pwned|".deb', "~*$HOME!(a)[a-z]{1,2}<>.deb",
        "mün+1.0~rc@2%20=,:.deb")),
    *(Row(f"NumberBeyondInt:{number}", {DEFINITION: f"[{entry('a.deb', arch=number)}]"}, status=11,
          check=logged("ERR Parsing error : "), calls="")
      for number in (f"429496729{6 + int(NAMES.get('N', 0))}", "-2147483649", "1e300")),
]

ROWS = CONNECTIONS + CUTS + FAULTS + [*chain(*map(schemes, SCHEMES))] + DEFINITIONS

if __name__ == "__main__":
    sys.exit(main(__doc__, ROWS))

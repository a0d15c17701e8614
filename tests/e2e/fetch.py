#!/usr/bin/env python3
"""Whole runs with an update.toml over bad lines: resumed downloads, tired servers, certificates, proxies."""

import contextlib
import hashlib
import os
import random
import select
import shutil
import socket
import socketserver
import subprocess
import sys
import threading
import time
from functools import partial

from harness import Answer, Row, Skip, difference, fill, main, read, state, write
from harness.linux import BLOCKS, DEB, PACKAGE, SUM, VERSION, WRONG
from harness.server import free_port, redirect
from settings import BLOCKS_WITH_FILE, DATABASE, INSTALL, dpkg, installed, tells

OTHER = bytes(reversed(PACKAGE))
row = partial(Row, config="", commands=DATABASE, prepare=installed(), connections=99,
              blocks=BLOCKS | BLOCKS_WITH_FILE)


# The digest of what is installed is in the file "sum".
SUMMED = dpkg('md5sum "$2" >"$tmp/../sum"; ' + INSTALL)
LOCAL = "127.0.0.1"


def part(content: bytes, tag: str, cut: int = 0, ignores_condition: bool = False, total: int = 0):
    """Answers like a server of files; after `cut` bytes of a body the connection is cut."""
    def answer(request, _):
        begin = int(request.headers.get("range", "bytes=0-")[6:-1])
        condition = request.headers.get("if-range", "")
        if begin and condition != tag and not ignores_condition:
            begin = 0
        if begin >= len(content):
            return Answer(status=416, headers={"Content-Range": f"bytes */{len(content)}"})
        body, status = content[begin:], "206 Part" if begin else "200 OK"
        span = f"Content-Range: bytes {begin}-{len(content) - 1}/{total or len(content)}\r\n" * bool(begin)
        head = f"HTTP/1.1 {status}\r\nETag: {tag}\r\n{span}Content-Length: {len(body)}\r\n\r\n"
        return Answer(raw=head.encode() + body[:cut or None])
    return answer


def ranges(*expected: str, content: bytes = PACKAGE):
    """The parts that were asked for, and that the package was whole when it was installed."""
    def check(run, outcome):
        seen = [request.headers.get("range", "all") for request in outcome.requests
                if request.line.startswith("GET") and request.line.endswith("setup.deb")]
        yield from difference("parts", seen, list(expected))
        yield from difference("installed", [read(run.side("sum"))[:32]], [hashlib.md5(content).hexdigest()])
    return check


def downloads(name: str, *answers, **more) -> Row:
    content = more.pop("content", PACKAGE)
    script = {"GET " + DEB: [*answers], "HEAD " + DEB: content,
              SUM: hashlib.md5(content).hexdigest() + "  setup.deb\n"}
    return row(name, script, commands=SUMMED, check=ranges(*more.pop("parts"), content=content), **more)


def twice(run, args):
    first = run.go(*args)
    assert first.status == 2, first
    return run.go(*args)


A, B = '"a"', '"b"'
RESUMED = [
    downloads("Cut", *[part(PACKAGE, A, 6000)] * 3, part(PACKAGE, A),
              parts=["all", "bytes=6000-", "bytes=12000-", "bytes=18000-"]),
    downloads("Exchanged", part(PACKAGE, A, 6000), part(OTHER, B), content=OTHER, parts=["all", "bytes=6000-"]),
    downloads("ExchangedOnAServerWithoutConditions", part(PACKAGE, A, 6000), part(OTHER, B, 0, True),
              content=OTHER, parts=["all", "bytes=6000-", "all"]),
    downloads("ExchangedByAShorterOne", part(PACKAGE + PACKAGE, A, 30000), Answer(
        status=416, headers={"Content-Range": "bytes */20000"}), part(PACKAGE, B),
              parts=["all", "bytes=30000-", "all"]),
    downloads("PartOfAnotherPlace", part(PACKAGE, A, 6000), Answer(raw=b"HTTP/1.1 206 Part\r\n"
              b"Content-Range: bytes 5-19999/20000\r\nContent-Length: 19995\r\n\r\n" + PACKAGE[5:]),
              part(PACKAGE, A), parts=["all", "bytes=6000-", "all"]),
    downloads("GoesOnInTheNextRun", part(PACKAGE, A, 6000), 404, part(PACKAGE, A), drive=twice,
              parts=["all", "bytes=6000-", "bytes=6000-"], has="NFY Resuming the download at 6000 bytes"),
    downloads("WrongDigestIsDropped", part(WRONG, A), part(PACKAGE, B), parts=["all", "all"]),
]



@contextlib.contextmanager
def serving(port: int, *words: str):
    """A real server, once it answers at the port."""
    if shutil.which(words[0]) is None:
        raise Skip(f"needs {words[0]}")
    with subprocess.Popen(words, stdout=subprocess.DEVNULL) as server:
        try:
            while socket.socket().connect_ex((LOCAL, port)):
                assert server.poll() is None, f"{words[0]} ended with {server.returncode}"
                time.sleep(0.05)
            yield
        finally:
            server.terminate()


NGINX = """daemon off; pid {0}/pid; error_log {0}/error.log; user nobody nogroup; events {{}}
http {{ access_log off; client_body_temp_path {0}/1; proxy_temp_path {0}/2; fastcgi_temp_path {0}/3;
uwsgi_temp_path {0}/4; scgi_temp_path {0}/5; server {{ listen 127.0.0.1:{1}; root {0}/www; }} }}"""
CUTS, LARGE = 20, random.Random(1).randbytes(8 << 20)


class Cutter(socketserver.ThreadingTCPServer):
    """A bad line to another port: it breaks after some bytes, so many times, and calls `broken` each time."""

    daemon_threads = allow_reuse_address = True

    def __init__(self, port: int, broken):
        super().__init__((LOCAL, 0), self.handle)
        self.port, self.broken, self.cuts, self.bytes = port, broken, 0, 0
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def handle(self, client, *_) -> None:
        with socket.create_connection((LOCAL, self.port)) as server:
            left = random.randrange(1, len(LARGE) // CUTS)
            while ready := select.select([client, server], [], [])[0]:
                cutting = ready[0] is server and self.cuts < CUTS
                if not (piece := ready[0].recv(left if cutting else 65536)):
                    return
                (server if ready[0] is client else client).sendall(piece)
                self.bytes += len(piece) * (ready[0] is server)
                left -= len(piece) * cutting
                if left <= 0:
                    self.cuts += 1
                    self.broken(self.cuts)
                    return


def cut_by_nginx(name: str, exchanged_at: int, wanted: bytes, most: float) -> Row:
    """A real server of files behind a bad line; after so many cuts it has another file."""
    def drive(run, args):
        top, port = run.side("nginx"), free_port()
        package = f"{top}/www{fill(DEB, run.texts)}"
        os.makedirs(os.path.dirname(package))
        write(package, LARGE)
        os.utime(package, (1, 1))
        write(package + ".new", wanted)
        write(package + ".md5", hashlib.md5(wanted).hexdigest() + "  setup.deb\n")
        write(f"{top}/www{fill(VERSION, run.texts)}", "7.2.1.15\n")
        write(f"{top}/conf", NGINX.format(top, port))
        with serving(port, "nginx", "-p", top, "-c", f"{top}/conf", "-e", f"{top}/error.log"), \
                Cutter(port, lambda cut: cut == exchanged_at and os.rename(package + ".new", package)) as line:
            outcome = run.go(f"http://{LOCAL}:{line.server_address[1]}".encode().hex(), args[1])
            line.shutdown()
        run.texts["came"] = f"{line.cuts} cuts, {line.bytes / len(LARGE)}"
        return outcome

    def check(run, outcome):
        yield from difference("installed", [read(run.side("sum"))[:32]], [hashlib.md5(wanted).hexdigest()])
        cuts, _, came = run.texts["came"].split()
        if int(cuts) < CUTS or float(came) > most or "wrong hash" in str(outcome.log):
            yield f"{run.texts['came']}: {outcome.log}"
    return row(name, commands=SUMMED, drive=drive, check=check)


BY_NGINX = [cut_by_nginx("CutByNginx", 0, LARGE, 1.02), cut_by_nginx("ExchangedByNginx", 10, LARGE[::-1], 2.02)]

TIRED = [
    row("DigestAfterAll", {SUM: [503, Answer(status=429, headers={"Retry-After": "2"}), BLOCKS["D"] + "  x\n"]},
        has="{update}"),
    row("NoDigest", {SUM: 404}, status=13, check=tells(
        {"cause": "no-digest", "outcome": "failed", "message":
         "without a digest nothing is installed: there is none at {F}/setup.deb.md5"})),
    row("NeverBetter", {DEB: 503}, status=2, config="fetch.deadline = '3s'"),
    row("NeverAnswers", {DEB: lambda *_: time.sleep(30)}, status=2, config="fetch.deadline = '2s'", calls="{ask}"),
    row("LengthOfTheLastAnswer", {DEB: Answer(status=302, headers={
        "Location": "/moved.deb", "content-length": "7"}, length=None), "/moved.deb": PACKAGE}),
]


def secured(name: str, host: str, config: str, said: str = "", script={}) -> Row:
    """A server with a certificate for `host`; what is said when it is not accepted."""
    good = {"outcome": "updated"} if not said else {}
    return row(name, script, tls=host, config="[fetch]\n" + config, status=0 if not said else 2,
               check=tells(good), has=f"ERR Request {{S}}/agent_setup_def.json failed : {said}" if said else "")


OWN = "ca = '{ca}'"
CLIENT = "\nclient_cert = '{ca}'\nclient_key = '{key}'"
CERTIFICATES = [
    secured("OwnAuthority", LOCAL, OWN),
    secured("NotVerified", "elsewhere.example", ""),
    secured("WrongName", "elsewhere.example", OWN, "[60] -> SSL: no alternative certificate subject name "
            "matches target host name '127.0.0.1'"),
    secured("LeadsToHttp", LOCAL, OWN, '[1] -> Protocol "http" not supported or disabled in libcurl',
            {"/agent_setup_def.json": redirect("http://127.0.0.1/"), VERSION: redirect("http://127.0.0.1/")}),
    secured("Expired", LOCAL + " expired", OWN, "[60] -> SSL certificate problem: certificate has expired"),
    secured("SelfSigned", LOCAL, "ca = 'system'", "[60] -> SSL certificate problem: self-signed certificate"),
    secured("NoAuthorities", LOCAL, "ca = '/nowhere.pem'", "[77] -> error setting certificate file: /nowhere.pem"),
    secured("ClientCertificate", LOCAL + " client", OWN + CLIENT),
]


def through(name: str, settings: str, asked: bool = True, password: bool = False, said: str = "") -> Row:
    """A real proxy, which sees the requests, or is not asked."""
    def drive(run, args):
        port = free_port()
        write(run.config(), fill(settings, {"port": str(port)}), 0o600)
        write(run.side("proxy.conf"), f"Port {port}\nListen {LOCAL}\nLogFile \"{run.side('proxy.log')}\"\n"
              "LogLevel Connect\n" + "BasicAuth me secret\n" * password)
        with serving(port, "tinyproxy", "-d", "-c", run.side("proxy.conf")):
            return run.go(*args)

    def check(run, outcome):
        seen = "GET " in read(run.side("proxy.log"))
        yield from difference("proxy asked", [str(seen)], [str(asked)])
        told = "\n".join(outcome.log) + read(state(run))
        if "secret" in told:
            yield "the password is told: " + told
    return row(name, drive=drive, check=check, status=2 if said else 0, has=said)


PROXY = "fetch.proxy = 'http://127.0.0.1:{port}'\n"
PROXIES = [
    through("Proxy", PROXY),
    through("ProxyWithPassword", PROXY.replace("//", "//me:secret@"), password=True),
    through("ProxyWithAnotherPassword", PROXY.replace("//", "//me:secret2@"), password=True,
            said="ERR Request {S}/agent_setup_def.json failed : [401]"),
    through("NoProxy", PROXY + "fetch.no_proxy = '127.0.0.1'", asked=False),
]

if __name__ == "__main__":
    sys.exit(main(__doc__, [*RESUMED, *BY_NGINX, *TIRED, *CERTIFICATES, *PROXIES]))

#!/usr/bin/env python3
"""The program qd-tuf against repositories that openssl has signed."""

import hashlib
import json
import os
import subprocess
import sys
import time
from urllib.parse import quote

from harness import Answer, Case, Place, Server, Skip, main, read, redirect, write

NAMES = ["a", "../d/ü?.txt", "-x", "[x,y]"]
TARGETS = {name: f"content of {name}".encode() for name in NAMES}


def address(name: str) -> str:
    folder, slash, file = name.rpartition("/")
    return f"/t/{quote(f'{folder}{slash}{hashlib.sha256(TARGETS[name]).hexdigest()}.{file}')}"


class Repository:
    """One Ed25519 key for all roles; what a server answers for it; a client's folders."""

    def __init__(self, place: Place):
        self.program, self.place = place.program("qd-tuf"), place.folder
        self.openssl("genpkey", "-algorithm", "ed25519", "-out", "key")
        public = self.openssl("pkey", "-in", "key", "-pubout", "-outform", "DER")[-32:].hex()
        key = {"keytype": "ed25519", "scheme": "ed25519", "keyval": {"public": public}}
        role = {"keyids": ["id"], "threshold": 1}
        names = ("root", "timestamp", "snapshot", "targets")
        self.script: dict = {address(name): content for name, content in TARGETS.items()}
        self.publish("1.root", "root", consistent_snapshot=True, keys={"id": key},
                     roles={name: role for name in names})
        self.publish("1.targets", "targets", targets={
            name: {"length": len(content), "hashes": {"sha256": hashlib.sha256(content).hexdigest()}}
            for name, content in TARGETS.items()})
        self.publish("1.snapshot", "snapshot", meta={"targets.json": {"version": 1}})
        self.publish("timestamp", "timestamp", meta={"snapshot.json": {"version": 1}})
        write(self.file("root"), self.script["/r/1.root.json"])
        self.calls("init", self.file("root"), url=None)

    def file(self, name: str) -> str:
        return f"{self.place}/{name}"

    def openssl(self, *args: str) -> bytes:
        return subprocess.run(["openssl", *args], cwd=self.place, capture_output=True,
                              check=True).stdout

    def publish(self, name: str, role: str, **more) -> None:
        content = {"_type": role, "spec_version": "1.0.0", "version": 1,
                   "expires": "2099-01-01T00:00:00Z", **more}
        write(self.file("message"), json.dumps(content, sort_keys=True, separators=(",", ":"),
                                               ensure_ascii=False))
        sig = self.openssl("pkeyutl", "-sign", "-rawin", "-inkey", "key", "-in", "message").hex()
        self.script[f"/r/{name}.json"] = json.dumps(
            {"signed": content, "signatures": [{"keyid": "id", "sig": sig}]}).encode()

    def calls(self, *args: str, url: str | None, env=None) -> tuple[int, str]:
        """Status and standard error."""
        address = ["--metadata-url", url] if url else []
        done = subprocess.run([self.program, *address, "--metadata-dir", self.file("metadata"),
                               *args], capture_output=True, text=True, timeout=60, env=env)
        assert not done.stdout, done.stdout
        return done.returncode, done.stderr

    def downloads(self, server: Server, *names: str) -> tuple[int, str]:
        words = [word for name in names for word in ("--target-name", name)]
        return self.calls(*words, "--target-dir", self.file("targets"), "--target-base-url",
                          f"{server.url}/t/", "download", url=f"{server.url}/r")

    def kept(self) -> dict[str, bytes]:
        folder = self.file("targets")
        names = os.listdir(folder) if os.path.isdir(folder) else []
        return {name: open(f"{folder}/{name}", "rb").read() for name in names}


def asked(server: Server) -> list[str]:
    lines = [request.line.removeprefix("GET ") for request in server.requests]
    server.requests.clear()
    return lines


REFRESH = ["/r/2.root.json", "/r/timestamp.json"]
FIRST = [*REFRESH, "/r/1.snapshot.json", "/r/1.targets.json"]


def whole_way(place: Place):
    repository = Repository(place)
    with Server(repository.script) as server:
        yield from unless(repository.calls("refresh", url=f"{server.url}/r"), (0, ""))
        yield from unless(asked(server), FIRST)
        yield from unless(repository.downloads(server, *NAMES), (0, ""))
        yield from unless(asked(server), REFRESH + [address(name) for name in NAMES])
        yield from unless(repository.kept(), {"a": TARGETS["a"], "-x": TARGETS["-x"],
                                              "%5Bx%2Cy%5D": TARGETS["[x,y]"],
                                              "%2E.%2Fd%2F%C3%BC%3F.txt": TARGETS[NAMES[1]]})
        yield from unless(repository.downloads(server, *NAMES), (0, ""))
        yield from unless(asked(server), REFRESH)
        # What is trusted lies in the folder itself: a link to a higher version is none of it.
        repository.publish("later", "timestamp", version=9, meta={"snapshot.json": {"version": 9}})
        write(repository.file("later"), repository.script["/r/later.json"])
        os.remove(repository.file("metadata/timestamp.json"))
        os.symlink(repository.file("later"), repository.file("metadata/timestamp.json"))
        yield from unless(repository.calls("refresh", url=f"{server.url}/r"), (0, ""))


def first_failure(place: Place):
    """A refused target leaves the older file, and nothing is asked after it."""
    repository = Repository(place)
    repository.script[address("a")] = b"another of a"
    os.mkdir(repository.file("targets"))
    write(repository.file("targets/a"), "older")
    with Server(repository.script) as server:
        yield from unless(repository.downloads(server, "a", "-x"),
                          (1, 'qd-tuf: The target "a" has another sha256\n'))
        yield from unless(asked(server), [*FIRST, address("a")])
        yield from unless(repository.kept(), {"a": b"older"})
        yield from unless(repository.downloads(server, "b", "-x"),
                          (1, 'qd-tuf: No role describes the target "b"\n'))


def slowly(_, piece: int) -> None:
    time.sleep(4)


HOSTILE = {  # what is answered for the timestamp, and what the client says of it
    "endless": (Answer(b"x" * 1024, endless=True, length=None), "has more than 65536 bytes"),
    "slow": (Answer(b"x" * 100, paced=slowly), "too slow"),
    "another protocol": (redirect("file:///etc/passwd"), "not supported or disabled"),
    "in a circle": (redirect("/r/timestamp.json"), "redirects"),
    "cut": (Answer(b"x", length="9"), "Cannot get"),
    "no HTTP": (Answer(raw=b"nothing\r\n\r\n"), "Cannot get"),
    "an error": (500, "answers 500"),
    "no JSON": (b"x", "No JSON"),
}


def hostile(name: str) -> Case:
    def case(place: Place):
        repository = Repository(place)
        repository.script["/r/timestamp.json"], text = HOSTILE[name]
        # The end of the roots is seen, whatever comes with it.
        repository.script["/r/2.root.json"] = Answer(b"x" * 1024, status=404, endless=True,
                                                     length=None)
        with Server(repository.script) as server:
            status, said = repository.calls("refresh", url=f"{server.url}/r")
            yield from unless((status, said.count("\n")), (1, 1))
            if text not in said:
                yield said
            yield from unless(os.listdir(repository.file("metadata")), ["root.json"])
    return case


def expired(place: Place):
    """The time is the C library's, which a preloaded one may answer in its place."""
    repository = Repository(place)
    if b"__asan_init" in open(repository.program, "rb").read():
        raise Skip("a sanitizer is preloaded itself")
    write(repository.file("time.c"), "long time(long *t) { return t ? *t = 4102444800 : 4102444800; }")
    subprocess.run(["cc", "-w", "-shared", "-fPIC", "-o", repository.file("time.so"),
                    repository.file("time.c")], check=True)
    with Server(repository.script) as server:
        said = repository.calls("refresh", url=f"{server.url}/r",
                                env={"LD_PRELOAD": repository.file("time.so")})
        yield from unless(said, (1, "qd-tuf: The root has expired\n"))
        yield from unless(asked(server), REFRESH[:1])


def misuse(place: Place):
    repository = Repository(place)
    for args in (["refresh"], ["download"], ["--target-name"], ["init"], [], ["init", "/nowhere"]):
        status, said = repository.calls(*args, url=None)
        if status != 1 or not said:
            yield f"{args}: {status} {said}"
    yield from unless(read(repository.file("metadata/root.json")), read(repository.file("root")))


def unless(seen, expected):
    if seen != expected:
        yield f"{seen!r}, not {expected!r}"


def cases(_place: Place, _all: bool) -> dict[str, Case]:
    fixed = {case.__name__: case for case in (whole_way, first_failure, expired, misuse)}
    return fixed | {f"hostile: {name}": hostile(name) for name in HOSTILE}


if __name__ == "__main__":
    sys.exit(main(__doc__, cases))

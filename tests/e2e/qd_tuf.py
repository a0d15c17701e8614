#!/usr/bin/env python3
"""The client of signed metadata, as qd-tuf, against repositories that are made here and signed by openssl."""

import functools
import hashlib
import json
import operator
import os
import re
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from urllib.parse import quote

from harness import Answer, Case, Place, Server, Skip, difference, main, read, redirect, write

HOME = tempfile.TemporaryDirectory(prefix="qd-tuf.")
EC, RSA = "EC -pkeyopt ec_paramgen_curve:P-", "RSA -pkeyopt rsa_keygen_bits:"
P256, PSS = "ecdsa-sha2-nistp256", "rsassa-pss-sha256"
SIGNING = {"ed25519": "", P256: "-digest sha256", PSS: "-digest sha256 -pkeyopt rsa_padding_mode:pss"}
KEYS = {  # by id, for the roles their names: how openssl makes it, keytype and scheme
    "root": ("ed25519", "ed25519", "ed25519"), "timestamp": (EC + "256", P256, P256),
    "snapshot": (EC + "256", "ecdsa", P256), "targets": (RSA + "2048", "rsa", PSS),
    "delegated": ("ed25519", "ed25519", "ed25519"), "new": ("ed25519", "ed25519", "ed25519"),
    "short": (RSA + "2047", "rsa", PSS), "p384": (EC + "384", "ecdsa", P256)}
TOP = ("root", "timestamp", "snapshot", "targets")
FAR, UNKNOWN = "2096-02-29T23:59:59Z", {"newer": "00"}


def openssl(words: str) -> bytes:
    return subprocess.run(["openssl", *words.split()], cwd=HOME.name, capture_output=True, check=True).stdout


@functools.cache
def public(key: str) -> dict:
    _, keytype, scheme = KEYS[key]
    raw = openssl(f"pkey -in {key} -pubout -outform DER")[-32:].hex()
    text = raw if scheme == "ed25519" else openssl(f"pkey -in {key} -pubout").decode()
    return {"keytype": keytype, "scheme": scheme, "keyval": {"public": text}}


@functools.cache
def signature(key: str, message: str) -> str:
    with tempfile.NamedTemporaryFile(dir=HOME.name) as file:
        write(file.name, message)
        return openssl(f"pkeyutl -sign -rawin -inkey {key} -in {file.name} {SIGNING[KEYS[key][2]]}").hex()


def sha256(content: bytes) -> str:
    return hashlib.sha256(content).hexdigest()


def stated(content: bytes) -> dict:
    return {"length": len(content), "hashes": UNKNOWN | {"sha256": sha256(content)}}


def target(path: str) -> bytes:
    return f"content of {path}".encode()


def address(path: str) -> str:
    folder, slash, file = path.rpartition("/")
    return "/t/" + quote(f"{folder}{slash}{sha256(target(path))}.{file}")


def document(kind: str) -> dict:
    return {"_type": kind, "spec_version": "1.0.31-rc.1+x", "version": 5, "expires": FAR}


def slowly(_, piece: int) -> None:
    time.sleep(4)


NAMED = {  # what scripts call by a name
    "MISSING": ..., "FAR": FAR, "PAST": "2020-01-01T00:00:00Z", "UNKNOWN": UNKNOWN,
    "BIN": {"keyids": ["delegated"], "threshold": 1, "bit_length": 5, "name_prefix": "bin"},
    "ENDLESS": Answer(b"x" * 1024, endless=True, length=None), "SLOW": Answer(b"x" * 100, paced=slowly),
    "ENDLESS-404": Answer(b"x", status=404, endless=True, length=None), "CUT": Answer(b"x", length="9"),
    "FILE": redirect("file:///etc/passwd"), "CIRCLE": redirect("/r/timestamp.json")}


def value(word: str):
    try:
        return NAMED[word] if word in NAMED else json.loads(word)
    except ValueError:
        return word


class Repository:
    """Root 1 and, in version 5, timestamp, snapshot, targets with the target "a", and the role "other", as a server
    has them: metadata below /r, targets below /t."""

    def __init__(self):
        self.script, self.keys, self.former = {}, {}, []
        self.content = {role: document(role) for role in TOP}
        self.content["targets"]["targets"] = {}
        self.content["root"] |= {"version": 0, "consistent_snapshot": True, "roles": {}}
        self.content["root"]["keys"] = {"other": {"keytype": "new", "scheme": "new", "keyval": {"issuer": ""}}}
        for role in TOP:
            self.rotate(role, role)
        self.next_root()
        self.add("targets", "a")
        self.delegate("targets", "other", paths=["other/*"])
        self.publish()

    def play(self, script: str) -> None:
        """Calls one function after the other: "set timestamp/version 4; publish hashes=false"."""
        for action in script.split("; "):
            name, *words = action.split()
            options = dict(word.split("=", 1) for word in words if "=" in word)
            getattr(self, name)(*[value(word) for word in words if "=" not in word],
                                **{option: value(word) for option, word in options.items()})

    def set(self, where: str, value) -> None:
        """A member, by its way from the role on; `...` takes it away."""
        *way, last = (int(name) if name.isdigit() else name for name in where.split("/"))
        inside = functools.reduce(operator.getitem, way, self.content)
        inside[last] = value
        if value is ...:
            del inside[last]

    def rotate(self, role: str, *keys: str, threshold: int = 1) -> None:
        self.keys[role] = keys
        self.content["root"]["keys"] |= {key: public(key.partition("/")[0]) for key in keys}
        self.content["root"]["roles"][role] = {"keyids": keys, "threshold": threshold}

    def add(self, role: str, path: str) -> None:
        self.content[role]["targets"][path] = stated(target(path))
        self.script[address(path)] = target(path)

    def delegate(self, role: str, *to: str, key: str = "delegated", **more) -> None:
        delegations = self.content[role].setdefault("delegations", {"keys": {}, "roles": []})
        delegations["keys"][key] = public(key)
        for name in to:
            self.content.setdefault(name, document("targets") | {"targets": {}})
            self.keys.setdefault(name, ["delegated"])
            described = {"name": name, "keyids": [key], "threshold": 1, "paths": ["p/*"]} | more
            delegations["roles"].append({member: value for member, value in described.items() if value is not ...})

    def package(self, *words: str, plain: bool = False) -> None:
        self.script["/t/a" if plain else address("a")] = " ".join(words).encode()

    def write(self, role: str, name: str = "", keys=(), more=(), hashes: bool = True) -> dict:
        """Signs the role; `more` are signatures besides. What others state of the file."""
        content = self.content[role]
        message = json.dumps(content, sort_keys=True, separators=(",", ":"), ensure_ascii=False)
        message = message.replace(r"\n", "\n")  # of PEM texts: the canonical form escapes nothing but " and \
        signatures = [(key, signature(key.partition("/")[0], message)) for key in keys or self.keys[role]]
        listed = [{"keyid": key, "sig": sig} for key, sig in [*signatures, *more]]
        file = json.dumps({"signed": content, "signatures": listed}).encode()
        usual = role if role == "timestamp" else f"{content['version']}.{quote(role, safe='')}"
        self.answer(name or usual, file)
        return {"version": content["version"]} | (stated(file) if hashes else {})

    def next_root(self, **members) -> None:
        self.content["root"] |= members | {"version": self.content["root"]["version"] + 1}
        self.write("root", keys={*self.keys["root"], *self.former})
        self.former = self.keys["root"]

    def publish(self, hashes: bool = True, **versions: int) -> None:
        """Everything but the root, in these versions."""
        for role, version in versions.items():
            self.content[role]["version"] = version
        self.content["snapshot"]["meta"] = {
            f"{role}.json": self.write(role, hashes=hashes) for role, content in self.content.items()
            if content["_type"] == "targets"}
        self.content["timestamp"]["meta"] = {"snapshot.json": self.write("snapshot", hashes=hashes)}
        self.write("timestamp")

    def release(self, **more) -> None:
        self.publish(timestamp=6, snapshot=6, targets=6, **more)

    def answer(self, name: str, what) -> None:
        self.script[f"/r/{name}.json"] = what

    def copy(self, name: str, to: str, behind: str = "") -> None:
        self.answer(to, self.script[f"/r/{name}.json"] + behind.encode())


class Machine:
    """Trusts the first root of a repository, or has everything that a first run stores. Each call of `run` is a run of
    its own."""

    def __init__(self, place: Place, repository: Repository, stored=("1.root",)):
        self.program, self.repository = place.program("qd-tuf"), repository
        self.folder = tempfile.mkdtemp(dir=place.folder)
        os.mkdir(f"{self.folder}/metadata", 0o700)
        for name in stored:
            write(self.stored(name.rpartition(".")[2]), repository.script[f"/r/{name}.json"])

    def call(self, *args: str, **env: str) -> tuple[int, str]:
        """Status and standard error."""
        done = subprocess.run([self.program, "--metadata-dir", f"{self.folder}/metadata", *args], capture_output=True,
                              text=True, timeout=60, env=os.environ | env)
        assert not done.stdout, done.stdout
        return done.returncode, done.stderr

    def run(self, said: str, asked: str, stored: str = "", targets=(), **env: str):
        """What is not as expected: what is said of a failure, requests, and roles with their versions."""
        words = [word for name in targets for word in ("--target-name", name)]
        with Server(self.repository.script) as server:
            status, text = self.call(
                "--metadata-url", f"{server.url}/r", *words, "--target-dir", f"{self.folder}/targets",
                "--target-base-url", f"{server.url}/t/", "download" if targets else "refresh", **env)
            requests = [short(request.line) for request in server.requests]
        if status != bool(said) or text.count("\n") != status or said not in text:
            yield f"status {status}: {text}, not {said}"
        yield from difference("requests", requests, asked.split())
        kept = {path.stem: json.loads(path.read_bytes())["signed"]["version"] for path in self.files("metadata")}
        if stored:
            yield from difference("stored", [f"{role} {kept[role]}" for role in sorted(kept)], stored.split(", "))
        if not said and {target(path) for path in targets} - {path.read_bytes() for path in self.files("targets")}:
            yield f"another content of {targets}"

    def files(self, folder: str) -> list[Path]:
        return list(Path(self.folder, folder).glob("*"))

    def stored(self, role: str) -> str:
        return f"{self.folder}/metadata/{role}.json"


def short(request: str) -> str:
    return re.sub(r"^GET /(r/)?|\.json$", "", re.sub("[0-9a-f]{64}", "#", request))


TWO, RENEWED, FIRST = "2.root timestamp", "2.root 3.root timestamp", "2.root timestamp 5.snapshot 5.targets"
THREE, ALL = f"{TWO} 6.snapshot", f"{TWO} 6.snapshot 6.targets"
KEPT, RELEASED = (f"snapshot {version}, targets {version}, timestamp {version}" for version in (5, 6))
OLD, NEW, ROOT_2 = f"root 1, {KEPT}", f"root 1, {RELEASED}", "root 2"
STAMPED, ALMOST = (f"root 1, snapshot {version}, targets 5, timestamp 6" for version in (5, 6))
NO_HASH, NOBODY = "Only hashes of unknown algorithms", "No role describes the target"
ATTACKS = {  # what becomes of the repository after a first run, what is said and asked; what is stored, a target
    # Not one request more than it takes.
    "a release": ("release", "", ALL),
    "without lengths and hashes": ("release hashes=false", "", ALL),
    "the same timestamp": ("publish targets=6 snapshot=6", "", TWO),
    "what is missing is forbidden": ("answer 2.root 403", "", TWO),
    "what is missing is endless": ("answer 2.root ENDLESS-404", "", TWO),
    "unknown members": (r'set timestamp/x {"ü":"\"\\","b":[1,-1,true,null]}; release', "", ALL),
    "names without versions": (
        "set root/consistent_snapshot MISSING; next_root; release hashes=false; copy 6.snapshot snapshot; "
        "copy 6.targets targets; package content of a plain=true",
        "", f"{RENEWED} snapshot targets t/a", f"{ROOT_2}, {RELEASED}", "a"),
    # Packages.
    "endless package": ("package content of a.", "more than 12 bytes", f"{TWO} t/#.a", OLD, "a"),
    "cut package": ("package content of", "has 10 bytes, not 12", f"{TWO} t/#.a", OLD, "a"),
    "only unknown hashes": ("set targets/targets/a/hashes UNKNOWN; release", NO_HASH, ALL, NEW, "a"),
    # Servers.
    "an error": ("answer 2.root 500", "answers 500 for 2.root.json", "2.root"),
    "nothing": ("release; answer 6.snapshot 404", "answers 404 for 6.snapshot.json", THREE),
    "endless": ("answer timestamp ENDLESS", "has more than 65536 bytes", TWO),
    "longer than stated": ("release; copy 6.snapshot 6.snapshot behind=x", ".json has more than", THREE),
    "slow": ("answer timestamp SLOW", "too slow", TWO),
    "another protocol": ("answer timestamp FILE", "not supported or disabled", TWO),
    "in a circle": ("answer timestamp CIRCLE", "redirects", TWO + " timestamp" * 10, OLD),
    "cut": ("answer timestamp CUT", "Cannot get", TWO),
    "no JSON": ("answer timestamp x", "No JSON", TWO),
    "JSON before a NUL": ("copy timestamp timestamp behind=\0x", "No JSON", TWO),
    # Metadata.
    "rollback: timestamp": ("publish timestamp=4", "The timestamp went back from version 5 to 4", TWO),
    "rollback: snapshot": ("publish snapshot=4 timestamp=6", "'s snapshot went back from version 5 to 4", TWO),
    "rollback: a role": ("release other=4", '"other.json" went back from version 5 to 4', THREE),
    "a role vanishes": ("set other MISSING; release", '"other.json" vanished from the snapshot', THREE),
    "freeze: timestamp": ("set timestamp/expires PAST; release", "The timestamp has expired", TWO),
    "freeze: snapshot": ("set snapshot/expires PAST; release", "The snapshot has expired", THREE),
    "freeze: targets": ("set targets/expires PAST; release", 'The role "targets" has expired', ALL),
    "mix-and-match: hash": ("release; set targets/expires PAST; write targets", "has another sha256", ALL),
    "mix-and-match: version": ("release hashes=false; copy 5.targets 6.targets", "has version 5, not 6", ALL),
    "unknown hashes": ("release; set timestamp/meta/snapshot.json/hashes UNKNOWN; write timestamp", NO_HASH, THREE),
    # Keys.
    "below the threshold": ("rotate targets targets threshold=2; next_root; release", "of 1 keys, not of 2",
                            f"{RENEWED} 6.snapshot 6.targets", f"{ROOT_2}, snapshot 6, targets 5, timestamp 6"),
    "timestamp by another key": ('write timestamp keys=["targets"]', "of 0 keys, not of 1", TWO),
    "snapshot by another key": ('release hashes=false; write snapshot keys=["new"]', "of 0 keys", THREE),
    "a short key": ("rotate timestamp short; next_root; release", "of 0 keys", RENEWED, f"{ROOT_2}, targets 5"),
    "another curve": ("rotate timestamp p384; next_root; release", "of 0 keys", RENEWED, f"{ROOT_2}, targets 5"),
    "two ids": ("rotate timestamp timestamp timestamp/2 threshold=2; next_root; release", "of 1 keys, not of 2",
                RENEWED, f"{ROOT_2}, {KEPT}"),
    "one id twice": ('release; write timestamp more=[["x","00"],["x","00"]]', "A key id stands twice", TWO),
    "signatures of nobody": ('release; write timestamp more=[["targets","0g"],["x","00"],["","-"]]', "", ALL),
    # Roots.
    "missed rotations": (
        "rotate root new; next_root; rotate targets new; next_root; rotate root root; next_root; release",
        "", "2.root 3.root 4.root 5.root timestamp 6.snapshot 6.targets", f"root 4, {RELEASED}"),
    "not by the old": ('rotate root new; set root/version 2; write root keys=["new"]', "by the old keys", "2.root"),
    "not by its own": ("rotate root root threshold=2; next_root", "by its own keys, has valid", "2.root"),
    "a root left out": ("set root/version 3; write root 2.root", "root after version 1 has version 3", "2.root"),
    "the same root": ("copy 1.root 2.root", "The root after version 1 has version 1", "2.root"),
    "expired root": ("next_root expires=PAST", "The root has expired", "2.root 3.root", f"{ROOT_2}, {KEPT}"),
    "expired in between": ("next_root expires=PAST; next_root expires=FAR", "", "2.root 3.root 4.root timestamp",
                           f"root 3, {KEPT}"),
}
LONG = quote("/" * 999, safe="")
SEARCHES = {  # what comes with a release, what is said, asked after it; a target if not p/x; what is stored besides
    "the first that describes it": ("delegate targets a b; add a p/x; add b p/x", "", "5.a t/p/#.x"),
    "depth first": ("delegate targets a b; delegate a c; add b p/x", "", "5.a 5.c 5.b t/p/#.x"),
    "not behind a terminating one": (
        "delegate targets a terminating=true; delegate targets b; delegate a c; add b p/x", NOBODY, "5.a 5.c"),
    "behind a terminating one of other paths": (
        'delegate targets a terminating=true paths=["p/*/x"]; delegate targets b; add b p/x', "", "5.b t/p/#.x"),
    "all on the way are to be trusted": ('delegate targets a; delegate a b paths=["q/*"]; add b p/x', NOBODY, "5.a"),
    "a cycle": ("delegate targets a c; delegate a b; delegate b a; add c p/x", "", "5.a 5.b 5.c t/p/#.x"),
    "two ways to one role": (
        "delegate targets a b d; delegate a c; delegate b c; add d p/x", "", "5.a 5.c 5.b 5.d t/p/#.x"),
    "two ways with different keys": ("delegate targets a b; delegate a c; delegate b c key=new",
                                     'The role "c" has valid signatures of 0 keys, not of 1', "5.a 5.c 5.b 5.c"),
    "hash prefixes": ('delegate targets a paths=MISSING path_hash_prefixes=["0e4da","b2"]; '
                      'delegate targets b paths=MISSING path_hash_prefixes=["E4d"]; add b p/x', "", "5.b t/p/#.x"),
    "succinct roles": (  # the name has the first five bits of the hash
        "delegate targets bins; delegate bins bin-1c; set bins/delegations/roles MISSING; add bin-1c p/x; "
        "set bins/delegations/succinct_roles BIN", "", "5.bins 5.bin-1c t/p/#.x"),
    "not in the snapshot": ("delegate targets a; set a MISSING", 'The snapshot does not list the role "a"', ""),
    "too many": ("delegate targets d1; " + "; ".join(f"delegate d{number} d{number + 1}" for number in range(1, 33)),
                 "ended at the limit of 32 roles", " ".join(f"5.d{number}" for number in range(1, 32))),
    "names that would leave the folder": (
        'delegate targets ../x paths=["*/*"]; delegate ../x ?# paths=["?/*"]; add ?# d/ü?',
        "", "5...%2Fx 5.%3F%23 t/d/#.%C3%BC%3F", "d/ü?", "%3F%23 5, ..%2Fx 5, "),
    "a name like another's": ("delegate targets Root; add Root p/x", "", "5.Root t/p/#.x", "p/x", "%52oot 5, "),
    "a long name": (f"delegate targets {'/' * 999}; add {'/' * 999} p/x", "", f"5.{LONG} t/p/#.x", "p/x",
                    f"{LONG[:174]}%%{sha256(LONG.encode())} 5, "),
}


def attack(script: str, said: str, asked: str, stored: str = "", *paths: str) -> Case:
    def case(place: Place):
        repository = Repository()
        machine = Machine(place, repository, ("1.root", "timestamp", "5.snapshot", "5.targets"))
        repository.play(script)
        usual = {"2.root": OLD, TWO: OLD, THREE: STAMPED, ALL: ALMOST if said else NEW}
        yield from machine.run(said, asked, stored or usual.get(asked, ""), paths)
    return case


def search(script: str, said: str, asked: str, path: str = "p/x", stored: str = "") -> Case:
    return attack(script + "; release", said, f"{ALL} {asked}", stored and stored + NEW, path)


FORBIDDEN = [  # a member, what it must not be (`...`: missing), and what is said of it
    ("root/_type", ["targets"], "not of the type root"),
    ("root/spec_version", ["2.0.0", "1", "1.x", "1.0."], "spec_version is not 1.x"),
    ("root/version", [0, -1, "1"], "version is no whole number from 1 on"),
    ("root/version", [2 ** 63], "version is more than 9223372036854775807"),
    ("root/expires", [FAR.replace("2096", "2097"), "2099-01-01T24:00:00Z", "2099-01-01T00:00:00.0Z",
                      "2099-01-01T00:00:00"], "A time is not YYYY-MM-DDTHH:MM:SSZ"),
    ("root/consistent_snapshot", [1], "consistent_snapshot is neither true nor false"),
    ("root/roles/timestamp", [...], "does not know the role timestamp"),
    ("root/roles/timestamp/threshold", [0], "threshold is no whole number from 1 on"),
    ("root/roles/timestamp/keyids", [{}], "keyids is no list"),
    ("root/keys/other", [{"keytype": "new", "scheme": "new", "keyval": 1}], "A key has no object as keyval"),
    ("timestamp/meta/snapshot.json", [...], "describes not just the snapshot"),
    ("timestamp/meta/x", [{"version": 1}], "describes not just the snapshot"),
    ("snapshot/meta", [[]], "meta is no object"),
    ("snapshot/meta/targets.json", [...], "does not list targets.json"),
    ("snapshot/meta/targets.json/version", [...], "The member version is missing"),
    ("snapshot/meta/targets.json/length", [-1], "length is no whole number from 0 on"),
    ("snapshot/meta/targets.json/hashes", [{}], "hashes is empty"),
    ("targets/targets/a/length", [...], "The member length is missing"),
    ("targets/targets/a/hashes", [...], "The member hashes is missing"),
    ("targets/targets/a/hashes/sha256", [1], "hashes is no text"),
    ("targets/targets/a/custom", [1], "custom is no object"),
    ("targets/delegations/keys", [...], "The member keys is missing"),
    ("targets/delegations/roles", [...], "exactly one of roles and succinct_roles"),
    ("targets/delegations/succinct_roles", [{}], "exactly one of roles and succinct_roles"),
    ("targets/delegations/roles/1/name", ["root", ""], "A delegated role has the name"),
    ("targets/delegations/roles/1/name", ["other"], "is delegated to twice"),
    ("targets/delegations/roles/1/path_hash_prefixes", [["00"]], "both paths and path_hash_prefixes"),
    ("targets/delegations/roles/1/terminating", [0], "terminating is neither true nor false"),
]


def forbidden(place: Place):
    for where, values, said in FORBIDDEN:
        for value in values:
            role = where.partition("/")[0]
            repository = Repository()
            repository.play("delegate targets d; publish hashes=false root=2")
            repository.set(where, value)
            repository.write(role, "2.root" if role == "root" else "")
            asked = FIRST.split()[:TOP.index(role) + 1]
            for wrong in Machine(place, repository).run(said, " ".join(asked)):
                yield f"{where} {value}: {wrong}"


PATTERNS = ["targets/*.tgz", "foo-version-?.tgz", "*.tgz", "foo.tgz", "*", "?", "*a*b/*c", "a?c*", "[ab]", "b?"]
MATCHES = {"targets/foo.tgz": "targets/*.tgz", "targets/foo.txt": "", "foo-version-alpha.tgz": "*.tgz *",
           "foo-version-2.tgz": "foo-version-?.tgz *.tgz *", "foo.tgz": "*.tgz foo.tgz *", "foo.tg": "*", "/": "",
           "ü": "* ?", "xaxbxb/c": "*a*b/*c", "xaxbx/c": "", "a?c": "* a?c*", "b": "* ?"}


def patterns(place: Place):
    """Each pattern has a role of its name, which is asked where the path matches it."""
    repository = Repository()
    for pattern in PATTERNS:
        repository.delegate("targets", pattern, paths=[pattern])
    repository.publish()
    for path, matching in MATCHES.items():
        asked = [f"5.{quote(pattern, safe='')}" for pattern in matching.split()]
        yield from Machine(place, repository).run(NOBODY, " ".join([FIRST, *asked]), targets=[path])


def fast_forward(role: str, place: Place):
    """With stolen keys the highest versions have been signed; new keys begin again. The change is remembered
    although a run ends before it gets to the timestamp."""
    repository = Repository()
    repository.play("publish timestamp=99 snapshot=99 targets=99")
    machine = Machine(place, repository)
    yield from machine.run("", f"{TWO} 99.snapshot 99.targets")
    repository.play(f"rotate {role} new; next_root expires=PAST")
    yield from machine.run("The root has expired", "2.root 3.root")
    repository.play("next_root expires=FAR; release")
    yield from machine.run("", "3.root 4.root timestamp 6.snapshot 6.targets")


def damaged(place: Place):
    """What is stored is trusted no more than what comes."""
    repository = Repository()
    machine = Machine(place, repository)
    yield from machine.run("", FIRST)
    for role, asked in (("timestamp", TWO), ("snapshot", f"{TWO} 5.snapshot"), ("targets", f"{TWO} 5.targets")):
        write(machine.stored(role), read(machine.stored(role))[1:])
        yield from machine.run("", asked, OLD)
    # What is trusted lies in the folder itself: a link to a higher version is none of it.
    repository.play("set timestamp/version 9; write timestamp later")
    write(f"{machine.folder}/later", repository.script["/r/later.json"])
    os.remove(machine.stored("timestamp"))
    os.symlink(f"{machine.folder}/later", machine.stored("timestamp"))
    yield from machine.run("", TWO, OLD)
    # With the timestamp lost, the snapshot still knows of a rollback.
    write(machine.stored("timestamp"), "")
    repository.play("publish snapshot=4")
    yield from machine.run("The snapshot went back from version 5 to 4", f"{TWO} 4.snapshot")
    write(machine.stored("root"), read(machine.stored("root")).replace(FAR, "2098-02-28T23:59:59Z"))
    yield from machine.run("The trusted root has valid signatures of 0 keys", "")
    os.rename(machine.stored("root"), f"{machine.folder}/root")
    yield from machine.run("There is no trusted root", "")
    os.symlink(f"{machine.folder}/root", machine.stored("root"))
    yield from machine.run("The trusted root is a link", "")


CLOCK = """#include <stdlib.h>
long time(long *t) { long now = atol(getenv("QD_NOW")); return t ? *t = now : now; }"""
IN_2094, IN_2095, IN_2097 = "3913142400", "3944678400", "4007836800"


def expired(place: Place):
    """Stored files that have expired meanwhile: new ones are held against them, but they do not do. The time is the
    C library's, which a preloaded one may answer in its place."""
    repository = Repository()
    repository.play("set snapshot/expires 2094-01-01T00:00:00Z; set timestamp/expires 2095-01-01T00:00:00Z; publish")
    machine = Machine(place, repository)
    if b"__asan_init" in Path(machine.program).read_bytes():
        raise Skip("a sanitizer is preloaded itself")
    library = f"{machine.folder}/clock.so"
    write(f"{machine.folder}/clock.c", CLOCK)
    subprocess.run(["cc", "-w", "-shared", "-fPIC", "-o", library, f"{machine.folder}/clock.c"], check=True)
    yield from machine.run("", FIRST)
    yield from machine.run("snapshot has expired", f"{TWO} 5.snapshot", LD_PRELOAD=library, QD_NOW=IN_2094)
    repository.play("set timestamp/expires FAR; write timestamp")
    yield from machine.run("timestamp has expired", TWO, LD_PRELOAD=library, QD_NOW=IN_2095)
    yield from machine.run("The root has expired", "2.root", LD_PRELOAD=library, QD_NOW=IN_2097)


NAMES = {"a": "a", "../d/ü?.txt": "%2E.%2Fd%2F%C3%BC%3F.txt", "-x": "-x", "[x,y]": "%5Bx%2Cy%5D",
         **{name: f"{name[:174]}%%{sha256(name.encode())}" for name in ("x" * 241, "x" * 242)}}


def targets(place: Place):
    """Each has a file of its own, which is not fetched again. Nothing is asked after a failure, and a refused target
    leaves the older file."""
    repository = Repository()
    for name in NAMES:
        repository.add("targets", name)
    repository.publish()
    machine = Machine(place, repository)
    asked = [short("GET " + address(name)) for name in NAMES]
    yield from machine.run("", " ".join([FIRST, *asked]), targets=NAMES)
    yield from machine.run("", TWO, targets=NAMES)
    yield from difference("files", sorted(path.name for path in machine.files("targets")), sorted(NAMES.values()))
    write(f"{machine.folder}/targets/a", "older")
    repository.script[address("a")] = b"another of a"
    yield from machine.run('The target "a" has another sha256', f"{TWO} t/#.a", targets=["a", "b"])
    yield from machine.run('No role describes the target "b"', TWO, targets=["b", "a"])
    yield from difference("a", [read(f"{machine.folder}/targets/a")], ["older"])


def misuse(place: Place):
    repository = Repository()
    machine = Machine(place, repository, ())
    write(f"{machine.folder}/root", repository.script["/r/1.root.json"])
    if (done := machine.call("init", f"{machine.folder}/root")) != (0, ""):
        yield f"init: {done}"
    for args in (["refresh"], ["download"], ["--target-name"], ["init"], [], ["init", "/nowhere"]):
        status, said = machine.call(*args)
        if status != 1 or not said or read(machine.stored("root")) != read(f"{machine.folder}/root"):
            yield f"{args}: {status} {said}"


def cases(_place: Place, _all: bool) -> dict[str, Case]:
    for key, (how, _, _) in KEYS.items():
        openssl(f"genpkey -algorithm {how} -out {key}")
    return {case.__name__: case for case in (forbidden, patterns, damaged, expired, targets, misuse)} | {
        f"fast-forward: {role}": functools.partial(fast_forward, role) for role in ("timestamp", "snapshot")} | {
        f"attack: {name}": attack(*row) for name, row in ATTACKS.items()} | {
        f"search: {name}": search(*row) for name, row in SEARCHES.items()}


if __name__ == "__main__":
    sys.exit(main(__doc__, cases))

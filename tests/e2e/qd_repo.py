#!/usr/bin/python3
"""The publisher's program: what its repositories are to the client, to others' client, and to programs without
signed metadata, whatever happened to a command or to a copy."""

import functools
import hashlib
import itertools
import json
import os
import random
import re
import shutil
import subprocess
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from harness import Place, Server, Skip, main

CONTROL = ("Package: {}\nVersion: {}\nArchitecture: {}\nMaintainer: nobody <nobody@localhost>\n"
           "Description: sample\n")
SPEC = "Name: qdagent\nVersion: {}\nRelease: 1\nSummary: s\nLicense: none\nBuildArch: noarch\n%description\n%files\n"
CHECKOUT = Path(__file__).parents[2]
OLD, NEW, TOP = "7.2.1.4", "7.2.1.15", "7.10.0.1"
CHANGING = "rename,renameat,renameat2,link,linkat,unlink,unlinkat,mkdir,fsync,write,fchmod"


def files(folder) -> dict[str, bytes]:
    """By their names below the folder, as a server has them."""
    return {f"/{path.relative_to(folder)}": path.read_bytes() for path in Path(folder).rglob("*") if path.is_file()}


class Publisher:
    """A folder with a repository "repo", its keys in "keys", and packages; a passphrase is that of the keys of root
    and targets. What goes wrong with a command that is called is among `wrong`."""

    def __init__(self, place: Place, init: str = "", passphrase: str = ""):
        self.folder, self.place, self.passphrase = Path(place.folder), place, passphrase
        self.program = place.program("qd-repo")
        self.repo, self.wrong = self.folder / "repo", []
        self(f"init repo --keys keys {init}")

    def run(self, line, *more, first=(), passphrase=None):
        signs = self.passphrase and line.split()[0] not in ("verify", "status")
        words = [*first, self.program, *line.split(), *more, *["--passphrase-fd=0"] * bool(signs)]
        return subprocess.run(words, cwd=self.folder, text=True, capture_output=True, env=os.environ | {
            "QD_REPO_KEYS": "keys"}, input=self.passphrase if passphrase is None else passphrase)

    def __call__(self, line, *more):
        done = self.run(line, *more)
        if done.returncode:
            self.wrong.append(f"{line}: status {done.returncode}\n{done.stdout}{done.stderr}")
        return done.stdout

    def package(self, version, arch="amd64", name=None, text="", package="qdagent"):
        name = name or f"{version}.deb"
        tree = self.folder / f"{name}.tree"
        (tree / "DEBIAN").mkdir(parents=True)
        (tree / "DEBIAN/control").write_text(CONTROL.format(package, version, arch))
        (tree / "content").write_text(version + text)
        subprocess.run(["dpkg-deb", "--build", "-Znone", "--root-owner-group", tree, self.folder / name],
                       check=True, capture_output=True)
        return name

    def rpm(self, version):
        (self.folder / "spec").write_text(SPEC.format(version))
        words = ["rpmbuild", "-bb", "--quiet", f"-D_topdir {self.folder}", "-D_rpmfilename new.rpm", "spec"]
        subprocess.run(words, cwd=self.folder, check=True, capture_output=True)
        return "RPMS/new.rpm"

    def publish(self, version):
        self("publish repo --channel stable", self.package(version))

    def key(self, name):
        """A key as the documentation says to make one; its id is what rotate is to add."""
        for line in (f"genpkey -algorithm ED25519 -out keys/{name}.pem",
                     f"pkey -in keys/{name}.pem -pubout -out keys/{name}.pub"):
            subprocess.run(["openssl", *line.split()], cwd=self.folder, check=True, capture_output=True)
        (self.folder / f"keys/{name}.pem").chmod(0o600)

    def status(self):
        return json.loads(self("status repo --json"))

    def key_of(self, role):
        return self.status()["roles"][role]["keyids"][0]

    def client(self, *words, folder="repo", trusted="trusted"):
        """qd-tuf, with trusted metadata that stays from one call to the next."""
        tuf = [self.place.program("qd-tuf"), "--metadata-dir", f"{self.folder}/{trusted}"]
        if not (self.folder / trusted).exists():
            subprocess.run([*tuf, "init", self.repo / "metadata/1.root.json"], check=True)
        with Server(files(self.folder / folder)) as server:
            return subprocess.run(
                [*tuf, "--metadata-url", f"{server.url}/metadata", "--target-base-url", f"{server.url}/targets",
                 "--target-dir", f"{self.folder}/got", *words], text=True, capture_output=True)

    def check(self, step, offered=None):
        """What verify, the client and a program without trust find."""
        if (done := self.run("verify repo")).returncode:
            yield f"{step}: verify: {done.stdout}{done.stderr}"
        names = [release["path"] for release in self.status()["releases"]]
        words = [word for name in names for word in ("--target-name", name)]
        done = self.client(*words, "download" if names else "refresh")
        if done.returncode:
            yield f"{step}: qd-tuf: {done.stderr}"
        definition = json.loads((self.repo / "agent_setup_def.json").read_text())
        seen = [(self.repo / entry["path"].lstrip("/") / entry["version"]).read_text().strip()
                for entry in definition]
        if offered is not None and seen != offered.split():
            yield f"{step}: offered to programs without trust: {seen}, not {offered}"


def life(publisher, check=Publisher.check):
    """One repository through all commands; each step is looked at."""
    def step(line, offered, *more):
        publisher(line, *more)
        return check(publisher, line, offered)
    yield from check(publisher, "init", "")
    yield from step("publish repo", OLD, publisher.package(OLD), "--channel", "stable")
    yield from step("publish repo", OLD, publisher.package(NEW), "--channel=stable", "--percent=25")
    yield from step(f"promote repo {NEW} --to stable --percent 50 --over 24h", OLD)
    yield from step(f"promote repo {NEW} --to stable", NEW)
    yield from step(f"halt repo {NEW}", OLD)
    yield from step(f"resume repo {NEW}", NEW)
    yield from step("publish repo", NEW, publisher.package(TOP, "all"), "--channel=beta", "--arch=arm64")
    yield from step("publish repo", f"{NEW} {OLD}", publisher.rpm(OLD), "--channel=stable", "--arch=amd64")
    yield from step("refresh repo", f"{NEW} {OLD}")
    yield from step("refresh repo --targets", f"{NEW} {OLD}")
    for role in ("timestamp", "snapshot", "targets", "root"):
        publisher.key(f"{role}-new")
        old = publisher.key_of(role)
        yield from step(f"rotate repo {role} --add keys/{role}-new.pub --remove {old[:12]}", f"{NEW} {OLD}")
        if publisher.key_of(role) == old:
            yield f"{role} has its old key"
    yield from step("prune repo --keep 1 --grace 0s", f"{NEW} {OLD}")


def steps(publisher):
    """prune leaves a way to what it keeps, what all machines of a channel get, and others' files."""
    for version, words in (("1.0.0.0", "stable"), ("2.0.0.0", "stable"), ("2.1.0.0", "stable --percent=5"), (
            "3.0.0.0", "stable --min-from=2.0.0.0"), ("1.1.0.0", "beta"), ("1.2.0.0", "beta --percent=5")):
        publisher(f"publish repo {publisher.package(version)} --channel {words}")
    (publisher.repo / "linux/amd64/setup.deb").touch()
    publisher("prune repo --keep 1 --grace 0s")
    left = " ".join(sorted(path.stem.split("_")[-1] for path in publisher.repo.glob("linux/*/*.deb")))
    if left != "1.1.0.0 1.2.0.0 2.0.0.0 2.1.0.0 3.0.0.0 setup":
        yield left


def tuf_js(publisher):
    """Another client of the framework, from its registry, reads the same repositories."""
    modules = subprocess.run([CHECKOUT / "scripts/lib/tuf-js-modules"], text=True, capture_output=True)
    if modules.returncode:
        raise Skip(modules.stderr.strip())
    trusted = publisher.folder / "js"
    def check(_, step, __):
        if not trusted.exists():
            trusted.mkdir()
            shutil.copy(publisher.repo / "metadata/1.root.json", trusted / "root.json")
        names = [release["path"] for release in publisher.status()["releases"]]
        got = tempfile.mkdtemp(dir=publisher.folder)
        with Server(files(publisher.repo)) as server:
            words = ["node", CHECKOUT / "bench/network/refresh.js", f"{server.url}/metadata", trusted,
                     f"{server.url}/targets", got, *names]
            done = subprocess.run(words, text=True, capture_output=True,
                                  env=os.environ | {"NODE_PATH": modules.stdout.strip()})
        if done.returncode or len(os.listdir(got)) != len(names):
            yield f"{step}: {done.stderr}"
    yield from life(publisher, check)


REFUSED = {  # a faulty line: what its one line of answer says
    "publish repo other.deb --channel stable": "other bytes than other.deb: give the package a new version",
    "publish repo all.deb --channel stable": "say by --arch",
    "publish repo odd.deb --channel stable": "give it four numbers",
    "publish repo text --channel stable": "neither a Debian nor an RPM package",
    "publish repo foreign.deb --channel stable": "foreign.deb is the package \"other\", which no machine takes",
    "publish repo missing.deb --channel stable": "Cannot read missing.deb",
    "publish repo old.deb --channel ../x": "--channel: takes letters",
    "publish repo old.deb --channel stable --min-from 7.2.1.4": "give an older version by --min-from",
    "publish repo old.deb --channel stable --over 90m": "--over: takes whole hours",
    "publish repo old.deb --channel stable --percent 101": "--percent",
    "publish repo old.deb --channel stable --keys cron": "The role targets takes 1 of the keys",
    "publish repo old.deb --channel stable --keys open": "chmod 600",
    "publish repo old.deb --channel stable --keys repo/keys": "which is public: move them away",
    "publish nowhere old.deb --channel stable": "make one with init",
    "promote repo 9.9.9.9 --to stable": "status shows those that it has",
    "promote repo 7.2.1.4 --to stable --percent 10": "a share does not go back",
    "promote repo 7.2 --to stable": "takes four numbers",
    "init repo --keys keys": "already: refresh completes",
    "init old --keys keys": "There is index.html in old already",
    "init . --keys not-there": "which is public",
    "init not-there/ --keys not-there/keys": "which is public",
    "init new --keys new-keys --expires root=3661d": "ROLE=DURATION of at most 3660d",
    "rotate repo root --remove 123": "No key of the role begins with 123",
    "rotate repo timestamp --threshold 2": "would have 1 keys",
    "rotate repo mirrors": "There is no role",
    "rotate repo root --out text": "text is there already: sign it",
    "rotate repo root --out repo/metadata/2.root.json": "which is public: take a place outside",
    "sign repo missing.json --key keys/root.pem": "name the root that rotate wrote",
    "sign repo text --key keys/root.pem": "text is no root",
    "prune two --keep 1 --keys cron": "The role targets takes 1 of the keys",
    "preview repo 1.1.1.1": "status shows those that it has",
    "verify missing": "metadata/1.root.json is missing",
}


def refusals(publisher):
    for name, version, arch in (("old", OLD, "amd64"), ("other", OLD, "amd64"), ("new", NEW, "amd64"),
                                ("new2", NEW, "amd64"), ("all", NEW, "all"), ("odd", "7.2", "amd64")):
        publisher.package(version, arch, f"{name}.deb", name)
    publisher.package(NEW, name="foreign.deb", package="other")
    publisher("publish repo old.deb --channel stable")
    (publisher.folder / "text").write_text("no package")
    (publisher.folder / "old").mkdir()
    (publisher.folder / "old/index.html").touch()
    keys = publisher.folder / "keys"
    shutil.copytree(keys, publisher.folder / "open")
    (publisher.folder / "open/targets.pem").chmod(0o640)
    shutil.copytree(keys, publisher.folder / "cron", ignore=shutil.ignore_patterns("root*", "targets*"))
    publisher("init two --keys keys")
    for name in ("old", "new"):
        publisher(f"publish two {name}.deb --channel stable")
    before = files(publisher.repo)
    for line, says in REFUSED.items():
        done = publisher.run(line)
        text = done.stdout + done.stderr
        if done.returncode != 1 or says not in text or text.count("\n") != 1:
            yield f"{line}: status {done.returncode}, {text}"
    if files(publisher.repo) != before:
        yield "a refused command has changed the repository"
    if "other bytes than new2" not in publisher.run("publish repo new.deb new2.deb --channel stable").stderr:
        yield "two packages of one version in one command"
    publisher("refresh repo --keys cron")
    yield from publisher.check("refresh with its own keys alone", OLD)


def audits(publisher):
    """Each thing that is not as signed is a line, and the status 1."""
    publisher.publish(OLD)
    whole = shutil.copytree(publisher.repo, publisher.folder / "whole", copy_function=os.link)
    plain = f"linux/amd64/qdagent_{OLD}.deb"
    definition = (publisher.repo / "agent_setup_def.json").read_bytes()
    stored, second = (path.relative_to(publisher.repo) for path in publisher.repo.glob("targets/*/*/*"))
    for name, content, says in (
            (stored, b"forged", "has 6 bytes, not"),
            (stored, None, f"qdagent_{OLD}.deb"), (second, None, f"qdagent_{OLD}.deb"),
            (plain, b"forged", f"{plain} has 6 bytes"),
            (f"{plain}.md5", b"0" * 32, "is not the MD5"),
            (f"{plain}.version", b"1.1.1.1", "does not say the version"),
            ("agent_setup_def.json", b"[]\n", "Note: agent_setup_def.json is behind"),
            ("agent_setup_def.json", definition.replace(b"true", b"false"), "is not what is signed: refresh"),
            ("index.html", None, "index.html is missing"),
            ("metadata/timestamp.json", b"{}", "timestamp.json is faulty: The member signatures"),
            ("metadata/2.targets.json", b"", "targets"),
            ("key", (publisher.folder / "keys/root.pem").read_bytes(), "is a private key")):
        shutil.rmtree(publisher.repo)
        shutil.copytree(whole, publisher.repo)
        (publisher.repo / name).unlink(missing_ok=True)
        if content is not None:
            (publisher.repo / name).write_bytes(content)
        done = publisher.run("verify repo")
        if says not in done.stdout or done.returncode != (not says.startswith("Note")):
            yield f"{name}: status {done.returncode}, {done.stdout}{done.stderr}"
    with Server(files(whole)) as server:
        publisher("verify", server.url)


def offline(publisher):
    """A root of two keys of three, which sign one after the other."""
    for key in ("root", "targets"):
        if "ENCRYPTED" not in (publisher.folder / f"keys/{key}.pem").read_text():
            yield f"{key} is not encrypted"
    publisher.publish(OLD)
    publisher.key("late")
    shutil.copytree(publisher.folder / "keys", publisher.folder / "online", ignore=shutil.ignore_patterns("root*"))
    if publisher.run("rotate repo targets --add keys/late.pub --keys online", passphrase="").returncode:
        yield "rotate without root keys"
    if "has not signed yet" not in publisher.run("sign repo 2.root.json --keys online").stderr:
        yield "keys that do not count are not told"
    said = [publisher(f"sign repo 2.root.json --key keys/{name}.pem") for name in ("root", "root-3")]
    for text, part in zip(said, ("waits: The root, by the present keys", "2.root.json has all its signatures")):
        if part not in text or text.count("targets: new key") != 1:
            yield f"sign: {text}"
    if (publisher.repo / "metadata/2.root.json").exists():
        yield "a root is in place whose keys are not at hand"
    publisher("sign repo 2.root.json --keys online")
    if len(publisher.status()["roles"]["targets"]["keyids"]) != 2:
        yield "the new key is not there"
    yield from publisher.check("sign", OLD)
    done = publisher.run("refresh repo --targets", passphrase="wrong\n")
    if "a wrong passphrase" not in done.stderr or done.returncode != 1:
        yield f"with a wrong passphrase: {done.stderr}"


KILLED = ("init repo --keys keys", f"publish repo {NEW}.deb --channel stable", f"halt repo {OLD}",
          "refresh repo --targets", "rotate repo timestamp --add keys/new.pub --remove {}",
          "rotate repo targets --add keys/new.pub --remove {}", "prune repo --keep 1 --grace 0s")


def interrupted(publisher, line, stride=1):
    """The command on the same repository again and again, killed at one system call after the other, whose numbers
    these are."""
    if subprocess.run(["strace", "-o/dev/null", "true"], capture_output=True).returncode:
        raise Skip("needs strace")
    start = publisher.repo.rename(publisher.folder / "start")
    for at in itertools.count(1, stride):
        shutil.rmtree(publisher.repo, ignore_errors=True)
        if not line.startswith("init"):
            shutil.copytree(start, publisher.repo)
        strace = ["strace", "-f", "-o/dev/null", f"-etrace={CHANGING}", f"-einject={CHANGING}:signal=KILL:when={at}"]
        ended = publisher.run(line, first=strace).returncode == 0
        yield at
        if ended:
            return


def killed(line, stride, publisher):
    """What a command leaves that is killed is a repository, and the same command then brings it to its end."""
    publisher.publish(OLD)
    publisher.package(NEW)
    publisher.key("new")
    if line.startswith("prune"):
        publisher("publish repo", f"{NEW}.deb", "--channel", "stable")
    role = line.split()[2] if line.startswith("rotate") else "root"
    line = line.format(publisher.key_of(role))
    said = "already" if line.startswith("init") else "No key of the role"
    for at in interrupted(publisher, line, stride):
        left = publisher.run("verify repo")
        if left.returncode and (publisher.repo / "agent_setup_def.json").exists():
            yield f"killed at call {at}: {left.stdout}{left.stderr}"
        if line.startswith("halt"):  # what nothing names has a higher number than what is current
            publisher("prune repo --keep 9 --grace 0s")
        again = publisher.run(line)
        if again.returncode and said not in again.stderr:
            yield f"again after call {at}: {again.stderr}"
        if "refresh completes" in again.stderr:
            publisher("refresh repo")
        publisher("verify repo")
    if at <= 10:
        yield f"only {at} calls were seen"


def lost(role, publisher):
    """The key of a role is lost: a rotation that is killed is completed by refresh or another one, or begun again."""
    publisher.publish(OLD)
    publisher.key("new")
    for key in (publisher.folder / "keys").glob(f"{role}.p*"):
        key.unlink()
    rotate = f"rotate repo {role} --add keys/new.pub --remove {publisher.key_of(role)}"
    turned_away = 0
    for at in interrupted(publisher, rotate):
        turned_away += publisher.run("verify repo").returncode
        if publisher.run(("refresh repo --targets", "rotate repo root")[at % 2]).returncode:
            publisher(rotate)
        publisher("verify repo")
    if not turned_away:
        yield "there was no moment to be mended"


def copies(publisher):
    """A copy in any order of files, stopped anywhere, gives signed packages or none."""
    publisher.publish(OLD)
    before = shutil.copytree(publisher.repo, publisher.folder / "before")
    publisher.publish(NEW)
    good = {f"linux/amd64/qdagent_{version}.deb": (publisher.folder / f"{version}.deb").read_bytes()
            for version in (OLD, NEW)}
    publisher.key("new")
    publisher(f"rotate repo targets --add keys/new.pub --remove {publisher.key_of('targets')}")
    publisher("prune repo --keep 1 --grace 0s")
    chance, taken, refused = random.Random(19), 0, 0
    for turn in range(12):
        copy, trusted = publisher.folder / "copy", f"trusted{turn}"
        shutil.rmtree(copy, ignore_errors=True)
        shutil.copytree(before, copy)
        names = list(files(publisher.repo))
        chance.shuffle(names)
        for number, path in enumerate(names):
            (copy / path[1:]).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(f"{publisher.repo}{path}", f"{copy}{path}")
            if number % 4 != turn % 4 and number + 1 < len(names):
                continue
            for name, content in good.items():
                shutil.rmtree(publisher.folder / "got", ignore_errors=True)
                done = publisher.client("--target-name", name, "download", folder="copy", trusted=trusted)
                got = [file.read_bytes() for file in (publisher.folder / "got").glob("*")]
                taken, refused = taken + bool(got), refused + (not got)
                if got not in ([], [content]) or bool(got) != (done.returncode == 0):
                    yield f"{name} of a copy in disorder: {[hashlib.sha256(g).hexdigest() for g in got]}"
    if not taken or not refused:
        yield f"{taken} packages were taken, {refused} refused"
    shutil.copytree(before, publisher.repo, dirs_exist_ok=True)
    if "signatures of 0 keys" not in publisher.run("refresh repo --targets").stderr:
        yield "what a key has signed that was taken away is signed anew"


def together(publisher):
    """Nobody's release is lost where several publish at once."""
    with ThreadPoolExecutor(6) as pool:
        list(pool.map(publisher.publish, [f"7.2.1.{number}" for number in range(1, 7)]))
    if len(publisher.status()["releases"]) != 6:
        yield f"{len(publisher.status()['releases'])} releases"
    yield from publisher.check("six at once", "7.2.1.6")


def page(publisher):
    """index.html names what it is for, and takes nothing but itself."""
    publisher("publish repo --channel stable --percent=25", publisher.package(NEW))
    publisher(f"preview repo {NEW} --svg curve.svg")
    text, roles = (publisher.repo / "index.html").read_text(), publisher.status()["roles"].values()
    for part in (NEW, "Channel stable", "25 %", *(id for role in roles for id in role["keyids"]),
                 *(role["expires"] for role in roles)):
        if part not in text or re.search("<script|https?://", text):
            yield f"index.html lacks {part}, or takes more than itself"
    if "<polyline" not in (publisher.folder / "curve.svg").read_text():
        yield "no curve"


def documented(publisher):
    """The commands of docs/publisher.md as they stand there, one after the other."""
    shutil.rmtree(publisher.repo)
    shutil.rmtree(publisher.folder / "keys")
    for version in (OLD, NEW):
        publisher.package(version, name=f"qdagent_{version}.deb")
    commands = subprocess.run([CHECKOUT / "scripts/lib/document-commands", CHECKOUT / "docs/publisher.md"],
                              check=True, capture_output=True, text=True).stdout.split("\0")[:-1]
    (publisher.folder / "qd-repo").symlink_to(publisher.program)
    done = subprocess.run(["sh", "-exc", "\n".join(commands)], cwd=publisher.folder, text=True, capture_output=True,
                          env=os.environ | {"PATH": f"{publisher.folder}:{os.environ['PATH']}"})
    if len(commands) != 10 or done.returncode or "Everything is as signed: 2 targets" not in done.stdout:
        yield f"{len(commands)} commands, status {done.returncode}: {done.stdout}{done.stderr}"
    publisher.repo = publisher.folder / "repository"
    if f'"{NEW}"' not in (publisher.repo / "agent_setup_def.json").read_text():
        yield "the release is not offered to programs without trust"


def over(case, *made):
    def run(place):
        publisher = Publisher(place, *made)
        yield from case(publisher)
        yield from publisher.wrong
    return run


def cases(_, everywhere):
    single = (life, steps, tuf_js, refusals, audits, copies, together, page, documented)
    return {case.__name__: over(case) for case in single} | {
        "ecdsa": over(life, "--ecdsa"), "offline": over(offline, "--threshold 2 --root-keys 3", "open sesame\n")} | {
        f"killed: {line}": over(functools.partial(killed, line, 1 if everywhere else 7)) for line in KILLED} | {
        f"lost: {role}": over(functools.partial(lost, role)) for role in ("snapshot", "targets")}


if __name__ == "__main__":
    raise SystemExit(main(__doc__, cases))

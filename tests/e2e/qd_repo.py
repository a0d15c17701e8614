#!/usr/bin/python3
"""The publisher's program: what its repositories are to the client, to others' client, and to programs without
signed metadata, whatever happened to a command or to a copy."""

import contextlib
import functools
import hashlib
import http.server
import json
import os
import random
import re
import shutil
import subprocess
import threading
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from harness import Skip, main

CONTROL = ("Package: qdagent\nVersion: {}\nArchitecture: {}\nMaintainer: nobody <nobody@localhost>\n"
           "Description: sample\n")
OLD, NEW, TOP = "7.2.1.4", "7.2.1.15", "7.10.0.1"
CHANGING = "rename,renameat,renameat2,link,linkat,unlink,unlinkat,mkdir,fsync,write,fchmod"


class Quiet(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_):
        pass


@contextlib.contextmanager
def served(folder):
    handler = functools.partial(Quiet, directory=folder)
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler) as server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        yield f"http://127.0.0.1:{server.server_port}"
        server.shutdown()


class Publisher:
    """A folder with a repository "repo", its keys in "keys", and packages."""

    def __init__(self, place, *init):
        self.folder, self.place = Path(place.folder), place
        self.program = place.program("qd-repo")
        self.repo, self.wrong = self.folder / "repo", []
        self("init repo --keys keys", *init)

    def run(self, line, *more, first=(), **options):
        words = [*first, self.program, *line.split(), *more]
        return subprocess.run(words, cwd=self.folder, text=True, capture_output=True,
                              env=os.environ | {"QD_REPO_KEYS": "keys"}, **options)

    def __call__(self, line, *more, **options):
        done = self.run(line, *more, **options)
        if done.returncode:
            self.wrong.append(f"{line}: status {done.returncode}\n{done.stdout}{done.stderr}")
        return done.stdout

    def package(self, version, arch="amd64", name=None, text=""):
        name = name or f"{version}.deb"
        tree = self.folder / f"{name}.tree"
        (tree / "DEBIAN").mkdir(parents=True)
        (tree / "DEBIAN/control").write_text(CONTROL.format(version, arch))
        (tree / "content").write_text(version + text)
        subprocess.run(["dpkg-deb", "--build", "-Znone", "--root-owner-group", tree, self.folder / name],
                       check=True, capture_output=True)
        return name

    def key(self, name):
        """A key as the documentation says to make one; its id is what rotate is to add."""
        for line in (f"genpkey -algorithm ED25519 -out keys/{name}.pem",
                     f"pkey -in keys/{name}.pem -pubout -out keys/{name}.pub"):
            subprocess.run(["openssl", *line.split()], cwd=self.folder, check=True, capture_output=True)
        (self.folder / f"keys/{name}.pem").chmod(0o600)

    def status(self):
        return json.loads(self("status repo --json"))

    def client(self, *words, folder="repo", trusted="trusted"):
        """qd-tuf, with trusted metadata that stays from one call to the next."""
        tuf = [self.place.program("qd-tuf"), "--metadata-dir", f"{self.folder}/{trusted}"]
        if not (self.folder / trusted).exists():
            subprocess.run([*tuf, "init", self.repo / "metadata/1.root.json"], check=True)
        with served(self.folder / folder) as url:
            return subprocess.run(
                [*tuf, "--metadata-url", f"{url}/metadata", "--target-base-url", f"{url}/targets",
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
        yield from self.wrong
        self.wrong.clear()


def life(place, check=Publisher.check, init=()):
    """One repository through all commands; each step is looked at."""
    publisher = Publisher(place, *init)
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
    yield from step("refresh repo", NEW)
    yield from step("refresh repo --targets", NEW)
    for role in ("timestamp", "snapshot", "targets", "root"):
        publisher.key(f"{role}-new")
        old = publisher.status()["roles"][role]["keyids"][0]
        yield from step(f"rotate repo {role} --add keys/{role}-new.pub --remove {old[:12]}", NEW)
        if publisher.status()["roles"][role]["keyids"] == [old]:
            yield f"{role} has its old key"
    yield from step("prune repo --keep 1 --grace 0s", NEW)
    left = sorted(os.path.basename(path) for path in publisher.repo.glob("linux/*/*.deb"))
    if left != [f"qdagent_{TOP}.deb", f"qdagent_{NEW}.deb"]:
        yield f"after prune: {left}"


def ecdsa(place):
    return life(place, init=("--ecdsa",))


SPEC = """Name: qdagent
Version: {}
Release: 1
Summary: agent
License: none
BuildArch: noarch
%description
Agent.
%files
"""


def rpm(place):
    """A package of the other kind, and its facts."""
    publisher = Publisher(place)
    (publisher.folder / "spec").write_text(SPEC.format(NEW))
    words = ["rpmbuild", "-bb", "--quiet", "--define", f"_topdir {publisher.folder}", "--define",
             "_rpmfilename new.rpm", publisher.folder / "spec"]
    subprocess.run(words, check=True, capture_output=True)
    publisher("publish repo RPMS/new.rpm --channel stable --arch amd64")
    yield from publisher.check("publish", NEW)
    path, = (release["path"] for release in publisher.status()["releases"])
    if path != f"linux/amd64/qdagent_{NEW}.rpm":
        yield path


JS = """
const { Updater } = require('tuf-js');
const [url, trusted, got, ...names] = process.argv.slice(2);
(async () => {
  const updater = new Updater({ metadataBaseUrl: url + '/metadata', metadataDir: trusted,
    targetBaseUrl: url + '/targets', targetDir: got });
  await updater.refresh();
  for (const name of names) {
    const target = await updater.getTargetInfo(name);
    if (!target) throw new Error('no target ' + name);
    await updater.downloadTarget(target, got + '/' + name.replace(/\\//g, '_'));
  }
})().catch((error) => { console.error(String(error)); process.exit(1); });
"""


def tuf_js(place):
    """Another client of the framework, from its registry, reads the same repositories."""
    modules = Path(place.folder, "js")
    modules.mkdir()
    if not shutil.which("npm"):
        raise Skip("needs node and npm")
    cache = Path(__file__).parents[2] / "build/tuf-js"
    cache.mkdir(parents=True, exist_ok=True)
    if not (cache / "node_modules/tuf-js").exists():
        words = ["npm", "install", "--silent", "--no-audit", "--no-fund", "--prefix", cache, "tuf-js@3"]
        try:
            if subprocess.run(words, capture_output=True, timeout=120).returncode:
                raise Skip("tuf-js cannot be installed from its registry")
        except subprocess.TimeoutExpired:
            raise Skip("the registry of tuf-js does not answer") from None
    (modules / "client.js").write_text(JS)
    trusted = modules / "trusted"
    trusted.mkdir()
    def check(publisher, step, _):
        if not (trusted / "root.json").exists():
            shutil.copy(publisher.repo / "metadata/1.root.json", trusted / "root.json")
        names = [release["path"] for release in publisher.status()["releases"]]
        got = modules / f"got{len(os.listdir(modules))}"
        got.mkdir()
        with served(publisher.repo) as url:
            done = subprocess.run(["node", modules / "client.js", url, trusted, got, *names], text=True,
                                  capture_output=True, env=os.environ | {"NODE_PATH": f"{cache}/node_modules"})
        if done.returncode or len(os.listdir(got)) != len(names):
            yield f"{step}: {done.stderr}"
        yield from publisher.wrong
        publisher.wrong.clear()
    yield from life(place, check)


REFUSED = {  # a faulty line: what its one line of answer says
    "publish repo other.deb --channel stable": "other bytes than other.deb: give the package a new version",
    "publish repo all.deb --channel stable": "say by --arch",
    "publish repo odd.deb --channel stable": "give it four numbers",
    "publish repo text --channel stable": "neither a Debian nor an RPM package",
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
    "init repo --keys keys": "already",
    "init repo/inner --keys repo/inner/keys": "which is public",
    "init . --keys not-there": "which is public",
    "init not-there/ --keys not-there/keys": "which is public",
    "init new --keys new-keys --expires week=1d": "ROLE=DURATION",
    "rotate repo root --remove 123": "No key of the role begins with 123",
    "rotate repo timestamp --threshold 2": "would have 1 keys",
    "rotate repo mirrors": "There is no role",
    "rotate repo root --out text": "text is there already: sign it",
    "rotate repo root --out repo/metadata/2.root.json": "which is public: take a place outside",
    "sign repo missing.json --key keys/root.pem": "name the root that rotate wrote",
    "sign repo text --key keys/root.pem": "text is no root",
    "prune repo --keep 0": "--keep",
    "prune two --keep 1 --keys cron": "The role targets takes 1 of the keys",
    "preview repo 1.1.1.1": "status shows those that it has",
    "verify missing": "metadata/1.root.json is missing",
}


def everything(folder):
    return {path: path.read_bytes() for path in Path(folder).rglob("*") if path.is_file()}


def refusals(place):
    publisher = Publisher(place)
    publisher("publish repo", publisher.package(OLD, name="old.deb"), "--channel", "stable")
    publisher.package(OLD, name="other.deb", text=" and more")
    for text in ("", "2"):
        publisher.package(NEW, name=f"new{text}.deb", text=text)
    publisher.package(NEW, "all", name="all.deb")
    publisher.package("7.2", name="odd.deb")
    (publisher.folder / "text").write_text("no package")
    for name in ("cron", "open"):
        shutil.copytree(publisher.folder / "keys", publisher.folder / name)
    for key in (publisher.folder / "cron").glob("[rt]*[ot]*.p*"):
        if "timestamp" not in key.name:
            key.unlink()
    (publisher.folder / "open/targets.pem").chmod(0o640)
    publisher("init two --keys keys")
    for name in ("old", "new"):
        publisher(f"publish two {name}.deb --channel stable")
    before = everything(publisher.repo)
    for line, says in REFUSED.items():
        done = publisher.run(line)
        text = done.stdout + done.stderr
        if done.returncode != 1 or says not in text or text.count("\n") != 1:
            yield f"{line}: status {done.returncode}, {text}"
    if everything(publisher.repo) != before:
        yield "a refused command has changed the repository"
    if "other bytes than new2" not in publisher.run("publish repo new.deb new2.deb --channel stable").stderr:
        yield "two packages of one version in one command"
    publisher("refresh repo --keys cron")
    yield from publisher.check("refresh with its own keys alone", OLD)


def audits(place):
    """Each thing that is not as signed is a line, and the status 1."""
    publisher = Publisher(place)
    publisher("publish repo", publisher.package(OLD), "--channel", "stable")
    whole = publisher.folder / "whole"
    shutil.copytree(publisher.repo, whole, copy_function=os.link)
    plain = f"linux/amd64/qdagent_{OLD}.deb"
    stored, second = (path.relative_to(publisher.repo) for path in publisher.repo.glob("targets/*/*/*"))
    for name, content, says in (
            (stored, b"forged", "has 6 bytes, not"),
            (stored, None, f"qdagent_{OLD}.deb"), (second, None, f"qdagent_{OLD}.deb"),
            (plain, b"forged", f"{plain} has 6 bytes"),
            (f"{plain}.md5", b"0" * 32, "is not the MD5"),
            (f"{plain}.version", b"1.1.1.1", "does not say the version"),
            ("agent_setup_def.json", b"[]", "Note: agent_setup_def.json is behind"),
            ("agent_setup_def.json", None, "agent_setup_def.json is missing"),
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
    with served(whole) as url:
        publisher("verify", url)
    yield from publisher.wrong


def offline(place):
    """A root of two keys of three, which sign one after the other."""
    publisher = Sealed(place)
    publisher("publish repo", publisher.package(OLD), "--channel", "stable")
    publisher.key("late")
    online = publisher.folder / "online"
    online.mkdir()
    for name in ("targets", "snapshot", "timestamp", "late"):
        for end in ("pem", "pub"):
            shutil.copy(publisher.folder / f"keys/{name}.{end}", online)
    if publisher.run("rotate repo targets --add keys/late.pub --keys online", input="").returncode:
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
    done = publisher.run("refresh repo --targets", input="wrong\n")
    if "a wrong passphrase" not in done.stderr or done.returncode != 1:
        yield f"with a wrong passphrase: {done.stderr}"


class Sealed(Publisher):
    """Keys of root and targets under a passphrase, which comes by a descriptor."""

    def __init__(self, place):
        super().__init__(place, "--threshold", "2", "--root-keys", "3")
        for key in ("root", "targets"):
            if "ENCRYPTED" not in (self.folder / f"keys/{key}.pem").read_text():
                self.wrong.append(f"{key} is not encrypted")

    def run(self, line, *more, **options):
        signs = line.split()[0] not in ("verify", "status")
        more = (*more, "--passphrase-fd", "0") if signs else more
        return super().run(line, *more, **{"input": "open sesame\n"} | options)


KILLED = ("init repo --keys keys", f"publish repo {NEW}.deb --channel stable", f"halt repo {OLD}",
          "refresh repo --targets", "rotate repo timestamp --add keys/new.pub --remove {}",
          "rotate repo targets --add keys/new.pub --remove {}", "prune repo --keep 1 --grace 0s")


def killed(line, stride, place):
    """The command is killed at one system call after the other: what it leaves is a repository, which
    the same command then brings to where it was to be."""
    if subprocess.run(["strace", "-o/dev/null", "true"], capture_output=True).returncode:
        raise Skip("needs strace")
    publisher = Publisher(place)
    publisher("publish repo", publisher.package(OLD), "--channel", "stable")
    publisher.package(NEW)
    publisher.key("new")
    if line.startswith("prune"):
        publisher("publish repo", f"{NEW}.deb", "--channel", "stable")
    role = line.split()[2] if line.startswith("rotate") else "root"
    line = line.format(publisher.status()["roles"][role]["keyids"][0])
    start = publisher.folder / "start"
    shutil.copytree(publisher.repo, start)
    at, status = 1, None
    while status != 0:
        shutil.rmtree(publisher.repo)
        if not line.startswith("init"):
            shutil.copytree(start, publisher.repo)
        strace = ["strace", "-f", "-o/dev/null", f"-etrace={CHANGING}",
                  f"-einject={CHANGING}:signal=KILL:when={at}"]
        status = publisher.run(line, first=strace).returncode
        if (publisher.repo / "metadata/timestamp.json").exists():
            done = publisher.run("verify repo")
            if done.returncode:
                yield f"killed at call {at}: {done.stdout}{done.stderr}"
        again = publisher.run(line)
        said = "already" if line.startswith("init") else "No key of the role"
        if again.returncode and said not in again.stderr:
            yield f"again after call {at}: {again.stderr}"
        if (done := publisher.run("verify repo")).returncode:
            yield f"again after call {at}: {done.stdout}"
        at += stride
    if at <= 10:
        yield f"only {at} calls were seen"


def lost(role, place):
    """The key of a role is lost: a rotation that is killed is completed by refresh, or begun again."""
    publisher = Publisher(place)
    publisher("publish repo", publisher.package(OLD), "--channel", "stable")
    publisher.key("new")
    old = publisher.status()["roles"][role]["keyids"][0]
    for key in (publisher.folder / "keys").glob(f"{role}.p*"):
        key.unlink()
    start = publisher.folder / "start"
    shutil.copytree(publisher.repo, start)
    at, status, turned_away = 1, None, 0
    while status != 0:
        shutil.rmtree(publisher.repo)
        shutil.copytree(start, publisher.repo)
        strace = ["strace", "-f", "-o/dev/null", f"-einject={CHANGING}:signal=KILL:when={at}"]
        rotate = f"rotate repo {role} --add keys/new.pub --remove {old}"
        status = publisher.run(rotate, first=strace).returncode
        turned_away += publisher.run("verify repo").returncode
        if publisher.run("refresh repo --targets").returncode and publisher.run(rotate).returncode:
            yield f"killed at call {at}: neither refresh nor rotate mends it"
        if (done := publisher.run("verify repo")).returncode:
            yield f"mended after call {at}: {done.stdout}"
        at += 1
    if not turned_away:
        yield "there was no moment to be mended"
    yield from publisher.wrong


def copies(place):
    """A copy in any order of files, stopped anywhere, gives signed packages or none."""
    publisher = Publisher(place)
    good = {}
    def publish(version):
        good[f"linux/amd64/qdagent_{version}.deb"] = (publisher.folder / publisher.package(version)).read_bytes()
        publisher("publish repo", f"{version}.deb", "--channel", "stable")
    publish(OLD)
    before = publisher.folder / "before"
    shutil.copytree(publisher.repo, before)
    publish(NEW)
    publisher.key("new")
    publisher(f"rotate repo targets --add keys/new.pub --remove {publisher.status()['roles']['targets']['keyids'][0]}")
    publisher("prune repo --keep 1 --grace 0s")
    chance, taken, refused = random.Random(19), 0, 0
    for turn in range(12):
        copy, trusted = publisher.folder / "copy", f"trusted{turn}"
        shutil.rmtree(copy, ignore_errors=True)
        shutil.copytree(before, copy)
        files = list(everything(publisher.repo))
        chance.shuffle(files)
        for number, path in enumerate(files):
            target = copy / path.relative_to(publisher.repo)
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(path, target)
            if number % 4 != turn % 4 and number + 1 < len(files):
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
    yield from publisher.wrong


def together(place):
    """Nobody's release is lost where several publish at once."""
    publisher = Publisher(place)
    packages = [publisher.package(f"7.2.1.{number}") for number in range(1, 7)]
    with ThreadPoolExecutor(6) as pool:
        list(pool.map(lambda name: publisher("publish repo", name, "--channel", "stable"), packages))
    if len(publisher.status()["releases"]) != 6:
        yield f"{len(publisher.status()['releases'])} releases"
    yield from publisher.check("six at once", "7.2.1.6")


def page(place):
    """index.html names what it is for, and a name in it is no markup."""
    publisher = Publisher(place)
    publisher("publish repo", publisher.package(NEW), "--channel", "stable", "--percent=25")
    text = (publisher.repo / "index.html").read_text()
    roles = publisher.status()["roles"].values()
    for part in (NEW, "Channel stable", "25 %", *(id for role in roles for id in role["keyids"]),
                 *(role["expires"] for role in roles)):
        if part not in text:
            yield f"index.html lacks {part}"
    if re.search("<script|https?://", text):
        yield "index.html takes more than itself"
    publisher("preview repo", NEW, "--svg", "curve.svg")
    if "<polyline" not in (publisher.folder / "curve.svg").read_text():
        yield "no curve"
    yield from publisher.wrong


def documented(place):
    """The commands of docs/publisher.md as they stand there, one after the other."""
    publisher = Publisher(place)
    shutil.rmtree(publisher.repo)
    shutil.rmtree(publisher.folder / "keys")
    for version in (OLD, NEW):
        publisher.package(version, name=f"qdagent_{version}.deb")
    top = Path(__file__).parents[2]
    commands = subprocess.run([top / "scripts/lib/document-commands", top / "docs/publisher.md"],
                              check=True, capture_output=True, text=True).stdout.split("\0")[:-1]
    (publisher.folder / "qd-repo").symlink_to(publisher.program)
    done = subprocess.run(["sh", "-exc", "\n".join(commands)], cwd=publisher.folder, text=True, capture_output=True,
                          env=os.environ | {"PATH": f"{publisher.folder}:{os.environ['PATH']}"})
    if len(commands) != 10 or done.returncode or "Everything is as signed: 2 targets" not in done.stdout:
        yield f"{len(commands)} commands, status {done.returncode}: {done.stdout}{done.stderr}"
    publisher.repo = publisher.folder / "repository"
    if f'"{NEW}"' not in (publisher.repo / "agent_setup_def.json").read_text():
        yield "the release is not offered to programs without trust"


def cases(_, everywhere):
    stride = 1 if everywhere else 7
    single = (life, ecdsa, rpm, tuf_js, refusals, audits, offline, copies, together, page, documented)
    return {case.__name__: case for case in single} | {
        f"killed: {line}": functools.partial(killed, line, stride) for line in KILLED} | {
        f"lost: {role}": functools.partial(lost, role) for role in ("snapshot", "targets")}


if __name__ == "__main__":
    raise SystemExit(main(__doc__, cases))

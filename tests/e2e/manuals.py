#!/usr/bin/env python3
"""Manual pages, README and completion against the programs' own help and tables: manuals.py BUILD-FOLDER."""

import re
import subprocess
import sys
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
BUILD = Path(sys.argv[1])
SIGNING = {"--keys", "--passphrase-fd"}  # the options of all commands that sign
HELP = {"-h", "--help"}
failures = []


def expect(what, found, expected):
    if set(found) != set(expected):
        failures.append(f"{what}: too many {set(found) - set(expected)}, missing {set(expected) - set(found)}")


def help_of(*words):
    """The commands and the options of a program or command, as its help lists them."""
    text = subprocess.run([BUILD / words[0], *words[1:], "--help"], check=True, capture_output=True, text=True).stdout
    entries = re.findall(r"^  (\S.*?)(?:  |\n)", text, re.MULTILINE)
    options = {option for entry in entries if entry[0] == "-"
               for option in re.findall(r"-[-a-z]+", entry.split(" ")[0].split("{")[0])}
    return re.findall(r"^  ([a-z]+) +\S", text.partition("Subcommands:")[2], re.MULTILINE), options


COMPLETE = """. "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _qd_complete "$1"; echo "${COMPREPLY[@]}\""""


def completed(*words):
    script = ["bash", "-c", COMPLETE, TOP / "packaging/completion.bash", BUILD / words[0], *words[1:]]
    return subprocess.run(script, capture_output=True, text=True).stdout.split()


def check_program(name, page):
    commands, options = help_of(name)
    expect(f"{name}: commands in the manual", re.findall(r"^\.It Cm ([a-z]+)", page, re.MULTILINE), commands)
    expect(f"{name}: commands completed", completed(name, ""), {*commands, *options})
    for command in commands:
        of_command = help_of(name, command)[1]
        expect(f"{name} {command}: completed", completed(name, command, "-"), of_command)
        if name == "qd-repo":
            text = re.search(rf"^\.It Cm {command} .*?(?=^\.It|^\.El)", page, re.MULTILINE | re.DOTALL)[0]
            expect(f"{name} {command}: options in the manual",
                   {"-" + option for option in re.findall(r"Fl (-[a-z-]+)", text)}, of_command - SIGNING - HELP)
        options |= of_command
    listed = page[page.index("options:\n.Bl"):]
    expect(f"{name}: options in the manual", {
        "-" + option for line in re.findall(r"^\.It Fl (.*)", listed, re.MULTILINE)
        for option in re.findall(r"(?:^|, )(-?[a-z][-a-z]*)", line)}, options)


pages = {page: (BUILD / "packaging" / page).read_text() for page in ("qd-update.8", "qd-repo.1", "update.toml.5")}
check_program("qd-update", pages["qd-update.8"])
check_program("qd-repo", pages["qd-repo.1"])
parser = (TOP / "Sources/Updater/config/settingsParser.cpp").read_text()
expect("settings in the manual", re.findall(r"^\.It Ic (\S+) No =", pages["update.toml.5"], re.MULTILINE),
       re.findall(r'\{"([a-z_.]+)",\s+(?!\[)', parser))
table = (TOP / "Sources/Updater/terms/updateStatus.def").read_text()
statuses = re.findall(r'^QD_STATUS\((\d+), \w+, \w+, "(.*?)"', table, re.MULTILINE)
readme = (TOP / "README.md").read_text()
expect("statuses in README", set(re.findall(r"^\| (\d+) \| `([a-z-]+)` \|", readme, re.MULTILINE))
       - {("13", "rehearsal"), ("13", "no-digest")}, [s for s in statuses if int(s[0]) > 11])
expect("statuses without settings in README", re.findall(r"^\| (\d+) \| [^`\n]+\|$", readme, re.MULTILINE),
       [number for number, _ in statuses if int(number) <= 11])
for failure in failures:
    print(failure)
sys.exit(bool(failures))

"""Runs programs of this project as a user would, against servers that follow a script, and compares
what they leave.

A suite is a list of rows, `Row(name, script, log, ...)`, and `main` makes a program of it that runs
them side by side:

    Row("UpToDate", {VERSION: "7.2.0.1"}, "{until version} | {nothing to do}", requests="...")

The script is laid over that of a good server: a path's answer is a body, a status, an `Answer` with
whatever it takes, or a function of the request. What is expected is named in blocks, `linux.BLOCKS`
for a good update. Where a row does not do, `prepare` changes the `Run` before its start, `drive`
takes the place of that start, and `check` looks at what was left; `first` is shell text (limits,
namespaces, `strace`) that the process runs before it becomes the program. `Row.config` and
`Run.own` give the run an /etc and a /var/lib that are not the machine's.
"""

from .run import NOBODY, STATE, Outcome, Run, Skip, lines, read, records, state, write
from .server import Answer, Request, Server, redirect
from .suite import Case, Place, Row, difference, logged, main
from .texts import blocks, fill, items

__all__ = [
    "NOBODY", "STATE", "Answer", "Case", "Outcome", "Place", "Request", "Row", "Run", "Server", "Skip",
    "blocks", "difference", "fill", "items", "lines", "logged", "main", "read", "records", "redirect",
    "state", "write",
]

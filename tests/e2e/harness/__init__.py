"""Runs programs of this project as a user would, against servers that follow a script, and compares
what they leave. A suite is a list of rows; `main` makes a program of it."""

from .run import NOBODY, Gate, Outcome, Run, lines, read, records, write
from .server import Answer, Request, Server, redirect
from .suite import Case, Place, Row, Skip, difference, logged, main
from .texts import blocks, fill, items

__all__ = [
    "NOBODY", "Answer", "Case", "Gate", "Outcome", "Place", "Request", "Row", "Run", "Server",
    "Skip", "blocks", "difference", "fill", "items", "lines", "logged", "main", "read", "records",
    "redirect", "write",
]

"""Named texts: what is expected is written once, as a block with a name, and used by that name."""

import re

NAME = re.compile(r"\{([\w -]+)\}")


def fill(text: str, texts: dict[str, str]) -> str:
    """Replaces each {name} that is known, again and again until none is left."""
    while (filled := NAME.sub(lambda name: texts.get(name[1], name[0]), text)) != text:
        text = filled
    return text


def blocks(text: str) -> dict[str, str]:
    """The blocks of a text, by name. "[name]" at the start of a line begins a block."""
    parts = re.split(r"^\[(.+?)\]\s", text, flags=re.MULTILINE)
    return {name: block.strip("\n") for name, block in zip(parts[1::2], parts[2::2])}


def items(text: str, texts: dict[str, str]) -> list[str]:
    """The items of a text, one a line or with " | " between them, names filled in."""
    return [item for item in re.split(r"\n| \| ", fill(text, texts)) if item]

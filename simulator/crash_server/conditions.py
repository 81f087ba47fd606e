"""Test conditions: how a post is treated other than by the protocol.

They stand in a text file, one a line. Each post takes the first line away; a line that begins with "*" stays for all
posts that follow. With no line left a post is treated as the protocol says.
"""

import dataclasses
import threading

# Each condition with the kind of argument it takes: none, a number, seconds, text.
_KINDS = {
    "normal": None,
    "refuse": None,
    "drop-reading": None,
    "drop-before": None,
    "drop-inside": None,
    "slow": float,
    "hang": float,
    "empty": None,
    "garbage": None,
    "noise": None,
    "text": str,
    "status": str,
    "redirect": str,
    "pieces": int,
    "chunked": int,
    "large": int,
}

# Under these the server keeps nothing of the post.
UNDERSTANDS_NOTHING = {"refuse", "drop-reading", "drop-before", "hang", "empty", "garbage", "noise", "text", "status",
                       "redirect"}


@dataclasses.dataclass
class Condition:
    name: str = "normal"
    argument: object = None


def parse(line):
    name, _, argument = line.strip().partition(" ")
    argument = argument.strip()
    if name not in _KINDS:
        raise ValueError(f"condition {name!r} is unknown")
    kind = _KINDS[name]
    if (kind is None) != (argument == ""):
        raise ValueError(f"condition {name!r} {'takes no' if kind is None else 'needs an'} argument")
    if kind is None:
        return Condition(name)
    if kind is str:
        return Condition(name, argument.encode("latin-1", "replace").decode("unicode_escape"))
    value = kind(argument)
    if value <= 0:
        raise ValueError(f"condition {name!r} needs a number above 0")
    return Condition(name, value)


class Conditions:
    def __init__(self, path):
        self._path = path
        self._lock = threading.Lock()

    def preset(self, lines):
        for line in lines:
            parse(line.removeprefix("*"))
        self._path.write_text("".join(line + "\n" for line in lines))

    def take(self, only=None):
        """The next condition, taken away; with `only`, none unless the next one has this name."""
        with self._lock:
            lines = [line.strip() for line in self._read() if line.strip()]
            if not lines:
                return None if only else Condition()
            first = lines[0].removeprefix("*")
            if only and first != only:
                return None
            condition = parse(first)
            if not lines[0].startswith("*"):
                self._path.write_text("".join(line + "\n" for line in lines[1:]))
            return condition

    def _read(self):
        try:
            return self._path.read_text().splitlines()
        except FileNotFoundError:
            return []

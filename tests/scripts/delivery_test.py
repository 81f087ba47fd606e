"""docs/delivery.md: runs its rehearsals in scripts/shell and compares exit code and journal with what the page says."""

import json
import os
import pathlib
import re
import socket
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["ZO_SOURCE"])
PAGE = (SOURCE / "docs/delivery.md").read_text(encoding="utf-8")
CLAIM = re.compile(r"> exit code (\d+), (no line|`(\w+)`, (not )?offered again: (.*))")
HISTORY = "zoctl crash history --record 'C:\\record\\newest.dat' --json"


def steps():
    """(name, commands, claim or None) of each block of commands below the heading about rehearsing."""
    name, commands = "", []
    for line in PAGE.partition("## Rehearsing it")[2].splitlines():
        if line.startswith("#"):
            name = line.strip("# ")
        elif line.startswith("    "):
            commands.append(line.strip())
        elif claim := CLAIM.fullmatch(line):
            yield name, commands, claim
            commands = []


def answers(found):
    """What came of each step: its exit code, and the journal's entries after it."""
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        port = str(free.getsockname()[1])
    with tempfile.TemporaryDirectory() as folder:
        said = pathlib.Path(folder) / "said"
        script = f"exec 3>{said}; trap 'kill %1' EXIT\n"
        for _, commands, _ in found:
            script += "\n".join(commands).replace("8443", port)
            script += f"\necho $? >&3; {HISTORY} | tr -d '\\r\\n' >&3; echo >&3\n"
        environment = os.environ | {"ZO_SHELL_FOLDER": f"{folder}/shell"}
        subprocess.run([SOURCE / "scripts/shell", "-c", script], env=environment,
                       check=False, stdin=subprocess.DEVNULL, capture_output=True, timeout=500)
        lines = said.read_text(encoding="utf-8").splitlines()
    return [(code, json.loads(document)["entries"]) for code, document in zip(lines[::2], lines[1::2])]


class Delivery(unittest.TestCase):
    def test_each_rehearsal_ends_as_the_page_says(self):
        found = list(steps())
        said = answers(found)
        self.assertEqual(len(said), len(found))
        self.assertGreater(len(found), 15)
        before = 0
        for (name, _, claim), (code, entries) in zip(found, said):
            with self.subTest(name):
                self.assertEqual(code, claim[1])
                self.assertEqual(len(entries) > before, claim[2] != "no line")
                if len(entries) > before:
                    last = entries[-1]
                    self.assertEqual([last["result"], last["offeredAgain"], last["outcome"], last["sent"]],
                                     [claim[3], not claim[4], claim[5], claim[3] == "sent"])
            before = len(entries)

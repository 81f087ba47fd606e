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


class Delivery(unittest.TestCase):
    def test_each_rehearsal_ends_as_the_page_says(self):
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            port = str(free.getsockname()[1])
        script = "trap 'kill %1' EXIT\n"
        for _, commands, _ in steps():
            script += "\n".join(commands).replace("8443", port) + f"\necho \"@@ $?\" >&3; {HISTORY} >&3\n"
        with tempfile.TemporaryDirectory() as folder:
            answers = pathlib.Path(folder) / "answers"
            done = subprocess.run([SOURCE / "scripts/shell", "-c", f"exec 3>{answers}\n{script}"], text=True, check=False,
                                  env=os.environ | {"ZO_SHELL_FOLDER": f"{folder}/shell"}, stdin=subprocess.DEVNULL,
                                  capture_output=True, timeout=500)
            said = answers.read_text(encoding="utf-8").split("@@ ")[1:]
        before = 0
        found = list(steps())
        self.assertEqual(len(said), len(found), done.stderr)
        self.assertGreater(len(found), 15)
        for (name, _, claim), answer in zip(found, said):
            code, _, document = answer.partition("\n")
            entries = json.loads(document)["entries"]
            with self.subTest(name):
                self.assertEqual(code, claim[1])
                self.assertEqual(len(entries) > before, claim[2] != "no line")
                if len(entries) > before:
                    last = entries[-1]
                    self.assertEqual([last["result"], last["offeredAgain"], last["outcome"]],
                                     [claim[3], not claim[4], claim[5]])
                    self.assertEqual(last["sent"], claim[3] == "sent")
            before = len(entries)


if __name__ == "__main__":
    unittest.main()

"""The fixture of tests that run zoctl, on trees which are made and changed from the Unix side, where links, denied
folders and names that differ only in case can be made, and on the simulator's driver.

Arguments of the test: the emulator's command line and zoctl.exe."""

import hashlib
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

from answer_schema import faults_of_answer

SOURCES = pathlib.Path(__file__).resolve().parents[2]
ZOCTL = sys.argv[1:]
BUILT = pathlib.Path(ZOCTL[-1]).parent
# Root is never denied access; without these capabilities it is.
UNPRIVILEGED = ["setpriv", "--bounding-set", "-dac_override,-dac_read_search", "--inh-caps",
                "-dac_override,-dac_read_search"] if os.geteuid() == 0 else []
# The pair that the build embeds by default.
KEYS = {half: bytes.fromhex((SOURCES / folder / f"development_{half}_key.hex").read_text())
        for half, folder in {"private": "tests/signer", "public": "signer"}.items()}
THUMBPRINT = hashlib.sha256(KEYS["public"]).hexdigest()


def dos(path):
    return "Z:" + str(path).replace("/", "\\")


def words(arguments):
    """Arguments as zoctl takes them: paths with their drive."""
    return [dos(argument) if isinstance(argument, pathlib.Path) else argument for argument in arguments]


def simctl(*arguments):
    return subprocess.run([*ZOCTL[:-1], BUILT / "simctl.exe", *arguments], check=True, capture_output=True).stdout


class SealedTreeTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.tree, self.manifest, self.keys = (self.folder / name for name in ("tree", "seal.zosig", "keys"))
        self.keys.mkdir()
        for half, key in KEYS.items():
            (self.keys / f"{half}.rsakey").write_bytes(key)
        for name, contents in {"a.txt": "alpha", "A.TXT": "other case", "d/dot.": "dot", "d/blank ": "",
                               "k.LNK": "link", "d/\u00e4\u6f22\U0001f600": "names", "open/o.txt": "o",
                               "d/e/big": "x" * 200000}.items():
            self.write(name, contents)

    def zoctl(self, code, *arguments, prefix=(), merged=False, given=b""):
        """given: standard input. merged: standard error among standard output, in the order of writing."""
        done = subprocess.run([*prefix, *ZOCTL, *words(arguments)], stdout=subprocess.PIPE, input=given, timeout=120,
                              stderr=subprocess.STDOUT if merged else subprocess.PIPE)
        done.stdout, done.stderr = ((text or b"").decode() for text in (done.stdout, done.stderr))
        self.assertEqual(done.returncode, code, done)
        if "--json" in arguments or "--jsonl" in arguments:
            self.assertEqual(faults_of_answer(arguments, done.stdout), [], done.stdout)
        return done

    def write(self, name, contents):
        path = self.tree / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(contents)

    def start_driver(self):
        self.zoctl(0, "driver", "install", BUILT / "ZoProtectorDriver.sys")
        self.addCleanup(self.zoctl, 0, "driver", "uninstall")
        self.zoctl(0, "driver", "start")

    def facts(self, code, *arguments, **how):
        """The document of a command."""
        text = self.zoctl(code, *arguments, "--json", **how).stdout
        document = json.loads(text)
        self.assertEqual(text, json.dumps(document, indent=2, ensure_ascii=False) + "\n")
        self.assertEqual(document["exitCode"], code)
        return document

    def sealed(self):
        """The arguments that name the tree and its seal."""
        return self.tree, "-m", self.manifest, "-k", self.keys

    def sign(self, *more, code=0):
        return self.facts(code, "sign", *self.sealed(), *more)

    def verify(self, code, prefix=()):
        return self.facts(code, "verify", *self.sealed(), prefix=prefix)

    def findings(self, facts):
        below = dos(self.tree) + "\\"
        return sorted(f["kind"] + " " + f["path"].removeprefix(below).replace("\\", "/") for f in facts["findings"])

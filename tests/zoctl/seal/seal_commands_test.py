"""What the commands keys, sign, verify and manifest of zoctl accept and report.

Arguments: the emulator's command line and zoctl.exe."""

import hashlib
import json
import os
import pathlib
import shutil
import socket
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "support"))
from sealed_tree import THUMBPRINT, UNPRIVILEGED, SealedTreeTest, dos  # noqa: E402


class SealCommandsTest(SealedTreeTest):
    def test_verify_says_that_the_folder_is_gone_before_anything_else(self):
        for listed in ("files", "nothing"):
            self.tree.mkdir(exist_ok=True)
            self.sign()
            shutil.rmtree(self.tree)
            with self.subTest(listed=listed):
                facts = self.verify(3)
                self.assertIn(dos(self.tree), facts["message"])
                self.assertNotIn("findings", facts)

    def test_a_folder_that_cannot_be_used_has_its_exit_code(self):
        (self.tree / "d").chmod(0)
        self.addCleanup((self.tree / "d").chmod, 0o755)
        for folder, code in {self.folder / "none": 3, self.tree / "a.txt": 3, self.tree / "d/e": 5, "": 2}.items():
            for verb in ("sign", "verify"):
                with self.subTest(folder=folder, verb=verb):
                    self.zoctl(code, verb, folder, "-m", self.manifest, "-k", self.keys, prefix=UNPRIVILEGED)
                    self.assertFalse(self.manifest.exists())

    def test_keys_and_their_exit_codes(self):
        self.assertEqual(self.zoctl(0, "keys", "thumbprint", self.keys).stdout.strip(), THUMBPRINT)
        self.zoctl(6, "keys", "generate", self.keys)
        self.zoctl(33, "keys", "thumbprint", self.folder)
        self.sign()
        junk, cut, other, none = (self.folder / name for name in ("junk", "cut", "other", "none"))
        junk.write_bytes(b"x" * 300)
        cut.write_bytes((self.keys / "private.rsakey").read_bytes()[:40])
        made = json.loads(self.zoctl(0, "keys", "generate", other, "--json").stdout)
        self.assertEqual(made["thumbprint"], hashlib.sha256((other / "public.rsakey").read_bytes()).hexdigest())
        for key, code in {("--keystore", other): 32, ("--keystore", self.folder): 33, ("--embedded-key",): 0,
                          ("--key", self.keys / "public.rsakey"): 0, ("--key", none): 33, ("--key", junk): 33,
                          ("--key", cut): 33, (): 2}.items():
            done = self.zoctl(code, "verify", self.tree, "-m", self.manifest, "--json", *key)
            self.assertEqual(json.loads(done.stdout)["exitCode"], code)
        self.zoctl(3, "verify", self.tree, "-m", none, "-k", self.keys)
        for key, code in {"public.rsakey": 33, "private.rsakey": 0}.items():
            self.zoctl(code, "sign", self.tree, "-m", self.manifest, "--key", self.keys / key)

    def test_folders_left_open_are_found_or_refused(self):
        absolute = dos(self.tree).lower().replace("z:", "Z:")
        for name, opened in {"Open\\": "Open", "./d/../open": "open", dos(self.tree / "d"): "d", absolute: ".",
                             "opne": None, "a.txt": None, "..": None}.items():
            with self.subTest(name):
                facts = self.sign("--open", name, code=0 if opened else 2)
                if opened:
                    self.assertEqual((facts["open"], facts["directories"]), ([opened], 4))
                    self.assertEqual(facts["sealedDirectories"], {".": 0, "d": 2}.get(opened, 3))
        # The word after a name is the tree.
        self.zoctl(0, "sign", "--open", "open", self.tree, "-m", self.manifest, "-k", self.keys)

    def test_warns_of_a_key_inside_the_tree(self):
        inside = self.tree / "keys"
        done = self.zoctl(0, "sign", self.tree, "-m", self.manifest, "-k", inside)
        self.assertIn("keystore is inside", done.stderr)
        self.assertNotIn("\r", done.stderr)  # progress is for terminals
        self.assertIn(b"\nF keys/private.rsakey\n", self.manifest.read_bytes())
        done = self.zoctl(0, "sign", self.tree, "-m", self.manifest, "--key", inside / "private.rsakey")
        self.assertIn("key file is inside", done.stderr)

    def test_findings_stream_and_stay_printable(self):
        self.sign()
        self.write("d/\x1b[31mred", "")
        text = self.zoctl(17, "verify", self.tree, "-m", self.manifest, "-k", self.keys)
        self.assertNotIn("\x1b", text.stdout + text.stderr)
        self.assertIn("\\x1b[31mred", text.stdout.lower())
        lines = self.zoctl(17, "verify", self.tree, "-m", self.manifest, "-k", self.keys, "--jsonl").stdout.splitlines()
        first, last = map(json.loads, lines)
        self.assertEqual((first["kind"], last["exitCode"], last["counts"]["extra"]), ("extra", 17, 1))

    def test_unreadable_files_fail_under_strict_only(self):
        with socket.socket(socket.AF_UNIX) as unreadable:  # nobody can open it as a file, whatever the rights
            unreadable.bind(os.path.relpath(self.tree / "sock"))
            facts = self.sign()
            self.assertEqual((facts["unreadable"], self.findings(facts)), (1, ["unreadable sock"]))
            self.sign("--strict", code=34)

    def test_manifests_are_shown_and_compared(self):
        self.sign("--open", "open")
        old = self.manifest.rename(self.folder / "old.zosig")
        shown = json.loads(self.zoctl(0, "manifest", "show", old, "--json").stdout)
        self.assertEqual(shown["thumbprint"], THUMBPRINT)
        items = {item["path"]: item for item in shown["items"]}
        self.assertEqual([items[path]["kind"] for path in ("open", ".", "k.LNK")], ["open folder", "sealed folder", "shortcut"])
        self.assertEqual((len(items), items["d/e/big"]["size"]), (12, 200000))

        self.write("a.txt", "changed")
        self.write("new.txt", "new")
        (self.tree / "d/dot.").unlink()
        self.sign()
        changes = json.loads(self.zoctl(1, "manifest", "diff", old, self.manifest, "--json").stdout)["changes"]
        self.assertEqual({change["change"] + " " + change["path"] for change in changes},
                         {"changed a.txt", "added new.txt", "removed d/dot.", "changed open"})
        for file, code in {old: 0, self.tree / "a.txt": 32, self.folder: 5}.items():
            self.zoctl(code, "manifest", "diff", file, old)
        self.zoctl(3, "manifest", "show", self.folder / "none")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

"""What the commands keys, sign, verify and manifest of zoctl accept and report.

Arguments: the emulator's command line and zoctl.exe."""

import hashlib
import json
import os
import pathlib
import re
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

    def refused(self, code, *arguments, **how):
        """The document of a command that gives a reason of its own."""
        facts = self.facts(code, *arguments, **how)
        self.assertFalse(re.search("Win32|NTSTATUS|log|It failed", facts["message"] + facts["advice"]), facts)
        return facts

    def test_sign_neither_makes_nor_replaces_keys(self):
        private = self.keys / "private.rsakey"
        public = (self.keys / "public.rsakey").read_bytes()
        for name, contents in {"absent": None, "damaged": b"x" * 300, "empty": b"", "public": public}.items():
            with self.subTest(name):
                private.unlink(missing_ok=True)
                if contents is not None:
                    private.write_bytes(contents)
                facts = self.refused(33, "sign", *self.sealed())
                self.assertIn(dos(private), facts["message"])
                self.assertIn("zoctl keys generate", facts["advice"])
                self.assertEqual(private.read_bytes() if private.exists() else None, contents)
                self.assertEqual((self.keys / "public.rsakey").read_bytes(), public)
        self.refused(33, "sign", self.tree, "-m", self.manifest, "-k", self.folder / "mistyped")
        self.assertFalse((self.folder / "mistyped").exists())
        self.assertFalse(self.manifest.exists())

    def test_keys_generate_replaces_only_what_it_is_told_to(self):
        long = self.folder / "/".join(["n" * 90] * 3)
        for file in [folder / f"{half}.rsakey" for folder in (self.folder / "new", long) for half in ("private", "public")]:
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_bytes(b"mine")
            facts = self.refused(6, "keys", "generate", file.parent)
            self.assertIn(dos(file), facts["message"])
            self.assertEqual([path.read_bytes() for path in file.parent.iterdir()], [b"mine"])
            file.unlink()
        closed = self.folder / "closed"
        closed.mkdir(mode=0)
        self.refused(6, "keys", "generate", closed, prefix=UNPRIVILEGED)
        self.assertNotEqual(self.facts(0, "keys", "generate", self.keys, "--replace")["thumbprint"], THUMBPRINT)

    def test_sign_replaces_manifests_only(self):
        for name, contents, code in (("notes", b"my notes\n", 6), ("short", b"ZOSIG", 6), ("empty", b"", 6), ("begun", b"ZOSIG1\n", 0)):
            with self.subTest(name):
                self.manifest.write_bytes(contents)
                self.sign(code=code)
                self.assertEqual(self.manifest.read_bytes() == contents, code == 6)
        self.manifest.write_bytes(b"my notes\n")
        self.sign("--force")
        self.verify(0)

    def test_failures_name_what_failed(self):
        closed, damaged = self.folder / "closed", self.folder / "damaged"
        closed.mkdir(mode=0)
        damaged.write_bytes(b"ZOSIG1")
        for name, code, verb, manifest in (
                ("access denied", 5, "sign", closed / "new"), ("access denied", 5, "verify", closed / "old"),
                ("folder cannot be made", 5, "sign", closed / "folder/m"), ("folder is a file", 1, "sign", self.tree / "a.txt/m"),
                ("a folder", 2, "sign", self.tree / "d"), ("missing", 3, "verify", self.tree / "none"),
                ("damaged", 32, "verify", damaged)):
            with self.subTest(name):
                facts = self.refused(code, verb, self.tree, "-m", manifest, "-k", self.keys, prefix=UNPRIVILEGED)
                self.assertIn(dos(manifest.parent if name.startswith("folder ") else manifest), facts["message"])
        for arguments in (("verify", self.tree, "-m", "", "-k", self.keys), ("sign", self.tree, "-m", "", "-k", self.keys),
                          ("manifest", "show", "")):
            self.assertIn("manifest is empty", self.refused(2, *arguments)["message"])
        self.refused(5, "keys", "generate", closed / "new", "--replace", prefix=UNPRIVILEGED)
        self.refused(2, "keys", "generate", "")
        for verb in ("sign", "verify"):
            self.refused(2, verb, self.tree, "-m", self.folder / "m", "-k", "")
        (self.folder / "shut/private.rsakey").mkdir(parents=True)
        self.refused(1, "keys", "generate", self.folder / "shut", "--replace")

    def test_the_result_comes_before_the_hints(self):
        # Standard error last, in one text, as a terminal shows both.
        self.write("keys/private.rsakey", "")
        (self.tree / "keys/private.rsakey").write_bytes((self.keys / "private.rsakey").read_bytes())
        commands = {"Signed.": ("sign", self.tree, "-m", self.manifest, "-k", self.tree / "keys"),
                    "Created": ("keys", "generate", self.folder / "new"),
                    "difference": ("manifest", "diff", self.folder / "old", self.manifest)}
        self.sign()
        self.manifest.rename(self.folder / "old")
        self.write("a.txt", "changed")
        for result, arguments in commands.items():
            text = self.zoctl(1 if result == "difference" else 0, *arguments, merged=True).stdout
            hint = text.splitlines()[-1]
            self.assertLess(text.index(result), text.index(hint), text)
            self.assertNotEqual(result, hint)
        self.assertIn("\n1 difference.\n", text)

    def test_keys_and_their_exit_codes(self):
        self.sign()
        junk, cut, other, none = (self.folder / name for name in ("junk", "cut", "other", "none"))
        junk.write_bytes(b"x" * 300)
        cut.write_bytes((self.keys / "private.rsakey").read_bytes()[:40])
        made = self.facts(0, "keys", "generate", other)
        self.assertEqual(made["thumbprint"], hashlib.sha256((other / "public.rsakey").read_bytes()).hexdigest())
        for key, code in {("--keystore", other): 32, ("--keystore", self.folder): 33, ("--embedded-key",): 0,
                          ("--key", self.keys / "public.rsakey"): 0, ("--key", none): 33, ("--key", junk): 33,
                          ("--key", cut): 33, (): 2}.items():
            facts = self.facts(code, "verify", self.tree, "-m", self.manifest, *key)
            self.assertEqual(facts["exitCode"], code)
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
        self.zoctl(0, "sign", "--open", "open", *self.sealed())  # the word after a name is the tree

    def test_warns_of_a_key_inside_the_tree(self):
        inside = shutil.copytree(self.keys, self.tree / "keys")
        for words, key in {"keystore is inside": ("-k", inside), "key file is inside": ("--key", inside / "private.rsakey")}.items():
            errors = self.zoctl(0, "sign", self.tree, "-m", self.manifest, *key).stderr
            self.assertIn(words, errors)
            self.assertNotIn("\r", errors)  # progress is for terminals
        self.assertIn(b"\nF keys/private.rsakey\n", self.manifest.read_bytes())

    def test_findings_stream_and_stay_printable(self):
        self.sign()
        self.write("d/\x1b[31mred", "")
        text = self.zoctl(17, "verify", *self.sealed())
        self.assertNotIn("\x1b", text.stdout + text.stderr)
        self.assertIn("\\x1b[31mred", text.stdout.lower())
        lines = self.zoctl(17, "verify", *self.sealed(), "--jsonl").stdout.splitlines()
        first, last = map(json.loads, lines)
        self.assertEqual((first["kind"], last["exitCode"], last["counts"]["extra"]), ("extra", 17, 1))

    def test_unreadable_files_fail_under_strict_only(self):
        with socket.socket(socket.AF_UNIX) as unreadable:  # nobody can open it as a file, whatever the rights
            unreadable.bind(os.path.relpath(self.tree / "sock"))
            facts = self.sign()
            self.assertEqual((facts["unreadable"], self.findings(facts)), (1, ["unreadable sock"]))
            self.sign("--strict", code=34)

    def test_strict_fails_for_everything_that_the_seal_does_not_cover(self):
        (self.tree / "open/below").mkdir()
        for name, options, code, counts in (
                ("d/link", (), 34, (0, 1)), ("link", ("--open", "d"), 34, (0, 1)), ("d/link", ("--open", "d"), 0, (0, 0)),
                ("open/below/link", ("--open", "OPEN"), 0, (0, 0)), ("link", ("--open", "."), 0, (0, 0)),
                ("d/link", ("--seal-none",), 0, (0, 0)), ("d/e/a\x01b", (), 34, (1, 0)), ("d/a\x01b", ("--open", "d"), 34, (1, 0))):
            with self.subTest(name=name, options=options):
                spoilt = self.tree / name
                spoilt.unlink(missing_ok=True)
                spoilt.symlink_to(self.keys) if "link" in name else spoilt.write_text("x")
                facts = self.sign("--strict", *options, code=code)
                spoilt.unlink()
                self.assertEqual((facts["unlistable"], facts["linksInSealedFolders"]), counts)
                kind = "skipped link" if "link" in name else "unlistable"
                self.assertEqual([found["kind"] for found in facts["findings"]], [kind])

    def test_a_key_can_come_from_standard_input(self):
        private = (self.keys / "private.rsakey").read_bytes()
        digits = private.hex().encode()
        for name, given in {"bytes": private, "digits": digits, "lines of digits": digits[:100] + b"\r\n" + digits[100:] + b"\n"}.items():
            with self.subTest(name):
                for verb in ("sign", "verify"):
                    self.zoctl(0, verb, self.tree, "-m", self.manifest, "--key", "-", given=given)
                self.assertEqual(self.zoctl(0, "keys", "thumbprint", "-", given=given).stdout.strip(), THUMBPRINT)
        for name, given in {"nothing": b"", "cut": private[:-1], "too much": private + b"x", "odd": digits[:-1]}.items():
            with self.subTest(name):
                self.refused(33, "sign", self.tree, "-m", self.manifest, "--key", "-", given=given)
                self.refused(33, "keys", "thumbprint", "-", given=given)

    def test_thumbprint_of_key_files_and_of_the_built_in_key(self):
        for key in (self.keys, self.keys / "private.rsakey", self.keys / "public.rsakey", "--embedded-key"):
            self.assertEqual(self.facts(0, "keys", "thumbprint", key)["thumbprint"], THUMBPRINT, key)
        for key in (self.tree / "a.txt", self.folder, self.folder / "none"):
            self.refused(33, "keys", "thumbprint", key)
        self.zoctl(2, "keys", "thumbprint")
        self.zoctl(2, "keys", "thumbprint", self.keys, "--embedded-key")

    def test_a_dry_run_shows_what_would_be_listed_and_writes_nothing(self):
        self.manifest = self.tree / "d/seal.zosig"
        before = None
        for written in (False, True):
            facts = self.sign("--open", "open", "--dry-run")
            self.assertEqual(self.manifest.read_bytes() if written else self.manifest.exists(), before or False)
            signed = self.sign("--open", "open")
            before = self.manifest.read_bytes()
            shown = self.facts(0, "manifest", "show", self.manifest)
            self.assertEqual(facts.pop("items"), shown["items"])
            self.assertEqual((facts.pop("dryRun"), signed.pop("dryRun"), facts), (True, False, signed))
        self.write("d/a\x01b", "")
        self.sign("--dry-run", "--strict", code=34)
        self.assertIn("nothing was written", self.zoctl(0, "sign", "--dry-run", *self.sealed()).stdout)

    def test_manifests_are_shown_and_compared(self):
        self.sign("--open", "open")
        old = self.manifest.rename(self.folder / "old.zosig")
        shown = self.facts(0, "manifest", "show", old)
        self.assertEqual(shown["thumbprint"], THUMBPRINT)
        items = {item["path"]: item for item in shown["items"]}
        self.assertEqual([items[path]["kind"] for path in ("open", ".", "k.LNK")], ["open folder", "sealed folder", "shortcut"])
        self.assertEqual((len(items), items["d/e/big"]["size"]), (12, 200000))

        self.write("a.txt", "changed")
        self.write("new.txt", "new")
        (self.tree / "d/dot.").unlink()
        self.sign()
        changes = self.facts(1, "manifest", "diff", old, self.manifest)["changes"]
        self.assertEqual({change["change"] + " " + change["path"] for change in changes},
                         {"changed a.txt", "added new.txt", "removed d/dot.", "changed open"})
        for file, code in {old: 0, self.tree / "a.txt": 32, self.folder: 5}.items():
            self.zoctl(code, "manifest", "diff", file, old)
        self.zoctl(3, "manifest", "show", self.folder / "none")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

"""What the commands keys, sign, verify and manifest of zoctl accept and report.

Arguments: the emulator's command line and zoctl.exe."""

import datetime
import fcntl
import hashlib
import os
import pathlib
import re
import socket
import subprocess

from sealed_tree import KEYS, THUMBPRINT, UNPRIVILEGED, ZOCTL, SealedTreeTest, dos


class SealCommandsTest(SealedTreeTest):
    def refused(self, code, says, *arguments, **how):
        """The document of a command that gives a reason of its own, with these words or this path in it."""
        facts = self.facts(code, *arguments, prefix=UNPRIVILEGED, **how)
        self.assertIn(dos(says) if isinstance(says, pathlib.Path) else says, facts["message"], arguments)
        self.assertNotRegex(facts["message"] + facts["advice"], "Win32|NTSTATUS|log|It failed")
        return facts

    def test_a_folder_that_cannot_be_used_is_reported_before_anything_else(self):
        self.sign()
        before = self.manifest.read_bytes()
        (self.tree / "d").chmod(0)
        self.addCleanup((self.tree / "d").chmod, 0o755)
        for folder, code, reason in ((self.folder / "none", 3, "' does not exist."),
                                     (self.tree / "a.txt", 3, "' is a file, not a folder."),
                                     (self.tree / "d/e", 5, "' was denied."), ("", 2, "of the folder is empty.")):
            for verb in ("sign", "verify"):
                facts = self.refused(code, folder, verb, folder, "-m", self.manifest, "-k", self.keys)
                self.assertNotIn("findings", facts)
                self.assertTrue(facts["message"].endswith(reason), facts)
        self.assertEqual(self.manifest.read_bytes(), before)
        self.refused(34, "2 sealed folders could not be listed.", "verify", *self.sealed())
        self.tree.chmod(0)
        self.addCleanup(self.tree.chmod, 0o755)
        self.refused(5, f"The folder '{dos(self.tree)}' cannot be listed: Access", "sign", *self.sealed())

    def test_sign_neither_makes_nor_replaces_keys(self):
        private, public = (self.keys / f"{half}.rsakey" for half in KEYS)
        for contents in (b"x" * 300, b"", KEYS["public"]):
            private.write_bytes(contents)
            self.assertIn("keys generate --replace", self.refused(33, private, "sign", *self.sealed())["advice"])
            self.assertEqual([private.read_bytes(), public.read_bytes()], [contents, KEYS["public"]])
        private.unlink()
        for keystore in (self.keys, self.folder / "mistyped"):
            facts = self.refused(33, f"{dos(keystore)}\\private.rsakey' does not exist.", "sign", self.tree, "-m",
                                 self.manifest, "-k", keystore)
            self.assertIn('keys generate" makes', facts["advice"])
        self.assertEqual({path.name for path in (*self.folder.iterdir(), *self.keys.iterdir())},
                         {"tree", "keys", "public.rsakey"})

    def test_keys_generate_replaces_only_what_it_is_told_to(self):
        long, closed = self.folder / "/".join(["n" * 90] * 3), self.folder / "closed"
        for file in (folder / f"{half}.rsakey" for folder in (self.folder / "new", long) for half in KEYS):
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_bytes(b"mine")
            self.refused(6, f"'{dos(file)}' already exists.", "keys", "generate", file.parent)
            self.assertEqual([path.read_bytes() for path in file.parent.iterdir()], [b"mine"])
            file.unlink()
        closed.mkdir(mode=0)
        self.refused(6, "It cannot be determined whether", "keys", "generate", closed)
        self.assertNotEqual(self.facts(0, "keys", "generate", self.keys, "--replace")["thumbprint"], THUMBPRINT)

    def test_sign_replaces_manifests_only(self):
        for name, contents, code in (("notes", b"my notes\n", 6), ("short", b"ZOSIG", 6), ("empty", b"", 6),
                                     ("begun", b"ZOSIG1", 0)):
            with self.subTest(name):
                self.manifest.write_bytes(contents)
                self.sign(code=code)
                self.assertEqual(self.manifest.read_bytes() == contents, code == 6)
        self.manifest.write_bytes(b"my notes\n")
        self.sign("--force")
        self.verify(0)

    def test_failures_name_what_failed(self):
        closed, damaged, shut = (self.folder / name for name in ("closed", "damaged", "shut"))
        closed.mkdir(mode=0)
        damaged.write_bytes(b"ZOSIG1")
        (shut / "private.rsakey").mkdir(parents=True)
        for code, says, verb, manifest in (
                (5, closed / "new", "sign", closed / "new"), (5, closed / "old", "verify", closed / "old"),
                (5, f"{dos(closed)}\\folder' cannot be created: ", "sign", closed / "folder/m"),
                (1, self.tree / "a.txt", "sign", self.tree / "a.txt/m"),
                (2, self.tree / "d", "sign", self.tree / "d"), (3, self.tree / "none", "verify", self.tree / "none"),
                (32, damaged, "verify", damaged),
                (2, "manifest is empty", "sign", ""), (2, "manifest is empty", "verify", "")):
            self.refused(code, says, verb, self.tree, "-m", manifest, "-k", self.keys)
        for verb in ("sign", "verify"):
            self.refused(2, self.tree, verb, self.tree, "-m", self.manifest, "-k", "")
        self.refused(2, "manifest is empty", "manifest", "show", "")
        self.refused(2, "keystore is empty", "keys", "generate", "")
        self.refused(5, closed, "keys", "generate", closed / "new", "--replace")
        self.refused(1, shut, "keys", "generate", shut, "--replace")
        self.refused(33, "private.rsakey' cannot be read: ", "sign", self.tree, "-m", self.manifest, "-k", shut)

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
            self.zoctl(code, "verify", self.tree, "-m", self.manifest, *key)
        self.refused(33, "from the keystore", "verify", self.tree, "-m", self.manifest, "-k", self.folder)
        self.zoctl(0, "sign", self.tree, "-m", self.manifest, "--key", self.keys / "private.rsakey")
        for verb, key, kind in (("sign", self.keys / "public.rsakey", "private"), ("verify", junk, "public")):
            self.refused(33, f"does not hold a {kind} key.", verb, self.tree, "-m", self.manifest, "--key", key)

    def test_folders_left_open_are_found_or_refused(self):
        absolute = dos(self.tree).lower().replace("z:", "Z:")
        for name, opened in {"Open\\": "Open", "./d/../open": "open", dos(self.tree / "d"): "d", "d\\e": "d/e",
                             absolute: ".", "opne": None, "a.txt": None, "..": None, "": None}.items():
            with self.subTest(name):
                facts = self.sign("--open", name, code=0 if opened else 2)
                if opened:
                    self.assertEqual((facts["open"], facts["directories"]), ([opened], 4))
                    self.assertEqual(facts["sealedDirectories"], {".": 0, "d": 2}.get(opened, 3))
        (self.tree / "link").symlink_to("d")
        # The word after the last --open is the tree.
        hints = self.zoctl(0, "sign", "--open", "link/e", "--open", "open", *self.sealed()).stderr
        self.assertEqual(hints.splitlines(), [
            "The seal does not cover the findings that are listed above.",
            "Links in sealed folders count as extra when the folder is verified.",
            "'link/e' was not left open: it is behind a link, and links are not signed."])
        self.sign("--open", "open", "--seal-none", code=2)

    def test_findings_stay_printable(self):
        self.sign()
        self.write("d/\x1b[31mred", "")
        text = self.zoctl(17, "verify", *self.sealed())
        self.assertNotIn("\x1b", text.stdout + text.stderr)
        self.assertRegex(text.stdout, r"(?s)extra .*\\x1B\[31mred\nok +bad +missing +extra +directories\n8 +0 +0 +1 +4")

    def test_strict_fails_for_everything_that_the_seal_does_not_cover(self):
        (self.tree / "open/below").mkdir()
        make = {"skipped link": lambda path: path.symlink_to(self.keys),
                "unlistable": lambda path: path.write_text("x"),
                # Nobody can open a socket as a file, whatever the rights.
                "unreadable": lambda path: socket.socket(socket.AF_UNIX).bind(os.path.relpath(path))}
        for kind, name, options, code, counts in (
                ("skipped link", "d/link", ("--strict",), 34, (0, 0, 1)),
                ("skipped link", "link", ("--strict", "--open", "d"), 34, (0, 0, 1)),
                ("skipped link", "d/link", ("--strict", "--open", "d"), 0, (0, 0, 0)),
                ("skipped link", "open/below/link", ("--strict", "--open", "OPEN"), 0, (0, 0, 0)),
                ("skipped link", "link", ("--strict", "--open", "."), 0, (0, 0, 0)),
                ("skipped link", "d/link", ("--strict", "--seal-none"), 0, (0, 0, 0)),
                ("unlistable", "d/e/a\x01b", ("--strict",), 34, (0, 1, 0)),
                ("unlistable", "d/a\x01b", ("--strict", "--open", "d"), 34, (0, 1, 0)),
                ("unreadable", "sock", ("--strict",), 34, (1, 0, 0)), ("unreadable", "sock", (), 0, (1, 0, 0))):
            with self.subTest(name=name, options=options):
                make[kind](self.tree / name)
                facts = self.sign(*options, code=code)
                (self.tree / name).unlink()
                self.assertEqual((facts["unreadable"], facts["unlistable"], facts["linksInSealedFolders"]), counts)
                self.assertEqual(self.findings(facts), [f"{kind} {name}"])

    def test_a_key_can_come_from_standard_input(self):
        digits = KEYS["private"].hex().encode()
        for given in (KEYS["private"], digits, digits[:100] + b"\r\n" + digits[100:] + b"\n"):
            for verb in ("sign", "verify"):
                self.zoctl(0, verb, self.tree, "-m", self.manifest, "--key", "-", given=given)
            self.assertEqual(self.zoctl(0, "keys", "thumbprint", "-", given=given).stdout.strip(), THUMBPRINT)
        too_much = digits.rjust(65537)
        for given in (b"", KEYS["private"][:-1], KEYS["private"] + b"x", digits[:-1], too_much):
            self.refused(33, "Standard input", "sign", self.tree, "-m", self.manifest, "--key", "-", given=given)
            self.refused(33, "Standard input", "keys", "thumbprint", "-", given=given)

    def test_a_key_can_come_in_pieces(self):
        reading, writing = os.pipe()
        fcntl.fcntl(writing, fcntl.F_SETPIPE_SZ, 4096)
        with subprocess.Popen([*ZOCTL, "keys", "thumbprint", "-"], stdin=reading, stdout=subprocess.PIPE) as zoctl:
            os.close(reading)
            os.write(writing, KEYS["private"].hex().encode().rjust(6000))
            os.close(writing)
            self.assertEqual(zoctl.stdout.read().decode().strip(), THUMBPRINT)

    def test_thumbprint_of_key_files_and_of_the_built_in_key(self):
        for key in (self.keys, self.keys / "private.rsakey", self.keys / "public.rsakey", "--embedded-key"):
            self.assertEqual(self.facts(0, "keys", "thumbprint", key)["thumbprint"], THUMBPRINT, key)
        self.refused(33, self.folder, "keys", "thumbprint", self.folder)
        for key in (self.tree / "a.txt", self.folder / "none"):
            self.assertIn("Name a keystore folder", self.refused(33, key, "keys", "thumbprint", key)["advice"])
        self.zoctl(2, "keys", "thumbprint")
        self.zoctl(2, "keys", "thumbprint", self.keys, "--embedded-key")

    def test_a_dry_run_shows_what_would_be_listed_and_writes_nothing(self):
        self.manifest = self.tree / "d/seal.zosig"
        first = self.sign("--open", "open", "--dry-run")
        self.assertFalse(self.manifest.exists())
        signed = self.sign("--open", "open")
        before = self.manifest.read_bytes()
        second = self.sign("--open", "open", "--dry-run")
        self.assertEqual(self.manifest.read_bytes(), before)
        items = self.facts(0, "manifest", "show", self.manifest)["items"]
        self.assertEqual([first, second], [signed | {"dryRun": True, "items": items}] * 2)
        self.write("d/a\x01b", "")
        self.sign("--dry-run", "--strict", code=34)
        self.assertRegex(self.zoctl(0, "sign", "--dry-run", *self.sealed()).stdout,
                         r"(?s)file +200000  d/e/big\n.*unlistable +control.*DRY RUN.*nothing was written\.")

    def test_manifests_are_shown_and_compared(self):
        self.sign("--open", "open")
        old = self.manifest.rename(self.folder / "old.zosig")
        text = self.zoctl(0, "manifest", "show", old)
        self.assertIn("not checked", text.stderr)
        shown = self.facts(0, "manifest", "show", old)
        self.assertEqual(shown["thumbprint"], THUMBPRINT)
        items = {item["path"]: item for item in shown["items"]}
        self.assertEqual(list(items), sorted(items))
        ticks = int(re.search(rb"\nTIME (\d+)\n", old.read_bytes())[1])  # of 100 ns, since 1601
        signed = datetime.datetime(1601, 1, 1) + datetime.timedelta(microseconds=ticks // 10)
        self.assertEqual(shown["signed"], f"{signed:%Y-%m-%d %H:%M:%S} UTC")
        self.assertRegex(text.stdout, rf"(?s)Root +Z:.*\nThumbprint  {THUMBPRINT}\nSigned      {shown['signed']}\n\n"
                                      rf"kind .*\nfile +200000  {items['d/e/big']['digest']}  d/e/big\n")
        self.assertEqual([items[path]["kind"] for path in ("open", ".", "k.LNK")],
                         ["open folder", "sealed folder", "shortcut"])
        self.assertEqual((len(items), items["d/e/big"]["size"]), (12, 200000))

        self.write("a.txt", "changed")
        self.write("new.txt", "new")
        (self.tree / "d/dot.").unlink()
        self.sign()
        facts = self.facts(1, "manifest", "diff", old, self.manifest)
        self.assertEqual([change["change"] + " " + change["path"] for change in facts["changes"]],
                         ["changed a.txt", "removed d/dot.", "added new.txt", "changed open"])
        self.assertEqual((facts["differences"], facts["sameKey"]), (4, True))
        for file, code in {old: 0, self.tree / "a.txt": 32, self.folder: 5}.items():
            self.facts(code, "manifest", "diff", file, old)
        self.zoctl(3, "manifest", "show", self.folder / "none")

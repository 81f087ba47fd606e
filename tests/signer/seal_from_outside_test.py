"""zoctl seals and verifies trees that are made and changed from the Unix side, where links, denied folders and names that
differ only in case can be made. docs/verify_manifest.py, with openssl, is a second implementation to compare with.

Arguments: the emulator's command line and zoctl.exe."""

import hashlib
import json
import os
import pathlib
import socket
import subprocess
import sys
import tempfile
import unittest

SOURCES = pathlib.Path(__file__).resolve().parents[2]
ZOCTL = sys.argv[1:]
# Root is never denied access; without these capabilities it is.
UNPRIVILEGED = ["setpriv", "--bounding-set", "-dac_override,-dac_read_search", "--inh-caps",
                "-dac_override,-dac_read_search"] if os.geteuid() == 0 else []
# The pair that the build embeds by default.
KEYS = {half: bytes.fromhex((SOURCES / folder / f"development_{half}_key.hex").read_text())
        for half, folder in {"private": "tests/signer", "public": "signer"}.items()}
THUMBPRINT = hashlib.sha256(KEYS["public"]).hexdigest()
LONG = "n" * 200


def dos(path):
    return "Z:" + str(path).replace("/", "\\")


class SealTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.tree, self.manifest, self.keys = (self.folder / name for name in ("tree", "seal.zosig", "keys"))
        self.keys.mkdir()
        for half, key in KEYS.items():
            (self.keys / f"{half}.rsakey").write_bytes(key)
        for name, contents in {"a.txt": "alpha", "A.TXT": "other case", "d/dot.": "dot", "d/blank ": "", "k.LNK": "link",
                               "d/\u00e4\u6f22\U0001f600": "names", "open/o.txt": "o", "d/e/big": "x" * 200000}.items():
            self.write(name, contents)

    def zoctl(self, code, *arguments, prefix=()):
        arguments = [dos(argument) if isinstance(argument, pathlib.Path) else argument for argument in arguments]
        done = subprocess.run([*prefix, *ZOCTL, *arguments], capture_output=True, text=True, timeout=120, stdin=subprocess.DEVNULL)
        self.assertEqual(done.returncode, code, done)
        return done

    def write(self, name, contents):
        path = self.tree / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(contents)

    def sign(self, *more, code=0):
        return json.loads(self.zoctl(code, "sign", self.tree, "-m", self.manifest, "-k", self.keys, "--json", *more).stdout)

    def verify(self, code, prefix=()):
        return json.loads(self.zoctl(code, "verify", self.tree, "-m", self.manifest, "-k", self.keys, "--json",
                                     prefix=prefix).stdout)

    def run_oracle(self, *options, prefix=()):
        return subprocess.run([*prefix, sys.executable, *options, SOURCES / "docs/verify_manifest.py", self.tree, self.manifest,
                               self.keys / "public.rsakey"], capture_output=True, text=True)

    def oracle(self, **how):
        """The findings of the second implementation, as "kind path"."""
        done = self.run_oracle(**how)
        self.assertIn(done.returncode, (0, 1), done)
        return sorted(done.stdout.splitlines()) if done.returncode else []

    def findings(self, facts):
        below = dos(self.tree) + "\\"
        return sorted(f["kind"] + " " + f["path"].removeprefix(below).replace("\\", "/") for f in facts["findings"])

    def test_second_implementation_agrees(self):
        facts = self.sign("--open", "open")
        self.assertEqual((facts["entries"], facts["directories"], facts["sealedDirectories"]), (8, 4, 3))
        self.assertEqual(facts["thumbprint"], THUMBPRINT)
        self.assertEqual(self.verify(0)["counts"]["ok"], 8)
        self.assertEqual(self.oracle(), [])

        self.write("a.txt", "Alpha")
        self.write("d/dot.", "")
        (self.tree / "A.TXT").unlink()
        (self.tree / "k.LNK").unlink()
        (self.tree / "d/blank ").rename(self.tree / "d/blank")
        self.write("d/new/x", "")
        self.write("open/new", "")
        expected = ["bad a.txt", "bad d/dot.", "extra d/blank", "extra d/new", "missing A.TXT", "missing d/blank ", "missing k.LNK"]
        self.assertEqual(self.oracle(), expected)
        found = self.findings(self.verify(16 + 7))
        # Where the file system ignores case, a name that is gone can still be found under another case.
        self.assertEqual(sorted(f.replace("bad A.TXT", "missing A.TXT") for f in found), expected)
        self.manifest.write_bytes(self.manifest.read_bytes().replace(b"D O open", b"D O 0pen"))
        self.verify(32)

    def test_second_implementation_refuses_changed_manifests_even_with_O(self):
        self.sign()
        whole = self.manifest.read_bytes()
        for name, forged in {"magic": whole.replace(b"ZOSIG1", b"ZOSIG2", 1), "flag": whole.replace(b"D S open", b"D O open"),
                             "nothing listed": whole[:whole.index(b"----")] + b"----\nD O .\n"}.items():
            self.manifest.write_bytes(forged)
            for options in ((), ("-O",)):
                with self.subTest(name, options=options):
                    self.assertEqual(self.run_oracle(*options).returncode, 2)

    def test_a_sealed_folder_below_a_denied_one_is_reported_and_the_rest_is_checked(self):
        self.sign()
        self.write("open/new", "")
        denied = self.tree / "d"
        denied.chmod(0)
        self.addCleanup(denied.chmod, 0o755)
        facts = self.verify(34, prefix=UNPRIVILEGED)
        found = self.findings(facts)
        self.assertIn("unreadable d/e", found)
        self.assertIn("extra open/new", found)
        self.assertEqual((facts["counts"]["ok"], facts["counts"]["extra"], facts["counts"]["directories"]), (4, 1, 4))
        self.assertIn("unseen d/e", self.oracle(prefix=UNPRIVILEGED))

    def test_links_are_neither_listed_nor_followed(self):
        (self.folder / "outside/deep").mkdir(parents=True)
        (self.folder / "outside/deep/f").write_text("x")
        for link, target in {"loop": "tree", "d/out": "outside", "dangling": "nowhere"}.items():
            (self.tree / link).symlink_to(self.folder / target)
        self.assertEqual(self.findings(self.sign()), ["skipped link d/out", "skipped link loop"])
        self.assertNotIn(b"out", self.manifest.read_bytes().split(b"----")[1])
        self.assertEqual(self.findings(self.verify(17)), ["extra d/out", "extra loop"])

    def test_a_link_in_the_place_of_what_was_listed_is_as_good_as_what_it_leads_to(self):
        self.sign()
        (self.folder / "same/d").mkdir(parents=True)
        (self.folder / "same/o.txt").write_text("o")
        (self.folder / "other").mkdir()
        (self.folder / "other/new").write_text("alpha")
        for path, target, expected in (
                ("a.txt", "other/new", []), ("a.txt", "same/o.txt", ["bad a.txt"]), ("a.txt", "other", ["missing a.txt"]),
                ("k.LNK", "other/new", []), ("k.LNK", "other", ["missing k.LNK"]),
                ("d", "aside", []), ("open", "same", ["extra open/d"]), ("open", "other", ["extra open/new", "missing open/o.txt"])):
            listed, aside = self.tree / path, self.folder / "aside"
            listed.rename(aside)
            listed.symlink_to(self.folder / target)
            code = 16 + sum({"extra": 1, "missing": 2, "bad": 4}[finding.split()[0]] for finding in expected)
            self.assertEqual(self.findings(self.verify(code if expected else 0)), expected, (path, target))
            listed.unlink()
            aside.rename(listed)

    def test_long_paths_long_listings_and_read_only_trees(self):
        deep = "/".join(["n" * 50] * 8) + "/far.txt"
        self.write(deep, "far")
        self.sign()
        for file in self.tree.rglob("*.*"):
            file.chmod(0o444)
        self.verify(0)  # attributes are not sealed
        self.sign()
        self.assertEqual(self.oracle(), [])
        for number in range(300):  # a listing of more than one buffer
            self.write(f"many/{number:03}{LONG}", str(number))
        self.assertEqual(self.sign()["entries"], 309)
        self.verify(0)
        self.write("many/299", "")
        for gone in (deep, "many/298" + LONG):
            (self.tree / gone).unlink()
        self.assertEqual(self.findings(self.verify(19)), ["extra many/299", "missing many/298" + LONG, "missing " + deep])

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

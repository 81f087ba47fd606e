"""zoctl seals and verifies trees that are made and changed from the Unix side, where links, loops and names that differ
in case can be made; docs/verify_manifest.py, over openssl, gives the second opinion.

Arguments: the emulator's command line and zoctl.exe."""

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


def dos(path):
    return "Z:" + str(path).replace("/", "\\")


class SealTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.keys_folder = tempfile.TemporaryDirectory()
        cls.keys = pathlib.Path(cls.keys_folder.name) / "keys"
        made = cls.zoctl("keys", "generate", dos(cls.keys), "--json")
        assert made.returncode == 0, made
        cls.thumbprint = json.loads(made.stdout)["thumbprint"]

    @classmethod
    def tearDownClass(cls):
        cls.keys_folder.cleanup()

    @staticmethod
    def zoctl(*arguments):
        return subprocess.run([*ZOCTL, *arguments], capture_output=True, text=True, timeout=120, stdin=subprocess.DEVNULL)

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.tree = self.folder / "tree"
        self.manifest = self.folder / "seal.zosig"
        for name, contents in {"a.txt": "alpha", "A.TXT": "other case", "d/dot.": "dot", "d/blank ": "", "k.LNK": "link",
                               "d/\u00e4\u6f22\U0001f600": "names", "open/o.txt": "o", "d/e/big": "x" * 200000}.items():
            self.write(name, contents)

    def write(self, name, contents):
        path = self.tree / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(contents)

    def sign(self, *more, code=0):
        done = self.zoctl("sign", dos(self.tree), "-m", dos(self.manifest), "-k", dos(self.keys), "--json", *more)
        self.assertEqual(done.returncode, code, done)
        return json.loads(done.stdout)

    def verify(self, code, *more):
        done = self.zoctl("verify", dos(self.tree), "-m", dos(self.manifest), "-k", dos(self.keys), "--json", *more)
        self.assertEqual(done.returncode, code, done)
        return json.loads(done.stdout)

    def oracle(self):
        """The findings of the second implementation, as "kind path"."""
        done = subprocess.run([sys.executable, SOURCES / "docs/verify_manifest.py", self.tree, self.manifest,
                               self.keys / "public.rsakey"], capture_output=True, text=True)
        self.assertIn(done.returncode, (0, 1), done)
        return sorted(done.stdout.splitlines()) if done.returncode else []

    def findings(self, facts):
        below = dos(self.tree) + "\\"
        return sorted(f["kind"] + " " + f["path"].removeprefix(below).replace("\\", "/") for f in facts["findings"])

    def test_second_implementation_agrees(self):
        facts = self.sign("--open", "open")
        self.assertEqual((facts["entries"], facts["directories"], facts["sealedDirectories"]), (8, 4, 3))
        self.assertEqual(facts["thumbprint"], self.thumbprint)
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

    def test_links_are_neither_listed_nor_followed(self):
        outside = self.folder / "outside"
        (outside / "deep").mkdir(parents=True)
        (outside / "deep/f").write_text("x")
        (self.tree / "loop").symlink_to(self.tree)
        (self.tree / "d/out").symlink_to(outside)
        (self.tree / "dangling").symlink_to(self.folder / "nowhere")
        facts = self.sign()
        self.assertEqual(self.findings(facts), ["skipped link d/out", "skipped link loop"])
        self.assertNotIn(b"out", self.manifest.read_bytes().split(b"----")[1])
        self.assertEqual(self.findings(self.verify(17)), ["extra d/out", "extra loop"])
        (self.tree / "loop").unlink()
        (self.tree / "d/out").unlink()
        self.verify(0)

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

    def test_long_paths_and_read_only_trees(self):
        deep = "/".join(["n" * 50] * 8)
        self.write(deep + "/far.txt", "far")
        for folder, _, files in os.walk(self.tree):
            for name in files:
                os.chmod(os.path.join(folder, name), 0o444)
        self.sign()
        self.assertEqual(self.oracle(), [])
        self.verify(0)
        os.remove(self.tree / deep / "far.txt")
        self.assertEqual(self.findings(self.verify(18)), [f"missing {deep}/far.txt"])

        for number in range(300):  # a listing of more than one buffer
            self.write(f"many/{number:03}" + "n" * 200, str(number))
        self.assertEqual(self.sign()["entries"], 308)
        self.verify(0)
        self.write("many/299", "")
        (self.tree / ("many/298" + "n" * 200)).unlink()
        self.assertEqual(self.findings(self.verify(19)), ["extra many/299", "missing many/298" + "n" * 200])

    def test_keys_and_their_exit_codes(self):
        shown = self.zoctl("keys", "thumbprint", dos(self.keys))
        self.assertEqual((shown.returncode, shown.stdout.strip()), (0, self.thumbprint))
        self.assertEqual(self.zoctl("keys", "generate", dos(self.keys)).returncode, 6)
        self.assertEqual(self.zoctl("keys", "thumbprint", dos(self.folder)).returncode, 33)
        self.sign()
        junk, cut, other = self.folder / "junk", self.folder / "cut", self.folder / "other"
        junk.write_bytes(b"x" * 300)
        cut.write_bytes((self.keys / "private.rsakey").read_bytes()[:40])
        self.zoctl("keys", "generate", dos(other))
        arguments = ["verify", dos(self.tree), "-m", dos(self.manifest), "--json"]
        for key, code in {("--keystore", dos(other)): 32, ("--keystore", dos(self.folder)): 33, ("--embedded-key",): 32,
                          ("--key", dos(self.keys / "public.rsakey")): 0, ("--key", dos(self.folder / "none")): 33,
                          ("--key", dos(junk)): 33, ("--key", dos(cut)): 33, (): 2}.items():
            done = self.zoctl(*arguments, *key)
            self.assertEqual(done.returncode, code, (key, done))
            self.assertEqual(json.loads(done.stdout)["exitCode"], code)
        self.assertEqual(self.zoctl(*arguments[:3], dos(self.folder / "none"), "-k", dos(self.keys)).returncode, 3)
        for key, code in {"public.rsakey": 33, "private.rsakey": 0}.items():
            done = self.zoctl("sign", dos(self.tree), "-m", dos(self.manifest), "--key", dos(self.keys / key))
            self.assertEqual(done.returncode, code, (key, done))

    def test_folders_left_open_are_found_or_refused(self):
        absolute = dos(self.tree).lower().replace("z:", "Z:")
        for name, opened in {"Open\\": "Open", "./d/../open": "open", dos(self.tree / "d"): "d", absolute: ".",
                             "opne": None, "a.txt": None, "..": None}.items():
            with self.subTest(name):
                facts = self.sign("--open", name, code=0 if opened else 2)
                if opened:
                    self.assertEqual(facts["open"], [opened])
                    expected = {".": 0, "d": 2}.get(opened, 3)
                    self.assertEqual((facts["directories"], facts["sealedDirectories"]), (4, expected))
        # The word after a name is the tree.
        done = self.zoctl("sign", "--open", "open", dos(self.tree), "-m", dos(self.manifest), "-k", dos(self.keys))
        self.assertEqual(done.returncode, 0, done)

    def test_warns_of_a_keystore_inside_the_tree(self):
        inside = self.tree / "keys"
        done = self.zoctl("sign", dos(self.tree), "-m", dos(self.manifest), "-k", dos(inside))
        self.assertEqual(done.returncode, 0, done)
        self.assertIn("keystore lies inside", done.stderr)
        self.assertNotIn("\r", done.stderr)  # progress is for terminals
        self.assertIn(b"\nF keys/private.rsakey\n", self.manifest.read_bytes())
        done = self.zoctl("sign", dos(self.tree), "-m", dos(self.manifest), "--key", dos(inside / "private.rsakey"))
        self.assertIn("key file lies inside", done.stderr)

    def test_findings_stream_and_stay_printable(self):
        self.sign()
        self.write("d/\x1b[31mred", "")
        text = self.zoctl("verify", dos(self.tree), "-m", dos(self.manifest), "-k", dos(self.keys))
        self.assertEqual(text.returncode, 17)
        self.assertNotIn("\x1b", text.stdout + text.stderr)
        self.assertIn("\\x1B[31mred", text.stdout.replace("\\x1b", "\\x1B"))
        lines = self.zoctl("verify", dos(self.tree), "-m", dos(self.manifest), "-k", dos(self.keys), "--jsonl").stdout.splitlines()
        first, last = map(json.loads, lines)
        self.assertEqual((first["kind"], last["exitCode"], last["counts"]["extra"]), ("extra", 17, 1))

    def test_unreadable_files_fail_under_strict_only(self):
        with socket.socket(socket.AF_UNIX) as unreadable:  # nobody can open it as a file, whatever the rights
            here = os.getcwd()
            os.chdir(self.tree)  # for the name of a socket is short
            unreadable.bind("sock")
            os.chdir(here)
            facts = self.sign()
            self.assertEqual((facts["unreadable"], self.findings(facts)), (1, ["unreadable sock"]))
            self.sign("--strict", code=34)

    def test_manifests_are_shown_and_compared(self):
        self.sign("--open", "open")
        old = self.folder / "old.zosig"
        old.write_bytes(self.manifest.read_bytes())
        shown = json.loads(self.zoctl("manifest", "show", dos(old), "--json").stdout)
        self.assertEqual(shown["thumbprint"], self.thumbprint)
        items = {item["path"]: item for item in shown["items"]}
        self.assertEqual(len(items), 12)
        self.assertEqual((items["open"]["kind"], items["."]["kind"], items["k.LNK"]["kind"]), ("open folder", "sealed folder", "shortcut"))
        self.assertEqual(items["d/e/big"]["size"], 200000)

        self.write("a.txt", "changed")
        self.write("new.txt", "new")
        (self.tree / "d/dot.").unlink()
        self.sign()
        compared = self.zoctl("manifest", "diff", dos(old), dos(self.manifest), "--json")
        self.assertEqual(compared.returncode, 1)
        self.assertEqual({c["change"] + " " + c["path"] for c in json.loads(compared.stdout)["changes"]},
                         {"changed a.txt", "added new.txt", "removed d/dot.", "changed open"})
        self.assertEqual(self.zoctl("manifest", "diff", dos(old), dos(old)).returncode, 0)
        for file, code in {self.tree / "a.txt": 32, self.folder: 5}.items():
            self.assertEqual(self.zoctl("manifest", "diff", dos(file), dos(old)).returncode, code)
        self.assertEqual(self.zoctl("manifest", "show", dos(self.folder / "none")).returncode, 3)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

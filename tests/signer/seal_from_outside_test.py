"""zoctl seals and verifies trees that are made and changed from the Unix side, where links, denied folders and names
that differ only in case can be made. docs/verify_manifest.py, with openssl, is a second implementation to compare with.

Arguments: the emulator's command line and zoctl.exe."""

import subprocess
import sys

from sealed_tree import SOURCES, UNPRIVILEGED, SealedTreeTest

LONG = "n" * 200


class SealTest(SealedTreeTest):
    def run_oracle(self, *options, prefix=()):
        return subprocess.run([*prefix, sys.executable, *options, SOURCES / "docs/verify_manifest.py", self.tree, self.manifest,
                               self.keys / "public.rsakey"], capture_output=True, text=True)

    def oracle(self, **how):
        """The findings of the second implementation, as "kind path"."""
        done = self.run_oracle(**how)
        self.assertIn(done.returncode, (0, 1), done)
        return sorted(done.stdout.splitlines()) if done.returncode else []

    def test_second_implementation_agrees(self):
        self.sign("--open", "open")
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

"""Files that earlier versions wrote, one folder a version: each must go on working for ever. Never change a file there;
a new version adds a folder.

Arguments: the emulator's command line and zoctl.exe."""

import json
import os
import pathlib
import shutil

from sealed_tree import SealedTreeTest

HERE = pathlib.Path(__file__).resolve().parent
VERSIONS = sorted(path for path in HERE.iterdir() if path.is_dir() and path.name[0].isdigit())
THUMBPRINTS = {"1.0.0": "47bc7b55e6835bd9183271e2d9998ef6fcbacbdd47a3b5c5bde95b2440ded2f0"}
SIGNED = {"1.0.0": "2026-11-25 17:03:24 UTC"}
SEALED = {"a.exe": "alpha\n", "sub/empty.dll": "", "sub/deep/\u00e4\u6f22 name.txt": "deep\n", "open/o.txt": "x\n"}
RECORDED = 1704164645  # seconds since 1970: the time in the dedupe record


class OldFiles(SealedTreeTest):
    def for_each_version(self):
        """Puts a version's files in place; its name, and its folder."""
        for folder in VERSIONS:
            shutil.rmtree(self.tree)
            for name, contents in SEALED.items():
                self.write(name, contents)
            shutil.copy(folder / "seal.zosig", self.manifest)
            for half in ("private", "public"):
                (self.keys / f"{half}.rsakey").write_bytes(bytes.fromhex((folder / f"{half}.rsakey.hex").read_text()))
            yield folder.name, folder

    def test_a_manifest_still_verifies_and_still_shows_changes(self):
        for version, _ in self.for_each_version():
            shown = json.loads(self.zoctl(0, "manifest", "show", self.manifest, "--json").stdout)
            self.assertEqual(shown["signed"], SIGNED[version])
            facts = self.verify(0)
            self.assertEqual((facts["counts"]["ok"], facts["findings"]), (len(SEALED), []))
            self.write("a.exe", "Alpha\n")
            self.write("sub/new", "")
            self.assertEqual(self.findings(self.verify(16 + 1 + 4)), ["bad a.exe", "extra sub/new"])

    def test_a_pair_of_keys_still_signs(self):
        for version, _ in self.for_each_version():
            self.assertEqual(self.sign()["thumbprint"], THUMBPRINTS[version])
            self.verify(0)

    def test_a_rule_file_is_still_free_of_mistakes(self):
        for _, folder in self.for_each_version():
            facts = json.loads(self.zoctl(0, "rules", "check", folder / "rules.json", "--json").stdout)
            self.assertEqual(facts["mistakes"], [])

    def test_a_dedupe_record_still_says_which_dumps_are_new(self):
        for _, folder in self.for_each_version():
            record, dumps = self.folder / "crash_compare.dat", self.folder / "dumps"
            record.write_bytes(bytes.fromhex((folder / "crash_compare.dat.hex").read_text()))
            dumps.mkdir()
            for name, time in {"reported.dmp": RECORDED, "new.dmp": RECORDED + 1}.items():
                (dumps / name).write_text("not a dump")
                os.utime(dumps / name, (time, time))
            listed = json.loads(self.zoctl(1, "crash", "list", "--record", record, "--dumps", dumps, "--json").stdout)
            self.assertEqual([dump["path"].rpartition("\\")[2] for dump in listed["dumps"]], ["new.dmp"])

"""scripts/release, whole, in copies of the sources as they are now: what it refuses, that it gives the same bytes
anywhere, and that a signed release differs only in its signatures. Builds four times."""

import io
import os
import re
import subprocess
import tempfile
import unittest
import zipfile
from pathlib import Path

import signing
from build_facts import SOURCE, VERSION, run, signing_command

AUTHOR = {f"GIT_{who}_{what}": value for who in ("AUTHOR", "COMMITTER")
          for what, value in (("NAME", "A"), ("EMAIL", "a@example.com"), ("DATE", "2024-02-03T04:05:06Z"))}
SETTINGS = ["-DZO_EMBEDDED_PUBLIC_KEY=public.hex", "-DZO_CRASH_SERVER_URL=https://crash.example.com/crash",
            "-DZO_CRASH_CONTACT=crashes@example.com", f"-DZO_CRASH_SCRAMBLER_KEY={'7b' * 16}"]
PUBLIC_KEY = f"525341310008000003000000000100000000000000000000010001{'c3' * 256}"
ZIP = f"ZoProtectorLib-{VERSION}-windows-x64.zip"


def unpacked(content):
    with zipfile.ZipFile(io.BytesIO(content)) as archive:
        return {name.split("/", 1)[1]: archive.read(name) for name in archive.namelist()}


class Release(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.copy_sources(cls.work / "one")
        (cls.work / "public.hex").write_text(PUBLIC_KEY)
        cls.said = cls.release("one", *SETTINGS, "--try")
        cls.made = cls.files("one")

    @classmethod
    def copy_sources(cls, place):
        """With a history of its own, so that uncommitted changes take part and the real one stays as it is."""
        place.mkdir()
        files = subprocess.run(["git", "ls-files", "-z", "-co", "--exclude-standard"], cwd=SOURCE, check=True,
                               stdout=subprocess.PIPE).stdout
        present = b"\0".join(file for file in files.split(b"\0") if file and (SOURCE / os.fsdecode(file)).exists())
        packed = subprocess.run(["tar", "-c", "--null", "-T", "-"], cwd=SOURCE, input=present, check=True,
                                stdout=subprocess.PIPE).stdout
        subprocess.run(["tar", "-x"], cwd=place, input=packed, check=True)
        for words in (["init", "-q"], ["add", "-A"], ["commit", "-q", "-m", "state"]):
            run("git", *words, cwd=place, env={**os.environ, **AUTHOR})

    def clone(self, place):
        run("git", "clone", "-q", self.work / "one", self.work / place)

    @classmethod
    def release(cls, place, *options, check=True, **environment):
        return run(cls.work / place / "scripts/release", *options, check=check, cwd=cls.work,
                   env={**os.environ, **environment})

    @classmethod
    def files(cls, place):
        return {path.name: path.read_bytes() for path in (cls.work / place / "build/release/files").iterdir()}

    def test_lists_what_it_made_and_tried_the_examples(self):
        sums = dict(reversed(line.split()) for line in self.made["SHA256SUMS"].decode().splitlines())
        listed = dict(reversed(line.split()[1:]) for line in self.said.partition("files:\n")[2].splitlines())
        self.assertEqual(listed, sums)
        self.assertIn(ZIP, sums)
        for page in ("share/man/man1/zoctl.1", "share/doc/ZoProtectorLib/reference/html/index.html"):
            self.assertIn(page, unpacked(self.made[ZIP]))
        self.assertRegex(self.said, r"test_examples_of_the_driver_follow_its_life .*ok")

    def test_gives_the_same_bytes_elsewhere(self):
        self.clone("another place")
        self.release("another place", *SETTINGS, TZ="Pacific/Auckland", LC_ALL="C", CXXFLAGS="-O0")
        made = self.files("another place")
        self.assertEqual(set(made), set(self.made))
        self.assertEqual([name for name in made if made[name] != self.made[name]], [])

    def test_differs_in_the_signatures_alone_when_signed(self):
        signer = f"{signing_command(self.work)} -in {{file}} -out {{file}}.new && mv {{file}}.new {{file}}"
        self.release("one", *SETTINGS, ZO_SIGN_COMMAND=signer)
        unsigned, signed = unpacked(self.made[ZIP]), unpacked(self.files("one")[ZIP])
        changed = {file for file in signed if signed[file] != unsigned[file]}
        self.assertEqual(changed, {f"{folder}/{file}" for folder in ("bin", "simulator")
                                   for file in ("ZoProtectorLib.dll", "zoctl.exe")})
        for file in changed:
            self.assertEqual(signing.taken_apart(signed[file])[0], signing.taken_apart(unsigned[file])[0], file)

    def test_fails_without_files_when_the_signer_does_not_sign(self):
        code, said = self.release("one", *SETTINGS, check=False, ZO_SIGN_COMMAND="true")
        self.assertEqual(code, 1)
        self.assertIn("has no Authenticode signature", said)
        self.assertEqual(self.files("one"), {})

    def test_refuses_what_is_not_to_be_released(self):
        self.clone("refused")
        code, said = self.release("refused", *SETTINGS[1:], check=False)
        self.assertEqual(code, 1)
        self.assertEqual(re.findall(r"-D(ZO_\w+)=", said), ["ZO_EMBEDDED_PUBLIC_KEY"])
        self.assertIn("--with-development-settings", said)

        code, said = self.release("refused", "--out", self.work, *SETTINGS, check=False)
        self.assertEqual((code, said), (1, f"release: {self.work} is not empty\n"))

        (self.work / "refused/new").write_text("")
        code, said = self.release("refused", *SETTINGS, check=False)
        self.assertEqual((code, said.splitlines()[-1]), (1, "?? new"))

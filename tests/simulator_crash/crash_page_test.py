"""The crash server's page in a real browser.

ZO_CRASH_SCREENSHOT=FILE.png keeps the picture that is taken, of the list or of the path in ZO_CRASH_SCREENSHOT_OF."""

import html
import os
import pathlib
import shutil
import struct
import subprocess
import tempfile
import unittest

from served import Server, query_fields, report_fields

import make_dump

BROWSER = shutil.which("chromium") or shutil.which("chromium-browser") or shutil.which("google-chrome")
ATTACK = "<script>document.title='owned'</script><img src=x onerror=\"document.title='owned'\">"
STACK = ("Kernel build 19045 (4 processors) x64\nSystem up time: 0 days 2:00:00\nLoading kernel modules\n...\n\n"
         "BugCheck D1, {10, 2, 0, fffff80604001a2b}\n\nProbably caused by : ZoProtector\n")


@unittest.skipUnless(BROWSER, "NOT TESTED: there is no chromium; scripts/setup installs it")
class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.server = cls.enterClassContext(Server())
        cls.report("3f9d2c7be01855aa41d0cc97e6b2f348", 4, STACK, "--bugcheck", "0xD1", "--parameters", "0x10", "2", "0",
                   "0xfffff80604001a2b")
        cls.report("b7714e09d2a6f3c85e1b90ad6c43f217", 2, STACK.replace("D1, {10", "1E, {28"))
        cls.server.post(query_fields(CrashSignature="58c0e6aa94d1f7233b0d5e81cf9762b4"))
        cls.attack = cls.report("e05ad81f6b3c94d2870b1fe36cd4a95b", 1, ATTACK, "--bugcheck", "0x50", AppName=ATTACK)

    @classmethod
    def report(cls, signature, seen, stack, *arguments, **changes):
        for _ in range(seen):
            cls.server.post(query_fields(CrashSignature=signature))
        dump = make_dump.make_dump(make_dump.parse_arguments(["-", *arguments, "--size", "131072"]))
        return cls.server.post(report_fields(dump, stack.encode(), CrashSignature=signature, **changes))[1].split()[-1]

    def browse(self, path, *options):
        """What the browser prints; it runs whatever the page has, for three seconds of its own time."""
        return subprocess.run(
            [BROWSER, "--headless", "--no-sandbox", "--disable-gpu", "--ignore-certificate-errors", "--hide-scrollbars",
             f"--user-data-dir={self.folder}", "--virtual-time-budget=3000", *options,
             f"https://localhost:{self.server.port}{path}"],
            capture_output=True, text=True, check=True, timeout=240).stdout

    def test_shows_an_attack_as_text(self):
        for path in (f"/report/{self.attack}", "/crash/e05ad81f6b3c94d2870b1fe36cd4a95b"):
            page = self.browse(path, "--dump-dom")
            self.assertFalse("<script" in page or "<img" in page or "<title>owned" in page)
            self.assertIn(f">{html.escape(ATTACK, quote=False)}</", page)
        self.assertIn("default-src 'none'", self.server.request("GET", "/")[2].getheader("Content-Security-Policy"))

    def test_draws_the_list(self):
        picture = pathlib.Path(os.environ.get("ZO_CRASH_SCREENSHOT", self.folder / "list.png")).resolve()
        self.browse(os.environ.get("ZO_CRASH_SCREENSHOT_OF", "/"), f"--screenshot={picture}", "--window-size=1100,480")
        self.assertEqual(struct.unpack(">II", picture.read_bytes()[16:24]), (1100, 480))
        # A page whose style is refused, or that shows nothing, is a fraction of this size.
        self.assertGreater(picture.stat().st_size, 20000)
        page = self.browse("/", "--dump-dom")
        self.assertIn("4 different crashes, seen 8 times", page)
        self.assertLess(page.index("e05ad81f"), page.index("3f9d2c7b"), "the last seen comes first")


if __name__ == "__main__":
    unittest.main()

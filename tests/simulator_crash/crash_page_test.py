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

from served import Server, document, framed, query_fields, report_fields

import make_dump

BROWSER = shutil.which("chromium") or shutil.which("chromium-browser") or shutil.which("google-chrome")
ATTACK = "<script>document.title='owned'</script><img src=x onerror=\"document.title='owned'\">"


@unittest.skipUnless(BROWSER, "NOT TESTED: there is no chromium; scripts/setup installs it")
class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.profile = tempfile.TemporaryDirectory(prefix="crash_page_test")
        cls.addClassCleanup(cls.profile.cleanup)
        cls.server = Server()
        cls.addClassCleanup(cls.server.stop)
        text = ("Kernel build 19045 (4 processors) x64\nSystem up time: 0 days 2:00:00\nLoading kernel modules\n...\n\n"
                "BugCheck {}\n\nProbably caused by : ZoProtector\n")
        cls.report("3f9d2c7be01855aa41d0cc97e6b2f348", 4, text.format("D1, {10, 2, 0, fffff80604001a2b}"),
                   "--bugcheck", "0xD1", "--parameters", "0x10", "2", "0", "0xfffff80604001a2b")
        cls.report("b7714e09d2a6f3c85e1b90ad6c43f217", 2, text.format("1E, {ffffffffc0000005, 0, 0, 28}"))
        cls.server.post(framed(document(query_fields(CrashSignature="58c0e6aa94d1f7233b0d5e81cf9762b4"))))
        cls.attack = cls.report("e05ad81f6b3c94d2870b1fe36cd4a95b", 1, ATTACK, "--bugcheck", "0x50", AppName=ATTACK)

    @classmethod
    def report(cls, signature, seen, stack, *arguments, **changes):
        for _ in range(seen):
            cls.server.post(framed(document(query_fields(CrashSignature=signature))))
        dump = make_dump.make_dump(make_dump.parse_arguments(["-", *arguments, "--size", "131072"]))
        fields = report_fields(dump, stack.encode(), CrashSignature=signature, **changes)
        return cls.server.post(framed(document(fields)))[1].split()[-1]

    def browse(self, path, *options):
        """What the browser prints; it runs whatever the page has, for three seconds of its own time."""
        return subprocess.run(
            [BROWSER, "--headless", "--no-sandbox", "--disable-gpu", "--ignore-certificate-errors", "--hide-scrollbars",
             f"--user-data-dir={self.profile.name}", "--virtual-time-budget=3000", *options,
             f"https://localhost:{self.server.port}{path}"],
            capture_output=True, text=True, check=True, timeout=240).stdout

    def test_shows_an_attack_as_text(self):
        page = self.browse(f"/report/{self.attack}", "--dump-dom")
        self.assertIn(f"<title>Report {self.attack}</title>", page)
        self.assertFalse("<script" in page or "<img" in page)
        self.assertIn(f"<pre>{html.escape(ATTACK, quote=False)}</pre>", page)

    def test_draws_the_list(self):
        with tempfile.TemporaryDirectory() as folder:
            picture = pathlib.Path(os.environ.get("ZO_CRASH_SCREENSHOT", f"{folder}/list.png")).resolve()
            path = os.environ.get("ZO_CRASH_SCREENSHOT_OF", "/")
            self.browse(path, f"--screenshot={picture}", "--window-size=1100,480")
            head = picture.read_bytes()[:24]
            self.assertEqual(struct.unpack(">II", head[16:24]), (1100, 480))
            # A page whose style is refused, or that shows nothing, is a fraction of this size.
            self.assertGreater(picture.stat().st_size, 20000)
        page = self.browse("/", "--dump-dom")
        self.assertIn("4 different crashes, seen 8 times", page)
        self.assertLess(page.index("e05ad81f"), page.index("3f9d2c7b"), "the last seen comes first")


if __name__ == "__main__":
    unittest.main()

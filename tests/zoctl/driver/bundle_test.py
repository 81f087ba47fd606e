"""zoctl doctor --bundle: one ZIP file for support, without the user's name, written only when it is wanted.

Arguments: the emulator's command line and zoctl.exe."""

import datetime
import getpass
import json
import zipfile

from sealed_tree import BUILT, SealedTreeTest, words
from terminal import pressed

ANSWERS = ["doctor", "driver status", "status", "stats", "signature policy", "rules list", "crash history"]


class BundleTest(SealedTreeTest):
    def setUp(self):
        super().setUp()
        self.bundle = self.folder / "support.zip"

    def write_bundle(self):
        """What the command answers, and the files of the bundle by their names."""
        answer = json.loads(self.zoctl(0, "doctor", "--bundle", self.bundle, "--yes", "--json").stdout)
        self.assertEqual(self.bundle.read_bytes()[-2:], bytes(2), "it has no comment")
        with zipfile.ZipFile(self.bundle) as bundle:
            self.assertIsNone(bundle.testzip())
            for file in bundle.infolist():
                age = datetime.datetime.now() - datetime.datetime(*file.date_time)
                self.assertLess(abs(age), datetime.timedelta(minutes=1), file)
            return answer, {name: bundle.read(name).decode() for name in bundle.namelist()}

    def test_holds_the_answers_and_the_log_without_the_users_name(self):
        user = getpass.getuser()
        private = f"C:\\users\\{user}\\Secret\\{user}.exe"
        self.start_driver()
        self.zoctl(0, "process", "add", private)
        answer, files = self.write_bundle()
        logs = [name for name in files if name.startswith("log/ZoProtector_")]
        self.assertCountEqual(files, [name.replace(" ", "_") + ".json" for name in ANSWERS] + logs)
        self.assertEqual(answer["files"], [{"name": name, "size": len(text.encode())} for name, text in files.items()])
        for name in ANSWERS:
            self.assertEqual(json.loads(files[name.replace(" ", "_") + ".json"])["command"], name)
        rule = json.loads(files["rules_list.json"])["tables"]["process"]["rules"][0]
        self.assertEqual(rule, {"nt": {"path": r"\Device\HarddiskVolume1\users\%USERNAME%\Secret\%USERNAME%.exe"},
                                "win32": r"%USERPROFILE%\Secret\%USERNAME%.exe"})
        self.assertIn(r"Added '%USERPROFILE%\Secret\%USERNAME%.exe'", files[max(logs)])
        for name, text in files.items():
            self.assertNotRegex(text, rf"(?i)\b{user}\b", name)

    def test_holds_the_last_4_mib_of_a_log_from_the_beginning_of_a_line(self):
        name = f"ZoProtector_{datetime.date.today() - datetime.timedelta(1):%Y%m%d}.log"
        findings = {one["subject"]: one["finding"] for one in self.facts(40, "doctor")["findings"]}
        folder = findings["diagnostic log"].split("\\")[1:-1]
        log = (BUILT.parent / "wine-prefix/drive_c").joinpath(*folder, name)
        log.parent.mkdir(parents=True, exist_ok=True)
        log.write_text("first line\n" + "0123456789\n" * 400000)
        self.addCleanup(log.unlink)
        text = self.write_bundle()[1]["log/" + name]
        self.assertEqual(set(text.splitlines()), {"0123456789"})
        self.assertEqual(len(text), (4 << 20) // 11 * 11)

    def test_holds_why_a_command_failed(self):
        self.assertEqual(json.loads(self.write_bundle()[1]["status.json"])["exitCode"], 3)

    def test_is_not_written_unasked_or_over_another_file(self):
        self.zoctl(2, "doctor", "--yes")
        for form in ([], ["--json"]):
            self.zoctl(2, "doctor", "--bundle", self.bundle, *form)
            self.assertFalse(self.bundle.exists())
        self.bundle.write_text("mine")
        self.zoctl(6, "doctor", "--bundle", self.bundle, "--yes")
        self.assertEqual(self.bundle.read_text(), "mine")

    def test_asks_at_a_terminal_below_the_list_of_its_files(self):
        for typed, code in {"no": 130, "yes": 0}.items():
            ended, shown = pressed(typed.encode() + b"\r", lambda shown, _: b"write it" in shown,
                                   *words(("doctor", "--bundle", self.bundle)))
            self.assertEqual((ended, self.bundle.exists()), (code, code == 0), shown)
            self.assertLess(shown.index("rules_list.json"), shown.index("to write it"))

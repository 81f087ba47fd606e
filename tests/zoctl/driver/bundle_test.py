"""zoctl doctor --bundle: one ZIP file for support, without the user's name, written only when it is wanted.

Arguments: the emulator's command line and zoctl.exe."""

import datetime
import getpass
import json
import re
import subprocess
import zipfile

from sealed_tree import BUILT, ZOCTL, SealedTreeTest, dos, words
from terminal import CTRL_C, pressed

ANSWERS = ["doctor", "driver status", "status", "stats", "signature policy", "rules list", "crash history"]


class BundleTest(SealedTreeTest):
    def setUp(self):
        super().setUp()
        self.bundle = self.folder / "support.zip"

    def write_bundle(self):
        """What the command answers, and the files of the bundle by their names."""
        answer = json.loads(self.zoctl(0, "doctor", "--bundle", self.bundle, "--yes", "--json").stdout)
        with zipfile.ZipFile(self.bundle) as bundle:
            self.assertIsNone(bundle.testzip())
            for file in bundle.infolist():
                age = datetime.datetime.now() - datetime.datetime(*file.date_time)
                self.assertLess(abs(age), datetime.timedelta(minutes=1), file)
            return answer, {name: bundle.read(name).decode() for name in bundle.namelist()}

    def test_holds_the_answers_and_the_log_without_the_users_name(self):
        user = getpass.getuser()
        self.start_driver()
        self.zoctl(0, "process", "add", f"C:\\users\\{user}\\Secret\u65e5\\{user}.exe")
        answer, files = self.write_bundle()
        logs = [name for name in files if name.startswith("log/ZoProtector_")]
        self.assertCountEqual(files, [name.replace(" ", "_") + ".json" for name in ANSWERS] + logs)
        self.assertEqual(answer["files"], [{"name": name, "size": len(text.encode())} for name, text in files.items()])
        for name in ANSWERS:
            self.assertEqual(json.loads(files[name.replace(" ", "_") + ".json"])["command"], name)
        rule = json.loads(files["rules_list.json"])["tables"]["process"]["rules"][0]
        self.assertEqual(rule, {"nt": {"path": r"\Device\HarddiskVolume1\users\%USERNAME%\Secret日\%USERNAME%.exe"},
                                "win32": r"%USERPROFILE%\Secret日\%USERNAME%.exe"})
        self.assertIn('      "win32": "%USERPROFILE%\\\\Secret日', files["rules_list.json"])
        self.assertIn(r"Added '%USERPROFILE%\Secret日\%USERNAME%.exe'", files[max(logs)])
        for name, text in files.items():
            self.assertNotRegex(text, rf"(?i)\b{user}\b", name)

    def test_replaces_the_profile_folders_name_unless_it_is_a_system_accounts(self):
        self.start_driver()
        self.zoctl(0, "process", "add", "C:\\alias\\system")
        for name, shown in {"alias": "%USERNAME%\\system", "SYSTEM": "alias\\system"}.items():
            doctor = f"{dos(BUILT)}\\zoctl.exe doctor --bundle {dos(self.bundle)} --yes"
            subprocess.run([*ZOCTL[:-1], "cmd", "/c", f"set USERPROFILE=C:\\none\\{name}&{doctor}"], check=True,
                           capture_output=True)
            with zipfile.ZipFile(self.bundle) as bundle:
                rule = json.loads(bundle.read("rules_list.json"))["tables"]["process"]["rules"][0]
            self.assertEqual(rule["win32"], "C:\\" + shown)
            self.bundle.unlink()

    def test_holds_the_last_4_mib_of_a_log_from_the_beginning_of_a_line(self):
        names = [f"ZoProtector_{datetime.date.today() - datetime.timedelta(days):%Y%m%d}.log" for days in (1, 2)]
        findings = {one["subject"]: one["finding"] for one in self.facts(40, "doctor")["findings"]}
        folder = findings["diagnostic log"].split("\\")[1:-1]
        logs = [(BUILT.parent / "wine-prefix/drive_c").joinpath(*folder, name) for name in names]
        logs[0].parent.mkdir(parents=True, exist_ok=True)
        for log, text in zip(logs, ("first line\n" + "0123456789\n" * 400000, "\n" * (4 << 20))):
            log.write_text(text)
            self.addCleanup(log.unlink)
        files = self.write_bundle()[1]
        cut, whole = (files["log/" + name] for name in names)
        self.assertEqual(set(cut.splitlines()), {"0123456789"})
        self.assertEqual((len(cut), len(whole)), ((4 << 20) // 11 * 11, 4 << 20))

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

    def test_is_removed_when_it_cannot_be_written_whole(self):
        small = ["sh", "-c", "trap '' XFSZ; ulimit -f 8; exec \"$0\" \"$@\""]
        self.zoctl(1, "doctor", "--bundle", self.bundle, "--yes", prefix=small)
        self.assertFalse(self.bundle.exists())

    def test_is_not_written_over_a_file_that_came_while_it_asked(self):
        code, shown = pressed(b"yes\r", lambda shown, _: b"write it" in shown and self.bundle.write_text("mine"),
                              *words(("doctor", "--bundle", self.bundle)))
        self.assertEqual((code, self.bundle.read_text()), (6, "mine"), shown)

    def test_asks_at_a_terminal_below_the_list_of_its_files(self):
        for typed, code in {b"no\r": 130, CTRL_C: 130, b"yes\r": 0}.items():
            ended, shown = pressed(typed, lambda shown, _: b"write it" in shown,
                                   *words(("doctor", "--online", "--bundle", self.bundle)))
            self.assertEqual((ended, self.bundle.exists()), (code, code == 0), shown)
            text = re.sub(r"\x1b\[[?\d]*\w|\s", "", shown)  # the terminal breaks lines where the path makes them long
            self.assertRegex(text, "getsthesefiles:FILE.*rules_list.json.*username.*towriteit")

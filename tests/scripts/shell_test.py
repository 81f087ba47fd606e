"""scripts/shell: a driver that keeps running, zoctl and simctl that reach it, and nothing left behind."""

import json
import os
import pathlib
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["ZO_SOURCE"])
PROGRAM = '''#include <zoprotector.h>
#include <cstdio>
int main() {
    const bool open = ZoProtector_Initialize() == ZOP_OK;
    std::printf("rule %s\\n", open && ZoProtector_AddProcessProtectByPath(L"C:\\\\own.exe") == ZOP_OK ? "kept" : "refused");
}
'''


class Shell(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))

    def shell(self, commands, *arguments):
        """Exit code and standard output of `scripts/shell -c COMMANDS`."""
        environment = os.environ | {"ZO_SHELL_FOLDER": str(self.folder / "shell")}
        done = subprocess.run([SOURCE / "scripts/shell", "-c", commands, *arguments], env=environment, text=True,
                              stdin=subprocess.DEVNULL, capture_output=True, check=False, timeout=240)
        self.errors = done.stderr
        return done.returncode, done.stdout

    def test_driver_still_runs_seconds_after_the_last_command(self):
        """Without a kept session a driver stops when the last Windows program ends."""
        code, text = self.shell("zoctl process add 'C:\\first.exe' && sleep 6 && zoctl driver status --json")
        self.assertEqual(code, 0, self.errors)
        self.assertEqual(json.loads(text[text.index("{"):])["state"], "running")

    def test_programs_of_ones_own_reach_the_driver_and_simctl_shows_it(self):
        (self.folder / "own.cpp").write_text(PROGRAM)
        code, text = self.shell(
            f"set -e; {os.environ['ZO_CXX']} -std=c++20 -static -o own.exe {self.folder}/own.cpp"
            " $(pkg-config --cflags --libs zoprotectorlib); wine own.exe; simctl table process --json")
        self.assertEqual(code, 0, self.errors)
        said, _, document = text.partition("\n")
        self.assertEqual(said.strip(), "rule kept")
        self.assertTrue(json.loads(document)["entries"][0]["path"].endswith("\\own.exe"))

    def test_an_upgrade_leaves_a_driver_that_cannot_be_stopped_with_its_rules(self):
        """Here, because only the end of its session ends such a driver."""
        code, text = self.shell(
            "zoctl process add 'C:\\kept.exe' >&2; simctl stop refuse >&2; zoctl driver upgrade --json --restart --keep-rules"
            " 'C:\\drivers\\ZoProtectorDriver_1_0_1.sys'; echo END; zoctl status --json; echo END; simctl table process --json")
        self.assertEqual(code, 0, self.errors)
        upgrade, status, table = map(json.loads, text.split("END"))
        self.assertIn("the old driver runs on and keeps its rules", upgrade["message"])
        self.assertEqual([upgrade[name] for name in ("exitCode", "upgraded", "restarted", "restartRequired", "rulesFile")],
                         [1, True, False, True, None])
        self.assertEqual(status["driverVersion"], "1.0.0")
        self.assertTrue(table["entries"][0]["path"].endswith("\\kept.exe"))

    def test_ends_with_the_status_of_its_commands_and_leaves_no_process(self):
        self.assertEqual(self.shell("exit 7")[0], 7)
        mark = str(self.folder).encode()
        left = [path for path in pathlib.Path("/proc").glob("[0-9]*/environ") if mark in self.read(path)]
        self.assertEqual(left, [])
        self.assertEqual(self.shell("true", "more")[0], 2)

    @staticmethod
    def read(path):
        try:
            return path.read_bytes()
        except OSError:  # the process has ended, or is not ours
            return b""

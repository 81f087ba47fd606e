"""Ctrl-C at a terminal: zoctl, run on a pseudo-terminal, ends what takes long and still says what came of it.

Arguments: the emulator's command line and zoctl.exe, beside which the simulator's driver, engine and dumps lie."""

import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "support"))
from sealed_tree import ZOCTL, dos  # noqa: E402
from terminal import CTRL_C, pressed  # noqa: E402

BUILT = pathlib.Path(ZOCTL[-1]).parent


class InterruptTest(unittest.TestCase):
    @staticmethod
    def zoctl(*arguments, program="zoctl.exe"):
        subprocess.run([*ZOCTL[:-1], BUILT / program, *arguments], check=True, capture_output=True,
                       stdin=subprocess.DEVNULL)

    def test_events_end_with_their_totals(self):
        self.zoctl("driver", "install", dos(BUILT / "ZoProtectorDriver.sys"))
        self.addCleanup(self.zoctl, "driver", "uninstall")
        self.zoctl("driver", "start")
        self.zoctl("inject", "1", program="simctl.exe")
        code, shown = pressed(CTRL_C, lambda shown: b"\n" in shown, "events", "--follow")  # a line for the event
        self.assertEqual(code, 130, shown)
        self.assertIn("1 received + 0 lost = 1 produced", shown)

    def interrupted_crash_run(self, dumps_opened, *arguments):
        """Presses Ctrl-C when the engine has opened this many dumps of a run over two; gives the code, all that was
        shown, and the number opened by the end."""
        with tempfile.TemporaryDirectory() as name:
            dumps, record, script, calls = (pathlib.Path(name) / part for part in ("dumps", "record", "script", "calls"))
            dumps.mkdir()
            for dump in "a.dmp", "b.dmp":
                shutil.copy(BUILT / "dumps/ours.dmp", dumps / dump)
            script.write_text("[a.dmp]\nWaitForEvent hang 3000\n")

            def opened():
                return calls.read_text().count("OpenDumpFile") if calls.exists() else 0

            code, shown = pressed(
                CTRL_C, lambda _: opened() >= dumps_opened, "crash", "run", "--dumps", dos(dumps), "--record", dos(record),
                "--server", "https://localhost:1/", *arguments,
                ZO_DEBUG_ENGINE_SCRIPT=dos(script), ZO_DEBUG_ENGINE_LOG=dos(calls))
            return code, shown, opened()

    def test_a_crash_run_ends_at_the_next_check_before_anything_is_sent(self):
        code, shown, opened = self.interrupted_crash_run(1)
        self.assertEqual(code, 130, shown)
        self.assertRegex(shown, r"a\.dmp .* not sent: cancelled")
        self.assertIn("The record was not changed", shown)
        self.assertEqual(opened, 1)

    def test_a_crash_run_says_which_dumps_a_cancel_gave_up(self):
        code, shown, opened = self.interrupted_crash_run(3, "--target", "nobody")  # no dump needs the server
        self.assertEqual(code, 130, shown)
        self.assertRegex(shown, r"b\.dmp .* the run ended before this dump's turn")
        self.assertIn("not offered again", shown)
        self.assertEqual(opened, 3)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

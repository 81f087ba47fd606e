"""Ctrl-C at a terminal: zoctl, run on a pseudo-terminal, ends what takes long and still says what came of it.

Arguments: the emulator's command line and zoctl.exe, beside which the simulator's driver, engine and dumps lie."""

import os
import pathlib
import pty
import select
import shutil
import subprocess
import sys
import tempfile
import unittest

ZOCTL = sys.argv[1:]
BUILT = pathlib.Path(ZOCTL[-1]).parent


def dos(path):
    return "Z:" + str(path).replace("/", "\\")


def interrupted(is_time, *arguments, **environment):
    """Presses Ctrl-C as soon as is_time says so of what the terminal showed; gives the exit code and all that was shown."""
    child, terminal = pty.fork()
    if child == 0:
        os.execvpe(ZOCTL[0], [*ZOCTL, *arguments], os.environ | environment)
    pressed, shown = False, b""
    try:
        while True:
            if not pressed and is_time(shown):
                pressed = bool(os.write(terminal, b"\x03"))
            if pressed or select.select([terminal], [], [], 0.05)[0]:
                shown += os.read(terminal, 4096)
    except OSError:  # the other side is closed
        pass
    return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), shown.decode(errors="replace")


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
        code, shown = interrupted(lambda shown: b"\n" in shown, "events", "--follow")  # a line for the event
        self.assertEqual(code, 130, shown)
        self.assertIn("1 received + 0 lost = 1 produced", shown)

    def test_a_crash_run_ends_at_the_next_check(self):
        with tempfile.TemporaryDirectory() as name:
            dumps, record, script, calls = (pathlib.Path(name) / part for part in ("dumps", "record", "script", "calls"))
            dumps.mkdir()
            for dump in "a.dmp", "b.dmp":
                shutil.copy(BUILT / "dumps/ours.dmp", dumps / dump)
            script.write_text("WaitForEvent hang 3000\n")

            code, shown = interrupted(
                lambda _: calls.exists() and "OpenDumpFile" in calls.read_text(), "crash", "run", "--dumps", dos(dumps), "--record", dos(record), "--server", "https://localhost:1/",
                ZO_DEBUG_ENGINE_SCRIPT=dos(script), ZO_DEBUG_ENGINE_LOG=dos(calls))
            self.assertEqual(code, 130, shown)
            self.assertIn("2 new, 1 selected", shown)
            self.assertEqual(calls.read_text().count("OpenDumpFile"), 1)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

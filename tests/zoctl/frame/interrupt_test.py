"""Ctrl-C at a terminal: zoctl, run on a pseudo-terminal, ends what takes long and still says what came of it.

Arguments: the emulator's command line and zoctl.exe, beside which the simulator's driver, engine and dumps lie."""

import json
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
        return subprocess.run([*ZOCTL[:-1], BUILT / program, *arguments], check=True, capture_output=True,
                              stdin=subprocess.DEVNULL).stdout

    def start_driver(self):
        self.zoctl("driver", "install", dos(BUILT / "ZoProtectorDriver.sys"))
        self.addCleanup(self.zoctl, "driver", "uninstall")
        self.zoctl("driver", "start")

    def test_events_end_with_their_totals(self):
        self.start_driver()
        self.zoctl("inject", "1", program="simctl.exe")
        code, shown = pressed(CTRL_C, lambda shown, _: b"\n" in shown, "events", "--follow")  # a line for the event
        self.assertEqual(code, 130, shown)
        self.assertIn("1 received + 0 lost = 1 produced", shown)

    def interrupted_document(self, is_time, *arguments):
        """The last document on standard output of a command that Ctrl-C ends; is_time gets the processor time that it
        took, and what it wrote so far."""
        with tempfile.TemporaryDirectory() as name:
            out = pathlib.Path(name) / "out"
            code, shown = pressed(CTRL_C, lambda _, seconds: is_time(seconds, out.read_text() if out.exists() else ""),
                                  *arguments, out=out)
            text = out.read_text(encoding="utf-8")
        self.assertEqual(code, 130, shown + text)
        return [json.loads(part) for part in (text.splitlines() if "--jsonl" in arguments else [text])][-1]

    def test_sign_and_verify_leave_a_document(self):
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            (folder / "tree").mkdir()
            with open(folder / "tree/large", "wb") as file:
                file.truncate(1 << 29)  # takes seconds to hash, and no space
            paths = [dos(folder / "tree"), "-m", dos(folder / "manifest"), "-k", dos(folder / "keys")]
            self.zoctl("keys", "generate", paths[-1])
            self.zoctl("sign", *paths)
            for command in (["verify", *paths, "--json"], ["sign", *paths, "--json"], ["sign", *paths, "--jsonl"]):
                document = self.interrupted_document(lambda seconds, _: seconds > 0.7, *command)
                self.assertEqual([document[name] for name in ("command", "ok", "exitCode")], [command[0], False, 130])

    def test_rules_apply_tells_in_its_document_what_it_sent(self):
        self.start_driver()
        self.zoctl("fault", "add-process-rule", "--delay", "20", "--always", program="simctl.exe")

        def begun(*_):
            return json.loads(self.zoctl("table", "process", "--json", program="simctl.exe"))["entries"]

        with tempfile.TemporaryDirectory() as name:
            rules = pathlib.Path(name) / "rules.json"
            rules.write_text(json.dumps({"version": 1, "process": {"rules": [{"path": f"C:\\{i}"} for i in range(900)]}}))
            document = self.interrupted_document(begun, "rules", "apply", dos(rules), "--json")
        outcomes = [step["outcome"] for step in document["steps"]]
        self.assertEqual((set(outcomes), outcomes), ({"done", "not tried"}, sorted(outcomes)))

    def test_a_stream_of_events_ends_with_its_total(self):
        self.start_driver()
        self.zoctl("produce", "events", "--rate", "100", program="simctl.exe")
        document = self.interrupted_document(lambda _, text: "event" in text, "events", "--follow", "--jsonl")
        self.assertEqual(document["type"], "total")

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
                CTRL_C, lambda *_: opened() >= dumps_opened, "crash", "run", "--dumps", dos(dumps), "--record", dos(record),
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

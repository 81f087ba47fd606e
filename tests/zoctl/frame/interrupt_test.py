"""Ctrl-C at a terminal: zoctl, run on a pseudo-terminal, ends what takes long and still says what came of it.

Arguments: the emulator's command line and zoctl.exe, next to which are the simulator's driver, engine
and dumps."""

import json
import shutil
import subprocess

from sealed_tree import BUILT, ZOCTL, SealedTreeTest, dos, simctl, words
from terminal import CTRL_C, pressed


class InterruptTest(SealedTreeTest):
    def add_large_file(self):
        with open(self.tree / "large", "wb") as file:
            file.truncate(1 << 29)  # takes seconds to hash, and no space

    def interrupted(self, is_time, *arguments):
        """The last document on standard output of a command that Ctrl-C ends; is_time gets the processor time that it
        took, and what it wrote so far."""
        out = self.folder / "out"
        out.write_text("")
        code, shown = pressed(CTRL_C, lambda _, seconds: is_time(seconds, out.read_text()), *words(arguments), out=out)
        text = out.read_text(encoding="utf-8")
        self.assertEqual(code, 130, shown + text)
        return json.loads((text.splitlines() if "--jsonl" in arguments else [text])[-1])

    def test_events_end_with_their_totals(self):
        self.start_driver()
        simctl("produce", "events", "--rate", "100")
        total = self.interrupted(lambda _, text: "event" in text, "events", "--follow", "--jsonl")
        self.assertEqual(total["type"], "total")
        code, shown = pressed(CTRL_C, lambda shown, _: b"\n" in shown, "events", "--follow")
        self.assertEqual(code, 130, shown)
        self.assertRegex(shown, "received .* produced")

    def test_sign_and_verify_leave_a_document(self):
        self.add_large_file()
        self.sign()
        (self.tree / "link").symlink_to("d")  # found at once, which --jsonl writes
        for verb, form in (("verify", "--json"), ("sign", "--json"), ("sign", "--jsonl")):
            document = self.interrupted(lambda seconds, _: seconds > 0.7, verb, *self.sealed(), form)
            self.assertEqual(document, {"command": verb, "ok": False, "exitCode": 130, "message": "Cancelled half-way.",
                                        "advice": "Run it again."})

    def test_the_progress_line_is_cleared_at_the_end(self):
        self.add_large_file()
        (self.tree / "link").symlink_to("d")
        code, shown = pressed(CTRL_C, lambda *_: False, *words(("sign", *self.sealed())))
        self.assertEqual(code, 0, shown)
        # The terminal of some systems is told to clear a line instead of being given blanks.
        self.assertRegex(shown, r"(?s)signing: \d{1,2} s,( [\d.]+ of [\d.]+ MB read,)? 9 files, 1 finding\b"
                                r".*(\x1b\[K| {20}).*SIGNED")

    def test_rules_apply_tells_in_its_document_what_it_sent(self):
        self.start_driver()
        simctl("fault", "add-process-rule", "--delay", "20", "--always")
        rules = self.folder / "rules.json"
        rules.write_text(json.dumps({"version": 1, "process": {"rules": [{"path": f"C:\\{i}"} for i in range(900)]}}))
        document = self.interrupted(lambda *_: json.loads(simctl("table", "process", "--json"))["entries"],
                                    "rules", "apply", rules, "--json")
        outcomes = [step["outcome"] for step in document["steps"]]
        self.assertEqual((set(outcomes), outcomes), ({"done", "not tried"}, sorted(outcomes)))
        # A table from which rules were taken away is filled again first.
        rules.write_text(json.dumps({"version": 1, "process": {"rules": [{"path": f"C:\\new{i}"} for i in range(150)]},
                                     "registry": {"rules": [{"key": "HKLM\\S"}]}}))
        document = self.interrupted(lambda *_: b"new" in simctl("table", "process", "--json"),
                                    "rules", "apply", rules, "--json", "--allow-mass-removal")
        self.assertEqual([step["outcome"] for step in document["steps"]], ["done"] * 151 + ["not tried"])

    def test_installers_wait_for_each_other(self):
        self.start_driver()
        simctl("fault", "list-process-rules", "--delay", "15000")
        upgrade = words(("driver", "upgrade", BUILT / "ZoProtectorDriver_1_0_1.sys", "--restart", "--keep-rules"))
        with subprocess.Popen([*ZOCTL, *upgrade], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as first:
            while b"list-process-rules" not in simctl("requests", "--last", "1"):
                self.assertIsNone(first.poll())
            with subprocess.Popen([*ZOCTL, "driver", "uninstall"], stdout=subprocess.DEVNULL,
                                  stderr=subprocess.PIPE) as second:
                code, shown = pressed(CTRL_C, lambda shown, _: b"Waiting" in shown, "driver", "uninstall")
                said = second.communicate()[1]
        self.assertEqual((code, "Cancelled while waiting" in shown), (130, True), shown)
        self.assertEqual((first.returncode, second.returncode, said.count(b"Waiting for another process")), (0, 0, 1))

    def test_force_crash_asks_first(self):
        for typed, code in {b"no\r": 130, b"crash\r": 3}.items():  # there is no driver that could crash the system
            self.assertEqual(pressed(typed, lambda shown, _: b"Type" in shown, "force-crash")[0], code)
        self.zoctl(2, "force-crash")
        self.assertEqual(pressed(b"crash\r", lambda shown, _: b"Type" in shown, "force-crash", "--json")[0], 2)

    def interrupted_crash_run(self, dumps_opened, *arguments, hang=3000):
        """Presses Ctrl-C when the engine has opened this many dumps of a run over two, at the first of which it hangs;
        gives all that was shown."""
        dumps, script, calls = (self.folder / part for part in ("dumps", "script", "calls"))
        dumps.mkdir(exist_ok=True)
        for dump in "a.dmp", "b.dmp":
            shutil.copy(BUILT / "dumps/ours.dmp", dumps / dump)
        script.write_text(f"[a.dmp]\nWaitForEvent hang {hang}\n")
        calls.write_text("")
        run = ("crash", "run", "--dumps", dumps, "--record", self.folder / "record", "--server", "https://localhost:1/")
        code, shown = pressed(CTRL_C, lambda *_: calls.read_text().count("OpenDumpFile") >= dumps_opened,
                              *words(run + arguments),
                              ZO_DEBUG_ENGINE_SCRIPT=dos(script), ZO_DEBUG_ENGINE_LOG=dos(calls))
        self.assertEqual((code, calls.read_text().count("OpenDumpFile")), (130, dumps_opened), shown)
        return shown

    def test_a_crash_run_ends_at_the_next_check_before_anything_is_sent(self):
        shown = self.interrupted_crash_run(1)
        self.assertRegex(shown, r"(?s)Analysing the dumps before .*a\.dmp .* not sent: cancelled")
        for shown in shown, self.interrupted_crash_run(1, "--dry-run"):
            self.assertIn("The record was not changed", shown)

    def test_a_crash_run_ends_a_trial_that_hangs_after_ctrl_c(self):
        shown = self.interrupted_crash_run(1, hang=30000)
        self.assertIn("Cancelled before anything was sent", shown)
        self.assertNotIn("a.dmp", shown, "the trial ended by itself")

    def test_a_crash_run_says_which_dumps_a_cancel_gave_up(self):
        # No dump needs the server, and the trial takes longer than it may take after Ctrl-C.
        shown = self.interrupted_crash_run(3, "--target", "nobody", hang=6000)
        self.assertRegex(shown, r"b\.dmp .* the run ended before this dump's turn")
        self.assertIn("not offered again", shown)

"""Every JSON answer of zoctl is as docs/zoctl.schema.json says: a session that runs each command against the simulator.

Arguments: the emulator's command line and zoctl.exe, next to which are the simulator's driver, engine, dumps and vocabulary."""

import json
import pathlib
import re
import sys
import unittest

import jsonschema

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "support"))
from sealed_tree import SOURCES, ZOCTL, SealedTreeTest, dos, subprocess  # noqa: E402

BUILT = pathlib.Path(ZOCTL[-1]).parent
SCHEMA = json.loads((SOURCES / "docs/zoctl.schema.json").read_text(encoding="utf-8"))
COMMANDS = [name for name in SCHEMA["$defs"] if name[0].islower() and "--" not in name and name != "crash journal"]

# Exit code and command line; --json is added where --jsonl is not given. {b} is the folder of the programs.
SESSION = r"""
0   driver status
40  doctor
2   driver instal
2   nonsense
2   process add
3   status
3   driver start
2   doctor --bundle {f}\support.zip
0   doctor --bundle {f}\support.zip --yes
3   driver upgrade {b}\ZoProtectorDriver_1_0_1.sys
0   driver install {b}\ZoProtectorDriver.sys
0   driver install {b}\ZoProtectorDriver.sys --start auto --allow-unload --altitude 385100.5
0   driver set-start demand
0   driver start
0   driver status
0   driver self-protect
0   file clear
0   registry clear
0   disable
0   enable
0   process add C:\a.exe
6   process add C:\a.exe
0   process add-folder C:\f -r
0   process remove C:\f
0   file add C:\a.txt
0   file add-folder C:\f --filter *.x
0   file add-scoped C:\s --folder --scope C:\t --exclusive
0   file remove C:\a.txt
0   file enable
0   file disable
0   file ignore add C:\i
0   file ignore remove C:\i
0   file ignore clear
0   registry add HKLM\X -r
0   registry remove HKLM\X
0   registry add HKLM\Y
0   registry ignore add C:\i --folder
0   registry ignore remove C:\i
0   registry ignore clear
0   dll enable
0   dll disable
0   dll add C:\w
0   dll remove C:\w
0   dll add C:\v
0   signature policy --mode 1 --min-level 2 --vocabulary {b}\vocabulary.json
7   signature query 4711
simctl signature 4711 1 3
0   signature query 4711
0   signature refresh 4711
0   signature override add 4711
0   signature override remove 4711
0   signature override clear
0   rules list
0   rules list --table file --nt
simctl fail list-file-rules access-denied
5   rules list
0   rules export {f}\rules.json
6   rules export {f}\rules.json
0   rules check {f}\rules.json
41  rules check {f}\rules.json --lint
2   rules check {f}\wrong.json
3   rules check {f}\none.json
0   rules diff {f}\rules.json
0   rules apply {f}\rules.json
50  rules diff {f}\other.json
2   rules apply {f}\wrong.json
0   rules apply {f}\other.json --dry-run
1   rules apply {f}\off.json
0   rules apply {f}\other.json --allow-mass-removal
simctl capacity process 2
8   rules apply {f}\many.json
0   process clear
0   dll clear
simctl inject 2
0   events --both
0   events --both --vocabulary {b}\vocabulary.json
0   events --both --jsonl
0   events --vocabulary {b}\vocabulary.json --jsonl
simctl inject 1100
60  events --fail-on-loss
60  events --fail-on-loss --jsonl
0   stats
0   stats --vocabulary {b}\vocabulary.json
0   status --vocabulary {b}\vocabulary.json
2   stats --vocabulary {f}\wrong.json
0   vocabulary check {b}\vocabulary.json
2   vocabulary check {f}\wrong.json
0   driver upgrade {b}\ZoProtectorDriver_1_0_1.sys
0   driver upgrade {b}\ZoProtectorDriver_1_0_1.sys --restart --keep-rules
0   copy-directory {f}\tree {f}\copy
0   hardware-id
0   help --man driver
2   help --man nonsense
2   help driver
0   completion bash
2   force-crash
0   force-crash --yes
0   doctor
0   keys generate {f}\new
6   keys generate {f}\new
0   keys thumbprint {f}\new
0   keys thumbprint {f}\new\public.rsakey
0   keys thumbprint --embedded-key
0   sign {f}\tree -m {f}\m -k {f}\new --open open
34  sign {f}\tree -m {f}\m -k {f}\new --strict --dry-run
34  sign {f}\tree -m {f}\m -k {f}\new --strict --dry-run --jsonl
33  sign {f}\tree -m {f}\m -k {f}\none
17  verify {f}\tree -m {f}\m -k {f}\new
17  verify {f}\tree -m {f}\m -k {f}\new --jsonl
32  verify {f}\tree -m {f}\wrong.json -k {f}\new
0   sign {f}\tree -m {f}\n -k {f}\keys
0   sign {f}\new -m {f}\o -k {f}\keys
0   verify {f}\new -m {f}\o --embedded-key
0   manifest show {f}\m
0   manifest show {f}\m --jsonl
0   manifest diff {f}\o {f}\o
1   manifest diff {f}\m {f}\o
1   manifest diff {f}\m {f}\o --jsonl
0   crash list --dumps {b}\dumps --record {f}\record
0   crash analyse {b}\dumps\ours.dmp
0   crash run --dumps {b}\dumps --record {f}\record --dry-run
0   crash upload {b}\dumps\ours.dmp --record {f}\record --dry-run
1   crash run --dumps {b}\dumps --record {f}\record --server https://localhost:1/
0   crash history --record {f}\record
7   crash history --record {f}\record --dump none.dmp
1   crash analyse {f}\wrong.json
0   driver stop
0   driver uninstall
"""
FILES = {"wrong.json": {"version": 2, "process": 1}, "other.json": {"version": 1, "process": {"rules": [{"folder": "C:\\g"}]}},
         "off.json": {"version": 1, "master": {"enabled": False}},
         "many.json": {"version": 1, "process": {"rules": [{"path": f"C:\\{i}.exe"} for i in range(5)]}}}


def judge(name):
    return jsonschema.Draft202012Validator({"$ref": "#/$defs/" + name.replace(" ", "%20"), "$defs": SCHEMA["$defs"]})


class AnswersTest(SealedTreeTest):
    def commands_of_help(self, *group):
        """All commands below the group."""
        text = self.zoctl(0, *group, "--help").stdout.partition("\nSubcommands:\n")[2]
        names = re.findall(r"^  (\S+)", text.partition("\n\n")[0], re.MULTILINE)
        below = [name for one in names for name in self.commands_of_help(*group, one)]
        return below or [" ".join(group)]

    def test_each_command_of_the_help_has_a_definition(self):
        self.assertCountEqual(COMMANDS, self.commands_of_help())
        listed = [one["$ref"].removeprefix("#/$defs/").replace("%20", " ") for one in SCHEMA["anyOf"]]
        self.assertCountEqual(listed, ["NoCommand", *COMMANDS])

    def test_exit_codes_are_those_of_the_manual_page(self):
        table = (SOURCES / "docs/zoctl.md").read_text(encoding="utf-8").partition("| code | meaning |")[2]
        codes = re.findall(r"^\| (\d+)( \+ bits)? \|", table, re.MULTILINE)
        self.assertEqual(SCHEMA["$defs"]["ExitCode"]["enum"],
                         [int(code) + bits for code, more in codes for bits in (range(1, 8) if more else [0])])

    def test_results_come_before_hints(self):
        self.addCleanup(self.zoctl, 0, "driver", "uninstall")
        for arguments, hint in (("install", "ZoProtectorDriver.sys"), "Start it with"), (("start",), ""), (
                ("upgrade", "ZoProtectorDriver_1_0_1.sys"), "The running driver keeps"):
            words = [BUILT / word if word.endswith(".sys") else word for word in arguments]
            shown = self.zoctl(0, "driver", *words, merged=True).stdout
            self.assertRegex(shown, rf"(?s)\AThe driver('s file)? (is|was) .*{hint}")

    def check(self, words, text):
        """That what the command wrote is valid; gives its last document."""
        name = next((one for one in COMMANDS if words[:len(one.split())] == one.split()), "NoCommand")
        lines = "--jsonl" in words
        for document in map(json.loads, text.splitlines() if lines else [text]):
            which = name + " --jsonl" if lines else name if document["command"] == name else "NoCommand"
            faults = [error.message for error in judge(which).iter_errors(document)]
            self.assertFalse(faults, f"{which}: {json.dumps(document, indent=1)}")
            self.assertTrue(lines or jsonschema.Draft202012Validator(SCHEMA).is_valid(document))
        return document

    def test_each_answer_is_as_the_schema_says(self):
        jsonschema.Draft202012Validator.check_schema(SCHEMA)
        subprocess.run([*ZOCTL, "driver", "uninstall"], check=False, capture_output=True)  # what an aborted test left
        (self.tree / "link").symlink_to("d")
        for name, contents in FILES.items():
            (self.folder / name).write_text(json.dumps(contents))
        done = set()
        for line in SESSION.split("\n")[1:-1]:
            code, *words = (word.format(f=dos(self.folder), b=dos(BUILT)) for word in line.split())
            with self.subTest(line=line):
                if code == "simctl":
                    subprocess.run([*ZOCTL[:-1], BUILT / "simctl.exe", *words], check=True, capture_output=True)
                    continue
                form = [] if "--jsonl" in words else ["--json"]
                if self.check(words, self.zoctl(int(code), *words, *form).stdout).get("ok"):
                    done.add(next(one for one in COMMANDS if words[:len(one.split())] == one.split()))
        self.assertEqual(sorted(set(COMMANDS) - done), [], "never seen to succeed")
        for entry in (self.folder / "crash_journal.jsonl").read_text().splitlines():
            self.assertEqual([error.message for error in judge("crash journal").iter_errors(json.loads(entry))], [])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

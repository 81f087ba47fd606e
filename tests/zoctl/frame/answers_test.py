"""Every JSON answer of zoctl is as docs/zoctl.schema.json says: a session that runs each command against the simulator.

Arguments: the emulator's command line and zoctl.exe, next to which are the simulator's driver, engine, dumps and
vocabulary."""

import json
import re
import shutil
import subprocess

import jsonschema

from answer_schema import COMMANDS, SCHEMA, command_of, faults_of
from sealed_tree import BUILT, SOURCES, UNPRIVILEGED, ZOCTL, SealedTreeTest, dos, simctl

# Exit code and command line; --json is added where --jsonl is not given. {b} is the folder of the programs. Behind ->
# is the one command that reaches the driver.
SESSION = r"""
0   driver status
40  doctor
2   driver instal
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
0   file clear -> clear-file-rules
0   registry clear -> clear-registry-rules
0   disable -> set-master-enabled
0   enable -> set-master-enabled
0   process add C:\a.exe -> add-process-rule
6   process add C:\a.exe
0   process add-folder C:\f --recursive -> add-process-rule
0   process remove c:\F -> remove-process-rule
0   process clear -> clear-process-rules
0   file add status -> add-file-rule
0   file add-folder C:\f --filter *.x -> add-file-rule
0   file add-scoped C:\日🔒 --scope C:\t --folder --recursive --exclusive -> add-file-rule
0   file add-scoped C:\s --scope C:\t --scope-folder --scope-recursive -> add-file-rule
0   file remove status -> remove-file-rule
0   file enable -> enable-file-protect
0   file disable -> enable-file-protect
0   file ignore add C:\i --folder --recursive -> add-file-ignore-process
0   file ignore remove C:\i -> remove-file-ignore-process
0   file ignore clear -> clear-file-ignore-processes
0   registry add HKLM\X --recursive -> add-registry-rule
0   registry remove HKLM\X -> remove-registry-rule
0   registry add HKLM\Y
0   registry ignore add C:\i -> add-registry-ignore-process
0   registry ignore remove C:\i -> remove-registry-ignore-process
0   registry ignore clear -> clear-registry-ignore-processes
0   dll enable -> enable-dll-load-filter
0   dll disable -> enable-dll-load-filter
0   dll add C:\w -> add-dll-whitelist-folder
0   dll remove C:\w -> remove-dll-whitelist-folder
0   dll clear -> clear-dll-whitelist
0   dll add C:\v
0   signature policy -> get-signature-policy
0   signature policy --mode 1 --min-level 2 --vocabulary {b}\vocabulary.json
7   signature query 4711
simctl signature 4711 1 3
0   signature query 4711 -> query-pid-signature
0   signature refresh 4711 -> refresh-pid-signature
0   signature override add 0 -> add-signature-override
0   signature override remove 0 -> remove-signature-override
0   signature override clear -> clear-signature-overrides
0   rules list
0   rules list --table=file --nt -> list-file-rules
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
0   rules apply {f}\other.json --allow-mass-removal
simctl capacity process 2
8   rules apply {f}\many.json
simctl inject 2
0   events --both --vocabulary {b}\vocabulary.json
0   events --vocabulary {b}\vocabulary.json --jsonl
simctl inject 1100
60  events --fail-on-loss
60  events --fail-on-loss --jsonl
0   stats --vocabulary={b}\vocabulary.json -> get-stats
0   status --vocabulary {b}\vocabulary.json
2   stats --vocabulary {f}\wrong.json
0   vocabulary check {b}\vocabulary.json
2   vocabulary check {f}\wrong.json
0   driver upgrade {b}\ZoProtectorDriver_1_0_1.sys --restart --keep-rules
0   copy-directory {f}\tree {f}\copy
0   hardware-id
0   help --man driver
2   help driver
0   completion bash
2   force-crash
0   force-crash --yes -> force-crash
0   doctor
0   sign {f}\tree -m {f}\m -k {f}\keys --open open
34  sign {f}\tree -m {f}\m -k {f}\keys --strict --dry-run --jsonl
17  verify {f}\tree -m {f}\m -k {f}\keys --jsonl
0   sign {f}\keys -m {f}\o -k {f}\keys
0   manifest show {f}\m --jsonl
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
FILES = {"wrong.json": {"version": 2, "process": 1},
         "other.json": {"version": 1, "process": {"rules": [{"folder": "C:\\g"}]}},
         "many.json": {"version": 1, "process": {"rules": [{"path": f"C:\\{i}.exe"} for i in range(5)]}}}


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
        codes = re.findall(r"^\| (\d+)( \+ bits)? \| (.*) \|$", table, re.MULTILINE)
        self.assertEqual(SCHEMA["$defs"]["ExitCode"]["enum"],
                         [int(code) + bits for code, more, _ in codes for bits in (range(1, 8) if more else [0])])
        help_table = self.zoctl(0, "--help").stdout.partition("Exit codes:\n")[2].partition("\n\n")[0]
        self.assertEqual(help_table.split(), " ".join(f"{code}{more} {said}" for code, more, said in codes).split())

    def test_results_come_before_hints(self):
        """With standard error among standard output, as a terminal shows both."""
        self.addCleanup(self.zoctl, 0, "driver", "uninstall")
        keys, old, new = shutil.copytree(self.keys, self.tree / "keys"), self.folder / "old", self.folder / "new"
        for code, shown, words in (
                (0, "The driver is .*Start it with", ("driver", "install", BUILT / "ZoProtectorDriver.sys")),
                (0, "The driver is ", ("driver", "start")),
                (0, "The driver's file was .*keeps", ("driver", "upgrade", BUILT / "ZoProtectorDriver_1_0_1.sys")),
                (0, "SIGNED.*Signed.*Warning: the keystore", ("sign", self.tree, "-m", old, "-k", keys)),
                (0, "SIGNED.*Signed.*Warning: the key file",
                 ("sign", self.tree, "--open", "open", "-m", new, "--key", keys / "private.rsakey")),
                (1, "change .*1 difference.*not checked", ("manifest", "diff", old, new)),
                (0, "Created .*Keep ", ("keys", "generate", self.folder / "made"))):
            text = self.zoctl(code, *words, merged=True).stdout
            self.assertRegex(text, rf"(?s)\A{shown}")
            self.assertNotIn("\r", text, "progress is for terminals")

    def test_a_dump_folder_that_denies_access_needs_the_driver(self):
        closed = self.folder / "closed"
        closed.mkdir()
        shutil.copy(BUILT / "dumps/ours.dmp", closed)
        closed.chmod(0)
        text = self.zoctl(9, "crash", "list", "--dumps", closed, prefix=UNPRIVILEGED).stderr
        self.assertIn("have the driver copy the dump folder", text)
        rules = self.folder / "rules.json"
        rules.write_text(json.dumps({"version": 1, "process": {"rules": [{"path": dos(closed / "a.exe")}]}}))
        self.zoctl(0, "rules", "check", rules, "--lint", prefix=UNPRIVILEGED)  # whether the file is there is unknown
        self.start_driver()
        self.zoctl(0, "crash", "list", "--dumps", closed, "--record", self.folder / "record", prefix=UNPRIVILEGED)

    def check_repeated(self, words, document):
        """That an answer repeats the arguments of its command line, and shows each switch as on or off."""
        said = {str(value) for value in document.values()}
        for word in words[len(document["command"].split()):]:
            self.assertTrue(word in said or word.startswith("--"), f"{word} in {document}")
        for name, value in document.items():
            if isinstance(value, bool) and name not in ("ok", "changed", "first", "second"):
                switch = re.sub("([A-Z])", r"-\1", name).lower()
                self.assertEqual(value, f"--{switch}" in words or (name == "enabled" and "enable" in words), name)

    def test_each_command_sends_what_it_should_and_answers_as_the_schema_says(self):
        jsonschema.Draft202012Validator.check_schema(SCHEMA)
        subprocess.run([*ZOCTL, "driver", "uninstall"], check=False, capture_output=True)  # what an aborted test left
        (self.tree / "link").symlink_to("d")
        for name, contents in FILES.items():
            (self.folder / name).write_text(json.dumps(contents))
        done = set()
        for line in SESSION.split("\n")[1:-1]:
            command, _, sent = line.partition(" -> ")
            code, *words = (word.format(f=dos(self.folder), b=dos(BUILT)) for word in command.split())
            with self.subTest(line=line):
                if code == "simctl":
                    simctl(*words)
                    continue
                if "--jsonl" in words:
                    self.zoctl(int(code), *words)
                    continue
                document = self.facts(int(code), *words)
                if document["ok"]:
                    done.add(command_of(words))
                if sent:
                    self.check_repeated(words, document)
                    requests = json.loads(simctl("requests", "--last", "2", "--json"))["requests"]
                    self.assertEqual([one["command"] for one in requests], ["get-version", sent])
        # Those of seal_commands_test are judged there.
        missing = [name for name in COMMANDS if name not in done and not re.match("keys|verify|manifest", name)]
        self.assertEqual(missing, [])
        for entry in (self.folder / "crash_journal.jsonl").read_text().splitlines():
            self.assertEqual(faults_of(json.loads(entry), "crash journal"), [])

"""What zoctl says of itself in other forms: manual pages, and the scripts by which shells complete its command lines.

Arguments: the emulator's command line and zoctl.exe."""

import shutil
import subprocess

from sealed_tree import SealedTreeTest

ASK = '''source "$1"; shift
COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))
_zoctl
printf '%s\\n' "${COMPREPLY[@]}"'''


def complaints(page):
    """What the formatters say of a manual page. Pages have no date, so that each build gives the same bytes."""
    if shutil.which("man"):
        yield from subprocess.run(["man", "-l", "--warnings", page], capture_output=True, text=True,
                                  check=True).stderr.splitlines()
    if shutil.which("mandoc"):
        said = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", page], capture_output=True, text=True,
                              check=False)
        yield from (line for line in said.stdout.splitlines() if "missing date" not in line)


class Manual(SealedTreeTest):
    def offered(self, *words):
        """What bash offers at the end of a command line."""
        script = self.folder / "zoctl.bash"
        if not script.exists():
            script.write_text(self.zoctl(0, "completion", "bash").stdout)
        done = subprocess.run(["bash", "-c", ASK, "bash", script, "zoctl", *words], cwd=self.folder, text=True,
                              capture_output=True, check=True)
        self.assertEqual(done.stderr, "")
        return done.stdout.split("\n")[:-1] if done.stdout != "\n" else []

    def page(self, *names):
        return self.zoctl(0, "help", "--man", *names).stdout

    def test_each_command_has_a_page_that_the_formatters_take(self):
        if not (shutil.which("man") or shutil.which("mandoc")):
            self.skipTest("neither man nor mandoc is installed")
        for name in self.offered(""):
            page = self.folder / f"zoctl-{name}.1"
            page.write_text(self.page(name))
            with self.subTest(name):
                self.assertEqual(list(complaints(page)), [])

    def test_pages_hold_options_limits_examples_and_exit_codes(self):
        for words, page in (
                (".SS file ignore add\n", "file"), ("\\fB\\-r\\fR, \\fB\\-\\-recursive\\fR\n", "file"),
                ("\nInclude its subfolders; needs \\-\\-folder\n", "file"),
                (".EX\n  zoctl file ignore add C:\\eSuite\\eupdate.exe\n", "file"),
                ("; 1 to 65536; 256 if left out\n", "events"), ("; 1 to 3600000\n", "events"),
                ("; 1 to 86400\n", "events"), ("; 0 to 3600; 60 if left out\n", "driver"),
                ("\\fB\\-k\\fR, \\fB\\-\\-keystore\\fR", "sign")):
            self.assertIn(words, self.page(page))
        self.assertEqual(self.page("crash").count("\nCtrl\\-C takes effect between dumps;"), 2, "of run and of upload")
        self.assertRegex(self.page(), r"(?s)SYNOPSIS\n\\fBzoctl\\fR .*\.SH COMMANDS\n.*\.TP\n\\fBdriver\\fR\n.*"
                         r"\.SH OPTIONS\n\.TP\n.*\.SH EXIT STATUS\n.*\.TP\n\\fB130\\fR\ncancelled\n")
        self.assertIn("no command or group 'nonsense'", self.facts(2, "help", "--man", "nonsense")["message"])

    def test_bash_offers_what_can_stand_there(self):
        (self.folder / "a dump.dmp").touch()
        rows = {
            "group": (["ru"], ["rules"]),
            "commands of a group": (["driver", "st"], ["start", "stop", "status"]),
            "group in a group": (["file", "ignore", ""], ["add", "remove", "clear"]),
            "option": (["driver", "install", "--al"], ["--altitude", "--allow-unload"]),
            "option of a choice group": (["verify", "C:\\Suite", "--emb"], ["--embedded-key"]),
            "fixed choices": (["driver", "install", "--start", ""], ["boot", "system", "auto", "demand", "disabled"]),
            "fixed choices after =": (["rules", "list", "--table", "=", "re"], ["registry"]),
            "argument with fixed choices": (["driver", "set-start", "d"], ["demand", "disabled"]),
            "number": (["events", "--capacity", ""], []),
            "file": (["crash", "upload", "a"], ["a dump.dmp"]),
            "value of an option": (["rules", "apply", "--dry-run", "a"], ["a dump.dmp"]),
            "help of a command": (["help", "driver", "inst"], ["install"]),
            "path that is called like a command": (["process", "add", "status", "--js"], ["--json"]),
        }
        for name, (words, expected) in rows.items():
            with self.subTest(name):
                self.assertEqual(self.offered(*words), expected)
        self.assertEqual(sorted(self.offered("sign", "")), sorted(entry.name for entry in self.folder.iterdir()))

    def test_powershell_script_names_every_command_and_option(self):
        script = self.facts(0, "completion", "powershell")["script"]
        for words in ("'driver install' = @{", "'--start' = @('boot', 'system', 'auto', 'demand', 'disabled')",
                      "'--embedded-key' = ", "'demand' = ", "'status' = 'Show the running driver''s version"):
            self.assertIn(words, script)

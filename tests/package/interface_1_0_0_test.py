"""The promise to programs that were built against 1.0.0: nothing of its interface went away or changed."""

import os
import re
import tempfile
import unittest
from pathlib import Path

import layouts
from build_facts import BUILD, CC, EXPORTING_HEADERS, SOURCE, run, windows_path, wine

FROZEN = Path(__file__).with_name("interface_1_0_0.h")
TEXT = FROZEN.read_text()
FUNCTIONS = re.findall(r"\bZo[A-Z]\w+_\w+", TEXT)
STRICT = ["-std=c11", "-Wall", "-Wextra", "-Werror"]


class Interface_1_0_0(unittest.TestCase):
    def setUp(self):
        self.folder = Path(self.enterContext(tempfile.TemporaryDirectory()))

    def test_functions_callbacks_and_constants_are_declared_as_they_were(self):
        """C takes a second declaration, or definition of a macro, only if it says the same."""
        source = self.folder / "both.c"
        records = re.sub(r"^typedef (?:struct|union) \w+ \{.*?^\} \w+;\n", "", TEXT, flags=re.MULTILINE | re.DOTALL)
        same = re.sub(r"^#define ZO_API.*\n", "", records, flags=re.MULTILINE)
        self.assertEqual(len(FUNCTIONS), 72)
        source.write_text("".join(f'#include "{header}"\n' for header in EXPORTING_HEADERS) + same)
        run(CC, *STRICT, "-DZO_NO_IMPORT", "-fsyntax-only", f"-I{SOURCE}/sdk/include", source)

    def test_records_have_their_sizes_and_offsets(self):
        then, now = layouts.records_of([FROZEN]), layouts.records_of(layouts.HEADERS)
        self.assertEqual(len(then), 16)
        self.assertEqual({name: now[name] for name in then}, then)

    def test_a_program_that_uses_all_of_it_links_and_runs(self):
        every, program = self.folder / "every.c", self.folder / "program.exe"
        listed = ", ".join(f"(const void*)&{name}" for name in FUNCTIONS)
        every.write_text(f'#include "{FROZEN}"\nconst void* const everyFunction[] = {{{listed}}};\n')
        run(CC, *STRICT, "-municode", FROZEN.with_name("program_1_0_0.c"), every, "-o", program,
            BUILD / "lib/libZoProtectorLib.dll.a")
        imported = re.findall(r"\b(Zo[A-Z]\w+_\w+)$", run(os.environ["ZO_OBJDUMP"], "-p", program), re.MULTILINE)
        self.assertEqual(sorted(set(imported)), sorted(FUNCTIONS))
        (self.folder / "folder").mkdir()
        (self.folder / "folder/file.txt").write_text("sealed")
        words = (windows_path(self.folder / name) for name in ("folder", "manifest", "keys", "record"))
        self.assertEqual(wine(program, *words), (0, ""))

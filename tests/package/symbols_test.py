"""The debug information beside the DLL: a crash in the DLL becomes a function and a line of its sources."""

import os
import re
import tempfile
import unittest
from pathlib import Path

from build_facts import BUILD, CC, LIBRARY, SOURCE, run, wine

OBJDUMP, ADDR2LINE = os.environ["ZO_OBJDUMP"], os.environ["ZO_ADDR2LINE"]
DEBUG_FILE = LIBRARY.with_name("ZoProtectorLib.dll.debug")


class Symbols(unittest.TestCase):
    def test_a_crash_in_the_library_shows_its_function_and_line(self):
        with tempfile.TemporaryDirectory() as folder:
            program = Path(folder) / "crash.exe"
            run(CC, f"-I{SOURCE}/sdk/include", "-o", program, SOURCE / "tests/package/crash_in_library.c",
                BUILD / "lib/libZoProtectorLib.dll.a")
            code, offset = wine(program)
        self.assertEqual(code, 3, offset)
        base = int(re.search(r"^ImageBase\s+([0-9a-f]+)", run(OBJDUMP, "-p", LIBRARY), re.MULTILINE)[1], 16)
        function, place = run(ADDR2LINE, "-f", "-C", "-e", LIBRARY, hex(base + int(offset, 16))).splitlines()
        self.assertEqual(function, "ZoProtector_QueryDriverStatus")
        path, line = re.fullmatch(r"(?:build/(?:\.\./\.\.|\.)|\.)/(.*):(\d+)", place).groups()
        self.assertIn("*status = {}", (SOURCE / path).read_text().splitlines()[int(line) - 1])

    def test_stand_in_the_file_that_the_library_names_and_not_in_the_library(self):
        self.assertIn(b"ZoProtectorLib.dll.debug\0", LIBRARY.read_bytes())
        self.assertNotIn(".debug_", run(OBJDUMP, "-h", LIBRARY))
        self.assertIn(".debug_info", run(OBJDUMP, "-h", DEBUG_FILE))
        self.assertNotIn(str(SOURCE).encode(), DEBUG_FILE.read_bytes())

"""The debug information beside the DLL: an address in the DLL becomes a function and a line of its sources."""

import os
import re
import unittest

from build_facts import LIBRARY, SOURCE, run

OBJDUMP, ADDR2LINE = os.environ["ZO_OBJDUMP"], os.environ["ZO_ADDR2LINE"]
DEBUG_FILE = LIBRARY.with_name("ZoProtectorLib.dll.debug")


class Symbols(unittest.TestCase):
    def test_an_address_in_the_library_shows_its_function_and_line(self):
        facts, name = run(OBJDUMP, "-p", LIBRARY), "ZoProtector_QueryDriverStatus"
        base = re.search(r"^ImageBase\s+([0-9a-f]+)", facts, re.MULTILINE)[1]
        number = re.search(rf"\[ *(\d+)\] {name}$", facts, re.MULTILINE)[1]
        offset = re.search(rf"\[ *{number}\] \+base\[ *\d+\] ([0-9a-f]+) Export RVA", facts)[1]
        function, place = run(ADDR2LINE, "-f", "-e", LIBRARY, hex(int(base, 16) + int(offset, 16))).splitlines()
        self.assertEqual(function, name)
        path, line = re.fullmatch(r"(?:build/(?:\.\./\.\.|\.)|\.)/(.*):(\d+)", place).groups()
        self.assertIn(f" {name}(", (SOURCE / path).read_text().splitlines()[int(line) - 1])

    def test_stand_in_the_file_that_the_library_names_and_not_in_the_library(self):
        self.assertIn(b"ZoProtectorLib.dll.debug\0", LIBRARY.read_bytes())
        self.assertNotIn(".debug_", run(OBJDUMP, "-h", LIBRARY))
        self.assertIn(".debug_info", run(OBJDUMP, "-h", DEBUG_FILE))
        self.assertNotIn(str(SOURCE).encode(), DEBUG_FILE.read_bytes())

"""The DLL as a file: what it exports, imports and promises to the loader, and the debug information beside it."""

import os
import re
import unittest

from build_facts import EXPORTING_HEADERS, LIBRARY, SOURCE, VERSION, functions_of, run

SYSTEM_LIBRARIES = {"advapi32.dll", "bcrypt.dll", "kernel32.dll", "msvcrt.dll", "ntdll.dll", "ole32.dll", "shell32.dll",
                    "shlwapi.dll", "user32.dll", "version.dll", "wininet.dll"}
OBJDUMP, DEBUG_FILE = os.environ["ZO_OBJDUMP"], LIBRARY.with_name("ZoProtectorLib.dll.debug")


class LibraryFile(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.facts = run(OBJDUMP, "-p", LIBRARY)
        cls.content = LIBRARY.read_bytes()
        table = cls.facts.split("[Ordinal/Name Pointer] Table", 1)[1]
        cls.exported = re.findall(r"^\s*\[\s*\d+\]\s+(?:\+base\[\s*\d+\]\s+)?(?:[0-9a-f]+\s+)?(\w+)$", table, re.MULTILINE)

    def test_exports_what_the_headers_declare_and_nothing_else(self):
        self.assertEqual(sorted(self.exported), sorted(functions_of(*EXPORTING_HEADERS)))
        self.assertEqual(len(self.exported), 72)

    def test_needs_system_libraries_only(self):
        imported = {name.lower() for name in re.findall(r"DLL Name: (\S+)", self.facts)}
        self.assertIn("kernel32.dll", imported)
        self.assertLessEqual(imported, SYSTEM_LIBRARIES)

    def test_is_hardened_and_carries_no_time_and_no_path_of_the_build(self):
        characteristics = int(re.search(r"^DllCharacteristics\s+([0-9a-f]+)", self.facts, re.MULTILINE)[1], 16)
        for name, bit in (("high-entropy addresses", 0x20), ("random base", 0x40), ("no execution of data", 0x100)):
            self.assertTrue(characteristics & bit, name)
        self.assertRegex(self.facts, r"Base Relocation Directory|\.reloc")
        self.assertRegex(run(os.environ["ZO_NM"], DEBUG_FILE), r"\b__stack_chk_fail\b")
        self.assertRegex(self.facts, r"Time/Date\s+(00000000|Thu Jan  1 00:00:00 1970)")
        self.assertNotIn(str(SOURCE).encode(), self.content)

    def test_carries_the_version_of_the_header(self):
        # The file version is in two numbers, each with its high word first.
        words = [int.from_bytes(self.fixed_version()[i:i + 2], "little") for i in (10, 8, 14, 12)]
        self.assertEqual(words, [*map(int, VERSION.split(".")), 0])

    def test_says_that_it_was_built_with_development_settings(self):
        flags = int.from_bytes(self.fixed_version()[28:32], "little")
        self.assertEqual(flags & 0x20, 0x20, "VS_FF_SPECIALBUILD")
        for text in ("SpecialBuild", "development settings: ", "ZO_EMBEDDED_PUBLIC_KEY", "ZO_CRASH_SCRAMBLER_KEY"):
            self.assertIn(text.encode("utf-16-le"), self.content)

    def test_goes_with_a_zoctl_that_has_its_version_and_a_manifest(self):
        zoctl = LIBRARY.with_name("zoctl.exe").read_bytes()
        self.assertIn(self.fixed_version()[:24], zoctl)
        for text in (b"{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}", b">true</longPathAware>", b'level="asInvoker"'):
            self.assertIn(text, zoctl)

    def test_an_address_in_the_library_shows_its_function_and_line(self):
        name = "ZoProtector_QueryDriverStatus"
        base = re.search(r"^ImageBase\s+([0-9a-f]+)", self.facts, re.MULTILINE)[1]
        offset = re.findall(r"([0-9a-f]+) Export RVA", self.facts)[self.exported.index(name)]
        address = hex(int(base, 16) + int(offset, 16))
        function, place = run(os.environ["ZO_ADDR2LINE"], "-f", "-e", LIBRARY, address).splitlines()
        self.assertEqual(function, name)
        path, line = re.fullmatch(r"(?:build/(?:\.\./\.\.|\.)|\.)/(.*):(\d+)", place).groups()
        self.assertIn(f" {name}(", (SOURCE / path).read_text().splitlines()[int(line) - 1])

    def test_debug_information_is_in_the_file_that_the_library_names_and_not_in_the_library(self):
        self.assertIn(b"ZoProtectorLib.dll.debug\0", self.content)
        self.assertNotIn(".debug_", run(OBJDUMP, "-h", LIBRARY))
        self.assertIn(".debug_info", run(OBJDUMP, "-h", DEBUG_FILE))
        self.assertNotIn(str(SOURCE).encode(), DEBUG_FILE.read_bytes())

    def fixed_version(self):
        """VS_FIXEDFILEINFO, which begins with its signature and structure version."""
        at = self.content.index(bytes.fromhex("bd04effe00000100"))
        return self.content[at:at + 52]

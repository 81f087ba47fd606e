"""The DLL as a file: what it exports, imports and promises to the loader."""

import os
import re
import unittest

from build_facts import LIBRARY, SOURCE, declared_exports, run

SYSTEM_LIBRARIES = {"advapi32.dll", "bcrypt.dll", "kernel32.dll", "msvcrt.dll", "ntdll.dll", "ole32.dll", "shell32.dll",
                    "shlwapi.dll", "user32.dll", "version.dll", "wininet.dll"}


class LibraryFile(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.facts = run(os.environ["ZO_OBJDUMP"], "-p", LIBRARY)

    def test_exports_what_the_headers_declare_and_nothing_else(self):
        table = self.facts.split("[Ordinal/Name Pointer] Table", 1)[1]
        exported = re.findall(r"^\s*\[\s*\d+\]\s+(?:\+base\[\s*\d+\]\s+)?(?:[0-9a-f]+\s+)?(\w+)$", table, re.MULTILINE)
        declared = declared_exports()
        self.assertEqual(sorted(exported), sorted(declared))
        for family, count in (("ZoProtector_", 57), ("ZoSigner_", 5), ("ZoCrashReport_", 10)):
            self.assertEqual(sum(name.startswith(family) for name in exported), count, family)
        self.assertEqual(len(exported), 72)

    def test_needs_system_libraries_only(self):
        imported = {name.lower() for name in re.findall(r"DLL Name: (\S+)", self.facts)}
        self.assertIn("kernel32.dll", imported)
        self.assertLessEqual(imported, SYSTEM_LIBRARIES)

    def test_is_hardened(self):
        characteristics = int(re.search(r"^DllCharacteristics\s+([0-9a-f]+)", self.facts, re.MULTILINE)[1], 16)
        for name, bit in (("high-entropy addresses", 0x20), ("random base", 0x40), ("no execution of data", 0x100)):
            self.assertTrue(characteristics & bit, name)
        self.assertRegex(self.facts, r"Base Relocation Directory|\.reloc")
        self.assertRegex(run(os.environ["ZO_NM"], LIBRARY), r"\b__stack_chk_fail\b")

    def test_carries_no_time_and_no_path_of_the_build(self):
        self.assertRegex(self.facts, r"Time/Date\s+(00000000|Thu Jan  1 00:00:00 1970)")
        self.assertNotIn(str(SOURCE).encode(), LIBRARY.read_bytes())

    def test_carries_the_version_of_the_header(self):
        header = (SOURCE / "sdk/include/zoprotector.h").read_text()
        parts = [int(re.search(rf"#define ZOP_SDK_VERSION_{part} (\d+)", header)[1]) for part in
                 ("MAJOR", "MINOR", "PATCH")] + [0]
        content = LIBRARY.read_bytes()
        # VS_FIXEDFILEINFO: signature, structure version, then the file version, each half of it high word first.
        at = content.index(bytes.fromhex("bd04effe00000100")) + 8
        words = [int.from_bytes(content[at + i:at + i + 2], "little") for i in (2, 0, 6, 4)]
        self.assertEqual(words, parts)


if __name__ == "__main__":
    unittest.main()

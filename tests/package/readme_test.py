"""The C and C++ examples of the README are whole programs: each builds without a warning and does what it says."""

import re
import tempfile
import unittest
from pathlib import Path

from build_facts import BUILD, CC, CXX, EXPORTING_HEADERS, SOURCE, run, wine

COMPILERS = {"c": [CC, "-std=c99"], "cpp": [CXX, "-std=c++20"]}


class Readme(unittest.TestCase):
    def test_examples_build_and_run(self):
        examples = re.findall(r"^```(c|cpp)\n(.*?)^```", (SOURCE / "README.md").read_text(), re.MULTILINE | re.DOTALL)
        self.assertEqual(sorted(language for language, _ in examples), ["c", "cpp"])
        includes = [f"-I{header.parent}" for header in EXPORTING_HEADERS]
        for language, text in examples:
            with self.subTest(language=language), tempfile.TemporaryDirectory() as folder:
                source = Path(folder) / f"example.{language}"
                source.write_text(text)
                program = Path(folder) / "example.exe"
                run(*COMPILERS[language], "-Wall", "-Wextra", "-pedantic", "-Werror", *includes, source, "-o", program,
                    "-static", f"-L{BUILD}/lib", "-l:libZoProtectorLib.dll.a")
                code, output = wine(program)
                self.assertEqual(code, 0, output)
                # What a reader is told to expect stands in the last comment of the example.
                for line in re.findall(r"prints: (.+?)(?: \*/)?$", text, re.MULTILINE):
                    self.assertRegex(output, line)


if __name__ == "__main__":
    unittest.main()

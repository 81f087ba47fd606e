"""What callers compile: every public header by itself, for the GNU and for the MSVC target, and the examples of the
README and of docs/cpp.md, whole programs that do what they say."""

import re
import tempfile
import unittest
from pathlib import Path

from build_facts import BUILD, CC, CXX, EXPORTING_HEADERS, SOURCE, functions_of, run, wine

PUBLIC_HEADERS = EXPORTING_HEADERS + [SOURCE / part for part in (
    "sdk/include/zoprotector_status.h", "sdk/include/driver_records.h", "simulator/include/zoprotector_simulator.h")]
LAYER_HEADERS = [SOURCE / part for part in (
    "sdk/include/zostatus.hpp", "sdk/include/zoprotector.hpp", "signer/include/zosigner.hpp",
    "crash_report/include/zocrashreport.hpp")]
STRICT = ["-Wall", "-Wextra", "-pedantic-errors", "-Werror"]
LAYER = ["-std=c++20", "-x", "c++", "-Wconversion", "-Wshadow", *(f"-I{header.parent}" for header in EXPORTING_HEADERS)]
COMPILERS = {
    "C99": [CC, "-std=c99", "-x", "c", "-Wstrict-prototypes"],
    "C++11": [CXX, "-std=c++11", "-x", "c++"],
    "C++20": [CXX, "-std=c++20", "-x", "c++"],
    "C for MSVC": ["clang-19", "--target=x86_64-pc-windows-msvc", "-ffreestanding", "-std=c99", "-x", "c"],
}


class Sources(unittest.TestCase):
    def setUp(self):
        folder = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.source, self.program = folder / "source", folder / "program.exe"

    def test_each_header_stands_alone(self):
        cases = [(header, compiler) for header in PUBLIC_HEADERS for compiler in COMPILERS.values()]
        for compiler in ([CXX], ["clang++-19", "--target=x86_64-w64-mingw32"]):
            cases += [(header, [*compiler, *LAYER]) for header in LAYER_HEADERS]
        for header, compiler in cases:
            self.source.write_text(f'#include "{header.name}"\n#include "{header.name}"\nint ZoNothing;\n')
            with self.subTest(header=header.name, compiler=compiler):
                run(*compiler, *STRICT, "-fsyntax-only", f"-I{header.parent}", self.source)

    def test_public_headers_include_each_other_and_no_header_of_the_platform(self):
        allowed = {"stddef.h", "stdint.h"} | {header.name for header in PUBLIC_HEADERS}
        for header in PUBLIC_HEADERS:
            included = set(re.findall(r'^#include [<"]([^>"]+)[>"]', header.read_text(), re.MULTILINE))
            self.assertLessEqual(included, allowed, header.name)

    def test_each_function_has_its_pointer_type(self):
        """And no header has one that belongs to no function."""
        for header in EXPORTING_HEADERS:
            functions = functions_of(header)
            types = re.findall(r"^typedef \w+ \(\*(Zo\w+_\w+)Fn\)", header.read_text(), re.MULTILINE)
            self.assertEqual(types, functions)
            checks = "".join(f"static_assert(std::is_same_v<{name}Fn, decltype(&{name})>);\n" for name in functions)
            self.source.write_text(f'#include <type_traits>\n#include "{header.name}"\n{checks}')
            run(*COMPILERS["C++20"], *STRICT, "-DZO_NO_IMPORT", "-fsyntax-only", f"-I{header.parent}", self.source)

    def test_examples_of_the_documents_build_and_run(self):
        text = "".join((SOURCE / document).read_text() for document in ("README.md", "docs/cpp.md"))
        examples = re.findall(r"^```(c|cpp)\n(.*?)^```", text, re.MULTILINE | re.DOTALL)
        self.assertEqual(sorted(language for language, _ in examples), ["c", "cpp", "cpp"])
        for language, text in examples:
            self.source.write_text(text)
            compiler = COMPILERS["C99" if language == "c" else "C++20"]
            run(*compiler, *STRICT, *(f"-I{header.parent}" for header in EXPORTING_HEADERS), self.source, "-o", self.program,
                "-static", f"-L{BUILD}/lib", "-l:libZoProtectorLib.dll.a")
            code, output = wine(self.program)
            self.assertEqual(code, 0, output)
            # The last comment of the example says what a reader should expect.
            for line in re.findall(r"prints: (.+?)(?: \*/)?$", text, re.MULTILINE):
                self.assertRegex(output, line)

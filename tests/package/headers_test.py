"""Every public header by itself: as strict C99, as C++11 and as C++20, for the GNU and for the MSVC target."""

import re
import tempfile
import unittest
from pathlib import Path

from build_facts import CC, CXX, PUBLIC_HEADERS, run

STRICT = ["-fsyntax-only", "-Wall", "-Wextra", "-pedantic-errors", "-Werror"]
COMPILERS = {
    "C99": [CC, "-std=c99", "-x", "c", *STRICT, "-Wstrict-prototypes"],
    "C++11": [CXX, "-std=c++11", "-x", "c++", *STRICT],
    "C++20": [CXX, "-std=c++20", "-x", "c++", *STRICT],
    "C for MSVC": ["clang-19", "--target=x86_64-pc-windows-msvc", "-ffreestanding", "-std=c99", "-x", "c", *STRICT],
}


class Headers(unittest.TestCase):
    def test_each_header_stands_alone(self):
        for header in PUBLIC_HEADERS:
            for language, compiler in COMPILERS.items():
                with self.subTest(header=header.name, language=language), tempfile.TemporaryDirectory() as folder:
                    source = Path(folder) / "alone"
                    source.write_text(f'#include "{header.name}"\n#include "{header.name}"\nint ZoNothing;\n')
                    run(*compiler, f"-I{header.parent}", source)

    def test_headers_include_only_each_other_and_the_language(self):
        allowed = {"stddef.h", "stdint.h"} | {header.name for header in PUBLIC_HEADERS}
        for header in PUBLIC_HEADERS:
            included = set(re.findall(r'^#include [<"]([^>"]+)[>"]', header.read_text(), re.MULTILINE))
            self.assertLessEqual(included, allowed, header.name)


if __name__ == "__main__":
    unittest.main()

"""The installed package, used as a stranger would: by find_package, by pkg-config, and by MSVC's linker."""

import os
import re
import shutil
import tempfile
import unittest
from pathlib import Path

from build_facts import BUILD, CC, SOURCE, TOOLCHAIN, run, start_wine, windows_path, wine


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.work = Path(cls.folder.name)
        installed = cls.work / "first place"
        run("cmake", "--install", BUILD, "--prefix", installed)
        cls.prefix = cls.work / "moved"  # a package that was moved must still be found
        installed.rename(cls.prefix)

    def run_installed(self, program, *arguments):
        return wine(program, *arguments, library_folder=self.prefix / "bin")

    def build_with_find_package(self):
        source = self.work / "protect_folder"
        if not source.exists():
            shutil.copytree(SOURCE / "examples/protect_folder", source)
            run("cmake", "-G", "Ninja", "-S", source, "-B", source / "build", f"-DCMAKE_TOOLCHAIN_FILE={TOOLCHAIN}",
                f"-DCMAKE_PREFIX_PATH={self.prefix}", f"-DZoProtectorLib_DIR={self.prefix}/lib/cmake/ZoProtectorLib")
            run("cmake", "--build", source / "build")
        return source / "build/protect_folder.exe"

    def test_program_of_a_cmake_project_uses_the_driver(self):
        program = self.build_with_find_package()
        zoctl = self.prefix / "bin/zoctl.exe"
        code, text = self.run_installed(program, "C:\\Suite")
        self.assertEqual((code, text.strip()), (2, "the driver is not running"))

        # A driver lives as long as its session, and a session as long as a program runs in it.
        session = start_wine("ping", "-n", "600", "127.0.0.1")
        self.addCleanup(session.wait)
        self.addCleanup(session.kill)
        driver = windows_path(self.prefix / "simulator/ZoProtectorDriver.sys")
        code, text = self.run_installed(zoctl, "driver", "install", driver)
        self.addCleanup(self.run_installed, zoctl, "driver", "uninstall")
        self.assertEqual(code, 0, text)
        code, text = self.run_installed(zoctl, "driver", "start")
        self.assertEqual(code, 0, text)
        code, text = self.run_installed(program, "C:\\Suite")
        self.assertEqual((code, text.strip()), (0, "the driver held 1 file rule(s)"))

    def test_program_of_a_makefile_seals_and_verifies(self):
        source = self.work / "seal_folder"
        shutil.copytree(SOURCE / "examples/seal_folder", source)
        run("make", "-C", source, f"CC={CC}", "CFLAGS=-Wall -Wextra -Werror",
            env=dict(os.environ, PKG_CONFIG_LIBDIR=f"{self.prefix}/lib/pkgconfig"))
        tree = source / "tree"
        tree.mkdir()
        (tree / "a.txt").write_text("one")
        (tree / "b.txt").write_text("two")
        command = [source / "seal_folder.exe"] + [windows_path(source / name) for name in ("tree", "manifest", "keys")]

        for change, expected in ((lambda: None, (0, "sealed 2 file(s) in 1 folder(s)")),
                                 (lambda: None, (0, "unchanged: 2 file(s)")),
                                 (lambda: (tree / "a.txt").write_text("six"), (3, "changed: 1 bad, 0 missing, 0 extra")),
                                 (lambda: (tree / "c.txt").touch(), (3, "changed: 1 bad, 0 missing, 1 extra"))):
            change()
            code, text = self.run_installed(*command)
            self.assertEqual((code, text.strip().splitlines()[-1]), expected, text)

    def test_crash_server_serves(self):
        run(self.prefix / "simulator/crash_server/serve", "--folder", self.work / "server", "--port", "0", "--", "true")

    def test_documents_lead_somewhere(self):
        """Every relative link between the installed documents, those into the source tree left out."""
        documents = self.prefix / "share/doc/ZoProtectorLib/docs"
        for document in documents.glob("*.md"):
            for link in re.findall(r"\]\(([^)#:]+)\)", document.read_text()):
                if not link.startswith("../"):
                    self.assertTrue((documents / link).exists(), f"{document.name}: {link}")

    def test_msvc_linker_takes_the_import_library(self):
        source = self.work / "bare.c"
        source.write_text('#include <zoprotector.h>\n'
                          'int start(void) { return ZoProtector_GetVersion(0, 0, 0) == ZOP_E_INVALID_ARG ? 7 : 8; }\n')
        run("clang-19", "--target=x86_64-pc-windows-msvc", "-ffreestanding", "-std=c99", "-Wall", "-Werror", "-c",
            f"-I{self.prefix}/include", source, "-o", self.work / "bare.obj")
        run("lld-link-19", "/subsystem:console", "/entry:start", "/nodefaultlib", f"/out:{self.work}/bare.exe",
            self.work / "bare.obj", self.prefix / "lib/ZoProtectorLib.lib")
        self.assertEqual(self.run_installed(self.work / "bare.exe")[0], 7)


if __name__ == "__main__":
    unittest.main()

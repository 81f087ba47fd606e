"""The installed package, used as a stranger would: by find_package, by pkg-config, and by MSVC's linker."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from build_facts import BUILD, CC, SOURCE, run, windows_path, wine, wine_command


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.work = Path(folder.name)
        run("cmake", "--install", BUILD, "--prefix", cls.work / "first place")
        cls.prefix = (cls.work / "first place").rename(cls.work / "moved")  # where it must still be found

    def run_installed(self, program, *arguments):
        return wine(program, *arguments, library_folder=self.prefix / "bin")

    def test_program_of_a_cmake_project_uses_the_driver(self):
        source = shutil.copytree(SOURCE / "examples/protect_folder", self.work / "protect_folder")
        run("cmake", "-G", "Ninja", "-S", source, "-B", source / "build", f"-DCMAKE_PREFIX_PATH={self.prefix}",
            f"-DCMAKE_TOOLCHAIN_FILE={os.environ['ZO_TOOLCHAIN']}",
            f"-DZoProtectorLib_DIR={self.prefix}/lib/cmake/ZoProtectorLib")
        run("cmake", "--build", source / "build")
        program, zoctl = source / "build/protect_folder.exe", self.prefix / "bin/zoctl.exe"
        self.assertEqual(self.run_installed(program, "C:\\Suite"), (2, "the driver is not running\n"))

        # A driver lives as long as its session, and a session as long as a program runs in it.
        session = subprocess.Popen(wine_command("ping", "-n", "600", "127.0.0.1"), stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(session.wait)
        self.addCleanup(session.kill)
        self.addCleanup(self.run_installed, zoctl, "driver", "uninstall")
        for words in ("install", windows_path(self.prefix / "simulator/ZoProtectorDriver.sys")), ("start",):
            code, text = self.run_installed(zoctl, "driver", *words)
            self.assertEqual(code, 0, text)
        self.assertEqual(self.run_installed(program, "C:\\Suite"), (0, "the driver held 1 file rule(s)\n"))

    def test_program_of_a_makefile_seals_and_verifies(self):
        source = shutil.copytree(SOURCE / "examples/seal_folder", self.work / "seal_folder")
        run("make", "-C", source, f"CC={CC}", "CFLAGS=-Wall -Wextra -Werror",
            env=dict(os.environ, PKG_CONFIG_LIBDIR=f"{self.prefix}/lib/pkgconfig"))
        (source / "tree").mkdir()
        command = [source / "seal_folder.exe", *(windows_path(source / name) for name in ("tree", "manifest", "keys"))]
        for file, contents, expected in (("a.txt", "one", (0, "sealed 1 file(s) in 1 folder(s)")),
                                         ("a.txt", "one", (0, "unchanged: 1 file(s)")),
                                         ("a.txt", "six", (3, "changed: 1 bad, 0 missing, 0 extra")),
                                         ("c.txt", "new", (3, "changed: 1 bad, 0 missing, 1 extra"))):
            (source / "tree" / file).write_text(contents)
            code, text = self.run_installed(*command)
            self.assertEqual((code, text.strip().splitlines()[-1]), expected, text)

    def test_crash_server_serves(self):
        run(self.prefix / "simulator/crash_server/serve", "--folder", self.work / "server", "--port", "0", "--", "true")

    def test_simulators_zoctl_takes_the_engine_beside_it(self):
        """And the one in bin does not, which is to use the system's."""
        dump = self.work / "crash.dmp"
        run(self.prefix / "simulator/debug_engine/make_dump.py", "--module", "ZoProtector.sys", "--frame",
            "ZoProtector+0x1a2b", dump)
        for folder, code in (("simulator", 0), ("bin", 1)):
            program = self.prefix / folder / "zoctl.exe"
            result = run(*wine_command(program, "crash", "analyse", windows_path(dump)), check=False)
            self.assertEqual(result[0], code, result[1])

    def test_documents_lead_somewhere(self):
        """Every relative link in the installed documents, except those of docs/ into the source tree."""
        documents = [*(self.prefix / "share/doc/ZoProtectorLib/docs").glob("*.md"),
                     *(self.prefix / "simulator").rglob("*.md")]
        self.assertGreater(len(documents), 10)
        for document in documents:
            for link in re.findall(r"\]\((?!\.\./)([^)#:]+)\)", document.read_text()):
                self.assertTrue((document.parent / link).exists(), f"{document.name}: {link}")

    def test_simulators_page_names_every_file_beside_it(self):
        simulator = self.prefix / "simulator"
        table = re.findall(r"^\| (.*?) \|", (simulator / "README.md").read_text(), re.MULTILINE)
        named = {name for cell in table for name in re.findall(r"`([^`]+)`", cell)}
        for name in named:
            self.assertTrue((simulator / name).exists(), name)
        files = {path.name for path in simulator.iterdir() if path.is_file()} - {"README.md"}
        self.assertEqual(files - named, set())

    def test_msvc_linker_takes_the_import_library(self):
        source, program = self.work / "bare.c", self.work / "bare.exe"
        source.write_text('#include <zoprotector.h>\n'
                          'int start(void) { return ZoProtector_GetVersion(0, 0, 0) == ZOP_E_INVALID_ARG ? 7 : 8; }\n')
        run("clang-19", "--target=x86_64-pc-windows-msvc", "-ffreestanding", "-std=c99", "-Wall", "-Werror", "-c",
            f"-I{self.prefix}/include", source, "-o", f"{source}.obj")
        run("lld-link-19", "/subsystem:console", "/entry:start", "/nodefaultlib", f"/out:{program}", f"{source}.obj",
            self.prefix / "lib/ZoProtectorLib.lib")
        self.assertEqual(self.run_installed(program)[0], 7)

"""The installed package, used as a stranger would: by find_package, by pkg-config, and by MSVC's linker. ZO_PACKAGE
names an unpacked release to try instead."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from build_facts import BUILD, CC, run, windows_path, wine, wine_command


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        if "ZO_PACKAGE" in os.environ:
            cls.prefix = Path(os.environ["ZO_PACKAGE"])
        else:
            run("cmake", "--install", BUILD, "--prefix", cls.work / "first place")
            cls.prefix = (cls.work / "first place").rename(cls.work / "moved")  # where it must still be found

        source = shutil.copytree(cls.prefix / "share/doc/ZoProtectorLib/examples", cls.work / "examples")
        run("cmake", "-G", "Ninja", "-S", source, "-B", source / "build", "-DCMAKE_BUILD_TYPE=Release",
            f"-DCMAKE_TOOLCHAIN_FILE={os.environ['ZO_TOOLCHAIN']}", "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Werror",
            f"-DZoProtectorLib_DIR={cls.prefix}/lib/cmake/ZoProtectorLib")
        run("cmake", "--build", source / "build")
        cls.examples = source / "build"
        cls.driver = {version: windows_path(cls.prefix / f"simulator/ZoProtectorDriver{version}.sys")
                      for version in ("", "_1_0_1")}

    def run_installed(self, program, *arguments):
        return wine(program, *arguments, library_folder=self.prefix / "bin")

    def run_example(self, name, *arguments, **settings):
        """From the folder where it was built, which holds the DLL: nothing else says where that is."""
        return wine(self.examples / f"{name}.exe", *arguments, library_folder=self.work, **settings)

    def keep_session(self):
        """A driver lives as long as its session, and a session as long as a program runs in it."""
        session = subprocess.Popen(wine_command("ping", "-n", "600", "127.0.0.1"), stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(session.wait)
        self.addCleanup(session.kill)
        self.addCleanup(self.run_example, "manage_driver", "remove")

    def test_examples_of_the_driver_follow_its_life(self):
        self.keep_session()
        for program in ("manage_driver", "manage_driver_in_c"):
            steps = (("remove",), 0, "removed"), \
                (("upgrade", self.driver["_1_0_1"]), 1, "that the driver is installed)"), \
                (("install", "C:\\none.sys"), 1, "check the file's path, and that the driver is installed)"), \
                (("install", self.driver[""]), 0, "installed and started"), \
                (("upgrade", self.driver[""]), 0, "the installed driver is not older"), \
                (("upgrade", self.driver["_1_0_1"]), 0, "replaced and restarted"), \
                (("remove",), 0, "removed")
            for words, code, last in steps:
                actual = self.run_example(program, *words)
                self.assertEqual((actual[0], actual[1].strip().endswith(last)), (code, True), (program, words, actual))

    def test_examples_of_rules_and_events_use_the_driver(self):
        self.assertEqual(self.run_example("protect_folder", "C:\\Suite"), (2, "the driver is not running\n"))
        self.keep_session()
        self.run_example("manage_driver", "install", self.driver[""])
        code, text = self.run_example("protect_folder", "C:\\Suite")
        self.assertEqual((code, text.splitlines()[-1]), (0, "the driver held 1 file rule(s)"))
        self.assertIn("\\Suite\n", text)
        code, text = self.run_installed(self.prefix / "simulator/simctl.exe", "inject", "1029")
        self.assertEqual(code, 0, text)
        self.assertEqual(self.run_example("read_events", "1029"), (0, "1024 read, 5 lost\n"))

    def test_example_of_the_crash_reporter_waits_sends_and_stops(self):
        dumps, record = self.work / "dumps", self.work / "record"
        dumps.mkdir()
        for name in ("dbgeng.dll", "dbghelp.dll"):
            shutil.copy(self.prefix / "simulator" / name, self.examples)
        run("python3", self.prefix / "simulator/debug_engine/make_dump.py", dumps / "a.dmp")
        words = ["https://127.0.0.1:9/crash", windows_path(dumps), windows_path(record)]
        for said, expected, outcome in ((b"stop\n", 2, "[01] found, 0 to report, 0 sent"),
                                        (b"up\n", 0, "1 found, 1 to report, 0 sent"),
                                        (b"up\n", 0, "0 found, 0 to report, 0 sent")):
            code, text = self.run_example("report_crashes", *words, input=said)
            self.assertEqual(code, expected, text)
            self.assertRegex(text, outcome)

    def test_program_of_a_makefile_seals_and_verifies(self):
        source = self.work / "examples/seal_folder"
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

"""What the package tests share: where the build is, and how to call its tools."""

import os
import re
import subprocess
import tempfile
from pathlib import Path

SOURCE = Path(os.environ["ZO_SOURCE"])
BUILD = Path(os.environ["ZO_BUILD"])
CC = os.environ["ZO_CC"]
CXX = os.environ["ZO_CXX"]
TOOLCHAIN = os.environ["ZO_TOOLCHAIN"]
LIBRARY = BUILD / "bin" / "ZoProtectorLib.dll"
PREFIX = BUILD / "wine-prefix"

EXPORTING_HEADERS = [SOURCE / part for part in (
    "sdk/include/zoprotector.h", "signer/include/zosigner.h", "crash_report/include/zocrashreport.h")]
PUBLIC_HEADERS = EXPORTING_HEADERS + [SOURCE / part for part in (
    "sdk/include/zoprotector_status.h", "sdk/include/driver_records.h", "simulator/include/zoprotector_simulator.h")]


def run(*command, check=True, **settings):
    """The text that a command writes, or exit code and text; a failure shows all of it."""
    with tempfile.TemporaryFile() as output:  # a pipe would wait for what Wine leaves running, too
        code = subprocess.run([str(part) for part in command], stdout=output, stderr=output, **settings).returncode
        output.seek(0)
        text = output.read().decode("utf-8", "replace").replace("\r\n", "\n")
    if check and code != 0:
        raise AssertionError(f"{command} ended with {code}:\n{text}")
    return text if check else (code, text)


def wine(program, *arguments, library_folder=LIBRARY.parent):
    """Runs a Windows program; gives its exit code and what it wrote."""
    settings = dict(os.environ, WINEPATH=windows_path(library_folder))
    return run(SOURCE / "scripts/wine-run", PREFIX, program, *arguments, check=False, env=settings)


def start_wine(program, *arguments):
    """A Windows program that runs on beside the test."""
    return subprocess.Popen([SOURCE / "scripts/wine-run", PREFIX, program, *arguments], stdin=subprocess.DEVNULL,
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


def declared_exports():
    return [name for header in EXPORTING_HEADERS
            for name in re.findall(r"^ZO_API\s[^;(]*?\b(Zo\w+)\(", header.read_text(), re.MULTILINE)]

"""What the package tests share: where the build is, and how to call its tools."""

import os
import re
import subprocess
import tempfile
from pathlib import Path

SOURCE, BUILD = Path(os.environ["ZO_SOURCE"]), Path(os.environ["ZO_BUILD"])
CC, CXX = os.environ["ZO_CC"], os.environ["ZO_CXX"]
LIBRARY = BUILD / "bin" / "ZoProtectorLib.dll"
VERSION = ".".join(re.findall(r"#define ZOP_SDK_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)",
                              (SOURCE / "sdk/include/zoprotector.h").read_text()))

EXPORTING_HEADERS = [SOURCE / part for part in (
    "sdk/include/zoprotector.h", "signer/include/zosigner.h", "crash_report/include/zocrashreport.h")]


def functions_of(*headers):
    text = "".join(header.read_text() for header in headers)
    return re.findall(r"^ZO_API\s[^;(]*?\b(Zo\w+)\(", text, re.MULTILINE)


def signing_command(folder):
    """One for ZO_SIGN_COMMAND, without its file, with a certificate that is made in the folder."""
    run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", folder / "key.pem", "-out",
        folder / "certificate.pem", "-subj", "/CN=Maker", "-addext", "extendedKeyUsage=codeSigning")
    return f"osslsigncode sign -certs '{folder}/certificate.pem' -key '{folder}/key.pem'"


def run(*command, check=True, **settings):
    """The text that a command writes, or exit code and text; a failure shows all of it."""
    with tempfile.TemporaryFile() as output:  # a pipe would wait for what Wine leaves running, too
        code = subprocess.run(command, stdout=output, stderr=output, **settings).returncode
        output.seek(0)
        text = output.read().decode("utf-8", "replace").replace("\r\n", "\n")
    if check and code != 0:
        raise AssertionError(f"{command} ended with {code}:\n{text}")
    return text if check else (code, text)


def wine_command(program, *arguments):
    return [SOURCE / "scripts/wine-run", BUILD / "wine-prefix", program, *arguments]


def wine(program, *arguments, library_folder=LIBRARY.parent, **settings):
    """Runs a Windows program; gives its exit code and what it wrote."""
    environment = dict(os.environ, WINEPATH=windows_path(library_folder))
    return run(*wine_command(program, *arguments), check=False, env=environment, **settings)


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")

"""pack.py BUILD SOURCE_ARCHIVE OUT [LABEL]: makes all files of a release from a finished build folder, and lists them.
LABEL is added to the version number of a release that must not be shipped. SOURCE_DATE_EPOCH is the time in archives
and documents. The same build gives the same bytes."""

import hashlib
import json
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

from nuget import write_nuget
from sbom import bill_of_materials
from zip_archive import rewrite_zip, write_zip

VCPKG = Path(__file__).parent / "vcpkg"


def project_facts(build):
    cache = (build / "CMakeCache.txt").read_text()
    return [re.search(f"^CMAKE_PROJECT_{name}:STATIC=(.*)", cache, re.MULTILINE)[1]
            for name in ("VERSION", "DESCRIPTION")]


def write_archives(build, out, name):
    """CPack's, one for each component and one of everything. Gives the contents of the latter by name."""
    with tempfile.TemporaryDirectory() as folder:
        for by_component in ("ON", "OFF"):
            done = subprocess.run(["cpack", "--config", build / "CPackConfig.cmake", "-B", folder,
                                   "-D", f"CPACK_PACKAGE_FILE_NAME={name}",
                                   "-D", f"CPACK_ARCHIVE_COMPONENT_INSTALL={by_component}"],
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
            if done.returncode != 0:
                raise SystemExit(f"release: cpack failed:\n{done.stdout}")
        for archive in Path(folder).glob("*.zip"):
            contents = rewrite_zip(archive, out / archive.name)
            if archive.stem == name:
                installed = contents
    return {path.removeprefix(f"{name}/"): data for path, data in installed.items()}


def write_vcpkg_port(path, source, version, description):
    contents = {f"zoprotectorlib/{source.name}": source.read_bytes()}
    for template in VCPKG.iterdir():
        text = template.read_text().replace("@SOURCE_ARCHIVE@", source.name)
        text = text.replace("@VERSION@", version).replace("@DESCRIPTION@", description)
        contents[f"zoprotectorlib/{template.name}"] = text.encode()
    write_zip(path, contents)


def commit_of(source):
    """git writes it into the archives that it makes."""
    unpacked = subprocess.run(["gzip", "-dc", source], check=True, capture_output=True).stdout
    asked = subprocess.run(["git", "get-tar-commit-id"], input=unpacked, check=True, capture_output=True)
    return asked.stdout.decode().strip()


def pack(build, source, out, label=""):
    version, description = project_facts(build)
    version += label
    base = f"ZoProtectorLib-{version}"
    shutil.copyfile(source, out / source.name)
    installed = write_archives(build, out, f"{base}-windows-x64")
    write_nuget(out / f"ZoProtectorLib.{version}.nupkg", installed, version, description)
    write_vcpkg_port(out / f"{base}-vcpkg-port.zip", source, version, description)
    bill = bill_of_materials(installed, version, description, commit_of(source))
    (out / f"{base}.spdx.json").write_text(json.dumps(bill, indent=2) + "\n")

    files = [(path, hashlib.sha256(path.read_bytes()).hexdigest()) for path in sorted(out.iterdir())]
    (out / "SHA256SUMS").write_text("".join(f"{digest}  {path.name}\n" for path, digest in files))
    for path, digest in files:
        print(f"{path.stat().st_size:>10}  {digest}  {path.name}")


if __name__ == "__main__":
    pack(*map(Path, sys.argv[1:4]), *sys.argv[4:])

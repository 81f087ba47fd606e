"""What packaging/ makes out of this build: archives, NuGet package, vcpkg port, bill of materials; and how it signs."""

import hashlib
import json
import os
import re
import shutil
import sys
import tempfile
import unittest
import zipfile
from pathlib import Path
from xml.etree import ElementTree

from build_facts import BUILD, LIBRARY, SOURCE, VERSION, run, signing_command

BASE = f"ZoProtectorLib-{VERSION}-trial"
COMPONENTS = {
    "runtime": ("bin/ZoProtectorLib.dll", "share/doc/ZoProtectorLib/SECURITY.md"),
    "development": ("bin/ZoProtectorLib.dll", "include/zoprotector.h", "include/zosigner.hpp", "lib/ZoProtectorLib.lib",
                    "lib/libZoProtectorLib.dll.a", "lib/cmake/ZoProtectorLib/ZoProtectorLibConfig.cmake",
                    "share/doc/ZoProtectorLib/docs/README.md"),
    "zoctl": ("bin/ZoProtectorLib.dll", "bin/zoctl.exe"),
    "simulator": ("simulator/ZoProtectorLib.dll", "simulator/zoctl.exe", "simulator/ZoProtectorDriver.sys"),
    "symbols": ("bin/ZoProtectorLib.dll.debug",),
}


@unittest.skipUnless((SOURCE / ".git").exists(), "the source archive is made by git")
class Artifacts(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.out, archive = cls.work / "out", cls.work / f"ZoProtectorLib-{VERSION}-source.tar.gz"
        cls.out.mkdir()
        run("git", "-C", SOURCE, "archive", f"--prefix=ZoProtectorLib-{VERSION}/", "-o", archive, "HEAD")
        run(sys.executable, "-B", SOURCE / "packaging/pack.py", BUILD, archive, cls.out, "-trial",
            env=dict(os.environ, SOURCE_DATE_EPOCH="1700000001"))
        cls.everything = cls.contents(f"{BASE}-windows-x64.zip", f"{BASE}-windows-x64/")
        cls.nuget = cls.contents(f"ZoProtectorLib.{VERSION}-trial.nupkg")
        cls.bill = json.loads((cls.out / f"{BASE}.spdx.json").read_text())

    @classmethod
    def contents(cls, name, prefix=""):
        with zipfile.ZipFile(cls.out / name) as archive:
            names = archive.namelist()
            assert all(entry.startswith(prefix) for entry in names), names
            return {entry.removeprefix(prefix): archive.read(entry) for entry in names}

    def test_component_archives_hold_their_files_and_add_up_to_everything(self):
        united = {}
        for component, files in COMPONENTS.items():
            held = self.contents(f"{BASE}-windows-x64-{component}.zip", f"{BASE}-windows-x64/")
            self.assertLessEqual(set(files), set(held), component)
            united.update(held)
        self.assertEqual(set(united), set(self.everything))
        self.assertEqual([name for name in united if united[name] != self.everything[name]], [])

    def test_archives_keep_what_is_executable_and_bear_the_given_time(self):
        with zipfile.ZipFile(self.out / f"{BASE}-windows-x64-simulator.zip") as archive:
            server = archive.getinfo(f"{BASE}-windows-x64/simulator/crash_server/serve")
            page = archive.getinfo(f"{BASE}-windows-x64/simulator/README.md")
        self.assertEqual([server.external_attr >> 16, page.external_attr >> 16], [0o100755, 0o100644])
        self.assertEqual(server.date_time, (2023, 11, 14, 22, 13, 20))

    def test_nuget_package_is_well_formed(self):
        typed, related, nuspec = (list(ElementTree.fromstring(self.nuget[name])) for name in (
            "[Content_Types].xml", "_rels/.rels", "ZoProtectorLib.nuspec"))
        self.assertEqual({element.get("Extension") for element in typed},
                         {name.rsplit(".", 1)[1] for name in self.nuget if name != "[Content_Types].xml"})
        targets = [element.get("Target").lstrip("/") for element in related]
        self.assertIn("ZoProtectorLib.nuspec", targets)
        for target in targets:
            ElementTree.fromstring(self.nuget[target])
        facts = {element.tag.split("}")[1]: element.text for element in nuspec[0]}
        self.assertEqual((facts["id"], facts["version"]), ("ZoProtectorLib", f"{VERSION}-trial"))
        self.assertIn(facts["readme"], self.nuget)

    def test_nuget_targets_name_files_of_the_package(self):
        self.assertNotIn("build/native/include/zoprotector_simulator.h", self.nuget)
        targets = self.nuget["build/native/ZoProtectorLib.targets"].decode()
        named = re.findall(r"\$\(MSBuildThisFileDirectory\)([^;\"]+)", targets)
        resolved = {os.path.normpath("build/native/" + name.replace("\\", "/")) for name in named}
        self.assertEqual(resolved, {"build/native/include", "build/native/lib/x64/ZoProtectorLib.lib",
                                    "runtimes/win-x64/native/ZoProtectorLib.dll"})
        for name in resolved:
            self.assertTrue(any(entry == name or entry.startswith(f"{name}/") for entry in self.nuget), name)

    def test_vcpkg_port_configures_its_sources_and_tidies_the_package(self):
        run("unzip", "-q", self.out / f"{BASE}-vcpkg-port.zip", "-d", self.work)
        port = self.work / "zoprotectorlib"
        self.assertEqual(json.loads((port / "vcpkg.json").read_text())["version-semver"], f"{VERSION}-trial")
        run("cmake", f"-DPORT_FOLDER={port}", f"-DWORK={self.work}", f"-DTOOLCHAIN={os.environ['ZO_TOOLCHAIN']}",
            f"-DINSTALL_FROM={BUILD}", "-P", Path(__file__).with_name("vcpkg_replacements.cmake"))
        package = self.work / "packages"
        for name in ("bin/ZoProtectorLib.dll", "tools/zoprotectorlib/zoctl.exe", "share/zoprotectorlib/usage"):
            self.assertTrue((package / name).exists(), name)
        for name in ("bin/zoctl.exe", "simulator", "include/zoprotector_simulator.h"):
            self.assertFalse((package / name).exists(), name)

    def test_bill_of_materials_lists_each_file_with_its_digest(self):
        listed = {file["fileName"]: [one["checksumValue"] for one in file["checksums"]] for file in self.bill["files"]}
        self.assertEqual(listed, {f"./{name}": [hashlib.sha1(data).hexdigest(), hashlib.sha256(data).hexdigest()]
                                  for name, data in self.everything.items()})

    def test_bill_of_materials_has_what_spdx_requires(self):
        bill = self.bill
        required = (("spdxVersion dataLicense SPDXID name documentNamespace creationInfo", [bill]),
                    ("name SPDXID versionInfo downloadLocation", bill["packages"]),
                    ("fileName SPDXID checksums", bill["files"]))
        for names, elements in required:
            for element in elements:
                self.assertLessEqual(set(names.split()), set(element))
        self.assertEqual(bill["creationInfo"]["created"], "2023-11-14T22:13:21Z")
        known = [element["SPDXID"] for element in [bill, *bill["packages"], *bill["files"]]]
        self.assertEqual(len(known), len(set(known)))
        ends = {relation[end] for relation in bill["relationships"] for end in ("spdxElementId", "relatedSpdxElement")}
        self.assertEqual(ends, set(known))
        self.assertIn("fmt", {package["name"] for package in bill["packages"]})

    def test_sums_are_those_of_all_files(self):
        run("sha256sum", "--check", "--strict", "SHA256SUMS", cwd=self.out)
        named = [line.split()[1] for line in (self.out / "SHA256SUMS").read_text().splitlines()]
        self.assertEqual(sorted([*named, "SHA256SUMS"]), sorted(os.listdir(self.out)))


class Signing(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = Path(cls.enterClassContext(tempfile.TemporaryDirectory(suffix=" of a maker")))
        script = cls.work / "sign"
        script.write_text(f'cd "$(dirname "$1")" && {signing_command(cls.work)} -in "$1" -out new && mv new "$1"\n')
        cls.sign = f"sh '{script}'"

    def result(self, command):
        """Exit code and words of the signing of a copy of the DLL by this command."""
        self.file = shutil.copy(LIBRARY, self.work)
        return run(sys.executable, "-B", SOURCE / "packaging/signing.py", self.file, check=False,
                   env=dict(os.environ, ZO_SIGN_COMMAND=command))

    def test_file_has_its_place_in_the_command_or_is_the_last_argument(self):
        for command in (self.sign, f"{self.sign} {{file}} more"):
            code, said = self.result(command)
            self.assertEqual(code, 0, said)
            run("osslsigncode", "verify", "-CAfile", "certificate.pem", "-in", self.file, cwd=self.work)

    def test_command_that_does_not_sign_fails(self):
        spoilt = f"printf x | dd of={{file}} bs=1 seek=4096 conv=notrunc && {self.sign} {{file}}"
        for command, expected in (("true", "has no Authenticode signature"), ("exit 3", "ended with 3"),
                                  (spoilt, "more of")):
            code, said = self.result(command)
            self.assertEqual((code, expected in said), (1, True), said)

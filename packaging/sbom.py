"""The software bill of materials: SPDX 2.3 as JSON. Each shipped file with its digests, what is linked into the
programs, and what built them."""

import hashlib
import os
import subprocess
import time
import uuid

# Debian package, name, licence, and what it becomes part of or does.
LINKED = (
    ("libfmt-dev", "fmt", "MIT",
     "text formatting of the DLL and the programs, where the compiler's library has no <format>"),
    ("g++-mingw-w64-x86-64-posix", "libstdc++ and libgcc", "GPL-3.0-or-later WITH GCC-exception-3.1",
     "C++ runtime of the DLL and the programs"),
    ("mingw-w64-x86-64-dev", "mingw-w64 runtime and winpthreads", "NOASSERTION",
     "C runtime of the DLL and the programs"),
    ("libcli11-dev", "CLI11", "BSD-3-Clause", "command lines of zoctl.exe and simctl.exe"),
    ("nlohmann-json3-dev", "nlohmann-json", "MIT", "JSON of zoctl.exe and simctl.exe"),
)
BUILD_TOOLS = (
    ("gcc-mingw-w64-x86-64-posix", "GCC for mingw-w64"),
    ("binutils-mingw-w64-x86-64", "binutils for mingw-w64"),
    ("lld-19", "lld, which writes the import library for MSVC linkers"),
    ("cmake", "CMake"),
    ("ninja-build", "Ninja"),
)
DOCUMENT, PACKAGE = "SPDXRef-DOCUMENT", "SPDXRef-ZoProtectorLib"


def debian_version(package):
    query = ["dpkg-query", "--show", "--showformat=${Version}", package]
    return subprocess.run(query, check=True, capture_output=True, text=True).stdout


def debian_package(package, name, licence="NOASSERTION", comment=None):
    version = debian_version(package)
    element = {"SPDXID": f"SPDXRef-Debian-{package.replace('+', 'p')}", "name": name, "versionInfo": version,
               "supplier": "Organization: Debian", "downloadLocation": "NOASSERTION", "filesAnalyzed": False,
               "licenseConcluded": "NOASSERTION", "licenseDeclared": licence, "copyrightText": "NOASSERTION",
               "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                                 "referenceLocator": f"pkg:deb/debian/{package.replace('+', '%2B')}@"
                                                     f"{version.replace('+', '%2B').replace(':', '%3A')}"}]}
    return {**element, "comment": comment} if comment else element


def file_element(number, name, data):
    digests = [{"algorithm": algorithm.upper(), "checksumValue": hashlib.new(algorithm, data).hexdigest()}
               for algorithm in ("sha1", "sha256")]
    return {"SPDXID": f"SPDXRef-File-{number}", "fileName": f"./{name}", "checksums": digests,
            "licenseConcluded": "NOASSERTION", "licenseInfoInFiles": ["NOASSERTION"], "copyrightText": "NOASSERTION"}


def verification_code(files):
    """SHA-1 of the files' SHA-1 digests in hexadecimal, sorted and joined."""
    digests = sorted(file["checksums"][0]["checksumValue"] for file in files)
    return hashlib.sha1("".join(digests).encode()).hexdigest()


def bill_of_materials(installed, version, description, commit):
    files = [file_element(number, name, installed[name]) for number, name in enumerate(sorted(installed), 1)]
    linked = [debian_package(*one) for one in LINKED]
    tools = [debian_package(*one) for one in BUILD_TOOLS]
    package = {"SPDXID": PACKAGE, "name": "ZoProtectorLib", "versionInfo": version, "summary": description,
               "supplier": "NOASSERTION", "downloadLocation": "NOASSERTION",
               "sourceInfo": f"built from commit {commit}", "primaryPackagePurpose": "LIBRARY", "filesAnalyzed": True,
               "packageVerificationCode": {"packageVerificationCodeValue": verification_code(files)},
               "licenseConcluded": "NOASSERTION", "licenseDeclared": "NOASSERTION",
               "licenseInfoFromFiles": ["NOASSERTION"], "copyrightText": "NOASSERTION"}

    def relations(elements, kind, turned=False):
        return [{"spdxElementId": element["SPDXID"] if turned else PACKAGE, "relationshipType": kind,
                 "relatedSpdxElement": PACKAGE if turned else element["SPDXID"]} for element in elements]

    unique = uuid.uuid5(uuid.NAMESPACE_OID, f"{commit} {version} {package['packageVerificationCode']}")
    created = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(int(os.environ["SOURCE_DATE_EPOCH"])))
    return {
        "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": DOCUMENT, "name": f"ZoProtectorLib-{version}",
        "documentNamespace": f"urn:uuid:{unique}",
        "creationInfo": {"created": created, "creators": [f"Tool: ZoProtectorLib-release-{version}"]},
        "packages": [package, *linked, *tools], "files": files,
        "relationships": [
            {"spdxElementId": DOCUMENT, "relationshipType": "DESCRIBES", "relatedSpdxElement": PACKAGE},
            *relations(files, "CONTAINS"), *relations(linked, "STATIC_LINK"),
            *relations(tools, "BUILD_TOOL_OF", turned=True)],
    }

"""The NuGet package: a ZIP in the form of the Open Packaging Conventions, in the layout of native packages."""

import hashlib
from pathlib import Path
from xml.sax.saxutils import escape, quoteattr

from zip_archive import write_zip

TEMPLATES = Path(__file__).parent / "nuget"
XML = '<?xml version="1.0" encoding="utf-8"?>\n'
RELATIONSHIPS = "http://schemas.openxmlformats.org/package/2006/relationships"
METADATA = "http://schemas.openxmlformats.org/package/2006/metadata/core-properties"


def content_types(names):
    known = {"rels": "application/vnd.openxmlformats-package.relationships+xml",
             "psmdcp": "application/vnd.openxmlformats-package.core-properties+xml"}
    endings = sorted({name.rsplit(".", 1)[1] for name in names})
    defaults = "".join(f'  <Default Extension="{ending}" ContentType="{known.get(ending, "application/octet")}" />\n'
                       for ending in endings)
    return f'{XML}<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">\n{defaults}</Types>\n'


def relationships(*targets):
    lines = "".join(f'  <Relationship Type={quoteattr(kind)} Target="/{target}" Id="R{number}" />\n'
                    for number, (kind, target) in enumerate(targets))
    return f'{XML}<Relationships xmlns="{RELATIONSHIPS}">\n{lines}</Relationships>\n'


def core_properties(version, description):
    return (f'{XML}<coreProperties xmlns:dc="http://purl.org/dc/elements/1.1/" xmlns="{METADATA}">\n'
            f"  <dc:creator>ZoProtectorLib</dc:creator>\n  <dc:description>{escape(description)}</dc:description>\n"
            f"  <dc:identifier>ZoProtectorLib</dc:identifier>\n  <version>{version}</version>\n</coreProperties>\n")


def write_nuget(path, installed, version, description):
    """installed: {name: bytes} of the whole package, as `cmake --install` lays it out."""
    contents = {f"build/native/{name}": data for name, data in installed.items()
                if name.startswith("include/") and name != "include/zoprotector_simulator.h"}
    contents["build/native/lib/x64/ZoProtectorLib.lib"] = installed["lib/ZoProtectorLib.lib"]
    contents["build/native/ZoProtectorLib.targets"] = (TEMPLATES / "ZoProtectorLib.targets").read_bytes()
    contents["runtimes/win-x64/native/ZoProtectorLib.dll"] = installed["bin/ZoProtectorLib.dll"]
    contents["README.md"] = installed["share/doc/ZoProtectorLib/README.md"]

    nuspec = (TEMPLATES / "ZoProtectorLib.nuspec.in").read_text()
    nuspec = nuspec.replace("@VERSION@", version).replace("@DESCRIPTION@", escape(description))
    contents["ZoProtectorLib.nuspec"] = nuspec.encode()
    name = hashlib.sha256(nuspec.encode()).hexdigest()[:32]
    properties = f"package/services/metadata/core-properties/{name}.psmdcp"
    contents[properties] = core_properties(version, description).encode()
    contents["_rels/.rels"] = relationships(
        ("http://schemas.microsoft.com/packaging/2010/07/manifest", "ZoProtectorLib.nuspec"),
        (f"{RELATIONSHIPS}/metadata/core-properties", properties)).encode()
    contents["[Content_Types].xml"] = content_types(contents).encode()
    write_zip(path, contents)

"""ZIP archives whose bytes depend on nothing but the contents: sorted, one time, two kinds of permissions."""

import os
import time
import zipfile


def write_zip(path, contents, programs=()):
    """contents: {name: bytes}. programs: the names that a Unix unpacker makes executable."""
    moment = time.gmtime(int(os.environ["SOURCE_DATE_EPOCH"]))[:6]
    with zipfile.ZipFile(path, "w") as archive:
        for name in sorted(contents):
            entry = zipfile.ZipInfo(name, moment)
            entry.create_system = 3  # Unix, on every machine
            entry.external_attr = (0o100755 if name in programs else 0o100644) << 16
            entry.compress_type = zipfile.ZIP_DEFLATED
            archive.writestr(entry, contents[name], compresslevel=9)


def rewrite_zip(source, target, prefix=""):
    """CPack's archives hold the user's ids, umask and time zone. Gives the contents by name."""
    with zipfile.ZipFile(source) as archive:
        entries = [entry for entry in archive.infolist() if not entry.is_dir()]
        contents = {prefix + entry.filename: archive.read(entry) for entry in entries}
        programs = {prefix + entry.filename for entry in entries if entry.external_attr >> 16 & 0o100}
    write_zip(target, contents, programs)
    return contents

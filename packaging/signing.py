"""signing.py FILE...: has ZO_SIGN_COMMAND sign each program file in place and checks that it did, and did only that.

sh runs the command once for each file. {file} in it stands for the file's quoted path, which becomes the last argument
where {file} does not occur."""

import os
import shlex
import struct
import subprocess
import sys
from pathlib import Path

AUTHENTICODE = 2  # WIN_CERT_TYPE_PKCS_SIGNED_DATA


def taken_apart(content):
    """A 64-bit program file as Authenticode digests it, and the kind of the certificate behind it, or None."""
    header = struct.unpack_from("<I", content, 0x3C)[0] + 24
    checksum, directory = header + 64, header + 112 + 4 * 8
    offset, size = struct.unpack_from("<II", content, directory)
    kind = struct.unpack_from("<H", content, offset + 6)[0] if size else None
    bare = bytearray(content[:offset] if size else content)
    bare += bytes(-len(bare) % 8)  # signing aligns the certificate behind it
    bare[checksum:checksum + 4] = bytes(4)
    bare[directory:directory + 8] = bytes(8)
    return bytes(bare), kind


def sign(path, command):
    before = Path(path).read_bytes()
    quoted = shlex.quote(str(path))
    command = command.replace("{file}", quoted) if "{file}" in command else f"{command} {quoted}"
    code = subprocess.run(["sh", "-c", command], stdin=subprocess.DEVNULL, stdout=sys.stderr).returncode
    if code != 0:
        raise SystemExit(f"release: ZO_SIGN_COMMAND ended with {code} for {path}")
    bare, kind = taken_apart(Path(path).read_bytes())
    if kind != AUTHENTICODE:
        raise SystemExit(f"release: ZO_SIGN_COMMAND ended with 0, but {path} has no Authenticode signature")
    if bare != taken_apart(before)[0]:
        raise SystemExit(f"release: ZO_SIGN_COMMAND changed more of {path} than its signature")


if __name__ == "__main__":
    for argument in sys.argv[1:]:
        sign(argument, os.environ["ZO_SIGN_COMMAND"])

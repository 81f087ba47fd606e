"""Recomputes the hardware identifier from its sources, as hardware_sources.exe prints them.

hardware_id_test.py PROGRAM [ARGUMENT...]
"""

import hashlib
import json
import struct
import subprocess
import sys


def system_uuid(table):
    if len(table) < 9:
        return b""
    (length,) = struct.unpack_from("<I", table, 4)
    data = table[8 : 8 + length]
    if length < 4 or len(data) < length:
        return b""
    at = 0
    while at + 4 <= len(data):
        kind, size = data[at], data[at + 1]
        if size < 4 or at + size > len(data):
            return b""
        if kind == 1 and size >= 25:
            uuid = data[at + 8 : at + 24]
            return b"" if uuid in (bytes(16), b"\xff" * 16) else uuid
        end = data.find(b"\0\0", at + size)
        if end < 0:
            return b""
        at = end + 2
    return b""


def machine_guid(value):
    value = value[: len(value) // 2 * 2]
    return value[:-2] if value[-2:] == b"\0\0" else value


def brand(leaves):
    return leaves.split(b"\0")[0].strip(b" ")


def disk_serial(descriptor):
    if len(descriptor) < 40:
        return b""
    (offset,) = struct.unpack_from("<I", descriptor, 24)
    if offset == 0 or offset >= len(descriptor):
        return b""
    return descriptor[offset:].split(b"\0")[0].strip(b" ")


SOURCES = [
    (b"SMBIOS_UUID", "smbios", system_uuid),
    (b"MACHINE_GUID", "guid", machine_guid),
    (b"CPU_BRAND", "brand", brand),
    (b"DISK0_SERIAL", "disk", disk_serial),
]

output = subprocess.run(sys.argv[1:], check=True, capture_output=True, text=True).stdout
reports = [json.loads(line) for line in output.splitlines()]
assert len(reports) == 18, output
for report in reports:
    if report["key"] != 0 or report["type"] != 1 or len(report["guid"]) > 2 * 256:
        report["guid"] = ""
    entries = []
    for label, key, read in SOURCES:
        value = read(bytes.fromhex(report[key]))
        if value:
            entries.append(label + b"\x1f" + value)
    digest = hashlib.sha256(b"".join(entries)).hexdigest().upper()
    mixed = f"[INFO ] ComputeHardwareIdDigest: mixed {len(entries)} identifier source(s)"
    expected = {
        "text": digest,
        "bytes": digest.lower() + "00",  # nothing is written behind the 32 bytes
        "written": 32,
        "status": [0, 0],
        "lines": [mixed, "[INFO ] ZoProtector_GetHardwareId: produced HID", mixed],
    } if report["hashes"] else {
        "text": "#" * 66, "bytes": "00" * 33, "written": 0, "status": [0x80000009 - 2**32] * 2, "lines": [mixed] * 2,
    }
    for key, value in expected.items():
        assert report[key] == value, f"{report['case']}: {key} is {report[key]!r}, not {value!r}"
    print(f"{report['case']}: {len(entries)} sources, {digest}")
assert len({report["text"] for report in reports}) > 6

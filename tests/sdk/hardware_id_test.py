"""Recomputes the hardware identifier from its sources: this machine's, and others that hardware_sources.exe puts in their
place.

hardware_id_test.py PROGRAM [ARGUMENT...]
"""

import hashlib
import subprocess
import sys


def utf16(text):
    return text.encode("utf-16-le")


def firmware(fill):
    """A firmware table with one system structure, whose UUID is 16 bytes of this value."""
    return bytes([0, 3, 4, 0, 27, 0, 0, 0, 1, 25, 0, 0, 0, 0, 0, 0]) + bytes([fill] * 16) + bytes(3)


def disk(serial):
    """A device descriptor whose serial number begins at byte 40."""
    return bytes(24) + bytes([40]) + bytes(15) + serial


# What the platform answers; guid_type is the registry's, hashes whether there is cryptography.
ALL = {"firmware": firmware(7), "guid": utf16("abc\0"), "disk": disk(b"  SER 1 "), "guid_type": 1, "hashes": 1}
UUID, GUID, BRAND, SERIAL = b"SMBIOS_UUID", b"MACHINE_GUID", b"CPU_BRAND", b"DISK0_SERIAL"
IDENTIFIERS = {UUID: bytes([7] * 16), GUID: utf16("abc"), BRAND: None, SERIAL: b"SER 1"}

# Name: what differs from ALL, and what then differs from IDENTIFIERS.
CASES = {
    "all": ({}, {}),
    "no firmware table": ({"firmware": b""}, {UUID: b""}),
    "UUID of all FF": ({"firmware": firmware(255)}, {UUID: b""}),
    "GUID without terminator": ({"guid": utf16("abc")}, {}),
    "longest GUID": ({"guid": utf16("g" * 128)}, {GUID: utf16("g" * 128)}),
    "GUID too long": ({"guid": utf16("g" * 129)}, {GUID: b""}),
    "GUID of a terminator only": ({"guid": utf16("\0")}, {GUID: b""}),
    "GUID of an odd byte count": ({"guid": utf16("abc")[:5]}, {GUID: utf16("ab")}),
    "GUID of another type": ({"guid_type": 2}, {GUID: b""}),
    "no disk": ({"disk": b""}, {SERIAL: b""}),
    "blank serial number": ({"disk": disk(b"   ")}, {SERIAL: b""}),
    "tabs are not blanks": ({"disk": disk(b" \tSER\t ")}, {SERIAL: b"\tSER\t"}),
    "processor alone": ({"firmware": b"", "guid": b"", "disk": b""}, {UUID: b"", GUID: b"", SERIAL: b""}),
    "no cryptography": ({"hashes": 0}, {}),
}


def line_for(case):
    raw = [case[name].hex() or "-" for name in ("firmware", "guid", "disk")]
    return " ".join(raw) + f" {case['guid_type']} {case['hashes']}\n"


def expected(identifiers, hashes=1):
    """What hardware_sources.exe prints: two statuses, the text, the bytes and their count, the log."""
    found = [label + b"\x1f" + value for label, value in identifiers.items() if value]
    digest = hashlib.sha256(b"".join(found)).hexdigest()
    mixed = f"|[INFO ] ComputeHardwareIdDigest: mixed {len(found)} identifier source(s)"
    if not hashes:
        failed = 0x80000009 - 2**32
        return f"{failed} {failed} {'#' * 66} {'00' * 33} 0{mixed}{mixed}"
    produced = "|[INFO ] ZoProtector_GetHardwareId: produced HID"
    return f"0 0 {digest.upper()} {digest}00 32{mixed}{produced}{mixed}"


cases = [ALL | change for change, _ in CASES.values()]
output = subprocess.run(
    sys.argv[1:], input="".join(map(line_for, cases)), check=True, capture_output=True, text=True
).stdout
machine, own_result, *results = output.splitlines()
table, guid, descriptor, brand = map(bytes.fromhex, machine.split(" "))
brand = brand.split(b"\0")[0].strip(b" ")

# Where this machine's UUID is in its firmware table is not known here, so every place may be it.
at = int.from_bytes(descriptor[24:28], "little")
serial = descriptor[at:].split(b"\0")[0].strip(b" ") if at else b""
uuids = [b"", *(table[i : i + 16] for i in range(8, len(table) - 15))]
own = [{UUID: uuid, GUID: guid[:-2], BRAND: brand, SERIAL: serial} for uuid in uuids]
assert own_result in map(expected, own), f"this machine: {own_result}"

for (name, (_, difference)), case, result in zip(CASES.items(), cases, results, strict=True):
    wanted = expected(IDENTIFIERS | {BRAND: brand} | difference, case["hashes"])
    assert result == wanted, f"{name}: {result} is not {wanted}"
    print(f"{name}: {result.split(' ')[2]}")

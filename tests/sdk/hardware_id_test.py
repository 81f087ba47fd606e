"""Recomputes the hardware identifier from its sources, those of this machine and others, which hardware_sources.exe
puts in their place.

hardware_id_test.py PROGRAM [ARGUMENT...]
"""

import hashlib
import subprocess
import sys


def system_uuid(table):
    at = 8
    while at < len(table):
        kind, size = table[at : at + 2]
        if kind == 1 and size >= 25:
            uuid = table[at + 8 : at + 24]
            return b"" if uuid in (bytes(16), b"\xff" * 16) else uuid
        at = table.index(b"\0\0", at + size) + 2
    return b""


def machine_guid(value):
    value = value[: len(value) // 2 * 2]
    return b"" if len(value) > 256 else value[:-2] if value[-2:] == b"\0\0" else value


def until_zero(value):
    return value.split(b"\0")[0].strip(b" ")


def smbios(fill):
    return bytes([0, 3, 4, 0, 27, 0, 0, 0, 1, 25, 0, 0, 0, 0, 0, 0]) + bytes([fill] * 16) + bytes(3)


def disk(serial):
    return bytes(24) + bytes([40]) + bytes(15) + serial


# firmware table, registry value and its type, device descriptor, whether there is cryptography
ALL = [smbios(7), "abc\0".encode("utf-16-le"), disk(b"  SER 1 "), 1, 1]
CASES = {
    "all": {},
    "no firmware table": {0: b""},
    "UUID of all FF": {0: smbios(255)},
    "no terminator": {1: ALL[1][:6]},
    "longest": {1: b"g\0" * 128},
    "too long": {1: b"g\0" * 129},
    "only a terminator": {1: b"\0\0"},
    "odd byte count": {1: ALL[1][:5]},
    "another type": {3: 2},
    "no disk": {2: b""},
    "blank serial number": {2: disk(b"   ")},
    "tabs are no blanks": {2: disk(b" \tSER\t ")},
    "processor alone": {0: b"", 1: b"", 2: b""},
    "no cryptography": {4: 0},
}
cases = [[change.get(i, value) for i, value in enumerate(ALL)] for change in CASES.values()]
lines = ["{} {} {} {} {}\n".format(*(value.hex() or "-" for value in case[:3]), *case[3:]) for case in cases]
output = subprocess.run(sys.argv[1:], input="".join(lines), check=True, capture_output=True, text=True).stdout
machine, *results = output.splitlines()
*sources, brand = map(bytes.fromhex, machine.split(" "))
for name, case, result in zip(["this machine", *CASES], [[*sources, 1, 1], *cases], results, strict=True):
    firmware, guid, descriptor, guid_type, hashes = case
    serial = int.from_bytes(descriptor[24:28], "little")
    identifiers = {
        b"SMBIOS_UUID": system_uuid(firmware),
        b"MACHINE_GUID": machine_guid(guid) if guid_type == 1 else b"",
        b"CPU_BRAND": until_zero(brand),
        b"DISK0_SERIAL": until_zero(descriptor[serial:]) if serial else b"",
    }
    mixed = [label + b"\x1f" + value for label, value in identifiers.items() if value]
    digest = hashlib.sha256(b"".join(mixed)).hexdigest()
    line = f"|[INFO ] ComputeHardwareIdDigest: mixed {len(mixed)} identifier source(s)"
    expected = f"0 0 {digest.upper()} {digest}00 32{line}|[INFO ] ZoProtector_GetHardwareId: produced HID{line}"
    if not hashes:
        failed = 0x80000009 - 2**32
        expected = f"{failed} {failed} {'#' * 66} {'00' * 33} 0{line}{line}"
    assert result == expected, f"{name}: {result} is not {expected}"
    print(f"{name}: {len(mixed)} sources, {digest}")

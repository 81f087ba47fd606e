"""What the header of a kernel dump says about the bug check."""

import re
import struct

_NAMES = {
    0x0A: "IRQL_NOT_LESS_OR_EQUAL",
    0x19: "BAD_POOL_HEADER",
    0x1A: "MEMORY_MANAGEMENT",
    0x1E: "KMODE_EXCEPTION_NOT_HANDLED",
    0x24: "NTFS_FILE_SYSTEM",
    0x3B: "SYSTEM_SERVICE_EXCEPTION",
    0x50: "PAGE_FAULT_IN_NONPAGED_AREA",
    0x7E: "SYSTEM_THREAD_EXCEPTION_NOT_HANDLED",
    0x9F: "DRIVER_POWER_STATE_FAILURE",
    0xC2: "BAD_POOL_CALLER",
    0xC4: "DRIVER_VERIFIER_DETECTED_VIOLATION",
    0xD1: "DRIVER_IRQL_NOT_LESS_OR_EQUAL",
    0xEF: "CRITICAL_PROCESS_DIED",
    0x133: "DPC_WATCHDOG_VIOLATION",
    0x139: "KERNEL_SECURITY_CHECK_FAILURE",
}


def bug_check(path):
    """Code, name and the four parameters; None when the file is not a 64-bit kernel dump."""
    try:
        with open(path, "rb") as file:
            head = file.read(0x60)
    except OSError:
        return None
    if len(head) < 0x60 or head[:8] != b"PAGEDU64":
        return None
    code, _, *parameters = struct.unpack_from("<II4Q", head, 0x38)
    return code, _NAMES.get(code, ""), parameters


def codes_named(text):
    """The bug checks that a search for this text means: by part of the name, or by the code as in 0xD1."""
    named = [code for code, name in _NAMES.items() if text and text.upper() in name]
    return named + [int(text, 16)] if re.fullmatch("0[xX][0-9a-fA-F]{1,8}", text) else named

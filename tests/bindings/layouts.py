"""The public headers as data, for the checks of the bindings: records with their sizes and offsets as the compiler has
them, callbacks, functions and statuses. As a program it prints them as JSON."""

import json
import os
import re
import struct
import subprocess
import tempfile
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
HEADERS = [SOURCE / part for part in (
    "sdk/include/zoprotector_status.h", "sdk/include/zoprotector.h", "signer/include/zosigner.h",
    "crash_report/include/zocrashreport.h")]
CC = os.environ.get("ZO_CC", "x86_64-w64-mingw32-gcc")
OBJCOPY = os.environ.get("ZO_OBJCOPY", "x86_64-w64-mingw32-objcopy")


def text_of(headers):
    return re.sub(r"/\*.*?\*/", "", "".join(header.read_text() for header in headers), flags=re.DOTALL)


def declared():
    """{callback or function: [argument types]}, {status: number}."""
    text, calls = text_of(HEADERS), {}
    for name, arguments in re.findall(r"^typedef \w+ \(\*(\w+?)(?:Fn)?\)\((.*?)\);", text, re.MULTILINE | re.DOTALL):
        listed = [] if arguments == "void" else re.split(r",\s*", arguments)
        calls[name] = [re.sub(r"\s*\w+(\[\d+\])?$", lambda m: "*" if m[1] else "", one).strip() for one in listed]
    statuses = {name: int(value, 0) & 0xFFFFFFFF for name, value in re.findall(
        r"^#define (ZOP_OK|ZO(?:P|SIG)_E_\w+) \(\(int32_t\)(\w+)\)", text, re.MULTILINE)}
    return calls, statuses


def records_of(headers):
    """{record: (size, {field: (offset, size)})}, which the compiler writes into a table."""
    records = {name: re.findall(r"(\w+)(?:\[\w+\])?[,;]", body)
               for body, name in re.findall(r"typedef struct \w+ \{(.*?)\} (\w+);", text_of(headers), re.DOTALL)}
    numbers = []
    for name, fields in records.items():
        numbers.append(f"sizeof({name})")
        for field in fields:
            numbers += [f"offsetof({name}, {field})", f"sizeof((({name}*)0)->{field})"]
    with tempfile.TemporaryDirectory() as folder:
        source, table = Path(folder) / "table.c", Path(folder) / "table.bin"
        source.write_text("".join(f'#include "{header}"\n' for header in headers) +
                          f"const uint32_t table[] = {{{', '.join(numbers)}}};\n")
        subprocess.run([CC, "-std=c99", "-DZO_NO_IMPORT", f"-I{HEADERS[0].parent}", "-c", source, "-o", f"{source}.o"],
                       check=True)
        subprocess.run([OBJCOPY, "-O", "binary", "-j", ".rdata", f"{source}.o", table], check=True)
        values = iter(struct.unpack_from(f"<{len(numbers)}I", table.read_bytes()))
    return {name: (next(values), {field: (next(values), next(values)) for field in fields})
            for name, fields in records.items()}


def interface():
    calls, statuses = declared()
    return {"records": records_of(HEADERS), "calls": calls, "statuses": statuses}


if __name__ == "__main__":
    print(json.dumps(interface()))

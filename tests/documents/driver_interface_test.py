"""Compares docs/driver-interface.md with the headers that it describes, both ways: codes, inputs and outputs of every
command, offsets and sizes of every field, entry sizes, names of statuses. Prints each difference; exit code 1 for any."""

import pathlib
import re
import sys

ROOT = pathlib.Path(sys.argv[1]).resolve()
sys.path.insert(0, str(ROOT / "tests/bindings"))
import layouts  # noqa: E402

HEADERS = [ROOT / "sdk/include" / name for name in ("driver_records.h", "zoprotector.h", "zoprotector_status.h")]
ENTRY_SIZES = {"PROCESS_RULES": 1044, "FILE_RULES": 2344, "REGISTRY_RULES": 1028, "DLL_WHITELIST": 1044,
               "DRAIN_EVENTS": 562, "DRAIN_REGISTRY_EVENTS": 1076}


def command_facts(text, records):
    """{name: (code, input, output)} in the document's words, from the macros and the comments behind them."""
    result = {}
    for name, function, comment in re.findall(
            r"#define (ZOP_IOCTL_\w+) ZOP_IOCTL\((0x[0-9A-F]+)u\)(?:[ \t]*/\*(.*?)\*/)?", text):
        given = re.search(r"\bin (\w+)", comment)
        answered = re.search(r"\bout (list reply|drain reply|[.\w]+)", comment)
        output = "—"
        if answered and answered[1].endswith("reply"):
            output = f"{answered[1]}, 16 + n × {ENTRY_SIZES[re.sub('ZOP_IOCTL_(LIST_)?', '', name)]}"
        elif answered:
            record = next(r for r in records if r.endswith(answered[1].lstrip(".")))
            output = f"`{record}`, {records[record][0]}"
        result[name] = (f"0x{0x8000C000 + 4 * int(function, 16):08X}",
                        f"`{given[1]}`, {records[given[1]][0]}" if given else "—", output)
    return result


def differences(document, driver, _, statuses):
    numbers = {name: int(value, 0) for name, value in
               re.findall(r"#define (\w+) (0[xX][0-9A-Fa-f]+|\d+)u?\s", driver)}
    # Two records of the interface are the caller's own.
    records = {name: record for name, record in layouts.records_of(HEADERS[:2]).items()
               if f"}} {name};" in driver or name in ("ZopStats", "ZopSignaturePolicy")}
    commands = {name: (code, given, answered) for code, name, given, answered in re.findall(
        r"^\| (0x[0-9A-F]{8}) \| `(ZOP_IOCTL_\w+)` \| (.+?) \| (.+?) \|$", document, flags=re.M)}
    described = {}
    for name, size, body in re.findall(r"^### `(\w+)`, (\d+) bytes?\n(.*?)(?=^##|\Z)", document, flags=re.M | re.S):
        rows = re.findall(r"^\| (\d+) \| (\d+) \| `(\w+)` \|", body, flags=re.M)
        described[name] = (int(size), {field: (int(offset), int(length)) for offset, length, field in rows})
    sizes = {name: int(size) for name, size in re.findall(r"`(ZOP_\w+_SIZE)` (\d+)", document)}
    names = re.findall(r"`(ZOP_(?:E_\w+|OK))`", document)
    if not (len(records) > 9 and len(commands) > 30 and sizes and names):
        yield "too little was found to compare"
    for documented, coded in ((commands, command_facts(driver, records)), (described, records),
                              (sizes, {name: numbers.get(name) for name in sizes}),
                              (dict.fromkeys(names, True), {name: f"#define {name} " in statuses for name in names})):
        for name in documented.keys() | coded.keys():
            if documented.get(name) != coded.get(name):
                yield f"{name}: the document says {documented.get(name)}, the header {coded.get(name)}"


found = list(differences(*(path.read_text(encoding="utf-8") for path in (ROOT / "docs/driver-interface.md", *HEADERS))))
print(*found, f"{len(found)} differences", sep="\n")
sys.exit(bool(found))

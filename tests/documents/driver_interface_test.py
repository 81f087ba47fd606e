"""Compares docs/driver-interface.md with the headers that it describes, both ways: codes, inputs and outputs of every
command, offsets and sizes of every field, entry sizes, names of statuses. Prints each difference; exit code 1 for any."""

import pathlib
import re
import sys

SCALARS = {"uint8_t": 1, "uint16_t": 2, "uint32_t": 4}


def constants(text):
    """Plain numeric macros."""
    return {name: int(value, 0) for name, value in re.findall(r"#define (\w+) (0[xX][0-9A-Fa-f]+|\d+)u?\s", text)}


def structs(text, numbers):
    """{struct: (size, [(offset, size, field)])}; the structs read here have no padding."""
    result = {}
    text = re.sub(r"/\*.*?\*/", "", text, flags=re.S)
    for body, name in re.findall(r"typedef struct \w+ \{(.*?)\} (\w+);", text, flags=re.S):
        fields, offset = [], 0
        for kind, field, count in re.findall(r"(\w+) (\w+)(?:\[(\w+)\])?;", body):
            if kind not in SCALARS and kind not in result:
                break  # wchar_t and so on: not a record of the driver
            one = SCALARS[kind] if kind in SCALARS else result[kind][0]
            size = one * (1 if not count else int(count) if count.isdigit() else numbers[count])
            fields.append((offset, size, field))
            offset += size
        else:
            result[name] = (offset, fields)
    return result


def commands(text):
    """{name: (code, input, output)} from the macros and the comments behind them."""
    result = {}
    for name, function, comment in re.findall(
            r"#define (ZOP_IOCTL_\w+) ZOP_IOCTL\((0x[0-9A-F]+)u\)(?:[ \t]*/\*(.*?)\*/)?", text):
        given = re.search(r"\bin (\w+)", comment)
        answered = re.search(r"\bout (list reply|drain reply|[.\w]+)", comment)
        result[name] = (0x8000C000 + 4 * int(function, 16), given and given[1], answered and answered[1])
    return result


class Checker:
    def __init__(self):
        self.checks = 0
        self.failures = []

    def same(self, what, document, header):
        self.checks += 1
        if document != header:
            self.failures.append(f"{what}: the document says {document}, the header {header}")


def check_commands(check, document, header, records):
    documented = {}
    for code, name, given, answered in re.findall(
            r"^\| (0x[0-9A-F]{8}) \| `(ZOP_IOCTL_\w+)` \| (.+?) \| (.+?) \|$", document, flags=re.M):
        documented[name] = (int(code, 16), given, answered)
    check.same("commands", sorted(documented), sorted(header))
    entry_sizes = {"PROCESS_RULES": 1044, "FILE_RULES": 2344, "REGISTRY_RULES": 1028, "DLL_WHITELIST": 1044,
                   "DRAIN_EVENTS": 562, "DRAIN_REGISTRY_EVENTS": 1076}
    for name, (code, given, answered) in header.items():
        if name not in documented:
            continue
        doc_code, doc_given, doc_answered = documented[name]
        check.same(f"code of {name}", hex(doc_code), hex(code))
        check.same(f"input of {name}", doc_given, f"`{given}`, {records[given][0]}" if given else "—")
        if answered and answered.endswith("reply"):
            size = entry_sizes[re.sub("ZOP_IOCTL_(LIST_)?", "", name)]
            expected = f"{answered}, 16 + n × {size}"
        elif answered:
            record = next(r for r in records if r.endswith(answered.lstrip(".")))
            expected = f"`{record}`, {records[record][0]}"
        else:
            expected = "—"
        check.same(f"output of {name}", doc_answered, expected)


def check_records(check, document, records):
    sections = re.findall(r"^### `(\w+)`, (\d+) bytes?\n(.*?)(?=^##|\Z)", document, flags=re.M | re.S)
    check.same("records", sorted(name for name, _, _ in sections), sorted(records))
    for name, size, body in sections:
        if name not in records:
            continue
        rows = re.findall(r"^\| (\d+) \| (\d+) \| `(\w+)` \|", body, flags=re.M)
        check.same(f"size of {name}", int(size), records[name][0])
        check.same(f"fields of {name}", [(int(o), int(s), f) for o, s, f in rows], records[name][1])


def main():
    root = pathlib.Path(sys.argv[1])
    document = (root / "docs/driver-interface.md").read_text(encoding="utf-8")
    driver = (root / "sdk/include/driver_records.h").read_text(encoding="utf-8")
    public = (root / "sdk/include/zoprotector.h").read_text(encoding="utf-8")
    statuses = (root / "sdk/include/zoprotector_status.h").read_text(encoding="utf-8")

    numbers = constants(driver)
    records = structs(driver, numbers)
    shared = structs(public, numbers)  # two records of the interface are the caller's own
    records.update({name: shared[name] for name in ("ZopStats", "ZopSignaturePolicy")})

    check = Checker()
    check_commands(check, document, commands(driver), records)
    check_records(check, document, records)
    for name, size in re.findall(r"`(ZOP_\w+_SIZE)` (\d+)", document):
        check.same(name, int(size), numbers.get(name))
    for name in re.findall(r"`(ZOP_(?:E_\w+|OK))`", document):
        check.same(f"{name} is a status", True, f"#define {name} " in statuses)

    for failure in check.failures:
        print(failure)
    print(f"{check.checks} comparisons, {len(check.failures)} differences")
    return 1 if check.failures or check.checks < 150 else 0


if __name__ == "__main__":
    sys.exit(main())

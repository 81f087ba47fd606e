"""The documents against the code that they describe, as the compiler of the Windows build has it."""

import pathlib
import re
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/bindings"))
import layouts  # noqa: E402

PAGE = ROOT / "docs/driver-interface.md"
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


LITERAL = re.compile(r'"((?:[^"\\]|\\.)*)"')


def arguments(text, start):
    """The arguments of the call whose parenthesis opens before start, with strings of several lines put together."""
    depth, begin, result, at = 0, start, [], start
    while depth >= 0:
        if literal := LITERAL.match(text, at):
            at = literal.end()
            continue
        depth += {"(": 1, "{": 1, ")": -1, "}": -1}.get(text[at], 0)
        if depth < 0 or (depth == 0 and text[at] == ","):
            result.append(text[begin:at])
            begin = at + 1
        at += 1
    return [re.sub(r'"\s+"', "", argument.strip()) for argument in result]


def findings():
    """(subject, words that the finding always has) of each note and fault."""
    for path in sorted((ROOT / "tools/zoctl/driver").glob("*_findings.cpp")):
        text = path.read_text(encoding="utf-8")
        for call in re.finditer(r"\b(?:Wrong|Note)\(", text):
            subject, said, *_ = arguments(text, call.end())
            named = re.findall(r'kSubject = "(.*?)"', text[:call.start()])
            for literal in LITERAL.findall(said):
                for words in re.split(r"\{[^}]*\}", literal.replace('\\"', '"')):
                    words = words.strip(" :;,\"(")
                    if len(words) > 6:
                        yield LITERAL.sub(r"\1", subject).replace("kSubject", named[-1] if named else ""), words


def missing(page, table):
    rows = [row for row in page.splitlines() if row.startswith("|")]
    found = set(findings())
    if len(found) < 40:
        yield f"only {len(found)} findings were found in the sources"
    for subject, words in found:
        if not any(words in row and (subject == "subject" or subject in row.split("|")[1]) for row in rows):
            yield f"{subject}: {words}"
    for error, value, name, said in re.findall(r"^\| (\d+) \| (0x\w+) (\w+) \| (.*?\.) ", page, flags=re.MULTILINE):
        in_table = re.search(rf'\{{{value}, Subject::(?:kAny|kService), "{name}",\s+"{re.escape(said)}"', table)
        if int(value, 16) != 0x80070000 + int(error) or not in_table:
            yield f"status {error}: {value} {name} {said}"
    for name in set(re.findall(r"ZO(?:P|SIG)_E_\w+", page)):
        if f'"{name}"' not in table:
            yield name


class Documents(unittest.TestCase):
    maxDiff = None

    def test_driver_interface_says_of_each_command_field_size_and_status_what_the_headers_do(self):
        document, driver, _, statuses = (path.read_text(encoding="utf-8") for path in (PAGE, *HEADERS))
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
        self.assertTrue(len(records) > 9 and len(commands) > 30 and sizes and names, "too little was found to compare")
        self.assertEqual(commands, command_facts(driver, records))
        self.assertEqual(described, records)
        self.assertEqual(sizes, {name: numbers.get(name) for name in sizes})
        self.assertEqual([name for name in names if f"#define {name} " not in statuses], [])

    def test_troubleshooting_has_each_finding_of_doctor_and_the_statuses_as_zoctl_says_them(self):
        texts = ((ROOT / name).read_text(encoding="utf-8") for name in (
            "docs/troubleshooting.md", "tools/zoctl/frame/status_table.cpp"))
        self.assertEqual(sorted(missing(*texts)), [])

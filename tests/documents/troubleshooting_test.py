"""Compares docs/troubleshooting.md with zoctl's sources: each note and fault that doctor can report is in the page with
its subject, and each status has the number, name and meaning of the status table. Prints what is missing; exit code 1
for any."""

import pathlib
import re
import sys

ROOT = pathlib.Path(sys.argv[1])
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


def read(name):
    return (ROOT / name).read_text(encoding="utf-8")


wrong = sorted(missing(read("docs/troubleshooting.md"), read("tools/zoctl/frame/status_table.cpp")))
print(*wrong, f"{len(wrong)} missing or wrong", sep="\n")
sys.exit(bool(wrong))

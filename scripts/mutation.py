"""Faults that a program can have: finds the places in a C++ source where one small change makes another program that
still compiles, most of the time. Text in, text out; what is done with the changed source is the caller's business."""

import re
from dataclasses import dataclass


@dataclass(frozen=True)
class Mutant:
    """One change of one line. `line` counts from 0."""

    file: str
    line: int
    before: str
    after: str
    kind: str

    def key(self):
        """What names the mutant in the list of known ones: line numbers move, the text of a line rarely does."""
        return f"{self.file}: {self.before.strip()} => {self.after.strip()}"


# Kind, pattern and replacement. The patterns want blanks around an operator, which clang-format guarantees; template
# brackets have none.
_SUBSTITUTIONS = [
    ("comparison", r" == ", " != "),
    ("comparison", r" != ", " == "),
    ("boundary", r" < ", " <= "),
    ("boundary", r" <= ", " < "),
    ("boundary", r" > ", " >= "),
    ("boundary", r" >= ", " > "),
    ("logic", r" && ", " || "),
    ("logic", r" \|\| ", " && "),
    ("arithmetic", r"(?<=[\w)\]]) \+ (?=[\w(])", " - "),
    ("arithmetic", r"(?<=[\w)\]]) - (?=[\w(])", " + "),
    ("bits", r"(?<=[\w)\]]) \| (?=[\w(])", " & "),
    ("bits", r"(?<=[\w)\]]) & (?=[\w(])", " | "),
    ("negation", r"(?<=[ (])!(?=[\w:]+[(.)\-])", ""),
    ("condition", r"\bif \((?!const|auto|!|\w+[^;()]*;)(?=[\w:.\->]+(?:\(\))?\))", "if (!"),
    ("truth", r"\btrue\b", "false"),
    ("truth", r"\bfalse\b", "true"),
    ("number", r"(?<![\w.\"'])\d+(?![\w.'])", None),
    ("number", r"\b0x[0-9A-Fa-f]+(?=[uUlL]*\b)", None),
    ("status", r"\bZOP_E_(?:NOT_FOUND|ACCESS_DENIED|INVALID_ARG|DRIVER_NOT_FOUND|NOT_INITIALIZED)\b", "ZOP_E_FAILED"),
    ("status", r"\bZOSIG_E_(?:NO_KEY|TAMPERED|VERIFY_FAILED)\b", "ZOSIG_E_BAD_MANIFEST"),
]
_COMPILED = [(kind, re.compile(pattern), to) for kind, pattern, to in _SUBSTITUTIONS]

# A whole statement in one line that is no declaration, return or jump: it may be left out. Setting memory aside ahead
# of its use is not among them: without it the same happens.
_STATEMENT = re.compile(r"^\s+(?!return\b|break\b|continue\b|using\b|case\b|else\b|throw\b|friend\b"
                        r"|static_assert\b|goto\b|[\w.\->]+reserve\()"
                        r"(?:[\w:.\->*\[\]()]+\([^;{}]*\)|[\w.\->\[\]*]+ (?:=|\+=|-=|\|=) [^;{}]+"
                        r"|\+\+[\w.\->]+|--[\w.\->]+);\s*$")
_LITERAL = re.compile(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)*\'')
_SKIPPED = re.compile(r"^\s*(?://|\*|#|static_assert\b|template\b|using\b|namespace\b|public:|private:|\[\[)"
                      r"|constexpr char|operator=")


def _mask(line):
    """The line with its comments and literals blanked, at the same length: operators in them are no code."""
    masked = _LITERAL.sub(lambda match: match[0][0] + " " * (len(match[0]) - 2) + match[0][-1], line)
    comment = masked.find("//")
    return masked if comment < 0 else masked[:comment] + " " * (len(masked) - comment)


def _next_number(text):
    """The number after this one, written alike."""
    return f"0x{int(text, 16) + 1:0{len(text) - 2}X}" if text.startswith("0x") else str(int(text) + 1)


def _replacement(kind, match, to):
    if kind == "condition":
        return to
    return _next_number(match[0]) if to is None else to


def _change_message(line, match):
    """One letter of a message changed: callers compare messages letter by letter."""
    letter = re.search(r"[a-z]", match[0][1:-1].replace("\\n", "  ").replace("{", " "))
    if letter is None:
        return None
    at = match.start() + 1 + letter.start()
    return line[:at] + ("q" if line[at] != "q" else "z") + line[at + 1:]


def mutants_of(file, text):
    """All mutants of the source `text`, in the order of its lines."""
    found = []
    block_comment = False
    for number, line in enumerate(text.split("\n")):
        if "/*" in line:
            block_comment = "*/" not in line
            continue
        if block_comment:
            block_comment = "*/" not in line
            continue
        if _SKIPPED.search(line) or not line.strip():
            continue
        masked = _mask(line)
        for kind, pattern, to in _COMPILED:
            for match in pattern.finditer(masked):
                changed = line[:match.start()] + _replacement(kind, match, to) + line[match.end():]
                found.append(Mutant(file, number, line, changed, kind))
        if _STATEMENT.match(masked) and masked.count("(") == masked.count(")"):
            found.append(Mutant(file, number, line, re.match(r"\s*", line)[0] + ";", "left out"))
        for match in _LITERAL.finditer(line):
            if " " in match[0] and len(match[0]) > 12 and match.start() < len(masked.rstrip()):
                changed = _change_message(line, match)
                if changed is not None:
                    found.append(Mutant(file, number, line, changed, "message"))
    return found


def apply(text, mutant):
    """The source with the mutant in it."""
    lines = text.split("\n")
    if lines[mutant.line] != mutant.before:
        raise ValueError(f"{mutant.file}: line {mutant.line + 1} is not what it was")
    lines[mutant.line] = mutant.after
    return "\n".join(lines)

"""header_filter.py FILE: writes a public header as Doxygen wants it, which runs this as a filter. The headers are
manuals with plain comments, and stay so. Here each comment becomes a documentation comment, its tables become tables,
its sections become topics, and each of the declarations that share a comment gets it."""

import html
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
SECTION = re.compile(r"/\* ---- (.+?) ---- \*/\n")
COMMENT = re.compile(r"/\*(.*?)\*/", re.S)
POINTER_TYPE = re.compile(r"typedef int32_t \(\*(Zo\w+)Fn\)\(")
DECLARATION = re.compile(r"(?:ZO_API\s[^;(]*?\b(Zo\w+)\(|#define (ZO\w+)[ (])")
ROW = re.compile(r"(\S.*?) {2,}(\S.*)")
INTERNAL = re.compile(r"^namespace detail \{\n.*?^\}  // namespace detail\n"
                      r"|^template <>\nstruct std::.*?;\n", re.S | re.M)
END_OF_DECLARATIONS = ("#ifdef __cplusplus\n}", "}  // namespace zo")


def known_names():
    """What a description can link to: functions and constants of the C headers."""
    headers = sorted(ROOT.glob("*/include/zo*.h"))
    return {name for header in headers if "simulator" not in header.parts
            for pair in DECLARATION.findall(header.read_text(encoding="utf-8")) for name in pair if name}


KNOWN = known_names()


def text(words):
    """Words as they are, without meaning anything to Doxygen; known names become links."""
    words = re.sub(r"([\\@<>&#%$])", r"\\\1", words)
    return re.sub(r"\bZ[Oo]\w+\b", lambda name: f"#{name[0]}" if name[0] in KNOWN else name[0], words)


def table(lines):
    """An HTML table from a block of "name  description" rows, or None when the block is something else."""
    margin = min(len(line) - len(line.lstrip()) for line in lines)
    rows = []
    for line in (line[margin:] for line in lines):
        if not line.startswith(" "):
            parts = ROW.fullmatch(line)
            rows.append([parts[1], parts[2]] if parts else [line])
        elif rows and not ROW.search(line):
            rows[-1][-1] += " " + line.strip()
        else:
            return None
    if sum(len(row) == 2 for row in rows) * 2 < len(rows):
        return None
    cells = ("".join(f"<td>{text(words)}</td>" for words in row) if len(row) == 2
             else f'<td colspan="2">{text(row[0])}</td>' for row in rows)
    return ["<table>", *(f"<tr>{row}</tr>" for row in cells), "</table>"]


def preformatted(lines, depth):
    """A block whose line breaks count: code from four blanks on, else a list of messages or the like."""
    margin = min(len(line) - len(line.lstrip()) for line in lines if line)
    shown = [line[margin:] for line in lines]
    if depth >= 4:
        return ["@code{.c}", *shown, "@endcode"]
    return ["<pre>", *(html.escape(line, quote=False).replace("\\", "\\\\").replace("@", "\\@") for line in shown),
            "</pre>"]


def blocks(lines):
    """Runs of lines that belong together: a paragraph, a list, or indented lines with the blank ones between them."""
    block = []
    for at, line in enumerate(lines):
        following = next((later for later in lines[at + 1:] if later), "")
        keeps = goes_on(block[0], line) if block and line else block and goes_on_after_blank(block[0], following)
        if block and not keeps:
            yield block
            block = []
        if line or block:
            block.append(line)
    if block:
        yield block


def goes_on(first, line):
    """Whether a line belongs to the block that began with another."""
    if first.startswith("- "):
        return line.startswith(("- ", "  "))
    return line.startswith("  ") if first.startswith("  ") else not line.startswith(("- ", "  "))


def goes_on_after_blank(first, line):
    """The same across a blank line. Code ends a table, which is indented less."""
    return first.startswith("  ") and line.startswith("  ") and first.startswith("    ") == line.startswith("    ")


def render(lines):
    """The lines of a comment in Doxygen's own language."""
    result, found = [], list(blocks(lines))
    for block, before, following in zip(found, [[""], *found], [*found[1:], [""]]):
        inside = [line[2:] for line in block]
        if not block[0].startswith("  "):
            heading = is_heading(block) and following[0].startswith("  ")
            result += [f"@par {text(block[0])}"] if heading else [*map(text, block), ""]
            continue
        depth = min(len(line) - len(line.lstrip()) for line in block if line)
        if is_heading(before) and depth == 2:
            result += render(inside)
        elif any(line.startswith("- ") for line in inside):
            result += map(text, inside)
        else:
            result += ("" not in block and depth < 4 and table(block)) or preformatted(block, depth)
        result.append("")
    return result[:-1] if result and not result[-1] else result


def is_heading(block):
    return len(block) == 1 and not block[0].startswith(" ") and block[0][-1:] not in ".:;,"


def body(comment):
    """The comment's lines without their frame, the left margin taken off."""
    first, *others = comment.removeprefix(" ").rstrip().split("\n")
    others = [re.sub(r"^ *\*? ?", "", line, count=1) if re.match(r" *\*", line) else line.strip() for line in others]
    return [line.rstrip() for line in (first, *others)]


def comment(lines, opening="/**"):
    return f"{opening} {lines[0]} */" if len(lines) == 1 else "\n".join((opening, *lines, "*/"))


class Header:
    def __init__(self, path):
        self.path = pathlib.Path(path)
        self.source = INTERNAL.sub("", self.path.read_text(encoding="utf-8"))
        self.cpp = self.path.suffix == ".hpp"
        self.out = []
        self.described = False  # the first comment is about the file
        self.topic = None   # the open topic
        self.title = None   # a section's title, until it is clear what it begins with
        self.shared = None  # the comment of this paragraph of declarations, and the name that it was written for

    def close_topic(self):
        if self.topic:
            self.out.append("/** @} */\n")
        self.topic = None

    def open_topic(self, title, description=()):
        self.close_topic()
        self.topic = f"{self.path.stem}_{self.path.suffix[1:]}_{re.sub('[^a-z]+', '_', title.lower())}"
        name = f"{self.path.stem}: {title}" + (" (C++)" if self.cpp else "")
        self.out.append(comment([f"@defgroup {self.topic} {name}", *description, "@{"]) + "\n")
        self.title = None

    def filtered(self):
        at = 0
        while at < len(self.source):
            rest = self.source[at:]
            section, plain = SECTION.match(rest), COMMENT.match(rest)
            starts_line = at == 0 or self.source[at - 1] == "\n"
            if section:
                self.title = section[1]
                self.close_topic()
            elif plain:
                self.convert(plain[1], at, rest[plain.end():])
            elif starts_line:
                self.begin_line(rest)
            at += len((section or plain or re.match(r".", rest, re.S))[0])
            if not (section or plain):
                self.out.append(rest[0])
        return "".join(self.out)

    def begin_line(self, rest):
        if rest.startswith(END_OF_DECLARATIONS):
            self.close_topic()
        if rest.startswith("\n"):
            self.shared = None
            return
        if rest.startswith('extern "C" {') and not SECTION.search(self.source):
            self.title = "Functions and records"
        if self.title and not rest.startswith(("#", " ", "namespace", "extern", "}")):
            self.open_topic(self.title)
        pointer, declared = POINTER_TYPE.match(rest), DECLARATION.match(rest)
        if pointer:
            self.out.append(f"/** The type of a pointer to #{pointer[1]}. */\n")
        elif declared and self.shared and "/*" not in rest.split("\n", 1)[0]:
            lines, name = self.shared
            if name and name != (declared[1] or declared[2]):
                together = ["", f"(Described together with #{name}.)"] if declared[1] else []
                self.out.append(comment([*lines, *together]) + "\n")

    def convert(self, words, at, rest):
        lines = body(words)
        before = self.source[self.source.rfind("\n", 0, at) + 1:at]
        if before.strip():
            self.out.append(comment(render(lines), "/**<"))
        elif before and lines[-1][-1] != ".":
            pass  # a heading between the members of a class
        elif not self.described:
            self.described = True
            self.out.append(comment([f"@file {self.path.name}", *render(lines)]))
        elif POINTER_TYPE.match(rest.lstrip("\n")):
            self.title = None
            self.open_topic("Function-pointer types", render(lines))
        else:
            if self.title:
                self.open_topic(self.title)
            declared = DECLARATION.match(rest.lstrip("\n"))
            self.shared = (render(lines), declared and (declared[1] or declared[2]))
            self.out.append(comment(self.shared[0]))


if __name__ == "__main__":
    sys.stdout.reconfigure(encoding="utf-8", newline="\n")
    sys.stdout.write(Header(sys.argv[1]).filtered())

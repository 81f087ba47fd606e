"""Reads an HTML page and writes its text, a line for each row, heading and paragraph, for people at a terminal."""

import html.parser
import sys

HIDDEN = {"style", "title", "form"}
LINE_ENDS = {"header", "tr", "p", "h1", "h2", "pre", "section"}


class Text(html.parser.HTMLParser):
    def __init__(self):
        super().__init__()
        self.text, self.hidden = [], False

    def handle_starttag(self, tag, attributes):
        self.hidden = self.hidden or tag in HIDDEN

    def handle_endtag(self, tag):
        if tag in HIDDEN:
            self.hidden = False
        elif tag == "th":
            self.text.append(": ")
        elif tag in ("a", "td"):
            self.text.append(" ")
        elif tag in LINE_ENDS:
            self.text.append("\n")

    def handle_data(self, data):
        if not self.hidden:
            self.text.append(data)


page = Text()
page.feed(sys.stdin.read())
print("\n".join(line.rstrip() for line in "".join(page.text).splitlines() if line.strip()))

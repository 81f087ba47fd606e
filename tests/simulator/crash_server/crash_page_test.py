"""The crash server's pages, parsed as a browser parses them."""

import base64
import hashlib
import html.parser
import unittest
import urllib.parse

from served import Server, query_fields, report_fields

import make_dump
import pages

ATTACK = "<script>document.title='owned'</script><img src=x onerror=\"document.title='owned'\">"
STACK = ("Kernel build 19045 (4 processors) x64\nSystem up time: 0 days 2:00:00\nLoading kernel modules\n...\n\n"
         "BugCheck D1, {10, 2, 0, fffff80604001a2b}\n\nProbably caused by : ZoProtector\n")


class Parsed(html.parser.HTMLParser):
    def __init__(self, page):
        super().__init__()
        self.elements, self.attributes, self.text, self.style = set(), set(), "", ""
        self.feed(page)

    def handle_starttag(self, tag, attrs):
        self.elements.add(tag)
        self.attributes.update(name for name, _ in attrs)

    def handle_data(self, data):
        if self.cdata_elem == "style":
            self.style += data
        else:
            self.text += data


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = cls.enterClassContext(Server())
        cls.report("3f9d2c7be01855aa41d0cc97e6b2f348", 4, STACK, "--bugcheck", "0xD1", "--parameters", "0x10", "2", "0",
                   "0xfffff80604001a2b")
        cls.report("b7714e09d2a6f3c85e1b90ad6c43f217", 2, STACK.replace("D1, {10", "1E, {28"))
        cls.server.post(query_fields(CrashSignature="58c0e6aa94d1f7233b0d5e81cf9762b4"))
        cls.attack = cls.report("e05ad81f6b3c94d2870b1fe36cd4a95b", 1, ATTACK, "--bugcheck", "0x50", AppName=ATTACK)

    @classmethod
    def report(cls, signature, seen, stack, *arguments, **changes):
        for _ in range(seen):
            cls.server.post(query_fields(CrashSignature=signature))
        dump = make_dump.make_dump(make_dump.parse_arguments(["-", *arguments, "--size", "131072"]))
        return cls.server.post(report_fields(dump, stack.encode(), CrashSignature=signature, **changes))[1].split()[-1]

    def get(self, path):
        """The parsed page, and what the server allows it to load and run."""
        _, page, response = self.server.request("GET", path)
        return Parsed(page), response.getheader("Content-Security-Policy").split("; ")

    def test_an_attack_is_text(self):
        for path in (f"/report/{self.attack}", "/crash/e05ad81f6b3c94d2870b1fe36cd4a95b",
                     "/?q=" + urllib.parse.quote("zzz" + ATTACK)):
            page, policy = self.get(path)
            self.assertIn(ATTACK, page.text)
            self.assertFalse(page.elements & {"script", "img", "iframe", "object", "base"})
            self.assertIn("form-action 'self'", policy)  # the search's
            self.assertFalse([name for name in page.attributes if name.startswith("on") or name == "style"])

    def test_the_policy_allows_the_pages_own_style_and_nothing_else(self):
        for path in ("/", f"/report/{self.attack}", "/crash/e05ad81f6b3c94d2870b1fe36cd4a95b", "/missing"):
            page, policy = self.get(path)
            digest = base64.b64encode(hashlib.sha256(page.style.encode()).digest()).decode()
            self.assertIn(f"style-src 'sha256-{digest}'", policy, path)
            self.assertIn("default-src 'none'", policy)
            self.assertFalse([part for part in policy if part.startswith(("script-src", "img-src"))])

    def test_the_list_counts_and_begins_with_the_last_seen(self):
        page, _ = self.get("/")
        self.assertIn("4 different crashes, seen 8 times", page.text)
        self.assertLess(page.text.index("e05ad81f"), page.text.index("3f9d2c7b"))

    def test_search_finds_by_each_of_its_words(self):
        first, second, asked, attack = "3f9d2c7b", "b7714e09", "58c0e6aa", "e05ad81f"
        for name, search, expected in [
                ("part of a signature", "9D2C7BE", {first}), ("crash without a report", asked, {asked}),
                ("bug check's name", "driver_irql", {first}), ("bug check's code", "0xd1", {first}),
                ("driver in the stack", "caused by : ZoProtector", {first, second}),
                ("program", "document.title", {attack}), ("wildcards are letters", "3f9d%f348", set()),
                ("nothing", "", {first, second, asked, attack})]:
            with self.subTest(name):
                page, _ = self.get("/?q=" + urllib.parse.quote(search))
                self.assertEqual({mark for mark in (first, second, asked, attack) if f"\n{mark}" in page.text}, expected)

    def test_pages_show_each_crash_once(self):
        with Server() as server:
            signatures = [f"{number:032x}" for number in range(pages.PAGE_ROWS + 2)]
            for signature in signatures:
                server.post(query_fields(CrashSignature=signature))
            shown = [Parsed(server.request("GET", f"/?page={page}")[1]).text for page in ("1", "2", "99", "-1")]
        for signature in signatures:
            self.assertEqual([text.count("\n" + signature) for text in shown[:2]].count(1), 1, signature)
        self.assertIn("Page 2 of 2", shown[1])
        self.assertEqual(shown[2:], [shown[1], shown[0]], "a page beyond the last is the last, any other the first")


if __name__ == "__main__":
    unittest.main()

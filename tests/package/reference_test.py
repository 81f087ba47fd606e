"""The API pages: Doxygen has nothing to complain of in the headers, and each exported function has its entry."""

import re
import shutil
import tempfile
import unittest
from pathlib import Path
from xml.etree import ElementTree

from build_facts import BUILD, EXPORTING_HEADERS, run

DOXYFILE = BUILD / "reference/Doxyfile"


@unittest.skipUnless(shutil.which("doxygen"), "doxygen is not installed: scripts/setup --reference")
class Reference(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        settings = DOXYFILE.read_text().replace(str(DOXYFILE.parent), str(cls.folder))
        cls.doxyfile = cls.folder / "Doxyfile"
        cls.doxyfile.write_text(settings)
        cls.said = run("doxygen", cls.doxyfile)  # fails for any warning

    def test_doxygen_warns_of_nothing(self):
        self.assertEqual(self.said, "")

    def test_a_warning_is_a_failure(self):
        wrong = self.folder / "wrong.dox"
        wrong.write_text("/** @file\n * @nonsense */\n")
        settings = self.folder / "Wrong"
        settings.write_text(f'{self.doxyfile.read_text()}\nINPUT = "{wrong}"\nGENERATE_HTML = NO\nGENERATE_TAGFILE =\n')
        code, said = run("doxygen", settings, check=False)
        self.assertNotEqual(code, 0)
        self.assertIn("nonsense", said)

    def test_each_function_has_a_described_entry(self):
        tags = ElementTree.parse(self.folder / "zoprotectorlib.tag")
        entries = {member.findtext("name"): member for group in tags.iterfind("compound[@kind='group']")
                   for member in group.iterfind("member[@kind='function']")}
        declared = [name for header in EXPORTING_HEADERS
                    for name in re.findall(r"^ZO_API\s[^;(]*?\b(Zo\w+)\(", header.read_text(), re.MULTILINE)]
        self.assertEqual(len(declared), 72)
        undescribed = [name for name in declared if not self.description(entries.get(name))]
        self.assertEqual(undescribed, [])

    def description(self, entry):
        """The text under the function's own heading, as its page has it."""
        if entry is None:
            return ""
        page = (self.folder / "html" / entry.findtext("anchorfile")).read_text(encoding="utf-8")
        item = page.split(f'<a id="{entry.findtext("anchor")}"', 1)[1]
        described = re.search(r'<div class="memdoc">(.*?)\n</div>\n</div>', item, re.DOTALL)
        return re.sub(r"<[^>]+>", "", described[1]).strip()


if __name__ == "__main__":
    unittest.main()

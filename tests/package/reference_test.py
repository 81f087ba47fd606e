"""The API pages: Doxygen has nothing to complain of in the headers, and each exported function has its entry."""

import re
import shutil
import tempfile
import unittest
from pathlib import Path
from xml.etree import ElementTree

from build_facts import BUILD, EXPORTING_HEADERS, functions_of, run

DOXYFILE = BUILD / "reference/Doxyfile"


@unittest.skipUnless(shutil.which("doxygen"), "doxygen is not installed: scripts/setup --reference")
class Reference(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        (cls.folder / "Doxyfile").write_text(DOXYFILE.read_text().replace(str(DOXYFILE.parent), str(cls.folder)))
        if warnings := run("doxygen", cls.folder / "Doxyfile"):
            raise AssertionError(warnings)

    def test_each_function_has_a_described_entry(self):
        tags = ElementTree.parse(self.folder / "zoprotectorlib.tag")
        entries = {member.findtext("name"): member for group in tags.iterfind("compound[@kind='group']")
                   for member in group.iterfind("member[@kind='function']")}
        undescribed = [name for name in functions_of(*EXPORTING_HEADERS) if not self.description(entries.get(name))]
        self.assertEqual(undescribed, [])

    def description(self, entry):
        """The text under the function's own heading, as its page has it."""
        if entry is None:
            return ""
        page = (self.folder / "html" / entry.findtext("anchorfile")).read_text(encoding="utf-8")
        item = page.split(f'<a id="{entry.findtext("anchor")}"', 1)[1]
        described = re.search(r'<div class="memdoc">(.*?)\n</div>\n</div>', item, re.DOTALL)
        return re.sub(r"<[^>]+>", "", described[1]).strip()

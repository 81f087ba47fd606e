"""The web pages: no script, nothing from elsewhere. The templates escape every value by themselves."""

import base64
import dataclasses
import hashlib
import json
import pathlib
import re

import jinja2
import markupsafe

import kernel_dump

PAGE_ROWS = 25

_HERE = pathlib.Path(__file__).parent
_STYLE = (_HERE / "page.css").read_text()
SECURITY_POLICY = ("default-src 'none'; style-src 'sha256-"
                   + base64.b64encode(hashlib.sha256(_STYLE.encode()).digest()).decode()
                   + "'; frame-ancestors 'none'; base-uri 'none'; form-action 'self'")

_templates = jinja2.Environment(loader=jinja2.FileSystemLoader(_HERE / "templates"), autoescape=True, trim_blocks=True,
                                lstrip_blocks=True, undefined=jinja2.StrictUndefined)
_templates.filters["seconds"] = lambda time: time[:19]
_templates.globals.update(style=markupsafe.Markup(_STYLE), search="")


@dataclasses.dataclass
class Title:
    """What a crash is called: bug check and the module that the debugger blames, where a report has them."""
    number: int
    code: int | None
    name: str
    blamed: str


@dataclasses.dataclass
class Pages:
    number: int
    last: int

    @classmethod
    def of(cls, rows, wanted):
        """wanted is what the address has; anything but a number of a page means the nearest one."""
        last = max(1, -(-rows // PAGE_ROWS))
        number = int(wanted) if re.fullmatch("[0-9]{1,9}", wanted) else 1
        return cls(min(max(number, 1), last), last)

    @property
    def first_row(self):
        return (self.number - 1) * PAGE_ROWS


def _render(name, **values):
    return _templates.get_template(name).render(**values)


def _stack(report):
    return report["stack"].decode("cp1252", "replace").strip()


def _title(store, number):
    report = store.report(number) if number else None
    if report is None:
        return None
    code, name, _ = kernel_dump.bug_check(store.dump_path(number)) or (None, "", None)
    blamed = re.search(r"^Probably caused by : (\S{1,64})", _stack(report), re.MULTILINE)
    return Title(number, code, name, blamed.group(1) if blamed else "")


def index(store, url, search, page):
    codes = kernel_dump.codes_named(search)
    total = store.total(search, codes)
    pages = Pages.of(total["crashes"], page)
    crashes = [dict(row, title=_title(store, row["newest"]))
               for row in store.crashes(search, codes, PAGE_ROWS, pages.first_row)]
    return _render("index.html", crashes=crashes, total=total, pages=pages, search=search, url=url)


def crash(store, signature, page):
    summary = store.crash(signature)
    if summary is None:
        return None
    pages = Pages.of(summary["reports"], page)
    reports = [dict(row, fields=json.loads(row["fields"]))
               for row in store.reports(signature, PAGE_ROWS, pages.first_row)]
    return _render("crash.html", crash=dict(summary, title=_title(store, summary["newest"])), reports=reports,
                   pages=pages)


def report(store, number):
    found = store.report(number)
    if found is None:
        return None
    _, _, parameters = kernel_dump.bug_check(store.dump_path(number)) or (None, None, ())
    return _render("report.html", title=_title(store, number), parameters=parameters,
                   report=dict(found, fields=json.loads(found["fields"]), stack=_stack(found)))


def not_found():
    return _render("not_found.html")

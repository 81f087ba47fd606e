"""The web page, rendered here whole: no script, nothing from elsewhere. Every value goes through escape()."""

import base64
import hashlib
import html
import json
import pathlib
import re

import kernel_dump

_STYLE = (pathlib.Path(__file__).parent / "page.css").read_text()
SECURITY_POLICY = ("default-src 'none'; style-src 'sha256-"
                   + base64.b64encode(hashlib.sha256(_STYLE.encode()).digest()).decode()
                   + "'; frame-ancestors 'none'; base-uri 'none'; form-action 'none'")


def escape(value):
    return html.escape(str(value), quote=True)


def _document(title, body, trail=""):
    return (f'<!doctype html>\n<html lang="en"><head><meta charset="utf-8"><title>{escape(title)}</title>'
            '<meta name="viewport" content="width=device-width, initial-scale=1">'
            f'<meta name="color-scheme" content="light dark"><style>{_STYLE}</style></head>\n'
            f'<body><header><a class="home" href="/">Crash reports</a>{trail}</header>\n'
            f'<main>\n{body}\n</main></body></html>\n')


def _bytes(size):
    for unit in ("bytes", "KiB", "MiB"):
        if size < 1024 or unit == "MiB":
            return f"{size:.1f} {unit}" if unit != "bytes" else f"{size} {unit}"
        size /= 1024
    return ""


def _time(text):
    return escape(text[:19])


def _stack(report):
    return report["stack"].decode("cp1252", "replace").strip()


def _title(store, number):
    """Bug check and the module that the debugger blames, as far as the report has them."""
    report = store.report(number) if number else None
    if report is None:
        return '<span class="quiet">not reported yet</span>'
    found = kernel_dump.bug_check(store.dump_path(number))
    title = f'<span class="code">0x{found[0]:X}</span> {escape(found[1])}' if found else f"Report {number}"
    blamed = re.search(r"^Probably caused by : (\S{1,64})", _stack(report), re.MULTILINE)
    return title + (f' in <span class="blamed">{escape(blamed.group(1))}</span>' if blamed else "")


def _times(seen):
    return f"{seen} time" if seen == 1 else f"{seen} times"


def index(store, url):
    crashes = store.crashes()
    if not crashes:
        return _document("Crash reports", "<h1>No crash has been reported yet</h1>"
                         f'<p>Reports are posted to <code>{escape(url)}</code>.</p>')
    rows = []
    for crash in crashes:
        link = f'/crash/{escape(crash["signature"])}'
        rows.append(f'<tr><td class="count">{crash["seen"]}</td>'
                    f'<td><a href="{link}">{_title(store, crash["newest"])}</a><br>'
                    f'<a class="signature" href="{link}">{escape(crash["signature"])}</a></td>'
                    f'<td class="count">{crash["reports"]}</td>'
                    f'<td class="time">{_time(crash["first"])}</td><td class="time">{_time(crash["last"])}</td></tr>')
    total = sum(crash["seen"] for crash in crashes)
    return _document("Crash reports", f"<h1>{len(crashes)} {'crash' if len(crashes) == 1 else 'different crashes'}, "
                     f"seen {_times(total)}</h1>"
                     '<div class="wide"><table><thead><tr><th class="count">Seen</th><th>Bug check and signature</th>'
                     '<th class="count">Reports</th><th>First (UTC)</th><th>Last (UTC)</th></tr></thead>\n<tbody>'
                     + "\n".join(rows) + "</tbody></table></div>")


def crash(store, signature):
    summary = store.crash(signature)
    if summary is None:
        return None
    rows = []
    for report in store.reports(signature):
        fields = json.loads(report["fields"])
        rows.append(f'<tr><td><a href="/report/{report["id"]}">Report {report["id"]}</a></td>'
                    f'<td class="time">{_time(report["time"])}</td><td>{escape(fields["AppName"])}</td>'
                    f'<td>{escape(fields["AppVer"])}</td><td>{escape(_system(fields))}</td>'
                    f'<td class="count">{_bytes(report["dump_size"])}</td></tr>')
    held = ('<div class="wide"><table><thead><tr><th>Report</th><th>Received (UTC)</th><th>Program</th><th>Version</th>'
            '<th>System</th><th class="count">Dump</th></tr></thead>\n<tbody>' + "\n".join(rows)
            + "</tbody></table></div>" if rows else "<p>Asked about, but no report has arrived.</p>")
    return _document(f"Crash {signature}", f'<h1>{_title(store, summary["newest"])}</h1>'
                     f'<p class="signature">{escape(signature)}</p>'
                     f'<p>Seen {_times(summary["seen"])}, first {_time(summary["first"])}, '
                     f'last {_time(summary["last"])} UTC.</p>' + held)


def _system(fields):
    return f'{fields["OSMajVer"]}.{fields["OSMinVer"]}.{fields["OSBuildNo"]}'


def report(store, number):
    found = store.report(number)
    if found is None:
        return None
    fields = json.loads(found["fields"])
    dump = kernel_dump.bug_check(store.dump_path(number))
    if dump:
        _, _, parameters = dump
        facts = "".join(f'<tr><th scope="row">Parameter {i}</th><td class="code">0x{value:016X}</td></tr>'
                        for i, value in enumerate(parameters, 1))
    else:
        facts = '<tr><th scope="row">Dump</th><td>no 64-bit kernel dump</td></tr>'
    rows = "".join(f'<tr><th scope="row">{escape(name)}</th><td>{escape(value)}</td></tr>'
                   for name, value in fields.items())
    link = f'/crash/{escape(found["signature"])}'
    return _document(
        f"Report {number}",
        f'<h1>{_title(store, number)}</h1><p class="signature"><a href="{link}">{escape(found["signature"])}</a></p>'
        f'<p>Received {_time(found["time"])} UTC. '
        f'<a class="button" href="/report/{number}/dump">Download the dump ({_bytes(found["dump_size"])})</a></p>'
        f'<div class="columns"><section><h2>Bug check</h2><table class="facts">{facts}</table>'
        f'<h2>Fields</h2><table class="facts">{rows}</table></section>'
        f'<section><h2>Debugger output</h2><pre>{escape(_stack(found))}</pre></section></div>',
        f'<span class="trail">Report {number}</span>')


def not_found():
    return _document("Not found", '<h1>There is nothing here</h1><p><a href="/">All crashes</a></p>')

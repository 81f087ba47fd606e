"""What the server keeps: a SQLite record of every query and report, and the dumps as files beside it."""

import datetime
import json
import re
import sqlite3
import threading

_TABLES = """
CREATE TABLE IF NOT EXISTS queries (
    signature TEXT NOT NULL,
    time TEXT NOT NULL,
    known INTEGER NOT NULL
);
CREATE TABLE IF NOT EXISTS reports (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    signature TEXT NOT NULL,
    time TEXT NOT NULL,
    fields TEXT NOT NULL,
    stack BLOB NOT NULL,
    dump_size INTEGER NOT NULL
);
CREATE INDEX IF NOT EXISTS queries_by_signature ON queries (signature);
CREATE INDEX IF NOT EXISTS reports_by_signature ON reports (signature);
"""

# A crash whose report came without a query has still been seen.
_CRASHES = """
SELECT signature, MIN(time) AS first, MAX(time) AS last,
       MAX(SUM(query), SUM(1 - query)) AS seen, SUM(1 - query) AS reports, MAX(id) AS newest
FROM (SELECT signature, time, 1 AS query, NULL AS id FROM queries
      UNION ALL SELECT signature, time, 0, id FROM reports)
WHERE {condition}
GROUP BY signature
"""


def _containing(search, codes):
    """Condition and values for crashes with this text in their signature, or in a field or the stack of a report; codes
    are bug checks that the text means."""
    if not search:
        return "1", []
    pattern = "%" + re.sub(r"([\\%_])", r"\\\1", search) + "%"
    stacks = [pattern] + [f"%BugCheck {code:X},%" for code in codes]
    matches = ["fields LIKE ? ESCAPE '\\'"] + ["CAST(stack AS TEXT) LIKE ? ESCAPE '\\'"] * len(stacks)
    reports = f"SELECT signature FROM reports WHERE {' OR '.join(matches)}"
    return (f"(signature LIKE ? ESCAPE '\\' OR signature IN ({reports}))",
            [pattern, pattern, *stacks])


def _now():
    """Finer than it is shown, so that what arrives within a second stays in order."""
    return datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d %H:%M:%S.%f")


class Store:
    """Used by all connections at once; one lock makes each call atomic."""

    def __init__(self, folder):
        self.folder = folder
        self._dumps = folder / "dumps"
        self._dumps.mkdir(parents=True, exist_ok=True)
        self._lock = threading.Lock()
        self._database = sqlite3.connect(folder / "crashes.sqlite", check_same_thread=False)
        self._database.row_factory = sqlite3.Row
        self._database.executescript(_TABLES)

    def close(self):
        with self._lock:
            self._database.close()

    def _rows(self, statement, *values):
        with self._lock:
            return self._database.execute(statement, values).fetchall()

    def add_query(self, signature):
        """Records the query; returns whether a report with this signature is kept already."""
        with self._lock, self._database:
            known = self._database.execute("SELECT 1 FROM reports WHERE signature = ? LIMIT 1", (signature,)).fetchone()
            self._database.execute("INSERT INTO queries VALUES (?, ?, ?)", (signature, _now(), known is not None))
            return known is not None

    def add_report(self, crash):
        """Returns the report's number. The dump is written before the record that names it."""
        with self._lock, self._database:
            cursor = self._database.execute(
                "INSERT INTO reports (signature, time, fields, stack, dump_size) VALUES (?, ?, ?, ?, ?)",
                (crash.signature, _now(), json.dumps(crash.fields), crash.stack, len(crash.dump)))
            self.dump_path(cursor.lastrowid).write_bytes(crash.dump)
            return cursor.lastrowid

    def dump_path(self, number):
        return self._dumps / f"report-{number:06}.dmp"

    def crashes(self, search, codes, limit, skip):
        """A row for each signature, the last seen first: signature, first, last, seen, reports, newest report's id."""
        condition, values = _containing(search, codes)
        return self._rows(_CRASHES.format(condition=condition) + " ORDER BY last DESC, signature LIMIT ? OFFSET ?",
                          *values, limit, skip)

    def total(self, search, codes):
        """How many different crashes there are, and how often they were seen."""
        condition, values = _containing(search, codes)
        return self._rows("SELECT COUNT(*) AS crashes, COALESCE(SUM(seen), 0) AS seen FROM (" +
                          _CRASHES.format(condition=condition) + ")", *values)[0]

    def crash(self, signature):
        rows = self._rows(_CRASHES.format(condition="signature = ?"), signature)
        return rows[0] if rows else None

    def reports(self, signature, limit, skip):
        return self._rows("SELECT id, time, fields, dump_size FROM reports WHERE signature = ? ORDER BY id DESC"
                          " LIMIT ? OFFSET ?", signature, limit, skip)

    def report(self, number):
        rows = self._rows("SELECT * FROM reports WHERE id = ?", number)
        return rows[0] if rows else None

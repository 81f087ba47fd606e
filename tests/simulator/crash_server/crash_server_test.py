"""The crash server: scrambler and protocol by themselves, then the running server as a client has it."""

import http.client
import os
import pathlib
import subprocess
import sys
import tempfile
import time
import unittest

from served import SERVER, SIGNATURE, Server, document, framed, query_fields, report_fields

import make_dump
import protocol
import scrambler

KEY = bytes(range(16))


class Scrambler(unittest.TestCase):
    # What the reporter scrambles is what its own tests send to the server.
    def test_undoes_itself_at_every_padding(self):
        for length in range(1, 9):
            clear = os.urandom(length)
            self.assertEqual(scrambler.unscramble(scrambler.scramble(clear, KEY), KEY), clear)

    def test_refuses_what_it_did_not_make(self):
        good = scrambler.scramble(b"some text of no special length", KEY)
        for body in (b"", good[:-1], good[:8], good + b"x", good[:-1] + bytes([good[-1] ^ 0x80])):
            self.assertRaises(scrambler.ScramblerError, scrambler.unscramble, body, KEY)


class Protocol(unittest.TestCase):
    def check(self, body):
        return protocol.check(protocol.parse_document(protocol.reveal(protocol.unframe(body), KEY)))

    def test_takes_what_a_client_sends(self):
        name = "<b>M\u00fcller & <AppName>"
        query = self.check(framed(query_fields(AppName=name)))
        self.assertEqual((query.command, query.signature, query.dump), ("1", SIGNATURE, None))
        self.assertEqual(query.fields["AppName"], name)
        kept = self.check(framed(report_fields(Cmd="1", MinDump="not looked at")))
        self.assertEqual((kept.command, kept.dump), ("1", None))

    def test_refuses_what_none_sends(self):
        good = document(query_fields())
        cases = [
            (400, b"&" + good, "length and '&'"),
            (400, b"-5&" + good, "length and '&'"),
            (400, b"%d&" % (len(good) - 1) + good, "announces"),
            (400, framed(b"12345678" * 4), "padding"),
            (400, framed(good[:-1]), "not enclosed"),
            (400, framed(good.replace(b"\r\n", b"\n")), "not enclosed"),
            (400, framed(good.replace(b"</UIN>", b"</Uin>")), "line 17"),
            (400, framed(good.replace(b"<UIN>1", b"<UIN>1</UIN>\r\n<UIN>1")), "does not follow"),
            (400, framed(good.replace(b"ToolVer", b"AoolVer")), "does not follow"),
            (422, framed(query_fields(Zone="x")), "Zone is unknown"),
            (422, framed(query_fields(LCID=None)), "LCID is missing"),
            (422, framed(query_fields(Cmd="2")), "without stack and dump"),
            (422, framed(report_fields(MinDump=None)), "only some"),
            (422, framed(report_fields(CrashDumpLen="7")), "decoded length of MinDump"),
            (422, framed(report_fields(CrashStackLen="08")), "no length"),
            (422, framed(report_fields(CrashStackBase64Len="1")), "length of CrashStack"),
            (422, framed(report_fields(MinDump="UEFHRURVNj", CrashDumpBase64Len="10")), "proper base64"),
            (422, framed(report_fields(MinDump="UEFHRURVNjR=")), "proper base64"),  # the unused bits are not zero
            (422, framed(report_fields(MinDump="UEFH\u00e4URVNjQ=")), "proper base64"),
            (422, framed(report_fields(MinDump="", CrashDumpLen="0", CrashDumpBase64Len="0")), "empty"),
        ]
        for name, value in [("Cmd", "3"), ("CrashSignature", SIGNATURE.upper()), ("CrashSignature", SIGNATURE + "0"),
                            ("ErrAddr", "0xfffff80604001200"), ("GUID_TeskWarden", "0" * 32), ("OSID", "-1"),
                            ("TimeStamp", "2026-01-02 3:4:5"), ("ToolVer", "3"), ("AppName", "")]:
            cases.append((422, framed(query_fields(**{name: value})), f"{name} has a value"))
        for status, body, text in cases:
            with self.subTest(body=body):
                with self.assertRaisesRegex(protocol.ProtocolError, text) as caught:
                    self.check(body)
                self.assertEqual(caught.exception.status, status)


class Running(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = cls.enterClassContext(Server())

    def test_asks_for_a_new_crash_and_knows_it_when_it_was_reported(self):
        query = query_fields(CrashSignature="a" * 32)
        for _ in range(2):
            self.assertRegex(self.server.post(query)[1], r"\A200 [^\r\n]+\r\n\Z")
        self.assertIn("no report has arrived", self.server.request("GET", f"/crash/{'a' * 32}")[1])
        dump = make_dump.make_dump(make_dump.parse_arguments(["-", "--bugcheck", "0xD1", "--size", "70000"]))
        reply = self.server.post(report_fields(dump, CrashSignature="a" * 32))[1]
        self.assertRegex(reply, r"\A200 kept as report [0-9]+\r\n\Z")
        self.assertRegex(self.server.post(query)[1], r"\A300 ")
        number = reply.split()[-1]
        status, body, response = self.server.request("GET", f"/report/{number}/dump")
        self.assertEqual((status, body), (200, dump.decode("latin-1")))
        self.assertIn(f'filename="{"a" * 32}-{number}.dmp"', response.getheader("Content-Disposition"))
        page = self.server.request("GET", f"/crash/{'a' * 32}")[1]
        self.assertIn("DRIVER_IRQL_NOT_LESS_OR_EQUAL", page)
        self.assertIn("Seen 3 times", page)

    def test_answers_what_is_malformed(self):
        self.assertEqual(self.server.post(b"abcd")[0], 400)
        self.assertRegex(self.server.post(query_fields(LCID=None))[1], r"\A422 ")
        self.assertRegex(self.server.post(query_fields(), "/crush")[1], r"\A404 ")
        self.assertEqual(self.server.post(query_fields(), "any://[")[0], 400)
        for path, status in (("/crash/zz", 404), ("/report/99999", 404), ("/report/99999/dump", 404), ("any://[", 400)):
            self.assertEqual(self.server.request("GET", path)[0], status, path)

    # What the others do to a client is what the crash reporter's tests show.
    def test_conditions_change_the_reply(self):
        def post(lines):
            (self.server.folder / "conditions.txt").write_text(lines)
            return self.server.post(query_fields(CrashSignature="e" * 32))

        begin = time.monotonic()
        for line, expected, text in [
                ("slow 0.3", 200, r"new"), ("large 1000", 200, r"\A(?=.{1000}\Z)200 new.* x+\Z"),
                ("unheard of", 500, r"\A500 condition"),
                ("redirect /say/200%20there", 302, r"\A200 this is the redirect")]:
            status, reply = post(line)
            self.assertEqual(status, expected, line)
            self.assertRegex(reply, text, line)
        self.assertGreaterEqual(time.monotonic() - begin, 0.3)
        self.assertRaises((http.client.HTTPException, OSError), post, "drop-inside")


class Process(unittest.TestCase):
    def test_keeps_crashes_and_certificate_over_a_restart_and_stops_while_hanging(self):
        with tempfile.TemporaryDirectory() as folder:
            with Server(folder=folder) as first:
                first.post(report_fields())
                certificate = (first.folder / "certificate.der").read_bytes()
                self.assertEqual(os.stat(first.folder / "certificate.key").st_mode & 0o077, 0)
            with Server("--condition", "hang 3600", folder=folder) as again:
                self.assertEqual((again.folder / "certificate.der").read_bytes(), certificate)
                client = again.connect(host="127.0.0.1")
                client.request("POST", "/crash", framed(query_fields()))
                self.assertEqual(again.end(), 0)
                client.close()
            with Server(folder=folder) as again:
                self.assertRegex(again.post(query_fields())[1], r"\A300 ")

    def test_runs_a_command_and_ends_with_its_status(self):
        with tempfile.TemporaryDirectory() as folder, Server() as server:
            script = "import os, sys; sys.exit(7 if os.environ['ZO_CRASH_SERVER_URL'].endswith('/reports') else 8)"
            for status, *arguments in [(7, "--path", "/reports", "--", sys.executable, "-c", script),
                                       (127, "--", folder + "/missing"), (2, "--key", "12"),
                                       (2, "--condition", "hang"), (2, "--condition", "sleep 1"),
                                       (2, "--condition", "large 0"), (1, "--port", str(server.port))]:
                command = [SERVER / "serve", "--port", "0", "--folder", folder, *arguments]
                self.assertEqual(subprocess.run(command, capture_output=True, timeout=300).returncode, status, arguments)



if __name__ == "__main__":
    unittest.main()

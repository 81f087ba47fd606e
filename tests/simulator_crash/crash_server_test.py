"""The crash server: scrambler and protocol by themselves, then the running server as a client has it."""

import html
import http.client
import os
import subprocess
import sys
import tempfile
import time
import unittest

from served import SERVER, SIGNATURE, STACK, Server, document, framed, query_fields, report_fields

import make_dump
import protocol
import scrambler

KEY = bytes(range(16))


def openssl_ctr(data, key, nonce):
    return subprocess.run(["openssl", "enc", "-aes-128-ctr", "-K", key.hex(), "-iv", (nonce + bytes(8)).hex()],
                          input=data, capture_output=True, check=True).stdout


class Scrambler(unittest.TestCase):
    def test_agrees_with_openssl_at_every_padding(self):
        for length in (1, 5, 6, 7, 8, 9, 10, 11, 12, 13, 40000):
            clear, nonce = os.urandom(length), b"\xff" * 7 + bytes([length % 256])
            size = -(-(length + 10) // 8) * 8
            count = size - 8 - length
            made = nonce + openssl_ctr(clear + b"\x55" * (count - 1) + bytes([count]), KEY, nonce)
            self.assertEqual(scrambler.unscramble(made, KEY), clear, length)
            ours = scrambler.scramble(clear, KEY)
            self.assertEqual(len(ours), size)
            self.assertEqual(scrambler.unscramble(ours, KEY), clear)

    def test_refuses_what_it_did_not_make(self):
        good = scrambler.scramble(b"some text of no special length", KEY)
        others = [good[:-1] + bytes([value]) for value in range(256)] + [b"", good[:-1], good[:8], good + b"x"]
        refused = 0
        for body in others:
            try:
                scrambler.unscramble(body, KEY)
            except scrambler.ScramblerError:
                refused += 1
        self.assertEqual(refused, len(others) - 8)  # of the last byte only the eight counts 2 to 9 are possible


class Protocol(unittest.TestCase):
    def check(self, body):
        return protocol.check(protocol.parse_document(protocol.reveal(protocol.unframe(body), KEY)))

    def test_takes_what_a_client_sends(self):
        query = self.check(framed(document(query_fields())))
        self.assertEqual((query.command, query.signature, query.dump), ("1", SIGNATURE, None))
        kept = self.check(framed(scrambler.scramble(document(report_fields(Cmd="1", MinDump="not looked at")), KEY)))
        self.assertEqual((kept.command, kept.dump), ("1", None))
        dump = bytes(range(256)) * 9
        report = self.check(framed(scrambler.scramble(document(report_fields(dump)), KEY)))
        self.assertEqual((report.dump, report.stack), (dump, STACK))
        name = "<b>M\u00fcller & <AppName>"
        self.assertEqual(self.check(framed(document(query_fields(AppName=name)))).fields["AppName"], name)

    def test_refuses_what_none_sends(self):
        good = document(query_fields())
        table = [
            (b"", 400, "length and '&'"),
            (b"&" + good, 400, "length and '&'"),
            (b"-5&" + good, 400, "length and '&'"),
            (b"%d&" % (len(good) + 1) + good, 400, "announces"),
            (b"%d&" % (len(good) - 1) + good, 400, "announces"),
            (framed(b"12345678" * 4), 400, "padding"),
            (framed(b"1234567"), 400, "8-byte blocks"),
            (framed(good[:-1]), 400, "not enclosed"),
            (framed(good.replace(b"</Crash_protocol>", b"<Crash_protocol>")), 400, "not enclosed"),
            (framed(good.replace(b"\r\n", b"\n")), 400, "not enclosed"),
            (framed(good.replace(b"</UIN>", b"</Uin>")), 400, "line 17"),
            (framed(good.replace(b"<UIN>", b" <UIN>")), 400, "line 17"),
            (framed(document(query_fields(), order=lambda f: sorted(f, reverse=True))), 400, "does not follow"),
            (framed(good.replace(b"<UIN>1", b"<UIN>1</UIN>\r\n<UIN>1")), 400, "does not follow"),
            (framed(document(query_fields(Zone="x"))), 422, "Zone is unknown"),
            (framed(document(query_fields(LCID=None))), 422, "LCID is missing"),
            (framed(document(report_fields(MinDump=None))), 422, "only some"),
            (framed(document(query_fields(Cmd="2"))), 422, "without stack and dump"),
        ]
        for name, value in [("Cmd", "3"), ("CrashSignature", SIGNATURE.upper()), ("CrashSignature", SIGNATURE + "0"),
                            ("ErrAddr", "0xfffff80604001200"), ("ErrAddr", "0x0"), ("GUID_TeskWarden", "0" * 32),
                            ("LCID", ""), ("OSID", "-1"), ("TimeStamp", "2026-01-02 3:4:5"), ("ToolVer", "3"),
                            ("AppName", "")]:
            table.append((framed(document(query_fields(**{name: value}))), 422, f"{name} has a value"))
        for changes, text in [({"CrashDumpLen": "7"}, "decoded length of MinDump"),
                              ({"CrashStackLen": "08"}, "no length"),
                              ({"CrashStackBase64Len": "1"}, "length of CrashStack"),
                              ({"CrashDumpBase64Len": ""}, "no length"),
                              ({"MinDump": "UEFHRURVNj", "CrashDumpBase64Len": "10"}, "proper base64"),
                              ({"MinDump": "UEFHRURVNjR=", }, "proper base64"),  # the unused bits are not zero
                              ({"MinDump": "UEFH\u00e4URVNjQ="}, "proper base64"),
                              ({"MinDump": "UEFHRURVNjQ "}, "proper base64"),
                              ({"MinDump": "", "CrashDumpLen": "0", "CrashDumpBase64Len": "0"}, "empty")]:
            table.append((framed(document(report_fields(**changes))), 422, text))
        for body, status, text in table:
            with self.subTest(text=text, body=body[:60]):
                with self.assertRaisesRegex(protocol.ProtocolError, text) as caught:
                    self.check(body)
                self.assertEqual(caught.exception.status, status)


class Running(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = Server()
        cls.addClassCleanup(cls.server.stop)

    def test_asks_for_a_new_crash_and_knows_it_when_it_was_reported(self):
        signature = "a" * 32
        query = framed(document(query_fields(CrashSignature=signature)))
        for _ in range(2):
            self.assertRegex(self.server.post(query)[1], r"\A200 [^\r\n]+\r\n\Z")
        self.assertIn("no report has arrived", self.server.request("GET", f"/crash/{signature}")[1].decode())
        dump = make_dump.make_dump(make_dump.parse_arguments(["-", "--bugcheck", "0xD1", "--size", "70000"]))
        reply = self.server.post(framed(document(report_fields(dump, CrashSignature=signature))))[1]
        self.assertRegex(reply, r"\A200 kept as report [0-9]+\r\n\Z")
        self.assertRegex(self.server.post(query)[1], r"\A300 ")
        number = reply.split()[-1]
        status, body, response = self.server.request("GET", f"/report/{number}/dump")
        self.assertEqual((status, body), (200, dump))
        self.assertIn(f'filename="{signature}-{number}.dmp"', response.getheader("Content-Disposition"))
        page = self.server.request("GET", f"/crash/{signature}")[1].decode()
        self.assertIn("DRIVER_IRQL_NOT_LESS_OR_EQUAL", page)
        self.assertIn("Seen 3 times", page)

    def test_answers_what_is_malformed(self):
        self.assertEqual(self.server.post(b"3&abcd"), (400, "400 the body announces 3 bytes and has 4\r\n"))
        self.assertRegex(self.server.post(framed(document(query_fields(LCID=None))))[1], r"\A422 ")
        self.assertRegex(self.server.post(framed(document(query_fields())), "/crush")[1], r"\A404 ")
        for path in ("/crash/zz", "/report/99999", "/report/99999/dump", "/nothing"):
            self.assertEqual(self.server.request("GET", path)[0], 404, path)
        self.assertEqual(self.server.request("GET", "any://[")[0], 400)
        self.assertEqual(self.server.post(framed(document(query_fields())), "any://[")[0], 400)

    def test_everything_from_the_wire_is_escaped(self):
        attack = "\"'><script>alert(1)</script><img src=x onerror=alert(2)>"
        fields = report_fields(stack=attack.encode(), CrashSignature="c" * 32, AppName=attack, AppVer=attack,
                               ModuleName=attack)
        number = self.server.post(framed(document(fields)))[1].split()[-1]
        for path in ("/", "/crash/" + "c" * 32, f"/report/{number}"):
            status, body, response = self.server.request("GET", path)
            page = body.decode()
            self.assertEqual(status, 200)
            self.assertFalse("<script" in page or "<img" in page, path)
            self.assertEqual(html.escape(attack) in page, path != "/", path)
            self.assertIn("default-src 'none'", response.getheader("Content-Security-Policy"))

    # That the others fail a client is what the crash reporter's tests show.
    def test_conditions(self):
        body = framed(document(query_fields(CrashSignature="e" * 32)))
        table = [
            ("slow 0.3", 200, r"new"), ("pieces 3", 200, r"new, send the report\r\n\Z"), ("empty", 200, r"\A\Z"),
            ("chunked 4", 200, r"new, send the report\r\n\Z"), ("large 1000000", 200, r"\A200 new[^\r]* x{900000,}\Z"),
            ("noise", 200, r"\A\x00\x01"), (r"text 300 no\r\n", 200, r"\A300 no\r\n\Z"),
            ("status 404 200 but lost", 404, r"\A200 but lost\Z"), ("unheard of", 500, r"\A500 condition"),
            ("redirect /say/200%20there", 302, r"\A200 this is the redirect"),
        ]
        for line, expected, text in table:
            with self.subTest(line):
                self.server.condition(line)
                before = time.monotonic()
                status, reply = self.server.post(body)
                self.assertEqual(status, expected)
                self.assertRegex(reply, text)
                self.assertEqual(len(reply) if line.startswith("large") else 1000000, 1000000)
                self.assertGreaterEqual(time.monotonic() - before, 0.3 if line.startswith("slow") else 0)
        self.server.condition("drop-inside")
        self.assertRaises((http.client.HTTPException, OSError), self.server.post, body)
        self.server.condition("*text 1\ntext 2")
        self.assertEqual([self.server.post(body)[1] for _ in range(3)], ["1"] * 3)
        self.server.condition("text 1\ntext 2")
        self.assertEqual([self.server.post(body)[1][:3] for _ in range(3)], ["1", "2", "200"])


class Process(unittest.TestCase):
    def test_keeps_crashes_and_certificate_over_a_restart_and_stops_while_hanging(self):
        with tempfile.TemporaryDirectory() as folder:
            with Server(folder=folder) as first:
                first.post(framed(document(report_fields())))
                certificate = (first.folder / "certificate.der").read_bytes()
                self.assertEqual(os.stat(first.folder / "certificate.key").st_mode & 0o077, 0)
            with Server("--condition", "hang 60", folder=folder) as again:
                self.assertEqual((again.folder / "certificate.der").read_bytes(), certificate)
                client = again.connect(host="127.0.0.1")
                client.request("POST", "/crash", framed(document(query_fields())))
                before = time.monotonic()
                self.assertEqual(again.stop(), 0)
                self.assertLess(time.monotonic() - before, 10)
                client.close()
            with Server(folder=folder) as again:
                self.assertRegex(again.post(framed(document(query_fields())))[1], r"\A300 ")

    def test_runs_a_command_and_ends_with_its_status(self):
        def serve(*arguments):
            return subprocess.run([SERVER / "serve", *arguments], capture_output=True, timeout=60).returncode

        with tempfile.TemporaryDirectory() as folder, Server() as server:
            script = "import os, sys; sys.exit(7 if os.environ['ZO_CRASH_SERVER_URL'].endswith('/reports') else 8)"
            options = ["--port", "0", "--folder", folder]
            self.assertEqual(serve(*options, "--path", "/reports", "--", sys.executable, "-c", script), 7)
            self.assertEqual(serve(*options, "--", folder + "/missing"), 127)
            for wrong in (["--key", "12"], ["--condition", "hang"], ["--condition", "sleep 1"],
                          ["--condition", "large 0"]):
                self.assertEqual(serve(*options, *wrong), 2, wrong)
            self.assertEqual(serve("--folder", folder, "--port", str(server.port)), 1)


if __name__ == "__main__":
    unittest.main()

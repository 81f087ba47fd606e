"""One connection: TLS, the crash protocol for posts, pages for everything else, and the test conditions."""

import http.server
import re
import socket
import ssl
import sys
import urllib.parse

import conditions
import pages
import protocol

HANDSHAKE_SECONDS = 30
PIECE_PAUSE_SECONDS = 0.02


class CrashServer(http.server.ThreadingHTTPServer):
    """The TLS handshake runs in the connection's own thread, so that a client that stalls delays nobody else."""

    daemon_threads = True
    request_queue_size = 64

    def __init__(self, address, settings):
        self.settings = settings
        super().__init__(address, Handler)

    def finish_request(self, request, client_address):
        if self.settings.conditions.take(only="refuse") is not None:
            return
        request.settimeout(HANDSHAKE_SECONDS)
        try:
            secure = self.settings.tls.wrap_socket(request, server_side=True)
        except (ssl.SSLError, OSError) as error:
            self.settings.note(f"handshake failed: {error}")  # a client that does not trust the certificate, usually
            return
        with secure:
            super().finish_request(secure, client_address)

    def handle_error(self, request, client_address):
        error = sys.exc_info()[1]
        if isinstance(error, (ConnectionError, ssl.SSLError, TimeoutError)):
            self.settings.note(f"connection lost: {error}")
        else:
            super().handle_error(request, client_address)


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "CrashServer"
    sys_version = ""

    def log_message(self, form, *values):
        self.server.settings.note(form % values)

    def _path(self):
        """The path of the request's target; None when the target is malformed."""
        try:
            return urllib.parse.urlsplit(self.path).path
        except ValueError:  # for example, brackets without an address in them
            return None

    # Pages

    def do_GET(self):
        settings = self.server.settings
        path = self._path()
        if path is None:
            return self._send(400, b"400 the address is malformed")
        path = urllib.parse.unquote(path)
        asked = urllib.parse.parse_qs(urllib.parse.urlsplit(self.path).query)
        page = asked.get("page", [""])[0]
        if path == "/":
            search = asked.get("q", [""])[0].strip()[:200]
            return self._page(pages.index(settings.store, settings.url, search, page))
        if match := re.fullmatch(r"/crash/([0-9a-f]{32})", path):
            return self._page(pages.crash(settings.store, match.group(1), page))
        if match := re.fullmatch(r"/report/([0-9]{1,9})", path):
            return self._page(pages.report(settings.store, int(match.group(1))))
        if match := re.fullmatch(r"/report/([0-9]{1,9})/dump", path):
            return self._dump(int(match.group(1)))
        if match := re.fullmatch(r"/say/(.*)", path, re.DOTALL):  # where a redirect can lead
            return self._send(200, match.group(1).encode("utf-8"))
        return self._page(None)

    def _page(self, page):
        self._send(200 if page else 404, (page or pages.not_found()).encode("utf-8"), "text/html; charset=utf-8",
                   {"Content-Security-Policy": pages.SECURITY_POLICY, "Referrer-Policy": "no-referrer"})

    def _dump(self, number):
        store = self.server.settings.store
        report = store.report(number)
        if report is None:
            return self._page(None)
        name = f"{report['signature']}-{number}.dmp"
        self._send(200, store.dump_path(number).read_bytes(), "application/octet-stream",
                   {"Content-Disposition": f'attachment; filename="{name}"'})

    # The protocol

    def do_POST(self):
        settings = self.server.settings
        head = "".join(f"{name}: {value}\r\n" for name, value in self.headers.items())
        number = settings.recorder.begin(f"{self.requestline}\r\n{head}")
        try:
            condition = settings.conditions.take()
        except ValueError as error:
            return self._send(500, f"500 {error}".encode())
        body = self._read_body(condition.name == "drop-reading")
        if body is None:
            return None
        settings.recorder.add(number, "body", body)
        reply = self._reply_to(body, number, condition)
        settings.recorder.add(number, "reply", reply[1])
        return self._deliver(*reply, condition)

    def _read_body(self, drop):
        length = self.headers.get("Content-Length", "")
        if not re.fullmatch(r"[0-9]{1,12}", length):
            self.close_connection = True
            return self._send(411, b"411 the length of the body is missing")
        if int(length) > self.server.settings.max_body:
            self.close_connection = True
            return self._send(413, b"413 the body is too large")
        body = self.rfile.read(int(length) // 2 if drop else int(length))
        if drop or len(body) < int(length):
            return self._drop()
        return body

    def _reply_to(self, body, number, condition):
        """HTTP status and text. Conditions that imitate a server that understands nothing keep nothing."""
        settings = self.server.settings
        if condition.name in conditions.UNDERSTANDS_NOTHING:
            return 200, b""
        path = self._path()
        if path != settings.path:
            malformed, elsewhere = b"400 the address is malformed", b"404 reports are posted elsewhere"
            return (400, malformed) if path is None else (404, elsewhere)
        try:
            document = protocol.reveal(protocol.unframe(body), settings.key)
            settings.recorder.add(number, "document", document)
            crash = protocol.check(protocol.parse_document(document))
        except protocol.ProtocolError as error:
            settings.note(f"refused: {error}")
            return error.status, f"{error.status} {error}\r\n".encode()
        if crash.command == protocol.REPORT:
            return 200, f"200 kept as report {settings.store.add_report(crash)}\r\n".encode()
        known = settings.store.add_query(crash.signature)
        return 200, b"300 known, no report needed\r\n" if known else b"200 new, send the report\r\n"

    # Delivery

    def _deliver(self, status, text, condition):
        name, argument = condition.name, condition.argument
        if name in ("slow", "hang"):
            self.server.settings.stopping.wait(argument)
        if name in ("drop-before", "hang", "refuse"):
            return self._drop()
        if name == "drop-inside":
            self._head(status, len(text))
            self.wfile.write(text[:len(text) // 2])
            return self._drop()
        if name == "garbage":
            self.wfile.write(bytes(range(1, 256)) * 4)
            return self._drop()
        if name == "redirect":
            return self._send(302, b"200 this is the redirect itself", extra={"Location": argument})
        if name == "status":
            code, _, rest = argument.partition(" ")
            return self._send(int(code), rest.encode("latin-1"))
        if name in ("pieces", "chunked"):
            return self._send_slowly(status, text, argument, chunked=name == "chunked")
        replaced = {"empty": b"", "noise": bytes(range(256)) * 8}
        if name in replaced:
            text = replaced[name]
        if name == "text":
            text = argument.encode("latin-1")
        if name == "large":
            text = text.rstrip() + b" " + b"x" * (argument - len(text.rstrip()) - 1)
        return self._send(status, text)

    def _head(self, status, length, content_type="text/plain; charset=utf-8", extra=None):
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("X-Content-Type-Options", "nosniff")
        if length is not None:
            self.send_header("Content-Length", str(length))
        for header, value in (extra or {}).items():
            self.send_header(header, value)
        if self.close_connection:
            self.send_header("Connection", "close")
        self.end_headers()

    def _send(self, status, body, content_type="text/plain; charset=utf-8", extra=None):
        self._head(status, len(body), content_type, extra)
        self.wfile.write(body)

    def _send_slowly(self, status, text, size, chunked):
        self._head(status, None if chunked else len(text), extra={"Transfer-Encoding": "chunked"} if chunked else None)
        for start in range(0, len(text), size):
            piece = text[start:start + size]
            self.wfile.write(b"%x\r\n%s\r\n" % (len(piece), piece) if chunked else piece)
            self.server.settings.stopping.wait(PIECE_PAUSE_SECONDS)
        if chunked:
            self.wfile.write(b"0\r\n\r\n")

    def _drop(self):
        """Ends the connection without the closing message of TLS."""
        self.close_connection = True
        self.connection.shutdown(socket.SHUT_RDWR)

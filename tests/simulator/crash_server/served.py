"""What the crash server's tests share: a running server, a client that trusts it, documents as a client makes them."""

import base64
import contextlib
import http.client
import pathlib
import signal
import ssl
import subprocess
import sys
import tempfile

SOURCES = pathlib.Path(__file__).resolve().parents[3]
SERVER = SOURCES / "simulator" / "crash_server"
sys.path += [str(SERVER), str(SOURCES / "simulator" / "debug_engine")]

SIGNATURE = "0123456789abcdef0123456789abcdef"
STACK = b"\nOpening dump file\nBugCheck D1, {1, 2, 3, 4}\n"


def query_fields(**changes):
    fields = {"AppName": "TeskShield", "AppVer": "100.0.100.1", "Cmd": "1", "Contact": "a@b.example",
              "CrashSignature": SIGNATURE, "ErrAddr": "0xFFFFF80604001200",
              "GUID_TeskWarden": "ZoProtector_" + "0" * 32, "LCID": "2502", "ModuleName": "ntos",
              "OSBuildNo": "19045", "OSID": "2", "OSMajVer": "10", "OSMinVer": "0",
              "TimeStamp": "2026-1-2 3:4:5", "ToolVer": "3.1", "UIN": "10000"} | changes
    return {name: value for name, value in fields.items() if value is not None}


def report_fields(dump=b"PAGEDU64", stack=STACK, **changes):
    encoded_dump, encoded_stack = base64.b64encode(dump).decode(), base64.b64encode(stack).decode()
    return query_fields(**{"Cmd": "2", "CrashStackLen": str(len(stack)), "CrashDumpLen": str(len(dump)),
                           "CrashStackBase64Len": str(len(encoded_stack)),
                           "CrashDumpBase64Len": str(len(encoded_dump)), "CrashStack": encoded_stack,
                           "MinDump": encoded_dump} | changes)


def document(fields):
    lines = "".join(f"<{name}>{fields[name]}</{name}>\r\n" for name in sorted(fields))
    return f"<Crash_protocol>\r\n{lines}</Crash_protocol>\r\n".encode("cp1252")


def framed(payload):
    """The body of a request; the payload is given whole or by the fields of a document."""
    payload = payload if isinstance(payload, bytes) else document(payload)
    return b"%d&" % len(payload) + payload


class Server(contextlib.ExitStack):
    """The server in a process of its own, in a folder that goes away with it unless one is given."""

    def __init__(self, *options, folder=None):
        super().__init__()
        self.folder = pathlib.Path(folder or self.enter_context(tempfile.TemporaryDirectory()))
        self.process = subprocess.Popen([SERVER / "serve", "--port", "0", "--folder", self.folder, *options],
                                        stdout=subprocess.PIPE, text=True)
        self.enter_context(self.process)
        self.callback(self.process.kill)
        self.callback(self.end)
        self.port = int(self.process.stdout.readline().removeprefix("listening on "))

    def end(self):
        """Its exit status; also when it has stopped already."""
        self.process.send_signal(signal.SIGTERM)
        return self.process.wait(timeout=300)

    def connect(self, host="localhost"):
        trusted = ssl.create_default_context(cafile=self.folder / "certificate.pem")
        return http.client.HTTPSConnection(host, self.port, context=trusted, timeout=300)

    def request(self, method, path, body=None):
        with contextlib.closing(self.connect()) as client:
            client.request(method, path, body)
            response = client.getresponse()
            return response.status, response.read().decode("latin-1"), response

    def post(self, payload, path="/crash"):
        return self.request("POST", path, framed(payload))[:2]

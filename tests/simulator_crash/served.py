"""What the crash server's tests share: a running server, a client that trusts it, documents as a client makes them."""

import base64
import http.client
import pathlib
import shutil
import signal
import ssl
import subprocess
import sys
import tempfile

SOURCES = pathlib.Path(__file__).resolve().parents[2]
SERVER = SOURCES / "simulator" / "crash_server"
sys.path.insert(0, str(SERVER))
sys.path.insert(0, str(SOURCES / "simulator" / "debug_engine"))

SIGNATURE = "0123456789abcdef0123456789abcdef"
STACK = b"\nOpening dump file\nBugCheck D1, {1, 2, 3, 4}\n"


def query_fields(**changes):
    fields = {"AppName": "TeskShield", "AppVer": "100.0.100.1", "Cmd": "1", "Contact": "a@b.example",
              "CrashSignature": SIGNATURE, "ErrAddr": "0xFFFFF80604001200",
              "GUID_TeskWarden": "ZoProtector_" + "0" * 32, "LCID": "2502", "ModuleName": "ntos",
              "OSBuildNo": "19045", "OSID": "2", "OSMajVer": "10", "OSMinVer": "0",
              "TimeStamp": "2026-1-2 3:4:5", "ToolVer": "3.1", "UIN": "10000"}
    fields.update(changes)
    return {name: value for name, value in fields.items() if value is not None}


def report_fields(dump=b"PAGEDU64", stack=STACK, **changes):
    encoded_dump, encoded_stack = base64.b64encode(dump).decode(), base64.b64encode(stack).decode()
    return query_fields(**{"Cmd": "2", "CrashStackLen": str(len(stack)), "CrashDumpLen": str(len(dump)),
                           "CrashStackBase64Len": str(len(encoded_stack)),
                           "CrashDumpBase64Len": str(len(encoded_dump)), "CrashStack": encoded_stack,
                           "MinDump": encoded_dump} | changes)


def document(fields, order=sorted):
    lines = "".join(f"<{name}>{fields[name]}</{name}>\r\n" for name in order(fields))
    return f"<Crash_protocol>\r\n{lines}</Crash_protocol>\r\n".encode("cp1252")


def framed(payload):
    return str(len(payload)).encode() + b"&" + payload


class Server:
    """The server in a process of its own, with a folder that goes away with it."""

    def __init__(self, *options, folder=None):
        self.temporary = folder is None
        self.folder = pathlib.Path(folder or tempfile.mkdtemp(prefix="crash_server_test"))
        self.process = subprocess.Popen([SERVER / "serve", "--port", "0", "--folder", self.folder, *options],
                                        stdout=subprocess.PIPE, text=True)
        line = self.process.stdout.readline()
        if not line.startswith("listening on "):
            raise RuntimeError(f"the server did not start: {line!r}")
        self.port = int(line.split()[-1])

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def stop(self):
        """Its exit status; also when it has stopped already."""
        self.process.send_signal(signal.SIGTERM)
        try:
            return self.process.wait(timeout=20)
        finally:
            self.process.kill()
            self.process.stdout.close()
            if self.temporary:
                shutil.rmtree(self.folder, ignore_errors=True)

    def connect(self, host="localhost"):
        trusted = ssl.create_default_context(cafile=self.folder / "certificate.pem")
        return http.client.HTTPSConnection(host, self.port, context=trusted, timeout=30)

    def request(self, method, path, body=None):
        client = self.connect()
        try:
            client.request(method, path, body)
            response = client.getresponse()
            return response.status, response.read(), response
        finally:
            client.close()

    def post(self, body, path="/crash"):
        status, text, _ = self.request("POST", path, body)
        return status, text.decode("latin-1")

    def condition(self, line):
        (self.folder / "conditions.txt").write_text(line + "\n")

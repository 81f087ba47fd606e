"""The crash server: takes crash reports over HTTPS by the two-phase protocol, keeps them and shows them on a page."""

import argparse
import os
import pathlib
import re
import signal
import ssl
import subprocess
import sys
import threading

import certificates
import conditions
import handler
import recorder
import scrambler
import store


class Settings:
    """What every connection shares."""

    def __init__(self, options):
        folder = options.folder.resolve()
        folder.mkdir(parents=True, exist_ok=True)
        self.folder = folder
        self.key = options.key
        self.path = options.path
        self.max_body = options.max_body
        self.url = None  # known once the port is
        self.stopping = threading.Event()
        self.conditions = conditions.Conditions(folder / "conditions.txt")
        self.conditions.preset(options.condition)
        self.recorder = recorder.Recorder(folder / "requests" if options.record else None)
        self.store = store.Store(folder)
        self.tls = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.tls.minimum_version = ssl.TLSVersion.TLSv1_2
        self.tls.load_cert_chain(*certificates.prepare(folder, options.wrong_host))
        self._verbose = options.verbose

    def note(self, text):
        if self._verbose:
            print(text.encode("ascii", "backslashreplace").decode(), file=sys.stderr, flush=True)


def scrambler_key(text):
    if not re.fullmatch("[0-9A-Fa-f]{32}", text):
        raise argparse.ArgumentTypeError("the key is 32 hexadecimal digits")
    return bytes.fromhex(text)


def parse_arguments(arguments):
    command = []
    if "--" in arguments:
        arguments, command = arguments[:arguments.index("--")], arguments[arguments.index("--") + 1:]
    parser = argparse.ArgumentParser(prog="serve", description=__doc__,
                                     usage="serve [OPTION...] [-- COMMAND [ARGUMENT...]]",
                                     epilog="With a COMMAND the server runs as long as the command does, which finds "
                                            "ZO_CRASH_SERVER_PORT, ZO_CRASH_SERVER_URL and ZO_CRASH_SERVER_FOLDER in "
                                            "its environment, and ends with its exit status.")
    parser.add_argument("--folder", type=pathlib.Path, default=pathlib.Path("crash-server"),
                        help="where reports, dumps and the certificate are kept (default: ./%(default)s)")
    parser.add_argument("--port", type=int, default=8443, help="0 picks a free one (default: %(default)s)")
    parser.add_argument("--address", default="127.0.0.1", help="address to listen on (default: %(default)s)")
    parser.add_argument("--path", default="/crash", help="path of the URL for reports (default: %(default)s)")
    parser.add_argument("--key", type=scrambler_key, metavar="HEX",
                        help="the scrambler's key (default: the one of a development build)")
    parser.add_argument("--max-body", type=int, default=64 << 20, metavar="BYTES",
                        help="longest request body taken (default: %(default)s)")
    parser.add_argument("--wrong-host", action="store_true", help="show a certificate for another host")
    parser.add_argument("--condition", action="append", default=[], metavar="LINE",
                        help="a test condition for the next post, repeatable; see README.md")
    parser.add_argument("--record", action="store_true", help="keep every post as it came, under FOLDER/requests")
    parser.add_argument("--verbose", action="store_true", help="tell on standard error what happens")
    options = parser.parse_args(arguments)
    options.command = command
    options.key = options.key or scrambler.development_key()
    for line in options.condition:
        try:
            conditions.parse(line.removeprefix("*"))
        except ValueError as error:
            parser.error(str(error))
    return options


def run_command(command, settings, port):
    environment = os.environ | {"ZO_CRASH_SERVER_PORT": str(port), "ZO_CRASH_SERVER_URL": settings.url,
                                "ZO_CRASH_SERVER_FOLDER": str(settings.folder)}
    try:
        status = subprocess.run(command, env=environment, check=False).returncode
    except OSError as error:
        print(f"serve: {command[0]}: {error.strerror}", file=sys.stderr)
        return 127
    return status if status >= 0 else 128 - status


def main(arguments):
    options = parse_arguments(arguments)
    settings = Settings(options)
    try:
        server = handler.CrashServer((options.address, options.port), settings)
    except OSError as error:
        print(f"serve: cannot listen on {options.address} port {options.port}: {error.strerror}", file=sys.stderr)
        return 1
    port = server.server_address[1]
    settings.url = f"https://localhost:{port}{options.path}"
    print(f"listening on {port}", flush=True)

    status = 0
    thread = threading.Thread(target=server.serve_forever, kwargs={"poll_interval": 0.1})
    stop = lambda *_: settings.stopping.set()
    signal.signal(signal.SIGTERM, stop)
    signal.signal(signal.SIGINT, stop)
    thread.start()
    if options.command:
        status = run_command(options.command, settings, port)
    else:
        settings.stopping.wait()
    settings.stopping.set()  # lets go of connections that hang
    server.shutdown()
    thread.join()
    server.server_close()
    settings.store.close()
    return status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

"""The crash protocol: from a request's body to a checked crash, and nothing that is not in the protocol.

A body is the payload's length in decimal, "&", and the payload: the document, scrambled or plain. The document is the
line "<Crash_protocol>", a line "<Name>value</Name>" for each field in ascending byte order of the names, and the line
"</Crash_protocol>"; lines end with CR LF, values are not escaped.
"""

import base64
import binascii
import dataclasses
import re

import scrambler

OPENING = b"<Crash_protocol>"
CLOSING = b"</Crash_protocol>"
CODE_PAGE = "cp1252"  # of the client's text

QUERY = "1"
REPORT = "2"

_DECIMAL = r"[0-9]{1,10}"
_ANYTHING = r"[^\r\n]+"
_REQUIRED = {
    "AppName": _ANYTHING,
    "AppVer": _ANYTHING,
    "Cmd": "[12]",
    "Contact": _ANYTHING,
    "CrashSignature": "[0-9a-f]{32}",
    "ErrAddr": "0x[0-9A-F]{16}",
    "GUID_TeskWarden": "ZoProtector_[^A-Z]{32}",
    "LCID": _DECIMAL,
    "ModuleName": _ANYTHING,
    "OSBuildNo": _DECIMAL,
    "OSID": _DECIMAL,
    "OSMajVer": _DECIMAL,
    "OSMinVer": _DECIMAL,
    "TimeStamp": r"[1-9][0-9]{3}-[1-9][0-9]?-[1-9][0-9]? [0-9]{1,2}:[0-9]{1,2}:[0-9]{1,2}",
    "ToolVer": r"[0-9]+\.[0-9]+",
    "UIN": _DECIMAL,
}
_OF_A_REPORT = ["CrashDumpBase64Len", "CrashDumpLen", "CrashStack", "CrashStackBase64Len", "CrashStackLen", "MinDump"]


class ProtocolError(Exception):
    """What is wrong with a request, with the status that answers it."""

    def __init__(self, text, status=400):
        super().__init__(text)
        self.status = status


@dataclasses.dataclass
class Crash:
    """A checked document. stack and dump are None in a query, whatever an earlier report left in its fields."""

    command: str
    signature: str
    fields: dict  # name to text, without the encoded stack and dump
    stack: bytes | None = None
    dump: bytes | None = None


def unframe(body):
    count, ampersand, payload = body.partition(b"&")
    if not ampersand or not re.fullmatch(rb"[0-9]{1,10}", count):
        raise ProtocolError("the body does not begin with a length and '&'")
    if int(count) != len(payload):
        raise ProtocolError(f"the body announces {int(count)} bytes and has {len(payload)}")
    return payload


def reveal(payload, key):
    """The document out of the payload, which a client without a scrambler sends as it is."""
    if payload.startswith(OPENING):
        return payload
    try:
        return scrambler.unscramble(payload, key)
    except scrambler.ScramblerError as error:
        raise ProtocolError(str(error)) from None


def parse_document(document):
    """The fields, name to bytes, in the document's order, which must be the ascending one."""
    lines = document.split(b"\r\n")
    if lines[0] != OPENING or lines[-2:] != [CLOSING, b""]:
        raise ProtocolError("the document is not enclosed in Crash_protocol tags")
    fields = {}
    previous = b""
    for line in lines[1:-2]:
        match = re.fullmatch(rb"<([A-Za-z0-9_]+)>(.*)</\1>", line, re.DOTALL)
        if not match:
            raise ProtocolError(f"line {len(fields) + 2} of the document is no field")
        name, value = match.groups()
        if name <= previous:
            raise ProtocolError(f"field {name.decode()} does not follow {previous.decode()}")
        fields[name.decode()] = value
        previous = name
    return fields


def _check_names(fields):
    for name in fields:
        if name not in _REQUIRED and name not in _OF_A_REPORT:
            raise ProtocolError(f"field {name} is unknown", 422)
    for name in _REQUIRED:
        if name not in fields:
            raise ProtocolError(f"field {name} is missing", 422)
    held = [name for name in _OF_A_REPORT if name in fields]
    if held and held != _OF_A_REPORT:
        raise ProtocolError("of the fields of stack and dump only some are there", 422)


def _length(fields, name):
    value = fields[name]
    if not re.fullmatch(rb"0|[1-9][0-9]{0,9}", value):
        raise ProtocolError(f"field {name} is no length", 422)
    return int(value)


def _decode(fields, name, length_name, encoded_length_name):
    value = fields[name]
    if _length(fields, encoded_length_name) != len(value):
        raise ProtocolError(f"field {encoded_length_name} is not the length of {name}", 422)
    try:
        decoded = base64.b64decode(value, validate=True)
    except binascii.Error:
        decoded = None
    if decoded is None or base64.b64encode(decoded) != value:
        raise ProtocolError(f"field {name} is not proper base64", 422)
    if _length(fields, length_name) != len(decoded):
        raise ProtocolError(f"field {length_name} is not the decoded length of {name}", 422)
    if not decoded:
        raise ProtocolError(f"field {name} is empty", 422)
    return decoded


def check(fields):
    _check_names(fields)
    text = {name: fields[name].decode(CODE_PAGE, "replace") for name in fields if name not in ("CrashStack", "MinDump")}
    for name, pattern in _REQUIRED.items():
        if not re.fullmatch(pattern, text[name]):
            raise ProtocolError(f"field {name} has a value that it cannot have", 422)
    crash = Crash(text["Cmd"], text["CrashSignature"], text)
    if crash.command == REPORT:
        if "MinDump" not in fields:
            raise ProtocolError("a report without stack and dump", 422)
        crash.stack = _decode(fields, "CrashStack", "CrashStackLen", "CrashStackBase64Len")
        crash.dump = _decode(fields, "MinDump", "CrashDumpLen", "CrashDumpBase64Len")
    return crash

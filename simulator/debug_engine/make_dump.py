#!/usr/bin/env python3
"""Makes small 64-bit kernel dump files for tests and demonstrations.

The same arguments always give the same bytes. What is not asked for has a sensible value: without any option the dump
is of an access violation in ZoProtector.sys.

Example:
    make_dump.py --bugcheck 0xD1 --module 'storage.sys' --frame nt+0x3f5e40 --frame storage+0x1200 crash.dmp
"""

import argparse
import struct
import sys

HEADER_SIZE = 0x2000
TRIAGE_SIZE = 0x80
CONTEXT_SIZE = 1232
DRIVER_ENTRY_SIZE = 0x90
END_MARK = b"TRGD"
STACK_BASE = 0xFFFFBE8F_1A2B3000
KERNEL = "ntoskrnl.exe"
DEFAULT_FRAMES = ["nt+0x3f5e40", "nt+0x407c69", "ZoProtector+0x1a2b", "ZoProtector+0x4c10", "nt+0x2d4a15",
                  "nt+0x3fbf78"]
ACCESS_VIOLATION = 0xC0000005


def number(text):
    return int(text, 0)


def stem(file_name):
    """The name by which frames refer to a module."""
    return "nt" if file_name.lower() == KERNEL else file_name.rsplit(".", 1)[0]


class Module:
    """A loaded driver: "name.sys", "name.sys=BASE" or "name.sys=BASE:SIZE"."""

    def __init__(self, text, index):
        self.file_name, _, place = text.partition("=")
        base, _, size = place.partition(":")
        self.base = number(base) if base else 0xFFFFF806_00000000 + index * 0x2000000
        self.size = number(size) if size else (0x1046000 if self.file_name.lower() == KERNEL else 0x40000)


def address_of(frame, modules):
    """The address of "module+offset", or of a plain number."""
    name, plus, offset = frame.partition("+")
    if not plus:
        return number(frame)
    for module in modules:
        if stem(module.file_name).lower() == name.lower():
            return module.base + number(offset)
    raise ValueError(f"frame {frame!r} names no loaded module")


def filler(count):
    """Stack cells that are no return addresses: small numbers and pointers into the stack itself."""
    state = 0x9E3779B9
    for _ in range(count):
        state = (state * 1664525 + 1013904223) & 0xFFFFFFFF
        yield state >> 20 if state & 0x80000 else STACK_BASE + (state >> 20) * 8


def make_stack(addresses):
    """The raw stack under the frames; each return address stands above a gap of another size."""
    cells = []
    for depth, address in enumerate(addresses[1:]):
        cells += list(filler(3 + depth * 5 % 11)) + [address]
    return struct.pack(f"<{len(cells) + 4}Q", *cells, *filler(4))


def pad(blob, multiple):
    return blob + bytes(-len(blob) % multiple)


def make_header(settings, context, exception):
    """The part that every kernel dump has; unused bytes hold the file's own signature, as the system writes it."""
    header = bytearray(b"PAGE" * (HEADER_SIZE // 4))
    put = lambda offset, layout, *values: struct.pack_into("<" + layout, header, offset, *values)
    put(0x000, "4s4sII", b"PAGE", b"DU64", 15, settings.build)
    put(0x010, "4Q", 0x1AD000, 0xFFFFAF00_00000000, 0xFFFFF806_00C2A2B0, 0xFFFFF806_00C1E0A0)
    put(0x030, "III", 0x8664, settings.processors, settings.bugcheck)
    put(0x040, "4Q", *settings.parameters)
    put(0x080, "Q", 0xFFFFF806_00C00B20)
    header[0x348:0x348 + 3000] = context.ljust(3000, b"\0")
    header[0xF00:0xF00 + len(exception)] = exception
    put(0xF98, "I", {"triage": 4, "kernel": 2, "full": 1}[settings.kind])
    put(0xFA0, "QQ", 0, settings.time)
    put(0x1030, "Q", settings.uptime)
    return bytes(header)


def make_exception(settings, modules, addresses):
    if settings.no_exception:
        return bytes(152)
    where = address_of(settings.exception_at, modules) if settings.exception_at else next(
        (a for a, frame in zip(addresses, settings.frames) if not frame.lower().startswith("nt+")), addresses[0])
    return struct.pack("<IIQQII15Q", settings.exception, 0, 0, where, 2, 0, 0, 0x28, *[0] * 13)


def make_context(instruction):
    context = bytearray(CONTEXT_SIZE)
    struct.pack_into("<I", context, 0x30, 0x10001F)  # control, integer, segments, floating point
    struct.pack_into("<Q", context, 0x98, STACK_BASE)
    struct.pack_into("<Q", context, 0xF8, instruction)
    return bytes(context)


def make_triage(context, exception, stack, modules):
    """What follows the header of a small dump, with the offsets that lead to it."""
    blob = bytearray(TRIAGE_SIZE)
    place = {}

    def add(name, data):
        place[name] = HEADER_SIZE + len(blob)
        blob.extend(pad(data, 8))

    add("context", context)
    add("exception", exception)
    add("stack", stack)
    add("drivers", bytes(DRIVER_ENTRY_SIZE * len(modules)))
    place["strings"] = HEADER_SIZE + len(blob)
    for index, module in enumerate(modules):
        name = module.file_name.encode("utf-16-le")
        entry = place["drivers"] - HEADER_SIZE + index * DRIVER_ENTRY_SIZE
        struct.pack_into("<I", blob, entry, HEADER_SIZE + len(blob))
        struct.pack_into("<QQI", blob, entry + 0x38, module.base, module.base + 0x1000, module.size)
        struct.pack_into("<II", blob, entry + 0x80, 0x10000 + index, 0)
        struct.pack_into("<I", blob, entry + 0x88, 0x5F000000 + index)
        blob.extend(pad(struct.pack("<I", len(name) // 2) + name + b"\0\0", 8))
    strings = HEADER_SIZE + len(blob) - place["strings"]
    place["end"] = HEADER_SIZE + len(blob)
    blob.extend(END_MARK)
    struct.pack_into("<18I", blob, 0, 0, HEADER_SIZE + len(blob), place["end"], place["context"], place["exception"],
                     0, 0, 0, 0, 0, place["stack"], len(stack), place["drivers"], len(modules), place["strings"],
                     strings, 0, 0xFFF)
    struct.pack_into("<Q", blob, 0x48, STACK_BASE)
    return bytes(blob)


def make_dump(settings):
    modules = [Module(text, index) for index, text in enumerate([KERNEL, "hal.dll"] + settings.modules)]
    addresses = [address_of(frame, modules) for frame in settings.frames]
    context = make_context(addresses[0])
    exception = make_exception(settings, modules, addresses)
    body = make_triage(context, exception, make_stack(addresses), modules) if settings.kind == "triage" else b""
    dump = make_header(settings, context, exception) + body
    if settings.size and settings.size < len(dump):
        raise ValueError(f"--size {settings.size} is less than the {len(dump)} bytes that the dump needs")
    pattern = bytes((i * 131 + 17) & 0xFF for i in range(256))
    missing = max(settings.size - len(dump), 0)
    return dump + (pattern * (missing // 256 + 1))[:missing]


def parse_arguments(arguments):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("output", help="file to write")
    parser.add_argument("--kind", choices=["triage", "kernel", "full"], default="triage",
                        help="triage is a small dump; of the others the header alone is made (default: %(default)s)")
    parser.add_argument("--bugcheck", type=number, default=0x1E, help="bug check code (default: 0x1E)")
    parser.add_argument("--parameters", type=number, nargs=4, default=[ACCESS_VIOLATION, 0, 0, 0x28],
                        metavar=("P1", "P2", "P3", "P4"), help="its four parameters")
    parser.add_argument("--module", dest="modules", action="append", metavar="NAME[=BASE[:SIZE]]",
                        help="a loaded driver beside ntoskrnl.exe and hal.dll; repeatable (default: ZoProtector.sys)")
    parser.add_argument("--frame", dest="frames", action="append", metavar="MODULE+OFFSET",
                        help="a stack frame, innermost first; repeatable")
    parser.add_argument("--exception", type=number, default=ACCESS_VIOLATION, help="exception code")
    parser.add_argument("--exception-at", metavar="MODULE+OFFSET",
                        help="exception address (default: the innermost frame outside the kernel)")
    parser.add_argument("--no-exception", action="store_true", help="the last event was no exception")
    parser.add_argument("--size", type=number, default=0, help="pad the file to this many bytes")
    parser.add_argument("--build", type=number, default=19045, help="build number of the system")
    parser.add_argument("--processors", type=number, default=4)
    parser.add_argument("--time", type=number, default=133500000000000000,
                        help="time of the crash, in units of 100 ns since 1601")
    parser.add_argument("--uptime", type=number, default=2 * 3600 * 10_000_000, help="likewise, since the start")
    settings = parser.parse_args(arguments)
    settings.modules = settings.modules or ["ZoProtector.sys"]
    settings.frames = settings.frames or DEFAULT_FRAMES
    return settings


def main(arguments):
    settings = parse_arguments(arguments)
    try:
        dump = make_dump(settings)
    except ValueError as error:
        print(f"make_dump.py: {error}", file=sys.stderr)
        return 2
    with open(settings.output, "wb") as file:
        file.write(dump)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

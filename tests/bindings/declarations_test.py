"""The declarations of the Python and the C# binding against the public headers as the compiler has them."""

import ctypes
import re
import sys
import unittest

import layouts

BINDINGS = layouts.SOURCE / "bindings"
CALLBACKS = {"ZoSignerLogCallback", "ZoSignerSealCallback", "ZoCrashLogger", "ZoCrashBodyScrambler"}
EXPECTED = layouts.interface()
FUNCTIONS = {name: types for name, types in EXPECTED["calls"].items() if name not in CALLBACKS}


def plain(kind):
    return re.sub(r"const ?|\s", "", kind)


class Python(unittest.TestCase):
    NAMES = {"wchar_t*": "c_wchar_p", "void*": "c_void_p", "char**": "LP_c_char_p", "uint8_t": "c_ubyte",
             "uint32_t": "c_uint", "int32_t": "c_int"}

    @classmethod
    def setUpClass(cls):
        sys.path.insert(0, str(BINDINGS / "python"))
        cls.module = __import__("zoprotectorlib")

    def name(self, kind):
        kind = plain(kind)
        if kind in self.NAMES:
            return self.NAMES[kind]
        return "LP_" + self.NAMES.get(kind[:-1], kind[:-1]) if kind.endswith("*") else kind

    def test_records(self):
        def layout(record):
            fields = {name: getattr(record, name) for name, _ in record._fields_}
            return ctypes.sizeof(record), {name: (field.offset, field.size) for name, field in fields.items()}

        self.assertEqual({name: layout(getattr(self.module, name)) for name in EXPECTED["records"]}, EXPECTED["records"])

    def test_functions_and_callbacks(self):
        self.assertEqual(list(self.module.FUNCTIONS), list(FUNCTIONS))
        self.assertEqual(len(FUNCTIONS), 72)
        for name, kinds in EXPECTED["calls"].items():
            given = getattr(self.module, name)._argtypes_ if name in CALLBACKS else self.module.FUNCTIONS[name]
            names = [name for name in CALLBACKS if getattr(self.module, name) in given]
            actual = [names[0] if kind in [getattr(self.module, n) for n in names] else kind.__name__ for kind in given]
            self.assertEqual((name, actual), (name, [self.name(kind) for kind in kinds]))

    def test_texts_end_at_their_zero(self):
        field = (ctypes.c_uint16 * 4)(0xFC, 0x20AC, 0, 7)
        self.assertEqual(self.module.text(field), "\u00fc\u20ac")


class TypeScript(unittest.TestCase):
    # Called by events(), registryEvents(), onMessage and setScrambler.
    REPLACED = {"DrainEvents", "DrainRegistryEvents", "SetLogger", "SetBodyScrambler"}

    @classmethod
    def setUpClass(cls):
        cls.text = (BINDINGS / "node/index.d.ts").read_text()

    def test_functions(self):
        declared = set(re.findall(r"^ +(\w+)\(", self.text, re.MULTILINE))
        names = {name.split("_")[1] for name in FUNCTIONS} - self.REPLACED
        self.assertEqual({name for name in names if name[0].lower() + name[1:] not in declared}, set())

    def test_statuses(self):
        listed = re.search(r"Status: Readonly<Record<(.*?), number>>", self.text, re.DOTALL)[1]
        names = {re.sub("^ZO(P|SIG)_(E_)?", "", name) for name in EXPECTED["statuses"]}
        self.assertEqual(names - set(re.findall(r"'(\w+)'", listed)), set())

    def test_package_has_the_version_of_the_library(self):
        header = (layouts.SOURCE / "sdk/include/zoprotector.h").read_text()
        numbers = re.findall(r"#define ZOP_SDK_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", header)
        self.assertIn(f'"version": "{".".join(numbers)}"', (BINDINGS / "node/package.json").read_text())


class Cpp(unittest.TestCase):
    def test_layer_is_tried_with_each_function(self):
        text = (layouts.SOURCE / "tests/layer/forwarding_test.cpp").read_text()
        rows = re.findall(r"ZO_(SESSION_)?(?:CALLS_)?ROW\(\s*(\w+)", text)
        self.assertLessEqual(set(FUNCTIONS), {"ZoProtector_" * bool(session) + name for session, name in rows})


class CSharp(unittest.TestCase):
    SIZES = {"byte": 1, "ushort": 2, "int": 4, "uint": 4, "ulong": 8, "IntPtr": 8}

    @classmethod
    def setUpClass(cls):
        cls.text = (BINDINGS / "csharp/ZoProtectorLib.cs").read_text()

    def test_records(self):
        records = {}
        for size, name, body in re.findall(r"Explicit, Size = (\d+)\)\]\s+public unsafe struct (\w+)\s+\{(.*?)\n    \}",
                                           self.text, re.DOTALL):
            fields = re.findall(r"\[FieldOffset\((\d+)\)\] public (?:fixed )?(\w+) (\w+)(?:\[(\d+)\])?;", body)
            records[name] = (int(size), {field: (int(offset), self.SIZES[kind] * int(count or 1))
                                         for offset, kind, field, count in fields})
        self.assertEqual(records, EXPECTED["records"])

    def fits(self, kind, given):
        """Whether a C# parameter is passed as the C one is."""
        kind, words = plain(kind), given.split()
        by_reference = words[0] in ("in", "out", "ref")
        if kind == "wchar_t*":
            return words[0] in ("string", "char*")
        if kind.endswith("*") and by_reference:
            return words[1] == {"uint32_t": "uint"}.get(kind[:-1], kind[:-1])
        numbers = {"uint8_t": "byte", "uint32_t": "uint", "int32_t": "int", "char": "byte", "void": "void"}
        bare = kind.rstrip("*")
        accepted = {numbers.get(bare, bare) + "*" * kind.count("*")} | ({"IntPtr"} if kind == "void*" else set())
        return not by_reference and words[0] in accepted

    def test_functions_and_callbacks(self):
        declared = dict(re.findall(r"(?:static extern int|delegate \w+) (\w+)\(\s*(.*?)\);", self.text, re.DOTALL))
        self.assertEqual(set(declared), set(EXPECTED["calls"]))
        for name, kinds in EXPECTED["calls"].items():
            given = re.split(r",\s+", declared[name]) if declared[name] else []
            self.assertEqual(len(given), len(kinds), name)
            for kind, parameter in zip(kinds, given):
                self.assertTrue(self.fits(kind, parameter), f"{name}: {kind} is {parameter}")

"""The schema and the checker of zoctl judge the same files alike.

Usage: rule_schema_test.py SCHEMA FILES. FILES is the table that rule_core_test.cpp runs through the checker. Only the
words of JSON Schema that the schema uses are known here, any other one is an error; and "type" stands before the words
that mean something for that type only.
"""

import copy
import json
import re
import sys

TYPES = {"object": dict, "array": list, "string": str, "boolean": bool, "integer": int}
SAY_NOTHING = {"$schema", "$defs", "title", "description"}
SCHEMA, FILES = (json.load(open(name, encoding="utf-8")) for name in sys.argv[1:])


def accepts(schema, value):
    def among(wanted):
        return any(type(one) is type(value) and one == value for one in wanted)

    words = {
        "$ref": lambda ref: accepts(SCHEMA["$defs"][ref.removeprefix("#/$defs/")], value),
        "type": lambda name: type(value) is TYPES[name],
        "const": lambda wanted: among([wanted]),
        "enum": among,
        "minimum": lambda least: value >= least,
        "maximum": lambda most: value <= most,
        "maxLength": lambda most: len(value) <= most,
        "pattern": lambda pattern: re.search(pattern, value),
        "required": lambda names: all(name in value for name in names),
        "properties": lambda parts: all(accepts(parts[name], value[name]) for name in parts.keys() & value.keys()),
        "additionalProperties": lambda allowed: allowed or value.keys() <= schema["properties"].keys(),
        "items": lambda item: all(accepts(item, one) for one in value),
        "uniqueItems": lambda wanted: not wanted or len(set(value)) == len(value),
        "anyOf": lambda choices: any(accepts(one, value) for one in choices),
        "oneOf": lambda choices: sum(accepts(one, value) for one in choices) == 1,
    }
    return all(words[word](argument) for word, argument in schema.items() if word not in SAY_NOTHING)


def changed(pointer, value):
    node = whole = {"": copy.deepcopy(FILES["everything"])}
    *way, last = (part.replace("~1", "/").replace("~0", "~") for part in pointer.split("/"))
    for part in way:
        node = node[int(part) if isinstance(node, list) else part]
    if isinstance(node, list):
        node[int(last):int(last) + 1] = [value]
    else:
        node[last] = value
    return whole[""]


wrong = [change for kind, changes in FILES["changes"].items() for change in changes
         if accepts(SCHEMA, changed(*change[:2])) != (kind != "refused")]
sys.exit("\n".join(f"judged wrongly: {change}" for change in wrong) or 0)

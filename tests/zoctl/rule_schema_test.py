"""The schema and the checker of zoctl judge the same files alike.

Usage: rule_schema_test.py SCHEMA FILES. FILES is the table that rule_file_test.cpp runs through the checker. Only the
words of JSON Schema that the schema uses are known here; any other one is an error, so that none is passed over.
"""

import json
import re
import sys

WORDS = {"$schema", "$defs", "$ref", "title", "description", "type", "required", "additionalProperties", "properties",
         "items", "uniqueItems", "const", "enum", "minimum", "maximum", "maxLength", "pattern", "anyOf", "oneOf"}
TYPES = {"object": dict, "array": list, "string": str, "boolean": bool}


def is_type(value, name):
    if name == "integer":
        return isinstance(value, int) and not isinstance(value, bool)
    return isinstance(value, TYPES[name])


def same(a, b):
    return type(a) is type(b) and a == b


def accepts(schema, value, root):
    unknown = schema.keys() - WORDS
    if unknown:
        sys.exit(f"the schema uses {unknown}, which this test does not know")
    number = isinstance(value, (int, float)) and not isinstance(value, bool)
    checks = {
        "$ref": lambda ref: accepts(root["$defs"][ref.removeprefix("#/$defs/")], value, root),
        "type": lambda name: is_type(value, name),
        "const": lambda wanted: same(value, wanted),
        "enum": lambda wanted: any(same(value, one) for one in wanted),
        "minimum": lambda least: not number or value >= least,
        "maximum": lambda most: not number or value <= most,
        "maxLength": lambda most: not isinstance(value, str) or len(value) <= most,
        "pattern": lambda text: not isinstance(value, str) or re.search(text, value) is not None,
        "required": lambda names: not isinstance(value, dict) or all(name in value for name in names),
        "properties": lambda parts: not isinstance(value, dict) or all(
            accepts(part, value[name], root) for name, part in parts.items() if name in value),
        "additionalProperties": lambda allowed: allowed or not isinstance(value, dict) or not (
            value.keys() - schema.get("properties", {}).keys()),
        "items": lambda item: not isinstance(value, list) or all(accepts(item, one, root) for one in value),
        "uniqueItems": lambda wanted: not isinstance(value, list) or len({json.dumps(v) for v in value}) == len(value),
        "anyOf": lambda parts: any(accepts(part, value, root) for part in parts),
        "oneOf": lambda parts: sum(accepts(part, value, root) for part in parts) == 1,
    }
    return all(check(schema[word]) for word, check in checks.items() if word in schema)


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        schema = json.load(file)
    with open(sys.argv[2], encoding="utf-8") as file:
        cases = json.load(file)
    wrong = [case["name"] for case in cases if accepts(schema, case["document"], schema) != case["schema"]]
    # What the schema refuses the checker refuses too.
    wrong += [case["name"] for case in cases if not case["schema"] and not case["mistakes"]]
    for name in wrong:
        print(f"judged wrongly: {name}")
    print(f"{len(cases)} files, {len(wrong)} judged wrongly")
    return 1 if wrong or not cases else 0


if __name__ == "__main__":
    sys.exit(main())

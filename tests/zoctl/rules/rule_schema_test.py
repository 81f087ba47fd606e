"""The schema and the checker of zoctl judge the same files alike.

Usage: rule_schema_test.py SCHEMA FILES. FILES is the table that rule_core_test.cpp runs through the checker.
"""

import copy
import json
import sys

import jsonschema

SCHEMA, FILES = (json.load(open(name, encoding="utf-8")) for name in sys.argv[1:])
jsonschema.Draft202012Validator.check_schema(SCHEMA)
VALIDATOR = jsonschema.Draft202012Validator(SCHEMA)


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
         if VALIDATOR.is_valid(changed(*change[:2])) != (kind != "refused")]
sys.exit("\n".join(f"judged wrongly: {change}" for change in wrong) or 0)

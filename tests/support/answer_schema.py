"""The JSON answers of zoctl against docs/zoctl.schema.json."""

import json
import pathlib

import jsonschema

SCHEMA = json.loads((pathlib.Path(__file__).resolve().parents[2] / "docs/zoctl.schema.json").read_text(encoding="utf-8"))
COMMANDS = [name for name in SCHEMA["$defs"] if name[0].islower() and "--" not in name and name != "crash journal"]


def faults_of(document, definition):
    rule = {"$ref": "#/$defs/" + definition.replace(" ", "%20"), "$defs": SCHEMA["$defs"]}
    return [f"{definition}: {error.message}" for error in jsonschema.Draft202012Validator(rule).iter_errors(document)]


def command_of(words):
    return next((one for one in COMMANDS if list(words[:len(one.split())]) == one.split()), "NoCommand")


def faults_of_answer(words, text):
    """What is wrong with the documents that a command line made zoctl write."""
    name, lines, faults = command_of(words), "--jsonl" in words, []
    for document in map(json.loads, text.splitlines() if lines else [text]):
        faults += faults_of(document, name + " --jsonl" if lines else name if document["command"] == name else "NoCommand")
    return faults

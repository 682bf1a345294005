#!/usr/bin/env python3
"""Compares what velt.exe has printed with --json with its published schema, both ways: every object is
valid, has no field that the schema does not describe, and every field of the schema was seen.

  velt_schema_test.py <schema> <log: command, exit code and object, divided by tabs>
"""

import copy
import json
import sys

import jsonschema


def object_schemas(schema, path):
    """Each schema of an object below one, with the place of its fields."""
    if "properties" in schema:
        yield path, schema
        for name, value in schema["properties"].items():
            yield from object_schemas(value, f"{path}.{name}")
    if "items" in schema:
        yield from object_schemas(schema["items"], path + "[]")


def fields(value, path):
    """The places of all fields of a value."""
    if isinstance(value, dict):
        for name, each in value.items():
            yield f"{path}.{name}"
            yield from fields(each, f"{path}.{name}")
    if isinstance(value, list):
        for each in value:
            yield from fields(each, path + "[]")


def main():
    with open(sys.argv[1], encoding="ascii") as file:
        published = json.load(file)
    jsonschema.Draft202012Validator.check_schema(published)
    shared = {"failed", "code", "text", "exitCode"}
    commands = [name for name in published["$defs"] if name not in shared]
    errors = []

    strict = copy.deepcopy(published)
    described = set()
    for command in commands:
        for path, schema in object_schemas(strict["$defs"][command], command):
            schema["additionalProperties"] = False  # users are to expect more, tests are not
            for name, value in schema["properties"].items():
                described.add(f"{path}.{name}")
                if "$ref" not in value and not value.get("description"):
                    errors.append(f"{path}.{name}: no description")

    seen = set()
    good = set()
    bad = set()
    with open(sys.argv[2], "rb") as file:
        for line in file.read().decode("ascii").splitlines():
            name, exit_code, text = line.split("\t", 2)
            command = name.replace(" ", "-")
            if command not in commands:
                errors.append(f"{name}: has no schema")
                continue
            value = json.loads(text)
            if value["exitCode"] != int(exit_code):
                errors.append(f"{name}: exit code {exit_code}, but {text}")
            validator = jsonschema.Draft202012Validator(
                {"$defs": strict["$defs"], "$ref": "#/$defs/" + command}
            )
            for error in validator.iter_errors(value):
                errors.append(f"{name}: {error.message} in {text}")
            seen.update(fields(value, command))
            (good if value["exitCode"] == 0 else bad).add(command)

    # Of these there is one kind of end only; what is traced has the fields of its own command.
    errors += [f"{command}: no good end" for command in commands if command not in good | {"usage"}]
    errors += [
        f"{command}: no bad end" for command in commands if command not in bad | {"help", "version"}
    ]
    errors += [f"{field}: never seen" for field in sorted(described - seen)]
    for error in errors:
        print(error)
    print(f"{len(commands)} schemas, {len(described)} fields, {len(errors)} errors")
    return 1 if errors or not seen else 0


sys.exit(main())

"""Validates JSON reports:  check_reports.py SCHEMA_FOLDER REPORT...

Prints one line a fault. Of long lists the first elements are validated, since all are made by the same code.
"""
import json
import pathlib
import sys

import jsonschema

MOST_ELEMENTS = 200


def shorten(value):
    if isinstance(value, list):
        return [shorten(element) for element in value[:MOST_ELEMENTS]]
    if isinstance(value, dict):
        return {key: shorten(element) for key, element in value.items()}
    return value


def load_validators(folder):
    validators = {}
    for path in pathlib.Path(folder).glob("*.json"):
        schema = json.loads(path.read_text())
        jsonschema.Draft202012Validator.check_schema(schema)
        validators[schema["$id"]] = jsonschema.Draft202012Validator(schema)
    return validators


def main():
    validators = load_validators(sys.argv[1])
    faults = 0
    for name in sys.argv[2:]:
        report = shorten(json.loads(pathlib.Path(name).read_text()))
        for part in report if isinstance(report, list) else [report]:
            version = "vqgas.scatter_file/1" if "format" in part else part.get("schema")
            if version not in validators:
                print(f"{name}: no schema {version}")
                faults += 1
                continue
            for error in validators[version].iter_errors(part):
                print(f"{name}: {version}: {error.json_path}: {error.message[:300]}")
                faults += 1
    return min(faults, 1)


sys.exit(main())

"""Checks files of JSON lines against the schema of trovik-reset's events: check_events.py SCHEMA FILE..."""
import json
import sys

import jsonschema

with open(sys.argv[1], encoding="utf-8") as file:
    schema = json.load(file)
validator = jsonschema.Draft7Validator(schema)
jsonschema.Draft7Validator.check_schema(schema)
wrong = 0
lines = 0
for name in sys.argv[2:]:
    with open(name, encoding="utf-8") as file:
        for line in file:
            lines += 1
            for error in validator.iter_errors(json.loads(line)):
                wrong += 1
                print(f"{name}: {error.message} in {line}", file=sys.stderr)
sys.exit(0 if lines and not wrong else 1)

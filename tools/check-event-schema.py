#!/usr/bin/python3
"""The event schema stage: every event the host services receive is checked against
docs/events.schema.json with a standard validator (Debian's python3-jsonschema, draft 2020-12).

    tools/check-event-schema.py <build-dir>

Three sources of traffic, all through the library as built in <build-dir>:
  - the camera day: vistel-replay --json examples/camera-day.json, every kind;
  - the 8-thread stress test (tests/robustness), which the host services log to the files
    VISTEL_EVENT_LOG and OVRIX_EVENT_LOG name;
  - the fuzzer's seed corpus, fed through the library as the fuzzer feeds it by
    vistel-fuzz-replay.
Every event must satisfy exactly one shape of its service and identifier, and every shape
(nested ones included) must be received at least once. A service log is the service's own view:
a Vistel parameter by index is the long the library passed, for a text its address, so there the
text's place is only checked to hold an integer (the other two sources show the text itself).

Last, one event of each shape is broken three ways, a parameter's type, the order of two
parameters and a parameter's key, and each must be refused: a schema that lets those through
would check nothing. Temporary files go to TMPDIR and are removed.
"""

import copy
import json
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import jsonschema
from jsonschema import Draft202012Validator

ROOT = Path(__file__).resolve().parent.parent
SCHEMA = ROOT / "docs" / "events.schema.json"
CAMERA_DAY = ROOT / "examples" / "camera-day.json"
CORPUS = ROOT / "fuzz" / "corpus"
MAX_REPORTED = 10  # failures shown in full


def raw_form(defs):
    """The definitions with each text by index as a service log holds it: the text's address."""
    defs = copy.deepcopy(defs)

    def walk(node):
        if isinstance(node, list):
            return [walk(item) for item in node]
        if not isinstance(node, dict):
            return node
        properties = node.get("properties", {})
        if "index" in properties and "text" in properties:
            return {"type": "object",
                    "properties": {"index": properties["index"], "value": {"type": "integer"}},
                    "required": ["index", "value"], "additionalProperties": False}
        return {key: walk(value) for key, value in node.items()}

    return walk(defs)


class Shapes:
    """The schema's definitions, each with its validator, and how often each was received."""

    def __init__(self, schema, defs, hits):
        self.hits = hits
        top = {ref["$ref"].rsplit("/", 1)[1] for ref in schema["oneOf"]}
        self.validators = {}
        self.top = {}  # (service, id) -> names
        self.nested = {}  # id -> names
        for name, definition in defs.items():
            self.validators[name] = Draft202012Validator({"$ref": "#/$defs/" + name,
                                                          "$defs": defs})
            properties = definition["properties"]
            ident = properties["id"]["const"]
            if name in top:
                self.top.setdefault((properties["service"]["const"], ident), []).append(name)
            else:
                self.nested.setdefault(ident, []).append(name)

    def check(self, event, count=True):
        """The shape `event` satisfies, alone of those of its identifier; or None and why not."""
        names = self.top.get((event.get("service"), event.get("id")), [])
        if not names:
            return None, "no shape is the %s event %s" % (event.get("service"), event.get("id"))
        matched = [name for name in names if self.validators[name].is_valid(event)]
        if len(matched) > 1:
            return None, "satisfies several shapes: " + ", ".join(matched)
        if not matched:
            reasons = []
            for name in names:
                error = jsonschema.exceptions.best_match(self.validators[name].iter_errors(event))
                place = "/".join(str(part) for part in error.absolute_path)
                reasons.append("%s: at /%s: %s" % (name, place, error.message[:300]))
            return None, "; ".join(reasons)
        if count:
            self.hits[matched[0]] += 1
            self.count_nested(event)
        return matched[0], None

    def count_nested(self, event):
        for param in event.get("params", []):
            if param.get("type") != "array":
                continue
            for nested in param["value"]:
                for name in self.nested.get(nested["id"], []):
                    if self.validators[name].is_valid(nested):
                        self.hits[name] += 1
                self.count_nested(nested)


FAILURES = []  # what failed, for the end of the report


def run(command, env=None):
    """The command's output. A failing command fails the stage; what it wrote is still checked."""
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=env,
                            check=False)
    if result.returncode != 0:
        said = (result.stderr or result.stdout).decode(errors="replace")
        FAILURES.append("%s exited with %d:\n%s" % (" ".join(str(part) for part in command),
                                                     result.returncode, said[-2000:]))
    return result.stdout.decode(errors="replace")


def events_of_lines(text):
    """The events of vistel-replay --json or vistel-fuzz-replay lines."""
    for line in text.splitlines():
        yield from json.loads(line).get("events", [])


def camera_day(build):
    return events_of_lines(run([build / "tools" / "vistel-replay", "--json", CAMERA_DAY]))


def stress_test(build):
    with tempfile.TemporaryDirectory(prefix="event-schema-") as folder:
        logs = {"vistel": Path(folder) / "vistel.jsonl", "ovrix": Path(folder) / "ovrix.jsonl"}
        env = dict(os.environ, VISTEL_EVENT_LOG=str(logs["vistel"]),
                   OVRIX_EVENT_LOG=str(logs["ovrix"]))
        run([build / "tests" / "robustness" / "robustness_stress_test", "--gtest_brief=1"], env)
        events = []
        for service, log in logs.items():
            if not log.exists():
                continue
            for line in log.read_text(errors="replace").splitlines():
                events.append(dict({"service": service}, **json.loads(line)))
        return events


def fuzz_corpus(build):
    inputs = sorted(CORPUS.iterdir())
    return events_of_lines(run([build / "tools" / "vistel-fuzz-replay"] + inputs))


def broken(event):
    """The event with a parameter's type, two parameters' order and a parameter's key changed."""
    if "params" not in event:  # the jank print
        wrong_type = dict(event, msg=len(event["msg"]))
        wrong_key = {("message" if key == "msg" else key): value for key, value in event.items()}
        return [("type", wrong_type), ("key", wrong_key)]
    params = event["params"]
    first = params[0]
    wrong_type = copy.deepcopy(event)
    slot = "text" if "text" in first else "value"
    wrong_type["params"][0][slot] = ([] if isinstance(first[slot], str) else str(first[slot]))
    out_of_order = copy.deepcopy(event)
    out_of_order["params"][0], out_of_order["params"][1] = params[1], params[0]
    wrong_key = copy.deepcopy(event)
    label = next(key for key in ("index", "name", "key") if key in first)
    wrong_key["params"][0][label] = first[label] + (100 if label == "index" else "x")
    return [("type", wrong_type), ("order", out_of_order), ("key", wrong_key)]


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    build = Path(sys.argv[1]).resolve()
    started = time.monotonic()
    schema = json.loads(SCHEMA.read_text())
    Draft202012Validator.check_schema(schema)
    hits = dict.fromkeys(schema["$defs"], 0)
    shapes = Shapes(schema, schema["$defs"], hits)
    logged_shapes = Shapes(schema, raw_form(schema["$defs"]), hits)
    print("event schema %s: %d shapes, %d of them nested events"
          % (SCHEMA.relative_to(ROOT), len(hits), sum(len(n) for n in shapes.nested.values())))

    failures = FAILURES
    examples = {}  # top-level shape -> the first event of it, as the replay shows it
    sources = [
        ("camera day (vistel-replay --json examples/camera-day.json)", camera_day, shapes),
        ("8-thread stress test (robustness_stress_test, the services' event logs)", stress_test,
         logged_shapes),
        ("fuzzer's seed corpus (vistel-fuzz-replay fuzz/corpus/*, %d inputs)"
         % len(list(CORPUS.iterdir())), fuzz_corpus, shapes),
    ]
    for label, produce, checker in sources:
        source_started = time.monotonic()
        valid = 0
        for event in produce(build):
            shape, error = checker.check(event)
            if shape is None:
                failures.append("%s: %s\n    %s" % (label, error, json.dumps(event)[:400]))
                continue
            valid += 1
            if checker is shapes:
                examples.setdefault(shape, event)
        print("  %-72s %6d events valid (%.1f s)"
              % (label, valid, time.monotonic() - source_started))

    missed = sorted(name for name, count in hits.items() if count == 0)
    print("  every shape received: %d of %d" % (len(hits) - len(missed), len(hits)))
    for name in missed:
        failures.append("no event of the shape %s was received" % name)

    refused = 0
    mutants = 0
    for event in examples.values():
        for fault, mutant in broken(event):
            mutants += 1
            if shapes.check(mutant, count=False)[0] is None:
                refused += 1
            else:
                failures.append("the schema accepts an event with its first parameter's %s "
                                "changed: %s" % (fault, json.dumps(mutant)[:400]))
    print("  broken events refused (a parameter's type, order or key changed): %d of %d"
          % (refused, mutants))

    for failure in failures[:MAX_REPORTED]:
        print("FAILED " + failure, file=sys.stderr)
    if len(failures) > MAX_REPORTED:
        print("... and %d more" % (len(failures) - MAX_REPORTED), file=sys.stderr)
    print("event schema stage %s in %.1f s" % ("FAILED" if failures else "passed",
                                               time.monotonic() - started))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())

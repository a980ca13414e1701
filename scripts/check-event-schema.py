#!/usr/bin/python3
"""The event schema stage: every event the host services receive is checked against
docs/events.schema.json with a standard validator (Debian's python3-jsonschema, draft 2020-12).

    scripts/check-event-schema.py <build-dir>

Three sources of traffic, all through the library as built in <build-dir>:
  - the camera day: the event stream of vistel-replay --events examples/camera-day.json, every
    kind, each line with the time, step and kind it came from;
  - the 8-thread stress test (tests/robustness), which the host services log to the files
    VISTEL_EVENT_LOG and OVRIX_EVENT_LOG name;
  - the fuzzer's seed corpus, fed through the library as the fuzzer feeds it by
    vistel-fuzz-replay.
Every event must be valid against the whole schema and satisfy exactly one shape of its service
and identifier, and every shape (nested ones included) must be received at least once. A service
log is the service's own view: a Vistel parameter by index is the long the library passed, for a
text its address, so there the text's place is only checked to hold an integer (the other two
sources show the text itself).

Last, one event of each shape, nested ones included, is broken one member at a time: a member
of the wrong type, a required member missing, a member the shape does not have, and for the
first parameter, the order of two parameters and its label. Each must be refused, and the
validator's best error (jsonschema's best_match) must name the broken member's path: a schema
that lets those through would check nothing, one that cannot say where would help nobody.
Temporary files go to TMPDIR and are removed.
"""

import copy
import json
import os
import re
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from jsonschema import Draft202012Validator
from jsonschema.exceptions import best_match

ROOT = Path(__file__).resolve().parent.parent
SCHEMA = ROOT / "docs" / "events.schema.json"
CAMERA_DAY = ROOT / "examples" / "camera-day.json"
CORPUS = ROOT / "fuzz" / "corpus"
# The page that shows this stage's report; its figures must be the stage's.
REPORT_PAGE = ROOT / "docs" / "data-team.md"
MAX_REPORTED = 10  # failures shown in full


def raw_form(schema):
    """The schema with each text by index as a service log holds it: the text's address."""

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

    return walk(schema)


class Shapes:
    """The schema's definitions, each with its validator, and how often each was received."""

    def __init__(self, schema, hits):
        self.hits = hits
        self.whole = Draft202012Validator(schema)
        defs = schema["$defs"]
        self.validators = {}
        self.top = {}  # (service, id) -> names
        self.nested = {}  # id -> names
        for name, definition in defs.items():
            self.validators[name] = Draft202012Validator({"$ref": "#/$defs/" + name,
                                                          "$defs": defs})
            properties = definition["properties"]
            ident = properties["id"]["const"]
            if "service" in properties:
                self.top.setdefault((properties["service"]["const"], ident), []).append(name)
            else:
                self.nested.setdefault(ident, []).append(name)

    def check(self, event):
        """The shape `event` satisfies, alone of those of its identifier and under the whole
        schema; or None and why not."""
        if not self.whole.is_valid(event):
            return None, "invalid: %s" % where(best_match(self.whole.iter_errors(event)))
        names = self.top.get((event.get("service"), event.get("id")), [])
        matched = self.matching(names, event)
        if len(matched) > 1:
            return None, "satisfies several shapes: " + ", ".join(matched)
        if not matched:
            return None, "valid, yet of none of the shapes " + ", ".join(names)
        self.hits[matched[0]] += 1
        self.count_nested(event)
        return matched[0], None

    def matching(self, names, event):
        """Those of the shapes `names` of one identifier that `event` satisfies; within an event
        valid under the whole schema, the only shape of its identifier."""
        if len(names) == 1:
            return names
        return [name for name in names if self.validators[name].is_valid(event)]

    def nested_shapes(self, event, path=()):
        """(path, shape, nested event) for each event nested in `event`, at any depth."""
        for i, param in enumerate(event.get("params", [])):
            if param.get("type") != "array":
                continue
            for j, nested in enumerate(param["value"]):
                place = path + ("params", i, "value", j)
                for name in self.matching(self.nested.get(nested["id"], []), nested):
                    yield place, name, nested
                yield from self.nested_shapes(nested, place)

    def count_nested(self, event):
        for _, name, _ in self.nested_shapes(event):
            self.hits[name] += 1


def where(error):
    return "at /%s: %s" % ("/".join(str(part) for part in error.absolute_path),
                           error.message[:300])


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
    """The events of vistel-fuzz-replay lines."""
    for line in text.splitlines():
        yield from json.loads(line).get("events", [])


STREAM_MEMBERS = ("at", "step", "kind")  # what each line of vistel-replay --events tells


def camera_day(build):
    lines = run([build / "replay" / "vistel-replay", "--events", CAMERA_DAY]).splitlines()
    events = [json.loads(line) for line in lines]
    for event in events:
        if any(member not in event for member in STREAM_MEMBERS):
            FAILURES.append("an event of the stream lacks one of %s: %s"
                            % (", ".join(STREAM_MEMBERS), json.dumps(event)[:400]))
    return events


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
    return events_of_lines(run([build / "fuzz" / "input" / "vistel-fuzz-replay"] + inputs))


def wrong_type(value):
    return 7 if isinstance(value, str) else "7"


def telling_labels(schema):
    """(service, id) -> the parameter labels by which the schema tells that identifier's shapes
    apart."""
    def contained(node):
        if isinstance(node, list):
            return set().union(*(contained(item) for item in node))
        if not isinstance(node, dict):
            return set()
        labels = set()
        if "contains" in node:
            labels |= {value["const"] for value in node["contains"]["properties"].values()}
        return labels.union(*(contained(value) for value in node.values()))

    labels = {}
    for service in schema["allOf"]:
        for ident in service["then"]["allOf"]:
            key = (service["if"]["properties"]["service"]["const"],
                   ident["if"]["properties"]["id"]["const"])
            labels[key] = contained(ident["then"])
    return labels


def broken(event, telling, path=()):
    """(fault, the broken member's path, whether the error may lie inside it, the event with that
    member broken) for each member of the shape `event` is, at `path` in the event that holds
    it: a member's type, a required member left out, a member added; and for the first
    parameter, its place swapped with the second's and its label changed. An event whose label
    no longer tells its shape is refused at its params, where the shapes differ."""
    top = path == ()
    extra = "unit"  # a member no shape has; the stream's own ones (at, step, ...) are allowed
    for member in event:
        if member in STREAM_MEMBERS + ("record",):
            continue
        mutant = copy.deepcopy(event)
        mutant[member] = wrong_type(event[member])
        yield "type of " + member, path + (member,), False, mutant
    body = "params" if "params" in event else "msg"
    yield "missing " + body, path, False, {k: v for k, v in event.items() if k != body}
    yield "unknown member", path, False, dict(event, **{extra: 1})
    params = event.get("params", [])
    for i, param in enumerate(params):
        place = path + ("params", i)
        slot = "text" if "text" in param else "value"
        for fault, member, mutated in (
                ("type of", place + (slot,), dict(param, **{slot: wrong_type(param[slot])})),
                ("missing", place, {k: v for k, v in param.items() if k != slot}),
                ("unknown member in", place, dict(param, **{extra: 1}))):
            mutant = copy.deepcopy(event)
            mutant["params"][i] = mutated
            yield "%s params[%d]" % (fault, i), member, False, mutant
    if len(params) > 1:
        mutant = copy.deepcopy(event)
        mutant["params"][0], mutant["params"][1] = params[1], params[0]
        yield "order of params[0] and [1]", path + ("params",), True, mutant
        mutant = copy.deepcopy(event)
        label = next(key for key in ("index", "name", "key") if key in params[0])
        mutant["params"][0][label] = params[0][label] + (100 if label == "index" else "x")
        if params[0][label] in telling:
            yield "label of params[0], which tells the shape", path + ("params",), False, mutant
        else:
            yield "label of params[0]", path + ("params", 0), True, mutant


def set_at(event, path, value):
    """`event` with the member at `path` replaced by `value`; the path () replaces it whole."""
    if not path:
        return value
    event = copy.deepcopy(event)
    node = event
    for part in path[:-1]:
        node = node[part]
    node[path[-1]] = value
    return event


def figures_differ(shown, printed):
    """Whether a line of REPORT_PAGE's copy of the report disagrees with the line printed. Seconds
    are one run's and vary with the machine: not compared. A count the page gives as a range,
    "8100-8700", is one that varies from run to run: the printed count must fall in it."""
    seconds = re.compile(r"\(?\d+\.\d s\)?")
    shown_tokens = seconds.sub("", shown).split()
    printed_tokens = seconds.sub("", printed).split()
    if len(shown_tokens) != len(printed_tokens):
        return True
    for want, got in zip(shown_tokens, printed_tokens):
        bounds = re.fullmatch(r"(\d+)-(\d+)", want)
        if bounds and got.isdigit():
            if not int(bounds.group(1)) <= int(got) <= int(bounds.group(2)):
                return True
        elif want != got:
            return True
    return False


def check_report_page(report, failures):
    """REPORT_PAGE shows the report this stage prints, in a block that starts with its first
    line and ends with the stage's verdict."""
    lines = REPORT_PAGE.read_text().splitlines()
    page = REPORT_PAGE.relative_to(ROOT)
    try:
        start = lines.index(report[0])
    except ValueError:
        failures.append("%s does not show this stage's report (%r)" % (page, report[0]))
        return
    for offset, printed in enumerate(report):
        shown = lines[start + offset] if start + offset < len(lines) else ""
        if figures_differ(shown, printed):
            failures.append("%s shows %r where the stage printed %r" % (page, shown, printed))


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    build = Path(sys.argv[1]).resolve()
    started = time.monotonic()
    schema = json.loads(SCHEMA.read_text())
    Draft202012Validator.check_schema(schema)
    hits = dict.fromkeys(schema["$defs"], 0)
    shapes = Shapes(schema, hits)
    logged_shapes = Shapes(raw_form(schema), hits)
    report = []

    def say(line):
        print(line)
        report.append(line)

    say("event schema %s: %d shapes, %d of them nested events"
        % (SCHEMA.relative_to(ROOT), len(hits), sum(len(n) for n in shapes.nested.values())))

    failures = FAILURES
    examples = {}  # top-level shape -> the first event of it, as the replay shows it
    sources = [
        ("camera day (vistel-replay --events examples/camera-day.json)", camera_day, shapes),
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
                examples.setdefault(shape, ((), event, event))
                for path, name, nested in shapes.nested_shapes(event):
                    examples.setdefault(name, (path, nested, event))
        say("  %-72s %6d events valid (%.1f s)"
            % (label, valid, time.monotonic() - source_started))

    missed = sorted(name for name, count in hits.items() if count == 0)
    say("  every shape received: %d of %d" % (len(hits) - len(missed), len(hits)))
    for name in missed:
        failures.append("no event of the shape %s was received" % name)

    refused = 0
    mutants = 0
    telling = telling_labels(schema)
    for name, (path, example, event) in sorted(examples.items()):
        labels = telling[(event["service"], event["id"])] if path == () else set()
        for fault, member, within, mutant in broken(example, labels, path):
            mutants += 1
            error = best_match(shapes.whole.iter_errors(set_at(event, path, mutant)))
            place = tuple(error.absolute_path) if error is not None else None
            if place is None:
                failures.append("%s: the schema accepts it with its %s" % (name, fault))
            elif place == member or within and place[:len(member)] == member:
                refused += 1
            else:
                failures.append("%s with its %s: the best error is %s, not at /%s"
                                % (name, fault, where(error),
                                   "/".join(str(part) for part in member)))
    say("  broken events refused, the best error at the broken member: %d of %d (%d shapes)"
        % (refused, mutants, len(examples)))
    check_report_page(report, failures)

    for failure in failures[:MAX_REPORTED]:
        print("FAILED " + failure, file=sys.stderr)
    if len(failures) > MAX_REPORTED:
        print("... and %d more" % (len(failures) - MAX_REPORTED), file=sys.stderr)
    print("event schema stage %s in %.1f s" % ("FAILED" if failures else "passed",
                                               time.monotonic() - started))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())

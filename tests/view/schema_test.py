"""Holds JSON answers against the JSON Schemas that are installed, and lets them have no other members.

Usage: schema_test.py SCHEMAS PIMBSR TEST_AGENT ROOT: the folder of the schemas, the built command, the built
tests of the agent, which keep the answers that they compare, and the source tree. Prints what is wrong and
fails if there is something. Every schema needs an answer, but for those in ELSEWHERE."""

import json
import os
import pathlib
import subprocess
import sys
import tempfile

import jsonschema

# Answers of the process itself, each with the test that holds it.
ELSEWHERE = {"reload": "lab-watch", "metrics": "lab-watch", "version": "lab-watch", "compare": "lab-compare"}


def strict(schema):
    """The schema, in which an object has no members but those named."""
    if isinstance(schema, list):
        return [strict(one) for one in schema]
    if not isinstance(schema, dict):
        return schema
    made = {key: strict(value) for key, value in schema.items()}
    if "properties" in made and made.get("type") == "object":
        made.setdefault("additionalProperties", False)
    return made


def validators(folder):
    found = {}
    for path in sorted(folder.glob("*.json")):
        schema = json.loads(path.read_text())
        jsonschema.Draft202012Validator.check_schema(schema)
        found[path.stem] = jsonschema.Draft202012Validator(strict(schema))
    return found


def answers_of_agent(test_agent):
    """(schema, answer) of each view that the tests of the agent compare."""
    with tempfile.TemporaryDirectory() as folder:
        command = [test_agent, "--gtest_filter=ViewsTest.*:HistoryTest.*", "--gtest_brief=1"]
        subprocess.run(command, check=True, capture_output=True, env={**os.environ, "PIMBSR_ANSWERS": folder})
        for path in sorted(pathlib.Path(folder).iterdir()):
            for line in path.read_text().splitlines():
                yield path.stem, json.loads(line)


def answers_of_command(pimbsr, root):
    """(schema, answer) of simulations, replays and checks."""
    def run(*arguments):
        done = subprocess.run([pimbsr, *arguments], capture_output=True, text=True, check=False)
        return json.loads(done.stdout) if done.returncode == 0 else None

    for options in ["--json"], ["--json", "--load", "links"]:
        for scenario in "examples/five-routers.sim", "tests/view/every-event.sim":
            answer = run("sim", *options, root / scenario)
            yield "sim", answer
            yield from ((f"sim-{member}", answer[member]) for member in ("topology", "spans", "load"))
    for file in root / "examples/pimbsr.toml", root / "fuzz/corpus/config/twice.toml", root / "none.toml":
        yield "check", json.loads(subprocess.run(
            [pimbsr, "check", "--json", file], capture_output=True, text=True, check=False).stdout)
    for capture in [root / "examples/two-scopes.pcap", *sorted((root / "tests/cli/captures").glob("few-*"))]:
        answer = run("replay", "--json", capture)
        yield "replay", answer
        yield from (("replay-event", event) for event in answer["timeline"])


def errors(schemas, pimbsr, test_agent, root):
    known, seen = validators(schemas), {}
    for name, answer in [*answers_of_agent(test_agent), *answers_of_command(pimbsr, root)]:
        seen[name] = seen.get(name, 0) + 1
        for error in known[name].iter_errors(answer):
            yield f"{name}: {error.json_path}: {error.message}"
    for name in sorted(known.keys() - seen.keys() - ELSEWHERE.keys()):
        yield f"{name}: no answer was held against it"
    print(", ".join(f"{name}: {count}" for name, count in sorted(seen.items())))


if __name__ == "__main__":
    found = list(errors(*(pathlib.Path(argument).resolve() for argument in sys.argv[1:])))
    print("\n".join(found) if found else "all answers are as their schemas say")
    sys.exit(1 if found else 0)

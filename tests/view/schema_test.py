"""Holds JSON answers against the JSON Schemas that are installed, and lets them have no other members.

Usage: schema_test.py SCHEMAS PIMBSR ROOT TEST...: the folder of the schemas, the built command, the source
tree, and built tests, which keep the answers that they compare. Prints what is wrong and fails if there is
something. Every schema needs an answer."""

import http.client
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

import jsonschema

# The tests that keep answers (tests/support/Answers.h).
KEEPING = ("ViewsTest.*:InterfaceViewsTest.*:HistoryTest.*:MetricsTest.*:ModelViewsTest.*:"
           "ControlProtocolTest.*:ControlCommandsTest.*")


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


def answers_of_tests(test):
    """(schema, answer) of each answer that tests compare."""
    with tempfile.TemporaryDirectory() as folder:
        command = [test, f"--gtest_filter={KEEPING}", "--gtest_brief=1"]
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


def answers_of_web(pimbsr, root, change):
    """(schema, answer) of a server over one agent, to which a change occurs."""
    sys.path.insert(0, str(root / "tests/web"))
    agents = __import__("agents")
    with tempfile.TemporaryDirectory() as folder:
        agent = agents.FakeAgent(f"{folder}/r1.sock")
        agent.answers["drops"] = {"drops": [], "lastMessages": []}
        words = [pimbsr, "web", "--listen", "127.0.0.1:0", "--agent", f"r1={agent.path}"]
        server = subprocess.Popen(words, stdout=subprocess.PIPE, text=True)
        try:
            port = int(re.search(r":(\d+)/", server.stdout.readline())[1])
            for schema, path in (("web", "/api"), ("web-error", "/api/none/bsr"),
                                 ("compare", "/api/compare")):
                connection = http.client.HTTPConnection("localhost", port, timeout=20)
                connection.request("GET", path)
                yield schema, json.loads(connection.getresponse().read())
            yield from events(port, agent, change)
        finally:
            server.terminate()
            server.communicate()
            agent.stop()


def events(port, agent, change):
    """(schema, event) of a stream until it has the change."""
    connection = http.client.HTTPConnection("localhost", port, timeout=20)
    connection.request("GET", "/events")
    lines, name, event = connection.getresponse(), "", {}
    while "change" not in event:
        word, _, text = lines.readline().decode().rstrip("\n").partition(": ")
        name = text if word == "event" else name
        if word == "data":
            event = json.loads(text)
            yield f"web-event-{name}", event
            if name == "agent" and event["up"]:
                publish(agent, change)


def publish(agent, change):
    """Publishes a change once the agent has noted its watcher."""
    for _ in range(1000):
        if agent.watchers:
            return agent.publish(change)
        time.sleep(0.01)
    raise AssertionError("nothing watches the agent")


def errors(schemas, pimbsr, root, *tests):
    known, seen = validators(schemas), {}
    answers = [pair for test in tests for pair in answers_of_tests(test)]
    change = next(answer for name, answer in answers if name == "watch")
    answers += [*answers_of_command(pimbsr, root), *answers_of_web(pimbsr, root, change)]
    for name, answer in answers:
        seen[name] = seen.get(name, 0) + 1
        for error in known[name].iter_errors(answer):
            yield f"{name}: {error.json_path}: {error.message}"
    for name in sorted(known.keys() - seen.keys()):
        yield f"{name}: no answer was held against it"
    print(", ".join(f"{name}: {count}" for name, count in sorted(seen.items())))


if __name__ == "__main__":
    found = list(errors(*(pathlib.Path(argument).resolve() for argument in sys.argv[1:])))
    print("\n".join(found) if found else "all answers are as their schemas say")
    sys.exit(1 if found else 0)

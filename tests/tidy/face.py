"""The installed headers of component host reach no header of a machine, and none that is not installed. Which
headers these are is in cmake/Face.cmake."""

import re

import graph

FACES = "cmake/Face.cmake"
FACE = re.compile(r"^set\(host_face_(host|pim|wire)\s([^)]*)\)", re.M)
PARTLY = ("host", "pim", "wire")
MACHINES = ("protocol", "crp", "config")


def faces(text):
    """The installed headers of each module that installs some of its headers."""
    return {module: {f"{module}/{name}.h" for name in names.split()}
            for module, names in FACE.findall(text)}


def reached(starts, includes):
    """The headers that some headers include, themselves or over others, and these headers."""
    found, waiting = set(starts), sorted(starts)
    while waiting:
        new = {edge.target for edge in includes.get(waiting.pop(), ())} - found
        found |= new
        waiting += sorted(new)
    return found


def check(texts):
    """Errors of the files `texts` (path to text): (path, line, text)."""
    installed = faces(texts.get(FACES, ""))
    present = {path.split("/")[0] for path in texts}
    for module in PARTLY:
        if module in present and module not in installed:
            yield FACES, 1, f"names no header of {module}/"
    includes = {}
    for path, text in texts.items():
        for edge in graph.edges(path, text):
            includes.setdefault(edge.source, []).append(edge)
    for header in sorted(reached(set().union(*installed.values()), includes)):
        for edge in includes.get(header, ()):
            module = edge.target.split("/")[0]
            reach = f"component host reaches {edge.target}"
            if module in MACHINES:
                yield header, edge.line, f"{reach}, a header of the machines"
            elif edge.target not in installed.get(module, {edge.target}):
                yield header, edge.line, f"{reach}, which {FACES} doesn't name"

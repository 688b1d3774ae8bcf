"""The includes of each file, and the cycles among headers and among units. A unit is a header with its source
and its declaration. Lines `use` and `later` of a declaration make includes: `use` in the generated header,
which the header of the same name includes, `later` in the generated source."""

import collections
import re

# (units, reason)
ALLOWED_CYCLES = [
    ({"crp/RpCandidateSm", "protocol/BsrCandidateSm", "protocol/BsrNonCandidateSm", "protocol/PimBsrSm"},
     "the root machine owns the machines of its zones and candidate RPs, and these call its methods"),
    ({"runtime/Activity", "runtime/Notifiee"},
     "an activity serves reactors, and a reactor enqueues itself at an activity"),
]

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*"([^"]*)"', re.M)
DECLARED = re.compile(r"^(use|later)[ \t]+(\S+)", re.M)

Edge = collections.namedtuple("Edge", "source target in_header line")


def line_of(text, offset):
    return text.count("\n", 0, offset) + 1


def edges(path, text):
    """The includes of a file, within the tree. A declaration counts as the header and source of its name; a
    header's include of its own generated header is left out."""
    unit = path.rpartition(".")[0]
    if path.endswith(".zet"):
        for match in DECLARED.finditer(text):
            in_header = match[1] == "use"
            source = unit + (".h" if in_header else ".cpp")
            yield Edge(source, match[2] + ".h", in_header, line_of(text, match.start()))
    elif path.endswith((".h", ".cpp")):
        for match in INCLUDE.finditer(text):
            if path.endswith(".cpp") or match[1] != f"{unit}.zet.h":
                yield Edge(path, match[1], path.endswith(".h"), line_of(text, match.start()))


def cycles(graph):
    """The strongly connected sets of more than one node, each sorted. `graph` maps a node to its targets."""
    order, low, path, on_path, found = {}, {}, [], set(), []

    def close(node):
        members = []
        while not members or members[-1] != node:
            members.append(path.pop())
            on_path.discard(members[-1])
        if len(members) > 1:
            found.append(sorted(members))

    def enter(node):
        order[node] = low[node] = len(order)
        path.append(node)
        on_path.add(node)
        return node, iter(sorted(graph.get(node, ())))

    for start in sorted(graph):
        frames = [] if start in order else [enter(start)]
        while frames:
            node, targets = frames[-1]
            target = next(targets, None)
            if target is None:
                frames.pop()
                if frames:
                    low[frames[-1][0]] = min(low[frames[-1][0]], low[node])
                if low[node] == order[node]:
                    close(node)
            elif target not in order:
                frames.append(enter(target))
            elif target in on_path:
                low[node] = min(low[node], order[target])
    return sorted(found)


def check(texts, is_product):
    """Errors of the files `texts` (path to text) for which is_product(path) holds: (path, line, text)."""
    found = [e for path, text in texts.items() if is_product(path) for e in edges(path, text)]
    headers, units = collections.defaultdict(set), collections.defaultdict(set)
    for edge in found:
        if edge.in_header:
            headers[edge.source].add(edge.target)
        source, target = edge.source.rpartition(".")[0], edge.target.rpartition(".")[0]
        if source != target:
            units[source].add(target)
    for cycle in cycles(headers):
        yield cycle[0], 1, "cycle of headers: " + ", ".join(cycle)
    found_cycles = cycles(units)
    allowed = [sorted(members) for members, _ in ALLOWED_CYCLES]
    for cycle in found_cycles:
        if cycle not in allowed:
            yield cycle[0], 1, "cycle of units: " + ", ".join(cycle)
    present = {path.rpartition(".")[0] for path in texts}
    for cycle in allowed:
        if cycle not in found_cycles and present.issuperset(cycle):
            text = ", ".join(cycle) + " are no cycle: remove it from ALLOWED_CYCLES of tests/tidy/graph.py"
            yield cycle[0], 0, text

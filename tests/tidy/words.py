"""The word list: words that this project doesn't use, each with the term of the field that takes its place.

A rule finds whole words in comments, messages, documents and names; names are split at capitals, hyphens and
underscores first. Of a fenced block of a document only the comments count: the rest quotes what the program
reads and prints."""

import fnmatch
import re
from collections import namedtuple

# What a rule looks at: the words of a line; a name that begins with the word, as in mostX; a line that has
# nothing but the word or ends as the heading of a section does; a name as it is written; the first words of a
# sentence that follows another one, and of any sentence.
WORDS, FIRST_OF_NAME, HEADING, NAME = "words", "first of a name", "heading", "name"
SUBJECT, OPENING = "subject", "opening"

# Where a sentence begins: after another one or in a list, since "What a key is." alone is a phrase; or also
# at the beginning of a comment, a message or a paragraph.
WITHIN = r"(?:(?<=[a-z0-9)`'\"][.!?] )|(?<=^- ))"
ANYWHERE = rf"(?:{WITHIN}|(?<=^)|(?<=[/#*] )|(?<=\"))"

# words: a pattern, of words in lower case with one blank between them except for NAME and sentences. use: the
# words in their place.
# senses: patterns of the same words in a sense that stays. paths: where the rule applies.
Rule = namedtuple("Rule", "words use kind senses paths", defaults=(WORDS, (), "*"))

RULES = [
    Rule("tell|tells|telling|told|untold", "report, log, notify, publish; of a message: received"),
    Rule("fault|faults|faulty", "error", WORDS, ("page faults?",)),
    Rule("believe|believes|believed|belief|beliefs", "learned state, current RP set, elected BSR"),
    Rule("stand|stands|stood|standing", "is, appears, may be repeated", WORDS, ("(stands?|standing) for",)),
    Rule("(stand|stands|stood|standing) for (election|the election|a zone|the zone|the global zone)",
         "is a candidate"),
    Rule("behind", "after, following; trailing bytes", WORDS, ("behind an? (nat|firewall)",)),
    Rule("(come|comes|came) of it", "has no effect"),
    Rule("nobody", "is not referenced; no router"),
    Rule("farewells?", "goodbye Hello, Hello with zero holdtime"),
    Rule("greet|greets|greeted|greetings?", "triggered Hello, No-Forward BSM, new neighbor"),
    Rule("chances?|dice", "random, RNG"),
    Rule("most|least|longest", "max, min", FIRST_OF_NAME, ("longest match",)),
    Rule("roads?", "packet path, receive path"),
    Rule("births?|departures?|arrivals?", "Construction, Transmit, Receive", HEADING),
    Rule("judges?|judged|judging|judge?ments?", "validate, check"),
    Rule("screens?|screened|screening", "ingress filter", WORDS, ("(clears?|on|of) (the|a) screen",)),
    Rule("refuse|refuses|refused|refusing|refusals?", "packets: drop, drop reason; values: reject", WORDS,
         (r"refus(e|es|ed|ing) (an? |the )?(new )?(connections?|configurations?)",
          r"(connections?|configurations?)( (is|are|was|were|that is))? refused")),
    Rule("punctuality", "timer latency"),
    Rule("computers?", "host, system"),
    Rule(r"(Linux|Fake|Test)?Machine", "Platform", NAME, (), "agent/*"),
    Rule(r"Doing|\w+Doing|writtens|isIt|ofNobody|\w+AtHome|theOnly|TraceWish",
         "Executor, keyMappings, matches, discarded, isOnLink, onlyKey, TraceRequest", NAME),
    Rule("people|in words", "human-readable, description", WORDS, (r"for \w+ in words",)),
    Rule("story|stories", "scenario test"),
    Rule("rooms?", "module", WORDS, ("(make|makes|made|making|no|more|enough|has|there is) room", )),
    Rule("houses?", "project"),
    Rule("mend|mends|mended|mending|truly", "fix, correct"),
    Rule("neighbours?|neighbouring", "neighbor"),
    Rule("hold times?", "BS_Timeout (bs-timeout) of a BSR; holdtime of an RP and a neighbor"),
    Rule("zone timeouts?", "SZ_Timeout (sz-timeout)"),
    *(Rule(r"U32 interval|U16 interval|(?<=[.>])interval(?!\()", "bsPeriod, cRpAdvPeriod", NAME, (), paths)
      for paths in ("agent/*", "cli/*", "host/*", "sim/*")),
    Rule("What", "a noun as subject", SUBJECT),
    Rule(r"What is kept is|What (?:is|was|were|went|still)\b"
         r"(?:(?! (?:what|when|while|that|which|who|where)\b)[^.,;:])* (?:is|are|was|were|may|must|has|have)",
         "a noun as subject", OPENING),
    Rule(r"Whatever\w*|\w*Whoever\w*", "a noun as subject", NAME),
    Rule("(Printed|Built|Chosen|Found|Given|Gone|Held|Kept|Known|Left|Made|Sent|Shown|Taken|"
         "Written|[A-Z][a-z]+ed) (is|are|was|were)", "subject, verb, object", OPENING,
         ("(Indeed|Speed|Seed|Need) ", )),
]

# Names and texts that are fixed, as patterns: (pattern, paths, reason).
ALLOWED = [
    (r"\b(holdTime|holdTimeIs|holdTime_|holdTimeDefault|onHoldTime|attrHoldTime|handleBsrHoldTime)\b", "*",
     "Config.holdTime and RpCandidate.holdTime are attributes of the model, with accessors and handlers"),
    (r"\bCrpHoldTime(Range)?\b", "*", "a type of the model, with its range"),
    (r"^(Entity|Machine|Record|Enumeration)\. What", "docs/model.md", "a kind and a phrase for the class"),
    (r"^(Entity|Machine|Record)\. What", "tests/zetc/golden/*", "a kind and a phrase for the class"),
    (r"BSR Hold Time is", "*", "text of a trace"),
    (r"Scoped Zone timeout", "*", "text of a trace"),
    (r"to house prefix", "*", "text of a trace"),
    (r"(?i)\w*(house|room)\w*", "tests/zetc/*", "the sample declarations describe a building"),
    (r'former "[^"]*"', "host/*", "former names of keys, which errors refer to"),
    (r"fragments that have room", "protocol/BsmFragmenting.h", "space"),
    (r"(?i)\bfaults?\b", "docs/scenarios.md", "faults that the simulator injects"),
    (r"\bfaults\b", "tests/scenarios/*", "the statement of a scenario"),
    (r"\bfaults\b", "scripts/outage_events.py", "the statement of a scenario"),
    (r"(?i)\bfaults\b", "cli/main.cpp", "faults that the simulator injects"),
    (r"(?i)\bfaults\b", "tests/cli/Sim*Test.cpp", "faults that the simulator injects"),
    (r"hold-time|zone-timeout", "cli/main.cpp", "former names of options"),
    (r"hold-time|zone-timeout", "tests/cli/*", "former names of options and keys"),
    (r"(?i)\bfaults?\b", "tests/lab/relay.py", "faults that the relay injects"),
    (r"with its faults", "packaging/pimbsr.8", "faults that the simulator injects"),
    (r"`[^`]*`", "CHANGELOG.md", "former names"),
    (r"\w*[fF]aults?\w*", "sim/*", "faults that the simulator injects"),
    (r"\w*[fF]aults?\w*", "tests/sim/*", "faults that the simulator injects"),
    (r"there is no statement 'reuter'.*", "tests/scenarios/mistakes.txt", "the names of the statements"),
    (r"refusals", "sim/ScenarioOutput.cpp", "a former name of a kind of events"),
    (r"refusals", "tests/scenarios/mistakes.txt", "a former name of a kind of events"),
    (r"hold-time", "tests/scenarios/mistakes.txt", "a former name of an option"),
    (r"hold-time|zone-timeout", "tests/agent/ConfigFileTest.cpp", "former names of keys"),
    (r"\bnobody\b|errorAsNobody", "tests/agent/Control*Test.cpp", "the user of this name"),
    (r"\bfaults\b", "tests/view/*.sim", "a statement of scenarios"),
    (r"`[^`]*`", "docs/rfc5059.md", "names of functions and tests, checked where they are declared"),
]

# The words themselves are in these files.
OWN_FILES = ("tests/tidy/words.py", "tests/tidy/words_test.py", "tests/tidy/tidy_test.py")
# Bytes that a fuzz target reads.
INPUTS = ("fuzz/corpus/*", )


def matches_any(path, patterns):
    return any(fnmatch.fnmatch(path, pattern) for pattern in patterns)


def split_names(text):
    """The text in lower case, names split at capitals, numbers, hyphens and underscores."""
    text = re.sub(r"(?<=[a-z0-9])(?=[A-Z])|(?<=[A-Z])(?=[A-Z][a-z])|(?<=[a-z])(?=[0-9])", " ", text)
    return re.sub(r"[ _-]+", " ", text).lower()


def blanked(text, patterns):
    for pattern in patterns:
        text = re.sub(pattern, lambda match: " " * len(match[0]), text)
    return text


# The kinds that look at sentences, with the place where one begins.
SENTENCES = {SUBJECT: WITHIN, OPENING: ANYWHERE}


def opening(rule):
    return rf"{SENTENCES[rule.kind]}({rule.words}) (?=[a-z])"


def find(rule, line):
    """The words of a line that the rule finds, "" for none."""
    if rule.kind == NAME:
        match = re.search(rf"\b({rule.words})\b", line)
    elif rule.kind == FIRST_OF_NAME:
        names = (n for n in re.findall(r"[a-z]+(?:[A-Z_-]\w+)+", line) if split_names(n) not in rule.senses)
        match = next(filter(None, (re.match(rf"({rule.words})\b", split_names(n)) for n in names)), None)
    elif rule.kind == HEADING:
        match = re.fullmatch(rf"[/#*\s-]*({rule.words})[-*\s]*", line.lower()) or re.fullmatch(
            rf"[/#*\s]+(?:.* )?({rule.words})(?: .*)?-{{3,}}", line.lower())
    elif rule.kind in SENTENCES:
        match = re.search(opening(rule), blanked(line, rule.senses))
    else:
        senses = (rf"\b({sense})\b" for sense in rule.senses)
        match = re.search(rf"\b({rule.words})\b", blanked(split_names(line), senses))
    return match[1] if match else ""


# Any word of any rule, to pass over most lines at once.
ALL = "|".join(rule.words.replace(" ", "[ _-]*") for rule in RULES if rule.kind not in SENTENCES)
ANY = re.compile(rf"(?i)(?<![a-z])({ALL})(?![a-z])")
ANY_OPENING = re.compile("|".join(opening(rule) for rule in RULES if rule.kind in SENTENCES))


# Where a comment of a fenced block begins, by the language of the block.
COMMENT = {"sh": r"(^|\s)#", "toml": r"(^|\s)#", "zet": r"(^|\s)#", "cmake": r"(^|\s)#", "cpp": r"//"}


def own_lines(path, lines):
    """The lines, and of those in fenced blocks of a document the comments alone."""
    comment = None  # of the block; "" for one without comments
    for line in lines:
        if path.endswith(".md") and line.lstrip().startswith("```"):
            comment = None if comment is not None else COMMENT.get(line.strip(" `"), "")
            line = ""
        elif comment is not None:
            match = re.search(comment, line) if comment else None
            line = line[match.start():] if match else ""
        yield line


def check(path, text):
    """Each word of the list in a file that is held to it: (line, what is wrong); line 0 is the path."""
    if path in OWN_FILES or matches_any(path, INPUTS):
        return
    allowed = [pattern for pattern, paths, _ in ALLOWED if fnmatch.fnmatch(path, paths)]
    rules = [rule for rule in RULES if fnmatch.fnmatch(path, rule.paths)]
    for number, line in enumerate([path, *own_lines(path, text.split("\n"))]):
        if not (ANY.search(line) or ANY.search(split_names(line)) or ANY_OPENING.search(line)):
            continue
        line = blanked(line, allowed)
        for rule in rules:
            if word := find(rule, line):
                yield number, f'"{word}": use {rule.use}'

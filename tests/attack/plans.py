"""What the attacks send, for how long, and what shows that had an effect."""

import os

# Seconds of attack: the short form, 60 in total, and the full one.
LENGTHS = {"chosen_rps": (4, 120), "chosen_ranges": (3, 120), "advertisements_worst": (2, 120),
           "advertisements_best": (3, 120), "advertisements_alternating": (2, 120), "slow_flood": (3, 60),
           "fast_flood": (3, 60), "neighbor_flood": (3, 60), "hello_flood": (2, 60),
           "hello_newcomer": (3, 60), "full_table": (2, 60), "forged_goodbye": (3, 60),
           "unicast_flood": (2, 60), "control_idle": (1, 60), "control_half": (1, 60),
           "control_unread": (1, 60), "control_watch": (1, 60), "control_connect": (1, 60),
           "control_views": (2, 60), "control_paths": (2, 60), "zones": (1, 60),
           "fragments": (1, 60), "rp_churn": (1, 60), "restarts": (1, 60), "goodbyes": (1, 60),
           "repeats": (1, 60), "pieces": (1, 60), "mutations": (2, 60), "garbage": (1, 60),
           "mixed": (6, 1200)}
RANGE = "239.1.0.0/16"
LISTED = """[filter]
rp-lists = ["listed"]
[access-list.listed]
rules = [{action = "permit", prefix = "%s"}]
"""
HONEST = "10.0.1.50"  # a neighbor whose messages are counted
HONEST_ZONE = "239.200.0.0/16"  # of which it is the BSR
NEWCOMER = "10.0.1.77"  # a router that starts during an attack
BAD = "10.0.1.60"  # a hostile neighbor
STRANGER = "10.0.1.100"  # the first of a hundred addresses that are no neighbor's
MUTATORS, MUTATOR_COUNT = "10.0.1.61", 8  # neighbors in a row: eight budgets hold 8,000 packets in 2 s
MAX_KEPT = 700  # messages kept for a new neighbor: 512 pieces, one of each zone, and what is forwarded
NOWHERE = "10.77.0.1"  # a BSR without a route: a mutation of the priority must not win an election
FAST = 400000
NEWCOMER_HELLOS = 20  # within which a newcomer is known at twice `hellos-per-second`
# Attacks of a neighbor, each with its kind of packets: first fragments whose rest never comes; RPs that come
# and go with each round; thousands of scope zones, which fill the table of zones; one fragment named again
# and again; the pieces of messages of many zones, and after them, as they are all for a new neighbor, a
# Generation ID that changes with each Hello; neighbors of a hundred addresses that come and go; mutated
# messages, 8,000 in the short form; random bytes.
OTHER_FLOODS = {"fragments": ("fragments", {"rate": 1000, "count": 4000}),
                "rp_churn": ("rp-churn", {"rate": 500, "count": 1000}),
                "zones": ("zones", {"rate": 1000, "count": 4000}),
                "repeats": ("repeats", {"rate": 900, "count": 4000, "range": "239.7.0.0/16"}),
                "pieces": ("pieces", {"rate": 900, "count": 4000}),
                "restarts": ("restarts", {"rate": 1000, "count": 4000, "holdtime": 105}),
                "goodbyes": ("goodbyes", {"rate": 1000, "source": STRANGER, "sources": 100, "holdtime": 105}),
                "mutations": ("mutations", {"rate": 4000, "count": 8000, "bsr": NOWHERE, "source": MUTATORS,
                                            "sources": MUTATOR_COUNT}),
                "garbage": ("garbage", {"rate": FAST, "count": 8000})}
# What shows that an attack of OTHER_FLOODS had its effect: a reason of drops.
EFFECTS = {"fragments": "fragment-quota", "zones": "zone-quota", "goodbyes": "hello-rate-limit",
           "garbage": "version"}
# Packets in a second that a flood must reach in the full form, since a slower one shows nothing.
MIN_RATES = {"fast_flood": 250000, "neighbor_flood": 150000, "hello_flood": 150000, "unicast_flood": 100000}


def is_full():
    """Whether the attacks are played at full length."""
    return os.environ.get("PIMBSR_ATTACK") == "full"


def seconds_of(attack):
    return LENGTHS[attack][1 if is_full() else 0]

#!/usr/bin/env python3
"""How many mailboxes a machine bears, and what many of them need: the tables of docs/scaling.md.

    model.py                       the tables
    model.py --check FILE          whether FILE holds each line of them
    model.py --interval 5 ...      with other assumptions; --help names them

MEASURED is what `./dev bench scale` prints; copy new figures here and the tables into the document.
"""

import argparse
import math
import sys

# Of a tree of 10,000 profiles on two cores.
MEASURED = {
    "profiles": 10_000,
    "quiet_ms": 8.7,        # processor time of a run that finds nothing new
    "news_ms": 4.7,         # of one that forwards a message; less, since the machine was busy during the others
    "quiet_kb": 118.0,      # written in a run that finds nothing new
    "news_kb": 136.0,
    "quiet_syncs": 2.3,
    "news_syncs": 6.5,
    "rest_s": 67.0,         # processor time of a service at rest in an hour
    "most_mb": 167.0,       # of a service at most, while 200 runs go on
}
SERVICESIZE_MB = 268  # the default of the rule, 256 MiB


def assumptions():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    add = parser.add_argument
    add("--check", metavar="FILE", help="say whether the file holds the tables, and print nothing else")
    add("--interval", type=float, default=10, help="minutes between two runs of a mailbox")
    add("--messages", type=float, default=20, help="messages that a mailbox gets in a day")
    add("--round-trips", type=float, default=8, help="of a run that finds nothing new: name, TCP, TLS, 5 commands")
    add("--news-round-trips", type=float, default=14, help="more for a message: RETR, and an SMTP connection with TLS")
    add("--login", type=float, default=0.3, help="seconds that a server takes to let somebody in")
    add("--share", type=float, default=0.5, help="part of the mailboxes that is at the largest provider")
    add("--logins", type=float, default=6, help="logins of one mailbox in an hour that its provider allows")
    add("--connections", type=float, default=50, help="at once from one address that a provider allows")
    add("--cores", type=float, default=2, help="of a machine")
    add("--busy", type=float, default=0.5, help="part of the processor time, syncs and memory that may be used")
    add("--syncs", type=float, default=1000, help="that the disk does in a second")
    add("--memory", type=float, default=8, help="GB of a machine")
    return parser.parse_args()


def news_part(a):
    """The part of the runs that finds a message: messages come one by one, evenly over the day."""
    return min(1.0, a.messages * a.interval / (24 * 60))


def mean(a, quiet, news):
    """Of a figure over all runs."""
    return quiet + news_part(a) * (news - quiet)


def seconds_of_run(a, trip_ms):
    trips = mean(a, a.round_trips, a.round_trips + a.news_round_trips)
    return trips * trip_ms / 1000 + mean(a, a.login, 2 * a.login)


def per_profile(a):
    """What a profile takes in a second: processor s, syncs, KB written."""
    m = MEASURED
    runs = 1 / (a.interval * 60)
    rest = m["rest_s"] / 3600 / m["profiles"]
    return (runs * mean(a, m["quiet_ms"], m["news_ms"]) / 1000 + rest,
            runs * mean(a, m["quiet_syncs"], m["news_syncs"]),
            runs * mean(a, m["quiet_kb"], m["news_kb"]))


def memory_mb(profiles):
    """Of the services at most, and the messages that each may hold then (servicesize)."""
    return profiles / MEASURED["profiles"] * (MEASURED["most_mb"] + SERVICESIZE_MB)


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    return lines + ["| " + " | ".join(row) + " |" for row in rows]


def count(number):
    """Two figures: the rest would be a pretence."""
    if number < 10:
        return f"{number:.2g}"
    digits = max(0, int(math.log10(number)) - 1)
    return f"{int(round(number, -digits)):,}"


def of_a_tree(a):
    """A tree of 10,000, by the providers' distance."""
    profiles = MEASURED["profiles"]
    rate = profiles / (a.interval * 60)
    rows = []
    for trip in (50, 100, 300):
        seconds = seconds_of_run(a, trip)
        at_once = rate * seconds
        rows.append([f"{trip} ms", f"{seconds:.1f} s", count(at_once), count(at_once * a.share),
                     count(min(200 / seconds, 10 / seconds / a.share) * a.interval * 60)])
    return table(["a round trip", "a run", "runs at once", "of these at the largest provider",
                  "profiles that the defaults bear"], rows)


def limits(a):
    """Profiles of a machine, by what runs out."""
    processor, syncs, _ = per_profile(a)
    return {"processor time": a.busy * a.cores / processor,
            "syncs of the disk": a.busy * a.syncs / syncs,
            "memory": a.busy * a.memory * 1000 / memory_mb(1)}


def of_a_machine(a):
    rows = [[what, count(profiles)] for what, profiles in limits(a).items()]
    return table(["what runs out", "profiles of a machine"], rows)


def of_a_million(a):
    rows = []
    for interval in (5, 10, 30):
        b = argparse.Namespace(**{**vars(a), "interval": interval})
        profiles = 1_000_000
        _, syncs, written_kb = per_profile(b)
        machines = math.ceil(profiles / min(limits(b).values()))
        at_once = profiles / (interval * 60) * seconds_of_run(b, 100) * b.share
        addresses = math.ceil(at_once / b.connections)
        allowed = "yes" if 60 / interval <= b.logins else "no"
        rows.append([f"{interval}", str(machines), str(math.ceil(profiles / MEASURED["profiles"])),
                     count(profiles / (interval * 60)), count(profiles * syncs), count(profiles * written_kb / 1000),
                     count(at_once), str(addresses), allowed])
    return table(["minutes", "machines", "trees", "runs a second", "syncs a second", "MB written a second",
                  "connections at once to the largest provider", "source addresses for these",
                  "logins within the limit"], rows)


def main():
    a = assumptions()
    tables = [of_a_tree(a), of_a_machine(a), of_a_million(a)]
    if not a.check:
        print("\n\n".join("\n".join(lines) for lines in tables))
        return 0
    with open(a.check, encoding="utf-8") as file:
        there = set(file.read().splitlines())
    missing = [line for lines in tables for line in lines if line not in there]
    for line in missing:
        print(f"{a.check} lacks: {line}", file=sys.stderr)
    return 1 if missing else 0


if __name__ == "__main__":
    sys.exit(main())

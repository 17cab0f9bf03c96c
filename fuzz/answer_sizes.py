#!/usr/bin/env python3
"""Asks the real agent for more than a message takes, in all ways, and looks at each answer and at the agent.

    python3 fuzz/answer_sizes.py --build-dir build/release --seconds 600 [--seed 7] [--cases N]

A case is chance: kind of request, number and kind of its variables (1 to 2,000), version and user, and how much the
manager takes. Each is to be answered, within that size and with what its kind allows; after every few the agent is to
serve what it served, and its memory is not to grow. Net-SNMP's library, which encodes the answers, knows no sanitizer:
where the agent has none either it runs with the C library's check of every block (mallopt(3), M_CHECK_ACTION). The same
seed gives the same requests in the same order; a finding makes the exit code 1.
"""

import collections
import random
import sys
import time

import snmp_datagrams

if __name__ == "__main__":
    OPTIONS = snmp_datagrams.options("requests whose answers are too long, for the running agent")

# pylint: disable=wrong-import-position
import ber  # noqa: E402
from snmp_datagrams import Finding, Watch  # noqa: E402
from snmp_engine import ENGINE_ID, SEALER, SIGNER, known_message  # noqa: E402
from harness import ALARMS, CLEAR_ALARM, DESTINATIONS, ENTERPRISE, TOPOLOGY  # noqa: E402

LARGEST_DATAGRAM = 65507
SMALLEST = 484  # RFC 3412: each engine takes as much
COUNTS = (1, 2, 3, 8, 15, 50, 51, 57, 58, 60, 100, 101, 300, 1000, 2000)
SIZES = (SMALLEST, SMALLEST + 1, 500, 700, 1024, 1400, 1472, 1473, 2048, 4096, 8192, 16384, LARGEST_DATAGRAM)
KINDS = (ber.GET, ber.GETNEXT, ber.GETNEXT, ber.GETBULK, ber.GETBULK, ber.SET)
WHO = ("v1", "v2c", "open", "signer", "sealer")
NAMES = (["1.3", "1.3.6.1.2.1.1", "1.3.6.1.2.1.1.5.0", "1.3.6.1.2.1.1.9.1", "1.3.6.1.2.1.11", "1.3.6.1.6.3.10.2.1.1.0",
          "1.3.6.1.6.3.15", "1.3.6.1.6.3.16", "1.3.6.1.4.1.1", "2.999", ENTERPRISE, TOPOLOGY, TOPOLOGY + ".5.1",
          CLEAR_ALARM, DESTINATIONS, DESTINATIONS + ".6.1", ALARMS] +
         [ALARMS + ".%d" % column for column in range(1, 14)] + [ALARMS + ".%d.7" % column for column in (4, 6, 8)])
NEVER_WRITABLE = TOPOLOGY + ".5.1"
NO_ERROR, TOO_BIG, NO_SUCH_NAME, NO_ACCESS = 0, 1, 2, 6
# What may come instead of values: an object of the engine that does not exist is an error for SNMPv1 only.
ERRORS = {"v1": (TOO_BIG, NO_SUCH_NAME), "else": (TOO_BIG,), "SET": (TOO_BIG, NO_SUCH_NAME, NO_ACCESS)}
CASES_BETWEEN_LOOKS = 40

Case = collections.namedtuple("Case", "kind who most names second third")


def cases(seed):
    """Without end."""
    dice = random.Random("sizes %s" % seed)
    while True:
        kind, who = dice.choice(KINDS), dice.choice(WHO)
        if kind == ber.GETBULK and who == "v1":
            continue
        count = dice.choice(COUNTS) if dice.random() < 0.6 else int(2000 ** dice.random())
        most = dice.choice(SIZES) if dice.random() < 0.6 else dice.randrange(SMALLEST, 6000)
        names = [dice.choice(NAMES)] if dice.random() < 0.5 else dice.sample(NAMES, dice.randrange(2, 20))
        names = (names * count)[:count]
        second = third = 0
        if kind == ber.GETBULK:
            second, third = dice.choice((0, 0, 1, count - 1)), dice.choice((1, 2, 10, 100, 2**31 - 1))
        yield Case(kind, who, most, names, second, third)


def datagram(case, number):
    value = ber.integer(1) if case.kind == ber.SET else None
    names = [NEVER_WRITABLE] + case.names[1:] if case.kind == ber.SET else case.names
    body = ber.pdu(case.kind, [ber.varbind(name, value) for name in names], number, case.second, case.third)
    if case.who in ("v1", "v2c"):
        return ber.message(body, version=("v1", "v2c").index(case.who)).encode()
    if case.who == "open":
        return ber.message_v3(body, ENGINE_ID, most=case.most).encode()
    return known_message(SEALER if case.who == "sealer" else SIGNER, body, most=case.most).encode()


def check(case, number, answer, size):
    """Gives what is wrong with an answer, or nothing."""
    longest = LARGEST_DATAGRAM if case.who in ("v1", "v2c") else case.most
    if size > longest:
        return "%d octets where %d are taken" % (size, longest)
    got, error, index, bindings = (node.content for node in answer.content)
    error, index = (int.from_bytes(octets, "big") for octets in (error, index))
    if answer.tag != ber.RESPONSE or int.from_bytes(got, "big") != number:
        return "it is no answer: %r" % answer.encode()
    if error == NO_ERROR:
        asked = len(case.names)
        if case.kind == ber.GETBULK:
            right = 1 <= len(bindings) <= max(case.second + case.third * (asked - case.second), 1)
        else:
            right = len(bindings) == asked and case.kind != ber.SET
        return None if right else "%d variables" % len(bindings)
    if error not in ERRORS["SET" if case.kind == ber.SET else "v1" if case.who == "v1" else "else"]:
        return "error %d" % error
    if error == TOO_BIG and (index != 0 or (bindings and case.who != "v1")):
        return "a tooBig with index %d and %d variables" % (index, len(bindings))
    if error != TOO_BIG and len(bindings) != len(case.names):
        return "error %d with %d variables" % (error, len(bindings))
    return None


def run(seed=1, count=None, seconds=None):
    """So many cases, or for so long. Returns the Watch and how many answers of each kind and error there were."""
    ends = time.monotonic() + seconds if seconds else None
    seen = collections.Counter()
    with Watch() as watch:
        for number, case in enumerate(cases(seed), start=1):
            data = datagram(case, number)
            if len(data) > LARGEST_DATAGRAM:
                continue
            answer, size = watch.ask(("sizes", data))
            wrong = check(case, number, answer, size)
            if wrong:
                watch.fail("%#x, %s, %d variables, %d taken: %s" % (case.kind, case.who, len(case.names), case.most,
                                                                  wrong))
            seen[case.kind, int.from_bytes(answer.content[1].content, "big")] += 1
            if number % CASES_BETWEEN_LOOKS == 0:
                watch.look()
            if (count and number >= count) or (ends and time.monotonic() > ends):
                break
        watch.look()
    return watch, seen


def main():
    try:
        watch, _ = run(OPTIONS.seed, OPTIONS.cases, OPTIONS.seconds)
    except Finding as finding:
        print(finding)
        print("answer_sizes: seed %d, FINDING, see above; %s" % (OPTIONS.seed, snmp_datagrams.keep(finding, OPTIONS.seed)))
        return 1
    print(watch.summary())
    print("answer_sizes: seed %d, %d requests, no finding" % (OPTIONS.seed, watch.sent))
    return 0


if __name__ == "__main__":
    sys.exit(main())

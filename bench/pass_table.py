#!/usr/bin/env python3
"""The program behind snmpd's pass_persist for peers.py: rows in memory, in the order of their names.

usage: pass_table.py FILE    FILE: lines of snmpbulkwalk -On -Oe
"""

import bisect
import sys

TYPES = {"INTEGER": "integer", "STRING": "string", "Hex-STRING": "octet", "Gauge32": "gauge", "Counter64": "counter64"}


def key(name):
    return [int(number) for number in name.strip().lstrip(".").split(".")]


def read(path):
    answers = []
    with open(path, encoding="utf-8") as file:
        for line in file:
            name, _, rest = line.rstrip("\n").partition(" = ")
            kind, _, value = rest.partition(": ")
            answers.append((key(name), "%s\n%s\n%s\n" % (name, TYPES[kind], value.strip('"').strip())))
    return [name for name, _ in answers], [answer for _, answer in answers]


def main():
    names, answers = read(sys.argv[1])
    for command in sys.stdin:
        command = command.strip()
        if command == "PING":
            answer = "PONG\n"
        else:
            name = key(sys.stdin.readline())
            at = bisect.bisect_right(names, name) if command == "getnext" else bisect.bisect_left(names, name)
            found = at < len(names) and (command == "getnext" or names[at] == name)
            answer = answers[at] if found else "NONE\n"
        sys.stdout.write(answer)
        sys.stdout.flush()


if __name__ == "__main__":
    main()

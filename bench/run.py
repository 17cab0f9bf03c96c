#!/usr/bin/env python3
"""Runs all benchmarks of a build and prints one table. scripts/bench builds and calls it.

usage: run.py [--quick] [--check] [--parts REGEX]
  --quick   sizes that only show that the programs work
  --check   exit code 1 when a target is missed
  --parts   only the parts of the table whose names (PARTS) match

Figures are medians, ratios the medians of the turns' own ratios; what is compared is measured by turns, in one run. Programs come from TAMREL_BUILD_DIR.
"""

import argparse
import json
import os
import re
import subprocess
import sys

SOURCE_DIR = os.environ.get("TAMREL_SOURCE_DIR") or os.path.abspath(os.path.join(os.path.dirname(__file__), ".."))
sys.path.insert(0, os.path.join(SOURCE_DIR, "tests", "e2e"))

# The tests' modules have to be found first.
import delivery  # noqa: E402
import peers  # noqa: E402
import reading  # noqa: E402
import starting  # noqa: E402
from harness import BUILD_DIR  # noqa: E402
from report import Measured, Row, table  # noqa: E402
from sizes import Sizes  # noqa: E402


class Programs:
    """Results of Google Benchmark programs: CPU microseconds by the benchmark's name, one median for each turn.

    All programs take their turn before any takes its next one: a time in which the machine is busy spoils a turn, not a
    program.
    """

    TURNS = 5
    # What the table shows.
    WANTED = ("decode", "encode", "protobufParse", "protobufSerialize", "copyBytes", "definitionLoad", "tinyXmlAlone",
              "rendering", "snprintfByHand", "recordToBindings", "recordToSocket", "eventToSocket/.*",
              "eventToNoTransport/1", "eventToEightDestinations/.*", "eventToSecureDestination/.*",
              "readyPduOverCachedSession", "readyPacketBySendto")
    WANTED_OF = {"library_digests_bench": ("readySecurePduOverCachedSession",)}

    def __init__(self, quick, names):
        self._turns = []
        for _ in range(1 if quick else self.TURNS):
            times = {}
            for name in names:
                self._run(name, quick, times)
            self._turns.append(times)

    def _run(self, name, quick, times):
        repetitions, seconds = ("1", "0.001") if quick else ("5", "0.03")
        done = subprocess.run([os.path.join(BUILD_DIR, "bin", name), "--benchmark_format=json",
                               "--benchmark_filter=^(%s)$" % "|".join(self.WANTED_OF.get(name, self.WANTED)),
                               "--benchmark_repetitions=" + repetitions, "--benchmark_min_time=" + seconds,
                               "--benchmark_enable_random_interleaving=true"], check=True, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL)
        for result in json.loads(done.stdout)["benchmarks"]:
            if result.get("error_occurred"):
                raise RuntimeError("%s: %s: %s" % (name, result["name"], result["error_message"]))
            if result["run_type"] == ("iteration" if quick else "aggregate"):
                if result.get("aggregate_name", "median") == "median":
                    unit = {"ns": 1e-3, "us": 1, "ms": 1e3}[result["time_unit"]]
                    times[result["run_name"]] = result["cpu_time"] * unit

    def microseconds(self, ours, other, burst=1):
        """Of one benchmark and of the one that it is compared with; `burst`: events in a run of ours."""
        measured = Measured()
        for times in self._turns:
            measured.add(times[ours] / burst, times[other])
        return measured

    def per_second(self, ours, other, burst):
        measured = Measured()
        for times in self._turns:
            measured.add(1e6 * burst / times[ours], 1e6 / times[other])
        return measured

    def alone(self, name):
        return self.microseconds(name, name).ours


def codec(programs):
    times = programs.microseconds
    return [
        Row.of("decoding 50 alarms, protobuf, us", times("decode", "protobufParse"), at_most=0.8),
        Row.of("encoding 50 alarms, protobuf, us", times("encode", "protobufSerialize"), at_most=0.6),
        Row.of("decoding 50 alarms, a copy of the bytes, us", times("decode", "copyBytes")),
        Row.of("encoding 50 alarms, a copy of the bytes, us", times("encode", "copyBytes")),
    ]


def definitions(programs):
    times = programs.microseconds
    return [
        Row.of("loading 5,000 definitions, TinyXML alone, us", times("definitionLoad", "tinyXmlAlone"), at_most=1.2),
        Row.of("rendering an alarm, snprintf, us", times("rendering", "snprintfByHand"), at_most=1.6),
    ]


def notifications(programs):
    times = programs.microseconds
    burst = 16
    in_bursts, secure = "eventToSocket/%d" % burst, "eventToSecureDestination/%d" % burst
    ready = "readyPduOverCachedSession"
    return [
        Row("a record to bindings, us", programs.alone("recordToBindings")),
        Row.of("a record to its trap on the wire, sending a ready PDU, us", times("recordToSocket", ready), at_most=2),
        Row.of("an event through the agent to its trap, the same, us", times("eventToSocket/1", ready)),
        Row.of("the same in bursts of %d, us" % burst, times(in_bursts, ready, burst)),
        Row("an event through the agent without a network, us", programs.alone("eventToNoTransport/1")),
        Row.of("traps per second in bursts, sendto of a ready packet",
               programs.per_second(in_bursts, "readyPacketBySendto", burst), at_least=0.6),
        Row.of("%d events through the agent, eight destinations; one, us" % burst,
               times("eventToEightDestinations/%d" % burst, in_bursts), at_most=3),
        Row.of("SNMPv3 traps per second in bursts, sending a ready PDU",
               programs.per_second(secure, "readySecurePduOverCachedSession", burst), at_least=0.9),
    ]


# Parts of the table: from results of programs (their names), or from what a function measures end to end.
PARTS = {
    "codec": (("codec_bench",), codec),
    "definitions": (("alarm_definitions_bench",), definitions),
    "notifications": (("notification_bench", "library_digests_bench"), notifications),
    "reading": (None, reading.beside_stock),
    "managers": (None, reading.many_managers),
    "growth": (None, reading.growth),
    "scrapes": (None, reading.scrapes),
    "peers": (None, peers.compare_peers),
    "rest": (None, starting.at_rest),
    "start": (None, starting.start_full),
    "connecting": (None, starting.connecting),
    "latency": (None, delivery.latency),
    "informs": (None, delivery.informs),
}


def rows_of(parts, quick):
    names = [name for program_names, _ in parts for name in program_names or ()]
    programs = Programs(quick, names) if names else None
    rows = []
    for program_names, measure in parts:
        rows += measure(programs if program_names else Sizes(quick))
    return rows


def main():
    options = argparse.ArgumentParser()
    options.add_argument("--quick", action="store_true")
    options.add_argument("--check", action="store_true")
    options.add_argument("--parts", default="")
    chosen = options.parse_args()
    rows = rows_of([part for name, part in PARTS.items() if re.search(chosen.parts, name)], chosen.quick)
    print(table(rows))
    missed = [row.what for row in rows if row.missed]
    if missed and not chosen.quick:
        print("\nmissed: " + "; ".join(missed))
    return 1 if missed and chosen.check else 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Runs all benchmarks of a build and prints one table. scripts/bench builds and calls it.

usage: run.py [--quick] [--check]
  --quick   sizes that only show that the programs work
  --check   exit code 1 when a target is missed

Figures are medians, ratios the medians of the turns' own ratios; what is compared is measured by turns, in one run. Programs come from TAMREL_BUILD_DIR.
"""

import argparse
import json
import os
import subprocess
import sys

import end_to_end
from report import Measured, Row, table


class Programs:
    """Results of the Google Benchmark programs: CPU nanoseconds by the benchmark's name, one median for each turn.

    All programs take their turn before any takes its next one: a time in which the machine is busy spoils a turn, not a
    program.
    """

    TURNS = 5
    NAMES = ("codec_bench", "alarm_definitions_bench", "notification_bench")
    # What the table shows.
    WANTED = ("decode", "encode", "protobufParse", "protobufSerialize", "copyBytes", "definitionLoad", "tinyXmlAlone",
              "rendering", "snprintfByHand", "recordToBindings", "recordToSocket", "eventToSocket/.*",
              "eventToNoTransport/1", "readyPduOverCachedSession", "readyPacketBySendto")

    def __init__(self, quick):
        self._turns = []
        for _ in range(1 if quick else self.TURNS):
            times = {}
            for name in self.NAMES:
                self._run(name, quick, times)
            self._turns.append(times)

    def _run(self, name, quick, times):
        repetitions, seconds = ("1", "0.001") if quick else ("5", "0.03")
        done = subprocess.run([os.path.join(end_to_end.BUILD_DIR, "bin", name), "--benchmark_format=json",
                               "--benchmark_filter=^(%s)$" % "|".join(self.WANTED),
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
        Row.of("decoding 50 alarms, protobuf, us", times("decode", "protobufParse"), at_most=1.5),
        Row.of("encoding 50 alarms, protobuf, us", times("encode", "protobufSerialize"), at_most=1.0),
        Row.of("decoding 50 alarms, a copy of the bytes, us", times("decode", "copyBytes")),
        Row.of("encoding 50 alarms, a copy of the bytes, us", times("encode", "copyBytes")),
    ]


def definitions(programs):
    times = programs.microseconds
    return [
        Row.of("loading 5,000 definitions, TinyXML alone, us", times("definitionLoad", "tinyXmlAlone"), at_most=1.2),
        Row.of("rendering an alarm, snprintf, us", times("rendering", "snprintfByHand"), at_most=3.5),
    ]


def notifications(programs):
    times = programs.microseconds
    burst = 16
    in_bursts = "eventToSocket/%d" % burst
    ready = "readyPduOverCachedSession"
    return [
        Row("a record to bindings, us", programs.alone("recordToBindings")),
        Row.of("a record to its trap on the wire, sending a ready PDU, us", times("recordToSocket", ready), at_most=2),
        Row.of("an event through the agent to its trap, the same, us", times("eventToSocket/1", ready)),
        Row.of("the same in bursts of %d, us" % burst, times(in_bursts, ready, burst)),
        Row("an event through the agent without a network, us", programs.alone("eventToNoTransport/1")),
        Row.of("traps per second in bursts, sendto of a ready packet",
               programs.per_second(in_bursts, "readyPacketBySendto", burst)),
    ]


def main():
    options = argparse.ArgumentParser()
    options.add_argument("--quick", action="store_true")
    options.add_argument("--check", action="store_true")
    chosen = options.parse_args()
    programs = Programs(chosen.quick)
    rows = []
    for part in (codec, definitions, notifications):
        rows += part(programs)
    rows += end_to_end.rows_of(chosen.quick)
    print(table(rows))
    missed = [row.what for row in rows if row.missed]
    if missed and not chosen.quick:
        print("\nmissed: " + "; ".join(missed))
    return 1 if missed and chosen.check else 0


if __name__ == "__main__":
    sys.exit(main())

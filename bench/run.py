#!/usr/bin/env python3
"""Runs all benchmarks of a build and prints one table. scripts/bench builds and calls it.

usage: run.py [--quick] [--check]
  --quick   sizes that only show that the programs work
  --check   exit code 1 when a target is missed

Figures are medians; what is compared is measured in turns, in one run. Programs come from TAMREL_BUILD_DIR.
"""

import argparse
import json
import os
import subprocess
import sys

import end_to_end
from report import Row, table


class Program:
    """Results of one Google Benchmark program: median CPU nanoseconds by the benchmark's name."""

    def __init__(self, name, quick):
        repetitions, seconds = ("1", "0.001") if quick else ("9", "0.05")
        done = subprocess.run([os.path.join(end_to_end.BUILD_DIR, "bin", name), "--benchmark_format=json",
                               "--benchmark_repetitions=" + repetitions, "--benchmark_min_time=" + seconds,
                               "--benchmark_enable_random_interleaving=true"], check=True, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL)
        self._times = {}
        for result in json.loads(done.stdout)["benchmarks"]:
            if result.get("error_occurred"):
                raise RuntimeError("%s: %s: %s" % (name, result["name"], result["error_message"]))
            if result["run_type"] == ("iteration" if quick else "aggregate"):
                if result.get("aggregate_name", "median") == "median":
                    unit = {"ns": 1, "us": 1e3, "ms": 1e6}[result["time_unit"]]
                    self._times[result["run_name"]] = result["cpu_time"] * unit

    def microseconds(self, name):
        return self._times[name] / 1e3


def codec(quick):
    times = Program("codec_bench", quick).microseconds
    return [
        Row("decoding 50 alarms, protobuf, us", times("decode"), times("protobufParse"), at_most=1.5),
        Row("encoding 50 alarms, protobuf, us", times("encode"), times("protobufSerialize"), at_most=1.0),
        Row("decoding 50 alarms, a copy of the bytes, us", times("decode"), times("copyBytes")),
    ]


def definitions(quick):
    times = Program("alarm_definitions_bench", quick).microseconds
    return [
        Row("loading 5,000 definitions, TinyXML alone, us", times("definitionLoad"), times("tinyXmlAlone"),
            at_most=1.2),
        Row("rendering an alarm, snprintf, us", times("rendering"), times("snprintfByHand"), at_most=3),
    ]


def notifications(quick):
    times = Program("notification_bench", quick).microseconds
    burst = 16
    in_burst = times("eventToSocket/%d" % burst) / burst
    ready = times("readyPduOverCachedSession")
    return [
        Row("a record to bindings, us", times("recordToBindings"), None),
        Row("a record to its trap on the wire, sending a ready PDU, us", times("recordToSocket"), ready, at_most=2),
        Row("an event through the agent to its trap, the same, us", times("eventToSocket/1"), ready),
        Row("the same in bursts of %d, us" % burst, in_burst, ready),
        Row("an event through the agent without a network, us", times("eventToNoTransport/1"), None),
        Row("traps per second in bursts, sendto of a ready packet", 1e6 / in_burst,
            1e6 / times("readyPacketBySendto")),
    ]


def main():
    options = argparse.ArgumentParser()
    options.add_argument("--quick", action="store_true")
    options.add_argument("--check", action="store_true")
    chosen = options.parse_args()
    rows = []
    for part in (codec, definitions, notifications, end_to_end.rows_of):
        rows += part(chosen.quick)
    print(table(rows))
    missed = [row.what for row in rows if row.missed]
    if missed and not chosen.quick:
        print("\nmissed: " + "; ".join(missed))
    return 1 if missed and chosen.check else 0


if __name__ == "__main__":
    sys.exit(main())

"""A fleet of arrays, watched by the engines that people run: scripts/fleet runs it. README.md says what it proves.

Exit code 1: an alarm was missed or false.
"""

import argparse
import contextlib
import dataclasses
import os
import shutil
import signal
import sys
import tempfile
import time

from arrays import Fleet
from collector import Collector
from costs import PrometheusSizes, Run, scrapes
from harness import Failure, free_port
from metrics_tls_test import Authority
from plan import FULL, QUICK, QUICK_WITHOUT_RECEIVERS, Plan
from receivers import Receivers, installed
from sink import Sink
from verdict import Happened, Verdict, expectations

SHORTEST_MINUTES = 10
MEGABYTES_AN_ARRAY = 20  # agent, backend and its part of two Prometheus servers take half of that


def say(text):
    print(text, flush=True)


class Runner:
    """Does what the plan says when it says so, and notes when that was."""

    def __init__(self, plan, fleet, receivers, happened):
        self._plan, self._fleet, self._receivers, self._happened = plan, fleet, receivers, happened

    def run(self):
        begin = time.monotonic()
        for when, verb, subject in self._plan.steps():
            time.sleep(max(0, begin + when - time.monotonic()))
            getattr(self, "_" + verb)(subject)

    def _raise(self, alarms):
        self._happened.raised.update(dict.fromkeys(alarms, time.time()))
        self._fleet.arrays[alarms[0].array].raise_alarms(alarms)

    def _clear(self, alarms):
        self._happened.cleared.update(dict.fromkeys(alarms, time.time()))
        self._fleet.arrays[alarms[0].array].clear_alarms(alarms)

    def _kill(self, fault):
        self._happened.killed[fault] = time.time()
        if fault.what in ("agent", "backend"):
            getattr(self._fleet.arrays[fault.which], fault.what).kill()
        elif self._receivers:
            self._receivers.kill(fault.what, fault.which)
        say("  killed: %s %d" % (fault.what, fault.which))

    def _start(self, fault):
        self._happened.started[fault] = time.time()
        if fault.what in ("agent", "backend"):
            getattr(self._fleet.arrays[fault.which], fault.what).start(wait=False)
        elif self._receivers:
            self._receivers.start(fault.what, fault.which)
        say("  started again: %s %d" % (fault.what, fault.which))


def drain(judge, receivers, profile):
    """Until all has been told and nothing is active any more; then for as long as something could still come."""
    end = time.monotonic() + 3 * profile.seen_within
    quiet_since = None
    while time.monotonic() < end:
        settled = not judge().missed and not (receivers and receivers.active_alerts())
        if not settled:
            quiet_since = None
        elif quiet_since is None:
            quiet_since = time.monotonic()
        elif time.monotonic() - quiet_since > profile.group_interval + profile.peer_timeout:
            return
        time.sleep(profile.interval / 5)


def default_agents(options):
    if options.quick:
        return Plan.SMALLEST_FLEET
    with open("/proc/meminfo", encoding="ascii") as file:
        available = next(int(line.split()[1]) // 1024 for line in file if line.startswith("MemAvailable:"))
    return max(Plan.SMALLEST_FLEET, min(200, available // MEGABYTES_AN_ARRAY))


def run(options, folder):
    with_receivers = installed() and not options.without_receivers
    if options.quick:
        profile = QUICK if with_receivers else QUICK_WITHOUT_RECEIVERS
    else:
        profile = dataclasses.replace(FULL, seconds=60 * options.minutes)
    plan = Plan(profile, options.agents, options.seed)
    authority = Authority(folder, "authority")
    server = authority.make("agents", "serverAuth")
    tls = (authority.path, *authority.make("collector", "clientAuth"))
    with contextlib.ExitStack() as stack:
        sink = stack.enter_context(Sink(free_port(kind=1)))
        begin = time.monotonic()
        fleet = stack.enter_context(Fleet(plan, server, authority.path))
        say("%d arrays are ready after %.1f s" % (plan.arrays, time.monotonic() - begin))
        receivers = None
        if with_receivers:
            begin = time.monotonic()
            receivers = stack.enter_context(Receivers(folder, plan, fleet.arrays, sink.port, tls))
            say("2 Prometheus, 2 Alertmanagers and snmp_exporter have read all after %.0f s" % (time.monotonic() - begin))
        else:
            stack.enter_context(Collector(fleet.arrays, tls, sink))
            say("without Prometheus, Alertmanager and snmp_exporter: a collector of our own reads the metrics of all arrays")
        sizes = PrometheusSizes(receivers, 1) if receivers else None
        if sizes:
            sizes.note("no alarms yet")
        costs = Run(plan, fleet, receivers)
        say("%d alarms and %d faults within %d s, seed %d" % (len(plan.alarms), len(plan.faults), profile.seconds, options.seed))
        happened = Happened()
        Runner(plan, fleet, receivers, happened).run()
        expected = expectations(plan, fleet.arrays, happened, with_snmp=with_receivers)

        unread = [(when, when + profile.told_within) for fault, when in happened.started.items() if fault.what == "prometheus"]

        def judge():
            return Verdict(expected, sink.told(), profile.seen_within, unread)

        drain(judge, receivers, profile)
        verdict = judge()
        say("\n" + verdict.table() + "\n")
        say("told again long after their end, by a Prometheus that had just been started again: %d" % verdict.told_again)
        say("%d webhook requests, %d octets\n" % (sink.requests, sink.bytes))
        say("\n".join(costs.lines()) + "\n")
        if sizes:
            sizes.note("after all alarms")
            say("\n".join(sizes.lines()) + "\n")
            for one in receivers.prometheus:
                one.stop()
        if not options.quick:
            say("\n".join(scrapes(fleet.arrays[plan.STORM], tls, receivers, (10, 1000, 5000))) + "\n")
        for name, found in (("missed", verdict.missed), ("false", verdict.false)):
            say("%s: %d" % (name, len(found)))
            for line in found[:20]:
                say("  " + line)
    return 0 if verdict.passed else 1


def main():
    parser = argparse.ArgumentParser(prog="scripts/fleet")
    parser.add_argument("agents", nargs="?", type=int, help="how many arrays (200, or as many as memory allows; --quick: 10)")
    parser.add_argument("--minutes", type=int, default=SHORTEST_MINUTES, help="how long alarms go on (%(default)s, and no fewer)")
    parser.add_argument("--quick", action="store_true", help="short intervals, a plan of seconds, with what is installed")
    parser.add_argument("--without-receivers", action="store_true", help="the default where one of them is not installed")
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    if not options.quick and (options.without_receivers or not installed()):
        parser.error("only --quick does without Prometheus, Alertmanager and snmp_exporter")
    if options.agents is None:
        options.agents = default_agents(options)
    if options.agents < Plan.SMALLEST_FLEET:
        parser.error("at least %d agents: some have roles of their own" % Plan.SMALLEST_FLEET)
    if options.minutes < SHORTEST_MINUTES:
        parser.error("at least %d minutes: the exported rules wait for up to five" % SHORTEST_MINUTES)
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(128 + number))
    folder = tempfile.tempdir = tempfile.mkdtemp(prefix="vrx-fleet-")
    try:
        return run(options, os.path.join(folder, ""))
    except Failure as failure:
        print("fleet: %s" % failure, file=sys.stderr)
        return 1
    finally:
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())

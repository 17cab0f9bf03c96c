"""What the run costs: processor time, memory and octets of agents, scrapes and receivers."""

import os
import statistics
import sys
import time

from arrays import SOURCE
from collector import ALARM, Metrics
from harness import wait_for
from plan import Alarm

sys.path.insert(0, os.path.join(SOURCE, "bench"))
from processes import cpu_seconds, proportional_megabytes, resident_megabytes, wait_idle  # noqa: E402

READINGS, MOST_ALARMS_READ = 20, 20_000  # of an array, and fewer of a large one
BY_EXPORTER = ("vrx_alarms", "vrx_agent")  # modules


def machine():
    """Processor seconds that were used, and that there were."""
    with open("/proc/stat", encoding="ascii") as file:
        ticks = [int(word) for word in file.readline().split()[1:9]]
    idle = ticks[3] + ticks[4]
    return (sum(ticks) - idle) / os.sysconf("SC_CLK_TCK"), sum(ticks) / os.sysconf("SC_CLK_TCK")


class Run:
    """Processor time from here to `lines`, by kind of process. Those that are killed on the way are left out."""

    def __init__(self, plan, fleet, receivers):
        killed = {(fault.what, fault.which) for fault in plan.faults}
        ordinary = [array for array in fleet.arrays if array.number > plan.BACKEND_AWAY]
        self._groups = {
            "agent, by metrics alone": [array.agent for array in ordinary if array.number not in plan.by_snmp],
            "agent, by SNMPv3 as well": [array.agent for array in ordinary if array.number in plan.by_snmp],
            "backend": [array.backend for array in ordinary],
        }
        if receivers:
            self._groups.update({
                "Prometheus": [one for i, one in enumerate(receivers.prometheus) if ("prometheus", i) not in killed],
                "Alertmanager": [one for i, one in enumerate(receivers.alertmanagers) if ("alertmanager", i) not in killed],
                "snmp_exporter": [receivers.exporter]})
        self._before = {name: self._cpu(name) for name in self._groups}
        self._machine, self._time = machine(), time.monotonic()

    def _cpu(self, name):
        return [cpu_seconds(program.pid) for program in self._groups[name]]

    def lines(self):
        took = time.monotonic() - self._time
        used, there = (now - before for now, before in zip(machine(), self._machine))
        yield "| Each | Processor, % of a core | PSS, MB: median / largest |"
        yield "|---|---:|---:|"
        for name, before in self._before.items():
            shares = [100 * (now - then) / took for now, then in zip(self._cpu(name), before)]
            memory = [proportional_megabytes(program.pid) for program in self._groups[name]]
            if shares:
                yield "| %s | %.2f | %.1f / %.1f |" % (name, statistics.mean(shares), statistics.median(memory), max(memory))
        yield "| the whole machine, %d cores | %.0f | |" % (os.cpu_count(), 100 * used / took)
        yield ""
        yield "%.0f s; load average at the end %s." % (took, " ".join("%.2f" % load for load in os.getloadavg()))


def scrapes(array, tls, receivers, sizes):
    """Of one quiet array with so many alarms: processor time of agent and exporter, time and octets of a reading."""
    metrics = Metrics(array, tls)
    yield "| Alarms | Way | Agent, ms of processor | snmp_exporter, ms of processor | Takes, ms | Octets of the answer |"
    yield "|---:|---|---:|---:|---:|---:|"
    serial = 1_000_000
    raised = 0
    for size in sizes:
        if size > raised:
            array.raise_alarms([Alarm("cost", array.number, serial + i, 5, 0, 0) for i in range(raised, size)])
            raised = size
        wait_idle(array.agent)
        wait_for(lambda: len(ALARM.findall(metrics.read() or "")) == raised, "%d alarms among the metrics" % raised)
        yield "| {:,} | metrics, TLS | {} |".format(size, _reading(size, array, None, metrics.read))
        if receivers:
            yield "| {:,} | SNMPv3 | {} |".format(size, _reading(size, array, receivers.exporter, lambda: "".join(
                receivers.by_exporter(module, array) for module in BY_EXPORTER)))
    metrics.close()


def _reading(size, array, exporter, read):
    readings = min(READINGS, MOST_ALARMS_READ // max(1, size))
    programs = [array.agent] + ([exporter] if exporter else [])
    before, begin = [cpu_seconds(program.pid) for program in programs], time.monotonic()
    for _ in range(readings):
        text = read()
    took = time.monotonic() - begin
    spent = [1000 * (cpu_seconds(program.pid) - then) / readings for program, then in zip(programs, before)]
    exporters = "%.1f" % spent[1] if exporter else ""
    return "%.2f | %s | %.1f | %s" % (spent[0], exporters, 1000 * took / readings, "{:,}".format(len(text.encode())))


class PrometheusSizes:
    """Series and memory of the replica that is not killed, as often as `note` is called."""

    def __init__(self, receivers, replica):
        self._receivers, self._replica = receivers, replica
        self._notes = []

    def note(self, when):
        series, samples = (self._receivers.own_metric("prometheus_tsdb_head_" + name, self._replica)
                           for name in ("series", r'samples_appended_total(?:\{type="float"\})?'))
        resident = resident_megabytes(self._receivers.prometheus[self._replica].pid)
        self._notes.append((when, series, resident, samples, time.monotonic()))

    def lines(self):
        yield "| Prometheus | Series in memory | Resident, MB | MB a thousand series | Samples a second since the line above |"
        yield "|---|---:|---:|---:|---:|"
        before = None
        for note in self._notes:
            when, series, resident, samples, moment = note
            rate = "{:,.0f}".format((samples - before[3]) / (moment - before[4])) if before else ""
            yield "| %s | %s | %.0f | %.1f | %s |" % (when, "{:,.0f}".format(series), resident, resident / (series / 1000), rate)
            before = note
        yield ""
        yield "| Scrapes by Prometheus, seconds | p50 of arrays' averages | p99 | longest |"
        yield "|---|---:|---:|---:|"
        for job in ("vrx-fleet", "vrx-alarms", "vrx-snmp"):
            series = 'scrape_duration_seconds{job="%s"}[15m]' % job
            yield "| %s | %.3f | %.3f | %.3f |" % (job, *[self._receivers.value(expression, self._replica) for expression in (
                "quantile(0.5, avg_over_time(%s))" % series, "quantile(0.99, avg_over_time(%s))" % series,
                "max(max_over_time(%s))" % series)])
        yield ""
        missed = self._receivers.own_metric(r'prometheus_rule_group_iterations_missed_total\{[^}]*;vrx-alarms"\}', self._replica)
        yield "Samples of a scrape of a quiet array: %.0f by metrics, %.0f and %.0f by SNMPv3. Evaluations left out: %.0f." % (
            *[self._receivers.value('min(scrape_samples_scraped{job="%s"})' % job, self._replica)
              for job in ("vrx-fleet", "vrx-alarms", "vrx-snmp")], missed)

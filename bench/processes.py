"""What processes take: CPU time, memory, threads, wake-ups."""

import os
import time

from harness import wait_for

EVENTS_SECONDS = 300  # for what many alarms raised at once are to the agent


def cpu_seconds(pid):
    """CPU time of a process, nanoseconds exact, that of threads which have ended included."""
    clock = (~pid << 3) | 2  # what clock_getcpuclockid(3) gives for it
    return time.clock_gettime(clock)


def resident_megabytes(pid):
    with open("/proc/%d/status" % pid, encoding="ascii") as file:
        for line in file:
            if line.startswith("VmRSS:"):
                return int(line.split()[1]) / 1024
    raise RuntimeError("no resident size of %d" % pid)


def proportional_megabytes(pid):
    """Its own memory and its share of that which it has in common with others."""
    with open("/proc/%d/smaps_rollup" % pid, encoding="ascii") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("Pss:")) / 1024


def threads_of(pid):
    return os.listdir("/proc/%d/task" % pid)


def wake_ups(pid):
    """How often its threads have waited for something and gone on."""
    total = 0
    for thread in threads_of(pid):
        with open("/proc/%d/task/%s/status" % (pid, thread), encoding="ascii") as file:
            total += next(int(line.split()[1]) for line in file if line.startswith("voluntary_ctxt_switches"))
    return total


class CpuTime:
    """CPU seconds that processes take while the block runs, one figure for each."""

    def __init__(self, *programs):
        self._pids = [program.pid for program in programs]
        self._before = []
        self.seconds = []

    def __enter__(self):
        self._before = [cpu_seconds(pid) for pid in self._pids]
        return self

    def __exit__(self, *_):
        self.seconds = [cpu_seconds(pid) - before for pid, before in zip(self._pids, self._before)]


def wait_idle(*programs):
    """Until what was raised has gone its way."""
    def idle():
        with CpuTime(*programs) as cpu:
            time.sleep(0.2)
        return sum(cpu.seconds) < 0.004

    wait_for(idle, "programs without work", EVENTS_SECONDS)

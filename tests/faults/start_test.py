"""Memory that runs out while the agent starts, its module and an embedded backend included, once or for a while: it
starts all the same or ends with an exit code of sysexits and a line that says why; nothing leaks, and the next start
finds its state whole.

TAMREL_FAULT_STRIDE is the distance between the allocations that fail (default 71; 1: every one, some minutes). Which
ones of a run these are is left to chance: TAMREL_FAULT_OFFSET repeats the run that has printed it.
"""

import itertools
import os
import random
import select
import signal
import subprocess
import time
import unittest

from backend_client import BackendClient
from faults import CONFIG, Faults
from harness import ALARMS, BUILD_DIR, System, values, wait_for

STRIDE = int(os.environ.get("TAMREL_FAULT_STRIDE", "71"))
WIDE = 19  # strides between the places from which on all allocations fail: nothing gets far from there
OFFSET = int(os.environ.get("TAMREL_FAULT_OFFSET") or random.randrange(STRIDE * WIDE))
HELD_SECONDS = 0.05  # that memory stays away then
COMMANDS, REPORTS = 198, 199  # of fault_shim.cpp
EX_OK, EX_FIRST, EX_LAST = 0, 64, 78  # sysexits.h
SECONDS = 60


class Starts:
    """The agent, many times over: processes that are forked after the dynamic linker's work."""

    def __init__(self, system, faults):
        self.log_path = system.path("starts.log")
        self._log = open(self.log_path, "ab")
        self._faults = faults
        command_read, self._command = os.pipe()
        self._report, report_write = os.pipe()
        os.dup2(command_read, COMMANDS)
        os.dup2(report_write, REPORTS)
        environment = dict(os.environ, **faults.environment(), VRX_FAULTS_FORK="1")
        self._server = subprocess.Popen([os.path.join(BUILD_DIR, "bin", "vrx-agentd")] + system.agent.arguments,
                                        stdin=subprocess.DEVNULL, stdout=self._log, stderr=self._log, env=environment,
                                        pass_fds=(COMMANDS, REPORTS))
        for descriptor in (command_read, report_write, COMMANDS, REPORTS):
            os.close(descriptor)

    def close(self):
        os.close(self._command)
        self._server.wait()
        os.close(self._report)
        self._log.close()

    def _line(self):
        line = b""
        while not line.endswith(b"\n"):
            piece = os.read(self._report, 1)
            if not piece:
                raise AssertionError("no report: " + self.log(0))
            line += piece
        return int(line)

    def log(self, start):
        with open(self.log_path, "rb") as log:
            log.seek(start)
            return log.read().decode("utf-8", "replace")

    def run(self, number, forever=False):
        """Starts it and ends it when it is ready: (wait status, its log). `forever`: memory is away for a while."""
        start = os.path.getsize(self.log_path)
        failing_since = None
        self._faults.fail_allocation(0)  # forgets the counts of before
        os.write(self._command, b"%d %d\n" % (number, forever))
        process = self._line()
        told = False
        left = SECONDS * 100
        while not select.select([self._report], [], [], 0.01)[0]:
            left -= 1
            if forever and failing_since is None and self._faults.allocations()[1] > 0:
                failing_since = time.monotonic()
            if failing_since is not None and time.monotonic() - failing_since > HELD_SECONDS:
                self._faults.stop()
            if left == 0:
                os.kill(process, signal.SIGKILL)
            if not told and any(line.endswith(" ready") for line in self.log(start).splitlines()):
                os.kill(process, signal.SIGTERM)
                told = True
        return self._line(), self.log(start)


class Start(unittest.TestCase):
    def test_every_start_succeeds_or_tells_why_it_does_not(self):
        system = System(agent_config=CONFIG, embedded=True)
        with system:
            with BackendClient(system.path("state", "backend.sock")) as backend:
                backend.raise_alarms(1)
            system.agent.stop()
            faults = Faults(system.path("agent.faults"))
            starts = Starts(system, faults)
            try:
                for forever in (False, True):
                    self.sweep(starts, faults, forever)
            finally:
                starts.close()
            system.agent.start()
            serial = wait_for(lambda: values(system.run("snmpget", ALARMS + ".9.1", check=False).stdout), "the alarm")
            self.assertEqual(serial, [(ALARMS + ".9.1", "Gauge32: 1")])

    def sweep(self, starts, faults, forever):
        stride = STRIDE * WIDE if forever else STRIDE
        failures = 0
        for number in itertools.count(1 + OFFSET % stride, stride):
            status, log = starts.run(number, forever)
            where = "TAMREL_FAULT_OFFSET=%d, allocation %d%s:\n%s" % (OFFSET, number, " and on" * forever, log)
            self.assertTrue(os.WIFEXITED(status), "signal %d, %s" % (status & 0x7f, where))
            code = os.WEXITSTATUS(status)
            self.assertTrue(code == EX_OK or EX_FIRST <= code <= EX_LAST, "exit code %d, %s" % (code, where))
            if code != EX_OK:
                self.assertTrue(log.strip(), where)
                failures += 1
            if faults.allocations()[1] == 0:
                break
        self.assertGreater(failures, 0)
        print("TAMREL_FAULT_OFFSET=%d: each %dth%s of %d allocations, %d starts did not succeed" % (
            OFFSET, stride, " and all after it" * forever, number, failures), flush=True)


if __name__ == "__main__":
    unittest.main()

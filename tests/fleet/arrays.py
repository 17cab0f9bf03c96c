"""The storage systems of the fleet: each with a root, a backend, an agent, an identity and ports of its own."""

import concurrent.futures
import json
import os
import socket
import sys

SOURCE = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
sys.path.insert(0, os.path.join(SOURCE, "tests", "e2e"))

from backend_client import CLEAR_ALARM, RAISE_ALARM, BackendClient, record, text, uint  # noqa: E402
from harness import Failure, System, free_port  # noqa: E402

USER, AUTH_PASSPHRASE, PRIV_PASSPHRASE = "monitor", "fleet-auth-pass", "fleet-priv-pass"
DISK_FAILED = 4295229443  # a shipped alarm; its location is that of its parameters
AT_ONCE = 1000  # records in a package
CONFIG = """
createUser %s SHA-256 "%s" AES "%s"
rouser %s priv .1
sysName array-%d
vrxMetrics tcp:127.0.0.1:%d --certificate %s --key %s --clients %s
vrxMetricsAlarms %d
"""


class Array(System):
    """A backend is a program of its own, as on a real system: alarms can be raised while the agent is away."""

    def __init__(self, number, bound, server, clients):
        self.number = number
        self.node = "FLEET-%04d" % number
        self.web = free_port(socket.SOCK_STREAM)
        config = CONFIG % (USER, AUTH_PASSPHRASE, PRIV_PASSPHRASE, USER, number, self.web, *server, clients, bound)
        super().__init__(agent_config=config, start=False,
                         device={("NODE", "CODE"): self.node, ("NODE", "PRODUCT_SN"): "FLEET%08d" % number,
                                 ("NODE", "SYSTEM_NAME"): "array-%d" % number})

    @property
    def metrics_target(self):
        return "127.0.0.1:%d" % self.web

    @property
    def snmp_target(self):
        return "127.0.0.1:%d" % self.port

    def _call(self, records):
        with BackendClient(self.path("state", "backend.sock")) as backend:
            for i in range(0, len(records), AT_ONCE):
                backend.call(*records[i:i + AT_ONCE])

    def raise_alarms(self, alarms):
        self._call([record(RAISE_ALARM, uint(1, DISK_FAILED, 8), uint(2, alarm.level), uint(3, alarm.serial),
                           text(8, "%d,CTE%d,1" % (alarm.serial, self.number))) for alarm in alarms])

    def clear_alarms(self, alarms):
        self._call([record(CLEAR_ALARM, uint(3, alarm.serial), text(7, "fleet")) for alarm in alarms])

    def engine(self):
        return json.loads(self.vrxctl("status", "--json"))["agent"]["engine_id"]


class Fleet:
    """All of them, while the context lasts."""

    def __init__(self, plan, server, clients):
        self.arrays = [Array(number, plan.bound(number), server, clients) for number in range(plan.arrays)]

    def __enter__(self):
        try:
            # First all begin, then all are waited for: they start side by side.
            for name in ("backend", "agent"):
                for array in self.arrays:
                    getattr(array, name).start(wait=False)
                for array in self.arrays:
                    getattr(array, name).wait_ready()
            engines = {array.engine() for array in self.arrays}
            if len(engines) != len(self.arrays):
                raise Failure("%d arrays have %d engine IDs" % (len(self.arrays), len(engines)))
        except BaseException:
            self.close()
            raise
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        """Stops all; an array whose program ends in another way than it should is a failure, after the others."""
        with concurrent.futures.ThreadPoolExecutor(16) as pool:
            ends = [pool.submit(array.close) for array in self.arrays]
        problems = [str(end.exception()) for end in ends if end.exception()]
        if problems:
            raise Failure("\n".join(problems[:3]))

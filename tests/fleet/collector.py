"""Stands in for Prometheus and Alertmanager where they are not installed: reads the metrics of every array each second, and
tells the sink what has begun and ended. It follows the exported rules, without their times.
"""

import http.client
import re
import ssl
import threading
import time

from plan import LEVELS
from sink import Told

ALARM = re.compile(r'^vrx_alarm\{.*?serial="(\d+)",.*?level="(\w+)"', re.MULTILINE)
PAUSE = 0.5


class Metrics:
    """Of one array over TLS. As with Prometheus, one connection serves all readings."""

    def __init__(self, array, tls):
        authority, certificate, key = tls
        self.array = array
        self._context = ssl.create_default_context(cafile=authority)
        self._context.load_cert_chain(certificate, key)
        self._connection = None

    def read(self):
        """None when they cannot be read."""
        if self._connection is None:
            self._connection = http.client.HTTPSConnection("127.0.0.1", self.array.web, timeout=30, context=self._context)
        try:
            self._connection.request("GET", "/metrics")
            answer = self._connection.getresponse()
            text = answer.read().decode("utf-8")
            return text if answer.status == 200 else None
        except (OSError, http.client.HTTPException):
            self.close()
            return None

    def close(self):
        if self._connection is not None:
            self._connection.close()
            self._connection = None


def sample(text, name):
    match = re.search(r"^%s(?:\{[^}]*\})? (\S+)$" % name, text, re.MULTILINE)
    return float(match.group(1)) if match else None


class Collector:
    """While the context lasts."""

    def __init__(self, arrays, tls, sink):
        self._metrics = [Metrics(array, tls) for array in arrays]
        self._active = [set() for _ in arrays]  # (alert, serial)
        self._sink = sink
        self._ending = threading.Event()
        self._thread = threading.Thread(target=self._run, daemon=True)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._ending.set()
        self._thread.join()
        for metrics in self._metrics:
            metrics.close()

    def _run(self):
        while not self._ending.wait(PAUSE):
            for number, metrics in enumerate(self._metrics):
                now = self._alerts(metrics.read(), self._active[number])
                self._tell(metrics.array, now - self._active[number], True)
                self._tell(metrics.array, self._active[number] - now, False)
                self._active[number] = now

    def _tell(self, array, alerts, firing):
        self._sink.take([Told(time.time(), firing, alert, array.metrics_target, serial) for alert, serial in alerts])

    @staticmethod
    def _alerts(text, before):
        kept = {(alert, serial) for alert, serial in before if serial}
        if text is None:
            return kept | {("VrxAgentMetricsGone", "")}
        levels = {alert[len("VrxAlarm"):].lower(): alert for alert in LEVELS.values()}
        alerts = {(levels[level], serial) for serial, level in ALARM.findall(text)}
        left_out = sample(text, "vrx_alarms_left_out") or 0
        if sample(text, "vrx_alarms_current") != 1 or left_out > 0:
            alerts |= kept
        if left_out > 0:
            alerts.add(("VrxAlarmsLeftOut", ""))
        if sample(text, "vrx_backend_connected") != 1:
            alerts.add(("VrxBackendAway", ""))
        return alerts

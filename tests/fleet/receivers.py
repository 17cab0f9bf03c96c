"""What Debian's packages have for a fleet, with the files of `vrxctl export prometheus`: two Prometheus servers, two
Alertmanagers as a cluster, snmp_exporter.
"""

import contextlib
import json
import os
import re
import shutil
import subprocess
import urllib.parse
import urllib.request

from arrays import AUTH_PASSPHRASE, PRIV_PASSPHRASE, USER
from harness import PROGRAM_DIR, SOURCE_DIR, Failure, Program, free_port, wait_for

PROMETHEUS, ALERTMANAGER, EXPORTER = "prometheus", "prometheus-alertmanager", "prometheus-snmp-exporter"
REPLICAS = 2
SETTLE_SECONDS = 300
ALERTMANAGER_CONFIG = """
route: {receiver: sink, group_by: [alertname, instance], group_wait: %ds, group_interval: %ds, repeat_interval: 4h}
receivers:
  - name: sink
    webhook_configs: [{url: "http://127.0.0.1:%d/", send_resolved: true}]
"""
SNMPV3 = "auth: {username: %s, security_level: authPriv, password: %s, auth_protocol: SHA256, priv_protocol: AES, priv_password: %s}"


def installed():
    return all(shutil.which(name) for name in (PROMETHEUS, ALERTMANAGER, EXPORTER))


def fetch(port, path, **parameters):
    """What a receiver answers; none while it does not answer."""
    query = "?" + urllib.parse.urlencode(parameters) if parameters else ""
    try:
        with urllib.request.urlopen("http://127.0.0.1:%d%s%s" % (port, path, query), timeout=60) as answer:
            return answer.read().decode("utf-8")
    except OSError:  # refused, closed, and each answer that is none
        return ""


def substituted(path, *changes):
    """Ports and intervals of this run in an exported file; each place must be there."""
    with open(path, encoding="utf-8") as file:
        text = file.read()
    for pattern, replacement in changes:
        text, count = re.subn(pattern, replacement, text, flags=re.MULTILINE)
        if count == 0:
            raise Failure("%s has no %s" % (path, pattern))
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


class Receivers:
    """All of them, while the context lasts."""

    def __init__(self, folder, plan, arrays, sink_port, tls):
        self.folder, self._plan, self._arrays = folder, plan, arrays
        self._ports = {name: [free_port(kind=1) for _ in range(REPLICAS)] for name in (PROMETHEUS, ALERTMANAGER)}
        self._exporter_port = free_port(kind=1)
        self._write_files(sink_port, tls)
        gossip = [free_port(kind=1) for _ in range(REPLICAS)]
        self.prometheus = [self._program(PROMETHEUS, i, "--config.file=prometheus.yml", "--storage.tsdb.path=" + self._path("tsdb%d" % i),
                                         "--log.level=warn") for i in range(REPLICAS)]
        self.alertmanagers = [
            self._program(ALERTMANAGER, i, "--config.file=alertmanager.yml", "--storage.path=" + self._path("alertmanager%d" % i),
                          "--log.level=warn", "--cluster.peer-timeout=%ds" % plan.profile.peer_timeout,
                          "--cluster.listen-address=127.0.0.1:%d" % gossip[i],
                          "--cluster.advertise-address=127.0.0.1:%d" % gossip[i],
                          *["--cluster.peer=127.0.0.1:%d" % port for port in gossip]) for i in range(REPLICAS)]
        self.exporter = Program(shutil.which(EXPORTER), ["--config.file=" + self._path("snmp.yml"), "--log.level=warn",
                                                         "--web.listen-address=127.0.0.1:%d" % self._exporter_port],
                                self._path("exporter.log"))
        self._stack = contextlib.ExitStack()

    def _path(self, *parts):
        return os.path.join(self.folder, *parts)

    def _program(self, name, number, *arguments):
        arguments = [re.sub(r"(?<==)(\w+\.yml)$", lambda match: self._path(match.group(1)), argument) for argument in arguments]
        here = "--web.listen-address=127.0.0.1:%d" % self._ports[name][number]
        return Program(shutil.which(name), [*arguments, here], self._path("%s%d.log" % (name, number)))

    def _write(self, name, text):
        with open(self._path(name), "w", encoding="utf-8") as file:
            file.write(text)

    def _write_files(self, sink_port, tls):
        profile = self._plan.profile
        subprocess.run([os.path.join(PROGRAM_DIR, "vrxctl"), "--root", os.path.join(SOURCE_DIR, "share"), "export", "prometheus",
                        "--output", self._path("")], check=True)
        settings = SNMPV3 % (USER, AUTH_PASSPHRASE, PRIV_PASSPHRASE)
        substituted(self._path("snmp.yml"), (r"auth: \{.*\}", settings), ("version: 2", "version: 3"))
        alertmanagers = ", ".join('"127.0.0.1:%d"' % port for port in self._ports[ALERTMANAGER])
        tls_config = "tls_config: {ca_file: %s, cert_file: %s, key_file: %s}" % tls
        substituted(self._path("prometheus.yml"), (r'"127\.0\.0\.1:9093"', alertmanagers), (r"# tls_config: \{.*\}", tls_config),
                    (r"127\.0\.0\.1:9116", "127.0.0.1:%d" % self._exporter_port),
                    (r"_interval: 30s", "_interval: %ds" % profile.interval),
                    (r"scrape_timeout: 25s", "scrape_timeout: %ds" % max(1, profile.interval * 5 // 6)))
        rules = {"VrxAgentGone": profile.gone_for, "VrxAgentMetricsGone": profile.gone_for, "VrxBackendAway": profile.away_for,
                 "VrxAlarmsLeftOut": profile.left_out_for}
        substituted(self._path("vrx-rules.yml"), (r"interval: 1m", "interval: %ds" % min(60, 10 * profile.interval)),
                    *[(r"(alert: %s\n(?:.*\n)*? +for: )\d+m" % name, r"\g<1>%ds" % seconds) for name, seconds in rules.items()])
        self._write("vrx-fleet.json", json.dumps([{"targets": [array.metrics_target for array in self._arrays]}]))
        self._write("vrx-systems.json", json.dumps([{"targets": [self._arrays[number].snmp_target
                                                                 for number in self._plan.by_snmp]}]))
        self._write("vrx-agents.json", "[]")
        self._write("alertmanager.yml", ALERTMANAGER_CONFIG % (profile.group_wait, profile.group_interval, sink_port))
        subprocess.run(["promtool", "check", "config", self._path("prometheus.yml")], check=True, stdout=subprocess.DEVNULL)

    def __enter__(self):
        with contextlib.ExitStack() as stack:
            for program in (self.exporter, *self.alertmanagers, *self.prometheus):
                program.start(wait=False)
                stack.callback(program.stop)
            wait_for(self._settled, "each target to be read, the definitions, and both Alertmanagers: %s" % self.folder, SETTLE_SECONDS)
            self._stack = stack.pop_all()
        return self

    def __exit__(self, *error):
        return self._stack.__exit__(*error)

    def _settled(self):
        for program in (self.exporter, *self.alertmanagers, *self.prometheus):
            if not program.running():
                raise Failure("%s has ended:\n%s" % (program.name, program.log()[-2000:]))
        targets = self._plan.arrays + 2 * len(self._plan.by_snmp)
        for i in range(REPLICAS):
            status = json.loads(fetch(self._ports[ALERTMANAGER][i], "/api/v2/status") or "{}").get("cluster", {})
            if status.get("status") != "ready" or len(status.get("peers", [])) != REPLICAS:
                return False
            if self.value("count(up == 1)", i) != targets or self.value("count(vrx_alarm_definition_info)", i) == 0:
                return False
        return True

    def value(self, expression, replica=0):
        """Of a query with one result; 0 without any."""
        answer = json.loads(fetch(self._ports[PROMETHEUS][replica], "/api/v1/query", query=expression) or '{"data": {"result": []}}')
        result = answer["data"]["result"]
        return float(result[0]["value"][1]) if result else 0.0

    def own_metric(self, name, replica=0):
        """Of the Prometheus server itself."""
        match = re.search(r"^%s (\S+)$" % name, fetch(self._ports[PROMETHEUS][replica], "/metrics"), re.MULTILINE)
        return float(match.group(1)) if match else 0.0

    def active_alerts(self):
        """How many the Prometheus servers know, pending ones included. (The series ALERTS survives a kill by minutes.)"""
        return sum(len(json.loads(fetch(port, "/api/v1/alerts") or '{"data": {"alerts": [0]}}')["data"]["alerts"])
                   for port in self._ports[PROMETHEUS])

    def by_exporter(self, module, array):
        return fetch(self._exporter_port, "/snmp", module=module, target=array.snmp_target)

    def kill(self, what, which):
        self._named(what)[which].kill()

    def start(self, what, which):
        self._named(what)[which].start(wait=False)

    def _named(self, what):
        return {"prometheus": self.prometheus, "alertmanager": self.alertmanagers}[what]

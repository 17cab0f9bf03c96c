"""Proves in the receivers themselves what `vrxctl export` writes, and the agent's status page: scripts/try-receivers runs it.

Starts what is needed on loopback ports in a temporary folder, and stops it. Says for each receiver what passed; exit code 1
when something did not.
"""

import contextlib
import gzip
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import traceback
import urllib.parse
import urllib.request

from export_test import alarm, documented_lines, hostile_definitions, many_definitions, type_lines
from harness import AGENT_CONFIG, DESTINATIONS, PROGRAM_DIR, Failure, System, free_port, wait_for
from metrics_tls_test import Authority, TlsSystem
from snmptt_test import Snmptrapd, Snmptt
from traps_test import NAMED, TrapSystem

E2E = pathlib.Path(__file__).resolve().parent
SOURCE = E2E.parent.parent
DISK_FAILED, DISK_FAILED_NUMBER = "4295229443", "262147"
TITLE, LOCATION = "Disk Failed", "Enclosure CTE0, slot 7."
DETAIL = "The disk in slot 7 of enclosure CTE0 cannot be used any more: it is not reachable."
ADVICE = "Replace the disk in slot 7 of enclosure CTE0."


class Failed(Exception):
    """A receiver did not do what it should."""


def passed(what):
    print("  passed: " + what, flush=True)


def check(condition, what, seen=""):
    if not condition:
        raise Failed("%s%s" % (what, ": " + str(seen) if seen != "" else ""))
    passed(what)


def run(*command, **options):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, **options)
    if done.returncode != 0:
        raise Failed("%s ended with %d:\n%s" % (" ".join(map(str, command)), done.returncode, done.stdout))
    return done.stdout


def tests(*names):
    """Cases of tests/e2e that have the receiver in them."""
    environment = dict(os.environ, TAMREL_SOURCE_DIR=str(SOURCE), PYTHONDONTWRITEBYTECODE="1")
    for name in names:
        output = run(sys.executable, "-m", "unittest", name, cwd=E2E, env=environment)
        passed("%s: %s" % (name, re.search(r"^Ran .*", output, re.MULTILINE).group(0)))


class Daemon:
    """A receiver's program while the context lasts; its log is shown when something fails."""

    def __init__(self, folder, *command, end=signal.SIGTERM, **options):
        self._log = os.path.join(folder, os.path.basename(command[0]) + ".log")
        self._command, self._folder, self._process = command, folder, None
        self._end, self._options = end, options

    def __enter__(self):
        with open(self._log, "wb") as log:
            self._process = subprocess.Popen(self._command, cwd=self._folder, stdout=log, stderr=log, **self._options)
        return self

    def __exit__(self, kind, *_):
        self._process.send_signal(self._end)
        try:
            self._process.wait(30)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        if kind is not None:
            with open(self._log, encoding="utf-8", errors="replace") as log:
                print("--- the end of %s\n%s" % (self._log, "".join(log.readlines()[-15:])))


def fetch(port, path, **parameters):
    """What the receiver answers; none while it does not answer."""
    query = "?" + urllib.parse.urlencode(parameters) if parameters else ""
    try:
        with urllib.request.urlopen("http://127.0.0.1:%d%s%s" % (port, path, query), timeout=10) as answer:
            return answer.read().decode("utf-8")
    except (urllib.error.URLError, OSError) as error:
        return error.read().decode("utf-8", "replace") if hasattr(error, "read") else ""


def substituted(path, *changes):
    """Ports and intervals of a trial in a file for all; each must be there."""
    text = pathlib.Path(path).read_text(encoding="utf-8")
    for pattern, replacement in changes:
        text, count = re.subn(pattern, replacement, text, flags=re.MULTILINE)
        if count == 0:
            raise Failed("%s has no %s" % (path, pattern))
    pathlib.Path(path).write_text(text, encoding="utf-8")


class Monitoring:
    """snmp_exporter, Prometheus and Alertmanager with the exported files, over a running system."""

    def __init__(self, folder, system, metrics_port, far, tls_config):
        self.folder, self.system, self.far = folder, system, far
        self.exporter, self.prometheus, self.alertmanager = (free_port(kind=1) for _ in range(3))
        self.target = "127.0.0.1:%d" % system.port
        said = type_lines(documented_lines("prometheus"), folder,
                          {"/etc/prometheus/": folder + "/", "COMMUNITY": "public", "192.0.2.20": self.target})
        check("prometheus.yml is valid prometheus config file syntax" in said and "FAILED" not in said,
              "the documented lines, promtool check config the last of them", said)
        pathlib.Path(folder, "vrx-agents.json").write_text(json.dumps([{"targets": ["127.0.0.1:%d" % metrics_port]}]),
                                                           encoding="utf-8")
        pathlib.Path(folder, "vrx-fleet.json").write_text(json.dumps([{"targets": ["127.0.0.1:%d" % far.web]}]), encoding="utf-8")
        run("promtool", "test", "rules", "vrx-rules-test.yml", cwd=folder)
        passed("promtool test rules: all shipped alarms")
        substituted(os.path.join(folder, "prometheus.yml"), (r"127\.0\.0\.1:9093", "127.0.0.1:%d" % self.alertmanager),
                    (r"# tls_config: \{.*\}", "tls_config: {%s}" % tls_config),
                    (r"127\.0\.0\.1:9116", "127.0.0.1:%d" % self.exporter), (r"_interval: 30s", "_interval: 1s"),
                    (r"scrape_timeout: 25s", "scrape_timeout: 1s"))
        substituted(os.path.join(folder, "vrx-rules.yml"), (r"for: \d+m", "for: 1s"),
                    (r"interval: 1m", "interval: 1s"))
        pathlib.Path(folder, "alertmanager.yml").write_text(
            "route: {receiver: nobody, group_wait: 1s, group_interval: 1s}\nreceivers: [{name: nobody}]\n",
            encoding="utf-8")
        self._stack = contextlib.ExitStack()

    def __enter__(self):
        here = "--web.listen-address=127.0.0.1:%d"
        with contextlib.ExitStack() as stack:
            stack.enter_context(Daemon(self.folder, "prometheus-snmp-exporter", "--config.file=snmp.yml", here % self.exporter))
            stack.enter_context(Daemon(self.folder, "prometheus-alertmanager", "--config.file=alertmanager.yml",
                                       "--storage.path=alertmanager", "--cluster.listen-address=", here % self.alertmanager))
            stack.enter_context(Daemon(self.folder, "prometheus", "--config.file=prometheus.yml",
                                       "--storage.tsdb.path=prometheus", here % self.prometheus))
            wait_for(lambda: fetch(self.exporter, "/metrics"), "snmp_exporter to answer")
            wait_for(lambda: "Ready" in fetch(self.prometheus, "/-/ready"), "Prometheus to be ready")
            wait_for(lambda: "OK" in fetch(self.alertmanager, "/-/ready"), "Alertmanager to be ready")
            self._stack = stack.pop_all()
        return self

    def __exit__(self, *error):
        return self._stack.__exit__(*error)

    def query(self, expression):
        answer = json.loads(fetch(self.prometheus, "/api/v1/query", query=expression) or '{"status": "no answer"}')
        if answer["status"] != "success":
            raise Failed("the query %s: %s" % (expression, answer))
        return answer["data"]["result"]

    def alerts(self, name):
        """Active ones of that name, as Alertmanager has them."""
        return json.loads(fetch(self.alertmanager, "/api/v2/alerts", filter='alertname="%s"' % name, active="true") or "[]")

    def wait_alert(self, name):
        return wait_for(lambda: self.alerts(name), "the alert %s" % name)[0]

    def wait_resolved(self, name):
        wait_for(lambda: not self.alerts(name), "the end of the alert %s" % name)


def annotations_of(alert):
    return {name: alert["annotations"].get(name) for name in ("summary", "title", "location", "detail", "advice")}


def expected_annotations(title=TITLE, location=LOCATION, detail=DETAIL, advice=ADVICE):
    return {"summary": title + ": " + location, "title": title, "location": location, "detail": detail, "advice": advice}


def exported(folder, form, definitions=None):
    """The folder that the format's files are in; of the shipped definitions, or of that text's."""
    output = os.path.join(folder, "exported", "")
    shutil.rmtree(output, ignore_errors=True)
    os.makedirs(output)
    options = []
    if definitions is not None:
        path = pathlib.Path(folder, "definitions.xml")
        path.write_text(definitions, encoding="utf-8")
        options = ["--definitions", path]
    run(os.path.join(PROGRAM_DIR, "vrxctl"), "--root", SOURCE / "share", "export", form, "--output", output, *options)
    return output


class ShippedAlarm:
    """How an alarm of the shipped definitions is raised, and the texts that it then has."""

    def __init__(self, one, enumerations):
        self.identifier, self.number, self.oid = one["identifier"], str(one["number"]), one["oid"]
        self.title, self.cause = one["title"], one["cause"]
        self.location = re.sub(r"\[(\d+)\]", r"P\1", one["sample"]["location"])
        self.in_table = one["in_table"]
        codes = {parameter["position"]: enumerations[parameter["enumeration"]][0]["code"]
                 for parameter in one["parameters"] if "enumeration" in parameter}
        most = max([parameter["position"] for parameter in one["parameters"]], default=-1)
        self.parameters = [codes.get(position, "P%d" % position) for position in range(most + 1)]


def shipped_alarms(folder):
    catalogue = json.loads(pathlib.Path(exported(folder, "json"), "vrx-alarms.json").read_text(encoding="utf-8"))
    return [ShippedAlarm(one, catalogue["enumerations"]) for one in catalogue["alarms"]]


def raise_all(system, alarms):
    """Serial numbers by alarm number."""
    return {one.number: system.vrxctl("raise", one.identifier, *one.parameters).strip() for one in alarms}


# Prints what a manager in JavaScript finds in MIB files: the notifications' OIDs by their names.
NOTIFICATIONS_IN_JAVASCRIPT = """
const store = require("net-snmp").createModuleStore();
for (const file of process.argv.slice(1)) store.loadFromFile(file);
const found = Object.values(store.getModule("VRX-TAMREL-ALARM-MIB")).filter(one => one && one.MACRO == "NOTIFICATION-TYPE");
console.log(JSON.stringify(Object.fromEntries(found.map(one => [one.ObjectName, one.OID]))));
"""


def try_mibs():
    tests("export_test.MibTest", "export_test.DocumentedLinesTest.test_mib")
    with tempfile.TemporaryDirectory(prefix="vrx-receiver-") as folder:
        run("npm", "install", "--silent", "--no-audit", "--no-fund", "net-snmp", cwd=folder)
        for name, text in (("shipped", None), ("hostile", hostile_definitions()), ("5,000 made", many_definitions(5000))):
            alarms = json.loads(pathlib.Path(exported(folder, "json", text), "vrx-alarms.json").read_text(encoding="utf-8"))
            module = os.path.join(exported(folder, "mib", text), "VRX-TAMREL-ALARM-MIB")
            said = run("node", "-e", NOTIFICATIONS_IN_JAVASCRIPT, "--", SOURCE / "mibs" / "VRX-TAMREL-MIB", module, cwd=folder)
            found = json.loads(said.splitlines()[-1])
            check(found == {one["notification"]: one["oid"] for one in alarms["alarms"]},
                  "net-snmp of npm finds the notifications of %s definitions: %d" % (name, len(found)))


def try_snmptt():
    tests("snmptt_test")
    with tempfile.TemporaryDirectory(prefix="vrx-receiver-") as folder:
        snmptt, config = Snmptt(folder), os.path.join(folder, "snmptrapd.conf")
        with TrapSystem() as system:
            engine = json.loads(system.vrxctl("status", "--json"))["agent"]["engine_id"]
            pathlib.Path(config).write_text(
                "outputOption n\nauthCommunity execute traps\nauthUser execute sealed priv\n"
                "createUser -e 0x%s sealed SHA-256 sealed-auth-pass AES sealed-priv-pass\n"
                "traphandle default /usr/sbin/snmptt --ini=%s\n" % (engine, snmptt.ini), encoding="utf-8")
            with Snmptrapd(folder, config, False) as receiver:
                system.add_destination(1, receiver.port, 2, NAMED)
                system.add_destination(2, receiver.port, 3, NAMED, "sealed")
                every_definition_is_named(system, snmptt, shipped_alarms(folder))


def every_definition_is_named(system, snmptt, alarms):
    """One after the other: snmptrapd does not keep more than a few datagrams waiting while snmptt runs."""
    expected = []
    for one in alarms:
        serial = system.vrxctl("raise", one.identifier, *one.parameters).strip()
        for severity, text in (("Major", "%s: %s" % (one.title, one.location)),
                               ("Normal", "%s: ended. %s" % (one.title, one.location))):
            if severity == "Normal":
                system.vrxctl("clear", serial)
            expected += 2 * [(one.oid, severity, text)]  # version 2 and version 3
            wait_for(lambda: len(snmptt.lines()) >= len(expected), "two lines of alarm %s, %s" % (one.number, severity))
    found = sorted(snmptt.lines())
    wrong = [(line, wanted) for line, wanted in zip(found, sorted(expected))
             if line[:2] != wanted[:2] or not line[2].startswith(wanted[2])]
    check(len(found) == len(expected) and not wrong,
          "each of %d definitions, raised and cleared, v2c and v3, is a line with name, severity and location" % len(alarms),
          wrong[:3])


def promtool_takes_other_definitions():
    with tempfile.TemporaryDirectory(prefix="vrx-receiver-") as folder:
        for name, text in (("hostile", hostile_definitions()), ("2,000 made", many_definitions(2000))):
            files = exported(folder, "prometheus", text)
            run("promtool", "check", "rules", "vrx-rules.yml", cwd=files)
            run("promtool", "test", "rules", "vrx-rules-test.yml", cwd=files)
            passed("promtool check and test rules: %s definitions" % name)
        # Its tests load at most 10,000 samples at once, which causes of more than 2,500 definitions are beyond.
        run("promtool", "check", "rules", "vrx-rules.yml", cwd=exported(folder, "prometheus", many_definitions(5000)))
        passed("promtool check rules: 5,000 made definitions")


def try_prometheus():
    promtool_takes_other_definitions()
    folder = tempfile.mkdtemp(prefix="vrx-receiver-")
    metrics = free_port(kind=1)
    try:
        config = AGENT_CONFIG + "trapcommunity traps\nvrxMetrics tcp:127.0.0.1:%d\n" % metrics
        with contextlib.ExitStack() as stack, System(agent_config=config) as system:
            system.vrxctl("export", "grafana", "--output", folder + "/")
            system.add_destination(1, free_port())
            authority = Authority(folder, "authority")
            client = authority.make("collector", "clientAuth")
            far = stack.enter_context(TlsSystem(folder, authority.make("agent", "serverAuth"), authority))
            tls_config = "ca_file: %s, cert_file: %s, key_file: %s" % (authority.path, *client)
            with Monitoring(folder, system, metrics, far, tls_config) as monitoring:
                alarms_become_alerts(monitoring)
                every_alarm_becomes_an_alert(monitoring)
                alarms_become_alerts_by_metrics(monitoring)
                dashboard_has_data(monitoring)
                snmpv3_is_read(monitoring)
                faults_become_alerts(monitoring)
    finally:
        shutil.rmtree(folder)


def alarms_become_alerts(monitoring):
    system = monitoring.system
    wait_for(lambda: monitoring.query("vrx_alarm_definition_info"), "the causes of alarms")
    serial = system.vrxctl("raise", DISK_FAILED, "7", "CTE0", "1").strip()
    alert = monitoring.wait_alert("VrxAlarmMajor")
    check(annotations_of(alert) == expected_annotations() and alert["annotations"]["cause"].startswith("The disk has a fault"),
          "a raised alarm is a firing alert with title, location, detail, advice and cause", alert["annotations"])
    labels = dict(alert["labels"])
    check({name: labels.get(name) for name in ("severity", "serial", "number", "instance", "node")} ==
          {"severity": "major", "serial": serial, "number": DISK_FAILED_NUMBER, "instance": monitoring.target,
           "node": "VRX-0001"} and "advice" not in labels, "its labels name severity, serial number, alarm and system", labels)
    since = alert["startsAt"]
    system.agent.stop()
    monitoring.wait_alert("VrxAgentGone")
    check(monitoring.alerts("VrxAlarmMajor")[0]["startsAt"] == since, "the alert stays while the agent is away")
    system.agent.start()
    monitoring.wait_resolved("VrxAgentGone")
    check(monitoring.alerts("VrxAlarmMajor")[0]["startsAt"] == since, "and is the same one after the agent's restart")
    system.vrxctl("clear", serial)
    monitoring.wait_resolved("VrxAlarmMajor")
    passed("the cleared alarm's alert is resolved")


def every_alarm_becomes_an_alert(monitoring):
    """All shipped ones at once."""
    alarms = {one.number: one for one in shipped_alarms(monitoring.folder) if one.in_table}
    serials = raise_all(monitoring.system, alarms.values())
    found = wait_for(lambda: (lambda alerts: alerts if len(alerts) >= len(alarms) else None)(monitoring.alerts("VrxAlarmMajor")),
                     "%d alerts" % len(alarms))
    wrong = [alert for alert in found for one in [alarms[alert["labels"]["number"]]]
             if (alert["labels"]["serial"], alert["annotations"]["title"], alert["annotations"]["location"],
                 alert["annotations"]["cause"]) != (serials[one.number], one.title, one.location, one.cause)]
    check(len(found) == len(alarms) and not wrong,
          "each of %d alarms is a firing alert with its title, location and cause" % len(alarms), wrong[:1])
    for serial in serials.values():
        monitoring.system.vrxctl("clear", serial)
    monitoring.wait_resolved("VrxAlarmMajor")
    passed("all are resolved")


def alarms_become_alerts_by_metrics(monitoring):
    """Of a system that Prometheus reads over TLS, and in no other way."""
    far = monitoring.far
    wait_for(lambda: [one for one in monitoring.query('up{job="vrx-fleet"}') if one["value"][1] == "1"], "its metrics")
    serial = far.vrxctl("raise", DISK_FAILED, "7", "CTE0", "1").strip()
    alert = monitoring.wait_alert("VrxAlarmMajor")
    check(annotations_of(alert) == expected_annotations() and alert["labels"]["instance"] == "127.0.0.1:%d" % far.web,
          "metrics over TLS: a raised alarm is the same alert", alert)
    since = alert["startsAt"]
    far.agent.kill()
    monitoring.wait_alert("VrxAgentMetricsGone")
    far.agent.start()
    monitoring.wait_resolved("VrxAgentMetricsGone")
    check(monitoring.alerts("VrxAlarmMajor")[0]["startsAt"] == since, "and stays while the agent is away")
    far.vrxctl("clear", serial)
    monitoring.wait_resolved("VrxAlarmMajor")
    passed("the cleared alarm's alert is resolved")


def dashboard_has_data(monitoring):
    """Every query of the dashboard runs and gives data."""
    system = monitoring.system
    system.vrxctl("raise", DISK_FAILED, "7", "CTE0", "1")
    monitoring.wait_alert("VrxAlarmMajor")
    dashboard = json.loads(pathlib.Path(monitoring.folder, "vrx-dashboard.json").read_text(encoding="utf-8"))
    expressions = [target["expr"] for panel in dashboard["panels"] for target in panel["targets"]]
    without_data = []
    for expression in expressions:
        for variable, value in (("$system", ".*"), ("$agent", ".*"), ("$__rate_interval", "1m")):
            expression = expression.replace(variable, value)
        if not monitoring.query(expression):
            without_data.append(expression)
    check(not without_data, "the dashboard's %d queries run and have data" % len(expressions), without_data)


def snmpv3_is_read(monitoring):
    """The documented settings, with the user of the system."""
    modules = pathlib.Path(monitoring.folder, "snmp.yml").read_text(encoding="utf-8")
    page = (SOURCE / "docs" / "receivers.md").read_text(encoding="utf-8")
    settings = " ".join(re.search(r"`(auth: \{username: .*?\})`", page, re.DOTALL).group(1).split())
    for word, value in (("monitor", "admin"), ("AUTH-PASSPHRASE", "admin-auth-pass"), ("PRIV-PASSPHRASE", "admin-priv-pass")):
        settings = settings.replace(word, value)
    modules = re.sub(r"auth: \{.*\}", settings, modules).replace("version: 2", "version: 3")
    folder, port = os.path.join(monitoring.folder, "snmpv3"), free_port(kind=1)
    os.mkdir(folder)
    pathlib.Path(folder, "snmp.yml").write_text(modules, encoding="utf-8")
    with Daemon(folder, "prometheus-snmp-exporter", "--config.file=snmp.yml", "--web.listen-address=127.0.0.1:%d" % port):
        wait_for(lambda: fetch(port, "/metrics"), "snmp_exporter to answer")
        for module, metric in (("vrx_alarms", "vrxAlarmFaultLevel_info"), ("vrx_agent", "vrxAgentAlarmsActive")):
            answer = fetch(port, "/snmp", module=module, target=monitoring.target)
            if "\n" + metric not in answer:
                raise Failed("SNMPv3, %s: %s" % (module, answer))
    passed("both modules by SNMPv3, with the documented settings")


def faults_become_alerts(monitoring):
    system = monitoring.system
    since = monitoring.wait_alert("VrxAlarmMajor")["startsAt"]
    system.backend.stop()
    monitoring.wait_alert("VrxBackendAway")
    check([alert["startsAt"] for alert in monitoring.alerts("VrxAlarmMajor")] == [since],
          "a backend that is away is an alert, and alerts for alarms stay")
    system.backend.start()
    monitoring.wait_resolved("VrxBackendAway")
    check([alert["startsAt"] for alert in monitoring.alerts("VrxAlarmMajor")] == [since],
          "it is resolved when the backend is back, and alerts for alarms are the same")


POSTGRES = "/usr/lib/postgresql/15/bin/"
TRAP_ITEM = "17"
# How the agent under test is polled: protocol 3 is SHA-256, 1 is AES-128.
# Without combined requests, as the documentation says: with them the server may ask for zero repetitions for ever.
COMMUNITY = {"version": 2, "bulk": 0, "community": "public"}
USER = {"version": 3, "bulk": 0, "contextname": "", "securityname": "admin", "securitylevel": 2, "authprotocol": 3,
        "authpassphrase": "admin-auth-pass", "privprotocol": 1, "privpassphrase": "admin-priv-pass"}
ZABBIX_SCHEMA, ZABBIX_PAGES = "/usr/share/zabbix-server-pgsql/", "/usr/share/zabbix"


class Zabbix:
    """PostgreSQL, server and frontend of Zabbix with the exported template, and snmptrapd before them."""

    def __init__(self, folder):
        self.folder = folder
        self.database, self.frontend = (free_port(kind=1) for _ in range(2))
        self.traps = free_port()
        self.host, self._host_id = "", ""  # the one that is monitored
        self._token, self._stack = None, contextlib.ExitStack()

    def _path(self, name, text=None):
        path = os.path.join(self.folder, name)
        if text is not None:
            pathlib.Path(path).write_text(text, encoding="utf-8")
        return path

    def _start_database(self, stack):
        """As an unprivileged user, as PostgreSQL refuses to run as root."""
        user = {"user": "postgres", "extra_groups": []} if os.geteuid() == 0 else {}
        cluster = self._path("cluster")
        os.mkdir(cluster, 0o700)
        if user:
            os.chmod(self.folder, 0o755)
            shutil.chown(cluster, "postgres")
        run(POSTGRES + "initdb", "-D", cluster, "-U", "zabbix", "-A", "trust", "-E", "UTF8", "--locale=C.UTF-8", "-N",
            cwd="/", **user)
        stack.enter_context(Daemon(self.folder, POSTGRES + "postgres", "-D", cluster, "-h", "127.0.0.1", "-k", "", "-F",
                                   "-p", str(self.database), end=signal.SIGINT, **user))
        psql = ["psql", "-q", "-h", "127.0.0.1", "-p", str(self.database), "-U", "zabbix", "-v", "ON_ERROR_STOP=1"]
        wait_for(lambda: subprocess.run([*psql, "-c", "", "postgres"], stderr=subprocess.DEVNULL, check=False).returncode == 0,
                 "PostgreSQL to answer")
        run(*psql, "-c", "CREATE DATABASE zabbix", "postgres")
        for part in ("schema", "images", "data"):
            with gzip.open(ZABBIX_SCHEMA + part + ".sql.gz") as sql:
                run(*psql, "-o", os.devnull, "-1", "-f", self._path("part.sql", sql.read().decode("utf-8")), "zabbix")

    def _start_frontend(self, stack):
        pages = self._path("pages")
        shutil.copytree(ZABBIX_PAGES, pages, ignore=shutil.ignore_patterns("*.css", "locale", "conf"))
        os.mkdir(pages + "/conf")
        shutil.copy(ZABBIX_PAGES + "/conf/maintenance.inc.php", pages + "/conf")
        settings = self._path("zabbix.conf.php", """<?php
$DB = ['TYPE' => 'POSTGRESQL', 'SERVER' => '127.0.0.1', 'PORT' => '%d', 'DATABASE' => 'zabbix', 'USER' => 'zabbix',
       'PASSWORD' => '', 'SCHEMA' => '', 'ENCRYPTION' => false, 'DOUBLE_IEEE754' => true];
$IMAGE_FORMAT_DEFAULT = IMAGE_FORMAT_PNG;
""" % self.database)
        substituted(pages + "/include/classes/core/CConfigFile.php", (r"/etc/zabbix/zabbix\.conf\.php", settings))
        # No more than the frontend demands of a web server's PHP (CFrontendSetup).
        limits = ["-dmemory_limit=128M", "-dpost_max_size=16M", "-dupload_max_filesize=2M"]
        stack.enter_context(Daemon(self.folder, "php", *limits, "-S", "127.0.0.1:%d" % self.frontend, "-t", pages))
        wait_for(lambda: fetch(self.frontend, "/robots.txt"), "the frontend to answer")
        self._token = self.call("user.login", username="Admin", password="zabbix")

    def _start_server(self, stack):
        """The documented lines make the rest of the configurations of snmptrapd and the server."""
        for folder in ("snmp", "server.d"):
            os.mkdir(self._path(folder))
        type_lines(documented_lines("zabbix"), self.folder,
                   {"/etc/snmp/": self._path("snmp") + "/", "/var/log/zabbix-traps": self._path("traps"),
                    "/etc/zabbix/zabbix_server.conf.d/": self._path("server.d") + "/", "-o Debian-snmp ": "",
                    "COMMUNITY": "traps"})
        passed("the documented lines")
        stack.enter_context(Daemon(self.folder, "snmptrapd", "-f", "-C", "-c", self._path("snmp/snmptrapd.conf"), "-Lo",
                                   "udp:127.0.0.1:%d" % self.traps, env=dict(os.environ, MIBS="")))
        config = self._path("zabbix_server.conf", """DBHost=127.0.0.1
DBPort=%d
DBName=zabbix
DBUser=zabbix
StartTrappers=0
LogType=console
PidFile=%s
SocketDir=%s
AllowRoot=1
CacheUpdateFrequency=1
UnreachableDelay=1
UnavailableDelay=1
UnreachablePeriod=3
Include=%s
""" % (self.database, self._path("zabbix_server.pid"), self.folder, self._path("server.d/*.conf")))
        stack.enter_context(Daemon(self.folder, "zabbix_server", "-f", "-c", config))

    def __enter__(self):
        with contextlib.ExitStack() as stack:
            self._start_database(stack)
            self._start_frontend(stack)
            self._start_server(stack)
            self._stack = stack.pop_all()
        return self

    def __exit__(self, *error):
        return self._stack.__exit__(*error)

    def call(self, method, *listed, **parameters):
        """A call of the frontend's API, which must succeed."""
        body = {"jsonrpc": "2.0", "id": 1, "method": method, "params": list(listed) or parameters, "auth": self._token}
        request = urllib.request.Request("http://127.0.0.1:%d/api_jsonrpc.php" % self.frontend, json.dumps(body).encode(),
                                         {"Content-Type": "application/json-rpc"})
        with urllib.request.urlopen(request, timeout=60) as reply:
            text = reply.read().decode("utf-8", "replace")
        try:
            return json.loads(text)["result"]
        except (ValueError, KeyError) as error:
            raise Failed("%s: %s" % (method, text)) from error

    def import_template(self, path):
        """With the rights that an operator ticks when importing a new template."""
        kinds = ["groups", "templates", "items", "triggers", "discoveryRules", "valueMaps"]
        return self.call("configuration.import", format="yaml", source=pathlib.Path(path).read_text(encoding="utf-8"),
                         rules={kind: {"createMissing": True, "updateExisting": True} for kind in kinds})

    def problems(self, active=True):
        """Names, severities, texts and tags of the host's problems; of those that have ended when asked."""
        found = self.call("problem.get", output="extend", selectTags="extend", recent=not active, hostids=self._host_id)
        return [problem for problem in found if (problem["r_eventid"] == "0") == active]

    def wait_problem(self, beginning):
        return wait_for(lambda: [problem for problem in self.problems() if problem["name"].startswith(beginning)],
                        "the problem " + beginning, 120)[0]

    def wait_recovered(self, problem):
        try:
            wait_for(lambda: [one for one in self.problems(active=False) if one["eventid"] == problem["eventid"]],
                     "the end of the problem " + problem["name"], 120)
        except Failure as failure:
            items = self.call("item.get", output=["name", "lastvalue", "lastclock", "state", "error"], host=self.host)
            triggers = self.call("trigger.get", output=["description", "value", "state", "error"], host=self.host)
            raise Failure("%s; at %d: %s, %s" % (failure, time.time(), items, triggers)) from failure

    def trigger_text(self, problem):
        (trigger,) = self.call("trigger.get", output=["comments"], expandComment=True, triggerids=[problem["objectid"]])
        return trigger["comments"]

    def disable_shipped_host(self):
        """It would have problems of its own."""
        shipped = self.call("host.get", output=["hostid"])
        self.call("host.update", hostid=shipped[0]["hostid"], status=1)
        self.call("hostgroup.create", name="VRX")

    def monitor(self, host, port, details):
        """Instead of the host before: the agent at that port, with short intervals."""
        former = self.call("host.get", output=["hostid"], filter={"host": self.host})
        if former:
            self.call("host.delete", former[0]["hostid"])
        (template,) = self.call("template.get", output=["templateid"], filter={"host": "VRX storage system"})
        interface = {"type": 2, "main": 1, "useip": 1, "ip": "127.0.0.1", "dns": "", "port": str(port), "details": details}
        created = self.call("host.create", host=host, interfaces=[interface], templates=[template],
                            groups=self.call("hostgroup.get", output=["groupid"], filter={"name": "VRX"}),
                            macros=[{"macro": "{$VRX.%s}" % name, "value": value}
                                    for name, value in (("INTERVAL", "2s"), ("GONE", "10s"), ("DROPPED", "10s"))])
        self.host, (self._host_id,) = host, created["hostids"]

    def values(self):
        """Last values of the host's items that have one, by name."""
        found = self.call("item.get", output=["name", "lastvalue", "lastclock"], host=self.host)
        return {item["name"]: item["lastvalue"] for item in found if item["lastclock"] != "0"}

    def without_value(self, traps=True):
        """Names of items, those of traps too if asked; the alarm table as a whole is not kept."""
        names = {item["name"] for item in self.call("item.get", output=["name", "type"], host=self.host)
                 if traps or item["type"] != TRAP_ITEM}
        return sorted(names - set(self.values()) - {"Alarm table"})

    def texts(self, name):
        """All values of an item that are kept."""
        (item,) = self.call("item.get", output=["itemid"], host=self.host, filter={"name": name})
        return [value["value"] for value in self.call("history.get", history=2, itemids=item["itemid"])]


def names_of(problems):
    return sorted(problem["name"] for problem in problems)


# Texts that mean something to Zabbix, YAML or JSON.
HOSTILE_TITLE = '{$VRX.INTERVAL} {#SERIAL} {HOST.NAME} "größe" \\ %s \'磁盘\' ' + 30 * "long "
HOSTILE_CAUSE = 'C: {$VRX.INTERVAL} {#NUMBER} {HOST.NAME} "größe" \\ # - [x] {x: y} | 磁盘'


def try_zabbix():
    folder = tempfile.mkdtemp(prefix="vrx-receiver-")
    config = AGENT_CONFIG + "trapcommunity traps\nvrxHeartbeatTrap 5\n"
    try:
        with System(agent_config=config, start=False) as system:
            definitions = system.path("conf", "alarm_definitions.xml")
            own = alarm(999999, HOSTILE_TITLE, HOSTILE_CAUSE, HOSTILE_CAUSE, HOSTILE_CAUSE, HOSTILE_TITLE)
            substituted(definitions, ("</eventDefinition>", lambda _: own + "</eventDefinition>"))
            system.backend.start()
            system.agent.start()
            with Zabbix(folder) as zabbix:
                many_definitions_are_imported(zabbix)
                template_is_imported(system, zabbix)
                zabbix.disable_shipped_host()
                zabbix.monitor("storage", system.port, COMMUNITY)
                system.add_destination(1, zabbix.traps)
                alarms_become_problems(system, zabbix)
                faults_become_problems(system, zabbix)
                zabbix.monitor("storage-v3", system.port, USER)
                levels_are_severities(system, zabbix)
                every_alarm_becomes_a_problem(system, zabbix)
    finally:
        shutil.rmtree(folder)


def many_definitions_are_imported(zabbix):
    template = os.path.join(exported(zabbix.folder, "zabbix", many_definitions(5000)), "vrx-zabbix.yaml")
    started = time.monotonic()
    check(zabbix.import_template(template) is True, "configuration.import: 5,000 made definitions, %d kB, in %.0f s" %
          (os.path.getsize(template) // 1024, time.monotonic() - started))


def template_is_imported(system, zabbix):
    template = os.path.join(zabbix.folder, "vrx-zabbix.yaml")
    system.vrxctl("export", "zabbix", "--output", template)
    check(zabbix.import_template(template) is True, "configuration.import: all shipped alarms and a hostile one")

    def found():
        """Uuids and numbers of all, in whatever order they come."""
        (known,) = zabbix.call("template.get", output=["uuid"], selectItems=["itemid", "uuid"], selectTriggers=["triggerid", "uuid"],
                               selectDiscoveries=["itemid", "uuid"], selectMacros="count", filter={"host": "VRX storage system"})
        return {part: sorted(value, key=str) if isinstance(value, list) else value for part, value in known.items()}

    before = found()
    check(zabbix.import_template(template) is True and found() == before and before["items"],
          "importing again changes nothing", before)


def alarms_become_problems(system, zabbix):
    wait_for(lambda: zabbix.values().get("Alarms in the table") == "0", "the empty table", 120)
    serials = {identifier: system.vrxctl("raise", identifier, "7", "CTE0", "1").strip()
               for identifier in (DISK_FAILED, str(1 << 32 | 999999))}
    problem = zabbix.wait_problem(TITLE)
    tags = {tag["tag"]: tag["value"] for tag in problem["tags"]}
    check(problem["name"] == "%s: %s %s" % (TITLE, LOCATION, DETAIL) and problem["severity"] == "4",
          "an alarm of level major is a problem of severity high, with title, location and detail", problem)
    check({name: tags.get(name) for name in ("serial", "number", "level", "node")} ==
          {"serial": serials[DISK_FAILED], "number": DISK_FAILED_NUMBER, "level": "major", "node": "VRX-0001"},
          "its tags name serial number, alarm, level and node", tags)
    text = zabbix.trigger_text(problem)
    check(DETAIL in text and "Advice: " + ADVICE in text and "Cause: The disk has a fault of its own" in text,
          "its description has detail, advice and cause", text)
    hostile = zabbix.wait_problem("{ $VRX")
    shown = HOSTILE_TITLE.replace("{", "{ ")[:97] + "..."
    check(hostile["name"].startswith("%s: %s " % (shown, shown)), "texts are cut, and hold no macro", hostile["name"])
    advice, cause = zabbix.trigger_text(hostile).splitlines()[-2:]
    check((advice, cause) == ("Advice: " + HOSTILE_CAUSE.replace("{", "{ "), "Cause: " + HOSTILE_CAUSE),
          "a hostile advice and a hostile cause are shown as they are", (advice, cause))
    wait_for(lambda: sum(TITLE in text for text in zabbix.texts("Traps of alarms")) == 2, "both traps", 60)
    wait_for(lambda: zabbix.texts("Heartbeats of the agent"), "the heartbeat", 60)
    passed("the alarm's two traps and heartbeats are values of the trap items")
    wait_for(lambda: not zabbix.without_value(), "values of all items: %s" % zabbix.without_value(), 60)
    passed("the %d items have values" % len(zabbix.values()))
    for serial in serials.values():
        system.vrxctl("clear", serial)
    for ended in (problem, hostile):
        zabbix.wait_recovered(ended)
    left = [problem["name"] for problem in zabbix.problems()]
    check(not left, "the problems of cleared alarms have recovered", left)


def every_alarm_becomes_a_problem(system, zabbix):
    """All shipped ones at once."""
    alarms = {one.number: one for one in shipped_alarms(zabbix.folder) if one.in_table}
    serials = raise_all(system, alarms.values())
    found = wait_for(lambda: (lambda problems: problems if len(problems) >= len(alarms) else None)(zabbix.problems()),
                     "%d problems" % len(alarms), 120)
    tags = [{tag["tag"]: tag["value"] for tag in problem["tags"]} for problem in found]
    wrong = [problem["name"] for problem, tag in zip(found, tags) for one in [alarms[tag["number"]]]
             if tag["serial"] != serials[one.number] or not problem["name"].startswith("%s: %s" % (one.title, one.location))
             or "Cause: " + one.cause not in zabbix.trigger_text(problem)]
    check(len(found) == len(alarms) and not wrong, "each of %d alarms is a problem with its title, location and cause" %
          len(alarms), wrong[:3])
    for serial in serials.values():
        system.vrxctl("clear", serial)
    wait_for(lambda: not zabbix.problems(), "the end of all problems", 120)
    passed("all have recovered")


def levels_are_severities(system, zabbix):
    """Over SNMPv3, with authentication and encryption."""
    for serial in [one["serial"] for one in json.loads(system.vrxctl("list", "--json"))]:
        system.vrxctl("clear", str(serial))
    wait_for(lambda: zabbix.values().get("Alarms in the table") == "0", "the empty table over SNMPv3", 120)
    serials = [system.vrxctl("raise", DISK_FAILED, str(slot), "CTE0", "1", "--level", str(level)).strip()
               for slot, level in enumerate((6, 5, 4, 3))]
    found = wait_for(lambda: zabbix.problems() if len(zabbix.problems()) == 4 else None, "the four problems", 120)
    severities = {tag["value"]: problem["severity"] for problem in found for tag in problem["tags"] if tag["tag"] == "level"}
    check(severities == {"critical": "5", "major": "4", "minor": "3", "warning": "2"},
          "each level is a severity of its own, polled over SNMPv3 (authPriv, SHA-256, AES-128)", found)
    wait_for(lambda: not zabbix.without_value(traps=False), "values over SNMPv3: %s" % zabbix.without_value(traps=False), 60)
    passed("the items that are polled have values over SNMPv3")
    for serial in serials:
        system.vrxctl("clear", serial)
    for problem in found:
        zabbix.wait_recovered(problem)
    passed("the four problems have recovered")


def faults_become_problems(system, zabbix):
    system.vrxctl("raise", DISK_FAILED, "7", "CTE0", "1")
    alarm_problem = zabbix.wait_problem(TITLE)

    def gone_and_back(program, name):
        program.stop()
        problem = zabbix.wait_problem(name)
        check(names_of(zabbix.problems()) == names_of([alarm_problem, problem]),
              "stopped: " + name + "; problems of alarms stay", names_of(zabbix.problems()))
        program.start()
        zabbix.wait_recovered(problem)
        check([one["eventid"] for one in zabbix.problems()] == [alarm_problem["eventid"]],
              "back: it recovers, and problems of alarms are the same")

    gone_and_back(system.backend, "The agent has lost its management backend")
    gone_and_back(system.agent, "The SNMP agent does not answer")
    table_is_unreadable(system, zabbix)
    system.add_destination(2, 9, address="no-such-host.invalid")
    system.vrxctl("raise", DISK_FAILED, "8", "CTE0", "1")
    wait_for(lambda: zabbix.values()["Traps that wait to be sent"] != "0", "traps that wait for the address")
    system.set(DESTINATIONS + ".3.2", "i", "6")  # deleted, and its traps dropped
    zabbix.wait_recovered(zabbix.wait_problem("The agent has dropped traps"))
    passed("dropped traps are a problem for a while")


def table_is_unreadable(system, zabbix):
    definitions = system.path("conf", "alarm_definitions.xml")
    system.agent.stop()
    os.rename(definitions, definitions + ".away")
    system.agent.start()
    problem = zabbix.wait_problem("The alarm table cannot be read")
    passed("an alarm table that cannot be read is a problem")
    os.rename(definitions + ".away", definitions)
    system.vrxctl("reload")
    zabbix.wait_recovered(problem)
    passed("it recovers when the table can be read again")


RECEIVERS = {
    "mibs": try_mibs,
    "snmptt": try_snmptt,
    "prometheus": try_prometheus,
    "zabbix": try_zabbix,
    "streams": lambda: tests("streams_test"),
    "catalogue": lambda: tests("browser_test.Catalogue"),
    "page": lambda: tests("browser_test.StatusPage"),
}


def main():
    if not os.path.exists(os.path.join(PROGRAM_DIR, "vrxctl")):
        print("try-receivers: no programs in " + PROGRAM_DIR, file=sys.stderr)
        return 1
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))  # by way of all that ends what was started
    failed = []
    for name in sys.argv[1:]:
        print(name + ":", flush=True)
        started = time.monotonic()
        try:
            RECEIVERS[name]()
            print("  %s: all passed in %.0f s" % (name, time.monotonic() - started), flush=True)
        except Exception as error:  # the others are tried all the same
            failed.append(name)
            print("  FAILED: %s" % error, flush=True)
            if not isinstance(error, Failed):
                traceback.print_exc()
    if failed:
        print("try-receivers: failed: " + " ".join(failed), file=sys.stderr)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())

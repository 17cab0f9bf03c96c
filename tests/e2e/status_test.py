"""What the agent tells of itself: status, metrics, heartbeat, objects of its own, and the levels of its log."""

import contextlib
import http.client
import json
import os
import re
import signal
import socket
import subprocess
import unittest

from backend_client import BackendClient
from harness import (AGENT_CONFIG, ALARMS, CLEAR_ALARM, ENTERPRISE, PROGRAM_DIR, SOURCE_DIR, TOPOLOGY, V1, V2C, V3,
                     System, free_port, values, wait_for)
from stream_test import hung_up
from trap_receiver import TrapReceiver

EX_DATAERR, EX_CONFIG = 65, 78
OWN = "1.3.6.1.4.1.99871.3.1.1"
ACTIVE, CRITICAL, MAJOR, MINOR, WARNING, CHANGES, LAST_CHANGE, LAST_CHANGE_TIME, LAST_EVENT = (
    "%s.1.%d.0" % (OWN, number) for number in range(1, 10))
BACKEND_STATE, BACKEND_SINCE, BACKEND_CONNECTIONS = ("%s.2.%d.0" % (OWN, number) for number in range(1, 4))
SENT, DROPPED, WAITING = ("%s.3.%d.0" % (OWN, number) for number in range(1, 4))
ALARM = "4295032833"  # a shipped one
MISSING_SERIAL = "4000000000"
UPTIME = "1.3.6.1.2.1.1.3.0"
CONFIG = AGENT_CONFIG + "trapcommunity traps\n"


def status(system):
    return json.loads(system.vrxctl("status", "--json"))


def results(system):
    """{kind: {result: count}} without what is 0."""
    return {row["kind"]: {name: count for name, count in row["results"].items() if count}
            for row in status(system)["requests"]}


def number(system, oid, **more):
    return int(system.get(oid, options=["-OQv"], **more))


def raise_alarm(system, level):
    return system.vrxctl("raise", ALARM, "07:55", "123", "--level", str(level)).strip()


class UnixConnection(http.client.HTTPConnection):
    def __init__(self, path):
        super().__init__("localhost", timeout=30)
        self._path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(self.timeout)
        self.sock.connect(self._path)


def fetch(connection, method="GET", path="/metrics"):
    """Status, content type and body."""
    try:
        connection.request(method, path)
        answer = connection.getresponse()
        return answer.status, answer.getheader("Content-Type"), answer.read().decode()
    finally:
        connection.close()


def tcp_metrics(port):
    return fetch(http.client.HTTPConnection("127.0.0.1", port, timeout=30))


NAME = r"[a-zA-Z_:][a-zA-Z0-9_:]*"
LABEL = r'[a-zA-Z_][a-zA-Z0-9_]*="(?:[^"\\\n]|\\\\|\\"|\\n)*"'
SAMPLE = re.compile(r"(%s)(?:\{(%s(?:,%s)*)\})? ([^ ]+)" % (NAME, LABEL, LABEL))
HEAD = re.compile(r"# (HELP|TYPE) (%s) (.+)" % NAME)


def parsed(text):
    """The samples of a text in exposition format 0.0.4 by name and labels, and the types by metric; strict."""
    samples, types, helps, metric, closed = {}, {}, {}, None, set()
    assert text.endswith("\n"), "the last line has no end"
    for line in text[:-1].split("\n"):
        head = HEAD.fullmatch(line)
        if head:
            kind, name, rest = head.groups()
            if name != metric:
                assert name not in closed, "samples of %s do not stand together" % name
                closed.add(metric)
                metric = name
            known = helps if kind == "HELP" else types
            assert name not in known, "a second %s of %s" % (kind, name)
            known[name] = rest
            continue
        match = SAMPLE.fullmatch(line)
        assert match, "no sample: %r" % line
        name, labels, value = match.groups()
        base = re.sub("_(bucket|sum|count)$", "", name) if types.get(metric) == "histogram" else name
        assert base == metric, "%s stands below %s" % (name, metric)
        assert metric in types and metric in helps, "no HELP or TYPE of " + metric
        key = (name, labels or "")
        assert key not in samples, "a second sample %s" % (key,)
        samples[key] = float(value)
    for name, kind in types.items():
        assert kind in ("counter", "gauge", "histogram"), kind
        assert (kind == "counter") == name.endswith("_total"), name
    return samples, types


def check_histograms(samples):
    """Buckets ascend and end with the count."""
    rows = {}
    for (name, labels), value in samples.items():
        if not name.endswith("_bucket"):
            continue
        le = re.search(r',?le="([^"]+)"', labels)
        rows.setdefault((name[:-len("_bucket")], labels.replace(le.group(0), "")), []).append((float(le.group(1)), value))
    assert rows
    for (name, labels), buckets in rows.items():
        bounds, counts = zip(*buckets)
        assert list(bounds) == sorted(set(bounds)) and bounds[-1] == float("inf"), bounds
        assert list(counts) == sorted(counts), counts
        assert counts[-1] == samples[(name + "_count", labels)]


class Requests(unittest.TestCase):
    def test_every_request_is_counted_once_by_kind_and_result(self):
        with System() as system:
            before = results(system)
            self.assertEqual(before, {"GET": {}, "GETNEXT": {}, "GETBULK": {}, "SET": {}})
            for _ in range(3):
                system.get(TOPOLOGY + ".1.1")  # answered directly
            system.get(UPTIME)
            system.getnext(TOPOLOGY)
            system.getnext(UPTIME)
            system.bulkget(TOPOLOGY, repetitions=5)
            system.set("1.3.6.1.2.1.1.4.0", "s", "Night shift")
            system.add_destination(1, 9)
            self.assertEqual(results(system), {"GET": {"ok": 4}, "GETNEXT": {"ok": 2}, "GETBULK": {"ok": 1},
                                               "SET": {"ok": 2}})

    def test_errors_have_their_own_counts(self):
        with System() as system:
            system.run("snmpget", TOPOLOGY + ".1.7", version=V1, check=False)  # noSuchName
            system.get(TOPOLOGY + ".1.7")  # noSuchInstance, which is no error
            system.run("snmpget", UPTIME, version=["-v2c", "-c", "nobody"], timeout=1, retries=0, check=False)
            system.run("snmpset", CLEAR_ALARM, "u", MISSING_SERIAL, check=False)  # of a reader: noAccess
            system.set(CLEAR_ALARM, "u", MISSING_SERIAL, check=False)  # no such alarm: genErr
            system.set(TOPOLOGY + ".1.1", "s", "x", check=False)  # notWritable
            self.assertEqual(results(system), {"GET": {"ok": 1, "other_error": 1, "not_allowed": 1}, "GETNEXT": {},
                                               "GETBULK": {}, "SET": {"gen_err": 1, "other_error": 2}})
            system.backend.kill()
            wait_for(lambda: not status(system)["backend"]["connected"], "the end of the connection")
            system.getnext(ALARMS, check=False)  # genErr
            self.assertEqual(results(system)["GETNEXT"], {"gen_err": 1})

    def test_what_waits_too_long_or_is_too_much_is_told_apart(self):
        config = AGENT_CONFIG + "vrxWaitingRequests 1\nvrxRequestDeadline 300\n"
        device = {("BACKEND", "CALL_DEADLINE_MS"): 5000}
        with System(agent_config=config, device=device) as system:
            system.backend.process.send_signal(signal.SIGSTOP)
            try:
                first = subprocess.Popen(["snmpgetnext", "-v2c", "-c", "public", "-t", "3", "-r", "0", system.address,
                                          ALARMS], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                         env=system.tool_environment())
                wait_for(lambda: status(system)["desk"]["waiting"] == 1 or results(system)["GETNEXT"], "the first one")
                system.run("snmpbulkget", ALARMS, timeout=3, retries=0, check=False)
                first.wait()
            finally:
                system.backend.process.send_signal(signal.SIGCONT)
            counted = results(system)
            self.assertEqual(counted["GETNEXT"], {"timed_out": 1})
            self.assertIn(counted["GETBULK"], ({"overload": 1}, {"timed_out": 1}))

    def test_latencies_have_as_many_times_as_there_were_answers(self):
        with System() as system:
            for _ in range(5):
                system.get(TOPOLOGY + ".1.1")
            system.walk(ALARMS)
            told = status(system)
            for row in told["requests"]:
                answered = sum(count for name, count in row["results"].items() if name in ("ok", "gen_err", "other_error"))
                self.assertEqual(row["latency"]["count"], answered)
                self.assertLessEqual(row["latency"]["p50_seconds"], row["latency"]["p99_seconds"])
                self.assertLessEqual(row["latency"]["p99_seconds"], row["latency"]["max_seconds"])
            calls = told["backend"]
            self.assertEqual(calls["latency"]["count"], calls["calls"] - calls["failures"])
            self.assertGreater(calls["calls"], 0)


class Objects(unittest.TestCase):
    def test_counts_follow_the_alarms_and_equal_the_table(self):
        with System() as system:
            wait_for(lambda: number(system, BACKEND_STATE) == 1, "the connection")
            self.assertEqual([number(system, oid) for oid in (ACTIVE, CHANGES, LAST_CHANGE, BACKEND_CONNECTIONS)],
                             [0, 0, 0, 1])
            # A DateAndTime has no value for "never".
            self.assertIn("No Such Instance", system.get(LAST_CHANGE_TIME))
            self.assertIn("noSuchName", system.run("snmpget", LAST_CHANGE_TIME, version=V1, check=False).stderr)
            for name in (LAST_CHANGE, LAST_CHANGE_TIME):
                for version in (V2C, V3):
                    self.assertEqual(values(system.getnext(name, version=version))[0][0], LAST_EVENT)
                    self.assertEqual(values(system.bulkget(name, repetitions=2, version=version))[0][0], LAST_EVENT)
            serials = [raise_alarm(system, level) for level in (1, 2, 3, 4, 4, 5, 5, 5, 6, 7)]
            wait_for(lambda: number(system, ACTIVE) == 10, "ten alarms")
            self.assertEqual([number(system, oid) for oid in (CRITICAL, MAJOR, MINOR, WARNING, CHANGES)],
                             [2, 3, 2, 3, 10])
            column = [value for _, value in values(system.walk(ALARMS + ".6"))]
            self.assertEqual([column.count("INTEGER: %d" % level) for level in (1, 2, 3, 4)], [2, 3, 2, 3])
            self.assertEqual(number(system, LAST_EVENT), 10)
            self.assertLessEqual(0, number(system, UPTIME) - number(system, LAST_CHANGE))
            self.assertNotEqual(number(system, LAST_CHANGE), 0)
            self.assertRegex(values(system.get(LAST_CHANGE_TIME))[0][1], r"^Hex-STRING: 07 E[0-9A-F] ")
            system.vrxctl("clear", serials[-1])
            system.vrxctl("clear", serials[0])
            wait_for(lambda: number(system, ACTIVE) == 8, "eight alarms")
            self.assertEqual([number(system, oid) for oid in (CRITICAL, MAJOR, MINOR, WARNING, CHANGES)],
                             [1, 3, 2, 2, 12])
            told = status(system)["alarms"]
            self.assertEqual((told["active"], told["by_level"], told["changes"]),
                             (8, {"critical": 1, "major": 3, "minor": 2, "warning": 2}, 12))

    def test_while_the_backend_is_away_they_stay_and_then_equal_it_again(self):
        with System() as system:
            for level in (5, 6):
                raise_alarm(system, level)
            wait_for(lambda: number(system, ACTIVE) == 2, "two alarms")
            calls = status(system)["backend"]["calls"]
            system.backend.kill()
            wait_for(lambda: number(system, BACKEND_STATE) == 2, "the end of the connection")
            self.assertEqual([number(system, oid) for oid in (ACTIVE, MAJOR, CRITICAL, CHANGES)], [2, 1, 1, 2])
            self.assertEqual(status(system)["backend"]["calls"], calls)  # none of that asked the backend
            self.assertNotEqual(number(system, BACKEND_SINCE), 0)
            self.assertFalse(status(system)["backend"]["connected"])
            system.backend.start()
            with BackendClient(system.path("state", "backend.sock")) as backend:
                backend.clear_alarm(1)
                backend.raise_alarms(3)
            wait_for(lambda: number(system, BACKEND_STATE) == 1 and number(system, ACTIVE) == 4, "the backend's count")
            self.assertEqual(number(system, BACKEND_CONNECTIONS), 2)
            self.assertEqual([number(system, oid) for oid in (CRITICAL, WARNING)], [1, 3])
            system.agent.kill()
            system.agent.start()
            wait_for(lambda: number(system, ACTIVE) == 4, "the count of a new agent")
            self.assertEqual([number(system, oid) for oid in (CRITICAL, WARNING)], [1, 3])

    def test_every_kind_of_read_and_who_may(self):
        config = AGENT_CONFIG + "rocommunity narrow 127.0.0.1 .%s\n" % ENTERPRISE
        with System(agent_config=config) as system:
            names = ["%s.%d.%d.0" % (OWN, group, last) for group, count in ((1, 9), (2, 3), (3, 3))
                     for last in range(1, count + 1)]
            raise_alarm(system, 5)
            wait_for(lambda: number(system, ACTIVE) == 1, "the alarm")
            for walk in (system.walk, system.bulkwalk):
                self.assertEqual([name for name, _ in values(walk(OWN))], names)
            self.assertEqual([name for name, _ in values(system.walk(OWN, version=V1))],
                             [name for name in names if name != LAST_EVENT])  # SNMPv1 has no Counter64
            self.assertEqual([name for name, _ in values(system.bulkget(ENTERPRISE + ".251", repetitions=2))], names[:2])
            self.assertIn("No Such Object", system.get(OWN + ".1.10.0"))
            self.assertIn("No Such Instance", system.get(OWN + ".1.1.1"))
            self.assertIn("notWritable", system.set(ACTIVE, "u", "1", check=False).stderr)
            self.assertIn("No Such Object", system.get(ACTIVE, version=["-v2c", "-c", "narrow"]))
            self.assertEqual(system.get("VRX-AGENT-MIB::vrxAgentBackendState.0", named=True, options=["-OQv"]),
                             "connected")

    def test_traps_are_counted(self):
        with System(agent_config=CONFIG) as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port)
            raise_alarm(system, 3)
            wait_for(lambda: len(receiver.traps()) == 2, "both traps")
            wait_for(lambda: number(system, SENT) == 2, "the count of both")
            self.assertEqual((number(system, DROPPED), number(system, WAITING)), (0, 0))
            system.set("%s.91.10.4.1.1.3.1" % ENTERPRISE, "i", "6")
            self.assertEqual(number(system, SENT), 2)  # also of destinations that are gone
            self.assertEqual(status(system)["former_destinations"]["sent"], 2)


class SystemGroup(unittest.TestCase):
    """What a manager that discovers the agent is told of it."""

    SYSTEM = "1.3.6.1.2.1.1"
    DESCRIPTION, IDENTIFIER, NAME, SERVICES = ("1.3.6.1.2.1.1.%d.0" % number for number in (1, 2, 5, 7))

    def told(self, system):
        return dict(values(system.get(self.DESCRIPTION, self.IDENTIFIER, self.NAME, self.SERVICES)))

    def test_it_is_the_products(self):
        with open(os.path.join(SOURCE_DIR, "CMakeLists.txt"), encoding="utf-8") as file:
            version = re.search(r"project\(.*?VERSION ([0-9.]+)", file.read(), re.DOTALL).group(1)
        shipped = {self.DESCRIPTION: 'STRING: "vrx-agentd %s, SNMP agent of the storage system"' % version,
                   self.IDENTIFIER: "OID: .1.3.6.1.4.1.99871.3.2", self.NAME: 'STRING: "vault-7"',
                   self.SERVICES: "INTEGER: 72"}
        config = AGENT_CONFIG.replace("sysName vrx-under-test\n", "")
        with System(agent_config=config, device={("NODE", "SYSTEM_NAME"): "vault-7"}) as system:
            self.assertEqual(self.told(system), shipped)
            described = [value for name, value in values(system.walk(self.SYSTEM + ".9.1.3"))]
            for module in ("VRX-TAMREL-MIB", "VRX-TAMREL-ALARM-MIB", "VRX-AGENT-MIB"):
                self.assertTrue(any(module in text for text in described), (module, described))
            identities = [value for name, value in values(system.walk(self.SYSTEM + ".9.1.2"))]
            for module, name in (("VRX-TAMREL-MIB", "vrxTamrelMIB"), ("VRX-TAMREL-ALARM-MIB", "vrxTamrelAlarmMIB"),
                                 ("VRX-AGENT-MIB", "vrxAgentMIB")):
                translated = subprocess.run(["snmptranslate", "-On", "%s::%s" % (module, name)], check=True, text=True,
                                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                            env=system.tool_environment(named=True))
                self.assertIn("OID: " + translated.stdout.strip(), identities)
            # Each is the configuration's where that says so, and the product's again after that.
            words = {"sysDescr": "another one", "sysObjectID": ".1.3.6.1.4.1.99999.7", "sysServices": "4"}
            system.write("etc/vrx-agentd.conf", config + "".join("%s %s\n" % pair for pair in words.items()))
            system.vrxctl("reload")
            self.assertEqual(self.told(system), {
                self.DESCRIPTION: 'STRING: "another one"', self.IDENTIFIER: "OID: .1.3.6.1.4.1.99999.7",
                self.NAME: 'STRING: "vault-7"', self.SERVICES: "INTEGER: 4"})
            system.write("etc/vrx-agentd.conf", config)
            system.vrxctl("reload")
            self.assertEqual(self.told(system), shipped)
            # A manager may give another name; it stays.
            system.set(self.NAME, "s", "vault-8")
            system.agent.stop()
            system.agent.start()
            self.assertEqual(self.told(system)[self.NAME], 'STRING: "vault-8"')
            system.write("etc/vrx-agentd.conf", config + "sysName vault-9\n")
            system.agent.stop()
            system.agent.start()
            self.assertEqual(self.told(system)[self.NAME], 'STRING: "vault-9"')


class DefaultView(unittest.TestCase):
    SHOWN = ("1.3.6.1.2.1.1.", "1.3.6.1.2.1.11.", "1.3.6.1.4.1.99871.")
    CONFIG = AGENT_CONFIG.replace(" .1\n", "\n") + """
createUser reader SHA-256 "reader-auth-pass" AES "reader-priv-pass"
rouser reader priv
rocommunity whole 127.0.0.1 .1
view everything included .1
rocommunity named 127.0.0.1 -V everything
"""
    READER = ["-v3", "-l", "authPriv", "-u", "reader", "-a", "SHA-256", "-A", "reader-auth-pass", "-x", "AES", "-X",
              "reader-priv-pass"]
    USERS = "1.3.6.1.6.3.15.1.2.2.1"

    def check(self, system):
        for version in (V2C, V3, self.READER):
            names = [name for name, _ in values(system.bulkwalk("1", version=version, timeout=20))]
            self.assertEqual([name for name in names if not name.startswith(self.SHOWN)], [], version)
            for shown in self.SHOWN:
                self.assertTrue([name for name in names if name.startswith(shown)], (shown, version))
            self.assertIn("No Such Object", system.get(self.USERS + ".3.0", version=version))
        self.assertIn("noAccess", system.set(self.USERS + ".13.0", "i", "6", check=False).stderr)
        for community in ("whole", "named"):
            self.assertTrue(values(system.walk(self.USERS, version=["-v2c", "-c", community])))

    def test_who_has_no_view_of_its_own_sees_the_system_and_ours(self):
        with System(agent_config=self.CONFIG) as system:
            self.check(system)
            system.vrxctl("reload")
            self.check(system)


class Metrics(unittest.TestCase):
    def test_samples_are_well_formed_equal_the_status_and_never_fall(self):
        port = free_port(socket.SOCK_STREAM)
        with System(agent_config=CONFIG + "vrxMetrics tcp:127.0.0.1:%d\n" % port) as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port)
            system.get(TOPOLOGY + ".1.1")
            code, kind, text = tcp_metrics(port)
            self.assertEqual((code, kind), (200, "text/plain; version=0.0.4; charset=utf-8"))
            before, types = parsed(text)
            check_histograms(before)
            self.assertEqual(before[("vrx_requests_total", 'kind="GET",result="ok"')], 1)
            self.assertEqual(before[("vrx_alarms_active", "")], 0)
            self.assertEqual(before[("vrx_traps_sent_total", 'destination="1"')], 0)

            raise_alarm(system, 5)
            wait_for(lambda: len(receiver.traps()) == 2 and number(system, SENT) == 2, "both traps")
            system.walk(ALARMS)
            after, _ = parsed(tcp_metrics(port)[2])
            check_histograms(after)
            self.assertLessEqual(set(before), set(after))
            for (name, labels), value in before.items():
                if types.get(name) == "counter" or name.endswith(("_count", "_sum", "_bucket")):
                    self.assertLessEqual(value, after[(name, labels)], name)
            told = status(system)
            self.assertEqual(after[("vrx_traps_sent_total", 'destination="1"')], 2)
            self.assertEqual(after[("vrx_alarms_active_by_level", 'level="major"')], 1)
            self.assertEqual(after[("vrx_engine_boots", "")], told["agent"]["engine_boots"])
            self.assertEqual(after[("vrx_backend_connected", "")], 1)
            info = [labels for name, labels in after if name == "vrx_agent_info"][0]
            self.assertIn('engine_id="%s"' % told["agent"]["engine_id"], info)

    def test_connections_that_say_nothing_keep_no_collector_away(self):
        port = free_port(socket.SOCK_STREAM)
        with System(agent_config=CONFIG + "vrxMetrics tcp:127.0.0.1:%d\n" % port), contextlib.ExitStack() as held:
            for said in (b"", b"GET /met", b"POST /metrics HTTP/1.1\r\nContent-Length: 1000\r\n\r\n",
                         b"GET /metrics HTTP/1.1\r\nHost: here\r\n\r\n"):
                clients = []
                for _ in range(20):
                    client = held.enter_context(socket.create_connection(("127.0.0.1", port), timeout=60))
                    clients.append(client)
                    with contextlib.suppress(ConnectionError):
                        client.sendall(said)
                        if said.endswith(b"here\r\n\r\n"):
                            client.recv(1)  # it is answered
                # The oldest have made room for the youngest, and so they do for a collector.
                wait_for(lambda client=clients[0]: hung_up(client), "the end of the oldest connection")
                self.assertFalse(hung_up(clients[-1]), said)
                self.assertEqual(tcp_metrics(port)[0], 200, said)
                self.assertFalse(hung_up(clients[-1]), said)

    def test_the_page_has_every_field_and_metric_and_no_other(self):
        with open(os.path.join(SOURCE_DIR, "docs", "status.md"), encoding="utf-8") as file:
            page = file.read()
        port = free_port(socket.SOCK_STREAM)
        config = CONFIG + "vrxMetrics tcp:127.0.0.1:%d\ninformsink 127.0.0.1 community 9\n" % port
        with System(agent_config=config) as system:
            system.add_destination(1, 9)
            system.get(TOPOLOGY + ".1.1")
            raise_alarm(system, 3)
            wait_for(lambda: number(system, ACTIVE) == 1, "the alarm")
            _, types = parsed(tcp_metrics(port)[2])
            self.assertEqual(set(re.findall(r"`(vrx_\w+)`", page)) - set(types), set())
            self.assertEqual([name for name in types if "`%s`" % name not in page], [])
            for title, section in status(system).items():
                for row in section if isinstance(section, list) else [section]:
                    self.assertEqual([(title, key) for key in row if "`%s`" % key not in page], [])

    def test_a_unix_socket_is_the_owners_and_other_paths_are_not_there(self):
        with System(agent_config=AGENT_CONFIG + "vrxMetrics unix:state/metrics.sock\n") as system:
            path = system.path("state", "metrics.sock")
            self.assertEqual(os.stat(path).st_mode & 0o777, 0o600)
            parsed(fetch(UnixConnection(path))[2])
            self.assertEqual(fetch(UnixConnection(path), path="/status")[0], 404)
            self.assertEqual(fetch(UnixConnection(path), method="POST")[0], 405)
            system.agent.stop()
            self.assertFalse(os.path.exists(path))

    def test_they_are_off_by_default(self):
        with System() as system:
            self.assertEqual(sorted(name for name in os.listdir(system.path("state")) if name.endswith(".sock")),
                             ["agent.sock", "backend.sock"])

    def test_only_this_machine_may_be_listened_to(self):
        faults = {
            "tcp:0.0.0.0:9161": 'vrxMetrics: "0.0.0.0" is not a numeric loopback address',
            "tcp:192.0.2.1:9161": 'vrxMetrics: "192.0.2.1" is not a numeric loopback address',
            "tcp:127.0.0.1:0": 'vrxMetrics: port "0" is not a number from 1 to 65535',
            "udp:127.0.0.1:9161": 'vrxMetrics: "udp:127.0.0.1:9161" begins with neither "unix:" nor "tcp:"',
            "unix:": 'vrxMetrics: "unix:" needs a path',
        }
        with System(start=False) as system:
            line = AGENT_CONFIG.count("\n") + 1
            for address, text in faults.items():
                with self.subTest(address):
                    system.write("etc/vrx-agentd.conf", AGENT_CONFIG + "vrxMetrics %s\n" % address)
                    done = subprocess.run([os.path.join(PROGRAM_DIR, "vrx-agentd"), "--check-config", "--root",
                                           system.root], stdout=subprocess.PIPE, text=True, check=False)
                    self.assertEqual((done.returncode, done.stdout),
                                     (EX_CONFIG, "%s:%d: %s\n" % (system.path("etc/vrx-agentd.conf"), line, text)))

    def test_a_reload_moves_them_and_keeps_them_when_it_cannot(self):
        first, second = free_port(socket.SOCK_STREAM), free_port(socket.SOCK_STREAM)
        at = AGENT_CONFIG + "vrxMetrics tcp:127.0.0.1:%d\n"
        with System() as system:
            system.write("etc/vrx-agentd.conf", at % first)
            system.vrxctl("reload")
            parsed(tcp_metrics(first)[2])
            system.write("etc/vrx-agentd.conf", at % second)
            system.vrxctl("reload")
            parsed(tcp_metrics(second)[2])
            with self.assertRaises(ConnectionRefusedError):
                tcp_metrics(first)
            with socket.socket() as other:
                other.bind(("127.0.0.1", first))
                other.listen()
                system.write("etc/vrx-agentd.conf", at % first)
                self.assertIn("vrxMetrics: bind to tcp:127.0.0.1:%d" % first,
                              system.vrxctl("reload", check=False).stderr)
                parsed(tcp_metrics(second)[2])
            system.write("etc/vrx-agentd.conf", AGENT_CONFIG)
            system.vrxctl("reload")
            with self.assertRaises(ConnectionRefusedError):
                tcp_metrics(second)


class Heartbeat(unittest.TestCase):
    LINE = re.compile(r"info \[agent\] heartbeat: up (\d+ s|\d+ min), backend connected, (\d+) alarms active; since the "
                      r"last one (\d+) events, (\d+) traps sent, (\d+) dropped$", re.M)

    def test_it_says_what_happened_since_the_last_one_and_a_reload_ends_it(self):
        with System(agent_config=CONFIG + "vrxHeartbeat 1\n") as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port)
            raise_alarm(system, 3)
            raise_alarm(system, 3)
            wait_for(lambda: len(receiver.traps()) == 4, "the traps")
            wait_for(lambda: sum(int(beat[2]) for beat in self.LINE.findall(system.agent.log())) == 2 and
                     sum(int(beat[3]) for beat in self.LINE.findall(system.agent.log())) == 4, "their heartbeats")
            self.assertEqual(self.LINE.findall(system.agent.log())[-1][1], "2")
            system.write("etc/vrx-agentd.conf", CONFIG + "vrxHeartbeat 0\n")
            system.vrxctl("reload")
            self.assertEqual(status(system)["agent"]["reloads_taken"], 1)


class Log(unittest.TestCase):
    def levels(self, system):
        return dict(line.split() for line in system.vrxctl("log").splitlines())

    def test_levels_are_shown_changed_and_go_back_with_a_reload(self):
        device = {("LOG", "LEVEL"): "info", ("LOG", "LEVEL_OF_EVENTS"): "warn"}
        with System(device=device) as system:
            configured = self.levels(system)
            self.assertEqual(set(configured.values()), {"info", "warn"})
            self.assertEqual([name for name, level in configured.items() if level == "warn"], ["events"])
            self.assertNotIn("[module 4]", system.agent.log())
            system.vrxctl("log", "module", "trace")
            self.assertEqual(self.levels(system), dict(configured, module="trace"))
            system.get(TOPOLOGY + ".1.1")
            wait_for(lambda: "trace [module 4] enter" in system.agent.log(), "a line of the module")
            system.vrxctl("log", "all", "error")
            self.assertEqual(set(self.levels(system).values()), {"error"})
            system.vrxctl("reload")
            self.assertEqual(self.levels(system), configured)

    def test_what_there_is_not_is_refused(self):
        with System() as system:
            for arguments, text in ((("nothing", "info"), 'there is no subsystem "nothing": all, ace, agent, '),
                                    (("agent", "loud"), '"loud" is none of trace, debug, info, warn, error and off')):
                done = system.vrxctl("log", *arguments, check=False)
                self.assertNotEqual(done.returncode, 0)
                self.assertIn(text, done.stderr)

    def test_a_file_that_was_moved_away_is_opened_anew_by_any_reload(self):
        with System(device={("LOG", "FILE"): "agent-file.log"}) as system:
            path = system.path("agent-file.log")
            for turn, config in enumerate((AGENT_CONFIG, AGENT_CONFIG + "nonsense\n")):
                with open(path, encoding="utf-8") as file:
                    self.assertNotEqual(file.read(), "")
                os.rename(path, path + ".%d" % turn)
                system.write("etc/vrx-agentd.conf", config)
                system.vrxctl("reload", check=False)
                wait_for(lambda: os.path.exists(path), "the new file")
                system.set(CLEAR_ALARM, "u", MISSING_SERIAL, check=False)
                with open(path, encoding="utf-8") as file:
                    self.assertIn("clear alarm of serial number:" + MISSING_SERIAL, file.read())

    def test_an_alarm_that_is_dumped_is_one_line(self):
        with System(agent_config=CONFIG) as system:
            system.add_destination(1, 9, trap_type=1)
            for _ in range(3):
                raise_alarm(system, 3)
            wait_for(lambda: system.agent.log().count("the content of alarm is") == 3, "the dumps")
            dumps = [line for line in system.agent.log().splitlines() if "the content of alarm is" in line]
            self.assertEqual(len(dumps), 3)
            for line in dumps:
                self.assertRegex(line, r" warning \[module 4\] 0x1002E dump_alarm_info:\d+ the content of alarm is \\n"
                                 r"ReportingAlarmNodeCode      --- .*\\nReportingAlarmProductSystemName     --- vrx-storage$")
                self.assertEqual(line.count(r"\nReportingAlarm"), 15)


if __name__ == "__main__":
    unittest.main()

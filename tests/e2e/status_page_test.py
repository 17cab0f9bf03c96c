"""The status page's answers: who gets them, what is in them, and that readers cost the agent nothing."""

import contextlib
import errno
import http.client
import json
import os
import re
import signal
import socket
import unittest

from backend_client import RAISE_ALARM, STRING, BackendClient, cell, record, uint
from export_test import alarm
from harness import AGENT_CONFIG, TOPOLOGY, System, free_port, slowdown, wait_for
from status_test import UnixConnection, fetch
from stream_test import hung_up
from trap_receiver import TrapReceiver

DISK_FAILED = 4295229443  # major; parameters: slot, enclosure, reason
PAGES = {"/": "text/html; charset=utf-8", "/status.css": "text/css; charset=utf-8",
         "/status.js": "text/javascript; charset=utf-8"}
DATA = ("/status.json", "/alarms.json", "/notifications.json")
HOSTILE = ["<script>alert(1)</script>", "</script><img src=x onerror=alert(1)>", "\" ' & &amp; {{x}}", "a\u2028b\u2029c",
           "磁盘 größe \U0001f600"]


class Page(System):
    """A system whose agent serves the page on a port."""

    def __init__(self, extra="", **more):
        self.web = free_port(socket.SOCK_STREAM)
        lines = "trapcommunity traps\nvrxMetrics tcp:127.0.0.1:%d\n" % self.web
        super().__init__(agent_config=AGENT_CONFIG + lines + extra, **more)

    def ask(self, path, method="GET", **headers):
        """Status, headers and body."""
        connection = http.client.HTTPConnection("127.0.0.1", self.web, timeout=60)
        with contextlib.closing(connection):
            connection.request(method, path, headers={name.replace("_", "-"): value for name, value in headers.items()})
            answer = connection.getresponse()
            return answer.status, {name.lower(): value for name, value in answer.getheaders()}, answer.read()

    def json(self, path):
        status, _, body = self.ask(path)
        assert status == 200, (path, status, body)
        return json.loads(body.decode("utf-8"))

    def alarms(self, count, query=""):
        """The list, when that many alarms are in it and nothing is known to have changed since."""
        def read():
            listed = self.json("/alarms.json" + query)
            return listed if listed["rows"] == count and not listed["stale"] else None
        return wait_for(read, "%d alarms in the list" % count)

    def raise_disk(self, slot, level=5, enclosure="CTE0"):
        return int(self.vrxctl("raise", str(DISK_FAILED), str(slot), enclosure, "1", "--level", str(level)))


def raise_many(system, parameters, number=DISK_FAILED, level=5):
    """The same alarm once for each of these parameters, which are bytes."""
    events = [record(RAISE_ALARM, uint(1, number, 8), uint(2, level), cell(8, STRING, one + b"\0")) for one in parameters]
    with BackendClient(system.path("state", "backend.sock")) as client:
        for first in range(0, len(events), 1000):
            client.call(*events[first:first + 1000])


class Answers(unittest.TestCase):
    def test_the_page_is_its_own_and_lets_nothing_else_in(self):
        with Page() as system:
            for path in [*PAGES, *DATA]:
                with self.subTest(path):
                    status, headers, body = system.ask(path)
                    self.assertEqual(status, 200)
                    self.assertEqual(headers["content-type"], PAGES.get(path, "application/json"))
                    policy = dict(part.split(" ", 1) for part in headers["content-security-policy"].split("; "))
                    self.assertEqual({name: value for name, value in policy.items() if value not in ("'self'", "'none'")},
                                     {"require-trusted-types-for": "'script'"})
                    self.assertEqual([policy[name] for name in ("default-src", "base-uri", "form-action", "frame-ancestors")],
                                     4 * ["'none'"])
                    self.assertEqual([headers[name] for name in ("x-content-type-options", "referrer-policy", "cache-control",
                                                                  "cross-origin-resource-policy")],
                                     ["nosniff", "no-referrer", "no-store", "same-origin"])
                    without_body = system.ask(path, "HEAD")
                    self.assertEqual((without_body[0], without_body[2]), (200, b""))
                    if path in PAGES:
                        self.assertEqual(int(without_body[1]["content-length"]), len(body))
                        self.assertEqual(re.findall(rb"(?:src|href)=(?!\"#|\"/status\.)[^ >]*|<script>|<style| on\w+=|style=",
                                                    body if path == "/" else b""), [])
            # Metrics and everything else stay as they are.
            self.assertEqual(system.ask("/metrics")[1]["content-type"], "text/plain; version=0.0.4; charset=utf-8")
            self.assertNotIn("content-security-policy", system.ask("/metrics")[1])
            for path in ("/status", "/index.html", "/../etc/vrx-agentd.conf", "/status.json/"):
                self.assertEqual(system.ask(path)[0], 404, path)

    def test_it_is_read_only(self):
        with Page() as system:
            for path in [*PAGES, *DATA]:
                for method in ("POST", "PUT", "DELETE", "OPTIONS", "PATCH", "TRACE", "get"):
                    status, headers, _ = system.ask(path, method)
                    self.assertEqual((status, headers["allow"]), (405, "GET, HEAD"), (path, method))
            for path in ("/reload", "/users", "/log", "/traps/resend"):  # of the control socket
                self.assertEqual(system.ask(path, "POST")[0], 404, path)

    def test_requests_under_another_name_are_refused(self):
        """A name of somebody else's that leads to this machine makes a browser take the page for theirs."""
        with Page() as system:
            system.raise_disk(7)
            for path in [*PAGES, *DATA]:
                for host in ("localhost", "LOCALHOST:9161", "127.0.0.1", "127.3.2.1:80", "[::1]", "[::1]:9161"):
                    self.assertEqual(system.ask(path, Host=host)[0], 200, (path, host))
                for host in ("", "evil.example", "localhost.evil.example", "127.0.0.1.evil.example", "128.0.0.1", "10.0.0.1",
                             "[::2]", "[::1", "::1", "127.1", "2130706433", "0.0.0.0", "localhost@evil.example"):
                    status, headers, body = system.ask(path, Host=host)
                    self.assertEqual(status, 403, (path, host))
                    self.assertNotIn(b"Disk", body)
                    self.assertIn("content-security-policy", headers)
            self.assertEqual(system.ask("/metrics", Host="here")[0], 200)  # collectors ask under any name

    def test_a_unix_socket_gives_the_same(self):
        with System(agent_config=AGENT_CONFIG + "vrxMetrics unix:state/metrics.sock\n") as system:
            for path in [*PAGES, *DATA]:
                self.assertEqual(fetch(UnixConnection(system.path("state", "metrics.sock")), path=path)[0], 200, path)

    def test_the_status_is_that_of_vrxctl(self):
        with Page() as system:
            system.raise_disk(7)
            wait_for(lambda: system.json("/status.json")["alarms"]["active"] == 1, "the alarm")
            shown, told = system.json("/status.json"), json.loads(system.vrxctl("status", "--json"))
            self.assertEqual({name: type(section) for name, section in shown.items()},
                             {name: type(section) for name, section in told.items()})
            self.assertEqual(shown["alarms"]["by_level"], told["alarms"]["by_level"])
            self.assertEqual(shown["agent"]["system_name"], "vrx-storage")

    def test_malformed_requests_are_refused_and_the_next_is_answered(self):
        lines = [b"", b"\r\n", b"GET\r\n\r\n", b"GET / HTTP/9.9\r\n\r\n", b"\0\0\0\0\r\n\r\n", b"GET / HTTP/1.1\r\n\r\n",
                 b"GET / HTTP/1.1\r\nHost\r\n\r\n", b"GET /" + 100_000 * b"a" + b" HTTP/1.1\r\nHost: localhost\r\n\r\n",
                 b"GET / HTTP/1.1\r\nHost: " + 100_000 * b"a" + b"\r\n\r\n",
                 b"GET / HTTP/1.1\r\nHost: localhost\r\nHost: evil.example\r\nContent-Length: -1\r\n\r\n",
                 b"GET /alarms.json?filter=%00%ff%zz&level HTTP/1.1\r\nHost: localhost\r\n\r\n",
                 b"GET /alarms.json?" + 500 * b"filter=a&" + b" HTTP/1.1\r\nHost: localhost\r\n\r\n",
                 b"GET / HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n",
                 b"GET /status.json HTTP/1.1\r\nHost: localhost\r\nIf-None-Match: " + 3000 * b"\"" + b"\r\n\r\n"]
        with Page() as system:
            for line in lines:
                with socket.create_connection(("127.0.0.1", system.web), timeout=60) as client:
                    try:
                        client.sendall(line)
                        client.shutdown(socket.SHUT_WR)
                        while client.recv(65536):
                            pass
                    except OSError as end:  # refused before its end, the request may be cut off at any of these steps
                        self.assertIn(end.errno, (errno.ECONNRESET, errno.EPIPE, errno.ENOTCONN))
                self.assertEqual(system.ask("/")[0], 200, line[:60])
            self.assertTrue(system.agent.running())


class Alarms(unittest.TestCase):
    def test_each_alarm_has_its_texts(self):
        with Page() as system:
            self.assertEqual(system.alarms(0)["alarms"], [])
            serial = system.raise_disk(7)
            (listed,) = system.alarms(1)["alarms"]
            raised = listed.pop("raised")
            self.assertRegex(raised, r"^20\d\d-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
            self.assertEqual(listed, {
                "serial": serial, "level": "major", "number": DISK_FAILED & 0xFFFFFFFF, "title": "Disk Failed",
                "location": "Enclosure CTE0, slot 7.",
                "detail": "The disk in slot 7 of enclosure CTE0 cannot be used any more: it is not reachable.",
                "advice": "Replace the disk in slot 7 of enclosure CTE0."})
            system.vrxctl("clear", str(serial))
            self.assertEqual(system.alarms(0)["alarms"], [])

    def test_filter_level_order_and_limit(self):
        with Page() as system:
            serials = [system.raise_disk(slot, level) for slot, level in ((3, 5), (1, 6), (2, 4), (4, 3))]

            def ask(query):
                listed = system.alarms(4, query)
                return listed["matching"], [serials.index(one["serial"]) for one in listed["alarms"]]

            self.assertEqual(ask(""), (4, [3, 2, 1, 0]))  # the newest first
            self.assertEqual(ask("?order=asc"), (4, [0, 1, 2, 3]))
            self.assertEqual(ask("?sort=level"), (4, [1, 0, 2, 3]))
            self.assertEqual(ask("?sort=level&order=asc"), (4, [3, 2, 0, 1]))
            self.assertEqual(ask("?sort=location&order=asc"), (4, [1, 2, 0, 3]))
            self.assertEqual(ask("?sort=title"), (4, [3, 2, 1, 0]))  # all the same: the newest first
            self.assertEqual(ask("?level=critical,minor"), (2, [2, 1]))
            self.assertEqual(ask("?filter=SLOT%201."), (1, [1]))
            self.assertEqual(ask("?filter=disk+replace"), (4, [3, 2, 1, 0]))
            self.assertEqual(ask("?filter=%d" % (DISK_FAILED & 0xFFFFFFFF)), (4, [3, 2, 1, 0]))
            self.assertEqual(ask("?filter=critical"), (1, [1]))
            self.assertEqual(ask("?filter=nowhere"), (0, []))
            self.assertEqual(ask("?limit=2"), (4, [3, 2]))
            for query in ("level=bad", "sort=bad", "order=bad", "limit=0", "limit=1001", "limit=x", "limit=", "bad=1",
                          "filter=" + 33 * "a+"):
                self.assertEqual(system.ask("/alarms.json?" + query)[0], 400, query)

    def test_an_unchanged_list_is_304_and_a_changed_one_is_not(self):
        with Page() as system:
            system.raise_disk(7)
            system.alarms(1)
            status, headers, _ = system.ask("/alarms.json")
            tag = headers["etag"]
            self.assertEqual(system.ask("/alarms.json", If_None_Match=tag)[::2], (304, b""))
            reads = [one for one in system.json("/status.json")["objects"] if one["name"] == "vrxAlarmTable"][0]["reads"]
            for _ in range(20):
                self.assertEqual(system.ask("/alarms.json", If_None_Match=tag)[0], 304)
            objects = {one["name"]: one for one in system.json("/status.json")["objects"]}
            self.assertEqual(objects["vrxAlarmTable"]["reads"], reads)  # who looks costs the backend nothing
            system.raise_disk(8)
            wait_for(lambda: system.ask("/alarms.json", If_None_Match=tag)[0] == 200, "another list")
            system.alarms(2)
            tag = system.ask("/alarms.json")[1]["etag"]
            system.agent.stop()
            system.agent.start()
            system.alarms(2)
            self.assertEqual(system.ask("/alarms.json", If_None_Match=tag)[0], 200)  # of another run

    def test_without_the_backend_the_last_list_stays(self):
        with Page() as system:
            system.raise_disk(7)
            before = system.alarms(1)
            system.backend.stop()
            wait_for(lambda: not system.json("/status.json")["backend"]["connected"], "the loss of the backend")
            after = wait_for(lambda: (lambda one: one if one["fault"] else None)(system.json("/alarms.json")), "a fault", 60)
            self.assertEqual((after["alarms"], after["read"], after["stale"]), (before["alarms"], before["read"], True))
            system.backend.start()
            system.raise_disk(8)
            self.assertEqual(system.alarms(2)["fault"], "")

    def test_a_backend_that_hangs_delays_no_answer(self):
        with Page() as system:
            system.raise_disk(7)
            before = system.alarms(1)
            system.raise_disk(8)
            wait_for(lambda: system.json("/status.json")["alarms"]["active"] == 2, "the event")
            os.kill(system.backend.pid, signal.SIGSTOP)
            try:
                for _ in range(3):  # the list is being read
                    after = system.json("/alarms.json")
                    self.assertEqual(dict(after, stale=False), before)
                    self.assertTrue(after["stale"])
            finally:
                os.kill(system.backend.pid, signal.SIGCONT)
            system.alarms(2)

    def test_texts_of_any_bytes_make_a_json_document(self):
        with Page(start=False) as system:
            definitions = system.path("conf", "alarm_definitions.xml")
            with open(definitions, encoding="utf-8") as file:
                text = file.read()
            own = alarm(999999, HOSTILE[0], suggestion=HOSTILE[2], detail=HOSTILE[1] + " ##00 ##01.", location=HOSTILE[0] + "##01.")
            self.assertIn("</eventDefinition>", text)
            system.write("conf/alarm_definitions.xml", text.replace("</eventDefinition>", own + "</eventDefinition>", 1))
            system.backend.start()
            system.agent.start()
            for parameters in (HOSTILE[:2], HOSTILE[3:], [5_000 * "long ", "\x01\x1b[31m"]):
                system.vrxctl("raise", str(1 << 32 | 999999), *[one.replace(",", ";") for one in parameters])
            raise_many(system, [b"\xff\xfe\xc3,\xed\xa0\x80"], number=1 << 32 | 999999)
            listed = system.alarms(4)["alarms"]
            self.assertEqual(listed[-1]["title"], HOSTILE[0])
            everything = json.dumps(listed, ensure_ascii=False)
            for text in HOSTILE[:1] + HOSTILE[3:]:
                self.assertIn(text, everything)
            self.assertIn("\ufffd", json.dumps(listed[0], ensure_ascii=False))
            self.assertEqual(system.alarms(4, "?filter=%3Cscript%3E")["matching"], 4)


class Notifications(unittest.TestCase):
    def test_the_last_ones_are_listed_newest_first(self):
        with Page() as system, TrapReceiver() as receiver:
            self.assertEqual(system.json("/notifications.json"), {"fault": "", "notifications": []})
            system.add_destination(1, receiver.port)
            serial = system.raise_disk(7)
            wait_for(lambda: len(system.json("/notifications.json")["notifications"]) == 2, "both traps")
            own, common = system.json("/notifications.json")["notifications"]
            self.assertGreater(own["number"], common["number"])
            self.assertEqual({own["trap"], common["trap"]}, {"own", "common"})
            for one in (own, common):
                self.assertEqual((one["kind"], one["level"], one["serial"], one["destinations"], one["because"]),
                                 ("raise", "major", serial, ["1"], ""))
                self.assertIn("The disk in slot 7 of enclosure CTE0", one["text"])
            tag = system.ask("/notifications.json")[1]["etag"]
            self.assertEqual(system.ask("/notifications.json", If_None_Match=tag)[::2], (304, b""))
            system.vrxctl("clear", str(serial))
            wait_for(lambda: system.ask("/notifications.json", If_None_Match=tag)[0] == 200, "a newer one")

    def test_a_log_that_cannot_be_read_is_told(self):
        with Page(extra="vrxNotificationLog 0\n") as system:
            files = [system.path("state", "notification_log.db" + end) for end in ("", "-wal", "-shm")]
            wait_for(lambda: all(os.path.exists(path) for path in files), "the notification log")
            for path in files:
                os.unlink(path)
            told = system.json("/notifications.json")
            self.assertEqual(told["notifications"], [])
            self.assertIn("notification_log.db", told["fault"])


class ManyAlarms(unittest.TestCase):
    COUNT = 10_000

    @classmethod
    def setUpClass(cls):
        cls.system = Page()
        cls.system.__enter__()
        cls.addClassCleanup(cls.system.__exit__, None, None, None)
        raise_many(cls.system, [b"%d,CTE%d,1" % (i % 25, i // 25) for i in range(cls.COUNT)])
        cls.system.alarms(cls.COUNT)

    def memory(self):
        """Of the agent, in bytes."""
        with open("/proc/%d/statm" % self.system.agent.pid, encoding="ascii") as file:
            return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")

    def test_filter_and_order_are_over_all_of_them_and_answers_stay_small(self):
        status, _, body = self.system.ask("/alarms.json?sort=location&order=asc&limit=3")
        listed = json.loads(body)
        self.assertEqual([one["location"] for one in listed["alarms"]],
                         ["Enclosure CTE0, slot %d." % slot for slot in (0, 1, 10)])
        listed = json.loads(self.system.ask("/alarms.json?filter=enclosure+cte399%2C")[2])
        self.assertEqual((listed["rows"], listed["matching"], len(listed["alarms"])), (self.COUNT, 25, 25))
        self.assertLess(len(self.system.ask("/alarms.json")[2]), 100_000)
        self.assertLess(len(self.system.ask("/alarms.json?limit=1000")[2]), 600_000)

    def is_answered(self):
        try:
            return self.system.ask("/alarms.json")[0] == 200
        except ConnectionError:
            return False

    def test_readers_that_do_not_read_cost_no_request_and_bounded_memory(self):
        before = self.memory()
        with contextlib.ExitStack() as held:
            clients = []
            for _ in range(100):
                client = held.enter_context(socket.socket())
                client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2048)
                client.connect(("127.0.0.1", self.system.web))
                clients.append(client)
                with contextlib.suppress(ConnectionError):  # the oldest make room
                    client.sendall(b"GET /alarms.json?limit=1000 HTTP/1.1\r\nHost: localhost\r\n\r\n")
            wait_for(lambda: hung_up(clients[0]), "the end of the oldest connection")
            self.assertIn("STRING", self.system.get(TOPOLOGY + ".1.1"))
            wait_for(self.is_answered, "an answer, when no more connections are being answered than are allowed")
            if slowdown() == 1:  # sanitizers keep what was freed
                self.assertLess(self.memory() - before, 16 << 20)


if __name__ == "__main__":
    unittest.main()

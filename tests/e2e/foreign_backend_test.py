"""Backends that are none of ours and send without end: agent and vrxctl stay within their bounds."""

import json
import os
import socket
import threading
import unittest

from backend_client import (GET_CURRENT_ALARM, HEAD, MAGIC, POWER_LOSS, VERSION, receive_package, record, text,
                            uint)
from harness import ALARMS, System, wait_for
from traps_test import TrapSystem

GET_BACKEND_STATUS, SUBSCRIBE_ALARM = 1002, 2004


def answer(*records):
    body = b"".join(records)
    return HEAD.pack(MAGIC, VERSION, 0, 0xFFFFFFFF, 0xFFFD, 0xFFFF, 0xFFFF, 0xFFFF, len(body)) + body


class ForeignBackend:
    """Answers at the backend's address of a system: `serve(connection, code, body)` gives the bytes of each answer."""

    def __init__(self, system, serve):
        path = system.path("state", "backend.sock")
        os.makedirs(os.path.dirname(path), mode=0o700, exist_ok=True)
        self._serve = serve
        self._listener = socket.socket(socket.AF_UNIX)
        self._listener.bind(path)
        self._listener.listen(16)
        threading.Thread(target=self._accept, daemon=True).start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._listener.close()

    def _accept(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            threading.Thread(target=self._answer, args=(connection,), daemon=True).start()

    def _answer(self, connection):
        try:
            while True:
                _, body = receive_package(connection)
                connection.sendall(self._serve(connection, int.from_bytes(body[:8], "little"), body))
        except (OSError, ConnectionError):
            connection.close()


class WithoutEnd(unittest.TestCase):
    def test_vrxctl_list_gives_a_list_without_end_up(self):
        serial = 0

        def serve(_connection, code, _body):
            nonlocal serial
            records = []
            for _ in range(50 if code == GET_CURRENT_ALARM else 0):
                serial += 1
                records.append(record(code, uint(1, 7, 8), uint(2, 5), uint(3, serial), uint(4, 1, 8),
                                      text(8, "x" * 60000)))
            return answer(*records)

        with System(backend=False, start=False) as system, ForeignBackend(system, serve):
            done = system.vrxctl("list", check=False)
            self.assertNotEqual(done.returncode, 0)
            self.assertIn("the backend's list of alarms does not end", done.stderr)

    def test_records_that_cannot_be_used_make_few_lines(self):
        """Numbered, so that the agent handles them, and without anything else: 20,000 of them."""
        events, at_once = 20000, 1000

        def serve(connection, code, _body):
            if code == GET_BACKEND_STATUS:
                return answer(record(code, uint(2, 10, 8)))
            if code != SUBSCRIBE_ALARM:
                return answer()
            connection.sendall(answer(record(code, uint(22, 10, 8))))
            for first in range(11, 11 + events, at_once):
                connection.sendall(answer(*[record(code, uint(20, n, 8)) for n in range(first, first + at_once)]))
            return answer()

        with TrapSystem(start_agent=False, backend=False) as system, ForeignBackend(system, serve):
            system.agent.start()
            wait_for(lambda: '"handled": %d' % events in system.vrxctl("status", "--json"), "the events")
            log = system.agent.log().splitlines()
            self.assertLess(len(log), 400)
            self.assertTrue([line for line in log if "alarm event 11 (alarm unknown, serial unknown)" in line])


class Rows(unittest.TestCase):
    def test_what_is_left_out_of_a_table_is_counted(self):
        def alarm(code, serial, *cells):
            return record(code, uint(0, 1), uint(1, POWER_LOSS, 8), uint(2, 5), uint(3, serial), uint(4, 1, 8), *cells)

        def serve(_connection, code, body):
            if code != GET_CURRENT_ALARM:
                return answer()
            if int.from_bytes(body[14:18], "little") > 0:  # of tag 3: after which alarm
                return answer()
            whole = text(8, "07:55,123")
            return answer(alarm(code, 1, whole), alarm(code, 1, whole), alarm(code, 2), alarm(code, 3, whole))

        with System(backend=False, start=False) as system, ForeignBackend(system, serve):
            system.agent.start()
            self.assertEqual(len(system.walk(ALARMS + ".9").splitlines()), 2)
            (table,) = [row for row in json.loads(system.vrxctl("status", "--json"))["objects"]
                        if row["duplicate_rows"]]
            self.assertEqual(table["bad_records"], table["duplicate_rows"])  # as often as it was read
            self.assertGreater(table["bad_records"], 0)


if __name__ == "__main__":
    unittest.main()

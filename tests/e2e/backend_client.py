"""The backend's package protocol for tests: raising alarms without a tool, and a proxy that counts the agent's calls.

docs/tlv-format.md and docs/backend-protocol.md have the format and the commands.
"""

import os
import socket
import struct
import threading
from collections import Counter

HEAD = struct.Struct("<IIIIHHHHI")  # magic, version, four parameters of the head, length of the records
MAGIC, VERSION = 0x55555555, 3
STRING, UINT = 2, 3

GET_SYSTEM_WWN, GET_CURRENT_ALARM, CLEAR_ALARM, RAISE_ALARM, SUBSCRIBE_ALARM = 1001, 2001, 2002, 2003, 2004

POWER_LOSS = 4295032833  # a shipped alarm with two parameters


def cell(tag, kind, value):
    return struct.pack("<HH", tag << 4 | kind, len(value)) + value


def uint(tag, number, size=4):
    return cell(tag, UINT, number.to_bytes(size, "little"))


def text(tag, characters):
    return cell(tag, STRING, characters.encode() + b"\0")


def record(command, *cells):
    body = b"".join(cells)
    return struct.pack("<QH", command, len(body)) + body


def package(records):
    body = b"".join(records)
    return HEAD.pack(MAGIC, VERSION, 0, 0xFFFFFFFF, 0xFFFD, 0xFFFF, 0xFFFF, 0xFFFF, len(body)) + body


def receive_exactly(connection, size):
    data = b""
    while len(data) < size:
        piece = connection.recv(size - len(data))
        if not piece:
            raise ConnectionError("closed in the middle of a package" if data else "closed")
        data += piece
    return data


def receive_package(connection):
    """Head and records as bytes."""
    head = receive_exactly(connection, HEAD.size)
    return head, receive_exactly(connection, HEAD.unpack(head)[-1])


class BackendClient:
    """One connection to the backend of a System; use as a context."""

    def __init__(self, path):
        self._connection = socket.socket(socket.AF_UNIX)
        self._connection.settimeout(30)
        try:
            self._connection.connect(path)
        except OSError:
            self._connection.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._connection.close()

    def call(self, *records):
        """Sends the records and returns the answer's; fails when the backend refuses."""
        self._connection.sendall(package(records))
        head, body = receive_package(self._connection)
        result = HEAD.unpack(head)[2]
        if result != 0:
            raise AssertionError("the backend refuses with 0x%X" % result)
        return body

    def raise_alarms(self, count, alarm_id=POWER_LOSS, parameters="someone,once", at_once=1000):
        """Raises that many alarms; the backend gives them the next serial numbers."""
        while count > 0:
            now = min(count, at_once)
            self.call(*[record(RAISE_ALARM, uint(1, alarm_id, 8), uint(2, 3), text(8, parameters))] * now)
            count -= now

    def raise_alarm(self, alarm_id=POWER_LOSS, parameters="someone,once"):
        """One alarm: its serial number."""
        answer = self.call(record(RAISE_ALARM, uint(1, alarm_id, 8), uint(2, 3), text(8, parameters)))
        return int.from_bytes(answer[-4:], "little")

    def clear_alarm(self, serial):
        self.call(record(CLEAR_ALARM, uint(3, serial), text(7, "test")))


class CountingProxy:
    """Stands between agent and backend and counts the agent's calls by command code; `on_call(code)` is called before
    each one goes on.

        with CountingProxy(system.path("state", "proxy.sock"), system.path("state", "backend.sock")) as proxy: ...
    """

    def __init__(self, path, backend_path, on_call=None):
        self.on_call = on_call
        self.calls = Counter()
        self._backend_path = backend_path
        self._lock = threading.Lock()
        self._open = set()
        os.makedirs(os.path.dirname(path), mode=0o700, exist_ok=True)
        self._listener = socket.socket(socket.AF_UNIX)
        self._listener.bind(path)
        self._listener.listen(16)
        threading.Thread(target=self._accept, daemon=True).start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._listener.close()
        with self._lock:
            for connection in self._open:
                connection.close()

    def _accept(self):
        while True:
            try:
                client, _ = self._listener.accept()
            except OSError:
                return
            backend = socket.socket(socket.AF_UNIX)
            try:
                backend.connect(self._backend_path)
            except OSError:
                client.close()
                backend.close()
                continue
            with self._lock:
                self._open |= {client, backend}
            threading.Thread(target=self._forward, args=(client, backend, True), daemon=True).start()
            threading.Thread(target=self._forward, args=(backend, client, False), daemon=True).start()

    def _forward(self, source, target, count):
        try:
            while True:
                head, body = receive_package(source)
                if count and len(body) >= 8:
                    code = int.from_bytes(body[:8], "little")
                    with self._lock:
                        self.calls[code] += 1
                    if self.on_call:
                        self.on_call(code)
                target.sendall(head + body)
        except (OSError, ConnectionError):
            pass
        for end in (source, target):
            try:
                end.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass

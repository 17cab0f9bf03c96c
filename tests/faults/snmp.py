"""SNMPv2c requests as datagrams, and a manager that sends them: quick enough for thousands of requests a test.

    manager = Manager(system.port)
    answer = manager.ask(GET, ["1.3.6.1.2.1.1.5.0"])
    answer.error, answer.bindings
"""

import socket
import time
from collections import namedtuple

from trap_receiver import TYPES, Reader, integer, oid_text, value_of

GET, GETNEXT, SET, GETBULK, RESPONSE = 0xA0, 0xA1, 0xA3, 0xA5, 0xA2
NO_ERROR, WRONG_VALUE, GEN_ERR, RESOURCE_UNAVAILABLE, COMMIT_FAILED, UNDO_FAILED = 0, 10, 5, 13, 14, 15

ABSENT = {0x80: "noSuchObject", 0x81: "noSuchInstance", 0x82: "endOfMibView"}

Answer = namedtuple("Answer", "error index bindings")  # bindings: [(name, type, value)]


def tlv(tag, content):
    size = len(content)
    if size < 128:
        return bytes([tag, size]) + content
    octets = size.to_bytes((size.bit_length() + 7) // 8, "big")
    return bytes([tag, 128 | len(octets)]) + octets + content


def number(value, tag=0x02):
    return tlv(tag, value.to_bytes(value.bit_length() // 8 + 1, "big", signed=True))


def oid(text):
    numbers = [int(part) for part in text.split(".")]
    content = b""
    for sub in [numbers[0] * 40 + numbers[1]] + numbers[2:]:
        groups = [sub & 0x7F]
        while sub > 0x7F:
            sub >>= 7
            groups.append(sub & 0x7F | 0x80)
        content += bytes(reversed(groups))
    return tlv(0x06, content)


def octets(text):
    return tlv(0x04, text.encode())


def unsigned(value):
    return number(value, 0x42)


NULL = tlv(0x05, b"")


def message(kind, request_id, bindings, community, first=0, second=0):
    """bindings: [(name, encoded value)]; first and second: GETBULK's two numbers."""
    varbinds = b"".join(tlv(0x30, oid(name) + value) for name, value in bindings)
    pdu = tlv(kind, number(request_id) + number(first) + number(second) + tlv(0x30, varbinds))
    return tlv(0x30, number(1) + octets(community) + pdu)


def bindings_of(content):
    bindings, reader = [], Reader(content)
    while reader.data:
        binding = Reader(reader.next(0x30)[1])
        name = oid_text(binding.next(0x06)[1])
        tag, value = binding.next()
        if tag in ABSENT:
            bindings.append((name, ABSENT[tag], None))
        else:
            bindings.append((name, TYPES[tag], value_of(tag, value)))
    return bindings


def decode(datagram):
    """(request ID, Answer)"""
    parts = Reader(Reader(datagram).next(0x30)[1])
    parts.next(0x02)
    parts.next(0x04)
    pdu = Reader(parts.next(RESPONSE)[1])
    request_id, error, index = (integer(pdu.next(0x02)[1]) for _ in range(3))
    return request_id, Answer(error, index, bindings_of(pdu.next(0x30)[1]))


class Manager:
    """Asks the agent on a loopback port; waits for the answer of the request that it sent last."""

    def __init__(self, port):
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.connect(("127.0.0.1", port))
        self._last = 0

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._socket.close()

    def send(self, kind, bindings, first=0, second=0):
        """Names, or (name, value) pairs of a SET."""
        self._last += 1
        pairs = [(binding, NULL) if isinstance(binding, str) else binding for binding in bindings]
        community = "writer" if kind == SET else "public"
        try:
            self._socket.send(message(kind, self._last, pairs, community, first, second))
        except ConnectionRefusedError:  # what came back for an earlier one
            self._socket.send(message(kind, self._last, pairs, community, first, second))

    def receive(self, seconds):
        """The answer, or None when it does not come in time."""
        end = time.monotonic() + seconds
        while True:
            left = end - time.monotonic()
            if left <= 0:
                return None
            self._socket.settimeout(left)
            try:
                request_id, answer = decode(self._socket.recv(65536))
            except (socket.timeout, ConnectionRefusedError):
                continue
            if request_id == self._last:
                return answer

    def ask(self, kind, bindings, seconds=30, **more):
        self.send(kind, bindings, **more)
        return self.receive(seconds)

"""Receives traps on a loopback port and reads those of SNMPv1 and SNMPv2c, without help of an SNMP library.

    with TrapReceiver() as receiver:
        system.add_destination(1, receiver.port)
        trap = decode(receiver.wait_for(1)[0])
        trap.oid, trap.bindings  # [(name, type, value), ...]
"""

import socket
import struct
import threading
from collections import namedtuple

from harness import wait_for

COLD_START = "1.3.6.1.6.3.1.1.5.1"
SYS_UP_TIME = "1.3.6.1.2.1.1.3.0"
SNMP_TRAP_OID = "1.3.6.1.6.3.1.1.4.1.0"

TYPES = {0x02: "INTEGER", 0x04: "OCTET STRING", 0x05: "NULL", 0x06: "OBJECT IDENTIFIER", 0x40: "IpAddress",
         0x41: "Counter32", 0x42: "Gauge32", 0x43: "TimeTicks", 0x46: "Counter64"}
SIGNED, OCTETS, OID = (0x02,), (0x04, 0x40), 0x06
SEQUENCE, TRAP_V1, TRAP_V2, INFORM = 0x30, 0xA4, 0xA7, 0xA6

Binding = namedtuple("Binding", "name type value")  # value: int, bytes or dotted text


class Trap(namedtuple("Trap", "version community oid up_time v1 bindings")):
    """version as on the wire (0: SNMPv1, 1: SNMPv2c); v1: (enterprise, agent address, generic, specific) or None;
    bindings without sysUpTime and snmpTrapOID, which `oid` and `up_time` hold."""

    def value(self, number):
        """Value of the binding whose name ends with .number.0."""
        return next(b.value for b in self.bindings if b.name.endswith(".%d.0" % number))


class Reader:
    """BER from front to back; every length is checked against what is there."""

    def __init__(self, data):
        self.data = data

    def next(self, expected=None):
        tag, length, start = self.data[0], self.data[1], 2
        if length & 0x80:
            count = length & 0x7F
            length, start = int.from_bytes(self.data[2:2 + count], "big"), 2 + count
        if len(self.data) < start + length:
            raise ValueError("the value is shorter than its length")
        if expected is not None and tag != expected:
            raise ValueError("type 0x%02X where 0x%02X was expected" % (tag, expected))
        content, self.data = self.data[start:start + length], self.data[start + length:]
        return tag, content

    def end(self):
        if self.data:
            raise ValueError("%d bytes after the end" % len(self.data))


def integer(content, signed=True):
    return int.from_bytes(content, "big", signed=signed)


def oid_text(content):
    numbers, number = [], 0
    for byte in content:
        number = number << 7 | byte & 0x7F
        if not byte & 0x80:
            numbers.append(number)
            number = 0
    first = min(numbers[0] // 40, 2)
    return ".".join(str(n) for n in [first, numbers[0] - 40 * first] + numbers[1:])


def value_of(tag, content):
    if tag == OID:
        return oid_text(content)
    if tag in OCTETS:
        return content
    return integer(content, tag in SIGNED)


def bindings_of(content):
    bindings, reader = [], Reader(content)
    while reader.data:
        binding = Reader(reader.next(SEQUENCE)[1])
        name = oid_text(binding.next(OID)[1])
        tag, value = binding.next()
        binding.end()
        bindings.append(Binding(name, TYPES[tag], value_of(tag, value)))
    return bindings


def decode(datagram):
    outer = Reader(datagram)
    message = Reader(outer.next(SEQUENCE)[1])
    outer.end()
    version = integer(message.next(0x02)[1])
    community = message.next(0x04)[1].decode()
    tag, content = message.next()
    if tag not in ((TRAP_V1,) if version == 0 else (TRAP_V2, INFORM)):
        raise ValueError("a PDU of type 0x%02X" % tag)
    message.end()
    pdu = Reader(content)
    if tag == TRAP_V1:
        enterprise = oid_text(pdu.next(OID)[1])
        address = socket.inet_ntoa(pdu.next(0x40)[1])
        generic, specific = integer(pdu.next(0x02)[1]), integer(pdu.next(0x02)[1])
        up_time = integer(pdu.next(0x43)[1], signed=False)
        bindings = bindings_of(pdu.next(SEQUENCE)[1])
        pdu.end()
        return Trap(version, community, None, up_time, (enterprise, address, generic, specific), bindings)
    for _ in range(3):  # request-id, error-status, error-index
        pdu.next(0x02)
    bindings = bindings_of(pdu.next(SEQUENCE)[1])
    pdu.end()
    up_time, oid = bindings[0], bindings[1]
    if (up_time.name, up_time.type) != (SYS_UP_TIME, "TimeTicks") or oid.name != SNMP_TRAP_OID:
        raise ValueError("sysUpTime and snmpTrapOID do not stand first")
    return Trap(version, community, oid.value, up_time.value, None, bindings[2:])


def dump(trap):
    """Everything in a trap but the time since start, one line per value."""
    lines = ["version %d, community %s" % (trap.version, trap.community)]
    if trap.v1:
        lines.append("enterprise %s, agent address %s, generic trap %d, specific trap %d" % trap.v1)
    else:
        lines.append("trap %s" % trap.oid)
    for binding in trap.bindings:
        value = binding.value.hex() if isinstance(binding.value, bytes) else binding.value
        lines.append("%s %s %s" % binding._replace(value=value))
    return "\n".join(lines) + "\n"


class TrapReceiver:
    """Keeps all datagrams; passes each on to `forward` (a loopback port) where one is given."""

    def __init__(self, family=socket.AF_INET, forward=None):
        self._socket = socket.socket(family, socket.SOCK_DGRAM)
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
        self._socket.bind(("127.0.0.1" if family == socket.AF_INET else "::1", 0))
        self._socket.settimeout(0.2)
        self.port = self._socket.getsockname()[1]
        self._forward = forward
        self._lock = threading.Lock()
        self._datagrams = []
        self._stopping = False
        self._thread = threading.Thread(target=self._run, daemon=True)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._stopping = True
        self._thread.join()
        self._socket.close()

    def _run(self):
        while not self._stopping:
            try:
                datagram, sender = self._socket.recvfrom(65536)
            except socket.timeout:
                continue
            self.take(datagram)
            self.took(datagram, sender)
            if self._forward:
                self._socket.sendto(datagram, ("127.0.0.1", self._forward))

    def take(self, datagram):
        """On the receiver's thread."""
        with self._lock:
            self._datagrams.append(datagram)

    def took(self, datagram, sender):
        """What a receiver that answers does then."""

    def datagrams(self, start=0):
        with self._lock:
            return self._datagrams[start:]

    def traps(self, start=0):
        return [decode(datagram) for datagram in self.datagrams(start)]

    def wait_for(self, count, seconds=60):
        """At least `count` datagrams."""
        wait_for(lambda: len(self.datagrams()) >= count, "%d traps" % count, seconds)
        return self.datagrams()


def write_pcap(path, datagrams, port):
    """The datagrams as a capture file: raw IPv4 from and to the loopback address."""
    with open(path, "wb") as file:
        file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 228))  # 228: LINKTYPE_IPV4
        for number, datagram in enumerate(datagrams):
            size = 20 + 8 + len(datagram)
            loopback = socket.inet_aton("127.0.0.1")
            ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, size, number, 0, 64, socket.IPPROTO_UDP, 0, loopback, loopback)
            udp = struct.pack(">HHHH", port, port, 8 + len(datagram), 0)
            file.write(struct.pack("<IIII", number, 0, size, size) + ip + udp + datagram)

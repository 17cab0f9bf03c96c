"""Datagrams that no manager should send, each with the name of its class.

systematic(captures, engine) goes once through what can be listed: each value of each captured message with each wrong
length, tag and content, each truncation, odd names, numbers, texts and bulk requests, writes that are to be refused.
chance(captures, engine, random) goes on without end. The same captures and the same seed give the same datagrams.

Every write in here is to be refused: it is made by somebody who may not write, or comes with a value that may not be
written, and a SET changes all or nothing.
"""

import ber
from ber import Node, integer, message, message_v3, octets, oid, pdu, sequence, varbind

ENTERPRISE = "1.3.6.1.4.1.99871.2"
TOPOLOGY = ENTERPRISE + ".91.9.1.1"
ALARMS = ENTERPRISE + ".91.10.1.1.1"
CLEAR_ALARM = ENTERPRISE + ".91.10.1.2.0"
DESTINATIONS = ENTERPRISE + ".91.10.4.1.1"
SYS_NAME = "1.3.6.1.2.1.1.5.0"
NEVER_WRITABLE = TOPOLOGY + ".5.1"

LARGEST_DATAGRAM = 65507
FORMATS = [b"%s%s%s%s%s%s%s%s", b"%n%n%n%n", b"%99999999d", b"%*.*s", b"%1$s%2$n", b"\0", b"a\0b", b"\xff\xfe\x80", b"\r\n",
           b"${HOME}`id`$(id)", b"../../../etc/passwd", b"<?xml version='1.0'?>", b"' OR 1=1; --"]
TEXTS = FORMATS + [b"", b"A" * 31, b"A" * 32, b"A" * 33, b"A" * 255, b"A" * 256, b"A" * 257, b"A" * 4096, b"A" * 60000]
NUMBERS = [0, 1, -1, 127, 128, -128, -129, 255, 256, 2**31 - 1, 2**31, -2**31, -2**31 - 1, 2**32 - 1, 2**32, 2**32 + 1,
           -2**32, 2**63 - 1, 2**63, -2**63, 2**64 - 1, 2**64, 2**128, -2**128, 2**1000]
REPETITIONS = [-2**63, -2**31 - 1, -2**31, -2, -1, 0, 1, 2, 50, 1000, 2**16, 2**31 - 1, 2**31, 2**32 - 1, 2**63]
TAGS = [0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x09, 0x0A, 0x10, 0x1F, 0x24, 0x30, 0x31, 0x40, 0x41, 0x42, 0x43, 0x44,
        0x45, 0x46, 0x47, 0x78, 0x80, 0x81, 0x82, 0x9F, 0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9, 0xBF,
        0xFF]
# Lengths as functions of the content's size.
LENGTHS = {
    "none": lambda size: b"",
    "zero": lambda size: b"\0",
    "one less": lambda size: ber.shortest_length(max(size - 1, 0)),
    "one more": lambda size: ber.shortest_length(size + 1),
    "127": lambda size: b"\x7f",
    "indefinite": lambda size: b"\x80",
    "one octet more than needed": lambda size: b"\x81" + bytes([size & 0xFF]),
    "two octets": lambda size: b"\x82" + size.to_bytes(2, "big"),
    "three octets": lambda size: b"\x83" + size.to_bytes(3, "big"),
    "four octets": lambda size: b"\x84" + size.to_bytes(4, "big"),
    "five octets": lambda size: b"\x85" + size.to_bytes(5, "big"),
    "nine octets": lambda size: b"\x89" + size.to_bytes(9, "big"),
    "126 octets": lambda size: b"\xfe" + size.to_bytes(126, "big"),
    "reserved": lambda size: b"\xff",
    "cut": lambda size: b"\x84\0",
    "64 K": lambda size: b"\x83\x01\x00\x00",
    "2^31 - 1": lambda size: b"\x84\x7f\xff\xff\xff",
    "2^31": lambda size: b"\x84\x80\x00\x00\x00",
    "2^32 - 1": lambda size: b"\x84\xff\xff\xff\xff",
    "2^32 + size": lambda size: b"\x85\x01" + size.to_bytes(4, "big"),
}
CONTENTS = [b"", b"\0", b"\xff", b"\x80" * 5, b"\0" * 9, b"\xff" * 9, b"\x7f" + b"\xff" * 8, b"\x30\x80", b"%n%n"]


def systematic(captures, engine):
    for case in _in_turn(truncations(captures), values_of(captures), names(engine), numbers(engine), texts(engine),
                         kinds_and_versions(engine), bulk_requests(engine), writes(engine), signed(engine), sizes()):
        if len(case[1]) <= LARGEST_DATAGRAM:
            yield case


def _in_turn(*sources):
    """One of each, then the next of each, so that every stretch of a run has all classes."""
    sources = [iter(source) for source in sources]
    while sources:
        for source in list(sources):
            case = next(source, None)
            if case is None:
                sources.remove(source)
            else:
                yield case


def truncations(captures):
    for data in captures:
        for size in range(len(data)):
            yield "cut", data[:size]
            yield "cut, its length right", ber.Node(data[0], data[2:size]).encode() if size > 2 else data[:size]


def values_of(captures):
    """Each value of each message with a wrong length, tag or content; what encloses it fits, or keeps the old length."""
    for data in captures:
        tree = ber.parse(data)
        for position in range(sum(1 for _ in tree.nodes())):
            for name, length in LENGTHS.items():
                yield "length: " + name, _changed(tree, position, length=length)
            for tag in TAGS[position % 3::3]:
                yield "tag", _changed(tree, position, tag=tag)
            for content in CONTENTS:
                yield "content", _changed(tree, position, content=content)


def _changed(tree, position, **change):
    tree = tree.copy()
    node = list(tree.nodes())[position]
    for key, value in change.items():
        setattr(node, key, value)
    return tree.encode()


def _everyone(body, engine):
    """The same request over all versions."""
    yield message(body, version=0).encode()
    yield message(body).encode()
    yield message_v3(body, engine.id).encode()


def names(engine):
    raw = [b"", b"\x80", b"\xff", b"\x2b\x80", b"\x2b\x80\x01", b"\x2b" + b"\xff" * 4, b"\x2b" + b"\xff" * 5 + b"\x7f",
           b"\x2b" + b"\xff" * 200, b"\x2b\x90\x80\x80\x80\x00", b"\x2b\x8f\xff\xff\xff\x7f", b"\x00", b"\x2b", b"\x78"]
    lists = [[1, 3] + [1] * count for count in (125, 126, 127, 128, 129, 200, 1000, 5000, 20000)]
    root = [int(part) for part in ALARMS.split(".")]
    lists += [root + [1] * (count - len(root)) for count in (127, 128, 129, 130, 256, 4000)]
    for big in (2**31, 2**32 - 1, 2**32, 2**32 + 1, 2**63, 2**64, 2**64 + 5, 2**200):
        lists += [root + [big], root + [4, big], root + [4, 1, big], root[:-1] + [big, 1], [1, 3, big], [2, big]]
    nodes = [Node(ber.OID, content) for content in raw] + [oid(parts) for parts in lists]
    for node in nodes:
        for kind in (ber.GET, ber.GETNEXT, ber.GETBULK, ber.SET):
            for data in _everyone(pdu(kind, [varbind(node)], third=3 if kind == ber.GETBULK else 0), engine):
                yield "name", data
        value = pdu(ber.SET, [varbind(DESTINATIONS + ".6.1", node), varbind(NEVER_WRITABLE, octets(b"x"))])
        yield "name as a value", message(value, community=b"writer").encode()


def numbers(engine):
    target = varbind(ALARMS + ".4")
    for number in NUMBERS:
        for place in range(3):
            fields = [1, 0, 0]
            fields[place] = number
            for kind in (ber.GET, ber.GETNEXT, ber.GETBULK):
                for data in _everyone(pdu(kind, [target], *fields), engine):
                    yield "number", data
        yield "version", sequence(integer(number), octets(b"public"), pdu(ber.GET, [target])).encode()
        for field in ("boots", "time", "number", "model", "most"):
            for flags in (0, 1, 3, 4, 5, 7, 0xFF):
                yield "v3 number", message_v3(pdu(ber.GET, [target]), engine.id, flags=flags, **{field: number}).encode()


def texts(engine):
    body = pdu(ber.GET, [varbind(SYS_NAME)])
    for text in TEXTS:
        for version in (0, 1):
            yield "community", message(body, version=version, community=text).encode()
        for field in ("user", "context", "authentication", "privacy"):
            for flags in (0, 1, 3, 4, 5, 7):
                yield "v3 text", message_v3(body, engine.id, flags=flags, **{field: text}).encode()
        yield "engine ID", message_v3(body, text).encode()
        yield "engine ID", message_v3(body, engine.id + text).encode()
        for column in (6, 8, 9):
            yield "written text", message(_refused(DESTINATIONS + ".%d.1" % column, octets(text)),
                                          community=b"writer").encode()


def kinds_and_versions(engine):
    for kind in TAGS:
        for binding in ([], [varbind(SYS_NAME)], [varbind(ALARMS + ".4")] * 100, [sequence()], [integer(1)],
                        [sequence(oid(SYS_NAME))], [varbind(SYS_NAME, sequence(varbind(SYS_NAME)))]):
            for data in _everyone(pdu(kind, binding), engine):
                yield "kind", data
        yield "message", Node(kind, [integer(1), octets(b"public"), pdu(ber.GET, [])]).encode()
        for version in (-1, 2, 3, 4, 255, 2**31 - 1):
            yield "version", message(pdu(kind, [varbind(SYS_NAME)]), version=version).encode()
    trap = Node(ber.TRAP_V1, [oid(ENTERPRISE), octets(b"\x7f\0\0\1", ber.IP_ADDRESS), integer(6), integer(1),
                              integer(5, ber.TIME_TICKS), sequence(varbind(SYS_NAME, octets(b"x")))])
    for version in (0, 1, 3):
        yield "v1 trap", message(trap, version=version).encode()
    tree = message(trap, version=0)
    for position in range(sum(1 for _ in tree.nodes())):
        for content in CONTENTS:
            yield "v1 trap", _changed(tree, position, content=content)


def signed(engine):
    """Faults behind a right signature: what the reader of a scoped PDU meets from somebody who is known."""
    for body in (pdu(ber.GET, [varbind(ALARMS + ".4")]), pdu(ber.GETBULK, [varbind(ALARMS)], third=5),
                 pdu(ber.SET, [varbind(NEVER_WRITABLE, octets(b"x"))])):
        for position in range(sum(1 for _ in engine.message(body).nodes())):
            tree = engine.message(body)  # anew: its time has to be about now
            for length in LENGTHS.values():
                yield "signed: length", engine.sign(_changed(tree, position, length=length))
            for tag in TAGS:
                yield "signed: tag", engine.sign(_changed(tree, position, tag=tag))
            for content in CONTENTS:
                yield "signed: content", engine.sign(_changed(tree, position, content=content))
        for offset in (-2**31, -151, -1, 0, 1, 151, 2**31 - 1):
            yield "signed: time", engine.sign(engine.message(body, offset).encode())


def bulk_requests(engine):
    columns = [varbind(ALARMS + ".%d" % column) for column in range(1, 14)]
    for non_repeaters in REPETITIONS:
        for repetitions in REPETITIONS:
            for bindings in ([], columns[:1], columns, [varbind("0.0")], [varbind("2.999")], columns * 20):
                body = pdu(ber.GETBULK, bindings, second=non_repeaters, third=repetitions)
                yield "bulk", message(body).encode()
                if len(bindings) < 20:
                    yield "bulk", message_v3(body, engine.id).encode()


def _refused(name, value, before=False):
    """A write of which another part is never allowed."""
    bindings = [varbind(name, value), varbind(NEVER_WRITABLE, octets(b"x"))]
    return pdu(ber.SET, list(reversed(bindings)) if before else bindings)


def writes(engine):
    """By a writer: wrong types and sizes for every column, each in a SET that is to fail."""
    targets = ["%s.%d.%s" % (table, column, index) for table in (DESTINATIONS, TOPOLOGY, ALARMS)
               for column in range(0, 16) for index in ("1", "2", "0", "4294967295", "1.1", "")]
    targets = [target.rstrip(".") for target in targets] + [CLEAR_ALARM, CLEAR_ALARM[:-2], CLEAR_ALARM + ".0",
                                                           CLEAR_ALARM[:-1] + "1"]
    small = [b"", b"\0", b"\xff" * 4, b"\x7f\xff\xff\xff", b"%n%s%n%s", b"A" * 300, b"\0" * 9]
    tags = [ber.INTEGER, ber.OCTETS, ber.NULL, ber.OID, ber.IP_ADDRESS, ber.COUNTER32, ber.GAUGE32, ber.TIME_TICKS,
            ber.OPAQUE, ber.COUNTER64, 0x01, 0x03, 0x47, 0x80, 0x82, ber.SEQUENCE]
    turn = 0
    for target in targets:
        for tag in tags:
            content = small[turn % len(small)]
            body = _refused(target, Node(tag, content), before=turn % 2 == 0)
            who = turn % 3
            data = message_v3(body, engine.id, user=b"writer") if who == 0 else message(body, who - 1, b"writer")
            turn += 1
            yield "write", data.encode()
    wrong = [ber.OID, ber.IP_ADDRESS, ber.COUNTER32, ber.TIME_TICKS, ber.OPAQUE, ber.COUNTER64, ber.NULL]
    for target in targets:
        for tag in wrong:  # alone: no object has one of these types
            body = pdu(ber.SET, [varbind(target, Node(tag, small[turn % len(small)]))])
            data = message_v3(body, engine.id, user=b"writer") if turn % 2 else message(body, community=b"writer")
            turn += 1
            yield "write of a wrong type", data.encode()
    for count in (2, 50, 500, 1500):
        many = [varbind(DESTINATIONS + ".2.%d" % (2 + i), integer(162, ber.GAUGE32)) for i in range(count)]
        yield "many writes", message(pdu(ber.SET, many + [varbind(NEVER_WRITABLE, octets(b"x"))]),
                                     community=b"writer").encode()
        yield "the same written often", message(pdu(ber.SET, [varbind(DESTINATIONS + ".2.1", integer(1, ber.GAUGE32))] *
                                                    count + [varbind(NEVER_WRITABLE, octets(b"x"))]),
                                                community=b"writer").encode()


def sizes():
    for size in (0, 1, 2, 3, 1471, 1472, 1473, 9000, 65000, LARGEST_DATAGRAM):
        for byte in (0x00, 0x30, 0x80, 0xFF):
            yield "one byte often", bytes([byte]) * size
    for depth in (10, 100, 1000, 10000, 16000):
        data = b"\x05\x00"
        for _ in range(depth):
            data = b"\x30" + ber.shortest_length(len(data)) + data if len(data) < 60000 else data
        yield "nested", data
        yield "nested, indefinite", b"\x30\x80" * depth
        yield "nested value", message(pdu(ber.GET, [Node(ber.SEQUENCE, [oid(SYS_NAME), Node(ber.OCTETS, data)])])).encode()
        yield "nested value", message(pdu(ber.SET, [Node(ber.SEQUENCE, [oid(SYS_NAME), Node(0x24, data)])])).encode()
    for count in (1, 100, 1000, 3000):
        yield "many names", message(pdu(ber.GET, [varbind(ALARMS + ".4.1")] * count)).encode()
        yield "many names", message(pdu(ber.GETNEXT, [varbind(TOPOLOGY)] * count)).encode()
        yield "many names", message(pdu(ber.GETBULK, [varbind("1.3")] * count, third=100)).encode()


# Numbers and texts that parsers stumble over, as bytes to be put anywhere.
CURIOUS = [b"\x80", b"\xff", b"\x00", b"\x7f", b"\x84\xff\xff\xff\xff", b"\x85\x00\x00\x00\x00\x01", b"\x82\x00\x01",
           b"\x30\x80", b"\x00\x00", b"%n", b"\x02\x09\x7f\xff\xff\xff\xff\xff\xff\xff\xff", b"\x06\x00", b"\x04\x00"]


def chance(captures, engine, random):
    """Captured messages (nobody may write with them what is not there already) with one to eight changes of chance."""
    makers = [lambda: bytearray(random.choice(captures)), lambda: bytearray(_built(engine, random))]
    while True:
        data = random.choice(makers)()
        for _ in range(random.choice((1, 1, 1, 2, 3, 8))):
            _change(data, captures, random)
        yield "mutation", bytes(data[:LARGEST_DATAGRAM])


def _built(engine, random):
    kind = random.choice((ber.GET, ber.GETNEXT, ber.GETBULK))
    bindings = [varbind(random.choice((TOPOLOGY, ALARMS, DESTINATIONS, ENTERPRISE)) +
                        "".join(".%d" % random.choice((0, 1, 2, 3, 4, 8, 13, 2**32 - 1))
                                for _ in range(random.randrange(4)))) for _ in range(random.choice((1, 1, 2, 5)))]
    body = pdu(kind, bindings, request=random.choice(NUMBERS), second=random.choice((0, 0, 1)),
               third=random.choice((0, 1, 10)) if kind == ber.GETBULK else 0)
    return random.choice((lambda: message(body, 0), lambda: message(body), lambda: message_v3(body, engine.id)))().encode()


def _change(data, captures, random):
    if not data:
        data += random.choice(CURIOUS)
        return
    at = random.randrange(len(data))
    kind = random.randrange(8)
    if kind == 0:
        data[at] ^= 1 << random.randrange(8)
    elif kind == 1:
        data[at] = random.choice((0, 1, 0x7F, 0x80, 0x81, 0x82, 0x84, 0xFF, random.randrange(256)))
    elif kind == 2:
        data[at:at] = random.choice(CURIOUS)
    elif kind == 3:
        del data[at:at + random.choice((1, 1, 2, 4, 16))]
    elif kind == 4:
        piece = random.choice(CURIOUS)
        data[at:at + len(piece)] = piece
    elif kind == 5:
        other = random.choice(captures)
        start = random.randrange(len(other))
        data[at:] = other[start:]
    elif kind == 6:
        data[at:at] = data[at:at + random.choice((1, 4, 16, 64))] * random.choice((1, 2, 20))
    else:
        data[at] = (data[at] + random.choice((-1, 1))) & 0xFF

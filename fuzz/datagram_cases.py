"""Datagrams that no manager should send, each with its kind: "class: what is wrong in particular".

all_cases(seed) goes without end through two sorts of sources, one case of each in turn: what can be listed (each value
of each good message with each wrong length, tag and content, each truncation, odd names, numbers, texts and bulk
requests, writes that are to be refused), and good messages with changes of chance. The same seed gives the same
datagrams in every run; what depends on the run (clock, signature, encryption) is a mark in them (snmp_engine.py).

Every write in here is to be refused: it is made by somebody who may not write, or comes with a value that may not be
written, and a SET changes all or nothing.
"""

import random

import ber
import snmp_engine
from ber import Node, integer, message, octets, oid, pdu, scoped_pdu, sequence, varbind
from snmp_engine import ENGINE_ID, SEALER, SIGNER, known_message

ENTERPRISE = "1.3.6.1.4.1.99871.2"
TOPOLOGY = ENTERPRISE + ".91.9.1.1"
ALARMS = ENTERPRISE + ".91.10.1.1.1"
CLEAR_ALARM = ENTERPRISE + ".91.10.1.2.0"
DESTINATIONS = ENTERPRISE + ".91.10.4.1.1"
SYS_NAME = "1.3.6.1.2.1.1.5.0"
NEVER_WRITABLE = TOPOLOGY + ".5.1"

LARGEST_DATAGRAM = 65507
LARGEST_NAME = 128  # sub-identifiers (RFC 2578, 3.5)
SHORT_MESSAGES = [0, 1, 483, 484, 485, 640, 896, 1024, 1472, 2048, 4096]  # that a manager takes at most
VERSIONS = ["v1", "v2c", "v3", "signed v3", "sealed v3"]
PORT = 47162        # of the destination that is there
FORMATS = [b"%s%s%s%s%s%s%s%s", b"%n%n%n%n", b"%99999999d", b"%*.*s", b"%1$s%2$n", b"\0", b"a\0b", b"\xff\xfe\x80",
           b"\r\n", b"${HOME}`id`$(id)", b"../../../etc/passwd", b"<?xml version='1.0'?>", b"' OR 1=1; --"]
TEXTS = FORMATS + [b"", b"A" * 31, b"A" * 32, b"A" * 33, b"A" * 255, b"A" * 256, b"A" * 257, b"A" * 4096, b"A" * 60000]
NUMBERS = [0, 1, -1, 127, 128, -128, -129, 255, 256, 2**31 - 1, 2**31, -2**31, -2**31 - 1, 2**32 - 1, 2**32, 2**32 + 1,
           -2**32, 2**63 - 1, 2**63, -2**63, 2**64 - 1, 2**64, 2**128, -2**128, 2**1000]
REPETITIONS = [-2**63, -2**31 - 1, -2**31, -2, -1, 0, 1, 2, 50, 1000, 2**16, 2**31 - 1, 2**31, 2**32 - 1, 2**63]
TAGS = [0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x09, 0x0A, 0x10, 0x1F, 0x24, 0x30, 0x31, 0x40, 0x41, 0x42, 0x43,
        0x44, 0x45, 0x46, 0x47, 0x78, 0x80, 0x81, 0x82, 0x9F, 0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8,
        0xA9, 0xBF, 0xFF]
# Lengths as functions of the content's size, with their classes.
LENGTHS = {
    "wrong length": {
        "none": lambda size: b"",
        "zero": lambda size: b"\0",
        "one less": lambda size: ber.shortest_length(max(size - 1, 0)),
        "one more": lambda size: ber.shortest_length(size + 1),
        "127": lambda size: b"\x7f",
        "reserved": lambda size: b"\xff",
        "cut": lambda size: b"\x84\0",
        "64 K": lambda size: b"\x83\x01\x00\x00",
        "2^31 - 1": lambda size: b"\x84\x7f\xff\xff\xff",
        "2^31": lambda size: b"\x84\x80\x00\x00\x00",
        "2^32 - 1": lambda size: b"\x84\xff\xff\xff\xff",
        "2^32 + size": lambda size: b"\x85\x01" + size.to_bytes(4, "big"),
    },
    "indefinite length": {
        "without an end": lambda size: b"\x80",
    },
    "over-long length": {
        "one octet": lambda size: b"\x81" + bytes([size & 0xFF]),
        "two octets": lambda size: b"\x82" + size.to_bytes(2, "big"),
        "three octets": lambda size: b"\x83" + size.to_bytes(3, "big"),
        "four octets": lambda size: b"\x84" + size.to_bytes(4, "big"),
        "five octets": lambda size: b"\x85" + size.to_bytes(5, "big"),
        "nine octets": lambda size: b"\x89" + size.to_bytes(9, "big"),
        "126 octets": lambda size: b"\xfe" + size.to_bytes(126, "big"),
    },
}
CONTENTS = [b"", b"\0", b"\xff", b"\x80" * 5, b"\0" * 9, b"\xff" * 9, b"\x7f" + b"\xff" * 8, b"\x30\x80", b"%n%n"]


def message_v3(body, engine=ENGINE_ID, **more):
    return ber.message_v3(body, engine, **more)


def good_messages(version=None):
    """As Net-SNMP's tools send them: all versions, or one, with each kind of request; none of them changes anything."""
    requests = [pdu(ber.GET, [varbind(name) for name in (SYS_NAME, ALARMS + ".4.1", TOPOLOGY + ".5.1")], 0x2C0B9AB5),
                pdu(ber.GETNEXT, [varbind(ALARMS), varbind(DESTINATIONS + ".6")], 0x43CFD592),
                pdu(ber.SET, [varbind(DESTINATIONS + ".2.1", integer(PORT, ber.GAUGE32))], 0x625A9EBE)]
    bulk = pdu(ber.GETBULK, [varbind(name) for name in (SYS_NAME, ALARMS + ".4", TOPOLOGY)], 0x5FEFBC51, 1, 10)
    messages = {
        "v1": [message(body, version=0) for body in requests],
        "v2c": [message(body) for body in requests + [bulk]],
        "v3": [message_v3(body) for body in requests + [bulk]] +
              [message_v3(pdu(ber.GET, [], 0x5B1D1225), b"", user=b"")],  # who are you?
        "signed v3": [known_message(SIGNER, body) for body in requests + [bulk]],
        "sealed v3": [known_message(SEALER, body) for body in requests + [bulk]],
    }
    return [tree.encode() for each in ([version] if version else VERSIONS) for tree in messages[each]]


def all_cases(seed):
    for case in _in_turn(*systematic(), *chance(seed)):
        if len(case[1]) <= LARGEST_DATAGRAM:
            yield case


def systematic():
    """Sources that end."""
    values = [_in_turn(*map(values_of, good_messages(version))) for version in VERSIONS]
    return values + [_in_turn(*map(truncations, good_messages())), names(), numbers(), texts(), kinds_and_versions(),
                     bulk_requests(), short_messages(), writes(), clocks(), sizes()]


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


def truncations(data):
    for size in range(len(data)):
        yield "cut", data[:size]
        yield "cut: its length right", ber.Node(data[0], data[2:size]).encode() if size > 2 else data[:size]


def values_of(data):
    """Each value of a message with a wrong length, tag or content; what encloses it fits, or keeps the old length."""
    tree = ber.parse(data)
    for position, node in enumerate(tree.nodes()):
        for kind, lengths in LENGTHS.items():
            for name, length in lengths.items():
                yield "%s: %s" % (kind, name), _changed(tree, node, "length", length)
        for tag in TAGS[position % 3::3]:
            yield "tag", _changed(tree, node, "tag", tag)
        for content in CONTENTS:
            yield "content", _changed(tree, node, "content", content)


def _changed(tree, node, key, value):
    """The tree's bytes with one thing of one of its nodes changed."""
    before = getattr(node, key)
    setattr(node, key, value)
    data = tree.encode()
    setattr(node, key, before)
    return data


def _everyone(body):
    """The same request over all versions."""
    yield message(body, version=0).encode()
    yield message(body).encode()
    yield message_v3(body).encode()


def names():
    raw = [b"", b"\x80", b"\xff", b"\x2b\x80", b"\x2b\x80\x01", b"\x2b" + b"\xff" * 4, b"\x2b" + b"\xff" * 5 + b"\x7f",
           b"\x2b" + b"\xff" * 200, b"\x2b\x90\x80\x80\x80\x00", b"\x2b\x8f\xff\xff\xff\x7f", b"\x00", b"\x2b", b"\x78"]
    lists = [[1, 3] + [1] * count for count in (125, 126, 127, 128, 129, 200, 1000, 5000, 20000)]
    root = [int(part) for part in ALARMS.split(".")]
    lists += [root + [1] * (count - len(root)) for count in (127, 128, 129, 130, 256, 4000)]
    for big in (2**31, 2**32 - 1, 2**32, 2**32 + 1, 2**63, 2**64, 2**64 + 5, 2**200):
        lists += [root + [big], root + [4, big], root + [4, 1, big], root[:-1] + [big, 1], [1, 3, big], [2, big]]
    nodes = [("name", Node(ber.OID, content)) for content in raw]
    nodes += [("too long a name" if len(parts) > LARGEST_NAME else "name", oid(parts)) for parts in lists]
    for name, node in nodes:
        for kind in (ber.GET, ber.GETNEXT, ber.GETBULK, ber.SET):
            for data in _everyone(pdu(kind, [varbind(node)], third=3 if kind == ber.GETBULK else 0)):
                yield name, data
        value = pdu(ber.SET, [varbind(DESTINATIONS + ".6.1", node), varbind(NEVER_WRITABLE, octets(b"x"))])
        yield name + ": as a value", message(value, community=b"writer").encode()


def numbers():
    target = varbind(ALARMS + ".4")
    for number in NUMBERS:
        name = "negative number" if number < 0 else "huge number" if number >= 2**31 else "number"
        for place in range(3):
            fields = [1, 0, 0]
            fields[place] = number
            for kind in (ber.GET, ber.GETNEXT, ber.GETBULK):
                for data in _everyone(pdu(kind, [target], *fields)):
                    yield name, data
        yield name + ": version", sequence(integer(number), octets(b"public"), pdu(ber.GET, [target])).encode()
        for field in ("boots", "time", "number", "model", "most"):
            for flags in (0, 1, 3, 4, 5, 7, 0xFF):
                yield name + ": " + field, message_v3(pdu(ber.GET, [target]), flags=flags, **{field: number}).encode()


def texts():
    body = pdu(ber.GET, [varbind(SYS_NAME)])
    for text in TEXTS:
        name = "format string" if text in FORMATS else "oversized string" if len(text) > 32 else "string"
        for version in (0, 1):
            yield name + ": community", message(body, version=version, community=text).encode()
        for field in ("user", "context", "authentication", "privacy"):
            for flags in (0, 1, 3, 4, 5, 7):
                yield name + ": " + field, message_v3(body, flags=flags, **{field: text}).encode()
        for engine in (text, ENGINE_ID + text):
            yield name + ": engine ID", message_v3(body, engine).encode()
        for user in (SIGNER, SEALER):
            inside = scoped_pdu(body, ENGINE_ID, context=text).encode()
            yield name + ": context", snmp_engine.known_message_around(user, inside).encode()
        for column in (6, 8, 9):
            yield name + ": written", message(_refused(DESTINATIONS + ".%d.1" % column, octets(text)),
                                              community=b"writer").encode()


def kinds_and_versions():
    for kind in TAGS:
        for binding in ([], [varbind(SYS_NAME)], [varbind(ALARMS + ".4")] * 100, [sequence()], [integer(1)],
                        [sequence(oid(SYS_NAME))], [varbind(SYS_NAME, sequence(varbind(SYS_NAME)))]):
            for data in _everyone(pdu(kind, binding)):
                yield "PDU tag", data
        yield "tag: message", Node(kind, [integer(1), octets(b"public"), pdu(ber.GET, [])]).encode()
        for user in (SIGNER, SEALER):
            yield "PDU tag: known user", known_message(user, pdu(kind, [varbind(SYS_NAME)])).encode()
        for version in (-1, 2, 3, 4, 255, 2**31 - 1):
            yield "version", message(pdu(kind, [varbind(SYS_NAME)]), version=version).encode()
    trap = Node(ber.TRAP_V1, [oid(ENTERPRISE), octets(b"\x7f\0\0\1", ber.IP_ADDRESS), integer(6), integer(1),
                              integer(5, ber.TIME_TICKS), sequence(varbind(SYS_NAME, octets(b"x")))])
    for version in (0, 1, 3):
        yield "v1 trap", message(trap, version=version).encode()
    tree = message(trap, version=0)
    for node in tree.nodes():
        for content in CONTENTS:
            yield "v1 trap: content", _changed(tree, node, "content", content)


def clocks():
    for offset in snmp_engine.TIMES:
        for kind in (ber.GET, ber.GETNEXT, ber.GETBULK, ber.SET):
            yield "clock", known_message(SIGNER, pdu(kind, [varbind(SYS_NAME)]), offset).encode()


def bulk_requests():
    columns = [varbind(ALARMS + ".%d" % column) for column in range(1, 14)]
    for non_repeaters in REPETITIONS:
        for repetitions in REPETITIONS:
            for bindings in ([], columns[:1], columns, [varbind("0.0")], [varbind("2.999")], columns * 20):
                body = pdu(ber.GETBULK, bindings, second=non_repeaters, third=repetitions)
                yield "bulk", message(body).encode()
                if len(bindings) < 20:
                    yield "bulk", message_v3(body).encode()


def short_messages():
    """Reads by managers who take no long answer."""
    columns = [varbind(ALARMS + ".%d" % column) for column in range(1, 14)]
    for most in SHORT_MESSAGES:
        for bindings in (columns[3:4], columns, [varbind("1.3")] * 5, [varbind(TOPOLOGY)] + columns):
            for kind, second, third in ((ber.GET, 0, 0), (ber.GETNEXT, 0, 0), (ber.GETBULK, 0, 1),
                                        (ber.GETBULK, 1, 10), (ber.GETBULK, 0, 1000)):
                body = pdu(kind, bindings, second=second, third=third)
                yield "short message", message_v3(body, most=most).encode()
                for user in (SIGNER, SEALER):
                    yield "short message", known_message(user, body, most=most).encode()


def _refused(name, value, before=False):
    """A write of which another part is never allowed."""
    bindings = [varbind(name, value), varbind(NEVER_WRITABLE, octets(b"x"))]
    return pdu(ber.SET, list(reversed(bindings)) if before else bindings)


def writes():
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
            data = message_v3(body, user=b"writer") if who == 0 else message(body, who - 1, b"writer")
            turn += 1
            yield "write", data.encode()
    wrong = [ber.OID, ber.IP_ADDRESS, ber.COUNTER32, ber.TIME_TICKS, ber.OPAQUE, ber.COUNTER64, ber.NULL]
    for target in targets:
        for tag in wrong:  # alone: no object has one of these types
            body = pdu(ber.SET, [varbind(target, Node(tag, small[turn % len(small)]))])
            data = message_v3(body, user=b"writer") if turn % 2 else message(body, community=b"writer")
            turn += 1
            yield "write: wrong type", data.encode()
    for count in (2, 50, 500, 1500):
        many = [varbind(DESTINATIONS + ".2.%d" % (2 + i), integer(162, ber.GAUGE32)) for i in range(count)]
        yield "write: many", message(pdu(ber.SET, many + [varbind(NEVER_WRITABLE, octets(b"x"))]),
                                     community=b"writer").encode()
        yield "write: often the same", message(pdu(ber.SET, [varbind(DESTINATIONS + ".2.1", integer(1, ber.GAUGE32))] *
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
        yield "nested: indefinite", b"\x30\x80" * depth
        for kind, tag in ((ber.GET, ber.OCTETS), (ber.SET, ber.OCTETS | ber.CONSTRUCTED)):
            yield "nested: value", message(pdu(kind, [varbind(SYS_NAME, Node(tag, data))])).encode()
    for count in (1, 100, 1000, 3000):
        yield "many names", message(pdu(ber.GET, [varbind(ALARMS + ".4.1")] * count)).encode()
        yield "many names", message(pdu(ber.GETNEXT, [varbind(TOPOLOGY)] * count)).encode()
        yield "many names", message(pdu(ber.GETBULK, [varbind("1.3")] * count, third=100)).encode()


# Numbers and texts that parsers stumble over, as bytes to be put anywhere.
CURIOUS = [b"\x80", b"\xff", b"\x00", b"\x7f", b"\x84\xff\xff\xff\xff", b"\x85\x00\x00\x00\x00\x01", b"\x82\x00\x01",
           b"\x30\x80", b"\x00\x00", b"%n", b"\x02\x09\x7f\xff\xff\xff\xff\xff\xff\xff\xff", b"\x06\x00", b"\x04\x00"]


def chance(seed):
    """Sources without end: good messages of each version with changes of chance, such changes after a right signature
    and after right encryption, and changed messages of which no two are alike to begin with."""
    everything = good_messages()
    sources = [_mutated("mutated " + version, seed, lambda dice, own=good_messages(version): dice.choice(own),
                        everything) for version in VERSIONS]
    insides = [ber.parse(data).content[-1].encode() for data in good_messages("v3")]
    for name, user in (("mutated after a signature", SIGNER), ("mutated after encryption", SEALER)):
        sources.append(_mutated(name, seed, lambda dice: dice.choice(insides), insides,
                                lambda inside, user=user: snmp_engine.known_message_around(user, inside).encode()))
    sources.append(_mutated("mutated request", seed, _built, everything))
    return sources


def _mutated(name, seed, make, others, wrap=bytes):
    """With dice of its own, so that a source gives the same whatever the others do."""
    dice = random.Random("%s %s" % (seed, name))
    while True:
        data = bytearray(make(dice))
        for _ in range(dice.choice((1, 1, 1, 2, 3, 8))):
            _change(data, others, dice)
        yield name, wrap(bytes(data[:LARGEST_DATAGRAM]))


def _built(dice):
    kind = dice.choice((ber.GET, ber.GETNEXT, ber.GETBULK))
    bindings = [varbind(dice.choice((TOPOLOGY, ALARMS, DESTINATIONS, ENTERPRISE)) +
                        "".join(".%d" % dice.choice((0, 1, 2, 3, 4, 8, 13, 2**32 - 1))
                                for _ in range(dice.randrange(4)))) for _ in range(dice.choice((1, 1, 2, 5)))]
    body = pdu(kind, bindings, request=dice.choice(NUMBERS), second=dice.choice((0, 0, 1)),
               third=dice.choice((0, 1, 10)) if kind == ber.GETBULK else 0)
    most = dice.choice([LARGEST_DATAGRAM] * 3 + SHORT_MESSAGES)
    return dice.choice((message(body, 0), message(body), message_v3(body, most=most))).encode()


def _change(data, others, dice):
    if not data:
        data += dice.choice(CURIOUS)
        return
    at = dice.randrange(len(data))
    kind = dice.randrange(8)
    if kind == 0:
        data[at] ^= 1 << dice.randrange(8)
    elif kind == 1:
        data[at] = dice.choice((0, 1, 0x7F, 0x80, 0x81, 0x82, 0x84, 0xFF, dice.randrange(256)))
    elif kind == 2:
        data[at:at] = dice.choice(CURIOUS)
    elif kind == 3:
        del data[at:at + dice.choice((1, 1, 2, 4, 16))]
    elif kind == 4:
        piece = dice.choice(CURIOUS)
        data[at:at + len(piece)] = piece
    elif kind == 5:
        other = dice.choice(others)
        start = dice.randrange(len(other))
        data[at:] = other[start:]
    elif kind == 6:
        data[at:at] = data[at:at + dice.choice((1, 4, 16, 64))] * dice.choice((1, 2, 20))
    else:
        data[at] = (data[at] + dice.choice((-1, 1))) & 0xFF

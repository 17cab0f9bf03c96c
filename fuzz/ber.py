"""BER as trees whose encoding can be given errors: what the datagrams for the agent are made of.

    tree = parse(datagram)
    for node in tree.nodes():
        node.length = lambda size: b"\\x80"       # an indefinite length, say; whoever encloses it counts right
        bad = tree.encode()
"""

INTEGER, OCTETS, NULL, OID, SEQUENCE = 0x02, 0x04, 0x05, 0x06, 0x30
IP_ADDRESS, COUNTER32, GAUGE32, TIME_TICKS, OPAQUE, COUNTER64 = 0x40, 0x41, 0x42, 0x43, 0x44, 0x46
GET, GETNEXT, RESPONSE, SET, TRAP_V1, GETBULK, INFORM, TRAP_V2, REPORT = range(0xA0, 0xA9)
CONSTRUCTED = 0x20


def shortest_length(size):
    if size < 0x80:
        return bytes([size])
    octets = size.to_bytes((size.bit_length() + 7) // 8, "big")
    return bytes([0x80 | len(octets)]) + octets


class Node:
    """One value: a tag and either bytes or further nodes. `length` makes the length's bytes from the content's size."""

    def __init__(self, tag, content, length=shortest_length):
        self.tag = tag
        self.content = content
        self.length = length

    def encode(self):
        content = self.content if isinstance(self.content, bytes) else b"".join(n.encode() for n in self.content)
        return bytes([self.tag]) + self.length(len(content)) + content

    def nodes(self):
        yield self
        if not isinstance(self.content, bytes):
            for node in self.content:
                yield from node.nodes()


class Raw(Node):
    """Bytes as they are, where a value should stand."""

    def __init__(self, data):
        super().__init__(None, data)

    def encode(self):
        return self.content


def parse(data):
    """The tree of a well-formed message; of a string that holds a whole sequence (SNMPv3's security), its nodes too."""
    nodes = parse_all(data)
    if len(nodes) != 1:
        raise ValueError("not one value")
    return nodes[0]


def parse_all(data):
    nodes = []
    while data:
        tag, size, start = data[0], data[1], 2
        if size & 0x80:
            start = 2 + (size & 0x7F)
            size = int.from_bytes(data[2:start], "big")
        content, data = data[start:start + size], data[start + size:]
        if len(content) != size:
            raise ValueError("a value is shorter than its length")
        if tag & CONSTRUCTED:
            content = parse_all(content)
        elif tag == OCTETS and content[:1] == bytes([SEQUENCE]):
            try:
                content = [parse(content)]
            except (ValueError, IndexError):
                pass  # a string like any other
        nodes.append(Node(tag, content))
    return nodes


def integer(number, tag=INTEGER):
    return Node(tag, number.to_bytes(number.bit_length() // 8 + 1, "big", signed=True))


def octets(content, tag=OCTETS):
    return Node(tag, content)


def sub_identifier(number):
    encoded = [number & 0x7F]
    while number > 0x7F:
        number >>= 7
        encoded.append(0x80 | number & 0x7F)
    return bytes(reversed(encoded))


def oid(name, tag=OID):
    """From dotted text or a list of numbers of any size."""
    parts = [int(part) for part in name.split(".")] if isinstance(name, str) else list(name)
    return Node(tag, b"".join(sub_identifier(part) for part in [40 * parts[0] + parts[1]] + parts[2:]))


def sequence(*nodes):
    return Node(SEQUENCE, list(nodes))


def varbind(name, value=None):
    return sequence(oid(name) if isinstance(name, str) else name, value or Node(NULL, b""))


def pdu(kind, varbinds, request=1, second=0, third=0):
    """second and third: error status and index, or a GETBULK's non-repeaters and repetitions."""
    return Node(kind, [integer(request), integer(second), integer(third), sequence(*varbinds)])


def message(body, version=1, community=b"public"):
    return sequence(integer(version), octets(community), body)


def scoped_pdu(body, engine, context=b""):
    return sequence(octets(engine), octets(context), body)


def message_v3(body, engine, user=b"open", flags=4, context=b"", boots=0, time=0, authentication=b"", privacy=b"",
               number=1, model=3, most=65507):
    """Without encryption; flags 4: the sender wants reports."""
    security = sequence(octets(engine), integer(boots), integer(time), octets(user), octets(authentication),
                        octets(privacy))
    head = sequence(integer(number), integer(most), octets(bytes([flags])), integer(model))
    return sequence(integer(3), head, Node(OCTETS, [security]), scoped_pdu(body, engine, context))

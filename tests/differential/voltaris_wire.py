"""An independent decoder and encoder of Voltaris messages.

It shares nothing with the library: compare.py holds the two against each other. It is strict, and
it says of every message what the library has to say: the status, what the Event holds afterwards,
the lines that are logged and the value of each element. Nothing here is fast or forgiving on
purpose; it is meant to be read beside a table of the wire format.

A decoded value is an int, a bytes object (text, block, identity), a tuple (record, vector), an
Aggregate, or None where the element has no value.
"""

import hmac
import struct
from collections import namedtuple

AGGREGATED = 0x80000000
NUMBER_MASK = 0x3FFFFFFF
ELEMENT_HEADER = 12
SECURITY_HEADER = 12
MESSAGE_HEADER = 48
DIGEST = 20
FIXED_PART = SECURITY_HEADER + DIGEST + MESSAGE_HEADER
SMALLEST_IMAGE = SECURITY_HEADER + MESSAGE_HEADER

OK, NO_MEMORY_OR_BAD_ELEMENT, SIZE_MISMATCH, NOT_ACCEPTABLE = 0, 1, 3, 5
STATE_OK, STATE_FAILED = 0x101, 0x107
TRACE, DEBUG, WARN, ERROR = 0, 1, 3, 4

_U8 = struct.Struct(">B")
_I8 = struct.Struct(">b")
_U16 = struct.Struct(">H")
_U32 = struct.Struct(">I")
_I32 = struct.Struct(">i")
_HEADER = struct.Struct(">III")

Element = namedtuple("Element", "type length qualifier value")
Aggregate = namedtuple("Aggregate", "id block entries")
PlainEntry = namedtuple("PlainEntry", "tag data_len value")
ComboEntry = namedtuple("ComboEntry", "tag usage value")
SecurityHeader = namedtuple("SecurityHeader", "byte0 byte1 unnamed16 tag unnamed8 byte9 digest_len")
MessageHeader = namedtuple(
    "MessageHeader",
    "seq id ver shipment pri type app class_ action tlv_bytes tlv_count")


class Refused(Exception):
    """The element cannot be decoded; line is what is logged about it, or None."""

    def __init__(self, line=None):
        super().__init__(line)
        self.line = line


class Reader:
    """The value bytes of one element, and no byte beyond them."""

    __slots__ = ("data", "at", "end")

    def __init__(self, data, at, end):
        self.data, self.at, self.end = data, at, end

    def left(self):
        return self.end - self.at

    def take(self, count):
        at = self.at
        if count > self.end - at:
            raise Refused()
        self.at = at + count
        return self.data[at:at + count]

    def number(self, form):
        at = self.at
        if form.size > self.end - at:
            raise Refused()
        self.at = at + form.size
        return form.unpack_from(self.data, at)[0]

    def counted(self):
        return self.take(self.number(_U32))


class Writer:
    """Bytes under construction; lengths remembers where length and count words stand."""

    def __init__(self, whole_texts=False):
        self.data = bytearray()
        self.lengths = []
        # A text in memory ends at its first zero byte. A generator writes them whole.
        self.text = bytes if whole_texts else until_zero

    def number(self, form, value):
        self.data += form.pack(value)

    def length(self, value):
        self.lengths.append(len(self.data))
        self.data += _U32.pack(value)

    def counted(self, block):
        self.length(len(block))
        self.data += block


def until_zero(text):
    end = text.find(b"\0")
    return text if end < 0 else text[:end]


def show_text(text):
    return "t" + text.hex()


def show_block(block):
    return "x" + block.hex() if block else "-"


def show_id(identity):
    return "i" + identity.hex()


# The kinds of value. Each reads and writes the value of a plain element and of an aggregated entry,
# and shows a value as decode_server.cc does. Of most kinds both forms are the same.


class Kind:
    def read(self, reader):
        raise NotImplementedError

    def write(self, writer, value):
        raise NotImplementedError

    def show(self, value):
        raise NotImplementedError

    def read_plain(self, reader):
        return self.read(reader)

    def write_plain(self, writer, value):
        self.write(writer, value)

    def read_entry(self, reader):
        """Returns the value and the length that the entry records for it."""
        before = reader.at
        value = self.read(reader)
        return value, reader.at - before

    def write_entry(self, writer, value):
        self.write(writer, value)


class Number(Kind):
    def __init__(self, form):
        self.form = form

    def read(self, reader):
        return reader.number(self.form)

    def write(self, writer, value):
        writer.data += self.form.pack(value)

    def show(self, value):
        return str(value)


class Vector(Kind):
    def __init__(self, form):
        self.form = struct.Struct(form)

    def read(self, reader):
        return self.form.unpack(reader.take(self.form.size))

    def write(self, writer, value):
        writer.data += self.form.pack(*value)

    def show(self, value):
        return "[" + ",".join(map(str, value)) + "]"


class NoValue(Kind):
    def read(self, reader):
        return None

    def write(self, writer, value):
        pass

    def show(self, value):
        return "-"


class Block(Kind):
    """Opaque bytes: they fill a plain element and are counted in an entry."""

    def read_plain(self, reader):
        return reader.take(reader.left())

    def write_plain(self, writer, value):
        writer.data += value

    def read_entry(self, reader):
        block = reader.counted()
        return block or None, len(block)

    def write_entry(self, writer, value):
        writer.counted(value or b"")

    def show(self, value):
        return show_block(value)


class Text(Kind):
    """As Block, but zero-terminated in memory, and the terminator is counted there."""

    def read_plain(self, reader):
        return reader.take(reader.left())

    def write_plain(self, writer, value):
        writer.data += writer.text(value)

    def read_entry(self, reader):
        text = reader.counted()
        return text, len(text) + 1

    def write_entry(self, writer, value):
        writer.counted(writer.text(value))

    def show(self, value):
        return show_text(value)


class CorvaneId(Kind):
    def read(self, reader):
        return reader.take(32)

    def write(self, writer, value):
        writer.data += value

    def show(self, value):
        return show_id(value)


class SenderId(Kind):
    def read(self, reader):
        return reader.take(32), reader.number(_U32)

    def write(self, writer, value):
        writer.data += value[0]
        writer.number(_U32, value[1])

    def show(self, value):
        return f"({show_id(value[0])},{value[1]})"


class EventId(Kind):
    def read(self, reader):
        return reader.number(_U32), reader.take(32)

    def write(self, writer, value):
        writer.number(_U32, value[0])
        writer.data += value[1]

    def show(self, value):
        return f"({value[0]},{show_id(value[1])})"


class Neighbor(Kind):
    """Identity, label, block, flag."""

    def read(self, reader):
        return reader.take(32), reader.counted(), reader.counted(), reader.number(_I32)

    def write(self, writer, value):
        identity, label, block, flag = value
        writer.data += identity
        writer.counted(writer.text(label))
        writer.counted(block)
        writer.number(_I32, flag)

    def show(self, value):
        identity, label, block, flag = value
        return f"({show_id(identity)},{show_text(until_zero(label))},{show_block(block)},{flag})"


class Recurrence(Kind):
    """Text, two bytes, flag."""

    def read(self, reader):
        return reader.counted(), reader.number(_U8), reader.number(_U8), reader.number(_I32)

    def write(self, writer, value):
        text, byte1, byte2, flag = value
        writer.counted(writer.text(text))
        writer.number(_U8, byte1)
        writer.number(_U8, byte2)
        writer.number(_I32, flag)

    def show(self, value):
        text, byte1, byte2, flag = value
        return f"({show_text(until_zero(text))},{byte1},{byte2},{flag})"


class UsageHeader(Kind):
    """What precedes the value in an entry of the combined types."""

    def read(self, reader):
        return (reader.number(_U32), reader.number(_I32), reader.counted(), reader.counted(),
                reader.number(_I8), reader.number(_U8), reader.number(_U8), reader.counted())

    def write(self, writer, value):
        word, number, text1, text2, small, byte1, byte2, text3 = value
        writer.number(_U32, word)
        writer.number(_I32, number)
        writer.counted(writer.text(text1))
        writer.counted(writer.text(text2))
        writer.number(_I8, small)
        writer.number(_U8, byte1)
        writer.number(_U8, byte2)
        writer.counted(writer.text(text3))

    def show(self, value):
        word, number, text1, text2, small, byte1, byte2, text3 = value
        return (f"({word},{number},{show_text(until_zero(text1))},{show_text(until_zero(text2))},"
                f"{small},{byte1},{byte2},{show_text(until_zero(text3))})")


OPAQUE = Block()
TEXT = Text()
INT8 = Number(_I8)
UINT8 = Number(_U8)
UINT16 = Number(_U16)
INT32 = Number(_I32)
UINT32 = Number(_U32)
CORVANE_ID = CorvaneId()
SENDER_ID = SenderId()
EVENT_ID = EventId()
NEIGHBOR = Neighbor()
RECURRENCE = Recurrence()
ALARM = Vector(">IBBii")
DELTA_VECTOR = Vector(">11i")
USAGE_VECTOR = Vector(">11H")
NO_VALUE = NoValue()
USAGE_HEADER = UsageHeader()


def _catalogue():
    numbers = {
        OPAQUE: (0, 4, 10, 23, 24),
        SENDER_ID: (1,),
        CORVANE_ID: (2, 20, 21, 30),
        UINT32: (3, 25, 34, 47),
        TEXT: (5, 6, 7, 8, 9, 11, 27, 40, 48),
        INT8: (12,),
        UINT16: (13, 19, 29, 43, 49),
        UINT8: (14, 15, 16, 17, 18, 41),
        INT32: (22, 26, 31, 32, 33, 38, 51),
        NEIGHBOR: (28,),
        EVENT_ID: (35,),
        DELTA_VECTOR: (36, 45),
        NO_VALUE: (37, 42),
        USAGE_VECTOR: (39, 44),
        RECURRENCE: (46,),
        ALARM: (50,),
    }
    by_number = {number: kind for kind, all_of in numbers.items() for number in all_of}
    assert sorted(by_number) == list(range(52))
    return [by_number[number] for number in range(52)]


KINDS = _catalogue()


def kind_of(type_word):
    """Bit 30 does not count here."""
    number = type_word & NUMBER_MASK
    return KINDS[number] if number < len(KINDS) else None


def is_combo(type_word):
    """Bit 30 counts here: a type that has it set is never combined."""
    return type_word & 0x7FFFFFFF in (43, 44, 45)


def _read_aggregate(reader, type_word, kind):
    identity = reader.take(32)
    block = reader.counted()
    count = reader.number(_U32)
    # Each entry has at least its tag.
    if count > reader.left() // 4:
        raise Refused()
    combo = is_combo(type_word)
    entries = []
    for _ in range(count):
        tag = reader.number(_U32)
        if combo:
            usage = USAGE_HEADER.read(reader)
            entries.append(ComboEntry(tag, usage, kind.read_entry(reader)[0]))
        else:
            value, data_len = kind.read_entry(reader)
            entries.append(PlainEntry(tag, data_len, value))
    return Aggregate(identity, block, entries)


def decode_element(data, at, end, log):
    """Decodes the element at data[at], of which end - at bytes are left.

    Returns it and the offset behind it; raises Refused.
    """
    if end - at < ELEMENT_HEADER:
        raise Refused()
    type_word, length, qualifier = _HEADER.unpack_from(data, at)
    if length > end - at or length < ELEMENT_HEADER:
        raise Refused()
    behind = at + length
    if length == ELEMENT_HEADER:
        return Element(type_word, length, qualifier, None), behind
    number = type_word & NUMBER_MASK
    kind = kind_of(type_word)
    if kind is None:
        log.append((TRACE, f"cv_create_tlv_from_raw_buf: Skipping unknown TLV, type = {number}"))
        return Element(type_word, length, qualifier, None), behind
    reader = Reader(data, at + ELEMENT_HEADER, behind)
    if type_word & AGGREGATED:
        value = _read_aggregate(reader, type_word, kind)
    else:
        value = kind.read_plain(reader)
    if reader.left():
        raise Refused((ERROR, "cv_create_tlv_from_raw_buf: Received mismatched TLV for type "
                       f"{number}, dropping packet"))
    if kind is TEXT and not type_word & AGGREGATED:
        length += 1
    return Element(type_word, length, qualifier, value), behind


def write_element(writer, element):
    """Appends the element's wire form; its length is counted, never copied."""
    start = len(writer.data)
    writer.data += _HEADER.pack(element.type, 0, element.qualifier)
    writer.lengths.append(start + 4)
    kind, value = kind_of(element.type), element.value
    if value is not None and element.type & AGGREGATED:
        writer.data += value.id
        writer.counted(value.block)
        writer.length(len(value.entries))
        combo = is_combo(element.type)
        for entry in value.entries:
            writer.number(_U32, entry.tag)
            if combo:
                USAGE_HEADER.write(writer, entry.usage)
            kind.write_entry(writer, entry.value)
    elif value is not None:
        kind.write_plain(writer, value)
    _U32.pack_into(writer.data, start + 4, len(writer.data) - start)


def encode_element(element):
    writer = Writer()
    write_element(writer, element)
    return bytes(writer.data)


def show_element(element):
    kind, value = kind_of(element.type), element.value
    if value is None:
        shown = "-"
    elif element.type & AGGREGATED:
        parts = [f"{show_id(value.id)},{show_block(value.block)},{len(value.entries)}"]
        if is_combo(element.type):
            parts += [f"{e.tag}:{USAGE_HEADER.show(e.usage)}:{kind.show(e.value)}"
                      for e in value.entries]
        else:
            parts += [f"{e.tag}:{e.data_len}:{'-' if e.value is None else kind.show(e.value)}"
                      for e in value.entries]
        shown = "{" + ";".join(parts) + "}"
    else:
        shown = kind.show(value)
    return f"{element.type:08x} {element.length} {element.qualifier} {shown}"


def _swap_nibbles(byte):
    return byte >> 4 | (byte & 15) << 4


def read_security_header(data):
    byte0, byte1, unnamed16, tag, unnamed8, byte9, digest_len = struct.unpack_from(
        ">BBHIBBH", data)
    return SecurityHeader(_swap_nibbles(byte0), _swap_nibbles(byte1), unnamed16, tag, unnamed8,
                          _swap_nibbles(byte9), digest_len)


def read_message_header(data, at):
    return MessageHeader(*struct.unpack_from(">I32sBBBBBBHHH", data, at))


def write_message_header(header):
    return struct.pack(">I32sBBBBBBHHH", *header)


def digest_of(image, key):
    """The digest over everything from offset 32; its length is counted in 16 bits."""
    length = ((len(image) & 0xFFFF) - 32) & 0xFFFF
    return hmac.digest(key, image[32:32 + length], "sha1")


def encode_message(header, elements, comm, key):
    """The message as the library builds it: every field that is fixed has its fixed value."""
    writer = Writer()
    for element in elements:
        write_element(writer, element)
    header = header._replace(ver=1, type=10, app=17, tlv_bytes=len(writer.data),
                             tlv_count=len(elements))
    image = (struct.pack(">BBHIBBH", 0, 2, 0, 0, 0, 0x10 | comm, DIGEST) + bytes(DIGEST) +
             write_message_header(header) + bytes(writer.data))
    return image[:12] + digest_of(image, key) + image[32:]


class Message:
    """What the library makes of an image, field by field as in its Event."""

    def __init__(self):
        self.created = False
        self.status = OK
        self.state = STATE_OK
        self.raw = b""
        self.raw_valid = 0
        self.header_offset = None
        self.sec = None
        self.pak = None
        self.elements = None
        # Whether the digest is right; None where nobody looks at it.
        self.verdict = None
        self.log = []

    def fail(self, status):
        self.status, self.state = status, STATE_FAILED
        return self


def _signed(word):
    return word - (1 << 32) if word & 0x80000000 else word


def _validate(message, key, tag):
    """Compares the digests, and logs what there is to be said about them."""
    image = message.raw
    if len(image) < FIXED_PART:
        return False
    received, computed = image[12:32], digest_of(image, key)
    prefix = "vtn_validateMessageHeader: "
    if received != computed:
        message.log.append((WARN, prefix + "HMAC_SHA1 header mismatch #"))
        for digest in (received, computed):
            message.log.append((TRACE, "voltaris_dump_digest: digest: " + digest.hex()))
        return False
    if tag:
        message.log.append((WARN, prefix + f"Unexpected HMAC tag value {_signed(tag)}"))
    return True


def _unpack_short(message, image):
    """Images of 60 to 79 bytes: a header without a digest and without elements, or nothing."""
    if len(image) == SMALLEST_IMAGE and image[56:60] == bytes(4):
        message.header_offset = SECURITY_HEADER
        message.pak = read_message_header(image, SECURITY_HEADER)
        return message
    expected = FIXED_PART
    if len(image) >= 78:
        expected += _U16.unpack_from(image, 76)[0]
    return _size_mismatch(message, len(image), expected)


def _size_mismatch(message, got, expected):
    message.log.append(
        (TRACE, f"cv_unpack_event: Cant unpack size mismatch: got {got}, expecting: {expected}"))
    return message.fail(SIZE_MISMATCH)


def decode_message(image, key):
    message = Message()
    if len(image) < SMALLEST_IMAGE:
        message.log.append((DEBUG, "cv_mkevent_from_rawbuffer: Dropping truncated packet"))
        return message
    message.created = True
    message.raw, message.raw_valid = image, 1
    message.log.append((TRACE, f"cv_mkevent_from_rawbuffer: size {len(image)}"))

    sec = read_security_header(image)
    comm, enc, auth = image[9] & 15, image[1] & 15, image[9] >> 4
    if comm > 4 or sec.digest_len != DIGEST or enc != 2 or auth != 1:
        return message.fail(NOT_ACCEPTABLE)
    message.sec = sec

    if len(image) < FIXED_PART:
        return _unpack_short(message, image)
    message.header_offset = SECURITY_HEADER + DIGEST
    pak = read_message_header(image, message.header_offset)
    if len(image) != FIXED_PART + pak.tlv_bytes:
        return _size_mismatch(message, len(image), FIXED_PART + pak.tlv_bytes)
    message.pak = pak
    if pak.tlv_count == 0:
        return message

    at, elements = FIXED_PART, []
    try:
        for _ in range(pak.tlv_count):
            element, at = decode_element(image, at, len(image), message.log)
            elements.append(element)
    except Refused as refused:
        if refused.line:
            message.log.append(refused.line)
        message.log.append((TRACE, "cv_unpack_event: Cant unpack payload tlvs"))
        message.sec = message.pak = None
        return message.fail(NO_MEMORY_OR_BAD_ELEMENT)
    message.elements = elements
    message.verdict = _validate(message, key, sec.tag)
    message.raw, message.raw_valid, message.header_offset = b"", 0, None
    return message


def walk(body, log):
    """Decodes element by element, up to the first that is refused.

    Yields the place of the cursor, what remains, and whether the element was accepted.
    """
    at, remaining = 0, len(body)
    while True:
        try:
            behind = decode_element(body, at, len(body), log)[1]
        except Refused as refused:
            if refused.line:
                log.append(refused.line)
            # The length is taken off even so, once it has been read; the cursor stays.
            if len(body) - at >= ELEMENT_HEADER:
                remaining -= _U32.unpack_from(body, at + 4)[0]
            yield at, max(remaining, -1 << 31), False
            return
        remaining -= behind - at
        at = behind
        yield at, remaining, True


def dump_message(image, key):
    """The canonical text of what an image means, which decode_server writes as well."""
    message = decode_message(image, key)
    lines = []
    _dump_decoded(message, key, lines)
    log = []
    if len(image) > FIXED_PART:
        for at, remaining, accepted in walk(image[FIXED_PART:], log):
            _flush(log, lines)
            lines.append(f"walk {at} {remaining}" + ("" if accepted else " refused"))
    return message, "\n".join(lines)


def _flush(log, lines):
    lines.extend(f"log {level} {text}" for level, text in log)
    log.clear()


def _dump_decoded(message, key, lines):
    _flush(message.log, lines)
    if not message.created:
        lines.append("no event")
        return
    pak, elements = message.pak, message.elements
    lines.append(f"status {message.status}")
    lines.append(
        f"event {message.state:08x} raw {message.raw_valid} {len(message.raw)} "
        f"pak {int(pak is not None)} tlvs {-1 if elements is None else len(elements)}")
    if message.sec:
        lines.append("sec " + " ".join(map(str, message.sec)))
    if pak:
        lines.append(f"pak {pak.seq} {pak.id.hex()} " + " ".join(map(str, pak[2:])))
    if message.status != OK:
        return

    # Without elements the image is still there, and its digest can be asked for.
    verdict = bool(message.raw) and _validate(message, key, message.sec.tag)
    _flush(message.log, lines)
    offset = -1 if message.header_offset is None else message.header_offset
    lines.append(f"header {offset} digest {int(verdict)}")
    for element in elements or ():
        lines.append("tlv " + show_element(element))
        lines.append("as " + encode_element(element).hex())
    again = encode_message(pak, elements or (), message.sec.byte9 >> 4, key)
    lines.append("pdu " + again.hex())

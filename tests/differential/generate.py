"""Messages to decode: valid ones of every type and form, and ones damaged in many ways.

message(seed, index) always makes the same message, so that one index is enough to see a difference
again. About half of the messages are undamaged.
"""

import random
import struct
from collections import namedtuple

import voltaris_wire as wire

KEY = bytes(range(0x40, 0x54))
OTHER_KEY = bytes(range(0x20, 0x34))

# exact: undamaged, and in the form in which the library itself would write it.
# sound: undamaged, so that it has to decode with status 0.
Generated = namedtuple("Generated", "image sound exact damage")

LENGTHS = (0, 1, 2, 3, 4, 8, 11, 12, 13, 16, 20, 24, 36, 48, 80, 255, 256, 1400, 65535, 65536,
           0x3FFFFFFF, 0x40000000, 0x40000001, 0x7FFFFFFF, 0x80000000, 0x80000070, 0xFFFFFFF3,
           0xFFFFFFF4, 0xFFFFFFF8, 0xFFFFFFFF)
NUMBERS = (0, 1, 2, 0x7F, 0x80, 0xFF, 0x7FFF, 0x8000, 0xFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF)
LETTERS = b"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_. %n\xc3\xa4\xff\x01"


class Generator:
    def __init__(self, seed, index):
        self.rng = random.Random(f"{seed}/{index}")
        # Whether the elements made so far are such as the library would write.
        self.exact = True

    def chance(self, probability):
        return self.rng.random() < probability

    def below(self, limit):
        return int(self.rng.random() * limit)

    def one_of(self, choices):
        return choices[int(self.rng.random() * len(choices))]

    def unsigned(self, bits):
        if self.chance(0.3):
            return self.one_of(NUMBERS) & ((1 << bits) - 1)
        return self.rng.getrandbits(bits)

    def signed(self, bits):
        value = self.unsigned(bits)
        return value - (1 << bits) if value >> (bits - 1) else value

    def size(self):
        draw = self.rng.random()
        if draw < 0.1:
            return 0
        if draw < 0.9:
            return 1 + self.below(20)
        return self.below(300)

    def block(self):
        return self.rng.randbytes(self.size())

    def text(self):
        text = bytes(self.rng.choices(LETTERS, k=self.size()))
        if text and self.chance(0.02):
            at = self.below(len(text))
            text = text[:at] + b"\0" + text[at + 1:]
            self.exact = False
        return text

    def identity(self):
        return bytes(32) if self.chance(0.05) else self.rng.randbytes(32)

    def value(self, kind):
        return MAKERS[kind](self)

    def usage_header(self):
        return (self.unsigned(32), self.signed(32), self.text(), self.text(), self.signed(8),
                self.unsigned(8), self.unsigned(8), self.text())

    def aggregate(self, type_word, kind):
        count = self.one_of((0, 1, 1, 1, 2, 3, 4))
        if self.chance(0.02):
            count = self.one_of((15, 16, 17, 32, 33, 50))
        entries = []
        for _ in range(count):
            tag, value = self.unsigned(32), self.value(kind)
            if wire.is_combo(type_word):
                entries.append(wire.ComboEntry(tag, self.usage_header(), value))
            else:
                entries.append(wire.PlainEntry(tag, 0, value))
        block = self.rng.randbytes(16) if self.chance(0.7) else self.block()
        return wire.Aggregate(self.identity(), block, entries)

    def element(self, writer):
        """Appends an element."""
        number = self.below(len(wire.KINDS))
        if self.chance(0.05):
            number = self.one_of((52, 53, 60, 0xFF, 0x3FFFFFFF, self.rng.getrandbits(30) | 64))
        type_word = number | self.rng.getrandbits(1) << 31
        if self.chance(0.1):
            type_word |= 0x40000000
        qualifier = self.one_of((0, 0, 0, 1, 1, self.unsigned(32)))
        kind = wire.kind_of(type_word)
        value = None
        if kind is not None and not self.chance(0.04):
            value = self.aggregate(type_word, kind) if type_word >> 31 else self.value(kind)
        start = len(writer.data)
        wire.write_element(writer, wire.Element(type_word, 0, qualifier, value))
        if kind is None and self.chance(0.8):
            # Of an unknown type anything is a value; it is not kept.
            skipped = self.block()
            writer.data += skipped
            self.exact = self.exact and not skipped
            struct.pack_into(">I", writer.data, start + 4, wire.ELEMENT_HEADER + len(skipped))

    def elements(self):
        writer = wire.Writer(whole_texts=True)
        draw = self.rng.random()
        if draw < 0.04:
            count = 0
        elif draw < 0.96:
            count = 1 + self.below(4)
        else:
            count = 5 + self.below(40)
        for _ in range(count):
            if len(writer.data) > 60000:
                break
            before = len(writer.data)
            self.element(writer)
            if len(writer.data) == before:
                raise AssertionError("an element has no bytes")
        return writer

    def message(self):
        writer, starts = self.counted_elements()
        if self.chance(0.002):
            # Near the greatest size the digest covers less than the whole message.
            room = 65535 - self.below(110) - len(writer.data)
            if room >= wire.ELEMENT_HEADER:
                starts.append(len(writer.data))
                wire.write_element(
                    writer, wire.Element(10, 0, 0, self.rng.randbytes(room - 12)))
        header = wire.MessageHeader(self.unsigned(32), self.identity(), 1, self.unsigned(8),
                                    self.unsigned(8), 10, 17, self.unsigned(8), self.unsigned(16),
                                    len(writer.data), len(starts))
        draft = Draft(bytes((0, 2, 0, 0, 0, 0, 0, 0, 0, 0x10 | self.below(5), 0, 20)), header,
                      writer, starts)
        if self.chance(0.1):
            self.odd_headers(draft)
        if self.chance(0.5):
            image = draft.sealed(KEY)
            return Generated(image, True, self.exact, "none")
        damage = self.one_of(DAMAGES)
        image = damage(self, draft)
        if image is None:
            image = draft.sealed(KEY)
        return Generated(image, False, False, damage.__name__)

    def counted_elements(self):
        """The elements and where each of them begins."""
        writer = self.elements()
        starts, at = [], 0
        while at < len(writer.data):
            starts.append(at)
            at += struct.unpack_from(">I", writer.data, at + 4)[0]
        return writer, starts

    def odd_headers(self, draft):
        """Fields that nobody checks."""
        self.exact = False
        security = bytearray(draft.security)
        security[0] = self.unsigned(8)
        security[1] |= self.unsigned(4) << 4
        security[2:4] = self.rng.randbytes(2)
        if self.chance(0.5):
            security[4:8] = struct.pack(">I", self.unsigned(32))
        security[8] = self.unsigned(8)
        draft.security = bytes(security)
        draft.header = draft.header._replace(
            ver=self.unsigned(8), type=self.unsigned(8), app=self.unsigned(8))


class Draft:
    """A message before it is signed."""

    def __init__(self, security, header, writer, starts):
        self.security, self.header = security, header
        self.body, self.lengths, self.starts = writer.data, writer.lengths, starts

    def recount(self):
        """Makes the header say again how many bytes the elements have."""
        if len(self.body) > 65535:
            del self.body[65535:]
        self.header = self.header._replace(tlv_bytes=len(self.body))

    def sealed(self, key):
        image = (self.security + bytes(wire.DIGEST) + wire.write_message_header(self.header) +
                 bytes(self.body))
        return image[:12] + wire.digest_of(image, key) + image[32:]


def _make_vector_of(make):
    return lambda g: tuple(make(g) for _ in range(11))


MAKERS = {
    wire.OPAQUE: Generator.block,
    wire.TEXT: Generator.text,
    wire.INT8: lambda g: g.signed(8),
    wire.UINT8: lambda g: g.unsigned(8),
    wire.UINT16: lambda g: g.unsigned(16),
    wire.INT32: lambda g: g.signed(32),
    wire.UINT32: lambda g: g.unsigned(32),
    wire.CORVANE_ID: Generator.identity,
    wire.SENDER_ID: lambda g: (g.identity(), g.unsigned(32)),
    wire.EVENT_ID: lambda g: (g.unsigned(32), g.identity()),
    wire.NEIGHBOR: lambda g: (g.identity(), g.text(), g.block(), g.signed(32)),
    wire.RECURRENCE: lambda g: (g.text(), g.unsigned(8), g.unsigned(8), g.signed(32)),
    wire.ALARM: lambda g: (g.unsigned(32), g.unsigned(8), g.unsigned(8), g.signed(32),
                           g.signed(32)),
    wire.DELTA_VECTOR: _make_vector_of(lambda g: g.signed(32)),
    wire.USAGE_VECTOR: _make_vector_of(lambda g: g.unsigned(16)),
    wire.NO_VALUE: lambda g: None,
}


# Each damage changes a draft, which is then signed, or returns a finished image.


def _damaged_length(g, old, left):
    draw = g.rng.random()
    if draw < 0.4:
        return (old + g.one_of((-12, -4, -2, -1, 1, 2, 4, 12))) & 0xFFFFFFFF
    if draw < 0.6:
        return (left + g.one_of((-13, -12, -1, 0, 1, 12))) & 0xFFFFFFFF
    return g.one_of(LENGTHS)


def a_length_or_count_word(g, draft):
    if not draft.lengths:
        return
    at = g.one_of(draft.lengths)
    old = struct.unpack_from(">I", draft.body, at)[0]
    struct.pack_into(">I", draft.body, at, _damaged_length(g, old, len(draft.body) - at - 4))


def an_element_length(g, draft):
    if not draft.starts:
        return
    at = g.one_of(draft.starts)
    old = struct.unpack_from(">I", draft.body, at + 4)[0]
    struct.pack_into(">I", draft.body, at + 4, _damaged_length(g, old, len(draft.body) - at))


def bytes_more_or_less_in_an_element(g, draft):
    """The element's length follows, so that its value is what is wrong."""
    if not draft.starts:
        return
    at = g.one_of(draft.starts)
    old = struct.unpack_from(">I", draft.body, at + 4)[0]
    if g.chance(0.5):
        count = min(1 + g.below(6), old - 12)
        del draft.body[at + old - count:at + old]
        new = old - count
    else:
        more = g.rng.randbytes(1 + g.below(6)) if g.chance(0.5) else bytes(1 + g.below(50))
        draft.body[at + old:at + old] = more
        new = old + len(more)
    struct.pack_into(">I", draft.body, at + 4, new)
    draft.recount()


def a_type_word(g, draft):
    """The value stays that of another type."""
    if not draft.starts:
        return
    at = g.one_of(draft.starts)
    word = struct.unpack_from(">I", draft.body, at)[0]
    if g.chance(0.3):
        word ^= g.one_of((0x80000000, 0x40000000, 0xC0000000))
    else:
        word = (word & 0xC0000000) | g.below(56)
    struct.pack_into(">I", draft.body, at, word)


def an_element_count(g, draft):
    count = draft.header.tlv_count
    draft.header = draft.header._replace(
        tlv_count=g.one_of((0, 65535, (count + 1) & 0xFFFF, max(count - 1, 0), g.unsigned(16))))


def a_byte_count(g, draft):
    size = draft.header.tlv_bytes
    draft.header = draft.header._replace(
        tlv_bytes=g.one_of((0, 65535, (size + 1) & 0xFFFF, max(size - 1, 0), g.unsigned(16))))


def bytes_behind_the_elements(g, draft):
    draft.body += g.rng.randbytes(1 + g.below(30))
    draft.recount()


def elements_cut_short(g, draft):
    if not draft.body:
        return
    del draft.body[g.below(len(draft.body)):]
    draft.recount()


def bits_in_the_elements(g, draft):
    if not draft.body:
        return
    for _ in range(1 + g.below(4)):
        draft.body[g.below(len(draft.body))] ^= 1 << g.below(8)


def bits_anywhere(g, draft):
    image = bytearray(draft.sealed(KEY))
    for _ in range(1 + g.below(8)):
        image[g.below(len(image))] ^= 1 << g.below(8)
    return bytes(image)


def noise_for_elements(g, draft):
    draft.body[:] = g.rng.randbytes(g.below(200))
    draft.recount()


def image_cut_short(g, draft):
    image = draft.sealed(KEY)
    limit = 90 if g.chance(0.4) else len(image)
    return image[:g.below(min(limit, len(image)))]


def image_with_bytes_behind(g, draft):
    return draft.sealed(KEY) + g.rng.randbytes(1 + g.below(20))


def header_without_digest(g, draft):
    """The smallest image: the message header follows the security header."""
    header = draft.header._replace(tlv_bytes=0, tlv_count=0)
    if g.chance(0.3):
        header = header._replace(tlv_bytes=g.one_of((0, 1, 256)), tlv_count=g.one_of((0, 1, 256)))
    image = draft.security + wire.write_message_header(header)
    return image + g.rng.randbytes(g.one_of((0, 0, 0, 1, 16, 17, 18, 19, 20)))


def comm_enc_or_auth(g, draft):
    security = bytearray(draft.security)
    if g.chance(0.4):
        security[1] = g.one_of((0x02, 0x12, 0x01, 0x03, 0x20, g.unsigned(8)))
    else:
        security[9] = g.one_of((0x14, 0x15, 0x00, 0x21, 0x51, g.unsigned(8)))
    draft.security = bytes(security)


def a_digest_length(g, draft):
    length = g.one_of((0, 1, 16, 19, 21, 24, 32, 65535, g.unsigned(16)))
    draft.security = draft.security[:10] + struct.pack(">H", length)


def another_key(g, draft):
    return draft.sealed(OTHER_KEY)


def a_byte_of_the_digest(g, draft):
    image = bytearray(draft.sealed(KEY))
    image[12 + g.below(20)] ^= 1 + g.below(255)
    return bytes(image)


def no_digest(g, draft):
    image = draft.sealed(KEY)
    return image[:12] + bytes(20) + image[32:]


def noise(g, draft):
    return g.rng.randbytes(g.below(200))


DAMAGES = (a_length_or_count_word,) * 4 + (an_element_length,) * 2 + (
    bytes_more_or_less_in_an_element,) * 4 + (a_type_word,) * 3 + (bits_in_the_elements,) * 3 + (
        an_element_count, a_byte_count, bytes_behind_the_elements, elements_cut_short,
        bits_anywhere, noise_for_elements, image_cut_short, image_with_bytes_behind,
        header_without_digest, comm_enc_or_auth, a_digest_length, another_key,
        a_byte_of_the_digest, no_digest, noise)


def message(seed, index):
    return Generator(seed, index).message()

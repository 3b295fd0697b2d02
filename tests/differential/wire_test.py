#!/usr/bin/env python3
"""The Python side by itself: bytes written by hand, and a comparison that notices what is wrong."""

import unittest

import compare
import generate
import voltaris_wire as wire

KEY = generate.KEY
IDENTITY = bytes(range(1, 33))


def image_of(body, count, comm=1, key=KEY):
    image = (bytes.fromhex("00 02 0000 00000000 00") + bytes([0x10 | comm]) +
             bytes.fromhex("0014") + bytes(20) + bytes.fromhex("01020304") + IDENTITY +
             bytes.fromhex("01 ff 07 0a 11 0d 000b") + len(body).to_bytes(2, "big") +
             count.to_bytes(2, "big") + body)
    return image[:12] + wire.digest_of(image, key) + image[32:]


def decoded(body, count=1):
    return wire.decode_message(image_of(bytes.fromhex(body), count), KEY)


class Wire(unittest.TestCase):
    def assert_value(self, body, value):
        message = decoded(body)
        self.assertEqual((wire.OK, True), (message.status, message.verdict))
        self.assertEqual(value, message.elements[0].value)
        self.assertEqual(bytes.fromhex(body), wire.encode_element(message.elements[0]))

    def assert_refused(self, body, line=None):
        message = decoded(body)
        self.assertEqual((wire.NO_MEMORY_OR_BAD_ELEMENT, wire.STATE_FAILED),
                         (message.status, message.state))
        texts = [text for level, text in message.log if level == wire.ERROR]
        self.assertEqual([line] if line else [], texts)

    def test_message_header_has_its_fields(self):
        header = decoded("0000000c 0000000d 00000000 fd").pak
        self.assertEqual(
            wire.MessageHeader(0x01020304, IDENTITY, 1, 255, 7, 10, 17, 13, 11, 13, 1), header)

    def test_numbers_are_big_endian_and_signed_where_they_have_to_be(self):
        self.assert_value("0000000c 0000000d 00000000 fd", -3)
        self.assert_value("0000000d 0000000e 00000001 0102", 0x0102)
        self.assert_value("00000022 00000010 00000000 80000001", 0x80000001)
        self.assert_value("00000026 00000010 00000000 fffffffe", -2)

    def test_text_counts_its_terminator_in_memory_only(self):
        message = decoded("00000009 0000000f 00000000 616263")
        self.assertEqual((16, b"abc"), (message.elements[0].length, message.elements[0].value))
        self.assert_value("00000009 0000000f 00000000 616263", b"abc")

    def test_text_ends_at_a_zero_byte_when_it_is_encoded_again(self):
        message = decoded("00000009 0000000f 00000000 610063")
        self.assertEqual(bytes.fromhex("00000009 0000000d 00000000 61"),
                         wire.encode_element(message.elements[0]))

    def test_structures_are_their_fields_one_after_another(self):
        self.assert_value("00000032 0000001a 00000000 00000001 02 03 ffffffff 00000004",
                          (1, 2, 3, -1, 4))
        self.assert_value("0000002e 00000018 00000000 00000002 6162 05 06 00000001",
                          (b"ab", 5, 6, 1))
        self.assert_value("0000001c 0000003b 00000000" + IDENTITY.hex() +
                          "00000001 6c 00000002 0809 00000001", (IDENTITY, b"l", b"\x08\x09", 1))

    def test_aggregate_counts_texts_and_blocks(self):
        body = ("80000009 0000003f 00000000" + IDENTITY.hex() +
                "00000000 00000001 00000007 00000003 616263")
        self.assert_value(body, wire.Aggregate(IDENTITY, b"", [wire.PlainEntry(7, 4, b"abc")]))

    def test_combined_entry_has_a_usage_header_unless_bit_30_is_set(self):
        usage = "00000001 00000002 00000001 6e 00000000 fd 05 64 00000000"
        self.assert_value(
            "8000002b 00000052 00000000" + IDENTITY.hex() + "00000000 00000001 00000007" + usage +
            "0203",
            wire.Aggregate(IDENTITY, b"", [
                wire.ComboEntry(7, (1, 2, b"n", b"", -3, 5, 100, b""), 0x0203)]))
        self.assert_value(
            "c000002b 0000003a 00000000" + IDENTITY.hex() + "00000000 00000001 00000007 0203",
            wire.Aggregate(IDENTITY, b"", [wire.PlainEntry(7, 2, 0x0203)]))

    def test_element_of_twelve_bytes_has_no_value(self):
        for type_word in ("0000000d", "80000007", "0000002a", "8000003c"):
            self.assert_value(type_word + "0000000c 00000005", None)

    def test_value_of_an_unknown_type_is_skipped(self):
        message = decoded("0000003c 00000014 00000000 0102030405060708")
        self.assertEqual((20, None), (message.elements[0].length, message.elements[0].value))
        self.assertIn((wire.TRACE,
                       "cv_create_tlv_from_raw_buf: Skipping unknown TLV, type = 60"), message.log)

    def test_left_over_bytes_are_refused_aloud_and_missing_ones_silently(self):
        line = ("cv_create_tlv_from_raw_buf: Received mismatched TLV for type {}, dropping "
                "packet").format
        self.assert_refused("0000000d 00000010 00000000 01020304", line(13))
        self.assert_refused("0000002a 0000000d 00000000 01", line(42))
        self.assert_refused("0000000d 0000000d 00000000 01")
        self.assert_refused("0000000d 0000000b 00000000")
        self.assert_refused("0000000d 0000000f 00000000 0102")
        self.assert_refused("80000007 00000034 00000000" + IDENTITY.hex() + "00000000 40000001")

    def test_sizes_and_headers_have_their_statuses(self):
        image = image_of(b"", 0)
        self.assertFalse(wire.decode_message(image[:59], KEY).created)
        self.assertEqual(wire.OK, wire.decode_message(image, KEY).status)
        self.assertEqual(wire.SIZE_MISMATCH, wire.decode_message(image + b"\0", KEY).status)
        self.assertEqual(wire.SIZE_MISMATCH, wire.decode_message(image[:79], KEY).status)
        for at, byte in ((1, 3), (9, 0x15), (9, 0x01), (11, 19)):
            damaged = image[:at] + bytes([byte]) + image[at + 1:]
            self.assertEqual(wire.NOT_ACCEPTABLE, wire.decode_message(damaged, KEY).status)
        self.assertEqual(
            wire.OK, wire.decode_message(image[:12] + image[32:76] + bytes(4), KEY).status)

    def test_wrong_digest_is_a_verdict_and_no_status(self):
        body = bytes.fromhex("0000000d 0000000e 00000001 0102")
        message = wire.decode_message(image_of(body, 1, key=generate.OTHER_KEY), KEY)
        self.assertEqual((wire.OK, False), (message.status, message.verdict))

    def test_message_is_encoded_to_the_bytes_it_came_from(self):
        image = image_of(bytes.fromhex("0000000d 0000000e 00000001 0102"), 1, comm=3)
        message = wire.decode_message(image, KEY)
        self.assertEqual(image, wire.encode_message(message.pak, message.elements, 3, KEY))


class Generator(unittest.TestCase):
    def test_makes_the_same_message_again(self):
        self.assertEqual(generate.message(5, 77), generate.message(5, 77))
        self.assertNotEqual(generate.message(5, 77), generate.message(6, 77))

    def test_makes_every_type_in_both_forms(self):
        seen = set()
        for index in range(1500):
            message = wire.decode_message(generate.message(1, index).image, KEY)
            seen |= {element.type & 0xBFFFFFFF for element in message.elements or ()
                     if element.value is not None}
        none = {37, 42}  # without a value, plain
        self.assertEqual(set(), set(range(52)) - none - seen)
        self.assertEqual(set(), {number | wire.AGGREGATED for number in range(52)} - seen)

    def test_makes_every_status_and_both_verdicts(self):
        seen = set()
        for index in range(500):
            message = wire.decode_message(generate.message(1, index).image, KEY)
            seen |= {message.created, (message.status, message.verdict)}
        self.assertEqual(
            {True, False, (0, None), (0, True), (0, False), (1, None), (3, None), (5, None)}, seen)


class Comparison(unittest.TestCase):
    def setUp(self):
        self.batch = [(index, generate.message(1, index)) for index in range(60)]
        self.texts = [wire.dump_message(generated.image, KEY)[1] for _, generated in self.batch]

    def differences(self, texts):
        return compare.check_all(self.batch, KEY, texts)[1]

    def test_finds_nothing_between_equal_texts(self):
        self.assertEqual([], self.differences(self.texts))

    def test_finds_every_changed_line(self):
        tried = 0
        for i, text in enumerate(self.texts):
            lines = text.split("\n")
            for j in range(len(lines)):
                changed = "\n".join([*lines[:j], lines[j] + "0", *lines[j + 1:]])
                found = self.differences([*self.texts[:i], changed, *self.texts[i + 1:]])
                self.assertEqual([i], [index for index, _ in found])
                tried += 1
        self.assertGreater(tried, 300)

    def test_demands_the_very_bytes_of_a_sound_message(self):
        index, generated = next(pair for pair in self.batch if pair[1].exact)
        unsigned = generated._replace(
            image=generated.image[:12] + bytes(20) + generated.image[32:])
        text = wire.dump_message(unsigned.image, KEY)[1]
        found = compare.check_all([(index, unsigned)], KEY, [text])[1]
        self.assertIn("other bytes", found[0][1])

    def test_notices_a_server_that_dies(self):
        found = compare.run_batch((["false"], 1, 0, 3))[1]
        self.assertIn("answered 0 of 3", found[0][1])


if __name__ == "__main__":
    unittest.main()

// Elements of every kind as wire bytes, in a form that decoding and encoding keep unchanged.
#ifndef VT_TESTS_PROTOCOL_ELEMENTS_H_
#define VT_TESTS_PROTOCOL_ELEMENTS_H_

#include <vector>

#include "tests/harness/hex.h"

namespace vt::testing {

inline std::vector<Bytes> EveryElement() {
  static const char* const kElements[] = {
      // plain: text, sender id, uint16, int8, keywords
      "00000008 00000010 00000000 686f6d65",
      "00000001 00000030 00000001 32*61 00000001",
      "0000000d 0000000e 00000000 1388",
      "0000000c 0000000d 00000000 fd",
      "0000000a 00000010 00000001 6100 6200",
      // neighbor, recurrence, alarm
      "0000001c 0000003d 00000000 32*62 00000002 6869 00000003 010203 00000001",
      "0000002e 00000019 00000000 00000003 6d6f6e 01 02 00000001",
      "00000032 0000001a 00000000 00000005 01 02 00000003 fffffffc",
      // delta vector, usage vector, corvane id, event id
      "00000024 00000038 00000000 10*00000001 ffffffff",
      "00000027 00000022 00000000 11*0102",
      "00000002 0000002c 00000001 32*64",
      "00000023 00000030 00000000 00000009 32*65",
      // uint32, uint8, int32, long, reply-to block
      "00000003 00000010 00000000 00000007",
      "0000000e 0000000d 00000000 05",
      "00000026 00000010 00000001 fffffffe",
      "0000001f 00000010 00000000 0000003c",
      "00000017 0000001c 00000000 0002 1d10 7f000001 8*00",
      // nothing but a header: an empty text, a type without value
      "00000009 0000000c 00000001",
      "0000002a 0000000c 00000000",
      // aggregates: two uint16, a text, a block, an acknowledgement, none at all
      "8000000d 00000042 00000000 32*63 00000002 aabb 00000002 00000001 0064 00000002 00c8",
      "80000009 00000040 00000000 32*63 00000000 00000001 00000007 00000004 6c616d70",
      "8000000a 0000003f 00000000 32*63 00000000 00000001 00000007 00000003 612c62",
      "8000002a 0000003c 00000000 32*63 00000000 00000002 00000005 00000000",
      "8000000d 00000034 00000000 32*63 00000000 00000000",
      // aggregates of structures: neighbor, recurrence
      "8000001c 00000065 00000000 32*63 00000000 00000001 00000001 "
      "32*66 00000001 6e 00000000 00000000",
      "8000002e 00000043 00000000 32*63 00000000 00000001 00000001 00000001 78 03 04 00000000",
      // combined: uint16, usage vector, delta vector
      "8000002b 00000054 00000000 32*63 00000000 00000001 00000009 "
      "00000001 00000002 00000001 41 00000002 4242 fd 05 32 00000000 07d0",
      "8000002c 00000065 00000000 32*63 00000000 00000001 00000000 "
      "00000000 00000000 00000000 00000000 00 00 00 00000000 11*0003",
      "8000002d 0000007b 00000000 32*63 00000000 00000001 00000000 "
      "00000000 00000000 00000000 00000000 00 00 00 00000000 11*00000004",
      // with bit 30 set the combined types hold plain entries
      "c000002b 0000003a 00000000 32*63 00000000 00000001 00000001 0102",
      "c000002c 0000004e 00000000 32*63 00000000 00000001 00000001 11*0102",
      "c000002d 00000064 00000000 32*63 00000000 00000001 00000001 11*01020304",
  };
  std::vector<Bytes> elements;
  for (const char* element : kElements) elements.push_back(Hex(element));
  return elements;
}

// Joined is the elements back to back, as they travel.
inline Bytes Joined(const std::vector<Bytes>& elements) {
  Bytes area;
  for (const Bytes& element : elements) area.insert(area.end(), element.begin(), element.end());
  return area;
}

}  // namespace vt::testing

#endif  // VT_TESTS_PROTOCOL_ELEMENTS_H_

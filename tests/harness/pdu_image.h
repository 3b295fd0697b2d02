// Wire images of messages, built field by field and signed without the library under test (its
// HMAC-SHA1 comes straight from libcrypto). Every field can be given a wrong value.
//
//   PduImage image;
//   image.seq = 7;
//   image.elements = {Element(15, 0, Counted(Text("x")))};
//   Bytes wire = image.Signed(key);
#ifndef VT_TESTS_HARNESS_PDU_IMAGE_H_
#define VT_TESTS_HARNESS_PDU_IMAGE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "tests/harness/hex.h"

namespace vt::testing {

// Offsets of the message from the start of its image.
inline constexpr std::size_t kDigestOffset = 12;
inline constexpr std::size_t kDigestSize = 20;
inline constexpr std::size_t kMessageHeaderOffset = 32;
inline constexpr std::size_t kTlvBytesOffset = 76;
inline constexpr std::size_t kTlvCountOffset = 78;
inline constexpr std::size_t kTlvAreaOffset = 80;

// U16 and U32 are big-endian.
Bytes U16(std::uint16_t value);
Bytes U32(std::uint32_t value);
// Counted is the 4-byte length of bytes, then bytes.
Bytes Counted(const Bytes& bytes);
// Identity32 is text cut or zero-padded to 32 bytes.
Bytes Identity32(std::string_view text);
// DeviceHeader is a 32-byte identity (padded as by Identity32), then data with its 4-byte length.
Bytes DeviceHeader(std::string_view identity, const Bytes& data = {});

// Element is the 12-byte element header (type, length, qualifier) with the right length, then
// value. ElementWithLength writes the given length instead, whatever the size of value.
Bytes Element(std::uint32_t type, std::uint32_t qualifier, const Bytes& value);
Bytes ElementWithLength(std::uint32_t type, std::uint32_t length, std::uint32_t qualifier,
                        const Bytes& value);

// HmacSha1 is the 20-byte HMAC-SHA1 of message under key.
Bytes HmacSha1(const Bytes& key, const Bytes& message);

// Sign puts the digest of everything from offset 32 on into offset 12..31 of a complete image.
Bytes Sign(Bytes image, const Bytes& key);

// PduImage holds the fields of one message in wire order; the defaults are an acceptable message
// without elements. Fields that have no name are called after their offset.
struct PduImage {
  std::uint8_t byte0 = 0;
  std::uint8_t nibble1 = 0;  // high four bits of byte 1
  std::uint8_t enc = 2;      // low four bits of byte 1
  std::uint16_t word2 = 0;
  std::uint32_t tag = 0;
  std::uint8_t byte8 = 0;
  std::uint8_t auth = 1;  // high four bits of byte 9
  std::uint8_t comm = 2;  // low four bits of byte 9
  std::uint16_t digest_len = 20;
  Bytes digest = Bytes(20, 0);  // what Unsigned puts at offset 12

  std::uint32_t seq = 1;
  Bytes identity = Bytes(32, 'a');
  std::uint8_t ver = 1;
  std::uint8_t shipment = 0;
  std::uint8_t pri = 0;
  std::uint8_t type = 10;
  std::uint8_t app = 17;
  std::uint8_t cls = 10;
  std::uint16_t action = 11;
  std::optional<std::uint16_t> tlv_bytes;  // the size of elements unless set
  std::optional<std::uint16_t> tlv_count;  // the number of elements unless set
  std::vector<Bytes> elements;

  Bytes Unsigned() const;
  // Signed is Unsigned with the digest under key at offset 12.
  Bytes Signed(const Bytes& key) const;
};

}  // namespace vt::testing

#endif  // VT_TESTS_HARNESS_PDU_IMAGE_H_

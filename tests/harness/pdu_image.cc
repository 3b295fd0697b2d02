#include "tests/harness/pdu_image.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <stdexcept>

namespace vt::testing {
namespace {

std::uint8_t Nibbles(std::uint8_t high, std::uint8_t low) {
  return static_cast<std::uint8_t>((high & 0x0F) << 4 | (low & 0x0F));
}

}  // namespace

Bytes U16(std::uint16_t value) {
  return {static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value & 0xFF)};
}

Bytes U32(std::uint32_t value) {
  return U16(static_cast<std::uint16_t>(value >> 16)) +
         U16(static_cast<std::uint16_t>(value & 0xFFFF));
}

Bytes Counted(const Bytes& bytes) { return U32(static_cast<std::uint32_t>(bytes.size())) + bytes; }

Bytes Identity32(std::string_view text) {
  Bytes result = Text(text.substr(0, 32));
  result.resize(32);
  return result;
}

Bytes DeviceHeader(std::string_view identity, const Bytes& data) {
  return Identity32(identity) + Counted(data);
}

Bytes Element(std::uint32_t type, std::uint32_t qualifier, const Bytes& value) {
  return ElementWithLength(type, static_cast<std::uint32_t>(12 + value.size()), qualifier, value);
}

Bytes ElementWithLength(std::uint32_t type, std::uint32_t length, std::uint32_t qualifier,
                        const Bytes& value) {
  return Cat({U32(type), U32(length), U32(qualifier), value});
}

Bytes HmacSha1(const Bytes& key, const Bytes& message) {
  static constexpr std::uint8_t kNothing = 0;
  Bytes digest(kDigestSize);
  unsigned int digest_size = 0;
  // A null key would mean "the key of the call before", so an empty one needs an address.
  const unsigned char* done =
      HMAC(EVP_sha1(), key.empty() ? &kNothing : key.data(), static_cast<int>(key.size()),
           message.data(), message.size(), digest.data(), &digest_size);
  if (done == nullptr || digest_size != kDigestSize) throw std::runtime_error("HMAC-SHA1 failed");
  return digest;
}

Bytes Sign(Bytes image, const Bytes& key) {
  if (image.size() < kMessageHeaderOffset) throw std::invalid_argument("the image is too short");
  const Bytes digest = HmacSha1(key, Bytes(image.begin() + kMessageHeaderOffset, image.end()));
  std::copy(digest.begin(), digest.end(), image.begin() + kDigestOffset);
  return image;
}

Bytes PduImage::Unsigned() const {
  Bytes area;
  for (const Bytes& element : elements) area = std::move(area) + element;
  return Cat({{byte0, Nibbles(nibble1, enc)},
              U16(word2),
              U32(tag),
              {byte8, Nibbles(auth, comm)},
              U16(digest_len),
              digest,
              U32(seq),
              identity,
              {ver, shipment, pri, type, app, cls},
              U16(action),
              U16(tlv_bytes.value_or(static_cast<std::uint16_t>(area.size()))),
              U16(tlv_count.value_or(static_cast<std::uint16_t>(elements.size()))),
              area});
}

Bytes PduImage::Signed(const Bytes& key) const { return Sign(Unsigned(), key); }

}  // namespace vt::testing

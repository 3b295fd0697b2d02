// What the targets share: inputs in blocks of exactly their size, the messages in an input, keys.
//
// An input that holds messages holds them one after the other, each as long as its own header says
// (80 bytes and the TLV bytes); what is left behind the last whole one belongs to the target.
#ifndef VT_FUZZ_INPUT_H_
#define VT_FUZZ_INPUT_H_

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>

#include "vtapi.h"

namespace vt::fuzz {

using Bytes = std::span<const std::uint8_t>;

// Block is a copy of bytes that ends where its heap block ends, so that a read beyond it is seen.
class Block {
 public:
  explicit Block(std::size_t size)
      : data_(static_cast<std::uint8_t*>(std::malloc(size != 0 ? size : 1))), size_(size) {}
  explicit Block(Bytes from) : Block(from.size()) {
    if (size_ != 0) std::memcpy(data_, from.data(), size_);
  }
  ~Block() { std::free(data_); }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;

  [[nodiscard]] std::uint8_t* data() const { return data_; }
  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] Bytes bytes() const { return {data_, size_}; }

 private:
  std::uint8_t* data_;
  std::size_t size_;
};

inline std::uint32_t Load16(const std::uint8_t* at) {
  return static_cast<std::uint32_t>(at[0]) << 8 | at[1];
}

inline std::uint32_t Load32(const std::uint8_t* at) { return Load16(at) << 16 | Load16(at + 2); }

inline constexpr std::size_t kTlvBytesOffset = 76;

// MessageSize is the size of the message that input begins with, cut to what there is.
inline std::size_t MessageSize(Bytes input) {
  if (input.size() < VT_PDU_HEADER_SIZE) return input.size();
  const std::size_t size = VT_PDU_HEADER_SIZE + Load16(input.data() + kTlvBytesOffset);
  return size < input.size() ? size : input.size();
}

// TakeMessage cuts that message off.
inline Bytes TakeMessage(Bytes& input) {
  const Bytes message = input.first(MessageSize(input));
  input = input.subspan(message.size());
  return message;
}

inline hmac_context KeyedWith(std::uint8_t fill) {
  std::uint8_t key[VT_DIGEST_SIZE];
  std::memset(key, fill, sizeof key);
  hmac_context context;
  std::memset(&context, 0, sizeof context);
  hmac_shainit(&context, key, sizeof key);
  return context;
}

// The key that the seeds and the mutator sign with, and another one.
inline const hmac_context& RightKey() {
  static const hmac_context key = KeyedWith(0xA5);
  return key;
}
inline const hmac_context& WrongKey() {
  static const hmac_context key = KeyedWith(0x5A);
  return key;
}

// Sign puts the digest under the right key into a message; what is shorter has no place for it.
inline void Sign(std::uint8_t* message, std::size_t size) {
  constexpr std::size_t kDigestOffset = 12;
  constexpr std::size_t kSignedOffset = 32;
  if (size < VT_PDU_HEADER_SIZE) return;
  hmac_sha_msg(&RightKey(), message + kSignedOffset,
               static_cast<std::uint32_t>(size - kSignedOffset), message + kDigestOffset);
}

// SetUpLog formats every line of every 16th input (by its size), and no line of the others.
inline void SetUpLog(std::size_t size) {
  static const bool to_callback = [] {
    setLogLevel(6);
    setLogCallback([](std::uint32_t /*level*/, const char* /*text*/) {});
    enableLogCallback(1);
    return true;
  }();
  constexpr std::size_t kSilentInputs = 15;
  setLogLevel(to_callback && (size & kSilentInputs) == 0 ? VT_LOG_TRACE : 6);
}

// Encode returns the wire form of an element, in a block of exactly vt_get_tlv_size bytes.
inline Block Encode(const Tlv& tlv) {
  const Block wire(vt_get_tlv_size(&tlv));
  const std::uint32_t written = cv_update_raw_buf_from_tlv(&tlv, wire.data());
  if (written != wire.size()) std::abort();
  return Block(wire.bytes());
}

inline bool Same(Bytes a, Bytes b) {
  return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size()) == 0);
}

inline volatile std::uint8_t seen;

// Look reads all bytes, so that the address sanitizer sees what is handed out.
inline void Look(const void* at, std::size_t size) {
  const auto* bytes = static_cast<const std::uint8_t*>(at);
  std::uint8_t sum = 0;
  for (std::size_t i = 0; i < size; ++i) sum = static_cast<std::uint8_t>(sum ^ bytes[i]);
  seen = sum;
}

}  // namespace vt::fuzz

#endif  // VT_FUZZ_INPUT_H_

// Bytes of unknown origin, read from the front. One function moves the cursor, so that none can
// read beyond the end.
#ifndef VT_TOOLS_BYTE_READER_H_
#define VT_TOOLS_BYTE_READER_H_

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vt::tools {

using ByteView = std::span<const std::uint8_t>;

enum class ByteOrder { kBig, kLittle };

class ByteReader {
 public:
  explicit ByteReader(ByteView bytes, ByteOrder order = ByteOrder::kBig)
      : rest_(bytes), order_(order) {}

  // Take advances past size bytes and sets taken to them, or returns false and changes nothing.
  [[nodiscard]] bool Take(std::size_t size, ByteView& taken) {
    if (size > rest_.size()) return false;
    taken = rest_.first(size);
    rest_ = rest_.subspan(size);
    return true;
  }

  [[nodiscard]] bool Skip(std::size_t size) {
    ByteView skipped;
    return Take(size, skipped);
  }

  // Read takes a number in the order of the reader.
  template <std::unsigned_integral Number>
  [[nodiscard]] bool Read(Number& number) {
    ByteView bytes;
    if (!Take(sizeof(Number), bytes)) return false;
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      value = value << 8 | bytes[order_ == ByteOrder::kBig ? i : bytes.size() - 1 - i];
    }
    number = static_cast<Number>(value);
    return true;
  }

  [[nodiscard]] ByteView rest() const { return rest_; }

 private:
  ByteView rest_;
  ByteOrder order_;
};

}  // namespace vt::tools

#endif  // VT_TOOLS_BYTE_READER_H_

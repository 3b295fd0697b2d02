// The bounded reader through which all bytes from the network pass. One function moves the cursor;
// all others call it, so none can read beyond the end.
#ifndef VT_SUPPORT_READER_H
#define VT_SUPPORT_READER_H

#include <concepts>
#include <cstddef>

#include "support/bytes.h"

namespace vt::support {

class Reader {
 public:
  explicit constexpr Reader(Bytes input) : rest_(input) {}

  // Take advances past n bytes and sets out to them, or returns false and leaves both unchanged.
  [[nodiscard]] constexpr bool Take(std::size_t n, Bytes& out) {
    if (n > rest_.size()) return false;
    out = rest_.first(n);
    rest_ = rest_.subspan(n);
    return true;
  }

  // Skip advances past n bytes, or returns false and stays.
  [[nodiscard]] constexpr bool Skip(std::size_t n) {
    Bytes skipped;
    return Take(n, skipped);
  }

  // Read takes a big-endian integer, or returns false and leaves out unchanged.
  template <std::integral T>
  [[nodiscard]] bool Read(T& out) {
    Bytes bytes;
    if (!Take(sizeof(T), bytes)) return false;
    out = LoadNetwork<T>(bytes.data());
    return true;
  }

  [[nodiscard]] constexpr std::size_t remaining() const { return rest_.size(); }
  [[nodiscard]] constexpr const std::uint8_t* cursor() const { return rest_.data(); }

 private:
  Bytes rest_;
};

}  // namespace vt::support

#endif  // VT_SUPPORT_READER_H

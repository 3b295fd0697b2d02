// The bounded writer of wire images. Whoever makes one has computed the size before; what would go
// beyond it is not written.
#ifndef VT_SUPPORT_WRITER_H
#define VT_SUPPORT_WRITER_H

#include <concepts>
#include <cstddef>
#include <cstring>

#include "support/bytes.h"

namespace vt::support {

class Writer {
 public:
  Writer(void* output, std::size_t room) : next_(static_cast<std::uint8_t*>(output)), room_(room) {}

  // Reserve returns the place of the next n bytes and advances, or null when there is no room.
  [[nodiscard]] std::uint8_t* Reserve(std::size_t n) {
    if (n > room_) return nullptr;
    std::uint8_t* place = next_;
    next_ += n;
    room_ -= n;
    written_ += n;
    return place;
  }

  void Write(const void* bytes, std::size_t n) {
    if (n == 0) return;
    if (std::uint8_t* place = Reserve(n)) std::memcpy(place, bytes, n);
  }

  void WriteZeros(std::size_t n) {
    if (std::uint8_t* place = Reserve(n)) std::memset(place, 0, n);
  }

  // Write puts an integer in network order.
  template <std::integral T>
  void Write(T value) {
    if (std::uint8_t* place = Reserve(sizeof(T))) StoreNetwork(place, value);
  }

  [[nodiscard]] std::size_t written() const { return written_; }

 private:
  std::uint8_t* next_;
  std::size_t room_;
  std::size_t written_ = 0;
};

}  // namespace vt::support

#endif  // VT_SUPPORT_WRITER_H

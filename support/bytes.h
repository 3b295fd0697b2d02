// Integers in network order at any address. All copies are of bytes, so nothing needs alignment.
#ifndef VT_SUPPORT_BYTES_H
#define VT_SUPPORT_BYTES_H

#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <span>

namespace vt::support {

using Bytes = std::span<const std::uint8_t>;

static_assert(std::endian::native == std::endian::little, "written for little-endian hosts");

// NetworkOrder exchanges host and network order.
template <std::integral T>
[[nodiscard]] constexpr T NetworkOrder(T value) {
  if constexpr (sizeof(T) == 1) {
    return value;
  } else if constexpr (sizeof(T) == 2) {
    return static_cast<T>(__builtin_bswap16(static_cast<std::uint16_t>(value)));
  } else {
    static_assert(sizeof(T) == 4);
    return static_cast<T>(__builtin_bswap32(static_cast<std::uint32_t>(value)));
  }
}

// LoadHost copies a T in host order from any address.
template <class T>
[[nodiscard]] T LoadHost(const void* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

// LoadNetwork and StoreNetwork convert between a T and its big-endian bytes.
template <std::integral T>
[[nodiscard]] T LoadNetwork(const void* at) {
  return NetworkOrder(LoadHost<T>(at));
}

template <std::integral T>
void StoreNetwork(void* at, T value) {
  const T wire = NetworkOrder(value);
  std::memcpy(at, &wire, sizeof wire);
}

// AddressBehind returns the address n bytes behind at.
[[nodiscard]] inline const std::uint8_t* AddressBehind(const void* at, std::size_t n) {
  return static_cast<const std::uint8_t*>(at) + n;
}

}  // namespace vt::support

#endif  // VT_SUPPORT_BYTES_H

// IPv4 socket addresses as the system calls want them.
#ifndef VT_TRANSPORT_ADDRESS_H
#define VT_TRANSPORT_ADDRESS_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>

namespace vt::transport {

// The length that is passed for every address.
constexpr socklen_t kAddressSize = sizeof(sockaddr_in);
static_assert(kAddressSize == 16);

// MakeAddress takes an address in network order and a port in host order, of which the low 16 bits
// count; the padding is zero.
[[nodiscard]] inline sockaddr_in MakeAddress(in_addr_t address, std::uint32_t port) {
  sockaddr_in made{};
  made.sin_family = AF_INET;
  made.sin_port = htons(static_cast<std::uint16_t>(port));
  made.sin_addr.s_addr = address;
  return made;
}

[[nodiscard]] inline sockaddr_in AnyAddress(std::uint32_t port) {
  return MakeAddress(INADDR_ANY, port);
}

[[nodiscard]] inline int PortOf(const sockaddr_in& address) { return ntohs(address.sin_port); }

[[nodiscard]] inline const sockaddr* AsSocketAddress(const sockaddr_in* address) {
  return reinterpret_cast<const sockaddr*>(address);
}
[[nodiscard]] inline sockaddr* AsSocketAddress(sockaddr_in* address) {
  return reinterpret_cast<sockaddr*>(address);
}

}  // namespace vt::transport

#endif  // VT_TRANSPORT_ADDRESS_H

#include "vtapi/socket.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "support/log.h"
#include "transport/address.h"

namespace {

using vt::transport::AnyAddress;
using vt::transport::AsSocketAddress;
using vt::transport::kAddressSize;
using vt::transport::PortOf;

static_assert(sizeof(SocketEndpoint) == 36 && offsetof(SocketEndpoint, remote) == 20);

int BindTo(int fd, const sockaddr_in& address) {
  return bind(fd, AsSocketAddress(&address), kAddressSize);
}

// LogBindFailure reports errno, which the failed bind has just set. The line leaves it as it is.
void LogBindFailure(const char* function, const sockaddr_in& address) {
  const int error = errno;
  VT_LOG_AS(kWarn, function, "Bind failed server:%s, port:%d(%s:%d)", inet_ntoa(address.sin_addr),
            PortOf(address), std::strerror(error), error);
}

}  // namespace

extern "C" {

int openConnectedSocket(SocketEndpoint* endpoint, const char* address, std::uint32_t port) {
  endpoint->descriptor = socket(AF_INET, SOCK_STREAM, 0);
  if (endpoint->descriptor < 0) {
    VT_LOG(kError, "Socket creation failed %d", endpoint->descriptor);
    return -1;
  }
  endpoint->remote = vt::transport::MakeAddress(inet_addr(address), port);
  const int connected =
      connect(endpoint->descriptor, AsSocketAddress(&endpoint->remote), kAddressSize);
  if (connected < 0) {
    // Deliberate: the failure is only logged, and the descriptor handed out all the same.
    VT_LOG(kError, "connect failed %d, errno = %d", connected, vtn_getErrorCode());
  }
  std::memset(endpoint->local.sin_zero, 0, sizeof endpoint->local.sin_zero);
  socklen_t length = kAddressSize;
  (void)getsockname(endpoint->descriptor, AsSocketAddress(&endpoint->local), &length);
  VT_LOG(kDebug, "local socket address %s:%d", inet_ntoa(endpoint->local.sin_addr),
         PortOf(endpoint->local));
  return endpoint->descriptor;
}

int createUdpSocket(std::uint32_t port) {
  const int fd = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (fd < 0) {
    VT_LOG(kError, "Socket creation failed");
    closeSocket(fd);
    return -1;
  }
  const sockaddr_in address = AnyAddress(port);
  if (BindTo(fd, address) < 0) {
    LogBindFailure(__func__, address);
    closeSocket(fd);
    return -1;
  }
  VT_LOG(kDebug, "Bind server:%s, port:%d", inet_ntoa(address.sin_addr), PortOf(address));
  return fd;
}

int bindUdpSocket(int fd, std::uint32_t port) {
  const sockaddr_in address = AnyAddress(port);
  if (BindTo(fd, address) < 0) {
    LogBindFailure(__func__, address);
    return -1;
  }
  VT_LOG(kDebug, "Bind local server port:%d", PortOf(address));
  return fd;
}

int bindTcpListener(int fd, std::uint32_t port) {
  sockaddr_in address = AnyAddress(port);
  if (BindTo(fd, address) < 0) {
    LogBindFailure(__func__, address);
    return -1;
  }
  socklen_t length = kAddressSize;
  if (getsockname(fd, AsSocketAddress(&address), &length) < 0) return -1;
  VT_LOG(kDebug, "Bind local read port:%d", PortOf(address));
  return PortOf(address);
}

int closeSocket(int fd) {
  (void)close(fd);
  return 0;
}

int vtn_getErrorCode() { return errno; }

}  // extern "C"

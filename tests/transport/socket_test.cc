#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "vtapi.h"

#include "tests/harness/faults.h"
#include "tests/harness/log_capture.h"
#include "tests/harness/peer.h"
#include "tests/support/log_settings.h"

namespace {

using namespace vt::testing;

bool IsOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

sockaddr_in LocalAddress(int fd) {
  sockaddr_in address = {};
  socklen_t size = sizeof address;
  EXPECT_EQ(0, getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size));
  return address;
}

int LocalPort(int fd) { return ntohs(LocalAddress(fd).sin_port); }

std::string Dotted(const sockaddr_in& address) {
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
  return text;
}

bool PaddingIsZero(const sockaddr_in& address) {
  const unsigned char zeros[8] = {};
  return std::memcmp(address.sin_zero, zeros, sizeof zeros) == 0;
}

// An endpoint record full of garbage, so that what is not set shows.
SocketEndpoint Garbage() {
  SocketEndpoint endpoint;
  std::memset(&endpoint, 0xA5, sizeof endpoint);
  return endpoint;
}

// BoundSocket is a socket of a kind, bound to a port of its own on every local address.
class BoundSocket {
 public:
  explicit BoundSocket(int type) : fd_(socket(AF_INET, type, 0)) {
    sockaddr_in any = {};
    any.sin_family = AF_INET;
    EXPECT_EQ(0, bind(fd_, reinterpret_cast<sockaddr*>(&any), sizeof any));
    port_ = LocalPort(fd_);
  }
  ~BoundSocket() { close(fd_); }
  BoundSocket(const BoundSocket&) = delete;
  BoundSocket& operator=(const BoundSocket&) = delete;

  int port() const { return port_; }

 private:
  int fd_;
  int port_ = 0;
};

// FreshSocket is an unbound one.
class FreshSocket {
 public:
  explicit FreshSocket(int type) : fd_(socket(AF_INET, type, 0)) {}
  ~FreshSocket() { close(fd_); }
  FreshSocket(const FreshSocket&) = delete;
  FreshSocket& operator=(const FreshSocket&) = delete;

  int fd() const { return fd_; }

 private:
  int fd_;
};

LogLine InUse(const std::string& function, int port) {
  return {kWarn, function + ": Bind failed server:0.0.0.0, port:" + std::to_string(port) +
                     "(Address already in use:98)"};
}

TEST(OpenConnectedSocket, FillsTheEndpointAndReturnsItsDescriptor) {
  ScriptedPeer peer([](PeerConnection& c) { c.WaitForClose(); });
  SocketEndpoint endpoint = Garbage();
  LogCapture log(kTrace);
  const int fd = openConnectedSocket(&endpoint, "127.0.0.1", peer.port());
  ASSERT_GE(fd, 0);
  EXPECT_EQ(fd, endpoint.descriptor);
  EXPECT_EQ(AF_INET, endpoint.remote.sin_family);
  EXPECT_EQ(htons(peer.port()), endpoint.remote.sin_port);
  EXPECT_EQ(htonl(INADDR_LOOPBACK), endpoint.remote.sin_addr.s_addr);
  EXPECT_TRUE(PaddingIsZero(endpoint.remote));
  EXPECT_EQ(AF_INET, endpoint.local.sin_family);
  EXPECT_EQ(htons(static_cast<std::uint16_t>(LocalPort(fd))), endpoint.local.sin_port);
  EXPECT_EQ(htonl(INADDR_LOOPBACK), endpoint.local.sin_addr.s_addr);
  EXPECT_TRUE(PaddingIsZero(endpoint.local));
  EXPECT_EQ((std::vector<LogLine>{{kDebug, "openConnectedSocket: local socket address 127.0.0.1:" +
                                               std::to_string(LocalPort(fd))}}),
            log.lines());
  EXPECT_EQ(0, closeSocket(fd));
  EXPECT_TRUE(peer.Join());
}

TEST(OpenConnectedSocket, AsksForAPlainBlockingStreamSocket) {
  std::vector<int> asked;
  const SocketHook hook([&](int domain, int type, int protocol) -> std::optional<int> {
    asked = {domain, type, protocol};
    return std::nullopt;
  });
  ScriptedPeer peer([](PeerConnection& c) { c.WaitForClose(); });
  asked.clear();
  SocketEndpoint endpoint = Garbage();
  const int fd = openConnectedSocket(&endpoint, "127.0.0.1", peer.port());
  EXPECT_EQ((std::vector<int>{AF_INET, SOCK_STREAM, 0}), asked);
  EXPECT_EQ(0, fcntl(fd, F_GETFL) & O_NONBLOCK);
  closeSocket(fd);
  EXPECT_TRUE(peer.Join());
}

TEST(OpenConnectedSocket, OnlyTheLow16BitsOfThePortCount) {
  ScriptedPeer peer([](PeerConnection& c) { c.WaitForClose(); });
  SocketEndpoint endpoint = Garbage();
  const int fd = openConnectedSocket(&endpoint, "127.0.0.1", 0x50000u + peer.port());
  EXPECT_EQ(htons(peer.port()), endpoint.remote.sin_port);
  closeSocket(fd);
  EXPECT_TRUE(peer.Join());
}

// Deliberate: the first send tells whether the peer was reached.
TEST(OpenConnectedSocket, RefusedConnectionStillReturnsTheDescriptor) {
  const int port = UnusedPort();
  SocketEndpoint endpoint = Garbage();
  LogCapture log(kTrace);
  const int fd = openConnectedSocket(&endpoint, "127.0.0.1", static_cast<std::uint32_t>(port));
  ASSERT_GE(fd, 0);
  EXPECT_EQ(fd, endpoint.descriptor);
  EXPECT_TRUE(IsOpen(fd));
  const sockaddr_in local = LocalAddress(fd);
  EXPECT_EQ(
      (std::vector<LogLine>{{kError, "openConnectedSocket: connect failed -1, errno = 111"},
                            {kDebug, "openConnectedSocket: local socket address " + Dotted(local) +
                                         ":" + std::to_string(ntohs(local.sin_port))}}),
      log.lines());
  closeSocket(fd);
}

TEST(OpenConnectedSocket, ReportedErrnoIsThatOfConnect) {
  const int port = UnusedPort();
  SocketEndpoint endpoint = Garbage();
  const ErrnoSpoiler log(kTrace);
  const int fd = openConnectedSocket(&endpoint, "127.0.0.1", static_cast<std::uint32_t>(port));
  ASSERT_FALSE(log.lines().empty());
  EXPECT_EQ((LogLine{kError, "openConnectedSocket: connect failed -1, errno = 111"}),
            log.lines()[0]);
  closeSocket(fd);
}

TEST(OpenConnectedSocket, SocketThatCannotBeCreatedIsMinusOne) {
  const SocketHook hook([](int, int, int) {
    errno = EMFILE;
    return -1;
  });
  SocketEndpoint endpoint = Garbage();
  LogCapture log(kTrace);
  EXPECT_EQ(-1, openConnectedSocket(&endpoint, "127.0.0.1", 1));
  EXPECT_EQ(-1, endpoint.descriptor);
  EXPECT_EQ((std::vector<LogLine>{{kError, "openConnectedSocket: Socket creation failed -1"}}),
            log.lines());
}

TEST(Sockets, FailTheSameOnASilencedLog) {
  const LogCapture log(kSilent);
  {
    const SocketHook hook([](int, int, int) {
      errno = EMFILE;
      return -1;
    });
    SocketEndpoint endpoint = Garbage();
    EXPECT_EQ(-1, openConnectedSocket(&endpoint, "127.0.0.1", 1));
    EXPECT_EQ(-1, createUdpSocket(0));
  }
  const int port = UnusedPort();
  SocketEndpoint endpoint = Garbage();
  const int fd = openConnectedSocket(&endpoint, "127.0.0.1", static_cast<std::uint32_t>(port));
  EXPECT_GE(fd, 0);
  closeSocket(fd);
  const BoundSocket taken(SOCK_DGRAM);
  EXPECT_EQ(-1, createUdpSocket(static_cast<std::uint32_t>(taken.port())));
  EXPECT_TRUE(log.lines().empty());
}

TEST(OpenConnectedSocket, MalformedAddressBecomesAllOnes) {
  sockaddr_in asked = {};
  socklen_t asked_size = 0;
  // Nothing leaves for the address that results.
  const ConnectHook hook([&](int, const sockaddr* address, socklen_t size) {
    std::memcpy(&asked, address, sizeof asked);
    asked_size = size;
    errno = ENETUNREACH;
    return -1;
  });
  SocketEndpoint endpoint = Garbage();
  LogCapture log(kError);
  const int fd = openConnectedSocket(&endpoint, "localhost", 7440);
  EXPECT_GE(fd, 0);
  EXPECT_EQ(16u, asked_size);
  EXPECT_EQ(0xFFFFFFFFu, asked.sin_addr.s_addr);
  EXPECT_EQ(htons(7440), asked.sin_port);
  EXPECT_EQ(0xFFFFFFFFu, endpoint.remote.sin_addr.s_addr);
  EXPECT_EQ((std::vector<LogLine>{{kError, "openConnectedSocket: connect failed -1, errno = 101"}}),
            log.lines());
  closeSocket(fd);
}

TEST(CreateUdpSocket, BindsADatagramSocketOnEveryAddress) {
  std::vector<int> asked;
  const SocketHook hook([&](int domain, int type, int protocol) -> std::optional<int> {
    asked = {domain, type, protocol};
    return std::nullopt;
  });
  LogCapture log(kTrace);
  const int fd = createUdpSocket(0);
  ASSERT_GE(fd, 0);
  EXPECT_EQ((std::vector<int>{AF_INET, SOCK_DGRAM, 17}), asked);
  EXPECT_EQ("0.0.0.0", Dotted(LocalAddress(fd)));
  EXPECT_NE(0, LocalPort(fd));
  EXPECT_EQ((std::vector<LogLine>{{kDebug, "createUdpSocket: Bind server:0.0.0.0, port:0"}}),
            log.lines());
  closeSocket(fd);
}

TEST(CreateUdpSocket, BindsThePortThatWasAskedFor) {
  std::uint32_t port = 0;
  {
    const BoundSocket free_port(SOCK_DGRAM);
    port = static_cast<std::uint32_t>(free_port.port());
  }
  LogCapture log(kTrace);
  const int fd = createUdpSocket(port);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(static_cast<int>(port), LocalPort(fd));
  EXPECT_TRUE(
      log.Has(kDebug, "createUdpSocket: Bind server:0.0.0.0, port:" + std::to_string(port)));
  closeSocket(fd);
}

TEST(CreateUdpSocket, OnlyTheLow16BitsOfThePortCount) {
  std::uint32_t port = 0;
  {
    const BoundSocket free_port(SOCK_DGRAM);
    port = static_cast<std::uint32_t>(free_port.port());
  }
  const int fd = createUdpSocket(0x70000u + port);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(static_cast<int>(port), LocalPort(fd));
  closeSocket(fd);
}

TEST(CreateUdpSocket, PortInUseIsMinusOneAndLeavesNoDescriptor) {
  const BoundSocket taken(SOCK_DGRAM);
  const std::set<int> before = OpenDescriptors();
  LogCapture log(kTrace);
  EXPECT_EQ(-1, createUdpSocket(static_cast<std::uint32_t>(taken.port())));
  EXPECT_EQ(before, OpenDescriptors());
  EXPECT_EQ((std::vector<LogLine>{InUse("createUdpSocket", taken.port())}), log.lines());
}

TEST(CreateUdpSocket, ReportedErrorIsThatOfBind) {
  const BoundSocket taken(SOCK_DGRAM);
  const ErrnoSpoiler log(kTrace);
  EXPECT_EQ(-1, createUdpSocket(static_cast<std::uint32_t>(taken.port())));
  EXPECT_EQ((std::vector<LogLine>{InUse("createUdpSocket", taken.port())}), log.lines());
}

// Deliberate: closeSocket is called all the same.
TEST(CreateUdpSocket, SocketThatCannotBeCreatedIsClosedAllTheSame) {
  const SocketHook socket_hook([](int, int, int) {
    errno = EMFILE;
    return -1;
  });
  std::vector<int> closed;
  const CloseHook close_hook([&](int fd) -> std::optional<int> {
    closed.push_back(fd);
    return std::nullopt;
  });
  LogCapture log(kTrace);
  EXPECT_EQ(-1, createUdpSocket(0));
  EXPECT_EQ(std::vector<int>{-1}, closed);
  EXPECT_EQ((std::vector<LogLine>{{kError, "createUdpSocket: Socket creation failed"}}),
            log.lines());
}

// A process without standard input gets descriptor 0.
TEST(Sockets, MayHaveDescriptor0) {
  const SocketHook socket_hook([](int, int, int) { return 0; });
  const ConnectHook connect_hook([](int fd, const sockaddr*, socklen_t) {
    EXPECT_EQ(0, fd);
    return 0;
  });
  const GetsocknameHook getsockname_hook([](int, sockaddr*, socklen_t*) { return 0; });
  const BindHook bind_hook([](int fd, const sockaddr*, socklen_t) {
    EXPECT_EQ(0, fd);
    return 0;
  });
  const CloseHook close_hook([](int) { return 0; });
  SocketEndpoint endpoint = Garbage();
  EXPECT_EQ(0, openConnectedSocket(&endpoint, "127.0.0.1", 7440));
  EXPECT_EQ(0, endpoint.descriptor);
  EXPECT_EQ(1u, connect_hook.calls());
  EXPECT_EQ(0, createUdpSocket(0));
  EXPECT_EQ(1u, bind_hook.calls());
  EXPECT_EQ(0u, close_hook.calls());
}

TEST(BindUdpSocket, ReturnsTheDescriptorItBound) {
  std::uint32_t port = 0;
  {
    const BoundSocket free_port(SOCK_DGRAM);
    port = static_cast<std::uint32_t>(free_port.port());
  }
  const FreshSocket fresh(SOCK_DGRAM);
  LogCapture log(kTrace);
  EXPECT_EQ(fresh.fd(), bindUdpSocket(fresh.fd(), port));
  EXPECT_EQ(static_cast<int>(port), LocalPort(fresh.fd()));
  EXPECT_EQ("0.0.0.0", Dotted(LocalAddress(fresh.fd())));
  EXPECT_EQ((std::vector<LogLine>{
                {kDebug, "bindUdpSocket: Bind local server port:" + std::to_string(port)}}),
            log.lines());
}

TEST(BindUdpSocket, PortInUseIsMinusOneAndTheDescriptorStaysOpen) {
  const BoundSocket taken(SOCK_DGRAM);
  const FreshSocket fresh(SOCK_DGRAM);
  LogCapture log(kTrace);
  EXPECT_EQ(-1, bindUdpSocket(fresh.fd(), static_cast<std::uint32_t>(taken.port())));
  EXPECT_TRUE(IsOpen(fresh.fd()));
  EXPECT_EQ((std::vector<LogLine>{InUse("bindUdpSocket", taken.port())}), log.lines());
}

TEST(BindUdpSocket, BadDescriptorIsReported) {
  const ErrnoSpoiler log(kTrace);
  EXPECT_EQ(-1, bindUdpSocket(-1, 0));
  EXPECT_EQ((std::vector<LogLine>{{kWarn,
                                   "bindUdpSocket: Bind failed server:0.0.0.0, "
                                   "port:0(Bad file descriptor:9)"}}),
            log.lines());
}

TEST(BindTcpListener, PortZeroGivesThePortThatTheSystemChose) {
  const FreshSocket fresh(SOCK_STREAM);
  LogCapture log(kTrace);
  const int port = bindTcpListener(fresh.fd(), 0);
  EXPECT_GT(port, 0);
  EXPECT_EQ(LocalPort(fresh.fd()), port);
  EXPECT_EQ("0.0.0.0", Dotted(LocalAddress(fresh.fd())));
  EXPECT_EQ((std::vector<LogLine>{
                {kDebug, "bindTcpListener: Bind local read port:" + std::to_string(port)}}),
            log.lines());
}

TEST(BindTcpListener, DoesNotListen) {
  const FreshSocket fresh(SOCK_STREAM);
  ASSERT_GT(bindTcpListener(fresh.fd(), 0), 0);
  int listening = -1;
  socklen_t size = sizeof listening;
  ASSERT_EQ(0, getsockopt(fresh.fd(), SOL_SOCKET, SO_ACCEPTCONN, &listening, &size));
  EXPECT_EQ(0, listening);
}

TEST(BindTcpListener, PortInUseIsMinusOneAndTheDescriptorStaysOpen) {
  const BoundSocket taken(SOCK_STREAM);
  const FreshSocket fresh(SOCK_STREAM);
  LogCapture log(kTrace);
  EXPECT_EQ(-1, bindTcpListener(fresh.fd(), static_cast<std::uint32_t>(taken.port())));
  EXPECT_TRUE(IsOpen(fresh.fd()));
  EXPECT_EQ((std::vector<LogLine>{InUse("bindTcpListener", taken.port())}), log.lines());
}

TEST(BindTcpListener, AddressThatCannotBeReadBackIsMinusOneWithoutALine) {
  const FreshSocket fresh(SOCK_STREAM);
  const GetsocknameHook hook([](int, sockaddr*, socklen_t* size) {
    EXPECT_EQ(16u, *size);
    errno = ENOBUFS;
    return -1;
  });
  LogCapture log(kTrace);
  EXPECT_EQ(-1, bindTcpListener(fresh.fd(), 0));
  EXPECT_EQ(1u, hook.calls());
  EXPECT_TRUE(log.lines().empty());
}

TEST(Bind, AddressLengthIs16) {
  std::vector<socklen_t> sizes;
  const BindHook hook([&](int, const sockaddr*, socklen_t size) -> std::optional<int> {
    sizes.push_back(size);
    return std::nullopt;
  });
  closeSocket(createUdpSocket(0));
  const FreshSocket datagram(SOCK_DGRAM);
  bindUdpSocket(datagram.fd(), 0);
  const FreshSocket stream(SOCK_STREAM);
  bindTcpListener(stream.fd(), 0);
  EXPECT_EQ((std::vector<socklen_t>{16, 16, 16}), sizes);
}

TEST(CloseSocket, ClosesAndReturnsZero) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_TRUE(IsOpen(fd));
  EXPECT_EQ(0, closeSocket(fd));
  EXPECT_FALSE(IsOpen(fd));
}

TEST(CloseSocket, NegativeDescriptorReturnsZero) {
  LogCapture log(kTrace);
  EXPECT_EQ(0, closeSocket(-1));
  EXPECT_TRUE(log.lines().empty());
}

TEST(GetErrorCode, IsTheCallingThreadsErrno) {
  errno = 77;
  int other = -1;
  std::thread([&] {
    errno = 78;
    other = vtn_getErrorCode();
  }).join();
  EXPECT_EQ(78, other);
  errno = 77;
  EXPECT_EQ(77, vtn_getErrorCode());
  EXPECT_EQ(77, errno);
}

}  // namespace

#include "node/server.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <system_error>
#include <utility>

#include "vtapi.h"

#include "node/log.h"
#include "node/options.h"

namespace vt::node {
namespace {

constexpr std::size_t kMaxConnections = 64;

[[noreturn]] void ThrowErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

int Checked(int result, const std::string& what) {
  if (result < 0) ThrowErrno(what);
  return result;
}

Descriptor Listen(const sockaddr_in& address) {
  const std::string what = "cannot listen on " + EndpointText(address);
  Descriptor socket(Checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), what));
  // A node that is started again need not wait for the connections of the last one to fade.
  const int on = 1;
  Checked(setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), what);
  Checked(bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), what);
  Checked(listen(socket.get(), SOMAXCONN), what);
  return socket;
}

bool SendAll(int fd, const Bytes& bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t result = send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (result < 0 && errno == EINTR) continue;
    if (result < 0) return false;
    sent += static_cast<std::size_t>(result);
  }
  return true;
}

// Closing a socket with unread data resets the connection, and the client would lose the answer.
void EndStream(int fd) {
  shutdown(fd, SHUT_WR);
  std::array<char, 4096> scrap{};
  constexpr int most_rounds = 16;
  for (int round = 0; round < most_rounds; ++round) {
    if (recv(fd, scrap.data(), scrap.size(), MSG_DONTWAIT) <= 0) return;
  }
}

void Converse(int fd, const std::string& client, const Server::Answerer& answerer) {
  Bytes message(VT_MAX_PDU_SIZE);
  const int size =
      vtn_read_tcp_message(fd, message.data(), static_cast<std::int32_t>(message.size()), nullptr);
  if (size <= 0) {
    Log(VT_LOG_INFO, client + " sent no whole message");
    return;
  }
  message.resize(static_cast<std::size_t>(size));
  const std::vector<Bytes> answer = answerer(message);
  for (const Bytes& part : answer) {
    if (SendAll(fd, part)) continue;
    Log(VT_LOG_WARN, client + " did not take the whole answer");
    return;
  }
  Log(VT_LOG_INFO, client + " got " + std::to_string(answer.size()) + " messages");
}

}  // namespace

Descriptor::~Descriptor() {
  if (fd_ >= 0) close(fd_);
}

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

Server::Server(const sockaddr_in& address)
    : listener_(Listen(address)),
      wake_(Checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "cannot serve")) {}

Server::~Server() { EndAll(); }

sockaddr_in Server::address() const {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  Checked(getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&address), &size),
          "cannot tell the port");
  return address;
}

void Server::Run(int stop_fd, const Answerer& answerer, std::chrono::seconds connection_timeout) {
  for (;;) {
    // With all places taken, newcomers wait in the listener's queue; poll skips a negative number.
    const bool has_place = connections_.size() < kMaxConnections;
    std::array<pollfd, 3> watched = {pollfd{stop_fd, POLLIN, 0}, pollfd{wake_.get(), POLLIN, 0},
                                     pollfd{has_place ? listener_.get() : -1, POLLIN, 0}};
    const int ready = poll(watched.data(), watched.size(), MillisecondsToDeadline());
    if (ready < 0 && errno != EINTR) ThrowErrno("cannot wait for connections");
    if (ready > 0 && watched[0].revents != 0) break;
    if (ready > 0 && watched[2].revents != 0) Accept(answerer, connection_timeout);
    EndOverdue();
    ReapFinished();
  }
  EndAll();
}

void Server::Accept(const Answerer& answerer, std::chrono::seconds connection_timeout) {
  sockaddr_in client{};
  socklen_t size = sizeof client;
  Descriptor socket(
      accept4(listener_.get(), reinterpret_cast<sockaddr*>(&client), &size, SOCK_CLOEXEC));
  if (socket.get() < 0) {
    Log(VT_LOG_WARN, std::string("accept: ") + std::strerror(errno));
    return;
  }
  Connection& connection = connections_.emplace_back(std::move(socket), EndpointText(client),
                                                     Clock::now() + connection_timeout);
  try {
    connection.thread =
        std::thread([this, &connection, &answerer] { Serve(connection, answerer); });
  } catch (const std::system_error& error) {
    Log(VT_LOG_ERROR, connection.client + " cannot be served: " + error.what());
    connections_.pop_back();
  }
}

void Server::Serve(Connection& connection, const Answerer& answerer) const {
  try {
    Converse(connection.socket.get(), connection.client, answerer);
  } catch (const Rejected& reason) {
    Log(VT_LOG_WARN, "dropped a message from " + connection.client + ": " + reason.what());
  } catch (const std::exception& error) {
    Log(VT_LOG_ERROR, "no answer to " + connection.client + ": " + error.what());
  }
  EndStream(connection.socket.get());
  connection.done = true;
  eventfd_write(wake_.get(), 1);
}

void Server::ReapFinished() {
  eventfd_t ignored = 0;
  eventfd_read(wake_.get(), &ignored);
  std::erase_if(connections_, [](Connection& connection) {
    if (!connection.done) return false;
    connection.thread.join();
    return true;
  });
}

void Server::EndOverdue() {
  const Clock::time_point now = Clock::now();
  for (Connection& connection : connections_) {
    if (connection.overdue || connection.done || connection.deadline > now) continue;
    Log(VT_LOG_WARN, connection.client + " took too long");
    connection.overdue = true;
    shutdown(connection.socket.get(), SHUT_RDWR);
  }
}

void Server::EndAll() {
  for (Connection& connection : connections_) shutdown(connection.socket.get(), SHUT_RDWR);
  for (Connection& connection : connections_) connection.thread.join();
  connections_.clear();
}

int Server::MillisecondsToDeadline() const {
  constexpr int no_limit = -1;
  Clock::time_point next = Clock::time_point::max();
  for (const Connection& connection : connections_) {
    if (!connection.overdue) next = std::min(next, connection.deadline);
  }
  if (next == Clock::time_point::max()) return no_limit;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, INT_MAX));
}

}  // namespace vt::node

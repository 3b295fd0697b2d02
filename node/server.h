// The network side: accepts connections, reads one message from each, sends the answer and closes.
// Each connection has a thread of its own, their number is bounded, and so is the time that one may
// last: a client that stalls can block neither the others nor the end of the program.
#ifndef VT_NODE_SERVER_H_
#define VT_NODE_SERVER_H_

#include <netinet/in.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "node/reply_packer.h"

namespace vt::node {

// Descriptor owns a file descriptor.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&&) = delete;

  int get() const { return fd_; }

 private:
  int fd_;
};

class Server {
 public:
  // Answerer turns a message into the messages that answer it, or throws Rejected. It is called on
  // several threads at once.
  using Answerer = std::function<std::vector<Bytes>(std::span<const std::uint8_t>)>;

  // Server listens. It throws std::system_error when it cannot.
  explicit Server(const sockaddr_in& address);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // address is where it listens, with the port that the system chose.
  sockaddr_in address() const;

  // Run serves until stop_fd becomes readable.
  void Run(int stop_fd, const Answerer& answerer, std::chrono::seconds connection_timeout);

 private:
  using Clock = std::chrono::steady_clock;

  // Connection belongs to the thread of Run; the thread that serves it touches done only.
  struct Connection {
    Connection(Descriptor accepted, std::string name, Clock::time_point end)
        : socket(std::move(accepted)), client(std::move(name)), deadline(end) {}

    Descriptor socket;
    std::string client;
    Clock::time_point deadline;
    bool overdue = false;
    std::atomic<bool> done = false;
    std::thread thread;
  };

  void Accept(const Answerer& answerer, std::chrono::seconds connection_timeout);
  void Serve(Connection& connection, const Answerer& answerer) const;
  void ReapFinished();
  void EndOverdue();
  void EndAll();
  int MillisecondsToDeadline() const;

  Descriptor listener_;
  Descriptor wake_;  // becomes readable when a connection is done
  std::list<Connection> connections_;
};

}  // namespace vt::node

#endif  // VT_NODE_SERVER_H_

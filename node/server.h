// The network side: an event loop that accepts connections, reads one message from each, sends the
// answer and closes. What a peer can take is bounded: the number of connections, the time that its
// query and the whole connection may last, the bytes read, and the bytes that wait to be sent.
#ifndef VT_NODE_SERVER_H_
#define VT_NODE_SERVER_H_

#include <asio/io_context.hpp>
#include <asio/ip/address_v4.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <asio/thread_pool.hpp>
#include <netinet/in.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <unordered_set>
#include <vector>

#include "node/delivery.h"
#include "node/log.h"
#include "node/traffic.h"

namespace vt::node {

struct ServerLimits {
  std::size_t connections = 1024;  // more wait in the queue of the listener
  std::chrono::milliseconds query{5000};
  std::chrono::milliseconds connection{10000};
  std::size_t unsent = std::size_t{64} << 20;  // bytes of answers; beyond, queries wait
};

class Server {
 public:
  // Answerer turns a message of a client, whose HOST:PORT is the name, into what answers it, or
  // throws Rejected. It is called on one thread, which is not that of the loop: an answer of many
  // devices holds nobody up.
  using Answerer =
      std::function<Delivery(std::span<const std::uint8_t> message,
                             const asio::ip::address_v4& client, const std::string& name)>;

  // Server listens, and serves while io runs. traffic is told of connections, of what is rejected
  // and of what is sent, and must outlive it. It throws std::system_error when it cannot listen.
  Server(asio::io_context& io, const sockaddr_in& address, const ServerLimits& limits,
         Traffic& traffic, Answerer answerer);
  ~Server() = default;
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // address is where it listens, with the port that the system chose. Both threads may ask.
  const sockaddr_in& address() const { return address_; }

  // Post runs a task on the thread that answers, between two answers.
  void Post(std::function<void()> task);

  // log_lines_left_out is how many lines on bad peers there was no room for.
  std::uint64_t log_lines_left_out() const { return bad_peers_.left_out(); }

  // Finish closes the listener and the connections whose query is not there yet, and calls done
  // when the others have had their answers. Stop may come before that; done is not called then.
  void Finish(std::function<void()> done);

  // Stop closes the listener and all connections, so that io has nothing left to do.
  void Stop();

 private:
  class Connection;
  using ConnectionPtr = std::shared_ptr<Connection>;

  void Accept();
  void Accepted(const asio::error_code& error, asio::ip::tcp::socket socket);
  void RetryAccept(const asio::error_code& error);
  void Closed(Connection& connection);
  void TellIfFinished();
  void Enqueue(ConnectionPtr connection);
  void AnswerNext();
  void Reject(std::uint32_t level, const std::string& client, Rejection rejection,
              const std::string& message);
  void AddUnsent(std::size_t size);
  void RemoveUnsent(std::size_t size);

  asio::io_context& io_;
  asio::ip::tcp::acceptor acceptor_;
  const sockaddr_in address_;
  asio::steady_timer retry_;
  const ServerLimits limits_;
  Traffic& traffic_;
  const Answerer answerer_;
  RateLimit bad_peers_;
  std::unordered_set<Connection*> connections_;
  std::deque<ConnectionPtr> asking_;  // with a query that waits for its answer
  std::size_t unsent_ = 0;
  std::function<void()> finished_;
  bool is_accepting_ = false;
  bool is_answering_ = false;
  asio::thread_pool worker_{1};  // last: it ends before what it calls
};

}  // namespace vt::node

#endif  // VT_NODE_SERVER_H_

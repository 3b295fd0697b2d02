#include "node/server.h"

#include <asio/post.hpp>
#include <asio/write.hpp>

#include <algorithm>
#include <array>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "vtapi.h"

#include "node/options.h"
#include "node/received_query.h"

namespace vt::node {
namespace {

using asio::ip::tcp;

sockaddr_in SystemAddress(const tcp::endpoint& endpoint) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(endpoint.port());
  address.sin_addr.s_addr = htonl(endpoint.address().to_v4().to_uint());
  return address;
}

tcp::endpoint EndpointOf(const sockaddr_in& address) {
  return {asio::ip::address_v4(ntohl(address.sin_addr.s_addr)), ntohs(address.sin_port)};
}

tcp::acceptor Listen(asio::io_context& io, const sockaddr_in& address) {
  try {
    // With the address reused: a node that is started again need not wait for old connections.
    return {io, EndpointOf(address)};
  } catch (const std::system_error& error) {
    throw std::system_error(error.code(), "cannot listen on " + EndpointText(address));
  }
}

// BytesBehind is up to most bytes of the messages, behind the first ones.
std::vector<asio::const_buffer> BytesBehind(const std::vector<Bytes>& messages, std::size_t first,
                                            std::size_t most) {
  std::vector<asio::const_buffer> buffers;
  for (const Bytes& message : messages) {
    const std::size_t skipped = std::min(first, message.size());
    const std::size_t size = std::min(message.size() - skipped, most);
    if (size != 0) buffers.emplace_back(message.data() + skipped, size);
    first -= skipped;
    most -= size;
    if (most == 0) break;
  }
  return buffers;
}

}  // namespace

// Connection reads a query, waits for its answer, sends it and closes. It lives for as long as an
// operation or the server's list of queries holds it; once closed it does not use the server, which
// may be gone by then.
class Server::Connection : public std::enable_shared_from_this<Server::Connection> {
 public:
  Connection(Server& server, tcp::socket socket, const tcp::endpoint& client)
      : server_(server),
        socket_(std::move(socket)),
        deadline_(server.io_),
        pace_(server.io_),
        address_(client.address().to_v4()),
        client_(EndpointText(SystemAddress(client))) {}
  ~Connection() = default;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  const std::string& client() const { return client_; }
  const asio::ip::address_v4& address() const { return address_; }
  bool has_query() const { return has_query_; }
  std::span<const std::uint8_t> query() const { return {buffer_.data(), used_}; }

  void Start() {
    started_ = std::chrono::steady_clock::now();
    EndAt(started_ + std::min(server_.limits_.query, server_.limits_.connection));
    Read(kShortestRead);
  }

  // Deliver sends an answer as it says, and closes.
  void Deliver(Delivery answer) {
    if (is_closed_) return;
    answer_ = std::move(answer);
    for (const Bytes& message : answer_.messages) unsent_ += message.size();
    server_.AddUnsent(unsent_);
    EndAt(started_ + server_.limits_.connection);
    asio::error_code ignored;
    if (answer_.step != 0) socket_.set_option(tcp::no_delay(true), ignored);
    answer_.delay.count() != 0 ? SendAfter(answer_.delay) : Send();
  }

  // Drop closes without an answer.
  void Drop() {
    if (!is_closed_) Finish();
  }

  void Close() {
    if (std::exchange(is_closed_, true)) return;
    asio::error_code ignored;
    socket_.close(ignored);
    deadline_.cancel();
    pace_.cancel();
    server_.RemoveUnsent(unsent_);
    server_.Closed(*this);
  }

 private:
  static constexpr std::uint32_t kShortestRead = 12;

  // EndAt lets the connection last until then; it replaces what was said before.
  void EndAt(std::chrono::steady_clock::time_point end) {
    deadline_.expires_at(end);
    deadline_.async_wait([weak = weak_from_this()](const asio::error_code& error) {
      const ConnectionPtr self = weak.lock();
      if (error || self == nullptr || self->is_closed_) return;
      self->server_.Reject(VT_LOG_WARN, self->client_, Rejection::kTooSlow,
                           self->client_ + " took too long");
      self->Close();
    });
  }

  // Read reads until the buffer holds so many bytes, and no byte more: what follows the query stays
  // where it is.
  void Read(std::uint32_t end) {
    socket_.async_read_some(
        asio::buffer(buffer_.data() + used_, end - used_),
        [self = shared_from_this()](const asio::error_code& error, std::size_t got) {
          self->Received(error, got);
        });
  }

  void Received(const asio::error_code& error, std::size_t got) {
    if (is_closed_) return;
    used_ += got;
    std::uint32_t length = 0;
    const int framed =
        vtn_frame_message(buffer_.data(), static_cast<std::uint32_t>(used_), &length);
    if (error || framed < 0) {
      server_.Reject(VT_LOG_INFO, client_,
                     framed < 0 ? Rejection::kMalformed : Rejection::kIncomplete,
                     client_ + " sent no whole message");
      Finish();
    } else if (framed == 0) {
      Read(length);
    } else {
      deadline_.cancel();
      has_query_ = true;
      server_.Enqueue(shared_from_this());
    }
  }

  // Send sends the whole answer, or the next step of it.
  void Send() {
    const std::size_t most =
        answer_.step != 0 ? answer_.step : std::numeric_limits<std::size_t>::max();
    asio::async_write(socket_, BytesBehind(answer_.messages, sent_, most),
                      [self = shared_from_this()](const asio::error_code& error, std::size_t size) {
                        self->Sent(error, size);
                      });
  }

  void SendAfter(std::chrono::milliseconds time) {
    pace_.expires_after(time);
    pace_.async_wait([self = shared_from_this()](const asio::error_code& error) {
      if (!error && !self->is_closed_) self->Send();
    });
  }

  void Sent(const asio::error_code& error, std::size_t size) {
    if (is_closed_) return;
    sent_ += size;
    if (error) {
      server_.Reject(VT_LOG_WARN, client_, Rejection::kNotTaken,
                     client_ + " did not take the whole answer");
      Close();
    } else if (sent_ < unsent_) {
      SendAfter(answer_.pause);
    } else {
      Log(VT_LOG_INFO, client_ + " got " + std::to_string(answer_.messages.size()) + " messages",
          {{"peer", client_}});
      server_.traffic_.Sent(answer_.messages.size(), unsent_);
      answer_.reset ? Reset() : Finish();
    }
  }

  void Reset() {
    asio::error_code ignored;
    socket_.set_option(asio::socket_base::linger(true, 0), ignored);
    Close();
  }

  // Finish ends the stream. Closing a socket with unread data would reset the connection, and the
  // client would lose the answer.
  void Finish() {
    asio::error_code error;
    socket_.shutdown(tcp::socket::shutdown_send, error);
    socket_.non_blocking(true, error);
    std::array<char, 4096> scrap;
    constexpr int kMostRounds = 16;
    for (int round = 0; round < kMostRounds && !error; ++round) {
      if (socket_.read_some(asio::buffer(scrap), error) == 0) break;
    }
    Close();
  }

  Server& server_;
  tcp::socket socket_;
  asio::steady_timer deadline_;
  asio::steady_timer pace_;
  const asio::ip::address_v4 address_;
  const std::string client_;
  std::chrono::steady_clock::time_point started_;
  std::array<std::uint8_t, VT_MAX_PDU_SIZE> buffer_;
  std::size_t used_ = 0;
  Delivery answer_;
  std::size_t unsent_ = 0;  // that count against the limit, until it is closed
  std::size_t sent_ = 0;
  bool has_query_ = false;
  bool is_closed_ = false;
};

Server::Server(asio::io_context& io, const sockaddr_in& address, const ServerLimits& limits,
               Traffic& traffic, Answerer answerer)
    : io_(io),
      acceptor_(Listen(io, address)),
      address_(SystemAddress(acceptor_.local_endpoint())),
      retry_(io),
      limits_(limits),
      traffic_(traffic),
      answerer_(std::move(answerer)) {
  Accept();
}

void Server::Post(std::function<void()> task) { asio::post(worker_, std::move(task)); }

void Server::Finish(std::function<void()> done) {
  finished_ = std::move(done);
  asio::error_code ignored;
  acceptor_.close(ignored);
  retry_.cancel();
  const std::vector<Connection*> all(connections_.begin(), connections_.end());
  for (Connection* connection : all) {
    if (!connection->has_query()) connection->Close();
  }
  TellIfFinished();
}

void Server::TellIfFinished() {
  if (finished_ && connections_.empty()) asio::post(io_, std::exchange(finished_, {}));
}

void Server::Stop() {
  finished_ = {};
  asio::error_code ignored;
  acceptor_.close(ignored);
  retry_.cancel();
  asking_.clear();
  for (Connection* connection : std::exchange(connections_, {})) connection->Close();
  worker_.join();
}

void Server::Accept() {
  if (is_accepting_ || !acceptor_.is_open() || connections_.size() >= limits_.connections) return;
  is_accepting_ = true;
  acceptor_.async_accept([this](const asio::error_code& error, tcp::socket socket) {
    Accepted(error, std::move(socket));
  });
}

void Server::Accepted(const asio::error_code& error, tcp::socket socket) {
  if (error == asio::error::operation_aborted) return;
  is_accepting_ = false;
  if (error) return RetryAccept(error);
  asio::error_code gone;
  const tcp::endpoint client = socket.remote_endpoint(gone);
  if (!gone) {
    const auto connection = std::make_shared<Connection>(*this, std::move(socket), client);
    connections_.insert(connection.get());
    traffic_.Opened();
    connection->Start();
  }
  Accept();
}

// Without descriptors, accepting anew at once would fail at once.
void Server::RetryAccept(const asio::error_code& error) {
  constexpr std::chrono::milliseconds kPause{100};
  bad_peers_.Log(VT_LOG_WARN, "accept: " + error.message());
  traffic_.AcceptFailed();
  is_accepting_ = true;
  retry_.expires_after(kPause);
  retry_.async_wait([this](const asio::error_code& cancelled) {
    if (cancelled) return;
    is_accepting_ = false;
    Accept();
  });
}

void Server::Closed(Connection& connection) {
  connections_.erase(&connection);
  traffic_.Closed();
  Accept();
  AnswerNext();
  TellIfFinished();
}

void Server::Enqueue(ConnectionPtr connection) {
  asking_.push_back(std::move(connection));
  AnswerNext();
}

void Server::AnswerNext() {
  if (is_answering_ || asking_.empty() || unsent_ > limits_.unsent) return;
  is_answering_ = true;
  asio::post(worker_, [this, connection = std::move(asking_.front())] {
    std::optional<Delivery> answer;
    try {
      answer = answerer_(connection->query(), connection->address(), connection->client());
    } catch (const Rejected& reason) {
      Reject(VT_LOG_WARN, connection->client(), reason.rejection(),
             "dropped a message from " + connection->client() + ": " + reason.what());
    } catch (const std::exception& error) {
      Log(VT_LOG_ERROR, "no answer to " + connection->client() + ": " + error.what(),
          {{"peer", connection->client()}});
    }
    asio::post(io_, [this, connection, answer = std::move(answer)]() mutable {
      is_answering_ = false;
      answer ? connection->Deliver(*std::move(answer)) : connection->Drop();
      AnswerNext();
    });
  });
  asking_.pop_front();
}

// Reject tells of a bad peer. It may be called by both threads.
void Server::Reject(std::uint32_t level, const std::string& client, Rejection rejection,
                    const std::string& message) {
  bad_peers_.Log(level, message, {{"peer", client}, {"reason", NameOf(rejection)}});
  traffic_.Rejected(client, rejection, message);
}

void Server::AddUnsent(std::size_t size) {
  unsent_ += size;
  traffic_.Unsent(unsent_);
}

void Server::RemoveUnsent(std::size_t size) {
  unsent_ -= size;
  traffic_.Unsent(unsent_);
}

}  // namespace vt::node

#include "node/http_server.h"

#include <asio/buffer.hpp>
#include <asio/write.hpp>

#include <array>
#include <exception>
#include <string_view>
#include <system_error>

#include "vtapi.h"

#include "node/log.h"
#include "node/options.h"

namespace vt::node {
namespace {

using asio::ip::tcp;

std::string_view ReasonOf(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 400:
      return "Bad Request";
    case 404:
      return "Not Found";
    case 405:
      return "Method Not Allowed";
    case 408:
      return "Request Timeout";
    case 413:
      return "Content Too Large";
    case 421:
      return "Misdirected Request";
    case 431:
      return "Request Header Fields Too Large";
    case 503:
      return "Service Unavailable";
    case 505:
      return "HTTP Version Not Supported";
    default:
      return "Internal Server Error";
  }
}

std::string HeadOf(const HttpResponse& response) {
  std::string head = "HTTP/1.1 " + std::to_string(response.status) + " ";
  head += ReasonOf(response.status);
  const auto add = [&head](std::string_view name, std::string_view value) {
    head.append("\r\n").append(name).append(": ").append(value);
  };
  add("Content-Type", response.type);
  add("Content-Length", std::to_string(response.body.size()));
  add("Connection", "close");
  add("Cache-Control", "no-store");
  add("X-Content-Type-Options", "nosniff");
  add("X-Frame-Options", "DENY");
  add("Referrer-Policy", "no-referrer");
  add("Cross-Origin-Resource-Policy", "same-origin");
  if (response.status == 405) add("Allow", "GET, HEAD");
  for (const auto& [name, value] : response.headers) add(name, value);
  return head + "\r\n\r\n";
}

HttpResponse ErrorResponse(const HttpError& error) {
  HttpResponse response;
  response.status = error.status();
  response.body = std::string(error.what()) + "\n";
  return response;
}

tcp::acceptor ListenForHttp(asio::io_context& io, const sockaddr_in& address) {
  try {
    return {io, tcp::endpoint(asio::ip::address_v4(ntohl(address.sin_addr.s_addr)),
                              ntohs(address.sin_port))};
  } catch (const std::system_error& error) {
    throw std::system_error(error.code(), "cannot serve HTTP on " + EndpointText(address));
  }
}

}  // namespace

// Connection reads a head, has it answered, sends the response and closes. It lives until it is
// closed, and for as long as an operation holds it; once closed it does not use the server, which
// may be gone. Replies do not hold it, for they may outlive the loop.
class HttpServer::Connection : public std::enable_shared_from_this<HttpServer::Connection> {
 public:
  Connection(HttpServer& server, tcp::socket socket)
      : server_(server), socket_(std::move(socket)), deadline_(server.io_) {}
  ~Connection() = default;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void Start() {
    EndAfter(server_.limits_.request);
    Read();
  }

  void Close() {
    if (std::exchange(is_closed_, true)) return;
    asio::error_code ignored;
    socket_.close(ignored);
    deadline_.cancel();
    server_.Closed(shared_from_this());
  }

 private:
  using Self = std::shared_ptr<Connection>;

  void EndAfter(std::chrono::milliseconds time) {
    deadline_.expires_after(time);
    deadline_.async_wait([weak = weak_from_this()](const asio::error_code& error) {
      const Self self = weak.lock();
      if (!error && self != nullptr) self->Close();
    });
  }

  void Read() {
    socket_.async_read_some(
        asio::buffer(piece_),
        [self = shared_from_this()](const asio::error_code& error, std::size_t got) {
          self->Received(error, got);
        });
  }

  void Received(const asio::error_code& error, std::size_t got) {
    if (is_closed_) return;
    if (error) return Close();
    // The end may have come in pieces.
    const std::size_t from = head_.size() < 3 ? 0 : head_.size() - 3;
    head_.append(piece_.data(), got);
    const std::size_t end = head_.find("\r\n\r\n", from);
    if (end != std::string::npos && end + 4 <= server_.limits_.head) {
      Handle(std::string_view(head_).substr(0, end + 4));
    } else if (head_.size() >= server_.limits_.head) {
      Send(ErrorResponse(HttpError(431, "the request is too long")));
    } else {
      Read();
    }
  }

  void Handle(std::string_view head) {
    EndAfter(server_.limits_.connection);
    try {
      const HttpRequest request = ParseHttpRequest(head);
      is_head_ = request.is_head;
      if (server_.hosts_ == HttpHosts::kLoopback && !IsLoopbackName(request.host)) {
        throw HttpError(421, "this host goes by localhost and its addresses here");
      }
      server_.handler_(request, [weak = weak_from_this()](HttpResponse response) {
        if (const Self self = weak.lock()) self->Send(std::move(response));
      });
    } catch (const HttpError& error) {
      Send(ErrorResponse(error));
    } catch (const std::exception& error) {
      Log(VT_LOG_ERROR, std::string("no answer over HTTP: ") + error.what());
      Send(ErrorResponse(HttpError(500, "the node cannot answer that now")));
    }
  }

  void Send(HttpResponse response) {
    if (is_closed_ || std::exchange(is_answered_, true)) return;
    response_ = std::move(response);
    out_head_ = HeadOf(response_);
    std::vector<asio::const_buffer> buffers = {asio::buffer(out_head_)};
    if (!is_head_) buffers.emplace_back(response_.body.data(), response_.body.size());
    asio::async_write(
        socket_, buffers,
        [self = shared_from_this()](const asio::error_code&, std::size_t) { self->Finish(); });
  }

  // Finish ends the stream. Closing a socket with unread data would reset the connection, and the
  // client could lose the answer.
  void Finish() {
    if (is_closed_) return;
    asio::error_code error;
    socket_.shutdown(tcp::socket::shutdown_send, error);
    socket_.non_blocking(true, error);
    constexpr int kMostRounds = 16;
    for (int round = 0; round < kMostRounds && !error; ++round) {
      if (socket_.read_some(asio::buffer(piece_), error) == 0) break;
    }
    Close();
  }

  HttpServer& server_;
  tcp::socket socket_;
  asio::steady_timer deadline_;
  std::array<char, 2048> piece_;
  std::string head_;
  HttpResponse response_;
  std::string out_head_;
  bool is_head_ = false;
  bool is_answered_ = false;
  bool is_closed_ = false;
};

HttpServer::HttpServer(asio::io_context& io, const sockaddr_in& address, HttpHosts hosts,
                       const HttpLimits& limits, Handler handler)
    : io_(io),
      acceptor_(ListenForHttp(io, address)),
      retry_(io),
      hosts_(hosts),
      limits_(limits),
      handler_(std::move(handler)) {
  Accept();
}

sockaddr_in HttpServer::address() const {
  const tcp::endpoint endpoint = acceptor_.local_endpoint();
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(endpoint.port());
  address.sin_addr.s_addr = htonl(endpoint.address().to_v4().to_uint());
  return address;
}

void HttpServer::Stop() {
  asio::error_code ignored;
  acceptor_.close(ignored);
  retry_.cancel();
  for (const auto& connection : std::exchange(connections_, {})) connection->Close();
}

void HttpServer::Accept() {
  if (is_accepting_ || !acceptor_.is_open() || connections_.size() >= limits_.connections) return;
  is_accepting_ = true;
  acceptor_.async_accept([this](const asio::error_code& error, tcp::socket socket) {
    if (error == asio::error::operation_aborted) return;
    if (error) {
      // Without descriptors, accepting anew at once would fail at once.
      constexpr std::chrono::milliseconds kPause{100};
      retry_.expires_after(kPause);
      retry_.async_wait([this](const asio::error_code& cancelled) {
        if (cancelled) return;
        is_accepting_ = false;
        Accept();
      });
      return;
    }
    is_accepting_ = false;
    const auto connection = std::make_shared<Connection>(*this, std::move(socket));
    connections_.insert(connection);
    connection->Start();
    Accept();
  });
}

void HttpServer::Closed(const std::shared_ptr<Connection>& connection) {
  connections_.erase(connection);
  Accept();
}

}  // namespace vt::node

// A small HTTP/1.1 server for the page and the metrics, on the event loop of the node: one request
// for each connection, GET and HEAD alone, and bounds on all that a peer can take. It is no more
// than that on purpose; what else there is in HTTP belongs to a proxy in front of it.
#ifndef VT_NODE_HTTP_SERVER_H_
#define VT_NODE_HTTP_SERVER_H_

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <netinet/in.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "node/http_request.h"

namespace vt::node {

struct HttpResponse {
  int status = 200;
  std::string type = "text/plain; charset=utf-8";
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;  // besides those of every response
};

struct HttpLimits {
  std::size_t connections = 16;  // more wait in the queue of the listener
  std::size_t head = 8192;       // bytes of the request
  std::chrono::milliseconds request{5000};
  std::chrono::milliseconds connection{20000};
};

// HttpHosts is by which names clients may call the server.
enum class HttpHosts { kLoopback, kAny };

class HttpServer {
 public:
  // Reply takes the response. It is called on the thread of the loop, once; later calls, and calls
  // after the end of the server, do nothing.
  using Reply = std::function<void(HttpResponse)>;
  // Handler is called on the thread of the loop, and may answer later. HttpError is answered, too.
  using Handler = std::function<void(const HttpRequest&, const Reply&)>;

  // HttpServer listens, and serves while io runs. It throws std::system_error when it cannot
  // listen.
  HttpServer(asio::io_context& io, const sockaddr_in& address, HttpHosts hosts,
             const HttpLimits& limits, Handler handler);
  ~HttpServer() = default;
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  // address is where it listens, with the port that the system chose.
  sockaddr_in address() const;

  // Stop closes the listener and all connections, so that io has nothing left to do for it.
  void Stop();

 private:
  class Connection;

  void Accept();
  void Closed(const std::shared_ptr<Connection>& connection);

  asio::io_context& io_;
  asio::ip::tcp::acceptor acceptor_;
  asio::steady_timer retry_;
  const HttpHosts hosts_;
  const HttpLimits limits_;
  const Handler handler_;
  std::set<std::shared_ptr<Connection>> connections_;
  bool is_accepting_ = false;
};

}  // namespace vt::node

#endif  // VT_NODE_HTTP_SERVER_H_

// The head of an HTTP request, as far as this node needs it: which resource is asked for, and by
// which name the client calls the server.
#ifndef VT_NODE_HTTP_REQUEST_H_
#define VT_NODE_HTTP_REQUEST_H_

#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vt::node {

// HttpError is a request that is refused, with the status of the answer.
class HttpError : public std::runtime_error {
 public:
  HttpError(int status, const std::string& reason) : std::runtime_error(reason), status_(status) {}

  int status() const { return status_; }

 private:
  int status_;
};

struct HttpRequest {
  bool is_head = false;                       // HEAD, and not GET: the body is not wanted
  std::string path;                           // as it was sent, from the slash on
  std::map<std::string, std::string> fields;  // of the query, decoded; of equal names the last
  std::string host;                           // without the port, in small letters
};

// ParseHttpRequest reads a head, from the request line to the empty line that ends it. It throws
// HttpError.
HttpRequest ParseHttpRequest(std::string_view head);

// IsLoopbackName tells whether a host that a request names is this host under a name that no name
// server can give to somebody else: localhost, or an address of the loopback network. A page of
// another site whose name has come to mean 127.0.0.1 is recognised by that.
bool IsLoopbackName(std::string_view host);

}  // namespace vt::node

#endif  // VT_NODE_HTTP_REQUEST_H_

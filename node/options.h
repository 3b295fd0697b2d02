// The command line of voltaris-node, checked.
#ifndef VT_NODE_OPTIONS_H_
#define VT_NODE_OPTIONS_H_

#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "node/log.h"

namespace vt::node {

// UsageError says what is wrong with the command line.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Options {
  // One of the two.
  std::string config;
  std::string replay;  // a recording to answer from
  sockaddr_in listen{};
  std::optional<std::string> key_file;
  std::optional<std::string> state;  // the path of the state file, before that of the configuration
  std::chrono::seconds connection_timeout{10};
  std::size_t max_connections = 1024;
  std::vector<std::string> faults;  // that are switched on, by name
  std::optional<sockaddr_in> http;  // where the page and the metrics are, if anywhere
  bool http_anywhere = false;       // and not only on addresses of this host alone
  bool check_config = false;        // and do nothing else
  std::uint32_t log_level = 3;      // enum vt_log_level, of the library and of the node itself
  LogFormat log_format = LogFormat::kText;
};

// ParseOptions returns the options, or no options when the command line asked for help or the
// version only, which have then been printed. It throws UsageError.
std::optional<Options> ParseOptions(int argc, const char* const* argv);

// IsLoopback tells whether an address is one that only this host can reach.
bool IsLoopback(const sockaddr_in& address);

// ParseEndpoint reads HOST:PORT, HOST being an IPv4 address; nothing when text is not of that form.
std::optional<sockaddr_in> ParseEndpoint(const std::string& text);

// EndpointText is the address and port as HOST:PORT.
std::string EndpointText(const sockaddr_in& endpoint);

}  // namespace vt::node

#endif  // VT_NODE_OPTIONS_H_

#include "node/options.h"

#include <CLI/CLI.hpp>
#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string_view>
#include <system_error>

#include "vtapi.h"

#include "arguments/decimal.h"
#include "arguments/help_formatter.h"
#include "arguments/repeatable.h"

namespace vt::node {
namespace {

constexpr const char* kFooter =
    R"(Examples:
  voltaris-node --config examples/office.toml
  voltaris-node --config office.toml --listen 0.0.0.0:7440 --key-file office.key
  voltaris-node --config office.toml --http 127.0.0.1:8040
  voltaris-node --config office.toml --check-config
  voltaris-node --replay office.recording
  voltaris-node probe        what tells the power of this host; see probe --help

Once it accepts connections it prints "listening on HOST:PORT" on standard
output, and with --http a line "http on HOST:PORT" behind it; everything else
goes to standard error. SIGINT and SIGTERM end it. SIGHUP makes it read the
configuration again; a faulty one is reported and the old one kept. What devices
are set to is kept in the state file or, without one, lost with the program or
the old configuration.

Without a key file a message is checked with the identity of its sender as the
key, which keeps accidents out, but nobody else.

Exit codes: 0 ended by a signal; 1 cannot serve; 2 wrong usage or configuration.

Environment: VOLTARIS_KEY_FILE stands in for --key-file; without both, the key
is the file voltaris.key in the folder CREDENTIALS_DIRECTORY, if it is there.
systemd is told by NOTIFY_SOCKET when the node serves, reads its configuration
again and ends, and that it is alive when WATCHDOG_USEC asks for it.
)";

constexpr std::array<std::string_view, 7> kLogLevels = {"trace", "debug", "info", "warn",
                                                        "error", "fatal", "off"};

std::uint32_t ParseLogLevel(const std::string& word) {
  const auto found = std::ranges::find(kLogLevels, word);
  if (found == kLogLevels.end()) throw UsageError("there is no log level '" + word + "'");
  return static_cast<std::uint32_t>(found - kLogLevels.begin());
}

sockaddr_in ParseListen(const std::string& option, const std::string& text) {
  const std::optional<sockaddr_in> endpoint = ParseEndpoint(text);
  if (endpoint) return *endpoint;
  throw UsageError(option + " takes an IPv4 address and a port, such as 127.0.0.1:7440, not '" +
                   text + "'");
}

sockaddr_in ParseHttp(const std::string& text, bool anywhere) {
  const sockaddr_in endpoint = ParseListen("--http", text);
  if (anywhere || IsLoopback(endpoint)) return endpoint;
  throw UsageError(
      "--http shows everything to everybody who can connect, and so takes an address "
      "of 127.0.0.0/8 only, unless --http-anywhere is given, too");
}

// CredentialKey is the key that the service manager hands over, if it does.
std::optional<std::string> CredentialKey() {
  const char* folder = std::getenv("CREDENTIALS_DIRECTORY");
  if (folder == nullptr || *folder == '\0') return std::nullopt;
  const std::filesystem::path path = std::filesystem::path(folder) / "voltaris.key";
  std::error_code error;
  // What is there and cannot be read is an error later, not a node without a key.
  if (std::filesystem::status(path, error).type() == std::filesystem::file_type::not_found) {
    return std::nullopt;
  }
  return path.string();
}

}  // namespace

std::optional<sockaddr_in> ParseEndpoint(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) return std::nullopt;
  sockaddr_in endpoint{};
  endpoint.sin_family = AF_INET;
  if (inet_pton(AF_INET, text.substr(0, colon).c_str(), &endpoint.sin_addr) != 1) {
    return std::nullopt;
  }
  std::uint16_t port = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, port);
  if (error != std::errc() || stop != end) return std::nullopt;
  endpoint.sin_port = htons(port);
  return endpoint;
}

bool IsLoopback(const sockaddr_in& address) {
  return ntohl(address.sin_addr.s_addr) >> 24 == IN_LOOPBACKNET;
}

std::string EndpointText(const sockaddr_in& endpoint) {
  std::array<char, INET_ADDRSTRLEN> text{};
  inet_ntop(AF_INET, &endpoint.sin_addr, text.data(), text.size());
  return std::string(text.data()) + ":" + std::to_string(ntohs(endpoint.sin_port));
}

std::optional<Options> ParseOptions(int argc, const char* const* argv) {
  std::string listen = "127.0.0.1:7440";
  std::string key_file;
  std::string state;
  std::string log_level = "warn";
  std::string log_format = "text";
  std::string http;
  unsigned timeout = 10;
  Options options;

  CLI::App app("Answers queries for a fleet of devices.", "voltaris-node");
  app.set_version_flag("--version",
                       std::string("voltaris-node, libvtapi ") + voltaris_utl_getVersion(),
                       "print the version");
  app.formatter(std::make_shared<arguments::HelpFormatter>());
  app.set_help_flag("-h,--help", "print this help");
  app.footer(kFooter);
  app.add_option("-c,--config", options.config, "the fleet, in TOML")->type_name("FILE");
  app.add_option("-r,--replay", options.replay,
                 "answer as the devices of a recording, made by voltaris record, instead")
      ->type_name("FILE");
  app.add_option("-l,--listen", listen,
                 "where to listen, IPv4; port 0 is a free one (default 127.0.0.1:7440)")
      ->type_name("HOST:PORT");
  app.add_option("-k,--key-file", key_file,
                 "file with the key: 20 raw bytes or 40 hexadecimal digits")
      ->type_name("FILE")
      ->envname("VOLTARIS_KEY_FILE");
  app.add_option("-s,--state", state,
                 "file that keeps what devices are set to (default: 'state' in the fleet's file)")
      ->type_name("FILE");
  app.add_option("--connection-timeout", timeout,
                 "how long a connection may last, 1 to 3600 (default 10)")
      ->type_name("SECONDS")
      ->check(arguments::DecimalFault)
      ->check(CLI::Range(1, 3600).description(""));
  app.add_option("--max-connections", options.max_connections,
                 "connections at once, 1 to 100000 (default 1024); more wait")
      ->type_name("NUMBER")
      ->check(arguments::DecimalFault)
      ->check(CLI::Range(1, 100000).description(""));
  arguments::Repeatable(
      app.add_option("--fault", options.faults,
                     "switch on a fault that the configuration has off; repeatable"),
      "NAME");
  app.add_option("--http", http,
                 "serve a page to look at, and metrics for Prometheus, on this address of the "
                 "loopback network; port 0 is a free one (default: off)")
      ->type_name("HOST:PORT");
  app.add_flag("--http-anywhere", options.http_anywhere,
               "let --http be any address; who can connect sees everything");
  app.add_flag("--check-config", options.check_config,
               "read the configuration, say what is wrong with it, and end");
  app.add_option("--log-level", log_level,
                 "trace, debug, info, warn (default), error, fatal or off")
      ->type_name("LEVEL");
  app.add_option("--log-format", log_format, "text (default), or json: an object a line")
      ->type_name("FORMAT")
      ->check(CLI::IsMember({"text", "json"}).description(""));
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& done) {
    app.exit(done);
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    throw UsageError(std::string(error.what()) + "; see voltaris-node --help");
  }

  if (options.config.empty() == options.replay.empty()) {
    throw UsageError("there must be --config or --replay, and not both; see voltaris-node --help");
  }
  options.listen = ParseListen("--listen", listen);
  options.key_file = key_file.empty() ? CredentialKey() : key_file;
  if (!http.empty()) options.http = ParseHttp(http, options.http_anywhere);
  if (!state.empty()) options.state = state;
  options.connection_timeout = std::chrono::seconds(timeout);
  options.log_level = ParseLogLevel(log_level);
  options.log_format = log_format == "json" ? LogFormat::kJson : LogFormat::kText;
  return options;
}

}  // namespace vt::node

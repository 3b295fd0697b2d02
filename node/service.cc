#include "node/service.h"

#include <exception>
#include <iostream>
#include <span>
#include <string>
#include <utility>

#include "node/log.h"
#include "node/state_keeper.h"

namespace vt::node {
namespace {

ServerLimits LimitsOf(const Options& options) {
  ServerLimits limits;
  limits.connections = options.max_connections;
  limits.connection = options.connection_timeout;
  return limits;
}

}  // namespace

Service::NoSignals::NoSignals() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &saved_);
}

Service::NoSignals::~NoSignals() { pthread_sigmask(SIG_SETMASK, &saved_, nullptr); }

std::optional<voltaris::Key> ReadKey(const Options& options) {
  if (!options.key_file) return std::nullopt;
  std::string warning;
  auto key = voltaris::Key::from_file(*options.key_file, voltaris::KeyFilePolicy::kWarn, &warning);
  if (!key) throw UsageError(key.error().text);
  if (!warning.empty()) std::cerr << "warning: " << warning << std::endl;
  return *std::move(key);
}

Service::Service(const Options& options, FleetFile file, std::optional<voltaris::Key> key)
    : options_(options),
      signals_(io_, SIGINT, SIGTERM, SIGHUP),
      server_(io_, options.listen, LimitsOf(options), [this](std::span<const std::uint8_t> message) {
        return responder_->Answer(message);
      }) {
  no_signals_.reset();
  Use(std::move(file), std::move(key));
  AwaitSignal();
}

// Use answers for that fleet from now on, with what has been set of its devices.
void Service::Use(FleetFile file, std::optional<voltaris::Key> key) {
  StateKeeper state(options_.state ? options_.state : file.state);
  for (const std::string& note : state.Restore(file.fleet)) Log(VT_LOG_WARN, note);
  file.fleet.node.address = server_.address();
  responder_ =
      std::make_unique<Responder>(std::move(file.fleet), std::move(key), std::move(state));
}

void Service::AwaitSignal() {
  signals_.async_wait([this](const asio::error_code& error, int signal) {
    if (error) return;
    if (signal == SIGHUP) {
      server_.Post([this] { Reload(); });
      AwaitSignal();
    } else {
      Log(VT_LOG_INFO, "ended by a signal");
      server_.Stop();
    }
  });
}

void Service::Reload() {
  try {
    Use(LoadFleet(options_.config), ReadKey(options_));
    Log(VT_LOG_INFO, "read the configuration and the key again");
  } catch (const std::exception& error) {
    Log(VT_LOG_ERROR, std::string("the configuration stays as it was: ") + error.what());
  }
}

}  // namespace vt::node

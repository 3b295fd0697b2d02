#include "node/service.h"

#include <exception>
#include <iostream>
#include <span>
#include <string>
#include <utility>

#include "node/log.h"
#include "node/replay.h"
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

void EnableFaults(const Options& options, FleetFile& file) {
  const std::optional<std::string> unknown = Enable(file.faults, options.faults);
  if (unknown) throw UsageError(options.config + " has no fault of the name '" + *unknown + "'");
}

Configuration ReadConfiguration(const Options& options) {
  Configuration configuration;
  configuration.key = ReadKey(options);
  if (!options.replay.empty()) {
    configuration.file.fleet = LoadReplay(options.replay);
    return configuration;
  }
  configuration.file = LoadFleet(options.config, [&](const HostDescription& host) {
    configuration.host = std::make_unique<HostWatch>(host.sensors, host.interval);
    return configuration.host->entities();
  });
  EnableFaults(options, configuration.file);
  return configuration;
}

Service::Service(const Options& options, Configuration first)
    : options_(options),
      signals_(io_, SIGINT, SIGTERM, SIGHUP),
      server_(io_, options.listen, LimitsOf(options),
              [this](std::span<const std::uint8_t> message, const asio::ip::address_v4& client) {
                return responder_->Answer(message, client);
              }) {
  Use(std::move(first));
  no_signals_.reset();
  AwaitSignal();
}

// Use answers for that fleet from now on, with what has been set of its devices.
void Service::Use(Configuration configuration) {
  FleetFile& file = configuration.file;
  StateKeeper state(options_.state ? options_.state : file.state);
  for (const std::string& note : state.Restore(file.fleet)) Log(VT_LOG_WARN, note);
  file.fleet.node.address = server_.address();
  HostControl control{file.host_entities, {}};
  if (file.host) control.actions = std::move(file.host->actions);
  Faults faults(std::move(file.faults));
  if (faults.count() != 0) {
    Log(VT_LOG_WARN,
        "answers go wrong on purpose: faults that are enabled: " + std::to_string(faults.count()));
  }
  responder_ = std::make_shared<Responder>(std::move(file.fleet), std::move(configuration.key),
                                           std::move(state), std::move(control), Clocks::System(),
                                           std::move(faults));
  StartHost(std::move(configuration.host));
}

// StartHost has the sensors of this host read for the responder from now on.
void Service::StartHost(std::unique_ptr<HostWatch> host) {
  host_ = std::move(host);
  if (host_ == nullptr) return;
  responder_->Measured(host_->Read());
  // What was read for an earlier fleet is not for this one.
  host_->Start([this, weak = std::weak_ptr<Responder>(responder_)](std::vector<Reading> readings) {
    server_.Post([weak, readings = std::move(readings)] {
      if (const std::shared_ptr<Responder> responder = weak.lock()) responder->Measured(readings);
    });
  });
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
    Use(ReadConfiguration(options_));
    Log(VT_LOG_INFO, "read the configuration and the key again");
  } catch (const std::exception& error) {
    Log(VT_LOG_ERROR, std::string("the configuration stays as it was: ") + error.what());
  }
}

}  // namespace vt::node

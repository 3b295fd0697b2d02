#include "node/service.h"

#include <asio/post.hpp>

#include <chrono>
#include <csignal>
#include <exception>
#include <iostream>
#include <span>
#include <string>
#include <utility>

#include "files/core_files.h"
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

std::optional<voltaris::Key> ReadKey(const Options& options) {
  if (!options.key_file) return std::nullopt;
  files::ForbidCoreFiles();
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
      signals_(io_),
      next_alive_(io_),
      patience_(io_),
      server_(io_, options.listen, LimitsOf(options), traffic_,
              [this](std::span<const std::uint8_t> message, const asio::ip::address_v4& client,
                     const std::string& name) { return Answer(message, client, name); }) {
  Use(std::move(first));
  if (options.http) {
    monitor_.emplace(io_, *options.http,
                     options.http_anywhere ? HttpHosts::kAny : HttpHosts::kLoopback, server_,
                     traffic_, [this](const auto& look) { responder_->Look(look); });
  }
  signals_.Start([this](int signal) { Take(signal); });
}

std::optional<sockaddr_in> Service::http_address() const {
  return monitor_ ? std::optional(monitor_->address()) : std::nullopt;
}

void Service::Run() {
  status_ = "listening on " + EndpointText(address());
  if (monitor_) status_ += ", http on " + EndpointText(monitor_->address());
  notifier_.Ready(status_);
  TellAlive();
  io_.run();
}

Delivery Service::Answer(std::span<const std::uint8_t> message, const asio::ip::address_v4& client,
                         const std::string& name) {
  AnsweredQuery query;
  query.at = std::chrono::system_clock::now();
  query.client = name;
  const auto start = std::chrono::steady_clock::now();
  Delivery answer = responder_->Answer(message, client, &query.note);
  query.duration = std::chrono::steady_clock::now() - start;
  query.messages = answer.messages.size();
  traffic_.Answered(std::move(query));
  return answer;
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
  UseReplayWindow(file.replay_window);
  StartHost(std::move(configuration.host));
}

void Service::UseReplayWindow(std::optional<std::chrono::seconds> length) {
  if (!length) {
    replay_window_.reset();
  } else if (replay_window_ == nullptr) {
    replay_window_ = std::make_shared<ReplayWindow>(*length);
  } else {
    // What was seen before the reload stays seen.
    replay_window_->Resize(*length);
  }
  responder_->DropReplays(replay_window_);
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

void Service::Take(int signal) {
  if (signal != SIGHUP) {
    is_finishing_ ? Stop() : Finish();
  } else if (!is_finishing_) {
    server_.Post([this] { Reload(); });
  }
}

// Finish lets those have their answers who have asked, for some time; another signal ends that.
void Service::Finish() {
  constexpr std::chrono::seconds kPatience{5};
  Log(VT_LOG_INFO, "ended by a signal");
  is_finishing_ = true;
  notifier_.Stopping();
  patience_.expires_after(kPatience);
  patience_.async_wait([this](const asio::error_code& error) {
    if (!error) Stop();
  });
  server_.Finish([this] { Stop(); });
}

void Service::Stop() {
  if (std::exchange(is_stopped_, true)) return;
  // The thread that answers may be long; another signal need not wait for it.
  signals_.Stop();
  patience_.cancel();
  next_alive_.cancel();
  if (monitor_) monitor_->Stop();
  server_.Stop();
}

// TellAlive goes through the thread that answers: when that is stuck, the node is.
void Service::TellAlive() {
  if (!notifier_.watchdog() || is_stopped_) return;
  next_alive_.expires_after(*notifier_.watchdog() / 2);
  next_alive_.async_wait([this](const asio::error_code& error) {
    if (error) return;
    server_.Post([this] {
      notifier_.Alive();
      asio::post(io_, [this] { TellAlive(); });
    });
  });
}

void Service::Reload() {
  notifier_.Reloading();
  bool ok = false;
  try {
    Use(ReadConfiguration(options_));
    ok = true;
    Log(VT_LOG_INFO, "read the configuration and the key again");
  } catch (const std::exception& error) {
    Log(VT_LOG_ERROR, std::string("the configuration stays as it was: ") + error.what());
  }
  traffic_.Reloaded(ok);
  notifier_.Ready(ok ? status_ : status_ + "; the configuration could not be read again");
}

}  // namespace vt::node

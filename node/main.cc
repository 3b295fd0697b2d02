// voltaris-node: plays a node with a fleet of devices, so that queries have something to talk to.

#include <asio/signal_set.hpp>
#include <signal.h>

#include <exception>
#include <iostream>
#include <memory>
#include <mutex>
#include <utility>

#include "vtapi.hpp"

#include "node/fleet.h"
#include "node/log.h"
#include "node/options.h"
#include "node/responder.h"
#include "node/server.h"

namespace vt::node {
namespace {

enum ExitCode : int { kExitOk = 0, kExitCannotServe = 1, kExitUsage = 2 };

std::optional<voltaris::Key> ReadKey(const Options& options) {
  if (!options.key_file) return std::nullopt;
  std::string warning;
  auto key = voltaris::Key::from_file(*options.key_file, voltaris::KeyFilePolicy::kWarn, &warning);
  if (!key) throw UsageError(key.error().text);
  if (!warning.empty()) std::cerr << "warning: " << warning << std::endl;
  return *std::move(key);
}

// Service is the fleet and the server that answers for it, until a signal ends them.
class Service {
 public:
  Service(const Options& options, Fleet fleet, std::optional<voltaris::Key> key)
      : options_(options),
        signals_(io_, SIGINT, SIGTERM, SIGHUP),
        server_(io_, options.listen, LimitsOf(options),
                [this](std::span<const std::uint8_t> message) {
                  return responder()->Answer(message);
                }) {
    Use(std::move(fleet), std::move(key));
    AwaitSignal();
  }

  sockaddr_in address() const { return server_.address(); }
  void Run() { io_.run(); }

 private:
  static ServerLimits LimitsOf(const Options& options) {
    ServerLimits limits;
    limits.connections = options.max_connections;
    limits.connection = options.connection_timeout;
    return limits;
  }

  // Use answers for that fleet from now on.
  void Use(Fleet fleet, std::optional<voltaris::Key> key) {
    fleet.node.address = server_.address();
    auto next = std::make_shared<Responder>(std::move(fleet), std::move(key));
    const std::lock_guard lock(mutex_);
    responder_ = std::move(next);
  }

  std::shared_ptr<Responder> responder() {
    const std::lock_guard lock(mutex_);
    return responder_;
  }

  void AwaitSignal() {
    signals_.async_wait([this](const asio::error_code& error, int signal) {
      if (error) return;
      if (signal == SIGHUP) {
        Reload();
        AwaitSignal();
      } else {
        Log(VT_LOG_INFO, "ended by a signal");
        server_.Stop();
      }
    });
  }

  void Reload() {
    try {
      Use(LoadFleet(options_.config), ReadKey(options_));
      Log(VT_LOG_INFO, "read the configuration and the key again");
    } catch (const std::exception& error) {
      Log(VT_LOG_ERROR, std::string("the configuration stays as it was: ") + error.what());
    }
  }

  const Options& options_;
  std::mutex mutex_;
  std::shared_ptr<Responder> responder_;
  asio::io_context io_;
  asio::signal_set signals_;
  Server server_;
};

// NoSignals keeps signals from this thread, and for good from those that it starts meanwhile.
class NoSignals {
 public:
  NoSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &saved_);
  }
  ~NoSignals() { pthread_sigmask(SIG_SETMASK, &saved_, nullptr); }
  NoSignals(const NoSignals&) = delete;
  NoSignals& operator=(const NoSignals&) = delete;

 private:
  sigset_t saved_;
};

void Serve(const Options& options, Fleet fleet, std::optional<voltaris::Key> key) {
  std::optional<NoSignals> none(std::in_place);  // for the thread that answers
  Service service(options, std::move(fleet), std::move(key));
  none.reset();
  std::cout << "listening on " << EndpointText(service.address()) << std::endl;
  service.Run();
}

ExitCode Run(int argc, const char* const* argv) {
  const std::optional<Options> options = ParseOptions(argc, argv);
  if (!options) return kExitOk;
  // A reader of standard output that goes away must not end the node.
  (void)signal(SIGPIPE, SIG_IGN);
  StartLog(options->log_level);
  std::optional<voltaris::Key> key = ReadKey(*options);
  // The fleet is read first: a faulty one must not open the port.
  Fleet fleet = LoadFleet(options->config);
  if (options->check_config) {
    std::cout << options->config << ": " << fleet.devices.size() << " entities" << std::endl;
    return kExitOk;
  }
  Serve(*options, std::move(fleet), std::move(key));
  return kExitOk;
}

ExitCode Complain(ExitCode code, const std::exception& error) {
  std::cerr << "voltaris-node: " << error.what() << std::endl;
  return code;
}

}  // namespace
}  // namespace vt::node

int main(int argc, char** argv) {
  using vt::node::Complain;
  try {
    return vt::node::Run(argc, argv);
  } catch (const vt::node::UsageError& error) {
    return Complain(vt::node::kExitUsage, error);
  } catch (const vt::node::FleetError& error) {
    return Complain(vt::node::kExitUsage, error);
  } catch (const std::exception& error) {
    return Complain(vt::node::kExitCannotServe, error);
  }
}

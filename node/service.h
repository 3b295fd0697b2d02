// The node at work: the fleet, the server that answers for it, and the signals that end it or make
// it read its configuration again.
#ifndef VT_NODE_SERVICE_H_
#define VT_NODE_SERVICE_H_

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <netinet/in.h>

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "vtapi.hpp"

#include "node/fleet_file.h"
#include "node/host/host_watch.h"
#include "node/monitor.h"
#include "node/notify.h"
#include "node/options.h"
#include "node/replay_window.h"
#include "node/responder.h"
#include "node/server.h"
#include "node/signals.h"
#include "node/traffic.h"

namespace vt::node {

// ReadKey reads the key that the options name, if they do. It throws UsageError.
std::optional<voltaris::Key> ReadKey(const Options& options);

// Configuration is what the options name: the fleet, the sensors of this host and the key.
struct Configuration {
  FleetFile file;
  std::unique_ptr<HostWatch> host;
  std::optional<voltaris::Key> key;
};

// EnableFaults switches on the faults that the options name. It throws UsageError.
void EnableFaults(const Options& options, FleetFile& file);

// ReadConfiguration reads the files and looks for the sensors. It throws UsageError and FleetError.
Configuration ReadConfiguration(const Options& options);

class Service {
 public:
  // Service listens and brings what the state file holds into the fleet. options must outlive it.
  // It throws std::system_error when it cannot listen, or cannot use the state file. It is made
  // before other threads run, for it takes the service manager's variables from the environment.
  Service(const Options& options, Configuration first);

  sockaddr_in address() const { return server_.address(); }

  // http_address is where the page and the metrics are, if anywhere.
  std::optional<sockaddr_in> http_address() const;

  // Run serves until SIGINT or SIGTERM, and then until those who have asked have their answers,
  // which takes five seconds at most. A second signal ends it without them, once the thread that
  // answers is done with what it does; a third one does not wait for that. The service manager is
  // told when it begins and when it ends.
  void Run();

 private:
  Delivery Answer(std::span<const std::uint8_t> message, const asio::ip::address_v4& client,
                  const std::string& name);
  void Use(Configuration configuration);
  void UseReplayWindow(std::optional<std::chrono::seconds> length);
  void StartHost(std::unique_ptr<HostWatch> host);
  void Take(int signal);
  void Reload();
  void Finish();
  void Stop();
  void TellAlive();

  const Options& options_;
  asio::io_context io_;
  Signals signals_;     // before all that starts threads
  std::string status_;  // for the service manager, from when the node serves
  bool is_finishing_ = false;
  bool is_stopped_ = false;
  const Notifier notifier_ = Notifier::FromEnvironment();
  Traffic traffic_;
  // Used on the thread that answers, from when the server accepts connections.
  std::shared_ptr<Responder> responder_;
  std::shared_ptr<ReplayWindow> replay_window_;  // or null; it outlasts reloads
  asio::steady_timer next_alive_;
  asio::steady_timer patience_;  // with those who still get their answers
  Server server_;
  std::optional<Monitor> monitor_;
  std::unique_ptr<HostWatch> host_;  // last: its thread uses the server
};

}  // namespace vt::node

#endif  // VT_NODE_SERVICE_H_

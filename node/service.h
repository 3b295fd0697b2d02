// The node at work: the fleet, the server that answers for it, and the signals that end it or make
// it read its configuration again.
#ifndef VT_NODE_SERVICE_H_
#define VT_NODE_SERVICE_H_

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <netinet/in.h>
#include <signal.h>

#include <memory>
#include <optional>

#include "vtapi.hpp"

#include "node/fleet_file.h"
#include "node/options.h"
#include "node/responder.h"
#include "node/server.h"

namespace vt::node {

// ReadKey reads the key that the options name, if they do. It throws UsageError.
std::optional<voltaris::Key> ReadKey(const Options& options);

class Service {
 public:
  // Service listens and brings what the state file holds into the fleet. options must outlive it.
  // It throws std::system_error when it cannot listen, or cannot use the state file.
  Service(const Options& options, FleetFile file, std::optional<voltaris::Key> key);

  sockaddr_in address() const { return server_.address(); }

  // Run serves until SIGINT or SIGTERM.
  void Run() { io_.run(); }

 private:
  // NoSignals keeps signals from this thread, and for good from those that it starts meanwhile.
  class NoSignals {
   public:
    NoSignals();
    ~NoSignals();
    NoSignals(const NoSignals&) = delete;
    NoSignals& operator=(const NoSignals&) = delete;

   private:
    sigset_t saved_;
  };

  void Use(FleetFile file, std::optional<voltaris::Key> key);
  void AwaitSignal();
  void Reload();

  const Options& options_;
  std::optional<NoSignals> no_signals_{std::in_place};  // first: while the others start threads
  // Used on the thread that answers, from when the server accepts connections.
  std::unique_ptr<Responder> responder_;
  asio::io_context io_;
  asio::signal_set signals_;
  Server server_;
};

}  // namespace vt::node

#endif  // VT_NODE_SERVICE_H_

// What people and their monitoring see of the node over HTTP: the page, the state behind it, the
// metrics and a probe of health. The fleet belongs to the thread that answers queries; the monitor
// looks at it there, in turns with the answers, and adds up its power at regular times.
#ifndef VT_NODE_MONITOR_H_
#define VT_NODE_MONITOR_H_

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <netinet/in.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "node/fleet_survey.h"
#include "node/http_server.h"
#include "node/power_history.h"
#include "node/server.h"
#include "node/status.h"
#include "node/traffic.h"

namespace vt::node {

class Monitor {
 public:
  // LookAtFleet shows the fleet; it is called by the constructor, then on the thread that answers.
  using LookAtFleet = std::function<void(const std::function<void(const Fleet&, Instant)>&)>;

  // A thread that has not come to a measure for so long is stuck.
  static constexpr std::chrono::seconds kPatience{30};

  // Monitor listens, and serves while io runs. It looks at the fleet once itself, before anybody
  // answers. server and traffic must outlive it. It throws std::system_error when it cannot listen.
  Monitor(asio::io_context& io, const sockaddr_in& address, HttpHosts hosts, Server& server,
          const Traffic& traffic, LookAtFleet look,
          std::chrono::steady_clock::duration patience = kPatience);

  sockaddr_in address() const { return http_.address(); }

  // Stop ends all that it does on io. The server is stopped behind it, before it goes.
  void Stop();

 private:
  void Handle(const HttpRequest& request, const HttpServer::Reply& reply);
  HttpResponse Page() const;
  HttpResponse Health() const;
  void AnswerStatus(const HttpRequest& request, const HttpServer::Reply& reply);
  NodeFigures Figures() const;
  FleetTotals TotalsNow();
  void Measure();
  void Measured(FleetTotals totals, std::chrono::steady_clock::duration took);

  asio::io_context& io_;
  Server& server_;
  const Traffic& traffic_;
  const LookAtFleet look_;
  const std::chrono::steady_clock::duration patience_;
  const WallTime started_ = std::chrono::system_clock::now();
  FleetSurvey survey_;  // used on the thread that answers
  FleetTotals totals_;  // as measured last
  PowerHistory history_;
  asio::steady_timer next_measure_;
  std::optional<std::chrono::steady_clock::time_point> measuring_since_;  // while it is under way
  bool is_stopped_ = false;
  HttpServer http_;
};

}  // namespace vt::node

#endif  // VT_NODE_MONITOR_H_

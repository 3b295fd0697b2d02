#include "node/monitor.h"

#include <asio/post.hpp>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <string_view>
#include <utility>

#include "vtapi.h"

#include "node/options.h"
#include "node/page.h"

namespace vt::node {
namespace {

using Steady = std::chrono::steady_clock;

constexpr std::chrono::seconds kMeasureInterval{1};
// Of the time of the thread that answers, measuring takes a fiftieth at most.
constexpr int kLeastShare = 50;

// Nonce is what makes the scripts and styles of one response known to the browser as ours.
std::string Nonce() {
  std::random_device random;
  constexpr std::string_view digits = "0123456789abcdef";
  std::string nonce;
  for (int i = 0; i < 4; ++i) {
    std::uint32_t bits = random();
    for (int digit = 0; digit < 8; ++digit, bits >>= 4) nonce += digits[bits & 15];
  }
  return nonce;
}

std::string WithNonce(std::string_view page, const std::string& nonce) {
  constexpr std::string_view mark = "{nonce}";
  std::string out;
  for (std::size_t at = page.find(mark); at != std::string_view::npos; at = page.find(mark)) {
    out.append(page.substr(0, at)).append(nonce);
    page.remove_prefix(at + mark.size());
  }
  return out.append(page);
}

}  // namespace

Monitor::Monitor(asio::io_context& io, const sockaddr_in& address, HttpHosts hosts, Server& server,
                 const Traffic& traffic, LookAtFleet look, Steady::duration patience)
    : io_(io),
      server_(server),
      traffic_(traffic),
      look_(std::move(look)),
      patience_(patience),
      next_measure_(io),
      http_(io, address, hosts, {},
            [this](const HttpRequest& request, const HttpServer::Reply& reply) {
              Handle(request, reply);
            }) {
  // Nothing answers yet, and the first who asks is to see the fleet.
  const Steady::time_point start = Steady::now();
  FleetTotals totals = TotalsNow();
  Measured(std::move(totals), Steady::now() - start);
}

void Monitor::Stop() {
  is_stopped_ = true;
  next_measure_.cancel();
  http_.Stop();
}

void Monitor::Handle(const HttpRequest& request, const HttpServer::Reply& reply) {
  if (request.path == "/") {
    reply(Page());
  } else if (request.path == "/api/status") {
    AnswerStatus(request, reply);
  } else if (request.path == "/metrics") {
    reply({200, std::string(kMetricsType), WriteMetrics(Figures()), {}});
  } else if (request.path == "/healthz") {
    reply(Health());
  } else {
    throw HttpError(404, "there is no such page; there are /, /metrics, /api/status and /healthz");
  }
}

HttpResponse Monitor::Page() const {
  const std::string nonce = Nonce();
  return {200,
          "text/html; charset=utf-8",
          WithNonce(kPage, nonce),
          {{"Content-Security-Policy",
            "default-src 'none'; script-src 'nonce-" + nonce + "'; style-src 'nonce-" + nonce +
                "'; img-src data:; connect-src 'self'; base-uri 'none'; form-action 'none'; "
                "frame-ancestors 'none'"}}};
}

// The measures run on the thread that answers, in their turn: they come to a stop with it.
HttpResponse Monitor::Health() const {
  if (measuring_since_ && Steady::now() - *measuring_since_ > patience_) {
    return {503, "text/plain; charset=utf-8", "the thread that answers queries is stuck\n", {}};
  }
  return {200, "text/plain; charset=utf-8", "ok\n", {}};
}

NodeFigures Monitor::Figures() const {
  return {voltaris_utl_getVersion(), started_, traffic_.counts(), server_.log_lines_left_out(),
          totals_};
}

void Monitor::AnswerStatus(const HttpRequest& request, const HttpServer::Reply& reply) {
  NodeStatus status;
  status.request = ReadPageRequest(request.fields);
  status.figures = Figures();
  status.address = EndpointText(server_.address());
  status.now = std::chrono::system_clock::now();
  status.history = history_.points();
  status.queries = traffic_.queries();
  status.bad_peers = traffic_.bad_peers();
  server_.Post([this, reply = reply, status = std::move(status)]() mutable {
    look_([&](const Fleet& fleet, Instant now) {
      status.page = survey_.Select(fleet, now, status.request);
    });
    HttpResponse response{200, "application/json", WriteStatus(status), {}};
    asio::post(io_, [reply = std::move(reply), response = std::move(response)]() mutable {
      reply(std::move(response));
    });
  });
}

FleetTotals Monitor::TotalsNow() {
  FleetTotals totals;
  look_([&](const Fleet& fleet, Instant now) { totals = survey_.Measure(fleet, now); });
  return totals;
}

void Monitor::Measure() {
  measuring_since_ = Steady::now();
  server_.Post([this] {
    const Steady::time_point start = Steady::now();
    FleetTotals totals = TotalsNow();
    asio::post(io_, [this, totals = std::move(totals), took = Steady::now() - start]() mutable {
      Measured(std::move(totals), took);
    });
  });
}

void Monitor::Measured(FleetTotals totals, Steady::duration took) {
  measuring_since_.reset();
  totals_ = std::move(totals);
  history_.Add(
      {totals_.at, totals_.milliwatts[static_cast<std::size_t>(PowerCategory::kConsumer)]});
  if (is_stopped_) return;
  next_measure_.expires_after(std::max<Steady::duration>(kMeasureInterval, took * kLeastShare));
  next_measure_.async_wait([this](const asio::error_code& error) {
    if (!error && !is_stopped_) Measure();
  });
}

}  // namespace vt::node

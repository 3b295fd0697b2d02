#include "tools/ping_command.h"

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tools/console.h"
#include "tools/gathering.h"
#include "tools/inquiry.h"
#include "tools/pause.h"
#include "tools/ping_report.h"
#include "tools/query.h"
#include "tools/resolve.h"
#include "tools/sessions.h"
#include "tools/standard_output.h"
#include "tools/stop_signals.h"

namespace vt::tools {
namespace {

using std::chrono::milliseconds;

// Each takes a descriptor, of which a process commonly has 1024.
constexpr std::size_t kMostProbes = 512;

// PingQuery reads what every device has. Any answer will do, refusals as well.
voltaris::QueryDescription PingQuery(const Options& options, const Target& target) {
  static constexpr std::array kAsked = {voltaris::name.number};
  return DescribeCollect(options, target, kAsked);
}

// NameTimes is filled by the threads of the resolver, which may outlive whoever waits for them.
struct NameTimes {
  std::mutex mutex;
  std::map<std::string, std::chrono::nanoseconds> times;
};

class Ping {
 public:
  explicit Ping(const Options& options)
      : options_(options), is_document_(options.output.format == Format::kJson) {
    for (const Target& target : options_.targets) {
      CheckQuery(PingQuery(options_, target));
      nodes_.emplace_back();
      nodes_.back().target = &target;
    }
    addresses_ = FindAddresses();
    sessions_ = OpenSessions(options_, addresses_);
  }

  int Run() {
    for (number_ = 1;; ++number_) {
      const Clock::time_point start = Clock::now();
      RunRound();
      const bool was_last = number_ == options_.repeat.count;
      if (was_last || !PauseUntil(start + options_.repeat.interval)) break;
    }
    return Tell();
  }

 private:
  // FindAddresses notes how long each look-up takes.
  std::vector<Resolution> FindAddresses() {
    std::vector<std::string> hosts;
    for (const PingedNode& node : nodes_) hosts.push_back(node.target->host);
    const auto noted = std::make_shared<NameTimes>();
    const auto look_up = [noted](const std::string& host) {
      const Clock::time_point start = Clock::now();
      Resolution found = LookUpIpv4(host);
      const std::lock_guard lock(noted->mutex);
      noted->times.emplace(host, Clock::now() - start);
      return found;
    };
    const Clock::time_point deadline =
        Clock::now() + std::min(options_.connect_timeout, options_.timeout);
    std::vector<Resolution> addresses = Resolve(hosts, deadline, look_up, StopDescriptor());
    const std::lock_guard lock(noted->mutex);
    for (PingedNode& node : nodes_) {
      const auto found = noted->times.find(node.target->host);
      if (found != noted->times.end()) node.name_time = found->second;
    }
    return addresses;
  }

  // RunRound asks all nodes once, so many at a time.
  void RunRound() {
    for (std::size_t first = 0; first < nodes_.size() && StopSignal() == 0; first += Width()) {
      RunSome(first, std::min(nodes_.size(), first + Width()));
    }
  }

  std::size_t Width() const { return std::min<std::size_t>(options_.fanout, kMostProbes); }

  void RunSome(std::size_t first, std::size_t end) {
    std::vector<PingProbe> probes;
    std::vector<std::size_t> places;
    for (std::size_t node = first; node < end; ++node) {
      if (!sessions_[node]) {
        Take(nodes_[node], {{}, {Status::kUnreachable, addresses_[node].reason}});
        continue;
      }
      places.push_back(node);
      probes.emplace_back(*sessions_[node], PingQuery(options_, options_.targets[node]),
                          voltaris::Deadlines{.connect = options_.connect_timeout,
                                              .idle = LongestSilence(options_),
                                              .total = options_.timeout});
    }
    std::vector<pollfd> watched(probes.size() + 1);
    std::size_t running = probes.size();
    while (running > 0 && StopSignal() == 0) {
      Wait(probes, watched);
      for (std::size_t i = 0; i < probes.size(); ++i) {
        if (probes[i].has_ended() || !probes[i].Step(watched[i].revents)) continue;
        --running;
        Take(nodes_[places[i]], probes[i].result());
      }
    }
    // What a signal cuts short was neither answered nor lost.
  }

  static void Wait(const std::vector<PingProbe>& probes, std::vector<pollfd>& watched) {
    std::optional<milliseconds> time;
    for (std::size_t i = 0; i < probes.size(); ++i) {
      watched[i] = probes[i].Watched();
      if (probes[i].has_ended()) continue;
      const std::optional<milliseconds> left = probes[i].timeout();
      if (left && (!time || *left < *time)) time = left;
    }
    watched.back() = {StopDescriptor(), POLLIN, 0};
    (void)poll(watched.data(), watched.size(), time ? static_cast<int>(time->count()) : -1);
  }

  void Take(PingedNode& node, const PingResult& result) const {
    node.last = result.verdict;
    if (const PingTimes::Time total = result.times.total(); total && result.IsAnswered()) {
      node.statistics.AddAnswered(std::chrono::duration<double, std::milli>(*total).count());
    } else {
      node.statistics.AddLost();
    }
    if (is_document_) {
      node.results.push_back(result);
    } else {
      WriteOut(PingLine(node, number_, result));
    }
  }

  int Tell() const {
    std::vector<Status> statuses;
    for (const PingedNode& node : nodes_) statuses.push_back(StatusOf(node));
    const int signal = StopSignal();
    const int code = signal != 0 ? kExitSignal + signal : int{Overall(statuses)};
    WriteOut(is_document_ ? PingJson(nodes_, code, signal) : StatisticsText(nodes_));
    if (signal == 0) TellHint(code);
    return code;
  }

  void TellHint(int code) const {
    for (const PingedNode& node : nodes_) {
      const Status status = StatusOf(node);
      if (status == Status::kOk || int{CodeOf(status)} != code) continue;
      const std::string_view hint = HintOf(status);
      if (!hint.empty()) Complain("hint: " + std::string(hint));
      return;
    }
  }

  const Options& options_;
  bool is_document_;
  std::vector<PingedNode> nodes_;
  std::vector<Resolution> addresses_;
  std::vector<std::optional<voltaris::Session>> sessions_;  // none where there is no address
  unsigned number_ = 0;
};

}  // namespace

int RunPing(const Options& options) { return Ping(options).Run(); }

}  // namespace vt::tools

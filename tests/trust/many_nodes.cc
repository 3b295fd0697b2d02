// Very many nodes asked by one thread: first some of every manner, then silent ones alone. The
// outcomes must be exact, and all must end in time. Run by scripts/many-nodes.
#include <malloc.h>
#include <poll.h>
#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vtapi.h"

#include "tests/api/api_support.h"
#include "tests/harness/sanitizers.h"
#include "tests/trust/crowd.h"

namespace {

using namespace vt::testing;

struct Options {
  std::size_t nodes = 10000;
  std::int32_t deadline_ms = 3000;
  std::optional<double> most_late_ms;
};

int failures = 0;

void Expect(bool condition, const std::string& what) {
  if (condition) return;
  std::printf("FAILED: %s\n", what.c_str());
  ++failures;
}

double Milliseconds(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// HeapInUse is what malloc has handed out, or nothing where malloc is a sanitizer's.
std::optional<std::size_t> HeapInUse() {
#ifdef VT_SANITIZER
  return std::nullopt;
#else
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
#endif
}

// AllowDescriptors raises the limit as far as it goes and gives how many nodes it allows: each
// takes a descriptor here and one in the crowd's process.
std::size_t AllowDescriptors() {
  constexpr std::size_t kOthers = 200;
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  return static_cast<std::size_t>(limit.rlim_cur) - kOthers;
}

// Asked is a fleet with the queries that its results read.
struct Asked {
  std::vector<QueryPtr> queries;
  FleetPtr fleet;

  explicit Asked(std::size_t most) : fleet(voltaris_createFleet(static_cast<std::uint32_t>(most))) {
    queries.reserve(most);
  }

  void Add(Session& session, const CollectionOptions& options, Manner manner) {
    queries.emplace_back(voltaris_createCollectQuery("office", 7));
    (void)voltaris_addGetAttribute(queries.back().get(), VT_ATTRIBUTE_USAGE);
    void* const tag = reinterpret_cast<void*>(static_cast<std::uintptr_t>(manner));
    if (voltaris_addToFleet(fleet.get(), &session, queries.back().get(), &options, tag) ==
        nullptr) {
      std::printf("FAILED: a collection cannot be made\n");
      std::exit(1);
    }
  }
};

std::int32_t ExpectedOutcome(Manner manner) {
  constexpr std::array<std::int32_t, kManners> kExpected = {
      VT_COLLECTION_COMPLETE, VT_COLLECTION_REFUSED, VT_COLLECTION_DEADLINE, VT_COLLECTION_DEADLINE,
      VT_COLLECTION_READ_ERROR};
  return kExpected[static_cast<std::size_t>(manner)];
}

const char* NameOf(Manner manner) {
  constexpr std::array<const char*, kManners> kNames = {"answer", "refuse", "silent", "drip",
                                                        "reset"};
  return kNames[static_cast<std::size_t>(manner)];
}

// Tally is how the nodes of a manner ended.
struct Tally {
  std::size_t nodes = 0;
  std::size_t as_expected = 0;
  std::size_t rows = 0;
  std::uint64_t bytes = 0;
};

struct Tallies {
  std::array<Tally, kManners> of;
};

std::int32_t Count(void* context, ReplyCollection* c, void* tag,
                   const FleetCounters* /*counters*/) {
  const auto manner = static_cast<Manner>(reinterpret_cast<std::uintptr_t>(tag));
  Tally& tally = static_cast<Tallies*>(context)->of[static_cast<std::size_t>(manner)];
  ++tally.nodes;
  if (voltaris_getCollectionOutcome(c) == ExpectedOutcome(manner)) ++tally.as_expected;
  tally.bytes += voltaris_getCollectionCounters(c)->bytes;
  const ResultPtr result(voltaris_takeCollectionResult(c));
  tally.rows += static_cast<std::size_t>(voltaris_getRowCount(result.get()));
  return 0;
}

std::vector<SessionPtr> SessionsOf(const Crowd& crowd, Manner manner) {
  constexpr std::size_t kPorts = 16;
  std::vector<SessionPtr> sessions;
  for (std::size_t i = 0; i < kPorts; ++i) {
    sessions.push_back(LoopbackSession(crowd.PortOf(manner, i)));
  }
  return sessions;
}

void AskEveryManner(const Options& options) {
  const Crowd crowd;
  const CollectionOptions limits = {
      .connect_ms = -1, .idle_ms = -1, .total_ms = options.deadline_ms};
  std::array<std::vector<SessionPtr>, kManners> sessions;
  for (std::size_t m = 0; m < kManners; ++m) {
    sessions[m] = SessionsOf(crowd, static_cast<Manner>(m));
  }
  Asked asked(options.nodes);
  for (std::size_t i = 0; i < options.nodes; ++i) {
    const std::size_t m = i % kManners;
    asked.Add(*sessions[m][i / kManners % sessions[m].size()], limits, static_cast<Manner>(m));
  }
  Tallies tallies;
  const double start = Milliseconds(CLOCK_MONOTONIC);
  const double start_cpu = Milliseconds(CLOCK_PROCESS_CPUTIME_ID);
  Expect(voltaris_runFleet(asked.fleet.get(), Count, &tallies) == 0, "the fleet was cancelled");
  const double took = Milliseconds(CLOCK_MONOTONIC) - start;
  const double late = took - options.deadline_ms;
  std::printf(
      "%zu nodes of every manner: %.0f ms, %.0f ms after the deadline of %d ms; %.0f ms of "
      "processor time\n",
      options.nodes, took, late, options.deadline_ms,
      Milliseconds(CLOCK_PROCESS_CPUTIME_ID) - start_cpu);
  for (std::size_t m = 0; m < kManners; ++m) {
    const auto manner = static_cast<Manner>(m);
    const Tally& tally = tallies.of[m];
    std::printf("  %zu that %s: %zu %s, %zu rows, %llu bytes\n", tally.nodes, NameOf(manner),
                tally.as_expected, voltaris_nameOutcome(ExpectedOutcome(manner)), tally.rows,
                static_cast<unsigned long long>(tally.bytes));
    const std::size_t asked_of = options.nodes / kManners + (m < options.nodes % kManners ? 1 : 0);
    Expect(tally.nodes == asked_of, "not all were told of");
    Expect(tally.as_expected == asked_of,
           std::string("other outcomes of those that ") + NameOf(manner));
    Expect(tally.rows == (manner == Manner::kAnswers ? asked_of : 0), "another number of rows");
  }
  if (options.most_late_ms) {
    Expect(late <= *options.most_late_ms, "the last ended too late");
  }
}

// Wait watches the fleet for some time and counts how often there was something to do.
std::size_t Wait(CollectionFleet* fleet, double milliseconds) {
  const double until = Milliseconds(CLOCK_MONOTONIC) + milliseconds;
  std::size_t wakes = 0;
  for (;;) {
    const double left = until - Milliseconds(CLOCK_MONOTONIC);
    if (left <= 0) return wakes;
    pollfd watched = {voltaris_getFleetDescriptor(fleet), POLLIN, 0};
    const int timeout = voltaris_getFleetTimeout(fleet);
    const int patience = static_cast<int>(left) + 1;
    const int wait = timeout < 0 ? patience : std::min(timeout, patience);
    if (poll(&watched, 1, wait) != 0 || wait == timeout) ++wakes;
    (void)voltaris_stepFleet(fleet);
  }
}

void AskTheSilent(const Options& options) {
  constexpr double kSilenceMs = 1000;
  constexpr std::size_t kMostPerNode = 4096;
  constexpr double kMostIdleMs = 20;
  constexpr std::size_t kMostWakes = 2;
  const Crowd crowd;
  const CollectionOptions limits = {.connect_ms = -1, .idle_ms = -1, .total_ms = -1};
  const std::vector<SessionPtr> sessions = SessionsOf(crowd, Manner::kSaysNothing);
  Asked asked(options.nodes);
  const std::optional<std::size_t> heap_before = HeapInUse();
  for (std::size_t i = 0; i < options.nodes; ++i) {
    asked.Add(*sessions[i % sessions.size()], limits, Manner::kSaysNothing);
  }
  while (crowd.queries() < options.nodes) {
    (void)voltaris_stepFleet(asked.fleet.get());
    pollfd watched = {voltaris_getFleetDescriptor(asked.fleet.get()), POLLIN, 0};
    (void)poll(&watched, 1, 1);
  }
  (void)voltaris_stepFleet(asked.fleet.get());
  Expect(voltaris_getFleetCounters(asked.fleet.get())->running == options.nodes,
         "not all silent ones are pending");
  if (heap_before) {
    const std::size_t each = (*HeapInUse() - *heap_before) / options.nodes;
    const std::size_t beside = each - sizeof(ResultSet);
    std::printf(
        "%zu pending: %zu bytes of heap each, its query and result set included; %zu beside "
        "the result set\n",
        options.nodes, each, beside);
    Expect(beside <= kMostPerNode, "more than 4 KB for a pending node");
  } else {
    std::printf("%zu pending: no figure of the heap, which is a sanitizer's\n", options.nodes);
  }
  const double start_cpu = Milliseconds(CLOCK_PROCESS_CPUTIME_ID);
  const std::size_t wakes = Wait(asked.fleet.get(), kSilenceMs);
  const double cpu = Milliseconds(CLOCK_PROCESS_CPUTIME_ID) - start_cpu;
  std::printf("%.0f ms of silence: %zu wake-ups, %.2f ms of processor time\n", kSilenceMs, wakes,
              cpu);
  Expect(wakes <= kMostWakes, "wake-ups without a reason");
  Expect(cpu <= kMostIdleMs, "processor time without a reason");
  voltaris_cancelFleet(asked.fleet.get());
  std::size_t cancelled = 0;
  while (const CollectionPtr c{voltaris_takeEnded(asked.fleet.get(), nullptr)}) {
    if (voltaris_getCollectionOutcome(c.get()) == VT_COLLECTION_CANCELLED) ++cancelled;
  }
  Expect(cancelled == options.nodes, "not all were cancelled");
}

Options Parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string_view name = argv[i];
    const double value = std::strtod(argv[i + 1], nullptr);
    if (name == "--nodes") options.nodes = static_cast<std::size_t>(value);
    if (name == "--deadline") options.deadline_ms = static_cast<std::int32_t>(value);
    if (name == "--late") options.most_late_ms = value;
  }
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  Options options = Parse(argc, argv);
  setLogLevel(6);
  const std::size_t allowed = AllowDescriptors();
  if (options.nodes > allowed) {
    std::printf("the limit of descriptors allows %zu nodes instead of %zu\n", allowed,
                options.nodes);
    options.nodes = allowed;
  }
  AskEveryManner(options);
  AskTheSilent(options);
  return failures == 0 ? 0 : 1;
}

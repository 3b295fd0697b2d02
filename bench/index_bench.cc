// How the cost of a device or a row changes with the number of devices: P6a and P6b by the look-up
// alone, P6c by the whole path of a reply. P8 holds the release of a result against its making.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "bench/measure.h"
#include "bench/messages.h"
#include "bench/options.h"

namespace {

using namespace vt::bench;  // NOLINT(google-build-using-namespace): this program's own

Query* AskingFor(const Shape& shape) {
  static std::vector<QueryPtr> kept;
  kept.push_back(CollectQuery(shape));
  return kept.back().get();
}

// A query like any other, for folds that add no rows.
Query* SomeQuery() {
  static Query* const query = AskingFor(Messages(1).NewShape());
  return query;
}

// SingleElement is a decoded message of one aggregate, which is exchanged for every fold: neither
// digest nor decoding nor scattered messages stand in front of the look-up.
class SingleElement {
 public:
  SingleElement() {
    tlv_.type = VT_TLV_AGGREGATED | CV_CORVANE_TLV_TYPE_USAGE;
    pak_.class_ = CV_CLASS_QUERY;
    pak_.action = CV_ACTION_MXRT_CORVANE_QUERY_COLLECT;
    pak_.tlv_count = 1;
    event_.state = CV_EVENT_STATE_OK;
    event_.pak_valid = 1;
    event_.pak = &pak_;
    event_.tlvs = &slot_;
    event_.tlv_capacity = 1;
  }
  SingleElement(const SingleElement&) = delete;
  SingleElement& operator=(const SingleElement&) = delete;

  void Fold(aggregated_value& aggregate, ResultSet* result) {
    tlv_.value = &aggregate;
    vtn_addResult(&event_, result);
  }

 private:
  Tlv tlv_{};
  Tlv* slot_ = &tlv_;
  message_header pak_{};
  Event event_{};
};

// Arrivals are aggregates without entries: each finds or makes a device, and no row.
std::vector<aggregated_value> Arrivals(std::span<const corvane_id> devices) {
  std::vector<aggregated_value> arrivals(devices.size());
  for (std::size_t i = 0; i < devices.size(); ++i) {
    arrivals[i].device.id = devices[i];
  }
  return arrivals;
}

enum class Order { kRandom, kSorted, kReverse };

std::vector<aggregated_value> ArrivalsInOrder(Order order) {
  Messages messages(20240612);
  std::vector<corvane_id> devices = messages.Devices(BigScale());
  const auto less = [](const corvane_id& a, const corvane_id& b) {
    return corvane_id_cmp(&a, &b) < 0;
  };
  if (order != Order::kRandom) std::sort(devices.begin(), devices.end(), less);
  if (order == Order::kReverse) std::reverse(devices.begin(), devices.end());
  return Arrivals(devices);
}

// FoldInSets folds all arrivals, set_size of them into one result each, and times the folds alone.
double FoldInSets(std::span<aggregated_value> arrivals, std::size_t set_size) {
  Stopwatch watch;
  SingleElement message;
  for (; !arrivals.empty(); arrivals = arrivals.subspan(set_size)) {
    ResultSet* const result = NewResult(SomeQuery());
    watch.Start();
    for (aggregated_value& arrival : arrivals.first(set_size)) message.Fold(arrival, result);
    watch.Stop();
    Require(result->rows.depth == static_cast<std::int32_t>(set_size), "devices are missing");
    Release(result);
  }
  return watch.elapsed_ns();
}

void FindOrInsert(benchmark::State& state, Order order) {
  std::vector<aggregated_value> arrivals = ArrivalsInOrder(order);
  CompareInTurn(
      state, arrivals.size(), [&] { return FoldInSets(arrivals, arrivals.size()); },
      [&] { return FoldInSets(arrivals, kSmallScale); });
}

// FindKnown folds a second message of every device, in another order than the first.
void FindKnown(benchmark::State& state) {
  static std::vector<aggregated_value> first = ArrivalsInOrder(Order::kRandom);
  static std::vector<aggregated_value> again = [] {
    std::vector<corvane_id> devices;
    for (const aggregated_value& arrival : first) devices.push_back(arrival.device.id);
    Messages(20240613).Shuffle(devices);
    return Arrivals(devices);
  }();
  static ResultSet* const result = [] {
    ResultSet* const made = NewResult(SomeQuery());
    SingleElement message;
    for (aggregated_value& arrival : first) message.Fold(arrival, made);
    return made;
  }();
  const auto find = [&] {
    SingleElement message;
    const double elapsed = TimeNs([&] {
      for (aggregated_value& arrival : again) message.Fold(arrival, result);
    });
    Require(result->rows.depth == static_cast<std::int32_t>(first.size()), "a device is twice");
    return elapsed;
  };
  const auto allocate = [&] {
    return TimeNs([&] {
      for (std::size_t i = 0; i < again.size(); ++i) {
        void* block = std::calloc(1, sizeof(device_node));
        benchmark::DoNotOptimize(block);
        std::free(block);
      }
    });
  };
  CompareInTurn(state, again.size(), find, allocate);
}

// Received is replies to one query, and how many rows they hold.
struct Received {
  Shape shape;
  Query* query;
  std::vector<Bytes> replies;
  std::size_t rows_of_reply;
};

// SingleRows is as many replies as the big scale, each one row of a device of its own.
const Received& SingleRows() {
  static const Received received = [] {
    Messages messages(20240614);
    Received made{messages.NewShape(), nullptr, {}, 1};
    made.query = AskingFor(made.shape);
    for (const corvane_id& device : messages.Devices(BigScale())) {
      made.replies.push_back(messages.Reply(made.shape, std::span(&device, 1), 1));
    }
    return made;
  }();
  return received;
}

// FullReplies is full replies with about as many rows as the big scale.
const Received& FullReplies() {
  static const Received received = [] {
    Messages messages(20240615);
    Received made{messages.NewShape(), nullptr, {}, kRowsOfFull};
    made.query = AskingFor(made.shape);
    for (std::size_t rows = 0; rows < BigScale(); rows += kRowsOfFull) {
      made.replies.push_back(messages.FullReply(made.shape));
    }
    return made;
  }();
  return received;
}

// Times of the two halves of a result's life.
struct Lifetime {
  double building_ns = 0;
  double walking_ns = 0;
  double releasing_ns = 0;
  [[nodiscard]] double all_ns() const { return building_ns + walking_ns + releasing_ns; }
};

Lifetime Live(const Received& received, std::span<const Bytes> replies) {
  ResultSet* const result = NewResult(received.query);
  Lifetime lifetime;
  lifetime.building_ns = TimeNs([&] {
    for (const Bytes& reply : replies) {
      vtn_processReply(reply.data(), static_cast<std::int32_t>(reply.size()), result,
                       &KeyContext());
    }
  });
  std::size_t rows = 0;
  lifetime.walking_ns = TimeNs([&] { rows = Walk(result, received.shape); });
  Require(rows == replies.size() * received.rows_of_reply, "rows are missing");
  lifetime.releasing_ns = TimeNs([&] { Release(result); });
  return lifetime;
}

double LiveInSets(const Received& received, std::size_t set_size) {
  double elapsed = 0;
  for (std::span rest(received.replies); !rest.empty(); rest = rest.subspan(set_size)) {
    elapsed += Live(received, rest.first(set_size)).all_ns();
  }
  return elapsed;
}

void WholePath(benchmark::State& state) {
  const Received& received = SingleRows();
  CompareInTurn(
      state, received.replies.size(), [&] { return LiveInSets(received, received.replies.size()); },
      [&] { return LiveInSets(received, kSmallScale); });
}

void ReleaseAgainstBuilding(benchmark::State& state, const Received& (*replies)()) {
  const Received& received = replies();
  Comparison comparison(state);
  for (auto _ : state) {
    const Lifetime lifetime = Live(received, received.replies);
    comparison.Add(lifetime.releasing_ns, lifetime.building_ns,
                   received.replies.size() * received.rows_of_reply);
  }
}

// One iteration each: that is the whole scale, and the repetitions are many.
BENCHMARK_CAPTURE(FindOrInsert, , Order::kRandom)
    ->Name("P6a/random")
    ->UseManualTime()
    ->Iterations(1);
BENCHMARK_CAPTURE(FindOrInsert, , Order::kSorted)
    ->Name("P6a/sorted")
    ->UseManualTime()
    ->Iterations(1);
BENCHMARK_CAPTURE(FindOrInsert, , Order::kReverse)
    ->Name("P6a/reverse")
    ->UseManualTime()
    ->Iterations(1);
BENCHMARK(FindKnown)->Name("P6b/known")->UseManualTime()->Iterations(1);
BENCHMARK(WholePath)->Name("P6c/whole_path")->UseManualTime()->Iterations(1);
BENCHMARK_CAPTURE(ReleaseAgainstBuilding, , FullReplies)
    ->Name("P8/full_replies")
    ->UseManualTime()
    ->Iterations(1);
BENCHMARK_CAPTURE(ReleaseAgainstBuilding, , SingleRows)
    ->Name("P8/one_row_a_reply")
    ->UseManualTime()
    ->Iterations(1);

}  // namespace

// What replies cost in memory: P3 the allocations to decode and to fold one, P7 the heap at its
// peak for each row of a big result. Counts, not times.
#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "bench/heap_counter.h"
#include "bench/measure.h"
#include "bench/messages.h"

namespace {

using namespace vt::bench;  // NOLINT(google-build-using-namespace): this program's own

constexpr std::size_t kShapes = 16;
constexpr std::array<std::size_t, 6> kRowCounts = {1, 2, 4, 8, 16, kRowsOfFull};

// Sample is a reply of so many rows, and a query that it answers.
struct Sample {
  std::size_t rows;
  Query* query;
  Bytes reply;
};

// Samples gives replies of every number of rows, several columns each, of one device and of two.
const std::vector<Sample>& Samples() {
  static std::vector<QueryPtr> queries;
  static const std::vector<Sample> all = [] {
    Messages messages(20240616);
    std::vector<Sample> made;
    for (std::size_t i = 0; i < kShapes; ++i) {
      const Shape shape = messages.NewShape();
      Query* const query = queries.emplace_back(CollectQuery(shape)).get();
      for (const std::size_t rows : kRowCounts) {
        if (rows == kRowsOfFull) {
          made.push_back({rows, query, messages.FullReply(shape)});
          continue;
        }
        const std::vector<corvane_id> devices =
            messages.Devices(rows > 1 ? messages.Between(1, 2) : 1);
        made.push_back({rows, query, messages.Reply(shape, devices, rows)});
      }
    }
    return made;
  }();
  return all;
}

EventPtr Decode(const Bytes& reply) {
  EventPtr event(cv_mkevent_from_rawbuffer(static_cast<std::int32_t>(reply.size()), reply.data()));
  Require(cv_unpack_event(event.get(), &KeyContext()) == 0, "a reply was refused");
  return event;
}

// The worst of all samples, by the allocations above what the reply may take for its own size.
struct Worst {
  std::intptr_t excess = INTPTR_MIN;
  std::size_t allocations = 0;
  std::size_t allowance = 0;

  void Add(std::size_t here, std::size_t allowed) {
    const auto above = static_cast<std::intptr_t>(here) - static_cast<std::intptr_t>(allowed);
    if (above < excess || (above == excess && here <= allocations)) return;
    *this = {above, here, allowed};
  }
  // Reports allocations as ours, what comes with the size as floor, and the difference as excess.
  void Report(benchmark::State& state) const {
    state.counters["ours"] = static_cast<double>(allocations);
    state.counters["floor"] = static_cast<double>(allowance);
    state.counters["excess"] = static_cast<double>(excess);
  }
};

// DecodeAllocations: one for each element is allowed for.
void DecodeAllocations(benchmark::State& state) {
  Worst worst;
  for (auto _ : state) {
    for (const Sample& sample : Samples()) {
      const HeapCounter counter;
      const EventPtr event = Decode(sample.reply);
      worst.Add(counter.allocations(), event->pak->tlv_count);
    }
  }
  worst.Report(state);
}

// DecodeGrowth is how many more allocations a reply of 29 rows takes than one of a single row and
// as many elements.
void DecodeGrowth(benchmark::State& state) {
  std::vector<std::size_t> single;
  std::vector<std::size_t> full;
  for (auto _ : state) {
    for (const Sample& sample : Samples()) {
      if (sample.rows != 1 && sample.rows != kRowsOfFull) continue;
      const HeapCounter counter;
      const EventPtr event = Decode(sample.reply);
      const std::size_t allocations = counter.allocations();
      if (event->pak->tlv_count != kColumns + 1) continue;  // of two devices
      (sample.rows == 1 ? single : full).push_back(allocations);
    }
  }
  const std::size_t least = *std::min_element(single.begin(), single.end());
  const std::size_t most = *std::max_element(full.begin(), full.end());
  state.counters["ours"] = static_cast<double>(most);
  state.counters["floor"] = static_cast<double>(least);
  state.counters["excess"] = static_cast<double>(most) - static_cast<double>(least);
}

// FoldAllocations: one for every 64 attributes is allowed for.
void FoldAllocations(benchmark::State& state) {
  constexpr std::size_t kAttributes = 64;
  Worst worst;
  for (auto _ : state) {
    for (const Sample& sample : Samples()) {
      const EventPtr event = Decode(sample.reply);
      ResultSet* const result = NewResult(sample.query);
      std::size_t allocations = 0;
      {
        const HeapCounter counter;
        vtn_addResult(event.get(), result);
        allocations = counter.allocations();
      }
      Require(voltaris_getRowCount(result) == static_cast<std::int32_t>(sample.rows),
              "rows are missing");
      worst.Add(allocations, (sample.rows * kColumns + kAttributes - 1) / kAttributes);
      Release(result);
    }
  }
  worst.Report(state);
}

// PeakHeap builds and walks a result of 10,000 rows that come rows_of_reply a reply, or in full
// replies.
void PeakHeap(benchmark::State& state, std::size_t rows_of_reply) {
  constexpr std::size_t kRows = 10000;
  Messages messages(20240617);
  const Shape shape = messages.NewShape();
  const QueryPtr query = CollectQuery(shape);
  std::vector<Bytes> replies;
  while (replies.size() * rows_of_reply < kRows) {
    replies.push_back(rows_of_reply == kRowsOfFull
                          ? messages.FullReply(shape)
                          : messages.Reply(shape, messages.Devices(1), rows_of_reply));
  }
  const std::size_t rows = replies.size() * rows_of_reply;
  for (auto _ : state) {
    const HeapCounter counter;
    ResultSet* const result = NewResult(query.get());
    for (const Bytes& reply : replies) {
      vtn_processReply(reply.data(), static_cast<std::int32_t>(reply.size()), result,
                       &KeyContext());
    }
    Require(Walk(result, shape) == rows, "rows are missing");
    Release(result);
    state.counters["ours"] = static_cast<double>(counter.peak_bytes()) / static_cast<double>(rows);
  }
}

BENCHMARK(DecodeAllocations)->Name("P3/decode")->Iterations(1);
BENCHMARK(DecodeGrowth)->Name("P3/growth")->Iterations(1);
BENCHMARK(FoldAllocations)->Name("P3/fold")->Iterations(1);
BENCHMARK_CAPTURE(PeakHeap, , kRowsOfFull)->Name("P7/full_replies")->Iterations(1);
BENCHMARK_CAPTURE(PeakHeap, , 1)->Name("P7/one_row_a_reply")->Iterations(1);

}  // namespace

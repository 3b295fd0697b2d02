// What a full reply costs, against the HMAC of its bytes: P1 without and P2 with a result set.
#include <array>
#include <cstdint>
#include <vector>

#include "bench/hmac_floor.h"
#include "bench/measure.h"
#include "bench/messages.h"

namespace {

using namespace vt::bench;  // NOLINT(google-build-using-namespace): this program's own

constexpr std::size_t kQueries = 8;
constexpr std::size_t kRepliesOfQuery = 20;

// Answered is a query with the replies that came to it.
struct Answered {
  Shape shape;
  QueryPtr query;
  std::vector<Bytes> replies;
};

const std::vector<Answered>& Replies() {
  static const std::vector<Answered> all = [] {
    Messages messages(20240611);
    std::vector<Answered> made;
    for (std::size_t i = 0; i < kQueries; ++i) {
      Answered answered;
      answered.shape = messages.NewShape();
      answered.query = CollectQuery(answered.shape);
      for (std::size_t reply = 0; reply < kRepliesOfQuery; ++reply) {
        answered.replies.push_back(messages.FullReply(answered.shape));
      }
      made.push_back(std::move(answered));
    }
    return made;
  }();
  return all;
}

constexpr std::size_t kReplies = kQueries * kRepliesOfQuery;

double FloorOfAll() {
  static const HmacFloor floor(Key());
  return TimeNs([] {
    HmacFloor::Digest digest;
    for (const Answered& answered : Replies()) {
      for (const Bytes& reply : answered.replies) {
        floor.Compute(Signed(reply), digest);
        benchmark::DoNotOptimize(digest);
      }
    }
  });
}

// The floor has to be the digest that the replies carry.
void CheckFloor() {
  const HmacFloor floor(Key());
  HmacFloor::Digest digest;
  for (const Answered& answered : Replies()) {
    for (const Bytes& reply : answered.replies) {
      floor.Compute(Signed(reply), digest);
      Require(std::equal(digest.begin(), digest.end(), reply.begin() + VT_SECURITY_HEADER_SIZE),
              "the floor computes another digest");
    }
  }
}

double DecodeAll() {
  return TimeNs([] {
    for (const Answered& answered : Replies()) {
      for (const Bytes& reply : answered.replies) {
        Event* const event =
            cv_mkevent_from_rawbuffer(static_cast<std::int32_t>(reply.size()), reply.data());
        Require(cv_unpack_event(event, &KeyContext()) == 0 && event->pak_valid == 1,
                "a reply was refused");
        (void)cv_cleanup_event(event);
      }
    }
  });
}

// CollectAll folds every replies_of_result replies of a query into a result, reads and releases it.
double CollectAll(std::size_t replies_of_result) {
  return TimeNs([replies_of_result] {
    for (const Answered& answered : Replies()) {
      for (std::size_t i = 0; i < kRepliesOfQuery; i += replies_of_result) {
        ResultSet* const result = NewResult(answered.query.get());
        for (std::size_t reply = i; reply < i + replies_of_result; ++reply) {
          const Bytes& bytes = answered.replies[reply];
          vtn_processReply(bytes.data(), static_cast<std::int32_t>(bytes.size()), result,
                           &KeyContext());
        }
        Require(Walk(result, answered.shape) == replies_of_result * kRowsOfFull,
                "rows are missing");
        Release(result);
      }
    }
  });
}

void Decode(benchmark::State& state) {
  CheckFloor();
  CompareInTurn(state, kReplies, DecodeAll, FloorOfAll);
}

void Collect(benchmark::State& state) {
  CheckFloor();
  const auto replies_of_result = static_cast<std::size_t>(state.range(0));
  CompareInTurn(
      state, kReplies, [=] { return CollectAll(replies_of_result); }, FloorOfAll);
}

BENCHMARK(Decode)->Name("P1/decode")->UseManualTime();
BENCHMARK(Collect)->Name("P2/collect")->Arg(kRepliesOfQuery)->UseManualTime();
BENCHMARK(Collect)->Name("P2/collect")->Arg(1)->UseManualTime();

}  // namespace

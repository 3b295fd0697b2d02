// The operations whose instructions scripts/count-instructions counts, on messages that never
// change:
//   instructions_probe OPERATION ROUNDS
// does the operation once a round on each of the sampled replies, or on a query for each.
// Everything that a round needs is made before the first, for as many rounds as there can be, so
// that runs of different rounds differ in the operations alone.
#include <sys/auxv.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "bench/content.h"
#include "bench/measure.h"

namespace {

using namespace vt::bench;  // NOLINT(google-build-using-namespace): this program's own

constexpr std::size_t kMostRounds = 3;

// The kernel gives each process random bytes, from which hash tables take their keys. Here all runs
// have the same.
void FixRandomBytes() {
  constexpr std::size_t kRandomBytes = 16;
  auto* const bytes = reinterpret_cast<void*>(getauxval(AT_RANDOM));
  Require(bytes != nullptr, "there are no random bytes");
  std::memset(bytes, 0x5a, kRandomBytes);
}

EventPtr Received(const Bytes& reply) {
  EventPtr event(cv_mkevent_from_rawbuffer(static_cast<std::int32_t>(reply.size()), reply.data()));
  Require(event != nullptr, "no memory for a message");
  return event;
}

void Unpack(Event& event) {
  Require(cv_unpack_event(&event, &KeyContext()) == 0 && event.pak_valid == 1,
          "a reply was refused");
}

// Signs queries for the columns of the samples.
void Sign(std::size_t rounds) {
  constexpr std::uint32_t kComm = 2;
  std::vector<QueryPtr> queries;
  for (std::size_t i = 0; i < kMostRounds; ++i) {
    for (const Sample& sample : Samples()) queries.push_back(CollectQuery(sample.shape));
  }
  for (std::size_t i = 0; i < rounds * kSamples; ++i) {
    Query& query = *queries[i];
    Require(vtn_createPdu(query.event, query.priority, CV_SHIPMENT_SEND,
                          static_cast<std::uint32_t>(query.class_),
                          static_cast<std::uint32_t>(query.action), kIdentity,
                          static_cast<std::uint32_t>(i), &KeyContext(), kComm) == 0,
            "a query cannot be signed");
  }
}

// Verifies the digests of replies that are not decoded.
void Verify(std::size_t rounds) {
  std::vector<EventPtr> events;
  for (const Sample& sample : Samples()) {
    for (const Bytes& reply : sample.replies) {
      Event& event = *events.emplace_back(Received(reply));
      event.raw_hdr = event.raw + VT_PDU_HEADER_SIZE - VT_MESSAGE_HEADER_SIZE;
    }
  }
  for (std::size_t i = 0; i < rounds; ++i) {
    for (const EventPtr& event : events) {
      Require(vtn_validateMessageHeader(event.get(), &KeyContext()) == 1, "a digest is wrong");
    }
  }
}

// Takes in, verifies, decodes and releases replies.
void Decode(std::size_t rounds) {
  for (std::size_t i = 0; i < rounds; ++i) {
    for (const Sample& sample : Samples()) {
      for (const Bytes& reply : sample.replies) Unpack(*Received(reply));
    }
  }
}

// Folds decoded replies, all of a sample into one result, and releases the rows.
void Fold(std::size_t rounds) {
  struct Folding {
    QueryPtr query;
    std::vector<EventPtr> events;
  };
  std::vector<Folding> foldings;
  for (std::size_t i = 0; i < kMostRounds; ++i) {
    for (const Sample& sample : Samples()) {
      Folding& folding = foldings.emplace_back();
      folding.query = CollectQuery(sample.shape);
      for (const Bytes& reply : sample.replies) {
        folding.events.push_back(Received(reply));
        Unpack(*folding.events.back());
      }
    }
  }
  for (std::size_t i = 0; i < rounds * kSamples; ++i) {
    ResultSet* const result = NewResult(foldings[i].query.get());
    for (EventPtr& event : foldings[i].events) vtn_addResult(event.get(), result);
    Require(voltaris_getRowCount(result) == kRepliesOfSample * kRowsOfFull, "rows are missing");
    Release(result);
  }
}

struct Operation {
  std::string_view name;
  void (*run)(std::size_t rounds);
};

constexpr Operation kOperations[] = {
    {"sign", Sign}, {"verify", Verify}, {"decode", Decode}, {"fold", Fold}};

}  // namespace

int main(int argc, char** argv) {
  FixRandomBytes();
  const std::size_t rounds = argc == 3 ? std::strtoul(argv[2], nullptr, 10) : 0;
  for (const Operation& operation : kOperations) {
    if (rounds == 0 || rounds > kMostRounds || operation.name != argv[1]) continue;
    operation.run(rounds);
    return 0;
  }
  std::fprintf(stderr, "usage: instructions_probe sign|verify|decode|fold 1..%zu\n", kMostRounds);
  return 2;
}

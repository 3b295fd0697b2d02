// What the tests of robustness share: a corpus of signed messages of every type, and whole queries
// against a peer.
#ifndef VT_TESTS_TRUST_TRUST_SUPPORT_H_
#define VT_TESTS_TRUST_TRUST_SUPPORT_H_

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vtapi.h"

#include "tests/api/api_support.h"
#include "tests/codec/tlv_vectors.h"
#include "tests/harness/faults.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"
#include "tests/harness/note.h"
#include "tests/harness/pdu_image.h"
#include "tests/harness/peer.h"
#include "tests/harness/sanitizers.h"

namespace vt::testing {

#ifdef VT_SANITIZER
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

// Thinned gives the step of a large sweep: 1, or the given one where tests are slow, which the test
// says in its output: under the sanitizers, and ten times that under memcheck.
inline std::size_t Thinned(std::size_t slow_step) {
  const bool memcheck = std::getenv("VT_TESTS_UNDER_MEMCHECK") != nullptr;
  if (!kSanitized && !memcheck) return 1;
  const std::size_t step = memcheck ? 10 * slow_step : slow_step;
  Note() << (memcheck ? "memcheck" : "sanitizers") << ": every case number divisible by " << step
         << " is taken\n";
  return step;
}

inline Bytes Head(const Bytes& bytes, std::size_t size) {
  return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
}

inline Bytes SignedReply(const PduImage& image) { return image.Signed(SessionKey()); }

struct Message {
  std::string name;
  Bytes wire;
};

// A reply that holds acknowledgements, rows of both shapes and a domain.
inline PduImage RichReply(std::int8_t shipment = 1) {
  Combined lamp;
  lamp.name = "lamp";
  lamp.role = "light";
  lamp.keywords = "a,b";
  lamp.level = 10;
  lamp.data = {0, 60};
  return ReplyWith(
      {Element(8, 0, Text("office")), Aggregate(42, "lamp", {Entry(1), Entry(2)}),
       Aggregate(13, "lamp", {Entry(1, {0, 11}), Entry(2, {0, 12})}),
       Aggregate(43, "meter", {lamp.At(7)}), Aggregate(9, "fan", {Entry(3, Counted(Text("fan")))})},
      shipment);
}

// ReplyOfSize is a signed reply of exactly size bytes: one row, and opaque bytes up to the end.
inline constexpr std::size_t kSmallestReplyOfSize = 166;
inline Bytes ReplyOfSize(std::size_t size) {
  Bytes filling(size - kSmallestReplyOfSize);
  for (std::size_t i = 0; i < filling.size(); ++i) filling[i] = static_cast<std::uint8_t>(i * 7);
  return SignedReply(
      ReplyWith({Aggregate(13, "lamp", {Entry(1, {0, 11})}), Element(0, 0, filling)}));
}

// Corpus is signed messages: of every type, plain and aggregated, without elements, mixed ones of
// every shipment, and one of the largest size.
inline std::vector<Message> Corpus() {
  std::vector<Message> corpus = {
      {"without elements", SignedReply(ReplyWith({}))},
      {"reply", SignedReply(RichReply())},
      {"will", SignedReply(RichReply(-1))},
      {"wont", SignedReply(RichReply(-2))},
      {"1400 bytes", ReplyOfSize(1400)},
  };
  for (const TlvVector& vector : AllVectors()) {
    std::string name = "type " + std::to_string(vector.type & 0x3FFFFFFF);
    if ((vector.type & 0x40000000) != 0) name += " with bit 30";
    if ((vector.type & 0x80000000) != 0) name += " aggregated";
    corpus.push_back({name, SignedReply(ReplyWith({Hex(vector.wire)}))});
  }
  return corpus;
}

// Receiver is a collection that asks for many attributes, with its key prepared once.
class Receiver {
 public:
  Receiver()
      : collection_({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14, 15, 17, 18, 21, 22}),
        key_(Keyed(SessionKey())) {}

  ResultSet* result() { return collection_.result(); }
  void Process(const Bytes& wire) {
    vtn_processReply(wire.data(), static_cast<std::int32_t>(wire.size()), result(), &key_);
  }

  // Record is the ResultSet byte by byte: counts, queues, cursors, domain and error code. What lies
  // behind tells where its memory is, which a message that is dropped may have been the first to
  // use.
  Bytes Record() {
    const Bytes all = HostBytes(*result());
    return {all.begin(), all.begin() + offsetof(ResultSet, reserved)};
  }

  // Contents lists the rows and how many values each holds.
  std::vector<std::string> Contents() {
    std::vector<std::string> contents;
    const Bytes cursors = Record();
    while (const ResultRow* const row = voltaris_getNextRow(result())) {
      const auto* const id = reinterpret_cast<const char*>(row->device->device.id.bytes);
      contents.push_back(std::string(id, strnlen(id, 32)) + "/" +
                         std::to_string(row->entity_index) + ": " +
                         std::to_string(row->attributes->depth));
    }
    EXPECT_EQ(Record(), cursors) << "the walk changed the result";
    return contents;
  }

 private:
  Collection collection_;
  hmac_context key_;
};

// Asking is a session with a collect query that is not yet executed. Its members are released in
// the order that the library demands.
struct Asking {
  explicit Asking(std::uint32_t port) : session(LoopbackSession(port)) { Renew(); }

  // Renew replaces the query, for another execution on the same session.
  void Renew() {
    result.reset();
    query.reset(voltaris_createCollectQuery("office", 7));
    EXPECT_EQ(voltaris_addGetAttribute(query.get(), 8), 0);
    EXPECT_EQ(voltaris_addGetAttribute(query.get(), 4), 0);
  }
  std::int32_t Execute() { return voltaris_execQuery(session.get(), query.get()); }
  // Collect gives null when the query was not sent.
  ResultSet* Collect() {
    result.reset(voltaris_queryResults(session.get(), query.get()));
    return result.get();
  }

  SessionPtr session;
  QueryPtr query;
  ResultPtr result;
};

// The size of the message that Asking sends.
inline constexpr std::int32_t kAskingSize = 137;

}  // namespace vt::testing

#endif  // VT_TESTS_TRUST_TRUST_SUPPORT_H_

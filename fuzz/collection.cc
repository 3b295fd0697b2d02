// A stream of messages to a collection in steps, against the same messages handed to
// vtn_processReply one by one. The first byte says how many of the following ones are lengths of
// fragments: each read gives at most one fragment, and a length of 0 stands for an interruption or,
// every other time, for nothing there yet. Bit 4 ends the stream by a reset. The target signs each
// message, unless bit 0 of its first byte is set.
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "fuzz/check.h"
#include "fuzz/heap_meter.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "fuzz/time_limit.h"

namespace vt::fuzz {

const Layout kInputLayout = Layout::kPrefixedMessages;

namespace {

constexpr int kConnection = 1 << 20;  // a descriptor that no process has
constexpr std::size_t kAcknowledgementArraySize = 37008;

// What the connection has left to give.
struct Stream {
  Bytes rest;
  Bytes fragments;
  std::size_t next_fragment = 0;
  bool ends_by_reset = false;
  unsigned pauses = 0;
};
Stream stream;

std::size_t TakeFragment(std::size_t wanted) {
  if (stream.fragments.empty()) return wanted;
  const std::size_t index = stream.next_fragment++ % stream.fragments.size();
  return std::min<std::size_t>(wanted, stream.fragments[index]);
}

ssize_t Fail(int error) {
  errno = error;
  return -1;
}

ssize_t Receive(void* buffer, std::size_t size) {
  const std::size_t most = TakeFragment(size);
  // A stream of pauses alone would never end.
  constexpr unsigned kMostPauses = 64;
  if (most == 0 && ++stream.pauses < kMostPauses) {
    return Fail(stream.pauses % 2 == 0 ? EINTR : EAGAIN);
  }
  const std::size_t got = std::min(most != 0 ? most : size, stream.rest.size());
  if (got == 0) return stream.ends_by_reset ? Fail(ECONNRESET) : 0;
  std::memcpy(buffer, stream.rest.data(), got);
  stream.rest = stream.rest.subspan(got);
  return static_cast<ssize_t>(got);
}

void SignAll(const Block& wire) {
  Bytes rest = wire.bytes();
  while (!rest.empty()) {
    const Bytes message = TakeMessage(rest);
    auto* const at = wire.data() + (message.data() - wire.bytes().data());
    if ((at[0] & 1) == 0) Sign(at, message.size());
  }
}

Session* TheSession() {
  static Session* const session = [] {
    constexpr char kIdentity[] = "0123456789abcdef0123456789abcdef0000";
    Session* made = voltaris_createSession("127.0.0.1", 1, kIdentity, nullptr, 0);
    FUZZ_CHECK(made != nullptr);
    made->key = RightKey();
    return made;
  }();
  return session;
}

Query* NewQuery() {
  Query* query = voltaris_createCollectQuery("fuzz", 0);
  FUZZ_CHECK(query != nullptr);
  for (const std::int32_t attribute : {VT_ATTRIBUTE_NAME, VT_ATTRIBUTE_USAGE, VT_ATTRIBUTE_LEVEL}) {
    FUZZ_CHECK(voltaris_addGetAttribute(query, attribute) == 0);
  }
  return query;
}

// Reference is what the classic calls make of a stream.
struct Reference {
  ResultSet* result;
  std::int32_t outcome;
  std::uint32_t messages = 0;
};

Reference TakeOneByOne(Bytes bytes, Query* query, bool ends_by_reset) {
  Reference reference = {new_resultset(), VT_COLLECTION_PENDING};
  FUZZ_CHECK(reference.result != nullptr);
  reference.result->query = query;
  reference.result->acks = static_cast<AckEntry*>(std::malloc(kAcknowledgementArraySize));
  reference.result->naks = static_cast<AckEntry*>(std::malloc(kAcknowledgementArraySize));
  for (;;) {
    std::uint32_t length = 0;
    const int framed =
        vtn_frame_message(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &length);
    if (framed < 0) {
      reference.outcome = VT_COLLECTION_OVER_SIZE;
      return reference;
    }
    if (framed == 0) break;
    const Block message(bytes.first(length));
    vtn_processReply(message.data(), static_cast<std::int32_t>(length), reference.result,
                     &RightKey());
    ++reference.messages;
    bytes = bytes.subspan(length);
  }
  if (ends_by_reset) {
    reference.outcome = VT_COLLECTION_READ_ERROR;
  } else {
    reference.outcome = VT_COLLECTION_COMPLETE;
    if (!bytes.empty()) ++reference.messages;  // one that is cut off counts as malformed
  }
  return reference;
}

void ExpectSame(const ResultSet& a, const ResultSet& b) {
  FUZZ_CHECK(a.row_count == b.row_count);
  FUZZ_CHECK(a.ack_count == b.ack_count);
  FUZZ_CHECK(a.nak_count == b.nak_count);
  FUZZ_CHECK(a.answers_received == b.answers_received);
  ResultCursor left;
  ResultCursor right;
  voltaris_startCursor(&left, &a);
  voltaris_startCursor(&right, &b);
  while (voltaris_advanceCursor(&left) != 0) {
    FUZZ_CHECK(voltaris_advanceCursor(&right) != 0);
    FUZZ_CHECK(std::memcmp(&left.identity, &right.identity, sizeof left.identity) == 0);
    for (const std::int32_t attribute :
         {VT_ATTRIBUTE_NAME, VT_ATTRIBUTE_USAGE, VT_ATTRIBUTE_LEVEL}) {
      const std::uint32_t count = voltaris_countValues(&left, attribute);
      FUZZ_CHECK(count == voltaris_countValues(&right, attribute));
      for (std::uint32_t i = 0; i < count; ++i) {
        std::uint32_t left_size = 0;
        std::uint32_t right_size = 0;
        const auto* x = voltaris_readValue(&left, attribute, i, &left_size);
        const auto* y = voltaris_readValue(&right, attribute, i, &right_size);
        FUZZ_CHECK(Same({static_cast<const std::uint8_t*>(x), left_size},
                        {static_cast<const std::uint8_t*>(y), right_size}));
      }
    }
  }
  FUZZ_CHECK(voltaris_advanceCursor(&right) == 0);
}

void Collect(Bytes bytes) {
  Query* const query = NewQuery();
  Query* const other = NewQuery();
  ReplyCollection* const c = voltaris_startCollection(TheSession(), query, nullptr);
  FUZZ_CHECK(c != nullptr);
  while (voltaris_stepCollection(c) == VT_COLLECTION_PENDING) {
  }
  const Reference reference = TakeOneByOne(bytes, other, stream.ends_by_reset);
  FUZZ_CHECK(voltaris_getCollectionOutcome(c) == reference.outcome);
  const CollectionCounters& counters = *voltaris_getCollectionCounters(c);
  FUZZ_CHECK(counters.accepted + counters.forged + counters.malformed == reference.messages);
  FUZZ_CHECK(counters.bytes <= bytes.size());
  ResultSet* const result = voltaris_takeCollectionResult(c);
  ExpectSame(*result, *reference.result);
  voltaris_releaseCollection(c);
  voltaris_releaseResult(result);
  voltaris_releaseResult(reference.result);
  voltaris_releaseQuery(query);
  voltaris_releaseQuery(other);
}

}  // namespace

}  // namespace vt::fuzz

// These stand in for the C library's: there is one connection, and it gives the stream.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): its names are reserved ones
extern "C" int socket(int /*domain*/, int /*type*/, int /*protocol*/) noexcept {
  return vt::fuzz::kConnection;
}

extern "C" int connect(int /*fd*/, const struct sockaddr* /*address*/, socklen_t /*length*/) {
  return 0;
}

extern "C" ssize_t send(int /*fd*/, const void* /*data*/, std::size_t size, int /*flags*/) {
  return static_cast<ssize_t>(size);
}

extern "C" ssize_t recvfrom(int /*fd*/, void* buffer, std::size_t size, int /*flags*/,
                            struct sockaddr* /*sender*/, socklen_t* /*length*/) {
  return vt::fuzz::Receive(buffer, size);
}

extern "C" int close(int fd) {
  return fd == vt::fuzz::kConnection ? 0 : static_cast<int>(syscall(SYS_close, fd));
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const vt::fuzz::TimeLimit limit;
  using namespace vt::fuzz;  // NOLINT(google-build-using-namespace)
  if (size == 0) return 0;
  SetUpLog(size);
  (void)TheSession();
  const Block input({data, size});
  const unsigned first = data[0];
  const std::size_t count = std::min<std::size_t>(first & 15u, size - 1);
  const Block wire(input.bytes().subspan(1 + count));
  SignAll(wire);
  stream = {wire.bytes(), input.bytes().subspan(1, count), 0, (first & 16u) != 0, 0};
  TheSession()->sequence_number = 0;
  const HeapMeter meter;
  Collect(wire.bytes());
  FUZZ_CHECK(meter.balanced());
  return 0;
}

// Several messages received into one pool, against the same messages as blocks of their own. The
// target signs each message, unless bit 0 of its first byte is set; byte 2, which nobody reads,
// says with bit 0 that it is released at once, with bit 1 that the pool is closed behind it, and
// with bit 2 that it is the next one to go when the input ends.
#include <deque>

#include "codec/message_pool.h"
#include "fuzz/check.h"
#include "fuzz/heap_meter.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "fuzz/time_limit.h"
#include "protocol/event.h"

namespace vt::fuzz {

const Layout kInputLayout = Layout::kMessages;

namespace {

// Agree holds every element of both against the other.
void Agree(const Event& pooled, const Event& own) {
  FUZZ_CHECK(pooled.pak->tlv_count == own.pak->tlv_count);
  FUZZ_CHECK(pooled.tlv_capacity == own.tlv_capacity && pooled.state == own.state);
  FUZZ_CHECK(Same({reinterpret_cast<const std::uint8_t*>(pooled.pak), sizeof *own.pak},
                  {reinterpret_cast<const std::uint8_t*>(own.pak), sizeof *own.pak}));
  FUZZ_CHECK(pooled.raw_len == own.raw_len && (pooled.raw == nullptr) == (own.raw == nullptr));
  FUZZ_CHECK(Same({pooled.raw, pooled.raw_len}, {own.raw, own.raw_len}));
  for (std::int32_t i = 0; i < own.pak->tlv_count; ++i) {
    FUZZ_CHECK(Same(Encode(*pooled.tlvs[i]).bytes(), Encode(*own.tlvs[i]).bytes()));
  }
}

// Received is one message in both forms.
struct Received {
  Event* pooled = nullptr;
  Event* own = nullptr;
};

void Release(const Received& message) {
  Agree(*message.pooled, *message.own);
  FUZZ_CHECK(cv_cleanup_event(message.pooled) == 0);
  FUZZ_CHECK(cv_cleanup_event(message.own) == 0);
}

// Receive returns a message that was taken, or nothing.
Received Receive(const Block& wire, codec::MessagePool& pool) {
  const auto size = static_cast<std::int32_t>(wire.size());
  int error = 0;
  protocol::Verdict verdict{};
  Received made;
  {
    // Nothing of it may be needed later.
    const Block passing(wire.bytes());
    made.pooled = protocol::ReceiveEvent(size, passing.data(), &RightKey(), &pool, error, verdict);
    FUZZ_CHECK(Same(passing.bytes(), wire.bytes()));
  }
  made.own = cv_mkevent_from_rawbuffer(size, wire.data());
  FUZZ_CHECK((made.pooled == nullptr) == (made.own == nullptr));
  if (made.own == nullptr) return {};
  FUZZ_CHECK(cv_unpack_event(made.own, &RightKey()) == error);
  FUZZ_CHECK(codec::IsPooled(made.pooled) && !codec::IsPooled(made.own));
  if (error == 0) return made;
  FUZZ_CHECK(Same({made.pooled->raw, made.pooled->raw_len}, {made.own->raw, made.own->raw_len}));
  FUZZ_CHECK(cv_cleanup_event(made.pooled) == 0);
  FUZZ_CHECK(cv_cleanup_event(made.own) == 0);
  pool.TakeBack();
  return {};
}

void ReceiveAll(Bytes input) {
  const HeapMeter meter;
  codec::MessagePool pool{};
  {
    std::deque<Received> kept;
    while (!input.empty()) {
      const Block wire(TakeMessage(input));
      const unsigned choice = wire.size() > 2 ? wire.data()[2] : 0;
      if (wire.size() != 0 && (wire.data()[0] & 1U) == 0) Sign(wire.data(), wire.size());
      const Received message = Receive(wire, pool);
      if (message.own == nullptr) continue;
      if ((choice & 1U) != 0) {
        Release(message);
      } else {
        (choice & 4U) != 0 ? kept.push_front(message) : kept.push_back(message);
      }
      if ((choice & 2U) != 0) pool.Close();
    }
    // With all of them made, none has been written over by another.
    for (const Received& message : kept) Agree(*message.pooled, *message.own);
    pool.Close();
    for (const Received& message : kept) Release(message);
  }
  FUZZ_CHECK(meter.balanced());
}

}  // namespace

}  // namespace vt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const vt::fuzz::TimeLimit limit;
  vt::fuzz::SetUpLog(size);
  vt::fuzz::ReceiveAll({data, size});
  return 0;
}

#include "tools/stream_assembly.h"

#include <utility>

namespace vt::tools {

void StreamAssembly::Open(std::uint32_t first) {
  is_open_ = true;
  first_ = first;
}

void StreamAssembly::Add(std::uint32_t sequence, ByteView payload) {
  if (payload.empty()) return;
  if (!is_open_) Open(sequence);
  // Numbers wrap: what counts is how far a segment lies from the byte that is expected.
  const auto expected = first_ + static_cast<std::uint32_t>(next_);
  const auto distance = static_cast<std::int32_t>(sequence - expected);
  if (distance > 0) {
    Keep(next_ + static_cast<std::uint64_t>(distance), payload);
    return;
  }
  const auto known = static_cast<std::uint64_t>(-static_cast<std::int64_t>(distance));
  if (known >= payload.size()) return;
  Deliver(payload.subspan(static_cast<std::size_t>(known)));
  DeliverKept();
}

void StreamAssembly::Finish() {
  while (!kept_.empty()) SkipToKept();
}

void StreamAssembly::Deliver(ByteView bytes) {
  next_ += bytes.size();
  sink_.take(bytes);
}

void StreamAssembly::Keep(std::uint64_t at, ByteView bytes) {
  std::vector<std::uint8_t>& kept = kept_[at];
  if (kept.size() < bytes.size()) {
    kept_size_ += bytes.size() - kept.size();
    kept.assign(bytes.begin(), bytes.end());
  }
  while (kept_size_ > kMostKept) SkipToKept();
}

void StreamAssembly::DeliverKept() {
  while (!kept_.empty() && kept_.begin()->first <= next_) {
    const auto next = kept_.extract(kept_.begin());
    const std::vector<std::uint8_t>& bytes = next.mapped();
    kept_size_ -= bytes.size();
    const std::uint64_t known = next_ - next.key();
    if (known < bytes.size()) Deliver(ByteView(bytes).subspan(static_cast<std::size_t>(known)));
  }
}

void StreamAssembly::SkipToKept() {
  const std::uint64_t at = kept_.begin()->first;
  sink_.lost(at - next_);
  next_ = at;
  DeliverKept();
}

}  // namespace vt::tools

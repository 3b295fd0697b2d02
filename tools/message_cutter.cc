#include "tools/message_cutter.h"

#include <algorithm>

#include "vtapi/pdu.h"

namespace vt::tools {
namespace {

constexpr std::size_t kDigestSizeOffset = 10;
constexpr std::size_t kTlvBytesInHeader = 44;

std::size_t NumberAt(ByteView bytes, std::size_t offset) {
  return static_cast<std::size_t>(bytes[offset] << 8 | bytes[offset + 1]);
}

// BytesWanted is how many bytes of a message must be there to know more of it, or its whole size
// once that is known; 0 for bytes that begin no message.
std::size_t BytesWanted(ByteView begun) {
  if (begun.size() < VT_SECURITY_HEADER_SIZE) return VT_SECURITY_HEADER_SIZE;
  const std::size_t digest_size = (NumberAt(begun, kDigestSizeOffset) + 3) / 4 * 4;
  const std::size_t headers = VT_SECURITY_HEADER_SIZE + digest_size + VT_MESSAGE_HEADER_SIZE;
  if (headers > VT_MAX_PDU_SIZE) return 0;
  if (begun.size() < headers) return headers;
  const std::size_t whole =
      headers + NumberAt(begun, headers - VT_MESSAGE_HEADER_SIZE + kTlvBytesInHeader);
  return whole > VT_MAX_PDU_SIZE ? 0 : whole;
}

std::string Bytes(std::uint64_t count) {
  return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

}  // namespace

void MessageCutter::Add(ByteView bytes) {
  while (!bytes.empty()) {
    if (lost_track_) {
      skipped_ += bytes.size();
      return;
    }
    const std::size_t wanted = BytesWanted(begun_);
    const ByteView next = bytes.first(std::min(bytes.size(), wanted - begun_.size()));
    begun_.insert(begun_.end(), next.begin(), next.end());
    bytes = bytes.subspan(next.size());
    if (begun_.size() < wanted) return;
    const std::size_t known = BytesWanted(begun_);
    if (known == 0) {
      skipped_ = begun_.size();
      begun_.clear();
      lost_track_ = true;
    } else if (known == begun_.size()) {
      sink_.take(begun_);
      begun_.clear();
    }
  }
}

void MessageCutter::Gap(std::uint64_t missing) {
  TellSkipped();
  sink_.note(Bytes(missing) + " missing" + (begun_.empty() ? "" : " in the middle of a message"));
  begun_.clear();
}

void MessageCutter::Finish() {
  TellSkipped();
  if (begun_.empty()) return;
  sink_.note("the last message is not whole: no more of it than " + Bytes(begun_.size()));
  begun_.clear();
}

void MessageCutter::TellSkipped() {
  if (lost_track_) sink_.note(Bytes(skipped_) + " skipped, which begin no message");
  lost_track_ = false;
  skipped_ = 0;
}

}  // namespace vt::tools

#include "vtapi/dump.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "support/bytes.h"
#include "support/log.h"

namespace {

using vt::support::AddressBehind;
using vt::support::Level;
using vt::support::LogEnabled;
using vt::support::LogLine;

constexpr std::size_t kBytesPerLine = 16;
constexpr std::size_t kTlvBytesOffset = 44;  // in the message header

unsigned LowNibble(std::uint8_t byte) { return byte & 0x0FU; }
unsigned HighNibble(std::uint8_t byte) { return byte >> 4U; }

// DumpLine is one line under construction. 136 bytes hold the longest: 8 of offset, 16 x 5 of
// bytes, 3 blanks, 16 characters and the terminator.
class DumpLine {
 public:
  void Start(std::size_t offset) {
    used_ = 0;
    Append("0x%04x: ", static_cast<unsigned>(offset));
  }

  void AppendByte(std::uint8_t byte) { Append("0x%02x ", byte); }

  // Printable means ASCII from 0x20 to 0x7E, whatever the locale.
  void AppendColumn(vt::support::Bytes bytes) {
    Append("%s", "   ");
    for (const std::uint8_t byte : bytes) {
      Append("%c", byte >= 0x20 && byte <= 0x7E ? byte : '.');
    }
  }

  void AppendPadding(std::size_t missing) {
    for (; missing > 0; --missing) Append("%s", "     ");
  }

  [[nodiscard]] const char* text() const { return text_.data(); }

 private:
  template <class T>
  void Append(const char* format, T value) {
    // NOLINTNEXTLINE(clang-diagnostic-format-nonliteral): the formats are the literals above
    const int n = std::snprintf(text_.data() + used_, text_.size() - used_, format, value);
    used_ = std::min(used_ + static_cast<std::size_t>(n), text_.size() - 1);
  }

  std::array<char, 136> text_{};
  std::size_t used_ = 0;
};

}  // namespace

extern "C" {

void voltaris_dump_pdu(const Event* ev) {
  if (!LogEnabled(Level::kTrace)) return;
  if (ev == nullptr || ev->sec == nullptr || ev->pak == nullptr) return;
  const security_header& sec = *ev->sec;
  const message_header& pak = *ev->pak;
  std::array<char, VT_IDENTITY_SIZE + 2> identity;
  voltaris_idtos(identity.data(), pak.voltarisid, VT_IDENTITY_SIZE + 1);
  LogLine(Level::kTrace, __func__, "Voltaris protocol message body >>");
  LogLine(Level::kTrace, __func__, "voltarisid: %s", identity.data());
  LogLine(Level::kTrace, __func__, "enc: %d comm: %d auth: %d digest len: %d",
          HighNibble(sec.byte1), HighNibble(sec.byte9), LowNibble(sec.byte9), sec.digest_len);
  LogLine(Level::kTrace, __func__, "seq: %u ver: %d shipment: %d pri: %d type: %d", pak.seq,
          pak.ver, pak.shipment, pak.pri, pak.type);
  LogLine(Level::kTrace, __func__, "app: %d class: %d action: %d ", pak.app, pak.class_,
          pak.action);
  LogLine(Level::kTrace, __func__, "bytes: %d, TLV bytes: %d TLV count: %d", ev->raw_len,
          pak.tlv_bytes, pak.tlv_count);
}

void voltaris_dump_payload(const void* hdr) {
  if (hdr == nullptr) {
    VT_LOG(kWarn, "NULL");
    return;
  }
  const auto tlv_bytes =
      vt::support::LoadNetwork<std::uint16_t>(AddressBehind(hdr, kTlvBytesOffset));
  voltaris_dump_buf(AddressBehind(hdr, VT_MESSAGE_HEADER_SIZE), tlv_bytes);
}

void voltaris_dump_buf(const void* buf, std::int32_t len) {
  if (!LogEnabled(Level::kTrace)) return;
  const std::size_t size = buf != nullptr && len > 0 ? static_cast<std::size_t>(len) : 0;
  const vt::support::Bytes bytes(static_cast<const std::uint8_t*>(buf), size);
  DumpLine line;
  std::size_t line_start = 0;
  for (std::size_t i = 0; i < size; ++i) {
    if (i % kBytesPerLine == 0) {
      // Deliberate: the line is logged at every multiple of 16, 0 included, so that a dump begins
      // with an empty line.
      if (i > 0) line.AppendColumn(bytes.subspan(line_start, kBytesPerLine));
      LogLine(Level::kTrace, __func__, "%s", line.text());
      line.Start(i);
      line_start = i;
    }
    line.AppendByte(bytes[i]);
  }
  if (size % kBytesPerLine != 0) line.AppendPadding(kBytesPerLine - size % kBytesPerLine);
  line.AppendColumn(bytes.subspan(line_start));
  LogLine(Level::kTrace, __func__, "%s", line.text());
}

}  // extern "C"

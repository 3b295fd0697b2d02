#include "tools/capture_file.h"

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

namespace vt::tools {
namespace {

using Take = std::function<void(const CapturedPacket&)>;

constexpr std::uint64_t kNanoseconds = 1000000000;
constexpr std::uint32_t kLargestPacket = 262144;  // the most that capturing programs keep of one

constexpr const char* kCutShort = "the capture ends in the middle of a packet";
constexpr const char* kBadLength = "the capture has a packet of an impossible length";

// --- pcap ---

constexpr std::uint32_t kMicrosecondMagic = 0xA1B2C3D4;
constexpr std::uint32_t kNanosecondMagic = 0xA1B23C4D;

bool IsClassicMagic(std::uint32_t magic) {
  return magic == kMicrosecondMagic || magic == kNanosecondMagic;
}

std::optional<std::uint32_t> MagicIn(ByteView file, ByteOrder order) {
  ByteReader reader(file, order);
  std::uint32_t magic = 0;
  if (!reader.Read(magic)) return std::nullopt;
  return magic;
}

std::optional<ByteOrder> ClassicOrder(ByteView file) {
  for (const ByteOrder order : {ByteOrder::kLittle, ByteOrder::kBig}) {
    const auto magic = MagicIn(file, order);
    if (magic && IsClassicMagic(*magic)) return order;
  }
  return std::nullopt;
}

std::string ReadClassic(ByteView file, ByteOrder order, const Take& take) {
  constexpr std::uint32_t link_type_mask = 0x0FFFFFFF;  // above are notes on checksums
  constexpr std::size_t before_link_type = 16;
  ByteReader reader(file, order);
  std::uint32_t magic = 0;
  std::uint32_t link_type = 0;
  if (!reader.Read(magic) || !reader.Skip(before_link_type) || !reader.Read(link_type)) {
    return "the capture ends in its header";
  }
  const std::uint64_t unit = magic == kNanosecondMagic ? 1 : 1000;
  while (!reader.rest().empty()) {
    std::uint32_t seconds = 0;
    std::uint32_t fraction = 0;
    std::uint32_t captured = 0;
    std::uint32_t original = 0;
    if (!reader.Read(seconds) || !reader.Read(fraction) || !reader.Read(captured) ||
        !reader.Read(original)) {
      return kCutShort;
    }
    if (captured > kLargestPacket) return kBadLength;
    CapturedPacket packet{link_type & link_type_mask, seconds * kNanoseconds + fraction * unit, {}};
    if (!reader.Take(captured, packet.bytes)) return kCutShort;
    take(packet);
  }
  return {};
}

// --- pcapng ---

constexpr std::uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr std::uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr std::uint32_t kInterfaceDescription = 1;
constexpr std::uint32_t kSimplePacket = 3;
constexpr std::uint32_t kEnhancedPacket = 6;

// ClockResolution is that of the time stamps of an interface.
class ClockResolution {
 public:
  ClockResolution() = default;
  // A set top bit means powers of two, otherwise of ten.
  explicit ClockResolution(std::uint8_t code)
      : binary_((code & 0x80) != 0), exponent_(code & 0x7F) {}

  std::uint64_t NanosecondsOf(std::uint64_t ticks) const {
    if (binary_) return BinaryNanoseconds(ticks);
    std::uint64_t nanoseconds = ticks;
    for (int i = exponent_; i < kNanosecondExponent; ++i) nanoseconds *= 10;
    for (int i = kNanosecondExponent; i < exponent_ && nanoseconds > 0; ++i) nanoseconds /= 10;
    return nanoseconds;
  }

 private:
  static constexpr int kNanosecondExponent = 9;

  std::uint64_t BinaryNanoseconds(std::uint64_t ticks) const {
    constexpr int most = 32;  // so that the product below stays in 64 bits
    if (exponent_ >= 64) return 0;
    std::uint64_t fraction = ticks & ((std::uint64_t{1} << exponent_) - 1);
    const std::uint64_t seconds = ticks >> exponent_;
    int bits = exponent_;
    for (; bits > most; --bits) fraction >>= 1;
    return seconds * kNanoseconds + ((fraction * kNanoseconds) >> bits);
  }

  bool binary_ = false;
  int exponent_ = 6;
};

struct Interface {
  std::uint32_t link_type = 0;
  std::uint32_t longest = 0;  // bytes that are kept of a packet, 0 for all
  ClockResolution resolution;
};

Interface ReadInterface(ByteReader body) {
  constexpr std::uint16_t resolution_option = 9;
  Interface made;
  std::uint16_t link_type = 0;
  if (!body.Read(link_type) || !body.Skip(2) || !body.Read(made.longest)) return made;
  made.link_type = link_type;
  std::uint16_t code = 0;
  std::uint16_t size = 0;
  ByteView value;
  while (body.Read(code) && body.Read(size) && code != 0 && body.Take(size, value)) {
    if (code == resolution_option && size == 1) made.resolution = ClockResolution(value[0]);
    if (!body.Skip((4 - size % 4) % 4)) break;
  }
  return made;
}

class NewCapture {
 public:
  NewCapture(ByteView file, const Take& take) : rest_(file), take_(take) {}

  std::string Read() {
    while (!rest_.empty()) {
      if (std::string fault = ReadBlock(); !fault.empty()) return fault;
    }
    return {};
  }

 private:
  std::string ReadBlock() {
    constexpr std::size_t least = 12;  // type, length, and the length again
    if (rest_.size() < least) return kCutShort;
    if (MagicIn(rest_, ByteOrder::kBig) == kSectionHeader && !BeginSection()) {
      return "the capture has a section of an unknown byte order";
    }
    ByteReader reader(rest_, order_);
    std::uint32_t type = 0;
    std::uint32_t size = 0;
    if (!reader.Read(type) || !reader.Read(size)) return kCutShort;
    if (size < least || size % 4 != 0) return kBadLength;
    if (size > rest_.size()) return kCutShort;
    const ByteView body = rest_.subspan(8, size - least);
    rest_ = rest_.subspan(size);
    return ReadBody(type, ByteReader(body, order_));
  }

  // A section has an order of its own, and its own interfaces.
  bool BeginSection() {
    constexpr std::size_t magic_offset = 8;
    for (const ByteOrder order : {ByteOrder::kLittle, ByteOrder::kBig}) {
      if (MagicIn(rest_.subspan(magic_offset), order) != kByteOrderMagic) continue;
      order_ = order;
      interfaces_.clear();
      return true;
    }
    return false;
  }

  std::string ReadBody(std::uint32_t type, ByteReader body) {
    if (type == kInterfaceDescription) interfaces_.push_back(ReadInterface(body));
    if (type == kEnhancedPacket) return ReadEnhanced(body);
    if (type == kSimplePacket) return ReadSimple(body);
    return {};  // statistics, names and what others have invented
  }

  std::string ReadEnhanced(ByteReader body) {
    std::uint32_t interface = 0;
    std::uint32_t high = 0;
    std::uint32_t low = 0;
    std::uint32_t captured = 0;
    std::uint32_t original = 0;
    if (!body.Read(interface) || !body.Read(high) || !body.Read(low) || !body.Read(captured) ||
        !body.Read(original)) {
      return kBadLength;
    }
    if (interface >= interfaces_.size()) return "the capture has a packet of no interface";
    CapturedPacket packet;
    packet.link_type = interfaces_[interface].link_type;
    packet.nanoseconds =
        interfaces_[interface].resolution.NanosecondsOf(std::uint64_t{high} << 32 | low);
    if (captured > kLargestPacket || !body.Take(captured, packet.bytes)) return kBadLength;
    take_(packet);
    return {};
  }

  // A simple packet belongs to the first interface and has no time.
  std::string ReadSimple(ByteReader body) {
    std::uint32_t original = 0;
    if (!body.Read(original)) return kBadLength;
    if (interfaces_.empty()) return "the capture has a packet of no interface";
    const Interface& interface = interfaces_.front();
    std::size_t size = std::min<std::size_t>(original, body.rest().size());
    if (interface.longest != 0) size = std::min<std::size_t>(size, interface.longest);
    take_({interface.link_type, 0, body.rest().first(size)});
    return {};
  }

  ByteView rest_;
  const Take& take_;
  ByteOrder order_ = ByteOrder::kLittle;
  std::vector<Interface> interfaces_;
};

}  // namespace

bool IsCapture(ByteView file) {
  return ClassicOrder(file).has_value() || MagicIn(file, ByteOrder::kBig) == kSectionHeader;
}

std::string ReadCapture(ByteView file, const Take& take) {
  if (const auto order = ClassicOrder(file)) return ReadClassic(file, *order, take);
  return NewCapture(file, take).Read();
}

}  // namespace vt::tools

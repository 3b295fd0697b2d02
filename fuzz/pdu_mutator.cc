#include "fuzz/pdu_mutator.h"

#include <algorithm>
#include <array>
#include <vector>

#include "fuzz/input.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t room);

namespace vt::fuzz {

namespace {

using Buffer = std::vector<std::uint8_t>;

constexpr std::uint32_t kHostile[] = {0,          4,          11,         12,         13,
                                      0x7FFFFFFF, 0x80000000, 0x80000070, 0xFFFFFFF4, 0xFFFFFFFF,
                                      0x40000001, 0x10000001, 0x1000,     0xFFFF};

class Random {
 public:
  explicit Random(unsigned seed) : state_(seed * 2654435761u + 1u) {}
  std::uint32_t Next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return state_ != 0 ? state_ : (state_ = 1);
  }
  // Below n, which is not 0.
  std::uint32_t Below(std::size_t n) { return Next() % static_cast<std::uint32_t>(n); }
  bool OneIn(std::uint32_t n) { return Below(n) == 0; }

 private:
  std::uint32_t state_;
};

void Append16(Buffer& out, std::uint32_t value) {
  out.push_back(static_cast<std::uint8_t>(value >> 8));
  out.push_back(static_cast<std::uint8_t>(value));
}
void Append32(Buffer& out, std::uint32_t value) {
  Append16(out, value >> 16);
  Append16(out, value);
}
void Append(Buffer& out, const Buffer& more) { out.insert(out.end(), more.begin(), more.end()); }
void Store16(std::uint8_t* at, std::uint32_t value) {
  at[0] = static_cast<std::uint8_t>(value >> 8);
  at[1] = static_cast<std::uint8_t>(value);
}
void Store32(std::uint8_t* at, std::uint32_t value) {
  Store16(at, value >> 16);
  Store16(at + 2, value);
}

struct Message {
  Buffer header;                 // 80 bytes
  std::vector<Buffer> elements;  // the last may be torn
};

struct Parts {
  Buffer prefix;
  std::vector<Message> messages;
  Buffer tail;
};

std::vector<Buffer> SplitElements(Bytes area) {
  std::vector<Buffer> elements;
  while (!area.empty()) {
    std::size_t size = area.size();
    if (size >= VT_TLV_HEADER_SIZE) {
      size = std::clamp<std::size_t>(Load32(area.data() + 4), VT_TLV_HEADER_SIZE, size);
    }
    elements.emplace_back(area.begin(), area.begin() + static_cast<std::ptrdiff_t>(size));
    area = area.subspan(size);
  }
  return elements;
}

Parts Split(Layout layout, Bytes input) {
  Parts parts;
  if (layout == Layout::kElements) {
    parts.messages.push_back({{}, SplitElements(input)});
    return parts;
  }
  if (layout == Layout::kPrefixedMessages && !input.empty()) {
    const std::size_t size = std::min<std::size_t>(1 + (input[0] & 15u), input.size());
    parts.prefix.assign(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(size));
    input = input.subspan(size);
  }
  while (input.size() >= VT_PDU_HEADER_SIZE) {
    const Bytes message = TakeMessage(input);
    const Bytes header = message.first(VT_PDU_HEADER_SIZE);
    parts.messages.push_back(
        {Buffer(header.begin(), header.end()), SplitElements(message.subspan(VT_PDU_HEADER_SIZE))});
  }
  parts.tail.assign(input.begin(), input.end());
  return parts;
}

Buffer NewHeader(Random& random) {
  Buffer header(VT_PDU_HEADER_SIZE, 0);
  header[1] = 2;
  header[9] = static_cast<std::uint8_t>(0x10 | random.Below(5));
  header[11] = VT_DIGEST_SIZE;
  header[68] = 1;
  header[69] = static_cast<std::uint8_t>(static_cast<int>(random.Below(7)) - 4);
  header[71] = 10;
  header[72] = 17;
  header[73] = static_cast<std::uint8_t>(10 + random.Below(2));
  header[75] = static_cast<std::uint8_t>(10 + random.Below(5));
  return header;
}

// The values of the types: their size, or what varies.
enum : std::int8_t { kOpaque = -1, kText = -2, kNeighbor = -3, kRecurrence = -4 };
constexpr std::array<std::int8_t, VT_TLV_TYPE_COUNT> kValues = {
    kOpaque, 36,    32, 4,       kOpaque, kText, kText,       kText, kText,     kText,  // 0 to 9
    kOpaque, kText, 1,  2,       1,       1,     1,           1,     1,         2,      // 10 to 19
    32,      32,    4,  kOpaque, kOpaque, 4,     4,           kText, kNeighbor, 2,      // 20 to 29
    32,      4,     4,  4,       4,       36,    44,          0,     4,         22,     // 30 to 39
    kText,   1,     0,  2,       22,      44,    kRecurrence, 4,     kText,     2,
    14,      4};  // 40 to 51

Buffer Filling(Random& random, std::size_t size) {
  Buffer bytes(size);
  const bool small = random.OneIn(2);
  for (std::uint8_t& byte : bytes) {
    byte = static_cast<std::uint8_t>(small ? random.Below(4) : random.Next());
  }
  return bytes;
}

Buffer SomeText(Random& random, bool counted) {
  Buffer text = Filling(random, random.Below(random.OneIn(8) ? 100 : 8));
  for (std::uint8_t& byte : text) byte = static_cast<std::uint8_t>('a' + byte % 26);
  if (!text.empty() && random.OneIn(4)) text.back() = '*';
  if (!text.empty() && random.OneIn(8)) text[random.Below(text.size())] = 0;
  if (!counted) return text;
  Buffer out;
  Append32(out, static_cast<std::uint32_t>(text.size()));
  Append(out, text);
  return out;
}

Buffer Value(Random& random, std::uint32_t number, bool counted) {
  const int value = number < kValues.size() ? kValues[number] : kOpaque;
  if (value >= 0) return Filling(random, static_cast<std::size_t>(value));
  if (value == kOpaque || value == kText) return SomeText(random, counted);
  Buffer out;
  if (value == kNeighbor) out = Filling(random, 32);
  Append(out, SomeText(random, true));
  if (value == kNeighbor) Append(out, SomeText(random, true));
  Append(out, Filling(random, value == kNeighbor ? 4 : 6));
  return out;
}

Buffer Aggregate(Random& random, std::uint32_t type) {
  const std::uint32_t number = type & VT_TLV_NUMBER_MASK;
  Buffer out(32, static_cast<std::uint8_t>(0xD0 + random.Below(3)));
  const std::uint32_t data_len = random.OneIn(2) ? 16 : random.Below(20);
  Append32(out, data_len);
  Append(out, Filling(random, data_len));
  const std::uint32_t count = random.OneIn(16) ? random.Below(40) : random.Below(5);
  Append32(out, count);
  for (std::uint32_t i = 0; i < count; ++i) {
    Append32(out, random.Below(6));
    if (cv_is_combo_tlv(type) != 0) {
      Append(out, Filling(random, 8));
      Append(out, SomeText(random, true));
      Append(out, SomeText(random, true));
      Append(out, Filling(random, 3));
      Append(out, SomeText(random, true));
    }
    Append(out, Value(random, number, true));
  }
  return out;
}

Buffer NewElement(Random& random) {
  std::uint32_t type = random.OneIn(32) ? random.Below(80) : random.Below(VT_TLV_TYPE_COUNT);
  if (random.OneIn(8)) type = 43 + random.Below(3);
  if (random.OneIn(2)) type |= VT_TLV_AGGREGATED;
  if (random.OneIn(32)) type |= 0x40000000;
  Buffer value;
  if (!random.OneIn(16)) {
    value = (type & VT_TLV_AGGREGATED) != 0 ? Aggregate(random, type)
                                            : Value(random, type & VT_TLV_NUMBER_MASK, false);
  }
  Buffer out;
  Append32(out, type);
  Append32(out, static_cast<std::uint32_t>(VT_TLV_HEADER_SIZE + value.size()));
  Append32(out, random.Below(2));
  Append(out, value);
  return out;
}

// MutatePlainly leaves it to the fuzzer's own mutations, dictionary included.
void MutatePlainly(Buffer& bytes, std::size_t room) {
  const std::size_t size = bytes.size();
  bytes.resize(std::max(room, size));
  bytes.resize(LLVMFuzzerMutate(bytes.data(), size, bytes.size()));
}

void ChangeWord(Random& random, Buffer& element) {
  if (element.size() < VT_TLV_HEADER_SIZE) return;
  switch (random.Below(5)) {
    case 0:
      Store32(element.data() + 4, kHostile[random.Below(std::size(kHostile))]);
      break;
    case 1:
      Store32(element.data() + 4, Load32(element.data() + 4) + random.Below(3) - 1);
      break;
    case 2:
      Store32(element.data(), Load32(element.data()) ^ (1u << random.Below(32)));
      break;
    case 3:
      Store32(element.data() + 8, random.Below(2));
      break;
    default: {
      // A count, a counted length or anything else inside the value.
      if (element.size() < 16) return;
      std::uint8_t* word = element.data() + 12 + random.Below(element.size() - 15);
      if (element.size() >= 52 && random.OneIn(2)) {
        word = element.data() + (random.OneIn(2) ? 44 : 48);
      }
      if (word + 4 > element.data() + element.size()) return;
      Store32(word, random.OneIn(2) ? kHostile[random.Below(std::size(kHostile))]
                                    : Load32(word) + random.Below(3) - 1);
    }
  }
}

void ChangeElement(Random& random, Buffer& element, std::size_t room) {
  if (random.OneIn(3)) return ChangeWord(random, element);
  if (random.OneIn(3)) {
    element = NewElement(random);
    return;
  }
  Buffer value(element.begin() + static_cast<std::ptrdiff_t>(
                                     std::min<std::size_t>(element.size(), VT_TLV_HEADER_SIZE)),
               element.end());
  MutatePlainly(value, std::min<std::size_t>(value.size() + 16, room));
  element.resize(VT_TLV_HEADER_SIZE);
  Append(element, value);
  if (!random.OneIn(5)) {
    Store32(element.data() + 4, static_cast<std::uint32_t>(element.size()));
  }
}

void ChangeElements(Random& random, std::vector<Buffer>& elements, std::size_t room) {
  const std::size_t count = elements.size();
  const std::size_t at = count != 0 ? random.Below(count) : 0;
  const auto here = elements.begin() + static_cast<std::ptrdiff_t>(at);
  switch (count != 0 ? random.Below(8) : 0) {
    case 0:
      elements.insert(here, NewElement(random));
      break;
    case 1:
      elements.erase(here);
      break;
    case 2: {
      const Buffer twin = elements[at];
      elements.insert(here, twin);
      break;
    }
    case 3:
      std::swap(elements[at], elements[random.Below(count)]);
      break;
    default:
      ChangeElement(random, elements[at], room);
  }
}

void ChangeHeader(Random& random, Message& message, std::size_t room) {
  if (message.header.empty()) return ChangeElements(random, message.elements, room);
  std::uint8_t* header = message.header.data();
  switch (random.Below(6)) {
    case 0:
      header[69] = static_cast<std::uint8_t>(static_cast<int>(random.Below(7)) - 4);
      break;
    case 1:
      header[73] = static_cast<std::uint8_t>(10 + random.Below(5));
      header[75] = static_cast<std::uint8_t>(10 + random.Below(6));
      break;
    case 2:
      header[random.Below(4)] ^= static_cast<std::uint8_t>(1u << random.Below(8));
      break;
    case 3:
      header[random.Below(message.header.size())] = static_cast<std::uint8_t>(random.Next());
      break;
    case 4:
      message.header = NewHeader(random);
      break;
    default:
      Store16(header + 10, random.OneIn(2) ? VT_DIGEST_SIZE : random.Below(2000));
  }
}

// PutRight sets the TLV bytes, the count and the digest, each most of the time.
void PutRight(Random& random, Message& message, Buffer& out) {
  const std::size_t begin = out.size();
  Append(out, message.header);
  for (const Buffer& element : message.elements) Append(out, element);
  const std::size_t size = out.size() - begin;
  if (message.header.size() < VT_PDU_HEADER_SIZE) return;
  std::uint8_t* header = out.data() + begin;
  if (!random.OneIn(12)) {
    Store16(header + kTlvBytesOffset, static_cast<std::uint32_t>(size - VT_PDU_HEADER_SIZE));
  }
  if (!random.OneIn(12)) {
    Store16(header + kTlvBytesOffset + 2, static_cast<std::uint32_t>(message.elements.size()));
  } else if (random.OneIn(2)) {
    Store16(header + kTlvBytesOffset + 2,
            random.OneIn(2) ? 0xFFFF : static_cast<std::uint32_t>(message.elements.size()) + 1);
  }
  if (!random.OneIn(4)) Sign(header, size);
}

Buffer Join(Random& random, Parts& parts) {
  Buffer out = parts.prefix;
  for (Message& message : parts.messages) PutRight(random, message, out);
  Append(out, parts.tail);
  return out;
}

void ChangeMessages(Random& random, std::vector<Message>& messages, std::size_t room) {
  if (messages.empty()) {
    messages.push_back({NewHeader(random), {NewElement(random)}});
    return;
  }
  const std::size_t at = random.Below(messages.size());
  const auto here = messages.begin() + static_cast<std::ptrdiff_t>(at);
  const std::uint32_t choice = random.Below(12);
  if (choice == 0) return ChangeHeader(random, messages[at], room);
  if (choice == 1 && !messages[at].header.empty()) {
    const Message twin = messages[at];
    messages.insert(here, twin);
    return;
  }
  if (choice == 2 && messages.size() > 1) {
    messages.erase(here);
    return;
  }
  ChangeElements(random, messages[at].elements, room);
}

}  // namespace

std::size_t Mutate(Layout layout, std::uint8_t* data, std::size_t size, std::size_t room,
                   unsigned seed) {
  Random random(seed);
  if (layout == Layout::kBytes || random.OneIn(6)) return LLVMFuzzerMutate(data, size, room);
  Parts parts = Split(layout, {data, size});
  if (!parts.prefix.empty() && random.OneIn(4)) MutatePlainly(parts.prefix, 16);
  if (!parts.tail.empty() && random.OneIn(3)) {
    MutatePlainly(parts.tail, std::min<std::size_t>(parts.tail.size() + 32, room));
  } else {
    for (std::uint32_t i = 0, steps = 1 + random.Below(3); i < steps; ++i) {
      ChangeMessages(random, parts.messages, room);
    }
  }
  const Buffer out = Join(random, parts);
  // What has outgrown the room is cut, which makes a torn message of the last one.
  const std::size_t kept = std::min(out.size(), room);
  std::copy_n(out.begin(), kept, data);
  return kept;
}

}  // namespace vt::fuzz

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t room, unsigned seed) {
  return vt::fuzz::Mutate(vt::fuzz::kInputLayout, data, size, room, seed);
}

// The library's side of the differential test: decodes messages from standard input and writes on
// standard output what it made of each. A message, and the text about it, is preceded by its length
// in four bytes, big-endian. The key is the only argument, in hexadecimal digits. The text is the
// one that dump_message of voltaris_wire.py writes.
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vtapi.h"

namespace {

enum class Kind : uint8_t {
  kOpaque,
  kText,
  kInt8,
  kUint8,
  kUint16,
  kInt32,
  kUint32,
  kCorvaneId,
  kSenderId,
  kEventId,
  kNeighbor,
  kRecurrence,
  kAlarm,
  kDeltaVector,
  kUsageVector,
  kNothing
};

constexpr std::array<Kind, VT_TLV_TYPE_COUNT> kKinds = {
    Kind::kOpaque,      Kind::kSenderId,   Kind::kCorvaneId,    // 0
    Kind::kUint32,      Kind::kOpaque,     Kind::kText,         // 3
    Kind::kText,        Kind::kText,       Kind::kText,         // 6
    Kind::kText,        Kind::kOpaque,     Kind::kText,         // 9
    Kind::kInt8,        Kind::kUint16,     Kind::kUint8,        // 12
    Kind::kUint8,       Kind::kUint8,      Kind::kUint8,        // 15
    Kind::kUint8,       Kind::kUint16,     Kind::kCorvaneId,    // 18
    Kind::kCorvaneId,   Kind::kInt32,      Kind::kOpaque,       // 21
    Kind::kOpaque,      Kind::kUint32,     Kind::kInt32,        // 24
    Kind::kText,        Kind::kNeighbor,   Kind::kUint16,       // 27
    Kind::kCorvaneId,   Kind::kInt32,      Kind::kInt32,        // 30
    Kind::kInt32,       Kind::kUint32,     Kind::kEventId,      // 33
    Kind::kDeltaVector, Kind::kNothing,    Kind::kInt32,        // 36
    Kind::kUsageVector, Kind::kText,       Kind::kUint8,        // 39
    Kind::kNothing,     Kind::kUint16,     Kind::kUsageVector,  // 42
    Kind::kDeltaVector, Kind::kRecurrence, Kind::kUint32,       // 45
    Kind::kText,        Kind::kUint16,     Kind::kAlarm,        // 48
    Kind::kInt32,                                               // 51
};

// What the library logged about the message at hand.
std::string log_lines;

extern "C" void KeepLine(uint32_t level, const char* text) {
  std::string_view line = text;
  log_lines += "log ";
  log_lines += std::to_string(level);
  log_lines += ' ';
  // By how much the digests differ is nobody's business.
  constexpr std::string_view mismatch = "vtn_validateMessageHeader: HMAC_SHA1 header mismatch ";
  if (line.starts_with(mismatch) && line != std::string(mismatch) + "0") {
    log_lines += mismatch;
    line = "#";
  }
  log_lines += line;
  log_lines += '\n';
}

// Dump builds the text about one message.
class Dump {
 public:
  explicit Dump(std::string& text) : text_(text) {}

  Dump& operator<<(std::string_view text) {
    text_ += text;
    return *this;
  }

  Dump& Number(int64_t value) {
    std::array<char, 24> digits{};
    char* at = digits.data() + digits.size();
    const bool negative = value < 0;
    uint64_t left = negative ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    do {
      *--at = static_cast<char>('0' + left % 10);
      left /= 10;
    } while (left != 0);
    if (negative) *--at = '-';
    text_.append(at, digits.data() + digits.size());
    return *this;
  }

  Dump& Hex(const void* bytes, size_t size) {
    constexpr std::string_view digits = "0123456789abcdef";
    const auto* const at = static_cast<const uint8_t*>(bytes);
    const size_t before = text_.size();
    text_.resize(before + 2 * size);
    for (size_t i = 0; i < size; ++i) {
      text_[before + 2 * i] = digits[at[i] >> 4];
      text_[before + 2 * i + 1] = digits[at[i] & 15];
    }
    return *this;
  }

  Dump& Word(uint32_t word) {
    const std::array<uint8_t, 4> bytes = {
        static_cast<uint8_t>(word >> 24), static_cast<uint8_t>(word >> 16),
        static_cast<uint8_t>(word >> 8), static_cast<uint8_t>(word)};
    return Hex(bytes.data(), bytes.size());
  }

  Dump& Identity(const corvane_id& id) { return (*this << "i").Hex(id.bytes, sizeof id.bytes); }

  // A block of no bytes is a null pointer where a length stands beside it.
  Dump& Block(const void* block, uint32_t size) {
    if ((block == nullptr) != (size == 0)) return *this << "!length of the block";
    return size == 0 ? *this << "-" : (*this << "x").Hex(block, size);
  }

  Dump& Text(const char* text) {
    if (text == nullptr) return *this << "!null text";
    return (*this << "t").Hex(text, std::strlen(text));
  }

  template <class T, size_t kCount>
  Dump& Vector(const T (&values)[kCount]) {
    *this << "[";
    for (size_t i = 0; i < kCount; ++i) (*this << (i == 0 ? "" : ",")).Number(values[i]);
    return *this << "]";
  }

 private:
  std::string& text_;
};

void ShowNeighbor(Dump& dump, const neighbor& value) {
  (dump << "(").Identity(value.id) << ",";
  dump.Text(value.label) << ",";
  dump.Block(value.data, value.data_len) << ",";
  dump.Number(value.flag) << ")";
  bool zero = value.unused1 == 0;
  for (const uint32_t unused : value.unused2) zero = zero && unused == 0;
  if (!zero) dump << "!unused words are not zero";
}

void ShowRecurrence(Dump& dump, const recurrence& value) {
  (dump << "(").Text(value.text) << ",";
  dump.Number(value.byte1) << ",";
  dump.Number(value.byte2) << ",";
  dump.Number(value.flag) << ")";
}

void ShowAlarm(Dump& dump, const alarm_value& value) {
  const int64_t fields[] = {value.word, value.byte1, value.byte2, value.value1, value.value2};
  dump.Vector(fields);
}

void ShowUsageHeader(Dump& dump, const usage_cmn_hdr& usage) {
  (dump << "(").Number(usage.word) << ",";
  dump.Number(usage.value) << ",";
  dump.Text(usage.text1) << ",";
  dump.Text(usage.text2) << ",";
  dump.Number(usage.small) << ",";
  dump.Number(usage.byte1) << ",";
  dump.Number(usage.byte2) << ",";
  dump.Text(usage.text3) << ")";
}

template <class T>
const T& As(const void* value) {
  return *static_cast<const T*>(value);
}

// ShowValue writes a value of the kind; size counts the bytes of blocks, and of texts without their
// terminator.
void ShowValue(Dump& dump, Kind kind, const void* value, uint32_t size) {
  if (value == nullptr) {
    dump << "-";
    return;
  }
  switch (kind) {
    case Kind::kOpaque:
      dump.Block(value, size);
      break;
    case Kind::kText:
      (dump << "t").Hex(value, size);
      if (static_cast<const char*>(value)[size] != '\0') dump << "!no terminator";
      break;
    case Kind::kInt8:
      dump.Number(As<int8_t>(value));
      break;
    case Kind::kUint8:
      dump.Number(As<uint8_t>(value));
      break;
    case Kind::kUint16:
      dump.Number(As<uint16_t>(value));
      break;
    case Kind::kInt32:
      dump.Number(As<int32_t>(value));
      break;
    case Kind::kUint32:
      dump.Number(As<uint32_t>(value));
      break;
    case Kind::kCorvaneId:
      dump.Identity(As<corvane_id>(value));
      break;
    case Kind::kSenderId:
      (dump << "(").Identity(As<sender_id>(value).id) << ",";
      dump.Number(As<sender_id>(value).number) << ")";
      break;
    case Kind::kEventId:
      (dump << "(").Number(As<event_id>(value).number) << ",";
      dump.Identity(As<event_id>(value).id) << ")";
      break;
    case Kind::kNeighbor:
      ShowNeighbor(dump, As<neighbor>(value));
      break;
    case Kind::kRecurrence:
      ShowRecurrence(dump, As<recurrence>(value));
      break;
    case Kind::kAlarm:
      ShowAlarm(dump, As<alarm_value>(value));
      break;
    case Kind::kDeltaVector:
      dump.Vector(As<delta_vector>(value).values);
      break;
    case Kind::kUsageVector:
      dump.Vector(As<usage_vector>(value).values);
      break;
    case Kind::kNothing:
      dump << "!a value of a type that has none";
      break;
  }
}

void ShowAggregate(Dump& dump, uint32_t type, Kind kind, const aggregated_value& value) {
  (dump << "{").Identity(value.device.id) << ",";
  dump.Block(value.device.data, value.device.data_len) << ",";
  dump.Number(value.entry_count);
  if ((value.entries == nullptr) != (value.entry_count == 0)) {
    dump << "!entry array";
    return;
  }
  for (uint32_t i = 0; i < value.entry_count; ++i) {
    dump << ";";
    if (cv_is_combo_tlv(type) != 0) {
      const auto& entry = As<combo_entry>(value.entries[i]);
      dump.Number(entry.tag) << ":";
      ShowUsageHeader(dump, entry.usage);
      dump << ":";
      ShowValue(dump, kind, entry.data, 0);
    } else {
      const auto& entry = As<plain_entry>(value.entries[i]);
      dump.Number(entry.tag) << ":";
      dump.Number(entry.data_len) << ":";
      ShowValue(dump, kind, entry.data, entry.data_len - (kind == Kind::kText ? 1 : 0));
    }
  }
  dump << "}";
}

// CloneEncodesTo tells whether a copy of the element has the same wire form.
bool CloneEncodesTo(const Tlv& tlv, const uint8_t* bytes, uint32_t size) {
  auto* const copy = static_cast<Tlv*>(std::malloc(sizeof(Tlv)));
  if (copy == nullptr) return false;
  *copy = tlv;
  uint32_t status = 0;
  copy->value = vt_clone_tlv_ptr(tlv.type, tlv.length - VT_TLV_HEADER_SIZE, tlv.value, &status);
  bool same = status == 0 && copy->value != nullptr && vt_get_tlv_size(copy) == size;
  if (same) {
    const std::unique_ptr<uint8_t[]> again(new uint8_t[size]);
    same = cv_update_raw_buf_from_tlv(copy, again.get()) == size &&
           std::memcmp(bytes, again.get(), size) == 0;
  }
  vt_free_tlv_ptr(copy);
  return same;
}

void ShowElement(Dump& dump, const Tlv& tlv) {
  (dump << "tlv ").Word(tlv.type) << " ";
  dump.Number(tlv.length) << " ";
  dump.Number(tlv.qualifier) << " ";
  const uint32_t number = tlv.type & VT_TLV_NUMBER_MASK;
  if (tlv.value == nullptr) {
    dump << "-";
  } else if (number >= kKinds.size()) {
    dump << "!a value of an unknown type";
  } else if ((tlv.type & VT_TLV_AGGREGATED) != 0) {
    ShowAggregate(dump, tlv.type, kKinds[number], As<aggregated_value>(tlv.value));
  } else {
    const Kind kind = kKinds[number];
    ShowValue(dump, kind, tlv.value,
              tlv.length - VT_TLV_HEADER_SIZE - (kind == Kind::kText ? 1 : 0));
  }

  // A block of exactly the size, so that a sanitizer sees a byte too many.
  const uint32_t size = vt_get_tlv_size(&tlv);
  const std::unique_ptr<uint8_t[]> bytes(new uint8_t[size]);
  const uint32_t written = cv_update_raw_buf_from_tlv(&tlv, bytes.get());
  (dump << "\nas ").Hex(bytes.get(), size);
  if (written != size) dump << "!size";
  if (tlv.value != nullptr && !CloneEncodesTo(tlv, bytes.get(), size)) dump << "!clone";
  dump << "\n";
}

void TakeLog(Dump& dump) {
  dump << log_lines;
  log_lines.clear();
}

void ShowSecurityHeader(Dump& dump, const security_header& sec) {
  const int64_t fields[] = {sec.byte0,    sec.byte1, sec.unnamed16, sec.tag,
                            sec.unnamed8, sec.byte9, sec.digest_len};
  dump << "sec";
  for (const int64_t field : fields) (dump << " ").Number(field);
  dump << "\n";
}

void ShowMessageHeader(Dump& dump, const message_header& pak) {
  (dump << "pak ").Number(pak.seq) << " ";
  dump.Hex(pak.voltarisid, sizeof pak.voltarisid);
  const int64_t fields[] = {pak.ver,      static_cast<uint8_t>(pak.shipment),
                            pak.pri,      pak.type,
                            pak.app,      pak.class_,
                            pak.action,   pak.tlv_bytes,
                            pak.tlv_count};
  for (const int64_t field : fields) (dump << " ").Number(field);
  dump << "\n";
}

void ShowEvent(Dump& dump, const Event& ev) {
  (dump << "event ").Word(ev.state) << " raw ";
  dump.Number(ev.raw_valid) << " ";
  dump.Number(ev.raw_len) << " pak ";
  dump.Number(ev.pak != nullptr ? 1 : 0) << " tlvs ";
  dump.Number(ev.tlvs == nullptr ? -1 : int64_t{ev.tlv_capacity});
  if (ev.pak_valid != (ev.pak != nullptr ? 1U : 0U)) dump << "!pak_valid";
  if ((ev.raw != nullptr) != (ev.raw_valid == 1)) dump << "!raw_valid";
  if (ev.tlvs == nullptr && ev.tlv_capacity != 0) dump << "!tlv_capacity";
  if (ev.next != nullptr || ev.spare != 0) dump << "!next or spare";
  dump << "\n";
  if (ev.sec != nullptr) ShowSecurityHeader(dump, *ev.sec);
  if (ev.pak != nullptr) ShowMessageHeader(dump, *ev.pak);
}

// ShowPduAgain builds the message anew from what was decoded.
void ShowPduAgain(Dump& dump, Event* ev, const hmac_context& key) {
  const message_header pak = *ev->pak;
  const uint32_t comm = ev->sec->byte9 >> 4;
  cv_set_common_hdr(ev);
  const int status = vtn_createPdu(ev, pak.pri, static_cast<uint8_t>(pak.shipment), pak.class_,
                                   pak.action, pak.voltarisid, pak.seq, &key, comm);
  dump << "pdu ";
  if (status == 0) {
    dump.Hex(ev->raw, ev->raw_len);
  } else {
    dump << "!status";
  }
  dump << "\n";
}

void ShowDecoded(Dump& dump, Event* ev, const hmac_context& key) {
  const int64_t offset = ev->raw_hdr == nullptr ? -1 : ev->raw_hdr - ev->raw;
  const int digest = vtn_validateMessageHeader(ev, &key);
  TakeLog(dump);
  (dump << "header ").Number(offset) << " digest ";
  dump.Number(digest) << "\n";
  if (ev->tlvs != nullptr) {
    for (uint32_t i = 0; i < ev->pak->tlv_count; ++i) ShowElement(dump, *ev->tlvs[i]);
  }
  ShowPduAgain(dump, ev, key);
}

void ShowMessage(Dump& dump, const std::vector<uint8_t>& image, const hmac_context& key) {
  Event* const ev = cv_mkevent_from_rawbuffer(static_cast<int32_t>(image.size()), image.data());
  if (ev == nullptr) {
    TakeLog(dump);
    dump << "no event\n";
    return;
  }
  const int status = cv_unpack_event(ev, &key);
  TakeLog(dump);
  (dump << "status ").Number(status) << "\n";
  ShowEvent(dump, *ev);
  if (status == 0) ShowDecoded(dump, ev, key);
  cv_cleanup_event(ev);
}

// ShowWalk decodes the bytes behind the headers element by element, up to the first that is
// refused, and writes where the cursor stands and what remains.
void ShowWalk(Dump& dump, const std::vector<uint8_t>& image) {
  if (image.size() <= VT_PDU_HEADER_SIZE) return;
  std::vector<uint8_t> body(image.begin() + VT_PDU_HEADER_SIZE, image.end());
  auto remaining = static_cast<int32_t>(body.size());
  uint8_t* cursor = body.data();
  Tlv* tlv = nullptr;
  do {
    tlv = cv_create_tlv_from_raw_buf(&remaining, &cursor);
    vt_free_tlv_ptr(tlv);
    TakeLog(dump);
    (dump << "walk ").Number(cursor - body.data()) << " ";
    dump.Number(remaining) << (tlv == nullptr ? " refused\n" : "\n");
  } while (tlv != nullptr);
}

bool ReadFrame(std::vector<uint8_t>& frame) {
  std::array<uint8_t, 4> length{};
  if (std::fread(length.data(), 1, length.size(), stdin) != length.size()) return false;
  const uint32_t size = static_cast<uint32_t>(length[0]) << 24 |
                        static_cast<uint32_t>(length[1]) << 16 |
                        static_cast<uint32_t>(length[2]) << 8 | length[3];
  if (size > (1U << 20)) return false;
  // Freshly allocated, so that a sanitizer sees where it ends.
  frame = std::vector<uint8_t>(size);
  return size == 0 || std::fread(frame.data(), 1, size, stdin) == size;
}

bool WriteFrame(const std::string& text) {
  const std::array<uint8_t, 4> length = {
      static_cast<uint8_t>(text.size() >> 24), static_cast<uint8_t>(text.size() >> 16),
      static_cast<uint8_t>(text.size() >> 8), static_cast<uint8_t>(text.size())};
  return std::fwrite(length.data(), 1, length.size(), stdout) == length.size() &&
         std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
}

std::vector<uint8_t> FromHex(std::string_view digits) {
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i + 1 < digits.size(); i += 2) {
    const std::string pair(digits.substr(i, 2));
    bytes.push_back(static_cast<uint8_t>(std::strtoul(pair.c_str(), nullptr, 16)));
  }
  return bytes;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: decode_server KEY-IN-HEX <messages >texts\n", stderr);
    return 2;
  }
  const std::vector<uint8_t> secret = FromHex(argv[1]);
  hmac_context key{};
  hmac_shainit(&key, secret.data(), static_cast<uint32_t>(secret.size()));
  setLogCallback(KeepLine);
  enableLogCallback(1);
  setLogLevel(VT_LOG_TRACE);

  std::vector<char> output_buffer(size_t{1} << 18);
  std::setvbuf(stdout, output_buffer.data(), _IOFBF, output_buffer.size());
  std::vector<uint8_t> image;
  std::string text;
  while (ReadFrame(image)) {
    text.clear();
    Dump dump(text);
    ShowMessage(dump, image, key);
    log_lines.clear();
    ShowWalk(dump, image);
    text.pop_back();
    if (!WriteFrame(text)) return 1;
  }
  return std::fflush(stdout) == 0 && std::feof(stdin) != 0 ? 0 : 1;
}

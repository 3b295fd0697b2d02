#include "recording/attribute_lines.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "recording/quoted_text.h"

namespace vt::recording {
namespace {

// --- forms: how a type of value is written and read ---

struct TextForm {
  static std::string Write(const std::string& text) { return Quote(text); }
  static std::string Read(LineReader& line, std::string_view word) {
    std::string text = line.Quoted(word, kLongestText);
    if (text.empty()) {
      line.RejectBack(std::string(word) + " is empty: leave the line out, as a device would");
    }
    if (text.find('\0') != std::string::npos) {
      line.RejectBack(std::string(word) + " must not hold a zero byte");
    }
    return text;
  }
};

// A text that may be empty, as it is part of something.
std::string ReadPart(LineReader& line, std::string_view what) {
  std::string text = line.Quoted(what, kLongestText);
  if (text.find('\0') != std::string::npos) {
    line.RejectBack(std::string(what) + " must not hold a zero byte");
  }
  return text;
}

struct KeywordsForm {
  static std::string Write(const std::vector<std::string>& items) {
    std::string text;
    for (const std::string& item : items) text += (text.empty() ? "" : ", ") + Quote(item);
    return text;
  }
  static std::vector<std::string> Read(LineReader& line, std::string_view /*word*/) {
    std::vector<std::string> items;
    if (line.AtEnd()) return items;
    do {
      items.push_back(ReadPart(line, "a keyword"));
      if (items.back().find(',') != std::string::npos) {
        line.RejectBack("a keyword must not hold a comma: write two");
      }
      if (items.size() > kMostKeywords) line.RejectBack("there are too many keywords");
    } while (line.Take(','));
    return items;
  }
};

template <class T>
struct NumberForm {
  static std::string Write(T number) { return std::to_string(number); }
  static T Read(LineReader& line, std::string_view word) { return line.Number<T>(word); }
};

// The numbers that have a name.
#define VT_RECORDING_NUMBER(name, value, match) value,
constexpr std::int32_t kEntityTypes[] = {CV_ENTITY_TYPE_LIST(VT_RECORDING_NUMBER)};
constexpr std::int32_t kCalibers[] = {CV_CORVANE_USAGE_CALIBER_LIST(VT_RECORDING_NUMBER)};
constexpr std::int32_t kCategories[] = {CV_CORVANE_USAGE_CATEGORY_LIST(VT_RECORDING_NUMBER)};
#undef VT_RECORDING_NUMBER

// Numbers of an enumeration that have a name are written by it.
template <class Enumeration, auto& numbers>
struct EnumeratedForm {
  static std::string Write(std::int32_t number) {
    return voltaris::name_of(static_cast<Enumeration>(number)).value_or(std::to_string(number));
  }
  static std::int32_t Read(LineReader& line, std::string_view what) {
    const std::string_view word = line.Word(what);
    if (const auto number = LineReader::ParseNumber<std::int32_t>(word)) return *number;
    std::string words;
    for (const std::int32_t number : numbers) {
      const std::string name = Write(number);
      if (name == word) return number;
      words += name + ", ";
    }
    line.RejectBack(std::string(what) + " must be " + words + "or a number");
  }
};

// Power is one number or one for each level, with the exponent of its units behind: 360 e-1.
std::string UnitsText(const std::optional<std::int8_t>& units) {
  return units ? " e" + std::to_string(*units) : "";
}

std::optional<std::int8_t> ReadUnits(LineReader& line) {
  if (line.AtEnd()) return std::nullopt;
  const std::string_view word = line.Word("the exponent");
  const auto units = LineReader::ParseNumber<std::int8_t>(word.substr(1));
  if (!word.starts_with('e') || !units) {
    line.RejectBack("there should be nothing, or an exponent such as e-1, from e-128 to e127");
  }
  return units;
}

struct UsageForm {
  static std::string Write(const Usage& usage) {
    return std::to_string(usage.raw) + UnitsText(usage.units);
  }
  static Usage Read(LineReader& line, std::string_view word) {
    Usage usage;
    usage.raw = line.Number<std::uint16_t>(word);
    usage.units = ReadUnits(line);
    return usage;
  }
};

template <class Vector>
struct VectorForm {
  static std::string Write(const Vector& vector) {
    std::string text;
    for (const auto number : vector.raw) text += (text.empty() ? "" : " ") + std::to_string(number);
    return text + UnitsText(vector.units);
  }
  static Vector Read(LineReader& line, std::string_view word) {
    Vector vector;
    const std::string what = "each of the 11 numbers of " + std::string(word);
    for (auto& number : vector.raw) {
      number = line.Number<std::remove_reference_t<decltype(number)>>(what);
    }
    vector.units = ReadUnits(line);
    return vector;
  }
};

// --- addresses ---

AddressBytes BytesOf(const sockaddr_in& address) {
  AddressBytes bytes{};
  std::memcpy(bytes.data(), &address, bytes.size());
  return bytes;
}

std::optional<std::string> EndpointText(std::string_view bytes) {
  if (bytes.size() != sizeof(sockaddr_in)) return std::nullopt;
  sockaddr_in read{};
  std::memcpy(&read, bytes.data(), sizeof read);
  sockaddr_in plain{};
  plain.sin_family = AF_INET;
  plain.sin_port = read.sin_port;
  plain.sin_addr = read.sin_addr;
  if (std::memcmp(&plain, bytes.data(), sizeof plain) != 0) return std::nullopt;
  std::array<char, INET_ADDRSTRLEN> text{};
  inet_ntop(AF_INET, &plain.sin_addr, text.data(), text.size());
  return std::string(text.data()) + ':' + std::to_string(ntohs(plain.sin_port));
}

std::optional<std::string> ParseEndpoint(std::string_view word) {
  const std::size_t colon = word.rfind(':');
  if (colon == std::string_view::npos) return std::nullopt;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  const auto port = LineReader::ParseNumber<std::uint16_t>(word.substr(colon + 1));
  const std::string host(word.substr(0, colon));
  if (!port || inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) return std::nullopt;
  address.sin_port = htons(*port);
  const AddressBytes bytes = BytesOf(address);
  return std::string(bytes.begin(), bytes.end());
}

constexpr std::string_view kDigitsPrefix = "0x";

std::string DigitsText(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text(kDigitsPrefix);
  for (const char letter : bytes) {
    const auto byte = static_cast<std::uint8_t>(letter);
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

std::optional<std::string> ParseBytes(std::string_view word) {
  if (!word.starts_with(kDigitsPrefix) || word.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  for (std::size_t i = kDigitsPrefix.size(); i < word.size(); i += 2) {
    const std::optional<char> byte = LineReader::ParseDigits(word.substr(i, 2));
    if (!byte) return std::nullopt;
    bytes += *byte;
  }
  return bytes;
}

// Data is a socket address where it is one, nothing as a hyphen, and anything else its digits.
struct DataForm {
  static std::string Write(std::string_view bytes) {
    if (bytes.empty()) return "-";
    return EndpointText(bytes).value_or(DigitsText(bytes));
  }
  static std::string Read(LineReader& line, std::string_view what) {
    const std::string_view word = line.Word(what);
    if (word == "-") return {};
    std::optional<std::string> bytes = ParseEndpoint(word);
    if (!bytes) bytes = ParseBytes(word);
    if (!bytes || bytes->size() > kLongestText) {
      line.RejectBack(std::string(what) +
                      " must be an address such as 192.0.2.7:7440, bytes such as 0x01ff, or - for "
                      "none");
    }
    return *std::move(bytes);
  }
};

struct AddressForm {
  static std::string Write(const AddressBytes& address) {
    return DataForm::Write({address.data(), address.size()});
  }
  static AddressBytes Read(LineReader& line, std::string_view word) {
    const std::string bytes = DataForm::Read(line, word);
    AddressBytes address{};
    if (bytes.size() != address.size()) {
      line.RejectBack(std::string(word) + " must be HOST:PORT, or 16 bytes such as 0x02001d10...");
    }
    std::ranges::copy(bytes, address.begin());
    return address;
  }
};

// --- records ---

voltaris::DeviceId ReadDevice(LineReader& line, std::string_view what) {
  const std::string text = line.Quoted(what, VT_IDENTITY_SIZE);
  voltaris::DeviceId device;
  if (text.size() != device.bytes.size()) {
    line.RejectBack(std::string(what) + " must have 32 bytes, and has " +
                    std::to_string(text.size()));
  }
  std::memcpy(device.bytes.data(), text.data(), device.bytes.size());
  return device;
}

struct RecurrenceForm {
  static std::string Write(const Recurrence& recurrence) {
    return Quote(recurrence.text) + ' ' + std::to_string(recurrence.byte1) + ' ' +
           std::to_string(recurrence.byte2) + ' ' + std::to_string(recurrence.flag);
  }
  static Recurrence Read(LineReader& line, std::string_view word) {
    Recurrence recurrence;
    recurrence.text = ReadPart(line, word);
    recurrence.byte1 = line.Number<std::uint8_t>("the first byte");
    recurrence.byte2 = line.Number<std::uint8_t>("the second byte");
    recurrence.flag = line.Number<std::int32_t>("the flag");
    return recurrence;
  }
};

struct NeighborForm {
  static std::string Write(const Neighbor& neighbor) {
    const auto* id = reinterpret_cast<const char*>(neighbor.device.bytes.data());
    return Quote({id, neighbor.device.bytes.size()}) + ' ' + Quote(neighbor.label) + ' ' +
           DataForm::Write(neighbor.data) + ' ' + std::to_string(neighbor.flag);
  }
  static Neighbor Read(LineReader& line, std::string_view /*word*/) {
    Neighbor neighbor;
    neighbor.device = ReadDevice(line, "the identity of the neighbor");
    neighbor.label = ReadPart(line, "the label");
    neighbor.data = DataForm::Read(line, "the data of the neighbor");
    neighbor.flag = line.Number<std::int32_t>("the flag");
    return neighbor;
  }
};

// --- the table ---

void PutLine(std::string_view word, const std::string& value, std::string& out) {
  out += "  ";
  out += word;
  out += value.empty() ? " =" : " = ";
  out += value;
  out += '\n';
}

// One is an attribute that an entity has once or not at all.
template <class Form, auto member>
struct One {
  static void Write(const Entity& entity, std::string_view word, std::string& out) {
    if (entity.*member) PutLine(word, Form::Write(*(entity.*member)), out);
  }
  static void Read(LineReader& line, std::string_view word, Entity& entity) {
    if (entity.*member) line.RejectBack(std::string(word) + " stands here a second time");
    entity.*member = Form::Read(line, word);
  }
};

// Many is an attribute that it may have several times.
template <class Form, auto member>
struct Many {
  static void Write(const Entity& entity, std::string_view word, std::string& out) {
    for (const auto& value : entity.*member) PutLine(word, Form::Write(value), out);
  }
  static void Read(LineReader& line, std::string_view word, Entity& entity) {
    if ((entity.*member).size() == kMostNeighbors) line.RejectBack("there are too many of them");
    (entity.*member).push_back(Form::Read(line, word));
  }
};

template <class Kind>
constexpr AttributeLines RowOf(std::int32_t number) {
  return {number, Kind::Write, Kind::Read};
}

constexpr AttributeLines kRows[] = {
    RowOf<One<TextForm, &Entity::role>>(VT_ATTRIBUTE_ROLE),
    RowOf<One<TextForm, &Entity::name>>(VT_ATTRIBUTE_NAME),
    RowOf<One<KeywordsForm, &Entity::keywords>>(VT_ATTRIBUTE_KEYWORDS),
    RowOf<One<TextForm, &Entity::error_text>>(VT_ATTRIBUTE_ERROR_STRING),
    RowOf<One<NumberForm<std::int8_t>, &Entity::units>>(VT_ATTRIBUTE_UNITS),
    RowOf<One<UsageForm, &Entity::usage>>(VT_ATTRIBUTE_USAGE),
    RowOf<One<NumberForm<std::uint8_t>, &Entity::level>>(VT_ATTRIBUTE_LEVEL),
    RowOf<One<NumberForm<std::uint8_t>, &Entity::importance>>(VT_ATTRIBUTE_IMPORTANCE),
    RowOf<One<EnumeratedForm<voltaris::EntityType, kEntityTypes>, &Entity::entity_type>>(
        VT_ATTRIBUTE_ENTITY_TYPE),
    RowOf<One<AddressForm, &Entity::address>>(VT_ATTRIBUTE_REPLY_TO),
    RowOf<Many<NeighborForm, &Entity::neighbors>>(VT_ATTRIBUTE_NEIGHBOR),
    RowOf<One<NumberForm<std::uint16_t>, &Entity::neighbor_count>>(VT_ATTRIBUTE_NEIGHBOR_COUNT),
    RowOf<One<NumberForm<std::uint32_t>, &Entity::nanny_vector>>(VT_ATTRIBUTE_NANNY_VECTOR),
    RowOf<One<VectorForm<DeltaVector>, &Entity::delta_vector>>(VT_ATTRIBUTE_DELTA_VECTOR),
    RowOf<One<EnumeratedForm<voltaris::Caliber, kCalibers>, &Entity::caliber>>(
        VT_ATTRIBUTE_USAGE_CALIBER),
    RowOf<One<VectorForm<UsageVector>, &Entity::usage_vector>>(VT_ATTRIBUTE_USAGE_VECTOR),
    RowOf<One<RecurrenceForm, &Entity::recurrence>>(VT_ATTRIBUTE_RECURRENCE),
    RowOf<One<TextForm, &Entity::text_21>>(VT_ATTRIBUTE_TEXT_21),
    RowOf<One<EnumeratedForm<voltaris::Category, kCategories>, &Entity::category>>(
        VT_ATTRIBUTE_USAGE_CATEGORY),
};

static_assert(std::ranges::is_sorted(kRows, {}, &AttributeLines::number));

}  // namespace

std::span<const AttributeLines> RecordableAttributes() { return kRows; }

const AttributeLines* FindRecordable(std::string_view word) {
  const auto* found = std::ranges::find(kRows, word, &AttributeLines::word);
  return found != std::end(kRows) ? found : nullptr;
}

}  // namespace vt::recording

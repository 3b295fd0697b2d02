#include "tools/element_values.h"

#include <array>
#include <cstddef>
#include <cstring>

#include "vtapi.hpp"
#include "vtapi/catalogue.h"
#include "vtapi/enumerations.h"
#include "vtapi/values.h"

namespace vt::tools {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kSocketAddressSize = 16;

// A reader gets a value that is there, and its length: bytes of an opaque value, of a text with its
// terminator.
using ValueReader = Json (*)(const void* value, std::uint32_t size);

template <class T>
T Load(const void* value) {
  T loaded;
  std::memcpy(&loaded, value, sizeof loaded);
  return loaded;
}

ByteView Bytes(const void* value, std::size_t size) {
  return {static_cast<const std::uint8_t*>(value), size};
}

std::string TextOf(const char* text) { return text == nullptr ? "" : text; }

std::string IdentityText(const corvane_id& id) {
  voltaris::DeviceId device;
  std::memcpy(device.bytes.data(), id.bytes, device.bytes.size());
  return device.text();
}

// AddressText is HOST:PORT of an IPv4 socket address in either byte order of its family, otherwise
// the digits of the bytes.
std::string AddressText(ByteView bytes) {
  constexpr std::uint8_t ipv4 = 2;
  const bool is_ipv4 =
      bytes.size() == kSocketAddressSize && (bytes[0] | bytes[1]) == ipv4 && bytes[0] != bytes[1];
  if (!is_ipv4) return HexText(bytes);
  voltaris::Address address;
  std::memcpy(address.bytes.data(), &bytes[4], address.bytes.size());
  address.port = static_cast<std::uint16_t>(bytes[2] << 8 | bytes[3]);
  return address.endpoint();
}

// --- one reader for each form ---

Json Nothing(const void* /*value*/, std::uint32_t /*size*/) { return nullptr; }

Json Opaque(const void* value, std::uint32_t size) { return HexText(Bytes(value, size)); }

Json Text(const void* value, std::uint32_t size) {
  return std::string(static_cast<const char*>(value), size > 0 ? size - 1 : 0);
}

Json Keywords(const void* value, std::uint32_t size) {
  Json words = Json::array();
  std::string_view rest(static_cast<const char*>(value), size);
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('\0'), rest.size());
    words.push_back(std::string(rest.substr(0, end)));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return words;
}

template <class Number>
Json Integer(const void* value, std::uint32_t /*size*/) {
  return Load<Number>(value);
}

template <class Enumeration>
Json Word(const void* value, std::uint32_t /*size*/) {
  const auto number = Load<std::int32_t>(value);
  if (auto word = voltaris::name_of(static_cast<Enumeration>(number))) return *std::move(word);
  return number;
}

Json Identity(const void* value, std::uint32_t /*size*/) {
  return IdentityText(Load<corvane_id>(value));
}

Json Entity(const void* value, std::uint32_t /*size*/) {
  const auto sender = Load<sender_id>(value);
  return {{"device", IdentityText(sender.id)}, {"entity", sender.number}};
}

Json EventNumber(const void* value, std::uint32_t /*size*/) {
  const auto event = Load<event_id>(value);
  return {{"number", event.number}, {"device", IdentityText(event.id)}};
}

Json SocketAddress(const void* value, std::uint32_t size) {
  return AddressText(Bytes(value, size));
}

Json NeighborRecord(const void* value, std::uint32_t /*size*/) {
  const auto record = Load<neighbor>(value);
  const ByteView data = record.data == nullptr ? ByteView() : Bytes(record.data, record.data_len);
  return {{"device", IdentityText(record.id)},
          {"label", TextOf(record.label)},
          {"address", AddressText(data)},
          {"flag", record.flag}};
}

Json RecurrenceRecord(const void* value, std::uint32_t /*size*/) {
  const auto record = Load<recurrence>(value);
  return {{"text", TextOf(record.text)},
          {"byte1", record.byte1},
          {"byte2", record.byte2},
          {"flag", record.flag}};
}

Json Alarm(const void* value, std::uint32_t /*size*/) {
  const auto alarm = Load<alarm_value>(value);
  return {{"word", alarm.word},
          {"byte1", alarm.byte1},
          {"byte2", alarm.byte2},
          {"value1", alarm.value1},
          {"value2", alarm.value2}};
}

template <class Vector>
Json Levels(const void* value, std::uint32_t /*size*/) {
  Json numbers = Json::array();
  for (const auto number : Load<Vector>(value).values) numbers.push_back(number);
  return numbers;
}

// --- the types ---

struct ElementRow {
  std::uint32_t type;
  std::string_view name;
  ValueReader read;
};

constexpr std::array<ElementRow, VT_TLV_TYPE_COUNT> kElements = {{
    {CV_CORVANE_TLV_TYPE_RESERVED, "reserved", Opaque},
    {CV_CORVANE_TLV_TYPE_VLTRS_ID, "identity", Entity},
    {CV_CORVANE_TLV_TYPE_ID, "id", Identity},
    {CV_CORVANE_TLV_TYPE_ENT_ID, "entity", Integer<std::uint32_t>},
    {CV_CORVANE_TLV_TYPE_AUTHORIZATION, "authorization", Opaque},
    {CV_CORVANE_TLV_TYPE_ADDRESSEE, "addressee", Text},
    {CV_CORVANE_TLV_TYPE_RECUR, "recur", Text},
    {CV_CORVANE_TLV_TYPE_ROLE, "role", Text},
    {CV_CORVANE_TLV_TYPE_DOMAIN, "domain", Text},
    {CV_CORVANE_TLV_TYPE_NAME, "name", Text},
    {CV_CORVANE_TLV_TYPE_KEYWORDS, "keywords", Keywords},
    {CV_CORVANE_TLV_TYPE_ERROR_STRING, "error", Text},
    {CV_CORVANE_TLV_TYPE_UNITS, "units", Integer<std::int8_t>},
    {CV_CORVANE_TLV_TYPE_USAGE, "usage", Integer<std::uint16_t>},
    {CV_CORVANE_TLV_TYPE_LEVEL_CURRENT, "level", Integer<std::uint8_t>},
    {CV_CORVANE_TLV_TYPE_LEVEL_PROVISIONED, "level-provisioned", Integer<std::uint8_t>},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE, "importance-plain", Integer<std::uint8_t>},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE_I, "importance", Integer<std::uint8_t>},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE_E, "importance-e", Integer<std::uint8_t>},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE_MAX, "importance-max", Integer<std::uint16_t>},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE_MAX_ID, "importance-max-id", Identity},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE_PARENT, "importance-parent", Identity},
    {CV_CORVANE_TLV_TYPE_ENTITY_TYPE, "entity-type", Word<voltaris::EntityType>},
    {CV_CORVANE_TLV_TYPE_REPLY_TO, "address", SocketAddress},
    {CV_CORVANE_TLV_TYPE_PROXY_ADDRESS, "proxy-address", SocketAddress},
    {CV_CORVANE_TLV_TYPE_PROXY_PORT, "proxy-port", Integer<std::uint32_t>},
    {CV_CORVANE_TLV_TYPE_PROXY_PROTO, "proxy-protocol", Integer<std::int32_t>},
    {CV_CORVANE_TLV_TYPE_PROXY_CLASS, "proxy-class", Text},
    {CV_CORVANE_TLV_TYPE_NEIGHBOR, "neighbor", NeighborRecord},
    {CV_CORVANE_TLV_TYPE_NEIGHBOR_COUNT, "neighbor-count", Integer<std::uint16_t>},
    {CV_CORVANE_TLV_TYPE_PARENT, "parent", Identity},
    {CV_CORVANE_TLV_TYPE_HEARTBEAT, "heartbeat", Integer<std::int32_t>},
    {CV_CORVANE_TLV_TYPE_CLOCK, "clock", Integer<std::int32_t>},
    {CV_CORVANE_TLV_TYPE_SENDER_CLOCK, "sender-clock", Integer<std::int32_t>},
    {CV_CORVANE_TLV_TYPE_NANNY_VECTOR, "nanny-vector", Integer<std::uint32_t>},
    {CV_CORVANE_TLV_TYPE_EVENT_ID, "event-id", EventNumber},
    {VT_TLV_DELTA_VECTOR, "delta-vector", Levels<delta_vector>},
    {VT_TLV_NO_VALUE, "no-value", Nothing},
    {VT_TLV_USAGE_CALIBER, "caliber", Word<voltaris::Caliber>},
    {VT_TLV_USAGE_VECTOR, "usage-vector", Levels<usage_vector>},
    {VT_TLV_TEXT_40, "text-40", Text},
    {VT_TLV_QUERY_TIMEOUT, "query-timeout", Integer<std::uint8_t>},
    {VT_TLV_ACKNOWLEDGEMENT, "acknowledgement", Nothing},
    {VT_TLV_COMBINED_USAGE, "combined-usage", Integer<std::uint16_t>},
    {VT_TLV_COMBINED_USAGE_VECTOR, "combined-usage-vector", Levels<usage_vector>},
    {VT_TLV_COMBINED_DELTA_VECTOR, "combined-delta-vector", Levels<delta_vector>},
    {VT_TLV_RECURRENCE, "recurrence", RecurrenceRecord},
    {VT_TLV_UINT32_47, "number-47", Integer<std::uint32_t>},
    {VT_TLV_TEXT_48, "text-21", Text},
    {VT_TLV_UINT16_49, "number-49", Integer<std::uint16_t>},
    {VT_TLV_ALARM, "alarm", Alarm},
    {VT_TLV_USAGE_CATEGORY, "category", Word<voltaris::Category>},
}};

consteval bool RowsStandAtTheirNumbers() {
  for (std::uint32_t i = 0; i < kElements.size(); ++i) {
    if (kElements[i].type != i) return false;
  }
  return true;
}
static_assert(RowsStandAtTheirNumbers(), "a type is missing or out of order");

const ElementRow* RowOf(std::uint32_t type) {
  const std::uint32_t number = type & VT_TLV_NUMBER_MASK;
  return number < kElements.size() ? &kElements[number] : nullptr;
}

Json ValueOf(const ElementRow& row, const void* value, std::uint32_t size) {
  return value == nullptr ? Json(nullptr) : row.read(value, size);
}

Json ComboJson(const ElementRow& row, const combo_entry& entry) {
  const usage_cmn_hdr& usage = entry.usage;
  return {{"entity", entry.tag},
          {"caliber", Word<voltaris::Caliber>(&usage.value, sizeof usage.value)},
          {"name", TextOf(usage.text1)},
          {"role", TextOf(usage.text2)},
          {"units", usage.small},
          {"level", usage.byte1},
          {"importance", usage.byte2},
          {"keywords", TextOf(usage.text3)},
          {"value", ValueOf(row, entry.data, 0)}};
}

Json PlainJson(const ElementRow& row, const plain_entry& entry) {
  return {{"entity", entry.tag}, {"value", ValueOf(row, entry.data, entry.data_len)}};
}

Json AggregateJson(const Tlv& element, const ElementRow& row) {
  const auto& aggregate = *static_cast<const aggregated_value*>(element.value);
  Json entries = Json::array();
  for (std::uint32_t i = 0; i < aggregate.entry_count; ++i) {
    const void* entry = aggregate.entries[i];
    entries.push_back(cv_is_combo_tlv(element.type) != 0
                          ? ComboJson(row, *static_cast<const combo_entry*>(entry))
                          : PlainJson(row, *static_cast<const plain_entry*>(entry)));
  }
  const device_header& device = aggregate.device;
  const ByteView address =
      device.data == nullptr ? ByteView() : Bytes(device.data, device.data_len);
  return {{"device", IdentityText(device.id)},
          {"address", AddressText(address)},
          {"entries", std::move(entries)}};
}

}  // namespace

std::string HexText(ByteView bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const std::uint8_t byte : bytes) {
    text += digits[byte >> 4];
    text += digits[byte & 0x0F];
  }
  return text;
}

std::string_view ElementName(std::uint32_t type) {
  const ElementRow* row = RowOf(type);
  return row == nullptr ? std::string_view() : row->name;
}

Json ElementValue(const Tlv& element) {
  const ElementRow* row = RowOf(element.type);
  if (row == nullptr || element.value == nullptr) return nullptr;
  if ((element.type & VT_TLV_AGGREGATED) != 0) return AggregateJson(element, *row);
  return row->read(element.value, element.length - VT_TLV_HEADER_SIZE);
}

}  // namespace vt::tools

// P4: decoding the elements of a full reply, without the check of its digest, against what
// protobuf-c and libcbor need for the same content.
//
// All sides start at bytes and end with everything released, and every value can then be read
// without decoding any more. The peers' messages hold each device once, with its rows, and each
// entity once, with its values; ours repeat device and entity for every column, so there is more of
// it to read.
#include <cbor.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "bench/content.h"
#include "bench/measure.h"
#include "peer_reply.pb-c.h"

namespace {

using namespace vt::bench;  // NOLINT(google-build-using-namespace): this program's own

// Times of all replies, decoded and released by decode one after the other.
template <class Decode>
double TimeAll(std::vector<Bytes>& messages, Decode&& decode) {
  return TimeNs([&] {
    for (Bytes& message : messages) decode(message);
  });
}

std::vector<Bytes> Elements() {
  std::vector<Bytes> all;
  for (const Sample& sample : Samples()) {
    for (const Bytes& reply : sample.replies) {
      all.emplace_back(reply.begin() + VT_PDU_HEADER_SIZE, reply.end());
    }
  }
  return all;
}

void DecodeElements(Bytes& elements) {
  // Domain, and four columns of at most two devices.
  constexpr std::size_t kMostElements = 1 + 2 * kColumns;
  std::array<Tlv*, kMostElements> decoded;
  std::size_t count = 0;
  auto remaining = static_cast<std::int32_t>(elements.size());
  std::uint8_t* cursor = elements.data();
  while (remaining > 0) {
    Require(count < decoded.size(), "there are more elements");
    decoded[count] = cv_create_tlv_from_raw_buf(&remaining, &cursor);
    Require(decoded[count] != nullptr, "an element was refused");
    benchmark::DoNotOptimize(decoded[count++]);
  }
  for (std::size_t i = 0; i < count; ++i) vt_free_tlv_ptr(decoded[i]);
}

// Encode makes the messages of a peer.
template <class EncodeOne>
std::vector<Bytes> Encode(EncodeOne&& encode) {
  std::vector<Bytes> messages;
  for (const Sample& sample : Samples()) {
    for (const Content& content : sample.contents) {
      messages.push_back(encode(content, sample.shape));
    }
  }
  return messages;
}

// Holds what check finds in each message against its content.
template <class Check>
void CheckAll(std::vector<Bytes>& messages, Check&& check) {
  auto message = messages.begin();
  for (const Sample& sample : Samples()) {
    for (const Content& content : sample.contents) check(*message++, content, sample.shape);
  }
}

// protobuf-c

char** TextField(Vt__Bench__PeerRow& row, std::int32_t attribute) {
  switch (attribute) {
    case VT_ATTRIBUTE_ROLE:
      return &row.role;
    case VT_ATTRIBUTE_NAME:
      return &row.name;
    case VT_ATTRIBUTE_KEYWORDS:
      return &row.keywords;
    case VT_ATTRIBUTE_TEXT_21:
      return &row.text;
    default:
      return nullptr;
  }
}

struct NumberField {
  void* value;
  protobuf_c_boolean* present;
};

NumberField FieldOfNumber(Vt__Bench__PeerRow& row, std::int32_t attribute) {
  switch (attribute) {
    case VT_ATTRIBUTE_UNITS:
      return {&row.units, &row.has_units};
    case VT_ATTRIBUTE_USAGE:
      return {&row.usage, &row.has_usage};
    case VT_ATTRIBUTE_LEVEL:
      return {&row.level, &row.has_level};
    case VT_ATTRIBUTE_IMPORTANCE:
      return {&row.importance, &row.has_importance};
    case VT_ATTRIBUTE_USAGE_CALIBER:
      return {&row.caliber, &row.has_caliber};
    case VT_ATTRIBUTE_USAGE_CATEGORY:
      return {&row.category, &row.has_category};
    default:
      return {nullptr, nullptr};
  }
}

ProtobufCBinaryData BytesOf(const std::string& text) {
  return {text.size(), reinterpret_cast<std::uint8_t*>(const_cast<char*>(text.data()))};
}

Vt__Bench__PeerRow ProtobufRow(const ContentRow& row, const Shape& shape) {
  Vt__Bench__PeerRow made = VT__BENCH__PEER_ROW__INIT;
  made.entity = row.entity;
  for (std::size_t i = 0; i < kColumns; ++i) {
    const Value& value = row.values[i];
    if (shape[i].size == 0) {
      *TextField(made, shape[i].attribute) = const_cast<char*>(value.text.c_str());
      continue;
    }
    const NumberField field = FieldOfNumber(made, shape[i].attribute);
    std::memcpy(field.value, &value.number, sizeof value.number);
    *field.present = 1;
  }
  return made;
}

Bytes ProtobufMessage(const Content& content, const Shape& shape) {
  std::deque<Vt__Bench__PeerRow> rows;
  std::deque<std::vector<Vt__Bench__PeerRow*>> rows_of_devices;
  std::deque<Vt__Bench__PeerDevice> devices;
  std::vector<Vt__Bench__PeerDevice*> device_list;
  for (const ContentDevice& device : content.devices) {
    std::vector<Vt__Bench__PeerRow*>& list = rows_of_devices.emplace_back();
    for (const ContentRow& row : device.rows) {
      list.push_back(&rows.emplace_back(ProtobufRow(row, shape)));
    }
    Vt__Bench__PeerDevice made = VT__BENCH__PEER_DEVICE__INIT;
    made.identity = BytesOf(device.identity);
    made.address = BytesOf(device.address);
    made.n_rows = list.size();
    made.rows = list.data();
    device_list.push_back(&devices.emplace_back(made));
  }
  Vt__Bench__PeerReply reply = VT__BENCH__PEER_REPLY__INIT;
  reply.domain = const_cast<char*>(content.domain.c_str());
  reply.n_devices = device_list.size();
  reply.devices = device_list.data();
  Bytes message(vt__bench__peer_reply__get_packed_size(&reply));
  vt__bench__peer_reply__pack(&reply, message.data());
  return message;
}

Vt__Bench__PeerReply* Unpack(const Bytes& message) {
  ProtobufCMessage* const reply = protobuf_c_message_unpack(
      &vt__bench__peer_reply__descriptor, nullptr, message.size(), message.data());
  Require(reply != nullptr, "protobuf-c refuses a message");
  return reinterpret_cast<Vt__Bench__PeerReply*>(reply);
}

void DecodeProtobuf(const Bytes& message) {
  Vt__Bench__PeerReply* const reply = Unpack(message);
  benchmark::DoNotOptimize(reply);
  protobuf_c_message_free_unpacked(&reply->base, nullptr);
}

void CheckProtobuf(const Bytes& message, const Content& content, const Shape& shape) {
  Vt__Bench__PeerReply* const reply = Unpack(message);
  Require(reply->n_devices == content.devices.size(), "protobuf-c: devices are missing");
  for (std::size_t d = 0; d < reply->n_devices; ++d) {
    const ContentDevice& device = content.devices[d];
    Require(reply->devices[d]->n_rows == device.rows.size(), "protobuf-c: rows are missing");
    for (std::size_t r = 0; r < device.rows.size(); ++r) {
      Vt__Bench__PeerRow& row = *reply->devices[d]->rows[r];
      Require(row.entity == device.rows[r].entity, "protobuf-c: another entity");
      for (std::size_t i = 0; i < kColumns; ++i) {
        const Value& value = device.rows[r].values[i];
        const bool same = shape[i].size == 0
                              ? *TextField(row, shape[i].attribute) == value.text
                              : std::memcmp(FieldOfNumber(row, shape[i].attribute).value,
                                            &value.number, sizeof value.number) == 0;
        Require(same, "protobuf-c: another value");
      }
    }
  }
  protobuf_c_message_free_unpacked(&reply->base, nullptr);
}

// libcbor

// Rows name their values by attribute, as fields of protobuf have their numbers and our elements
// their types, or have them in the order of a list of attributes that stands once in the message.
enum class CborRows { kMaps, kArrays };

cbor_item_t* Number(std::int64_t number) {
  const auto magnitude = static_cast<std::uint64_t>(number < 0 ? -1 - number : number);
  cbor_item_t* const item = magnitude <= UINT8_MAX    ? cbor_build_uint8(magnitude & UINT8_MAX)
                            : magnitude <= UINT16_MAX ? cbor_build_uint16(magnitude & UINT16_MAX)
                                                      : cbor_build_uint32(magnitude & UINT32_MAX);
  if (number < 0) cbor_mark_negint(item);
  return item;
}

cbor_item_t* ByteString(const std::string& bytes) {
  return cbor_build_bytestring(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

void Push(cbor_item_t* array, cbor_item_t* item) {
  Require(cbor_array_push(array, cbor_move(item)), "libcbor: no memory");
}

void Put(cbor_item_t* map, std::int32_t key, cbor_item_t* item) {
  Require(cbor_map_add(map, {cbor_move(Number(key)), cbor_move(item)}), "libcbor: no memory");
}

cbor_item_t* CborValue(const Value& value, const Column& column) {
  if (column.size != 0) return Number(value.number);
  return cbor_build_stringn(value.text.data(), value.text.size());
}

constexpr std::int32_t kEntityKey = 0;  // no attribute

cbor_item_t* CborRow(const ContentRow& row, const Shape& shape, CborRows form) {
  if (form == CborRows::kArrays) {
    cbor_item_t* const array = cbor_new_definite_array(1 + kColumns);
    Push(array, Number(row.entity));
    for (std::size_t i = 0; i < kColumns; ++i) Push(array, CborValue(row.values[i], shape[i]));
    return array;
  }
  cbor_item_t* const map = cbor_new_definite_map(1 + kColumns);
  Put(map, kEntityKey, Number(row.entity));
  for (std::size_t i = 0; i < kColumns; ++i) {
    Put(map, shape[i].attribute, CborValue(row.values[i], shape[i]));
  }
  return map;
}

Bytes CborMessage(const Content& content, const Shape& shape, CborRows form) {
  cbor_item_t* const reply = cbor_new_definite_array(3);
  Push(reply, cbor_build_stringn(content.domain.data(), content.domain.size()));
  cbor_item_t* const columns = cbor_new_definite_array(form == CborRows::kArrays ? kColumns : 0);
  if (form == CborRows::kArrays) {
    for (const Column& column : shape) Push(columns, Number(column.attribute));
  }
  Push(reply, columns);
  cbor_item_t* const devices = cbor_new_definite_array(content.devices.size());
  for (const ContentDevice& device : content.devices) {
    cbor_item_t* const made = cbor_new_definite_array(3);
    Push(made, ByteString(device.identity));
    Push(made, ByteString(device.address));
    cbor_item_t* const rows = cbor_new_definite_array(device.rows.size());
    for (const ContentRow& row : device.rows) Push(rows, CborRow(row, shape, form));
    Push(made, rows);
    Push(devices, made);
  }
  Push(reply, devices);
  Bytes message(VT_MAX_PDU_SIZE * 2);
  message.resize(cbor_serialize(reply, message.data(), message.size()));
  Require(!message.empty(), "libcbor: a message has no room");
  cbor_item_t* owned = reply;
  cbor_decref(&owned);
  return message;
}

cbor_item_t* Load(const Bytes& message) {
  cbor_load_result result;
  cbor_item_t* const reply = cbor_load(message.data(), message.size(), &result);
  Require(reply != nullptr && result.read == message.size(), "libcbor refuses a message");
  return reply;
}

void DecodeCbor(const Bytes& message) {
  cbor_item_t* reply = Load(message);
  benchmark::DoNotOptimize(reply);
  cbor_decref(&reply);
}

// What libcbor decoded has to be written as it was read, with all the rows.
void CheckCbor(const Bytes& message, const Content& content) {
  cbor_item_t* reply = Load(message);
  const cbor_item_t* const devices = cbor_array_handle(reply)[2];
  Require(cbor_array_size(devices) == content.devices.size(), "libcbor: devices are missing");
  for (std::size_t d = 0; d < content.devices.size(); ++d) {
    const cbor_item_t* const rows = cbor_array_handle(cbor_array_handle(devices)[d])[2];
    Require(cbor_array_size(rows) == content.devices[d].rows.size(), "libcbor: rows are missing");
  }
  Bytes again(message.size());
  Require(cbor_serialize(reply, again.data(), again.size()) == message.size() && again == message,
          "libcbor: another content");
  cbor_decref(&reply);
}

// The benchmarks

void ProtobufC(benchmark::State& state) {
  std::vector<Bytes> elements = Elements();
  std::vector<Bytes> messages = Encode(ProtobufMessage);
  CheckAll(messages, CheckProtobuf);
  CompareInTurn(
      state, kSampledValues, [&] { return TimeAll(elements, DecodeElements); },
      [&] { return TimeAll(messages, DecodeProtobuf); });
}

void Libcbor(benchmark::State& state, CborRows form) {
  std::vector<Bytes> elements = Elements();
  std::vector<Bytes> messages = Encode([=](const Content& content, const Shape& shape) {
    return CborMessage(content, shape, form);
  });
  CheckAll(messages, [](const Bytes& message, const Content& content, const Shape&) {
    CheckCbor(message, content);
  });
  CompareInTurn(
      state, kSampledValues, [&] { return TimeAll(elements, DecodeElements); },
      [&] { return TimeAll(messages, DecodeCbor); });
}

BENCHMARK(ProtobufC)->Name("P4/protobuf_c")->UseManualTime();
BENCHMARK_CAPTURE(Libcbor, , CborRows::kMaps)->Name("P4/libcbor_maps")->UseManualTime();
BENCHMARK_CAPTURE(Libcbor, , CborRows::kArrays)->Name("P4/libcbor_arrays")->UseManualTime();

}  // namespace

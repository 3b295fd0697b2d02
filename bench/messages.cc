#include "bench/messages.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "bench/measure.h"

namespace vt::bench {

namespace {

constexpr std::uint32_t kComm = 2;
constexpr std::uint32_t kPriority = 5;

// A device's socket address, as it travels.
struct Address {
  std::array<std::uint8_t, 16> bytes{};
};

constexpr std::array<Column, 4> kTexts = {{
    {VT_ATTRIBUTE_ROLE, CV_CORVANE_TLV_TYPE_ROLE, 0},
    {VT_ATTRIBUTE_NAME, CV_CORVANE_TLV_TYPE_NAME, 0},
    {VT_ATTRIBUTE_KEYWORDS, CV_CORVANE_TLV_TYPE_KEYWORDS, 0},
    {VT_ATTRIBUTE_TEXT_21, VT_TLV_TEXT_48, 0},
}};

constexpr std::array<Column, 6> kNumbers = {{
    {VT_ATTRIBUTE_UNITS, CV_CORVANE_TLV_TYPE_UNITS, 1},
    {VT_ATTRIBUTE_USAGE, CV_CORVANE_TLV_TYPE_USAGE, 2},
    {VT_ATTRIBUTE_LEVEL, CV_CORVANE_TLV_TYPE_LEVEL_CURRENT, 1},
    {VT_ATTRIBUTE_IMPORTANCE, CV_CORVANE_TLV_TYPE_IMPORTANCE_I, 1},
    {VT_ATTRIBUTE_USAGE_CALIBER, VT_TLV_USAGE_CALIBER, 4},
    {VT_ATTRIBUTE_USAGE_CATEGORY, VT_TLV_USAGE_CATEGORY, 4},
}};

}  // namespace

std::span<const std::uint8_t> Key() {
  static constexpr std::array<std::uint8_t, VT_DIGEST_SIZE> kKey = {
      0x8c, 0x1f, 0x52, 0xe9, 0x07, 0xb4, 0x3d, 0x66, 0xfa, 0x90,
      0x2b, 0xc7, 0x15, 0xd8, 0x4e, 0x73, 0xa1, 0x3c, 0x6f, 0x58};
  return kKey;
}

const hmac_context& KeyContext() {
  static const hmac_context context = [] {
    hmac_context keyed{};
    hmac_shainit(&keyed, Key().data(), static_cast<std::uint32_t>(Key().size()));
    return keyed;
  }();
  return context;
}

// Plan is what a reply shall hold, before it is built.
struct Messages::Plan {
  struct Row {
    std::size_t device;
    std::uint32_t entity;
    std::array<std::string, kColumns> values;  // a text, or the bytes of a number
  };
  std::string domain;
  std::vector<Row> rows;

  std::vector<std::string*> Texts(const Shape& shape) {
    std::vector<std::string*> texts;
    for (Row& row : rows) {
      for (std::size_t column = 0; column < kColumns; ++column) {
        if (shape[column].size == 0) texts.push_back(&row.values[column]);
      }
    }
    return texts;
  }
};

std::string Messages::Text(std::size_t length) {
  static constexpr char kCharacters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJ0123456789-_ .";
  std::string text(length, ' ');
  for (char& character : text) character = kCharacters[Below(sizeof kCharacters - 1)];
  return text;
}

corvane_id Messages::Device() {
  corvane_id id;
  auto* const digits = reinterpret_cast<char*>(id.bytes);
  std::array<std::uint8_t, VT_UUID_SIZE> random;
  for (std::uint8_t& byte : random) byte = static_cast<std::uint8_t>(random_());
  if (Below(2) == 0) {
    (void)convertUuidString(digits, random.data());
  } else {
    (void)voltaris_utl_createUuidFromMac(digits, random.data());
  }
  return id;
}

std::vector<corvane_id> Messages::Devices(std::size_t count) {
  const auto less = [](const corvane_id& a, const corvane_id& b) {
    return corvane_id_cmp(&a, &b) < 0;
  };
  const auto same = [](const corvane_id& a, const corvane_id& b) {
    return corvane_id_cmp(&a, &b) == 0;
  };
  std::vector<corvane_id> ids;
  while (ids.size() < count) {
    while (ids.size() < count) ids.push_back(Device());
    std::sort(ids.begin(), ids.end(), less);
    ids.erase(std::unique(ids.begin(), ids.end(), same), ids.end());
  }
  Shuffle(ids);
  return ids;
}

Shape Messages::NewShape() {
  std::array<Column, kTexts.size()> texts = kTexts;
  std::array<Column, kNumbers.size()> numbers = kNumbers;
  Shuffle(texts);
  Shuffle(numbers);
  const std::size_t text_count = Between(1, 2);
  Shape shape;
  for (std::size_t i = 0; i < kColumns; ++i) shape[i] = i < text_count ? texts[i] : numbers[i];
  Shuffle(shape);
  return shape;
}

// Entities returns ascending indices with gaps, now and then out of order.
std::vector<std::uint32_t> Messages::Entities(std::size_t count) {
  std::vector<std::uint32_t> entities(count);
  auto entity = static_cast<std::uint32_t>(Below(1000));
  for (std::uint32_t& index : entities) {
    entity += static_cast<std::uint32_t>(Below(4) == 0 ? Between(1, 40) : 1);
    index = entity;
  }
  if (Below(8) == 0) Shuffle(entities);
  return entities;
}

Messages::Plan Messages::NewPlan(const Shape& shape, std::span<const corvane_id> devices,
                                 std::size_t rows) {
  Plan plan;
  plan.domain = Text(Between(3, 12));
  const std::vector<std::uint32_t> entities = Entities(rows);
  for (std::size_t i = 0; i < rows; ++i) {
    Plan::Row row{i * devices.size() / rows, entities[i], {}};
    for (std::size_t column = 0; column < kColumns; ++column) {
      std::string& value = row.values[column];
      value = Text(shape[column].size == 0 ? 1 : shape[column].size);
    }
    plan.rows.push_back(std::move(row));
  }
  return plan;
}

EventPtr Messages::Build(const Shape& shape, std::span<const corvane_id> devices,
                         const Plan& plan) {
  EventPtr event(corvane_create_my_packet());
  Require(event != nullptr, "no memory for a message");
  const auto domain_length =
      static_cast<std::uint32_t>(VT_TLV_HEADER_SIZE + plan.domain.size() + 1);
  int failed =
      cv_add_tlv(event.get(), CV_CORVANE_TLV_TYPE_DOMAIN, domain_length, plan.domain.c_str());
  for (const Plan::Row& row : plan.rows) {
    Address address;
    std::memcpy(address.bytes.data(), devices[row.device].bytes, address.bytes.size());
    device_header header{};
    header.id = devices[row.device];
    header.data = &address;
    header.data_len = sizeof address;
    for (std::size_t column = 0; column < kColumns; ++column) {
      // Longer than any number, for those are read from it in whole.
      std::array<char, 64> value{};
      const std::string& planned = row.values[column];
      Require(planned.size() < value.size(), "a value is too long");
      std::memcpy(value.data(), planned.data(), planned.size());
      failed |= cv_add_aggr_type_tlv(event.get(), shape[column].type, value.data(), row.entity,
                                     &header, nullptr);
    }
  }
  Require(failed == 0, "a message cannot be built");
  return event;
}

Bytes Messages::Sign(EventPtr event, std::int32_t shipment) {
  Require(vtn_createPdu(event.get(), kPriority, static_cast<std::uint32_t>(shipment),
                        CV_CLASS_QUERY, CV_ACTION_MXRT_CORVANE_QUERY_COLLECT, kIdentity,
                        ++sequence_number_, &KeyContext(), kComm) == 0,
          "a message cannot be signed");
  return {event->raw, event->raw + event->raw_len};
}

Bytes Messages::Reply(const Shape& shape, std::span<const corvane_id> devices, std::size_t rows) {
  Plan plan = NewPlan(shape, devices, rows);
  for (std::string* text : plan.Texts(shape)) *text = Text(Between(1, 12));
  return Sign(Build(shape, devices, plan), CV_SHIPMENT_REPLY_NO_ERROR);
}

Bytes Messages::FullReply(const Shape& shape) {
  const std::vector<corvane_id> devices = Devices(2);
  std::size_t device_count = Below(4) == 0 ? 2 : 1;
  for (;; device_count = 1) {
    const auto used = std::span(devices).first(device_count);
    Plan plan = NewPlan(shape, used, kRowsOfFull);
    std::size_t size =
        VT_PDU_HEADER_SIZE + vt_get_total_tlvs_data_size(Build(shape, used, plan).get());
    if (size > VT_MAX_PDU_SIZE && device_count > 1) continue;  // no room for two
    Require(size <= VT_MAX_PDU_SIZE, "the rows of a full reply take too much room");
    // The room that is left goes to the texts, here more, there less.
    const std::vector<std::string*> texts = plan.Texts(shape);
    while (size < VT_MAX_PDU_SIZE) {
      const std::size_t more = Between(1, std::min<std::size_t>(5, VT_MAX_PDU_SIZE - size));
      *texts[Below(texts.size())] += Text(more);
      size += more;
    }
    Bytes reply = Sign(Build(shape, used, plan), CV_SHIPMENT_REPLY_NO_ERROR);
    Require(reply.size() == VT_MAX_PDU_SIZE, "a full reply is not full");
    return reply;
  }
}

Bytes Messages::Acknowledgement() {
  EventPtr event(corvane_create_my_packet());
  Require(event != nullptr, "no memory for a message");
  Address address;
  device_header header{};
  header.id = Device();
  header.data = &address;
  header.data_len = sizeof address;
  for (const std::uint32_t entity : Entities(kAckEntries)) {
    Require(cv_aggr_ack(event.get(), entity, &header) == 0, "a message cannot be built");
  }
  return Sign(std::move(event), CV_SHIPMENT_ACK_WILL);
}

QueryPtr CollectQuery(const Shape& shape, std::uint32_t priority) {
  QueryPtr query(voltaris_createCollectQuery("bench", priority));
  Require(query != nullptr, "no query");
  for (const Column& column : shape) {
    Require(voltaris_addGetAttribute(query.get(), column.attribute) == 0, "no attribute");
  }
  return query;
}

ResultSet* NewResult(Query* query) {
  constexpr std::size_t kArraySize = 1028 * sizeof(AckEntry);
  ResultSet* const result = new_resultset();
  Require(result != nullptr, "no result set");
  result->query = query;
  result->expected = static_cast<std::int32_t>(query->attribute_count);
  result->acks = static_cast<AckEntry*>(std::malloc(kArraySize));
  result->naks = static_cast<AckEntry*>(std::malloc(kArraySize));
  return result;
}

void Release(ResultSet* result) {
  result->query = nullptr;  // which would lose its attributes
  voltaris_releaseResult(result);
}

std::size_t Walk(ResultSet* result, const Shape& shape) {
  std::size_t rows = 0;
  while (ResultRow* const row = voltaris_getNextRow(result)) {
    for (const Column& column : shape) {
      std::uint32_t length = 0;
      void* const value = voltaris_getAttributeFromRowByType(row, column.attribute, &length);
      Require(value != nullptr && length != 0, "a value is missing");
      benchmark::DoNotOptimize(value);
    }
    ++rows;
  }
  return rows;
}

}  // namespace vt::bench

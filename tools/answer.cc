#include "tools/answer.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <span>
#include <string_view>

namespace vt::tools {
namespace {

using Identity = std::array<std::uint8_t, VT_IDENTITY_SIZE>;
using EntityKey = std::pair<Identity, std::uint32_t>;
using Block = std::span<const std::uint8_t>;

// Take hands out the next value of an attribute. The library gives each value once.
Block Take(ResultRow& row, std::int32_t attribute) {
  std::uint32_t size = 0;
  const void* value = voltaris_getAttributeFromRowByType(&row, attribute, &size);
  if (value == nullptr) return {};
  return {static_cast<const std::uint8_t*>(value), size};
}

template <typename T>
T Load(Block block) {
  T value;
  std::memcpy(&value, block.data(), sizeof value);
  return value;
}

Value ReadInteger(Block block, bool is_signed) {
  switch (block.size()) {
    case 1:
      if (is_signed) return std::int64_t{Load<std::int8_t>(block)};
      return std::int64_t{Load<std::uint8_t>(block)};
    case 2:
      if (is_signed) return std::int64_t{Load<std::int16_t>(block)};
      return std::int64_t{Load<std::uint16_t>(block)};
    case 4:
      if (is_signed) return std::int64_t{Load<std::int32_t>(block)};
      return std::int64_t{Load<std::uint32_t>(block)};
    default:
      return {};
  }
}

Value ReadText(Block block) {
  if (block.empty()) return {};
  const std::string_view all(reinterpret_cast<const char*>(block.data()), block.size());
  return std::string(all.substr(0, all.find('\0')));
}

Value ReadKeywords(Block block) {
  if (block.empty()) return {};
  const std::unique_ptr<char, decltype(&std::free)> list(
      cv_get_comma_sep_list(reinterpret_cast<const char*>(block.data()),
                            static_cast<int>(block.size())),
      &std::free);
  if (list == nullptr) return {};
  // The last item of a list may lack its zero, so its size bounds the text.
  return std::string(list.get(), strnlen(list.get(), block.size()));
}

Value ReadAddress(Block block) {
  if (block.size() != sizeof(sockaddr_in)) return {};
  const auto address = Load<sockaddr_in>(block);
  std::array<char, INET_ADDRSTRLEN> text{};
  inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
  return std::string(text.data()) + ":" + std::to_string(ntohs(address.sin_port));
}

// ReadName turns CV_CORVANE_USAGE_CALIBER_ACTUAL into "actual"; a number without a name stays one.
Value ReadName(Block block, const char* (*name_of)(std::int32_t), std::string_view prefix) {
  if (block.size() != sizeof(std::int32_t)) return {};
  const auto number = Load<std::int32_t>(block);
  const char* name = name_of(number);
  if (name == nullptr) return std::int64_t{number};
  std::string word = std::string_view(name).starts_with(prefix) ? name + prefix.size() : name;
  for (char& letter : word) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    if (letter == '_') letter = '-';
  }
  return word;
}

template <typename T>
Value ReadPowerVector(Block block, std::optional<int> units) {
  PowerVector vector;
  vector.units = units;
  for (; block.size() >= sizeof(T); block = block.subspan(sizeof(T))) {
    vector.raw.push_back(std::int64_t{Load<T>(block)});
  }
  if (vector.raw.empty()) return {};
  return vector;
}

// RowReader reads one row. A device may tell its units once for several columns of power: then the
// units read last hold for the columns that follow.
class RowReader {
 public:
  explicit RowReader(ResultRow& row) : row_(row) {}

  Value Read(const Attribute& attribute) {
    const Block block = Take(row_, attribute.number);
    switch (attribute.kind) {
      case ValueKind::kText:
        return ReadText(block);
      case ValueKind::kKeywords:
        return ReadKeywords(block);
      case ValueKind::kInteger:
        return ReadInteger(block, attribute.is_signed);
      case ValueKind::kCaliber:
        return ReadName(block, cv_util_e2s_corvane_usage_caliber, "CV_CORVANE_USAGE_CALIBER_");
      case ValueKind::kCategory:
        return ReadName(block, cv_util_e2s_corvane_usage_category, "CV_CORVANE_USAGE_");
      case ValueKind::kEntityType:
        return ReadName(block, cv_util_e2s_entity_type, "CV_ENTITY_TYPE_");
      case ValueKind::kAddress:
        return ReadAddress(block);
      case ValueKind::kUsage:
        return ReadUsage(block);
      case ValueKind::kUsageVector:
        return ReadPowerVector<std::uint16_t>(block, NextUnits());
      case ValueKind::kDeltaVector:
        return ReadPowerVector<std::int32_t>(block, NextUnits());
    }
    return {};
  }

 private:
  Value ReadUsage(Block block) {
    const std::optional<int> units = NextUnits();
    if (block.size() != sizeof(std::uint16_t)) return {};
    return Power{Load<std::uint16_t>(block), units};
  }

  std::optional<int> NextUnits() {
    const Block block = Take(row_, VT_ATTRIBUTE_UNITS);
    if (block.size() == 1) units_ = Load<std::int8_t>(block);
    return units_;
  }

  ResultRow& row_;
  std::optional<int> units_;
};

std::string DeviceText(const Identity& identity) {
  const auto readable = [](std::uint8_t byte) { return byte > 0x20 && byte < 0x7F; };
  if (std::ranges::all_of(identity, readable)) return {identity.begin(), identity.end()};
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : identity) {
    text += digits[byte >> 4];
    text += digits[byte & 0x0F];
  }
  return text;
}

std::set<EntityKey> AcknowledgedEntities(const ResultSet& result) {
  std::set<EntityKey> keys;
  const std::span<const AckEntry> acks(voltaris_getAcks(&result),
                                       static_cast<std::size_t>(voltaris_getAckCount(&result)));
  for (const AckEntry& ack : acks) {
    keys.emplace(std::to_array(ack.device_id), ack.entity_index);
  }
  return keys;
}

bool HoldsNothing(const Row& row) {
  return std::ranges::all_of(
      row.values, [](const Value& value) { return std::holds_alternative<std::monostate>(value); });
}

}  // namespace

Answer ReadAnswer(ResultSet& result, const std::vector<const Attribute*>& columns) {
  Answer answer;
  answer.columns = columns;
  answer.acknowledged = voltaris_getAckCount(&result);
  answer.refused = voltaris_getNakCount(&result);
  answer.error_code = voltaris_getErrorCode(&result);

  const std::set<EntityKey> acknowledged = AcknowledgedEntities(result);
  while (ResultRow* row = voltaris_getNextRow(&result)) {
    EntityKey key{{}, row->entity_index};
    std::memcpy(key.first.data(), row->device, key.first.size());
    Row read{DeviceText(key.first), row->entity_index, {}};
    RowReader reader(*row);
    for (const Attribute* column : columns) read.values.push_back(reader.Read(*column));
    // A refusal that names an entity makes a row of its own, which says nothing.
    if (HoldsNothing(read) && !acknowledged.contains(key)) continue;
    answer.rows.push_back(std::move(read));
  }
  return answer;
}

}  // namespace vt::tools

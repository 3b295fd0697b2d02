// Replies folded into rows: a sorted queue of devices, each with a sorted queue of entities, each
// with its values in order of arrival. Nothing is copied; all values stay in the replies.
#include <cstdlib>
#include <cstring>

#include "vtapi/catalogue.h"
#include "vtapi/enumerations.h"
#include "vtapi/result.h"

#include "api/attribute_list.h"
#include "api/row_store.h"
#include "protocol/tlv_list.h"
#include "support/bytes.h"
#include "support/heap.h"

namespace {

using vt::api::RowStore;

// How a node stands to a key.
enum Order : std::uint32_t { kBefore = 0, kEqual = 1, kAfter = 2 };

// Value is where a value lies inside a reply, and its length in bytes; null if there is none.
struct Value {
  void* at;
  std::uint32_t length;
};

template <class T>
Value ValueAt(T& field) {
  return {&field, sizeof field};
}

Value TextAt(char* text) {
  return {text, text != nullptr ? static_cast<std::uint32_t>(std::strlen(text)) + 1 : 0};
}

// What a combined entry has for an attribute, the last three only in entries of their own type.
struct ComboColumn {
  std::int32_t attribute;
  std::uint32_t combined_type;  // 0: all
  Value (*value)(combo_entry& entry);
};

constexpr ComboColumn kComboColumns[] = {
    {VT_ATTRIBUTE_ROLE, 0, [](combo_entry& entry) { return TextAt(entry.usage.text2); }},
    {VT_ATTRIBUTE_NAME, 0, [](combo_entry& entry) { return TextAt(entry.usage.text1); }},
    {VT_ATTRIBUTE_KEYWORDS, 0, [](combo_entry& entry) { return TextAt(entry.usage.text3); }},
    {VT_ATTRIBUTE_UNITS, 0, [](combo_entry& entry) { return ValueAt(entry.usage.small); }},
    {VT_ATTRIBUTE_LEVEL, 0, [](combo_entry& entry) { return ValueAt(entry.usage.byte1); }},
    {VT_ATTRIBUTE_IMPORTANCE, 0, [](combo_entry& entry) { return ValueAt(entry.usage.byte2); }},
    {VT_ATTRIBUTE_USAGE_CALIBER, 0, [](combo_entry& entry) { return ValueAt(entry.usage.value); }},
    {VT_ATTRIBUTE_USAGE, VT_TLV_COMBINED_USAGE,
     [](combo_entry& entry) {
       return Value{entry.data, sizeof(std::uint16_t)};
     }},
    {VT_ATTRIBUTE_USAGE_VECTOR, VT_TLV_COMBINED_USAGE_VECTOR,
     [](combo_entry& entry) {
       return Value{entry.data, sizeof(usage_vector)};
     }},
    {VT_ATTRIBUTE_DELTA_VECTOR, VT_TLV_COMBINED_DELTA_VECTOR,
     [](combo_entry& entry) {
       return Value{entry.data, sizeof(delta_vector)};
     }},
};

// OutOfMemory ends the fold of a reply; what was folded before stays.
bool OutOfMemory(ResultSet& result) {
  result.error_code = VT_ERROR_NO_MEMORY;
  return false;
}

// AddValue appends a value to a row that rows has made or, if that is null, to one of the caller's,
// whose nodes are blocks of their own.
void AddValue(entity_node& row, std::int32_t attribute, const Value& value, ResultSet& result,
              RowStore* rows) {
  auto* node = rows != nullptr ? rows->NewValue(row)
                               : vt::support::AllocateZeroed<attribute_node>().release();
  if (node == nullptr) {
    (void)OutOfMemory(result);
    return;
  }
  std::memset(node, 0, sizeof *node);  // what lies between the fields too
  node->type = attribute;
  node->length = value.length;
  node->value = value.at;
  vt::api::LinkBehind(row.attributes, row.attributes.tail, node);
}

void AddComboValues(entity_node& row, combo_entry& entry, std::uint32_t type, ResultSet& result,
                    RowStore* rows) {
  if (result.query == nullptr) return;
  for (const auto* wanted = vt::api::FirstAttribute(*result.query); wanted != nullptr;
       wanted = wanted->next) {
    for (const ComboColumn& column : kComboColumns) {
      if (column.attribute != wanted->attribute) continue;
      if (column.combined_type != 0 && column.combined_type != type) continue;
      const Value value = column.value(entry);
      if (value.at == nullptr) continue;
      AddValue(row, wanted->attribute, value, result, rows);
    }
  }
}

// Columns is what decides, for all entries of an element alike, which of their values are wanted.
struct Columns {
  RowStore& rows;
  ResultSet& result;
  std::uint32_t base_type;
  bool combined;
  std::int32_t attribute;  // of plain entries; kNone: not asked for

  static constexpr std::int32_t kNone = -1;

  Columns(RowStore& store, ResultSet& of, std::uint32_t type)
      : rows(store),
        result(of),
        base_type(type & ~VT_TLV_AGGREGATED),
        combined(cv_is_combo_tlv(type) != 0),
        attribute(vt_get_external_tlv_enum_type(base_type)) {
    if (vtn_get_tlv_index_from_query(result.query, attribute) < 0) attribute = kNone;
  }
};

bool FoldEntry(const Columns& columns, vt::api::RowDevice& device, void* entry) {
  const auto entity_index = vt::support::LoadHost<std::uint32_t>(entry);  // both shapes begin so
  if (entity_index == 0) return true;
  ResultSet& result = columns.result;
  entity_node* row = columns.rows.Row(result, device, entity_index);
  if (row == nullptr) return OutOfMemory(result);
  if (columns.combined) {
    AddComboValues(*row, *static_cast<combo_entry*>(entry), columns.base_type, result,
                   &columns.rows);
  } else if (columns.attribute != Columns::kNone) {
    const auto& plain = *static_cast<plain_entry*>(entry);
    AddValue(*row, columns.attribute, {plain.data, plain.data_len}, result, &columns.rows);
  }
  return true;
}

bool FoldAggregate(const Tlv& tlv, ResultSet& result) {
  auto* aggregate = static_cast<aggregated_value*>(tlv.value);
  if (aggregate == nullptr) return true;
  RowStore* rows = RowStore::Of(result);
  vt::api::RowDevice* device = rows != nullptr ? rows->Device(result, aggregate) : nullptr;
  if (device == nullptr) return OutOfMemory(result);
  if (aggregate->entries == nullptr) return true;
  const Columns columns(*rows, result, tlv.type);
  for (void* entry : std::span(aggregate->entries, aggregate->entry_count)) {
    if (entry != nullptr && !FoldEntry(columns, *device, entry)) return false;
  }
  return true;
}

// AnswersOnlyCombined tells queries whose plain entries make no rows: to set is acknowledged, and
// sums, whose action has the same number, come combined.
bool AnswersOnlyCombined(const ResultSet& result) {
  return result.query != nullptr && result.query->action == CV_ACTION_MXRT_CORVANE_QUERY_SET;
}

}  // namespace

extern "C" {

void vtn_addResult(Event* event, ResultSet* result) {
  for (const Tlv* tlv : vt::protocol::Slots(*event)) {
    if (tlv == nullptr) continue;
    if (tlv->type == CV_CORVANE_TLV_TYPE_DOMAIN) {
      result->domain = static_cast<const char*>(tlv->value);
      continue;
    }
    if ((tlv->type & VT_TLV_AGGREGATED) == 0) continue;
    if (AnswersOnlyCombined(*result) && cv_is_combo_tlv(tlv->type) == 0) continue;
    if (!FoldAggregate(*tlv, *result)) return;
  }
}

void* vtn_checkQueue(queue* q, const void* key,
                     std::uint32_t (*compare)(const void* node, const void* key),
                     std::uint32_t node_size, std::int32_t* created) {
  *created = 0;
  queue_element* before = nullptr;
  queue_element* at = q->head;
  for (; at != nullptr; before = at, at = at->next) {
    const std::uint32_t order = compare(at, key);
    if (order == kEqual) return at;
    if (order == kAfter) break;
  }
  if (node_size == 0) return nullptr;
  void* node = std::calloc(1, node_size);
  if (node == nullptr) return nullptr;
  *created = 1;
  if (at == nullptr) {
    (void)enqueue(q, node);
  } else {
    (void)insqueue(q, node, before);  // at the head without a predecessor
  }
  return node;
}

std::uint32_t dh_id_compare(const void* node, const void* key) {
  const auto* device = static_cast<const device_node*>(node);
  const int order = std::memcmp(device->key, key, VT_IDENTITY_SIZE);
  if (order < 0) return kBefore;
  return order == 0 ? kEqual : kAfter;
}

std::uint32_t ent_entidx_compare(const void* node, const void* key) {
  const std::uint32_t index = static_cast<const entity_node*>(node)->entity_index;
  const auto wanted = vt::support::LoadHost<std::uint32_t>(key);
  if (index < wanted) return kBefore;
  return index == wanted ? kEqual : kAfter;
}

std::int32_t vtn_get_tlv_index_from_query(const Query* query, std::int32_t type) {
  if (query == nullptr) return -1;
  std::int32_t index = 0;
  for (const auto* entry = vt::api::FirstAttribute(*query); entry != nullptr; entry = entry->next) {
    if (entry->attribute == type) return index;
    ++index;
  }
  return -1;
}

void vtn_addTlvToResultRow(entity_node* entity, std::int32_t type, std::uint32_t len, void* value,
                           ResultSet* result) {
  AddValue(*entity, type, {value, len}, *result, RowStore::OwnerOf(*result, *entity));
}

void vtn_addComboTlvsToResultRow(entity_node* entity, combo_entry* entry, ResultSet* result,
                                 std::uint32_t type) {
  AddComboValues(*entity, *entry, type, *result, RowStore::OwnerOf(*result, *entity));
}

}  // extern "C"

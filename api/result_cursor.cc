// Rows read through a cursor of the caller's.
#include "vtapi/result_cursor.h"

#include "vtapi/catalogue.h"

#include "api/row_walk.h"

namespace {

// Value is what an attribute of a row gives.
struct Value {
  const void* at;
  std::uint32_t length;
};

constexpr Value kNone = {nullptr, 0};

// IsOfTheRow tells the attributes of which each row has at most one, which is no value of a reply.
bool IsOfTheRow(std::int32_t attribute) {
  return attribute == VT_ATTRIBUTE_ID || attribute == VT_ATTRIBUTE_DOMAIN ||
         attribute == VT_ATTRIBUTE_REPLY_TO;
}

Value OfTheRow(const ResultCursor& cursor, std::int32_t attribute) {
  if (attribute == VT_ATTRIBUTE_ID) return {&cursor.identity, sizeof cursor.identity};
  if (attribute == VT_ATTRIBUTE_REPLY_TO) return {cursor.sender, sizeof *cursor.sender};
  const char* domain = cursor.result->domain;
  return domain != nullptr ? Value{domain, vt::api::TextLength(domain)} : kNone;
}

Value OfAReply(const ResultCursor& cursor, std::int32_t attribute, std::uint32_t ordinal) {
  const auto is_wanted = [&ordinal](const attribute_node& /*node*/) { return ordinal-- == 0; };
  const auto* node = vt::api::FindValue(cursor.row->attributes, attribute, is_wanted);
  return node != nullptr ? Value{node->value, node->length} : kNone;
}

}  // namespace

extern "C" {

void voltaris_startCursor(ResultCursor* cursor, const ResultSet* result) {
  *cursor = {};
  cursor->result = result;
}

std::int32_t voltaris_advanceCursor(ResultCursor* cursor) {
  if (cursor->at_end != 0) return 0;
  vt::api::GoToNextRow(*cursor->result, cursor->device, cursor->row);
  if (cursor->row == nullptr) {
    cursor->sender = nullptr;
    cursor->at_end = 1;
    return 0;
  }
  const device_header& device = cursor->device->key->device;
  cursor->sender = vt::api::SenderOf(device);
  std::memcpy(cursor->identity.device_id, device.id.bytes, sizeof cursor->identity.device_id);
  cursor->identity.entity_index = cursor->row->entity_index;
  return 1;
}

std::uint32_t voltaris_countValues(const ResultCursor* cursor, std::int32_t attribute) {
  if (cursor->row == nullptr) return 0;
  if (IsOfTheRow(attribute)) return OfTheRow(*cursor, attribute).at != nullptr ? 1 : 0;
  std::uint32_t count = 0;
  const attribute_node* node = vt::api::FirstValue(cursor->row->attributes);
  for (; node != nullptr; node = node->next) {
    if (node->type == attribute) ++count;
  }
  return count;
}

const void* voltaris_readValue(const ResultCursor* cursor, std::int32_t attribute,
                               std::uint32_t ordinal, std::uint32_t* out_len) {
  if (cursor->row == nullptr || (IsOfTheRow(attribute) && ordinal != 0)) return nullptr;
  const Value value =
      IsOfTheRow(attribute) ? OfTheRow(*cursor, attribute) : OfAReply(*cursor, attribute, ordinal);
  if (value.at == nullptr || value.length == 0) return nullptr;
  *out_len = value.length;
  return value.at;
}

}  // extern "C"

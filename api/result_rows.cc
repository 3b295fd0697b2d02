// The walk over the rows and the values of a row. The one row and the one identity of the process
// live here.
#include <cstdint>
#include <cstring>

#include "vtapi/catalogue.h"
#include "vtapi/result.h"

#include "api/row_walk.h"

namespace {

constinit ResultRow shared_row{};
constinit AckEntry shared_identity{};

void* Give(void* value, std::uint32_t length, std::uint32_t* out_len) {
  if (value != nullptr) *out_len = length;
  return value;
}

void* GiveIdentity(const ResultRow& row, std::uint32_t* out_len) {
  std::memcpy(shared_identity.device_id, row.device->device.id.bytes,
              sizeof shared_identity.device_id);
  shared_identity.entity_index = row.entity_index;
  return Give(&shared_identity, sizeof shared_identity, out_len);
}

void* GiveDomain(const ResultRow& row, std::uint32_t* out_len) {
  if (row.domain == nullptr) return nullptr;
  return Give(const_cast<char*>(row.domain), vt::api::TextLength(row.domain), out_len);
}

// TakeNext hands out the next value of an attribute, each once.
void* TakeNext(const queue& attributes, std::int32_t attribute, std::uint32_t* out_len) {
  const auto is_left = [](const attribute_node& node) { return node.taken == 0; };
  attribute_node* node = vt::api::FindValue(attributes, attribute, is_left);
  if (node == nullptr) return nullptr;
  node->taken = 1;
  *out_len = node->length;
  return node->value;
}

}  // namespace

extern "C" {

ResultRow* voltaris_getNextRow(ResultSet* result) {
  // Deliberate: behind the last row the cursors are null, which makes the walk begin anew.
  vt::api::GoToNextRow(*result, result->device_cursor, result->entity_cursor);
  if (result->entity_cursor == nullptr) return nullptr;
  aggregated_value* device = result->device_cursor->key;
  shared_row = {device, vt::api::SenderOf(device->device), result->entity_cursor->entity_index,
                &result->entity_cursor->attributes, result->domain};
  return &shared_row;
}

void* voltaris_getAttributeFromRowByType(ResultRow* row, std::int32_t attribute,
                                         std::uint32_t* out_len) {
  switch (attribute) {
    case VT_ATTRIBUTE_ID:
      return GiveIdentity(*row, out_len);
    case VT_ATTRIBUTE_DOMAIN:
      return GiveDomain(*row, out_len);
    case VT_ATTRIBUTE_REPLY_TO:
      return Give(row->sender, sizeof(sockaddr_in), out_len);
    default:
      return TakeNext(*row->attributes, attribute, out_len);
  }
}

}  // extern "C"

// The walk over the rows and the values of a row. The one row and the one identity of the process
// live here.
#include <cstdint>
#include <cstring>

#include "vtapi/catalogue.h"
#include "vtapi/result.h"

namespace {

constinit ResultRow shared_row{};
constinit AckEntry shared_identity{};

device_node* FirstDevice(const ResultSet& result) {
  return static_cast<device_node*>(static_cast<void*>(result.rows.head));
}

entity_node* FirstEntity(const device_node& device) {
  return static_cast<entity_node*>(static_cast<void*>(device.entities.head));
}

// Advance moves the cursors to the next row. Both are null or neither is. Deliberate: they are null
// behind the last row, which makes the walk begin anew.
void Advance(ResultSet& result) {
  if (result.entity_cursor == nullptr) {
    result.device_cursor = FirstDevice(result);
    if (result.device_cursor != nullptr) result.entity_cursor = FirstEntity(*result.device_cursor);
  } else {
    result.entity_cursor = result.entity_cursor->next;
  }
  while (result.entity_cursor == nullptr && result.device_cursor != nullptr) {
    result.device_cursor = result.device_cursor->next;
    if (result.device_cursor != nullptr) result.entity_cursor = FirstEntity(*result.device_cursor);
  }
}

// SenderOf gives the address that a reply names for its device, if there is a whole one.
sockaddr_in* SenderOf(const device_header& device) {
  return device.data_len >= sizeof(sockaddr_in) ? static_cast<sockaddr_in*>(device.data) : nullptr;
}

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
  return Give(const_cast<char*>(row.domain),
              static_cast<std::uint32_t>(std::strlen(row.domain)) + 1, out_len);
}

// TakeNext hands out the next value of an attribute, each once.
void* TakeNext(const queue& attributes, std::int32_t attribute, std::uint32_t* out_len) {
  auto* node = static_cast<attribute_node*>(static_cast<void*>(attributes.head));
  for (; node != nullptr; node = node->next) {
    if (node->type != attribute || node->taken != 0) continue;
    node->taken = 1;
    *out_len = node->length;
    return node->value;
  }
  return nullptr;
}

}  // namespace

extern "C" {

ResultRow* voltaris_getNextRow(ResultSet* result) {
  Advance(*result);
  if (result->entity_cursor == nullptr) return nullptr;
  aggregated_value* device = result->device_cursor->key;
  shared_row = {device, SenderOf(device->device), result->entity_cursor->entity_index,
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

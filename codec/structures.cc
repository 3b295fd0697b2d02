// The exported calls of the structured values; records.h describes their layouts, boundary.h the
// calling conventions.
#include "vtapi/structures.h"

#include "codec/boundary.h"
#include "codec/records.h"

namespace {

using namespace vt::codec;  // NOLINT(google-build-using-namespace): a file of thin adapters

// CloneTo reports the outcome of CloneInto both ways.
template <class Wire, class T>
std::uint32_t CloneTo(const T* src, T* dst, std::uint32_t* status) {
  *status = ToWord(CloneInto<Wire>(src, dst));
  return *status;
}

template <class Wire, class T>
void ReleaseParts(T* value) {
  constexpr Heap kHeap;
  if (value != nullptr) Wire::Release(kHeap, *value);
}

}  // namespace

extern "C" {

std::uint32_t vt_pack_corvane_id(void* dst, const corvane_id* src) {
  return Pack<IdentityWire>(dst, src);
}
void vt_unpack_corvane_id(const void* src, corvane_id* dst, std::uint32_t* consumed,
                          std::int32_t* remaining, std::uint32_t* status) {
  UnpackInto<IdentityWire>(src, dst, consumed, remaining, status);
}
corvane_id* vt_unpack_corvane_id_ptr(const void* src, std::uint32_t* consumed,
                                     std::int32_t* remaining, std::uint32_t* status) {
  return UnpackNew<IdentityWire, corvane_id>(src, consumed, remaining, status);
}

std::uint32_t vt_pack_sender_id(void* dst, const sender_id* src) {
  return Pack<SenderIdWire>(dst, src);
}
sender_id* vt_unpack_sender_id_ptr(const void* src, std::uint32_t* consumed,
                                   std::int32_t* remaining, std::uint32_t* status) {
  return UnpackNew<SenderIdWire, sender_id>(src, consumed, remaining, status);
}
std::uint32_t vt_get_sender_id_size(const sender_id* src) { return SizeOf<SenderIdWire>(src); }
std::uint32_t vt_clone_sender_id(const sender_id* src, sender_id* dst, std::uint32_t* status) {
  return CloneTo<SenderIdWire>(src, dst, status);
}
sender_id* vt_clone_sender_id_ptr(const sender_id* src, std::uint32_t* status) {
  return CloneNew<SenderIdWire>(src, status);
}

std::uint32_t vt_pack_event_id(void* dst, const event_id* src) {
  return Pack<EventIdWire>(dst, src);
}
event_id* vt_unpack_event_id_ptr(const void* src, std::uint32_t* consumed, std::int32_t* remaining,
                                 std::uint32_t* status) {
  return UnpackNew<EventIdWire, event_id>(src, consumed, remaining, status);
}
std::uint32_t vt_get_event_id_size(const event_id* src) { return SizeOf<EventIdWire>(src); }
std::uint32_t vt_clone_event_id(const event_id* src, event_id* dst, std::uint32_t* status) {
  return CloneTo<EventIdWire>(src, dst, status);
}
event_id* vt_clone_event_id_ptr(const event_id* src, std::uint32_t* status) {
  return CloneNew<EventIdWire>(src, status);
}

std::uint32_t vt_pack_deviceheader(void* dst, const device_header* src) {
  return Pack<DeviceHeaderWire>(dst, src);
}
void vt_unpack_deviceheader(const void* src, device_header* dst, std::uint32_t* consumed,
                            std::int32_t* remaining, std::uint32_t* status) {
  UnpackInto<DeviceHeaderWire>(src, dst, consumed, remaining, status);
}
std::uint32_t vt_get_deviceheader_size(const device_header* src) {
  return SizeOf<DeviceHeaderWire>(src);
}
std::uint32_t vt_clone_deviceheader(const device_header* src, device_header* dst,
                                    std::uint32_t* status) {
  return CloneTo<DeviceHeaderWire>(src, dst, status);
}
void vt_free_deviceheader(device_header* header) { ReleaseParts<DeviceHeaderWire>(header); }

std::uint32_t vt_pack_alarm(void* dst, const alarm_value* src) { return Pack<AlarmWire>(dst, src); }
alarm_value* vt_unpack_alarm_ptr(const void* src, std::uint32_t* consumed, std::int32_t* remaining,
                                 std::uint32_t* status) {
  return UnpackNew<AlarmWire, alarm_value>(src, consumed, remaining, status);
}
std::uint32_t vt_get_alarm_size(const alarm_value* src) { return SizeOf<AlarmWire>(src); }
alarm_value* vt_clone_alarm_ptr(const alarm_value* src, std::uint32_t* status) {
  return CloneNew<AlarmWire>(src, status);
}

std::uint32_t vt_pack_recurrence(void* dst, const recurrence* src) {
  return Pack<RecurrenceWire>(dst, src);
}
recurrence* vt_unpack_recurrence_ptr(const void* src, std::uint32_t* consumed,
                                     std::int32_t* remaining, std::uint32_t* status) {
  return UnpackNew<RecurrenceWire, recurrence>(src, consumed, remaining, status);
}
std::uint32_t vt_get_recurrence_size(const recurrence* src) { return SizeOf<RecurrenceWire>(src); }
recurrence* vt_clone_recurrence_ptr(const recurrence* src, std::uint32_t* status) {
  return CloneNew<RecurrenceWire>(src, status);
}
void vt_free_recurrence_ptr(recurrence* value) { ReleaseNew<RecurrenceWire>(value); }

std::uint32_t vt_pack_neighbor(void* dst, const neighbor* src) {
  return Pack<NeighborWire>(dst, src);
}
neighbor* vt_unpack_neighbor_ptr(const void* src, std::uint32_t* consumed, std::int32_t* remaining,
                                 std::uint32_t* status) {
  return UnpackNew<NeighborWire, neighbor>(src, consumed, remaining, status);
}
std::uint32_t vt_get_neighbor_size(const neighbor* src) { return SizeOf<NeighborWire>(src); }
neighbor* vt_clone_neighbor_ptr(const neighbor* src, std::uint32_t* status) {
  return CloneNew<NeighborWire>(src, status);
}
void vt_free_neighbor_ptr(neighbor* value) { ReleaseNew<NeighborWire>(value); }

std::uint32_t vt_pack_usage_cmn_hdr(void* dst, const usage_cmn_hdr* src) {
  return Pack<UsageHeaderWire>(dst, src);
}
void vt_unpack_usage_cmn_hdr(const void* src, usage_cmn_hdr* dst, std::uint32_t* consumed,
                             std::int32_t* remaining, std::uint32_t* status) {
  UnpackInto<UsageHeaderWire>(src, dst, consumed, remaining, status);
}
std::uint32_t vt_get_usage_cmn_hdr_size(const usage_cmn_hdr* src) {
  return SizeOf<UsageHeaderWire>(src);
}
std::uint32_t vt_clone_usage_cmn_hdr(const usage_cmn_hdr* src, usage_cmn_hdr* dst,
                                     std::uint32_t* status) {
  return CloneTo<UsageHeaderWire>(src, dst, status);
}
void vt_free_usage_cmn_hdr(usage_cmn_hdr* header) { ReleaseParts<UsageHeaderWire>(header); }

std::uint32_t vt_pack_delta_vector(void* dst, const delta_vector* src) {
  return Pack<DeltaVectorWire>(dst, src);
}
void vt_unpack_delta_vector(const void* src, delta_vector* dst, std::uint32_t* consumed,
                            std::int32_t* remaining, std::uint32_t* status) {
  UnpackInto<DeltaVectorWire>(src, dst, consumed, remaining, status);
}
delta_vector* vt_unpack_delta_vector_ptr(const void* src, std::uint32_t* consumed,
                                         std::int32_t* remaining, std::uint32_t* status) {
  return UnpackNew<DeltaVectorWire, delta_vector>(src, consumed, remaining, status);
}

std::uint32_t vt_pack_usage_vector(void* dst, const usage_vector* src) {
  return Pack<UsageVectorWire>(dst, src);
}
void vt_unpack_usage_vector(const void* src, usage_vector* dst, std::uint32_t* consumed,
                            std::int32_t* remaining, std::uint32_t* status) {
  UnpackInto<UsageVectorWire>(src, dst, consumed, remaining, status);
}
usage_vector* vt_unpack_usage_vector_ptr(const void* src, std::uint32_t* consumed,
                                         std::int32_t* remaining, std::uint32_t* status) {
  return UnpackNew<UsageVectorWire, usage_vector>(src, consumed, remaining, status);
}

}  // extern "C"

// The wire layout of every structured value, field by field.
#ifndef VT_CODEC_RECORDS_H
#define VT_CODEC_RECORDS_H

#include "codec/record.h"

namespace vt::codec {

// IdentityWire makes a record of the bare identity, so that it is handled like the others.
struct IdentityWire : Identity {
  using Host = corvane_id;
};

using SenderIdWire = Record<sender_id, Field<&sender_id::id, Identity>,
                            Field<&sender_id::number, Integer<std::uint32_t>>>;

using EventIdWire = Record<event_id, Field<&event_id::number, Integer<std::uint32_t>>,
                           Field<&event_id::id, Identity>>;

using DeviceHeaderWire = Record<device_header, Field<&device_header::id, Identity>,
                                BlockField<&device_header::data_len, &device_header::data>>;

using AlarmWire = Record<alarm_value, Field<&alarm_value::word, Integer<std::uint32_t>>,
                         Field<&alarm_value::byte1, Integer<std::uint8_t>>,
                         Field<&alarm_value::byte2, Integer<std::uint8_t>>,
                         Field<&alarm_value::value1, Integer<std::int32_t>>,
                         Field<&alarm_value::value2, Integer<std::int32_t>>>;

using RecurrenceWire =
    Record<recurrence, Field<&recurrence::text, CountedText>,
           Field<&recurrence::byte1, Integer<std::uint8_t>>,
           Field<&recurrence::byte2, Integer<std::uint8_t>>, Field<&recurrence::flag, Boolean>>;

using NeighborWire =
    Record<neighbor, Field<&neighbor::id, Identity>, Field<&neighbor::label, CountedText>,
           BlockField<&neighbor::data_len, &neighbor::data>, Field<&neighbor::flag, Boolean>>;

using UsageHeaderWire = Record<
    usage_cmn_hdr, Field<&usage_cmn_hdr::word, Integer<std::uint32_t>>,
    Field<&usage_cmn_hdr::value, Integer<std::int32_t>>, Field<&usage_cmn_hdr::text1, CountedText>,
    Field<&usage_cmn_hdr::text2, CountedText>, Field<&usage_cmn_hdr::small, Integer<std::int8_t>>,
    Field<&usage_cmn_hdr::byte1, Integer<std::uint8_t>>,
    Field<&usage_cmn_hdr::byte2, Integer<std::uint8_t>>, Field<&usage_cmn_hdr::text3, CountedText>>;

using DeltaVectorWire =
    Record<delta_vector, Field<&delta_vector::values, IntegerArray<std::int32_t, 11>>>;

using UsageVectorWire =
    Record<usage_vector, Field<&usage_vector::values, IntegerArray<std::uint16_t, 11>>>;

}  // namespace vt::codec

#endif  // VT_CODEC_RECORDS_H

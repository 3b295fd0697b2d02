// The outcome of a codec operation, with the numbers that the C boundary reports.
#ifndef VT_CODEC_STATUS_H
#define VT_CODEC_STATUS_H

#include <cstdint>

#include "vtapi/scalars.h"

namespace vt::codec {

enum class [[nodiscard]] Status : std::uint32_t{
    kOk = VT_CODEC_OK,
    kNoMemory = VT_CODEC_NO_MEMORY,
    kNullSource = VT_CODEC_NULL_SOURCE,
    kShortInput = VT_CODEC_SHORT_INPUT,
};

constexpr std::uint32_t ToWord(Status status) { return static_cast<std::uint32_t>(status); }

}  // namespace vt::codec

#endif  // VT_CODEC_STATUS_H

// What the tests of messages share: Events with an owner, keyed contexts, and the check of an
// assertion that ends the process.
#ifndef VT_TESTS_PROTOCOL_EVENTS_H_
#define VT_TESTS_PROTOCOL_EVENTS_H_

#include <gtest/gtest.h>

#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "vtapi.h"

#include "tests/harness/guard.h"
#include "tests/harness/hex.h"

namespace vt::testing {

struct EventCleaner {
  void operator()(Event* ev) const { cv_cleanup_event(ev); }
};
using EventPtr = std::unique_ptr<Event, EventCleaner>;

struct TlvCleaner {
  void operator()(Tlv* tlv) const { vt_free_tlv_ptr(tlv); }
};
using TlvPtr = std::unique_ptr<Tlv, TlvCleaner>;

inline EventPtr NewEvent() { return EventPtr(corvane_create_my_packet()); }

// Wrap hands the image to the library in a block of its exact size.
inline EventPtr Wrap(const Bytes& image) {
  const HeapBytes block(image);
  return EventPtr(cv_mkevent_from_rawbuffer(static_cast<std::int32_t>(block.size()), block.data()));
}

inline hmac_context KeyedContext(std::string_view key) {
  hmac_context context;
  std::memset(&context, 0, sizeof context);
  hmac_shainit(&context, key.data(), static_cast<std::uint32_t>(key.size()));
  return context;
}

// AddText appends a text as the library counts it: header, characters, terminator.
inline int AddText(Event* ev, std::uint32_t type, std::string_view text,
                   std::uint32_t qualifier = 0) {
  const std::string copy(text);
  return cv_add_tlv_common(ev, type, static_cast<std::uint32_t>(12 + copy.size() + 1), copy.c_str(),
                           qualifier);
}

inline device_header Device(char fill) {
  device_header device;
  std::memset(&device, 0, sizeof device);
  std::memset(device.id.bytes, fill, sizeof device.id.bytes);
  return device;
}

// TlvArea is what follows the 80 bytes of headers in a wire image.
inline Bytes TlvArea(const Event& ev) {
  return ev.raw == nullptr || ev.raw_len < 80 ? Bytes() : Bytes(ev.raw + 80, ev.raw + ev.raw_len);
}

__attribute__((format(printf, 1, 2))) inline std::string Printf(const char* format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return text;
}

}  // namespace vt::testing

// EXPECT_ASSERTION runs the statement in a child process and expects it to end there through an
// assertion of the unit "corvane_util" with that function and text. The text is a regular
// expression, as GoogleTest takes it.
#define EXPECT_ASSERTION(statement, function, text)          \
  EXPECT_EXIT(statement, ::testing::KilledBySignal(SIGABRT), \
              "corvane_util:[0-9]+: " function ": Assertion `" text "' failed")

#endif  // VT_TESTS_PROTOCOL_EVENTS_H_

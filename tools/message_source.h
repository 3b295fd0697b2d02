// The messages of an input, whatever form that has: a capture of many connections, or the bytes of
// one stream.
#ifndef VT_TOOLS_MESSAGE_SOURCE_H_
#define VT_TOOLS_MESSAGE_SOURCE_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "tools/byte_reader.h"
#include "tools/tcp_segment.h"

namespace vt::tools {

// Passage is where and when a message went by; nothing is known of it outside of captures.
struct Passage {
  std::optional<Flow> flow;
  std::uint64_t nanoseconds = 0;  // since 1970, when its last byte was captured; 0 when unknown
};

// MessageSink gets the messages in the order in which they were complete, and besides what people
// should know, such as bytes that are missing.
struct MessageSink {
  std::function<void(ByteView message, const Passage& passage)> take;
  std::function<void(const std::string& note)> note;
};

// ReadCapturedMessages takes a capture apart. With a port, connections that have it on neither side
// are passed over, which a note tells when nothing else was there.
void ReadCapturedMessages(ByteView capture, std::optional<std::uint16_t> port,
                          const MessageSink& sink);

// ReadStreamMessages takes the bytes of one stream apart.
void ReadStreamMessages(ByteView stream, const MessageSink& sink);

}  // namespace vt::tools

#endif  // VT_TOOLS_MESSAGE_SOURCE_H_

// Captures of network traffic, classic (pcap) and new (pcapng), in either byte order: the packets
// one after the other. What the packets hold is the affair of tcp_segment.h.
#ifndef VT_TOOLS_CAPTURE_FILE_H_
#define VT_TOOLS_CAPTURE_FILE_H_

#include <cstdint>
#include <functional>
#include <string>

#include "tools/byte_reader.h"

namespace vt::tools {

// CapturedPacket refers to the bytes of the capture.
struct CapturedPacket {
  std::uint32_t link_type = 0;    // as the registry of link types numbers them
  std::uint64_t nanoseconds = 0;  // since 1970
  ByteView bytes;
};

// IsCapture tells whether the bytes begin as a capture does.
bool IsCapture(ByteView file);

// ReadCapture calls take for each packet, in the order of the file. It returns what is wrong with
// the file, or an empty text; packets before the fault have been taken then.
std::string ReadCapture(ByteView file, const std::function<void(const CapturedPacket&)>& take);

}  // namespace vt::tools

#endif  // VT_TOOLS_CAPTURE_FILE_H_

// The bytes of one direction of a connection in their order, out of segments that came late, twice
// or overlapping.
#ifndef VT_TOOLS_STREAM_ASSEMBLY_H_
#define VT_TOOLS_STREAM_ASSEMBLY_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "tools/byte_reader.h"

namespace vt::tools {

// StreamAssembly keeps bytes that came early until what is before them is there, but no more than
// kMostKept: then the bytes in between count as lost.
class StreamAssembly {
 public:
  static constexpr std::size_t kMostKept = std::size_t{1} << 20;

  // take gets the bytes in order; lost gets the number of bytes that are missing where it is
  // called.
  struct Sink {
    std::function<void(ByteView)> take;
    std::function<void(std::uint64_t)> lost;
  };

  explicit StreamAssembly(Sink sink) : sink_(std::move(sink)) {}

  // Open sets the number of the first byte. Without it, the first segment that is added has it.
  void Open(std::uint32_t first);
  bool is_open() const { return is_open_; }
  // first is the number that Open was given, or that the first segment had.
  std::uint32_t first() const { return first_; }

  // Add takes a segment; what was taken before, or lies more than 2^31 behind, is left out.
  void Add(std::uint32_t sequence, ByteView payload);

  // Finish hands out what is still kept, with what is missing in between.
  void Finish();

 private:
  void Deliver(ByteView bytes);
  void Keep(std::uint64_t at, ByteView bytes);
  void DeliverKept();
  void SkipToKept();

  Sink sink_;
  bool is_open_ = false;
  std::uint32_t first_ = 0;
  std::uint64_t next_ = 0;  // bytes from the first on that were delivered or lost
  std::map<std::uint64_t, std::vector<std::uint8_t>> kept_;
  std::size_t kept_size_ = 0;
};

}  // namespace vt::tools

#endif  // VT_TOOLS_STREAM_ASSEMBLY_H_

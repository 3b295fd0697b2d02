// A stream of bytes cut into messages, by the lengths that their headers tell.
#ifndef VT_TOOLS_MESSAGE_CUTTER_H_
#define VT_TOOLS_MESSAGE_CUTTER_H_

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tools/byte_reader.h"

namespace vt::tools {

// MessageCutter keeps at most one message. Bytes that cannot begin one end the reading of a stream,
// for where the next message begins cannot be known; the reading goes on behind a gap.
class MessageCutter {
 public:
  // take gets each whole message, note what people should know besides.
  struct Sink {
    std::function<void(ByteView)> take;
    std::function<void(const std::string&)> note;
  };

  explicit MessageCutter(Sink sink) : sink_(std::move(sink)) {}

  void Add(ByteView bytes);
  // Gap tells that bytes are missing here: a message that was begun is lost with them.
  void Gap(std::uint64_t missing);
  // Finish tells of what is left over.
  void Finish();

 private:
  void TellSkipped();

  Sink sink_;
  std::vector<std::uint8_t> begun_;
  bool lost_track_ = false;
  std::uint64_t skipped_ = 0;
};

}  // namespace vt::tools

#endif  // VT_TOOLS_MESSAGE_CUTTER_H_

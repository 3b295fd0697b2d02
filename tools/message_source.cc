#include "tools/message_source.h"

#include <map>
#include <memory>
#include <utility>

#include "tools/capture_file.h"
#include "tools/message_cutter.h"
#include "tools/stream_assembly.h"

namespace vt::tools {
namespace {

// Captures of scans have a connection for every packet.
constexpr std::size_t kMostStreams = 16384;

// CapturedStream is one direction of a connection, from its bytes to its messages.
class CapturedStream {
 public:
  CapturedStream(const Flow& flow, const MessageSink& sink)
      : passage_{flow, 0},
        cutter_({[this, &sink](ByteView message) { sink.take(message, passage_); },
                 [this, &sink](const std::string& note) {
                   sink.note(passage_.flow->from.text() + " > " + passage_.flow->to.text() + ": " +
                             note);
                 }}),
        assembly_({[this](ByteView bytes) { cutter_.Add(bytes); },
                   [this](std::uint64_t missing) { cutter_.Gap(missing); }}) {}
  ~CapturedStream() = default;
  CapturedStream(const CapturedStream&) = delete;
  CapturedStream& operator=(const CapturedStream&) = delete;

  // IsAnother tells whether a segment opens another connection between the same sides.
  bool IsAnother(const TcpSegment& segment) const {
    return segment.opens && assembly_.is_open() && assembly_.first() != segment.sequence + 1;
  }

  void Add(const TcpSegment& segment) {
    passage_.nanoseconds = segment.nanoseconds;
    // The opening takes a number of its own.
    if (segment.opens && !assembly_.is_open()) assembly_.Open(segment.sequence + 1);
    assembly_.Add(segment.sequence + (segment.opens ? 1 : 0), segment.payload);
  }

  void Finish() {
    assembly_.Finish();
    cutter_.Finish();
  }

 private:
  Passage passage_;
  MessageCutter cutter_;
  StreamAssembly assembly_;
};

class CaptureMessages {
 public:
  CaptureMessages(std::optional<std::uint16_t> port, const MessageSink& sink)
      : port_(port), sink_(sink) {}

  void Take(const CapturedPacket& packet) {
    TcpSegment segment;
    const PacketContent content = ReadSegment(packet, segment);
    ++counts_[content];
    if (content != PacketContent::kSegment) return;
    const Flow& flow = segment.flow;
    if (port_ && flow.from.port != *port_ && flow.to.port != *port_) {
      ++passed_over_;
      return;
    }
    Add(segment);
  }

  void Finish() {
    for (const auto& [flow, stream] : streams_) stream->Finish();
    Tell(counts_[PacketContent::kFragment], "of fragments");
    Tell(counts_[PacketContent::kBroken], "unlike what their headers say");
    Tell(counts_[PacketContent::kUnknownLink], "of a link that is not known here");
    Tell(too_many_, "of more connections than are followed");
    if (streams_.empty()) Tell(passed_over_, "of other ports");
  }

 private:
  void Add(const TcpSegment& segment) {
    auto found = streams_.find(segment.flow);
    if (found != streams_.end() && found->second->IsAnother(segment)) {
      found->second->Finish();
      streams_.erase(found);
      found = streams_.end();
    }
    if (found == streams_.end()) {
      if (segment.payload.empty() && !segment.opens) return;
      if (streams_.size() >= kMostStreams) {
        ++too_many_;
        return;
      }
      found = streams_.emplace(segment.flow, std::make_unique<CapturedStream>(segment.flow, sink_))
                  .first;
    }
    found->second->Add(segment);
  }

  void Tell(std::size_t count, const std::string& of_which) const {
    if (count == 0) return;
    sink_.note("passed over " + std::to_string(count) + (count == 1 ? " packet " : " packets ") +
               of_which);
  }

  std::optional<std::uint16_t> port_;
  const MessageSink& sink_;
  std::map<Flow, std::unique_ptr<CapturedStream>> streams_;
  std::map<PacketContent, std::size_t> counts_;
  std::size_t passed_over_ = 0;
  std::size_t too_many_ = 0;
};

}  // namespace

void ReadCapturedMessages(ByteView capture, std::optional<std::uint16_t> port,
                          const MessageSink& sink) {
  CaptureMessages messages(port, sink);
  const std::string fault =
      ReadCapture(capture, [&messages](const CapturedPacket& packet) { messages.Take(packet); });
  messages.Finish();
  if (!fault.empty()) sink.note(fault);
}

void ReadStreamMessages(ByteView stream, const MessageSink& sink) {
  MessageCutter cutter({[&sink](ByteView message) { sink.take(message, Passage()); }, sink.note});
  cutter.Add(stream);
  cutter.Finish();
}

}  // namespace vt::tools

// Messages that end too early, in blocks of exactly their size: to the decoder, to the collection
// and through the reader of the stream.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "vtapi.h"

#include "tests/harness/guard.h"
#include "tests/harness/note.h"
#include "tests/trust/trust_support.h"

namespace {

using namespace vt::testing;

EventPtr Wrap(const Bytes& wire) {
  const HeapBytes block(wire);
  return EventPtr(cv_mkevent_from_rawbuffer(static_cast<std::int32_t>(block.size()), block.data()));
}

// Resized gives a message whose size field fits its bytes, signed again.
Bytes Resized(Bytes wire) {
  const std::size_t area = wire.size() - kTlvAreaOffset;
  wire[kTlvBytesOffset] = static_cast<std::uint8_t>(area >> 8);
  wire[kTlvBytesOffset + 1] = static_cast<std::uint8_t>(area & 0xFF);
  return Sign(std::move(wire), SessionKey());
}

void NotePrefixes(std::size_t prefixes, const char* to) {
  Note() << prefixes << " prefixes to the " << to << "\n";
}

TEST(Truncation, NoPrefixOfAnyMessageIsDecoded) {
  const LogCapture quiet(kSilent);
  const hmac_context key = Keyed(SessionKey());
  std::size_t prefixes = 0;
  for (const Message& message : Corpus()) {
    SCOPED_TRACE(message.name);
    for (std::size_t size = 0; size < message.wire.size(); ++size) {
      ++prefixes;
      const EventPtr event = Wrap(Head(message.wire, size));
      ASSERT_EQ(event == nullptr, size < 60) << size;
      if (event == nullptr) continue;
      ASSERT_EQ(cv_unpack_event(event.get(), &key), 3) << size;
      ASSERT_EQ(event->state, 0x107u) << size;
      ASSERT_EQ(event->pak_valid, 0u) << size;
    }
    const EventPtr whole = Wrap(message.wire);
    EXPECT_EQ(cv_unpack_event(whole.get(), &key), 0);
  }
  NotePrefixes(prefixes, "decoder");
}

// The first 60 bytes of a message whose sender is all zeros look like two headers without a digest
// and without elements.
TEST(Truncation, APrefixThatLooksLikeHeadersAloneIsDecodedAndNotCollected) {
  const LogCapture quiet(kSilent);
  const hmac_context key = Keyed(SessionKey());
  PduImage image = RichReply();
  image.identity = Bytes(32, 0);
  const Bytes wire = SignedReply(image);
  Receiver receiver;
  const Bytes empty = receiver.Record();
  for (std::size_t size = 0; size < wire.size(); ++size) {
    const EventPtr event = Wrap(Head(wire, size));
    ASSERT_EQ(event == nullptr, size < 60) << size;
    if (event != nullptr) {
      ASSERT_EQ(cv_unpack_event(event.get(), &key), size == 60 ? 0 : 3) << size;
      ASSERT_EQ(event->tlvs, nullptr);
    }
    const HeapBytes block(Head(wire, size));
    vtn_processReply(block.data(), static_cast<std::int32_t>(size), receiver.result(), &key);
    ASSERT_EQ(receiver.Record(), empty) << size;
  }
}

TEST(Truncation, NoPrefixOfAnyMessageIsCollected) {
  const LogCapture quiet(kSilent);
  const hmac_context key = Keyed(SessionKey());
  Receiver receiver;
  const Bytes empty = receiver.Record();
  std::size_t prefixes = 0;
  for (const Message& message : Corpus()) {
    SCOPED_TRACE(message.name);
    for (std::size_t size = 0; size < message.wire.size(); ++size) {
      ++prefixes;
      const HeapBytes block(Head(message.wire, size));
      vtn_processReply(block.data(), static_cast<std::int32_t>(size), receiver.result(), &key);
      ASSERT_EQ(receiver.Record(), empty) << size;
    }
  }
  NotePrefixes(prefixes, "collection");
}

TEST(Truncation, AListThatEndsEarlyFailsTheMessageEvenWhenItIsSigned) {
  const LogCapture quiet(kSilent);
  const hmac_context key = Keyed(SessionKey());
  std::size_t prefixes = 0;
  for (const Message& message : Corpus()) {
    SCOPED_TRACE(message.name);
    for (std::size_t size = kTlvAreaOffset; size < message.wire.size(); ++size) {
      ++prefixes;
      const EventPtr event = Wrap(Resized(Head(message.wire, size)));
      ASSERT_EQ(cv_unpack_event(event.get(), &key), 1) << size;
      ASSERT_EQ(event->state, 0x107u) << size;
      ASSERT_EQ(event->tlvs, nullptr) << size;
    }
  }
  NotePrefixes(prefixes, "decoder, signed and with their size");
}

// With its own length cut as well, an element may be a shorter one of its type. It is decoded or
// refused, and what is decoded fits the bytes that came.
TEST(Truncation, ElementsCutWithTheirLengthEndInOrder) {
  const LogCapture quiet(kSilent);
  const hmac_context key = Keyed(SessionKey());
  std::size_t decoded = 0;
  std::size_t refused = 0;
  for (const TlvVector& vector : AllVectors()) {
    SCOPED_TRACE(vector.wire);
    const Bytes element = Hex(vector.wire);
    for (std::size_t size = 12; size < element.size(); ++size) {
      Bytes cut = Head(element, size);
      const Bytes length = U32(static_cast<std::uint32_t>(size));
      std::copy(length.begin(), length.end(), cut.begin() + 4);
      const Bytes wire = SignedReply(ReplyWith({cut}));
      const EventPtr event = Wrap(wire);
      const int status = cv_unpack_event(event.get(), &key);
      ASSERT_TRUE(status == 0 || status == 1) << size;
      ASSERT_EQ(event->state, status == 0 ? 0x101u : 0x107u) << size;
      // An element without a value is good for every type.
      if (size == 12) ASSERT_EQ(status, 0);
      Receiver receiver;
      receiver.Process(wire);
      ASSERT_EQ(receiver.result()->answers_received, status == 0 ? 1 : 0) << size;
      (void)receiver.Contents();
      if (status != 0) {
        ++refused;
        continue;
      }
      ++decoded;
      ASSERT_LE(vt_get_total_tlvs_data_size(event.get()), size);
    }
  }
  Note() << decoded << " decoded, " << refused << " refused\n";
  EXPECT_GT(decoded, 0u);
  EXPECT_GT(refused, 0u);
}

// Stream answers the reads of this thread from bytes, at most piece at a time, and then with the
// end of the stream.
class Stream {
 public:
  Stream(const Bytes& bytes, std::size_t end, std::size_t piece)
      : hook_([&bytes, end, piece, this](int, void* data, std::size_t len, int, sockaddr*,
                                         socklen_t*) {
          const std::size_t n = std::min({len, piece, end - position_});
          if (n > 0) std::memcpy(data, bytes.data() + position_, n);
          position_ += n;
          return static_cast<ssize_t>(n);
        }) {}

  std::size_t position() const { return position_; }

 private:
  std::size_t position_ = 0;
  RecvfromHook hook_;
};

TEST(Truncation, AStreamThatEndsInsideAnyMessageReadsAsItsEnd) {
  const LogCapture quiet(kSilent);
  std::size_t prefixes = 0;
  for (const Message& message : Corpus()) {
    SCOPED_TRACE(message.name);
    const auto whole = static_cast<std::int32_t>(message.wire.size());
    HeapBytes buffer(Bytes(message.wire.size(), 0));
    for (const std::size_t piece : {std::size_t{1}, std::size_t{13}, std::size_t{1400}}) {
      if (piece == 1 && whole > 400) continue;  // a million reads would tell nothing more
      for (std::int32_t size = 0; size <= whole; ++size) {
        ++prefixes;
        const auto end = static_cast<std::size_t>(size);
        const Stream stream(message.wire, end, piece);
        ASSERT_EQ(vtn_read_tcp_message(0, buffer.data(), whole, nullptr), size < whole ? 0 : whole)
            << size;
        ASSERT_EQ(stream.position(), end);
      }
    }
  }
  NotePrefixes(prefixes, "reader, in pieces");
}

TEST(Truncation, ABufferThatIsTooSmallForAnyMessageIsFilledAndNotOverrun) {
  const LogCapture quiet(kSilent);
  std::size_t prefixes = 0;
  for (const Message& message : Corpus()) {
    SCOPED_TRACE(message.name);
    for (std::size_t size = 0; size < message.wire.size(); ++size) {
      ++prefixes;
      HeapBytes buffer(Bytes(size, 0));
      const Stream stream(message.wire, message.wire.size(), 1400);
      ASSERT_EQ(vtn_read_tcp_message(0, buffer.data(), static_cast<std::int32_t>(size), nullptr),
                static_cast<int>(size));
      ASSERT_EQ(stream.position(), size);
      ASSERT_TRUE(SameBytes(Head(message.wire, size), buffer.data(), size));
    }
  }
  NotePrefixes(prefixes, "reader, as all that its buffer has room for");
}

// SendAndClose sends bytes into a new stream socket, closes that end and returns the other. It is a
// local socket, for over TCP the ports would run out.
int SendAndClose(const Bytes& bytes) {
  const HookPause pause;
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) throw std::runtime_error("socketpair");
  const ssize_t sent = send(ends[0], bytes.data(), bytes.size(), 0);
  close(ends[0]);
  if (sent != static_cast<ssize_t>(bytes.size())) throw std::runtime_error("send");
  return ends[1];
}

TEST(Truncation, EveryPrefixOfEveryMessageReadsAsTheEndFromARealSocket) {
  const LogCapture quiet(kSilent);
  std::size_t prefixes = 0;
  for (const Message& message : Corpus()) {
    SCOPED_TRACE(message.name);
    const auto whole = static_cast<std::int32_t>(message.wire.size());
    for (std::size_t size = 0; size <= message.wire.size(); ++size) {
      ++prefixes;
      HeapBytes buffer(Bytes(message.wire.size(), 0));
      const Bytes head = Head(message.wire, size);
      const int fd = SendAndClose(head);
      const int got = vtn_read_tcp_message(fd, buffer.data(), whole, nullptr);
      close(fd);
      ASSERT_EQ(got, size < message.wire.size() ? 0 : whole) << size;
      ASSERT_TRUE(SameBytes(head, buffer.data(), size));
    }
  }
  NotePrefixes(prefixes, "reader, from a socket");
}

TEST(Truncation, APeerThatClosesInsideAMessageReadsAsTheEndOverARealConnection) {
  const LogCapture quiet(kSilent);
  const Bytes wire = SignedReply(RichReply());
  HeapBytes buffer(Bytes(wire.size(), 0));
  const auto whole = static_cast<std::int32_t>(wire.size());
  for (std::size_t size = 0; size <= wire.size(); ++size) {
    ConnectedPair pair;
    pair.far().Send(Head(wire, size));
    pair.far().Close();
    ASSERT_EQ(vtn_read_tcp_message(pair.near().fd(), buffer.data(), whole, nullptr),
              size < wire.size() ? 0 : whole)
        << size;
  }
  NotePrefixes(wire.size() + 1, "reader, over TCP");
}

}  // namespace

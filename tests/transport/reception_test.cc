#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "vtapi.h"

#include "tests/harness/faults.h"
#include "tests/harness/guard.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"
#include "tests/harness/pdu_image.h"
#include "tests/harness/peer.h"
#include "tests/support/log_settings.h"

namespace {

using namespace vt::testing;

// A message of so many bytes: 80 of headers, the rest payload that counts up.
Bytes Message(std::size_t size) {
  PduImage image;
  Bytes payload(size - 80);
  for (std::size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<std::uint8_t>(i);
  image.elements = {payload};
  return image.Unsigned();
}

LogLine Read(const std::string& message) { return {kTrace, "vtn_read_tcp_message: " + message}; }

const LogLine kTooLarge = {
    kDebug,
    "vtn_read_tcp_message: Incoming packet exceeds Voltaris max packet size, dropping packet"};

// Receive reads one message into a buffer that ends at an inaccessible page, as does what is
// returned: the result and the bytes of the buffer.
struct Received {
  int result = 0;
  Bytes buffer;
};
Received Receive(int fd, std::int32_t size = 1400) {
  GuardedBytes buffer(Bytes(static_cast<std::size_t>(size), 0xEE));
  const int result = vtn_read_tcp_message(fd, buffer.data(), size, nullptr);
  return {result, Bytes(buffer.data(), buffer.data() + size)};
}

Bytes Head(const Bytes& bytes, std::size_t size) {
  return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
}

// StreamOf is a hook that answers reads from bytes, then with end of stream.
class StreamOf {
 public:
  explicit StreamOf(Bytes bytes)
      : bytes_(std::move(bytes)),
        hook_([this](int, void* data, std::size_t len, int, sockaddr*, socklen_t*) {
          const std::size_t n = std::min(len, bytes_.size() - position_);
          if (n > 0) std::memcpy(data, bytes_.data() + position_, n);
          position_ += n;
          return static_cast<ssize_t>(n);
        }) {}

  std::size_t position() const { return position_; }

 private:
  Bytes bytes_;
  std::size_t position_ = 0;
  RecvfromHook hook_;
};

TEST(ReadTcpMessage, WholeMessageIsReadInThreePhases) {
  ConnectedPair pair;
  const Bytes message = Message(123);
  pair.far().Send(message);
  LogCapture log(kTrace);
  const Received received = Receive(pair.near().fd());
  EXPECT_EQ(123, received.result);
  // The buffer keeps network order, and nothing is written behind the message.
  EXPECT_TRUE(SameBytes(message + Bytes(1277, 0xEE), received.buffer));
  EXPECT_EQ((std::vector<LogLine>{
                Read("Read 12 bytes for hdr of mgmt port"),
                Read("Read 68 bytes for header of mgmt port"), Read("Read 80 bytes total mgmt"),
                Read("Read 43 bytes for payload of mgmt port"), Read("Read 123 bytes total mgmt")}),
            log.lines());
}

TEST(ReadTcpMessage, EveryReadWaitsForAllItAsksFor) {
  ConnectedPair pair;
  pair.far().Send(Message(100));
  std::vector<std::size_t> asked;
  const RecvfromHook hook(
      [&](int, void*, std::size_t len, int flags, sockaddr*, socklen_t*) -> std::optional<ssize_t> {
        EXPECT_EQ(MSG_WAITALL, flags);
        asked.push_back(len);
        return std::nullopt;
      });
  EXPECT_EQ(100, Receive(pair.near().fd()).result);
  EXPECT_EQ((std::vector<std::size_t>{12, 68, 20}), asked);
}

TEST(ReadTcpMessage, EmptyPayloadEndsTheReadRightAfterTheHeaders) {
  ConnectedPair pair;
  pair.far().Send(Message(80));
  LogCapture log(kTrace);
  EXPECT_EQ(80, Receive(pair.near().fd()).result);
  EXPECT_EQ((std::vector<LogLine>{Read("Read 12 bytes for hdr of mgmt port"),
                                  Read("Read 68 bytes for header of mgmt port"),
                                  Read("Read 80 bytes total mgmt")}),
            log.lines());
}

TEST(ReadTcpMessage, HeaderLengthOf18IsReadAs20) {
  for (const std::uint16_t digest_len : std::initializer_list<std::uint16_t>{17, 18, 19, 20}) {
    ConnectedPair pair;
    PduImage image;
    image.digest_len = digest_len;
    image.elements = {Text("payload")};
    const Bytes message = image.Unsigned();
    pair.far().Send(message + Message(100));
    const Received received = Receive(pair.near().fd());
    EXPECT_EQ(87, received.result) << digest_len;
    EXPECT_TRUE(SameBytes(message, Head(received.buffer, 87)));
    EXPECT_EQ(100, Receive(pair.near().fd()).result) << digest_len;
  }
}

TEST(ReadTcpMessage, SecondHeaderFollowsAVariablePartOfAnyLength) {
  // Length 0 and 64: the payload length stands 44 bytes behind the variable part.
  const Bytes none = Hex("10*00 0000 | 44*00 0003 0001 | 61 62 63");
  const Bytes long_one = Hex("10*00 0040 | 64*dd | 44*00 0002 0001 | 61 62");
  ConnectedPair pair;
  pair.far().Send(none + long_one);
  Received received = Receive(pair.near().fd());
  EXPECT_EQ(63, received.result);
  EXPECT_TRUE(SameBytes(none, Head(received.buffer, 63)));
  received = Receive(pair.near().fd());
  EXPECT_EQ(126, received.result);
  EXPECT_TRUE(SameBytes(long_one, Head(received.buffer, 126)));
}

TEST(ReadTcpMessage, FragmentsAreGatheredToOneMessage) {
  ConnectedPair pair;
  const Bytes message = Message(300);
  pair.far().SendInPieces(message, 1);
  const Received received = Receive(pair.near().fd());
  EXPECT_EQ(300, received.result);
  EXPECT_TRUE(SameBytes(message, Head(received.buffer, 300)));
}

TEST(ReadTcpMessage, PartialReadsGoOnWithWhatIsMissing) {
  ConnectedPair pair;
  const Bytes message = Message(120);
  pair.far().Send(message);
  // As an interrupted read would, each one brings at most 30 bytes, the first one 5.
  std::vector<std::size_t> asked;
  const RecvfromHook hook([&](int fd, void* data, std::size_t len, int flags, sockaddr* from,
                              socklen_t* from_len) -> std::optional<ssize_t> {
    const std::size_t most = asked.empty() ? 5 : 30;
    asked.push_back(len);
    return recvfrom(fd, data, std::min(len, most), flags, from, from_len);
  });
  LogCapture log(kTrace);
  const Received received = Receive(pair.near().fd());
  EXPECT_EQ(120, received.result);
  EXPECT_TRUE(SameBytes(message, Head(received.buffer, 120)));
  EXPECT_EQ((std::vector<std::size_t>{12, 7, 68, 38, 8, 40, 10}), asked);
  EXPECT_EQ(
      (std::vector<LogLine>{
          Read("Read 5 bytes for hdr of mgmt port"), Read("Read 7 bytes for hdr of mgmt port"),
          Read("Read 30 bytes for header of mgmt port"), Read("Read 42 bytes total mgmt"),
          Read("Read 30 bytes for header of mgmt port"), Read("Read 72 bytes total mgmt"),
          Read("Read 8 bytes for header of mgmt port"), Read("Read 80 bytes total mgmt"),
          Read("Read 30 bytes for payload of mgmt port"), Read("Read 110 bytes total mgmt"),
          Read("Read 10 bytes for payload of mgmt port"), Read("Read 120 bytes total mgmt")}),
      log.lines());
}

TEST(ReadTcpMessage, SecondMessageOfOneWriteIsLeftForTheNextRead) {
  ConnectedPair pair;
  pair.far().Send(Message(90) + Message(200) + Message(80));
  EXPECT_EQ(90, Receive(pair.near().fd()).result);
  EXPECT_EQ(200, Receive(pair.near().fd()).result);
  EXPECT_EQ(80, Receive(pair.near().fd()).result);
}

TEST(ReadTcpMessage, BufferMayStandAtAnOddAddress) {
  ConnectedPair pair;
  const Bytes message = Message(101);
  pair.far().Send(message);
  GuardedBytes buffer = GuardedBytes::AtOddAddress(Bytes(1400));
  EXPECT_EQ(101, vtn_read_tcp_message(pair.near().fd(), buffer.data(), 1400, nullptr));
  EXPECT_TRUE(SameBytes(message, buffer.data(), 101));
}

TEST(ReadTcpMessage, SenderRecordIsNeverFilled) {
  ConnectedPair pair;
  pair.far().Send(Message(100));
  sockaddr_in sender;
  std::memset(&sender, 0xA5, sizeof sender);
  const Bytes before(sizeof sender, 0xA5);
  std::uint8_t buffer[1400];
  EXPECT_EQ(100, vtn_read_tcp_message(pair.near().fd(), buffer, sizeof buffer, &sender));
  EXPECT_TRUE(SameBytes(before, &sender, sizeof sender));
}

TEST(ReadTcpMessage, MessageOf1400BytesIsAccepted) {
  ConnectedPair pair;
  const Bytes message = Message(1400);
  pair.far().Send(message);
  LogCapture log(kDebug);
  const Received received = Receive(pair.near().fd());
  EXPECT_EQ(1400, received.result);
  EXPECT_TRUE(SameBytes(message, received.buffer));
  EXPECT_TRUE(log.lines().empty());
}

TEST(ReadTcpMessage, MessageOf1401BytesIsRefusedAfterItsHeaders) {
  ConnectedPair pair;
  pair.far().Send(Message(1401));
  LogCapture log(kTrace);
  EXPECT_EQ(-1, Receive(pair.near().fd()).result);
  EXPECT_EQ((std::vector<LogLine>{Read("Read 12 bytes for hdr of mgmt port"),
                                  Read("Read 68 bytes for header of mgmt port"),
                                  Read("Read 80 bytes total mgmt"), kTooLarge}),
            log.lines());
  // The rest is not drained.
  EXPECT_EQ(1321u, pair.near().ReadExactly(1321).size());
}

TEST(ReadTcpMessage, MessageOf1401BytesIsRefusedOnASilencedLogToo) {
  const StreamOf stream(Message(1401));
  const LogCapture log(kSilent);
  EXPECT_EQ(-1, Receive(7).result);
  EXPECT_EQ(80u, stream.position());
  EXPECT_TRUE(log.lines().empty());
}

TEST(ReadTcpMessage, LargestPayloadLengthIsRefused) {
  PduImage image;
  image.tlv_bytes = 0xFFFF;
  ConnectedPair pair;
  pair.far().Send(image.Unsigned());
  LogCapture log(kDebug);
  EXPECT_EQ(-1, Receive(pair.near().fd()).result);
  EXPECT_EQ(std::vector<LogLine>{kTooLarge}, log.lines());
}

TEST(ReadTcpMessage, VariablePartThatJustFitsIsAccepted) {
  // 1340 + 60 bytes of headers, no payload: 1337 to 1340 round to the same.
  for (const std::uint16_t length : std::initializer_list<std::uint16_t>{1337, 1340}) {
    const Bytes message = Hex("10*00") + U16(length) + Hex("1340*dd | 48*00");
    StreamOf stream(message);
    const Received received = Receive(0);
    EXPECT_EQ(1400, received.result) << length;
    EXPECT_TRUE(SameBytes(message, received.buffer));
  }
}

TEST(ReadTcpMessage, VariablePartThatExceedsTheLimitIsRefusedAfterTheFirstHeader) {
  LogCapture log(kTrace);
  GuardedBytes buffer(Bytes(1400, 0xEE));
  for (std::uint32_t length = 1341; length <= 65535; ++length) {
    // The stream goes on, so that a read that goes on as well runs into the page behind the buffer.
    const StreamOf stream(Hex("10*00") + U16(static_cast<std::uint16_t>(length)) + Bytes(2000));
    ASSERT_EQ(-1, vtn_read_tcp_message(0, buffer.data(), 1400, nullptr)) << length;
    ASSERT_EQ(12u, stream.position()) << length;
    ASSERT_EQ((std::vector<LogLine>{Read("Read 12 bytes for hdr of mgmt port"), kTooLarge}),
              log.Take())
        << length;
  }
}

struct Framed {
  int result;
  std::uint32_t length;

  bool operator==(const Framed&) const = default;
};

Framed FrameOf(const Bytes& bytes) {
  const GuardedBytes guarded(bytes);
  Framed framed = {7, 77};
  framed.result =
      vtn_frame_message(guarded.data(), static_cast<std::uint32_t>(bytes.size()), &framed.length);
  return framed;
}

TEST(FrameMessage, TellsHowManyBytesToHaveBeforeLookingAgain) {
  const Bytes message = Message(123);
  for (std::size_t size = 0; size <= message.size(); ++size) {
    const std::uint32_t needed = size < 12 ? 12 : size < 80 ? 80 : 123;
    EXPECT_EQ(FrameOf(Head(message, size)), (Framed{size == 123 ? 1 : 0, needed})) << size;
  }
}

TEST(FrameMessage, LeavesWhatFollowsAlone) {
  EXPECT_EQ(FrameOf(Message(123) + Bytes(50)), (Framed{1, 123}));
  EXPECT_EQ(FrameOf(Message(1400)), (Framed{1, 1400}));
}

TEST(FrameMessage, RefusesWhatIsTooLongAsSoonAsItsHeadersTell) {
  EXPECT_EQ(FrameOf(Head(Message(1401), 79)), (Framed{0, 80}));
  EXPECT_EQ(FrameOf(Head(Message(1401), 80)), (Framed{-1, 77}));
  EXPECT_EQ(FrameOf(Hex("10*00") + U16(1340)), (Framed{0, 1400}));
  EXPECT_EQ(FrameOf(Hex("10*00") + U16(1341)), (Framed{-1, 77}));
  EXPECT_EQ(FrameOf(Hex("10*00") + U16(65535)), (Framed{-1, 77}));
}

TEST(ReadTcpMessage, CloseBeforeAnyByteIsZero) {
  ConnectedPair pair;
  pair.far().Close();
  LogCapture log(kTrace);
  EXPECT_EQ(0, Receive(pair.near().fd()).result);
  EXPECT_EQ(std::vector<LogLine>{Read("Read 0 bytes for hdr of mgmt port")}, log.lines());
}

TEST(ReadTcpMessage, CloseAfterFiveHeaderBytesIsZero) {
  ConnectedPair pair;
  pair.far().Send(Head(Message(100), 5));
  pair.far().Close();
  LogCapture log(kTrace);
  EXPECT_EQ(0, Receive(pair.near().fd()).result);
  EXPECT_EQ((std::vector<LogLine>{Read("Read 5 bytes for hdr of mgmt port"),
                                  Read("Read 0 bytes for hdr of mgmt port")}),
            log.lines());
}

TEST(ReadTcpMessage, CloseAfterFortyBytesIsZero) {
  ConnectedPair pair;
  pair.far().Send(Head(Message(100), 40));
  pair.far().Close();
  LogCapture log(kTrace);
  EXPECT_EQ(0, Receive(pair.near().fd()).result);
  EXPECT_EQ((std::vector<LogLine>{
                Read("Read 12 bytes for hdr of mgmt port"),
                Read("Read 28 bytes for header of mgmt port"), Read("Read 40 bytes total mgmt"),
                Read("Read 0 bytes for header of mgmt port"), Read("Read 40 bytes total mgmt")}),
            log.lines());
}

TEST(ReadTcpMessage, CloseInsideThePayloadIsZero) {
  ConnectedPair pair;
  pair.far().Send(Head(Message(100), 90));
  pair.far().Close();
  LogCapture log(kTrace);
  EXPECT_EQ(0, Receive(pair.near().fd()).result);
  EXPECT_EQ((std::vector<LogLine>{
                Read("Read 12 bytes for hdr of mgmt port"),
                Read("Read 68 bytes for header of mgmt port"), Read("Read 80 bytes total mgmt"),
                Read("Read 10 bytes for payload of mgmt port"), Read("Read 90 bytes total mgmt"),
                Read("Read 0 bytes for payload of mgmt port"), Read("Read 90 bytes total mgmt")}),
            log.lines());
}

TEST(ReadTcpMessage, FailedReadInsideTheHeaderCountsAsMinusOneInTheTotal) {
  ConnectedPair pair;
  pair.far().Send(Message(100));
  std::size_t reads = 0;
  const RecvfromHook hook(
      [&](int, void*, std::size_t, int, sockaddr*, socklen_t*) -> std::optional<ssize_t> {
        if (++reads == 1) return std::nullopt;
        errno = ECONNRESET;
        return -1;
      });
  LogCapture log(kTrace);
  EXPECT_EQ(-1, Receive(pair.near().fd()).result);
  EXPECT_EQ((std::vector<LogLine>{Read("Read 12 bytes for hdr of mgmt port"),
                                  Read("Read -1 bytes for header of mgmt port"),
                                  Read("Read 11 bytes total mgmt")}),
            log.lines());
}

TEST(ReadTcpMessage, FailedReadInsideThePayloadCountsAsMinusOneInTheTotal) {
  ConnectedPair pair;
  pair.far().Send(Message(100));
  std::size_t reads = 0;
  const RecvfromHook hook(
      [&](int, void*, std::size_t, int, sockaddr*, socklen_t*) -> std::optional<ssize_t> {
        if (++reads < 3) return std::nullopt;
        errno = ECONNRESET;
        return -1;
      });
  LogCapture log(kTrace);
  EXPECT_EQ(-1, Receive(pair.near().fd()).result);
  const std::vector<LogLine> lines = log.lines();
  ASSERT_EQ(5u, lines.size());
  EXPECT_EQ(Read("Read -1 bytes for payload of mgmt port"), lines[3]);
  EXPECT_EQ(Read("Read 79 bytes total mgmt"), lines[4]);
}

TEST(ReadTcpMessage, ErrnoOfAFailedReadSurvivesTheLogLinesBehindIt) {
  ConnectedPair pair;
  pair.far().Send(Head(Message(100), 40));
  pair.far().Reset();
  const ErrnoSpoiler log(kTrace);
  std::uint8_t buffer[1400];
  errno = 0;
  EXPECT_EQ(-1, vtn_read_tcp_message(pair.near().fd(), buffer, sizeof buffer, nullptr));
  EXPECT_EQ(ECONNRESET, errno);
}

TEST(ReadTcpMessage, BadDescriptorIsTheResultOfRecvfrom) {
  LogCapture log(kTrace);
  std::uint8_t buffer[1400];
  errno = 0;
  EXPECT_EQ(-1, vtn_read_tcp_message(-1, buffer, sizeof buffer, nullptr));
  EXPECT_EQ(EBADF, errno);
  EXPECT_EQ(std::vector<LogLine>{Read("Read -1 bytes for hdr of mgmt port")}, log.lines());
}

TEST(ReadTcpMessage, InterruptedReadIsNotRetried) {
  const RecvfromHook hook([](int, void*, std::size_t, int, sockaddr*, socklen_t*) {
    errno = EINTR;
    return -1;
  });
  std::uint8_t buffer[1400];
  EXPECT_EQ(-1, vtn_read_tcp_message(0, buffer, sizeof buffer, nullptr));
  EXPECT_EQ(EINTR, errno);
  EXPECT_EQ(1u, hook.calls());
}

TEST(ReadTcpMessage, FullBufferEndsTheReadWithTheBytesInIt) {
  const Bytes message = Message(200);
  for (const std::int32_t size : {1, 5, 11, 12, 13, 40, 76, 79, 80, 81, 100, 199}) {
    StreamOf stream(message);
    const Received received = Receive(0, size);
    EXPECT_EQ(size, received.result);
    EXPECT_TRUE(SameBytes(Head(message, static_cast<std::size_t>(size)), received.buffer)) << size;
    EXPECT_EQ(static_cast<std::size_t>(size), stream.position());
  }
}

TEST(ReadTcpMessage, BufferOfExactlyTheMessageSuffices) {
  StreamOf stream(Message(200) + Message(200));
  EXPECT_EQ(200, Receive(0, 200).result);
  EXPECT_EQ(200u, stream.position());
}

TEST(ReadTcpMessage, EmptyBufferTakesNothing) {
  StreamOf stream(Message(100));
  EXPECT_EQ(0, Receive(0, 0).result);
  EXPECT_EQ(0u, stream.position());
  EXPECT_GE(0, vtn_read_tcp_message(0, nullptr, -1, nullptr));
  EXPECT_EQ(0u, stream.position());
}

// UDP

class UdpPair : public ::testing::Test {
 protected:
  UdpPair() : receiver_(socket(AF_INET, SOCK_DGRAM, 0)), sender_(socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    EXPECT_EQ(0, bind(receiver_, generic, size));
    EXPECT_EQ(0, getsockname(receiver_, generic, &size));
    EXPECT_EQ(0, connect(sender_, generic, size));
  }
  ~UdpPair() override {
    close(receiver_);
    close(sender_);
  }

  void Send(const std::string& text) {
    ASSERT_EQ(static_cast<ssize_t>(text.size()), send(sender_, text.data(), text.size(), 0));
  }

  int receiver_;
  int sender_;
};

TEST_F(UdpPair, DatagramIsReadWholeWithoutFraming) {
  Send("anything");
  LogCapture log(kTrace);
  GuardedBytes buffer(Bytes(100, 0xEE));
  EXPECT_EQ(8, vtn_read_udp_message(receiver_, buffer.data(), 100));
  EXPECT_TRUE(SameBytes(Text("anything") + Bytes(92, 0xEE), buffer.data(), 100));
  EXPECT_EQ((std::vector<LogLine>{{kTrace, "vtn_read_udp_message: read of 8 bytes"}}), log.lines());
}

TEST_F(UdpPair, DatagramIsCutToTheBuffer) {
  Send("anything");
  GuardedBytes buffer(Bytes(4, 0xEE));
  EXPECT_EQ(4, vtn_read_udp_message(receiver_, buffer.data(), 4));
  EXPECT_TRUE(SameBytes(Text("anyt"), buffer.data(), 4));
}

TEST_F(UdpPair, DatagramOfOneByteIsNoFailure) {
  Send("a");
  LogCapture log(kTrace);
  std::uint8_t buffer[4];
  EXPECT_EQ(1, vtn_read_udp_message(receiver_, buffer, sizeof buffer));
  EXPECT_EQ((std::vector<LogLine>{{kTrace, "vtn_read_udp_message: read of 1 bytes"}}), log.lines());
}

TEST_F(UdpPair, EmptyDatagramLogsAsAFailure) {
  Send("");
  LogCapture log(kTrace);
  std::uint8_t buffer[4];
  errno = 0;
  EXPECT_EQ(0, vtn_read_udp_message(receiver_, buffer, sizeof buffer));
  EXPECT_EQ(
      (std::vector<LogLine>{{kTrace, "vtn_read_udp_message: read failed with 0 bytes, errno 0"}}),
      log.lines());
}

TEST_F(UdpPair, ReadIsOneRecvfromWithoutFlags) {
  Send("abc");
  const RecvfromHook hook(
      [](int, void*, std::size_t len, int flags, sockaddr*, socklen_t*) -> std::optional<ssize_t> {
        EXPECT_EQ(0, flags);
        EXPECT_EQ(4u, len);
        return std::nullopt;
      });
  std::uint8_t buffer[4];
  EXPECT_EQ(3, vtn_read_udp_message(receiver_, buffer, sizeof buffer));
  EXPECT_EQ(1u, hook.calls());
}

TEST(ReadUdpMessage, FailureIsLoggedAndReturnedWithItsErrno) {
  const ErrnoSpoiler log(kTrace);
  std::uint8_t buffer[4];
  EXPECT_EQ(-1, vtn_read_udp_message(-1, buffer, sizeof buffer));
  EXPECT_EQ(EBADF, errno);
  EXPECT_EQ(
      (std::vector<LogLine>{{kTrace, "vtn_read_udp_message: read failed with -1 bytes, errno 9"}}),
      log.lines());
}

TEST(ReadUdpMessage, FailsTheSameOnASilencedLog) {
  const LogCapture log(kSilent);
  std::uint8_t buffer[4];
  EXPECT_EQ(-1, vtn_read_udp_message(-1, buffer, sizeof buffer));
  EXPECT_EQ(EBADF, errno);
  EXPECT_TRUE(log.lines().empty());
}

// The two waits

constexpr std::uint32_t kNobody = 0x0900007F;  // 127.0.0.9 as it is stored

timeval Seconds(long seconds, long micros = 0) {
  timeval result = {};
  result.tv_sec = seconds;
  result.tv_usec = micros;
  return result;
}

LogLine Connect(const std::string& message) { return {kDebug, "waitfor_tcp_connect: " + message}; }
LogLine Wait(const std::string& message) { return {kDebug, "waitfor_tcp_message: " + message}; }

// Listener listens on a port of 127.0.0.1 and connects clients to it, which the backlog holds.
class Listener {
 public:
  Listener() : fd_(socket(AF_INET, SOCK_STREAM, 0)) {
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address_;
    EXPECT_EQ(0, bind(fd_, Generic(), size));
    EXPECT_EQ(0, getsockname(fd_, Generic(), &size));
    EXPECT_EQ(0, listen(fd_, 8));
  }
  ~Listener() { close(fd_); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  int fd() const { return fd_; }

  PeerConnection NewClient() {
    const HookPause pause;
    const int client = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(0, connect(client, Generic(), sizeof address_));
    return PeerConnection(client);
  }

 private:
  sockaddr* Generic() { return reinterpret_cast<sockaddr*>(&address_); }

  int fd_;
  sockaddr_in address_ = {};
};

// RaisedDescriptor is a duplicate of a descriptor with a number above what a descriptor set holds.
class RaisedDescriptor {
 public:
  explicit RaisedDescriptor(int fd) {
    rlimit limit = {};
    EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    if (limit.rlim_cur < 2001) {
      limit.rlim_cur = 2001;
      EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    }
    EXPECT_EQ(2000, dup2(fd, 2000));
  }
  ~RaisedDescriptor() { close(2000); }
  RaisedDescriptor(const RaisedDescriptor&) = delete;
  RaisedDescriptor& operator=(const RaisedDescriptor&) = delete;
};

TEST(WaitforTcpConnect, AcceptsAnyoneAndRecordsWhoConnected) {
  Listener listener;
  PeerConnection client = listener.NewClient();
  LogCapture log(kTrace);
  std::uint32_t peer = 0;
  timeval timeout = Seconds(20);
  const int fd = waitfor_tcp_connect(listener.fd(), &peer, &timeout);
  ASSERT_GE(fd, 0);
  const PeerConnection accepted(fd);
  EXPECT_EQ(htonl(INADDR_LOOPBACK), peer);
  EXPECT_EQ((std::vector<LogLine>{Connect("wait for 20 seconds"), Connect("select (accept) 1"),
                                  Connect("accept from 127.0.0.1 on fd " + std::to_string(fd))}),
            log.lines());
}

// Deliberate: the address that is stored is the newcomer's.
TEST(WaitforTcpConnect, StrangerIsRefusedOnceAndAcceptedOnTheNextCall) {
  Listener listener;
  PeerConnection refused = listener.NewClient();
  const std::set<int> before = OpenDescriptors();
  LogCapture log(kTrace);
  std::uint32_t peer = kNobody;
  timeval timeout = Seconds(20);
  EXPECT_EQ(-1, waitfor_tcp_connect(listener.fd(), &peer, &timeout));
  EXPECT_EQ(htonl(INADDR_LOOPBACK), peer);
  EXPECT_EQ((std::vector<LogLine>{Connect("wait for 20 seconds"), Connect("select (accept) 1"),
                                  Connect("closing peer 127.0.0.1 (900007f)")}),
            log.Take());
  EXPECT_EQ(before, OpenDescriptors());
  refused.WaitForClose();

  PeerConnection accepted_client = listener.NewClient();
  timeout = Seconds(20);
  const int fd = waitfor_tcp_connect(listener.fd(), &peer, &timeout);
  EXPECT_GE(fd, 0);
  const PeerConnection accepted(fd);
  EXPECT_EQ(htonl(INADDR_LOOPBACK), peer);
}

TEST(WaitforTcpConnect, ExpiredWaitIsMinusOne) {
  Listener listener;
  LogCapture log(kTrace);
  std::uint32_t peer = 0;
  timeval timeout = Seconds(0);
  errno = 0;
  EXPECT_EQ(-1, waitfor_tcp_connect(listener.fd(), &peer, &timeout));
  EXPECT_EQ(0u, peer);
  EXPECT_EQ((std::vector<LogLine>{Connect("wait for 0 seconds"), Connect("select (accept) 0"),
                                  Connect("select returned 0, error = 0 (Success)")}),
            log.lines());
}

TEST(WaitforTcpConnect, BadDescriptorsFailAtOnce) {
  Listener listener;
  const int closed = dup(listener.fd());
  close(closed);
  for (const int fd : {-1, -5, closed}) {
    SCOPED_TRACE(fd);
    // The callback spoils errno between the wait and the line that reports it.
    const ErrnoSpoiler log(kDebug);
    std::uint32_t peer = 0;
    timeval timeout = Seconds(600);
    EXPECT_EQ(-1, waitfor_tcp_connect(fd, &peer, &timeout));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(
        (std::vector<LogLine>{Connect("wait for 600 seconds"), Connect("select (accept) -1"),
                              Connect("select returned -1, error = 9 (Bad file descriptor)")}),
        log.lines());
  }
}

TEST(WaitforTcpConnect, NegativeTimeoutIsInvalid) {
  Listener listener;
  PeerConnection client = listener.NewClient();
  for (const timeval& wrong : {Seconds(-1), Seconds(5, -1)}) {
    LogCapture log(kDebug);
    std::uint32_t peer = 0;
    timeval timeout = wrong;
    EXPECT_EQ(-1, waitfor_tcp_connect(listener.fd(), &peer, &timeout));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(
        (std::vector<LogLine>{Connect("wait for " + std::to_string(wrong.tv_sec) + " seconds"),
                              Connect("select (accept) -1"),
                              Connect("select returned -1, error = 22 (Invalid argument)")}),
        log.lines());
  }
}

TEST(WaitforTcpConnect, InterruptedWaitIsNotRetried) {
  Listener listener;
  PeerConnection client = listener.NewClient();
  const PollHook hook([](pollfd*, nfds_t, int) {
    errno = EINTR;
    return -1;
  });
  LogCapture log(kDebug);
  std::uint32_t peer = 0;
  timeval timeout = Seconds(20);
  EXPECT_EQ(-1, waitfor_tcp_connect(listener.fd(), &peer, &timeout));
  EXPECT_EQ(1u, hook.calls());
  EXPECT_TRUE(log.Has(
      kDebug, "waitfor_tcp_connect: select returned -1, error = 4 (Interrupted system call)"));
}

TEST(WaitforTcpConnect, FailedAcceptIsPrintedAndLogged) {
  Listener listener;
  PeerConnection client = listener.NewClient();
  const AcceptHook hook([](int, sockaddr*, socklen_t* size) {
    EXPECT_EQ(16u, *size);
    errno = ECONNABORTED;
    return -1;
  });
  LogCapture log(kTrace);
  std::uint32_t peer = 0;
  timeval timeout = Seconds(20);
  ::testing::internal::CaptureStderr();
  const int result = waitfor_tcp_connect(listener.fd(), &peer, &timeout);
  const std::string printed = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(-1, result);
  EXPECT_EQ("accept(): Software caused connection abort\n", printed);
  EXPECT_EQ((std::vector<LogLine>{Connect("wait for 20 seconds"),
                                  Connect("select (accept) 1"),
                                  {kError, "waitfor_tcp_connect: errno = 103"}}),
            log.lines());
}

TEST(WaitforTcpConnect, ErrnoOfAcceptSurvivesTheFailingPrint) {
  Listener listener;
  PeerConnection client = listener.NewClient();
  const AcceptHook hook([](int, sockaddr*, socklen_t*) {
    errno = ECONNABORTED;
    return -1;
  });
  const ErrnoSpoiler log(kTrace);
  // Standard error that takes nothing: printing fails with an errno of its own.
  const int saved = dup(STDERR_FILENO);
  const int full = open("/dev/full", O_WRONLY);
  ASSERT_GE(full, 0);
  std::fflush(stderr);
  dup2(full, STDERR_FILENO);
  std::uint32_t peer = 0;
  timeval timeout = Seconds(20);
  const int result = waitfor_tcp_connect(listener.fd(), &peer, &timeout);
  const int error = errno;
  dup2(saved, STDERR_FILENO);
  close(saved);
  close(full);
  std::clearerr(stderr);
  EXPECT_EQ(-1, result);
  EXPECT_EQ(ECONNABORTED, error);
  ASSERT_EQ(3u, log.lines().size());
  EXPECT_EQ((LogLine{kError, "waitfor_tcp_connect: errno = 103"}), log.lines()[2]);
}

TEST(WaitforTcpConnect, FailsTheSameOnASilencedLog) {
  Listener listener;
  const LogCapture log(kSilent);
  std::uint32_t peer = 0;
  timeval timeout = Seconds(0);
  EXPECT_EQ(-1, waitfor_tcp_connect(listener.fd(), &peer, &timeout));  // nobody in time
  PeerConnection client = listener.NewClient();
  timeout = Seconds(20);
  {
    const AcceptHook hook([](int, sockaddr*, socklen_t*) {
      errno = ECONNABORTED;
      return -1;
    });
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(-1, waitfor_tcp_connect(listener.fd(), &peer, &timeout));
    EXPECT_EQ("accept(): Software caused connection abort\n",
              ::testing::internal::GetCapturedStderr());
  }
  peer = kNobody;
  EXPECT_EQ(-1, waitfor_tcp_connect(listener.fd(), &peer, &timeout));  // a stranger
  EXPECT_EQ(htonl(INADDR_LOOPBACK), peer);
  EXPECT_TRUE(log.lines().empty());
}

TEST(WaitforTcpConnect, NullTimeoutWaitsWithoutLimit) {
  Listener listener;
  PeerConnection client = listener.NewClient();
  const PollHook hook([](pollfd*, nfds_t, int timeout_ms) -> std::optional<int> {
    EXPECT_EQ(-1, timeout_ms);
    return std::nullopt;
  });
  std::uint32_t peer = 0;
  const int fd = waitfor_tcp_connect(listener.fd(), &peer, nullptr);
  EXPECT_GE(fd, 0);
  EXPECT_EQ(1u, hook.calls());
  close(fd);
}

TEST(WaitforTcpConnect, DescriptorsAbove1023Work) {
  Listener listener;
  PeerConnection client = listener.NewClient();
  const RaisedDescriptor raised(listener.fd());
  std::uint32_t peer = 0;
  timeval timeout = Seconds(20);
  const int fd = waitfor_tcp_connect(2000, &peer, &timeout);
  EXPECT_GE(fd, 0);
  close(fd);
}

TEST(WaitforTcpMessage, ReadsOneMessageWhenItCameInTime) {
  ConnectedPair pair;
  const Bytes message = Message(200);
  pair.far().Send(message);
  const std::string fd = std::to_string(pair.near().fd());
  LogCapture log(kDebug);
  GuardedBytes buffer(Bytes(1400, 0xEE));
  timeval timeout = Seconds(20);
  EXPECT_EQ(200, waitfor_tcp_message(pair.near().fd(), buffer.data(), 1400, &timeout));
  EXPECT_TRUE(SameBytes(message, buffer.data(), 200));
  EXPECT_EQ((std::vector<LogLine>{
                Wait("select (read) status 1 on fd " + fd), Wait("checking sock mask"),
                Wait("attempting read w/max len 1400"), Wait("read 200 bytes from 0.0.0.0")}),
            log.lines());
}

TEST(WaitforTcpMessage, LinesOfTheReadStandBetweenItsOwn) {
  ConnectedPair pair;
  pair.far().Send(Message(80));
  LogCapture log(kTrace);
  std::uint8_t buffer[1400];
  timeval timeout = Seconds(20);
  EXPECT_EQ(80, waitfor_tcp_message(pair.near().fd(), buffer, sizeof buffer, &timeout));
  const std::vector<LogLine> lines = log.lines();
  ASSERT_EQ(7u, lines.size());
  EXPECT_EQ(Wait("attempting read w/max len 1400"), lines[2]);
  EXPECT_EQ(Read("Read 12 bytes for hdr of mgmt port"), lines[3]);
  EXPECT_EQ(Read("Read 80 bytes total mgmt"), lines[5]);
  EXPECT_EQ(Wait("read 80 bytes from 0.0.0.0"), lines[6]);
}

TEST(WaitforTcpMessage, SmallBufferIsFilledAndNotOverrun) {
  ConnectedPair pair;
  const Bytes message = Message(200);
  pair.far().Send(message);
  GuardedBytes buffer(Bytes(100, 0xEE));
  timeval timeout = Seconds(20);
  EXPECT_EQ(100, waitfor_tcp_message(pair.near().fd(), buffer.data(), 100, &timeout));
  EXPECT_TRUE(SameBytes(Head(message, 100), buffer.data(), 100));
}

TEST(WaitforTcpMessage, NothingInTimeIsZero) {
  ConnectedPair pair;
  const std::string fd = std::to_string(pair.near().fd());
  LogCapture log(kTrace);
  std::uint8_t buffer[1400];
  timeval timeout = Seconds(0);
  EXPECT_EQ(0, waitfor_tcp_message(pair.near().fd(), buffer, sizeof buffer, &timeout));
  EXPECT_EQ(std::vector<LogLine>{Wait("select (read) status 0 on fd " + fd)}, log.lines());
}

TEST(WaitforTcpMessage, BadDescriptorsFailAtOnceAsZero) {
  ConnectedPair pair;
  const int closed = dup(pair.near().fd());
  close(closed);
  for (const int fd : {-1, -5, closed}) {
    SCOPED_TRACE(fd);
    const ErrnoSpoiler log(kTrace);
    std::uint8_t buffer[1400];
    timeval timeout = Seconds(600);
    EXPECT_EQ(0, waitfor_tcp_message(fd, buffer, sizeof buffer, &timeout));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(std::vector<LogLine>{Wait("select (read) status -1 on fd " + std::to_string(fd))},
              log.lines());
  }
}

TEST(WaitforTcpMessage, NegativeTimeoutIsInvalid) {
  ConnectedPair pair;
  pair.far().Send(Message(100));
  const std::string fd = std::to_string(pair.near().fd());
  for (const timeval& wrong : {Seconds(-1), Seconds(5, -1)}) {
    LogCapture log(kTrace);
    std::uint8_t buffer[1400];
    timeval timeout = wrong;
    EXPECT_EQ(0, waitfor_tcp_message(pair.near().fd(), buffer, sizeof buffer, &timeout));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(std::vector<LogLine>{Wait("select (read) status -1 on fd " + fd)}, log.lines());
  }
}

TEST(WaitforTcpMessage, InterruptedWaitIsNotRetried) {
  ConnectedPair pair;
  pair.far().Send(Message(100));
  const PollHook hook([](pollfd*, nfds_t, int) {
    errno = EINTR;
    return -1;
  });
  std::uint8_t buffer[1400];
  timeval timeout = Seconds(20);
  EXPECT_EQ(0, waitfor_tcp_message(pair.near().fd(), buffer, sizeof buffer, &timeout));
  EXPECT_EQ(EINTR, errno);
  EXPECT_EQ(1u, hook.calls());
}

TEST(WaitforTcpMessage, ClosedAndFailedConnectionsCountAsReady) {
  for (const short events : std::initializer_list<short>{POLLHUP, POLLERR}) {
    SCOPED_TRACE(events);
    const PollHook poll_hook([&](pollfd* fds, nfds_t count, int) {
      EXPECT_EQ(1u, count);
      fds[0].revents = events;
      return 1;
    });
    const RecvfromHook read_hook([](int, void*, std::size_t, int, sockaddr*, socklen_t*) {
      errno = ECONNRESET;
      return -1;
    });
    LogCapture log(kDebug);
    std::uint8_t buffer[1400];
    timeval timeout = Seconds(20);
    EXPECT_EQ(-1, waitfor_tcp_message(0, buffer, sizeof buffer, &timeout));
    EXPECT_EQ(ECONNRESET, errno);
    EXPECT_TRUE(log.Has(kDebug, "waitfor_tcp_message: read -1 bytes from 0.0.0.0"));
  }
}

TEST(WaitforTcpMessage, DescriptorThatIsNotMarkedIsNotRead) {
  const PollHook poll_hook([](pollfd* fds, nfds_t, int) {
    fds[0].revents = 0;
    return 1;
  });
  const StreamOf stream(Message(100));
  LogCapture log(kTrace);
  std::uint8_t buffer[1400];
  timeval timeout = Seconds(20);
  EXPECT_EQ(0, waitfor_tcp_message(0, buffer, sizeof buffer, &timeout));
  EXPECT_EQ(
      (std::vector<LogLine>{Wait("select (read) status 1 on fd 0"), Wait("checking sock mask")}),
      log.lines());
}

TEST(WaitforTcpMessage, EndOfStreamIsZeroWithItsLines) {
  ConnectedPair pair;
  pair.far().Close();
  LogCapture log(kDebug);
  std::uint8_t buffer[1400];
  timeval timeout = Seconds(20);
  EXPECT_EQ(0, waitfor_tcp_message(pair.near().fd(), buffer, sizeof buffer, &timeout));
  EXPECT_TRUE(log.Has(kDebug, "waitfor_tcp_message: read 0 bytes from 0.0.0.0"));
}

TEST(WaitforTcpMessage, RefusedMessageIsMinusOne) {
  ConnectedPair pair;
  pair.far().Send(Message(1401));
  LogCapture log(kDebug);
  std::uint8_t buffer[1400];
  timeval timeout = Seconds(20);
  EXPECT_EQ(-1, waitfor_tcp_message(pair.near().fd(), buffer, sizeof buffer, &timeout));
  EXPECT_EQ(1u, log.Count(kTooLarge.level, kTooLarge.text));
  EXPECT_TRUE(log.Has(kDebug, "waitfor_tcp_message: read -1 bytes from 0.0.0.0"));
}

TEST(WaitforTcpMessage, DescriptorsAbove1023Work) {
  ConnectedPair pair;
  pair.far().Send(Message(100));
  const RaisedDescriptor raised(pair.near().fd());
  std::uint8_t buffer[1400];
  timeval timeout = Seconds(20);
  EXPECT_EQ(100, waitfor_tcp_message(2000, buffer, sizeof buffer, &timeout));
}

TEST(Wait, MillisecondsAreRoundedUpAndCapped) {
  const struct {
    timeval timeout;
    int milliseconds;
  } rows[] = {
      {Seconds(0), 0},
      {Seconds(0, 1), 1},
      {Seconds(0, 1000), 1},
      {Seconds(0, 1001), 2},
      {Seconds(0, 999999), 1000},
      {Seconds(1), 1000},
      {Seconds(180), 180000},
      {Seconds(2147483), 2147483000},
      {Seconds(2147483, 646000), 2147483646},
      {Seconds(2147483, 647000), INT_MAX},
      {Seconds(2147483, 647001), INT_MAX},
      {Seconds(2147483, 999999), INT_MAX},
      {Seconds(2147484), INT_MAX},
      {Seconds(0x7FFFFFFF, 999999), INT_MAX},
      {Seconds(LONG_MAX, 999999), INT_MAX},
  };
  std::vector<int> asked;
  const PollHook hook([&](pollfd*, nfds_t, int timeout_ms) {
    asked.push_back(timeout_ms);
    return 0;
  });
  std::uint8_t buffer[4];
  for (const auto& row : rows) {
    asked.clear();
    std::uint32_t peer = 0;
    timeval timeout = row.timeout;
    EXPECT_EQ(-1, waitfor_tcp_connect(0, &peer, &timeout));
    timeout = row.timeout;
    EXPECT_EQ(0, waitfor_tcp_message(0, buffer, sizeof buffer, &timeout));
    EXPECT_EQ((std::vector<int>{row.milliseconds, row.milliseconds}), asked)
        << row.timeout.tv_sec << " s " << row.timeout.tv_usec << " us";
  }
}

TEST(Wait, NullTimeoutForAMessageWaitsWithoutLimit) {
  ConnectedPair pair;
  pair.far().Send(Message(100));
  const PollHook hook([](pollfd*, nfds_t, int timeout_ms) -> std::optional<int> {
    EXPECT_EQ(-1, timeout_ms);
    return std::nullopt;
  });
  std::uint8_t buffer[1400];
  EXPECT_EQ(100, waitfor_tcp_message(pair.near().fd(), buffer, sizeof buffer, nullptr));
  EXPECT_EQ(1u, hook.calls());
}

}  // namespace

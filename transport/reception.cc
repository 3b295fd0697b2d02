// Whole messages from a stream, datagrams, and the two waits. A message is framed by its headers:
// the digest length tells where the message header ends, that tells the length of the elements.
#include "vtapi/reception.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "vtapi/socket.h"

#include "support/log.h"
#include "transport/address.h"
#include "transport/framing.h"
#include "transport/wait.h"

namespace {

using vt::transport::AsSocketAddress;
using vt::transport::Frame;
using vt::transport::FramePart;
using vt::transport::kAddressSize;
using vt::transport::WaitReadable;

constexpr const char kReader[] = "vtn_read_tcp_message";

// MessageReader collects one message in the caller's buffer. Every read asks for what is missing
// and for no more than there is room.
class MessageReader {
 public:
  MessageReader(int fd, void* buffer, std::int32_t size)
      : fd_(fd),
        buffer_(static_cast<std::uint8_t*>(buffer)),
        room_(size > 0 ? static_cast<std::size_t>(size) : 0) {}

  // ReadTo reads until the buffer holds end bytes or is full. False when a read gave nothing: its
  // result is then the result of the whole.
  [[nodiscard]] bool ReadTo(std::size_t end, FramePart part) {
    while (used_ < std::min(end, room_)) {
      sockaddr_in sender;  // a connected stream reports none
      socklen_t length = kAddressSize;
      const ssize_t got = recvfrom(fd_, buffer_ + used_, std::min(end, room_) - used_, MSG_WAITALL,
                                   AsSocketAddress(&sender), &length);
      result_ = static_cast<int>(got);
      LogRead(part);
      if (result_ < 1) return false;
      used_ += static_cast<std::size_t>(got);
    }
    return true;
  }

  // Has tells whether the first end bytes are there; a buffer that is too small ends short of them.
  [[nodiscard]] bool Has(std::size_t end) const { return used_ >= end; }

  [[nodiscard]] vt::support::Bytes bytes() const { return {buffer_, used_}; }
  [[nodiscard]] int used() const { return static_cast<int>(used_); }
  [[nodiscard]] int result() const { return result_; }

 private:
  void LogRead(FramePart part) const {
    if (part == FramePart::kFirstHeader) {
      VT_LOG_AS(kTrace, kReader, "Read %d bytes for hdr of mgmt port", result_);
      return;
    }
    if (part == FramePart::kHeader) {
      VT_LOG_AS(kTrace, kReader, "Read %d bytes for header of mgmt port", result_);
    } else {
      VT_LOG_AS(kTrace, kReader, "Read %d bytes for payload of mgmt port", result_);
    }
    // Deliberate: the result counts as it is, -1 included.
    VT_LOG_AS(kTrace, kReader, "Read %d bytes total mgmt", used() + result_);
  }

  int fd_;
  std::uint8_t* buffer_;
  std::size_t room_;
  std::size_t used_ = 0;
  int result_ = 0;
};

int RefuseOverSize() {
  // The rest stays in the stream: a caller stops reading after this.
  VT_LOG_AS(kDebug, kReader, "Incoming packet exceeds Voltaris max packet size, dropping packet");
  return -1;
}

}  // namespace

extern "C" {

int vtn_read_tcp_message(int fd, void* buf, std::int32_t size, struct sockaddr_in* /*sender*/) {
  MessageReader reader(fd, buf, size);
  for (;;) {
    const Frame frame = vt::transport::FrameOf(reader.bytes());
    if (frame.part == FramePart::kNothing) return reader.used();
    if (frame.part == FramePart::kOverSize) return RefuseOverSize();
    if (!reader.ReadTo(frame.end, frame.part)) return reader.result();
    if (!reader.Has(frame.end)) return reader.used();
  }
}

int vtn_frame_message(const void* bytes, std::uint32_t size, std::uint32_t* length) {
  const vt::transport::Frame frame =
      vt::transport::FrameOf({static_cast<const std::uint8_t*>(bytes), size});
  if (frame.part == FramePart::kOverSize) return -1;
  *length = static_cast<std::uint32_t>(frame.end);
  return frame.part == FramePart::kNothing ? 1 : 0;
}

int vtn_read_udp_message(int fd, void* buf, std::int32_t size) {
  const std::size_t room = size > 0 ? static_cast<std::size_t>(size) : 0;
  const int got = static_cast<int>(recvfrom(fd, buf, room, 0, nullptr, nullptr));
  if (got < 1) {
    VT_LOG(kTrace, "read failed with %d bytes, errno %d", got, vtn_getErrorCode());
  } else {
    VT_LOG(kTrace, "read of %d bytes", got);
  }
  return got;
}

int waitfor_tcp_connect(int fd, std::uint32_t* peer, struct timeval* timeout) {
  if (timeout != nullptr) {
    VT_LOG(kDebug, "wait for %ld seconds", static_cast<long>(timeout->tv_sec));
  }
  const int ready = WaitReadable(fd, timeout);
  VT_LOG(kDebug, "select (accept) %d", ready);
  if (ready < 1) {
    const int error = errno;
    VT_LOG(kDebug, "select returned %d, error = %d (%s)", ready, error, std::strerror(error));
    return -1;
  }
  sockaddr_in newcomer{};
  socklen_t length = kAddressSize;
  const int accepted = accept(fd, AsSocketAddress(&newcomer), &length);
  if (accepted < 0) {
    const int error = errno;
    std::perror("accept()");
    VT_LOG(kError, "errno = %d", error);
    errno = error;
    return -1;
  }
  const std::uint32_t expected = *peer;
  // Deliberate: whoever knocks becomes the expected peer, so that a stranger who was refused is let
  // in on the next call.
  *peer = newcomer.sin_addr.s_addr;
  if (expected != 0 && expected != *peer) {
    VT_LOG(kDebug, "closing peer %s (%x)", inet_ntoa(newcomer.sin_addr), expected);
    closeSocket(accepted);
    return -1;
  }
  VT_LOG(kDebug, "accept from %s on fd %d", inet_ntoa(newcomer.sin_addr), accepted);
  return accepted;
}

int waitfor_tcp_message(int fd, void* buf, std::int32_t size, struct timeval* timeout) {
  bool marked;
  const int ready = WaitReadable(fd, timeout, &marked);
  VT_LOG(kDebug, "select (read) status %d on fd %d", ready, fd);
  if (ready < 1) return 0;
  VT_LOG(kDebug, "checking sock mask");
  if (!marked) return 0;
  VT_LOG(kDebug, "attempting read w/max len %d", size);
  sockaddr_in sender{};  // stays zero: a stream tells no sender
  const int got = vtn_read_tcp_message(fd, buf, size, &sender);
  VT_LOG(kDebug, "read %d bytes from %s", got, inet_ntoa(sender.sin_addr));
  return got;
}

}  // extern "C"

// A stream of bytes through a socket pair, read message by message. The first byte says how many of
// the following ones are lengths of fragments: each read gives at most one fragment, and a length
// of 0 fails it with EINTR. Bit 4 chooses the wait, bits 5 to 7 a smaller buffer.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "fuzz/check.h"
#include "fuzz/heap_meter.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "fuzz/time_limit.h"

namespace vt::fuzz {

const Layout kInputLayout = Layout::kPrefixedMessages;

namespace {

// The fragments of the input at hand, taken in turn.
Bytes fragments;
std::size_t next_fragment;
bool failed_read;

std::size_t TakeFragment(std::size_t wanted) {
  if (fragments.empty()) return wanted;
  return std::min<std::size_t>(wanted, fragments[next_fragment++ % fragments.size()]);
}

struct Options {
  bool wait;
  std::size_t buffer_size;
};

// Expected is what reading from the rest of the stream must give: the size of the message, cut to
// the buffer; 0 where the stream ends too early; -1 for a message that is too long.
int Expected(Bytes stream, std::size_t buffer_size) {
  if (std::min<std::size_t>(12, buffer_size) > stream.size()) return 0;
  if (buffer_size < 12) return static_cast<int>(buffer_size);
  const std::size_t header_end = (Load16(stream.data() + 10) + 3) / 4 * 4 + 60;
  if (header_end > VT_MAX_PDU_SIZE) return -1;
  if (std::min(header_end, buffer_size) > stream.size()) return 0;
  if (buffer_size < header_end) return static_cast<int>(buffer_size);
  const std::size_t end = header_end + Load16(stream.data() + header_end - 4);
  if (end > VT_MAX_PDU_SIZE) return -1;
  const std::size_t readable = std::min(end, buffer_size);
  return readable > stream.size() ? 0 : static_cast<int>(readable);
}

int ReadMessage(int fd, const Block& buffer, bool wait) {
  const auto size = static_cast<std::int32_t>(buffer.size());
  timeval at_once{0, 0};
  return wait ? waitfor_tcp_message(fd, buffer.data(), size, &at_once)
              : vtn_read_tcp_message(fd, buffer.data(), size, nullptr);
}

void ReadAll(int fd, Bytes stream, Options options) {
  for (;;) {
    const Block buffer(options.buffer_size);
    const int expected = Expected(stream, options.buffer_size);
    failed_read = false;
    const int got = ReadMessage(fd, buffer, options.wait);
    if (failed_read) {
      FUZZ_CHECK(got == -1);
      return;
    }
    FUZZ_CHECK(got == expected);
    if (got < 1) return;
    const auto size = static_cast<std::size_t>(got);
    FUZZ_CHECK(Same(buffer.bytes().first(size), stream.first(size)));
    stream = stream.subspan(size);
  }
}

void Stream(Bytes stream, Options options) {
  int ends[2];
  FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
  if (!stream.empty()) {
    FUZZ_CHECK(send(ends[1], stream.data(), stream.size(), 0) ==
               static_cast<ssize_t>(stream.size()));
  }
  close(ends[1]);
  ReadAll(ends[0], stream, options);
  close(ends[0]);
}

}  // namespace

}  // namespace vt::fuzz

// Stands in for the C library's, so that a stream can give less than was asked for.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): its names are reserved ones
extern "C" ssize_t recvfrom(int fd, void* buffer, std::size_t size, int /*flags*/,
                            struct sockaddr* /*sender*/, socklen_t* /*length*/) {
  const std::size_t most = vt::fuzz::TakeFragment(size);
  if (most == 0 && size != 0) {
    vt::fuzz::failed_read = true;
    errno = EINTR;
    return -1;
  }
  return read(fd, buffer, most);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const vt::fuzz::TimeLimit limit;
  using namespace vt::fuzz;  // NOLINT(google-build-using-namespace)
  if (size == 0) return 0;
  SetUpLog(size);
  const Block input({data, size});
  const unsigned first = data[0];
  const std::size_t count = std::min<std::size_t>(first & 15u, size - 1);
  fragments = input.bytes().subspan(1, count);
  next_fragment = 0;
  const std::size_t buffer_size = (first >> 5) != 0 ? (first >> 5) * 11 : VT_MAX_PDU_SIZE;
  const HeapMeter meter;
  Stream(input.bytes().subspan(1 + count), {(first & 16u) != 0, buffer_size});
  FUZZ_CHECK(meter.balanced());
  return 0;
}

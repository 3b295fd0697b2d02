// P13: acknowledgements of 300 entries each, collected, checked, gathered and sorted, against a
// copy of the entries and qsort. The connection is one that this program plays to the library, so
// that no socket is in the figure: the calls below stand in front of those of the C library.
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <vector>

#include "bench/measure.h"
#include "bench/messages.h"
#include "bench/options.h"

namespace {

using namespace vt::bench;  // NOLINT(google-build-using-namespace): this program's own

constexpr int kPlayed = 0x10000;  // a descriptor that no system hands out unasked

// What the library has not yet received; the peer closes behind it.
std::span<const std::uint8_t> incoming;

ssize_t Receive(void* buffer, std::size_t size, int flags) {
  const std::size_t count = std::min(size, incoming.size());
  if (count != 0) std::memcpy(buffer, incoming.data(), count);
  if ((flags & MSG_PEEK) == 0) incoming = incoming.subspan(count);
  return static_cast<ssize_t>(count);
}

ssize_t NotPlayed() {
  errno = EBADF;
  return -1;
}

}  // namespace

extern "C" {

int socket(int /*domain*/, int /*type*/, int /*protocol*/) noexcept { return kPlayed; }

int connect(int /*fd*/, const sockaddr* /*address*/, socklen_t /*length*/) { return 0; }

int getsockname(int /*fd*/, sockaddr* address, socklen_t* length) noexcept {
  std::memset(address, 0, *length);
  return 0;
}

ssize_t send(int /*fd*/, const void* /*data*/, std::size_t size, int /*flags*/) {
  return static_cast<ssize_t>(size);
}

ssize_t recv(int fd, void* buffer, std::size_t size, int flags) {
  return fd == kPlayed ? Receive(buffer, size, flags) : NotPlayed();
}

ssize_t recvfrom(int fd, void* buffer, std::size_t size, int flags, sockaddr* /*from*/,
                 socklen_t* /*length*/) {
  return fd == kPlayed ? Receive(buffer, size, flags) : NotPlayed();
}

// Under a name of its own: poll is declared to only write its records, which it reads as well.
int PlayedPoll(pollfd* fds, nfds_t count, int timeout_ms) __asm__("poll");
int PlayedPoll(pollfd* fds, nfds_t count, int /*timeout_ms*/) {
  if (count != 1 || fds->fd != kPlayed) return static_cast<int>(NotPlayed());
  fds->revents = POLLIN;
  return 1;
}

int close(int fd) { return fd == kPlayed ? 0 : static_cast<int>(syscall(SYS_close, fd)); }

}  // extern "C"

namespace {

int CompareEntries(const void* a, const void* b) { return std::memcmp(a, b, sizeof(AckEntry)); }

// Stream is the messages one after the other, and the entries in order of arrival.
struct Stream {
  Bytes bytes;
  std::vector<AckEntry> entries;
};

// AddEntries appends those of a message.
void AddEntries(const Bytes& message, std::vector<AckEntry>& entries) {
  const EventPtr event(
      cv_mkevent_from_rawbuffer(static_cast<std::int32_t>(message.size()), message.data()));
  Require(cv_unpack_event(event.get(), &KeyContext()) == 0 && event->pak->tlv_count == 1,
          "an acknowledgement was refused");
  const auto* aggregate = static_cast<const aggregated_value*>(event->tlvs[0]->value);
  for (std::uint32_t i = 0; i < aggregate->entry_count; ++i) {
    AckEntry entry;
    std::memcpy(entry.device_id, aggregate->device.id.bytes, sizeof entry.device_id);
    entry.entity_index = static_cast<const plain_entry*>(aggregate->entries[i])->tag;
    entries.push_back(entry);
  }
}

const Stream& Acknowledgements() {
  static const Stream stream = [] {
    Messages messages(20240619);
    Stream made;
    while (made.entries.size() < BigScale()) {
      const Bytes message = messages.Acknowledgement();
      Require(message.size() <= VT_MAX_PDU_SIZE, "an acknowledgement is too long");
      made.bytes.insert(made.bytes.end(), message.begin(), message.end());
      AddEntries(message, made.entries);
    }
    return made;
  }();
  return stream;
}

void CollectAndSort(benchmark::State& state) {
  const Stream& stream = Acknowledgements();
  const std::size_t count = stream.entries.size();
  const SessionPtr session(voltaris_createSession("127.0.0.1", 1, kIdentity, Key().data(),
                                                  static_cast<std::int32_t>(Key().size())));
  Require(session != nullptr, "no session");
  std::vector<AckEntry> sorted(count);

  const auto collect = [&] {
    const QueryPtr query(voltaris_createCollectQuery("bench", 5));
    Require(voltaris_execQuery(session.get(), query.get()) == 0, "the query was not sent");
    incoming = stream.bytes;
    ResultSet* result = nullptr;
    const double elapsed =
        TimeNs([&] { result = voltaris_queryResults(session.get(), query.get()); });
    Require(result != nullptr && voltaris_getErrorCode(result) == 0 && incoming.empty() &&
                voltaris_getAckCount(result) == static_cast<std::int32_t>(count),
            "acknowledgements are missing");
    Require(std::memcmp(voltaris_getAcks(result), sorted.data(), count * sizeof(AckEntry)) == 0,
            "the acknowledgements are not sorted");
    voltaris_releaseResult(result);
    return elapsed;
  };
  const auto copy_and_sort = [&] {
    return TimeNs([&] {
      std::memcpy(sorted.data(), stream.entries.data(), count * sizeof(AckEntry));
      std::qsort(sorted.data(), count, sizeof(AckEntry), CompareEntries);
    });
  };
  (void)copy_and_sort();  // what the first collection is compared with
  CompareInTurn(state, count, collect, copy_and_sort);
}

BENCHMARK(CollectAndSort)->Name("P13/acknowledgements")->UseManualTime()->Iterations(1);

}  // namespace

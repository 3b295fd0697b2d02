#include "bench/peer.h"

#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "bench/measure.h"

namespace vt::bench {

namespace {

constexpr std::uint64_t kSeed = 20240620;
constexpr std::size_t kPriorityAt = 70;
constexpr std::size_t kTlvBytesAt = 76;
constexpr std::size_t kMostReplies = 127;

// Answers holds the bytes for every priority, made before the first query.
class Answers {
 public:
  Answers() {
    Messages messages(kSeed);
    const Shape shape = messages.NewShape();
    for (std::size_t i = 0; i < kMostReplies; ++i) {
      const std::vector<corvane_id> device = messages.Devices(1);
      Append(single_rows_, messages.Reply(shape, device, 1));
      Append(full_, messages.FullReply(shape));
    }
  }

  [[nodiscard]] std::span<const std::uint8_t> For(std::uint32_t priority) const {
    const Replies& replies = (priority & kFullReplies) != 0 ? full_ : single_rows_;
    const std::size_t count = priority & ~kFullReplies;
    return std::span(replies.bytes).first(count == 0 ? 0 : replies.ends[count - 1]);
  }

 private:
  struct Replies {
    Bytes bytes;
    std::vector<std::size_t> ends;
  };

  static void Append(Replies& replies, const Bytes& reply) {
    replies.bytes.insert(replies.bytes.end(), reply.begin(), reply.end());
    replies.ends.push_back(replies.bytes.size());
  }

  Replies single_rows_;
  Replies full_;
};

void ReceiveAll(int fd, std::uint8_t* data, std::size_t size) {
  Require(recv(fd, data, size, MSG_WAITALL) == static_cast<ssize_t>(size), "peer: a short query");
}

void SendAll(int fd, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    Require(sent > 0, "peer: send");
    bytes = bytes.subspan(static_cast<std::size_t>(sent));
  }
}

}  // namespace

Shape PeerShape() { return Messages(kSeed).NewShape(); }

std::size_t PeerRows(std::uint32_t priority) {
  return (priority & kFullReplies) != 0 ? kRowsOfFull : 1;
}

int Listen(std::uint16_t& port) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  Require(bind(listener, generic, size) == 0 && listen(listener, SOMAXCONN) == 0 &&
              getsockname(listener, generic, &size) == 0,
          "peer: no listener");
  port = ntohs(address.sin_port);
  return listener;
}

void Serve(int listener) {
  const Answers answers;
  Serve(listener, [&](std::uint32_t priority) { return answers.For(priority); });
}

void Serve(int listener, const Answering& answers) {
  std::array<std::uint8_t, VT_MAX_PDU_SIZE> query;
  for (;;) {
    const int fd = accept(listener, nullptr, nullptr);
    Require(fd >= 0, "peer: accept");
    ReceiveAll(fd, query.data(), VT_PDU_HEADER_SIZE);
    const std::size_t area =
        static_cast<std::size_t>(query[kTlvBytesAt] << 8 | query[kTlvBytesAt + 1]);
    Require(area <= query.size() - VT_PDU_HEADER_SIZE, "peer: a query that is too long");
    ReceiveAll(fd, query.data() + VT_PDU_HEADER_SIZE, area);
    SendAll(fd, answers(query[kPriorityAt]));
    close(fd);
  }
}

Peer::Peer() {
  const int listener = Listen(port_);
  const pid_t maker = getpid();
  pid_ = fork();
  Require(pid_ >= 0, "peer: fork");
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != maker) _exit(1);
    Serve(listener);
  }
  close(listener);
}

Peer::~Peer() {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

Bytes QueryImage(std::uint32_t priority) {
  constexpr std::uint8_t kTimeoutSeconds = 6;
  constexpr std::uint32_t kComm = 2;
  const QueryPtr query = CollectQuery(PeerShape(), priority);
  Require(cv_add_tlv_common(query->event, VT_TLV_QUERY_TIMEOUT, VT_TLV_HEADER_SIZE + 1,
                            &kTimeoutSeconds, 0) == 0 &&
              vtn_createPdu(query->event, query->priority, CV_SHIPMENT_SEND,
                            static_cast<std::uint32_t>(query->class_),
                            static_cast<std::uint32_t>(query->action), kIdentity, 0, &KeyContext(),
                            kComm) == 0,
          "a query cannot be made");
  return {query->event->raw, query->event->raw + query->event->raw_len};
}

void Exchange(Session* session, std::uint32_t priority) {
  static const Shape shape = PeerShape();
  QueryPtr query = CollectQuery(shape, priority);
  Require(voltaris_execQuery(session, query.get()) == 0, "a query was not sent");
  ResultSet* const result = voltaris_queryResults(session, query.get());
  Require(result != nullptr && voltaris_getErrorCode(result) == 0, "a query failed");
  const std::size_t rows = (priority & ~kFullReplies) * PeerRows(priority);
  Require(voltaris_getRowCount(result) == static_cast<std::int32_t>(rows), "rows are missing");
  voltaris_releaseResult(result);
}

}  // namespace vt::bench

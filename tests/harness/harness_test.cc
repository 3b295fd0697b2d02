#include <arpa/inet.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <thread>

#include "vtapi.h"

#include "tests/harness/faults.h"
#include "tests/harness/guard.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"
#include "tests/harness/pdu_image.h"
#include "tests/harness/peer.h"

// The probe library, interposition_probe.c.
extern "C" {
void* probe_malloc(std::size_t size);
void* probe_calloc(std::size_t count, std::size_t size);
void* probe_realloc(void* block, std::size_t size);
char* probe_strdup(const char* text);
char* probe_strndup(const char* text, std::size_t limit);
int probe_socket(int domain, int type, int protocol);
int probe_connect(int fd, const sockaddr* address, socklen_t len);
int probe_bind(int fd, const sockaddr* address, socklen_t len);
int probe_getsockname(int fd, sockaddr* address, socklen_t* len);
int probe_accept(int fd, sockaddr* address, socklen_t* len);
ssize_t probe_send(int fd, const void* data, std::size_t len, int flags);
ssize_t probe_recvfrom(int fd, void* data, std::size_t len, int flags, sockaddr* from,
                       socklen_t* from_len);
int probe_poll(pollfd* fds, nfds_t count, int timeout_ms);
int probe_close(int fd);
}

namespace vt::testing {
namespace {

struct Free {
  void operator()(void* block) const { std::free(block); }
};
using Block = std::unique_ptr<void, Free>;

TEST(Hex, ReadsGroupsSeparatorsAndRepetitions) {
  EXPECT_EQ(Hex("00 00002b | FF\n2*0102 0*ff"), (Bytes{0, 0, 0, 0x2b, 0xff, 1, 2, 1, 2}));
  EXPECT_EQ(Hex("32*00"), Bytes(32, 0));
  EXPECT_EQ(Hex(""), Bytes());
}

TEST(HexDeathTest, RefusesWhatIsNotHexadecimal) {
  EXPECT_DEATH(Hex("00 0g"), "not a hexadecimal digit at character 4 of \"00 0g\"");
  EXPECT_DEATH(Hex("000"), "odd number of digits");
  EXPECT_DEATH(Hex("x*00"), "not decimal");
  EXPECT_DEATH(Hex("*00"), "no count");
  EXPECT_DEATH(Hex("3*"), "no digits");
}

TEST(SameBytes, NamesTheFirstDifference) {
  const Bytes actual = Hex("01 02 03");
  EXPECT_BYTES(actual.data(), actual.size(), "010203");
  EXPECT_STREQ(SameBytes(Hex("01 03 03"), actual).message(),
               "first difference at offset 1\nexpected 3 bytes\n    0: 010303\nactual 3 bytes\n"
               "    0: 010203");
  EXPECT_FALSE(SameBytes(Hex("0102"), actual));
  EXPECT_FALSE(SameBytes(Hex("01020304"), actual));
  EXPECT_FALSE(SameBytes(Hex("01"), nullptr, 0));
  EXPECT_TRUE(SameBytes({}, Bytes()));
}

TEST(ToHex, GroupsByFourAndLeadsLinesWithOffsets) {
  EXPECT_EQ(ToHex(Bytes(18, 0xab)), "    0: abababab abababab abababab abababab\n   16: abab");
}

TEST(GuardedBytesDeathTest, EndsAtAnInaccessiblePage) {
  for (const std::size_t size : {0u, 1u, 2u, 4095u, 4096u, 4097u}) {
    GuardedBytes bytes(Bytes(size, 7));
    ASSERT_EQ(bytes.size(), size);
    EXPECT_TRUE(SameBytes(Bytes(size, 7), bytes.data(), size));
    EXPECT_DEATH({ [[maybe_unused]] volatile std::uint8_t past = *(bytes.data() + size); }, "");
  }
}

TEST(GuardedBytes, AtOddAddressIsOddForEverySize) {
  for (std::size_t size = 0; size < 6; ++size) {
    const GuardedBytes bytes = GuardedBytes::AtOddAddress(Bytes(size, 9));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(bytes.data()) % 2, 1u);
    EXPECT_TRUE(SameBytes(Bytes(size, 9), bytes.data(), size));
  }
}

TEST(HeapBytes, ReleaseHandsOverTheBlock) {
  HeapBytes bytes(Hex("0102"));
  const Block block(bytes.release());
  EXPECT_BYTES(block.get(), 2, "0102");
  EXPECT_EQ(bytes.data(), nullptr);
}

TEST(AllocationFault, FailsEachCallOfASharedLibrary) {
  const auto fails = [](auto allocate) {
    const AllocationFault fault = AllocationFault::Nth(0);
    errno = 0;
    const Block first(allocate());
    const int error = errno;
    const Block second(allocate());
    return first == nullptr && error == ENOMEM && second != nullptr && fault.hit() &&
           fault.seen() == 2;
  };
  EXPECT_TRUE(fails([] { return probe_malloc(8); }));
  EXPECT_TRUE(fails([] { return probe_calloc(2, 8); }));
  EXPECT_TRUE(fails([] { return probe_realloc(nullptr, 8); }));
  EXPECT_TRUE(fails([] { return probe_strdup("text"); }));
  EXPECT_TRUE(fails([] { return probe_strndup("text", 2); }));
}

TEST(AllocationFault, FromNthFailsAllThatFollow) {
  const AllocationFault fault = AllocationFault::FromNth(1);
  const Block first(probe_malloc(1));
  const Block second(probe_malloc(1));
  const Block third(probe_malloc(1));
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(third, nullptr);
  EXPECT_EQ(fault.seen(), 3u);
}

TEST(AllocationFault, AFailedReallocKeepsTheOldBlock) {
  Block block(probe_strdup("kept"));
  {
    const AllocationFault fault = AllocationFault::Nth(0);
    EXPECT_EQ(probe_realloc(block.get(), 100), nullptr);
  }
  EXPECT_STREQ(static_cast<const char*>(block.get()), "kept");
}

TEST(AllocationFault, PassesPausedCallsOtherThreadsAndMemoryOfCxx) {
  const AllocationFault fault = AllocationFault::FromNth(0);
  {
    const AllocationFault::Pause pause;
    EXPECT_NE(Block(probe_malloc(1)), nullptr);
    bool other_thread_has_memory = false;
    std::thread([&] { other_thread_has_memory = Block(probe_malloc(1)) != nullptr; }).join();
    EXPECT_TRUE(other_thread_has_memory);
  }
  EXPECT_EQ(std::string(1000, 'x').size(), 1000u);
  EXPECT_NE(std::make_unique<std::string>(1000, 'x'), nullptr);
  EXPECT_EQ(fault.seen(), 0u);
  EXPECT_FALSE(fault.hit());
}

TEST(AllocationFault, SweepFailsEachAllocationThenAllFromEach) {
  std::string runs;
  const std::size_t count = SweepAllocationFailures([&] {
    for (int i = 0; i < 3; ++i) runs += Block(probe_malloc(4)) != nullptr ? 'o' : '-';
    runs += ' ';
  });
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(runs, "-oo o-o oo- ooo --- o-- oo- ooo ");
}

TEST(AllocationCount, CountsCallsAndBytes) {
  const AllocationCount count;
  Block block(probe_malloc(10));
  const Block zeros(probe_calloc(3, 4));
  void* const grown = probe_realloc(block.release(), 20);
  block.reset(grown);
  const Block text(probe_strdup("abc"));
  EXPECT_EQ(count.allocations(), 4u);
  EXPECT_EQ(count.bytes(), 46u);
}

TEST(LiveBlocks, CountsWhatIsAllocatedAndNotReleased) {
  const LiveBlocks live;
  Block block(probe_malloc(10));
  Block zeros(probe_calloc(3, 4));
  EXPECT_EQ(live.count(), 2);
  block.reset(probe_realloc(block.release(), 20));
  EXPECT_EQ(live.count(), 2);
  {
    const LiveBlocks inner;
    const Block text(probe_strdup("abc"));
    zeros.reset();
    EXPECT_EQ(inner.count(), 0);
    EXPECT_EQ(live.count(), 2);
  }
  EXPECT_EQ(live.count(), 1);
  const AllocationFault fault = AllocationFault::FromNth(0);
  EXPECT_EQ(probe_realloc(block.get(), 30), nullptr);
  EXPECT_EQ(Block(probe_realloc(nullptr, 30)), nullptr);
  EXPECT_EQ(fault.failed(), 2u);
  EXPECT_EQ(live.count(), 1);
  { const std::string cxx(1000, 'x'); }
  block.reset();
  EXPECT_EQ(live.count(), 0);
}

TEST(FillAllocations, FillsMallocAndLeavesCallocZero) {
  const FillAllocations fill;
  const Block block(probe_malloc(6));
  const Block zeros(probe_calloc(1, 3));
  EXPECT_BYTES(block.get(), 6, "6*a5");
  EXPECT_BYTES(zeros.get(), 3, "3*00");
  const Block grown(probe_realloc(nullptr, 4));
  EXPECT_BYTES(grown.get(), 4, "4*a5");
}

TEST(CallHook, ReplacesEachSystemCallOfASharedLibrary) {
  const SocketHook socket_hook([](int, int, int) {
    errno = EMFILE;
    return -1;
  });
  const ConnectHook connect_hook([](int, const sockaddr*, socklen_t) { return 102; });
  const BindHook bind_hook([](int, const sockaddr*, socklen_t) { return 103; });
  const GetsocknameHook getsockname_hook([](int, sockaddr*, socklen_t*) { return 104; });
  const AcceptHook accept_hook([](int, sockaddr*, socklen_t*) { return 105; });
  const SendHook send_hook([](int, const void*, std::size_t, int) { return 106; });
  const RecvfromHook recvfrom_hook(
      [](int, void*, std::size_t, int, sockaddr*, socklen_t*) { return 107; });
  const PollHook poll_hook([](pollfd*, nfds_t, int) { return 108; });
  const CloseHook close_hook([](int) { return 109; });
  EXPECT_EQ(probe_socket(AF_INET, SOCK_STREAM, 0), -1);
  EXPECT_EQ(errno, EMFILE);
  EXPECT_EQ(probe_connect(-1, nullptr, 0), 102);
  EXPECT_EQ(probe_bind(-1, nullptr, 0), 103);
  EXPECT_EQ(probe_getsockname(-1, nullptr, nullptr), 104);
  EXPECT_EQ(probe_accept(-1, nullptr, nullptr), 105);
  EXPECT_EQ(probe_send(-1, nullptr, 0, 0), 106);
  EXPECT_EQ(probe_recvfrom(-1, nullptr, 0, 0, nullptr, nullptr), 107);
  EXPECT_EQ(probe_poll(nullptr, 0, 0), 108);
  EXPECT_EQ(probe_close(-1), 109);
  EXPECT_EQ(close_hook.calls(), 1u);
}

TEST(CallHook, AsksOutwardsAndThenTheSystem) {
  std::string asked;
  const CloseHook outer([&](int) -> std::optional<int> {
    asked += 'o';
    return std::nullopt;
  });
  {
    const CloseHook inner([&](int fd) -> std::optional<int> {
      asked += 'i';
      if (fd == -7) return close(-8);  // asks outer, not this function again
      return std::nullopt;
    });
    errno = 0;
    EXPECT_EQ(probe_close(-1), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(probe_close(-7), -1);
  }
  EXPECT_EQ(probe_close(-1), -1);
  EXPECT_EQ(asked, "ioioo");
}

// With no hook every call reaches the system: a conversation through the probe library alone.
TEST(CallHook, WithoutHooksCallsReachTheSystem) {
  const std::set<int> before = OpenDescriptors();
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  const int listener = probe_socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_EQ(probe_bind(listener, generic, size), 0);
  ASSERT_EQ(listen(listener, 1), 0);
  ASSERT_EQ(probe_getsockname(listener, generic, &size), 0);
  const int client = probe_socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_EQ(probe_connect(client, generic, size), 0);
  const int server = probe_accept(listener, nullptr, nullptr);
  EXPECT_EQ(OpenDescriptors().size(), before.size() + 3);
  ASSERT_EQ(probe_send(client, "abc", 3, MSG_NOSIGNAL), 3);
  pollfd wait = {server, POLLIN, 0};
  EXPECT_EQ(probe_poll(&wait, 1, 10000), 1);
  char received[3];
  EXPECT_EQ(probe_recvfrom(server, received, 3, MSG_WAITALL, nullptr, nullptr), 3);
  EXPECT_BYTES(received, 3, "61 62 63");
  EXPECT_EQ(probe_close(server), 0);
  EXPECT_EQ(probe_close(client), 0);
  EXPECT_EQ(probe_close(listener), 0);
  EXPECT_EQ(OpenDescriptors(), before);
}

// Test case 2 of the published HMAC-SHA1 vectors.
TEST(HmacSha1, AgreesWithThePublishedVector) {
  EXPECT_EQ(HmacSha1(Text("Jefe"), Text("what do ya want for nothing?")),
            Hex("effcdf6ae5eb2fa2d27416d5f184df9c259a7c79"));
}

TEST(PduImage, WritesEveryFieldAtItsPlace) {
  PduImage image;
  image.seq = 0x01020304;
  image.shipment = 5;
  image.pri = 6;
  image.elements = {Element(15, 1, Hex("aabb")), ElementWithLength(16, 99, 0, {})};
  const Bytes wire = image.Unsigned();
  EXPECT_BYTES(wire.data(), wire.size(),
               "00 02 0000 00000000 00 12 0014 | 20*00 | 01020304 32*61 01 05 06 0a 11 0a 000b"
               "| 001a 0002 | 0000000f 0000000e 00000001 aabb | 00000010 00000063 00000000");
  const Bytes signed_wire = image.Signed(Text("key"));
  EXPECT_EQ(Bytes(signed_wire.begin() + 12, signed_wire.begin() + 32),
            HmacSha1(Text("key"), Bytes(wire.begin() + 32, wire.end())));
  EXPECT_EQ(DeviceHeader("id", Hex("01")), Hex("6964 30*00 00000001 01"));
}

int ConnectTo(std::uint16_t port) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
  close(fd);
  return -1;
}

TEST(ScriptedPeer, AnswersAPduInPieces) {
  PduImage image;
  image.elements = {Element(15, 0, Text("value"))};
  const Bytes wire = image.Signed(Text("key"));
  ScriptedPeer peer([&](PeerConnection& connection) {
    EXPECT_EQ(connection.ReadPdu(), wire);
    connection.SendInPieces(Text("answer"), 1);
    connection.HalfClose();
    connection.WaitForClose();
  });
  {
    PeerConnection client(ConnectTo(peer.port()));
    client.SendInPieces(wire, 50);
    EXPECT_EQ(client.ReadAll(), Text("answer"));
  }
  EXPECT_TRUE(peer.Join());
  EXPECT_EQ(peer.accepted(), 1u);
  EXPECT_EQ(ConnectTo(peer.port()), -1);
}

TEST(ScriptedPeer, ServesSeveralConnectionsInTurn) {
  ScriptedPeer peer([](PeerConnection& connection) { connection.Send(Text("x")); }, 2);
  for (int i = 0; i < 2; ++i) {
    PeerConnection client(ConnectTo(peer.port()));
    EXPECT_EQ(client.ReadAll(), Text("x"));
  }
  EXPECT_TRUE(peer.Join());
  EXPECT_EQ(peer.accepted(), 2u);
}

TEST(ScriptedPeer, EndsWhenNobodyConnectsOrTheScriptStillWaits) {
  const std::set<int> before = OpenDescriptors();
  {
    const ScriptedPeer unused([](PeerConnection&) {});
  }
  auto waiting = std::make_unique<ScriptedPeer>([](PeerConnection& c) { c.ReadPdu(); });
  PeerConnection client(ConnectTo(waiting->port()));
  client.Send(Hex("0102"));
  waiting.reset();
  client.WaitForClose();
  client.Close();
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST(ScriptedPeer, ReportsWhatItsScriptThrows) {
  EXPECT_NONFATAL_FAILURE(
      {
        ScriptedPeer peer([](PeerConnection& connection) { connection.ReadPdu(); });
        PeerConnection client(ConnectTo(peer.port()));
        client.Send(Hex("0102"));
        client.Close();
        EXPECT_FALSE(peer.Join()) << "(not expected here)";
      },
      "connection 1 of the scripted peer: the other side closed after 2 of 80 bytes");
}

TEST(PeerConnection, ResetIsSeenAsAReset) {
  ConnectedPair pair;
  pair.far().Reset();
  char byte;
  EXPECT_EQ(recv(pair.near().fd(), &byte, 1, 0), -1);
  EXPECT_EQ(errno, ECONNRESET);
}

TEST(PeerConnection, IsNotSeenByHooks) {
  ConnectedPair pair;
  const PollHook hook([](pollfd*, nfds_t, int) { return -1; });
  pair.far().Send(Text("ab"));
  EXPECT_EQ(pair.near().ReadExactly(2), Text("ab"));
  EXPECT_EQ(hook.calls(), 0u);
}

// IsGivenAway tells whether a listener beside this process could be made on a port.
bool IsGivenAway(std::uint16_t port) {
  const PeerConnection other(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return bind(other.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

// A reset leaves nothing behind that would keep the port as well.
TEST(ScriptedPeer, KeepsItsPortAndRefusesConnectionsAfterTheLast) {
  ScriptedPeer peer([](PeerConnection& connection) { connection.Reset(); });
  const PeerConnection last(ConnectTo(peer.port()));
  EXPECT_TRUE(peer.Join());
  EXPECT_EQ(ConnectTo(peer.port()), -1);
  EXPECT_FALSE(IsGivenAway(peer.port()));
}

TEST(UnusedPort, RefusesConnectionsAndIsNotGivenAway) {
  const auto port = static_cast<std::uint16_t>(UnusedPort());
  EXPECT_EQ(ConnectTo(port), -1);
  EXPECT_FALSE(IsGivenAway(port));
}

TEST(LogCapture, RestoresTheSettingsAndSwallowsItsOwnLines) {
  const std::uint32_t level = getLogLevel();
  const std::uint32_t enable = getLogCallbackEnable();
  {
    LogCapture outer;
    EXPECT_EQ(outer.lines(), std::vector<LogLine>());
    {
      LogCapture inner(kError);
      EXPECT_EQ(getLogLevel(), kError);
      setLogLevel(kTrace);
      enableLogCallback(1);
      EXPECT_EQ(inner.Count(kDebug, "enableLogCallback: Log callback feature is being ENABLED"),
                1u);
      EXPECT_TRUE(inner.HasMatch(kDebug, "being ENABLED$"));
      EXPECT_FALSE(inner.HasMatch(kInfo, "being ENABLED$"));
      EXPECT_EQ(inner.AtOrAbove(kInfo).size(), 0u);
      EXPECT_EQ(inner.AtOrAbove(kDebug).size(), 1u);
      EXPECT_EQ(inner.Take().size(), 1u);
      EXPECT_EQ(inner.lines().size(), 0u);
    }
    EXPECT_EQ(outer.lines(), std::vector<LogLine>());
    EXPECT_EQ(getLogLevel(), kTrace);
    EXPECT_EQ(getLogCallbackEnable(), 1u);
  }
  EXPECT_EQ(getLogLevel(), level);
  EXPECT_EQ(getLogCallbackEnable(), enable);
}

TEST(LogLine, PrintsItsLevelAndText) {
  std::ostringstream out;
  out << LogLine{kWarn, "f: m"} << LogLine{9, "x"};
  EXPECT_EQ(out.str(), "WARN \"f: m\"level 9 \"x\"");
}

TEST(FileLog, ReadsBackWhatTheFacilityPrints) {
  std::FILE* const file = getLogFile();
  {
    const FileLog log;
    EXPECT_EQ(log.text(), "");
    enableLogCallback(0);
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_NE(
        log.text().find(" [DEBUG] enableLogCallback: Log callback feature is being DISABLED\n"),
        std::string::npos);
  }
  EXPECT_EQ(getLogFile(), file);
}

}  // namespace
}  // namespace vt::testing

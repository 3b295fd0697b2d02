#include "node/host/nut_connection.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>
#include <functional>

#include "tests/harness/faults.h"
#include "tests/node/host/host_tree.h"
#include "tests/node/host/nut_script.h"

namespace vt::testing {
namespace {

using node::NutConnection;
using node::NutError;
using node::ParseNutDecimal;
using node::ParseNutLine;
using node::Trouble;
using std::chrono::milliseconds;
using Words = std::vector<std::string>;

// For servers that do not answer.
constexpr milliseconds kLittlePatience{50};

TEST(NutLine, WordsAreSeparatedByBlanks) {
  EXPECT_EQ(ParseNutLine("END LIST UPS"), (Words{"END", "LIST", "UPS"}));
  EXPECT_EQ(ParseNutLine("  a \t b  "), (Words{"a", "b"}));
  EXPECT_EQ(ParseNutLine(""), Words{});
}

TEST(NutLine, QuotesHoldBlanksAndBackslashesHoldQuotes) {
  EXPECT_EQ(ParseNutLine(R"(UPS cellar "Below the \"stairs\" \\ left")"),
            (Words{"UPS", "cellar", R"(Below the "stairs" \ left)"}));
  EXPECT_EQ(ParseNutLine(R"(a "" b)"), (Words{"a", "", "b"}));
}

TEST(NutLine, OpenQuotesAndTooManyWordsAreNoLine) {
  EXPECT_EQ(ParseNutLine(R"(UPS a "b)"), std::nullopt);
  EXPECT_EQ(ParseNutLine(R"(UPS a "b\")"), std::nullopt);
  EXPECT_EQ(ParseNutLine("a\\"), std::nullopt);
  EXPECT_TRUE(ParseNutLine("1 2 3 4 5 6 7 8").has_value());
  EXPECT_EQ(ParseNutLine("1 2 3 4 5 6 7 8 9"), std::nullopt);
}

TEST(NutDecimal, TakesDigitsAndAPoint) {
  EXPECT_EQ(ParseNutDecimal("0"), 0.0);
  EXPECT_EQ(ParseNutDecimal("12.5"), 12.5);
  EXPECT_EQ(ParseNutDecimal("007.250"), 7.25);
  EXPECT_EQ(ParseNutDecimal("999999999999999999"), 999999999999999999.0);
}

TEST(NutDecimal, EverythingElseIsNoNumber) {
  for (const char* text : {"", ".", "-1", "+1", "1e5", "1,5", "1.2.3", "nan", "inf", "0x10", " 1",
                           "1 ", "9999999999999999999"}) {
    EXPECT_EQ(ParseNutDecimal(text), std::nullopt) << text;
  }
}

// ExpectTrouble makes the call and compares what it throws.
void ExpectTrouble(Trouble trouble, const std::string& what, const std::function<void()>& call) {
  try {
    call();
    ADD_FAILURE() << "nothing was thrown; expected: " << what;
  } catch (const NutError& error) {
    EXPECT_EQ(error.trouble(), trouble) << error.what();
    EXPECT_EQ(std::string(error.what()), what);
  }
}

// Server is a scripted server and a connection to it.
class Server {
 public:
  explicit Server(ScriptedPeer::Script script, milliseconds patience = kNutPatience)
      : peer_(std::move(script)),
        clock_([] { return std::chrono::steady_clock::now(); }),
        connection_(LoopbackAddress(peer_.port()), patience, clock_) {}

  NutConnection* operator->() { return &connection_; }

 private:
  ScriptedPeer peer_;
  node::MonotonicClock clock_;
  NutConnection connection_;
};

ScriptedPeer::Script Answers(const Dialogue& dialogue) {
  return [dialogue](PeerConnection& connection) { Play(connection, dialogue); };
}

// AfterList answers the first request with bytes as they are.
ScriptedPeer::Script AfterList(const std::string& answer) {
  return [answer](PeerConnection& connection) {
    connection.ReadExactly(std::string("LIST UPS\n").size());
    connection.Send(Text(answer));
    connection.WaitForClose();
  };
}

void ExpectListTrouble(const std::string& answer, Trouble trouble, const std::string& what) {
  Server server(AfterList(answer));
  ExpectTrouble(trouble, what, [&] { server->List(); });
}

TEST(NutConnection, ListsNamesAndDescriptions) {
  Server server(
      Answers({{"LIST UPS",
                "BEGIN LIST UPS\nUPS cellar \"Below the stairs\"\nUPS rack-1.b\nEND LIST UPS"}}));
  const auto listed = server->List();
  ASSERT_EQ(listed.size(), 2u);
  EXPECT_EQ(listed[0].name, "cellar");
  EXPECT_EQ(listed[0].description, "Below the stairs");
  EXPECT_EQ(listed[1].name, "rack-1.b");
  EXPECT_EQ(listed[1].description, "");
}

TEST(NutConnection, ReadsVariablesAndTellsOfThoseThatAreMissing) {
  Server server(Answers({{"GET VAR a ups.load", "VAR a ups.load \"23.5\""},
                         {"GET VAR a ups.realpower", "ERR VAR-NOT-SUPPORTED"},
                         {"GET VAR a ups.status", "VAR a ups.status \"OL CHRG\""}}));
  EXPECT_EQ(server->Number("a", "ups.load"), 23.5);
  EXPECT_EQ(server->Number("a", "ups.realpower"), std::nullopt);
  EXPECT_EQ(server->Variable("a", "ups.status"), "OL CHRG");
}

TEST(NutConnection, LinesMayComeInPiecesAndEndAsOnOtherSystems) {
  Server server([](PeerConnection& connection) {
    connection.ReadExactly(std::string("LIST UPS\n").size());
    connection.SendInPieces(Text("BEGIN LIST UPS\r\nUPS a \"A\"\r\nEND LIST UPS\r\n"), 1);
    connection.WaitForClose();
  });
  EXPECT_EQ(server->List().size(), 1u);
}

TEST(NutConnection, RefusalsAreTold) {
  ExpectListTrouble("ERR ACCESS-DENIED\n", Trouble::kDenied,
                    "the server answers \"ERR ACCESS-DENIED\"");
  ExpectListTrouble("ERR UNKNOWN-COMMAND extra\n", Trouble::kFaulty,
                    "the server answers \"ERR UNKNOWN-COMMAND extra\"");
  Server server(Answers({{"GET VAR a ups.load", "ERR DATA-STALE"}}));
  ExpectTrouble(Trouble::kFaulty, "the server answers \"ERR DATA-STALE\"",
                [&] { server->Number("a", "ups.load"); });
}

TEST(NutConnection, AnswersToOtherQuestionsAreNotTaken) {
  for (const char* answer : {"VAR b ups.load \"1\"", "VAR a ups.temperature \"1\"",
                             "VAR a ups.load \"1\" more", "VAR a ups.load", "", "OK"}) {
    Server server(Answers({{"GET VAR a ups.load", answer}}));
    EXPECT_THROW(server->Number("a", "ups.load"), NutError) << answer;
  }
}

TEST(NutConnection, AValueThatIsNoNumberIsFaulty) {
  Server server(Answers({{"GET VAR a ups.load", "VAR a ups.load \"-\x1b[2J\""}}));
  ExpectTrouble(Trouble::kFaulty, "a ups.load: not a number: -?[2J",
                [&] { server->Number("a", "ups.load"); });
}

TEST(NutConnection, NamesThatCouldBecomeRequestsAreRefused) {
  for (const char* name : {"\"a b\"", "\"\"", "\"a\\\"b\"", "a/b", "a:b", "\xc3\xa4", "a\tb c",
                           "aaaaaaaaaabbbbbbbbbbccccccccccddddddddddeeeeeeeeeeffffffffffggggg"}) {
    Server server(AfterList(std::string("BEGIN LIST UPS\nUPS ") + name + " \"x\"\nEND LIST UPS\n"));
    EXPECT_THROW(server->List(), NutError) << name;
  }
}

TEST(NutConnection, AnotherProtocolIsFaultyAndShownPrintable) {
  ExpectListTrouble("HTTP/1.1 400 Bad\x07Request\r\n", Trouble::kFaulty,
                    "the server answers \"HTTP/1.1 400 Bad?Request\"");
  ExpectListTrouble("\"open\n", Trouble::kFaulty, "the server answers \"\"open\"");
}

TEST(NutConnection, ALineWithoutAnEndIsCutOff) {
  ExpectListTrouble(std::string(100000, 'x'), Trouble::kFaulty,
                    "the server sends a line without an end");
}

TEST(NutConnection, ALineOf512BytesIsReadAndALongerOneIsNot) {
  const std::string longest = "ERR " + std::string(508, 'x');
  ExpectListTrouble(longest + "\n", Trouble::kFaulty,
                    "the server answers \"" + longest.substr(0, 64) + "\"");
  ExpectListTrouble(longest + "x\n", Trouble::kFaulty, "the server sends a line without an end");
}

TEST(NutConnection, AListWithoutAnEndIsCutOff) {
  std::string answer = "BEGIN LIST UPS\n";
  for (int i = 0; i < 5000; ++i) answer += "UPS u" + std::to_string(i) + "\n";
  ExpectListTrouble(answer, Trouble::kFaulty, "the server lists too many supplies");
}

TEST(NutConnection, AServerThatClosesEarlyIsUnreachable) {
  for (const char* answer : {"", "BEG", "BEGIN LIST UPS\n", "BEGIN LIST UPS\nUPS a \"A\"\nEND"}) {
    Server server([answer](PeerConnection& connection) {
      connection.ReadExactly(std::string("LIST UPS\n").size());
      connection.Send(Text(answer));
    });
    ExpectTrouble(Trouble::kUnreachable, "the server closed the connection",
                  [&] { server->List(); });
  }
}

TEST(NutConnection, AResetIsUnreachable) {
  Server server([](PeerConnection& connection) {
    connection.ReadExactly(std::string("LIST UPS\n").size());
    connection.Reset();
  });
  ExpectTrouble(Trouble::kUnreachable, "Connection reset by peer", [&] { server->List(); });
}

TEST(NutConnection, NobodyListeningIsUnreachable) {
  const node::MonotonicClock clock = std::chrono::steady_clock::now;
  ExpectTrouble(Trouble::kUnreachable, "Connection refused", [&] {
    const NutConnection connection(LoopbackAddress(UnusedPort()), kNutPatience, clock);
  });
}

TEST(NutConnection, AServerThatNeverAnswersIsGivenUp) {
  Server server([](PeerConnection& connection) { connection.WaitForClose(); }, kLittlePatience);
  ExpectTrouble(Trouble::kUnreachable, "the server took too long", [&] { server->List(); });
}

TEST(NutConnection, AServerThatStopsInTheMiddleOfALineIsGivenUp) {
  Server server(AfterList("BEGIN LIST"), kLittlePatience);
  ExpectTrouble(Trouble::kUnreachable, "the server took too long", [&] { server->List(); });
}

TEST(NutConnection, TheDeadlineIsThatOfAllRequestsTogether) {
  // Every look at the clock takes a second; each answer comes at once.
  ScriptedPeer peer(NutScript({{{"GET VAR a x", "VAR a x \"1\""}, {"GET VAR a x", ""}}}));
  HandClock hand;
  const node::MonotonicClock clock = [&hand, now = hand.clock()] {
    hand.Advance(milliseconds(1000));
    return now();
  };
  NutConnection connection(LoopbackAddress(peer.port()), milliseconds(4500), clock);
  EXPECT_EQ(connection.Number("a", "x"), 1.0);
  ExpectTrouble(Trouble::kUnreachable, "the server took too long", [&] {
    connection.Number("a", "x");
    connection.Number("a", "x");
  });
}

TEST(NutConnection, WithoutASocketTheServerIsUnreachable) {
  const node::MonotonicClock clock = std::chrono::steady_clock::now;
  SocketHook hook([](int, int, int) -> std::optional<int> {
    errno = EMFILE;
    return -1;
  });
  ExpectTrouble(Trouble::kUnreachable, "Too many open files",
                [&] { const NutConnection connection(LoopbackAddress(1), kNutPatience, clock); });
}

TEST(NutConnection, SendingGoesOnAfterInterruptionsAndInParts) {
  Server server(Answers({{"GET VAR a x", "VAR a x \"1\""}}));
  int calls = 0;
  SendHook hook([&](int fd, const void* data, std::size_t, int flags) -> std::optional<ssize_t> {
    ++calls;
    if (calls <= 2) {
      errno = calls == 1 ? EINTR : EAGAIN;
      return -1;
    }
    return send(fd, data, 1, flags);
  });
  EXPECT_EQ(server->Number("a", "x"), 1.0);
  EXPECT_EQ(calls, 2 + 12);
}

TEST(NutConnection, AFailedSendIsUnreachable) {
  Server server([](PeerConnection& connection) { connection.WaitForClose(); });
  SendHook hook([](int, const void*, std::size_t, int) -> std::optional<ssize_t> {
    errno = EPIPE;
    return -1;
  });
  ExpectTrouble(Trouble::kUnreachable, "Broken pipe", [&] { server->List(); });
}

TEST(NutConnection, NothingIsLeftOpen) {
  const std::set<int> before = OpenDescriptors();
  {
    Server server(Answers({{"GET VAR a x", "ERR DATA-STALE"}}));
    EXPECT_THROW(server->Number("a", "x"), NutError);
  }
  const node::MonotonicClock clock = std::chrono::steady_clock::now;
  EXPECT_THROW(NutConnection(LoopbackAddress(UnusedPort()), kNutPatience, clock), NutError);
  EXPECT_EQ(OpenDescriptors(), before);
}

}  // namespace
}  // namespace vt::testing

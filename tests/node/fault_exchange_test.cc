// Faults as clients meet them: the real program, asked through the library, whose outcomes and
// counters tell each kind; and what travels where those are coarse.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <cerrno>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "vtapi.h"

#include "files/file_descriptor.h"
#include "tests/api/api_support.h"
#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

// Longer than any test; the node ends such a pause with the connection.
constexpr char kForever[] = "3600000";

// Exchange is a collect of names, or a set or sum, on its way.
struct Exchange {
  SessionPtr session;
  QueryPtr query;
  CollectionPtr collection;

  explicit Exchange(std::uint16_t port, CollectionOptions options = {},
                    QueryCreator create = voltaris_createCollectQuery, const char* name = nullptr)
      : session(voltaris_createSession("127.0.0.1", port, kIdentity, nullptr, 0)),
        query(create("test", 100)) {
    const bool is_set = create == voltaris_createSetQuery;
    const std::uint8_t level = 3;
    if (is_set) EXPECT_EQ(voltaris_addSetAttribute(query.get(), VT_ATTRIBUTE_LEVEL, &level), 0);
    if (!is_set) {
      const bool is_sum = create == voltaris_createSumQuery;
      EXPECT_EQ(
          voltaris_addGetAttribute(query.get(), is_sum ? VT_ATTRIBUTE_USAGE : VT_ATTRIBUTE_NAME),
          0);
    }
    if (name != nullptr) EXPECT_EQ(voltaris_addNameQualifier(query.get(), name), 0);
    collection.reset(voltaris_startCollection(session.get(), query.get(), &options));
  }

  ReplyCollection* get() const { return collection.get(); }
  const CollectionCounters& counters() const { return *voltaris_getCollectionCounters(get()); }

  void Wait() const {
    pollfd watched = {voltaris_getCollectionDescriptor(get()), voltaris_getCollectionEvents(get()),
                      0};
    (void)poll(&watched, 1, voltaris_getCollectionTimeout(get()));
  }

  void RunUntil(const std::function<bool()>& is_enough) const {
    while (voltaris_stepCollection(get()) == VT_COLLECTION_PENDING && !is_enough()) Wait();
  }
};

// Seen is what an application sees of an answer.
struct Seen {
  std::int32_t outcome = 0;
  std::int32_t error = 0;
  std::int32_t error_code = 0;
  CollectionCounters counters{};
  std::string accepting;  // the numbers of the devices
  std::string refusing;
  std::string rows;
  std::size_t values = 0;
  std::multiset<int> shipments;  // of the messages that were taken
};

// NumberOf is the last digit of an identity, as DeviceId makes them.
char NumberOf(const std::uint8_t* id) { return static_cast<char>(id[31]); }

std::string Numbers(const AckEntry* entries, std::int32_t count) {
  std::string numbers;
  for (std::int32_t i = 0; i < count; ++i) numbers += NumberOf(entries[i].device_id);
  return numbers;
}

Seen See(const Exchange& exchange) {
  exchange.RunUntil([] { return false; });
  Seen seen;
  seen.outcome = voltaris_getCollectionOutcome(exchange.get());
  seen.error = voltaris_getCollectionErrno(exchange.get());
  seen.counters = exchange.counters();
  const ResultPtr result(voltaris_takeCollectionResult(exchange.get()));
  seen.error_code = voltaris_getErrorCode(result.get());
  seen.accepting = Numbers(voltaris_getAcks(result.get()), voltaris_getAckCount(result.get()));
  seen.refusing = Numbers(voltaris_getNaks(result.get()), voltaris_getNakCount(result.get()));
  const queue_element* event = result->events.head;
  for (; event != nullptr; event = event->next) {
    seen.shipments.insert(reinterpret_cast<const Event*>(event)->pak->shipment);
  }
  while (const ResultRow* row = voltaris_getNextRow(result.get())) {
    seen.rows += NumberOf(row->device->device.id.bytes);
    seen.values += static_cast<std::size_t>(row->attributes->depth);
  }
  return seen;
}

// Faulty is a node with two lamps and faults.
class Faulty {
 public:
  explicit Faulty(const std::string& faults, const std::vector<std::string>& arguments = {})
      : node_(TwoLamps(faults), arguments) {}

  Seen Collect(CollectionOptions options = {}) const { return See(Exchange(port(), options)); }
  Seen Set() const { return See(Exchange(port(), {}, voltaris_createSetQuery)); }
  Seen Sum() const { return See(Exchange(port(), {}, voltaris_createSumQuery)); }
  Seen CollectOf(const char* name) const {
    return See(Exchange(port(), {}, voltaris_createCollectQuery, name));
  }

  // Bytes of the answer to a collect of names, until the node ends the connection.
  Bytes Wire() const {
    PeerConnection connection = node_.Connect();
    connection.Send(Asking({9}).Signed(KeyOfSender()));
    return connection.ReadAll();
  }

  std::uint16_t port() const { return node_.port(); }
  Node& node() { return node_; }

 private:
  Node node_;
};

bool CanConnect(std::uint16_t port) {
  const files::FileDescriptor client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

void ExpectWhole(const Seen& seen) {
  EXPECT_EQ(seen.outcome, VT_COLLECTION_COMPLETE);
  EXPECT_EQ(seen.counters.accepted, 2u);
  EXPECT_EQ(seen.counters.malformed, 0u);
  EXPECT_EQ(seen.counters.forged, 0u);
  EXPECT_EQ(seen.accepting, "12");
  EXPECT_EQ(seen.rows, "12");
  EXPECT_EQ(seen.values, 2u);
}

// ExpectLampTwo is all that a fault of lamp-1 leaves when it takes lamp-1 away.
void ExpectLampTwo(const Seen& seen) {
  EXPECT_EQ(seen.outcome, VT_COLLECTION_COMPLETE);
  EXPECT_EQ(seen.error_code, 0);
  EXPECT_EQ(seen.accepting, "2");
  EXPECT_EQ(seen.rows, "2");
  EXPECT_EQ(seen.values, 1u);
}

const std::string kLampOne = "devices = \"lamp-1\"";

TEST(FaultExchange, WithoutAFaultTheAnswerIsWhole) {
  const Faulty faulty(FaultToml("nak", "enabled = false") + FaultToml("drop", "probability = 0"));
  ExpectWhole(faulty.Collect());
}

// --- devices ---

TEST(FaultExchange, NakIsSeenAsARefusal) {
  const Faulty faulty(FaultToml("nak", kLampOne));
  const Seen seen = faulty.Collect();
  ExpectLampTwo(seen);
  EXPECT_EQ(seen.refusing, "1");
  EXPECT_EQ(seen.counters.acknowledgements, 2u);
  EXPECT_EQ(faulty.Set().refusing, "1");
  EXPECT_EQ(faulty.Set().rows, "2");
  EXPECT_EQ(faulty.Sum().refusing, "1");
}

TEST(FaultExchange, LaterIsSeenAsAMessageThatIsTakenAndTellsNothing) {
  const Faulty faulty(FaultToml("later", kLampOne));
  const Seen seen = faulty.Collect();
  ExpectLampTwo(seen);
  EXPECT_EQ(seen.refusing, "");
  EXPECT_EQ(seen.counters.accepted, 3u);
  EXPECT_EQ(seen.shipments, (std::multiset<int>{CV_SHIPMENT_ACK_WILL, CV_SHIPMENT_ACK_LATER,
                                                CV_SHIPMENT_REPLY_NO_ERROR}));
  EXPECT_EQ(faulty.Set().shipments.count(CV_SHIPMENT_ACK_LATER), 1u);
  EXPECT_EQ(faulty.Sum().shipments.count(CV_SHIPMENT_ACK_LATER), 1u);
}

TEST(FaultExchange, SilentIsSeenAsADeviceThatIsMissing) {
  const Faulty faulty(FaultToml("silent", kLampOne));
  const Seen seen = faulty.Collect();
  ExpectLampTwo(seen);
  EXPECT_EQ(seen.refusing, "");
  EXPECT_EQ(seen.counters.accepted, 2u);
  EXPECT_EQ(faulty.Set().accepting, "2");
  EXPECT_EQ(faulty.Sum().accepting, "2");
}

TEST(FaultExchange, AWrongDigestIsSeenAsForged) {
  const Faulty faulty(FaultToml("wrong-digest", kLampOne));
  const Seen seen = faulty.Collect();
  ExpectLampTwo(seen);
  EXPECT_EQ(seen.counters.forged, 2u) << "the acknowledgement and the result";
  EXPECT_EQ(seen.counters.malformed, 0u);
  EXPECT_EQ(seen.counters.accepted, 2u);
}

TEST(FaultExchange, AMalformedElementIsSeenAsMalformed) {
  const Faulty faulty(FaultToml("malformed", kLampOne));
  const Seen seen = faulty.Collect();
  ExpectLampTwo(seen);
  EXPECT_EQ(seen.counters.malformed, 2u);
  EXPECT_EQ(seen.counters.forged, 0u);
  EXPECT_EQ(seen.counters.accepted, 2u);
}

TEST(FaultExchange, ADuplicateIsSeenTwice) {
  const Faulty faulty(FaultToml("duplicate", kLampOne));
  const Seen seen = faulty.Collect();
  EXPECT_EQ(seen.outcome, VT_COLLECTION_COMPLETE);
  EXPECT_EQ(seen.counters.accepted, 6u);
  EXPECT_EQ(seen.accepting, "112");
  EXPECT_EQ(seen.rows, "12") << "one row all the same";
  EXPECT_EQ(seen.values, 3u) << "with its value twice";
}

TEST(FaultExchange, AFaultOfOneDeviceLeavesQueriesForOthersAlone) {
  for (const char* kind : {"nak", "later", "silent", "wrong-digest", "malformed", "duplicate"}) {
    const Faulty faulty(FaultToml(kind, kLampOne));
    const Seen seen = faulty.CollectOf("lamp-2");
    EXPECT_EQ(seen.outcome, VT_COLLECTION_COMPLETE) << kind;
    EXPECT_EQ(seen.accepting, "2") << kind;
    EXPECT_EQ(seen.rows, "2") << kind;
  }
}

TEST(FaultExchange, AQueryThatNamesTheDeviceMeetsItsFault) {
  const Faulty faulty(FaultToml("close-early", kLampOne));
  EXPECT_EQ(faulty.CollectOf("lamp-2").rows, "2");
  EXPECT_EQ(faulty.CollectOf("lamp-1").counters.bytes, 0u);
  EXPECT_EQ(faulty.CollectOf("lamp*").counters.bytes, 0u);
}

// --- connections ---

TEST(FaultExchange, ADelayBeyondTheDeadlineIsSeenAsTheDeadline) {
  const Faulty faulty(FaultToml("delay", std::string("delay = ") + kForever));
  CollectionOptions options{};
  options.total_ms = 300;
  const Seen total = faulty.Collect(options);
  EXPECT_EQ(total.outcome, VT_COLLECTION_DEADLINE);
  EXPECT_EQ(total.error_code, VT_ERROR_TIMEOUT);
  EXPECT_EQ(total.counters.bytes, 0u);
  options = {};
  options.idle_ms = 300;
  EXPECT_EQ(faulty.Collect(options).outcome, VT_COLLECTION_IDLE);
}

TEST(FaultExchange, AShortDelayChangesNothingElse) {
  const Faulty faulty(FaultToml("delay", "delay = 30"));
  ExpectWhole(faulty.Collect());
}

TEST(FaultExchange, ADelayLastsNoLongerThanTheConnection) {
  Faulty faulty(FaultToml("delay", std::string("delay = ") + kForever),
                {"--connection-timeout", "1"});
  const Seen seen = faulty.Collect();
  EXPECT_EQ(seen.outcome, VT_COLLECTION_COMPLETE) << "which is all that the end of a stream tells";
  EXPECT_EQ(seen.counters.bytes, 0u);
  EXPECT_NE(faulty.node().Stop().err.find("took too long"), std::string::npos);
}

TEST(FaultExchange, ADripIsSeenAsAnAnswerInSteps) {
  const Faulty faulty(FaultToml("drip", std::string("bytes = 50\npause = ") + kForever));
  const Exchange exchange(faulty.port());
  exchange.RunUntil([&exchange] { return exchange.counters().bytes == 50; });
  EXPECT_EQ(voltaris_getCollectionOutcome(exchange.get()), VT_COLLECTION_PENDING);
  EXPECT_EQ(exchange.counters().accepted, 0u);
}

TEST(FaultExchange, ADripOfManyStepsIsTheSameAnswer) {
  const Faulty whole("");
  const Faulty faulty(FaultToml("drip", "bytes = 7\npause = 1"));
  ExpectWhole(faulty.Collect());
  EXPECT_EQ(faulty.Wire().size(), whole.Wire().size());
}

TEST(FaultExchange, ADripLastsNoLongerThanTheConnection) {
  const Faulty faulty(FaultToml("drip", std::string("bytes = 50\npause = ") + kForever),
                      {"--connection-timeout", "3"});
  EXPECT_EQ(faulty.Wire().size(), 50u);
}

TEST(FaultExchange, ADropIsSeenAsAMessageThatIsCutOff) {
  const Faulty faulty(FaultToml("drop"));
  const Seen seen = faulty.Collect();
  EXPECT_EQ(seen.outcome, VT_COLLECTION_COMPLETE);
  EXPECT_EQ(seen.counters.accepted, 1u);
  EXPECT_EQ(seen.counters.malformed, 1u);
  EXPECT_EQ(seen.accepting, "12");
  EXPECT_EQ(seen.values, 0u);
}

TEST(FaultExchange, ADropAfterAsManyBytesSendsThoseAlone) {
  const Bytes whole = Faulty("").Wire();
  const Bytes dropped = Faulty(FaultToml("drop", "after = 77")).Wire();
  EXPECT_EQ(dropped.size(), 77u);
  // Before its digest, which is that of another port, and behind it.
  EXPECT_EQ(Bytes(dropped.begin(), dropped.begin() + 12), Bytes(whole.begin(), whole.begin() + 12));
  EXPECT_EQ(Bytes(dropped.begin() + 32, dropped.end()),
            Bytes(whole.begin() + 32, whole.begin() + 77));
}

TEST(FaultExchange, ADropWithAResetIsSeenAsAnErrorOfReading) {
  const Faulty faulty(FaultToml("drop", "reset = true"));
  const Seen seen = faulty.Collect();
  EXPECT_EQ(seen.outcome, VT_COLLECTION_READ_ERROR);
  EXPECT_EQ(seen.error, ECONNRESET);
  EXPECT_EQ(seen.error_code, ECONNRESET);
}

TEST(FaultExchange, ClosingEarlyIsSeenAsAnAnswerWithoutItsEnd) {
  const Seen nothing = Faulty(FaultToml("close-early")).Collect();
  EXPECT_EQ(nothing.outcome, VT_COLLECTION_COMPLETE);
  EXPECT_EQ(nothing.counters.bytes, 0u);
  const Seen acknowledged = Faulty(FaultToml("close-early", "messages = 1")).Collect();
  EXPECT_EQ(acknowledged.outcome, VT_COLLECTION_COMPLETE);
  EXPECT_EQ(acknowledged.counters.accepted, 1u);
  EXPECT_EQ(acknowledged.counters.malformed, 0u);
  EXPECT_EQ(acknowledged.accepting, "12");
  EXPECT_EQ(acknowledged.values, 0u);
}

TEST(FaultExchange, ClosingEarlyWithAResetIsSeenAsAnErrorOfReading) {
  const Seen seen = Faulty(FaultToml("close-early", "reset = true")).Collect();
  EXPECT_EQ(seen.outcome, VT_COLLECTION_READ_ERROR);
  EXPECT_EQ(seen.error, ECONNRESET);
}

TEST(FaultExchange, ALengthTooGreatIsSeenAsAMessageWithoutItsEnd) {
  const Faulty faulty(FaultToml("bad-length", "by = 9"));
  const Seen seen = faulty.Collect();
  EXPECT_EQ(seen.outcome, VT_COLLECTION_COMPLETE);
  EXPECT_EQ(seen.counters.accepted, 1u);
  EXPECT_EQ(seen.counters.malformed, 1u);
  EXPECT_EQ(seen.values, 0u);
  const std::vector<Bytes> messages = SplitPdus(faulty.Wire());
  ASSERT_EQ(messages.size(), 2u);
  const Bytes& last = messages[1];
  EXPECT_EQ(last[kTlvBytesOffset] << 8 | last[kTlvBytesOffset + 1],
            static_cast<int>(last.size()) - 80 + 9);
}

TEST(FaultExchange, ALengthTooSmallIsSeenAsAMalformedMessageAndARest) {
  const Seen seen = Faulty(FaultToml("bad-length", "by = -4")).Collect();
  EXPECT_EQ(seen.outcome, VT_COLLECTION_COMPLETE);
  EXPECT_EQ(seen.counters.accepted, 1u);
  EXPECT_EQ(seen.counters.malformed, 2u) << "the message, and the four bytes behind it";
  EXPECT_EQ(seen.counters.forged, 0u);
}

TEST(FaultExchange, ALengthBeyondTheLargestMessageIsSeenAsOverSize) {
  const Seen seen = Faulty(FaultToml("bad-length", "by = 1320")).Collect();
  EXPECT_EQ(seen.outcome, VT_COLLECTION_OVER_SIZE);
  EXPECT_EQ(seen.counters.accepted, 1u);
}

TEST(FaultExchange, OverSizeIsSeenAsOverSize) {
  const Faulty faulty(FaultToml("over-size", "size = 3000"));
  const Seen seen = faulty.Collect();
  EXPECT_EQ(seen.outcome, VT_COLLECTION_OVER_SIZE);
  EXPECT_EQ(seen.error_code, EMSGSIZE);
  EXPECT_EQ(seen.counters.accepted, 1u);
  EXPECT_EQ(seen.accepting, "12");
  const std::vector<Bytes> messages = SplitPdus(faulty.Wire());
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[1].size(), 3000u) << "and it comes whole";
  EXPECT_EQ(Sign(messages[1], KeyOfSender()), messages[1]);
}

TEST(FaultExchange, TheBlockingCallsSeeThemToo) {
  const auto error_code_of = [](const std::string& fault) {
    const Faulty faulty(fault);
    const SessionPtr session(
        voltaris_createSession("127.0.0.1", faulty.port(), kIdentity, nullptr, 0));
    const QueryPtr query(voltaris_createCollectQuery("test", 100));
    EXPECT_EQ(voltaris_addGetAttribute(query.get(), VT_ATTRIBUTE_NAME), 0);
    EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), 0);
    const ResultPtr result(voltaris_queryResults(session.get(), query.get()));
    return std::pair(voltaris_getErrorCode(result.get()), voltaris_getRowCount(result.get()));
  };
  EXPECT_EQ(error_code_of(FaultToml("drop")), std::pair(0, 2)) << "rows of acknowledgements alone";
  EXPECT_EQ(error_code_of(FaultToml("drop", "reset = true")).first, ECONNRESET);
  EXPECT_EQ(error_code_of(FaultToml("silent", kLampOne)), std::pair(0, 1));
  EXPECT_EQ(error_code_of(FaultToml("wrong-digest", kLampOne)), std::pair(0, 1));
  EXPECT_EQ(error_code_of(FaultToml("drip", "bytes = 11\npause = 1")), std::pair(0, 2));
}

// --- whom and when ---

TEST(FaultExchange, ClientsAreToldApartByTheirAddress) {
  EXPECT_EQ(Faulty(FaultToml("close-early", "clients = \"127.0.0.0/8\"")).Collect().counters.bytes,
            0u);
  ExpectWhole(Faulty(FaultToml("close-early", "clients = \"192.0.2.0/24\"")).Collect());
}

TEST(FaultExchange, KindsOfQueriesAreToldApart) {
  const Faulty faulty(FaultToml("close-early", "queries = \"set\""));
  ExpectWhole(faulty.Collect());
  EXPECT_EQ(faulty.Sum().accepting, "12");
  EXPECT_EQ(faulty.Set().counters.bytes, 0u);
}

TEST(FaultExchange, TheSameSeedStrikesTheSameQueriesAgain) {
  const std::string fault = FaultToml("close-early", "probability = 0.5\nseed = 3");
  const auto strikes = [&fault] {
    const Faulty faulty(fault);
    std::string queries;
    for (int i = 0; i < 24; ++i) queries += faulty.Collect().counters.bytes == 0 ? 'x' : '.';
    return queries;
  };
  EXPECT_EQ(strikes(), "..x..x.xx.x....x....x.xx");
  EXPECT_EQ(strikes(), strikes());
}

TEST(FaultExchange, SlowAnswersHoldNobodyUp) {
  const std::string forever(kForever);
  const Faulty faulty(FaultToml("delay", "delay = " + forever + "\nqueries = \"collect\"") +
                      FaultToml("drip", "bytes = 1\npause = " + forever + "\nqueries = \"set\""));
  const Exchange delayed(faulty.port());
  const Exchange dripping(faulty.port(), {}, voltaris_createSetQuery);
  dripping.RunUntil([&dripping] { return dripping.counters().bytes == 1; });
  EXPECT_EQ(voltaris_stepCollection(delayed.get()), VT_COLLECTION_PENDING);
  EXPECT_EQ(faulty.Sum().accepting, "12");
  EXPECT_EQ(voltaris_stepCollection(delayed.get()), VT_COLLECTION_PENDING);
  EXPECT_EQ(voltaris_stepCollection(dripping.get()), VT_COLLECTION_PENDING);
}

TEST(FaultExchange, SlowAnswersDoNotKeepTheNodeFromItsEnd) {
  const std::string forever(kForever);
  Faulty faulty(FaultToml("delay", "delay = " + forever + "\nqueries = \"collect\"") +
                FaultToml("drip", "bytes = 1\npause = " + forever + "\nqueries = \"set\""));
  const Exchange delayed(faulty.port());
  const Exchange dripping(faulty.port(), {}, voltaris_createSetQuery);
  dripping.RunUntil([&dripping] { return dripping.counters().bytes == 1; });
  EXPECT_EQ(faulty.node().Stop().exit_code, 0);
  EXPECT_EQ(See(dripping).counters.bytes, 1u);
}

TEST(FaultExchange, ASecondSignalEndsTheNodeWithoutTheAnswerThatIsWaitedFor) {
  Faulty faulty(FaultToml("drip", std::string("bytes = 1\npause = ") + kForever));
  const Exchange dripping(faulty.port());
  dripping.RunUntil([&dripping] { return dripping.counters().bytes == 1; });
  Program& program = faulty.node().program();
  program.Signal(SIGTERM);
  while (CanConnect(faulty.port())) {
    // Until the signal has arrived.
  }
  program.Signal(SIGTERM);
  EXPECT_EQ(program.Finish().exit_code, 0);
  EXPECT_EQ(See(dripping).counters.bytes, 1u);
}

TEST(FaultExchange, AClientThatGoesAwayInADelayIsSurvived) {
  Faulty faulty(FaultToml("delay", "delay = 20\nqueries = \"collect\""));
  for (int i = 0; i < 5; ++i) {
    PeerConnection connection = faulty.node().Connect();
    connection.Send(Asking({9}).Signed(KeyOfSender()));
    connection.Reset();
  }
  ExpectWhole(faulty.Collect());
}

// --- switching ---

TEST(FaultExchange, AReloadSwitchesFaultsOnAndOff) {
  const TempFolder folder;
  const auto write = [&folder](const char* enabled) {
    return folder.Write("fleet.toml",
                        TwoLamps(FaultToml("silent", "enabled = " + std::string(enabled))));
  };
  Program node("voltaris-node", {"--config", write("false"), "--listen", "127.0.0.1:0"});
  const std::string line = node.ReadLine();
  const auto port = static_cast<std::uint16_t>(std::stoul(line.substr(line.rfind(':') + 1)));
  const auto rows = [port] { return See(Exchange(port)).rows; };
  EXPECT_EQ(rows(), "12");
  (void)write("true");
  node.Signal(SIGHUP);
  while (rows() != "") {
    // Until the signal has arrived.
  }
  (void)write("false");
  node.Signal(SIGHUP);
  while (rows() != "12") {
    // Likewise.
  }
  node.Signal(SIGTERM);
  const Outcome outcome = node.Finish();
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_NE(outcome.err.find("answers go wrong on purpose: faults that are enabled: 1"),
            std::string::npos)
      << outcome.err;
}

TEST(FaultExchange, TheCommandLineSwitchesFaultsOnByName) {
  const std::string faults =
      FaultToml("silent", "name = \"one\"\nenabled = false\n" + kLampOne) +
      FaultToml("nak", "name = \"two\"\nenabled = false\ndevices = \"lamp-2\"");
  EXPECT_EQ(Faulty(faults, {"--fault", "one"}).Collect().rows, "2");
  const Seen both = Faulty(faults, {"--fault", "one", "--fault", "two"}).Collect();
  EXPECT_EQ(both.rows, "");
  EXPECT_EQ(both.refusing, "2");
  ExpectWhole(Faulty(faults).Collect());
}

TEST(FaultExchange, ANameOfNoFaultIsWrongUsage) {
  const TempFolder folder;
  const std::string config = folder.Write("fleet.toml", TwoLamps(FaultToml("nak")));
  for (const std::string name : {"absent", ""}) {
    const Outcome outcome =
        Program("voltaris-node", {"--config", config, "--check-config", "--fault", name}).Finish();
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_NE(outcome.err.find("has no fault of the name '" + name + "'"), std::string::npos)
        << outcome.err;
  }
}

TEST(FaultExchange, TheLogTellsWhatStruck) {
  Faulty faulty(FaultToml("silent", "name = \"quiet\"\nrole = \"lamp\"") +
                    FaultToml("close-early", "probability = 1"),
                {"--log-level", "info"});
  (void)faulty.Collect();
  const std::string log = faulty.node().Stop().err;
  EXPECT_NE(log.find("fault 'quiet' (silent) struck devices: 2"), std::string::npos) << log;
  EXPECT_NE(log.find("fault close-early struck the connection"), std::string::npos) << log;
}

// --- the file ---

TEST(FaultExchange, AFaultThatIsWrongIsExitCodeTwoWithItsPlace) {
  const TempFolder folder;
  const std::string config = folder.Write(
      "fleet.toml", "[node]\nid = \"" + DeviceId(0) +
                        "\"\n[[fault]]\nkind = \"drip\"\nbytes = 0\n" + DeviceToml{}.Text());
  const Outcome outcome = Program("voltaris-node", {"--config", config}).Finish();
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_NE(outcome.err.find("fleet.toml:5:9: 'bytes' must be a whole number from 1"),
            std::string::npos)
      << outcome.err;
}

TEST(FaultExchange, TheExampleIsAConfiguration) {
  const std::string example = VT_TEST_DIR "/../examples/faults.toml";
  const Outcome outcome =
      Program("voltaris-node", {"--config", example, "--check-config"}).Finish();
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_NE(outcome.out.find("16 entities, faults: 12"), std::string::npos) << outcome.out;
}

}  // namespace
}  // namespace vt::testing

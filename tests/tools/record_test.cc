// Recording and replaying as an operator does: voltaris record against a node, and a node that
// answers from what came of it.

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "tests/harness/note.h"
#include "tests/harness/pdu_image.h"
#include "tests/harness/peer.h"
#include "tests/harness/sanitizers.h"
#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

using Strings = std::vector<std::string>;

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// WithoutTime is a recording without the one line that differs each time.
std::string WithoutTime(const std::string& recording) {
  std::istringstream lines(recording);
  std::string rest;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("time = ")) rest += line + '\n';
  }
  return rest;
}

std::string Record(const Node& node, Strings more = {}) {
  more.insert(more.begin(), "record");
  const Outcome outcome = node.Ask(more);
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  return outcome.out;
}

// Campus has every attribute, several entities of a device, profiles, noise, and power in units of
// several kinds.
std::string Campus() {
  DeviceToml device = CompleteDevice();
  device.more += "usage = 17\naddress = \"192.0.2.7:7440\"\nneighbors = [{ id = \"" + DeviceId(2) +
                 "\", label = \"next\", address = \"192.0.2.1:258\" },\n{ id = \"" + DeviceId(3) +
                 "\", reachable = false }]\n";
  DeviceToml port{.number = 2, .entity = 3, .name = "port-3", .role = "switch", .units = 6};
  return NodeToml({device, port}) +
         "[[group]]\ncount = 20\nentities = 3\nname = \"phone-{n}/{e}\"\nrole = \"phone\"\n"
         "watts = [0, 3]\nkeywords = [\"desk\"]\nnoise = 0.5\nnoise_interval = 1000000\n"
         "[[group]]\ncount = 2\nname = \"solar-{n}\"\nrole = \"solar\"\nwatts = [0, 500000]\n"
         "category = \"producer\"\ncaliber = \"max\"\n";
}

TEST(Record, AReplayedRecordingIsRecordedAgainAsItWas) {
  const std::string first = Record(Node(Campus()));
  EXPECT_NE(first.find("name = \"phone-20/3\""), std::string::npos) << first;
  const std::string second = Record(Node(first, {}, NodeFile::kRecording));
  EXPECT_EQ(WithoutTime(second), WithoutTime(first));
}

TEST(Record, AnAnonymousRecordingIsRecordedAgainAsItWas) {
  const std::string first = Record(Node(Campus()), {"--anonymize"});
  for (const char* trace : {"phone", "solar", "lamp", "device0", "192.0.2", "test", "desk"}) {
    EXPECT_EQ(first.find(trace), std::string::npos) << trace << " is in\n" << first;
  }
  const std::string second =
      Record(Node(first, {}, NodeFile::kRecording), {"--domain", "domain-1"});
  EXPECT_EQ(WithoutTime(second), WithoutTime(first));
}

TEST(Record, TwoAnonymousRecordingsHaveNoIdentityInCommon) {
  const Node node(Campus());
  const auto identity = [](const std::string& recording) {
    const std::size_t at = recording.find("entity = ");
    return recording.substr(at, 43);
  };
  EXPECT_NE(identity(Record(node, {"--anonymize"})), identity(Record(node, {"--anonymize"})));
}

TEST(Record, NamedAttributesAndSelectedDevicesAloneAreRecorded) {
  const Node node(Campus());
  const std::string recording =
      Record(node, {"level", "-a", "name,usage", "--name", "all", "--priority", "9"});
  EXPECT_EQ(WithoutTime(recording),
            "voltaris recording 1\nnode = \"" + DeviceId(0) +
                "\"\ndomain = \"test\"\nattributes = name, usage, level\n\nentity = \"" +
                DeviceId(1) + "\" 1\n  name = \"all\"\n  usage = 17 e-1\n  level = 4\n\nend\n");
  const Node replay(recording, {}, NodeFile::kRecording);
  EXPECT_EQ(WithoutTime(Record(replay, {"name", "usage", "level"})), WithoutTime(recording));
}

TEST(Record, AReplayedFleetObeysAndTakesItsUsageFromTheVector) {
  const Node replay(Record(Node(Campus())), {}, NodeFile::kRecording);
  EXPECT_EQ(replay.Ask({"collect", "usage", "--name", "all", "-o", "json"})
                .answer()["rows"][0]["usage"]["watts"],
            1.7);
  EXPECT_EQ(replay.Ask({"set", "--yes", "--name", "all", "level=10"}).exit_code, 0);
  const nlohmann::json row =
      replay.Ask({"collect", "usage", "level", "--name", "all", "-o", "json"}).answer()["rows"][0];
  EXPECT_EQ(row["usage"]["watts"], 5.0);
  EXPECT_EQ(row["level"], 10);
}

TEST(Record, TheFileIsWrittenAndTheOldOneReplaced) {
  const Node node(Campus());
  const TempFolder folder;
  const std::string path = folder.Write("a.recording", "old");
  EXPECT_EQ(Record(node, {"-o", path}), "");
  EXPECT_TRUE(ReadFile(path).starts_with("voltaris recording 1\n"));
  EXPECT_TRUE(ReadFile(path).ends_with("\nend\n"));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path("")), {}), 1);
}

TEST(Record, WithoutAWholeAnswerTheOldFileStays) {
  const TempFolder folder;
  const std::string path = folder.Write("a.recording", "old");
  const Node node(Campus());
  const Outcome nothing = node.Ask({"record", "--role", "nobody", "-o", path});
  EXPECT_EQ(nothing.exit_code, 7) << nothing.err;

  ScriptedPeer peer([](PeerConnection& connection) {
    connection.ReadPdu();
    connection.Reset();
  });
  const Outcome incomplete =
      Voltaris({"record", "--port", std::to_string(peer.port()), "-o", path});
  EXPECT_EQ(incomplete.exit_code, 6) << incomplete.err;
  EXPECT_EQ(ReadFile(path), "old");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path("")), {}), 1);
}

TEST(Record, ExitCodesAreThoseOfTheOtherCommands) {
  const Node node(Campus());
  EXPECT_EQ(node.Ask({"record", "watts"}).exit_code, 2);
  EXPECT_NE(node.Ask({"record", "identity"}).err.find("'identity'"), std::string::npos);
  EXPECT_EQ(node.Ask({"record", "--format", "json"}).exit_code, 2);
  EXPECT_EQ(node.Ask({"record", "-o", "/nonexistent/folder/x"}).exit_code, 9);
  EXPECT_EQ(node.Ask({"record", "--domain", "elsewhere"}).exit_code, 8);
  EXPECT_EQ(node.Ask({"record", "error", "--name", "phone*"}).exit_code, 0);
  const Outcome help = Voltaris({"record", "--help"});
  EXPECT_EQ(help.exit_code, 0);
  EXPECT_NE(help.out.find("Examples:"), std::string::npos);
  EXPECT_NE(help.out.find("neighbor-count"), std::string::npos);
}

TEST(Record, NobodyListeningIsNoConnection) {
  Node node(Campus());
  const std::string address = node.address();
  node.Stop();
  EXPECT_EQ(Voltaris({"record", "-n", address}).exit_code, 3);
}

// HostileReply is a signed result with these values of entity 1 of a device whose identity is no
// text.
Bytes HostileReply(const Bytes& query, const std::vector<std::pair<std::uint32_t, Bytes>>& values) {
  PduImage image;
  image.shipment = 1;
  image.cls = query[73];
  image.action = static_cast<std::uint16_t>(query[74] << 8 | query[75]);
  for (const auto& [type, value] : values) {
    image.elements.push_back(
        Element(0x80000000u | type, 0,
                Cat({DeviceHeader("\x1b[2Jdevice", Hex("0a 00 16 2e 7f000001 0102030405060708")),
                     U32(1), U32(1), value})));
  }
  return image.Signed(KeyBytes());
}

constexpr std::uint32_t kRole = 7;
constexpr std::uint32_t kName = 9;
constexpr std::uint32_t kKeywords = 10;
constexpr std::uint32_t kNeighbor = 28;
constexpr std::uint32_t kAcknowledgement = 42;

TEST(Record, HostileTextIsEscapedAndComesBackExactly) {
  ScriptedPeer peer([](PeerConnection& connection) {
    const Bytes query = connection.ReadPdu();
    connection.Send(
        HostileReply(query, {{kRole, Counted(Text("\x1b]0;owned\x07\r\n\"end\"\nend\n"))},
                             {kName, Counted(Hex("6c ff c2 9b e2 80 ae 5c 22"))},
                             {kKeywords, Counted(Text("a\nb") + Hex("00 00 fe 00"))},
                             {kNeighbor, Identity32("\x01\x02") + Counted(Text("\t")) +
                                             Counted(Hex("00 ff")) + U32(0xFFFFFFFF)}}));
  });
  const TempFolder folder;
  const std::string key = folder.Write("key", kKeyHex);
  const Outcome outcome =
      Voltaris({"record", "--port", std::to_string(peer.port()), "--key-file", key});
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  for (const char letter : outcome.out) {
    const auto code = static_cast<unsigned char>(letter);
    ASSERT_TRUE((code >= 0x20 && code < 0x7F) || code == '\n') << outcome.out;
  }
  EXPECT_NE(outcome.out.find("  role = \"\\x1b]0;owned\\x07\\r\\n\\\"end\\\"\\nend\\n\"\n"),
            std::string::npos)
      << outcome.out;
  EXPECT_NE(outcome.out.find("  name = \"l\\xff\\xc2\\x9b\\xe2\\x80\\xae\\\\\\\"\"\n"),
            std::string::npos)
      << outcome.out;
  EXPECT_NE(outcome.out.find("  keywords = \"a\\nb\", \"\", \"\\xfe\"\n"), std::string::npos)
      << outcome.out;
  EXPECT_NE(outcome.out.find("  address = 0x0a00162e7f0000010102030405060708\n"), std::string::npos)
      << outcome.out;

  const Node replay(outcome.out, {"--key-file", key}, NodeFile::kRecording);
  const std::string again = Record(replay, {"--domain", "default", "--key-file", key});
  EXPECT_EQ(WithoutTime(again), WithoutTime(outcome.out));
}

TEST(Record, ARefusalThatNamesAnEntityIsNotRecorded) {
  ScriptedPeer peer([](PeerConnection& connection) {
    Bytes refusal = HostileReply(connection.ReadPdu(), {{kAcknowledgement, {}}});
    refusal[69] = 0xFE;  // will not answer
    connection.Send(Sign(refusal, KeyBytes()));
  });
  const TempFolder folder;
  const Outcome outcome = Voltaris({"record", "--port", std::to_string(peer.port()), "--key-file",
                                    folder.Write("key", kKeyHex)});
  EXPECT_EQ(outcome.exit_code, 7) << outcome.out;
  EXPECT_EQ(outcome.out, "");
}

TEST(Record, TenThousandDevicesAreRecordedAndReplayed) {
  const std::string count = IsWatched() ? "500" : "10000";
  if (IsWatched()) Note() << "under a sanitizer or memcheck: " << count << " devices only\n";
  const std::string config = NodeToml({}) + "[[group]]\ncount = " + count +
                             "\nname = \"lamp-{n}\"\nrole = \"lamp\"\n"
                             "watts = [0, 36]\n";
  const std::string first = Record(Node(config));
  const std::string second = Record(Node(first, {}, NodeFile::kRecording));
  EXPECT_NE(first.find("\"lamp-" + count + '"'), std::string::npos);
  EXPECT_TRUE(WithoutTime(second) == WithoutTime(first));
}

TEST(Replay, ADamagedRecordingEndsTheStartWithItsPlace) {
  const TempFolder folder;
  std::string recording = Record(Node(Campus()));
  recording.resize(recording.size() - 4);
  const std::string path = folder.Write("a.recording", recording);
  const Outcome outcome =
      Program("voltaris-node", {"--replay", path, "--listen", "127.0.0.1:0"}).Finish();
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.out, "");
  EXPECT_NE(outcome.err.find(path + ":"), std::string::npos) << outcome.err;
  EXPECT_NE(outcome.err.find("the recording is not whole"), std::string::npos) << outcome.err;
}

TEST(Replay, CheckConfigCountsTheEntitiesOfARecording) {
  const TempFolder folder;
  const std::string path = folder.Write("a.recording", Record(Node(Campus())));
  const Outcome outcome = Program("voltaris-node", {"--replay", path, "--check-config"}).Finish();
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.out, path + ": 64 entities\n");
}

}  // namespace
}  // namespace vt::testing

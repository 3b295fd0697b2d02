// Faults as a configuration tells them, and what is wrong with them.
#include "node/fault_file.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

using node::Fault;
using node::FaultKind;

// The table of a fault begins in line 12.
std::string Config(const std::string& fault) {
  return "[node]\nid = \"" + DeviceId(0) + "\"\ndomain = \"test\"\n\n[[device]]\nid = \"" +
         DeviceId(1) + "\"\nname = \"lamp-1\"\nrole = \"lamp\"\nwatts = [0, 10]\n\n\n[[fault]]\n" +
         fault + "\n";
}

Fault Read(const std::string& fault) {
  const std::vector<Fault> faults = Load(Config(fault)).faults;
  EXPECT_EQ(faults.size(), 1u);
  return faults.empty() ? Fault() : faults.front();
}

// Complaint is what is said of a configuration, from behind its path.
std::string Complaint(const std::string& config) {
  try {
    (void)Load(config);
  } catch (const node::FleetError& error) {
    const std::string text = error.what();
    return text.substr(text.find(".toml:") + 6);
  }
  return "nothing";
}

std::string ComplaintOf(const std::string& fault) { return Complaint(Config(fault)); }

TEST(FaultFile, AKindIsAllThatMostFaultsNeed) {
  const std::pair<const char*, FaultKind> kinds[] = {
      {"nak", FaultKind::kNak},
      {"later", FaultKind::kLater},
      {"silent", FaultKind::kSilent},
      {"wrong-digest", FaultKind::kWrongDigest},
      {"malformed", FaultKind::kMalformed},
      {"duplicate", FaultKind::kDuplicate},
      {"drop", FaultKind::kDrop},
      {"close-early", FaultKind::kCloseEarly},
      {"bad-length", FaultKind::kBadLength},
      {"over-size", FaultKind::kOverSize},
  };
  for (const auto& [word, kind] : kinds) {
    const Fault fault = Read("kind = \"" + std::string(word) + "\"");
    EXPECT_EQ(fault.kind, kind);
    EXPECT_EQ(fault.name, "");
    EXPECT_TRUE(fault.enabled);
    EXPECT_EQ(fault.probability, 1'000'000);
    EXPECT_FALSE(fault.target.NamesDevices());
    EXPECT_TRUE(fault.target.clients.empty());
    EXPECT_EQ(fault.target.queries, node::kAllQueries);
    EXPECT_FALSE(fault.reset);
  }
}

TEST(FaultFile, EachKindHasItsSettings) {
  EXPECT_EQ(Read("kind = \"delay\"\ndelay = 250").delay.count(), 250);
  const Fault drip = Read("kind = \"drip\"\nbytes = 7\npause = 30");
  EXPECT_EQ(drip.bytes, 7u);
  EXPECT_EQ(drip.pause.count(), 30);
  EXPECT_EQ(Read("kind = \"drop\"").after, std::nullopt);
  const Fault drop = Read("kind = \"drop\"\nafter = 100\nreset = true");
  EXPECT_EQ(drop.after, 100u);
  EXPECT_TRUE(drop.reset);
  EXPECT_EQ(Read("kind = \"close-early\"").messages, 0u);
  const Fault early = Read("kind = \"close-early\"\nmessages = 2\nreset = true");
  EXPECT_EQ(early.messages, 2u);
  EXPECT_TRUE(early.reset);
  EXPECT_EQ(Read("kind = \"bad-length\"").by, 8);
  EXPECT_EQ(Read("kind = \"bad-length\"\nby = -5").by, -5);
  EXPECT_EQ(Read("kind = \"over-size\"").size, 2000u);
  EXPECT_EQ(Read("kind = \"over-size\"\nsize = 65567").size, 65567u);
}

TEST(FaultFile, WhomAndHowOftenItStrikes) {
  const Fault fault = Read(
      "kind = \"nak\"\nname = \"some\"\nenabled = false\nprobability = 0.25\nseed = 9\n"
      "devices = [\"a*\", \"b\"]\nid = \"" +
      DeviceId(1) +
      "\"\nrole = \"lamp\"\nkeyword = \"light\"\ndomain = \"test\"\n"
      "clients = [\"127.0.0.1\", \"10.0.0.0/8\"]\nqueries = [\"collect\", \"sum\"]");
  EXPECT_EQ(fault.name, "some");
  EXPECT_EQ(fault.title(), "fault 'some' (nak)");
  EXPECT_FALSE(fault.enabled);
  EXPECT_EQ(fault.probability, 250'000);
  EXPECT_EQ(fault.seed, 9u);
  EXPECT_EQ(fault.target.devices, (std::vector<std::string>{"a*", "b"}));
  EXPECT_TRUE(fault.target.id);
  EXPECT_EQ(fault.target.role, "lamp");
  EXPECT_EQ(fault.target.keyword, "light");
  EXPECT_EQ(fault.target.domain, "test");
  EXPECT_EQ(fault.target.clients.size(), 2u);
  EXPECT_EQ(fault.target.queries, 11u);
}

TEST(FaultFile, WhatIsWrongIsToldWithItsPlace) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "12:1: 'kind' is missing"},
      {"kind = \"nack\"",
       "13:8: 'kind' must be one of nak, later, silent, wrong-digest, malformed, duplicate, delay, "
       "drip, drop, close-early, bad-length, over-size"},
      {"kind = \"nak\"\nprobabilty = 1", "14:1: there is no setting 'probabilty' here"},
      {"kind = \"nak\"\nprobability = 1.5", "14:15: 'probability' must be a number from 0 to 1"},
      {"kind = \"nak\"\nprobability = -0.1", "14:15: 'probability' must be a number from 0 to 1"},
      {"kind = \"nak\"\nprobability = nan", "14:15: 'probability' must be a number from 0 to 1"},
      {"kind = \"nak\"\nseed = 1", "14:8: a 'seed' decides nothing without a 'probability'"},
      {"kind = \"nak\"\nprobability = 1\nseed = -1",
       "15:8: 'seed' must be a whole number from 0 to 9223372036854775807"},
      {"kind = \"nak\"\nenabled = \"no\"", "14:11: 'enabled' must be true or false"},
      {"kind = \"nak\"\ndevices = []", "14:11: 'devices' must not be empty"},
      {"kind = \"nak\"\ndevices = [\"\"]", "14:11: 'devices' must not be empty"},
      {"kind = \"nak\"\ndevices = 5", "14:11: 'devices' must be a list of texts"},
      {"kind = \"nak\"\ndevices = \"*-1\"", "14:11: a star may stand at the end of a name only"},
      {"kind = \"nak\"\nid = \"short\"", "14:6: 'id' must have 32 characters, and has 5"},
      {"kind = \"nak\"\nid = \"device00000000000000000000000007\"", "14:6: no device has this id"},
      {"kind = \"nak\"\ndomain = \"elsewhere\"", "14:10: no device is in the domain 'elsewhere'"},
      {"kind = \"nak\"\nclients = \"localhost\"",
       "14:11: a client must be an IPv4 address or a network such as 192.0.2.0/24, and not "
       "'localhost'"},
      {"kind = \"nak\"\nclients = \"10.0.0.0/33\"",
       "14:11: a client must be an IPv4 address or a network such as 192.0.2.0/24, and not "
       "'10.0.0.0/33'"},
      {"kind = \"nak\"\nclients = \"10.0.0.1/8\"",
       "14:11: a client must be an IPv4 address or a network such as 192.0.2.0/24, and not "
       "'10.0.0.1/8'"},
      {"kind = \"nak\"\nqueries = \"read\"",
       "14:11: 'queries' must be one or more of collect, set, sum"},
      {"kind = \"nak\"\nqueries = []", "14:11: 'queries' must not be empty"},
      {"kind = \"nak\"\ndelay = 5", "14:9: 'delay' is a setting of delay, and not of nak"},
      {"kind = \"delay\"\ndelay = 5\nbytes = 5",
       "15:9: 'bytes' is a setting of drip, and not of delay"},
      {"kind = \"over-size\"\nreset = true",
       "14:9: 'reset' is a setting of drop and close-early, and not of over-size"},
      {"kind = \"delay\"", "12:1: 'delay' is missing"},
      {"kind = \"delay\"\ndelay = 0", "14:9: 'delay' must be a whole number from 1 to 3600000"},
      {"kind = \"drip\"\npause = 5", "12:1: 'bytes' is missing"},
      {"kind = \"drip\"\nbytes = 5", "12:1: 'pause' is missing"},
      {"kind = \"drip\"\nbytes = 0\npause = 5",
       "14:9: 'bytes' must be a whole number from 1 to 1000000"},
      {"kind = \"drop\"\nafter = 0", "14:9: 'after' must be a whole number from 1 to 2147483647"},
      {"kind = \"close-early\"\nmessages = -1",
       "14:12: 'messages' must be a whole number from 0 to 1000000"},
      {"kind = \"bad-length\"\nby = 0", "14:6: with a 'by' of 0 the length would be right"},
      {"kind = \"bad-length\"\nby = 1321", "14:6: 'by' must be a whole number from -1320 to 1320"},
      {"kind = \"over-size\"\nsize = 1411",
       "14:8: 'size' must be a whole number from 1412 to 65567"},
      {"kind = \"over-size\"\nsize = 65568",
       "14:8: 'size' must be a whole number from 1412 to 65567"},
      {"kind = \"nak\"\nname = \"a\"\n[[fault]]\nkind = \"nak\"\nname = \"a\"",
       "17:8: an earlier fault has the name 'a'"},
  };
  for (const auto& [fault, complaint] : cases) EXPECT_EQ(ComplaintOf(fault), complaint) << fault;
}

TEST(FaultFile, AFaultThatIsNotATableIsAMistake) {
  const std::string fleet = NodeTable() + DeviceToml{}.Text();
  EXPECT_EQ(Complaint("fault = 3\n" + fleet), "1:9: 'fault' must be a list of tables");
  EXPECT_EQ(Complaint("fault = [3]\n" + fleet), "1:10: 'fault' must be a list of tables");
}

// A host may have devices that only its sensors tell of.
TEST(FaultFile, ADeviceThatIsNotThereMayBeOneOfTheHost) {
  EXPECT_EQ(Complaint(NodeTable("[host]\n[[fault]]\nkind = \"nak\"\n"
                                "id = \"device00000000000000000000000007\"\n")),
            "nothing");
}

TEST(FaultFile, TheExampleLoads) {
  const std::vector<Fault> faults = node::LoadFleet(VT_TEST_DIR "/../examples/faults.toml").faults;
  EXPECT_EQ(faults.size(), 12u) << "one of each kind";
  for (std::size_t i = 0; i < faults.size(); ++i) {
    EXPECT_EQ(faults[i].kind, static_cast<FaultKind>(i));
    EXPECT_FALSE(faults[i].name.empty());
  }
}

}  // namespace
}  // namespace vt::testing

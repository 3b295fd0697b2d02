#include "node/host/nut.h"

#include <gtest/gtest.h>

#include "tests/node/host/nut_script.h"

namespace vt::testing {
namespace {

using node::Caliber;
using node::Category;
using node::Findings;
using node::NutSource;
using node::Reading;
using node::Trouble;

const std::string kTwoSupplies = "BEGIN LIST UPS\nUPS a \"The first\"\nUPS b\nEND LIST UPS";
const Dialogue kFindTwo = {{"LIST UPS", kTwoSupplies},
                           {"GET VAR a ups.realpower", "VAR a ups.realpower \"120\""},
                           {"GET VAR b ups.realpower", "ERR VAR-NOT-SUPPORTED"}};

// Scripted is a source and its server, with a dialogue for each connection.
class Scripted {
 public:
  explicit Scripted(const Dialogues& dialogues)
      : peer_(NutScript(dialogues), dialogues.size()),
        source_(LoopbackAddress(peer_.port()), kNutPatience,
                [] { return std::chrono::steady_clock::now(); }) {}

  NutSource* operator->() { return &source_; }
  std::string where() const { return "127.0.0.1:" + std::to_string(peer_.port()) + ": "; }

 private:
  ScriptedPeer peer_;
  NutSource source_;
};

TEST(Nut, PowerIsMeasuredOrEstimatedFromTheLoad) {
  Scripted source(
      Dialogues{kFindTwo,
                {{"GET VAR a ups.realpower", "VAR a ups.realpower \"121.5\""},
                 {"GET VAR b ups.load", "VAR b ups.load \"25\""},
                 {"GET VAR b ups.realpower.nominal", "VAR b ups.realpower.nominal \"900\""}}});
  const Findings findings = source->Find();
  ASSERT_EQ(findings.entities.size(), 2u);
  EXPECT_EQ(findings.entities[0].key, "nut/a");
  EXPECT_EQ(findings.entities[0].name, "The first");
  EXPECT_EQ(findings.entities[0].caliber, Caliber::kMeasured);
  EXPECT_EQ(findings.entities[0].category, Category::kMeter);
  EXPECT_EQ(findings.entities[1].name, "b");
  EXPECT_EQ(findings.entities[1].caliber, Caliber::kEstimated);
  const std::vector<Reading> readings = source->Read();
  ASSERT_EQ(readings.size(), 2u);
  EXPECT_EQ(readings[0].milliwatts, 121500);
  EXPECT_EQ(readings[1].milliwatts, 225000);
  EXPECT_EQ(readings[1].category, Category::kMeter);
}

TEST(Nut, OneSupplyThatFailsDoesNotKeepTheOthersFromBeingRead) {
  Scripted source(
      Dialogues{kFindTwo,
                {{"GET VAR a ups.realpower", "ERR DATA-STALE"},
                 {"GET VAR b ups.load", "VAR b ups.load \"10\""},
                 {"GET VAR b ups.realpower.nominal", "VAR b ups.realpower.nominal \"100\""}}});
  ASSERT_EQ(source->Find().entities.size(), 2u);
  const std::vector<Reading> readings = source->Read();
  ASSERT_EQ(readings.size(), 2u);
  EXPECT_EQ(readings[0].trouble, Trouble::kFaulty);
  EXPECT_EQ(readings[0].detail, source.where() + "the server answers \"ERR DATA-STALE\"");
  EXPECT_EQ(readings[1].milliwatts, 10000);
}

TEST(Nut, ASupplyThatTellsTooLittleSaysWhatIsMissing) {
  Scripted source(Dialogues{{{"LIST UPS", "BEGIN LIST UPS\nUPS b\nEND LIST UPS"},
                             {"GET VAR b ups.realpower", "ERR VAR-NOT-SUPPORTED"}},
                            {{"GET VAR b ups.load", "VAR b ups.load \"10\""},
                             {"GET VAR b ups.realpower.nominal", "ERR VAR-NOT-SUPPORTED"}}});
  ASSERT_EQ(source->Find().entities.size(), 1u);
  const Reading reading = source->Read().at(0);
  EXPECT_EQ(reading.trouble, Trouble::kGone);
  EXPECT_EQ(reading.detail, source.where() + "b has no ups.realpower.nominal");
  EXPECT_NE(source->Advice(reading.trouble).find("ups.realpower.nominal"), std::string::npos);
}

TEST(Nut, ASupplyThatIsStaleWhenItIsFoundIsListed) {
  Scripted source(Dialogues{{{"LIST UPS", "BEGIN LIST UPS\nUPS a\nEND LIST UPS"},
                             {"GET VAR a ups.realpower", "ERR DRIVER-NOT-CONNECTED"}}});
  ASSERT_EQ(source->Find().entities.size(), 1u);
}

TEST(Nut, HugePowersAreFaulty) {
  Scripted source(
      Dialogues{{{"LIST UPS", "BEGIN LIST UPS\nUPS a\nEND LIST UPS"},
                 {"GET VAR a ups.realpower", "VAR a ups.realpower \"1\""}},
                {{"GET VAR a ups.realpower", "VAR a ups.realpower \"999999999999999999\""}}});
  ASSERT_EQ(source->Find().entities.size(), 1u);
  EXPECT_EQ(source->Read().at(0).trouble, Trouble::kFaulty);
}

TEST(Nut, AServerThatGoesAwayLeavesAllUnreachable) {
  Scripted source(Dialogues{kFindTwo});
  ASSERT_EQ(source->Find().entities.size(), 2u);
  const std::vector<Reading> readings = source->Read();
  ASSERT_EQ(readings.size(), 2u);
  for (const Reading& reading : readings) {
    EXPECT_EQ(reading.trouble, Trouble::kUnreachable);
    EXPECT_EQ(reading.detail, source.where() + "Connection refused");
  }
}

TEST(Nut, AServerThatClosesInBetweenKeepsWhatItHasToldBefore) {
  int connection_number = 0;
  ScriptedPeer peer(
      [&](PeerConnection& connection) {
        if (connection_number++ == 0) return Play(connection, kFindTwo);
        connection.ReadExactly(std::string("GET VAR a ups.realpower\n").size());
        connection.Send(Text("VAR a ups.realpower \"7\"\n"));
        connection.ReadExactly(std::string("GET VAR b ups.load\n").size());
      },
      2);
  NutSource source(LoopbackAddress(peer.port()), kNutPatience,
                   [] { return std::chrono::steady_clock::now(); });
  ASSERT_EQ(source.Find().entities.size(), 2u);
  const std::vector<Reading> readings = source.Read();
  ASSERT_EQ(readings.size(), 2u);
  EXPECT_EQ(readings[0].milliwatts, 7000);
  EXPECT_EQ(readings[1].trouble, Trouble::kUnreachable);
}

TEST(Nut, FindingNothingSaysWhy) {
  Scripted refusing(Dialogues{{{"LIST UPS", "ERR ACCESS-DENIED"}}});
  Findings findings = refusing->Find();
  EXPECT_TRUE(findings.entities.empty());
  EXPECT_EQ(findings.trouble, Trouble::kDenied);
  EXPECT_EQ(findings.note, refusing.where() + "the server answers \"ERR ACCESS-DENIED\"");
  EXPECT_TRUE(refusing->Read().empty()) << "without a connection";
  Scripted empty(Dialogues{{{"LIST UPS", "BEGIN LIST UPS\nEND LIST UPS"}}});
  findings = empty->Find();
  EXPECT_EQ(findings.trouble, Trouble::kNone);
  EXPECT_EQ(findings.note, empty.where() + "no supply");
}

TEST(Nut, EachTroubleHasAnAdviceOfItsOwn) {
  Scripted source(Dialogues{{{"LIST UPS", "ERR ACCESS-DENIED"}}});
  std::set<std::string> advices;
  for (const Trouble trouble :
       {Trouble::kDenied, Trouble::kUnreachable, Trouble::kGone, Trouble::kFaulty}) {
    advices.insert(source->Advice(trouble));
  }
  EXPECT_EQ(advices.size(), 4u);
}

}  // namespace
}  // namespace vt::testing

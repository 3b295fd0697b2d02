#include "node/replay_window.h"

#include <gtest/gtest.h>

#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

using node::ReplayWindow;
using std::chrono::seconds;

ReplayWindow::Digest DigestOf(std::uint32_t number) {
  ReplayWindow::Digest digest{};
  for (std::size_t i = 0; i < 4; ++i) digest[i] = static_cast<std::uint8_t>(number >> 8 * i);
  return digest;
}

ReplayWindow::Time After(int time) { return ReplayWindow::Time(seconds(time)); }

TEST(ReplayWindow, TheSameDigestIsAdmittedOnceWithinTheWindow) {
  ReplayWindow window(seconds(10));
  EXPECT_TRUE(window.Admit(DigestOf(1), After(0)));
  EXPECT_TRUE(window.Admit(DigestOf(2), After(0)));
  EXPECT_FALSE(window.Admit(DigestOf(1), After(9)));
}

TEST(ReplayWindow, ARepetitionDoesNotLengthenTheWindow) {
  ReplayWindow window(seconds(10));
  EXPECT_TRUE(window.Admit(DigestOf(1), After(0)));
  EXPECT_FALSE(window.Admit(DigestOf(1), After(9)));
  EXPECT_TRUE(window.Admit(DigestOf(1), After(10)));
  EXPECT_FALSE(window.Admit(DigestOf(1), After(19)));
}

TEST(ReplayWindow, WhenItIsFullTheOldestGoFirst) {
  ReplayWindow window(seconds(1000), 3);
  for (std::uint32_t i = 1; i <= 4; ++i) EXPECT_TRUE(window.Admit(DigestOf(i), After(0)));
  EXPECT_EQ(window.size(), 3u);
  EXPECT_FALSE(window.Admit(DigestOf(2), After(1)));
  EXPECT_TRUE(window.Admit(DigestOf(1), After(1))) << "it was forgotten";
}

TEST(ReplayWindow, ItsMemoryIsBounded) {
  ReplayWindow window(seconds(1000));
  for (std::uint32_t i = 0; i < 200'000; ++i) window.Admit(DigestOf(i), After(0));
  EXPECT_EQ(window.size(), 65536u);
  window.Admit(DigestOf(0), After(1000));
  EXPECT_EQ(window.size(), 1u) << "the others are too old";
}

TEST(ReplayWindow, AnotherLengthCountsForWhatWasSeenBefore) {
  ReplayWindow window(seconds(10));
  EXPECT_TRUE(window.Admit(DigestOf(1), After(0)));
  window.Resize(seconds(100));
  EXPECT_FALSE(window.Admit(DigestOf(1), After(50)));
  window.Resize(seconds(20));
  EXPECT_TRUE(window.Admit(DigestOf(1), After(50)));
}

// --- in the node ---

std::string Guarded(const std::string& setting) { return NodeTable(setting) + DeviceToml{}.Text(); }

std::size_t AnswersTo(const Node& node, const Bytes& query) {
  PeerConnection connection = node.Connect();
  connection.Send(query);
  connection.HalfClose();
  return SplitPdus(connection.ReadAll()).size();
}

TEST(ReplayWindow, ANodeWithoutOneAnswersARepetition) {
  const Node node(Guarded(""));
  const Bytes query = Asking({9}).Signed(KeyOfSender());
  EXPECT_EQ(AnswersTo(node, query), 2u);
  EXPECT_EQ(AnswersTo(node, query), 2u);
}

TEST(ReplayWindow, ANodeWithOneDropsTheRepetitionAndNothingElse) {
  Node node(Guarded("replay_window = 3600"));
  PduImage image = Asking({9});
  const Bytes first = image.Signed(KeyOfSender());
  EXPECT_EQ(AnswersTo(node, first), 2u);
  EXPECT_EQ(AnswersTo(node, first), 0u);
  ++image.seq;
  EXPECT_EQ(AnswersTo(node, image.Signed(KeyOfSender())), 2u) << "another number";
  Bytes forged = first;
  forged.back() = static_cast<std::uint8_t>(forged.back() ^ 1);
  EXPECT_EQ(AnswersTo(node, forged), 0u);
  const Outcome outcome = node.Stop();
  EXPECT_NE(outcome.err.find("it was sent before"), std::string::npos) << outcome.err;
  EXPECT_NE(outcome.err.find("its digest does not match"), std::string::npos) << outcome.err;
}

TEST(ReplayWindow, AForgedMessageDoesNotKeepTheGenuineOneOut) {
  const Node node(Guarded("replay_window = 3600"));
  const Bytes query = Asking({9}).Signed(KeyOfSender());
  Bytes forged = query;
  forged.back() = static_cast<std::uint8_t>(forged.back() ^ 1);
  EXPECT_EQ(AnswersTo(node, forged), 0u);
  EXPECT_EQ(AnswersTo(node, query), 2u);
}

TEST(ReplayWindow, AWindowThatIsNoneIsToldWithItsPlace) {
  for (const std::string value : {"0", "-1", "86401", "\"1\"", "1.5"}) {
    try {
      (void)Load(Guarded("replay_window = " + value));
      ADD_FAILURE() << value;
    } catch (const node::FleetError& error) {
      EXPECT_EQ(error.line(), 6u) << error.what();
      EXPECT_NE(std::string(error.what()).find("replay_window"), std::string::npos) << error.what();
    }
  }
  EXPECT_EQ(Load(Guarded("replay_window = 86400")).replay_window, seconds(86400));
  EXPECT_FALSE(Load(Guarded("")).replay_window);
}

}  // namespace
}  // namespace vt::testing

// voltaris watch: plain lines where nobody looks, and a screen of its own on a terminal, which is
// as it was when it has ended.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/harness/peer.h"
#include "tests/harness/sanitizers.h"
#include "tests/tools/programs.h"
#include "tests/tools/terminal_screen.h"

namespace vt::testing {
namespace {

using Strings = std::vector<std::string>;

// The lamps use 10 and 20 W, and the roof makes 30 W.
std::string LampsAndRoof() {
  return NodeToml({{.number = 1, .name = "lamp-1"},
                   {.number = 2, .name = "lamp-2", .step = 2},
                   {.number = 3, .name = "roof", .step = 3, .more = "category = \"producer\""}});
}

// --- plain lines ---

TEST(VoltarisWatch, WritesABlockARoundWhereThereIsNoTerminal) {
  const Node node(LampsAndRoof());
  const Outcome outcome = node.Ask({"watch", "--count", "2", "-i", "0.001"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "");
  const std::string rows =
      "device                            entity  name    level  usage  change\n" + DeviceId(1) +
      "       1  lamp-1     10   10 W     0 W\n" + DeviceId(2) +
      "       1  lamp-2     10   20 W     0 W\n" + DeviceId(3) +
      "       1  roof       10   30 W     0 W\n\n";
  const std::string sums =
      ": consumers 30 W (0 W) of 2 entities; producers 30 W (0 W) of 1 entity; 1 node\n";
  EXPECT_EQ(outcome.out, "round 1" + sums + rows + "round 2" + sums + rows);
}

TEST(VoltarisWatch, TellsWhatChangesBetweenRounds) {
  const Node node(LampsAndRoof());
  Program program("voltaris", {"watch", "--count", "2", "-i", "2", "--name", "lamp-2", "-d", "test",
                               "-n", node.address()});
  EXPECT_NE(program.ReadLine().find("round 1: consumers 20 W (0 W)"), std::string::npos);
  EXPECT_EQ(node.Ask({"set", "--name", "lamp-2", "level=4", "--yes"}).exit_code, 0);
  const Outcome outcome = program.Finish();
  EXPECT_NE(outcome.out.find("round 2: consumers 8 W (-12 W) of 1 entity"), std::string::npos)
      << outcome.out;
}

TEST(VoltarisWatch, SortsAsItIsTold) {
  const Node node(LampsAndRoof());
  const Outcome outcome = node.Ask({"watch", "--count", "1", "--sort", "usage:desc"});
  EXPECT_LT(outcome.out.find("roof"), outcome.out.find("lamp-2")) << outcome.out;
  EXPECT_LT(outcome.out.find("lamp-2"), outcome.out.find("lamp-1")) << outcome.out;
}

TEST(VoltarisWatch, NodesThatFailDoNotEndIt) {
  const Outcome outcome =
      Voltaris({"watch", "--count", "2", "-i", "0.001", "-n", NobodysAddress()});
  EXPECT_EQ(outcome.exit_code, 3);
  EXPECT_NE(outcome.out.find("round 2: no entity answered; 1 node, 1 failed\n"), std::string::npos)
      << outcome.out;
}

TEST(VoltarisWatch, TheExitCodeIsThatOfTheLastRound) {
  const Node node(LampsAndRoof());
  const Outcome outcome = Voltaris(
      {"watch", "--count", "1", "-d", "test", "-n", node.address() + "," + NobodysAddress()});
  EXPECT_EQ(outcome.exit_code, 1);
}

TEST(VoltarisWatch, GoesOnWhenAKeyFileIsGoneForAWhile) {
  const TempFolder folder;
  const std::string path = folder.Write("key", kKeyHex);
  const Node node(LampsAndRoof(), {"--key-file", path});
  Program program("voltaris", {"watch", "--count", "2", "-i", "1", "-d", "test", "-n",
                               node.address(), "--key-file", path});
  EXPECT_NE(program.ReadLine().find("round 1: consumers 30 W"), std::string::npos);
  ASSERT_EQ(unlink(path.c_str()), 0);
  const Outcome outcome = program.Finish();
  EXPECT_NE(outcome.out.find(": not-asked: cannot read the key file "), std::string::npos)
      << outcome.out;
}

TEST(VoltarisWatch, TwoForWrongUsage) {
  const TempFolder folder;
  const std::string open_key = folder.Write("key", kKeyHex, 0644);
  for (const Strings& words :
       {Strings{"watch", "-o", "json"}, Strings{"watch", "--sort", "power"},
        Strings{"watch", "-i", "0"}, Strings{"--columns", "name", "watch"},
        Strings{"watch", "--count", "x"}, Strings{"watch", "--key-file", open_key}}) {
    const Outcome outcome = Voltaris(words);
    EXPECT_EQ(outcome.exit_code, 2) << words.back();
    EXPECT_EQ(outcome.out, "");
  }
}

TEST(VoltarisWatch, ASignalEndsTheLines) {
  const Node node(LampsAndRoof());
  Program program("voltaris", {"watch", "-i", "3600", "-d", "test", "-n", node.address()});
  EXPECT_NE(program.ReadLine(), "");
  program.Signal(SIGTERM);
  EXPECT_EQ(program.Finish().exit_code, 128 + SIGTERM);
}

TEST(VoltarisWatch, AReaderThatHasGoneEndsIt) {
  const Node node(LampsAndRoof());
  Program program("voltaris", {"watch", "-i", "0.001", "-d", "test", "-n", node.address()});
  EXPECT_NE(program.ReadLine(), "");
  program.CloseOutput();
  EXPECT_EQ(program.Finish().exit_code, 128 + SIGPIPE);
}

TEST(VoltarisWatch, WritesLinesWhereTheTerminalIsNotKnown) {
  const Node node(LampsAndRoof());
  const Outcome outcome = node.Ask({"watch", "--count", "1"}, {{"TERM", "dumb"}});
  EXPECT_EQ(outcome.out.find("round 1: "), 0u);
  Program program("voltaris", {"watch", "--count", "1", "-d", "test", "-n", node.address()},
                  {{"TERM", "no-such-terminal"}}, Terminal::kScreen);
  EXPECT_EQ(program.Finish().out.find("round 1: "), 0u);
}

// --- the screen ---

constexpr std::size_t kWidth = 100;
constexpr std::size_t kHeight = 24;

termios ModesOf(int terminal) {
  termios modes{};
  EXPECT_EQ(tcgetattr(terminal, &modes), 0);
  return modes;
}

// FreshModes are those that all new terminals have. Those of a watch may have changed before it can
// be asked for them.
termios FreshModes() {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  const termios modes = ModesOf(terminal);
  close(terminal);
  return modes;
}

// ScreenWatch is a watch on a terminal, and what that shows.
class ScreenWatch {
 public:
  explicit ScreenWatch(const Strings& addresses, Strings more = {"-i", "3600"},
                       const std::string& locale = "C.UTF-8") {
    std::string list;
    for (const std::string& address : addresses) list += (list.empty() ? "" : ",") + address;
    more.insert(more.begin(), {"watch", "-d", "test", "-n", list});
    program_ = std::make_unique<Program>(
        "voltaris", more, Environment{{"TERM", "xterm"}, {"LC_ALL", locale}}, Terminal::kScreen);
    // Program::Finish closes its own.
    terminal_ = dup(program_->terminal());
  }
  ~ScreenWatch() { close(terminal_); }
  ScreenWatch(const ScreenWatch&) = delete;
  ScreenWatch& operator=(const ScreenWatch&) = delete;

  // Await waits until a line of the screen holds a text, and returns that line.
  std::string Await(const std::string& text) {
    AwaitScreen([&] { return !screen_.FindLine(text).empty(); });
    return screen_.FindLine(text);
  }
  // AwaitLine waits until a line holds a text. Lines are drawn one by one, so that each has to be
  // waited for.
  void AwaitLine(std::size_t row, const std::string& text) {
    AwaitScreen([&] { return screen_.Line(row).find(text) != std::string::npos; });
  }
  // AwaitGone waits until none does.
  void AwaitGone(const std::string& text) {
    AwaitScreen([&] { return screen_.FindLine(text).empty(); });
  }
  void AwaitScreen(const std::function<bool()>& holds) {
    program_->AwaitOutput([&](const std::string& output) {
      Feed(output);
      return holds();
    });
  }

  void Type(const std::string& text) const { program_->Type(text); }
  void Resize(unsigned short width, unsigned short height) {
    screen_.Resize(width, height);
    const winsize size = {.ws_row = height, .ws_col = width, .ws_xpixel = 0, .ws_ypixel = 0};
    ASSERT_EQ(ioctl(terminal_, TIOCSWINSZ, &size), 0);
  }
  void Signal(int number) const { program_->Signal(number); }

  Outcome Finish() {
    const Outcome outcome = program_->Finish();
    Feed(outcome.out);
    return outcome;
  }

  bool HasFirstModes() const {
    const termios now = ModesOf(terminal_);
    return now.c_iflag == at_first_.c_iflag && now.c_oflag == at_first_.c_oflag &&
           now.c_lflag == at_first_.c_lflag && now.c_cflag == at_first_.c_cflag;
  }

  void ExpectRestored() const {
    EXPECT_FALSE(screen_.is_alternate());
    EXPECT_TRUE(screen_.is_cursor_visible());
    EXPECT_TRUE(HasFirstModes());
    EXPECT_EQ(screen_.unknown(), "");
  }

  const TerminalScreen& screen() const { return screen_; }

 private:
  void Feed(const std::string& output) {
    screen_.Write(output.substr(fed_));
    fed_ = output.size();
  }

  std::unique_ptr<Program> program_;
  int terminal_ = -1;
  const termios at_first_ = FreshModes();
  TerminalScreen screen_{kWidth, kHeight};
  std::size_t fed_ = 0;
};

TEST(VoltarisWatchScreen, ShowsSumsRowsAndHelpAndEndsByQ) {
  const Node node(LampsAndRoof());
  ScreenWatch watch({node.address()});
  watch.Await("every 3600 s");
  EXPECT_TRUE(watch.screen().is_alternate());
  EXPECT_FALSE(watch.screen().is_cursor_visible());
  EXPECT_FALSE(watch.HasFirstModes());
  watch.AwaitLine(0, "voltaris watch  round 1  every 3600 s");
  watch.AwaitLine(1, "consumers 30 W (0 W) of 2 entities; producers 30 W (0 W) of 1 entity");
  watch.AwaitLine(5, "lamp-2     10   20 W     0 W");
  watch.AwaitLine(kHeight - 1, "q quit");
  watch.Type("q");
  EXPECT_EQ(watch.Finish().exit_code, 0);
  watch.ExpectRestored();
}

TEST(VoltarisWatchScreen, SortsAndFiltersByKeys) {
  const Node node(LampsAndRoof());
  ScreenWatch watch({node.address()});
  watch.Await("every");
  watch.AwaitLine(4, "lamp-1");
  watch.AwaitLine(6, "roof");
  watch.Type("u");
  watch.AwaitLine(4, "roof");
  watch.AwaitLine(6, "lamp-1");
  watch.Type("/lamp-2");
  watch.AwaitGone("roof");
  watch.AwaitLine(4, "lamp-2");
  watch.Await("filter: lamp-2_");
  watch.Type("\033");
  watch.Await("roof");
  watch.Type("q");
  EXPECT_EQ(watch.Finish().exit_code, 0);
  watch.ExpectRestored();
}

TEST(VoltarisWatchScreen, ArrowsScroll) {
  std::vector<DeviceToml> lamps;
  for (int i = 1; i <= 40; ++i) lamps.push_back({.number = i, .name = "l" + std::to_string(i)});
  const Node node(NodeToml(lamps));
  ScreenWatch watch({node.address()});
  watch.Await("every");
  watch.AwaitLine(4, " l1 ");
  watch.AwaitLine(kHeight - 1, "q quit");
  EXPECT_EQ(watch.screen().FindLine(" l40 "), "");
  watch.Type("\033OF");  // End, as this terminal sends it
  watch.Await(" l40 ");
  watch.Type("\033OA");
  watch.AwaitGone(" l40 ");
  watch.Type("q");
  EXPECT_EQ(watch.Finish().exit_code, 0);
}

TEST(VoltarisWatchScreen, ShowsBarsAndSparks) {
  const Node node(LampsAndRoof());
  ScreenWatch watch({node.address()});
  watch.Await("█");
  watch.Type("b");
  watch.Await("██████████");
  watch.Type("q");
  EXPECT_EQ(watch.Finish().exit_code, 0);
}

TEST(VoltarisWatchScreen, IsAsciiWhereTheLocaleIs) {
  const Node node(LampsAndRoof());
  ScreenWatch watch({node.address()}, {"-i", "3600"}, "C");
  watch.Await("every");
  watch.Type("b");
  watch.Await("##########");
  watch.Type("q");
  const Outcome outcome = watch.Finish();
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_TRUE(std::ranges::all_of(outcome.out, [](char byte) { return byte > 0; }));
}

TEST(VoltarisWatchScreen, FollowsTheSizeOfTheTerminal) {
  const Node node(LampsAndRoof());
  ScreenWatch watch({node.address()});
  watch.Await("q quit");
  watch.Resize(60, 12);
  watch.AwaitScreen([&] { return watch.screen().Line(11).find("q quit") == 0; });
  watch.Resize(120, 40);
  watch.AwaitScreen([&] { return watch.screen().Line(39).find("q quit") == 0; });
  watch.Type("q");
  EXPECT_EQ(watch.Finish().exit_code, 0);
  watch.ExpectRestored();
}

TEST(VoltarisWatchScreen, RoundsGoOnAndHaveAnEndWithACount) {
  const Node node(LampsAndRoof());
  ScreenWatch watch({node.address()}, {"-i", "0.01", "--count", "3"});
  EXPECT_EQ(watch.Finish().exit_code, 0);
  watch.ExpectRestored();
}

TEST(VoltarisWatchScreen, ANodeThatFailsIsShownAndDoesNotEndIt) {
  const Node node(LampsAndRoof());
  const std::string nobody = NobodysAddress();
  ScreenWatch watch({node.address(), nobody}, {"-i", "0.05"});
  watch.Await("2 nodes, 1 failed; " + nobody + ": unreachable: connection refused");
  watch.Await("round 3");
  watch.Type("q");
  EXPECT_EQ(watch.Finish().exit_code, 0);
  watch.ExpectRestored();
}

TEST(VoltarisWatchScreen, KeysWorkWhileANodeIsWaitedFor) {
  ScriptedPeer peer([](PeerConnection& connection) {
    connection.ReadPdu();
    connection.WaitForClose();
  });
  ScreenWatch watch({"127.0.0.1:" + std::to_string(peer.port())});
  watch.Await("asking: 0 of 1");
  watch.Type("/");
  watch.Await("filter: _");
  watch.Type("\033");
  watch.AwaitGone("filter: _");
  watch.Type("q");
  EXPECT_EQ(watch.Finish().exit_code, 0);
  watch.ExpectRestored();
}

TEST(VoltarisWatchScreen, WhatADeviceCallsItselfCannotSteerTheTerminal) {
  const Node node(HostileRecording(), {}, NodeFile::kRecording);
  ScreenWatch watch({node.address()});
  watch.Await("\\x1b]0;owned\\x07\\x0a|");
  watch.Type("q");
  const Outcome outcome = watch.Finish();
  EXPECT_EQ(outcome.out.find("\033]0;"), std::string::npos);
  EXPECT_EQ(outcome.out.find('\a'), std::string::npos);
  watch.ExpectRestored();
}

TEST(VoltarisWatchScreen, LogLinesDoNotStandInIt) {
  const Node node(LampsAndRoof());
  ScreenWatch watch({node.address()}, {"-i", "3600", "-vvv"});
  watch.Await("every");
  watch.Type("q");
  const Outcome outcome = watch.Finish();
  EXPECT_EQ(outcome.exit_code, 0);
  // Here standard error is no terminal, so that they can go there.
  EXPECT_NE(outcome.err, "");
  EXPECT_EQ(outcome.out.find("[debug]"), std::string::npos);
}

TEST(VoltarisWatchScreen, AFailureOfTheFirstRoundIsToldOnTheOldScreen) {
  const TempFolder folder;
  ScreenWatch watch({"127.0.0.1:9"}, {"--key-file", folder.path("none")});
  const Outcome outcome = watch.Finish();
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_NE(outcome.err.find("cannot read the key file"), std::string::npos) << outcome.err;
  watch.ExpectRestored();
}

class VoltarisWatchSignal : public ::testing::TestWithParam<int> {};

TEST_P(VoltarisWatchSignal, LeavesTheTerminalAsItWas) {
#ifdef VT_SANITIZER
  if (GetParam() == SIGSEGV) GTEST_SKIP() << "the run time of the sanitizers catches it";
#endif
  const Node node(LampsAndRoof());
  ScreenWatch watch({node.address()});
  watch.Await("every");
  EXPECT_FALSE(watch.HasFirstModes());
  watch.Signal(GetParam());
  const Outcome outcome = watch.Finish();
  const bool is_in_order = GetParam() == SIGINT || GetParam() == SIGTERM;
  EXPECT_EQ(outcome.exit_code, (is_in_order ? 128 : 1000) + GetParam());
  watch.ExpectRestored();
}

INSTANTIATE_TEST_SUITE_P(Each, VoltarisWatchSignal,
                         ::testing::Values(SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGABRT, SIGSEGV,
                                           SIGUSR1),
                         [](const ::testing::TestParamInfo<int>& number) {
                           return std::string(sigabbrev_np(number.param));
                         });

TEST(VoltarisWatchScreen, WithoutAWayBackTheTerminalWouldNotBeAsItWas) {
  const Node node(LampsAndRoof());
  ScreenWatch watch({node.address()});
  watch.Await("every");
  watch.Signal(SIGKILL);
  EXPECT_EQ(watch.Finish().exit_code, 1000 + SIGKILL);
  // So that the expectations above can fail.
  EXPECT_FALSE(watch.HasFirstModes());
  EXPECT_TRUE(watch.screen().is_alternate());
}

}  // namespace
}  // namespace vt::testing

#include "node/host/action.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "files/file_descriptor.h"
#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

using node::Action;
using node::RunAction;

Action Shell(const std::string& script, std::chrono::seconds timeout = kProgramPatience) {
  return {.level = 3, .command = {"/bin/sh", "-c", script}, .timeout = timeout};
}

// IsRunning tells whether a process, which need not be a child, is there and not a zombie.
bool IsRunning(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string number;
  std::string name;
  char state = 'X';
  file >> number >> name >> state;
  return state != 'X' && state != 'Z';
}

bool EndsInTime(pid_t process) {
  const auto end = std::chrono::steady_clock::now() + kProgramPatience;
  while (IsRunning(process)) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

TEST(Action, AProgramThatEndsWithZeroSucceeds) {
  EXPECT_EQ(RunAction({.level = 0, .command = {"/bin/true"}}), std::nullopt);
}

TEST(Action, ArgumentsReachTheProgramAsTheyStand) {
  const TempFolder folder;
  const std::string out = folder.path("out");
  const Action action{
      .level = 1,
      .command = {"/bin/sh", "-c", "printf '%s|' \"$@\" > " + out, "sh", "a b", "$HOME", "", "*"}};
  EXPECT_EQ(RunAction(action), std::nullopt);
  EXPECT_EQ(folder.Read("out"), "a b|$HOME||*|") << "no shell of ours has looked at them";
}

TEST(Action, TheEnvironmentIsThePathAndTheLevel) {
  const TempFolder folder;
  const std::string out = folder.path("out");
  ASSERT_EQ(RunAction({.level = 7, .command = {"/bin/cp", "/proc/self/environ", out}}),
            std::nullopt);
  const std::string expected("PATH=/usr/sbin:/usr/bin:/sbin:/bin\0VOLTARIS_LEVEL=7\0", 52);
  EXPECT_EQ(folder.Read("out"), expected);
}

TEST(Action, NoDescriptorIsInherited) {
  const TempFolder folder;
  // Far from the numbers that the shell itself uses.
  const files::FileDescriptor ours(fcntl(STDERR_FILENO, F_DUPFD, 100));
  ASSERT_GE(ours.get(), 100);
  ASSERT_EQ(RunAction(Shell("for fd in /proc/self/fd/*; do echo \"${fd##*/}\"; done > " +
                            folder.path("out"))),
            std::nullopt);
  std::istringstream lines(folder.Read("out"));
  std::string line;
  std::set<std::string> descriptors;
  while (std::getline(lines, line)) descriptors.insert(line);
  EXPECT_TRUE(descriptors.contains("2"));
  EXPECT_FALSE(descriptors.contains(std::to_string(ours.get())));
}

TEST(Action, SignalsAreNeitherBlockedNorIgnored) {
  const TempFolder folder;
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &blocked, &before), 0);
  const auto handler = signal(SIGUSR1, SIG_IGN);
  const auto failure =
      RunAction({.level = 0, .command = {"/bin/cp", "/proc/self/status", folder.path("out")}});
  (void)signal(SIGUSR1, handler);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  ASSERT_EQ(failure, std::nullopt);
  const std::string status = folder.Read("out");
  const auto mask = [&status](const std::string& name) {
    const std::size_t at = status.find(name);
    return at == std::string::npos ? ~0ull
                                   : std::stoull(status.substr(at + name.size()), nullptr, 16);
  };
  EXPECT_EQ(mask("SigBlk:") & (1ull << (SIGTERM - 1)), 0u);
  EXPECT_EQ(mask("SigIgn:") & (1ull << (SIGUSR1 - 1)), 0u);
}

TEST(Action, AnotherEndThanZeroIsAFailureThatSaysWhich) {
  EXPECT_EQ(RunAction(Shell("exit 3")), "/bin/sh ended with code 3");
  EXPECT_EQ(RunAction(Shell("kill -9 $$")), "/bin/sh was ended by signal 9");
}

TEST(Action, AProgramThatIsNotThereCannotBeStarted) {
  EXPECT_EQ(RunAction({.level = 0, .command = {"/nonexistent/program"}}),
            "/nonexistent/program cannot be started: No such file or directory");
}

TEST(Action, ASlowProgramIsEndedWithAllThatItHasStarted) {
  const TempFolder folder;
  const std::string out = folder.path("out");
  const Action action = Shell("sleep 1000 & echo $! > " + out + "; wait", std::chrono::seconds(1));
  EXPECT_EQ(RunAction(action), "/bin/sh was ended after 1 s");
  EXPECT_TRUE(EndsInTime(static_cast<pid_t>(std::stol(folder.Read("out")))));
}

TEST(Action, AProgramMayLeaveOthersBehindThatLastLonger) {
  const TempFolder folder;
  const std::string out = folder.path("out");
  EXPECT_EQ(RunAction(Shell("sleep 1000 & echo $! > " + out)), std::nullopt);
  const auto left = static_cast<pid_t>(std::stol(folder.Read("out")));
  EXPECT_EQ(kill(left, SIGKILL), 0) << "it was still there";
}

}  // namespace
}  // namespace vt::testing

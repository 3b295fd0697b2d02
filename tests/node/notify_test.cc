#include "node/notify.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <regex>

#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

using node::Notifier;
using std::chrono::microseconds;

// Manager is a service manager's socket, at a path or with an abstract name.
class Manager {
 public:
  explicit Manager(bool is_abstract = false) : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    name_ = is_abstract ? "@" + folder_.path("notify") : folder_.path("notify");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name_.copy(address.sun_path, sizeof address.sun_path - 1);
    if (is_abstract) address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name_.size());
    EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&address), size), 0);
  }
  ~Manager() { close(fd_); }
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

  const std::string& name() const { return name_; }

  // Next waits for a message.
  std::string Next() {
    pollfd watched{fd_, POLLIN, 0};
    const auto patience = std::chrono::milliseconds(kProgramPatience).count();
    if (poll(&watched, 1, static_cast<int>(patience)) != 1) return "nothing came";
    std::array<char, 512> text{};
    const ssize_t got = recv(fd_, text.data(), text.size(), 0);
    return {text.data(), static_cast<std::size_t>(got < 0 ? 0 : got)};
  }

  bool IsSilentFor(std::chrono::milliseconds time) const {
    pollfd watched{fd_, POLLIN, 0};
    return poll(&watched, 1, static_cast<int>(time.count())) == 0;
  }

  bool IsEmpty() const { return IsSilentFor(std::chrono::milliseconds(0)); }

 private:
  TempFolder folder_;
  int fd_;
  std::string name_;
};

TEST(Notifier, TellsASocketWithAPath) {
  Manager manager;
  const Notifier notifier(manager.name());
  notifier.Ready("listening on 127.0.0.1:1");
  EXPECT_EQ(manager.Next(), "READY=1\nSTATUS=listening on 127.0.0.1:1");
  notifier.Reloading();
  EXPECT_TRUE(std::regex_match(manager.Next(), std::regex("RELOADING=1\nMONOTONIC_USEC=[0-9]+")));
  notifier.Stopping();
  EXPECT_EQ(manager.Next(), "STOPPING=1");
  notifier.Alive();
  EXPECT_EQ(manager.Next(), "WATCHDOG=1");
}

TEST(Notifier, TellsASocketWithAnAbstractName) {
  Manager manager(true);
  Notifier(manager.name()).Stopping();
  EXPECT_EQ(manager.Next(), "STOPPING=1");
}

TEST(Notifier, WithoutASocketItTellsNobody) {
  Manager manager;
  Notifier("").Ready("x");
  EXPECT_TRUE(manager.IsEmpty());
}

TEST(Notifier, ASocketThatIsGoneOrHasNoRoomForItsNameIsNoHarm) {
  Notifier("/nowhere/at/all").Ready("x");
  Notifier(std::string(200, 'x')).Ready("x");
}

class NotifierEnvironment : public ::testing::Test {
 protected:
  void TearDown() override {
    for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) unsetenv(name);
  }
};

TEST_F(NotifierEnvironment, IsTakenAndRemovedForWhatTheNodeStarts) {
  Manager manager;
  setenv("NOTIFY_SOCKET", manager.name().c_str(), 1);
  setenv("WATCHDOG_USEC", "3000000", 1);
  setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
  const Notifier notifier = Notifier::FromEnvironment();
  EXPECT_EQ(notifier.watchdog(), microseconds(3'000'000));
  EXPECT_EQ(getenv("NOTIFY_SOCKET"), nullptr);
  EXPECT_EQ(getenv("WATCHDOG_USEC"), nullptr);
  EXPECT_EQ(getenv("WATCHDOG_PID"), nullptr);
  notifier.Stopping();
  EXPECT_EQ(manager.Next(), "STOPPING=1");
}

TEST_F(NotifierEnvironment, AWatchdogOfAnotherProcessIsNotOurs) {
  setenv("WATCHDOG_USEC", "3000000", 1);
  setenv("WATCHDOG_PID", "1", 1);
  EXPECT_FALSE(Notifier::FromEnvironment().watchdog());
  setenv("WATCHDOG_USEC", "3000000", 1);
  EXPECT_TRUE(Notifier::FromEnvironment().watchdog()) << "of whoever it is";
  for (const char* nonsense : {"", "0", "-5", "3s"}) {
    setenv("WATCHDOG_USEC", nonsense, 1);
    EXPECT_FALSE(Notifier::FromEnvironment().watchdog()) << nonsense;
  }
}

// --- the node ---

TEST(Notifier, TheNodeTellsThatItServesReadsAgainAndEnds) {
  const TempFolder folder;
  Manager manager;
  const std::string config = folder.Write("fleet.toml", NodeToml({{}}));
  Program node("voltaris-node", {"--config", config, "--listen", "127.0.0.1:0"},
               {{"NOTIFY_SOCKET", manager.name()}});
  const std::string line = node.ReadLine();
  EXPECT_EQ(manager.Next(), "READY=1\nSTATUS=" + line);
  node.Signal(SIGHUP);
  EXPECT_TRUE(manager.Next().starts_with("RELOADING=1\nMONOTONIC_USEC="));
  EXPECT_EQ(manager.Next(), "READY=1\nSTATUS=" + line);
  folder.Write("fleet.toml", "[node");
  node.Signal(SIGHUP);
  EXPECT_TRUE(manager.Next().starts_with("RELOADING=1\n"));
  EXPECT_EQ(manager.Next(),
            "READY=1\nSTATUS=" + line + "; the configuration could not be read again");
  node.Signal(SIGTERM);
  EXPECT_EQ(manager.Next(), "STOPPING=1");
  EXPECT_EQ(node.Finish().exit_code, 0);
  EXPECT_TRUE(manager.IsEmpty()) << "no watchdog was asked for";
}

TEST(Notifier, TheNodeTellsThatItIsAliveAndStillEnds) {
  const TempFolder folder;
  Manager manager;
  const std::string config = folder.Write("fleet.toml", NodeToml({{}}));
  Program node("voltaris-node", {"--config", config, "--listen", "127.0.0.1:0"},
               {{"NOTIFY_SOCKET", manager.name()}, {"WATCHDOG_USEC", "20000"}});
  EXPECT_TRUE(manager.Next().starts_with("READY=1\n"));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(manager.Next(), "WATCHDOG=1");
  node.Signal(SIGTERM);
  EXPECT_EQ(node.Finish().exit_code, 0);
}

// The configuration, and the profiles that it names, are read on the thread that answers. A pipe in
// the place of a profile keeps it waiting, from when the pipe is opened for writing until its end.
TEST(Notifier, ANodeWhoseAnswersAreStuckDoesNotSayThatItIsAlive) {
  const TempFolder folder;
  Manager manager;
  const std::string profile = folder.Write("load.csv", "0,0.5\n");
  const std::string pipe = folder.path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const std::string config = folder.Write(
      "fleet.toml", NodeToml({{.more = "profile = { kind = \"csv\", file = \"load.csv\" }"}}));
  Program node("voltaris-node", {"--config", config, "--listen", "127.0.0.1:0"},
               {{"NOTIFY_SOCKET", manager.name()}, {"WATCHDOG_USEC", "20000"}});
  EXPECT_TRUE(manager.Next().starts_with("READY=1\n"));
  EXPECT_EQ(manager.Next(), "WATCHDOG=1");
  ASSERT_EQ(rename(pipe.c_str(), profile.c_str()), 0);
  node.Signal(SIGHUP);
  std::string message = manager.Next();
  while (message == "WATCHDOG=1") message = manager.Next();
  EXPECT_TRUE(message.starts_with("RELOADING=1\n")) << message;
  const int writer = open(profile.c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_GE(writer, 0);
  EXPECT_TRUE(manager.IsSilentFor(std::chrono::milliseconds(100))) << "that is ten times its turn";
  EXPECT_EQ(write(writer, "0,0.5\n", 6), 6);
  close(writer);
  EXPECT_TRUE(manager.Next().starts_with("READY=1\n"));
  EXPECT_EQ(manager.Next(), "WATCHDOG=1");
  node.Signal(SIGTERM);
  EXPECT_EQ(node.Finish().exit_code, 0);
}

}  // namespace
}  // namespace vt::testing

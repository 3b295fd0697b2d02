#include "node/host/action.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <future>
#include <system_error>
#include <thread>

namespace vt::node {
namespace {

std::string ErrorText(int number) { return std::generic_category().message(number); }

// SpawnSettings are those of posix_spawn: which signals and descriptors the program gets.
class SpawnSettings {
 public:
  SpawnSettings() {
    posix_spawnattr_init(&attributes_);
    posix_spawn_file_actions_init(&files_);
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
    posix_spawnattr_setpgroup(&attributes_, 0);
    posix_spawnattr_setflags(
        &attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    posix_spawn_file_actions_addopen(&files_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files_, STDERR_FILENO, STDOUT_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&files_, STDERR_FILENO + 1);
  }
  ~SpawnSettings() {
    posix_spawn_file_actions_destroy(&files_);
    posix_spawnattr_destroy(&attributes_);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  const posix_spawnattr_t* attributes() const { return &attributes_; }
  const posix_spawn_file_actions_t* files() const { return &files_; }

 private:
  posix_spawnattr_t attributes_;
  posix_spawn_file_actions_t files_;
};

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// EndsInTime waits for the end of a child, and kills it with its group when it takes too long. The
// child stays to be reaped, so that the group's number cannot be another's by then.
bool EndsInTime(pid_t child, std::chrono::seconds timeout) {
  std::promise<void> end;
  std::thread waiter([child, &end] {
    siginfo_t info;
    while (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT) < 0 &&
           errno == EINTR) {
    }
    end.set_value();
  });
  const bool in_time = end.get_future().wait_for(timeout) == std::future_status::ready;
  if (!in_time) kill(-child, SIGKILL);
  waiter.join();
  return in_time;
}

}  // namespace

std::optional<std::string> RunAction(const Action& action) {
  std::vector<std::string> arguments = action.command;
  std::vector<std::string> environment = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin",
                                          "VOLTARIS_LEVEL=" + std::to_string(action.level)};
  const std::string& program = action.command.front();
  const SpawnSettings settings;
  pid_t child = -1;
  const int error = posix_spawn(&child, program.c_str(), settings.files(), settings.attributes(),
                                Pointers(arguments).data(), Pointers(environment).data());
  if (error != 0) return program + " cannot be started: " + ErrorText(error);

  const bool in_time = EndsInTime(child, action.timeout);
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return program + " cannot be waited for: " + ErrorText(errno);
  }
  if (!in_time) {
    return program + " was ended after " + std::to_string(action.timeout.count()) + " s";
  }
  if (WIFSIGNALED(status))
    return program + " was ended by signal " + std::to_string(WTERMSIG(status));
  if (WEXITSTATUS(status) == 0) return std::nullopt;
  return program + " ended with code " + std::to_string(WEXITSTATUS(status));
}

}  // namespace vt::node

#include "tools/secret_file.h"

#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "files/core_files.h"
#include "files/file_content.h"
#include "tools/exit_code.h"
#include "tools/stop_signals.h"

namespace vt::tools {
namespace {

using files::FileDescriptor;
using Clock = std::chrono::steady_clock;

constexpr mode_t kOwnerAlone = S_IRUSR | S_IWUSR;

[[noreturn]] void Fail(const std::string& what, const std::string& path, const std::string& why) {
  throw Failure(kExitUsage, what + " " + path + ": " + why);
}

bool IsPipe(int fd) {
  struct stat status {};
  return fstat(fd, &status) == 0 && S_ISFIFO(status.st_mode);
}

void RefuseWhatOthersReach(int fd, const std::string& path) {
  struct stat status {};
  if (fstat(fd, &status) != 0) Fail("cannot look at", path, strerror(errno));
  if (!S_ISREG(status.st_mode)) return;  // a pipe is its reader's alone
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    Fail("will not read", path, "others may open it; chmod 600 would prevent it");
  }
  if (status.st_uid != geteuid() && status.st_uid != 0) {
    Fail("will not read", path, "it belongs to another user, who may change it");
  }
}

// AwaitWriter returns when a pipe was written into or closed. Signals are blocked where they are
// read from a descriptor, so that nothing else would end the waiting.
void AwaitWriter(int fd, const std::string& path, Clock::time_point deadline) {
  using std::chrono::milliseconds;
  std::array<pollfd, 2> watched = {pollfd{fd, POLLIN, 0}, pollfd{StopDescriptor(), POLLIN, 0}};
  while (watched[0].revents == 0) {
    if (const int signal = StopSignal(); signal != 0) {
      throw Failure(static_cast<ExitCode>(kExitSignal + signal), path + " was not read");
    }
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) Fail("cannot read", path, "nobody wrote into it in time");
    constexpr decltype(left) longest = 3600'000;
    (void)poll(watched.data(), watched.size(), static_cast<int>(std::min(left, longest)));
  }
}

// FillFrom reads to the end or until the buffer is full: nothing of a secret is left in memory that
// is not overwritten.
std::size_t FillFrom(int fd, std::span<char> buffer, const std::string& path,
                     Clock::time_point deadline) {
  std::size_t used = 0;
  // A pipe without a writer looks like one at its end until the writer has come.
  bool may_begin_later = IsPipe(fd);
  while (used < buffer.size()) {
    const ssize_t got = read(fd, buffer.data() + used, buffer.size() - used);
    if (got < 0 && errno == EINTR) continue;
    const bool is_early = got == 0 && used == 0 && std::exchange(may_begin_later, false);
    if (is_early || (got < 0 && errno == EAGAIN)) {
      AwaitWriter(fd, path, deadline);
      continue;
    }
    if (got < 0) Fail("cannot read", path, strerror(errno));
    if (got == 0) break;
    used += static_cast<std::size_t>(got);
  }
  return used;
}

}  // namespace

Secret::~Secret() { explicit_bzero(bytes_.data(), bytes_.size()); }

void Secret::Shorten(std::size_t size) {
  if (size >= bytes_.size()) return;
  explicit_bzero(bytes_.data() + size, bytes_.size() - size);
  bytes_.resize(size);
}

void WriteSecretFile(const std::string& path, std::string_view content) {
  const FileDescriptor file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kOwnerAlone));
  if (!file.is_open() && errno == EEXIST) {
    Fail("will not overwrite", path, "it is there already; remove it, or choose another name");
  }
  if (!file.is_open()) Fail("cannot make", path, strerror(errno));
  files::UnfinishedFile unfinished(path);
  // A mask of the process may have taken the owner's rights as well.
  if (fchmod(file.get(), kOwnerAlone) != 0) Fail("cannot write", path, strerror(errno));
  try {
    files::WriteAll(file, content, "");
    files::BringToDisk(file, "");
  } catch (const std::system_error& error) {
    Fail("cannot write", path, error.code().message());
  }
  unfinished.Keep();
}

Secret ReadSecretBytes(const std::string& path, std::size_t limit, Clock::time_point deadline) {
  files::ForbidCoreFiles();
  // Opening a pipe waits for its writer otherwise, and nothing could end that.
  const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!file.is_open()) Fail("cannot read", path, strerror(errno));
  RefuseWhatOthersReach(file.get(), path);
  Secret secret(limit);
  secret.Shorten(FillFrom(file.get(), secret.bytes(), path, deadline));
  return secret;
}

Secret ReadSecretFile(const std::string& path, std::size_t most, Clock::time_point deadline) {
  // A line end, or more than there may be.
  Secret secret = ReadSecretBytes(path, most + 2, deadline);
  if (secret.text().ends_with('\n')) secret.Shorten(secret.text().size() - 1);
  if (secret.text().ends_with('\r')) secret.Shorten(secret.text().size() - 1);
  if (secret.text().empty()) Fail("cannot use", path, "it is empty");
  if (secret.text().size() > most) {
    Fail("cannot use", path, "it holds more than " + std::to_string(most) + " bytes");
  }
  return secret;
}

}  // namespace vt::tools

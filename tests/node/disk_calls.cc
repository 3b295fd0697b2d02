#include "tests/node/disk_calls.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <utility>

namespace vt::testing {
namespace {

constinit DiskCalls* g_watching = nullptr;

std::string NameOnly(const std::string& path) { return path.substr(path.rfind('/') + 1); }

std::string FileNameOf(int fd) {
  std::array<char, 4096> path{};
  const ssize_t size =
      readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path.data(), path.size());
  return size > 0 ? NameOnly(std::string(path.data(), static_cast<std::size_t>(size))) : "?";
}

}  // namespace

DiskCalls::DiskCalls() { g_watching = this; }

DiskCalls::~DiskCalls() { g_watching = nullptr; }

bool DiskCalls::Strike(std::string call) {
  if (before) before(call);
  calls_.push_back(std::move(call));
  return fail_at == calls_.size() - 1;
}

}  // namespace vt::testing

extern "C" {

int fsync(int fd) {
  using namespace vt::testing;
  if (g_watching != nullptr && g_watching->Strike("fsync " + FileNameOf(fd))) {
    errno = EIO;
    return -1;
  }
  return static_cast<int>(syscall(SYS_fsync, fd));
}

int rename(const char* from, const char* to) noexcept {
  using namespace vt::testing;
  if (g_watching != nullptr &&
      g_watching->Strike("rename " + NameOnly(from) + " " + NameOnly(to))) {
    errno = EIO;
    return -1;
  }
  return static_cast<int>(syscall(SYS_renameat, AT_FDCWD, from, AT_FDCWD, to));
}

}  // extern "C"

#include "recording/recording_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

namespace vt::recording {
namespace {

[[noreturn]] void ThrowErrno(int number, const std::string& what) {
  throw std::system_error(number, std::generic_category(), what);
}

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return fd_; }

 private:
  int fd_;
};

// Unfinished is a file that goes again unless it is kept.
class Unfinished {
 public:
  explicit Unfinished(std::string path) : path_(std::move(path)) {}
  ~Unfinished() {
    if (!kept_) (void)unlink(path_.c_str());
  }
  Unfinished(const Unfinished&) = delete;
  Unfinished& operator=(const Unfinished&) = delete;

  const std::string& path() const { return path_; }
  void Keep() { kept_ = true; }

 private:
  std::string path_;
  bool kept_ = false;
};

// Target is where links lead, for a link that is renamed over would be lost.
std::string Target(const std::string& path) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (status.type() == std::filesystem::file_type::not_found) {
    return std::filesystem::is_symlink(path, error)
               ? std::filesystem::weakly_canonical(path, error).string()
               : path;
  }
  if (error) ThrowErrno(error.value(), "cannot write " + path);
  if (!std::filesystem::is_regular_file(status)) {
    ThrowErrno(EINVAL, path + " is no regular file");
  }
  std::string target = std::filesystem::canonical(path, error).string();
  if (error) ThrowErrno(error.value(), "cannot write " + path);
  return target;
}

void WriteAll(const Descriptor& file, std::string_view text, const std::string& path) {
  while (!text.empty()) {
    const ssize_t put = write(file.get(), text.data(), text.size());
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) ThrowErrno(errno, "cannot write " + path);
    text.remove_prefix(static_cast<std::size_t>(put));
  }
}

// The mode of a file that a program makes without saying anything about it.
mode_t UsualMode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

}  // namespace

void SaveText(const std::string& path, std::string_view text) {
  const std::string target = Target(path);
  std::string name = target + ".new-XXXXXX";
  const Descriptor file(mkostemp(name.data(), O_CLOEXEC));
  if (file.get() < 0) ThrowErrno(errno, "cannot make " + name);
  Unfinished made(name);
  WriteAll(file, text, name);
  if (fchmod(file.get(), UsualMode()) != 0 || fsync(file.get()) != 0) {
    ThrowErrno(errno, "cannot write " + name);
  }
  if (std::rename(made.path().c_str(), target.c_str()) != 0) {
    ThrowErrno(errno, "cannot write " + path);
  }
  made.Keep();
}

std::string LoadText(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status {};
  if (file.get() < 0 || fstat(file.get(), &status) != 0) ThrowErrno(errno, "cannot open it");
  if (status.st_size > static_cast<off_t>(kLargestFile)) ThrowErrno(EFBIG, "cannot read it");
  std::string text;
  if (S_ISREG(status.st_mode)) text.reserve(static_cast<std::size_t>(status.st_size));
  std::array<char, 65536> block{};
  for (;;) {
    const ssize_t got = read(file.get(), block.data(), block.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) ThrowErrno(errno, "cannot read it");
    if (got == 0) return text;
    if (text.size() + static_cast<std::size_t>(got) > kLargestFile) {
      ThrowErrno(EFBIG, "cannot read it");
    }
    text.append(block.data(), static_cast<std::size_t>(got));
  }
}

}  // namespace vt::recording

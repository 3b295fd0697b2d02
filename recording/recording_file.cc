#include "recording/recording_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "files/file_content.h"

namespace vt::recording {
namespace {

using files::ThrowErrno;

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
  const files::FileDescriptor file(mkostemp(name.data(), O_CLOEXEC));
  if (!file.is_open()) ThrowErrno(errno, "cannot make " + name);
  files::UnfinishedFile made(name);
  const std::string what = "cannot write " + name;
  files::WriteAll(file, text, what);
  if (fchmod(file.get(), UsualMode()) != 0) ThrowErrno(errno, what);
  files::BringToDisk(file, what);
  if (std::rename(made.path().c_str(), target.c_str()) != 0) {
    ThrowErrno(errno, "cannot write " + path);
  }
  made.Keep();
}

std::string LoadText(const std::string& path) {
  const files::FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.is_open()) ThrowErrno(errno, "cannot open it");
  return files::ReadAll(file, kLargestFile, "cannot read it");
}

}  // namespace vt::recording

#include "files/file_content.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace vt::files {

void ThrowErrno(int number, const std::string& what) {
  throw std::system_error(number, std::generic_category(), what);
}

std::string ReadAll(const FileDescriptor& file, std::size_t most, const std::string& what) {
  std::string text;
  std::array<char, 65536> block{};
  for (;;) {
    const ssize_t got = read(file.get(), block.data(), block.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) ThrowErrno(errno, what);
    if (got == 0) return text;
    if (static_cast<std::size_t>(got) > most - text.size()) ThrowErrno(EFBIG, what);
    text.append(block.data(), static_cast<std::size_t>(got));
  }
}

void WriteAll(const FileDescriptor& file, std::string_view text, const std::string& what) {
  while (!text.empty()) {
    const ssize_t put = write(file.get(), text.data(), text.size());
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) ThrowErrno(errno, what);
    text.remove_prefix(static_cast<std::size_t>(put));
  }
}

void BringToDisk(const FileDescriptor& file, const std::string& what) {
  if (fsync(file.get()) != 0) ThrowErrno(errno, what);
}

UnfinishedFile::~UnfinishedFile() {
  if (!kept_) (void)unlink(path_.c_str());
}

}  // namespace vt::files

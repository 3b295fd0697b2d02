#include "node/host/tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <system_error>
#include <utility>

#include "files/file_descriptor.h"

namespace vt::node {
namespace {

namespace fs = std::filesystem;

// A file of the system that holds one value takes one page at most.
constexpr std::size_t kLongestFile = 4096;
constexpr std::size_t kMostNames = 1024;

int SystemOpen(const char* path, int flags) { return open(path, flags); }

Trouble TroubleOf(int error) {
  switch (error) {
    case EACCES:
    case EPERM:
      return Trouble::kDenied;
    case ENOENT:
    case ENOTDIR:
    case ENODEV:
    case ENXIO:
      return Trouble::kGone;
    default:
      return Trouble::kFaulty;
  }
}

FileText Failed(const std::string& path, int error) {
  return {{}, TroubleOf(error), path + ": " + std::generic_category().message(error)};
}

FileText Faulty(const std::string& path, const std::string& what) {
  return {{}, Trouble::kFaulty, path + ": " + what};
}

std::string Trimmed(std::string text) {
  const std::size_t last = text.find_last_not_of(" \t\r\n");
  text.resize(last == std::string::npos ? 0 : last + 1);
  return text;
}

FileText ReadOpened(int fd, const std::string& path) {
  struct stat status {};
  if (fstat(fd, &status) != 0) return Failed(path, errno);
  if (!S_ISREG(status.st_mode)) return Faulty(path, "not a file");
  std::array<char, kLongestFile + 1> buffer{};
  std::size_t size = 0;
  while (size < buffer.size()) {
    const ssize_t got = read(fd, buffer.data() + size, buffer.size() - size);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return Failed(path, errno);
    if (got == 0) break;
    size += static_cast<std::size_t>(got);
  }
  if (size > kLongestFile) return Faulty(path, "too long");
  return {Trimmed(std::string(buffer.data(), size)), Trouble::kNone, {}};
}

bool CountsUp(const std::string& left, const std::string& right) {
  if (left.size() != right.size()) return left.size() < right.size();
  return left < right;
}

}  // namespace

Tree::Tree(std::string root, Open open)
    : root_(std::move(root)), open_(open ? std::move(open) : SystemOpen) {
  if (!root_.ends_with('/')) root_ += '/';
}

std::string Tree::Path(const std::string& path) const { return root_ + path; }

FileText Tree::Read(const std::string& path) const {
  const std::string full = Path(path);
  // Not to wait for the other end of a pipe.
  const files::FileDescriptor file(
      open_(full.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (file.get() < 0) return Failed(full, errno);
  return ReadOpened(file.get(), full);
}

FileNumber Tree::ReadNumber(const std::string& path) const {
  FileText file = Read(path);
  if (file.trouble != Trouble::kNone) return {0, file.trouble, std::move(file.detail)};
  const std::optional<std::int64_t> number = ParseWhole(file.text);
  if (number) return {*number, Trouble::kNone, {}};
  return {0, Trouble::kFaulty, Path(path) + ": not a number: " + PrintableText(file.text)};
}

std::string Tree::ReadWord(const std::string& path) const { return Read(path).text; }

bool Tree::Exists(const std::string& path) const {
  std::error_code ignored;
  return fs::symlink_status(Path(path), ignored).type() > fs::file_type::not_found;
}

std::vector<std::string> Tree::List(const std::string& path) const {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator entry(Path(path), error), end; !error && entry != end;
       entry.increment(error)) {
    if (names.size() == kMostNames) break;
    names.push_back(entry->path().filename().string());
  }
  std::ranges::sort(names, CountsUp);
  return names;
}

std::string Tree::LinkName(const std::string& path) const {
  std::error_code error;
  const fs::path target = fs::read_symlink(Path(path), error);
  return error ? std::string() : target.filename().string();
}

std::optional<std::int64_t> ParseWhole(const std::string& text) {
  std::int64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

}  // namespace vt::node

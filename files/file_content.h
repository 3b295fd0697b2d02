// Whole files: read, written, and put in the place of others so that each is the old or the new
// one.
#ifndef VT_FILES_FILE_CONTENT_H_
#define VT_FILES_FILE_CONTENT_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "files/file_descriptor.h"

namespace vt::files {

// ThrowErrno throws std::system_error for an errno, with what was tried.
[[noreturn]] void ThrowErrno(int number, const std::string& what);

// ReadAll reads to the end of a file, WriteAll writes a text to it, and BringToDisk waits until it
// is on the disk. what tells what is tried; they throw std::system_error, ReadAll with EFBIG for
// more than so many bytes.
std::string ReadAll(const FileDescriptor& file, std::size_t most, const std::string& what);
void WriteAll(const FileDescriptor& file, std::string_view text, const std::string& what);
void BringToDisk(const FileDescriptor& file, const std::string& what);

// UnfinishedFile is a path that is removed again unless it is kept, or was renamed and kept.
class UnfinishedFile {
 public:
  explicit UnfinishedFile(std::string path) : path_(std::move(path)) {}
  ~UnfinishedFile();
  UnfinishedFile(const UnfinishedFile&) = delete;
  UnfinishedFile& operator=(const UnfinishedFile&) = delete;

  const std::string& path() const { return path_; }
  void Keep() { kept_ = true; }

 private:
  std::string path_;
  bool kept_ = false;
};

}  // namespace vt::files

#endif  // VT_FILES_FILE_CONTENT_H_

// FileDescriptor owns one open file or socket.
#ifndef VT_FILES_FILE_DESCRIPTOR_H_
#define VT_FILES_FILE_DESCRIPTOR_H_

#include <unistd.h>

#include <utility>

namespace vt::files {

class FileDescriptor {
 public:
  // FileDescriptor takes over fd; a negative one is none.
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) close(fd_);
  }
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  FileDescriptor& operator=(FileDescriptor&&) = delete;

  bool is_open() const { return fd_ >= 0; }
  int get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace vt::files

#endif  // VT_FILES_FILE_DESCRIPTOR_H_

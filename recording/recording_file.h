// Files of recordings on the disk.
#ifndef VT_RECORDING_RECORDING_FILE_H_
#define VT_RECORDING_RECORDING_FILE_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace vt::recording {

inline constexpr std::size_t kLargestFile = std::size_t{512} << 20;

// SaveText puts a text into a file, which is then the new one or, when that fails, still the old
// one: it is written beside, brought to the disk and renamed. A symbolic link is followed. It
// throws std::system_error; a path that names no regular file is refused with EINVAL.
void SaveText(const std::string& path, std::string_view text);

// LoadText reads a file of at most kLargestFile bytes. It throws std::system_error.
std::string LoadText(const std::string& path);

}  // namespace vt::recording

#endif  // VT_RECORDING_RECORDING_FILE_H_

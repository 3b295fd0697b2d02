#include "recording/recording_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "tests/tools/programs.h"

namespace vt::recording {
namespace {

namespace fs = std::filesystem;
using vt::testing::TempFolder;

std::size_t FilesIn(const fs::path& folder) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), {}));
}

int ErrorOf(const std::string& path) {
  try {
    SaveText(path, "new");
    return 0;
  } catch (const std::system_error& error) {
    return error.code().value();
  }
}

TEST(RecordingFile, WhatIsSavedIsLoaded) {
  const TempFolder folder;
  const std::string path = folder.path("a.recording");
  const std::string text(200'000, 'x');
  SaveText(path, "old");
  SaveText(path, text);
  EXPECT_EQ(LoadText(path), text);
  EXPECT_EQ(FilesIn(folder.path("")), 1u);
}

TEST(RecordingFile, ANewFileHasTheModeThatTheUserWants) {
  const TempFolder folder;
  const mode_t before = umask(027);
  SaveText(folder.path("a"), "x");
  umask(before);
  struct stat status {};
  ASSERT_EQ(stat(folder.path("a").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0640u);
}

TEST(RecordingFile, ALinkIsFollowedAndStays) {
  const TempFolder folder;
  const std::string target = folder.Write("target", "old");
  fs::create_symlink("target", folder.path("link"));
  SaveText(folder.path("link"), "new");
  EXPECT_EQ(LoadText(target), "new");
  EXPECT_TRUE(fs::is_symlink(folder.path("link")));
}

TEST(RecordingFile, WhatIsNoRegularFileIsLeftAlone) {
  const TempFolder folder;
  fs::create_directory(folder.path("folder"));
  ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
  EXPECT_EQ(ErrorOf(folder.path("folder")), EINVAL);
  EXPECT_EQ(ErrorOf(folder.path("pipe")), EINVAL);
  EXPECT_EQ(ErrorOf("/dev/null"), EINVAL);
  EXPECT_TRUE(fs::is_fifo(folder.path("pipe")));
  EXPECT_EQ(FilesIn(folder.path("")), 2u);
}

TEST(RecordingFile, AFolderThatIsMissingIsToldAndNotMade) {
  const TempFolder folder;
  EXPECT_EQ(ErrorOf(folder.path("missing/a")), ENOENT);
  EXPECT_EQ(FilesIn(folder.path("")), 0u);
}

TEST(RecordingFile, WhatCannotBeReadIsTold) {
  const TempFolder folder;
  EXPECT_THROW((void)LoadText(folder.path("missing")), std::system_error);
  EXPECT_THROW((void)LoadText(folder.path("")), std::system_error);
}

TEST(RecordingFile, AFileBeyondTheLargestIsRefused) {
  const TempFolder folder;
  const std::string path = folder.Write("large", "");
  fs::resize_file(path, kLargestFile + 1);  // a hole, which takes no room on the disk
  try {
    (void)LoadText(path);
    FAIL() << "it was read";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), EFBIG);
  }
}

}  // namespace
}  // namespace vt::recording

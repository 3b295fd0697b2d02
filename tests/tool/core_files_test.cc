// Reading a secret forbids core files. Each way to read one is tried in a process of its own, which
// tells by its exit code what it finds then.
#include "files/core_files.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "tests/tools/programs.h"
#include "tools/key_material.h"
#include "tools/secret_file.h"

namespace vt::tools {
namespace {

using vt::testing::kKeyHex;
using vt::testing::TempFolder;

enum Finding : int { kNoCore = 0, kDumpable = 1, kLimitAllows = 2, kWasForbiddenBefore = 4 };

[[noreturn]] void TellAfter(const std::function<void()>& read) {
  prctl(PR_SET_DUMPABLE, 1, 0, 0, 0);
  if (prctl(PR_GET_DUMPABLE, 0, 0, 0, 0) != 1) _exit(kWasForbiddenBefore);
  read();
  struct rlimit limit {};
  getrlimit(RLIMIT_CORE, &limit);
  const int dumpable = prctl(PR_GET_DUMPABLE, 0, 0, 0, 0) != 0 ? kDumpable : 0;
  _exit(dumpable + (limit.rlim_cur != 0 ? kLimitAllows : 0));
}

void ExpectNoCoreAfter(const std::function<void()>& read) {
  EXPECT_EXIT(TellAfter(read), ::testing::ExitedWithCode(kNoCore), "");
}

TEST(CoreFiles, AreForbiddenBeforeAKeyIsReadOrMade) {
  const TempFolder folder;
  const std::string key = folder.Write("key", kKeyHex);
  ExpectNoCoreAfter([&] { EXPECT_TRUE(ReadKeyFile(key).present()); });
  ExpectNoCoreAfter([] { (void)RandomKey(); });
}

TEST(CoreFiles, AreForbiddenBeforeAPassphraseIsRead) {
  const TempFolder folder;
  const std::string phrase = folder.Write("phrase", "words");
  ExpectNoCoreAfter([&] { (void)ReadSecretFile(phrase, 100); });
}

TEST(CoreFiles, MayBeAllowedAgainByProgramsThatAreStarted) {
  struct rlimit before {};
  ASSERT_EQ(getrlimit(RLIMIT_CORE, &before), 0);
  const auto raise_again = [&] {
    files::ForbidCoreFiles();
    struct rlimit limit {};
    getrlimit(RLIMIT_CORE, &limit);
    _exit(limit.rlim_max == before.rlim_max ? 0 : 1);
  };
  EXPECT_EXIT(raise_again(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace vt::tools

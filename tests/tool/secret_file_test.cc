// Files with secrets, keys and identities.
#include "tools/secret_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <future>

#include "vtapi.hpp"

#include "files/file_content.h"
#include "tests/tools/programs.h"
#include "tools/exit_code.h"
#include "tools/identities.h"
#include "tools/key_material.h"

namespace vt::tools {
namespace {

using vt::testing::TempFolder;
using Clock = std::chrono::steady_clock;

mode_t ModeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status.st_mode & 07777;
}

std::string FaultOfReading(const std::string& path, std::size_t most = 100) {
  try {
    ReadSecretFile(path, most);
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code(), kExitUsage);
    return failure.what();
  }
  return "none";
}

bool IsDigits(std::string_view text) {
  return std::ranges::all_of(text, [](char letter) {
    return (letter >= '0' && letter <= '9') || (letter >= 'a' && letter <= 'f');
  });
}

TEST(SecretFile, IsMadeForItsOwnerAloneWhateverTheMask) {
  const TempFolder folder;
  for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
    const std::string path = folder.path("secret-" + std::to_string(mask));
    const mode_t before = umask(mask);
    WriteSecretFile(path, "content");
    umask(before);
    EXPECT_EQ(ModeOf(path), 0600u);
  }
}

TEST(SecretFile, IsNeverOverwritten) {
  const TempFolder folder;
  const std::string path = folder.Write("secret", "first");
  EXPECT_THROW(WriteSecretFile(path, "second"), Failure);
  EXPECT_EQ(folder.Read("secret"), "first");
  ASSERT_EQ(symlink(folder.path("elsewhere").c_str(), folder.path("link").c_str()), 0);
  EXPECT_THROW(WriteSecretFile(folder.path("link"), "second"), Failure);
  EXPECT_EQ(folder.Read("elsewhere"), "");
}

TEST(SecretFile, IsReadWithoutOneLineEnd) {
  const TempFolder folder;
  EXPECT_EQ(ReadSecretFile(folder.Write("a", "word"), 10).text(), "word");
  EXPECT_EQ(ReadSecretFile(folder.Write("b", "word\n"), 10).text(), "word");
  EXPECT_EQ(ReadSecretFile(folder.Write("c", "word\r\n"), 10).text(), "word");
  EXPECT_EQ(ReadSecretFile(folder.Write("d", "word\n\n"), 10).text(), "word\n");
}

TEST(SecretFile, IsRefusedWhenGroupOrOthersMayOpenIt) {
  const TempFolder folder;
  for (const mode_t mode : {mode_t{0640}, mode_t{0604}, mode_t{0620}, mode_t{0601}}) {
    const std::string path = folder.Write("m" + std::to_string(mode), "hunter2", mode);
    EXPECT_EQ(FaultOfReading(path),
              "will not read " + path + ": others may open it; chmod 600 would prevent it");
  }
}

TEST(SecretFile, OfTooFewOrTooManyBytesIsRefusedWithoutTellingThem) {
  const TempFolder folder;
  EXPECT_EQ(FaultOfReading(folder.Write("empty", "")),
            "cannot use " + folder.path("empty") + ": it is empty");
  EXPECT_EQ(FaultOfReading(folder.Write("line", "\n")),
            "cannot use " + folder.path("line") + ": it is empty");
  EXPECT_EQ(FaultOfReading(folder.Write("long", "hunter2"), 6),
            "cannot use " + folder.path("long") + ": it holds more than 6 bytes");
  EXPECT_EQ(FaultOfReading(folder.Write("right", "hunter2\n"), 7), "none");
  EXPECT_EQ(FaultOfReading(folder.path("none")),
            "cannot read " + folder.path("none") + ": No such file or directory");
}

TEST(KeyMaterial, ARandomKeyIsAKeyFileAndAnotherEachTime) {
  const TempFolder folder;
  const Secret first = RandomKey();
  const Secret second = RandomKey();
  EXPECT_EQ(first.text().size(), 41u);
  EXPECT_TRUE(IsDigits(first.text().substr(0, 40)));
  EXPECT_NE(first.text(), second.text());
  WriteSecretFile(folder.path("key"), first.text());
  EXPECT_TRUE(voltaris::Key::from_file(folder.path("key")).has_value());
}

TEST(KeyMaterial, ADerivedKeyIsTheDigestOfTheIdentityUnderThePassphrase) {
  // printf %s 0123456789abcdef0123456789abcdef | openssl dgst -sha1 -hmac 'correct horse'
  const voltaris::DeviceId identity = ParseIdentity("0123456789abcdef0123456789abcdef");
  EXPECT_EQ(DerivedKey("correct horse", identity).text(),
            "64d871494c29f2da722de9b844a939fbe7356fa5\n");
}

TEST(Identities, ARandomOneIs32DigitsAndAnotherEachTime) {
  const std::string first = RandomIdentity();
  EXPECT_EQ(first.size(), 32u);
  EXPECT_TRUE(IsDigits(first)) << first;
  EXPECT_NE(first, RandomIdentity());
}

TEST(Identities, ThatOfAHardwareAddressEndsInIt) {
  const std::string expected = "e0d00de0000000000000001122aabbcc";
  EXPECT_EQ(IdentityOfMac("00:11:22:aa:bb:cc"), expected);
  EXPECT_EQ(IdentityOfMac("00-11-22-AA-BB-CC"), expected);
  EXPECT_EQ(IdentityOfMac("001122aabbcc"), expected);
  for (const char* wrong : {"", "00:11:22:aa:bb", "00:11:22:aa:bb:cg",
                            "00:11:22:aa:bb:cc:", "001122aabbc", "00.11.22.aa.bb.cc"}) {
    EXPECT_THROW(IdentityOfMac(wrong), Failure) << wrong;
  }
}

TEST(Identities, PartsAreJoinedWhenTheirLengthsAreRight) {
  EXPECT_EQ(IdentityOfParts({"ACME-PDU-2000-0001", "A01", "00042", "b12-r7"}),
            "ACME-PDU-2000-0001A0100042b12-r7");
  EXPECT_THROW(IdentityOfParts({"ACME-PDU-2000-001", "A01", "00042", "b12-r7"}), Failure);
  EXPECT_THROW(IdentityOfParts({"ACME-PDU-2000-0001", "A01", "00042", "b12-r77"}), Failure);
  EXPECT_THROW(IdentityOfParts({"ACME PDU 2000 0001", "A01", "00042", "b12-r7"}), Failure);
}

TEST(Identities, AFileHolds32CharactersOr36OfWhichTheFirstCount) {
  const TempFolder folder;
  const std::string text = "0123456789abcdef0123456789abcdef";
  EXPECT_EQ(ReadIdentityFile(folder.Write("a", text + "\n")).text(), text + "0000");
  const voltaris::Identity whole = ReadIdentityFile(folder.Write("b", text + "1234"));
  EXPECT_EQ(whole.text(), text + "1234");
  EXPECT_EQ(DeviceOf(whole).text(), text);
  EXPECT_THROW(ReadIdentityFile(folder.Write("c", text + "00")), Failure);
  EXPECT_THROW(ReadIdentityFile(folder.Write("d", text, 0644)), Failure);
}

// Pipe is a named one in a folder of its own.
class Pipe {
 public:
  Pipe() : path_(folder_.path("pipe")) { EXPECT_EQ(mkfifo(path_.c_str(), 0600), 0); }
  const std::string& path() const { return path_; }
  // Write waits for a reader, writes in two pieces and closes.
  void Write(const std::string& content) const {
    const files::FileDescriptor file(open(path_.c_str(), O_WRONLY | O_CLOEXEC));
    const std::size_t half = content.size() / 2;
    files::WriteAll(file, content.substr(0, half), "");
    files::WriteAll(file, content.substr(half), "");
  }

 private:
  TempFolder folder_;
  std::string path_;
};

constexpr const char* kDigits = "000102030405060708090a0b0c0d0e0f10111213";

TEST(SecretFile, OfAPipeComesFromItsWriter) {
  const Pipe pipe;
  auto writer = std::async(std::launch::async, [&pipe] { pipe.Write("a secret\n"); });
  EXPECT_EQ(ReadSecretFile(pipe.path(), 100, Clock::now() + std::chrono::minutes(1)).text(),
            "a secret");
  writer.get();
}

TEST(KeyFile, OfAPipeComesFromItsWriter) {
  for (const std::string& content : {std::string(kDigits) + "\n", std::string(20, '\n')}) {
    const Pipe pipe;
    auto writer = std::async(std::launch::async, [&] { pipe.Write(content); });
    const voltaris::Key key = ReadKeyFile(pipe.path(), Clock::now() + std::chrono::minutes(1));
    writer.get();
    EXPECT_EQ(key.secret_bytes()[1], content.size() == 20 ? '\n' : 1);
    EXPECT_EQ(key.secret_bytes()[19], content.size() == 20 ? '\n' : 0x13);
  }
}

TEST(KeyFile, OfAPipeMustHoldAKeyToo) {
  for (const std::string& content : {std::string("none"), std::string(kDigits) + "00",
                                     std::string(kDigits) + std::string(400, ' ')}) {
    const Pipe pipe;
    auto writer = std::async(std::launch::async, [&] { pipe.Write(content); });
    EXPECT_THROW(ReadKeyFile(pipe.path(), Clock::now() + std::chrono::minutes(1)), Failure);
    writer.get();
  }
}

TEST(KeyFile, OfAPipeThatNobodyWritesIsNotWaitedForBeyondTheDeadline) {
  const Pipe pipe;
  try {
    ReadKeyFile(pipe.path(), Clock::now() + std::chrono::milliseconds(20));
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_STREQ(failure.what(),
                 ("cannot read " + pipe.path() + ": nobody wrote into it in time").c_str());
  }
}

}  // namespace
}  // namespace vt::tools

// Keys: what files give one, who may read them, and that nothing of a key stays behind.
#include "vtapi/face/key.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <ostream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/harness/hex.h"

namespace {

using voltaris::Cause;
using voltaris::Expected;
using voltaris::Key;
using voltaris::KeyFilePolicy;
using vt::testing::Bytes;
using vt::testing::Hex;

constexpr char kKeyDigits[] = "000102030405060708090a0b0c0d0e0fA0b1C2d3";
Bytes KeyBytes() { return Hex("000102030405060708090a0b0c0d0e0fa0b1c2d3"); }

Bytes BytesOf(const Key& key) {
  const auto bytes = key.secret_bytes();
  return {bytes.begin(), bytes.end()};
}

class FaceKeyFile : public ::testing::Test {
 protected:
  FaceKeyFile() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vtapi-key-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    folder_ = pattern;
  }
  ~FaceKeyFile() override {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  std::string Write(const std::string& content, mode_t mode = 0600) const {
    std::ofstream(path(), std::ios::binary) << content;
    EXPECT_EQ(chmod(path().c_str(), mode), 0);
    return path();
  }
  std::string path() const { return folder_ + "/key"; }

 private:
  std::string folder_;
};

TEST_F(FaceKeyFile, OfDigitsOrOfRawBytesGivesTheSameKey) {
  const Bytes raw = KeyBytes();
  std::vector<std::string> contents;
  contents.emplace_back(raw.begin(), raw.end());
  for (const char* behind : {"", "\n", " \t\r\n"}) {
    contents.emplace_back(kKeyDigits).append(behind);
  }
  for (const std::string& content : contents) {
    const Expected<Key> key = Key::from_file(Write(content));
    ASSERT_TRUE(key) << key.error().text;
    EXPECT_TRUE(key->present());
    EXPECT_EQ(BytesOf(*key), KeyBytes());
  }
}

TEST_F(FaceKeyFile, OfTwentyRawBytesMayHoldAnything) {
  const std::string blanks(20, ' ');
  EXPECT_EQ(BytesOf(Key::from_file(Write(blanks)).value()), Bytes(20, ' '));
  const std::string digits(20, '1');  // raw bytes, and not half a key
  EXPECT_EQ(BytesOf(Key::from_file(Write(digits)).value()), Bytes(20, '1'));
}

TEST_F(FaceKeyFile, OfAnotherContentIsRefused) {
  struct Content {
    const char* before;
    std::size_t digits;
    std::size_t blanks;
    const char* behind;
  };
  constexpr Content contents[] = {{"", 0, 0, ""},     {"", 0, 0, "\n"},  {"", 19, 0, ""},
                                  {"", 21, 0, ""},    {"", 39, 0, ""},   {"", 41, 0, ""},
                                  {"", 39, 0, "g"},   {"g", 39, 0, ""},  {" ", 40, 0, ""},
                                  {"", 40, 0, "\nx"}, {"", 1000, 0, ""}, {"", 40, 1000, "x"}};
  for (const Content& parts : contents) {
    std::string content = parts.before;
    content.append(parts.digits, 'a').append(parts.blanks, ' ').append(parts.behind);
    const Expected<Key> key = Key::from_file(Write(content));
    ASSERT_FALSE(key) << content;
    EXPECT_EQ(key.error().cause, Cause::kKeyContent);
    EXPECT_EQ(key.error().text, "the key file " + path() +
                                    " must hold 20 raw bytes or 40 hexadecimal digits, and "
                                    "nothing else");
  }
}

TEST_F(FaceKeyFile, ThatCannotBeReadIsAnErrorWithItsErrno) {
  const Expected<Key> missing = Key::from_file(path());
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error().cause, Cause::kKeyFile);
  EXPECT_EQ(missing.error().number, ENOENT);
  EXPECT_EQ(missing.error().text,
            "cannot read the key file " + path() + ": " + std::strerror(ENOENT));
  const Expected<Key> folder = Key::from_file("/");
  ASSERT_FALSE(folder);
  EXPECT_EQ(folder.error().number, EISDIR);
}

TEST_F(FaceKeyFile, ThatOthersMayOpenIsRefused) {
  for (const mode_t mode : {0640u, 0604u, 0620u, 0602u, 0610u, 0601u, 0666u, 0777u}) {
    std::string warning;
    const Expected<Key> key =
        Key::from_file(Write(kKeyDigits, mode), KeyFilePolicy::kRefuse, &warning);
    ASSERT_FALSE(key) << std::oct << mode;
    EXPECT_EQ(key.error().cause, Cause::kKeyPermissions);
    EXPECT_NE(key.error().text.find("chmod 600"), std::string::npos);
    EXPECT_EQ(warning, "");
  }
  for (const mode_t mode : {0600u, 0400u, 0700u}) {
    EXPECT_TRUE(Key::from_file(Write(kKeyDigits, mode)));
  }
}

TEST_F(FaceKeyFile, ThatOthersMayOpenIsUsedWithAWarningWhereThatIsThePolicy) {
  std::string warning;
  const Expected<Key> key = Key::from_file(Write(kKeyDigits, 0644), KeyFilePolicy::kWarn, &warning);
  ASSERT_TRUE(key);
  EXPECT_EQ(BytesOf(*key), KeyBytes());
  EXPECT_EQ(warning, "others may open the key file " + path() + "; chmod 600 would prevent it");
  EXPECT_TRUE(Key::from_file(path(), KeyFilePolicy::kWarn));
  warning.clear();
  EXPECT_TRUE(Key::from_file(Write(kKeyDigits, 0600), KeyFilePolicy::kWarn, &warning));
  EXPECT_EQ(warning, "");
}

TEST_F(FaceKeyFile, OfAnotherUserIsRefused) {
  constexpr uid_t stranger = 54321;
  Write(kKeyDigits);
  if (chown(path().c_str(), stranger, static_cast<gid_t>(-1)) != 0) {
    GTEST_SKIP() << "only root can give a file away";
  }
  const Expected<Key> key = Key::from_file(path());
  ASSERT_FALSE(key);
  EXPECT_EQ(key.error().cause, Cause::kKeyPermissions);
  EXPECT_NE(key.error().text.find("belongs to another user"), std::string::npos);
  std::string warning;
  EXPECT_TRUE(Key::from_file(path(), KeyFilePolicy::kWarn, &warning));
  EXPECT_NE(warning.find("belongs to another user"), std::string::npos);
}

TEST_F(FaceKeyFile, MayBeAPipeThatDeliversInPieces) {
  ASSERT_EQ(mkfifo(path().c_str(), 0644), 0);
  std::thread writer([this] {
    std::ofstream pipe(path());
    pipe << std::string(kKeyDigits).substr(0, 7) << std::flush;
    pipe << std::string(kKeyDigits).substr(7) << std::flush;
  });
  const Expected<Key> key = Key::from_file(path());
  writer.join();
  ASSERT_TRUE(key) << key.error().text;
  EXPECT_EQ(BytesOf(*key), KeyBytes());
}

Key SomeKey() {
  const Bytes bytes = KeyBytes();
  return Key::from_bytes(std::span<const std::uint8_t, Key::kSize>(bytes.data(), Key::kSize));
}

TEST(FaceKey, IsWipedWhereItIsMovedFrom) {
  Key from = SomeKey();
  Key to = std::move(from);
  EXPECT_FALSE(from.present());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(BytesOf(from), Bytes(20, 0));
  EXPECT_TRUE(to.present());
  EXPECT_EQ(BytesOf(to), KeyBytes());
  from = std::move(to);
  EXPECT_FALSE(to.present());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(BytesOf(to), Bytes(20, 0));
  EXPECT_EQ(BytesOf(from), KeyBytes());
  Key& same = from;
  from = std::move(same);
  EXPECT_EQ(BytesOf(from), KeyBytes());
}

TEST(FaceKey, IsWipedWhenItEnds) {
  alignas(Key) unsigned char place[sizeof(Key)];
  Key* const key = new (place) Key(SomeKey());
  EXPECT_EQ(BytesOf(*key), KeyBytes());
  key->~Key();
  Bytes left(sizeof place);
  for (std::size_t i = 0; i < left.size(); ++i) {
    left[i] = static_cast<volatile unsigned char*>(place)[i];
  }
  EXPECT_EQ(Bytes(left.begin(), left.begin() + 20), Bytes(20, 0));
}

template <class T>
concept Printable = requires(std::ostream& out, const T& value) {
  out << value;
};
template <class T>
concept Comparable = requires(const T& value) {
  value == value;
};

TEST(FaceKey, CanBeNeitherCopiedNorPrintedNorCompared) {
  static_assert(!std::is_copy_constructible_v<Key> && !std::is_copy_assignable_v<Key>);
  static_assert(!std::is_default_constructible_v<Key>);
  static_assert(!Printable<Key> && !Comparable<Key>);
  static_assert(Printable<int> && Comparable<int>);
}

}  // namespace

// The bounded writer: what has no room is not written, and does not count.
#include "support/writer.h"

#include "tests/harness/guard.h"
#include "tests/harness/hex.h"

namespace {

using vt::support::Writer;
using vt::testing::GuardedBytes;
using vt::testing::Hex;

TEST(Writer, WritesBigEndianIntegersBytesAndZeros) {
  GuardedBytes output(Hex("12*ff"));
  Writer out(output.data(), output.size());
  out.Write(std::uint8_t{0x01});
  out.Write(std::uint16_t{0x0203});
  out.Write(std::uint32_t{0x04050607});
  out.Write("ab", 2);
  out.WriteZeros(2);
  EXPECT_EQ(out.written(), 11U);
  EXPECT_BYTES(output.data(), output.size(), "01 0203 04050607 6162 0000 ff");
}

TEST(Writer, WritesNothingBeyondItsRoom) {
  GuardedBytes output(Hex("ffff ff"));
  Writer out(output.data(), output.size());
  out.Write(std::uint32_t{1});
  out.Write("abcd", 4);
  out.WriteZeros(4);
  EXPECT_EQ(out.Reserve(4), nullptr);
  EXPECT_EQ(out.written(), 0U);
  EXPECT_BYTES(output.data(), output.size(), "ffff ff");
}

TEST(Writer, AcceptsNothingFromNull) {
  Writer out(nullptr, 0);
  out.Write(nullptr, 0);
  out.WriteZeros(0);
  EXPECT_EQ(out.written(), 0U);
}

}  // namespace

#include <gtest/gtest.h>

#include <cstdint>

#include "vtapi.h"

#include "tests/harness/guard.h"
#include "tests/harness/hex.h"

namespace vt::protocol {
namespace {

using vt::testing::Bytes;
using vt::testing::GuardedBytes;
using vt::testing::HeapBytes;
using vt::testing::Hex;

TEST(PduSize, IsTheMessageHeaderPlusTheTlvBytes) {
  const struct {
    const char* header;
    std::uint32_t size;
  } rows[] = {
      {"44*ff 0000 ffff", 48},
      {"44*ff 0001 ffff", 49},
      {"44*00 0102 0000", 306},
      {"44*00 ffff 0000", 65583},
  };
  for (const auto& row : rows) {
    const GuardedBytes header(Hex(row.header));
    EXPECT_EQ(vtn_getPduSize(header.data()), row.size) << row.header;
  }
}

TEST(PduSize, ReadsAHeaderAtAnOddAddress) {
  const GuardedBytes header = GuardedBytes::AtOddAddress(Hex("44*00 8001 0003"));
  EXPECT_EQ(vtn_getPduSize(header.data()), 48u + 0x8001u);
}

TEST(ValidPduAddress, RunsFromTheHeaderToTheLastElementByte) {
  const HeapBytes pdu(Hex("44*00 0005 0001 5*00"));
  const std::uint8_t* hdr = pdu.data();
  EXPECT_EQ(vtn_isValidPduAddress(hdr, hdr), 1);
  EXPECT_EQ(vtn_isValidPduAddress(hdr, hdr + 47), 1);
  EXPECT_EQ(vtn_isValidPduAddress(hdr, hdr + 52), 1);
  EXPECT_EQ(vtn_isValidPduAddress(hdr, hdr + 53), 0);
}

TEST(ValidPduAddress, EndsAtTheHeaderWhenThereAreNoElements) {
  const HeapBytes pdu(Hex("44*ff 0000 0000"));
  EXPECT_EQ(vtn_isValidPduAddress(pdu.data(), pdu.data()), 1);
  EXPECT_EQ(vtn_isValidPduAddress(pdu.data(), pdu.data() + 48), 0);
}

TEST(ValidPduAddress, ExcludesWhatLiesBeforeTheHeader) {
  const HeapBytes block(Hex("32*00 44*00 0005 0001 5*00"));
  const std::uint8_t* hdr = block.data() + 32;
  EXPECT_EQ(vtn_isValidPduAddress(hdr, hdr - 1), 0);
  EXPECT_EQ(vtn_isValidPduAddress(hdr, block.data()), 0);
  EXPECT_EQ(vtn_isValidPduAddress(hdr, nullptr), 0);
}

}  // namespace
}  // namespace vt::protocol

// The catalogue of types: fixed lengths, the combined types, attribute numbers, classes, actions.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "vtapi.h"

#include "tests/harness/log_capture.h"

namespace {

using namespace vt::testing;

constexpr std::uint32_t kVaries = 0;
constexpr std::uint32_t kNotKnown = 255;

// By type; what vtn_getTypeLength does not know is as deliberate as the 4 bytes of type 42.
constexpr std::array<std::uint32_t, 52> kLengths = {
    kVaries,   36,      32,        4,       kVaries,    // 0 to 4
    kVaries,   kVaries, kVaries,   kVaries, kVaries,    // 5 to 9
    kVaries,   kVaries, 1,         2,       1,          // 10 to 14
    1,         1,       1,         1,       2,          // 15 to 19
    32,        32,      4,         16,      16,         // 20 to 24
    4,         4,       kVaries,   84,      2,          // 25 to 29
    32,        4,       4,         4,       4,          // 30 to 34
    36,        44,      kNotKnown, 4,       22,         // 35 to 39
    kVaries,   1,       4,         26,      46,         // 40 to 44
    68,        12,      kNotKnown, kVaries, kNotKnown,  // 45 to 49
    kNotKnown, 4,                                       // 50 and 51
};

std::string Unexpected(std::int32_t type) {
  return "vtn_getTypeLength: unexpected type " + std::to_string(type);
}

TEST(TypeLength, EveryTypeHasItsLengthOnBothWordSizes) {
  for (std::uint32_t type = 0; type < kLengths.size(); ++type) {
    SCOPED_TRACE(type);
    const LogCapture log(kTrace);
    EXPECT_EQ(vtn_getTypeLength(type), kLengths[type]);
    if (kLengths[type] == kNotKnown) {
      const std::vector<LogLine> expected = {{kWarn, Unexpected(static_cast<std::int32_t>(type))}};
      EXPECT_EQ(log.lines(), expected);
    } else {
      EXPECT_TRUE(log.lines().empty());
    }
  }
}

TEST(TypeLength, AlarmIsUnexpectedAlthoughTheCodecKnowsIt) {
  const LogCapture log(kWarn);
  EXPECT_EQ(vtn_getTypeLength(50), 255U);
  EXPECT_EQ(log.Count(kWarn, "vtn_getTypeLength: unexpected type 50"), 1U);
}

TEST(TypeLength, AcknowledgementHasFourBytesAlthoughItCarriesNoValue) {
  EXPECT_EQ(vtn_getTypeLength(42), 4U);
}

TEST(TypeLength, OtherNumbersAreUnexpectedAndFlagsAreNotStripped) {
  const struct {
    std::uint32_t type;
    std::int32_t printed;
  } rows[] = {{52, 52},
              {60, 60},
              {255, 255},
              {256 + 13, 269},
              {0x40000001, 0x40000001},
              {0x80000001, -2147483647},
              {0x80000000, INT32_MIN},
              {0xFFFFFFFF, -1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.printed);
    const LogCapture log(kTrace);
    EXPECT_EQ(vtn_getTypeLength(row.type), 255U);
    const std::vector<LogLine> expected = {{kWarn, Unexpected(row.printed)}};
    EXPECT_EQ(log.lines(), expected);
  }
}

TEST(TypeLength, WarningIsSilentAboveWarn) {
  const LogCapture log(kError);
  EXPECT_EQ(vtn_getTypeLength(50), 255U);
  EXPECT_TRUE(log.lines().empty());
}

TEST(ComboTlv, ThreeTypesAreCombinedWithAndWithoutTheAggregateFlag) {
  for (std::uint32_t number = 0; number < 64; ++number) {
    const int expected = number >= 43 && number <= 45 ? 1 : 0;
    EXPECT_EQ(cv_is_combo_tlv(number), expected) << number;
    EXPECT_EQ(cv_is_combo_tlv(number | 0x80000000U), expected) << number;
  }
  EXPECT_EQ(cv_is_combo_tlv(0x8000002C), 1);
}

TEST(ComboTlv, ReservedBitIsNotStripped) {
  for (std::uint32_t number = 0; number < 64; ++number) {
    EXPECT_EQ(cv_is_combo_tlv(number | 0x40000000U), 0) << number;
    EXPECT_EQ(cv_is_combo_tlv(number | 0xC0000000U), 0) << number;
  }
  EXPECT_EQ(cv_is_combo_tlv(0xFFFFFFFF), 0);
}

// By attribute number, from 1.
constexpr std::array<std::int32_t, 22> kTypes = {1,  7,  8,  9,  10, 11, 12, 13, 14, 17, 22,
                                                 23, 28, 29, 34, 36, 38, 39, 41, 46, 48, 51};

TEST(AttributeNumbers, EveryAttributeHasItsType) {
  for (std::size_t i = 0; i < kTypes.size(); ++i) {
    EXPECT_EQ(vt_get_tlv_enum_type(static_cast<std::int32_t>(i) + 1), kTypes[i]);
  }
}

TEST(AttributeNumbers, OtherNumbersHaveNone) {
  for (const std::int32_t attribute : {0, -1, 23, 24, 255, 256 + 1, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(vt_get_tlv_enum_type(attribute), -1) << attribute;
  }
}

TEST(AttributeNumbers, TypesTranslateBackToTheirAttribute) {
  for (std::uint32_t type = 0; type < 300; ++type) {
    std::int32_t expected = -1;
    for (std::size_t i = 0; i < kTypes.size(); ++i) {
      if (kTypes[i] == static_cast<std::int32_t>(type)) expected = static_cast<std::int32_t>(i) + 1;
    }
    EXPECT_EQ(vt_get_external_tlv_enum_type(type), expected) << type;
  }
}

TEST(AttributeNumbers, FlaggedTypesHaveNone) {
  for (const std::uint32_t type : {0x80000001U, 0x8000000DU, 0x40000001U, 0xC000000DU, 0xFFFFFFFFU,
                                   0x7FFFFFFFU, 0x80000000U}) {
    EXPECT_EQ(vt_get_external_tlv_enum_type(type), -1) << type;
  }
}

TEST(NannyBits, OnlyZeroIsKnown) {
  EXPECT_EQ(vt_get_internal_nanny_bit_type(0), 5);
  for (const std::int32_t bit : {1, -1, 5, 6, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(vt_get_internal_nanny_bit_type(bit), -1) << bit;
  }
}

TEST(QueryClasses, TwoAreKnown) {
  EXPECT_EQ(vt_get_class_enum_type(1), 10);
  EXPECT_EQ(vt_get_class_enum_type(2), 11);
  for (const std::int32_t cls : {0, 3, -1, 10, 11, 257, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(vt_get_class_enum_type(cls), -1) << cls;
  }
}

TEST(QueryActions, FourPairsAreKnown) {
  for (std::int32_t cls = -2; cls <= 16; ++cls) {
    for (std::int32_t action = -2; action <= 16; ++action) {
      std::int32_t expected = -1;
      if (cls == 1 && action == 1) expected = 10;
      if (cls == 1 && action == 2) expected = 11;
      if (cls == 1 && action == 3) expected = 14;
      if (cls == 2 && action == 1) expected = 10;
      EXPECT_EQ(vt_get_action_enum_type(cls, action), expected) << cls << ", " << action;
    }
  }
}

TEST(QueryActions, SecondActionOfAggregatesIsUnknown) {
  EXPECT_EQ(vt_get_action_enum_type(2, 2), -1);
}

// 14 is outside the named actions of a query.
TEST(QueryActions, ThirdActionOfQueriesTravelsWithoutAName) {
  EXPECT_EQ(vt_get_action_enum_type(1, 3), 14);
  EXPECT_EQ(cv_util_e2s_action_mxrt_corvane_query(14), nullptr);
}

}  // namespace

// Errors and what holds either a result or one.
#include "vtapi/face/error.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>

namespace {

using voltaris::Cause;
using voltaris::Error;
using voltaris::Exception;
using voltaris::Expected;

const Error kError{Cause::kTooLong, "name could not be added", 7};

TEST(FaceError, IsComparedByCauseTextAndNumber) {
  EXPECT_EQ(kError, (Error{Cause::kTooLong, "name could not be added", 7}));
  EXPECT_NE(kError, (Error{Cause::kNoMemory, "name could not be added", 7}));
  EXPECT_NE(kError, (Error{Cause::kTooLong, "role could not be added", 7}));
  EXPECT_NE(kError, (Error{Cause::kTooLong, "name could not be added", 8}));
}

TEST(FaceExpected, HoldsAResult) {
  Expected<std::string> text(std::string("lamp"));
  ASSERT_TRUE(text);
  EXPECT_TRUE(text.has_value());
  EXPECT_EQ(*text, "lamp");
  EXPECT_EQ(text->size(), 4u);
  EXPECT_EQ(text.value(), "lamp");
  *text += "-1";
  const Expected<std::string>& same = text;
  EXPECT_EQ(*same, "lamp-1");
  EXPECT_EQ(same->size(), 6u);
  EXPECT_EQ(same.value(), "lamp-1");
}

TEST(FaceExpected, HandsOverWhatCanOnlyBeMoved) {
  Expected<std::unique_ptr<int>> number(std::make_unique<int>(5));
  const std::unique_ptr<int> taken = std::move(number).value();
  EXPECT_EQ(*taken, 5);
  Expected<std::unique_ptr<int>> other(std::make_unique<int>(6));
  const std::unique_ptr<int> also_taken = *std::move(other);
  EXPECT_EQ(*also_taken, 6);
}

TEST(FaceExpected, HoldsAnError) {
  const Expected<std::string> text(kError);
  EXPECT_FALSE(text);
  EXPECT_FALSE(text.has_value());
  EXPECT_EQ(text.error(), kError);
}

TEST(FaceExpected, ThrowsWithTheErrorWhenItsValueIsAskedForInVain) {
  Expected<int> number(kError);
  EXPECT_THROW(number.value(), Exception);
  EXPECT_THROW(std::as_const(number).value(), Exception);
  EXPECT_THROW(Expected<int>(kError).value(), Exception);
  EXPECT_THROW(Expected<void>(kError).value(), Exception);
  try {
    (void)number.value();
  } catch (const Exception& exception) {
    EXPECT_EQ(exception.error(), kError);
    EXPECT_STREQ(exception.what(), "name could not be added");
  }
}

TEST(FaceExpected, OfNothingIsSuccessOrAnError) {
  const Expected<void> good;
  EXPECT_TRUE(good);
  EXPECT_NO_THROW(good.value());
  const Expected<void> bad(kError);
  EXPECT_FALSE(bad.has_value());
  EXPECT_EQ(bad.error(), kError);
}

TEST(FaceExpectedDeathTest, EndsTheProcessWhereItIsUsedUnlooked) {
  const Expected<int> bad(kError);
  const Expected<int> good(5);
  const Expected<void> success;
  EXPECT_DEATH((void)*bad, "");
  EXPECT_DEATH((void)good.error(), "");
  EXPECT_DEATH((void)success.error(), "");
}

}  // namespace

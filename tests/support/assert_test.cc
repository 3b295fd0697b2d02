#include <gtest/gtest.h>

#include <cstring>

#include "vtapi.h"

namespace {

// Misuse ends the process in release builds as well; the message names the unit of old, not a file,
// and the plain name of the exported function.
TEST(AssertDeathTest, NamesTextUnitAndFunctionOfTheClientApi) {
  Session session;
  std::memset(&session, 0, sizeof session);
  session.sequence_number = 0xFFFFFFFF;
  EXPECT_EXIT(getNextSequenceNumber(&session), ::testing::KilledBySignal(SIGABRT),
              ": MgmtApi:[0-9]+: getNextSequenceNumber: "
              "Assertion `session->sequenceNumber < 0xFFFFFFFF' failed");
}

TEST(AssertDeathTest, NamesTextUnitAndFunctionOfTheEventCore) {
  EXPECT_EXIT(cv_unpack_tlvs(nullptr), ::testing::KilledBySignal(SIGABRT),
              ": corvane_util:[0-9]+: cv_unpack_tlvs: Assertion `ev' failed");
}

}  // namespace

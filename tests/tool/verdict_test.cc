#include "tools/verdict.h"

#include <gtest/gtest.h>

#include <vector>

namespace vt::tools {
namespace {

using voltaris::Outcome;

constexpr CollectionCounters Counters(std::uint32_t accepted, std::uint32_t forged = 0,
                                      std::uint32_t malformed = 0) {
  return {.bytes = 1000,
          .accepted = accepted,
          .forged = forged,
          .malformed = malformed,
          .acknowledgements = 0};
}

Status StatusOf(const Evidence& evidence) { return Judge(evidence).status; }

TEST(Verdict, AWholeAnswerIsOkAndHasNoReason) {
  const Verdict verdict =
      Judge({.outcome = Outcome::kComplete, .counters = Counters(2), .rows = 1, .accepted = 1});
  EXPECT_EQ(verdict.status, Status::kOk);
  EXPECT_EQ(verdict.reason, "");
}

TEST(Verdict, AnAnswerWithAnythingMissingOrDroppedIsPartial) {
  for (const Outcome outcome : {Outcome::kIdle, Outcome::kDeadline, Outcome::kReadError,
                                Outcome::kOverSize, Outcome::kCancelled}) {
    const Verdict verdict = Judge({.outcome = outcome, .counters = Counters(1), .rows = 1});
    EXPECT_EQ(verdict.status, Status::kPartial);
    EXPECT_NE(verdict.reason, "");
  }
  EXPECT_EQ(StatusOf({.outcome = Outcome::kComplete, .counters = Counters(1, 1), .rows = 1}),
            Status::kPartial);
  EXPECT_EQ(StatusOf({.outcome = Outcome::kComplete, .counters = Counters(1, 0, 1), .rows = 1}),
            Status::kPartial);
  EXPECT_EQ(StatusOf({.outcome = Outcome::kComplete, .lacked_memory = true, .rows = 1}),
            Status::kPartial);
}

TEST(Verdict, WithoutAConnectionItIsUnreachableForWhateverReason) {
  for (const Outcome outcome :
       {Outcome::kRefused, Outcome::kUnreachable, Outcome::kConnectTimeout, Outcome::kSendError}) {
    EXPECT_EQ(StatusOf({.outcome = outcome}), Status::kUnreachable);
  }
}

TEST(Verdict, ForgedAnswersTellMoreThanThatTheTimeWasUp) {
  EXPECT_EQ(StatusOf({.outcome = Outcome::kIdle, .counters = Counters(0, 3)}), Status::kUnverified);
  EXPECT_EQ(StatusOf({.outcome = Outcome::kIdle}), Status::kNoAnswer);
  EXPECT_EQ(StatusOf({.outcome = Outcome::kDeadline}), Status::kNoAnswer);
}

TEST(Verdict, WhatCannotBeDecodedIsNotOnlyForged) {
  EXPECT_EQ(StatusOf({.outcome = Outcome::kComplete, .counters = Counters(0, 1, 1)}),
            Status::kProtocolError);
  EXPECT_EQ(StatusOf({.outcome = Outcome::kOverSize}), Status::kProtocolError);
  EXPECT_EQ(StatusOf({.outcome = Outcome::kReadError, .error_number = 104}),
            Status::kProtocolError);
}

TEST(Verdict, RefusalsAreAnAnswerAndSilenceIsNone) {
  EXPECT_EQ(StatusOf({.outcome = Outcome::kComplete, .counters = Counters(1), .refused = 4}),
            Status::kRefused);
  EXPECT_EQ(StatusOf({.outcome = Outcome::kComplete}), Status::kNothingMatched);
  EXPECT_EQ(StatusOf({.outcome = Outcome::kCancelled}), Status::kNotAsked);
}

TEST(Verdict, EachStatusHasTheExitCodeOfACommandToOneNode) {
  EXPECT_EQ(CodeOf(Status::kOk), 0);
  EXPECT_EQ(CodeOf(Status::kPartial), 1);
  EXPECT_EQ(CodeOf(Status::kUnreachable), 3);
  EXPECT_EQ(CodeOf(Status::kNoAnswer), 4);
  EXPECT_EQ(CodeOf(Status::kUnverified), 5);
  EXPECT_EQ(CodeOf(Status::kProtocolError), 6);
  EXPECT_EQ(CodeOf(Status::kRefused), 7);
  EXPECT_EQ(CodeOf(Status::kDenied), 7);
  EXPECT_EQ(CodeOf(Status::kNothingMatched), 8);
  EXPECT_EQ(CodeOf(Status::kNotAsked), 4);
  EXPECT_EQ(CodeOf(Status::kNoMemory), 9);
}

ExitCode Of(const std::vector<Status>& statuses) { return Overall(statuses); }

TEST(VerdictOfSeveral, IsThatOfEachWhereAllAreAlike) {
  for (const Status status :
       {Status::kOk, Status::kPartial, Status::kUnreachable, Status::kNoAnswer, Status::kUnverified,
        Status::kProtocolError, Status::kRefused, Status::kDenied, Status::kNothingMatched}) {
    EXPECT_EQ(Of({status}), CodeOf(status));
    EXPECT_EQ(Of({status, status, status}), CodeOf(status));
  }
}

TEST(VerdictOfSeveral, IsPartialBesideAnAnswerButForVerifiedRefusals) {
  EXPECT_EQ(Of({Status::kOk, Status::kRefused}), kExitOk);
  for (const Status status : {Status::kPartial, Status::kUnreachable, Status::kNoAnswer,
                              Status::kUnverified, Status::kProtocolError, Status::kDenied,
                              Status::kNothingMatched, Status::kNotAsked, Status::kNoMemory}) {
    EXPECT_EQ(Of({Status::kOk, status}), kExitPartial);
    EXPECT_EQ(Of({status, Status::kOk}), kExitPartial);
  }
}

TEST(VerdictOfSeveral, IsTheOneThatTellsMostWithoutAnAnswer) {
  std::vector<Status> statuses = {Status::kNotAsked};
  EXPECT_EQ(Of(statuses), kExitNoAnswer);
  for (const Status next : {Status::kUnreachable, Status::kNoAnswer, Status::kNothingMatched,
                            Status::kRefused, Status::kProtocolError, Status::kUnverified}) {
    statuses.push_back(next);
    EXPECT_EQ(Of(statuses), CodeOf(next));
  }
}

}  // namespace
}  // namespace vt::tools

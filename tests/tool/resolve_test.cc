// Names turned into addresses until a deadline.
#include "tools/resolve.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <atomic>
#include <latch>
#include <memory>

#include "files/file_descriptor.h"

namespace vt::tools {
namespace {

using Clock = std::chrono::steady_clock;
using Strings = std::vector<std::string>;

// Only something broken reaches it.
Clock::time_point Late() { return Clock::now() + std::chrono::minutes(1); }

TEST(Resolve, AddressesAreTakenAsTheyAre) {
  const Lookup never = [](const std::string& host) -> Resolution {
    ADD_FAILURE() << host << " is looked up";
    return {};
  };
  EXPECT_EQ(Resolve({"192.0.2.1", "127.0.0.1"}, Late(), never),
            (std::vector<Resolution>{{"192.0.2.1", ""}, {"127.0.0.1", ""}}));
}

TEST(Resolve, AnswersStandInTheOrderOfTheNames) {
  const Lookup lookup = [](const std::string& host) -> Resolution {
    if (host == "b") return {"", "no such name"};
    return {"192.0.2." + std::to_string(host.size()), ""};
  };
  EXPECT_EQ(Resolve({"aaa", "b", "cc"}, Late(), lookup),
            (std::vector<Resolution>{{"192.0.2.3", ""}, {"", "no such name"}, {"192.0.2.2", ""}}));
}

TEST(Resolve, ANameThatIsThereTwiceIsLookedUpOnce) {
  const auto calls = std::make_shared<std::atomic<int>>(0);
  const Lookup lookup = [calls](const std::string& /*host*/) -> Resolution {
    ++*calls;
    return {"192.0.2.1", ""};
  };
  EXPECT_EQ(Resolve({"a", "a", "a"}, Late(), lookup).size(), 3u);
  EXPECT_EQ(*calls, 1);
}

TEST(Resolve, MoreNamesThanThreadsAreAllFound) {
  Strings names;
  for (int i = 0; i < 500; ++i) names.push_back("n" + std::to_string(i));
  const Lookup lookup = [](const std::string& host) -> Resolution { return {host, ""}; };
  const std::vector<Resolution> found = Resolve(names, Late(), lookup);
  for (std::size_t i = 0; i < names.size(); ++i) EXPECT_EQ(found[i].address, names[i]);
}

TEST(Resolve, ALookUpThatHangsIsNotWaitedForBeyondTheDeadline) {
  const auto release = std::make_shared<std::latch>(1);
  const Lookup lookup = [release](const std::string& /*host*/) -> Resolution {
    release->wait();
    return {"192.0.2.9", ""};
  };
  EXPECT_EQ(Resolve({"hangs", "192.0.2.1"}, Clock::now(), lookup),
            (std::vector<Resolution>{{"", "the name was not found in time"}, {"192.0.2.1", ""}}));
  release->count_down();  // so that no thread stays behind
}

TEST(Resolve, LookUpsThatHangDoNotBecomeMoreAndMore) {
  const auto release = std::make_shared<std::latch>(1);
  const Lookup lookup = [release](const std::string& /*host*/) -> Resolution {
    release->wait();
    return {"192.0.2.9", ""};
  };
  Strings names;
  for (int i = 0; i < 40; ++i) names.push_back("n" + std::to_string(i));
  bool has_end = false;
  // Each round leaves some behind.
  for (int round = 0; round < 200 && !has_end; ++round) {
    const auto soon = Clock::now() + std::chrono::milliseconds(5);
    has_end = Resolve(names, soon, lookup)[0].reason == "too many look-ups are under way";
  }
  EXPECT_TRUE(has_end);
  release->count_down();
}

TEST(Resolve, ADescriptorThatCanBeReadEndsTheWait) {
  const auto release = std::make_shared<std::latch>(1);
  const Lookup lookup = [release](const std::string& /*host*/) -> Resolution {
    release->wait();
    return {"192.0.2.9", ""};
  };
  const files::FileDescriptor stop(eventfd(1, EFD_CLOEXEC));
  ASSERT_TRUE(stop.is_open());
  EXPECT_EQ(Resolve({"hangs"}, Late(), lookup, stop.get())[0].address, "");
  release->count_down();  // so that no thread stays behind
}

TEST(Resolve, TheSystemKnowsThisHost) {
  EXPECT_EQ(LookUpIpv4("127.0.0.1"), (Resolution{"127.0.0.1", ""}));
}

}  // namespace
}  // namespace vt::tools

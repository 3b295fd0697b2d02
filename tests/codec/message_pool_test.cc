// The pool of messages by itself: what it gives out, what it takes back, and how long chunks live.
#include "codec/message_pool.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tests/harness/faults.h"

namespace {

using namespace vt::testing;
using vt::codec::IsPooled;
using vt::codec::MessagePool;

constexpr std::size_t kHead = 200;
constexpr std::size_t kRoom = 1000;

TEST(MessagePool, HeadsAndPartsBeginWhereNoBlockDoesAndDoNotOverlap) {
  MessagePool pool{};
  std::vector<std::pair<std::byte*, std::size_t>> made;
  for (std::size_t n = 1; n < 200; ++n) {
    made.emplace_back(static_cast<std::byte*>(pool.NewHead(kHead + n, kRoom)), kHead + n);
    made.emplace_back(static_cast<std::byte*>(pool.NewPart(n)), n);
    ASSERT_NE(made.back().first, nullptr);
  }
  for (const auto& [at, size] : made) {
    EXPECT_TRUE(IsPooled(at));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(at) % 8, 0U);
    std::memset(at, static_cast<int>(size % 251), size);  // all but the word before a head
  }
  for (const auto& [at, size] : made) {
    EXPECT_EQ(at[0], std::byte(size % 251));
    EXPECT_EQ(at[size - 1], std::byte(size % 251));
  }
  for (std::size_t i = 0; i < made.size(); i += 2) MessagePool::ReleaseHead(made[i].first);
  pool.Close();
}

TEST(MessagePool, ChunksGoWithTheLastOfTheirMessagesInWhateverOrder) {
  const LiveBlocks live;
  MessagePool pool{};
  std::vector<void*> heads;
  while (live.count() < 3) heads.push_back(pool.NewHead(kHead, kRoom));
  const std::size_t of_first = heads.size();
  ASSERT_GT(of_first, 100U);
  for (std::size_t i = 1; i < of_first; i += 2) MessagePool::ReleaseHead(heads[i]);
  EXPECT_EQ(live.count(), 3);
  pool.Close();  // which leaves those that are there alone
  EXPECT_EQ(live.count(), 3);
  for (std::size_t i = 0; i < of_first; i += 2) std::memset(heads[i], 1, kHead);
  for (std::size_t i = 0; i < of_first; i += 2) MessagePool::ReleaseHead(heads[i]);
  EXPECT_EQ(live.count(), 0);
}

TEST(MessagePool, AMessageThatIsLargerThanAChunkGetsOneOfItsOwnSize) {
  constexpr std::size_t kLarge = 300000;
  const LiveBlocks live;
  MessagePool pool{};
  void* const small = pool.NewHead(kHead, kRoom);
  void* const large = pool.NewHead(kHead, kLarge);
  ASSERT_NE(large, nullptr);
  auto* const part = static_cast<std::byte*>(pool.NewPart(kLarge));
  ASSERT_NE(part, nullptr);
  std::memset(part, 1, kLarge);  // the sanitizers look on
  EXPECT_EQ(live.count(), 2);
  MessagePool::ReleaseHead(small);
  EXPECT_EQ(live.count(), 1);
  MessagePool::ReleaseHead(large);
  EXPECT_EQ(live.count(), 1);  // messages are still made there
  pool.Close();
  EXPECT_EQ(live.count(), 0);
}

TEST(MessagePool, APartForWhichThereIsNoRoomIsRefusedAndTheNextSmallerOneIsNot) {
  MessagePool pool{};
  void* const head = pool.NewHead(kHead, 0);
  EXPECT_EQ(pool.NewPart(SIZE_MAX), nullptr);
  EXPECT_EQ(pool.NewPart(1 << 20), nullptr);
  EXPECT_NE(pool.NewPart(100), nullptr);
  MessagePool::ReleaseHead(head);
  pool.Close();
}

TEST(MessagePool, AChunkThatIsFullToItsLastByteHasNoRoomForAnything) {
  MessagePool pool{};
  void* const head = pool.NewHead(kHead, 0);
  std::size_t rest = 1 << 20;
  while (pool.NewPart(rest) == nullptr) --rest;
  EXPECT_EQ(pool.NewPart(1), nullptr);
  EXPECT_EQ(pool.NewPart(0), nullptr) << "which would begin beyond the end";
  MessagePool::ReleaseHead(head);
  pool.Close();
}

TEST(MessagePool, WhatAPartDoesNotNeedIsThatOfTheNext) {
  MessagePool pool{};
  void* const head = pool.NewHead(kHead, kRoom);
  auto* const first = static_cast<std::byte*>(pool.NewPart(800));
  pool.GiveBack(800 - 24);
  EXPECT_EQ(pool.NewPart(8), first + 32);
  MessagePool::ReleaseHead(head);
  pool.Close();
}

TEST(MessagePool, TheMemoryOfARefusedMessageIsThatOfTheNext) {
  const LiveBlocks live;
  MessagePool pool{};
  void* const kept = pool.NewHead(kHead, kRoom);
  void* refused = nullptr;
  for (int i = 0; i < 10000; ++i) {
    void* const head = pool.NewHead(kHead, kRoom);
    if (refused != nullptr) ASSERT_EQ(head, refused);
    refused = head;
    ASSERT_NE(pool.NewPart(kRoom), nullptr);
    MessagePool::ReleaseHead(head);
    pool.TakeBack();
  }
  EXPECT_EQ(live.count(), 1);
  MessagePool::ReleaseHead(kept);
  pool.Close();
  EXPECT_EQ(live.count(), 0);
}

TEST(MessagePool, WithoutMemoryForAChunkThereIsNoMessageAndThePoolGoesOn) {
  const LiveBlocks live;
  MessagePool pool{};
  {
    const AllocationFault fault = AllocationFault::Nth(0);
    EXPECT_EQ(pool.NewHead(kHead, kRoom), nullptr);
    EXPECT_TRUE(fault.hit());
  }
  void* const head = pool.NewHead(kHead, kRoom);
  ASSERT_NE(head, nullptr);
  {
    const AllocationFault fault = AllocationFault::Nth(0);
    EXPECT_EQ(pool.NewHead(kHead, 1 << 20), nullptr);
    EXPECT_TRUE(fault.hit());
  }
  void* const next = pool.NewHead(kHead, kRoom);  // where the first is
  EXPECT_EQ(live.count(), 1);
  MessagePool::ReleaseHead(next);
  MessagePool::ReleaseHead(head);
  pool.Close();
  EXPECT_EQ(live.count(), 0);
}

}  // namespace

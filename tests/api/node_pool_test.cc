// The pool by itself: what it gives out, what it knows as its own, and where memory ends.
#include "api/node_pool.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>

#include "tests/api/pool_guard.h"
#include "tests/harness/faults.h"

namespace {

using namespace vt::testing;
using vt::api::NodePool;

TEST(NodePool, GivesOutPiecesThatDoNotOverlap) {
  PoolGuard guard;
  std::set<const std::byte*> taken;
  for (std::size_t size = 1; size < 600; ++size) {
    auto* const piece = static_cast<std::byte*>(guard.pool.New(size));
    ASSERT_NE(piece, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(piece) % sizeof(void*), 0U);
    std::memset(piece, 0xA5, size);  // the sanitizers look on
    for (std::size_t i = 0; i < size; ++i) ASSERT_TRUE(taken.insert(piece + i).second);
  }
}

TEST(NodePool, HoldsItsPiecesFromTheFirstByteToTheLast) {
  constexpr std::size_t kSize = 10000;  // a chunk of its own, without anything behind it
  PoolGuard guard;
  const std::byte elsewhere{};
  EXPECT_FALSE(guard.pool.Holds(&elsewhere));
  for (int i = 0; i < 3; ++i) {
    const auto* const piece = static_cast<const std::byte*>(guard.pool.New(kSize));
    ASSERT_NE(piece, nullptr);
    EXPECT_TRUE(guard.pool.Holds(piece));
    EXPECT_TRUE(guard.pool.Holds(piece + kSize - 1));
    EXPECT_FALSE(guard.pool.Holds(piece - 1));
    EXPECT_FALSE(guard.pool.Holds(piece + kSize));
  }
  EXPECT_FALSE(guard.pool.Holds(&elsewhere));
}

TEST(NodePool, TakesFewChunksForVeryManyPieces) {
  PoolGuard guard;
  const AllocationCount count;
  constexpr std::size_t kPieces = 100000;
  constexpr std::size_t kSize = 64;
  for (std::size_t i = 0; i < kPieces; ++i) ASSERT_NE(guard.pool.New(kSize), nullptr);
  EXPECT_LE(count.allocations(), 50U);
  EXPECT_LE(count.bytes(), kPieces * kSize * 3 / 2);
}

TEST(NodePool, WithoutMemoryGivesNothingAndKeepsWhatItHas) {
  PoolGuard guard;
  const void* const piece = guard.pool.New(8);
  {
    const AllocationFault fault = AllocationFault::FromNth(0);
    EXPECT_EQ(guard.pool.New(100000), nullptr);
    EXPECT_TRUE(fault.hit());
  }
  EXPECT_TRUE(guard.pool.Holds(piece));
  EXPECT_NE(guard.pool.New(100000), nullptr);
}

TEST(NodePool, IsEmptyAgainWhenAllIsReleased) {
  const LiveBlocks live;
  NodePool pool{};
  const void* const piece = pool.New(8);
  pool.ReleaseAll();
  EXPECT_FALSE(pool.Holds(piece));
  EXPECT_EQ(live.count(), 0);
  EXPECT_NE(pool.New(8), nullptr);
  pool.ReleaseAll();
  EXPECT_EQ(live.count(), 0);
}

}  // namespace

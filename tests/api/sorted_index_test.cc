// The sorted index by itself: against a map, and where memory ends.
#include "api/sorted_index.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <vector>

#include "api/row_store.h"
#include "tests/api/pool_guard.h"
#include "tests/harness/faults.h"

namespace {

using namespace vt::testing;
using vt::api::IdentityOrder;
using vt::api::NodePool;
using vt::api::NumberOrder;
using vt::api::RowDevice;
using vt::api::SortedIndex;

corvane_id IdentityOf(std::uint32_t number) {
  corvane_id id{};
  const std::uint32_t big_endian = __builtin_bswap32(number);  // sorts like the number
  std::memcpy(id.bytes + 20, &big_endian, sizeof big_endian);
  return id;
}

struct Identities {
  using Index = SortedIndex<corvane_id, RowDevice, IdentityOrder>;
  static corvane_id Key(std::uint32_t number) { return IdentityOf(number); }
};
struct Numbers {
  using Index = SortedIndex<std::uint32_t, entity_node, NumberOrder>;
  static std::uint32_t Key(std::uint32_t number) { return number; }
};

// SortedIndexOf is a kind of index with what the tests do to it.
template <class Of>
struct SortedIndexOf {
  using Index = typename Of::Index;
  using Place = typename Index::Place;
  using Node = std::remove_pointer_t<decltype(Place::found)>;

  // Expect holds every number and its neighbours against the map.
  static void Expect(const Index& index, const std::map<std::uint32_t, Node*>& expected) {
    for (const auto& [number, node] : expected) {
      for (const std::uint32_t near : {number - 1, number, number + 1}) {
        const auto at = expected.lower_bound(near);
        const Place place = index.Find(Of::Key(near));
        ASSERT_EQ(place.found, at != expected.end() && at->first == near ? at->second : nullptr);
        ASSERT_EQ(place.predecessor, at != expected.begin() ? std::prev(at)->second : nullptr);
      }
    }
  }
};

// TEST_BOTH makes a test of each kind of index.
#define TEST_BOTH(name)                                         \
  template <class Of>                                           \
  void name();                                                  \
  TEST(SortedIndex, OfIdentities##name) { name<Identities>(); } \
  TEST(SortedIndex, OfNumbers##name) { name<Numbers>(); }       \
  template <class Of>                                           \
  void name()

TEST_BOTH(FindsWhatAMapFinds) {
  using Fixture = SortedIndexOf<Of>;
  std::mt19937 generator(5);
  std::vector<typename Fixture::Node> nodes(4000);
  PoolGuard memory;
  typename Fixture::Index index{};
  std::map<std::uint32_t, typename Fixture::Node*> expected;
  for (auto& node : nodes) {
    const auto number = 1 + static_cast<std::uint32_t>(generator() % 100000);
    const auto key = Of::Key(number);
    const auto place = index.Find(key);
    ASSERT_EQ(place.found != nullptr, expected.contains(number));
    if (place.found != nullptr) continue;
    ASSERT_TRUE(index.Insert(memory.pool, place, key, &node));
    expected[number] = &node;
  }
  Fixture::Expect(index, expected);
}

TEST_BOTH(WithoutMemoryKeepsTheKeysThatItHas) {
  using Fixture = SortedIndexOf<Of>;
  std::vector<typename Fixture::Node> nodes(1500);
  std::size_t refused = 0;
  const std::size_t failures = SweepAllocationFailures([&](AllocationFault& fault) {
    std::mt19937 generator(7);
    PoolGuard memory;
    typename Fixture::Index index{};
    std::map<std::uint32_t, typename Fixture::Node*> expected;
    for (auto& node : nodes) {
      const auto number = 1 + static_cast<std::uint32_t>(generator() % 100000);
      const auto key = Of::Key(number);
      const auto place = index.Find(key);
      if (place.found != nullptr) continue;
      const bool added = index.Insert(memory.pool, place, key, &node);
      if (added) {
        const AllocationFault::Pause pause;
        expected[number] = &node;
      } else {
        ++refused;
      }
      // What else the pool is asked for varies, so that memory ends here and there.
      (void)memory.pool.New(generator() % 64);
    }
    fault.Disarm();
    Fixture::Expect(index, expected);
  });
  EXPECT_GT(failures, 5u);
  EXPECT_GT(refused, failures);
}

// A new block of keys finds memory, but the directory has to grow for it and finds none.
TEST_BOTH(WithoutMemoryForItsDirectoryKeepsTheKeysThatItHas) {
  using Fixture = SortedIndexOf<Of>;
  constexpr std::uint32_t kKeys = 512;  // 8 blocks, for which the first directory has room
  std::vector<typename Fixture::Node> nodes(kKeys + 1);
  PoolGuard memory;
  typename Fixture::Index index{};
  std::map<std::uint32_t, typename Fixture::Node*> expected;
  for (std::uint32_t i = 0; i < kKeys; ++i) {
    const std::uint32_t number = 2 * i + 2;
    ASSERT_TRUE(index.Insert(memory.pool, index.AtEnd(), Of::Key(number), &nodes[i]));
    expected[number] = &nodes[i];
  }
  std::size_t refused = 0;
  for (std::size_t used = 8; used < 4000; used += 8) {
    PoolGuard nearly_full;
    ASSERT_NE(nearly_full.pool.New(used), nullptr);
    typename Fixture::Index grown = index;
    const AllocationFault fault = AllocationFault::Nth(0);
    if (grown.Insert(nearly_full.pool, grown.AtEnd(), Of::Key(5000), &nodes[kKeys])) {
      continue;
    }
    EXPECT_TRUE(fault.hit());
    ++refused;
    const AllocationFault::Pause pause;
    Fixture::Expect(grown, expected);
  }
  EXPECT_GT(refused, 0u);
}

}  // namespace

// Rows among very many: their order, however they arrive, and what they leave behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <set>
#include <string>

#include "vtapi.h"

#include "tests/api/api_support.h"
#include "tests/harness/faults.h"
#include "tests/harness/note.h"
#include "tests/harness/sanitizers.h"

namespace {

using namespace vt::testing;

std::string LampName(std::uint32_t number) {
  std::string text = std::to_string(number);
  return "lamp-" + std::string(6 - text.size(), '0') + text;
}

std::vector<std::uint32_t> UpTo(std::uint32_t count) {
  std::vector<std::uint32_t> numbers(count);
  std::iota(numbers.begin(), numbers.end(), 1);
  return numbers;
}

// The numbers 1 to count in the three orders in which they are tried.
std::vector<std::vector<std::uint32_t>> Arrivals(std::uint32_t count) {
  std::vector<std::vector<std::uint32_t>> arrivals(3, UpTo(count));
  std::reverse(arrivals[1].begin(), arrivals[1].end());
  std::shuffle(arrivals[2].begin(), arrivals[2].end(), std::mt19937(7));
  return arrivals;
}

// FoldDevices sends replies of up to 12 devices each.
void FoldDevices(Collection& c, const std::vector<std::uint32_t>& numbers) {
  for (std::size_t i = 0; i < numbers.size();) {
    std::vector<Bytes> elements;
    for (; i < numbers.size() && elements.size() < 12; ++i) {
      elements.push_back(Aggregate(14, LampName(numbers[i]), {Entry(1, {5})}));
    }
    c.Reply(std::move(elements));
  }
}

void FoldEntities(Collection& c, const std::vector<std::uint32_t>& numbers) {
  for (std::size_t i = 0; i < numbers.size();) {
    std::vector<Bytes> entries;
    for (; i < numbers.size() && entries.size() < 100; ++i) {
      entries.push_back(Entry(numbers[i], {5}));
    }
    c.Reply({Aggregate(14, "lamp", std::move(entries))});
  }
}

TEST(RowStore, KeepsThousandsOfDevicesInOrderHoweverTheyArrive) {
  constexpr std::uint32_t kCount = 3000;
  for (const auto& arrival : Arrivals(kCount)) {
    Collection c({9});
    FoldDevices(c, arrival);
    FoldDevices(c, arrival);  // and finds them all again
    ASSERT_EQ(voltaris_getRowCount(c.result()), static_cast<std::int32_t>(kCount));
    std::uint32_t number = 0;
    for (const std::string& name : RowNames(c.result())) {
      ASSERT_EQ(name, LampName(++number) + "/1");
    }
    EXPECT_EQ(number, kCount);
    EXPECT_EQ(c.result()->rows.depth, static_cast<std::int32_t>(kCount));
  }
}

TEST(RowStore, KeepsThousandsOfEntitiesOfADeviceInOrderHoweverTheyArrive) {
  constexpr std::uint32_t kCount = 3000;
  for (const auto& arrival : Arrivals(kCount)) {
    Collection c({9});
    FoldEntities(c, arrival);
    FoldEntities(c, arrival);
    ASSERT_EQ(voltaris_getRowCount(c.result()), static_cast<std::int32_t>(kCount));
    std::uint32_t number = 0;
    while (const ResultRow* row = voltaris_getNextRow(c.result())) {
      ASSERT_EQ(row->entity_index, ++number);
      ASSERT_EQ(row->attributes->depth, 2);
    }
    EXPECT_EQ(number, kCount);
  }
}

TEST(RowStore, AgreesWithASortedSetOnFewRows) {
  std::mt19937 generator(11);
  const auto below = [&](std::uint32_t limit) {
    return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(generator);
  };
  for (int trial = 0; trial < 50; ++trial) {
    Collection c({9});
    std::set<std::pair<std::string, std::uint32_t>> expected;
    for (int i = 0; i < 60; ++i) {
      const std::string device = LampName(below(5));
      const std::uint32_t entity = below(50) + 1;
      expected.insert({device, entity});
      c.Reply({Aggregate(14, device, {Entry(entity, {5})})});
    }
    std::vector<std::string> names;
    for (const auto& [device, entity] : expected) {
      names.push_back(device + "/" + std::to_string(entity));
    }
    EXPECT_EQ(RowNames(c.result()), names);
  }
}

TEST(RowStore, TellsIdentitiesApartThatDifferInTheOrderOfTheirWordsAlone) {
  Collection c({9});
  std::vector<std::string> words = {"aaaaaaaa", "bbbbbbbb", "cccccccc", "dddddddd"};
  std::vector<std::string> names;
  do {
    const std::string identity = words[0] + words[1] + words[2] + words[3];
    c.Reply({Aggregate(14, identity, {Entry(1, {5})})});
    names.push_back(identity + "/1");
  } while (std::next_permutation(words.begin(), words.end()));
  EXPECT_EQ(RowNames(c.result()), names);
}

// ManyRowsBehind are signed replies with rows of ballast, then with a device of its own and an
// entity of one large device for each number.
std::vector<Bytes> ManyRowsBehind(std::size_t ballast, const std::vector<std::uint32_t>& order) {
  std::vector<std::vector<Bytes>> contents = {
      {Aggregate(14, "first", std::vector<Bytes>(ballast, Entry(1, {5})))}};
  for (std::size_t i = 0; i < order.size(); i += 35) {
    std::vector<Bytes> elements;
    std::vector<Bytes> entries;
    for (std::size_t j = i; j < i + 35; ++j) {
      elements.push_back(Aggregate(14, LampName(order[j]), {Entry(1, {5})}));
      entries.push_back(Entry(order[j], {5}));
    }
    elements.push_back(Aggregate(14, "large", std::move(entries)));
    contents.push_back(std::move(elements));
  }
  std::vector<Bytes> replies;
  for (std::vector<Bytes>& content : contents) {
    replies.push_back(ReplyWith(std::move(content)).Signed(SessionKey()));
  }
  return replies;
}

// What is at hand when memory ends depends on what was folded before; so both are varied.
TEST(RowStore, WithoutMemoryKeepsTheRowsThatItHasInOrder) {
  const auto order = Arrivals(700)[2];
  std::size_t failures = 0;
#ifdef VT_SANITIZER
  constexpr std::size_t kStep = 5;  // sanitizers take their time
  Note() << "every fifth case\n";
#else
  constexpr std::size_t kStep = 1;
#endif
  for (std::size_t ballast = 0; ballast < 40; ballast += kStep) {
    const std::vector<Bytes> replies = ManyRowsBehind(ballast, order);
    failures += SweepAllocationFailures([&](AllocationFault& fault) {
      std::unique_ptr<Collection> c;
      std::vector<EventPtr> events;
      {
        const AllocationFault::Pause pause;
        c = std::make_unique<Collection>(std::initializer_list<std::int32_t>{9});
        // Rows of several sizes, so that memory ends now at a row and now at the index.
        c->query()->attribute_count = static_cast<std::uint32_t>(1 + ballast % 7);
        for (const Bytes& reply : replies) events.push_back(Decoded(reply));
      }
      for (const EventPtr& event : events) vtn_addResult(event.get(), c->result());
      fault.Disarm();
      EXPECT_EQ(voltaris_getErrorCode(c->result()), fault.hit() ? 12 : 0);
      const auto names = RowNames(c->result());
      EXPECT_EQ(names.size(), static_cast<std::size_t>(voltaris_getRowCount(c->result())));
      if (!fault.hit()) {
        EXPECT_EQ(names.size(), order.size() * 2 + (ballast != 0));
      }
      // Entities are sorted as numbers, within devices that are sorted as bytes.
      std::string device;
      std::uint32_t entity = 0;
      while (const ResultRow* row = voltaris_getNextRow(c->result())) {
        const std::string here(reinterpret_cast<const char*>(row->device), 32);
        EXPECT_TRUE(device < here || (device == here && entity < row->entity_index));
        device = here;
        entity = row->entity_index;
      }
    });
  }
  Note() << failures << " allocations failed in turn\n";
  EXPECT_GT(failures, 300u / kStep);
}

// So many that the table and the nodes lie on large pages.
TEST(RowStore, FindsEachOfSeventyThousandDevicesAgain) {
  constexpr std::uint32_t kCount = 70000;
  Collection c({9});
  std::vector<aggregated_value> devices(kCount);
  for (std::uint32_t i = 0; i < kCount; ++i) {
    const Bytes id = Identity32(LampName(i * 7919 % kCount));  // all of them, here and there
    std::copy(id.begin(), id.end(), devices[i].device.id.bytes);
  }
  Tlv tlv = {0x8000000E, 0, 0, nullptr};
  Tlv* slot = &tlv;
  message_header pak{};
  pak.tlv_count = 1;
  Event event{};
  event.pak_valid = 1;
  event.pak = &pak;
  event.tlvs = &slot;
  event.tlv_capacity = 1;
  for (int pass = 0; pass < 2; ++pass) {
    for (aggregated_value& device : devices) {
      tlv.value = &device;
      vtn_addResult(&event, c.result());
    }
    ASSERT_EQ(c.result()->rows.depth, static_cast<std::int32_t>(kCount));
  }
  std::uint32_t number = 0;
  for (auto* at = c.result()->rows.head; at != nullptr; at = at->next) {
    const Bytes id = Identity32(LampName(number++));
    const auto* device = reinterpret_cast<const device_node*>(at);
    ASSERT_EQ(std::memcmp(device->key->device.id.bytes, id.data(), id.size()), 0) << number;
  }
  EXPECT_EQ(number, kCount);
}

// AddDevice puts a device with a row and a value among those of the result, as an application does
// that makes rows of its own.
void AddDevice(ResultSet* result, aggregated_value& key) {
  std::int32_t created = 0;
  auto* device = static_cast<device_node*>(
      vtn_checkQueue(&result->rows, &key, dh_id_compare, sizeof(device_node), &created));
  ASSERT_NE(device, nullptr);
  ASSERT_EQ(created, 1);
  device->key = &key;
  const std::uint32_t index = 7;
  auto* row = static_cast<entity_node*>(
      vtn_checkQueue(&device->entities, &index, ent_entidx_compare, sizeof(entity_node), &created));
  ASSERT_NE(row, nullptr);
  row->entity_index = index;
  static std::uint8_t level = 5;
  vtn_addTlvToResultRow(row, 9, 1, &level, result);
}

TEST(RowStore, ReleasesTheRowsOfTheApplicationToo) {
  (void)ReplyWith({}).Signed(SessionKey());  // what the signer allocates once is not looked at
  const LiveBlocks live;
  aggregated_value key{};
  const Bytes id = Identity32("lift");
  std::copy(id.begin(), id.end(), key.device.id.bytes);
  {
    Collection c({9});
    AddDevice(c.result(), key);
    EXPECT_EQ(RowNames(c.result()), std::vector<std::string>{"lift/7"});
  }
  {
    Collection c({9});
    c.Reply({Aggregate(14, "lamp", {Entry(1, {5})}), Aggregate(14, "mast", {Entry(2, {5})})});
    AddDevice(c.result(), key);
    EXPECT_EQ(RowNames(c.result()), (std::vector<std::string>{"lamp/1", "lift/7", "mast/2"}));
  }
  EXPECT_EQ(live.count(), 0);
}

TEST(RowStore, OfAResultThatWasNeverFoldedIntoIsNotThere) {
  Collection c({9});
  c.Reply(std::vector<Bytes>{});
  EXPECT_EQ(voltaris_getRowCount(c.result()), 0);
  EXPECT_TRUE(RowNames(c.result()).empty());
}

}  // namespace

// Rows as a range, and copies of rows.
#include "vtapi/face/row.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <optional>
#include <ranges>
#include <string>
#include <vector>

#include "tests/face/face_support.h"

namespace {

using namespace vt::testing;

using voltaris::collect_query;
using voltaris::OwnedRow;
using voltaris::Results;
using voltaris::Row;
using voltaris::RowIterator;
using voltaris::Rows;

static_assert(std::forward_iterator<RowIterator>);
static_assert(std::ranges::forward_range<Rows> && std::ranges::common_range<Rows>);
static_assert(std::ranges::view<Rows> && std::ranges::borrowed_range<Rows>);
static_assert(std::copyable<OwnedRow> && std::equality_comparable<OwnedRow>);

// Three rows of two devices, with their levels.
Results Three() {
  return ResultsOf(
      collect_query("office").get(voltaris::level, voltaris::name),
      {Aggregate(14, "lamp", {Entry(2, {2}), Entry(1, {1})}), Aggregate(14, "fan", {Entry(7, {7})}),
       Aggregate(9, "fan", {Entry(7, Counted(Text("west")))})});
}

std::string Named(const Row& row) { return DeviceName(row) + "/" + std::to_string(row.entity()); }

TEST(FaceRows, AreWalkedInTheirOrder) {
  const Results results = Three();
  std::vector<std::string> names;
  for (const Row row : results.rows()) names.push_back(Named(row));
  EXPECT_EQ(names, (std::vector<std::string>{"fan/7", "lamp/1", "lamp/2"}));
  EXPECT_EQ(results.row_count(), 3u);
}

TEST(FaceRows, AreARangeForAlgorithms) {
  const Results results = Three();
  const Rows rows = results.rows();
  EXPECT_EQ(std::ranges::distance(rows), 3);
  EXPECT_FALSE(rows.empty());
  const auto is_lamp = [](const Row& row) { return DeviceName(row) == "lamp"; };
  EXPECT_EQ(std::ranges::count_if(rows, is_lamp), 2);
  const auto found = std::ranges::find_if(rows, is_lamp);
  ASSERT_NE(found, rows.end());
  EXPECT_EQ(Named(*found), "lamp/1");
  const std::vector<Row> kept(rows.begin(), rows.end());
  EXPECT_EQ(Named(kept.back()), "lamp/2");
  EXPECT_EQ(std::ranges::max(std::vector{kept[0].entity(), kept[1].entity()}), 7u);
}

// clang 14 cannot compile the views of this standard library.
#if !defined(__clang__) || __clang_major__ >= 16
TEST(FaceRows, AreARangeForViews) {
  const Results results = Three();
  std::vector<int> levels;
  for (const auto level : results.rows() | std::views::filter([](const Row& row) {
                            return row.entity() != 1;
                          }) | std::views::transform([](const Row& row) {
                            return row.get(voltaris::level).value_or(-1);
                          })) {
    levels.push_back(level);
  }
  EXPECT_EQ(levels, (std::vector{7, 2}));
}
#endif

TEST(FaceRows, CanBeWalkedTwiceAndAtOnce) {
  const Results results = Three();
  const Results others = Three();
  std::vector<std::string> names;
  auto it = others.rows().begin();
  for (const Row a : results.rows()) {
    for (const Row b : results.rows()) names.push_back(Named(a) + " " + Named(b));
    names.push_back(Named(*it++));
  }
  EXPECT_EQ(names.size(), 12u);
  EXPECT_EQ(names[1], "fan/7 lamp/1");
  EXPECT_EQ(names.back(), "lamp/2");
  EXPECT_EQ(it, others.rows().end());
}

TEST(FaceRows, OfNoAnswerAreEmpty) {
  const Results none = ResultsOf(collect_query("office").get(voltaris::level), {});
  EXPECT_TRUE(none.rows().empty());
  EXPECT_EQ(none.rows().begin(), none.rows().end());
  EXPECT_TRUE(Rows().empty());
  for (const Row row : none.rows()) ADD_FAILURE() << Named(row);
}

TEST(FaceRows, OutliveTheRangeTheyCameFrom) {
  const Results results = Three();
  const auto found = std::ranges::find_if(
      results.rows(), [](const Row& row) { return row.get(voltaris::name).has_value(); });
  EXPECT_EQ((*found).get(voltaris::name), "west");
}

template <class R>
concept HasRows = requires(R results) {
  static_cast<R>(results).rows().begin();
};

TEST(FaceRows, OfATemporaryCannotBeHad) {
  static_assert(HasRows<const Results&>);
  static_assert(!HasRows<Results&&>);
}

TEST(FaceOwnedRow, OutlivesItsResults) {
  std::vector<OwnedRow> kept;
  {
    const Results results = Three();
    for (const Row row : results.rows()) kept.push_back(row.copy());
  }
  ASSERT_EQ(kept.size(), 3u);
  EXPECT_EQ(kept[0].get(voltaris::name), "west");
  EXPECT_EQ(kept[0].get(voltaris::level), 7);
  EXPECT_EQ(kept[1].get(voltaris::name), std::nullopt);
  EXPECT_EQ(kept[2].entity(), 2u);
  EXPECT_EQ(kept[2].get(voltaris::address)->port, 7440);
  EXPECT_LT(kept[0].id(), kept[1].id());
}

TEST(FaceOwnedRow, IsAValue) {
  const Results results = Three();
  const OwnedRow original =
      OnlyRow(ResultsOf(collect_query("office").get(voltaris::level), {Plain(14, {4})})).copy();
  OwnedRow copy = original;
  EXPECT_EQ(copy, original);
  const OwnedRow moved = std::move(copy);
  EXPECT_EQ(moved, original);
  copy = (*results.rows().begin()).copy();
  EXPECT_NE(copy, original);
  EXPECT_EQ(original.get(voltaris::level), 4);
}

}  // namespace
